// Reads Bidi extension files and merges them into one tree.
//
// A file is refused when it cannot be loaded, does not declare the platform's Bidi namespace, or exceeds the
// bounds of util/xml_bounds.h. Failures throw CComErrorEx, with a reason that names the file.
#pragma once

#include "bidi/query_budget.h"
#include "bidi/schema_tree.h"

namespace vlm {

// The files of a list as CVelunBidiSpl::Init takes it, in its order, merged. The first file is the base; a
// later one adds what is not there yet and never replaces anything.
SchemaElement LoadExtensionFiles(const wchar_t* fileListXml, QueryBudget& budget);

// Adds to `declarations` those of `added` whose prefix is new. The same prefix with another URI fails; the
// reason says that it is of `source`.
void ReconcileNamespaces(std::vector<NamespaceDeclaration>& declarations,
                         const std::vector<NamespaceDeclaration>& added, const std::wstring& source);

}  // namespace vlm

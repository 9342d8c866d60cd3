// Where a document declares its namespaces, as a SAX reader reports it.
//
// A DOM does not do: whether its attribute maps hold the declarations, and in which order, differs between
// parsers.
#pragma once

#include <windows.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "util/xml_names.h"

namespace vlm {

// Those of one element, in the order in which they stand there.
using NamespaceDeclarations = std::vector<NamespaceDeclaration>;

class DeclaredNamespaces {
 public:
    // Reads all of a document that a parser has already accepted. COM is initialised. Returns S_OK or the
    // reader's failure.
    HRESULT Read(std::string_view document);

    // What the element declares itself. Elements are numbered in document order; the root is 0.
    NamespaceDeclarations Of(size_t element) const;
    // Of the first element that declares `uri`, or null.
    const NamespaceDeclarations* OfFirstWith(std::wstring_view uri) const;

 private:
    std::map<size_t, NamespaceDeclarations> byElement_;  // those that declare any
};

}  // namespace vlm

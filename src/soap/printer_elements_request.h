// The request side of GetPrinterElements: what is asked for, and the message that asks. Plain standard C++.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "util/xml_names.h"

namespace vlm {

// A query as the Bidi engine writes it: the prefixed namespaces that its root declares, and the qualified
// names of the printer elements it wants, in order.
struct PrinterElementsQuery {
    std::vector<NamespaceDeclaration> namespaces;
    std::vector<std::wstring> names;
};

// The request envelope, pure ASCII. `to` is the service's address as the caller knows it; `messageId` and
// `from` are two fresh "urn:uuid:" names.
//
// The query's namespaces are declared on pri:RequestedElements, where they are in scope for every requested
// name and cannot disturb the envelope. Where the query binds "pri" itself to another namespace, the names
// that use it get a prefix of their own, because pri:Name needs that one.
std::string BuildPrinterElementsRequest(const PrinterElementsQuery& query, std::wstring_view to,
                                        std::wstring_view messageId, std::wstring_view from);

}  // namespace vlm

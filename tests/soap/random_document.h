// Random documents whose namespaces get in each other's way.
#pragma once

#include <cstddef>
#include <iterator>
#include <map>
#include <string>

namespace vlm {

// An element, its declarations drawn from few prefixes and namespaces so that they clash often. `any(count)`
// gives a number below `count`; `scope` is what is declared around the element.
template <typename Any>
void AppendRandomElement(Any any, int depth, std::map<std::string, std::string> scope, std::string* out) {
    const char* const uris[] = {"urn:a", "urn:b", "urn:c",
                                "http://schemas.microsoft.com/windows/2006/08/wdp/print"};
    const char* const prefixes[] = {"", "p", "q", "pri", "wprt", "ns1"};
    std::string declarations;
    for (size_t i = any(3); i > 0; --i) {
        const std::string prefix = prefixes[any(std::size(prefixes))];
        const std::string declaration = prefix.empty() ? " xmlns='" : " xmlns:" + prefix + "='";
        if (declarations.find(declaration) != std::string::npos) continue;
        const std::string uri = prefix.empty() && any(3) == 0 ? "" : uris[any(std::size(uris))];
        scope[prefix] = uri;
        declarations.append(declaration).append(uri).append("'");
    }
    auto entry = scope.begin();
    if (!scope.empty()) std::advance(entry, any(scope.size()));
    const std::string prefix = scope.empty() || entry->first.empty() ? "" : entry->first + ":";
    const char* const locals[] = {"a", "b", "ElementData"};
    const std::string name = prefix + locals[any(std::size(locals))];
    *out += "<" + name + declarations;
    if (any(2) == 0) *out += " x='1'";
    if (!prefix.empty() && any(2) == 0) *out += " " + prefix + "y='&#10;&lt;&quot;'";
    if (any(2) == 0) *out += std::string(" Name='") + prefixes[any(std::size(prefixes))] + ":c'";
    *out += ">";
    for (size_t i = depth < 5 ? any(4) : 0; i > 0; --i) {
        if (any(3) == 0) *out += "t&amp;";
        AppendRandomElement(any, depth + 1, scope, out);
    }
    *out += "</" + name + ">";
}

}  // namespace vlm

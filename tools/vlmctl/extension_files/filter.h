// What can be said about a filter of an extension file without a printer: which names it uses, where it
// starts, which parameters it holds, and whether XPath takes it.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "util/vlxml.h"

namespace vlm::ctl {

struct QualifiedName {
    std::wstring prefix;  // empty without one
    std::wstring localName;
};

// Nothing when `text` is no name of the form "prefix:local".
std::optional<QualifiedName> ParsePrefixedName(std::wstring_view text);

struct FilterNames {
    std::vector<std::wstring> prefixes;           // each once, in order
    std::optional<QualifiedName> first;           // the element that the first step names, if it names one
    std::optional<std::wstring> unknownFunction;  // that XPath does not have
};
FilterNames ReadFilterNames(std::wstring_view filter);

// The names between "$" and "$" in a filter or a name; nothing when the "$" do not pair or enclose nothing.
std::optional<std::vector<std::wstring>> ParameterNames(std::wstring_view text);

// Tells whether XPath takes a filter as the engine would run it. COM must be initialised on the thread.
class FilterCompiler {
 public:
    FilterCompiler();

    // `filter` with sample values in place of its parameters, behind "//", the prefixes bound as declared.
    bool Accepts(std::wstring_view filter, const std::map<std::wstring, std::wstring>& declarations);

 private:
    CXMLDoc document_;
    std::map<std::wstring, std::wstring> bound_;
};

}  // namespace vlm::ctl

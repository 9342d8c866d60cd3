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

// A piece of a text, and the number of its first character.
struct Piece {
    std::wstring text;
    size_t at = 0;
};

struct FilterNames {
    std::vector<Piece> prefixes;         // each once, in order
    std::optional<QualifiedName> first;  // the element that the first step names, if it names one
    size_t firstAt = 0;
    std::optional<Piece> unknownFunction;  // that XPath does not have
};
FilterNames ReadFilterNames(std::wstring_view filter);

// What stands between "$" and "$" in a filter or a name.
struct ParameterUses {
    std::vector<Piece> names;
    std::optional<size_t> unpaired;  // the "$" that has no partner or encloses nothing; nothing follows it
};
ParameterUses ReadParameters(std::wstring_view text);

// Tells whether XPath takes a filter as the engine would run it. COM must be initialised on the thread.
class FilterCompiler {
 public:
    FilterCompiler();

    // `filter` with sample values in place of its parameters, behind "//", the prefixes bound as declared.
    // Nothing when it is taken, else the number of the character at which it ceases to be an XPath
    // expression; 0 also for one that selects no nodes.
    std::optional<size_t> BreaksAt(std::wstring_view filter,
                                   const std::map<std::wstring, std::wstring>& declarations);

 private:
    CXMLDoc document_;
    std::map<std::wstring, std::wstring> bound_;
};

}  // namespace vlm::ctl

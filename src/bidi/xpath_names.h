// What can be in a name of an XPath expression, roughly: the parser that runs the expression is stricter.
// Plain standard C++.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace vlm {

inline bool StartsXPathName(wchar_t c) {
    return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || c == L'_' || c >= 0x80;
}
inline bool ContinuesXPathName(wchar_t c) {
    return StartsXPathName(c) || (c >= L'0' && c <= L'9') || c == L'-' || c == L'.';
}

// Of the name that the text begins with, without a prefix; 0 for none.
inline size_t XPathNameLength(std::wstring_view text) {
    if (text.empty() || !StartsXPathName(text.front())) return 0;
    const auto end = std::find_if_not(text.begin(), text.end(), ContinuesXPathName);
    return static_cast<size_t>(end - text.begin());
}

}  // namespace vlm

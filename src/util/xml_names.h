// Names, namespaces and white space as XML defines them. Plain standard C++; text is UTF-16, or UTF-32 where
// wchar_t is that wide.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vlm {

struct NamespaceDeclaration {
    std::wstring prefix;  // empty for the default namespace
    std::wstring uri;
};

// The first of that prefix, or null.
const NamespaceDeclaration* FindPrefix(const std::vector<NamespaceDeclaration>& declarations,
                                       std::wstring_view prefix);

inline constexpr std::wstring_view kXmlSpace = L" \t\r\n";

// `text` without the white space around it.
std::wstring_view TrimXmlSpace(std::wstring_view text);

// The character at `*position`, which moves behind it. A surrogate pair is one character; a lone surrogate,
// which is no character at all, becomes U+FFFD.
std::uint32_t NextCharacter(std::wstring_view text, size_t* position);

// A name without a colon.
bool IsNcName(std::wstring_view text);

}  // namespace vlm

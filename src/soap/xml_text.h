// Text in XML. Plain standard C++.
//
// Requests leave as pure ASCII: whatever is outside is written as a numeric character reference, so that the
// bytes mean the same under every encoding that a header, a declaration or a printer may assume.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vlm {

// Appends `text` (UTF-16, or UTF-32 where wchar_t is that wide) so that an XML parser reads it back
// unchanged, as element content and as an attribute value alike: markup characters as entities, everything
// that is not printable ASCII, line ends and tabs included, as "&#x%06X;". A surrogate pair is one character;
// a lone surrogate, which is no character at all, becomes U+FFFD.
void AppendEscaped(std::string* out, std::wstring_view text);

}  // namespace vlm

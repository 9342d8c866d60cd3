// Text in XML. Plain standard C++; text is UTF-16, or UTF-32 where wchar_t is that wide.
#pragma once

#include <string>
#include <string_view>

namespace vlm {

// For element content and for attribute values between either kind of quotes, so that a parser reads back the
// same. What XML cannot hold, lone surrogates and most control characters, becomes U+FFFD.
std::wstring EscapeXml(std::wstring_view text);

// Appends `text` with the characters of `special` as references and all others as they are.
void AppendEscaped(std::wstring* out, std::wstring_view text, std::wstring_view special);

// Appends `text` as printable ASCII, for requests: the bytes mean the same under every encoding that a
// header, a declaration or a printer may assume. Markup characters become entities, everything outside
// printable ASCII, line ends and tabs included, "&#x%06X;". A lone surrogate becomes U+FFFD.
void AppendEscapedAscii(std::string* out, std::wstring_view text);

}  // namespace vlm

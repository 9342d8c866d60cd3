// Texts between UTF-8 and UTF-16, and codes in words.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace vlm {

// What is not well-formed becomes U+FFFD.
std::string ToUtf8(std::wstring_view text);
std::wstring FromUtf8(std::string_view text);
// The same from the system's code page.
std::wstring FromCodePage(std::string_view text);

// "connection refused (10061)": the codes that a print run meets in words, any other by its number.
std::string ErrorText(DWORD code);

}  // namespace vlm

// WinINet's error numbers in words.
#pragma once

#include <windows.h>

#include <string>

namespace vlm {

// "no connection (12029)"; "error 12345" for a number without words here.
std::wstring DescribeNetworkError(DWORD error);

}  // namespace vlm

// Text of the system's code page, as the debugger output and the remote procedures carry it.
#pragma once

#include <cstddef>
#include <string>

namespace vlm::ctl {

std::wstring FromCodePage(const char* text, size_t length);

}  // namespace vlm::ctl

#include "tools/vlmctl/console/code_page.h"

#include <windows.h>

namespace vlm::ctl {

std::wstring FromCodePage(const char* text, size_t length) {
    std::wstring wide(length, L'\0');
    const int count = MultiByteToWideChar(CP_ACP, 0, text, static_cast<int>(length), wide.data(),
                                          static_cast<int>(wide.size()));
    wide.resize(static_cast<size_t>(count));
    return wide;
}

}  // namespace vlm::ctl

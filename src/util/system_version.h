// The system's version, as the process's compatibility mode has it.
#pragma once

#include <windows.h>

namespace vlm {

// Zeroes when it cannot be read.
inline OSVERSIONINFOW SystemVersion() {
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof version;
#if defined(_MSC_VER)
#pragma warning(suppress : 4996)  // deprecated, because it follows the compatibility mode
#endif
    return GetVersionExW(&version) ? version : OSVERSIONINFOW{};
}

}  // namespace vlm

#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) {
    constexpr UINT kTold = 99;
    TerminateProcess(GetCurrentProcess(), kTold);
    return FALSE;
}

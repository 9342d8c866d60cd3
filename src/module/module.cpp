// What makes the subsystems one DLL: attach, detach, and the one export.
#include <windows.h>

#include <new>

#include "monitor/monitor.h"
#include "monitor/process_state.h"

#if defined(__GLIBCXX__)
namespace __gnu_cxx {
// Gives back the runtime's reserve for exceptions (73 KB), which our own copy of it would leave behind at
// unloading.
void __freeres();  // NOLINT(bugprone-reserved-identifier): the runtime's own name
}  // namespace __gnu_cxx
#endif

extern "C" LPMONITOR2 WINAPI InitializePrintMonitor2(PMONITORINIT pMonitorInit, PHANDLE phMonitor) {
    return vlm::InitializeMonitor(pMonitorInit, phMonitor);
}

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
    try {
        if (reason == DLL_PROCESS_ATTACH) vlm::AttachProcess(instance);
    } catch (...) {
        return FALSE;  // out of memory: the loader gives the module up
    }
    if (reason == DLL_PROCESS_DETACH) {
        const bool processEnds = reserved != nullptr;
        vlm::DetachProcess(processEnds);
#if defined(__GLIBCXX__)
        if (!processEnds) __gnu_cxx::__freeres();
#endif
    }
    return TRUE;
}

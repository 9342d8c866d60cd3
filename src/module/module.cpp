// What makes the subsystems one DLL: attach, detach, and the one export.
#include <windows.h>

#include "monitor/monitor.h"
#include "monitor/process_state.h"

extern "C" LPMONITOR2 WINAPI InitializePrintMonitor2(PMONITORINIT pMonitorInit, PHANDLE phMonitor) {
    return vlm::InitializeMonitor(pMonitorInit, phMonitor);
}

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
    try {
        if (reason == DLL_PROCESS_ATTACH) vlm::AttachProcess(instance);
    } catch (...) {
        return FALSE;  // out of memory: the loader gives the module up
    }
    // A non-null `reserved` says that the whole process ends.
    if (reason == DLL_PROCESS_DETACH) vlm::DetachProcess(reserved != nullptr);
    return TRUE;
}

#include "monitor/monitor.h"

#include <algorithm>
#include <memory>

#include "monitor/event_window.h"
#include "monitor/guard.h"
#include "monitor/lm_manager.h"
#include "monitor/port_operations.h"
#include "monitor/process_state.h"
#include "monitor/remote_ports.h"
#include "rpc/rpc_server.h"
#include "util/handles.h"
#include "util/scope_exit.h"

namespace vlm {

namespace {

#if !defined(MONITOR2_SIZE_WIN2K)
constexpr DWORD MONITOR2_SIZE_WIN2K = 148;  // one 32-bit size and 18 pointers, as the platform counts it
#endif

// True when the manager was in the list; it is not any more.
bool TakeFromMonitorList(CLmMgr* manager) {
    const LockGuard guard(processState.monitorLock);
    auto& monitors = *processState.monitors;
    const auto found = std::find(monitors.begin(), monitors.end(), manager);
    if (found == monitors.end()) return false;
    monitors.erase(found);
    return true;
}

void WINAPI Shutdown(HANDLE hMonitor) noexcept {
    GuardOperation(L"Shutdown", nullptr, [&]() -> BOOL {
        auto* manager = static_cast<CLmMgr*>(hMonitor);
        if (manager == nullptr || !TakeFromMonitorList(manager)) {
            SetLastError(ERROR_INVALID_MONITOR_HANDLE);
            return FALSE;
        }
        if (manager->CloseAllPorts()) delete manager;
        rpc::StopRpcServer(HasAbandonedPorts());
        return TRUE;
    });
}

bool IsWindows2000() {
    OSVERSIONINFOEXW version{};
    version.dwOSVersionInfoSize = sizeof version;
    version.dwMajorVersion = 5;
    version.dwMinorVersion = 0;
    DWORDLONG condition = 0;
    VER_SET_CONDITION(condition, VER_MAJORVERSION, VER_EQUAL);
    VER_SET_CONDITION(condition, VER_MINORVERSION, VER_EQUAL);
    return VerifyVersionInfoW(&version, VER_MAJORVERSION | VER_MINORVERSION, condition) != FALSE;
}

// One table for all, alive as long as the module. Its size is set by each initialisation, to the same number
// each time, so that the spooler may look at it without our lock.
constinit Monitor2Table table VLM_GUARDED_BY(processState.monitorLock) = [] {
    Monitor2Table filled{};
    filled.base.pfnOpenPortEx = OpenPortEx;
    filled.base.pfnStartDocPort = StartDocPort;
    filled.base.pfnWritePort = WritePort;
    filled.base.pfnReadPort = ReadPort;
    filled.base.pfnEndDocPort = EndDocPort;
    filled.base.pfnClosePort = ClosePort;
    filled.base.pfnGetPrinterDataFromPort = GetPrinterDataFromPort;
    filled.base.pfnShutdown = Shutdown;
    filled.base.pfnSendRecvBidiDataFromPort = SendRecvBidiDataFromPort;
    return filled;
}();

}  // namespace

MONITOR2* InitializeMonitor(MONITORINIT* pMonitorInit, HANDLE* phMonitor) noexcept {
    const BOOL initialized = GuardOperation(L"InitializePrintMonitor2", nullptr, [&]() -> BOOL {
        if (pMonitorInit == nullptr || phMonitor == nullptr) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return FALSE;
        }
        // Not when the variable is read: that is under the loader lock, where nothing may wait for a reader
        // of the trace.
        if (const std::wstring level = UnknownTraceLevel(); !level.empty())
            Trace(L"Error: VLLM3MON_TRACE=%ls is not a trace level; errors are traced\r\n",
                  TraceName(level.c_str()).c_str());
        auto manager = std::make_unique<CLmMgr>(pMonitorInit);
        // The monitor serves its ports with remote procedures or without them.
        rpc::StartRpcServer(kRemotePorts);
        ScopeExit stopServer([] { rpc::StopRpcServer(false); });
        if (!StartEventWindow()) {
            Trace(L"Error: InitializePrintMonitor2: the event window did not come up\r\n");
            return FALSE;
        }
        const DWORD size = IsWindows2000() ? DWORD{MONITOR2_SIZE_WIN2K} : DWORD{sizeof table};
        const LockGuard guard(processState.monitorLock);
        processState.monitors->push_back(manager.get());
        *phMonitor = manager.release();
        table.base.cbSize = size;
        stopServer.Dismiss();
        return TRUE;
    });
    return initialized ? &table.base : nullptr;
}

}  // namespace vlm

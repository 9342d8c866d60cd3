#include "monitor/remote_ports.h"

#include <utility>

#include "monitor/guard.h"
#include "monitor/lm_manager.h"
#include "monitor/process_state.h"
#include "util/handles.h"
#include "util/scope_exit.h"
#include "util/trace_lines.h"

namespace vlm {

namespace {

CONDITION_VARIABLE callerLeft = CONDITION_VARIABLE_INIT;  // with the monitor lock
int callersLeftBehind = 0;                                // under the monitor lock

// Under the monitor lock.
void AwaitCallers(const LmPort& port, ULONGLONG deadline) {
    for (;;) {
        const ULONGLONG now = GetTickCount64();
        if (port.remote.users == 0 || now >= deadline) return;
        SleepConditionVariableCS(&callerLeft, &processState.monitorLock, static_cast<DWORD>(deadline - now));
    }
}

// ---- the lower port, as an exchange calls it: not at all any more once the port is being closed

LmPort& Port(HANDLE handle) {
    return *static_cast<LmPort*>(handle);
}

BOOL Abort() {
    SetLastError(ERROR_OPERATION_ABORTED);
    return FALSE;
}

BOOL WINAPI StartBelow(HANDLE handle, LPWSTR printer, DWORD job, DWORD level, LPBYTE document) {
    const LmPort& port = Port(handle);
    if (port.remote.closing.load()) return Abort();
    return port.lower.base.pfnStartDocPort(port.lowerPort, printer, job, level, document);
}

BOOL WINAPI WriteBelow(HANDLE handle, LPBYTE buffer, DWORD size, LPDWORD written) {
    const LmPort& port = Port(handle);
    if (port.remote.closing.load()) return Abort();
    return port.lower.base.pfnWritePort(port.lowerPort, buffer, size, written);
}

BOOL WINAPI ReadBelow(HANDLE handle, LPBYTE buffer, DWORD size, LPDWORD read) {
    const LmPort& port = Port(handle);
    if (port.remote.closing.load()) return Abort();
    const BOOL result = port.lower.base.pfnReadPort(port.lowerPort, buffer, size, read);
    return port.remote.closing.load() ? Abort() : result;
}

BOOL WINAPI EndBelow(HANDLE handle) {
    const LmPort& port = Port(handle);
    if (port.remote.belowGone.load()) return Abort();
    // Some lower monitors do without.
    return port.lower.base.pfnEndDocPort == nullptr || port.lower.base.pfnEndDocPort(port.lowerPort);
}

rpc::ServedPort Describe(LmPort& port) {
    rpc::ServedPort served;
    if (port.lowerPort != nullptr && port.lower.base.pfnStartDocPort != nullptr)
        served.exchange = {&port, &port.flags, StartBelow, WriteBelow, ReadBelow, EndBelow};
    served.jobLock = port.portEvent;
    served.record = &port;
    return served;
}

// Closes the port below, and frees the record with its event and names. `asCaller`: it is the last remote
// caller, which is still counted, that does so.
void CloseBelow(LmPort& port, bool asCaller) {
    // Runs also when the lower monitor throws. A printer that is still open belongs to a job that was never
    // ended; EndDocPort would have closed it, and closing is its work alone.
    const ScopeExit freeRecord([&port, asCaller] {
        const LastErrorKeeper keeper;
        const HANDLE event = std::exchange(port.portEvent, nullptr);
        if (event != nullptr && event != INVALID_HANDLE_VALUE) CloseHandle(event);
        const LockGuard guard(processState.monitorLock);
        if (asCaller) {
            --port.remote.users;
            WakeAllConditionVariable(&callerLeft);
        }
        if (port.owner == nullptr) {
            --callersLeftBehind;
            FreePortRecord(&port);
        } else {
            // In no list means that a Shutdown waits for this caller, and frees the record itself.
            port.owner->RemovePort(&port);
        }
    });
    port.flags.fetch_and(~uint32_t{LMPORT_JOB_ACTIVE});
    if (port.lower.base.pfnClosePort != nullptr && !port.remote.belowGone.load())
        port.lower.base.pfnClosePort(port.lowerPort);
}

// ---- the directory

bool Acquire(const wchar_t* portName, rpc::ServedPort* served) {
    const LockGuard guard(processState.monitorLock);
    for (const CLmMgr* manager : *processState.monitors) {
        LmPort* port = manager->FindPort(portName);
        if (port == nullptr) continue;
        if (port->remote.closing.load()) return false;
        ++port->remote.users;
        *served = Describe(*port);
        return true;
    }
    return false;
}

void Release(const rpc::ServedPort& served) {
    auto& port = *static_cast<LmPort*>(served.record);
    {
        const LockGuard guard(processState.monitorLock);
        if (!port.remote.lastUserCloses || port.remote.users > 1) {
            --port.remote.users;
            WakeAllConditionVariable(&callerLeft);
            return;
        }
    }
    // Still counted, so that a Shutdown that comes now does not free the record.
    GuardOperation(L"ClosePort", [&port]() -> BOOL {
        CloseBelow(port, true);
        return TRUE;
    });
}

}  // namespace

const rpc::PortDirectory kRemotePorts = {Acquire, Release};

bool PrepareToClose(LmPort& port) {
    // Named before: the caller that stays behind may free the record as soon as the lock is given back.
    const TraceName name(port.portName);
    {
        const LockGuard guard(processState.monitorLock);
        port.remote.closing.store(true);
        AwaitCallers(port, GetTickCount64() + kCloseTimeout);
        if (port.remote.users == 0) return true;
        port.remote.lastUserCloses = true;
    }
    TraceRefusal(name.c_str(),
                 L"a remote caller is inside the lower monitor, and closes the port when it is back",
                 ERROR_BUSY);
    return false;
}

void FinishClose(LmPort& port) {
    CloseBelow(port, false);
}

bool PrepareToDiscard(LmPort& port, ULONGLONG deadline) {
    const TraceName name(port.portName);
    {
        const LockGuard guard(processState.monitorLock);
        port.remote.closing.store(true);
        AwaitCallers(port, deadline);
        if (port.remote.users == 0) return true;
        port.remote.belowGone.store(true);
        port.remote.lastUserCloses = true;
        port.owner = nullptr;
        port.next = nullptr;
        ++callersLeftBehind;
    }
    TraceRefusal(name.c_str(), L"a remote caller is inside the lower monitor at shutdown", ERROR_BUSY);
    return false;
}

bool HasCallersLeftBehind() {
    const LockGuard guard(processState.monitorLock);
    return callersLeftBehind != 0;
}

}  // namespace vlm

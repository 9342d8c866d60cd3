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

// An exchange and a job keep each other off the port with the same bit of the same word.
static_assert(vpca::kPortJobActive == LMPORT_JOB_ACTIVE);

CONDITION_VARIABLE somebodyLeft = CONDITION_VARIABLE_INIT;  // with the monitor lock
bool portsAbandoned VLM_GUARDED_BY(processState.monitorLock) = false;

// Lets go of the lock until somebody leaves a port. At the deadline it waits no more and is false.
bool AwaitLeaver(ULONGLONG deadline) VLM_REQUIRES(processState.monitorLock) {
    const ULONGLONG now = GetTickCount64();
    if (now >= deadline) return false;
    SleepConditionVariableCS(&somebodyLeft, &processState.monitorLock.section,
                             static_cast<DWORD>(deadline - now));
    return true;
}

// False when a remote caller is still inside at the deadline.
bool AwaitCallers(const PortUse& use, ULONGLONG deadline) VLM_REQUIRES(processState.monitorLock) {
    while (use.callers != 0)
        if (!AwaitLeaver(deadline)) return false;
    return true;
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
    if (port.use.closing.load()) return Abort();
    return port.lower.base.pfnStartDocPort(port.lowerPort, printer, job, level, document);
}

BOOL WINAPI WriteBelow(HANDLE handle, LPBYTE buffer, DWORD size, LPDWORD written) {
    const LmPort& port = Port(handle);
    if (port.use.closing.load()) return Abort();
    return port.lower.base.pfnWritePort(port.lowerPort, buffer, size, written);
}

BOOL WINAPI ReadBelow(HANDLE handle, LPBYTE buffer, DWORD size, LPDWORD read) {
    const LmPort& port = Port(handle);
    if (port.use.closing.load()) return Abort();
    const BOOL result = port.lower.base.pfnReadPort(port.lowerPort, buffer, size, read);
    return port.use.closing.load() ? Abort() : result;
}

BOOL WINAPI EndBelow(HANDLE handle) {
    const LmPort& port = Port(handle);
    if (port.use.belowGone.load()) return Abort();
    // Some lower monitors do without.
    return port.lower.base.pfnEndDocPort == nullptr || port.lower.base.pfnEndDocPort(port.lowerPort);
}

rpc::ServedPort ServedPortOf(LmPort& port) {
    rpc::ServedPort served;
    if (port.lowerPort != nullptr && port.lower.base.pfnStartDocPort != nullptr)
        served.exchange = {&port, &port.flags, StartBelow, WriteBelow, ReadBelow, EndBelow};
    served.jobLock = port.portEvent;
    served.record = &port;
    return served;
}

// Closes the port below, and frees the record with its event and names. `counted` is the count that whoever
// does so is still in.
using Count = uint32_t PortUse::*;
void CloseBelow(LmPort& port, Count counted) {
    // Runs also when the lower monitor throws. A printer that is still open belongs to a job that was never
    // ended; EndDocPort would have closed it, and closing is its work alone.
    const ScopeExit freeRecord([&port, counted] {
        const LastErrorKeeper keeper;
        KernelHandle(std::exchange(port.portEvent, nullptr)).Reset();
        const LockGuard guard(processState.monitorLock);
        if (port.owner->RemovePort(&port)) return;
        // In no list means that a Shutdown waits for this one, and frees the record itself.
        --(port.use.*counted);
        WakeAllConditionVariable(&somebodyLeft);
    });
    port.flags.fetch_and(~uint32_t{LMPORT_JOB_ACTIVE});
    if (port.lower.base.pfnClosePort != nullptr && !port.use.belowGone.load())
        port.lower.base.pfnClosePort(port.lowerPort);
}

// ---- the directory

bool Acquire(const wchar_t* portName, rpc::ServedPort* served) {
    const LockGuard guard(processState.monitorLock);
    for (const CLmMgr* manager : *processState.monitors) {
        LmPort* port = manager->FindPort(portName);
        if (port == nullptr) continue;
        if (port->use.closing.load()) return false;
        ++port->use.callers;
        *served = ServedPortOf(*port);
        return true;
    }
    return false;
}

void Release(const rpc::ServedPort& served) {
    auto& port = *static_cast<LmPort*>(served.record);
    {
        const LockGuard guard(processState.monitorLock);
        if (!port.use.lastCallerCloses || port.use.callers > 1) {
            --port.use.callers;
            WakeAllConditionVariable(&somebodyLeft);
            return;
        }
    }
    // Still counted, so that a Shutdown that comes now does not free the record.
    const TraceName name(port.portName);  // outlives it
    GuardOperation(L"ClosePort", name.c_str(), [&port]() -> BOOL {
        CloseBelow(port, &PortUse::callers);
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
        port.use.closing.store(true);
        ++port.use.operations;
        if (AwaitCallers(port.use, GetTickCount64() + kCloseTimeout)) return true;
        --port.use.operations;
        port.use.lastCallerCloses = true;
        WakeAllConditionVariable(&somebodyLeft);
    }
    TraceRefusal(name.c_str(),
                 L"a remote caller is inside the lower monitor, and closes the port when it is back",
                 ERROR_BUSY);
    return false;
}

void FinishClose(LmPort& port) {
    CloseBelow(port, &PortUse::operations);
}

void Bar(LmPort& port) {
    port.use.closing.store(true);
    port.signature = kBarredPortSignature;
}

void AwaitLeavers(const LmPort* ports, ULONGLONG deadline) {
    const LockGuard guard(processState.monitorLock);
    for (const LmPort* port = ports; port != nullptr; port = port->next)
        while (port->use.callers != 0 || port->use.operations != 0)
            if (!AwaitLeaver(deadline)) return;
}

Inside CutOff(LmPort& port) {
    Inside inside = Inside::kNobody;
    {
        const LockGuard guard(processState.monitorLock);
        if (port.use.callers != 0 || port.use.operations != 0) {
            inside = Inside::kSomebody;
        } else if ((port.flags.load() & LMPORT_JOB_ACTIVE) != 0) {
            inside = Inside::kPerhapsAWrite;
        }
        if (inside == Inside::kNobody) return inside;
        port.use.belowGone.store(true);
        port.signature = 0;
        portsAbandoned = true;
    }
    TraceRefusal(port.portName,
                 inside == Inside::kSomebody ? L"somebody is inside the lower monitor at shutdown"
                                             : L"a job has not ended at shutdown",
                 ERROR_BUSY);
    return inside;
}

bool HasAbandonedPorts() {
    const LockGuard guard(processState.monitorLock);
    return portsAbandoned;
}

OperationScope::OperationScope(LmPort& port) : port_(port) {
    const LastErrorKeeper keeper;
    const LockGuard guard(processState.monitorLock);
    ++port_.use.operations;
}

OperationScope::~OperationScope() {
    const LastErrorKeeper keeper;
    const LockGuard guard(processState.monitorLock);
    --port_.use.operations;
    WakeAllConditionVariable(&somebodyLeft);
}

}  // namespace vlm

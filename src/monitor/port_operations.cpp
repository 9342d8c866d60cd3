#include "monitor/port_operations.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <optional>
#include <string>
#include <utility>

#include "monitor/bidi_routing.h"
#include "monitor/guard.h"
#include "monitor/lm_manager.h"
#include "monitor/process_state.h"
#include "monitor/remote_ports.h"
#include "util/handles.h"
#include "util/noinline.h"
#include "util/scope_exit.h"
#include "util/trace.h"

namespace vlm {

namespace {

constexpr DWORD kJobLockTimeout = 1'000;  // milliseconds
constexpr DWORD kSuspended = 63;          // what the spooler is told of a write after a suspend notice

BOOL FailWith(DWORD error) {
    SetLastError(error);
    return FALSE;
}

bool IsPort(const LmPort& port) {
    return port.signature.load(std::memory_order_relaxed) == kLmPortSignature && port.owner != nullptr;
}

// As PortOf, for the two operations that answer a null handle like a wrong one.
LmPort* OwnedPortOf(HANDLE hPort) {
    auto* port = static_cast<LmPort*>(hPort);
    if (port != nullptr && IsPort(*port)) return port;
    SetLastError(ERROR_INVALID_MONITOR_HANDLE);
    return nullptr;
}

bool CanServeAsLower(const MONITOR2* lower) {
    // pfnEndDocPort is not asked for: some lower monitors do without.
    return lower != nullptr && lower->pfnOpenPort != nullptr && lower->pfnStartDocPort != nullptr &&
           lower->pfnWritePort != nullptr && lower->pfnReadPort != nullptr && lower->pfnClosePort != nullptr;
}

// Copies the slots that the table says it has. An older lower monitor's table is shorter than ours.
void CopyLowerTable(const MONITOR2& lower, Monitor2Table& copy) {
    constexpr size_t kSlotsOfWindows2000 = 18;  // up to pfnShutdown; every monitor has at least these
    constexpr size_t kAllSlots = (sizeof(Monitor2Table) - sizeof(void*)) / sizeof(void*);
    // The size field counts itself as 4 bytes in MONITOR2_SIZE_WIN2K and as 8 elsewhere; the division covers
    // both.
    const size_t announced =
        lower.cbSize < sizeof(DWORD) ? 0 : (lower.cbSize - sizeof(DWORD)) / sizeof(void*);
    const size_t slots = std::clamp(announced, kSlotsOfWindows2000, kAllSlots);
    std::memcpy(&copy, &lower, sizeof(void*) + slots * sizeof(void*));
}

bool IsHandedOut(const CLmMgr* manager) {
    const LockGuard guard(processState.monitorLock);
    const auto& monitors = *processState.monitors;
    return std::find(monitors.begin(), monitors.end(), manager) != monitors.end();
}

// Opens `printer` as the port's printer. Closes the old one first, which a job without an EndDocPort may have
// left open. If the printer cannot be opened, the job prints untracked.
void OpenJobPrinter(LmPort& port, wchar_t* printer) {
    PrinterHandle(std::exchange(port.printer, nullptr)).Reset();
    if (!OpenPrinterW(printer, &port.printer, nullptr)) port.printer = nullptr;
}

bool IsPrinterName(const LmPort& port, const wchar_t* printer) {
    const LockGuard guard(processState.monitorLock);
    return std::wcscmp(printer, port.printerName) == 0;
}

// False when memory for the new name runs out; the old name then stays.
bool RenamePrinterAndOpen(LmPort& port, wchar_t* printer) {
    // The one place that calls the spooler under the monitor lock, so that the name and the open printer
    // change together.
    const LockGuard guard(processState.monitorLock);
    wchar_t* copy = DuplicateToGlobalHeap(printer);
    if (copy == nullptr) return false;
    GlobalFree(std::exchange(port.printerName, copy));
    OpenJobPrinter(port, printer);
    return true;
}

// A write that failed, or the first one after it that did not.
VLM_NOINLINE BOOL NoteWriteResult(LmPort& port, BOOL written, const DWORD* count) {
    if (written) {
        port.flags.fetch_and(~DWORD{LMPORT_WRITE_FAILED}, std::memory_order_relaxed);
        if (count != nullptr) port.metrics.bytes += *count;
    } else {
        port.flags.fetch_or(LMPORT_WRITE_FAILED, std::memory_order_relaxed);
        ++port.metrics.failedWrites;
        port.metrics.error = GetLastError();
    }
    return written;
}

VLM_NOINLINE BOOL RefuseWrite(HANDLE hPort) {
    LmPort* port = PortOf(hPort);
    if (port == nullptr) return FALSE;
    ++port->metrics.failedWrites;
    port->metrics.error = kSuspended;
    return FailWith(kSuspended);
}

}  // namespace

LmPort* PortOf(HANDLE hPort) {
    if (hPort != nullptr) return OwnedPortOf(hPort);
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
}

LmPort* EndingPortOf(HANDLE hPort) {
    auto* port = static_cast<LmPort*>(hPort);
    const bool isBarred =
        port != nullptr && port->signature.load() == kBarredPortSignature && port->owner != nullptr;
    return isBarred ? port : PortOf(hPort);
}

BOOL WINAPI OpenPortEx(HANDLE hMonitor, HANDLE hMonitorPort, LPWSTR pszPortName, LPWSTR pPrinterName,
                       PHANDLE pHandle, LPMONITOR2 pMonitor2) noexcept {
    return GuardOperation(L"OpenPortEx", pszPortName, [&]() -> BOOL {
        const auto refuse = [pszPortName](DWORD error, const wchar_t* reason) {
            return FailWith(TraceRefusal(pszPortName, reason, error));
        };
        if (!CanServeAsLower(pMonitor2))
            return refuse(ERROR_INVALID_PRINT_MONITOR,
                          L"the lower monitor lacks an operation that ports need");
        auto* manager = static_cast<CLmMgr*>(hMonitor);
        if (manager == nullptr || !IsHandedOut(manager))
            return refuse(ERROR_INVALID_MONITOR_HANDLE, L"opened with a handle of no monitor");
        if (pszPortName == nullptr || *pszPortName == L'\0' || pHandle == nullptr)
            return refuse(ERROR_INVALID_PARAMETER, L"opened without a name or a place for the handle");

        const std::wstring eventName = std::wstring(L"ToviLM3BEvent_") + pszPortName;
        LmPort* port = nullptr;
        bool isOpen = false;
        std::optional<OperationScope> scope;
        {
            const LockGuard guard(processState.monitorLock);
            isOpen = manager->FindPort(pszPortName) != nullptr;
            if (!isOpen) port = manager->CreatePort(hMonitorPort, pszPortName, pPrinterName);
            if (port != nullptr) scope.emplace(*port);
        }
        if (isOpen) return refuse(ERROR_BUSY, L"open already");
        if (port == nullptr) return refuse(ERROR_NOT_ENOUGH_MEMORY, L"no memory for its record");

        {
            const LastErrorKeeper keeper;
            const HANDLE event = CreateEventW(nullptr, FALSE, TRUE, eventName.c_str());
            if (event == nullptr) TraceRefusal(pszPortName, L"no job lock", GetLastError());
            const LockGuard guard(processState.monitorLock);
            port->portEvent = event;
        }
        // A port that the lower monitor cannot open stays in the list, and so stays busy until the monitor is
        // shut down. That is intended: the spooler does not get to open a broken port over and over.
        HANDLE lowerPort = nullptr;
        if (!pMonitor2->pfnOpenPort(hMonitorPort, pszPortName, &lowerPort)) {
            TraceRefusal(pszPortName, L"the lower monitor does not open it", GetLastError());
            return FALSE;
        }
        {
            // A remote caller finds the port in the list already: it sees all of what is below, or nothing.
            const LastErrorKeeper keeper;
            const LockGuard guard(processState.monitorLock);
            CopyLowerTable(*pMonitor2, port->lower);
            port->lowerPort = lowerPort;
        }
        if (port->use.closing.load()) return refuse(ERROR_OPERATION_ABORTED, L"shut down while being opened");
        *pHandle = port;
        return TRUE;
    });
}

BOOL WINAPI StartDocPort(HANDLE hPort, LPWSTR pPrinterName, DWORD JobId, DWORD Level,
                         LPBYTE pDocInfo) noexcept {
    processState.suspended.store(false, std::memory_order_relaxed);
    LmPort* port = PortOf(hPort);
    if (port == nullptr) return FALSE;
    return GuardOperation(L"StartDocPort", port->portName, [&]() -> BOOL {
        const OperationScope scope(*port);
        LastErrorKeeper keeper;
        const auto refuse = [port, &keeper](DWORD error, const wchar_t* reason) {
            FailWith(TraceRefusal(port->portName, reason, error));
            keeper.Update();
            return FALSE;
        };
        if (pDocInfo == nullptr || pPrinterName == nullptr || *pPrinterName == L'\0')
            return refuse(ERROR_INVALID_PARAMETER, L"a job without document or printer");
        if (Level != 1) return refuse(ERROR_INVALID_LEVEL, L"a job with a document of another level than 1");

        // Whether the wait ends by the event or by its time does not matter: the flag below decides.
        WaitForSingleObject(port->portEvent, kJobLockTimeout);
        ScopeExit giveLockBack([port] { SetEvent(port->portEvent); });
        if ((port->flags.fetch_or(LMPORT_JOB_ACTIVE) & LMPORT_JOB_ACTIVE) != 0)
            return refuse(ERROR_BUSY, L"a job while another one, or a remote caller, has the port");
        ScopeExit endJob([port] {
            PrinterHandle(std::exchange(port->printer, nullptr)).Reset();
            port->flags.fetch_and(~LMPORT_JOB_ACTIVE);
        });
        if (port->use.closing.load())
            return refuse(ERROR_OPERATION_ABORTED, L"a job while the port is being shut down");
        port->jobId = JobId;
        if (IsPrinterName(*port, pPrinterName)) {
            OpenJobPrinter(*port, pPrinterName);
        } else if (!RenamePrinterAndOpen(*port, pPrinterName)) {
            return refuse(ERROR_NOT_ENOUGH_MEMORY, L"no memory for the printer's name");
        }

        keeper.Restore();
        const BOOL started =
            port->lower.base.pfnStartDocPort(port->lowerPort, pPrinterName, JobId, 1, pDocInfo);
        keeper.Update();
        if (!started) {
            TraceRefusal(port->portName, L"the lower monitor does not start the job", GetLastError());
            return FALSE;
        }
        port->metrics = {TraceClock::now(), 0, 0, 0};
        TraceJobStart(port->portName, JobId, pPrinterName);
        // The event stays taken until EndDocPort: it keeps remote callers off the port while the job prints.
        giveLockBack.Dismiss();
        endJob.Dismiss();
        return TRUE;
    });
}

// The hot path: no allocation, no lock, no trace, and nothing after the lower call that touches the last
// error. Rare cases are out of line, so that the rest needs few registers.
BOOL WINAPI WritePort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten) noexcept {
    auto* port = static_cast<LmPort*>(hPort);
    if (port == nullptr || !IsPort(*port) || processState.suspended.load(std::memory_order_relaxed))
        [[unlikely]]
        return RefuseWrite(hPort);
    return GuardOperation(L"WritePort", port->portName, [&]() -> BOOL {
        const BOOL written = port->lower.base.pfnWritePort(port->lowerPort, pBuffer, cbBuf, pcbWritten);
        if (!written || (port->flags.load(std::memory_order_relaxed) & LMPORT_WRITE_FAILED) != 0) [[unlikely]]
            return NoteWriteResult(*port, written, pcbWritten);
        if (pcbWritten != nullptr) port->metrics.bytes += *pcbWritten;
        return written;
    });
}

BOOL WINAPI ReadPort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuffer, LPDWORD pcbRead) noexcept {
    LmPort* port = PortOf(hPort);
    if (port == nullptr) return FALSE;
    return GuardOperation(L"ReadPort", port->portName, [&] {
        return port->lower.base.pfnReadPort(port->lowerPort, pBuffer, cbBuffer, pcbRead);
    });
}

BOOL WINAPI ClosePort(HANDLE hPort) noexcept {
    LmPort* port = PortOf(hPort);
    if (port == nullptr) return FALSE;
    const TraceName name(port->portName);  // outlives the record
    return GuardOperation(L"ClosePort", name.c_str(), [&]() -> BOOL {
        if (TraceEndedJob(*port)) TraceRefusal(name.c_str(), L"closed before its job ended", ERROR_BUSY);
        if (PrepareToClose(*port)) FinishClose(*port);
        return TRUE;
    });
}

BOOL WINAPI GetPrinterDataFromPort(HANDLE hPort, DWORD ControlID, LPWSTR pValueName, LPWSTR lpInBuffer,
                                   DWORD cbInBuffer, LPWSTR lpOutBuffer, DWORD cbOutBuffer,
                                   LPDWORD lpcbReturned) noexcept {
    LmPort* port = OwnedPortOf(hPort);
    if (port == nullptr) return FALSE;
    return GuardOperation(L"GetPrinterDataFromPort", port->portName, [&]() -> BOOL {
        const OperationScope scope(*port);
        const auto lower = port->lower.base.pfnGetPrinterDataFromPort;
        // Control code 0 asks for a value by name; this monitor has no named values, whatever lies below.
        if (ControlID == 0 || lower == nullptr) {
            TraceRefusal(port->portName, L"no such value", ERROR_INVALID_PARAMETER, TraceLevel::kVerbose);
            return FailWith(ERROR_INVALID_PARAMETER);
        }
        return lower(port->lowerPort, ControlID, pValueName, lpInBuffer, cbInBuffer, lpOutBuffer, cbOutBuffer,
                     lpcbReturned);
    });
}

DWORD WINAPI SendRecvBidiDataFromPort(HANDLE hPort, DWORD dwAccessBit, LPCWSTR pAction,
                                      PBIDI_REQUEST_CONTAINER pReqData,
                                      PBIDI_RESPONSE_CONTAINER* ppResData) noexcept {
    LmPort* port = OwnedPortOf(hPort);
    if (port == nullptr) return ERROR_INVALID_MONITOR_HANDLE;
    return RouteBidi(*port, dwAccessBit, pAction, pReqData, ppResData);
}

}  // namespace vlm

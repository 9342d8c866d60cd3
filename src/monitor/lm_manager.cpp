#include "monitor/lm_manager.h"

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <new>
#include <string>
#include <utility>

#include "monitor/process_state.h"
#include "monitor/remote_ports.h"
#include "util/handles.h"
#include "util/names.h"

namespace vlm {

namespace {

// Removes and returns the first port of a list that no manager owns any more.
LmPort* TakeFirst(LmPort*& list) VLM_EXCLUDES(processState.monitorLock) {
    const LockGuard guard(processState.monitorLock);
    LmPort* const first = list;
    list = std::exchange(first->next, nullptr);
    return first;
}

}  // namespace

LmPort* CLmMgr::FindPort(const wchar_t* portName) const {
    if (portName == nullptr || *portName == L'\0') return nullptr;
    const auto behind = byName_.upper_bound(portName);
    if (behind == byName_.begin()) return nullptr;
    const auto& [name, port] = *std::prev(behind);
    return SameName(name, portName) ? port : nullptr;
}

LmPort* CLmMgr::CreatePort(HANDLE lowerMonitor, const wchar_t* portName, const wchar_t* printerName) {
    GlobalMemory memory(GlobalAlloc(GPTR, sizeof(LmPort)));
    GlobalMemory portNameCopy(DuplicateToGlobalHeap(portName));
    GlobalMemory printerNameCopy(DuplicateToGlobalHeap(printerName != nullptr ? printerName : L""));
    if (!memory || !portNameCopy || !printerNameCopy) return nullptr;

    auto* port = new (memory.Get()) LmPort{};
    port->signature = kLmPortSignature;
    port->portName = static_cast<wchar_t*>(portNameCopy.Get());
    try {
        byName_.emplace(port->portName, port);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    static_cast<void>(memory.Release());
    static_cast<void>(portNameCopy.Release());
    port->printerName = static_cast<wchar_t*>(printerNameCopy.Release());
    port->lowerMonitor = lowerMonitor;
    port->owner = this;
    port->next = ports_;
    ports_ = port;
    return port;
}

bool CLmMgr::RemovePort(LmPort* port) {
    for (LmPort** link = &ports_; *link != nullptr; link = &(*link)->next) {
        if (*link != port) continue;
        *link = port->next;
        const auto [first, behind] = byName_.equal_range(port->portName);
        byName_.erase(
            std::find_if(first, behind, [port](const auto& entry) { return entry.second == port; }));
        FreePortRecord(port);
        return true;
    }
    return false;
}

bool CLmMgr::CloseAllPorts() {
    LmPort* ports = nullptr;
    {
        // All at the same moment: a port that hangs gives no other one time to begin anything below.
        const LockGuard guard(processState.monitorLock);
        ports = std::exchange(ports_, nullptr);
        byName_.clear();
        for (LmPort* port = ports; port != nullptr; port = port->next)
            Bar(*port);
    }
    // One deadline for all: however many ports are in use, a shutdown takes no longer.
    const ULONGLONG deadline = GetTickCount64() + kCloseTimeout;
    AwaitLeavers(ports, deadline);
    bool free = true;
    while (ports != nullptr) {
        LmPort* const port = TakeFirst(ports);
        const Inside inside = CutOff(*port);
        free = free && inside == Inside::kNobody;
        if (inside == Inside::kSomebody) continue;
        PrinterHandle(std::exchange(port->printer, nullptr)).Reset();
        KernelHandle(std::exchange(port->portEvent, nullptr)).Reset();
        if (inside == Inside::kNobody) FreePortRecord(port);
    }
    return free;
}

std::wstring CLmMgr::PrinterNameOf(const LmPort& port) const {
    const LockGuard guard(processState.monitorLock);
    return port.printerName;
}

bool CLmMgr::IsPooledPrinter(const LmPort& port) const {
    std::wstring name = PrinterNameOf(port);
    PrinterHandle printer;
    if (!OpenPrinterW(name.data(), printer.Receive(), nullptr)) return false;
    const GlobalMemory info = AskForRecord<PRINTER_INFO_2W>([&](BYTE* buffer, DWORD size, DWORD* needed) {
        return GetPrinterW(printer.Get(), 2, buffer, size, needed);
    });
    if (!info) return false;
    const wchar_t* ports = static_cast<const PRINTER_INFO_2W*>(info.Get())->pPortName;
    return ports != nullptr && std::wcschr(ports, L',') != nullptr;
}

}  // namespace vlm

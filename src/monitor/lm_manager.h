// CLmMgr: the object behind the monitor handle. It owns the open ports of one initialisation of the monitor.
//
// Threads: the list of ports is under the monitor lock; all else does not change as long as the manager
// lives.
#pragma once

#include <map>
#include <string>

#include "bidi/bidi_mem.h"
#include "monitor/lm_port.h"
#include "monitor/process_state.h"
#include "util/names.h"
#include "util/spooler_api.h"

namespace vlm {

class CLmMgr {
 public:
    explicit CLmMgr(MONITORINIT* monitorInit) : monitorInit_(monitorInit) {}
    virtual ~CLmMgr() = default;
    CLmMgr(const CLmMgr&) = delete;
    CLmMgr& operator=(const CLmMgr&) = delete;

    // The first port of that name, compared without regard to case, or null. An empty or null name finds
    // nothing.
    LmPort* FindPort(const wchar_t* portName) const VLM_REQUIRES(processState.monitorLock);
    // A new record at the head of the list, or null when memory runs out. `lowerMonitor` is the lower
    // monitor's handle; a null printer name is kept as an empty one. The lower table and the event are the
    // caller's to fill.
    LmPort* CreatePort(HANDLE lowerMonitor, const wchar_t* portName, const wchar_t* printerName)
        VLM_REQUIRES(processState.monitorLock);
    // Unlinks the record and frees it with its names. False, and nothing done, if it is not in the list.
    bool RemovePort(LmPort* port) VLM_REQUIRES(processState.monitorLock);
    // Bars all ports at once, then frees each with its event and, if open, its printer. Calls nothing below.
    // Waits a bounded time for ports in use (remote_ports.h). False if one may still be in use: its record
    // stays, and the manager has to stay as well.
    bool CloseAllPorts() VLM_EXCLUDES(processState.monitorLock);
    // Whether the port's printer prints to several ports. One that cannot be read counts as not pooled.
    bool IsPooledPrinter(const LmPort& port) const;
    // A copy of the port's printer name as it is now.
    std::wstring PrinterNameOf(const LmPort& port) const;

    // For every container of a query.
    const CBidiMem& BidiMemory() const { return bidiMem_; }

 private:
    const CBidiMem bidiMem_;
    [[maybe_unused]] MONITORINIT* const monitorInit_;  // the spooler's, valid as long as the manager
    LmPort* ports_ VLM_GUARDED_BY(processState.monitorLock) = nullptr;
    // The same records by name. Of several with the same name, the first in the list comes last here.
    std::multimap<const wchar_t*, LmPort*, NameLess> byName_ VLM_GUARDED_BY(processState.monitorLock);
};

}  // namespace vlm

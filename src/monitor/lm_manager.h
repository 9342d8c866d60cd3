// CLmMgr: the object behind the monitor handle. It owns the open ports of one initialisation of the monitor.
//
// Threads: FindPort, CreatePort and RemovePort run under the monitor lock, which the caller holds; the other
// two take it themselves.
#pragma once

#include "monitor/lm_port.h"
#include "util/spooler_api.h"

namespace vlm {

class CLmMgr {
 public:
    explicit CLmMgr(MONITORINIT* monitorInit) : monitorInit_(monitorInit) {}
    virtual ~CLmMgr();
    CLmMgr(const CLmMgr&) = delete;
    CLmMgr& operator=(const CLmMgr&) = delete;

    // The first port of that name, compared without regard to case, or null. An empty or null name finds
    // nothing.
    LmPort* FindPort(const wchar_t* portName) const;
    // A new record at the head of the list, or null when memory runs out. `lowerMonitor` is the lower
    // monitor's handle; a null printer name is kept as an empty one. The lower table and the event are the
    // caller's to fill.
    LmPort* CreatePort(HANDLE lowerMonitor, const wchar_t* portName, const wchar_t* printerName);
    // Unlinks the record and frees it with its names. A record that is not in the list is left alone.
    void RemovePort(LmPort* port);
    // Frees every port with its event and, if open, its printer. Nothing below is called. Waits a bounded
    // time for remote callers (remote_ports.h).
    void CloseAllPorts();
    // Whether the port's printer prints to several ports. A printer that cannot be asked is not pooled.
    bool IsPooledPrinter(const LmPort& port) const;

 private:
    MONITORINIT* monitorInit_;  // the spooler's, valid as long as the manager
    LmPort* ports_ = nullptr;
};

// Frees a record that is in no list, with its names.
void FreePortRecord(LmPort* port);

// A zero-terminated copy in a block of the global heap, or null when memory runs out.
wchar_t* DuplicateToGlobalHeap(const wchar_t* text);

}  // namespace vlm

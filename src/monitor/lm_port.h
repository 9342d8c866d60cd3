// The port record: what the monitor knows of one open port. Its address is the port handle that the spooler
// holds.
//
// OpenPortEx creates it, ClosePort or Shutdown frees it (CLmMgr does the work). The record and its two names
// are zero-filled blocks of the global heap.
//
// Threads: the spooler uses one port from one thread at a time, but different ports at once. What is marked
// so is touched under the monitor lock only. `portEvent`, `lowerPort` and `lower` are set under it, each
// once, because a remote caller may find the port while it is being opened, and looks at them under the lock;
// who has the port's handle or has found the port reads them without, since they do not change any more.
// `flags` is atomic, because a remote caller marks a port too; `signature` is, because a Shutdown takes it
// away; everything else belongs to the thread that runs the port's current operation.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "monitor/process_state.h"
#include "util/spooler_api.h"
#include "util/trace_lines.h"

namespace vlm {

class CLmMgr;

// The published table ends with pfnPowerEvent; some SDKs leave that slot out. This is its full shape with
// either.
template <typename Published, typename = void>
struct WithPowerEvent {
    Published base;
    DWORD(WINAPI* pfnPowerEvent)(HANDLE hMonitor, DWORD event, void* settings);
};
template <typename Published>
struct WithPowerEvent<Published, std::void_t<decltype(&Published::pfnPowerEvent)>> {
    Published base;
};
using Monitor2Table = WithPowerEvent<MONITOR2>;
static_assert(std::is_standard_layout_v<Monitor2Table>);
static_assert(sizeof(Monitor2Table) == 184);
static_assert(offsetof(MONITOR2, pfnNotifyUnusedPorts) == 168);
static_assert(offsetof(MONITOR2, pfnShutdown) == 144);

inline constexpr DWORD kLmPortSignature = 0x4354;

enum LmPortFlag : DWORD {
    LMPORT_JOB_ACTIVE = 0x1,     // a job, or a remote caller's exchange, has the port
    LMPORT_WRITE_FAILED = 0x2,   // the last lower write failed
    LMPORT_JOB_DELETING = 0x4,   // the job was being deleted or restarted when its document ended
    LMPORT_JOB_RESTARTED = 0x8,  // the job was being restarted then
};

// Who holds the record, and how far it is on its way out (remote_ports.h).
struct PortUse {
    // Remote callers.
    uint32_t callers VLM_GUARDED_BY(processState.monitorLock);
    // Operations of the spooler, but for WritePort and ReadPort, which must not count.
    uint32_t operations VLM_GUARDED_BY(processState.monitorLock);
    // The close gave up waiting for them.
    bool lastCallerCloses VLM_GUARDED_BY(processState.monitorLock);
    std::atomic<bool> closing;    // nothing new is started below
    std::atomic<bool> belowGone;  // nothing below may be called at all
};

struct LmPort {
    std::atomic<uint32_t> signature;  // kLmPortSignature while the port is open
    // In the owning manager's list.
    LmPort* next VLM_GUARDED_BY(processState.monitorLock);
    wchar_t* portName;
    // Of the last job; never null.
    wchar_t* printerName VLM_GUARDED_BY(processState.monitorLock) VLM_PT_GUARDED_BY(processState.monitorLock);
    DWORD jobId;  // of the last job
    std::atomic<uint32_t> flags;
    HANDLE lowerPort;     // the lower monitor's handle of this port; null when it could not open the port
    HANDLE lowerMonitor;  // the lower monitor's own handle
    HANDLE printer;       // the job's printer, open from StartDocPort to EndDocPort
    CLmMgr* owner;
    HANDLE portEvent;     // the job lock: auto-reset, taken for a job or an exchange; may be null
    Monitor2Table lower;  // the lower monitor's operations; all null when it could not open the port
    PortUse use;
    JobTally tally;  // of the job that runs; the only part of the record that WritePort adds to
};
static_assert(std::is_standard_layout_v<LmPort>);
static_assert(std::atomic<uint32_t>::is_always_lock_free && sizeof(std::atomic<uint32_t>) == sizeof(DWORD));

// Says in the trace that the job has ended, if one had begun; whether one had.
bool EndTally(LmPort& port);
// Whether the port's name is that of a USB port.
bool IsUsbPort(const LmPort& port);
// Whether job status and completion are looked at: a USB port, and a name too short to be anything else, is
// not.
bool IsNetworkPort(const LmPort& port);

// Frees a record that is in no list, with its names. Nobody else knows it any more.
VLM_UNCHECKED void FreePortRecord(LmPort* port);

// A zero-terminated copy in a block of the global heap, or null when memory runs out.
wchar_t* DuplicateToGlobalHeap(const wchar_t* text);

}  // namespace vlm

// The port record: the state of one open port. Its address is the port handle that the spooler holds.
//
// OpenPortEx creates it, ClosePort or Shutdown frees it (CLmMgr does the work). The record and its two names
// are zero-filled blocks of the global heap.
//
// Threads: the spooler uses one port from one thread at a time, but different ports at once. Marked members
// are guarded by the monitor lock. `portEvent`, `lowerPort` and `lower` are set once each, under the lock,
// because a remote caller may find the port while it is being opened; it copies them under the lock. Whoever
// holds the port's handle, or has found the port, reads them without the lock: they no longer change. `flags`
// is atomic because remote callers set it too, `signature` because Shutdown clears it. Everything else
// belongs to the thread that runs the port's current operation.
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

// The published table ends with pfnPowerEvent, which some SDKs leave out. This has it with either SDK.
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

// Who uses the record, and how far its closing has got (remote_ports.h).
struct PortUse {
    // Remote callers.
    uint32_t callers VLM_GUARDED_BY(processState.monitorLock);
    // Operations of the spooler, but for WritePort and ReadPort, which must not count.
    uint32_t operations VLM_GUARDED_BY(processState.monitorLock);
    // The close has stopped waiting for the callers.
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
    JobMetrics metrics;  // of the running job; the only member that WritePort adds to
};
static_assert(std::is_standard_layout_v<LmPort>);
static_assert(std::atomic<uint32_t>::is_always_lock_free && sizeof(std::atomic<uint32_t>) == sizeof(DWORD));

// Traces the end of the job. False if there is none.
bool TraceEndedJob(LmPort& port);
// Whether the port's name is that of a USB port.
bool IsUsbPort(const LmPort& port);
// Whether the status and completion of jobs are checked: not on a USB port, nor on one whose name is too
// short for any other kind.
bool IsNetworkPort(const LmPort& port);

// Frees a record that is in no list, with its names.
VLM_UNCHECKED void FreePortRecord(LmPort* port);

// A zero-terminated copy in a block of the global heap, or null when memory runs out.
wchar_t* DuplicateToGlobalHeap(const wchar_t* text);

}  // namespace vlm

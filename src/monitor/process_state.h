// The state that all managers, ports and threads of a process share. Created when the module is attached to
// the process, deleted when it is detached.
#pragma once

#include <windows.h>

#include <atomic>
#include <vector>

#include "util/locks.h"

namespace vlm {

class CLmMgr;

struct ProcessState {
    // The monitor lock. Never held across a call to the lower monitor, nor to the spooler except where a
    // comment says so.
    CriticalSection monitorLock;
    // Every manager that was handed to the spooler, oldest first. By pointer, because this structure must not
    // have a destructor: at process exit other threads are gone with the heap lock in whatever state it was.
    std::vector<CLmMgr*>* monitors VLM_PT_GUARDED_BY(monitorLock);
    HINSTANCE instance;  // set at the attach
    // Set by a suspend notice, cleared by the next StartDocPort. While it is set, writes are refused.
    std::atomic<bool> suspended;
};

extern ProcessState processState;

// Called once by the module's entry point, before anything else here.
void AttachProcess(HINSTANCE instance);
// `processEnds`: the process is going away with all its threads and memory, so nothing is waited for or
// freed.
void DetachProcess(bool processEnds);

}  // namespace vlm

#include "monitor/process_state.h"

#include "monitor/event_window.h"
#include "rpc/rpc_server.h"
#include "util/event_provider.h"
#include "util/trace.h"

namespace vlm {

constinit ProcessState processState{};

void AttachProcess(HINSTANCE instance) {
    InitializeCriticalSection(&processState.monitorLock.section);
    processState.monitors = new std::vector<CLmMgr*>;
    processState.instance = instance;
    ReadTraceLevel();
    RegisterEventProvider();
}

void DetachProcess(bool processEnds) {
    rpc::UnregisterAtDetach();
    if (processEnds) return;
    StopEventWindow();
    UnregisterEventProvider();
    delete processState.monitors;
    DeleteCriticalSection(&processState.monitorLock.section);
}

}  // namespace vlm

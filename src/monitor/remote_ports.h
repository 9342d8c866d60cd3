// Ports as the RPC service uses them, and their end while it or the spooler does.
//
// A remote caller counts itself in before it uses a port and out afterwards. Whoever closes a port first bars
// it, so that nobody new comes in and an exchange that runs fails at its next step with 995 (its document is
// still ended), then waits at most kCloseTimeout for the callers to leave. Almost always they do, and the
// port is closed as if they had never been there. A caller that does not come back from the lower monitor in
// time is not waited for: ClosePort leaves the port to it. The port's name stays taken, and the caller, when
// it comes back, ends its document, closes the lower port and frees the record. So the lower port is never
// closed under a caller that is inside it.
//
// Shutdown bars all ports of the manager at the same moment and has one deadline for all of them. It waits
// for remote callers and for the spooler's own operations; only a job is not waited for, since nobody but the
// spooler ends it. After that nothing below is called any more, because the spooler may shut the lower
// monitor down. What somebody may still be inside of (a caller or an operation that hangs, a write of a job
// that has not ended) is left behind for good: the port's record, which then refuses whatever comes with its
// handle, the manager, and this module. That is a few hundred bytes of a process that is about to end.
//
// The spooler does not close a port that it uses, so ClosePort does not look at its operations: one that an
// exception of another kind than C++'s has carried out of this code would be waited for in vain.
#pragma once

#include "monitor/lm_port.h"
#include "rpc/rpc_server.h"

namespace vlm {

inline constexpr DWORD kCloseTimeout = 3'000;  // milliseconds

// What the RPC service finds ports with.
extern const rpc::PortDirectory kRemotePorts;

// Bars the port and waits for its callers. True: nobody uses it and it is the caller's to close; false: the
// last of them closes it. Takes the monitor lock, and lets go of it while it waits.
bool PrepareToClose(LmPort& port) VLM_EXCLUDES(processState.monitorLock);

// Closes the port below, and frees the record with its event and names.
void FinishClose(LmPort& port);

// Bars a port for good. EndDocPort still ends its document, as long as Shutdown waits.
inline constexpr DWORD kBarredPortSignature = 0x44455242;
void Bar(LmPort& port) VLM_REQUIRES(processState.monitorLock);

// Waits until nobody is inside any port of a list, all of them barred, until `deadline` (GetTickCount64).
void AwaitLeavers(const LmPort* ports, ULONGLONG deadline) VLM_EXCLUDES(processState.monitorLock);

// From here on nothing below a barred port is called, which is in no list any more. Unless nobody can be
// inside it, its record must stay.
enum class Inside { kNobody, kPerhapsAWrite, kSomebody };
Inside CutOff(LmPort& port) VLM_EXCLUDES(processState.monitorLock);

// Whether Shutdown left a port behind that somebody may be inside of.
bool HasPortsLeftBehind();

// One operation of the spooler, for whose time a Shutdown leaves the port's record and manager alone.
class OperationScope {
 public:
    explicit OperationScope(LmPort& port);
    ~OperationScope();
    OperationScope(const OperationScope&) = delete;
    OperationScope& operator=(const OperationScope&) = delete;

 private:
    LmPort& port_;
};

}  // namespace vlm

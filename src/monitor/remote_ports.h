// Ports as the RPC service uses them, and their end while it or the spooler does.
//
// Each remote caller is counted while it uses a port. Closing a port first bars it: no new caller is let in,
// and a running exchange fails at its next step with 995 (its document is still ended). The close then waits
// at most kCloseTimeout for the callers to leave, which they nearly always do. If a caller does not return
// from the lower monitor in time, ClosePort leaves the port to it: the port's name stays taken, and when the
// caller returns, it ends its document, closes the lower port and frees the record. So the lower port is
// never closed while a caller is inside it.
//
// Shutdown bars all ports of the manager at once, with one deadline for all of them. It waits for remote
// callers and for the spooler's own operations, but not for a job, which only the spooler can end. After the
// deadline nothing below is called, because the spooler may shut the lower monitor down. Whatever may still
// be in use then (by a caller or an operation that hangs, by a write of a job that has not ended) is
// abandoned: the port's record, which refuses every further call, the manager, and this module. That costs a
// few hundred bytes of a process that is about to end.
//
// The spooler never closes a port that it is using, so ClosePort does not wait for its operations. If it did,
// an operation that a non-C++ exception has carried out of this code would be waited for in vain.
#pragma once

#include "monitor/lm_port.h"
#include "rpc/rpc_server.h"

namespace vlm {

inline constexpr DWORD kCloseTimeout = 3'000;  // milliseconds

// How the RPC service finds ports.
extern const rpc::PortDirectory kRemotePorts;

// Bars the port and waits for its remote callers. True: the port is unused, and FinishClose is next. False:
// the last of its callers closes it. Takes the monitor lock, and releases it while it waits.
bool PrepareToClose(LmPort& port) VLM_EXCLUDES(processState.monitorLock);

// Closes the port below, and frees the record with its event and names.
void FinishClose(LmPort& port);

// Bars a port for good. EndDocPort still ends its document, as long as Shutdown waits.
inline constexpr DWORD kBarredPortSignature = 0x44455242;
void Bar(LmPort& port) VLM_REQUIRES(processState.monitorLock);

// Waits until no port of the list is in use, but not beyond `deadline` (GetTickCount64). All are barred.
void AwaitLeavers(const LmPort* ports, ULONGLONG deadline) VLM_EXCLUDES(processState.monitorLock);

// Ends all calls to what is below a port that is barred and in no list. Only after kNobody may its record be
// freed.
enum class Inside { kNobody, kPerhapsAWrite, kSomebody };
Inside CutOff(LmPort& port) VLM_EXCLUDES(processState.monitorLock);

// Whether a Shutdown has abandoned a port.
bool HasAbandonedPorts();

// Counts one operation of the spooler, for which a Shutdown waits.
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

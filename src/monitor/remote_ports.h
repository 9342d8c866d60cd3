// Ports as the RPC service uses them, and their end while it does.
//
// A remote caller counts itself in before it uses a port and out afterwards. Whoever closes a port first bars
// it, so that nobody new comes in and an exchange that runs fails at its next step with 995 (its document is
// still ended), then waits at most kCloseTimeout for the callers to leave. Almost always they do, and the port
// is closed as if they had never been there. A caller that does not come back from the lower monitor in time
// is not waited for:
//  - ClosePort leaves the port to it. The port's name stays taken, and the caller, when it comes back, ends
//    its document, closes the lower port and frees the record.
//  - Shutdown lets the record live on unowned. The caller, when it comes back, frees it and calls nothing
//    below any more, because the spooler may have shut the lower monitor down meanwhile.
// So the lower port is never closed under a call of ours that is inside it.
#pragma once

#include "monitor/lm_port.h"
#include "rpc/rpc_server.h"

namespace vlm {

inline constexpr DWORD kCloseTimeout = 3'000;  // milliseconds

// What the RPC service finds ports with.
extern const rpc::PortDirectory kRemotePorts;

// Bars the port and waits for its callers. True: nobody uses it and it is the caller's to close; false: the
// last of them closes it. Takes the monitor lock, and lets go of it while it waits.
bool PrepareToClose(LmPort& port);

// Closes the port below, and frees the record with its event and names.
void FinishClose(LmPort& port);

// Bars a port that is in no list any more and waits for its callers until `deadline` (GetTickCount64).
// False: the record has become its last caller's.
bool PrepareToDiscard(LmPort& port, ULONGLONG deadline);

// Whether Shutdown left a caller behind that is still inside a lower monitor.
bool HasCallersLeftBehind();

}  // namespace vlm

// The RPC service: the endpoints through which programs on this machine and on the network reach a printer
// (vllm.idl says what they can call), brought up with the monitor and taken down with it.
//
// Endpoints and listening, once in place, stay for the life of the process; only the interface is registered
// and unregistered. The runtime's DLL is pinned, because its threads listen in it. A host may unload this
// module: after the last StopRpcServer the runtime has no pointer into it.
#pragma once

#include <windows.h>

#include "vpca/transaction.h"

namespace vlm::rpc {

// An open port, held for one exchange.
struct ServedPort {
    vpca::VpcaPort exchange;   // has no `lower` when there is nothing below the port
    HANDLE jobLock = nullptr;  // auto-reset event; may be null or invalid
    void* record = nullptr;    // whose it is
};

// How the service finds ports. Called from any RPC thread; neither function throws.
struct PortDirectory {
    // The open port of that name, compared without regard to case. It stays valid until `release`, even if
    // the port is closed meanwhile. False if there is none.
    bool (*acquire)(const wchar_t* portName, ServedPort* port) = nullptr;
    void (*release)(const ServedPort& port) = nullptr;
};

// Starts serving, unless it already does. Returns 0 or the runtime's status; without the service the monitor
// still works. Each call, whatever its result, needs one StopRpcServer.
DWORD StartRpcServer(const PortDirectory& ports);

// The last one unregisters the interface and waits at most 3 s for running calls; if one does not end, this
// module stays in the process. With `exchangesHang` a call is known to be stuck inside a lower monitor, and
// it does not wait. Never under the loader lock.
void StopRpcServer(bool exchangesHang);

// For the module's detach, under the loader lock: unregisters the interface in the spooler's process, without
// waiting. Does nothing in other processes: a host that unloads a monitor without Shutdown is on its own.
void UnregisterAtDetach();

}  // namespace vlm::rpc

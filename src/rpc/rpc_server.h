// The RPC service: the endpoints through which programs on this machine and on the network reach a printer
// (vllm.idl says what they can call), brought up with the monitor and taken down with it.
//
// Once in place, endpoints and listening stay for the life of the process; only the interface comes and goes.
// The runtime's own DLL is kept in the process for good, because its threads listen in it. So a host may
// unload this module: after the last StopRpcServer nothing of the runtime points into it.
#pragma once

#include <windows.h>

#include "vpca/transaction.h"

namespace vlm::rpc {

// An open port, held by a procedure for one exchange.
struct ServedPort {
    vpca::VpcaPort exchange;   // has no `lower` when there is nothing below the port
    HANDLE jobLock = nullptr;  // auto-reset event; may be null or invalid
    void* record = nullptr;    // whose it is
};

// How the service finds ports. Called from any RPC thread; neither function throws.
struct PortDirectory {
    // The open port of that name, compared without regard to case. What it gives stays valid until Release,
    // also when the port is closed meanwhile. False when there is none.
    bool (*acquire)(const wchar_t* portName, ServedPort* port) = nullptr;
    void (*release)(const ServedPort& port) = nullptr;
};

// Starts serving, or goes on when it serves already. Returns 0 or the runtime's status; the service is then
// absent, which is no reason for the monitor not to load. Each call, whatever its result, has one
// StopRpcServer.
DWORD StartRpcServer(const PortDirectory& ports);

// The last one takes the interface back and waits for calls that are still running, 3 s at most; for one that
// runs on, this module stays in the process. With `exchangesHang` one of them is inside a lower monitor that
// does not return, and nothing is waited for. Never under the loader lock.
void StopRpcServer(bool exchangesHang);

// For the module's detach, under the loader lock: takes the interface back in the spooler's process, waiting
// for nothing. Elsewhere nothing is done; a host that unloads a monitor without Shutdown is on its own.
void UnregisterAtDetach();

}  // namespace vlm::rpc

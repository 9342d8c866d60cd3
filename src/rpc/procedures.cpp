// The two remote procedures. Both find the port that the caller means, take its job lock, and run one
// exchange with the printer over it.
//
// Anyone may call the interface, so no argument is trusted: the stub bounds the size of the reply, the name
// and the counts are bounded here, and the reply holds only what the printer sent.
#include "rpc/procedures.h"

#include <rpc.h>
#include <vllm_rpc.h>

#include <cstring>
#include <string>
#include <type_traits>

#include "rpc/codes.h"
#include "rpc/printer_lookup.h"
#include "util/outcome.h"
#include "util/scope_exit.h"
#include "util/trace_lines.h"
#include "vpca/analyzer.h"

namespace vlm::rpc {

constinit PortDirectory portDirectory{};

namespace {

constexpr DWORD kJobLockTimeout = 1'000;  // milliseconds

// A call, as it appears in the trace.
struct RemoteCall {
    const wchar_t* procedure;
    std::wstring port;  // empty until the printer is found
    TraceClock::time_point begin = TraceClock::now();
};

// Waits for the job lock and runs `exchange` under it. Returns a Win32 code, as all functions here do.
template <typename Exchange>
DWORD RunExchange(const ServedPort& port, const RemoteCall& call, const Exchange& exchange) {
    if (port.jobLock == nullptr || port.jobLock == INVALID_HANDLE_VALUE ||
        WaitForSingleObject(port.jobLock, kJobLockTimeout) != WAIT_OBJECT_0)
        return TraceRefusal(call.port.c_str(), L"a remote call while the port is busy", kPortBusy);
    const ScopeExit giveLockBack([&port] { SetEvent(port.jobLock); });
    if (port.exchange.lower == nullptr || port.exchange.startDocPort == nullptr)
        return TraceRefusal(call.port.c_str(), L"a remote call with nothing below the port", kNothingBelow);
    // A job whose wait for the lock times out goes on without it, and releases it even so. So the lock only
    // says who may try; the flag says who has the port. The exchange clears it with its document.
    if ((port.exchange.flags->fetch_or(vpca::kPortJobActive) & vpca::kPortJobActive) != 0)
        return TraceRefusal(call.port.c_str(), L"a remote call while a job has the port", kPortBusy);
    vpca::ExchangeReason reason;
    const DWORD code = exchange(port.exchange, &reason);
    if (code == kDone) return code;
    const std::wstring value = reason.value ? L" (" + std::to_wstring(*reason.value) + L")" : L"";
    return TraceRefusal(call.port.c_str(), (reason.text + value).c_str(), code);
}

template <typename Exchange>
DWORD CallPort(const unsigned char* printer, RemoteCall* call, const Exchange& exchange) noexcept {
    try {
        std::wstring reason;
        const DWORD found = FindPortName(reinterpret_cast<const char*>(printer), &call->port, &reason);
        if (found != kDone) return TraceRefusal(call->port.c_str(), reason.c_str(), found);
        ServedPort port;
        if (!portDirectory.acquire(call->port.c_str(), &port))
            return TraceRefusal(call->port.c_str(), L"a remote call while the port is not open",
                                kPortNotOpen);
        const ScopeExit release([&port] { portDirectory.release(port); });
        return RunExchange(port, *call, exchange);
    } catch (...) {
        const Outcome caught = CaughtOutcome();
        return TraceRefusal(call->port.c_str(), caught.Reason(),
                            caught == E_OUTOFMEMORY ? kOutOfMemory : kUnexpected);
    }
}

// The path of both procedures; `read` is called with the port, the reply's buffer and its size. The
// size comes back as the bytes that were written, none after a failure: the stub sends back as many as it
// says, so it never grows.
template <typename Read>
DWORD ReadFromPrinter(RemoteCall call, const unsigned char* printer, byte* reply, LmRpcSize* size,
                      const Read& read) {
    uint8_t nothing = 0;  // without capacity the stub passes no buffer
    uint32_t count = reply != nullptr ? *size : 0;
    *size = 0;
    const DWORD result =
        CallPort(printer, &call, [&](const vpca::VpcaPort& port, vpca::ExchangeReason* reason) {
            return read(port, reply != nullptr ? reply : &nothing, &count, reason);
        });
    if (result == kDone) *size = count;
    TraceRemoteCallEnd(call.port.c_str(), call.procedure, result, *size, call.begin);
    return result;
}

}  // namespace

extern "C" {

ULONG __cdecl LmRpcQuery(const unsigned char* printer, const ULONG* request, byte* reply, LmRpcSize* size) {
    const uint32_t dataId = *request;
    return ReadFromPrinter(
        {L"query", {}}, printer, reply, size,
        [&](const vpca::VpcaPort& port, uint8_t* buffer, uint32_t* count, vpca::ExchangeReason* reason) {
            return vpca::ReadDataBlock(&port, &dataId, buffer, count, reason);
        });
}

ULONG __cdecl LmRpcCommand(const unsigned char* printer, const LmRpcCommandId* id,
                           const LmRpcCommandParams* params, byte* reply, LmRpcSize* size) {
    static_assert(sizeof(LmRpcCommandParams) == sizeof(vpca::ClientAttributeRequest));
    vpca::ClientAttributeRequest client;
    std::memcpy(&client, params, sizeof client);
    const uint32_t values[2] = {id->value1, id->value2};
    const RemoteCall call{L"command", {}};
    if (client.longIdCount > client.kSlots || client.shortIdCount > client.kSlots) {
        *size = 0;
        return TraceRefusal(call.port.c_str(), L"a remote command with too many arguments", kBadArguments);
    }
    vpca::CVPCAAnalyzer analyzer;
    vpca::AttributeRequest request;
    if (!analyzer.BuildAttributeRequest(&client, &request)) {
        *size = 0;
        return TraceRefusal(call.port.c_str(), L"no memory for a remote command", kOutOfMemory);
    }
    const ScopeExit freeRequest([&] { analyzer.FreeAttributeRequest(&request); });
    return ReadFromPrinter(
        call, printer, reply, size,
        [&](const vpca::VpcaPort& port, uint8_t* buffer, uint32_t* count, vpca::ExchangeReason* reason) {
            return vpca::ReadAttribute(&port, values, &request, buffer, count, reason);
        });
}

// The stub's memory. Zeroed, so that no stale byte of the process can reach a caller through a reply.
void* __RPC_USER MIDL_user_allocate(SIZE_T size) {
    return HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size);
}

void __RPC_USER MIDL_user_free(void* memory) {
    HeapFree(GetProcessHeap(), 0, memory);
}

}  // extern "C"

}  // namespace vlm::rpc

#include "rpc/rpc_server.h"

#include <rpc.h>
#include <vllm_rpc.h>

#include <algorithm>
#include <array>
#include <cwchar>

#include "rpc/procedures.h"
#include "rpc/rpc_text.h"
#include "util/handles.h"
#include "util/locks.h"
#include "util/scope_exit.h"
#include "util/trace.h"

namespace vlm::rpc {

namespace {

constexpr unsigned kQueuedCalls = RPC_C_PROTSEQ_MAX_REQS_DEFAULT;  // of one endpoint
constexpr unsigned kFewestThreads = 1;
constexpr unsigned kMostCalls = 1'234;      // at once
constexpr DWORD kLastCallsTimeout = 3'000;  // milliseconds

struct Endpoint {
    const wchar_t* protocol;
    const wchar_t* name;
};
constexpr Endpoint kLocal = {L"ncalrpc", L"vllm3mon"};
constexpr std::array<Endpoint, 2> kRemote = {
    {{L"ncacn_np", L"\\pipe\\vllm3mon"}, {L"ncacn_ip_tcp", L"51656"}}};

// The server's state, under its own lock, because two initialisations of the monitor may come at once.
SlimLock lock;
int starts VLM_GUARDED_BY(lock) = 0;
bool registered VLM_GUARDED_BY(lock) = false;

// Every failure of the runtime goes through here, with the call that failed.
RPC_STATUS Report(const wchar_t* call, RPC_STATUS status) {
    Trace(L"RPC server: %ls failed with %ld\r\n", call, status);
    return status;
}

struct BindingVectorTraits : NullTraits<RPC_BINDING_VECTOR*> {
    static void Close(Type bindings) { RpcBindingVectorFree(&bindings); }
};
using BindingVector = Unique<BindingVectorTraits>;

bool IsText(const RpcString& one, const wchar_t* other) {
    return one && _wcsicmp(reinterpret_cast<const wchar_t*>(one.Get()), other) == 0;
}

bool IsBindingOf(RPC_BINDING_HANDLE binding, const Endpoint& endpoint) {
    RpcString whole;
    RpcString protocol;
    RpcString name;
    return RpcBindingToStringBindingW(binding, whole.Receive()) == RPC_S_OK &&
           RpcStringBindingParseW(whole.Get(), nullptr, protocol.Receive(), nullptr, name.Receive(),
                                  nullptr) == RPC_S_OK &&
           IsText(protocol, endpoint.protocol) && IsText(name, endpoint.name);
}

// Whether this process has the endpoint, from an earlier start or an earlier load of this module.
bool HasEndpoint(const Endpoint& endpoint) {
    BindingVector bindings;
    if (RpcServerInqBindings(bindings.Receive()) != RPC_S_OK) return false;
    return std::any_of(
        bindings.Get()->BindingH, bindings.Get()->BindingH + bindings.Get()->Count,
        [&](RPC_BINDING_HANDLE binding) { return binding != nullptr && IsBindingOf(binding, endpoint); });
}

RPC_STATUS UseEndpoint(const Endpoint& endpoint) {
    RPC_STATUS status = RpcNetworkIsProtseqValidW(RpcText(endpoint.protocol));
    if (status != RPC_S_OK) return Report(L"RpcNetworkIsProtseqValid()", status);
    // Not asked for twice: some runtimes would open it a second time.
    if (HasEndpoint(endpoint)) return RPC_S_OK;
    status =
        RpcServerUseProtseqEpW(RpcText(endpoint.protocol), kQueuedCalls, RpcText(endpoint.name), nullptr);
    return status == RPC_S_OK ? status : Report(L"RpcServerUseProtseqEp()", status);
}

RPC_STATUS OpenEndpoints() {
    RPC_STATUS status = UseEndpoint(kLocal);
    if (status != RPC_S_OK) return status;
    bool remote = false;
    for (const Endpoint& endpoint : kRemote) {
        status = UseEndpoint(endpoint);
        remote = remote || status == RPC_S_OK;
    }
    // A machine that offers neither pipes nor TCP gets no service at all, although the local endpoint stands.
    return remote ? RPC_S_OK : status;
}

RPC_STATUS Register() VLM_REQUIRES(lock) {
    // One registration serves all managers; a second one would be an error.
    if (registered) return RPC_S_OK;
    ScopeExit unregister([] { RpcServerUnregisterIf(vllm_v1_0_s_ifspec, nullptr, FALSE); });
    RPC_STATUS status = RpcServerRegisterIf(vllm_v1_0_s_ifspec, nullptr, nullptr);
    if (status != RPC_S_OK) return Report(L"RpcServerRegisterIf()", status);
    status = RpcServerListen(kFewestThreads, kMostCalls, TRUE);
    if (status != RPC_S_OK && status != RPC_S_ALREADY_LISTENING) return Report(L"RpcServerListen()", status);
    unregister.Dismiss();
    registered = true;
    return RPC_S_OK;
}

// Keeps a module in the process for good.
void Pin(DWORD how, LPCWSTR module) {
    HMODULE pinned = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | how, module, &pinned);
}

void KeepThisModuleLoaded() {
    Pin(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(&registered));
}

DWORD WINAPI TakeInterfaceBack(void*) {
    RpcServerUnregisterIf(vllm_v1_0_s_ifspec, nullptr, TRUE);
    return 0;
}

// The runtime would wait without a limit, for instance for a call whose answer the spooler still owes, and at
// times for one that is over. So a thread does that, and what it waits for in vain keeps this module.
void TakeInterfaceBackAfterLastCalls() {
    const KernelHandle thread(CreateThread(nullptr, 0, TakeInterfaceBack, nullptr, 0, nullptr));
    if (!thread) RpcServerUnregisterIf(vllm_v1_0_s_ifspec, nullptr, FALSE);
    if (thread && WaitForSingleObject(thread.Get(), kLastCallsTimeout) == WAIT_OBJECT_0) return;
    Trace(L"RPC server: a call does not end, so the module stays\r\n");
    KeepThisModuleLoaded();
}

}  // namespace

DWORD StartRpcServer(const PortDirectory& ports) {
    const LockGuard exclusive(lock);
    ++starts;
    Pin(0, L"rpcrt4.dll");  // its threads never end, so its code must stay
    if (!registered) portDirectory = ports;
    RPC_STATUS status = OpenEndpoints();
    if (status == RPC_S_OK) status = Register();
    return static_cast<DWORD>(status);
}

void StopRpcServer(bool exchangesHang) {
    const LockGuard exclusive(lock);
    if (exchangesHang) KeepThisModuleLoaded();
    if (--starts != 0 || !registered) return;
    registered = false;
    if (exchangesHang) {
        RpcServerUnregisterIf(vllm_v1_0_s_ifspec, nullptr, FALSE);
    } else {
        TakeInterfaceBackAfterLastCalls();
    }
}

VLM_UNCHECKED void UnregisterAtDetach() {
    // No lock: whoever held it may be gone with the process.
    if (!registered || std::wcsstr(GetCommandLineW(), L"spoolsv.exe") == nullptr) return;
    RpcServerUnregisterIf(vllm_v1_0_s_ifspec, nullptr, FALSE);
}

}  // namespace vlm::rpc

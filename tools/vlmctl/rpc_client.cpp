#include "tools/vlmctl/rpc_client.h"

#include <windows.h>
// windows.h first.
#include <rpc.h>
#include <vllm_rpc.h>

#include <algorithm>
#include <csetjmp>

#include "spooler/host/monitor_host.h"
#include "tools/vlmctl/command.h"

namespace vlm::ctl {

namespace {

struct Endpoint {
    const wchar_t* protocol;
    const wchar_t* name;
};

Endpoint EndpointOf(RpcRoute route) {
    switch (route) {
        case RpcRoute::kPipe:
            return {L"ncacn_np", L"\\pipe\\vllm3mon"};
        case RpcRoute::kTcp:
            return {L"ncacn_ip_tcp", L"51656"};
        case RpcRoute::kLocal:
            break;
    }
    return {L"ncalrpc", L"vllm3mon"};
}

RPC_WSTR Text(const wchar_t* text) {
    return reinterpret_cast<RPC_WSTR>(const_cast<wchar_t*>(text));
}

// The stubs raise a failed call as a structured exception whose code is the status. These two run one call
// through such a frame; nothing in it needs a destructor.
using Call = ULONG (*)(void* context);

#if defined(_MSC_VER)

DWORD RunStub(Call call, void* context, ULONG* result) {
    __try {
        *result = call(context);
    } __except (EXCEPTION_EXECUTE_HANDLER) {
        return GetExceptionCode();
    }
    return 0;
}

#else

// GCC has no such frames in C++; a handler for the whole process that jumps back does the same.
struct Frame {
    jmp_buf back;
    DWORD status;
};
thread_local Frame* frame = nullptr;

LONG CALLBACK OnException(EXCEPTION_POINTERS* exception) {
    constexpr DWORD kMarkedCodes = 0x20000000;  // from here on: C++ exceptions, debugger notes, faults
    const DWORD code = exception->ExceptionRecord->ExceptionCode;
    if (frame == nullptr || code >= kMarkedCodes) return EXCEPTION_CONTINUE_SEARCH;
    frame->status = code;
    std::longjmp(frame->back, 1);
}

DWORD RunStub(Call call, void* context, ULONG* result) {
    Frame here;
    here.status = 0;
    frame = &here;
    if (setjmp(here.back) == 0) *result = call(context);
    frame = nullptr;
    return here.status;
}

#endif

// Fills the reply of one call, which `procedure` makes with a buffer and its size.
template <typename Procedure>
RpcReply Run(std::uint32_t capacity, const Procedure& procedure) {
    struct Context {
        const Procedure& procedure;
        std::vector<byte> buffer;
        LmRpcSize size;
    } context{procedure, std::vector<byte>(capacity + 1), capacity};  // never a null buffer
    ULONG result = 0;
    RpcReply reply;
    reply.status = RunStub(
        [](void* raw) {
            auto& own = *static_cast<Context*>(raw);
            return own.procedure(own.buffer.data(), &own.size);
        },
        &context, &result);
    reply.result = result;
    if (reply.status == 0 && result == 0) {
        context.buffer.resize(std::min<size_t>(context.size, capacity));
        reply.bytes = std::move(context.buffer);
    }
    return reply;
}

const unsigned char* Narrow(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.c_str());
}

}  // namespace

RpcClient::RpcClient(RpcRoute route, const std::string& host) {
    const Endpoint endpoint = EndpointOf(route);
    const std::wstring address = host::FromUtf8(host);
    RPC_WSTR whole = nullptr;
    RPC_STATUS status = RpcStringBindingComposeW(nullptr, Text(endpoint.protocol),
                                                 address.empty() ? nullptr : Text(address.c_str()),
                                                 Text(endpoint.name), nullptr, &whole);
    if (status == RPC_S_OK) {
        status = RpcBindingFromStringBindingW(whole, &binding_);
        RpcStringFreeW(&whole);
    }
    if (status != RPC_S_OK)
        throw CommandError("no binding to '" + host + "': RPC status " + std::to_string(status));
    vllmBinding = binding_;  // what the stubs call through
#if !defined(_MSC_VER)
    // For the life of the process: a handler that is there already does no harm.
    AddVectoredExceptionHandler(1, OnException);
#endif
}

RpcClient::~RpcClient() {
    RpcBindingFree(&binding_);
}

RpcReply RpcClient::Query(const std::string& printer, std::uint32_t dataId, std::uint32_t capacity) const {
    const ULONG request = dataId;
    return Run(capacity, [&](byte* buffer, LmRpcSize* size) {
        return ClientLmRpcQuery(Narrow(printer), &request, buffer, size);
    });
}

RpcReply RpcClient::Command(const std::string& printer, const RpcCommand& command,
                            std::uint32_t capacity) const {
    const LmRpcCommandId id{command.value1, command.value2};
    LmRpcCommandParams params{};
    params.word = command.word;
    params.kind = command.kind;
    params.longCount = static_cast<unsigned short>(command.longs.size());
    params.shortCount = static_cast<unsigned short>(command.shorts.size());
    std::copy_n(command.longs.begin(), std::min(command.longs.size(), std::size(params.longs)), params.longs);
    std::copy_n(command.shorts.begin(), std::min(command.shorts.size(), std::size(params.shorts)),
                params.shorts);
    return Run(capacity, [&](byte* buffer, LmRpcSize* size) {
        return ClientLmRpcCommand(Narrow(printer), &id, &params, buffer, size);
    });
}

}  // namespace vlm::ctl

extern "C" {

void* __RPC_USER MIDL_user_allocate(SIZE_T size) {
    return HeapAlloc(GetProcessHeap(), 0, size);
}

void __RPC_USER MIDL_user_free(void* memory) {
    HeapFree(GetProcessHeap(), 0, memory);
}

}  // extern "C"

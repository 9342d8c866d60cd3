#include "tools/vlmctl/exchange/rpc_client.h"

#include <windows.h>
// windows.h first.
#include <rpc.h>
#include <vllm_rpc.h>

#include <fmt/format.h>
#include <csetjmp>

#include <cstring>
#include <span>

#include "rpc/rpc_text.h"
#include "tools/vlmctl/console/code_text.h"
#include "tools/vlmctl/console/command.h"
#include "util/text.h"

namespace vlm::ctl {

namespace {

struct Endpoint {
    const wchar_t* protocol;
    const wchar_t* name;
};
// By RpcRoute.
constexpr Endpoint kEndpoints[] = {
    {L"ncalrpc", L"vllm3mon"}, {L"ncacn_np", L"\\pipe\\vllm3mon"}, {L"ncacn_ip_tcp", L"51656"}};

// The runtime raises a failed call as a structured exception whose code is the status. Either of these two
// runs one call through such a frame; nothing in it needs a destructor.
using Step = void (*)(void* context);

#if defined(_MSC_VER)

DWORD StatusOf(Step step, void* context) {
    __try {
        step(context);
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
    // A service can name any number as its fault, those of C++ exceptions and access violations included;
    // what the runtime makes of it is the one that carries no parameters.
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (frame == nullptr || record.NumberParameters != 0) return EXCEPTION_CONTINUE_SEARCH;
    frame->status = record.ExceptionCode != 0 ? record.ExceptionCode : DWORD{RPC_S_CALL_FAILED};
    std::longjmp(frame->back, 1);
}

DWORD StatusOf(Step step, void* context) {
    Frame here;
    here.status = 0;
    frame = &here;
    if (setjmp(here.back) == 0) step(context);
    frame = nullptr;
    return here.status;
}

#endif

// What a generated stub makes of the interface, for a message that we write and read ourselves.
const MIDL_STUB_DESC* StubDescription() {
    static const MIDL_STUB_DESC description = [] {
        constexpr ULONG kLibraryVersion = 0x50002;
        MIDL_STUB_DESC made{};
        made.RpcInterfaceInformation = Clientvllm_v1_0_c_ifspec;
        made.pfnAllocate = MIDL_user_allocate;
        made.pfnFree = MIDL_user_free;
        made.fCheckBounds = 1;
        made.Version = kLibraryVersion;
        return made;
    }();
    return &description;
}

constexpr std::uint32_t kFirstException =
    0x20000000;  // codes of exceptions have marks up there, Win32's have none

struct Exchange {
    RPC_BINDING_HANDLE binding;
    unsigned long procedure;
    std::span<const std::uint8_t> request;
    RPC_MESSAGE message{};
    MIDL_STUB_MESSAGE stub{};
};

}  // namespace

std::string StatusNumber(std::uint32_t status) {
    return status < kFirstException ? std::to_string(status) : fmt::format("0x{:08X}", status);
}

const char* StatusMeaning(std::uint32_t status) {
    static constexpr CodeText kTexts[] = {
        {RPC_S_ACCESS_DENIED, "the server denied access"},
        {RPC_S_UNKNOWN_IF, "the server at this endpoint does not offer the monitor's procedures"},
        {RPC_S_SERVER_UNAVAILABLE, "no server listens at this endpoint"},
        {RPC_S_CALL_FAILED, "the server went away during the call"},
        {RPC_S_CALL_FAILED_DNE, "the server went away during the call"},
        {RPC_S_PROTOCOL_ERROR, "the server at this endpoint does not speak RPC"},
        {RPC_S_PROCNUM_OUT_OF_RANGE, "the server at this endpoint does not offer this procedure"},
        {RPC_X_BAD_STUB_DATA, "the server rejected the call as malformed"}};
    return status >= kFirstException ? "the server raised this exception during the call"
                                     : TextOfCode(kTexts, status);
}

RpcClient::RpcClient(RpcRoute route, const std::string& host) {
    const Endpoint& endpoint = kEndpoints[static_cast<size_t>(route)];
    const std::wstring address = FromUtf8(host);
    rpc::RpcString whole;
    RPC_STATUS status = RpcStringBindingComposeW(nullptr, rpc::RpcText(endpoint.protocol),
                                                 address.empty() ? nullptr : rpc::RpcText(address.c_str()),
                                                 rpc::RpcText(endpoint.name), nullptr, whole.Receive());
    if (status == RPC_S_OK) status = RpcBindingFromStringBindingW(whole.Get(), binding_.Receive());
    if (status != RPC_S_OK)
        throw CommandError("cannot bind to '" + host + "': RPC status " +
                           StatusNumber(static_cast<std::uint32_t>(status)));
#if !defined(_MSC_VER)
    // For the life of the process: a handler that is there already does no harm.
    AddVectoredExceptionHandler(1, OnException);
#endif
}

void RpcClient::BindingTraits::Close(Type binding) {
    RpcBindingFree(&binding);
}

RpcReply RpcClient::Query(const std::string& printer, std::uint32_t dataId, std::uint32_t capacity) const {
    return Call(0, QueryStubData(printer, dataId, capacity), capacity);
}

RpcReply RpcClient::Command(const std::string& printer, const RpcCommand& command,
                            std::uint32_t capacity) const {
    return Call(1, CommandStubData(printer, command, capacity), capacity);
}

RpcReply RpcClient::Call(unsigned long procedure, const std::vector<std::uint8_t>& request,
                         std::uint32_t capacity) const {
    Exchange exchange{binding_.Get(), procedure, request};
    RpcReply reply;
    const DWORD status = StatusOf(
        [](void* context) {
            auto& own = *static_cast<Exchange*>(context);
            const auto length = static_cast<ULONG>(own.request.size());
            NdrClientInitializeNew(&own.message, &own.stub, const_cast<MIDL_STUB_DESC*>(StubDescription()),
                                   own.procedure);
            NdrGetBuffer(&own.stub, length, own.binding);
            std::memcpy(own.stub.Buffer, own.request.data(), length);
            own.stub.Buffer += length;
            NdrSendReceive(&own.stub, own.stub.Buffer);
        },
        &exchange);
    if (status == 0) {
        constexpr ULONG kByteOrder = 0xF0;
        const std::span bytes(static_cast<const std::uint8_t*>(exchange.message.Buffer),
                              exchange.message.BufferLength);
        if ((exchange.message.DataRepresentation & kByteOrder) != NDR_LITTLE_ENDIAN)
            reply.problem = "a reply that is not little-endian";
        else
            reply = ReadReply(bytes, capacity);
    }
    reply.status = status;
    // After a failure, too, as a generated stub does.
    StatusOf([](void* context) { NdrFreeBuffer(&static_cast<Exchange*>(context)->stub); }, &exchange);
    return reply;
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

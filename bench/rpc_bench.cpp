// What a remote call costs: LmRpcQuery, with a lower monitor that answers at once, against procedures that do
// nothing, served by the same runtime in the same process on the same endpoints. Server and client are
// two processes of this program.
#include <windows.h>
// windows.h first.
#include <empty_rpc.h>
#include <rpc.h>
#include <vllm_rpc.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "bench/bench.h"
#include "bench/least_monitor.h"
#include "spooler/host/monitor_host.h"
#include "spooler/standin.h"
#include "tests/support/process.h"
#include "util/handles.h"

constexpr ULONG kReplySize = 4;

extern "C" {

void __cdecl Nothing() {}

ULONG __cdecl NothingLikeQuery(const unsigned char*, const ULONG*, byte* reply, EmptySize* size) {
    *size = kReplySize;
    std::memset(reply, 0, kReplySize);
    return 0;
}

void* __RPC_USER MIDL_user_allocate(SIZE_T size) {
    return HeapAlloc(GetProcessHeap(), 0, size);
}

void __RPC_USER MIDL_user_free(void* memory) {
    HeapFree(GetProcessHeap(), 0, memory);
}

}  // extern "C"

namespace {

using namespace vlm;

constexpr DWORD kPatience = 20'000;  // milliseconds
constexpr const wchar_t* kReady = L"vlm_rpc_bench_ready";

// The answer with the data block 4, four bytes.
constexpr std::array<BYTE, 28> kAnswer{0xCD, 0xCA, 0x10, 0x05, 0, 0x31, 0, 1, 0, 8, 0, 0, 0,    0,
                                       0,    0,    0,    0,    0, 1,    0, 0, 0, 4, 1, 8, 0x0F, 0x16};

BOOL WINAPI Write(HANDLE, LPBYTE, DWORD size, LPDWORD written) {
    *written = size;
    return TRUE;
}
BOOL WINAPI Read(HANDLE, LPBYTE buffer, DWORD, LPDWORD read) {
    std::memcpy(buffer, kAnswer.data(), kAnswer.size());
    *read = kAnswer.size();
    return TRUE;
}

KernelHandle Event(const wchar_t* name) {
    return KernelHandle(CreateEventW(nullptr, TRUE, FALSE, name));
}

// Until the client has ended.
int Serve(DWORD client) {
    const standin::Printers printers;
    printers.Add({L"Office", L"USB001", L"office", PRINTER_ATTRIBUTE_ENABLE_BIDI, nullptr, nullptr});
    const host::MonitorHost host(host::BesideProgram(L"vllm3mon.dll"));
    MONITOR2 lower = bench::LeastMonitor(Write, Read);
    HANDLE port = nullptr;
    wchar_t name[] = L"USB001";
    if (!host.Table().pfnOpenPortEx(host.Manager(), &lower, name, name, &port, &lower)) return 1;
    if (RpcServerRegisterIf(empty_v1_0_s_ifspec, nullptr, nullptr) != RPC_S_OK) return 1;
    const KernelHandle process(OpenProcess(SYNCHRONIZE, FALSE, client));
    SetEvent(Event(kReady).Get());
    WaitForSingleObject(process.Get(), INFINITE);
    RpcServerUnregisterIf(empty_v1_0_s_ifspec, nullptr, TRUE);
    host.Table().pfnClosePort(port);
    return 0;
}

RPC_BINDING_HANDLE Bind(const wchar_t* protocol, const wchar_t* endpoint) {
    const auto text = [](const wchar_t* value) {
        return reinterpret_cast<RPC_WSTR>(const_cast<wchar_t*>(value));
    };
    RPC_WSTR whole = nullptr;
    RPC_BINDING_HANDLE binding = nullptr;
    RpcStringBindingComposeW(nullptr, text(protocol), nullptr, text(endpoint), nullptr, &whole);
    RpcBindingFromStringBindingW(whole, &binding);
    RpcStringFreeW(&whole);
    return binding;
}

template <auto procedure>
void Call() {
    const ULONG dataId = 4;
    std::array<byte, 64> reply;
    ULONG size = reply.size();
    const ULONG code =
        procedure(reinterpret_cast<const unsigned char*>("USB001"), &dataId, reply.data(), &size);
    if (code != 0 || size != kReplySize) ExitProcess(3);
}

struct Timed {
    void (*call)();
    std::vector<double> microseconds;

    void Run(int calls) {
        for (int i = 0; i < calls; ++i) {
            const auto begin = std::chrono::steady_clock::now();
            call();
            microseconds.push_back(
                std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count());
        }
    }
    double Median() {
        const auto middle = microseconds.begin() + static_cast<std::ptrdiff_t>(microseconds.size() / 2);
        std::nth_element(microseconds.begin(), middle, microseconds.end());
        return *middle;
    }
};

struct Medians {
    double query;
    double nothingLikeQuery;
    double nothing;
};

// In turns, a few calls of each, so that all meet the same disturbances and a call seldom pays for what
// another kind of call left to do.
Medians Measure(const wchar_t* protocol, const wchar_t* endpoint) {
    constexpr int kTurns = 150;
    constexpr int kCalls = 20;
    vllmBinding = Bind(protocol, endpoint);
    emptyBinding = Bind(protocol, endpoint);
    Timed query{Call<ClientLmRpcQuery>, {}};
    Timed nothingLikeQuery{Call<ClientNothingLikeQuery>, {}};
    Timed nothing{ClientNothing, {}};
    for (int turn = 0; turn < kTurns; ++turn)
        for (Timed* timed : {&nothing, &nothingLikeQuery, &query})
            timed->Run(kCalls);
    RpcBindingFree(&vllmBinding);
    RpcBindingFree(&emptyBinding);
    return {query.Median(), nothingLikeQuery.Median(), nothing.Median()};
}

int MeasureAll(const char* path) {
    const KernelHandle ready = Event(kReady);
    const KernelHandle server =
        test::StartProgram(L"rpc_bench.exe serve " + std::to_wstring(GetCurrentProcessId()));
    if (!server || WaitForSingleObject(ready.Get(), kPatience) != WAIT_OBJECT_0) {
        bench::Measuring("nothing: the server does not start");
        return 1;
    }

    bench::Rows rows;
    bench::Measuring("calls on the local endpoint");
    const Medians local = Measure(L"ncalrpc", L"vllm3mon");
    rows.Add("LmRpcQuery on the local endpoint", "us", local.query, local.nothingLikeQuery,
             "an empty procedure with its parameters", "<= 1.3");
    const auto state = [&rows](const std::string& where, const Medians& medians) {
        rows.State("LmRpcQuery on " + where, "us", medians.query);
        rows.State("an empty procedure with its parameters on " + where, "us", medians.nothingLikeQuery);
    };
    rows.State("an empty procedure without parameters on the local endpoint", "us", local.nothing);
    bench::Measuring("calls on the named pipe");
    state("the named pipe", Measure(L"ncacn_np", L"\\pipe\\vllm3mon"));
    bench::Measuring("calls over TCP");
    state("TCP", Measure(L"ncacn_ip_tcp", L"51656"));
    return rows.WriteTo(path);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "serve") == 0) return Serve(std::stoul(argv[2]));
    return argc == 2 ? MeasureAll(argv[1]) : 2;
}

#include "resource_count.h"

#include <malloc.h>
#include <tlhelp32.h>
#include <winternl.h>

#include <vector>

#include "util/handles.h"

namespace vlm::test {

namespace {

size_t BusyBlocks(HANDLE heap) {
    size_t count = 0;
    PROCESS_HEAP_ENTRY entry{};
    HeapLock(heap);
    while (HeapWalk(heap, &entry)) {
        if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) ++count;
    }
    HeapUnlock(heap);
    return count;
}

// The only count of a process's handles that is right everywhere is the system's table, filtered.
struct HandleEntry {
    void* object;
    ULONG_PTR process;
    ULONG_PTR value;
    ULONG access;
    USHORT traceIndex;
    USHORT typeIndex;
    ULONG attributes;
    ULONG reserved;
};

size_t Handles() {
    constexpr int kSystemExtendedHandleInformation = 64;
    using Query = NTSTATUS WINAPI(int, void*, ULONG, ULONG*);
    auto* const query = FindFunction<Query>(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation");
    static std::vector<ULONG_PTR> buffer(256 * 1024);
    const auto size = static_cast<ULONG>(buffer.size() * sizeof buffer[0]);
    if (query == nullptr || query(kSystemExtendedHandleInformation, buffer.data(), size, nullptr) < 0)
        return 0;
    const auto* const entries = reinterpret_cast<const HandleEntry*>(&buffer[2]);
    size_t count = 0;
    for (ULONG_PTR i = 0; i < buffer[0]; ++i) {
        if (entries[i].process == GetCurrentProcessId()) ++count;
    }
    return count;
}

size_t Threads() {
    size_t count = 0;
    const KernelHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(snapshot.Get(), &entry); more;
         more = Thread32Next(snapshot.Get(), &entry)) {
        if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
    }
    return count;
}

}  // namespace

Resources CountResources() {
    Resources resources;
    resources.handles = Handles();
    resources.threads = Threads();
    resources.blocks = BusyBlocks(GetProcessHeap());
    const HANDLE crt = reinterpret_cast<HANDLE>(_get_heap_handle());
    if (crt != GetProcessHeap()) resources.blocks += BusyBlocks(crt);
    return resources;
}

Resources CountResources(const Resources& before, DWORD milliseconds) {
    const ULONGLONG end = GetTickCount64() + milliseconds;
    for (;;) {
        const Resources now = CountResources();
        if (now.IsWithin(before) || GetTickCount64() >= end) return now;
        Sleep(10);
    }
}

}  // namespace vlm::test

#include "tests/support/resources.h"

#include <malloc.h>
#include <tlhelp32.h>

#include <vector>

#include "util/handles.h"

namespace vlm::test {

namespace {

// NtQuerySystemInformation(SystemExtendedHandleInformation): the one count of handles that Wine keeps
// exactly.
struct HandleEntry {
    void* object;
    ULONG_PTR process;
    ULONG_PTR handle;
    ULONG access;
    USHORT creator;
    USHORT type;
    ULONG attributes;
    ULONG reserved;
};
struct HandleList {
    ULONG_PTR count;
    ULONG_PTR reserved;
    HandleEntry entries[1];
};

size_t CountHandles() {
    constexpr int kSystemExtendedHandleInformation = 64;
    const auto query = FindFunction<LONG WINAPI(int, void*, ULONG, ULONG*)>(GetModuleHandleW(L"ntdll.dll"),
                                                                            "NtQuerySystemInformation");
    std::vector<char> buffer(1 << 20);
    ULONG needed = 0;
    while (query(kSystemExtendedHandleInformation, buffer.data(), static_cast<ULONG>(buffer.size()),
                 &needed) < 0)
        buffer.resize(buffer.size() * 2);
    const auto* list = reinterpret_cast<const HandleList*>(buffer.data());
    size_t count = 0;
    for (ULONG_PTR i = 0; i < list->count; ++i)
        if (list->entries[i].process == GetCurrentProcessId()) ++count;
    return count;
}

size_t CountThreads() {
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    size_t count = 0;
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry))
        if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
    CloseHandle(snapshot);
    return count;
}

void AddBlocks(HANDLE heap, Resources& resources) {
    HeapLock(heap);
    PROCESS_HEAP_ENTRY entry{};
    while (HeapWalk(heap, &entry)) {
        if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) == 0) continue;
        ++resources.heapBlocks;
        resources.heapBytes += entry.cbData;
    }
    HeapUnlock(heap);
}

}  // namespace

Resources CountResources() {
    Resources resources{};
    resources.handles = CountHandles();
    resources.threads = CountThreads();
    const HANDLE cppHeap = reinterpret_cast<HANDLE>(_get_heap_handle());
    AddBlocks(GetProcessHeap(), resources);
    if (cppHeap != GetProcessHeap()) AddBlocks(cppHeap, resources);
    return resources;
}

}  // namespace vlm::test

#include "tests/support/resources.h"

#include <malloc.h>
#include <tlhelp32.h>

namespace vlm::test {

namespace {

// Asked one by one. Wine keeps no count for a process, and its list of all handles of the system
// (SystemExtendedHandleInformation) ends its server, and with that every program of the prefix, when a
// process that starts or ends at that moment holds none.
size_t CountHandles() {
    // Handles are multiples of 4, and a new one is the lowest that is free: behind many free ones comes none.
    // Each question is a round trip to Wine's server.
    constexpr ULONG_PTR kMostFree = 512;
    size_t count = 0;
    for (ULONG_PTR slot = 1, free = 0; free < kMostFree; ++slot) {
        DWORD flags = 0;
        const bool used = GetHandleInformation(reinterpret_cast<HANDLE>(slot * 4), &flags) != FALSE;
        count += used;
        free = used ? 0 : free + 1;
    }
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

// Stand-in for the spooler router's Bidi allocator (spoolss.dll). See standin.h.

#include <unordered_map>

#include "spooler/standin.h"
#include "util/locks.h"
#include "util/spooler_api.h"

namespace {

using vlm::standin::RouterCounters;

struct Block {
    size_t size;
    bool guarded;
};

struct Heap {
    vlm::SlimLock lock;
    std::unordered_map<void*, Block> live VLM_GUARDED_BY(lock);
    bool guarded VLM_GUARDED_BY(lock) = true;
    RouterCounters counters VLM_GUARDED_BY(lock){};
    LONG64 failFrom VLM_GUARDED_BY(lock) = 0;
};

Heap& TheHeap() {
    static Heap heap;
    return heap;
}

size_t PageSize() {
    SYSTEM_INFO system;
    GetSystemInfo(&system);
    return system.dwPageSize;
}

// The largest power of two up to 8 that divides the size, so that a block can end exactly at the guard page
// and is still aligned for what it holds: containers are multiples of 8 bytes, strings of 2.
size_t AlignmentOf(size_t size) {
    size_t alignment = 8;
    while (size % alignment != 0)
        alignment /= 2;
    return alignment;
}

void NoteAllocated(Heap& heap, void* address, Block block) VLM_REQUIRES(heap.lock) {
    heap.live.emplace(address, block);
    ++heap.counters.liveBlocks;
    heap.counters.liveBytes += static_cast<LONG64>(block.size);
}

void* Allocate(size_t size) {
    Heap& heap = TheHeap();
    const vlm::LockGuard exclusive(heap.lock);
    ++heap.counters.allocations;
    if (heap.failFrom != 0 && heap.counters.allocations >= heap.failFrom) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if (!heap.guarded) {
        void* block = HeapAlloc(GetProcessHeap(), 0, size);
        if (block != nullptr) NoteAllocated(heap, block, {size, false});
        return block;
    }
    const size_t page = PageSize();
    const size_t whole = (size + page - 1) / page * page;
    auto* base = static_cast<BYTE*>(VirtualAlloc(nullptr, whole + page, MEM_RESERVE, PAGE_NOACCESS));
    if (base == nullptr) return nullptr;
    if (whole != 0 && VirtualAlloc(base, whole, MEM_COMMIT, PAGE_READWRITE) == nullptr) {
        VirtualFree(base, 0, MEM_RELEASE);
        return nullptr;
    }
    const size_t alignment = AlignmentOf(size);
    void* block = base + (whole - size) / alignment * alignment;
    NoteAllocated(heap, block, {size, true});
    return block;
}

void Free(void* block) {
    if (block == nullptr) return;
    Heap& heap = TheHeap();
    const vlm::LockGuard exclusive(heap.lock);
    const auto found = heap.live.find(block);
    if (found == heap.live.end()) {
        ++heap.counters.badFrees;
        return;
    }
    --heap.counters.liveBlocks;
    heap.counters.liveBytes -= static_cast<LONG64>(found->second.size);
    const bool guarded = found->second.guarded;
    heap.live.erase(found);
    if (!guarded) {
        HeapFree(GetProcessHeap(), 0, block);
        return;
    }
    MEMORY_BASIC_INFORMATION region;
    // A block of size 0 stands on the guard page itself, which the query covers as well.
    VirtualQuery(block, &region, sizeof region);
    VirtualFree(region.AllocationBase, 0, MEM_RELEASE);
}

size_t ContainerSize(DWORD count) {
    const size_t entries = count == 0 ? 1 : count;
    return sizeof(BIDI_RESPONSE_CONTAINER) + (entries - 1) * sizeof(BIDI_RESPONSE_DATA);
}

}  // namespace

// Nothing is caught here: a stand-in that runs out of memory ends the test.
extern "C" {

LPVOID WINAPI RouterAllocBidiMem(size_t size) {
    return Allocate(size);
}

VOID WINAPI RouterFreeBidiMem(LPVOID block) {
    Free(block);
}

PBIDI_RESPONSE_CONTAINER WINAPI RouterAllocBidiResponseContainer(DWORD count) {
    auto* container = static_cast<BIDI_RESPONSE_CONTAINER*>(Allocate(ContainerSize(count)));
    if (container != nullptr) container->Count = count;
    return container;
}

DWORD WINAPI RouterFreeBidiResponseContainer(PBIDI_RESPONSE_CONTAINER container) {
    if (container == nullptr) return ERROR_INVALID_PARAMETER;
    for (DWORD i = 0; i < container->Count; ++i) {
        const BIDI_RESPONSE_DATA& entry = container->aData[i];
        Free(entry.pSchema);
        switch (entry.data.dwBidiType) {
            case BIDI_STRING:
            case BIDI_TEXT:
            case BIDI_ENUM:
                Free(entry.data.u.sData);
                break;
            case BIDI_BLOB:
                Free(entry.data.u.biData.pData);
                break;
            default:
                break;
        }
    }
    Free(container);
    return ERROR_SUCCESS;
}

void StandInRouterCounters(RouterCounters* counters) {
    Heap& heap = TheHeap();
    const vlm::LockGuard exclusive(heap.lock);
    *counters = heap.counters;
}

void StandInGuardBlocks(BOOL guarded) {
    Heap& heap = TheHeap();
    const vlm::LockGuard exclusive(heap.lock);
    heap.guarded = guarded != FALSE;
}

void StandInResetAllocations(LONG64 failFrom) {
    Heap& heap = TheHeap();
    const vlm::LockGuard exclusive(heap.lock);
    heap.counters.allocations = 0;
    heap.failFrom = failFrom;
}
}

// What this process holds of the system, counted to find leaks.
//
// Handles, threads and, under Wine 8.0, heap blocks are exact. Newer versions of Wine serve small blocks from
// pools, and a walk over the heap sees the pools: 200 blocks of 40 bytes are 23, and 6 of those stay when all
// are freed. Their number settles after some rounds of the same work, so a count begins after some; and what
// leaks every round still shows, a pool for each thirty blocks or so.
#pragma once

#include <windows.h>

#include <ostream>

namespace vlm::test {

struct Resources {
    size_t handles;
    size_t threads;
    // Busy ones of the process heap (the global heap) and of the C++ heap. Wine 10 keeps small blocks of one
    // size in groups of 31, and HeapWalk tells such a group as one block. So a few may come at any time, and
    // what leaks has to be many.
    size_t heapBlocks;
    size_t heapBytes;  // in them
};

Resources CountResources();

inline std::ostream& operator<<(std::ostream& out, const Resources& resources) {
    return out << resources.handles << " handles, " << resources.threads << " threads, "
               << resources.heapBlocks << " heap blocks";
}

}  // namespace vlm::test

// What this process holds of the system, counted exactly, to see that nothing is left behind.
#pragma once

#include <windows.h>

#include <ostream>

namespace vlm::test {

struct Resources {
    size_t handles;
    size_t threads;
    size_t heapBlocks;  // busy blocks of the process heap (the global heap) and of the C++ heap
    size_t heapBytes;   // in them

    bool operator==(const Resources&) const = default;
};

Resources CountResources();

inline std::ostream& operator<<(std::ostream& out, const Resources& resources) {
    return out << resources.handles << " handles, " << resources.threads << " threads, "
               << resources.heapBlocks << " heap blocks";
}

}  // namespace vlm::test

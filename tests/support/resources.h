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

    // Without the bytes: a container that is kept may keep more room than before.
    bool operator==(const Resources& other) const {
        return handles == other.handles && threads == other.threads && heapBlocks == other.heapBlocks;
    }
};

Resources CountResources();

inline std::ostream& operator<<(std::ostream& out, const Resources& resources) {
    return out << resources.handles << " handles, " << resources.threads << " threads, "
               << resources.heapBlocks << " heap blocks";
}

}  // namespace vlm::test

// What this process holds, exactly, for tests that nothing is left behind.
#pragma once

#include <windows.h>

namespace vlm::test {

struct Resources {
    size_t blocks = 0;   // in the process heap and the C runtime's
    size_t handles = 0;  // kernel objects
    size_t threads = 0;
    bool IsWithin(const Resources& other) const {
        return blocks <= other.blocks && handles <= other.handles && threads <= other.threads;
    }
};

Resources CountResources();

// The same, but waits at most `milliseconds` until no number is above `before`: threads and sockets end a
// little later than those who wait for them.
Resources CountResources(const Resources& before, DWORD milliseconds);

}  // namespace vlm::test

// Waiting for calls that may never end: the runtime waits for ever for a machine that takes the connection
// and then is silent, and keeps whatever a machine sends that never comes to an end.
#pragma once

#include <cstddef>
#include <functional>

namespace vlm::ctl {

enum class WaitEnd {
    kDone,
    kTimeUp,
    kTooMuch,  // the process grew by more than it may
};

// Runs `work` on a thread of its own. What is given up goes on until the program ends, so what `work` uses
// has to be its own. `mostGrowth` is in bytes.
WaitEnd RunWatched(std::function<void()> work, unsigned milliseconds, size_t mostGrowth);

}  // namespace vlm::ctl

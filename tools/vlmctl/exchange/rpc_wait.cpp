#include "tools/vlmctl/exchange/rpc_wait.h"

#include <windows.h>
// windows.h first.
#include <psapi.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>

namespace vlm::ctl {

namespace {

size_t OwnMemory() {
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof counters;
    return GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters) ? counters.PagefileUsage : 0;
}

}  // namespace

WaitEnd RunWatched(std::function<void()> work, unsigned milliseconds, size_t mostGrowth) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kLook(50);
    const size_t before = OwnMemory();
    const auto giveUp = Clock::now() + std::chrono::milliseconds(milliseconds);
    std::packaged_task<void()> task(std::move(work));
    std::future<void> end = task.get_future();
    std::thread worker(std::move(task));
    while (end.wait_until(std::min(giveUp, Clock::now() + kLook)) != std::future_status::ready) {
        const bool tooMuch = OwnMemory() > before + mostGrowth;
        if (!tooMuch && Clock::now() < giveUp) continue;
        worker.detach();
        return tooMuch ? WaitEnd::kTooMuch : WaitEnd::kTimeUp;
    }
    worker.join();  // with all that the work held: the program may end next
    end.get();
    return WaitEnd::kDone;
}

}  // namespace vlm::ctl

#include "soak/growth.h"

#include <windows.h>
// windows.h first.
#include <psapi.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "tests/support/resources.h"

namespace vlm::soak {

namespace {

struct Resource {
    const char* name;
    int64_t allowed;
};
// Thread pools of the runtimes vary by a few threads, each with its handles.
// Each thread that the runtimes' pools may still add brings some thirty heap blocks under Wine 10.
constexpr Resource kTable[Growth::kResources] = {
    {"handles", 24}, {"threads", 4}, {"heap blocks", 120}, {"router blocks", 0}, {"resident KiB", 8 * 1024},
};

int64_t ResidentKiB() {
    PROCESS_MEMORY_COUNTERS counters{};
    K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return static_cast<int64_t>(counters.WorkingSetSize / 1024);
}

}  // namespace

void Growth::Take(const Stage& stage) {
    const test::Resources resources = test::CountResources();
    samples_.push_back({static_cast<int64_t>(resources.handles), static_cast<int64_t>(resources.threads),
                        static_cast<int64_t>(resources.heapBlocks), stage.router.Counters().liveBlocks,
                        ResidentKiB()});
    std::printf("~ at rest:");
    for (size_t i = 0; i < kResources; ++i)
        std::printf(" %" PRId64 " %s", samples_.back()[i], kTable[i].name);
    std::printf("\n");
}

bool Growth::Judge(Report& report) const {
    if (samples_.size() < 3) {
        std::printf("too short a run to see growth: %zu quiet points\n", samples_.size());
        return true;
    }
    // The runtimes' pools fill in the first third, so the last third is compared with the second.
    const auto third = static_cast<ptrdiff_t>(samples_.size() / 3);
    const auto warm = samples_.begin() + third;
    bool flat = true;
    std::printf("%-24s %10s %10s %10s %10s\n", "resource", "first", "last", "growth", "allowed");
    for (size_t i = 0; i < kResources; ++i) {
        const auto less = [i](const Sample& one, const Sample& other) { return one[i] < other[i]; };
        const int64_t most = (*std::max_element(warm, warm + third, less))[i];
        const int64_t least = (*std::min_element(samples_.end() - third, samples_.end(), less))[i];
        const int64_t growth = std::max<int64_t>(least - most, 0);
        std::printf("%-24s %10" PRId64 " %10" PRId64 " %10" PRId64 " %10" PRId64 "\n", kTable[i].name,
                    (*warm)[i], samples_.back()[i], growth, kTable[i].allowed);
        if (growth <= kTable[i].allowed) continue;
        flat = false;
        report.Violate("growth", samples_.size(),
                       std::string(kTable[i].name) + " grew by " + std::to_string(growth));
    }
    return flat;
}

}  // namespace vlm::soak

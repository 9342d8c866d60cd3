// Whether the process grows: what it holds at each quiet point, and how that develops.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "soak/stage.h"

namespace vlm::soak {

class Growth {
 public:
    static constexpr size_t kResources = 5;
    using Sample = std::array<int64_t, kResources>;

    Growth() { samples_.reserve(10'000); }

    // At a quiet point after the warm-up.
    void Take(const Stage& stage);
    // A line for each resource on standard output. Growth is the least of the last third of the samples
    // against the most of the second, so fluctuation does not count. False, and a violation, when one
    // grew by more than it may.
    bool Judge(Report& report) const;

 private:
    std::vector<Sample> samples_;
};

}  // namespace vlm::soak

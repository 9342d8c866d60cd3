// The decisions of one step. They follow from the seed, the worker's number and the step's number alone, so a
// step decides the same in every run of a seed, however far an earlier step got.
#pragma once

#include <cstdint>

namespace vlm::soak {

class Random {
 public:
    Random(uint64_t seed, uint64_t worker, uint64_t step) : state_(seed) {
        state_ = Next() ^ worker;
        state_ = Next() ^ step;
    }

    // SplitMix64.
    uint64_t Next() {
        uint64_t z = state_ += 0x9E3779B97F4A7C15U;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9U;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBU;
        return z ^ (z >> 31);
    }
    // 0 to limit - 1.
    uint32_t Below(uint32_t limit) { return static_cast<uint32_t>((Next() >> 32) * limit >> 32); }
    uint32_t Between(uint32_t least, uint32_t most) { return least + Below(most - least + 1); }
    bool OneIn(uint32_t n) { return Below(n) == 0; }

 private:
    uint64_t state_;
};

}  // namespace vlm::soak

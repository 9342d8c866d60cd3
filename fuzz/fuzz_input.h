// What the fuzzers share: an input that is taken apart, and a check that ends the run.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "vpca/cursor.h"

// A test that runs a fuzzer's checks defines its own.
#ifndef FUZZ_CHECK
#define FUZZ_CHECK(condition)                                                    \
    do {                                                                         \
        if (!(condition)) {                                                      \
            std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                        \
        }                                                                        \
    } while (false)
#endif

namespace vlm::vpca {

// Consumes the input from its start; behind its end there are zeros.
class FuzzInput {
 public:
    FuzzInput(const uint8_t* data, size_t size) : rest_{data, static_cast<uint32_t>(size)} {}

    uint8_t TakeU8() { return rest_.remaining >= 1 ? rest_.ReadU8() : uint8_t{0}; }
    uint16_t TakeU16() { return rest_.remaining >= 2 ? rest_.ReadU16() : uint16_t{0}; }
    uint32_t TakeU32() { return rest_.remaining >= 4 ? rest_.ReadU32() : 0; }
    // A copy of at most `limit` bytes, exactly as large as they are, so that a read behind them is seen.
    std::vector<uint8_t> TakeBytes(size_t limit) {
        const auto count = static_cast<uint32_t>(limit < rest_.remaining ? limit : rest_.remaining);
        std::vector<uint8_t> bytes(rest_.next, rest_.next + count);
        rest_.Skip(count);
        return bytes;
    }
    std::vector<uint8_t> TakeRest() { return TakeBytes(rest_.remaining); }

 private:
    VpcaCursor rest_;
};

}  // namespace vlm::vpca

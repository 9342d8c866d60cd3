// The byte cursor through which every VPCA read and write goes.
//
// A cursor is a position and the count of bytes from there on. It is passed by value to look ahead and by
// pointer to consume. Multi-byte integers are big-endian on the wire. The primitives do not check the
// remaining count: whoever reads or writes proves with `remaining` first that the bytes are there.
#pragma once

#include <cassert>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace vlm::vpca {

template <typename Byte>
struct BasicCursor {
    Byte* next = nullptr;
    uint32_t remaining = 0;

    uint8_t ReadU8() {
        const uint8_t value = next[0];
        Skip(1);
        return value;
    }
    uint16_t ReadU16() {
        const auto value = static_cast<uint16_t>(next[0] << 8 | next[1]);
        Skip(2);
        return value;
    }
    uint32_t ReadU32() {
        const uint32_t value =
            uint32_t{next[0]} << 24 | uint32_t{next[1]} << 16 | uint32_t{next[2]} << 8 | next[3];
        Skip(4);
        return value;
    }
    void ReadBytes(uint8_t* values, uint32_t count) {
        if (count != 0) std::memcpy(values, next, count);
        Skip(count);
    }

    void WriteU8(uint8_t value) {
        next[0] = value;
        Skip(1);
    }
    void WriteU16(uint16_t value) {
        next[0] = static_cast<uint8_t>(value >> 8);
        next[1] = static_cast<uint8_t>(value);
        Skip(2);
    }
    void WriteU32(uint32_t value) {
        WriteU16(static_cast<uint16_t>(value >> 16));
        WriteU16(static_cast<uint16_t>(value));
    }
    void WriteBytes(const void* values, uint32_t count) {
        if (count != 0) std::memcpy(next, values, count);
        Skip(count);
    }

    void Skip(uint32_t count) {
        assert(count <= remaining);
        next += count;
        remaining -= count;
    }
};

using VpcaCursor = BasicCursor<const uint8_t>;
using VpcaWriteCursor = BasicCursor<uint8_t>;

// A length rounded up to a multiple of 4. Lengths here stay far below 32 bits; in 16 bits 65533 would become
// 0.
constexpr uint32_t RoundUp4(uint32_t length) {
    return (length + 3) & ~uint32_t{3};
}

}  // namespace vlm::vpca

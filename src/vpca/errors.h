// The codec's result codes. Every VPCA operation returns one; nothing here throws.
#pragma once

#include <cstdint>

namespace vlm::vpca {

enum class [[nodiscard]] VpcaError : uint32_t;
enum class VpcaError : uint32_t {
    kSuccess = 0,
    // A required pointer, count or id is null or zero, or a list announces entries without storage.
    kBadArgument = 1,
    // Wrong magic, or fewer bytes than a header.
    kNotVpca = 2,
    kUnknownField = 3,
    // A typed tail item of a type outside 1 to 24.
    kUnknownItemType = 4,
    // Data too short, or a length that does not match its type or does not fit its field.
    kTooShort = 5,
    kOutOfMemory = 6,
    // The caller's buffer is smaller than what has to be written, and may not be grown.
    kBufferTooSmall = 7,
    kUnknownVersion = 8,
    kUnknownOperation = 9,
    kUnknownAttribute = 10,
    kUnknownStructure = 13,
};

}  // namespace vlm::vpca

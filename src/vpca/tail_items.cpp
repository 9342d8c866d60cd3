#include "vpca/tail_items.h"

namespace vlm::vpca {

namespace {

constexpr uint32_t kHeadSize = 3;
constexpr uint16_t kLastType = 24;
constexpr uint16_t kEmptyType = 13;

// By type; type 0 does not exist.
constexpr uint8_t kValueLengths[kLastType + 1] = {0, 6, 6,  12, 12, 12, 17, 4,  16, 18, 8,  8, 8,
                                                  0, 6, 18, 53, 53, 8,  22, 22, 6,  6,  22, 22};

}  // namespace

VpcaError SkipTailItem(VpcaCursor* cursor, uint32_t* valueBytes) {
    VpcaCursor item = *cursor;
    if (item.remaining < kHeadSize) return VpcaError::kTooShort;
    const uint16_t type = item.ReadU16();
    const uint8_t length = item.ReadU8();
    if (type == 0 || type > kLastType) return VpcaError::kUnknownItemType;
    if (length != kValueLengths[type] || length > *valueBytes || length > item.remaining) {
        return VpcaError::kTooShort;
    }
    item.Skip(length);
    *valueBytes -= length;
    *cursor = item;
    return VpcaError::kSuccess;
}

VpcaError CheckTailItem(VpcaCursor cursor) {
    if (cursor.remaining < 2) return VpcaError::kTooShort;
    const uint16_t type = cursor.ReadU16();
    if (type == 0 || type > kLastType) return VpcaError::kBadArgument;
    if (type == kEmptyType) return VpcaError::kSuccess;
    if (cursor.remaining < 1u + kValueLengths[type]) return VpcaError::kTooShort;
    return VpcaError::kSuccess;
}

}  // namespace vlm::vpca

#include "vpca/tail_items.h"

#include <gtest/gtest.h>

#include "hex.h"

namespace vlm::vpca {
namespace {

TEST(TailItemsTest, AreSkippedOrRefusedByTypeAndLength) {
    const struct {
        const char* what;
        const char* item;
        uint32_t valueBytes;
        VpcaError skipped;
        VpcaError checked;
    } cases[] = {
        {"whole", "00 07 04 01020304", 4, VpcaError::kSuccess, VpcaError::kSuccess},
        {"the empty type", "00 0D 00", 0, VpcaError::kSuccess, VpcaError::kSuccess},
        {"the last type", "00 18 16 00112233445566778899AABBCCDDEEFF001122334455", 100, VpcaError::kSuccess,
         VpcaError::kSuccess},
        {"the count of value bytes ends", "00 07 04 01020304", 3, VpcaError::kTooShort, VpcaError::kSuccess},
        {"the bytes end", "00 07 04 010203", 100, VpcaError::kTooShort, VpcaError::kTooShort},
        {"the head ends", "00 07", 100, VpcaError::kTooShort, VpcaError::kTooShort},
        {"the type ends", "00", 100, VpcaError::kTooShort, VpcaError::kTooShort},
        {"the length of another type", "00 07 05 0102030405", 100, VpcaError::kTooShort, VpcaError::kSuccess},
        {"no type", "00 00 00", 100, VpcaError::kUnknownItemType, VpcaError::kBadArgument},
        {"a type above the last", "00 19 00", 100, VpcaError::kUnknownItemType, VpcaError::kBadArgument},
        {"a type of 16 bits", "01 01 06", 100, VpcaError::kUnknownItemType, VpcaError::kBadArgument},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Bytes item = Hex(c.item);
        VpcaCursor cursor{item.data(), static_cast<uint32_t>(item.size())};
        EXPECT_EQ(CheckTailItem(cursor), c.checked);
        uint32_t valueBytes = c.valueBytes;
        EXPECT_EQ(SkipTailItem(&cursor, &valueBytes), c.skipped);
        const bool skipped = c.skipped == VpcaError::kSuccess;
        EXPECT_EQ(cursor.remaining, skipped ? 0 : item.size()) << "an error consumes nothing";
        EXPECT_EQ(valueBytes, skipped ? c.valueBytes - (item.size() - 3) : c.valueBytes);
    }
}

}  // namespace
}  // namespace vlm::vpca

#include "vpca/tail_items.h"

#include <gtest/gtest.h>

#include <set>

#include "hex.h"

namespace vlm::vpca {
namespace {

TEST(TailItemsTest, HaveTheLengthOfTheirType) {
    const struct {
        std::set<uint16_t> types;
        uint8_t length;
    } lengths[] = {{{1, 2, 14, 21, 22}, 6},
                   {{3, 4, 5}, 12},
                   {{6}, 17},
                   {{7}, 4},
                   {{8}, 16},
                   {{9, 15}, 18},
                   {{13}, 0},
                   {{10, 11, 12, 18}, 8},
                   {{16, 17}, 53},
                   {{19, 20, 23, 24}, 22}};
    size_t types = 0;
    for (const auto& group : lengths) {
        for (const uint16_t type : group.types) {
            SCOPED_TRACE(type);
            ++types;
            Bytes item(3u + group.length);
            item[1] = static_cast<uint8_t>(type);
            item[2] = group.length;
            const auto size = static_cast<uint32_t>(item.size());

            VpcaCursor cursor{item.data(), size};
            uint32_t valueBytes = group.length + 10u;
            EXPECT_EQ(SkipTailItem(&cursor, &valueBytes), VpcaError::kSuccess);
            EXPECT_EQ(cursor.remaining, 0u);
            EXPECT_EQ(valueBytes, 10u);
            EXPECT_EQ(CheckTailItem({item.data(), size}), VpcaError::kSuccess);

            if (group.length != 0) {
                cursor = {item.data(), size};
                valueBytes = group.length - 1u;
                EXPECT_EQ(SkipTailItem(&cursor, &valueBytes), VpcaError::kTooShort)
                    << "the running count ends";
                cursor = {item.data(), size - 1};
                valueBytes = 100;
                EXPECT_EQ(SkipTailItem(&cursor, &valueBytes), VpcaError::kTooShort) << "the bytes end";
                EXPECT_EQ(cursor.remaining, size - 1) << "nothing is consumed";
                EXPECT_EQ(CheckTailItem({item.data(), size - 1}), VpcaError::kTooShort);
            }
            ++item[2];
            cursor = {item.data(), size};
            valueBytes = 100;
            EXPECT_EQ(SkipTailItem(&cursor, &valueBytes), VpcaError::kTooShort) << "a length of another type";
            EXPECT_EQ(CheckTailItem({item.data(), size}), VpcaError::kSuccess)
                << "only the type counts when sending";
        }
    }
    EXPECT_EQ(types, 24u);
    for (const char* unknown : {"00 00 00", "00 19 00", "01 01 06"}) {
        const Bytes item = Hex(unknown);
        VpcaCursor cursor{item.data(), 3};
        uint32_t valueBytes = 100;
        EXPECT_EQ(SkipTailItem(&cursor, &valueBytes), VpcaError::kUnknownItemType) << unknown;
        EXPECT_EQ(CheckTailItem({item.data(), 3}), VpcaError::kBadArgument) << unknown;
    }
}

}  // namespace
}  // namespace vlm::vpca

#include "vpca/analyzer.h"

#include <gtest/gtest.h>

namespace vlm::vpca {
namespace {

TEST(AnalyzerTest, CopiesTheAnnouncedIdsAndNoMore) {
    ClientAttributeRequest client{};
    client.firstWord = 0x1234;
    client.longIdCount = 64;
    client.shortIdCount = 2;
    for (uint32_t i = 0; i < 64; ++i)
        client.longIds[i] = 1000 + i;
    client.shortIds[0] = 180;
    client.shortIds[1] = 2405;

    CVPCAAnalyzer analyzer;
    EXPECT_TRUE(static_cast<BaseAnalyzer&>(analyzer).IsSupported());
    AttributeRequest request;
    ASSERT_TRUE(analyzer.BuildAttributeRequest(&client, &request));
    EXPECT_EQ(request.firstWord, 0x1234);
    EXPECT_EQ(request.longIdCount, 64);
    EXPECT_EQ(request.longIds[63], 1063u);
    EXPECT_EQ(request.shortIdCount, 2);
    EXPECT_EQ(request.shortIds[1], 2405);
    EXPECT_EQ(request.address, nullptr);
    EXPECT_TRUE(analyzer.FreeAttributeRequest(&request));
    EXPECT_EQ(request.longIds, nullptr);
}

TEST(AnalyzerTest, RefusesCountsAboveTheSlotsAndNullRecords) {
    ClientAttributeRequest client{};
    AttributeRequest request;
    CVPCAAnalyzer analyzer;
    EXPECT_FALSE(analyzer.BuildAttributeRequest(nullptr, &request));
    EXPECT_FALSE(analyzer.BuildAttributeRequest(&client, nullptr));
    EXPECT_FALSE(analyzer.FreeAttributeRequest(nullptr));
    client.longIdCount = 65;
    EXPECT_FALSE(analyzer.BuildAttributeRequest(&client, &request));
    client.longIdCount = 0;
    client.shortIdCount = 0xFFFF;
    EXPECT_FALSE(analyzer.BuildAttributeRequest(&client, &request));
}

}  // namespace
}  // namespace vlm::vpca

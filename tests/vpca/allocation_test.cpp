#include <gtest/gtest.h>

#include "hex.h"
#include "memory_probe.h"
#include "vpca/analyzer.h"
#include "vpca/attribute_list.h"
#include "vpca/frame.h"
#include "vpca/memory.h"
#include "vpca/tables.h"

namespace vlm::vpca {
namespace {

class AllocationTest : public testing::Test {
 protected:
    AllocationTest() {
        RegisterTables();
        memory_probe::Reset();
    }
    ~AllocationTest() override {
        memory_probe::Reset();
        EXPECT_EQ(memory_probe::Live(), 0) << "everything is given back";
    }

    static VpcaError Decode(const Bytes& bytes, AttributeList* list, AttributeDestination* destination) {
        const ByteString text{static_cast<uint16_t>(bytes.size()), bytes.data()};
        return DecodeAttributeList(list, &text, kLongListContext, nullptr, kVersion10, destination);
    }
};

const char kTwoAttributes[] = "02 00B4 08 0102030405060708 1B58 01 FF";
constexpr uint32_t kTwoAttributesSize = 2 * 16 + 8 + 28;

TEST_F(AllocationTest, OneDecodedListIsOneAllocation) {
    AttributeList list;
    AttributeDestination destination;
    ASSERT_EQ(Decode(Hex(kTwoAttributes), &list, &destination), VpcaError::kSuccess);
    EXPECT_EQ(memory_probe::Allocations(), 1);
    EXPECT_EQ(destination.flags, AttributeDestination::kAllocatedByCodec);
    EXPECT_EQ(destination.capacity, kTwoAttributesSize);
}

TEST_F(AllocationTest, CallersBufferIsUsedGrownOnlyWithPermissionAndNeverFreed) {
    const Bytes text = Hex(kTwoAttributes);
    alignas(8) uint8_t fixed[kTwoAttributesSize];
    AttributeList list;
    {
        AttributeDestination exact(fixed, kTwoAttributesSize);
        EXPECT_EQ(Decode(text, &list, &exact), VpcaError::kSuccess);
        AttributeDestination small(fixed, kTwoAttributesSize - 1);
        EXPECT_EQ(Decode(text, &list, &small), VpcaError::kBufferTooSmall);
        EXPECT_EQ(list.count, 2);
        EXPECT_EQ(list.entries, nullptr);
    }
    EXPECT_EQ(memory_probe::Allocations(), 0);

    auto* const growing = static_cast<uint8_t*>(Allocate(8));
    void* last = nullptr;
    {
        AttributeDestination destination(growing, 8, AttributeDestination::kMayGrow);
        EXPECT_EQ(Decode(text, &list, &destination), VpcaError::kSuccess);
        EXPECT_EQ(destination.flags, AttributeDestination::kMayGrow | AttributeDestination::kGrown);
        EXPECT_EQ(destination.capacity, kTwoAttributesSize);
        last = destination.buffer;
    }
    EXPECT_EQ(memory_probe::Live(), 1);
    Free(last);
}

TEST_F(AllocationTest, NothingOfWhatLayInTheBufferShowsThroughADecodedList) {
    const Bytes text =
        Hex("03 0090 05 01 0A000001 0840 13 C0000205 01 61 0102 0304 05060708 090A0B0C 0D 1B58 01 FF");
    constexpr size_t kUsed = 3 * 16 + 20 + 44 + 28;
    alignas(8) uint8_t buffer[512];
    Bytes images[2];
    for (const int fill : {0x00, 0xAA}) {
        std::memset(buffer, fill, sizeof buffer);
        AttributeList list;
        AttributeDestination destination(buffer, sizeof buffer);
        ASSERT_EQ(Decode(text, &list, &destination), VpcaError::kSuccess);
        images[fill != 0].assign(buffer, buffer + kUsed);
    }
    EXPECT_EQ(images[0], images[1]);
}

TEST_F(AllocationTest, RefusedMemoryIsReportedAndLeavesNothingBehind) {
    memory_probe::RefuseAfter(0);
    AttributeList list;
    AttributeDestination destination;
    EXPECT_EQ(Decode(Hex(kTwoAttributes), &list, &destination), VpcaError::kOutOfMemory);

    VpcaHeader header;
    header.operation = kReadDataBlock;
    const RequestBody body = DataBlockRequest{1};
    FrameBuffer frame;
    EXPECT_EQ(EncodeFrame(&header, &body, &frame), VpcaError::kOutOfMemory);

    memory_probe::Reset();
    auto* const growing = static_cast<uint8_t*>(Allocate(8));
    memory_probe::RefuseAfter(0);
    AttributeDestination grown(growing, 8, AttributeDestination::kMayGrow);
    EXPECT_EQ(Decode(Hex(kTwoAttributes), &list, &grown), VpcaError::kOutOfMemory);
    EXPECT_EQ(grown.buffer, growing) << "the buffer stays the caller's";
    Free(growing);

    ClientAttributeRequest client{};
    client.longIdCount = 1;
    client.shortIdCount = 1;
    for (const int allowed : {0, 1}) {
        memory_probe::RefuseAfter(allowed);
        AttributeRequest request;
        EXPECT_FALSE(CVPCAAnalyzer().BuildAttributeRequest(&client, &request));
        EXPECT_EQ(request.longIds, nullptr);
        EXPECT_EQ(request.longIdCount, 0);
    }
}

}  // namespace
}  // namespace vlm::vpca

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>

#include "hex.h"
#include "vpca/analyzer.h"
#include "vpca/attribute_list.h"
#include "vpca/frame.h"
#include "vpca/memory.h"
#include "vpca/tables.h"

namespace vlm::vpca {

namespace {

constexpr int kNoLimit = std::numeric_limits<int>::max();

int allocations = 0;
int live = 0;  // blocks that are not freed yet
int allowed = kNoLimit;

bool Permit() {
    if (allowed == 0) return false;
    --allowed;
    ++allocations;
    return true;
}

}  // namespace

// In this program instead of the library's own.
void* Allocate(size_t size) {
    if (!Permit()) return nullptr;
    ++live;
    return std::calloc(1, size);
}
void Free(void* block) {
    if (block == nullptr) return;
    --live;
    std::free(block);
}

namespace {

class AllocationTest : public testing::Test {
 protected:
    AllocationTest() {
        RegisterTables();
        allocations = 0;
    }
    ~AllocationTest() override {
        allowed = kNoLimit;
        EXPECT_EQ(live, 0) << "everything is given back";
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
    EXPECT_EQ(allocations, 1);
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
    EXPECT_EQ(allocations, 0);

    auto* const growing = static_cast<uint8_t*>(Allocate(8));
    void* last = nullptr;
    {
        AttributeDestination destination(growing, 8, AttributeDestination::kMayGrow);
        EXPECT_EQ(Decode(text, &list, &destination), VpcaError::kSuccess);
        EXPECT_EQ(destination.flags, AttributeDestination::kMayGrow | AttributeDestination::kGrown);
        EXPECT_EQ(destination.capacity, kTwoAttributesSize);
        last = destination.buffer;
    }
    EXPECT_EQ(live, 1);
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
    allowed = 0;
    AttributeList list;
    AttributeDestination destination;
    EXPECT_EQ(Decode(Hex(kTwoAttributes), &list, &destination), VpcaError::kOutOfMemory);

    VpcaHeader header;
    header.operation = kReadDataBlock;
    const RequestBody body = DataBlockRequest{1};
    FrameBuffer frame;
    EXPECT_EQ(EncodeFrame(&header, &body, &frame), VpcaError::kOutOfMemory);

    allowed = kNoLimit;
    auto* const growing = static_cast<uint8_t*>(Allocate(8));
    allowed = 0;
    AttributeDestination grown(growing, 8, AttributeDestination::kMayGrow);
    EXPECT_EQ(Decode(Hex(kTwoAttributes), &list, &grown), VpcaError::kOutOfMemory);
    EXPECT_EQ(grown.buffer, growing) << "the buffer stays the caller's";
    Free(growing);

    ClientAttributeRequest client{};
    client.longIdCount = 1;
    client.shortIdCount = 1;
    for (const int first : {0, 1, 2}) {
        allowed = first;
        AttributeRequest request;
        EXPECT_EQ(CVPCAAnalyzer().BuildAttributeRequest(&client, &request), first == 2);
        EXPECT_EQ(request.longIdCount, first / 2);
        EXPECT_TRUE(CVPCAAnalyzer().FreeAttributeRequest(&request));
        EXPECT_EQ(request.longIds, nullptr);
    }
}

}  // namespace
}  // namespace vlm::vpca

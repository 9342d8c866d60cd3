// Valid frames, cut short at every byte and changed in every byte: the codec answers with an error code or
// with a value that is really in the bytes. Under the sanitizers a read outside the frame ends the test.
#include <gtest/gtest.h>

#include "hex.h"
#include "vpca/frame.h"
#include "vpca/tables.h"

namespace vlm::vpca {
namespace {

constexpr struct {
    const char* name;
    const char* hex;
} kFrames[] = {
    {"DataBlock", "CD CA 10 05 00 31 00 01 00 08 00000000 00000000 0001 11223344 AABBCCDD"},
    {"EightBytes", "CD CA 10 05 00 66 00 01 00 0C 00000000 00000000 0001 01 00B4 08 0102030405060708"},
    {"AddressLists",
     "CD CA 10 05 00 66 00 01 00 24 00000000 00000000 0001 "
     "03 177C 11 02 C0000201 00000102 C0000202 00000304 0090 05 01 0A000001 0438 01 00 1B58 00"},
    {"TextRecord",
     "CD CA 10 05 00 66 00 01 00 1D 00000000 00000000 0001 "
     "01 0840 15 C0000205 03 616263 0102 0304 05060708 090A0B0C 0D 00 00 00 00"},
    {"OpaqueAndUnknown",
     "CD CA 10 05 00 66 00 01 00 10 00000000 00000000 0001 02 0002 04 AABBCCDD 1B58 05 0102030405"},
    {"OpaqueBody", "CD CA 10 05 00 02 00 01 00 03 00000000 00000000 0001 AABBCC"},
    {"OpenEndedFp", "CD CA 10 01 00 1A 00 01 00 03 00000000 00000000 0001 AABBCC"},
};

bool Inside(const uint8_t* bytes, uint32_t size, const Bytes& frame) {
    return bytes >= frame.data() && bytes + size <= frame.data() + frame.size();
}

// A decoded list is right when encoding it gives the bytes of the body that it was decoded from.
void ExpectListIsInBody(const AttributeList& list, const Bytes& frame) {
    if (list.count == 0) return;
    uint32_t size = 0;
    ASSERT_EQ(EncodedListSize(list, nullptr, &size), VpcaError::kSuccess);
    ASSERT_LE(20 + size, frame.size());
    Bytes encoded(size);
    VpcaWriteCursor cursor{encoded.data(), size};
    ASSERT_EQ(EncodeAttributeList(list, nullptr, &cursor), VpcaError::kSuccess);
    EXPECT_EQ(encoded, Bytes(frame.begin() + 20, frame.begin() + 20 + size));
}

void ExpectErrorOrRightValue(const Bytes& frame) {
    const VpcaCursor cursor{frame.data(), static_cast<uint32_t>(frame.size())};
    VpcaHeader header;
    static_cast<void>(DecodeHeader(cursor, &header));
    {
        VpcaResult result;
        if (DecodeFp(&header, &result, cursor) == VpcaError::kSuccess) {
            const auto& body = std::get<OpaqueBody>(result.body);
            EXPECT_TRUE(Inside(body.bytes, body.size, frame));
        }
    }
    VpcaResult result;
    if (DecodeResponse(&header, &result, cursor) != VpcaError::kSuccess) return;
    if (const auto* block = std::get_if<DataBlock>(&result.body)) {
        EXPECT_TRUE(Inside(block->data, block->size, frame));
        EXPECT_EQ(block->size, frame.size() - 24);
    } else if (const auto* opaque = std::get_if<OpaqueBody>(&result.body)) {
        EXPECT_TRUE(Inside(opaque->bytes, opaque->size, frame));
        EXPECT_EQ(opaque->size, header.bodyLength);
    } else if (const auto* answer = std::get_if<AttributeAnswer>(&result.body)) {
        ExpectListIsInBody(answer->list, frame);
    }
}

class DamagedFrameTest : public testing::Test {
 protected:
    DamagedFrameTest() { RegisterTables(); }
};

TEST_F(DamagedFrameTest, CutAnywhereIsNeverMisread) {
    for (const auto& [name, hex] : kFrames) {
        const Bytes whole = Hex(hex);
        VpcaHeader header;
        VpcaResult result;
        EXPECT_EQ(DecodeResponse(&header, &result, {whole.data(), static_cast<uint32_t>(whole.size())}),
                  VpcaError::kSuccess)
            << name;
        for (size_t size = 0; size <= whole.size(); ++size) {
            SCOPED_TRACE(testing::Message() << name << ", " << size << " bytes");
            ExpectErrorOrRightValue(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
        }
    }
}

TEST_F(DamagedFrameTest, ChangedInAnyByteIsNeverMisread) {
    for (const auto& [name, hex] : kFrames) {
        Bytes frame = Hex(hex);
        for (uint8_t& byte : frame) {
            const uint8_t original = byte;
            for (int value = 0; value <= 0xFF; ++value) {
                SCOPED_TRACE(testing::Message()
                             << name << ", byte " << &byte - frame.data() << " is " << value);
                byte = static_cast<uint8_t>(value);
                ExpectErrorOrRightValue(frame);
            }
            byte = original;
        }
    }
}

}  // namespace
}  // namespace vlm::vpca

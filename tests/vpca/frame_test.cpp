#include "vpca/frame.h"

#include <gtest/gtest.h>

#include "hex.h"
#include "vpca/attribute_table.h"
#include "vpca/operations.h"
#include "vpca/tables.h"

namespace vlm::vpca {
namespace {

// Before main, and so before any test registers the tables.
const bool operationFoundUnregistered = FindOperation(VpcaTable::kFu, kReadDataBlock) != nullptr;
const bool attributeFoundUnregistered = FindAttribute(180) != nullptr;
const bool structureFoundUnregistered = FindStructure(22) != nullptr;

class FrameTest : public testing::Test {
 protected:
    FrameTest() { EXPECT_TRUE(RegisterTables()); }
};

VpcaCursor At(const Bytes& frame) {
    return {frame.data(), static_cast<uint32_t>(frame.size())};
}

enum BodyKind : size_t { kNone, kOpaque, kBlock, kList };  // as they stand in VpcaResult::body

struct FrameCase {
    const char* what;
    const char* frame;
    VpcaError error;
    uint16_t status = 0;
    BodyKind kind = kNone;
    uint32_t size = 0;  // of what is in the body
};

template <typename Decode>
void ExpectDecoded(const std::vector<FrameCase>& cases, Decode decode) {
    for (const FrameCase& c : cases) {
        SCOPED_TRACE(c.what);
        const Bytes frame = Hex(c.frame);
        VpcaHeader header;
        VpcaResult result;
        EXPECT_EQ(decode(&header, &result, At(frame)), c.error);
        EXPECT_EQ(result.status, c.status);
        if (c.error != VpcaError::kSuccess) continue;
        ASSERT_EQ(result.body.index(), c.kind);
        if (c.kind == kOpaque) {
            EXPECT_EQ(std::get<OpaqueBody>(result.body).size, c.size);
        } else if (c.kind == kBlock) {
            EXPECT_EQ(std::get<DataBlock>(result.body).size, c.size);
            EXPECT_EQ(std::get<DataBlock>(result.body).dataId, 0x11223344u);
        } else if (c.kind == kList) {
            EXPECT_EQ(std::get<AttributeAnswer>(result.body).list.valueBytes, c.size);
        }
    }
}

TEST_F(FrameTest, LookupsFindNothingBeforeTheTablesAreRegistered) {
    EXPECT_FALSE(operationFoundUnregistered);
    EXPECT_FALSE(attributeFoundUnregistered);
    EXPECT_FALSE(structureFoundUnregistered);
}

TEST_F(FrameTest, HeaderEndsInResultCodeOrOptionByteAsTheFlagsSay) {
    const struct {
        uint8_t flags;
        const char* tail;
        uint16_t decodedTail;
    } cases[] = {
        {0x00, "00 00", 0},      {0x04, "00 00", 0},    {0x01, "AB CD", 0xABCD},
        {0x09, "AB CD", 0xABCD}, {0x08, "CD 00", 0xCD},
    };
    const VersionDescriptor* version = FindVersion(kVersion10);
    ASSERT_NE(version, nullptr);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.tail);
        const VpcaHeader header{kMagic, kVersion10, c.flags,    0x0102, 0x0304,
                                0x0506, 0x0708090A, 0x0B0C0D0E, 0xABCD};
        Bytes wire(version->headerLength);
        VpcaWriteCursor out{wire.data(), static_cast<uint32_t>(wire.size())};
        version->encodeHeader(header, &out);
        EXPECT_EQ(out.remaining, 0u);
        EXPECT_EQ(wire, Hex("CD CA 10") + Bytes{c.flags} + Hex("01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E") +
                            Hex(c.tail));

        VpcaHeader decoded;
        ASSERT_EQ(DecodeHeader({wire.data(), 20}, &decoded), VpcaError::kSuccess);
        EXPECT_EQ(decoded.operation, 0x0102);
        EXPECT_EQ(decoded.value2, 0x0B0C0D0Eu);
        EXPECT_EQ(decoded.resultCode, c.decodedTail);
    }
}

TEST_F(FrameTest, FieldsAreTheSameInMemoryAndOnTheWire) {
    const VersionDescriptor* version = FindVersion(kVersion10);
    for (uint32_t index = 0; index < 12; ++index) {
        SCOPED_TRACE(index);
        const auto field = static_cast<VpcaField>(index);
        const bool known = field >= VpcaField::kFlags && field <= VpcaField::kOption;
        const VpcaError expected = known ? VpcaError::kSuccess : VpcaError::kUnknownField;
        // Flags with a result code, except for the option byte.
        VpcaHeader header{kMagic, kVersion10, 0x01, 0x1234, 0x2345, 0x3456, 0x456789AB, 0x56789ABC, 0x6789};
        if (field == VpcaField::kOption) header.flags = kFlagOption;
        Bytes wire(20);
        const auto encode = [&] {
            VpcaWriteCursor out{wire.data(), 20};
            version->encodeHeader(header, &out);
        };
        encode();
        uint32_t inMemory = 0;
        uint32_t onWire = 0;
        EXPECT_EQ(version->getField(field, header, &inMemory), expected);
        EXPECT_EQ(version->peekField(field, {wire.data(), 20}, &onWire), expected);
        EXPECT_EQ(inMemory, onWire);
        EXPECT_EQ(version->setField(field, &header, 0x0B), expected);
        EXPECT_EQ(version->pokeField(field, {wire.data(), 20}, 0x0B), expected);
        const Bytes poked = wire;
        encode();
        EXPECT_EQ(wire, poked);
        if (!known) continue;
        EXPECT_EQ(version->peekField(field, {wire.data(), 19}, &onWire), VpcaError::kNotVpca);
        EXPECT_EQ(version->pokeField(field, {wire.data(), 19}, 0), VpcaError::kNotVpca);
    }
}

TEST_F(FrameTest, EncodesTheRequestsByteByByte) {
    VpcaHeader header;
    header.flags = 4;
    header.sequence = 1;
    header.operation = kReadDataBlock;
    const RequestBody block = DataBlockRequest{0x11223344};
    FrameBuffer blockFrame;
    ASSERT_EQ(EncodeFrame(&header, &block, &blockFrame), VpcaError::kSuccess);
    EXPECT_EQ(ToHex(blockFrame.bytes, blockFrame.size),
              "CD CA 10 04 00 31 00 01 00 04 00 00 00 00 00 00 00 00 00 00 11 22 33 44");

    uint32_t address = 0;
    std::memcpy(&address, "\xC0\x00\x02\x07", 4);
    uint32_t longIds[] = {0x01020304, 5};
    uint16_t shortIds[] = {180, 2405};
    AttributeRequest request{0x0A0B, 1, 0, &address, 2, longIds, 2, shortIds};
    header.operation = kReadAttribute;
    header.value1 = 0x51525354;
    header.value2 = 0x61626364;
    const RequestBody attributes = &request;
    FrameBuffer attributeFrame;
    ASSERT_EQ(EncodeFrame(&header, &attributes, &attributeFrame), VpcaError::kSuccess);
    EXPECT_EQ(ToHex(attributeFrame.bytes, attributeFrame.size),
              "CD CA 10 04 00 66 00 01 00 18 51 52 53 54 61 62 63 64 00 00 "
              "0A 0B 01 04 C0 00 02 07 00 02 01 02 03 04 00 00 00 05 00 02 00 B4 09 65");
    EXPECT_EQ(request.addressLength, 4);
}

TEST_F(FrameTest, EncodingRefusesWhatCannotBeAFrame) {
    uint16_t ids[1] = {};
    uint32_t longIds[1] = {};
    AttributeRequest kindWithoutAddress{0, 1, 0, nullptr, 0, nullptr, 0, nullptr};
    AttributeRequest unknownKind{0, 3, 0, longIds, 0, nullptr, 0, nullptr};
    AttributeRequest noLongIds{0, 0, 0, nullptr, 1, nullptr, 0, nullptr};
    AttributeRequest noShortIds{0, 0, 0, nullptr, 0, nullptr, 1, nullptr};
    // 4 + 2 + 4 * 16384 + 2 is 8 in 16 bits.
    AttributeRequest wraps{0, 0, 0, nullptr, 16384, longIds, 0, ids};
    AttributeRequest* const none = nullptr;
    const OpaqueBody tooLong{reinterpret_cast<const uint8_t*>("x"), 65536};
    const OpaqueBody nowhere{nullptr, 1};

    const struct {
        const char* what;
        uint16_t operation;
        RequestBody body;
        VpcaError error;
    } cases[] = {
        {"a kind that needs an address", kReadAttribute, &kindWithoutAddress, VpcaError::kBadArgument},
        {"an unknown address kind", kReadAttribute, &unknownKind, VpcaError::kBadArgument},
        {"long ids without storage", kReadAttribute, &noLongIds, VpcaError::kBadArgument},
        {"short ids without storage", kReadAttribute, &noShortIds, VpcaError::kBadArgument},
        {"a null request", kReadAttribute, none, VpcaError::kBadArgument},
        {"a body length that wraps in 16 bits", kReadAttribute, &wraps, VpcaError::kTooShort},
        {"a body of another operation", kReadAttribute, DataBlockRequest{1}, VpcaError::kBadArgument},
        {"a body of another operation", kReadDataBlock, OpaqueBody{}, VpcaError::kBadArgument},
        {"an opaque body above 16 bits", 1, tooLong, VpcaError::kTooShort},
        {"an opaque body without storage", 1, nowhere, VpcaError::kBadArgument},
        {"an operation that is only decoded", 10, OpaqueBody{}, VpcaError::kUnknownOperation},
        {"an operation that is none", 45, OpaqueBody{}, VpcaError::kUnknownOperation},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        VpcaHeader header;
        header.operation = c.operation;
        FrameBuffer frame;
        EXPECT_EQ(EncodeFrame(&header, &c.body, &frame), c.error);
        EXPECT_EQ(frame.bytes, nullptr);
    }

    VpcaHeader header;
    header.operation = kReadDataBlock;
    const RequestBody body = DataBlockRequest{1};
    uint8_t bytes[24];
    FrameBuffer small(bytes, 23);
    EXPECT_EQ(EncodeFrame(&header, &body, &small), VpcaError::kBufferTooSmall);
    FrameBuffer exact(bytes, 24);
    EXPECT_EQ(EncodeFrame(&header, &body, &exact), VpcaError::kSuccess);
    EXPECT_EQ(EncodeFrame(nullptr, &body, &exact), VpcaError::kBadArgument);
    EXPECT_EQ(EncodeFrame(&header, nullptr, &exact), VpcaError::kBadArgument);
    EXPECT_EQ(EncodeFrame(&header, &body, nullptr), VpcaError::kBadArgument);
    header.version = 0x11;
    EXPECT_EQ(EncodeFrame(&header, &body, &exact), VpcaError::kUnknownVersion);
}

TEST_F(FrameTest, ResponsesDecodeOrAreRefusedWithTheRightCode) {
    constexpr auto kFine = VpcaError::kSuccess;
    const std::vector<FrameCase> cases = {
        {"data", "CD CA 10 05 00 31 00 01 00 06 00000000 00000000 0001 11223344 AABB", kFine, 1, kBlock, 2},
        {"data without any", "CD CA 10 05 00 31 00 01 00 04 00000000 00000000 0001 11223344", kFine, 1,
         kBlock},
        {"a data id cut short", "CD CA 10 05 00 31 00 01 00 04 00000000 00000000 0001 112233",
         VpcaError::kTooShort, 6},
        {"refused", "CD CA 10 05 00 31 00 01 00 06 00000000 00000000 0000 11223344 AABB", kFine},
        {"attribute", "CD CA 10 05 00 66 00 01 00 0C 00000000 00000000 0001 01 00B4 08 0102030405060708",
         kFine, 1, kList, 8},
        {"no attribute count", "CD CA 10 05 00 66 00 01 00 00 00000000 00000000 0001", VpcaError::kTooShort,
         6},
        {"a body length that lies",
         "CD CA 10 05 00 66 00 01 00 0D 00000000 00000000 0001 01 00B4 08 0102030405060708",
         VpcaError::kTooShort, 1},
        {"an opaque body", "CD CA 10 05 00 02 00 01 00 02 00000000 00000000 0001 AABB", kFine, 1, kOpaque, 2},
        {"bytes behind the body", "CD CA 10 05 00 02 00 01 00 02 00000000 00000000 0001 AABBCC", kFine, 1,
         kOpaque, 2},
        {"exactly a header", "CD CA 10 05 00 02 00 01 00 00 00000000 00000000 0001", kFine, 1, kOpaque},
        {"one byte less", "CD CA 10 05 00 02 00 01 00 00 00000000 00000000 00", VpcaError::kNotVpca},
        {"magic in the wrong order", "CA CD 10 05 00 02 00 01 00 00 00000000 00000000 0001",
         VpcaError::kNotVpca},
        {"another version", "CD CA 11 05 00 02 00 01 00 00 00000000 00000000 0001",
         VpcaError::kUnknownVersion},
        {"another version, cut short", "CD CA 11", VpcaError::kUnknownVersion},
        {"no version", "CD CA", VpcaError::kNotVpca},
        {"no operation", "CD CA 10 05 00 2D 00 01 00 00 00000000 00000000 0001", VpcaError::kUnknownOperation,
         1},
        {"an operation above the table", "CD CA 10 05 FF FF 00 01 00 00 00000000 00000000 0001",
         VpcaError::kUnknownOperation, 1},
        {"status in the option byte", "CD CA 10 04 00 02 00 01 00 00 00000000 00000000 0100", kFine, 1,
         kOpaque},
    };
    ExpectDecoded(cases, [](VpcaHeader* header, VpcaResult* result, VpcaCursor frame) {
        return DecodeResponse(header, result, frame);
    });
    VpcaHeader header;
    VpcaResult result;
    const Bytes frame(20);
    EXPECT_EQ(DecodeResponse(&header, &result, {nullptr, 20}), VpcaError::kBadArgument);
    EXPECT_EQ(DecodeResponse(nullptr, &result, At(frame)), VpcaError::kBadArgument);
    EXPECT_EQ(DecodeResponse(&header, nullptr, At(frame)), VpcaError::kBadArgument);
}

TEST_F(FrameTest, DataBlockIsAsLongAsTheFrameEvenAbove16Bits) {
    Bytes frame = Hex("CD CA 10 05 00 31 00 01 00 04 00000000 00000000 00 01 00000007");
    frame.resize(24 + 70000, 0x5A);
    frame.back() = 0x77;
    VpcaHeader header;
    VpcaResult result;
    ASSERT_EQ(DecodeResponse(&header, &result, At(frame)), VpcaError::kSuccess);
    const auto& block = std::get<DataBlock>(result.body);
    EXPECT_EQ(block.dataId, 7u);
    ASSERT_EQ(block.size, 70000u);
    EXPECT_EQ(block.data[69999], 0x77);
}

TEST_F(FrameTest, FpFramesIgnoreTheStatusAndOperation26MayReachToTheEnd) {
    constexpr auto kFine = VpcaError::kSuccess;
    const std::vector<FrameCase> cases = {
        {"status 0", "CD CA 10 05 00 02 00 01 00 02 00000000 00000000 0000 AABBCC", kFine, 0, kOpaque, 2},
        {"a data block is limited", "CD CA 10 05 00 31 00 01 00 02 00000000 00000000 0000 AABBCC", kFine, 0,
         kOpaque, 2},
        {"26 with flags 1", "CD CA 10 01 00 1A 00 01 00 02 00000000 00000000 0000 AABBCC", kFine, 0, kOpaque,
         3},
        {"26 with other flags", "CD CA 10 05 00 1A 00 01 00 02 00000000 00000000 0000 AABBCC", kFine, 0,
         kOpaque, 2},
        {"26 with flags 1 and a length that lies",
         "CD CA 10 01 00 1A 00 01 FF FF 00000000 00000000 0000 AABBCC", kFine, 0, kOpaque, 3},
        {"26 with other flags and a length that lies",
         "CD CA 10 05 00 1A 00 01 FF FF 00000000 00000000 0000 AABBCC", VpcaError::kTooShort},
        {"an operation that is only encoded", "CD CA 10 05 00 0A 00 01 00 00 00000000 00000000 0000",
         VpcaError::kUnknownOperation},
        {"not VPCA", "CD CB 10 05 00 02 00 01 00 00 00000000 00000000 0000", VpcaError::kNotVpca},
    };
    ExpectDecoded(cases, DecodeFp);
}

TEST_F(FrameTest, StatusDecidesPerOperationWhetherABodyIsDecoded) {
    const struct {
        uint16_t status;
        uint16_t operation;
        bool decoded;
    } cases[] = {
        {1, 2, true},    {29, 2, true},  {34, 2, true},   {0, 2, false},  {0x101, 2, false}, {4, 56, true},
        {4, 57, false},  {9, 53, true},  {23, 82, false}, {8, 84, true},  {8, 83, false},    {31, 97, true},
        {31, 84, false}, {18, 27, true}, {19, 27, false}, {25, 19, true}, {26, 19, false},   {4, 10, false},
    };
    for (const auto& c : cases) {
        uint16_t word = c.status;
        EXPECT_EQ(CheckResult(&word, c.operation) == BodyDecision::kDecode, c.decoded)
            << c.status << ", " << c.operation;
        EXPECT_EQ(word, c.status);
    }
    uint16_t cleared = 2;
    EXPECT_EQ(CheckResult(&cleared, 10), BodyDecision::kDecode);
    EXPECT_EQ(cleared, 0);
}

TEST_F(FrameTest, BothTablesHoldThe115OperationsAndEachLacksOneDirectionOf10) {
    for (const VpcaTable table : {VpcaTable::kFu, VpcaTable::kFp}) {
        int count = 0;
        for (uint32_t code = 0; code <= 0xFFFF; ++code) {
            const OperationRow* row = FindOperation(table, static_cast<uint16_t>(code));
            if (row == nullptr) continue;
            ++count;
            EXPECT_EQ(row->encode == nullptr, code == 10 && table == VpcaTable::kFu) << code;
            EXPECT_EQ(row->decode == nullptr, code == 10 && table == VpcaTable::kFp) << code;
        }
        EXPECT_EQ(count, 115);
    }
}

}  // namespace
}  // namespace vlm::vpca

#include <gtest/gtest.h>

#include <optional>

#include "hex.h"
#include "vpca/analyzer.h"
#include "vpca/attribute_list.h"
#include "vpca/attribute_table.h"
#include "vpca/header.h"
#include "vpca/tables.h"

namespace vlm::vpca {
namespace {

class AttributeTest : public testing::Test {
 protected:
    AttributeTest() { RegisterTables(); }

    // Into a new block each time.
    VpcaError Decode(Bytes text, uint16_t context = kLongListContext,
                     const AttributeSchema* schema = nullptr) {
        text.reserve(1);  // an empty string has an address too
        const ByteString string{static_cast<uint16_t>(text.size()), text.data()};
        return DecodeAttributeList(&list_, &string, context, schema, kVersion10, &destination_.emplace());
    }
    template <typename Value>
    const Value& ValueAt(uint16_t index) {
        return *static_cast<const Value*>(list_.entries[index].value);
    }
    template <typename Value>
    size_t OffsetOf(const Value* pointer) {
        return static_cast<size_t>(reinterpret_cast<const uint8_t*>(pointer) - destination_->buffer);
    }

    AttributeList list_;
    std::optional<AttributeDestination> destination_;
};

TEST_F(AttributeTest, ExactlyTheKnownIdsAreFound) {
    uint32_t count = 0;
    uint32_t sum = 0;
    uint32_t hash = 0;
    for (uint32_t id = 0; id <= 0xFFFF; ++id) {
        if (FindAttribute(static_cast<uint16_t>(id)) == nullptr) continue;
        ++count;
        sum += id;
        hash = hash * 31 + id;
    }
    // Computed from the protocol's list of ids by another program.
    EXPECT_EQ(count, 1075u);
    EXPECT_EQ(sum, 3645864u);
    EXPECT_EQ(hash, 3682322960u);
}

TEST_F(AttributeTest, ListsKeepAddressesInWireOrderAndConvertNumbers) {
    ASSERT_EQ(Decode(Hex("03 177C 11 02 C0000201 00000102 C0000202 00000304 0090 05 01 0A000001 0438 01 00")),
              VpcaError::kSuccess);
    const auto& pairs = ValueAt<ListValue<AddressValue>>(0);
    ASSERT_EQ(pairs.count, 2);
    EXPECT_EQ(ToHex(pairs.elements[1].address.bytes, 4), "C0 00 02 02");
    EXPECT_EQ(pairs.elements[1].value, 0x0304u);
    EXPECT_EQ(OffsetOf(pairs.elements), 3 * 16 + 16u);
    const auto& addresses = ValueAt<ListValue<Address>>(1);
    ASSERT_EQ(addresses.count, 1);
    EXPECT_EQ(ToHex(addresses.elements[0].bytes, 4), "0A 00 00 01");
    EXPECT_EQ(ValueAt<ListValue<Address>>(2).count, 0);
    // A copy: a pointer in a value may lie off its natural boundary, where no reference may be bound to it.
    const Address* const none = ValueAt<ListValue<Address>>(2).elements;
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(destination_->capacity, 3 * 16 + (16 + 16) + (16 + 4) + 16u);
}

TEST_F(AttributeTest, TextRecordsKeepTheTextWithATerminatingZero) {
    for (const uint8_t length : {uint8_t{0}, uint8_t{3}, uint8_t{4}, uint8_t{255}}) {
        SCOPED_TRACE(length);
        const Bytes text(length, 'x');
        const auto wireLength = static_cast<uint8_t>(18 + length);
        const Bytes wire = Hex("02 0840") + Bytes{wireLength} + Hex("C0000205") + Bytes{length} + text +
                           Hex("0102 0304 05060708 090A0B0C 0D 1B58 00");
        ASSERT_EQ(Decode(wire), VpcaError::kSuccess);
        const auto& record = ValueAt<TextRecord>(0);
        EXPECT_EQ(ToHex(record.address.bytes, 4), "C0 00 02 05");
        EXPECT_EQ(record.textLength, length);
        EXPECT_EQ(std::string(record.text), std::string(length, 'x'));
        EXPECT_EQ(record.word1, 0x0102);
        EXPECT_EQ(record.word2, 0x0304);
        EXPECT_EQ(record.value1, 0x05060708u);
        EXPECT_EQ(record.value2, 0x090A0B0Cu);
        EXPECT_EQ(record.byte, 0x0D);
        EXPECT_EQ(destination_->capacity, 2 * 16 + 40 + ((length + 4u) & ~3u) + 24);
        EXPECT_EQ(list_.valueBytes, 18u + length);
    }
}

TEST_F(AttributeTest, UnknownIdsAreCarriedWithTheirBytesAndKnownOpaqueOnesKeepTheirId) {
    ASSERT_EQ(Decode(Hex("01 1B58 05 0102030405")), VpcaError::kSuccess);
    EXPECT_EQ(list_.entries[0].id, 0);
    EXPECT_EQ(list_.entries[0].kind, 0);
    EXPECT_EQ(destination_->capacity, 16 + 32u);
    const auto& unknown = ValueAt<OpaqueValue>(0);
    EXPECT_EQ(unknown.id, 7000);
    EXPECT_EQ(unknown.length, 5);
    EXPECT_EQ(unknown.size, 5u);
    EXPECT_EQ(ToHex(unknown.bytes, 5), "01 02 03 04 05");

    ASSERT_EQ(Decode(Hex("01 0002 02 AABB"), 1), VpcaError::kSuccess);
    EXPECT_EQ(list_.entries[0].id, 2);
    EXPECT_EQ(ValueAt<OpaqueValue>(0).id, 2);
    EXPECT_EQ(ToHex(ValueAt<OpaqueValue>(0).bytes, 2), "AA BB");
}

TEST_F(AttributeTest, RefusesWhatIsShortOrLies) {
    const struct {
        const char* what;
        const char* text;
    } cases[] = {
        {"an empty string", ""},
        {"a count without attributes", "01"},
        {"a head cut short", "01 00B4"},
        {"a scalar cut short", "01 00B4 08 01020304050607"},
        {"a scalar's length below its size", "01 00B4 07 0102030405060708"},
        {"a scalar's length above its size", "01 00B4 09 010203040506070809"},
        {"a list without a count", "01 0090 00"},
        {"a list's count above its bytes", "01 0090 05 02 0A000001"},
        {"a list's count below its bytes", "01 0090 05 00 0A000001"},
        {"a text that runs over the end", "01 0840 15 C0000205 04 616263 0102 0304 05060708 090A0B0C 0D"},
        {"an unknown id cut short", "01 1B58 05 01020304"},
        {"a second attribute that is not there", "02 1B58 01 01"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(Decode(Hex(c.text)), VpcaError::kTooShort);
        EXPECT_EQ(list_.entries, nullptr);
        EXPECT_EQ(destination_->buffer, nullptr) << "nothing is allocated for a list that is refused";
    }
    EXPECT_EQ(Decode(Hex("01 1B58 01 01 FF")), VpcaError::kSuccess) << "bytes behind the last attribute";
}

TEST_F(AttributeTest, EmptyListHasNoEntriesAndNoBlock) {
    ASSERT_EQ(Decode(Hex("00")), VpcaError::kSuccess);
    EXPECT_EQ(list_.count, 0);
    EXPECT_EQ(list_.entries, nullptr);
    EXPECT_EQ(destination_->buffer, nullptr);
}

TEST_F(AttributeTest, OnlyTheLowByteOfTheLengthCountsOutsideLongLists) {
    Bytes text = Hex("02 1B58 FA") + Bytes(250, 1) + Hex("1B59 05 0102030405");
    ASSERT_EQ(text.size(), 262u);
    EXPECT_EQ(Decode(text, kLongListContext), VpcaError::kSuccess);
    EXPECT_EQ(list_.count, 2);
    for (const int context : {1, 47, 49, 0x3030}) {
        EXPECT_EQ(Decode(text, static_cast<uint16_t>(context)), VpcaError::kTooShort) << "262 is 6 in 8 bits";
    }
}

TEST_F(AttributeTest, LongestListNeedsMoreMemoryThan16BitsCountAndIsDecodedWhole) {
    Bytes text = Hex("FE");
    for (int i = 0; i < 254; ++i)
        text = text + Hex("1B58 FD") + Bytes(253, static_cast<uint8_t>(i));
    ASSERT_LE(text.size(), 65535u);
    ASSERT_EQ(Decode(text), VpcaError::kSuccess);
    EXPECT_GT(destination_->capacity, 65535u);
    EXPECT_EQ(ValueAt<OpaqueValue>(253).bytes[252], 253);
}

TEST_F(AttributeTest, SchemaReplacesCountAndIds) {
    const SchemaPair pairs[] = {{7, 180}, {0, 144}, {kStructureKind, 22}};
    const SchemaPair unknownId[] = {{0, 7000}};
    const SchemaPair unknownStructure[] = {{kStructureKind, 180}};
    const SchemaPair other[] = {{0, 2405}};
    const SchemaEntry entries[] = {
        {5, 1, other},  {6, 3, pairs}, {6, 1, other}, {7, 1, unknownId}, {8, 1, unknownStructure},
        {9, 0, nullptr}};
    const AttributeSchema schema{6, entries};

    ASSERT_EQ(Decode(Hex("0102030405060708 01 0A000001 AABBCC"), 6, &schema), VpcaError::kSuccess);
    ASSERT_EQ(list_.count, 3);
    EXPECT_EQ(list_.entries[0].kind, 7);
    EXPECT_EQ(list_.entries[0].id, 180);
    EXPECT_EQ(ValueAt<ListValue<Address>>(1).count, 1);
    EXPECT_EQ(list_.entries[2].kind, kStructureKind);
    EXPECT_EQ(list_.entries[2].id, 22);
    EXPECT_EQ(ToHex(ValueAt<OpaqueValue>(2).bytes, ValueAt<OpaqueValue>(2).size), "AA BB CC");

    const struct {
        const char* what;
        uint16_t context;
        const char* text;
        VpcaError error;
    } cases[] = {
        {"too short for its values", 6, "01020304050607", VpcaError::kTooShort},
        {"an id that no descriptor knows", 7, "01", VpcaError::kUnknownAttribute},
        {"a structure that no row knows", 8, "01", VpcaError::kUnknownStructure},
        {"an entry without attributes", 9, "01", VpcaError::kSuccess},
        {"a context without an entry", 10, "01 1B58 00", VpcaError::kSuccess},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(Decode(Hex(c.text), c.context, &schema), c.error);
    }
}

TEST_F(AttributeTest, SchemaListCutAnywhereIsTooShort) {
    const SchemaPair pairs[] = {{0, 144}, {0, 6012}, {0, 2112}, {0, 2405}};
    const SchemaEntry entry{6, 4, pairs};
    const AttributeSchema schema{1, &entry};
    const Bytes whole =
        Hex("02 0A000001 0A000002 01 C0000201 00000102 C0000205 02 6162 0102 0304 05060708 090A0B0C 0D") +
        Bytes(28, 0x42);
    EXPECT_EQ(Decode(whole, 6, &schema), VpcaError::kSuccess);
    for (size_t size = 1; size < whole.size(); ++size) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(Decode(cut, 6, &schema), VpcaError::kTooShort) << size;
    }
}

TEST_F(AttributeTest, MissingArgumentsAreRefused) {
    const Bytes bytes = Hex("00");
    const ByteString text{1, bytes.data()};
    const ByteString noBytes{1, nullptr};
    const SchemaEntry noPairs{5, 1, nullptr};
    const AttributeSchema noEntries{1, nullptr};
    const AttributeSchema badEntry{1, &noPairs};
    AttributeDestination destination;
    const auto decode = DecodeAttributeList;
    EXPECT_EQ(decode(nullptr, &text, 1, nullptr, 1, &destination), VpcaError::kBadArgument);
    EXPECT_EQ(decode(&list_, nullptr, 1, nullptr, 1, &destination), VpcaError::kBadArgument);
    EXPECT_EQ(decode(&list_, &noBytes, 1, nullptr, 1, &destination), VpcaError::kBadArgument);
    EXPECT_EQ(decode(&list_, &text, 0, nullptr, 1, &destination), VpcaError::kBadArgument);
    EXPECT_EQ(decode(&list_, &text, 1, nullptr, 0, &destination), VpcaError::kBadArgument);
    EXPECT_EQ(decode(&list_, &text, 1, nullptr, 1, nullptr), VpcaError::kBadArgument);
    EXPECT_EQ(decode(&list_, &text, 1, &noEntries, 1, &destination), VpcaError::kBadArgument);
    EXPECT_EQ(decode(&list_, &text, 1, &badEntry, 1, &destination), VpcaError::kBadArgument)
        << "an entry of another context is checked too";

    CVPCAAnalyzer analyzer;
    ClientAttributeRequest client{};
    AttributeRequest request;
    EXPECT_FALSE(analyzer.BuildAttributeRequest(nullptr, &request));
    EXPECT_FALSE(analyzer.BuildAttributeRequest(&client, nullptr));
    EXPECT_FALSE(analyzer.FreeAttributeRequest(nullptr));
}

TEST_F(AttributeTest, WithoutTheListFlagAListTypeIsOneElement) {
    const AttributeDescriptor* descriptor = FindAttribute(6012);
    const Bytes wire = Hex("C0000201 00000102");
    EXPECT_EQ(descriptor->measure(wire.data(), 8, false).size, 8u);
    EXPECT_EQ(descriptor->measure(wire.data(), 7, false).size, 0u) << "too short";
    AddressValue value{};
    EXPECT_EQ(descriptor->build(reinterpret_cast<uint8_t*>(&value), wire.data(), 8, false).wireSize, 8u);
    EXPECT_EQ(value.value, 0x0102u);
    Bytes encoded(8);
    uint32_t size = 0;
    VpcaWriteCursor out{encoded.data(), 8};
    ASSERT_EQ(descriptor->encodedSize(&value, false, &size), VpcaError::kSuccess);
    descriptor->encode(&value, false, &out);
    EXPECT_EQ(encoded, wire);
}

TEST_F(AttributeTest, ValuesThatLackTheBytesTheyAnnounceAreNotEncoded) {
    ListValue<Address> list{};
    list.count = 1;
    TextRecord record{};
    record.textLength = 1;
    OpaqueValue opaque{};
    opaque.size = 1;
    const std::pair<uint16_t, const void*> cases[] = {{144, &list}, {2112, &record}, {2, &opaque}};
    for (const auto& [id, value] : cases) {
        const AttributeDescriptor* const descriptor = FindAttribute(id);
        ASSERT_NE(descriptor, nullptr) << id;
        uint32_t size = 0;
        EXPECT_EQ(descriptor->encodedSize(value, true, &size), VpcaError::kBadArgument) << id;
    }
}

}  // namespace
}  // namespace vlm::vpca

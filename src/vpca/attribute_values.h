// What decoded attributes look like in memory. Entries and values lie in one block: the entries first, then
// the values, each on a 4-byte boundary. The structures are therefore packed to 4 bytes: a pointer in one may
// lie on a multiple of 4 that is none of 8, so copy it before you bind a reference to it. Every such pointer
// points into the same block.
#pragma once

#include <cstdint>

namespace vlm::vpca {

struct AttributeEntry {
    // From the schema; 0 in a self-describing list.
    uint16_t kind = 0;
    // 0 for an id that the codec does not know: the true one is in the OpaqueValue.
    uint16_t id = 0;
    const void* value = nullptr;
};

struct AttributeList {
    uint16_t count = 0;
    // `count` entries, or null when decoding failed or the count is 0.
    const AttributeEntry* entries = nullptr;
    // What the values alone, without ids and length bytes, take on the wire.
    uint32_t valueBytes = 0;
};

#pragma pack(push, 4)

// A value whose layout the codec does not know, with all its bytes; an unknown id has such a value, and so
// have most known ones.
struct OpaqueValue {
    uint16_t id;
    // The length byte, which is the low byte of `size`; only an opaque value of a schema can be longer.
    uint8_t length;
    uint8_t reserved0[5];
    const uint8_t* bytes;
    uint32_t size;
    uint32_t reserved1;
};
static_assert(sizeof(OpaqueValue) == 24);

// A counted list. Element is Address or AddressValue.
template <typename Element>
struct ListValue {
    uint8_t count;
    uint8_t reserved[7];
    // Null when the count is 0.
    const Element* elements;
};

// Four bytes in wire order.
struct Address {
    uint8_t bytes[4];
};
static_assert(sizeof(ListValue<Address>) == 16 && sizeof(Address) == 4);

struct AddressValue {
    Address address;
    uint32_t value;
};
static_assert(sizeof(AddressValue) == 8);

// A record with a counted text, which is kept with a terminating zero. The text is the printer's: any byte
// may be in it, zeros too.
struct TextRecord {
    Address address;
    uint8_t textLength;
    uint8_t reserved0[3];
    const char* text;
    uint16_t word1;
    uint16_t word2;
    uint32_t value1;
    uint32_t value2;
    uint8_t byte;
    uint8_t reserved1[11];
};
static_assert(sizeof(TextRecord) == 40);

#pragma pack(pop)

}  // namespace vlm::vpca

// Decoding a list of attributes into one block of memory.
//
// A list on the wire is self-describing (a count byte, then for each attribute u16 id, u8 length, value), or
// a schema tells its attributes, and it is then their values alone, one behind the other.
//
// Decoding walks the bytes twice: the first walk checks everything and adds up the memory, the second one
// builds. So there is one allocation, of a size that only bytes which are really there can claim.
#pragma once

#include <cstdint>

#include "vpca/attribute_values.h"
#include "vpca/cursor.h"
#include "vpca/errors.h"

namespace vlm::vpca {

// In a list of this context the length of the byte string has 16 bits; elsewhere only its low byte counts.
inline constexpr uint16_t kLongListContext = 48;

struct ByteString {
    uint16_t length = 0;
    const uint8_t* bytes = nullptr;
};

// A pair of this kind names a structured attribute by its sub-id; any other kind an attribute.
inline constexpr uint16_t kStructureKind = 99;

struct SchemaPair {
    uint16_t kind;
    uint16_t id;
};

// The attributes of the lists of one context code.
struct SchemaEntry {
    uint16_t context;
    uint16_t pairCount;
    const SchemaPair* pairs;
};

struct AttributeSchema {
    uint32_t count = 0;
    const SchemaEntry* entries = nullptr;
};

// Where a decoded list goes: a buffer of the caller's (aligned to 8, from Allocate() when it may be grown),
// or none, and then the codec allocates one that this record owns. Two lists decoded into the same record
// share its buffer: the second one overwrites the first. Capacities have 32 bits because a list of 64 KiB
// takes more than that in memory.
struct AttributeDestination {
    static constexpr uint8_t kMayGrow = 0x02;
    static constexpr uint8_t kGrown = 0x04;
    static constexpr uint8_t kAllocatedByCodec = 11;

    uint8_t* buffer = nullptr;
    uint32_t capacity = 0;
    uint8_t flags = 0;

    AttributeDestination() = default;
    AttributeDestination(uint8_t* callersBuffer, uint32_t itsCapacity, uint8_t itsFlags = 0)
        : buffer(callersBuffer), capacity(itsCapacity), flags(itsFlags) {}
    AttributeDestination(const AttributeDestination&) = delete;
    AttributeDestination& operator=(const AttributeDestination&) = delete;
    ~AttributeDestination();

    // Makes `size` zeroed bytes available.
    VpcaError Provide(uint32_t size);
};

// `variant` is the protocol version of the frame. On an error `list` has no entries; on success they point
// into the destination's buffer. A value with a known layout has to be as long as its length byte says, which
// holds the low 8 bits of longer ones.
VpcaError DecodeAttributeList(AttributeList* list, const ByteString* text, uint16_t context,
                              const AttributeSchema* schema, uint8_t variant,
                              AttributeDestination* destination);

}  // namespace vlm::vpca

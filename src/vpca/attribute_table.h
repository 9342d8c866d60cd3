// The attributes that the codec knows, and how a value of each is measured, built and encoded.
//
// 1,075 ids are known. The layout of a few is; the values of the others are opaque: their bytes are carried
// as they are. Lookup takes the same time for every id.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "vpca/cursor.h"
#include "vpca/errors.h"
#include "vpca/tables.h"

namespace vlm::vpca {

// What a value takes on the wire, and in memory (a multiple of 4). A size of 0: the bytes are too few for a
// value. (The members are as wide as registers: narrower ones come back through memory, which stalls every
// call.)
struct MeasuredValue {
    size_t wireSize;
    size_t size;
};

// Where the next value may be built (aligned to 4 again), and what this one took on the wire.
struct BuiltValue {
    uint8_t* end;
    size_t wireSize;
};

struct AttributeDescriptor {
    // 0 serves every variant.
    uint8_t variant;
    // False for the row that serves the unknown ids.
    bool known;
    // An opaque value reaches to the limit that it is measured with; in a self-describing list that is its
    // length byte.
    bool opaque;
    // What `value` takes on the wire. `list`: the value of a list type is a list with its count, not one
    // element.
    VpcaError (*encodedSize)(const void* value, bool list, uint32_t* size);
    // Writes a value that encodedSize accepted; the cursor holds at least that size.
    void (*encode)(const void* value, bool list, VpcaWriteCursor* wire);
    // Checks the value at `wire`, where there are `limit` bytes. (No cursor, for the same reason as above.)
    MeasuredValue (*measure)(const uint8_t* wire, uint32_t limit, bool list);
    // Builds a value that `measure` accepted at `area`.
    BuiltValue (*build)(uint8_t* area, const uint8_t* wire, uint32_t limit, bool list);
};

// The layouts. An unknown id has one too: its value is opaque.
enum class AttributeLayout : uint8_t {
    kOpaque,
    kRaw8,
    kRaw28,
    kAddressList,
    kAddressValueList,
    kTextRecord,
    kUnknownId,
};

// By layout.
extern const AttributeDescriptor kLayouts[];

// What every id below the limit is laid out like.
inline constexpr size_t kIdLimit = 14010;
extern const std::array<AttributeLayout, kIdLimit> kLayoutOfId;

// How the value of any id is laid out; decoding a list spends a good part of its time here, hence inline.
// Every id is unknown before RegisterTables().
inline const AttributeDescriptor& DescribeAttribute(uint16_t id, uint8_t variant) {
    const AttributeDescriptor& unknown = kLayouts[static_cast<uint8_t>(AttributeLayout::kUnknownId)];
    if (id >= kIdLimit || !TablesRegistered()) return unknown;
    const AttributeDescriptor& descriptor = kLayouts[static_cast<uint8_t>(kLayoutOfId[id])];
    return descriptor.variant == 0 || descriptor.variant == variant ? descriptor : unknown;
}

// Null for an unknown id.
inline const AttributeDescriptor* FindAttribute(uint16_t id, uint8_t variant) {
    const AttributeDescriptor& descriptor = DescribeAttribute(id, variant);
    return descriptor.known ? &descriptor : nullptr;
}

// The structured attributes, which a schema names by a sub-id. Null as above.
const AttributeDescriptor* FindStructure(uint16_t subId, uint8_t variant);

}  // namespace vlm::vpca

// The attributes that the codec knows, and how a value of each is measured, built and encoded.
//
// 1,075 ids are known. The layout of a few is; the values of the others are opaque: their bytes are carried
// as they are.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "vpca/cursor.h"
#include "vpca/errors.h"
#include "vpca/tables.h"

namespace vlm::vpca {

// What a value takes on the wire, and in memory (a multiple of 4).
struct MeasuredValue {
    size_t wireSize;
    size_t size;
};

// A layout: its operations. `list`: the value of a list type is a list with its count, not one element.
struct AttributeDescriptor {
    // False for the layout that serves the unknown ids.
    bool known;
    // An opaque value reaches to the limit that it is measured with; in a self-describing list that is its
    // length byte.
    bool opaque;
    // What `value` takes on the wire.
    VpcaError (*encodedSize)(const void* value, bool list, uint32_t* size);
    // Writes a value that encodedSize accepted; the cursor holds at least that size.
    void (*encode)(const void* value, bool list, VpcaWriteCursor* wire);
    // Checks the value at `wire`, where there are `limit` bytes. A size of 0: they are too few.
    MeasuredValue (*measure)(const uint8_t* wire, uint32_t limit, bool list);
    // Builds a value that `measure` accepted at `area`, which is zeroed and aligned to 4.
    MeasuredValue (*build)(uint8_t* area, const uint8_t* wire, uint32_t limit, bool list);
};

// The first stands for the unknown ids.
extern const AttributeDescriptor kLayouts[];
// The index of each id's layout. Two lookups for each decoded attribute: a search among ranges of ids would
// cost as much as all the rest of decoding.
inline constexpr size_t kIdLimit = 14010;
extern const std::array<uint8_t, kIdLimit> kLayoutOfId;

// How the value of any id is laid out. Every id is unknown before RegisterTables().
inline const AttributeDescriptor& DescribeAttribute(uint16_t id) {
    return kLayouts[id < kIdLimit && TablesRegistered() ? kLayoutOfId[id] : 0];
}

// Null for an unknown id.
inline const AttributeDescriptor* FindAttribute(uint16_t id) {
    const AttributeDescriptor& descriptor = DescribeAttribute(id);
    return descriptor.known ? &descriptor : nullptr;
}

// The structured attributes, which a schema names by a sub-id. Null as above.
const AttributeDescriptor* FindStructure(uint16_t subId);

}  // namespace vlm::vpca

// The attributes that the codec knows, and how a value of each is measured, built and encoded.
//
// 1,075 ids are known. The layout of a few is; the values of the others are opaque: their bytes are carried
// as they are. Lookup takes the same time for every id.
#pragma once

#include <cstdint>

#include "vpca/cursor.h"
#include "vpca/errors.h"

namespace vlm::vpca {

struct AttributeDescriptor {
    // 0 serves every variant.
    uint8_t variant;
    // An opaque value reaches to the end of the cursor that it is measured on, so a self-describing list cuts
    // the cursor to the length byte first.
    bool opaque;
    // What `value` takes on the wire. `list`: the value of a list type is a list with its count, not one
    // element.
    VpcaError (*encodedSize)(const void* value, bool list, uint32_t* size);
    // Writes a value that encodedSize accepted; the cursor holds at least that size.
    void (*encode)(const void* value, bool list, VpcaWriteCursor* wire);
    // Checks the wire value at the cursor, steps over it and tells the size of the value in memory, a
    // multiple of 4.
    VpcaError (*measure)(VpcaCursor* wire, bool list, uint32_t* size);
    // Builds a value that `measure` accepted at `area`; returns the next free address, which is again aligned
    // to 4.
    uint8_t* (*build)(uint8_t* area, VpcaCursor* wire, bool list);
};

// Null for an unknown id, and for every id before RegisterTables().
const AttributeDescriptor* FindAttribute(uint16_t id, uint8_t variant);

// The structured attributes, which a schema names by a sub-id. Null as above.
const AttributeDescriptor* FindStructure(uint16_t subId, uint8_t variant);

// For the values of unknown ids.
const AttributeDescriptor& OpaqueDescriptor();

}  // namespace vlm::vpca

// A decoded list is right when it encodes to the bytes that it was decoded from.
#pragma once

#include <cstring>
#include <vector>

#include "fuzz_input.h"
#include "vpca/attribute_list.h"

namespace vlm::vpca {

inline void CheckListIsIn(const AttributeList& list, const SchemaEntry* schema, const uint8_t* wire,
                          size_t wireSize) {
    uint32_t size = 0;
    FUZZ_CHECK(EncodedListSize(list, schema, &size) == VpcaError::kSuccess);
    FUZZ_CHECK(size <= wireSize);
    // 1 more than needed, so that the buffer of an empty list has an address.
    std::vector<uint8_t> encoded(size + 1u);
    VpcaWriteCursor cursor{encoded.data(), size};
    FUZZ_CHECK(EncodeAttributeList(list, schema, &cursor) == VpcaError::kSuccess);
    FUZZ_CHECK(cursor.remaining == 0);
    FUZZ_CHECK(std::memcmp(encoded.data(), wire, size) == 0);
    const uint32_t heads = schema == nullptr ? 1u + list.count * 3u : 0;
    FUZZ_CHECK(size == heads + list.valueBytes);
}

}  // namespace vlm::vpca

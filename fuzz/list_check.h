// A decoded list is right when its values encode to the bytes that they were decoded from.
#pragma once

#include <cstring>
#include <vector>

#include "fuzz_input.h"
#include "vpca/attribute_list.h"
#include "vpca/attribute_table.h"

namespace vlm::vpca {

inline void CheckListIsIn(const AttributeList& list, bool selfDescribing, VpcaCursor wire) {
    uint32_t valueBytes = 0;
    FUZZ_CHECK(!selfDescribing || (wire.remaining >= 1 && wire.ReadU8() == list.count));
    for (uint32_t i = 0; i < list.count; ++i) {
        const AttributeEntry& entry = list.entries[i];
        const AttributeDescriptor* const descriptor =
            entry.kind == kStructureKind ? FindStructure(entry.id) : &DescribeAttribute(entry.id);
        uint32_t size = 0;
        FUZZ_CHECK(descriptor->encodedSize(entry.value, true, &size) == VpcaError::kSuccess);
        if (selfDescribing) {
            FUZZ_CHECK(wire.remaining >= 3);
            const uint16_t id = wire.ReadU16();
            FUZZ_CHECK(id ==
                       (descriptor->known ? entry.id : static_cast<const OpaqueValue*>(entry.value)->id));
            FUZZ_CHECK(wire.ReadU8() == static_cast<uint8_t>(size));
        }
        // 1 more than needed, so that the buffer of an empty value has an address.
        std::vector<uint8_t> encoded(size + 1u);
        VpcaWriteCursor cursor{encoded.data(), size};
        descriptor->encode(entry.value, true, &cursor);
        FUZZ_CHECK(cursor.remaining == 0 && size <= wire.remaining);
        FUZZ_CHECK(std::memcmp(encoded.data(), wire.next, size) == 0);
        wire.Skip(size);
        valueBytes += size;
    }
    FUZZ_CHECK(valueBytes == list.valueBytes);
}

}  // namespace vlm::vpca

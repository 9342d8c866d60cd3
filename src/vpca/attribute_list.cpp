#include "vpca/attribute_list.h"

#include <cstring>

#include "vpca/attribute_table.h"
#include "vpca/memory.h"

namespace vlm::vpca {

namespace {

constexpr uint32_t kItemHeadSize = 3;
constexpr uint32_t kMaxSelfDescribed = 255;

// One attribute of a list: what it is and the cursor that its value is read from.
struct Item {
    uint16_t kind = 0;
    uint16_t id = 0;
    const AttributeDescriptor* descriptor = nullptr;
    bool known = false;
};

VpcaError FindDescriptor(const SchemaPair& pair, uint8_t variant, Item* item) {
    item->kind = pair.kind;
    item->id = pair.id;
    item->known = true;
    if (pair.kind == kStructureKind) {
        item->descriptor = FindStructure(pair.id, variant);
        return item->descriptor != nullptr ? VpcaError::kSuccess : VpcaError::kUnknownStructure;
    }
    item->descriptor = FindAttribute(pair.id, variant);
    return item->descriptor != nullptr ? VpcaError::kSuccess : VpcaError::kUnknownAttribute;
}

// Both walks over a list read their items with this class, so that they cannot disagree about where a value
// lies.
class ListReader {
 public:
    ListReader(VpcaCursor wire, const SchemaEntry* schema, uint8_t variant)
        : wire_(wire), schema_(schema), variant_(variant) {}

    // Reads the head of the next item, and calls `use(item, cursor)`, which has to step over the value.
    template <typename Use>
    VpcaError Next(uint32_t index, Use&& use) {
        Item item;
        if (schema_ != nullptr) {
            const VpcaError error = FindDescriptor(schema_->pairs[index], variant_, &item);
            if (error != VpcaError::kSuccess) return error;
            return use(item, &wire_);
        }
        if (wire_.remaining < kItemHeadSize) return VpcaError::kTooShort;
        item.id = wire_.ReadU16();
        const uint8_t length = wire_.ReadU8();
        item.descriptor = FindAttribute(item.id, variant_);
        item.known = item.descriptor != nullptr;
        if (!item.known) item.descriptor = &OpaqueDescriptor();
        if (item.descriptor->opaque) {
            if (wire_.remaining < length) return VpcaError::kTooShort;
            VpcaCursor value{wire_.next, length};
            wire_.Skip(length);
            return use(item, &value);
        }
        const uint32_t before = wire_.remaining;
        const VpcaError error = use(item, &wire_);
        if (error != VpcaError::kSuccess) return error;
        return static_cast<uint8_t>(before - wire_.remaining) == length ? VpcaError::kSuccess
                                                                        : VpcaError::kTooShort;
    }

 private:
    VpcaCursor wire_;
    const SchemaEntry* schema_;
    uint8_t variant_;
};

VpcaError CheckSchema(const AttributeSchema& schema) {
    if (schema.count != 0 && schema.entries == nullptr) return VpcaError::kBadArgument;
    for (uint32_t i = 0; i < schema.count; ++i) {
        if (schema.entries[i].pairCount != 0 && schema.entries[i].pairs == nullptr)
            return VpcaError::kBadArgument;
    }
    return VpcaError::kSuccess;
}

const SchemaEntry* FindContext(const AttributeSchema* schema, uint16_t context) {
    if (schema == nullptr) return nullptr;
    for (uint32_t i = 0; i < schema->count; ++i) {
        if (schema->entries[i].context == context) return &schema->entries[i];
    }
    return nullptr;
}

void BuildList(ListReader reader, uint16_t count, uint8_t* block, AttributeList* list) {
    auto* entries = reinterpret_cast<AttributeEntry*>(block);
    uint8_t* area = block + count * sizeof(AttributeEntry);
    for (uint32_t i = 0; i < count; ++i) {
        AttributeEntry& entry = entries[i];
        const VpcaError error = reader.Next(i, [&](const Item& item, VpcaCursor* value) {
            entry.kind = item.kind;
            entry.id = item.known ? item.id : uint16_t{0};
            entry.value = area;
            if (item.descriptor->opaque) reinterpret_cast<OpaqueValue*>(area)->id = item.id;
            area = item.descriptor->build(area, value, true);
            return VpcaError::kSuccess;
        });
        // The first walk has accepted every item.
        static_cast<void>(error);
    }
    list->entries = entries;
}

// Calls `use(entry, descriptor, size)` for each attribute that is to be encoded.
template <typename Use>
VpcaError ForEachEncoded(const AttributeList& list, const SchemaEntry* schema, uint8_t variant, Use&& use) {
    if (list.count != 0 && list.entries == nullptr) return VpcaError::kBadArgument;
    if (schema != nullptr ? schema->pairCount != list.count : list.count > kMaxSelfDescribed) {
        return VpcaError::kBadArgument;
    }
    for (uint32_t i = 0; i < list.count; ++i) {
        const AttributeEntry& entry = list.entries[i];
        if (entry.value == nullptr) return VpcaError::kBadArgument;
        const AttributeDescriptor* descriptor = &OpaqueDescriptor();
        if (schema != nullptr || entry.id != 0) {
            Item item;
            const SchemaPair pair = schema != nullptr ? schema->pairs[i] : SchemaPair{0, entry.id};
            const VpcaError found = FindDescriptor(pair, variant, &item);
            if (found != VpcaError::kSuccess) return found;
            descriptor = item.descriptor;
        }
        uint32_t size = 0;
        VpcaError error = descriptor->encodedSize(entry.value, true, &size);
        if (error != VpcaError::kSuccess) return error;
        // Without a layout only the length byte tells where the value ends.
        if (schema == nullptr && descriptor->opaque && size > 255) return VpcaError::kTooShort;
        error = use(entry, *descriptor, size);
        if (error != VpcaError::kSuccess) return error;
    }
    return VpcaError::kSuccess;
}

}  // namespace

AttributeDestination::~AttributeDestination() {
    if ((flags & kAllocatedByCodec) == kAllocatedByCodec) Free(buffer);
}

VpcaError AttributeDestination::Provide(uint32_t size) {
    if (buffer == nullptr) {
        buffer = static_cast<uint8_t*>(Allocate(size));
        if (buffer == nullptr) return VpcaError::kOutOfMemory;
        capacity = size;
        flags = kAllocatedByCodec;
        return VpcaError::kSuccess;
    }
    if (capacity < size) {
        if ((flags & kMayGrow) == 0) return VpcaError::kBufferTooSmall;
        void* const grown = Reallocate(buffer, size);
        if (grown == nullptr) return VpcaError::kOutOfMemory;
        buffer = static_cast<uint8_t*>(grown);
        capacity = size;
        flags |= kGrown;
    }
    std::memset(buffer, 0, size);
    return VpcaError::kSuccess;
}

VpcaError DecodeAttributeList(AttributeList* list, const ByteString* text, uint16_t context,
                              const AttributeSchema* schema, uint8_t variant,
                              AttributeDestination* destination) {
    if (list == nullptr || text == nullptr || text->bytes == nullptr || context == 0 || variant == 0 ||
        destination == nullptr) {
        return VpcaError::kBadArgument;
    }
    *list = {};
    if (schema != nullptr) {
        const VpcaError error = CheckSchema(*schema);
        if (error != VpcaError::kSuccess) return error;
    }
    const SchemaEntry* const entry = FindContext(schema, context);

    VpcaCursor wire{text->bytes, context == kLongListContext ? text->length : text->length & 0xFFu};
    if (entry != nullptr) {
        list->count = entry->pairCount;
    } else {
        if (wire.remaining == 0) return VpcaError::kTooShort;
        list->count = wire.ReadU8();
    }
    if (list->count == 0) return VpcaError::kSuccess;

    // The second walk looks the descriptors up again: that costs less than an array to keep them in.
    const ListReader start(wire, entry, variant);
    auto blockSize = static_cast<uint32_t>(list->count * sizeof(AttributeEntry));
    ListReader reader = start;
    for (uint32_t i = 0; i < list->count; ++i) {
        const VpcaError error = reader.Next(i, [&](const Item& item, VpcaCursor* value) {
            const uint32_t before = value->remaining;
            uint32_t size = 0;
            const VpcaError measured = item.descriptor->measure(value, true, &size);
            blockSize += size;
            list->valueBytes += before - value->remaining;
            return measured;
        });
        if (error != VpcaError::kSuccess) return error;
    }

    const VpcaError error = destination->Provide(blockSize);
    if (error != VpcaError::kSuccess) return error;
    BuildList(start, list->count, destination->buffer, list);
    return VpcaError::kSuccess;
}

VpcaError EncodedListSize(const AttributeList& list, const SchemaEntry* schema, uint8_t variant,
                          uint32_t* size) {
    *size = schema == nullptr ? 1 : 0;
    return ForEachEncoded(list, schema, variant,
                          [&](const AttributeEntry&, const AttributeDescriptor&, uint32_t valueSize) {
                              *size += valueSize + (schema == nullptr ? kItemHeadSize : 0);
                              return VpcaError::kSuccess;
                          });
}

VpcaError EncodeAttributeList(const AttributeList& list, const SchemaEntry* schema, uint8_t variant,
                              VpcaWriteCursor* wire) {
    uint32_t size = 0;
    const VpcaError error = EncodedListSize(list, schema, variant, &size);
    if (error != VpcaError::kSuccess) return error;
    if (wire->remaining < size) return VpcaError::kBufferTooSmall;

    if (schema == nullptr) wire->WriteU8(static_cast<uint8_t>(list.count));
    return ForEachEncoded(
        list, schema, variant,
        [&](const AttributeEntry& entry, const AttributeDescriptor& descriptor, uint32_t valueSize) {
            if (schema == nullptr) {
                wire->WriteU16(entry.id != 0 ? entry.id : static_cast<const OpaqueValue*>(entry.value)->id);
                wire->WriteU8(static_cast<uint8_t>(valueSize));
            }
            descriptor.encode(entry.value, true, wire);
            return VpcaError::kSuccess;
        });
}

}  // namespace vlm::vpca

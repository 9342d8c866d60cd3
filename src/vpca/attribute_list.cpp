#include "vpca/attribute_list.h"

#include <cstring>
#include <utility>

#include "vpca/attribute_table.h"
#include "vpca/memory.h"

namespace vlm::vpca {

namespace {

constexpr uint32_t kItemHeadSize = 3;

VpcaError FindDescriptor(SchemaPair pair, const AttributeDescriptor** descriptor) {
    const bool structured = pair.kind == kStructureKind;
    *descriptor = structured ? FindStructure(pair.id) : FindAttribute(pair.id);
    if (*descriptor != nullptr) return VpcaError::kSuccess;
    return structured ? VpcaError::kUnknownStructure : VpcaError::kUnknownAttribute;
}

// One attribute of a list, before its value is looked at.
struct Item {
    uint16_t kind = 0;
    uint16_t id = 0;
    const AttributeDescriptor* descriptor = nullptr;
    // From the value on, to its end where that is told from outside the value.
    VpcaCursor value;
};

// Both passes over a list read it with one of these two readers, so that they cannot disagree about where a
// value lies. Next() finds the next value, Pass() is told how long it turned out to be.

struct SelfDescribingReader {
    VpcaCursor wire;
    uint8_t length = 0;

    VpcaError Next(Item* item) {
        if (wire.remaining < kItemHeadSize) return VpcaError::kTooShort;
        item->id = wire.ReadU16();
        length = wire.ReadU8();
        if (length > wire.remaining) return VpcaError::kTooShort;
        item->descriptor = &DescribeAttribute(item->id);
        item->value = {wire.next, item->descriptor->opaque ? length : wire.remaining};
        return VpcaError::kSuccess;
    }
    VpcaError Pass(size_t size) {
        wire.Skip(static_cast<uint32_t>(size));
        // The length byte holds the low 8 bits of a longer value.
        return static_cast<uint8_t>(size) == length ? VpcaError::kSuccess : VpcaError::kTooShort;
    }
};

struct SchemaReader {
    VpcaCursor wire;
    const SchemaPair* pair;

    VpcaError Next(Item* item) {
        item->kind = pair->kind;
        item->id = pair->id;
        item->value = wire;
        return FindDescriptor(*pair++, &item->descriptor);
    }
    VpcaError Pass(size_t size) {
        wire.Skip(static_cast<uint32_t>(size));
        return VpcaError::kSuccess;
    }
};

// The first pass: adds up what the values take on the wire and in memory.
template <typename Reader>
VpcaError Measure(Reader reader, uint32_t count, MeasuredValue* values) {
    MeasuredValue sum{};
    for (uint32_t i = 0; i < count; ++i) {
        Item item;
        VpcaError error = reader.Next(&item);
        if (error != VpcaError::kSuccess) return error;
        const MeasuredValue value = item.descriptor->measure(item.value.next, item.value.remaining, true);
        if (value.size == 0) return VpcaError::kTooShort;
        error = reader.Pass(value.wireSize);
        if (error != VpcaError::kSuccess) return error;
        sum.wireSize += value.wireSize;
        sum.size += value.size;
    }
    *values = sum;
    return VpcaError::kSuccess;
}

// The second pass, over bytes that the first one has accepted: the entries at the start of the block, the
// values behind them.
template <typename Reader>
const AttributeEntry* Build(Reader reader, uint32_t count, uint8_t* block) {
    auto* const entries = reinterpret_cast<AttributeEntry*>(block);
    uint8_t* area = block + count * sizeof(AttributeEntry);
    for (uint32_t i = 0; i < count; ++i) {
        Item item;
        if (reader.Next(&item) != VpcaError::kSuccess) break;  // cannot happen after the first pass
        entries[i] = {item.kind, item.descriptor->known ? item.id : uint16_t{0}, area};
        if (item.descriptor->opaque) reinterpret_cast<OpaqueValue*>(area)->id = item.id;
        const MeasuredValue built = item.descriptor->build(area, item.value.next, item.value.remaining, true);
        static_cast<void>(reader.Pass(built.wireSize));
        area += built.size;
    }
    return entries;
}

template <typename Reader>
VpcaError Decode(Reader reader, AttributeList* list, AttributeDestination* destination) {
    MeasuredValue values{};
    VpcaError error = Measure(reader, list->count, &values);
    if (error != VpcaError::kSuccess) return error;
    error = destination->Provide(static_cast<uint32_t>(list->count * sizeof(AttributeEntry) + values.size));
    if (error != VpcaError::kSuccess) return error;
    list->valueBytes = static_cast<uint32_t>(values.wireSize);
    list->entries = Build(reader, list->count, destination->buffer);
    return VpcaError::kSuccess;
}

// The first entry of a context; null when there is none.
VpcaError FindContext(const AttributeSchema& schema, uint16_t context, const SchemaEntry** found) {
    if (schema.count != 0 && schema.entries == nullptr) return VpcaError::kBadArgument;
    for (uint32_t i = schema.count; i-- > 0;) {
        const SchemaEntry& entry = schema.entries[i];
        if (entry.pairCount != 0 && entry.pairs == nullptr) return VpcaError::kBadArgument;
        if (entry.context == context) *found = &entry;
    }
    return VpcaError::kSuccess;
}

// How the value of an entry is to be encoded, and its size. `pair` is null in a self-describing list.
VpcaError DescribeEntry(const AttributeEntry& entry, const SchemaPair* pair,
                        const AttributeDescriptor** descriptor, uint32_t* size) {
    if (entry.value == nullptr) return VpcaError::kBadArgument;
    *descriptor = &kLayouts[0];
    if (pair != nullptr || entry.id != 0) {
        const VpcaError found = FindDescriptor(pair != nullptr ? *pair : SchemaPair{0, entry.id}, descriptor);
        if (found != VpcaError::kSuccess) return found;
    }
    const VpcaError error = (*descriptor)->encodedSize(entry.value, true, size);
    // Without a layout only the length byte tells where the value ends.
    const bool fits = pair != nullptr || !(*descriptor)->opaque || *size <= UINT8_MAX;
    return error == VpcaError::kSuccess && !fits ? VpcaError::kTooShort : error;
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
        auto* const grown = static_cast<uint8_t*>(Allocate(size));
        if (grown == nullptr) return VpcaError::kOutOfMemory;
        Free(std::exchange(buffer, grown));
        capacity = size;
        flags |= kGrown;
        return VpcaError::kSuccess;
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
    const SchemaEntry* entry = nullptr;
    if (schema != nullptr) {
        const VpcaError error = FindContext(*schema, context, &entry);
        if (error != VpcaError::kSuccess) return error;
    }

    VpcaCursor wire{text->bytes, context == kLongListContext ? text->length : text->length & 0xFFu};
    if (entry != nullptr) {
        list->count = entry->pairCount;
    } else {
        if (wire.remaining == 0) return VpcaError::kTooShort;
        list->count = wire.ReadU8();
    }
    if (list->count == 0) return VpcaError::kSuccess;

    return entry != nullptr ? Decode(SchemaReader{wire, entry->pairs}, list, destination)
                            : Decode(SelfDescribingReader{wire}, list, destination);
}

VpcaError EncodedListSize(const AttributeList& list, const SchemaEntry* schema, uint32_t* size) {
    if (list.count != 0 && list.entries == nullptr) return VpcaError::kBadArgument;
    if (schema != nullptr ? schema->pairCount != list.count : list.count > UINT8_MAX)
        return VpcaError::kBadArgument;
    *size = schema == nullptr ? 1u + list.count * kItemHeadSize : 0;
    for (uint16_t i = 0; i < list.count; ++i) {
        const AttributeDescriptor* descriptor = nullptr;
        uint32_t valueSize = 0;
        const VpcaError error = DescribeEntry(
            list.entries[i], schema != nullptr ? &schema->pairs[i] : nullptr, &descriptor, &valueSize);
        if (error != VpcaError::kSuccess) return error;
        *size += valueSize;
    }
    return VpcaError::kSuccess;
}

VpcaError EncodeAttributeList(const AttributeList& list, const SchemaEntry* schema, VpcaWriteCursor* wire) {
    uint32_t size = 0;
    VpcaError error = EncodedListSize(list, schema, &size);
    if (error != VpcaError::kSuccess) return error;
    if (wire->remaining < size) return VpcaError::kBufferTooSmall;

    if (schema == nullptr) wire->WriteU8(static_cast<uint8_t>(list.count));
    for (uint16_t i = 0; i < list.count; ++i) {
        const AttributeEntry& entry = list.entries[i];
        const AttributeDescriptor* descriptor = nullptr;
        error = DescribeEntry(entry, schema != nullptr ? &schema->pairs[i] : nullptr, &descriptor, &size);
        if (error != VpcaError::kSuccess) return error;
        if (schema == nullptr) {
            wire->WriteU16(entry.id != 0 ? entry.id : static_cast<const OpaqueValue*>(entry.value)->id);
            wire->WriteU8(static_cast<uint8_t>(size));
        }
        descriptor->encode(entry.value, true, wire);
    }
    return VpcaError::kSuccess;
}

}  // namespace vlm::vpca

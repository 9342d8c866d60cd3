#include "vpca/attribute_list.h"

#include <cstring>
#include <utility>

#include "vpca/attribute_table.h"
#include "vpca/memory.h"

namespace vlm::vpca {

namespace {

constexpr uint32_t kItemHeadSize = 3;

// One attribute of a list, before its value is looked at.
struct Item {
    uint16_t kind = 0;
    uint16_t id = 0;
    const AttributeDescriptor* descriptor = nullptr;
    // From the value on, to its end where that is told from outside the value.
    VpcaCursor value;
};

// Both passes over a list read it with one of these, so that they cannot disagree about where a value lies.
// Next() finds the next value; then `wire` is moved past it. (One for both kinds of lists would cost each
// attribute a twentieth of its time.)

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
    // The length byte holds the low 8 bits of a longer value.
    bool Fits(size_t size) const { return static_cast<uint8_t>(size) == length; }
};

struct SchemaReader {
    VpcaCursor wire;
    const SchemaPair* pair;

    VpcaError Next(Item* item) {
        const bool structured = pair->kind == kStructureKind;
        const uint16_t id = pair->id;
        *item = {pair->kind, id, structured ? FindStructure(id) : FindAttribute(id), wire};
        ++pair;
        if (item->descriptor != nullptr) return VpcaError::kSuccess;
        return structured ? VpcaError::kUnknownStructure : VpcaError::kUnknownAttribute;
    }
    static bool Fits(size_t) { return true; }
};

// The first pass: adds up what the values take on the wire and in memory.
template <typename Reader>
VpcaError Measure(Reader reader, uint32_t count, MeasuredValue* values) {
    MeasuredValue sum{};
    for (uint32_t i = 0; i < count; ++i) {
        Item item;
        const VpcaError error = reader.Next(&item);
        if (error != VpcaError::kSuccess) return error;
        const MeasuredValue value = item.descriptor->measure(item.value.next, item.value.remaining, true);
        if (value.size == 0 || !reader.Fits(value.wireSize)) return VpcaError::kTooShort;
        reader.wire.Skip(static_cast<uint32_t>(value.wireSize));
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
        reader.wire.Skip(static_cast<uint32_t>(built.wireSize));
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

}  // namespace vlm::vpca

#include "vpca/attribute_list.h"

#include <cstring>

#include "vpca/attribute_table.h"
#include "vpca/memory.h"

namespace vlm::vpca {

namespace {

constexpr uint32_t kItemHeadSize = 3;
constexpr uint32_t kMaxSelfDescribed = 255;

// One attribute of a list, before its value is looked at.
struct Item {
    uint16_t kind;
    uint16_t id;
    const AttributeDescriptor* descriptor;
    // From the value on, to its end where that is told from outside the value.
    VpcaCursor value;
};

VpcaError FindDescriptor(SchemaPair pair, uint8_t variant, const AttributeDescriptor** descriptor) {
    const bool structured = pair.kind == kStructureKind;
    *descriptor = structured ? FindStructure(pair.id, variant) : FindAttribute(pair.id, variant);
    if (*descriptor != nullptr) return VpcaError::kSuccess;
    return structured ? VpcaError::kUnknownStructure : VpcaError::kUnknownAttribute;
}

// Both walks over a list read it with one of these two readers, so that they cannot disagree about where a
// value lies. Next() finds the next value, Accept() is told how long it turned out to be.

class SelfDescribingReader {
 public:
    SelfDescribingReader(VpcaCursor wire, uint8_t variant) : wire_(wire), variant_(variant) {}

    VpcaError Next(Item* item) {
        if (wire_.remaining < kItemHeadSize) return VpcaError::kTooShort;
        item->kind = 0;
        item->id = wire_.ReadU16();
        length_ = wire_.ReadU8();
        if (length_ > wire_.remaining) return VpcaError::kTooShort;
        item->descriptor = &DescribeAttribute(item->id, variant_);
        item->value = {wire_.next, item->descriptor->opaque ? length_ : wire_.remaining};
        // Past the value at once, so that the next head is read without waiting for this value's operations.
        wire_.Skip(length_);
        return VpcaError::kSuccess;
    }
    VpcaError Accept(size_t wireSize) {
        if (wireSize == length_) return VpcaError::kSuccess;
        if (static_cast<uint8_t>(wireSize) != length_) return VpcaError::kTooShort;
        wire_.Skip(static_cast<uint32_t>(wireSize - length_));
        return VpcaError::kSuccess;
    }

 private:
    VpcaCursor wire_;
    uint8_t variant_;
    uint8_t length_ = 0;
};

class SchemaReader {
 public:
    SchemaReader(VpcaCursor wire, const SchemaEntry& schema, uint8_t variant)
        : wire_(wire), pair_(schema.pairs), variant_(variant) {}

    VpcaError Next(Item* item) {
        item->kind = pair_->kind;
        item->id = pair_->id;
        item->value = wire_;
        return FindDescriptor(*pair_++, variant_, &item->descriptor);
    }
    VpcaError Accept(size_t wireSize) {
        wire_.Skip(static_cast<uint32_t>(wireSize));
        return VpcaError::kSuccess;
    }

 private:
    VpcaCursor wire_;
    const SchemaPair* pair_;
    uint8_t variant_;
};

// The first walk: adds up the memory for the values and their bytes on the wire.
template <typename Reader>
VpcaError Measure(Reader reader, uint16_t count, uint32_t* memory, uint32_t* wireBytes) {
    size_t size = 0;
    size_t wireSize = 0;
    for (uint32_t i = 0; i < count; ++i) {
        Item item;
        VpcaError error = reader.Next(&item);
        if (error != VpcaError::kSuccess) return error;
        const MeasuredValue measured = item.descriptor->measure(item.value.next, item.value.remaining, true);
        if (measured.size == 0) return VpcaError::kTooShort;
        error = reader.Accept(measured.wireSize);
        if (error != VpcaError::kSuccess) return error;
        size += measured.size;
        wireSize += measured.wireSize;
    }
    *memory = static_cast<uint32_t>(size);
    *wireBytes = static_cast<uint32_t>(wireSize);
    return VpcaError::kSuccess;
}

// The second walk, over bytes that the first one has accepted: the entries at the start of the block, the
// values behind them. It looks the descriptors up again: that costs less than an array to keep them in.
template <typename Reader>
const AttributeEntry* Build(Reader reader, uint16_t count, uint8_t* block) {
    auto* const entries = reinterpret_cast<AttributeEntry*>(block);
    uint8_t* area = block + count * sizeof(AttributeEntry);
    for (uint32_t i = 0; i < count; ++i) {
        Item item;
        if (reader.Next(&item) != VpcaError::kSuccess) break;  // cannot happen after the first walk
        entries[i] = {item.kind, item.descriptor->known ? item.id : uint16_t{0}, area};
        if (item.descriptor->opaque) reinterpret_cast<OpaqueValue*>(area)->id = item.id;
        const BuiltValue built = item.descriptor->build(area, item.value.next, item.value.remaining, true);
        static_cast<void>(reader.Accept(built.wireSize));
        area = built.end;
    }
    return entries;
}

template <typename Reader>
VpcaError Decode(const Reader& reader, AttributeList* list, AttributeDestination* destination) {
    uint32_t memory = 0;
    VpcaError error = Measure(reader, list->count, &memory, &list->valueBytes);
    if (error != VpcaError::kSuccess) return error;
    error = destination->Provide(static_cast<uint32_t>(list->count * sizeof(AttributeEntry)) + memory);
    if (error != VpcaError::kSuccess) return error;
    list->entries = Build(reader, list->count, destination->buffer);
    return VpcaError::kSuccess;
}

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
        const AttributeDescriptor* descriptor = &kLayouts[static_cast<uint8_t>(AttributeLayout::kUnknownId)];
        if (schema != nullptr || entry.id != 0) {
            const SchemaPair pair = schema != nullptr ? schema->pairs[i] : SchemaPair{0, entry.id};
            const VpcaError found = FindDescriptor(pair, variant, &descriptor);
            if (found != VpcaError::kSuccess) return found;
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

    return entry != nullptr ? Decode(SchemaReader(wire, *entry, variant), list, destination)
                            : Decode(SelfDescribingReader(wire, variant), list, destination);
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

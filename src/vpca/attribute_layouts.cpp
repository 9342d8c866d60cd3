// The layouts of attribute values: for each the four operations that AttributeDescriptor describes.
#include <cstring>

#include "vpca/attribute_table.h"
#include "vpca/attribute_values.h"
#include "vpca/log.h"

namespace vlm::vpca {

namespace {

MeasuredValue RefuseMeasure(int line) {
    Log(LogLevel::kError, kLogMeasure, line);
    return {0, 0};
}

VpcaError RefuseEncode(VpcaError error, int line) {
    Log(LogLevel::kError, kLogEncodedSize, line);
    return error;
}

template <typename Value>
const Value& As(const void* value) {
    return *static_cast<const Value*>(value);
}

// Most values are so short that calling memcpy would cost more than the copy. Those of 4 to 16 bytes are two
// copies of a fixed size, which overlap.
void CopyValue(uint8_t* to, const uint8_t* from, size_t count) {
    if (count > 16) {
        std::memcpy(to, from, count);
    } else if (count >= 8) {
        std::memcpy(to, from, 8);
        std::memcpy(to + count - 8, from + count - 8, 8);
    } else if (count >= 4) {
        std::memcpy(to, from, 4);
        std::memcpy(to + count - 4, from + count - 4, 4);
    } else {
        for (size_t i = 0; i < count; ++i)
            to[i] = from[i];
    }
}

template <uint32_t Size>
struct Raw {
    static VpcaError EncodedSize(const void*, bool, uint32_t* size) {
        *size = Size;
        return VpcaError::kSuccess;
    }
    static void Encode(const void* value, bool, VpcaWriteCursor* wire) { wire->WriteBytes(value, Size); }
    static MeasuredValue Measure(const uint8_t*, uint32_t limit, bool) {
        return limit < Size ? RefuseMeasure(__LINE__) : MeasuredValue{Size, RoundUp4(Size)};
    }
    static BuiltValue Build(uint8_t* area, const uint8_t* wire, uint32_t, bool) {
        std::memcpy(area, wire, Size);
        return {area + RoundUp4(Size), Size};
    }
};

void ReadElement(VpcaCursor* wire, Address* element) {
    wire->ReadBytes(element->bytes, sizeof element->bytes);
}
void WriteElement(const Address& element, VpcaWriteCursor* wire) {
    wire->WriteBytes(element.bytes, sizeof element.bytes);
}

void ReadElement(VpcaCursor* wire, AddressValue* element) {
    ReadElement(wire, &element->address);
    element->value = wire->ReadU32();
}
void WriteElement(const AddressValue& element, VpcaWriteCursor* wire) {
    WriteElement(element.address, wire);
    wire->WriteU32(element.value);
}

// An element takes as many bytes on the wire as in memory.
template <typename Element>
struct List {
    static constexpr uint32_t kSize = sizeof(Element);

    static VpcaError EncodedSize(const void* value, bool list, uint32_t* size) {
        *size = kSize;
        if (!list) return VpcaError::kSuccess;
        const auto& listed = As<ListValue<Element>>(value);
        if (listed.count != 0 && listed.elements == nullptr) {
            return RefuseEncode(VpcaError::kBadArgument, __LINE__);
        }
        *size = 1 + listed.count * kSize;
        return VpcaError::kSuccess;
    }
    static void Encode(const void* value, bool list, VpcaWriteCursor* wire) {
        if (!list) {
            WriteElement(As<Element>(value), wire);
            return;
        }
        const auto& listed = As<ListValue<Element>>(value);
        wire->WriteU8(listed.count);
        for (uint8_t i = 0; i < listed.count; ++i)
            WriteElement(listed.elements[i], wire);
    }
    static MeasuredValue Measure(const uint8_t* wire, uint32_t limit, bool list) {
        if (!list) return limit < kSize ? RefuseMeasure(__LINE__) : MeasuredValue{kSize, kSize};
        if (limit < 1) return RefuseMeasure(__LINE__);
        const uint32_t bytes = wire[0] * kSize;
        if (limit < 1 + bytes) return RefuseMeasure(__LINE__);
        return {1 + bytes, sizeof(ListValue<Element>) + bytes};
    }
    static BuiltValue Build(uint8_t* area, const uint8_t* bytes, uint32_t limit, bool list) {
        VpcaCursor wire{bytes, limit};
        if (!list) {
            ReadElement(&wire, reinterpret_cast<Element*>(area));
            return {area + kSize, kSize};
        }
        auto* value = reinterpret_cast<ListValue<Element>*>(area);
        auto* elements = reinterpret_cast<Element*>(value + 1);
        const uint8_t count = wire.ReadU8();
        value->count = count;
        value->elements = count != 0 ? elements : nullptr;
        for (uint32_t i = 0; i < count; ++i)
            ReadElement(&wire, &elements[i]);
        return {reinterpret_cast<uint8_t*>(elements + count), 1 + count * kSize};
    }
};

struct Text {
    // Everything but the text.
    static constexpr uint32_t kFixedSize = 18;

    static VpcaError EncodedSize(const void* value, bool, uint32_t* size) {
        const auto& record = As<TextRecord>(value);
        if (record.textLength != 0 && record.text == nullptr) {
            return RefuseEncode(VpcaError::kBadArgument, __LINE__);
        }
        *size = kFixedSize + record.textLength;
        return VpcaError::kSuccess;
    }
    static void Encode(const void* value, bool, VpcaWriteCursor* wire) {
        const auto& record = As<TextRecord>(value);
        WriteElement(record.address, wire);
        wire->WriteU8(record.textLength);
        wire->WriteBytes(record.text, record.textLength);
        wire->WriteU16(record.word1);
        wire->WriteU16(record.word2);
        wire->WriteU32(record.value1);
        wire->WriteU32(record.value2);
        wire->WriteU8(record.byte);
    }
    static MeasuredValue Measure(const uint8_t* wire, uint32_t limit, bool) {
        if (limit < kFixedSize) return RefuseMeasure(__LINE__);
        const uint8_t textLength = wire[sizeof(Address)];
        if (limit < kFixedSize + textLength) return RefuseMeasure(__LINE__);
        return {kFixedSize + textLength, sizeof(TextRecord) + RoundUp4(textLength + 1u)};
    }
    static BuiltValue Build(uint8_t* area, const uint8_t* bytes, uint32_t limit, bool) {
        VpcaCursor wire{bytes, limit};
        auto* record = reinterpret_cast<TextRecord*>(area);
        auto* text = reinterpret_cast<uint8_t*>(record + 1);
        ReadElement(&wire, &record->address);
        const uint8_t textLength = wire.ReadU8();
        record->textLength = textLength;
        record->text = reinterpret_cast<const char*>(text);
        CopyValue(text, wire.next, textLength);
        wire.Skip(textLength);
        text[textLength] = 0;
        record->word1 = wire.ReadU16();
        record->word2 = wire.ReadU16();
        record->value1 = wire.ReadU32();
        record->value2 = wire.ReadU32();
        record->byte = wire.ReadU8();
        return {text + RoundUp4(textLength + 1u), kFixedSize + textLength};
    }
};

struct Opaque {
    static VpcaError EncodedSize(const void* value, bool, uint32_t* size) {
        const auto& opaque = As<OpaqueValue>(value);
        if (opaque.size != 0 && opaque.bytes == nullptr)
            return RefuseEncode(VpcaError::kBadArgument, __LINE__);
        *size = opaque.size;
        return VpcaError::kSuccess;
    }
    static void Encode(const void* value, bool, VpcaWriteCursor* wire) {
        const auto& opaque = As<OpaqueValue>(value);
        wire->WriteBytes(opaque.bytes, opaque.size);
    }
    static MeasuredValue Measure(const uint8_t*, uint32_t limit, bool) {
        return {limit, sizeof(OpaqueValue) + RoundUp4(limit)};
    }
    static BuiltValue Build(uint8_t* area, const uint8_t* wire, uint32_t limit, bool) {
        auto* value = reinterpret_cast<OpaqueValue*>(area);
        auto* bytes = reinterpret_cast<uint8_t*>(value + 1);
        value->length = static_cast<uint8_t>(limit);
        value->bytes = bytes;
        value->size = limit;
        CopyValue(bytes, wire, limit);
        return {bytes + RoundUp4(limit), limit};
    }
};

template <typename Layout>
constexpr AttributeDescriptor Describe(bool known = true, bool opaque = false) {
    return {0, known, opaque, Layout::EncodedSize, Layout::Encode, Layout::Measure, Layout::Build};
}

}  // namespace

// In the order of AttributeLayout.
constexpr AttributeDescriptor kLayouts[] = {
    Describe<Opaque>(true, true),
    Describe<Raw<8>>(),
    Describe<Raw<28>>(),
    Describe<List<Address>>(),
    Describe<List<AddressValue>>(),
    Describe<Text>(),
    Describe<Opaque>(false, true),
};

}  // namespace vlm::vpca

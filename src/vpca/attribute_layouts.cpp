#include "vpca/attribute_layouts.h"

#include "vpca/attribute_values.h"
#include "vpca/log.h"

namespace vlm::vpca {

namespace {

VpcaError RefuseMeasure(int line) {
    Log(LogLevel::kError, kLogMeasure, line);
    return VpcaError::kTooShort;
}

VpcaError RefuseEncode(VpcaError error, int line) {
    Log(LogLevel::kError, kLogEncodedSize, line);
    return error;
}

template <typename Value>
const Value& As(const void* value) {
    return *static_cast<const Value*>(value);
}

// Fixed size
// ------------------------------------------------------------------------------------------------------

template <uint32_t Size>
struct Raw {
    static VpcaError EncodedSize(const void*, bool, uint32_t* size) {
        *size = Size;
        return VpcaError::kSuccess;
    }
    static void Encode(const void* value, bool, VpcaWriteCursor* wire) { wire->WriteBytes(value, Size); }
    static VpcaError Measure(VpcaCursor* wire, bool, uint32_t* size) {
        if (wire->remaining < Size) return RefuseMeasure(__LINE__);
        wire->Skip(Size);
        *size = Size;
        return VpcaError::kSuccess;
    }
    static uint8_t* Build(uint8_t* area, VpcaCursor* wire, bool) {
        wire->ReadBytes(area, Size);
        return area + RoundUp4(Size);
    }
};

// Counted lists
// ---------------------------------------------------------------------------------------------------

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
    static VpcaError EncodedSize(const void* value, bool list, uint32_t* size) {
        *size = sizeof(Element);
        if (!list) return VpcaError::kSuccess;
        const auto& listed = As<ListValue<Element>>(value);
        if (listed.count != 0 && listed.elements == nullptr) {
            return RefuseEncode(VpcaError::kBadArgument, __LINE__);
        }
        *size = 1 + static_cast<uint32_t>(listed.count * sizeof(Element));
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
    static VpcaError Measure(VpcaCursor* wire, bool list, uint32_t* size) {
        uint32_t count = 1;
        if (list) {
            if (wire->remaining < 1) return RefuseMeasure(__LINE__);
            count = wire->ReadU8();
        }
        const auto bytes = static_cast<uint32_t>(count * sizeof(Element));
        if (wire->remaining < bytes) return RefuseMeasure(__LINE__);
        wire->Skip(bytes);
        *size = bytes + (list ? uint32_t{sizeof(ListValue<Element>)} : 0);
        return VpcaError::kSuccess;
    }
    static uint8_t* Build(uint8_t* area, VpcaCursor* wire, bool list) {
        uint32_t count = 1;
        auto* elements = reinterpret_cast<Element*>(area);
        if (list) {
            auto* value = reinterpret_cast<ListValue<Element>*>(area);
            elements = reinterpret_cast<Element*>(value + 1);
            value->count = wire->ReadU8();
            value->elements = value->count != 0 ? elements : nullptr;
            count = value->count;
        }
        for (uint32_t i = 0; i < count; ++i)
            ReadElement(wire, &elements[i]);
        return reinterpret_cast<uint8_t*>(elements + count);
    }
};

// Record with a counted text
// --------------------------------------------------------------------------------------

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
    static VpcaError Measure(VpcaCursor* wire, bool, uint32_t* size) {
        if (wire->remaining < kFixedSize) return RefuseMeasure(__LINE__);
        const uint8_t textLength = wire->next[sizeof(Address)];
        if (wire->remaining < kFixedSize + textLength) return RefuseMeasure(__LINE__);
        wire->Skip(kFixedSize + textLength);
        *size = uint32_t{sizeof(TextRecord)} + RoundUp4(textLength + 1u);
        return VpcaError::kSuccess;
    }
    static uint8_t* Build(uint8_t* area, VpcaCursor* wire, bool) {
        auto* record = reinterpret_cast<TextRecord*>(area);
        auto* text = reinterpret_cast<uint8_t*>(record + 1);
        ReadElement(wire, &record->address);
        record->textLength = wire->ReadU8();
        record->text = reinterpret_cast<const char*>(text);
        wire->ReadBytes(text, record->textLength);
        text[record->textLength] = 0;
        record->word1 = wire->ReadU16();
        record->word2 = wire->ReadU16();
        record->value1 = wire->ReadU32();
        record->value2 = wire->ReadU32();
        record->byte = wire->ReadU8();
        return text + RoundUp4(record->textLength + 1u);
    }
};

// Opaque
// ----------------------------------------------------------------------------------------------------------

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
    static VpcaError Measure(VpcaCursor* wire, bool, uint32_t* size) {
        *size = uint32_t{sizeof(OpaqueValue)} + RoundUp4(wire->remaining);
        wire->Skip(wire->remaining);
        return VpcaError::kSuccess;
    }
    static uint8_t* Build(uint8_t* area, VpcaCursor* wire, bool) {
        auto* value = reinterpret_cast<OpaqueValue*>(area);
        auto* bytes = reinterpret_cast<uint8_t*>(value + 1);
        value->length = static_cast<uint8_t>(wire->remaining);
        value->size = wire->remaining;
        value->bytes = bytes;
        wire->ReadBytes(bytes, wire->remaining);
        return bytes + RoundUp4(value->size);
    }
};

template <typename Layout>
constexpr AttributeDescriptor Describe(bool opaque = false) {
    return {0, opaque, Layout::EncodedSize, Layout::Encode, Layout::Measure, Layout::Build};
}

}  // namespace

constexpr AttributeDescriptor kOpaqueLayout = Describe<Opaque>(true);
constexpr AttributeDescriptor kRaw8Layout = Describe<Raw<8>>();
constexpr AttributeDescriptor kRaw28Layout = Describe<Raw<28>>();
constexpr AttributeDescriptor kAddressListLayout = Describe<List<Address>>();
constexpr AttributeDescriptor kAddressValueListLayout = Describe<List<AddressValue>>();
constexpr AttributeDescriptor kTextRecordLayout = Describe<Text>();

}  // namespace vlm::vpca

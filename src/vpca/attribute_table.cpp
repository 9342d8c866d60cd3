#include "vpca/attribute_table.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "vpca/attribute_values.h"
#include "vpca/log.h"

namespace vlm::vpca {

namespace {

// A value of these sizes, if its bytes are there.
MeasuredValue Measured(uint32_t wireSize, uint32_t size, uint32_t limit) {
    if (wireSize <= limit) return {wireSize, size};
    Log(LogLevel::kError, kLogMeasure, __LINE__);
    return {0, 0};
}

// Bytes that the value announces but does not have cannot be encoded.
VpcaError CheckStorage(uint32_t count, const void* storage) {
    if (count == 0 || storage != nullptr) return VpcaError::kSuccess;
    return Logged(VpcaError::kBadArgument, kLogEncodedSize, __LINE__);
}

template <typename Value>
const Value& As(const void* value) {
    return *static_cast<const Value*>(value);
}

template <uint32_t Size>
struct Raw {
    static VpcaError EncodedSize(const void*, bool, uint32_t* size) {
        *size = Size;
        return VpcaError::kSuccess;
    }
    static void Encode(const void* value, bool, VpcaWriteCursor* wire) { wire->WriteBytes(value, Size); }
    static MeasuredValue Measure(const uint8_t*, uint32_t limit, bool) {
        return Measured(Size, RoundUp4(Size), limit);
    }
    static MeasuredValue Build(uint8_t* area, const uint8_t* wire, uint32_t, bool) {
        std::memcpy(area, wire, Size);
        return {Size, RoundUp4(Size)};
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
    using Listed = ListValue<Element>;
    static constexpr uint32_t kSize = sizeof(Element);

    static VpcaError EncodedSize(const void* value, bool list, uint32_t* size) {
        *size = list ? 1 + As<Listed>(value).count * kSize : kSize;
        return list ? CheckStorage(As<Listed>(value).count, As<Listed>(value).elements) : VpcaError::kSuccess;
    }
    static void Encode(const void* value, bool list, VpcaWriteCursor* wire) {
        if (!list) {
            WriteElement(As<Element>(value), wire);
            return;
        }
        const Listed& listed = As<Listed>(value);
        wire->WriteU8(listed.count);
        for (uint8_t i = 0; i < listed.count; ++i)
            WriteElement(listed.elements[i], wire);
    }
    static MeasuredValue Measure(const uint8_t* wire, uint32_t limit, bool list) {
        if (!list) return Measured(kSize, kSize, limit);
        const uint32_t bytes = limit != 0 ? wire[0] * kSize : 0;
        return Measured(1 + bytes, sizeof(Listed) + bytes, limit);
    }
    static MeasuredValue Build(uint8_t* area, const uint8_t* bytes, uint32_t limit, bool list) {
        VpcaCursor wire{bytes, limit};
        if (!list) {
            ReadElement(&wire, reinterpret_cast<Element*>(area));
            return {kSize, kSize};
        }
        auto* const listed = reinterpret_cast<Listed*>(area);
        auto* const elements = reinterpret_cast<Element*>(listed + 1);
        const uint8_t count = wire.ReadU8();
        listed->count = count;
        listed->elements = count != 0 ? elements : nullptr;
        for (uint32_t i = 0; i < count; ++i)
            ReadElement(&wire, &elements[i]);
        return {1 + count * kSize, sizeof(Listed) + count * kSize};
    }
};

struct Text {
    // Everything but the text.
    static constexpr uint32_t kFixedSize = 18;

    static VpcaError EncodedSize(const void* value, bool, uint32_t* size) {
        const auto& record = As<TextRecord>(value);
        *size = kFixedSize + record.textLength;
        return CheckStorage(record.textLength, record.text);
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
        const uint32_t textLength = limit >= kFixedSize ? wire[sizeof(Address)] : 0;
        return Measured(kFixedSize + textLength, sizeof(TextRecord) + RoundUp4(textLength + 1), limit);
    }
    static MeasuredValue Build(uint8_t* area, const uint8_t* bytes, uint32_t limit, bool) {
        VpcaCursor wire{bytes, limit};
        auto* const record = reinterpret_cast<TextRecord*>(area);
        auto* const text = reinterpret_cast<uint8_t*>(record + 1);  // zeroed, so it has its end
        ReadElement(&wire, &record->address);
        const uint8_t textLength = wire.ReadU8();
        record->textLength = textLength;
        record->text = reinterpret_cast<const char*>(text);
        wire.ReadBytes(text, textLength);
        record->word1 = wire.ReadU16();
        record->word2 = wire.ReadU16();
        record->value1 = wire.ReadU32();
        record->value2 = wire.ReadU32();
        record->byte = wire.ReadU8();
        return {kFixedSize + textLength, sizeof(TextRecord) + RoundUp4(textLength + 1u)};
    }
};

struct Opaque {
    static VpcaError EncodedSize(const void* value, bool, uint32_t* size) {
        const auto& opaque = As<OpaqueValue>(value);
        *size = opaque.size;
        return CheckStorage(opaque.size, opaque.bytes);
    }
    static void Encode(const void* value, bool, VpcaWriteCursor* wire) {
        const auto& opaque = As<OpaqueValue>(value);
        wire->WriteBytes(opaque.bytes, opaque.size);
    }
    static MeasuredValue Measure(const uint8_t*, uint32_t limit, bool) {
        return {limit, sizeof(OpaqueValue) + RoundUp4(limit)};
    }
    static MeasuredValue Build(uint8_t* area, const uint8_t* wire, uint32_t limit, bool) {
        auto* const value = reinterpret_cast<OpaqueValue*>(area);
        auto* const bytes = reinterpret_cast<uint8_t*>(value + 1);
        value->length = static_cast<uint8_t>(limit);
        value->bytes = bytes;
        value->size = limit;
        if (limit != 0) std::memcpy(bytes, wire, limit);
        return {limit, sizeof(OpaqueValue) + RoundUp4(limit)};
    }
};

template <typename Layout>
constexpr AttributeDescriptor DescriptorOf(bool known = true, bool opaque = false) {
    return {known, opaque, Layout::EncodedSize, Layout::Encode, Layout::Measure, Layout::Build};
}

// As they stand in kLayouts.
enum Layout : uint8_t { kUnknown, kOpaque, kRaw8, kRaw28, kAddresses, kAddressValues, kText };

// Every known id.
constexpr struct {
    uint16_t first;
    uint16_t last;
} kKnownIds[] = {
    {2, 4},         {6, 14},        {16, 16},       {18, 20},       {23, 25},       {27, 32},
    {35, 37},       {39, 39},       {44, 54},       {57, 60},       {63, 68},       {72, 78},
    {80, 81},       {83, 89},       {91, 92},       {95, 95},       {99, 109},      {111, 113},
    {115, 118},     {121, 126},     {129, 130},     {132, 133},     {135, 136},     {138, 138},
    {144, 144},     {146, 147},     {156, 158},     {160, 161},     {165, 176},     {178, 181},
    {185, 187},     {190, 190},     {194, 195},     {197, 199},     {202, 204},     {207, 222},
    {224, 234},     {236, 255},     {259, 259},     {261, 264},     {266, 294},     {296, 297},
    {299, 347},     {1001, 1003},   {1007, 1013},   {1016, 1019},   {1028, 1030},   {1034, 1035},
    {1038, 1039},   {1044, 1047},   {1049, 1060},   {1062, 1083},   {1085, 1096},   {2001, 2010},
    {2014, 2025},   {2027, 2027},   {2029, 2032},   {2038, 2038},   {2040, 2042},   {2044, 2046},
    {2049, 2052},   {2054, 2054},   {2057, 2060},   {2062, 2065},   {2072, 2072},   {2074, 2076},
    {2078, 2080},   {2082, 2088},   {2090, 2093},   {2095, 2095},   {2097, 2100},   {2103, 2106},
    {2109, 2110},   {2112, 2115},   {2120, 2127},   {2131, 2132},   {2135, 2135},   {2137, 2144},
    {2149, 2159},   {2163, 2196},   {2198, 2206},   {2208, 2234},   {2236, 2405},   {3001, 3005},
    {3013, 3020},   {3023, 3024},   {3033, 3035},   {3040, 3040},   {3049, 3051},   {3053, 3058},
    {3064, 3065},   {3067, 3075},   {3077, 3079},   {3096, 3097},   {3109, 3113},   {3118, 3118},
    {3124, 3128},   {3137, 3140},   {3142, 3145},   {3147, 3147},   {3149, 3150},   {3152, 3152},
    {3154, 3177},   {3179, 3189},   {3191, 3196},   {3198, 3201},   {3204, 3221},   {4002, 4006},
    {4008, 4020},   {4023, 4032},   {4034, 4044},   {4115, 4116},   {4118, 4118},   {4120, 4125},
    {4127, 4132},   {5001, 5008},   {6001, 6030},   {10401, 10402}, {10422, 10423}, {10601, 10601},
    {10610, 10610}, {10617, 10633}, {10635, 10653}, {10909, 10911}, {11001, 11001}, {11003, 11015},
    {11501, 11503}, {11505, 11520}, {11601, 11615}, {11701, 11703}, {11705, 11708}, {11714, 11716},
    {11801, 11804}, {11806, 11809}, {11811, 11814}, {11901, 11917}, {12001, 12003}, {12005, 12009},
    {12501, 12512}, {13001, 13003}, {14001, 14009},
};

constexpr uint16_t kStructures[] = {3, 22, 7, 5, 9, 8, 2, 6, 4, 20, 23, 21, 24, 25};

}  // namespace

constexpr AttributeDescriptor kLayouts[] = {
    DescriptorOf<Opaque>(false, true),
    DescriptorOf<Opaque>(true, true),
    DescriptorOf<Raw<8>>(),
    DescriptorOf<Raw<28>>(),
    DescriptorOf<List<Address>>(),
    DescriptorOf<List<AddressValue>>(),
    DescriptorOf<Text>(),
};

constexpr std::array<uint8_t, kIdLimit> kLayoutOfId = [] {
    std::array<uint8_t, kIdLimit> layouts{};
    for (const auto& range : kKnownIds)
        std::fill(layouts.begin() + range.first, layouts.begin() + range.last + 1, kOpaque);
    for (const size_t id : {144u, 146u, 199u, 261u, 266u, 300u, 1080u})
        layouts[id] = kAddresses;
    for (const size_t id : {6012u, 6016u})
        layouts[id] = kAddressValues;
    for (const size_t id : {2112u, 2173u, 2174u})
        layouts[id] = kText;
    layouts[180] = kRaw8;
    layouts[2405] = kRaw28;
    return layouts;
}();

const AttributeDescriptor* FindStructure(uint16_t subId) {
    const bool known = std::ranges::find(kStructures, subId) != std::end(kStructures);
    return known && TablesRegistered() ? &kLayouts[kOpaque] : nullptr;
}

}  // namespace vlm::vpca

#include "vpca/header.h"

#include <iterator>

#include "vpca/log.h"

namespace vlm::vpca {

namespace {

constexpr uint8_t kHeaderLength10 = 20;

struct WireField {
    uint8_t offset;
    uint8_t width;
};

// By field index; a width of 0 is no field.
constexpr WireField kWireFields10[] = {{0, 0}, {0, 0},  {3, 1},  {4, 2},  {6, 2},
                                       {8, 2}, {10, 4}, {14, 4}, {18, 2}, {18, 1}};

// What `use` makes of the member that holds the field. The option byte is half of a member.
template <typename Header, typename Use>
VpcaError UseField10(VpcaField field, Header& header, const Use& use) {
    switch (field) {
        case VpcaField::kFlags:
            return use(header.flags);
        case VpcaField::kOperation:
            return use(header.operation);
        case VpcaField::kSequence:
            return use(header.sequence);
        case VpcaField::kBodyLength:
            return use(header.bodyLength);
        case VpcaField::kValue1:
            return use(header.value1);
        case VpcaField::kValue2:
            return use(header.value2);
        case VpcaField::kResultCode:
        case VpcaField::kOption:
            return use(header.resultCode);
    }
    return Logged(VpcaError::kUnknownField, kLogVersion, __LINE__);
}

VpcaError GetField10(VpcaField field, const VpcaHeader& header, uint32_t* value) {
    return UseField10(field, header, [field, value](auto member) {
        *value = field == VpcaField::kOption ? static_cast<uint8_t>(member) : member;
        return VpcaError::kSuccess;
    });
}

VpcaError SetField10(VpcaField field, VpcaHeader* header, uint32_t value) {
    return UseField10(field, *header, [field, value]<typename Member>(Member& member) {
        member = static_cast<Member>(field == VpcaField::kOption ? value & UINT8_MAX : value);
        return VpcaError::kSuccess;
    });
}

// Where `field` lies in the wire bytes; width 0 when there is no such field.
WireField Locate10(VpcaField field) {
    const auto index = static_cast<uint32_t>(field);
    return index < std::size(kWireFields10) ? kWireFields10[index] : WireField{0, 0};
}

VpcaError PeekField10(VpcaField field, VpcaCursor wire, uint32_t* value) {
    const WireField place = Locate10(field);
    if (place.width == 0) return Logged(VpcaError::kUnknownField, kLogVersion, __LINE__);
    if (wire.remaining < kHeaderLength10) return VpcaError::kNotVpca;
    *value = 0;
    for (uint32_t i = 0; i < place.width; ++i)
        *value = *value << 8 | wire.next[place.offset + i];
    return VpcaError::kSuccess;
}

VpcaError PokeField10(VpcaField field, VpcaWriteCursor wire, uint32_t value) {
    const WireField place = Locate10(field);
    if (place.width == 0) return Logged(VpcaError::kUnknownField, kLogVersion, __LINE__);
    if (wire.remaining < kHeaderLength10) return VpcaError::kNotVpca;
    for (uint32_t i = place.width; i-- > 0; value >>= 8)
        wire.next[place.offset + i] = static_cast<uint8_t>(value);
    return VpcaError::kSuccess;
}

void EncodeHeader10(const VpcaHeader& header, VpcaWriteCursor* wire) {
    wire->WriteU16(header.magic);
    wire->WriteU8(header.version);
    wire->WriteU8(header.flags);
    wire->WriteU16(header.operation);
    wire->WriteU16(header.sequence);
    wire->WriteU16(header.bodyLength);
    wire->WriteU32(header.value1);
    wire->WriteU32(header.value2);
    if ((header.flags & kFlagResultCode) != 0) {
        wire->WriteU16(header.resultCode);
    } else {
        wire->WriteU8((header.flags & kFlagOption) != 0 ? static_cast<uint8_t>(header.resultCode)
                                                        : uint8_t{0});
        wire->WriteU8(0);
    }
}

void DecodeHeader10(VpcaCursor* wire, VpcaHeader* header) {
    header->magic = wire->ReadU16();
    header->version = wire->ReadU8();
    header->flags = wire->ReadU8();
    header->operation = wire->ReadU16();
    header->sequence = wire->ReadU16();
    header->bodyLength = wire->ReadU16();
    header->value1 = wire->ReadU32();
    header->value2 = wire->ReadU32();
    if ((header->flags & kFlagResultCode) != 0) {
        header->resultCode = wire->ReadU16();
    } else {
        const uint8_t option = wire->ReadU8();
        header->resultCode = static_cast<uint16_t>(option | wire->ReadU8() << 8);
    }
}

// Ended by a row without a version.
constexpr VersionDescriptor kVersions[] = {
    {kVersion10, kHeaderLength10, GetField10, SetField10, PeekField10, PokeField10, EncodeHeader10,
     DecodeHeader10},
    {},
};

}  // namespace

const VersionDescriptor* FindVersion(uint8_t version) {
    for (const VersionDescriptor* row = kVersions; row->version != 0; ++row) {
        if (row->version == version) return row;
    }
    Log(LogLevel::kError, kLogVersion, __LINE__);
    return nullptr;
}

}  // namespace vlm::vpca

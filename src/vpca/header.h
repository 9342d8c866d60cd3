// The 20-byte header at the start of every VPCA frame, and the versions of the protocol that the codec knows.
//
// Fields are read and written by their index through the version descriptor, so that another version may lay
// them out differently. Layout of version 0x10, big-endian:
//
//   0  u16 magic 0xCDCA       4  u16 operation          10 u32 value 1
//   2  u8  version            6  u16 sequence           14 u32 value 2
//   3  u8  flags              8  u16 body length
//
//   18 u16 result code        when bit 0 of the flags is set; otherwise
//   18 u8  option byte        written as 0 unless bit 3 of the flags is set
//   19 u8  0
#pragma once

#include <cstdint>

#include "vpca/cursor.h"
#include "vpca/errors.h"

namespace vlm::vpca {

inline constexpr uint16_t kMagic = 0xCDCA;
inline constexpr uint8_t kVersion10 = 0x10;
inline constexpr uint8_t kFlagResultCode = 0x01;
inline constexpr uint8_t kFlagOption = 0x08;

struct VpcaHeader {
    uint16_t magic = kMagic;
    uint8_t version = kVersion10;
    uint8_t flags = 0;
    uint16_t operation = 0;
    uint16_t sequence = 0;
    uint16_t bodyLength = 0;
    uint32_t value1 = 0;
    uint32_t value2 = 0;
    // The option byte shares this storage, as its low byte; the byte after it is the high one.
    uint16_t resultCode = 0;
};

enum class VpcaField : uint32_t {
    kFlags = 2,
    kOperation = 3,
    kSequence = 4,
    kBodyLength = 5,
    kValue1 = 6,
    kValue2 = 7,
    kResultCode = 8,
    kOption = 9,
};

struct VersionDescriptor {
    uint8_t version;
    uint8_t headerLength;
    // One field of a decoded header; kUnknownField for an index that the version lacks.
    VpcaError (*getField)(VpcaField field, const VpcaHeader& header, uint32_t* value);
    VpcaError (*setField)(VpcaField field, VpcaHeader* header, uint32_t value);
    // One field in a header's wire bytes, which start at the cursor; kNotVpca when they are fewer than a
    // header.
    VpcaError (*peekField)(VpcaField field, VpcaCursor wire, uint32_t* value);
    VpcaError (*pokeField)(VpcaField field, VpcaWriteCursor wire, uint32_t value);
    // The whole header; the cursor holds at least headerLength bytes.
    void (*encodeHeader)(const VpcaHeader& header, VpcaWriteCursor* wire);
    void (*decodeHeader)(VpcaCursor* wire, VpcaHeader* header);
};

// Null for a version that the codec does not know.
const VersionDescriptor* FindVersion(uint8_t version);

}  // namespace vlm::vpca

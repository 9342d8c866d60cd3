// The header alone: decoded, encoded again, and every field at its place on the wire.
#include <cstring>

#include "fuzz_input.h"
#include "vpca/frame.h"

using namespace vlm::vpca;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const VpcaCursor frame{data, static_cast<uint32_t>(size)};
    VpcaHeader header;
    if (DecodeHeader(frame, &header) != VpcaError::kSuccess) return 0;
    FUZZ_CHECK(size >= 20);

    const VersionDescriptor* const version = FindVersion(header.version);
    uint8_t wire[20];
    VpcaWriteCursor cursor{wire, sizeof wire};
    version->encodeHeader(header, &cursor);
    // The last two bytes are only written as the flags say.
    FUZZ_CHECK(std::memcmp(wire, data, 18) == 0);
    if ((header.flags & kFlagResultCode) != 0) FUZZ_CHECK(std::memcmp(wire + 18, data + 18, 2) == 0);

    for (uint32_t index = 0; index < 12; ++index) {
        const auto field = static_cast<VpcaField>(index);
        uint32_t decoded = 0;
        uint32_t peeked = 0;
        const VpcaError error = version->getField(field, header, &decoded);
        FUZZ_CHECK(version->peekField(field, frame, &peeked) == error);
        const bool readAsTwoBytes = field == VpcaField::kResultCode && (header.flags & kFlagResultCode) == 0;
        const bool readAsWord = field == VpcaField::kOption && (header.flags & kFlagResultCode) != 0;
        if (!readAsTwoBytes && !readAsWord) FUZZ_CHECK(decoded == peeked);
    }
    return 0;
}

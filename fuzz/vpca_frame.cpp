// Any bytes as a frame: decoded as a header alone, as a response and with the FP table, and what was decoded
// is what stands in the bytes.
#include <cstring>

#include "list_check.h"
#include "vpca/frame.h"
#include "vpca/tables.h"

namespace vlm::vpca {
namespace {

void CheckHeader(VpcaCursor frame) {
    VpcaHeader header;
    if (DecodeHeader(frame, &header) != VpcaError::kSuccess) return;
    FUZZ_CHECK(frame.remaining >= 20);

    const VersionDescriptor* const version = FindVersion(header.version);
    const bool hasResultCode = (header.flags & kFlagResultCode) != 0;
    uint8_t wire[20];
    VpcaWriteCursor cursor{wire, sizeof wire};
    version->encodeHeader(header, &cursor);
    // The last two bytes are only written as the flags say.
    FUZZ_CHECK(std::memcmp(wire, frame.next, hasResultCode ? 20 : 18) == 0);

    for (uint32_t index = 0; index < 12; ++index) {
        const auto field = static_cast<VpcaField>(index);
        uint32_t decoded = 0;
        uint32_t peeked = 0;
        const VpcaError error = version->getField(field, header, &decoded);
        FUZZ_CHECK(version->peekField(field, frame, &peeked) == error);
        const bool readOtherwise = field == (hasResultCode ? VpcaField::kOption : VpcaField::kResultCode);
        FUZZ_CHECK(readOtherwise || decoded == peeked);
    }
}

void CheckFp(VpcaCursor frame) {
    VpcaHeader header;
    VpcaResult result;
    if (DecodeFp(&header, &result, frame) != VpcaError::kSuccess) return;
    const auto& body = std::get<OpaqueBody>(result.body);
    FUZZ_CHECK(body.bytes == frame.next + 20 && body.size <= frame.remaining - 20);

    const RequestBody again = body;
    FrameBuffer encoded;
    const VpcaError error = EncodeFrame(&header, &again, &encoded, VpcaTable::kFp);
    FUZZ_CHECK(error == (body.size > UINT16_MAX ? VpcaError::kTooShort : VpcaError::kSuccess));
    if (error != VpcaError::kSuccess) return;
    FUZZ_CHECK(encoded.size == 20 + body.size);
    FUZZ_CHECK(std::memcmp(encoded.bytes + 20, body.bytes, body.size) == 0);
}

void CheckResponse(VpcaCursor frame) {
    VpcaHeader header;
    VpcaResult result;
    if (DecodeResponse(&header, &result, frame) != VpcaError::kSuccess) return;
    const uint8_t* const body = frame.next + 20;
    if (const auto* block = std::get_if<DataBlock>(&result.body)) {
        FUZZ_CHECK(block->data == body + 4 && block->size == frame.remaining - 24);
    } else if (const auto* opaque = std::get_if<OpaqueBody>(&result.body)) {
        FUZZ_CHECK(opaque->bytes == body && opaque->size == header.bodyLength);
        FUZZ_CHECK(opaque->size <= frame.remaining - 20);
    } else if (const auto* answer = std::get_if<AttributeAnswer>(&result.body)) {
        CheckListIsIn(answer->list, true, {body, header.bodyLength});
    }
}

}  // namespace
}  // namespace vlm::vpca

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vlm::vpca::RegisterTables();
    const vlm::vpca::VpcaCursor frame{data, static_cast<uint32_t>(size)};
    vlm::vpca::CheckHeader(frame);
    vlm::vpca::CheckFp(frame);
    vlm::vpca::CheckResponse(frame);
    return 0;
}

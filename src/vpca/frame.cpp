#include "vpca/frame.h"

#include <algorithm>
#include <initializer_list>

#include "vpca/log.h"
#include "vpca/memory.h"
#include "vpca/operations.h"

namespace vlm::vpca {

namespace {

// Magic and version.
constexpr uint32_t kLeadSize = 3;
// FP frames of this operation whose flags are 1 have a body that reaches to the end of the frame.
constexpr uint16_t kFpOpenEnded = 26;

// A field that every version has.
uint32_t FieldOf(const VpcaHeader& header, const VersionDescriptor& version, VpcaField field) {
    uint32_t value = 0;
    static_cast<void>(version.getField(field, header, &value));
    return value;
}

// Steps over the header.
VpcaError TakeHeader(VpcaCursor* frame, bool checkMagic, VpcaHeader* header,
                     const VersionDescriptor** version) {
    if (frame->next == nullptr || header == nullptr) return VpcaError::kBadArgument;
    VpcaCursor lead = *frame;
    if (lead.remaining < kLeadSize) return VpcaError::kNotVpca;
    const uint16_t magic = lead.ReadU16();
    if (checkMagic && magic != kMagic) return VpcaError::kNotVpca;
    *version = FindVersion(lead.ReadU8());
    if (*version == nullptr) return VpcaError::kUnknownVersion;
    if (frame->remaining < (*version)->headerLength) return VpcaError::kNotVpca;
    (*version)->decodeHeader(frame, header);
    return VpcaError::kSuccess;
}

// The same, with the status for the result.
VpcaError TakeStart(VpcaCursor* frame, VpcaHeader* header, VpcaResult* result,
                    const VersionDescriptor** version) {
    if (result == nullptr) return VpcaError::kBadArgument;
    result->status = 0;
    result->body = std::monostate{};
    const VpcaError error = TakeHeader(frame, true, header, version);
    if (error == VpcaError::kSuccess)
        result->status = static_cast<uint16_t>(FieldOf(*header, **version, VpcaField::kResultCode));
    return error;
}

// `body` holds the rest of the frame, which is the body if that is open-ended.
VpcaError DecodeBody(VpcaTable table, const VersionDescriptor& version, const VpcaHeader& header,
                     bool openEnded, VpcaResult* result, VpcaCursor body, const AttributeSchema* schema) {
    const OperationRow* const row = FindOperation(table, header.operation);
    if (row == nullptr || row->decode == nullptr) return VpcaError::kUnknownOperation;
    if (!openEnded) {
        const uint32_t length = FieldOf(header, version, VpcaField::kBodyLength);
        if (length > body.remaining)
            return Logged(VpcaError::kTooShort, table == VpcaTable::kFu ? kLogDecodeFu : kLogDecodeFp,
                          __LINE__);
        body.remaining = length;
    }
    return row->decode(header, result, body, schema);
}

BodyDecision DecodeOnly(std::initializer_list<uint16_t> operations, uint16_t operation) {
    const bool listed = std::find(operations.begin(), operations.end(), operation) != operations.end();
    return listed ? BodyDecision::kDecode : BodyDecision::kStop;
}

}  // namespace

void FrameBuffer::Release() {
    if (!owned) return;
    Free(bytes);
    bytes = nullptr;
    size = 0;
    owned = false;
}

VpcaError EncodeFrame(VpcaHeader* header, const RequestBody* body, FrameBuffer* destination,
                      VpcaTable table) {
    if (header == nullptr || body == nullptr || destination == nullptr) return VpcaError::kBadArgument;
    const VersionDescriptor* const version = FindVersion(header->version);
    if (version == nullptr) return VpcaError::kUnknownVersion;
    const uint32_t operation = FieldOf(*header, *version, VpcaField::kOperation);
    const OperationRow* const row = FindOperation(table, static_cast<uint16_t>(operation));
    if (row == nullptr || row->encode == nullptr) return VpcaError::kUnknownOperation;
    return row->encode(header, *body, destination);
}

VpcaError DecodeResponse(VpcaHeader* header, VpcaResult* result, VpcaCursor frame,
                         const AttributeSchema* schema) {
    const VersionDescriptor* version = nullptr;
    const VpcaError error = TakeStart(&frame, header, result, &version);
    if (error != VpcaError::kSuccess) return error;
    if (CheckResult(&result->status, header->operation) == BodyDecision::kStop) return VpcaError::kSuccess;
    // A data block is as long as the frame, not limited by the 16 bits of the length field.
    const bool openEnded = header->operation == kReadDataBlock;
    return DecodeBody(VpcaTable::kFu, *version, *header, openEnded, result, frame, schema);
}

VpcaError DecodeFp(VpcaHeader* header, VpcaResult* result, VpcaCursor frame) {
    const VersionDescriptor* version = nullptr;
    const VpcaError error = TakeStart(&frame, header, result, &version);
    if (error != VpcaError::kSuccess) return error;
    const bool openEnded = header->operation == kFpOpenEnded && header->flags == kFlagResultCode;
    return DecodeBody(VpcaTable::kFp, *version, *header, openEnded, result, frame, nullptr);
}

VpcaError DecodeHeader(VpcaCursor frame, VpcaHeader* header) {
    const VersionDescriptor* version = nullptr;
    return TakeHeader(&frame, false, header, &version);
}

BodyDecision CheckResult(uint16_t* status, uint16_t operation) {
    switch (*status) {
        case 1:
        case 29:
        case 33:
        case 34:
            return BodyDecision::kDecode;
        case 4:
            return DecodeOnly({5, 6, 7, 53, 56, 69, 82, 83, 84, 88, 93, 94, 95, 97}, operation);
        case 9:
        case 23:
            return DecodeOnly({6, 53, 83, 84}, operation);
        case 8:
            return DecodeOnly({84, 93, 94, 95, 97}, operation);
        case 31:
            return DecodeOnly({93, 94, 95, 97}, operation);
        default:
            break;
    }
    const bool decode = operation == 10 || (operation == 27 && *status == 18) ||
                        (operation == 19 && (*status == 24 || *status == 25));
    if (operation == 10) *status = 0;
    return decode ? BodyDecision::kDecode : BodyDecision::kStop;
}

VpcaError StartFrame(VpcaHeader* header, uint32_t bodyLength, FrameBuffer* destination,
                     VpcaWriteCursor* body) {
    const VersionDescriptor* const version = FindVersion(header->version);
    if (version == nullptr) return VpcaError::kUnknownVersion;
    const bool fitsField = bodyLength <= UINT16_MAX || header->operation == kReadDataBlock;
    if (!fitsField || bodyLength > UINT32_MAX - version->headerLength) return VpcaError::kTooShort;
    const uint32_t frameSize = version->headerLength + bodyLength;

    VpcaError error = version->setField(VpcaField::kBodyLength, header, bodyLength);
    if (error != VpcaError::kSuccess) return error;
    if (destination->bytes == nullptr) {
        destination->bytes = static_cast<uint8_t*>(Allocate(frameSize));
        if (destination->bytes == nullptr) return VpcaError::kOutOfMemory;
        destination->owned = true;
    } else if (destination->size < frameSize) {
        return VpcaError::kBufferTooSmall;
    }
    destination->size = frameSize;
    VpcaWriteCursor wire{destination->bytes, frameSize};
    version->encodeHeader(*header, &wire);
    *body = wire;
    return VpcaError::kSuccess;
}

VpcaError StartResult(VpcaResult* result, VpcaCursor body, uint32_t minimumLength) {
    if (body.remaining >= minimumLength) return VpcaError::kSuccess;
    result->status = 6;
    return VpcaError::kTooShort;
}

}  // namespace vlm::vpca

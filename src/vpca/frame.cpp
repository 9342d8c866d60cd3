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

bool IsOneOf(uint16_t value, std::initializer_list<uint16_t> values) {
    return std::find(values.begin(), values.end(), value) != values.end();
}

// The descriptor of a frame's version; its header is there in full.
VpcaError FindFrameVersion(VpcaCursor frame, bool checkMagic, const VersionDescriptor** version) {
    if (frame.remaining < kLeadSize) return VpcaError::kNotVpca;
    const uint16_t magic = frame.ReadU16();
    if (checkMagic && magic != kMagic) return VpcaError::kNotVpca;
    *version = FindVersion(frame.next[0]);
    if (*version == nullptr) return VpcaError::kUnknownVersion;
    if (frame.remaining + 2 < (*version)->headerLength) return VpcaError::kNotVpca;
    return VpcaError::kSuccess;
}

// Cuts `body`, which holds the rest of the frame, to the body's length.
VpcaError LimitBody(bool openEnded, uint32_t fieldLength, VpcaCursor* body) {
    if (openEnded) return VpcaError::kSuccess;
    if (fieldLength > body->remaining) return VpcaError::kTooShort;
    body->remaining = fieldLength;
    return VpcaError::kSuccess;
}

VpcaError DecodeBody(VpcaTable table, const VersionDescriptor& version, const VpcaHeader& header,
                     bool openEnded, VpcaResult* result, VpcaCursor body, const AttributeSchema* schema) {
    const OperationRow* const row = FindOperation(table, header.operation, header.version);
    if (row == nullptr || row->decode == nullptr) return VpcaError::kUnknownOperation;
    uint32_t fieldLength = 0;
    VpcaError error = version.getField(VpcaField::kBodyLength, header, &fieldLength);
    if (error != VpcaError::kSuccess) return error;
    error = LimitBody(openEnded, fieldLength, &body);
    if (error != VpcaError::kSuccess) {
        Log(LogLevel::kError, table == VpcaTable::kFu ? kLogDecodeFu : kLogDecodeFp, __LINE__);
        return error;
    }
    return row->decode(header, result, body, schema);
}

// The header, its status, and what is left of the frame behind it.
VpcaError DecodeStart(VpcaHeader* header, VpcaResult* result, VpcaCursor* frame,
                      const VersionDescriptor** version) {
    if (header == nullptr || result == nullptr || frame->next == nullptr) return VpcaError::kBadArgument;
    result->status = 0;
    result->body = std::monostate{};
    VpcaError error = FindFrameVersion(*frame, true, version);
    if (error != VpcaError::kSuccess) return error;
    (*version)->decodeHeader(frame, header);
    uint32_t status = 0;
    error = (*version)->getField(VpcaField::kResultCode, *header, &status);
    result->status = static_cast<uint16_t>(status);
    return error;
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
    uint32_t operation = 0;
    const VpcaError error = version->getField(VpcaField::kOperation, *header, &operation);
    if (error != VpcaError::kSuccess) return error;
    const OperationRow* const row = FindOperation(table, static_cast<uint16_t>(operation), header->version);
    if (row == nullptr || row->encode == nullptr) return VpcaError::kUnknownOperation;
    return row->encode(header, *body, destination);
}

VpcaError DecodeResponse(VpcaHeader* header, VpcaResult* result, VpcaCursor frame,
                         const AttributeSchema* schema) {
    const VersionDescriptor* version = nullptr;
    const VpcaError error = DecodeStart(header, result, &frame, &version);
    if (error != VpcaError::kSuccess) return error;
    if (CheckResult(&result->status, header->operation) == BodyDecision::kStop) return VpcaError::kSuccess;
    // A data block is as long as the frame, not limited by the 16 bits of the length field.
    const bool openEnded = header->operation == kReadDataBlock;
    return DecodeBody(VpcaTable::kFu, *version, *header, openEnded, result, frame, schema);
}

VpcaError DecodeFp(VpcaHeader* header, VpcaResult* result, VpcaCursor frame) {
    const VersionDescriptor* version = nullptr;
    const VpcaError error = DecodeStart(header, result, &frame, &version);
    if (error != VpcaError::kSuccess) return error;
    const bool openEnded = header->operation == kFpOpenEnded && header->flags == kFlagResultCode;
    return DecodeBody(VpcaTable::kFp, *version, *header, openEnded, result, frame, nullptr);
}

VpcaError DecodeHeader(VpcaCursor frame, VpcaHeader* header) {
    if (frame.next == nullptr || header == nullptr) return VpcaError::kBadArgument;
    const VersionDescriptor* version = nullptr;
    const VpcaError error = FindFrameVersion(frame, false, &version);
    if (error != VpcaError::kSuccess) return error;
    version->decodeHeader(&frame, header);
    return VpcaError::kSuccess;
}

BodyDecision CheckResult(uint16_t* status, uint16_t operation) {
    bool decode = false;
    switch (*status) {
        case 1:
        case 29:
        case 33:
        case 34:
            return BodyDecision::kDecode;
        case 4:
            decode = IsOneOf(operation, {5, 6, 7, 53, 56, 69, 82, 83, 84, 88, 93, 94, 95, 97});
            break;
        case 9:
        case 23:
            decode = IsOneOf(operation, {6, 53, 83, 84});
            break;
        case 8:
            decode = IsOneOf(operation, {84, 93, 94, 95, 97});
            break;
        case 31:
            decode = IsOneOf(operation, {93, 94, 95, 97});
            break;
        default:
            if (operation == 10) {
                *status = 0;
                decode = true;
            } else {
                decode = (operation == 27 && *status == 18) ||
                         (operation == 19 && (*status == 24 || *status == 25));
            }
            break;
    }
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
    constexpr uint16_t kStatusTooShort = 6;
    result->status = kStatusTooShort;
    return VpcaError::kTooShort;
}

}  // namespace vlm::vpca

#include "vpca/operations.h"

#include <algorithm>
#include <iterator>

#include "vpca/log.h"
#include "vpca/tables.h"

namespace vlm::vpca {

namespace {

constexpr uint16_t kLastOperation = 129;
constexpr uint16_t kUnused[] = {45, 47, 52, 61, 62, 65, 66, 67, 75, 89, 90, 91, 99, 100};
// In the FU table it has no request, in the FP table no decoder.
constexpr uint16_t kOneWay = 10;

constexpr uint32_t kDataIdSize = 4;
constexpr uint32_t kAddressSize = 4;

template <const auto& Label>
VpcaError EncodeOpaque(VpcaHeader* header, const RequestBody& body, FrameBuffer* destination) {
    const auto* opaque = std::get_if<OpaqueBody>(&body);
    if (opaque == nullptr || (opaque->size != 0 && opaque->bytes == nullptr)) {
        return Logged(VpcaError::kBadArgument, Label, __LINE__);
    }
    VpcaWriteCursor wire;
    const VpcaError error = StartFrame(header, opaque->size, destination, &wire);
    if (error != VpcaError::kSuccess) return error;
    wire.WriteBytes(opaque->bytes, opaque->size);
    return VpcaError::kSuccess;
}

VpcaError DecodeOpaque(const VpcaHeader&, VpcaResult* result, VpcaCursor body, const AttributeSchema*) {
    result->body = OpaqueBody{body.next, body.remaining};
    return VpcaError::kSuccess;
}

VpcaError EncodeDataBlockRequest(VpcaHeader* header, const RequestBody& body, FrameBuffer* destination) {
    const auto* request = std::get_if<DataBlockRequest>(&body);
    if (request == nullptr) return Logged(VpcaError::kBadArgument, kLogEncodeFu, __LINE__);
    VpcaWriteCursor wire;
    const VpcaError error = StartFrame(header, kDataIdSize, destination, &wire);
    if (error != VpcaError::kSuccess) return error;
    wire.WriteU32(request->dataId);
    return VpcaError::kSuccess;
}

VpcaError DecodeDataBlock(const VpcaHeader&, VpcaResult* result, VpcaCursor body, const AttributeSchema*) {
    const VpcaError error = StartResult(result, body, kDataIdSize);
    if (error != VpcaError::kSuccess) return Logged(error, kLogDecodeFu, __LINE__);
    const uint32_t dataId = body.ReadU32();
    result->body = DataBlock{dataId, body.next, body.remaining};
    return VpcaError::kSuccess;
}

VpcaError EncodeAttributeRequest(VpcaHeader* header, const RequestBody& body, FrameBuffer* destination) {
    auto* const* const held = std::get_if<AttributeRequest*>(&body);
    if (held == nullptr || *held == nullptr) return Logged(VpcaError::kBadArgument, kLogEncodeFu, __LINE__);
    AttributeRequest& request = **held;
    if (request.addressKind > 2 || (request.addressKind != 0 && request.address == nullptr) ||
        (request.longIdCount != 0 && request.longIds == nullptr) ||
        (request.shortIdCount != 0 && request.shortIds == nullptr)) {
        return Logged(VpcaError::kBadArgument, kLogEncodeFu, __LINE__);
    }
    request.addressLength = request.addressKind == 0 ? uint8_t{0} : uint8_t{kAddressSize};

    const uint32_t bodyLength =
        4u + request.addressLength + 2u + request.longIdCount * 4u + 2u + request.shortIdCount * 2u;
    VpcaWriteCursor wire;
    const VpcaError error = StartFrame(header, bodyLength, destination, &wire);
    if (error != VpcaError::kSuccess) return error;
    wire.WriteU16(request.firstWord);
    wire.WriteU8(request.addressKind);
    wire.WriteU8(request.addressLength);
    wire.WriteBytes(request.address, request.addressLength);
    wire.WriteU16(request.longIdCount);
    for (uint16_t i = 0; i < request.longIdCount; ++i)
        wire.WriteU32(request.longIds[i]);
    wire.WriteU16(request.shortIdCount);
    for (uint16_t i = 0; i < request.shortIdCount; ++i)
        wire.WriteU16(request.shortIds[i]);
    return VpcaError::kSuccess;
}

VpcaError DecodeAttributeAnswer(const VpcaHeader& header, VpcaResult* result, VpcaCursor body,
                                const AttributeSchema* schema) {
    const VpcaError started = StartResult(result, body, 1);
    if (started != VpcaError::kSuccess) return Logged(started, kLogDecodeFu, __LINE__);
    auto& answer = result->body.emplace<AttributeAnswer>();
    // A body is as long as its 16 bits say, so the list is one of those whose length has 16 bits.
    const ByteString text{static_cast<uint16_t>(body.remaining), body.next};
    const VpcaError error = DecodeAttributeList(&answer.list, &text, kLongListContext, schema, header.version,
                                                &answer.destination);
    return error == VpcaError::kSuccess ? error : Logged(error, kLogDecodeFu, __LINE__);
}

constexpr OperationRow kFuOpaque = {EncodeOpaque<kLogEncodeFu>, DecodeOpaque};
constexpr OperationRow kFuOneWay = {nullptr, DecodeOpaque};
constexpr OperationRow kFuDataBlock = {EncodeDataBlockRequest, DecodeDataBlock};
constexpr OperationRow kFuAttribute = {EncodeAttributeRequest, DecodeAttributeAnswer};
constexpr OperationRow kFpOpaque = {EncodeOpaque<kLogEncodeFp>, DecodeOpaque};
constexpr OperationRow kFpOneWay = {EncodeOpaque<kLogEncodeFp>, nullptr};

}  // namespace

const OperationRow* FindOperation(VpcaTable table, uint16_t code) {
    const bool unused = std::find(std::begin(kUnused), std::end(kUnused), code) != std::end(kUnused);
    if (!TablesRegistered() || code == 0 || code > kLastOperation || unused) return nullptr;
    const bool fu = table == VpcaTable::kFu;
    switch (code) {
        case kOneWay:
            return fu ? &kFuOneWay : &kFpOneWay;
        case kReadDataBlock:
            return fu ? &kFuDataBlock : &kFpOpaque;
        case kReadAttribute:
            return fu ? &kFuAttribute : &kFpOpaque;
        default:
            return fu ? &kFuOpaque : &kFpOpaque;
    }
}

}  // namespace vlm::vpca

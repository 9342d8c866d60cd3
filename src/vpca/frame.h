// VPCA frames: a header and a body, encoded and decoded as a whole.
//
// The codec keeps no state but its tables (RegisterTables()) and may be used from any thread. It reads
// nothing outside the cursor that it is given, whatever the bytes say. Decoded opaque bodies and data blocks
// point into the frame.
#pragma once

#include <cstdint>

#include "vpca/bodies.h"
#include "vpca/cursor.h"
#include "vpca/errors.h"
#include "vpca/header.h"

namespace vlm::vpca {

enum class VpcaTable { kFu = 1, kFp = 2 };

// Where an encoded frame goes. Without a buffer the codec allocates one of the frame's size, which this
// record then owns; with one, `size` is its size before and the frame's size afterwards.
struct FrameBuffer {
    uint8_t* bytes = nullptr;
    uint32_t size = 0;
    bool owned = false;

    FrameBuffer() = default;
    FrameBuffer(uint8_t* callersBytes, uint32_t itsSize) : bytes(callersBytes), size(itsSize) {}
    FrameBuffer(const FrameBuffer&) = delete;
    FrameBuffer& operator=(const FrameBuffer&) = delete;
    ~FrameBuffer() { Release(); }

    // Frees an owned buffer.
    void Release();
};

// Encodes the operation named in `header`, and sets the header's body length.
VpcaError EncodeFrame(VpcaHeader* header, const RequestBody* body, FrameBuffer* destination,
                      VpcaTable table = VpcaTable::kFu);

// Decodes a response. Success with an empty `result->body` means that the status forbids a body. `schema` may
// be null.
VpcaError DecodeResponse(VpcaHeader* header, VpcaResult* result, VpcaCursor frame,
                         const AttributeSchema* schema = nullptr);

// Decodes a frame with the FP table, whatever its status.
VpcaError DecodeFp(VpcaHeader* header, VpcaResult* result, VpcaCursor frame);

// Decodes the 20 bytes of the header; the magic is not looked at.
VpcaError DecodeHeader(VpcaCursor frame, VpcaHeader* header);

// Whether the body of a response with this status is decoded. Operation 10 has a body with any status, and
// its status word is cleared.
enum class BodyDecision { kDecode = 1, kStop = 2 };
BodyDecision CheckResult(uint16_t* status, uint16_t operation);

// For body encoders: the header with its body length, at the start of `destination`; `body` is then where the
// bodyLength bytes of the body go. kTooShort when the length does not fit the header's field (the frame of a
// data block is the exception: its own size tells the length).
VpcaError StartFrame(VpcaHeader* header, uint32_t bodyLength, FrameBuffer* destination,
                     VpcaWriteCursor* body);

// For body decoders: refuses a body that is shorter than the minimum, with 6 in the status word.
VpcaError StartResult(VpcaResult* result, VpcaCursor body, uint32_t minimumLength);

}  // namespace vlm::vpca

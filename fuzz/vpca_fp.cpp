// A frame decoded with the FP table.
#include <cstring>

#include "fuzz_input.h"
#include "vpca/frame.h"
#include "vpca/tables.h"

using namespace vlm::vpca;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RegisterTables();
    VpcaHeader header;
    VpcaResult result;
    if (DecodeFp(&header, &result, {data, static_cast<uint32_t>(size)}) != VpcaError::kSuccess) return 0;
    const auto& body = std::get<OpaqueBody>(result.body);
    FUZZ_CHECK(body.bytes == data + 20 && body.size <= size - 20);

    // What was decoded encodes to the same body.
    const RequestBody again = body;
    FrameBuffer frame;
    const VpcaError error = EncodeFrame(&header, &again, &frame, VpcaTable::kFp);
    FUZZ_CHECK(error == VpcaError::kSuccess || (error == VpcaError::kTooShort && body.size > UINT16_MAX));
    if (error == VpcaError::kSuccess) {
        FUZZ_CHECK(frame.size == 20 + body.size && std::memcmp(frame.bytes + 20, body.bytes, body.size) == 0);
    }
    return 0;
}

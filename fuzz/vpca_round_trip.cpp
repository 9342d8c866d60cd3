// Requests made of the input, encoded, and read back with the FP table, which is how the other side sees
// them.
#include <algorithm>
#include <cstring>

#include "fuzz_input.h"
#include "vpca/frame.h"
#include "vpca/tables.h"

using namespace vlm::vpca;

namespace {

template <typename Id, typename Take>
std::vector<Id> TakeIds(uint8_t count, Take take) {
    std::vector<Id> ids(count);
    std::generate(ids.begin(), ids.end(), take);
    return ids;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RegisterTables();
    FuzzInput input(data, size);
    VpcaHeader header;
    header.flags = input.TakeU8();
    header.operation = input.TakeU16();
    header.sequence = input.TakeU16();
    header.value1 = input.TakeU32();
    header.value2 = input.TakeU32();
    header.resultCode = input.TakeU16();

    AttributeRequest request;
    std::vector<uint32_t> longIds;
    std::vector<uint16_t> shortIds;
    std::vector<uint8_t> bytes;
    uint32_t address = 0;
    RequestBody body;
    if (header.operation == kReadDataBlock) {
        body = DataBlockRequest{input.TakeU32()};
    } else if (header.operation == kReadAttribute) {
        request.firstWord = input.TakeU16();
        request.addressKind = input.TakeU8() % 4;
        address = input.TakeU32();
        longIds = TakeIds<uint32_t>(input.TakeU8(), [&] { return input.TakeU32(); });
        shortIds = TakeIds<uint16_t>(input.TakeU8(), [&] { return input.TakeU16(); });
        request.address = &address;
        request.longIdCount = static_cast<uint16_t>(longIds.size());
        request.longIds = longIds.data();
        request.shortIdCount = static_cast<uint16_t>(shortIds.size());
        request.shortIds = shortIds.data();
        body = &request;
    } else {
        bytes = input.TakeRest();
        body = OpaqueBody{bytes.data(), static_cast<uint32_t>(bytes.size())};
    }

    FrameBuffer frame;
    if (EncodeFrame(&header, &body, &frame) != VpcaError::kSuccess) return 0;

    VpcaHeader decoded;
    VpcaResult result;
    FUZZ_CHECK(DecodeFp(&decoded, &result, {frame.bytes, frame.size}) == VpcaError::kSuccess);
    FUZZ_CHECK(decoded.operation == header.operation && decoded.sequence == header.sequence);
    FUZZ_CHECK(decoded.flags == header.flags && decoded.bodyLength == header.bodyLength);
    FUZZ_CHECK(decoded.value1 == header.value1 && decoded.value2 == header.value2);
    const auto& seen = std::get<OpaqueBody>(result.body);
    FUZZ_CHECK(seen.size == frame.size - 20);

    VpcaCursor wire{seen.bytes, seen.size};
    if (header.operation == kReadDataBlock) {
        FUZZ_CHECK(wire.ReadU32() == std::get<DataBlockRequest>(body).dataId);
    } else if (header.operation == kReadAttribute) {
        FUZZ_CHECK(wire.ReadU16() == request.firstWord && wire.ReadU8() == request.addressKind);
        const uint8_t addressLength = wire.ReadU8();
        FUZZ_CHECK(addressLength == (request.addressKind == 0 ? 0 : 4));
        FUZZ_CHECK(std::memcmp(wire.next, &address, addressLength) == 0);
        wire.Skip(addressLength);
        FUZZ_CHECK(wire.ReadU16() == longIds.size());
        for (const uint32_t id : longIds)
            FUZZ_CHECK(wire.ReadU32() == id);
        FUZZ_CHECK(wire.ReadU16() == shortIds.size());
        for (const uint16_t id : shortIds)
            FUZZ_CHECK(wire.ReadU16() == id);
    } else {
        if (!bytes.empty()) FUZZ_CHECK(std::memcmp(wire.next, bytes.data(), bytes.size()) == 0);
        wire.Skip(static_cast<uint32_t>(bytes.size()));
    }
    FUZZ_CHECK(wire.remaining == 0);
    return 0;
}

// Requests made of the input, one for attributes from a client's record as it arrives over the remote
// interface: encoded, and read back with the FP table, which is how the other side sees them.
#include <algorithm>
#include <cstring>

#include "fuzz_input.h"
#include "util/scope_exit.h"
#include "vpca/analyzer.h"
#include "vpca/frame.h"
#include "vpca/tables.h"

using namespace vlm::vpca;

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
    const uint32_t word = input.TakeU32();  // the data id, or the address of an attribute request
    const std::vector<uint8_t> bytes = input.TakeRest();

    ClientAttributeRequest client{};
    if (!bytes.empty()) std::memcpy(&client, bytes.data(), std::min(bytes.size(), sizeof client));
    const bool fits = client.longIdCount <= client.kSlots && client.shortIdCount <= client.kSlots;
    // What is the client's may change or go while the request lives.
    ClientAttributeRequest passing = client;
    AttributeRequest request;
    CVPCAAnalyzer analyzer;
    FUZZ_CHECK(analyzer.BuildAttributeRequest(&passing, &request) == fits);
    FUZZ_CHECK(fits || (request.longIds == nullptr && request.shortIds == nullptr));
    std::memset(&passing, 0xFF, sizeof passing);
    const vlm::ScopeExit freeRequest([&] { FUZZ_CHECK(analyzer.FreeAttributeRequest(&request)); });
    request.address = &word;

    RequestBody body = OpaqueBody{bytes.data(), static_cast<uint32_t>(bytes.size())};
    if (header.operation == kReadDataBlock) body = DataBlockRequest{word};
    if (header.operation == kReadAttribute) body = &request;
    FrameBuffer frame;
    const VpcaError error = EncodeFrame(&header, &body, &frame);
    if (header.operation == kReadAttribute)
        FUZZ_CHECK((error == VpcaError::kSuccess) == (request.addressKind <= 2));
    if (error != VpcaError::kSuccess) return 0;

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
        FUZZ_CHECK(wire.ReadU32() == word);
    } else if (header.operation == kReadAttribute && fits) {
        FUZZ_CHECK(wire.ReadU16() == client.firstWord && wire.ReadU8() == client.addressKind);
        const uint8_t addressLength = wire.ReadU8();
        FUZZ_CHECK(addressLength == (client.addressKind == 0 ? 0 : 4));
        FUZZ_CHECK(std::memcmp(wire.next, &word, addressLength) == 0);
        wire.Skip(addressLength);
        FUZZ_CHECK(wire.ReadU16() == client.longIdCount);
        for (uint16_t i = 0; i < client.longIdCount; ++i)
            FUZZ_CHECK(wire.ReadU32() == client.longIds[i]);
        FUZZ_CHECK(wire.ReadU16() == client.shortIdCount);
        for (uint16_t i = 0; i < client.shortIdCount; ++i)
            FUZZ_CHECK(wire.ReadU16() == client.shortIds[i]);
    } else if (header.operation != kReadAttribute) {
        FUZZ_CHECK(std::equal(bytes.begin(), bytes.end(), wire.next, wire.next + wire.remaining));
    }
    return 0;
}

// A client's attribute request, as it arrives over the remote interface: one that is accepted holds the ids
// it announces, in its own memory, and can be encoded.
#include <algorithm>
#include <cstring>

#include "fuzz_input.h"
#include "vpca/analyzer.h"
#include "vpca/frame.h"
#include "vpca/tables.h"

using namespace vlm::vpca;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RegisterTables();
    ClientAttributeRequest client{};
    std::memcpy(&client, data, std::min(size, sizeof client));
    AttributeRequest request;
    CVPCAAnalyzer analyzer;
    const bool fits = client.longIdCount <= ClientAttributeRequest::kSlots &&
                      client.shortIdCount <= ClientAttributeRequest::kSlots;
    FUZZ_CHECK(analyzer.BuildAttributeRequest(&client, &request) == fits);
    FUZZ_CHECK(fits || (request.longIds == nullptr && request.shortIds == nullptr));
    if (!fits) return 0;

    // What is the client's may change or go while the request lives.
    const ClientAttributeRequest sent = client;
    std::memset(&client, 0xFF, sizeof client);
    FUZZ_CHECK(request.longIdCount == sent.longIdCount && request.shortIdCount == sent.shortIdCount);
    FUZZ_CHECK(std::equal(request.longIds, request.longIds + request.longIdCount, sent.longIds));
    FUZZ_CHECK(std::equal(request.shortIds, request.shortIds + request.shortIdCount, sent.shortIds));

    VpcaHeader header;
    header.operation = kReadAttribute;
    RequestBody body = &request;
    FrameBuffer frame;
    const VpcaError error = EncodeFrame(&header, &body, &frame);
    FUZZ_CHECK((error == VpcaError::kSuccess) == (sent.addressKind == 0));
    FUZZ_CHECK(analyzer.FreeAttributeRequest(&request));
    return 0;
}

// Any reply to any capacity: it is refused, or its bytes are those behind its count, no more than were asked
// for.
#include <algorithm>

#include "fuzz_input.h"
#include "tools/vlmctl/exchange/rpc_stub_data.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vlm::vpca::FuzzInput input(data, size);
    const uint32_t capacity = input.TakeU32() % 64;
    const std::vector<uint8_t> stubData = input.TakeRest();
    const vlm::ctl::RpcReply reply = vlm::ctl::ReadReply(stubData, capacity);
    if (!reply.problem.empty()) {
        FUZZ_CHECK(reply.bytes.empty());
        return 0;
    }
    FUZZ_CHECK(reply.bytes.size() <= capacity && stubData.size() >= reply.bytes.size() + 12);
    FUZZ_CHECK(std::equal(reply.bytes.begin(), reply.bytes.end(), stubData.begin() + 4));
    FUZZ_CHECK(reply.result == 0 || reply.bytes.empty());
    return 0;
}

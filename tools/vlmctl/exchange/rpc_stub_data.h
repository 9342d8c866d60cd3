// The stub data of the remote procedures: what the runtime carries to the service and what it brings back.
//
// The companion writes and reads it by the byte. A generated stub would copy a reply into the caller's buffer
// by the count that stands in the reply, and not every runtime holds that against the size of the buffer.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vlm::ctl {

struct RpcReply {
    std::uint32_t status = 0;         // the runtime's: 0 when the call came through
    std::string problem;              // why what came is no reply of this service; empty when it is one
    std::uint32_t result = 0;         // the procedure's Win32 code
    std::vector<std::uint8_t> bytes;  // what the printer sent
};

struct RpcCommand {
    std::uint32_t value1 = 0;
    std::uint32_t value2 = 0;
    std::uint16_t word = 0;
    std::uint8_t kind = 0;
    std::vector<std::uint32_t> longs;   // the service takes 64; of more only the count is sent
    std::vector<std::uint16_t> shorts;  // likewise
};

// Requests. `printer` is text in the service's code page.
std::vector<std::uint8_t> QueryStubData(const std::string& printer, std::uint32_t dataId,
                                        std::uint32_t capacity);
std::vector<std::uint8_t> CommandStubData(const std::string& printer, const RpcCommand& command,
                                          std::uint32_t capacity);

// Reads the reply to a call with that capacity, little-endian. Sets all but the status.
RpcReply ReadReply(std::span<const std::uint8_t> stubData, std::uint32_t capacity);

}  // namespace vlm::ctl

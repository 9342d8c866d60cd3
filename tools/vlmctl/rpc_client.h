// The client's side of the remote procedures, as any other program would write it: a binding of its own, the
// generated stubs, and the runtime's exceptions turned into codes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vlm::ctl {

// Where the service listens.
enum class RpcRoute { kLocal, kPipe, kTcp };

struct RpcReply {
    std::uint32_t status = 0;         // the runtime's: 0 when the call came through
    std::uint32_t result = 0;         // the procedure's Win32 code
    std::vector<std::uint8_t> bytes;  // what the printer sent
};

struct RpcCommand {
    std::uint32_t value1 = 0;
    std::uint32_t value2 = 0;
    std::uint16_t word = 0;
    std::uint8_t kind = 0;
    std::vector<std::uint32_t> longs;   // at most 64
    std::vector<std::uint16_t> shorts;  // at most 64
};

// One client has one binding. Calls go through that of the newest client of the program, from any thread.
class RpcClient {
 public:
    // An empty `host` is this machine. Nothing is sent yet. Throws CommandError.
    RpcClient(RpcRoute route, const std::string& host);
    ~RpcClient();
    RpcClient(const RpcClient&) = delete;
    RpcClient& operator=(const RpcClient&) = delete;

    // `printer` is text in the system's code page.
    RpcReply Query(const std::string& printer, std::uint32_t dataId, std::uint32_t capacity) const;
    RpcReply Command(const std::string& printer, const RpcCommand& command, std::uint32_t capacity) const;

 private:
    void* binding_ = nullptr;  // an RPC_BINDING_HANDLE
};

}  // namespace vlm::ctl

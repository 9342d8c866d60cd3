// The client's side of the remote procedures: a binding of its own, one message to the service and one back,
// and the runtime's exceptions turned into codes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/vlmctl/exchange/rpc_stub_data.h"
#include "util/handles.h"

namespace vlm::ctl {

// A number of Win32's in decimal, that of an exception in hex: "1722", "0xC0000005".
std::string StatusNumber(std::uint32_t status);
// What the runtime says of a call that did not come through; null for what needs no words.
const char* StatusMeaning(std::uint32_t status);

// Where the service listens.
enum class RpcRoute { kLocal, kPipe, kTcp };

// One client has one binding, for calls from any thread.
class RpcClient {
 public:
    // An empty `host` is this machine. Nothing is sent yet. Throws CommandError.
    RpcClient(RpcRoute route, const std::string& host);

    // `printer` is text in the system's code page. A reply is bounded by `capacity`, whoever answers.
    RpcReply Query(const std::string& printer, std::uint32_t dataId, std::uint32_t capacity) const;
    RpcReply Command(const std::string& printer, const RpcCommand& command, std::uint32_t capacity) const;

 private:
    RpcReply Call(unsigned long procedure, const std::vector<std::uint8_t>& request,
                  std::uint32_t capacity) const;

    struct BindingTraits {
        using Type = void*;  // an RPC_BINDING_HANDLE
        static Type Invalid() { return nullptr; }
        static void Close(Type binding);
    };
    Unique<BindingTraits> binding_;
};

}  // namespace vlm::ctl

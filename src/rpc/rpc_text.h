// Text as the RPC runtime takes and gives it.
#pragma once

#include <windows.h>

#include <rpc.h>

#include "util/handles.h"

namespace vlm::rpc {

// The runtime wants pointers to non-const text that it does not write to.
inline RPC_WSTR RpcText(const wchar_t* text) {
    return reinterpret_cast<RPC_WSTR>(const_cast<wchar_t*>(text));
}

struct RpcStringTraits : NullTraits<RPC_WSTR> {
    static void Close(Type text) { RpcStringFreeW(&text); }
};
// A string that the runtime has allocated.
using RpcString = Unique<RpcStringTraits>;

}  // namespace vlm::rpc

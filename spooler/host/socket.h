// The owner of a Winsock socket.
#pragma once

#include <winsock2.h>
// winsock2.h before windows.h.
#include <windows.h>

#include "util/handles.h"

namespace vlm::host {

struct SocketTraits {
    using Type = SOCKET;
    static Type Invalid() { return INVALID_SOCKET; }
    static void Close(Type connection) { closesocket(connection); }
};
using Socket = Unique<SocketTraits>;

}  // namespace vlm::host

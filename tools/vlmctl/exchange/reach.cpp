#include <winsock2.h>
// winsock2.h before windows.h.
#include <windows.h>
// windows.h before ws2tcpip.h.
#include <ws2tcpip.h>

#include <fmt/format.h>

#include <algorithm>
#include <string>

#include "spooler/host/socket.h"
#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/exchange/reach.h"
#include "util/handles.h"
#include "util/text.h"

namespace vlm::ctl {

namespace {

using Clock = std::chrono::steady_clock;

struct AddressesTraits {
    using Type = ADDRINFOW*;
    static Type Invalid() { return nullptr; }
    static void Close(Type addresses) { FreeAddrInfoW(addresses); }
};

// A Win32 code. Once for all threads and until the program ends: the last clean-up would close the sockets of
// those who believe that they are started, too.
DWORD StartSockets() {
    static const int error = [] {
        WSADATA data{};
        return WSAStartup(MAKEWORD(2, 2), &data);
    }();
    return static_cast<DWORD>(error);
}

// A Win32 code.
DWORD Connect(const ADDRINFOW& address, Clock::time_point giveUp) {
    const host::Socket owner(socket(address.ai_family, address.ai_socktype, address.ai_protocol));
    const SOCKET connection = owner.Get();
    if (!owner) return static_cast<DWORD>(WSAGetLastError());
    u_long nonBlocking = 1;
    ioctlsocket(connection, static_cast<long>(FIONBIO), &nonBlocking);
    if (connect(connection, address.ai_addr, static_cast<int>(address.ai_addrlen)) == 0) return ERROR_SUCCESS;
    if (WSAGetLastError() != WSAEWOULDBLOCK) return static_cast<DWORD>(WSAGetLastError());
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(giveUp - Clock::now()).count();
    timeval wait{};
    wait.tv_sec = static_cast<long>(std::max(left, 0LL) / 1'000'000);
    wait.tv_usec = static_cast<long>(std::max(left, 0LL) % 1'000'000);
    fd_set connected;
    fd_set failed;
    FD_ZERO(&connected);
    FD_ZERO(&failed);
    FD_SET(connection, &connected);
    FD_SET(connection, &failed);
    if (select(0, nullptr, &connected, &failed, &wait) == 0) return WSAETIMEDOUT;
    int error = 0;
    int size = sizeof error;
    getsockopt(connection, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size);
    return static_cast<DWORD>(error);
}

}  // namespace

void CheckReachable(const ServiceUrl& url, std::chrono::milliseconds timeout) {
    std::wstring host = url.host;
    if (host.starts_with(L'[')) host = host.substr(1, host.size() - 2);
    DWORD error = StartSockets();
    if (error == ERROR_SUCCESS) {
        ADDRINFOW hints{};
        hints.ai_socktype = SOCK_STREAM;
        Unique<AddressesTraits> addresses;
        error = static_cast<DWORD>(
            GetAddrInfoW(host.c_str(), std::to_wstring(url.port).c_str(), &hints, addresses.Receive()));
        const Clock::time_point giveUp = Clock::now() + timeout;
        for (const ADDRINFOW* address = addresses.Get(); address != nullptr; address = address->ai_next) {
            error = Connect(*address, giveUp);
            if (error == ERROR_SUCCESS) return;
        }
    }
    throw CommandError(
        fmt::format("no connection to {}:{}: {}", Shown(url.host), url.port, ErrorText(error)));
}

}  // namespace vlm::ctl

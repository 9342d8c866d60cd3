#include "spooler/host/raw_tcp_monitor.h"

#include <ws2tcpip.h>

#include <algorithm>
#include <array>

#include "spooler/host/lower_table.h"
#include "util/scope_exit.h"

namespace vlm::host {

namespace {

constexpr size_t kLongestBackChannel = 64 * 1024;
constexpr ULONGLONG kTurn = 100;  // milliseconds between two looks at whether the document is cancelled

RawTcpMonitor& Self(HANDLE handle) {
    return *static_cast<RawTcpMonitor*>(handle);
}

}  // namespace

RawTcpMonitor::RawTcpMonitor(std::string host, std::string port, DWORD timeout)
    : host_(std::move(host)),
      port_(std::move(port)),
      timeout_(timeout),
      table_(LowerTable(OpenPort, StartDocPort, WritePort, ReadPort, EndDocPort, ClosePort)) {
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
}

RawTcpMonitor::~RawTcpMonitor() {
    socket_.Reset();
    WSACleanup();
}

BOOL RawTcpMonitor::Fail() {
    document_.error = GetLastError();
    return FALSE;
}

template <typename Ready>
int RawTcpMonitor::AwaitInTurns(Ready ready) const {
    const ULONGLONG deadline = GetTickCount64() + timeout_;
    for (ULONGLONG now = GetTickCount64();; now = GetTickCount64()) {
        if (cancelled_.load()) {
            SetLastError(ERROR_PRINT_CANCELLED);
            return -1;
        }
        const ULONGLONG left = deadline > now ? deadline - now : 0;
        const int result = ready(static_cast<int>(std::min(left, kTurn)));
        if (result != 0) return result;
        if (left <= kTurn) {
            WSASetLastError(WSAETIMEDOUT);
            return -1;
        }
    }
}

bool RawTcpMonitor::Await(short events) const {
    return AwaitInTurns([&](int milliseconds) {
               WSAPOLLFD descriptor{socket_.Get(), events, 0};
               return WSAPoll(&descriptor, 1, milliseconds);
           }) > 0;
}

void RawTcpMonitor::EndRegularly(bool regular) const {
    const linger atOnce{static_cast<u_short>(regular ? 0 : 1), 0};
    setsockopt(socket_.Get(), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&atOnce), sizeof atOnce);
}

int RawTcpMonitor::Receive(void* buffer, size_t size) {
    const int count = recv(socket_.Get(), static_cast<char*>(buffer), static_cast<int>(size), 0);
    if (count != 0) return count;
    // Some systems report a reset connection as closed here, and its error only in poll.
    WSAPOLLFD descriptor{socket_.Get(), POLLRDNORM, 0};
    if (WSAPoll(&descriptor, 1, 0) <= 0 || (descriptor.revents & POLLERR) == 0) return 0;
    WSASetLastError(WSAECONNRESET);
    return SOCKET_ERROR;
}

bool RawTcpMonitor::ConnectTo(const sockaddr* address, int length) {
    socket_.Reset(socket(address->sa_family, SOCK_STREAM, IPPROTO_TCP));
    u_long nonBlocking = 1;
    if (!socket_ || ioctlsocket(socket_.Get(), static_cast<long>(FIONBIO), &nonBlocking) != 0) return false;
    if (connect(socket_.Get(), address, length) == 0) return true;
    if (WSAGetLastError() != WSAEWOULDBLOCK) return false;
    const int ready = AwaitInTurns([&](int milliseconds) {
        // select, because WSAPoll on older Windows does not report a refused connection.
        fd_set writable, failed;
        FD_ZERO(&writable);
        FD_SET(socket_.Get(), &writable);
        failed = writable;
        timeval wait{milliseconds / 1000, milliseconds % 1000 * 1000};
        return select(0, nullptr, &writable, &failed, &wait);
    });
    if (ready < 0) return false;
    int error = 0;
    int size = sizeof error;
    getsockopt(socket_.Get(), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size);
    WSASetLastError(error);
    return error == 0;
}

bool RawTcpMonitor::Connect() {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* addresses = nullptr;
    const int error = getaddrinfo(host_.c_str(), port_.c_str(), &hints, &addresses);
    if (error != 0) {
        WSASetLastError(error);
        return false;
    }
    const ScopeExit release([addresses] { freeaddrinfo(addresses); });
    for (const addrinfo* one = addresses; one != nullptr; one = one->ai_next)
        if (ConnectTo(one->ai_addr, static_cast<int>(one->ai_addrlen))) return true;
    return false;
}

bool RawTcpMonitor::Send(const BYTE* data, DWORD size, DWORD& sent) {
    for (sent = 0; sent < size;) {
        if (cancelled_.load()) {
            SetLastError(ERROR_PRINT_CANCELLED);
            return false;
        }
        const int count =
            send(socket_.Get(), reinterpret_cast<const char*>(data + sent), static_cast<int>(size - sent), 0);
        if (count >= 0) {
            sent += static_cast<DWORD>(count);
        } else if (WSAGetLastError() != WSAEWOULDBLOCK || !Await(POLLWRNORM)) {
            return false;
        }
    }
    return true;
}

void RawTcpMonitor::DrainUntilClosed() {
    std::array<char, 4096> buffer;
    // A printer that talks on and on is cut off like one that says nothing.
    const ULONGLONG deadline = GetTickCount64() + timeout_;
    while (GetTickCount64() < deadline) {
        const int count = Receive(buffer.data(), buffer.size());
        if (count > 0) {
            const size_t room = kLongestBackChannel - document_.backChannel.size();
            document_.backChannel.append(buffer.data(), std::min(room, static_cast<size_t>(count)));
        } else if (count == 0) {
            document_.closedByPrinter = true;
            return;
        } else if (WSAGetLastError() != WSAEWOULDBLOCK || !Await(POLLRDNORM)) {
            Fail();
            return;
        }
    }
    document_.error = WSAETIMEDOUT;
}

BOOL WINAPI RawTcpMonitor::OpenPort(HANDLE monitor, LPWSTR, HANDLE* port) {
    *port = monitor;
    return TRUE;
}

BOOL WINAPI RawTcpMonitor::StartDocPort(HANDLE port, LPWSTR, DWORD, DWORD, LPBYTE) {
    RawTcpMonitor& self = Self(port);
    self.document_ = {};
    if (self.Connect()) {
        self.EndRegularly(false);
        return TRUE;
    }
    self.Fail();
    self.socket_.Reset();
    SetLastError(self.document_.error);
    return FALSE;
}

BOOL WINAPI RawTcpMonitor::WritePort(HANDLE port, LPBYTE buffer, DWORD size, LPDWORD written) {
    RawTcpMonitor& self = Self(port);
    const bool all = self.Send(buffer, size, *written);
    self.document_.bytesSent += *written;
    return all ? TRUE : self.Fail();
}

BOOL WINAPI RawTcpMonitor::ReadPort(HANDLE port, LPBYTE buffer, DWORD size, LPDWORD read) {
    RawTcpMonitor& self = Self(port);
    *read = 0;
    if (!self.Await(POLLRDNORM)) return self.Fail();
    const int count = self.Receive(buffer, size);
    if (count < 0) return self.Fail();
    *read = static_cast<DWORD>(count);
    return TRUE;
}

BOOL WINAPI RawTcpMonitor::EndDocPort(HANDLE port) {
    RawTcpMonitor& self = Self(port);
    if (self.document_.error == ERROR_SUCCESS && self.cancelled_.load())
        self.document_.error = ERROR_PRINT_CANCELLED;
    if (self.document_.error == ERROR_SUCCESS) {
        self.EndRegularly(true);
        if (shutdown(self.socket_.Get(), SD_SEND) == 0) {
            self.DrainUntilClosed();
        } else {
            self.Fail();
        }
    }
    // All may have been sent, and little of it read.
    if (self.document_.error == ERROR_PRINT_CANCELLED) self.EndRegularly(false);
    self.socket_.Reset();
    SetLastError(self.document_.error);
    return self.document_.error == ERROR_SUCCESS;
}

BOOL WINAPI RawTcpMonitor::ClosePort(HANDLE port) {
    Self(port).socket_.Reset();
    return TRUE;
}

}  // namespace vlm::host

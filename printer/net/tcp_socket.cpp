#include "printer/net/tcp_socket.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace vlm::printer {
namespace {

constexpr int kBacklog = 64;
constexpr int kRetryMilliseconds = 100;  // after a shortage of descriptors

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error(fmt::format("{}: {}", what, std::strerror(errno)));
}

sockaddr* AsGeneric(sockaddr_in* place) {
    return reinterpret_cast<sockaddr*>(place);
}

}  // namespace

sockaddr_in TcpPlace(const std::string& address, std::uint16_t port) {
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(port);
    if (::inet_pton(AF_INET, address.c_str(), &place.sin_addr) != 1)
        throw std::runtime_error(fmt::format("'{}' is not an IPv4 address", address));
    return place;
}

std::string ToString(const sockaddr_in& place) {
    std::array<char, INET_ADDRSTRLEN> text{};
    ::inet_ntop(AF_INET, &place.sin_addr, text.data(), text.size());
    return fmt::format("{}:{}", text.data(), ntohs(place.sin_port));
}

UniqueFd BindTcp(sockaddr_in& place) {
    UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    socklen_t size = sizeof place;
    if (!socket || ::setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        ::bind(socket.Get(), AsGeneric(&place), sizeof place) != 0 ||
        ::getsockname(socket.Get(), AsGeneric(&place), &size) != 0)
        Fail("cannot use port " + ToString(place));
    return socket;
}

UniqueFd ListenTcp(sockaddr_in& place) {
    UniqueFd socket = BindTcp(place);
    if (::listen(socket.Get(), kBacklog) != 0) Fail("cannot listen on port " + ToString(place));
    return socket;
}

Wait WaitFor(int socket, short events, std::chrono::milliseconds limit, int stopFd) {
    std::array<pollfd, 2> waits{{{socket, events, 0}, {stopFd, POLLIN, 0}}};
    const int ready = ::poll(waits.data(), waits.size(), static_cast<int>(limit.count()));
    if (waits[1].revents != 0) return Wait::kStop;
    if (ready <= 0) return Wait::kTimeout;
    return (waits[0].revents & events) != 0 ? Wait::kReady : Wait::kBroken;
}

void SetResetOnClose(int socket, bool reset) {
    const linger option{reset ? 1 : 0, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &option, sizeof option);
}

UniqueFd NewEvent() {
    UniqueFd event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!event) Fail("cannot create an event");
    return event;
}

void SetEvent(const UniqueFd& event) {
    ::eventfd_write(event.Get(), 1);
}

UniqueFd Accept(const UniqueFd& listener, const UniqueFd& stop) {
    UniqueFd socket(::accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket && (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)) {
        pollfd stopped{stop.Get(), POLLIN, 0};
        ::poll(&stopped, 1, kRetryMilliseconds);
    }
    return socket;
}

}  // namespace vlm::printer

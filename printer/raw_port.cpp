#include "raw_port.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "raw_connection.h"
#include "say.h"

namespace vlm::printer {
namespace {

using namespace std::chrono_literals;

constexpr int kBacklog = 64;
constexpr auto kFollowLimit = 5s;
constexpr int kRetryMilliseconds = 100;  // after a shortage of descriptors or threads

[[noreturn]] void ThrowErrno(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

UniqueFd MakeEvent() {
    UniqueFd event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!event) ThrowErrno("cannot create an event");
    return event;
}

void SetEvent(const UniqueFd& event) {
    ::eventfd_write(event.Get(), 1);
}

sockaddr* AsGeneric(sockaddr_in* address) {
    return reinterpret_cast<sockaddr*>(address);
}

}  // namespace

RawPort::RawPort(const std::string& address, std::uint16_t port, DocumentStore& store, Machine& machine,
                 std::uint64_t documentLimit)
    : store_(store),
      machine_(machine),
      documentLimit_(documentLimit),
      stop_(MakeEvent()),
      wake_(MakeEvent()) {
    address_.sin_family = AF_INET;
    address_.sin_port = htons(port);
    if (::inet_pton(AF_INET, address.c_str(), &address_.sin_addr) != 1)
        throw std::runtime_error(fmt::format("'{}' is not an IPv4 address", address));
    reservation_ = BindSocket();
    socklen_t size = sizeof address_;
    if (::getsockname(reservation_.Get(), AsGeneric(&address_), &size) != 0) ThrowErrno("getsockname");
}

RawPort::~RawPort() {
    Stop();
}

std::uint16_t RawPort::Port() const {
    return ntohs(address_.sin_port);
}

std::string RawPort::PlaceText() const {
    std::array<char, INET_ADDRSTRLEN> text{};
    ::inet_ntop(AF_INET, &address_.sin_addr, text.data(), text.size());
    return fmt::format("raw port {}:{}", text.data(), Port());
}

std::size_t RawPort::OpenConnections() const {
    return openConnections_;
}

void RawPort::Start() {
    if (!behaviour_.Refusing()) Listen();
    acceptLoop_ = std::thread([this] { AcceptLoop(); });
}

void RawPort::Stop() {
    SetEvent(stop_);
    Wake();
    if (acceptLoop_.joinable()) acceptLoop_.join();
}

void RawPort::SetFault(const Fault& fault) {
    behaviour_.SetFault(fault);
    FollowBehaviour();
}

void RawPort::ClearFault() {
    behaviour_.ClearFault();
    FollowBehaviour();
}

// Hands opening and closing to the accept loop and waits until it is done.
void RawPort::FollowBehaviour() {
    if (!acceptLoop_.joinable()) return;  // not started: Start follows
    Wake();
    std::unique_lock lock(mutex_);
    const bool done = followed_.wait_for(
        lock, kFollowLimit, [this] { return listening_ != behaviour_.Refusing() || !listenError_.empty(); });
    if (!listenError_.empty()) throw std::runtime_error(std::exchange(listenError_, {}));
    if (!done) throw std::runtime_error("the raw port does not follow");
}

UniqueFd RawPort::BindSocket() const {
    // SO_REUSEADDR lets the reservation and the listener, both ours, share the port, and passes over
    // connections of an earlier run in TIME_WAIT. A port on which another process listens is still refused.
    UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    sockaddr_in address = address_;
    if (!socket || ::setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        ::bind(socket.Get(), AsGeneric(&address), sizeof address) != 0)
        ThrowErrno("cannot use " + PlaceText());
    return socket;
}

void RawPort::Listen() {
    UniqueFd socket = BindSocket();
    if (::listen(socket.Get(), kBacklog) != 0) ThrowErrno("cannot listen on " + PlaceText());
    listener_ = std::move(socket);
    const std::scoped_lock lock(mutex_);
    listening_ = true;
}

void RawPort::AcceptLoop() {
    for (;;) {
        JoinEnded();
        const bool room = connections_.size() < kMaxConnections;
        std::array<pollfd, 3> waits{
            {{room ? listener_.Get() : -1, POLLIN, 0},  // poll passes over negative ones
             {wake_.Get(), POLLIN, 0},
             {stop_.Get(), POLLIN, 0}}};
        ::poll(waits.data(), waits.size(), -1);
        if (waits[2].revents != 0) break;
        if (waits[1].revents != 0) {
            eventfd_t count = 0;
            ::eventfd_read(wake_.Get(), &count);
            const bool refuse = behaviour_.Refusing();
            try {
                if (refuse)
                    listener_.Reset();
                else if (!listener_)
                    Listen();
            } catch (const std::exception& e) {
                const std::scoped_lock lock(mutex_);
                listenError_ = e.what();
            }
            {
                const std::scoped_lock lock(mutex_);
                listening_ = static_cast<bool>(listener_);
            }
            followed_.notify_all();
            continue;  // the listener may be another one now
        }
        if (waits[0].revents != 0) AcceptOne();
    }
    listener_.Reset();
    for (Connection& connection : connections_)
        connection.thread.join();
    connections_.clear();
}

void RawPort::AcceptOne() {
    UniqueFd socket(::accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket) {
        // Out of descriptors the listener stays readable; without a pause this would be a busy loop.
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            pollfd stop{stop_.Get(), POLLIN, 0};
            ::poll(&stop, 1, kRetryMilliseconds);
        }
        return;
    }
    ConnectionOrders orders{behaviour_.TakeFault(), behaviour_.CurrentAnswer()};
    Connection& connection = connections_.emplace_back();
    ++openConnections_;
    try {
        connection.thread = std::thread(&RawPort::ServeConnection, this, std::ref(connection),
                                        std::move(socket), std::move(orders));
    } catch (const std::system_error& e) {
        Complain("no thread for a connection: {}", e.what());
        --openConnections_;
        connections_.pop_back();
    }
}

void RawPort::ServeConnection(Connection& self, UniqueFd socket, ConnectionOrders orders) {
    try {
        RawConnection(std::move(socket), std::move(orders), behaviour_, device_, store_, machine_,
                      documentLimit_, stop_.Get())
            .Serve();
    } catch (const std::exception& e) {
        Complain("connection dropped: {}", e.what());
    }
    --openConnections_;
    self.ended = true;
    Wake();
}

void RawPort::JoinEnded() {
    connections_.remove_if([](Connection& connection) {
        if (!connection.ended) return false;
        connection.thread.join();
        return true;
    });
}

void RawPort::Wake() const {
    SetEvent(wake_);
}

}  // namespace vlm::printer

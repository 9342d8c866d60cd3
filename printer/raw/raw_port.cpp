#include "printer/raw/raw_port.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "printer/raw/raw_connection.h"
#include "printer/shared/say.h"

namespace vlm::printer {
namespace {

using namespace std::chrono_literals;

constexpr auto kFollowLimit = 5s;

}  // namespace

RawPort::RawPort(const std::string& address, std::uint16_t port, DocumentStore& store, Machine& machine,
                 std::uint64_t documentLimit)
    : store_(store),
      machine_(machine),
      documentLimit_(documentLimit),
      place_(TcpPlace(address, port)),
      reservation_(BindTcp(place_)),
      stop_(NewEvent()),
      wake_(NewEvent()) {}

RawPort::~RawPort() {
    Stop();
}

std::uint16_t RawPort::Port() const {
    return ntohs(place_.sin_port);
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

// The accept loop opens and closes the port; waits for it.
void RawPort::FollowBehaviour() {
    if (!acceptLoop_.joinable()) return;  // Start does it
    Wake();
    std::unique_lock lock(mutex_);
    const bool done = followed_.wait_for(
        lock, kFollowLimit, [this] { return listening_ != behaviour_.Refusing() || !listenError_.empty(); });
    if (!listenError_.empty()) throw std::runtime_error(std::exchange(listenError_, {}));
    if (!done) throw std::runtime_error("the raw port did not change in time");
}

void RawPort::Listen() {
    listener_ = ListenTcp(place_);
    const std::scoped_lock lock(mutex_);
    listening_ = true;
}

void RawPort::AcceptLoop() {
    for (;;) {
        JoinEnded();
        const bool room = connections_.size() < kMaxConnections;
        std::array<pollfd, 3> waits{{{room ? listener_.Get() : -1, POLLIN, 0},  // poll ignores negative ones
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
            continue;  // the listener may have changed
        }
        if (waits[0].revents != 0) AcceptOne();
    }
    listener_.Reset();
    for (Connection& connection : connections_)
        connection.thread.join();
    connections_.clear();
}

void RawPort::AcceptOne() {
    UniqueFd socket = Accept(listener_, stop_);
    if (!socket) return;
    ConnectionOrders orders{behaviour_.TakeFault(), behaviour_.answer.Get()};
    Connection& connection = connections_.emplace_back();
    ++openConnections_;
    try {
        connection.thread = std::thread(&RawPort::ServeConnection, this, std::ref(connection),
                                        std::move(socket), std::move(orders));
    } catch (const std::system_error& e) {
        Complain("cannot start a thread for a connection: {}", e.what());
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

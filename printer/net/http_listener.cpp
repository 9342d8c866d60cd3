#include "printer/net/http_listener.h"

#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <exception>
#include <utility>

#include "printer/net/channel.h"
#include "printer/shared/say.h"

namespace vlm::printer {

HttpListener::HttpListener(const std::string& address, std::uint16_t port, std::size_t threads,
                           std::unique_ptr<HttpServer> server)
    : server_(std::move(server)),
      place_(TcpPlace(address, port)),
      threads_(threads),
      stop_(NewEvent()),
      listener_(ListenTcp(place_)) {}

HttpListener::~HttpListener() {
    Stop();
}

void HttpListener::Start() {
    while (workers_.size() < threads_)
        workers_.emplace_back([this] { Work(); });
}

void HttpListener::Stop() {
    SetEvent(stop_);
    for (std::thread& worker : workers_)
        worker.join();
    workers_.clear();
    listener_.Reset();
}

void HttpListener::Work() {
    while (const UniqueFd socket = NextConnection()) {
        try {
            Channel channel(socket.Get(), server_->Tls(), stop_.Get());
            server_->Serve(channel);
        } catch (const std::exception& e) {
            Complain("HTTP connection dropped: {}", e.what());
        }
    }
}

// One thread waits for the next client, the others for their turn to.
UniqueFd HttpListener::NextConnection() {
    const std::scoped_lock lock(accepting_);
    for (;;) {
        std::array<pollfd, 2> waits{{{listener_.Get(), POLLIN, 0}, {stop_.Get(), POLLIN, 0}}};
        ::poll(waits.data(), waits.size(), -1);
        if (waits[1].revents != 0) return {};
        UniqueFd socket = Accept(listener_, stop_);
        if (!socket) continue;
        const int on = 1;
        ::setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        return socket;
    }
}

}  // namespace vlm::printer

#include "http_listener.h"

#include <fmt/format.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace vlm::printer {

HttpListener::HttpListener(const std::string& address, std::uint16_t port, std::size_t bodyLimit,
                           std::unique_ptr<HttpServer> server)
    : server_(std::move(server)) {
    // The library's own choice, SO_REUSEPORT, would let two printers share a port unnoticed.
    server_->set_socket_options([](socket_t socket) {
        const int on = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    });
    server_->set_tcp_nodelay(true);
    server_->set_payload_max_length(bodyLimit);

    errno = 0;
    const int bound = port == 0                              ? server_->bind_to_any_port(address)
                      : server_->bind_to_port(address, port) ? port
                                                             : -1;
    if (bound <= 0)
        throw std::runtime_error(fmt::format("cannot listen for HTTP on {}:{}: {}", address, port,
                                             errno != 0 ? std::strerror(errno) : "no such address"));
    port_ = static_cast<std::uint16_t>(bound);
}

HttpListener::~HttpListener() {
    Stop();
}

void HttpListener::Start() {
    using namespace std::chrono_literals;
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    // stop() is without effect on a server that does not run yet, so Start must not return before it does.
    const auto giveUp = std::chrono::steady_clock::now() + 5s;
    while (!server_->is_running()) {
        if (std::chrono::steady_clock::now() > giveUp)
            throw std::runtime_error("the HTTP server does not start");
        std::this_thread::sleep_for(1ms);
    }
}

void HttpListener::Stop() {
    server_->EndExchanges();
    server_->stop();
    if (thread_.joinable()) thread_.join();
}

}  // namespace vlm::printer

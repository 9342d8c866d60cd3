#include "http_server.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "say.h"

namespace vlm::printer {
namespace {

constexpr std::size_t kHeadLimit = std::size_t{64} << 10;

// What the library sees of a connection: it reads from it, as many bytes as a request may have, and writes
// into a text.
class ExchangeStream : public httplib::Stream {
 public:
    ExchangeStream(Channel& channel, std::size_t most) : channel_(channel), left_(most) {}

    std::string TakeWritten() { return std::move(written_); }

    bool is_readable() const override { return true; }
    bool is_writable() const override { return true; }
    ssize_t read(char* to, size_t size) override {
        if (at_ == got_) {
            if (left_ == 0) return -1;
            const std::ptrdiff_t count = channel_.Read(buffer_.data(), std::min(buffer_.size(), left_));
            if (count <= 0) return count;
            at_ = 0;
            got_ = static_cast<std::size_t>(count);
            left_ -= got_;
        }
        const std::size_t count = std::min(size, got_ - at_);
        std::copy_n(buffer_.data() + at_, count, to);
        at_ += count;
        return static_cast<ssize_t>(count);
    }
    ssize_t write(const char* from, size_t size) override {
        written_.append(from, size);
        return static_cast<ssize_t>(size);
    }
    void get_remote_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
    void get_local_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
    socket_t socket() const override { return channel_.Socket(); }

 private:
    Channel& channel_;
    std::array<char, 4096> buffer_{};
    std::size_t at_ = 0;
    std::size_t got_ = 0;
    std::size_t left_;
    std::string written_;
};

}  // namespace

HttpServer::HttpServer(SSL_CTX* tls) : tls_(tls), stop_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!stop_) throw std::runtime_error("cannot create an event");
    // The library would unpack a body to whatever size it has.
    set_pre_routing_handler([](const httplib::Request& request, httplib::Response& response) {
        if (!request.has_header("Content-Encoding")) return HandlerResponse::Unhandled;
        response.status = 415;
        return HandlerResponse::Handled;
    });
}

void HttpServer::EndExchanges() {
    ::eventfd_write(stop_.Get(), 1);
}

HttpServer::Exchange HttpServer::Answer(Channel& channel) {
    Exchange exchange;
    if (!channel.Handshake()) return exchange;
    ExchangeStream stream(channel, kHeadLimit + payload_max_length_);
    bool closed = false;
    process_request(stream, true, closed, [&](httplib::Request& request) {
        exchange.path = request.path;
        request.ranges.clear();  // an answer comes once and whole
    });
    exchange.answer = stream.TakeWritten();
    return exchange;
}

void HttpServer::Serve(Channel& channel) {
    const Exchange exchange = Answer(channel);
    if (channel.Write(exchange.answer)) channel.End(true);
}

bool HttpServer::process_and_close_socket(socket_t handle) {
    const UniqueFd socket(handle);
    try {
        Channel channel(socket.Get(), tls_, stop_.Get());
        Serve(channel);
    } catch (const std::exception& e) {
        Complain("HTTP connection dropped: {}", e.what());
    }
    return true;
}

}  // namespace vlm::printer

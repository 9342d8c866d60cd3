#include "soap_ports.h"

#include <fmt/format.h>
#include <libxml/parser.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <stdexcept>
#include <utility>

#include "channel.h"
#include "say.h"

namespace vlm::printer {
namespace {

constexpr std::size_t kBodyLimit = std::size_t{1} << 20;
constexpr std::size_t kThreads = 32;  // exchanges at once; a mute one keeps its thread

// What the HTTP library sees of a connection: it reads from it, and writes into a buffer.
class CollectingStream : public httplib::Stream {
 public:
    CollectingStream(Channel& channel, std::string address, std::uint16_t port)
        : channel_(channel), address_(std::move(address)), port_(port) {}

    const std::string& Written() const { return written_; }

    bool is_readable() const override { return true; }
    bool is_writable() const override { return true; }
    ssize_t read(char* to, size_t size) override {
        if (at_ == got_) {
            const std::ptrdiff_t count = channel_.Read(buffer_.data(), buffer_.size());
            if (count <= 0) return count;
            at_ = 0;
            got_ = static_cast<std::size_t>(count);
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
    void get_remote_ip_and_port(std::string& ip, int& port) const override {
        get_local_ip_and_port(ip, port);
    }
    void get_local_ip_and_port(std::string& ip, int& port) const override {
        ip = address_;
        port = port_;
    }
    socket_t socket() const override { return channel_.Socket(); }

 private:
    Channel& channel_;
    const std::string address_;
    const std::uint16_t port_;
    std::array<char, 4096> buffer_{};
    std::size_t at_ = 0;
    std::size_t got_ = 0;
    std::string written_;
};

bool Send(Channel& channel, const Delivery& delivery) {
    for (const Delivery::Part& part : delivery.parts) {
        for (std::uint64_t i = 0; i < part.times; ++i) {
            std::string_view left = part.bytes;
            while (!left.empty()) {
                const std::size_t size =
                    delivery.piece == 0 ? left.size() : std::min<std::size_t>(left.size(), delivery.piece);
                if (!channel.Write(left.substr(0, size))) return false;
                left.remove_prefix(size);
                if (delivery.piece != 0 && !left.empty() &&
                    !channel.Pause(std::chrono::milliseconds(delivery.pause)))
                    return false;
            }
        }
    }
    return true;
}

class SoapServer : public httplib::Server {
 public:
    SoapServer(std::string address, WsdBehaviour& behaviour, SSL_CTX* tls, int stopFd)
        : address_(std::move(address)), behaviour_(behaviour), tls_(tls), stopFd_(stopFd) {
        new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
    }
    // Known once it listens.
    void SetPort(std::uint16_t port) { port_ = port; }

 private:
    bool process_and_close_socket(socket_t handle) override {
        const UniqueFd socket(handle);
        try {
            Serve(socket.Get());
        } catch (const std::exception& e) {
            Complain("SOAP connection dropped: {}", e.what());
        }
        return true;
    }

    void Serve(int socket) {
        const WsdBehaviour::Orders orders = behaviour_.OrdersForNextConnection();
        Channel channel(socket, tls_, stopFd_);
        Delivery delivery;
        const bool silent = orders.fault && orders.fault->at == WsdStage::kConnect;
        if (silent) {
            delivery = Misbehave(*orders.fault, "", "", "");
        } else {
            if (!channel.Handshake()) return;
            CollectingStream stream(channel, address_, port_);
            std::string path;
            bool closed = false;
            process_request(stream, true, closed,
                            [&](const httplib::Request& request) { path = request.path; });
            if (stream.Written().empty()) return;
            if (orders.fault)
                delivery = Misbehave(*orders.fault, stream.Written(), path, SelfUrl());
            else
                delivery.parts.push_back({stream.Written()});
        }

        if (!Send(channel, delivery)) return;
        switch (delivery.end) {
            case Delivery::End::kOrderly:
            case Delivery::End::kAbrupt:
                return channel.End(delivery.end == Delivery::End::kOrderly);
            case Delivery::End::kReset:
                return channel.EndWithReset();
            case Delivery::End::kHold:
                return channel.HoldWhile([&] { return behaviour_.FaultHolds(orders); });
        }
    }

    std::string SelfUrl() const {
        return fmt::format("{}://{}:{}", tls_ != nullptr ? "https" : "http", address_, port_);
    }

    const std::string address_;
    WsdBehaviour& behaviour_;
    SSL_CTX* const tls_;
    const int stopFd_;
    std::uint16_t port_ = 0;
};

}  // namespace

SoapPorts::SoapPorts(const std::string& address, std::uint16_t port, std::uint16_t tlsPort,
                     WsdBehaviour& behaviour)
    : behaviour_(behaviour), tls_(MakeTlsContext()), stop_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!stop_) throw std::runtime_error("cannot create an event");
    xmlInitParser();  // before the worker threads use it
    http_ = Listen(address, port, nullptr);
    https_ = Listen(address, tlsPort, tls_.get());
}

SoapPorts::~SoapPorts() {
    Stop();
}

void SoapPorts::Serve(const std::string& path, const SoapHandler& handler) {
    paths_ += paths_.empty() ? path : " and " + path;
    for (HttpListener* listener : {http_.get(), https_.get()}) {
        const char* scheme = listener == http_.get() ? "http" : "https";
        for (const std::string& each : {path, kMovedPrefix + path})
            listener->Routes().Post(
                each, [handler, scheme](const httplib::Request& request, httplib::Response& response) {
                    handler(request, response, scheme);
                });
    }
}

void SoapPorts::Start() {
    http_->Start();
    https_->Start();
}

void SoapPorts::Stop() {
    ::eventfd_write(stop_.Get(), 1);
    http_->Stop();
    https_->Stop();
}

std::unique_ptr<HttpListener> SoapPorts::Listen(const std::string& address, std::uint16_t port,
                                                SSL_CTX* tls) {
    auto server = std::make_unique<SoapServer>(address, behaviour_, tls, stop_.Get());
    SoapServer& own = *server;
    auto listener = std::make_unique<HttpListener>(address, port, kBodyLimit, std::move(server));
    own.SetPort(listener->Port());
    own.set_error_handler([this](const httplib::Request& /*request*/, httplib::Response& response) {
        if (!response.body.empty()) return;
        response.set_content(fmt::format("<!DOCTYPE html>\n<title>{0}</title>\n<p>{0}: this printer answers "
                                         "SOAP messages posted to {1}.\n",
                                         response.status, paths_),
                             "text/html");
    });
    return listener;
}

}  // namespace vlm::printer

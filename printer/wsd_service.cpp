#include "wsd_service.h"

#include <fmt/format.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <stdexcept>
#include <utility>

#include "channel.h"
#include "say.h"
#include "wsd_request.h"
#include "xml.h"

namespace vlm::printer {
namespace {

constexpr std::size_t kBodyLimit = std::size_t{1} << 20;
constexpr std::size_t kShownBody = std::size_t{64} << 10;  // of a request, in the log
constexpr std::size_t kThreads = 32;                       // exchanges at once; a mute one keeps its thread
constexpr const char* kSoapType = "application/soap+xml; charset=utf-8";

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

class WsdServer : public httplib::Server {
 public:
    WsdServer(std::string address, WsdBehaviour& behaviour, SSL_CTX* tls, int stopFd)
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
            Complain("WSD connection dropped: {}", e.what());
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

void WsdRequestLog::Add(nlohmann::json entry) {
    const std::scoped_lock lock(mutex_);
    entries_.push_back(std::move(entry));
    if (entries_.size() > kKept) entries_.pop_front();
}

nlohmann::json WsdRequestLog::All() const {
    const std::scoped_lock lock(mutex_);
    return entries_;
}

void WsdRequestLog::Clear() {
    const std::scoped_lock lock(mutex_);
    entries_.clear();
}

WsdService::WsdService(const std::string& address, std::uint16_t port, std::uint16_t tlsPort,
                       const Machine& machine)
    : machine_(machine), tls_(MakeTlsContext()), stop_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!stop_) throw std::runtime_error("cannot create an event");
    xmlInitParser();
    http_ = Listen(address, port, nullptr);
    https_ = Listen(address, tlsPort, tls_.get());
}

WsdService::~WsdService() {
    Stop();
}

void WsdService::Start() {
    http_->Start();
    https_->Start();
}

void WsdService::Stop() {
    ::eventfd_write(stop_.Get(), 1);
    http_->Stop();
    https_->Stop();
}

std::unique_ptr<HttpListener> WsdService::Listen(const std::string& address, std::uint16_t port,
                                                 SSL_CTX* tls) {
    auto server = std::make_unique<WsdServer>(address, behaviour_, tls, stop_.Get());
    WsdServer& own = *server;
    auto listener = std::make_unique<HttpListener>(address, port, kBodyLimit, std::move(server));
    own.SetPort(listener->Port());
    const char* scheme = tls != nullptr ? "https" : "http";
    for (const char* path : {kWsdPath, kWsdMovedPath})
        own.Post(path, [this, scheme](const httplib::Request& request, httplib::Response& response) {
            Answer(request, response, scheme);
        });
    own.set_error_handler([](const httplib::Request& /*request*/, httplib::Response& response) {
        if (!response.body.empty()) return;
        response.set_content(fmt::format("<!DOCTYPE html>\n<title>{0}</title>\n<p>{0}: this printer answers "
                                         "SOAP messages posted to {1}.\n",
                                         response.status, kWsdPath),
                             "text/html");
    });
    return listener;
}

void WsdService::Answer(const httplib::Request& http, httplib::Response& response, const char* scheme) {
    const WsdRequest request = ReadWsdRequest(http.get_header_value("Content-Type"), http.body);

    nlohmann::json headers = nlohmann::json::object();
    for (const auto& [name, value] : http.headers)
        if (name != "REMOTE_ADDR" && name != "REMOTE_PORT" && name != "LOCAL_ADDR" && name != "LOCAL_PORT")
            headers[name] = value;
    nlohmann::json names = nlohmann::json::array();
    for (const ElementName& name : request.names)
        names.push_back(fmt::format("{{{}}}{}", name.uri, name.name));
    log_.Add({{"scheme", scheme},
              {"method", http.method},
              {"path", http.path},
              {"version", http.version},
              {"headers", std::move(headers)},
              {"body", http.body.substr(0, kShownBody)},
              {"to", request.to},
              {"action", request.action},
              {"messageId", request.messageId},
              {"from", request.from},
              {"names", std::move(names)},
              {"findings", request.findings}});

    if (request.findings.empty()) {
        response.set_content(WsdAnswer(request, machine_.State(), behaviour_.Style()), kSoapType);
        return;
    }
    std::string reason;
    for (const std::string& finding : request.findings)
        reason += reason.empty() ? finding : "; " + finding;
    Say("WSD request refused: {}", reason);
    // As the SOAP 1.2 HTTP binding maps its codes.
    response.status = request.otherVersion ? 500 : 400;
    const char* code = request.otherVersion ? "VersionMismatch" : "Sender";
    response.set_content(WsdFaultAnswer(code, reason, request.messageId), kSoapType);
}

}  // namespace vlm::printer

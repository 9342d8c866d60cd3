#include "printer/soap/soap_ports.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <libxml/parser.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "printer/net/channel.h"
#include "printer/shared/say.h"

namespace vlm::printer {
namespace {

constexpr std::size_t kBodyLimit = std::size_t{256} << 10;
constexpr std::size_t kThreads = 32;  // exchanges at once; a mute one holds its thread

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

class SoapServer : public HttpServer {
 public:
    SoapServer(const std::string& address, HttpFaults& faults, SSL_CTX* tls)
        : HttpServer(kBodyLimit, tls),
          self_(fmt::format("{}://{}", tls != nullptr ? "https" : "http", address)),
          faults_(faults) {}
    // Known once it listens.
    void SetPort(std::uint16_t port) { self_ += fmt::format(":{}", port); }

 private:
    void Serve(Channel& channel) override {
        const HttpFaults::Taken taken = faults_.TakeFault();
        Delivery delivery;
        if (taken.fault && taken.fault->at == HttpStage::kConnect) {
            delivery = Misbehave(*taken.fault, "", "", "");
        } else {
            const Exchange exchange = Answer(channel);
            if (exchange.answer.empty()) return;
            if (taken.fault)
                delivery = Misbehave(*taken.fault, exchange.answer, exchange.path, self_);
            else
                delivery.parts.push_back({exchange.answer});
        }

        if (!Send(channel, delivery)) return;
        switch (delivery.end) {
            case Delivery::End::kOrderly:
            case Delivery::End::kAbrupt:
                return channel.End(delivery.end == Delivery::End::kOrderly);
            case Delivery::End::kReset:
                return channel.EndWithReset();
            case Delivery::End::kHold:
                return channel.HoldWhile([&] { return faults_.FaultHolds(taken); });
        }
    }

    std::string self_;  // its URL without a path
    HttpFaults& faults_;
};

}  // namespace

void SoapService::Log(const HttpRequest& request, const char* scheme, nlohmann::json read) {
    nlohmann::json headers = nlohmann::json::object();
    for (const auto& [name, value] : request.headers)
        headers[name] = value;
    read.update(
        {{"scheme", scheme}, {"path", request.path}, {"version", request.version}, {"headers", headers}});
    requests_.Add(std::move(read));
}

void SoapService::AnswerFault(const char* what, const SoapRequest& request, HttpResponse& response,
                              const std::optional<std::string>& relatesTo) {
    const std::string reason = fmt::format("{}", fmt::join(request.findings, "; "));
    Say("{} refused: {}", what, reason);
    // As the HTTP binding maps the fault's codes.
    response.status = request.otherVersion ? 500 : 400;
    response.Set(FaultMessage(request.otherVersion ? "VersionMismatch" : "Sender", reason, relatesTo),
                 kSoapType);
}

SoapPorts::SoapPorts(const std::string& address, std::uint16_t port, std::uint16_t tlsPort)
    : tls_(MakeTlsContext()) {
    xmlInitParser();  // before the worker threads use it
    http_ = Listen(address, port, nullptr);
    https_ = Listen(address, tlsPort, tls_.get());
}

SoapPorts::~SoapPorts() {
    Stop();
}

void SoapPorts::Serve(const std::string& path, SoapService& service) {
    // Paths below the first one are not listed.
    if (paths_.empty())
        first_ = paths_ = path;
    else if (!path.starts_with(first_))
        paths_ += " and " + path;
    for (HttpListener* listener : {http_.get(), https_.get()}) {
        const char* scheme = listener == http_.get() ? "http" : "https";
        for (const std::string& each : {path, kMovedPrefix + path})
            listener->Server().Route("POST", each,
                                     [&service, scheme](const HttpRequest& request, HttpResponse& response) {
                                         service.Answer(request, response, scheme);
                                     });
    }
}

void SoapPorts::Start() {
    http_->Start();
    https_->Start();
}

void SoapPorts::Stop() {
    http_->Stop();
    https_->Stop();
}

std::unique_ptr<HttpListener> SoapPorts::Listen(const std::string& address, std::uint16_t port,
                                                SSL_CTX* tls) {
    auto server = std::make_unique<SoapServer>(address, faults_, tls);
    SoapServer& own = *server;
    auto listener = std::make_unique<HttpListener>(address, port, kThreads, std::move(server));
    own.SetPort(listener->Port());
    own.OnRefusal([this](const HttpRequest& /*request*/, HttpResponse& response) {
        response.Set(fmt::format("<!DOCTYPE html>\n<title>{0}</title>\n<p>{0}: this printer answers "
                                 "SOAP messages posted to {1}.\n",
                                 response.status, paths_),
                     "text/html");
    });
    return listener;
}

}  // namespace vlm::printer

// The WSD print service: SOAP 1.2 over HTTP and HTTPS at /wsd/print/, one request per connection.
//
// The HTTP library reads the request and writes the answer; what goes out on the wire, and when, is decided
// here, so that every fault happens on the port that clients know. docs/wsd.md describes the exchange.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

#include "certificate.h"
#include "http_listener.h"
#include "machine.h"
#include "unique_fd.h"
#include "wsd_fault.h"

namespace vlm::printer {

inline constexpr const char* kWsdPath = "/wsd/print/";

// The last requests, as the control API shows them. May be used from any thread.
class WsdRequestLog {
 public:
    void Add(nlohmann::json entry);
    nlohmann::json All() const;  // oldest first
    void Clear();

    static constexpr std::size_t kKept = 100;

 private:
    mutable std::mutex mutex_;
    std::deque<nlohmann::json> entries_;
};

class WsdService {
 public:
    // Ports as in HttpListener. Throws std::runtime_error with one line.
    WsdService(const std::string& address, std::uint16_t port, std::uint16_t tlsPort, const Machine& machine);
    WsdService(const WsdService&) = delete;
    WsdService& operator=(const WsdService&) = delete;
    ~WsdService();

    void Start();
    void Stop();  // ends every exchange

    std::uint16_t Port() const { return http_->Port(); }
    std::uint16_t TlsPort() const { return https_->Port(); }
    WsdBehaviour& Behaviour() { return behaviour_; }
    WsdRequestLog& Requests() { return log_; }

 private:
    std::unique_ptr<HttpListener> Listen(const std::string& address, std::uint16_t port, SSL_CTX* tls);
    void Answer(const httplib::Request& request, httplib::Response& response, const char* scheme);

    const Machine& machine_;
    WsdBehaviour behaviour_;
    WsdRequestLog log_;
    TlsContext tls_;
    UniqueFd stop_;  // eventfd, stays readable once it is set
    std::unique_ptr<HttpListener> http_;
    std::unique_ptr<HttpListener> https_;
};

}  // namespace vlm::printer

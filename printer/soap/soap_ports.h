// The HTTP and the HTTPS port of the printer's SOAP services, and the faults that happen on them.
#pragma once

#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "printer/net/certificate.h"
#include "printer/net/http_listener.h"
#include "printer/shared/recent.h"
#include "printer/soap/http_fault.h"
#include "printer/soap/soap_message.h"

namespace vlm::printer {

class SoapService {
 public:
    virtual ~SoapService() = default;

    // What was posted to its path. Called on worker threads; `scheme` is "http" or "https".
    virtual void Answer(const HttpRequest& request, HttpResponse& response, const char* scheme) = 0;

    // For the control API.
    Recent<nlohmann::json>& Requests() { return requests_; }

 protected:
    // Adds a request: the HTTP side of it, and what the service has `read` in it.
    void Log(const HttpRequest& request, const char* scheme, nlohmann::json read);
    // Answers a request that has findings; `what` names it in the log line.
    static void AnswerFault(const char* what, const SoapRequest& request, HttpResponse& response,
                            const std::optional<std::string>& relatesTo = std::nullopt);

 private:
    Recent<nlohmann::json> requests_;
};

class SoapPorts {
 public:
    // Ports as in HttpListener. Throws std::runtime_error with one line.
    SoapPorts(const std::string& address, std::uint16_t port, std::uint16_t tlsPort);
    SoapPorts(const SoapPorts&) = delete;
    SoapPorts& operator=(const SoapPorts&) = delete;
    ~SoapPorts();

    // Serves POST to `path`, and to where the fault "redirect" leads from it. Call before Start.
    // The service outlives the ports.
    void Serve(const std::string& path, SoapService& service);
    void Start();
    void Stop();  // ends every exchange

    HttpFaults& Faults() { return faults_; }

    std::uint16_t Port() const { return http_->Port(); }
    std::uint16_t TlsPort() const { return https_->Port(); }

 private:
    std::unique_ptr<HttpListener> Listen(const std::string& address, std::uint16_t port, SSL_CTX* tls);

    HttpFaults faults_;
    std::string first_;  // path
    std::string paths_;  // all of them, for the 404 page
    TlsContext tls_;
    std::unique_ptr<HttpListener> http_;
    std::unique_ptr<HttpListener> https_;
};

}  // namespace vlm::printer

// The HTTP and the HTTPS port of the printer's SOAP services, one request per connection.
//
// The HTTP library reads the request and writes the answer; what goes out on the wire, and when, is decided
// here, so that every fault happens on the port that clients know.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "certificate.h"
#include "http_listener.h"
#include "unique_fd.h"
#include "wsd_fault.h"

namespace vlm::printer {

// Called on worker threads; `scheme` is "http" or "https".
using SoapHandler = std::function<void(const httplib::Request&, httplib::Response&, const char* scheme)>;

class SoapPorts {
 public:
    // Ports as in HttpListener. `behaviour` outlives the ports. Throws std::runtime_error with one line.
    SoapPorts(const std::string& address, std::uint16_t port, std::uint16_t tlsPort, WsdBehaviour& behaviour);
    SoapPorts(const SoapPorts&) = delete;
    SoapPorts& operator=(const SoapPorts&) = delete;
    ~SoapPorts();

    // What is posted to `path`, and to the place where the fault "redirect" leads from there. Before Start.
    void Serve(const std::string& path, const SoapHandler& handler);
    void Start();
    void Stop();  // ends every exchange

    std::uint16_t Port() const { return http_->Port(); }
    std::uint16_t TlsPort() const { return https_->Port(); }

 private:
    std::unique_ptr<HttpListener> Listen(const std::string& address, std::uint16_t port, SSL_CTX* tls);

    WsdBehaviour& behaviour_;
    std::string paths_;  // for who asks for another one
    TlsContext tls_;
    UniqueFd stop_;  // eventfd, stays readable once it is set
    std::unique_ptr<HttpListener> http_;
    std::unique_ptr<HttpListener> https_;
};

}  // namespace vlm::printer

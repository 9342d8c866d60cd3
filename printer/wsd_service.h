// The WSD print service: SOAP 1.2 at /wsd/print/. docs/wsd.md describes the exchange.
#pragma once

#include "machine.h"
#include "request_log.h"
#include "soap_ports.h"
#include "wsd_fault.h"

namespace vlm::printer {

inline constexpr const char* kWsdPath = "/wsd/print/";

class WsdService {
 public:
    explicit WsdService(const Machine& machine) : machine_(machine) {}
    WsdService(const WsdService&) = delete;
    WsdService& operator=(const WsdService&) = delete;

    void AddTo(SoapPorts& ports);  // which end before the service does

    WsdBehaviour& Behaviour() { return behaviour_; }
    RequestLog& Requests() { return log_; }

 private:
    void Answer(const httplib::Request& request, httplib::Response& response, const char* scheme);

    const Machine& machine_;
    WsdBehaviour behaviour_;
    RequestLog log_;
};

}  // namespace vlm::printer

// The WSD print service: SOAP 1.2 at /wsd/print/. docs/wsd.md describes the exchange.
#pragma once

#include "printer/shared/guarded.h"
#include "printer/shared/machine.h"
#include "printer/soap/soap_ports.h"
#include "printer/wsd/wsd_answer.h"

namespace vlm::printer {

inline constexpr const char* kWsdPath = "/wsd/print/";

class WsdService : public SoapService {
 public:
    explicit WsdService(const Machine& machine) : machine_(machine) {}

    void Answer(const HttpRequest& http, HttpResponse& response, const char* scheme) override;

    Guarded<WsdStyle> style;

 private:
    const Machine& machine_;
};

}  // namespace vlm::printer

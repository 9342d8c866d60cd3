// The fault that a printer sends with HTTP status 500.
#pragma once

#include <string>
#include <string_view>

#include "util/sax.h"

namespace vlm {

struct SoapFault {
    std::wstring code;
    std::wstring string;
    std::wstring actor;
    std::wstring detail;  // the text in it, without its markup
};

// The meaning of a fault code that SOAP itself defines, such as "SOAP Invalid Request" for Client; null for
// any other code.
const wchar_t* SoapFaultMeaning(std::wstring_view code);

// Reads a SOAP 1.1 fault. A SOAP 1.2 fault is refused, and so is a fault after a Header: the services
// that this client talks to send neither, and the HTTP status alone reports their failure.
//
// Envelope, Body and Fault must follow each other in SOAP 1.1's namespace, each once and with nothing else
// before the fault; Header takes Body's place in that order. In the fault, faultcode, faultstring, faultactor
// and detail are gathered; unknown elements are skipped whole. A document that ends
// without a fault is refused too. A faultcode whose prefix is bound to SOAP's namespace is stored without it.
class CSoapFaultParser : public SaxHandler {
 public:
    explicit CSoapFaultParser(SoapFault* fault) : fault_(fault) {}

 private:
    HRESULT OnPrefix(std::wstring_view prefix, std::wstring_view uri) override;
    HRESULT OnStart(const XmlName& name, const XmlAttributes& attributes) override;
    HRESULT OnEnd(const XmlName& name) override;
    HRESULT OnText(std::wstring_view text) override;
    HRESULT OnDocumentEnd() override;

    SoapFault* fault_;
    std::wstring prefix_;  // of SOAP's namespace
    int step_ = 0;         // of the structural element reached last
    size_t depth_ = 0;
    size_t faultDepth_ = 0;
    std::wstring* target_ = nullptr;  // the text being gathered
};

}  // namespace vlm

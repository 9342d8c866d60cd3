// The proxy of the printer's WSD print service.
#pragma once

#include <windows.h>

#include <string>

#include "soap/soap_wininet_client.h"

namespace vlm::PrinterService {

// `Client` carries the exchange (see soap_wininet_client.h). Made for one exchange or several in a row with
// one service; addressed to the local machine until SetUrl().
template <typename Client>
class CPrinterServiceT : public Client {
 public:
    CPrinterServiceT() : Client(ServiceUrl{false, L"localhost", 80, L"/wsd/print/"}) {}

    // Sends `request`, a whole envelope, and returns the answer's body as the printer sent it. The
    // body is not checked. On failure GetClientError() tells more.
    HRESULT GetPrinterElements(const char* request, std::string* body) {
        const HRESULT hr = this->Call([request](std::string* text) {
            if (request == nullptr) return E_POINTER;
            *text = request;
            return S_OK;
        });
        return SUCCEEDED(hr) ? this->ReadBody(body) : hr;
    }
};

}  // namespace vlm::PrinterService

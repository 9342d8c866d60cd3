// The proxy of the printer's WSD print service.
#pragma once

#include <windows.h>

#include <string>

#include "soap/soap_wininet_client.h"
#include "soap/streams.h"
#include "util/com.h"

namespace vlm::PrinterService {

// `Client` carries the exchange (see soap_wininet_client.h). Made for one exchange or several in a row with
// one service; addressed to the local machine until SetUrl().
template <typename Client>
class CPrinterServiceT : public Client {
 public:
    CPrinterServiceT() : Client(ServiceUrl{false, L"localhost", 80, L"/wsd/print/"}) {}

    // Sends `request`, a whole envelope, and returns the answer's body as the printer sent it, as a stream at
    // its start. Nothing is said about what the body holds. On failure `response` is null and
    // GetClientError() tells more.
    HRESULT GetPrinterElements(const char* request, IStream** response) {
        *response = nullptr;
        HRESULT hr = this->InitializeReader();
        if (FAILED(hr)) return hr;
        this->CleanupClient();
        hr = this->SetBody(request);
        if (SUCCEEDED(hr)) hr = this->SendRequest(Client::kEmptyAction);
        std::string body;
        if (SUCCEEDED(hr)) hr = this->ReadBody(&body);
        if (SUCCEEDED(hr)) hr = MakeStream(body, response);
        return hr;
    }
};

}  // namespace vlm::PrinterService

// The proxy of the printer's department-ID service.
#pragma once

#include <windows.h>

#include <string>
#include <utility>

#include "soap/soap_generator.h"
#include "soap/soap_root_handler.h"
#include "soap/soap_wininet_client.h"
#include "util/namespaces.h"

namespace vlm::CheckUserPasswordService {

inline constexpr SoapField kFields[] = {{L"username", XsdType::kString, kSoapIn | kSoapNullable},
                                        {L"domain", XsdType::kString, kSoapIn | kSoapNullable},
                                        {L"type", XsdType::kString, kSoapIn | kSoapNullable},
                                        {L"password", XsdType::kString, kSoapIn | kSoapNullable},
                                        {L"result", XsdType::kBoolean, kSoapOut}};
inline constexpr SoapOperation kOperation{L"CheckUserPassword", ns::kDepartmentId, kFields, {}};

inline constexpr DWORD kTimeout = 5000;  // of an exchange, for SetTimeout()

// `Client` carries the exchange (see soap_wininet_client.h). Addressed to the local machine until SetUrl().
template <typename Client>
class CCheckUserPasswordServiceT : public Client {
 public:
    CCheckUserPasswordServiceT() : Client(ServiceUrl{false, L"localhost", 80, L"/active/deptid"}) {}

    // Asks whether the account and the password belong together; `result` is written on success only. A null
    // value among the four is sent as such. GetClientError() tells more about a failure.
    HRESULT CheckUserPassword(SoapValue username, SoapValue domain, SoapValue type, SoapValue password,
                              bool* result) {
        if (result == nullptr) return E_POINTER;
        SoapValues record = {
            std::move(username), std::move(domain), std::move(type), std::move(password), {}};
        HRESULT hr = this->Call([&record](std::string* body) {
            return CRpcEncodedGenerator(body).Generate(kOperation, record, {}) ? S_OK : E_FAIL;
        });
        if (FAILED(hr)) return hr;
        CVlSoapRootHandler handler(kOperation, &record);
        hr = this->ReadResponse(&handler);
        if (SUCCEEDED(hr)) *result = std::get<bool>(record.back());
        return hr;
    }
};

}  // namespace vlm::CheckUserPasswordService

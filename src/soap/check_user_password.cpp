#include "soap/check_user_password.h"

#include "soap/check_user_password_service.h"
#include "util/outcome.h"
#include "util/trace.h"

namespace vlm {

HRESULT CheckUserPassword(const wchar_t* url, const wchar_t* username, const wchar_t* password,
                          const wchar_t* type, const wchar_t* domain, bool* result) {
    for (const wchar_t* text : {url, username, password, type, domain}) {
        if (text == nullptr) return E_INVALIDARG;
    }
    return GuardHresult([&] {
        CheckUserPasswordService::CCheckUserPasswordServiceT<CVlSoapWininetClient> proxy;
        HRESULT hr = proxy.SetUrl(url);
        proxy.SetTimeout(CheckUserPasswordService::kTimeout);
        // The order of the wire is not the order of the arguments.
        if (SUCCEEDED(hr)) hr = proxy.CheckUserPassword(username, domain, type, password, result);
        if (FAILED(hr)) Trace(L"Error: %ls\r\n", proxy.Reason().c_str());
        return hr;
    });
}

}  // namespace vlm

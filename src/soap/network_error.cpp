#include "soap/network_error.h"

#include <wininet.h>

namespace vlm {

std::wstring DescribeNetworkError(DWORD error) {
    static constexpr struct {
        DWORD number;
        const wchar_t* words;
    } kErrors[] = {{ERROR_INTERNET_TIMEOUT, L"timed out"},
                   {ERROR_INTERNET_NAME_NOT_RESOLVED, L"unknown host"},
                   {ERROR_INTERNET_CANNOT_CONNECT, L"no connection"},
                   {ERROR_INTERNET_CONNECTION_ABORTED, L"connection aborted"},
                   {ERROR_INTERNET_CONNECTION_RESET, L"connection reset"},
                   {ERROR_INTERNET_SECURITY_CHANNEL_ERROR, L"no secure connection"},
                   {ERROR_HTTP_INVALID_SERVER_RESPONSE, L"the answer is not HTTP"}};
    const std::wstring number = std::to_wstring(error);
    for (const auto& known : kErrors)
        if (known.number == error) return std::wstring(known.words) + L" (" + number + L")";
    return L"error " + number;
}

}  // namespace vlm

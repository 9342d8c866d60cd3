// What any exchange over HTTP has to cost: one POST with bare WinINet.
#pragma once

#include <string>

#include "soap/soap_wininet_client.h"

namespace vlm::bench {

// The body of the answer; empty when there is none.
inline std::string BareExchange(INTERNET_PORT port, std::string request) {
    const InternetHandle internet(InternetOpenW(L"bench", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0));
    const InternetHandle connection(
        InternetConnectW(internet.Get(), L"127.0.0.1", port, nullptr, nullptr, INTERNET_SERVICE_HTTP, 0, 0));
    const InternetHandle post(HttpOpenRequestW(connection.Get(), L"POST", L"/wsd/print/", L"HTTP/1.0",
                                               nullptr, nullptr, INTERNET_FLAG_NO_UI, 0));
    std::string body;
    if (!HttpSendRequestW(post.Get(), nullptr, 0, request.data(), static_cast<DWORD>(request.size())))
        return body;
    char piece[4096];
    for (DWORD got = 0; InternetReadFile(post.Get(), piece, sizeof piece, &got) && got != 0;)
        body.append(piece, got);
    return body;
}

}  // namespace vlm::bench

// The endpoint of a service, in the parts that WinINet takes. Plain standard C++.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vlm {

struct ServiceUrl {
    bool secure = false;  // https; every other scheme is plain HTTP
    std::wstring host;    // an IPv6 address keeps its brackets
    std::uint16_t port = 0;
    std::wstring path;  // begins with '/', query included, fragment left out
};

// Reads "scheme://host:port/path?query" into `url`. Port monitors hand out less than that, so everything but
// the host may be missing: no scheme means http, no port means 80 or 443 by scheme, no path means
// `defaultPath`; an IPv6 address may stand without its brackets when no port follows it.
//
// False, with `url` untouched, for a URL that cannot be used: an empty or overlong host, a port that is not a
// number from 1 to 65535, user information (no request of ours carries credentials), a blank or control
// character anywhere (it would break the request line), text outside ASCII in the path, more than 2,083
// characters.
bool ParseServiceUrl(std::wstring_view text, std::wstring_view defaultPath, ServiceUrl* url);

// Reads "host", "host:port", "[IPv6]" or "[IPv6]:port". `port` stays without one. False, with nothing
// changed, for anything else; the host's name is not looked up.
bool ParseHostPort(std::wstring_view text, std::wstring* host, std::uint16_t* port);

}  // namespace vlm

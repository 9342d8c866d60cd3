#include "soap/service_url.h"

#include <algorithm>

#include "soap/digits.h"

namespace vlm {

namespace {

// WinINet's own limits for a URL and for a host name.
constexpr size_t kLongestUrl = 2083;
constexpr size_t kLongestHost = 255;

bool EqualsIgnoringCase(std::wstring_view text, std::wstring_view lowerCase) {
    const auto same = [](wchar_t a, wchar_t b) {
        return (a >= L'A' && a <= L'Z' ? a - L'A' + L'a' : a) == b;
    };
    return std::equal(text.begin(), text.end(), lowerCase.begin(), lowerCase.end(), same);
}

bool ParsePort(std::wstring_view digits, std::uint16_t* port) {
    const auto number = digits.size() <= 5 ? ParseDigits(digits, UINT16_MAX) : std::nullopt;
    if (number.value_or(0) == 0) return false;
    *port = static_cast<std::uint16_t>(*number);
    return true;
}

// What a URL allows beyond ParseHostPort(): nothing behind the colon, and a bare IPv6 address.
bool ParseAuthority(std::wstring_view authority, std::wstring* host, std::uint16_t* port) {
    if (!authority.starts_with(L'[') && std::count(authority.begin(), authority.end(), L':') > 1)
        return ParseHostPort(L"[" + std::wstring(authority) + L"]", host, port);
    if (authority.ends_with(L':')) authority.remove_suffix(1);
    return ParseHostPort(authority, host, port);
}

}  // namespace

bool ParseHostPort(std::wstring_view text, std::wstring* host, std::uint16_t* port) {
    const bool isAddress = text.starts_with(L'[');
    const size_t end = isAddress ? text.find(L']') + 1 : std::min(text.find(L':'), text.size());
    const std::wstring_view name = text.substr(0, end);
    if (name.empty() || name.size() > kLongestHost) return false;
    if (isAddress) {
        if (end == 2 || name.find_first_not_of(L"0123456789abcdefABCDEF:.%", 1) != end - 1) return false;
    } else if (name.find_first_of(L"@[]\\<>\"^`{|}") != std::wstring_view::npos) {
        return false;
    }
    const std::wstring_view rest = text.substr(end);
    if (!rest.empty() && (rest.front() != L':' || !ParsePort(rest.substr(1), port))) return false;
    *host = name;
    return true;
}

bool ParseServiceUrl(std::wstring_view text, std::wstring_view defaultPath, ServiceUrl* url) {
    if (text.size() > kLongestUrl) return false;
    if (std::any_of(text.begin(), text.end(),
                    [](wchar_t c) { return c <= 0x20 || (c >= 0x7F && c < 0xA0); })) {
        return false;
    }
    text = text.substr(0, text.find(L'#'));

    ServiceUrl parsed;
    if (const size_t scheme = text.find(L"://");
        scheme != std::wstring_view::npos && scheme < text.find_first_of(L"/?")) {
        parsed.secure = EqualsIgnoringCase(text.substr(0, scheme), L"https");
        text.remove_prefix(scheme + 3);
    }
    parsed.port = parsed.secure ? 443 : 80;

    const std::wstring_view authority = text.substr(0, text.find_first_of(L"/?"));
    if (!ParseAuthority(authority, &parsed.host, &parsed.port)) return false;

    const std::wstring_view path = text.substr(authority.size());
    if (std::any_of(path.begin(), path.end(), [](wchar_t c) { return c > 0x7E; })) return false;
    if (path.empty()) {
        parsed.path = defaultPath;
    } else {
        if (path.front() == L'?') parsed.path = L"/";
        parsed.path += path;
    }
    *url = std::move(parsed);
    return true;
}

}  // namespace vlm

#include "tools/vlmctl/exchange/address.h"

#include "tools/vlmctl/console/command.h"

namespace vlm::ctl {

namespace {

bool IsPort(const std::string& text) {
    return !text.empty() && text.size() <= 5 && text.find_first_not_of("0123456789") == std::string::npos &&
           std::stoi(text) > 0 && std::stoi(text) <= 65535;
}

}  // namespace

Address ParseAddress(const std::string& text) {
    Address address;
    std::string rest;  // ":PORT", or nothing
    bool good = true;
    if (text.starts_with('[')) {
        const size_t bracket = text.find(']');
        good = bracket != std::string::npos;
        address.host = text.substr(1, bracket - 1);
        if (good) rest = text.substr(bracket + 1);
    } else {
        const size_t colon = text.rfind(':');
        address.host = text.substr(0, colon);
        if (colon != std::string::npos) rest = text.substr(colon);
        // Without brackets nobody can tell where an IPv6 address ends.
        good = address.host.find(':') == std::string::npos;
    }
    if (!rest.empty()) {
        good = good && rest[0] == ':';
        address.port = rest.substr(1);
    }
    if (!good || address.host.empty() || !IsPort(address.port))
        throw CommandError("'" + text + "' is not HOST, HOST:PORT or [IPV6]:PORT", kWrongUsage);
    return address;
}

}  // namespace vlm::ctl

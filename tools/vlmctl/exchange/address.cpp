#include "tools/vlmctl/exchange/address.h"

#include "soap/service_url.h"
#include "tools/vlmctl/console/command.h"
#include "util/text.h"

namespace vlm::ctl {

Address ParseAddress(const std::string& text) {
    std::wstring host;
    std::uint16_t port = 9100;
    if (!ParseHostPort(FromUtf8(text), &host, &port))
        throw CommandError("'" + text + "' is not HOST, HOST:PORT or [IPV6]:PORT", kWrongUsage);
    if (host.starts_with(L'[')) host = host.substr(1, host.size() - 2);
    return {ToUtf8(host), std::to_string(port)};
}

}  // namespace vlm::ctl

// The raw port of a network printer, as a user writes it.
#pragma once

#include <string>

namespace vlm::ctl {

struct Address {
    std::string host;
    std::string port;
};

// HOST, HOST:PORT, [IPV6] or [IPV6]:PORT; without a port 9100. Throws CommandError with kWrongUsage for
// anything else.
Address ParseAddress(const std::string& text);

}  // namespace vlm::ctl

// The raw port of a network printer, as a user writes it.
#pragma once

#include <string>

namespace vlm::ctl {

struct Address {
    std::string host;
    std::string port = "9100";
};

// HOST, HOST:PORT, [IPV6] or [IPV6]:PORT. Throws CommandError with kWrongUsage for anything else.
Address ParseAddress(const std::string& text);

}  // namespace vlm::ctl

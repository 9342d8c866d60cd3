#include "tools/vlmctl/address.h"

#include "tools/vlmctl/command.h"

namespace vlm::ctl {

Address ParseAddress(const std::string& text) {
    Address address;
    size_t hostEnd = text.rfind(':');
    if (!text.empty() && text[0] == '[') {
        const size_t bracket = text.find(']');
        if (bracket == std::string::npos)
            throw CommandError("'" + text + "' has no closing bracket", kWrongUsage);
        address.host = text.substr(1, bracket - 1);
        hostEnd = bracket + 1 < text.size() ? bracket + 1 : std::string::npos;
    } else {
        address.host = text.substr(0, hostEnd);
    }
    if (hostEnd != std::string::npos) address.port = text.substr(hostEnd + 1);
    const bool number = !address.port.empty() && address.port.size() <= 5 &&
                        address.port.find_first_not_of("0123456789") == std::string::npos;
    if (address.host.empty() || !number || std::stoi(address.port) == 0 || std::stoi(address.port) > 65535)
        throw CommandError("'" + text + "' is not HOST or HOST:PORT", kWrongUsage);
    return address;
}

}  // namespace vlm::ctl

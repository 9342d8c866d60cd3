// Reads a GetPrinterElements request, and says everything that is wrong with it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vlm::printer {

struct ElementName {
    std::string uri;
    std::string name;
};

struct WsdRequest {
    std::string to;
    std::string action;
    std::string messageId;
    std::string from;
    std::vector<ElementName> names;     // those that resolve
    std::vector<std::string> findings;  // a line each; none for a sound request
    bool otherVersion = false;          // the message is no SOAP 1.2
};

// Fills in what it can read, findings or not.
WsdRequest ReadWsdRequest(std::string_view contentType, const std::string& body);

}  // namespace vlm::printer

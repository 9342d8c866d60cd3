// Reads a GetPrinterElements request, and says everything that is wrong with it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "printer/soap/soap_message.h"

namespace vlm::printer {

struct ElementName {
    std::string uri;
    std::string name;
};

struct WsdRequest : SoapRequest {
    std::string to;
    std::string action;
    std::string messageId;
    std::string from;
    std::vector<ElementName> names;  // those that resolve
};

// Fills in what it can read, findings or not.
WsdRequest ReadWsdRequest(std::string_view contentType, const std::string& body);

}  // namespace vlm::printer

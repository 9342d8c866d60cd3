// Reads a CheckUserPassword request, and says everything that is wrong with it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "accounts.h"

namespace vlm::printer {

struct DeptIdRequest {
    Credentials credentials;            // a null counts as empty
    std::vector<std::string> findings;  // a line each; none for a sound request
    bool otherVersion = false;          // the message is no SOAP 1.2
};

// Fills in what it can read, findings or not. The findings quote nothing from where a password may stand.
DeptIdRequest ReadDeptIdRequest(std::string_view contentType, const std::string& body);

}  // namespace vlm::printer

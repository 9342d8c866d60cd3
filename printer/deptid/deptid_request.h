// Reads a CheckUserPassword request and finds everything that is wrong with it.
#pragma once

#include <string>
#include <string_view>

#include "printer/deptid/accounts.h"
#include "printer/soap/soap_message.h"

namespace vlm::printer {

struct DeptIdRequest : SoapRequest {
    Credentials credentials;  // a nil element counts as empty
};

// Fills in what it can read, findings or not. The findings never quote text that may hold a password.
DeptIdRequest ReadDeptIdRequest(std::string_view contentType, const std::string& body);

}  // namespace vlm::printer

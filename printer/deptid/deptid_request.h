// Reads a CheckUserPassword request, and says everything that is wrong with it.
#pragma once

#include <string>
#include <string_view>

#include "printer/deptid/accounts.h"
#include "printer/soap/soap_message.h"

namespace vlm::printer {

struct DeptIdRequest : SoapRequest {
    Credentials credentials;  // a null counts as empty
};

// Fills in what it can read, findings or not. The findings quote nothing from where a password may stand.
DeptIdRequest ReadDeptIdRequest(std::string_view contentType, const std::string& body);

}  // namespace vlm::printer

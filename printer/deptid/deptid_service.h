// The department-ID service: SOAP 1.2 RPC/encoded at /active/deptid. docs/department-id.md describes the
// exchange. It neither keeps nor shows anything that reveals a password.
#pragma once

#include <utility>

#include "printer/deptid/accounts.h"
#include "printer/soap/soap_ports.h"

namespace vlm::printer {

inline constexpr const char* kDeptIdPath = "/active/deptid";

class DeptIdService : public SoapService {
 public:
    explicit DeptIdService(Accounts accounts) : accounts_(std::move(accounts)) {}

    void Answer(const HttpRequest& http, HttpResponse& response, const char* scheme) override;

 private:
    const Accounts accounts_;
};

}  // namespace vlm::printer

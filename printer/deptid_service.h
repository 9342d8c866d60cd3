// The department-ID service: SOAP 1.2 RPC/encoded at /active/deptid. docs/department-id.md describes the
// exchange. It keeps and shows nothing from which a password could be told.
#pragma once

#include <utility>

#include "accounts.h"
#include "request_log.h"
#include "soap_ports.h"

namespace vlm::printer {

inline constexpr const char* kDeptIdPath = "/active/deptid";

class DeptIdService {
 public:
    explicit DeptIdService(Accounts accounts) : accounts_(std::move(accounts)) {}
    DeptIdService(const DeptIdService&) = delete;
    DeptIdService& operator=(const DeptIdService&) = delete;

    void AddTo(SoapPorts& ports);  // which end before the service does

    RequestLog& Requests() { return log_; }

 private:
    void Answer(const httplib::Request& request, httplib::Response& response, const char* scheme);

    const Accounts accounts_;
    RequestLog log_;
};

}  // namespace vlm::printer

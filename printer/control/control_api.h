// The control API, for scripts and tests: JSON over HTTP. docs/virtual-printer.md lists it.
//   GET /state   GET /documents   PUT and DELETE /fault   PUT and DELETE /answer   POST /shutdown
//   GET /vpca/requests   PUT and DELETE /vpca/fault   GET and DELETE /deptid/requests
// wsd_control.h adds those for the WSD print service and the machine.
// A request that is not understood is answered with 400 and {"error": "one line"}, and changes nothing.
#pragma once

#include <functional>

#include "printer/deptid/deptid_service.h"
#include "printer/net/http_listener.h"
#include "printer/raw/document_store.h"
#include "printer/raw/raw_port.h"
#include "printer/soap/soap_ports.h"
#include "printer/wsd/wsd_service.h"

namespace vlm::printer {

// Registers the routes. The arguments have to outlive the listener; `shutdown` is called on one of
// the listener's threads and must not wait for the listener to stop.
void AddControlApi(HttpListener& http, RawPort& rawPort, SoapPorts& soap, WsdService& wsd,
                   DeptIdService& deptId, Machine& machine, const DocumentStore& store,
                   std::function<void()> shutdown);

}  // namespace vlm::printer

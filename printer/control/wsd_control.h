// The part of the control API for the WSD print service and the machine behind it.
//   GET /wsd              its fault and style
//   GET, DELETE /wsd/requests   PUT, DELETE /wsd/fault   PUT, DELETE /wsd/style   GET, PUT /machine
#pragma once

#include "printer/net/http_server.h"
#include "printer/shared/machine.h"
#include "printer/wsd/wsd_service.h"

namespace vlm::printer {

// Registers the routes. The arguments have to outlive the server.
void AddWsdControl(HttpServer& server, HttpFaults& faults, WsdService& wsd, Machine& machine);

}  // namespace vlm::printer

// The control API's part for the WSD print service and the machine behind it.
//   GET /wsd              its fault and style
//   GET, DELETE /wsd/requests   PUT, DELETE /wsd/fault   PUT, DELETE /wsd/style   GET, PUT /machine
#pragma once

#include "http_server.h"
#include "machine.h"
#include "wsd_service.h"

namespace vlm::printer {

// Registers the server. What it is given has to outlive the server's run.
void AddWsdControl(HttpServer& server, WsdFaults& faults, WsdService& wsd, Machine& machine);

}  // namespace vlm::printer

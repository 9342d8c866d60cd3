// What the procedures share with the server that registers them.
#pragma once

#include "rpc/rpc_server.h"

namespace vlm::rpc {

// Set before the interface is registered, and not changed while it is.
extern PortDirectory portDirectory;

}  // namespace vlm::rpc

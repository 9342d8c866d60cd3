// A certificate as neglected printers have it: self-signed, for another host, long expired.
#pragma once

#include "printer/net/channel.h"

namespace vlm::printer {

// A server's context with a fresh key. Throws std::runtime_error.
TlsContext MakeTlsContext();

}  // namespace vlm::printer

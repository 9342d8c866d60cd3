// The address of a port's printer. A standard TCP/IP port monitor has the host address, a WSD port monitor
// the URL of the print service. Each query asks again, because either may change at any time.
#pragma once

#include <string>

#include "bidi/bidi_mem.h"
#include "monitor/lm_port.h"
#include "util/outcome.h"

namespace vlm {

// How a port's printer is reached.
enum class PortConnectMode {
    kTcp = 0,  // a standard TCP/IP port: the printer's host address is known
    kWsd = 1,  // a WSD port, whose monitor knows the address of the print service
    kUnknown = 2,
};

// Asks the lower monitor for the kind of port. `text` becomes the host address of a TCP/IP port, and empty
// for a WSD port. E_FAIL, with `mode` unknown, if the lower monitor does not say.
Outcome GetConfigInfo(const LmPort& port, PortConnectMode* mode, std::wstring* text);

// The address of the printer's print service: a host address or a URL.
Outcome GetPrinterAddress(const LmPort& port, std::wstring* address, const CBidiMem& memory);

}  // namespace vlm

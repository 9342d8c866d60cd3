// What the remote procedures return: Win32 codes, each with one meaning here. Any other code is what the port
// below the monitor left.
#pragma once

#include <cstdint>

namespace vlm::rpc {

enum Code : std::uint32_t {
    kDone = 0,
    kPortBusy = 5,         // with a job or another caller
    kNothingBelow = 6,     // the lower monitor could not open the port
    kOutOfMemory = 8,      // on the print server
    kBadAnswer = 13,       // the printer's answer cannot be understood
    kPrinterRefused = 31,  // or the port below failed without saying why
    kBadArguments = 87,    // a name that is too long, an argument out of range
    kNoSuchPrinter = 110,  // no USB printer with Bidi has that name
    kReplyTooSmall = 122,  // for the answer
    kPortNotOpen = 161,    // the printer's port
    kPortClosing = 995,    // while the exchange ran
    kUnexpected = 1627,
};

}  // namespace vlm::rpc

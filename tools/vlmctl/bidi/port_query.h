// A Bidi query the way the spooler asks it: through the monitor DLL, on a port whose lower monitor is ours.
#pragma once

#include <string>
#include <vector>

#include "spooler/host/bidi_lower_monitor.h"
#include "tools/vlmctl/bidi/containers.h"

namespace vlm::ctl {

struct PortQuery {
    std::vector<std::string> extensions;  // in the order in which a printer loads them
    std::string printerUrl;
    host::BidiLowerMonitor::Kind port = host::BidiLowerMonitor::Kind::kTcp;
    std::string dll;  // empty: the one beside the program
};

// Loads the monitor, gives it a stand-in printer whose driver names the extension files, and asks. Each entry
// says its source:
//   "lower monitor"  the lower monitor, asked alone, gives the same entry. The engine gives none of its
//                    types and results, and so cannot be meant, except for the address of the print
//                    service: that counts as the lower monitor's even where an extension file holds it too;
//   "monitor"        the monitor itself answered, without asking anybody (a USB port);
//   "engine"         every other.
//
// Throws CommandError with one line that says what is wrong.
std::vector<BidiAnswer> AskThroughPort(const PortQuery& query, const wchar_t* action,
                                       const std::vector<std::string>& paths);

}  // namespace vlm::ctl

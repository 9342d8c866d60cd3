// The WSD print service's messages, in the style that is asked for.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "printer/shared/machine.h"
#include "printer/wsd/wsd_request.h"

namespace vlm::printer {

// How the answer spells its namespaces. What it says is the same in every style.
struct WsdStyle {
    std::string prefix = "wprt";  // of the print service's namespace; empty: it is the default namespace
    std::string soapPrefix = "soap";
    bool nested = false;  // namespaces are declared in the body, where they are used, not on the root
    std::map<std::string, std::string> extra;  // further declarations on the root: prefix to namespace
};

// One line that says what is wrong with a style that a user asked for; nothing when it is sound.
std::optional<std::string> FindFlaw(const WsdStyle& style);

// For a request without findings. An element that the machine does not have is there with Valid="false".
std::string WsdAnswer(const WsdRequest& request, const MachineState& machine, const WsdStyle& style);

}  // namespace vlm::printer

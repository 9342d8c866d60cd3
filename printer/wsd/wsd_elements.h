// The printer elements: what the WSD print service says about the machine, element by element.
#pragma once

#include <string>
#include <string_view>

#include "printer/shared/machine.h"
#include "printer/soap/xml.h"

namespace vlm::printer {

// Appends the element's content below `elementData`, in the print service's namespace, which is
// `elementData`'s own; `vendor` is the vendor's. False, and nothing is appended, when the machine has no such
// element.
bool AppendPrinterElement(XmlElement elementData, std::string_view uri, std::string_view name, xmlNs* vendor,
                          const MachineState& machine);

}  // namespace vlm::printer

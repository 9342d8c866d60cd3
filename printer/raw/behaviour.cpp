#include "printer/raw/behaviour.h"

namespace vlm::printer {
std::optional<std::string> FindFlaw(const Fault& fault) {
    if (fault.mode == FaultMode::kRefuse && (fault.after != 0 || fault.connections))
        return "a refused connection cannot be counted: refuse takes neither 'after' nor 'connections'";
    if (fault.mode == FaultMode::kSlow && fault.rate == 0)
        return "slow needs a 'rate' of at least 1 byte per second";
    if (fault.mode != FaultMode::kSlow && fault.rate != 0) return "only slow takes a 'rate'";
    if (fault.connections && *fault.connections == 0) return "'connections' must be at least 1";
    return std::nullopt;
}

bool Behaviour::Refusing() const {
    const auto fault = CurrentFault();
    return fault && fault->mode == FaultMode::kRefuse;
}

}  // namespace vlm::printer

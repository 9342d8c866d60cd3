// The fault that a user has set. Connections (or requests) take it as they come, at most as many as it says,
// and keep it until they end or the fault is cleared. A new fault applies to later ones only. Thread-safe.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <utility>

namespace vlm::printer {

// `left` is the member that counts how many may still take the fault; without a value, all until it is
// cleared.
template <typename Fault, auto left = &Fault::connections>
class FaultSlot {
 public:
    void SetFault(Fault fault) {  // checked by the caller
        const std::scoped_lock lock(mutex_);
        fault_ = std::move(fault);
    }
    void ClearFault() {
        const std::scoped_lock lock(mutex_);
        fault_.reset();
        ++era_;
    }
    std::optional<Fault> CurrentFault() const {
        const std::scoped_lock lock(mutex_);
        return fault_;
    }

    struct Taken {
        std::optional<Fault> fault;
        std::uint64_t era = 0;
    };
    Taken TakeFault() {
        const std::scoped_lock lock(mutex_);
        Taken taken{fault_, era_};
        if (fault_ && (*fault_).*left && --*((*fault_).*left) == 0) fault_.reset();
        return taken;
    }
    bool FaultHolds(const Taken& taken) const {  // false once it was cleared
        const std::scoped_lock lock(mutex_);
        return taken.era == era_;
    }

 private:
    mutable std::mutex mutex_;
    std::optional<Fault> fault_;
    std::uint64_t era_ = 0;  // how often faults were cleared
};

}  // namespace vlm::printer

#include "soak/report.h"

#include <cinttypes>
#include <cstdio>

namespace vlm::soak {

void Report::Note(const std::string& operation, DWORD code, double milliseconds) {
    const std::lock_guard guard(mutex_);
    Operation& noted = operations_[operation];
    ++noted.count;
    if (milliseconds > noted.slowest) noted.slowest = milliseconds;
    if (code != 0) ++noted.refusals[code];
}

void Report::Violate(const std::string& worker, uint64_t step, const std::string& what) {
    const std::lock_guard guard(mutex_);
    if (violated_) return;
    violation_ = worker + ", step " + std::to_string(step) + ": " + what;
    violated_ = true;
}

void Report::PrintOperations() const {
    const std::lock_guard guard(mutex_);
    std::printf("%-24s %10s %12s  %s\n", "operation", "done", "slowest ms", "refused: code x times");
    for (const auto& [name, operation] : operations_) {
        std::string refusals;
        for (const auto& [code, times] : operation.refusals)
            refusals += (refusals.empty() ? "" : ", ") + std::to_string(code) + " x " + std::to_string(times);
        std::printf("%-24s %10" PRIu64 " %12.1f  %s\n", name.c_str(), operation.count, operation.slowest,
                    refusals.c_str());
    }
}

void Report::PrintVerdict(uint64_t seed) const {
    const std::lock_guard guard(mutex_);
    if (violated_) {
        std::printf("first violation: seed %" PRIu64 ", %s\n", seed, violation_.c_str());
    } else {
        std::printf("no violation\n");
    }
}

}  // namespace vlm::soak

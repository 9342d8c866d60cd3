// What a soak did: how often each operation ran, how it was refused, how long it took at most, and the first
// thing that was wrong. Any thread.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace vlm::soak {

class Report {
 public:
    // `code` is 0, or what the operation was refused with.
    void Note(const std::string& operation, DWORD code, double milliseconds);
    // Only the first one is kept; later ones may follow from it. A step of 0 belongs to no step.
    void Violate(const std::string& worker, uint64_t step, const std::string& what);
    bool Violated() const { return violated_; }
    // Both on standard output.
    void PrintOperations() const;
    void PrintVerdict(uint64_t seed) const;

 private:
    struct Operation {
        uint64_t count = 0;
        double slowest = 0;
        std::map<DWORD, uint64_t> refusals;
    };

    mutable std::mutex mutex_;
    std::map<std::string, Operation> operations_;
    std::string violation_;
    std::atomic<bool> violated_{false};
};

}  // namespace vlm::soak

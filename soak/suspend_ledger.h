// What is known of the suspend flag, which every StartDocPort of the process lowers and a suspend notice
// raises: enough to tell which writes had to be refused, and which must not have been. Any thread; notices
// are sent from one thread.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>

namespace vlm::soak {

class SuspendLedger {
 public:
    // Around StartDocPort. The result belongs to the job's writes.
    uint64_t BeginStart() {
        const std::lock_guard guard(mutex_);
        ++startsBegun_;
        return noticesEnded_;
    }
    void EndStart() {
        const std::lock_guard guard(mutex_);
        ++startsEnded_;
    }

    // Around the sending of a notice.
    void BeginNotice() {
        const std::lock_guard guard(mutex_);
        ++noticesBegun_;
        certain_ = startsBegun_ == startsEnded_;
        startsAtNotice_ = startsBegun_;
    }
    void EndNotice() {
        const std::lock_guard guard(mutex_);
        ++noticesEnded_;
    }

    // Before WritePort: set when the flag is certainly up.
    std::optional<uint64_t> BeginWrite() const {
        const std::lock_guard guard(mutex_);
        const bool up = noticesEnded_ != 0 && noticesBegun_ == noticesEnded_ && certain_ &&
                        startsBegun_ == startsAtNotice_;
        return up ? std::optional(startsBegun_) : std::nullopt;
    }
    // After a write that was not refused: whether it had to be.
    bool MissedSuspend(std::optional<uint64_t> begin) const {
        const std::lock_guard guard(mutex_);
        return begin && *begin == startsBegun_;
    }
    // After a write that was refused, in a job whose BeginStart gave `start`: whether there was any reason.
    bool SuspendedSince(uint64_t start) const {
        const std::lock_guard guard(mutex_);
        return noticesBegun_ > start;
    }

 private:
    mutable std::mutex mutex_;
    uint64_t startsBegun_ = 0;
    uint64_t startsEnded_ = 0;
    uint64_t noticesBegun_ = 0;
    uint64_t noticesEnded_ = 0;
    uint64_t startsAtNotice_ = 0;
    bool certain_ = false;  // no start was under way when the last notice began
};

}  // namespace vlm::soak

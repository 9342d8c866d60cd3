// The last entries of a log. Thread-safe.
#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <utility>

namespace vlm::printer {

template <typename Entry>
class Recent {
 public:
    void Add(Entry entry) {
        const std::scoped_lock lock(mutex_);
        entries_.push_back(std::move(entry));
        if (entries_.size() > kKept) entries_.pop_front();
    }
    std::deque<Entry> All() const {  // oldest first
        const std::scoped_lock lock(mutex_);
        return entries_;
    }
    void Clear() {
        const std::scoped_lock lock(mutex_);
        entries_.clear();
    }

    static constexpr std::size_t kKept = 100;

 private:
    mutable std::mutex mutex_;
    std::deque<Entry> entries_;
};

}  // namespace vlm::printer

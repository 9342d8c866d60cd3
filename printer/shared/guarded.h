// A setting that several threads read and change.
#pragma once

#include <mutex>
#include <utility>

namespace vlm::printer {

template <typename Value>
class Guarded {
 public:
    void Set(Value value) {
        const std::scoped_lock lock(mutex_);
        value_ = std::move(value);
    }
    Value Get() const {
        const std::scoped_lock lock(mutex_);
        return value_;
    }

 private:
    mutable std::mutex mutex_;
    Value value_;
};

}  // namespace vlm::printer

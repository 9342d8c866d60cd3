// Runs a function at the end of the scope, on every way out of it.
#pragma once

#include <utility>

namespace vlm {

template <typename Function>
class [[nodiscard]] ScopeExit {
 public:
    explicit ScopeExit(Function function) : function_(std::move(function)) {}
    ~ScopeExit() {
        if (armed_) function_();
    }
    ScopeExit(const ScopeExit&) = delete;
    ScopeExit& operator=(const ScopeExit&) = delete;

    // Leaves the scope without running the function.
    void Dismiss() { armed_ = false; }

 private:
    Function function_;  // must not throw
    bool armed_ = true;
};

}  // namespace vlm

// The platform's slim lock for the length of a scope. Such a lock needs no construction and no destruction,
// so that it may guard what outlives the module's own statics.
#pragma once

#include <windows.h>

namespace vlm {

class ExclusiveScope {
 public:
    explicit ExclusiveScope(SRWLOCK& lock) : lock_(lock) { AcquireSRWLockExclusive(&lock_); }
    ~ExclusiveScope() { ReleaseSRWLockExclusive(&lock_); }
    ExclusiveScope(const ExclusiveScope&) = delete;
    ExclusiveScope& operator=(const ExclusiveScope&) = delete;

 private:
    SRWLOCK& lock_;
};

}  // namespace vlm

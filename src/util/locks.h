// Locks for the length of a scope, and what they guard in words that clang checks (-Wthread-safety). Other
// compilers see nothing of the words.
//
//   int starts VLM_GUARDED_BY(lock);       is touched with the lock held only
//   void Register() VLM_REQUIRES(lock);    is called with the lock held only
//   void Await() VLM_EXCLUDES(lock);       takes the lock itself, so its caller must not hold it
//   void AtDetach() VLM_UNCHECKED;         touches what is guarded all the same, for a reason that it gives
#pragma once

#include <windows.h>

#if defined(__clang__)
#define VLM_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define VLM_THREAD_SAFETY(attribute)
#endif
#define VLM_CAPABILITY VLM_THREAD_SAFETY(capability("mutex"))
#define VLM_SCOPED VLM_THREAD_SAFETY(scoped_lockable)
#define VLM_GUARDED_BY(lock) VLM_THREAD_SAFETY(guarded_by(lock))
#define VLM_PT_GUARDED_BY(lock) VLM_THREAD_SAFETY(pt_guarded_by(lock))
#define VLM_REQUIRES(lock) VLM_THREAD_SAFETY(requires_capability(lock))
#define VLM_EXCLUDES(lock) VLM_THREAD_SAFETY(locks_excluded(lock))
#define VLM_ACQUIRE(lock) VLM_THREAD_SAFETY(acquire_capability(lock))
#define VLM_UNCHECKED VLM_THREAD_SAFETY(no_thread_safety_analysis)
#define VLM_RELEASE VLM_THREAD_SAFETY(release_capability())

namespace vlm {

// The platform's critical section. Made and unmade by hand, for one that lives as long as the module.
struct VLM_CAPABILITY CriticalSection {
    CRITICAL_SECTION section;
};

// The platform's slim lock. Needs neither construction nor destruction, so that it may guard what outlives
// the module's own statics.
struct VLM_CAPABILITY SlimLock {
    SRWLOCK lock = SRWLOCK_INIT;
};

class VLM_SCOPED LockGuard {
 public:
    explicit LockGuard(CriticalSection& section) VLM_ACQUIRE(section) : section_(section) {
        EnterCriticalSection(&section_.section);
    }
    ~LockGuard() VLM_RELEASE { LeaveCriticalSection(&section_.section); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

 private:
    CriticalSection& section_;
};

class VLM_SCOPED ExclusiveScope {
 public:
    explicit ExclusiveScope(SlimLock& lock) VLM_ACQUIRE(lock) : lock_(lock) {
        AcquireSRWLockExclusive(&lock_.lock);
    }
    ~ExclusiveScope() VLM_RELEASE { ReleaseSRWLockExclusive(&lock_.lock); }
    ExclusiveScope(const ExclusiveScope&) = delete;
    ExclusiveScope& operator=(const ExclusiveScope&) = delete;

 private:
    SlimLock& lock_;
};

}  // namespace vlm

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
    void Acquire() { EnterCriticalSection(&section); }
    void Release() { LeaveCriticalSection(&section); }

    CRITICAL_SECTION section;
};

// The platform's slim lock. Needs neither construction nor destruction, so that it may guard what outlives
// the module's own statics.
struct VLM_CAPABILITY SlimLock {
    void Acquire() { AcquireSRWLockExclusive(&lock); }
    void Release() { ReleaseSRWLockExclusive(&lock); }

    SRWLOCK lock = SRWLOCK_INIT;
};

// Either of them, held for the length of a scope.
template <typename Lock>
class VLM_SCOPED LockGuard {
 public:
    explicit LockGuard(Lock& lock) VLM_ACQUIRE(lock) : lock_(lock) { lock_.Acquire(); }
    ~LockGuard() VLM_RELEASE { lock_.Release(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

 private:
    Lock& lock_;
};

}  // namespace vlm

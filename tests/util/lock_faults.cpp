// What a build with clang has to refuse: each function uses what a lock guards in a way of its own without
// it. That nothing else compiles it shows that the words of locks.h reach the compiler.
#include "util/locks.h"

namespace vlm {

SlimLock lock;
int counter VLM_GUARDED_BY(lock) = 0;
int* counters VLM_PT_GUARDED_BY(lock) = &counter;

void Add(int value) VLM_REQUIRES(lock);
void Await() VLM_EXCLUDES(lock);

int ReadWithoutLock() {
    return counter;
}
void Touch() {
    const LockGuard exclusive(lock);
}
void WriteBehindLock() {
    Touch();
    counter = 1;
}
int ReadThroughPointer() {
    return *counters;
}
void CallWithoutLock() {
    Add(1);
}
void WaitWithLock() {
    const LockGuard exclusive(lock);
    Await();
}
void TakeTwice() {
    const LockGuard exclusive(lock);
    const LockGuard again(lock);
}

}  // namespace vlm

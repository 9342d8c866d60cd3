// The one place where the codec gets memory: the process's local heap on Windows, malloc elsewhere.
//
// A program that wants to count or refuse allocations defines these two functions itself; the linker then
// leaves ours out.
#pragma once

#include <cstddef>

namespace vlm::vpca {

// A zeroed block, or null.
void* Allocate(size_t size);
// Null is allowed. Keeps the thread's last error.
void Free(void* block);

}  // namespace vlm::vpca

#include "vpca/memory.h"

#ifdef _WIN32
#include <windows.h>
// windows.h first.
#include "util/handles.h"
#else
#include <cstdlib>
#endif

namespace vlm::vpca {

#ifdef _WIN32

void* Allocate(size_t size) {
    return LocalAlloc(LPTR, size);
}

void Free(void* block) {
    const LastErrorKeeper keeper;
    LocalFree(block);
}

#else

void* Allocate(size_t size) {
    return std::calloc(1, size);
}

void Free(void* block) {
    std::free(block);
}

#endif

}  // namespace vlm::vpca

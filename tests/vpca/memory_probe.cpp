#include "memory_probe.h"

#include <cstdlib>
#include <limits>

#include "vpca/memory.h"

namespace vlm::vpca {

namespace {

int allocations = 0;
int live = 0;
int allowed = std::numeric_limits<int>::max();

bool Permit() {
    if (allowed == 0) return false;
    --allowed;
    ++allocations;
    return true;
}

}  // namespace

void* Allocate(size_t size) {
    if (!Permit()) return nullptr;
    ++live;
    return std::calloc(1, size);
}

void* Reallocate(void* block, size_t size) {
    return Permit() ? std::realloc(block, size) : nullptr;
}

void Free(void* block) {
    if (block == nullptr) return;
    --live;
    std::free(block);
}

namespace memory_probe {

int Allocations() {
    return allocations;
}

int Live() {
    return live;
}

void RefuseAfter(int more) {
    allowed = more;
}

void Reset() {
    allocations = 0;
    allowed = std::numeric_limits<int>::max();
}

}  // namespace memory_probe

}  // namespace vlm::vpca

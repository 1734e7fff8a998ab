#include "tests/unit/logging/allocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local int allocations = 0;

}  // namespace

int Allocations() {
    return allocations;
}

void* operator new(std::size_t size) {
    ++allocations;
    void* const block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
    std::free(block);
}

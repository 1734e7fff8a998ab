// The memory that a test program's `new` gives, in the calling thread.
#pragma once

#include <cstddef>

// How often `new` was asked.
int Allocations();

// While one of these exists, `new` throws std::bad_alloc for a block larger than `largest` bytes,
// once it has granted the first `granted` of them.
class ScarceMemory {
public:
    explicit ScarceMemory(std::size_t largest, int granted = 0);
    ~ScarceMemory();
    ScarceMemory(const ScarceMemory&) = delete;
    ScarceMemory& operator=(const ScarceMemory&) = delete;
};

// Memory that runs out: while one of these exists, `new` throws std::bad_alloc in this thread for a
// block larger than `largest` bytes, once it has granted the first `granted` of them.
#pragma once

#include <cstddef>

class ScarceMemory {
public:
    explicit ScarceMemory(std::size_t largest, int granted = 0);
    ~ScarceMemory();
    ScarceMemory(const ScarceMemory&) = delete;
    ScarceMemory& operator=(const ScarceMemory&) = delete;
};

// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The memory that a test program takes, in the calling thread.
#pragma once

#include <cstddef>

// How often malloc was called, by `new` or else; under the address sanitizer, by `new` alone.
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

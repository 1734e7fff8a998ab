// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "tests/support/memory.h"

#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

thread_local int allocations = 0;
thread_local std::size_t largestBlock = SIZE_MAX;
thread_local int grantedBlocks = 0;

}  // namespace

int Allocations() {
    return allocations;
}

ScarceMemory::ScarceMemory(std::size_t largest, int granted) {
    largestBlock = largest;
    grantedBlocks = granted;
}

ScarceMemory::~ScarceMemory() {
    largestBlock = SIZE_MAX;
}

#ifndef __SANITIZE_ADDRESS__  // which has a malloc of its own
extern "C" void* __libc_malloc(std::size_t size);

extern "C" void* malloc(std::size_t size) {
    ++allocations;
    return __libc_malloc(size);
}
#endif

void* operator new(std::size_t size) {
#ifdef __SANITIZE_ADDRESS__
    ++allocations;
#endif
    const bool isLarge = size > largestBlock;
    if (isLarge && grantedBlocks-- <= 0) throw std::bad_alloc();
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

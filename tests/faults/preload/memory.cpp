// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Memory that runs out once: allocation number FAULTS_ALLOCATION of the process fails. It is the C
// library's functions that fail, and operator new with them.
#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include "tests/faults/preload/process.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

unsigned long allocations = 0;

bool FailsNow() {
    // Read by the first one: that comes before this library's turn to be initialised.
    static const unsigned long failing = FaultsPreload::Setting("FAULTS_ALLOCATION");
    if (++allocations != failing) return false;
    FaultsPreload::Report("failed", allocations);
    errno = ENOMEM;
    return true;
}

}  // namespace

unsigned long FaultsPreload::Allocations() {
    return allocations;
}

extern "C" {

void* malloc(std::size_t size) {
    return FailsNow() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    return FailsNow() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
    return FailsNow() ? nullptr : __libc_realloc(block, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return FailsNow() ? nullptr : __libc_memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    void* const made = FailsNow() ? nullptr : __libc_memalign(alignment, size);
    if (made == nullptr) return ENOMEM;
    *block = made;
    return 0;
}

}  // extern "C"

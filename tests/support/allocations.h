// This program's operator new, which can be made to fail. For one source of a program.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "kernel.h"

namespace {

// Reached from outside of any class.
std::atomic<int64_t> live_allocations = 0;
thread_local int64_t allocations_to_failure = 0;  // 0: none fails

}  // namespace

void* operator new(size_t size) {
    const bool fails = allocations_to_failure > 0 && !corvane_test::InKernelCall() &&
                       --allocations_to_failure == 0;
    void* const memory = fails ? nullptr : malloc(size);
    live_allocations += memory == nullptr ? 0 : 1;
    return memory == nullptr ? throw std::bad_alloc() : memory;
}

// For the library's temporary buffers: the sanitizer's own would go past the one above.
void* operator new(size_t size, const std::nothrow_t& /*how*/) noexcept {
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

// Not inlined: the compiler would see a free without its malloc.
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    live_allocations -= memory == nullptr ? 0 : 1;
    free(memory);
}

void operator delete(void* memory, size_t /*size*/) noexcept {
    operator delete(memory);
}

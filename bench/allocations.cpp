// Takes the place of operator new and of malloc; the memory still comes from the C library's heap.
#include "allocations.h"

#include <execinfo.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <new>

extern "C" {
// The C library's own allocators, under the names that it keeps for programs like this one.
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
}

namespace corvane_bench {

namespace {

Allocations g_allocations;
bool g_print_origins = false;

void Count(uint64_t& counter) {
    ++counter;
    if (g_print_origins) {
        constexpr int MAX_FRAMES = 16;
        void* frames[MAX_FRAMES];
        g_print_origins = false;  // backtrace may allocate
        backtrace_symbols_fd(frames, backtrace(frames, MAX_FRAMES), STDERR_FILENO);
        [[maybe_unused]] const ssize_t ignored = write(STDERR_FILENO, "\n", 1);
        g_print_origins = true;
    }
}

}  // namespace

Allocations CountAllocations(const Operation& operation, bool print_origins) {
    if (print_origins) {
        void* frame = nullptr;
        backtrace(&frame, 1);  // loads its library, which allocates
    }
    g_print_origins = print_origins;
    const Allocations before = g_allocations;
    operation();
    const Allocations after = g_allocations;
    g_print_origins = false;
    return {after.by_new - before.by_new, after.by_malloc - before.by_malloc};
}

}  // namespace corvane_bench

void* operator new(size_t size) {
    corvane_bench::Count(corvane_bench::g_allocations.by_new);
    void* const memory = __libc_malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    free(memory);
}

void operator delete(void* memory, size_t /*size*/) noexcept {
    free(memory);
}

extern "C" {

void* malloc(size_t size) {
    corvane_bench::Count(corvane_bench::g_allocations.by_malloc);
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    corvane_bench::Count(corvane_bench::g_allocations.by_malloc);
    return __libc_calloc(count, size);
}

void* realloc(void* memory, size_t size) {
    corvane_bench::Count(corvane_bench::g_allocations.by_malloc);
    return __libc_realloc(memory, size);
}

}  // extern "C"

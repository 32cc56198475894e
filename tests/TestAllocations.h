#pragma once

// For a test program that counts what it and the library take from the heap. It replaces the operators of the
// whole program, so one source of a program includes it.

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace utltest {

inline std::atomic<unsigned int> gAllocations{0};

/// How often `new` has been called so far, in the program and the library, for one object or an array.
inline unsigned int allocations() {
    return gAllocations;
}

inline void* countedAllocation(std::size_t bytes) {
    ++gAllocations;
    void* const memory = std::malloc(bytes);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace utltest

// Not inlined, or the compiler sees that blocks of `new` end in `free`.
[[gnu::noinline]] void* operator new(std::size_t bytes) {
    return utltest::countedAllocation(bytes);
}

[[gnu::noinline]] void* operator new[](std::size_t bytes) {
    return utltest::countedAllocation(bytes);
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete[](void* memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

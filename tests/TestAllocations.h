#pragma once

// For a test program that counts what it and the library take from the heap, or lets them get nothing. It
// replaces the operators of the whole program, so one source of a program includes it.

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace utltest {

inline std::atomic<unsigned int> gAllocations{0};
inline std::atomic<bool> gHasNoMemory{false};

/// How often `new` has been called so far, in the program and the library, for one object or an array.
inline unsigned int allocations() {
    return gAllocations;
}

/// How often `work` calls `new`.
template <typename WORK>
unsigned int allocationsOf(WORK work) {
    unsigned int const before = gAllocations;
    work();
    return gAllocations - before;
}

/// Lets every `new` throw `std::bad_alloc` while it lives.
class [[nodiscard]] NoMemoryScope {
  public:
    NoMemoryScope() { gHasNoMemory = true; }
    ~NoMemoryScope() { gHasNoMemory = false; }
    NoMemoryScope(NoMemoryScope const&) = delete;
    NoMemoryScope& operator=(NoMemoryScope const&) = delete;
};

inline void* countedAllocation(std::size_t bytes) {
    ++gAllocations;
    void* const memory = gHasNoMemory ? nullptr : std::malloc(bytes);
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

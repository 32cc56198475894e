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

inline thread_local unsigned int tAllocationsUntilFailure = 0;  // 0: none fails

/// Lets the nth `new` of the calling thread throw `std::bad_alloc`, counted from 1, once, while it lives.
class [[nodiscard]] FailingAllocation {
  public:
    explicit FailingAllocation(unsigned int number) { tAllocationsUntilFailure = number; }
    ~FailingAllocation() { tAllocationsUntilFailure = 0; }
    FailingAllocation(FailingAllocation const&) = delete;
    FailingAllocation& operator=(FailingAllocation const&) = delete;

    /// True when it has failed.
    bool hasHappened() const { return tAllocationsUntilFailure == 0; }
};

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
    bool const isTheOne = tAllocationsUntilFailure != 0 && --tAllocationsUntilFailure == 0;
    void* const memory = gHasNoMemory || isTheOne ? nullptr : std::malloc(bytes);
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

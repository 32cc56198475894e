#pragma once

// For a test program that counts the allocations of itself and the library, or makes them fail. It replaces
// the operators of the whole program, so only one source of a program includes it.

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace utltest {

inline std::atomic<unsigned int> gAllocations{0};
inline std::atomic<bool> gHasNoMemory{false};

/// How often the program and the library have called `new` so far, for one object or an array.
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

/// While it lives, the nth `new` of the calling thread, counted from 1, throws `std::bad_alloc` once.
class [[nodiscard]] FailingAllocation {
  public:
    explicit FailingAllocation(unsigned int number) { tAllocationsUntilFailure = number; }
    ~FailingAllocation() { tAllocationsUntilFailure = 0; }
    FailingAllocation(FailingAllocation const&) = delete;
    FailingAllocation& operator=(FailingAllocation const&) = delete;

    /// True after that `new` has failed.
    bool hasHappened() const { return tAllocationsUntilFailure == 0; }
};

/// While it lives, every `new` throws `std::bad_alloc`.
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

inline void* countedAllocationOrNull(std::size_t bytes) noexcept {
    try {
        return countedAllocation(bytes);
    } catch (std::bad_alloc const&) {
        return nullptr;
    }
}

}  // namespace utltest

// Not inlined: otherwise the compiler warns that blocks of `new` end in `free`.
[[gnu::noinline]] void* operator new(std::size_t bytes) {
    return utltest::countedAllocation(bytes);
}

[[gnu::noinline]] void* operator new[](std::size_t bytes) {
    return utltest::countedAllocation(bytes);
}

[[gnu::noinline]] void* operator new(std::size_t bytes, std::nothrow_t const&) noexcept {
    return utltest::countedAllocationOrNull(bytes);
}

[[gnu::noinline]] void* operator new[](std::size_t bytes, std::nothrow_t const&) noexcept {
    return utltest::countedAllocationOrNull(bytes);
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

#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <vector>

namespace utltest {

/// Element of a container that counts what is done to its kind and fails on request. Its own `operator new[]`
/// returns null on failure if `GIVES_NULL`, else it throws.
template <bool GIVES_NULL>
class CountedElement {
  public:
    struct Record {
        unsigned int alive = 0;
        unsigned int arrays = 0;
        unsigned int mostArrays = 0;
        unsigned int allocations = 0;
        unsigned int failingAllocation = 0;   ///< number of the allocation that fails, 0 for none
        unsigned int throwingAssignment = 0;  ///< number of the assignment that throws, 0 for none
        std::vector<void const*> assigned;    ///< what was assigned to, in that order
    };
    static inline Record record;

    CountedElement() { ++record.alive; }
    CountedElement(int v) : value(v) { ++record.alive; }  // implicit: tests write plain numbers
    CountedElement(CountedElement const& other) : value(other.value) { ++record.alive; }
    ~CountedElement() { --record.alive; }

    CountedElement& operator=(CountedElement const& other) {
        record.assigned.push_back(this);
        if (record.assigned.size() == record.throwingAssignment) {
            throw std::runtime_error("assignment");
        }
        value = other.value;
        return *this;
    }

    static void* operator new[](std::size_t bytes) noexcept(GIVES_NULL) {
        void* const memory = ++record.allocations == record.failingAllocation ? nullptr : std::malloc(bytes);
        if constexpr (!GIVES_NULL) {
            if (memory == nullptr) {
                throw std::bad_alloc();
            }
        }
        if (memory != nullptr) {
            ++record.arrays;
            record.mostArrays = std::max(record.mostArrays, record.arrays);
        }
        return memory;
    }

    static void operator delete[](void* memory) {
        record.arrays -= memory != nullptr ? 1U : 0U;
        std::free(memory);
    }

    bool operator==(CountedElement const& other) const { return value == other.value; }

    int value = -1;
};

using Counted = CountedElement<false>;
using CountedOrNull = CountedElement<true>;

/// Clears the records of both kinds; at the end of the scope no element and no storage may be left.
class [[nodiscard]] ElementScope {
  public:
    ElementScope() { reset(); }
    ~ElementScope() {
        expectNothingLeft<Counted>();
        expectNothingLeft<CountedOrNull>();
        reset();
    }
    ElementScope(ElementScope const&) = delete;
    ElementScope& operator=(ElementScope const&) = delete;

  private:
    static void reset() {
        Counted::record = {};
        CountedOrNull::record = {};
    }

    template <typename T>
    static void expectNothingLeft() {
        EXPECT_EQ(T::record.alive, 0U);
        EXPECT_EQ(T::record.arrays, 0U);
    }
};

/// Allocation `number` of `T`, counted from 1 from now on, fails.
template <typename T>
void failAllocation(unsigned int number = 1) {
    T::record.failingAllocation = T::record.allocations + number;
}

/// Assignment `number` of a `T`, counted from 1 from now on, throws; the record of assignments is cleared.
template <typename T>
void throwAtAssignment(unsigned int number = 1) {
    T::record.assigned.clear();
    T::record.throwingAssignment = number;
}

}  // namespace utltest

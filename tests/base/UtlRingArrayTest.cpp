// Starts no thread.

#include "UtlRingArray.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "TestAllocations.h"
#include "TestElements.h"
#include "TestLayout.h"
#include "UtlPlatform.h"

namespace {

using utl::INVALID_SIZE;
using utl::Queue;
using utl::RingArray;
using utltest::Counted;
using utltest::CountedOrNull;
using utltest::ElementScope;
using utltest::failAllocation;
using utltest::throwAtAssignment;

static_assert(std::has_virtual_destructor_v<RingArray<int>> && std::has_virtual_destructor_v<Queue<int>>);
static_assert(!std::is_copy_constructible_v<RingArray<int>> && !std::is_copy_assignable_v<RingArray<int>>);
static_assert(!std::is_copy_constructible_v<Queue<int>> && !std::is_copy_assignable_v<Queue<int>>);

// Nothing here touches an element.
template <typename RING>
constexpr bool hasQuietOperations() {
    using Ring = RING&;
    return noexcept(std::declval<Ring>().size())&& noexcept(std::declval<Ring>().maxSize())&& noexcept(
        std::declval<Ring>().elementAt(
            0))&& noexcept(std::declval<Ring>()
                               .popFront())&& noexcept(std::declval<Ring>()
                                                           .removeLast(
                                                               1))&& noexcept(std::declval<Ring>().clear());
}
static_assert(hasQuietOperations<RingArray<std::string>>() && hasQuietOperations<Queue<std::string>>());

template <typename RING>
auto content(RING const& ring) {
    std::vector<std::decay_t<decltype(*ring.elementAt(0))>> values;
    for (unsigned int i = 0; i < ring.size(); ++i) {
        values.push_back(*ring.elementAt(i));
    }
    return values;
}

// Where the first entry of an empty ring is stored.
template <typename RING>
auto const* startOfStorage(RING& ring) {
    ring.clear();
    EXPECT_TRUE(ring.pushBack({}));
    auto const* const start = ring.elementAt(0);
    ring.clear();
    return start;
}

// A ring of 5 slots that holds 3, 4, 5, 6, of which the last two lie at the start of the storage.
template <typename RING>
void fillAcrossTheEnd(RING& ring) {
    for (int value = 0; value < 3; ++value) {
        ASSERT_TRUE(ring.pushBack(value));
        ring.popFront();
    }
    for (int value = 3; value < 7; ++value) {
        ASSERT_TRUE(ring.pushBack(value));
    }
}

TEST(RingIndex, CorrectsASumAtOrAboveTheCapacityOnce) {
    using utl::detail::ringIndex;
    EXPECT_EQ(ringIndex(0, 0, 5), 0U);
    EXPECT_EQ(ringIndex(0, 4, 5), 4U);
    EXPECT_EQ(ringIndex(4, 0, 5), 4U);
    EXPECT_EQ(ringIndex(4, 1, 5), 0U);
    EXPECT_EQ(ringIndex(3, 1, 5), 4U);
    EXPECT_EQ(ringIndex(4, 4, 5), 3U);
}

TEST(RingIndex, OfSumsAndCapacitiesAboveTheSignedRange_IsInOrder) {
    using utl::detail::ringIndex;
    EXPECT_EQ(ringIndex(0x50000000, 0x40000000U, 0x60000000U), 0x30000000U);
    EXPECT_EQ(ringIndex(0x7FFFFFFE, 0x7FFFFFFEU, 0x7FFFFFFFU), 0x7FFFFFFDU);
    EXPECT_EQ(ringIndex(0, 0x80000000U, 0x90000000U), 0x80000000U);
    EXPECT_EQ(ringIndex(static_cast<int>(0x80000000U), 0x10000000U, 0x90000000U), 0U);
    EXPECT_EQ(ringIndex(static_cast<int>(0xFFFFFFFEU), 0xFFFFFFFEU, 0xFFFFFFFFU), 0xFFFFFFFDU);
}

// `ring` has taken in 3 entries that left it again, and 4 that stay.
template <typename RING>
void expectFieldsInOrder(RING const& ring, std::size_t offset) {
    using utltest::BEHIND_POINTER;
    EXPECT_EQ(utltest::fieldAt<int*>(ring, offset + utltest::FIRST_FIELD), ring.elementAt(0) - 3);
    EXPECT_EQ(utltest::fieldAt<unsigned int>(ring, offset + BEHIND_POINTER), 4U);
    EXPECT_EQ(utltest::fieldAt<unsigned int>(ring, offset + BEHIND_POINTER + 4), 5U);
    EXPECT_EQ(utltest::fieldAt<int>(ring, offset + BEHIND_POINTER + 8), 3);
}

TEST(RingArray, Fields_StandInTheOrderStorageSizeCapacityHead) {
    RingArray<int> ring(5);
    fillAcrossTheEnd(ring);
    expectFieldsInOrder(ring, 0);
}

TEST(Queue, HasTheRingForItsOneField) {
    Queue<int> queue(5);
    fillAcrossTheEnd(queue);
    expectFieldsInOrder(queue, utltest::FIRST_FIELD);
    EXPECT_EQ(sizeof(queue), utltest::FIRST_FIELD + sizeof(RingArray<int>));
}

TEST(RingArray, Construction_WithNoSlots_AllocatesNothingAndTheRingRefuses) {
    ElementScope const scope;
    RingArray<Counted> ring(0);
    EXPECT_EQ(ring.size(), 0U);
    EXPECT_EQ(ring.maxSize(), 0U);
    EXPECT_FALSE(ring.pushBack(1));
    EXPECT_EQ(ring.elementAt(0), nullptr);
    EXPECT_FALSE(ring.removeAt(0, 1));
    ring.popFront();
    ring.removeLast(1);
    EXPECT_TRUE(ring.popFrontInto(nullptr, 1));
    ring.clear();
    EXPECT_EQ(ring.size(), 0U);
    EXPECT_EQ(Counted::record.allocations, 0U);
}

TEST(RingArray, ConstructionAndDestruction_MakeAndDestroyAllSlots) {
    ElementScope const scope;
    {
        RingArray<Counted> const ring(3);
        EXPECT_EQ(ring.size(), 0U);
        EXPECT_EQ(ring.maxSize(), 3U);
        EXPECT_EQ(Counted::record.alive, 3U);
        EXPECT_EQ(Counted::record.allocations, 1U);
    }
    EXPECT_EQ(Counted::record.alive, 0U);
}

// The kernel provides a page of fresh memory when it is first touched.
TEST(RingArray, Construction_OfPlainElements_DoesNotTouchTheStorage) {
    constexpr unsigned int BYTES = 1U << 26U;
    RingArray<unsigned char> ring(BYTES);
    ASSERT_TRUE(ring.pushBack(1));
    auto const pageBytes = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    auto const start = reinterpret_cast<std::uintptr_t>(ring.elementAt(0)) / pageBytes * pageBytes;
    size_t const pages = BYTES / pageBytes;
    std::vector<unsigned char> resident(pages);
    ASSERT_EQ(mincore(reinterpret_cast<void*>(start), BYTES, resident.data()), 0);
    size_t touched = 0;
    for (unsigned char one : resident) {
        touched += one & 1U;
    }
    EXPECT_LT(touched, pages / 2);
}

TEST(RingArray, Construction_WhoseBytesOverflow32Bits_ThrowsOnEveryMachine) {
    struct Sixteen {
        char bytes[16];
    };
    EXPECT_THROW(RingArray<Sixteen>(0x10000000U), std::bad_alloc);
    EXPECT_THROW(RingArray<Sixteen>(0xFFFFFFFFU), std::bad_alloc);
    EXPECT_THROW(Queue<Sixteen>(0x10000000U), std::bad_alloc);
}

TEST(RingArray, CheckedCount_LetsPassWhat32BitsCanCount) {
    using utl::detail::checkedRingCount;
    EXPECT_EQ(checkedRingCount(0xFFFFFFFFU, 1), 0xFFFFFFFFU);
    EXPECT_EQ(checkedRingCount(0x7FFFFFFFU, 2), 0x7FFFFFFFU);
    EXPECT_THROW(checkedRingCount(0x80000000U, 2), std::bad_alloc);
    EXPECT_EQ(checkedRingCount(0x55555555U, 3), 0x55555555U);
    EXPECT_THROW(checkedRingCount(0x55555556U, 3), std::bad_alloc);
    EXPECT_EQ(checkedRingCount(0x0FFFFFFFU, 16), 0x0FFFFFFFU);
    EXPECT_THROW(checkedRingCount(0x10000000U, 16), std::bad_alloc);
}

TEST(RingArray, Construction_WhoseAllocationThrows_PassesItOn) {
    ElementScope const scope;
    failAllocation<Counted>();
    EXPECT_THROW(RingArray<Counted>(2), std::bad_alloc);
}

TEST(RingArray, Construction_WhoseAllocationGivesNull_LeavesARingWithoutSlots) {
    ElementScope const scope;
    failAllocation<CountedOrNull>();
    RingArray<CountedOrNull> ring(2);
    EXPECT_EQ(ring.maxSize(), 0U);
    EXPECT_FALSE(ring.pushBack(1));
    CountedOrNull const items[2];
    EXPECT_FALSE(ring.pushBack(items, 2));
    EXPECT_EQ(ring.elementAt(0), nullptr);
}

// Runs every operation of a ring of 5 slots, across the end of the storage.
template <typename RING, typename T>
bool allOperationsSucceed(RING& ring, T const& value) {
    T entries[5] = {};
    bool succeeded = ring.pushBack(value) && ring.pushBack(entries, 3);
    ring.popFront();
    succeeded = succeeded && ring.popFrontInto(nullptr, 1) && ring.pushBack(entries, 3);
    succeeded = succeeded && ring.elementAt(4) != nullptr && !ring.pushBack(value) && ring.size() == 5;
    succeeded = succeeded && ring.copyOut(0, entries, 5) && ring.removeAt(1, 2);
    succeeded = succeeded && ring.popFrontInto(entries, 2) && ring.maxSize() == 5;
    ring.removeLast(1);
    ring.clear();
    return succeeded;
}

template <typename RING, typename T>
void expectOneAllocationAtTheConstructionAlone(T const& value) {
    unsigned int const before = utltest::allocations();
    RING ring(5);
    unsigned int const constructed = utltest::allocations();
    bool const succeeded = allOperationsSucceed(ring, value);
    unsigned int const after = utltest::allocations();
    EXPECT_TRUE(succeeded);
    EXPECT_EQ(constructed, before + 1);
    EXPECT_EQ(after, constructed);
}

// Not plain, so that entries are assigned one by one; takes nothing from the heap itself.
struct Grown {
    Grown() = default;
    explicit Grown(unsigned int v) : value(v) {}
    Grown(Grown const&) = default;
    Grown& operator=(Grown const& other) {
        value = other.value;
        return *this;
    }
    ~Grown() = default;
    Grown operator+(Grown const& other) const { return Grown(value + other.value); }
    bool operator==(Grown const& other) const { return value == other.value; }
    unsigned int value = 0;
};
static_assert(!std::is_trivially_copyable_v<Grown>);

TEST(RingArray, NoOperation_OnPlainElements_AllocatesAfterTheConstruction) {
    expectOneAllocationAtTheConstructionAlone<RingArray<int>>(1);
    expectOneAllocationAtTheConstructionAlone<RingArray<unsigned char>>(static_cast<unsigned char>(1));
}

TEST(RingArray, NoOperation_OnElementsOfAClass_AllocatesAfterTheConstruction) {
    expectOneAllocationAtTheConstructionAlone<RingArray<Grown>>(Grown(1));
}

TEST(Queue, NoOperation_AllocatesAfterTheConstruction) {
    expectOneAllocationAtTheConstructionAlone<Queue<unsigned char>>(static_cast<unsigned char>(1));
    expectOneAllocationAtTheConstructionAlone<Queue<Grown>>(Grown(1));
}

TEST(RingArray, PushBack_OntoAFullRing_IsFalseAndKeepsEveryEntry) {
    RingArray<int> ring(3);
    for (int value : {1, 2, 3}) {
        EXPECT_TRUE(ring.pushBack(value));
    }
    EXPECT_FALSE(ring.pushBack(4));
    EXPECT_EQ(content(ring), (std::vector<int>{1, 2, 3}));
}

TEST(RingArray, ElementAt_GivesNullAtAndBeyondTheSize) {
    RingArray<int> ring(3);
    EXPECT_EQ(ring.elementAt(0), nullptr);
    ring.pushBack(1);
    RingArray<int> const& constant = ring;
    EXPECT_EQ(constant.elementAt(0), ring.elementAt(0));
    for (unsigned int index : {1U, 2U, 3U, INVALID_SIZE}) {
        EXPECT_EQ(ring.elementAt(index), nullptr);
        EXPECT_EQ(constant.elementAt(index), nullptr);
    }
}

TEST(RingArray, ElementAt_AcrossTheEndOfTheStorage_FollowsTheOrderOfArrival) {
    RingArray<int> ring(5);
    auto const* const start = startOfStorage(ring);
    fillAcrossTheEnd(ring);
    EXPECT_EQ(content(ring), (std::vector<int>{3, 4, 5, 6}));
    EXPECT_EQ(ring.elementAt(0), start + 3);
    EXPECT_EQ(ring.elementAt(1), start + 4);
    EXPECT_EQ(ring.elementAt(2), start);
    EXPECT_EQ(ring.elementAt(3), start + 1);
}

TEST(RingArray, PushBackOfMany_TakesAllOrNone) {
    int const items[] = {10, 11, 12, 13, 14, 15};
    for (unsigned int taken = 0; taken <= 5; ++taken) {
        for (unsigned int used = 0; used <= 5; ++used) {
            RingArray<int> ring(5);
            std::vector<int> expected(used, 1);
            for (unsigned int i = 0; i < taken; ++i) {
                ring.pushBack(0);
                ring.popFront();
            }
            for (unsigned int i = 0; i < used; ++i) {
                ring.pushBack(1);
            }
            EXPECT_FALSE(ring.pushBack(items, 6 - used));
            EXPECT_FALSE(ring.pushBack(items, INVALID_SIZE));
            EXPECT_EQ(content(ring), expected);
            EXPECT_TRUE(ring.pushBack(items, 5 - used));
            expected.insert(expected.end(), items, items + (5 - used));
            EXPECT_EQ(content(ring), expected);
        }
    }
}

TEST(RingArray, PushBackOfMany_FromNull_FailsUnlessThereIsNothingToTake) {
    RingArray<int> ring(2);
    int const* const none = nullptr;
    EXPECT_FALSE(ring.pushBack(none, 1));
    EXPECT_TRUE(ring.pushBack(none, 0));
    EXPECT_EQ(ring.size(), 0U);
}

TEST(RingArray, PushBackOfMany_WithAnAssignmentThatThrows_TakesNone) {
    ElementScope const scope;
    RingArray<Counted> ring(3);
    ring.pushBack(7);
    Counted const items[] = {1, 2};
    throwAtAssignment<Counted>(2);
    EXPECT_THROW(ring.pushBack(items, 2), std::runtime_error);
    EXPECT_EQ(content(ring), (std::vector<Counted>{7}));
}

TEST(RingArray, PopFront_MovesToTheNextEntryAndLeavesTheSlotAlone) {
    ElementScope const scope;
    RingArray<Counted> ring(2);
    ring.pushBack(1);
    ring.pushBack(2);
    Counted::record.assigned.clear();
    Counted const* const first = ring.elementAt(0);
    Counted const* const second = ring.elementAt(1);
    ring.popFront();
    EXPECT_EQ(ring.size(), 1U);
    EXPECT_EQ(ring.elementAt(0), second);
    EXPECT_EQ(first->value, 1);
    ring.popFront();
    ring.popFront();
    EXPECT_EQ(ring.size(), 0U);
    EXPECT_TRUE(Counted::record.assigned.empty());
    EXPECT_TRUE(ring.pushBack(3));
    EXPECT_EQ(ring.elementAt(0), first);
}

TEST(RingArray, PopFront_OfAnEmptyRing_DoesNotMoveItsHead) {
    RingArray<int> ring(3);
    auto const* const start = startOfStorage(ring);
    ring.popFront();
    ring.pushBack(1);
    EXPECT_EQ(ring.elementAt(0), start);
}

TEST(RingArray, RemoveAt_AtOrBeyondTheSize_IsFalse) {
    RingArray<int> ring(5);
    EXPECT_FALSE(ring.removeAt(0, 1));
    fillAcrossTheEnd(ring);
    for (unsigned int index : {4U, 5U, 6U, INVALID_SIZE}) {
        EXPECT_FALSE(ring.removeAt(index, 1));
    }
    EXPECT_EQ(content(ring), (std::vector<int>{3, 4, 5, 6}));
}

TEST(RingArray, RemoveAt_ClipsTheCountAndFollowsTheOrderOfArrival) {
    struct Case {
        unsigned int index;
        unsigned int count;
        std::vector<int> left;
    };
    for (Case const& one : std::vector<Case>{{0, 1, {4, 5, 6}},
                                             {0, 2, {5, 6}},
                                             {1, 1, {3, 5, 6}},
                                             {1, 2, {3, 6}},
                                             {2, 1, {3, 4, 6}},
                                             {3, 1, {3, 4, 5}},
                                             {3, 2, {3, 4, 5}},
                                             {2, INVALID_SIZE, {3, 4}},
                                             {0, 4, {}},
                                             {0, 5, {}},
                                             {1, 0, {3, 4, 5, 6}}}) {
        RingArray<int> plain(5);
        fillAcrossTheEnd(plain);
        EXPECT_TRUE(plain.removeAt(one.index, one.count));
        EXPECT_EQ(content(plain), one.left) << one.index << ", " << one.count;
    }
}

TEST(RingArray, RemoveAt_KeepsTheHead) {
    RingArray<int> ring(5);
    fillAcrossTheEnd(ring);
    int const* const head = ring.elementAt(0);
    EXPECT_TRUE(ring.removeAt(0, 1));
    EXPECT_EQ(ring.elementAt(0), head);
    EXPECT_EQ(*head, 4);
}

TEST(RingArray, RemoveAt_CopiesLaterEntriesDownOneByOneInAscendingOrder) {
    ElementScope const scope;
    RingArray<Counted> ring(5);
    fillAcrossTheEnd(ring);
    std::vector<void const*> const slots{ring.elementAt(0), ring.elementAt(1)};
    Counted::record.assigned.clear();
    EXPECT_TRUE(ring.removeAt(0, 2));
    EXPECT_EQ(Counted::record.assigned, slots);
}

TEST(RingArray, RemoveAt_OfTheLastEntryOrOfNone_CopiesNothing) {
    ElementScope const scope;
    RingArray<Counted> ring(5);
    fillAcrossTheEnd(ring);
    Counted::record.assigned.clear();
    EXPECT_TRUE(ring.removeAt(3, 1));
    EXPECT_TRUE(ring.removeAt(0, 0));
    EXPECT_TRUE(Counted::record.assigned.empty());
    EXPECT_EQ(ring.size(), 3U);
}

TEST(RingArray, CopyDown_CopiesToTheFrontAndLeavesAllOtherEntries) {
    int const all[] = {3, 4, 5, 6};
    for (unsigned int from = 0; from <= 4; ++from) {
        for (unsigned int to = 0; to <= from; ++to) {
            for (unsigned int count = 0; count <= 4 - from; ++count) {
                RingArray<int> ring(5);
                fillAcrossTheEnd(ring);
                std::vector<int> expected(all, all + 4);
                std::copy_n(all + from, count, expected.begin() + to);
                EXPECT_TRUE(ring.copyDown(to, from, count));
                EXPECT_EQ(content(ring), expected) << from << " to " << to << ", " << count;
            }
        }
    }
}

TEST(RingArray, CopyDown_OfMoreThanThereIsOrUpwards_IsFalseAndChangesNothing) {
    RingArray<int> ring(5);
    fillAcrossTheEnd(ring);
    EXPECT_FALSE(ring.copyDown(0, 0, 5));
    EXPECT_FALSE(ring.copyDown(0, 3, 2));
    EXPECT_FALSE(ring.copyDown(0, 5, 0));
    EXPECT_FALSE(ring.copyDown(1, 2, INVALID_SIZE));
    EXPECT_FALSE(ring.copyDown(0, INVALID_SIZE, 1));
    EXPECT_FALSE(ring.copyDown(2, 1, 1));
    EXPECT_EQ(content(ring), (std::vector<int>{3, 4, 5, 6}));
    RingArray<int> none(0);
    EXPECT_TRUE(none.copyDown(0, 0, 0));
    EXPECT_FALSE(none.copyDown(0, 0, 1));
}

TEST(RingArray, RemoveLast_TakesBackTheNewestAndNoMoreThanThereAre) {
    RingArray<int> ring(5);
    fillAcrossTheEnd(ring);
    ring.removeLast(0);
    EXPECT_EQ(ring.size(), 4U);
    ring.removeLast(3);
    EXPECT_EQ(content(ring), (std::vector<int>{3}));
    ring.removeLast(2);
    EXPECT_EQ(ring.size(), 0U);
    ring.removeLast(INVALID_SIZE);
    EXPECT_EQ(ring.size(), 0U);
    EXPECT_TRUE(ring.pushBack(8));
    EXPECT_EQ(content(ring), (std::vector<int>{8}));
}

TEST(RingArray, RemoveLast_OfAFrameJustPushed_LeavesTheRingAsItWas) {
    RingArray<int> ring(7);
    fillAcrossTheEnd(ring);
    int const* const head = ring.elementAt(0);
    int const frame[] = {1, 2, 3};
    EXPECT_TRUE(ring.pushBack(frame, 3));
    ring.removeLast(3);
    EXPECT_EQ(content(ring), (std::vector<int>{3, 4, 5, 6}));
    EXPECT_EQ(ring.elementAt(0), head);
}

TEST(RingArray, Clear_SendsTheNextEntryToTheStartOfTheStorage) {
    RingArray<int> ring(5);
    auto const* const start = startOfStorage(ring);
    fillAcrossTheEnd(ring);
    ring.clear();
    EXPECT_EQ(ring.size(), 0U);
    EXPECT_TRUE(ring.pushBack(9));
    EXPECT_EQ(ring.elementAt(0), start);
}

template <typename T>
void expectPopFrontIntoMovesUpToTheCount() {
    for (unsigned int count = 0; count <= 6; ++count) {
        RingArray<T> ring(5);
        fillAcrossTheEnd(ring);
        unsigned int const moved = std::min(count, 4U);
        std::vector<T> out(moved);
        T* const next = ring.elementAt(moved);
        EXPECT_TRUE(ring.popFrontInto(out.data(), count));
        std::vector<T> expected;
        for (unsigned int i = 0; i < moved; ++i) {
            expected.push_back(T(static_cast<int>(3 + i)));
        }
        EXPECT_EQ(out, expected);
        EXPECT_EQ(ring.size(), 4 - moved);
        EXPECT_EQ(ring.elementAt(0), next);
    }
}

TEST(RingArray, PopFrontInto_MovesUpToTheCount) {
    ElementScope const scope;
    expectPopFrontIntoMovesUpToTheCount<int>();
    expectPopFrontIntoMovesUpToTheCount<Counted>();
}

template <typename T>
void expectPopFrontIntoNullOnlyRemoves() {
    RingArray<T> ring(5);
    fillAcrossTheEnd(ring);
    EXPECT_TRUE(ring.popFrontInto(nullptr, 3));
    EXPECT_EQ(content(ring), (std::vector<T>{T(6)}));
    EXPECT_TRUE(ring.popFrontInto(nullptr, INVALID_SIZE));
    EXPECT_EQ(ring.size(), 0U);
    EXPECT_TRUE(ring.popFrontInto(nullptr, 1));
}

TEST(RingArray, PopFrontInto_Null_OnlyRemoves) {
    ElementScope const scope;
    expectPopFrontIntoNullOnlyRemoves<int>();
    expectPopFrontIntoNullOnlyRemoves<Counted>();
}

TEST(RingArray, PopFrontInto_OfTheWholeRing_EndsWithItsHeadWhereItWas) {
    RingArray<int> ring(3);
    auto const* const start = startOfStorage(ring);
    int const items[] = {1, 2, 3};
    EXPECT_TRUE(ring.pushBack(items, 3));
    EXPECT_TRUE(ring.popFrontInto(nullptr, 3));
    EXPECT_TRUE(ring.pushBack(4));
    EXPECT_EQ(ring.elementAt(0), start);
}

TEST(RingArray, PopFrontInto_WithAnAssignmentThatThrows_HasRemovedWhatWasMovedBefore) {
    ElementScope const scope;
    RingArray<Counted> ring(5);
    fillAcrossTheEnd(ring);
    Counted out[4];
    throwAtAssignment<Counted>(3);
    EXPECT_THROW(ring.popFrontInto(out, 4), std::runtime_error);
    EXPECT_EQ(content(ring), (std::vector<Counted>{5, 6}));
    EXPECT_EQ(out[1].value, 4);
}

TEST(RingArray, CopyOut_ReadsAnyPartAndRemovesNothing) {
    RingArray<int> ring(5);
    fillAcrossTheEnd(ring);
    int const all[] = {3, 4, 5, 6};
    for (unsigned int index = 0; index <= 4; ++index) {
        for (unsigned int count = 0; count <= 4 - index; ++count) {
            std::vector<int> out(count);
            EXPECT_TRUE(ring.copyOut(index, out.data(), count));
            EXPECT_EQ(out, std::vector<int>(all + index, all + index + count)) << index << ", " << count;
        }
    }
    EXPECT_EQ(content(ring), std::vector<int>(all, all + 4));
}

TEST(RingArray, CopyOut_OfMoreThanThereIs_IsFalseAndLeavesTheOutputAlone) {
    RingArray<int> ring(5);
    fillAcrossTheEnd(ring);
    int out[6] = {};
    EXPECT_FALSE(ring.copyOut(0, out, 5));
    EXPECT_FALSE(ring.copyOut(3, out, 2));
    EXPECT_FALSE(ring.copyOut(4, out, 1));
    EXPECT_FALSE(ring.copyOut(5, out, 0));
    EXPECT_FALSE(ring.copyOut(1, out, INVALID_SIZE));
    EXPECT_FALSE(ring.copyOut(INVALID_SIZE, out, 1));
    EXPECT_FALSE(ring.copyOut(0, nullptr, 1));
    EXPECT_TRUE(ring.copyOut(0, nullptr, 0));
    for (int value : out) {
        EXPECT_EQ(value, 0);
    }
}

// Does the same to a ring and to a standard queue and compares them after each step.
template <typename RING, typename T>
class Comparison {
  public:
    Comparison(unsigned int seed, unsigned int maxSize) : mRandom(seed), mRing(maxSize), mMaxSize(maxSize) {}

    void step(T const& value) {
        unsigned int const index = pick(size() + 2);
        unsigned int const count = pick(size() + 3);
        switch (pick(13)) {
            case 0:
                mRing.popFront();
                mModel.erase(at(0), at(std::min(size(), 1U)));
                break;
            case 1:
                remove(index, count);
                break;
            case 2:
                moveOut(count);
                break;
            case 3:
                removeLast(count);
                break;
            case 4:
                copyOut(index, count);
                break;
            case 5:
                copyDown(index, count);
                break;
            case 6:
            case 7:
                pushMany(value, pick(mMaxSize + 2));
                break;
            default:
                ASSERT_EQ(mRing.pushBack(value), mModel.size() < mMaxSize);
                if (mModel.size() < mMaxSize) {
                    mModel.push_back(value);
                }
        }
        ASSERT_EQ(content(mRing), std::vector<T>(mModel.begin(), mModel.end()));
        ASSERT_EQ(mRing.maxSize(), mMaxSize);
        ASSERT_EQ(mRing.elementAt(size()), nullptr);
    }

  private:
    unsigned int pick(unsigned int bound) { return static_cast<unsigned int>(mRandom() % bound); }
    unsigned int size() const { return static_cast<unsigned int>(mModel.size()); }
    auto at(unsigned int index) { return mModel.begin() + static_cast<std::ptrdiff_t>(index); }

    void remove(unsigned int index, unsigned int count) {
        bool const there = index < size();
        ASSERT_EQ(mRing.removeAt(index, count), there);
        if (there) {
            mModel.erase(at(index), at(index + std::min(count, size() - index)));
        }
    }

    void moveOut(unsigned int count) {
        unsigned int const moved = std::min(count, size());
        std::vector<T> out(moved);
        bool const isRead = pick(4) != 0;
        ASSERT_TRUE(mRing.popFrontInto(isRead ? out.data() : nullptr, count));
        if (isRead) {
            ASSERT_EQ(out, std::vector<T>(at(0), at(moved)));
        }
        mModel.erase(at(0), at(moved));
    }

    void removeLast(unsigned int count) {
        mRing.removeLast(count);
        mModel.resize(size() - std::min(count, size()));
    }

    void copyOut(unsigned int index, unsigned int count) {
        bool const there = index <= size() && count <= size() - index;
        std::vector<T> out(count);
        ASSERT_EQ(mRing.copyOut(index, out.data(), count), there);
        if (there) {
            ASSERT_EQ(out, std::vector<T>(at(index), at(index + count)));
        }
    }

    void copyDown(unsigned int from, unsigned int count) {
        unsigned int const to = pick(from + 2);
        bool const there = to <= from && from <= size() && count <= size() - from;
        ASSERT_EQ(mRing.copyDown(to, from, count), there);
        if (there) {
            std::copy_n(at(from), count, at(to));
        }
    }

    void pushMany(T const& value, unsigned int count) {
        std::vector<T> items;
        for (unsigned int i = 0; i < count; ++i) {
            items.push_back(static_cast<T>(value + static_cast<T>(i)));
        }
        bool const fits = count <= mMaxSize - size();
        ASSERT_EQ(mRing.pushBack(items.data(), count), fits);
        if (fits) {
            mModel.insert(mModel.end(), items.begin(), items.end());
        }
    }

    std::mt19937 mRandom;
    RING mRing;
    std::deque<T> mModel;
    unsigned int mMaxSize;
};

template <typename RING, typename T>
void expectWhatAStandardQueueGives() {
    for (unsigned int maxSize : {0U, 1U, 2U, 3U, 7U, 16U, 61U}) {
        for (unsigned int seed = 0; seed < 6; ++seed) {
            Comparison<RING, T> comparison(seed, maxSize);
            for (unsigned int i = 0; i < 400; ++i) {
                ASSERT_NO_FATAL_FAILURE(comparison.step(static_cast<T>(i)))
                    << "capacity " << maxSize << ", seed " << seed << ", step " << i;
            }
        }
    }
}

TEST(RingArray, RandomOperations_OnPlainElements_GiveWhatAStandardQueueGives) {
    expectWhatAStandardQueueGives<RingArray<unsigned char>, unsigned char>();
    expectWhatAStandardQueueGives<RingArray<int>, int>();
}

TEST(RingArray, RandomOperations_OnOtherElements_GiveWhatAStandardQueueGives) {
    expectWhatAStandardQueueGives<RingArray<Grown>, Grown>();
}

TEST(Queue, RandomOperations_GiveWhatAStandardQueueGives) {
    expectWhatAStandardQueueGives<Queue<unsigned char>, unsigned char>();
    expectWhatAStandardQueueGives<Queue<Grown>, Grown>();
}

TEST(Queue, Clear_EmptiesIt) {
    Queue<int> queue(2);
    auto const* const start = startOfStorage(queue);
    queue.pushBack(1);
    queue.popFront();
    queue.pushBack(2);
    queue.clear();
    EXPECT_EQ(queue.size(), 0U);
    queue.pushBack(3);
    EXPECT_EQ(queue.elementAt(0), start);
}

TEST(Queue, ElementAt_GivesTheEntryToWriteTo) {
    Queue<int> queue(2);
    queue.pushBack(1);
    *queue.elementAt(0) = 5;
    Queue<int> const& constant = queue;
    EXPECT_EQ(*constant.elementAt(0), 5);
    EXPECT_EQ(constant.elementAt(1), nullptr);
}

}  // namespace

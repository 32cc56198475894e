// Starts no thread.

#include "UtlArray.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <initializer_list>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "TestElements.h"
#include "TestLayout.h"

namespace {

using utl::Array;
using utl::INVALID_SIZE;
using utltest::BEHIND_POINTER;
using utltest::Counted;
using utltest::CountedOrNull;
using utltest::ElementScope;
using utltest::failAllocation;
using utltest::fieldAt;
using utltest::FIRST_FIELD;
using utltest::throwAtAssignment;

static_assert(std::has_virtual_destructor_v<Array<int>>);
static_assert(!std::is_copy_constructible_v<Array<int>> && !std::is_copy_assignable_v<Array<int>>);
static_assert(utl::AUTO_RESIZE_OFF == 0 && utl::AUTO_RESIZE_ON == 1);

// Nothing here can throw, whatever the element type.
using AnyArray = Array<std::string>;
static_assert(
    noexcept(std::declval<AnyArray&>().clear()) && noexcept(std::declval<AnyArray&>().getAt(0)) && noexcept(
        std::declval<AnyArray const&>().getAt(
            0)) && noexcept(std::declval<AnyArray&>()
                                .size()) && noexcept(std::declval<AnyArray&>()
                                                         .maxSize()) && noexcept(std::declval<AnyArray&>()
                                                                                     .elements()));

template <typename T>
void fill(Array<T>& array, std::initializer_list<std::common_type_t<T>> values) {
    for (T const& value : values) {
        ASSERT_TRUE(array.insertAt(array.size(), value));
    }
}

template <typename T>
std::vector<T> content(Array<T> const& array) {
    std::vector<T> values;
    for (unsigned int i = 0; i < array.size(); ++i) {
        values.push_back(*array.getAt(i));
    }
    return values;
}

// Indices of the slots that were assigned to since the record was last cleared.
std::vector<long> assignedSlots(Array<Counted> const& array) {
    std::vector<long> slots;
    for (void const* address : Counted::record.assigned) {
        Counted const* const element = static_cast<Counted const*>(address);
        if (element >= array.elements() && element < array.elements() + array.maxSize()) {
            slots.push_back(element - array.elements());
        }
    }
    return slots;
}

TEST(Array, Fields_StandInTheOrderStorageSizeCapacityPolicy) {
    Array<int> array(3, 1);
    fill(array, {1, 2});
    EXPECT_EQ(fieldAt<int*>(array, FIRST_FIELD), array.elements());
    EXPECT_EQ(fieldAt<unsigned int>(array, BEHIND_POINTER), 2U);
    EXPECT_EQ(fieldAt<unsigned int>(array, BEHIND_POINTER + 4), 3U);
    EXPECT_EQ(fieldAt<int>(array, BEHIND_POINTER + 8), 1);
}

TEST(Array, Construction_WithNoSlots_AllocatesNothing) {
    ElementScope const scope;
    Array<Counted> const array(0, 1);
    EXPECT_EQ(array.size(), 0U);
    EXPECT_EQ(array.maxSize(), 0U);
    EXPECT_EQ(array.elements(), nullptr);
    EXPECT_EQ(Counted::record.allocations, 0U);
}

TEST(Array, Construction_MakesAllSlotsAtOnceAndUsesNone) {
    ElementScope const scope;
    Array<Counted> const array(3, 0);
    EXPECT_EQ(array.size(), 0U);
    EXPECT_EQ(array.maxSize(), 3U);
    EXPECT_NE(array.elements(), nullptr);
    EXPECT_EQ(Counted::record.alive, 3U);
    EXPECT_EQ(Counted::record.allocations, 1U);
}

TEST(Array, Destruction_DestroysAllSlotsAndNotWhatPointersReferTo) {
    ElementScope const scope;
    Counted borrowed(7);
    {
        Array<Counted> array(3, 0);
        fill(array, {1});
        Array<Counted*> pointers(1, 0);
        EXPECT_TRUE(pointers.insertAt(0, &borrowed));
    }
    EXPECT_EQ(Counted::record.alive, 1U);
    EXPECT_EQ(borrowed.value, 7);
}

TEST(Array, GetAt_GivesTheElementBelowTheSizeAndNullFromThereOn) {
    Array<int> array(4, 0);
    fill(array, {10, 11, 12});
    Array<int> const& constant = array;
    EXPECT_EQ(array.getAt(0), array.elements());
    EXPECT_EQ(*array.getAt(2), 12);
    EXPECT_EQ(constant.getAt(2), array.getAt(2));
    for (unsigned int index : {3U, 4U, 5U, 0x7FFFFFFFU, 0x80000000U, INVALID_SIZE}) {
        EXPECT_EQ(array.getAt(index), nullptr);
        EXPECT_EQ(constant.getAt(index), nullptr);
    }
}

TEST(Array, GetAt_OfAnEmptyArray_IsNull) {
    EXPECT_EQ(Array<int>(0, 0).getAt(0), nullptr);
    EXPECT_EQ(Array<int>(1, 0).getAt(0), nullptr);
}

TEST(Array, SetAt_ReplacesBelowTheSizeAlone) {
    Array<int> array(4, 1);
    fill(array, {1, 2, 3});
    EXPECT_TRUE(array.setAt(2, 9));
    EXPECT_FALSE(array.setAt(3, 8));
    EXPECT_FALSE(array.setAt(4, 8));
    EXPECT_FALSE(array.setAt(INVALID_SIZE, 8));
    EXPECT_EQ(content(array), (std::vector<int>{1, 2, 9}));
}

TEST(Array, SetAt_OfAnElementToItself_TouchesNothingAndIsTrue) {
    ElementScope const scope;
    Array<Counted> array(2, 0);
    fill(array, {1, 2});
    Counted::record.assigned.clear();
    EXPECT_TRUE(array.setAt(1, *array.getAt(1)));
    EXPECT_TRUE(Counted::record.assigned.empty());
    EXPECT_EQ(array.getAt(1)->value, 2);
}

TEST(Array, SetAt_OfAnotherElement_GoesThroughALocal) {
    ElementScope const scope;
    Array<Counted> array(2, 0);
    fill(array, {1, 2});
    Counted::record.assigned.clear();
    EXPECT_TRUE(array.setAt(0, *array.getAt(1)));
    EXPECT_EQ(content(array), (std::vector<Counted>{2, 2}));
    EXPECT_EQ(Counted::record.assigned.size(), 2U);
    EXPECT_EQ(assignedSlots(array), (std::vector<long>{0}));
}

TEST(Array, SetAt_OfAForeignValue_AssignsItDirectly) {
    ElementScope const scope;
    Array<Counted> array(2, 0);
    fill(array, {1, 2});
    Counted const value(5);
    Counted::record.assigned.clear();
    EXPECT_TRUE(array.setAt(1, value));
    EXPECT_EQ(Counted::record.assigned, (std::vector<void const*>{array.getAt(1)}));
}

TEST(Array, SetAt_FromAnUnusedSlot_TakesItsValue) {
    Array<int> array(2, 0);
    fill(array, {1, 2});
    int const& unused = *array.getAt(1);
    array.removeAt(1, 1);
    EXPECT_TRUE(array.setAt(0, unused));
    EXPECT_EQ(*array.getAt(0), 2);
}

TEST(Array, InsertAt_TheSize_Appends) {
    Array<int> array(2, 0);
    EXPECT_TRUE(array.insertAt(0, 1));
    EXPECT_TRUE(array.insertAt(1, 2));
    EXPECT_EQ(content(array), (std::vector<int>{1, 2}));
}

TEST(Array, InsertAt_BeyondTheSize_IsFalseAndChangesNothing) {
    Array<int> array(3, 1);
    fill(array, {1});
    EXPECT_FALSE(array.insertAt(2, 9));
    EXPECT_FALSE(array.insertAt(3, 9));
    EXPECT_FALSE(array.insertAt(INVALID_SIZE, 9));
    EXPECT_EQ(content(array), (std::vector<int>{1}));
    EXPECT_EQ(array.maxSize(), 3U);
}

TEST(Array, InsertAt_BeyondTheSizeOfAFullArray_DoesNotEnlargeIt) {
    Array<int> array(1, 1);
    fill(array, {1});
    EXPECT_FALSE(array.insertAt(2, 9));
    EXPECT_EQ(array.maxSize(), 1U);
}

TEST(Array, InsertAt_InTheMiddle_AssignsUpwardFromTheLastElement) {
    ElementScope const scope;
    Array<Counted> array(4, 0);
    fill(array, {1, 2, 3});
    Counted::record.assigned.clear();
    EXPECT_TRUE(array.insertAt(1, 9));
    EXPECT_EQ(content(array), (std::vector<Counted>{1, 9, 2, 3}));
    EXPECT_EQ(assignedSlots(array), (std::vector<long>{3, 2, 1}));
}

TEST(Array, InsertAt_PastAFixedCapacity_IsFalseAndChangesNothing) {
    for (int autoResize : {0, 2, -1}) {
        Array<int> array(2, autoResize);
        fill(array, {1, 2});
        EXPECT_FALSE(array.insertAt(0, 9)) << autoResize;
        EXPECT_EQ(content(array), (std::vector<int>{1, 2}));
        EXPECT_EQ(array.maxSize(), 2U);
    }
}

TEST(Array, InsertAt_IntoAFullArrayThatGrows_AddsExactlyOneSlotEachTime) {
    Array<int> array(0, 1);
    for (unsigned int i = 0; i < 5; ++i) {
        EXPECT_TRUE(array.insertAt(0, static_cast<int>(i)));
        EXPECT_EQ(array.maxSize(), i + 1);
    }
    EXPECT_EQ(content(array), (std::vector<int>{4, 3, 2, 1, 0}));
}

TEST(Array, InsertAt_WithRoomLeft_KeepsTheStorage) {
    Array<int> array(2, 1);
    int const* const storage = array.elements();
    fill(array, {1, 2});
    EXPECT_EQ(array.elements(), storage);
    EXPECT_EQ(array.maxSize(), 2U);
}

TEST(Array, InsertAt_OfAnElementOfTheSameArray_InsertsWhatItHeldBeforeTheShift) {
    Array<std::string> array(6, 0);
    fill(array, {"a", "b", "c"});
    EXPECT_TRUE(array.insertAt(0, *array.getAt(1)));
    EXPECT_TRUE(array.insertAt(1, *array.getAt(3)));
    EXPECT_EQ(content(array), (std::vector<std::string>{"b", "c", "a", "b", "c"}));
}

TEST(Array, InsertAt_OfAnElementOfTheSameArray_OutlivesTheStorage) {
    Array<std::string> array(2, 1);
    fill(array, {"the first, too long for the string itself", "b"});
    EXPECT_TRUE(array.insertAt(2, *array.getAt(0)));
    EXPECT_EQ(*array.getAt(2), "the first, too long for the string itself");
    EXPECT_EQ(*array.getAt(0), *array.getAt(2));
}

TEST(Array, InsertAt_NeedsADefaultConstructorAndACopyAssignmentAlone) {
    struct Assigned {
        Assigned() = default;
        Assigned(Assigned const&) = delete;
        Assigned& operator=(Assigned const&) = default;
        ~Assigned() = default;
        int value = 0;
    };
    Array<Assigned> array(1, 1);
    Assigned one;
    one.value = 5;
    EXPECT_TRUE(array.insertAt(0, one));
    EXPECT_TRUE(array.insertAt(0, *array.getAt(0)));
    EXPECT_TRUE(array.setAt(1, *array.getAt(0)));
    EXPECT_EQ(array.getAt(1)->value, 5);
}

TEST(Array, RemoveAt_ClipsTheCountAndKeepsTheCapacity) {
    struct Case {
        unsigned int index;
        unsigned int count;
        std::vector<int> left;
    };
    for (Case const& one : std::vector<Case>{{0, 1, {1, 2, 3}},
                                             {1, 2, {0, 3}},
                                             {3, 1, {0, 1, 2}},
                                             {2, 2, {0, 1}},
                                             {2, 3, {0, 1}},
                                             {2, INVALID_SIZE, {0, 1}},
                                             {0, 4, {}},
                                             {0, INVALID_SIZE, {}},
                                             {1, 0, {0, 1, 2, 3}}}) {
        Array<int> array(6, 0);
        fill(array, {0, 1, 2, 3});
        array.removeAt(one.index, one.count);
        EXPECT_EQ(content(array), one.left) << one.index << ", " << one.count;
        EXPECT_EQ(array.maxSize(), 6U);
    }
}

TEST(Array, RemoveAt_AtOrAboveTheSize_RemovesNothing) {
    Array<int> array(6, 0);
    fill(array, {0, 1, 2, 3});
    for (unsigned int index : {4U, 5U, 6U, 7U, INVALID_SIZE}) {
        array.removeAt(index, 1);
        array.removeAt(index, INVALID_SIZE);
        EXPECT_EQ(content(array), (std::vector<int>{0, 1, 2, 3})) << index;
    }
}

TEST(Array, RemoveAt_AssignsDownwardInAscendingOrderAndDestroysNothing) {
    ElementScope const scope;
    Array<Counted> array(5, 0);
    fill(array, {0, 1, 2, 3, 4});
    Counted::record.assigned.clear();
    unsigned int const alive = Counted::record.alive;
    array.removeAt(1, 2);
    EXPECT_EQ(assignedSlots(array), (std::vector<long>{1, 2}));
    EXPECT_EQ(Counted::record.alive, alive);
    EXPECT_EQ(array.elements()[3].value, 3);
    EXPECT_EQ(array.elements()[4].value, 4);
}

TEST(Array, Clear_KeepsStorageAndWhatTheSlotsHold) {
    Array<std::string> array(2, 0);
    fill(array, {"a", "b"});
    std::string const* const storage = array.elements();
    array.clear();
    EXPECT_EQ(array.size(), 0U);
    EXPECT_EQ(array.maxSize(), 2U);
    EXPECT_EQ(array.elements(), storage);
    EXPECT_EQ(storage[1], "b");
}

TEST(Array, Copy_OfItself_OnlyTruncatesAndDoesNotTouchStorage) {
    ElementScope const scope;
    Array<Counted> array(5, 1);
    fill(array, {0, 1, 2, 3, 4});
    Counted const* const storage = array.elements();
    Counted::record.assigned.clear();
    for (unsigned int count : {INVALID_SIZE, 6U, 5U}) {
        EXPECT_TRUE(array.copy(array, count));
        EXPECT_EQ(array.size(), 5U);
    }
    EXPECT_TRUE(array.copy(array, 2));
    EXPECT_EQ(content(array), (std::vector<Counted>{0, 1}));
    EXPECT_TRUE(array.copy(array, 0));
    EXPECT_EQ(array.size(), 0U);
    EXPECT_EQ(array.elements(), storage);
    EXPECT_EQ(array.maxSize(), 5U);
    EXPECT_TRUE(Counted::record.assigned.empty());
}

TEST(Array, Copy_TakesTheFirstElementsOfTheSource) {
    Array<int> source(3, 0);
    fill(source, {1, 2, 3});
    for (unsigned int count = 0; count <= 3; ++count) {
        Array<int> target(3, 0);
        fill(target, {7, 8});
        EXPECT_TRUE(target.copy(source, count));
        EXPECT_EQ(content(target), std::vector<int>(source.elements(), source.elements() + count));
    }
    for (unsigned int count : {4U, INVALID_SIZE}) {
        Array<int> target(3, 0);
        EXPECT_TRUE(target.copy(source, count));
        EXPECT_EQ(content(target), (std::vector<int>{1, 2, 3}));
    }
}

TEST(Array, Copy_OfMoreThanAFixedCapacity_IsFalseAndKeepsTheContent) {
    Array<int> source(3, 0);
    fill(source, {1, 2, 3});
    for (int autoResize : {0, 2, -1}) {
        Array<int> target(2, autoResize);
        fill(target, {7, 8});
        EXPECT_FALSE(target.copy(source, INVALID_SIZE)) << autoResize;
        EXPECT_FALSE(target.copy(source, 3)) << autoResize;
        EXPECT_EQ(content(target), (std::vector<int>{7, 8}));
        EXPECT_EQ(target.maxSize(), 2U);
        EXPECT_TRUE(target.copy(source, 2));
        EXPECT_EQ(content(target), (std::vector<int>{1, 2}));
    }
}

TEST(Array, Copy_IntoAnArrayThatGrows_MakesExactlyTheSlotsNeeded) {
    Array<int> source(9, 0);
    fill(source, {1, 2, 3, 4, 5});
    Array<int> target(2, 1);
    fill(target, {7});
    EXPECT_TRUE(target.copy(source, 4));
    EXPECT_EQ(target.maxSize(), 4U);
    EXPECT_TRUE(target.copy(source, 3));
    EXPECT_EQ(target.maxSize(), 4U);
    EXPECT_TRUE(target.copy(source, INVALID_SIZE));
    EXPECT_EQ(target.maxSize(), 5U);
    EXPECT_EQ(content(target), (std::vector<int>{1, 2, 3, 4, 5}));
}

TEST(Array, Copy_OfNothing_LeavesNothing) {
    Array<int> const empty(3, 0);
    Array<int> const unstored(0, 0);
    for (Array<int> const* source : {&empty, &unstored}) {
        Array<int> target(2, 0);
        fill(target, {7, 8});
        EXPECT_TRUE(target.copy(*source, INVALID_SIZE));
        EXPECT_EQ(target.size(), 0U);
        EXPECT_EQ(target.maxSize(), 2U);
    }
    Array<int> target(0, 0);
    EXPECT_TRUE(target.copy(empty, INVALID_SIZE));
}

TEST(Array, Copy_AssignsInAscendingOrder) {
    ElementScope const scope;
    Array<Counted> source(3, 0);
    fill(source, {1, 2, 3});
    Array<Counted> target(3, 0);
    Counted::record.assigned.clear();
    EXPECT_TRUE(target.copy(source, 3));
    EXPECT_EQ(assignedSlots(target), (std::vector<long>{0, 1, 2}));
}

TEST(Array, ResizeMax_ToTheSameCapacity_TouchesNothing) {
    ElementScope const scope;
    Array<Counted> array(2, 0);
    fill(array, {1, 2});
    Counted const* const storage = array.elements();
    Counted::record.assigned.clear();
    EXPECT_TRUE(array.resizeMax(2));
    EXPECT_EQ(array.elements(), storage);
    EXPECT_TRUE(Counted::record.assigned.empty());
}

TEST(Array, ResizeMax_EnlargesAFixedArrayAndKeepsItFixed) {
    Array<int> array(2, 0);
    fill(array, {1, 2});
    EXPECT_TRUE(array.resizeMax(3));
    EXPECT_EQ(array.maxSize(), 3U);
    EXPECT_EQ(content(array), (std::vector<int>{1, 2}));
    EXPECT_TRUE(array.insertAt(2, 3));
    EXPECT_FALSE(array.insertAt(3, 4));
}

TEST(Array, ResizeMax_ToFewerSlots_KeepsTheFirstElements) {
    for (unsigned int maxSize = 1; maxSize <= 5; ++maxSize) {
        Array<int> array(6, 0);
        fill(array, {0, 1, 2, 3});
        EXPECT_TRUE(array.resizeMax(maxSize));
        EXPECT_EQ(array.maxSize(), maxSize);
        EXPECT_EQ(array.size(), std::min(maxSize, 4U));
        EXPECT_EQ(*array.getAt(array.size() - 1), static_cast<int>(array.size()) - 1);
    }
}

TEST(Array, ResizeMax_ToNothing_GivesTheStorageBack) {
    ElementScope const scope;
    Array<Counted> array(2, 0);
    fill(array, {1, 2});
    EXPECT_TRUE(array.resizeMax(0));
    EXPECT_EQ(array.elements(), nullptr);
    EXPECT_EQ(array.size(), 0U);
    EXPECT_EQ(array.maxSize(), 0U);
    EXPECT_EQ(Counted::record.alive, 0U);
}

TEST(Array, ResizeMax_AssignsEachElementTwiceWithBothStoragesAlive) {
    ElementScope const scope;
    Array<Counted> array(2, 0);
    fill(array, {1, 2});
    Counted::record.assigned.clear();
    EXPECT_TRUE(array.resizeMax(7));
    EXPECT_EQ(Counted::record.assigned.size(), 4U);
    EXPECT_EQ(assignedSlots(array), (std::vector<long>{0, 1}));
    EXPECT_EQ(Counted::record.mostArrays, 2U);
    EXPECT_EQ(Counted::record.arrays, 1U);
    EXPECT_EQ(Counted::record.alive, 7U);
}

TEST(Array, ResizeMax_OfAnEmptyArray_NeedsNoTemporaryStorage) {
    ElementScope const scope;
    Array<Counted> array(2, 0);
    EXPECT_TRUE(array.resizeMax(3));
    EXPECT_EQ(Counted::record.allocations, 2U);
    EXPECT_EQ(Counted::record.mostArrays, 1U);
}

// What is left of an array whose new storage could not be had.
template <typename T>
void expectLost(Array<T>& array, unsigned int oldSize, unsigned int newMaxSize) {
    EXPECT_EQ(array.elements(), nullptr);
    EXPECT_EQ(array.size(), oldSize);
    EXPECT_EQ(array.maxSize(), newMaxSize);
    EXPECT_EQ(array.getAt(0), nullptr);
}

// Makes the content 1 and 2, and then the storage null.
void lose(Array<CountedOrNull>& array, unsigned int newMaxSize) {
    fill(array, {1, 2});
    failAllocation<CountedOrNull>(2);
    EXPECT_FALSE(array.resizeMax(newMaxSize));
    expectLost(array, 2, newMaxSize);
}

TEST(Array, ResizeMax_WhoseAllocationGivesNull_IsFalseAndTheContentIsGone) {
    ElementScope const scope;
    Array<CountedOrNull> array(2, 0);
    lose(array, 5);
    EXPECT_EQ(CountedOrNull::record.alive, 0U);
}

TEST(Array, ResizeMax_WhoseTemporaryIsNull_IsFalseAndChangesNothing) {
    ElementScope const scope;
    Array<CountedOrNull> array(2, 0);
    fill(array, {1, 2});
    failAllocation<CountedOrNull>();
    EXPECT_FALSE(array.resizeMax(5));
    EXPECT_EQ(content(array), (std::vector<CountedOrNull>{1, 2}));
    EXPECT_EQ(array.maxSize(), 2U);
}

TEST(Array, InsertAt_WhoseAllocationGivesNull_IsFalse) {
    ElementScope const scope;
    Array<CountedOrNull> array(2, 1);
    fill(array, {1, 2});
    failAllocation<CountedOrNull>(2);
    EXPECT_FALSE(array.insertAt(1, 9));
    expectLost(array, 2, 3);
}

TEST(Array, Copy_WhoseAllocationGivesNull_IsFalse) {
    ElementScope const scope;
    Array<CountedOrNull> source(3, 0);
    fill(source, {1, 2, 3});
    Array<CountedOrNull> array(2, 1);
    fill(array, {7});
    failAllocation<CountedOrNull>(2);
    EXPECT_FALSE(array.copy(source, INVALID_SIZE));
    expectLost(array, 1, 3);
}

TEST(Array, EveryOperation_AfterNullStorage_IsHarmlessAndResizeMaxRecovers) {
    ElementScope const scope;
    Array<CountedOrNull> array(2, 1);
    lose(array, 5);
    EXPECT_FALSE(array.setAt(0, 9));
    EXPECT_FALSE(array.insertAt(0, 9));
    Array<CountedOrNull> other(2, 0);
    fill(other, {4});
    EXPECT_FALSE(array.copy(other, 1));
    EXPECT_TRUE(other.copy(array, INVALID_SIZE));
    EXPECT_EQ(other.size(), 0U);
    array.removeAt(0, 1);
    EXPECT_EQ(array.size(), 1U);
    EXPECT_TRUE(array.resizeMax(3));
    EXPECT_EQ(array.size(), 0U);
    EXPECT_TRUE(array.insertAt(0, 9));
    EXPECT_EQ(content(array), (std::vector<CountedOrNull>{9}));
}

TEST(Array, InsertAt_AfterNullStorageOfFewerSlotsThanTheSize_IsFalse) {
    ElementScope const scope;
    Array<CountedOrNull> array(2, 1);
    lose(array, 1);
    EXPECT_FALSE(array.insertAt(2, 9));
    expectLost(array, 2, 1);
}

TEST(Array, Copy_AfterNullStorage_FillsAnArrayThatGrows) {
    ElementScope const scope;
    Array<CountedOrNull> array(2, 1);
    lose(array, 1);
    Array<CountedOrNull> other(2, 0);
    fill(other, {4, 5});
    EXPECT_TRUE(array.copy(other, INVALID_SIZE));
    EXPECT_EQ(content(array), (std::vector<CountedOrNull>{4, 5}));
}

TEST(Array, Construction_WhoseAllocationGivesNull_LeavesAnArrayThatRefuses) {
    ElementScope const scope;
    failAllocation<CountedOrNull>();
    Array<CountedOrNull> array(2, 0);
    EXPECT_EQ(array.elements(), nullptr);
    EXPECT_EQ(array.maxSize(), 2U);
    EXPECT_FALSE(array.insertAt(0, 1));
    EXPECT_EQ(array.size(), 0U);
}

TEST(Array, ResizeMax_WhoseAllocationThrows_PassesItOnAndReleasesTheTemporary) {
    ElementScope const scope;
    Array<Counted> array(2, 0);
    fill(array, {1, 2});
    failAllocation<Counted>(2);
    EXPECT_THROW(array.resizeMax(5), std::bad_alloc);
    expectLost(array, 2, 5);
    EXPECT_EQ(Counted::record.alive, 0U);
    EXPECT_EQ(Counted::record.arrays, 0U);
}

TEST(Array, ResizeMax_WhoseTemporaryThrows_PassesItOnAndChangesNothing) {
    ElementScope const scope;
    Array<Counted> array(2, 0);
    fill(array, {1, 2});
    failAllocation<Counted>();
    EXPECT_THROW(array.resizeMax(5), std::bad_alloc);
    EXPECT_EQ(content(array), (std::vector<Counted>{1, 2}));
    EXPECT_EQ(array.maxSize(), 2U);
}

TEST(Array, Construction_WhoseAllocationThrows_PassesItOn) {
    ElementScope const scope;
    failAllocation<Counted>();
    EXPECT_THROW(Array<Counted>(2, 0), std::bad_alloc);
}

TEST(Array, ResizeMax_WithAnAssignmentThatThrows_LeaksNothing) {
    ElementScope const scope;
    for (unsigned int number = 1; number <= 4; ++number) {
        Array<Counted> array(2, 0);
        fill(array, {1, 2});
        throwAtAssignment<Counted>(number);
        EXPECT_THROW(array.resizeMax(3), std::runtime_error) << number;
        throwAtAssignment<Counted>(0);
        EXPECT_EQ(Counted::record.arrays, 1U);
        if (number <= 2) {
            EXPECT_EQ(content(array), (std::vector<Counted>{1, 2}));
            EXPECT_EQ(array.maxSize(), 2U);
        }
    }
}

// Does the same to an array and to a standard vector and compares them after each step.
template <typename T>
class Comparison {
  public:
    Comparison(unsigned int seed, unsigned int maxSize, int autoResize)
        : mRandom(seed), mArray(maxSize, autoResize), mMaxSize(maxSize), mGrows(autoResize == 1) {}

    void step(T const& value) {
        unsigned int const index = pick(static_cast<unsigned int>(mModel.size()) + 3);
        unsigned int const count = pick(4);
        switch (pick(12)) {
            case 0:
            case 1:
                remove(index, count);
                break;
            case 2:
                set(index, value);
                break;
            case 3:
                resize(pick(12));
                break;
            case 4:
                truncate(pick(10));
                break;
            default:
                insert(index, value);
        }
        ASSERT_EQ(content(mArray), mModel);
        ASSERT_EQ(mArray.maxSize(), mMaxSize);
    }

  private:
    unsigned int pick(unsigned int bound) { return static_cast<unsigned int>(mRandom() % bound); }
    auto at(unsigned int index) { return mModel.begin() + static_cast<std::ptrdiff_t>(index); }

    void insert(unsigned int index, T const& value) {
        bool const fits = index <= mModel.size() && (mGrows || mModel.size() < mMaxSize);
        bool const own = pick(4) == 0 && !mModel.empty();
        unsigned int const from = own ? pick(static_cast<unsigned int>(mModel.size())) : 0;
        T const inserted = own ? mModel[from] : value;
        ASSERT_EQ(mArray.insertAt(index, own ? *mArray.getAt(from) : value), fits);
        if (fits) {
            mModel.insert(at(index), inserted);
            mMaxSize = std::max(mMaxSize, static_cast<unsigned int>(mModel.size()));
        }
    }

    void remove(unsigned int index, unsigned int count) {
        mArray.removeAt(index, count);
        if (index < mModel.size()) {
            auto const modelSize = static_cast<unsigned int>(mModel.size());
            mModel.erase(at(index), at(index + std::min(count, modelSize - index)));
        }
    }

    void set(unsigned int index, T const& value) {
        bool const there = index < mModel.size();
        ASSERT_EQ(mArray.setAt(index, value), there);
        if (there) {
            mModel[index] = value;
        }
    }

    void resize(unsigned int maxSize) {
        ASSERT_TRUE(mArray.resizeMax(maxSize));
        mMaxSize = maxSize;
        mModel.resize(std::min<size_t>(mModel.size(), maxSize));
    }

    void truncate(unsigned int count) {
        ASSERT_TRUE(mArray.copy(mArray, count));
        mModel.resize(std::min<size_t>(mModel.size(), count));
    }

    std::mt19937 mRandom;
    Array<T> mArray;
    std::vector<T> mModel;
    unsigned int mMaxSize;
    bool mGrows;
};

TEST(Array, RandomOperations_GiveWhatAVectorGives) {
    for (unsigned int seed = 0; seed < 40; ++seed) {
        Comparison<int> plain(seed, seed % 7, static_cast<int>(seed % 2));
        Comparison<std::string> text(seed, seed % 5, static_cast<int>(seed % 3));
        for (int i = 0; i < 300; ++i) {
            ASSERT_NO_FATAL_FAILURE(plain.step(i)) << "seed " << seed << ", step " << i;
            ASSERT_NO_FATAL_FAILURE(text.step("a text of some length, number " + std::to_string(i)))
                << "seed " << seed << ", step " << i;
        }
    }
}

}  // namespace

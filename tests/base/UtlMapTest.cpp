// Starts no thread.

#include "UtlMap.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "TestElements.h"
#include "TestLayout.h"

namespace {

using utl::CompareLessPairKey;
using utl::INVALID_SIZE;
using utl::Map;
using utl::Pair;
using utl::searchBinary;
using utl::searchPosition;

static_assert(std::has_virtual_destructor_v<Map<int, int>> && std::has_virtual_destructor_v<Pair<int, int>>);
static_assert(std::is_default_constructible_v<Pair<int, int>> && std::is_copy_assignable_v<Pair<int, int>>);
static_assert(!std::is_copy_constructible_v<Map<int, int>> && !std::is_copy_assignable_v<Map<int, int>>);
static_assert(noexcept(std::declval<Map<int, std::string>&>().clear()) && noexcept(
    std::declval<Map<int, std::string>&>().getAt(
        0)) && noexcept(std::declval<Map<int, std::string>&>()
                            .size()) && noexcept(std::declval<Map<int, std::string>&>().maxSize()));
static_assert(std::is_empty_v<CompareLessPairKey<int, int>> && sizeof(CompareLessPairKey<int, int>) == 1);

using LessInt = CompareLessPairKey<int, int>;

// Exactly as many elements as there are keys, on the heap, so that a look beyond them is seen.
std::unique_ptr<Pair<int, int>[]> pairs(std::vector<int> const& keys) {
    auto elements = std::make_unique<Pair<int, int>[]>(keys.size());
    for (size_t i = 0; i < keys.size(); ++i) {
        elements[i].mKey = keys[i];
        elements[i].mValue = static_cast<int>(i);
    }
    return elements;
}

unsigned int positionIn(std::vector<int> const& keys, int key) {
    return searchPosition(key, pairs(keys).get(), static_cast<unsigned int>(keys.size()), LessInt());
}

// A plain bisection that walks to the first of a run; `keys` must not be empty.
unsigned int bisected(std::vector<int> const& keys, int key) {
    int low = 0;
    int high = static_cast<int>(keys.size()) - 1;
    int middle = 0;
    while (low <= high) {
        middle = (low + high) >> 1;
        int const there = keys[static_cast<size_t>(middle)];
        if (key < there) {
            high = middle - 1;
        } else if (there < key) {
            low = middle + 1;
        } else {
            while (middle > 0 && keys[static_cast<size_t>(middle) - 1] == key) {
                --middle;
            }
            return static_cast<unsigned int>(middle);
        }
    }
    return static_cast<unsigned int>(keys[static_cast<size_t>(middle)] < key ? middle + 1 : middle);
}

TEST(SearchPosition, OfNoElements_Is0WithStorageAndInvalidWithout) {
    Pair<int, int> const one;
    Pair<int, int> const* const none = nullptr;
    EXPECT_EQ(searchPosition(5, &one, 0, LessInt()), 0U);
    EXPECT_EQ(searchPosition(5, none, 0, LessInt()), INVALID_SIZE);
    EXPECT_EQ(searchPosition(5, none, 1, LessInt()), INVALID_SIZE);
}

TEST(SearchPosition, OfACountWithItsTopBitSet_IsInvalid) {
    Pair<int, int> const one;
    for (unsigned int count : {0x80000000U, 0x80000001U, 0xFFFFFFFFU}) {
        EXPECT_EQ(searchPosition(5, &one, count, LessInt()), INVALID_SIZE);
    }
}

// Memory that is mapped and never written reads as zeros and takes no room.
TEST(SearchPosition, OfTheLargestCount_Searches) {
    struct Entry {
        signed char mKey;
    };
    constexpr unsigned int COUNT = 0x7FFFFFFFU;
    static_assert(utl::MAX_SEARCH_COUNT == COUNT && sizeof(Entry) == 1);
    void* const zeros = mmap(nullptr, COUNT, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(zeros, MAP_FAILED);
    auto const* const entries = static_cast<Entry const*>(zeros);
    CompareLessPairKey<signed char, int> const isLess;
    EXPECT_EQ(searchPosition(static_cast<signed char>(-1), entries, COUNT, isLess), 0U);
    EXPECT_EQ(searchPosition(static_cast<signed char>(0), entries, COUNT, isLess), 0U);
    EXPECT_EQ(searchPosition(static_cast<signed char>(1), entries, COUNT, isLess), COUNT);
    EXPECT_EQ(munmap(zeros, COUNT), 0);
}

TEST(SearchPosition, OfASmallerKeyThanAll_Is0AndOfALargerOne_IsTheCount) {
    for (int count = 1; count <= 70; ++count) {
        std::vector<int> keys;
        for (int i = 0; i < count; ++i) {
            keys.push_back(i);
        }
        EXPECT_EQ(positionIn(keys, -1), 0U);
        EXPECT_EQ(positionIn(keys, 0), 0U);
        EXPECT_EQ(positionIn(keys, count - 1), static_cast<unsigned int>(count - 1));
        EXPECT_EQ(positionIn(keys, count), static_cast<unsigned int>(count));
    }
}

TEST(SearchPosition, OfARunOfEqualKeys_IsItsFirst) {
    for (size_t before = 0; before <= 5; ++before) {
        for (size_t run = 1; run <= 9; ++run) {
            for (size_t behind = 0; behind <= 5; ++behind) {
                std::vector<int> keys(before, 1);
                keys.insert(keys.end(), run, 2);
                keys.insert(keys.end(), behind, 3);
                EXPECT_EQ(positionIn(keys, 2), before) << before << ", " << run << ", " << behind;
            }
        }
    }
}

TEST(SearchPosition, OnSortedKeys_GivesWhatABisectionGives) {
    std::mt19937 random(1);
    for (unsigned int count = 1; count <= 130; ++count) {
        std::vector<int> keys(count);
        for (int& key : keys) {
            key = static_cast<int>(random() % (count + 3)) * 2;
        }
        std::sort(keys.begin(), keys.end());
        for (int key = -1; key <= static_cast<int>(count + 3) * 2; ++key) {
            ASSERT_EQ(positionIn(keys, key), bisected(keys, key)) << count << " keys, key " << key;
        }
    }
}

TEST(SearchPosition, OnKeysOutOfOrder_StaysWithinThem) {
    std::mt19937 random(2);
    for (unsigned int round = 0; round < 2000; ++round) {
        std::vector<int> keys(1 + random() % 40);
        for (int& key : keys) {
            key = static_cast<int>(random());
        }
        ASSERT_LE(positionIn(keys, static_cast<int>(random())), keys.size());
    }
}

TEST(SearchPosition, ComparesSignedKeysSignedAndUnsignedKeysUnsigned) {
    EXPECT_EQ(positionIn({-2, -1, 0, 1, 0x7FFFFFFF}, -1), 1U);
    EXPECT_EQ(positionIn({-0x7FFFFFFF - 1, 0, 1}, 0x7FFFFFFF), 3U);
    Pair<unsigned int, int> elements[3];
    elements[0].mKey = 0;
    elements[1].mKey = 0x7FFFFFFFU;
    elements[2].mKey = 0xFFFFFFFFU;
    CompareLessPairKey<unsigned int, int> const isLess;
    EXPECT_EQ(searchPosition(0xFFFFFFFFU, elements, 3, isLess), 2U);
    EXPECT_EQ(searchPosition(0x80000000U, elements, 3, isLess), 2U);
    EXPECT_EQ(searchPosition(1U, elements, 3, isLess), 1U);
}

TEST(SearchBinary, GivesTheFirstEqualElementOrNull) {
    auto const elements = pairs({10, 20, 20, 30});
    EXPECT_EQ(searchBinary(10, elements.get(), 4, LessInt()), &elements[0]);
    EXPECT_EQ(searchBinary(20, elements.get(), 4, LessInt()), &elements[1]);
    EXPECT_EQ(searchBinary(30, elements.get(), 4, LessInt()), &elements[3]);
    for (int key : {9, 11, 29, 31}) {
        EXPECT_EQ(searchBinary(key, elements.get(), 4, LessInt()), nullptr) << key;
    }
}

TEST(SearchBinary, OfWhatCannotBeSearched_IsNull) {
    auto const elements = pairs({10});
    Pair<int, int> const* const none = nullptr;
    EXPECT_EQ(searchBinary(10, elements.get(), 0, LessInt()), nullptr);
    EXPECT_EQ(searchBinary(10, elements.get(), 0x80000000U, LessInt()), nullptr);
    EXPECT_EQ(searchBinary(10, none, 0, LessInt()), nullptr);
    EXPECT_EQ(searchBinary(10, none, 1, LessInt()), nullptr);
}

// Has no operator but `<`.
struct Name {
    std::string text;
    bool operator<(Name const& other) const { return text < other.text; }
};

struct Descending {
    bool operator()(int const& left, int const& right) const { return left > right; }
};

// Keys that differ by their last digit alone are equal.
struct ByTens {
    bool operator()(int const& left, int const& right) const { return left / 10 < right / 10; }
};

template <typename MAP>
std::vector<int> keysOf(MAP const& map) {
    std::vector<int> keys;
    for (unsigned int i = 0; i < map.size(); ++i) {
        keys.push_back(map.getAt(i)->mKey);
    }
    return keys;
}

// Pairs of plain types move as bytes; what has an assignment of its own, alone or in a pair, is assigned.
struct PairOfItsOwn : Pair<int, int> {};
static_assert(utl::detail::IsAssignedAsBytes<Pair<int, int*>>::value);
static_assert(!utl::detail::IsAssignedAsBytes<Pair<int, std::string>>::value);
static_assert(!utl::detail::IsAssignedAsBytes<Pair<Name, int>>::value);
static_assert(!utl::detail::IsAssignedAsBytes<PairOfItsOwn>::value);

TEST(Pair, MovedAsBytes_KeepsItsVirtualDestructor) {
    Map<int, int> map(3, 0);
    for (int key : {3, 1, 2}) {
        ASSERT_TRUE(map.insert(key, key * 10));
    }
    ASSERT_TRUE(map.erase(1));
    for (unsigned int i = 0; i < map.size(); ++i) {
        EXPECT_EQ(typeid(*map.getAt(i)), typeid(Pair<int, int>));
        EXPECT_EQ(map.getAt(i)->mValue, map.getAt(i)->mKey * 10);
    }
}

TEST(Pair, Fields_StandInTheOrderKeyValue) {
    Pair<int, int> const pair;
    EXPECT_EQ(utltest::offsetIn(pair, pair.mKey), utltest::FIRST_FIELD);
    EXPECT_EQ(utltest::offsetIn(pair, pair.mValue), utltest::FIRST_FIELD + sizeof(int));
}

TEST(Map, Fields_StandInTheOrderArrayComparator) {
    struct LessWithMark {
        bool operator()(int left, int right) const { return left < right; }
        int mark = 4711;
    };
    Map<int, int, int const&, int const&, LessWithMark> map(3, 1);
    ASSERT_TRUE(map.insert(1, 2));
    using Entries = utl::Array<Pair<int, int>, Pair<int, int> const&>;
    std::size_t const array = utltest::FIRST_FIELD;
    EXPECT_EQ((utltest::fieldAt<Pair<int, int>*>(map, array + utltest::FIRST_FIELD)), map.getAt(0));
    EXPECT_EQ(utltest::fieldAt<unsigned int>(map, array + utltest::BEHIND_POINTER), 1U);
    EXPECT_EQ(utltest::fieldAt<int>(map, array + sizeof(Entries)), 4711);
}

TEST(Map, Insert_KeepsTheEntriesInAscendingOrderOfTheKeys) {
    Map<int, int> map(5, 0);
    for (int key : {3, -1, 7, 0, -9}) {
        EXPECT_TRUE(map.insert(key, key * 10));
    }
    EXPECT_EQ(keysOf(map), (std::vector<int>{-9, -1, 0, 3, 7}));
    EXPECT_EQ(map.getAt(4)->mValue, 70);
}

TEST(Map, Insert_OfAnExistingKey_ReplacesTheValueAndKeepsTheCount) {
    Map<int, std::string> map(2, 0);
    EXPECT_TRUE(map.insert(1, "a"));
    EXPECT_TRUE(map.insert(2, "b"));
    EXPECT_TRUE(map.insert(1, "c"));
    EXPECT_EQ(map.size(), 2U);
    EXPECT_EQ(*map.find(1), "c");
    EXPECT_EQ(*map.find(2), "b");
}

TEST(Map, Insert_OfAnEqualKey_ReplacesTheWholePair) {
    Map<int, int, int const&, int const&, ByTens> map(2, 0);
    EXPECT_TRUE(map.insert(11, 1));
    EXPECT_TRUE(map.insert(15, 2));
    EXPECT_EQ(keysOf(map), (std::vector<int>{15}));
    EXPECT_EQ(*map.find(19), 2);
}

TEST(Map, Insert_IntoAFullFixedMap_FailsForANewKeyAndReplacesAnExistingOne) {
    Map<int, int> map(2, 0);
    EXPECT_TRUE(map.insert(1, 1));
    EXPECT_TRUE(map.insert(2, 2));
    EXPECT_FALSE(map.insert(0, 0));
    EXPECT_FALSE(map.insert(3, 3));
    EXPECT_TRUE(map.insert(2, 9));
    EXPECT_EQ(keysOf(map), (std::vector<int>{1, 2}));
    EXPECT_EQ(*map.find(2), 9);
}

TEST(Map, Insert_IntoAMapBuiltWithNoSlots_FailsEvenIfItMayGrow) {
    for (int autoResize : {0, 1}) {
        Map<int, int> map(0, autoResize);
        EXPECT_FALSE(map.insert(1, 1));
        EXPECT_EQ(map.size(), 0U);
        EXPECT_EQ(map.find(1), nullptr);
        EXPECT_FALSE(map.erase(1));
    }
}

TEST(Map, Insert_IntoAMapBuiltWithOneSlotThatGrows_GoesOn) {
    Map<int, int> map(1, 1);
    for (int key = 20; key > 0; --key) {
        EXPECT_TRUE(map.insert(key, key));
    }
    EXPECT_EQ(map.size(), 20U);
    EXPECT_EQ(map.getAt(0)->mKey, 1);
}

TEST(Map, Insert_OfAKeyAndAValueOfTheSameMap_TakesThemAsTheyWere) {
    Map<int, std::string> map(2, 1);
    EXPECT_TRUE(map.insert(1, "the first, too long for the string itself"));
    EXPECT_TRUE(map.insert(2, "b"));
    EXPECT_TRUE(map.insert(0, *map.find(1)));
    EXPECT_TRUE(map.insert(map.getAt(2)->mKey, map.getAt(0)->mValue));
    EXPECT_EQ(map.size(), 3U);
    for (int key : {0, 1, 2}) {
        EXPECT_EQ(*map.find(key), "the first, too long for the string itself");
    }
}

TEST(Map, Find_OfAnAbsentKey_IsNull) {
    Map<int, int> map(3, 0);
    EXPECT_EQ(map.find(1), nullptr);
    map.insert(1, 10);
    map.insert(3, 30);
    for (int key : {0, 2, 4}) {
        EXPECT_EQ(map.find(key), nullptr);
    }
    Map<int, int> const& constant = map;
    EXPECT_EQ(constant.find(3), map.find(3));
    EXPECT_EQ(constant.find(2), nullptr);
}

TEST(Map, Find_GivesTheValueToWriteTo) {
    Map<int, int> map(1, 0);
    map.insert(1, 10);
    *map.find(1) = 11;
    EXPECT_EQ(map.getAt(0)->mValue, 11);
}

TEST(Map, Erase_RemovesTheEntryAndIsFalseWhenItIsAbsent) {
    Map<int, int> map(3, 0);
    EXPECT_FALSE(map.erase(1));
    for (int key : {1, 2, 3}) {
        map.insert(key, key);
    }
    EXPECT_FALSE(map.erase(0));
    EXPECT_FALSE(map.erase(4));
    EXPECT_TRUE(map.erase(2));
    EXPECT_FALSE(map.erase(2));
    EXPECT_EQ(keysOf(map), (std::vector<int>{1, 3}));
    EXPECT_TRUE(map.erase(map.getAt(0)->mKey));
    EXPECT_TRUE(map.erase(3));
    EXPECT_EQ(map.size(), 0U);
    EXPECT_TRUE(map.insert(5, 5));
}

TEST(Map, GetAt_AtAndBeyondTheSize_IsNull) {
    Map<int, int> map(3, 0);
    EXPECT_EQ(map.getAt(0), nullptr);
    map.insert(1, 10);
    Map<int, int> const& constant = map;
    EXPECT_EQ(constant.getAt(0), map.getAt(0));
    for (unsigned int index : {1U, 2U, 3U, INVALID_SIZE}) {
        EXPECT_EQ(map.getAt(index), nullptr);
        EXPECT_EQ(constant.getAt(index), nullptr);
    }
}

TEST(Map, Clear_RemovesAllAndKeepsTheStorage) {
    Map<int, int> map(2, 0);
    map.insert(1, 1);
    Pair<int, int> const* const entry = map.getAt(0);
    map.clear();
    EXPECT_EQ(map.size(), 0U);
    EXPECT_EQ(map.find(1), nullptr);
    EXPECT_TRUE(map.insert(7, 7));
    EXPECT_EQ(map.getAt(0), entry);
}

TEST(Map, Copy_TakesAllEntriesOrFailsAndKeepsItsOwn) {
    Map<int, int> source(3, 0);
    for (int key : {1, 2, 3}) {
        source.insert(key, key * 10);
    }
    Map<int, int> small(2, 0);
    small.insert(9, 9);
    EXPECT_FALSE(small.copy(source));
    EXPECT_EQ(keysOf(small), (std::vector<int>{9}));
    Map<int, int> large(3, 0);
    large.insert(9, 9);
    EXPECT_TRUE(large.copy(source));
    EXPECT_EQ(keysOf(large), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(*large.find(2), 20);
    Map<int, int> growing(0, 1);
    EXPECT_TRUE(growing.copy(source));
    EXPECT_EQ(growing.size(), 3U);
}

TEST(Map, Insert_IntoAMapBuiltWithNoSlots_WorksOnceACopyHasBroughtStorage) {
    Map<int, int> source(1, 0);
    source.insert(1, 10);
    Map<int, int> map(0, 1);
    EXPECT_FALSE(map.insert(2, 20));
    EXPECT_TRUE(map.copy(source));
    EXPECT_TRUE(map.insert(2, 20));
    EXPECT_EQ(keysOf(map), (std::vector<int>{1, 2}));
}

TEST(Map, AnOrderOfItsOwn_RulesInsertionFindingAndErasing) {
    Map<int, int, int const&, int const&, Descending> map(4, 0);
    for (int key : {2, 4, 1, 3}) {
        EXPECT_TRUE(map.insert(key, key));
    }
    EXPECT_EQ(keysOf(map), (std::vector<int>{4, 3, 2, 1}));
    EXPECT_EQ(*map.find(3), 3);
    EXPECT_TRUE(map.erase(4));
    EXPECT_EQ(map.find(4), nullptr);
}

TEST(Map, Keys_NeedNoOtherOperatorThanLess) {
    Map<Name, int> map(2, 0);
    EXPECT_TRUE(map.insert(Name{"b"}, 2));
    EXPECT_TRUE(map.insert(Name{"a"}, 1));
    EXPECT_EQ(*map.find(Name{"b"}), 2);
    EXPECT_TRUE(map.erase(Name{"b"}));
    EXPECT_EQ(map.find(Name{"b"}), nullptr);
}

TEST(Map, Pointers_StayTheCallers) {
    utltest::ElementScope const scope;
    utltest::Counted borrowed(3);
    {
        Map<int, utltest::Counted*> map(1, 0);
        EXPECT_TRUE(map.insert(1, &borrowed));
        EXPECT_TRUE(map.erase(1));
        EXPECT_TRUE(map.insert(1, &borrowed));
    }
    EXPECT_EQ(borrowed.value, 3);
    EXPECT_EQ(utltest::Counted::record.alive, 1U);
}

TEST(Map, TheMapsOfTheLibrary_WorkOverTheirWholeRangeOfKeys) {
    Map<unsigned int, unsigned int> ids(50, 0);
    EXPECT_TRUE(ids.insert(0xFFFFFFFFU, 1));
    EXPECT_TRUE(ids.insert(0, 2));
    EXPECT_EQ(ids.getAt(0)->mKey, 0U);
    EXPECT_EQ(*ids.find(0xFFFFFFFFU), 1U);
    Map<int, unsigned long long> offsets(2, 0);
    EXPECT_TRUE(offsets.insert(1, 0xFFFFFFFFFFFFFFFFULL));
    EXPECT_TRUE(offsets.insert(-1, 2));
    EXPECT_EQ(offsets.getAt(0)->mKey, -1);
    EXPECT_EQ(*offsets.find(1), 0xFFFFFFFFFFFFFFFFULL);
}

TEST(Map, SwappedIn_AValueIsNeitherCopiedNorLost) {
    struct Unique {
        Unique() = default;
        Unique(Unique const&) = delete;
        Unique& operator=(Unique const&) = default;
        void swap(Unique& other) noexcept { std::swap(number, other.number); }
        int number = 0;
    };
    Map<int, Unique> map(3, 1);
    Unique value;
    for (int const key : {5, 2147483647, -3}) {
        value.number = key * 10LL > 0 ? key % 1000 : -key;
        int const expected = value.number;
        EXPECT_TRUE(map.insertSwapped(key, value));
        EXPECT_EQ(value.number, 0);
        EXPECT_EQ(map.find(key)->number, expected);
    }
    value.number = 77;
    EXPECT_FALSE(map.insertSwapped(5, value)) << "it is there";
    EXPECT_FALSE(map.insertSwapped(6, value)) << "the capacity never grows";
    EXPECT_EQ(value.number, 77);
    EXPECT_EQ(map.maxSize(), 3U);
    EXPECT_FALSE(map.eraseSwapped(6, value));
    EXPECT_TRUE(map.eraseSwapped(-3, value));
    EXPECT_EQ(value.number, 3);
    EXPECT_EQ(map.size(), 2U);
    EXPECT_EQ(map.getAt(0)->mKey, 5);
    EXPECT_EQ(map.getAt(1)->mKey, 2147483647);
    Map<int, Unique> none(0, 1);
    EXPECT_FALSE(none.insertSwapped(1, value));
    EXPECT_FALSE(none.eraseSwapped(1, value));
}

TEST(Map, RandomOperations_GiveWhatAStandardMapGives) {
    for (unsigned int seed = 0; seed < 30; ++seed) {
        std::mt19937 random(seed);
        unsigned int const maxSize = 1 + seed % 20;
        bool const grows = seed % 2 == 1;
        Map<int, std::string> map(maxSize, grows ? 1 : 0);
        std::map<int, std::string> model;
        for (int i = 0; i < 600; ++i) {
            int const key = static_cast<int>(random() % 40) - 20;
            bool const there = model.count(key) != 0;
            if (random() % 4 == 0) {
                std::string erased;
                ASSERT_EQ(map.eraseSwapped(key, erased), there);
                ASSERT_EQ(erased, there ? model[key] : "");
                model.erase(key);
            } else if (random() % 4 == 0) {
                std::string value = std::to_string(i);
                bool const fits = !there && model.size() < map.maxSize();
                ASSERT_EQ(map.insertSwapped(key, value), fits);
                if (fits) {
                    model[key] = std::to_string(i);
                }
            } else if (random() % 3 == 0) {
                ASSERT_EQ(map.erase(key), there);
                model.erase(key);
            } else {
                bool const fits = there || grows || model.size() < maxSize;
                ASSERT_EQ(map.insert(key, std::to_string(i)), fits);
                if (fits) {
                    model[key] = std::to_string(i);
                }
            }
            ASSERT_EQ(map.size(), model.size());
            unsigned int index = 0;
            for (auto const& [modelKey, value] : model) {
                ASSERT_EQ(map.getAt(index)->mKey, modelKey);
                ASSERT_EQ(map.getAt(index)->mValue, value);
                ASSERT_EQ(*map.find(modelKey), value);
                ++index;
            }
        }
    }
}

}  // namespace

#include "UtlBasicString.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "TestLayout.h"
#include "TestScratch.h"
#include "UtlPlatform.h"

namespace {

enum class Allocator { WORKS, THROWS, GIVES_NULL };

Allocator gAllocator = Allocator::WORKS;
int gArrayAllocations = 0;
int gArrayDeletions = 0;

}  // namespace

// The library's array allocations come here. Some embedded allocators return null where they should throw;
// this one can do so as well.
void* operator new[](std::size_t bytes) {
    ++gArrayAllocations;
    if (gAllocator == Allocator::THROWS) {
        throw std::bad_alloc();
    }
    return gAllocator == Allocator::GIVES_NULL ? nullptr : std::malloc(bytes);
}

void operator delete[](void* address) noexcept {
    gArrayDeletions += address != nullptr ? 1 : 0;
    std::free(address);
}

void operator delete[](void* address, std::size_t) noexcept {
    operator delete[](address);
}

namespace {

using utl::INVALID_SIZE;
using String = utl::BasicString<char>;

static_assert(std::is_nothrow_constructible_v<String, utl::ConstantTag>);
static_assert(
    noexcept(std::declval<String&>().buffer()) && noexcept(std::declval<String&>().maxSize()) && noexcept(
        std::declval<String&>()
            .length()) && noexcept(std::declval<String&>() ==
                                   "") && noexcept(std::declval<String&>() !=
                                                   std::declval<String&>()) && noexcept("" ==
                                                                                        std::declval<
                                                                                            String&>()));

constexpr char HIRAGANA_A[] = "\xE3\x81\x82";

class AllocatorScope {
  public:
    explicit AllocatorScope(Allocator allocator) { gAllocator = allocator; }
    ~AllocatorScope() { gAllocator = Allocator::WORKS; }
    AllocatorScope(AllocatorScope const&) = delete;
    AllocatorScope& operator=(AllocatorScope const&) = delete;
};

// `EMPTY_STR` as a static initialiser would see it that runs before it is filled.
class NoEmptyTextScope {
  public:
    NoEmptyTextScope() { String::EMPTY_STR.mNarrow = nullptr; }
    ~NoEmptyTextScope() { String::EMPTY_STR.mNarrow = &String::mEmptyChar; }
    NoEmptyTextScope(NoEmptyTextScope const&) = delete;
    NoEmptyTextScope& operator=(NoEmptyTextScope const&) = delete;
};

char const* gEarliestEmptyText = nullptr;

__attribute__((no_sanitize("address", "thread", "undefined"))) void lookAtEmptyText() {
    gEarliestEmptyText = String::EMPTY_STR.mNarrow;
}

// Runs before the initialisers of every library.
__attribute__((section(".preinit_array"), used)) void (*const gLookEarly)() = lookAtEmptyText;

bool isShared(String const& text) {
    return text.buffer() == String::EMPTY_STR.mNarrow;
}

using EmptyTexts = utl::DualType<char const*, wchar_t const*>;

static_assert(std::is_same_v<decltype(String::EMPTY_STR), EmptyTexts>);

TEST(EmptyStr, PointsAtTheZeroCharacters) {
    EXPECT_EQ(String::EMPTY_STR.mNarrow, &String::mEmptyChar);
    EXPECT_EQ(String::EMPTY_STR.mWide, &String::mEmptyWChar);
    EXPECT_EQ(String::mEmptyChar, '\0');
    EXPECT_EQ(String::mEmptyWChar, L'\0');
}

TEST(EmptyStr, IsAnObjectAsItsConstructorMakesIt) {
    EmptyTexts const made(&String::mEmptyChar, &String::mEmptyWChar);
    EXPECT_TRUE(utltest::haveSameBytes(made, String::EMPTY_STR));
}

TEST(EmptyStr, IsFilledBeforeAnyInitialiserRuns) {
    EXPECT_EQ(gEarliestEmptyText, &String::mEmptyChar);
}

TEST(DualType, KeepsBothForms) {
    utl::DualType<char const*, wchar_t const*> const slot("a", L"b");
    EXPECT_STREQ(slot.mNarrow, "a");
    EXPECT_EQ(std::wstring(slot.mWide), L"b");
}

TEST(DualType, DefaultConstructed_IsNullInBothForms) {
    utl::DualType<char const*, wchar_t const*> const slot;
    EXPECT_EQ(slot.mNarrow, nullptr);
    EXPECT_EQ(slot.mWide, nullptr);
}

TEST(DualType, Fields_StandInTheOrderNarrowWide) {
    utl::DualType<char const*, wchar_t const*> const slot;
    EXPECT_EQ(utltest::offsetIn(slot, slot.mNarrow), utltest::FIRST_FIELD);
    EXPECT_EQ(utltest::offsetIn(slot, slot.mWide), utltest::BEHIND_POINTER);
}

TEST(DualType, HasAVirtualDestructor) {
    EXPECT_TRUE((std::has_virtual_destructor_v<utl::DualType<char const*, wchar_t const*>>));
}

TEST(Range, KeepsBothEnds) {
    utl::Range<char> const range('0', '9');
    EXPECT_EQ(range.mLow, '0');
    EXPECT_EQ(range.mHigh, '9');
}

TEST(Range, DefaultConstructed_IsTheZeroCharacterAlone) {
    utl::Range<char> const range;
    EXPECT_EQ(range.mLow, '\0');
    EXPECT_EQ(range.mHigh, '\0');
}

TEST(Range, Fields_StandInTheOrderLowHigh) {
    utl::Range<char> const range;
    EXPECT_EQ(utltest::offsetIn(range, range.mLow), utltest::FIRST_FIELD);
    EXPECT_EQ(utltest::offsetIn(range, range.mHigh), utltest::FIRST_FIELD + 1);
}

static_assert(std::has_virtual_destructor_v<utl::Range<char>>);

TEST(BasicString, Fields_StandInTheOrderBufferCapacityPolicySharing) {
    String const owning("abc", 10, 5);
    EXPECT_EQ(utltest::fieldAt<char const*>(owning, utltest::FIRST_FIELD), owning.buffer());
    EXPECT_EQ(utltest::fieldAt<unsigned int>(owning, utltest::BEHIND_POINTER), 10U);
    EXPECT_EQ(utltest::fieldAt<int>(owning, utltest::BEHIND_POINTER + 4), 5);
    EXPECT_EQ(utltest::fieldAt<unsigned char>(owning, utltest::BEHIND_POINTER + 8), 0U);
    String const sharing;
    EXPECT_EQ(utltest::fieldAt<unsigned char>(sharing, utltest::BEHIND_POINTER + 8), 1U);
}

TEST(BasicString, DefaultConstructed_IsEmptyOfCapacityOneAndCostsNoAllocation) {
    int const allocations = gArrayAllocations;
    int const deletions = gArrayDeletions;
    {
        String const text;
        EXPECT_STREQ(text.buffer(), "");
        EXPECT_EQ(text.maxSize(), 1U);
        EXPECT_TRUE(isShared(text));
    }
    EXPECT_EQ(gArrayAllocations, allocations);
    EXPECT_EQ(gArrayDeletions, deletions);
}

TEST(BasicString, DefaultConstructed_HasAutoResizeOff) {
    String text;
    EXPECT_FALSE(text.copy("a", INVALID_SIZE, 0));
    EXPECT_EQ(text.maxSize(), 1U);
}

TEST(BasicString, DefaultConstructed_BeforeTheEmptyTextIsThere_HasNoBufferAndCountsAsEmpty) {
    NoEmptyTextScope const scope;
    String text;
    EXPECT_EQ(text.buffer(), nullptr);
    EXPECT_EQ(text.maxSize(), 1U);
    EXPECT_EQ(text.length(), 0U);
    EXPECT_TRUE(text == "");
    text = "";
    EXPECT_EQ(text.buffer(), nullptr);
    text += "abc";
    EXPECT_STREQ(text.buffer(), "abc");
}

TEST(BasicString, OfACapacity_IsEmptyAndZeroedThroughout) {
    for (unsigned int maxSize : {0U, 1U, 2U, 100U}) {
        String const text(maxSize, 0);
        unsigned int const capacity = maxSize == 0 ? 1 : maxSize;
        EXPECT_EQ(text.maxSize(), capacity);
        EXPECT_EQ(std::string(text.buffer(), capacity), std::string(capacity, '\0'));
        EXPECT_FALSE(isShared(text));
    }
}

TEST(BasicString, OfCapacityZero_AllocatesOneByteAndGivesItBack) {
    int const allocations = gArrayAllocations;
    int const deletions = gArrayDeletions;
    { String const text(0, 0); }
    EXPECT_EQ(gArrayAllocations, allocations + 1);
    EXPECT_EQ(gArrayDeletions, deletions + 1);
}

TEST(BasicString, OfText_HasTheCapacityThatIsNeededOrAskedForWhicheverIsMore) {
    struct Row {
        unsigned int maxSize;
        unsigned int expected;
    };
    for (Row const& row : {Row{0, 4}, Row{2, 4}, Row{3, 4}, Row{4, 4}, Row{5, 5}, Row{10, 10}}) {
        String const text("abc", row.maxSize, 0);
        EXPECT_EQ(text.maxSize(), row.expected);
        EXPECT_STREQ(text.buffer(), "abc");
    }
}

TEST(BasicString, OfNullText_IsEmptyWithTheCapacityAskedForButAtLeastOne) {
    for (unsigned int maxSize : {0U, 1U, 2U, 7U}) {
        String const text(nullptr, maxSize, 0);
        EXPECT_EQ(text.maxSize(), maxSize == 0 ? 1U : maxSize);
        EXPECT_STREQ(text.buffer(), "");
    }
}

TEST(BasicString, OfTextAlone_IsExactAndHasAutoResizeOff) {
    String text = "abc";
    EXPECT_EQ(text.maxSize(), 4U);
    EXPECT_FALSE(text.copy("abcd", INVALID_SIZE, 0));
}

TEST(BasicString, OfMalformedText_KeepsItAsItIs) {
    String const text("\x80\xC3");
    EXPECT_STREQ(text.buffer(), "\x80\xC3");
}

TEST(BasicString, Copied_HasExactlyTheLengthsCapacityAndAutoResizeOff) {
    String const original("abc", 100, 1);
    String copy(original);
    EXPECT_STREQ(copy.buffer(), "abc");
    EXPECT_NE(copy.buffer(), original.buffer());
    EXPECT_EQ(copy.maxSize(), 4U);
    EXPECT_FALSE(copy.copy("abcd", INVALID_SIZE, 0));
    EXPECT_EQ(copy.maxSize(), 4U);
}

TEST(BasicString, CopiedFromAStringWithoutBuffer_IsEmptyWithABuffer) {
    NoEmptyTextScope const scope;
    String const original;
    String const copy(original);
    EXPECT_STREQ(copy.buffer(), "");
    EXPECT_EQ(copy.maxSize(), 1U);
}

TEST(BasicString, HasAVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor_v<String>);
}

TEST(BasicString, Assign_GrowsToTheTextWhateverAutoResizeSays) {
    for (int autoResize : {0, 1, 2}) {
        String text("abc", 0, autoResize);
        text = "abcdef";
        EXPECT_STREQ(text.buffer(), "abcdef");
        EXPECT_EQ(text.maxSize(), 7U);
    }
}

TEST(BasicString, Assign_AtTheCapacity_DoesNotGrow) {
    String text(7, 0);
    int const allocations = gArrayAllocations;
    text = "abcdef";
    EXPECT_STREQ(text.buffer(), "abcdef");
    EXPECT_EQ(gArrayAllocations, allocations);
    text = "abcdefg";
    EXPECT_EQ(text.maxSize(), 8U);
}

TEST(BasicString, Assign_OfLessText_KeepsTheCapacity) {
    String text("abcdef");
    text = "a";
    EXPECT_STREQ(text.buffer(), "a");
    EXPECT_EQ(text.maxSize(), 7U);
}

TEST(BasicString, Assign_OfEmptyAndNullText_WritesATerminatorAloneAndKeepsTheCapacity) {
    for (char const* empty : {static_cast<char const*>(""), static_cast<char const*>(nullptr)}) {
        String text("abcdef");
        text = empty;
        EXPECT_EQ(std::string(text.buffer(), 7), std::string("\0bcdef\0", 7));
        EXPECT_EQ(text.maxSize(), 7U);
    }
}

TEST(BasicString, Assign_OfAString_TakesItsTextAndNotItsCapacity) {
    String const other("abc", 100, 1);
    String text;
    text = other;
    EXPECT_STREQ(text.buffer(), "abc");
    EXPECT_EQ(text.maxSize(), 4U);
}

TEST(BasicString, Assign_OfAStringWithoutBuffer_MakesItEmpty) {
    NoEmptyTextScope const scope;
    String const other;
    String text("abc");
    text = other;
    EXPECT_STREQ(text.buffer(), "");
}

TEST(BasicString, Assign_OfItselfOrOfAPartOfItself_TakesThatText) {
    String text("abcdef");
    text = *&text;
    EXPECT_STREQ(text.buffer(), "abcdef");
    text = text.buffer() + 2;
    EXPECT_STREQ(text.buffer(), "cdef");
}

TEST(BasicString, Assign_GivesTheObjectForAChain) {
    String first;
    String second;
    first = second = "abc";
    EXPECT_STREQ(first.buffer(), "abc");
    EXPECT_EQ(&(first = "x"), &first);
}

TEST(BasicString, Assign_OfTextAndThenOfEmptyTextToASharingString_MakesItEmptyAgain) {
    int const allocations = gArrayAllocations;
    int const deletions = gArrayDeletions;
    {
        String text;
        text = "abc";
        text = "";
        EXPECT_STREQ(text.buffer(), "");
        EXPECT_EQ(text.maxSize(), 4U);
    }
    EXPECT_EQ(gArrayDeletions - deletions, gArrayAllocations - allocations);
}

TEST(BasicString, Append_InsideTheCapacity_KeepsIt) {
    String text(4, 0);
    text += "ab";
    text += "c";
    EXPECT_STREQ(text.buffer(), "abc");
    EXPECT_EQ(text.maxSize(), 4U);
}

TEST(BasicString, Append_BeyondTheCapacity_AddsTheLengthAndOneToTheOldCapacity) {
    for (int autoResize : {0, 1}) {
        String text("abc", 4, autoResize);
        text += "x";
        EXPECT_STREQ(text.buffer(), "abcx");
        EXPECT_EQ(text.maxSize(), 6U);
        text += "yzw";
        EXPECT_STREQ(text.buffer(), "abcxyzw");
        EXPECT_EQ(text.maxSize(), 10U);
    }
}

TEST(BasicString, Append_ToADefaultConstructedString_GrowsFromCapacityOne) {
    String text;
    text += "abc";
    EXPECT_STREQ(text.buffer(), "abc");
    EXPECT_EQ(text.maxSize(), 5U);
}

TEST(BasicString, Append_OfEmptyAndNullText_ChangesNothing) {
    String text("abc");
    text += "";
    text += nullptr;
    EXPECT_STREQ(text.buffer(), "abc");
    EXPECT_EQ(text.maxSize(), 4U);
    String empty;
    empty += "";
    EXPECT_TRUE(isShared(empty));
}

TEST(BasicString, Append_OfItself_DoublesTheText) {
    String text("abc");
    text += text.buffer();
    EXPECT_STREQ(text.buffer(), "abcabc");
    String roomy("abc", 20, 0);
    roomy += roomy.buffer() + 1;
    EXPECT_STREQ(roomy.buffer(), "abcbc");
}

TEST(BasicString, Append_GivesTheObjectForAChain) {
    String text("a");
    EXPECT_EQ(&(text += "b"), &text);
}

TEST(BasicString, Copy_BeyondAFixedCapacity_FailsWithoutTruncateAndKeepsTheText) {
    for (int autoResize : {0, 2, -1}) {
        for (int truncate : {0, 2, -1}) {
            String text("xyz", 4, autoResize);
            EXPECT_FALSE(text.copy("abcdef", INVALID_SIZE, truncate));
            EXPECT_STREQ(text.buffer(), "xyz");
            EXPECT_EQ(text.maxSize(), 4U);
        }
    }
}

TEST(BasicString, Copy_BeyondAFixedCapacity_CutsWithTruncate) {
    String text("xyz", 4, 0);
    EXPECT_TRUE(text.copy("abcdef", INVALID_SIZE, 1));
    EXPECT_STREQ(text.buffer(), "abc");
    EXPECT_EQ(text.maxSize(), 4U);
}

TEST(BasicString, Copy_CutsBetweenCharactersOnly) {
    struct Row {
        unsigned int maxSize;
        char const* expected;
    };
    for (Row const& row : {Row{2, "a"}, Row{3, "a"}, Row{4, "a"}, Row{5, "a\xE3\x81\x82"},
                           Row{6,
                               "a\xE3\x81\x82"
                               "b"}}) {
        String text(row.maxSize, 0);
        EXPECT_TRUE(
            text.copy("a\xE3\x81\x82"
                      "b",
                      INVALID_SIZE, 1));
        EXPECT_STREQ(text.buffer(), row.expected);
    }
}

TEST(BasicString, Copy_FillingTheCapacity_FitsAndOneByteMoreDoesNot) {
    String text(4, 0);
    EXPECT_TRUE(text.copy("abc", INVALID_SIZE, 0));
    EXPECT_STREQ(text.buffer(), "abc");
    EXPECT_FALSE(text.copy("abcd", INVALID_SIZE, 0));
    EXPECT_TRUE(text.copy("wxyz", 3, 0));
    EXPECT_STREQ(text.buffer(), "wxy");
}

TEST(BasicString, Copy_WithAutoResize_GrowsToWhatIsNeeded) {
    String text("abc", 0, 1);
    EXPECT_TRUE(text.copy("abcdefgh", 6, 0));
    EXPECT_STREQ(text.buffer(), "abcdef");
    EXPECT_EQ(text.maxSize(), 7U);
    EXPECT_TRUE(text.copy("abcdefgh", INVALID_SIZE, 1));
    EXPECT_STREQ(text.buffer(), "abcdefgh");
    EXPECT_EQ(text.maxSize(), 9U);
}

TEST(BasicString, Copy_OfLengthZero_IsTrueAndKeepsTheText) {
    for (int truncate : {0, 1}) {
        String text("xyz");
        EXPECT_TRUE(text.copy("abc", 0, truncate));
        EXPECT_STREQ(text.buffer(), "xyz");
        EXPECT_TRUE(text.copy("", 0, truncate));
        EXPECT_STREQ(text.buffer(), "xyz");
    }
}

TEST(BasicString, Copy_OfNull_IsFalseAndKeepsTheText) {
    for (int autoResize : {0, 1}) {
        String text("xyz", 0, autoResize);
        EXPECT_FALSE(text.copy(nullptr, INVALID_SIZE, 1));
        EXPECT_FALSE(text.copy(nullptr, 0, 0));
        EXPECT_STREQ(text.buffer(), "xyz");
        EXPECT_EQ(text.maxSize(), 4U);
    }
}

TEST(BasicString, Copy_OfEmptyText_MakesTheStringEmpty) {
    for (int truncate : {0, 1}) {
        String text("xyz");
        EXPECT_TRUE(text.copy("", INVALID_SIZE, truncate));
        EXPECT_STREQ(text.buffer(), "");
        EXPECT_EQ(text.maxSize(), 4U);
    }
}

TEST(BasicString, Copy_OfEmptyTextWithALengthOfTheCapacity_IsRefusedUnlessItMayBeCut) {
    String text("xyz");
    EXPECT_FALSE(text.copy("", 4, 0));
    EXPECT_STREQ(text.buffer(), "xyz");
    EXPECT_TRUE(text.copy("", 3, 0));
    EXPECT_STREQ(text.buffer(), "");
    text = "xyz";
    EXPECT_TRUE(text.copy("", 4, 1));
    EXPECT_STREQ(text.buffer(), "");
}

TEST(BasicString, Copy_IntoCapacityOne_TakesEmptyTextOrCutsToNothing) {
    String shared;
    String owned(1, 0);
    for (String* text : {&shared, &owned}) {
        EXPECT_TRUE(text->copy("", INVALID_SIZE, 0));
        EXPECT_TRUE(text->copy("abc", INVALID_SIZE, 1));
        EXPECT_TRUE(text->copy("\x80", INVALID_SIZE, 1));
        EXPECT_FALSE(text->copy("abc", INVALID_SIZE, 0));
        EXPECT_FALSE(text->copy("abc", INVALID_SIZE, 2));
        EXPECT_STREQ(text->buffer(), "");
        EXPECT_EQ(text->maxSize(), 1U);
    }
}

TEST(BasicString, Copy_OfALengthInsideACharacter_StopsInFrontOfIt) {
    String text(10, 0);
    EXPECT_TRUE(text.copy("a\xE3\x81\x82", 3, 0));
    EXPECT_STREQ(text.buffer(), "a");
    EXPECT_TRUE(text.copy("a\xE3\x81\x82", 3, 1));
    EXPECT_STREQ(text.buffer(), "a");
}

TEST(BasicString, Copy_OfMalformedText_FailsWhereTheCutNeedsToKnowCharacters) {
    String text("xyz", 10, 0);
    EXPECT_FALSE(text.copy("a\x80z", INVALID_SIZE, 1));
    EXPECT_FALSE(text.copy("\x80\x80", 1, 0));
    EXPECT_STREQ(text.buffer(), "xyz");
    EXPECT_TRUE(text.copy("a\x80z", INVALID_SIZE, 0));
    EXPECT_STREQ(text.buffer(), "a\x80z");
}

TEST(BasicString, Copy_WithoutABuffer_IsFalse) {
    String text("abc", 0, 0);
    {
        AllocatorScope const scope(Allocator::GIVES_NULL);
        EXPECT_FALSE(text.resizeMax(10));
    }
    EXPECT_FALSE(text.copy("a", INVALID_SIZE, 0));
    EXPECT_FALSE(text.copy("a", INVALID_SIZE, 1));
    EXPECT_TRUE(text.copy("a", 0, 0));
}

TEST(BasicString, Copy_OfAPartOfItself_TakesThatText) {
    for (int truncate : {0, 1}) {
        String text("abcdef", 0, 1);
        EXPECT_TRUE(text.copy(text.buffer() + 1, 3, truncate));
        EXPECT_STREQ(text.buffer(), "bcd");
    }
}

TEST(BasicString, Replace_ReplacesAllOccurrencesFromLeftToRight) {
    String text("aXbXc", 100, 0);
    EXPECT_TRUE(text.replace("X", "--", 0));
    EXPECT_STREQ(text.buffer(), "a--b--c");
    text = "aaaa";
    EXPECT_TRUE(text.replace("aa", "a", 0));
    EXPECT_STREQ(text.buffer(), "aa");
}

TEST(BasicString, Replace_WithAutoResize_GrowsToExactlyTheResult) {
    String text("aXbX", 0, 1);
    EXPECT_TRUE(text.replace("X", "---", 0));
    EXPECT_STREQ(text.buffer(), "a---b---");
    EXPECT_EQ(text.maxSize(), 9U);
}

TEST(BasicString, Replace_WithAutoResizeAndAShorterText_KeepsTheCapacity) {
    String text("a---b---", 0, 1);
    EXPECT_TRUE(text.replace("---", "X", 0));
    EXPECT_STREQ(text.buffer(), "aXbX");
    EXPECT_EQ(text.maxSize(), 9U);
    EXPECT_TRUE(text.replace("none", "longer than that", 0));
    EXPECT_STREQ(text.buffer(), "aXbX");
    EXPECT_EQ(text.maxSize(), 9U);
}

TEST(BasicString, Replace_BeyondAFixedCapacity_FailsOrCutsAsTruncateSays) {
    for (int autoResize : {0, 2, -1}) {
        String text("aXbX", 0, autoResize);
        for (int truncate : {0, 2, -1}) {
            text = "aXbX";
            EXPECT_FALSE(text.replace("X", "--", truncate)) << autoResize;
            EXPECT_EQ(text.maxSize(), 5U);
        }
        text = "aXbX";
        EXPECT_TRUE(text.replace("X", "--", 1));
        EXPECT_STREQ(text.buffer(), "a--b");
        EXPECT_EQ(text.maxSize(), 5U);
    }
}

TEST(BasicString, Replace_WithAutoResizeAndTruncate_GrowsAndCutsNothing) {
    String text("aXbX", 0, 1);
    EXPECT_TRUE(text.replace("X", "---", 1));
    EXPECT_STREQ(text.buffer(), "a---b---");
    EXPECT_EQ(text.maxSize(), 9U);
}

TEST(BasicString, Replace_InMalformedText_FailsOnlyWhereTheWalkToTheCutMeetsIt) {
    for (char const* malformed : {"aXb\x80", "aX\xE3\x81"}) {
        String text(malformed, 20, 0);
        EXPECT_FALSE(text.replace("X", "Y", 1)) << malformed;
        text = malformed;
        EXPECT_TRUE(text.replace("X", "Y", 0)) << malformed;
        EXPECT_EQ(text.length(), std::string(malformed).size());
    }
    String cut("aXbc\x80");
    EXPECT_TRUE(cut.replace("X", "---", 1));
    EXPECT_STREQ(cut.buffer(), "a---b");
}

TEST(BasicString, Replace_WaitsForTheHolderOfScratch) {
    String text("aXb");
    EXPECT_TRUE(utltest::waitsForScratch([&] { text.replace("X", "Y", 0); }));
    EXPECT_STREQ(text.buffer(), "aYb");
}

TEST(BasicString, Replace_ThatFails_LeavesWhatWasWrittenSoFar) {
    String text("aXbX", 0, 0);
    EXPECT_FALSE(text.replace("X", "----", 0));
    EXPECT_STREQ(text.buffer(), "a");
}

TEST(BasicString, Replace_ByEmptyText_DropsEverythingFromTheFirstMatchOn) {
    String text("abcbd");
    EXPECT_TRUE(text.replace("b", "", 0));
    EXPECT_STREQ(text.buffer(), "a");
    text = "bcd";
    EXPECT_TRUE(text.replace("b", "", 0));
    EXPECT_STREQ(text.buffer(), "");
    text = "abc";
    EXPECT_TRUE(text.replace("x", "", 0));
    EXPECT_STREQ(text.buffer(), "abc");
}

TEST(BasicString, Replace_OfEmptyText_KeepsTheTextButCountsAsOneMatchForGrowing) {
    String text("abc", 0, 1);
    EXPECT_TRUE(text.replace("", "xy", 0));
    EXPECT_STREQ(text.buffer(), "abc");
    EXPECT_EQ(text.maxSize(), 6U);
    String fixed("abc", 0, 0);
    EXPECT_TRUE(fixed.replace("", "xy", 0));
    EXPECT_STREQ(fixed.buffer(), "abc");
    EXPECT_EQ(fixed.maxSize(), 4U);
}

TEST(BasicString, Replace_WithNull_FailsBeforeAnythingGrows) {
    String text("aXb", 0, 1);
    EXPECT_FALSE(text.replace(nullptr, "0123456789", 1));
    EXPECT_FALSE(text.replace("X", nullptr, 1));
    EXPECT_STREQ(text.buffer(), "aXb");
    EXPECT_EQ(text.maxSize(), 4U);
}

TEST(BasicString, Replace_InUpTo10239Bytes_WorksAndInMoreFails) {
    String text((std::string(10238, 'a') + "X").c_str(), 0, 0);
    EXPECT_TRUE(text.replace("X", "Y", 0));
    EXPECT_STREQ(text.buffer(), (std::string(10238, 'a') + "Y").c_str());
    std::string const tooLong = std::string(10239, 'a') + "X";
    text = tooLong.c_str();
    EXPECT_FALSE(text.replace("X", "Y", 0));
    EXPECT_FALSE(text.replace("none", "Y", 0));
    EXPECT_STREQ(text.buffer(), tooLong.c_str());
}

TEST(BasicString, Replace_InTooLongText_HasGrownBeforeItFails) {
    String text((std::string(10239, 'a') + "X").c_str(), 0, 1);
    EXPECT_FALSE(text.replace("X", "YY", 0));
    EXPECT_EQ(text.maxSize(), 10242U);
}

TEST(BasicString, Replace_InAnEmptyString_IsTrueAndLeavesItEmpty) {
    String shared;
    EXPECT_TRUE(shared.replace("a", "b", 0));
    EXPECT_TRUE(shared.replace("", "b", 0));
    EXPECT_TRUE(isShared(shared));
    String growing("abc", 0, 1);
    EXPECT_TRUE(growing.resizeMax(1));
    EXPECT_TRUE(growing.replace("", "xyz", 0));
    EXPECT_STREQ(growing.buffer(), "");
    EXPECT_EQ(growing.maxSize(), 4U);
}

TEST(BasicString, Replace_MatchesWholeCharactersOnly) {
    // The last two bytes of the first character are no match for the middle of it.
    String text(HIRAGANA_A, 20, 0);
    EXPECT_TRUE(text.replace("\x81\x82", "x", 0));
    EXPECT_STREQ(text.buffer(), HIRAGANA_A);
    EXPECT_TRUE(text.replace(HIRAGANA_A, "x", 0));
    EXPECT_STREQ(text.buffer(), "x");
}

TEST(BasicString, ResizeMax_ToTheSameCapacity_IsTrueAndTouchesNothing) {
    String text("abc");
    char const* const buffer = text.buffer();
    EXPECT_TRUE(text.resizeMax(4));
    EXPECT_EQ(text.buffer(), buffer);
    String owned(0, 0);
    EXPECT_TRUE(owned.resizeMax(1));
    EXPECT_FALSE(isShared(owned));
}

TEST(BasicString, ResizeMax_ToZeroOrOne_EmptiesTheStringAndFreesTheBuffer) {
    for (unsigned int maxSize : {0U, 1U}) {
        String text("abc");
        int const deletions = gArrayDeletions;
        EXPECT_TRUE(text.resizeMax(maxSize));
        EXPECT_EQ(gArrayDeletions, deletions + 1);
        EXPECT_STREQ(text.buffer(), "");
        EXPECT_EQ(text.maxSize(), 1U);
        EXPECT_TRUE(isShared(text));
    }
}

TEST(BasicString, ResizeMax_ToZeroOfASharingString_KeepsItSharing) {
    String text;
    int const deletions = gArrayDeletions;
    EXPECT_TRUE(text.resizeMax(0));
    EXPECT_TRUE(isShared(text));
    EXPECT_EQ(text.maxSize(), 1U);
    EXPECT_EQ(gArrayDeletions, deletions);
}

// Leaves the text and its buffer with a capacity of 1.
void loseCapacity(String* text) {
    NoEmptyTextScope const scope;
    text->resizeMax(1);
}

TEST(BasicString, Assign_OfItselfOrOfAPartOfItself_InACapacityBelowTheText_TakesThatText) {
    String whole("abcdef");
    loseCapacity(&whole);
    whole = *&whole;
    EXPECT_STREQ(whole.buffer(), "abcdef");
    EXPECT_EQ(whole.maxSize(), 7U);
    String part("abcdef");
    loseCapacity(&part);
    part = part.buffer() + 2;
    EXPECT_STREQ(part.buffer(), "cdef");
    EXPECT_EQ(part.maxSize(), 5U);
}

TEST(BasicString, Copy_OfItselfOrOfAPartOfItself_InACapacityBelowTheText_TakesThatText) {
    String whole("abcdef", 0, 1);
    loseCapacity(&whole);
    EXPECT_TRUE(whole.copy(whole.buffer(), INVALID_SIZE, 0));
    EXPECT_STREQ(whole.buffer(), "abcdef");
    String part("abcdef", 0, 1);
    loseCapacity(&part);
    EXPECT_TRUE(part.copy(part.buffer() + 2, 3, 0));
    EXPECT_STREQ(part.buffer(), "cde");
}

TEST(BasicString, Assign_OfAPartOfItself_WhereTheAllocatorGivesNull_LeavesNoBuffer) {
    String text("abcdef");
    loseCapacity(&text);
    AllocatorScope const scope(Allocator::GIVES_NULL);
    text = text.buffer() + 2;
    EXPECT_EQ(text.buffer(), nullptr);
    EXPECT_EQ(text.maxSize(), 5U);
}

TEST(BasicString, ResizeMax_ToZeroOrOneBeforeTheEmptyTextIsThere_IsFalseAndKeepsTheBuffer) {
    NoEmptyTextScope const scope;
    for (unsigned int maxSize : {0U, 1U}) {
        int deletions = 0;
        {
            String text("abc");
            char const* const buffer = text.buffer();
            deletions = gArrayDeletions;
            EXPECT_FALSE(text.resizeMax(maxSize));
            EXPECT_EQ(gArrayDeletions, deletions);
            EXPECT_EQ(text.buffer(), buffer);
            EXPECT_EQ(text.maxSize(), 1U);
        }
        EXPECT_EQ(gArrayDeletions, deletions + 1);
    }
}

TEST(BasicString, ResizeMax_ThatGrows_KeepsTheText) {
    String text("abc");
    EXPECT_TRUE(text.resizeMax(100));
    EXPECT_STREQ(text.buffer(), "abc");
    EXPECT_EQ(text.maxSize(), 100U);
    String empty;
    EXPECT_TRUE(empty.resizeMax(2));
    EXPECT_STREQ(empty.buffer(), "");
    EXPECT_FALSE(isShared(empty));
}

TEST(BasicString, ResizeMax_ThatShrinks_CutsBetweenCharacters) {
    struct Row {
        unsigned int maxSize;
        char const* expected;
    };
    for (Row const& row : {Row{7,
                               "a\xE3\x81\x82"
                               "bc"},
                           Row{6,
                               "a\xE3\x81\x82"
                               "b"},
                           Row{5, "a\xE3\x81\x82"}, Row{4, "a"}, Row{3, "a"}, Row{2, "a"}}) {
        String text(
            "a\xE3\x81\x82"
            "bc",
            20, 0);
        EXPECT_TRUE(text.resizeMax(row.maxSize));
        EXPECT_STREQ(text.buffer(), row.expected);
        EXPECT_EQ(text.maxSize(), row.maxSize);
    }
}

TEST(BasicString, ResizeMax_ThatFindsNoCharacterToCutAt_IsFalseAndEmptiesTheString) {
    String text("\x80\x80\x80\x80");
    EXPECT_FALSE(text.resizeMax(3));
    EXPECT_STREQ(text.buffer(), "");
    EXPECT_EQ(text.maxSize(), 3U);
}

TEST(BasicString, ResizeMax_WhereTheAllocatorGivesNull_IsFalseAndLeavesAStringWithoutBuffer) {
    String text("abc");
    int const deletions = gArrayDeletions;
    {
        AllocatorScope const scope(Allocator::GIVES_NULL);
        EXPECT_FALSE(text.resizeMax(100));
    }
    EXPECT_EQ(gArrayDeletions, deletions + 1);
    EXPECT_EQ(text.buffer(), nullptr);
    EXPECT_EQ(text.maxSize(), 100U);
    EXPECT_EQ(text.length(), 0U);
}

TEST(BasicString, ResizeMax_AfterTheAllocatorGaveNull_NeedsAnotherCapacityToGetABuffer) {
    for (unsigned int maxSize : {0U, 99U, 101U}) {
        String text("abc");
        {
            AllocatorScope const scope(Allocator::GIVES_NULL);
            EXPECT_FALSE(text.resizeMax(100));
        }
        EXPECT_TRUE(text.resizeMax(100));
        EXPECT_EQ(text.buffer(), nullptr);
        EXPECT_TRUE(text.resizeMax(maxSize));
        EXPECT_STREQ(text.buffer(), "");
        EXPECT_EQ(text.maxSize(), maxSize == 0 ? 1U : maxSize);
    }
}

TEST(BasicString, ConstructedWhereTheAllocatorGivesNull_HasNoBufferAndCountsAsEmpty) {
    AllocatorScope const scope(Allocator::GIVES_NULL);
    String const sized(10, 0);
    String const copied("abc", 0, 0);
    String const again(copied);
    for (String const* text : {&sized, &copied, &again}) {
        EXPECT_EQ(text->buffer(), nullptr);
        EXPECT_EQ(text->length(), 0U);
    }
    EXPECT_EQ(sized.maxSize(), 10U);
    EXPECT_EQ(copied.maxSize(), 4U);
}

TEST(BasicString, WritersWhereTheAllocatorGivesNull_DoNoHarm) {
    AllocatorScope const scope(Allocator::GIVES_NULL);
    String text(10, 1);
    text = "abc";
    text = "";
    text = "longer than that";
    text += "abc";
    text += "longer than that";
    EXPECT_FALSE(text.copy("abc", INVALID_SIZE, 0));
    EXPECT_FALSE(text.copy("much longer than all that", INVALID_SIZE, 1));
    EXPECT_FALSE(text.replace("a", "b", 0));
    EXPECT_EQ(text.buffer(), nullptr);
    EXPECT_EQ(("abc" + text).length(), 0U);
}

TEST(BasicString, AppendOfItselfWhereTheAllocatorGivesNull_DoesNoHarm) {
    for (unsigned int offset : {0U, 1U}) {
        String text("abc");
        AllocatorScope const scope(Allocator::GIVES_NULL);
        text += text.buffer() + offset;
        EXPECT_EQ(text.buffer(), nullptr);
    }
}

TEST(BasicString, WithoutBuffer_IsUsableAgainOnceItIsResized) {
    String text("abc");
    {
        AllocatorScope const scope(Allocator::GIVES_NULL);
        text = "abcdef";
    }
    EXPECT_EQ(text.buffer(), nullptr);
    EXPECT_TRUE(text.resizeMax(20));
    EXPECT_STREQ(text.buffer(), "");
    text += "xyz";
    EXPECT_STREQ(text.buffer(), "xyz");
}

TEST(BasicString, WritersWhereTheAllocatorThrows_LeaveTheStringAsItWas) {
    String text("abc", 0, 1);
    {
        AllocatorScope const scope(Allocator::THROWS);
        EXPECT_THROW(text = "abcdef", std::bad_alloc);
        EXPECT_THROW(text += "abcdef", std::bad_alloc);
        EXPECT_THROW(text.copy("abcdef", INVALID_SIZE, 0), std::bad_alloc);
        EXPECT_THROW(text.replace("b", "abcdef", 0), std::bad_alloc);
        EXPECT_THROW(text.resizeMax(100), std::bad_alloc);
    }
    EXPECT_STREQ(text.buffer(), "abc");
    EXPECT_EQ(text.maxSize(), 4U);
}

TEST(BasicString, Plus_HasExactlyTheCapacityOfBothAndAutoResizeOff) {
    String sum = "abc" + String("de", 100, 1);
    EXPECT_STREQ(sum.buffer(), "abcde");
    EXPECT_EQ(sum.maxSize(), 6U);
    EXPECT_FALSE(sum.copy("abcdef", INVALID_SIZE, 0));
}

TEST(BasicString, Plus_OfNothing_IsEmptyOfCapacityOne) {
    String const sum = "" + String();
    EXPECT_STREQ(sum.buffer(), "");
    EXPECT_EQ(sum.maxSize(), 1U);
}

TEST(BasicString, Plus_OfNullOrAStringWithoutBuffer_TakesThatAsEmpty) {
    EXPECT_STREQ((nullptr + String("abc")).buffer(), "abc");
    NoEmptyTextScope const scope;
    String const none;
    EXPECT_STREQ(("abc" + none).buffer(), "abc");
}

TEST(BasicString, Length_CountsBytesInFrontOfTheTerminator) {
    EXPECT_EQ(String().length(), 0U);
    EXPECT_EQ(String("abc", 100, 0).length(), 3U);
    EXPECT_EQ(String(HIRAGANA_A).length(), 3U);
}

TEST(BasicString, Equality_ComparesTextAndNotCapacity) {
    String const text("abc", 100, 1);
    EXPECT_TRUE(text == "abc");
    EXPECT_TRUE("abc" == text);
    EXPECT_TRUE(text == String("abc"));
    EXPECT_FALSE(text != "abc");
    EXPECT_FALSE(text == "ab");
    EXPECT_FALSE(text == "abcd");
    EXPECT_TRUE(text != "abd");
    EXPECT_TRUE("abd" != text);
    EXPECT_TRUE(text != String("abd"));
    EXPECT_FALSE(text == nullptr);
    EXPECT_TRUE(String() == nullptr);
}

// Everything that can be done to a string which shares the empty text without making it grow.
void exerciseEmptyString() {
    String text;
    text = "";
    text = nullptr;
    text += "";
    text = String();
    text.copy("", INVALID_SIZE, 0);
    text.copy("abc", INVALID_SIZE, 1);
    text.replace("a", "b", 1);
    text.replace("", "b", 1);
    text.resizeMax(0);
}

TEST(BasicString, ThatSharesTheEmptyText_NeverWritesIt) {
    String::EMPTY_STR.mNarrow = "";  // read-only memory: to write there ends the test
    exerciseEmptyString();
    String const text;
    EXPECT_TRUE(isShared(text));
    String::EMPTY_STR.mNarrow = &String::mEmptyChar;
}

TEST(BasicString, EmptyOnesOfSeveralThreads_ShareTheEmptyTextWithoutARace) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 100; ++round) {
                exerciseEmptyString();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(String::mEmptyChar, '\0');
}

TEST(BasicString, ArrayOfStrings_CostsOneAllocationForItsSlots) {
    int const allocations = gArrayAllocations;
    utl::Array<String> const names(100, 0);
    EXPECT_EQ(gArrayAllocations, allocations + 1);
}

TEST(BasicString, ArrayOfStrings_KeepsCopiesThatShiftAndOutliveTheirSource) {
    utl::Array<String> names(0, 1);
    ASSERT_TRUE(names.insertAt(0, "b"));
    ASSERT_TRUE(names.insertAt(0, String("a", 50, 0)));
    ASSERT_TRUE(names.insertAt(2, *names.getAt(0)));
    EXPECT_STREQ(names.getAt(0)->buffer(), "a");
    EXPECT_STREQ(names.getAt(1)->buffer(), "b");
    EXPECT_STREQ(names.getAt(2)->buffer(), "a");
}

}  // namespace

#include "UtlString.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "TestAllocations.h"
#include "TestScratch.h"
#include "TestText.h"
#include "UtlPlatform.h"
#include "internal/text/UtlStringSearch.h"

namespace {

using utl::INVALID_SIZE;
using utltest::exactly;
using utltest::GuardedBytes;
using utltest::waitsForScratch;

static_assert(utl::TRUNCATE_OFF == 0 && utl::TRUNCATE_ON == 1);
static_assert(utl::CHAR_END == 0 && utl::CHAR_START == 1);

// Nothing that takes no `WorkingBuffer` and calls nobody can throw.
static_assert(
    noexcept(utl::t_charlen("")) && noexcept(utl::strCharBytesBase("")) && noexcept(utl::getNearCharIndex(
        "", 0,
        utl::CHAR_START)) && noexcept(utl::t_strstr("",
                                                    "")) && noexcept(utl::
                                                                         t_strspn(
                                                                             "",
                                                                             "")) && noexcept(utl::
                                                                                                  t_strcspn(
                                                                                                      "",
                                                                                                      "")));
static_assert(noexcept(utl::copyStrBase<char>(nullptr, 0, "", 1, utl::TRUNCATE_ON)) && noexcept(utl::t_strncpy<
                                                                                                char>(
    nullptr, 0,
    "",
    1)) && noexcept(utl::
                        copyGeneral<char>(
                            nullptr, 0,
                            0, "", 0,
                            1,
                            utl::
                                TRUNCATE_ON)) && noexcept(utl::
                                                              t_strrev<char>(
                                                                  nullptr,
                                                                  0, "",
                                                                  utl::
                                                                      TRUNCATE_ON)) && noexcept(utl::
                                                                                                    reverseStrBase<
                                                                                                        char>(
                                                                                                        nullptr,
                                                                                                        0, "",
                                                                                                        utl::
                                                                                                            TRUNCATE_ON)) && noexcept(utl::
                                                                                                                                          truncateStr<
                                                                                                                                              char>(
                                                                                                                                              nullptr,
                                                                                                                                              0)) && noexcept(utl::
                                                                                                                                                                  replaceStr<
                                                                                                                                                                      char>(
                                                                                                                                                                      nullptr,
                                                                                                                                                                      0,
                                                                                                                                                                      "",
                                                                                                                                                                      "",
                                                                                                                                                                      "",
                                                                                                                                                                      utl::
                                                                                                                                                                          TRUNCATE_ON)));
static_assert(noexcept(utl::copyMemory(nullptr, nullptr, 0)) && noexcept(utl::moveMemory(
    nullptr, nullptr,
    0)) && noexcept(utl::fillMemory(nullptr, 0,
                                    0)) && noexcept(utl::zeroMemory(nullptr,
                                                                    0)) && noexcept(utl::
                                                                                        compareMemory(nullptr,
                                                                                                      nullptr,
                                                                                                      0)));

TEST(StringPrimitives, TruncateOnCutsWhatTruncateOffRefuses) {
    char text[3] = "--";
    EXPECT_EQ(utl::copyStrBase(text, sizeof(text), "abc", INVALID_SIZE, utl::TRUNCATE_OFF), INVALID_SIZE);
    EXPECT_STREQ(text, "--");
    EXPECT_EQ(utl::copyStrBase(text, sizeof(text), "abc", INVALID_SIZE, utl::TRUNCATE_ON), 3U);
    EXPECT_STREQ(text, "ab");
}

TEST(StringPrimitives, TheNearCharIndexIsAtTheStartOrTheEndThatItsDirectionNames) {
    EXPECT_EQ(utl::getNearCharIndex("aあ", 2, utl::CHAR_START), 1U);
    EXPECT_EQ(utl::getNearCharIndex("aあ", 2, utl::CHAR_END), 4U);
}

constexpr char E_ACUTE[] = "\xC3\xA9";
constexpr char HIRAGANA_A[] = "\xE3\x81\x82";
constexpr char HIRAGANA_I[] = "\xE3\x81\x84";
constexpr char IDEOGRAPHIC_SPACE[] = "\xE3\x80\x80";
constexpr char EMOJI[] = "\xF0\x9F\x98\x80";
constexpr char BOM[] = "\xEF\xBB\xBF";

constexpr unsigned int UNTOUCHED = 12345;
constexpr unsigned int LONGEST_SCRATCH_TEXT = 10239;

// A destination of exactly so many bytes that remembers what was there before.
std::vector<char> room(unsigned int size) {
    return std::vector<char>(size, '#');
}

std::string held(std::vector<char> const& dst) {
    return std::string(dst.data(), dst.size());
}

std::string full(char const* text) {
    return std::string(text, std::strlen(text) + 1);
}

// --- characters

TEST(CharLen, OfTheEnd_IsZero) {
    bool isBom = true;
    EXPECT_EQ(utl::t_charlen("", &isBom), 0U);
    EXPECT_FALSE(isBom);
    isBom = true;
    EXPECT_EQ(utl::strCharBytesBase("", &isBom), 0U);
    EXPECT_FALSE(isBom);
}

TEST(CharLen, OfNull_IsZeroAndLeavesTheFlagAlone) {
    bool isBom = true;
    EXPECT_EQ(utl::t_charlen<char>(nullptr, &isBom), 0U);
    EXPECT_TRUE(isBom);
    EXPECT_EQ(utl::t_charlen<char>(nullptr, nullptr), 0U);
}

TEST(StrCharBytes, OfNull_IsZeroAndClearsTheFlag) {
    bool isBom = true;
    EXPECT_EQ(utl::strCharBytesBase<char>(nullptr, &isBom), 0U);
    EXPECT_FALSE(isBom);
    EXPECT_EQ(utl::strCharBytesBase<char>(nullptr, nullptr), 0U);
}

TEST(CharLen, OfAWholeCharacter_IsItsBytes) {
    struct Row {
        char const* text;
        unsigned int bytes;
    };
    for (Row const& row : {Row{"\x01", 1}, Row{"A", 1}, Row{"\x7F", 1}, Row{"\xC2\x80", 2},
                           Row{"\xDF\xBF", 2}, Row{"\xE0\xA0\x80", 3}, Row{"\xEF\xBF\xBF", 3},
                           Row{"\xF0\x90\x80\x80", 4}, Row{"\xF4\x8F\xBF\xBF", 4}}) {
        bool isBom = true;
        EXPECT_EQ(utl::t_charlen(row.text, &isBom), row.bytes) << row.text;
        EXPECT_FALSE(isBom);
        EXPECT_EQ(utl::strCharBytesBase(row.text), row.bytes) << row.text;
        EXPECT_EQ(utl::t_charlen((std::string(row.text) + "z").c_str()), row.bytes) << row.text;
    }
}

TEST(CharLen, OfSurrogatesAndValuesBeyondTheLastCodePoint_IsTheirBytes) {
    EXPECT_EQ(utl::t_charlen("\xED\xA0\x80"), 3U);
    EXPECT_EQ(utl::t_charlen("\xED\xBF\xBF"), 3U);
    EXPECT_EQ(utl::t_charlen("\xF4\x90\x80\x80"), 4U);
    EXPECT_EQ(utl::t_charlen("\xF5\x80\x80\x80"), 4U);
    EXPECT_EQ(utl::t_charlen("\xF7\xBF\xBF\xBF"), 4U);
}

TEST(CharLen, OfOverlongForms_Fails) {
    for (char const* text :
         {"\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF", "\xF0\x80\x80\x80", "\xF0\x8F\xBF\xBF"}) {
        EXPECT_EQ(utl::t_charlen(text), INVALID_SIZE) << text;
        EXPECT_EQ(utl::strCharBytesBase(text), 0U) << text;
    }
}

TEST(CharLen, OfALeadByteWithoutItsSequence_FailsButStrCharBytesGivesZero) {
    for (char const* text : {"\xC3", "\xC3\x41", "\xE3", "\xE3\x81", "\xE3\x81\x41", "\xE3\x41\x82",
                             "\xF0\x9F\x98", "\xF0\x9F\x98\x41", "\xF0", "\xC0", "\xC1"}) {
        EXPECT_EQ(utl::t_charlen(text), INVALID_SIZE) << text;
        EXPECT_EQ(utl::strCharBytesBase(text), 0U) << text;
    }
}

TEST(CharLen, OfABytesThatStartsNothing_FailsInBoth) {
    for (char const* text : {"\x80", "\xBF", "\x80\x80", "\xF8", "\xF8\x80\x80\x80\x80", "\xFF"}) {
        EXPECT_EQ(utl::t_charlen(text), INVALID_SIZE) << text;
        EXPECT_EQ(utl::strCharBytesBase(text), INVALID_SIZE) << text;
    }
}

TEST(CharLen, OfAByteOrderMark_IsThreeWithTheFlagSet) {
    for (char const* text : {"\xEF\xBB\xBF", "\xEF\xBB\xBF\x41"}) {
        bool isBom = false;
        EXPECT_EQ(utl::t_charlen(text, &isBom), 3U);
        EXPECT_TRUE(isBom);
        isBom = false;
        EXPECT_EQ(utl::strCharBytesBase(text, &isBom), 3U);
        EXPECT_TRUE(isBom);
    }
    EXPECT_EQ(utl::t_charlen(BOM), 3U);
}

TEST(CharLen, OfACutOffByteOrderMark_IsThatOfAMalformedSequence) {
    bool isBom = true;
    EXPECT_EQ(utl::t_charlen("\xEF\xBB", &isBom), INVALID_SIZE);
    EXPECT_FALSE(isBom);
    isBom = true;
    EXPECT_EQ(utl::strCharBytesBase("\xEF\xBB", &isBom), 0U);
    EXPECT_FALSE(isBom);
}

TEST(CharLen, LooksAtNothingBehindTheCharacter) {
    for (char const* text : {"a", E_ACUTE, HIRAGANA_A, EMOJI, BOM}) {
        GuardedBytes const bytes(text);
        bool isBom = false;
        EXPECT_EQ(utl::t_charlen<char>(bytes.get(), &isBom), std::strlen(text));
        EXPECT_EQ(utl::strCharBytesBase<char>(bytes.get(), &isBom), std::strlen(text));
    }
    GuardedBytes const broken("\xF0\x41");
    EXPECT_EQ(utl::t_charlen<char>(broken.get()), INVALID_SIZE);
}

TEST(GetNearCharIndex, InsideACharacter_RoundsDownForOneAndUpForAnythingElse) {
    std::string const text = std::string("a") + HIRAGANA_A + "b";
    for (unsigned int index : {2U, 3U}) {
        EXPECT_EQ(utl::getNearCharIndex(text.c_str(), index, 1), 1U);
        EXPECT_EQ(utl::getNearCharIndex(text.c_str(), index, 0), 4U);
        EXPECT_EQ(utl::getNearCharIndex(text.c_str(), index, 2), 4U);
        EXPECT_EQ(utl::getNearCharIndex(text.c_str(), index, INVALID_SIZE), 4U);
    }
    EXPECT_EQ(utl::getNearCharIndex(E_ACUTE, 1, 1), 0U);
    EXPECT_EQ(utl::getNearCharIndex(E_ACUTE, 1, 0), 2U);
}

TEST(GetNearCharIndex, AtABoundary_IsTheIndexItself) {
    std::string const text = std::string("a") + HIRAGANA_A + "b";
    for (unsigned int index : {0U, 1U, 4U, 5U}) {
        EXPECT_EQ(utl::getNearCharIndex(text.c_str(), index, 1), index);
        EXPECT_EQ(utl::getNearCharIndex(text.c_str(), index, 0), index);
    }
}

TEST(GetNearCharIndex, BeyondTheEnd_IsTheLength) {
    EXPECT_EQ(utl::getNearCharIndex("abc", 4, 1), 3U);
    EXPECT_EQ(utl::getNearCharIndex("abc", 4, 0), 3U);
    EXPECT_EQ(utl::getNearCharIndex("abc", INVALID_SIZE, 1), 3U);
    EXPECT_EQ(utl::getNearCharIndex("", 1, 1), 0U);
}

TEST(GetNearCharIndex, OfNullOrBehindAMalformedByte_Fails) {
    EXPECT_EQ(utl::getNearCharIndex<char>(nullptr, 0, 1), INVALID_SIZE);
    EXPECT_EQ(utl::getNearCharIndex("a\x80z", 2, 1), INVALID_SIZE);
    EXPECT_EQ(utl::getNearCharIndex("a\xE3\x81", 2, 1), INVALID_SIZE);
    EXPECT_EQ(utl::getNearCharIndex("\x80", 1, 1), INVALID_SIZE);
}

TEST(GetNearCharIndex, UpToAMalformedByte_DoesNotMeetIt) {
    EXPECT_EQ(utl::getNearCharIndex("a\x80z", 1, 1), 1U);
    EXPECT_EQ(utl::getNearCharIndex("\x80", 0, 1), 0U);
}

TEST(GetNearCharIndex, LooksNoFurtherThanTheIndex) {
    GuardedBytes const bytes(std::string(100, 'a') + HIRAGANA_A);
    EXPECT_EQ(utl::getNearCharIndex<char>(bytes.get(), 100, 1), 100U);
    EXPECT_EQ(utl::getNearCharIndex<char>(bytes.get(), 102, 1), 100U);
    EXPECT_EQ(utl::getNearCharIndex<char>(bytes.get(), 103, 1), 103U);
}

// --- copying

TEST(CopyStrBase, OfLengthZero_GivesZeroAndLeavesTheDestinationAlone) {
    for (int truncate : {0, 1}) {
        auto dst = room(10);
        EXPECT_EQ(utl::copyStrBase(dst.data(), 10, "abc", 0, truncate), 0U);
        EXPECT_EQ(utl::copyStrBase(dst.data(), 10, "", 0, truncate), 0U);
        EXPECT_EQ(held(dst), "##########");
        EXPECT_EQ(utl::copyStrBase<char>(nullptr, 0, "abc", 0, truncate), 0U);
    }
}

TEST(CopyStrBase, OfEmptyText_WritesATerminator) {
    for (int truncate : {0, 1}) {
        for (unsigned int length : {1U, INVALID_SIZE}) {
            auto dst = room(2);
            EXPECT_EQ(utl::copyStrBase(dst.data(), 2, "", length, truncate), 1U);
            EXPECT_EQ(held(dst), std::string("\0#", 2));
        }
    }
}

TEST(CopyStrBase, OfNull_Fails) {
    auto dst = room(4);
    EXPECT_EQ(utl::copyStrBase<char>(dst.data(), 4, nullptr, INVALID_SIZE, 1), INVALID_SIZE);
    EXPECT_EQ(utl::copyStrBase<char>(dst.data(), 4, nullptr, 0, 1), INVALID_SIZE);
    EXPECT_EQ(utl::copyStrBase<char>(nullptr, 4, "abc", INVALID_SIZE, 1), INVALID_SIZE);
    EXPECT_EQ(held(dst), "####");
}

TEST(CopyStrBase, IntoSizeZero_GivesTheSizeThatIsNeeded) {
    EXPECT_EQ(utl::copyStrBase<char>(nullptr, 0, "abc", INVALID_SIZE, 0), 4U);
    EXPECT_EQ(utl::copyStrBase<char>(nullptr, 0, "abc", 2, 1), 3U);
    EXPECT_EQ(utl::copyStrBase<char>(nullptr, 0, "", INVALID_SIZE, 0), 1U);
    EXPECT_EQ(utl::copyStrBase<char>(nullptr, 0, HIRAGANA_A, 2, 0), 3U);
}

TEST(CopyStrBase, ThatFits_GivesTheBytesUsed) {
    for (int truncate : {0, 1}) {
        auto dst = room(5);
        EXPECT_EQ(utl::copyStrBase(dst.data(), 5, "abc", INVALID_SIZE, truncate), 4U);
        EXPECT_EQ(held(dst), std::string("abc\0#", 5));
        dst = room(5);
        EXPECT_EQ(utl::copyStrBase(dst.data(), 5, "abcdefg", 2, truncate), 3U);
        EXPECT_EQ(held(dst), std::string("ab\0##", 5));
    }
}

TEST(CopyStrBase, FillingTheDestination_FitsAndOneByteMoreDoesNot) {
    auto dst = room(4);
    EXPECT_EQ(utl::copyStrBase(dst.data(), 4, "abc", INVALID_SIZE, 0), 4U);
    EXPECT_EQ(held(dst), full("abc"));
    dst = room(4);
    for (int truncate : {0, 2, -1}) {
        EXPECT_EQ(utl::copyStrBase(dst.data(), 4, "abcd", INVALID_SIZE, truncate), INVALID_SIZE);
    }
    EXPECT_EQ(held(dst), "####");
    EXPECT_EQ(utl::copyStrBase(dst.data(), 4, "abcd", INVALID_SIZE, 1), 4U);
    EXPECT_EQ(held(dst), full("abc"));
}

TEST(CopyStrBase, OfACharacterLargerThanTheRoom_IsEmptyIfItMayBeCutAndFailsOtherwise) {
    auto dst = room(3);
    EXPECT_EQ(utl::copyStrBase(dst.data(), 3, HIRAGANA_A, INVALID_SIZE, 0), INVALID_SIZE);
    EXPECT_EQ(held(dst), "###");
    EXPECT_EQ(utl::copyStrBase(dst.data(), 3, HIRAGANA_A, INVALID_SIZE, 1), 1U);
    EXPECT_EQ(held(dst), std::string("\0##", 3));
}

TEST(CopyStrBase, OfALengthInsideACharacter_StepsBackToItsStart) {
    auto dst = room(10);
    EXPECT_EQ(utl::copyStrBase(dst.data(), 10, HIRAGANA_A, 2, 0), 1U);
    EXPECT_EQ(dst[0], '\0');
    std::string const text = std::string("a") + EMOJI;
    for (unsigned int length : {2U, 3U, 4U}) {
        dst = room(10);
        EXPECT_EQ(utl::copyStrBase(dst.data(), 10, text.c_str(), length, 0), 2U);
        EXPECT_STREQ(dst.data(), "a");
    }
}

TEST(CopyStrBase, IntoSizeOne_TakesEmptyTextOrCutsToNothing) {
    auto dst = room(1);
    for (int truncate : {0, 2, -1}) {
        EXPECT_EQ(utl::copyStrBase(dst.data(), 1, "abc", INVALID_SIZE, truncate), INVALID_SIZE);
        EXPECT_EQ(held(dst), "#");
    }
    EXPECT_EQ(utl::copyStrBase(dst.data(), 1, "", INVALID_SIZE, 0), 1U);
    EXPECT_EQ(dst[0], '\0');
    dst = room(1);
    EXPECT_EQ(utl::copyStrBase(dst.data(), 1, "\x80", INVALID_SIZE, 1), 1U);
    EXPECT_EQ(dst[0], '\0');
}

TEST(CopyStrBase, OfMalformedText_FailsOnlyWhereTheWalkToTheCutMeetsIt) {
    auto dst = room(10);
    EXPECT_EQ(utl::copyStrBase(dst.data(), 10, "ab\x80z", INVALID_SIZE, 1), INVALID_SIZE);
    EXPECT_EQ(held(dst), "##########");
    EXPECT_EQ(utl::copyStrBase(dst.data(), 2, "ab\x80z", INVALID_SIZE, 1), 2U);
    EXPECT_STREQ(dst.data(), "a");
    EXPECT_EQ(utl::copyStrBase(dst.data(), 10, "ab\x80z", INVALID_SIZE, 0), 5U);
    EXPECT_STREQ(dst.data(), "ab\x80z");
}

TEST(CopyStrBase, SteppingBackOverMalformedBytesToNothing_Fails) {
    auto dst = room(10);
    EXPECT_EQ(utl::copyStrBase(dst.data(), 10, "\x80\x80\x80", 2, 0), INVALID_SIZE);
    EXPECT_EQ(held(dst), "##########");
    EXPECT_EQ(utl::copyStrBase(dst.data(), 10, "\x80\x80\x80", 3, 0), 4U);
}

TEST(CopyStrBase, OfOverlappingText_CopiesWhatWasThere) {
    auto text = exactly("abcdef");
    EXPECT_EQ(utl::copyStrBase<char>(text.data(), 7, text.data() + 2, INVALID_SIZE, 0), 5U);
    EXPECT_STREQ(text.data(), "cdef");
}

TEST(CopyStrBase, OfALimitedLength_LooksNoFurtherThanOneByteBehindIt) {
    GuardedBytes const src("abcd");
    auto dst = room(4);
    EXPECT_EQ(utl::copyStrBase<char>(dst.data(), 4, src.get(), 3, 0), 4U);
    EXPECT_EQ(utl::copyStrBase<char>(dst.data(), 4, src.get(), 3, 1), 4U);
    EXPECT_EQ(utl::t_strncpy<char>(dst.data(), 4, src.get(), 3), 4U);
    EXPECT_EQ(utl::copyGeneral<char>(dst.data(), 4, 0, src.get(), 0, 3, 0), 4U);
}

TEST(StrNCpy, CopiesAtMostTheLengthAndTerminates) {
    auto dst = room(4);
    EXPECT_EQ(utl::t_strncpy(dst.data(), 4, "abcdef", 3), 4U);
    EXPECT_EQ(held(dst), full("abc"));
    EXPECT_EQ(utl::t_strncpy(dst.data(), 4, "ab", INVALID_SIZE), 3U);
    EXPECT_STREQ(dst.data(), "ab");
}

TEST(StrNCpy, OfLengthZero_WritesATerminator) {
    auto dst = room(2);
    EXPECT_EQ(utl::t_strncpy(dst.data(), 2, "abc", 0), 1U);
    EXPECT_EQ(held(dst), std::string("\0#", 2));
}

TEST(StrNCpy, IntoASizeNotAboveTheLength_Fails) {
    auto dst = room(3);
    EXPECT_EQ(utl::t_strncpy(dst.data(), 3, "abc", INVALID_SIZE), INVALID_SIZE);
    EXPECT_EQ(utl::t_strncpy(dst.data(), 2, "abc", INVALID_SIZE), INVALID_SIZE);
    EXPECT_EQ(utl::t_strncpy(dst.data(), 0, "abc", 0), INVALID_SIZE);
    EXPECT_EQ(held(dst), "###");
    EXPECT_EQ(utl::t_strncpy(dst.data(), 3, "abc", 2), 3U);
}

TEST(StrNCpy, OfNull_MakesTheDestinationEmptyIfThereIsRoom) {
    auto dst = room(2);
    EXPECT_EQ(utl::t_strncpy<char>(dst.data(), 0, nullptr, 5), INVALID_SIZE);
    EXPECT_EQ(held(dst), "##");
    EXPECT_EQ(utl::t_strncpy<char>(dst.data(), 2, nullptr, 5), 1U);
    EXPECT_EQ(held(dst), std::string("\0#", 2));
}

TEST(StrNCpy, OfALengthInsideACharacter_StepsBackToItsStart) {
    auto dst = room(10);
    EXPECT_EQ(utl::t_strncpy(dst.data(), 10, "a\xE3\x81\x82", 3), 2U);
    EXPECT_STREQ(dst.data(), "a");
    EXPECT_EQ(utl::t_strncpy(dst.data(), 10, "\x80\x80", 1), INVALID_SIZE);
    EXPECT_STREQ(dst.data(), "a");
}

TEST(CopyGeneral, AppendsAtThePositionAndCountsFromTheStart) {
    auto dst = room(10);
    EXPECT_EQ(utl::copyGeneral(dst.data(), 10, 2, "abcdef", 1, 3, 0), 6U);
    EXPECT_EQ(held(dst), std::string("##bcd\0####", 10));
}

TEST(CopyGeneral, OfLengthZero_GivesThePositionAndWritesNothing) {
    auto dst = room(4);
    EXPECT_EQ(utl::copyGeneral(dst.data(), 4, 3, "abc", 0, 0, 0), 3U);
    EXPECT_EQ(utl::copyGeneral(dst.data(), 4, 99, "abc", 99, 0, 1), 99U);
    EXPECT_EQ(utl::copyGeneral<char>(nullptr, 4, 2, nullptr, 0, 0, 0), 2U);
    EXPECT_EQ(held(dst), "####");
}

TEST(CopyGeneral, OfNullOrFromBeyondTheEnd_Fails) {
    auto dst = room(4);
    EXPECT_EQ(utl::copyGeneral<char>(dst.data(), 4, 0, nullptr, 0, 1, 1), INVALID_SIZE);
    EXPECT_EQ(utl::copyGeneral<char>(nullptr, 4, 0, "abc", 0, 1, 1), INVALID_SIZE);
    EXPECT_EQ(utl::copyGeneral(dst.data(), 4, 0, "abc", 4, 1, 1), INVALID_SIZE);
    EXPECT_EQ(utl::copyGeneral(dst.data(), 4, 0, "abc", INVALID_SIZE, 1, 1), INVALID_SIZE);
    EXPECT_EQ(held(dst), "####");
}

TEST(CopyGeneral, FromTheEnd_WritesATerminator) {
    for (int truncate : {0, 1}) {
        auto dst = room(4);
        EXPECT_EQ(utl::copyGeneral(dst.data(), 4, 1, "abc", 3, INVALID_SIZE, truncate), 2U);
        EXPECT_EQ(held(dst), std::string("#\0##", 4));
    }
}

TEST(CopyGeneral, IntoSizeZero_GivesTheSizeThatIsNeeded) {
    EXPECT_EQ(utl::copyGeneral<char>(nullptr, 0, 7, "abc", 1, INVALID_SIZE, 0), 10U);
    EXPECT_EQ(utl::copyGeneral<char>(nullptr, 0, 7, "abc", 1, 1, 1), 9U);
    EXPECT_EQ(utl::copyGeneral<char>(nullptr, 0, 0, "", 0, INVALID_SIZE, 0), 1U);
}

TEST(CopyGeneral, AtTheLastByte_TakesATerminatorAlone) {
    auto dst = room(3);
    for (int truncate : {0, 2, -1}) {
        EXPECT_EQ(utl::copyGeneral(dst.data(), 3, 2, "x", 0, INVALID_SIZE, truncate), INVALID_SIZE);
        EXPECT_EQ(held(dst), "###");
    }
    EXPECT_EQ(utl::copyGeneral(dst.data(), 3, 2, "x", 1, INVALID_SIZE, 0), 3U);
    EXPECT_EQ(held(dst), std::string("##\0", 3));
    dst = room(3);
    EXPECT_EQ(utl::copyGeneral(dst.data(), 3, 2, "x", 0, INVALID_SIZE, 1), 3U);
    EXPECT_EQ(held(dst), std::string("##\0", 3));
}

TEST(CopyGeneral, AtOrBeyondTheSize_FailsAndWritesNothing) {
    auto dst = room(3);
    for (unsigned int dstPos : {3U, 4U, INVALID_SIZE}) {
        for (int truncate : {0, 1}) {
            EXPECT_EQ(utl::copyGeneral(dst.data(), 3, dstPos, "x", 0, INVALID_SIZE, truncate), INVALID_SIZE);
            EXPECT_EQ(utl::copyGeneral(dst.data(), 3, dstPos, "", 0, INVALID_SIZE, truncate), INVALID_SIZE);
        }
    }
    EXPECT_EQ(held(dst), "###");
}

TEST(CopyGeneral, ThatDoesNotFit_FailsOrCutsBetweenCharacters) {
    std::string const text = std::string("b") + HIRAGANA_A;
    auto dst = room(5);
    EXPECT_EQ(utl::copyGeneral(dst.data(), 5, 1, text.c_str(), 0, INVALID_SIZE, 0), INVALID_SIZE);
    EXPECT_EQ(held(dst), "#####");
    EXPECT_EQ(utl::copyGeneral(dst.data(), 5, 1, text.c_str(), 0, INVALID_SIZE, 1), 3U);
    EXPECT_EQ(held(dst), std::string("#b\0##", 5));
    dst = room(6);
    EXPECT_EQ(utl::copyGeneral(dst.data(), 6, 1, text.c_str(), 0, INVALID_SIZE, 0), 6U);
}

TEST(CopyGeneral, SteppingBackOverMalformedBytesToNothing_GivesThePositionBefore) {
    auto dst = room(6);
    EXPECT_EQ(utl::copyGeneral(dst.data(), 6, 3, "\x80\x80", 0, 1, 0), 2U);
    EXPECT_EQ(utl::copyGeneral(dst.data(), 6, 0, "\x80\x80", 0, 1, 0), INVALID_SIZE);
    EXPECT_EQ(held(dst), "######");
}

TEST(CopyGeneral, CuttingMalformedText_Fails) {
    auto dst = room(6);
    EXPECT_EQ(utl::copyGeneral(dst.data(), 6, 1, "a\x80z", 0, INVALID_SIZE, 1), INVALID_SIZE);
    EXPECT_EQ(held(dst), "######");
}

TEST(FormatStr, FormatsLikePrintfAndGivesTheBytesUsed) {
    auto dst = room(20);
    EXPECT_EQ(utl::formatStr(dst.data(), 20, "%s-%03d", "ab", 7), 7U);
    EXPECT_STREQ(dst.data(), "ab-007");
    EXPECT_EQ(utl::formatStr(dst.data(), 20, "%s", ""), 1U);
}

TEST(FormatStr, ThatDoesNotFit_FailsAndLeavesTheBeginning) {
    auto dst = room(4);
    EXPECT_EQ(utl::formatStr(dst.data(), 4, "%s", "abc"), 4U);
    EXPECT_EQ(utl::formatStr(dst.data(), 4, "%s", "wxyz"), INVALID_SIZE);
    EXPECT_EQ(held(dst), full("wxy"));
    EXPECT_EQ(utl::formatStr(dst.data(), 3, "%s", HIRAGANA_A), INVALID_SIZE);
    EXPECT_EQ(held(dst), std::string("\xE3\x81\0\0", 4));
}

TEST(FormatStr, OfNullOrIntoNothing_Fails) {
    auto dst = room(4);
    char const* const noFormat = nullptr;
    EXPECT_EQ(utl::formatStr<char>(nullptr, 4, "abc"), INVALID_SIZE);
    EXPECT_EQ(utl::formatStr<char>(dst.data(), 4, noFormat), INVALID_SIZE);
    EXPECT_EQ(utl::formatStr(dst.data(), 0, "abc"), INVALID_SIZE);
    EXPECT_EQ(held(dst), "####");
}

TEST(FormatStr, OfWhatCannotBeFormatted_Fails) {
    auto dst = room(20);
    wchar_t const noCharacter[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    EXPECT_EQ(utl::formatStr(dst.data(), 20, "%ls", noCharacter), INVALID_SIZE);
}

TEST(FormatStr, OfATextWithATerminatorInside_CountsUpToIt) {
    auto dst = room(20);
    EXPECT_EQ(utl::formatStr(dst.data(), 20, "ab%ccd", 0), 3U);
}

// --- searching

TEST(StrStr, GivesTheFirstMatch) {
    EXPECT_EQ(utl::t_strstr("abcabc", "bc"), 1U);
    EXPECT_EQ(utl::t_strstr("abc", "abc"), 0U);
    EXPECT_EQ(utl::t_strstr("abc", "c"), 2U);
    EXPECT_EQ(utl::t_strstr("abc", "abcd"), INVALID_SIZE);
    EXPECT_EQ(utl::t_strstr("abc", "x"), INVALID_SIZE);
}

TEST(StrStr, OfAnEmptySearchText_IsTheLength) {
    EXPECT_EQ(utl::t_strstr("abc", ""), 3U);
    EXPECT_EQ(utl::t_strstr("", ""), 0U);
    EXPECT_EQ(utl::t_strstr<char>(nullptr, ""), 0U);
}

TEST(StrStr, InNullOrEmptyText_Fails) {
    EXPECT_EQ(utl::t_strstr<char>(nullptr, "a"), INVALID_SIZE);
    EXPECT_EQ(utl::t_strstr("", "a"), INVALID_SIZE);
}

TEST(StrStr, NeverBeginsInsideACharacter) {
    EXPECT_EQ(utl::t_strstr("\xE3\x81\x82", "\x81\x82"), INVALID_SIZE);
    EXPECT_EQ(utl::t_strstr("\xE3\x81\x82x", "\x82x"), INVALID_SIZE);
}

TEST(StrStr, StepsOverMalformedBytesAndNeverMatchesThem) {
    EXPECT_EQ(utl::t_strstr("\x80\xC3\xE3\x81z", "z"), 4U);
    EXPECT_EQ(utl::t_strstr("a\x80", "\x80"), INVALID_SIZE);
    EXPECT_EQ(utl::t_strstr("\xE3\x81", "\xE3"), INVALID_SIZE);
    EXPECT_EQ(utl::t_strstr("a\x80", "a\x80"), 0U);
}

TEST(StrStr, StopsAtTheMatch) {
    GuardedBytes const bytes("abcd");
    EXPECT_EQ(utl::t_strstr<char>(bytes.get(), "cd"), 2U);
}

TEST(FindStr, FromAStart_GivesTheMatchAndWhatFollowsIt) {
    unsigned int next = UNTOUCHED;
    EXPECT_EQ(utl::findStr("abcabc", "bc", 0, &next), 1U);
    EXPECT_EQ(next, 3U);
    EXPECT_EQ(utl::findStr("abcabc", "bc", next, &next), 4U);
    EXPECT_EQ(next, 6U);
    EXPECT_EQ(utl::findStr("abcabc", "bc", next, &next), INVALID_SIZE);
    EXPECT_EQ(next, INVALID_SIZE);
    EXPECT_EQ(utl::findStr("abcabc", "bc", 2, nullptr), 4U);
}

TEST(FindStr, FromBeyondTheEnd_FailsAndLeavesNextAlone) {
    unsigned int next = UNTOUCHED;
    EXPECT_EQ(utl::findStr("abc", "c", 4, &next), INVALID_SIZE);
    EXPECT_EQ(utl::findStr("abc", "c", INVALID_SIZE, &next), INVALID_SIZE);
    EXPECT_EQ(next, UNTOUCHED);
    EXPECT_EQ(utl::findStr("abc", "c", 3, &next), INVALID_SIZE);
    EXPECT_EQ(next, INVALID_SIZE);
}

TEST(FindStr, FromInsideACharacter_GoesOnAtTheNextOne) {
    std::string const text = std::string(HIRAGANA_A) + HIRAGANA_A;
    EXPECT_EQ(utl::findStr(text.c_str(), HIRAGANA_A, 1, nullptr), 3U);
    EXPECT_EQ(utl::findStr(text.c_str(), HIRAGANA_A, 4, nullptr), INVALID_SIZE);
}

TEST(FindStr, OfEmptyText_IsAtTheEndWithNothingToFollow) {
    unsigned int next = UNTOUCHED;
    EXPECT_EQ(utl::findStr("abc", "", 1, &next), 3U);
    EXPECT_EQ(next, INVALID_SIZE);
}

TEST(FindReverseStr, GivesTheLastByteOfTheLastMatchAndTheByteBeforeIt) {
    unsigned int next = UNTOUCHED;
    EXPECT_EQ(utl::findReverseStr("abcabc", "bc", INVALID_SIZE, &next), 5U);
    EXPECT_EQ(next, 3U);
    EXPECT_EQ(utl::findReverseStr("abcabc", "bc", next, &next), 2U);
    EXPECT_EQ(next, 0U);
    EXPECT_EQ(utl::findReverseStr("abcabc", "bc", next, &next), INVALID_SIZE);
    EXPECT_EQ(next, INVALID_SIZE);
}

TEST(FindReverseStr, OfAMatchAtTheStart_HasNothingBeforeIt) {
    unsigned int next = UNTOUCHED;
    EXPECT_EQ(utl::findReverseStr("abc", "ab", INVALID_SIZE, &next), 1U);
    EXPECT_EQ(next, INVALID_SIZE);
}

TEST(FindReverseStr, FromAStart_TakesMatchesThatEndThereOrBefore) {
    EXPECT_EQ(utl::findReverseStr("abcabc", "bc", 5, nullptr), 5U);
    EXPECT_EQ(utl::findReverseStr("abcabc", "bc", 4, nullptr), 2U);
    EXPECT_EQ(utl::findReverseStr("abcabc", "bc", 2, nullptr), 2U);
    EXPECT_EQ(utl::findReverseStr("abcabc", "bc", 1, nullptr), INVALID_SIZE);
    EXPECT_EQ(utl::findReverseStr("abcabc", "bc", 6, nullptr), 5U);
    EXPECT_EQ(utl::findReverseStr("abcabc", "bc", 1000, nullptr), 5U);
}

TEST(FindReverseStr, CountsInBytesOfTheTextAndMatchesWholeCharacters) {
    std::string const text = std::string("x") + HIRAGANA_A + HIRAGANA_I + HIRAGANA_A;
    unsigned int next = UNTOUCHED;
    EXPECT_EQ(utl::findReverseStr(text.c_str(), HIRAGANA_A, INVALID_SIZE, &next), 9U);
    EXPECT_EQ(next, 6U);
    // Inside the last character only the ones before it are left.
    EXPECT_EQ(utl::findReverseStr(text.c_str(), HIRAGANA_A, 8, &next), 3U);
    EXPECT_EQ(next, 0U);
    EXPECT_EQ(utl::findReverseStr(text.c_str(), (std::string(HIRAGANA_A) + HIRAGANA_I).c_str(), 9, &next),
              6U);
    EXPECT_EQ(next, 0U);
}

TEST(FindReverseStr, OfAnEmptySearchText_IsTheLengthAndNextOneLess) {
    unsigned int next = UNTOUCHED;
    EXPECT_EQ(utl::findReverseStr("abc", "", 0, &next), 3U);
    EXPECT_EQ(next, 2U);
    EXPECT_EQ(utl::findReverseStr("", "", 0, &next), 0U);
    EXPECT_EQ(next, INVALID_SIZE);
    EXPECT_EQ(utl::findReverseStr("abc", "", 0), 3U);
}

TEST(FindReverseStr, OfNull_FailsAndLeavesNextAlone) {
    unsigned int next = UNTOUCHED;
    EXPECT_EQ(utl::findReverseStr<char>(nullptr, "a", 0, &next), INVALID_SIZE);
    EXPECT_EQ(utl::findReverseStr<char>("a", nullptr, 0, &next), INVALID_SIZE);
    EXPECT_EQ(next, UNTOUCHED);
}

TEST(FindReverseStr, InEmptyText_FindsNothing) {
    for (unsigned int start : {0U, 5U, INVALID_SIZE}) {
        unsigned int next = UNTOUCHED;
        EXPECT_EQ(utl::findReverseStr("", "a", start, &next), INVALID_SIZE);
        EXPECT_EQ(next, INVALID_SIZE);
    }
}

TEST(FindReverseStr, OfMalformedText_FailsAndLeavesNextAlone) {
    unsigned int next = UNTOUCHED;
    EXPECT_EQ(utl::findReverseStr("a\x80"
                                  "b",
                                  "b", INVALID_SIZE, &next),
              INVALID_SIZE);
    EXPECT_EQ(utl::findReverseStr("ab", "\x80", INVALID_SIZE, &next), INVALID_SIZE);
    EXPECT_EQ(next, UNTOUCHED);
}

TEST(FindReverseStr, OfTextBeyondTheScratchSize_FailsAndLeavesNextAlone) {
    std::string const longest(LONGEST_SCRATCH_TEXT, 'a');
    std::string const tooLong = longest + "a";
    unsigned int next = UNTOUCHED;
    EXPECT_EQ(utl::findReverseStr(tooLong.c_str(), "a", INVALID_SIZE, &next), INVALID_SIZE);
    EXPECT_EQ(utl::findReverseStr("a", tooLong.c_str(), INVALID_SIZE, &next), INVALID_SIZE);
    EXPECT_EQ(next, UNTOUCHED);
    EXPECT_EQ(utl::findReverseStr(longest.c_str(), "a", INVALID_SIZE, &next), LONGEST_SCRATCH_TEXT - 1);
    EXPECT_EQ(utl::findReverseStr(longest.c_str(), longest.c_str(), INVALID_SIZE, &next),
              LONGEST_SCRATCH_TEXT - 1);
    EXPECT_EQ(next, INVALID_SIZE);
    EXPECT_EQ(utl::findReverseStr(tooLong.c_str(), "", INVALID_SIZE, &next), LONGEST_SCRATCH_TEXT + 1);
}

TEST(FindReverseChar, SearchesForTheFirstCharacterAlone) {
    unsigned int next = UNTOUCHED;
    EXPECT_EQ(utl::findReverseChar("a.b.c", ".xyz", INVALID_SIZE, &next), 3U);
    EXPECT_EQ(next, 2U);
    std::string const text = std::string("a") + HIRAGANA_A + "b";
    std::string const chars = std::string(HIRAGANA_A) + "b";
    EXPECT_EQ(utl::findReverseChar(text.c_str(), chars.c_str(), INVALID_SIZE, &next), 3U);
    EXPECT_EQ(next, 0U);
    EXPECT_EQ(utl::findReverseChar((text + EMOJI).c_str(), EMOJI, INVALID_SIZE), 8U);
}

TEST(FindReverseChar, OfACharacterThatAStrayByteFollows_FindsTheCharacter) {
    EXPECT_EQ(utl::findReverseChar("abab", "a\x80", INVALID_SIZE), 2U);
}

TEST(FindReverseChar, OfNullEmptyOrCutOffChars_SearchesForEmptyText) {
    for (char const* chars : {static_cast<char const*>(nullptr), "", "\xE3\x81", "\xC0\x80"}) {
        unsigned int next = UNTOUCHED;
        EXPECT_EQ(utl::findReverseChar("abc", chars, 0, &next), 3U);
        EXPECT_EQ(next, 2U);
    }
}

TEST(FindReverseChar, OfAByteOrderMarkOrAStrayByte_FailsAndLeavesNextAlone) {
    unsigned int next = UNTOUCHED;
    EXPECT_EQ(utl::findReverseChar("a\xEF\xBB\xBF", BOM, INVALID_SIZE, &next), INVALID_SIZE);
    EXPECT_EQ(utl::findReverseChar("abc", "\x80", INVALID_SIZE, &next), INVALID_SIZE);
    EXPECT_EQ(utl::findReverseChar<char>(nullptr, "a", INVALID_SIZE, &next), INVALID_SIZE);
    EXPECT_EQ(next, UNTOUCHED);
}

TEST(StrSpn, IsTheLengthOfTheLeadingRun) {
    EXPECT_EQ(utl::t_strspn("aabbc", "ab"), 4U);
    EXPECT_EQ(utl::t_strspn("abc", "abc"), 3U);
    EXPECT_EQ(utl::t_strspn("xabc", "abc"), 0U);
    std::string const text = std::string(HIRAGANA_A) + "b" + HIRAGANA_I;
    EXPECT_EQ(utl::t_strspn(text.c_str(), (std::string("b") + HIRAGANA_A).c_str()), 4U);
}

TEST(StrSpn, OfNullOrEmpty_IsZero) {
    EXPECT_EQ(utl::t_strspn<char>(nullptr, "a"), 0U);
    EXPECT_EQ(utl::t_strspn("", "a"), 0U);
    EXPECT_EQ(utl::t_strspn<char>("a", nullptr), 0U);
    EXPECT_EQ(utl::t_strspn("a", ""), 0U);
}

TEST(StrSpn, EndsAtAMalformedByteOfTextOrSet) {
    EXPECT_EQ(utl::t_strspn("aa\x80"
                            "a",
                            "a\x80"),
              2U);
    EXPECT_EQ(utl::t_strspn("aba",
                            "a\x80"
                            "b"),
              1U);
    EXPECT_EQ(utl::t_strspn("a",
                            "\x80"
                            "a"),
              0U);
    EXPECT_EQ(utl::t_strspn("\xE3\x81", "\xE3\x81\x82"), 0U);
}

TEST(StrSpn, StopsAtTheEndOfTheRun) {
    GuardedBytes const bytes("aab");
    EXPECT_EQ(utl::t_strspn<char>(bytes.get(), "a"), 2U);
}

TEST(StrCSpn, IsTheOffsetOfTheFirstCharacterOfTheSet) {
    EXPECT_EQ(utl::t_strcspn("abcd", "dc"), 2U);
    EXPECT_EQ(utl::t_strcspn("abcd", "a"), 0U);
    EXPECT_EQ(utl::t_strcspn("abcd", "xyz"), 4U);
    std::string const text = std::string("a") + HIRAGANA_A + HIRAGANA_I;
    EXPECT_EQ(utl::t_strcspn(text.c_str(), HIRAGANA_I), 4U);
}

TEST(StrCSpn, OfNullOrEmpty_IsTheLength) {
    EXPECT_EQ(utl::t_strcspn<char>(nullptr, "a"), 0U);
    EXPECT_EQ(utl::t_strcspn<char>(nullptr, nullptr), 0U);
    EXPECT_EQ(utl::t_strcspn("", "a"), 0U);
    EXPECT_EQ(utl::t_strcspn<char>("abc", nullptr), 3U);
    EXPECT_EQ(utl::t_strcspn("abc", ""), 3U);
}

TEST(StrCSpn, NeverHitsInsideACharacter) {
    EXPECT_EQ(utl::t_strcspn("\xE3\x81\x82z", "\x81"), 4U);
    EXPECT_EQ(utl::t_strcspn("\x80\xE3\x81z", "z"), 3U);
}

TEST(StrCSpn, WithAMalformedSet_EndsTheSetInFrontOfTheCharacterThatTheBadByteFollows) {
    EXPECT_EQ(utl::t_strcspn("xyab",
                             "yb\x80"
                             "x"),
              1U);
    EXPECT_EQ(utl::t_strcspn("xab", "b\x80"), 3U);
    EXPECT_EQ(utl::t_strcspn("xab", "b\xC3"), 2U);
    EXPECT_EQ(utl::t_strcspn("xab",
                             "\x80"
                             "b"),
              3U);
}

TEST(StrCSpn, StopsAtTheHit) {
    GuardedBytes const bytes("aab");
    EXPECT_EQ(utl::t_strcspn<char>(bytes.get(), "xb"), 2U);
}

// --- editing

TEST(StrRev, KeepsTheBytesOfACharacterInOrder) {
    std::string const text = std::string("a") + HIRAGANA_A + E_ACUTE + EMOJI;
    std::string const expected = std::string(EMOJI) + E_ACUTE + HIRAGANA_A + "a";
    auto dst = room(11);
    EXPECT_EQ(utl::t_strrev(dst.data(), 11, text.c_str(), 0), 11U);
    EXPECT_EQ(held(dst), full(expected.c_str()));
}

TEST(StrRev, ThatDoesNotFit_FailsForTruncateZeroAlone) {
    auto dst = room(3);
    EXPECT_EQ(utl::t_strrev(dst.data(), 3, "abc", 0), INVALID_SIZE);
    EXPECT_EQ(held(dst), "###");
    for (int truncate : {1, 2, -1}) {
        dst = room(3);
        EXPECT_EQ(utl::t_strrev(dst.data(), 3, "abc", truncate), 3U);
        EXPECT_EQ(held(dst), full("cb"));
    }
}

TEST(StrRev, Truncating_CutsOffACharacterThatDoesNotFitWhole) {
    std::string const text = std::string(HIRAGANA_A) + "b";
    for (unsigned int dstSize : {2U, 3U, 4U}) {
        auto dst = room(dstSize);
        EXPECT_EQ(utl::t_strrev(dst.data(), dstSize, text.c_str(), 1), 2U);
        EXPECT_STREQ(dst.data(), "b");
    }
    auto dst = room(5);
    EXPECT_EQ(utl::t_strrev(dst.data(), 5, text.c_str(), 1), 5U);
    EXPECT_STREQ(dst.data(), (std::string("b") + HIRAGANA_A).c_str());
}

TEST(StrRev, IntoSizeZero_Fails) {
    for (int truncate : {0, 1}) {
        EXPECT_EQ(utl::t_strrev<char>(nullptr, 0, "abc", truncate), INVALID_SIZE);
        EXPECT_EQ(utl::t_strrev<char>(nullptr, 0, "", truncate), INVALID_SIZE);
    }
}

TEST(StrRev, OfNullOrEmptyText_IsEmpty) {
    for (char const* text : {static_cast<char const*>(nullptr), ""}) {
        auto dst = room(1);
        EXPECT_EQ(utl::t_strrev(dst.data(), 1, text, 0), 1U);
        EXPECT_EQ(dst[0], '\0');
    }
}

TEST(StrRev, OfMalformedText_Fails) {
    auto dst = room(10);
    for (char const* text : {"a\x80", "\xE3\x81", "\xC0\x80", "z\xF8z"}) {
        EXPECT_EQ(utl::t_strrev(dst.data(), 10, text, 0), INVALID_SIZE);
        EXPECT_EQ(utl::t_strrev(dst.data(), 10, text, 1), INVALID_SIZE);
    }
}

TEST(ReverseStrBase, ChecksItsArguments) {
    auto dst = room(4);
    EXPECT_EQ(utl::reverseStrBase<char>(dst.data(), 4, nullptr, 0), INVALID_SIZE);
    EXPECT_EQ(utl::reverseStrBase<char>(nullptr, 4, "abc", 0), INVALID_SIZE);
    EXPECT_EQ(utl::reverseStrBase<char>(nullptr, 0, "abc", 0), 4U);
    EXPECT_EQ(utl::reverseStrBase<char>(nullptr, 0, "\x80", 0), 2U);
    EXPECT_EQ(held(dst), "####");
    EXPECT_EQ(utl::reverseStrBase(dst.data(), 4, "abc", 0), 4U);
    EXPECT_EQ(held(dst), full("cba"));
    EXPECT_EQ(utl::reverseStrBase(dst.data(), 3, "abc", 0), INVALID_SIZE);
}

TEST(TruncateStr, CutsInFrontOfACharacterThatTheLengthWouldSplit) {
    struct Row {
        unsigned int length;
        unsigned int result;
    };
    for (Row const& row : {Row{0, 1}, Row{1, 2}, Row{2, 2}, Row{3, 2}, Row{4, 5}, Row{5, 6}, Row{6, 6},
                           Row{INVALID_SIZE, 6}}) {
        auto text = exactly(std::string("a") + HIRAGANA_A + "b");
        EXPECT_EQ(utl::truncateStr(text.data(), row.length), row.result);
        EXPECT_EQ(std::strlen(text.data()), row.result - 1);
    }
}

TEST(TruncateStr, OfNullOrBehindAMalformedByte_FailsAndKeepsTheText) {
    EXPECT_EQ(utl::truncateStr<char>(nullptr, 0), INVALID_SIZE);
    auto text = exactly("a\x80z");
    EXPECT_EQ(utl::truncateStr(text.data(), 2), INVALID_SIZE);
    EXPECT_EQ(utl::truncateStr(text.data(), INVALID_SIZE), INVALID_SIZE);
    EXPECT_STREQ(text.data(), "a\x80z");
    EXPECT_EQ(utl::truncateStr(text.data(), 1), 2U);
    EXPECT_STREQ(text.data(), "a");
}

TEST(TruncateStr, ToNothing_NeedsNoCharacters) {
    auto text = exactly("\x80\x80");
    EXPECT_EQ(utl::truncateStr(text.data(), 0), 1U);
    EXPECT_STREQ(text.data(), "");
}

TEST(EraseStrSpan, TakesOutTheSpan) {
    struct Row {
        unsigned int pos;
        unsigned int length;
        char const* expected;
    };
    for (Row const& row :
         {Row{0, 2, "cdef"}, Row{2, 2, "abef"}, Row{4, 2, "abcd"}, Row{4, 3, "abcd"}, Row{0, 6, ""},
          Row{0, INVALID_SIZE, ""}, Row{3, INVALID_SIZE, "abc"}, Row{6, 1, "abcdef"}, Row{2, 0, "abcdef"}}) {
        auto text = exactly("abcdef");
        EXPECT_EQ(utl::eraseStrSpan(text.data(), row.pos, row.length), std::strlen(row.expected) + 1);
        EXPECT_STREQ(text.data(), row.expected);
    }
}

TEST(EraseStrSpan, FromBeyondTheEndOrOfNull_Fails) {
    auto text = exactly("abc");
    EXPECT_EQ(utl::eraseStrSpan(text.data(), 4, 0), INVALID_SIZE);
    EXPECT_EQ(utl::eraseStrSpan(text.data(), INVALID_SIZE, INVALID_SIZE), INVALID_SIZE);
    EXPECT_EQ(utl::eraseStrSpan<char>(nullptr, 0, 0), INVALID_SIZE);
    EXPECT_STREQ(text.data(), "abc");
}

TEST(EraseStrSpan, WhoseEndIsBeyond32Bits_GoesToTheEnd) {
    auto text = exactly("abcdef");
    EXPECT_EQ(utl::eraseStrSpan(text.data(), 2, INVALID_SIZE - 1), 3U);
    EXPECT_STREQ(text.data(), "ab");
}

TEST(EraseStrSpan, FromInsideACharacter_KeepsNoneOfItInFront) {
    auto text = exactly(std::string("a") + HIRAGANA_A + "b");
    EXPECT_EQ(utl::eraseStrSpan(text.data(), 2, 2), 3U);
    EXPECT_STREQ(text.data(), "ab");
}

TEST(EraseStrSpan, BehindMalformedBytesAlone_Fails) {
    auto text = exactly("\x80\x80z");
    EXPECT_EQ(utl::eraseStrSpan(text.data(), 1, 1), INVALID_SIZE);
    EXPECT_STREQ(text.data(), "\x80\x80z");
}

TEST(EraseStrSpan, InUpTo10239Bytes_WorksAndInMoreFails) {
    auto text = exactly(std::string(LONGEST_SCRATCH_TEXT, 'a'));
    EXPECT_EQ(utl::eraseStrSpan(text.data(), 1, 1), LONGEST_SCRATCH_TEXT);
    text = exactly(std::string(LONGEST_SCRATCH_TEXT + 1, 'a'));
    EXPECT_EQ(utl::eraseStrSpan(text.data(), 1, 1), INVALID_SIZE);
    EXPECT_EQ(std::strlen(text.data()), LONGEST_SCRATCH_TEXT + 1);
}

// The text in a buffer of `size` bytes.
std::vector<char> textIn(unsigned int size, char const* text) {
    auto dst = room(size);
    std::memcpy(dst.data(), text, std::strlen(text) + 1);
    return dst;
}

TEST(InsertStr, PutsTheTextInAtThePosition) {
    struct Row {
        unsigned int pos;
        unsigned int length;
        char const* expected;
    };
    for (Row const& row :
         {Row{0, INVALID_SIZE, "xyabc"}, Row{1, INVALID_SIZE, "axybc"}, Row{3, INVALID_SIZE, "abcxy"},
          Row{1, 1, "axbc"}, Row{1, 0, "abc"}, Row{1, 2, "axybc"}, Row{1, 3, "axybc"}}) {
        auto dst = textIn(6, "abc");
        EXPECT_EQ(utl::insertStr(dst.data(), 6, row.pos, "xy", row.length, 0), std::strlen(row.expected) + 1);
        EXPECT_STREQ(dst.data(), row.expected);
    }
}

TEST(InsertStr, IntoEmptyText_IsTheText) {
    auto dst = textIn(3, "");
    EXPECT_EQ(utl::insertStr(dst.data(), 3, 0, "xy", INVALID_SIZE, 0), 3U);
    EXPECT_STREQ(dst.data(), "xy");
}

TEST(InsertStr, OfEmptyText_KeepsTheText) {
    auto dst = textIn(4, "abc");
    EXPECT_EQ(utl::insertStr(dst.data(), 4, 1, "", INVALID_SIZE, 0), 4U);
    EXPECT_STREQ(dst.data(), "abc");
}

TEST(InsertStr, OfNullOrBeyondTheEnd_FailsAndKeepsTheText) {
    auto dst = textIn(10, "abc");
    EXPECT_EQ(utl::insertStr<char>(dst.data(), 10, 0, nullptr, 1, 1), INVALID_SIZE);
    EXPECT_EQ(utl::insertStr<char>(nullptr, 10, 0, "x", 1, 1), INVALID_SIZE);
    EXPECT_EQ(utl::insertStr(dst.data(), 10, 4, "x", 1, 1), INVALID_SIZE);
    EXPECT_STREQ(dst.data(), "abc");
}

TEST(InsertStr, IntoSizeZero_GivesTheSizeThatIsNeededAndKeepsTheText) {
    auto dst = textIn(4, "abc");
    EXPECT_EQ(utl::insertStr(dst.data(), 0, 1, "xyz", 2, 0), 6U);
    EXPECT_EQ(utl::insertStr(dst.data(), 0, 0, "", INVALID_SIZE, 1), 4U);
    EXPECT_EQ(held(dst), full("abc"));
}

TEST(InsertStr, ThatDoesNotFit_FailsWithThePartsBeforeOrIsCut) {
    auto dst = textIn(5, "abc");
    EXPECT_EQ(utl::insertStr(dst.data(), 5, 1, "xy", INVALID_SIZE, 0), INVALID_SIZE);
    EXPECT_STREQ(dst.data(), "axy");
    dst = textIn(5, "abc");
    EXPECT_EQ(utl::insertStr(dst.data(), 5, 1, "xy", INVALID_SIZE, 1), 5U);
    EXPECT_STREQ(dst.data(), "axyb");
    dst = textIn(4, "abc");
    EXPECT_EQ(utl::insertStr(dst.data(), 4, 3, "xy", INVALID_SIZE, 1), 4U);
    EXPECT_STREQ(dst.data(), "abc");
}

TEST(InsertStr, ThatIsCut_IsCutBetweenCharacters) {
    for (unsigned int dstSize : {4U, 5U, 6U}) {
        auto dst = textIn(dstSize, "abc");
        unsigned int const result = utl::insertStr(dst.data(), dstSize, 3, HIRAGANA_A, INVALID_SIZE, 1);
        EXPECT_EQ(result, 4U);
        EXPECT_STREQ(dst.data(), "abc");
    }
}

TEST(InsertStr, IntoUpTo10239Bytes_WorksAndIntoMoreFails) {
    auto dst = textIn(LONGEST_SCRATCH_TEXT + 2, std::string(LONGEST_SCRATCH_TEXT, 'a').c_str());
    EXPECT_EQ(utl::insertStr(dst.data(), LONGEST_SCRATCH_TEXT + 2, 1, "x", 1, 0), LONGEST_SCRATCH_TEXT + 2);
    EXPECT_EQ(utl::insertStr(dst.data(), LONGEST_SCRATCH_TEXT + 2, 1, "x", 1, 1), INVALID_SIZE);
}

TEST(ReplaceStr, ReplacesAllMatchesWithoutLookingAtWhatWasPutIn) {
    auto dst = room(20);
    EXPECT_EQ(utl::replaceStr(dst.data(), 20, "abcb", "b", "bb", 0), 7U);
    EXPECT_STREQ(dst.data(), "abbcbb");
    EXPECT_EQ(utl::replaceStr(dst.data(), 20, "aaa", "aa", "x", 0), 3U);
    EXPECT_STREQ(dst.data(), "xa");
    EXPECT_EQ(utl::replaceStr(dst.data(), 20, "abc", "x", "y", 0), 4U);
    EXPECT_STREQ(dst.data(), "abc");
    EXPECT_EQ(utl::replaceStr(dst.data(), 20, "", "x", "y", 0), 1U);
    EXPECT_STREQ(dst.data(), "");
}

TEST(ReplaceStr, ByEmptyText_EndsAtTheFirstMatch) {
    struct Row {
        char const* text;
        char const* expected;
    };
    for (Row const& row : {Row{"abcbd", "a"}, Row{"bcd", ""}, Row{"acd", "acd"}, Row{"acdb", "acd"}}) {
        auto dst = room(10);
        EXPECT_EQ(utl::replaceStr(dst.data(), 10, row.text, "b", "", 0), std::strlen(row.expected) + 1);
        EXPECT_STREQ(dst.data(), row.expected);
    }
}

TEST(ReplaceStr, OfEmptyText_CopiesByTheRulesOfCopyStrBase) {
    auto dst = room(4);
    EXPECT_EQ(utl::replaceStr(dst.data(), 4, "abc", "", "x", 0), 4U);
    EXPECT_STREQ(dst.data(), "abc");
    dst = room(4);
    EXPECT_EQ(utl::replaceStr(dst.data(), 4, "", "", "x", 0), 0U);
    EXPECT_EQ(held(dst), "####");
    EXPECT_EQ(utl::replaceStr(dst.data(), 3, "abc", "", "x", 0), INVALID_SIZE);
    EXPECT_EQ(utl::replaceStr(dst.data(), 3, "abc", "", "x", 1), 3U);
}

TEST(ReplaceStr, OfNull_Fails) {
    auto dst = room(4);
    EXPECT_EQ(utl::replaceStr<char>(dst.data(), 4, nullptr, "a", "b", 1), INVALID_SIZE);
    EXPECT_EQ(utl::replaceStr<char>(dst.data(), 4, "a", nullptr, "b", 1), INVALID_SIZE);
    EXPECT_EQ(utl::replaceStr<char>(dst.data(), 4, "a", "a", nullptr, 1), INVALID_SIZE);
    EXPECT_EQ(utl::replaceStr<char>(nullptr, 4, "a", "a", "b", 1), INVALID_SIZE);
    EXPECT_EQ(held(dst), "####");
}

TEST(ReplaceStr, IntoSizeZero_GivesTheSizeThatIsNeeded) {
    EXPECT_EQ(utl::replaceStr<char>(nullptr, 0, "abcb", "b", "xyz", 0), 9U);
    EXPECT_EQ(utl::replaceStr<char>(nullptr, 0, "abcb", "b", "", 0), 2U);
    EXPECT_EQ(utl::replaceStr<char>(nullptr, 0, "abc", "x", "", 1), 4U);
    EXPECT_EQ(utl::replaceStr<char>(nullptr, 0, "abc", "", "x", 0), 4U);
}

TEST(ReplaceStr, ThatDoesNotFit_FailsWithThePartsBeforeOrIsCut) {
    auto dst = room(5);
    EXPECT_EQ(utl::replaceStr(dst.data(), 5, "abcb", "b", "xyz", 0), INVALID_SIZE);
    EXPECT_STREQ(dst.data(), "axyz");
    dst = room(5);
    EXPECT_EQ(utl::replaceStr(dst.data(), 5, "abcb", "b", "xyz", 1), 5U);
    EXPECT_STREQ(dst.data(), "axyz");
}

TEST(ReplaceStr, MatchesWholeCharactersOnly) {
    auto dst = room(20);
    std::string const text = std::string(HIRAGANA_A) + HIRAGANA_I;
    EXPECT_EQ(utl::replaceStr(dst.data(), 20, text.c_str(), "\x81", "x", 0), 7U);
    EXPECT_STREQ(dst.data(), text.c_str());
    EXPECT_EQ(utl::replaceStr(dst.data(), 20, text.c_str(), HIRAGANA_I, "x", 0), 5U);
    EXPECT_STREQ(dst.data(), (std::string(HIRAGANA_A) + "x").c_str());
}

TEST(ReplaceStr, HasNoLimitOfTheScratchSize) {
    std::string const text = std::string(2 * LONGEST_SCRATCH_TEXT, 'a') + "b";
    auto dst = room(2 * LONGEST_SCRATCH_TEXT + 3);
    EXPECT_EQ(utl::replaceStr(dst.data(), 2 * LONGEST_SCRATCH_TEXT + 3, text.c_str(), "b", "xy", 0),
              2 * LONGEST_SCRATCH_TEXT + 3);
}

TEST(TrimStrRight, TakesTheCharactersOffTheEndOnly) {
    auto text = exactly("xxaxbxx");
    EXPECT_EQ(utl::trimStrRight(text.data(), "x"), 6U);
    EXPECT_STREQ(text.data(), "xxaxb");
    EXPECT_EQ(utl::trimStrRight(text.data(), "y"), 6U);
    EXPECT_EQ(utl::trimStrRight(text.data(), "bx"), 4U);
    EXPECT_STREQ(text.data(), "xxa");
}

TEST(TrimStrRight, WithoutChars_TakesWhiteSpaceOff) {
    for (char const* chars : {static_cast<char const*>(nullptr), ""}) {
        auto text = exactly(std::string(" a b \t\v\r\n\f") + IDEOGRAPHIC_SPACE);
        EXPECT_EQ(utl::trimStrRight(text.data(), chars), 5U);
        EXPECT_STREQ(text.data(), " a b");
    }
    auto other = exactly("a\x01");
    EXPECT_EQ(utl::trimStrRight<char>(other.data(), nullptr), 3U);
}

TEST(TrimStrRight, OfAnIdeographicSpace_TakesAllThreeBytes) {
    auto text = exactly(std::string(HIRAGANA_A) + IDEOGRAPHIC_SPACE);
    EXPECT_EQ(utl::trimStrRight<char>(text.data(), nullptr), 4U);
    EXPECT_STREQ(text.data(), HIRAGANA_A);
}

TEST(TrimStrRight, OfNothingElse_MakesTheTextEmpty) {
    for (char const* blank : {"", " ", " \t\n"}) {
        auto text = exactly(blank);
        EXPECT_EQ(utl::trimStrRight<char>(text.data(), nullptr), 1U);
        EXPECT_STREQ(text.data(), "");
    }
}

TEST(TrimStrRight, OfNullOrMalformedText_FailsAndKeepsTheText) {
    EXPECT_EQ(utl::trimStrRight<char>(nullptr, " "), INVALID_SIZE);
    for (char const* bad : {"\x80  ", "a\xE3\x81 ", "a \xC3"}) {
        auto text = exactly(bad);
        EXPECT_EQ(utl::trimStrRight<char>(text.data(), " "), INVALID_SIZE);
        EXPECT_STREQ(text.data(), bad);
    }
}

TEST(TrimStrRight, OfUpTo10239Bytes_WorksAndOfMoreFails) {
    auto text = exactly(std::string(LONGEST_SCRATCH_TEXT - 1, 'a') + " ");
    EXPECT_EQ(utl::trimStrRight<char>(text.data(), nullptr), LONGEST_SCRATCH_TEXT);
    text = exactly(std::string(LONGEST_SCRATCH_TEXT, 'a') + " ");
    EXPECT_EQ(utl::trimStrRight<char>(text.data(), nullptr), INVALID_SIZE);
    EXPECT_EQ(std::strlen(text.data()), LONGEST_SCRATCH_TEXT + 1);
}

// --- memory

TEST(Memory, CopyMemory_CopiesTheBytes) {
    auto dst = room(4);
    utl::copyMemory(dst.data(), "ab", 2);
    EXPECT_EQ(held(dst), "ab##");
}

TEST(Memory, MoveMemory_CopiesOverlappingBytes) {
    char bytes[] = "abcdef";
    utl::moveMemory(bytes + 1, bytes, 4);
    EXPECT_STREQ(bytes, "aabcdf");
    utl::moveMemory(bytes, bytes + 2, 4);
    EXPECT_STREQ(bytes, "bcdfdf");
}

TEST(Memory, FillAndZeroMemory_SetTheBytes) {
    auto dst = room(4);
    utl::fillMemory(dst.data(), 2, 0xFF);
    EXPECT_EQ(held(dst), "\xFF\xFF##");
    utl::zeroMemory(dst.data() + 1, 2);
    EXPECT_EQ(held(dst), std::string("\xFF\0\0#", 4));
}

TEST(Memory, CompareMemory_IsTrueForTheSameBytes) {
    EXPECT_TRUE(utl::compareMemory("abc", "abd", 2));
    EXPECT_FALSE(utl::compareMemory("abc", "abd", 3));
    EXPECT_TRUE(utl::compareMemory("a", "b", 0));
}

TEST(Memory, WithNull_NothingHappensAndNothingIsTheSame) {
    auto dst = room(2);
    utl::copyMemory(nullptr, "ab", 2);
    utl::copyMemory(dst.data(), nullptr, 2);
    utl::moveMemory(nullptr, "ab", 2);
    utl::moveMemory(dst.data(), nullptr, 2);
    utl::fillMemory(nullptr, 2, 1);
    utl::zeroMemory(nullptr, 2);
    EXPECT_EQ(held(dst), "##");
    for (unsigned int size : {0U, 1U}) {
        EXPECT_FALSE(utl::compareMemory(nullptr, "a", size));
        EXPECT_FALSE(utl::compareMemory("a", nullptr, size));
        EXPECT_FALSE(utl::compareMemory(nullptr, nullptr, size));
    }
}

// --- threads

TEST(Primitives, ThatNeedScratch_WaitForItsHolder) {
    EXPECT_TRUE(waitsForScratch([] { utl::findReverseStr("abc", "b", INVALID_SIZE); }));
    EXPECT_TRUE(waitsForScratch([] { utl::findReverseChar("abc", "b", INVALID_SIZE); }));
    auto text = textIn(20, "abc ");
    EXPECT_TRUE(waitsForScratch([&] { utl::eraseStrSpan(text.data(), 0, 1); }));
    EXPECT_TRUE(waitsForScratch([&] { utl::insertStr(text.data(), 20, 0, "x", 1, 0); }));
    EXPECT_TRUE(waitsForScratch([&] { utl::trimStrRight<char>(text.data(), nullptr); }));
}

// One call of each function that works on its arguments alone; true if all succeed.
bool allWithoutScratchSucceed() {
    char dst[20];
    bool const areCopied = utl::copyStrBase(dst, 20, "abc", INVALID_SIZE, 1) == 4 &&
                           utl::t_strncpy(dst, 20, "abc", INVALID_SIZE) == 4 &&
                           utl::copyGeneral(dst, 20, 0, "abc", 0, INVALID_SIZE, 1) == 4 &&
                           utl::formatStr(dst, 20, "%s", "abc") == 4 &&
                           utl::reverseStrBase(dst, 20, "abc", 0) == 4 &&
                           utl::replaceStr(dst, 20, "abc", "b", "x", 0) == 4 && utl::truncateStr(dst, 2) == 3;
    bool const areFound = utl::t_strstr("abc", "b") == 1 && utl::t_strspn("abc", "a") == 1 &&
                          utl::t_strcspn("abc", "b") == 1 && utl::getNearCharIndex("abc", 2, 1) == 2 &&
                          utl::t_charlen("abc") == 1 && utl::strCharBytesBase("abc") == 1;
    return areCopied && areFound;
}

// One call of each function that works in scratch space; true if all succeed.
bool allWithScratchSucceed() {
    char text[20] = "abc ";
    return utl::findReverseStr("abc", "b", INVALID_SIZE) == 1 &&
           utl::findReverseChar("abc", "b", INVALID_SIZE) == 1 && utl::eraseStrSpan(text, 0, 1) == 4 &&
           utl::insertStr(text, 20, 0, "x", 1, 0) == 5 && utl::trimStrRight<char>(text, nullptr) == 4;
}

TEST(Primitives, DoNotAllocate) {
    unsigned int const before = utltest::allocations();
    bool const succeeded = allWithoutScratchSucceed() && allWithScratchSucceed();
    unsigned int const after = utltest::allocations();
    EXPECT_TRUE(succeeded);
    EXPECT_EQ(after, before);
}

TEST(Primitives, ThatNeedNoScratch_DoNotWaitForItsHolder) {
    EXPECT_FALSE(waitsForScratch([] { EXPECT_TRUE(allWithoutScratchSucceed()); }));
}

}  // namespace

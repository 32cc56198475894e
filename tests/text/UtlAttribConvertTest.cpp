#include "UtlAttribConvert.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "TestAllocations.h"
#include "TestLayout.h"
#include "TestScratch.h"
#include "TestTables.h"
#include "TestText.h"
#include "UtlCharAttrib.h"
#include "UtlWorkingBuffer.h"

namespace {

using utl::compareStrNoCase;
using utl::convertAttrib;
using utl::convertCharSet;
using utl::INVALID_SIZE;
using utl::PairAttrib;
using utl::strToInt;
using utltest::exactly;
using utltest::utf8Of;
using utltest::waitsForScratch;

static_assert(utl::CONVERT_TO_RIGHT == 0 && utl::CONVERT_TO_LEFT == 1);
static_assert(noexcept(convertCharSet(nullptr, 0, "")));

TEST(ConvertAttrib, TheNamedDirections_LeadToTheFormsOfTheirSide) {
    char text[8] = {};
    convertAttrib(text, sizeof(text), "aB", utl::LOWER_UPPER_PAIR, utl::CONVERT_TO_RIGHT, utl::TRUNCATE_OFF);
    EXPECT_STREQ(text, "AB");
    convertAttrib(text, sizeof(text), "aB", utl::LOWER_UPPER_PAIR, utl::CONVERT_TO_LEFT, utl::TRUNCATE_OFF);
    EXPECT_STREQ(text, "ab");
}

constexpr int TO_RIGHT = 0;
constexpr int TO_LEFT = 1;
constexpr unsigned int LONGEST_TEXT = 10239;
constexpr char const* BYTE_ORDER_MARK = "\xEF\xBB\xBF";
constexpr char UNUSED = '#';
constexpr PairAttrib const* NO_TABLE = nullptr;

// What `convertAttrib` makes of a text, in a destination of exactly the size that it asked for.
std::string converted(std::string const& text, PairAttrib const* table, int direction) {
    unsigned int const size = convertAttrib<char>(nullptr, 0, text.c_str(), table, direction, 0);
    std::vector<char> dst(size, UNUSED);
    EXPECT_EQ(convertAttrib(dst.data(), size, exactly(text).data(), table, direction, 0), size);
    EXPECT_EQ(dst.back(), '\0');
    return dst.data();
}

// A destination of exactly so many bytes and what became of it.
struct Converted {
    Converted(unsigned int dstSize, char const* text, PairAttrib const* table, int direction, int truncate)
        : dst(dstSize, UNUSED), size(convertAttrib(dst.data(), dstSize, text, table, direction, truncate)) {}

    std::string held() const { return std::string(dst.data(), dst.size()); }

    std::vector<char> dst;
    unsigned int size;
};

// --- PairAttrib

TEST(PairAttrib, OfNoForms_EndsATable) {
    PairAttrib const row;
    EXPECT_EQ(row.mFirst.mNarrow, nullptr);
    EXPECT_EQ(row.mFirst.mWide, nullptr);
    EXPECT_EQ(row.mSecond.mNarrow, nullptr);
    EXPECT_EQ(row.mSecond.mWide, nullptr);
}

TEST(PairAttrib, OfTwoForms_HasThemFromLeftToRight) {
    utl::CodeTableRow const left("a", L"a");
    utl::CodeTableRow const right("A", L"A");
    PairAttrib const row(left, right);
    EXPECT_EQ(row.mFirst.mNarrow, left.mNarrow);
    EXPECT_EQ(row.mFirst.mWide, left.mWide);
    EXPECT_EQ(row.mSecond.mNarrow, right.mNarrow);
    EXPECT_EQ(row.mSecond.mWide, right.mWide);
}

TEST(PairAttrib, Fields_StandInTheOrderFirstSecond) {
    PairAttrib const row;
    EXPECT_EQ(utltest::offsetIn(row, row.mFirst), utltest::FIRST_FIELD);
    EXPECT_EQ(utltest::offsetIn(row, row.mSecond), utltest::FIRST_FIELD + sizeof(utl::CodeTableRow));
}

TEST(PairAttrib, HasAVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor_v<PairAttrib>);
}

// --- convertAttrib

TEST(ConvertAttrib, ToTheRight_WritesRightFormsForLeftOnes) {
    EXPECT_EQ(converted("Aa1ａ", utl::LOWER_UPPER_PAIR, TO_RIGHT), "AA1Ａ");
    EXPECT_EQ(converted("a 1~ｱ", utl::HANKAKU_ZENKAKU_PAIR, TO_RIGHT), "ａ　１～ア");
    EXPECT_EQ(converted("カタカナ", utl::ZENKATA_HIRAGANA_PAIR, TO_RIGHT), "かたかな");
    EXPECT_EQ(converted("ｶﾀｶﾅ｡", utl::HANKATA_HIRAGANA_PAIR, TO_RIGHT), "かたかな。");
}

TEST(ConvertAttrib, ToTheLeft_WritesLeftFormsForRightOnes) {
    EXPECT_EQ(converted("Ａa", utl::LOWER_UPPER_PAIR, TO_LEFT), "ａa");
    EXPECT_EQ(converted("０９漢", utl::HANKAKU_ZENKAKU_PAIR, TO_LEFT), "09漢");
    EXPECT_EQ(converted("ひらがな", utl::ZENKATA_HIRAGANA_PAIR, TO_LEFT), "ヒラガナ");
}

TEST(ConvertAttrib, WithAnyDirectionButZero_GoesToTheLeft) {
    EXPECT_EQ(converted("A", utl::LOWER_UPPER_PAIR, 2), "a");
    EXPECT_EQ(converted("A", utl::LOWER_UPPER_PAIR, -1), "a");
}

TEST(ConvertAttrib, TakesAKanaWithItsMarkAsOne) {
    EXPECT_EQ(converted("ｶﾞ", utl::HANKAKU_ZENKAKU_PAIR, TO_RIGHT), "ガ");
    EXPECT_EQ(converted("ガ", utl::HANKAKU_ZENKAKU_PAIR, TO_LEFT), "ｶﾞ");
    EXPECT_EQ(converted("ｶｶﾞﾊﾟﾞ", utl::HANKAKU_ZENKAKU_PAIR, TO_RIGHT), "カガパ゛");
    EXPECT_EQ(converted("ｶﾞ", utl::HANKATA_HIRAGANA_PAIR, TO_RIGHT), "が");
    EXPECT_EQ(converted("が", utl::HANKATA_HIRAGANA_PAIR, TO_LEFT), "ｶﾞ");
}

TEST(ConvertAttrib, TakesALoneMarkAsACharacter) {
    EXPECT_EQ(converted("ﾞ", utl::HANKAKU_ZENKAKU_PAIR, TO_RIGHT), "゛");
    EXPECT_EQ(converted("ｱﾞ", utl::HANKAKU_ZENKAKU_PAIR, TO_RIGHT), "ア゛");
}

TEST(ConvertAttrib, OfVu_IsNotRestoredOnTheWayBack) {
    EXPECT_EQ(converted("ヴ", utl::ZENKATA_HIRAGANA_PAIR, TO_RIGHT), "う゛");
    EXPECT_EQ(converted("う゛", utl::ZENKATA_HIRAGANA_PAIR, TO_LEFT), "ウ゛");
}

TEST(ConvertAttrib, BetweenUnvoicedAndVoiced_DeletesMarksOnTheWayLeft) {
    EXPECT_EQ(converted("ﾟ", utl::NODAKUON_HANDAKUON_PAIR, TO_LEFT), "");
    EXPECT_EQ(converted("ｶﾞ", utl::NODAKUON_DAKUON_PAIR, TO_LEFT), "ｶ");
    EXPECT_EQ(converted("ガが漢゛x", utl::NODAKUON_DAKUON_PAIR, TO_LEFT), "カか漢x");
    EXPECT_EQ(converted("ぱパﾊﾟ゜", utl::NODAKUON_HANDAKUON_PAIR, TO_LEFT), "はハﾊ");
}

TEST(ConvertAttrib, BetweenUnvoicedAndVoiced_WorksOnTheWayRightForTheRowsInFrontOfTheEmptyOne) {
    EXPECT_EQ(converted("ｶｳ", utl::NODAKUON_DAKUON_PAIR, TO_RIGHT), "ｶﾞｳﾞ");
    EXPECT_EQ(converted("ﾊ", utl::NODAKUON_HANDAKUON_PAIR, TO_RIGHT), "ﾊﾟ");
}

TEST(ConvertAttrib, WithAnEmptyFormToLookFor_FillsTheDestinationAndFails) {
    Converted const result(8, "ｶ漢", utl::NODAKUON_DAKUON_PAIR, TO_RIGHT, 0);
    EXPECT_EQ(result.size, INVALID_SIZE);
    EXPECT_STREQ(result.dst.data(), "ｶﾞ");
    Converted const marks(8, "漢", utl::NODAKUON_DAKUON_PAIR, TO_RIGHT, 0);
    EXPECT_EQ(marks.size, INVALID_SIZE);
    EXPECT_STREQ(marks.dst.data(), "ﾞﾞ");
}

TEST(ConvertAttrib, TakesAnEmptyFormInFrontOfTheRowsBehindIt) {
    Converted const result(8, "カ", utl::NODAKUON_DAKUON_PAIR, TO_RIGHT, 0);
    EXPECT_EQ(result.size, INVALID_SIZE);
    EXPECT_STREQ(result.dst.data(), "ﾞﾞ");
}

TEST(ConvertAttrib, LeavesWhatNoRowHas) {
    EXPECT_EQ(converted("漢字é😀", utl::HANKAKU_ZENKAKU_PAIR, TO_RIGHT), "漢字é😀");
    EXPECT_EQ(converted("ァぁ", utl::LOWER_UPPER_PAIR, TO_RIGHT), "ァぁ");
    EXPECT_EQ(converted("\xEF\xBB\xBF"
                        "a",
                        utl::LOWER_UPPER_PAIR, TO_RIGHT),
              "\xEF\xBB\xBF"
              "A");
}

TEST(ConvertAttrib, OfNull_Fails) {
    char dst[] = "##";
    EXPECT_EQ(convertAttrib<char>(dst, 3, nullptr, utl::LOWER_UPPER_PAIR, TO_RIGHT, 0), INVALID_SIZE);
    EXPECT_EQ(convertAttrib(dst, 3, "a", nullptr, TO_RIGHT, 0), INVALID_SIZE);
    EXPECT_EQ(convertAttrib<char>(nullptr, 3, "a", utl::LOWER_UPPER_PAIR, TO_RIGHT, 0), INVALID_SIZE);
    EXPECT_STREQ(dst, "##");
}

TEST(ConvertAttrib, OfTheEmptyText_IsTheEmptyText) {
    Converted const result(1, "", utl::LOWER_UPPER_PAIR, TO_RIGHT, 0);
    EXPECT_EQ(result.size, 1U);
    EXPECT_STREQ(result.dst.data(), "");
    EXPECT_EQ(convertAttrib<char>(nullptr, 0, "", utl::LOWER_UPPER_PAIR, TO_RIGHT, 0), 1U);
    EXPECT_EQ(convertAttrib<char>(nullptr, 1, "", utl::LOWER_UPPER_PAIR, TO_RIGHT, 0), INVALID_SIZE);
}

TEST(ConvertAttrib, IntoItsSource_Works) {
    char text[16] = "ｶﾞa";
    EXPECT_EQ(convertAttrib(text, sizeof(text), text, utl::HANKAKU_ZENKAKU_PAIR, TO_RIGHT, 0), 7U);
    EXPECT_STREQ(text, "ガａ");
    EXPECT_EQ(convertAttrib(text, sizeof(text), text, utl::HANKAKU_ZENKAKU_PAIR, TO_LEFT, 0), 8U);
    EXPECT_STREQ(text, "ｶﾞa");
}

TEST(ConvertAttrib, WithASizeOfZero_GivesTheSizeThatIsNeeded) {
    EXPECT_EQ(convertAttrib<char>(nullptr, 0, "aｶﾞ漢", utl::HANKAKU_ZENKAKU_PAIR, TO_RIGHT, 0), 10U);
    EXPECT_EQ(convertAttrib<char>(nullptr, 0, "aｶﾞ漢", utl::HANKAKU_ZENKAKU_PAIR, TO_RIGHT, 1), 10U);
}

TEST(ConvertAttrib, OfTextThatDoesNotFit_FailsAndKeepsWhatCameInFront) {
    Converted const fits(7, "ab", utl::HANKAKU_ZENKAKU_PAIR, TO_RIGHT, 0);
    EXPECT_EQ(fits.size, 7U);
    EXPECT_STREQ(fits.dst.data(), "ａｂ");
    Converted const tooLong(6, "ab", utl::HANKAKU_ZENKAKU_PAIR, TO_RIGHT, 0);
    EXPECT_EQ(tooLong.size, INVALID_SIZE);
    EXPECT_STREQ(tooLong.dst.data(), "ａ");
    Converted const nothing(3, "ab", utl::HANKAKU_ZENKAKU_PAIR, TO_RIGHT, 2);
    EXPECT_EQ(nothing.size, INVALID_SIZE);
    EXPECT_EQ(nothing.held(), "###");
}

TEST(ConvertAttrib, WithTruncateOne_CutsBehindTheLastCharacterThatFits) {
    unsigned int const sizes[] = {1, 1, 1, 4, 4, 4, 7, 7};
    for (unsigned int dstSize = 1; dstSize <= 8; ++dstSize) {
        Converted const result(dstSize, "ab", utl::HANKAKU_ZENKAKU_PAIR, TO_RIGHT, 1);
        EXPECT_EQ(result.size, sizes[dstSize - 1]) << dstSize;
        EXPECT_EQ(result.dst[result.size - 1], '\0');
        EXPECT_EQ(std::string(result.dst.data()), std::string("ａｂ").substr(0, result.size - 1));
    }
}

TEST(ConvertAttrib, WithTruncateOne_CutsInsideAFormOfTwoCharacters) {
    Converted const result(5, "ヴ", utl::ZENKATA_HIRAGANA_PAIR, TO_RIGHT, 1);
    EXPECT_EQ(result.size, 4U);
    EXPECT_STREQ(result.dst.data(), "う");
}

TEST(ConvertAttrib, BehindACut_WritesNothingMoreEvenIfItWouldFit) {
    Converted const unmatched(3, "a漢b", utl::LOWER_UPPER_PAIR, TO_RIGHT, 1);
    EXPECT_EQ(unmatched.size, 2U);
    EXPECT_STREQ(unmatched.dst.data(), "A");
    Converted const matched(3, "ａb", utl::LOWER_UPPER_PAIR, TO_RIGHT, 1);
    EXPECT_EQ(matched.size, 1U);
    EXPECT_STREQ(matched.dst.data(), "");
}

TEST(ConvertAttrib, OfMalformedText_EndsAtTheFirstMalformedByte) {
    EXPECT_EQ(converted("ab\xFF"
                        "cd",
                        utl::LOWER_UPPER_PAIR, TO_RIGHT),
              "AB");
    EXPECT_EQ(converted("ab\xE3\x81", utl::LOWER_UPPER_PAIR, TO_RIGHT), "AB");
    EXPECT_EQ(converted("漢\xE3\x81z", utl::LOWER_UPPER_PAIR, TO_RIGHT), "漢");
}

TEST(ConvertAttrib, InFrontOfAByteThatStartsNoCharacter_DropsACharacterThatNoRowHas) {
    Converted const unmatched(8, "a漢\xFFz", utl::LOWER_UPPER_PAIR, TO_RIGHT, 0);
    EXPECT_EQ(unmatched.size, 2U);
    EXPECT_STREQ(unmatched.dst.data(), "A");
    Converted const matched(8, "漢a\x80z", utl::LOWER_UPPER_PAIR, TO_RIGHT, 0);
    EXPECT_EQ(matched.size, 5U);
    EXPECT_STREQ(matched.dst.data(), "漢A");
}

TEST(ConvertAttrib, WithASizeOfZero_CountsTheCharacterThatIsDroppedInFrontOfSuchAByte) {
    EXPECT_EQ(convertAttrib<char>(nullptr, 0, "a漢\xFFz", utl::LOWER_UPPER_PAIR, TO_RIGHT, 0), 5U);
}

TEST(ConvertAttrib, OfTextThatBeginsMalformed_IsTheEmptyText) {
    Converted const result(2, "\x80z", utl::LOWER_UPPER_PAIR, TO_RIGHT, 0);
    EXPECT_EQ(result.size, 1U);
    EXPECT_EQ(result.held(), std::string("\0#", 2));
    EXPECT_EQ(convertAttrib<char>(nullptr, 0, "\x80", utl::LOWER_UPPER_PAIR, TO_RIGHT, 0), 1U);
}

TEST(ConvertAttrib, TakesTextsUpToTheSizeOfTheScratchBuffer) {
    std::string text(LONGEST_TEXT, 'a');
    EXPECT_EQ(converted(text, utl::LOWER_UPPER_PAIR, TO_RIGHT), std::string(LONGEST_TEXT, 'A'));
    text += 'a';
    std::vector<char> dst(20000, UNUSED);
    EXPECT_EQ(convertAttrib(dst.data(), 20000, text.c_str(), utl::LOWER_UPPER_PAIR, TO_RIGHT, 0),
              INVALID_SIZE);
    EXPECT_EQ(convertAttrib(dst.data(), 20000, text.c_str(), utl::LOWER_UPPER_PAIR, TO_RIGHT, 1),
              INVALID_SIZE);
    EXPECT_EQ(dst[0], UNUSED);
}

TEST(ConvertAttrib, WritesMoreThanTheScratchBufferHolds) {
    std::string const text(LONGEST_TEXT, 'a');
    EXPECT_EQ(converted(text, utl::HANKAKU_ZENKAKU_PAIR, TO_RIGHT).size(), 3 * LONGEST_TEXT);
}

TEST(ConvertAttrib, TakesTheCallersOwnTables) {
    PairAttrib const table[] = {{"ab", L"ab", "x", L"x"}, {"a", L"a", "yz", L"yz"}, {"b", L"b", "", L""}, {}};
    EXPECT_EQ(converted("aabba", table, TO_RIGHT), "yzxyz");
    EXPECT_EQ(converted("xyz", table, TO_LEFT), "aba");
}

TEST(ConvertAttrib, TakesAPartOfALibrarysTable) {
    EXPECT_EQ(converted("ab", utl::LOWER_UPPER_PAIR + 1, TO_RIGHT), "aB");
}

TEST(ConvertAttrib, WithAnEmptyTable_Copies) {
    PairAttrib const table[] = {{}};
    EXPECT_EQ(converted("aガ", table, TO_RIGHT), "aガ");
}

TEST(ConvertAttrib, TakesANullFormForTheEmptyOneWhenItLooksForIt) {
    PairAttrib const table[] = {{"a", L"a", "x", L"x"}, {"b", L"b", nullptr, nullptr}, {}};
    Converted const result(4, "xc", table, TO_LEFT, 0);
    EXPECT_EQ(result.size, INVALID_SIZE);
    EXPECT_STREQ(result.dst.data(), "abb");
}

TEST(ConvertAttrib, WithANullFormToWrite_Fails) {
    PairAttrib const table[] = {{"b", L"b", nullptr, nullptr}, {}};
    Converted const result(4, "ab", table, TO_RIGHT, 0);
    EXPECT_EQ(result.size, INVALID_SIZE);
    EXPECT_STREQ(result.dst.data(), "a");
    EXPECT_EQ(Converted(2, "漢b", table, TO_RIGHT, 1).size, INVALID_SIZE);
}

TEST(ConvertAttrib, OfAnEmptyText_DoesNotLookAtTheTable) {
    for (PairAttrib const* table : {static_cast<PairAttrib const*>(utl::LOWER_UPPER_PAIR), NO_TABLE}) {
        Converted const result(1, "", table, TO_RIGHT, 0);
        EXPECT_EQ(result.size, 1U);
        EXPECT_EQ(result.held(), std::string(1, '\0'));
        EXPECT_EQ(convertAttrib<char>(nullptr, 0, "", table, TO_RIGHT, 0), 1U);
        EXPECT_EQ(convertAttrib<char>(nullptr, 1, "", table, TO_RIGHT, 0), INVALID_SIZE);
        char untouched = UNUSED;
        EXPECT_EQ(convertAttrib(&untouched, 0, "", table, TO_RIGHT, 0), 1U);
        EXPECT_EQ(untouched, UNUSED);
    }
}

TEST(ConvertAttrib, WithoutATable_FailsAndLeavesTheDestinationAlone) {
    Converted const result(4, "a", NO_TABLE, TO_RIGHT, 0);
    EXPECT_EQ(result.size, INVALID_SIZE);
    EXPECT_EQ(result.held(), "####");
    EXPECT_EQ(convertAttrib<char>(nullptr, 0, "a", NO_TABLE, TO_RIGHT, 0), INVALID_SIZE);
}

TEST(ConvertAttrib, LeavesTwoLoansOfItsCallerAloneAndUsesTheSlotOfTheThird) {
    utl::WorkingBuffer<char> const first;
    utl::WorkingBuffer<char> const second;
    std::strcpy(first.get(), "first");
    std::strcpy(second.get(), "second");
    EXPECT_EQ(converted("ｶﾞａ", utl::HANKAKU_ZENKAKU_PAIR, TO_RIGHT), "ガａ");
    utl::WorkingBuffer<char> const third;
    std::strcpy(third.get(), "third");
    EXPECT_EQ(converted("ｶﾞａ", utl::HANKAKU_ZENKAKU_PAIR, TO_RIGHT), "ガａ");
    EXPECT_STREQ(first.get(), "first");
    EXPECT_STREQ(second.get(), "second");
    EXPECT_STREQ(third.get(), "ｶﾞａ");
}

TEST(ConvertAttrib, WaitsForTheScratchBuffer) {
    EXPECT_TRUE(waitsForScratch([] { converted("a", utl::LOWER_UPPER_PAIR, TO_RIGHT); }));
}

TEST(ConvertAttrib, MakesTheTextThatTheGuideShows) {
    char dst[64];
    unsigned int const used = utl::convertAttrib(dst, sizeof(dst), "ｶﾞﾗｽ", utl::HANKATA_HIRAGANA_PAIR, 0, 1);
    int const hiragana = utl::ATTRIB_NODAKU_HIRA | utl::ATTRIB_DAKU_HIRA | utl::ATTRIB_HANDAKU_HIRA;
    bool const isHiragana = utl::isStrAttribBase(dst, hiragana);
    EXPECT_EQ(used, 10U);
    EXPECT_TRUE(isHiragana);
    EXPECT_STREQ(dst, "がらす");
}

// --- convertCharSet

TEST(ConvertCharSet, CopiesWholeTextsAlone) {
    char dst[] = "####";
    EXPECT_EQ(convertCharSet(dst, 4, "あ"), 4U);
    EXPECT_STREQ(dst, "あ");
    EXPECT_EQ(convertCharSet(dst, 3, "abc"), INVALID_SIZE);
    EXPECT_STREQ(dst, "あ");
    EXPECT_EQ(convertCharSet(nullptr, 0, "あ"), 4U);
    EXPECT_EQ(convertCharSet(nullptr, 4, "あ"), INVALID_SIZE);
    EXPECT_EQ(convertCharSet(dst, 4, nullptr), INVALID_SIZE);
    EXPECT_EQ(convertCharSet(dst, 4, ""), 1U);
    EXPECT_STREQ(dst, "");
}

TEST(ConvertCharSet, KeepsMalformedBytes) {
    char dst[8] = "";
    EXPECT_EQ(convertCharSet(dst, sizeof(dst), "a\x80\xE3"), 4U);
    EXPECT_STREQ(dst, "a\x80\xE3");
}

TEST(ConvertCharSet, HasNoLimitOnTheLength) {
    std::string const text(20000, 'a');
    std::vector<char> dst(20001, UNUSED);
    EXPECT_EQ(convertCharSet(dst.data(), 20001, text.c_str()), 20001U);
    EXPECT_EQ(dst.data(), text);
}

TEST(ConvertCharSet, DoesNotWaitForTheScratchBuffer) {
    char dst[4] = "";
    EXPECT_FALSE(waitsForScratch([&] { convertCharSet(dst, 4, "a"); }));
    EXPECT_STREQ(dst, "a");
}

// --- compareStrNoCase

TEST(CompareStrNoCase, OfTextsThatDifferInCaseAlone_IsZero) {
    EXPECT_EQ(compareStrNoCase("aBc", "AbC", INVALID_SIZE), 0);
    EXPECT_EQ(compareStrNoCase("ａｂＣ漢ア", "ＡＢｃ漢ア", INVALID_SIZE), 0);
    EXPECT_EQ(compareStrNoCase("", "", INVALID_SIZE), 0);
}

TEST(CompareStrNoCase, OfOtherTexts_HasTheSignOfTheLowerCaseForms) {
    EXPECT_LT(compareStrNoCase("A", "b", INVALID_SIZE), 0);
    EXPECT_GT(compareStrNoCase("b", "A", INVALID_SIZE), 0);
    EXPECT_GT(compareStrNoCase("A", "_", INVALID_SIZE), 0);
    EXPECT_LT(compareStrNoCase("a", "ab", INVALID_SIZE), 0);
    EXPECT_NE(compareStrNoCase("a", "ａ", INVALID_SIZE), 0);
    EXPECT_NE(compareStrNoCase("é", "É", INVALID_SIZE), 0);
}

TEST(CompareStrNoCase, LooksAtSoManyBytes) {
    EXPECT_EQ(compareStrNoCase("abX", "ABy", 2), 0);
    EXPECT_LT(compareStrNoCase("abX", "ABy", 3), 0);
    EXPECT_EQ(compareStrNoCase("a", "b", 0), 0);
}

TEST(CompareStrNoCase, TakesNullForTheEmptyText) {
    for (unsigned int length : {0U, 1U, INVALID_SIZE}) {
        EXPECT_EQ(compareStrNoCase<char>(nullptr, "", length), 0);
        EXPECT_EQ(compareStrNoCase<char>("", nullptr, length), 0);
        EXPECT_EQ(compareStrNoCase<char>(nullptr, nullptr, length), 0);
    }
    EXPECT_LT(compareStrNoCase<char>(nullptr, "a", 1), 0);
    EXPECT_GT(compareStrNoCase<char>("a", nullptr, 1), 0);
}

TEST(CompareStrNoCase, TakesATextThatIsTooLongForTheEmptyOne) {
    std::string const longest(LONGEST_TEXT, 'a');
    std::string const tooLong(LONGEST_TEXT + 1, 'a');
    compareStrNoCase("zzz", "zzz", INVALID_SIZE);
    EXPECT_EQ(compareStrNoCase(longest.c_str(), std::string(LONGEST_TEXT, 'A').c_str(), INVALID_SIZE), 0);
    EXPECT_EQ(compareStrNoCase(tooLong.c_str(), "", INVALID_SIZE), 0);
    EXPECT_EQ(compareStrNoCase("", tooLong.c_str(), INVALID_SIZE), 0);
    EXPECT_LT(compareStrNoCase(tooLong.c_str(), "a", INVALID_SIZE), 0);
}

TEST(CompareStrNoCase, EndsATextAtItsFirstMalformedByte) {
    EXPECT_EQ(compareStrNoCase("ab\xE3zz", "AB", INVALID_SIZE), 0);
    EXPECT_EQ(compareStrNoCase("\x80zz", "", INVALID_SIZE), 0);
    EXPECT_EQ(compareStrNoCase("AB\x80", "ab", INVALID_SIZE), 0);
    EXPECT_EQ(compareStrNoCase("ab\x80", "a", INVALID_SIZE), 0);
}

// All three slots are in use then: what a loan of the caller takes away is the copy that is converted.
TEST(CompareStrNoCase, WithALoanOfItsCaller_MistakesDifferentTexts) {
    EXPECT_LT(compareStrNoCase("a", "aB", 9), 0);
    utl::WorkingBuffer<char> const mine;
    EXPECT_EQ(compareStrNoCase("a", "aB", 9), 0);
}

TEST(CompareStrNoCase, WaitsForTheScratchBuffer) {
    EXPECT_TRUE(waitsForScratch([] { compareStrNoCase("a", "b", 1); }));
}

// --- strToInt

constexpr unsigned short UNTOUCHED = 12345;

// The number that is read, or -1 for a failure that left the value alone.
int numberOf(char const* text, int base) {
    unsigned short value = UNTOUCHED;
    if (!strToInt(&value, text, base)) {
        EXPECT_EQ(value, UNTOUCHED) << text;
        return -1;
    }
    return value;
}

TEST(StrToInt, OfNull_Fails) {
    unsigned short value = UNTOUCHED;
    EXPECT_FALSE(strToInt<unsigned short>(nullptr, "1", 10));
    EXPECT_FALSE((strToInt<unsigned short, char>(&value, nullptr, 10)));
    EXPECT_EQ(value, UNTOUCHED);
}

TEST(StrToInt, TakesBasesFromTwoToThirtySixAndZero) {
    EXPECT_EQ(numberOf("1", -1), -1);
    EXPECT_EQ(numberOf("1", 0), 1);
    EXPECT_EQ(numberOf("1", 1), -1);
    EXPECT_EQ(numberOf("101", 2), 5);
    EXPECT_EQ(numberOf("zz", 36), 1295);
    EXPECT_EQ(numberOf("1", 37), -1);
}

TEST(StrToInt, GoesUpToTheLargestValue) {
    EXPECT_EQ(numberOf("65534", 10), 65534);
    EXPECT_EQ(numberOf("65535", 10), 65535);
    EXPECT_EQ(numberOf("65536", 10), -1);
    EXPECT_EQ(numberOf("65540", 10), -1);
    EXPECT_EQ(numberOf("99999999999999999999", 10), -1);
    EXPECT_EQ(numberOf("ffff", 16), 65535);
    EXPECT_EQ(numberOf("10000", 16), -1);
    EXPECT_EQ(numberOf("1111111111111111", 2), 65535);
    EXPECT_EQ(numberOf("11111111111111111", 2), -1);
    EXPECT_EQ(numberOf("1ekf", 36), 65535);
    EXPECT_EQ(numberOf("1ekg", 36), -1);
}

TEST(StrToInt, EndsTheNumberAtTheFirstCharacterThatIsNoDigitOfTheBase) {
    EXPECT_EQ(numberOf("12ab", 10), 12);
    EXPECT_EQ(numberOf("12 3", 10), 12);
    EXPECT_EQ(numberOf("128", 8), 10);
    EXPECT_EQ(numberOf("1漢", 10), 1);
    EXPECT_EQ(numberOf("1g", 16), 1);
}

TEST(StrToInt, WithoutADigit_Fails) {
    EXPECT_EQ(numberOf("", 10), -1);
    EXPECT_EQ(numberOf("+", 10), -1);
    EXPECT_EQ(numberOf("ab", 10), -1);
    EXPECT_EQ(numberOf(" 1", 10), -1);
    EXPECT_EQ(numberOf("8", 8), -1);
}

TEST(StrToInt, SkipsOnePlusAndTakesNoMinus) {
    EXPECT_EQ(numberOf("+7", 10), 7);
    EXPECT_EQ(numberOf("++7", 10), -1);
    EXPECT_EQ(numberOf("+-7", 10), -1);
    EXPECT_EQ(numberOf("-7", 10), -1);
    EXPECT_EQ(numberOf("-", 10), -1);
    EXPECT_EQ(numberOf("＋７", 10), 7);
    EXPECT_EQ(numberOf("－７", 10), -1);
}

TEST(StrToInt, WithBaseZero_TakesTheBaseFromThePrefix) {
    EXPECT_EQ(numberOf("12", 0), 12);
    EXPECT_EQ(numberOf("0x1F", 0), 31);
    EXPECT_EQ(numberOf("+0x1f", 0), 31);
    EXPECT_EQ(numberOf("017", 0), 15);
    EXPECT_EQ(numberOf("００", 0), 0);
    EXPECT_EQ(numberOf("０ｘ１Ｆ", 0), 31);
}

TEST(StrToInt, WithBaseZero_TakesAPrefixWithoutANumberForNone) {
    EXPECT_EQ(numberOf("0", 0), -1);
    EXPECT_EQ(numberOf("+0", 0), -1);
    EXPECT_EQ(numberOf("0x", 0), -1);
    EXPECT_EQ(numberOf("0xg", 0), -1);
    EXPECT_EQ(numberOf("08", 0), -1);
    EXPECT_EQ(numberOf("0X1", 0), -1);
    EXPECT_EQ(numberOf("00", 0), 0);
}

TEST(StrToInt, WithABase_TakesNoPrefix) {
    EXPECT_EQ(numberOf("0x1F", 16), 0);
    EXPECT_EQ(numberOf("0", 10), 0);
    EXPECT_EQ(numberOf("010", 8), 8);
    EXPECT_EQ(numberOf("0", 8), 0);
}

TEST(StrToInt, TakesLettersOfEitherCaseAndWidth) {
    EXPECT_EQ(numberOf("aF", 16), 175);
    EXPECT_EQ(numberOf("ａＦ", 16), 175);
    EXPECT_EQ(numberOf("zZ", 36), 1295);
    EXPECT_EQ(numberOf("１２３", 10), 123);
    EXPECT_EQ(numberOf("１2３", 10), 123);
}

TEST(StrToInt, EndsTheNumberWhereTheTextIsMalformed) {
    EXPECT_EQ(numberOf("１２\x80", 10), 12);
    EXPECT_EQ(numberOf("12\xE3", 10), 12);
    EXPECT_EQ(numberOf("12\x80", 10), 1);
    EXPECT_EQ(numberOf("\x80", 10), -1);
}

TEST(StrToInt, OfTextThatIsTooLong_Fails) {
    std::string const zeros(LONGEST_TEXT, '0');
    EXPECT_EQ(numberOf(zeros.c_str(), 10), 0);
    EXPECT_EQ(numberOf((zeros + '0').c_str(), 10), -1);
    std::string wide = "1";
    while (wide.size() <= LONGEST_TEXT / 2 + 3) {
        wide += "ガ";
    }
    EXPECT_EQ(numberOf(wide.c_str(), 10), -1);
}

TEST(StrToInt, WithOneLoanOfItsCaller_IsRightAndWithTwoLosesDigits) {
    utl::WorkingBuffer<char> const first;
    EXPECT_EQ(numberOf("1２", 10), 12);
    utl::WorkingBuffer<char> const second;
    EXPECT_EQ(numberOf("1２", 10), 1);
}

TEST(StrToInt, WaitsForTheScratchBuffer) {
    EXPECT_TRUE(waitsForScratch([] {
        unsigned short value = 0;
        strToInt(&value, "1", 10);
    }));
}

TEST(AttribConvert, TakesNothingFromTheHeap) {
    char dst[32] = "";
    unsigned short value = 0;
    strToInt(&value, "1", 10);
    unsigned int const before = utltest::allocations();
    convertAttrib(dst, sizeof(dst), "漢ｶﾞa", utl::HANKAKU_ZENKAKU_PAIR, TO_RIGHT, 0);
    compareStrNoCase("a", "A", 1);
    strToInt(&value, "１２", 10);
    EXPECT_EQ(utltest::allocations(), before);
}

// --- to the byte

/// A buffer of exactly `size` after a conversion into it, and the conversion's result.
struct ExactlyConverted {
    ExactlyConverted(std::string const& src, PairAttrib const* table, int direction, unsigned int size,
                     int truncate = 0)
        : buffer(size, '#'),
          used(convertAttrib<char>(buffer.data(), size, exactly(src).data(), table, direction, truncate)) {}

    std::string text() const { return buffer.data(); }

    std::vector<char> buffer;
    unsigned int used;
};

/// The converted text. The size that the conversion asks for must be the one that it uses and that just
/// suffices.
std::string convertedExactly(std::string const& src, PairAttrib const* table, int direction) {
    unsigned int const needed = convertAttrib<char>(nullptr, 0, exactly(src).data(), table, direction, 0);
    ExactlyConverted const fits(src, table, direction, needed);
    EXPECT_EQ(fits.used, needed) << src;
    EXPECT_EQ(fits.text().size() + 1, needed) << src;
    if (needed > 1) {
        EXPECT_EQ(ExactlyConverted(src, table, direction, needed - 1).used, INVALID_SIZE) << src;
    }
    return fits.text();
}

/// The number, or -1 where there is none and the value was left alone.
int numberOf(std::string const& text, int base) {
    unsigned short value = 0xBEEF;
    if (strToInt<unsigned short, char>(&value, exactly(text).data(), base)) {
        return value;
    }
    EXPECT_EQ(value, 0xBEEF) << text;
    return -1;
}

int compared(std::string const& left, std::string const& right, unsigned int length) {
    return compareStrNoCase<char>(exactly(left).data(), exactly(right).data(), length);
}

std::string inBase(unsigned int value, unsigned int base) {
    std::string digits;
    for (; value != 0; value /= base) {
        digits.insert(digits.begin(), "0123456789abcdefghijklmnopqrstuvwxyz"[value % base]);
    }
    return digits;
}

std::string repeated(std::string const& piece, unsigned int count) {
    std::string text;
    for (unsigned int i = 0; i < count; ++i) {
        text += piece;
    }
    return text;
}

TEST(AttribConvert, ConvertAttrib_OfMarksBehindUnvoicedKana_DeletesThemAlsoAtTheVeryEndOfTheBuffer) {
    EXPECT_EQ(convertedExactly("ｶﾞﾞ゛", utl::NODAKUON_DAKUON_PAIR, 1), "ｶ");
    EXPECT_EQ(convertedExactly("゛", utl::NODAKUON_DAKUON_PAIR, 1), "");
    EXPECT_EQ(convertedExactly("゜漢ﾟぱ", utl::NODAKUON_HANDAKUON_PAIR, -1), "漢は");
    EXPECT_EQ(ExactlyConverted("ﾟ", utl::NODAKUON_HANDAKUON_PAIR, 2, 1).used, 1U);
}

TEST(AttribConvert, ConvertAttrib_OfWhatNoRowHas_LeavesItAsItIs) {
    std::string const strangers =
        "漢" + utf8Of(0xFFE3) + utf8Of(0xFF02) + utf8Of(0x301C) + "ヮヵ々\xF0\x9F\x98\x80\t";
    EXPECT_EQ(convertedExactly(strangers, utl::HANKAKU_ZENKAKU_PAIR, 1), strangers);
    EXPECT_EQ(
        convertedExactly(utf8Of(0xFF5E) + utf8Of(0xFFE5) + utf8Of(0x201D) + utf8Of(0x2019) + utf8Of(0x3000),
                         utl::HANKAKU_ZENKAKU_PAIR, 1),
        "~\\\"' ");
    EXPECT_EQ(convertedExactly(BYTE_ORDER_MARK + std::string("a"), utl::LOWER_UPPER_PAIR, 0),
              BYTE_ORDER_MARK + std::string("A"));
}

TEST(AttribConvert, ConvertAttrib_OfATableOfTheCallers_TakesTheFirstRowAndNotTheLongest) {
    utl::PairAttrib const table[] = {{"a", L"a", "1", L"1"},
                                     {"ab", L"ab", "2", L"2"},
                                     {"b", L"b", "", L""},
                                     {"漢字", L"", "1", L""},
                                     utl::PairAttrib()};
    EXPECT_EQ(convertedExactly("abab漢字漢", table, 0), "111漢");
    EXPECT_EQ(convertedExactly("21", table, 2),
              "ab"
              "a");
    EXPECT_EQ(convertedExactly("a漢", table + 4, 0), "a漢");
}

TEST(AttribConvert, ConvertAttrib_IntoEveryTooSmallBuffer_CutsBehindTheLastCharacterThatFits) {
    std::vector<std::string> const whole = {"a", "ｶ", "ﾞ", "b", "漢", "c", "é", "\xF0\x9F\x98\x80",
                                            "ﾊ", "ﾟ", "d", "e"};
    std::string const src = "aガb漢cé\xF0\x9F\x98\x80パｄe";
    unsigned int const needed = ExactlyConverted(src, utl::HANKAKU_ZENKAKU_PAIR, 1, 64).used;
    for (unsigned int size = 1; size <= needed; ++size) {
        std::string fitting;
        for (auto piece = whole.begin(); piece != whole.end() && fitting.size() + piece->size() < size;
             ++piece) {
            fitting += *piece;
        }
        ExactlyConverted const cut(src, utl::HANKAKU_ZENKAKU_PAIR, 1, size, 1);
        EXPECT_EQ(cut.text(), fitting) << size;
        EXPECT_EQ(cut.used, fitting.size() + 1) << size;
        bool const isEnough = size == needed;
        EXPECT_EQ(ExactlyConverted(src, utl::HANKAKU_ZENKAKU_PAIR, 1, size, 0).used != utl::INVALID_SIZE,
                  isEnough)
            << size;
        EXPECT_EQ(ExactlyConverted(src, utl::HANKAKU_ZENKAKU_PAIR, 1, size, 2).used != utl::INVALID_SIZE,
                  isEnough)
            << size;
    }
}

TEST(AttribConvert, ConvertAttrib_FromAnyPlaceOfItsOwnBuffer_ReadsTheTextAsItWas) {
    for (std::size_t const place : {0U, 1U, 2U, 3U, 5U, 7U}) {
        std::vector<char> buffer(19);
        std::strcpy(buffer.data() + place, "ガギグ");
        EXPECT_EQ(utl::convertAttrib<char>(buffer.data(), 19, buffer.data() + place,
                                           utl::HANKAKU_ZENKAKU_PAIR, 1, 0),
                  19U);
        EXPECT_STREQ(buffer.data(), "ｶﾞｷﾞｸﾞ");
    }
}

TEST(AttribConvert, ConvertAttrib_AtTheScratchLimit_BoundsTheSourceAndNotTheResult) {
    std::string const ascii = convertedExactly(std::string(10239, '!'), utl::HANKAKU_ZENKAKU_PAIR, 0);
    EXPECT_EQ(ascii, repeated("！", 10239));
    std::string const kana = convertedExactly(repeated("ガ", 3413), utl::HANKAKU_ZENKAKU_PAIR, 1);
    EXPECT_EQ(kana, repeated("ｶﾞ", 3413));
    ExactlyConverted const tooLong(std::string(10240, 'a'), utl::LOWER_UPPER_PAIR, 0, 10241, 1);
    EXPECT_EQ(tooLong.used, utl::INVALID_SIZE);
    EXPECT_EQ(tooLong.buffer[0], '#');
    EXPECT_EQ(
        utl::convertAttrib<char>(nullptr, 0, std::string(10240, 'a').c_str(), utl::LOWER_UPPER_PAIR, 0, 0),
        utl::INVALID_SIZE);
}

TEST(AttribConvert, ConvertAttrib_OfMalformedText_EndsThereWithSuccess) {
    EXPECT_EQ(ExactlyConverted("ab\x80"
                               "c",
                               utl::LOWER_UPPER_PAIR, 0, 8)
                  .text(),
              "AB");
    EXPECT_EQ(ExactlyConverted("a漢\xE3\x81", utl::LOWER_UPPER_PAIR, 0, 5).used, 5U);
    EXPECT_EQ(ExactlyConverted("\xFF", utl::LOWER_UPPER_PAIR, 0, 1).used, 1U);
    EXPECT_EQ(ExactlyConverted("\xFF", utl::LOWER_UPPER_PAIR, 0, 1).text(), "");
    EXPECT_EQ(ExactlyConverted("\xC3"
                               "a",
                               utl::LOWER_UPPER_PAIR, 0, 9, 1)
                  .text(),
              "");
    EXPECT_EQ(ExactlyConverted("a漢\xBF", utl::LOWER_UPPER_PAIR, 0, 9).used, 2U);
    EXPECT_EQ(utl::convertAttrib<char>(nullptr, 0, "\xFF", utl::LOWER_UPPER_PAIR, 0, 0), 1U);
}

TEST(AttribConvert, CompareStrNoCase_OfLettersAndTheMarksBetweenTheCases_ComparesLowerCase) {
    EXPECT_GT(compared("A", "_", 1), 0);
    EXPECT_GT(compared("Z", "[", 1), 0);
    EXPECT_LT(compared("{", "Ａ", 1), 0);
    EXPECT_EQ(compared("Ａb漢ｃ", "ａB漢Ｃ", ~0U), 0);
    EXPECT_NE(compared("A", "Ａ", ~0U), 0);
    EXPECT_NE(compared("ア", "ｱ", ~0U), 0);
    EXPECT_EQ(compared("Ａ", "Ｂ", 2), 0);
    EXPECT_NE(compared("Ａ", "Ｂ", 3), 0);
    EXPECT_EQ(compared("a", "b", 0), 0);
    EXPECT_GT(compared("aB", "A", 2), 0);
}

TEST(AttribConvert, StrToInt_InEveryBase_TakesTheLargestNumberAndRefusesTheNext) {
    for (int base = 2; base <= 36; ++base) {
        auto const text = [&](unsigned int value) { return inBase(value, static_cast<unsigned int>(base)); };
        EXPECT_EQ(numberOf(text(65535), base), 65535) << base;
        EXPECT_EQ(numberOf("+000" + text(65535) + "!", base), 65535) << base;
        EXPECT_EQ(numberOf(text(65534), base), 65534) << base;
        EXPECT_EQ(numberOf(text(65536), base), -1) << base;
        EXPECT_EQ(numberOf(text(65536) + "!", base), -1) << base;
        EXPECT_EQ(numberOf(text(65535) + "0", base), -1) << base;
        EXPECT_EQ(numberOf(text(static_cast<unsigned int>(base)), base), base) << base;
    }
}

TEST(AttribConvert, StrToInt_WithBase0_TakesOnePrefixBehindOneSign) {
    EXPECT_EQ(numberOf("+0xfF", 0), 255);
    EXPECT_EQ(numberOf("＋０ｘｆＦ", 0), 255);
    EXPECT_EQ(numberOf("0xFFFF", 0), 65535);
    EXPECT_EQ(numberOf("0x10000", 0), -1);
    EXPECT_EQ(numberOf("0177777", 0), 65535);
    EXPECT_EQ(numberOf("0200000", 0), -1);
    EXPECT_EQ(numberOf("00", 0), 0);
    EXPECT_EQ(numberOf("1x", 0), 1);
    EXPECT_EQ(numberOf("0x0x1", 0), 0);
    for (char const* const text :
         {"0X1F", "08", "0", "+0", "0x", "0xg", "0+1", "+", "++1", "+-1", "-1", "-0", "－1", "", " 1"}) {
        EXPECT_EQ(numberOf(text, 0), -1) << text;
    }
    EXPECT_EQ(numberOf("0x1F", 16), 0);
    EXPECT_EQ(numberOf("0x1", 36), 33 * 36 + 1);
}

TEST(AttribConvert, StrToInt_OfTextThatIsTooLongHalfWidth_FailsThoughTheNumberIsShort) {
    EXPECT_EQ(numberOf("５" + repeated("ガ", 1706), 10), 5);
    EXPECT_EQ(numberOf("５xy" + repeated("ガ", 1706), 10), 5);
    EXPECT_EQ(numberOf("５xyz" + repeated("ガ", 1706), 10), -1);
    EXPECT_EQ(numberOf(repeated("０", 3412) + "７", 10), 7);
    EXPECT_EQ(numberOf(std::string(10239, '0'), 10), 0);
    EXPECT_EQ(numberOf(std::string(10240, '0'), 10), -1);
}

TEST(AttribConvert, StrToInt_OfMalformedText_ReadsWhatAConversionLeaves) {
    EXPECT_EQ(numberOf("1\xC3", 10), 1);
    EXPECT_EQ(numberOf("12\x80", 10), 1);
    EXPECT_EQ(numberOf("1２\x80", 10), 12);
    EXPECT_EQ(numberOf("1\x80", 10), -1);
    EXPECT_EQ(numberOf("\xFF"
                       "1",
                       10),
              -1);
}

TEST(AttribConvert, EveryFunction_OnManyThreadsAtOnce_AnswersForItsOwnText) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([thread] {
            std::string const digits = std::to_string(1000 + thread);
            std::string const text(200, static_cast<char>('a' + thread));
            std::string const upper(200, static_cast<char>('A' + thread));
            for (int i = 0; i < 50; ++i) {
                EXPECT_EQ(numberOf(digits, 10), 1000 + thread);
                EXPECT_EQ(compared(text, upper, ~0U), 0);
                EXPECT_EQ(ExactlyConverted(text, utl::LOWER_UPPER_PAIR, 0, 201).text(), upper);
                EXPECT_EQ(utl::isCharAttribBase<char>((thread % 2 == 0 ? text : upper).c_str(),
                                                      utl::ATTRIB_LOWER_HAN_HEX),
                          thread % 2 == 0);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace

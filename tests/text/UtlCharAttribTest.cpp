#include "UtlCharAttrib.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "TestAllocations.h"
#include "TestScratch.h"
#include "TestTables.h"
#include "TestText.h"
#include "UtlAttribConvert.h"

namespace {

using utl::attribBlockSize;
using utl::findCodeTable;
using utl::INVALID_SIZE;
using utl::isCharAttribBase;
using utl::isStrAttribBase;
using utltest::exactly;
using utltest::utf8Of;
using utltest::waitsForScratch;

static_assert(noexcept(findCodeTable("", utl::KAIGYO_TBL, nullptr)) && noexcept(
                  attribBlockSize("", 0)) && noexcept(isStrAttribBase("", 0)) &&
              !noexcept(isCharAttribBase("", 0)));

constexpr char BOM[] = "\xEF\xBB\xBF";
constexpr int ALL = -1;

// --- the masks

TEST(Attrib, HasTheBitsThatMasksAreStoredWith) {
    EXPECT_EQ(utl::ATTRIB_NUL, 0x1);
    EXPECT_EQ(utl::ATTRIB_KAIGYO, 0x2);
    EXPECT_EQ(utl::ATTRIB_TAB_FF, 0x4);
    EXPECT_EQ(utl::ATTRIB_CTL_OTHER, 0x8);
    EXPECT_EQ(utl::ATTRIB_HAN_SPACE, 0x10);
    EXPECT_EQ(utl::ATTRIB_ZEN_SPACE, 0x20);
    EXPECT_EQ(utl::ATTRIB_HAN_MARK, 0x40);
    EXPECT_EQ(utl::ATTRIB_ZEN_MARK, 0x80);
    EXPECT_EQ(utl::ATTRIB_HAN_DIGIT, 0x100);
    EXPECT_EQ(utl::ATTRIB_ZEN_DIGIT, 0x200);
    EXPECT_EQ(utl::ATTRIB_HAN_SIGNED, 0x400);
    EXPECT_EQ(utl::ATTRIB_ZEN_SIGNED, 0x800);
    EXPECT_EQ(utl::ATTRIB_HAN_HEX, 0x1000);
    EXPECT_EQ(utl::ATTRIB_ZEN_HEX, 0x2000);
    EXPECT_EQ(utl::ATTRIB_LOWER_HAN_HEX, 0x4000);
    EXPECT_EQ(utl::ATTRIB_LOWER_ZEN_HEX, 0x8000);
    EXPECT_EQ(utl::ATTRIB_LOWER_HAN_NOHEX, 0x10000);
    EXPECT_EQ(utl::ATTRIB_LOWER_ZEN_NOHEX, 0x20000);
    EXPECT_EQ(utl::ATTRIB_UPPER_HAN_HEX, 0x40000);
    EXPECT_EQ(utl::ATTRIB_UPPER_ZEN_HEX, 0x80000);
    EXPECT_EQ(utl::ATTRIB_UPPER_HAN_NOHEX, 0x100000);
    EXPECT_EQ(utl::ATTRIB_UPPER_ZEN_NOHEX, 0x200000);
    EXPECT_EQ(utl::ATTRIB_NODAKU_HAN_KATA, 0x400000);
    EXPECT_EQ(utl::ATTRIB_NODAKU_ZEN_KATA, 0x800000);
    EXPECT_EQ(utl::ATTRIB_DAKU_HAN_KATA, 0x1000000);
    EXPECT_EQ(utl::ATTRIB_DAKU_ZEN_KATA, 0x2000000);
    EXPECT_EQ(utl::ATTRIB_HANDAKU_HAN_KATA, 0x4000000);
    EXPECT_EQ(utl::ATTRIB_HANDAKU_ZEN_KATA, 0x8000000);
    EXPECT_EQ(utl::ATTRIB_NODAKU_HIRA, 0x10000000);
    EXPECT_EQ(utl::ATTRIB_DAKU_HIRA, 0x20000000);
    EXPECT_EQ(utl::ATTRIB_HANDAKU_HIRA, 0x40000000);
    EXPECT_EQ(static_cast<unsigned int>(utl::ATTRIB_OTHER), 0x80000000U);
}

// --- findCodeTable

TEST(FindCodeTable, OfNull_IsNullAndMovesNothing) {
    unsigned int position = 7;
    EXPECT_EQ(findCodeTable<char>(nullptr, utl::HAN_DIGIT_TBL, &position), nullptr);
    EXPECT_EQ(findCodeTable("1", nullptr, &position), nullptr);
    EXPECT_EQ(findCodeTable("1", utl::HAN_DIGIT_TBL, nullptr), nullptr);
    EXPECT_EQ(position, 7U);
}

TEST(FindCodeTable, InAnEmptyTable_IsNull) {
    utl::CodeTableRow const table[] = {{}};
    unsigned int position = 0;
    EXPECT_EQ(findCodeTable("1", table, &position), nullptr);
}

TEST(FindCodeTable, OnAMatch_GivesTheRowAndMovesBehindIt) {
    unsigned int position = 1;
    EXPECT_EQ(findCodeTable("x９y", utl::ZEN_DIGIT_TBL, &position), utl::ZEN_DIGIT_TBL[9].mNarrow);
    EXPECT_EQ(position, 4U);
}

TEST(FindCodeTable, WithoutAMatch_IsNullAndStays) {
    unsigned int position = 1;
    EXPECT_EQ(findCodeTable("9x", utl::HAN_DIGIT_TBL, &position), nullptr);
    EXPECT_EQ(position, 1U);
}

TEST(FindCodeTable, AtTheEndOfTheText_IsNull) {
    unsigned int position = 1;
    EXPECT_EQ(findCodeTable("9", utl::HAN_DIGIT_TBL, &position), nullptr);
    EXPECT_EQ(position, 1U);
}

TEST(FindCodeTable, TakesTheFirstOfSeveralMatchingRows) {
    utl::CodeTableRow const table[] = {{"b", L"b"}, {"a", L"a"}, {"ab", L"ab"}, {}};
    unsigned int position = 0;
    EXPECT_EQ(findCodeTable("ab", table, &position), table[1].mNarrow);
    EXPECT_EQ(position, 1U);
}

TEST(FindCodeTable, ComparesAllCharactersOfARow) {
    unsigned int position = 0;
    EXPECT_STREQ(findCodeTable("ｶﾞ", utl::DAKU_HAN_KATA_TBL, &position), "ｶﾞ");
    EXPECT_EQ(position, 6U);
    position = 0;
    EXPECT_EQ(findCodeTable("ｶ", utl::DAKU_HAN_KATA_TBL, &position), nullptr);
}

TEST(FindCodeTable, GoesOnBehindARowOfWhichOneFormIsThere) {
    utl::CodeTableRow const table[] = {{nullptr, L"a"}, {"a", nullptr}, {}};
    unsigned int position = 0;
    EXPECT_EQ(findCodeTable("a", table, &position), table[1].mNarrow);
}

TEST(FindCodeTable, FindsAnEmptyRowEverywhere) {
    utl::CodeTableRow const table[] = {{"b", L"b"}, {"", L""}, {}};
    unsigned int position = 0;
    EXPECT_EQ(findCodeTable("a", table, &position), table[1].mNarrow);
    EXPECT_EQ(position, 0U);
}

// --- attribBlockSize

TEST(AttribBlockSize, OfNull_IsAFailure) {
    EXPECT_EQ(attribBlockSize<char>(nullptr, ALL), INVALID_SIZE);
}

TEST(AttribBlockSize, OfTheEnd_IsOneForNulAndAFailureForAllElse) {
    EXPECT_EQ(attribBlockSize("", utl::ATTRIB_NUL), 1U);
    EXPECT_EQ(attribBlockSize("", utl::ATTRIB_KAIGYO), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("", ALL), 1U);
    EXPECT_EQ(attribBlockSize("", ALL & ~utl::ATTRIB_NUL), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("", utl::ATTRIB_OTHER), INVALID_SIZE);
}

TEST(AttribBlockSize, OfNulInFrontOfText_IsAFailure) {
    EXPECT_EQ(attribBlockSize("1", utl::ATTRIB_NUL), INVALID_SIZE);
}

TEST(AttribBlockSize, OfAnEmptyMask_IsAFailure) {
    EXPECT_EQ(attribBlockSize("1", 0), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("", 0), INVALID_SIZE);
}

TEST(AttribBlockSize, OfATableRow_IsItsLength) {
    EXPECT_EQ(attribBlockSize("\r\n", utl::ATTRIB_KAIGYO), 1U);
    EXPECT_EQ(attribBlockSize("　", utl::ATTRIB_ZEN_SPACE), 3U);
    EXPECT_EQ(attribBlockSize("”x", utl::ATTRIB_ZEN_MARK), 3U);
    EXPECT_EQ(attribBlockSize("ぁ", utl::ATTRIB_NODAKU_HIRA), 3U);
}

TEST(AttribBlockSize, TakesTheHighestBitThatMatchesAndNotTheLongestUnit) {
    EXPECT_EQ(attribBlockSize("12ab", utl::ATTRIB_HAN_DIGIT), 1U);
    EXPECT_EQ(attribBlockSize("12ab", utl::ATTRIB_HAN_DIGIT | utl::ATTRIB_HAN_HEX), 4U);
    EXPECT_EQ(attribBlockSize("ab12", utl::ATTRIB_HAN_HEX | utl::ATTRIB_LOWER_HAN_HEX), 1U);
    EXPECT_EQ(attribBlockSize("+12", utl::ATTRIB_HAN_SIGNED | utl::ATTRIB_HAN_MARK), 3U);
    EXPECT_EQ(attribBlockSize("+x", utl::ATTRIB_HAN_SIGNED | utl::ATTRIB_HAN_MARK), 1U);
}

TEST(AttribBlockSize, OfAPunctuationMark_IsADifferentUnitInEachKanaTable) {
    EXPECT_EQ(attribBlockSize("。ぁ", utl::ATTRIB_NODAKU_HIRA), 3U);
    EXPECT_EQ(attribBlockSize("。ぁ", utl::ATTRIB_DAKU_HIRA), 6U);
    EXPECT_EQ(attribBlockSize("。ぁ", utl::ATTRIB_HANDAKU_HIRA), 6U);
    EXPECT_EQ(attribBlockSize("。ァ", utl::ATTRIB_NODAKU_ZEN_KATA), 3U);
    EXPECT_EQ(attribBlockSize("。ァ", utl::ATTRIB_DAKU_ZEN_KATA), INVALID_SIZE);
}

TEST(AttribBlockSize, OfASignedNumber_NeedsSignAndDigits) {
    EXPECT_EQ(attribBlockSize("+12", utl::ATTRIB_HAN_SIGNED), 3U);
    EXPECT_EQ(attribBlockSize("-7x", utl::ATTRIB_HAN_SIGNED), 2U);
    EXPECT_EQ(attribBlockSize("+", utl::ATTRIB_HAN_SIGNED), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("12", utl::ATTRIB_HAN_SIGNED), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("+-1", utl::ATTRIB_HAN_SIGNED), INVALID_SIZE);
}

TEST(AttribBlockSize, OfASignedNumber_MixesNoWidths) {
    EXPECT_EQ(attribBlockSize("－１２3", utl::ATTRIB_ZEN_SIGNED), 9U);
    EXPECT_EQ(attribBlockSize("＋1", utl::ATTRIB_ZEN_SIGNED), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("+１", utl::ATTRIB_HAN_SIGNED), INVALID_SIZE);
}

TEST(AttribBlockSize, OfAHexadecimalNumber_TakesAPrefixOrASuffixButNotBoth) {
    EXPECT_EQ(attribBlockSize("0x1F", utl::ATTRIB_HAN_HEX), 4U);
    EXPECT_EQ(attribBlockSize("1Fh", utl::ATTRIB_HAN_HEX), 3U);
    EXPECT_EQ(attribBlockSize("1FH", utl::ATTRIB_HAN_HEX), 3U);
    EXPECT_EQ(attribBlockSize("0x1Fh", utl::ATTRIB_HAN_HEX), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("０ｘ１Ｆ", utl::ATTRIB_ZEN_HEX), 12U);
    EXPECT_EQ(attribBlockSize("１ｆｈ", utl::ATTRIB_ZEN_HEX), 9U);
    EXPECT_EQ(attribBlockSize("０ｘ１Ｆｈ", utl::ATTRIB_ZEN_HEX), INVALID_SIZE);
}

TEST(AttribBlockSize, OfAHexadecimalNumber_CountsLettersAsDigits) {
    EXPECT_EQ(attribBlockSize("12", utl::ATTRIB_HAN_HEX), 2U);
    EXPECT_EQ(attribBlockSize("0xFF", utl::ATTRIB_HAN_HEX), 4U);
    EXPECT_EQ(attribBlockSize("FFh", utl::ATTRIB_HAN_HEX), 3U);
    EXPECT_EQ(attribBlockSize("aBg", utl::ATTRIB_HAN_HEX), 2U);
}

TEST(AttribBlockSize, OfAHexadecimalNumber_NeedsADigitBehindThePrefix) {
    EXPECT_EQ(attribBlockSize("0x", utl::ATTRIB_HAN_HEX), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("0xh", utl::ATTRIB_HAN_HEX), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("h", utl::ATTRIB_HAN_HEX), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("0X1", utl::ATTRIB_HAN_HEX), 1U);
}

TEST(AttribBlockSize, OfAHexadecimalNumber_MixesNoWidths) {
    EXPECT_EQ(attribBlockSize("1２", utl::ATTRIB_HAN_HEX), 1U);
    EXPECT_EQ(attribBlockSize("1ｈ", utl::ATTRIB_HAN_HEX), 1U);
    EXPECT_EQ(attribBlockSize("０x１", utl::ATTRIB_ZEN_HEX), 3U);
}

TEST(AttribBlockSize, OfAVoicedKana_TakesItsMarkAndTheSmallKanaBehind) {
    EXPECT_EQ(attribBlockSize("ｶﾞｬ", utl::ATTRIB_DAKU_HAN_KATA), 9U);
    EXPECT_EQ(attribBlockSize("ｶﾞｬｯｬx", utl::ATTRIB_DAKU_HAN_KATA), 15U);
    EXPECT_EQ(attribBlockSize("ガャヮ", utl::ATTRIB_DAKU_ZEN_KATA), 9U);
    EXPECT_EQ(attribBlockSize("ﾊﾟｧ", utl::ATTRIB_HANDAKU_HAN_KATA), 9U);
    EXPECT_EQ(attribBlockSize("ポォ", utl::ATTRIB_HANDAKU_ZEN_KATA), 6U);
    EXPECT_EQ(attribBlockSize("ぎゃあ", utl::ATTRIB_DAKU_HIRA), 6U);
    EXPECT_EQ(attribBlockSize("ぴょ", utl::ATTRIB_HANDAKU_HIRA), 6U);
}

TEST(AttribBlockSize, OfAnUnvoicedKana_NeedsTheMark) {
    EXPECT_EQ(attribBlockSize("ｶ", utl::ATTRIB_DAKU_HAN_KATA), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("カ", utl::ATTRIB_DAKU_ZEN_KATA), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("カャ゛", utl::ATTRIB_DAKU_ZEN_KATA), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("ｶﾟ", utl::ATTRIB_DAKU_HAN_KATA), INVALID_SIZE);
}

TEST(AttribBlockSize, OfAnUnvoicedKanaWithTheMark_IsAUnitEvenIfNobodyWritesItSo) {
    EXPECT_EQ(attribBlockSize("ｱﾞ", utl::ATTRIB_DAKU_HAN_KATA), 6U);
    EXPECT_EQ(attribBlockSize("ア゛ャ", utl::ATTRIB_DAKU_ZEN_KATA), 9U);
    EXPECT_EQ(attribBlockSize("ｱﾟ", utl::ATTRIB_HANDAKU_HAN_KATA), 6U);
    EXPECT_EQ(attribBlockSize("ん゜", utl::ATTRIB_HANDAKU_HIRA), 6U);
    EXPECT_EQ(attribBlockSize("ア゜", utl::ATTRIB_HANDAKU_ZEN_KATA), 6U);
    EXPECT_EQ(attribBlockSize("ー゛", utl::ATTRIB_DAKU_HIRA), 6U);
}

TEST(AttribBlockSize, OfALoneMark_IsAVoicedUnit) {
    EXPECT_EQ(attribBlockSize("ﾞ", utl::ATTRIB_DAKU_HAN_KATA), 3U);
    EXPECT_EQ(attribBlockSize("゛ぁ", utl::ATTRIB_DAKU_HIRA), 6U);
    EXPECT_EQ(attribBlockSize("゜", utl::ATTRIB_HANDAKU_ZEN_KATA), 3U);
}

TEST(AttribBlockSize, OfOther_IsTheLengthOfACharacterThatNothingElseKnows) {
    EXPECT_EQ(attribBlockSize("漢", utl::ATTRIB_OTHER), 3U);
    EXPECT_EQ(attribBlockSize("é", utl::ATTRIB_OTHER), 2U);
    EXPECT_EQ(attribBlockSize("😀", utl::ATTRIB_OTHER), 4U);
    EXPECT_EQ(attribBlockSize(BOM, utl::ATTRIB_OTHER), 3U);
}

TEST(AttribBlockSize, OfOther_IsAFailureWhereAnythingElseHasAUnit) {
    EXPECT_EQ(attribBlockSize("a", utl::ATTRIB_OTHER), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("ｶﾞ", utl::ATTRIB_OTHER), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("~", utl::ATTRIB_OTHER), INVALID_SIZE);
}

TEST(AttribBlockSize, OfOther_LeavesTheAnswerOfALowerBit) {
    EXPECT_EQ(attribBlockSize("12", utl::ATTRIB_OTHER | utl::ATTRIB_HAN_HEX), 2U);
    EXPECT_EQ(attribBlockSize("漢", utl::ATTRIB_OTHER | utl::ATTRIB_HAN_HEX), 3U);
}

TEST(AttribBlockSize, OfMalformedBytes_IsAFailure) {
    EXPECT_EQ(attribBlockSize("\x80", ALL), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("\xFF", ALL), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("\xE3\x81", ALL), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("\xC0\xB1", ALL), INVALID_SIZE);
    EXPECT_EQ(attribBlockSize("\xE0\x80\xB1", ALL), INVALID_SIZE);
}

TEST(AttribBlockSize, TakesNoLock) {
    EXPECT_FALSE(waitsForScratch([] {
        unsigned int position = 0;
        EXPECT_EQ(attribBlockSize("1", utl::ATTRIB_HAN_DIGIT), 1U);
        EXPECT_NE(findCodeTable("1", utl::HAN_DIGIT_TBL, &position), nullptr);
        EXPECT_TRUE(isStrAttribBase("1", utl::ATTRIB_HAN_DIGIT));
    }));
}

// --- isStrAttribBase

TEST(IsStrAttrib, OfTheEmptyText_IsTrueForNulAlone) {
    EXPECT_TRUE(isStrAttribBase("", utl::ATTRIB_NUL));
    EXPECT_TRUE(isStrAttribBase("", ALL));
    EXPECT_FALSE(isStrAttribBase("", ALL & ~utl::ATTRIB_NUL));
    EXPECT_FALSE(isStrAttribBase("", 0));
}

TEST(IsStrAttrib, TakesNullForTheEmptyText) {
    EXPECT_TRUE(isStrAttribBase<char>(nullptr, utl::ATTRIB_NUL));
    EXPECT_FALSE(isStrAttribBase<char>(nullptr, utl::ATTRIB_HAN_DIGIT));
}

TEST(IsStrAttrib, LooksAtTheWholeText) {
    EXPECT_TRUE(isStrAttribBase("123", utl::ATTRIB_HAN_DIGIT));
    EXPECT_FALSE(isStrAttribBase("12a", utl::ATTRIB_HAN_DIGIT));
    EXPECT_FALSE(isStrAttribBase("a12", utl::ATTRIB_HAN_DIGIT));
}

TEST(IsStrAttrib, OfText_NeedsNoNulInTheMaskAndIsNotMadeOfIt) {
    EXPECT_TRUE(isStrAttribBase("1", utl::ATTRIB_HAN_DIGIT));
    EXPECT_TRUE(isStrAttribBase("1", utl::ATTRIB_HAN_DIGIT | utl::ATTRIB_NUL));
    EXPECT_FALSE(isStrAttribBase("1", utl::ATTRIB_NUL));
}

TEST(IsStrAttrib, GoesFromUnitToUnit) {
    EXPECT_TRUE(isStrAttribBase("1Fh0x2E", utl::ATTRIB_HAN_HEX));
    EXPECT_TRUE(isStrAttribBase("1h2h", utl::ATTRIB_HAN_HEX));
    EXPECT_TRUE(isStrAttribBase("+1-2", utl::ATTRIB_HAN_SIGNED));
    EXPECT_FALSE(isStrAttribBase("+1-2-", utl::ATTRIB_HAN_SIGNED));
    EXPECT_TRUE(isStrAttribBase("ｶﾞｬｷﾞｬ", utl::ATTRIB_DAKU_HAN_KATA));
}

TEST(IsStrAttrib, OfMalformedText_IsFalse) {
    EXPECT_FALSE(isStrAttribBase("1\x80", ALL));
    EXPECT_FALSE(isStrAttribBase("1\xE3\x81", ALL));
}

TEST(IsStrAttrib, HasNoLimitOnTheLength) {
    std::string const text(100000, '7');
    EXPECT_TRUE(isStrAttribBase(text.c_str(), utl::ATTRIB_HAN_DIGIT));
    EXPECT_FALSE(isStrAttribBase((text + 'x').c_str(), utl::ATTRIB_HAN_DIGIT));
}

// --- isCharAttribBase

TEST(IsCharAttrib, LooksAtTheFirstCharacterAlone) {
    EXPECT_TRUE(isCharAttribBase("１x", utl::ATTRIB_ZEN_DIGIT));
    EXPECT_FALSE(isCharAttribBase("１x", utl::ATTRIB_HAN_DIGIT));
    EXPECT_FALSE(isCharAttribBase("x１", utl::ATTRIB_ZEN_DIGIT));
}

TEST(IsCharAttrib, OfNullAndTheEmptyText_IsTrueForNulAlone) {
    EXPECT_TRUE(isCharAttribBase("", utl::ATTRIB_NUL));
    EXPECT_TRUE(isCharAttribBase<char>(nullptr, utl::ATTRIB_NUL));
    EXPECT_FALSE(isCharAttribBase("", ALL & ~utl::ATTRIB_NUL));
    EXPECT_FALSE(isCharAttribBase<char>(nullptr, ALL & ~utl::ATTRIB_NUL));
}

TEST(IsCharAttrib, OfAByteOrderMark_IsFalseForEveryMask) {
    EXPECT_FALSE(isCharAttribBase(BOM, ALL));
    EXPECT_FALSE(isCharAttribBase(BOM, utl::ATTRIB_OTHER));
    EXPECT_FALSE(
        isCharAttribBase("\xEF\xBB\xBF"
                         "1",
                         ALL));
}

TEST(IsCharAttrib, OfMalformedBytes_IsFalse) {
    EXPECT_FALSE(isCharAttribBase("\x80", ALL));
    EXPECT_FALSE(isCharAttribBase("\xE3\x81", ALL));
    EXPECT_FALSE(isCharAttribBase("\xC0\x80", ALL));
}

TEST(IsCharAttrib, OfAUnitOfSeveralCharacters_IsFalseUnlessTheFirstIsOne) {
    EXPECT_FALSE(isCharAttribBase("+1", utl::ATTRIB_HAN_SIGNED));
    EXPECT_FALSE(isCharAttribBase("ｶﾞ", utl::ATTRIB_DAKU_HAN_KATA));
    EXPECT_TRUE(isCharAttribBase("ガャ", utl::ATTRIB_DAKU_ZEN_KATA));
    EXPECT_TRUE(isCharAttribBase("0x1F", utl::ATTRIB_HAN_HEX));
}

TEST(IsCharAttrib, InFrontOfAByteThatStartsNoCharacter_SeesAnEmptyText) {
    EXPECT_FALSE(isCharAttribBase("1\x80", utl::ATTRIB_HAN_DIGIT));
    EXPECT_TRUE(isCharAttribBase("1\x80", utl::ATTRIB_NUL));
    EXPECT_TRUE(isCharAttribBase("1\xE3", utl::ATTRIB_HAN_DIGIT));
}

TEST(IsCharAttrib, HasNoLimitOnTheLengthOfTheText) {
    std::string const text(20000, '7');
    EXPECT_TRUE(isCharAttribBase(text.c_str(), utl::ATTRIB_HAN_DIGIT));
}

TEST(IsCharAttrib, WaitsForTheScratchBuffer) {
    EXPECT_TRUE(waitsForScratch([] { isCharAttribBase("1", utl::ATTRIB_HAN_DIGIT); }));
    EXPECT_TRUE(waitsForScratch([] { isCharAttribBase("", utl::ATTRIB_HAN_DIGIT); }));
}

TEST(CharAttrib, TakesNothingFromTheHeap) {
    isCharAttribBase("1", ALL);
    unsigned int const before = utltest::allocations();
    attribBlockSize("0x12", ALL);
    isStrAttribBase("漢ガ0x12", ALL);
    isCharAttribBase("ガ", ALL);
    EXPECT_EQ(utltest::allocations(), before);
}

constexpr int ALL_BUT_OTHER = INT_MAX;

char const* const BYTE_ORDER_MARK = "\xEF\xBB\xBF";

// Asked before `main`, where the tables must stand already.
unsigned int const EARLY_UNIT = utl::attribBlockSize("ｶﾞｬ", utl::ATTRIB_DAKU_HAN_KATA);
bool const EARLY_IS_DIGIT = utl::isCharAttribBase("５", utl::ATTRIB_ZEN_DIGIT);

unsigned int unitOf(std::string const& text, int attribute) {
    return utl::attribBlockSize<char>(exactly(text).data(), attribute);
}

bool isText(std::string const& text, int attribute) {
    return utl::isStrAttribBase<char>(exactly(text).data(), attribute);
}

bool isChar(std::string const& text, int attribute) {
    return utl::isCharAttribBase<char>(exactly(text).data(), attribute);
}

TEST(CharAttrib, Tables_InAStaticInitialiser_AreFilled) {
    EXPECT_EQ(EARLY_UNIT, 9U);
    EXPECT_TRUE(EARLY_IS_DIGIT);
}

TEST(CharAttrib, FindCodeTable_WithARowThatBeginsALaterOne_TakesTheEarlierOne) {
    utl::CodeTableRow const table[] = {{"a", L"a"}, {"ab", L"ab"}, {nullptr, nullptr}};
    std::vector<char> const text = exactly("xab");
    unsigned int position = 1;
    EXPECT_EQ(utl::findCodeTable<char>(text.data(), table, &position), table[0].mNarrow);
    EXPECT_EQ(position, 2U);
    EXPECT_EQ(utl::findCodeTable<char>(text.data(), table, &position), nullptr);
    EXPECT_EQ(position, 2U);
}

TEST(CharAttrib, AttribBlockSize_OfAHigherAttributeWithAShorterUnit_IsTheShorterOne) {
    EXPECT_EQ(unitOf("ab12", utl::ATTRIB_HAN_HEX), 4U);
    EXPECT_EQ(unitOf("ab12", utl::ATTRIB_HAN_HEX | utl::ATTRIB_LOWER_HAN_HEX), 1U);
    EXPECT_EQ(unitOf("ＡＢ", utl::ATTRIB_ZEN_HEX), 6U);
    EXPECT_EQ(unitOf("ＡＢ", utl::ATTRIB_ZEN_HEX | utl::ATTRIB_UPPER_ZEN_HEX), 3U);
    EXPECT_EQ(unitOf("か゛ゃ", utl::ATTRIB_DAKU_HIRA | utl::ATTRIB_NODAKU_HIRA), 9U);
    EXPECT_EQ(unitOf("ﾞｬ", utl::ATTRIB_DAKU_HAN_KATA | utl::ATTRIB_OTHER), 6U);
}

TEST(CharAttrib, AttribBlockSize_WhereAHigherAttributeGivesUpHalfWay_IsThatOfTheLowerOne) {
    EXPECT_EQ(unitOf("+x", utl::ATTRIB_HAN_MARK | utl::ATTRIB_HAN_SIGNED), 1U);
    EXPECT_EQ(unitOf("0x1Fh", utl::ATTRIB_HAN_DIGIT | utl::ATTRIB_HAN_HEX), 1U);
    EXPECT_EQ(unitOf("+12", utl::ATTRIB_HAN_SIGNED | utl::ATTRIB_HAN_HEX), 3U);
    EXPECT_EQ(unitOf("ｶﾟ", utl::ATTRIB_NODAKU_HAN_KATA | utl::ATTRIB_DAKU_HAN_KATA), 3U);
    EXPECT_EQ(unitOf("か゛", utl::ATTRIB_DAKU_HIRA | utl::ATTRIB_HANDAKU_HIRA), 6U);
    EXPECT_EQ(unitOf("", utl::ATTRIB_NUL | ALL_BUT_OTHER), 1U);
}

TEST(CharAttrib, AttribBlockSize_OfANumberInTwoWidths_EndsWhereTheWidthChanges) {
    EXPECT_EQ(unitOf("+１", utl::ATTRIB_HAN_SIGNED | utl::ATTRIB_ZEN_SIGNED), utl::INVALID_SIZE);
    EXPECT_EQ(unitOf("＋1", utl::ATTRIB_HAN_SIGNED | utl::ATTRIB_ZEN_SIGNED), utl::INVALID_SIZE);
    EXPECT_EQ(unitOf("－１2", utl::ATTRIB_ZEN_SIGNED), 6U);
    EXPECT_EQ(unitOf("1Ｆ", utl::ATTRIB_HAN_HEX), 1U);
    EXPECT_EQ(unitOf("０x１", utl::ATTRIB_ZEN_HEX), 3U);
    EXPECT_EQ(unitOf("１Ｆh", utl::ATTRIB_ZEN_HEX), 6U);
    EXPECT_EQ(unitOf("０ｘ１Ｆ", utl::ATTRIB_ZEN_HEX), 12U);
    EXPECT_EQ(unitOf("１ＦＨ", utl::ATTRIB_ZEN_HEX), 9U);
}

TEST(CharAttrib, AttribBlockSize_OfAHexNumber_TakesALowerCasePrefixOrASuffixAndNeverBoth) {
    for (char const* const text : {"0x", "0xg", "0xh", "0x 1", "0x1h", "0x1H"}) {
        EXPECT_EQ(unitOf(text, utl::ATTRIB_HAN_HEX), utl::INVALID_SIZE) << text;
    }
    EXPECT_EQ(unitOf("０ｘ", utl::ATTRIB_ZEN_HEX), utl::INVALID_SIZE);
    EXPECT_EQ(unitOf("０ｘＦｈ", utl::ATTRIB_ZEN_HEX), utl::INVALID_SIZE);
    EXPECT_EQ(unitOf("0X1F", utl::ATTRIB_HAN_HEX), 1U);
    EXPECT_EQ(unitOf("00x1", utl::ATTRIB_HAN_HEX), 2U);
    EXPECT_EQ(unitOf("0x0x1", utl::ATTRIB_HAN_HEX), 3U);
    EXPECT_EQ(unitOf("1hh", utl::ATTRIB_HAN_HEX), 2U);
    EXPECT_EQ(unitOf("FfH", utl::ATTRIB_HAN_HEX), 3U);
    EXPECT_EQ(unitOf("h", utl::ATTRIB_HAN_HEX), utl::INVALID_SIZE);
    EXPECT_TRUE(isText("1Fh0x2", utl::ATTRIB_HAN_HEX));
    EXPECT_FALSE(isText("0x21Fh", utl::ATTRIB_HAN_HEX));
}

TEST(CharAttrib, AttribBlockSize_OfAVoicedUnit_TakesAMarkOnlyBehindAnUnvoicedKana) {
    EXPECT_EQ(unitOf("ガ゛", utl::ATTRIB_DAKU_ZEN_KATA), 3U);
    EXPECT_EQ(unitOf("カ゛゛", utl::ATTRIB_DAKU_ZEN_KATA), 6U);
    EXPECT_EQ(unitOf("ﾊﾟﾟ", utl::ATTRIB_HANDAKU_HAN_KATA), 6U);
    EXPECT_EQ(unitOf("ﾊﾞ", utl::ATTRIB_HANDAKU_HAN_KATA), utl::INVALID_SIZE);
    EXPECT_EQ(unitOf("ｶﾟ", utl::ATTRIB_HANDAKU_HAN_KATA), 6U);
    EXPECT_EQ(unitOf("ば゜", utl::ATTRIB_HANDAKU_HIRA), utl::INVALID_SIZE);
    EXPECT_EQ(unitOf("か" + utf8Of(0x3099), utl::ATTRIB_DAKU_HIRA), utl::INVALID_SIZE);
    EXPECT_EQ(unitOf("カﾞ", utl::ATTRIB_DAKU_ZEN_KATA), utl::INVALID_SIZE);
}

TEST(CharAttrib, AttribBlockSize_OfAVoicedUnit_CountsSentenceMarksAsTheTablesDo) {
    EXPECT_EQ(unitOf("｡ﾞｬ", utl::ATTRIB_DAKU_HAN_KATA), 9U);
    EXPECT_EQ(unitOf("ー゜ョ", utl::ATTRIB_HANDAKU_ZEN_KATA), 9U);
    EXPECT_EQ(unitOf("。ゃっ", utl::ATTRIB_DAKU_HIRA), 9U);
    EXPECT_EQ(unitOf("・", utl::ATTRIB_HANDAKU_HIRA), 3U);
    EXPECT_EQ(unitOf("。", utl::ATTRIB_DAKU_ZEN_KATA), utl::INVALID_SIZE);
    EXPECT_EQ(unitOf("ー", utl::ATTRIB_DAKU_HIRA), utl::INVALID_SIZE);
    EXPECT_EQ(unitOf("。゛", utl::ATTRIB_DAKU_HIRA), 3U);
}

TEST(CharAttrib, AttribBlockSize_OfAVoicedUnit_TakesSmallKanaOfItsOwnScriptOnly) {
    EXPECT_EQ(unitOf("ガャヮッ", utl::ATTRIB_DAKU_ZEN_KATA), 12U);
    EXPECT_EQ(unitOf("ガゃ", utl::ATTRIB_DAKU_ZEN_KATA), 3U);
    EXPECT_EQ(unitOf("ガｬ", utl::ATTRIB_DAKU_ZEN_KATA), 3U);
    EXPECT_EQ(unitOf("がャ", utl::ATTRIB_DAKU_HIRA), 3U);
    EXPECT_EQ(unitOf("ｶﾞｱ", utl::ATTRIB_DAKU_HAN_KATA), 6U);
    EXPECT_EQ(unitOf("ｬ", utl::ATTRIB_DAKU_HAN_KATA), utl::INVALID_SIZE);
    EXPECT_EQ(unitOf("ｬﾞｬ", utl::ATTRIB_DAKU_HAN_KATA), 9U);
    EXPECT_EQ(unitOf("ガヵ", utl::ATTRIB_DAKU_ZEN_KATA), 3U);
}

TEST(CharAttrib, AttribBlockSize_OfOther_IsLeftToWhatNoSingleAttributeRecognises) {
    for (unsigned int code = 1; code < 0x10000; code += code >= 0x3200 && code < 0xFE00 ? 0x101 : 1) {
        std::string const text = utf8Of(code);
        bool isKnown = false;
        for (unsigned int bit = 1; bit != 0x80000000U; bit <<= 1) {
            isKnown = isKnown || unitOf(text, static_cast<int>(bit)) != utl::INVALID_SIZE;
        }
        unsigned int const expected = isKnown ? utl::INVALID_SIZE : static_cast<unsigned int>(text.size());
        ASSERT_EQ(unitOf(text, utl::ATTRIB_OTHER), expected) << code;
    }
}

TEST(CharAttrib, AttribBlockSize_OfOther_TakesLookAlikesThatTheTablesLeaveOut) {
    for (unsigned int const code : {0xFF02U, 0xFF07U, 0xFF3CU, 0xFF5EU, 0x301CU, 0x2212U, 0x3094U, 0x30F7U}) {
        EXPECT_EQ(unitOf(utf8Of(code), utl::ATTRIB_OTHER), 3U) << code;
    }
    for (unsigned int const code : {0x201DU, 0x2019U, 0xFFE5U, 0xFFE3U, 0x30F4U, 0x309BU, 0xFF9FU}) {
        EXPECT_EQ(unitOf(utf8Of(code), utl::ATTRIB_OTHER), utl::INVALID_SIZE) << code;
    }
    EXPECT_EQ(unitOf(utf8Of(0xA5), utl::ATTRIB_OTHER), 2U);
    EXPECT_EQ(unitOf("\xF0\x9F\x98\x80", utl::ATTRIB_OTHER), 4U);
    EXPECT_EQ(unitOf("\xED\xA0\x80", utl::ATTRIB_OTHER), 3U);
    EXPECT_EQ(unitOf(BYTE_ORDER_MARK, utl::ATTRIB_OTHER), 3U);
}

TEST(CharAttrib, AttribBlockSize_OfMalformedBytesOrNoBits_IsNone) {
    for (char const* const text : {"\x80", "\xC3", "\xC3x", "\xE3\x81", "\xC0\x80", "\xFF", "\xF0\x9F\x98"}) {
        EXPECT_EQ(unitOf(text, -1), utl::INVALID_SIZE);
        EXPECT_FALSE(isChar(text, -1));
    }
    EXPECT_EQ(unitOf("", 0), utl::INVALID_SIZE);
    EXPECT_EQ(unitOf("a", 0), utl::INVALID_SIZE);
    EXPECT_EQ(unitOf("", utl::ATTRIB_OTHER), utl::INVALID_SIZE);
    EXPECT_EQ(unitOf("a", utl::ATTRIB_NUL), utl::INVALID_SIZE);
    EXPECT_EQ(utl::attribBlockSize<char>(nullptr, -1), utl::INVALID_SIZE);
}

TEST(CharAttrib, IsCharAttribBase_OnTheStartOfALongerUnit_JudgesItsFirstCharacterAlone) {
    EXPECT_TRUE(isChar("0x1Fh", utl::ATTRIB_HAN_HEX));
    EXPECT_FALSE(isChar("+1", utl::ATTRIB_HAN_SIGNED));
    EXPECT_FALSE(isChar("ｶﾞ", utl::ATTRIB_DAKU_HAN_KATA));
    EXPECT_TRUE(isChar("ﾞ漢", utl::ATTRIB_DAKU_HAN_KATA));
    EXPECT_TRUE(isChar("ガャ", utl::ATTRIB_DAKU_ZEN_KATA));
    EXPECT_TRUE(isChar("1\xC3", utl::ATTRIB_HAN_DIGIT));
    EXPECT_FALSE(isChar("1", utl::ATTRIB_NUL));
}

TEST(CharAttrib, IsCharAttribBase_InFrontOfAByteThatStartsNoCharacter_CountsAsEmpty) {
    for (std::string const character : {"1", "あ", "\xC3\xA9", "\xF0\x9F\x98\x80"}) {
        EXPECT_FALSE(isChar(character + '\x80', ~utl::ATTRIB_NUL)) << character;
        EXPECT_TRUE(isChar(character + '\xFF', utl::ATTRIB_NUL)) << character;
    }
}

}  // namespace

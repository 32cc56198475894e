#include <climits>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "TestTables.h"
#include "TestText.h"
#include "UtlAttribConvert.h"
#include "UtlCharAttrib.h"

namespace {

using utltest::exactly;
using utltest::utf8Of;

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

/// A buffer of exactly `size` after a conversion into it, and the conversion's result.
struct Converted {
    Converted(std::string const& src, utl::PairAttrib const* table, int direction, unsigned int size,
              int truncate = 0)
        : buffer(size, '#'),
          used(utl::convertAttrib<char>(buffer.data(), size, exactly(src).data(), table, direction,
                                        truncate)) {}

    std::string text() const { return buffer.data(); }

    std::vector<char> buffer;
    unsigned int used;
};

/// The converted text. The size that the conversion asks for must be the one that it uses and that just
/// suffices.
std::string convertedExactly(std::string const& src, utl::PairAttrib const* table, int direction) {
    unsigned int const needed =
        utl::convertAttrib<char>(nullptr, 0, exactly(src).data(), table, direction, 0);
    Converted const fits(src, table, direction, needed);
    EXPECT_EQ(fits.used, needed) << src;
    EXPECT_EQ(fits.text().size() + 1, needed) << src;
    if (needed > 1) {
        EXPECT_EQ(Converted(src, table, direction, needed - 1).used, utl::INVALID_SIZE) << src;
    }
    return fits.text();
}

/// The number, or -1 where there is none and the value was left alone.
int numberOf(std::string const& text, int base) {
    unsigned short value = 0xBEEF;
    if (utl::strToInt<unsigned short, char>(&value, exactly(text).data(), base)) {
        return value;
    }
    EXPECT_EQ(value, 0xBEEF) << text;
    return -1;
}

int compared(std::string const& left, std::string const& right, unsigned int length) {
    return utl::compareStrNoCase<char>(exactly(left).data(), exactly(right).data(), length);
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

}  // namespace

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

TEST(AttribConvert, ConvertAttrib_OfMarksBehindUnvoicedKana_DeletesThemAlsoAtTheVeryEndOfTheBuffer) {
    EXPECT_EQ(convertedExactly("ｶﾞﾞ゛", utl::NODAKUON_DAKUON_PAIR, 1), "ｶ");
    EXPECT_EQ(convertedExactly("゛", utl::NODAKUON_DAKUON_PAIR, 1), "");
    EXPECT_EQ(convertedExactly("゜漢ﾟぱ", utl::NODAKUON_HANDAKUON_PAIR, -1), "漢は");
    EXPECT_EQ(Converted("ﾟ", utl::NODAKUON_HANDAKUON_PAIR, 2, 1).used, 1U);
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
    unsigned int const needed = Converted(src, utl::HANKAKU_ZENKAKU_PAIR, 1, 64).used;
    for (unsigned int size = 1; size <= needed; ++size) {
        std::string fitting;
        for (auto piece = whole.begin(); piece != whole.end() && fitting.size() + piece->size() < size;
             ++piece) {
            fitting += *piece;
        }
        Converted const cut(src, utl::HANKAKU_ZENKAKU_PAIR, 1, size, 1);
        EXPECT_EQ(cut.text(), fitting) << size;
        EXPECT_EQ(cut.used, fitting.size() + 1) << size;
        bool const isEnough = size == needed;
        EXPECT_EQ(Converted(src, utl::HANKAKU_ZENKAKU_PAIR, 1, size, 0).used != utl::INVALID_SIZE, isEnough)
            << size;
        EXPECT_EQ(Converted(src, utl::HANKAKU_ZENKAKU_PAIR, 1, size, 2).used != utl::INVALID_SIZE, isEnough)
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
    Converted const tooLong(std::string(10240, 'a'), utl::LOWER_UPPER_PAIR, 0, 10241, 1);
    EXPECT_EQ(tooLong.used, utl::INVALID_SIZE);
    EXPECT_EQ(tooLong.buffer[0], '#');
    EXPECT_EQ(
        utl::convertAttrib<char>(nullptr, 0, std::string(10240, 'a').c_str(), utl::LOWER_UPPER_PAIR, 0, 0),
        utl::INVALID_SIZE);
}

TEST(AttribConvert, ConvertAttrib_OfMalformedText_EndsThereWithSuccess) {
    EXPECT_EQ(Converted("ab\x80"
                        "c",
                        utl::LOWER_UPPER_PAIR, 0, 8)
                  .text(),
              "AB");
    EXPECT_EQ(Converted("a漢\xE3\x81", utl::LOWER_UPPER_PAIR, 0, 5).used, 5U);
    EXPECT_EQ(Converted("\xFF", utl::LOWER_UPPER_PAIR, 0, 1).used, 1U);
    EXPECT_EQ(Converted("\xFF", utl::LOWER_UPPER_PAIR, 0, 1).text(), "");
    EXPECT_EQ(Converted("\xC3"
                        "a",
                        utl::LOWER_UPPER_PAIR, 0, 9, 1)
                  .text(),
              "");
    EXPECT_EQ(Converted("a漢\xBF", utl::LOWER_UPPER_PAIR, 0, 9).used, 2U);
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
                EXPECT_EQ(Converted(text, utl::LOWER_UPPER_PAIR, 0, 201).text(), upper);
                EXPECT_EQ(isChar(thread % 2 == 0 ? text : upper, utl::ATTRIB_LOWER_HAN_HEX), thread % 2 == 0);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

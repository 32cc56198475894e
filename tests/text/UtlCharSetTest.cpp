#include "UtlCharSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "TestAllocations.h"
#include "TestCharSet.h"
#include "TestScratch.h"
#include "TestTables.h"
#include "TestText.h"
#include "internal/text/UtlSjisTable.h"

namespace {

using utl::INVALID_SIZE;
using utltest::converted;
using utltest::convertInto;
using utltest::terminated;
using utltest::textOf;
using utltest::Units;

static_assert(utl::BYTE_ORDER_LOW_FIRST == 0 && utl::BYTE_ORDER_HIGH_FIRST == 1);
static_assert(utl::BOM_KIND_SAME_ORDER == 1 && utl::BOM_KIND_OTHER_ORDER == 2);

// Nothing that does without the platform's converter can throw.
static_assert(noexcept(utl::convertCharFromUtf8ToSjis(nullptr, 0, "", nullptr)) && noexcept(
    utl::convertStrFromUtf8ToSjis(
        nullptr, 0,
        "")) && noexcept(utl::
                             convertCharFromSjisToUtf8(
                                 nullptr, 0,
                                 "", nullptr)) && noexcept(utl::
                                                               convertStrFromSjisToUtf8(
                                                                   nullptr, 0,
                                                                   "")) && noexcept(utl::
                                                                                        convertCharFromSjisToUtf16(
                                                                                            nullptr,
                                                                                            "", nullptr)) && noexcept(utl::
                                                                                                                          convertStrFromSjisToUtf16(
                                                                                                                              nullptr,
                                                                                                                              0,
                                                                                                                              "")) && noexcept(utl::convertCharFromUtf16ToUtf8(nullptr, 0, 0, nullptr)) && noexcept(utl::convertStrFromUtf16ToUtf8(nullptr, 0, nullptr)) && noexcept(utl::
                                                                                                                                                                                                                                                                                         convertCharFromUtf8ToUtf16(nullptr,
                                                                                                                                                                                                                                                                                                                    "", nullptr)) && noexcept(utl::
                                                                                                                                                                                                                                                                                                                                                  convertStrFromUtf8ToUtf16(nullptr,
                                                                                                                                                                                                                                                                                                                                                                            0,
                                                                                                                                                                                                                                                                                                                                                                            "")) && noexcept(utl::convertStrFromTcharToChar(nullptr,
                                                                                                                                                                                                                                                                                                                                                                                                                            0,
                                                                                                                                                                                                                                                                                                                                                                                                                            "")) && noexcept(utl::
                                                                                                                                                                                                                                                                                                                                                                                                                                                 convertStrFromCharToTchar(
                                                                                                                                                                                                                                                                                                                                                                                                                                                     nullptr,
                                                                                                                                                                                                                                                                                                                                                                                                                                                     0,
                                                                                                                                                                                                                                                                                                                                                                                                                                                     "")) && noexcept(utl::
                                                                                                                                                                                                                                                                                                                                                                                                                                                                          convertStrFromDcharToUint8(nullptr,
                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                     0, nullptr, 0, 0)) && noexcept(utl::
                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                        convertBinFromUint8ToDchar(nullptr,
                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                   0,
                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                   nullptr,
                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                   0,
                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                   0)));
static_assert(!noexcept(utl::convertStrFromTcharToWchar(nullptr, 0, "")) &&
              !noexcept(utl::convertStrFromWcharToTchar(nullptr, 0, L"")));

TEST(ByteOrder, LowFirstAndHighFirst_NameTheByteThatIsStoredFirst) {
    unsigned short const unit[] = {0x1234, 0};
    unsigned char bytes[2] = {};
    utl::convertStrFromDcharToUint8(bytes, 2, unit, 1, utl::BYTE_ORDER_LOW_FIRST);
    EXPECT_EQ(bytes[0], 0x34);
    utl::convertStrFromDcharToUint8(bytes, 2, unit, 1, utl::BYTE_ORDER_HIGH_FIRST);
    EXPECT_EQ(bytes[0], 0x12);
}

TEST(BomKind, ASwappedMark_IsOneOfTheOtherOrder) {
    int kind = 0;
    utl::convertCharFromUtf16ToUtf8(nullptr, 0, 0xFEFF, &kind);
    EXPECT_EQ(kind, utl::BOM_KIND_SAME_ORDER);
    utl::convertCharFromUtf16ToUtf8(nullptr, 0, 0xFFFE, &kind);
    EXPECT_EQ(kind, utl::BOM_KIND_OTHER_ORDER);
}

// The same text in three forms.
std::string const SHIFT_JIS = "\x82\xA0\xB1z\x88\x9F";
std::string const UTF_8 = "\xE3\x81\x82\xEF\xBD\xB1z\xE4\xBA\x9C";
Units const UTF_16{0x3042, 0xFF71, 'z', 0x4E9C};

constexpr unsigned short MARKS[] = {0xFEFF, 0xFFFE};

std::string const ZERO(1, '\0');
std::string const EMPTY;

// --- one character

constexpr unsigned int NOT_SET = 4711;

// What a character function returned. Bytes that it left alone are '~'.
struct One {
    unsigned int result;
    unsigned int consumed;
    std::string bytes;
};

bool operator==(One const& a, One const& b) {
    return a.result == b.result && a.consumed == b.consumed && a.bytes == b.bytes;
}

std::ostream& operator<<(std::ostream& out, One const& one) {
    return out << one.result << ", " << one.consumed << ", " << testing::PrintToString(one.bytes);
}

using CharFunction = unsigned int (*)(char*, unsigned int, char const*, unsigned int*);

One convertOne(CharFunction convert, std::string const& text, unsigned int size) {
    std::vector<char> dst(size, '~');
    unsigned int consumed = NOT_SET;
    unsigned int const result = convert(dst.data(), size, terminated(text).get(), &consumed);
    return {result, consumed, std::string(dst.begin(), dst.end())};
}

// With exactly the room that it asks for; a byte more must change nothing, nor must a null `consumed`.
One convertOne(CharFunction convert, std::string const& text) {
    unsigned int const size = convert(nullptr, 0, terminated(text).get(), nullptr);
    One const one = convertOne(convert, text, size);
    One const roomy = convertOne(convert, text, size + 1);
    EXPECT_EQ(roomy, (One{one.result, one.consumed, one.bytes + "~"}));
    EXPECT_EQ(one.result, size);
    return one;
}

One toSjis(std::string const& text) {
    return convertOne(&utl::convertCharFromUtf8ToSjis, text);
}

One toUtf8(std::string const& text) {
    return convertOne(&utl::convertCharFromSjisToUtf8, text);
}

One converting(std::string const& bytes, unsigned int consumed) {
    return {static_cast<unsigned int>(bytes.size()), consumed, bytes};
}

TEST(CharFromUtf8ToSjis, ACharacterWithACode_GivesIt) {
    EXPECT_EQ(toSjis("\xE3\x81\x82z"), converting("\x82\xA0", 3));
    EXPECT_EQ(toSjis("\xC2\xA7z"), converting("\x81\x98", 2));
    EXPECT_EQ(toSjis("\xEF\xBD\xB1z"), converting("\xB1", 3));
    EXPECT_EQ(toSjis("\xEF\xBF\xA5"), converting("\x81\x8F", 3));
}

TEST(CharFromUtf8ToSjis, ACharacterWithoutACode_GivesAZeroByte) {
    EXPECT_EQ(toSjis("\xC3\xA9z"), converting(ZERO, 2));
    EXPECT_EQ(toSjis("\xE2\x82\xACz"), converting(ZERO, 3));
    EXPECT_EQ(toSjis("\xEF\xBB\xBFz"), converting(ZERO, 3));
}

TEST(CharFromUtf8ToSjis, EveryFirstByteThatBeginsNoKey_PassesAlone) {
    for (int first = 1; first < 0x100; ++first) {
        bool const isPair = first >= 0xC2 && first <= 0xD1;
        bool const isTriple = (first >= 0xE2 && first <= 0xE9) || first == 0xEF;
        std::string const byte(1, static_cast<char>(first));
        One const one = toSjis(byte + "\x80\x80");
        EXPECT_EQ(one.consumed, isPair ? 2U : isTriple ? 3U : 1U) << first;
        if (!isPair && !isTriple) {
            EXPECT_EQ(one, converting(byte, 1)) << first;
        }
    }
}

TEST(CharFromUtf8ToSjis, BrokenBytesBehindALead_AreCoveredWithIt) {
    EXPECT_EQ(toSjis("\xC3z"), converting(ZERO, 2));
    EXPECT_EQ(toSjis("\xE3zz"), converting(ZERO, 3));
    EXPECT_EQ(toSjis("\xE3\x81zz"), converting(ZERO, 3));
    EXPECT_EQ(toSjis("\xE3\xE3\x81\x82"), converting(ZERO, 3));
    // The low bits alone would find a character.
    EXPECT_EQ(toSjis("\xC2\x67"), converting(ZERO, 2));
    EXPECT_EQ(toSjis("\xE3\x41\x82"), converting(ZERO, 3));
    EXPECT_EQ(toSjis("\xE3\x81\x42"), converting(ZERO, 3));
    EXPECT_EQ(toSjis("\xE3\xC1\x82"), converting(ZERO, 3));
    EXPECT_EQ(toSjis("\xE3\x81\xC2"), converting(ZERO, 3));
}

TEST(CharFromUtf8ToSjis, ALeadAtTheEnd_IsOneUnmappedCharacterAndLeavesTheTerminator) {
    EXPECT_EQ(toSjis("\xC2"), converting(ZERO, 1));
    EXPECT_EQ(toSjis("\xE3"), converting(ZERO, 1));
    EXPECT_EQ(toSjis("\xE3\x81"), converting(ZERO, 2));
}

TEST(CharFromSjisToUtf8, ACharacterOfEachKind_IsConverted) {
    EXPECT_EQ(toUtf8("\x82\xA0z"), converting("\xE3\x81\x82", 2));
    EXPECT_EQ(toUtf8("\x81\x98z"), converting("\xC2\xA7", 2));
    EXPECT_EQ(toUtf8("\xB1z"), converting("\xEF\xBD\xB1", 1));
    EXPECT_EQ(toUtf8("\x41z"), converting("A", 1));
}

TEST(CharFromSjisToUtf8, TheLastRow_IsConverted) {
    EXPECT_EQ(toUtf8("\xFC\x4B"), converting("\xE9\xBB\x91", 2));
    EXPECT_EQ(toUtf8("\xFC\x4C"), converting(ZERO, 2));
}

TEST(CharFromSjisToUtf8, ACodeWithoutACharacter_GivesAZeroByte) {
    EXPECT_EQ(toUtf8("\x81\xADz"), converting(ZERO, 2));
    EXPECT_EQ(toUtf8("\x85\x40z"), converting(ZERO, 2));
    for (char const* trail : {"\x01", "\x3F", "\x7F", "\xFD", "\xFE", "\xFF"}) {
        EXPECT_EQ(toUtf8(std::string("\x82") + trail), converting(ZERO, 2)) << trail;
    }
}

TEST(CharFromSjisToUtf8, EveryFirstByte_CoversTheBytesOfItsKind) {
    for (int first = 1; first < 0x100; ++first) {
        bool const isKana = first >= 0xA1 && first <= 0xDF;
        bool const isDouble = (first >= 0x81 && first <= 0x9F) || (first >= 0xE0 && first <= 0xEF) ||
                              (first >= 0xFA && first <= 0xFC);
        std::string const byte(1, static_cast<char>(first));
        One const one = toUtf8(byte + "\x40");
        EXPECT_EQ(one.consumed, isDouble ? 2U : 1U) << first;
        if (isKana) {
            EXPECT_EQ(one.result, 3U) << first;
        } else if (!isDouble) {
            EXPECT_EQ(one, converting(byte, 1)) << first;
        }
    }
}

TEST(CharFromSjisToUtf8, ALeadAtTheEnd_IsOneUnmappedCharacterAndLeavesTheTerminator) {
    for (char const* lead : {"\x81", "\x9F", "\xE0", "\xEF", "\xFA", "\xFC"}) {
        EXPECT_EQ(toUtf8(lead), converting(ZERO, 1)) << lead;
    }
}

TEST(CharFunctions, TheTerminator_IsACharacterOfOneByte) {
    EXPECT_EQ(toSjis(""), converting(ZERO, 1));
    EXPECT_EQ(toUtf8(""), converting(ZERO, 1));
}

TEST(CharFunctions, TooLittleRoom_FailsAndTellsOnlyWhatTheCharacterCovers) {
    EXPECT_EQ(convertOne(&utl::convertCharFromUtf8ToSjis, "\xE3\x81\x82", 1), (One{INVALID_SIZE, 3, "~"}));
    EXPECT_EQ(convertOne(&utl::convertCharFromUtf8ToSjis, "\xC2\xA7", 1), (One{INVALID_SIZE, 2, "~"}));
    for (unsigned int size : {1U, 2U}) {
        EXPECT_EQ(convertOne(&utl::convertCharFromSjisToUtf8, "\x82\xA0", size),
                  (One{INVALID_SIZE, 2, std::string(size, '~')}));
        EXPECT_EQ(convertOne(&utl::convertCharFromSjisToUtf8, "\xB1", size),
                  (One{INVALID_SIZE, 1, std::string(size, '~')}));
    }
    EXPECT_EQ(convertOne(&utl::convertCharFromSjisToUtf8, "\x81\x98", 1), (One{INVALID_SIZE, 2, "~"}));
}

// A null `consumed` is told nothing, on failure as on success.
unsigned int coveredWithoutBuffer(CharFunction convert, char const* text) {
    unsigned int consumed = NOT_SET;
    EXPECT_EQ(convert(nullptr, 4, text, &consumed), INVALID_SIZE);
    EXPECT_EQ(convert(nullptr, 4, text, nullptr), INVALID_SIZE);
    return consumed;
}

TEST(CharFunctions, NullWithASize_FailsExceptForALiteral) {
    EXPECT_EQ(coveredWithoutBuffer(&utl::convertCharFromUtf8ToSjis, "\xE3\x81\x82"), 3U);
    EXPECT_EQ(coveredWithoutBuffer(&utl::convertCharFromUtf8ToSjis, "\xC3\xA9"), 2U);
    EXPECT_EQ(coveredWithoutBuffer(&utl::convertCharFromSjisToUtf8, "\x82\xA0"), 2U);
    EXPECT_EQ(coveredWithoutBuffer(&utl::convertCharFromSjisToUtf8, "\xB1"), 1U);
    unsigned int consumed = NOT_SET;
    EXPECT_EQ(utl::convertCharFromUtf8ToSjis(nullptr, 4, "z", &consumed), 1U);
    EXPECT_EQ(consumed, 1U);
    consumed = NOT_SET;
    EXPECT_EQ(utl::convertCharFromSjisToUtf8(nullptr, 4, "\x80", &consumed), 1U);
    EXPECT_EQ(consumed, 1U);
}

TEST(CharFunctions, ASizeOf0_WritesNothingWhateverTheBuffer) {
    char dst = '~';
    EXPECT_EQ(utl::convertCharFromUtf8ToSjis(&dst, 0, "z", nullptr), 1U);
    EXPECT_EQ(utl::convertCharFromUtf8ToSjis(&dst, 0, "\xE3\x81\x82", nullptr), 2U);
    EXPECT_EQ(utl::convertCharFromSjisToUtf8(&dst, 0, "z", nullptr), 1U);
    EXPECT_EQ(utl::convertCharFromSjisToUtf8(&dst, 0, "\x82\xA0", nullptr), 3U);
    EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(&dst, 0, 'z', nullptr), 1U);
    EXPECT_EQ(dst, '~');
}

TEST(CharFunctions, ANullSource_FailsAndLeavesEverythingAlone) {
    char dst = '~';
    unsigned short unit = 0x7E7E;
    unsigned int consumed = NOT_SET;
    for (unsigned int size : {0U, 1U}) {
        EXPECT_EQ(utl::convertCharFromUtf8ToSjis(&dst, size, nullptr, &consumed), INVALID_SIZE);
        EXPECT_EQ(utl::convertCharFromSjisToUtf8(&dst, size, nullptr, &consumed), INVALID_SIZE);
    }
    EXPECT_EQ(utl::convertCharFromSjisToUtf16(&unit, nullptr, &consumed), INVALID_SIZE);
    EXPECT_EQ(utl::convertCharFromUtf8ToUtf16(&unit, nullptr, &consumed), INVALID_SIZE);
    EXPECT_EQ(dst, '~');
    EXPECT_EQ(unit, 0x7E7E);
    EXPECT_EQ(consumed, NOT_SET);
}

// --- one unit

struct OneUnit {
    unsigned int result;
    unsigned int consumed;
    unsigned int unit;
};

bool operator==(OneUnit const& a, OneUnit const& b) {
    return a.result == b.result && a.consumed == b.consumed && a.unit == b.unit;
}

std::ostream& operator<<(std::ostream& out, OneUnit const& one) {
    return out << one.result << ", " << one.consumed << ", " << one.unit;
}

constexpr unsigned short NO_UNIT = 0x7E7E;
OneUnit const NO_RESULT{INVALID_SIZE, NOT_SET, NO_UNIT};

OneUnit unitOf(unsigned int (*convert)(unsigned short*, char const*, unsigned int*),
               std::string const& text) {
    OneUnit one{0, NOT_SET, 0};
    unsigned short unit = NO_UNIT;
    one.result = convert(&unit, terminated(text).get(), &one.consumed);
    one.unit = unit;
    unsigned short again = NO_UNIT;
    EXPECT_EQ(convert(&again, terminated(text).get(), nullptr), one.result);
    EXPECT_EQ(again, unit);
    return one;
}

TEST(CharFromSjisToUtf16, ACodeGivesOneAndALiteralTwo) {
    EXPECT_EQ(unitOf(&utl::convertCharFromSjisToUtf16, "\x82\xA0"), (OneUnit{1, 2, 0x3042}));
    EXPECT_EQ(unitOf(&utl::convertCharFromSjisToUtf16, "\xB1z"), (OneUnit{1, 1, 0xFF71}));
    EXPECT_EQ(unitOf(&utl::convertCharFromSjisToUtf16, "zz"), (OneUnit{2, 1, 'z'}));
    EXPECT_EQ(unitOf(&utl::convertCharFromSjisToUtf16, "\x80z"), (OneUnit{2, 1, 0x80}));
    EXPECT_EQ(unitOf(&utl::convertCharFromSjisToUtf16, "\xA0z"), (OneUnit{2, 1, 0xA0}));
    EXPECT_EQ(unitOf(&utl::convertCharFromSjisToUtf16, "\xFFz"), (OneUnit{2, 1, 0xFF}));
    EXPECT_EQ(unitOf(&utl::convertCharFromSjisToUtf16, ""), (OneUnit{2, 1, 0}));
}

TEST(CharFromSjisToUtf16, ACodeWithoutACharacter_GivesZero) {
    EXPECT_EQ(unitOf(&utl::convertCharFromSjisToUtf16, "\x81\xAD"), (OneUnit{1, 2, 0}));
    EXPECT_EQ(unitOf(&utl::convertCharFromSjisToUtf16, "\x82"), (OneUnit{1, 1, 0}));
}

TEST(CharFromUtf8ToUtf16, CharactersOfOneToThreeBytes_AreStored) {
    EXPECT_EQ(unitOf(&utl::convertCharFromUtf8ToUtf16, "zz"), (OneUnit{1, 1, 'z'}));
    EXPECT_EQ(unitOf(&utl::convertCharFromUtf8ToUtf16, "\x7F"), (OneUnit{1, 1, 0x7F}));
    EXPECT_EQ(unitOf(&utl::convertCharFromUtf8ToUtf16, "\xC2\x80"), (OneUnit{1, 2, 0x80}));
    EXPECT_EQ(unitOf(&utl::convertCharFromUtf8ToUtf16, "\xDF\xBF"), (OneUnit{1, 2, 0x7FF}));
    EXPECT_EQ(unitOf(&utl::convertCharFromUtf8ToUtf16, "\xE0\xA0\x80"), (OneUnit{1, 3, 0x800}));
    EXPECT_EQ(unitOf(&utl::convertCharFromUtf8ToUtf16, "\xE3\x81\x82z"), (OneUnit{1, 3, 0x3042}));
    EXPECT_EQ(unitOf(&utl::convertCharFromUtf8ToUtf16, "\xEF\xBF\xBF"), (OneUnit{1, 3, 0xFFFF}));
    EXPECT_EQ(unitOf(&utl::convertCharFromUtf8ToUtf16, "\xED\xA0\xBD"), (OneUnit{1, 3, 0xD83D}));
}

TEST(CharFromUtf8ToUtf16, AByteOrderMark_IsACharacterOfThreeBytes) {
    EXPECT_EQ(unitOf(&utl::convertCharFromUtf8ToUtf16, "\xEF\xBB\xBFz"), (OneUnit{1, 3, 0xFEFF}));
}

TEST(CharFromUtf8ToUtf16, WhatIsNoCharacterOfThreeBytes_Fails) {
    for (char const* text : {"", "\x80", "\xC0\x80", "\xC1\xBF", "\xC2", "\xC2z", "\xE3", "\xE3\x81",
                             "\xE3\x81z", "\xE0\x9F\xBF", "\xF0\x9F\x98", "\xF8", "\xFF"}) {
        EXPECT_EQ(unitOf(&utl::convertCharFromUtf8ToUtf16, text), NO_RESULT) << testing::PrintToString(text);
    }
}

TEST(CharFromUtf8ToUtf16, ACharacterOfFourBytes_FailsAndTellsWhatItCovers) {
    OneUnit expected = NO_RESULT;
    expected.consumed = 4;
    EXPECT_EQ(unitOf(&utl::convertCharFromUtf8ToUtf16, "\xF0\x9F\x98\x80"), expected);
}

TEST(CharFunctions, ANullUnit_Fails) {
    unsigned int consumed = NOT_SET;
    EXPECT_EQ(utl::convertCharFromSjisToUtf16(nullptr, "z", &consumed), INVALID_SIZE);
    EXPECT_EQ(utl::convertCharFromUtf8ToUtf16(nullptr, "z", &consumed), INVALID_SIZE);
    EXPECT_EQ(consumed, NOT_SET);
}

// --- one unit to UTF-8

// With exactly the room that it asks for, and refused one byte less.
std::string bytesOfUnit(unsigned int unit) {
    auto const code = static_cast<unsigned short>(unit);
    int bomKind = 4711;
    unsigned int const size = utl::convertCharFromUtf16ToUtf8(nullptr, 0, code, nullptr);
    std::vector<char> dst(size, '~');
    EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(dst.data(), size, code, &bomKind), size);
    EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(nullptr, size, code, nullptr), INVALID_SIZE);
    if (size > 1) {
        std::vector<char> small(size - 1, '~');
        EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(small.data(), size - 1, code, nullptr), INVALID_SIZE);
        EXPECT_EQ(small, std::vector<char>(size - 1, '~'));
    }
    EXPECT_EQ(bomKind, 4711);
    return std::string(dst.begin(), dst.end());
}

TEST(CharFromUtf16ToUtf8, UnitsAroundEachLength_GiveTheirBytes) {
    EXPECT_EQ(bytesOfUnit(0), ZERO);
    EXPECT_EQ(bytesOfUnit(0x7F), "\x7F");
    EXPECT_EQ(bytesOfUnit(0x80), "\xC2\x80");
    EXPECT_EQ(bytesOfUnit(0x7FF), "\xDF\xBF");
    EXPECT_EQ(bytesOfUnit(0x800), "\xE0\xA0\x80");
    EXPECT_EQ(bytesOfUnit(0x3042), "\xE3\x81\x82");
    EXPECT_EQ(bytesOfUnit(0xFEFE), "\xEF\xBB\xBE");
    EXPECT_EQ(bytesOfUnit(0xFF00), "\xEF\xBC\x80");
    EXPECT_EQ(bytesOfUnit(0xFFFD), "\xEF\xBF\xBD");
    EXPECT_EQ(bytesOfUnit(0xFFFF), "\xEF\xBF\xBF");
}

TEST(CharFromUtf16ToUtf8, ASurrogate_IsACharacterOfThreeBytes) {
    EXPECT_EQ(bytesOfUnit(0xD800), "\xED\xA0\x80");
    EXPECT_EQ(bytesOfUnit(0xD83D), "\xED\xA0\xBD");
    EXPECT_EQ(bytesOfUnit(0xDFFF), "\xED\xBF\xBF");
}

TEST(CharFromUtf16ToUtf8, AByteOrderMark_GivesZeroAndItsKind) {
    char dst = '~';
    int bomKind = 4711;
    EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(&dst, 1, 0xFEFF, &bomKind), 0U);
    EXPECT_EQ(bomKind, 1);
    EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(&dst, 1, 0xFFFE, &bomKind), 0U);
    EXPECT_EQ(bomKind, 2);
    for (unsigned short const mark : MARKS) {
        EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(&dst, 1, mark, nullptr), 0U);
        EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(nullptr, 1, mark, nullptr), 0U);
        EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(nullptr, 0, mark, nullptr), 0U);
    }
    EXPECT_EQ(dst, '~');
}

TEST(CharFromUtf16ToUtf8, AFailure_LeavesTheKindOfMarkAlone) {
    int bomKind = 4711;
    EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(nullptr, 1, 'z', &bomKind), INVALID_SIZE);
    EXPECT_EQ(bomKind, 4711);
}

// --- texts

TEST(CharSet, OneTextInThreeForms_IsConvertedBetweenAllOfThem) {
    EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToSjis, UTF_8)), SHIFT_JIS);
    EXPECT_EQ(textOf(converted(&utl::convertStrFromSjisToUtf8, SHIFT_JIS)), UTF_8);
    EXPECT_EQ(textOf(converted(&utl::convertStrFromSjisToUtf16, SHIFT_JIS)), UTF_16);
    EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToUtf16, UTF_8)), UTF_16);
    EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf16ToUtf8, UTF_16)), UTF_8);
}

TEST(CharSet, TheSizeAskedFor_IsTheSizeUsed) {
    char const* const sjis = SHIFT_JIS.c_str();
    unsigned int const size = utl::convertStrFromSjisToUtf8(nullptr, 0, sjis);  // with the terminator
    std::vector<char> utf8(size);
    unsigned int const used = utl::convertStrFromSjisToUtf8(utf8.data(), size, sjis);  // the same
    EXPECT_EQ(used, size);
    EXPECT_STREQ(utf8.data(), UTF_8.c_str());
}

TEST(CharSet, EmptyTexts_GiveATerminator) {
    Units const none;
    EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToSjis, EMPTY)), EMPTY);
    EXPECT_EQ(textOf(converted(&utl::convertStrFromSjisToUtf8, EMPTY)), EMPTY);
    EXPECT_EQ(textOf(converted(&utl::convertStrFromSjisToUtf16, EMPTY)), none);
    EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToUtf16, EMPTY)), none);
    EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf16ToUtf8, none)), EMPTY);
}

template <typename TO, typename FROM>
void expectNullsToFail(unsigned int (*convert)(TO*, unsigned int, FROM const*)) {
    TO dst[4] = {7, 7, 7, 7};
    FROM const text[2] = {'z', 0};
    FROM const empty[1] = {0};
    EXPECT_EQ(convert(dst, 4, nullptr), INVALID_SIZE);
    EXPECT_EQ(convert(dst, 0, nullptr), INVALID_SIZE);
    EXPECT_EQ(convert(nullptr, 0, nullptr), INVALID_SIZE);
    EXPECT_EQ(convert(nullptr, 4, text), INVALID_SIZE);
    EXPECT_EQ(convert(nullptr, 1, empty), INVALID_SIZE);
    EXPECT_EQ(convert(dst, 1, text), INVALID_SIZE);
    EXPECT_EQ(convert(dst, 0, empty), 1U);
    EXPECT_EQ(dst[0], 7);
    EXPECT_EQ(dst[1], 7);
}

TEST(CharSet, NullAndTooLittleRoom_FailInEveryStringFunction) {
    expectNullsToFail(&utl::convertStrFromUtf8ToSjis);
    expectNullsToFail(&utl::convertStrFromSjisToUtf8);
    expectNullsToFail(&utl::convertStrFromSjisToUtf16);
    expectNullsToFail(&utl::convertStrFromUtf16ToUtf8);
    expectNullsToFail(&utl::convertStrFromUtf8ToUtf16);
    expectNullsToFail(&utl::convertStrFromTcharToChar);
    expectNullsToFail(&utl::convertStrFromCharToTchar);
}

TEST(CharSet, TextThatDoesNotFit_IsWrittenAsFarAsItDoes) {
    std::string const text = "ab\x82\xA0";
    EXPECT_EQ(convertInto(5, &utl::convertStrFromSjisToUtf8, text.c_str()).result, INVALID_SIZE);
    EXPECT_EQ(convertInto(5, &utl::convertStrFromSjisToUtf8, text.c_str()).written,
              (std::vector<char>{'a', 'b'}));
    EXPECT_EQ(convertInto(3, &utl::convertStrFromSjisToUtf16, text.c_str()).written,
              (std::vector<unsigned short>{'a', 'b'}));
}

TEST(CharSet, TheLargestSizes_AreSizes) {
    for (unsigned int size : {0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        char bytes[16];
        unsigned short units[16];
        EXPECT_EQ(utl::convertStrFromUtf8ToSjis(bytes, size, UTF_8.c_str()), 7U);
        EXPECT_EQ(utl::convertStrFromSjisToUtf8(bytes, size, SHIFT_JIS.c_str()), 11U);
        EXPECT_EQ(utl::convertStrFromSjisToUtf16(units, size, SHIFT_JIS.c_str()), 5U);
        EXPECT_EQ(utl::convertStrFromUtf8ToUtf16(units, size, UTF_8.c_str()), 5U);
        EXPECT_EQ(utl::convertStrFromUtf16ToUtf8(bytes, size, terminated(UTF_16).get()), 11U);
    }
}

// --- what has no counterpart

TEST(StrFromUtf8ToSjis, ACharacterWithoutACode_IsAZeroByteThatCounts) {
    auto const result = converted(&utl::convertStrFromUtf8ToSjis, std::string("a\xC3\xA9z"));
    EXPECT_EQ(result.result, 4U);
    EXPECT_EQ(textOf(result), "a" + ZERO + "z");
}

TEST(StrFromUtf8ToSjis, LeadsAtTheEnd_AreOneZeroByte) {
    for (char const* end : {"\xC2", "\xE3", "\xE3\x81"}) {
        EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToSjis, std::string("a") + end)), "a" + ZERO);
    }
}

TEST(StrFromUtf8ToSjis, BytesThatBeginNoKey_PassAsTheyAre) {
    for (std::string const text : {"\x80\xBF\xC0\xC1", "\xD2\x80\xDF\xBF", "\xE0\xA0\x80\xE1\x80\x80",
                                   "\xEA\x80\x80\xEE\xBF\xBF", "\xF0\x9F\x98\x80", "\xFE\xFF"}) {
        EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToSjis, text)), text);
    }
}

// What looks like them and is what Windows uses has one: U+FF5E, U+FF0D, U+2015, U+2225, U+FFE0 to U+FFE2.
TEST(StrFromUtf8ToSjis, SignsThatOtherSystemsUse_HaveNoCode) {
    for (char const* sign : {"\xE3\x80\x9C", "\xE2\x88\x92", "\xE2\x80\x94", "\xE2\x80\x96", "\xC2\xA2",
                             "\xC2\xA3", "\xC2\xAC", "\xC2\xA5", "\xE2\x80\xBE"}) {
        EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToSjis, std::string(sign) + "z")), ZERO + "z");
    }
    for (char const* sign : {"\xEF\xBD\x9E", "\xEF\xBC\x8D", "\xE2\x80\x95", "\xE2\x88\xA5", "\xEF\xBF\xA0",
                             "\xEF\xBF\xA1", "\xEF\xBF\xA2", "\xEF\xBF\xA5", "\xEF\xBF\xA3"}) {
        EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToSjis, std::string(sign))).size(), 2U);
    }
}

TEST(StrFromUtf8ToSjis, OfSeveralCodes_WritesTheOneThatOthersWrite) {
    // Not sign: row 2 of JIS X 0208, 0xEE and 0xFA. Because: JIS X 0208, 0x87 and 0xFA. Roman one: 0x87 and
    // 0xFA. A kanji of IBM's: 0xED and 0xFA.
    EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToSjis, std::string("\xEF\xBF\xA2"))), "\x81\xCA");
    EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToSjis, std::string("\xE2\x88\xB5"))), "\x81\xE6");
    EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToSjis, std::string("\xE2\x85\xA0"))), "\x87\x54");
    EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToSjis, std::string("\xE7\xBA\x8A"))), "\xFA\x5C");
}

TEST(StrFromSjisToUtf8, ACodeWithoutACharacter_IsAZeroByteThatCounts) {
    EXPECT_EQ(textOf(converted(&utl::convertStrFromSjisToUtf8, std::string("a\x81\xADz"))), "a" + ZERO + "z");
    EXPECT_EQ(textOf(converted(&utl::convertStrFromSjisToUtf8, std::string("a\x82"))), "a" + ZERO);
}

TEST(StrFromSjisToUtf16, ACodeWithoutACharacter_IsAReferenceMark) {
    EXPECT_EQ(textOf(converted(&utl::convertStrFromSjisToUtf16, std::string("a\x81\xADz"))),
              (Units{'a', 0x203B, 'z'}));
    EXPECT_EQ(textOf(converted(&utl::convertStrFromSjisToUtf16, std::string("a\x82"))), (Units{'a', 0x203B}));
}

TEST(StrFromSjis, Literals_PassAsTheyAre) {
    std::string const text = "\x01~\x7F\x80\xA0\xF0\xF9\xFD\xFE\xFF";
    EXPECT_EQ(textOf(converted(&utl::convertStrFromSjisToUtf8, text)), text);
    EXPECT_EQ(textOf(converted(&utl::convertStrFromSjisToUtf16, text)),
              (Units{1, '~', 0x7F, 0x80, 0xA0, 0xF0, 0xF9, 0xFD, 0xFE, 0xFF}));
}

// Every half-width kana has a character in the table. What would happen without is decided apart from it.
TEST(StrFromSjis, HalfWidthKanaWithoutACharacter_IsAnAsterisk) {
    utl::SjisChar const kana{utl::SjisKind::KANA, 1, &utl::UNMAPPED_SJIS};
    utl::SjisChar const wide{utl::SjisKind::DOUBLE, 2, &utl::UNMAPPED_SJIS};
    EXPECT_EQ(utl::utf8InText(kana), 0x2AU);
    EXPECT_EQ(utl::utf16InText(kana), 0x2AU);
    EXPECT_EQ(utl::utf8InText(wide), 0U);
    EXPECT_EQ(utl::utf16InText(wide), 0x203BU);
}

TEST(StrFromUtf16ToUtf8, AByteOrderMarkAnywhere_Fails) {
    for (unsigned short const mark : MARKS) {
        EXPECT_EQ(converted(&utl::convertStrFromUtf16ToUtf8, Units{mark}).result, INVALID_SIZE);
        EXPECT_EQ(converted(&utl::convertStrFromUtf16ToUtf8, Units{mark, 'a'}).result, INVALID_SIZE);
        EXPECT_EQ(converted(&utl::convertStrFromUtf16ToUtf8, Units{'a', mark}).result, INVALID_SIZE);
    }
}

TEST(StrFromUtf16ToUtf8, SurrogatePairs_AreNotCombined) {
    EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf16ToUtf8, Units{0xD83D, 0xDE00})),
              "\xED\xA0\xBD\xED\xB8\x80");
    EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToUtf16, std::string("\xED\xA0\xBD\xED\xB8\x80"))),
              (Units{0xD83D, 0xDE00}));
}

TEST(StrFromUtf8ToUtf16, ACharacterOfFourBytes_IsAReferenceMark) {
    EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToUtf16, std::string("a\xF0\x9F\x98\x80z"))),
              (Units{'a', 0x203B, 'z'}));
    EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToUtf16, std::string("\xF7\xBF\xBF\xBF"))),
              (Units{0x203B}));
}

TEST(StrFromUtf8ToUtf16, AByteOrderMark_IsConverted) {
    EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToUtf16, std::string("\xEF\xBB\xBFz"))),
              (Units{0xFEFF, 'z'}));
}

TEST(StrFromUtf8ToUtf16, ABrokenCharacter_EndsTheTextWithSuccess) {
    for (char const* broken :
         {"\xC2", "\xC0\x80", "\xC1\xBF", "\xC2z", "\xE3", "\xE3\x81", "\xE3z", "\xE3\x81z", "\xE0\x9F\xBF",
          "\xF0\x9F\x98", "\xF0\x8F\xBF\xBF", "\xF0\x9F\x98z"}) {
        EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToUtf16, std::string("ab") + broken + "yy")),
                  (Units{'a', 'b'}))
            << testing::PrintToString(broken);
    }
}

TEST(StrFromUtf8ToUtf16, AByteThatStartsNoCharacter_Fails) {
    for (char const* stray : {"\x80", "\xBF", "\xF8", "\xFF"}) {
        EXPECT_EQ(converted(&utl::convertStrFromUtf8ToUtf16, std::string("ab") + stray + "yy").result,
                  INVALID_SIZE)
            << testing::PrintToString(stray);
    }
}

// --- wide text

TEST(StrFromTcharToWchar, Text_IsConvertedWithItsTerminator) {
    wchar_t dst[5] = {7, 7, 7, 7, 7};
    EXPECT_EQ(utl::convertStrFromTcharToWchar(dst, 4, "\xE3\x81\x82z\xF0\x9F\x98\x80"), 4U);
    EXPECT_EQ(std::wstring(dst, 5), std::wstring({0x3042, L'z', 0x1F600, 0, 7}));
}

TEST(StrFromTcharToWchar, TheSizeAskedFor_IsAnUpperBound) {
    EXPECT_EQ(utl::convertStrFromTcharToWchar(nullptr, 0, "\xE3\x81\x82z"), 5U);
    EXPECT_EQ(utl::convertStrFromTcharToWchar(nullptr, 0, "\xFF"), 2U);
    EXPECT_EQ(utl::convertStrFromTcharToWchar(nullptr, 0, ""), 1U);
}

TEST(StrFromTcharToWchar, TextThatLeavesNoPlaceForTheTerminator_Fails) {
    std::vector<wchar_t> dst(2, 7);
    EXPECT_EQ(utl::convertStrFromTcharToWchar(dst.data(), 1, "ab"), INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromTcharToWchar(dst.data(), 2, "ab"), INVALID_SIZE);
    dst.push_back(7);
    EXPECT_EQ(utl::convertStrFromTcharToWchar(dst.data(), 3, "ab"), 3U);
}

TEST(StrFromTcharToWchar, MalformedText_Fails) {
    wchar_t dst[8];
    for (char const* text : {"\x80", "a\xFF", "\xC0\x80", "\xE3\x81", "\xED\xA0\x80", "\xF7\xBF\xBF\xBF"}) {
        EXPECT_EQ(utl::convertStrFromTcharToWchar(dst, 8, text), INVALID_SIZE)
            << testing::PrintToString(text);
    }
}

TEST(StrFromTcharToWchar, EmptyText_GivesATerminator) {
    wchar_t dst = 7;
    EXPECT_EQ(utl::convertStrFromTcharToWchar(&dst, 1, ""), 1U);
    EXPECT_EQ(dst, L'\0');
}

TEST(StrFromTcharToWchar, Null_Fails) {
    wchar_t dst = 7;
    EXPECT_EQ(utl::convertStrFromTcharToWchar(&dst, 1, nullptr), INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromTcharToWchar(&dst, 0, nullptr), INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromTcharToWchar(nullptr, 1, ""), INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromTcharToWchar(nullptr, 9, "ab"), INVALID_SIZE);
    EXPECT_EQ(dst, 7);
}

TEST(StrFromWcharToTchar, Text_IsConvertedWithItsTerminator) {
    char dst[10] = "~~~~~~~~~";
    wchar_t const src[] = {0x3042, L'z', 0x1F600, 0};
    EXPECT_EQ(utl::convertStrFromWcharToTchar(dst, 9, src), 9U);
    EXPECT_STREQ(dst, "\xE3\x81\x82z\xF0\x9F\x98\x80");
}

TEST(StrFromWcharToTchar, TheSizeAskedFor_IsSixBytesACharacterAndATerminator) {
    EXPECT_EQ(utl::convertStrFromWcharToTchar(nullptr, 0, L"abc"), 19U);
    EXPECT_EQ(utl::convertStrFromWcharToTchar(nullptr, 0, L""), 1U);
}

TEST(StrFromWcharToTchar, TextThatLeavesNoPlaceForTheTerminator_Fails) {
    std::vector<char> dst(3, '~');
    EXPECT_EQ(utl::convertStrFromWcharToTchar(dst.data(), 2, L"\u3042"), INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromWcharToTchar(dst.data(), 3, L"\u3042"), INVALID_SIZE);
    dst.push_back('~');
    EXPECT_EQ(utl::convertStrFromWcharToTchar(dst.data(), 4, L"\u3042"), 4U);
}

TEST(StrFromWcharToTchar, WhatIsNoCharacter_Fails) {
    char dst[16];
    for (unsigned int code : {0xD800U, 0xDFFFU, 0x110000U, 0x80000000U, 0xFFFFFFFFU}) {
        wchar_t const src[] = {L'a', static_cast<wchar_t>(code), 0};
        EXPECT_EQ(utl::convertStrFromWcharToTchar(dst, 16, src), INVALID_SIZE) << code;
    }
}

TEST(StrFromWcharToTchar, EmptyText_GivesATerminator) {
    char dst = '~';
    EXPECT_EQ(utl::convertStrFromWcharToTchar(&dst, 1, L""), 1U);
    EXPECT_EQ(dst, '\0');
}

TEST(StrFromWcharToTchar, Null_Fails) {
    char dst = '~';
    EXPECT_EQ(utl::convertStrFromWcharToTchar(&dst, 1, nullptr), INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromWcharToTchar(&dst, 0, nullptr), INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromWcharToTchar(nullptr, 1, L""), INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromWcharToTchar(nullptr, 99, L"ab"), INVALID_SIZE);
    EXPECT_EQ(dst, '~');
}

TEST(StrFromTcharToChar, BothDirections_CopyEveryByteAsItIs) {
    std::string const text = "\xE3\x81\x82\xFF\x80\xC2";
    EXPECT_EQ(textOf(converted(&utl::convertStrFromTcharToChar, text)), text);
    EXPECT_EQ(textOf(converted(&utl::convertStrFromCharToTchar, text)), text);
    EXPECT_EQ(convertInto(6, &utl::convertStrFromTcharToChar, text.c_str()).written, std::vector<char>());
    EXPECT_EQ(convertInto(6, &utl::convertStrFromCharToTchar, text.c_str()).written, std::vector<char>());
}

// --- bytes

using Octets = std::vector<unsigned char>;
using utltest::exactly;
using utltest::utf8Of;
using namespace std::string_literals;

// Into exactly `size` bytes.
Octets octetsOf(Units const& units, unsigned int length, int order, unsigned int size) {
    Octets dst(size, 0x7E);
    unsigned int const result =
        utl::convertStrFromDcharToUint8(dst.data(), size, terminated(units).get(), length, order);
    EXPECT_EQ(result, size);
    EXPECT_EQ(utl::convertStrFromDcharToUint8(nullptr, 0, terminated(units).get(), length, order), size);
    return dst;
}

TEST(StrFromDcharToUint8, Order1_PutsTheHighByteFirstAndAnyOtherLast) {
    EXPECT_EQ(octetsOf({0x1234}, INVALID_SIZE, 1, 2), (Octets{0x12, 0x34}));
    for (int order : {0, 2, -1, INT_MIN, INT_MAX}) {
        EXPECT_EQ(octetsOf({0x1234, 0xFFFE}, INVALID_SIZE, order, 4), (Octets{0x34, 0x12, 0xFE, 0xFF}));
    }
}

TEST(StrFromDcharToUint8, TheFirstZeroUnitOrTheLength_EndsTheText) {
    EXPECT_EQ(octetsOf({1, 2, 3}, 2, 1, 4), (Octets{0, 1, 0, 2}));
    EXPECT_EQ(octetsOf({1, 2, 3}, 3, 1, 6), (Octets{0, 1, 0, 2, 0, 3}));
    EXPECT_EQ(octetsOf({1, 2, 3}, 4, 1, 6), (Octets{0, 1, 0, 2, 0, 3}));
    EXPECT_EQ(octetsOf({1, 0, 3}, 3, 1, 2), (Octets{0, 1}));
    unsigned short const unterminated[] = {1, 2};
    EXPECT_EQ(utl::convertStrFromDcharToUint8(nullptr, 0, unterminated, 2, 1), 4U);
}

TEST(StrFromDcharToUint8, EmptyText_GivesZeroBytes) {
    unsigned char dst = 0x7E;
    for (unsigned int length : {0U, 1U, INVALID_SIZE}) {
        EXPECT_EQ(utl::convertStrFromDcharToUint8(&dst, 1, terminated(Units{}).get(), length, 1), 0U);
        EXPECT_EQ(utl::convertStrFromDcharToUint8(nullptr, 0, terminated(Units{}).get(), length, 1), 0U);
    }
    EXPECT_EQ(utl::convertStrFromDcharToUint8(&dst, 1, terminated(Units{5}).get(), 0, 1), 0U);
    EXPECT_EQ(dst, 0x7E);
}

TEST(StrFromDcharToUint8, TooLittleRoom_FailsAndWritesNothing) {
    for (unsigned int size : {1U, 2U, 3U}) {
        Octets dst(size, 0x7E);
        EXPECT_EQ(utl::convertStrFromDcharToUint8(dst.data(), size, terminated(Units{1, 2}).get(), 2, 1),
                  INVALID_SIZE);
        EXPECT_EQ(dst, Octets(size, 0x7E));
    }
    Octets dst(5, 0x7E);
    EXPECT_EQ(utl::convertStrFromDcharToUint8(dst.data(), 5, terminated(Units{1, 2}).get(), 2, 1), 4U);
    EXPECT_EQ(dst, (Octets{0, 1, 0, 2, 0x7E}));
}

TEST(StrFromDcharToUint8, Null_Fails) {
    unsigned char dst = 0x7E;
    EXPECT_EQ(utl::convertStrFromDcharToUint8(&dst, 1, nullptr, 0, 1), INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromDcharToUint8(nullptr, 0, nullptr, 0, 1), INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromDcharToUint8(nullptr, 9, terminated(Units{1}).get(), 1, 1), INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromDcharToUint8(nullptr, 9, terminated(Units{}).get(), 1, 1), INVALID_SIZE);
}

// Into exactly `count` units.
Units unitsOf(Octets const& bytes, int order, unsigned int count) {
    Units dst(count, 0x7E7E);
    auto const size = static_cast<unsigned int>(bytes.size());
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(dst.data(), count, bytes.data(), size, order), count);
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(nullptr, 0, bytes.data(), size, order), count);
    return dst;
}

TEST(BinFromUint8ToDchar, Order1_TakesTheFirstByteAsTheHighOneAndAnyOtherAsTheLow) {
    EXPECT_EQ(unitsOf({0x12, 0x34, 0, 0, 0xFF, 0xFE}, 1, 3), (Units{0x1234, 0, 0xFFFE}));
    for (int order : {0, 2, -1, INT_MIN, INT_MAX}) {
        EXPECT_EQ(unitsOf({0x12, 0x34, 0, 0, 0xFF, 0xFE}, order, 3), (Units{0x3412, 0, 0xFEFF}));
    }
}

TEST(BinFromUint8ToDchar, AnOddSize_Fails) {
    Octets const bytes(9);
    Units dst(4, 0x7E7E);
    for (unsigned int size : {1U, 3U, 9U}) {
        EXPECT_EQ(utl::convertBinFromUint8ToDchar(dst.data(), 4, bytes.data(), size, 1), INVALID_SIZE);
        EXPECT_EQ(utl::convertBinFromUint8ToDchar(nullptr, 0, bytes.data(), size, 1), INVALID_SIZE);
    }
    EXPECT_EQ(dst, Units(4, 0x7E7E));
}

TEST(BinFromUint8ToDchar, TooLittleRoom_FailsAndWritesNothing) {
    Octets const bytes{0, 1, 0, 2};
    Units dst(1, 0x7E7E);
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(dst.data(), 1, bytes.data(), 4, 1), INVALID_SIZE);
    EXPECT_EQ(dst, Units{0x7E7E});
    dst.assign(3, 0x7E7E);
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(dst.data(), 3, bytes.data(), 4, 1), 2U);
    EXPECT_EQ(dst, (Units{1, 2, 0x7E7E}));
}

TEST(BinFromUint8ToDchar, NoBytes_GiveNoUnits) {
    unsigned char const byte = 1;
    unsigned short dst = 0x7E7E;
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(&dst, 1, &byte, 0, 1), 0U);
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(nullptr, 0, &byte, 0, 1), 0U);
    EXPECT_EQ(dst, 0x7E7E);
}

TEST(BinFromUint8ToDchar, Null_Fails) {
    unsigned char const bytes[2] = {0, 1};
    unsigned short dst = 0x7E7E;
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(&dst, 1, nullptr, 0, 1), INVALID_SIZE);
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(nullptr, 0, nullptr, 2, 1), INVALID_SIZE);
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(nullptr, 1, bytes, 2, 1), INVALID_SIZE);
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(nullptr, 1, bytes, 0, 1), INVALID_SIZE);
    EXPECT_EQ(dst, 0x7E7E);
}

// --- on its own

// One call of each function that converts text.
void convertAll() {
    char bytes[32];
    unsigned short units[32];
    wchar_t wide[32];
    unsigned int const size = 32;
    utl::convertStrFromUtf8ToSjis(bytes, size, "\xE3\x81\x82z");
    utl::convertCharFromUtf8ToSjis(bytes, size, "\xE3\x81\x82z", nullptr);
    utl::convertStrFromSjisToUtf8(bytes, size, "\x82\xA0z");
    utl::convertCharFromSjisToUtf8(bytes, size, "\x82\xA0z", nullptr);
    utl::convertStrFromSjisToUtf16(units, size, "\x82\xA0z");
    utl::convertCharFromSjisToUtf16(units, "\x82\xA0z", nullptr);
    utl::convertStrFromUtf8ToUtf16(units, size, "\xE3\x81\x82z");
    utl::convertCharFromUtf8ToUtf16(units, "\xE3\x81\x82z", nullptr);
    unsigned short const source[] = {0x3042, 'z', 0};
    utl::convertStrFromUtf16ToUtf8(bytes, size, source);
    utl::convertCharFromUtf16ToUtf8(bytes, size, source[0], nullptr);
    utl::convertStrFromTcharToWchar(wide, size, "\xE3\x81\x82z");
    utl::convertStrFromWcharToTchar(bytes, size, L"\u3042z");
    utl::convertStrFromTcharToChar(bytes, size, "\xE3\x81\x82z");
    utl::convertStrFromCharToTchar(bytes, size, "\xE3\x81\x82z");
}

TEST(CharSet, Conversions_TakeNothingFromTheHeap) {
    unsigned int const before = utltest::allocations();
    convertAll();
    EXPECT_EQ(utltest::allocations(), before);
}

TEST(CharSet, Conversions_DoNotWaitForAScratchBuffer) {
    EXPECT_FALSE(utltest::waitsForScratch(&convertAll));
}

/// What a character function returned: its result, the bytes it covered, and what it wrote into room of
/// exactly `size`.
struct Step {
    unsigned int result;
    unsigned int consumed;
    std::string written;

    friend bool operator==(Step const& left, Step const& right) {
        return left.result == right.result && left.consumed == right.consumed &&
               left.written == right.written;
    }
    friend std::ostream& operator<<(std::ostream& out, Step const& step) {
        return out << step.result << '/' << step.consumed << '/' << testing::PrintToString(step.written);
    }
};

Step stepInto(unsigned int size, CharFunction convert, std::string const& src) {
    std::vector<char> dst(size, '#');
    Step step{0, NOT_SET, {}};
    step.result = convert(dst.data(), size, exactly(src).data(), &step.consumed);
    step.written = std::string(dst.begin(), dst.end());
    return step;
}

/// The step with just the room it asks for. Without a buffer it must ask for the same and cover the same.
Step stepOf(CharFunction convert, std::string const& src) {
    unsigned int consumed = NOT_SET;
    unsigned int const needed = convert(nullptr, 0, exactly(src).data(), &consumed);
    Step const step = stepInto(needed, convert, src);
    EXPECT_EQ(step.result, needed);
    EXPECT_EQ(step.consumed, consumed);
    return step;
}

Step stepToSjis(std::string const& src) {
    return stepOf(utl::convertCharFromUtf8ToSjis, src);
}

Step stepToUtf8(std::string const& src) {
    return stepOf(utl::convertCharFromSjisToUtf8, src);
}

std::string byteOf(unsigned int value) {
    return {static_cast<char>(value)};
}

std::string bytesOf(unsigned int code) {
    return code < 0x100 ? byteOf(code) : byteOf(code >> 8) + byteOf(code & 0xFF);
}

/// The unit of one Shift-JIS character, checked against the result and the bytes that were covered.
unsigned int unitOfStep(std::string const& src, unsigned int expectedResult, unsigned int expectedConsumed) {
    unsigned short unit = 0xBEEF;
    unsigned int consumed = NOT_SET;
    EXPECT_EQ(utl::convertCharFromSjisToUtf16(&unit, exactly(src).data(), &consumed), expectedResult);
    EXPECT_EQ(consumed, expectedConsumed);
    return unit;
}

bool isLead(unsigned int byte) {
    return (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xEF) || (byte >= 0xFA && byte <= 0xFC);
}

bool isKana(unsigned int byte) {
    return byte >= 0xA1 && byte <= 0xDF;
}

TEST(CharSet, SjisToAny_OfEveryFirstByte_CoversWhatItsClassSays) {
    for (unsigned int byte = 1; byte < 0x100; ++byte) {
        std::string const src = byteOf(byte) + "\x40y"s;
        unsigned int const covered = isLead(byte) ? 2 : 1;
        EXPECT_EQ(stepToUtf8(src).consumed, covered) << byte;
        bool const isLiteral = !isLead(byte) && !isKana(byte);
        unsigned int const unit = unitOfStep(src, isLiteral ? 2 : 1, covered);
        if (isLiteral) {
            EXPECT_EQ(stepToUtf8(src).written, byteOf(byte)) << byte;
            EXPECT_EQ(unit, byte);
        }
        if (isKana(byte)) {
            EXPECT_EQ(unit, 0xFF61 + byte - 0xA1);
            EXPECT_EQ(stepToUtf8(src).written, utf8Of(unit));
        }
    }
    EXPECT_EQ(stepToUtf8(""), (Step{1, 1, "\0"s}));
    EXPECT_EQ(unitOfStep("", 2, 1), 0U);
}

TEST(CharSet, Utf8ToSjis_OfEveryFirstByte_CoversWhatItsClassSays) {
    for (unsigned int byte = 1; byte < 0x100; ++byte) {
        bool const isTwo = byte >= 0xC2 && byte <= 0xD1;
        bool const isThree = (byte >= 0xE2 && byte <= 0xE9) || byte == 0xEF;
        unsigned int const covered = isThree ? 3 : isTwo ? 2 : 1;
        Step const step = stepToSjis(byteOf(byte) + "abc");
        EXPECT_EQ(step, (Step{1, covered, covered == 1 ? byteOf(byte) : "\0"s})) << byte;
    }
    EXPECT_EQ(textOf(converted(utl::convertStrFromUtf8ToSjis, "\xEA\xB0\x80\xF0\x9F\x98\x80\xDF\xBF"s)),
              "\xEA\xB0\x80\xF0\x9F\x98\x80\xDF\xBF");
    EXPECT_EQ(stepToSjis(""), (Step{1, 1, "\0"s}));
}

TEST(CharSet, AnyConversion_OfALeadByteInFrontOfTheTerminator_CoversWhatIsThere) {
    for (std::string const cut : {"\xC2", "\xD1", "\xE3", "\xE3\x81", "\xEF\xBD", "\xE3x", "\xE3\xE3"}) {
        EXPECT_EQ(stepToSjis(cut), (Step{1, static_cast<unsigned int>(cut.size()), "\0"s})) << cut;
        EXPECT_EQ(textOf(converted(utl::convertStrFromUtf8ToSjis, "a" + cut)), "a\0"s) << cut;
    }
    for (unsigned int lead = 0x81; lead < 0x100; ++lead) {
        if (isLead(lead)) {
            EXPECT_EQ(stepToUtf8(byteOf(lead)), (Step{1, 1, "\0"s})) << lead;
            EXPECT_EQ(unitOfStep(byteOf(lead), 1, 1), 0U) << lead;
            EXPECT_EQ(textOf(converted(utl::convertStrFromSjisToUtf8, "a" + byteOf(lead))), "a\0"s);
            EXPECT_EQ(textOf(converted(utl::convertStrFromSjisToUtf16, "a" + byteOf(lead))),
                      (Units{'a', 0x203B}));
        }
    }
}

TEST(CharSet, Tables_ThereAndBack_HaveAllTheirCharactersAndNoOthers) {
    unsigned int characters = 0;
    for (unsigned int code = 0x80; code < 0x10000; ++code) {
        std::string const utf8 = utf8Of(code);
        Step const step = stepToSjis(utf8);
        if (step.consumed == utf8.size() && step.written != "\0"s) {
            ++characters;
            EXPECT_EQ(stepToUtf8(step.written),
                      (Step{static_cast<unsigned int>(utf8.size()), step.result, utf8}));
            EXPECT_EQ(unitOfStep(step.written, 1, step.result), code);
        }
    }
    EXPECT_EQ(characters, 7389U);
    unsigned int codes = 0;
    for (unsigned int code = 0xA1; code < 0x10000; ++code) {
        unsigned int const first = code < 0x100 ? code : code >> 8;
        bool const isCode = code < 0x100 ? isKana(first) : isLead(first) && (code & 0xFF) != 0;
        if (isCode && stepToUtf8(bytesOf(code)).written != "\0"s) {
            ++codes;
            EXPECT_EQ(utf8Of(unitOfStep(bytesOf(code), 1, code < 0x100 ? 1 : 2)),
                      stepToUtf8(bytesOf(code)).written);
        }
    }
    EXPECT_EQ(codes, 7787U);
}

TEST(CharSet, Utf8ToSjis_OfACharacterWithSeveralCodes_WritesTheOneThatOthersWrite) {
    struct {
        unsigned int unicode;
        unsigned int sjis;
    } const rows[] = {{0x2252, 0x81E0}, {0x2235, 0x81E6}, {0x222A, 0x81BE}, {0xFFE2, 0x81CA},
                      {0x2160, 0x8754}, {0x3231, 0x878A}, {0x2116, 0x8782}, {0x2121, 0x8784},
                      {0x2170, 0xFA40}, {0xFFE4, 0xFA55}, {0x7E8A, 0xFA5C}, {0x9ED1, 0xFC4B},
                      {0xFF5E, 0x8160}, {0x2225, 0x8161}, {0xFF0D, 0x817C}};
    for (auto const& row : rows) {
        EXPECT_EQ(stepToSjis(utf8Of(row.unicode)).written, bytesOf(row.sjis)) << std::hex << row.unicode;
    }
    for (unsigned int const other : {0x8790U, 0xFA54U, 0xEEF9U, 0xFA4AU, 0xED40U, 0xEEEFU, 0xFA5BU}) {
        EXPECT_NE(stepToSjis(stepToUtf8(bytesOf(other)).written).written, bytesOf(other))
            << std::hex << other;
    }
}

TEST(CharSet, AnyCharacterFunction_WithTooLittleRoom_TouchesTheCountAlone) {
    EXPECT_EQ(stepInto(1, utl::convertCharFromUtf8ToSjis, "あ"), (Step{utl::INVALID_SIZE, 3, "#"}));
    EXPECT_EQ(stepInto(1, utl::convertCharFromSjisToUtf8, "\xB1"), (Step{utl::INVALID_SIZE, 1, "#"}));
    EXPECT_EQ(stepInto(1, utl::convertCharFromSjisToUtf8, "\x81\x98"), (Step{utl::INVALID_SIZE, 2, "#"}));
    EXPECT_EQ(stepInto(2, utl::convertCharFromSjisToUtf8, "\x82\xA0"), (Step{utl::INVALID_SIZE, 2, "##"}));
}

TEST(CharSet, AnyCharacterFunction_ThatSeesNoCharacter_TouchesNeitherTheTextNorTheCount) {
    unsigned int consumed = NOT_SET;
    unsigned short unit = 0xBEEF;
    EXPECT_EQ(utl::convertCharFromUtf8ToSjis(nullptr, 9, nullptr, &consumed), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertCharFromSjisToUtf8(nullptr, 9, nullptr, &consumed), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertCharFromSjisToUtf16(nullptr, "a", &consumed), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertCharFromUtf8ToUtf16(nullptr, "a", &consumed), utl::INVALID_SIZE);
    for (char const* const text : {"", "\x80", "\xC3", "\xC3x", "\xC0\x80", "\xE3\x81", "\xF0\x9F\x98"}) {
        EXPECT_EQ(utl::convertCharFromUtf8ToUtf16(&unit, exactly(text).data(), &consumed), utl::INVALID_SIZE);
    }
    EXPECT_EQ(utl::convertCharFromUtf8ToUtf16(&unit, nullptr, &consumed), utl::INVALID_SIZE);
    EXPECT_EQ(consumed, NOT_SET);
    EXPECT_EQ(unit, 0xBEEF);
}

TEST(CharSet, AnyCharacterFunction_OfALiteralByte_NeedsNoBuffer) {
    char dst = '#';
    unsigned int consumed = NOT_SET;
    EXPECT_EQ(utl::convertCharFromUtf8ToSjis(nullptr, 9, "a", &consumed), 1U);
    EXPECT_EQ(consumed, 1U);
    EXPECT_EQ(utl::convertCharFromSjisToUtf8(nullptr, 9, "\xFF", nullptr), 1U);
    EXPECT_EQ(utl::convertCharFromUtf8ToSjis(&dst, 0, "a", nullptr), 1U);
    EXPECT_EQ(utl::convertCharFromSjisToUtf8(&dst, 0, "a", nullptr), 1U);
    EXPECT_EQ(utl::convertCharFromSjisToUtf8(&dst, 0, "\xB1", nullptr), 3U);
    EXPECT_EQ(dst, '#');
}

TEST(CharSet, AnyStringFunction_OfUnmappedCharacters_WritesWhatItsDirectionHas) {
    EXPECT_EQ(textOf(converted(utl::convertStrFromUtf8ToSjis, "a\xE2\x82\xAC\xC2\xA5あ"s)), "a\0\0\x82\xA0"s);
    EXPECT_EQ(textOf(converted(utl::convertStrFromSjisToUtf8,
                               "\x81\xAD"
                               "b\x85\x40\x82\xA0"s)),
              "\0b\0あ"s);
    EXPECT_EQ(textOf(converted(utl::convertStrFromSjisToUtf16,
                               "\x81\xAD"
                               "b\x81\n\xFF"s)),
              (Units{0x203B, 'b', 0x203B, 0xFF}));
    EXPECT_EQ(textOf(converted(utl::convertStrFromUtf8ToUtf16, "\xF4\x90\x80\x80\xEF\xBB\xBF\xED\xA0\x80"s)),
              (Units{0x203B, 0xFEFF, 0xD800}));
}

TEST(CharSet, AnyStringFunction_WithTooLittleRoom_KeepsWhatItWroteAndNothingMore) {
    auto const written = [](auto convert, auto const& src, unsigned int size) {
        return utltest::convertInto(size, convert, utltest::terminated(src).get()).written.size();
    };
    using Text = std::string;
    EXPECT_EQ(written(utl::convertStrFromUtf8ToSjis, Text("aあ"), 3), 1U);
    EXPECT_EQ(written(utl::convertStrFromSjisToUtf8, Text("ab\xB1"), 5), 2U);
    EXPECT_EQ(written(utl::convertStrFromSjisToUtf16, Text("\xB1\x82\xA0"), 2), 1U);
    EXPECT_EQ(written(utl::convertStrFromUtf8ToUtf16, Text("あい"), 2), 1U);
    EXPECT_EQ(written(utl::convertStrFromUtf8ToUtf16, Text("あ\x80"), 9), 1U);
    EXPECT_EQ(written(utl::convertStrFromUtf16ToUtf8, Units{'a', 0xFFFE, 'b'}, 9), 1U);
    EXPECT_EQ(utl::convertStrFromUtf8ToSjis(nullptr, 1, ""), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromSjisToUtf8(nullptr, 1, ""), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromSjisToUtf16(nullptr, 1, ""), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromUtf8ToUtf16(nullptr, 1, ""), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromUtf16ToUtf8(nullptr, 1, Units{0}.data()), utl::INVALID_SIZE);
}

TEST(CharSet, Utf16ToUtf8_AtTheLimitsOfItsForms_TakesOneToThreeBytes) {
    for (unsigned int const code : {0U, 1U, 0x7FU, 0x80U, 0x7FFU, 0x800U, 0xD7FFU, 0xD800U, 0xDFFFU, 0xFEFEU,
                                    0xFF00U, 0xFFFDU, 0xFFFFU}) {
        std::string const expected = utf8Of(code);
        auto const unit = static_cast<unsigned short>(code);
        auto const size = static_cast<unsigned int>(expected.size());
        std::vector<char> dst(size, '#');
        int bomKind = 9;
        EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(nullptr, 0, unit, &bomKind), size) << code;
        EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(nullptr, size, unit, &bomKind), utl::INVALID_SIZE) << code;
        if (size > 1) {
            EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(dst.data(), size - 1, unit, &bomKind),
                      utl::INVALID_SIZE);
            EXPECT_EQ(dst[0], '#');
        }
        EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(dst.data(), size, unit, &bomKind), size) << code;
        EXPECT_EQ(std::string(dst.begin(), dst.end()), expected) << code;
        EXPECT_EQ(bomKind, 9);
    }
    char dst = '#';
    int bomKind = 9;
    EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(nullptr, 1, 0xFEFF, &bomKind), 0U);
    EXPECT_EQ(bomKind, 1);
    EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(&dst, 1, 0xFFFE, &bomKind), 0U);
    EXPECT_EQ(bomKind, 2);
    EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(&dst, 1, 0xFEFF, nullptr), 0U);
    EXPECT_EQ(dst, '#');
}

TEST(CharSet, Utf8ToUtf16_OfMalformedText_EndsItBehindALeadByteAndFailsElsewhere) {
    for (std::string const broken : {"\xC3", "\xC3x", "\xE3\x81", "\xE3\x81x", "\xC0\x80", "\xE0\x80\x80",
                                     "\xF0\x80\x80\x80", "\xEF\xBB"}) {
        EXPECT_EQ(textOf(converted(utl::convertStrFromUtf8ToUtf16, "あ" + broken)), (Units{0x3042}))
            << broken;
        EXPECT_EQ(textOf(converted(utl::convertStrFromUtf8ToUtf16, broken)), Units()) << broken;
    }
    for (std::string const broken : {"\x80", "\xBFx", "\xF8\x80\x80\x80", "\xFF"}) {
        EXPECT_EQ(converted(utl::convertStrFromUtf8ToUtf16, "あ" + broken).result, utl::INVALID_SIZE)
            << broken;
    }
}

TEST(CharSet, TcharAndWchar_ThatFillTheBufferToTheLastPlace_Fail) {
    std::string const text = "aあ\xF0\x9F\x98\x80";
    std::wstring const wide = L"aあ\U0001F600";
    EXPECT_EQ(utl::convertStrFromTcharToWchar(nullptr, 0, text.c_str()), 9U);
    EXPECT_EQ(utl::convertStrFromWcharToTchar(nullptr, 0, wide.c_str()), 19U);
    std::vector<wchar_t> wideDst(4, L'#');
    EXPECT_EQ(utl::convertStrFromTcharToWchar(wideDst.data(), 4, exactly(text).data()), 4U);
    EXPECT_EQ(wideDst.data(), wide);
    std::vector<char> dst(9, '#');
    EXPECT_EQ(utl::convertStrFromWcharToTchar(dst.data(), 9, utltest::terminated(wide).get()), 9U);
    EXPECT_EQ(dst.data(), text);
    for (unsigned int size = 1; size < 9; ++size) {
        std::vector<char> small(size, '#');
        EXPECT_EQ(utl::convertStrFromWcharToTchar(small.data(), size, wide.c_str()), utl::INVALID_SIZE)
            << size;
        std::vector<wchar_t> smallWide(std::min(size, 3U), L'#');
        EXPECT_EQ(utl::convertStrFromTcharToWchar(smallWide.data(), std::min(size, 3U), text.c_str()),
                  utl::INVALID_SIZE);
    }
    EXPECT_EQ(utl::convertStrFromTcharToWchar(nullptr, 4, ""), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromTcharToWchar(nullptr, 0, ""), 1U);
    EXPECT_EQ(utl::convertStrFromWcharToTchar(dst.data(), 1, L""), 1U);
    EXPECT_EQ(dst[0], '\0');
}

TEST(CharSet, UnitsAndBytes_WithoutTerminators_StayInsideTheirArrays) {
    Units const units = {0x1234, 0xFF00, 0, 0x5678};
    std::vector<unsigned char> bytes(4, '#');
    using Bytes = std::vector<unsigned char>;
    EXPECT_EQ(utl::convertStrFromDcharToUint8(bytes.data(), 4, units.data(), ~0U, 1), 4U);
    EXPECT_EQ(bytes, (Bytes{0x12, 0x34, 0xFF, 0x00}));
    EXPECT_EQ(utl::convertStrFromDcharToUint8(bytes.data(), 3, units.data(), 4, 0), utl::INVALID_SIZE);
    EXPECT_EQ(bytes, (Bytes{0x12, 0x34, 0xFF, 0x00}));
    EXPECT_EQ(utl::convertStrFromDcharToUint8(bytes.data(), 4, units.data(), 1, 2), 2U);
    EXPECT_EQ(bytes, (Bytes{0x34, 0x12, 0xFF, 0x00}));
    EXPECT_EQ(utl::convertStrFromDcharToUint8(bytes.data(), 4, units.data() + 4, 0, 1), 0U);
    EXPECT_EQ(utl::convertStrFromDcharToUint8(nullptr, 0, Units(2, 7).data(), 2, 1), 4U);
    EXPECT_EQ(utl::convertStrFromDcharToUint8(nullptr, 4, units.data(), 1, 1), utl::INVALID_SIZE);

    Bytes const source = {9, 0x12, 0x34, 0, 0, 0xFF, 0x80};
    Units dst(3, 7);
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(dst.data(), 3, source.data() + 1, 6, 1), 3U);
    EXPECT_EQ(dst, (Units{0x1234, 0, 0xFF80}));
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(dst.data(), 2, source.data() + 1, 6, 0), utl::INVALID_SIZE);
    EXPECT_EQ(dst, (Units{0x1234, 0, 0xFF80}));
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(dst.data(), 3, source.data() + 1, 6, -1), 3U);
    EXPECT_EQ(dst, (Units{0x3412, 0, 0x80FF}));
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(nullptr, 0, source.data(), 0xFFFFFFFEU, 1), 0x7FFFFFFFU);
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(nullptr, 0, source.data(), 7, 1), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(nullptr, 0, source.data(), ~0U, 1), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(nullptr, 3, source.data(), 6, 1), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(dst.data(), 3, nullptr, 0, 1), utl::INVALID_SIZE);
}

}  // namespace

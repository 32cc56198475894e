// Starts no thread.

// The tables between Shift-JIS and Unicode: what they hold, that the script makes them, and that the C
// library holds the same. The functions that look into them are asked about every code there can be.

#include "internal/text/UtlSjisTable.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>

#include "TestCharSet.h"
#include "TestIconv.h"
#include "UtlCharSet.h"
#include "internal/text/UtlSjisTableData.h"

namespace {

using utl::SjisRecord;
using utl::Utf8ToSjisRecord;
using utltest::converted;
using utltest::Iconv;
using utltest::textOf;
using utltest::Units;

auto const& FROM_UTF8 = utl::SJIS_TABLE_DATA.Utf8ToSjisTable;
auto const& FROM_SJIS = utl::SJIS_TABLE_DATA.SjisTable;

// The bytes of a number, high byte first, without leading zero bytes.
std::string bytesOf(unsigned int number) {
    std::string bytes;
    for (; number != 0; number >>= 8U) {
        bytes.insert(bytes.begin(), static_cast<char>(number & 0xFFU));
    }
    return bytes;
}

std::string utf8Of(unsigned int unit) {
    char bytes[3];
    unsigned int const size =
        utl::convertCharFromUtf16ToUtf8(bytes, 3, static_cast<unsigned short>(unit), nullptr);
    return {bytes, size};
}

std::string hex(unsigned int number) {
    char text[16];
    std::snprintf(text, sizeof(text), "%X", number);
    return text;
}

std::string rowAt(Utf8ToSjisRecord const& record) {
    return hex(record.mUtf8) + " " + hex(record.mSjis) + " " + hex(record.mReserved);
}

std::string rowAt(SjisRecord const& record) {
    return hex(record.mSjis) + " " + hex(record.mUtf16) + " " + hex(record.mUtf8);
}

std::string littleEndian(unsigned int number, unsigned int bytes) {
    std::string text;
    for (unsigned int i = 0; i < bytes; ++i, number >>= 8U) {
        text += static_cast<char>(number & 0xFFU);
    }
    return text;
}

// --- what they hold

TEST(SjisTables, TellingRows_AreWhereTheyBelong) {
    EXPECT_EQ(std::size(FROM_UTF8), 7389U);
    EXPECT_EQ(rowAt(FROM_UTF8[0]), "C2A7 8198 0");
    EXPECT_EQ(rowAt(FROM_UTF8[1]), "C2A8 814E 0");
    EXPECT_EQ(rowAt(FROM_UTF8[7388]), "EFBFA5 818F 0");
    EXPECT_EQ(std::size(FROM_SJIS), 7787U);
    EXPECT_EQ(rowAt(FROM_SJIS[0]), "A1 FF61 EFBDA1");
    EXPECT_EQ(rowAt(FROM_SJIS[7786]), "FC4B 9ED1 E9BB91");
}

TEST(SjisTables, Records_AreEightLittleEndianBytesAndStandOneBehindTheOther) {
    auto const* const bytes = reinterpret_cast<char const*>(&utl::SJIS_TABLE_DATA);
    std::string expected;
    for (Utf8ToSjisRecord const& record : FROM_UTF8) {
        expected += littleEndian(record.mUtf8, 4) + littleEndian(record.mSjis, 2) + std::string(2, '\0');
    }
    for (SjisRecord const& record : FROM_SJIS) {
        expected +=
            littleEndian(record.mSjis, 2) + littleEndian(record.mUtf16, 2) + littleEndian(record.mUtf8, 4);
    }
    ASSERT_EQ(sizeof(utl::SJIS_TABLE_DATA), expected.size());
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), bytes));
}

TEST(SjisTables, Keys_StrictlyAscend) {
    for (std::size_t row = 1; row < std::size(FROM_UTF8); ++row) {
        EXPECT_LT(FROM_UTF8[row - 1].mUtf8, FROM_UTF8[row].mUtf8) << row;
    }
    for (std::size_t row = 1; row < std::size(FROM_SJIS); ++row) {
        EXPECT_LT(FROM_SJIS[row - 1].mSjis, FROM_SJIS[row].mSjis) << row;
    }
}

TEST(SjisTables, BothTables_HoldTheSameCharacters) {
    std::set<unsigned int> units;
    std::set<unsigned int> read;
    std::set<unsigned int> written;
    for (SjisRecord const& record : FROM_SJIS) {
        units.insert(record.mUtf16);
        read.insert(record.mUtf8);
    }
    for (Utf8ToSjisRecord const& record : FROM_UTF8) {
        written.insert(record.mUtf8);
    }
    EXPECT_EQ(units.size(), 7389U);
    EXPECT_EQ(read, written);
}

TEST(SjisTables, TheUnitAndTheBytesOfARow_AreTheSameCharacter) {
    for (SjisRecord const& record : FROM_SJIS) {
        EXPECT_EQ(utf8Of(record.mUtf16), bytesOf(record.mUtf8));
    }
}

// --- which code is written where there are several

unsigned int rankOf(unsigned int code) {
    unsigned int const lead = code >> 8U;
    return lead == 0x87 ? 2 : lead >= 0xFA ? 3 : lead == 0xED || lead == 0xEE ? 4 : 1;
}

TEST(SjisTables, OfSeveralCodes_TheMostWidelyKnownIsWritten) {
    std::map<unsigned int, std::map<unsigned int, unsigned int>> codes;  // of each character, by rank
    for (SjisRecord const& record : FROM_SJIS) {
        EXPECT_TRUE(codes[record.mUtf8].emplace(rankOf(record.mSjis), record.mSjis).second) << record.mSjis;
    }
    for (Utf8ToSjisRecord const& record : FROM_UTF8) {
        EXPECT_EQ(record.mSjis, codes[record.mUtf8].begin()->second) << hex(record.mUtf8);
        EXPECT_LT(rankOf(record.mSjis), 4U) << hex(record.mUtf8);
    }
}

// --- who made them

TEST(SjisTables, TheScript_MakesThisFileAgain) {
    std::string const command = std::string("python3 ") + UTL_PROJECT_FOLDER + "/tools/make-sjis-tables";
    FILE* const script = popen(command.c_str(), "r");
    ASSERT_NE(script, nullptr);
    std::string made;
    char block[4096];
    for (std::size_t size; (size = std::fread(block, 1, sizeof(block), script)) > 0;) {
        made.append(block, size);
    }
    EXPECT_EQ(pclose(script), 0) << command;
    std::ifstream file(std::string(UTL_PROJECT_FOLDER) + "/source/internal/text/UtlSjisTableData.h",
                       std::ios::binary);
    std::string const stored{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    EXPECT_GT(stored.size(), 7389U);
    EXPECT_TRUE(made == stored);
}

// --- asked by the functions

// A search of the sorted keys by halves. It ends where the half does not get smaller.
template <typename RECORD, std::size_t COUNT, typename KEY>
RECORD const* found(RECORD const (&table)[COUNT], KEY RECORD::*key, unsigned int wanted) {
    std::size_t low = 0;
    std::size_t high = COUNT;
    for (std::size_t middle = high / 2;;) {
        if (table[middle].*key == wanted) {
            return &table[middle];
        }
        bool const isBelow = wanted < table[middle].*key;
        (isBelow ? high : low) = middle;
        middle = (low + high) / 2;
        if (middle == (isBelow ? high : low)) {
            return nullptr;
        }
    }
}

TEST(SjisTables, EveryDoubleByte_IsConvertedAsTheTableSays) {
    for (unsigned int code = 0x8101; code <= 0xFCFF; ++code) {
        if (utl::sjisKind(static_cast<unsigned char>(code >> 8U)) != utl::SjisKind::DOUBLE ||
            (code & 0xFFU) == 0) {
            continue;
        }
        SjisRecord const* const record = found(FROM_SJIS, &SjisRecord::mSjis, code);
        std::string const text = bytesOf(code);
        char bytes[4] = {};
        unsigned short unit = 1;
        unsigned int consumed = 0;
        unsigned int const size = utl::convertCharFromSjisToUtf8(bytes, 4, text.c_str(), &consumed);
        ASSERT_EQ(std::string(bytes, size), record != nullptr ? bytesOf(record->mUtf8) : std::string(1, '\0'))
            << hex(code);
        ASSERT_EQ(consumed, 2U) << hex(code);
        ASSERT_EQ(utl::convertCharFromSjisToUtf16(&unit, text.c_str(), &consumed), 1U) << hex(code);
        ASSERT_EQ(unit, record != nullptr ? record->mUtf16 : 0) << hex(code);
        ASSERT_EQ(consumed, 2U) << hex(code);
    }
}

TEST(SjisTables, EveryHalfWidthKana_IsConvertedAsTheTableSays) {
    for (unsigned int code = 0xA1; code <= 0xDF; ++code) {
        SjisRecord const* const record = found(FROM_SJIS, &SjisRecord::mSjis, code);
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(textOf(converted(&utl::convertStrFromSjisToUtf8, bytesOf(code))), bytesOf(record->mUtf8));
        EXPECT_EQ(textOf(converted(&utl::convertStrFromSjisToUtf16, bytesOf(code))), (Units{record->mUtf16}));
    }
}

// Also the keys that are no UTF-8: they have no row.
void expectKeysFrom(unsigned int first, unsigned int last) {
    for (unsigned int key = first; key <= last; ++key) {
        std::string const text = bytesOf(key);
        if (text.find('\0') != std::string::npos) {
            continue;
        }
        Utf8ToSjisRecord const* const record = found(FROM_UTF8, &Utf8ToSjisRecord::mUtf8, key);
        char bytes[4] = {};
        unsigned int consumed = 0;
        unsigned int const size = utl::convertCharFromUtf8ToSjis(bytes, 4, text.c_str(), &consumed);
        ASSERT_EQ(std::string(bytes, size), record != nullptr ? bytesOf(record->mSjis) : std::string(1, '\0'))
            << hex(key);
        ASSERT_EQ(consumed, text.size()) << hex(key);
    }
}

TEST(SjisTables, EveryKeyOfUtf8_IsConvertedAsTheTableSays) {
    expectKeysFrom(0xC201, 0xD1FF);
    expectKeysFrom(0xE20101, 0xE9FFFF);
    expectKeysFrom(0xEF0101, 0xEFFFFF);
}

// --- what the C library says

TEST(SjisTables, EveryCodeWithARow_IsReadAsTheCLibraryReadsIt) {
    Iconv const toUtf8("UTF-8", "CP932");
    Iconv const toUtf16("UTF-16LE", "CP932");
    for (SjisRecord const& record : FROM_SJIS) {
        std::string const code = bytesOf(record.mSjis);
        EXPECT_EQ(bytesOf(record.mUtf8), toUtf8.convert(code)) << hex(record.mSjis);
        EXPECT_EQ(littleEndian(record.mUtf16, 2), toUtf16.convert(code)) << hex(record.mSjis);
    }
}

TEST(SjisTables, EveryCodeWithoutARow_IsUnknownToTheCLibrary) {
    Iconv const toUtf8("UTF-8", "CP932");
    for (unsigned int code = 0x8100; code <= 0xFCFF; ++code) {
        if (utl::sjisKind(static_cast<unsigned char>(code >> 8U)) == utl::SjisKind::DOUBLE &&
            found(FROM_SJIS, &SjisRecord::mSjis, code) == nullptr) {
            EXPECT_EQ(toUtf8.convert(bytesOf(code)), "") << hex(code);
        }
    }
}

TEST(SjisTables, EveryCharacterWithARow_IsWrittenAsTheCLibraryWritesIt) {
    Iconv const toSjis("CP932", "UTF-8");
    for (Utf8ToSjisRecord const& record : FROM_UTF8) {
        EXPECT_EQ(bytesOf(record.mSjis), toSjis.convert(bytesOf(record.mUtf8))) << hex(record.mUtf8);
    }
}

// Characters that look like one of the code page, and which the C library writes as that one. Here they have
// no code: what is written must read as what it was.
std::map<unsigned int, unsigned int> const LOOKALIKES{{0xA2, 0x8191}, {0xA3, 0x8192},   {0xA5, 0x5C},
                                                      {0xAC, 0x81CA}, {0x2014, 0x815C}, {0x2016, 0x8161},
                                                      {0x203E, 0x7E}, {0x2212, 0x817C}, {0x301C, 0x8160}};

// Characters of users' own have codes in the C library, 188 for each first byte from 0xF0 to 0xF9. Here these
// bytes start no code and the characters have none: nobody outside of one program knows what they look like.
constexpr unsigned int FIRST_OWN = 0xE000;
constexpr unsigned int LAST_OWN = 0xE757;

unsigned int ownCodeOf(unsigned int unit) {
    unsigned int const index = unit - FIRST_OWN;
    unsigned int const second = 0x40 + index % 188;
    return (0xF0 + index / 188) << 8U | (second < 0x7F ? second : second + 1);
}

bool isOwn(unsigned int unit) {
    return unit >= FIRST_OWN && unit <= LAST_OWN;
}

// What the C library writes for a character without a row.
std::string writtenWithoutRow(unsigned int unit) {
    auto const lookalike = LOOKALIKES.find(unit);
    return lookalike != LOOKALIKES.end() ? bytesOf(lookalike->second)
           : isOwn(unit)                 ? bytesOf(ownCodeOf(unit))
                                         : "";
}

TEST(SjisTables, EveryCharacterWithoutARow_IsUnknownToTheCLibraryOrALookalikeOrUsersOwn) {
    Iconv const toSjis("CP932", "UTF-8");
    for (unsigned int unit = 0x80; unit <= 0xFFFF; ++unit) {
        std::string const bytes = utf8Of(unit);
        unsigned int key = 0;
        for (char const byte : bytes) {
            key = key << 8U | static_cast<unsigned char>(byte);
        }
        if (!bytes.empty() && found(FROM_UTF8, &Utf8ToSjisRecord::mUtf8, key) == nullptr) {
            EXPECT_EQ(toSjis.convert(bytes), writtenWithoutRow(unit)) << hex(unit);
        }
    }
}

TEST(SjisTables, CharactersOfUsersOwn_PassByteByByteBelowF000AndAreLostFromThereOn) {
    for (unsigned int unit = FIRST_OWN; unit <= 0xF8FF; ++unit) {
        std::string const bytes = utf8Of(unit);
        std::string const expected = unit < 0xF000 ? bytes : std::string(1, '\0');
        ASSERT_EQ(textOf(converted(&utl::convertStrFromUtf8ToSjis, bytes)), expected) << hex(unit);
    }
}

// A byte that passes as it is, alone and before others.
void expectLiteral(std::string const& text) {
    auto const first = static_cast<unsigned char>(text[0]);
    char byte = 0;
    unsigned short unit = 0;
    unsigned int consumed = 0;
    EXPECT_EQ(utl::convertCharFromSjisToUtf8(&byte, 1, text.c_str(), &consumed), 1U) << hex(first);
    EXPECT_EQ(byte, text[0]);
    EXPECT_EQ(consumed, 1U) << hex(first);
    EXPECT_EQ(utl::convertCharFromSjisToUtf16(&unit, text.c_str(), nullptr), 2U) << hex(first);
    EXPECT_EQ(unit, first);
}

TEST(SjisTables, CodesOfUsersOwn_AreReadByTheCLibraryAndAsSingleBytesHere) {
    Iconv const toUtf16("UTF-16LE", "CP932");
    std::set<unsigned int> own;
    for (unsigned int unit = FIRST_OWN; unit <= LAST_OWN; ++unit) {
        own.insert(ownCodeOf(unit));
        EXPECT_EQ(toUtf16.convert(bytesOf(ownCodeOf(unit))), littleEndian(unit, 2)) << hex(unit);
    }
    for (unsigned int code = 0xF001; code <= 0xF9FF; ++code) {
        if ((code & 0xFFU) != 0) {
            EXPECT_EQ(toUtf16.convert(bytesOf(code)).empty(), own.count(code) == 0) << hex(code);
            expectLiteral(bytesOf(code));
        }
    }
}

TEST(SjisTables, BytesThatTheCLibraryRefuses_PassHere) {
    Iconv const toUtf8("UTF-8", "CP932");
    for (unsigned int byte : {0x80U, 0xA0U, 0xFDU, 0xFEU, 0xFFU}) {
        std::string const text = bytesOf(byte);
        EXPECT_EQ(toUtf8.convert(text), "") << hex(byte);
        expectLiteral(text);
        EXPECT_EQ(textOf(converted(&utl::convertStrFromSjisToUtf8, text)), text) << hex(byte);
    }
}

}  // namespace

// Starts no thread.

// The conversions between character sets against plain models of them: over texts put together from whole,
// broken and stray characters, cut at every byte, into buffers of every size; over random bytes, with a
// fixed seed; and, for what is text, against the C library. Texts and destinations stand in heap blocks of
// exactly their size.

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "TestCharSet.h"
#include "TestIconv.h"
#include "TestPieces.h"
#include "UtlCharSet.h"
#include "internal/text/UtlSjisTableData.h"

namespace {

using utl::INVALID_SIZE;
using utltest::converted;
using utltest::convertInto;
using utltest::Iconv;
using utltest::Outcome;
using utltest::terminated;
using utltest::textOf;
using utltest::textsOf;
using utltest::Units;

// --- models

// What becomes of a text: what each character of it is written as, and whether the call fails after them.
template <typename TO>
struct Model {
    std::vector<std::vector<TO>> characters;
    bool fails = false;
};

std::vector<char> bytesOf(unsigned int number) {
    std::vector<char> bytes(1, static_cast<char>(number));
    while ((number >>= 8U) != 0) {
        bytes.insert(bytes.begin(), static_cast<char>(number));
    }
    return bytes;
}

unsigned int byteAt(std::string const& text, std::size_t position) {
    return position < text.size() ? static_cast<unsigned char>(text[position]) : 0;
}

bool isBetween(unsigned int value, unsigned int low, unsigned int high) {
    return value >= low && value <= high;
}

// How many of the bytes that a first byte calls for are there.
std::size_t present(std::string const& text, std::size_t position, std::size_t bytes) {
    return std::min(bytes, text.size() - position);
}

// 0 if there is no code.
unsigned int sjisOf(unsigned int key) {
    static std::map<unsigned int, unsigned int> const codes = [] {
        std::map<unsigned int, unsigned int> all;
        for (auto const& record : utl::SJIS_TABLE_DATA.Utf8ToSjisTable) {
            all[record.mUtf8] = record.mSjis;
        }
        return all;
    }();
    auto const code = codes.find(key);
    return code != codes.end() ? code->second : 0;
}

utl::SjisRecord characterOf(unsigned int code) {
    static std::map<unsigned int, utl::SjisRecord> const characters = [] {
        std::map<unsigned int, utl::SjisRecord> all;
        for (auto const& record : utl::SJIS_TABLE_DATA.SjisTable) {
            all[record.mSjis] = record;
        }
        return all;
    }();
    auto const character = characters.find(code);
    return character != characters.end() ? character->second : utl::SjisRecord{};
}

Model<char> modelOfUtf8ToSjis(std::string const& text) {
    Model<char> model;
    for (std::size_t i = 0; i < text.size();) {
        unsigned int const first = byteAt(text, i);
        if (isBetween(first, 0xC2, 0xD1)) {
            model.characters.push_back(bytesOf(sjisOf(first << 8U | byteAt(text, i + 1))));
            i += present(text, i, 2);
        } else if (isBetween(first, 0xE2, 0xE9) || first == 0xEF) {
            unsigned int const key = first << 16U | byteAt(text, i + 1) << 8U | byteAt(text, i + 2);
            model.characters.push_back(bytesOf(sjisOf(key)));
            i += present(text, i, 3);
        } else {
            model.characters.push_back({text[i]});
            ++i;
        }
    }
    return model;
}

// `kana`, `wide` and `literal` make what is written of a code.
template <typename TO, typename KANA, typename WIDE, typename LITERAL>
Model<TO> modelOfSjis(std::string const& text, KANA kana, WIDE wide, LITERAL literal) {
    Model<TO> model;
    for (std::size_t i = 0; i < text.size();) {
        unsigned int const first = byteAt(text, i);
        if (isBetween(first, 0xA1, 0xDF)) {
            model.characters.push_back(kana(characterOf(first)));
            ++i;
        } else if (isBetween(first, 0x81, 0x9F) || isBetween(first, 0xE0, 0xEF) ||
                   isBetween(first, 0xFA, 0xFC)) {
            model.characters.push_back(wide(characterOf(first << 8U | byteAt(text, i + 1))));
            i += present(text, i, 2);
        } else {
            model.characters.push_back(literal(first));
            ++i;
        }
    }
    return model;
}

Model<char> modelOfSjisToUtf8(std::string const& text) {
    auto const any = [](utl::SjisRecord const& record) { return bytesOf(record.mUtf8); };
    return modelOfSjis<char>(text, any, any, [](unsigned int byte) { return bytesOf(byte); });
}

Model<unsigned short> modelOfSjisToUtf16(std::string const& text) {
    auto const wide = [](utl::SjisRecord const& record) {
        return Units(1, record.mUtf16 != 0 ? record.mUtf16 : static_cast<unsigned short>(0x203B));
    };
    return modelOfSjis<unsigned short>(
        text, wide, wide, [](unsigned int byte) { return Units(1, static_cast<unsigned short>(byte)); });
}

Model<char> modelOfUtf16ToUtf8(Units const& text) {
    Model<char> model;
    for (unsigned int const unit : text) {
        if (unit == 0xFEFF || unit == 0xFFFE) {
            model.fails = true;
            break;
        }
        std::vector<char> bytes;
        if (unit < 0x80) {
            bytes = {static_cast<char>(unit)};
        } else if (unit < 0x800) {
            bytes = {static_cast<char>(0xC0 + unit / 64), static_cast<char>(0x80 + unit % 64)};
        } else {
            bytes = {static_cast<char>(0xE0 + unit / 4096), static_cast<char>(0x80 + unit / 64 % 64),
                     static_cast<char>(0x80 + unit % 64)};
        }
        model.characters.push_back(bytes);
    }
    return model;
}

// The bytes that a first byte calls for, 0 for one that cannot be first.
std::size_t sequenceOf(unsigned int first) {
    return first < 0x80 ? 1 : first < 0xC0 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF8 ? 4 : 0;
}

// The character at `position`, in its shortest form; nothing else is one.
bool isCharacterAt(std::string const& text, std::size_t position, std::size_t bytes, unsigned int* code) {
    unsigned int const shortest[] = {0, 0, 0x80, 0x800, 0x10000};
    unsigned int const marks[] = {0, 0, 0xC0, 0xE0, 0xF0};
    *code = byteAt(text, position) - marks[bytes];
    for (std::size_t i = 1; i < bytes; ++i) {
        unsigned int const next = byteAt(text, position + i);
        if (!isBetween(next, 0x80, 0xBF)) {
            return false;
        }
        *code = *code * 64 + next - 0x80;
    }
    return *code >= shortest[bytes];
}

Model<unsigned short> modelOfUtf8ToUtf16(std::string const& text) {
    Model<unsigned short> model;
    for (std::size_t i = 0; i < text.size();) {
        std::size_t const bytes = sequenceOf(byteAt(text, i));
        unsigned int code = 0;
        if (bytes == 0) {
            model.fails = true;
            break;
        }
        if (!isCharacterAt(text, i, bytes, &code)) {
            break;
        }
        model.characters.push_back(Units(1, static_cast<unsigned short>(bytes == 4 ? 0x203B : code)));
        i += bytes;
    }
    return model;
}

// What the model says of a buffer of `size`.
template <typename TO>
Outcome<TO> expectedOf(Model<TO> const& model, unsigned int size) {
    Outcome<TO> outcome{0, {}};
    for (auto const& character : model.characters) {
        if (outcome.written.size() + 1 + character.size() > size) {
            return {INVALID_SIZE, outcome.written};
        }
        outcome.written.insert(outcome.written.end(), character.begin(), character.end());
    }
    outcome.result = model.fails ? INVALID_SIZE : static_cast<unsigned int>(outcome.written.size() + 1);
    return outcome;
}

// Into every size up to one more than needed.
template <typename TO, typename FROM, typename TEXT>
void expectAsModelled(unsigned int (*convert)(TO*, unsigned int, FROM const*), Model<TO> const& model,
                      TEXT const& text) {
    auto const src = terminated(text);
    unsigned int const enough = expectedOf(model, INVALID_SIZE).result;
    ASSERT_EQ(convert(nullptr, 0, src.get()), enough) << testing::PrintToString(text);
    unsigned int const last =
        enough != INVALID_SIZE ? enough + 1 : 3 * static_cast<unsigned int>(text.size()) + 2;
    for (unsigned int size = 1; size <= last; ++size) {
        Outcome<TO> const expected = expectedOf(model, size);
        Outcome<TO> const outcome = convertInto(size, convert, static_cast<FROM const*>(src.get()));
        ASSERT_EQ(outcome.result, expected.result) << testing::PrintToString(text) << ", into " << size;
        ASSERT_EQ(outcome.written, expected.written) << testing::PrintToString(text) << ", into " << size;
    }
}

void expectSjisAsModelled(std::string const& text) {
    expectAsModelled(&utl::convertStrFromSjisToUtf8, modelOfSjisToUtf8(text), text);
    expectAsModelled(&utl::convertStrFromSjisToUtf16, modelOfSjisToUtf16(text), text);
}

void expectUtf8AsModelled(std::string const& text) {
    expectAsModelled(&utl::convertStrFromUtf8ToSjis, modelOfUtf8ToSjis(text), text);
    expectAsModelled(&utl::convertStrFromUtf8ToUtf16, modelOfUtf8ToUtf16(text), text);
}

// --- texts put together

// ASCII passes in blocks of eight characters: so many of them, in three pieces with whatever stands around.
template <typename TEXT>
std::vector<TEXT> withAscii(std::vector<TEXT> pieces) {
    for (std::size_t const count : {7, 8, 9, 17}) {
        TEXT ascii(count, 'a');
        ascii.back() = 'b';
        pieces.push_back(ascii);
    }
    return pieces;
}

TEST(CharSetSweep, ShiftJisTextsOfEveryMake_AreConvertedAsModelled) {
    std::vector<std::string> const pieces{"z",        "\xB1",     "\x82\xA0", "\x81\x98",
                                          "\xFC\x4B", "\x81\xAD", "\x82\x7F", "\x82\xFF",
                                          "\xFA",     "\x80",     "\xF0"};
    for (std::string const& text : textsOf(3, withAscii(pieces))) {
        expectSjisAsModelled(text);
    }
}

TEST(CharSetSweep, Utf8TextsOfEveryMake_AreConvertedAsModelled) {
    std::vector<std::string> const pieces{"z",
                                          "\xC2\xA7",
                                          "\xC3\xA9",
                                          "\xE3\x81\x82",
                                          "\xEF\xBB\xBF",
                                          "\xED\xA0\x80",
                                          "\xF0\x9F\x98\x80",
                                          "\xE0\x9F\xBF",
                                          "\xC0\x80",
                                          "\xE3",
                                          "\x80",
                                          "\xFF"};
    for (std::string const& text : textsOf(3, withAscii(pieces))) {
        expectUtf8AsModelled(text);
    }
}

TEST(CharSetSweep, Utf16TextsOfEveryMake_AreConvertedAsModelled) {
    std::vector<Units> const pieces{{'z'},    {0x7F},   {0x80},   {0x7FF},  {0x800}, {0x3042},
                                    {0xD83D}, {0xDE00}, {0xFEFF}, {0xFFFE}, {0xFFFF}};
    for (Units const& text : textsOf(3, withAscii(pieces))) {
        expectAsModelled(&utl::convertStrFromUtf16ToUtf8, modelOfUtf16ToUtf8(text), text);
    }
}

// --- random, with a fixed seed

class Lots {
  public:
    unsigned int below(unsigned int limit) { return static_cast<unsigned int>(mEngine()) % limit; }

    template <typename CONTAINER>
    auto const& oneOf(CONTAINER const& container) {
        return container[below(static_cast<unsigned int>(std::size(container)))];
    }

  private:
    std::mt19937 mEngine;
};

TEST(CharSetSweep, BytesDrawnByLot_AreConvertedAsModelled) {
    Lots lots;
    for (int round = 0; round < 3000; ++round) {
        std::string text(lots.below(24), '\0');
        for (char& byte : text) {
            // Half of them where multi-byte characters lie.
            byte = static_cast<char>(lots.below(2) == 0 ? 0x80 + lots.below(0x80) : 1 + lots.below(0x7F));
        }
        expectSjisAsModelled(text);
        expectUtf8AsModelled(text);
    }
}

std::string bytesOf(Units const& text) {
    std::string bytes;
    for (unsigned int const unit : text) {
        bytes += {static_cast<char>(unit & 0xFFU), static_cast<char>(unit >> 8U)};
    }
    return bytes;
}

std::string stringOf(unsigned int number) {
    std::vector<char> const bytes = bytesOf(number);
    return {bytes.begin(), bytes.end()};
}

TEST(CharSetSweep, CodesOfThePageDrawnByLot_AreReadAsTheCLibraryReadsThem) {
    Iconv const toUtf8("UTF-8", "CP932");
    Iconv const toUtf16("UTF-16LE", "CP932");
    Lots lots;
    for (int round = 0; round < 2000; ++round) {
        std::string text(1, 'a');
        for (unsigned int count = lots.below(100); count > 0; --count) {
            text += lots.below(3) == 0 ? stringOf(1 + lots.below(0x7F))
                                       : stringOf(lots.oneOf(utl::SJIS_TABLE_DATA.SjisTable).mSjis);
        }
        EXPECT_EQ(textOf(converted(&utl::convertStrFromSjisToUtf8, text)), toUtf8.convert(text));
        EXPECT_EQ(bytesOf(textOf(converted(&utl::convertStrFromSjisToUtf16, text))), toUtf16.convert(text));
    }
}

TEST(CharSetSweep, CharactersOfThePageDrawnByLot_AreWrittenAsTheCLibraryWritesThem) {
    Iconv const toSjis("CP932", "UTF-8");
    Lots lots;
    for (int round = 0; round < 2000; ++round) {
        std::string text(1, 'a');
        for (unsigned int count = lots.below(100); count > 0; --count) {
            text += lots.below(3) == 0 ? stringOf(1 + lots.below(0x7F))
                                       : stringOf(lots.oneOf(utl::SJIS_TABLE_DATA.Utf8ToSjisTable).mUtf8);
        }
        EXPECT_EQ(textOf(converted(&utl::convertStrFromUtf8ToSjis, text)), toSjis.convert(text));
    }
}

// Neither the end of text nor what is no character or a mark.
bool isOrdinary(unsigned int unit) {
    return unit != 0 && !isBetween(unit, 0xD800, 0xDFFF) && unit != 0xFEFF && unit != 0xFFFE;
}

TEST(CharSetSweep, UnitsDrawnByLot_AreConvertedBothWaysAsTheCLibraryDoes) {
    Iconv const toUtf8("UTF-8", "UTF-16LE");
    Iconv const toUtf16("UTF-16LE", "UTF-8");
    unsigned int const limits[] = {0x80, 0x800, 0x10000};
    Lots lots;
    for (int round = 0; round < 2000; ++round) {
        Units text(1, 'a');
        for (unsigned int count = lots.below(100); count > 0; --count) {
            unsigned int const unit = lots.below(lots.oneOf(limits));
            text.push_back(static_cast<unsigned short>(isOrdinary(unit) ? unit : 'a'));
        }
        std::string const bytes = textOf(converted(&utl::convertStrFromUtf16ToUtf8, text));
        EXPECT_EQ(bytes, toUtf8.convert(bytesOf(text)));
        EXPECT_EQ(bytesOf(textOf(converted(&utl::convertStrFromUtf8ToUtf16, bytes))), toUtf16.convert(bytes));
    }
}

}  // namespace

// Starts no thread.

// The classification against a plain model of it, which walks through the tables row by row and tries every
// bit by itself: over every character, and over texts put together from whole and broken characters, cut at
// every byte. Texts stand in heap blocks of exactly their size.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "TestPieces.h"
#include "TestTables.h"
#include "TestText.h"
#include "UtlCharAttrib.h"
#include "UtlString.h"

namespace {

using utl::INVALID_SIZE;
using utltest::exactly;
using utltest::textsOf;

using Table = utl::CodeTableRow const*;

// --- the model

namespace model {

constexpr unsigned int BITS = 32;
constexpr unsigned int OTHER = 31;

bool take(char const* text, Table table, unsigned int* position) {
    for (; table->mNarrow != nullptr; ++table) {
        std::size_t const length = std::strlen(table->mNarrow);
        if (std::strncmp(text + *position, table->mNarrow, length) == 0) {
            *position += static_cast<unsigned int>(length);
            return true;
        }
    }
    return false;
}

unsigned int takeAll(char const* text, std::vector<Table> const& tables, unsigned int* position) {
    unsigned int count = 0;
    bool isTaken = true;
    while (isTaken) {
        isTaken = false;
        for (Table const table : tables) {
            isTaken = isTaken || take(text, table, position);
        }
        count += isTaken ? 1 : 0;
    }
    return count;
}

unsigned int rowSize(char const* text, Table table) {
    unsigned int position = 0;
    return take(text, table, &position) ? position : INVALID_SIZE;
}

unsigned int signedSize(char const* text, Table signs, Table digits) {
    unsigned int position = 0;
    bool const isUnit = take(text, signs, &position) && takeAll(text, {digits}, &position) != 0;
    return isUnit ? position : INVALID_SIZE;
}

unsigned int hexSize(char const* text, Table prefix, std::vector<Table> const& digits, Table suffix) {
    unsigned int position = 0;
    bool const hasPrefix = take(text, prefix, &position);
    bool const hasDigits = takeAll(text, digits, &position) != 0;
    bool const hasSuffix = take(text, suffix, &position);
    return hasDigits && !(hasPrefix && hasSuffix) ? position : INVALID_SIZE;
}

unsigned int voicedSize(char const* text, Table voiced, Table unvoiced, Table mark, Table smallKana) {
    unsigned int position = 0;
    if (!take(text, voiced, &position) && !(take(text, unvoiced, &position) && take(text, mark, &position))) {
        return INVALID_SIZE;
    }
    takeAll(text, {smallKana}, &position);
    return position;
}

// What each bit but the last says of the start of a text.
using Sizes = std::array<unsigned int, BITS>;

Sizes sizesAt(char const* text) {
    using namespace utl;
    return {
        *text == '\0' ? 1 : INVALID_SIZE,
        rowSize(text, KAIGYO_TBL),
        rowSize(text, TAB_FF_TBL),
        rowSize(text, CTL_OTHER_TBL),
        rowSize(text, HAN_SPACE_TBL),
        rowSize(text, ZEN_SPACE_TBL),
        rowSize(text, HAN_MARK_TBL),
        rowSize(text, ZEN_MARK_TBL),
        rowSize(text, HAN_DIGIT_TBL),
        rowSize(text, ZEN_DIGIT_TBL),
        signedSize(text, HAN_SIGN_TBL, HAN_DIGIT_TBL),
        signedSize(text, ZEN_SIGN_TBL, ZEN_DIGIT_TBL),
        hexSize(text, HAN_HEX_PREFIX_TBL, {HAN_DIGIT_TBL, LOWER_HAN_HEX_ALPHA_TBL, UPPER_HAN_HEX_ALPHA_TBL},
                HAN_HEX_SUFFIX_TBL),
        hexSize(text, ZEN_HEX_PREFIX_TBL, {ZEN_DIGIT_TBL, LOWER_ZEN_HEX_ALPHA_TBL, UPPER_ZEN_HEX_ALPHA_TBL},
                ZEN_HEX_SUFFIX_TBL),
        rowSize(text, LOWER_HAN_HEX_ALPHA_TBL),
        rowSize(text, LOWER_ZEN_HEX_ALPHA_TBL),
        rowSize(text, LOWER_HAN_NOHEX_ALPHA_TBL),
        rowSize(text, LOWER_ZEN_NOHEX_ALPHA_TBL),
        rowSize(text, UPPER_HAN_HEX_ALPHA_TBL),
        rowSize(text, UPPER_ZEN_HEX_ALPHA_TBL),
        rowSize(text, UPPER_HAN_NOHEX_ALPHA_TBL),
        rowSize(text, UPPER_ZEN_NOHEX_ALPHA_TBL),
        rowSize(text, NODAKU_HAN_KATA_TBL),
        rowSize(text, NODAKU_ZEN_KATA_TBL),
        voicedSize(text, DAKU_HAN_KATA_TBL, NODAKU_HAN_KATA_TBL, HAN_DAKUTEN_TBL, HAN_KATA_YOUSOKU_TBL),
        voicedSize(text, DAKU_ZEN_KATA_TBL, NODAKU_ZEN_KATA_TBL, ZEN_DAKUTEN_TBL, ZEN_KATA_YOUSOKU_TBL),
        voicedSize(text, HANDAKU_HAN_KATA_TBL, NODAKU_HAN_KATA_TBL, HAN_HANDAKUTEN_TBL, HAN_KATA_YOUSOKU_TBL),
        voicedSize(text, HANDAKU_ZEN_KATA_TBL, NODAKU_ZEN_KATA_TBL, ZEN_HANDAKUTEN_TBL, ZEN_KATA_YOUSOKU_TBL),
        rowSize(text, NODAKU_HIRA_TBL),
        voicedSize(text, DAKU_HIRA_TBL, NODAKU_HIRA_TBL, ZEN_DAKUTEN_TBL, HIRA_YOUSOKU_TBL),
        voicedSize(text, HANDAKU_HIRA_TBL, NODAKU_HIRA_TBL, ZEN_HANDAKUTEN_TBL, HIRA_YOUSOKU_TBL),
        INVALID_SIZE,
    };
}

// What a mask says, by what its bits say: from the lowest to the highest, each one that has a unit
// overwrites.
unsigned int blockSize(char const* text, Sizes const& sizes, unsigned int mask) {
    unsigned int result = INVALID_SIZE;
    bool isKnown = false;
    for (unsigned int bit = 0; bit < OTHER; ++bit) {
        isKnown = isKnown || sizes[bit] != INVALID_SIZE;
        if ((mask >> bit & 1U) != 0 && sizes[bit] != INVALID_SIZE) {
            result = sizes[bit];
        }
    }
    if ((mask >> OTHER & 1U) != 0 && !isKnown) {
        unsigned int const bytes = utl::t_charlen(text);
        result = bytes != 0 ? bytes : INVALID_SIZE;
    }
    return result;
}

// A text with what each bit says at each of its bytes.
struct SizedText {
    explicit SizedText(std::string const& itsText) : text(itsText) {
        for (std::size_t i = 0; i <= text.size(); ++i) {
            sizes.push_back(sizesAt(text.c_str() + i));
        }
    }

    std::string text;
    std::vector<Sizes> sizes;
};

bool isStrAttrib(SizedText const& sized, unsigned int mask) {
    unsigned int position = 0;
    do {
        unsigned int const size = blockSize(sized.text.c_str() + position, sized.sizes[position], mask);
        if (size == INVALID_SIZE) {
            return false;
        }
        position += position != sized.text.size() ? size : 0;
    } while (position != sized.text.size());
    return true;
}

// What `isCharAttribBase` looks at in place of the text. A character that is followed by a byte which starts
// none cannot be copied.
std::string firstCharacter(std::string const& text) {
    unsigned int const bytes = utl::t_charlen(text.c_str());
    bool const isCopied =
        bytes != INVALID_SIZE && utl::strCharBytesBase(text.c_str() + bytes) != INVALID_SIZE;
    return isCopied ? text.substr(0, bytes) : "";
}

bool mayHaveCharAttrib(std::string const& text) {
    bool isBom = false;
    return utl::t_charlen(text.c_str(), &isBom) != INVALID_SIZE && !isBom;
}

}  // namespace model

// --- the masks

std::vector<unsigned int> singleBits() {
    std::vector<unsigned int> masks;
    for (unsigned int bit = 0; bit < model::BITS; ++bit) {
        masks.push_back(1U << bit);
    }
    return masks;
}

// No bit, each bit alone and with each other one, all, all but one, and some random ones, with a fixed seed.
std::vector<unsigned int> manyMasks() {
    std::vector<unsigned int> masks{0, ~0U};
    for (unsigned int const bit : singleBits()) {
        masks.push_back(~bit);
        for (unsigned int const other : singleBits()) {
            masks.push_back(bit | other);
        }
    }
    std::minstd_rand lots;
    for (int i = 0; i < 64; ++i) {
        masks.push_back(static_cast<unsigned int>(lots()) * 2U ^ static_cast<unsigned int>(lots()));
    }
    return masks;
}

// --- the comparison

std::string shown(std::string const& text) {
    std::string bytes;
    for (char const byte : text) {
        char number[4] = "";
        std::snprintf(number, sizeof(number), "%02X ", static_cast<unsigned int>(byte) & 0xFFU);
        bytes += number;
    }
    return bytes;
}

void expectSizesAsModelled(std::string const& text, std::vector<unsigned int> const& masks) {
    std::vector<char> const block = exactly(text);
    model::Sizes const sizes = model::sizesAt(block.data());
    for (unsigned int const mask : masks) {
        ASSERT_EQ(utl::attribBlockSize(block.data(), static_cast<int>(mask)),
                  model::blockSize(block.data(), sizes, mask))
            << shown(text) << "mask " << std::hex << mask;
    }
}

void expectAnswersAsModelled(std::string const& text, std::vector<unsigned int> const& masks) {
    std::vector<char> const block = exactly(text);
    model::SizedText const whole(text);
    model::SizedText const first(model::firstCharacter(text));
    for (unsigned int const mask : masks) {
        ASSERT_EQ(utl::isStrAttribBase(block.data(), static_cast<int>(mask)), model::isStrAttrib(whole, mask))
            << shown(text) << "mask " << std::hex << mask;
        ASSERT_EQ(utl::isCharAttribBase(block.data(), static_cast<int>(mask)),
                  model::mayHaveCharAttrib(text) && model::isStrAttrib(first, mask))
            << shown(text) << "mask " << std::hex << mask;
    }
}

// Something of every kind that the tables tell apart, and what is in none of them.
std::vector<std::string> pieces() {
    return {"0",  "0x", "c",  "h",  "+",  "０", "ｘ", "Ｃ", "ｈ",           "－",   "ｶ",
            "ｬ",  "ﾞ",  "ﾟ",  "カ", "ガ", "パ", "ャ", "゛", "゜",           "か",   "が",
            "ぱ", "ゃ", "。", "～", "漢", "é",  "😀",  "\n", "\xEF\xBB\xBF", "\x80", "\xC0\xB0"};
}

bool isInATable(std::string const& character) {
    return model::blockSize(character.c_str(), model::sizesAt(character.c_str()), ~0U >> 1U) != INVALID_SIZE;
}

TEST(CharAttribSweep, EveryCharacterOfTheBasicPlane_IsWhatTheTablesSay) {
    std::vector<unsigned int> const fewMasks = singleBits();
    std::vector<unsigned int> const masks = manyMasks();
    for (unsigned int code = 1; code <= 0xFFFF; ++code) {
        std::string const text = utltest::utf8Of(code);
        ASSERT_NO_FATAL_FAILURE(expectSizesAsModelled(text, isInATable(text) ? masks : fewMasks));
    }
}

TEST(CharAttribSweep, EveryTextOfOneOrTwoBytes_IsWhatTheTablesSay) {
    std::vector<unsigned int> const masks = singleBits();
    for (unsigned int bytes = 0; bytes <= 0xFFFF; ++bytes) {
        char const text[] = {static_cast<char>(bytes & 0xFFU), static_cast<char>(bytes >> 8U), '\0'};
        ASSERT_NO_FATAL_FAILURE(expectSizesAsModelled(text, masks));
    }
}

TEST(CharAttribSweep, EveryCharacterOfATableWithOneOfEachKindBehind_IsWhatTheTablesSay) {
    std::vector<unsigned int> const masks = singleBits();
    for (unsigned int code = 1; code <= 0xFFFF; ++code) {
        std::string const character = utltest::utf8Of(code);
        for (std::string const& behind : isInATable(character) ? pieces() : std::vector<std::string>()) {
            ASSERT_NO_FATAL_FAILURE(expectSizesAsModelled(character + behind, masks));
        }
    }
}

TEST(CharAttribSweep, TextsOfEveryMake_AreWhatTheTablesSay) {
    std::vector<unsigned int> const masks = singleBits();
    for (std::string const& text : textsOf(3, pieces())) {
        ASSERT_NO_FATAL_FAILURE(expectSizesAsModelled(text, masks));
    }
}

TEST(CharAttribSweep, TextsOfEveryMake_AreWalkedAsModelled) {
    std::vector<unsigned int> masks = singleBits();
    masks.insert(masks.end(), {0U, ~0U, 0x7FC00000U, 0x3FFF00U, 0x14100U, 0x80001000U});
    for (std::string const& text : textsOf(2, pieces())) {
        ASSERT_NO_FATAL_FAILURE(expectAnswersAsModelled(text, masks));
    }
}

TEST(CharAttribSweep, FindCodeTable_LooksAtNoByteBehindTheText) {
    Table const tables[] = {utl::HAN_HEX_PREFIX_TBL, utl::ZEN_HEX_PREFIX_TBL, utl::DAKU_HAN_KATA_TBL,
                            utl::NODAKU_HIRA_TBL, utl::ZEN_MARK_TBL};
    for (std::string const& text : textsOf(2, pieces())) {
        std::vector<char> const block = exactly(text);
        for (Table const table : tables) {
            unsigned int position = 0;
            unsigned int modelled = 0;
            EXPECT_EQ(utl::findCodeTable(block.data(), table, &position) != nullptr,
                      model::take(block.data(), table, &modelled));
            EXPECT_EQ(position, modelled);
        }
    }
}

}  // namespace

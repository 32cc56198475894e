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

#include "TestAttribModel.h"
#include "TestPieces.h"
#include "TestTables.h"
#include "TestText.h"
#include "UtlCharAttrib.h"
#include "UtlString.h"

namespace {

using utl::INVALID_SIZE;
using utltest::exactly;
using utltest::textsOf;
using utltest::model::Table;
namespace model = utltest::model;

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

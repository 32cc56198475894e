// Starts no thread.

// The conversion against a plain model of it, which walks through the table row by row: over every character,
// and over texts put together from whole and broken characters, cut at every byte, into destinations of every
// size. Texts and destinations stand in heap blocks of exactly their size.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "TestConvertModel.h"
#include "TestPieces.h"
#include "TestTables.h"
#include "TestText.h"
#include "UtlAttribConvert.h"
#include "UtlString.h"

namespace {

using utl::INVALID_SIZE;
using utltest::exactly;
using utltest::textsOf;
using utltest::model::Conversion;
using utltest::model::ENDING_WAYS;
using utltest::model::FILLING_WAYS;
using utltest::model::Outcome;
using utltest::model::Way;

constexpr char UNUSED = '#';

// --- the comparison

Outcome converted(Way const& way, std::string const& text, unsigned int dstSize, int truncate) {
    std::vector<char> dst(dstSize, UNUSED);
    unsigned int const size =
        utl::convertAttrib(dst.data(), dstSize, exactly(text).data(), way.table, way.direction, truncate);
    std::string held(dst.begin(), dst.end());
    while (!held.empty() && held.back() == UNUSED) {
        held.pop_back();
    }
    return {size, held};
}

void expectAsModelled(Way const& way, std::string const& text, unsigned int dstSize, int truncate) {
    ASSERT_EQ(converted(way, text, dstSize, truncate),
              Conversion(way, dstSize, truncate).convert(text.c_str()))
        << way.name << " of '" << text << "' into " << dstSize << ", truncate " << truncate;
}

// Something of every kind that the tables tell apart, and what is in none of them.
std::vector<std::string> pieces() {
    return {"a",  "Ａ", "ｶ",  "ﾞ", "ﾟ", "ヴ",           "う",   "゛",
            "ば", "ポ", "漢", "é", "😀", "\xEF\xBB\xBF", "\x80", "\xE3"};
}

constexpr unsigned int ROOM = 24;

TEST(AttribConvertSweep, EveryCharacterOfTheBasicPlane_BecomesWhatTheTablesSay) {
    for (unsigned int code = 1; code <= 0xFFFF; ++code) {
        std::string const text = utltest::utf8Of(code);
        for (Way const& way : ENDING_WAYS) {
            ASSERT_NO_FATAL_FAILURE(expectAsModelled(way, text, ROOM, 0));
        }
        for (Way const& way : FILLING_WAYS) {
            ASSERT_NO_FATAL_FAILURE(expectAsModelled(way, text, ROOM, 0));
        }
    }
}

TEST(AttribConvertSweep, EveryRowOfATableWithEveryPieceAround_BecomesWhatTheTablesSay) {
    for (Way const& way : ENDING_WAYS) {
        for (utl::PairAttrib const* row = way.table; row->mFirst.mNarrow != nullptr; ++row) {
            for (std::string const& piece : pieces()) {
                for (char const* const form : {row->mFirst.mNarrow, row->mSecond.mNarrow}) {
                    ASSERT_NO_FATAL_FAILURE(expectAsModelled(way, form + piece, ROOM, 0));
                    ASSERT_NO_FATAL_FAILURE(expectAsModelled(way, piece + form, ROOM, 0));
                }
            }
        }
    }
}

TEST(AttribConvertSweep, EveryTextOfOneOrTwoBytes_BecomesWhatTheTablesSay) {
    for (unsigned int bytes = 0x100; bytes <= 0xFFFF; ++bytes) {
        char const text[] = {static_cast<char>(bytes >> 8U), static_cast<char>(bytes & 0xFFU), '\0'};
        ASSERT_NO_FATAL_FAILURE(expectAsModelled(ENDING_WAYS[2], text, ROOM, 0));
        ASSERT_NO_FATAL_FAILURE(expectAsModelled(ENDING_WAYS[3], text, ROOM, 0));
    }
}

TEST(AttribConvertSweep, TextsOfEveryMake_BecomeWhatTheTablesSayInEverySize) {
    for (std::string const& text : textsOf(2, pieces())) {
        for (Way const& way : ENDING_WAYS) {
            for (unsigned int dstSize = text.empty() ? 1 : 0; dstSize <= ROOM; ++dstSize) {
                ASSERT_NO_FATAL_FAILURE(expectAsModelled(way, text, dstSize, 0));
                ASSERT_NO_FATAL_FAILURE(expectAsModelled(way, text, dstSize, 1));
            }
        }
        for (Way const& way : FILLING_WAYS) {
            for (unsigned int dstSize = 1; dstSize <= ROOM; ++dstSize) {
                ASSERT_NO_FATAL_FAILURE(expectAsModelled(way, text, dstSize, 0));
            }
        }
    }
}

TEST(AttribConvertSweep, LongerTextsOfEveryMake_BecomeWhatTheTablesSay) {
    for (std::string const& text : textsOf(3, pieces())) {
        for (Way const& way : ENDING_WAYS) {
            ASSERT_NO_FATAL_FAILURE(expectAsModelled(way, text, ROOM, 0));
            ASSERT_NO_FATAL_FAILURE(expectAsModelled(way, text, 8, 1));
        }
    }
}

TEST(AttribConvertSweep, TheOtherFunctions_TakeNothingFromBehindTheText) {
    for (std::string const& text :
         textsOf<std::string>(3, {"1", "ｆ", "+", "0x", "ガ", "漢", "\x80", "\xE3"})) {
        std::vector<char> const block = exactly(text);
        std::string const longer = text + '\0' + "11";
        unsigned short value = 0;
        unsigned short longerValue = 0;
        EXPECT_EQ(utl::strToInt(&value, block.data(), 0), utl::strToInt(&longerValue, longer.c_str(), 0));
        EXPECT_EQ(value, longerValue) << text;
        EXPECT_EQ(utl::compareStrNoCase(block.data(), longer.c_str(), INVALID_SIZE), 0) << text;
    }
}

}  // namespace

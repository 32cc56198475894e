// Starts no thread.

// The conversion against a plain model of it, which walks through the table row by row: over every character,
// and over texts put together from whole and broken characters, cut at every byte, into destinations of every
// size. Texts and destinations stand in heap blocks of exactly their size.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "TestPieces.h"
#include "TestTables.h"
#include "TestText.h"
#include "UtlAttribConvert.h"
#include "UtlString.h"

namespace {

using utl::INVALID_SIZE;
using utltest::exactly;
using utltest::textsOf;

constexpr char UNUSED = '#';

struct Way {
    char const* name;
    utl::PairAttrib const* table;
    int direction;
};

// Every table in both directions. A form to look for that is empty is left out of the sizes of zero, where it
// would never come to an end.
Way const ENDING_WAYS[] = {
    {"LOWER_UPPER right", utl::LOWER_UPPER_PAIR, 0},
    {"LOWER_UPPER left", utl::LOWER_UPPER_PAIR, 1},
    {"HANKAKU_ZENKAKU right", utl::HANKAKU_ZENKAKU_PAIR, 0},
    {"HANKAKU_ZENKAKU left", utl::HANKAKU_ZENKAKU_PAIR, 1},
    {"ZENKATA_HIRAGANA right", utl::ZENKATA_HIRAGANA_PAIR, 0},
    {"ZENKATA_HIRAGANA left", utl::ZENKATA_HIRAGANA_PAIR, 1},
    {"HANKATA_HIRAGANA right", utl::HANKATA_HIRAGANA_PAIR, 0},
    {"HANKATA_HIRAGANA left", utl::HANKATA_HIRAGANA_PAIR, 1},
    {"NODAKUON_DAKUON left", utl::NODAKUON_DAKUON_PAIR, 1},
    {"NODAKUON_HANDAKUON left", utl::NODAKUON_HANDAKUON_PAIR, 1},
};
Way const FILLING_WAYS[] = {
    {"NODAKUON_DAKUON right", utl::NODAKUON_DAKUON_PAIR, 0},
    {"NODAKUON_HANDAKUON right", utl::NODAKUON_HANDAKUON_PAIR, 0},
};

// --- the model

struct Outcome {
    unsigned int size;  // the result
    std::string held;   // what the destination holds, with its terminator, if anything was written

    bool operator==(Outcome const& other) const { return size == other.size && held == other.held; }
};

std::ostream& operator<<(std::ostream& out, Outcome const& outcome) {
    return out << outcome.size << " '" << outcome.held << '\'';
}

class Model {
  public:
    Model(Way const& way, unsigned int dstSize, int truncate)
        : mWay(way), mDstSize(dstSize), mTruncate(truncate) {}

    Outcome convert(char const* text) {
        while (*text != '\0') {
            unsigned int read = 0;
            std::string const piece = nextPiece(text, &read);
            if (read == INVALID_SIZE) {
                break;
            }
            if (!add(piece)) {
                return {INVALID_SIZE, held()};
            }
            text += read;
        }
        mIsWritten = mIsWritten || mDstSize != 0;
        return {static_cast<unsigned int>(mText.size()) + 1, held()};
    }

  private:
    std::string held() const { return mIsWritten ? mText + '\0' : std::string(); }

    // What the table makes of the start of the text, and how much of it that is.
    std::string nextPiece(char const* text, unsigned int* read) {
        for (utl::PairAttrib const* row = mWay.table; row->mFirst.mNarrow != nullptr; ++row) {
            char const* const key = mWay.direction != 0 ? row->mSecond.mNarrow : row->mFirst.mNarrow;
            if (std::strncmp(text, key, std::strlen(key)) == 0) {
                *read = static_cast<unsigned int>(std::strlen(key));
                return mWay.direction != 0 ? row->mFirst.mNarrow : row->mSecond.mNarrow;
            }
        }
        *read = utl::t_charlen(text);
        bool const isCharacter = *read != INVALID_SIZE;
        mIsDropped = isCharacter && mDstSize != 0 && utl::strCharBytesBase(text + *read) == INVALID_SIZE;
        return isCharacter ? std::string(text, *read) : std::string();
    }

    // A piece that is dropped needs its room nevertheless.
    bool add(std::string const& piece) {
        bool const fits = mDstSize == 0 || mText.size() + piece.size() < mDstSize;
        if (!fits && mTruncate != 1) {
            return false;
        }
        mIsWritten = mIsWritten || mDstSize != 0;
        if (fits && !mIsCut && !mIsDropped) {
            mText += piece;
        }
        // A form of two characters is cut between them.
        if (!fits && !mIsCut && piece.size() == 6 && mText.size() + 3 < mDstSize) {
            mText += piece.substr(0, 3);
        }
        mIsCut = mIsCut || !fits;
        return true;
    }

    Way const& mWay;
    unsigned int mDstSize;
    int mTruncate;
    std::string mText;
    bool mIsCut = false;
    bool mIsWritten = false;
    bool mIsDropped = false;
};

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
    ASSERT_EQ(converted(way, text, dstSize, truncate), Model(way, dstSize, truncate).convert(text.c_str()))
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

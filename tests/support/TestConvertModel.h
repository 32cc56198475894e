#pragma once

// A plain, slow model of `convertAttrib`, which walks through the table row by row.

#include <cstring>
#include <ostream>
#include <string>

#include "UtlAttribConvert.h"
#include "UtlString.h"

namespace utltest {
namespace model {

using utl::INVALID_SIZE;

struct Way {
    char const* name;
    utl::PairAttrib const* table;
    int direction;
};

// Every table in both directions. A form to look for that is empty is left out of the sizes of zero, where it
// would never come to an end.
inline Way const ENDING_WAYS[] = {
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
inline Way const FILLING_WAYS[] = {
    {"NODAKUON_DAKUON right", utl::NODAKUON_DAKUON_PAIR, 0},
    {"NODAKUON_HANDAKUON right", utl::NODAKUON_HANDAKUON_PAIR, 0},
};

struct Outcome {
    unsigned int size;  // the result
    std::string held;   // what the destination holds, with its terminator, if anything was written

    bool operator==(Outcome const& other) const { return size == other.size && held == other.held; }
};

inline std::ostream& operator<<(std::ostream& out, Outcome const& outcome) {
    return out << outcome.size << " '" << outcome.held << '\'';
}

class Conversion {
  public:
    Conversion(Way const& way, unsigned int dstSize, int truncate)
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

}  // namespace model
}  // namespace utltest

#pragma once

#include <cstring>

#include "UtlCharDecoder.h"

namespace utl {

// The two tables between Shift-JIS and Unicode, and the one way to look into them. A direct index finds what
// a bisection of the sorted tables would find, in two steps. Everything here is constant and filled at
// compile time, so that it can be used before `main`.

/// A character and the code that text is written with, sorted by the UTF-8.
struct Utf8ToSjisRecord {
    unsigned int mUtf8;    ///< the bytes as one big-endian number
    unsigned short mSjis;  ///< one byte for half-width kana
    unsigned short mReserved;
};

/// A code and the character that it is read as, sorted by the code.
struct SjisRecord {
    unsigned short mSjis;
    unsigned short mUtf16;
    unsigned int mUtf8;
};

static_assert(sizeof(Utf8ToSjisRecord) == 8 && sizeof(SjisRecord) == 8);

constexpr unsigned int UTF8_TO_SJIS_COUNT = 7389;
constexpr unsigned int SJIS_COUNT = 7787;

/// Both tables, one behind the other.
struct SjisTables {
    Utf8ToSjisRecord Utf8ToSjisTable[UTF8_TO_SJIS_COUNT];
    SjisRecord SjisTable[SJIS_COUNT];
};

// Shift-JIS -------------------------------------------------------------------------------------------------

enum class SjisKind {
    LITERAL,  ///< stands for itself and is never looked up
    KANA,     ///< a half-width kana, one byte
    DOUBLE    ///< the first of two bytes
};

/// What a first byte says.
constexpr SjisKind sjisKind(unsigned char first) {
    if (first < 0x81 || first == 0xA0 || first > 0xFC || (first >= 0xF0 && first <= 0xF9)) {
        return SjisKind::LITERAL;
    }
    return first >= 0xA1 && first <= 0xDF ? SjisKind::KANA : SjisKind::DOUBLE;
}

constexpr unsigned int SJIS_LEAD_COUNT = 31 + 16 + 3;
constexpr unsigned int SJIS_TRAIL_MIN = 0x40;
constexpr unsigned int SJIS_TRAIL_COUNT = 0xFC - 0x40 + 1;
constexpr unsigned int SJIS_KANA_MIN = 0xA1;
constexpr unsigned int SJIS_KANA_COUNT = 0xDF - 0xA1 + 1;

/// The number of a double-byte code's first byte among those that there are.
constexpr unsigned int sjisLeadNumber(unsigned int lead) {
    return lead <= 0x9F ? lead - 0x81 : lead <= 0xEF ? lead - 0xE0 + 31 : lead - 0xFA + 31 + 16;
}

// UTF-8 that may have a code --------------------------------------------------------------------------------

/// Bytes of the key that starts with this byte, 1 for a byte that stands for itself and is never looked up.
/// These are not all leads of UTF-8: where the table has no character, the bytes pass one by one.
constexpr unsigned int utf8KeyBytes(unsigned char first) {
    if (first < 0xC2) {
        return 1;
    }
    if (first <= 0xD1) {
        return 2;
    }
    return (first >= 0xE2 && first <= 0xE9) || first == 0xEF ? 3 : 1;
}

/// Characters that differ in the last byte alone are a block.
constexpr unsigned int UTF8_BLOCK_SIZE = 64;
constexpr unsigned int UTF8_SHORT_BLOCKS = 0xD1 - 0xC2 + 1;
constexpr unsigned int UTF8_BLOCK_COUNT = UTF8_SHORT_BLOCKS + (0xE9 - 0xE2 + 1 + 1) * UTF8_BLOCK_SIZE;

/// The number of the block of a two-byte key.
constexpr unsigned int utf8Block(unsigned int first) {
    return first - 0xC2;
}

/// The number of the block of a three-byte key.
constexpr unsigned int utf8Block(unsigned int first, unsigned int second) {
    unsigned int const lead = first == 0xEF ? 8 : first - 0xE2;
    return UTF8_SHORT_BLOCKS + lead * UTF8_BLOCK_SIZE + (second & 0x3FU);
}

constexpr unsigned int UTF8_USED_BLOCKS = 361;

// Looking up ------------------------------------------------------------------------------------------------

/// Rows of the tables, counted from 1; 0 where there is none.
struct SjisIndex {
    unsigned short mSjisRows[SJIS_LEAD_COUNT * SJIS_TRAIL_COUNT];
    /// Where the rows of a block begin. All blocks without a character share the first.
    unsigned short mUtf8Blocks[UTF8_BLOCK_COUNT];
    unsigned short mUtf8Rows[(1 + UTF8_USED_BLOCKS) * UTF8_BLOCK_SIZE];
};

extern SjisTables const SJIS_TABLES;
extern SjisIndex const SJIS_INDEX;

/// What stands in for a character that has no row: all of it is 0.
constexpr SjisRecord UNMAPPED_SJIS{};
constexpr Utf8ToSjisRecord UNMAPPED_UTF8{};

/// A character of Shift-JIS text.
struct SjisChar {
    SjisKind mKind;
    unsigned int mBytes;         ///< never those of a terminator
    SjisRecord const* mpRecord;  ///< `UNMAPPED_SJIS` for a literal, too
};

inline SjisRecord const* sjisDouble(unsigned int lead, unsigned int trail) {
    unsigned int const column = trail - SJIS_TRAIL_MIN;
    if (column >= SJIS_TRAIL_COUNT) {
        return &UNMAPPED_SJIS;
    }
    unsigned int const row = SJIS_INDEX.mSjisRows[sjisLeadNumber(lead) * SJIS_TRAIL_COUNT + column];
    return row != 0 ? &SJIS_TABLES.SjisTable[row - 1] : &UNMAPPED_SJIS;
}

/// The character at `text`, which a terminator ends.
inline SjisChar sjisCharAt(char const* text) {
    auto const first = static_cast<unsigned char>(text[0]);
    switch (sjisKind(first)) {
        case SjisKind::LITERAL:
            return {SjisKind::LITERAL, 1, &UNMAPPED_SJIS};
        case SjisKind::KANA:
            return {SjisKind::KANA, 1, &SJIS_TABLES.SjisTable[first - SJIS_KANA_MIN]};
        case SjisKind::DOUBLE:
            break;
    }
    auto const second = static_cast<unsigned char>(text[1]);
    return {SjisKind::DOUBLE, second != 0 ? 2U : 1U, sjisDouble(first, second)};
}

/// What a text holds for a half-width kana that has no row.
constexpr unsigned int UNMAPPED_KANA = '*';

/// What UTF-16 text holds for any other character that has no row or no unit: the reference mark.
constexpr unsigned int UNMAPPED_UTF16 = 0x203B;

/// What UTF-8 text holds for a character that is no literal, as a number; 0 for a double-byte code without a
/// row, which callers can tell from all others by that.
inline unsigned int utf8InText(SjisChar const& character) {
    unsigned int const utf8 = character.mpRecord->mUtf8;
    return utf8 == 0 && character.mKind == SjisKind::KANA ? UNMAPPED_KANA : utf8;
}

/// What UTF-16 text holds for a character that is no literal.
inline unsigned int utf16InText(SjisChar const& character) {
    unsigned int const unit = character.mpRecord->mUtf16;
    return unit != 0 ? unit : character.mKind == SjisKind::KANA ? UNMAPPED_KANA : UNMAPPED_UTF16;
}

/// A character of UTF-8 text on its way to Shift-JIS.
struct Utf8Char {
    bool mIsLiteral;
    unsigned int mBytes;               ///< never those of a terminator
    Utf8ToSjisRecord const* mpRecord;  ///< `UNMAPPED_UTF8` for a literal, too
};

inline Utf8ToSjisRecord const* utf8InBlock(unsigned int block, unsigned char last) {
    unsigned int const row = SJIS_INDEX.mUtf8Rows[SJIS_INDEX.mUtf8Blocks[block] + (last & 0x3FU)];
    return row != 0 ? &SJIS_TABLES.Utf8ToSjisTable[row - 1] : &UNMAPPED_UTF8;
}

/// The character at `text`, which a terminator ends.
inline Utf8Char utf8CharAt(char const* text) {
    auto const first = static_cast<unsigned char>(text[0]);
    unsigned int const bytes = utf8KeyBytes(first);
    if (bytes == 1) {
        return {true, 1, &UNMAPPED_UTF8};
    }
    if (!isWholeSequence(text, bytes)) {
        return {false, boundedLength(text, bytes), &UNMAPPED_UTF8};
    }
    unsigned int const block =
        bytes == 2 ? utf8Block(first) : utf8Block(first, static_cast<unsigned char>(text[1]));
    return {false, bytes, utf8InBlock(block, static_cast<unsigned char>(text[bytes - 1]))};
}

}  // namespace utl

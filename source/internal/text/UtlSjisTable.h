#pragma once

#include "internal/text/UtlCharDecoder.h"
#include "internal/text/UtlUtf8Triple.h"

namespace utl {

// The two tables between Shift-JIS and Unicode, and how to look them up. A direct index finds in two steps
// what a bisection of the sorted tables would find. Everything here is constant and computed at compile time,
// so it can be used before `main`.

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

/// Both tables, one after the other.
struct SjisTables {
    Utf8ToSjisRecord Utf8ToSjisTable[UTF8_TO_SJIS_COUNT];
    SjisRecord SjisTable[SJIS_COUNT];
};

enum class SjisKind {
    LITERAL,  ///< passes as it is and is never looked up
    KANA,     ///< a half-width kana, one byte
    DOUBLE    ///< the first of two bytes
};

/// What a first byte begins.
constexpr SjisKind sjisKind(unsigned char first) {
    if (first < 0x81 || first == 0xA0 || first > 0xFC || (first >= 0xF0 && first <= 0xF9)) {
        return SjisKind::LITERAL;
    }
    return first >= 0xA1 && first <= 0xDF ? SjisKind::KANA : SjisKind::DOUBLE;
}

constexpr unsigned int SJIS_LEAD_COUNT = 31 + 16 + 3;  // kinds of first bytes of double-byte codes
constexpr unsigned int SJIS_TRAIL_MIN = 0x40;
constexpr unsigned int SJIS_TRAIL_COUNT = 0xFC - 0x40 + 1;
constexpr unsigned int SJIS_KANA_MIN = 0xA1;
constexpr unsigned int SJIS_KANA_COUNT = 0xDF - 0xA1 + 1;

/// Bytes of the key that starts with this byte, 1 for a byte that passes as it is and is never looked up. Not
/// all leads of UTF-8 are among the others: if the table has no character of a lead, the bytes pass one by
/// one.
constexpr unsigned int utf8KeyBytes(unsigned char first) {
    if (first < 0xC2) {
        return 1;
    }
    if (first <= 0xD1) {
        return 2;
    }
    return (first >= 0xE2 && first <= 0xE9) || first == 0xEF ? 3 : 1;
}

/// Characters that differ only in the last byte are a block. There are as many blocks of keys of three bytes
/// that differ only in the second byte.
constexpr unsigned int UTF8_BLOCK_SIZE = 64;

constexpr unsigned int UTF8_PAIR_LEAD_COUNT = 0xD1 - 0xC2 + 1;
constexpr unsigned int UTF8_TRIPLE_LEAD_COUNT = 0xE9 - 0xE2 + 1 + 1;
constexpr unsigned int UTF8_USED_BLOCKS = 361;

/// Rows of the tables, counted from 1; 0 where there is none.
struct SjisIndex {
    /// Where the rows of a first byte begin; 0 for a byte that is not the first of a double-byte code.
    unsigned short mSjisLeads[256];
    unsigned short mSjisRows[(1 + SJIS_LEAD_COUNT) * SJIS_TRAIL_COUNT];
    /// For the first byte of a key of two bytes the place of its block, for one of three the place where its
    /// blocks begin, and 0 for a byte that passes as it is.
    unsigned short mUtf8Leads[256];
    /// Where the rows of a block begin; 0 for all blocks without a character.
    unsigned short mUtf8Blocks[1 + UTF8_PAIR_LEAD_COUNT + UTF8_TRIPLE_LEAD_COUNT * UTF8_BLOCK_SIZE];
    unsigned short mUtf8Rows[(1 + UTF8_USED_BLOCKS) * UTF8_BLOCK_SIZE];
};

[[gnu::visibility("hidden")]] extern SjisTables const SJIS_TABLES;
[[gnu::visibility("hidden")]] extern SjisIndex const SJIS_INDEX;

/// The record of a code that has no row: all 0.
inline constexpr SjisRecord UNMAPPED_SJIS{};

/// A character of Shift-JIS text.
struct SjisChar {
    SjisKind mKind;
    unsigned int mBytes;         ///< never those of a terminator
    SjisRecord const* mpRecord;  ///< `UNMAPPED_SJIS` for a literal, too
};

UTL_ALWAYS_INLINE inline SjisRecord const* sjisDouble(unsigned int lead, unsigned int trail) {
    unsigned int const column = trail - SJIS_TRAIL_MIN;
    if (column >= SJIS_TRAIL_COUNT) {
        return &UNMAPPED_SJIS;
    }
    unsigned int const row = SJIS_INDEX.mSjisRows[lead + column];
    return row != 0 ? &SJIS_TABLES.SjisTable[row - 1] : &UNMAPPED_SJIS;
}

/// The character at `text`, which a terminator ends.
UTL_ALWAYS_INLINE inline SjisChar sjisCharAt(char const* text) {
    auto const first = static_cast<unsigned char>(text[0]);
    unsigned int const lead = SJIS_INDEX.mSjisLeads[first];
    if (lead != 0) {
        auto const second = static_cast<unsigned char>(text[1]);
        return {SjisKind::DOUBLE, second != 0 ? 2U : 1U, sjisDouble(lead, second)};
    }
    unsigned int const kana = first - SJIS_KANA_MIN;
    if (kana < SJIS_KANA_COUNT) {
        return {SjisKind::KANA, 1, &SJIS_TABLES.SjisTable[kana]};
    }
    return {SjisKind::LITERAL, 1, &UNMAPPED_SJIS};
}

/// What is written for a half-width kana that has no row.
constexpr unsigned int UNMAPPED_KANA = '*';

/// What UTF-16 text gets for any other character that has no row or no unit: the reference mark.
constexpr unsigned int UNMAPPED_UTF16 = 0x203B;

/// What UTF-8 text gets for a character that is no literal, as a number; 0 for a double-byte code without a
/// row and for nothing else.
UTL_ALWAYS_INLINE inline unsigned int utf8InText(SjisChar const& character) {
    unsigned int const utf8 = character.mpRecord->mUtf8;
    return utf8 == 0 && character.mKind == SjisKind::KANA ? UNMAPPED_KANA : utf8;
}

/// What UTF-16 text gets for a character that is no literal.
UTL_ALWAYS_INLINE inline unsigned int utf16InText(SjisChar const& character) {
    unsigned int const unit = character.mpRecord->mUtf16;
    return unit != 0 ? unit : character.mKind == SjisKind::KANA ? UNMAPPED_KANA : UNMAPPED_UTF16;
}

/// A character of UTF-8 text on its way to Shift-JIS.
struct Utf8Char {
    bool mIsLiteral;
    unsigned int mBytes;  ///< never those of a terminator
    unsigned int mSjis;   ///< the byte of a literal, 0 for a character without a code
};

/// A character whose first byte begins a key of `bytes` bytes, but the others do not follow.
UTL_ALWAYS_INLINE inline Utf8Char brokenUtf8At(char const* text, unsigned int bytes) {
    return {false, boundedLength(text, bytes), 0};
}

UTL_ALWAYS_INLINE inline unsigned int sjisInBlock(unsigned int block, unsigned int last) {
    unsigned int const row = SJIS_INDEX.mUtf8Rows[SJIS_INDEX.mUtf8Blocks[block] + last];
    return row != 0 ? SJIS_TABLES.Utf8ToSjisTable[row - 1].mSjis : 0U;
}

/// The character at `text`, which a terminator ends.
UTL_ALWAYS_INLINE inline Utf8Char utf8CharAt(char const* text) {
    auto const first = static_cast<unsigned char>(text[0]);
    unsigned int const lead = SJIS_INDEX.mUtf8Leads[first];
    if (lead == 0) {
        return {true, 1, first};
    }
    unsigned int const second = continuationBits(text[1]);
    if (first < 0xE0) {
        return second < 64 ? Utf8Char{false, 2, sjisInBlock(lead, second)} : brokenUtf8At(text, 2);
    }
    unsigned int const third = second < 64 ? continuationBits(text[2]) : 64;
    return third < 64 ? Utf8Char{false, 3, sjisInBlock(lead + second, third)} : brokenUtf8At(text, 3);
}

/// The same if the end of the text is known, which makes the usual character cheaper.
UTL_ALWAYS_INLINE inline Utf8Char utf8CharAt(char const* text, char const* end) {
    Utf8Triple const triple(text, end);
    unsigned int const lead = triple.isWhole() ? SJIS_INDEX.mUtf8Leads[triple.first()] : 0U;
    return lead != 0 ? Utf8Char{false, 3, sjisInBlock(lead + triple.second(), triple.third())}
                     : utf8CharAt(text);
}

}  // namespace utl

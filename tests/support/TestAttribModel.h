#pragma once

// A plain, slow model of the classification, which walks through the tables row by row and tries every bit by
// itself.

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "UtlCharAttrib.h"
#include "UtlString.h"

namespace utltest {
namespace model {

using utl::INVALID_SIZE;
using Table = utl::CodeTableRow const*;

constexpr unsigned int BITS = 32;
constexpr unsigned int OTHER = 31;

inline bool take(char const* text, Table table, unsigned int* position) {
    for (; table->mNarrow != nullptr; ++table) {
        std::size_t const length = std::strlen(table->mNarrow);
        if (std::strncmp(text + *position, table->mNarrow, length) == 0) {
            *position += static_cast<unsigned int>(length);
            return true;
        }
    }
    return false;
}

inline unsigned int takeAll(char const* text, std::vector<Table> const& tables, unsigned int* position) {
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

inline unsigned int rowSize(char const* text, Table table) {
    unsigned int position = 0;
    return take(text, table, &position) ? position : INVALID_SIZE;
}

inline unsigned int signedSize(char const* text, Table signs, Table digits) {
    unsigned int position = 0;
    bool const isUnit = take(text, signs, &position) && takeAll(text, {digits}, &position) != 0;
    return isUnit ? position : INVALID_SIZE;
}

inline unsigned int hexSize(char const* text, Table prefix, std::vector<Table> const& digits, Table suffix) {
    unsigned int position = 0;
    bool const hasPrefix = take(text, prefix, &position);
    bool const hasDigits = takeAll(text, digits, &position) != 0;
    bool const hasSuffix = take(text, suffix, &position);
    return hasDigits && !(hasPrefix && hasSuffix) ? position : INVALID_SIZE;
}

inline unsigned int voicedSize(char const* text, Table voiced, Table unvoiced, Table mark, Table smallKana) {
    unsigned int position = 0;
    if (!take(text, voiced, &position) && !(take(text, unvoiced, &position) && take(text, mark, &position))) {
        return INVALID_SIZE;
    }
    takeAll(text, {smallKana}, &position);
    return position;
}

// What each bit but the last says of the start of a text.
using Sizes = std::array<unsigned int, BITS>;

inline Sizes sizesAt(char const* text) {
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
inline unsigned int blockSize(char const* text, Sizes const& sizes, unsigned int mask) {
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

inline bool isStrAttrib(SizedText const& sized, unsigned int mask) {
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
inline std::string firstCharacter(std::string const& text) {
    unsigned int const bytes = utl::t_charlen(text.c_str());
    bool const isCopied =
        bytes != INVALID_SIZE && utl::strCharBytesBase(text.c_str() + bytes) != INVALID_SIZE;
    return isCopied ? text.substr(0, bytes) : "";
}

inline bool mayHaveCharAttrib(std::string const& text) {
    bool isBom = false;
    return utl::t_charlen(text.c_str(), &isBom) != INVALID_SIZE && !isBom;
}

}  // namespace model
}  // namespace utltest

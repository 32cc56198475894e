#pragma once

#include "internal/text/UtlCharSlot.h"

namespace utl {

/// What the code tables say about one character. A set of attributes is a mask of `ATTRIB_` bits.
struct CharKind {
    unsigned int starts;  ///< the attributes that may have a unit which begins with it
    unsigned int rows;    ///< those among them for which it is a sign, a digit, or a row of their own table
    unsigned int parts;   ///< the `PART_` bits of the tables whose rows follow the first character of a unit
    unsigned int bytes;   ///< its length; 0 for a character that is in no table
};

// One bit for each table whose rows only follow other characters of a unit.
constexpr unsigned int PART_HAN_HEX_SUFFIX = 0x1;
constexpr unsigned int PART_ZEN_HEX_SUFFIX = 0x2;
constexpr unsigned int PART_HAN_DAKUTEN = 0x4;
constexpr unsigned int PART_ZEN_DAKUTEN = 0x8;
constexpr unsigned int PART_HAN_HANDAKUTEN = 0x10;
constexpr unsigned int PART_ZEN_HANDAKUTEN = 0x20;
constexpr unsigned int PART_HAN_KATA_YOUSOKU = 0x40;
constexpr unsigned int PART_ZEN_KATA_YOUSOKU = 0x80;
constexpr unsigned int PART_HIRA_YOUSOKU = 0x100;

/// The kinds of all characters, by their slots.
struct CharKinds {
    CharKind bySlot[SLOT_COUNT];
};

extern CharKinds const CHAR_KINDS;

/// The kind of the character at `text`.
inline CharKind const& charKind(char const* text) {
    return CHAR_KINDS.bySlot[charSlot(text)];
}

}  // namespace utl

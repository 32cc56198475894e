#pragma once

#include "UtlBasicString.h"
#include "UtlPlatform.h"

namespace utl {

// Kinds of Japanese text: which kinds a text consists of, and how long the next piece of a kind is. The
// pieces are called units. A unit is a character, or several: a number with its sign or in hexadecimal form,
// a kana followed by a voicing mark and small kana.
//
// In the names HAN is half-width and ZEN full-width; KAIGYO are the line ends, KATA katakana, HIRA hiragana.
// DAKU kana are voiced and carry the mark called DAKUTEN, HANDAKU kana are half-voiced with their HANDAKUTEN,
// NODAKU kana are neither. YOUSOKU are the small kana.
//
// Texts are UTF-8. No function reads after a terminator, none logs, and none allocates.

/// One row of a code table: the same characters as UTF-8 and as wide text.
using CodeTableRow = DualType<char const*, wchar_t const*>;

// The code tables. Each is a constant array with one row more than it has entries: a row of two null pointers
// ends it. They are initialised before any code of the program runs, so that the initialisers of static
// objects may use them, and never change. Callers rely on the order of the rows; in the tables of marks the
// same row is the same sign in either width.

/// Controls, spaces, and the half-width marks, digits and signs.
UTL_API extern CodeTableRow const KAIGYO_TBL[2 + 1];
UTL_API extern CodeTableRow const TAB_FF_TBL[3 + 1];
UTL_API extern CodeTableRow const CTL_OTHER_TBL[27 + 1];
UTL_API extern CodeTableRow const HAN_SPACE_TBL[1 + 1];
UTL_API extern CodeTableRow const ZEN_SPACE_TBL[1 + 1];
UTL_API extern CodeTableRow const HAN_MARK_TBL[32 + 1];
UTL_API extern CodeTableRow const HAN_DIGIT_TBL[10 + 1];
UTL_API extern CodeTableRow const HAN_SIGN_TBL[2 + 1];

/// The full-width marks, digits and signs. Four marks are not the full-width forms of their half-width
/// partners but what Japanese text uses instead: U+201D, U+2019, U+FFE5 and U+FFE3 for 0x22, 0x27, 0x5C
/// and 0x7E.
UTL_API extern CodeTableRow const ZEN_MARK_TBL[32 + 1];
UTL_API extern CodeTableRow const ZEN_DIGIT_TBL[10 + 1];
UTL_API extern CodeTableRow const ZEN_SIGN_TBL[2 + 1];

/// What comes before and after a hexadecimal number, and the letters: those that are digits of such a
/// number and those that are not.
UTL_API extern CodeTableRow const HAN_HEX_PREFIX_TBL[1 + 1];
UTL_API extern CodeTableRow const ZEN_HEX_PREFIX_TBL[1 + 1];
UTL_API extern CodeTableRow const HAN_HEX_SUFFIX_TBL[2 + 1];
UTL_API extern CodeTableRow const ZEN_HEX_SUFFIX_TBL[2 + 1];
UTL_API extern CodeTableRow const LOWER_HAN_HEX_ALPHA_TBL[6 + 1];
UTL_API extern CodeTableRow const LOWER_ZEN_HEX_ALPHA_TBL[6 + 1];
UTL_API extern CodeTableRow const UPPER_HAN_HEX_ALPHA_TBL[6 + 1];
UTL_API extern CodeTableRow const UPPER_ZEN_HEX_ALPHA_TBL[6 + 1];
UTL_API extern CodeTableRow const LOWER_HAN_NOHEX_ALPHA_TBL[20 + 1];
UTL_API extern CodeTableRow const LOWER_ZEN_NOHEX_ALPHA_TBL[20 + 1];
UTL_API extern CodeTableRow const UPPER_HAN_NOHEX_ALPHA_TBL[20 + 1];
UTL_API extern CodeTableRow const UPPER_ZEN_NOHEX_ALPHA_TBL[20 + 1];

/// Katakana. The `NODAKU` tables end with the sentence marks and the prolonged sound mark, which occur in
/// any kana text. A voiced half-width kana is two characters.
UTL_API extern CodeTableRow const NODAKU_HAN_KATA_TBL[61 + 1];
UTL_API extern CodeTableRow const NODAKU_ZEN_KATA_TBL[67 + 1];
UTL_API extern CodeTableRow const DAKU_HAN_KATA_TBL[22 + 1];
UTL_API extern CodeTableRow const DAKU_ZEN_KATA_TBL[23 + 1];
UTL_API extern CodeTableRow const HANDAKU_HAN_KATA_TBL[6 + 1];
UTL_API extern CodeTableRow const HANDAKU_ZEN_KATA_TBL[6 + 1];
UTL_API extern CodeTableRow const HAN_KATA_YOUSOKU_TBL[9 + 1];
UTL_API extern CodeTableRow const ZEN_KATA_YOUSOKU_TBL[10 + 1];

/// Hiragana. All three kinds have the sentence marks among their rows.
UTL_API extern CodeTableRow const NODAKU_HIRA_TBL[65 + 1];
UTL_API extern CodeTableRow const DAKU_HIRA_TBL[27 + 1];
UTL_API extern CodeTableRow const HANDAKU_HIRA_TBL[11 + 1];
UTL_API extern CodeTableRow const HIRA_YOUSOKU_TBL[10 + 1];

/// The marks that voice the kana before them.
UTL_API extern CodeTableRow const HAN_DAKUTEN_TBL[1 + 1];
UTL_API extern CodeTableRow const ZEN_DAKUTEN_TBL[1 + 1];
UTL_API extern CodeTableRow const HAN_HANDAKUTEN_TBL[1 + 1];
UTL_API extern CodeTableRow const ZEN_HANDAKUTEN_TBL[1 + 1];

/// The attributes, one bit each, to be combined into a mask. The unit of each is:
///
/// | Attributes                 | Unit                                                                        |
/// |----------------------------|-----------------------------------------------------------------------------|
/// | `NUL`                      | the end of the text, of size 1                                              |
/// | `SIGNED`                   | a sign and one or more digits of the same width                             |
/// | `HEX`                      | digits and letters a to f, one or more; a prefix or a suffix, but not both  |
/// | `DAKU`, `HANDAKU`          | a row of the table, or a `NODAKU` kana with the mark; any small kana after  |
/// | `LOWER` and `UPPER`        | a row of the table with `ALPHA` in its name                                 |
/// | `OTHER`                    | a character that no other attribute has a unit for                          |
/// | all others                 | a row of the table of the same name                                         |
inline constexpr int ATTRIB_NUL = 0x1;
inline constexpr int ATTRIB_KAIGYO = 0x2;
inline constexpr int ATTRIB_TAB_FF = 0x4;
inline constexpr int ATTRIB_CTL_OTHER = 0x8;
inline constexpr int ATTRIB_HAN_SPACE = 0x10;
inline constexpr int ATTRIB_ZEN_SPACE = 0x20;
inline constexpr int ATTRIB_HAN_MARK = 0x40;
inline constexpr int ATTRIB_ZEN_MARK = 0x80;
inline constexpr int ATTRIB_HAN_DIGIT = 0x100;
inline constexpr int ATTRIB_ZEN_DIGIT = 0x200;
inline constexpr int ATTRIB_HAN_SIGNED = 0x400;
inline constexpr int ATTRIB_ZEN_SIGNED = 0x800;
inline constexpr int ATTRIB_HAN_HEX = 0x1000;
inline constexpr int ATTRIB_ZEN_HEX = 0x2000;
inline constexpr int ATTRIB_LOWER_HAN_HEX = 0x4000;
inline constexpr int ATTRIB_LOWER_ZEN_HEX = 0x8000;
inline constexpr int ATTRIB_LOWER_HAN_NOHEX = 0x10000;
inline constexpr int ATTRIB_LOWER_ZEN_NOHEX = 0x20000;
inline constexpr int ATTRIB_UPPER_HAN_HEX = 0x40000;
inline constexpr int ATTRIB_UPPER_ZEN_HEX = 0x80000;
inline constexpr int ATTRIB_UPPER_HAN_NOHEX = 0x100000;
inline constexpr int ATTRIB_UPPER_ZEN_NOHEX = 0x200000;
inline constexpr int ATTRIB_NODAKU_HAN_KATA = 0x400000;
inline constexpr int ATTRIB_NODAKU_ZEN_KATA = 0x800000;
inline constexpr int ATTRIB_DAKU_HAN_KATA = 0x1000000;
inline constexpr int ATTRIB_DAKU_ZEN_KATA = 0x2000000;
inline constexpr int ATTRIB_HANDAKU_HAN_KATA = 0x4000000;
inline constexpr int ATTRIB_HANDAKU_ZEN_KATA = 0x8000000;
inline constexpr int ATTRIB_NODAKU_HIRA = 0x10000000;
inline constexpr int ATTRIB_DAKU_HIRA = 0x20000000;
inline constexpr int ATTRIB_HANDAKU_HIRA = 0x40000000;
inline constexpr int ATTRIB_OTHER = -0x7FFFFFFF - 1;

/// Finds the first row of `table` that is in `text` at `*position`: returns the row's text, which nobody may
/// write, and adds its length to `*position`. Null, with `*position` unchanged, if there is none, if the
/// table is empty, and if an argument is null. Looks at the rows one by one, also in tables of the caller's
/// own.
template <typename T>
UTL_API T* findCodeTable(T const* text, CodeTableRow const* table, unsigned int* position) noexcept;

/// Bytes of the unit at the start of `text`; `INVALID_SIZE` if no attribute of the mask has one there, and
/// for null. If several have one, the attribute of the highest bit decides, not the longest unit; but any
/// attribute comes before `OTHER`. Malformed bytes are no unit.
template <typename T>
UTL_API unsigned int attribBlockSize(T const* text, int attribute) noexcept;

/// True if `text` consists of units of the mask from its start to its end. Null counts as empty, and an empty
/// text consists of `NUL` alone.
template <typename T>
UTL_API bool isStrAttribBase(T const* text, int attribute) noexcept;

/// True if the first character of `text`, as a text of its own, consists of units of the mask; a unit of
/// several characters thus counts only if the first of them is already one. Null and empty text are as for
/// `isStrAttribBase`. False for a byte order mark and for malformed bytes. Before a byte that can start no
/// character, the character counts as an empty text. Waits for other users of the `WorkingBuffer`.
template <typename T>
UTL_API bool isCharAttribBase(T const* text, int attribute);

}  // namespace utl

#pragma once

#include "UtlPlatform.h"

namespace utl {

// Conversions between Shift-JIS (code page 932), UTF-8, UTF-16 in the machine's order, and wide text. A
// character outside of ASCII that has no code in the target is no failure; what is written for it differs:
//
// | from, to             | several bytes, no code              | half-width kana, no code |
// |----------------------|-------------------------------------|--------------------------|
// | UTF-8 to Shift-JIS   | a zero byte                         |                          |
// | Shift-JIS to UTF-8   | a zero byte                         | "*"                      |
// | Shift-JIS to UTF-16  | U+203B                              | "*"                      |
// | UTF-8 to UTF-16      | U+203B, for a character of 4 bytes  |                          |
//
// Such a zero byte counts like any other: the result goes on after it, and a reader of text stops there. The
// difference shows callers that something was lost. UTF-16 has no surrogate pairs here: each unit of
// one is a character of three bytes in UTF-8.
//
// Unless a function says otherwise:
//
// - Failure is `INVALID_SIZE`, is never logged, and leaves in `dst` what was written so far.
// - With a destination size of 0 nothing is written, and `dst` may be null: the result is what it takes.
// - A string function returns the bytes or units used, terminator included. It fails for null and for too
//   little room, which includes room for the terminator.
// - A character function looks at the first character of `src` alone, writes no terminator, and stores the
//   bytes of `src` that it covers in `*consumed`; `consumed` may be null. It does so also if the character
//   has too little room or no form in the target, so that callers can skip it, but not for null `src`. A
//   terminator among these bytes is never covered; as a first byte it is a character of one byte.
// - `src` and `dst` do not overlap.
//
// Any thread may call any function at any time: nothing is locked, allocated or waited for. For the
// conversions of wide text this depends on `jk_mbtowc` and `jk_wctomb`.

/// The order of the two bytes of a unit, as the argument `order`. Any other value is as
/// `BYTE_ORDER_LOW_FIRST`.
inline constexpr int BYTE_ORDER_LOW_FIRST = 0;
inline constexpr int BYTE_ORDER_HIGH_FIRST = 1;

/// The two byte order marks, as `*bomKind`: 0xFEFF, and 0xFFFE for the other order.
inline constexpr int BOM_KIND_SAME_ORDER = 1;
inline constexpr int BOM_KIND_OTHER_ORDER = 2;

/// Writes 1 or 2 bytes and returns their number. ASCII, and every byte that starts no character of the code
/// page, passes as it is; null `dst` then writes nothing and returns 1. What has no code becomes a zero byte.
UTL_API unsigned int convertCharFromUtf8ToSjis(char* dst, unsigned int dstSize, char const* src,
                                               unsigned int* consumed) noexcept;

/// If a character has several codes, it writes the one that Windows writes.
UTL_API unsigned int convertStrFromUtf8ToSjis(char* dst, unsigned int dstSize, char const* src) noexcept;

/// Writes 1 to 3 bytes and returns their number. A byte that is neither half-width kana nor the first of a
/// double-byte code (0x80, 0xA0, 0xF0 to 0xF9 and 0xFD to 0xFF are such) passes as it is; null `dst` then
/// writes nothing and returns 1. What has no character becomes a zero byte, half-width kana included.
UTL_API unsigned int convertCharFromSjisToUtf8(char* dst, unsigned int dstSize, char const* src,
                                               unsigned int* consumed) noexcept;

/// Unlike the character function it writes "*" for half-width kana without a character.
UTL_API unsigned int convertStrFromSjisToUtf8(char* dst, unsigned int dstSize, char const* src) noexcept;

/// Stores one unit, 0 for what has no character. Returns 2 for a byte that passes as it is and 1 for all
/// else: compare with `INVALID_SIZE` alone, which is the result for null.
UTL_API unsigned int convertCharFromSjisToUtf16(unsigned short* dst, char const* src,
                                                unsigned int* consumed) noexcept;

/// `dstSize` and the result count units.
UTL_API unsigned int convertStrFromSjisToUtf16(unsigned short* dst, unsigned int dstSize,
                                               char const* src) noexcept;

/// Writes 1 to 3 bytes and returns their number; any unit but the marks has them. For a byte order mark,
/// 0xFEFF or 0xFFFE, the result is 0, nothing is written, and `*bomKind` becomes `BOM_KIND_SAME_ORDER` or
/// `BOM_KIND_OTHER_ORDER`; it stays untouched for all other units. `bomKind` may be null.
UTL_API unsigned int convertCharFromUtf16ToUtf8(char* dst, unsigned int dstSize, unsigned short code,
                                                int* bomKind) noexcept;

/// Fails for text with 0xFEFF or 0xFFFE anywhere in it: skip a mark at the beginning before the call.
UTL_API unsigned int convertStrFromUtf16ToUtf8(char* dst, unsigned int dstSize,
                                               unsigned short const* src) noexcept;

/// Stores one unit and returns 1; a byte order mark becomes 0xFEFF. Fails for null, at the end of the text
/// and for malformed bytes, which leave `*consumed` untouched, and for a character of 4 bytes.
UTL_API unsigned int convertCharFromUtf8ToUtf16(unsigned short* dst, char const* src,
                                                unsigned int* consumed) noexcept;

/// `dstSize` and the result count units. A character that is cut off, broken or longer than it needs to be
/// ends the text there, with success; a byte that can start none fails.
UTL_API unsigned int convertStrFromUtf8ToUtf16(unsigned short* dst, unsigned int dstSize,
                                               char const* src) noexcept;

/// `dstSize` and the result count characters. The size asked for is an upper bound: the bytes of `src` and a
/// terminator. Fails where `jk_mbtowc` does: with the built-in one for malformed text and too little room.
UTL_API unsigned int convertStrFromTcharToWchar(wchar_t* dst, unsigned int dstSize, char const* src);

/// The size asked for is an upper bound: 6 bytes for a character and a terminator. Fails where `jk_wctomb`
/// does: with the built-in one for what is no character and for too little room.
UTL_API unsigned int convertStrFromWcharToTchar(char* dst, unsigned int dstSize, wchar_t const* src);

/// Copies the text byte for byte, since both forms are UTF-8 here. Too little room leaves `dst` untouched.
UTL_API unsigned int convertStrFromTcharToChar(char* dst, unsigned int dstSize, char const* src) noexcept;

/// As `convertStrFromTcharToChar`.
UTL_API unsigned int convertStrFromCharToTchar(char* dst, unsigned int dstSize, char const* src) noexcept;

/// Stores each unit of `src`, up to a zero unit and `length` units at most, as two bytes in this `order`. No
/// terminator. Returns the bytes, which may be 0. Too little room leaves `dst` untouched.
UTL_API unsigned int convertStrFromDcharToUint8(unsigned char* dst, unsigned int dstSize,
                                                unsigned short const* src, unsigned int length,
                                                int order) noexcept;

/// Makes a unit of each two of the `size` bytes, which have this `order`; zero units are units like any
/// other. No terminator. `dstCount` and the result count units. Fails for an odd `size`; too little room
/// leaves `dst` untouched.
UTL_API unsigned int convertBinFromUint8ToDchar(unsigned short* dst, unsigned int dstCount,
                                                unsigned char const* src, unsigned int size,
                                                int order) noexcept;

}  // namespace utl

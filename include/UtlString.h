#pragma once

#include "UtlPlatform.h"

namespace utl {

// String primitives for NUL-terminated UTF-8. They exist for `char` only.
//
// A character has one to four bytes; the byte order mark EF BB BF counts as one of three. Text is never cut
// inside a character. A destination always has a size. Nothing is read after a terminator or written beyond a
// size. Failure is `INVALID_SIZE` and is never logged. Unless a function says otherwise:
//
// - A writer returns the bytes used, terminator included: the length of the text plus one. A chain of writes
//   goes on at the result minus one.
// - With a destination size of 0 nothing is written, and no destination is needed: the result is what the
//   whole text takes.
// - `truncate` says what becomes of text that does not fit: `TRUNCATE_ON` or any other value.
// - Malformed bytes make the result `INVALID_SIZE`: with `TRUNCATE_ON` if the way to the cut, or to the end
// of
//   text that fits, leads over them; otherwise only if the copy would have to end inside them and nothing
//   before that place can start a character.
// - A length of `INVALID_SIZE` is to the end; lengths, positions and sizes count bytes.
// - Source and destination may overlap in `copyStrBase`, `t_strncpy` and `copyGeneral`, and nowhere else.
//
// Any thread may call any function at any time on text of its own. `findReverseStr`, `findReverseChar`,
// `eraseStrSpan`, `insertStr` and `trimStrRight` work in a `WorkingBuffer`: they wait for each other across
// the process, and fail on text of more than 10239 bytes. None allocates.

/// What becomes of text that does not fit, as the argument `truncate`. Any other value is as `TRUNCATE_OFF`.
inline constexpr int TRUNCATE_OFF = 0;  ///< it is refused with `INVALID_SIZE`, and the destination untouched
inline constexpr int TRUNCATE_ON = 1;   ///< it is cut after the last character that fits

/// Which boundary of a character `getNearCharIndex` takes. Any other value is as `CHAR_END`.
inline constexpr unsigned int CHAR_END = 0;
inline constexpr unsigned int CHAR_START = 1;

/// Bytes of the first character: 1 to 4, or 0 at the end and for null. `INVALID_SIZE` for anything that is
/// not a whole, shortest-form sequence. Surrogates, and values above U+10FFFF up to a lead byte of F7, count
/// as characters, because stored text holds them. `*isBom` becomes true for a byte order mark and else false;
/// null `text` leaves it untouched.
template <typename T>
UTL_API unsigned int t_charlen(T const* text, bool* isBom = nullptr) noexcept;

/// As `t_charlen`, but 0 for a lead byte (C0 and C1 included) whose sequence is cut off, broken or overlong,
/// and `INVALID_SIZE` only for a byte that can start no sequence. Null `text` sets `*isBom` to false.
template <typename T>
UTL_API unsigned int strCharBytesBase(T const* text, bool* isBom = nullptr) noexcept;

/// The character boundary nearest to `index`: `index` itself if it is one, else the start of the character
/// around it for the `direction` `CHAR_START` and its end for any other. Beyond the end it is the text's
/// length. `INVALID_SIZE` for null and if a malformed byte is met on the way; an `index` of 0 meets none.
template <typename T>
[[nodiscard]] UTL_API unsigned int getNearCharIndex(T const* text, unsigned int index,
                                                    unsigned int direction) noexcept;

/// Copies at most `length` bytes of `src`, less those of a character that `length` would split. A `length` of
/// 0 returns 0 and leaves `dst` untouched, without a terminator. `INVALID_SIZE` for null and for text that
/// does not fit.
template <typename T>
UTL_API unsigned int copyStrBase(T* dst, unsigned int dstSize, T const* src, unsigned int length,
                                 int truncate) noexcept;

/// Copies at most `length` bytes of `src`, less those of a character that `length` would split; unlike
/// `copyStrBase`, a `length` of 0 writes a terminator. Null `src` makes `dst` empty. `INVALID_SIZE` if it
/// does not fit, which a `dstSize` of 0 never does. `dst` must not be null.
template <typename T>
UTL_API unsigned int t_strncpy(T* dst, unsigned int dstSize, T const* src, unsigned int length) noexcept;

/// Writes the part of `src` from `srcPos` on, at most `length` bytes, at `dstPos` of `dst`, and terminates it
/// there. The result counts from the start of `dst`. A `length` of 0 returns `dstPos` and writes nothing, so
/// callers that chain test for it first. If a cut would step back over malformed bytes to nothing, `dst` is
/// untouched and the result is `dstPos` - 1. `INVALID_SIZE` for null, a `srcPos` beyond the end of `src`,
/// text that does not fit, and a `dstPos` at or beyond a `dstSize` that is not 0.
template <typename T>
UTL_API unsigned int copyGeneral(T* dst, unsigned int dstSize, unsigned int dstPos, T const* src,
                                 unsigned int srcPos, unsigned int length, int truncate) noexcept;

/// Formats as `printf` does. `INVALID_SIZE` for null, a `dstSize` of 0, formatting that fails, and text that
/// does not fit, of which `dst` then holds the beginning, cut at any byte.
template <typename T>
UTL_API unsigned int formatStr(T* dst, unsigned int dstSize, T const* format, ...);

// Declared for the compiler's check of the arguments, which a template cannot have.
template <>
UTL_API unsigned int formatStr<char>(char* dst, unsigned int dstSize, char const* format, ...)
    __attribute__((format(printf, 3, 4)));

/// Offset of the first character of `text` at which the bytes of `sub` begin. Malformed bytes of `text` are
/// skipped one by one and never begin a match. An empty `sub` is found at the end, also of null.
/// `INVALID_SIZE` if there is none. `sub` must not be null.
template <typename T>
[[nodiscard]] UTL_API unsigned int t_strstr(T const* text, T const* sub) noexcept;

/// Searches backwards from the byte `start`, which is the last that a match may cover; a `start` at or beyond
/// the end allows any match. Returns the offset of the last byte of the match, not of the one after it.
/// `*next` becomes the offset of the byte before the match, from which to search on. It is `INVALID_SIZE` for
/// a match at the very beginning and for none; a loop must end there, because as a `start` it would allow any
/// match again. An empty `sub` returns the length of `text`, and `*next` is one less. Null, malformed and too
/// long text returns `INVALID_SIZE` and leaves `*next` untouched.
template <typename T>
UTL_API unsigned int findReverseStr(T const* text, T const* sub, unsigned int start,
                                    unsigned int* next = nullptr);

/// `findReverseStr` with the first character of `chars`. Null, empty and cut-off `chars` count as an empty
/// search text. A byte order mark, or a byte that can start no character, returns `INVALID_SIZE` and leaves
/// `*next` untouched.
template <typename T>
UTL_API unsigned int findReverseChar(T const* text, T const* chars, unsigned int start,
                                     unsigned int* next = nullptr);

/// Length of the leading part of `text` whose characters are all in `set`; 0 for null. A malformed byte ends
/// the part, and one in `set` ends the set.
template <typename T>
[[nodiscard]] UTL_API unsigned int t_strspn(T const* text, T const* set) noexcept;

/// How many bytes of `text` are before the first member of `set`; all of them if there is none, 0 for null.
/// Malformed bytes of `text` count and are no members. A malformed byte in `set` ends the set, and the
/// character right before that byte is no member either.
template <typename T>
[[nodiscard]] UTL_API unsigned int t_strcspn(T const* text, T const* set) noexcept;

/// Writes `src` to `dst` with its characters in reverse order. Here *every* `truncate` but `TRUNCATE_OFF`
/// cuts, and what is cut off are the first characters of `src`. `INVALID_SIZE` for text that does not fit, a
/// `dstSize` of 0, and malformed text, after which the content of `dst` is of no use. Null `src` counts as
/// empty; `dst` must not be null.
template <typename T>
UTL_API unsigned int t_strrev(T* dst, unsigned int dstSize, T const* src, int truncate) noexcept;

/// `t_strrev` for arguments that may be null, which return `INVALID_SIZE`; a `dstSize` of 0 asks for the
/// size.
template <typename T>
UTL_API unsigned int reverseStrBase(T* dst, unsigned int dstSize, T const* src, int truncate) noexcept;

/// Cuts `text` in place after at most `length` bytes, before a character that `length` would split.
/// `INVALID_SIZE` for null and for a malformed byte before the cut; the text is then unchanged.
template <typename T>
UTL_API unsigned int truncateStr(T* text, unsigned int length) noexcept;

/// Removes `length` bytes of `text` at `pos`. A `pos` inside a character keeps none of it before the gap.
/// `INVALID_SIZE` for null, a `pos` beyond the end, and one from which stepping back, down to the start of
/// the text, finds no byte that can start a character; a `pos` of 0 is not stepped back from.
template <typename T>
UTL_API unsigned int eraseStrSpan(T* text, unsigned int pos, unsigned int length);

/// Inserts at most `length` bytes of `src` into the text in `dst` at `pos`, which may be its end.
/// `INVALID_SIZE` for null, a `pos` beyond the end, and text that does not fit. The parts are written one
/// after the other, so `dst` then holds those before.
template <typename T>
UTL_API unsigned int insertStr(T* dst, unsigned int dstSize, unsigned int pos, T const* src,
                               unsigned int length, int truncate);

/// Writes `text` to `dst` with each `from` replaced by `to`, left to right; replacements are not searched
/// again. An empty `from` copies the text by the rules of `copyStrBase`. An empty `to` ends the result at the
/// first match: everything from there on is dropped, which callers use to cut text at a mark. `INVALID_SIZE`
/// for null and for text that does not fit; `dst` then holds the parts before.
template <typename T>
UTL_API unsigned int replaceStr(T* dst, unsigned int dstSize, T const* text, T const* from, T const* to,
                                int truncate) noexcept;

/// Removes all characters that are in `chars` from the end of `text`. Null and empty `chars` are white space:
/// blank, tab, vertical tab, carriage return, line feed, form feed and U+3000. `INVALID_SIZE` for null,
/// malformed and too long text, which is unchanged.
template <typename T>
UTL_API unsigned int trimStrRight(T* text, T const* chars);

/// Copies `size` bytes that do not overlap; no effect if either pointer is null.
UTL_API void copyMemory(void* dst, void const* src, unsigned int size) noexcept;

/// Copies `size` bytes that may overlap; no effect if either pointer is null.
UTL_API void moveMemory(void* dst, void const* src, unsigned int size) noexcept;

/// Sets `size` bytes to `value`; no effect on null.
UTL_API void fillMemory(void* dst, unsigned int size, unsigned char value) noexcept;

/// Sets `size` bytes to 0; no effect on null.
UTL_API void zeroMemory(void* dst, unsigned int size) noexcept;

/// True if `size` bytes are the same; false if either pointer is null, whatever the size.
[[nodiscard]] UTL_API bool compareMemory(void const* a, void const* b, unsigned int size) noexcept;

}  // namespace utl

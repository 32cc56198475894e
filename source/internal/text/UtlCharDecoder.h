#pragma once

#include <cstring>

#include "UtlPlatform.h"

/// For what runs once for each character of a text: before a function or a member, and after the parameters
/// of a lambda. Inlined into the loop over the text, it keeps the positions in registers, and the loop takes
/// half the time. The compilers do not see that by themselves at every level.
#define UTL_ALWAYS_INLINE __attribute__((always_inline))

namespace utl {

// How UTF-8 is made, character by character. `Utf8Triple`, `Utf8Text` and the indexes of the Shift-JIS and
// pair tables know it too, because they read it in other ways for speed. What reads here looks at no more
// bytes than it needs and never past a terminator, since a terminator continues no sequence.

/// Bytes that a sequence with this first byte should have, by its top bits; 0 if it can start none.
constexpr unsigned int sequenceBytes(char first) {
    auto const byte = static_cast<unsigned char>(first);
    return byte < 0x80             ? 1U
           : (byte & 0xE0) == 0xC0 ? 2U
           : (byte & 0xF0) == 0xE0 ? 3U
           : (byte & 0xF8) == 0xF0 ? 4U
                                   : 0U;
}

/// True for a byte that can start a character; the terminator is one.
constexpr bool isCharStart(char byte) {
    return sequenceBytes(byte) != 0;
}

/// The bits that a byte which continues a sequence adds to it; 64 or more for any other byte.
constexpr unsigned int continuationBits(char byte) {
    return static_cast<unsigned char>(byte) ^ 0x80U;
}

/// Bytes that a value takes in its shortest form, which is the only one that counts.
constexpr unsigned int shortestBytes(unsigned int value) {
    return value < 0x80 ? 1U : value < 0x800 ? 2U : value < 0x10000 ? 3U : 4U;
}

/// The value of the sequence of 1 to 4 bytes at `text`, whose first byte calls for so many; `INVALID_SIZE`
/// for one that is broken or longer than it needs to be.
UTL_ALWAYS_INLINE inline unsigned int sequenceValue(char const* text, unsigned int bytes) {
    auto const first = static_cast<unsigned char>(*text);
    if (bytes == 1) {
        return first;
    }
    unsigned int value = first & (0x7FU >> bytes);
    for (unsigned int i = 1; i < bytes; ++i) {
        unsigned int const bits = continuationBits(text[i]);
        if (bits >= 64) {
            return INVALID_SIZE;
        }
        value = value << 6U | bits;
    }
    return shortestBytes(value) == bytes ? value : INVALID_SIZE;
}

/// Calls `put` with the 1 to 4 bytes of a value below 0x200000 and returns its result.
template <typename PUT>
UTL_ALWAYS_INLINE inline auto putSequence(unsigned int value, PUT put) {
    unsigned int const last = 0x80U | (value & 0x3FU);
    unsigned int const third = 0x80U | (value >> 6U & 0x3FU);
    if (value >= 0x10000) {
        return put(0xF0U | value >> 18U, 0x80U | (value >> 12U & 0x3FU), third, last);
    }
    if (value >= 0x800) {  // the usual case first
        return put(0xE0U | value >> 12U, third, last);
    }
    return value >= 0x80 ? put(0xC0U | value >> 6U, last) : put(value);
}

/// Bytes of the character at `text`, 0 at the end, `INVALID_SIZE` where it is malformed.
inline unsigned int charBytes(char const* text) {
    if (*text == '\0') {
        return 0;
    }
    unsigned int const bytes = sequenceBytes(*text);
    return bytes != 0 && sequenceValue(text, bytes) != INVALID_SIZE ? bytes : INVALID_SIZE;
}

/// True for a result of `charBytes` that is the length of a character.
constexpr bool isCharacter(unsigned int bytes) {
    return bytes != 0 && bytes != INVALID_SIZE;
}

/// Length of `text`, 0 for null.
inline unsigned int textLength(char const* text) {
    return text != nullptr ? static_cast<unsigned int>(std::strlen(text)) : 0;
}

/// The length of `text`, `limit` at most, without looking further than that; 0 for null.
inline unsigned int boundedLength(char const* text, unsigned int limit) {
    if (text == nullptr || limit == INVALID_SIZE) {
        return textLength(text);
    }
    return static_cast<unsigned int>(strnlen(text, limit));
}

/// Bytes of `key` if `text` begins with it, else `INVALID_SIZE`. Looks no further than the first difference.
inline unsigned int matchedBytes(char const* text, char const* key) {
    unsigned int bytes = 0;
    for (; key[bytes] != '\0'; ++bytes) {
        if (text[bytes] != key[bytes]) {
            return INVALID_SIZE;
        }
    }
    return bytes;
}

}  // namespace utl

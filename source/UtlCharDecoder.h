#pragma once

#include <cstring>

#include "UtlPlatform.h"

namespace utl {

// The one place that knows how UTF-8 is made. Everything here looks at no more bytes than it needs and never
// behind a terminator, since a terminator continues no sequence.

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

/// The bits that a byte which continues a sequence adds to it; 64 and more for any other byte.
constexpr unsigned int continuationBits(char byte) {
    return static_cast<unsigned char>(byte) ^ 0x80U;
}

/// True if the sequence of `bytes` bytes at `text` is complete and in its shortest form.
inline bool isWholeSequence(char const* text, unsigned int bytes) {
    for (unsigned int i = 1; i < bytes; ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) {
            return false;
        }
    }
    auto const first = static_cast<unsigned char>(text[0]);
    auto const second = static_cast<unsigned char>(bytes > 1 ? text[1] : 0);
    bool const overlong = first == 0xC0 || first == 0xC1 || (first == 0xE0 && second < 0xA0) ||
                          (first == 0xF0 && second < 0x90);
    return !overlong;
}

/// Bytes of the character at `text`, 0 at the end, `INVALID_SIZE` where it is malformed.
inline unsigned int charBytes(char const* text) {
    if (*text == '\0') {
        return 0;
    }
    unsigned int const bytes = sequenceBytes(*text);
    return bytes != 0 && isWholeSequence(text, bytes) ? bytes : INVALID_SIZE;
}

/// True for a length from `charBytes` that stands for a character.
constexpr bool isCharacter(unsigned int bytes) {
    return bytes != 0 && bytes != INVALID_SIZE;
}

/// Length of `text`, 0 for null.
inline unsigned int textLength(char const* text) {
    return text != nullptr ? static_cast<unsigned int>(std::strlen(text)) : 0;
}

/// min(`limit`, length of `text`), without looking further than that; 0 for null.
inline unsigned int boundedLength(char const* text, unsigned int limit) {
    if (text == nullptr || limit == INVALID_SIZE) {
        return textLength(text);
    }
    return static_cast<unsigned int>(strnlen(text, limit));
}

}  // namespace utl

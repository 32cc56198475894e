#pragma once

#include "UtlPlatform.h"

namespace utl {

/// Bytes of `key` if `text` begins with it, `INVALID_SIZE` if not. Looks no further than the first
/// difference.
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

#pragma once

#include "UtlString.h"
#include "internal/base/UtlSetIfGiven.h"
#include "internal/text/UtlCharDecoder.h"

namespace utl {

/// `t_strstr` from the first character that starts at or after `start`. `*next`, if given, becomes the offset
/// after the match; `INVALID_SIZE` if there is none or `sub` is empty. A `start` beyond the end returns
/// `INVALID_SIZE` and leaves `*next` untouched. Neither text may be null.
inline unsigned int findStr(char const* text, char const* sub, unsigned int start, unsigned int* next) {
    if (boundedLength(text, start) < start) {
        return INVALID_SIZE;
    }
    setIfGiven(next, INVALID_SIZE);
    // The rest of a character that `start` splits is skipped like any malformed bytes.
    unsigned int const offset = t_strstr(text + start, sub);
    if (offset == INVALID_SIZE) {
        return INVALID_SIZE;
    }
    if (*sub != '\0') {
        setIfGiven(next, start + offset + textLength(sub));
    }
    return start + offset;
}

}  // namespace utl

#pragma once

#include <cstddef>
#include <cstring>

#include "internal/text/UtlCharSetOutput.h"

namespace utl {

constexpr bool isAscii(char byte) {
    return static_cast<unsigned char>(byte) < 0x80;
}

/// Copies the ASCII at `*text`, which advances; `end` is that of the whole text.
template <typename OUTPUT>
UTL_ALWAYS_INLINE inline Step copyAscii(char const** text, char const* end, OUTPUT* output) {
    while (end - *text >= static_cast<std::ptrdiff_t>(ASCII_BLOCK)) {
        AsciiBlock const block(*text);
        if (!output->putAscii(block)) {
            break;
        }
        *text += block.count();
        if (!block.isWhole()) {
            return Step::NEXT;
        }
    }
    for (; *text != end && isAscii(**text); ++*text) {
        if (output->put(static_cast<unsigned char>(**text)) == Step::FAILED) {
            return Step::FAILED;
        }
    }
    return Step::NEXT;
}

/// Calls `step` for the characters of `src` that are not ASCII until it or the text ends.
template <typename OUTPUT, typename STEP>
unsigned int convertEach(OUTPUT output, char const* src, STEP step) {
    char const* const end = src + std::strlen(src);
    Step result = copyAscii(&src, end, &output);
    while (src != end && result == Step::NEXT) {
        do {
            result = step(&src, end, &output);
        } while (result == Step::NEXT && !isAscii(*src));
        if (result == Step::NEXT) {
            result = copyAscii(&src, end, &output);
        }
    }
    return result != Step::FAILED ? output.finish() : INVALID_SIZE;
}

/// Calls `step` for the units of `src`, for ASCII only if there is little room.
template <typename OUTPUT, typename STEP>
unsigned int convertEach(OUTPUT output, unsigned short const* src, STEP step) {
    for (src = output.putAscii(src); *src != 0; src = output.putAscii(src)) {
        do {
            if (step(*src, &output) == Step::FAILED) {
                return INVALID_SIZE;
            }
            ++src;
        } while (*src >= 0x80);
    }
    return output.finish();
}

/// The body of every string function. `step` writes a character to the output, the last of its arguments.
/// Those before are a pointer to the position, which it advances, and the end of the text; or a unit of
/// UTF-16.
template <typename TO, typename FROM, typename STEP>
unsigned int convertText(TO* dst, unsigned int dstSize, FROM const* src, STEP step) {
    if (src == nullptr || (dst == nullptr && dstSize != 0)) {
        return INVALID_SIZE;
    }
    return dstSize != 0 ? convertEach(BufferOutput<TO>(dst, dstSize), src, step)
                        : convertEach(SizeOnly(), src, step);
}

}  // namespace utl

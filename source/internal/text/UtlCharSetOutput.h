#pragma once

#include <cstddef>
#include <cstring>

#include "UtlPlatform.h"
#include "internal/text/UtlAsciiBlock.h"

namespace utl {

// What the conversions between character sets share: where a string function's result goes, and how its
// source is gone through.

enum class Step {
    NEXT,   ///< the next character follows
    END,    ///< the text ends here
    FAILED  ///< there is no result
};

constexpr bool isAscii(char byte) {
    return static_cast<unsigned char>(byte) < 0x80;
}

/// True for what is ASCII and not the end.
constexpr bool isAsciiInside(unsigned short unit) {
    return unit - 1U < 0x7F;
}

/// Counts what would be written.
class SizeOnly {
  public:
    template <typename... UNITS>
    UTL_EACH_CHAR Step put(UNITS...) {
        mUsed += static_cast<unsigned int>(sizeof...(UNITS));
        return Step::NEXT;
    }

    UTL_EACH_CHAR bool putAscii(AsciiBlock const& block) {
        mUsed += block.count();
        return true;
    }

    UTL_EACH_CHAR unsigned short const* putAscii(unsigned short const* text) {
        for (; isAsciiInside(*text); ++text) {
            ++mUsed;
        }
        return text;
    }

    unsigned int finish() { return mUsed + 1; }

  private:
    unsigned int mUsed = 0;
};

/// Writes to a buffer, in which a place for the terminator is always left.
template <typename T>
class BufferOutput {
  public:
    /// `size` is at least 1.
    BufferOutput(T* dst, unsigned int size) : mpNext(dst), mRoom(size - 1), mSize(size) {}

    template <typename... UNITS>
    UTL_EACH_CHAR Step put(UNITS... units) {
        if (mRoom < sizeof...(UNITS)) {
            return Step::FAILED;
        }
        std::size_t place = 0;
        ((mpNext[place++] = static_cast<T>(units)), ...);
        advance(sizeof...(UNITS));
        return Step::NEXT;
    }

    /// Puts what counts of a block; false if there is no room for a whole one.
    UTL_EACH_CHAR bool putAscii(AsciiBlock const& block) {
        if (mRoom < ASCII_BLOCK) {
            return false;
        }
        block.store(mpNext);
        advance(block.count());
        return true;
    }

    /// Puts what there is of ASCII at `text`, or the most of it, and gives where that ends.
    UTL_EACH_CHAR unsigned short const* putAscii(unsigned short const* text) {
        while (mRoom >= ASCII_BLOCK) {
            for (unsigned int i = 0; i < ASCII_BLOCK; ++i) {
                if (!isAsciiInside(text[i])) {
                    advance(i);
                    return text + i;
                }
                mpNext[i] = static_cast<T>(text[i]);
            }
            advance(ASCII_BLOCK);
            text += ASCII_BLOCK;
        }
        return text;
    }

    /// Terminates the text and gives its size.
    unsigned int finish() {
        *mpNext = T();
        return mSize - mRoom;
    }

  private:
    UTL_EACH_CHAR void advance(unsigned int places) {
        mpNext += places;
        mRoom -= places;
    }

    T* mpNext;
    unsigned int mRoom;  // without the place for the terminator
    unsigned int const mSize;
};

/// Writes a single character without a terminator, or counts its bytes if there is no room at all.
class CharOutput {
  public:
    CharOutput(char* dst, unsigned int size) : mpDst(dst), mSize(size) {}

    template <typename... UNITS>
    Step put(UNITS... units) {
        unsigned int const bytes = static_cast<unsigned int>(sizeof...(UNITS));
        if (mSize == 0) {
            mResult = bytes;
        } else if (mpDst != nullptr && mSize >= bytes) {
            ((mpDst[mResult++] = static_cast<char>(units)), ...);
        } else {
            mResult = INVALID_SIZE;
        }
        return Step::NEXT;
    }

    /// The bytes of the character, or the failure.
    unsigned int result() const { return mResult; }

  private:
    char* const mpDst;
    unsigned int const mSize;
    unsigned int mResult = 0;
};

/// Puts the bytes of a number, high byte first, without the leading zero bytes; 0 is one byte.
template <typename OUTPUT>
UTL_EACH_CHAR inline Step putNumber(OUTPUT* output, unsigned int number) {
    if (number >= 0x10000U) {
        return output->put(number >> 16U, number >> 8U, number);
    }
    return number >= 0x100U ? output->put(number >> 8U, number) : output->put(number);
}

/// Passes what there is of ASCII at `*text`, which moves on; `end` is that of the whole text.
template <typename OUTPUT>
UTL_EACH_CHAR inline Step passAscii(char const** text, char const* end, OUTPUT* output) {
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

/// Takes `step` over the characters of `src` that are not ASCII until it or the text ends.
template <typename OUTPUT, typename STEP>
unsigned int convertEach(OUTPUT output, char const* src, STEP step) {
    char const* const end = src + std::strlen(src);
    Step result = passAscii(&src, end, &output);
    while (src != end && result == Step::NEXT) {
        do {
            result = step(&src, end, &output);
        } while (result == Step::NEXT && !isAscii(*src));
        if (result == Step::NEXT) {
            result = passAscii(&src, end, &output);
        }
    }
    return result != Step::FAILED ? output.finish() : INVALID_SIZE;
}

/// Takes `step` over the units of `src`, ASCII only where there is little room.
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

/// The frame of every string function. `step` puts a character to the output, which is the last of its
/// arguments. Those in front are a pointer to the position, which it moves on, and the end of the text; or a
/// unit of UTF-16.
template <typename TO, typename FROM, typename STEP>
unsigned int convertText(TO* dst, unsigned int dstSize, FROM const* src, STEP step) {
    if (src == nullptr || (dst == nullptr && dstSize != 0)) {
        return INVALID_SIZE;
    }
    return dstSize != 0 ? convertEach(BufferOutput<TO>(dst, dstSize), src, step)
                        : convertEach(SizeOnly(), src, step);
}

/// Tells the caller how much of the source the character covers, whatever becomes of it.
inline void tellCovered(unsigned int bytes, unsigned int* consumed) {
    if (consumed != nullptr) {
        *consumed = bytes;
    }
}

}  // namespace utl

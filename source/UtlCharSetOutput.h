#pragma once

#include "UtlPlatform.h"

namespace utl {

// What the conversions between character sets share: where a string function's result goes, and how it is
// gone through.

enum class Step {
    NEXT,   ///< the next character follows
    END,    ///< the text ends here
    FAILED  ///< there is no result
};

/// Counts what would be written.
template <typename T>
class SizeOnly {
  public:
    template <typename... UNITS>
    Step put(UNITS...) {
        mUsed += static_cast<unsigned int>(sizeof...(UNITS));
        return Step::NEXT;
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
    BufferOutput(T* dst, unsigned int size) : mpStart(dst), mpNext(dst), mpLast(dst + (size - 1)) {}

    template <typename... UNITS>
    Step put(UNITS... units) {
        if (static_cast<unsigned int>(mpLast - mpNext) < sizeof...(UNITS)) {
            return Step::FAILED;
        }
        ((*mpNext++ = static_cast<T>(units)), ...);
        return Step::NEXT;
    }

    /// Terminates the text and gives its size.
    unsigned int finish() {
        *mpNext = T();
        return static_cast<unsigned int>(mpNext - mpStart) + 1;
    }

  private:
    T* const mpStart;
    T* mpNext;
    T* const mpLast;
};

/// Puts the bytes of a number, high byte first, without the leading zero bytes; 0 is one byte.
template <typename OUTPUT>
Step putNumber(OUTPUT* output, unsigned int number) {
    if (number < 0x100U) {
        return output->put(number);
    }
    if (number < 0x10000U) {
        return output->put(number >> 8U, number);
    }
    return output->put(number >> 16U, number >> 8U, number);
}

/// Takes `step` over the characters of `src` until it or the text ends.
template <typename OUTPUT, typename FROM, typename STEP>
unsigned int convertEach(OUTPUT output, FROM const* src, STEP step) {
    while (*src != 0) {
        Step const result = step(&src, &output);
        if (result == Step::FAILED) {
            return INVALID_SIZE;
        }
        if (result == Step::END) {
            break;
        }
    }
    return output.finish();
}

/// The frame of every string function. `step` takes a pointer to the position, which it moves on, and one to
/// the output.
template <typename TO, typename FROM, typename STEP>
unsigned int convertText(TO* dst, unsigned int dstSize, FROM const* src, STEP step) {
    if (src == nullptr || (dst == nullptr && dstSize != 0)) {
        return INVALID_SIZE;
    }
    return dstSize != 0 ? convertEach(BufferOutput<TO>(dst, dstSize), src, step)
                        : convertEach(SizeOnly<TO>(), src, step);
}

/// Bytes that `putNumber` puts.
constexpr unsigned int numberBytes(unsigned int number) {
    return number < 0x100U ? 1U : number < 0x10000U ? 2U : 3U;
}

/// Writes a character as `putNumber` does, without a terminator: the result of a character function.
inline unsigned int storeNumber(char* dst, unsigned int dstSize, unsigned int number) {
    unsigned int const bytes = numberBytes(number);
    if (dstSize == 0) {
        return bytes;
    }
    if (dst == nullptr || dstSize < bytes) {
        return INVALID_SIZE;
    }
    for (unsigned int i = bytes; i > 0; --i, number >>= 8U) {
        dst[i - 1] = static_cast<char>(number);
    }
    return bytes;
}

/// Tells the caller how much of the source a result covers; a failure covers nothing.
inline unsigned int consume(unsigned int result, unsigned int bytes, unsigned int* consumed) {
    if (result != INVALID_SIZE && consumed != nullptr) {
        *consumed = bytes;
    }
    return result;
}

}  // namespace utl

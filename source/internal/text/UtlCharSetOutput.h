#pragma once

#include <cstddef>

#include "UtlPlatform.h"
#include "internal/text/UtlAsciiBlock.h"

namespace utl {

// Where the conversions between character sets put what they make.

enum class Step {
    NEXT,   ///< the next character follows
    END,    ///< the text ends here
    FAILED  ///< there is no result
};

/// True for what is ASCII and not the end.
constexpr bool isAsciiInside(unsigned short unit) {
    return unit - 1U < 0x7F;
}

/// Counts what would be written.
class SizeOnly {
  public:
    template <typename... UNITS>
    UTL_ALWAYS_INLINE Step put(UNITS...) {
        mUsed += static_cast<unsigned int>(sizeof...(UNITS));
        return Step::NEXT;
    }

    UTL_ALWAYS_INLINE bool putAscii(AsciiBlock const& block) {
        mUsed += block.count();
        return true;
    }

    UTL_ALWAYS_INLINE unsigned short const* putAscii(unsigned short const* text) {
        for (; isAsciiInside(*text); ++text) {
            ++mUsed;
        }
        return text;
    }

    unsigned int finish() { return mUsed + 1; }

  private:
    unsigned int mUsed = 0;
};

/// Writes to a buffer and always leaves a place for the terminator.
template <typename T>
class BufferOutput {
  public:
    /// `size` is at least 1.
    BufferOutput(T* dst, unsigned int size) : mpNext(dst), mRoom(size - 1), mSize(size) {}

    template <typename... UNITS>
    UTL_ALWAYS_INLINE Step put(UNITS... units) {
        if (mRoom < sizeof...(UNITS)) {
            return Step::FAILED;
        }
        std::size_t place = 0;
        ((mpNext[place++] = static_cast<T>(units)), ...);
        advance(sizeof...(UNITS));
        return Step::NEXT;
    }

    /// Writes what counts of a block; false if there is no room for a whole one.
    UTL_ALWAYS_INLINE bool putAscii(AsciiBlock const& block) {
        if (mRoom < ASCII_BLOCK) {
            return false;
        }
        block.store(mpNext);
        advance(block.count());
        return true;
    }

    /// Writes the ASCII at `text`, or most of it, and returns where that ends.
    UTL_ALWAYS_INLINE unsigned short const* putAscii(unsigned short const* text) {
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

    /// Terminates the text and returns its size.
    unsigned int finish() {
        *mpNext = T();
        return mSize - mRoom;
    }

  private:
    UTL_ALWAYS_INLINE void advance(unsigned int places) {
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

}  // namespace utl

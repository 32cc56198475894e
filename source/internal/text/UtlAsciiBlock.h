#pragma once

#include <cstdint>
#include <cstring>

#include "internal/text/UtlCharDecoder.h"

namespace utl {

/// ASCII, which is the same in Shift-JIS and Unicode, is copied in blocks of so many characters.
constexpr unsigned int ASCII_BLOCK = 8;

/// Eight bytes of text, of which those before the first that is not ASCII count. The end of a run of ASCII
/// cannot be predicted, so only the test for a whole block branches on it.
class AsciiBlock {
  public:
    UTL_ALWAYS_INLINE explicit AsciiBlock(char const* text) {
        std::memcpy(&mBytes, text, sizeof(mBytes));
        std::uint64_t const others = mBytes & 0x8080808080808080U;
        // The bits below the byte with the lowest of them, or all.
        mMask = ((others & (0 - others)) >> 7U) - 1;
        mCount = others == 0 ? ASCII_BLOCK : static_cast<unsigned int>(__builtin_ctzll(others)) / 8;
    }

    /// How many characters count.
    unsigned int count() const { return mCount; }

    bool isWhole() const { return mCount == ASCII_BLOCK; }

    /// Stores what counts. `dst` has room for a whole block; the rest of it stays as it is.
    UTL_ALWAYS_INLINE void store(char* dst) const { merge(dst, mBytes, mMask); }

    /// The same as units of UTF-16.
    UTL_ALWAYS_INLINE void store(unsigned short* dst) const {
        if (isWhole()) {
            merge(dst, spread(mBytes), ALL);
            merge(dst + 4, spread(mBytes >> 32U), ALL);
        } else {
            merge(dst, spread(mBytes), spread(mMask) * 0x101U);
            merge(dst + 4, spread(mBytes >> 32U), spread(mMask >> 32U) * 0x101U);
        }
    }

  private:
    static constexpr std::uint64_t ALL = ~std::uint64_t{0};

    /// The four low bytes as four units.
    static constexpr std::uint64_t spread(std::uint64_t bytes) {
        bytes &= 0xFFFFFFFFU;
        bytes = (bytes | bytes << 16U) & 0x0000FFFF0000FFFFU;
        return (bytes | bytes << 8U) & 0x00FF00FF00FF00FFU;
    }

    UTL_ALWAYS_INLINE static void merge(void* dst, std::uint64_t value, std::uint64_t mask) {
        std::uint64_t old = 0;
        std::memcpy(&old, dst, sizeof(old));
        old = (old & ~mask) | (value & mask);
        std::memcpy(dst, &old, sizeof(old));
    }

    std::uint64_t mBytes;
    std::uint64_t mMask;
    unsigned int mCount;
};

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the first byte of a block must be its lowest");

}  // namespace utl

#pragma once

#include <cstdint>
#include <cstring>

#include "internal/text/UtlCharDecoder.h"

namespace utl {

/// The usual character of Japanese text, a sequence of three bytes, in one step. It reads four bytes, the
/// terminator included, and is not whole if there are fewer.
class Utf8Triple {
  public:
    /// `end` is that of the whole text.
    UTL_ALWAYS_INLINE Utf8Triple(char const* text, char const* end) {
        if (end - text >= 3) {
            std::memcpy(&mBytes, text, sizeof(mBytes));
        }
    }

    /// True for a first byte that needs two more, followed by two that continue a sequence. It may be longer
    /// than its value needs.
    UTL_ALWAYS_INLINE bool isWhole() const { return (mBytes & 0x00C0C0F0U) == 0x008080E0U; }

    /// The first byte, and what the other two add to it.
    ///@{
    unsigned int first() const { return mBytes & 0xFFU; }
    unsigned int second() const { return mBytes >> 8U & 0x3FU; }
    unsigned int third() const { return mBytes >> 16U & 0x3FU; }
    ///@}

    unsigned int value() const { return (first() & 0xFU) << 12U | second() << 6U | third(); }

  private:
    std::uint32_t mBytes = 0;
};

}  // namespace utl

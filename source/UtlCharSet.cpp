#include "UtlCharSet.h"

#include <cstring>
#include <cwchar>

#include "internal/base/UtlSetIfGiven.h"
#include "internal/text/UtlCharDecoder.h"
#include "internal/text/UtlCharSetLoop.h"
#include "internal/text/UtlSjisTable.h"
#include "internal/text/UtlUtf8Triple.h"

namespace utl {

namespace {

/// Which of a unit's two bytes is the high one.
constexpr unsigned int highByteIndex(int order) {
    return order == BYTE_ORDER_HIGH_FIRST ? 0 : 1;
}

constexpr unsigned short BYTE_ORDER_MARK = 0xFEFF;
constexpr unsigned short SWAPPED_BYTE_ORDER_MARK = 0xFFFE;

// An upper bound for one character in any form of the text.
constexpr unsigned int MAX_CHAR_BYTES = 6;

/// The first comparison decides for nearly all text.
constexpr bool isMark(unsigned short unit) {
    return unit >= BYTE_ORDER_MARK && (unit == BYTE_ORDER_MARK || unit == SWAPPED_BYTE_ORDER_MARK);
}

/// Writes the bytes of a unit that is no mark.
template <typename OUTPUT>
UTL_ALWAYS_INLINE inline Step putUtf8(OUTPUT* output, unsigned short unit) {
    return putSequence(unit, [output](auto... bytes) UTL_ALWAYS_INLINE { return output->put(bytes...); });
}

/// Writes the unit of the sequence of `BYTES` bytes at `*text`, which advances. A broken one ends the text.
template <unsigned int BYTES, typename OUTPUT>
UTL_ALWAYS_INLINE inline Step putUnit(char const** text, OUTPUT* output) {
    unsigned int const value = sequenceValue(*text, BYTES);
    if (value == INVALID_SIZE) {
        return Step::END;
    }
    *text += BYTES;
    return output->put(BYTES < 4 ? value : UNMAPPED_UTF16);
}

/// Copies `src` with its terminator.
unsigned int copyBytes(char* dst, unsigned int dstSize, char const* src) {
    if (src == nullptr) {
        return INVALID_SIZE;
    }
    unsigned int const size = textLength(src) + 1;
    if (dstSize == 0) {
        return size;
    }
    if (dst == nullptr || dstSize < size) {
        return INVALID_SIZE;
    }
    std::memcpy(dst, src, size);
    return size;
}

/// Terminates what the platform's converter has `written`, a count below 1 being its failure.
template <typename T>
unsigned int terminate(T* dst, unsigned int dstSize, int written) {
    if (written < 1 || static_cast<unsigned int>(written) >= dstSize) {
        return INVALID_SIZE;
    }
    dst[written] = T();
    return static_cast<unsigned int>(written) + 1;
}

/// The result for text that is empty or has no destination.
template <typename T>
unsigned int terminateEmpty(T* dst) {
    if (dst == nullptr) {
        return INVALID_SIZE;
    }
    *dst = T();
    return 1;
}

/// Units before a zero unit, `limit` at most.
unsigned int boundedUnits(unsigned short const* src, unsigned int limit) {
    unsigned int count = 0;
    while (count < limit && src[count] != 0) {
        ++count;
    }
    return count;
}

}  // namespace

unsigned int convertCharFromUtf16ToUtf8(char* dst, unsigned int dstSize, unsigned short code,
                                        int* bomKind) noexcept {
    if (!isMark(code)) {
        CharOutput output(dst, dstSize);
        putUtf8(&output, code);
        return output.result();
    }
    setIfGiven(bomKind, code == BYTE_ORDER_MARK ? BOM_KIND_SAME_ORDER : BOM_KIND_OTHER_ORDER);
    return 0;
}

unsigned int convertStrFromUtf16ToUtf8(char* dst, unsigned int dstSize, unsigned short const* src) noexcept {
    return convertText(dst, dstSize, src, [](unsigned short unit, auto* output) UTL_ALWAYS_INLINE {
        return isMark(unit) ? Step::FAILED : putUtf8(output, unit);
    });
}

unsigned int convertCharFromUtf8ToUtf16(unsigned short* dst, char const* src,
                                        unsigned int* consumed) noexcept {
    unsigned int const bytes = src != nullptr ? charBytes(src) : 0;
    if (dst == nullptr || !isCharacter(bytes)) {
        return INVALID_SIZE;
    }
    setIfGiven(consumed, bytes);
    if (bytes > 3) {
        return INVALID_SIZE;
    }
    *dst = static_cast<unsigned short>(sequenceValue(src, bytes));
    return 1;
}

unsigned int convertStrFromUtf8ToUtf16(unsigned short* dst, unsigned int dstSize, char const* src) noexcept {
    return convertText(dst, dstSize, src,
                       [](char const** text, char const* end, auto* output) UTL_ALWAYS_INLINE {
                           Utf8Triple const triple(*text, end);
                           if (triple.isWhole() && triple.value() >= 0x800) {
                               *text += 3;
                               return output->put(triple.value());
                           }
                           switch (sequenceBytes(**text)) {
                               case 3:
                                   return putUnit<3>(text, output);
                               case 2:
                                   return putUnit<2>(text, output);
                               case 4:
                                   return putUnit<4>(text, output);
                               default:
                                   return Step::FAILED;
                           }
                       });
}

unsigned int convertStrFromTcharToWchar(wchar_t* dst, unsigned int dstSize, char const* src) {
    if (src == nullptr) {
        return INVALID_SIZE;
    }
    unsigned int const bytes = textLength(src);
    if (dstSize == 0) {
        return bytes + 1;
    }
    if (dst == nullptr || bytes == 0) {
        return terminateEmpty(dst);
    }
    return terminate(dst, dstSize, jk_mbtowc(dst, dstSize, src, bytes, EN_KCP_UTF8));
}

unsigned int convertStrFromWcharToTchar(char* dst, unsigned int dstSize, wchar_t const* src) {
    if (src == nullptr) {
        return INVALID_SIZE;
    }
    auto const count = static_cast<unsigned int>(std::wcslen(src));
    if (dstSize == 0) {
        return count * MAX_CHAR_BYTES + 1;
    }
    if (dst == nullptr || count == 0) {
        return terminateEmpty(dst);
    }
    return terminate(dst, dstSize, jk_wctomb(dst, dstSize, src, static_cast<int>(count), EN_KCP_UTF8));
}

unsigned int convertStrFromTcharToChar(char* dst, unsigned int dstSize, char const* src) noexcept {
    return copyBytes(dst, dstSize, src);
}

unsigned int convertStrFromCharToTchar(char* dst, unsigned int dstSize, char const* src) noexcept {
    return copyBytes(dst, dstSize, src);
}

unsigned int convertStrFromDcharToUint8(unsigned char* dst, unsigned int dstSize, unsigned short const* src,
                                        unsigned int length, int order) noexcept {
    if (src == nullptr) {
        return INVALID_SIZE;
    }
    unsigned int const count = boundedUnits(src, length);
    if (dstSize == 0) {
        return 2 * count;
    }
    if (dst == nullptr || 2 * count > dstSize) {
        return INVALID_SIZE;
    }
    unsigned int const high = highByteIndex(order);
    for (unsigned int i = 0; i < count; ++i) {
        dst[2 * i + high] = static_cast<unsigned char>(src[i] >> 8U);
        dst[2 * i + 1 - high] = static_cast<unsigned char>(src[i] & 0xFFU);
    }
    return 2 * count;
}

unsigned int convertBinFromUint8ToDchar(unsigned short* dst, unsigned int dstCount, unsigned char const* src,
                                        unsigned int size, int order) noexcept {
    if (src == nullptr || size % 2 != 0) {
        return INVALID_SIZE;
    }
    unsigned int const count = size / 2;
    if (dstCount == 0) {
        return count;
    }
    if (dst == nullptr || count > dstCount) {
        return INVALID_SIZE;
    }
    unsigned int const high = highByteIndex(order);
    for (unsigned int i = 0; i < count; ++i) {
        dst[i] = static_cast<unsigned short>(src[2 * i + high] << 8U | src[2 * i + 1 - high]);
    }
    return count;
}

}  // namespace utl

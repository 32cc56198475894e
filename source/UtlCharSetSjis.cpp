#include "UtlCharSet.h"
#include "internal/base/UtlSetIfGiven.h"
#include "internal/text/UtlCharSetLoop.h"
#include "internal/text/UtlSjisTable.h"

namespace utl {

namespace {

/// Writes the bytes of a number, high byte first, without leading zero bytes; 0 is one byte.
template <typename OUTPUT>
UTL_ALWAYS_INLINE inline Step putNumber(OUTPUT* output, unsigned int number) {
    if (number >= 0x10000U) {
        return output->put(number >> 16U, number >> 8U, number);
    }
    return number >= 0x100U ? output->put(number >> 8U, number) : output->put(number);
}

/// Stores a byte that stands for itself. Only here null counts as room for the character.
unsigned int storeLiteral(char* dst, unsigned int dstSize, char literal) {
    if (dst != nullptr && dstSize != 0) {
        *dst = literal;
    }
    return 1;
}

/// Stores a character that is no literal.
unsigned int storeNumber(char* dst, unsigned int dstSize, unsigned int number) {
    CharOutput output(dst, dstSize);
    putNumber(&output, number);
    return output.result();
}

}  // namespace

unsigned int convertCharFromUtf8ToSjis(char* dst, unsigned int dstSize, char const* src,
                                       unsigned int* consumed) noexcept {
    if (src == nullptr) {
        return INVALID_SIZE;
    }
    Utf8Char const character = utf8CharAt(src);
    setIfGiven(consumed, character.mBytes);
    return character.mIsLiteral ? storeLiteral(dst, dstSize, *src)
                                : storeNumber(dst, dstSize, character.mSjis);
}

unsigned int convertStrFromUtf8ToSjis(char* dst, unsigned int dstSize, char const* src) noexcept {
    return convertText(dst, dstSize, src,
                       [](char const** text, char const* end, auto* output) UTL_ALWAYS_INLINE {
                           Utf8Char const character = utf8CharAt(*text, end);
                           *text += character.mBytes;
                           return putNumber(output, character.mSjis);
                       });
}

unsigned int convertCharFromSjisToUtf8(char* dst, unsigned int dstSize, char const* src,
                                       unsigned int* consumed) noexcept {
    if (src == nullptr) {
        return INVALID_SIZE;
    }
    SjisChar const character = sjisCharAt(src);
    setIfGiven(consumed, character.mBytes);
    return character.mKind == SjisKind::LITERAL ? storeLiteral(dst, dstSize, *src)
                                                : storeNumber(dst, dstSize, character.mpRecord->mUtf8);
}

unsigned int convertStrFromSjisToUtf8(char* dst, unsigned int dstSize, char const* src) noexcept {
    return convertText(dst, dstSize, src, [](char const** text, char const*, auto* output) UTL_ALWAYS_INLINE {
        SjisChar const character = sjisCharAt(*text);
        auto const literal = static_cast<unsigned char>(**text);
        *text += character.mBytes;
        return character.mKind == SjisKind::LITERAL ? output->put(literal)
                                                    : putNumber(output, utf8InText(character));
    });
}

unsigned int convertCharFromSjisToUtf16(unsigned short* dst, char const* src,
                                        unsigned int* consumed) noexcept {
    if (dst == nullptr || src == nullptr) {
        return INVALID_SIZE;
    }
    SjisChar const character = sjisCharAt(src);
    bool const isLiteral = character.mKind == SjisKind::LITERAL;
    *dst = isLiteral ? static_cast<unsigned char>(*src) : character.mpRecord->mUtf16;
    setIfGiven(consumed, character.mBytes);
    return isLiteral ? 2 : 1;
}

unsigned int convertStrFromSjisToUtf16(unsigned short* dst, unsigned int dstSize, char const* src) noexcept {
    return convertText(dst, dstSize, src, [](char const** text, char const*, auto* output) UTL_ALWAYS_INLINE {
        SjisChar const character = sjisCharAt(*text);
        auto const literal = static_cast<unsigned char>(**text);
        *text += character.mBytes;
        return output->put(character.mKind == SjisKind::LITERAL ? literal : utf16InText(character));
    });
}

}  // namespace utl

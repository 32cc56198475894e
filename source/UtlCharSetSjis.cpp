#include "UtlCharSet.h"
#include "internal/text/UtlCharSetOutput.h"
#include "internal/text/UtlSjisTable.h"

namespace utl {

namespace {

/// A byte that stands for itself: the one case in which null takes room for the character.
unsigned int storeLiteral(char* dst, unsigned int dstSize, char literal) {
    if (dst != nullptr && dstSize != 0) {
        *dst = literal;
    }
    return 1;
}

/// A character that is no literal.
unsigned int storeNumber(char* dst, unsigned int dstSize, unsigned int number) {
    CharOutput output(dst, dstSize);
    putNumber(&output, number);
    return output.result();
}

}  // namespace

unsigned int convertCharFromUtf8ToSjis(char* dst, unsigned int dstSize, char const* src,
                                       unsigned int* consumed) {
    if (src == nullptr) {
        return INVALID_SIZE;
    }
    Utf8Char const character = utf8CharAt(src);
    tellCovered(character.mBytes, consumed);
    return character.mIsLiteral ? storeLiteral(dst, dstSize, *src)
                                : storeNumber(dst, dstSize, character.mSjis);
}

unsigned int convertStrFromUtf8ToSjis(char* dst, unsigned int dstSize, char const* src) {
    return convertText(dst, dstSize, src,
                       [](char const** text, char const* end, auto* output) UTL_EACH_CHAR_LAMBDA {
                           Utf8Char const character = utf8CharAt(*text, end);
                           *text += character.mBytes;
                           return putNumber(output, character.mSjis);
                       });
}

unsigned int convertCharFromSjisToUtf8(char* dst, unsigned int dstSize, char const* src,
                                       unsigned int* consumed) {
    if (src == nullptr) {
        return INVALID_SIZE;
    }
    SjisChar const character = sjisCharAt(src);
    tellCovered(character.mBytes, consumed);
    return character.mKind == SjisKind::LITERAL ? storeLiteral(dst, dstSize, *src)
                                                : storeNumber(dst, dstSize, character.mpRecord->mUtf8);
}

unsigned int convertStrFromSjisToUtf8(char* dst, unsigned int dstSize, char const* src) {
    return convertText(
        dst, dstSize, src, [](char const** text, char const*, auto* output) UTL_EACH_CHAR_LAMBDA {
            SjisChar const character = sjisCharAt(*text);
            auto const literal = static_cast<unsigned char>(**text);
            *text += character.mBytes;
            return character.mKind == SjisKind::LITERAL ? output->put(literal)
                                                        : putNumber(output, utf8InText(character));
        });
}

unsigned int convertCharFromSjisToUtf16(unsigned short* dst, char const* src, unsigned int* consumed) {
    if (dst == nullptr || src == nullptr) {
        return INVALID_SIZE;
    }
    SjisChar const character = sjisCharAt(src);
    bool const isLiteral = character.mKind == SjisKind::LITERAL;
    *dst = isLiteral ? static_cast<unsigned char>(*src) : character.mpRecord->mUtf16;
    tellCovered(character.mBytes, consumed);
    return isLiteral ? 2 : 1;
}

unsigned int convertStrFromSjisToUtf16(unsigned short* dst, unsigned int dstSize, char const* src) {
    return convertText(
        dst, dstSize, src, [](char const** text, char const*, auto* output) UTL_EACH_CHAR_LAMBDA {
            SjisChar const character = sjisCharAt(*text);
            auto const literal = static_cast<unsigned char>(**text);
            *text += character.mBytes;
            return output->put(character.mKind == SjisKind::LITERAL ? literal : utf16InText(character));
        });
}

}  // namespace utl

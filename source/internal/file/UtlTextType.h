#pragma once

#include "UtlCharSet.h"
#include "UtlFile.h"

namespace utl {

constexpr unsigned int TEXT_UNIT_BYTES_MAX = 2;

/// Bytes of a code unit of a text type; 0 for any other number.
constexpr unsigned int textUnitBytes(int textType) {
    switch (textType) {
        case File::TEXT_SJIS:
        case File::TEXT_UTF8:
            return 1;
        case File::TEXT_UTF16_BIG:
        case File::TEXT_UTF16_LITTLE:
            return TEXT_UNIT_BYTES_MAX;
        default:
            return 0;
    }
}

/// The order of the bytes in UTF-16 as the conversions name it.
constexpr int textByteOrder(int textType) {
    return textType == File::TEXT_UTF16_BIG ? BYTE_ORDER_HIGH_FIRST : BYTE_ORDER_LOW_FIRST;
}

}  // namespace utl

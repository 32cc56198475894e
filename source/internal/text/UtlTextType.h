#pragma once

#include "UtlCharSet.h"

namespace utl {

constexpr unsigned int TEXT_UNIT_BYTES_MAX = 2;

/// The most bytes of a file that one operation on text reads or writes.
constexpr unsigned int TEXT_BYTES_MAX = 5119;

/// Bytes of one unit of the text of a type; 0 for what is no text type.
constexpr unsigned int textUnitBytes(int textType) {
    switch (textType) {
        case TEXT_SJIS:
        case TEXT_UTF8:
            return 1;
        case TEXT_UTF16_BIG:
        case TEXT_UTF16_LITTLE:
            return TEXT_UNIT_BYTES_MAX;
        default:
            return 0;
    }
}

/// The order of the bytes in UTF-16, as the argument of the conversions.
constexpr int textByteOrder(int textType) {
    return textType == TEXT_UTF16_BIG ? BYTE_ORDER_HIGH_FIRST : BYTE_ORDER_LOW_FIRST;
}

}  // namespace utl

#pragma once

namespace utl {

/// How a `File` keeps its text.
enum TextType { TEXT_SJIS = 0, TEXT_UTF8 = 1, TEXT_UTF16_BIG = 2, TEXT_UTF16_LITTLE = 3 };

constexpr unsigned int TEXT_UNIT_BYTES_MAX = 2;

/// Bytes of a file that one operation on text reads or writes at most.
constexpr unsigned int TEXT_BYTES_MAX = 5119;

/// Bytes of which the text of a type is made one by one; 0 for what is no text type.
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

/// The order of the bytes in UTF-16 as the conversions name it.
constexpr int textByteOrder(int textType) {
    return textType == TEXT_UTF16_BIG ? 1 : 0;
}

}  // namespace utl

#include "internal/file/UtlLineSearch.h"

#include <algorithm>
#include <cstring>

#include "UtlString.h"
#include "internal/file/UtlTextType.h"
#include "internal/text/UtlSjisTable.h"

namespace utl {

namespace {

constexpr unsigned int UTF8_CHAR_MAX = 4;
constexpr unsigned int BYTE_ORDER_MARK = 0xFEFF;
constexpr unsigned int SWAPPED_BYTE_ORDER_MARK = 0xFFFE;

enum class Kind {
    LINE_FEED,
    CARRIAGE_RETURN,
    TEXT,
    NOTHING  ///< bytes that are no character
};

struct Character {
    unsigned int bytes;  ///< 0 if more are needed to tell
    Kind kind;
};

constexpr Character INCOMPLETE = {0, Kind::NOTHING};

constexpr Kind kindOf(unsigned int code) {
    return code == '\n' ? Kind::LINE_FEED : code == '\r' ? Kind::CARRIAGE_RETURN : Kind::TEXT;
}

constexpr unsigned int byteOf(char byte) {
    return static_cast<unsigned char>(byte);
}

// A lead byte before a line feed or a zero byte is a character of its own, as it is at the end of the file.
Character sjisAt(char const* bytes, unsigned int count, bool isLast) {
    if (sjisKind(static_cast<unsigned char>(*bytes)) != SjisKind::DOUBLE) {
        return {1, kindOf(byteOf(*bytes))};
    }
    if (count == 1) {
        return isLast ? Character{1, Kind::TEXT} : INCOMPLETE;
    }
    bool const isAlone = bytes[1] == '\0' || bytes[1] == '\n';
    return {isAlone ? 1U : 2U, Kind::TEXT};
}

Character utf8At(char const* bytes, unsigned int count, bool isLast) {
    if (count < sequenceBytes(*bytes) && !isLast) {
        return INCOMPLETE;
    }
    char terminated[UTF8_CHAR_MAX + 1] = {};
    std::memcpy(terminated, bytes, std::min(count, UTF8_CHAR_MAX));
    bool isMark = false;
    unsigned int const size = strCharBytesBase<char>(terminated, &isMark);
    if (!isCharacter(size)) {
        return {1, Kind::NOTHING};
    }
    return {size, isMark ? Kind::NOTHING : kindOf(byteOf(*bytes))};
}

Character utf16At(int textType, char const* bytes, unsigned int count) {
    if (count == 1) {
        return INCOMPLETE;
    }
    unsigned int const high = textType == File::TEXT_UTF16_BIG ? 0 : 1;
    unsigned int const unit = byteOf(bytes[high]) << 8U | byteOf(bytes[1 - high]);
    bool const isMark = unit == BYTE_ORDER_MARK || unit == SWAPPED_BYTE_ORDER_MARK;
    return {2, isMark ? Kind::NOTHING : kindOf(unit)};
}

Character characterAt(int textType, char const* bytes, unsigned int count, bool isLast) {
    switch (textType) {
        case File::TEXT_SJIS:
            return sjisAt(bytes, count, isLast);
        case File::TEXT_UTF8:
            return utf8At(bytes, count, isLast);
        default:
            return utf16At(textType, bytes, count);
    }
}

/// The place of the first such byte, `count` if there is none.
unsigned int offsetOf(char byte, char const* bytes, unsigned int count) {
    auto const* const place = static_cast<char const*>(std::memchr(bytes, byte, count));
    return place != nullptr ? static_cast<unsigned int>(place - bytes) : count;
}

/// The bytes at the beginning that need not be examined by character, while no carriage return is pending.
unsigned int plainBytes(int textType, char const* bytes, unsigned int count) {
    if (textUnitBytes(textType) != 1) {
        return 0;
    }
    unsigned int const lineFeed = offsetOf('\n', bytes, count);
    unsigned int const carriageReturn = offsetOf('\r', bytes, lineFeed);
    if (textType == File::TEXT_UTF8) {
        return carriageReturn;
    }
    // In Shift-JIS a byte that looks like a carriage return may be the second one of a character, and the
    // last byte may be the first one.
    return carriageReturn == lineFeed && lineFeed != count ? lineFeed : 0;
}

}  // namespace

unsigned int LineSearch::examine(char const* bytes, unsigned int count, bool isLast) {
    unsigned int done = mPending == 0 ? plainBytes(mTextType, bytes, count) : 0;
    mTotal += done;
    while (done < count && !mIsFound) {
        Character const character = characterAt(mTextType, bytes + done, count - done, isLast);
        if (character.bytes == 0) {
            break;
        }
        mIsFound = character.kind == Kind::LINE_FEED;
        if (mIsFound || character.kind == Kind::CARRIAGE_RETURN) {
            mPending += character.bytes;
        } else if (character.kind == Kind::TEXT) {
            mPending = 0;
        }
        mTotal += character.bytes;
        done += character.bytes;
    }
    return done;
}

}  // namespace utl

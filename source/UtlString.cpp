#include "UtlString.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "UtlWorkingBuffer.h"
#include "internal/base/UtlSetIfGiven.h"
#include "internal/text/UtlCharDecoder.h"
#include "internal/text/UtlStringSearch.h"

namespace utl {

namespace {

// More than a character with its terminator.
constexpr unsigned int ONE_CHAR_SIZE = 7;

constexpr char WHITE_SPACE[] = " \t\v\r\n\f\xE3\x80\x80";

bool isByteOrderMark(char const* text, unsigned int bytes) {
    return bytes == 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0;
}

/// How many of `count` bytes fit into `room` bytes with a terminator, by `truncate`. `room` is not 0.
unsigned int fittingBytes(char const* src, unsigned int count, unsigned int room, int truncate) {
    if (truncate == TRUNCATE_ON) {
        return getNearCharIndex(src, std::min(count, room - 1), CHAR_START);
    }
    return count < room ? count : INVALID_SIZE;
}

/// Copies `count` bytes and a terminator, less the bytes of a character that `count` would split.
/// `INVALID_SIZE`, with `dst` untouched, if stepping back finds nothing that can start a character.
unsigned int copyToCharStart(char* dst, char const* src, unsigned int count) {
    while (!isCharStart(src[count])) {
        if (count == 0) {
            return INVALID_SIZE;
        }
        --count;
    }
    std::memmove(dst, src, count);
    dst[count] = '\0';
    return count + 1;
}

/// Writes at `*used`, which becomes the place of the new terminator; false if `copyGeneral` fails.
bool append(char* dst, unsigned int dstSize, unsigned int* used, char const* src, unsigned int length,
            int truncate) {
    unsigned int const result = copyGeneral(dst, dstSize, *used, src, 0, length, truncate);
    if (result == INVALID_SIZE) {
        return false;
    }
    *used = result - 1;
    return true;
}

/// Copies all of `text` into the slot; false for null and for text that is too long.
bool borrow(WorkingBuffer<char> const& slot, char const* text) {
    return copyStrBase(slot.get(), slot.size(), text, INVALID_SIZE, TRUNCATE_OFF) != INVALID_SIZE;
}

bool borrowReversed(WorkingBuffer<char> const& slot, char const* text) {
    return reverseStrBase(slot.get(), slot.size(), text, TRUNCATE_OFF) != INVALID_SIZE;
}

/// Bytes of `set` up to its first malformed one.
unsigned int wellFormedBytes(char const* set) {
    unsigned int end = 0;
    for (unsigned int bytes = charBytes(set); isCharacter(bytes); bytes = charBytes(set + end)) {
        end += bytes;
    }
    return end;
}

/// As `wellFormedBytes`, but without a character that is followed by a byte which can start none: such a
/// character cannot be copied out alone, so it is never found.
unsigned int searchableBytes(char const* set) {
    unsigned int end = 0;
    for (unsigned int bytes = charBytes(set); isCharacter(bytes) && isCharStart(set[end + bytes]);
         bytes = charBytes(set + end)) {
        end += bytes;
    }
    return end;
}

/// True if `text` begins with one of the characters in the `setBytes` well-formed bytes of `set`.
bool beginsWithOneOf(char const* text, char const* set, unsigned int setBytes) {
    for (unsigned int i = 0; i < setBytes;) {
        unsigned int const bytes = sequenceBytes(set[i]);
        if (*text == set[i] && std::strncmp(text, set + i, bytes) == 0) {
            return true;
        }
        i += bytes;
    }
    return false;
}

}  // namespace

template <typename T>
unsigned int t_charlen(T const* text, bool* isBom) noexcept {
    if (text == nullptr) {
        return 0;
    }
    unsigned int const bytes = charBytes(text);
    setIfGiven(isBom, isByteOrderMark(text, bytes));
    return bytes;
}

template <typename T>
unsigned int strCharBytesBase(T const* text, bool* isBom) noexcept {
    setIfGiven(isBom, false);
    unsigned int const bytes = t_charlen(text, isBom);
    return bytes == INVALID_SIZE && isCharStart(*text) ? 0 : bytes;
}

template <typename T>
unsigned int getNearCharIndex(T const* text, unsigned int index, unsigned int direction) noexcept {
    if (text == nullptr) {
        return INVALID_SIZE;
    }
    unsigned int start = 0;
    while (start < index) {
        unsigned int const bytes = charBytes(text + start);
        if (!isCharacter(bytes)) {
            return bytes == 0 ? start : INVALID_SIZE;
        }
        if (index - start < bytes) {
            return direction == CHAR_START ? start : start + bytes;
        }
        start += bytes;
    }
    return index;
}

template <typename T>
unsigned int copyStrBase(T* dst, unsigned int dstSize, T const* src, unsigned int length,
                         int truncate) noexcept {
    if (src == nullptr) {
        return INVALID_SIZE;
    }
    if (length == 0) {
        return 0;
    }
    unsigned int count = boundedLength(src, length);
    if (dstSize == 0) {
        return count + 1;
    }
    if (dst == nullptr) {
        return INVALID_SIZE;
    }
    if (dstSize == 1 && truncate == TRUNCATE_ON) {
        *dst = '\0';
        return 1;
    }
    count = fittingBytes(src, count, dstSize, truncate);
    return count != INVALID_SIZE ? copyToCharStart(dst, src, count) : INVALID_SIZE;
}

template <typename T>
unsigned int t_strncpy(T* dst, unsigned int dstSize, T const* src, unsigned int length) noexcept {
    unsigned int const count = src != nullptr ? boundedLength(src, length) : 0;
    if (dstSize <= count) {
        return INVALID_SIZE;
    }
    if (src == nullptr) {
        *dst = '\0';
        return 1;
    }
    return copyToCharStart(dst, src, count);
}

template <typename T>
unsigned int copyGeneral(T* dst, unsigned int dstSize, unsigned int dstPos, T const* src, unsigned int srcPos,
                         unsigned int length, int truncate) noexcept {
    if (length == 0) {
        return dstPos;
    }
    if (src == nullptr || boundedLength(src, srcPos) < srcPos) {
        return INVALID_SIZE;
    }
    T const* const from = src + srcPos;
    unsigned int count = boundedLength(from, length);
    if (dstSize == 0) {
        return dstPos + 1 + count;
    }
    if (dst == nullptr || dstPos >= dstSize) {
        return INVALID_SIZE;
    }
    unsigned int const room = dstSize - dstPos;
    if (room == 1 && truncate == TRUNCATE_ON) {
        dst[dstPos] = '\0';
        return dstPos + 1;
    }
    count = fittingBytes(from, count, room, truncate);
    // A step back to nothing makes this dstPos - 1.
    return count != INVALID_SIZE ? dstPos + copyToCharStart(dst + dstPos, from, count) : INVALID_SIZE;
}

template <>
unsigned int formatStr<char>(char* dst, unsigned int dstSize, char const* format, ...) {
    if (dst == nullptr || format == nullptr || dstSize == 0) {
        return INVALID_SIZE;
    }
    va_list arguments;
    va_start(arguments, format);
    int const length = std::vsnprintf(dst, dstSize, format, arguments);
    va_end(arguments);
    if (length < 0 || static_cast<unsigned int>(length) >= dstSize) {
        return INVALID_SIZE;
    }
    return textLength(dst) + 1;
}

template <typename T>
unsigned int t_strstr(T const* text, T const* sub) noexcept {
    if (*sub == '\0' || text == nullptr) {
        return *sub == '\0' ? textLength(text) : INVALID_SIZE;
    }
    std::size_t const subLength = std::strlen(sub);
    for (unsigned int offset = 0; text[offset] != '\0';) {
        unsigned int const bytes = charBytes(text + offset);
        if (bytes == INVALID_SIZE) {
            ++offset;
            continue;
        }
        if (text[offset] == *sub && std::strncmp(text + offset, sub, subLength) == 0) {
            return offset;
        }
        offset += bytes;
    }
    return INVALID_SIZE;
}

template <typename T>
unsigned int findReverseStr(T const* text, T const* sub, unsigned int start, unsigned int* next) {
    if (text == nullptr || sub == nullptr) {
        return INVALID_SIZE;
    }
    unsigned int const length = textLength(text);
    unsigned int const last = length - 1;
    if (*sub == '\0') {
        setIfGiven(next, last);
        return length;
    }
    WorkingBuffer<T> const reversedText;
    WorkingBuffer<T> const reversedSub;
    if (!borrowReversed(reversedText, text) || !borrowReversed(reversedSub, sub)) {
        return INVALID_SIZE;
    }
    unsigned int forwardNext = INVALID_SIZE;
    unsigned int const found =
        findStr(reversedText.get(), reversedSub.get(), last - std::min(last, start), &forwardNext);
    if (found == INVALID_SIZE) {
        setIfGiven(next, INVALID_SIZE);
        return INVALID_SIZE;
    }
    setIfGiven(next, last - forwardNext);
    return last - found;
}

template <typename T>
unsigned int findReverseChar(T const* text, T const* chars, unsigned int start, unsigned int* next) {
    bool isBom = false;
    unsigned int const bytes = strCharBytesBase(chars, &isBom);
    if (isBom || bytes == INVALID_SIZE) {
        return INVALID_SIZE;
    }
    T one[ONE_CHAR_SIZE] = {};
    copyMemory(one, chars, bytes);
    return findReverseStr(text, one, start, next);
}

template <typename T>
unsigned int t_strspn(T const* text, T const* set) noexcept {
    if (text == nullptr || set == nullptr) {
        return 0;
    }
    unsigned int const setBytes = wellFormedBytes(set);
    unsigned int offset = 0;
    // What begins with a character of the set is that character, so its length is not tested.
    while (text[offset] != '\0' && beginsWithOneOf(text + offset, set, setBytes)) {
        offset += sequenceBytes(text[offset]);
    }
    return offset;
}

template <typename T>
unsigned int t_strcspn(T const* text, T const* set) noexcept {
    if (text == nullptr || set == nullptr) {
        return textLength(text);
    }
    unsigned int const setBytes = searchableBytes(set);
    unsigned int offset = 0;
    while (text[offset] != '\0') {
        unsigned int const bytes = charBytes(text + offset);
        bool const isMalformed = bytes == INVALID_SIZE;
        if (!isMalformed && beginsWithOneOf(text + offset, set, setBytes)) {
            return offset;
        }
        offset += isMalformed ? 1 : bytes;
    }
    return offset;
}

template <typename T>
unsigned int t_strrev(T* dst, unsigned int dstSize, T const* src, int truncate) noexcept {
    unsigned int const length = textLength(src);
    if (dstSize == 0 || (truncate == TRUNCATE_OFF && dstSize <= length)) {
        return INVALID_SIZE;
    }
    unsigned int kept = std::min(length, dstSize - 1);
    for (unsigned int i = 0; i < length;) {
        unsigned int const bytes = charBytes(src + i);
        if (bytes == INVALID_SIZE) {
            return INVALID_SIZE;
        }
        i += bytes;
        unsigned int const target = length - i;
        if (target + bytes < dstSize) {
            std::memcpy(dst + target, src + i - bytes, bytes);
        } else {
            kept = std::min(kept, target);
        }
    }
    dst[kept] = '\0';
    return kept + 1;
}

template <typename T>
unsigned int reverseStrBase(T* dst, unsigned int dstSize, T const* src, int truncate) noexcept {
    if (src == nullptr) {
        return INVALID_SIZE;
    }
    if (dstSize == 0) {
        return textLength(src) + 1;
    }
    return dst != nullptr ? t_strrev(dst, dstSize, src, truncate) : INVALID_SIZE;
}

template <typename T>
unsigned int truncateStr(T* text, unsigned int length) noexcept {
    if (text == nullptr) {
        return INVALID_SIZE;
    }
    unsigned int const kept = getNearCharIndex<T>(text, boundedLength(text, length), CHAR_START);
    if (kept == INVALID_SIZE) {
        return INVALID_SIZE;
    }
    text[kept] = '\0';
    return kept + 1;
}

template <typename T>
unsigned int eraseStrSpan(T* text, unsigned int pos, unsigned int length) {
    WorkingBuffer<T> const old;
    if (!borrow(old, text)) {
        return INVALID_SIZE;
    }
    unsigned int const oldLength = textLength(old.get());
    unsigned int const size = oldLength + 1;
    unsigned int used = 0;
    if (pos > oldLength || (pos != 0 && !append(text, size, &used, old.get(), pos, TRUNCATE_OFF))) {
        return INVALID_SIZE;
    }
    unsigned int const tail = pos + std::min(length, oldLength - pos);
    return copyGeneral<T>(text, size, used, old.get(), tail, INVALID_SIZE, TRUNCATE_OFF);
}

template <typename T>
unsigned int insertStr(T* dst, unsigned int dstSize, unsigned int pos, T const* src, unsigned int length,
                       int truncate) {
    WorkingBuffer<T> const old;
    if (!borrow(old, dst) || src == nullptr || pos > textLength(old.get())) {
        return INVALID_SIZE;
    }
    unsigned int const count = boundedLength(src, length);
    unsigned int used = 0;
    if (pos != 0 && !append(dst, dstSize, &used, old.get(), pos, truncate)) {
        return INVALID_SIZE;
    }
    if (count != 0 && !append(dst, dstSize, &used, src, count, truncate)) {
        return INVALID_SIZE;
    }
    return copyGeneral<T>(dst, dstSize, used, old.get(), pos, INVALID_SIZE, truncate);
}

template <typename T>
unsigned int replaceStr(T* dst, unsigned int dstSize, T const* text, T const* from, T const* to,
                        int truncate) noexcept {
    if (text == nullptr || from == nullptr || to == nullptr) {
        return INVALID_SIZE;
    }
    if (*from == '\0') {
        return copyStrBase(dst, dstSize, text, textLength(text), truncate);
    }
    unsigned int used = 0;
    unsigned int next = 0;
    for (T const* rest = text;; rest += next) {
        unsigned int const match = findStr(rest, from, 0, &next);
        if (match == INVALID_SIZE) {
            return copyGeneral(dst, dstSize, used, rest, 0, INVALID_SIZE, truncate);
        }
        if ((match != 0 && !append(dst, dstSize, &used, rest, match, truncate)) ||
            !append(dst, dstSize, &used, to, INVALID_SIZE, truncate)) {
            return INVALID_SIZE;
        }
        if (*to == '\0') {
            return used + 1;
        }
    }
}

template <typename T>
unsigned int trimStrRight(T* text, T const* chars) {
    if (text == nullptr) {
        return INVALID_SIZE;
    }
    WorkingBuffer<T> const reversed;
    if (!borrowReversed(reversed, text)) {
        return INVALID_SIZE;
    }
    bool const isDefault = chars == nullptr || *chars == '\0';
    unsigned int const kept = textLength(text) - t_strspn<T>(reversed.get(), isDefault ? WHITE_SPACE : chars);
    text[kept] = '\0';
    return kept + 1;
}

void copyMemory(void* dst, void const* src, unsigned int size) noexcept {
    if (dst != nullptr && src != nullptr) {
        std::memcpy(dst, src, size);
    }
}

void moveMemory(void* dst, void const* src, unsigned int size) noexcept {
    if (dst != nullptr && src != nullptr) {
        std::memmove(dst, src, size);
    }
}

void fillMemory(void* dst, unsigned int size, unsigned char value) noexcept {
    if (dst != nullptr) {
        std::memset(dst, value, size);
    }
}

void zeroMemory(void* dst, unsigned int size) noexcept {
    fillMemory(dst, size, 0);
}

bool compareMemory(void const* a, void const* b, unsigned int size) noexcept {
    return a != nullptr && b != nullptr && std::memcmp(a, b, size) == 0;
}

template unsigned int t_charlen<char>(char const*, bool*);
template unsigned int strCharBytesBase<char>(char const*, bool*);
template unsigned int getNearCharIndex<char>(char const*, unsigned int, unsigned int);
template unsigned int copyStrBase<char>(char*, unsigned int, char const*, unsigned int, int);
template unsigned int t_strncpy<char>(char*, unsigned int, char const*, unsigned int);
template unsigned int copyGeneral<char>(char*, unsigned int, unsigned int, char const*, unsigned int,
                                        unsigned int, int);
template unsigned int t_strstr<char>(char const*, char const*);
template unsigned int findReverseStr<char>(char const*, char const*, unsigned int, unsigned int*);
template unsigned int findReverseChar<char>(char const*, char const*, unsigned int, unsigned int*);
template unsigned int t_strspn<char>(char const*, char const*);
template unsigned int t_strcspn<char>(char const*, char const*);
template unsigned int t_strrev<char>(char*, unsigned int, char const*, int);
template unsigned int reverseStrBase<char>(char*, unsigned int, char const*, int);
template unsigned int truncateStr<char>(char*, unsigned int);
template unsigned int eraseStrSpan<char>(char*, unsigned int, unsigned int);
template unsigned int insertStr<char>(char*, unsigned int, unsigned int, char const*, unsigned int, int);
template unsigned int replaceStr<char>(char*, unsigned int, char const*, char const*, char const*, int);
template unsigned int trimStrRight<char>(char*, char const*);

}  // namespace utl

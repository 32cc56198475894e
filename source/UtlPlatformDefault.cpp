#include <climits>
#include <cstddef>

#include "UtlPlatform.h"
#include "internal/text/UtlCharDecoder.h"

// The platform functions of a program that has none of its own. The definitions are weak, so that the
// program's win in the static form of the library as well.

namespace {

constexpr bool isCodePoint(unsigned int value) {
    return value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
}

// The character at `*src`, which advances; no code point if it is malformed. `end` is after `*src`.
unsigned int takeCharacter(char const** src, char const* end) {
    unsigned int const bytes = utl::sequenceBytes(**src);
    if (bytes == 0 || end - *src < static_cast<std::ptrdiff_t>(bytes)) {
        return utl::INVALID_SIZE;
    }
    unsigned int const value = utl::sequenceValue(*src, bytes);
    *src += bytes;
    return value;
}

// Number of characters, 0 if the text is malformed.
unsigned int countCharacters(char const* src, char const* end) {
    unsigned int count = 0;
    for (; src != end; ++count) {
        if (!isCodePoint(takeCharacter(&src, end))) {
            return 0;
        }
    }
    return count;
}

// Number of bytes that the text takes, 0 if it cannot be encoded.
unsigned long long countBytes(wchar_t const* src, int count) {
    unsigned long long bytes = 0;
    for (int i = 0; i < count; ++i) {
        auto const value = static_cast<unsigned int>(static_cast<int>(src[i]));
        if (!isCodePoint(value)) {
            return 0;
        }
        bytes += utl::shortestBytes(value);
    }
    return bytes;
}

// True if so many units can be written. Results are signed, so there is never room for more than `INT_MAX`.
bool fits(unsigned long long units, unsigned int room) {
    return units != 0 && units <= room && units <= INT_MAX;
}

// Terminates the `count` units before `end` if there is room, and returns their number.
template <typename T>
int finish(T* end, unsigned int count, unsigned int room) {
    if (count < room) {
        *end = T();
    }
    return static_cast<int>(count);
}

}  // namespace

[[gnu::weak]] void BinaryLogWrite(int, void const*, unsigned int) {}

[[gnu::weak]] int jk_mbtowc(wchar_t* dst, unsigned int dstCount, char const* src, unsigned int srcBytes,
                            EN_KCP codePage) {
    if (dst == nullptr || src == nullptr || codePage != EN_KCP_UTF8) {
        return 0;
    }
    char const* const end = src + srcBytes;
    unsigned int const count = countCharacters(src, end);
    if (!fits(count, dstCount)) {
        return 0;
    }
    while (src != end) {
        *dst++ = static_cast<wchar_t>(takeCharacter(&src, end));
    }
    return finish(dst, count, dstCount);
}

[[gnu::weak]] int jk_wctomb(char* dst, unsigned int dstBytes, wchar_t const* src, int srcCount,
                            EN_KCP codePage) {
    if (dst == nullptr || src == nullptr || codePage != EN_KCP_UTF8) {
        return 0;
    }
    unsigned long long const count = countBytes(src, srcCount);
    if (!fits(count, dstBytes)) {
        return 0;
    }
    for (int i = 0; i < srcCount; ++i) {
        utl::putSequence(static_cast<unsigned int>(src[i]),
                         [&dst](auto... bytes) { ((*dst++ = static_cast<char>(bytes)), ...); });
    }
    return finish(dst, static_cast<unsigned int>(count), dstBytes);
}

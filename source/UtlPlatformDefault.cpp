#include <algorithm>
#include <climits>

#include "UtlPlatform.h"

// What a program gets that brings no platform functions of its own. The definitions are weak, so that the
// program's win in the static form of the library as well.

namespace {

struct Decoded {
    char32_t code;
    unsigned int bytes;  // 0: malformed
};

constexpr Decoded MALFORMED{0, 0};

bool isCharacter(char32_t code) {
    return code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
}

unsigned int encodedBytes(char32_t code) {
    return code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
}

// 0 for a byte that starts no sequence.
unsigned int sequenceBytes(unsigned char lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead < 0xC0 || lead >= 0xF8) {
        return 0;
    }
    return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

// Decodes the sequence at `src`, of which `left` bytes are there, at least 1. A sequence that is longer than
// its character needs is malformed.
Decoded decode(char const* src, unsigned int left) {
    auto const lead = static_cast<unsigned char>(*src);
    unsigned int const bytes = sequenceBytes(lead);
    if (bytes == 0 || bytes > left) {
        return MALFORMED;
    }
    char32_t code = bytes == 1 ? lead : lead & (0x7FU >> bytes);
    for (unsigned int i = 1; i < bytes; ++i) {
        auto const next = static_cast<unsigned char>(src[i]);
        if ((next & 0xC0U) != 0x80U) {
            return MALFORMED;
        }
        code = code << 6U | (next & 0x3FU);
    }
    return isCharacter(code) && encodedBytes(code) == bytes ? Decoded{code, bytes} : MALFORMED;
}

void encode(char* dst, char32_t code, unsigned int bytes) {
    for (unsigned int i = bytes - 1; i > 0; --i) {
        dst[i] = static_cast<char>(0x80U | (code & 0x3FU));
        code >>= 6U;
    }
    unsigned int const leadMark = bytes == 1 ? 0U : 0xF00U >> bytes & 0xFFU;
    dst[0] = static_cast<char>(leadMark | code);
}

// Number of characters, 0 if the text is malformed.
unsigned int countCharacters(char const* src, unsigned int bytes) {
    unsigned int count = 0;
    for (unsigned int i = 0; i < bytes; ++count) {
        unsigned int const step = decode(src + i, bytes - i).bytes;
        if (step == 0) {
            return 0;
        }
        i += step;
    }
    return count;
}

// Number of bytes that the text takes, 0 if it cannot be encoded.
unsigned long long countBytes(wchar_t const* src, int count) {
    unsigned long long bytes = 0;
    for (int i = 0; i < count; ++i) {
        auto const code = static_cast<char32_t>(src[i]);
        if (!isCharacter(code)) {
            return 0;
        }
        bytes += encodedBytes(code);
    }
    return bytes;
}

// Results are signed, so there is never room for more than that.
unsigned int usableRoom(unsigned int room) {
    return std::min(room, static_cast<unsigned int>(INT_MAX));
}

}  // namespace

[[gnu::weak]] void BinaryLogWrite(int, void const*, unsigned int) {}

[[gnu::weak]] int jk_mbtowc(wchar_t* dst, unsigned int dstCount, char const* src, unsigned int srcBytes,
                            EN_KCP codePage) {
    if (dst == nullptr || src == nullptr || codePage != EN_KCP_UTF8) {
        return 0;
    }
    unsigned int const count = countCharacters(src, srcBytes);
    if (count > usableRoom(dstCount)) {
        return 0;
    }
    for (unsigned int i = 0; i < count; ++i) {
        Decoded const decoded = decode(src, srcBytes);
        dst[i] = static_cast<wchar_t>(decoded.code);
        src += decoded.bytes;
        srcBytes -= decoded.bytes;
    }
    return static_cast<int>(count);
}

[[gnu::weak]] int jk_wctomb(char* dst, unsigned int dstBytes, wchar_t const* src, int srcCount,
                            EN_KCP codePage) {
    if (dst == nullptr || src == nullptr || codePage != EN_KCP_UTF8) {
        return 0;
    }
    unsigned long long const bytes = countBytes(src, srcCount);
    if (bytes == 0 || bytes > usableRoom(dstBytes)) {
        return 0;
    }
    for (int i = 0; i < srcCount; ++i) {
        auto const code = static_cast<char32_t>(src[i]);
        unsigned int const step = encodedBytes(code);
        encode(dst, code, step);
        dst += step;
    }
    return static_cast<int>(bytes);
}

#include "internal/file/UtlUtf8Text.h"

#include <cstddef>
#include <cstring>
#include <vector>

#include "UtlCharSet.h"
#include "UtlString.h"
#include "internal/file/UtlTextType.h"
#include "internal/text/UtlCharDecoder.h"

namespace utl {

namespace {

constexpr char BYTE_ORDER_MARK[] = "\xEF\xBB\xBF";
constexpr unsigned int MARK_BYTES = 3;
constexpr unsigned int UTF8_BYTES_MAX = 3;  // for a unit of another encoding

/// As many bytes as the machine takes at once.
using Word = std::size_t;
constexpr unsigned int WORD_BYTES = sizeof(Word);

Word loadWord(char const* bytes) {
    Word word = 0;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

/// Has bit `bit` of each byte in the highest place of that byte. The other places mean nothing.
constexpr Word bitOfEach(Word word, unsigned int bit) {
    return word << (7 - bit);
}

constexpr Word HIGHEST_BITS = ~Word{0} / 0xFF * 0x80;

/// The highest bits are 0 if the bytes of a word continue sequences of two or three bytes where they must and
/// nowhere else, and begin none of four and none that may be longer than it needs to be, by 0xC0, 0xC1, 0xE0
/// or 0xE1. The other words begin one and two places before.
constexpr Word brokenBytes(Word word, Word before, Word twoBefore) {
    Word const isLead = word & bitOfEach(word, 6);
    Word const isContinuation = word & ~bitOfEach(word, 6);
    Word const isSecond = before & bitOfEach(before, 6);
    Word const isThird = twoBefore & bitOfEach(twoBefore, 6) & bitOfEach(twoBefore, 5);
    Word const isOfFour = bitOfEach(word, 5) & bitOfEach(word, 4);
    Word const isLow = ~(bitOfEach(word, 4) | bitOfEach(word, 3) | bitOfEach(word, 2) | bitOfEach(word, 1));
    return (isContinuation ^ (isSecond | isThird)) | (isLead & (isOfFour | isLow));
}

Word brokenBytesAt(char const* at) {
    return brokenBytes(loadWord(at), loadWord(at - 1), loadWord(at - 2));
}

}  // namespace

Utf8Text::Utf8Text(int textType, char* bytes, unsigned int count) {
    std::memset(bytes + count, 0, TEXT_UNIT_BYTES_MAX);
    switch (textType) {
        case File::TEXT_UTF8:
            takeUtf8(bytes, count);
            break;
        case File::TEXT_SJIS:
            convert(convertStrFromSjisToUtf8, count, static_cast<char const*>(bytes));
            break;
        default:
            convertUtf16(textType, bytes, count);
            break;
    }
}

bool Utf8Text::copyTo(char* dst, unsigned int dstSize) const {
    if (!isMadeOfSequences()) {
        return copyStrBase(dst, dstSize, mpText, INVALID_SIZE, TRUNCATE_ON) != INVALID_SIZE;
    }
    memccpy(dst, mpText, '\0', mSize);
    return true;
}

void Utf8Text::takeUtf8(char const* bytes, unsigned int count) {
    bool const hasMark = count >= MARK_BYTES && std::memcmp(bytes, BYTE_ORDER_MARK, MARK_BYTES) == 0;
    mpText = bytes + (hasMark ? MARK_BYTES : 0);
    mSize = textLength(mpText) + 1;
}

// Half a unit at the end is ignored.
void Utf8Text::convertUtf16(int textType, char const* bytes, unsigned int count) {
    unsigned int const unitCount = count / 2;
    std::vector<unsigned short> units(unitCount + 1);
    convertBinFromUint8ToDchar(units.data(), unitCount, reinterpret_cast<unsigned char const*>(bytes),
                               2 * unitCount, textByteOrder(textType));
    convert(convertStrFromUtf16ToUtf8, unitCount, static_cast<unsigned short const*>(units.data()));
}

template <typename UNIT>
void Utf8Text::convert(unsigned int (*function)(char*, unsigned int, UNIT const*), unsigned int units,
                       UNIT const* src) {
    unsigned int const roomBytes = UTF8_BYTES_MAX * units + 1;
    char* const room = roomFor(roomBytes);
    mSize = function(room, roomBytes, src);
    mpText = room;
}

char* Utf8Text::roomFor(unsigned int bytes) {
    if (bytes <= SHORT_BYTES) {
        return mShort;
    }
    mLong.reset(new char[bytes]);
    return mLong.get();
}

/// True if the text is made of whole sequences in their shortest form. Looks at a word at a time, because no
/// processor foresees how long the next character of Japanese text is. False says nothing.
bool Utf8Text::isMadeOfSequences() const {
    if (mSize < WORD_BYTES + 2) {
        return false;
    }
    Word const first = loadWord(mpText);
    Word broken = brokenBytes(first, first << 8U, first << 16U);
    // The last word ends with the terminator, which continues nothing.
    char const* const last = mpText + mSize - WORD_BYTES;
    for (char const* at = mpText + WORD_BYTES; at < last; at += WORD_BYTES) {
        broken |= brokenBytesAt(at);
    }
    return ((broken | brokenBytesAt(last)) & HIGHEST_BITS) == 0;
}

}  // namespace utl

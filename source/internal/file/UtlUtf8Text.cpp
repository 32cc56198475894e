#include "internal/file/UtlUtf8Text.h"

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
constexpr unsigned int UTF8_BYTES_MAX = 3;  // of what a unit of another encoding becomes
constexpr unsigned int WORD_BYTES = 8;

/// One bit of each of eight bytes, counted from the lowest, in its lowest place.
template <unsigned int BIT>
unsigned long long bitOfEach(char const* bytes) {
    unsigned long long word = 0;
    std::memcpy(&word, bytes, WORD_BYTES);
    return word >> BIT & 0x0101010101010101ULL;
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
    return isMadeOfSequences() ? t_strncpy(dst, dstSize, mpText, INVALID_SIZE) != INVALID_SIZE
                               : copyStrBase(dst, dstSize, mpText, INVALID_SIZE, 1) != INVALID_SIZE;
}

void Utf8Text::takeUtf8(char const* bytes, unsigned int count) {
    bool const hasMark = count >= MARK_BYTES && std::memcmp(bytes, BYTE_ORDER_MARK, MARK_BYTES) == 0;
    mpText = bytes + (hasMark ? MARK_BYTES : 0);
    mSize = textLength(mpText) + 1;
}

// Half a unit at the end is no text.
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
    if (mLong == nullptr && mSize != INVALID_SIZE) {
        std::memset(mShort, 0, ZEROS_IN_FRONT);
        std::memset(room + mSize, 0, ZEROS_BEHIND);
    }
}

char* Utf8Text::roomFor(unsigned int bytes) {
    if (bytes <= SHORT_BYTES) {
        return mShort + ZEROS_IN_FRONT;
    }
    mLong.reset(new char[bytes]);
    return mLong.get();
}

/// True if the text is a short conversion without a byte of Shift-JIS that stands for itself and is no ASCII:
/// then its sequences of two and three bytes are whole, and nothing is longer than it needs to be. Looks at
/// eight bytes at a time, because no processor foresees how long the next character of Japanese text is.
/// False says nothing.
bool Utf8Text::isMadeOfSequences() const {
    static_assert(ZEROS_IN_FRONT >= 2 && ZEROS_BEHIND >= WORD_BYTES);
    if (mpText != mShort + ZEROS_IN_FRONT) {
        return false;
    }
    unsigned long long wrong = 0;
    for (char const* at = mpText; at < mpText + mSize; at += WORD_BYTES) {
        unsigned long long const isLead = bitOfEach<7>(at) & bitOfEach<6>(at);
        unsigned long long const isContinuation = bitOfEach<7>(at) & ~bitOfEach<6>(at);
        unsigned long long const isSecond = bitOfEach<7>(at - 1) & bitOfEach<6>(at - 1);
        unsigned long long const isThird = bitOfEach<7>(at - 2) & bitOfEach<6>(at - 2) & bitOfEach<5>(at - 2);
        unsigned long long const isOfFour = isLead & bitOfEach<5>(at) & bitOfEach<4>(at);
        wrong |= (isContinuation ^ (isSecond | isThird)) | isOfFour;
    }
    return wrong == 0;
}

}  // namespace utl

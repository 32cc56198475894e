#include "UtlBitStream.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "UtlString.h"

namespace utl {

namespace {

constexpr unsigned int BYTE_BITS = 8;
constexpr unsigned int WORD_BITS = 32;
constexpr unsigned int SPAN_BYTES = 5;  // 32 bits are in no more

// The bytes of a field of 1 to 32 bits. Always five bytes are accessed, but of a row that is as long
// as the field: past the last byte it repeats that byte. So no branch, which the processor would predict
// wrong, depends on the width, and no byte outside the field is touched.
constexpr unsigned char PLACES[SPAN_BYTES][SPAN_BYTES] = {
    {0, 0, 0, 0, 0}, {0, 1, 1, 1, 1}, {0, 1, 2, 2, 2}, {0, 1, 2, 3, 3}, {0, 1, 2, 3, 4}};

unsigned char const* placesFor(unsigned int offset, unsigned int bits) {
    return PLACES[(offset + bits - 1) / BYTE_BITS];
}

// The first of the eight bytes is the highest.
unsigned long long wordOf(unsigned char const* bytes) {
    unsigned long long word = 0;
    std::memcpy(&word, bytes, sizeof(word));
    return __builtin_bswap64(word);
}

unsigned int loadFromField(unsigned char const* bytes, unsigned int offset, unsigned int bits) {
    unsigned char const* const place = placesFor(offset, bits);
    unsigned int word = 0;
    for (unsigned int i = 0; i < SPAN_BYTES - 1; ++i) {
        word = word << BYTE_BITS | bytes[place[i]];
    }
    unsigned int const last = bytes[place[SPAN_BYTES - 1]];
    return (word << offset | last >> (BYTE_BITS - offset)) >> (WORD_BITS - bits);
}

// Loads eight bytes at once where the buffer has so many.
unsigned int loadWord(unsigned char const* buffer, unsigned int size, unsigned int start, unsigned int bits) {
    unsigned int const offset = start % BYTE_BITS;
    unsigned int const first = start / BYTE_BITS;
    if (size - first < sizeof(unsigned long long)) {
        return loadFromField(buffer + first, offset, bits);
    }
    auto const upper = static_cast<unsigned int>(wordOf(buffer + first) << offset >> WORD_BITS);
    return upper >> (WORD_BITS - bits);
}

void storeWord(unsigned char* buffer, unsigned int start, unsigned int value, unsigned int bits) {
    unsigned int const offset = start % BYTE_BITS;
    unsigned char* const bytes = buffer + start / BYTE_BITS;
    unsigned char const* const place = placesFor(offset, bits);
    unsigned char& last = bytes[place[SPAN_BYTES - 1]];
    unsigned int const after = last & (0xFFU >> ((offset + bits - 1) % BYTE_BITS + 1));
    unsigned int const before = bytes[0] & ~(0xFFU >> offset);
    value <<= WORD_BITS - bits;
    unsigned int const word = value >> offset | before << (WORD_BITS - BYTE_BITS);
    unsigned int const rest = (value << (BYTE_BITS - offset)) & 0xFFU;
    unsigned char const span[SPAN_BYTES] = {
        static_cast<unsigned char>(word >> 24), static_cast<unsigned char>(word >> 16),
        static_cast<unsigned char>(word >> 8), static_cast<unsigned char>(word),
        static_cast<unsigned char>(rest)};
    for (unsigned int i = 0; i < SPAN_BYTES; ++i) {
        bytes[place[i]] = span[place[i]];
    }
    last = static_cast<unsigned char>(last | after);
}

template <typename T>
bool serializeLowFirst(T value, unsigned char* bytes) {
    if (bytes == nullptr) {
        return false;
    }
    for (unsigned int i = 0; i < sizeof(T); ++i) {
        bytes[i] = static_cast<unsigned char>(value >> (i * BYTE_BITS));
    }
    return true;
}

template <typename T>
bool unserializeNative(unsigned char const* bytes, T* value) {
    if (bytes == nullptr || value == nullptr) {
        return false;
    }
    std::memcpy(value, bytes, sizeof(T));
    return true;
}

}  // namespace

// The steps of every access are inline, because exported functions of the library call each other by a table.

// True if there is something to do at `*start`. Sets the error for what cannot be done.
inline bool BitStream::begin(unsigned int bits, unsigned int bitsMax, int position,
                             unsigned int* start) noexcept {
    if (mError || bits == 0) {
        return false;
    }
    *start = position == CURRENT_POSITION ? mBitPosition : static_cast<unsigned int>(position);
    mError = bits > bitsMax || position < CURRENT_POSITION || !isInside(1ULL * *start + bits);
    return !mError;
}

inline bool BitStream::isInside(unsigned long long end) const noexcept {
    return end <= 1ULL * mBufferSize * BYTE_BITS && end <= UINT_MAX;
}

inline void BitStream::endAt(unsigned int end, int position) noexcept {
    if (position == CURRENT_POSITION) {
        mBitPosition = end;
    }
}

inline void BitStream::raiseBitSize(unsigned int end) noexcept {
    mBitSize = std::max(mBitSize, end);
}

inline void BitStream::put(unsigned int start, unsigned int value, unsigned int bits) noexcept {
    storeWord(mBuffer, start, value, bits);
    raiseBitSize(start + bits);
}

template <typename T>
inline T BitStream::readField(unsigned int bits, int position) noexcept {
    unsigned int start = 0;
    if (!begin(bits, sizeof(T) * BYTE_BITS, position, &start)) {
        return 0;
    }
    endAt(start + bits, position);
    if constexpr (sizeof(T) * BYTE_BITS > WORD_BITS) {
        if (bits > WORD_BITS) {
            unsigned int const highBits = bits - WORD_BITS;
            T const high = loadWord(mBuffer, mBufferSize, start, highBits);
            return high << WORD_BITS | loadWord(mBuffer, mBufferSize, start + highBits, WORD_BITS);
        }
    }
    return static_cast<T>(loadWord(mBuffer, mBufferSize, start, bits));
}

template <typename T>
inline void BitStream::writeField(T value, unsigned int bits, int position) noexcept {
    unsigned int start = 0;
    if (!begin(bits, sizeof(T) * BYTE_BITS, position, &start)) {
        return;
    }
    endAt(start + bits, position);
    if constexpr (sizeof(T) * BYTE_BITS > WORD_BITS) {
        if (bits > WORD_BITS) {
            unsigned int const highBits = bits - WORD_BITS;
            put(start, static_cast<unsigned int>(value >> WORD_BITS), highBits);
            put(start + highBits, static_cast<unsigned int>(value), WORD_BITS);
            return;
        }
    }
    put(start, static_cast<unsigned int>(value), bits);
}

BitStream::BitStream() noexcept
    : mBuffer(nullptr), mBufferSize(0), mBitPosition(0), mBitSize(0), mError(false) {}

BitStream::BitStream(unsigned char* buffer, unsigned int size) noexcept : BitStream() {
    setBitStream(buffer, size);
}

bool BitStream::setBitStream(unsigned char* buffer, unsigned int size) noexcept {
    if (buffer == nullptr || size == 0) {
        return false;
    }
    mBuffer = buffer;
    mBufferSize = size;
    mBitSize = 0;
    clear(false);
    return true;
}

void BitStream::clear(bool erase) noexcept {
    mBitPosition = 0;
    mError = false;
    if (erase && mBuffer != nullptr) {
        mBitSize = 0;
        zeroMemory(mBuffer, mBufferSize);
    }
}

void BitStream::seekBitOffset(unsigned int offset, int origin) noexcept {
    if (origin < SEEK_FROM_START || origin > SEEK_FROM_END) {
        mError = true;
        return;
    }
    unsigned int const bases[] = {0, mBitPosition, mBitSize};
    unsigned long long const target = 1ULL * bases[origin] + offset;
    if (!isInside(target)) {
        mError = true;
        return;
    }
    mBitPosition = static_cast<unsigned int>(target);
    raiseBitSize(mBitPosition);
}

bool BitStream::readCurBit() noexcept {
    unsigned int const shift = BYTE_BITS - 1 - mBitPosition % BYTE_BITS;
    bool const bit = (mBuffer[mBitPosition / BYTE_BITS] >> shift & 1) != 0;
    ++mBitPosition;
    return bit;
}

void BitStream::writeCurBit(unsigned char bit) noexcept {
    unsigned int const mask = 0x80U >> (mBitPosition % BYTE_BITS);
    unsigned char& byte = mBuffer[mBitPosition / BYTE_BITS];
    byte = static_cast<unsigned char>(bit != 0 ? byte | mask : byte & ~mask);
    ++mBitPosition;
    raiseBitSize(mBitPosition);
}

unsigned char BitStream::readBitToUint8(unsigned int bits, int position) noexcept {
    return readField<unsigned char>(bits, position);
}

unsigned short BitStream::readBitToUint16(unsigned int bits, int position) noexcept {
    return readField<unsigned short>(bits, position);
}

unsigned int BitStream::readBitToUint32(unsigned int bits, int position) noexcept {
    return readField<unsigned int>(bits, position);
}

unsigned long long BitStream::readBitToUint64(unsigned int bits, int position) noexcept {
    return readField<unsigned long long>(bits, position);
}

void BitStream::writeBitToUint8(unsigned char value, unsigned int bits, int position) noexcept {
    writeField(value, bits, position);
}

void BitStream::writeBitToUint16(unsigned short value, unsigned int bits, int position) noexcept {
    writeField(value, bits, position);
}

void BitStream::writeBitToUint32(unsigned int value, unsigned int bits, int position) noexcept {
    writeField(value, bits, position);
}

void BitStream::writeBitToUint64(unsigned long long value, unsigned int bits, int position) noexcept {
    writeField(value, bits, position);
}

void BitStream::readBitData(unsigned char* data, unsigned int bits, int position) noexcept {
    unsigned int start = 0;
    mError = mError || data == nullptr;
    if (!begin(bits, INVALID_SIZE, position, &start)) {
        return;
    }
    unsigned int const bytes = bits / BYTE_BITS;
    unsigned int const rest = bits % BYTE_BITS;
    if (start % BYTE_BITS == 0) {
        copyMemory(data, mBuffer + start / BYTE_BITS, bytes);
    } else {
        for (unsigned int i = 0; i < bytes; ++i) {
            data[i] =
                static_cast<unsigned char>(loadWord(mBuffer, mBufferSize, start + i * BYTE_BITS, BYTE_BITS));
        }
    }
    if (rest != 0) {
        unsigned int const last = loadWord(mBuffer, mBufferSize, start + bytes * BYTE_BITS, rest);
        data[bytes] = static_cast<unsigned char>(last << (BYTE_BITS - rest));
    }
    endAt(start + bits, position);
}

void BitStream::writeBitData(unsigned char const* data, unsigned int bits, int position) noexcept {
    unsigned int start = 0;
    mError = mError || data == nullptr;
    if (!begin(bits, INVALID_SIZE, position, &start)) {
        return;
    }
    unsigned int const bytes = bits / BYTE_BITS;
    unsigned int const rest = bits % BYTE_BITS;
    if (start % BYTE_BITS == 0) {
        copyMemory(mBuffer + start / BYTE_BITS, data, bytes);
    } else {
        for (unsigned int i = 0; i < bytes; ++i) {
            put(start + i * BYTE_BITS, data[i], BYTE_BITS);
        }
    }
    if (rest != 0) {
        put(start + bytes * BYTE_BITS, static_cast<unsigned int>(data[bytes]) >> (BYTE_BITS - rest), rest);
    }
    raiseBitSize(start + bits);
    endAt(start + bits, position);
}

void BitStream::copy(BitStream const& source, int position) noexcept {
    unsigned int const bits = source.mBitSize;
    unsigned int start = 0;
    if (!begin(bits, INVALID_SIZE, position, &start)) {
        return;
    }
    unsigned int const bytes = source.getBitStreamSize();
    if (start % BYTE_BITS == 0) {
        copyMemory(mBuffer + start / BYTE_BITS, source.mBuffer, bytes);
        raiseBitSize(start + bits);
        endAt(start + bits, position);
        return;
    }
    unsigned int const rest = bits % BYTE_BITS;
    unsigned int const last = start + (bytes - 1) * BYTE_BITS;
    for (unsigned int i = 0; i + 1 < bytes; ++i) {
        put(start + i * BYTE_BITS, source.mBuffer[i], BYTE_BITS);
    }
    if (rest != 0) {
        put(last, static_cast<unsigned int>(source.mBuffer[bytes - 1]) >> (BYTE_BITS - 1 - rest), rest);
    }
    endAt(last + rest, position);
}

bool serialize(unsigned short value, unsigned char* bytes) noexcept {
    return serializeLowFirst(value, bytes);
}

bool serialize(unsigned int value, unsigned char* bytes) noexcept {
    return serializeLowFirst(value, bytes);
}

bool unserialize(unsigned char* bytes, unsigned short* value) noexcept {
    return unserializeNative(bytes, value);
}

bool unserialize(unsigned char* bytes, unsigned int* value) noexcept {
    return unserializeNative(bytes, value);
}

}  // namespace utl

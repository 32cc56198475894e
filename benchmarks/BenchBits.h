#pragma once

// Fields of random width, and ways to write and read them. Each returns the sum of what it has read.

#include <cstddef>
#include <random>
#include <vector>

#include "UtlBitStream.h"

namespace utlbench {

constexpr unsigned int FIELD_COUNT = 1000000;
constexpr unsigned int WIDTH_MAX = 32;

struct Field {
    unsigned int value;
    unsigned int bits;
};

inline std::vector<Field> const& fields() {
    static std::vector<Field> const theFields = [] {
        std::mt19937 lots;
        std::vector<Field> result(FIELD_COUNT);
        for (Field& field : result) {
            field.bits = 1 + lots() % WIDTH_MAX;
            field.value = static_cast<unsigned int>(lots()) >> (WIDTH_MAX - field.bits);
        }
        return result;
    }();
    return theFields;
}

inline std::vector<unsigned char>& buffer() {
    static std::vector<unsigned char> theBuffer(FIELD_COUNT * (WIDTH_MAX / 8));
    return theBuffer;
}

inline unsigned int byFields() {
    utl::BitStream stream(buffer().data(), static_cast<unsigned int>(buffer().size()));
    for (Field const& field : fields()) {
        stream.writeBitToUint32(field.value, field.bits, -1);
    }
    stream.clear(false);
    unsigned int sum = 0;
    for (Field const& field : fields()) {
        sum += stream.readBitToUint32(field.bits, -1);
    }
    return sum;
}

/// The best that a loop over bits can do: without a call for each, and without a size to keep.
inline unsigned int byInlineBits() {
    unsigned char* const bytes = buffer().data();
    unsigned int position = 0;
    for (Field const& field : fields()) {
        for (unsigned int i = field.bits; i-- > 0; ++position) {
            unsigned int const mask = 0x80U >> (position % 8);
            unsigned char& byte = bytes[position / 8];
            byte = static_cast<unsigned char>((field.value >> i & 1) != 0 ? byte | mask : byte & ~mask);
        }
    }
    position = 0;
    unsigned int sum = 0;
    for (Field const& field : fields()) {
        unsigned int value = 0;
        for (unsigned int i = 0; i < field.bits; ++i, ++position) {
            value = value << 1 | (static_cast<unsigned int>(bytes[position / 8]) >> (7 - position % 8) & 1);
        }
        sum += value;
    }
    return sum;
}

inline unsigned int byAccumulator() {
    unsigned char* out = buffer().data();
    unsigned long long held = 0;
    unsigned int count = 0;
    for (Field const& field : fields()) {
        held = held << field.bits | field.value;
        count += field.bits;
        for (; count >= 8; count -= 8) {
            *out++ = static_cast<unsigned char>(held >> (count - 8));
        }
    }
    *out = static_cast<unsigned char>(held << (8 - count));
    unsigned char const* in = buffer().data();
    unsigned int sum = 0;
    count = 0;
    for (Field const& field : fields()) {
        for (; count < field.bits; count += 8) {
            held = held << 8 | *in++;
        }
        count -= field.bits;
        sum += static_cast<unsigned int>(held >> count & (~0U >> (WIDTH_MAX - field.bits)));
    }
    return sum;
}

}  // namespace utlbench

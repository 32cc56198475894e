// Fields of random width, written and read back: against the same by single bits, and against an accumulator
// of 64 bits that knows nothing of bounds, positions and errors.

#include "UtlBitStream.h"

#include <cstring>
#include <random>
#include <vector>

#include "BenchRatio.h"

namespace {

constexpr unsigned int FIELD_COUNT = 1000000;
constexpr unsigned int WIDTH_MAX = 32;

struct Field {
    unsigned int value;
    unsigned int bits;
};

std::vector<Field> const& fields() {
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

std::vector<unsigned char>& buffer() {
    static std::vector<unsigned char> theBuffer(FIELD_COUNT * (WIDTH_MAX / 8));
    return theBuffer;
}

void byFields() {
    utl::BitStream stream(buffer().data(), static_cast<unsigned int>(buffer().size()));
    for (Field const& field : fields()) {
        stream.writeBitToUint32(field.value, field.bits, -1);
    }
    stream.clear(false);
    unsigned int sum = 0;
    for (Field const& field : fields()) {
        sum += stream.readBitToUint32(field.bits, -1);
    }
    utlbench::keep(sum);
}

void byStreamBits() {
    utl::BitStream stream(buffer().data(), static_cast<unsigned int>(buffer().size()));
    for (Field const& field : fields()) {
        for (unsigned int i = field.bits; i-- > 0;) {
            stream.writeCurBit(static_cast<unsigned char>(field.value >> i & 1));
        }
    }
    stream.clear(false);
    unsigned int sum = 0;
    for (Field const& field : fields()) {
        unsigned int value = 0;
        for (unsigned int i = 0; i < field.bits; ++i) {
            value = value << 1 | (stream.readCurBit() ? 1 : 0);
        }
        sum += value;
    }
    utlbench::keep(sum);
}

// The best that a loop over bits can do: without a call for each, and without a size to keep.
void byInlineBits() {
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
    utlbench::keep(sum);
}

void byAccumulator() {
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
    utlbench::keep(sum);
}

// The buffer for the readers below, with room for a load of 8 bytes at the last field.
std::vector<unsigned char>& written() {
    static std::vector<unsigned char> theBuffer = [] {
        std::vector<unsigned char> result(FIELD_COUNT * (WIDTH_MAX / 8) + 8);
        utl::BitStream stream(result.data(), static_cast<unsigned int>(result.size()));
        for (Field const& field : fields()) {
            stream.writeBitToUint32(field.value, field.bits, -1);
        }
        return result;
    }();
    return theBuffer;
}

void readFields() {
    utl::BitStream stream(written().data(), static_cast<unsigned int>(written().size()));
    unsigned int sum = 0;
    for (Field const& field : fields()) {
        sum += stream.readBitToUint32(field.bits, -1);
    }
    utlbench::keep(sum);
}

struct BareReader {
    unsigned char const* bytes;
    unsigned int position;
    unsigned int size;
};

// A function as ours, with the one check that the field is inside.
[[gnu::noipa]] unsigned int readBareField(BareReader& reader, unsigned int bits) {
    if (reader.position + bits > reader.size) {
        return 0;
    }
    unsigned long long word = 0;
    std::memcpy(&word, reader.bytes + reader.position / 8, sizeof(word));
    word = __builtin_bswap64(word) << (reader.position % 8);
    reader.position += bits;
    return static_cast<unsigned int>(word >> (64 - bits));
}

void readBareFields() {
    BareReader reader{written().data(), 0, static_cast<unsigned int>(written().size()) * 8};
    unsigned int sum = 0;
    for (Field const& field : fields()) {
        sum += readBareField(reader, field.bits);
    }
    utlbench::keep(sum);
}

UTL_RATIO_CPU("read 1,000,000 fields of 1 to 32 bits, to a function of one check and one load of 8 bytes",
              readFields, readBareFields, 2.5);
UTL_RATIO_CPU("1,000,000 fields of 1 to 32 bits, to single bits of the stream", byFields, byStreamBits, 0.2);
UTL_RATIO_CPU("1,000,000 fields of 1 to 32 bits, to an inlined loop over bits", byFields, byInlineBits, 0.2);
UTL_RATIO_CPU("1,000,000 fields of 1 to 32 bits, to a bare 64-bit accumulator", byFields, byAccumulator, 1.5);

}  // namespace

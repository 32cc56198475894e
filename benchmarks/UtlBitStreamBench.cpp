// Fields of random width, written and read back: against the same by single bits, and against an accumulator
// of 64 bits that knows nothing of bounds, positions and errors.

#include "UtlBitStream.h"

#include <cstring>
#include <vector>

#include "BenchBits.h"
#include "BenchRatio.h"

namespace {

using namespace utlbench;  // the fields, and the ways that others measure as well

template <unsigned int (*WAY)()>
struct SumOf {
    void operator()() const { keep(WAY()); }
};

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
              readFields, readBareFields, 1.4);
UTL_RATIO_CPU("1,000,000 fields of 1 to 32 bits, to single bits of the stream", SumOf<byFields>(),
              byStreamBits, 0.2);
UTL_RATIO_CPU("1,000,000 fields of 1 to 32 bits, to an inlined loop over bits", SumOf<byFields>(),
              SumOf<byInlineBits>(), 0.2);
UTL_RATIO_CPU("1,000,000 fields of 1 to 32 bits, to a bare 64-bit accumulator", SumOf<byFields>(),
              SumOf<byAccumulator>(), 1.5);

}  // namespace

// Bit streams beside a vector of bits.

#include <vector>

#include "Fuzz.h"
#include "UtlBitStream.h"

namespace {

using fuzz::Input;
using fuzz::placeIn;

constexpr unsigned int BYTES_MAX = 12;

using Bits = std::vector<bool>;

Bits bitsOf(unsigned char const* bytes, unsigned int count) {
    Bits bits;
    for (unsigned int i = 0; i < count; ++i) {
        bits.push_back((bytes[i / 8] >> (7 - i % 8) & 1) != 0);
    }
    return bits;
}

/// A stream, and the bits, the position and the error that it should have.
struct Subject {
    explicit Subject(unsigned int itsSize)
        : size(itsSize),
          buffer(fuzz::blockOf<unsigned char>(itsSize)),
          stream(buffer.get(), itsSize),
          bits(8 * itsSize) {}

    unsigned int size;
    std::unique_ptr<unsigned char[]> buffer;
    utl::BitStream stream;
    Bits bits;
    unsigned int position = 0;
    unsigned int bitSize = 0;
    bool hasError = false;

    // Where an access of `count` bits begins. False, perhaps with the error set, if there is none.
    bool begin(unsigned int count, unsigned int most, int at, unsigned int* start) {
        if (hasError || count == 0) {
            return false;
        }
        *start = at == -1 ? position : static_cast<unsigned int>(at);
        hasError = count > most || at < -1 || 0ULL + *start + count > bits.size();
        return !hasError;
    }

    void end(unsigned int start, unsigned int count, int at, bool isWritten) {
        position = at == -1 ? start + count : position;
        bitSize = isWritten ? std::max(bitSize, start + count) : bitSize;
    }
};

void expectSame(Subject const& subject) {
    FUZZ_EXPECT(subject.stream.getBitPosition() == subject.position);
    FUZZ_EXPECT(subject.stream.getBitStreamBitSize() == subject.bitSize);
    FUZZ_EXPECT(subject.stream.getBitStreamSize() == (subject.bitSize + 7) / 8);
    FUZZ_EXPECT(bitsOf(subject.buffer.get(), 8 * subject.size) == subject.bits);
}

int placeFrom(Input* input) {
    unsigned int const kind = input->upTo(7);
    return kind < 4 ? -1 : kind == 4 ? input->number<int>() : static_cast<int>(input->upTo(8 * BYTES_MAX));
}

void read(Input* input, Subject* subject) {
    unsigned int const width = 8U << input->upTo(3);
    unsigned int const count = input->upTo(66);
    int const at = placeFrom(input);
    unsigned int start = 0;
    unsigned long long expected = 0;
    if (subject->begin(count, width, at, &start)) {
        for (unsigned int i = 0; i < count; ++i) {
            expected = expected << 1 | (subject->bits[start + i] ? 1U : 0U);
        }
        subject->end(start, count, at, false);
    }
    utl::BitStream& stream = subject->stream;
    FUZZ_EXPECT(expected == (width == 8    ? stream.readBitToUint8(count, at)
                             : width == 16 ? stream.readBitToUint16(count, at)
                             : width == 32 ? stream.readBitToUint32(count, at)
                                           : stream.readBitToUint64(count, at)));
}

void write(Input* input, Subject* subject) {
    unsigned int const width = 8U << input->upTo(3);
    unsigned int const count = input->upTo(66);
    int const at = placeFrom(input);
    auto const value = input->number<unsigned long long>();
    unsigned int start = 0;
    if (subject->begin(count, width, at, &start)) {
        for (unsigned int i = 0; i < count; ++i) {
            subject->bits[start + i] = (value >> (count - 1 - i) & 1) != 0;
        }
        subject->end(start, count, at, true);
    }
    utl::BitStream& stream = subject->stream;
    switch (width) {
        case 8:
            stream.writeBitToUint8(static_cast<unsigned char>(value), count, at);
            break;
        case 16:
            stream.writeBitToUint16(static_cast<unsigned short>(value), count, at);
            break;
        case 32:
            stream.writeBitToUint32(static_cast<unsigned int>(value), count, at);
            break;
        default:
            stream.writeBitToUint64(value, count, at);
            break;
    }
}

void readData(Input* input, Subject* subject) {
    unsigned int const count = input->upTo(8 * BYTES_MAX + 2);
    int const at = placeFrom(input);
    unsigned int const bytes = (count + 7) / 8;
    auto const data = fuzz::blockOf<unsigned char>(bytes, 0xAA);
    unsigned int start = 0;
    bool const isRead = subject->begin(count, ~0U, at, &start);
    subject->stream.readBitData(data.get(), count, at);
    if (isRead) {
        Bits expected(placeIn(subject->bits, start), placeIn(subject->bits, start + count));
        expected.resize(8 * bytes);
        FUZZ_EXPECT(bitsOf(data.get(), 8 * bytes) == expected);
        subject->end(start, count, at, false);
    }
}

void writeData(Input* input, Subject* subject) {
    unsigned int const count = input->upTo(8 * BYTES_MAX + 2);
    int const at = placeFrom(input);
    unsigned int const bytes = (count + 7) / 8;
    auto const data = fuzz::blockOf<unsigned char>(bytes);
    for (unsigned int i = 0; i < bytes; ++i) {
        data[i] = input->byte();
    }
    unsigned int start = 0;
    if (subject->begin(count, ~0U, at, &start)) {
        Bits const given = bitsOf(data.get(), count);
        std::copy(given.begin(), given.end(), placeIn(subject->bits, start));
        subject->end(start, count, at, true);
    }
    subject->stream.writeBitData(data.get(), count, at);
}

// All of another stream: whole bytes onto a byte border, else with its last byte one bit lower than it lies.
void copy(Input* input, Subject* subject) {
    Subject source(1 + input->upTo(BYTES_MAX - 1));
    for (unsigned int i = 0; i < source.size; ++i) {
        source.buffer[i] = input->byte();
    }
    unsigned int const count = input->upTo(8 * source.size);
    source.stream.seekBitOffset(count, utl::BitStream::SEEK_FROM_START);
    int const at = placeFrom(input);
    unsigned int start = 0;
    if (subject->begin(count, ~0U, at, &start)) {
        unsigned int const bytes = (count + 7) / 8;
        Bits given = bitsOf(source.buffer.get(), 8 * bytes);
        unsigned int copied = 8 * bytes;
        if (start % 8 != 0) {
            copied = count % 8 == 0 ? count - 8 : count;
            unsigned int const last = 8 * (bytes - 1);
            unsigned int const lowered =
                static_cast<unsigned int>(source.buffer[bytes - 1]) >> (7 - count % 8);
            for (unsigned int i = 0; i < count % 8; ++i) {
                given[last + i] = (lowered >> (count % 8 - 1 - i) & 1) != 0;
            }
        }
        std::copy(given.begin(), placeIn(given, copied), placeIn(subject->bits, start));
        subject->end(start, start % 8 == 0 ? count : copied, at, copied != 0);
    }
    subject->stream.copy(source.stream, at);
}

void seek(Input* input, Subject* subject) {
    unsigned int const offset = input->sizeAround(8 * BYTES_MAX);
    int const origin = static_cast<int>(input->upTo(4)) - 1;
    unsigned long long const target = 0ULL + offset +
                                      (origin == 1   ? subject->position
                                       : origin == 2 ? subject->bitSize
                                                     : 0);
    if (origin < 0 || origin > 2 || target > subject->bits.size()) {
        subject->hasError = true;
    } else {
        subject->position = static_cast<unsigned int>(target);
        subject->bitSize = std::max(subject->bitSize, subject->position);
    }
    subject->stream.seekBitOffset(offset, origin);
}

void clear(Input* input, Subject* subject) {
    bool const erase = input->flag();
    subject->stream.clear(erase);
    subject->position = 0;
    subject->hasError = false;
    if (erase) {
        subject->bitSize = 0;
        subject->bits.assign(subject->bits.size(), false);
    }
}

void current(Input* input, Subject* subject) {
    if (subject->position >= subject->bits.size()) {
        return;  // nothing is checked there
    }
    unsigned int const at = subject->position++;
    unsigned int const kind = input->upTo(3);
    if (kind == 0) {
        FUZZ_EXPECT(subject->stream.readCurBit() == subject->bits[at]);
        return;
    }
    subject->stream.writeCurBit(static_cast<unsigned char>(kind - 1));
    subject->bits[at] = kind != 1;
    subject->bitSize = std::max(subject->bitSize, subject->position);
}

void store(Input* input, Subject*) {
    auto const value = input->number<unsigned int>();
    auto const half = static_cast<unsigned short>(value);
    auto const bytes = fuzz::blockOf<unsigned char>(4);
    FUZZ_EXPECT(utl::serialize(value, bytes.get()));
    unsigned int again = 0;
    FUZZ_EXPECT(utl::unserialize(bytes.get(), &again) && again == value);
    for (unsigned int i = 0; i < 4; ++i) {
        FUZZ_EXPECT(bytes[i] == (value >> 8 * i & 0xFF));
    }
    unsigned short halfAgain = 0;
    auto const two = fuzz::blockOf<unsigned char>(2);
    FUZZ_EXPECT(utl::serialize(half, two.get()) && utl::unserialize(two.get(), &halfAgain) &&
                halfAgain == half);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    Input input(data, size);
    Subject subject(1 + input.upTo(BYTES_MAX - 1));
    static constexpr void (*STEPS[])(Input*, Subject*) = {read, write, readData, writeData, copy,
                                                          seek, clear, current,  store};
    while (!input.isAtEnd()) {
        STEPS[input.upTo(std::size(STEPS) - 1)](&input, &subject);
        expectSame(subject);
    }
    return 0;
}

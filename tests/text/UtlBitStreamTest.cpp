// Starts no thread.

#include "UtlBitStream.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <memory>
#include <random>
#include <type_traits>
#include <utility>
#include <vector>

#include "TestBits.h"

using utl::BitStream;

namespace {

using utltest::Bits;
using utltest::bitsOf;
using utltest::blockOf;
using utltest::Bytes;
using utltest::errorOf;

static_assert(!std::is_polymorphic_v<BitStream>);

static_assert(BitStream::CURRENT_POSITION == -1);
static_assert(BitStream::SEEK_FROM_START == 0 && BitStream::SEEK_FROM_POSITION == 1 &&
              BitStream::SEEK_FROM_END == 2);
static_assert(
    std::is_nothrow_default_constructible_v<BitStream>&& noexcept(std::declval<BitStream&>().readBitToUint64(
        1,
        BitStream::
            CURRENT_POSITION)) && noexcept(std::declval<BitStream&>()
                                               .writeBitToUint64(
                                                   1, 1,
                                                   BitStream::
                                                       CURRENT_POSITION)) && noexcept(std::declval<BitStream&>()
                                                                                          .copy(
                                                                                              std::declval<
                                                                                                  BitStream&>(),
                                                                                              0)));
static_assert(noexcept(utl::serialize(1U, nullptr)) && noexcept(
    utl::unserialize(nullptr, static_cast<unsigned int*>(nullptr))));

TEST(BitStream, TheNamedOrigins_SeekFromTheStartThePositionAndTheEnd) {
    Bytes bytes(4);
    BitStream stream(bytes.data(), 4);
    stream.writeBitToUint32(1, 20, BitStream::CURRENT_POSITION);
    stream.seekBitOffset(3, BitStream::SEEK_FROM_START);
    EXPECT_EQ(stream.getBitPosition(), 3U);
    stream.seekBitOffset(4, BitStream::SEEK_FROM_POSITION);
    EXPECT_EQ(stream.getBitPosition(), 7U);
    stream.seekBitOffset(1, BitStream::SEEK_FROM_END);
    EXPECT_EQ(stream.getBitPosition(), 21U);
}

bool bitOf(unsigned char const* bytes, std::size_t position) {
    return (bytes[position / 8] >> (7 - position % 8) & 1) != 0;
}

void setBit(unsigned char* bytes, std::size_t position, bool bit) {
    auto const mask = static_cast<unsigned char>(0x80U >> (position % 8));
    bytes[position / 8] =
        static_cast<unsigned char>(bit ? bytes[position / 8] | mask : bytes[position / 8] & ~mask);
}

// The field as one who counts single bits reads it.
unsigned long long fieldOf(Bytes const& bytes, std::size_t start, unsigned int bits) {
    unsigned long long value = 0;
    for (unsigned int i = 0; i < bits; ++i) {
        value = value << 1 | (bitOf(bytes.data(), start + i) ? 1 : 0);
    }
    return value;
}

void setField(Bytes& bytes, std::size_t start, unsigned long long value, unsigned int bits) {
    for (unsigned int i = 0; i < bits; ++i) {
        setBit(bytes.data(), start + i, (value >> (bits - 1 - i) & 1) != 0);
    }
}

Bytes randomBytes(std::mt19937& lots, std::size_t count) {
    Bytes bytes(count);
    std::generate(bytes.begin(), bytes.end(), [&lots] { return static_cast<unsigned char>(lots()); });
    return bytes;
}

unsigned int sizeOf(Bytes const& bytes) {
    return static_cast<unsigned int>(bytes.size());
}

// The four widths under one name.
template <typename T, T (BitStream::*READ)(unsigned int, int), void (BitStream::*WRITE)(T, unsigned int, int)>
struct Width {
    static constexpr unsigned int BITS = sizeof(T) * 8;
    static unsigned long long read(BitStream& stream, unsigned int bits, int position) {
        return (stream.*READ)(bits, position);
    }
    static void write(BitStream& stream, unsigned long long value, unsigned int bits, int position) {
        (stream.*WRITE)(static_cast<T>(value), bits, position);
    }
};

using Width8 = Width<unsigned char, &BitStream::readBitToUint8, &BitStream::writeBitToUint8>;
using Width16 = Width<unsigned short, &BitStream::readBitToUint16, &BitStream::writeBitToUint16>;
using Width32 = Width<unsigned int, &BitStream::readBitToUint32, &BitStream::writeBitToUint32>;
using Width64 = Width<unsigned long long, &BitStream::readBitToUint64, &BitStream::writeBitToUint64>;

constexpr unsigned long long ALL_ONES = ~0ULL;
constexpr int CURRENT = -1;

// Reads return 0 permanently where there are ones to read: that is all one sees of an error.
bool hasFailed(BitStream& stream) {
    return stream.readBitToUint8(1, 0) == 0;
}

TEST(BitStream, DefaultConstruction_HasNoBufferAndNoBits) {
    BitStream const stream;
    EXPECT_EQ(stream.getBitStreamAddress(), nullptr);
    EXPECT_EQ(stream.getBitStreamSize(), 0U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 0U);
    EXPECT_EQ(stream.getBitPosition(), 0U);
}

TEST(BitStream, WithoutABuffer_EveryAccessToABitIsAnError) {
    BitStream stream;
    EXPECT_EQ(stream.readBitToUint8(1, CURRENT), 0);
    unsigned char buffer[1] = {0xFF};
    stream.clear(true);
    stream.writeBitToUint8(1, 1, 0);
    stream.seekBitOffset(1, 0);
    EXPECT_EQ(stream.getBitPosition(), 0U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 0U);
    ASSERT_TRUE(stream.setBitStream(buffer, 1));
    EXPECT_FALSE(hasFailed(stream));
}

TEST(BitStream, ConstructionWithABuffer_LeavesItsBytesAlone) {
    unsigned char buffer[2] = {0x12, 0x34};
    BitStream stream(buffer, 2);
    EXPECT_EQ(stream.getBitStreamAddress(), buffer);
    EXPECT_EQ(stream.getBitStreamBitSize(), 0U);
    EXPECT_EQ(stream.readBitToUint16(16, CURRENT), 0x1234);
}

TEST(BitStream, ConstructionWithNullOrNoBytes_HasNoBuffer) {
    unsigned char buffer[1] = {};
    EXPECT_EQ(BitStream(nullptr, 5).getBitStreamAddress(), nullptr);
    EXPECT_EQ(BitStream(buffer, 0).getBitStreamAddress(), nullptr);
}

TEST(BitStream, SetBitStream_OnNullOrNoBytes_IsFalseAndChangesNothing) {
    unsigned char buffer[2] = {0xAB, 0xCD};
    BitStream stream(buffer, 2);
    stream.seekBitOffset(4, 0);
    unsigned char other[2] = {};
    EXPECT_FALSE(stream.setBitStream(nullptr, 2));
    EXPECT_FALSE(stream.setBitStream(other, 0));
    EXPECT_EQ(stream.getBitStreamAddress(), buffer);
    EXPECT_EQ(stream.getBitStreamBitSize(), 4U);
    EXPECT_EQ(stream.readBitToUint8(8, CURRENT), 0xBC);
}

TEST(BitStream, SetBitStream_OnNull_KeepsTheErrorToo) {
    unsigned char buffer[1] = {0xFF};
    BitStream stream(buffer, 1);
    stream.seekBitOffset(0, 3);
    EXPECT_FALSE(stream.setBitStream(nullptr, 1));
    EXPECT_TRUE(hasFailed(stream));
}

TEST(BitStream, SetBitStream_BeginsAnewAndForgetsTheError) {
    unsigned char first[2] = {0xFF, 0xFF};
    unsigned char second[1] = {0x80};
    BitStream stream(first, 2);
    stream.seekBitOffset(9, 0);
    stream.seekBitOffset(0, 3);
    ASSERT_TRUE(stream.setBitStream(second, 1));
    EXPECT_EQ(stream.getBitStreamAddress(), second);
    EXPECT_EQ(stream.getBitStreamBitSize(), 0U);
    EXPECT_EQ(stream.getBitPosition(), 0U);
    EXPECT_EQ(second[0], 0x80);
    EXPECT_FALSE(hasFailed(stream));
}

TEST(BitStream, IsNotCopyable) {
    EXPECT_FALSE(std::is_copy_constructible_v<BitStream>);
    EXPECT_FALSE(std::is_copy_assignable_v<BitStream>);
}

TEST(BitStream, Clear_WithoutErase_KeepsTheSizeAndTheBytes) {
    unsigned char buffer[2] = {};
    BitStream stream(buffer, 2);
    stream.writeBitToUint16(0xFFF, 12, CURRENT);
    stream.clear(false);
    EXPECT_EQ(stream.getBitPosition(), 0U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 12U);
    EXPECT_EQ(buffer[0], 0xFF);
    EXPECT_EQ(buffer[1], 0xF0);
}

TEST(BitStream, Clear_WithErase_ZeroesTheWholeBufferAndTheSize) {
    unsigned char buffer[4] = {0xFF, 0xFF, 0xFF, 0xAA};
    BitStream stream(buffer, 3);
    stream.writeBitToUint8(1, 1, CURRENT);
    stream.clear(true);
    EXPECT_EQ(stream.getBitPosition(), 0U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 0U);
    EXPECT_EQ(buffer[0] | buffer[1] | buffer[2], 0);
    EXPECT_EQ(buffer[3], 0xAA);
}

TEST(BitStream, TheExampleOfTheGuide_GivesWhatItSays) {
    unsigned char bytes[4] = {};
    utl::BitStream stream(bytes, 4);
    stream.writeBitToUint8(0x5, 3, -1);
    EXPECT_EQ(bytes[0], 0xA0);
    stream.writeBitToUint16(0x1FF, 9, -1);
    stream.clear(false);
    EXPECT_EQ(stream.readBitToUint8(3, -1), 5);
}

TEST(BitStream, Write_OfThreeBits_FillsTheByteFromItsTop) {
    unsigned char buffer[1] = {};
    BitStream stream(buffer, 1);
    stream.writeBitToUint8(0x5, 3, CURRENT);
    EXPECT_EQ(buffer[0], 0xA0);
    EXPECT_EQ(stream.getBitPosition(), 3U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 3U);
}

TEST(BitStream, Write_OfSixteenBits_PutsTheHighByteFirst) {
    unsigned char buffer[2] = {};
    BitStream stream(buffer, 2);
    stream.writeBitToUint16(0x1234, 16, CURRENT);
    EXPECT_EQ(buffer[0], 0x12);
    EXPECT_EQ(buffer[1], 0x34);
}

TEST(BitStream, CurBits_AreReadAndWrittenFromTheTopOfTheByte) {
    unsigned char buffer[2] = {0x0F, 0xFF};
    BitStream stream(buffer, 2);
    stream.writeCurBit(1);
    stream.writeCurBit(0x80);
    stream.writeCurBit(0);
    EXPECT_EQ(buffer[0], 0xCF);
    EXPECT_EQ(stream.getBitPosition(), 3U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 3U);
    EXPECT_FALSE(stream.readCurBit());
    EXPECT_TRUE(stream.readCurBit());
    EXPECT_EQ(stream.getBitPosition(), 5U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 3U);
}

TEST(BitStream, CurBits_WorkInSpiteOfTheError) {
    unsigned char buffer[1] = {0x80};
    BitStream stream(buffer, 1);
    stream.seekBitOffset(0, 3);
    EXPECT_TRUE(stream.readCurBit());
    stream.writeCurBit(1);
    EXPECT_EQ(buffer[0], 0xC0);
    EXPECT_EQ(stream.getBitStreamBitSize(), 2U);
}

template <typename WIDTH>
class BitStreamWidth : public testing::Test {};
using Widths = testing::Types<Width8, Width16, Width32, Width64>;
TYPED_TEST_SUITE(BitStreamWidth, Widths);

TYPED_TEST(BitStreamWidth, Read_AtEveryPlaceAndWidth_GivesWhatSingleBitsGive) {
    std::mt19937 lots(1);
    for (unsigned int bits = 0; bits <= TypeParam::BITS; ++bits) {
        for (unsigned int start = 0; start < 24; ++start) {
            unsigned int const size = (start + bits + 7) / 8 + (start + bits == 0 ? 1 : 0);
            Bytes bytes = randomBytes(lots, size);
            BitStream stream(bytes.data(), size);
            stream.seekBitOffset(start, 0);
            unsigned long long const expected = fieldOf(bytes, start, bits);
            EXPECT_EQ(TypeParam::read(stream, bits, CURRENT), expected) << bits << " at " << start;
            EXPECT_EQ(stream.getBitPosition(), start + bits);
            EXPECT_EQ(stream.getBitStreamBitSize(), start);
            EXPECT_EQ(TypeParam::read(stream, bits, static_cast<int>(start)), expected);
            EXPECT_EQ(stream.getBitPosition(), start + bits);
        }
    }
}

TYPED_TEST(BitStreamWidth, Write_AtEveryPlaceAndWidth_ChangesThoseBitsAlone) {
    std::mt19937 lots(2);
    for (unsigned int bits = 0; bits <= TypeParam::BITS; ++bits) {
        for (unsigned int start = 0; start < 24; ++start) {
            unsigned int const size = (start + bits + 7) / 8 + 1;
            Bytes bytes = randomBytes(lots, size);
            Bytes expected = bytes;
            unsigned long long const value = 1ULL * lots() << 32 | lots();
            setField(expected, start, value, bits);
            BitStream stream(bytes.data(), size);
            stream.seekBitOffset(start, 0);
            TypeParam::write(stream, value, bits, CURRENT);
            EXPECT_EQ(bytes, expected) << bits << " at " << start;
            EXPECT_EQ(stream.getBitPosition(), start + bits);
            EXPECT_EQ(stream.getBitStreamBitSize(), start + bits);
        }
    }
}

TYPED_TEST(BitStreamWidth, Write_AtAnAbsolutePosition_RaisesTheSizeAndLeavesThePosition) {
    Bytes bytes(16);
    BitStream stream(bytes.data(), sizeOf(bytes));
    stream.seekBitOffset(3, 0);
    TypeParam::write(stream, ALL_ONES, 5, 40);
    EXPECT_EQ(bytes[5], 0xF8);
    EXPECT_EQ(stream.getBitPosition(), 3U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 45U);
    TypeParam::write(stream, ALL_ONES, 5, 0);
    EXPECT_EQ(stream.getBitPosition(), 3U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 45U);
}

TYPED_TEST(BitStreamWidth, Read_UpToTheBuffersLastBit_WorksAndOneBitMoreIsAnError) {
    for (unsigned int bits = 1; bits <= TypeParam::BITS; ++bits) {
        Bytes bytes(9, 0xFF);
        BitStream stream(bytes.data(), sizeOf(bytes));
        int const last = static_cast<int>(72 - bits);
        EXPECT_EQ(TypeParam::read(stream, bits, last), ALL_ONES >> (64 - bits));
        EXPECT_EQ(TypeParam::read(stream, bits, last + 1), 0U);
        EXPECT_TRUE(hasFailed(stream));
        stream.clear(false);
        stream.seekBitOffset(static_cast<unsigned int>(last), 0);
        EXPECT_EQ(TypeParam::read(stream, bits, CURRENT), ALL_ONES >> (64 - bits));
        EXPECT_EQ(TypeParam::read(stream, 1, CURRENT), 0U);
        EXPECT_TRUE(hasFailed(stream));
        EXPECT_EQ(stream.getBitPosition(), 72U);
    }
}

TYPED_TEST(BitStreamWidth, Write_UpToTheBuffersLastBit_WorksAndOneBitMoreIsAnError) {
    for (unsigned int bits = 1; bits <= TypeParam::BITS; ++bits) {
        Bytes bytes(9, 0xF0);
        Bytes expected = bytes;
        BitStream stream(bytes.data(), sizeOf(bytes));
        setField(expected, 72 - bits, ALL_ONES, bits);
        TypeParam::write(stream, ALL_ONES, bits, static_cast<int>(72 - bits));
        EXPECT_EQ(bytes, expected);
        TypeParam::write(stream, 0, bits, static_cast<int>(73 - bits));
        EXPECT_EQ(bytes, expected);
        EXPECT_TRUE(hasFailed(stream));
        stream.clear(false);
        stream.seekBitOffset(73 - bits, 0);
        TypeParam::write(stream, 0, bits, CURRENT);
        EXPECT_EQ(bytes, expected);
        EXPECT_TRUE(hasFailed(stream));
        EXPECT_EQ(stream.getBitPosition(), 73 - bits);
    }
}

TYPED_TEST(BitStreamWidth, AWidthOfMoreBitsThanTheType_IsAnError) {
    for (unsigned int const bits : {TypeParam::BITS + 1, ~0U}) {
        Bytes bytes(16, 0xFF);
        BitStream stream(bytes.data(), sizeOf(bytes));
        EXPECT_EQ(TypeParam::read(stream, bits, CURRENT), 0U);
        EXPECT_TRUE(hasFailed(stream));
        EXPECT_EQ(stream.getBitPosition(), 0U);
        stream.clear(false);
        TypeParam::write(stream, 0, bits, CURRENT);
        EXPECT_TRUE(hasFailed(stream));
        EXPECT_EQ(bytes, Bytes(16, 0xFF));
        EXPECT_EQ(stream.getBitStreamBitSize(), 0U);
    }
}

TYPED_TEST(BitStreamWidth, AWidthOfZero_DoesNothingWhateverThePosition) {
    Bytes bytes(1, 0xFF);
    BitStream stream(bytes.data(), 1);
    for (int const position : {INT_MIN, -2, -1, 0, 8, 9, INT_MAX}) {
        EXPECT_EQ(TypeParam::read(stream, 0, position), 0U);
        TypeParam::write(stream, 0, 0, position);
    }
    EXPECT_FALSE(hasFailed(stream));
    EXPECT_EQ(stream.getBitPosition(), 0U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 0U);
}

TYPED_TEST(BitStreamWidth, APositionBelowMinusOne_IsAnError) {
    for (int const position : {-2, INT_MIN}) {
        Bytes bytes(8, 0xFF);
        BitStream stream(bytes.data(), sizeOf(bytes));
        EXPECT_EQ(TypeParam::read(stream, 1, position), 0U);
        EXPECT_TRUE(hasFailed(stream));
        stream.clear(false);
        TypeParam::write(stream, 0, 1, position);
        EXPECT_TRUE(hasFailed(stream));
        EXPECT_EQ(bytes, Bytes(8, 0xFF));
    }
}

TYPED_TEST(BitStreamWidth, AnErrorLasts_UntilTheStreamIsCleared) {
    Bytes bytes(8, 0xFF);
    BitStream stream(bytes.data(), sizeOf(bytes));
    TypeParam::write(stream, 0, 1, -2);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(TypeParam::read(stream, 4, CURRENT), 0U);
        TypeParam::write(stream, 0, 4, CURRENT);
        TypeParam::write(stream, 0, 4, 0);
    }
    EXPECT_EQ(bytes, Bytes(8, 0xFF));
    EXPECT_EQ(stream.getBitPosition(), 0U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 0U);
    stream.clear(false);
    EXPECT_EQ(TypeParam::read(stream, 4, CURRENT), 0xFU);
    TypeParam::write(stream, 0, 4, CURRENT);
    EXPECT_EQ(bytes[0], 0xF0);
}

TEST(BitStream, Read_OfNineBitsToUint8_SetsTheErrorAndGivesZero) {
    unsigned char buffer[2] = {0xFF, 0xFF};
    BitStream stream(buffer, 2);
    EXPECT_EQ(stream.readBitToUint8(9, CURRENT), 0);
    EXPECT_TRUE(hasFailed(stream));
}

TEST(BitStream, Read_GoesOverBitsThatWereNeverWritten) {
    unsigned char buffer[2] = {0x00, 0x5A};
    BitStream stream(buffer, 2);
    stream.writeBitToUint8(0xFF, 4, CURRENT);
    EXPECT_EQ(stream.readBitToUint16(12, CURRENT), 0x05A);
    EXPECT_EQ(stream.getBitStreamBitSize(), 4U);
}

TEST(BitStream, Access_TouchesNoByteBesideItsBits) {
    // The field fills its bytes to the last bit, and a sanitizer watches both ends of them.
    for (unsigned int bytes = 1; bytes <= 8; ++bytes) {
        auto const buffer = std::make_unique<unsigned char[]>(bytes);
        BitStream stream(buffer.get(), bytes);
        stream.writeBitToUint64(ALL_ONES, bytes * 8, CURRENT);
        EXPECT_EQ(stream.readBitToUint64(bytes * 8, 0), ALL_ONES >> (64 - bytes * 8));
        stream.writeBitToUint64(0, bytes * 8 - 1, 1);
        EXPECT_EQ(stream.readBitToUint64(bytes * 8 - 1, 1), 0U);
        EXPECT_EQ(stream.readBitToUint64(1, 0), 1U);
    }
}

TEST(BitStream, Read_NearTheEndOfTheBuffer_GivesWhatSingleBitsGive) {
    // Fields of every width and offset, with all distances from their first byte to the end of the buffer.
    for (unsigned int size = 5; size <= 12; ++size) {
        auto const buffer = std::make_unique<unsigned char[]>(size);
        for (unsigned int i = 0; i < size; ++i) {
            buffer[i] = static_cast<unsigned char>(i * 151 + 77);
        }
        BitStream stream(buffer.get(), size);
        for (unsigned int bits = 1; bits <= 32; ++bits) {
            for (unsigned int start = 0; start + bits <= size * 8; ++start) {
                unsigned int expected = 0;
                for (unsigned int bit = start; bit < start + bits; ++bit) {
                    expected = expected << 1 | (buffer[bit / 8] >> (7 - bit % 8) & 1U);
                }
                ASSERT_EQ(stream.readBitToUint32(bits, static_cast<int>(start)), expected)
                    << bits << ' ' << start;
            }
        }
    }
}

TEST(BitStream, GetBitStreamSize_RoundsUpToWholeBytes) {
    unsigned char buffer[3] = {};
    unsigned int const sizes[] = {0, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2, 2, 2, 2, 3};
    for (unsigned int bits = 0; bits < std::size(sizes); ++bits) {
        BitStream stream(buffer, 3);
        stream.seekBitOffset(bits, 0);
        EXPECT_EQ(stream.getBitStreamSize(), sizes[bits]) << bits;
        EXPECT_EQ(stream.getBitStreamBitSize(), bits);
    }
}

TEST(BitStream, Seek_CountsFromTheStartThePositionOrTheEndOfWhatWasWritten) {
    unsigned char buffer[8] = {};
    BitStream stream(buffer, 8);
    stream.writeBitToUint32(0, 20, CURRENT);
    stream.seekBitOffset(5, 0);
    EXPECT_EQ(stream.getBitPosition(), 5U);
    stream.seekBitOffset(7, 1);
    EXPECT_EQ(stream.getBitPosition(), 12U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 20U);
    stream.seekBitOffset(3, 2);
    EXPECT_EQ(stream.getBitPosition(), 23U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 23U);
    stream.seekBitOffset(0, 0);
    EXPECT_EQ(stream.getBitPosition(), 0U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 23U);
}

TEST(BitStream, Seek_BeyondWhatWasWritten_CountsAsWriting) {
    unsigned char buffer[2] = {0xFF, 0xFF};
    BitStream stream(buffer, 2);
    stream.seekBitOffset(8, 0);
    EXPECT_EQ(stream.getBitStreamSize(), 1U);
    EXPECT_EQ(buffer[0], 0xFF);
}

TEST(BitStream, Seek_ToTheEndOfTheBufferWorks_AndOneBitBeyondIsAnErrorThatKeepsThePosition) {
    for (int origin = 0; origin <= 2; ++origin) {
        unsigned char buffer[4] = {0xFF};
        BitStream stream(buffer, 4);
        stream.seekBitOffset(6, 0);
        unsigned int const base = origin == 0 ? 0 : 6;
        stream.seekBitOffset(33 - base, origin);
        EXPECT_EQ(stream.getBitPosition(), 6U);
        EXPECT_EQ(stream.getBitStreamBitSize(), 6U);
        EXPECT_TRUE(hasFailed(stream));
        stream.clear(false);
        stream.seekBitOffset(6, 0);
        stream.seekBitOffset(32 - base, origin);
        EXPECT_EQ(stream.getBitPosition(), 32U);
        EXPECT_EQ(stream.getBitStreamBitSize(), 32U);
        EXPECT_FALSE(hasFailed(stream));
    }
}

TEST(BitStream, Seek_WhoseSumPasses32Bits_IsAnErrorAndNotAPlaceNearTheStart) {
    for (int const origin : {1, 2}) {
        unsigned char buffer[4] = {0xFF};
        BitStream stream(buffer, 4);
        stream.seekBitOffset(6, 0);
        stream.seekBitOffset(~0U, origin);
        EXPECT_EQ(stream.getBitPosition(), 6U);
        EXPECT_TRUE(hasFailed(stream));
    }
}

TEST(BitStream, Seek_FromAnOriginThatIsNone_IsAnErrorThatKeepsThePosition) {
    for (int const origin : {INT_MIN, -1, 3, INT_MAX}) {
        unsigned char buffer[4] = {0xFF};
        BitStream stream(buffer, 4);
        stream.seekBitOffset(2, 0);
        stream.seekBitOffset(1, origin);
        EXPECT_EQ(stream.getBitPosition(), 2U);
        EXPECT_TRUE(hasFailed(stream));
    }
}

TEST(BitStream, Seek_WorksInSpiteOfTheErrorAndKeepsIt) {
    unsigned char buffer[4] = {0xFF};
    BitStream stream(buffer, 4);
    stream.seekBitOffset(0, 3);
    stream.seekBitOffset(9, 0);
    EXPECT_EQ(stream.getBitPosition(), 9U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 9U);
    EXPECT_TRUE(hasFailed(stream));
}

TEST(BitStream, AFieldThatEndsBehind32BitsOfPosition_IsAnErrorInTheLargestBufferToo) {
    // No byte of it is touched: each access below is refused.
    unsigned char buffer[1] = {0xFF};
    BitStream stream(buffer, ~0U);
    stream.seekBitOffset(~0U, 0);
    EXPECT_EQ(stream.getBitPosition(), ~0U);
    EXPECT_EQ(stream.getBitStreamSize(), 0x20000000U);
    EXPECT_EQ(stream.readBitToUint8(1, CURRENT), 0);
    EXPECT_TRUE(hasFailed(stream));
    stream.clear(false);
    stream.seekBitOffset(~0U - 3, 0);
    stream.writeBitToUint8(0xFF, 8, CURRENT);
    EXPECT_EQ(stream.getBitPosition(), ~0U - 3);
    EXPECT_TRUE(hasFailed(stream));
    stream.clear(false);
    stream.seekBitOffset(~0U, 0);
    stream.seekBitOffset(1, 1);
    EXPECT_EQ(stream.getBitPosition(), ~0U);
    EXPECT_TRUE(hasFailed(stream));
}

TEST(BitStream, ADataAccessWhoseSumPasses32Bits_IsAnError) {
    unsigned char buffer[2] = {0xFF, 0xFF};
    unsigned char data[2] = {};
    BitStream stream(buffer, 2);
    stream.seekBitOffset(8, 0);
    stream.readBitData(data, ~0U, CURRENT);
    EXPECT_TRUE(hasFailed(stream));
    stream.clear(false);
    stream.writeBitData(data, ~0U, 1);
    EXPECT_TRUE(hasFailed(stream));
    EXPECT_EQ(data[0] | data[1], 0);
    EXPECT_EQ(buffer[0] & buffer[1], 0xFF);
}

TEST(BitStream, ReadBitData_OfTwelveBits_ZeroesTheRestOfTheSecondByte) {
    unsigned char buffer[2] = {0xAB, 0xCD};
    BitStream stream(buffer, 2);
    unsigned char data[3] = {0xEE, 0xEE, 0xEE};
    stream.readBitData(data, 12, CURRENT);
    EXPECT_EQ(data[0], 0xAB);
    EXPECT_EQ(data[1], 0xC0);
    EXPECT_EQ(data[2], 0xEE);
    EXPECT_EQ(stream.getBitPosition(), 12U);
}

TEST(BitStream, ReadBitData_AtEveryPlaceAndLength_GivesThoseBitsAndZeroes) {
    std::mt19937 lots(3);
    for (unsigned int bits = 0; bits <= 40; ++bits) {
        for (unsigned int start = 0; start <= 17; ++start) {
            Bytes bytes = randomBytes(lots, (start + bits + 7) / 8 + 1);
            Bytes expected((bits + 7) / 8);
            for (unsigned int i = 0; i < bits; ++i) {
                setBit(expected.data(), i, bitOf(bytes.data(), start + i));
            }
            for (int const position : {CURRENT, static_cast<int>(start)}) {
                BitStream stream(bytes.data(), sizeOf(bytes));
                stream.seekBitOffset(start, 0);
                Bytes data(expected.size(), 0xEE);
                data.push_back(0xEE);
                stream.readBitData(data.data(), bits, position);
                EXPECT_EQ(data.back(), 0xEE);
                data.pop_back();
                EXPECT_EQ(data, expected) << bits << " at " << start;
                EXPECT_EQ(stream.getBitPosition(), position == CURRENT ? start + bits : start);
                EXPECT_EQ(stream.getBitStreamBitSize(), start);
            }
        }
    }
}

TEST(BitStream, WriteBitData_AtEveryPlaceAndLength_WritesThoseBitsAlone) {
    std::mt19937 lots(4);
    for (unsigned int bits = 0; bits <= 40; ++bits) {
        for (unsigned int start = 0; start <= 17; ++start) {
            Bytes const before = randomBytes(lots, (start + bits + 7) / 8 + 1);
            Bytes const data = randomBytes(lots, (bits + 7) / 8 + 1);
            Bytes expected = before;
            for (unsigned int i = 0; i < bits; ++i) {
                setBit(expected.data(), start + i, bitOf(data.data(), i));
            }
            for (int const position : {CURRENT, static_cast<int>(start)}) {
                Bytes bytes = before;
                BitStream stream(bytes.data(), sizeOf(bytes));
                stream.seekBitOffset(position == CURRENT ? start : 0, 0);
                stream.writeBitData(data.data(), bits, position);
                EXPECT_EQ(bytes, expected) << bits << " at " << start;
                EXPECT_EQ(stream.getBitPosition(), position == CURRENT ? start + bits : 0);
                EXPECT_EQ(stream.getBitStreamBitSize(), bits == 0 && position != CURRENT ? 0 : start + bits);
            }
        }
    }
}

TEST(BitStream, DataAccess_NeitherReadsNorWritesBehindTheGivenBits) {
    for (unsigned int start = 0; start < 8; ++start) {
        unsigned int const bits = 32 - start;
        unsigned int const bytes = (bits + 7) / 8;
        auto const buffer = std::make_unique<unsigned char[]>(4);
        auto const data = std::make_unique<unsigned char[]>(bytes);
        std::memset(data.get(), 0xFF, bytes);
        BitStream stream(buffer.get(), 4);
        stream.writeBitData(data.get(), bits, static_cast<int>(start));
        std::memset(data.get(), 0, bytes);
        stream.readBitData(data.get(), bits, static_cast<int>(start));
        EXPECT_EQ(stream.getBitStreamBitSize(), 32U);
        EXPECT_EQ(data[0], 0xFF);
        EXPECT_EQ(buffer[0], 0xFF >> start);
    }
}

TEST(BitStream, DataAccess_UpToTheBuffersLastBitWorks_AndOneBitMoreIsAnError) {
    for (unsigned int start = 0; start < 8; ++start) {
        Bytes bytes(3, 0xFF);
        Bytes data(4, 0x55);
        BitStream stream(bytes.data(), 3);
        auto const position = static_cast<int>(start);
        stream.readBitData(data.data(), 25 - start, position);
        EXPECT_EQ(data, Bytes(4, 0x55));
        EXPECT_TRUE(hasFailed(stream));
        stream.clear(false);
        stream.writeBitData(data.data(), 25 - start, position);
        EXPECT_EQ(bytes, Bytes(3, 0xFF));
        EXPECT_EQ(stream.getBitStreamBitSize(), 0U);
        EXPECT_TRUE(hasFailed(stream));
        stream.clear(false);
        stream.readBitData(data.data(), 24 - start, position);
        EXPECT_EQ(data[0], 0xFF);
        stream.writeBitData(data.data(), 24 - start, position);
        EXPECT_EQ(stream.getBitStreamBitSize(), 24U);
        EXPECT_FALSE(hasFailed(stream));
    }
}

TEST(BitStream, DataAccess_WithNull_IsAnErrorWhateverTheLength) {
    unsigned char buffer[1] = {0xFF};
    BitStream stream(buffer, 1);
    stream.readBitData(nullptr, 0, CURRENT);
    EXPECT_TRUE(hasFailed(stream));
    stream.clear(false);
    stream.writeBitData(nullptr, 0, CURRENT);
    EXPECT_TRUE(hasFailed(stream));
}

TEST(BitStream, DataAccess_OfNoBits_DoesNothingWhateverThePosition) {
    unsigned char buffer[1] = {0xFF};
    unsigned char data[1] = {0x55};
    BitStream stream(buffer, 1);
    stream.readBitData(data, 0, -2);
    stream.writeBitData(data, 0, -2);
    stream.readBitData(data, 0, 9);
    stream.writeBitData(data, 0, 9);
    EXPECT_FALSE(hasFailed(stream));
    EXPECT_EQ(data[0], 0x55);
    EXPECT_EQ(stream.getBitStreamBitSize(), 0U);
}

TEST(BitStream, DataAccess_BelowMinusOne_IsAnError) {
    for (int const position : {-2, INT_MIN}) {
        unsigned char buffer[1] = {0xFF};
        unsigned char data[1] = {0x55};
        BitStream stream(buffer, 1);
        stream.readBitData(data, 8, position);
        EXPECT_TRUE(hasFailed(stream));
        stream.clear(false);
        stream.writeBitData(data, 8, position);
        EXPECT_TRUE(hasFailed(stream));
        EXPECT_EQ(buffer[0], 0xFF);
        EXPECT_EQ(data[0], 0x55);
    }
}

TEST(BitStream, DataAccess_AfterAnError_DoesNothing) {
    unsigned char buffer[1] = {0xFF};
    unsigned char data[1] = {0x55};
    BitStream stream(buffer, 1);
    stream.seekBitOffset(0, 3);
    stream.readBitData(data, 8, CURRENT);
    stream.writeBitData(data, 8, CURRENT);
    EXPECT_EQ(buffer[0], 0xFF);
    EXPECT_EQ(data[0], 0x55);
    EXPECT_EQ(stream.getBitPosition(), 0U);
}

// What `copy` leaves in the target, computed bit by bit.
void copyBits(Bytes& target, unsigned int start, Bytes const& source, unsigned int bits) {
    unsigned int const bytes = (bits + 7) / 8;
    if (start % 8 == 0) {
        setField(target, start, fieldOf(source, 0, bytes * 8), bytes * 8);
        return;
    }
    for (unsigned int i = 0; i + 1 < bytes; ++i) {
        setField(target, start + i * 8, source[i], 8);
    }
    unsigned int const rest = bits % 8;
    setField(target, start + (bytes - 1) * 8, static_cast<unsigned int>(source[bytes - 1]) >> (7 - rest),
             rest);
}

TEST(BitStream, Copy_AtEveryPlaceAndLength_GivesWhatSingleBitsGive) {
    std::mt19937 lots(5);
    for (unsigned int bits = 1; bits <= 40; ++bits) {
        Bytes sourceBytes = randomBytes(lots, (bits + 7) / 8);
        BitStream source(sourceBytes.data(), sizeOf(sourceBytes));
        source.seekBitOffset(bits, 0);
        for (unsigned int start = 0; start <= 17; ++start) {
            Bytes const before = randomBytes(lots, 9);
            Bytes expected = before;
            copyBits(expected, start, sourceBytes, bits);
            unsigned int const lost = start % 8 != 0 && bits % 8 == 0 ? 8 : 0;
            for (int const position : {CURRENT, static_cast<int>(start)}) {
                Bytes bytes = before;
                BitStream stream(bytes.data(), sizeOf(bytes));
                stream.seekBitOffset(position == CURRENT ? start : 0, 0);
                stream.copy(source, position);
                EXPECT_EQ(bytes, expected) << bits << " at " << start;
                EXPECT_EQ(stream.getBitPosition(), position == CURRENT ? start + bits - lost : 0);
                EXPECT_EQ(stream.getBitStreamBitSize(),
                          bits == lost && position != CURRENT ? 0 : start + bits - lost);
            }
        }
    }
}

TEST(BitStream, Copy_ToAByteBoundary_TakesTheLastByteWhole) {
    unsigned char from[2] = {0xAB, 0xCD};
    BitStream source(from, 2);
    source.seekBitOffset(12, 0);
    unsigned char buffer[4] = {};
    BitStream stream(buffer, 4);
    stream.copy(source, 8);
    EXPECT_EQ(buffer[1], 0xAB);
    EXPECT_EQ(buffer[2], 0xCD);
    EXPECT_EQ(stream.getBitStreamBitSize(), 20U);
}

TEST(BitStream, Copy_ElsewhereOfWholeBytes_LeavesTheLastOneOut) {
    unsigned char from[2] = {0xFF, 0xFF};
    BitStream source(from, 2);
    source.seekBitOffset(16, 0);
    unsigned char buffer[4] = {};
    BitStream stream(buffer, 4);
    stream.seekBitOffset(4, 0);
    stream.copy(source, CURRENT);
    EXPECT_EQ(buffer[0], 0x0F);
    EXPECT_EQ(buffer[1], 0xF0);
    EXPECT_EQ(buffer[2], 0x00);
    EXPECT_EQ(stream.getBitPosition(), 12U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 12U);
}

TEST(BitStream, Copy_ElsewhereOfAPartOfAByte_TakesItsBitsOnePlaceLower) {
    unsigned char from[1] = {0x50};  // 010 in front, 101 one place lower
    BitStream source(from, 1);
    source.seekBitOffset(3, 0);
    unsigned char buffer[1] = {};
    BitStream stream(buffer, 1);
    stream.copy(source, 4);
    EXPECT_EQ(buffer[0], 0x0A);
    stream.clear(true);
    stream.writeBitData(from, 3, 4);
    EXPECT_EQ(buffer[0], 0x04);
}

TEST(BitStream, Copy_UpToTheBuffersLastBitWorks_AndOneBitMoreIsAnError) {
    for (unsigned int start = 0; start < 8; ++start) {
        unsigned char from[5] = {};
        BitStream source(from, 5);
        source.seekBitOffset(33 - start, 0);
        Bytes bytes(4, 0xFF);
        BitStream stream(bytes.data(), 4);
        stream.copy(source, static_cast<int>(start));
        EXPECT_EQ(bytes, Bytes(4, 0xFF));
        EXPECT_EQ(stream.getBitStreamBitSize(), 0U);
        EXPECT_TRUE(hasFailed(stream));
        source.setBitStream(from, 5);
        source.seekBitOffset(32 - start, 0);
        stream.clear(false);
        stream.copy(source, static_cast<int>(start));
        EXPECT_EQ(bytes[0], 0xFF & ~(0xFF >> start));
        EXPECT_EQ(stream.getBitStreamBitSize(), 32U);
    }
}

TEST(BitStream, Copy_OfAnEmptyStream_DoesNothingWhateverThePosition) {
    unsigned char buffer[1] = {0xFF};
    BitStream stream(buffer, 1);
    stream.copy(BitStream(), -2);
    stream.copy(BitStream(), 9);
    EXPECT_FALSE(hasFailed(stream));
}

TEST(BitStream, Copy_BelowMinusOne_IsAnError) {
    unsigned char from[1] = {};
    BitStream source(from, 1);
    source.seekBitOffset(8, 0);
    unsigned char buffer[1] = {0xFF};
    BitStream stream(buffer, 1);
    stream.copy(source, -2);
    EXPECT_EQ(buffer[0], 0xFF);
    EXPECT_TRUE(hasFailed(stream));
}

TEST(BitStream, Copy_AfterAnError_DoesNothing) {
    unsigned char from[1] = {};
    BitStream source(from, 1);
    source.seekBitOffset(8, 0);
    unsigned char buffer[1] = {0xFF};
    BitStream stream(buffer, 1);
    stream.seekBitOffset(0, 3);
    stream.copy(source, CURRENT);
    EXPECT_EQ(buffer[0], 0xFF);
    EXPECT_EQ(stream.getBitStreamBitSize(), 0U);
}

TEST(BitStream, Copy_LooksAtNeitherThePositionNorTheErrorOfTheSource) {
    unsigned char from[1] = {0x5A};
    BitStream source(from, 1);
    source.writeBitToUint8(0x5A, 8, CURRENT);
    source.seekBitOffset(3, 0);
    source.seekBitOffset(0, 3);
    unsigned char buffer[1] = {};
    BitStream stream(buffer, 1);
    stream.copy(source, CURRENT);
    EXPECT_EQ(buffer[0], 0x5A);
    EXPECT_EQ(source.getBitPosition(), 3U);
}

TEST(BitStream, FieldsOfRandomWidth_AreReadBackAsTheyWereWritten) {
    std::mt19937 lots(6);
    for (int round = 0; round < 50; ++round) {
        std::vector<std::pair<unsigned long long, unsigned int>> fields;
        Bytes bytes(1000);
        BitStream stream(bytes.data(), sizeOf(bytes));
        for (unsigned int total = 0; total <= 8000 - 64;) {
            unsigned int const bits = 1 + lots() % 64;
            fields.emplace_back((1ULL * lots() << 32 | lots()) >> (64 - bits), bits);
            stream.writeBitToUint64(fields.back().first, bits, CURRENT);
            total += bits;
        }
        stream.clear(false);
        for (auto const& [value, bits] : fields) {
            EXPECT_EQ(stream.readBitToUint64(bits, CURRENT), value);
        }
    }
}

TEST(BitStream, Serialize_PutsTheLowByteFirst) {
    unsigned char bytes[5] = {0, 0, 0, 0, 0xEE};
    EXPECT_TRUE(utl::serialize(0x12345678U, bytes));
    EXPECT_EQ(bytes[0], 0x78);
    EXPECT_EQ(bytes[1], 0x56);
    EXPECT_EQ(bytes[2], 0x34);
    EXPECT_EQ(bytes[3], 0x12);
    EXPECT_TRUE(utl::serialize(static_cast<unsigned short>(0xABCD), bytes));
    EXPECT_EQ(bytes[0], 0xCD);
    EXPECT_EQ(bytes[1], 0xAB);
    EXPECT_EQ(bytes[2], 0x34);
    EXPECT_EQ(bytes[4], 0xEE);
}

TEST(BitStream, Unserialize_TakesTheBytesInTheProcessorsOrder) {
    unsigned short const narrow = 0xABCD;
    unsigned int const wide = 0x12345678;
    unsigned char bytes[4] = {};
    unsigned short narrowBack = 0;
    unsigned int wideBack = 0;
    std::memcpy(bytes, &narrow, sizeof narrow);
    EXPECT_TRUE(utl::unserialize(bytes, &narrowBack));
    EXPECT_EQ(narrowBack, narrow);
    std::memcpy(bytes, &wide, sizeof wide);
    EXPECT_TRUE(utl::unserialize(bytes, &wideBack));
    EXPECT_EQ(wideBack, wide);
}

TEST(BitStream, Serialization_WithNull_IsFalseAndTouchesNothing) {
    unsigned char bytes[4] = {1, 2, 3, 4};
    unsigned short narrow = 5;
    unsigned int wide = 6;
    EXPECT_FALSE(utl::serialize(narrow, nullptr));
    EXPECT_FALSE(utl::serialize(wide, nullptr));
    EXPECT_FALSE(utl::unserialize(nullptr, &narrow));
    EXPECT_FALSE(utl::unserialize(nullptr, &wide));
    EXPECT_FALSE(utl::unserialize(bytes, static_cast<unsigned short*>(nullptr)));
    EXPECT_FALSE(utl::unserialize(bytes, static_cast<unsigned int*>(nullptr)));
    EXPECT_EQ(narrow, 5);
    EXPECT_EQ(wide, 6U);
}

TEST(BitStream, AWidthOf0_WithABadPositionOrWithoutData_IsNoErrorForFieldsAlone) {
    auto const block = blockOf(2);
    BitStream stream(block.get(), 2);
    unsigned char data = 0x5A;
    EXPECT_EQ(stream.readBitToUint32(0, -2), 0U);
    stream.writeBitToUint8(1, 0, INT_MIN);
    stream.readBitData(&data, 0, -7);
    stream.writeBitData(&data, 0, -7);
    stream.copy(BitStream(), -7);
    EXPECT_FALSE(errorOf(stream));
    EXPECT_EQ(data, 0x5A);
    stream.readBitData(nullptr, 0, -1);
    EXPECT_TRUE(errorOf(stream));
    stream.clear(false);
    stream.writeBitData(nullptr, 0, -1);
    EXPECT_TRUE(errorOf(stream));
}

TEST(BitStream, EachOperation_WithAPositionBelowMinus1_SetsTheErrorAndTouchesNothing) {
    auto const block = blockOf(4, 3);
    Bytes const before(block.get(), block.get() + 4);
    auto const sourceBlock = blockOf(1, 4);
    BitStream source(sourceBlock.get(), 1);
    source.seekBitOffset(3, 0);
    for (int const position : {-2, -3, INT_MIN}) {
        for (int operation = 0; operation < 5; ++operation) {
            BitStream stream(block.get(), 4);
            unsigned char data[2] = {1, 2};
            switch (operation) {
                case 0:
                    EXPECT_EQ(stream.readBitToUint16(1, position), 0);
                    break;
                case 1:
                    stream.writeBitToUint64(~0ULL, 1, position);
                    break;
                case 2:
                    stream.readBitData(data, 9, position);
                    break;
                case 3:
                    stream.writeBitData(data, 9, position);
                    break;
                default:
                    stream.copy(source, position);
                    break;
            }
            EXPECT_TRUE(errorOf(stream)) << operation;
            EXPECT_EQ(stream.getBitStreamBitSize(), 0U) << operation;
            EXPECT_EQ(data[0], 1);
            EXPECT_EQ(Bytes(block.get(), block.get() + 4), before) << operation;
        }
    }
}

TEST(BitStream, AFieldThatEndsOneBitBehindTheBuffer_IsAnErrorThatWritesNothing) {
    for (unsigned int start = 0; start < 16; ++start) {
        for (int operation = 0; operation < 5; ++operation) {
            auto const block = blockOf(2, start + 1);
            Bytes const before(block.get(), block.get() + 2);
            unsigned int const width = 16 - start + 1;
            auto const data = blockOf(3, 9);
            Bytes const dataBefore(data.get(), data.get() + 3);
            BitStream source(data.get(), 3);
            source.seekBitOffset(width, 0);
            BitStream stream(block.get(), 2);
            stream.seekBitOffset(start, 0);
            int const position = start % 2 == 0 ? -1 : static_cast<int>(start);
            switch (operation) {
                case 0:
                    EXPECT_EQ(stream.readBitToUint64(width, position), 0U);
                    break;
                case 1:
                    stream.writeBitToUint64(0, width, position);
                    break;
                case 2:
                    stream.readBitData(data.get(), width, position);
                    break;
                case 3:
                    stream.writeBitData(data.get(), width, position);
                    break;
                default:
                    stream.copy(source, position);
                    break;
            }
            EXPECT_TRUE(errorOf(stream)) << operation << " at " << start;
            EXPECT_EQ(stream.getBitPosition(), start);
            EXPECT_EQ(stream.getBitStreamBitSize(), start);
            EXPECT_EQ(Bytes(block.get(), block.get() + 2), before) << operation;
            EXPECT_EQ(Bytes(data.get(), data.get() + 3), dataBefore) << operation;
        }
    }
}

TEST(BitStream, AWidthNearTheEndOf32Bits_DoesNotWrapIntoTheBuffer) {
    auto const block = blockOf(2, 5);
    unsigned char data[1] = {7};
    for (unsigned int const width : {UINT_MAX, UINT_MAX - 7, UINT_MAX - 8, 0x80000000U}) {
        for (int const position : {-1, 8, INT_MAX}) {
            BitStream stream(block.get(), 2);
            stream.seekBitOffset(8, 0);
            stream.readBitData(data, width, position);
            EXPECT_TRUE(errorOf(stream));
            stream.clear(false);
            stream.seekBitOffset(8, 0);
            stream.writeBitData(data, width, position);
            EXPECT_TRUE(errorOf(stream));
        }
    }
    EXPECT_EQ(data[0], 7);
}

TEST(BitStream, Seek_PastTheEndOf32Bits_IsAnErrorAndStays) {
    auto const block = blockOf(4);
    BitStream stream(block.get(), 4);
    stream.seekBitOffset(24, 0);
    for (int const origin : {1, 2}) {
        stream.seekBitOffset(UINT_MAX - 23, origin);  // the sum is 0 in 32 bits
        EXPECT_TRUE(errorOf(stream));
        EXPECT_EQ(stream.getBitPosition(), 24U);
        EXPECT_EQ(stream.getBitStreamBitSize(), 24U);
        stream.clear(false);
        stream.seekBitOffset(24, 0);
    }
}

TEST(BitStream, ABufferOf512MiBAndMore_IsReachedUpToTheLastPositionThatHas32Bits) {
    std::size_t const size = 0x20000001;
    void* const pages =
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    auto* const bytes = static_cast<unsigned char*>(pages);
    BitStream stream(bytes, static_cast<unsigned int>(size));
    stream.writeBitToUint8(0xFF, 8, INT_MAX);
    EXPECT_EQ(bytes[INT_MAX / 8], 0x01);
    EXPECT_EQ(bytes[INT_MAX / 8 + 1], 0xFE);
    stream.seekBitOffset(UINT_MAX - 8, 0);
    stream.writeBitToUint8(0xA5, 8, -1);
    EXPECT_EQ(stream.getBitPosition(), UINT_MAX);
    EXPECT_EQ(bytes[0x1FFFFFFE], 0x01);
    EXPECT_EQ(bytes[0x1FFFFFFF], 0x4A);
    EXPECT_EQ(stream.getBitStreamSize(), 0x20000000U);
    EXPECT_EQ(stream.readBitToUint8(1, -1), 0);
    EXPECT_TRUE(errorOf(stream));
    munmap(pages, size);
}

TEST(BitStream, AnErrorIsKeptBySeeksAndBareBits_WhichWorkOn) {
    auto const block = blockOf(1);
    BitStream stream(block.get(), 1);
    stream.seekBitOffset(0, 3);
    ASSERT_TRUE(errorOf(stream));
    stream.seekBitOffset(2, 0);
    stream.writeCurBit(0x80);
    EXPECT_EQ(block[0], 0x20);
    stream.seekBitOffset(2, 0);
    EXPECT_TRUE(stream.readCurBit());
    EXPECT_EQ(stream.getBitPosition(), 3U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 3U);
    EXPECT_EQ(stream.readBitToUint8(1, 2), 0);
    unsigned char data = 9;
    stream.readBitData(&data, 3, 0);
    EXPECT_EQ(data, 9);
    EXPECT_TRUE(errorOf(stream));
}

TEST(BitStream, SetBitStream_ThatFails_KeepsTheErrorAndAllElse) {
    auto const block = blockOf(2, 8);
    BitStream stream(block.get(), 2);
    stream.seekBitOffset(9, 0);
    stream.seekBitOffset(0, -1);
    EXPECT_FALSE(stream.setBitStream(nullptr, 5));
    EXPECT_FALSE(stream.setBitStream(block.get() + 1, 0));
    EXPECT_EQ(stream.getBitStreamAddress(), block.get());
    EXPECT_EQ(stream.getBitPosition(), 9U);
    EXPECT_EQ(stream.getBitStreamBitSize(), 9U);
    EXPECT_TRUE(errorOf(stream));
    Bytes const before(block.get(), block.get() + 2);
    EXPECT_TRUE(stream.setBitStream(block.get(), 2));
    EXPECT_FALSE(errorOf(stream));
    EXPECT_EQ(stream.getBitStreamBitSize(), 0U);
    EXPECT_EQ(Bytes(block.get(), block.get() + 2), before);
}

TEST(BitStream, AStreamWithoutBuffer_TakesEveryCall) {
    BitStream stream;
    stream.clear(true);
    stream.seekBitOffset(0, 0);
    stream.seekBitOffset(0, 2);
    EXPECT_FALSE(errorOf(stream));
    EXPECT_EQ(stream.readBitToUint8(1, 0), 0);
    EXPECT_TRUE(errorOf(stream));
    stream.clear(true);
    EXPECT_FALSE(errorOf(stream));
    unsigned char const data = 1;
    stream.writeBitData(&data, 1, -1);
    EXPECT_TRUE(errorOf(stream));
    stream.clear(false);
    stream.seekBitOffset(1, 0);
    EXPECT_TRUE(errorOf(stream));
    EXPECT_EQ(stream.getBitStreamSize(), 0U);
    EXPECT_EQ(stream.getBitStreamAddress(), nullptr);
    BitStream(nullptr, 0).copy(stream, 0);
}

TEST(BitStream, Copy_BehindAByteBoundary_TakesTheLastBitsOnePlaceBelow) {
    for (unsigned int bits = 1; bits <= 17; ++bits) {
        auto const sourceBlock = blockOf((bits + 7) / 8);
        std::memset(sourceBlock.get(), 0xFF, (bits + 7) / 8);
        // The bit after the last one, where there is one in its byte, is the one that differs.
        if (bits % 8 != 0) {
            sourceBlock[bits / 8] = static_cast<unsigned char>(~(0x80 >> bits % 8));
        }
        BitStream source(sourceBlock.get(), (bits + 7) / 8);
        source.seekBitOffset(bits, 0);
        unsigned int const whole = (bits - 1) / 8 * 8;
        auto const block = blockOf((1 + whole + bits % 8 + 7) / 8 + (bits % 8 == 0 ? 1 : 0));
        BitStream stream(block.get(), (1 + whole + bits % 8 + 7) / 8 + (bits % 8 == 0 ? 1 : 0));
        stream.seekBitOffset(1, 0);
        stream.copy(source, -1);
        ASSERT_FALSE(errorOf(stream)) << bits;
        EXPECT_EQ(stream.getBitPosition(), 1 + whole + bits % 8) << bits;
        Bits expected(1, false);
        expected.insert(expected.end(), whole + bits % 8, true);
        if (bits % 8 != 0) {
            expected.back() = false;
        }
        EXPECT_EQ(bitsOf(block.get(), stream.getBitPosition()), expected) << bits;
    }
}

TEST(BitStream, Serialization_AtAnyAddress_StoresLowByteFirstAndNoByteMore) {
    for (unsigned int skip = 0; skip < 4; ++skip) {
        auto const wide = blockOf(skip + 4);
        EXPECT_TRUE(utl::serialize(0x89ABCDEFU, wide.get() + skip));
        EXPECT_EQ(Bytes(wide.get() + skip, wide.get() + skip + 4), (Bytes{0xEF, 0xCD, 0xAB, 0x89}));
        unsigned int value = 0;
        EXPECT_TRUE(utl::unserialize(wide.get() + skip, &value));
        EXPECT_EQ(value, 0x89ABCDEFU);
        auto const narrow = blockOf(skip + 2);
        EXPECT_TRUE(utl::serialize(static_cast<unsigned short>(0xFEDC), narrow.get() + skip));
        EXPECT_EQ(Bytes(narrow.get() + skip, narrow.get() + skip + 2), (Bytes{0xDC, 0xFE}));
        unsigned short half = 0;
        EXPECT_TRUE(utl::unserialize(narrow.get() + skip, &half));
        EXPECT_EQ(half, 0xFEDC);
    }
}

}  // namespace

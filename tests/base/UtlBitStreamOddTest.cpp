// Every operation beside a plain account of what it promises, bit for bit, and what lies next to the buffers.

#include "UtlBitStream.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "TestLayout.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Bits = std::vector<bool>;
using utl::BitStream;

static_assert(!std::is_copy_constructible_v<BitStream> && !std::is_copy_assignable_v<BitStream>);
static_assert(!std::is_polymorphic_v<BitStream>);

/// A heap block of exactly `size` bytes, so that AddressSanitizer sees each step outside.
std::unique_ptr<unsigned char[]> blockOf(unsigned int size, unsigned int seed = 0) {
    auto block = std::make_unique<unsigned char[]>(size);
    std::mt19937 random(seed);
    for (unsigned int i = 0; seed != 0 && i < size; ++i) {
        block[i] = static_cast<unsigned char>(random());
    }
    return block;
}

Bits bitsOf(unsigned char const* bytes, unsigned int count) {
    Bits bits;
    for (unsigned int i = 0; i < count; ++i) {
        bits.push_back((bytes[i / 8] >> (7 - i % 8) & 1) != 0);
    }
    return bits;
}

Bytes bytesOf(Bits const& bits) {
    Bytes bytes((bits.size() + 7) / 8);
    for (unsigned int i = 0; i < bits.size(); ++i) {
        bytes[i / 8] = static_cast<unsigned char>(bytes[i / 8] | (bits[i] ? 0x80 >> i % 8 : 0));
    }
    return bytes;
}

Bits fieldOf(unsigned long long value, unsigned int width) {
    Bits bits;
    for (unsigned int i = width; i-- > 0;) {
        bits.push_back((value >> i & 1) != 0);
    }
    return bits;
}

unsigned long long numberOf(Bits const& bits) {
    unsigned long long value = 0;
    for (bool const bit : bits) {
        value = value << 1 | (bit ? 1U : 0U);
    }
    return value;
}

/// The same as a `BitStream`, one bit at a time.
class Model {
  public:
    explicit Model(Bits const& bits) : mBits(bits) {}

    Bits read(unsigned int width, unsigned int widthMax, int position) {
        if (!begin(width, widthMax, position)) {
            return {};
        }
        unsigned int const start = position == -1 ? mPosition : static_cast<unsigned int>(position);
        mPosition += position == -1 ? width : 0;
        return Bits(mBits.begin() + start, mBits.begin() + start + width);
    }

    void write(Bits const& field, unsigned int widthMax, int position) {
        auto const width = static_cast<unsigned int>(field.size());
        if (!begin(width, widthMax, position)) {
            return;
        }
        unsigned int const start = position == -1 ? mPosition : static_cast<unsigned int>(position);
        std::copy(field.begin(), field.end(), mBits.begin() + start);
        mSize = std::max(mSize, start + width);
        mPosition += position == -1 ? width : 0;
    }

    void copy(Bytes const& bytes, unsigned int bits, int position) {
        if (!begin(bits, UINT_MAX, position)) {
            return;
        }
        unsigned int const start = position == -1 ? mPosition : static_cast<unsigned int>(position);
        if (start % 8 == 0) {
            Bits const whole = bitsOf(bytes.data(), (bits + 7) / 8 * 8);
            std::copy(whole.begin(), whole.end(), mBits.begin() + start);
            mSize = std::max(mSize, start + bits);
            mPosition += position == -1 ? bits : 0;
            return;
        }
        Bits taken = bitsOf(bytes.data(), (bits - 1) / 8 * 8);
        Bits const last =
            fieldOf(static_cast<unsigned int>(bytes[(bits - 1) / 8]) >> (7 - bits % 8), bits % 8);
        taken.insert(taken.end(), last.begin(), last.end());
        if (!taken.empty()) {
            write(taken, UINT_MAX, position);
        }
    }

    void seek(unsigned int offset, int origin) {
        unsigned long long const target = (origin == 0   ? 0ULL
                                           : origin == 1 ? mPosition
                                           : origin == 2 ? mSize
                                                         : UINT_MAX) +
                                          offset;
        if (origin < 0 || origin > 2 || target > mBits.size()) {
            mFailed = true;
            return;
        }
        mPosition = static_cast<unsigned int>(target);
        mSize = std::max(mSize, mPosition);
    }

    void clear(bool erase) {
        mPosition = 0;
        mFailed = false;
        if (erase) {
            mSize = 0;
            mBits.assign(mBits.size(), false);
        }
    }

    /// `readCurBit` and `writeCurBit`, which do not look at the error.
    ///@{
    bool readBit() { return mBits[mPosition++]; }
    void writeBit(bool bit) {
        mBits[mPosition++] = bit;
        mSize = std::max(mSize, mPosition);
    }
    ///@}

    bool hasFailed() const { return mFailed; }
    Bits const& bits() const { return mBits; }
    unsigned int position() const { return mPosition; }
    unsigned int size() const { return mSize; }

  private:
    bool begin(unsigned int width, unsigned int widthMax, int position) {
        if (mFailed || width == 0) {
            return false;
        }
        unsigned long long const start =
            position == -1 ? mPosition : static_cast<unsigned long long>(static_cast<unsigned int>(position));
        mFailed = width > widthMax || position < -1 || start + width > mBits.size();
        return !mFailed;
    }

    Bits mBits;
    unsigned int mPosition = 0;
    unsigned int mSize = 0;
    bool mFailed = false;
};

bool errorOf(BitStream const& stream) {
    return utltest::fieldAt<bool>(stream, sizeof(void*) + 3 * sizeof(unsigned int));
}

/// A stream and its model, driven by random numbers.
class Pair {
  public:
    Pair(unsigned int size, unsigned int seed)
        : mSize(size),
          mBlock(blockOf(size, seed)),
          mStream(mBlock.get(), size),
          mModel(bitsOf(mBlock.get(), size * 8)),
          mRandom(seed) {}

    void step() {
        switch (below(10)) {
            case 0:
                readNumber();
                break;
            case 1:
                writeNumber();
                break;
            case 2:
                readData();
                break;
            case 3:
                writeData();
                break;
            case 4:
                copy();
                break;
            case 5:
                seek();
                break;
            case 6:
                setBit();
                break;
            case 7:
                getBit();
                break;
            default:
                mModel.hasFailed() || below(20) == 0 ? clear() : writeNumber();
                break;
        }
        ASSERT_EQ(bytesOf(mModel.bits()), Bytes(mBlock.get(), mBlock.get() + mSize));
        ASSERT_EQ(mStream.getBitPosition(), mModel.position());
        ASSERT_EQ(mStream.getBitStreamBitSize(), mModel.size());
        ASSERT_EQ(mStream.getBitStreamSize(), (mModel.size() + 7) / 8);
        ASSERT_EQ(errorOf(mStream), mModel.hasFailed());
    }

  private:
    unsigned int below(unsigned int end) { return static_cast<unsigned int>(mRandom() % end); }
    int anyPosition() { return below(3) == 0 ? static_cast<int>(below(mSize * 8 + 3)) - 2 : -1; }

    void readNumber() {
        unsigned int const kind = below(4);
        unsigned int const width = below((8U << kind) + 1) + (below(30) == 0 ? 1 : 0);
        int const position = anyPosition();
        unsigned long long const value = kind == 0   ? mStream.readBitToUint8(width, position)
                                         : kind == 1 ? mStream.readBitToUint16(width, position)
                                         : kind == 2 ? mStream.readBitToUint32(width, position)
                                                     : mStream.readBitToUint64(width, position);
        ASSERT_EQ(value, numberOf(mModel.read(width, 8U << kind, position)));
    }

    void writeNumber() {
        unsigned int const kind = below(4);
        unsigned int const width = below((8U << kind) + 1) + (below(30) == 0 ? 1 : 0);
        int const position = anyPosition();
        unsigned long long const value = mRandom() * 0x100000001ULL;
        switch (kind) {
            case 0:
                mStream.writeBitToUint8(static_cast<unsigned char>(value), width, position);
                break;
            case 1:
                mStream.writeBitToUint16(static_cast<unsigned short>(value), width, position);
                break;
            case 2:
                mStream.writeBitToUint32(static_cast<unsigned int>(value), width, position);
                break;
            default:
                mStream.writeBitToUint64(value, width, position);
                break;
        }
        mModel.write(width > (8U << kind) ? Bits(width) : fieldOf(value, width), 8U << kind, position);
    }

    void readData() {
        unsigned int const width = below(mSize * 8 / 2);
        int const position = anyPosition();
        unsigned int const size = (width + 7) / 8;
        auto const data = blockOf(size, 77);
        bool const reads = !mModel.hasFailed();
        Bytes expected(data.get(), data.get() + size);
        Bits const bits = mModel.read(width, UINT_MAX, position);
        if (reads && !bits.empty()) {
            expected = bytesOf(bits);
        }
        mStream.readBitData(data.get(), width, position);
        ASSERT_EQ(Bytes(data.get(), data.get() + size), expected);
    }

    void writeData() {
        unsigned int const width = below(mSize * 8 / 2);
        int const position = anyPosition();
        auto const data = blockOf((width + 7) / 8, below(1000) + 1);
        mStream.writeBitData(data.get(), width, position);
        mModel.write(bitsOf(data.get(), width), UINT_MAX, position);
    }

    void copy() {
        unsigned int const width = below(mSize * 8 / 2);
        int const position = anyPosition();
        unsigned int const size = (width + 7) / 8;
        auto const data = blockOf(size == 0 ? 1 : size, below(1000) + 1);
        BitStream source(data.get(), size == 0 ? 1 : size);
        source.seekBitOffset(width, 0);
        mStream.copy(source, position);
        mModel.copy(Bytes(data.get(), data.get() + size), width, position);
    }

    void seek() {
        unsigned int const offset = below(20) == 0 ? UINT_MAX - below(3) : below(below(mSize * 8) + 1);
        int const origin = below(10) == 0 ? static_cast<int>(below(6)) - 1 : 0;
        mStream.seekBitOffset(offset, origin);
        mModel.seek(offset, origin);
    }

    void setBit() {
        auto const bit = static_cast<unsigned char>(mRandom() % 2 * 0x80);
        if (mModel.position() < mSize * 8) {
            mStream.writeCurBit(bit);
            mModel.writeBit(bit != 0);
        }
    }

    void getBit() {
        if (mModel.position() < mSize * 8) {
            ASSERT_EQ(mStream.readCurBit(), mModel.readBit());
        }
    }

    void clear() {
        bool const erase = below(8) == 0;
        mStream.clear(erase);
        mModel.clear(erase);
    }

    unsigned int const mSize;
    std::unique_ptr<unsigned char[]> const mBlock;
    BitStream mStream;
    Model mModel;
    std::mt19937 mRandom;
};

}  // namespace

TEST(BitStreamOdd, EveryOperation_InAnyOrder_DoesWhatABitwiseAccountSays) {
    for (unsigned int seed = 1; seed <= 60; ++seed) {
        Pair pair(1 + seed % 23, seed);
        for (int i = 0; i < 300; ++i) {
            pair.step();
            ASSERT_FALSE(HasFatalFailure()) << "seed " << seed << " step " << i;
        }
    }
}

TEST(BitStreamOdd, ReadAndWrite_AtEveryPlaceAndWidth_TouchNothingBesideTheField) {
    for (unsigned int width = 1; width <= 64; ++width) {
        for (unsigned int start = 0; start < 16; ++start) {
            unsigned int const size = (start + width + 7) / 8;
            auto const block = blockOf(size, width * 16 + start + 1);
            Bits expected = bitsOf(block.get(), size * 8);
            BitStream stream(block.get(), size);
            ASSERT_EQ(stream.readBitToUint64(width, static_cast<int>(start)),
                      numberOf(Bits(expected.begin() + start, expected.begin() + start + width)));
            unsigned long long const value = 0xA5C3'0F96'5A3C'F069;
            stream.writeBitToUint64(value, width, static_cast<int>(start));
            Bits const field = fieldOf(value, width);
            std::copy(field.begin(), field.end(), expected.begin() + start);
            ASSERT_EQ(Bytes(block.get(), block.get() + size), bytesOf(expected)) << width << " at " << start;
            ASSERT_EQ(stream.getBitPosition(), 0U);
            ASSERT_EQ(stream.getBitStreamBitSize(), start + width);
        }
    }
}

TEST(BitStreamOdd, AWidthOf0_WithABadPositionOrWithoutData_IsNoErrorForFieldsAlone) {
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

TEST(BitStreamOdd, EachOperation_WithAPositionBelowMinus1_SetsTheErrorAndTouchesNothing) {
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

TEST(BitStreamOdd, AFieldThatEndsOneBitBehindTheBuffer_IsAnErrorThatWritesNothing) {
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

TEST(BitStreamOdd, AWidthNearTheEndOf32Bits_DoesNotWrapIntoTheBuffer) {
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

TEST(BitStreamOdd, Seek_PastTheEndOf32Bits_IsAnErrorAndStays) {
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

TEST(BitStreamOdd, ABufferOf512MiBAndMore_IsReachedUpToTheLastPositionThatHas32Bits) {
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

TEST(BitStreamOdd, AnErrorIsKeptBySeeksAndBareBits_WhichWorkOn) {
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

TEST(BitStreamOdd, SetBitStream_ThatFails_KeepsTheErrorAndAllElse) {
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

TEST(BitStreamOdd, AStreamWithoutBuffer_TakesEveryCall) {
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

TEST(BitStreamOdd, Copy_BehindAByteBoundary_TakesTheLastBitsOnePlaceBelow) {
    for (unsigned int bits = 1; bits <= 17; ++bits) {
        auto const sourceBlock = blockOf((bits + 7) / 8);
        std::memset(sourceBlock.get(), 0xFF, (bits + 7) / 8);
        // The bit behind the last one, where there is one in its byte, is the one that differs.
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

TEST(Serialize, AtAnyAddress_StoresLowByteFirstAndNoByteMore) {
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

TEST(Serialize, WithNullOnEitherSide_IsFalseAndTouchesNothing) {
    unsigned char bytes[4] = {1, 2, 3, 4};
    unsigned int value = 5;
    unsigned short half = 6;
    EXPECT_FALSE(utl::serialize(0xFFFFFFFFU, nullptr));
    EXPECT_FALSE(utl::serialize(static_cast<unsigned short>(0xFFFF), nullptr));
    EXPECT_FALSE(utl::unserialize(nullptr, &value));
    EXPECT_FALSE(utl::unserialize(nullptr, &half));
    EXPECT_FALSE(utl::unserialize(bytes, static_cast<unsigned int*>(nullptr)));
    EXPECT_FALSE(utl::unserialize(bytes, static_cast<unsigned short*>(nullptr)));
    EXPECT_EQ(value, 5U);
    EXPECT_EQ(half, 6);
}

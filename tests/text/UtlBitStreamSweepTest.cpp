// Starts no thread.

// Every operation beside a plain account of what it promises, bit for bit, and what lies next to the buffers.

#include "UtlBitStream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <random>

#include "TestBits.h"

namespace {

using utl::BitStream;
using utltest::Bits;
using utltest::bitsOf;
using utltest::blockOf;
using utltest::Bytes;
using utltest::errorOf;

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

TEST(BitStream, EveryOperation_InAnyOrder_DoesWhatABitwiseAccountSays) {
    for (unsigned int seed = 1; seed <= 60; ++seed) {
        Pair pair(1 + seed % 23, seed);
        for (int i = 0; i < 300; ++i) {
            pair.step();
            ASSERT_FALSE(HasFatalFailure()) << "seed " << seed << " step " << i;
        }
    }
}

TEST(BitStream, ReadAndWrite_AtEveryPlaceAndWidth_TouchNothingBesideTheField) {
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

}  // namespace

#pragma once

#include "UtlPlatform.h"

namespace utl {

/// Reads and writes bit fields of any width in a buffer of the caller's; *one owner thread*, because every
/// access moves the position and may set the error. A stream is not copyable; `copy` takes the contents.
///
/// Bit 0 is the most significant bit of the first byte, and a field begins with its own most significant bit.
/// An access touches the bytes that its bits lie in and no others.
///
/// The `position` of an access is -1 for the stream's own position, which then moves behind the field, or an
/// absolute bit position, which leaves the stream's own where it is. Anything below -1 is an error.
///
/// | State  | Entered by                                               | Reads    | Writes, `copy` |
/// |--------|----------------------------------------------------------|----------|----------------|
/// | good   | construction, `setBitStream`, `clear`                    | work     | work           |
/// | failed | any call below that is called an error                   | give 0   | do nothing     |
///
/// Nothing tells of the error but those zeros and a size that does not grow. Seeking, `readCurBit` and
/// `writeCurBit` work in both states. A field whose end is a position of more than 32 bits lies behind the
/// buffer, however large that is.
class UTL_API BitStream {
  public:
    /// Without a buffer; every access to a bit is an error.
    BitStream();

    /// As `setBitStream`, if that is possible.
    BitStream(unsigned char* buffer, unsigned int size);

    ~BitStream() = default;
    BitStream(BitStream const&) = delete;
    BitStream& operator=(BitStream const&) = delete;

    /// Goes over to a buffer of `size` bytes, empty and at position 0; its bytes stay as they are. The buffer
    /// remains the caller's and must outlive the stream's use of it. False, with nothing changed, for null
    /// and for 0.
    bool setBitStream(unsigned char* buffer, unsigned int size);

    /// Goes to position 0 and forgets the error. With `erase` the buffer becomes zero and the stream empty;
    /// otherwise the size stays.
    void clear(bool erase);

    /// The buffer, or null.
    unsigned char* getBitStreamAddress() const { return mBuffer; }

    /// Bytes that hold the bits of `getBitStreamBitSize`.
    unsigned int getBitStreamSize() const { return mBitSize / 8 + (mBitSize % 8 != 0 ? 1 : 0); }

    /// The end of the furthest write or seek, in bits.
    unsigned int getBitStreamBitSize() const { return mBitSize; }

    /// Where the next access at the stream's own position begins.
    unsigned int getBitPosition() const { return mBitPosition; }

    /// Goes `offset` bits forward: from the start for `origin` 0, from the position for 1, from the end of
    /// what was written for 2. Going beyond that end counts as having written up to there. An error, with the
    /// position kept, for a place beyond the buffer and for any other `origin`.
    void seekBitOffset(unsigned int offset, int origin);

    /// The next bit. The caller sees to it that there is one.
    bool readCurBit();

    /// Writes the next bit, 1 for anything but 0. The caller sees to it that the buffer has room.
    void writeCurBit(unsigned char bit);

    /// The field of `bits` bits as a number, 0 for a width of 0. More bits than the result has are an error,
    /// and so is a field that ends behind the buffer; bits that nobody wrote are read as they stand there.
    ///@{
    unsigned char readBitToUint8(unsigned int bits, int position);
    unsigned short readBitToUint16(unsigned int bits, int position);
    unsigned int readBitToUint32(unsigned int bits, int position);
    unsigned long long readBitToUint64(unsigned int bits, int position);
    ///@}

    /// Writes the lowest `bits` bits of `value` as a field, or nothing for a width of 0. More bits than
    /// `value` has are an error, and so is a field that would end behind the buffer.
    ///@{
    void writeBitToUint8(unsigned char value, unsigned int bits, int position);
    void writeBitToUint16(unsigned short value, unsigned int bits, int position);
    void writeBitToUint32(unsigned int value, unsigned int bits, int position);
    void writeBitToUint64(unsigned long long value, unsigned int bits, int position);
    ///@}

    /// Reads `bits` bits to the front of `data`; the rest of the last byte there becomes 0. An error, with
    /// nothing read, if they end behind the buffer. `data` must not overlap the buffer.
    void readBitData(unsigned char* data, unsigned int bits, int position);

    /// Writes the first `bits` bits of `data`. An error, with nothing written, if they would end behind the
    /// buffer. `data` must not overlap the buffer.
    void writeBitData(unsigned char const* data, unsigned int bits, int position);

    /// Writes all bits of `source`, whose position and error do not count. An error, with nothing written, if
    /// they would end behind the buffer. The buffers must not overlap.
    ///
    /// At a byte boundary the source's last byte is taken whole, with what stands behind its bits. Anywhere
    /// else the last byte is left out if it is full, and otherwise its bits are taken one place below where
    /// they lie: streams that were written so are read by code that expects it. `writeBitData` has neither
    /// effect.
    void copy(BitStream const& source, int position);

  private:
    bool begin(unsigned int bits, unsigned int bitsMax, int position, unsigned int* start);
    bool isInside(unsigned long long end) const;
    void endAt(unsigned int end, int position);
    void raiseBitSize(unsigned int end);
    void put(unsigned int start, unsigned int value, unsigned int bits);

    template <typename T>
    T readField(unsigned int bits, int position);
    template <typename T>
    void writeField(T value, unsigned int bits, int position);

    unsigned char* mBuffer;
    unsigned int mBufferSize;
    unsigned int mBitPosition;
    unsigned int mBitSize;
    bool mError;
};

/// Stores `value` in 2 or 4 bytes, low byte first. `bytes` needs no alignment. False for null.
///@{
UTL_API bool serialize(unsigned short value, unsigned char* bytes);
UTL_API bool serialize(unsigned int value, unsigned char* bytes);
///@}

/// Takes `*value` from 2 or 4 bytes in the processor's own order, which is that of `serialize` where the low
/// byte comes first. `bytes` needs no alignment. False, with nothing read, if either is null.
///@{
UTL_API bool unserialize(unsigned char* bytes, unsigned short* value);
UTL_API bool unserialize(unsigned char* bytes, unsigned int* value);
///@}

}  // namespace utl

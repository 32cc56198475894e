#pragma once

#include "UtlPlatform.h"

namespace utl {

/// Reads and writes bit fields of any width in a buffer of the caller's; *one owner thread*, because every
/// access moves the position and may set the error. A stream is not copyable; `copy` takes the contents.
///
/// Bit 0 is the most significant bit of the first byte, and a field begins with its own most significant bit.
/// A write touches only the bytes that contain its bits. A read may look at up to seven bytes of the buffer
/// after them.
///
/// The `position` of an access is `CURRENT_POSITION` for the stream's own, which then moves after the field,
/// or an absolute bit position, which leaves the stream's own where it is. Anything below -1 is an error.
///
/// | State  | Entered by                                               | Reads    | Writes, `copy` |
/// |--------|----------------------------------------------------------|----------|----------------|
/// | good   | construction, `setBitStream`, `clear`                    | work     | work           |
/// | failed | any call below that is called an error                   | return 0 | do nothing     |
///
/// Only those zeros and a size that does not grow show the error. Seeking, `readCurBit` and `writeCurBit`
/// work in both states. A field whose end is a position of more than 32 bits ends beyond the buffer, however
/// large that is.
class UTL_API BitStream {
  public:
    /// As `position`: the stream's own.
    static constexpr int CURRENT_POSITION = -1;

    /// Where `seekBitOffset` counts from.
    enum SeekOrigin {
        SEEK_FROM_START = 0,
        SEEK_FROM_POSITION = 1,
        SEEK_FROM_END = 2  ///< the end of what was written
    };

    /// Without a buffer; every access to a bit is an error.
    BitStream() noexcept;

    /// As `setBitStream`, if that is possible.
    BitStream(unsigned char* buffer, unsigned int size) noexcept;

    ~BitStream() = default;
    BitStream(BitStream const&) = delete;
    BitStream& operator=(BitStream const&) = delete;

    /// Changes to a buffer of `size` bytes, as an empty stream at position 0; its bytes stay as they are. The
    /// buffer remains the caller's and must outlive the stream's use of it. False, with nothing changed, for
    /// null and for 0.
    bool setBitStream(unsigned char* buffer, unsigned int size) noexcept;

    /// Goes to position 0 and clears the error. With `erase` the buffer becomes zero and the stream empty;
    /// otherwise the size stays.
    void clear(bool erase) noexcept;

    /// The buffer, or null.
    [[nodiscard]] unsigned char* getBitStreamAddress() const noexcept { return mBuffer; }

    /// Bytes that hold the bits of `getBitStreamBitSize`.
    [[nodiscard]] unsigned int getBitStreamSize() const noexcept {
        return mBitSize / 8 + (mBitSize % 8 != 0 ? 1 : 0);
    }

    /// The end of the furthest write or seek, in bits.
    [[nodiscard]] unsigned int getBitStreamBitSize() const noexcept { return mBitSize; }

    /// Where the next access at the stream's own position begins.
    [[nodiscard]] unsigned int getBitPosition() const noexcept { return mBitPosition; }

    /// Goes `offset` bits forward from `origin`, one of `SeekOrigin`. Going beyond the end of what was
    /// written counts as having written up to there. An error, with the position kept, for a place beyond the
    /// buffer and for any other `origin`.
    void seekBitOffset(unsigned int offset, int origin) noexcept;

    /// Reads the next bit. The caller makes sure that there is one.
    bool readCurBit() noexcept;

    /// Writes the next bit, 1 for anything but 0. The caller makes sure that the buffer has room.
    void writeCurBit(unsigned char bit) noexcept;

    /// Reads the field of `bits` bits as a number, 0 for a width of 0. More bits than the result has are an
    /// error, and so is a field that ends beyond the buffer. Bits that nobody wrote are read as the buffer
    /// has them.
    ///@{
    unsigned char readBitToUint8(unsigned int bits, int position) noexcept;
    unsigned short readBitToUint16(unsigned int bits, int position) noexcept;
    unsigned int readBitToUint32(unsigned int bits, int position) noexcept;
    unsigned long long readBitToUint64(unsigned int bits, int position) noexcept;
    ///@}

    /// Writes the lowest `bits` bits of `value` as a field, or nothing for a width of 0. More bits than
    /// `value` has are an error, and so is a field that would end beyond the buffer.
    ///@{
    void writeBitToUint8(unsigned char value, unsigned int bits, int position) noexcept;
    void writeBitToUint16(unsigned short value, unsigned int bits, int position) noexcept;
    void writeBitToUint32(unsigned int value, unsigned int bits, int position) noexcept;
    void writeBitToUint64(unsigned long long value, unsigned int bits, int position) noexcept;
    ///@}

    /// Reads `bits` bits to the start of `data`; the rest of the last byte there becomes 0. An error, with
    /// nothing read, if they end beyond the buffer. `data` must not overlap the buffer.
    void readBitData(unsigned char* data, unsigned int bits, int position) noexcept;

    /// Writes the first `bits` bits of `data`. An error, with nothing written, if they would end beyond the
    /// buffer. `data` must not overlap the buffer.
    void writeBitData(unsigned char const* data, unsigned int bits, int position) noexcept;

    /// Writes all bits of `source`, whose position and error do not count. An error, with nothing written, if
    /// they would end beyond the buffer. The buffers must not overlap.
    ///
    /// At a byte boundary the source's last byte is copied whole, with what follows its bits. Anywhere else
    /// the last byte is left out if it is full, and otherwise its bits are taken from one place lower:
    /// streams that were written so are read by code that expects it. `writeBitData` has neither effect.
    void copy(BitStream const& source, int position) noexcept;

  private:
    bool begin(unsigned int bits, unsigned int bitsMax, int position, unsigned int* start) noexcept;
    bool isInside(unsigned long long end) const noexcept;
    void endAt(unsigned int end, int position) noexcept;
    void raiseBitSize(unsigned int end) noexcept;
    void put(unsigned int start, unsigned int value, unsigned int bits) noexcept;

    template <typename T>
    T readField(unsigned int bits, int position) noexcept;
    template <typename T>
    void writeField(T value, unsigned int bits, int position) noexcept;

    unsigned char* mBuffer;
    unsigned int mBufferSize;
    unsigned int mBitPosition;
    unsigned int mBitSize;
    bool mError;
};

/// Stores `value` in 2 or 4 bytes, low byte first. `bytes` needs no alignment. False for null.
///@{
UTL_API bool serialize(unsigned short value, unsigned char* bytes) noexcept;
UTL_API bool serialize(unsigned int value, unsigned char* bytes) noexcept;
///@}

/// Reads `*value` from 2 or 4 bytes low byte first, as `serialize` writes them. `bytes` needs no alignment.
/// False, with nothing read, if either is null.
///@{
UTL_API bool unserialize(unsigned char* bytes, unsigned short* value) noexcept;
UTL_API bool unserialize(unsigned char* bytes, unsigned int* value) noexcept;
///@}

}  // namespace utl

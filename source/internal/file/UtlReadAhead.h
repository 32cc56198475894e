#pragma once

#include <memory>

#include "internal/file/UtlTextType.h"

namespace utl {

/// The position of an open file while it is being read, and the bytes read ahead from there; *one owner
/// thread*, as the file.
///
/// | State    | The position is | The kernel's position                     |
/// |----------|-----------------|-------------------------------------------|
/// | unknown  | the kernel's    | is asked for before the next reading      |
/// | known    | known here      | is not used until a seek or a write       |
///
/// While it is known, all bytes are read by `pread`: after a `fork` neither process moves the other's
/// position.
class ReadAhead {
  public:
    /// More than the longest line of text with a usual line end.
    static constexpr unsigned int BLOCK_BYTES = 8192;

    ReadAhead() = default;
    ReadAhead(ReadAhead const&) = delete;
    ReadAhead& operator=(ReadAhead const&) = delete;

    bool knowsPosition() const { return mKnowsPosition; }

    /// Only while the position is known, as all below that does not say otherwise.
    long long position() const { return mStart + mUsed; }

    /// Knows the position from now on. Keeps the bytes if the position is among them or directly after them.
    void moveTo(long long position);

    /// Does not know the position from now on, and has no bytes.
    void forgetPosition();

    /// The bytes read ahead from the position on; `TEXT_UNIT_BYTES_MAX` bytes after them may be overwritten.
    char* bytes() { return mpRoom + mUsed; }
    unsigned int count() const { return mFilled - mUsed; }

    /// The position after them.
    long long end() const { return mStart + mFilled; }

    /// Moves over `bytes` of them. They stay in memory until the next `readOn` or `moveTo`.
    void pass(unsigned int bytes) { mUsed += bytes; }

    /// Drops the bytes and keeps the position.
    void dropBytes() { dropBytesAt(position()); }

    /// True if there is no room for more bytes.
    bool isFull() const { return count() == mRoomBytes; }

    /// Reads on after the bytes, but not beyond `size` of the file, in one system call. Returns how many
    /// bytes were added; 0 if there is no room or nothing more came, -1 with `errno` on failure. Needs a
    /// `ReadRoom`.
    int readOn(int descriptor, long long size);

  private:
    friend class ReadRoom;

    void dropBytesAt(long long position);

    bool mKnowsPosition = false;
    unsigned int mUsed = 0;
    unsigned int mFilled = 0;
    unsigned int mRoomBytes = 0;
    long long mStart = 0;  ///< of the room, in the file
    char* mpRoom = nullptr;
    std::unique_ptr<char[]> mOwnRoom;
};

/// Room to read ahead, for the time of a call: a block that stays with the file, or, if there is no memory
/// for it, room that ends with the call, whose bytes are then dropped. *One owner thread*, as the file. A
/// call has only one at a time.
class [[nodiscard]] ReadRoom {
  public:
    /// `ahead` may be null, for a closed file. At least `neededBytes`, or `std::bad_alloc`; up to 512 need no
    /// memory.
    explicit ReadRoom(ReadAhead* ahead, unsigned int neededBytes = 0) {
        if (ahead != nullptr && ahead->mpRoom == nullptr) {
            makeRoom(ahead, neededBytes);
        }
    }
    ~ReadRoom() {
        if (mpAhead != nullptr) {
            removeRoom();
        }
    }
    ReadRoom(ReadRoom const&) = delete;
    ReadRoom& operator=(ReadRoom const&) = delete;

  private:
    static constexpr unsigned int SPARE_BYTES = 512;

    void makeRoom(ReadAhead* ahead, unsigned int neededBytes);
    void removeRoom();

    ReadAhead* mpAhead = nullptr;  ///< null if the room stays
    std::unique_ptr<char[]> mNeeded;
    char mSpare[SPARE_BYTES + TEXT_UNIT_BYTES_MAX];
};

}  // namespace utl

#pragma once

#include <atomic>

#include "UtlBasicString.h"
#include "UtlFile.h"
#include "UtlPlatform.h"
#include "UtlSyncObject.h"

namespace utl {

class RiffFile;

/// What a `RiffFile` knows about one of its sub-chunks; *one owner thread*, because it is a plain record.
class UTL_API SubChunkInfo {
  public:
    /// 0, an empty name and 0.
    SubChunkInfo() = default;

    /// A null `name` counts as empty.
    SubChunkInfo(unsigned int id, char const* name, unsigned int dataSize);

    unsigned int mId = 0;        ///< its number in the `RiffFile`
    BasicString<char> mName;     ///< its id in the file, without blanks at the end
    unsigned int mDataSize = 0;  ///< bytes of data when the `RiffFile` recorded it
};

/// A window on one sub-chunk of a RIFF file: 4 bytes of id, 4 bytes of data size with the low byte first, and
/// the data. Positions count from the first byte of data, and reading stops at the last. *Internally locked*,
/// because a `RiffFile` and its user's threads share it; the lock guards the object, not the `File`, which
/// nobody else may use during a call.
///
/// | State  | `add`, `open`           | `close`                                 | `isOpened` |
/// |--------|-------------------------|-----------------------------------------|------------|
/// | closed | true: open, else closed | true                                    | false      |
/// | open   | false, stays open       | true: closed; false: open, try it again | true       |
///
/// Results are 1 for true and 0 for false unless a function says otherwise. A sub-chunk whose `File` was
/// closed counts as not open until the file is opened again. Nothing is logged here; the `File` logs what
/// fails below. A thread that has to wait for the lock appears in the watchdog's report.
class UTL_API SubChunk {
  public:
    /// The position in the data after an opening; also for `RiffFile` and `WaveFile`.
    enum Mode { AT_START = 0, AT_END = 1 };

    /// What `read` returns instead of a count, besides -1 for a failure; also for `RiffFile` and `WaveFile`.
    enum Result { END_OF_DATA = -4 };

    /// Closes a sub-chunk at the end of a scope, whatever the result. *One owner thread*, that of the scope.
    class [[nodiscard]] UTL_API AutoClose {
      public:
        /// `subChunk` must live as long as this.
        explicit AutoClose(SubChunk& subChunk) noexcept : mSubChunk(subChunk) {}
        virtual ~AutoClose();
        AutoClose(AutoClose const&) = delete;
        AutoClose& operator=(AutoClose const&) = delete;

      private:
        SubChunk& mSubChunk;
    };

    /// Closed.
    SubChunk() = default;

    /// Closes; the `File` must still be there if this is open.
    virtual ~SubChunk();
    SubChunk(SubChunk const&) = delete;
    SubChunk& operator=(SubChunk const&) = delete;

    /// Reads the header at `position` of an open file and leaves the file's position as it was. `id`, if
    /// given, becomes the id without blanks at its end; `idSize` must then be 5 or more. `*dataSize`, if
    /// given, becomes the size. Returns 0; `File::END_OF_FILE` (-3) at and beyond the end of the file; -1 on
    /// failure and for an incomplete header. Takes no lock.
    static int readHeader(File* file, unsigned long long position, char* id, unsigned int idSize,
                          unsigned int* dataSize);

    /// Appends an empty sub-chunk to an open file and opens it there. The file must stay alive while this is
    /// open. False for null, a closed file, an `id` of more than 4 bytes, and while this is open; also on
    /// failure, which may leave a part of the header at the end of the file.
    int add(File* file, char const* id);

    /// Opens the sub-chunk whose header is at `position` of an open file, which must stay alive while this is
    /// open. `mode` `AT_START` (0) moves to the first byte of data, `AT_END` (1) to the end of the data.
    /// False for null, a closed file, another `mode`, and while this is open; also on failure, which may
    /// leave the file's position anywhere.
    int open(File* file, unsigned long long position, int mode);

    /// Writes the data size into the header if it has changed, and closes. True also if this was closed.
    /// False on failure and while the file is closed; then this stays open. The file's position is moved.
    int close();

    /// True while open; takes no lock.
    [[nodiscard]] int isOpened() const noexcept;

    /// Reads up to `length` bytes, at most to the end of the data. Returns how many were read, which may be
    /// fewer; `END_OF_DATA` (-4) at the end of the data, and also if the file ends before the data do, unlike
    /// the `File::END_OF_FILE` of a file. -1 on failure, if not open, for null, for a `length` above
    /// 0x7FFFFFFF, and, before the end, for one of 0.
    int read(void* buffer, unsigned int length);

    /// Writes up to `length` bytes at the file's position; writing beyond the end of the data extends them.
    /// Returns how many were written, which may be fewer; -1 as for `read`, also if the size of the data no
    /// longer fits into 32 bits. `close` brings the header up to date.
    int write(void const* buffer, unsigned int length);

    /// Moves to `offset` bytes from an origin in the data: `File::FROM_START` (0) their first byte,
    /// `File::FROM_END` (1) their end, `File::FROM_POSITION` (2) the position. Beware that `File::seek` takes
    /// the two arguments in the reverse order. Returns the new position; -1, with the position unchanged, for
    /// a target outside of the data, another origin and if not open; -1 on failure.
    long long seek(int origin, long long offset);

    /// The position, which may be beyond the data; -1 on failure, if not open, and before the data.
    [[nodiscard]] long long position() const;

    /// The id, valid until this is closed; null if not open.
    [[nodiscard]] char const* getSubChunkId() const;

    /// Bytes of data; `INVALID_SIZE` if not open.
    [[nodiscard]] unsigned int getDataSize() const;

    /// Writes an id at the position of `file`, padded with blanks to 4 bytes. False for null, an `id` of more
    /// than 4 bytes, and on failure. Takes no lock. The capital K in the name stays, because callers use it.
    static int writeSubChunKId(char const* id, File* file);

  private:
    friend class RiffFile;

    bool hasOpenFile() const UTL_REQUIRES(mLock);
    unsigned long long dataStart() const UTL_REQUIRES(mLock);
    unsigned long long dataEnd() const UTL_REQUIRES(mLock);
    long long positionInFile() const UTL_REQUIRES(mLock);
    bool growTo(long long position) UTL_REQUIRES(mLock);
    int attachTo(File* file, char const* id, unsigned long long position) UTL_REQUIRES(mLock);
    void detach() UTL_REQUIRES(mLock);

    File* mFile UTL_GUARDED_BY(mLock) = nullptr;
    char mSubChunkId[5] UTL_GUARDED_BY(mLock) = {};
    unsigned int mDataSize UTL_GUARDED_BY(mLock) = 0;
    unsigned long long mPosition UTL_GUARDED_BY(mLock) = 0;
    std::atomic<bool> mOpened{false};
    SyncObject mLock;
};

}  // namespace utl

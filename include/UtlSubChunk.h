#pragma once

#include <atomic>

#include "UtlBasicString.h"
#include "UtlPlatform.h"
#include "UtlSyncObject.h"

namespace utl {

class File;
class RiffFile;

/// What a `RiffFile` tells of one of its sub-chunks; *one owner thread*, as a plain record.
class UTL_API SubChunkInfo {
  public:
    /// 0, an empty name and 0.
    SubChunkInfo() = default;

    /// A null `name` is an empty one.
    SubChunkInfo(unsigned int id, char const* name, unsigned int dataSize);

    unsigned int mId = 0;        ///< the number under which the file knows it
    BasicString<char> mName;     ///< its id in the file, without blanks at the end
    unsigned int mDataSize = 0;  ///< bytes of data at the time at which the file took it down
};

/// A window on one sub-chunk of a RIFF file: 4 bytes of id, 4 bytes of data size with the low byte first, and
/// the data. Positions count from the first byte of data, and reading stops at the last. *Internally locked*,
/// because a `RiffFile` and its user's threads share it; the lock guards the object, not the `File`, which
/// must not be used by others meanwhile.
///
/// | State  | `add`, `open`           | `close`                                 | `isOpened` |
/// |--------|-------------------------|-----------------------------------------|------------|
/// | closed | true: open, else closed | true                                    | false      |
/// | open   | false, stays open       | true: closed; false: open, try it again | true       |
///
/// Results are 1 for true and 0 for false unless a function says otherwise. A sub-chunk whose `File` was
/// closed counts as not open until the file is opened again. Nothing is logged here; the `File` logs what
/// fails below. A thread that has to wait for the lock shows in the watchdog's report.
class UTL_API SubChunk {
  public:
    /// Closes a sub-chunk at the end of a scope, whatever the result. *One owner thread*, that of the scope.
    class UTL_API AutoClose {
      public:
        /// `subChunk` must live as long as this.
        explicit AutoClose(SubChunk& subChunk) : mSubChunk(subChunk) {}
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

    /// Reads the header at `position` of an open file and leaves the file's position as it was. `*id`, which
    /// may be null, becomes the id without blanks at its end; `idSize` must be 5 or more then. `*dataSize`,
    /// which may be null, becomes the size. Gives 0; -3 at and behind the end of
    /// the file; -1 on failure and for a header of which only a part is there. Takes no lock.
    static int readHeader(File* file, unsigned long long position, char* id, unsigned int idSize,
                          unsigned int* dataSize);

    /// Appends an empty sub-chunk to an open file, which must outlive the opening, and opens it there. False
    /// for null, a closed file, an `id` of more than 4 bytes, and while this is open; also on failure, when a
    /// part of the header may stand at the end of the file.
    int add(File* file, char const* id);

    /// Opens the sub-chunk whose header is at `position` of an open file, which must outlive the opening.
    /// `mode` 0 stands at the first byte of data, 1 behind the last. False for null, a closed file, another
    /// `mode`, and while this is open; also on failure, with the file's position anywhere.
    int open(File* file, unsigned long long position, int mode);

    /// Writes the data size into the header if it has changed, and closes. True also if it was closed. False
    /// on failure and while the file is closed; then it stays open. The file's position is moved.
    int close();

    /// True while open; takes no lock.
    int isOpened() const;

    /// Reads up to `length` bytes, no further than to the end of the data. Gives how many came, which may be
    /// fewer; -4 at the end of the data and where the file ends before them, which is not a file's own -3:
    /// the sub-chunk ended; -1 on failure, if not open, for null, for a `length` above 0x7FFFFFFF, and, in
    /// front of the end, for one of 0.
    int read(void* buffer, unsigned int length);

    /// Writes up to `length` bytes at the file's position; what goes beyond the end of the data makes them
    /// longer. Gives how many were written, which may be fewer; -1 as for `read`, also if the data become
    /// longer than 32 bits can say. The header learns of it in `close`.
    int write(void const* buffer, unsigned int length);

    /// Moves to `offset` bytes from an origin: 0 the first byte of data, 1 their end, 2 the position. Beware
    /// that `File::seek` takes the two arguments the other way round. Gives the new position; -1, with the
    /// position unchanged, for a target outside of the data, another origin and if not open; -1 on failure.
    long long seek(int origin, long long offset);

    /// The position, which may lie behind the data; -1 on failure, if not open, and in front of the data.
    long long position() const;

    /// The id, valid until this is closed; null if not open.
    char const* getSubChunkId() const;

    /// Bytes of data; `INVALID_SIZE` if not open.
    unsigned int getDataSize() const;

    /// Writes an id at the position of `file`, filled up with blanks to 4 bytes. False for null, an `id` of
    /// more than 4 bytes, and on failure. Takes no lock. The capital in the name is known to
    /// callers.
    static int writeSubChunKId(char const* id, File* file);

  private:
    friend class RiffFile;

    bool hasOpenFile() const UTL_REQUIRES(mLock);
    unsigned long long dataStart() const UTL_REQUIRES(mLock);
    unsigned long long dataEnd() const UTL_REQUIRES(mLock);
    long long positionInFile() const UTL_REQUIRES(mLock);
    bool growTo(long long position) UTL_REQUIRES(mLock);
    int become(File* file, char const* id, unsigned long long position) UTL_REQUIRES(mLock);
    void forget() UTL_REQUIRES(mLock);

    File* mFile UTL_GUARDED_BY(mLock) = nullptr;
    char mSubChunkId[5] UTL_GUARDED_BY(mLock) = {};
    unsigned int mDataSize UTL_GUARDED_BY(mLock) = 0;
    unsigned long long mPosition UTL_GUARDED_BY(mLock) = 0;
    std::atomic<bool> mOpened{false};
    SyncObject mLock;
};

}  // namespace utl

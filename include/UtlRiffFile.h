#pragma once

#include <atomic>

#include "UtlArray.h"
#include "UtlMap.h"
#include "UtlPlatform.h"
#include "UtlSubChunk.h"
#include "UtlSyncObject.h"

namespace utl {

/// A RIFF container: "RIFF", the size of the rest, 4 bytes of form type, and sub-chunks without gaps.
/// *Internally locked*, because every operation but `isOpenedSubChunk` holds the object's lock; a thread that
/// has to wait for it appears in the watchdog's report.
///
/// One sub-chunk is open at a time, and new ones are appended at the end. Sub-chunks have numbers that count
/// from 0 in the order of the file and are valid while it stays open. It is a plain form of RIFF: one level,
/// no byte between a sub-chunk of odd size and the next (other programs put one there, so their files are
/// read wrongly after such a sub-chunk), and no more sub-chunks than the constructor was given.
///
/// | State          | `open`           | `addSubChunk`, `openSubChunk` | `closeSubChunk`     | `close`  |
/// |----------------|------------------|-------------------------------|---------------------|----------|
/// | closed         | 0: open          | fails                         | true                | true     |
/// | open           | 1, stays open    | sub-chunk open                | true                | closed   |
/// | sub-chunk open | 1, stays open    | fails                         | open                | closed   |
///
/// Results are 1 for true and 0 for false unless a function says otherwise. Nothing is logged here; the
/// `File` below logs what fails. Sizes in a file are trusted. After a sub-chunk whose size is larger than the
/// file nothing is found. Neither is what is appended to the file later, since it is within those data; and
/// writing at their end makes a file with a hole of up to 4 GiB. A process that dies leaves the sizes of what
/// it had not closed at 0: the data after such a size are then taken for headers, and `open` may fail on
/// them. So call `close` before the destructor, which updates no size.
class UTL_API RiffFile {
  public:
    /// What `open` does with the content; not the numbers of `File::open`.
    enum Disposition {
        OPEN_KEEP = 0,  ///< keep it
        OPEN_NEW = 1    ///< start a new file
    };

    /// What `open` opens the file for; not the numbers of `File::open`.
    enum Access { ACCESS_READ = 0, ACCESS_READ_WRITE = 1 };

    /// What `open` returns.
    enum Result {
        OPENED = 0,       ///< the file is open
        OPEN_FAILED = 1,  ///< the arguments are refused, or the file or a header cannot be read or written
        NO_RIFF_FILE = 2  ///< the file is no RIFF file
    };

    /// The number of no sub-chunk, for `isOpenedSubChunk`.
    static constexpr int NO_SUB_CHUNK = -1;

    /// Closes a container at the end of a scope, whatever the result. *One owner thread*, that of the scope.
    class [[nodiscard]] UTL_API AutoClose {
      public:
        /// `riffFile` must live as long as this.
        explicit AutoClose(RiffFile& riffFile) noexcept : mRiffFile(riffFile) {}
        virtual ~AutoClose();
        AutoClose(AutoClose const&) = delete;
        AutoClose& operator=(AutoClose const&) = delete;

      private:
        RiffFile& mRiffFile;
    };

    /// The result of `addSubChunk` when it fails.
    static constexpr int INVALID_SUB_CHUNK = 0x7FFFFFFF;

    /// Touches no file. Room for `maximumSubChunks` is allocated at once and never grows; with 0 there is
    /// none.
    RiffFile(char const* path, unsigned int maximumSubChunks);

    /// Closes the file without `close`: no size is updated.
    virtual ~RiffFile();
    RiffFile(RiffFile const&) = delete;
    RiffFile& operator=(RiffFile const&) = delete;

    /// Opens the file by the rules of `File::open` and records its sub-chunks, as many as there is room for.
    /// `disposition` is `OPEN_KEEP` or `OPEN_NEW`, `access` is `ACCESS_READ` or `ACCESS_READ_WRITE`. A new
    /// file then holds 8 bytes, and needs `setFormType` before the first `addSubChunk`. Returns `OPENED` (0);
    /// `OPEN_FAILED` (1) for other arguments, for a new file to read, for an open object, and if the file or
    /// a header cannot be read or written; `NO_RIFF_FILE` (2). After 1 and 2 the file is closed, unless it
    /// was open before, and a new file whose 8 bytes could not be written is erased.
    int open(int disposition, int access);

    /// Updates the size at the beginning, closes an open sub-chunk and the file, and clears the records of
    /// the sub-chunks; `getFormType` stays. True also if the file was closed. False, and everything stays
    /// open, if the size of the file is not available, does not fit into 32 bits, or cannot be written.
    /// False, with the file closed, if the sub-chunk does not close: it stays open across the next `open`,
    /// and `closeSubChunk` then writes its size to its old place; for another file take another object.
    int close();

    /// True while the file is open.
    [[nodiscard]] int isOpened() const;

    /// Appends an empty sub-chunk and opens it; `id` has up to 4 bytes. Returns its number;
    /// `INVALID_SUB_CHUNK` while one is open, for a longer `id` or null, and on failure. If there is no room
    /// to record it the result is `INVALID_SUB_CHUNK` as well, but the sub-chunk is in the file and open:
    /// call `closeSubChunk`. It cannot be written, except in an object with room for none at all.
    int addSubChunk(char const* id);

    /// Opens the sub-chunk with this number; `mode` `SubChunk::AT_START` (0) moves to the start of its data,
    /// `SubChunk::AT_END` (1) to their end. False for another `mode` or number, while one is open, and on
    /// failure.
    int openSubChunk(unsigned int id, int mode);

    /// Writes the size of the open sub-chunk into its header if it has changed, and closes it. True also if
    /// none was open; on failure it stays open.
    int closeSubChunk();

    /// True if `id` is the number of the open sub-chunk. `NO_SUB_CHUNK` (-1) is true while none is open.
    /// Takes no lock.
    [[nodiscard]] int isOpenedSubChunk(int id) const noexcept;

    /// Writes the form type, up to 4 bytes, over the bytes at offset 8; the position stays. False for null
    /// and longer text, and on failure; also for text that is not UTF-8, which is written, but then there is
    /// no form type.
    int setFormType(char const* formType);

    /// The form type; empty if there was none yet. One that `open` read from a file keeps its trailing
    /// blanks. A new file keeps that of the previous file. Valid until the next `open` or `setFormType`.
    [[nodiscard]] char const* getFormType() const;

    ///@{
    /// As for the open sub-chunk. Only the last in the file of the recorded sub-chunks can be written: for
    /// any other, `write` returns -1. If more follow that were not recorded, writing beyond its data
    /// overwrites them.
    int read(void* buffer, unsigned int length);
    int write(void const* buffer, unsigned int length);
    long long seek(int origin, long long offset);
    [[nodiscard]] long long position() const;
    ///@}

    /// Bytes of the whole file, as `File::size`.
    [[nodiscard]] long long size() const;

    /// How many sub-chunks were recorded; `INVALID_SIZE` if the file is not open.
    [[nodiscard]] unsigned int getSubChunkNumber();

    /// How many of them have this id; -1 for null and if the file is not open.
    [[nodiscard]] int getSubChunkNumber(char const* id);

    /// Copies the record of the sub-chunk with this number. The data size is that from when the file was
    /// opened, 0 for a sub-chunk that was added since. False for null and another number.
    int getSubChunkInfo(unsigned int id, SubChunkInfo* info);

    /// Copies the records of the first `count` sub-chunks. Returns how many; -1 for null and if the file is
    /// not open.
    int getSubChunkInfoList(SubChunkInfo* list, unsigned int count);

    /// Copies the records of those of the first `count` sub-chunks that have this id: `count` limits how many
    /// are examined. Results as above.
    int getSubChunkInfoList(char const* id, SubChunkInfo* list, unsigned int count);

    /// As `File::getPath`.
    [[nodiscard]] char const* getPath() const;

  private:
    int writeRiffHeader() UTL_REQUIRES(mLock);
    int loadRiffInfo() UTL_REQUIRES(mLock);
    int loadFormType() UTL_REQUIRES(mLock);
    int loadSubChunkInfos(unsigned long long offset) UTL_REQUIRES(mLock);
    bool recordSubChunk(char const* id, unsigned int dataSize, unsigned long long position)
        UTL_REQUIRES(mLock);
    void closeAndClear() UTL_REQUIRES(mLock);
    int lastInFile() const UTL_REQUIRES(mLock);
    bool updateRiffSize() UTL_REQUIRES(mLock);
    unsigned int recordedAmong(unsigned int count) const UTL_REQUIRES(mLock);

    File* mFile UTL_PT_GUARDED_BY(mLock);
    Array<SubChunkInfo, SubChunkInfo const&> mSubChunkInfos UTL_GUARDED_BY(mLock);
    SubChunk mSubChunk UTL_GUARDED_BY(mLock);
    int mLastSubChunkId UTL_GUARDED_BY(mLock);
    Map<int, unsigned long long> mSubChunkPositions UTL_GUARDED_BY(mLock);
    char mFormType[5] UTL_GUARDED_BY(mLock);
    unsigned long long mRiffSize UTL_GUARDED_BY(mLock);
    std::atomic<int> mOpenedSubChunkId;
    SyncObject mLock;
};

}  // namespace utl

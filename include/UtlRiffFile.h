#pragma once

#include <atomic>

#include "UtlArray.h"
#include "UtlMap.h"
#include "UtlPlatform.h"
#include "UtlSubChunk.h"
#include "UtlSyncObject.h"

namespace utl {

class File;

/// A RIFF container: "RIFF", the size of the rest, 4 bytes of form type, and sub-chunks one behind the other.
/// *Internally locked*, because every operation but `isOpenedSubChunk` holds the object's lock; a thread that
/// has to wait for it shows in the watchdog's report.
///
/// One sub-chunk is open at a time, and new ones are appended at the end. Sub-chunks are known by numbers
/// that count from 0 in the order of the file, as long as it stays open. It is a plain form of RIFF: one
/// level, no byte between a sub-chunk of odd size and the next (other programs put one there, so their files
/// are walked wrongly behind such a sub-chunk), and no more sub-chunks than the constructor was given.
///
/// | State          | `open`           | `addSubChunk`, `openSubChunk` | `closeSubChunk`     | `close`  |
/// |----------------|------------------|-------------------------------|---------------------|----------|
/// | closed         | 0: open          | fails                         | true                | true     |
/// | open           | 1, stays open    | sub-chunk open                | true                | closed   |
/// | sub-chunk open | 1, stays open    | fails                         | open                | closed   |
///
/// Results are 1 for true and 0 for false unless a function says otherwise. Nothing is logged here; the
/// `File` below logs what fails. Sizes in a file are believed. Behind one that promises more than there is
/// nothing is found, what is appended to the file later neither, since it lies within those data; and what
/// is written at their end makes a file with a hole of up to 4 GiB. A process that dies leaves the sizes of
/// what it had not closed at 0: what stands behind such a size is then taken for headers, and `open` may fail
/// on it. So `close` before the destructor, which patches no size.
class UTL_API RiffFile {
  public:
    /// Closes a container at the end of a scope, whatever the result. *One owner thread*, that of the scope.
    class UTL_API AutoClose {
      public:
        /// `riffFile` must live as long as this.
        explicit AutoClose(RiffFile& riffFile) : mRiffFile(riffFile) {}
        virtual ~AutoClose();
        AutoClose(AutoClose const&) = delete;
        AutoClose& operator=(AutoClose const&) = delete;

      private:
        RiffFile& mRiffFile;
    };

    /// The result of `addSubChunk` when it fails.
    static constexpr int INVALID_SUB_CHUNK = 0x7FFFFFFF;

    /// Touches no file. Room for `maximumSubChunks` is made at once and never grows; with 0 there are none.
    RiffFile(char const* path, unsigned int maximumSubChunks);

    /// Closes the file without `close`: no size is brought up to date.
    virtual ~RiffFile();
    RiffFile(RiffFile const&) = delete;
    RiffFile& operator=(RiffFile const&) = delete;

    /// Opens the file by the rules of `File::open`, and takes down its sub-chunks, as many as there is room
    /// for. `disposition` 0 keeps what is there, 1 starts a new file; `access` 0 is for reading, 1 for
    /// reading and writing. A file that is new holds 8 bytes then, and needs `setFormType` before the first
    /// `addSubChunk`. Gives 0; 1 for other arguments, for a new file to read, for an open object, and if the
    /// file or a header cannot be read or written; 2 for a file that is no RIFF file. After 1 and 2 it is
    /// closed, unless it was open before, and a new file whose 8 bytes could not be written is erased.
    int open(int disposition, int access);

    /// Brings the size at the front up to date, closes an open sub-chunk and the file, and forgets the
    /// sub-chunks; `getFormType` stays. True also if it was closed. False, and everything stays open, if the
    /// size of the file cannot be had, does not fit into 32 bits, or cannot be written. False, with the file
    /// closed, if the sub-chunk does not close: it stays open across the next `open`, and `closeSubChunk`
    /// writes its size to its old place then; for another file take another object.
    int close();

    /// True while the file is open.
    int isOpened() const;

    /// Appends an empty sub-chunk and opens it; `id` has up to 4 bytes. Gives its number;
    /// `INVALID_SUB_CHUNK` while one is open, for a longer `id` or null, and on failure. If there is no room
    /// to take it down the result is `INVALID_SUB_CHUNK` as well, but the sub-chunk stands in the file and is
    /// open: `closeSubChunk` is due, and it cannot be written, except where there is room for none at all.
    int addSubChunk(char const* id);

    /// Opens the sub-chunk with this number; `mode` 0 stands at the start of its data, 1 at their end. False
    /// for another `mode` or number, while one is open, and on failure.
    int openSubChunk(unsigned int id, int mode);

    /// Writes the size of the open sub-chunk into its header if it has changed, and closes it. True also if
    /// none was open; on failure it stays open.
    int closeSubChunk();

    /// True if `id` is the number of the open sub-chunk; -1 is the number of none. Takes no lock.
    int isOpenedSubChunk(int id) const;

    /// Writes the form type, up to 4 bytes, over whatever stands at offset 8; the position stays. False for
    /// null and longer text, and on failure; also for text in no UTF-8, which is written, but then there is
    /// no form type.
    int setFormType(char const* formType);

    /// The form type; empty if there was none yet. What `open` read from a file keeps its trailing blanks. A
    /// new file leaves that of the file before. Valid until the next `open` or `setFormType`.
    char const* getFormType() const;

    ///@{
    /// As for the open sub-chunk. Only the one that stands last in the file, of those taken down, can be
    /// written: for any other, `write` gives -1. Where more follow that were not taken down, what goes beyond
    /// its data overwrites them.
    int read(void* buffer, unsigned int length);
    int write(void const* buffer, unsigned int length);
    long long seek(int origin, long long offset);
    long long position() const;
    ///@}

    /// Bytes of the whole file, as `File::size`.
    long long size() const;

    /// How many sub-chunks were taken down; `INVALID_SIZE` if the file is not open.
    unsigned int getSubChunkNumber();

    /// How many of them have this id; -1 for null and if the file is not open.
    int getSubChunkNumber(char const* id);

    /// Copies what is known of the sub-chunk with this number. The data size is that of the time at which the
    /// file was opened, 0 for one that was added since. False for null and another number.
    int getSubChunkInfo(unsigned int id, SubChunkInfo* info);

    /// Copies what is known of the first `count` sub-chunks. Gives how many; -1 for null and if the file is
    /// not open.
    int getSubChunkInfoList(SubChunkInfo* list, unsigned int count);

    /// Copies what is known of those of the first `count` sub-chunks that have this id: `count` says how many
    /// are looked at. Results as above.
    int getSubChunkInfoList(char const* id, SubChunkInfo* list, unsigned int count);

    /// As `File::getPath`.
    char const* getPath() const;

  private:
    int writeRiffHeader() UTL_REQUIRES(mLock);
    int loadRiffInfo() UTL_REQUIRES(mLock);
    int loadFormType() UTL_REQUIRES(mLock);
    int loadSubChunkInfos(unsigned long long offset) UTL_REQUIRES(mLock);
    bool takeDown(char const* id, unsigned int dataSize, unsigned long long position) UTL_REQUIRES(mLock);
    void closeAndForget() UTL_REQUIRES(mLock);
    int lastInFile() const UTL_REQUIRES(mLock);
    bool updateRiffSize() UTL_REQUIRES(mLock);
    unsigned int knownAmong(unsigned int count) const UTL_REQUIRES(mLock);

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

#pragma once

#include <atomic>

#include "UtlPlatform.h"
#include "UtlRiffFile.h"
#include "UtlSyncObject.h"

namespace utl {

/// A WAVE file: a RIFF container of the form type "WAVE" with a sub-chunk "fmt " that describes the samples,
/// and one "data" with the samples, which are not converted. *Internally locked*, because every operation but
/// the six that return a format value holds the object's lock; these read one value each.
///
/// To write: `open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE)`, `setFmtChunkData`,
/// `openSubChunk(SubChunk::AT_START, CHUNK_DATA)`, `write` repeatedly, `closeSubChunk`, `close`. To read:
/// `open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ)`, `openSubChunk(SubChunk::AT_START, CHUNK_DATA)`, `read`
/// until `SubChunk::END_OF_DATA`, `closeSubChunk`, `close`.
///
/// Bytes per second and block align are computed here without the division by 8 that other programs make:
/// for 16 bits, mono, 8000 times a second, the file says 128000 and 16, and so do the accessors. The values
/// in a foreign file are ignored. Other players mostly compute both values again; those that trust the file
/// read 8 times the width here, and may refuse the file or play it wrongly.
///
/// Of a file with more than 64 sub-chunks only the first 64 are known. Results are 1 for true and 0 for false
/// unless a function says otherwise. Nothing is logged here. Call `close` before the destructor, which
/// updates no size. `close` keeps format values and numbers of sub-chunks, so take a new object for a new
/// file.
class UTL_API WaveFile {
  public:
    /// The sub-chunks.
    enum ChunkKind {
        CHUNK_FMT = 0,  ///< "fmt"
        CHUNK_DATA = 1  ///< "data"
    };

    /// What `open` returns.
    enum Result { OPENED = 0, OPEN_FAILED = 1, NO_WAVE_FILE = 2, NO_FMT_CHUNK = 3, NO_DATA_CHUNK = 4 };

    /// Closes a file at the end of a scope, whatever the result. *One owner thread*, that of the scope.
    class [[nodiscard]] UTL_API AutoClose {
      public:
        /// `waveFile` must live as long as this.
        explicit AutoClose(WaveFile& waveFile) noexcept : mWaveFile(waveFile) {}
        virtual ~AutoClose();
        AutoClose(AutoClose const&) = delete;
        AutoClose& operator=(AutoClose const&) = delete;

      private:
        WaveFile& mWaveFile;
    };

    /// Touches no file.
    explicit WaveFile(char const* path);

    /// Closes the file without `close`: no size is updated.
    virtual ~WaveFile();
    WaveFile(WaveFile const&) = delete;
    WaveFile& operator=(WaveFile const&) = delete;

    /// Opens the file with the arguments of `RiffFile::open`; a new file gets its form type, and from any
    /// other the format values are loaded.
    ///
    /// | Result              | Meaning                                                     | Afterwards |
    /// |---------------------|-------------------------------------------------------------|------------|
    /// | `OPENED`        (0) | done                                                        | open       |
    /// | `OPEN_FAILED`   (1) | other arguments, or the file cannot be opened; also if open | closed     |
    /// | `OPEN_FAILED`   (1) | "fmt" cannot be read or is shorter than 16 bytes            | open       |
    /// | `NO_WAVE_FILE`  (2) | no RIFF file, or one of another form type                   | closed     |
    /// | `NO_FMT_CHUNK`  (3) | there is no "fmt"                                           | open       |
    /// | `NO_DATA_CHUNK` (4) | there is no "data"                                          | open       |
    ///
    /// A file that is open after a failure must be closed. Wrong arguments do not change an open object.
    /// After 4 the "fmt" of the file is not known either: `setFmtChunkData` and `openSubChunk` append a
    /// second one, which the next `open` ignores.
    int open(int disposition, int access);

    /// As `RiffFile::close`.
    int close();

    /// True while the file is open.
    [[nodiscard]] int isOpened();

    /// Writes "fmt", appending it if the file has none, and stores the values. False, with the old values
    /// kept, while a sub-chunk is open, on failure, and once "data" exists: only the last sub-chunk can be
    /// written.
    int setFmtChunkData(unsigned int samplingRate, unsigned short channels, unsigned short bitsWidth,
                        unsigned short formatId);

    /// Opens the sub-chunk of this `ChunkKind` at the start or the end of its data, for the `mode`
    /// `SubChunk::AT_START` (0) or `SubChunk::AT_END` (1), appending it if the file has none. False for
    /// another `mode` or kind, if the file is not open, for "data" without a "fmt", while a sub-chunk is
    /// open, and on failure.
    int openSubChunk(int mode, int chunkKind);

    /// As `RiffFile::closeSubChunk`.
    int closeSubChunk();

    /// True if the sub-chunk of this kind is the open one.
    [[nodiscard]] int isOpenedSubChunk(int chunkKind);

    /// Bytes of data when the file was opened, 0 for a sub-chunk that was added since; -1 for another kind
    /// and for a sub-chunk that does not exist.
    [[nodiscard]] long long getChunkDataSize(int chunkKind) const;

    /// As `RiffFile::read`.
    int read(void* buffer, unsigned int length);

    /// As `RiffFile::write`; -1 also while there is no "fmt".
    int write(void const* buffer, unsigned int length);

    ///@{
    /// As for `RiffFile`.
    long long seek(int origin, long long offset);
    [[nodiscard]] long long position() const;
    [[nodiscard]] long long size() const;
    [[nodiscard]] char const* getPath() const;
    ///@}

    ///@{
    /// The value of "fmt" that was loaded or set last, 0 at first; takes no lock. `getBytePerSec` is sampling
    /// rate times channels times bits in 32 bits, `getBlockAlign` channels times bits in 16.
    [[nodiscard]] unsigned int getSamplingRate() noexcept;
    [[nodiscard]] unsigned short getChannel() noexcept;
    [[nodiscard]] unsigned short getBitsWidth() noexcept;
    [[nodiscard]] unsigned short getFormatId() noexcept;
    [[nodiscard]] unsigned int getBytePerSec() noexcept;
    [[nodiscard]] unsigned short getBlockAlign() noexcept;
    ///@}

  private:
    int loadWaveFile() UTL_REQUIRES(mLock);
    int findSubChunk(char const* name) UTL_REQUIRES(mLock);
    bool loadFormat() UTL_REQUIRES(mLock);
    bool openOrAdd(int mode, int& id, char const* name) UTL_REQUIRES(mLock);
    int const* idOf(int chunkKind) const UTL_REQUIRES(mLock);

    RiffFile* mRiffFile UTL_PT_GUARDED_BY(mLock);
    int mFmtChunkId UTL_GUARDED_BY(mLock) = RiffFile::NO_SUB_CHUNK;
    int mDataChunkId UTL_GUARDED_BY(mLock) = RiffFile::NO_SUB_CHUNK;
    std::atomic<unsigned int> mSamplingRate{0};
    std::atomic<unsigned short> mChannel{0};
    std::atomic<unsigned short> mBitsWidth{0};
    std::atomic<unsigned short> mFormatId{0};
    SyncObject mLock;
};

}  // namespace utl

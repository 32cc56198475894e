#pragma once

#include <atomic>

#include "UtlPlatform.h"
#include "UtlSyncObject.h"

namespace utl {

class RiffFile;

/// A WAVE file: a RIFF container of the form type "WAVE" with a sub-chunk "fmt " that tells how the samples
/// look, and one "data" with the samples, which pass as they are. *Internally locked*, because every
/// operation but the six that give a format value holds the object's lock; these read one value each.
///
/// To write: `open(1, 1)`, `setFmtChunkData`, `openSubChunk(0, 1)`, `write` again and again, `closeSubChunk`,
/// `close`. To read: `open(0, 0)`, `openSubChunk(0, 1)`, `read` until -4, `closeSubChunk`, `close`.
///
/// Bytes per second and block align are computed here without the division by 8 that other programs make: of
/// 16 bits, mono, 8000 times a second, the file says 128000 and 16, and so do the accessors. What a foreign
/// file says there is not looked at. Other players mostly compute both values anew; those that trust the file
/// take what is written here for 8 times the width, and may refuse it or play wrongly.
///
/// Kinds of sub-chunk: 0 is "fmt", 1 is "data". A file of more than 64 sub-chunks is known by its first 64.
/// Results are 1 for true and 0 for false unless a function says otherwise. Nothing is logged here. `close`
/// before the destructor, which brings no size up to date. `close` keeps format values and numbers of
/// sub-chunks; so take a new object for a new file.
class UTL_API WaveFile {
  public:
    /// Closes a file at the end of a scope, whatever the result. *One owner thread*, that of the scope.
    class UTL_API AutoClose {
      public:
        /// `waveFile` must live as long as this.
        explicit AutoClose(WaveFile& waveFile) : mWaveFile(waveFile) {}
        virtual ~AutoClose();
        AutoClose(AutoClose const&) = delete;
        AutoClose& operator=(AutoClose const&) = delete;

      private:
        WaveFile& mWaveFile;
    };

    /// Touches no file.
    explicit WaveFile(char const* path);

    /// Closes the file without `close`: no size is brought up to date.
    virtual ~WaveFile();
    WaveFile(WaveFile const&) = delete;
    WaveFile& operator=(WaveFile const&) = delete;

    /// Opens the file with the arguments of `RiffFile::open`; a new file gets its form type, and of any other
    /// the format values are loaded.
    ///
    /// | Result | Meaning                                                     | Afterwards              |
    /// |--------|-------------------------------------------------------------|-------------------------|
    /// | 0      | done                                                        | open                    |
    /// | 1      | other arguments, or the file cannot be opened; also if open | closed                  |
    /// | 1      | "fmt" cannot be read or is shorter than 16 bytes            | open, and to be closed  |
    /// | 2      | no RIFF file, or one of another form type                   | closed                  |
    /// | 3      | there is no "fmt"                                           | open, and to be closed  |
    /// | 4      | there is no "data"                                          | open, and to be closed  |
    ///
    /// Wrong arguments leave an open object as it is. After 4 the "fmt" of the file is not known either:
    /// `setFmtChunkData` and `openSubChunk` append a second one, which the next `open` does not look at.
    int open(int disposition, int access);

    /// As `RiffFile::close`.
    int close();

    /// True while the file is open.
    int isOpened();

    /// Writes "fmt", appending it if the file has none, and takes the values over. False, with the old values
    /// kept, while a sub-chunk is open, on failure, and once "data" is there: only the last sub-chunk can be
    /// written.
    int setFmtChunkData(unsigned int samplingRate, unsigned short channels, unsigned short bitsWidth,
                        unsigned short formatId);

    /// Opens the sub-chunk of this kind at the start (`mode` 0) or the end (1) of its data, appending it if
    /// the file has none. False for another `mode` or kind, if the file is not open, for "data" where there
    /// is no "fmt", while a sub-chunk is open, and on failure.
    int openSubChunk(int mode, int chunkKind);

    /// As `RiffFile::closeSubChunk`.
    int closeSubChunk();

    /// True if the sub-chunk of this kind is the open one.
    int isOpenedSubChunk(int chunkKind);

    /// Bytes of data when the file was opened, 0 for what was added since; -1 for another kind and where
    /// there is none.
    long long getChunkDataSize(int chunkKind) const;

    /// As `RiffFile::read`.
    int read(void* buffer, unsigned int length);

    /// As `RiffFile::write`; -1 also where there is no "fmt" yet.
    int write(void const* buffer, unsigned int length);

    ///@{
    /// As for `RiffFile`.
    long long seek(int origin, long long offset);
    long long position() const;
    long long size() const;
    char const* getPath() const;
    ///@}

    ///@{
    /// The value of "fmt" that was loaded or set last, 0 at first; takes no lock. `getBytePerSec` is sampling
    /// rate times channels times bits in 32 bits, `getBlockAlign` channels times bits in 16.
    unsigned int getSamplingRate();
    unsigned short getChannel();
    unsigned short getBitsWidth();
    unsigned short getFormatId();
    unsigned int getBytePerSec();
    unsigned short getBlockAlign();
    ///@}

  private:
    int loadWaveFile() UTL_REQUIRES(mLock);
    int findSubChunk(char const* name) UTL_REQUIRES(mLock);
    bool loadFormat() UTL_REQUIRES(mLock);
    bool openOrAdd(int mode, int& id, char const* name) UTL_REQUIRES(mLock);
    int const* idOf(int chunkKind) const UTL_REQUIRES(mLock);

    RiffFile* mRiffFile UTL_PT_GUARDED_BY(mLock);
    int mFmtChunkId UTL_GUARDED_BY(mLock) = -1;
    int mDataChunkId UTL_GUARDED_BY(mLock) = -1;
    std::atomic<unsigned int> mSamplingRate{0};
    std::atomic<unsigned short> mChannel{0};
    std::atomic<unsigned short> mBitsWidth{0};
    std::atomic<unsigned short> mFormatId{0};
    SyncObject mLock;
};

}  // namespace utl

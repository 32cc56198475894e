#include "UtlWaveFile.h"

#include <cstring>

#include "UtlBitStream.h"
#include "UtlFile.h"
#include "internal/file/UtlRiffFields.h"
#include "internal/thread/UtlKeepAlive.h"

namespace utl {

namespace {

constexpr char SOURCE[] = "source/UtlWaveFile";

constexpr unsigned int MAX_SUB_CHUNKS = 64;
constexpr char FORM_TYPE[] = "WAVE";
constexpr char FMT[] = "fmt";
constexpr char DATA[] = "data";

constexpr unsigned int bytesPerSecond(unsigned int samplingRate, unsigned int channels,
                                      unsigned int bitsWidth) {
    return channels * samplingRate * bitsWidth;
}

constexpr unsigned short blockAlign(unsigned int channels, unsigned int bitsWidth) {
    return static_cast<unsigned short>(bitsWidth * channels);
}

// The 16 bytes of "fmt".
constexpr unsigned int FORMAT_BYTES = 16;

class FormatWriter {
  public:
    template <typename T>
    void put(T value) {
        serialize(value, mNext);
        mNext += sizeof(value);
    }
    unsigned char const* bytes() const { return mBytes; }

  private:
    unsigned char mBytes[FORMAT_BYTES] = {};
    unsigned char* mNext = mBytes;
};

// Reads a value of "fmt"; false if it is incomplete.
template <typename T>
bool readValue(RiffFile& file, T* value) {
    unsigned char bytes[sizeof(T)] = {};
    int const count = file.read(bytes, sizeof(bytes));
    return count == static_cast<int>(sizeof(bytes)) && unserialize(bytes, value);
}

}  // namespace

WaveFile::AutoClose::~AutoClose() {
    mWaveFile.close();
}

WaveFile::WaveFile(char const* path) : mRiffFile(new RiffFile(path, MAX_SUB_CHUNKS)) {}

WaveFile::~WaveFile() {
    delete mRiffFile;
}

int WaveFile::open(int disposition, int access) {
    if (!isZeroOrOne(disposition) || !isZeroOrOne(access)) {
        return OPEN_FAILED;
    }
    WatchedGuard const guard(mLock, SOURCE, "open", __LINE__);
    bool const isNew = disposition == RiffFile::OPEN_NEW || File::exists(mRiffFile->getPath()) == 0;
    int const opened = mRiffFile->open(disposition, access);
    if (opened != OPENED) {
        mRiffFile->close();
        return opened;
    }
    if (access == RiffFile::ACCESS_READ_WRITE && isNew) {
        if (mRiffFile->setFormType(FORM_TYPE) == 0) {
            mRiffFile->close();
            return OPEN_FAILED;
        }
        return OPENED;
    }
    int const loaded = loadWaveFile();
    if (loaded == NO_WAVE_FILE) {
        mRiffFile->close();
    }
    return loaded;
}

int WaveFile::loadWaveFile() {
    if (std::strcmp(mRiffFile->getFormType(), FORM_TYPE) != 0) {
        return NO_WAVE_FILE;
    }
    int const fmtChunkId = findSubChunk(FMT);
    if (fmtChunkId == RiffFile::INVALID_SUB_CHUNK) {
        return NO_FMT_CHUNK;
    }
    int const dataChunkId = findSubChunk(DATA);
    if (dataChunkId == RiffFile::INVALID_SUB_CHUNK) {
        return NO_DATA_CHUNK;
    }
    mFmtChunkId = fmtChunkId;
    mDataChunkId = dataChunkId;
    return loadFormat() ? OPENED : OPEN_FAILED;
}

// The number of the first sub-chunk of this name.
int WaveFile::findSubChunk(char const* name) {
    SubChunkInfo found[MAX_SUB_CHUNKS];
    int const count = mRiffFile->getSubChunkInfoList(name, found, MAX_SUB_CHUNKS);
    return count > 0 ? static_cast<int>(found[0].mId) : RiffFile::INVALID_SUB_CHUNK;
}

// If a value is missing, the sub-chunk stays open.
bool WaveFile::loadFormat() {
    unsigned short formatId = 0;
    unsigned short channel = 0;
    unsigned int samplingRate = 0;
    unsigned int ignoredBytesPerSecond = 0;
    unsigned short ignoredBlockAlign = 0;
    unsigned short bitsWidth = 0;
    bool const isRead =
        mRiffFile->openSubChunk(static_cast<unsigned int>(mFmtChunkId), SubChunk::AT_START) != 0 &&
        readValue(*mRiffFile, &formatId) && readValue(*mRiffFile, &channel) &&
        readValue(*mRiffFile, &samplingRate) && readValue(*mRiffFile, &ignoredBytesPerSecond) &&
        readValue(*mRiffFile, &ignoredBlockAlign) && readValue(*mRiffFile, &bitsWidth);
    if (!isRead || mRiffFile->closeSubChunk() == 0) {
        return false;
    }
    mFormatId = formatId;
    mChannel = channel;
    mSamplingRate = samplingRate;
    mBitsWidth = bitsWidth;
    return true;
}

int WaveFile::close() {
    WatchedGuard const guard(mLock, SOURCE, "close", __LINE__);
    return mRiffFile->close();
}

int WaveFile::isOpened() {
    WatchedGuard const guard(mLock, SOURCE, "isOpened", __LINE__);
    return mRiffFile->isOpened();
}

int WaveFile::setFmtChunkData(unsigned int samplingRate, unsigned short channels, unsigned short bitsWidth,
                              unsigned short formatId) {
    WatchedGuard const guard(mLock, SOURCE, "setFmtChunkData", __LINE__);
    FormatWriter format;
    format.put(formatId);
    format.put(channels);
    format.put(samplingRate);
    format.put(bytesPerSecond(samplingRate, channels, bitsWidth));
    format.put(blockAlign(channels, bitsWidth));
    format.put(bitsWidth);
    if (!openOrAdd(SubChunk::AT_START, mFmtChunkId, FMT)) {
        return 0;
    }
    bool const isWritten = mRiffFile->write(format.bytes(), FORMAT_BYTES) == int{FORMAT_BYTES};
    if (mRiffFile->closeSubChunk() == 0 || !isWritten) {
        return 0;
    }
    mSamplingRate = samplingRate;
    mChannel = channels;
    mBitsWidth = bitsWidth;
    mFormatId = formatId;
    return 1;
}

int WaveFile::openSubChunk(int mode, int chunkKind) {
    if (!isZeroOrOne(mode)) {
        return 0;
    }
    WatchedGuard const guard(mLock, SOURCE, "openSubChunk", __LINE__);
    if (mRiffFile->isOpened() == 0) {
        return 0;
    }
    if (chunkKind == CHUNK_FMT) {
        return openOrAdd(mode, mFmtChunkId, FMT) ? 1 : 0;
    }
    bool const isData = chunkKind == CHUNK_DATA && mFmtChunkId != RiffFile::NO_SUB_CHUNK;
    return isData && openOrAdd(mode, mDataChunkId, DATA) ? 1 : 0;
}

// Opens the sub-chunk `id`; where there is none yet, appends one and stores its number.
bool WaveFile::openOrAdd(int mode, int& id, char const* name) {
    if (id != RiffFile::NO_SUB_CHUNK) {
        return mRiffFile->openSubChunk(static_cast<unsigned int>(id), mode) != 0;
    }
    int const added = mRiffFile->addSubChunk(name);
    if (added == RiffFile::INVALID_SUB_CHUNK) {
        return false;
    }
    id = added;
    return true;
}

int WaveFile::closeSubChunk() {
    WatchedGuard const guard(mLock, SOURCE, "closeSubChunk", __LINE__);
    return mRiffFile->closeSubChunk();
}

// Null for another kind, and for a sub-chunk that does not exist.
int const* WaveFile::idOf(int chunkKind) const {
    if (!isZeroOrOne(chunkKind)) {
        return nullptr;
    }
    int const& id = chunkKind == CHUNK_FMT ? mFmtChunkId : mDataChunkId;
    return id != RiffFile::NO_SUB_CHUNK ? &id : nullptr;
}

int WaveFile::isOpenedSubChunk(int chunkKind) {
    WatchedGuard const guard(mLock, SOURCE, "isOpenedSubChunk", __LINE__);
    int const* const id = idOf(chunkKind);
    return id != nullptr ? mRiffFile->isOpenedSubChunk(*id) : 0;
}

long long WaveFile::getChunkDataSize(int chunkKind) const {
    WatchedGuard const guard(mLock, SOURCE, "getChunkDataSize", __LINE__);
    int const* const id = idOf(chunkKind);
    SubChunkInfo info;
    bool const isFound =
        id != nullptr && mRiffFile->getSubChunkInfo(static_cast<unsigned int>(*id), &info) != 0;
    return isFound ? static_cast<long long>(info.mDataSize) : -1;
}

int WaveFile::read(void* buffer, unsigned int length) {
    WatchedGuard const guard(mLock, SOURCE, "read", __LINE__);
    return mRiffFile->read(buffer, length);
}

int WaveFile::write(void const* buffer, unsigned int length) {
    WatchedGuard const guard(mLock, SOURCE, "write", __LINE__);
    return mFmtChunkId != RiffFile::NO_SUB_CHUNK ? mRiffFile->write(buffer, length) : -1;
}

long long WaveFile::seek(int origin, long long offset) {
    WatchedGuard const guard(mLock, SOURCE, "seek", __LINE__);
    return mRiffFile->seek(origin, offset);
}

long long WaveFile::position() const {
    WatchedGuard const guard(mLock, SOURCE, "position", __LINE__);
    return mRiffFile->position();
}

long long WaveFile::size() const {
    WatchedGuard const guard(mLock, SOURCE, "size", __LINE__);
    return mRiffFile->size();
}

char const* WaveFile::getPath() const {
    WatchedGuard const guard(mLock, SOURCE, "getPath", __LINE__);
    return mRiffFile->getPath();
}

unsigned int WaveFile::getSamplingRate() noexcept {
    return mSamplingRate;
}

unsigned short WaveFile::getChannel() noexcept {
    return mChannel;
}

unsigned short WaveFile::getBitsWidth() noexcept {
    return mBitsWidth;
}

unsigned short WaveFile::getFormatId() noexcept {
    return mFormatId;
}

unsigned int WaveFile::getBytePerSec() noexcept {
    return bytesPerSecond(mSamplingRate, mChannel, mBitsWidth);
}

unsigned short WaveFile::getBlockAlign() noexcept {
    return blockAlign(mChannel, mBitsWidth);
}

}  // namespace utl

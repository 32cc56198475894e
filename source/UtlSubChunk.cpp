#include "UtlSubChunk.h"

#include <climits>
#include <cstring>

#include "UtlFile.h"
#include "UtlString.h"
#include "internal/base/UtlSetIfGiven.h"
#include "internal/file/UtlRiffFields.h"
#include "internal/thread/UtlKeepAlive.h"

namespace utl {

namespace {

constexpr char SOURCE[] = "source/UtlSubChunk";

bool isUsable(File const* file) {
    return file != nullptr && file->isOpened() != 0;
}

bool seekTo(File* file, unsigned long long position) {
    return file->seek(static_cast<long long>(position), File::FROM_START) != -1;
}

/// Reads the 8 bytes at the file's position. `File::END_OF_FILE` if none of them exists, -1 if only a part.
int readRawHeader(File* file, char* id, unsigned int* dataSize) {
    int const result = readRiffBytes(file, id, RIFF_ID_BYTES);
    if (result != 0) {
        return result;
    }
    return readRiffSize(file, dataSize) == 0 ? 0 : -1;
}

/// Stores an id from a file as text.
bool storeId(char* dst, unsigned int dstSize, char const* id) {
    RiffIdText text = {};
    RiffIdText trimmed = {};
    if (dstSize < sizeof(text) || !decodeRiffId(text, id) || !trimRiffId(trimmed, text)) {
        return false;
    }
    return copyStrBase(dst, dstSize, trimmed, INVALID_SIZE, 0) != INVALID_SIZE;
}

}  // namespace

SubChunkInfo::SubChunkInfo(unsigned int id, char const* name, unsigned int dataSize)
    : mId(id), mName(name), mDataSize(dataSize) {}

SubChunk::AutoClose::~AutoClose() {
    mSubChunk.close();
}

SubChunk::~SubChunk() {
    close();
}

int SubChunk::readHeader(File* file, unsigned long long position, char* id, unsigned int idSize,
                         unsigned int* dataSize) {
    long long const fileSize = isUsable(file) ? file->size() : -1;
    if (fileSize == -1) {
        return -1;
    }
    // Known without a seek, which the system refuses beyond the largest position of a file.
    if (position >= static_cast<unsigned long long>(fileSize)) {
        return File::END_OF_FILE;
    }
    long long const before = file->position();
    if (before == -1 || !seekTo(file, position)) {
        return -1;
    }
    char rawId[RIFF_ID_BYTES] = {};
    unsigned int size = 0;
    int const result = readRawHeader(file, rawId, &size);
    bool const isBack = seekTo(file, static_cast<unsigned long long>(before));
    if (result != 0) {
        return result;
    }
    if (!isBack || (id != nullptr && !storeId(id, idSize, rawId))) {
        return -1;
    }
    setIfGiven(dataSize, size);
    return 0;
}

int SubChunk::add(File* file, char const* id) {
    if (!isUsable(file) || id == nullptr) {
        return 0;
    }
    WatchedGuard const guard(mLock, SOURCE, "add", __LINE__);
    if (mOpened || mFile != nullptr) {
        return 0;
    }
    long long const position = file->seek(0, File::FROM_END);
    if (position == -1 || writeSubChunKId(id, file) == 0 || !writeRiffSize(file, 0)) {
        return 0;
    }
    return attachTo(file, id, static_cast<unsigned long long>(position));
}

int SubChunk::open(File* file, unsigned long long position, int mode) {
    if (!isUsable(file)) {
        return 0;
    }
    WatchedGuard const guard(mLock, SOURCE, "open", __LINE__);
    if (mOpened || mFile != nullptr || !seekTo(file, position)) {
        return 0;
    }
    RiffIdText id = {};
    unsigned int size = 0;
    if (readRawHeader(file, id, &size) != 0) {
        return 0;
    }
    bool const isPlaced = mode == AT_START || (mode == AT_END && file->seek(size, File::FROM_POSITION) != -1);
    if (!isPlaced || attachTo(file, id, position) == 0) {
        return 0;
    }
    mDataSize = size;
    return 1;
}

// The header is in the file.
int SubChunk::attachTo(File* file, char const* id, unsigned long long position) {
    if (!trimRiffId(mSubChunkId, id)) {
        return 0;
    }
    mFile = file;
    mPosition = position;
    mOpened = true;
    return 1;
}

int SubChunk::close() {
    WatchedGuard const guard(mLock, SOURCE, "close", __LINE__);
    if (!mOpened) {
        return 1;
    }
    if (!hasOpenFile()) {
        return 0;
    }
    unsigned long long const sizePosition = mPosition + RIFF_ID_BYTES;
    unsigned int written = 0;
    if (!seekTo(mFile, sizePosition) || readRiffSize(mFile, &written) != 0) {
        return 0;
    }
    if (written != mDataSize && (!seekTo(mFile, sizePosition) || !writeRiffSize(mFile, mDataSize))) {
        return 0;
    }
    detach();
    return 1;
}

// The state after construction; the file is not touched.
void SubChunk::detach() {
    std::memset(mSubChunkId, 0, sizeof(mSubChunkId));
    mDataSize = 0;
    mFile = nullptr;
    mPosition = 0;
    mOpened = false;
}

int SubChunk::isOpened() const noexcept {
    return mOpened ? 1 : 0;
}

int SubChunk::read(void* buffer, unsigned int length) {
    if (buffer == nullptr || length > INT_MAX) {
        return -1;
    }
    WatchedGuard const guard(mLock, SOURCE, "read", __LINE__);
    long long const position = positionInFile();
    if (position == -1) {
        return -1;
    }
    auto const from = static_cast<unsigned long long>(position);
    if (from >= dataEnd()) {
        return END_OF_DATA;
    }
    unsigned long long const remainder = dataEnd() - from;
    int const result =
        mFile->read(buffer, length < remainder ? length : static_cast<unsigned int>(remainder));
    return result == File::END_OF_FILE ? END_OF_DATA : result;
}

int SubChunk::write(void const* buffer, unsigned int length) {
    if (buffer == nullptr || length > INT_MAX) {
        return -1;
    }
    WatchedGuard const guard(mLock, SOURCE, "write", __LINE__);
    int const result = hasOpenFile() ? mFile->write(buffer, length) : -1;
    return result != -1 && growTo(mFile->position()) ? result : -1;
}

// Extends the data to `position` of the file, which is -1 if it is not available.
bool SubChunk::growTo(long long position) {
    if (position == -1) {
        return false;
    }
    auto const end = static_cast<unsigned long long>(position);
    if (end <= dataEnd()) {
        return true;
    }
    unsigned long long const size = end - dataStart();
    if (size > UINT_MAX) {
        return false;
    }
    mDataSize = static_cast<unsigned int>(size);
    return true;
}

long long SubChunk::seek(int origin, long long offset) {
    WatchedGuard const guard(mLock, SOURCE, "seek", __LINE__);
    if (!hasOpenFile() || origin < File::FROM_START || origin > File::FROM_POSITION) {
        return -1;
    }
    auto const start = static_cast<long long>(dataStart());
    long long base = origin == File::FROM_END ? static_cast<long long>(mDataSize) : 0;
    if (origin == File::FROM_POSITION) {
        long long const position = mFile->position();
        if (position == -1) {
            return -1;
        }
        base = position - start;
    }
    if (offset < -base || offset > static_cast<long long>(mDataSize) - base) {
        return -1;
    }
    long long const reached = mFile->seek(start + base + offset, File::FROM_START);
    return reached >= start ? reached - start : -1;
}

long long SubChunk::position() const {
    WatchedGuard const guard(mLock, SOURCE, "position", __LINE__);
    long long const position = positionInFile();
    auto const start = static_cast<long long>(dataStart());
    return position >= start ? position - start : -1;
}

char const* SubChunk::getSubChunkId() const {
    WatchedGuard const guard(mLock, SOURCE, "getSubChunkId", __LINE__);
    return hasOpenFile() ? mSubChunkId : nullptr;
}

unsigned int SubChunk::getDataSize() const {
    WatchedGuard const guard(mLock, SOURCE, "getDataSize", __LINE__);
    return hasOpenFile() ? mDataSize : INVALID_SIZE;
}

int SubChunk::writeSubChunKId(char const* id, File* file) {
    RiffIdText padded = {};
    bool const isId = id != nullptr && file != nullptr && padRiffId(padded, id);
    return isId && writeRiffBytes(file, padded, RIFF_ID_BYTES) ? 1 : 0;
}

bool SubChunk::hasOpenFile() const {
    return mOpened && isUsable(mFile);
}

unsigned long long SubChunk::dataStart() const {
    return mPosition + RIFF_HEADER_BYTES;
}

unsigned long long SubChunk::dataEnd() const {
    return dataStart() + mDataSize;
}

// -1 if not open or on failure.
long long SubChunk::positionInFile() const {
    return hasOpenFile() ? mFile->position() : -1;
}

}  // namespace utl

#include "UtlRiffFile.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "UtlFile.h"
#include "internal/file/UtlRiffFields.h"
#include "internal/thread/UtlKeepAlive.h"

namespace utl {

namespace {

constexpr char SOURCE[] = "source/UtlRiffFile";

constexpr char MAGIC[] = "RIFF";
constexpr unsigned int SIZE_OFFSET = RIFF_ID_BYTES;
constexpr unsigned int FORM_TYPE_OFFSET = RIFF_HEADER_BYTES;

}  // namespace

RiffFile::AutoClose::~AutoClose() {
    mRiffFile.close();
}

RiffFile::RiffFile(char const* path, unsigned int maximumSubChunks)
    : mFile(nullptr),
      mSubChunkInfos(maximumSubChunks, 0),
      mLastSubChunkId(NO_SUB_CHUNK),
      mSubChunkPositions(maximumSubChunks, 0),
      mFormType{},
      mRiffSize(0),
      mOpenedSubChunkId(NO_SUB_CHUNK) {
    mFile = new File(path, File::TEXT_UTF8);
}

// A sub-chunk that was left open must not use the file any more.
RiffFile::~RiffFile() {
    mSubChunk.detach();
    delete mFile;
}

int RiffFile::open(int disposition, int access) {
    if (!isZeroOrOne(disposition) || !isZeroOrOne(access)) {
        return OPEN_FAILED;
    }
    WatchedGuard const guard(mLock, SOURCE, "open", __LINE__);
    bool const existed = mFile->exists() != 0;
    int const isOpen = mFile->open(disposition == OPEN_KEEP ? File::OPEN_KEEP : File::OPEN_EMPTY,
                                   access == ACCESS_READ ? File::ACCESS_READ : File::ACCESS_READ_WRITE);
    if (isOpen == 0) {
        return OPEN_FAILED;
    }
    bool const isLoaded = access == ACCESS_READ || (disposition == OPEN_KEEP && existed);
    int const result = isLoaded ? loadRiffInfo() : writeRiffHeader();
    if (result != OPENED) {
        closeAndClear();
        if (!isLoaded) {
            mFile->erase(File::KEEP_READ_ONLY);
        }
        return result;
    }
    mRiffSize = static_cast<unsigned long long>(mFile->size()) - RIFF_HEADER_BYTES;
    return OPENED;
}

// The form type is not written: `setFormType` does that.
int RiffFile::writeRiffHeader() {
    bool const isWritten = mFile->isOpened() != 0 && mFile->position() == 0 &&
                           writeRiffBytes(mFile, MAGIC, RIFF_ID_BYTES) && writeRiffSize(mFile, 0);
    return isWritten ? OPENED : OPEN_FAILED;
}

int RiffFile::loadRiffInfo() {
    if (mFile->isOpened() == 0 || mFile->position() != 0) {
        return NO_RIFF_FILE;
    }
    char magic[RIFF_ID_BYTES] = {};
    if (readRiffBytes(mFile, magic, sizeof(magic)) != 0 || std::memcmp(magic, MAGIC, sizeof(magic)) != 0) {
        return NO_RIFF_FILE;
    }
    int const result = loadFormType();
    long long const offset = result == OPENED ? mFile->position() : -1;
    return offset != -1 ? loadSubChunkInfos(static_cast<unsigned long long>(offset)) : OPEN_FAILED;
}

// A file that ends before the form type has an empty one.
int RiffFile::loadFormType() {
    char formType[RIFF_ID_BYTES] = {};
    if (mFile->seek(FORM_TYPE_OFFSET, File::FROM_START) == -1 ||
        mFile->read(formType, sizeof(formType)) == -1) {
        return OPEN_FAILED;
    }
    return decodeRiffId(mFormType, formType) ? OPENED : OPEN_FAILED;
}

// The rest of the file is ignored when there is no more room.
int RiffFile::loadSubChunkInfos(unsigned long long offset) {
    unsigned int const bound = std::min(mSubChunkInfos.maxSize(), mSubChunkPositions.maxSize());
    for (unsigned int i = 0; i < bound; ++i) {
        RiffIdText id = {};
        unsigned int dataSize = 0;
        int const result = SubChunk::readHeader(mFile, offset, id, sizeof(id), &dataSize);
        if (result != 0) {
            return result == File::END_OF_FILE ? OPENED : OPEN_FAILED;
        }
        ++mLastSubChunkId;
        if (!recordSubChunk(id, dataSize, offset)) {
            return OPEN_FAILED;
        }
        offset += RIFF_HEADER_BYTES + static_cast<unsigned long long>(dataSize);
    }
    return OPENED;
}

// Under the last number. False if there is no room.
bool RiffFile::recordSubChunk(char const* id, unsigned int dataSize, unsigned long long position) {
    auto const number = static_cast<unsigned int>(mLastSubChunkId);
    return mSubChunkInfos.insertAt(mSubChunkInfos.size(), SubChunkInfo(number, id, dataSize)) &&
           mSubChunkPositions.find(mLastSubChunkId) == nullptr &&
           mSubChunkPositions.insert(mLastSubChunkId, position);
}

void RiffFile::closeAndClear() {
    mFile->close();
    mLastSubChunkId = NO_SUB_CHUNK;
    mOpenedSubChunkId = NO_SUB_CHUNK;
    mRiffSize = 0;
    mSubChunkInfos.clear();
    mSubChunkPositions.clear();
}

int RiffFile::close() {
    WatchedGuard const guard(mLock, SOURCE, "close", __LINE__);
    if (mFile->isOpened() == 0) {
        return 1;
    }
    if (!updateRiffSize()) {
        return 0;
    }
    int const isSubChunkClosed = mSubChunk.close();
    closeAndClear();
    return isSubChunkClosed;
}

bool RiffFile::updateRiffSize() {
    auto const size = static_cast<unsigned long long>(mFile->size()) - RIFF_HEADER_BYTES;
    if (size == mRiffSize) {
        return true;
    }
    return size <= UINT_MAX && mFile->seek(SIZE_OFFSET, File::FROM_START) != -1 &&
           writeRiffSize(mFile, static_cast<unsigned int>(size));
}

int RiffFile::isOpened() const {
    WatchedGuard const guard(mLock, SOURCE, "isOpened", __LINE__);
    return mFile->isOpened();
}

int RiffFile::addSubChunk(char const* id) {
    WatchedGuard const guard(mLock, SOURCE, "addSubChunk", __LINE__);
    long long const position = mFile->seek(0, File::FROM_END);
    if (position == -1 || mSubChunk.add(mFile, id) == 0) {
        return INVALID_SUB_CHUNK;
    }
    mLastSubChunkId = mLastSubChunkId == INVALID_SUB_CHUNK - 1 ? 0 : mLastSubChunkId + 1;
    if (!recordSubChunk(mSubChunk.getSubChunkId(), 0, static_cast<unsigned long long>(position))) {
        return INVALID_SUB_CHUNK;
    }
    mOpenedSubChunkId = mLastSubChunkId;
    return mLastSubChunkId;
}

int RiffFile::openSubChunk(unsigned int id, int mode) {
    if (!isZeroOrOne(mode)) {
        return 0;
    }
    WatchedGuard const guard(mLock, SOURCE, "openSubChunk", __LINE__);
    auto const number = static_cast<int>(id);
    unsigned long long const* const position = mSubChunkPositions.find(number);
    if (position == nullptr || mSubChunk.open(mFile, *position, mode) == 0) {
        return 0;
    }
    mOpenedSubChunkId = number;
    return 1;
}

int RiffFile::closeSubChunk() {
    WatchedGuard const guard(mLock, SOURCE, "closeSubChunk", __LINE__);
    if (mSubChunk.close() == 0) {
        return 0;
    }
    mOpenedSubChunkId = NO_SUB_CHUNK;
    return 1;
}

int RiffFile::isOpenedSubChunk(int id) const noexcept {
    return mOpenedSubChunkId == id ? 1 : 0;
}

int RiffFile::setFormType(char const* formType) {
    if (formType == nullptr) {
        return 0;
    }
    WatchedGuard const guard(mLock, SOURCE, "setFormType", __LINE__);
    long long const before = mFile->position();
    RiffIdText padded = {};
    if (before == -1 || !padRiffId(padded, formType) ||
        mFile->seek(FORM_TYPE_OFFSET, File::FROM_START) == -1) {
        return 0;
    }
    bool const isWritten = writeRiffBytes(mFile, padded, RIFF_ID_BYTES);
    if (mFile->seek(before, File::FROM_START) == -1 || !isWritten) {
        return 0;
    }
    return trimRiffId(mFormType, formType) ? 1 : 0;
}

char const* RiffFile::getFormType() const {
    WatchedGuard const guard(mLock, SOURCE, "getFormType", __LINE__);
    return mFormType;
}

int RiffFile::read(void* buffer, unsigned int length) {
    WatchedGuard const guard(mLock, SOURCE, "read", __LINE__);
    return mSubChunk.read(buffer, length);
}

int RiffFile::write(void const* buffer, unsigned int length) {
    WatchedGuard const guard(mLock, SOURCE, "write", __LINE__);
    return mOpenedSubChunkId == lastInFile() ? mSubChunk.write(buffer, length) : -1;
}

// The number of the last sub-chunk that has both its entry and its position, `NO_SUB_CHUNK` if there is none.
// It is after all others in the file, because they are recorded in that order.
int RiffFile::lastInFile() const {
    unsigned int const known = std::min(mSubChunkInfos.size(), mSubChunkPositions.size());
    return known != 0 ? static_cast<int>(mSubChunkInfos.getAt(known - 1)->mId) : NO_SUB_CHUNK;
}

long long RiffFile::seek(int origin, long long offset) {
    WatchedGuard const guard(mLock, SOURCE, "seek", __LINE__);
    return mSubChunk.seek(origin, offset);
}

long long RiffFile::position() const {
    WatchedGuard const guard(mLock, SOURCE, "position", __LINE__);
    return mSubChunk.position();
}

long long RiffFile::size() const {
    WatchedGuard const guard(mLock, SOURCE, "size", __LINE__);
    return mFile->size();
}

unsigned int RiffFile::getSubChunkNumber() {
    WatchedGuard const guard(mLock, SOURCE, "getSubChunkNumber", __LINE__);
    return isOpened() != 0 ? mSubChunkInfos.size() : INVALID_SIZE;
}

int RiffFile::getSubChunkNumber(char const* id) {
    WatchedGuard const guard(mLock, SOURCE, "getSubChunkNumber", __LINE__);
    if (id == nullptr || isOpened() == 0) {
        return -1;
    }
    int number = 0;
    for (unsigned int i = 0; i < mSubChunkInfos.size(); ++i) {
        number += mSubChunkInfos.getAt(i)->mName == id ? 1 : 0;
    }
    return number;
}

int RiffFile::getSubChunkInfo(unsigned int id, SubChunkInfo* info) {
    WatchedGuard const guard(mLock, SOURCE, "getSubChunkInfo", __LINE__);
    for (unsigned int i = 0; info != nullptr && i < mSubChunkInfos.size(); ++i) {
        SubChunkInfo const& known = *mSubChunkInfos.getAt(i);
        if (known.mId == id) {
            *info = known;
            return 1;
        }
    }
    return 0;
}

int RiffFile::getSubChunkInfoList(SubChunkInfo* list, unsigned int count) {
    WatchedGuard const guard(mLock, SOURCE, "getSubChunkInfoList", __LINE__);
    if (list == nullptr || isOpened() == 0) {
        return -1;
    }
    unsigned int const known = recordedAmong(count);
    for (unsigned int i = 0; i < known; ++i) {
        list[i] = *mSubChunkInfos.getAt(i);
    }
    return static_cast<int>(known);
}

int RiffFile::getSubChunkInfoList(char const* id, SubChunkInfo* list, unsigned int count) {
    WatchedGuard const guard(mLock, SOURCE, "getSubChunkInfoList", __LINE__);
    if (id == nullptr || list == nullptr || isOpened() == 0) {
        return -1;
    }
    int copied = 0;
    for (unsigned int i = 0; i < recordedAmong(count); ++i) {
        SubChunkInfo const& known = *mSubChunkInfos.getAt(i);
        if (known.mName == id) {
            list[copied++] = known;
        }
    }
    return copied;
}

unsigned int RiffFile::recordedAmong(unsigned int count) const {
    return std::min(count, mSubChunkInfos.size());
}

char const* RiffFile::getPath() const {
    WatchedGuard const guard(mLock, SOURCE, "getPath", __LINE__);
    return mFile->getPath();
}

}  // namespace utl

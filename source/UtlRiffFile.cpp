#include "UtlRiffFile.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "UtlFile.h"
#include "UtlString.h"
#include "internal/file/UtlRiffFields.h"
#include "internal/thread/UtlKeepAlive.h"

namespace utl {

namespace {

constexpr char SOURCE[] = "source/UtlRiffFile";

constexpr char MAGIC[] = "RIFF";
constexpr unsigned int SIZE_OFFSET = RIFF_ID_BYTES;
constexpr unsigned int FORM_TYPE_OFFSET = RIFF_HEADER_BYTES;
constexpr int TEXT_TYPE_UTF8 = 1;
constexpr int NO_ID = -1;
constexpr int END_OF_FILE = -3;

// Results of `open`.
enum Outcome { OPENED = 0, FAILED = 1, NO_RIFF_FILE = 2 };

// Arguments of `open`, and those of `File::open` that they stand for.
enum Disposition { KEEP = 0, START_NEW = 1 };
enum Access { READ = 0, READ_AND_WRITE = 1 };
constexpr int FILE_EMPTIED = 2;
constexpr int FILE_READ_AND_WRITE = 2;

constexpr bool isZeroOrOne(int value) {
    return value == 0 || value == 1;
}

}  // namespace

RiffFile::AutoClose::~AutoClose() {
    mRiffFile.close();
}

RiffFile::RiffFile(char const* path, unsigned int maximumSubChunks)
    : mFile(nullptr),
      mSubChunkInfos(maximumSubChunks, 0),
      mLastSubChunkId(NO_ID),
      mSubChunkPositions(maximumSubChunks, 0),
      mFormType{},
      mRiffSize(0),
      mOpenedSubChunkId(NO_ID) {
    mFile = new File(path, TEXT_TYPE_UTF8);
}

// A sub-chunk that was left open must not reach for the file any more.
RiffFile::~RiffFile() {
    mSubChunk.forget();
    delete mFile;
}

int RiffFile::open(int disposition, int access) {
    if (!isZeroOrOne(disposition) || !isZeroOrOne(access)) {
        return FAILED;
    }
    WatchedGuard const guard(mLock, SOURCE, "open", __LINE__);
    bool const existed = mFile->exists() != 0;
    int const isOpen =
        mFile->open(disposition == KEEP ? KEEP : FILE_EMPTIED, access == READ ? READ : FILE_READ_AND_WRITE);
    if (isOpen == 0) {
        return FAILED;
    }
    bool const isLoaded = access == READ || (disposition == KEEP && existed);
    int const result = isLoaded ? loadRiffInfo() : writeRiffHeader();
    if (result != OPENED) {
        closeAndForget();
        if (!isLoaded) {
            mFile->erase(0);
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
    return isWritten ? OPENED : FAILED;
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
    return offset != -1 ? loadSubChunkInfos(static_cast<unsigned long long>(offset)) : FAILED;
}

// A file that ends in front of the form type has an empty one.
int RiffFile::loadFormType() {
    char formType[RIFF_ID_BYTES] = {};
    if (mFile->seek(FORM_TYPE_OFFSET, 0) == -1 || mFile->read(formType, sizeof(formType)) == -1) {
        return FAILED;
    }
    return decodeRiffId(mFormType, formType) ? OPENED : FAILED;
}

// The rest of the file is ignored when there is no more room.
int RiffFile::loadSubChunkInfos(unsigned long long offset) {
    unsigned int const bound = std::min(mSubChunkInfos.maxSize(), mSubChunkPositions.maxSize());
    for (unsigned int i = 0; i < bound; ++i) {
        RiffIdText id = {};
        unsigned int dataSize = 0;
        int const result = SubChunk::readHeader(mFile, offset, id, sizeof(id), &dataSize);
        if (result != 0) {
            return result == END_OF_FILE ? OPENED : FAILED;
        }
        ++mLastSubChunkId;
        if (!takeDown(id, dataSize, offset)) {
            return FAILED;
        }
        offset += RIFF_HEADER_BYTES + static_cast<unsigned long long>(dataSize);
    }
    return OPENED;
}

// Under the number that was issued last. False if there is no room.
bool RiffFile::takeDown(char const* id, unsigned int dataSize, unsigned long long position) {
    auto const number = static_cast<unsigned int>(mLastSubChunkId);
    return mSubChunkInfos.insertAt(mSubChunkInfos.size(), SubChunkInfo(number, id, dataSize)) &&
           mSubChunkPositions.find(mLastSubChunkId) == nullptr &&
           mSubChunkPositions.insert(mLastSubChunkId, position);
}

void RiffFile::closeAndForget() {
    mFile->close();
    mLastSubChunkId = NO_ID;
    mOpenedSubChunkId = NO_ID;
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
    closeAndForget();
    return isSubChunkClosed;
}

bool RiffFile::updateRiffSize() {
    auto const size = static_cast<unsigned long long>(mFile->size()) - RIFF_HEADER_BYTES;
    if (size == mRiffSize) {
        return true;
    }
    return size <= UINT_MAX && mFile->seek(SIZE_OFFSET, 0) != -1 &&
           writeRiffSize(mFile, static_cast<unsigned int>(size));
}

int RiffFile::isOpened() const {
    WatchedGuard const guard(mLock, SOURCE, "isOpened", __LINE__);
    return mFile->isOpened();
}

int RiffFile::addSubChunk(char const* id) {
    WatchedGuard const guard(mLock, SOURCE, "addSubChunk", __LINE__);
    long long const position = mFile->seek(0, 1);
    if (position == -1 || mSubChunk.add(mFile, id) == 0) {
        return INVALID_SUB_CHUNK;
    }
    mLastSubChunkId = mLastSubChunkId == INVALID_SUB_CHUNK - 1 ? 0 : mLastSubChunkId + 1;
    if (!takeDown(mSubChunk.getSubChunkId(), 0, static_cast<unsigned long long>(position))) {
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
    mOpenedSubChunkId = NO_ID;
    return 1;
}

int RiffFile::isOpenedSubChunk(int id) const {
    return mOpenedSubChunkId == id ? 1 : 0;
}

int RiffFile::setFormType(char const* formType) {
    if (formType == nullptr) {
        return 0;
    }
    WatchedGuard const guard(mLock, SOURCE, "setFormType", __LINE__);
    long long const before = mFile->position();
    RiffIdText padded = {};
    if (before == -1 || !padRiffId(padded, formType) || mFile->seek(FORM_TYPE_OFFSET, 0) == -1) {
        return 0;
    }
    bool const isWritten = writeRiffBytes(mFile, padded, RIFF_ID_BYTES);
    if (mFile->seek(before, 0) == -1 || !isWritten) {
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

// The number of the last sub-chunk that has both its entry and its position, -1 if there is none. It stands
// behind all others, because they are taken down in the order of the file.
int RiffFile::lastInFile() const {
    unsigned int const known = std::min(mSubChunkInfos.size(), mSubChunkPositions.size());
    return known != 0 ? static_cast<int>(mSubChunkInfos.getAt(known - 1)->mId) : NO_ID;
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
    unsigned int const known = knownAmong(count);
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
    for (unsigned int i = 0; i < knownAmong(count); ++i) {
        SubChunkInfo const& known = *mSubChunkInfos.getAt(i);
        if (known.mName == id) {
            list[copied++] = known;
        }
    }
    return copied;
}

unsigned int RiffFile::knownAmong(unsigned int count) const {
    return std::min(count, mSubChunkInfos.size());
}

char const* RiffFile::getPath() const {
    WatchedGuard const guard(mLock, SOURCE, "getPath", __LINE__);
    return mFile->getPath();
}

}  // namespace utl

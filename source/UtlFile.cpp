#include "UtlFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <utility>

#include "UtlLog.h"
#include "internal/base/UtlSetIfGiven.h"
#include "internal/file/UtlFileCalls.h"
#include "internal/file/UtlPathRules.h"
#include "internal/file/UtlReadAhead.h"
#include "internal/file/UtlWidenedParent.h"

namespace utl {

namespace {

using FileHandle = SmartHandle<DestructCloseFile>;

constexpr unsigned int READER_MODE = 0555;
constexpr unsigned int NEW_FILE_MODE = 0777;

/// What the system is asked for in one opening.
struct Opening {
    int flags;
    unsigned int mode;
    int lock;
    bool isAtEnd;
};

/// The log line of a failed opening; `what` is null if it succeeded.
struct OpenFailure {
    char const* what = nullptr;
    int level = LOG_LEVEL_NONE;
    int error = 0;
};

/// Must follow the failed call at once.
OpenFailure failureNow(char const* what, int level) {
    return {what, level, errno};
}

void logOpenFailure(OpenFailure const& failure, char const* path) {
    applog(LOG_TYPE_LIBRARY, failure.level, "%s errno[%d] Path:%s", failure.what, failure.error, path);
}

void logError(char const* text) {
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "%s", text);
}

void logPathError(char const* what, char const* path) {
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "%s Failed. Path:%s", what, path);
}

/// Must follow the failed call at once.
void logErrno(char const* call) {
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "%s Failed. errno[%d]", call, errno);
}

long long seekDescriptor(int descriptor, long long offset, int whence) {
    long long const position = fileCall(
        "seekFile", __LINE__, [descriptor, offset, whence] { return ::lseek(descriptor, offset, whence); });
    if (position == -1) {
        logErrno("lseek64");
    }
    return position;
}

/// Makes a descriptor that was opened without blocking, perhaps a FIFO's, block from now on. False with
/// `errno` for a FIFO without its other side. Opening such a FIFO to write fails by itself, but opening it to
/// read does not; only `tee` shows that nobody writes, and it consumes nothing.
bool makeBlocking(int descriptor) {
    ::fcntl(descriptor, F_SETFL, 0);
    if (::fcntl(descriptor, F_GETPIPE_SZ) == -1) {
        return true;
    }
    int ends[2] = {};
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    ssize_t const count = ::tee(descriptor, ends[1], 1, SPLICE_F_NONBLOCK);
    ::close(ends[0]);
    ::close(ends[1]);
    errno = ENXIO;
    return count != 0;
}

/// Opens, locks and positions the file of `path`. The empty `file` takes the descriptor, and so closes it
/// after a failure too.
OpenFailure openInto(FileHandle* file, char const* path, Opening const& opening) {
    OpenedDescriptor opened(openPath("open", __LINE__, path, opening.flags, opening.mode));
    if (!opened.isValid()) {
        return failureNow("open() Failed.", LOG_LEVEL_ERROR);
    }
    int const descriptor = opened.get();
    opened.moveTo(file);
    if ((opening.flags & O_NONBLOCK) != 0 && !makeBlocking(descriptor)) {
        return failureNow("open() Failed.", LOG_LEVEL_ERROR);
    }
    if ((opening.flags & O_EXCL) != 0) {
        setNewMode("open", __LINE__, descriptor, NEW_FILE_MODE);
    }
    int const lockResult =
        fileCall("open", __LINE__, [descriptor, &opening] { return ::flock(descriptor, opening.lock); });
    if (lockResult != 0) {
        return failureNow("Other process is opening.", LOG_LEVEL_DEBUG);
    }
    if (opening.isAtEnd && seekDescriptor(descriptor, 0, SEEK_END) == -1) {
        return failureNow("seekFile in open Failed.", LOG_LEVEL_DEBUG);
    }
    return {};
}

/// A FIFO is opened without waiting for its other side.
constexpr int nonBlockingFlag(PathKind kind) {
    return kind == PathKind::SPECIAL ? O_NONBLOCK : 0;
}

/// True if the owner may not write the existing file, of which the system is then asked a second time.
bool refusesWriter(char const* path) {
    if (File::isReadOnly(path) == 0) {
        return false;
    }
    struct stat status = {};
    if (!statPath("open", __LINE__, path, &status)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "is isReadOnly func stat Failed. errno[%d] Path:%s", errno,
               path);
    }
    return true;
}

}  // namespace

File::AutoClose::~AutoClose() {
    mFile.close();
}

File::File(char const* path, int textType) : mPath(AnyPath(path).text()), mTextType(textType) {}

File::~File() {
    char folder[PATH_BUFFER_SIZE] = {};
    if (getDirectoryPath(folder, sizeof(folder)) != 0) {
        syncFolder("~File", __LINE__, folder);
    }
}

int File::open(int disposition, int access) {
    bool const isRefused = isDirectory() != 0 || isOpened() != 0 ||
                           static_cast<unsigned int>(disposition) > OPEN_EMPTY ||
                           static_cast<unsigned int>(access) > ACCESS_READ_WRITE;
    if (isRefused) {
        return 0;
    }
    auto readAhead = std::make_unique<ReadAhead>();
    int const isOpen =
        access == ACCESS_READ ? openForReading(disposition) : openForWriting(disposition, access);
    if (isOpen != 0) {
        mReadAhead = std::move(readAhead);
    }
    return isOpen;
}

int File::openForReading(int disposition) {
    char const* const path = getPath();
    if (disposition == OPEN_EMPTY || !NormalPath(path).passesCheck()) {
        return 0;
    }
    PathKind const kind = kindOfPath("exists", __LINE__, path);
    if (kind == PathKind::NOTHING) {
        return 0;
    }
    FileHandle file;
    OpenFailure const failure = openInto(
        &file, path,
        {O_RDONLY | nonBlockingFlag(kind), READER_MODE, LOCK_SH | LOCK_NB, disposition == OPEN_AT_END});
    if (failure.what != nullptr) {
        logOpenFailure(failure, path);
        return 0;
    }
    mHandle = file;
    return 1;
}

int File::openForWriting(int disposition, int access) {
    char const* const path = getPath();
    if (!makeFolderOf(path)) {
        return 0;
    }
    PathKind const kind = kindOfPath("exists", __LINE__, path);
    bool const isNew = kind == PathKind::NOTHING;
    if (!isNew && refusesWriter(path)) {
        return 0;
    }
    int const flags =
        (access == ACCESS_WRITE ? O_WRONLY : O_RDWR) | (disposition == OPEN_EMPTY ? O_TRUNC : 0);
    Opening opening{flags | O_CREAT | (isNew ? O_EXCL : nonBlockingFlag(kind)), NEW_FILE_MODE,
                    LOCK_EX | LOCK_NB, disposition == OPEN_AT_END};
    WidenedParent parent(path);
    FileHandle file;
    OpenFailure failure = openInto(&file, path, opening);
    if (isNew && failure.error == EEXIST) {
        // Somebody else created it since the check. Nothing is created through it, it keeps its mode, and
        // the opening does not wait for it.
        if (exists() != 0 && refusesWriter(path)) {
            return 0;
        }
        opening.flags = flags | O_NONBLOCK;
        failure = openInto(&file, path, opening);
    }
    if (failure.what != nullptr) {
        parent.restore();
        logOpenFailure(failure, path);
        return 0;
    }
    mHandle = file;
    return 1;
}

int File::close() {
    int const wasOpened = isOpened();
    mHandle.release();
    mReadAhead.reset();
    return wasOpened;
}

int File::isOpened() const noexcept {
    return isValidDescriptor(mHandle.get()) ? 1 : 0;
}

int File::flush() noexcept {
    return 1;
}

long long File::seek(long long offset, int origin) {
    if (isOpened() == 0) {
        return -1;
    }
    int whence = SEEK_SET;
    switch (origin) {
        case FROM_START:
            break;
        case FROM_END:
            whence = SEEK_END;
            break;
        case FROM_POSITION:
            if (!restoreKernelPosition()) {
                return -1;
            }
            whence = SEEK_CUR;
            break;
        default:
            return -1;
    }
    long long const position = seekFile(mHandle.get(), offset, whence);
    if (position != -1) {
        mReadAhead->forgetPosition();
    }
    return position;
}

long long File::position() const {
    if (isOpened() == 0) {
        return -1;
    }
    if (!mReadAhead->knowsPosition()) {
        return seekFile(mHandle.get(), 0, SEEK_CUR);
    }
    reportFileAlive("position", __LINE__);
    return mReadAhead->position();
}

long long File::size() const {
    return isOpened() != 0 ? openedSize() : size(getPath());
}

long long File::availableSize() const {
    long long const size = isOpened() != 0 ? openedSize() : -1;
    long long const position = size != -1 ? this->position() : -1;
    if (position == -1) {
        return -1;
    }
    return size > position ? size - position : 0;
}

int File::read(void* buffer, unsigned int length) {
    if (isOpened() != 0 && (buffer == nullptr || length == 0 || length > INT_MAX)) {
        return -1;
    }
    long long const size = sizeToRead();
    if (size == -1) {
        return -1;
    }
    long long const position = mReadAhead->position();
    if (position >= size) {
        return END_OF_FILE;
    }
    // Not in a bracket, unlike a write: alive times are chosen for readers whose last report came before the
    // reading.
    auto const result = static_cast<int>(::pread(mHandle.get(), buffer, length, position));
    if (result == -1) {
        logReadFailure(getPath());
        return -1;
    }
    mReadAhead->moveTo(position + result);
    return result;
}

/// The size of the file, with the position known to `mReadAhead`; -1 with lines on failure.
long long File::sizeToRead() {
    if (isOpened() == 0) {
        logError("in read func file is not opened");
        return -1;
    }
    long long const size = openedSize();
    if (size == -1) {
        logError("in read func now size func error");
        return -1;
    }
    long long const position = this->position();
    if (position == -1) {
        logError("in read func now seekFile func error");
        return -1;
    }
    mReadAhead->moveTo(position);
    return size;
}

/// `ReadAhead::readOn`; logs a failure.
int File::readOn(long long size) {
    int const result = mReadAhead->readOn(mHandle.get(), size);
    if (result == -1) {
        logReadFailure(getPath());
    }
    return result;
}

/// Moves the kernel to the position, for what uses it there; false with a line on failure.
bool File::restoreKernelPosition() {
    if (mReadAhead->knowsPosition()) {
        if (seekFile(mHandle.get(), mReadAhead->position(), SEEK_SET) == -1) {
            return false;
        }
        mReadAhead->forgetPosition();
    }
    return true;
}

int File::write(void const* buffer, unsigned int length) {
    if (isOpened() == 0) {
        return -1;
    }
    int result = -1;
    {
        // For each write, though the file is already open, and for a write of nothing too: callers rely on a
        // folder that is wide during a write and has its own mode after it.
        WidenedParent const parent(getPath());
        if (buffer != nullptr && length != 0 && restoreKernelPosition()) {
            result = writeFile(mHandle.get(), buffer, length);
        }
    }
    if (result == -1) {
        logPathError("writeFile", getPath());
    }
    return result;
}

int File::resize() {
    int const descriptor = mHandle.get();
    if (isOpened() == 0 || !restoreKernelPosition()) {
        return 0;
    }
    long long const position =
        fileCall("resize", __LINE__, [descriptor] { return ::lseek(descriptor, 0, SEEK_CUR); });
    if (position == -1) {
        return 0;
    }
    int const result =
        fileCall("resize", __LINE__, [descriptor, position] { return ::ftruncate(descriptor, position); });
    if (result != 0) {
        logPathError("ftruncate", getPath());
    }
    return result == 0 ? 1 : 0;
}

int File::resize(unsigned long long newSize) {
    long long const oldPosition = position();
    if (oldPosition == -1 || seek(static_cast<long long>(newSize), FROM_START) == -1) {
        return 0;
    }
    int const isResized = resize();
    if (isResized != 0 && static_cast<unsigned long long>(oldPosition) >= newSize) {
        return 1;
    }
    return seek(oldPosition, FROM_START) != -1 ? isResized : 0;
}

int File::changeParentAccessMode(char const* path, int mode, int* previousMode) {
    char folder[PATH_BUFFER_SIZE] = {};
    if (extractDirectoryPath(folder, sizeof(folder), path) == 0 || folder[0] == '\0') {
        return 0;
    }
    struct stat status = {};
    if (!statPath("changeParentAccessMode", __LINE__, folder, &status)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_DEBUG,
               "is changeParentAccessMode func stat Failed. errno[%d] Path:%s", errno, folder);
        return 0;
    }
    auto const oldMode = static_cast<int>(status.st_mode);
    setIfGiven(previousMode, oldMode);
    if (mode == oldMode) {
        return 0;
    }
    return changeMode("changeParentAccessMode", __LINE__, folder, static_cast<unsigned int>(mode)) ? 1 : 0;
}

long long File::seekFile(int descriptor, long long offset, int whence) {
    return seekDescriptor(descriptor, offset, whence);
}

int File::writeFile(int descriptor, void const* buffer, unsigned int length) {
    auto const result = static_cast<int>(fileCall(
        "writeFile", __LINE__, [descriptor, buffer, length] { return ::write(descriptor, buffer, length); }));
    if (result == -1) {
        logErrno("WriteFile");
    }
    return result;
}

long long File::fileSize(int descriptor) {
    struct stat status = {};
    int const result =
        fileCall("fileSize", __LINE__, [descriptor, &status] { return ::fstat(descriptor, &status); });
    if (result != 0) {
        logErrno("fstat");
        return -1;
    }
    return status.st_size;
}

long long File::openedSize() const {
    return sizeOfDescriptor(mHandle.get(), getPath());
}

// Logs a failure with the path.
long long File::sizeOfDescriptor(int descriptor, char const* path) {
    long long const size = fileSize(descriptor);
    if (size == -1) {
        logPathError("fileSize", path);
    }
    return size;
}

}  // namespace utl

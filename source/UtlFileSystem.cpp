#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "UtlFile.h"
#include "UtlLog.h"
#include "UtlString.h"
#include "internal/base/UtlSavedErrno.h"
#include "internal/base/UtlSetIfGiven.h"
#include "internal/file/UtlFileCalls.h"
#include "internal/file/UtlFolderWalk.h"
#include "internal/file/UtlPathRules.h"
#include "internal/file/UtlWidenedParent.h"

namespace utl {

namespace {

constexpr unsigned int FOLDER_MODE = 0777;
constexpr unsigned int PROBE_MODE = 0777;

/// Room for a path that passes the check and a separator after it.
constexpr unsigned int FOLDER_BUFFER_SIZE = PATH_BUFFER_SIZE + 1;

bool isThere(char const* path) {
    return kindOfPath("exists", __LINE__, path) != PathKind::NOTHING;
}

bool isFolder(char const* path) {
    return kindOfPath("isDirectory", __LINE__, path) == PathKind::FOLDER;
}

/// Makes the name of a new folder durable.
void syncParentOf(char const* path) {
    SavedErrno const savedErrno;
    char folder[PATH_BUFFER_SIZE] = {};
    if (File::extractDirectoryPath(folder, sizeof(folder), path) == 0) {
        return;
    }
    char const* const first = *path == '/' ? "/" : ".";
    syncFolder("makeDirectories", __LINE__, *folder != '\0' ? folder : first);
}

/// Makes the folder that the first `length` bytes of `whole` name, including a separator at their end. An
/// existing folder gets the same mode. False if there is no folder after the call.
bool makeFolder(char const* whole, unsigned int length) {
    char prefix[FOLDER_BUFFER_SIZE] = {};
    char name[PATH_BUFFER_SIZE] = {};
    copyMemory(prefix, whole, length);
    copyMemory(name, whole, length - 1);
    WidenedParent parent(name);
    bool const isNew =
        fileCall("makeDirectories", __LINE__, [&prefix] { return ::mkdir(prefix, FOLDER_MODE); }) == 0;
    if (!isNew) {
        int const error = errno;
        parent.restore();
        if (error != EEXIST) {
            applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "CreateDirectory Failed. errno[%d] Path:%s(%s)", error,
                   whole, prefix);
        }
        if (error != EEXIST || !isFolder(prefix)) {
            return false;
        }
        parent.restoreAgainAtEnd();
    }
    changeMode("makeDirectories", __LINE__, prefix, FOLDER_MODE);
    if (isNew) {
        syncParentOf(name);
    }
    return true;
}

/// Makes the folders down to `whole`, which ends in a separator, one after the other. The last of them comes
/// twice: once up to its separator and once as the whole path.
bool makeFolders(char const* whole) {
    unsigned int const length = static_cast<unsigned int>(std::strlen(whole));
    unsigned int end = 0;
    for (bool isLast = false; !isLast;) {
        char const* const separator = std::strchr(whole + end, '/');
        isLast = separator == nullptr;
        end = isLast ? length : static_cast<unsigned int>(separator - whole) + 1;
        if (!makeFolder(whole, end)) {
            return false;
        }
    }
    return true;
}

/// The sum of the sizes in a folder, -1 if one of them is not available.
long long sizeOfFolder(char const* path) {
    long long sum = 0;
    bool const isComplete = visitEntries(path, [&sum](char const* entry) {
        long long const size = File::size(entry);
        sum += size;
        return size != -1;
    });
    return isComplete ? sum : -1;
}

/// Moves the last component of `path` into `pattern`; false if `wildcard`, which is in `path`, is not in that
/// component, or if no folder is before it.
bool stripPattern(char* path, char const* wildcard, char* pattern) {
    return std::strchr(wildcard, '/') == nullptr &&
           File::extractFileName(pattern, PATH_BUFFER_SIZE, path, File::WITH_EXTENSION) != 0 &&
           File::extractDirectoryPath(path, PATH_BUFFER_SIZE, path) != 0;
}

/// One direction of a change between read-only and not.
struct ReadOnlyChange {
    char const* name;
    unsigned int mode;
    int wanted;         // the result of `isReadOnly` after the change
    bool isAlwaysMade;  // or only if `isReadOnly` differs
};

constexpr ReadOnlyChange APPLY_READ_ONLY{"applyReadOnly", 0555, 1, true};
constexpr ReadOnlyChange LIFT_READ_ONLY{"liftReadOnly", 0777, 0, false};

bool changeReadOnly(char const* path, int recursive, ReadOnlyChange const& change) {
    NormalPath const normalPath(path);
    char const* const text = normalPath.text();
    if (!normalPath.passesCheck() || !isThere(text)) {
        return false;
    }
    bool const isDue = change.isAlwaysMade || File::isReadOnly(text) != change.wanted;
    if (isDue && !changeMode(change.name, __LINE__, text, change.mode)) {
        return false;
    }
    if (File::isReadOnly(text) != change.wanted) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "%s can't change %s", change.name, text);
        return false;
    }
    return recursive != File::RECURSIVE || !isFolder(text) ||
           visitEntries(
               text, [&change](char const* entry) { return changeReadOnly(entry, File::RECURSIVE, change); });
}

/// 0 if the lock was free, else the error.
int lockError(int descriptor, int operation) {
    int const result = retryOnInterrupt([descriptor, operation] {
        return fileCall("isOpened", __LINE__,
                        [descriptor, operation] { return ::flock(descriptor, operation | LOCK_NB); });
    });
    return result != 0 ? errno : 0;
}

/// Who holds the lock of a file, if the file system knows it.
enum class Holders {
    NOBODY,
    READERS,
    SOMEBODY  ///< also if the answer is unknown because the system lacks descriptors or memory
};

Holders holdersOf(int descriptor) {
    int const error = lockError(descriptor, LOCK_EX);
    if (error == EWOULDBLOCK) {
        return lockError(descriptor, LOCK_SH) == 0 ? Holders::READERS : Holders::SOMEBODY;
    }
    // Over NFS only a descriptor for writing has an exclusive lock.
    bool const isHeld = error == EBADF && lockError(descriptor, LOCK_SH) == EWOULDBLOCK;
    return isHeld ? Holders::SOMEBODY : Holders::NOBODY;
}

/// The same for a path that names a regular file. Never waits, neither for a FIFO that has replaced the file
/// nor for a lease.
Holders holdersOf(char const* path) {
    OpenedDescriptor const file(retryOnInterrupt(
        [path] { return openPath("isOpened", __LINE__, path, O_RDONLY | O_NONBLOCK, PROBE_MODE); }));
    if (file.isValid()) {
        return holdersOf(file.get());
    }
    bool const isUnknown =
        file.get() == -1 && (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == EWOULDBLOCK);
    return isUnknown ? Holders::SOMEBODY : Holders::NOBODY;
}

bool renamePath(char const* source, char const* destination) {
    if (fileCall("move", __LINE__, [source, destination] { return ::rename(source, destination); }) == 0) {
        return true;
    }
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "rename Failed. errno[%d] Source:%s  Dest:%s", errno, source,
           destination);
    return false;
}

/// False for a read-only path that stays so. If forced, makes it writable first.
bool mayErase(char const* path, int force) {
    if (force != File::ERASE_READ_ONLY) {
        return File::isReadOnly(path) == 0;
    }
    if (File::liftReadOnly(path, File::PATH_ONLY) == 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "Can't erase force because Not Permited:%s", path);
        return false;
    }
    return true;
}

/// Removes a file or an empty folder.
bool removeEntry(char const* path, bool isFolderPath) {
    WidenedParent parent(path);
    int const result = fileCall(
        "erase", __LINE__, [path, isFolderPath] { return isFolderPath ? ::rmdir(path) : ::unlink(path); });
    if (result == 0) {
        return true;
    }
    int const error = errno;
    parent.restore();
    if (isFolderPath) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "rmdir Failed.Path:%s errno[%d]", path, error);
    } else {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "remove failed. errno[%d] Path:%s", error, path);
    }
    return false;
}

}  // namespace

int File::exists(char const* path) {
    return path != nullptr && isThere(AnyPath(path).text()) ? 1 : 0;
}

int File::exists() const {
    return exists(getPath());
}

int File::isDirectory(char const* path) {
    NormalPath const normalPath(path);
    return normalPath.passesCheck() && isFolder(normalPath.text()) ? 1 : 0;
}

int File::isDirectory() const {
    return isDirectory(getPath());
}

int File::isReadOnly(char const* path) {
    if (path == nullptr) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "isReadOnly func 0 == npPath false");
        return 0;
    }
    AnyPath const anyPath(path);
    struct stat status = {};
    if (!statPath("isReadOnly", __LINE__, anyPath.text(), &status)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "is isReadOnly func stat Failed. errno[%d] Path:%s", errno,
               anyPath.text());
        return 0;
    }
    return (status.st_mode & S_IWUSR) == 0 ? 1 : 0;
}

int File::isReadOnly() const {
    return isReadOnly(getPath());
}

int File::makeDirectories(char const* path) {
    NormalPath const normalPath(path);
    if (!normalPath.passesCheck()) {
        return 0;
    }
    if (normalPath.length() == 0) {
        return 1;
    }
    if (isThere(normalPath.text())) {
        return isFolder(normalPath.text()) ? 1 : 0;
    }
    char whole[FOLDER_BUFFER_SIZE] = {};
    copyMemory(whole, normalPath.text(), normalPath.length());
    if (trimStrRight(whole, "/") == INVALID_SIZE) {
        return 0;
    }
    whole[std::strlen(whole)] = '/';
    return makeFolders(whole) ? 1 : 0;
}

int File::makeDirectories() {
    return makeDirectories(getPath());
}

bool File::makeFolderOf(char const* path) {
    char folder[PATH_BUFFER_SIZE] = {};
    return extractDirectoryPath(folder, sizeof(folder), path) != 0 && makeDirectories(folder) != 0;
}

int File::children(char const* path, Array<BasicString<char>, BasicString<char> const&>* result, int kind,
                   char const* extension, unsigned int maximum) {
    if (path == nullptr || result == nullptr) {
        return -1;
    }
    result->clear();
    NormalPath const normalPath(path);
    auto const entryKind = static_cast<unsigned int>(kind);
    if (entryKind > CHILD_FILES_AND_FOLDERS || !normalPath.passesCheck()) {
        return -1;
    }
    char folder[PATH_BUFFER_SIZE] = {};
    char pattern[PATH_BUFFER_SIZE] = {};
    copyMemory(folder, normalPath.text(), normalPath.length());
    if (!isFolder(folder)) {
        char const* const wildcard = std::strpbrk(folder, "*?[]");
        if (wildcard == nullptr && isThere(folder)) {
            return 0;
        }
        if (wildcard != nullptr && !stripPattern(folder, wildcard, pattern)) {
            return -1;
        }
    }
    return isThere(folder) ? listFolder(folder, {entryKind, extension, pattern}, maximum, result) : -1;
}

int File::children(Array<BasicString<char>, BasicString<char> const&>* result, int kind,
                   char const* extension, unsigned int maximum) const {
    return children(getPath(), result, kind, extension, maximum);
}

int File::applyReadOnly(char const* path, int recursive) {
    return changeReadOnly(path, recursive, APPLY_READ_ONLY) ? 1 : 0;
}

int File::applyReadOnly(int recursive) {
    return applyReadOnly(getPath(), recursive);
}

int File::liftReadOnly(char const* path, int recursive) {
    return changeReadOnly(path, recursive, LIFT_READ_ONLY) ? 1 : 0;
}

int File::liftReadOnly(int recursive) {
    return liftReadOnly(getPath(), recursive);
}

int File::isOpened(char const* path, bool* sharedOnly) {
    if (path == nullptr) {
        return 0;
    }
    NormalPath const normalPath(path);
    char const* const text = normalPath.text();
    bool const isFile = normalPath.passesCheck() && !isFolder(text) &&
                        kindOfPath("exists", __LINE__, text) == PathKind::REGULAR;
    Holders const holders = isFile ? holdersOf(text) : Holders::NOBODY;
    setIfGiven(sharedOnly, holders == Holders::READERS);
    return holders != Holders::NOBODY ? 1 : 0;
}

int File::move(char const* source, char const* destination) {
    NormalPath const from(source);
    NormalPath const to(destination);
    if (!from.passesCheck() || !to.passesCheck() || !isThere(from.text())) {
        return 0;
    }
    if (std::strcmp(from.text(), to.text()) == 0) {
        return 1;
    }
    bool const isInTheWay = !isFolder(to.text()) && isThere(to.text());
    if (isInTheWay || isOpened(from.text(), nullptr) != 0 || !makeFolderOf(to.text())) {
        return 0;
    }
    return renamePath(from.text(), to.text()) ? 1 : 0;
}

int File::move(char const* destination) {
    return isOpened() == 0 ? move(getPath(), destination) : 0;
}

int File::erase(char const* path, int force) {
    NormalPath const normalPath(path);
    char const* const text = normalPath.text();
    if (!normalPath.passesCheck() || !isThere(text)) {
        return 0;
    }
    bool const isDirectoryPath = isFolder(text);
    bool const isFree =
        isDirectoryPath ? visitEntries(text, [force](char const* entry) { return erase(entry, force) != 0; })
                        : isOpened(text, nullptr) == 0;
    return isFree && mayErase(text, force) && removeEntry(text, isDirectoryPath) ? 1 : 0;
}

int File::erase(int force) {
    return isOpened() == 0 ? erase(getPath(), force) : 0;
}

long long File::size(char const* path) {
    NormalPath const normalPath(path);
    if (!normalPath.passesCheck() || !isThere(normalPath.text())) {
        return -1;
    }
    struct stat status = {};
    bool const isKnown = statPath("isDirectory", __LINE__, normalPath.text(), &status);
    if (isKnown && S_ISDIR(status.st_mode)) {
        return sizeOfFolder(normalPath.text());
    }
    return isKnown && !S_ISREG(status.st_mode) ? status.st_size : sizeOfFile(normalPath.text());
}

long long File::sizeOfFile(char const* path) {
    OpenedDescriptor const file(openPath("size", __LINE__, path, O_RDONLY | O_NONBLOCK));
    if (!file.isValid()) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "in size func open Failed. Path:%s errno[%d]", path, errno);
        return -1;
    }
    return sizeOfDescriptor(file.get(), path);
}

}  // namespace utl

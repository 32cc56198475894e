#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "UtlFile.h"
#include "UtlFileCalls.h"
#include "UtlFolderWalk.h"
#include "UtlLog.h"
#include "UtlPathRules.h"
#include "UtlString.h"
#include "UtlWidenedParent.h"

namespace utl {

namespace {

constexpr unsigned int FOLDER_MODE = 0777;

/// Room for a path that passes the check, with a separator behind it.
constexpr unsigned int FOLDER_BUFFER_SIZE = PATH_BUFFER_SIZE + 1;

bool isThere(char const* path) {
    struct stat status = {};
    return statPath("exists", __LINE__, path, &status);
}

bool isFolder(char const* path) {
    struct stat status = {};
    return statPath("isDirectory", __LINE__, path, &status) && S_ISDIR(status.st_mode);
}

/// Makes the folder that the first `length` bytes of `whole` name, a separator at their end included, and
/// gives it the mode of a folder also if it was there. False if it is not there behind that.
bool makeFolder(char const* whole, unsigned int length) {
    char prefix[FOLDER_BUFFER_SIZE] = {};
    char name[PATH_BUFFER_SIZE] = {};
    copyMemory(prefix, whole, length);
    copyMemory(name, whole, length - 1);
    WidenedParent parent(name);
    if (fileCall("makeDirectories", __LINE__, [&prefix] { return ::mkdir(prefix, FOLDER_MODE); }) != 0) {
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

/// The sum of all that stands in a folder, -1 if a size in it cannot be had.
long long sizeOfFolder(char const* path) {
    long long sum = 0;
    bool const isComplete = visitEntries(path, [&sum](char const* entry) {
        long long const size = File::size(entry);
        sum += size;
        return size != -1;
    });
    return isComplete ? sum : -1;
}

}  // namespace

int File::exists(char const* path) {
    return path != nullptr && isThere(NormalPath(path).text()) ? 1 : 0;
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
    NormalPath const normalPath(path);
    struct stat status = {};
    if (!statPath("isReadOnly", __LINE__, normalPath.text(), &status)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "is isReadOnly func stat Failed. errno[%d] Path:%s", errno,
               normalPath.text());
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

long long File::size(char const* path) {
    NormalPath const normalPath(path);
    if (!normalPath.passesCheck() || !isThere(normalPath.text())) {
        return -1;
    }
    return isFolder(normalPath.text()) ? sizeOfFolder(normalPath.text()) : sizeOfFile(normalPath.text());
}

long long File::sizeOfFile(char const* path) {
    int const descriptor = fileCall("size", __LINE__, [path] { return ::open(path, O_RDONLY); });
    if (!isValidDescriptor(descriptor)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "in size func open Failed. Path:%s errno[%d]", path, errno);
        return -1;
    }
    SmartHandle<DestructCloseFile> const file(descriptor);
    return sizeOfDescriptor(descriptor, path);
}

}  // namespace utl

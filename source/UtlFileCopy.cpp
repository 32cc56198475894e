#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "UtlFile.h"
#include "UtlLog.h"
#include "UtlString.h"
#include "internal/file/UtlFileCalls.h"
#include "internal/file/UtlFolderWalk.h"
#include "internal/file/UtlPathRules.h"
#include "internal/file/UtlWidenedParent.h"

namespace utl {

namespace {

constexpr std::size_t COPY_BUFFER_SIZE = 1024;

/// One of the two descriptors of a copy, closed at the end of the scope; *one owner thread*.
class [[nodiscard]] CopyEnd {
  public:
    explicit CopyEnd(int descriptor) : mDescriptor(descriptor) {}
    ~CopyEnd() { close(); }
    CopyEnd(CopyEnd const&) = delete;
    CopyEnd& operator=(CopyEnd const&) = delete;

    bool isOpen() const { return mDescriptor >= 0; }

    /// False if the system reports now that it could not store what was written.
    bool close() {
        bool const isStored =
            !isOpen() || fileCall("copy", __LINE__, [this] { return ::close(mDescriptor); }) == 0;
        mDescriptor = -1;
        return isStored;
    }

    ssize_t read(void* buffer, std::size_t bytes) const {
        return retryOnInterrupt(
            [=] { return fileCall("copy", __LINE__, [=] { return ::read(mDescriptor, buffer, bytes); }); });
    }

    ssize_t write(void const* buffer, std::size_t bytes) const {
        return fileCall("copy", __LINE__, [=] { return ::write(mDescriptor, buffer, bytes); });
    }

    void setMode(mode_t mode) const { setNewMode("copy", __LINE__, mDescriptor, mode); }

    /// Makes the file end at the position; false on failure.
    bool cutHere() const {
        off_t const position =
            fileCall("copy", __LINE__, [this] { return ::lseek(mDescriptor, 0, SEEK_CUR); });
        return fileCall("copy", __LINE__, [=] { return ::ftruncate(mDescriptor, position); }) == 0;
    }

  private:
    int mDescriptor;
};

/// False if not everything was read and written. A failed read is logged with the source's path.
bool copyContent(CopyEnd const& source, CopyEnd const& destination, char const* sourcePath) {
    char buffer[COPY_BUFFER_SIZE];
    ssize_t count = 0;
    while ((count = source.read(buffer, sizeof(buffer))) > 0) {
        if (destination.write(buffer, static_cast<std::size_t>(count)) != count) {
            return false;
        }
    }
    if (count == -1) {
        logReadFailure(sourcePath);
        return false;
    }
    return destination.cutHere();
}

/// Opens the target of a copy with this mode; -1 on failure and for a FIFO or a device. A file that appears
/// after the check is used as it is: `*keepsMode` becomes true.
int openTarget(char const* path, int overwrite, mode_t mode, bool* keepsMode) {
    PathKind const kind =
        overwrite == File::OVERWRITE_EXISTING ? kindOfPath("copy", __LINE__, path) : PathKind::NOTHING;
    if (kind == PathKind::SPECIAL) {
        return -1;
    }
    bool const isNew = kind == PathKind::NOTHING;
    // Not emptied here: the rest of a longer old file is cut off at the end, so a copy that fails destroys no
    // more than it has overwritten.
    int const descriptor = openPath("copy", __LINE__, path, O_WRONLY | O_CREAT | (isNew ? O_EXCL : 0), mode);
    *keepsMode = descriptor == -1 && errno == EEXIST && overwrite == File::OVERWRITE_EXISTING;
    return *keepsMode ? openPath("copy", __LINE__, path, O_WRONLY | O_NONBLOCK) : descriptor;
}

// Not inlined into `File::copy`, which is recursive: one level alone needs the content's buffer.
[[gnu::noinline]] bool copyFile(char const* sourcePath, char const* destinationPath, int overwrite) {
    WidenedParent sourceParent(sourcePath);
    CopyEnd source(openPath("copy", __LINE__, sourcePath, O_RDONLY | O_NONBLOCK));
    if (!source.isOpen()) {
        return false;
    }
    struct stat status = {};
    if (!statPath("copy", __LINE__, sourcePath, &status)) {
        int const error = errno;
        sourceParent.restore();
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "in copy func stat Failed. errno[%d] Path:%s", error,
               sourcePath);
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        return false;
    }
    WidenedParent destinationParent(destinationPath);
    bool keepsMode = false;
    CopyEnd destination(openTarget(destinationPath, overwrite, status.st_mode, &keepsMode));
    if (!destination.isOpen()) {
        destinationParent.restore();
        sourceParent.restore();
        return false;
    }
    // Both files are closed before their folders are restored. The folder that was widened last is restored
    // first, because the two may be one folder.
    bool const isWritten = copyContent(source, destination, sourcePath);
    if (isWritten && !keepsMode) {
        destination.setMode(status.st_mode);
    }
    source.close();
    bool const isStored = destination.close();
    destinationParent.restore();
    return isWritten && isStored;
}

/// Makes the path buffer `target` the path of the name of `entry` in `destination`, which passes the path
/// check. False if `entry` cannot be dissected or the path becomes too long.
bool makeTargetPath(char* target, char const* destination, char const* entry) {
    auto const length = static_cast<unsigned int>(std::strlen(destination));
    copyMemory(target, destination, length);
    target[length] = '/';
    return File::extractFileName(target + length + 1, PATH_BUFFER_SIZE - length - 1, entry,
                                 File::WITH_EXTENSION) != 0;
}

bool copyFolder(char const* source, char const* destination, int overwrite) {
    if (File::makeDirectories(destination) == 0) {
        return false;
    }
    return visitEntries(source, [destination, overwrite](char const* entry) {
        char target[PATH_BUFFER_SIZE] = {};
        return makeTargetPath(target, destination, entry) && File::copy(entry, target, overwrite) != 0;
    });
}

}  // namespace

int File::copy(char const* source, char const* destination, int overwrite) {
    NormalPath const from(source);
    NormalPath const to(destination);
    if (!from.passesCheck() || !to.passesCheck() ||
        kindOfPath("exists", __LINE__, from.text()) == PathKind::NOTHING) {
        return 0;
    }
    if (std::strcmp(from.text(), to.text()) == 0) {
        return 1;
    }
    PathKind const kind = kindOfPath("isDirectory", __LINE__, from.text());
    if (kind == PathKind::FOLDER) {
        return copyFolder(from.text(), to.text(), overwrite) ? 1 : 0;
    }
    bool sharedOnly = false;
    if (kind == PathKind::SPECIAL || !makeFolderOf(to.text()) ||
        (isOpened(from.text(), &sharedOnly) != 0 && !sharedOnly)) {
        return 0;
    }
    return copyFile(from.text(), to.text(), overwrite) ? 1 : 0;
}

int File::copy(char const* destination, int overwrite) const {
    return copy(getPath(), destination, overwrite);
}

}  // namespace utl

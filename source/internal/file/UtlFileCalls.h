#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "UtlLog.h"
#include "UtlSmartPointer.h"
#include "internal/thread/UtlKeepAlive.h"

namespace utl {

// The system calls that the sources of `File` share.

static_assert(sizeof(off_t) == 8, "files beyond 2 GiB need 64-bit offsets");

/// The third argument of an `open` that creates nothing.
constexpr unsigned int UNUSED_MODE = 0;

/// Returns the result of `call()`, called inside a keep-alive bracket of `File`. `label` must be a literal.
template <typename CALL>
decltype(auto) fileCall(char const* label, unsigned int line, CALL&& call) {
    return keepAliveAround("source/UtlFile", label, line, std::forward<CALL>(call));
}

/// A sign of life of a `File` that answers without a system call; `errno` is left as it was. `label` must be
/// a literal.
inline void reportFileAlive(char const* label, unsigned int line) {
    SavedErrno const errnoOfTheCaller;
    Thread::keepAliveWatchdog(StatementInfo("source/UtlFile", label, line, StatementInfo::AFTER_CALL));
}

/// Returns the result of `call()`, which is -1 with `errno` on failure; calls again after `EINTR`.
template <typename CALL>
auto retryOnInterrupt(CALL&& call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// Logs a failed `read` of the file of `path`; must follow it at once.
inline void logReadFailure(char const* path) {
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "ReadFile Failed. errno[%d]", errno);
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "in read func readFile Failed. Path:%s", path);
}

/// True for a descriptor that a `File` regards as open.
constexpr bool isValidDescriptor(int descriptor) {
    return descriptor != 0 && descriptor != -1;
}

/// The result of an `open` until a handle takes it: synced and closed at the end of the scope. Allocates no
/// memory, so that destructors may use it. *One owner thread*, because it lives on a stack.
class [[nodiscard]] OpenedDescriptor {
  public:
    explicit OpenedDescriptor(int descriptor) : mDescriptor(descriptor) {}
    ~OpenedDescriptor() { DestructCloseFile()(mDescriptor); }
    OpenedDescriptor(OpenedDescriptor const&) = delete;
    OpenedDescriptor& operator=(OpenedDescriptor const&) = delete;

    bool isValid() const { return isValidDescriptor(mDescriptor); }
    int get() const { return mDescriptor; }

    /// From now on `handle` closes it. It stays here if the memory for a counter is not available.
    void moveTo(SmartHandle<DestructCloseFile>* handle) {
        handle->set(mDescriptor);
        mDescriptor = -1;
    }

  private:
    int mDescriptor;
};

/// `open` in a bracket, closed on `exec`; -1 with `errno` on failure.
inline int openPath(char const* label, unsigned int line, char const* path, int flags,
                    unsigned int mode = UNUSED_MODE) {
    return fileCall(label, line, [=] { return ::open(path, flags | O_CLOEXEC, mode); });
}

/// Makes the entries of a folder durable if it can be opened; failures are ignored. Allocates no memory.
inline void syncFolder(char const* label, unsigned int line, char const* folder) {
    OpenedDescriptor const synced(openPath(label, line, folder, O_RDONLY | O_DIRECTORY));
}

/// `stat` in a bracket; false with `errno` on failure.
inline bool statPath(char const* label, unsigned int line, char const* path, struct stat* out) {
    return fileCall(label, line, [path, out] { return ::stat(path, out); }) == 0;
}

/// What a path names, links followed. Opening something special, a FIFO or a device, may block or have side
/// effects.
enum class PathKind { NOTHING, FOLDER, REGULAR, SPECIAL };

/// A path whose `stat` fails counts as nothing.
inline PathKind kindOfPath(char const* label, unsigned int line, char const* path) {
    struct stat status = {};
    if (!statPath(label, line, path, &status)) {
        return PathKind::NOTHING;
    }
    return S_ISDIR(status.st_mode)   ? PathKind::FOLDER
           : S_ISREG(status.st_mode) ? PathKind::REGULAR
                                     : PathKind::SPECIAL;
}

/// `fchmod` in a bracket; failures are ignored. Used in place of `chmod` for a file that was just created,
/// because somebody else may have replaced it at its path.
inline void setNewMode(char const* label, unsigned int line, int descriptor, unsigned int mode) {
    fileCall(label, line, [descriptor, mode] { return ::fchmod(descriptor, mode); });
}

/// `chmod` in a bracket; false with `errno` on failure.
inline bool changeMode(char const* label, unsigned int line, char const* path, unsigned int mode) {
    return fileCall(label, line, [path, mode] { return ::chmod(path, mode); }) == 0;
}

}  // namespace utl

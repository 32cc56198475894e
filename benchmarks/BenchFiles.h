#pragma once

// What the benchmarks of files share: a place to work in, and the system calls as the library promises to
// make them.

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"

namespace utlbench {

/// A folder for the life of the process, in memory if the machine has such a file system, so that the device
/// does not hide what the library adds. It exists before a file is opened, so the library never widens a
/// folder on the way to it.
class BenchFolder {
  public:
    BenchFolder() {
        std::string const place = access("/dev/shm", W_OK | X_OK) == 0 ? "/dev/shm" : "/tmp";
        mPath = place + "/utl-bench-XXXXXX";
        if (mkdtemp(mPath.data()) == nullptr) {
            std::abort();
        }
    }
    ~BenchFolder() { std::filesystem::remove_all(mPath); }
    BenchFolder(BenchFolder const&) = delete;
    BenchFolder& operator=(BenchFolder const&) = delete;

    /// A new folder in it.
    std::string make(std::string const& name) const {
        std::filesystem::create_directory(mPath + "/" + name);
        return mPath + "/" + name;
    }

  private:
    std::string mPath;
};

/// Returns what `call()` returns, with a sign of life before and after it, as around each system call of an
/// opening, a write and a close.
template <typename CALL>
auto reported(CALL call) {
    utl::ThreadManager::get()->keepAliveWatchdog(utl::StatementInfo("f", "f", 1, 1));
    auto const result = call();
    utl::ThreadManager::get()->keepAliveWatchdog(utl::StatementInfo("f", "f", 1, 2));
    return result;
}

inline bool look(char const* path, struct stat* status) {
    return reported([=] { return stat(path, status); }) == 0;
}

inline bool change(char const* path, mode_t mode) {
    return reported([=] { return chmod(path, mode); }) == 0;
}

}  // namespace utlbench

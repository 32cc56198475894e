#pragma once

// What the benchmarks of files share: a place to work in.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

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

/// Standard output goes to a file until the scope ends.
class OutputTo {
  public:
    explicit OutputTo(std::string const& path) : mKept((std::fflush(stdout), dup(STDOUT_FILENO))) {
        int const file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
        dup2(file, STDOUT_FILENO);
        close(file);
    }
    ~OutputTo() {
        std::fflush(stdout);
        dup2(mKept, STDOUT_FILENO);
        close(mKept);
    }
    OutputTo(OutputTo const&) = delete;
    OutputTo& operator=(OutputTo const&) = delete;

  private:
    int mKept;
};

}  // namespace utlbench

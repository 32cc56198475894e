#pragma once

// What the benchmarks of files share: a place to work in.

#include <unistd.h>

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

}  // namespace utlbench

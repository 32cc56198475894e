#pragma once

// What the tests of files share: a folder of their own to work in, and a look at what the library does there.

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "TestLog.h"
#include "UtlLog.h"
#include "UtlThreadManager.h"

namespace utltest {

/// The permissions of the file or folder, -1 if there is none.
inline int permissions(std::string const& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 07777) : -1;
}

inline void putFile(std::string const& path, std::string const& content) {
    std::ofstream(path, std::ios::binary) << content;
}

inline std::string contentOf(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// How many descriptors the process has.
inline unsigned int openDescriptors() {
    return static_cast<unsigned int>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

/// A fresh folder with the mode 0755, in which the process works for the length of the test. Tests use
/// relative paths, so that the library widens only folders inside it on the way to a missing one. At the end
/// the folders of the machine and the working folder have the modes that they had, and no descriptor is left.
class InFolder : public ::testing::Test {
  protected:
    InFolder() {
        // In memory if the machine has such a file system: the tests sync a lot.
        bool const hasMemory = access("/dev/shm", W_OK | X_OK) == 0;
        std::string path =
            (hasMemory ? std::filesystem::path("/dev/shm") : std::filesystem::temp_directory_path()) /
            "utl-test-XXXXXX";
        EXPECT_NE(mkdtemp(path.data()), nullptr);
        mPath = path;
        std::filesystem::current_path(mPath);
        chmod(".", 0755);
        utl::ThreadManager::get();  // has descriptors of its own
        mDescriptors = openDescriptors();
    }

    ~InFolder() override {
        EXPECT_EQ(openDescriptors(), mDescriptors);
        EXPECT_EQ(permissions("."), 0755);
        EXPECT_EQ(permissions("/"), mRootMode);
        EXPECT_EQ(permissions("/tmp"), mTemporaryMode);
        std::filesystem::current_path("/");
        removeFolder();
    }

    /// Makes a folder with exactly this mode.
    static void putFolder(std::string const& path, mode_t mode = 0755) {
        std::filesystem::create_directories(path);
        chmod(path.c_str(), mode);
    }

  private:
    // First lets the owner into a folder that may not be read or written.
    void removeFolder() const {
        chmod(mPath.c_str(), 0755);
        for (auto entry = std::filesystem::recursive_directory_iterator(mPath);
             entry != std::filesystem::recursive_directory_iterator(); ++entry) {
            if (entry->is_directory() && !entry->is_symlink()) {
                chmod(entry->path().c_str(), 0755);
            }
        }
        std::filesystem::remove_all(mPath);
    }

    int const mRootMode = permissions("/");
    int const mTemporaryMode = permissions("/tmp");
    std::filesystem::path mPath;
    unsigned int mDescriptors = 0;
};

/// An `InFolder` that records the library's log, all levels of it.
class InLoggedFolder : public InFolder {
  protected:
    InLoggedFolder() { setFilterLevel(utl::LOG_TYPE_LIBRARY, utl::LOG_LEVEL_DEBUG); }
    ~InLoggedFolder() override { setFilterLevel(utl::LOG_TYPE_LIBRARY, utl::LOG_LEVEL_DETAIL); }

    static std::string error(std::string const& text) { return "<UTIL> ERR: " + text; }
    static std::string debug(std::string const& text) { return "<UTIL> DBG: " + text; }

    LogCapture mLog;
};

}  // namespace utltest

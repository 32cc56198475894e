#pragma once

// What the library asks the system for on behalf of a `File`, call by call.

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "TestHooks.h"
#include "TestThreads.h"
#include "UtlLog.h"

namespace utltest {

/// Records the system calls on files that the library makes on this thread while the object lives, as
/// "open: flock 6", with the label of the keep-alive bracket first; "-" stands for no bracket. It is an
/// `OwnHookScope` itself, and the thread must not be under the watchdog. One at a time.
class [[nodiscard]] FileCalls {
  public:
    using Lines = std::vector<std::string>;

    FileCalls() {
        sLines.clear();
        enterWatchdogSilently();
        watchAll();
    }
    ~FileCalls() { utl::ThreadManager::get()->unregisterWatchdog(); }
    FileCalls(FileCalls const&) = delete;
    FileCalls& operator=(FileCalls const&) = delete;

    /// What was recorded since the last `take`, or since the beginning. Descriptors are left out.
    Lines take() { return std::exchange(sLines, {}); }

    /// `take`, without the labels.
    Lines takeCalls() {
        Lines lines = take();
        for (std::string& line : lines) {
            line.erase(0, line.find(": ") + 2);
        }
        return lines;
    }

  private:
    // The watchdog never looks at its table meanwhile; its line about the new thread is not about files.
    static void enterWatchdogSilently() {
        int const level = getFilterLevel(utl::LOG_TYPE_LIBRARY);
        setFilterLevel(utl::LOG_TYPE_LIBRARY, utl::LOG_LEVEL_NONE);
        utl::ThreadManager& manager = *utl::ThreadManager::get();
        EXPECT_TRUE(manager.setWatchdogWatchInterval(0));
        EXPECT_TRUE(manager.entryWatchdog(60000, nullptr));
        EXPECT_TRUE(manager.startWatchdog());
        setFilterLevel(utl::LOG_TYPE_LIBRARY, level);
    }

    static std::string label() {
        utl::StatementInfo const last =
            utltest::ThreadWatchdogAccess::copyInfo(utltest::ThreadManagerAccess::watchdog(), kernelId())
                .lastStatement;
        return last.sub == 1 && std::string(last.file) == "source/UtlFile" && last.line != 0 ? last.function
                                                                                             : "-";
    }

    template <typename... PARTS>
    static void record(PARTS... parts) {
        std::ostringstream line;
        line << label() << ":" << std::oct;
        ((line << ' ' << parts), ...);
        sLines.push_back(line.str());
    }

    // Closing on `exec` is the rule: only its absence is recorded.
    static std::string flagsText(int flags) {
        static constexpr std::pair<int, char const*> NAMES[] = {
            {O_CREAT, "+CREAT"},       {O_EXCL, "+EXCL"},         {O_TRUNC, "+TRUNC"},
            {O_CLOEXEC, "+INHERITED"}, {O_NONBLOCK, "+NONBLOCK"}, {O_DIRECTORY, "+DIRECTORY"},
            {O_LARGEFILE, ""}};
        flags ^= O_CLOEXEC;
        int const access = flags & O_ACCMODE;
        std::string text = access == O_RDONLY ? "RDONLY" : access == O_WRONLY ? "WRONLY" : "RDWR";
        flags &= ~O_ACCMODE;
        for (auto const& [bit, name] : NAMES) {
            text += (flags & bit) != 0 ? name : "";
            flags &= ~bit;
        }
        return flags == 0 ? text : text + "+more";
    }

    static void watchAll() {
        hooks::open.watch([](char const* path, int flags, mode_t mode) {
            mode != 0 ? record("open", path, flagsText(flags), mode) : record("open", path, flagsText(flags));
        });
        hooks::close.watch([](int) { record("close"); });
        hooks::fsync.watch([](int) { record("fsync"); });
        hooks::read.watch([](int, void*, size_t) { record("read"); });
        hooks::pread.watch([](int, void*, size_t, off_t offset) { record("pread", std::to_string(offset)); });
        hooks::write.watch([](int, void const*, size_t) { record("write"); });
        hooks::lseek.watch([](int, off_t offset, int whence) {
            record("lseek", std::to_string(offset), std::to_string(whence));
        });
        hooks::ftruncate.watch([](int, off_t size) { record("ftruncate", std::to_string(size)); });
        hooks::flock.watch([](int, int operation) { record("flock", operation); });
        hooks::stat.watch([](char const* path, struct stat*) { record("stat", path); });
        hooks::fstat.watch([](int, struct stat*) { record("fstat"); });
        hooks::chmod.watch([](char const* path, mode_t mode) { record("chmod", path, mode & 07777); });
        hooks::fchmod.watch([](int, mode_t mode) { record("fchmod", mode & 07777); });
        hooks::mkdir.watch([](char const* path, mode_t mode) { record("mkdir", path, mode); });
        hooks::rmdir.watch([](char const* path) { record("rmdir", path); });
        hooks::unlink.watch([](char const* path) { record("unlink", path); });
        hooks::rename.watch(
            [](char const* source, char const* destination) { record("rename", source, destination); });
        hooks::opendir.watch([](char const* path) { record("opendir", path); });
        hooks::readdir.watch([](DIR*) { record("readdir"); });
        hooks::closedir.watch([](DIR*) { record("closedir"); });
    }

    OwnHookScope const mHooks;
    inline static Lines sLines;
};

/// The mode that `folder`, which had `mode`, must have after the recorded `calls`, if call `number` of `name`
/// failed. It is 0777 in two cases: that call was to restore the folder, or it hid the folder from
/// `makeDirectories`, which sets the mode of a folder on its way to 0777 permanently.
inline int modeBehind(FileCalls::Lines const& calls, std::string const& name, unsigned int number,
                      std::string const& folder, int mode) {
    std::string const look = "changeParentAccessMode: stat " + folder;
    std::string const change = "changeParentAccessMode: chmod " + folder + " ";
    bool isWide = false;
    for (std::string const& line : calls) {
        bool const isChange = line.compare(0, change.size(), change) == 0;
        bool const isCounted = line.find(": " + name + " ") != std::string::npos;
        if (isCounted && --number == 0 && isWide && (isChange || line == look)) {
            return 0777;
        }
        if (isChange) {
            isWide = line == change + "777";
        }
        if (name == "stat" && line == "makeDirectories: chmod " + folder + "/ 777") {
            return 0777;
        }
    }
    return mode;
}

}  // namespace utltest

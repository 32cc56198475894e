// What the system refuses to a file, one call after the other and on bad media.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "TestFileCalls.h"
#include "TestFiles.h"
#include "TestFolder.h"
#include "TestHooks.h"
#include "UtlArray.h"
#include "UtlFile.h"

namespace {

using namespace utltest;
using utl::File;
using HookScope = utltest::OwnHookScope;
namespace hooks = utltest::hooks;

using Lines = std::vector<std::string>;

/// A file system of its own in the folder "disk"; where the machine does not allow that, the caller has to
/// imitate it.
class Disk {
  public:
    explicit Disk(char const* options) {
        mIsMounted = unshare(CLONE_NEWNS) == 0 &&
                     mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                     mount("none", "disk", "tmpfs", 0, options) == 0;
    }
    ~Disk() {
        if (mIsMounted) {
            EXPECT_EQ(umount("disk"), 0);
        }
    }
    Disk(Disk const&) = delete;
    Disk& operator=(Disk const&) = delete;

    bool isMounted() const { return mIsMounted; }
    bool makeReadOnly() const {
        return mIsMounted && mount(nullptr, "disk", nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
    }

  private:
    bool mIsMounted;
};

constexpr off_t DISK_SIZE = 16384;

ssize_t writeToSmallDisk(int descriptor, void const* bytes, size_t size) {
    off_t const left = DISK_SIZE - lseek(descriptor, 0, SEEK_CUR);
    if (left <= 0) {
        errno = ENOSPC;
        return -1;
    }
    return write(descriptor, bytes, std::min(size, static_cast<size_t>(left)));
}

TEST_F(FileAtItsLimits, AFullDisk_TakesWhatFitsAndThenFailsWithItsLines_AndTakesMoreOnceThereIsRoom) {
    putFolder("disk");
    Disk const disk("size=16k,mode=0755");
    HookScope const scope;
    if (!disk.isMounted()) {
        hooks::write.replace(writeToSmallDisk);
    }
    std::string const bytes(20000, 'b');
    utl::File file("disk/full", utl::File::TEXT_UTF8);
    ASSERT_EQ(file.open(utl::File::OPEN_EMPTY, utl::File::ACCESS_READ_WRITE), 1);
    EXPECT_EQ(file.write(bytes.data(), 20000), DISK_SIZE);
    EXPECT_EQ(file.write(bytes.data(), 20000), -1);
    EXPECT_EQ(file.writeLine("more"), -1);
    Lines const lines = {error("WriteFile Failed. errno[28]"), error("writeFile Failed. Path:disk/full")};
    EXPECT_EQ(mLog.lines(), (Lines{lines[0], lines[1], lines[0], lines[1]}));
    EXPECT_EQ(file.position(), DISK_SIZE);
    EXPECT_EQ(file.resize(8192), 1);
    EXPECT_EQ(file.writeLine("more"), 5);
    EXPECT_EQ(file.size(), 8197);
    EXPECT_EQ(permissions("disk"), 0755);
    EXPECT_EQ(file.close(), 1);
    EXPECT_EQ(utl::File::erase("disk/full", utl::File::KEEP_READ_ONLY), 1);

    putFile("source", bytes);
    mLog.clear();
    EXPECT_EQ(utl::File::copy("source", "disk/copy", utl::File::KEEP_EXISTING), 0);
    EXPECT_EQ(mLog.lines(), Lines());
    EXPECT_EQ(contentOf("disk/copy"), bytes.substr(0, DISK_SIZE));
    EXPECT_EQ(permissions("disk"), 0755);
}

void imitateReadOnlyDisk() {
    hooks::open.replace([](char const* path, int flags, mode_t mode) {
        errno = EROFS;
        bool const isOnDisk = std::string(path).rfind("disk", 0) == 0;
        return isOnDisk && (flags & O_ACCMODE) != O_RDONLY ? -1 : open(path, flags, mode);
    });
    hooks::mkdir.replace([](char const* path, mode_t) {
        errno = access(path, F_OK) == 0 ? EEXIST : EROFS;
        return -1;
    });
    hooks::chmod.replace([](char const* path, mode_t mode) {
        errno = EROFS;
        return std::string(path).rfind("disk", 0) == 0 ? -1 : chmod(path, mode);
    });
    hooks::unlink.failFrom(1, 0, -1, EROFS);
    hooks::rmdir.failFrom(1, 0, -1, EROFS);
    hooks::rename.failFrom(1, 0, -1, EROFS);
}

TEST_F(FileAtItsLimits, AReadOnlyDisk_CanBeReadAndRefusesAllElseWithoutAChange) {
    putFolder("disk");
    Disk const disk("size=64k,mode=0755");
    putFile("disk/file", "text");
    putFile("disk/locked", "text");
    chmod("disk/locked", 0444);
    putFolder("disk/folder");
    HookScope const scope;
    if (!disk.makeReadOnly()) {
        imitateReadOnlyDisk();
    }
    {
        utl::File reader("disk/file", utl::File::TEXT_UTF8);
        EXPECT_EQ(reader.open(utl::File::OPEN_AT_END, utl::File::ACCESS_READ), 1);
        EXPECT_EQ(reader.position(), 4);
        EXPECT_EQ(utl::File::isOpened("disk/file", nullptr), 1);
        EXPECT_EQ(utl::File::copy("disk/file", "copied", utl::File::KEEP_EXISTING), 1);
    }
    EXPECT_EQ(contentOf("copied"), "text");
    EXPECT_EQ(mLog.lines(), Lines());
    EXPECT_EQ(utl::File("disk/file", utl::File::TEXT_UTF8)
                  .open(utl::File::OPEN_EMPTY, utl::File::ACCESS_READ_WRITE),
              0);
    EXPECT_EQ(utl::File("disk/new", utl::File::TEXT_UTF8).open(utl::File::OPEN_KEEP, utl::File::ACCESS_WRITE),
              0);
    EXPECT_EQ(
        utl::File("disk/locked", utl::File::TEXT_UTF8).open(utl::File::OPEN_KEEP, utl::File::ACCESS_WRITE),
        0);
    EXPECT_EQ(utl::File::copy("disk/file", "disk/copied", utl::File::OVERWRITE_EXISTING), 0);
    EXPECT_EQ(utl::File::applyReadOnly("disk", utl::File::RECURSIVE), 0);
    EXPECT_EQ(utl::File::liftReadOnly("disk/locked", utl::File::PATH_ONLY), 0);
    EXPECT_EQ(utl::File::liftReadOnly("disk/file", utl::File::PATH_ONLY), 1);
    EXPECT_EQ(mLog.lines(), (Lines{error("open() Failed. errno[30] Path:disk/file"),
                                   error("open() Failed. errno[30] Path:disk/new")}));
    mLog.clear();
    EXPECT_EQ(utl::File::erase("disk/file", utl::File::KEEP_READ_ONLY), 0);
    EXPECT_EQ(utl::File::erase("disk/locked", utl::File::KEEP_READ_ONLY), 0);
    EXPECT_EQ(utl::File::erase("disk/locked", utl::File::ERASE_READ_ONLY), 0);
    EXPECT_EQ(utl::File::erase("disk/folder", utl::File::KEEP_READ_ONLY), 0);
    EXPECT_EQ(utl::File::move("disk/file", "disk/moved"), 0);
    EXPECT_EQ(utl::File::makeDirectories("disk/folder/new"), 0);
    Lines const lines = mLog.lines();
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[0], error("remove failed. errno[30] Path:disk/file"));
    EXPECT_EQ(lines[1], error("Can't erase force because Not Permited:disk/locked"));
    EXPECT_EQ(lines[2], error("rmdir Failed.Path:disk/folder errno[30]"));
    EXPECT_EQ(lines[3], error("rename Failed. errno[30] Source:disk/file  Dest:disk/moved"));
    EXPECT_EQ(lines[4].rfind(error("CreateDirectory Failed. errno[30] Path:disk/folder/new"), 0), 0U);
    EXPECT_EQ(contentOf("disk/file"), "text");
    EXPECT_EQ(permissions("disk/file"), 0644);
    EXPECT_EQ(permissions("disk"), 0755);
}

TEST_F(FileAtItsLimits, AWriter_WhoseNthSystemCallFails_LeavesContentLockAndFolderAsTheyWere) {
    auto const prepare = [] {
        putFolder("d");
        putFile("d/f", "content");
    };
    auto const run = [this, &prepare](auto& hook, bool canFailToRestore) {
        int result = 0;
        auto const operation = [&result] {
            utl::File file("d/f", utl::File::TEXT_UTF8);
            result = file.open(utl::File::OPEN_AT_END, utl::File::ACCESS_READ_WRITE);
            EXPECT_EQ(file.isOpened(), result);
            EXPECT_EQ(file.close(), result);
            return result;
        };
        sweep(hook, prepare, operation, [&](unsigned int n, int opened) {
            EXPECT_TRUE(opened == 1 || n != 0);
            EXPECT_EQ(contentOf("d/f"), "content") << n;
            EXPECT_TRUE(permissions("d") == 0755 || (canFailToRestore && permissions("d") == 0777)) << n;
            EXPECT_EQ(
                utl::File("d/f", utl::File::TEXT_UTF8).open(utl::File::OPEN_KEEP, utl::File::ACCESS_WRITE), 1)
                << n;
        });
    };
    run(hooks::open, false);
    run(hooks::flock, false);
    run(hooks::lseek, false);
    run(hooks::fsync, false);
    run(hooks::stat, true);
    run(hooks::chmod, true);
}

TEST_F(FileAtItsLimits, Resize_WhoseNthSystemCallFails_IsFalseAndThePositionIsBackWhereThatCanBe) {
    putFile("f", "");
    utl::File file("f", utl::File::TEXT_UTF8);
    ASSERT_EQ(file.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ_WRITE), 1);
    for (unsigned int const newSize : {3U, 7U, 20U}) {
        auto const prepare = [&file] {
            EXPECT_EQ(file.resize(0), 1);
            EXPECT_EQ(file.write("0123456789", 10), 10);
            EXPECT_EQ(file.seek(7, utl::File::FROM_START), 7);
        };
        auto const resizeIt = [&] { return file.resize(static_cast<unsigned long long>(newSize)); };
        sweep(hooks::lseek, prepare, resizeIt, [&](unsigned int n, int result) {
            EXPECT_EQ(result, n == 0 ? 1 : 0) << newSize << ", " << n;
            EXPECT_EQ(file.size(), n == 0 || n == 4 ? newSize : 10) << n;
            EXPECT_EQ(file.position(), n == 4 || (n == 0 && newSize == 3) ? newSize : 7) << n;
        });
        sweep(hooks::ftruncate, prepare, resizeIt, [&](unsigned int n, int result) {
            EXPECT_EQ(result, n == 0 ? 1 : 0);
            EXPECT_EQ(mLog.lines(), n == 0 ? Lines() : Lines{error("ftruncate Failed. Path:f")});
            EXPECT_EQ(file.size(), n == 0 ? newSize : 10);
            EXPECT_EQ(file.position(), n == 0 && newSize == 3 ? 3 : 7);
        });
    }
    for (unsigned long long const newSize : {0x8000000000000000ULL, 0xFFFFFFFFFFFFFFFFULL}) {
        mLog.clear();
        EXPECT_EQ(file.resize(newSize), 0);
        EXPECT_EQ(file.position(), 7);
        EXPECT_EQ(mLog.lines(), Lines{error("lseek64 Failed. errno[22]")});
    }
}

TEST_F(FileAtItsLimits, ADescriptorOfZero_IsLostOnceAndIsNoFileEver) {
    putFile("f", "text");
    int const input = dup(STDIN_FILENO);
    ASSERT_GT(input, 0);
    utl::File file("f", utl::File::TEXT_UTF8);
    close(STDIN_FILENO);
    EXPECT_EQ(file.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ), 0);
    EXPECT_EQ(file.isOpened(), 0);
    EXPECT_EQ(file.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ), 1);
    EXPECT_EQ(file.close(), 1);
    close(STDIN_FILENO);
    EXPECT_EQ(utl::File::size("f"), -1);
    EXPECT_EQ(utl::File::size("f"), 4);
    Lines const lines = mLog.lines();
    EXPECT_EQ(dup2(input, STDIN_FILENO), STDIN_FILENO);
    close(input);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].rfind(error("open() Failed. errno["), 0), 0U);
    EXPECT_EQ(lines[1].rfind(error("in size func open Failed. Path:f errno["), 0), 0U);
}

// What the sweeps rest on: a call of another thread, such as the watchdog's, takes no failure away.
TEST_F(FileAtItsLimits, AFailureOfOnesOwn_IsNotTakenByAnotherThread) {
    putFile("f", "12345");
    HookScope const scope;
    hooks::fstat.failFrom(1, 1, -1, EIO);
    std::thread([] { EXPECT_EQ(utl::File::size("f"), 5); }).join();
    EXPECT_EQ(hooks::fstat.calls(), 0U);
    EXPECT_EQ(utl::File::size("f"), -1);
}

// Each step of an opening fails in turn, until one run has none that does.
template <typename HOOK, typename RESULT>
void failEachCallOfOpening(char const* name, HOOK& hook, RESULT result, int reason) {
    bool isThrough = false;
    for (unsigned int failing = 1; !isThrough; ++failing) {
        ASSERT_LT(failing, 20U);
        chmod("folder", 0755);
        FileCalls calls;
        unsigned int const descriptors = openDescriptors();
        hook.failFrom(failing, 1, result, reason);
        {
            File file("folder/f", File::TEXT_UTF8);
            int const isOpen = file.open(File::OPEN_AT_END, File::ACCESS_READ_WRITE);
            EXPECT_EQ(file.isOpened(), isOpen);
        }
        isThrough = hook.calls() < failing;
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_EQ(contentOf("folder/f"), "0123456789");
        EXPECT_EQ(permissions("folder"), utltest::modeBehind(calls.take(), name, failing, "folder", 0755))
            << name << " " << failing;
    }
}

TEST_F(FileInFolder, Destructor_WhoseFolderCannotBeOpened_ClosesTheFileWithoutALine) {
    FileCalls calls;
    {
        File file("folder/f", File::TEXT_UTF8);
        ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
        calls.take();
        hooks::open.failFrom(1, 0, -1, EMFILE);
    }
    EXPECT_EQ(calls.take(), (Lines{"~File: open folder RDONLY+DIRECTORY", "-: fsync", "-: close"}));
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Destructor_WhoseFolderGetsDescriptor0_DoesNotCloseIt) {
    FileCalls calls;
    {
        File const file("folder/f", File::TEXT_UTF8);
        hooks::open.failFrom(1, 1, 0, 0);
    }
    EXPECT_EQ(calls.take(), (Lines{"~File: open folder RDONLY+DIRECTORY"}));
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, OpenToWrite_OfANewFile_OpensItAlsoWhereTheSystemDoesNotSetItsMode) {
    HookScope const scope;
    hooks::fchmod.failFrom(1, 0, -1, EPERM);
    File file("folder/new", File::TEXT_UTF8);
    EXPECT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, OpenToWrite_WhoseSecondLookAtAReadOnlyFileFails_SaysSo) {
    chmod("folder/f", 0444);
    HookScope const scope;
    hooks::stat.failFrom(6, 1, -1, EACCES);
    EXPECT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_WRITE), 0);
    EXPECT_EQ(mLog.lines(), (Lines{error("is isReadOnly func stat Failed. errno[13] Path:folder/f")}));
}

TEST_F(FileInFolder, OpenToWrite_WhoseFirstLookForReadOnlyFails_SaysSoAndGoesOn) {
    HookScope const scope;
    hooks::stat.failFrom(5, 1, -1, EACCES);
    EXPECT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    EXPECT_EQ(mLog.lines(), (Lines{error("is isReadOnly func stat Failed. errno[13] Path:folder/f")}));
}

TEST_F(FileInFolder, OpenToWrite_WhoseFolderCannotBeMade_SaysWhichOne) {
    HookScope const scope;
    hooks::mkdir.failFrom(1, 1, -1, ENOSPC);
    EXPECT_EQ(File("new/x/f", File::TEXT_UTF8).open(File::OPEN_KEEP, File::ACCESS_WRITE), 0);
    EXPECT_EQ(mLog.lines(), (Lines{error("CreateDirectory Failed. errno[28] Path:new/x/(new/)")}));
    EXPECT_EQ(permissions("new"), -1);
}

TEST_F(FileInFolder, OpenToRead_ThatTheSystemRefuses_SaysSo) {
    HookScope const scope;
    hooks::open.failFrom(1, 1, -1, EMFILE);
    EXPECT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 0);
    EXPECT_EQ(mFile.isOpened(), 0);
    EXPECT_EQ(mLog.lines(), (Lines{error("open() Failed. errno[24] Path:folder/f")}));
}

TEST_F(FileInFolder, OpenToWrite_ThatTheSystemRefuses_PutsTheFolderBackAndSaysSo) {
    for (int const reason : {EMFILE, ENOSPC, EROFS, EIO, EINTR}) {
        mLog.clear();
        FileCalls calls;
        hooks::open.failFrom(1, 1, -1, reason);
        EXPECT_EQ(mFile.open(File::OPEN_EMPTY, File::ACCESS_READ_WRITE), 0);
        EXPECT_EQ(mFile.isOpened(), 0);
        EXPECT_EQ(permissions("folder"), 0755);
        EXPECT_EQ(mLog.lines(),
                  (Lines{error("open() Failed. errno[" + std::to_string(reason) + "] Path:folder/f")}));
        EXPECT_EQ(calls.take().back(), "changeParentAccessMode: chmod folder 755");
    }
    EXPECT_EQ(contentOf("folder/f"), "0123456789");
}

TEST_F(FileInFolder, Open_ThatGetsDescriptor0_HasFailedAndDoesNotCloseIt) {
    for (int const access : {0, 1}) {
        mLog.clear();
        FileCalls calls;
        hooks::open.failFrom(1, 1, 0, ENOENT);
        EXPECT_EQ(mFile.open(0, access), 0);
        EXPECT_EQ(mFile.isOpened(), 0);
        EXPECT_EQ(mLog.lines(), (Lines{error("open() Failed. errno[2] Path:folder/f")}));
        for (std::string const& call : calls.takeCalls()) {
            EXPECT_NE(call, "close");
        }
    }
}

TEST_F(FileInFolder, Open_WhoseLockFails_ClosesTheFileAfterPuttingTheFolderBack) {
    FileCalls calls;
    hooks::flock.failFrom(1, 1, -1, EINTR);
    EXPECT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_WRITE), 0);
    EXPECT_EQ(mFile.isOpened(), 0);
    Lines const lines = calls.take();
    EXPECT_EQ(Lines(lines.end() - 5, lines.end()),
              (Lines{"open: flock 6", "changeParentAccessMode: stat folder",
                     "changeParentAccessMode: chmod folder 755", "-: fsync", "-: close"}));
    EXPECT_EQ(mLog.lines(), (Lines{debug("Other process is opening. errno[4] Path:folder/f")}));
}

TEST_F(FileInFolder, OpenAtTheEnd_WhoseSeekFails_ClosesTheFileAfterPuttingTheFolderBack) {
    FileCalls calls;
    hooks::lseek.failFrom(1, 1, -1, ESPIPE);
    EXPECT_EQ(mFile.open(File::OPEN_AT_END, File::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(mFile.isOpened(), 0);
    Lines const lines = calls.take();
    EXPECT_EQ(Lines(lines.end() - 5, lines.end()),
              (Lines{"seekFile: lseek 0 2", "changeParentAccessMode: stat folder",
                     "changeParentAccessMode: chmod folder 755", "-: fsync", "-: close"}));
    EXPECT_EQ(mLog.lines(), (Lines{error("lseek64 Failed. errno[29]"),
                                   debug("seekFile in open Failed. errno[29] Path:folder/f")}));
}

TEST_F(FileInFolder, OpenAtTheEndToRead_WhoseSeekFails_ClosesTheFile) {
    HookScope const scope;
    hooks::lseek.failFrom(1, 1, -1, ESPIPE);
    EXPECT_EQ(mFile.open(File::OPEN_AT_END, File::ACCESS_READ), 0);
    EXPECT_EQ(mFile.isOpened(), 0);
    EXPECT_EQ(mLog.count(debug("seekFile in open Failed. errno[29] Path:folder/f")), 1U);
}

TEST_F(FileInFolder, Close_IgnoresFailures) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    int const descriptors = static_cast<int>(openDescriptors());
    {
        HookScope const scope;
        hooks::fsync.failFrom(1, 0, -1, EIO);
        EXPECT_EQ(mFile.close(), 1);
    }
    EXPECT_EQ(mFile.isOpened(), 0);
    EXPECT_EQ(static_cast<int>(openDescriptors()), descriptors - 1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Position_ThatTheSystemRefuses_IsMinusOneAndSaysSo) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    HookScope const scope;
    hooks::lseek.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(mFile.position(), -1);
    EXPECT_EQ(mLog.lines(), (Lines{error("lseek64 Failed. errno[5]")}));
}

TEST_F(FileInFolder, Size_ThatCannotBeHad_IsMinusOneAndSaysSo) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    HookScope const scope;
    hooks::fstat.failFrom(1, 0, -1, EIO);
    EXPECT_EQ(mFile.size(), -1);
    EXPECT_EQ(mFile.availableSize(), -1);
    Lines const twice{error("fstat Failed. errno[5]"), error("fileSize Failed. Path:folder/f"),
                      error("fstat Failed. errno[5]"), error("fileSize Failed. Path:folder/f")};
    EXPECT_EQ(mLog.lines(), twice);
}

TEST_F(FileInFolder, AvailableSize_WithoutAPosition_IsMinusOne) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    HookScope const scope;
    hooks::lseek.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(mFile.availableSize(), -1);
    EXPECT_EQ(mLog.lines(), (Lines{error("lseek64 Failed. errno[5]")}));
}

TEST_F(FileInFolder, Read_WithoutASize_SaysSoAfterTheLinesOfTheSize) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    HookScope const scope;
    hooks::fstat.failFrom(1, 1, -1, EIO);
    char buffer = 0;
    EXPECT_EQ(mFile.read(&buffer, 1), -1);
    EXPECT_EQ(mLog.lines(), (Lines{error("fstat Failed. errno[5]"), error("fileSize Failed. Path:folder/f"),
                                   error("in read func now size func error")}));
}

TEST_F(FileInFolder, Read_WithoutAPosition_SaysSo) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    HookScope const scope;
    hooks::lseek.failFrom(1, 1, -1, EIO);
    char buffer = 0;
    EXPECT_EQ(mFile.read(&buffer, 1), -1);
    EXPECT_EQ(mLog.lines(),
              (Lines{error("lseek64 Failed. errno[5]"), error("in read func now seekFile func error")}));
}

TEST_F(FileInFolder, Read_ThatTheSystemRefuses_SaysSoAndIsNotRepeated) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    for (int const reason : {EINTR, EIO}) {
        mLog.clear();
        HookScope const scope;
        hooks::pread.failFrom(1, 1, -1, reason);
        char buffer = 0;
        EXPECT_EQ(mFile.read(&buffer, 1), -1);
        EXPECT_EQ(mLog.lines(), (Lines{error("ReadFile Failed. errno[" + std::to_string(reason) + "]"),
                                       error("in read func readFile Failed. Path:folder/f")}));
        EXPECT_EQ(mFile.position(), 0);
    }
}

TEST_F(FileInFolder, Write_ThatTheSystemRefuses_SaysSoAndPutsTheFolderBack) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    for (int const reason : {EINTR, EIO, ENOSPC}) {
        mLog.clear();
        FileCalls calls;
        hooks::write.failFrom(1, 1, -1, reason);
        EXPECT_EQ(mFile.write("abc", 3), -1);
        EXPECT_EQ(mLog.lines(), (Lines{error("WriteFile Failed. errno[" + std::to_string(reason) + "]"),
                                       error("writeFile Failed. Path:folder/f")}));
        EXPECT_EQ(calls.take().back(), "changeParentAccessMode: chmod folder 755");
    }
    EXPECT_EQ(contentOf("folder/f"), "0123456789");
}

TEST_F(FileInFolder, Write_WhoseFolderCannotBeWidened_GoesOnAndPutsNothingBack) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    FileCalls calls;
    hooks::chmod.failFrom(1, 0, -1, EPERM);
    EXPECT_EQ(mFile.write("abc", 3), 3);
    EXPECT_EQ(calls.takeCalls(), (Lines{"stat folder", "chmod folder 777", "write"}));
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Resize_WithoutAPosition_IsFalseWithoutALine) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE), 1);
    HookScope const scope;
    hooks::lseek.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(mFile.resize(), 0);
    EXPECT_EQ(mLog.lines(), Lines());
    EXPECT_EQ(mFile.size(), 10);
}

TEST_F(FileInFolder, Resize_ThatTheSystemRefuses_SaysSo) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE), 1);
    HookScope const scope;
    hooks::ftruncate.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(mFile.resize(), 0);
    EXPECT_EQ(mLog.lines(), (Lines{error("ftruncate Failed. Path:folder/f")}));
}

TEST_F(FileInFolder, ResizeToASize_ThatFails_PutsThePositionBack) {
    ASSERT_EQ(mFile.open(File::OPEN_AT_END, File::ACCESS_READ_WRITE), 1);
    HookScope const scope;
    hooks::ftruncate.failFrom(1, 0, -1, EFBIG);
    EXPECT_EQ(mFile.resize(4), 0);
    EXPECT_EQ(mFile.position(), 10);
    EXPECT_EQ(mFile.resize(40), 0);
    EXPECT_EQ(mFile.position(), 10);
    Lines const twice(2, error("ftruncate Failed. Path:folder/f"));
    EXPECT_EQ(mLog.lines(), twice);
}

TEST_F(FileInFolder, ResizeToASize_WithAnyFailingSeek_IsFalse) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE), 1);
    for (unsigned int failing = 1; failing <= 4; ++failing) {
        mLog.clear();
        HookScope const scope;
        hooks::lseek.failFrom(failing, 1, -1, EIO);
        EXPECT_EQ(mFile.resize(20), 0);
        // The third is the one of the inner step, which says nothing.
        EXPECT_EQ(mLog.lines().size(), failing == 3 ? 0U : 1U);
    }
}

TEST_F(FileInFolder, ResizeToASize_WhoseSeekBackFails_LeavesThePositionAtTheNewSize) {
    for (bool const isResized : {true, false}) {
        ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE), 1);
        mLog.clear();
        HookScope const scope;
        hooks::lseek.failFrom(4, 1, -1, EIO);
        if (!isResized) {
            hooks::ftruncate.failFrom(1, 1, -1, EFBIG);
        }
        EXPECT_EQ(mFile.resize(20), 0);
        EXPECT_EQ(mFile.position(), 20);
        EXPECT_EQ(mFile.size(), isResized ? 20 : 10);
        EXPECT_EQ(mLog.lines().back(), error("lseek64 Failed. errno[5]"));
        EXPECT_EQ(mLog.lines().size(), isResized ? 1U : 2U);
        EXPECT_EQ(mFile.resize(10), 1);
        EXPECT_EQ(mFile.close(), 1);
    }
}

TEST_F(FileInFolder, ChangeParentAccessMode_ThatTheSystemRefuses_IsFalse) {
    HookScope const scope;
    hooks::chmod.failFrom(1, 1, -1, EROFS);
    int mode = 0;
    EXPECT_EQ(File::changeParentAccessMode("folder/f", 0777, &mode), 0);
    EXPECT_EQ(mode, S_IFDIR | 0755);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Open_WithAnyCallFailing_LeavesNoDescriptorTheContentAndTheFolder) {
    failEachCallOfOpening("stat", hooks::stat, -1, EACCES);
    failEachCallOfOpening("chmod", hooks::chmod, -1, EPERM);
    failEachCallOfOpening("fchmod", hooks::fchmod, -1, EPERM);
    failEachCallOfOpening("open", hooks::open, -1, EMFILE);
    failEachCallOfOpening("flock", hooks::flock, -1, EINTR);
    failEachCallOfOpening("lseek", hooks::lseek, off_t{-1}, EINVAL);
    failEachCallOfOpening("fsync", hooks::fsync, -1, EIO);
}

TEST_F(FileInFolder, OpenToWrite_WhoseFolderCannotBePutBack_LeavesItWidened) {
    HookScope const scope;
    hooks::chmod.failFrom(2, 1, -1, EPERM);
    EXPECT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    EXPECT_EQ(permissions("folder"), 0777);
    EXPECT_EQ(mLog.lines(), Lines());
    chmod("folder", 0755);
}

}  // namespace

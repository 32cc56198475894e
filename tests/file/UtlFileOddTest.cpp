// Files and folders at their limits, on bad media, and while others have their hands on them.

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
#include <array>
#include <cerrno>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "TestFolder.h"
#include "TestHooks.h"
#include "UtlArray.h"
#include "UtlFile.h"

namespace {

using utltest::contentOf;
using HookScope = utltest::OwnHookScope;
using utltest::openDescriptors;
using utltest::permissions;
using utltest::putFile;
namespace hooks = utltest::hooks;

using Lines = std::vector<std::string>;
using Names = utl::Array<utl::BasicString<char>, utl::BasicString<char> const&>;

class FileOdd : public utltest::InLoggedFolder {
  protected:
    /// Lets call 1, 2, 3, ... of a function fail, until the operation makes fewer calls than that. `prepare`
    /// comes in front of each run; `check` gets the number and what the operation gave.
    template <typename HOOK, typename PREPARE, typename OPERATION, typename CHECK>
    void sweep(HOOK& hook, PREPARE prepare, OPERATION operation, CHECK check) {
        bool isThrough = false;
        for (unsigned int n = 1; !isThrough && n < 200; ++n) {
            prepare();
            mLog.clear();
            unsigned int const descriptors = openDescriptors();
            int result = -1;
            {
                HookScope const scope;
                hook.failFrom(n, 1, -1, EIO);
                result = operation();
                isThrough = hook.calls() < n;
            }
            EXPECT_EQ(openDescriptors(), descriptors) << n;
            check(isThrough ? 0 : n, result);
        }
        EXPECT_TRUE(isThrough);
    }
};

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

TEST_F(FileOdd, AFullDisk_TakesWhatFitsAndThenFailsWithItsLines_AndTakesMoreOnceThereIsRoom) {
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

TEST_F(FileOdd, AReadOnlyDisk_CanBeReadAndRefusesAllElseWithoutAChange) {
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

TEST_F(FileOdd, AWriter_WhoseNthSystemCallFails_LeavesContentLockAndFolderAsTheyWere) {
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

TEST_F(FileOdd, Copy_WhoseNthSystemCallFails_ClosesBothFilesAndPutsTheFoldersBack) {
    std::string const source(2500, 's');
    std::string const old(4000, 'o');
    auto const prepare = [&] {
        putFolder("a", 0700);
        putFolder("b", 0750);
        putFile("a/source", source);
        putFile("b/copy", old);
    };
    auto const copyIt = [] { return utl::File::copy("a/source", "b/copy", utl::File::OVERWRITE_EXISTING); };
    auto const run = [&](auto& hook, bool canFailToRestore, auto contentAfter) {
        sweep(hook, prepare, copyIt, [&](unsigned int n, int result) {
            EXPECT_EQ(contentOf("a/source"), source);
            EXPECT_TRUE(canFailToRestore || permissions("a") == 0700) << n;
            EXPECT_TRUE(canFailToRestore || permissions("b") == 0750) << n;
            if (n == 0) {
                EXPECT_EQ(result, 1);
                EXPECT_EQ(contentOf("b/copy"), source);
            } else {
                contentAfter(n, result);
            }
        });
    };
    run(hooks::write, false, [&](unsigned int n, int result) {
        EXPECT_EQ(result, 0);
        EXPECT_EQ(contentOf("b/copy"), source.substr(0, 1024 * (n - 1)) + old.substr(1024 * (n - 1)));
    });
    run(hooks::read, false, [&](unsigned int n, int result) {
        std::size_t const read = std::min<std::size_t>(1024 * (n - 1), source.size());
        EXPECT_EQ(result, 0);
        EXPECT_EQ(contentOf("b/copy"), source.substr(0, read) + old.substr(read));
    });
    // The first is the look whether somebody holds the file.
    run(hooks::open, false, [&](unsigned int n, int result) {
        EXPECT_EQ(result, n == 1 ? 1 : 0);
        EXPECT_EQ(contentOf("b/copy"), n == 1 ? source : old);
    });
    run(hooks::flock, false, [](unsigned int, int result) { EXPECT_EQ(result, 1); });
    run(hooks::stat, true,
        [&](unsigned int, int result) { EXPECT_EQ(contentOf("b/copy"), result == 1 ? source : old); });
    run(hooks::chmod, true, [](unsigned int, int result) { EXPECT_EQ(result, 1); });
}

TEST_F(FileOdd, Erase_WhoseNthSystemCallFails_StopsThereAndCanBeFinished) {
    auto const prepare = [] {
        putFolder("d/tree/inner/most", 0755);
        putFile("d/tree/one", "1");
        putFile("d/tree/inner/two", "2");
        putFile("d/tree/inner/three", "3");
    };
    auto const run = [&](auto& hook) {
        sweep(
            hook, prepare, [] { return utl::File::erase("d/tree", utl::File::KEEP_READ_ONLY); },
            [](unsigned int n, int result) {
                EXPECT_EQ(result, n == 0 ? 1 : 0) << n;
                EXPECT_EQ(permissions("d/tree"), n == 0 ? -1 : 0755) << n;
                EXPECT_EQ(permissions("d"), 0755) << n;
                EXPECT_EQ(utl::File::erase("d", utl::File::ERASE_READ_ONLY), 1) << n;
            });
    };
    run(hooks::unlink);
    run(hooks::rmdir);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileOdd, Resize_WhoseNthSystemCallFails_IsFalseAndThePositionIsBackWhereThatCanBe) {
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

TEST_F(FileOdd, SizesAndPositionsAreWholeOnBothSidesOfTwoAndFourGibibytes) {
    putFolder("d");
    utl::File file("d/big", utl::File::TEXT_UTF8);
    ASSERT_EQ(file.open(utl::File::OPEN_EMPTY, utl::File::ACCESS_READ_WRITE), 1);
    for (long long const size : {0x7FFFFFFELL, 0x7FFFFFFFLL, 0x80000000LL, 0x80000001LL, 0xFFFFFFFELL,
                                 0xFFFFFFFFLL, 0x100000000LL, 0x100000001LL, 0x140000000LL}) {
        std::array<char, 4> bytes = {};
        EXPECT_EQ(file.seek(0, utl::File::FROM_START), 0);
        EXPECT_EQ(file.resize(static_cast<unsigned long long>(size)), 1);
        EXPECT_EQ(file.position(), 0);
        EXPECT_EQ(file.availableSize(), size);
        EXPECT_EQ(file.seek(-1, utl::File::FROM_END), size - 1);
        EXPECT_EQ(file.read(bytes.data(), 4), 1);
        EXPECT_EQ(file.read(bytes.data(), 4), utl::File::END_OF_FILE);
        EXPECT_EQ(file.write("end", 3), 3);
        EXPECT_EQ(file.position(), size + 3);
        EXPECT_EQ(file.seek(-size - 3, utl::File::FROM_POSITION), 0);
        EXPECT_EQ(file.seek(size, utl::File::FROM_POSITION), size);
        EXPECT_EQ(file.availableSize(), 3);
        EXPECT_EQ(utl::File::size("d/big"), size + 3);
        EXPECT_EQ(file.seek(-size - 1, utl::File::FROM_POSITION), -1);
        EXPECT_EQ(file.position(), size);
        EXPECT_EQ(file.resize(), 1);
        EXPECT_EQ(file.size(), size);
    }
    EXPECT_EQ(truncate("d/big", 0x100000000LL), 0);
    putFile("d/small", "1234567");
    EXPECT_EQ(utl::File::size("d"), 0x100000007LL);
    EXPECT_EQ(mLog.lines(), Lines(9, error("lseek64 Failed. errno[22]")));
}

TEST_F(FileOdd, AWriteOnlyFileCannotBeRead_ExceptThatItHasAnEnd_AndAReaderCannotWrite) {
    putFile("f", "text");
    std::array<char, 8> bytes = {};
    utl::File writer("f", utl::File::TEXT_UTF8);
    ASSERT_EQ(writer.open(utl::File::OPEN_KEEP, utl::File::ACCESS_WRITE), 1);
    EXPECT_EQ(writer.read(bytes.data(), 8), -1);
    EXPECT_EQ(mLog.lines(),
              (Lines{error("ReadFile Failed. errno[9]"), error("in read func readFile Failed. Path:f")}));
    mLog.clear();
    EXPECT_EQ(writer.seek(0, utl::File::FROM_END), 4);
    EXPECT_EQ(writer.read(bytes.data(), 8), utl::File::END_OF_FILE);
    EXPECT_EQ(mLog.lines(), Lines());
    EXPECT_EQ(writer.close(), 1);

    utl::File reader("f", utl::File::TEXT_UTF8);
    ASSERT_EQ(reader.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ), 1);
    EXPECT_EQ(reader.write("more", 4), -1);
    EXPECT_EQ(reader.resize(2ULL), 0);
    EXPECT_EQ(reader.position(), 0);
    EXPECT_EQ(mLog.lines(), (Lines{error("WriteFile Failed. errno[9]"), error("writeFile Failed. Path:f"),
                                   error("ftruncate Failed. Path:f")}));
    EXPECT_EQ(contentOf("f"), "text");
}

TEST_F(FileOdd, ALockOutlivesTheObject_AsLongAsAnotherProcessHasTheDescriptor) {
    char const* const path = "held%s/%n%d";
    utl::File file(path, utl::File::TEXT_UTF8);
    ASSERT_EQ(file.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ_WRITE), 1);
    std::array<int, 2> ends = {};
    ASSERT_EQ(pipe(ends.data()), 0);
    pid_t const child = fork();
    if (child == 0) {
        close(ends[1]);
        char byte = 0;
        _exit(static_cast<int>(read(ends[0], &byte, 1)));
    }
    close(ends[0]);
    EXPECT_EQ(file.close(), 1);
    mLog.clear();
    EXPECT_EQ(file.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ), 0);
    EXPECT_EQ(mLog.lines(), Lines{debug("Other process is opening. errno[11] Path:held%s/%n%d")});
    bool isShared = true;
    EXPECT_EQ(utl::File::isOpened(path, &isShared), 1);
    EXPECT_FALSE(isShared);
    EXPECT_EQ(file.move("moved"), 0);
    EXPECT_EQ(file.erase(utl::File::ERASE_READ_ONLY), 0);
    EXPECT_EQ(file.copy("copied", utl::File::OVERWRITE_EXISTING), 0);
    EXPECT_EQ(file.size(), 0);
    close(ends[1]);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(utl::File::isOpened(path, &isShared), 0);
    EXPECT_EQ(file.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ), 1);
}

/// "cat" as another program; it ends when the test's end of the pipe to it is closed.
class Cat {
  public:
    Cat() {
        std::array<int, 2> to = {};
        std::array<int, 2> from = {};
        EXPECT_EQ(pipe2(to.data(), O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(from.data(), O_CLOEXEC), 0);
        mProcess = fork();
        if (mProcess == 0) {
            dup2(to[0], STDIN_FILENO);
            dup2(from[1], STDOUT_FILENO);
            execlp("cat", "cat", nullptr);
            _exit(1);
        }
        close(to[0]);
        close(from[1]);
        mTo = to[1];
        mFrom = from[0];
    }
    ~Cat() {
        close(mTo);
        close(mFrom);
        EXPECT_EQ(waitpid(mProcess, nullptr, 0), mProcess);
    }
    Cat(Cat const&) = delete;
    Cat& operator=(Cat const&) = delete;

    /// True once the program runs: it gives back what it got.
    bool answers() const {
        char byte = 'x';
        return write(mTo, &byte, 1) == 1 && read(mFrom, &byte, 1) == 1;
    }

  private:
    pid_t mProcess = -1;
    int mTo = -1;
    int mFrom = -1;
};

TEST_F(FileOdd, AProgramThatIsStartedWhileAFileIsOpen_KeepsNeitherItsDescriptorNorItsLock) {
    utl::File file("d/f", utl::File::TEXT_UTF8);
    for (int const access : {1, 2, 0}) {
        ASSERT_EQ(file.open(0, access), 1);
        Cat const cat;
        ASSERT_TRUE(cat.answers());
        EXPECT_EQ(file.close(), 1);
        EXPECT_EQ(utl::File::isOpened("d/f", nullptr), 0);
        EXPECT_EQ(file.open(utl::File::OPEN_KEEP, utl::File::ACCESS_WRITE), 1);
        EXPECT_EQ(file.close(), 1);
    }
}

TEST_F(FileOdd, FifosSocketsAndDevices_AreNotOpenedByWhatGoesThroughFolders) {
    putFolder("d/e");
    putFile("d/f", "text");
    ASSERT_EQ(mkfifo("d/fifo", 0644), 0);
    ASSERT_EQ(mknod("d/socket", S_IFSOCK | 0644, 0), 0);
    ASSERT_EQ(symlink("/dev/zero", "d/e/device"), 0);
    HookScope const scope;
    hooks::open.watch([](char const* path, int flags, mode_t) {
        struct stat status = {};
        EXPECT_EQ(stat(path, &status), 0);
        EXPECT_TRUE(S_ISREG(status.st_mode) || (flags & (O_EXCL | O_DIRECTORY)) != 0) << path;
    });
    for (char const* const path : {"d/fifo", "d/socket", "d/e/device"}) {
        bool sharedOnly = true;
        EXPECT_EQ(utl::File::isOpened(path, &sharedOnly), 0) << path;
        EXPECT_FALSE(sharedOnly);
        EXPECT_EQ(utl::File::size(path), 0) << path;
        EXPECT_EQ(utl::File::copy(path, "copied", utl::File::OVERWRITE_EXISTING), 0) << path;
        EXPECT_EQ(utl::File::copy("d/f", path, utl::File::OVERWRITE_EXISTING), 0) << path;
        EXPECT_EQ(utl::File::copy("d/f", path, utl::File::KEEP_EXISTING), 0) << path;
    }
    EXPECT_EQ(utl::File::size("d"), 4);
    EXPECT_EQ(permissions("copied"), -1);
    EXPECT_EQ(utl::File::copy("d", "copied", utl::File::OVERWRITE_EXISTING), 0);
    EXPECT_EQ(permissions("d"), 0755);
    EXPECT_EQ(utl::File::move("d/fifo", "d/moved"), 1);
    EXPECT_EQ(utl::File::erase("d", utl::File::KEEP_READ_ONLY), 1);
    EXPECT_EQ(utl::File::exists("/dev/zero"), 1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileOdd, AFifoThatTakesTheFilesPlaceMeanwhile_BlocksNeitherProbeNorSizeNorCopy) {
    static unsigned int sOpening;
    auto const exchanging = [](unsigned int opening, auto operation) {
        std::filesystem::remove("f");
        putFile("f", "text");
        HookScope const scope;
        sOpening = opening;
        hooks::open.watch([](char const*, int, mode_t) {
            if (--sOpening == 0) {
                EXPECT_EQ(rename("f", "gone"), 0);
                EXPECT_EQ(mkfifo("f", 0644), 0);
            }
        });
        return operation();
    };
    EXPECT_EQ(exchanging(1, [] { return utl::File::isOpened("f", nullptr); }), 0);
    EXPECT_EQ(exchanging(1, [] { return utl::File::size("f"); }), 0);
    EXPECT_EQ(exchanging(2, [] { return utl::File::copy("f", "copied", utl::File::OVERWRITE_EXISTING); }), 0);
    EXPECT_EQ(permissions("copied"), -1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileOdd, AFifoThatTakesANewFilesPlaceMeanwhile_IsRefusedAtOnce) {
    putFile("source", "text");
    HookScope const scope;
    hooks::open.watch([](char const* path, int, mode_t) {
        EXPECT_TRUE(path != std::string("f") || mkfifo("f", 0644) == 0 || errno == EEXIST);
    });
    EXPECT_EQ(utl::File("f", utl::File::TEXT_UTF8).open(utl::File::OPEN_KEEP, utl::File::ACCESS_WRITE), 0);
    EXPECT_EQ(mLog.lines(), Lines{error("open() Failed. errno[6] Path:f")});
    mLog.clear();
    ASSERT_EQ(unlink("f"), 0);
    EXPECT_EQ(utl::File::copy("source", "f", utl::File::OVERWRITE_EXISTING), 0);
    EXPECT_EQ(mLog.lines(), Lines());
}

class FifoFile : public FileOdd {
  protected:
    FifoFile() { EXPECT_EQ(mkfifo("fifo", 0644), 0); }
    ~FifoFile() override { close(mOtherSide); }

    void openOtherSide(int flags) { mOtherSide = ::open("fifo", flags | O_NONBLOCK | O_CLOEXEC); }

    utl::File mFile{"fifo", utl::File::TEXT_UTF8};
    int mOtherSide = -1;
};

TEST_F(FifoFile, Open_WithoutTheOtherSide_IsRefusedAtOnceWithALine) {
    for (int const access : {0, 1}) {
        mLog.clear();
        EXPECT_EQ(mFile.open(0, access), 0);
        EXPECT_EQ(mLog.lines(), Lines{error("open() Failed. errno[6] Path:fifo")});
    }
}

TEST_F(FifoFile, OpenToRead_WithAWriter_WorksAndTakesNothingAway) {
    openOtherSide(O_RDWR);
    for (unsigned int written = 0; written < 3; ++written) {
        EXPECT_EQ(mFile.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ), 1) << written;
        int waiting = -1;
        EXPECT_EQ(ioctl(mOtherSide, FIONREAD, &waiting), 0);
        EXPECT_EQ(waiting, static_cast<int>(written));
        EXPECT_EQ(mFile.close(), 1);
        EXPECT_EQ(write(mOtherSide, "x", 1), 1);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FifoFile, OpenToWrite_WithAReader_WorksAndWritesAsAnyFileDoes) {
    static int sDescriptor;
    openOtherSide(O_RDONLY);
    for (int const access : {1, 2}) {
        HookScope const scope;
        hooks::open.replace([](char const* path, int flags, mode_t mode) {
            return sDescriptor = hooks::open.real(path, flags, mode);
        });
        ASSERT_EQ(mFile.open(0, access), 1);
        EXPECT_EQ(fcntl(sDescriptor, F_GETFL) & O_NONBLOCK, 0);
        EXPECT_EQ(mFile.write("ab", 2), 2);
        std::array<char, 3> bytes = {};
        EXPECT_EQ(read(mOtherSide, bytes.data(), 3), 2);
        EXPECT_EQ(mFile.close(), 1);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

// The first refusal shows a sanitizer all types on the way: it needs descriptors to look at a new one.
TEST_F(FifoFile, OpenToRead_WithoutDescriptorsToLookForTheWriter_IsRefused) {
    EXPECT_EQ(mFile.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ), 0);
    mLog.clear();
    openOtherSide(O_RDWR);
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    {
        HookScope const scope;
        hooks::open.replace([](char const* path, int flags, mode_t mode) {
            int const descriptor = hooks::open.real(path, flags, mode);
            rlimit limit = {};
            getrlimit(RLIMIT_NOFILE, &limit);
            limit.rlim_cur = 0;
            setrlimit(RLIMIT_NOFILE, &limit);
            return descriptor;
        });
        EXPECT_EQ(mFile.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ), 0);
    }
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(mLog.lines(), Lines{error("open() Failed. errno[24] Path:fifo")});
}

TEST_F(FifoFile, Destructor_OfAPathThroughAFifo_DoesNotWaitForItsOtherSide) {
    { utl::File const file("fifo/f", utl::File::TEXT_UTF8); }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileOdd, AWriterWhoseFolderIsGone_WritesWithALineAboutTheFolderAndCanMakeItAgain) {
    utl::File file("d/f", utl::File::TEXT_UTF8);
    ASSERT_EQ(file.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ_WRITE), 1);
    std::filesystem::remove_all("d");
    mLog.clear();
    EXPECT_EQ(file.write("ab", 2), 2);
    EXPECT_EQ(mLog.lines(), Lines{debug("is changeParentAccessMode func stat Failed. errno[2] Path:d")});
    EXPECT_EQ(file.size(), 2);
    EXPECT_EQ(file.resize(1ULL), 1);
    EXPECT_EQ(file.availableSize(), 0);
    EXPECT_EQ(file.close(), 1);
    EXPECT_EQ(file.size(), -1);
    EXPECT_EQ(file.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ), 0);
    EXPECT_EQ(file.open(utl::File::OPEN_AT_END, utl::File::ACCESS_WRITE), 1);
    EXPECT_EQ(permissions("d/f"), 0777);
    EXPECT_EQ(contentOf("d/f"), "");
}

TEST_F(FileOdd, EveryModeOfAFolderComesBack_AndNothingOfTheUmaskReachesAFile) {
    mode_t const before = umask(0777);
    for (int const mode : {0500, 0511, 0555, 0700, 0755, 01777, 02755, 03775, 0777}) {
        putFolder("d", static_cast<mode_t>(mode));
        utl::File file("d/f", utl::File::TEXT_UTF8);
        EXPECT_EQ(file.open(utl::File::OPEN_EMPTY, utl::File::ACCESS_READ_WRITE), 1);
        EXPECT_EQ(permissions("d"), mode);
        EXPECT_EQ(file.write("x", 1), 1);
        EXPECT_EQ(permissions("d"), mode);
        EXPECT_EQ(file.close(), 1);
        EXPECT_EQ(permissions("d/f"), 0777);
        chmod("d/f", 0640);
        EXPECT_EQ(file.copy("d/g", utl::File::KEEP_EXISTING), 1);
        EXPECT_EQ(permissions("d/g"), 0640);
        EXPECT_EQ(permissions("d"), mode);
        EXPECT_EQ(utl::File::erase("d/f", utl::File::KEEP_READ_ONLY) +
                      utl::File::erase("d/g", utl::File::KEEP_READ_ONLY),
                  2);
        EXPECT_EQ(permissions("d"), mode);
    }
    putFolder("e", 0700);
    EXPECT_EQ(utl::File("e/x\\y/f", utl::File::TEXT_UTF8).open(utl::File::OPEN_KEEP, utl::File::ACCESS_WRITE),
              1);
    umask(before);
    for (char const* const path : {"e", "e/x", "e/x/y", "e/x/y/f"}) {
        EXPECT_EQ(permissions(path), 0777) << path;
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileOdd, ADescriptorOfZero_IsLostOnceAndIsNoFileEver) {
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

TEST_F(FileOdd, APathOf259BytesIsServedByEveryOperation_AndOneOf260ByExistsAndIsReadOnlyAlone) {
    std::string const folder(200, 'n');
    for (std::size_t const size : {259U, 260U}) {
        bool const fits = size == 259;
        int const good = fits ? 1 : 0;
        std::string const name(size - 201, 'f');
        std::string const path = folder + "/" + name;
        char const* const text = path.c_str();
        std::vector<char> output(256);
        EXPECT_EQ(utl::File(text, utl::File::TEXT_UTF8).open(utl::File::OPEN_KEEP, utl::File::ACCESS_WRITE),
                  good);
        putFolder(folder);
        putFile(path, "text");
        EXPECT_EQ(utl::File::exists(text), 1);
        EXPECT_EQ(utl::File::isReadOnly(text), 0);
        EXPECT_EQ(utl::File(text, utl::File::TEXT_UTF8).open(utl::File::OPEN_AT_END, utl::File::ACCESS_READ),
                  good);
        EXPECT_EQ(utl::File::size(text), fits ? 4 : -1);
        EXPECT_EQ(utl::File::extractFileName(output.data(), 256, text, utl::File::WITH_EXTENSION), good);
        EXPECT_EQ(utl::File::extractDirectoryPath(output.data(), 256, text), good);
        EXPECT_EQ(utl::File::copy(text, "copy", utl::File::KEEP_EXISTING), good);
        EXPECT_EQ(utl::File::copy("copy", text, utl::File::OVERWRITE_EXISTING), good);
        EXPECT_EQ(utl::File::applyReadOnly(text, utl::File::PATH_ONLY), good);
        EXPECT_EQ(utl::File::liftReadOnly(text, utl::File::PATH_ONLY), good);
        EXPECT_EQ(utl::File::move(text, "moved"), good);
        EXPECT_EQ(utl::File::move("moved", text), good);
        EXPECT_EQ(utl::File::erase(text, utl::File::KEEP_READ_ONLY), good);
        EXPECT_EQ(utl::File::makeDirectories((path.substr(0, size - 2) + "/d").c_str()), good);
        EXPECT_EQ(permissions(path), fits ? -1 : 0644);
        std::filesystem::remove_all(folder);
        std::filesystem::remove("copy");
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileOdd, AFolderWithAnEntryWhosePathIsTooLong_IsListedAndFailsInAllThatGoesIntoIt) {
    std::string const folder(10, 'd');
    for (std::size_t const size : {248U, 249U}) {
        int const good = size == 248 ? 1 : 0;
        std::string const path = folder + "/" + std::string(size, 'e');
        putFolder(folder);
        putFile(path, "text");
        Names names(0, 1);
        EXPECT_EQ(utl::File::children(folder.c_str(), &names, utl::File::CHILD_FILES_AND_FOLDERS, nullptr, 0),
                  1);
        EXPECT_EQ(*names.getAt(0), path.c_str());
        EXPECT_EQ(utl::File::size(folder.c_str()), good == 1 ? 4 : -1);
        EXPECT_EQ(utl::File::copy(folder.c_str(), "copy", utl::File::KEEP_EXISTING), good);
        EXPECT_EQ(permissions("copy"), 0777);
        EXPECT_EQ(utl::File::applyReadOnly(folder.c_str(), utl::File::RECURSIVE), good);
        EXPECT_EQ(permissions(folder), 0555);
        EXPECT_EQ(permissions(path), good == 1 ? 0555 : 0644);
        EXPECT_EQ(utl::File::liftReadOnly(folder.c_str(), utl::File::RECURSIVE), good);
        EXPECT_EQ(utl::File::erase(folder.c_str(), utl::File::ERASE_READ_ONLY), good);
        EXPECT_EQ(permissions(folder), good == 1 ? -1 : 0777);
        EXPECT_EQ(contentOf(path), good == 1 ? "" : "text");
        EXPECT_EQ(utl::File::erase("copy", utl::File::KEEP_READ_ONLY), 1);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileOdd, ANameThatIsNotUtf8_CanBeListedReadAndErasedButNotTakenApart) {
    putFolder("m");
    putFile("m/ok.txt", "12");
    putFile("m/x\xFF.txt", "345");
    Names names(4, 0);
    EXPECT_EQ(utl::File::children("m", &names, utl::File::CHILD_FILES, nullptr, 0), 2);
    EXPECT_EQ(utl::File::children("m", &names, utl::File::CHILD_FILES, "TXT", 0), 1);
    EXPECT_EQ(*names.getAt(0), "m/ok.txt");
    EXPECT_EQ(utl::File::size("m"), 5);
    {
        utl::File file("m\\x\xFF.txt", utl::File::TEXT_UTF8);
        EXPECT_EQ(file.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ), 1);
        EXPECT_EQ(file.close(), 1);
        EXPECT_EQ(file.open(utl::File::OPEN_KEEP, utl::File::ACCESS_WRITE), 0);
    }
    EXPECT_EQ(utl::File::move("m/ok.txt", "m/\xE3\x81.txt"), 0);
    EXPECT_EQ(utl::File::move("m/x\xFF.txt", "m/y.txt"), 1);
    putFile("m/\x82", "");
    EXPECT_EQ(utl::File::erase("m", utl::File::KEEP_READ_ONLY), 1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileOdd, Copy_OntoAnotherNameOfTheSameFile_KeepsItsContent) {
    std::string const content(3000, 'c');
    putFolder("d");
    putFile("d/file", content);
    ASSERT_EQ(link("d/file", "hard"), 0);
    ASSERT_EQ(symlink("d/file", "soft"), 0);
    EXPECT_EQ(utl::File::copy("d/file", "hard", utl::File::OVERWRITE_EXISTING), 1);
    EXPECT_EQ(utl::File::copy("soft", "d/file", utl::File::OVERWRITE_EXISTING), 1);
    EXPECT_EQ(utl::File::copy("d/file", "d/./file", utl::File::OVERWRITE_EXISTING), 1);
    EXPECT_EQ(utl::File::copy("d/file", "d\\file", utl::File::KEEP_EXISTING), 1);
    EXPECT_EQ(utl::File::copy("d/file", "d/./file", utl::File::KEEP_EXISTING), 0);
    EXPECT_EQ(contentOf("d/file"), content);
    EXPECT_EQ(permissions("d"), 0755);
}

TEST_F(FileOdd, FoldersThatContainThemselves_EndAtTheLongestPathOrAtTheMostLinks) {
    putFolder("d");
    putFile("d/f", "text");
    EXPECT_EQ(utl::File::copy("d", "d/e", utl::File::KEEP_EXISTING), 0);
    EXPECT_EQ(contentOf("d/f"), "text");
    EXPECT_EQ(utl::File::erase("d", utl::File::KEEP_READ_ONLY), 1);
    putFolder("loop");
    ASSERT_EQ(symlink(".", "loop/again"), 0);
    EXPECT_EQ(utl::File::size("loop"), -1);
    EXPECT_EQ(utl::File::erase("loop", utl::File::KEEP_READ_ONLY), 0);
    EXPECT_EQ(utl::File::move("loop", "loop/inside/it"), 0);
    EXPECT_EQ(mLog.lines(), Lines{error("rename Failed. errno[22] Source:loop  Dest:loop/inside/it")});
    EXPECT_TRUE(std::filesystem::is_symlink("loop/again"));
}

/// The names that a listing gives, sorted; the result alone if it is negative.
struct Listing {
    char const* path;
    int kind;
    char const* extension;
    int result;
    Lines names;
};

TEST_F(FileOdd, Children_TakesTheLastComponentForAPatternOnlyWhereNoFolderHasThatName) {
    putFolder("l/sub.txt");
    putFolder("w*[x]/in");
    for (char const* const name : {"l/a.txt", "l/B.TXT", "l/.hid.txt", "l/c1", "l/c2", "l/x[1]", "l/%s"}) {
        putFile(name, "");
    }
    Listing const listings[] = {{"l/*.txt", 0, nullptr, 2, {"l/.hid.txt", "l/a.txt"}},
                                {"l\\*.txt", 2, nullptr, 3, {"l/.hid.txt", "l/a.txt", "l/sub.txt"}},
                                {"l/*.TXT", 2, "txt", 1, {"l/B.TXT"}},
                                {"l/*", 2, "tXt", 4, {"l/.hid.txt", "l/B.TXT", "l/a.txt", "l/sub.txt"}},
                                {"l", 1, "c", 1, {"l/sub.txt"}},
                                {"l/*", 1, nullptr, 1, {"l/sub.txt"}},
                                {"l/c[!1]", 0, nullptr, 1, {"l/c2"}},
                                {"l/??", 0, "", 3, {"l/%s", "l/c1", "l/c2"}},
                                {"l/x[1]", 0, nullptr, 0, {}},
                                {"l/[]", 2, nullptr, 0, {}},
                                {"l/a.txt", 0, nullptr, 0, {}},
                                {"w*[x]", 2, nullptr, 1, {"w*[x]/in"}},
                                {"w*[x]/*", 2, nullptr, -1, {}},
                                {"l/*/", 2, nullptr, -1, {}},
                                {"*", 2, nullptr, -1, {}},
                                {"/*", 2, nullptr, -1, {}},
                                {"none/*", 2, nullptr, -1, {}},
                                {"l//*", 2, nullptr, -1, {}},
                                {"l", 3, nullptr, -1, {}},
                                {"l", -1, nullptr, -1, {}}};
    for (Listing const& listing : listings) {
        Names names(1, 1);
        names.insertAt(0, "old");
        EXPECT_EQ(utl::File::children(listing.path, &names, listing.kind, listing.extension, 0),
                  listing.result)
            << listing.path;
        Lines found;
        for (unsigned int i = 0; i < names.size(); ++i) {
            found.emplace_back(names.getAt(i)->buffer());
        }
        std::sort(found.begin(), found.end());
        EXPECT_EQ(found, listing.names) << listing.path;
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

/// The parts of a path; no parts for one that has no name or fails the check.
struct Parts {
    explicit Parts(std::string path) {
        std::replace(path.begin(), path.end(), '\\', '/');
        std::size_t const last = path.find_last_not_of('/');
        areThere = last != std::string::npos && path.find("//") == std::string::npos;
        if (!areThere) {
            return;
        }
        path.erase(last + 1);
        std::size_t const start = path.rfind('/') + 1;  // 0 where there is none
        name = path.substr(start);
        stem = name.substr(0, name.rfind('.'));
        extension = name.find('.') == std::string::npos ? "" : name.substr(name.rfind('.') + 1);
        folder = path.substr(0, start == 0 ? 0 : start - 1);
        std::size_t const first = path.find_first_not_of('/');
        volume = path.substr(first, path.find('/', first) - first);
    }

    bool areThere;
    std::string name, stem, extension, folder, volume;
};

template <typename EXTRACT>
void expectPart(std::string const& path, bool isThere, std::string const& part, EXTRACT extract) {
    unsigned int const size = static_cast<unsigned int>(part.size()) + 1;
    auto const output = std::make_unique<char[]>(size);
    output[0] = '~';
    EXPECT_EQ(extract(output.get(), size - 1), 0) << path;
    EXPECT_EQ(output[0], '~') << path;
    EXPECT_EQ(extract(output.get(), size), isThere ? 1 : 0) << path;
    EXPECT_EQ(std::string(output.get(), size), isThere ? part + '\0' : "~") << path;
}

TEST_F(FileOdd, EveryShortPathComesApartAtItsSeparatorsAndItsLastDot) {
    char const* const pieces[] = {"a", ".", "/", "\\", "\xE8\xA1\xA8"};
    Lines paths = {""};
    for (std::size_t from = 0, to = 1, size = 1; size <= 5; ++size, from = to, to = paths.size()) {
        for (std::size_t i = from; i < to; ++i) {
            for (char const* const piece : pieces) {
                paths.push_back(paths[i] + piece);
            }
        }
        to = paths.size();
    }
    for (std::string const& path : paths) {
        Parts const parts(path);
        char const* const text = path.c_str();
        expectPart(path, parts.areThere, parts.name, [text](char* output, unsigned int size) {
            return utl::File::extractFileName(output, size, text, 2);
        });
        expectPart(path, parts.areThere, parts.stem, [text](char* output, unsigned int size) {
            return utl::File::extractFileName(output, size, text, utl::File::WITHOUT_EXTENSION);
        });
        expectPart(path, parts.areThere, parts.extension, [text](char* output, unsigned int size) {
            return utl::File::extractExtension(output, size, text);
        });
        expectPart(path, parts.areThere, parts.folder, [text](char* output, unsigned int size) {
            return utl::File::extractDirectoryPath(output, size, text);
        });
        expectPart(path, parts.areThere, parts.volume, [text](char* output, unsigned int size) {
            return utl::File::extractVolumeName(output, size, text);
        });
    }
}

using FileOddQuiet = utltest::InFolder;

TEST_F(FileOddQuiet, Writers_OnThreadsOfTheirOwn_NeverHaveAFileTogether) {
    putFile("count", std::string(1, '\0'));
    auto const countUp = [] {
        for (int i = 0; i < 20; ++i) {
            utl::File file("count", utl::File::TEXT_UTF8);
            utl::File::AutoClose const closing(file);
            while (file.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ_WRITE) == 0) {
                std::this_thread::yield();
            }
            unsigned char count = 0;
            EXPECT_EQ(file.read(&count, 1), 1);
            std::this_thread::yield();
            ++count;
            EXPECT_EQ(file.seek(0, utl::File::FROM_START), 0);
            EXPECT_EQ(file.write(&count, 1), 1);
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(countUp);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(contentOf("count"), std::string(1, 80));
}

// What the sweeps rest on: a call of another thread, such as the watchdog's, takes no failure away.
TEST_F(FileOdd, AFailureOfOnesOwn_IsNotTakenByAnotherThread) {
    putFile("f", "12345");
    HookScope const scope;
    hooks::fstat.failFrom(1, 1, -1, EIO);
    std::thread([] { EXPECT_EQ(utl::File::size("f"), 5); }).join();
    EXPECT_EQ(hooks::fstat.calls(), 0U);
    EXPECT_EQ(utl::File::size("f"), -1);
}

}  // namespace

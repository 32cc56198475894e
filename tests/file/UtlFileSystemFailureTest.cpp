// What the system refuses to operations on paths.

#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "TestAllocations.h"
#include "TestFileCalls.h"
#include "TestFiles.h"
#include "TestFolder.h"
#include "TestHooks.h"
#include "UtlFile.h"

namespace {

using namespace utltest;
using utl::File;
using HookScope = utltest::OwnHookScope;
namespace hooks = utltest::hooks;
using Lines = std::vector<std::string>;
using Names = utltest::NamesFound;
using Paths = utltest::PathsFound;

// Whatever call fails, an operation returns its failure or succeeds, leaves nothing open and puts back
// every folder that it widened.
template <typename HOOK, typename RESULT>
void failEachCall(char const* name, HOOK& hook, RESULT result, int reason) {
    bool isThrough = false;
    for (unsigned int failing = 1; !isThrough; ++failing) {
        ASSERT_LT(failing, 200U);
        for (char const* const folder : {"a", "b", "c"}) {
            std::filesystem::remove_all(folder);
        }
        std::filesystem::create_directories("a/inner");
        std::filesystem::create_directories("b");
        std::pair<char const*, mode_t> const folders[] = {{"a", 0711}, {"a/inner", 0755}, {"b", 0722}};
        for (auto const& [folder, mode] : folders) {
            chmod(folder, mode);
        }
        putFile("a/file", "0123456789");
        putFile("a/inner/file", "0123456789");
        FileCalls calls;
        unsigned int const descriptors = openDescriptors();
        hook.failFrom(failing, 1, result, reason);
        static_cast<void>(File::size("a"));
        File::copy("a/file", "b/file", File::KEEP_EXISTING);
        File::move("b/file", "b/moved");
        File::copy("a", "c", File::OVERWRITE_EXISTING);
        File::applyReadOnly("a/inner/file", File::PATH_ONLY);
        File::erase("a/inner/file", File::ERASE_READ_ONLY);
        File::erase("c", File::ERASE_READ_ONLY);
        isThrough = hook.calls() < failing;
        EXPECT_EQ(openDescriptors(), descriptors);
        Lines const lines = calls.take();
        for (auto const& [folder, mode] : folders) {
            EXPECT_EQ(permissions(folder),
                      utltest::modeBehind(lines, name, failing, folder, static_cast<int>(mode)))
                << folder << ", " << name << " " << failing;
        }
    }
    EXPECT_EQ(contentOf("b/moved"), "0123456789");
    EXPECT_EQ(permissions("a/inner/file"), -1);
    EXPECT_EQ(permissions("c"), -1);
}

TEST_F(FileSystem, MakeDirectories_WhoseParentCannotBeSynced_MakesTheFolderAndKeepsErrno) {
    static int sErrno;
    sErrno = 0;
    HookScope const scope;
    hooks::chmod.watch([](char const*, mode_t) { errno = ENOTTY; });
    hooks::open.failFrom(1, 0, -1, EMFILE);
    hooks::stat.watch(
        [](char const*, struct stat*) { sErrno = hooks::open.calls() == 1 && sErrno == 0 ? errno : sErrno; });
    EXPECT_EQ(File::makeDirectories("there/a"), 1);
    EXPECT_EQ(hooks::open.calls(), 2U);
    EXPECT_EQ(sErrno, ENOTTY);
    EXPECT_EQ(permissions("there/a"), 0777);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, MakeDirectories_ThatTheSystemRefuses_SaysWhichFolderAndPutsItsParentBack) {
    putFolder("a", 0755);
    for (int const reason : {EROFS, ENOSPC, EACCES}) {
        mLog.clear();
        FileCalls calls;
        hooks::mkdir.failFrom(2, 1, -1, reason);
        hooks::chmod.replace([](char const* path, mode_t mode) {
            return path == std::string("a/") ? 0 : hooks::chmod.real(path, mode);
        });
        EXPECT_EQ(File::makeDirectories("a/b/c"), 0);
        EXPECT_EQ(mLog.lines(), (Lines{error("CreateDirectory Failed. errno[" + std::to_string(reason) +
                                             "] Path:a/b/c/(a/b/)")}));
        EXPECT_EQ(calls.take().back(), "changeParentAccessMode: chmod a 755");
        EXPECT_EQ(permissions("a"), 0755);
        EXPECT_EQ(permissions("a/b"), -1);
    }
}

TEST_F(FileSystem, MakeDirectories_IgnoresAModeThatCannotBeSet) {
    HookScope const scope;
    hooks::chmod.failFrom(1, 0, -1, EPERM);
    EXPECT_EQ(File::makeDirectories("a/b"), 1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Children_OfAFolderThatCannotBeOpened_IsMinusOneWithoutALine) {
    putFolder("dir");
    for (int const reason : {EMFILE, EACCES}) {
        HookScope const scope;
        hooks::opendir.failFrom(1, 1, nullptr, reason);
        EXPECT_EQ(children("dir"), (Names{"-1"}));
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Children_ThatCannotBeReadOn_IsMinusOneWithALineAndKeepsWhatCame) {
    putFolder("dir");
    for (int i = 0; i < 10; ++i) {
        putFile("dir/" + std::to_string(i), "");
    }
    for (unsigned int const capacity : {0U, 2U, 20U}) {
        mLog.clear();
        FileCalls calls;
        hooks::readdir.failFrom(7, 0, nullptr, EIO);
        Paths paths(capacity, 1);
        EXPECT_EQ(File::children("dir", &paths, File::CHILD_FILES_AND_FOLDERS, nullptr, 0), -1);
        unsigned int const count = static_cast<unsigned int>(namesIn(paths).size());
        EXPECT_GE(count, 4U);
        EXPECT_LE(count, 6U);
        EXPECT_EQ(calls.take().back(), "children: closedir");
        EXPECT_EQ(mLog.lines(), (Lines{error("readdir Failed. errno[5] Path:dir")}));
    }
}

TEST_F(FileSystem, Children_AtTheMaximum_DoNotSeeAFailureBehindIt) {
    putFolder("dir");
    putFile("dir/file", "");
    HookScope const scope;
    hooks::readdir.failFrom(4, 0, nullptr, EIO);
    Paths paths(0, 1);
    EXPECT_EQ(File::children("dir", &paths, File::CHILD_FILES, nullptr, 1), 1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Children_GoOnAfterASignal) {
    putFolder("dir");
    putFile("dir/file", "");
    for (unsigned int nth = 1; nth <= 4; ++nth) {  // the last of them is the end
        HookScope const scope;
        hooks::readdir.failFrom(nth, 2, nullptr, EINTR);
        EXPECT_EQ(children("dir"), (Names{"dir/file"})) << nth;
        EXPECT_EQ(hooks::readdir.calls(), 6U);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Walks_OfAFolderThatCannotBeReadOn_EndBeforeTheirFirstStep) {
    putTree();
    for (auto const call :
         {+[](char const* path) { return File::size(path) + 1; },
          +[](char const* path) -> long long { return File::copy(path, "copied", File::OVERWRITE_EXISTING); },
          +[](char const* path) -> long long { return File::applyReadOnly(path, File::RECURSIVE); },
          +[](char const* path) -> long long { return File::liftReadOnly(path, File::RECURSIVE); },
          +[](char const* path) -> long long { return File::erase(path, File::ERASE_READ_ONLY); }}) {
        mLog.clear();
        HookScope const scope;
        hooks::readdir.failFrom(5, 0, nullptr, EIO);
        EXPECT_EQ(call("tree"), 0);
        EXPECT_EQ(mLog.lines(), (Lines{error("readdir Failed. errno[5] Path:tree")}));
    }
    EXPECT_EQ(children("copied"), Names());
    EXPECT_EQ(contentOf("tree/a"), "1");
    EXPECT_EQ(permissions("tree/a"), 0644);
    EXPECT_EQ(File::size("tree"), 321);
}

TEST_F(FileSystem, ReadOnly_ThatTheSystemRefuses_IsFalseWithoutALine) {
    putFile("free", "");
    putFile("locked", "");
    chmod("locked", 0444);
    HookScope const scope;
    hooks::chmod.failFrom(1, 0, -1, EROFS);
    EXPECT_EQ(File::applyReadOnly("free", File::PATH_ONLY), 0);
    EXPECT_EQ(File::liftReadOnly("locked", File::PATH_ONLY), 0);
    EXPECT_EQ(hooks::chmod.calls(), 2U);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, ReadOnly_Recursive_StopsAtTheFirstFailure) {
    putTree();
    HookScope const scope;
    hooks::chmod.failFrom(3, 1, -1, EIO);
    EXPECT_EQ(File::applyReadOnly("tree", File::RECURSIVE), 0);
    EXPECT_EQ(hooks::chmod.calls(), 3U);
    EXPECT_EQ(permissions("tree"), 0555);
}

TEST_F(FileSystem, LiftReadOnly_Recursive_StopsAtTheFirstFailure) {
    putTree();
    ASSERT_EQ(File::applyReadOnly("tree", File::RECURSIVE), 1);
    HookScope const scope;
    hooks::chmod.failFrom(3, 1, -1, EIO);
    EXPECT_EQ(File::liftReadOnly("tree", File::RECURSIVE), 0);
    EXPECT_EQ(hooks::chmod.calls(), 3U);
    EXPECT_EQ(permissions("tree"), 0777);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, ReadOnly_Recursive_OfAFolderThatCannotBeListed_IsFalse) {
    putTree();
    HookScope const scope;
    hooks::opendir.failFrom(1, 1, nullptr, EMFILE);
    EXPECT_EQ(File::applyReadOnly("tree", File::RECURSIVE), 0);
    EXPECT_EQ(permissions("tree"), 0555);
}

TEST_F(FileSystem, IsOpened_AsksAgainAfterASignal) {
    putFile("file", "x");
    File file("file", File::TEXT_UTF8);
    HookScope const scope;
    hooks::flock.failFrom(1, 2, -1, EINTR);
    EXPECT_EQ(File::isOpened("file", nullptr), 0);
    EXPECT_EQ(hooks::flock.calls(), 3U);
    ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    hooks::flock.failFrom(2, 1, -1, EINTR);  // between the two locks
    bool sharedOnly = false;
    EXPECT_EQ(File::isOpened("file", &sharedOnly), 1);
    EXPECT_TRUE(sharedOnly);
    EXPECT_EQ(hooks::flock.calls(), 3U);
}

TEST_F(FileSystem, IsOpened_OfAFileThatCannotBeOpened_IsFalseUnlessMeansAreWanting) {
    putFile("file", "x");
    std::pair<int, int> const cases[] = {{EACCES, 0}, {EPERM, 0},  {ENOENT, 0}, {EIO, 0},
                                         {EMFILE, 1}, {ENFILE, 1}, {ENOMEM, 1}, {EWOULDBLOCK, 1}};
    for (auto const& [reason, expected] : cases) {
        HookScope const scope;
        hooks::open.failFrom(1, 1, -1, reason);
        bool sharedOnly = true;
        EXPECT_EQ(File::isOpened("file", &sharedOnly), expected) << reason;
        EXPECT_FALSE(sharedOnly);
        hooks::open.failFrom(1, 1, 0, reason);  // descriptor 0 counts as none
        EXPECT_EQ(File::isOpened("file", nullptr), 0) << reason;
    }
}

TEST_F(FileSystem, Move_ThatTheSystemRefuses_SaysSo) {
    putFile("file", "x");
    HookScope const scope;
    hooks::rename.failFrom(1, 1, -1, EXDEV);
    EXPECT_EQ(File::move("file", "moved"), 0);
    EXPECT_EQ(mLog.lines(), (Lines{error("rename Failed. errno[18] Source:file  Dest:moved")}));
    EXPECT_EQ(contentOf("file"), "x");
}

TEST_F(FileSystem, Lines_NamePathsWithPercentSignsToTheLetter) {
    putFile("%s%n", "x");
    putFile("%d", "x");
    putFolder("%d.empty");
    HookScope const scope;
    hooks::rename.failFrom(1, 0, -1, EXDEV);
    hooks::mkdir.failFrom(1, 0, -1, EROFS);
    hooks::unlink.failFrom(1, 0, -1, EBUSY);
    hooks::rmdir.failFrom(1, 0, -1, EBUSY);
    EXPECT_EQ(File::move("%s%n", "%x"), 0);
    EXPECT_EQ(File::makeDirectories("%x/%d"), 0);
    EXPECT_EQ(File::erase("%d", File::KEEP_READ_ONLY), 0);
    EXPECT_EQ(File::erase("%d.empty", File::KEEP_READ_ONLY), 0);
    EXPECT_EQ(mLog.lines(), (Lines{error("rename Failed. errno[18] Source:%s%n  Dest:%x"),
                                   error("CreateDirectory Failed. errno[30] Path:%x/%d/(%x/)"),
                                   error("remove failed. errno[16] Path:%d"),
                                   error("rmdir Failed.Path:%d.empty errno[16]")}));
}

TEST_F(FileSystem, Erase_ByForceOfWhatStaysReadOnly_SaysSo) {
    putFolder("a");
    putFile("a/file", "x");
    chmod("a/file", 0444);
    HookScope const scope;
    hooks::chmod.failFrom(1, 1, -1, EPERM);
    EXPECT_EQ(File::erase("a/file", File::ERASE_READ_ONLY), 0);
    EXPECT_EQ(mLog.lines(), (Lines{error("Can't erase force because Not Permited:a/file")}));
    EXPECT_EQ(contentOf("a/file"), "x");
}

TEST_F(FileSystem, Erase_ThatTheSystemRefuses_SaysSoAndPutsTheFolderBack) {
    putFolder("a/empty");
    putFile("a/file", "x");
    for (int const reason : {EROFS, EBUSY, EIO}) {
        mLog.clear();
        FileCalls calls;
        hooks::unlink.failFrom(1, 1, -1, reason);
        hooks::rmdir.failFrom(1, 1, -1, reason);
        EXPECT_EQ(File::erase("a/file", File::KEEP_READ_ONLY), 0);
        EXPECT_EQ(File::erase("a/empty", File::KEEP_READ_ONLY), 0);
        std::string const number = std::to_string(reason);
        EXPECT_EQ(mLog.lines(), (Lines{error("remove failed. errno[" + number + "] Path:a/file"),
                                       error("rmdir Failed.Path:a/empty errno[" + number + "]")}));
        EXPECT_EQ(calls.take().back(), "changeParentAccessMode: chmod a 755");
        EXPECT_EQ(permissions("a"), 0755);
    }
}

TEST_F(FileSystem, Erase_WhoseFolderIsNotFound_SaysSoAtTheLowestLevelAndGoesOn) {
    putFolder("a");
    putFile("a/file", "x");
    HookScope const scope;
    hooks::stat.failFrom(6, 1, -1, ENOENT);
    EXPECT_EQ(File::erase("a/file", File::KEEP_READ_ONLY), 1);
    EXPECT_EQ(permissions("a/file"), -1);
    EXPECT_EQ(mLog.lines(), (Lines{debug("is changeParentAccessMode func stat Failed. errno[2] Path:a")}));
}

TEST_F(FileSystem, Erase_WhoseLookForReadOnlyFails_SaysSoAndGoesOn) {
    for (int const force : {0, 1}) {
        mLog.clear();
        putFile("file", "x");
        HookScope const scope;
        hooks::stat.failFrom(force == 0 ? 5 : 6, 1, -1, EACCES);
        EXPECT_EQ(File::erase("file", force), 1);
        EXPECT_EQ(mLog.lines(), (Lines{error("is isReadOnly func stat Failed. errno[13] Path:file")}));
    }
}

TEST_F(FileSystem, Erase_OfAFolderThatCannotBeListed_IsFalse) {
    putTree();
    HookScope const scope;
    hooks::opendir.failFrom(1, 1, nullptr, EMFILE);
    EXPECT_EQ(File::erase("tree", File::ERASE_READ_ONLY), 0);
    EXPECT_EQ(contentOf("tree/a"), "1");
}

TEST_F(FileSystem, Size_OfAFileThatCannotBeOpened_SaysSo) {
    putFile("file", "12345");
    for (int const result : {-1, 0}) {
        mLog.clear();
        HookScope const scope;
        hooks::open.failFrom(1, 1, result, EACCES);
        EXPECT_EQ(File::size("file"), -1);
        EXPECT_EQ(mLog.lines(), (Lines{error("in size func open Failed. Path:file errno[13]")}));
    }
}

TEST_F(FileSystem, Size_OfAFolderWithOneSizeMissing_IsMinusOne) {
    putTree();
    for (unsigned int failing = 1; failing <= 3; ++failing) {
        HookScope const scope;
        hooks::open.failFrom(failing, 1, -1, EACCES);
        EXPECT_EQ(File::size("tree"), -1);
        EXPECT_EQ(hooks::open.calls(), failing);
    }
}

TEST_F(FileSystem, Size_WithoutAnAnswerFromTheDescriptor_SaysSo) {
    putFile("file", "12345");
    HookScope const scope;
    hooks::fstat.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(File::size("file"), -1);
    EXPECT_EQ(mLog.lines(), (Lines{error("fstat Failed. errno[5]"), error("fileSize Failed. Path:file")}));
}

TEST_F(FileSystem, Operations_WithAnyCallFailing_LeaveNoDescriptorAndTheFolders) {
    failEachCall("stat", hooks::stat, -1, EACCES);
    failEachCall("fstat", hooks::fstat, -1, EIO);
    failEachCall("chmod", hooks::chmod, -1, EPERM);
    failEachCall("fchmod", hooks::fchmod, -1, EPERM);
    failEachCall("open", hooks::open, -1, EMFILE);
    failEachCall("opendir", hooks::opendir, nullptr, EMFILE);
    failEachCall("readdir", hooks::readdir, nullptr, EIO);
    failEachCall("flock", hooks::flock, -1, EINTR);
    failEachCall("read", hooks::read, ssize_t{-1}, EIO);
    failEachCall("write", hooks::write, ssize_t{-1}, ENOSPC);
    failEachCall("mkdir", hooks::mkdir, -1, ENOSPC);
    failEachCall("rename", hooks::rename, -1, EXDEV);
    failEachCall("unlink", hooks::unlink, -1, EBUSY);
    failEachCall("rmdir", hooks::rmdir, -1, EBUSY);
    failEachCall("lseek", hooks::lseek, off_t{-1}, EINVAL);
    failEachCall("ftruncate", hooks::ftruncate, -1, EIO);
    failEachCall("fsync", hooks::fsync, -1, EIO);
}

TEST_F(FileAtItsLimits, Erase_WhoseNthSystemCallFails_StopsThereAndCanBeFinished) {
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

}  // namespace

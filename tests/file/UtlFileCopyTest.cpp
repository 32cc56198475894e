// Copies of files and folders.

#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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

// Keeps the descriptor of the standard input for the end of the scope.
class StandardInputKeeper {
  public:
    StandardInputKeeper() = default;
    ~StandardInputKeeper() {
        dup2(mKept, STDIN_FILENO);
        close(mKept);
    }
    StandardInputKeeper(StandardInputKeeper const&) = delete;
    StandardInputKeeper& operator=(StandardInputKeeper const&) = delete;

  private:
    int const mKept = dup(STDIN_FILENO);
};

// Somebody puts a link to "secret" in place of "copied" as soon as that is opened for the first time.
void snatchCopy() {
    hooks::open.replace([](char const* path, int flags, mode_t mode) {
        if (path == std::string("copied") && !std::filesystem::is_symlink("copied")) {
            EXPECT_EQ(symlink("secret", path), 0);
        }
        return hooks::open.real(path, flags, mode);
    });
}

class CopyThatFails : public FileSystem {
  protected:
    CopyThatFails() {
        putFolder("a", 0711);
        putFolder("b", 0722);
        putFile("a/file", "0123456789");
    }

    /// The calls of a copy that fails, from the opening of the source on.
    Lines callsOfCopy(int overwrite = 1) {
        mCalls.take();
        EXPECT_EQ(File::copy("a/file", "b/copied", overwrite), 0);
        EXPECT_EQ(permissions("a"), 0711);
        EXPECT_EQ(permissions("b"), 0722);
        EXPECT_EQ(contentOf("a/file"), "0123456789");
        Lines const all = mCalls.takeCalls();
        auto const isOpening = [](std::string const& call) { return call == "open a/file RDONLY+NONBLOCK"; };
        return {std::find_if(all.rbegin(), all.rend(), isOpening).base(), all.end()};
    }

    FileCalls mCalls;
};

TEST_F(FileSystem, Copy_CopiesContentAndMode) {
    mode_t const old = umask(0077);
    for (unsigned int const size : {0U, 1U, 1023U, 1024U, 1025U, 100000U}) {
        std::string content(size, 'x');
        content.append(size % 7, '\0');
        putFile("file", content);
        chmod("file", 0746);
        EXPECT_EQ(File("file", File::TEXT_UTF8).copy("a\\b\\copied", File::OVERWRITE_EXISTING), 1);
        EXPECT_EQ(contentOf("a/b/copied"), content);
        EXPECT_EQ(permissions("a/b/copied"), 0746);
        EXPECT_EQ(permissions("file"), 0746);
        std::filesystem::remove_all("a");
    }
    umask(old);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Copy_MakesTheseCallsInThisOrder) {
    putFolder("a", 0711);
    putFolder("b", 0722);
    putFile("a/file", std::string(1025, 'x'));
    chmod("a/file", 0640);
    FileCalls calls;
    EXPECT_EQ(File::copy("a/file", "b/copied", File::KEEP_EXISTING), 1);
    EXPECT_EQ(calls.take(), (Lines{"exists: stat a/file",
                                   "isDirectory: stat a/file",
                                   "exists: stat b",
                                   "isDirectory: stat b",
                                   "isDirectory: stat a/file",
                                   "exists: stat a/file",
                                   "isOpened: open a/file RDONLY+NONBLOCK 777",
                                   "isOpened: flock 6",
                                   "-: fsync",
                                   "-: close",
                                   "changeParentAccessMode: stat a",
                                   "changeParentAccessMode: chmod a 777",
                                   "copy: open a/file RDONLY+NONBLOCK",
                                   "copy: stat a/file",
                                   "changeParentAccessMode: stat b",
                                   "changeParentAccessMode: chmod b 777",
                                   "copy: open b/copied WRONLY+CREAT+EXCL 100640",
                                   "copy: read",
                                   "copy: write",
                                   "copy: read",
                                   "copy: write",
                                   "copy: read",
                                   "copy: lseek 0 1",
                                   "copy: ftruncate 1025",
                                   "copy: fchmod 640",
                                   "copy: close",
                                   "copy: close",
                                   "changeParentAccessMode: stat b",
                                   "changeParentAccessMode: chmod b 722",
                                   "changeParentAccessMode: stat a",
                                   "changeParentAccessMode: chmod a 711"}));
    EXPECT_EQ(permissions("a"), 0711);
    EXPECT_EQ(permissions("b"), 0722);
}

TEST_F(FileSystem, Copy_InsideOneFolder_LeavesItsModeAsItWas) {
    putFolder("a", 0711);
    putFile("a/file", "x");
    EXPECT_EQ(File::copy("a/file", "a/copied", File::KEEP_EXISTING), 1);
    EXPECT_EQ(permissions("a"), 0711);
}

TEST_F(FileSystem, Copy_InsideOneFolderThatFails_LeavesItsModeAsItWas) {
    putFolder("a", 0711);
    putFile("a/file", "x");
    auto const copyFails = [](char const* step, auto const& fail) {
        HookScope const scope;
        fail();
        EXPECT_EQ(File::copy("a/file", "a/copied", File::OVERWRITE_EXISTING), 0) << step;
        EXPECT_EQ(permissions("a"), 0711) << step;
    };
    copyFails("open the source", [] { hooks::open.failFrom(2, 1, -1, EMFILE); });
    copyFails("find its mode", [] { hooks::stat.failFrom(8, 1, -1, EIO); });
    copyFails("open the destination", [] { hooks::open.failFrom(3, 1, -1, EROFS); });
    copyFails("write", [] { hooks::write.failFrom(1, 1, -1, ENOSPC); });
    EXPECT_EQ(mLog.lines(), (Lines{error("in copy func stat Failed. errno[5] Path:a/file")}));
}

TEST_F(FileSystem, Copy_ThatGetsDescriptor0ForEitherFile_UsesAndClosesIt) {
    putFile("file", std::string(3000, 'x'));
    static unsigned int sGetsZero;
    for (unsigned int const end : {2U, 3U}) {  // the first opening asks for the lock
        std::string const copied = "copied" + std::to_string(end);
        StandardInputKeeper const keeper;
        HookScope const scope;
        sGetsZero = end;
        hooks::open.replace([](char const* path, int flags, mode_t mode) {
            if (hooks::open.calls() == sGetsZero) {
                close(STDIN_FILENO);
            }
            return hooks::open.real(path, flags, mode);
        });
        EXPECT_EQ(File::copy("file", copied.c_str(), File::KEEP_EXISTING), 1);
        EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
        EXPECT_EQ(contentOf(copied), contentOf("file"));
    }
}

TEST_F(FileSystem, Copy_ReplacesAFileWithTheFlag1Alone) {
    putFile("new", "new");
    for (int const flag : {0, 2, -1}) {
        putFile("old", "old and longer");
        EXPECT_EQ(File::copy("new", "old", flag), 0);
        EXPECT_EQ(contentOf("old"), "old and longer");
    }
    EXPECT_EQ(File::copy("new", "old", File::OVERWRITE_EXISTING), 1);
    EXPECT_EQ(contentOf("old"), "new");
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Copy_OntoItself_IsTrueAndLeavesTheFileAlone) {
    putFolder("a");
    putFile("a/file", "x");
    FileCalls calls;
    EXPECT_EQ(File::copy("a/file", "a\\file", File::OVERWRITE_EXISTING), 1);
    EXPECT_EQ(calls.take(), (Lines{"exists: stat a/file"}));
    EXPECT_EQ(contentOf("a/file"), "x");
}

TEST_F(FileSystem, Copy_IntoWhatSomebodyElsePutThereMeanwhile_KeepsItsModeOrFails) {
    putFile("file", "new");
    chmod("file", 0777);
    for (int const flag : {0, 1}) {
        putFile("secret", "old and longer");
        chmod("secret", 0600);
        HookScope const scope;
        snatchCopy();
        EXPECT_EQ(File::copy("file", "copied", flag), flag);
        EXPECT_EQ(permissions("secret"), 0600);
        EXPECT_EQ(contentOf("secret"), flag == 1 ? "new" : "old and longer");
        EXPECT_EQ(unlink("copied"), 0);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Copy_ToALinkToNothing_CreatesNothing) {
    putFile("file", "new");
    ASSERT_EQ(symlink("secret", "copied"), 0);
    EXPECT_EQ(File::copy("file", "copied", File::OVERWRITE_EXISTING), 0);
    EXPECT_EQ(permissions("secret"), -1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Copy_WhoseTargetIsExchangedMeanwhile_SetsTheModeOfTheFileThatItWrote) {
    putFile("file", "new");
    chmod("file", 0777);
    putFile("secret", "old");
    chmod("secret", 0600);
    HookScope const scope;
    hooks::ftruncate.watch([](int, off_t) {
        EXPECT_EQ(rename("copied", "gone"), 0);
        EXPECT_EQ(symlink("secret", "copied"), 0);
    });
    EXPECT_EQ(File::copy("file", "copied", File::OVERWRITE_EXISTING), 1);
    EXPECT_EQ(permissions("secret"), 0600);
    EXPECT_EQ(permissions("gone"), 0777);
}

TEST_F(FileSystem, Copy_OfAFileThatReadersHold_Works) {
    putFile("file", "x");
    File file("file", File::TEXT_UTF8);
    ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    EXPECT_EQ(file.copy("copied", File::KEEP_EXISTING), 1);
    EXPECT_EQ(contentOf("copied"), "x");
}

TEST_F(FileSystem, Copy_OfAFileThatAWriterHolds_IsFalseWithoutALine) {
    putFile("file", "x");
    File file("file", File::TEXT_UTF8);
    ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    EXPECT_EQ(file.copy("folder/copied", File::KEEP_EXISTING), 0);
    EXPECT_EQ(permissions("folder"), 0777);
    EXPECT_EQ(permissions("folder/copied"), -1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Copy_OntoAFileThatIsHeld_Works) {
    putFile("file", "new");
    putFile("held", "old");
    File held("held", File::TEXT_UTF8);
    ASSERT_EQ(held.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    EXPECT_EQ(File::copy("file", "held", File::OVERWRITE_EXISTING), 1);
    EXPECT_EQ(contentOf("held"), "new");
}

TEST_F(FileSystem, Copy_OfAFolder_CopiesTheWholeTreeWithFoldersOfMode0777) {
    putTree();
    chmod("tree/inner/b", 0640);
    EXPECT_EQ(File::copy("tree", "x/copied", File::KEEP_EXISTING), 1);
    EXPECT_EQ(contentOf("x/copied/a"), "1");
    EXPECT_EQ(contentOf("x/copied/inner/b"), std::string(20, '2'));
    EXPECT_EQ(contentOf("x/copied/inner/deep/c"), std::string(300, '3'));
    EXPECT_EQ(permissions("x/copied/empty"), 0777);
    EXPECT_EQ(permissions("x/copied/inner"), 0777);
    EXPECT_EQ(permissions("x/copied/inner/b"), 0640);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Copy_OfAFolder_EndsWhereAPathOfTheCopyHas260Bytes) {
    std::string const destination(200, 'd');
    for (unsigned int const length : {258U, 259U, 260U, 261U}) {
        std::string const name(length - destination.size() - 1, 'n');
        std::filesystem::remove_all("from");
        putFolder("from");
        putFile("from/" + name, "x");
        EXPECT_EQ(File::copy("from", destination.c_str(), File::OVERWRITE_EXISTING), length < 260 ? 1 : 0)
            << length;
        EXPECT_EQ(contentOf(destination + "/" + name), length < 260 ? "x" : "") << length;
    }
    std::string const longest = std::string(129, 'e') + "/" + std::string(129, 'e');
    EXPECT_EQ(File::copy("from", longest.c_str(), File::OVERWRITE_EXISTING), 0);
    EXPECT_EQ(children(longest.c_str()), Names());
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Copy_OfAFolder_EndsAtANameThatIsNotUtf8OrHoldsABackslash) {
    for (char const* const name : {"\xFF", "a\\b"}) {
        std::filesystem::remove_all("from");
        putFolder("from");
        putFile(std::string("from/") + name, "x");
        EXPECT_EQ(File::copy("from", "copied", File::OVERWRITE_EXISTING), 0);
        EXPECT_EQ(children("copied"), Names());
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Copy_OfAFolder_StopsAtTheFirstFailureAndLeavesWhatWasCopied) {
    putTree();
    HookScope const scope;
    hooks::write.failFrom(2, 0, -1, ENOSPC);
    EXPECT_EQ(File::copy("tree", "copied", File::KEEP_EXISTING), 0);
    EXPECT_EQ(hooks::write.calls(), 2U);
    EXPECT_EQ(permissions("copied"), 0777);
}

TEST_F(FileSystem, Copy_OfAFolderOntoAFileOrThatCannotBeListed_IsFalse) {
    putTree();
    putFile("file", "x");
    EXPECT_EQ(File::copy("tree", "file", File::OVERWRITE_EXISTING), 0);
    HookScope const scope;
    hooks::opendir.failFrom(1, 1, nullptr, EMFILE);
    EXPECT_EQ(File::copy("tree", "copied", File::OVERWRITE_EXISTING), 0);
    EXPECT_EQ(permissions("copied"), 0777);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Copy_OfAFolderIntoItself_EndsWhereThePathsBecomeTooLong) {
    putFolder("a");
    EXPECT_EQ(File::copy("a", "a/b", File::OVERWRITE_EXISTING), 0);
    EXPECT_EQ(permissions("a/b/b"), 0777);
}

TEST_F(CopyThatFails, ToOpenTheSource_PutsItsFolderBackWithoutALine) {
    hooks::open.failFrom(2, 1, -1, EMFILE);
    EXPECT_EQ(callsOfCopy(), (Lines{"stat a", "chmod a 711"}));
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(CopyThatFails, ToFindTheModeOfTheSource_SaysSoAfterPuttingTheFolderBack) {
    hooks::stat.failFrom(8, 1, -1, EIO);
    EXPECT_EQ(callsOfCopy(), (Lines{"stat a/file", "stat a", "chmod a 711", "close"}));
    EXPECT_EQ(mLog.lines(), (Lines{error("in copy func stat Failed. errno[5] Path:a/file")}));
    EXPECT_EQ(permissions("b/copied"), -1);
}

TEST_F(CopyThatFails, ToOpenTheDestination_PutsBothFoldersBackAndThenClosesTheSource) {
    hooks::open.failFrom(3, 1, -1, EROFS);
    EXPECT_EQ(callsOfCopy(), (Lines{"stat a/file", "stat b", "chmod b 777", "stat b/copied",
                                    "open b/copied WRONLY+CREAT+EXCL 100644", "stat b", "chmod b 722",
                                    "stat a", "chmod a 711", "close"}));
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(CopyThatFails, ToWrite_ClosesBothAndPutsTheFoldersBackAndLeavesWhatWasWritten) {
    hooks::write.replace([](int descriptor, void const* data, size_t) -> ssize_t {
        return hooks::write.real(descriptor, data, 4);
    });
    EXPECT_EQ(callsOfCopy(), (Lines{"stat a/file", "stat b", "chmod b 777", "stat b/copied",
                                    "open b/copied WRONLY+CREAT+EXCL 100644", "read", "write", "close",
                                    "close", "stat b", "chmod b 722", "stat a", "chmod a 711"}));
    EXPECT_EQ(contentOf("b/copied"), "0123");
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Copy_OverAFileThatFailsToWrite_LeavesWhatItDidNotReach) {
    putFile("file", std::string(1500, 'n'));
    putFile("old", std::string(3000, 'o'));
    HookScope const scope;
    hooks::write.failFrom(2, 1, -1, EIO);
    EXPECT_EQ(File::copy("file", "old", File::OVERWRITE_EXISTING), 0);
    EXPECT_EQ(contentOf("old"), std::string(1024, 'n') + std::string(1976, 'o'));
}

TEST_F(CopyThatFails, ToRead_SaysSoAndClosesBothAndLeavesTheModeAndTheLengthOfTheTarget) {
    putFile("b/copied", std::string(20, 'o'));
    chmod("b/copied", 0600);
    hooks::read.replace([](int descriptor, void* out, size_t) -> ssize_t {
        errno = EIO;
        return lseek(descriptor, 0, SEEK_CUR) != 0 ? -1 : hooks::read.real(descriptor, out, 4);
    });
    EXPECT_EQ(callsOfCopy(), (Lines{"stat a/file", "stat b", "chmod b 777", "stat b/copied",
                                    "open b/copied WRONLY+CREAT 100644", "read", "write", "read", "close",
                                    "close", "stat b", "chmod b 722", "stat a", "chmod a 711"}));
    EXPECT_EQ(contentOf("b/copied"), "0123" + std::string(16, 'o'));
    EXPECT_EQ(permissions("b/copied"), 0600);
    EXPECT_EQ(mLog.lines(), (Lines{error("ReadFile Failed. errno[5]"),
                                   error("in read func readFile Failed. Path:a/file")}));
}

TEST_F(CopyThatFails, ToCutTheTarget_LeavesItsMode) {
    putFile("b/copied", std::string(20, 'o'));
    chmod("b/copied", 0600);
    hooks::lseek.failFrom(1, 1, -1, EIO);
    callsOfCopy();
    hooks::lseek.reset();
    hooks::ftruncate.failFrom(1, 1, -1, EIO);
    callsOfCopy();
    EXPECT_EQ(hooks::ftruncate.calls(), 1U);
    EXPECT_EQ(permissions("b/copied"), 0600);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(CopyThatFails, ToCloseTheTarget_IsFalse) {
    hooks::close.replace([](int descriptor) {
        int const result = hooks::close.real(descriptor);
        errno = EDQUOT;
        return hooks::close.calls() == 3 ? -1 : result;  // after those of the probe and of the source
    });
    callsOfCopy();
    EXPECT_EQ(contentOf("b/copied"), "0123456789");
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Copy_ReadsAgainAfterASignal) {
    std::string const content(3000, 'x');
    putFile("file", content);
    for (unsigned int nth = 1; nth <= 4; ++nth) {
        HookScope const scope;
        hooks::read.failFrom(nth, 2, -1, EINTR);
        EXPECT_EQ(File::copy("file", "copied", File::OVERWRITE_EXISTING), 1);
        EXPECT_EQ(contentOf("copied"), content);
        EXPECT_EQ(hooks::read.calls(), 6U);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileAtItsLimits, Copy_WhoseNthSystemCallFails_ClosesBothFilesAndPutsTheFoldersBack) {
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

TEST_F(FileAtItsLimits, Copy_OntoAnotherNameOfTheSameFile_KeepsItsContent) {
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

}  // namespace

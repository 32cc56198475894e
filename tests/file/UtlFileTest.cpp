#include "UtlFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "TestAllocations.h"
#include "TestFileCalls.h"
#include "TestFiles.h"
#include "TestFolder.h"
#include "TestHooks.h"
#include "TestLayout.h"

namespace {

using namespace utltest;
using utl::File;
using HookScope = utltest::OwnHookScope;
namespace hooks = utltest::hooks;
using Lines = std::vector<std::string>;

TEST_F(FileInFolder, Constructor_StoresThePathWithSlashes) {
    EXPECT_STREQ(File("a\\b\\c.txt", File::TEXT_UTF8).getPath(), "a/b/c.txt");
}

TEST_F(FileInFolder, Constructor_TakesANullPathForAnEmptyOne) {
    EXPECT_STREQ(File(nullptr, File::TEXT_UTF8).getPath(), "");
}

TEST_F(FileInFolder, Constructor_KeepsAPathThatIsTooLongForEverythingElse) {
    std::string const path(300, 'p');
    EXPECT_EQ(File(path.c_str(), File::TEXT_UTF8).getPath(), path);
}

TEST_F(FileInFolder, Constructor_TouchesNoFile) {
    FileCalls calls;
    {
        File const file("", File::TEXT_UTF8);
        EXPECT_EQ(calls.take(), Lines());
        EXPECT_EQ(file.isOpened(), 0);
    }
    EXPECT_EQ(calls.take(), Lines());
}

TEST_F(FileInFolder, Destructor_OfAFileThatWasNeverOpened_SyncsTheFolder) {
    FileCalls calls;
    { File const file("folder/none", File::TEXT_UTF8); }
    EXPECT_EQ(calls.take(), (Lines{"~File: open folder RDONLY+DIRECTORY", "-: fsync", "-: close"}));
}

TEST_F(FileInFolder, Destructor_SyncsTheFolderAndThenTheFile) {
    FileCalls calls;
    {
        File file("folder/f", File::TEXT_UTF8);
        ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
        calls.take();
    }
    EXPECT_EQ(calls.take(),
              (Lines{"~File: open folder RDONLY+DIRECTORY", "-: fsync", "-: close", "-: fsync", "-: close"}));
}

TEST_F(FileInFolder, Destructor_OfAPathWithoutAFolder_SyncsNothing) {
    for (char const* const path : {"bare", "/bare"}) {
        FileCalls calls;
        { File const file(path, File::TEXT_UTF8); }
        EXPECT_EQ(calls.take(), (Lines{"~File: open  RDONLY+DIRECTORY"}));
    }
    FileCalls calls;
    { File const file("./bare", File::TEXT_UTF8); }
    EXPECT_EQ(calls.take(), (Lines{"~File: open . RDONLY+DIRECTORY", "-: fsync", "-: close"}));
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Destructor_NeedsNoMemoryWhateverThePath) {
    for (std::string const& path : {std::string("folder/f"), std::string(5000, 'p')}) {
        auto file = std::make_unique<File>(path.c_str(), File::TEXT_UTF8);
        EXPECT_EQ(utltest::allocationsOf([&file] { file.reset(); }), 0U);
    }
}

TEST_F(FileInFolder, Open_WithoutMemory_ThrowsAndLeavesTheFileFreeAndTheFolderAsItWas) {
    for (int const access : {0, 1, 2}) {
        unsigned int const descriptors = openDescriptors();
        {
            NoMemoryScope const scope;
            EXPECT_THROW(mFile.open(0, access), std::bad_alloc);
        }
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_EQ(permissions("folder"), 0755);
        EXPECT_EQ(mFile.isOpened(), 0);
        EXPECT_EQ(File::isOpened("folder/f", nullptr), 0);
    }
}

TEST_F(FileInFolder, OpenToRead_MakesTheseCallsInThisOrder) {
    FileCalls calls;
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    EXPECT_EQ(calls.take(), (Lines{"isDirectory: stat folder/f", "exists: stat folder/f",
                                   "open: open folder/f RDONLY 555", "open: flock 5"}));
}

TEST_F(FileInFolder, OpenToWrite_OfAFileThatIsThere_MakesTheseCallsInThisOrder) {
    FileCalls calls;
    ASSERT_EQ(mFile.open(File::OPEN_AT_END, File::ACCESS_WRITE), 1);
    EXPECT_EQ(calls.take(),
              (Lines{"isDirectory: stat folder/f", "exists: stat folder", "isDirectory: stat folder",
                     "exists: stat folder/f", "isReadOnly: stat folder/f",
                     "changeParentAccessMode: stat folder", "changeParentAccessMode: chmod folder 777",
                     "open: open folder/f WRONLY+CREAT 777", "open: flock 6", "seekFile: lseek 0 2",
                     "changeParentAccessMode: stat folder", "changeParentAccessMode: chmod folder 755"}));
}

TEST_F(FileInFolder, OpenToWrite_OfANewFile_SetsItsModeBeforeItIsLocked) {
    FileCalls calls;
    File file("folder/new", File::TEXT_UTF8);
    ASSERT_EQ(file.open(File::OPEN_EMPTY, File::ACCESS_READ_WRITE), 1);
    EXPECT_EQ(calls.take(),
              (Lines{"isDirectory: stat folder/new", "exists: stat folder", "isDirectory: stat folder",
                     "exists: stat folder/new", "changeParentAccessMode: stat folder",
                     "changeParentAccessMode: chmod folder 777",
                     "open: open folder/new RDWR+CREAT+EXCL+TRUNC 777", "open: fchmod 777", "open: flock 6",
                     "changeParentAccessMode: stat folder", "changeParentAccessMode: chmod folder 755"}));
}

TEST_F(FileInFolder, OpenToWrite_CreatesTheFileWithMode0777WhateverTheUmask) {
    for (mode_t const mask : {0000, 0022, 0777}) {
        mode_t const old = umask(mask);
        File file("folder/new", File::TEXT_UTF8);
        EXPECT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
        umask(old);
        EXPECT_EQ(permissions("folder/new"), 0777);
        unlink("folder/new");
    }
}

// The file "folder/new" is not there, and at the moment of its creation somebody has put a link to "secret"
// in its place.
class FileThatIsSnatched : public FileInFolder {
  protected:
    FileThatIsSnatched() {
        hooks::open.replace([](char const* path, int flags, mode_t mode) {
            if (hooks::open.calls() == 1) {
                EXPECT_EQ(symlink("../secret", path), 0);
            }
            return hooks::open.real(path, flags, mode);
        });
    }

    FileCalls mCalls;
    File mNew{"folder/new", File::TEXT_UTF8};
};

TEST_F(FileThatIsSnatched, OpenToWrite_TakesWhatIsThereWithoutChangingItsMode) {
    putFile("secret", "content");
    chmod("secret", 0600);
    ASSERT_EQ(mNew.open(File::OPEN_AT_END, File::ACCESS_READ_WRITE), 1);
    Lines const lines = mCalls.take();
    EXPECT_EQ(Lines(lines.begin() + 6, lines.end()),
              (Lines{"open: open folder/new RDWR+CREAT+EXCL 777", "exists: stat folder/new",
                     "isReadOnly: stat folder/new", "open: open folder/new RDWR+NONBLOCK 777",
                     "open: flock 6", "seekFile: lseek 0 2", "changeParentAccessMode: stat folder",
                     "changeParentAccessMode: chmod folder 755"}));
    EXPECT_EQ(mNew.position(), 7);
    EXPECT_EQ(permissions("secret"), 0600);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileThatIsSnatched, OpenToWrite_CreatesNothingThroughALinkToNothing) {
    EXPECT_EQ(mNew.open(File::OPEN_KEEP, File::ACCESS_WRITE), 0);
    EXPECT_EQ(permissions("secret"), -1);
    EXPECT_EQ(mLog.lines(), (Lines{error("open() Failed. errno[2] Path:folder/new")}));
}

TEST_F(FileThatIsSnatched, OpenToWrite_RefusesWhatItsOwnerMayNotWriteWithoutALine) {
    putFile("secret", "content");
    chmod("secret", 0400);
    EXPECT_EQ(mNew.open(File::OPEN_EMPTY, File::ACCESS_WRITE), 0);
    EXPECT_EQ(mNew.isOpened(), 0);
    EXPECT_EQ(contentOf("secret"), "content");
    EXPECT_EQ(permissions("folder"), 0755);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileThatIsSnatched, OpenToWrite_BehindTheCreation_SetsTheModeOfTheFileThatWasCreated) {
    putFile("secret", "content");
    chmod("secret", 0600);
    hooks::open.replace([](char const* path, int flags, mode_t mode) {
        int const descriptor = hooks::open.real(path, flags, mode);
        if (hooks::open.calls() == 1) {
            EXPECT_EQ(rename(path, "folder/gone"), 0);
            EXPECT_EQ(symlink("../secret", path), 0);
        }
        return descriptor;
    });
    mode_t const old = umask(0077);
    EXPECT_EQ(mNew.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    umask(old);
    EXPECT_EQ(permissions("secret"), 0600);
    EXPECT_EQ(permissions("folder/gone"), 0777);
}

TEST_F(FileInFolder, OpenToWrite_CreatesMissingFoldersWithMode0777WhateverTheUmask) {
    mode_t const old = umask(0077);
    File file("folder/x/y/new", File::TEXT_UTF8);
    EXPECT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    umask(old);
    EXPECT_EQ(permissions("folder/x"), 0777);
    EXPECT_EQ(permissions("folder/x/y"), 0777);
    EXPECT_EQ(permissions("folder/x/y/new"), 0777);
    EXPECT_EQ(permissions("folder"), 0777);  // every folder on the way to a missing one stays widened
    chmod("folder", 0755);
}

TEST_F(FileInFolder, OpenToWrite_KeepsTheModeOfAFileThatIsThere) {
    chmod("folder/f", 0640);
    ASSERT_EQ(mFile.open(File::OPEN_EMPTY, File::ACCESS_READ_WRITE), 1);
    EXPECT_EQ(permissions("folder/f"), 0640);
}

TEST_F(FileInFolder, OpenToWrite_WorksInTheCurrentFolder) {
    File file("bare", File::TEXT_UTF8);
    EXPECT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE), 1);
    EXPECT_EQ(file.write("x", 1), 1);
    EXPECT_EQ(file.close(), 1);
    EXPECT_EQ(contentOf("bare"), "x");
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Open_WithDisposition0_KeepsTheContentAndBeginsAtTheStart) {
    for (int const access : {0, 1, 2}) {
        ASSERT_EQ(mFile.open(0, access), 1);
        EXPECT_EQ(mFile.position(), 0);
        EXPECT_EQ(mFile.size(), 10);
        EXPECT_EQ(mFile.close(), 1);
    }
}

TEST_F(FileInFolder, Open_WithDisposition1_KeepsTheContentAndBeginsAtTheEnd) {
    for (int const access : {0, 1, 2}) {
        ASSERT_EQ(mFile.open(1, access), 1);
        EXPECT_EQ(mFile.position(), 10);
        EXPECT_EQ(mFile.size(), 10);
        EXPECT_EQ(mFile.close(), 1);
    }
}

TEST_F(FileInFolder, Open_WithDisposition2_EmptiesTheFileForAWriterAlone) {
    EXPECT_EQ(mFile.open(File::OPEN_EMPTY, File::ACCESS_READ), 0);
    EXPECT_EQ(contentOf("folder/f"), "0123456789");
    for (int const access : {1, 2}) {
        putFile("folder/f", "again");
        ASSERT_EQ(mFile.open(2, access), 1);
        EXPECT_EQ(mFile.size(), 0);
        EXPECT_EQ(mFile.close(), 1);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Open_RefusesOtherArgumentsWithoutALine) {
    for (int const wrong : {-1, 3, INT_MIN, INT_MAX}) {
        EXPECT_EQ(mFile.open(wrong, 0), 0);
        EXPECT_EQ(mFile.open(0, wrong), 0);
    }
    EXPECT_EQ(mFile.isOpened(), 0);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Open_OfAFolder_IsRefusedWithoutALine) {
    File folder("folder", File::TEXT_UTF8);
    for (int const access : {0, 1, 2}) {
        EXPECT_EQ(folder.open(0, access), 0);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Open_OfAnOpenFile_IsRefusedAndLeavesItOpen) {
    ASSERT_EQ(mFile.open(File::OPEN_AT_END, File::ACCESS_READ_WRITE), 1);
    EXPECT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 0);
    EXPECT_EQ(mFile.position(), 10);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Open_AfterClose_WorksAgain) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    EXPECT_EQ(mFile.close(), 1);
    EXPECT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    EXPECT_EQ(mFile.isOpened(), 1);
}

TEST_F(FileInFolder, OpenToRead_OfAMissingFile_IsRefusedWithoutALineAndCreatesNothing) {
    File file("folder/none", File::TEXT_UTF8);
    EXPECT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ), 0);
    EXPECT_EQ(permissions("folder/none"), -1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Open_OfAPathThatFailsTheCheck_IsRefusedWithoutALine) {
    for (int const access : {0, 1, 2}) {
        EXPECT_EQ(File("folder//f", File::TEXT_UTF8).open(0, access), 0);
        EXPECT_EQ(File("folder/\\f", File::TEXT_UTF8).open(0, access), 0);
        EXPECT_EQ(File("", File::TEXT_UTF8).open(0, access), 0);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Open_TakesAPathOf259BytesAndRefusesOneOf260) {
    std::string const folder = "folder/" + std::string(200, 'd');
    putFolder(folder);
    std::string const longest = folder + "/" + std::string(259 - folder.size() - 1, 'n');
    File file(longest.c_str(), File::TEXT_UTF8);
    EXPECT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    EXPECT_EQ(file.write("x", 1), 1);
    EXPECT_EQ(file.close(), 1);
    EXPECT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    putFile(longest + "n", "");
    File tooLong((longest + "n").c_str(), File::TEXT_UTF8);
    EXPECT_EQ(tooLong.open(File::OPEN_KEEP, File::ACCESS_WRITE), 0);
    EXPECT_EQ(tooLong.open(File::OPEN_KEEP, File::ACCESS_READ), 0);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Open_TakesAFileNameOf255Bytes) {
    std::string const name(255, 'n');
    EXPECT_EQ(File(name.c_str(), File::TEXT_UTF8).open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    EXPECT_EQ(permissions(name), 0777);
}

TEST_F(FileInFolder, OpenToWrite_OfAFileNameOf256Bytes_SaysThatTheSystemRefusesIt) {
    std::string const name(256, 'n');
    EXPECT_EQ(File(name.c_str(), File::TEXT_UTF8).open(File::OPEN_KEEP, File::ACCESS_WRITE), 0);
    ASSERT_EQ(mLog.lines().size(), 1U);
    EXPECT_EQ(mLog.lines()[0].rfind(error("open() Failed. errno[36] Path:nnn"), 0), 0U);
}

TEST_F(FileInFolder, OpenToWrite_OfAPathThatIsNotUtf8_IsRefusedWithoutALine) {
    EXPECT_EQ(File("folder/\xFF", File::TEXT_UTF8).open(File::OPEN_KEEP, File::ACCESS_WRITE), 0);
    EXPECT_EQ(permissions("folder/\xFF"), -1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, OpenToRead_DoesNotMindAPathThatIsNotUtf8) {
    putFile("folder/\xFF", "x");
    EXPECT_EQ(File("folder/\xFF", File::TEXT_UTF8).open(File::OPEN_KEEP, File::ACCESS_READ), 1);
}

TEST_F(FileInFolder, OpenToWrite_OfAFileThatItsOwnerMayNotWrite_IsRefusedWithoutALine) {
    for (mode_t const mode : {0000, 0444, 0577}) {
        chmod("folder/f", mode);
        FileCalls calls;
        EXPECT_EQ(mFile.open(File::OPEN_EMPTY, File::ACCESS_WRITE), 0);
        Lines const lines = calls.take();
        EXPECT_EQ(Lines(lines.end() - 2, lines.end()),
                  (Lines{"isReadOnly: stat folder/f", "open: stat folder/f"}));
    }
    chmod("folder/f", 0644);
    EXPECT_EQ(contentOf("folder/f"), "0123456789");
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, OpenToWrite_ThroughAFile_IsRefusedWithoutALine) {
    EXPECT_EQ(File("folder/f/x/new", File::TEXT_UTF8).open(File::OPEN_KEEP, File::ACCESS_WRITE), 0);
    EXPECT_EQ(mLog.lines(), Lines());
    chmod("folder", 0755);
}

TEST_F(FileInFolder, Open_OfTwoReaders_Succeeds) {
    File other("folder/f", File::TEXT_UTF8);
    EXPECT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    EXPECT_EQ(other.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
}

TEST_F(FileInFolder, Open_NextToAnotherHolder_FailsAtOnceUnlessBothRead) {
    int const accesses[][2] = {{0, 1}, {0, 2}, {1, 0}, {1, 1}, {2, 0}, {2, 2}};
    for (auto const& [first, second] : accesses) {
        mLog.clear();
        File other("folder/f", File::TEXT_UTF8);
        ASSERT_EQ(other.open(0, first), 1);
        EXPECT_EQ(mFile.open(0, second), 0);
        EXPECT_EQ(mFile.isOpened(), 0);
        EXPECT_EQ(mLog.lines(), (Lines{debug("Other process is opening. errno[11] Path:folder/f")}));
        EXPECT_EQ(other.close(), 1);
        EXPECT_EQ(mFile.open(0, second), 1);
        EXPECT_EQ(mFile.close(), 1);
    }
}

TEST_F(FileInFolder, Open_OnManyThreads_LetsOneWriterInAtATime) {
    setFilterLevel(utl::LOG_TYPE_LIBRARY, utl::LOG_LEVEL_DETAIL);
    putFile("shared", "");
    std::atomic<int> holders{0};
    std::atomic<int> refusals{0};
    auto const work = [&holders, &refusals] {
        for (int opened = 0; opened < 50;) {
            File file("shared", File::TEXT_UTF8);
            if (file.open(File::OPEN_AT_END, File::ACCESS_WRITE) == 0) {
                ++refusals;
                std::this_thread::yield();
                continue;
            }
            EXPECT_EQ(++holders, 1);
            EXPECT_EQ(file.write("x", 1), 1);
            --holders;
            ++opened;
        }
    };
    {
        File held("shared", File::TEXT_UTF8);
        ASSERT_EQ(held.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back(work);
        }
        while (refusals == 0) {
            std::this_thread::yield();
        }
        held.close();
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    EXPECT_EQ(contentOf("shared").size(), 200U);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Open_ThatEmptiesALockedFile_FailsButHasEmptiedIt) {
    File other("folder/f", File::TEXT_UTF8);
    ASSERT_EQ(other.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    EXPECT_EQ(mFile.open(File::OPEN_EMPTY, File::ACCESS_WRITE), 0);
    EXPECT_EQ(other.size(), 0);
}

TEST_F(FileInFolder, Close_OfAClosedFile_IsFalseAndHarmless) {
    FileCalls calls;
    EXPECT_EQ(mFile.close(), 0);
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    calls.take();
    EXPECT_EQ(mFile.close(), 1);
    EXPECT_EQ(calls.take(), (Lines{"-: fsync", "-: close"}));
    EXPECT_EQ(mFile.close(), 0);
    EXPECT_EQ(calls.take(), Lines());
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, AutoClose_ClosesAtTheEndOfItsScope) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    {
        File::AutoClose const closer(mFile);
        EXPECT_EQ(mFile.isOpened(), 1);
    }
    EXPECT_EQ(mFile.isOpened(), 0);
    { File::AutoClose const closer(mFile); }
    EXPECT_EQ(mFile.isOpened(), 0);
}

TEST_F(FileInFolder, Flush_IsTrueAndDoesNothing) {
    FileCalls calls;
    EXPECT_EQ(mFile.flush(), 1);
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    calls.take();
    EXPECT_EQ(mFile.flush(), 1);
    EXPECT_EQ(calls.take(), Lines());
}

TEST_F(FileInFolder, Seek_CountsFromStartEndOrPosition) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    EXPECT_EQ(mFile.seek(4, File::FROM_START), 4);
    EXPECT_EQ(mFile.seek(0, File::FROM_POSITION), 4);
    EXPECT_EQ(mFile.seek(-1, File::FROM_POSITION), 3);
    EXPECT_EQ(mFile.seek(0, File::FROM_END), 10);
    EXPECT_EQ(mFile.seek(-2, File::FROM_END), 8);
    EXPECT_EQ(mFile.seek(5, File::FROM_END), 15);
    EXPECT_EQ(mFile.position(), 15);
}

TEST_F(FileInFolder, Seek_FromAnotherOrigin_IsMinusOneWithoutALine) {
    ASSERT_EQ(mFile.open(File::OPEN_AT_END, File::ACCESS_READ), 1);
    for (int const origin : {-1, 3, INT_MAX, INT_MIN}) {
        EXPECT_EQ(mFile.seek(0, origin), -1);
    }
    EXPECT_EQ(mFile.position(), 10);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Seek_ThatTheSystemRefuses_SaysSoAndStays) {
    ASSERT_EQ(mFile.open(File::OPEN_AT_END, File::ACCESS_READ), 1);
    EXPECT_EQ(mFile.seek(-1, File::FROM_START), -1);
    EXPECT_EQ(mLog.lines(), (Lines{error("lseek64 Failed. errno[22]")}));
    EXPECT_EQ(mFile.position(), 10);
}

TEST_F(FileInFolder, ClosedFile_GivesItsFailureResultsWithoutALine) {
    char byte = 0;
    EXPECT_EQ(mFile.seek(0, File::FROM_START), -1);
    EXPECT_EQ(mFile.position(), -1);
    EXPECT_EQ(mFile.availableSize(), -1);
    EXPECT_EQ(mFile.write(&byte, 1), -1);
    EXPECT_EQ(mFile.resize(), 0);
    EXPECT_EQ(mFile.resize(1), 0);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Size_OfAnOpenFile_IsAskedByDescriptor) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    FileCalls calls;
    EXPECT_EQ(mFile.size(), 10);
    EXPECT_EQ(calls.take(), (Lines{"fileSize: fstat"}));
}

TEST_F(FileInFolder, Size_OfAClosedFile_IsAskedByPathWithoutALock) {
    FileCalls calls;
    EXPECT_EQ(mFile.size(), 10);
    EXPECT_EQ(calls.take(),
              (Lines{"exists: stat folder/f", "isDirectory: stat folder/f",
                     "size: open folder/f RDONLY+NONBLOCK", "fileSize: fstat", "-: fsync", "-: close"}));
}

TEST_F(FileInFolder, AvailableSize_CountsFromThePositionToTheEnd) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    long long const expected[][2] = {{0, 10}, {9, 1}, {10, 0}, {11, 0}};
    for (auto const& [position, available] : expected) {
        mFile.seek(position, File::FROM_START);
        EXPECT_EQ(mFile.availableSize(), available);
    }
}

TEST_F(FileInFolder, Read_GivesWhatThereIsAndThenTheEndOfFile) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    char buffer[11] = {};
    EXPECT_EQ(mFile.read(buffer, 4), 4);
    EXPECT_STREQ(buffer, "0123");
    EXPECT_EQ(mFile.read(buffer, 10), 6);
    EXPECT_STREQ(buffer, "456789");
    EXPECT_EQ(mFile.read(buffer, 1), File::END_OF_FILE);
    mFile.seek(5, File::FROM_END);
    EXPECT_EQ(mFile.read(buffer, 1), File::END_OF_FILE);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Read_MakesTheseCallsAndAsksForAPositionOnce) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    FileCalls calls;
    char buffer[20] = {};
    EXPECT_EQ(mFile.read(buffer, 4), 4);
    EXPECT_EQ(calls.take(), (Lines{"fileSize: fstat", "seekFile: lseek 0 1", "-: pread 0"}));
    EXPECT_EQ(mFile.read(buffer, 20), 6);
    EXPECT_EQ(calls.take(), (Lines{"fileSize: fstat", "-: pread 4"}));
    EXPECT_EQ(mFile.read(buffer, 20), File::END_OF_FILE);
    EXPECT_EQ(calls.take(), (Lines{"fileSize: fstat"}));
}

TEST_F(FileInFolder, Read_OfAClosedFile_SaysSo) {
    char buffer = 0;
    EXPECT_EQ(mFile.read(&buffer, 1), -1);
    EXPECT_EQ(mFile.read(nullptr, 0), -1);
    Lines const twice(2, error("in read func file is not opened"));
    EXPECT_EQ(mLog.lines(), twice);
}

TEST_F(FileInFolder, Read_WithWrongArguments_IsMinusOneWithoutALineOrACall) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    FileCalls calls;
    char buffer = 0;
    EXPECT_EQ(mFile.read(nullptr, 1), -1);
    EXPECT_EQ(mFile.read(&buffer, 0), -1);
    EXPECT_EQ(mFile.read(&buffer, 0x80000000U), -1);
    EXPECT_EQ(mFile.read(&buffer, 0xFFFFFFFFU), -1);
    EXPECT_EQ(calls.take(), Lines());
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Read_TakesTheLargestSignedLength) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    HookScope const scope;
    hooks::pread.replace(
        [](int, void*, size_t length, off_t) -> ssize_t { return length == INT_MAX ? 7 : -1; });
    char buffer = 0;
    EXPECT_EQ(mFile.read(&buffer, INT_MAX), 7);
}

TEST_F(FileInFolder, Read_OfAFileOpenedToWrite_IsRefusedByTheSystem) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    char buffer = 0;
    EXPECT_EQ(mFile.read(&buffer, 1), -1);
    EXPECT_EQ(mLog.count(error("ReadFile Failed. errno[9]")), 1U);
}

TEST_F(FileInFolder, Read_ThatComesShort_GivesWhatCame) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    HookScope const scope;
    hooks::pread.replace([](int descriptor, void* out, size_t, off_t offset) {
        return hooks::pread.real(descriptor, out, 3, offset);
    });
    char buffer[10] = {};
    EXPECT_EQ(mFile.read(buffer, 10), 3);
    EXPECT_EQ(mFile.position(), 3);
}

TEST_F(FileInFolder, Write_MakesTheseCallsInThisOrder) {
    ASSERT_EQ(mFile.open(File::OPEN_AT_END, File::ACCESS_WRITE), 1);
    FileCalls calls;
    EXPECT_EQ(mFile.write("abc", 3), 3);
    EXPECT_EQ(calls.take(),
              (Lines{"changeParentAccessMode: stat folder", "changeParentAccessMode: chmod folder 777",
                     "writeFile: write", "changeParentAccessMode: stat folder",
                     "changeParentAccessMode: chmod folder 755"}));
    EXPECT_EQ(contentOf("folder/f"), "0123456789abc");
}

TEST_F(FileInFolder, Write_OfNothing_WidensTheFolderAndSaysThatItFailed) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    FileCalls calls;
    EXPECT_EQ(mFile.write("x", 0), -1);
    EXPECT_EQ(mFile.write(nullptr, 1), -1);
    Lines const twice(2, error("writeFile Failed. Path:folder/f"));
    EXPECT_EQ(mLog.lines(), twice);
    Lines const once{"stat folder", "chmod folder 777", "stat folder", "chmod folder 755"};
    Lines expected = once;
    expected.insert(expected.end(), once.begin(), once.end());
    EXPECT_EQ(calls.takeCalls(), expected);
}

TEST_F(FileInFolder, Write_ToAFullDisk_GivesWhatWentInAndThenSaysThatNoMoreDoes) {
    ASSERT_EQ(mFile.open(File::OPEN_EMPTY, File::ACCESS_WRITE), 1);
    HookScope const scope;
    hooks::write.replace([](int descriptor, void const* data, size_t) -> ssize_t {
        if (lseek(descriptor, 0, SEEK_CUR) != 0) {
            errno = ENOSPC;
            return -1;
        }
        return hooks::write.real(descriptor, data, 2);
    });
    EXPECT_EQ(mFile.write("abc", 3), 2);
    EXPECT_EQ(mLog.lines(), Lines());
    EXPECT_EQ(mFile.write("c", 1), -1);
    EXPECT_EQ(mLog.lines(),
              (Lines{error("WriteFile Failed. errno[28]"), error("writeFile Failed. Path:folder/f")}));
    EXPECT_EQ(mFile.close(), 1);
    EXPECT_EQ(contentOf("folder/f"), "ab");
}

TEST_F(FileInFolder, Write_ToADeviceThatIsAlwaysFull_SaysSo) {
    ASSERT_EQ(symlink("/dev/full", "full"), 0);
    File file("full", File::TEXT_UTF8);
    ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    EXPECT_EQ(file.write("x", 1), -1);
    EXPECT_EQ(mLog.lines(),
              (Lines{error("WriteFile Failed. errno[28]"), error("writeFile Failed. Path:full")}));
}

TEST_F(FileInFolder, Write_ToAFileOpenedToRead_IsRefusedByTheSystem) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    EXPECT_EQ(mFile.write("x", 1), -1);
    EXPECT_EQ(mLog.lines(),
              (Lines{error("WriteFile Failed. errno[9]"), error("writeFile Failed. Path:folder/f")}));
}

TEST_F(FileInFolder, Write_WhoseFolderIsGone_SaysSoAtTheLowestLevelAndGoesOn) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    ASSERT_EQ(rename("folder", "gone"), 0);
    EXPECT_EQ(mFile.write("abc", 3), 3);
    EXPECT_EQ(mLog.lines(),
              (Lines{debug("is changeParentAccessMode func stat Failed. errno[2] Path:folder")}));
    EXPECT_EQ(contentOf("gone/f"), "abc3456789");
    ASSERT_EQ(rename("gone", "folder"), 0);
}

TEST_F(FileInFolder, Write_ToAFileThatIsGone_GoesOn) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE), 1);
    ASSERT_EQ(unlink("folder/f"), 0);
    EXPECT_EQ(mFile.write("abc", 3), 3);
    EXPECT_EQ(mFile.size(), 10);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Read_OfAFileThatWasCutMeanwhile_IsAtTheEndOfFile) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    mFile.seek(5, File::FROM_START);
    ASSERT_EQ(truncate("folder/f", 3), 0);
    char buffer = 0;
    EXPECT_EQ(mFile.read(&buffer, 1), File::END_OF_FILE);
    EXPECT_EQ(mFile.availableSize(), 0);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Read_OfAFileThatIsCutBehindTheLookAhead_Gives0) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    HookScope const scope;
    hooks::pread.replace([](int descriptor, void* out, size_t length, off_t offset) {
        EXPECT_EQ(truncate("folder/f", 0), 0);
        return hooks::pread.real(descriptor, out, length, offset);
    });
    char buffer = 0;
    EXPECT_EQ(mFile.read(&buffer, 1), 0);
}

TEST_F(FileInFolder, Resize_EndsTheFileAtThePosition) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE), 1);
    FileCalls calls;
    mFile.seek(4, File::FROM_START);
    calls.take();
    EXPECT_EQ(mFile.resize(), 1);
    EXPECT_EQ(calls.take(), (Lines{"resize: lseek 0 1", "resize: ftruncate 4"}));
    EXPECT_EQ(contentOf("folder/f"), "0123");
    mFile.seek(2, File::FROM_END);
    EXPECT_EQ(mFile.resize(), 1);
    EXPECT_EQ(contentOf("folder/f"), std::string("0123\0\0", 6));
}

TEST_F(FileInFolder, ResizeToASize_LeavesThePositionWhereItWasOrAtTheNewEnd) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE), 1);
    long long const expected[][3] = {{5, 6, 5}, {5, 5, 5}, {5, 4, 4}, {2, 20, 2}, {30, 25, 25}, {3, 0, 0}};
    for (auto const& [position, size, positionBehind] : expected) {
        mFile.seek(position, File::FROM_START);
        EXPECT_EQ(mFile.resize(static_cast<unsigned long long>(size)), 1);
        EXPECT_EQ(mFile.position(), positionBehind);
        EXPECT_EQ(mFile.size(), size);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, ResizeToASize_MakesTheseCallsInThisOrder) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE), 1);
    FileCalls calls;
    EXPECT_EQ(mFile.resize(20), 1);
    EXPECT_EQ(calls.take(), (Lines{"seekFile: lseek 0 1", "seekFile: lseek 20 0", "resize: lseek 0 1",
                                   "resize: ftruncate 20", "seekFile: lseek 0 0"}));
    mFile.seek(0, File::FROM_END);
    calls.take();
    EXPECT_EQ(mFile.resize(20), 1);
    EXPECT_EQ(calls.take(), (Lines{"seekFile: lseek 0 1", "seekFile: lseek 20 0", "resize: lseek 0 1",
                                   "resize: ftruncate 20"}));
}

TEST_F(FileInFolder, ResizeToASize_BeyondAllOffsets_IsFalse) {
    ASSERT_EQ(mFile.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE), 1);
    EXPECT_EQ(mFile.resize(0x8000000000000000ULL), 0);
    EXPECT_EQ(mFile.resize(~0ULL), 0);
    EXPECT_EQ(mFile.size(), 10);
    Lines const twice(2, error("lseek64 Failed. errno[22]"));
    EXPECT_EQ(mLog.lines(), twice);
}

TEST_F(FileInFolder, FileBeyond4GiB_IsSoughtReadWrittenAndResized) {
    constexpr long long FAR = (5LL << 30) + 3;
    ASSERT_EQ(mFile.open(File::OPEN_EMPTY, File::ACCESS_READ_WRITE), 1);
    EXPECT_EQ(mFile.seek(FAR, File::FROM_START), FAR);
    EXPECT_EQ(mFile.write("far", 3), 3);
    EXPECT_EQ(mFile.position(), FAR + 3);
    EXPECT_EQ(mFile.size(), FAR + 3);
    EXPECT_EQ(mFile.seek(-3, File::FROM_END), FAR);
    EXPECT_EQ(mFile.availableSize(), 3);
    char buffer[4] = {};
    EXPECT_EQ(mFile.read(buffer, 4), 3);
    EXPECT_STREQ(buffer, "far");
    EXPECT_EQ(mFile.seek(0, File::FROM_START), 0);
    EXPECT_EQ(mFile.availableSize(), FAR + 3);
    EXPECT_EQ(mFile.resize(static_cast<unsigned long long>(FAR) + 100), 1);
    EXPECT_EQ(mFile.size(), FAR + 100);
    EXPECT_EQ(mFile.close(), 1);
    EXPECT_EQ(mFile.size(), FAR + 100);
    ASSERT_EQ(mFile.open(File::OPEN_AT_END, File::ACCESS_WRITE), 1);
    EXPECT_EQ(mFile.position(), FAR + 100);
    EXPECT_EQ(mFile.resize(1ULL << 32), 1);
    EXPECT_EQ(mFile.size(), 1LL << 32);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, Write_OfAPathWithPercentSigns_NamesItToTheLetter) {
    putFolder("folder/%s%d");
    File file("folder/%s%d/%n%%", File::TEXT_UTF8);
    ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    EXPECT_EQ(file.write("x", 0), -1);
    ASSERT_EQ(mLog.lines().size(), 1U);
    // The sinks of the log take two percent signs for one.
    EXPECT_EQ(mLog.lines()[0], error("writeFile Failed. Path:folder/%s%d/%n%"));
    EXPECT_EQ(permissions("folder/%s%d/%n%%"), 0777);
}

TEST_F(FileInFolder, ChangeParentAccessMode_StoresTheWholeModeAndSetsTheNewOne) {
    int mode = 0;
    EXPECT_EQ(File::changeParentAccessMode("folder/f", 0700, &mode), 1);
    EXPECT_EQ(mode, S_IFDIR | 0755);
    EXPECT_EQ(permissions("folder"), 0700);
    EXPECT_EQ(File::changeParentAccessMode("folder/none/", mode, nullptr), 1);
    EXPECT_EQ(permissions("folder"), 0755);
}

TEST_F(FileInFolder, ChangeParentAccessMode_ToTheWholeModeThatItHas_DoesNothingAndIsFalse) {
    FileCalls calls;
    int mode = 0;
    EXPECT_EQ(File::changeParentAccessMode("folder/f", S_IFDIR | 0755, &mode), 0);
    EXPECT_EQ(mode, S_IFDIR | 0755);
    EXPECT_EQ(calls.take(), (Lines{"changeParentAccessMode: stat folder"}));
}

TEST_F(FileInFolder, ChangeParentAccessMode_ToThePermissionsThatItHas_SetsThemAllTheSame) {
    FileCalls calls;
    EXPECT_EQ(File::changeParentAccessMode("folder/f", 0755, nullptr), 1);
    EXPECT_EQ(calls.take(),
              (Lines{"changeParentAccessMode: stat folder", "changeParentAccessMode: chmod folder 755"}));
}

TEST_F(FileInFolder, ChangeParentAccessMode_OfAPathWithoutAFolder_IsFalseWithoutACall) {
    FileCalls calls;
    int mode = -7;
    for (char const* const path : {static_cast<char const*>(nullptr), "", "f", "/f", "/", "folder//f"}) {
        EXPECT_EQ(File::changeParentAccessMode(path, 0777, &mode), 0);
    }
    EXPECT_EQ(mode, -7);
    EXPECT_EQ(calls.take(), Lines());
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileInFolder, ChangeParentAccessMode_OfAMissingFolder_SaysSoAtTheLowestLevel) {
    int mode = -7;
    EXPECT_EQ(File::changeParentAccessMode("folder/none/f", 0777, &mode), 0);
    EXPECT_EQ(mode, -7);
    EXPECT_EQ(mLog.lines(),
              (Lines{debug("is changeParentAccessMode func stat Failed. errno[2] Path:folder/none")}));
}

TEST(FileFields, StandInTheirOrder) {
    File const file("p", File::TEXT_UTF16_LITTLE);
    constexpr std::size_t PATH = sizeof(void*);
    constexpr std::size_t HANDLE = PATH + sizeof(utl::BasicString<char>);
    constexpr std::size_t TEXT_TYPE = HANDLE + sizeof(utl::SmartHandle<utl::DestructCloseFile>);
    EXPECT_EQ(utltest::fieldAt<char const*>(file, PATH + sizeof(void*)), file.getPath());
    EXPECT_EQ(utltest::fieldAt<int>(file, TEXT_TYPE), 3);
}

TEST(FileFields, TheDestructorIsTheOnlyVirtualOperation) {
    EXPECT_TRUE(std::has_virtual_destructor_v<File>);
    EXPECT_TRUE(std::has_virtual_destructor_v<File::AutoClose>);
    EXPECT_FALSE(std::is_copy_constructible_v<File>);
    EXPECT_FALSE(std::is_copy_assignable_v<File>);
}

TEST(FileNames, AreTheNumbersThatCallersPassAndGet) {
    static_assert(File::OPEN_KEEP == 0 && File::OPEN_AT_END == 1 && File::OPEN_EMPTY == 2);
    static_assert(File::ACCESS_READ == 0 && File::ACCESS_WRITE == 1 && File::ACCESS_READ_WRITE == 2);
    static_assert(File::FROM_START == 0 && File::FROM_END == 1 && File::FROM_POSITION == 2);
    static_assert(File::TEXT_SJIS == 0 && File::TEXT_UTF8 == 1);
    static_assert(File::TEXT_UTF16_BIG == 2 && File::TEXT_UTF16_LITTLE == 3);
    static_assert(File::TEXT_BYTES_MAX == 5119);
    static_assert(File::END_OF_FILE == -3 && File::KEY_NOT_FOUND == -2);
    static_assert(File::KEY_FROM_POSITION == 0xFFFFFFFFFFFFFFFEULL);
    static_assert(File::AT_KEY == 0 && File::AFTER_KEY == 1);
    static_assert(File::CHILD_FILES == 0 && File::CHILD_FOLDERS == 1 && File::CHILD_FILES_AND_FOLDERS == 2);
    static_assert(File::WITH_EXTENSION == 0 && File::WITHOUT_EXTENSION == 1);
    static_assert(File::PATH_ONLY == 0 && File::RECURSIVE == 1);
    static_assert(File::KEEP_EXISTING == 0 && File::OVERWRITE_EXISTING == 1);
    static_assert(File::KEEP_READ_ONLY == 0 && File::ERASE_READ_ONLY == 1);
}

TEST(FileTraits, WhatMakesNoSystemCallNeverThrows) {
    static_assert(noexcept(std::declval<File const&>().isOpened()));
    static_assert(noexcept(std::declval<File&>().flush()));
    static_assert(noexcept(std::declval<File&>().setTextType(0)));
    static_assert(noexcept(std::declval<File const&>().getPath()));
    static_assert(std::is_nothrow_constructible_v<File::AutoClose, File&>);
}

TEST(FileTraits, AutoClose_IsNotCopied) {
    static_assert(!std::is_copy_constructible_v<File::AutoClose>);
    static_assert(!std::is_copy_assignable_v<File::AutoClose>);
}

// At the limits.

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

    /// True once the program runs: it sends back what it got.
    bool answers() const {
        char byte = 'x';
        return write(mTo, &byte, 1) == 1 && read(mFrom, &byte, 1) == 1;
    }

  private:
    pid_t mProcess = -1;
    int mTo = -1;
    int mFrom = -1;
};

TEST_F(FileAtItsLimits, SizesAndPositionsAreWholeOnBothSidesOfTwoAndFourGibibytes) {
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

TEST_F(FileAtItsLimits, AWriteOnlyFileCannotBeRead_ExceptThatItHasAnEnd_AndAReaderCannotWrite) {
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

TEST_F(FileAtItsLimits, ALockOutlivesTheObject_AsLongAsAnotherProcessHasTheDescriptor) {
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

TEST_F(FileAtItsLimits, AProgramThatIsStartedWhileAFileIsOpen_KeepsNeitherItsDescriptorNorItsLock) {
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

TEST_F(FileAtItsLimits, FifosSocketsAndDevices_AreNotOpenedByWhatGoesThroughFolders) {
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

TEST_F(FileAtItsLimits, AFifoThatTakesTheFilesPlaceMeanwhile_BlocksNeitherProbeNorSizeNorCopy) {
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

TEST_F(FileAtItsLimits, AFifoThatTakesANewFilesPlaceMeanwhile_IsRefusedAtOnce) {
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

TEST_F(FileAtItsLimits, AWriterWhoseFolderIsGone_WritesWithALineAboutTheFolderAndCanMakeItAgain) {
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

TEST_F(FileAtItsLimits, EveryModeOfAFolderComesBack_AndNothingOfTheUmaskReachesAFile) {
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

TEST_F(FileAtItsLimits, APathOf259BytesIsServedByEveryOperation_AndOneOf260ByExistsAndIsReadOnlyAlone) {
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

class FifoFile : public FileAtItsLimits {
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

using FileOfThreads = utltest::InFolder;

TEST_F(FileOfThreads, Writers_OnThreadsOfTheirOwn_NeverHaveAFileTogether) {
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

}  // namespace

#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "TestAllocations.h"
#include "TestFileCalls.h"
#include "TestFiles.h"
#include "TestFolder.h"
#include "TestHooks.h"
#include "UtlAttribConvert.h"
#include "UtlFile.h"

namespace {

using namespace utltest;
using utl::File;
using HookScope = utltest::OwnHookScope;
namespace hooks = utltest::hooks;
using Lines = std::vector<std::string>;
using Names = utltest::NamesFound;
using Paths = utltest::PathsFound;

// One operation on one path, and what it returns.
struct OnePathCase {
    char const* name;
    std::string path;
    long long expected;
    long long (*call)(char const*);
};

long long childrenOf(char const* path) {
    Paths paths(0, 1);
    return File::children(path, &paths, File::CHILD_FILES_AND_FOLDERS, nullptr, 0);
}

TEST_F(FileSystem, StaticOperations_TakeABackslashForASlashAndLeaveTheCallersText) {
    putFolder("a/b");
    putFile("a/b/file", "x");
    putFile("a/b/held", "x");
    File held("a/b/held", File::TEXT_UTF8);
    ASSERT_EQ(held.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    std::string const file = "a\\b\\file";
    std::string const copied = "a\\b\\copied";
    OnePathCase const cases[] = {
        {"exists", file, 1, [](char const* path) -> long long { return File::exists(path); }},
        {"isDirectory", "a\\b", 1, [](char const* path) -> long long { return File::isDirectory(path); }},
        {"applyReadOnly", file, 1,
         [](char const* path) -> long long { return File::applyReadOnly(path, File::PATH_ONLY); }},
        {"isReadOnly", file, 1, [](char const* path) -> long long { return File::isReadOnly(path); }},
        {"liftReadOnly", file, 1,
         [](char const* path) -> long long { return File::liftReadOnly(path, File::PATH_ONLY); }},
        {"makeDirectories", "a\\b\\c\\d", 1,
         [](char const* path) -> long long { return File::makeDirectories(path); }},
        {"children", "a\\b", 3, childrenOf},
        {"isOpened", "a\\b\\held", 1,
         [](char const* path) -> long long { return File::isOpened(path, nullptr); }},
        {"copy from", file, 1,
         [](char const* path) -> long long { return File::copy(path, "new", File::KEEP_EXISTING); }},
        {"copy to", copied, 1,
         [](char const* path) -> long long { return File::copy("new", path, File::KEEP_EXISTING); }},
        {"move from", file, 1, [](char const* path) -> long long { return File::move(path, "moved"); }},
        {"move to", file, 1, [](char const* path) -> long long { return File::move("moved", path); }},
        {"size", copied, 1, [](char const* path) -> long long { return File::size(path); }},
        {"erase", copied, 1,
         [](char const* path) -> long long { return File::erase(path, File::KEEP_READ_ONLY); }},
        {"changeParentAccessMode", file, 1,
         [](char const* path) -> long long { return File::changeParentAccessMode(path, 0711, nullptr); }},
    };
    for (OnePathCase const& operation : cases) {
        std::string text = operation.path;
        EXPECT_EQ(operation.call(text.data()), operation.expected) << operation.name;
        EXPECT_EQ(text, operation.path) << operation.name;
    }
    EXPECT_EQ(permissions("a/b/c/d"), 0777);
    EXPECT_EQ(contentOf("a/b/file"), "x");
    EXPECT_EQ(permissions("a/b/copied"), -1);
    EXPECT_EQ(permissions("a/b"), 0711);
    EXPECT_EQ(mLog.lines(), Lines());
}

// Operations that walk through a folder, with the result for a path that ends in a separator.
OnePathCase const WALKS[] = {
    {"size", "dir/", -1, [](char const* path) { return File::size(path); }},
    {"copy from", "dir/", 0,
     [](char const* path) -> long long { return File::copy(path, "copied", File::OVERWRITE_EXISTING); }},
    {"copy to", "copied/", 0,
     [](char const* path) -> long long { return File::copy("dir", path, File::OVERWRITE_EXISTING); }},
    {"applyReadOnly", "dir/", 0,
     [](char const* path) -> long long { return File::applyReadOnly(path, File::RECURSIVE); }},
    {"liftReadOnly", "dir/", 0,
     [](char const* path) -> long long { return File::liftReadOnly(path, File::RECURSIVE); }},
    {"erase", "dir/", 0,
     [](char const* path) -> long long { return File::erase(path, File::ERASE_READ_ONLY); }},
};

TEST_F(FileSystem, Walks_FromAPathThatEndsInASeparator_EndAtTheFirstEntryWithoutALine) {
    putFolder("dir");
    putFile("dir/file", "x");
    for (OnePathCase const& walk : WALKS) {
        EXPECT_EQ(walk.call(walk.path.c_str()), walk.expected) << walk.name;
    }
    EXPECT_EQ(contentOf("dir/file"), "x");
    EXPECT_EQ(children("copied"), Names());
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Walks_OfAnEmptyFolder_DoNotMindASeparatorAtItsEnd) {
    putFolder("dir");
    for (OnePathCase const& walk : WALKS) {
        EXPECT_EQ(walk.call(walk.path.c_str()), walk.expected + 1) << walk.name;
    }
    EXPECT_EQ(permissions("dir"), -1);
    EXPECT_EQ(permissions("copied"), 0777);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Children_OfTheRoot_HaveADoubledSeparatorInFrontThatNothingElseTakes) {
    Names const names = children("/");
    ASSERT_FALSE(names.empty());
    for (std::string const& name : names) {
        EXPECT_EQ(name.compare(0, 2, "//"), 0) << name;
        EXPECT_EQ(File::isDirectory(name.c_str()), 0) << name;
    }
}

TEST_F(FileSystem, SizeAndIsOpened_OfAPath_NeedNoMemory) {
    putFile("file", "12345");
    EXPECT_EQ(utltest::allocationsOf([] { EXPECT_EQ(File::size("file"), 5); }), 0U);
    EXPECT_EQ(utltest::allocationsOf([] { EXPECT_EQ(File::isOpened("file", nullptr), 0); }), 0U);
}

TEST_F(FileSystem, Exists_IsTrueForWhateverIsThere) {
    putFolder("folder");
    putFile("folder/file", "");
    EXPECT_EQ(symlink("folder", "link"), 0);
    EXPECT_EQ(symlink("nothing", "dangling"), 0);
    for (char const* const path : {"folder", "folder/", "folder/file", "folder\\file", "link", ".", "/"}) {
        EXPECT_EQ(File::exists(path), 1) << path;
        EXPECT_EQ(File(path, File::TEXT_UTF8).exists(), 1) << path;
    }
    for (char const* const path : {"", "none", "folder/file/", "dangling"}) {
        EXPECT_EQ(File::exists(path), 0) << path;
        EXPECT_EQ(File(path, File::TEXT_UTF8).exists(), 0) << path;
    }
    EXPECT_EQ(File::exists(nullptr), 0);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Exists_HasNoPathCheckWhereIsDirectoryHasOne) {
    putFolder("a/b");
    EXPECT_EQ(File::exists("a//b"), 1);
    EXPECT_EQ(File::isDirectory("a//b"), 0);
    EXPECT_EQ(File::exists(pathOfLength(1000, "a/b").c_str()), 1);
    for (unsigned int const length : {258U, 259U, 260U, 261U}) {
        std::string const path = pathOfLength(length, "a/b");
        EXPECT_EQ(File::exists(path.c_str()), 1);
        EXPECT_EQ(File::isDirectory(path.c_str()), length < 260 ? 1 : 0) << length;
    }
    EXPECT_EQ(File::exists(std::string(5000, 'n').c_str()), 0);
}

TEST_F(FileSystem, IsDirectory_IsTrueForFoldersAlone) {
    putFolder("folder");
    putFile("file", "");
    EXPECT_EQ(symlink("folder", "link"), 0);
    for (char const* const path : {"folder", "folder/", "link", ".", "/"}) {
        EXPECT_EQ(File::isDirectory(path), 1) << path;
        EXPECT_EQ(File(path, File::TEXT_UTF8).isDirectory(), 1) << path;
    }
    for (char const* const path : {"", "none", "file"}) {
        EXPECT_EQ(File::isDirectory(path), 0) << path;
        EXPECT_EQ(File(path, File::TEXT_UTF8).isDirectory(), 0) << path;
    }
    EXPECT_EQ(File::isDirectory(nullptr), 0);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, IsReadOnly_LooksAtTheOwnersWriteBitAlone) {
    putFile("file", "");
    for (mode_t const mode : {0000, 0444, 0577, 0055}) {
        chmod("file", mode);
        EXPECT_EQ(File::isReadOnly("file"), 1);
        EXPECT_EQ(File("file", File::TEXT_UTF8).isReadOnly(), 1);
    }
    for (mode_t const mode : {0200, 0600, 0777}) {
        chmod("file", mode);
        EXPECT_EQ(File::isReadOnly("file"), 0);
        EXPECT_EQ(File("file", File::TEXT_UTF8).isReadOnly(), 0);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, IsReadOnly_HasNoPathCheck) {
    putFolder("folder");
    putFile("folder/file", "");
    chmod("folder/file", 0444);
    EXPECT_EQ(File::isReadOnly("folder//file"), 1);
    EXPECT_EQ(File::isReadOnly("folder\\\\file"), 1);
    EXPECT_EQ(File::isReadOnly(pathOfLength(400, "folder/file").c_str()), 1);
}

TEST_F(FileSystem, IsReadOnly_OfNullOrAMissingFile_IsFalseAndSaysSo) {
    EXPECT_EQ(File::isReadOnly(nullptr), 0);
    EXPECT_EQ(File::isReadOnly("no\\ne"), 0);
    EXPECT_EQ(mLog.lines(), (Lines{error("isReadOnly func 0 == npPath false"),
                                   error("is isReadOnly func stat Failed. errno[2] Path:no/ne")}));
}

TEST_F(FileSystem, Questions_AreReportedUnderTheirNames) {
    FileCalls calls;
    EXPECT_EQ(File::exists("."), 1);
    EXPECT_EQ(File::isDirectory("."), 1);
    EXPECT_EQ(File::isReadOnly("."), 0);
    EXPECT_EQ(calls.take(), (Lines{"exists: stat .", "isDirectory: stat .", "isReadOnly: stat ."}));
}

TEST_F(FileSystem, MakeDirectories_MakesEveryLevelWithMode0777WhateverTheUmask) {
    for (char const* const path : {"a/b/c", "a/b/c/", "a\\b\\c", "a\\b\\c\\"}) {
        mode_t const old = umask(0777);
        EXPECT_EQ(File::makeDirectories(path), 1);
        umask(old);
        for (char const* const folder : {"a", "a/b", "a/b/c"}) {
            EXPECT_EQ(permissions(folder), 0777);
        }
        std::filesystem::remove_all("a");
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, MakeDirectories_OfAFolderThatIsThere_ChangesNothing) {
    putFolder("folder", 0700);
    File folder("folder/", File::TEXT_UTF8);
    FileCalls calls;
    EXPECT_EQ(File::makeDirectories("folder"), 1);
    EXPECT_EQ(folder.makeDirectories(), 1);
    EXPECT_EQ(calls.take(), (Lines{"exists: stat folder", "isDirectory: stat folder", "exists: stat folder/",
                                   "isDirectory: stat folder/"}));
    EXPECT_EQ(permissions("folder"), 0700);
}

TEST_F(FileSystem, MakeDirectories_WidensTheFoldersOnItsWayForGood) {
    putFolder("a/b", 0750);
    putFolder("a", 0700);
    EXPECT_EQ(File::makeDirectories("a/b/c"), 1);
    EXPECT_EQ(permissions("a"), 0777);
    EXPECT_EQ(permissions("a/b"), 0777);
    EXPECT_EQ(permissions("a/b/c"), 0777);
}

TEST_F(FileSystem, MakeDirectories_MakesTheseCallsInThisOrder) {
    putFolder("a", 0700);
    FileCalls calls;
    EXPECT_EQ(File::makeDirectories("a/b"), 1);
    EXPECT_EQ(
        calls.take(),
        (Lines{"exists: stat a/b",
               // "a/" has no folder before it that could be widened, and is there.
               "makeDirectories: mkdir a/ 777", "isDirectory: stat a/", "makeDirectories: chmod a/ 777",
               // "a/b/" is new; its folder has been widened permanently, which leaves nothing to put back.
               "changeParentAccessMode: stat a", "changeParentAccessMode: chmod a 777",
               "makeDirectories: mkdir a/b/ 777", "makeDirectories: chmod a/b/ 777",
               "makeDirectories: open a RDONLY+DIRECTORY", "-: fsync", "-: close",
               "changeParentAccessMode: stat a",
               // The whole path comes once more.
               "changeParentAccessMode: stat a", "changeParentAccessMode: chmod a 777",
               "makeDirectories: mkdir a/b/ 777", "changeParentAccessMode: stat a", "isDirectory: stat a/b/",
               "makeDirectories: chmod a/b/ 777", "changeParentAccessMode: stat a"}));
}

TEST_F(FileSystem, MakeDirectories_SyncsTheParentOfEachFolderThatItMakesAndOfNoOther) {
    putFolder("there");
    std::pair<char const*, Lines> const cases[] = {
        {"new", {"."}},
        {"./dot/x", {".", "./dot"}},
        {"there", {}},
        {"there/a/b", {"there", "there/a"}},
        {"there/a/b/c/", {"there/a/b"}},
    };
    for (auto const& [path, expected] : cases) {
        FileCalls calls;
        EXPECT_EQ(File::makeDirectories(path), 1) << path;
        Lines const lines = calls.take();
        Lines synced;
        for (std::size_t i = 0; i < lines.size(); ++i) {
            std::string const begin = "makeDirectories: open ";
            if (lines[i].rfind(begin, 0) == 0) {
                ASSERT_LT(i + 2, lines.size());
                EXPECT_EQ(lines[i + 1] + lines[i + 2], "-: fsync-: close");
                synced.push_back(lines[i].substr(begin.size(), lines[i].rfind(' ') - begin.size()));
            }
        }
        EXPECT_EQ(synced, expected) << path;
    }
    chmod(".", 0755);  // was on the way, too
}

TEST_F(FileSystem, MakeDirectories_DirectlyInTheRoot_SyncsTheRoot) {
    FileCalls calls;
    hooks::chmod.replace([](char const*, mode_t) { return 0; });
    hooks::mkdir.replace([](char const* path, mode_t) {
        errno = EEXIST;
        return path == std::string("/") ? -1 : 0;
    });
    EXPECT_EQ(File::makeDirectories("/no-such-folder-at-all"), 1);
    Lines const lines = calls.take();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "makeDirectories: open / RDONLY+DIRECTORY"), 2);
}

// The machine's own root is in the way of an absolute path: nothing is really changed here.
TEST_F(FileSystem, MakeDirectories_OfAnAbsolutePath_BeginsWithTheRoot) {
    FileCalls calls;
    hooks::chmod.replace([](char const*, mode_t) { return 0; });
    hooks::mkdir.replace([](char const*, mode_t) {
        errno = EEXIST;
        return -1;
    });
    EXPECT_EQ(File::makeDirectories("/no-such-folder-at-all"), 0);
    EXPECT_EQ(calls.takeCalls(),
              (Lines{"stat /no-such-folder-at-all", "mkdir / 777", "stat /", "chmod / 777",
                     "mkdir /no-such-folder-at-all/ 777", "stat /no-such-folder-at-all/"}));
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, MakeDirectories_OfAnEmptyPath_IsTheCurrentFolder) {
    FileCalls calls;
    EXPECT_EQ(File::makeDirectories(""), 1);
    EXPECT_EQ(calls.take(), Lines());
}

TEST_F(FileSystem, MakeDirectories_OfNullOrAPathThatFailsTheCheck_IsFalseWithoutALine) {
    for (char const* const path : {static_cast<char const*>(nullptr), "a//b", "a\\\\b", "//"}) {
        EXPECT_EQ(File::makeDirectories(path), 0);
    }
    EXPECT_EQ(permissions("a"), -1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, MakeDirectories_OfAPathThatIsNotUtf8_IsTrueOnlyIfItIsThere) {
    putFolder("a\xFF");
    EXPECT_EQ(File::makeDirectories("a\xFF"), 1);
    EXPECT_EQ(File::makeDirectories("b\xFF"), 0);
    EXPECT_EQ(permissions("b\xFF"), -1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, MakeDirectories_TakesAPathOf259BytesAndRefusesOneOf260) {
    for (unsigned int const length : {258U, 259U, 260U}) {
        std::string const base = std::string(200, 'x') + "/";
        std::string const path = base + std::string(length - base.size(), 'y');
        EXPECT_EQ(File::makeDirectories(path.c_str()), length < 260 ? 1 : 0);
        EXPECT_EQ(permissions(path), length < 260 ? 0777 : -1);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, MakeDirectories_OfAPathOf259Bytes_WidensItsFolderToo) {
    std::string const base(200, 'x');
    putFolder(base);
    FileCalls calls;
    EXPECT_EQ(File::makeDirectories((base + "/" + std::string(58, 'y')).c_str()), 1);
    Lines const lines = calls.takeCalls();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "chmod " + base + " 777"), 2);
}

TEST_F(FileSystem, MakeDirectories_ThroughAFile_IsFalseWithoutALine) {
    putFolder("a");
    putFile("a/file", "");
    EXPECT_EQ(File::makeDirectories("a/file"), 0);
    EXPECT_EQ(File::makeDirectories("a/file/b"), 0);
    EXPECT_EQ(mLog.lines(), Lines());
    EXPECT_EQ(permissions("a"), 0777);
}

TEST_F(FileSystem, Children_ListsWithoutDotNamesWhatTheKindAsksFor) {
    putFolder("dir/sub");
    putFile("dir/file", "");
    EXPECT_EQ(symlink("sub", "dir/link"), 0);
    EXPECT_EQ(children("dir", File::CHILD_FILES), (Names{"dir/file", "dir/link"}));
    EXPECT_EQ(children("dir", File::CHILD_FOLDERS), (Names{"dir/sub"}));
    EXPECT_EQ(children("dir", File::CHILD_FILES_AND_FOLDERS), (Names{"dir/file", "dir/link", "dir/sub"}));
    for (int const kind : {-1, 3, INT_MIN, INT_MAX}) {
        EXPECT_EQ(children("dir", kind), (Names{"-1"}));
    }
}

TEST_F(FileSystem, Children_OfTheObjectsPath) {
    putFolder("dir");
    putFile("dir/a.txt", "");
    Paths paths(0, 1);
    EXPECT_EQ(File("dir", File::TEXT_UTF8).children(&paths, File::CHILD_FILES, "txt", 0), 1);
    EXPECT_EQ(namesIn(paths), (Names{"dir/a.txt"}));
}

TEST_F(FileSystem, Children_OfAnEmptyFolder_Is0) {
    putFolder("dir");
    EXPECT_EQ(children("dir"), Names());
    EXPECT_EQ(children("dir/*"), Names());
}

TEST_F(FileSystem, Children_NamesThePathAsGivenWithSlashes) {
    putFolder("x/dir");
    putFile("x/dir/f", "");
    EXPECT_EQ(children("x\\dir"), (Names{"x/dir/f"}));
    EXPECT_EQ(children("x/dir/"), (Names{"x/dir//f"}));
    EXPECT_EQ(children("./x/dir"), (Names{"./x/dir/f"}));
}

TEST_F(FileSystem, Children_OfAFileIs0AndOfNothingMinusOne) {
    putFile("file", "");
    EXPECT_EQ(children("file"), Names());
    EXPECT_EQ(children("none"), (Names{"-1"}));
    EXPECT_EQ(children(""), (Names{"-1"}));
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Children_OfNullOrAPathThatFailsTheCheck_IsMinusOne) {
    putFolder("dir/sub");
    Paths paths(0, 1);
    EXPECT_EQ(File::children("dir", nullptr, 2, nullptr, 0), -1);
    EXPECT_EQ(children(nullptr), (Names{"-1"}));
    EXPECT_EQ(children("dir//sub"), (Names{"-1"}));
    for (unsigned int const length : {259U, 260U}) {
        EXPECT_EQ(File::children(pathOfLength(length, "dir").c_str(), &paths, File::CHILD_FILES_AND_FOLDERS,
                                 nullptr, 0),
                  length == 259 ? 1 : -1);
    }
}

TEST_F(FileSystem, Children_EmptiesTheResultFirstAndKeepsItsStorage) {
    Paths paths(4, 0);
    EXPECT_TRUE(paths.insertAt(0, "old"));
    EXPECT_EQ(File::children("none", &paths, File::CHILD_FILES_AND_FOLDERS, nullptr, 0), -1);
    EXPECT_EQ(paths.size(), 0U);
    EXPECT_TRUE(paths.insertAt(0, "old"));
    EXPECT_EQ(File::children(".", &paths, 3, nullptr, 0), -1);
    EXPECT_EQ(paths.size(), 0U);
    EXPECT_EQ(paths.maxSize(), 4U);
    EXPECT_TRUE(paths.insertAt(0, "old"));
    EXPECT_EQ(File::children(nullptr, &paths, File::CHILD_FILES_AND_FOLDERS, nullptr, 0), -1);
    EXPECT_EQ(paths.size(), 1U);
}

TEST_F(FileSystem, Children_FilterFilesAndNotFoldersByExtension) {
    putFolder("dir/sub.txt");
    putFolder("dir/sub");
    for (char const* const name : {"a.txt", "b.TXT", "c.Txt", "d.txt.gz", "e", "f.", "txt", ".txt"}) {
        putFile(std::string("dir/") + name, "");
    }
    Names const texts{"dir/a.txt", "dir/b.TXT", "dir/c.Txt", "dir/.txt"};
    EXPECT_EQ(children("dir", File::CHILD_FILES, "TXT"), texts);
    EXPECT_EQ(children("dir", File::CHILD_FILES, "txt"), texts);
    EXPECT_EQ(children("dir", File::CHILD_FILES, ""), (Names{"dir/e", "dir/f.", "dir/txt"}));
    EXPECT_EQ(children("dir", File::CHILD_FILES, ".txt"), Names());
    EXPECT_EQ(children("dir", File::CHILD_FOLDERS, "gz"), (Names{"dir/sub.txt", "dir/sub"}));
    EXPECT_EQ(children("dir", File::CHILD_FILES_AND_FOLDERS, "gz"),
              (Names{"dir/d.txt.gz", "dir/sub.txt", "dir/sub"}));
}

TEST_F(FileSystem, Children_FoldsTheCaseOfFullWidthLettersInExtensions) {
    putFolder("dir");
    putFile("dir/a.ｔｘｔ", "");
    EXPECT_EQ(children("dir", File::CHILD_FILES, "ＴＸＴ"), (Names{"dir/a.ｔｘｔ"}));
    EXPECT_EQ(children("dir", File::CHILD_FILES, "txt"), Names());
}

TEST_F(FileSystem, Children_FoldTheCaseOfEveryExtensionAsCompareStrNoCaseDoes) {
    putFolder("dir");
    Lines extensions{"é", "É", "Ａ", "ａ", "aＡ", "Aａ"};
    for (char letter = '!'; letter <= '~'; ++letter) {
        if (std::string("./\\").find(letter) == std::string::npos) {
            extensions.push_back(std::string(1, letter));
        }
    }
    for (std::string const& extension : extensions) {
        putFile("dir/x." + extension, "");
    }
    for (std::string const& wanted : extensions) {
        Names expected;
        for (std::string const& extension : extensions) {
            if (utl::compareStrNoCase(extension.c_str(), wanted.c_str(), utl::INVALID_SIZE) == 0) {
                expected.insert("dir/x." + extension);
            }
        }
        EXPECT_EQ(children("dir", File::CHILD_FILES, wanted.c_str()), expected) << wanted;
    }
    EXPECT_EQ(children("dir", File::CHILD_FILES, std::string(300, 'a').c_str()), Names());
    EXPECT_EQ(children("dir", File::CHILD_FILES, "a\xFF"), Names());
}

TEST_F(FileSystem, Children_WithAnExtension_LeavesOutNamesThatCannotBeDissected) {
    putFolder("dir");
    putFile("dir/\xFF.txt", "");
    putFile("dir/a\\\\b.txt", "");
    putFile("dir/a\\c.txt", "");
    EXPECT_EQ(children("dir", File::CHILD_FILES, "txt"), (Names{"dir/a\\c.txt"}));
    EXPECT_EQ(children("dir", File::CHILD_FILES), (Names{"dir/\xFF.txt", "dir/a\\\\b.txt", "dir/a\\c.txt"}));
}

TEST_F(FileSystem, Children_ListsAFileNameOf255Bytes) {
    putFolder("dir");
    std::string const name = std::string(251, 'n') + ".txt";
    putFile("dir/" + name, "");
    EXPECT_EQ(children("dir", File::CHILD_FILES, "txt"), (Names{"dir/" + name}));
}

TEST_F(FileSystem, Children_MatchThePatternToTheLetter) {
    putFolder("dir/d.txt");
    for (char const* const name : {"a.txt", "b.TXT", "ab.txt", "c.bin", ".txt"}) {
        putFile(std::string("dir/") + name, "");
    }
    EXPECT_EQ(children("dir/*.txt", File::CHILD_FILES), (Names{"dir/a.txt", "dir/ab.txt", "dir/.txt"}));
    EXPECT_EQ(children("dir\\?.txt", File::CHILD_FILES_AND_FOLDERS), (Names{"dir/a.txt", "dir/d.txt"}));
    EXPECT_EQ(children("dir/[ab].*"), (Names{"dir/a.txt", "dir/b.TXT"}));
    EXPECT_EQ(children("dir/*.txt", File::CHILD_FOLDERS), (Names{"dir/d.txt"}));
    EXPECT_EQ(children("dir/[abc].*", File::CHILD_FILES, "Bin"), (Names{"dir/c.bin"}));
    EXPECT_EQ(children("dir/*.none"), Names());
    EXPECT_EQ(children("dir/[x"), Names());
}

TEST_F(FileSystem, Children_MatchAQuestionMarkWithAByte) {
    putFolder("dir");
    putFile("dir/あ", "");
    EXPECT_EQ(children("dir/?"), Names());
    EXPECT_EQ(children("dir/???"), (Names{"dir/あ"}));
}

TEST_F(FileSystem, Children_OfAPatternWithoutAFolderOrInAFolder_IsMinusOne) {
    putFolder("dir/x");
    EXPECT_EQ(children("dir/*/x"), (Names{"-1"}));
    EXPECT_EQ(children("d?r/x"), (Names{"-1"}));
    EXPECT_EQ(children("dir/*/"), (Names{"-1"}));
    EXPECT_EQ(children("none/*"), (Names{"-1"}));
    EXPECT_EQ(children("*"), (Names{"-1"}));
    EXPECT_EQ(children("./*"), (Names{"./dir"}));
}

TEST_F(FileSystem, Children_OfAFolderWhoseNameLooksLikeAPattern_AreItsOwn) {
    putFolder("d[1]*");
    putFile("d[1]*/f", "");
    EXPECT_EQ(children("d[1]*"), (Names{"d[1]*/f"}));
}

TEST_F(FileSystem, Children_OfAFileUnderAPattern_IsMinusOne) {
    putFile("file", "");
    EXPECT_EQ(children("file/*"), (Names{"-1"}));
}

TEST_F(FileSystem, Children_StopsAtTheMaximumWithoutReadingOn) {
    putFolder("dir");
    for (int i = 0; i < 10; ++i) {
        putFile("dir/" + std::to_string(i), "");
    }
    for (unsigned int const maximum : {1U, 3U, 9U, 10U, 11U, 0U, ~0U}) {
        Paths paths(0, 1);
        unsigned int const expected = maximum == 0 ? 10U : std::min(maximum, 10U);
        EXPECT_EQ(File::children("dir", &paths, File::CHILD_FILES_AND_FOLDERS, nullptr, maximum),
                  static_cast<int>(expected));
        EXPECT_EQ(namesIn(paths).size(), expected);
    }
    FileCalls calls;
    Paths paths(0, 1);
    hooks::readdir.replace([](DIR* folder) {
        dirent* entry = hooks::readdir.real(folder);
        while (entry != nullptr && entry->d_name[0] == '.') {
            entry = hooks::readdir.real(folder);
        }
        return entry;
    });
    EXPECT_EQ(File::children("dir", &paths, File::CHILD_FILES_AND_FOLDERS, nullptr, 2), 2);
    EXPECT_EQ(calls.take(), (Lines{"isDirectory: stat dir", "exists: stat dir", "children: opendir dir",
                                   "children: readdir", "children: readdir", "children: closedir"}));
}

TEST_F(FileSystem, Children_IntoAnArrayThatGrows_LeavesTheCapacityOfOneGrowthForEach) {
    putFolder("dir");
    for (int i = 0; i < 40; ++i) {
        putFile("dir/" + std::to_string(i), "");
    }
    for (unsigned int const capacity : {0U, 1U, 32U, 39U, 40U, 41U, 100U}) {
        Paths paths(capacity, 1);
        EXPECT_EQ(File::children("dir", &paths, File::CHILD_FILES_AND_FOLDERS, nullptr, 0), 40);
        EXPECT_EQ(paths.maxSize(), std::max(capacity, 40U));
        EXPECT_EQ(namesIn(paths).size(), 40U);
        for (unsigned int i = 0; i < 40 && capacity < 40; ++i) {
            EXPECT_EQ(paths.getAt(i)->maxSize(), paths.getAt(i)->length() + 1);
        }
    }
}

TEST_F(FileSystem, Children_IntoAFixedArrayThatIsFull_IsMinusOneAndKeepsWhatFitted) {
    putFolder("dir");
    for (int i = 0; i < 5; ++i) {
        putFile("dir/" + std::to_string(i), "");
    }
    for (unsigned int const capacity : {0U, 1U, 4U, 5U, 6U}) {
        Paths paths(capacity, 0);
        EXPECT_EQ(File::children("dir", &paths, File::CHILD_FILES_AND_FOLDERS, nullptr, 0),
                  capacity < 5 ? -1 : 5);
        EXPECT_EQ(namesIn(paths).size(), std::min(capacity, 5U));
        EXPECT_EQ(paths.maxSize(), capacity);
    }
}

TEST_F(FileSystem, Children_KeepsTheOrderOfTheSystem) {
    putFolder("dir");
    for (int i = 0; i < 100; ++i) {
        putFile("dir/" + std::to_string(i * 7919), "");
    }
    Lines expected;
    DIR* const folder = opendir("dir");
    while (dirent const* const entry = readdir(folder)) {
        if (entry->d_name[0] != '.') {
            expected.push_back(std::string("dir/") + entry->d_name);
        }
    }
    closedir(folder);
    for (unsigned int const capacity : {0U, 50U, 100U}) {
        Paths paths(capacity, 1);
        EXPECT_EQ(File::children("dir", &paths, File::CHILD_FILES_AND_FOLDERS, nullptr, 0), 100);
        Lines found;
        for (unsigned int i = 0; i < paths.size(); ++i) {
            found.push_back(paths.getAt(i)->buffer());
        }
        EXPECT_EQ(found, expected);
    }
}

TEST_F(FileSystem, Children_ListsTwentyThousandEntries) {
    putFolder("dir");
    for (int i = 0; i < 20000; ++i) {
        std::string const path = "dir/" + std::to_string(i) + (i % 2 == 0 ? ".txt" : ".bin");
        close(creat(path.c_str(), 0600));
    }
    Paths paths(32, 1);
    EXPECT_EQ(File::children("dir", &paths, File::CHILD_FILES, "TXT", 0), 10000);
    EXPECT_EQ(paths.maxSize(), 10000U);
    Names const names = namesIn(paths);
    EXPECT_EQ(names.size(), 10000U);
    EXPECT_EQ(names.count("dir/19998.txt"), 1U);
}

TEST_F(FileSystem, ApplyReadOnly_GivesTheMode0555) {
    putFile("file", "");
    putFolder("dir/sub");
    FileCalls calls;
    EXPECT_EQ(File::applyReadOnly("file", File::PATH_ONLY), 1);
    EXPECT_EQ(calls.take(),
              (Lines{"exists: stat file", "applyReadOnly: chmod file 555", "isReadOnly: stat file"}));
    EXPECT_EQ(File("dir", File::TEXT_UTF8).applyReadOnly(File::PATH_ONLY), 1);
    EXPECT_EQ(permissions("file"), 0555);
    EXPECT_EQ(permissions("dir"), 0555);
    EXPECT_EQ(permissions("dir/sub"), 0755);
}

TEST_F(FileSystem, ApplyReadOnly_Recursive_GoesThroughTheWholeTree) {
    putTree();
    EXPECT_EQ(File::applyReadOnly("tree", File::RECURSIVE), 1);
    for (char const* const path : {"tree", "tree/a", "tree/inner", "tree/inner/b", "tree/inner/deep",
                                   "tree/inner/deep/c", "tree/empty"}) {
        EXPECT_EQ(permissions(path), 0555) << path;
    }
    EXPECT_EQ(File("tree", File::TEXT_UTF8).liftReadOnly(File::RECURSIVE), 1);
    EXPECT_EQ(permissions("tree/inner/deep/c"), 0777);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, ReadOnly_RecursesWithTheFlag1Alone) {
    for (int const flag : {0, 2, -1}) {
        putTree();
        EXPECT_EQ(File::applyReadOnly("tree", flag), 1);
        EXPECT_EQ(permissions("tree/inner"), 0755);
        EXPECT_EQ(File::liftReadOnly("tree", flag), 1);
    }
}

TEST_F(FileSystem, LiftReadOnly_GivesTheMode0777ToWhatIsReadOnlyAlone) {
    putFile("locked", "");
    chmod("locked", 0444);
    putFile("free", "");
    chmod("free", 0600);
    FileCalls calls;
    EXPECT_EQ(File::liftReadOnly("locked", File::PATH_ONLY), 1);
    EXPECT_EQ(calls.take(), (Lines{"exists: stat locked", "isReadOnly: stat locked",
                                   "liftReadOnly: chmod locked 777", "isReadOnly: stat locked"}));
    EXPECT_EQ(File::liftReadOnly("free", File::PATH_ONLY), 1);
    EXPECT_EQ(calls.take(), (Lines{"exists: stat free", "isReadOnly: stat free", "isReadOnly: stat free"}));
    EXPECT_EQ(permissions("locked"), 0777);
    EXPECT_EQ(permissions("free"), 0600);
}

TEST_F(FileSystem, ReadOnly_OfWhatIsNotThereOrFailsTheCheck_IsFalseWithoutALine) {
    putFolder("a/b");
    for (char const* const path : {static_cast<char const*>(nullptr), "none", "a//b", ""}) {
        EXPECT_EQ(File::applyReadOnly(path, File::RECURSIVE), 0);
        EXPECT_EQ(File::liftReadOnly(path, File::RECURSIVE), 0);
    }
    EXPECT_EQ(permissions("a/b"), 0755);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, ReadOnly_ThatHasNoEffect_SaysSo) {
    putFile("free", "");
    putFile("locked", "");
    chmod("locked", 0444);
    HookScope const scope;
    hooks::chmod.replace([](char const*, mode_t) { return 0; });
    EXPECT_EQ(File::applyReadOnly("free", File::PATH_ONLY), 0);
    EXPECT_EQ(File::liftReadOnly("locked", File::PATH_ONLY), 0);
    EXPECT_EQ(mLog.lines(),
              (Lines{error("applyReadOnly can't change free"), error("liftReadOnly can't change locked")}));
}

TEST_F(FileSystem, IsOpened_TellsReadersWritersAndNobodyApart) {
    putFile("file", "x");
    File file("file", File::TEXT_UTF8);
    int const expected[][3] = {{0, 1, 1}, {1, 1, 0}, {2, 1, 0}};
    for (auto const& [access, opened, shared] : expected) {
        ASSERT_EQ(file.open(0, access), 1);
        bool sharedOnly = opened == shared;
        EXPECT_EQ(File::isOpened("file", &sharedOnly), opened);
        EXPECT_EQ(sharedOnly, shared == 1);
        EXPECT_EQ(File::isOpened("file", nullptr), opened);
        EXPECT_EQ(file.close(), 1);
        sharedOnly = true;
        EXPECT_EQ(File::isOpened("file", &sharedOnly), 0);
        EXPECT_FALSE(sharedOnly);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, IsOpened_MakesTheseCallsInThisOrder) {
    putFile("file", "x");
    File file("file", File::TEXT_UTF8);
    ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    FileCalls calls;
    EXPECT_EQ(File::isOpened("file", nullptr), 1);
    EXPECT_EQ(calls.take(),
              (Lines{"isDirectory: stat file", "exists: stat file", "isOpened: open file RDONLY+NONBLOCK 777",
                     "isOpened: flock 6", "isOpened: flock 5", "-: fsync", "-: close"}));
    EXPECT_EQ(file.close(), 1);
    calls.take();
    EXPECT_EQ(File::isOpened("file", nullptr), 0);
    EXPECT_EQ(calls.take(),
              (Lines{"isDirectory: stat file", "exists: stat file", "isOpened: open file RDONLY+NONBLOCK 777",
                     "isOpened: flock 6", "-: fsync", "-: close"}));
}

// The `errno` of the two locks that a probe asks for, 0 for a lock, and what the probe says then.
struct ProbeCase {
    int exclusive;
    int shared;
    int isOpened;
    bool sharedOnly;
};

ProbeCase gProbe;

TEST_F(FileSystem, IsOpened_TakesAFileForHeldOnlyWhereALockWouldBlock) {
    putFile("file", "x");
    ProbeCase const cases[] = {{EWOULDBLOCK, 0, 1, true},
                               {EWOULDBLOCK, EWOULDBLOCK, 1, false},
                               {EWOULDBLOCK, ENOLCK, 1, false},
                               {EBADF, EWOULDBLOCK, 1, false},
                               {EBADF, 0, 0, false},
                               {EBADF, EBADF, 0, false},
                               {EBADF, ENOLCK, 0, false},
                               {ENOLCK, EWOULDBLOCK, 0, false},
                               {EOPNOTSUPP, EWOULDBLOCK, 0, false},
                               {EIO, EWOULDBLOCK, 0, false}};
    HookScope const scope;
    hooks::flock.replace([](int, int operation) {
        errno = (operation & LOCK_EX) != 0 ? gProbe.exclusive : gProbe.shared;
        return errno == 0 ? 0 : -1;
    });
    for (ProbeCase const& probe : cases) {
        gProbe = probe;
        bool sharedOnly = !probe.sharedOnly;
        EXPECT_EQ(File::isOpened("file", &sharedOnly), probe.isOpened) << probe.exclusive << probe.shared;
        EXPECT_EQ(sharedOnly, probe.sharedOnly) << probe.exclusive << probe.shared;
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, IsOpened_OfWhatCannotBeHeld_IsFalse) {
    putFolder("folder");
    for (char const* const path : {"folder", "none", "", "folder//x"}) {
        bool sharedOnly = true;
        EXPECT_EQ(File::isOpened(path, &sharedOnly), 0) << path;
        EXPECT_FALSE(sharedOnly) << path;
    }
}

TEST_F(FileSystem, IsOpened_OfNull_IsFalseAndLeavesTheOutputAlone) {
    bool sharedOnly = true;
    EXPECT_EQ(File::isOpened(nullptr, &sharedOnly), 0);
    EXPECT_TRUE(sharedOnly);
}

/// Leaves the process no descriptor to open anything more, until the end of the scope.
class NoDescriptorScope {
  public:
    NoDescriptorScope() {
        getrlimit(RLIMIT_NOFILE, &mLimit);
        rlimit const none = {0, mLimit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptorScope() { setrlimit(RLIMIT_NOFILE, &mLimit); }
    NoDescriptorScope(NoDescriptorScope const&) = delete;
    NoDescriptorScope& operator=(NoDescriptorScope const&) = delete;

  private:
    rlimit mLimit = {};
};

TEST_F(FileSystem, AHeldFile_IsNeitherErasedNorMovedNorCopiedWhileAllDescriptorsAreInUse) {
    putFile("file", "x");
    File held("file", File::TEXT_UTF8);
    ASSERT_EQ(held.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    {
        NoDescriptorScope const scope;
        bool sharedOnly = true;
        EXPECT_EQ(File::isOpened("file", &sharedOnly), 1);
        EXPECT_FALSE(sharedOnly);
        EXPECT_EQ(File::erase("file", File::ERASE_READ_ONLY), 0);
        EXPECT_EQ(File::move("file", "moved"), 0);
        EXPECT_EQ(File::copy("file", "copied", File::OVERWRITE_EXISTING), 0);
    }
    EXPECT_EQ(contentOf("file"), "x");
    EXPECT_EQ(permissions("moved"), -1);
    EXPECT_EQ(permissions("copied"), -1);
    EXPECT_EQ(mLog.lines(), Lines());
}

// Locks as they are over NFS: an exclusive one needs a descriptor for writing, a shared one one for reading.
int lockOverNfs(int descriptor, int operation) {
    int const access = fcntl(descriptor, F_GETFL) & O_ACCMODE;
    if (access == ((operation & LOCK_EX) != 0 ? O_RDONLY : O_WRONLY)) {
        errno = EBADF;
        return -1;
    }
    return hooks::flock.real(descriptor, operation);
}

TEST_F(FileSystem, OperationsOverNfs_WorkOnFilesThatNobodyHoldsAndRefuseAWritersFile) {
    putFile("file", "x");
    HookScope const scope;
    hooks::flock.replace(lockOverNfs);
    EXPECT_EQ(File::isOpened("file", nullptr), 0);
    EXPECT_EQ(File::move("file", "moved"), 1);
    EXPECT_EQ(File::copy("moved", "copied", File::KEEP_EXISTING), 1);
    EXPECT_EQ(File::erase("copied", File::KEEP_READ_ONLY), 1);
    File writer("moved", File::TEXT_UTF8);
    ASSERT_EQ(writer.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    bool sharedOnly = true;
    EXPECT_EQ(File::isOpened("moved", &sharedOnly), 1);
    EXPECT_FALSE(sharedOnly);
    EXPECT_EQ(File::move("moved", "file"), 0);
    EXPECT_EQ(File::copy("moved", "copied", File::KEEP_EXISTING), 0);
    EXPECT_EQ(File::erase("moved", File::KEEP_READ_ONLY), 0);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, IsOpened_SeesAnotherProcess) {
    putFile("file", "x");
    int ready[2];
    int done[2];
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_EQ(pipe(done), 0);
    pid_t const child = fork();
    if (child == 0) {
        char token = 0;
        close(done[1]);
        int const held = ::open("file", O_RDONLY);
        bool const isLocked = flock(held, LOCK_EX | LOCK_NB) == 0;
        bool const isDone = write(ready[1], &token, 1) == 1 && read(done[0], &token, 1) == 0;
        _exit(isLocked && isDone ? 0 : 1);
    }
    close(done[0]);
    char token = 0;
    EXPECT_EQ(read(ready[0], &token, 1), 1);
    bool sharedOnly = true;
    EXPECT_EQ(File::isOpened("file", &sharedOnly), 1);
    EXPECT_FALSE(sharedOnly);
    File file("file", File::TEXT_UTF8);
    EXPECT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ), 0);
    EXPECT_EQ(File::move("file", "moved"), 0);
    EXPECT_EQ(File::copy("file", "copied", File::OVERWRITE_EXISTING), 0);
    EXPECT_EQ(File::erase("file", File::ERASE_READ_ONLY), 0);
    EXPECT_EQ(mLog.lines(), (Lines{debug("Other process is opening. errno[11] Path:file")}));
    close(done[1]);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    close(ready[0]);
    close(ready[1]);
}

TEST_F(FileSystem, Move_RenamesAFileAndMakesTheFoldersInFrontOfIt) {
    putFile("file", "x");
    File file("file", File::TEXT_UTF8);
    EXPECT_EQ(file.move("a\\b\\moved"), 1);
    EXPECT_EQ(contentOf("a/b/moved"), "x");
    EXPECT_EQ(permissions("a/b"), 0777);
    EXPECT_EQ(permissions("file"), -1);
    EXPECT_STREQ(file.getPath(), "file");
    EXPECT_EQ(file.move("again"), 0);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Move_MakesTheseCallsInThisOrderAndWidensNothing) {
    putFolder("a");
    putFolder("b");
    putFile("a/file", "x");
    FileCalls calls;
    EXPECT_EQ(File::move("a/file", "b/moved"), 1);
    EXPECT_EQ(calls.take(),
              (Lines{"exists: stat a/file", "isDirectory: stat b/moved", "exists: stat b/moved",
                     "isDirectory: stat a/file", "exists: stat a/file",
                     "isOpened: open a/file RDONLY+NONBLOCK 777", "isOpened: flock 6", "-: fsync", "-: close",
                     "exists: stat b", "isDirectory: stat b", "move: rename a/file b/moved"}));
}

TEST_F(FileSystem, Move_RenamesAFolderWithItsContent) {
    putTree();
    EXPECT_EQ(File::move("tree", "moved"), 1);
    EXPECT_EQ(contentOf("moved/inner/b").size(), 20U);
    EXPECT_EQ(permissions("tree"), -1);
}

TEST_F(FileSystem, Move_OntoItself_IsTrueAndDoesNothing) {
    putFolder("a");
    putFile("a/file", "x");
    File held("a/file", File::TEXT_UTF8);
    ASSERT_EQ(held.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    FileCalls calls;
    EXPECT_EQ(File::move("a/file", "a\\file"), 1);
    EXPECT_EQ(calls.take(), (Lines{"exists: stat a/file"}));
}

TEST_F(FileSystem, Move_OntoAFileThatIsThere_IsFalseAndBothStay) {
    putFile("one", "1");
    putFile("two", "2");
    EXPECT_EQ(File::move("one", "two"), 0);
    EXPECT_EQ(contentOf("one"), "1");
    EXPECT_EQ(contentOf("two"), "2");
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Move_OntoAFolder_IsLeftToTheSystem) {
    putFile("one", "1");
    putFolder("folder");
    putFolder("empty");
    EXPECT_EQ(File::move("one", "folder"), 0);
    EXPECT_EQ(mLog.lines(), (Lines{error("rename Failed. errno[21] Source:one  Dest:folder")}));
    EXPECT_EQ(File::move("empty", "folder"), 1);
    EXPECT_EQ(permissions("empty"), -1);
}

TEST_F(FileSystem, Move_OfAHeldFile_IsFalseWithoutALine) {
    putFile("file", "x");
    File file("file", File::TEXT_UTF8);
    for (int const access : {0, 1}) {
        ASSERT_EQ(file.open(0, access), 1);
        EXPECT_EQ(File::move("file", "moved"), 0);
        EXPECT_EQ(file.move("moved"), 0);
        EXPECT_EQ(file.close(), 1);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, MoveOfTheObject_WhileItIsOpen_IsFalseEvenOntoItself) {
    putFile("file", "x");
    File file("file", File::TEXT_UTF8);
    ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    EXPECT_EQ(file.move("file"), 0);
    file.close();
    EXPECT_EQ(file.move("file"), 1);
}

TEST_F(FileSystem, MoveAndCopy_WithPathsThatDoNotDo_AreFalseWithoutALine) {
    putFolder("a");
    putFile("a/file", "x");
    std::string const longest = pathOfLength(259, "a/file");
    std::string const tooLong = pathOfLength(260, "a/file");
    char const* const none = nullptr;
    std::pair<char const*, char const*> const pairs[] = {
        {none, "b"},      {"a/file", none},   {none, none},           {"none", "b"},
        {"a//file", "b"}, {"a/file", "b//c"}, {tooLong.c_str(), "b"}, {"a/file", tooLong.c_str()},
        {"a/file", ""},   {"", "b"}};
    for (auto const& [source, destination] : pairs) {
        EXPECT_EQ(File::move(source, destination), 0);
        EXPECT_EQ(File::copy(source, destination, File::OVERWRITE_EXISTING), 0);
    }
    EXPECT_EQ(mLog.lines(), Lines());
    EXPECT_EQ(File::copy(longest.c_str(), "b", File::OVERWRITE_EXISTING), 1);
    EXPECT_EQ(File::move(longest.c_str(), "c"), 1);
}

TEST_F(FileSystem, MoveAndCopy_IntoAFolderThatCannotBeMade_AreFalse) {
    putFile("file", "x");
    EXPECT_EQ(File::move("file", "file/x/y"), 0);
    EXPECT_EQ(File::copy("file", "file/x/y", File::OVERWRITE_EXISTING), 0);
    EXPECT_EQ(contentOf("file"), "x");
}

TEST_F(FileSystem, Erase_RemovesAFileAndPutsTheFolderBack) {
    putFolder("a", 0711);
    putFile("a/file", "x");
    FileCalls calls;
    EXPECT_EQ(File("a\\file", File::TEXT_UTF8).erase(File::KEEP_READ_ONLY), 1);
    Lines const lines = calls.take();
    EXPECT_EQ(permissions("a/file"), -1);
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + 14),
              (Lines{"exists: stat a/file", "isDirectory: stat a/file", "isDirectory: stat a/file",
                     "exists: stat a/file", "isOpened: open a/file RDONLY+NONBLOCK 777", "isOpened: flock 6",
                     "-: fsync", "-: close", "isReadOnly: stat a/file", "changeParentAccessMode: stat a",
                     "changeParentAccessMode: chmod a 777", "erase: unlink a/file",
                     "changeParentAccessMode: stat a", "changeParentAccessMode: chmod a 711"}));
    EXPECT_EQ(permissions("a"), 0711);
}

TEST_F(FileSystem, Erase_OfAFolder_RemovesTheWholeTreeWhateverTheFlag) {
    for (int const force : {0, 1, 2}) {
        putTree();
        EXPECT_EQ(File::erase("tree", force), 1);
        EXPECT_EQ(permissions("tree"), -1);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Erase_OfAnEmptyFolder_MakesTheseCallsInThisOrder) {
    putFolder("a/b");
    FileCalls calls;
    EXPECT_EQ(File::erase("a/b", File::ERASE_READ_ONLY), 1);
    EXPECT_EQ(calls.take(), (Lines{"exists: stat a/b", "isDirectory: stat a/b", "children: opendir a/b",
                                   "children: readdir", "children: readdir", "children: readdir",
                                   "children: closedir", "exists: stat a/b", "isReadOnly: stat a/b",
                                   "isReadOnly: stat a/b", "changeParentAccessMode: stat a",
                                   "changeParentAccessMode: chmod a 777", "erase: rmdir a/b",
                                   "changeParentAccessMode: stat a", "changeParentAccessMode: chmod a 755"}));
}

TEST_F(FileSystem, Erase_OfAReadOnlyFile_NeedsTheFlag1) {
    putFile("file", "x");
    chmod("file", 0444);
    for (int const flag : {0, 2, -1}) {
        EXPECT_EQ(File::erase("file", flag), 0);
    }
    EXPECT_EQ(contentOf("file"), "x");
    EXPECT_EQ(File::erase("file", File::ERASE_READ_ONLY), 1);
    EXPECT_EQ(permissions("file"), -1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Erase_OfAFolderWithAReadOnlyFile_StopsThereAndWhatIsErasedStaysSo) {
    putFolder("a");
    for (int i = 0; i < 20; ++i) {
        putFile("a/" + std::to_string(i), "");
    }
    Paths paths(20, 0);
    ASSERT_EQ(File::children("a", &paths, File::CHILD_FILES_AND_FOLDERS, nullptr, 0), 20);
    chmod(paths.getAt(10)->buffer(), 0444);
    EXPECT_EQ(File::erase("a", File::KEEP_READ_ONLY), 0);
    EXPECT_EQ(mLog.lines(), Lines());
    for (unsigned int i = 0; i < 20; ++i) {
        EXPECT_EQ(File::exists(paths.getAt(i)->buffer()), i < 10 ? 0 : 1);
    }
    EXPECT_EQ(File::erase("a", File::ERASE_READ_ONLY), 1);
    EXPECT_EQ(permissions("a"), -1);
}

TEST_F(FileSystem, Erase_OfAReadOnlyFolder_NeedsTheFlag1ButItsContentGoesAnyway) {
    putFolder("a");
    putFile("a/file", "x");
    chmod("a", 0555);
    EXPECT_EQ(File::erase("a", File::KEEP_READ_ONLY), 0);
    EXPECT_EQ(permissions("a"), 0555);
    EXPECT_EQ(permissions("a/file"), -1);
    EXPECT_EQ(File::erase("a", File::ERASE_READ_ONLY), 1);
    EXPECT_EQ(permissions("a"), -1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Erase_OfAHeldFile_IsFalseWithoutALineWhoeverHoldsIt) {
    putFolder("a");
    putFile("a/file", "x");
    File file("a/file", File::TEXT_UTF8);
    for (int const access : {0, 1}) {
        ASSERT_EQ(file.open(0, access), 1);
        EXPECT_EQ(file.erase(File::ERASE_READ_ONLY), 0);
        EXPECT_EQ(File::erase("a/file", File::ERASE_READ_ONLY), 0);
        EXPECT_EQ(File::erase("a", File::ERASE_READ_ONLY), 0);
        EXPECT_EQ(file.close(), 1);
    }
    EXPECT_EQ(contentOf("a/file"), "x");
    EXPECT_EQ(file.erase(File::KEEP_READ_ONLY), 1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Erase_OfALinkToAFile_RemovesTheLinkAlone) {
    putFile("file", "x");
    ASSERT_EQ(symlink("file", "link"), 0);
    EXPECT_EQ(File::erase("link", File::KEEP_READ_ONLY), 1);
    EXPECT_EQ(File::exists("link"), 0);
    EXPECT_EQ(contentOf("file"), "x");
}

TEST_F(FileSystem, Erase_OfALinkToAReadOnlyFile_ByForce_LeavesTheFileWithTheMode0777) {
    putFile("file", "x");
    chmod("file", 0444);
    ASSERT_EQ(symlink("file", "link"), 0);
    EXPECT_EQ(File::erase("link", File::KEEP_READ_ONLY), 0);
    EXPECT_EQ(permissions("file"), 0444);
    EXPECT_EQ(File::erase("link", File::ERASE_READ_ONLY), 1);
    EXPECT_EQ(File::exists("link"), 0);
    EXPECT_EQ(contentOf("file"), "x");
    EXPECT_EQ(permissions("file"), 0777);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Erase_OfALinkToAHeldFileOrToNothing_IsFalseAndLeavesTheLink) {
    putFile("file", "x");
    ASSERT_EQ(symlink("file", "link"), 0);
    File file("file", File::TEXT_UTF8);
    ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    EXPECT_EQ(File::erase("link", File::ERASE_READ_ONLY), 0);
    EXPECT_EQ(file.close(), 1);
    ASSERT_EQ(unlink("file"), 0);
    EXPECT_EQ(File::erase("link", File::ERASE_READ_ONLY), 0);
    EXPECT_TRUE(std::filesystem::is_symlink("link"));
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Erase_OfALinkToAFolder_EmptiesTheFolderAndFailsAtTheLink) {
    putFolder("folder");
    putFile("folder/file", "x");
    ASSERT_EQ(symlink("folder", "link"), 0);
    EXPECT_EQ(File::erase("link", File::KEEP_READ_ONLY), 0);
    EXPECT_EQ(permissions("folder/file"), -1);
    EXPECT_EQ(File::exists("link"), 1);
    EXPECT_EQ(mLog.lines(), (Lines{error("rmdir Failed.Path:link errno[20]")}));
}

TEST_F(FileSystem, Recursion_EndsAtAPathOf260Bytes) {
    std::string const folder(200, 'd');
    putFolder(folder);
    std::string const longest = folder + "/" + std::string(58, 'n');
    for (bool const isTooLong : {false, true}) {
        std::string const path = longest + (isTooLong ? "n" : "");
        putFile(path, "12345");
        EXPECT_EQ(children(folder.c_str()), (Names{path}));
        EXPECT_EQ(File::size(folder.c_str()), isTooLong ? -1 : 5);
        EXPECT_EQ(File::copy(folder.c_str(), "copied", File::OVERWRITE_EXISTING), isTooLong ? 0 : 1);
        EXPECT_EQ(File::liftReadOnly(folder.c_str(), File::RECURSIVE), isTooLong ? 0 : 1);
        EXPECT_EQ(File::erase(folder.c_str(), File::ERASE_READ_ONLY), isTooLong ? 0 : 1);
        putFolder(folder);
    }
    EXPECT_EQ(contentOf(longest + "n"), "12345");
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Erase_WithAPathThatDoesNotDo_IsFalseWithoutALine) {
    putFolder("a/b");
    for (char const* const path : {static_cast<char const*>(nullptr), "", "none", "a//b"}) {
        EXPECT_EQ(File::erase(path, File::ERASE_READ_ONLY), 0);
    }
    EXPECT_EQ(permissions("a/b"), 0755);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Erase_WhoseFolderVanishesBehindTheLock_SaysSoAtEachStep) {
    putFolder("a");
    putFile("a/file", "x");
    HookScope const scope;
    hooks::flock.watch([](int, int) { EXPECT_EQ(rename("a", "gone"), 0); });
    EXPECT_EQ(File::erase("a/file", File::KEEP_READ_ONLY), 0);
    EXPECT_EQ(mLog.lines(), (Lines{error("is isReadOnly func stat Failed. errno[2] Path:a/file"),
                                   debug("is changeParentAccessMode func stat Failed. errno[2] Path:a"),
                                   error("remove failed. errno[2] Path:a/file")}));
    EXPECT_EQ(contentOf("gone/file"), "x");
}

TEST_F(FileSystem, Size_OfAFileIsItsOwnAndOfAFolderTheSumOfItsFiles) {
    putTree();
    EXPECT_EQ(File::size("tree/a"), 1);
    EXPECT_EQ(File::size("tree\\inner"), 320);
    EXPECT_EQ(File::size("tree"), 321);
    EXPECT_EQ(File::size("tree/empty"), 0);
    EXPECT_EQ(File("tree", File::TEXT_UTF8).size(), 321);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Size_OfFilesBeyond4GiB_IsCountedInFull) {
    putFolder("big");
    putFile("big/one", "");
    putFile("big/two", "");
    ASSERT_EQ(truncate("big/one", (4LL << 30) + 1), 0);
    ASSERT_EQ(truncate("big/two", 3LL << 30), 0);
    EXPECT_EQ(File::size("big"), (7LL << 30) + 1);
}

TEST_F(FileSystem, Size_WithAPathThatDoesNotDo_IsMinusOneWithoutALine) {
    putFolder("a/b");
    for (char const* const path : {static_cast<char const*>(nullptr), "", "none", "a//b"}) {
        EXPECT_EQ(File::size(path), -1);
    }
    EXPECT_EQ(File("none", File::TEXT_UTF8).size(), -1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSystem, Size_TakesNoLock) {
    putFile("file", "12345");
    File file("file", File::TEXT_UTF8);
    ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    EXPECT_EQ(File::size("file"), 5);
}

/// The names that a listing returns, sorted; the result alone if it is negative.
struct Listing {
    char const* path;
    int kind;
    char const* extension;
    int result;
    Lines names;
};

TEST_F(FileAtItsLimits, AFolderWithAnEntryWhosePathIsTooLong_IsListedAndFailsInAllThatGoesIntoIt) {
    std::string const folder(10, 'd');
    for (std::size_t const size : {248U, 249U}) {
        int const good = size == 248 ? 1 : 0;
        std::string const path = folder + "/" + std::string(size, 'e');
        putFolder(folder);
        putFile(path, "text");
        Paths names(0, 1);
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

TEST_F(FileAtItsLimits, ANameThatIsNotUtf8_CanBeListedReadAndErasedButNotTakenApart) {
    putFolder("m");
    putFile("m/ok.txt", "12");
    putFile("m/x\xFF.txt", "345");
    Paths names(4, 0);
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

TEST_F(FileAtItsLimits, FoldersThatContainThemselves_EndAtTheLongestPathOrAtTheMostLinks) {
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

TEST_F(FileAtItsLimits, Children_TakesTheLastComponentForAPatternOnlyWhereNoFolderHasThatName) {
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
        Paths names(1, 1);
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

}  // namespace

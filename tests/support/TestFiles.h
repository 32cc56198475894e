#pragma once

// What the tests of files and of their folders share.

#include <cerrno>
#include <set>
#include <string>

#include "TestFolder.h"
#include "TestHooks.h"
#include "UtlArray.h"
#include "UtlFile.h"

namespace utltest {

/// The folder "folder" with the file "folder/f".
class FileInFolder : public InLoggedFolder {
  protected:
    FileInFolder() {
        putFolder("folder");
        putFile("folder/f", "0123456789");
    }
    ~FileInFolder() override { EXPECT_EQ(permissions("folder"), 0755); }

    utl::File mFile{"folder/f", utl::File::TEXT_UTF8};
};

using NamesFound = std::set<std::string>;
using PathsFound = utl::Array<utl::BasicString<char>, utl::BasicString<char> const&>;

/// Folders and files, and what is found in them.
class FileSystem : public InLoggedFolder {
  protected:
    /// What `children` puts into an array that grows, with the result -1 as one text.
    static NamesFound children(char const* path, int kind = utl::File::CHILD_FILES_AND_FOLDERS,
                               char const* extension = nullptr) {
        PathsFound paths(0, 1);
        int const count = utl::File::children(path, &paths, kind, extension, 0);
        EXPECT_EQ(count == -1 ? 0U : static_cast<unsigned int>(count), paths.size());
        return count == -1 ? NamesFound{"-1"} : namesIn(paths);
    }

    static NamesFound namesIn(PathsFound const& paths) {
        NamesFound names;
        for (unsigned int i = 0; i < paths.size(); ++i) {
            EXPECT_TRUE(names.insert(paths.getAt(i)->buffer()).second);
        }
        return names;
    }

    /// A folder "tree" with files of 1, 20 and 300 bytes at three depths, and an empty folder.
    static void putTree() {
        putFolder("tree/inner/deep");
        putFolder("tree/inner");
        putFolder("tree");
        putFolder("tree/empty");
        putFile("tree/a", "1");
        putFile("tree/inner/b", std::string(20, '2'));
        putFile("tree/inner/deep/c", std::string(300, '3'));
    }

    /// A path of exactly `length` bytes to `name`, with "./" in front as often as needed.
    static std::string pathOfLength(unsigned int length, std::string const& name) {
        std::string path = (length - name.size()) % 2 == 0 ? "" : "d/../";
        if (!path.empty()) {
            putFolder("d");
        }
        while (path.size() + name.size() < length) {
            path += "./";
        }
        return path + name;
    }
};

/// Files at their limits, and operations of which each call fails once.
class FileAtItsLimits : public InLoggedFolder {
  protected:
    /// Lets call 1, 2, 3, ... of a function fail, until the operation makes fewer calls than that. `prepare`
    /// comes before each run; `check` gets the number and what the operation returned.
    template <typename HOOK, typename PREPARE, typename OPERATION, typename CHECK>
    void sweep(HOOK& hook, PREPARE prepare, OPERATION operation, CHECK check) {
        bool isThrough = false;
        for (unsigned int n = 1; !isThrough && n < 200; ++n) {
            prepare();
            mLog.clear();
            unsigned int const descriptors = openDescriptors();
            int result = -1;
            {
                OwnHookScope const scope;
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

}  // namespace utltest

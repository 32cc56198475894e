#include "internal/file/UtlFolderWalk.h"

#include <dirent.h>
#include <fnmatch.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "UtlAttribConvert.h"
#include "UtlFile.h"
#include "UtlLog.h"
#include "internal/file/UtlFileCalls.h"
#include "internal/file/UtlPathRules.h"
#include "internal/text/UtlCharDecoder.h"

namespace utl {

namespace {

/// An opened folder; *one owner thread*, because no lock protects the system's entry between two calls.
class [[nodiscard]] OpenFolder {
  public:
    explicit OpenFolder(char const* path)
        : mFolder(fileCall("children", __LINE__, [path] { return ::opendir(path); })) {}
    ~OpenFolder() {
        if (isOpen()) {
            fileCall("children", __LINE__, [this] { return ::closedir(mFolder); });
        }
    }
    OpenFolder(OpenFolder const&) = delete;
    OpenFolder& operator=(OpenFolder const&) = delete;

    bool isOpen() const { return mFolder != nullptr; }

    /// The next entry, valid until the next call; null after the last one, with `errno` 0, and on failure.
    dirent const* next() const {
        dirent const* entry = nullptr;
        do {
            errno = 0;
            // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread has this folder
            entry = fileCall("children", __LINE__, [this] { return ::readdir(mFolder); });
        } while (entry == nullptr && errno == EINTR);
        return entry;
    }

  private:
    DIR* const mFolder;
};

/// Appends paths to an array with the content, capacity and result of `insertAt`, but without a copy of the
/// whole array for each new one: once the array has grown, further names are collected until their number is
/// known. *One owner thread*, the one that lists.
class PathAppender {
  public:
    PathAppender(char const* folder, Array<BasicString<char>>* result)
        : mResult(result), mPath(folder), mPrefixLength(mPath.size() + 1) {
        mPath += '/';
    }

    /// False if the array takes no more.
    bool add(char const* name) {
        if (mGrows) {
            mNames.append(name, std::strlen(name) + 1);
            ++mNameCount;
            return true;
        }
        bool const hadRoom = mResult->size() < mResult->maxSize();
        bool const isAdded = append(name);
        mGrows = isAdded && !hadRoom;
        return isAdded;
    }

    /// Appends the collected names to the array; false if it refuses them.
    bool finish() {
        bool isDone = mNameCount == 0 || mResult->resizeMax(mResult->size() + mNameCount);
        for (char const* name = mNames.c_str(); isDone && mNameCount != 0; --mNameCount) {
            isDone = append(name);
            name += std::strlen(name) + 1;
        }
        return isDone;
    }

  private:
    bool append(char const* name) {
        mPath.replace(mPrefixLength, std::string::npos, name);
        mValue = mPath.c_str();
        return mResult->insertAt(mResult->size(), mValue);
    }

    Array<BasicString<char>>* const mResult;
    std::string mPath;
    std::size_t const mPrefixLength;
    BasicString<char> mValue;
    std::string mNames;  // the collected names, each with its terminator
    unsigned int mNameCount = 0;
    bool mGrows = false;
};

bool isDotName(char const* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

char lowerCase(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

/// Compares with one extension as `compareStrNoCase` does, but without its scratch texts if that extension is
/// pure ASCII: no other letter folds to an ASCII letter. *Immutable*, because one listing has one extension.
class ExtensionFilter {
  public:
    /// `wanted` may be null, which every name passes.
    explicit ExtensionFilter(char const* wanted)
        : mWanted(wanted),
          mIsShortAscii(wanted != nullptr && textLength(wanted) < PATH_BUFFER_SIZE &&
                        std::none_of(wanted, wanted + textLength(wanted),
                                     [](char byte) { return static_cast<signed char>(byte) < 0; })) {}

    bool isPassedBy(char const* name) const {
        char extension[PATH_BUFFER_SIZE];
        return mWanted == nullptr ||
               (File::extractExtension(extension, sizeof(extension), name) != 0 && isWanted(extension));
    }

  private:
    bool isWanted(char const* extension) const {
        if (!mIsShortAscii) {
            return compareStrNoCase(extension, mWanted, INVALID_SIZE) == 0;
        }
        char const* wanted = mWanted;
        while (*wanted != '\0' && lowerCase(*extension) == lowerCase(*wanted)) {
            ++extension;
            ++wanted;
        }
        return *wanted == *extension;
    }

    char const* const mWanted;
    bool const mIsShortAscii;
};

bool matches(dirent const& entry, EntryFilter const& filter, ExtensionFilter const& extension) {
    bool const isFolder = entry.d_type == DT_DIR;
    unsigned int const unwanted = isFolder ? File::CHILD_FILES : File::CHILD_FOLDERS;
    if (filter.kind == unwanted || isDotName(entry.d_name)) {
        return false;
    }
    if (!isFolder && !extension.isPassedBy(entry.d_name)) {
        return false;
    }
    return *filter.pattern == '\0' || ::fnmatch(filter.pattern, entry.d_name, FNM_PATHNAME) == 0;
}

/// True after the last entry; otherwise logs why there is no next one. Must follow `next` at once.
bool isAtEnd(char const* folder) {
    if (errno == 0) {
        return true;
    }
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "readdir Failed. errno[%d] Path:%s", errno, folder);
    return false;
}

}  // namespace

int listFolder(char const* path, EntryFilter const& filter, unsigned int maximum,
               Array<BasicString<char>>* result) {
    OpenFolder const folder(path);
    if (!folder.isOpen()) {
        return -1;
    }
    ExtensionFilter const extension(filter.extension);
    PathAppender paths(path, result);
    unsigned int count = 0;
    bool isWhole = true;
    while (maximum == 0 || count < maximum) {
        dirent const* const entry = folder.next();
        if (entry == nullptr) {
            isWhole = isAtEnd(path);
            break;
        }
        if (!matches(*entry, filter, extension)) {
            continue;
        }
        if (!paths.add(entry->d_name)) {
            return -1;
        }
        ++count;
    }
    return paths.finish() && isWhole ? static_cast<int>(count) : -1;
}

}  // namespace utl

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "BenchFiles.h"
#include "BenchRatio.h"
#include "UtlFile.h"

// Files against the system calls that they promise to make, and listings against the plain loop.

namespace {

using utl::File;
using utlbench::BenchFolder;
using Paths = utl::Array<utl::BasicString<char>, utl::BasicString<char> const&>;

constexpr unsigned int FILES = 500;
constexpr unsigned int CONTENT_SIZE = 4096;
constexpr char CONTENT[CONTENT_SIZE] = {};

BenchFolder const PLACE;
std::string const FOLDER = PLACE.make("files");

// The paths of the files that one turn makes.
std::vector<std::string> const PATHS = [] {
    std::vector<std::string> paths;
    for (unsigned int i = 0; i < FILES; ++i) {
        paths.push_back(FOLDER + "/number-" + std::to_string(i));
    }
    return paths;
}();

void removeFiles() {
    for (std::string const& path : PATHS) {
        unlink(path.c_str());
    }
}

void writeFiles() {
    removeFiles();
    for (std::string const& path : PATHS) {
        File file(path.c_str(), 1);
        utlbench::keep(file.open(0, 1) + file.write(CONTENT, CONTENT_SIZE) + file.close());
    }
}

void writeBareFile(char const* path) {
    char const* const folder = FOLDER.c_str();
    struct stat status = {};
    struct stat folderStatus = {};
    stat(path, &status);
    stat(folder, &folderStatus);
    stat(folder, &folderStatus);
    stat(path, &status);
    stat(folder, &folderStatus);
    chmod(folder, 0777);
    int const file = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0777);
    fchmod(file, 0777);
    flock(file, LOCK_EX | LOCK_NB);
    stat(folder, &status);
    chmod(folder, folderStatus.st_mode & 07777);
    stat(folder, &folderStatus);
    chmod(folder, 0777);
    utlbench::keep(write(file, CONTENT, CONTENT_SIZE));
    stat(folder, &status);
    chmod(folder, folderStatus.st_mode & 07777);
    fsync(file);
    close(file);
    int const synced = open(folder, O_RDONLY);
    fsync(synced);
    close(synced);
}

void writeBareFiles() {
    removeFiles();
    for (std::string const& path : PATHS) {
        writeBareFile(path.c_str());
    }
}

UTL_RATIO_CPU("create, write 4 KiB and close 500 files, against the told system calls alone", writeFiles,
              writeBareFiles, 1.2);

// A folder with `ENTRIES` files, of which the listing wants every second.
template <unsigned int ENTRIES>
std::string const& folderOf() {
    static std::string const theFolder = [] {
        std::string const folder = PLACE.make("entries-" + std::to_string(ENTRIES));
        for (unsigned int i = 0; i < ENTRIES; ++i) {
            std::string const path =
                folder + "/picture-" + std::to_string(i) + (i % 2 == 0 ? ".jpg" : ".txt");
            close(open(path.c_str(), O_WRONLY | O_CREAT, 0666));
        }
        return folder;
    }();
    return theFolder;
}

// Into an array that begins with the capacity of 32 and grows.
template <unsigned int ENTRIES>
void list() {
    Paths paths(32, 1);
    utlbench::keep(File::children(folderOf<ENTRIES>().c_str(), &paths, 0, "JPG", 0));
}

template <unsigned int ENTRIES>
void listPlainly() {
    std::string const& folder = folderOf<ENTRIES>();
    std::vector<std::string> paths;
    DIR* const opened = opendir(folder.c_str());
    while (dirent const* const entry = readdir(opened)) {
        char const* const dot = std::strrchr(entry->d_name, '.');
        if (entry->d_type != DT_DIR && dot != nullptr && strcasecmp(dot + 1, "JPG") == 0) {
            paths.push_back(folder + "/" + entry->d_name);
        }
    }
    closedir(opened);
    utlbench::keep(paths.size());
}

UTL_RATIO_CPU("children of 1000 files, to readdir and strcasecmp", list<1000>, listPlainly<1000>, 3.0);
UTL_RATIO_CPU("children of 10000 files, to readdir and strcasecmp", list<10000>, listPlainly<10000>, 3.0);
UTL_RATIO_CPU("children of 100000 files, to readdir and strcasecmp", list<100000>, listPlainly<100000>, 3.0);

// Ten times the files may take ten times as long, and a little more for what no longer fits into the caches.
UTL_RATIO_CPU(
    "children of 100000 files, to ten times those of 10000", list<100000>,
    [] {
        for (int i = 0; i < 10; ++i) {
            list<10000>();
        }
    },
    1.5);

}  // namespace

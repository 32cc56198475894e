// Lines, folders, sound and bits.

#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "BenchBits.h"
#include "BenchCharSets.h"
#include "BenchLines.h"
#include "BenchWave.h"
#include "Peers.h"
#include "UtlFile.h"

namespace utlpeers {
namespace {

using utl::File;
using utlbench::pathOfLines;

// --- lines: a piece of work is the whole file, of which each side proves to have seen all

constexpr unsigned int LINE_ROOM = 1024;

// What is in the lines of a file.
struct Pass {
    std::size_t lines = 0;
    std::size_t bytes = 0;

    void count(std::size_t itsBytes) {
        ++lines;
        bytes += itsBytes;
    }
    bool operator==(Pass const& other) const { return lines == other.lines && bytes == other.bytes; }
};

template <int TYPE>
Side readLines(Pass const& whole) {
    auto const file = std::make_shared<File>(pathOfLines<TYPE>().c_str(), TYPE);
    prove(file->open(File::OPEN_KEEP, File::ACCESS_READ) != 0, "no file of lines");
    return each(OURS, [file, whole] {
        char line[LINE_ROOM];
        Pass pass;
        int result = 0;
        while ((result = file->readLine(line, LINE_ROOM, nullptr)) >= 0) {
            pass.count(std::strlen(line));
        }
        prove(result == File::END_OF_FILE && pass == whole, "other lines than those of the file");
        file->seek(0, File::FROM_START);
    });
}

// `lengthOf` gets each line, and returns the length of its text as UTF-8.
template <typename LENGTH>
Pass passOver(std::ifstream& file, LENGTH lengthOf) {
    Pass pass;
    for (std::string line; std::getline(file, line);) {
        pass.count(lengthOf(line));
    }
    file.clear();
    file.seekg(0);
    return pass;
}

template <int TYPE, typename LENGTH>
std::vector<Side> lineSides(char const* name, LENGTH lengthOf) {
    auto const file = std::make_shared<std::ifstream>(pathOfLines<TYPE>(), std::ios::binary);
    Pass const whole = passOver(*file, lengthOf);
    return {readLines<TYPE>(whole), each(name, [file, lengthOf, whole] {
                prove(passOver(*file, lengthOf) == whole, "other lines than those of the file");
            })};
}

template <int TYPE>
double lineCount(unsigned int) {
    std::ifstream file(pathOfLines<TYPE>(), std::ios::binary);
    return static_cast<double>(passOver(file, [](std::string const&) { return 0U; }).lines);
}

std::size_t plainLength(std::string const& line) {
    return line.size();
}

// The length after a conversion.
std::size_t convertedLength(std::string const& line) {
    static utlbench::Iconv const converter("UTF-8", "CP932");
    static std::string room(LINE_ROOM, '\0');
    return converter.convert(line, &room);
}

std::vector<Side> utf8Lines(unsigned int) {
    return lineSides<File::TEXT_UTF8>("std::getline, unchecked", plainLength);
}

std::vector<Side> sjisLines(unsigned int) {
    return lineSides<File::TEXT_SJIS>("std::getline and iconv", convertedLength);
}

// --- folders

struct Folder {
    explicit Folder(unsigned int itsNames) : names(itsNames), path(place.make("folder")) {
        for (unsigned int i = 0; i < names; ++i) {
            close(open((path + "/picture-" + std::to_string(i)).c_str(), O_WRONLY | O_CREAT, 0666));
        }
    }

    unsigned int names;
    utlbench::BenchFolder place;
    std::string path;
};

using Paths = utl::Array<utl::BasicString<char>, utl::BasicString<char> const&>;

// An application keeps its array from listing to listing, as the function offers.
std::size_t childrenOf(std::string const& folder) {
    static Paths paths(32, utl::AUTO_RESIZE_ON);
    return static_cast<std::size_t>(File::children(folder.c_str(), &paths, File::CHILD_FILES, nullptr, 0));
}

std::size_t iterate(std::string const& folder) {
    std::vector<std::string> paths;
    for (auto const& entry : std::filesystem::directory_iterator(folder)) {
        if (!entry.is_directory()) {
            paths.push_back(entry.path().string());
        }
    }
    return paths.size();
}

std::vector<std::string> gWalked;

std::size_t walk(std::string const& folder) {
    gWalked.clear();
    nftw(
        folder.c_str(),
        [](char const* path, struct stat const*, int kind, FTW*) {
            if (kind == FTW_F) {
                gWalked.emplace_back(path);
            }
            return 0;
        },
        16, FTW_PHYS);
    return gWalked.size();
}

Side listing(char const* name, std::shared_ptr<Folder const> const& folder,
             std::size_t (*list)(std::string const&)) {
    return each(name, [folder, list] { prove(list(folder->path) == folder->names, "missing names"); });
}

std::vector<Side> folderSides(unsigned int names) {
    auto const folder = std::make_shared<Folder const>(names);
    return {listing(OURS, folder, childrenOf), listing("std::filesystem", folder, iterate),
            listing("nftw", folder, walk)};
}

// --- sound, in pieces of 4 KB

std::vector<Side> writingSides(unsigned int) {
    return {each(OURS, utlbench::writeMinute), each(BARE, utlbench::writeBareMinute),
            each("libsndfile", utlbench::writeMinuteByLibsndfile)};
}

std::vector<Side> readingSides(unsigned int) {
    utlbench::writeMinute();
    return {each(OURS, utlbench::readMinute), each(BARE, utlbench::readBareMinute),
            each("libsndfile", utlbench::readMinuteByLibsndfile)};
}

// --- bits

Side bits(char const* name, unsigned int (*way)()) {
    return each(name, [way, sum = utlbench::byAccumulator()] { prove(way() == sum, "other bits"); });
}

std::vector<Side> bitSides(unsigned int) {
    return {bits(OURS, utlbench::byFields), bits("a loop over the bits", utlbench::byInlineBits),
            bits("64-bit accumulator, unchecked", utlbench::byAccumulator)};
}

// --- the themes

double pieces(unsigned int) {
    return utlbench::PIECES;
}

double fieldCount(unsigned int) {
    return utlbench::FIELD_COUNT;
}

double names(unsigned int count) {
    return count;
}

Theme theme(char const* id, char const* title, char const* unit, char const* size,
            std::vector<unsigned int> const& sizes, std::vector<unsigned int> const& shown,
            std::vector<Side> (*sides)(unsigned int), double (*units)(unsigned int)) {
    Theme result = {id, title, unit, size, utlbench::THREAD_TIME, ONE_PROCESSOR, sizes, shown, sides};
    result.units = units;
    return result;
}

ThemeDeclaration const gUtf8Lines(theme("lines", "a line of UTF-8 from a file", "line", "", {80}, {80},
                                        utf8Lines, lineCount<File::TEXT_UTF8>));
ThemeDeclaration const gSjisLines(theme("lines-sjis", "a line of Shift-JIS as UTF-8", "line", "", {80}, {80},
                                        sjisLines, lineCount<File::TEXT_SJIS>));
ThemeDeclaration const gFolders(theme("folders", "list a folder", "name", "names",
                                      {10, 100, 1000, 10000, 100000}, {1000}, folderSides, names));
ThemeDeclaration const gWriting(theme("wave-write", "write sound", "piece", "", {4096}, {4096}, writingSides,
                                      pieces));
ThemeDeclaration const gReading(theme("wave-read", "read sound", "piece", "", {4096}, {4096}, readingSides,
                                      pieces));
ThemeDeclaration const gBits(theme("bits", "write and read bit fields", "field", "", {32}, {32}, bitSides,
                                   fieldCount));

}  // namespace
}  // namespace utlpeers

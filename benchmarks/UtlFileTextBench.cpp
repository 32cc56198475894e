// Text in files against the ways of the C++ and the C library, which read ahead as well.

#include <fcntl.h>
#include <iconv.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>

#include "BenchLines.h"
#include "BenchRatio.h"
#include "BenchText.h"
#include "UtlFile.h"

namespace {

using utl::File;
using utlbench::FILE_BYTES;
using utlbench::linesFolder;
using utlbench::pathOfLines;

constexpr unsigned int BUFFER_SIZE = 1024;

// --- a line

template <int TYPE>
void readLine() {
    static File theFile(pathOfLines<TYPE>().c_str(), TYPE);
    static bool const isOpen = theFile.open(0, 0) == 1;
    char line[BUFFER_SIZE];
    unsigned int length = 0;
    if (!isOpen || theFile.readLine(line, BUFFER_SIZE, &length) < 0) {
        theFile.seek(0, 0);
    }
    utlbench::keep(length);
}

template <int TYPE>
bool getLine(std::string* line) {
    static std::ifstream theStream(pathOfLines<TYPE>(), std::ios::binary);
    if (std::getline(theStream, *line)) {
        return true;
    }
    theStream.clear();
    theStream.seekg(0);
    return false;
}

void getLineOfUtf8() {
    static std::string theLine;
    utlbench::keep(getLine<File::TEXT_UTF8>(&theLine));
}

void getLineOfSjis() {
    static std::string theLine;
    static iconv_t const theConverter = iconv_open("UTF-8", "CP932");
    char converted[BUFFER_SIZE];
    utlbench::keep(getLine<File::TEXT_SJIS>(&theLine));
    char* from = theLine.data();
    char* to = converted;
    std::size_t left = theLine.size();
    std::size_t room = sizeof(converted);
    utlbench::keep(iconv(theConverter, &from, &left, &to, &room));
}

UTL_RATIO_CPU("readLine of 80 bytes of UTF-8, checked and with a sign of life, to std::getline of a stream",
              readLine<File::TEXT_UTF8>, getLineOfUtf8, 3.0);
UTL_RATIO_CPU("readLine of 80 bytes of Shift-JIS as UTF-8, to std::getline of a stream and iconv",
              readLine<File::TEXT_SJIS>, getLineOfSjis, 1.0);

// --- a key

constexpr char KEY[] = "\xE9\x9C\xA7\xE7\xAC\x9B\xE3\x81\xAE\xE9\x9F\xB3\xE3\x82\x92";

// The lines of UTF-8 with the key at the end and nowhere else.
std::string const& pathOfKey() {
    static std::string const thePath = [] {
        std::string const path = linesFolder().make("key") + "/text";
        std::ifstream lines(pathOfLines<File::TEXT_UTF8>(), std::ios::binary);
        std::ofstream(path, std::ios::binary) << lines.rdbuf() << KEY;
        return path;
    }();
    return thePath;
}

void seekKey() {
    static File theFile(pathOfKey().c_str(), File::TEXT_UTF8);
    static bool const isOpen = theFile.open(0, 0) == 1;
    utlbench::keep(isOpen);
    if (theFile.seekKey(KEY, 0, ~0ULL, 0) < static_cast<long long>(FILE_BYTES)) {
        utlbench::giveUp("the key is not where it should be");
    }
}

struct Mapping {
    Mapping() {
        int const descriptor = open(pathOfKey().c_str(), O_RDONLY | O_CLOEXEC);
        struct stat status = {};
        fstat(descriptor, &status);
        size = static_cast<std::size_t>(status.st_size);
        bytes = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, descriptor, 0);
        close(descriptor);
    }

    void* bytes;
    std::size_t size;
};

void findInMapping() {
    static Mapping const theMapping;
    utlbench::keep(memmem(theMapping.bytes, theMapping.size, KEY, sizeof(KEY) - 1));
}

UTL_RATIO_CPU("seekKey over 20 MB of Japanese UTF-8, to memmem on the mapped file", seekKey, findInMapping,
              10.0);

}  // namespace

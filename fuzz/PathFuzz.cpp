// The parts of a path beside a model that splits it at its separators.

#include <string>

#include "Fuzz.h"
#include "TestStringModel.h"
#include "UtlFile.h"

namespace {

using fuzz::Input;
using utl::File;
namespace model = utltest::model;

constexpr size_t PATH_MAX_BYTES = 259;

/// What an operation returns, and the text if that is true.
struct Part {
    bool isFound = false;
    std::string text;
};

// Where the last component and its parent are.
struct Components {
    explicit Components(std::string path) {
        std::replace(path.begin(), path.end(), '\\', '/');
        isValid = path.size() <= PATH_MAX_BYTES && path.find("//") == std::string::npos &&
                  model::isWellFormed(path);
        size_t const begin = path.find_first_not_of('/');
        if (!isValid || begin == std::string::npos) {
            return;
        }
        isFound = true;
        first = path.substr(begin, path.find('/', begin) - begin);
        path.erase(path.find_last_not_of('/') + 1);
        size_t const separator = path.rfind('/');
        last = separator == std::string::npos ? path : path.substr(separator + 1);
        path.erase(path.size() - last.size());
        size_t const end = path.find_last_not_of('/');
        parent = end == std::string::npos ? "" : path.substr(0, end + 1);
    }

    bool isValid = false;
    bool isFound = false;
    std::string first;
    std::string last;
    std::string parent;
};

template <typename EXTRACT>
void expect(Part const& expected, unsigned int size, EXTRACT extract) {
    auto const output = fuzz::blockOf<char>(size, '#');
    bool const isExtracted = extract(output.get(), size) != 0;
    FUZZ_EXPECT(isExtracted == (expected.isFound && expected.text.size() < size));
    if (isExtracted) {
        FUZZ_EXPECT(expected.text == output.get());
    } else {
        FUZZ_EXPECT(size == 0 || output[0] == '#');
    }
}

void dissect(std::string const& path, unsigned int size, int withoutExtension) {
    Components const parts(path);
    size_t const dot = parts.last.rfind('.');
    std::string const extension = dot == std::string::npos ? "" : parts.last.substr(dot + 1);
    std::string const name = withoutExtension == 1 ? parts.last.substr(0, dot) : parts.last;
    auto const exact = fuzz::exactly(path);
    char const* const text = exact.get();
    expect({parts.isFound, name}, size, [text, withoutExtension](char* output, unsigned int room) {
        return File::extractFileName(output, room, text, withoutExtension);
    });
    expect({parts.isFound, extension}, size,
           [text](char* output, unsigned int room) { return File::extractExtension(output, room, text); });
    expect({parts.isFound, parts.parent}, size, [text](char* output, unsigned int room) {
        return File::extractDirectoryPath(output, room, text);
    });
    expect({parts.isFound, parts.first}, size,
           [text](char* output, unsigned int room) { return File::extractVolumeName(output, room, text); });
}

void askObject(std::string const& path, unsigned int capacity, int autoResize) {
    Components const parts(path);
    File const file(fuzz::exactly(path).get(), File::TEXT_UTF8);
    std::string stored = path;
    std::replace(stored.begin(), stored.end(), '\\', '/');
    FUZZ_EXPECT(stored == file.getPath());
    utl::BasicString<char> output(capacity, autoResize);
    bool const fits = autoResize == 1 || parts.last.size() < output.maxSize();
    bool const isFound = file.getFileName(&output, 0) != 0;
    FUZZ_EXPECT(isFound == (parts.isFound && fits));
    FUZZ_EXPECT(!isFound || output == parts.last.c_str());
    FUZZ_EXPECT((file.getDirectoryPath(&output) != 0) ==
                (parts.isFound && (autoResize == 1 || parts.parent.size() < output.maxSize())));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    Input input(data, size);
    int const withoutExtension = static_cast<int>(input.upTo(2));
    int const autoResize = static_cast<int>(input.upTo(1));
    unsigned int const room = input.flag() ? 300 : input.upTo(32);
    unsigned int const filler = input.upTo(1) != 0 ? 240 + input.upTo(30) : 0;
    std::string const path = std::string(filler, 'f') + fuzz::anyText(&input, 64);
    dissect(path, room, withoutExtension);
    askObject(path, room, autoResize);
    return 0;
}

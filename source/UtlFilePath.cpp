// Dissection of paths. A separator is never a byte of a longer character, so in a path that is UTF-8 it is
// enough to compare bytes.

#include <cstring>

#include "UtlFile.h"
#include "UtlString.h"
#include "internal/file/UtlPathRules.h"

namespace utl {

namespace {

constexpr char SEPARATOR = '/';

/// The place of a component in a path; empty if there is none.
struct Component {
    unsigned int begin = 0;
    unsigned int end = 0;

    bool isFound() const { return begin < end; }
};

unsigned int withoutSeparators(char const* path, unsigned int length) {
    while (length > 0 && path[length - 1] == SEPARATOR) {
        --length;
    }
    return length;
}

Component findLast(NormalPath const& path) {
    if (!path.passesCheck() || !isUtf8(path.text())) {
        return {};
    }
    unsigned int const end = withoutSeparators(path.text(), path.length());
    unsigned int begin = end;
    while (begin > 0 && path.text()[begin - 1] != SEPARATOR) {
        --begin;
    }
    return {begin, end};
}

Component findFirst(NormalPath const& path) {
    if (!path.passesCheck() || !isUtf8(path.text())) {
        return {};
    }
    auto const begin = static_cast<unsigned int>(std::strspn(path.text(), "/"));
    return {begin, begin + static_cast<unsigned int>(std::strcspn(path.text() + begin, "/"))};
}

/// Cuts the path after the component; returns where the component begins.
char* cutOut(NormalPath* path, Component const& component) {
    path->text()[component.end] = '\0';
    return path->text() + component.begin;
}

/// False, with `output` untouched, if that is null, of size 0 or too small.
int copyOut(char* output, unsigned int outputSize, char const* text) {
    bool const isCopied =
        outputSize != 0 && copyStrBase(output, outputSize, text, INVALID_SIZE, 0) != INVALID_SIZE;
    return isCopied ? 1 : 0;
}

/// Makes a string of what `extract` writes into a path buffer.
template <typename EXTRACT>
int copyInto(BasicString<char>* output, EXTRACT extract) {
    char part[PATH_BUFFER_SIZE] = {};
    if (output == nullptr || extract(part, PATH_BUFFER_SIZE) == 0) {
        return 0;
    }
    return output->copy(part, INVALID_SIZE, 0) ? 1 : 0;
}

}  // namespace

int File::extractFileName(char* output, unsigned int outputSize, char const* path, int withoutExtension) {
    NormalPath normalPath(path);
    Component const last = findLast(normalPath);
    if (!last.isFound()) {
        return 0;
    }
    char* const name = cutOut(&normalPath, last);
    char* const dot = std::strrchr(name, '.');
    if (withoutExtension == WITHOUT_EXTENSION && dot != nullptr) {
        *dot = '\0';
    }
    return copyOut(output, outputSize, name);
}

int File::extractDirectoryPath(char* output, unsigned int outputSize, char const* path) {
    NormalPath normalPath(path);
    Component const last = findLast(normalPath);
    if (!last.isFound()) {
        return 0;
    }
    unsigned int const length = withoutSeparators(normalPath.text(), last.begin);
    return copyOut(output, outputSize, cutOut(&normalPath, {0, length}));
}

int File::extractExtension(char* output, unsigned int outputSize, char const* path) {
    NormalPath normalPath(path);
    Component const last = findLast(normalPath);
    if (!last.isFound()) {
        return 0;
    }
    char const* const dot = std::strrchr(cutOut(&normalPath, last), '.');
    return copyOut(output, outputSize, dot != nullptr ? dot + 1 : "");
}

int File::extractVolumeName(char* output, unsigned int outputSize, char const* path) {
    NormalPath normalPath(path);
    Component const first = findFirst(normalPath);
    return first.isFound() ? copyOut(output, outputSize, cutOut(&normalPath, first)) : 0;
}

int File::getFileName(char* output, unsigned int outputSize, int withoutExtension) const {
    return extractFileName(output, outputSize, getPath(), withoutExtension);
}

int File::getFileName(BasicString<char>* output, int withoutExtension) const {
    return copyInto(output, [this, withoutExtension](char* part, unsigned int size) {
        return getFileName(part, size, withoutExtension);
    });
}

int File::getDirectoryPath(char* output, unsigned int outputSize) const {
    return extractDirectoryPath(output, outputSize, getPath());
}

int File::getDirectoryPath(BasicString<char>* output) const {
    return copyInto(output, [this](char* part, unsigned int size) { return getDirectoryPath(part, size); });
}

int File::getExtension(char* output, unsigned int outputSize) const {
    return extractExtension(output, outputSize, getPath());
}

int File::getExtension(BasicString<char>* output) const {
    return copyInto(output, [this](char* part, unsigned int size) { return getExtension(part, size); });
}

int File::getVolumeName(char* output, unsigned int outputSize) const {
    return extractVolumeName(output, outputSize, getPath());
}

int File::getVolumeName(BasicString<char>* output) const {
    return copyInto(output, [this](char* part, unsigned int size) { return getVolumeName(part, size); });
}

char const* File::getPath() const noexcept {
    return mPath.buffer();
}

int File::getPath(char* output, unsigned int outputSize) const {
    return copyOut(output, outputSize, getPath());
}

int File::getPath(BasicString<char>* output) const {
    if (output == nullptr) {
        return 0;
    }
    bool const isCopied = output == &mPath || output->copy(getPath(), INVALID_SIZE, 0);
    return isCopied ? 1 : 0;
}

}  // namespace utl

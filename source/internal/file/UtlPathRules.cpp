#include "internal/file/UtlPathRules.h"

#include <cstring>

#include "UtlString.h"
#include "internal/text/UtlCharDecoder.h"

namespace utl {

namespace {

/// Copies `length` bytes and the terminator.
void copyWithSlashes(char* out, char const* path, unsigned int length) {
    std::memcpy(out, path, length + 1U);
    for (char* found = std::strchr(out, '\\'); found != nullptr; found = std::strchr(found, '\\')) {
        *found = '/';
    }
}

}  // namespace

bool isUtf8(char const* text) {
    return getNearCharIndex(text, INVALID_SIZE, 1) != INVALID_SIZE;
}

NormalPath::NormalPath(char const* path)
    : mLength(textLength(path)), mIsCopied(path != nullptr && mLength < PATH_BUFFER_SIZE) {
    if (mIsCopied) {
        copyWithSlashes(mBuffer, path, mLength);
    }
}

AnyPath::AnyPath(char const* path)
    : mPath(path), mLongText(mPath.length() < PATH_BUFFER_SIZE ? nullptr : new char[mPath.length() + 1U]) {
    if (mLongText != nullptr) {
        copyWithSlashes(mLongText.get(), path, mPath.length());
    }
}

// A separator is never a byte of a longer character, so it is enough to compare bytes.
bool NormalPath::passesCheck() const {
    return mIsCopied && std::strstr(mBuffer, "//") == nullptr;
}

}  // namespace utl

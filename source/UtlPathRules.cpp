#include "UtlPathRules.h"

#include <cstring>

#include "UtlCharDecoder.h"
#include "UtlString.h"

namespace utl {

bool isUtf8(char const* text) {
    return getNearCharIndex(text, INVALID_SIZE, 1) != INVALID_SIZE;
}

NormalPath::NormalPath(char const* path)
    : mLength(textLength(path)),
      mLongPath(mLength < PATH_BUFFER_SIZE ? nullptr : new char[mLength + 1U]),
      mText(path == nullptr        ? nullptr
            : mLongPath != nullptr ? mLongPath.get()
                                   : mBuffer) {
    if (path == nullptr) {
        return;
    }
    std::memcpy(mText, path, mLength + 1U);
    for (char* found = std::strchr(mText, '\\'); found != nullptr; found = std::strchr(found, '\\')) {
        *found = '/';
    }
}

// A separator is never a byte of a longer character, so bytes are all there is to look at.
bool NormalPath::passesCheck() const {
    return mText != nullptr && mLength < PATH_BUFFER_SIZE && std::strstr(mText, "//") == nullptr;
}

}  // namespace utl

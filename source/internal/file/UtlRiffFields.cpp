#include "internal/file/UtlRiffFields.h"

#include <cstring>

#include "UtlAttribConvert.h"
#include "UtlBitStream.h"
#include "UtlFile.h"
#include "UtlString.h"

namespace utl {

namespace {

constexpr char BLANKS[RIFF_ID_BYTES + 1] = "    ";

}  // namespace

bool padRiffId(RiffIdText& padded, char const* text) {
    unsigned int const used = convertCharSet(padded, sizeof(padded), text);
    if (used == INVALID_SIZE || used == sizeof(padded)) {
        return used != INVALID_SIZE;
    }
    return insertStr(padded, sizeof(padded), used - 1, BLANKS, sizeof(padded) - used, 0) == sizeof(padded);
}

bool trimRiffId(RiffIdText& text, char const* id) {
    if (copyStrBase(text, sizeof(text), id, INVALID_SIZE, 0) != INVALID_SIZE &&
        trimStrRight<char>(text, nullptr) != INVALID_SIZE) {
        return true;
    }
    std::memset(text, 0, sizeof(text));
    return false;
}

bool decodeRiffId(RiffIdText& text, char const* bytes) {
    RiffIdText terminated = {};
    std::memcpy(terminated, bytes, RIFF_ID_BYTES);
    return convertCharSet(text, sizeof(text), terminated) != INVALID_SIZE;
}

bool writeRiffBytes(File* file, void const* bytes, unsigned int length) {
    return file->write(bytes, length) == static_cast<int>(length);
}

bool writeRiffSize(File* file, unsigned int size) {
    unsigned char bytes[RIFF_SIZE_BYTES] = {};
    return serialize(size, bytes) && writeRiffBytes(file, bytes, sizeof(bytes));
}

int readRiffBytes(File* file, void* bytes, unsigned int length) {
    int const result = file->read(bytes, length);
    if (result == File::END_OF_FILE) {
        return File::END_OF_FILE;
    }
    return result == static_cast<int>(length) ? 0 : -1;
}

int readRiffSize(File* file, unsigned int* size) {
    unsigned char bytes[RIFF_SIZE_BYTES] = {};
    int const result = readRiffBytes(file, bytes, sizeof(bytes));
    if (result != 0) {
        return result;
    }
    return unserialize(bytes, size) ? 0 : -1;
}

}  // namespace utl

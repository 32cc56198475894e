#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

#include "UtlCharSet.h"
#include "UtlFile.h"
#include "UtlLog.h"
#include "UtlString.h"
#include "internal/file/UtlFileCalls.h"
#include "internal/file/UtlLineSearch.h"
#include "internal/file/UtlTextType.h"
#include "internal/file/UtlUtf8Text.h"
#include "internal/text/UtlCharDecoder.h"
#include "internal/text/UtlStringSearch.h"

namespace utl {

namespace {

constexpr unsigned int SHORT_LINE_BYTES = 512;
constexpr unsigned int BLOCK_BYTES = 4096;
constexpr char LINE_END[] = "\n";

// The line names the bytes of one character, however many are read at a time. No other failure is possible in
// the search for a line end: any unit of UTF-16 and any code of Shift-JIS has a form in UTF-8.
void logLineReadError(int textType) {
    if (textUnitBytes(textType) == 2) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "in findNextLineSize func file read error 2byte");
        return;
    }
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "in findNextLineSize func file read error %dbyte", 6);
}

/// The destination of text that was read. A size of 0 asks for the length of the text.
struct TextTarget {
    char* buffer;
    unsigned int size;
    unsigned int offset;

    bool isUsable() const { return size == 0 || buffer != nullptr; }

    bool hasRoom(unsigned int bytes) const {
        return size == 0 || static_cast<unsigned long long>(offset) + bytes <= size;
    }

    /// Stores an empty text; returns its bytes in the file.
    int storeNothing() const {
        if (size != 0) {
            buffer[offset] = '\0';
        }
        return 0;
    }

    /// The size of the text; `INVALID_SIZE`, with nothing changed, if it is malformed or does not fit.
    unsigned int store(Utf8Text const& text) const {
        if (text.size() == INVALID_SIZE || size == 0) {
            return text.size();
        }
        if (!hasRoom(text.size()) || !text.copyTo(buffer + offset, size - offset)) {
            return INVALID_SIZE;
        }
        return text.size();  // whole characters, so that nothing is left to cut
    }
};

/// The buffer of a string as a target; *one owner thread*, for the time of a call.
class StringTarget {
  public:
    explicit StringTarget(BasicString<char>* text) {
        if (text == nullptr) {
            return;
        }
        mSize = text->maxSize();
        // A buffer of one byte already holds its terminator, and strings of all threads may share it.
        bool const mayShare = mSize == 1 && text->buffer() != nullptr;
        mpBuffer = mayShare ? &mNoText : const_cast<char*>(text->buffer());
    }
    StringTarget(StringTarget const&) = delete;
    StringTarget& operator=(StringTarget const&) = delete;

    char* buffer() const { return mpBuffer; }
    unsigned int size() const { return mSize; }

  private:
    char mNoText = '\0';
    char* mpBuffer = nullptr;
    unsigned int mSize = 0;
};

/// Writes the first `length` bytes of `count` units, unless the comparison of the count with the size of a
/// unit refuses them. Callers rely on that comparison.
int writeUnits(File* file, void const* units, unsigned int count, unsigned int unitBytes, unsigned int length,
               unsigned int offset) {
    unsigned int const limit = count + 1 + offset - unitBytes;  // wraps for no unit of two bytes
    if (limit == 0) {
        return 0;
    }
    return offset < limit ? file->write(units, std::min(count * unitBytes, length)) : -1;
}

int writeAsUtf16(File* file, char const* text, int textType, unsigned int length, unsigned int offset) {
    std::vector<unsigned short> units(textLength(text) + 1);
    auto const unitsSize = static_cast<unsigned int>(units.size());
    unsigned int const used = convertStrFromUtf8ToUtf16(units.data(), unitsSize, text);
    if (used == INVALID_SIZE) {
        return -1;
    }
    // No more than can be written: the comparison of the count treats all above 1 alike.
    unsigned int const count = std::min(used - 1, File::TEXT_BYTES_MAX / 2 + 1);
    std::vector<unsigned char> bytes(std::size_t(2) * count);
    convertStrFromDcharToUint8(bytes.data(), 2 * count, units.data(), count, textByteOrder(textType));
    return writeUnits(file, bytes.data(), count, 2, length, offset);
}

/// The position of a line, that of the next one, and the bytes of the line without its end.
struct LinePlace {
    long long start;
    long long next;
    unsigned int size;
};

/// Stores the line, whose bytes are in memory, as `readText` does. A failure moves the position as there.
int storeLine(File* file, int textType, LinePlace const& place, char* bytes, TextTarget const& target,
              unsigned int* length) {
    if (!target.hasRoom(textUnitBytes(textType) + place.size)) {
        file->seek(place.start, File::FROM_START);
        return -1;
    }
    *length = target.store(Utf8Text(textType, bytes, place.size));
    if (*length == INVALID_SIZE) {
        file->seek(place.start + place.size, File::FROM_START);
        return -1;
    }
    return static_cast<int>(place.size);
}

/// Moves after a line whose text is stored, or back to its start if only its size was asked for.
int leaveLine(File* file, LinePlace const& place, TextTarget const& target, int result, unsigned int length,
              unsigned int* outputLength) {
    if (result < 0) {
        return result;
    }
    if (file->seek(target.size != 0 ? place.next : place.start, File::FROM_START) == -1) {
        return -1;
    }
    setIfGiven(outputLength, length);
    return result;
}

/// Reads a line that is completely in memory.
int readShortLine(File* file, int textType, LinePlace const& place, char* bytes, TextTarget const& target,
                  unsigned int* outputLength) {
    unsigned int length = 0;
    int const result =
        place.size != 0 ? storeLine(file, textType, place, bytes, target, &length) : target.storeNothing();
    return leaveLine(file, place, target, result, length, outputLength);
}

/// Reads a line that may be too long to be read; the position then stays at its start.
int readLongLine(File* file, long long start, TextTarget const& target, unsigned int* outputLength) {
    unsigned int size = 0;
    if (file->seek(start, File::FROM_START) == -1 ||
        file->findNextLineSize(target.size, &size, nullptr) == -1) {
        return -1;
    }
    long long const next = file->position();
    if (next == -1 || file->seek(start, File::FROM_START) == -1) {
        return -1;
    }
    if (next == start) {
        return File::END_OF_FILE;  // whatever the file's size says
    }
    unsigned int length = 0;
    int const result =
        size != 0 ? file->readText(target.buffer, target.size, size, 0, &length) : target.storeNothing();
    return leaveLine(file, {start, next, size}, target, result, length, outputLength);
}

}  // namespace

int File::setTextType(int textType) noexcept {
    if (textUnitBytes(textType) == 0) {
        return 0;
    }
    mTextType = textType;
    return 1;
}

int File::readText(char* buffer, unsigned int bufferSize, unsigned int length, unsigned int offset,
                   unsigned int* outputLength) {
    unsigned int const unitBytes = textUnitBytes(mTextType);
    unsigned int const wanted = unitBytes != 0 ? length / unitBytes * unitBytes : 0;
    TextTarget const target{buffer, bufferSize, offset};
    if (isOpened() == 0 || wanted == 0 || wanted > TEXT_BYTES_MAX || !target.isUsable() || position() == -1) {
        return -1;
    }
    long long const available = availableSize();
    if (available <= 0) {
        return available == 0 ? END_OF_FILE : -1;
    }
    auto const count = static_cast<unsigned int>(std::min<long long>(wanted, available));
    if (!target.hasRoom(unitBytes + count)) {
        return -1;
    }
    std::vector<char> bytes(count + TEXT_UNIT_BYTES_MAX);
    int const result = read(bytes.data(), count);
    if (result <= 0) {
        return result == -1 ? -1 : END_OF_FILE;
    }
    unsigned int const size =
        target.store(Utf8Text(mTextType, bytes.data(), static_cast<unsigned int>(result)));
    if (size == INVALID_SIZE) {
        return -1;
    }
    setIfGiven(outputLength, size);
    return result;
}

int File::readText(BasicString<char>* text, unsigned int length, unsigned int offset,
                   unsigned int* outputLength) {
    StringTarget const target(text);
    return readText(target.buffer(), target.size(), length, offset, outputLength);
}

int File::readLine(char* buffer, unsigned int bufferSize, unsigned int* outputLength) {
    TextTarget const target{buffer, bufferSize, 0};
    long long const start = isOpened() != 0 && target.isUsable() ? position() : -1;
    if (start == -1 || bufferSize > TEXT_BYTES_MAX) {
        return -1;
    }
    long long const size = openedSize();
    if (size <= start) {
        return size == -1 ? -1 : END_OF_FILE;
    }
    if (textUnitBytes(mTextType) == 0) {
        return -1;
    }
    char block[SHORT_LINE_BYTES + TEXT_UNIT_BYTES_MAX];
    int const count =
        readFile(block, static_cast<unsigned int>(std::min<long long>(size - start, SHORT_LINE_BYTES)));
    if (count == -1) {
        logLineReadError(mTextType);
        return -1;
    }
    LineSearch line(mTextType);
    bool const isLast = count == size - start;
    line.examine(block, static_cast<unsigned int>(count), isLast);
    if (!line.isFound() && !isLast) {
        return readLongLine(this, start, target, outputLength);
    }
    LinePlace const place{start, start + (line.isFound() ? line.totalSize() : count), line.lineSize()};
    return readShortLine(this, mTextType, place, block, target, outputLength);
}

int File::readLine(BasicString<char>* text, unsigned int* outputLength) {
    StringTarget const target(text);
    return readLine(target.buffer(), target.size(), outputLength);
}

int File::findNextLineSize(unsigned int /*limit*/, unsigned int* lineSize, unsigned int* eolSize) {
    if (textUnitBytes(mTextType) == 0) {
        return -1;
    }
    std::vector<char> block(BLOCK_BYTES);
    LineSearch line(mTextType);
    unsigned int held = 0;
    for (bool isLast = false; !line.isFound() && !isLast;) {
        int const count = read(block.data() + held, BLOCK_BYTES - held);
        if (count == -1) {
            logLineReadError(mTextType);
            return -1;
        }
        isLast = count <= 0;
        held += isLast ? 0 : static_cast<unsigned int>(count);
        unsigned int const done = line.examine(block.data(), held, isLast);
        if (line.totalSize() > INT_MAX) {
            return -1;
        }
        held -= done;
        std::memmove(block.data(), block.data() + done, held);
    }
    if (line.isFound() && held != 0 && seek(-static_cast<long long>(held), FROM_POSITION) == -1) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "in findNextLineSize func seekFile error");
        return -1;
    }
    setIfGiven(lineSize, line.lineSize());
    setIfGiven(eolSize, line.eolSize());
    return line.isFound() ? static_cast<int>(line.totalSize()) : 0;
}

int File::writeText(char const* text, unsigned int length, unsigned int offset) {
    if (isOpened() == 0 || text == nullptr || length > TEXT_BYTES_MAX) {
        return -1;
    }
    char const* const rest = text + boundedLength(text, offset);
    switch (mTextType) {
        case TEXT_UTF8:
            return writeUnits(this, rest, boundedLength(rest, TEXT_BYTES_MAX), 1, length, offset);
        case TEXT_UTF16_BIG:
        case TEXT_UTF16_LITTLE:
            return writeAsUtf16(this, rest, mTextType, length, offset);
        default:
            return -1;
    }
}

int File::writeLine(char const* text) {
    int const textBytes = writeText(text, TEXT_BYTES_MAX, 0);
    int const eolBytes = textBytes != -1 ? writeText(LINE_END, TEXT_BYTES_MAX, 0) : -1;
    return eolBytes != -1 ? textBytes + eolBytes : -1;
}

}  // namespace utl

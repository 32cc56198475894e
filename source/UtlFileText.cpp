#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

#include "UtlCharSet.h"
#include "UtlFile.h"
#include "UtlLog.h"
#include "internal/base/UtlSetIfGiven.h"
#include "internal/file/UtlFileCalls.h"
#include "internal/file/UtlLineSearch.h"
#include "internal/file/UtlReadAhead.h"
#include "internal/file/UtlTextType.h"
#include "internal/file/UtlUtf8Text.h"
#include "internal/text/UtlCharDecoder.h"

namespace utl {

namespace {

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

/// Saves the bytes after a text, which `Utf8Text` overwrites, and restores them at the end of the scope. *One
/// owner thread*, because it lives on a stack.
class [[nodiscard]] SavedTextEnd {
  public:
    explicit SavedTextEnd(char* end) : mEnd(end) { std::memcpy(mBytes, mEnd, sizeof(mBytes)); }
    ~SavedTextEnd() { std::memcpy(mEnd, mBytes, sizeof(mBytes)); }
    SavedTextEnd(SavedTextEnd const&) = delete;
    SavedTextEnd& operator=(SavedTextEnd const&) = delete;

  private:
    char* const mEnd;
    char mBytes[TEXT_UNIT_BYTES_MAX];
};

/// Stores the next `count` bytes that were read ahead, and moves over them. Returns what `TextTarget::store`
/// does.
unsigned int storeAhead(ReadAhead* ahead, int textType, unsigned int count, TextTarget const& target) {
    char* const bytes = ahead->bytes();
    ahead->pass(count);
    SavedTextEnd const end(bytes + count);
    return target.store(Utf8Text(textType, bytes, count));
}

// What the search for a line returns besides the results of `readLine`.
constexpr int LINE_IS_AHEAD = 1;
constexpr int LINE_IS_LONGER = 0;

/// Bytes of a line without and with its end.
struct LineSizes {
    unsigned int text;
    unsigned int total;
};

/// Reads the line at the position, whose bytes were read ahead, as `readLine` does.
int takeLine(ReadAhead* ahead, int textType, LineSizes const& line, TextTarget const& target,
             unsigned int* outputLength) {
    if (line.text > File::TEXT_BYTES_MAX ||
        (line.text != 0 && !target.hasRoom(textUnitBytes(textType) + line.text))) {
        return -1;
    }
    long long const start = ahead->position();
    unsigned int length = 0;
    if (line.text == 0) {
        target.storeNothing();
    } else {
        length = storeAhead(ahead, textType, line.text, target);
    }
    if (length == INVALID_SIZE) {
        return -1;
    }
    ahead->moveTo(target.size != 0 ? start + line.total : start);
    setIfGiven(outputLength, length);
    return static_cast<int>(line.text);
}

/// Reads a line that is too long to be read ahead, and may be too long to be read; the position then stays at
/// its start.
int readLongLine(File* file, ReadAhead* ahead, TextTarget const& target, unsigned int* outputLength) {
    long long const start = ahead->position();
    unsigned int size = 0;
    if (file->findNextLineSize(target.size, &size, nullptr) == -1) {
        return -1;
    }
    long long const next = ahead->position();
    ahead->moveTo(start);
    unsigned int length = 0;
    int const result =
        size != 0 ? file->readText(target.buffer, target.size, size, 0, &length) : target.storeNothing();
    if (result < 0) {
        return result;
    }
    ahead->moveTo(target.size != 0 ? next : start);
    setIfGiven(outputLength, length);
    return result;
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
    bool const isUsable = isOpened() != 0 && wanted != 0 && wanted <= TEXT_BYTES_MAX && target.isUsable();
    long long const start = isUsable ? position() : -1;
    if (start == -1) {
        return -1;
    }
    mReadAhead->moveTo(start);
    unsigned int count = wanted;
    long long available = mReadAhead->count();
    if (available < count) {
        available = availableSize();
        if (available <= 0) {
            return available == 0 ? END_OF_FILE : -1;
        }
        count = static_cast<unsigned int>(std::min<long long>(wanted, available));
    }
    if (!target.hasRoom(unitBytes + count)) {
        return -1;
    }
    ReadRoom const room(mReadAhead.get(), count);
    if (mReadAhead->count() < count) {
        mReadAhead->dropBytes();
        int const result = readOn(start + available);
        if (result <= 0) {
            return result == -1 ? -1 : END_OF_FILE;
        }
        count = std::min(count, mReadAhead->count());
    }
    unsigned int const size = storeAhead(mReadAhead.get(), mTextType, count, target);
    if (size == INVALID_SIZE) {
        return -1;
    }
    setIfGiven(outputLength, size);
    return static_cast<int>(count);
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
    ReadAhead& ahead = *mReadAhead;
    ahead.moveTo(start);
    {
        ReadRoom const room(&ahead);
        LineSizes line{};
        int const result = findLineAhead(&line.text, &line.total);
        if (result == LINE_IS_AHEAD) {
            return takeLine(&ahead, mTextType, line, target, outputLength);
        }
        if (result != LINE_IS_LONGER) {
            return result;
        }
    }
    return readLongLine(this, &ahead, target, outputLength);
}

/// Finds the end of the line at the position among the bytes that were read ahead, and reads on until it is
/// there. Sets the bytes of the line without and with its end and returns `LINE_IS_AHEAD`; `LINE_IS_LONGER`
/// than the room, `END_OF_FILE`, or -1 with lines. The position stays. Needs a `ReadRoom`.
int File::findLineAhead(unsigned int* textSize, unsigned int* totalSize) {
    ReadAhead& ahead = *mReadAhead;
    bool const isText = textUnitBytes(mTextType) != 0;
    LineSearch known(mTextType);
    if (isText) {
        known.examine(ahead.bytes(), ahead.count(), false);
    }
    if (known.isFound()) {
        *textSize = known.lineSize();
        *totalSize = known.totalSize();
        return LINE_IS_AHEAD;
    }
    long long const size = openedSize();
    if (size <= ahead.position() || !isText) {
        return size == -1 || size > ahead.position() ? -1 : END_OF_FILE;
    }
    ahead.dropBytes();
    LineSearch line(mTextType);
    unsigned int examined = 0;
    for (bool isLast = false; !line.isFound() && !isLast;) {
        if (ahead.isFull()) {
            return LINE_IS_LONGER;
        }
        int const count = readOn(size);
        if (count == -1) {
            logLineReadError(mTextType);
            return -1;
        }
        isLast = count == 0 || ahead.end() == size;
        examined += line.examine(ahead.bytes() + examined, ahead.count() - examined, isLast);
    }
    *textSize = line.lineSize();
    *totalSize = line.isFound() ? line.totalSize() : ahead.count();
    return ahead.count() != 0 ? LINE_IS_AHEAD : END_OF_FILE;
}

int File::readLine(BasicString<char>* text, unsigned int* outputLength) {
    StringTarget const target(text);
    return readLine(target.buffer(), target.size(), outputLength);
}

int File::findNextLineSize(unsigned int /*limit*/, unsigned int* lineSize, unsigned int* eolSize) {
    if (textUnitBytes(mTextType) == 0) {
        return -1;
    }
    if (isOpened() != 0 && mReadAhead->knowsPosition()) {
        reportFileAlive("findNextLineSize", __LINE__);
    }
    ReadRoom const room(mReadAhead.get());
    LineSearch line(mTextType);
    if (isOpened() != 0) {
        mReadAhead->pass(line.examine(mReadAhead->bytes(), mReadAhead->count(), false));
    }
    for (bool isLast = false; !line.isFound() && !isLast;) {
        long long const size = sizeToRead();
        int const count = size != -1 ? readOn(size) : -1;
        if (count == -1) {
            logLineReadError(mTextType);
            return -1;
        }
        isLast = count == 0;
        mReadAhead->pass(line.examine(mReadAhead->bytes(), mReadAhead->count(), isLast));
        if (line.totalSize() > INT_MAX) {
            return -1;
        }
    }
    if (!line.isFound()) {
        mReadAhead->pass(mReadAhead->count());
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

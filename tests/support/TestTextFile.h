#pragma once

// What the tests of text in files share: a file with given bytes, and what its operations returned.

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <ostream>
#include <string>

#include "TestFolder.h"
#include "TestHooks.h"
#include "TestLineModel.h"
#include "TestLog.h"
#include "UtlFile.h"
#include "UtlLog.h"

namespace utltest {

constexpr unsigned int UNTOUCHED = 0xABCDEF01;

constexpr int ALL_TYPES[] = {utl::File::TEXT_SJIS, utl::File::TEXT_UTF8, utl::File::TEXT_UTF16_BIG,
                             utl::File::TEXT_UTF16_LITTLE};
constexpr int TYPES_OF_UNITS[] = {utl::File::TEXT_UTF16_BIG, utl::File::TEXT_UTF16_LITTLE};

/// ASCII text in the encoding of the type.
inline std::string encoded(std::string const& ascii, int textType) {
    std::string bytes;
    for (char const byte : ascii) {
        bytes += textType == utl::File::TEXT_UTF16_BIG ? std::string(1, '\0') : "";
        bytes += byte;
        bytes += textType == utl::File::TEXT_UTF16_LITTLE ? std::string(1, '\0') : "";
    }
    return bytes;
}

/// What reading returned: the result, the text in the buffer, the output length, and the position afterwards.
struct TextRead {
    int result;
    std::string text;
    unsigned int length;
    long long position;

    bool operator==(TextRead const& other) const {
        return result == other.result && text == other.text && length == other.length &&
               position == other.position;
    }
    friend std::ostream& operator<<(std::ostream& out, TextRead const& read) {
        return out << read.result << ", " << testing::PrintToString(read.text) << ", " << read.length
                   << ", at " << read.position;
    }
};

/// A buffer of exactly its size, without a terminator anywhere.
class Buffer {
  public:
    explicit Buffer(unsigned int size) : mBytes(new char[size]), mSize(size) {
        std::fill_n(mBytes.get(), size, FILLED);
    }

    char* get() const { return mBytes.get(); }
    unsigned int size() const { return mSize; }

    /// The text from `offset` to the terminator; "~" for a buffer that was not written.
    std::string text(unsigned int offset = 0) const {
        std::string const all(mBytes.get(), mSize);
        return all == std::string(mSize, FILLED) ? "~" : all.substr(offset, all.find('\0', offset) - offset);
    }

  private:
    static constexpr char FILLED = '~';

    std::unique_ptr<char[]> mBytes;
    unsigned int mSize;
};

/// The file "text", and the library's log with all its levels.
class TextInFolder : public InFolder {
  protected:
    TextInFolder() { setFilterLevel(utl::LOG_TYPE_LIBRARY, utl::LOG_LEVEL_DEBUG); }
    ~TextInFolder() override { setFilterLevel(utl::LOG_TYPE_LIBRARY, utl::LOG_LEVEL_DETAIL); }

    /// The file with this content, open to read.
    utl::File& reading(std::string const& content, int textType) {
        return opened(content, textType, utl::File::ACCESS_READ);
    }

    /// The same to read and write.
    utl::File& writing(std::string const& content, int textType) {
        return opened(content, textType, utl::File::ACCESS_READ_WRITE);
    }

    /// The file's content once it is closed.
    std::string written() {
        mFile.reset();
        return contentOf("text");
    }

    static TextRead readText(utl::File& file, unsigned int length, unsigned int size = 6000) {
        Buffer const buffer(size);
        unsigned int outputLength = UNTOUCHED;
        int const result = file.readText(buffer.get(), size, length, 0, &outputLength);
        return {result, buffer.text(), outputLength, file.position()};
    }

    static TextRead readLine(utl::File& file, unsigned int size = utl::File::TEXT_BYTES_MAX) {
        Buffer const buffer(size);
        unsigned int outputLength = UNTOUCHED;
        int const result = file.readLine(buffer.get(), size, &outputLength);
        return {result, buffer.text(), outputLength, file.position()};
    }

    static std::string error(std::string const& text) { return "<UTIL> ERR: " + text; }

    LogCapture mLog;

  private:
    utl::File& opened(std::string const& content, int textType, int access) {
        mFile.reset();
        putFile("text", content);
        mFile = std::make_unique<utl::File>("text", textType);
        EXPECT_EQ(mFile->open(utl::File::OPEN_KEEP, access), 1);
        return *mFile;
    }

    std::unique_ptr<utl::File> mFile;
};

/// Lines of the file "text", and where they end.
class FileLine : public TextInFolder {
  protected:
    static LineEnd findLineEnd(utl::File& file) {
        unsigned int lineSize = UNTOUCHED;
        unsigned int eolSize = UNTOUCHED;
        int const result = file.findNextLineSize(0, &lineSize, &eolSize);
        return {result, lineSize, eolSize, file.position()};
    }

    LineEnd lineEndIn(std::string const& content, int textType) {
        return findLineEnd(reading(content, textType));
    }
};

/// What `call` returns while number `n` of its calls of one kind fails.
template <typename CALL>
auto withNthFailing(int kind, unsigned int n, CALL call) {
    OwnHookScope const scope;
    if (kind == 0) {
        hooks::pread.failFrom(n, 1, -1, EIO);
    } else if (kind == 1) {
        hooks::lseek.failFrom(n, 1, -1, EIO);
    } else {
        hooks::fstat.failFrom(n, 1, -1, EIO);
    }
    return call();
}

}  // namespace utltest

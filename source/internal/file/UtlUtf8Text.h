#pragma once

#include <memory>

#include "UtlPlatform.h"

namespace utl {

/// Text of a file as UTF-8; *one owner thread*, for the time of a call.
class Utf8Text {
  public:
    /// Converts the `count` bytes at `bytes`; or uses them as they are if they are UTF-8, without a leading
    /// byte order mark. Overwrites the `TEXT_UNIT_BYTES_MAX` bytes after them with a terminator.
    Utf8Text(int textType, char* bytes, unsigned int count);
    Utf8Text(Utf8Text const&) = delete;
    Utf8Text& operator=(Utf8Text const&) = delete;

    /// Bytes of the text with its terminator; `INVALID_SIZE` if the file's bytes are no text of its type.
    unsigned int size() const { return mSize; }

    /// Copies the text, which must fit, up to its first zero; false, with nothing changed, if it is
    /// malformed.
    bool copyTo(char* dst, unsigned int dstSize) const;

  private:
    // Most lines need no memory from the heap.
    static constexpr unsigned int SHORT_BYTES = 512;

    void takeUtf8(char const* bytes, unsigned int count);
    void convertUtf16(int textType, char const* bytes, unsigned int count);
    template <typename UNIT>
    void convert(unsigned int (*function)(char*, unsigned int, UNIT const*), unsigned int units,
                 UNIT const* src);
    char* roomFor(unsigned int bytes);
    bool isMadeOfSequences() const;

    char const* mpText = nullptr;
    unsigned int mSize = INVALID_SIZE;
    char mShort[SHORT_BYTES];
    std::unique_ptr<char[]> mLong;
};

}  // namespace utl

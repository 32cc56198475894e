#pragma once

namespace utl {

/// Searches for the end of a line in successive blocks of a file; *one owner thread*, because it remembers
/// the previous blocks.
///
/// A line feed ends the line, and the carriage returns before it belong to the line end; any other carriage
/// return is text. Bytes that are no character (malformed UTF-8, zero bytes in UTF-8, byte order marks) are
/// text that does not separate a carriage return from the line feed. The bytes of a line feed are one
/// whatever precedes them.
class LineSearch {
  public:
    /// `textType` must be a `File::TextType`.
    explicit LineSearch(int textType) : mTextType(textType) {}

    /// Examines the next `count` bytes. Returns how many of them belong to the line and its end, or, if the
    /// end was not found, how many were consumed: the few others begin an incomplete character and must come
    /// again before the next ones. With `isLast` nothing follows, and only half a unit of UTF-16 remains.
    unsigned int examine(char const* bytes, unsigned int count, bool isLast);

    /// True once a line feed was found.
    bool isFound() const { return mIsFound; }

    /// Bytes so far, including those of the line end.
    unsigned int totalSize() const { return mTotal; }

    /// Bytes of the line end, 0 if there is none yet; carriage returns at the end of the file count as one.
    unsigned int eolSize() const { return mPending; }

    /// Bytes of the line without its end.
    unsigned int lineSize() const { return mTotal - mPending; }

  private:
    int const mTextType;
    unsigned int mTotal = 0;
    unsigned int mPending = 0;
    bool mIsFound = false;
};

}  // namespace utl

#pragma once

namespace utl {

/// Looks for the end of a line in the bytes of a file, as they come; *one owner thread*, because it remembers
/// what came before.
///
/// A line feed ends the line, and carriage returns in front of it belong to the line end; any other carriage
/// return is text. What is no character (malformed UTF-8, zero bytes in UTF-8, byte order marks) is text that
/// does not separate a carriage return from the line feed. The bytes of a line feed are one in whatever comes
/// in front of them.
class LineSearch {
  public:
    /// `textType` must be one.
    explicit LineSearch(int textType) : mTextType(textType) {}

    /// Goes on with the next `count` bytes. Gives how many of them belong to the line and its end, or, if
    /// that was not found, are done with: the few others begin a character that is not complete and come
    /// again in front of the next ones. With `isLast` nothing follows, and only half a unit of UTF-16 is left
    /// over.
    unsigned int goOn(char const* bytes, unsigned int count, bool isLast);

    /// True once there was a line feed.
    bool isFound() const { return mIsFound; }

    /// Bytes so far, with those of the line end.
    unsigned int totalSize() const { return mTotal; }

    /// Bytes of the line end, 0 if there is none yet; carriage returns at the end of the file are one.
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

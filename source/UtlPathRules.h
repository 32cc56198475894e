#pragma once

#include <memory>

namespace utl {

/// Bytes of a path buffer, and so of the longest path that passes the path check with its terminator.
constexpr unsigned int PATH_BUFFER_SIZE = 260;

/// True for text that is well-formed throughout; it must not be null.
bool isUtf8(char const* text);

/// A copy of a path in which each `\` is a `/`; *one owner thread*, because it lives on a stack. Takes memory
/// from the heap only for a path that is too long for the path check.
class NormalPath {
  public:
    /// `path` may be null.
    explicit NormalPath(char const* path);
    NormalPath(NormalPath const&) = delete;
    NormalPath& operator=(NormalPath const&) = delete;

    /// True for a path that fits into a path buffer and has no doubled separator. False for null.
    bool passesCheck() const;

    /// The copy, null for a null path. Who changes it leaves its length or makes it shorter.
    char* text() { return mText; }
    char const* text() const { return mText; }

    /// Bytes without the terminator; 0 for null.
    unsigned int length() const { return mLength; }

  private:
    unsigned int const mLength;
    std::unique_ptr<char[]> const mLongPath;
    char mBuffer[PATH_BUFFER_SIZE];
    char* const mText;
};

}  // namespace utl

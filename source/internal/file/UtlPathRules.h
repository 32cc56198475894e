#pragma once

#include <memory>

namespace utl {

/// Bytes of a path buffer: the longest path that passes the path check, with its terminator.
constexpr unsigned int PATH_BUFFER_SIZE = 260;

/// True for text that is well-formed throughout; it must not be null.
bool isUtf8(char const* text);

/// A copy of a path in which each `\` is a `/`; *one owner thread*, because it lives on a stack. A path that
/// is too long for the path check is not copied, so that no memory is needed.
class NormalPath {
  public:
    /// `path` may be null.
    explicit NormalPath(char const* path);
    NormalPath(NormalPath const&) = delete;
    NormalPath& operator=(NormalPath const&) = delete;

    /// True for a path that fits into a path buffer and has no doubled separator. False for null.
    bool passesCheck() const;

    /// The copy, null for a null path and for one that is too long. A change must not make it longer.
    char* text() { return mIsCopied ? mBuffer : nullptr; }
    char const* text() const { return mIsCopied ? mBuffer : nullptr; }

    /// Bytes without the terminator; 0 for null.
    unsigned int length() const { return mLength; }

  private:
    unsigned int const mLength;
    bool const mIsCopied;
    char mBuffer[PATH_BUFFER_SIZE];
};

/// The same for operations without the path check: long paths are copied as well, to the heap. *One owner
/// thread*, because it lives on a stack.
class AnyPath {
  public:
    /// `path` may be null.
    explicit AnyPath(char const* path);
    AnyPath(AnyPath const&) = delete;
    AnyPath& operator=(AnyPath const&) = delete;

    /// The copy, null for a null path.
    char const* text() const { return mLongText != nullptr ? mLongText.get() : mPath.text(); }

  private:
    NormalPath const mPath;
    std::unique_ptr<char[]> const mLongText;
};

}  // namespace utl

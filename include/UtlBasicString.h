#pragma once

#include <cstring>
#include <memory>
#include <utility>

#include "UtlArray.h"
#include "UtlPlatform.h"
#include "UtlString.h"

namespace utl {

/// One value in a narrow and a wide form, as constant tables hold it; *immutable*, because a
/// table is filled before any thread starts and only read after that.
template <typename N, typename W>
class UTL_API DualType {
  public:
    /// Both forms are zero, or as given.
    constexpr DualType() : mNarrow(), mWide() {}
    constexpr DualType(N narrow, W wide) : mNarrow(narrow), mWide(wide) {}
    virtual ~DualType() = default;
    DualType(DualType const&) = default;
    DualType& operator=(DualType const&) = default;

    N mNarrow;  ///< the narrow form
    W mWide;    ///< the wide form
};

/// The values from `mLow` to `mHigh`, both included; *immutable*, because a range stays as it was
/// constructed.
template <typename T>
class UTL_API Range {
  public:
    /// From zero to zero, or as given.
    constexpr Range() : mLow(), mHigh() {}
    constexpr Range(T low, T high) : mLow(low), mHigh(high) {}
    virtual ~Range() = default;
    Range(Range const&) = default;
    Range& operator=(Range const&) = default;

    T mLow;   ///< the first value
    T mHigh;  ///< the last value
};

/// Chooses the constructor of a constant, which is there before any code of the program runs.
struct ConstantTag {};

/// UTF-8 text that owns its buffer; *external lock needed*, because a string holds none.
///
/// The capacity is explicit and never shrinks by itself. `operator=` and `operator+=` always enlarge it to
/// fit, since they could not report that text was lost. `copy` and `replace` can: they enlarge it only with
/// `AUTO_RESIZE_ON`, and stay inside it with any other `autoResize`.
///
/// | State         | Entered by                                       | Buffer                  |
/// |---------------|--------------------------------------------------|-------------------------|
/// | sharing       | default construction, `resizeMax` to 0 or 1      | empty, not its own      |
/// | owning        | every other construction, growing                | `maxSize()` bytes       |
/// | without       | an allocator that returns null, no `EMPTY_STR`   | null                    |
///
/// A string without a buffer counts as empty everywhere. An allocation that throws leaves the string as it
/// was.
template <typename T>
class UTL_API BasicString {
  public:
    /// What `EMPTY_STR` points to. Never anything but zero.
    static T mEmptyChar;
    static wchar_t mEmptyWChar;

    /// The empty text that strings share. It is initialised before any code runs and never destroyed. A null
    /// `mNarrow` still counts as "not available yet", so that a table that is built first does no harm.
    static DualType<char const*, wchar_t const*> EMPTY_STR;

    /// An empty string of capacity 1; allocates nothing.
    BasicString();

    /// The same as a constant, whatever `EMPTY_STR` holds.
    explicit constexpr BasicString(ConstantTag) noexcept
        : mBuffer(&mEmptyChar), mMaxSize(1), mAutoResize(0), mShared(true) {}

    /// An empty string; `maxSize` counts the terminator, and 0 counts as 1. All bytes are zero.
    BasicString(unsigned int maxSize, int autoResize);

    /// Holds `text`; the capacity is what that needs, or `maxSize` if that is more. Null counts as empty.
    BasicString(T const* text, unsigned int maxSize = 0, int autoResize = 0);

    /// Holds the other's text in a capacity of exactly what that needs, with `AUTO_RESIZE_OFF`.
    BasicString(BasicString const& other);

    virtual ~BasicString();

    /// Makes `text` the text, and enlarges the capacity if that needs more; null counts as empty.
    /// `text` may be a part of this string.
    BasicString& operator=(T const* text);

    /// As above.
    BasicString& operator=(BasicString const& other);

    /// Exchanges text, buffer and capacity with `other`; allocates nothing. What `buffer` returned stays
    /// valid, as the other's.
    void swap(BasicString& other) noexcept {
        std::swap(mBuffer, other.mBuffer);
        std::swap(mMaxSize, other.mMaxSize);
        std::swap(mAutoResize, other.mAutoResize);
        std::swap(mShared, other.mShared);
    }

    /// Appends. If the text does not fit, the capacity grows by its length plus one. Null changes nothing.
    /// `text` may be a part of this string.
    BasicString& operator+=(T const* text);

    /// Makes at most the first `length` bytes of `text` the text, all with `INVALID_SIZE`. With `TRUNCATE_ON`
    /// what does not fit is cut off after the last character that does. False, with the old text kept, for
    /// null, for text that does not fit with any other `truncate`, and for malformed bytes: with
    /// `TRUNCATE_ON` if the way to the cut leads over them, otherwise only if nothing before the cut can
    /// start a character. A `length` of 0 returns true and keeps the old text: callers that build a text
    /// piece by piece rely on that. An empty `text` makes the string empty, but without `TRUNCATE_ON` it is
    /// refused if `length` is neither `INVALID_SIZE` nor below the capacity.
    bool copy(T const* text, unsigned int length, int truncate);

    /// Replaces each `from` by `to` with the rules of `replaceStr`: an empty `to` drops everything from the
    /// first match on. Works on up to 10239 bytes of text. False for null, which changes nothing, for longer
    /// text, for a result that does not fit, and with `TRUNCATE_ON` for malformed bytes before the cut or
    /// the end; after the last two the string holds a part of the result. `from` and `to` must not be parts
    /// of this string. Waits for other users of the `WorkingBuffer`.
    bool replace(T const* from, T const* to, int truncate);

    /// Makes the capacity `maxSize` and keeps the characters that fit. 0 and 1 empty the string and free its
    /// buffer; while there is no `EMPTY_STR` they return false and the buffer stays, with a capacity of 1.
    /// False if there was a text and nothing of it could be kept (malformed bytes alone). False also if the
    /// allocator returned null: `maxSize()` is then the new capacity, but there is no buffer until
    /// `resizeMax` with another capacity succeeds; with the same one it returns true and does nothing.
    bool resizeMax(unsigned int maxSize);

    /// The text, valid until the string changes; null if there is no buffer.
    [[nodiscard]] T const* buffer() const noexcept { return mBuffer; }

    /// Capacity in bytes, the terminator included; never 0.
    [[nodiscard]] unsigned int maxSize() const noexcept { return mMaxSize; }

    /// Bytes of the text, without the terminator.
    [[nodiscard]] unsigned int length() const noexcept {
        return static_cast<unsigned int>(std::strlen(text()));
    }

    /// Byte by byte; null counts as empty.
    [[nodiscard]] bool operator==(T const* other) const noexcept {
        return std::strcmp(text(), other != nullptr ? other : &mEmptyChar) == 0;
    }
    [[nodiscard]] bool operator==(BasicString const& other) const noexcept { return *this == other.buffer(); }
    [[nodiscard]] bool operator!=(T const* other) const noexcept { return !(*this == other); }
    [[nodiscard]] bool operator!=(BasicString const& other) const noexcept { return !(*this == other); }

  private:
    using Buffer = std::unique_ptr<T[]>;

    T const* text() const noexcept { return mBuffer != nullptr ? mBuffer : &mEmptyChar; }
    bool renewBuffer(unsigned int maxSize, Buffer* old);
    bool copyInside(T const* text, unsigned int count, int truncate);
    bool shareEmptyText();
    void makeEmpty();
    void deleteBuffer();

    T* mBuffer;
    unsigned int mMaxSize;
    int mAutoResize;
    bool mShared;
};

/// Defined by the library.
template <>
UTL_API DualType<char const*, wchar_t const*> BasicString<char>::EMPTY_STR;

[[nodiscard]] inline bool operator==(char const* left, BasicString<char> const& right) noexcept {
    return right == left;
}
[[nodiscard]] inline bool operator!=(char const* left, BasicString<char> const& right) noexcept {
    return right != left;
}

/// A string of exactly the capacity that both need, with `AUTO_RESIZE_OFF`. Null counts as empty.
[[nodiscard]] UTL_API BasicString<char> operator+(char const* left, BasicString<char> const& right);

extern template class DualType<char const*, wchar_t const*>;
extern template class Range<char>;
extern template class BasicString<char>;
extern template class UTL_API_INSTANCE Array<BasicString<char>>;

}  // namespace utl

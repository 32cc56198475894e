#pragma once

#include <cstring>
#include <memory>
#include <utility>

#include "UtlArray.h"
#include "UtlPlatform.h"

namespace utl {

/// One value in a narrow and a wide form, as the slots of constant tables have it; *immutable*, because a
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

/// The values from `mLow` to `mHigh`, both included; *immutable*, because a range stays as it was made.
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

/// Chooses the constructor that makes a constant: what it makes is there before any code of the program runs.
struct ConstantTag {};

/// UTF-8 text that owns its buffer; *external lock needed*, because a string holds none.
///
/// The capacity is explicit and never shrinks by itself. `operator=` and `operator+=` always enlarge it to
/// fit, since they could not report that text was lost. `copy` and `replace` can: they enlarge it with
/// `autoResize` 1 only, and work inside it with any other value.
///
/// | State         | Entered by                                       | Buffer                  |
/// |---------------|--------------------------------------------------|-------------------------|
/// | sharing       | default construction, `resizeMax` to 0 or 1      | empty, not its own      |
/// | owning        | every other construction, growing                | `maxSize()` bytes       |
/// | without       | an allocator that gives null, no `EMPTY_STR` yet | null                    |
///
/// A string without a buffer counts as empty everywhere. An allocation that throws leaves the string as it
/// was.
template <typename T>
class UTL_API BasicString {
  public:
    /// What `EMPTY_STR` points to. Never anything but zero.
    static T mEmptyChar;
    static wchar_t mEmptyWChar;

    /// The empty text that strings share. It is filled before any code runs and never destroyed; users still
    /// take a null `mNarrow` for "not available yet", so that a table that is built first does no harm.
    static DualType<char const*, wchar_t const*> EMPTY_STR;

    /// An empty string of capacity 1; allocates nothing.
    BasicString();

    /// The same as a constant, whatever `EMPTY_STR` holds.
    explicit constexpr BasicString(ConstantTag)
        : mBuffer(&mEmptyChar), mMaxSize(1), mAutoResize(0), mShared(true) {}

    /// An empty string; `maxSize` counts the terminator, and 0 means 1. All bytes are zero.
    BasicString(unsigned int maxSize, int autoResize);

    /// Holds `text`; the capacity is what that needs or `maxSize`, whichever is more. Null counts as empty.
    BasicString(T const* text, unsigned int maxSize = 0, int autoResize = 0);

    /// Holds the other's text in a capacity of exactly what that needs, with `autoResize` 0.
    BasicString(BasicString const& other);

    virtual ~BasicString();

    /// Makes this the text, enlarging the capacity to what it needs if that is more; null counts as empty.
    /// `text` may be a part of this string.
    BasicString& operator=(T const* text);

    /// As above.
    BasicString& operator=(BasicString const& other);

    /// Exchanges text, buffer and capacity with `other`; allocates nothing. What `buffer` gave stays valid,
    /// as the other's.
    void swap(BasicString& other) noexcept {
        std::swap(mBuffer, other.mBuffer);
        std::swap(mMaxSize, other.mMaxSize);
        std::swap(mAutoResize, other.mAutoResize);
        std::swap(mShared, other.mShared);
    }

    /// Appends. Where the text does not fit, the capacity grows by its length plus one. Null changes nothing.
    /// `text` may be a part of this string.
    BasicString& operator+=(T const* text);

    /// Makes this at most the first `length` bytes of `text`, all with `INVALID_SIZE`. With `truncate` 1 what
    /// does not fit is cut off behind the last character that does. False, with the old text kept, for null,
    /// for text that does not fit with any other `truncate`, and for malformed bytes: with `truncate` 1
    /// wherever the walk to the cut meets them, otherwise only when nothing before the cut can start a
    /// character. A `length` of 0 gives true and keeps the old text: callers that build a text piece by piece
    /// rely on an empty piece doing no harm. An empty `text` makes the string empty, but is refused without
    /// `truncate` where `length` is neither `INVALID_SIZE` nor below the capacity.
    bool copy(T const* text, unsigned int length, int truncate);

    /// Replaces each `from` by `to` with the rules of `replaceStr`: an empty `to` drops everything from the
    /// first match on. Works on up to 10239 bytes of text. False for null, which changes nothing, for longer
    /// text, for a result that does not fit, and with `truncate` 1 for malformed bytes in front of the
    /// cut or the end; after these two the string holds a part of the result. `from` and `to`
    /// must not be parts of this string. Waits for other users of the `WorkingBuffer`.
    bool replace(T const* from, T const* to, int truncate);

    /// Makes the capacity `maxSize` and keeps the characters that fit. 0 and 1 empty the string and give its
    /// buffer back; while there is no `EMPTY_STR` they give false and the buffer stays, with a capacity of 1.
    /// False if no text could be kept although there was one (malformed bytes alone). False also if the
    /// allocator gave null: `maxSize()` then tells the new capacity, but there is no buffer until `resizeMax`
    /// with another capacity succeeds; with the same one it gives true and does nothing.
    bool resizeMax(unsigned int maxSize);

    /// The text, valid until the string changes; null if there is no buffer.
    T const* buffer() const { return mBuffer; }

    /// Capacity in bytes, the terminator included; never 0.
    unsigned int maxSize() const { return mMaxSize; }

    /// Bytes of the text, without the terminator.
    unsigned int length() const { return static_cast<unsigned int>(std::strlen(text())); }

    /// Byte by byte; null counts as empty.
    bool operator==(T const* other) const {
        return std::strcmp(text(), other != nullptr ? other : &mEmptyChar) == 0;
    }
    bool operator==(BasicString const& other) const { return *this == other.buffer(); }
    bool operator!=(T const* other) const { return !(*this == other); }
    bool operator!=(BasicString const& other) const { return !(*this == other); }

  private:
    using Buffer = std::unique_ptr<T[]>;

    T const* text() const { return mBuffer != nullptr ? mBuffer : &mEmptyChar; }
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

/// The library brings it with it.
template <>
UTL_API DualType<char const*, wchar_t const*> BasicString<char>::EMPTY_STR;

inline bool operator==(char const* left, BasicString<char> const& right) {
    return right == left;
}
inline bool operator!=(char const* left, BasicString<char> const& right) {
    return right != left;
}

/// A string of exactly the capacity that both need, with `autoResize` 0. Null counts as empty.
UTL_API BasicString<char> operator+(char const* left, BasicString<char> const& right);

extern template class DualType<char const*, wchar_t const*>;
extern template class Range<char>;
extern template class BasicString<char>;
extern template class UTL_API_INSTANCE Array<BasicString<char>>;

}  // namespace utl

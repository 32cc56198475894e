#include "UtlBasicString.h"

#include <algorithm>

#include "UtlString.h"
#include "UtlWorkingBuffer.h"
#include "internal/text/UtlCharDecoder.h"
#include "internal/text/UtlDualTypeImage.h"
#include "internal/text/UtlStringSearch.h"

namespace utl {

namespace {

/// An array that holds the empty text; null if the allocator of the process returns null. A compiler may
/// assume that the allocator throws, and drop the callers' tests for null: so the address is stored where the
/// compiler must read it again.
char* allocateText(unsigned int bytes) {
    char* volatile const address = new char[bytes];
    char* const text = address;
    if (text != nullptr) {
        *text = '\0';
    }
    return text;
}

/// How many matches a replacement of `from` has; an empty `from` has one.
unsigned int countMatches(char const* text, char const* from) {
    unsigned int count = 0;
    unsigned int next = 0;
    while (next != INVALID_SIZE && findStr(text, from, 0, &next) != INVALID_SIZE) {
        ++count;
        text += next != INVALID_SIZE ? next : 0;
    }
    return count;
}

}  // namespace

template <typename T>
T BasicString<T>::mEmptyChar = 0;

template <typename T>
wchar_t BasicString<T>::mEmptyWChar = 0;

/// `BasicString<char>::EMPTY_STR`, as it is before any code runs.
UTL_API DualTypeImage gEmptyStr asm("_ZN3utl11BasicStringIcE9EMPTY_STRE") = {
    DUAL_TYPE_TABLE + DESTRUCTOR_ENTRIES, &BasicString<char>::mEmptyChar, &BasicString<char>::mEmptyWChar};

template <typename T>
BasicString<T>::BasicString() : mBuffer(nullptr), mMaxSize(1), mAutoResize(0), mShared(false) {
    shareEmptyText();
}

template <typename T>
BasicString<T>::BasicString(unsigned int maxSize, int autoResize)
    : mBuffer(allocateText(std::max(maxSize, 1U))),
      mMaxSize(std::max(maxSize, 1U)),
      mAutoResize(autoResize),
      mShared(false) {
    zeroMemory(mBuffer, mMaxSize);
}

template <typename T>
BasicString<T>::BasicString(T const* text, unsigned int maxSize, int autoResize)
    : BasicString(std::max(textLength(text) + 1, maxSize), autoResize) {
    copyStrBase<T>(mBuffer, mMaxSize, text, INVALID_SIZE, TRUNCATE_OFF);
}

template <typename T>
BasicString<T>::BasicString(BasicString const& other) : BasicString(other.buffer(), 0, AUTO_RESIZE_OFF) {}

template <typename T>
BasicString<T>::~BasicString() {
    deleteBuffer();
}

template <typename T>
BasicString<T>& BasicString<T>::operator=(T const* text) {
    unsigned int const needed = textLength(text) + 1;
    Buffer old;
    if (mMaxSize < needed) {
        renewBuffer(needed, &old);
    }
    if (needed == 1) {
        makeEmpty();
    } else {
        copyStrBase<T>(mBuffer, mMaxSize, text, INVALID_SIZE, TRUNCATE_OFF);
    }
    return *this;
}

template <typename T>
BasicString<T>& BasicString<T>::operator=(BasicString const& other) {
    return *this = other.buffer();
}

template <typename T>
BasicString<T>& BasicString<T>::operator+=(T const* text) {
    unsigned int const addLength = textLength(text);
    if (addLength == 0) {
        return *this;
    }
    Buffer old;
    if (mMaxSize - length() < addLength + 1) {
        renewBuffer(mMaxSize + 1 + addLength, &old);
    }
    copyGeneral<T>(mBuffer, mMaxSize, length(), text, 0, INVALID_SIZE, TRUNCATE_OFF);
    return *this;
}

template <typename T>
bool BasicString<T>::copy(T const* text, unsigned int length, int truncate) {
    unsigned int const fullLength = boundedLength(text, length);
    Buffer old;
    if (mAutoResize == AUTO_RESIZE_ON && mMaxSize < fullLength + 1) {
        renewBuffer(fullLength + 1, &old);
    }
    if (text == nullptr) {
        return false;
    }
    unsigned int const count = *text != '\0' ? fullLength : length;
    return count == 0 || (mBuffer != nullptr && copyInside(text, count, truncate));
}

/// `copy` of `count` bytes, not 0, into the capacity as it is.
template <typename T>
bool BasicString<T>::copyInside(T const* text, unsigned int count, int truncate) {
    if (mMaxSize == 1) {
        bool const fits = *text == '\0' || truncate == TRUNCATE_ON;
        if (fits) {
            makeEmpty();
        }
        return fits;
    }
    if (truncate == TRUNCATE_ON) {
        count = getNearCharIndex(text, std::min(count, mMaxSize - 1), CHAR_START);
        return count != INVALID_SIZE && t_strncpy<T>(mBuffer, mMaxSize, text, count) != INVALID_SIZE;
    }
    // For empty text with a length "to the end" the sum is 0, which fits.
    return mMaxSize >= count + 1 && t_strncpy<T>(mBuffer, mMaxSize, text, count) != INVALID_SIZE;
}

template <typename T>
bool BasicString<T>::replace(T const* from, T const* to, int truncate) {
    if (from == nullptr || to == nullptr) {
        return false;
    }
    unsigned int const needed =
        countMatches(text(), from) * (textLength(to) - textLength(from)) + length() + 1;
    if (mAutoResize == AUTO_RESIZE_ON && needed > mMaxSize) {
        resizeMax(needed);
    }
    WorkingBuffer<T> const old;
    if (copyStrBase<T>(old.get(), old.size(), text(), INVALID_SIZE, TRUNCATE_OFF) == INVALID_SIZE) {
        return false;
    }
    return mShared || replaceStr<T>(mBuffer, mMaxSize, old.get(), from, to, truncate) != INVALID_SIZE;
}

template <typename T>
bool BasicString<T>::resizeMax(unsigned int maxSize) {
    if (maxSize == mMaxSize) {
        return true;
    }
    if (maxSize <= 1) {
        return shareEmptyText();
    }
    Buffer old;
    return renewBuffer(maxSize, &old);
}

/// `resizeMax` to another capacity above 1. `*old` takes over the string's own former buffer, because the
/// caller's text may be a part of it.
template <typename T>
bool BasicString<T>::renewBuffer(unsigned int maxSize, Buffer* old) {
    T* const newBuffer = allocateText(maxSize);
    bool const isKept = copyStrBase<T>(newBuffer, maxSize, text(), maxSize - 1, TRUNCATE_OFF) != INVALID_SIZE;
    old->reset(mShared ? nullptr : mBuffer);
    mBuffer = newBuffer;
    mMaxSize = maxSize;
    mShared = false;
    return isKept;
}

template <typename T>
bool BasicString<T>::shareEmptyText() {
    mMaxSize = 1;
    if (EMPTY_STR.mNarrow == nullptr) {
        return false;
    }
    deleteBuffer();
    mBuffer = const_cast<T*>(EMPTY_STR.mNarrow);
    mShared = true;
    return true;
}

/// Strings of all threads share the empty text, so it is never written.
template <typename T>
void BasicString<T>::makeEmpty() {
    if (mBuffer != nullptr && !mShared) {
        *mBuffer = '\0';
    }
}

template <typename T>
void BasicString<T>::deleteBuffer() {
    if (!mShared) {
        delete[] mBuffer;
    }
}

BasicString<char> operator+(char const* left, BasicString<char> const& right) {
    BasicString<char> result(textLength(left) + right.length() + 1, AUTO_RESIZE_OFF);
    result += left;
    result += right.buffer();
    return result;
}

template class DualType<char const*, wchar_t const*>;
template class Range<char>;
template class BasicString<char>;
template class Array<BasicString<char>>;

}  // namespace utl

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <type_traits>

#include "UtlPlatform.h"

namespace utl {

/// What containers and strings do when their capacity is used up, as their argument `autoResize`.
inline constexpr int AUTO_RESIZE_OFF = 0;  ///< the operation fails
inline constexpr int AUTO_RESIZE_ON = 1;   ///< the capacity grows

namespace detail {

// True for a type that is not trivially copyable, if assigning an element of a storage to another one of it
// does the same as copying its bytes.
template <typename T>
struct IsAssignedAsBytes : std::false_type {};

// Assigns `count` elements to the places from `target` on, which may overlap with theirs in the same storage.
template <typename T>
void shiftElements(T const* source, unsigned int count, T* target) {
    if constexpr (IsAssignedAsBytes<T>::value) {
        if (count != 0) {
            // NOLINTNEXTLINE(bugprone-undefined-memory-manipulation): the trait says so
            std::memmove(static_cast<void*>(target), static_cast<void const*>(source), count * sizeof(T));
        }
    } else if (target < source) {
        std::copy(source, source + count, target);
    } else {
        std::copy_backward(source, source + count, target + count);
    }
}

}  // namespace detail

/// Sequence in one block of storage that grows by exactly what is needed, or not at all; *external lock
/// needed*, because it holds none.
///
/// All `maxSize()` slots are constructed and destroyed with the storage, and only assigned in between. So `T`
/// needs a default constructor and a copy assignment. An element that was removed stays in its slot, with all
/// that it owns, until another is put there or the storage is destroyed. What a pointer element refers to
/// stays the caller's.
///
/// An allocation failure that throws leaves every operation that allocates. If an element type's own
/// `operator new[]` returns null instead, the operation returns false. Either way a growth that failed, also
/// in `insertAt` and `copy`, leaves what a failed `resizeMax` leaves: as a rule the content is lost.
template <typename T, typename ARG = T const&>
class UTL_API Array {
  public:
    /// Allocates `maxSize` slots, none with 0. With `AUTO_RESIZE_ON` `insertAt` and `copy` enlarge the
    /// storage on demand; with any other `autoResize` the capacity is fixed, and they fail instead.
    Array(unsigned int maxSize, int autoResize);
    virtual ~Array() { delete[] mElements; }
    Array(Array const&) = delete;
    Array& operator=(Array const&) = delete;

    /// Number of slots in use.
    [[nodiscard]] unsigned int size() const noexcept { return mSize; }

    /// Number of slots allocated.
    [[nodiscard]] unsigned int maxSize() const noexcept { return mMaxSize; }

    /// The element at `index`, null at and beyond `size()`. Valid until the storage changes.
    [[nodiscard]] T* getAt(unsigned int index) noexcept {
        return hasElementAt(index) ? mElements + index : nullptr;
    }

    /// As above.
    [[nodiscard]] T const* getAt(unsigned int index) const noexcept {
        return hasElementAt(index) ? mElements + index : nullptr;
    }

    /// The storage, with the `size()` elements at its start; null if there is none. Valid until it changes.
    [[nodiscard]] T const* elements() const noexcept { return mElements; }

    /// Replaces the element at `index`; false, with nothing changed, at and beyond `size()`. `value` may be
    /// an element of this array; an element set to itself is not touched.
    bool setAt(unsigned int index, ARG value);

    /// Inserts `value` before the element at `index`; an `index` of `size()` appends. False, with the array
    /// unchanged, beyond that and when a fixed capacity is used up. `value` may be an element of this array:
    /// what it held before the call is inserted.
    bool insertAt(unsigned int index, ARG value);

    /// Removes up to `count` elements from `index` on, none at and beyond `size()`. Keeps the capacity.
    void removeAt(unsigned int index, unsigned int count);

    /// Removes all elements; keeps the storage and what its slots hold.
    void clear() noexcept { mSize = 0; }

    /// Makes the content the first `count` elements of `source`, all of them with `INVALID_SIZE`. False, with
    /// the content unchanged, if a fixed capacity is too small. With this array as `source` only the size
    /// shrinks to `count`.
    bool copy(Array const& source, unsigned int count);

    /// Makes the capacity `maxSize`, whether it is fixed or not, and keeps what fits; 0 frees the storage.
    /// The content is copied through a temporary of its size. If that cannot be allocated, by an exception or
    /// by null, the array is unchanged. If the new storage cannot be allocated, the content is lost:
    /// `maxSize()` is the new capacity and `size()` the old size, but there are no elements until `resizeMax`
    /// with another capacity succeeds.
    bool resizeMax(unsigned int maxSize);

  private:
    template <typename K, typename V, typename KARG, typename VARG, typename COMPARE>
    friend class Map;

    // One more element, with what its slot holds; null if the capacity is used up.
    T* appendSlot() { return mSize < mMaxSize && mElements != nullptr ? mElements + mSize++ : nullptr; }

    bool hasElementAt(unsigned int index) const noexcept { return index < mSize && mElements != nullptr; }
    bool isElement(T const* address) const;
    bool makeRoomForOneMore();
    bool reallocate(unsigned int maxSize);

    T* mElements;
    unsigned int mSize;
    unsigned int mMaxSize;
    int mAutoResize;
};

template <typename T, typename ARG>
Array<T, ARG>::Array(unsigned int maxSize, int autoResize)
    : mElements(maxSize == 0 ? nullptr : new T[maxSize]),
      mSize(0),
      mMaxSize(maxSize),
      mAutoResize(autoResize) {}

template <typename T, typename ARG>
bool Array<T, ARG>::setAt(unsigned int index, ARG value) {
    if (!hasElementAt(index)) {
        return false;
    }
    T const* const address = std::addressof(value);
    if (!isElement(address)) {
        mElements[index] = value;
    } else if (address != mElements + index) {
        T local;
        local = value;
        mElements[index] = local;
    }
    return true;
}

template <typename T, typename ARG>
bool Array<T, ARG>::insertAt(unsigned int index, ARG value) {
    T local;
    local = value;
    if (index > mSize || !makeRoomForOneMore()) {
        return false;
    }
    detail::shiftElements(mElements + index, mSize - index, mElements + index + 1);
    mElements[index] = local;
    ++mSize;
    return true;
}

template <typename T, typename ARG>
void Array<T, ARG>::removeAt(unsigned int index, unsigned int count) {
    if (index >= mSize || count == 0) {
        return;
    }
    unsigned int const removed = std::min<unsigned int>(count, mSize - index);
    if (mElements != nullptr) {
        detail::shiftElements(mElements + index + removed, mSize - index - removed, mElements + index);
    }
    mSize -= removed;
}

template <typename T, typename ARG>
bool Array<T, ARG>::copy(Array const& source, unsigned int count) {
    if (&source == this) {
        mSize = std::min<unsigned int>(count, mSize);
        return true;
    }
    unsigned int const copied = std::min<unsigned int>(count, source.mSize);
    if (mAutoResize == AUTO_RESIZE_ON && copied > mMaxSize && !reallocate(copied)) {
        return false;
    }
    if (copied > mMaxSize) {
        return false;
    }
    if (copied == 0 || source.mElements == nullptr) {
        mSize = 0;
        return true;
    }
    if (mElements == nullptr) {
        return false;
    }
    std::copy(source.mElements, source.mElements + copied, mElements);
    mSize = copied;
    return true;
}

template <typename T, typename ARG>
bool Array<T, ARG>::resizeMax(unsigned int maxSize) {
    return maxSize == mMaxSize || reallocate(maxSize);
}

// Two elements never overlap, so an address inside the storage is that of an element.
template <typename T, typename ARG>
bool Array<T, ARG>::isElement(T const* address) const {
    std::less<T const*> const isBefore;
    return !isBefore(address, mElements) && isBefore(address, mElements + mSize);
}

template <typename T, typename ARG>
bool Array<T, ARG>::makeRoomForOneMore() {
    bool const isContentLost = mElements == nullptr && mSize != 0;
    if (isContentLost || mSize < mMaxSize) {
        return mElements != nullptr;
    }
    return mAutoResize == AUTO_RESIZE_ON && mSize != INVALID_SIZE && reallocate(mSize + 1);
}

// The temporary frees its storage on every way out.
template <typename T, typename ARG>
bool Array<T, ARG>::reallocate(unsigned int maxSize) {
    Array kept(mSize, 0);
    if (!kept.copy(*this, INVALID_SIZE)) {
        return false;
    }
    delete[] mElements;
    mElements = nullptr;
    mMaxSize = maxSize;
    if (maxSize == 0) {
        mSize = 0;
        return true;
    }
    mElements = new T[maxSize];
    if (mElements == nullptr) {
        return false;
    }
    mSize = 0;
    return copy(kept, std::min<unsigned int>(kept.mSize, maxSize));
}

extern template class Array<int>;

}  // namespace utl

#pragma once

#include <algorithm>
#include <functional>
#include <memory>

#include "UtlPlatform.h"

namespace utl {

/// Sequence in one block of storage that grows by exactly what is needed, or not at all; *external lock
/// needed*, because it holds none.
///
/// Slots are made and destroyed with the storage, all `maxSize()` together, and only assigned in between. So
/// `T` needs a default constructor and a copy assignment, and an element that was removed lives on in its
/// slot, with all that it owns, until another is put there or the storage goes. What a pointer element
/// refers to stays the caller's.
///
/// A failed allocation that throws leaves through every operation that allocates. An element type whose own
/// `operator new[]` gives null instead makes that operation give false. Either way a growth that failed, in
/// `insertAt` and `copy` too, leaves what a failed `resizeMax` does: as a rule the content is lost.
template <typename T, typename ARG = T const&>
class UTL_API Array {
  public:
    /// Allocates `maxSize` slots, none with 0. With `autoResize` 1 `insertAt` and `copy` enlarge the storage
    /// on demand; with any other value the capacity is fixed and they fail instead.
    Array(unsigned int maxSize, int autoResize);
    virtual ~Array() { delete[] mElements; }
    Array(Array const&) = delete;
    Array& operator=(Array const&) = delete;

    /// Number of slots in use.
    unsigned int size() const { return mSize; }

    /// Number of slots allocated.
    unsigned int maxSize() const { return mMaxSize; }

    /// The element at `index`, null at and beyond `size()`. Valid until the storage changes.
    T* getAt(unsigned int index) { return hasElementAt(index) ? mElements + index : nullptr; }

    /// As above.
    T const* getAt(unsigned int index) const { return hasElementAt(index) ? mElements + index : nullptr; }

    /// The storage, with the `size()` elements at its start; null when there is none. Valid until it changes.
    T const* elements() const { return mElements; }

    /// Replaces the element at `index`; false, with nothing changed, at and beyond `size()`. `value` may be
    /// an element of this array; an element set to itself is not touched.
    bool setAt(unsigned int index, ARG value);

    /// Puts `value` in front of the element at `index`; `index` equal to `size()` appends. False, with the
    /// array unchanged, beyond that or when a fixed capacity is used up. `value` may be an element of this
    /// array: what it held before the call is inserted.
    bool insertAt(unsigned int index, ARG value);

    /// Removes up to `count` elements from `index` on; nothing at and beyond `size()`. Keeps the capacity.
    void removeAt(unsigned int index, unsigned int count);

    /// Removes all elements; keeps the storage and what its slots hold.
    void clear() { mSize = 0; }

    /// Makes the content the first `count` elements of `source`, all of them with `INVALID_SIZE`. False, with
    /// the content unchanged, when a fixed capacity is too small. With this array as `source` only the size
    /// falls to `count`.
    bool copy(Array const& source, unsigned int count);

    /// Makes the capacity `maxSize`, whether it is fixed or not, and keeps what fits; 0 gives the storage
    /// back. The content goes through a temporary of its size; if that could not be had, by an exception or
    /// by null, the array is unchanged. If the new storage could not be had, the content is lost: `maxSize()`
    /// tells the new capacity and `size()` the old size, but there are no elements until `resizeMax` with
    /// another capacity succeeds.
    bool resizeMax(unsigned int maxSize);

  private:
    template <typename K, typename V, typename KARG, typename VARG, typename COMPARE>
    friend class Map;

    // One more element, with what its slot holds; null when the capacity is used up.
    T* appendSlot() { return mSize < mMaxSize && mElements != nullptr ? mElements + mSize++ : nullptr; }

    bool hasElementAt(unsigned int index) const { return index < mSize && mElements != nullptr; }
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
    std::copy_backward(mElements + index, mElements + mSize, mElements + mSize + 1);
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
        std::copy(mElements + index + removed, mElements + mSize, mElements + index);
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
    if (mAutoResize == 1 && copied > mMaxSize && !reallocate(copied)) {
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
    return mAutoResize == 1 && mSize != INVALID_SIZE && reallocate(mSize + 1);
}

// The temporary gives its storage back on every way out.
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

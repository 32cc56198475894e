#pragma once

#include <algorithm>
#include <type_traits>

#include "UtlPlatform.h"

namespace utl {

namespace detail {

// The physical index of the logical entry `index` of a ring of `capacity` slots: one subtraction instead of a
// modulo, because both summands are below the capacity. It is computed in 64 bits, so that a capacity above
// 0x7FFFFFFF works as well.
constexpr unsigned int ringIndex(int head, unsigned int index, unsigned int capacity) noexcept {
    unsigned long long const sum = static_cast<unsigned long long>(static_cast<unsigned int>(head)) + index;
    return static_cast<unsigned int>(sum >= capacity ? sum - capacity : sum);
}

// Returns `count`; throws `std::bad_alloc` if that many elements take more bytes than 32 bits can count, even
// where the machine could allocate them.
UTL_API unsigned int checkedRingCount(unsigned int count, unsigned int elementBytes);

}  // namespace detail

/// Circular sequence in one block of storage that never grows and never overwrites; *external lock needed*,
/// because it holds none. No operation allocates after the construction.
///
/// All `maxSize()` slots are constructed and destroyed with the storage, and only assigned in between; those
/// of plain types start with no particular value. So `T` needs a default constructor and a copy assignment.
/// An element that was removed stays in its slot until another is put there.
template <typename T, typename ARG = T const&>
class UTL_API RingArray {
  public:
    /// Allocates `maxSize` slots, none with 0. Throws `std::bad_alloc` if their bytes cannot be counted in 32
    /// bits. If an element type's own `operator new[]` returns null, the capacity is 0.
    explicit RingArray(unsigned int maxSize);
    virtual ~RingArray() { delete[] mElements; }
    RingArray(RingArray const&) = delete;
    RingArray& operator=(RingArray const&) = delete;

    /// Number of entries in use.
    [[nodiscard]] unsigned int size() const noexcept { return mSize; }

    /// Number of entries that fit.
    [[nodiscard]] unsigned int maxSize() const noexcept { return mMaxSize; }

    /// The entry at `index`, counted from the oldest; null at and beyond `size()`. Valid until it is removed
    /// or `removeAt` removes an entry before it.
    [[nodiscard]] T* elementAt(unsigned int index) noexcept {
        return index < mSize ? mElements + physical(index) : nullptr;
    }

    /// As above.
    [[nodiscard]] T const* elementAt(unsigned int index) const noexcept {
        return index < mSize ? mElements + physical(index) : nullptr;
    }

    /// Appends `value`; false, with nothing changed, if the ring is full.
    bool pushBack(ARG value);

    /// Appends the `count` entries at `items`, or none of them: false, with nothing changed, if they do not
    /// all fit or if `items` is null and `count` is not 0. `items` must not lie in the ring.
    bool pushBack(T const* items, unsigned int count);

    /// Removes the oldest entry, if there is one. The other entries stay where they are.
    void popFront() noexcept;

    /// Moves up to `count` of the oldest entries to `out`, or only removes them if `out` is null. An `out`
    /// that is smaller than what is moved is the caller's mistake. True after as many as were asked for, or
    /// all that there were, have been moved, which is always.
    bool popFrontInto(T* out, unsigned int count);

    /// Copies the `count` entries from `index` on to `out` and removes nothing. False, with `out` untouched,
    /// if there are fewer or if `out` is null and `count` is not 0.
    bool copyOut(unsigned int index, T* out, unsigned int count) const;

    /// Removes up to `count` entries from `index` on by copying all later ones down; false, with nothing
    /// changed, if `index` is not below `size()`.
    bool removeAt(unsigned int index, unsigned int count);

    /// Copies the `count` entries from `from` on to the places from `to` on, which must not be after them;
    /// the two ranges may overlap. False, with nothing changed, if there are fewer or if `to` is above
    /// `from`.
    bool copyDown(unsigned int to, unsigned int from, unsigned int count);

    /// Removes up to `count` of the newest entries. The other entries stay where they are.
    void removeLast(unsigned int count) noexcept { mSize -= std::min<unsigned int>(count, mSize); }

    /// Removes all entries; the next one goes to the start of the storage.
    void clear() noexcept;

  private:
    unsigned int physical(unsigned int index) const noexcept {
        return detail::ringIndex(mHead, index, mMaxSize);
    }

    // How many slots from `index` on are contiguous.
    unsigned int runAt(unsigned int index) const { return mMaxSize - physical(index); }

    // Calls `step(slots, offset, length)` for each contiguous run of the `count` slots from `index` on, of
    // which there are two at most; `offset` counts from `index`.
    template <typename STEP>
    void forEachRun(unsigned int index, unsigned int count, STEP step) const;

    T* mElements;
    unsigned int mSize;
    unsigned int mMaxSize;
    int mHead;
};

template <typename T, typename ARG>
RingArray<T, ARG>::RingArray(unsigned int maxSize)
    : mElements(maxSize == 0 ? nullptr : new T[detail::checkedRingCount(maxSize, sizeof(T))]),
      mSize(0),
      mMaxSize(mElements == nullptr ? 0 : maxSize),
      mHead(0) {}

template <typename T, typename ARG>
template <typename STEP>
void RingArray<T, ARG>::forEachRun(unsigned int index, unsigned int count, STEP step) const {
    for (unsigned int offset = 0; offset < count;) {
        unsigned int const length = std::min<unsigned int>(count - offset, runAt(index + offset));
        step(mElements + physical(index + offset), offset, length);
        offset += length;
    }
}

template <typename T, typename ARG>
bool RingArray<T, ARG>::pushBack(ARG value) {
    if (mSize >= mMaxSize) {
        return false;
    }
    mElements[physical(mSize)] = value;
    ++mSize;
    return true;
}

// Plain elements are copied in blocks, here and below.
template <typename T, typename ARG>
bool RingArray<T, ARG>::pushBack(T const* items, unsigned int count) {
    if (count > mMaxSize - mSize || (items == nullptr && count != 0)) {
        return false;
    }
    forEachRun(mSize, count, [items](T* run, unsigned int offset, unsigned int length) {
        std::copy_n(items + offset, length, run);
    });
    mSize += count;
    return true;
}

template <typename T, typename ARG>
void RingArray<T, ARG>::popFront() noexcept {
    if (mSize != 0) {
        mHead = static_cast<int>(physical(1));
        --mSize;
    }
}

template <typename T, typename ARG>
bool RingArray<T, ARG>::popFrontInto(T* out, unsigned int count) {
    unsigned int const moved = std::min<unsigned int>(count, mSize);
    if constexpr (std::is_trivially_copyable_v<T>) {
        if (out != nullptr) {
            copyOut(0, out, moved);
        }
        mHead = static_cast<int>(physical(moved));
        mSize -= moved;
    } else {
        // One by one: if an assignment throws, only what was moved before has left the ring.
        for (unsigned int i = 0; i < moved; ++i) {
            if (out != nullptr) {
                out[i] = mElements[physical(0)];
            }
            popFront();
        }
    }
    return true;
}

template <typename T, typename ARG>
bool RingArray<T, ARG>::copyOut(unsigned int index, T* out, unsigned int count) const {
    if (index > mSize || count > mSize - index || (out == nullptr && count != 0)) {
        return false;
    }
    forEachRun(index, count, [out](T const* run, unsigned int offset, unsigned int length) {
        std::copy_n(run, length, out + offset);
    });
    return true;
}

template <typename T, typename ARG>
bool RingArray<T, ARG>::removeAt(unsigned int index, unsigned int count) {
    if (index >= mSize) {
        return false;
    }
    unsigned int const removed = std::min<unsigned int>(count, mSize - index);
    copyDown(index, index + removed, mSize - index - removed);
    mSize -= removed;
    return true;
}

// The runs are moved in ascending order: what is written is below what is still to be read.
template <typename T, typename ARG>
bool RingArray<T, ARG>::copyDown(unsigned int to, unsigned int from, unsigned int count) {
    if (to > from || from > mSize || count > mSize - from) {
        return false;
    }
    for (unsigned int moved = 0; to != from && moved < count;) {
        unsigned int const length =
            std::min<unsigned int>({count - moved, runAt(from + moved), runAt(to + moved)});
        T const* const source = mElements + physical(from + moved);
        std::copy(source, source + length, mElements + physical(to + moved));
        moved += length;
    }
    return true;
}

template <typename T, typename ARG>
void RingArray<T, ARG>::clear() noexcept {
    mSize = 0;
    mHead = 0;
}

/// First-in-first-out queue on a ring, whose entries can also be read and removed in the middle; *external
/// lock needed*, because it holds none.
template <typename T>
class UTL_API Queue {
  public:
    ///@{
    /// As the operation of this name of `RingArray`.
    explicit Queue(unsigned int maxSize) : mRing(maxSize) {}
    virtual ~Queue() = default;
    Queue(Queue const&) = delete;
    Queue& operator=(Queue const&) = delete;

    [[nodiscard]] unsigned int size() const noexcept { return mRing.size(); }
    [[nodiscard]] unsigned int maxSize() const noexcept { return mRing.maxSize(); }
    [[nodiscard]] T* elementAt(unsigned int index) noexcept { return mRing.elementAt(index); }
    [[nodiscard]] T const* elementAt(unsigned int index) const noexcept { return mRing.elementAt(index); }
    bool pushBack(T const& value) { return mRing.pushBack(value); }
    bool pushBack(T const* items, unsigned int count) { return mRing.pushBack(items, count); }
    void popFront() noexcept { mRing.popFront(); }
    bool popFrontInto(T* out, unsigned int count) { return mRing.popFrontInto(out, count); }
    bool copyOut(unsigned int index, T* out, unsigned int count) const {
        return mRing.copyOut(index, out, count);
    }
    bool removeAt(unsigned int index, unsigned int count) { return mRing.removeAt(index, count); }
    bool copyDown(unsigned int to, unsigned int from, unsigned int count) {
        return mRing.copyDown(to, from, count);
    }
    void removeLast(unsigned int count) noexcept { mRing.removeLast(count); }
    void clear() noexcept { mRing.clear(); }
    ///@}

  private:
    RingArray<T, T const&> mRing;
};

extern template class RingArray<unsigned char>;
extern template class Queue<unsigned char>;

}  // namespace utl

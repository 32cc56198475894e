#pragma once

#include <type_traits>
#include <utility>

#include "UtlArray.h"
#include "UtlPlatform.h"

namespace utl {

/// A key and its value, the element of a `Map`; *external lock needed*, because it holds none.
template <typename K, typename V>
class UTL_API Pair {
  public:
    Pair() = default;
    virtual ~Pair() = default;
    Pair(Pair const&) = default;
    Pair& operator=(Pair const&) = default;

    K mKey{};    ///< What the entry is found by.
    V mValue{};  ///< What the key leads to.
};

/// The default order of a `Map`, by the `<` of the keys; *immutable*, since it has no state.
template <typename K, typename V>
class UTL_API CompareLessPairKey {
  public:
    /// True if `left` is before `right`.
    bool operator()(K const& left, K const& right) const { return left < right; }
};

namespace detail {

// All pairs of a storage have the same table of virtual functions, so copying it with the rest changes
// nothing. That of another storage may be another library's.
template <typename K, typename V>
struct IsAssignedAsBytes<Pair<K, V>>
    : std::conjunction<std::is_trivially_copyable<K>, std::is_trivially_copyable<V>> {};

template <typename K, typename COMPARE>
bool areEqualKeys(K const& left, K const& right, COMPARE compare) {
    return !compare(left, right) && !compare(right, left);
}

// Returns `left` if `isLeft`, else `right`, without a branch: a search meets keys at random, and every other
// branch on a comparison would be mispredicted. Clang makes the conditional operator a branch, but not this.
template <typename T>
T const* choose(bool isLeft, T const* left, T const* right) noexcept {
#ifdef __clang__
    T const* const both[] = {right, left};
    return both[isLeft];
#else
    return isLeft ? left : right;
#endif
}

}  // namespace detail

/// Largest number of elements that `searchPosition` looks through.
inline constexpr unsigned int MAX_SEARCH_COUNT = 0x7FFFFFFFU;

/// The index of `key` among the `count` `elements`, whose `mKey`s ascend by `compare`, or the index at which
/// it would have to be inserted. Of several equal keys the first counts. Returns `INVALID_SIZE` for null
/// `elements`, even with `count` 0, and for a `count` above `MAX_SEARCH_COUNT`. If the elements are out of
/// order, the result is some index from 0 to `count`.
template <typename K, typename T, typename COMPARE>
[[nodiscard]] unsigned int searchPosition(K const& key, T const* elements, unsigned int count,
                                          COMPARE compare) {
    if (elements == nullptr || count > MAX_SEARCH_COUNT) {
        return INVALID_SIZE;
    }
    if (count == 0) {
        return 0;
    }
    T const* first = elements;
    while (count > 1) {
        unsigned int const half = count / 2;
        T const* const upper = first + half;
        first = detail::choose(compare(upper[-1].mKey, key), upper, first);
        count -= half;
    }
    return static_cast<unsigned int>(first - elements) + static_cast<unsigned int>(compare(first->mKey, key));
}

/// The first element whose key equals `key`, which is so if neither is less; null if there is none and if the
/// elements cannot be searched. The arguments are as for `searchPosition`.
template <typename K, typename T, typename COMPARE>
[[nodiscard]] T const* searchBinary(K const& key, T const* elements, unsigned int count, COMPARE compare) {
    if (count == 0) {
        return nullptr;
    }
    unsigned int const position = searchPosition(key, elements, count, compare);
    if (position >= count) {
        return nullptr;
    }
    T const* const found = elements + position;
    return detail::areEqualKeys(found->mKey, key, compare) ? found : nullptr;
}

/// Sorted array of pairs with unique keys, found by bisection; *external lock needed*, because it holds none.
///
/// `COMPARE` tells whether the first of two keys is before the second; two keys of which neither is before
/// the other are equal. Storage behaves as in `Array`; what a pointer value refers to stays the caller's.
template <typename K, typename V, typename KARG = K const&, typename VARG = V const&,
          typename COMPARE = CompareLessPairKey<K, V>>
class UTL_API Map {
  public:
    /// Arguments as for `Array`. A map that is built with `maxSize` 0 refuses every entry, even with
    /// `AUTO_RESIZE_ON`, until a `copy` has brought it storage: owners pass on a capacity that they were
    /// given, where 0 is to allow no entries.
    Map(unsigned int maxSize, int autoResize) : mArray(maxSize, autoResize), mCompare() {}
    virtual ~Map() = default;
    Map(Map const&) = delete;
    Map& operator=(Map const&) = delete;

    /// Adds an entry; an entry with an equal key is replaced, key and value. False, with nothing changed,
    /// if a fixed capacity is used up or the map has no slot at all.
    bool insert(KARG key, VARG value);

    /// The value of `key`, null if there is none. Valid until an entry is inserted or erased.
    [[nodiscard]] V* find(KARG key);

    /// As above.
    [[nodiscard]] V const* find(KARG key) const;

    /// Removes the entry with this key; false if there is none.
    bool erase(KARG key);

    /// `insert` and `erase` for values with a member `swap`. Only `swap` moves entries, so nothing is copied
    /// and nothing but `swap` can allocate: for places that could not report a failure.
    ///@{

    /// Adds an entry with the content of `value`, which gets that of an unused slot. False, with nothing
    /// changed, if there is an entry with an equal key and if the capacity, which never grows, is used up.
    template <typename VALUE>
    bool insertSwapped(KARG key, VALUE& value);

    /// Removes the entry with this key; `value` gets its content, and an unused slot that of `value`. False
    /// if there is none.
    template <typename VALUE>
    bool eraseSwapped(KARG key, VALUE& value);
    ///@}

    /// Removes all entries; keeps the storage and what its slots hold.
    void clear() noexcept { mArray.clear(); }

    /// Makes the content that of `source`, which must have the same order. False, with the content unchanged,
    /// if a fixed capacity is too small.
    bool copy(Map const& source) { return mArray.copy(source.mArray, INVALID_SIZE); }

    /// Number of entries.
    [[nodiscard]] unsigned int size() const noexcept { return mArray.size(); }

    /// Number of entries that fit.
    [[nodiscard]] unsigned int maxSize() const noexcept { return mArray.maxSize(); }

    /// The entry at `index` in ascending order of the keys, null at and beyond `size()`. Its key must not be
    /// changed. Valid until an entry is inserted or erased.
    [[nodiscard]] Pair<K, V>* getAt(unsigned int index) noexcept { return mArray.getAt(index); }

    /// As above.
    [[nodiscard]] Pair<K, V> const* getAt(unsigned int index) const noexcept { return mArray.getAt(index); }

  private:
    using Entry = Pair<K, V>;

    unsigned int positionOf(K const& key) const {
        return searchPosition(key, mArray.elements(), mArray.size(), mCompare);
    }
    // Looks at the last key first, because entries often come in ascending order.
    unsigned int positionToInsert(K const& key) const {
        unsigned int const size = mArray.size();
        Entry const* const last = size <= MAX_SEARCH_COUNT ? mArray.getAt(size - 1) : nullptr;
        return last != nullptr && mCompare(last->mKey, key) ? size : positionOf(key);
    }
    bool hasKeyAt(unsigned int position, K const& key) const {
        Entry const* const entry = mArray.getAt(position);
        return entry != nullptr && detail::areEqualKeys(entry->mKey, key, mCompare);
    }

    template <typename ENTRY>
    static void swapEntries(ENTRY& left, ENTRY& right) {
        std::swap(left.mKey, right.mKey);
        left.mValue.swap(right.mValue);
    }

    Array<Entry, Entry const&> mArray;
    COMPARE mCompare;
};

template <typename K, typename V, typename KARG, typename VARG, typename COMPARE>
bool Map<K, V, KARG, VARG, COMPARE>::insert(KARG key, VARG value) {
    unsigned int const position = positionToInsert(key);
    if (position == INVALID_SIZE) {
        return false;
    }
    Entry entry;
    entry.mKey = key;
    entry.mValue = value;
    return hasKeyAt(position, key) ? mArray.setAt(position, entry) : mArray.insertAt(position, entry);
}

template <typename K, typename V, typename KARG, typename VARG, typename COMPARE>
V const* Map<K, V, KARG, VARG, COMPARE>::find(KARG key) const {
    Entry const* const entry = searchBinary(key, mArray.elements(), mArray.size(), mCompare);
    return entry == nullptr ? nullptr : std::addressof(entry->mValue);
}

template <typename K, typename V, typename KARG, typename VARG, typename COMPARE>
V* Map<K, V, KARG, VARG, COMPARE>::find(KARG key) {
    return const_cast<V*>(static_cast<Map const*>(this)->find(key));
}

template <typename K, typename V, typename KARG, typename VARG, typename COMPARE>
bool Map<K, V, KARG, VARG, COMPARE>::erase(KARG key) {
    unsigned int const position = positionOf(key);
    if (!hasKeyAt(position, key)) {
        return false;
    }
    mArray.removeAt(position, 1);
    return true;
}

template <typename K, typename V, typename KARG, typename VARG, typename COMPARE>
template <typename VALUE>
bool Map<K, V, KARG, VARG, COMPARE>::insertSwapped(KARG key, VALUE& value) {
    unsigned int const position = positionOf(key);
    if (position == INVALID_SIZE || hasKeyAt(position, key)) {
        return false;
    }
    Entry* const added = mArray.appendSlot();
    if (added == nullptr) {
        return false;
    }
    added->mKey = key;
    added->mValue.swap(value);
    for (unsigned int i = mArray.size() - 1; i != position; --i) {
        swapEntries(*mArray.getAt(i - 1), *mArray.getAt(i));
    }
    return true;
}

template <typename K, typename V, typename KARG, typename VARG, typename COMPARE>
template <typename VALUE>
bool Map<K, V, KARG, VARG, COMPARE>::eraseSwapped(KARG key, VALUE& value) {
    unsigned int const position = positionOf(key);
    if (!hasKeyAt(position, key)) {
        return false;
    }
    unsigned int const last = mArray.size() - 1;
    for (unsigned int i = position; i != last; ++i) {
        swapEntries(*mArray.getAt(i), *mArray.getAt(i + 1));
    }
    mArray.getAt(last)->mValue.swap(value);
    mArray.removeAt(last, 1);
    return true;
}

extern template class Map<unsigned int, unsigned int>;
extern template class Map<int, unsigned long long>;

}  // namespace utl

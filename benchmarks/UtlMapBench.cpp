#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <vector>

#include "BenchRatio.h"
#include "UtlMap.h"

namespace {

// Look-ups of keys that exist, in an order that no branch predictor can learn.
constexpr std::size_t LOOKUPS = 1U << 16;

class Hits {
  public:
    explicit Hits(unsigned int entries) : mMap(entries, 0) {
        std::mt19937 random(entries);
        std::uniform_int_distribution<int> anyKey(-1000000000, 1000000000);
        std::vector<int> keys;
        while (mStandardMap.size() < entries) {
            keys.push_back(anyKey(random));
            mStandardMap.emplace(keys.back(), 1);
            mMap.insert(keys.back(), 1);
        }
        std::uniform_int_distribution<std::size_t> anyIndex(0, keys.size() - 1);
        for (std::size_t i = 0; i < LOOKUPS; ++i) {
            mKeys.push_back(keys[anyIndex(random)]);
        }
    }

    int const& key(std::size_t number) const { return mKeys[number % LOOKUPS]; }
    utl::Map<int, int> const& map() const { return mMap; }
    std::map<int, int> const& standardMap() const { return mStandardMap; }

  private:
    utl::Map<int, int> mMap;
    std::map<int, int> mStandardMap;
    std::vector<int> mKeys;
};

Hits const FEW(128);
Hits const MANY(4096);

// Each call looks up the next key.
class Find {
  public:
    explicit Find(Hits const& hits) : mHits(hits) {}
    void operator()() { utlbench::keep(*mHits.map().find(mHits.key(mNumber++))); }

  private:
    Hits const& mHits;
    std::size_t mNumber = 0;
};

class StandardFind {
  public:
    explicit StandardFind(Hits const& hits) : mHits(hits) {}
    void operator()() { utlbench::keep(mHits.standardMap().find(mHits.key(mNumber++))->second); }

  private:
    Hits const& mHits;
    std::size_t mNumber = 0;
};

UTL_RATIO_CPU("find among 128, to std::map", Find(FEW), StandardFind(FEW), 0.5);
UTL_RATIO_CPU("find among 4096, to std::map", Find(MANY), StandardFind(MANY), 0.5);

// Insertions of new keys until there are 4096, and then again from the beginning.

constexpr std::size_t ENTRIES = 4096;

std::vector<int> ascendingKeys() {
    std::vector<int> keys(ENTRIES);
    for (std::size_t i = 0; i < ENTRIES; ++i) {
        keys[i] = static_cast<int>(i);
    }
    return keys;
}

std::vector<int> shuffledKeys() {
    std::vector<int> keys = ascendingKeys();
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    return keys;
}

// A sorted array with room for all entries, which are as large as those of the map, and moves them as bytes.
class SortedArray {
  public:
    void insert(int key, int value) {
        Entry* const end = mEntries + mSize;
        Entry* place = end;
        if (mSize != 0 && key <= end[-1].key) {
            place = std::lower_bound(mEntries, end, key,
                                     [](Entry const& entry, int sought) { return entry.key < sought; });
            if (place->key == key) {
                place->value = value;
                return;
            }
        }
        std::memmove(place + 1, place, static_cast<std::size_t>(end - place) * sizeof(Entry));
        place->key = key;
        place->value = value;
        ++mSize;
    }
    void clear() { mSize = 0; }

  private:
    struct Entry {
        void* asLargeAsAPair;
        int key;
        int value;
    };
    static_assert(sizeof(Entry) == sizeof(utl::Pair<int, int>));

    std::size_t mSize = 0;
    std::vector<Entry> mStorage{ENTRIES};
    Entry* mEntries = mStorage.data();
};

template <typename MAP>
class Insert {
  public:
    Insert(MAP& map, std::vector<int> const& keys) : mMap(map), mKeys(keys) {}
    void operator()() {
        if (mNumber == ENTRIES) {
            mMap.clear();
            mNumber = 0;
        }
        mMap.insert(mKeys[mNumber], 1);
        ++mNumber;
    }

  private:
    MAP& mMap;
    std::vector<int> const& mKeys;
    std::size_t mNumber = ENTRIES;
};

std::vector<int> const ASCENDING = ascendingKeys();
std::vector<int> const SHUFFLED = shuffledKeys();
utl::Map<int, int> gMap(ENTRIES, utl::AUTO_RESIZE_OFF);
SortedArray gSortedArray;

UTL_RATIO_CPU("insert up to 4096 at random, to a sorted array that moves bytes", Insert(gMap, SHUFFLED),
              Insert(gSortedArray, SHUFFLED), 1.3);
UTL_RATIO_CPU("insert up to 4096 in ascending order, to a sorted array that looks at its last key first",
              Insert(gMap, ASCENDING), Insert(gSortedArray, ASCENDING), 1.3);

}  // namespace

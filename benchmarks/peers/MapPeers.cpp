// Maps from int to int.

#include <algorithm>
#include <boost/container/flat_map.hpp>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "Peers.h"
#include "UtlMap.h"

namespace utlpeers {
namespace {

constexpr std::size_t LOOKUPS = 1U << 16;

/// Different keys in random order, each with the value of its index, and look-ups of them.
struct Keys {
    explicit Keys(unsigned int count) {
        std::mt19937 lots(count);
        std::uniform_int_distribution<int> anyKey(-1000000000, 1000000000);
        std::map<int, int> seen;
        while (seen.size() < count) {
            int const key = anyKey(lots);
            if (seen.emplace(key, static_cast<int>(seen.size())).second) {
                keys.push_back(key);
            }
        }
        for (std::size_t i = 0; i < LOOKUPS; ++i) {
            wanted.push_back(static_cast<int>(lots() % count));
        }
    }

    std::vector<int> keys;
    std::vector<int> wanted;  ///< indices
};

// One interface for all of them, resolved while compiling.

class OurMap {
  public:
    static constexpr char const* NAME = OURS;
    explicit OurMap(unsigned int count) : mMap(count, utl::AUTO_RESIZE_OFF) {}
    void insert(int key, int value) { mMap.insert(key, value); }
    int find(int key) const { return *mMap.find(key); }
    std::size_t size() const { return mMap.size(); }
    void clear() { mMap.clear(); }

  private:
    utl::Map<int, int> mMap;
};

class StandardMap {
  public:
    static constexpr char const* NAME = "std::map";
    explicit StandardMap(unsigned int) {}
    void insert(int key, int value) { mMap[key] = value; }
    int find(int key) const { return mMap.find(key)->second; }
    std::size_t size() const { return mMap.size(); }
    void clear() { mMap.clear(); }

  private:
    std::map<int, int> mMap;
};

/// The place of a key among sorted pairs.
template <typename ENTRIES>
auto placeOf(ENTRIES& entries, int key) {
    return std::lower_bound(
        entries.begin(), entries.end(), key,
        [](std::pair<int, int> const& entry, int sought) { return entry.first < sought; });
}

class SortedVector {
  public:
    static constexpr char const* NAME = "sorted std::vector";
    explicit SortedVector(unsigned int count) { mEntries.reserve(count); }
    void insert(int key, int value) { mEntries.insert(placeOf(mEntries, key), {key, value}); }
    int find(int key) const { return placeOf(mEntries, key)->second; }
    std::size_t size() const { return mEntries.size(); }
    void clear() { mEntries.clear(); }

  private:
    std::vector<std::pair<int, int>> mEntries;
};

class FlatMap {
  public:
    static constexpr char const* NAME = "Boost flat_map";
    explicit FlatMap(unsigned int count) { mMap.reserve(count); }
    void insert(int key, int value) { mMap.insert_or_assign(key, value); }
    int find(int key) const { return mMap.find(key)->second; }
    std::size_t size() const { return mMap.size(); }
    void clear() { mMap.clear(); }

  private:
    boost::container::flat_map<int, int> mMap;
};

template <typename MAP>
void fill(MAP& map, std::vector<int> const& keys) {
    for (std::size_t i = 0; i < keys.size(); ++i) {
        map.insert(keys[i], static_cast<int>(i));
    }
}

template <typename MAP>
Side lookUp(std::shared_ptr<Keys const> const& keys) {
    auto const map = std::make_shared<MAP>(static_cast<unsigned int>(keys->keys.size()));
    fill(*map, keys->keys);
    return {MAP::NAME, [map, keys](std::size_t times) {
                long long difference = 0;
                for (std::size_t i = 0; i < times; ++i) {
                    int const index = keys->wanted[i % LOOKUPS];
                    difference += map->find(keys->keys[static_cast<std::size_t>(index)]) ^ index;
                }
                prove(difference == 0, "another value than that of the key");
            }};
}

std::vector<Side> lookUpSides(unsigned int count) {
    auto const keys = std::make_shared<Keys const>(count);
    return {lookUp<OurMap>(keys), lookUp<StandardMap>(keys), lookUp<SortedVector>(keys),
            lookUp<FlatMap>(keys)};
}

// Insertions until all keys are there, and then again from the beginning.
template <typename MAP>
Side insert(std::vector<int> const& keys) {
    auto const map = std::make_shared<MAP>(static_cast<unsigned int>(keys.size()));
    return {MAP::NAME, [map, keys](std::size_t times) {
                for (std::size_t done = 0; done < times; done += keys.size()) {
                    map->clear();
                    fill(*map, keys);
                }
                prove(
                    map->size() == keys.size() && map->find(keys.back()) == static_cast<int>(keys.size()) - 1,
                    "a map without its keys");
            }};
}

std::vector<Side> insertSides(std::vector<int> const& keys) {
    return {insert<OurMap>(keys), insert<StandardMap>(keys), insert<SortedVector>(keys),
            insert<FlatMap>(keys)};
}

std::vector<Side> randomSides(unsigned int count) {
    return insertSides(Keys(count).keys);
}

std::vector<Side> ascendingSides(unsigned int count) {
    std::vector<int> keys = Keys(count).keys;
    std::sort(keys.begin(), keys.end());
    return insertSides(keys);
}

std::vector<unsigned int> const SIZES = {8, 32, 128, 512, 2048, 4096, 8192};

Theme theme(char const* id, char const* title, std::vector<unsigned int> const& sizes,
            std::vector<unsigned int> const& shown, std::vector<Side> (*sides)(unsigned int)) {
    return {id, title, "key", "keys", utlbench::THREAD_TIME, ONE_PROCESSOR, sizes, shown, sides};
}

// A turn of insertions is whole fillings.
Theme inserting(Theme result) {
    constexpr std::size_t LEAST = 65536;
    result.pieces = [](unsigned int count) { return (LEAST + count - 1) / count * count; };
    return result;
}

ThemeDeclaration const gLookUp(theme("map", "look up in a map", SIZES, {128, 4096}, lookUpSides));
ThemeDeclaration const gInsert(inserting(theme("map-insert", "fill a map at random", SIZES, {128, 4096},
                                               randomSides)));
ThemeDeclaration const gAscending(inserting(theme("map-ascending", "fill a map in ascending order", {4096},
                                                  {4096}, ascendingSides)));

}  // namespace
}  // namespace utlpeers

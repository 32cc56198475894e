#include <map>
#include <random>
#include <vector>

#include "BenchRatio.h"
#include "UtlMap.h"

// Look-ups of keys that exist, in an order that no branch predictor can learn.

namespace {

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

}  // namespace

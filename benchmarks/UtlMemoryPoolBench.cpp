// Taking and releasing blocks, against a plain lock that is held once for each of the two.

#include "UtlMemoryPool.h"

#include <pthread.h>

#include <memory>
#include <random>
#include <vector>

#include "BenchRatio.h"
#include "BenchThreads.h"

namespace {

constexpr unsigned int BLOCK_BYTES = 64;

pthread_mutex_t gBareLock = PTHREAD_MUTEX_INITIALIZER;

void bareCall(pthread_mutex_t& lock) {
    pthread_mutex_lock(&lock);
    pthread_mutex_unlock(&lock);
}

void bareCreateAndRelease() {
    bareCall(gBareLock);
    bareCall(gBareLock);
}

// A pool that is full except for one block; blocks are released and taken in a random order.
class BusyPool {
  public:
    explicit BusyPool(unsigned int count) : mPool(BLOCK_BYTES, count, "bench"), mBlocks(count) {
        for (void*& block : mBlocks) {
            block = mPool.create();
        }
        std::mt19937 random(count);
        for (unsigned int i = 0; i < ORDER_LENGTH; ++i) {
            mOrder[i] = static_cast<unsigned int>(random() % count);
        }
    }

    void lastInFirstOut() {
        mPool.release(mBlocks.back());
        mBlocks.back() = mPool.create();
    }

    void random() {
        void*& block = mBlocks[mOrder[mNext++ % ORDER_LENGTH]];
        mPool.release(block);
        block = mPool.create();
    }

  private:
    static constexpr unsigned int ORDER_LENGTH = 1024;

    utl::MemoryPool mPool;
    std::vector<void*> mBlocks;
    unsigned int mOrder[ORDER_LENGTH];
    unsigned int mNext = 0;
};

template <unsigned int COUNT>
BusyPool& pool() {
    static auto* const thePool = new BusyPool(COUNT);
    return *thePool;
}

constexpr double GOAL = 1.2;

UTL_RATIO_CPU(
    "pool of 16: release and create, last in first out", [] { pool<16>().lastInFirstOut(); },
    bareCreateAndRelease, GOAL);
UTL_RATIO_CPU(
    "pool of 16: release and create, random", [] { pool<16>().random(); }, bareCreateAndRelease, GOAL);
UTL_RATIO_CPU(
    "pool of 1,024: release and create, random", [] { pool<1024>().random(); }, bareCreateAndRelease, GOAL);
UTL_RATIO_CPU(
    "pool of 16,384: release and create, last in first out", [] { pool<16384>().lastInFirstOut(); },
    bareCreateAndRelease, GOAL);
UTL_RATIO_CPU(
    "pool of 16,384: release and create, random", [] { pool<16384>().random(); }, bareCreateAndRelease, GOAL);

auto ownPool() {
    return [pool = std::make_shared<utl::MemoryPool>(BLOCK_BYTES, 1024, "own")] {
        pool->release(pool->create());
    };
}

auto ownLock() {
    return [lock = std::make_shared<pthread_mutex_t>(pthread_mutex_t(PTHREAD_MUTEX_INITIALIZER))] {
        bareCall(*lock);
        bareCall(*lock);
    };
}

auto aPool() {
    static utl::MemoryPool pool(BLOCK_BYTES, 1024, "one");
    return [] { pool.release(pool.create()); };
}

auto aLock() {
    return [] { bareCreateAndRelease(); };
}

utlbench::ThreadsDeclaration const gPoolOfEach(
    "two threads with a pool each: create and release, against two threads with a plain lock each", 2,
    [] { return ownPool(); }, utlbench::AT_A_TIME, [] { return ownLock(); }, GOAL);

utlbench::ThreadsDeclaration const gPoolBesideAnother(
    "two threads with a pool each: create and release, against the same one after the other", 2,
    [] { return ownPool(); }, utlbench::ONE_AFTER_ANOTHER, [] { return ownPool(); }, 1.2);

utlbench::ThreadsDeclaration const gPoolOfTwo(
    "two threads with one pool: create and release, against two threads with one plain lock", 2,
    [] { return aPool(); }, utlbench::AT_A_TIME, [] { return aLock(); }, GOAL);

}  // namespace

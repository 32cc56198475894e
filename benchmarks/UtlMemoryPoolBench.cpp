// Taking and releasing blocks, against a recursive lock with the same signs of life.

#include "UtlMemoryPool.h"

#include <pthread.h>
#include <sched.h>

#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "BenchRatio.h"
#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"

namespace {

constexpr unsigned int BLOCK_BYTES = 64;

pthread_mutex_t gBareLock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

void bareCall(char const* function, unsigned int line) {
    utl::ThreadManager::get()->keepAliveWatchdog(utl::StatementInfo("bench", function, line, 1));
    pthread_mutex_lock(&gBareLock);
    utl::ThreadManager::get()->keepAliveWatchdog(utl::StatementInfo("bench", function, line, 2));
    pthread_mutex_unlock(&gBareLock);
}

void bareCreateAndRelease() {
    bareCall("create", 1);
    bareCall("release", 2);
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

// Two threads make `calls` calls of `work` each at the same time, on whatever processors there are.
template <typename WORK>
void inTwoThreads(std::size_t calls, WORK work) {
    auto const run = [calls, work] {
        cpu_set_t processors;
        std::memset(&processors, 0xFF, sizeof(processors));
        sched_setaffinity(0, sizeof(processors), &processors);
        for (std::size_t i = 0; i < calls; ++i) {
            work();
        }
    };
    std::thread first(run);
    std::thread second(run);
    first.join();
    second.join();
}

void takeAndGiveBack() {
    static utl::MemoryPool pool(BLOCK_BYTES, 1024, "two");
    pool.release(pool.create());
}

struct TwoThreadsDeclaration {
    TwoThreadsDeclaration() {
        utlbench::ratioFigures().push_back(
            {"pool of 1,024: create and release, two threads at a time",
             [](std::size_t calls) { inTwoThreads(calls, takeAndGiveBack); },
             [](std::size_t calls) { inTwoThreads(calls, bareCreateAndRelease); }, GOAL,
             utlbench::WALL_TIME});
    }
} const gTwoThreadsDeclaration;

}  // namespace

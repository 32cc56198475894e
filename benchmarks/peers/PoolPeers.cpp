// Blocks of 64 bytes, and signs of life, from several threads.

#include <boost/pool/pool.hpp>
#include <cstdlib>
#include <cstring>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "BenchThreads.h"
#include "Peers.h"
#include "UtlMemoryPool.h"
#include "UtlThread.h"
#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"

namespace utlpeers {
namespace {

constexpr unsigned int BLOCK_BYTES = 64;
constexpr unsigned int BLOCKS = 1024;

// --- the pools, each with the same two calls

class OurPool {
  public:
    static constexpr char const* NAME = OURS;
    void* take() { return mPool.create(); }
    void giveBack(void* block) { mPool.release(block); }

  private:
    utl::MemoryPool mPool{BLOCK_BYTES, BLOCKS, "peers"};
};

/// A list of free blocks behind a lock: knows no block that was given back twice.
class BarePool {
  public:
    static constexpr char const* NAME = BARE;
    BarePool() {
        for (unsigned int i = 0; i < BLOCKS; ++i) {
            giveBack(mBytes.get() + i * BLOCK_BYTES);
        }
    }
    void* take() {
        std::lock_guard<std::mutex> const lock(mMutex);
        void* const block = mFirst;
        if (block != nullptr) {
            std::memcpy(&mFirst, block, sizeof(mFirst));
        }
        return block;
    }
    void giveBack(void* block) {
        std::lock_guard<std::mutex> const lock(mMutex);
        std::memcpy(block, &mFirst, sizeof(mFirst));
        mFirst = block;
    }

  private:
    std::mutex mMutex;
    std::unique_ptr<char[]> mBytes{new char[BLOCK_BYTES * BLOCKS]};
    void* mFirst = nullptr;
};

class BoostPool {
  public:
    static constexpr char const* NAME = "boost::pool and std::mutex";
    void* take() {
        std::lock_guard<std::mutex> const lock(mMutex);
        return mPool.malloc();
    }
    void giveBack(void* block) {
        std::lock_guard<std::mutex> const lock(mMutex);
        mPool.free(block);
    }

  private:
    std::mutex mMutex;
    boost::pool<> mPool{BLOCK_BYTES, BLOCKS};
};

class Heap {
  public:
    static constexpr char const* NAME = "malloc";
    void* take() { return std::malloc(BLOCK_BYTES); }
    void giveBack(void* block) { std::free(block); }
};

// Takes two blocks, writes into both, and gives them back. Each is its own as long as the others stay away.
template <typename POOL>
void useTwoBlocks(POOL& pool) {
    void* const first = pool.take();
    void* const second = pool.take();
    std::memcpy(first, &second, sizeof(second));
    std::memset(second, 0xFF, BLOCK_BYTES);
    utlbench::keep(second);
    prove(std::memcmp(first, &second, sizeof(second)) == 0, "a block that two own");
    pool.giveBack(first);
    pool.giveBack(second);
}

// A pool for each thread, so that nothing of theirs is shared.
template <typename POOL>
Side pool(unsigned int threads) {
    return {POOL::NAME, [threads](std::size_t times) {
                utlbench::inThreads(threads, times, [] {
                    return [pool = std::make_shared<POOL>()] { useTwoBlocks(*pool); };
                });
            }};
}

double twoBlocks(unsigned int) {
    return 2;
}

std::vector<Side> poolSides(unsigned int threads) {
    return {pool<OurPool>(threads), pool<BarePool>(threads), pool<BoostPool>(threads), pool<Heap>(threads)};
}

// --- signs of life of watched threads

constexpr unsigned int LONG_TIME = 3600000;  // milliseconds

void keepAlive(std::size_t times) {
    utl::ThreadManager& manager = *utl::ThreadManager::get();
    for (std::size_t i = 0; i < times; ++i) {
        manager.keepAliveWatchdog(utl::StatementInfo("benchmarks/peers", "keepAlive", 1, 1));
    }
}

// A watched thread of the library that gives its signs of life together with others.
class Watched : private utl::Command {
  public:
    Watched(std::size_t times, std::shared_future<void> begin)
        : mTimes(times), mBegin(std::move(begin)), mThread("watched", this) {
        prove(mThread.start(utl::Thread::WITH_WATCHDOG, LONG_TIME) == utl::Event::WAIT_DONE, "no thread");
    }
    ~Watched() {
        mThread.waitTo(3);
        mThread.leaveManagement();
    }
    Watched(Watched const&) = delete;
    Watched& operator=(Watched const&) = delete;

  private:
    int execute() override {
        utl::ThreadManager& manager = *utl::ThreadManager::get();
        prove(manager.startWatchdog() && manager.isWatchingWatchdog(), "a thread that nobody watches");
        mBegin.wait();
        keepAlive(mTimes);
        manager.unregisterWatchdog();
        return 0;
    }

    std::size_t mTimes;
    std::shared_future<void> mBegin;
    utl::Thread mThread;
};

void keepAliveInThreads(unsigned int threads, std::size_t times) {
    std::promise<void> begin;
    std::shared_future<void> const hasBegun(begin.get_future());
    std::vector<std::unique_ptr<Watched>> watched;
    for (unsigned int i = 0; i < threads; ++i) {
        watched.push_back(std::make_unique<Watched>((times + threads - 1) / threads, hasBegun));
    }
    begin.set_value();
}

std::mutex gTable;

// The table of all threads behind one lock, and a look at the clock.
void lockAndRead() {
    std::lock_guard<std::mutex> const lock(gTable);
    utlbench::keep(utlbench::WALL_TIME());
}

std::vector<Side> watchedSides(unsigned int threads) {
    return {{OURS, [threads](std::size_t times) { keepAliveInThreads(threads, times); }},
            {BARE, [threads](std::size_t times) {
                 utlbench::inThreads(threads, times, [] { return lockAndRead; });
             }}};
}

// --- the themes

Theme theme(char const* id, char const* title, char const* unit, std::vector<unsigned int> const& sizes,
            std::vector<unsigned int> const& shown, std::vector<Side> (*sides)(unsigned int)) {
    return {id, title, unit, "threads", utlbench::PROCESS_TIME, ALL_PROCESSORS, sizes, shown, sides, 40};
}

Theme poolTheme() {
    Theme result = theme("pool", "take a block and give it back, a pool for each thread", "block",
                         {1, 2, 4, 8}, {1, 2}, poolSides);
    result.units = twoBlocks;
    return result;
}

ThemeDeclaration const gPool(poolTheme());
ThemeDeclaration const gWatched(theme("watched", "a watched thread's sign of life", "call",
                                      {1, 2, 4, 8, 16, 32, 64}, {1, 8}, watchedSides));

}  // namespace
}  // namespace utlpeers

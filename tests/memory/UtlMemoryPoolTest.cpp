#include "UtlMemoryPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>
#include <new>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "TestHooks.h"
#include "TestLayout.h"
#include "TestLog.h"
#include "TestPrivate.h"
#include "TestThreads.h"
#include "UtlThreadWatchdog.h"

using utltest::LogCapture;

namespace utltest {

namespace in_pool {
UTLTEST_REVEAL(utl::MemoryPool, mName);
UTLTEST_REVEAL(utl::MemoryPool, mBlockSize);
UTLTEST_REVEAL(utl::MemoryPool, mBlockCount);
UTLTEST_REVEAL(utl::MemoryPool, mActive);
UTLTEST_REVEAL(utl::MemoryPool, mMemory);
UTLTEST_REVEAL(utl::MemoryPool, mSyncObject);
}  // namespace in_pool

/// A way to the fields of a pool.
struct MemoryPoolAccess {
    /// Where they begin, in the order that they must have.
    static std::vector<std::size_t> fields(utl::MemoryPool const& pool) {
        using namespace in_pool;
        return offsetsOf(pool, mName, mBlockSize, mBlockCount, mActive, mMemory, mSyncObject);
    }

    /// True if some thread holds the pool's lock.
    static bool isHeld(utl::MemoryPool const& pool) {
        bool held = false;
        std::thread([&] {
            held = !(pool.*in_pool::mSyncObject).tryLock();
            if (!held) {
                (pool.*in_pool::mSyncObject).unlock();
            }
        }).join();
        return held;
    }
};

}  // namespace utltest

namespace {

std::string line(std::string const& text) {
    return "<UTIL> ERR: utl::MemoryPool::" + text;
}

// How many blocks lie in front of `block`.
unsigned int indexOf(void const* block, void const* first, unsigned int blockSize) {
    return static_cast<unsigned int>(static_cast<unsigned char const*>(block) -
                                     static_cast<unsigned char const*>(first)) /
           blockSize;
}

TEST(MemoryPool, Create_HandsOutTheBlocksInTheirOrderAndThenNull) {
    LogCapture const log;
    utl::MemoryPool pool(24, 3, "three");
    void* const first = pool.create();
    ASSERT_NE(first, nullptr);
    void* const second = pool.create();
    void* const third = pool.create();
    EXPECT_EQ(indexOf(second, first, 24), 1U);
    EXPECT_EQ(indexOf(third, first, 24), 2U);
    EXPECT_EQ(pool.create(), nullptr);
    EXPECT_EQ(pool.create(), nullptr);
    pool.release(first);
    pool.release(second);
    pool.release(third);
    EXPECT_TRUE(log.lines().empty());
}

TEST(MemoryPool, Release_MakesTheBlockTheNextOneIfNoLowerOneIsFree) {
    utl::MemoryPool pool(8, 3, "again");
    void* const blocks[] = {pool.create(), pool.create(), pool.create()};
    pool.release(blocks[1]);
    EXPECT_EQ(pool.create(), blocks[1]);
    pool.release(blocks[2]);
    pool.release(blocks[0]);
    EXPECT_EQ(pool.create(), blocks[0]);
    EXPECT_EQ(pool.create(), blocks[2]);
    for (void* const block : blocks) {
        pool.release(block);
    }
}

TEST(MemoryPool, Blocks_AreZeroAtFirstAndKeepTheirContentAfterwards) {
    utl::MemoryPool pool(16, 2, "content");
    auto* const block = static_cast<unsigned char*>(pool.create());
    EXPECT_TRUE(std::all_of(block, block + 16, [](unsigned char byte) { return byte == 0; }));
    std::memset(block, 0x5A, 16);
    pool.release(block);
    EXPECT_EQ(pool.create(), block);
    EXPECT_TRUE(std::all_of(block, block + 16, [](unsigned char byte) { return byte == 0x5A; }));
    pool.release(block);
}

TEST(MemoryPool, Release_Twice_IsLoggedAndThePoolStaysConsistent) {
    LogCapture const log;
    utl::MemoryPool pool(8, 2, "twice");
    void* const first = pool.create();
    pool.release(first);
    pool.release(first);
    EXPECT_EQ(log.lines(), std::vector<std::string>{line("release(): Memory is not active!! (twice)")});
    EXPECT_EQ(pool.create(), first);
    void* const second = pool.create();
    EXPECT_NE(second, first);
    EXPECT_EQ(pool.create(), nullptr);
    pool.release(first);
    pool.release(second);
}

TEST(MemoryPool, Release_OfAnAddressInsideABlock_IsAnAlignmentError) {
    LogCapture const log;
    utl::MemoryPool pool(8, 2, "odd");
    auto* const first = static_cast<unsigned char*>(pool.create());
    for (int offset : {1, 7, 9, 15}) {
        pool.release(first + offset);
    }
    EXPECT_EQ(log.lines(), std::vector<std::string>(4, line("release(): alignment error!! (odd)")));
    pool.release(first);
}

TEST(MemoryPool, Release_OutsideTheArea_IsToldWithItsSide) {
    LogCapture log;
    utl::MemoryPool pool(8, 2, "outside");
    auto* const first = static_cast<unsigned char*>(pool.create());
    pool.release(first - 8);
    pool.release(first - 1);
    EXPECT_EQ(log.lines(), std::vector<std::string>(
                               2, line("release(): Memory is management outside (under)!! (outside)")));
    log.clear();
    pool.release(first + 16);
    pool.release(first + 24);
    EXPECT_EQ(log.lines(), std::vector<std::string>(
                               2, line("release(): Memory is management outside (over)!! (outside)")));
    log.clear();
    pool.release(first + 17);
    EXPECT_EQ(log.lines(), std::vector<std::string>{line("release(): alignment error!! (outside)")})
        << "the division is looked at first";
    pool.release(first);
}

TEST(MemoryPool, Release_OfNull_IsSilent) {
    LogCapture const log;
    utl::MemoryPool pool(8, 2, "null");
    pool.release(nullptr);
    EXPECT_TRUE(log.lines().empty());
}

TEST(MemoryPool, WithoutBlocks_IsLoggedAndHarmless) {
    LogCapture log;
    int anything = 0;
    {
        utl::MemoryPool pool(8, 0, "none");
        EXPECT_EQ(log.lines(),
                  std::vector<std::string>{line("MemoryPool(): Number of memory is 0!! (none)")});
        EXPECT_EQ(pool.create(), nullptr);
        pool.release(&anything);
    }
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST(MemoryPool, WithBlocksOfNoSize_IsLoggedAndHarmless) {
    LogCapture log;
    int anything = 0;
    {
        utl::MemoryPool pool(0, 8, "flat");
        EXPECT_EQ(log.lines(), std::vector<std::string>{line("MemoryPool(): Memory size is 0!! (flat)")});
        EXPECT_EQ(pool.create(), nullptr);
        pool.release(&anything);
        utl::MemoryPool const both(0, 0, "both");
        EXPECT_EQ(log.lines()[1], line("MemoryPool(): Number of memory is 0!! (both)"));
    }
    EXPECT_EQ(log.lines().size(), 2U);
}

TEST(MemoryPool, ANullName_IsAnEmptyOne) {
    LogCapture const log;
    utl::MemoryPool const pool(8, 0, nullptr);
    EXPECT_EQ(log.lines(), std::vector<std::string>{line("MemoryPool(): Number of memory is 0!! ()")});
}

TEST(MemoryPool, Destructor_TellsEachBlockThatIsStillInUse) {
    LogCapture const log;
    {
        utl::MemoryPool pool(8, 4, "leak");
        static_cast<void>(pool.create());
        void* const second = pool.create();
        static_cast<void>(pool.create());
        pool.release(second);
    }
    EXPECT_EQ(log.lines(), (std::vector<std::string>{line("~MemoryPool(): Memory leak!! (leak) Slot=0"),
                                                     line("~MemoryPool(): Memory leak!! (leak) Slot=2")}));
}

TEST(MemoryPool, AnAreaThatNoAllocatorGives_Throws) {
    EXPECT_THROW(utl::MemoryPool(UINT_MAX, UINT_MAX, "huge"), std::bad_alloc);
    if (sizeof(void*) == 4) {
        EXPECT_THROW(utl::MemoryPool(65536, 65536, "wraps"), std::bad_alloc);
        EXPECT_THROW(utl::MemoryPool(65536, 32768, "half"), std::bad_alloc);
    }
}

// Counts around the sizes at which the search gets one more level.
TEST(MemoryPool, TheLowestFreeBlockIsAlwaysNext_WhateverTheCount) {
    for (unsigned int const count : {1U, 2U, 31U, 32U, 33U, 1023U, 1024U, 1025U, 32768U, 32769U}) {
        utl::MemoryPool pool(4, count, "counts");
        std::vector<void*> blocks;
        for (unsigned int i = 0; i < count; ++i) {
            blocks.push_back(pool.create());
            ASSERT_EQ(indexOf(blocks[i], blocks[0], 4), i) << count;
        }
        ASSERT_EQ(pool.create(), nullptr) << count;
        std::mt19937 random(count);
        std::set<unsigned int> free;
        for (int i = 0; i < 200; ++i) {
            auto const index = static_cast<unsigned int>(random() % count);
            if (free.insert(index).second) {
                pool.release(blocks[index]);
            } else {
                ASSERT_EQ(pool.create(), blocks[*free.begin()]) << count;
                free.erase(free.begin());
            }
        }
        for (unsigned int i = 0; i < count; ++i) {
            if (free.count(i) == 0) {
                pool.release(blocks[i]);
            }
        }
    }
}

TEST(MemoryPool, UsedByManyThreads_GivesNoBlockTwice) {
    LogCapture const log;
    {
        utl::MemoryPool pool(sizeof(int), 40, "threads");
        std::vector<std::thread> threads;
        for (int owner = 1; owner <= 8; ++owner) {
            threads.emplace_back([&pool, owner] {
                for (int round = 0; round < 300; ++round) {
                    std::vector<int*> mine;
                    for (int i = 0; i < 5; ++i) {
                        mine.push_back(static_cast<int*>(pool.create()));
                        ASSERT_NE(mine.back(), nullptr);
                        *mine.back() = owner;
                    }
                    for (int* const block : mine) {
                        EXPECT_EQ(*block, owner);
                        pool.release(block);
                    }
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    EXPECT_TRUE(log.lines().empty());
}

// Derived classes and their callers are compiled apart from the library.
TEST(MemoryPool, ItsFields_HaveTheirOrder) {
    utl::MemoryPool const pool(8, 4, "fields");
    std::vector<std::size_t> const fields = utltest::MemoryPoolAccess::fields(pool);
    EXPECT_EQ(fields.front(), utltest::FIRST_FIELD);
    EXPECT_TRUE(utltest::areRising(fields));
}

// What the clock sees at the signs of life of one thread.
utl::MemoryPool* gPool = nullptr;
std::atomic<int> gUser{0};
std::vector<std::string> gReports;

int clockThatLooksAtThePool(clockid_t clock, timespec* time) {
    if (utltest::kernelId() == gUser) {
        utl::ThreadWatchdog& watchdog = utltest::ThreadManagerAccess::watchdog();
        utl::StatementInfo const place =
            utltest::ThreadWatchdogAccess::copyInfo(watchdog, gUser).lastStatement;
        gReports.push_back(std::string(place.function) + " " + std::to_string(place.sub) +
                           (utltest::MemoryPoolAccess::isHeld(*gPool) ? " held" : " free"));
    }
    return utltest::hooks::clockGetTime.real(clock, time);
}

using MemoryPoolKeepAlive = utltest::WithManager;

TEST_F(MemoryPoolKeepAlive, TheSecondSignOfLife_IsGivenWithTheLockInHand) {
    restingWatchdog();
    utltest::HookScope const scope;
    utl::MemoryPool pool(8, 1, "signs");
    EXPECT_TRUE(manager().entryWatchdog(60000, nullptr));
    EXPECT_TRUE(manager().startWatchdog());
    gPool = &pool;
    utltest::hooks::clockGetTime.replace(clockThatLooksAtThePool);
    gUser = utltest::kernelId();
    pool.release(pool.create());
    gUser = 0;
    EXPECT_EQ(gReports, (std::vector<std::string>{"create 1 free", "create 2 held", "release 1 free",
                                                  "release 2 held"}));
}

TEST(MemoryPoolTraits, IsNotCopied) {
    static_assert(!std::is_copy_constructible_v<utl::MemoryPool>);
    static_assert(!std::is_copy_assignable_v<utl::MemoryPool>);
}

}  // namespace

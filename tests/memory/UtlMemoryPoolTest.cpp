#include "UtlMemoryPool.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
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
#include "UtlLog.h"
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

// How many blocks lie before `block`.
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
using utl::MemoryPool;
using utl::StatementInfo;
using Access = utltest::ThreadWatchdogAccess;
using Lines = std::vector<std::string>;

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

// What the calling thread takes from the heap while a plan lives, and which of its requests fails.
thread_local bool gPlanned = false;
thread_local unsigned int gRequests = 0;
thread_local unsigned int gFailing = 0;
thread_local int gBlocksHeld = 0;

void* planned(std::size_t bytes) {
    bool const isTooMuch = (std::uint64_t{bytes} >> 40) != 0;  // the sanitizers end the program for it
    if (isTooMuch || (gPlanned && ++gRequests == gFailing)) {
        throw std::bad_alloc();
    }
    void* const memory = std::malloc(bytes);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    gBlocksHeld += gPlanned ? 1 : 0;
    return memory;
}

void giveBack(void* memory) {
    gBlocksHeld -= gPlanned && memory != nullptr ? 1 : 0;
    std::free(memory);
}

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t bytes) {
    return planned(bytes);
}

[[gnu::noinline]] void* operator new[](std::size_t bytes) {
    return planned(bytes);
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    giveBack(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    giveBack(memory);
}

[[gnu::noinline]] void operator delete[](void* memory) noexcept {
    giveBack(memory);
}

[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept {
    giveBack(memory);
}

namespace {

/// Fails one request of the calling thread for memory, counted from 1; 0 fails none.
class HeapPlan {
  public:
    explicit HeapPlan(unsigned int failing) {
        gRequests = 0;
        gFailing = failing;
        gBlocksHeld = 0;
        gPlanned = true;
    }
    ~HeapPlan() { gPlanned = false; }
    HeapPlan(HeapPlan const&) = delete;
    HeapPlan& operator=(HeapPlan const&) = delete;

    bool hasFailed() const { return gFailing != 0 && gRequests >= gFailing; }
    unsigned int requests() const { return gRequests; }
    int held() const { return gBlocksHeld; }
};

std::uintptr_t addressOf(void const* block) {
    return reinterpret_cast<std::uintptr_t>(block);
}

/// A place in memory that nobody looks at.
void* placeAt(std::uintptr_t address) {
    return reinterpret_cast<void*>(address);
}

std::string releaseLine(std::string const& what, std::string const& name) {
    return "<UTIL> ERR: utl::MemoryPool::release(): " + what + "!! (" + name + ")";
}

std::string leakLine(std::string const& name, unsigned int slot) {
    return "<UTIL> ERR: utl::MemoryPool::~MemoryPool(): Memory leak!! (" + name +
           ") Slot=" + std::to_string(slot);
}

/// A pool all of whose blocks are in use, and where they lie.
struct UsedUpPool {
    UsedUpPool(unsigned int size, unsigned int count, char const* name = "odd")
        : blockSize(size), pool(size, count, name) {
        for (unsigned int i = 0; i < count; ++i) {
            blocks.push_back(pool.create());
        }
    }
    ~UsedUpPool() { giveAllBack(); }
    UsedUpPool(UsedUpPool const&) = delete;
    UsedUpPool& operator=(UsedUpPool const&) = delete;

    void giveAllBack() {
        for (void* const block : blocks) {
            pool.release(block);
        }
        blocks.clear();
    }
    std::uintptr_t begin() const { return addressOf(blocks.front()); }
    std::uintptr_t end() const { return begin() + blocks.size() * blockSize; }

    unsigned int const blockSize;
    MemoryPool pool;
    std::vector<void*> blocks;
};

/// Takes and gives back at random for a while, and compares with a set of the free blocks.
void compareWithModel(unsigned int count, unsigned int steps) {
    constexpr unsigned int SIZE = 3;
    MemoryPool pool(SIZE, count, "model");
    std::mt19937 random(count);
    std::set<unsigned int> free;
    for (unsigned int i = 0; i < count; ++i) {
        free.insert(i);
    }
    std::vector<unsigned int> used;
    void* const first = pool.create();
    pool.release(first);
    for (unsigned int step = 0; step < steps; ++step) {
        // Long runs of one kind, so that the pool gets full and empty in between.
        bool const takes = (random() % 8 < 6) == ((step / (count + 1)) % 2 == 0);
        if (takes) {
            void* const block = pool.create();
            if (free.empty()) {
                ASSERT_EQ(block, nullptr) << count;
                continue;
            }
            ASSERT_EQ(addressOf(block), addressOf(first) + std::uintptr_t{*free.begin()} * SIZE) << count;
            used.push_back(*free.begin());
            free.erase(free.begin());
        } else if (!used.empty()) {
            std::swap(used[random() % used.size()], used.back());
            pool.release(placeAt(addressOf(first) + std::uintptr_t{used.back()} * SIZE));
            free.insert(used.back());
            used.pop_back();
        }
    }
    for (unsigned int const index : used) {
        pool.release(placeAt(addressOf(first) + std::uintptr_t{index} * SIZE));
    }
}

TEST(MemoryPool, Create_InAnyMixtureOfCalls_GivesTheLowestFreeBlock) {
    LogCapture const log;
    for (unsigned int count = 1; count <= 70; ++count) {
        ASSERT_NO_FATAL_FAILURE(compareWithModel(count, 6 * count + 20));
    }
    for (unsigned int const power : {128U, 1024U, 4096U}) {
        for (unsigned int const count : {power - 1, power, power + 1}) {
            ASSERT_NO_FATAL_FAILURE(compareWithModel(count, 4 * count));
        }
    }
    EXPECT_EQ(log.lines(), Lines());
}

TEST(MemoryPool, Create_OfAPoolThatWasFull_GivesTheLastBlockWhenItAloneIsFree) {
    for (unsigned int const count : {1U, 2U, 31U, 32U, 33U, 64U, 65U, 1000U, 1025U, 32769U}) {
        UsedUpPool used(1, count);
        ASSERT_EQ(used.pool.create(), nullptr);
        used.pool.release(used.blocks.back());
        EXPECT_EQ(used.pool.create(), used.blocks.back()) << count;
        EXPECT_EQ(used.pool.create(), nullptr) << count;
    }
}

TEST(MemoryPool, Blocks_FillTheAreaToItsLastByteAndKeepWhatWasWritten) {
    for (unsigned int const size : {1U, 3U, 7U, 16U, 4097U}) {
        UsedUpPool used(size, 5);
        for (unsigned int i = 0; i < 5; ++i) {
            auto* const bytes = static_cast<unsigned char*>(used.blocks[i]);
            ASSERT_EQ(addressOf(bytes), used.begin() + std::uintptr_t{i} * size);
            ASSERT_EQ(std::count(bytes, bytes + size, 0), static_cast<std::ptrdiff_t>(size));
            std::memset(bytes, static_cast<int>(0xA0 + i), size);
        }
        used.pool.release(used.blocks[4]);
        used.pool.release(used.blocks[2]);
        for (unsigned int const i : {2U, 4U}) {
            auto* const bytes = static_cast<unsigned char*>(used.pool.create());
            ASSERT_EQ(bytes, used.blocks[i]);
            EXPECT_EQ(std::count(bytes, bytes + size, 0xA0 + i), static_cast<std::ptrdiff_t>(size)) << size;
        }
    }
}

TEST(MemoryPool, Release_NamesTheFirstThingThatIsWrongWithAnAddress) {
    UsedUpPool used(6, 3);
    struct Case {
        std::uintptr_t address;
        char const* what;
    };
    char const* const under = "Memory is management outside (under)";
    char const* const over = "Memory is management outside (over)";
    char const* const alignment = "alignment error";
    // After the area the alignment is looked at first, before it never.
    std::array<Case, 9> const cases = {{{used.begin() - 1, under},
                                        {used.begin() - 6, under},
                                        {used.begin() - 7, under},
                                        {used.begin() + 1, alignment},
                                        {used.begin() + 5, alignment},
                                        {used.end() - 1, alignment},
                                        {used.end(), over},
                                        {used.end() + 1, alignment},
                                        {used.end() + 6, over}}};
    for (Case const& one : cases) {
        LogCapture const log;
        used.pool.release(placeAt(one.address));
        EXPECT_EQ(log.lines(), Lines{releaseLine(one.what, "odd")}) << one.address - used.begin();
        ASSERT_EQ(log.systemLog().size(), 1U);
        EXPECT_EQ(log.systemLog()[0].priority, LOG_ERR);
        EXPECT_EQ(used.pool.create(), nullptr);
    }
}

TEST(MemoryPool, Release_OfAFarAddress_CountsAsAboveUpToHalfTheAddressSpaceAndFreesNoBlock) {
    std::uintptr_t const half = (UINTPTR_MAX >> 1) + 1;
    std::string const over = releaseLine("Memory is management outside (over)", "odd");
    std::string const under = releaseLine("Memory is management outside (under)", "odd");
    for (unsigned int const size : {1U, 16U}) {
        UsedUpPool used(size, 4);
        std::vector<std::uintptr_t> distances{4 * size, half / 2, half - 2 * size};
        if constexpr (sizeof(void*) > 4) {
            // In 32 bits these are 0 bytes, and a number of blocks that is 0.
            distances.push_back(std::uintptr_t{1} << 16 << 16);
            distances.push_back(std::uintptr_t{size} << 16 << 16);
        }
        for (unsigned int const index : {0U, 1U}) {
            std::uintptr_t const block = addressOf(used.blocks[index]);
            for (std::uintptr_t const distance : distances) {
                LogCapture const log;
                used.pool.release(placeAt(block + distance));
                used.pool.release(placeAt(block - distance));
                EXPECT_EQ(log.lines(), (Lines{over, under})) << size << " " << index << " " << distance;
                EXPECT_EQ(used.pool.create(), nullptr);
            }
        }
        LogCapture const log;
        used.pool.release(placeAt(used.begin() + half - size));
        used.pool.release(placeAt(used.begin() + half));
        EXPECT_EQ(log.lines(), (Lines{over, under}));
    }
}

TEST(MemoryPool, Release_OfAnotherPoolsBlock_LeavesBothPoolsAsTheyWere) {
    UsedUpPool first(16, 3, "odd");
    UsedUpPool second(16, 3, "odd");
    LogCapture const log;
    for (unsigned int i = 0; i < 3; ++i) {
        first.pool.release(second.blocks[i]);
        second.pool.release(first.blocks[i]);
    }
    EXPECT_EQ(log.lines().size(), 6U);
    EXPECT_EQ(log.count(releaseLine("Memory is not active", "odd")), 0U);
    EXPECT_EQ(first.pool.create(), nullptr);
    EXPECT_EQ(second.pool.create(), nullptr);
    first.giveAllBack();
    second.giveAllBack();
    EXPECT_EQ(log.lines().size(), 6U);
}

TEST(MemoryPool, Release_ASecondTime_DoesNotHandTheBlockOutTwice) {
    UsedUpPool used(8, 4);
    LogCapture const log;
    for (int round = 0; round < 3; ++round) {
        used.pool.release(used.blocks[2]);
        used.pool.release(used.blocks[2]);
        used.pool.release(used.blocks[2]);
        EXPECT_EQ(used.pool.create(), used.blocks[2]);
        EXPECT_EQ(used.pool.create(), nullptr);
    }
    EXPECT_EQ(log.count(releaseLine("Memory is not active", "odd")), 6U);
    EXPECT_EQ(log.lines().size(), 6U);
    used.giveAllBack();
    EXPECT_EQ(log.lines().size(), 6U);
}

TEST(MemoryPool, APoolWithoutBlocks_SaysOneThingOnceAndIsSilentFromThenOn) {
    LogCapture const log;
    unsigned char byte = 0;
    {
        MemoryPool neither(0, 0, "neither");
        MemoryPool sizeless(0, 5, "sizeless");
        MemoryPool countless(5, 0, nullptr);
        for (MemoryPool* const pool : {&neither, &sizeless, &countless}) {
            EXPECT_EQ(pool->create(), nullptr);
            pool->release(&byte);
            pool->release(placeAt(1));
            pool->release(nullptr);
        }
    }
    EXPECT_EQ(log.lines(),
              (Lines{"<UTIL> ERR: utl::MemoryPool::MemoryPool(): Number of memory is 0!! (neither)",
                     "<UTIL> ERR: utl::MemoryPool::MemoryPool(): Memory size is 0!! (sizeless)",
                     "<UTIL> ERR: utl::MemoryPool::MemoryPool(): Number of memory is 0!! ()"}));
}

TEST(MemoryPool, TheName_IsShownAsItWasAtConstruction) {
    char name[] = "100%d %s%n \xE6\x97\xA5";
    LogCapture const log;
    {
        MemoryPool pool(4, 1, name);
        std::memset(name, 'x', sizeof(name) - 1);
        static_cast<void>(pool.create());
    }
    EXPECT_EQ(log.lines(), Lines{leakLine("100%d %s%n \xE6\x97\xA5", 0)});
}

TEST(MemoryPool, ANameBeyondALogLine_IsCutInTheLineAlone) {
    std::string const name(5000, 'n');
    LogCapture const log;
    MemoryPool(4, 0, name.c_str());
    ASSERT_EQ(log.console().size(), 1U);
    std::string const line = log.console()[0];
    EXPECT_EQ(line.size(), utl::LOG_LINE_LENGTH_MAX + 2);
    EXPECT_EQ(line.substr(line.size() - 6), "n...\r\n");
}

TEST(MemoryPool, Destruction_ThroughABase_NamesTheBlocksInUseByTheirNumbers) {
    class NamedPool : public MemoryPool {
      public:
        explicit NamedPool(std::string const& name) : MemoryPool(2, 70, name.c_str()), mOwn(name) {}

      private:
        std::string mOwn;
    };
    LogCapture const log;
    std::unique_ptr<MemoryPool> pool = std::make_unique<NamedPool>("derived");
    std::vector<void*> blocks;
    for (int i = 0; i < 70; ++i) {
        blocks.push_back(pool->create());
    }
    for (unsigned int i = 70; i-- > 0;) {
        if (i != 0 && i != 31 && i != 64 && i != 69) {
            pool->release(blocks[i]);
        }
    }
    pool.reset();
    EXPECT_EQ(log.lines(), (Lines{leakLine("derived", 0), leakLine("derived", 31), leakLine("derived", 64),
                                  leakLine("derived", 69)}));
}

TEST(MemoryPool, Construction_WhoseMemoryCannotBeHad_GivesBackWhatItTook) {
    std::string const name(200, 'n');
    LogCapture const log;
    unsigned int failures = 0;
    for (unsigned int failing = 1;; ++failing) {
        HeapPlan const plan(failing);
        try {
            MemoryPool const pool(64, 100, name.c_str());
        } catch (std::bad_alloc const&) {
            ++failures;
        }
        ASSERT_EQ(plan.held(), 0) << failing;
        if (!plan.hasFailed()) {
            break;
        }
        ASSERT_EQ(failures, failing) << "a failure did not get through";
    }
    EXPECT_GE(failures, 3U);  // the name, the flags and the area
    EXPECT_EQ(log.lines(), Lines());
}

TEST(MemoryPool, Construction_OfMoreBytesThanThereAreAddresses_Throws) {
    EXPECT_THROW(MemoryPool(0xFFFFFFFF, 0xFFFFFFFF, "wide"), std::bad_alloc);
    EXPECT_THROW(MemoryPool(0x80000000, 0xFFFFFFFF, "wide"), std::bad_alloc);
    if constexpr (sizeof(void*) == 4) {
        // Products that are small again in 32 bits: of the areas, and at last of the flags.
        EXPECT_THROW(MemoryPool(0x10000, 0x10000, "wide"), std::bad_alloc);
        EXPECT_THROW(MemoryPool(0x10001, 0x10000, "wide"), std::bad_alloc);
        EXPECT_THROW(MemoryPool(0x80000000, 2, "wide"), std::bad_alloc);
        EXPECT_THROW(MemoryPool(1, 0xFFFFFFFF, "wide"), std::bad_alloc);
    }
}

/// A clock that keeps the place of the watched thread's last sign of life, as it was when the clock was
/// asked.
thread_local std::vector<StatementInfo>* gPlaces = nullptr;
std::atomic<utl::ThreadWatchdog*> gWatchdog{nullptr};

int notingClock(clockid_t clock, timespec* out) {
    if (gPlaces != nullptr) {
        gPlaces->push_back(Access::copyInfo(*gWatchdog, utltest::kernelId()).lastStatement);
    }
    return utltest::hooks::clockGetTime.real(clock, out);
}

class MemoryPoolWatched : public utltest::WithManager {
  protected:
    MemoryPoolWatched() {
        gWatchdog = &restingWatchdog();
        EXPECT_NE(manager().entryCaller(1, 60000, nullptr, "pool user"), 0);
        EXPECT_TRUE(manager().startWatchdog());
        utltest::hooks::clockGetTime.replace(notingClock);
    }
    ~MemoryPoolWatched() override {
        manager().unregisterWatchdog();
        manager().unregister(utltest::kernelId());
    }

    /// The places reported by `work`.
    template <typename WORK>
    static std::vector<StatementInfo> placesOf(WORK work) {
        StatementInfo const marker("marker", "", 1, 1);
        manager().keepAliveWatchdog(marker);
        std::vector<StatementInfo> places;
        gPlaces = &places;
        work();
        gPlaces = nullptr;
        places.push_back(Access::copyInfo(*gWatchdog, utltest::kernelId()).lastStatement);
        std::vector<StatementInfo> result;
        for (StatementInfo const& place : places) {
            if (place != (result.empty() ? marker : result.back())) {
                result.push_back(place);
            }
        }
        return result;
    }

  private:
    utltest::HookScope const mHooks;
};

TEST_F(MemoryPoolWatched, CreateAndRelease_ReportTheWaitForTheLockAndNothingElseDoes) {
    char const* const file = "source/UtlMemoryPool";
    std::vector<StatementInfo> const created{{file, "create", 76, 1}, {file, "create", 76, 2}};
    std::vector<StatementInfo> const released{{file, "release", 138, 1}, {file, "release", 138, 2}};
    std::vector<StatementInfo> const none;
    LogCapture const log;
    MemoryPool pool(8, 1, "watched");
    MemoryPool refused(0, 1, "refused");
    void* block = nullptr;
    auto const release = [&](std::ptrdiff_t offset) {
        return placesOf([&] { pool.release(static_cast<unsigned char*>(block) + offset); });
    };
    EXPECT_EQ(placesOf([&] { block = pool.create(); }), created);
    EXPECT_EQ(placesOf([&] { return pool.create(); }), created);  // in vain
    EXPECT_EQ(release(8), none);
    EXPECT_EQ(release(1), none);
    EXPECT_EQ(placesOf([&] { pool.release(placeAt(addressOf(block) - 8)); }), none);
    EXPECT_EQ(placesOf([&] { pool.release(nullptr); }), none);
    EXPECT_EQ(release(0), released);
    EXPECT_EQ(release(0), released);  // not active
    EXPECT_EQ(placesOf([&] { return refused.create(); }), none);
    EXPECT_EQ(placesOf([&] { refused.release(block); }), none);
}

TEST(MemoryPool, Calls_FromManyThreads_NeverShareABlockAndTakeNothingFromTheHeap) {
    constexpr unsigned int COUNT = 5;
    constexpr unsigned int SIZE = 9;
    LogCapture const log;
    MemoryPool pool(SIZE, COUNT, "shared");
    pool.release(pool.create());
    std::atomic<unsigned int> mixedUp{0};
    std::atomic<unsigned int> requests{0};
    auto const work = [&](unsigned char mark) {
        HeapPlan const plan(0);
        for (int i = 0; i < 400; ++i) {
            auto* const block = static_cast<unsigned char*>(pool.create());
            if (block == nullptr) {
                std::this_thread::yield();
                continue;
            }
            std::memset(block, mark, SIZE);
            if (i % 16 == 0) {
                std::this_thread::yield();
            }
            mixedUp += std::count(block, block + SIZE, mark) == SIZE ? 0U : 1U;
            pool.release(block);
        }
        requests += plan.requests();
    };
    std::vector<std::thread> threads;
    for (unsigned char mark = 1; mark <= 8; ++mark) {
        threads.emplace_back(work, mark);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(mixedUp, 0U);
    EXPECT_EQ(requests, 0U);
    EXPECT_EQ(log.lines(), Lines());
    std::set<void*> blocks;
    for (unsigned int i = 0; i < COUNT; ++i) {
        blocks.insert(pool.create());
    }
    EXPECT_EQ(blocks.size(), COUNT);
    EXPECT_EQ(blocks.count(nullptr), 0U);
    for (void* const block : blocks) {
        pool.release(block);
    }
}

}  // namespace

#include "UtlMemoryPool.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <atomic>
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

#include <gtest/gtest.h>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestThreads.h"
#include "UtlLog.h"

namespace {

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

using utl::MemoryPool;
using utl::StatementInfo;
using utltest::LogCapture;
using Access = utltest::ThreadWatchdogAccess;

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

using Lines = std::vector<std::string>;

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

TEST(MemoryPoolOdd, Create_InAnyMixtureOfCalls_GivesTheLowestFreeBlock) {
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

TEST(MemoryPoolOdd, Create_OfAPoolThatWasFull_GivesTheLastBlockWhenItAloneIsFree) {
    for (unsigned int const count : {1U, 2U, 31U, 32U, 33U, 64U, 65U, 1000U, 1025U, 32769U}) {
        UsedUpPool used(1, count);
        ASSERT_EQ(used.pool.create(), nullptr);
        used.pool.release(used.blocks.back());
        EXPECT_EQ(used.pool.create(), used.blocks.back()) << count;
        EXPECT_EQ(used.pool.create(), nullptr) << count;
    }
}

TEST(MemoryPoolOdd, Blocks_FillTheAreaToItsLastByteAndKeepWhatWasWritten) {
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

TEST(MemoryPoolOdd, Release_NamesTheFirstThingThatIsWrongWithAnAddress) {
    UsedUpPool used(6, 3);
    struct Case {
        std::uintptr_t address;
        char const* what;
    };
    char const* const under = "Memory is management outside (under)";
    char const* const over = "Memory is management outside (over)";
    char const* const alignment = "alignment error";
    // Behind the area the alignment is looked at first, in front of it never.
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

TEST(MemoryPoolOdd, Release_OfAFarAddress_CountsAsAboveUpToHalfTheAddressSpaceAndFreesNoBlock) {
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

TEST(MemoryPoolOdd, Release_OfAnotherPoolsBlock_LeavesBothPoolsAsTheyWere) {
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

TEST(MemoryPoolOdd, Release_ASecondTime_DoesNotHandTheBlockOutTwice) {
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

TEST(MemoryPoolOdd, APoolWithoutBlocks_SaysOneThingOnceAndIsSilentFromThenOn) {
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

TEST(MemoryPoolOdd, TheName_IsShownAsItWasAtConstruction) {
    char name[] = "100%d %s%n \xE6\x97\xA5";
    LogCapture const log;
    {
        MemoryPool pool(4, 1, name);
        std::memset(name, 'x', sizeof(name) - 1);
        static_cast<void>(pool.create());
    }
    EXPECT_EQ(log.lines(), Lines{leakLine("100%d %s%n \xE6\x97\xA5", 0)});
}

TEST(MemoryPoolOdd, ANameBeyondALogLine_IsCutInTheLineAlone) {
    std::string const name(5000, 'n');
    LogCapture const log;
    MemoryPool(4, 0, name.c_str());
    ASSERT_EQ(log.console().size(), 1U);
    std::string const line = log.console()[0];
    EXPECT_EQ(line.size(), utl::LOG_LINE_LENGTH_MAX + 2);
    EXPECT_EQ(line.substr(line.size() - 6), "n...\r\n");
}

TEST(MemoryPoolOdd, Destruction_ThroughABase_NamesTheBlocksInUseByTheirNumbers) {
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

TEST(MemoryPoolOdd, Construction_WhoseMemoryCannotBeHad_GivesBackWhatItTook) {
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

TEST(MemoryPoolOdd, Construction_OfMoreBytesThanThereAreAddresses_Throws) {
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

TEST(MemoryPoolOdd, Calls_FromManyThreads_NeverShareABlockAndTakeNothingFromTheHeap) {
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

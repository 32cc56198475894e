// Many threads, or many rounds, at one watchdog; the memory of its process is counted.

#include "UtlThreadWatchdog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestThreads.h"
#include "TestWatchdog.h"
#include "UtlThread.h"
#include "UtlThreadManager.h"

namespace {

std::atomic<int> gAllocated{0};

void* countedAllocation(size_t size) {
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
        ++gAllocated;
        return memory;
    }
    throw std::bad_alloc();
}

void countedRelease(void* memory) {
    gAllocated -= memory != nullptr ? 1 : 0;
    std::free(memory);
}

}  // namespace

// What is allocated through `new` in the process is counted, the library's included.
void* operator new(size_t size) {
    return countedAllocation(size);
}
void* operator new[](size_t size) {
    return countedAllocation(size);
}
void operator delete(void* memory) noexcept {
    countedRelease(memory);
}
void operator delete(void* memory, size_t) noexcept {
    countedRelease(memory);
}
void operator delete[](void* memory) noexcept {
    countedRelease(memory);
}
void operator delete[](void* memory, size_t) noexcept {
    countedRelease(memory);
}

namespace {

using namespace utltest;
using utl::StatementInfo;
using utl::ThreadManager;
using utl::ThreadWatchdog;
using Access = utltest::ThreadWatchdogAccess;

size_t entriesOf(char const* folder) {
    auto const begin = std::filesystem::directory_iterator(folder);
    return static_cast<size_t>(std::distance(begin, std::filesystem::directory_iterator()));
}

TEST(ThreadWatchdogStress, ManyThreadsAtOnce_CanDoEverything) {
    LogCapture const log;
    ThreadWatchdog watchdog(8);
    Access::setInitialized(watchdog, true);
    auto const work = [&watchdog] {
        for (unsigned int round = 1; round <= 200; ++round) {
            EXPECT_TRUE(watchdog.entry(kernelId(), round, nullptr, "busy"));
            EXPECT_TRUE(watchdog.start(kernelId()));
            EXPECT_TRUE(watchdog.keepAlive(StatementInfo("file", "function", round, 0)));
            EXPECT_TRUE(watchdog.setAliveTime(kernelId(), round + 1));
            EXPECT_TRUE(watchdog.isWatching(kernelId()));
            EXPECT_TRUE(watchdog.stop(kernelId()));
            if (round % 20 == 0) {
                watchdog.printWatchdogInfo(4);
            }
            EXPECT_TRUE(watchdog.unregister(kernelId()));
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(work);
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(Access::infos(watchdog).size(), 0U);
}

TEST_F(WatchdogThread, LooksAtTheTable_WhileManyThreadsChangeIt) {
    auto const work = [this] {
        for (unsigned int round = 1; round <= 100; ++round) {
            EXPECT_TRUE(watchdog().entry(kernelId(), 1, round % 2 == 0 ? &mListener : nullptr, "busy"));
            EXPECT_TRUE(watchdog().start(kernelId()));
            gTick += 2;
            watchdog().keepAlive(StatementInfo("file", "function", round, 0));
            EXPECT_TRUE(watchdog().setAliveTime(kernelId(), 2));
            std::this_thread::yield();
            EXPECT_TRUE(watchdog().unregister(kernelId()));
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(work);
    }
    for (auto& thread : threads) {
        thread.join();
    }
    waitForPass();
    EXPECT_EQ(Access::infos(watchdog()).size(), 0U);
}

TEST_F(WatchdogLife, Get_FromManyThreadsAtOnce_StartsItOnce) {
    for (unsigned int round = 1; round <= 30; ++round) {
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([] { ThreadManager::get(); });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(hooks::threadCreate.calls(), round);
        EXPECT_TRUE(manager().entryWatchdog(500, nullptr));
        ThreadManager::destroy();
    }
}

TEST_F(WatchdogLife, GetAndDestroy_AThousandTimes_LeaveNothingBehind) {
    auto const round = [] {
        ThreadManager::get();
        ThreadManager::destroy();
    };
    int const first = watchdogId();
    round();
    while (lives(first)) {
        std::this_thread::yield();
    }
    size_t const threads = entriesOf("/proc/self/task");
    size_t const handles = entriesOf("/proc/self/fd");
    int const allocated = gAllocated;
    for (int i = 0; i < 1000; ++i) {
        round();
    }
    EXPECT_EQ(entriesOf("/proc/self/fd"), handles);
    EXPECT_EQ(hooks::timerCreate.calls(), 1001U);
    EXPECT_EQ(liveTimers(), 0U);
    EXPECT_EQ(hooks::threadDetach.calls(), 1001U);
    while (entriesOf("/proc/self/task") > threads) {
        std::this_thread::yield();
    }
    EXPECT_EQ(gAllocated, allocated) << "each thread gives back what it shares behind its end";
    EXPECT_TRUE(mLog.lines().empty());
}

}  // namespace

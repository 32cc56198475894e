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

// Reports without a pause, one place for each: the number of the report is its line.
class Reporter {
  public:
    explicit Reporter(ThreadWatchdog& watchdog) : mThread([this, &watchdog] { run(watchdog); }) {
        while (mReports == 0) {
            std::this_thread::yield();
        }
    }
    ~Reporter() {
        mIsOver = true;
        mThread.join();
    }
    Reporter(Reporter const&) = delete;
    Reporter& operator=(Reporter const&) = delete;

    int id() const { return mId; }

    /// The line of the last report that has returned.
    unsigned int reports() const { return mReports; }

    /// Waits for a report that begins now or later.
    void waitForOneMore() const {
        unsigned int const before = mReports;
        while (mReports - before < 2) {
            std::this_thread::yield();
        }
    }

  private:
    void run(ThreadWatchdog& watchdog) {
        mId = kernelId();
        EXPECT_TRUE(watchdog.entry(mId, 1, nullptr, "reporter"));
        EXPECT_TRUE(watchdog.start(mId));
        while (!mIsOver) {
            EXPECT_TRUE(watchdog.keepAlive(
                StatementInfo("reporter", "", mReports + 1, static_cast<unsigned int>(mId))));
            ++mReports;
        }
        EXPECT_TRUE(watchdog.unregister(mId));
    }

    std::atomic<int> mId{0};
    std::atomic<unsigned int> mReports{0};
    std::atomic<bool> mIsOver{false};
    std::thread mThread;
};

TEST_F(WatchdogPass, AReportThatHasReturned_CountsForEveryLookBehindIt) {
    Reporter const first(mWatchdog);
    Reporter const second(mWatchdog);
    for (int round = 0; round < 100; ++round) {
        ++gTick;
        for (Reporter const* const reporter : {&first, &second}) {
            reporter->waitForOneMore();
        }
        // An older tick would be overdue.
        mWatchdog.executeWatchThreads();
        for (Reporter const* const reporter : {&first, &second}) {
            unsigned int const before = reporter->reports();
            utl::WatchdogInfo const info = Access::copyInfo(mWatchdog, reporter->id());
            EXPECT_EQ(info.timeoutCount, 0U);
            EXPECT_EQ(info.lastStatement.sub, static_cast<unsigned int>(reporter->id()));
            EXPECT_GE(info.lastStatement.line, before);
        }
    }
}

// Each second report comes behind a time-out, and all of them beside one another.
TEST_F(WatchdogPass, AReportBesideATimeOut_CountsOrRevivesTheThread) {
    Reporter const reporter(mWatchdog);
    for (int round = 0; round < 100; ++round) {
        mWatchdog.executeWatchdogTimeout(reporter.id());
        reporter.waitForOneMore();
        utl::WatchdogInfo const info = Access::copyInfo(mWatchdog, reporter.id());
        EXPECT_EQ(info.aliveStatus, utl::WatchdogInfo::ALIVE);
        EXPECT_EQ(info.timeoutCount, static_cast<unsigned int>(round + 1));
    }
}

TEST(ThreadWatchdogStress, AThreadThatAnotherOneTakesOutMeanwhile_LeavesNothingInTheRowOfANewOne) {
    LogCapture const log;
    OpenedWatchdog watchdog(4);
    Access::setInitialized(watchdog, true);
    std::atomic<bool> isOver{false};
    std::atomic<int> id{0};
    std::thread victim([&] {
        id = kernelId();
        while (!isOver) {
            watchdog.keepAlive(StatementInfo("victim", "", 0, 0));
        }
    });
    while (id == 0) {
        std::this_thread::yield();
    }
    StatementInfo const own("own", "", 0, 0);
    for (int round = 0; round < 500; ++round) {
        EXPECT_TRUE(watchdog.entry(id, 60000, nullptr, "victim"));
        EXPECT_TRUE(watchdog.start(id));
        std::this_thread::yield();
        EXPECT_TRUE(watchdog.unregister(id));
        EXPECT_TRUE(watchdog.entry(kernelId(), 60000, nullptr, "own"));
        EXPECT_TRUE(watchdog.start(kernelId()));
        for (int report = 0; report < 3; ++report) {
            EXPECT_TRUE(watchdog.keepAlive(own));
        }
        EXPECT_EQ(watchdog.findWatchdogInfo(kernelId())->lastStatement, own);
        EXPECT_TRUE(watchdog.unregister(kernelId()));
    }
    isOver = true;
    victim.join();
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

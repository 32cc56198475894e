// The road of a message, of a timer and of a sign of life: how many locks it takes, and that none of them is
// that of the table of threads, which a start elsewhere may hold until the kernel runs the new thread.

#include <gtest/gtest.h>
#include <pthread.h>

#include <future>
#include <vector>

#include "TestHooks.h"
#include "TestMessages.h"
#include "TestThreads.h"
#include "TestTimers.h"
#include "UtlSharedTimer.h"
#include "UtlThreadWatchdog.h"

namespace {

using namespace utltest;

thread_local unsigned int tLocks = 0;  // taken by the library, on this thread
thread_local void (*tOnLock)() = nullptr;

void noteLock(pthread_mutex_t*) {
    ++tLocks;
    if (tOnLock != nullptr) {
        tOnLock();
    }
}

constexpr int FIRST = 100;
constexpr unsigned int COUNT = 100;

template <typename WORK>
unsigned int locksOf(WORK work) {
    unsigned int const before = tLocks;
    work();
    return tLocks - before;
}

class RoadLocks : public WithoutWatchdogThread {
  protected:
    RoadLocks() { hooks::mutexLock.watch(noteLock); }

  private:
    HookScope mHooks;
};

TEST_F(RoadLocks, TheQuestionWhetherAThreadRuns_TakesNone) {
    HeldMsgThread road;
    road.startAndBlock();
    EXPECT_EQ(locksOf([&road] { EXPECT_TRUE(road.thread.isRunning()); }), 0U);
    EXPECT_EQ(locksOf([&road] { EXPECT_FALSE(road.thread.hasRequestedStop()); }), 0U);
    road.gate.open();
}

TEST_F(RoadLocks, APost_TakesAtMostTwo) {
    HeldMsgThread road(64, COUNT + 1);
    road.startAndBlock();
    unsigned int const locks = locksOf([&road] {
        for (unsigned int i = 0; i < COUNT; ++i) {
            EXPECT_EQ(road.thread.postMsg(FIRST), 1);
        }
    });
    EXPECT_GT(locks, 0U);
    EXPECT_LE(locks, 2 * COUNT);
    RecordProperty("LocksForEachPost", static_cast<int>(locks / COUNT));
    road.gate.open();
}

TEST_F(RoadLocks, ADelivery_TakesOne) {
    HeldMsgThread road(64, COUNT + 1);
    std::vector<unsigned int> seen;
    road.onOther = [&seen](int, int) { seen.push_back(tLocks); };
    road.startAndBlock();
    for (unsigned int i = 0; i < COUNT; ++i) {
        ASSERT_EQ(road.thread.postMsg(FIRST), 1);
    }
    road.gate.open();
    ASSERT_TRUE(road.collector.waitFor(COUNT + 1));
    ASSERT_EQ(road.thread.stop(1, 0), 0);
    ASSERT_EQ(seen.size(), COUNT);
    unsigned int const locks = seen.back() - seen.front();
    EXPECT_GT(locks, 0U);
    EXPECT_LE(locks, COUNT - 1);
    RecordProperty("LocksForEachDelivery", static_cast<int>(locks / (COUNT - 1)));
}

class PassBesideAReport : public utltest::WithManager {
  protected:
    PassBesideAReport() { hooks::mutexLock.watch(noteLock); }
    struct Counting : utl::WatchdogTimerListener {
        void onTime(int, utl::WatchdogInfos const&) override { ++calls; }
        int calls = 0;
    };
    static inline utl::WatchdogInfo* sInfo = nullptr;
    static inline unsigned int sFirstLock = 0;

  private:
    HookScope mHooks;
};

// The second lock of a pass stands after its search and before its decision.
TEST_F(PassBesideAReport, ASignOfLifeBehindTheSearch_Counts) {
    Counting listener;
    utl::ThreadWatchdog& watchdog = restingWatchdog();
    ASSERT_TRUE(watchdog.entry(NO_THREAD, 1, &listener, "late"));
    ASSERT_TRUE(watchdog.start(NO_THREAD));
    sInfo = watchdog.findWatchdogInfo(NO_THREAD);
    sInfo->lastAliveTick = 0;
    sFirstLock = tLocks + 1;
    tOnLock = [] {
        if (tLocks > sFirstLock) {
            sInfo->lastAliveTick = utl::WatchdogInfo::NO_TICK - 1;
        }
    };
    utltest::ThreadWatchdogAccess::watchOnce(watchdog);
    tOnLock = nullptr;
    EXPECT_GT(tLocks, sFirstLock + 1);
    EXPECT_EQ(listener.calls, 0);
    EXPECT_EQ(sInfo->timeoutCount, 0U);
    EXPECT_TRUE(watchdog.unregister(NO_THREAD));
}

class MessagesBesideAStart : public utltest::WithManager {};

TEST_F(MessagesBesideAStart, MessagesTimersAndSignsOfLife_DoNotWaitForTheTableOfThreads) {
    Collector collector;
    ScopedMsgThread thread(64, 16, "road", 4);
    ASSERT_EQ(thread.start(&collector, 1, 60000), 0);
    ASSERT_TRUE(thread.startWatchdog());
    Ticker ticker;
    ScopedTimers timers;
    int const shared = timers->addTimer(&ticker, 1, 3, 0);
    std::future<void> road;
    {
        utltest::ThreadManagerAccess::HeldTable const table;
        road = std::async(std::launch::async, [&] {
            EXPECT_TRUE(thread.isRunning());
            EXPECT_EQ(thread.postMsg(FIRST), 1);
            EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
            EXPECT_EQ(thread.sendMsgInterrupt(FIRST), 1);
            EXPECT_FALSE(thread.hasMsg(FIRST));
            EXPECT_TRUE(thread.eraseMsg(FIRST));
            int const timer = thread.setTimer(1, 0, 2, 0);
            EXPECT_GT(timer, 0);
            EXPECT_TRUE(collector.waitFor(5));
            int const other = thread.registerTimer(60000);
            EXPECT_TRUE(thread.startTimer(other));
            EXPECT_TRUE(thread.killTimer(other));
            EXPECT_TRUE(timers->start(shared));
            EXPECT_TRUE(ticker.waitFor(3));
            utl::Thread::keepAliveWatchdog(utl::StatementInfo::INVALID);
        });
        EXPECT_EQ(road.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    }
    road.wait();
    EXPECT_EQ(thread.stop(1, 0), 0);
}

}  // namespace

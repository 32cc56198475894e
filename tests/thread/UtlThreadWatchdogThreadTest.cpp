// The watchdog's own thread.

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
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
#include "UtlMemoryPool.h"
#include "UtlThread.h"
#include "UtlThreadWatchdog.h"
#include "UtlTimeCounter.h"

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

using utl::StatementInfo;
using utl::ThreadManager;
using utl::ThreadWatchdog;
using utl::WatchdogInfo;
using utl::WatchdogInfos;
using namespace utltest;
using Access = utltest::ThreadWatchdogAccess;
using ManagerAccess = utltest::ThreadManagerAccess;
using Lines = std::vector<std::string>;

std::atomic<int> gWatchdogId;
std::atomic<unsigned int> gPasses;

// Stands at `gTick` and counts the looks of the watchdog's thread, one for each pass.
int passCountingClock(clockid_t clock, timespec* out) {
    if (kernelId() == gWatchdogId) {
        ++gPasses;
    }
    return standingClock(clock, out);
}

/// The process's watchdog looks at its table every millisecond; its clock stands at `gTick`.
class WatchdogThread : public utltest::WithManager {
  protected:
    WatchdogThread() {
        hooks::clockGetTime.replace(passCountingClock);
        gTick = 1000;
        gWatchdogId = watchdogId();
        EXPECT_TRUE(manager().setWatchdogWatchInterval(1));
    }
    ~WatchdogThread() override {
        mListener.then = nullptr;
        ThreadManager::destroy();
    }

    static ThreadWatchdog& watchdog() { return ManagerAccess::watchdog(); }

    /// Of the next three looks at the clock the second begins a pass that was not there yet, and the third
    /// comes behind it.
    static void waitForPass() {
        unsigned int const before = gPasses;
        while (gPasses - before < 3) {
            std::this_thread::yield();
        }
    }

    void waitForTimeOuts(size_t count) const {
        while (mListener.ids().size() < count) {
            std::this_thread::yield();
        }
    }

    void watch(int id, unsigned int aliveTime = 500, char const* name = "thread") {
        EXPECT_TRUE(watchdog().entry(id, aliveTime, &mListener, name));
        EXPECT_TRUE(watchdog().start(id));
        mLog.clear();
    }

    HookScope const mHooks;
    LogCapture mLog;
    NotingListener mListener;
};

TEST_F(WatchdogThread, IsARegisteredThreadOfNormalPriorityThatIsNotWatched) {
    EXPECT_TRUE(manager().isActive(gWatchdogId));
    EXPECT_STREQ(manager().getName(gWatchdogId), "Watchdog Thread");
    utl::ThreadPriority priority(utl::ThreadPriority::LOW);
    EXPECT_TRUE(manager().getPriority(gWatchdogId, &priority));
    EXPECT_EQ(priority.value(), utl::ThreadPriority::NORMAL);
    EXPECT_FALSE(manager().isRegisteredWatchdog(gWatchdogId));
}

TEST_F(WatchdogThread, AThreadThatKeepsSilent_TimesOutOnce) {
    watch(7);
    gTick = 1499;
    waitForPass();
    EXPECT_TRUE(mLog.lines().empty());
    gTick = 1600;
    waitForPass();
    EXPECT_EQ(mLog.lines(), Lines{timeoutLine(7, "thread")});
    EXPECT_EQ(Access::copyInfo(watchdog(), 7).timeoutCount, 1U);
    gTick = 1000000;
    waitForPass();
    EXPECT_EQ(mLog.lines(), Lines{timeoutLine(7, "thread")});
    EXPECT_EQ(Access::copyInfo(watchdog(), 7).timeoutCount, 1U);
    EXPECT_EQ(mListener.ids(), std::vector<int>{7});
}

TEST_F(WatchdogThread, ASignOfLifeBehindATimeOut_RevivesTheThreadWhoseNextSilenceCountsAgain) {
    int const id = kernelId();
    watch(id, 500, "main");
    gTick = 1500;
    waitForTimeOuts(1);
    gTick = 3000;
    manager().keepAliveWatchdog(StatementInfo("file", "function", 1, 2));
    EXPECT_EQ(Access::copyInfo(watchdog(), id).aliveStatus, WatchdogInfo::ALIVE);
    gTick = 3499;
    waitForPass();
    EXPECT_EQ(Access::copyInfo(watchdog(), id).timeoutCount, 1U);
    gTick = 3500;
    waitForTimeOuts(2);
    EXPECT_EQ(Access::copyInfo(watchdog(), id).timeoutCount, 2U);
    EXPECT_EQ(mLog.lines(),
              (Lines{timeoutLine(id, "main"),
                     "<UTIL> INF: ThreadWatchdog Timeout->Alive ID:" + std::to_string(id) + " Name:main",
                     timeoutLine(id, "main")}));
}

TEST_F(WatchdogThread, AThreadThatReportsInTime_IsNeverReported) {
    watch(kernelId(), 500, "main");
    for (int i = 0; i < 20; ++i) {
        gTick += 499;
        waitForPass();
        manager().keepAliveWatchdog(StatementInfo::INVALID);
    }
    EXPECT_TRUE(mLog.lines().empty());
    EXPECT_TRUE(mListener.ids().empty());
}

TEST_F(WatchdogThread, WithoutAListener_PrintsTheTable) {
    EXPECT_TRUE(watchdog().entry(7, 500, nullptr, "seven"));
    EXPECT_TRUE(watchdog().start(7));
    mLog.clear();
    gTick = 1500;
    ASSERT_TRUE(mLog.waitFor("(, :0:0)"));
    waitForPass();
    EXPECT_EQ(mLog.lines(),
              (Lines{timeoutLine(7, "seven"), std::string("<UTIL> INF: ") + TITLE,
                     std::string("<UTIL> INF: ") + COLUMNS,
                     "<UTIL> INF:          7, seven                           ,        500, WATCHING    , "
                     "TIMEOUT     ,             1, (, :0:0)"}));
}

TEST_F(WatchdogThread, CallsTheListenerWithoutALock) {
    watch(7);
    std::atomic<bool> answered{false};
    mListener.then = [&answered](int id, WatchdogInfos const&) {
        std::thread([&answered, id] {
            manager().keepAliveWatchdog(StatementInfo::INVALID);
            answered = manager().isWatchingWatchdog(id) && manager().isActive(gWatchdogId);
        }).join();
    };
    gTick = 1500;
    waitForTimeOuts(1);
    waitForPass();
    EXPECT_TRUE(answered);
    EXPECT_EQ(mListener.threadId(), gWatchdogId);
}

TEST_F(WatchdogThread, TakesEveryCallFromItsListener) {
    watch(7);
    watch(8, 100000);
    mListener.then = [this](int id, WatchdogInfos const& infos) {
        EXPECT_TRUE(manager().stopWatchdog(id));
        EXPECT_TRUE(manager().startWatchdog(id));
        EXPECT_TRUE(manager().setWatchdogAliveTime(7000, id));
        EXPECT_TRUE(manager().unregisterWatchdog(id));
        EXPECT_FALSE(manager().isRegisteredWatchdog(id));
        EXPECT_TRUE(manager().entryWatchdog(9000, &mListener, 9));
        EXPECT_TRUE(manager().setWatchdogWatchInterval(2));
        manager().printWatchdogInfo(4);
        EXPECT_EQ(infos.size(), 2U);
        EXPECT_STREQ(infos.find(id)->name.buffer(), "thread");
    };
    gTick = 1500;
    waitForTimeOuts(1);
    waitForPass();
    EXPECT_EQ(mListener.ids(), std::vector<int>{7});
    EXPECT_EQ(Access::copyInfo(watchdog(), 9), WatchdogInfo(9, 9000, &mListener, "", 1));
    mListener.then = nullptr;
    gTick = 200000;
    waitForTimeOuts(2);
    EXPECT_EQ(mListener.ids(), (std::vector<int>{7, 8}));
}

TEST_F(WatchdogThread, ASlowListener_DelaysTheNextLookAndPilesUpNone) {
    Gate entered;
    Gate go;
    watch(7);
    mListener.then = [&](int id, WatchdogInfos const&) {
        if (id == 7) {
            entered.open();
            EXPECT_TRUE(go.wait());
        }
    };
    gTick = 1500;
    ASSERT_TRUE(entered.wait());
    watch(8, 1);
    gTick = 2000;
    unsigned int const passes = gPasses;
    unsigned int const timers = hooks::timerCreate.calls();
    utl::Thread::sleep(20);
    EXPECT_EQ(gPasses, passes);
    EXPECT_EQ(hooks::timerCreate.calls(), timers) << "the next period begins behind the listener";
    EXPECT_EQ(mListener.ids(), std::vector<int>{7});
    go.open();
    waitForTimeOuts(2);
    EXPECT_EQ(mListener.ids(), (std::vector<int>{7, 8}));
}

TEST_F(WatchdogThread, TheEndOfTheManager_WaitsForAListenerThatRuns) {
    std::atomic<bool> returned{false};
    Gate entered;
    ThreadWatchdog& ending = watchdog();
    mListener.then = [&](int, WatchdogInfos const&) {
        entered.open();
        while (!Access::thread(ending).hasRequestedStop()) {
            std::this_thread::yield();
        }
        returned = true;
    };
    watch(7);
    gTick = 1500;
    ASSERT_TRUE(entered.wait());
    ThreadManager::destroy();
    EXPECT_TRUE(returned);
}

TEST_F(WatchdogThread, AThreadThatIsStopped_IsWatchedNoMore) {
    utltest::Collector collector;
    utltest::ScopedMsgThread thread;
    EXPECT_EQ(thread.start(&collector, 1, 500, &mListener), 0);
    EXPECT_TRUE(manager().isRegisteredWatchdog(thread.getId()));
    EXPECT_EQ(thread.stop(1, 0), 0);
    EXPECT_FALSE(manager().isRegisteredWatchdog(thread.getId()));
}

TEST_F(WatchdogThread, AMessageThread_MayBeIdleAsLongAsItWantsAndMustNotBeBusyTooLong) {
    Gate entered;
    Gate go;
    utltest::Collector collector;
    collector.onMsg = [&](int id, int) {
        if (id == utltest::BLOCKER) {
            entered.open();
            EXPECT_TRUE(go.wait());
        }
    };
    utltest::ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector, 1, 500, &mListener), 0);
    ASSERT_TRUE(thread.startWatchdog());
    ASSERT_EQ(thread.sendMsgSync(100), 1);
    while (manager().isWatchingWatchdog(thread.getId())) {
        std::this_thread::yield();
    }
    gTick = 50000;
    waitForPass();
    EXPECT_TRUE(mListener.ids().empty());
    ASSERT_EQ(thread.postMsg(utltest::BLOCKER), 1);
    ASSERT_TRUE(entered.wait());
    gTick = 60000;
    waitForTimeOuts(1);
    go.open();
    EXPECT_EQ(mListener.ids(), std::vector<int>{thread.getId()});
    ASSERT_EQ(mListener.snapshot().size(), 1U);
    EXPECT_STREQ(mListener.snapshot()[0].lastStatement.file, "source/UtlMsgDrivenThread");
    EXPECT_STREQ(mListener.snapshot()[0].lastStatement.function, "execute");
}

std::atomic<int> gHolderId;
Gate* gHolds;
Gate* gLetGo;

// The thread that logs under the pool's lock stays there; the time of its line is asked for in front of the
// log's own locks.
int holdInTheLogLine(timeval* out, void* zone) {
    if (kernelId() == gHolderId) {
        gHolds->open();
        EXPECT_TRUE(gLetGo->wait());
    }
    return hooks::getTimeOfDay.real(out, zone);
}

TEST_F(WatchdogThread, TheReportOfAThreadThatWaitsForALock_NamesTheLocksPlace) {
    utl::MemoryPool pool(16, 2, "shared");
    void* const block = pool.create();
    pool.release(block);
    Gate holds;
    Gate letGo;
    gHolds = &holds;
    gLetGo = &letGo;
    gHolderId = 0;
    hooks::getTimeOfDay.replace(holdInTheLogLine);
    std::thread holder([&pool, block] {
        gHolderId = kernelId();
        pool.release(block);
    });
    ASSERT_TRUE(holds.wait());
    std::atomic<int> waiterId{0};
    std::thread waiter([&] {
        waiterId = kernelId();
        EXPECT_TRUE(manager().entryWatchdog(500, nullptr));
        EXPECT_TRUE(manager().startWatchdog());
        EXPECT_NE(pool.create(), nullptr);
        EXPECT_TRUE(manager().unregisterWatchdog());
    });
    while (waiterId == 0 || Access::copyInfo(watchdog(), waiterId).lastStatement.sub != 1) {
        std::this_thread::yield();
    }
    gTick = 1500;
    EXPECT_TRUE(mLog.waitFor("(source/UtlMemoryPool, create:76:1)"));
    letGo.open();
    holder.join();
    waiter.join();
    char row[256];
    snprintf(row, sizeof(row),
             "<UTIL> INF: %10d,                                 ,        500, WATCHING    , TIMEOUT     , "
             "            1, (source/UtlMemoryPool, create:76:1)",
             waiterId.load());
    EXPECT_EQ(mLog.count(row), 1U);
    EXPECT_EQ(
        mLog.count("<UTIL> INF: ThreadWatchdog Timeout->Alive ID:" + std::to_string(waiterId) + " Name:"),
        1U);
    pool.release(block);
}

TEST_F(WatchdogThread, OnTheRealClock_ATimeOutComesNoEarlierThanTheAliveTime) {
    hooks::clockGetTime.replace(nullptr);
    utl::TimeCounter silence;
    silence.start();
    watch(7, 50);
    waitForTimeOuts(1);
    EXPECT_GE(silence.watch(), 49U);
    utl::Thread::sleep(60);
    EXPECT_EQ(mLog.lines(), Lines{timeoutLine(7, "thread")});
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

// The interval.

std::atomic<long> gSeconds;
std::atomic<long> gNanoseconds;

int noteInterval(timer_t timer, int flags, itimerspec const* setting, itimerspec* old) {
    gSeconds = static_cast<long>(setting->it_value.tv_sec);
    gNanoseconds = static_cast<long>(setting->it_value.tv_nsec);
    return hooks::timerSetTime.real(timer, flags, setting, old);
}

class WatchdogLife : public utltest::WithManager {
  protected:
    ~WatchdogLife() override { ThreadManager::destroy(); }

    /// Timers of the library that are there.
    static unsigned int liveTimers() { return hooks::timerCreate.calls() - hooks::timerDelete.calls(); }

    HookScope const mHooks;
    LogCapture mLog;
};

TEST_F(WatchdogLife, TheFirstGet_HasTheTableLookedAtEverySecond) {
    hooks::timerSetTime.replace(noteInterval);
    manager();
    EXPECT_EQ(gSeconds, 1);
    EXPECT_EQ(gNanoseconds, 0);
    EXPECT_EQ(hooks::timerCreate.calls(), 1U);
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(WatchdogLife, SetWatchInterval_ReplacesTheTimer) {
    manager();
    hooks::timerSetTime.replace(noteInterval);
    EXPECT_TRUE(manager().setWatchdogWatchInterval(2500));
    EXPECT_EQ(gSeconds, 2);
    EXPECT_EQ(gNanoseconds, 500000000);
    EXPECT_EQ(liveTimers(), 1U);
    EXPECT_TRUE(manager().setWatchdogWatchInterval(0xFFFFFFFFU));
    EXPECT_EQ(gSeconds, 4294967);
    EXPECT_EQ(gNanoseconds, 295000000);
    EXPECT_EQ(liveTimers(), 1U);
}

TEST_F(WatchdogLife, SetWatchInterval_To0_HasTheTableNeverLookedAt) {
    hooks::timerSetTime.replace(noteInterval);
    EXPECT_TRUE(manager().setWatchdogWatchInterval(0));
    EXPECT_EQ(gSeconds, 0);
    EXPECT_EQ(gNanoseconds, 0);
}

TEST_F(WatchdogLife, SetWatchInterval_WhoseTimerCannotBeHad_IsFalseUntilAnotherCallSucceeds) {
    NotingListener listener;
    ThreadWatchdog& watchdog = ManagerAccess::watchdog();
    hooks::timerCreate.failFrom(1, 1, -1, EAGAIN);
    EXPECT_FALSE(manager().setWatchdogWatchInterval(1));
    EXPECT_TRUE(mLog.waitFor("MsgDrivenThread(Watchdog Thread) Error. MsgId:0x80000006"));
    EXPECT_EQ(mLog.lines()[0],
              "<UTIL> ERR: MsgDrivenThread(Watchdog Thread) timer_create SysTimerId:0x00000000 errno:11");
    EXPECT_TRUE(watchdog.entry(7, 1, &listener, "seven"));
    EXPECT_TRUE(watchdog.start(7));
    EXPECT_TRUE(manager().setWatchdogWatchInterval(1));
    while (listener.ids().empty()) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(watchdog.unregister(7));
    ThreadManager::destroy();
    EXPECT_EQ(listener.ids(), std::vector<int>{7});
}

TEST_F(WatchdogLife, SetWatchInterval_WithoutAThread_IsFalse) {
    ThreadWatchdog watchdog(4);
    EXPECT_FALSE(watchdog.setWatchInterval(1000));
    EXPECT_TRUE(watchdog.initialize(1000));
    EXPECT_TRUE(watchdog.setWatchInterval(1000));
    watchdog.shutdown();
    EXPECT_FALSE(watchdog.setWatchInterval(1000));
    EXPECT_TRUE(mLog.lines().empty());
}

// Beginning and end.

TEST_F(WatchdogLife, Initialize_ASecondTime_IsFalseAndStartsNothing) {
    manager();
    ThreadWatchdog watchdog(4);
    unsigned int const threads = hooks::threadCreate.calls();
    EXPECT_TRUE(watchdog.initialize(1000));
    EXPECT_FALSE(watchdog.initialize(1000));
    EXPECT_EQ(hooks::threadCreate.calls(), threads + 1);
    EXPECT_EQ(liveTimers(), 2U);
    EXPECT_TRUE(watchdog.entry(7, 500, nullptr, "seven"));
    watchdog.shutdown();
}

TEST_F(WatchdogLife, Shutdown_EndsThreadAndTimerAndEveryOperation) {
    manager();
    ThreadWatchdog watchdog(4);
    EXPECT_TRUE(watchdog.initialize(1000));
    EXPECT_TRUE(watchdog.entry(7, 500, nullptr, "seven"));
    int const id = Access::thread(watchdog).getId();
    EXPECT_TRUE(manager().isActive(id));
    unsigned int const detached = hooks::threadDetach.calls();
    watchdog.shutdown();
    EXPECT_FALSE(manager().isThreadExist(id));
    EXPECT_EQ(hooks::threadDetach.calls(), detached + 1);
    EXPECT_EQ(liveTimers(), 1U);
    EXPECT_FALSE(watchdog.isRegistered(7));
    EXPECT_FALSE(watchdog.start(7));
    EXPECT_FALSE(watchdog.entry(8, 500, nullptr, "eight"));
    EXPECT_NE(watchdog.findWatchdogInfo(7), nullptr);
}

TEST_F(WatchdogLife, Shutdown_ASecondTimeOrWithoutAStart_IsHarmless) {
    ThreadWatchdog watchdog(4);
    watchdog.shutdown();
    EXPECT_TRUE(watchdog.initialize(1000));
    watchdog.shutdown();
    watchdog.shutdown();
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(WatchdogLife, Initialize_AfterShutdown_IsFalse) {
    ThreadWatchdog watchdog(4);
    EXPECT_TRUE(watchdog.initialize(1000));
    watchdog.shutdown();
    EXPECT_FALSE(watchdog.initialize(1000));
    EXPECT_FALSE(watchdog.entry(7, 500, nullptr, "seven"));
}

TEST_F(WatchdogLife, Destructor_OfAWatchdogThatWasNotShutDown_EndsItsThread) {
    manager();
    int id = 0;
    {
        ThreadWatchdog watchdog(4);
        EXPECT_TRUE(watchdog.initialize(1000));
        id = Access::thread(watchdog).getId();
    }
    EXPECT_FALSE(manager().isActive(id));
    EXPECT_TRUE(manager().unregister(id));
}

std::string const NOT_STARTED = "<UTIL> ERR: ThreadManager::get() : Watchdog is not started.";

TEST_F(WatchdogLife, WhoseThreadCannotBeHad_IsTriedAgainByEachGetUntilItStarts) {
    std::string const refused = "<UTIL> ERR: Thread Start Failed  Ret:11, PriOs:0, Name:Watchdog Thread";
    hooks::threadCreate.failFrom(1, 2, EAGAIN, 0);
    ThreadManager* const first = ThreadManager::get();
    EXPECT_EQ(mLog.lines(), (Lines{refused, NOT_STARTED}));
    EXPECT_FALSE(first->entryWatchdog(500, nullptr));
    EXPECT_FALSE(first->setWatchdogWatchInterval(1000));
    EXPECT_EQ(ThreadManager::getOrNull(), first);
    EXPECT_EQ(hooks::threadCreate.calls(), 1U) << "only get tries again";
    EXPECT_EQ(ThreadManager::get(), first);
    EXPECT_EQ(mLog.lines(), (Lines{refused, NOT_STARTED, refused, NOT_STARTED}));
    EXPECT_TRUE(ThreadManager::get()->entryWatchdog(500, nullptr));
    EXPECT_EQ(hooks::threadCreate.calls(), 3U);
    EXPECT_TRUE(ThreadManager::get()->setWatchdogWatchInterval(500));
    EXPECT_EQ(hooks::threadCreate.calls(), 3U) << "what has started is not started again";
}

TEST_F(WatchdogLife, WhoseTimerCannotBeHad_GetsAnotherThreadByTheNextGet) {
    hooks::timerCreate.failFrom(1, 1, -1, EAGAIN);
    ThreadManager* const manager = ThreadManager::get();
    EXPECT_TRUE(mLog.waitFor("MsgDrivenThread(Watchdog Thread) Error. MsgId:0x80000006"));
    EXPECT_EQ(mLog.count(NOT_STARTED), 1U);
    int const id = ManagerAccess::watchdogThreadId(*manager);
    EXPECT_TRUE(manager->isActive(id));
    EXPECT_FALSE(manager->entryWatchdog(500, nullptr));
    EXPECT_EQ(hooks::threadDetach.calls(), 0U);
    EXPECT_EQ(ThreadManager::get(), manager);
    EXPECT_FALSE(manager->isThreadExist(id));
    EXPECT_EQ(hooks::threadDetach.calls(), 1U);
    EXPECT_TRUE(manager->entryWatchdog(500, nullptr));
    EXPECT_TRUE(manager->isActive(ManagerAccess::watchdogThreadId(*manager)));
}

TEST_F(WatchdogLife, InAManagerWithoutRoom_IsNotThere) {
    EXPECT_TRUE(ThreadManager::initializeEntryMax(0));
    EXPECT_FALSE(manager().entryWatchdog(500, nullptr));
    EXPECT_EQ(hooks::threadCreate.calls(), 0U);
    ThreadManager::destroy();
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(WatchdogLife, OfAManagerThatNobodyAskedFor_NeverStarts) {
    EXPECT_TRUE(ThreadManager::initializeEntryMax(4));
    EXPECT_NE(ThreadManager::getIfCreated(), nullptr);
    ThreadManager::destroy();
    EXPECT_EQ(ThreadManager::getIfCreated(), nullptr);
    EXPECT_EQ(hooks::threadCreate.calls(), 0U);
    EXPECT_EQ(hooks::timerCreate.calls(), 0U);
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(WatchdogLife, OfAManagerWithAChosenCapacity_StartsWithTheFirstGet) {
    EXPECT_TRUE(ThreadManager::initializeEntryMax(4));
    EXPECT_EQ(hooks::threadCreate.calls(), 0U);
    EXPECT_TRUE(manager().entryWatchdog(500, nullptr));
    EXPECT_EQ(hooks::threadCreate.calls(), 1U);
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

size_t entriesOf(char const* folder) {
    auto const begin = std::filesystem::directory_iterator(folder);
    return static_cast<size_t>(std::distance(begin, std::filesystem::directory_iterator()));
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

TEST(WatchdogDeathTest, AProcessThatReturnsFromMainRightBehindTheFirstGet_EndsCleanly) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            ThreadManager::get();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(WatchdogDeathTest, AProcessThatReturnsFromMainWhileThreadsTimeOut_EndsCleanly) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            // Static, because the process ends with both in use.
            static auto* const log = new LogCapture;
            static auto* const listener = new NotingListener;
            log->clear();
            listener->then = [](int id, WatchdogInfos const&) {
                ThreadManager::get()->unregisterWatchdog(id);
                ThreadManager::get()->entryWatchdog(1, listener, id);
                ThreadManager::get()->startWatchdog(id);
            };
            ThreadManager::get()->setWatchdogWatchInterval(1);
            ThreadManager::get()->entryWatchdog(1, listener, 7);
            ThreadManager::get()->startWatchdog(7);
            while (listener->ids().size() < 20) {
                std::this_thread::yield();
            }
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace

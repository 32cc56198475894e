// Clocks, timers, threads and memory that the watchdog cannot have.

#include "UtlThreadWatchdog.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "TestAllocations.h"
#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestThreads.h"
#include "TestWatchdog.h"
#include "UtlThread.h"
#include "UtlThreadManager.h"
#include "UtlTimeCounter.h"

namespace {

using namespace utltest;
using utl::StatementInfo;
using utl::ThreadManager;
using utl::ThreadWatchdog;
using utl::WatchdogInfo;
using Access = utltest::ThreadWatchdogAccess;
using Lines = std::vector<std::string>;
using ManagerAccess = utltest::ThreadManagerAccess;

std::string const NOT_STARTED = "<UTIL> ERR: ThreadManager::get() : Watchdog is not started.";

TEST_F(ThreadWatchdogTable, KeepAlive_OnAClockThatFails_LeavesTheThreadUntimed) {
    WatchdogInfo const& info = watchCaller();
    hooks::clockGetTime.failFrom(1, 1, -1, EINVAL);
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo::INVALID));
    EXPECT_EQ(info.lastAliveTick, 0xFFFFFFFFU);
    EXPECT_EQ(info.aliveStatus, 1);
    gTick = 1700;
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo::INVALID));
    EXPECT_EQ(mWatchdog.findWatchdogInfo(kernelId())->lastAliveTick, 1700U);
}

TEST_F(WatchdogPass, WhoseClockFails_ReportsNothing) {
    WatchdogInfo& info = watch(7, 1);
    hooks::clockGetTime.failFrom(1, 2, -1, EINVAL);
    mWatchdog.executeWatchThreads();
    info.lastAliveTick = 0xFFFFFFFEU;
    mWatchdog.executeWatchThreads();
    EXPECT_EQ(info.timeoutCount, 0U);
    EXPECT_TRUE(mListener.ids().empty());
    Lines const lines(2, "<UTIL> ERR: [CAUTION!!!]clock_gettime() Failed. CLOCK_MONOTONIC. errno:[22]");
    EXPECT_EQ(mLog.lines(), lines);
    lookAt(0xFFFFFFFEU);
    EXPECT_EQ(info.timeoutCount, 0U) << "a clock that works again excuses the thread for its aliveTime";
    info.lastAliveTick = 0xFFFFFFFDU;
    lookAt(0xFFFFFFFEU);
    EXPECT_EQ(info.timeoutCount, 1U);
}

TEST_F(WatchdogOnTheRealClock, AnIntervalThatCannotBeHad_StopsTheLooksUntilAnotherCanBe) {
    AwaitedListener listener;
    manager();
    {
        HookScope const scope;
        LogCapture const log;
        hooks::timerCreate.failFrom(1, 1, -1, EAGAIN);
        EXPECT_FALSE(manager().setWatchdogWatchInterval(1));
    }
    utl::MsgDrivenThread& thread = Access::thread(utltest::ThreadManagerAccess::watchdog());
    EXPECT_TRUE(watchNobody(NO_THREAD, listener));
    EXPECT_EQ(thread.sendMsgSync(1), 1);
    EXPECT_TRUE(listener.ids().empty());
    EXPECT_TRUE(manager().setWatchdogWatchInterval(1));
    EXPECT_TRUE(listener.waitFor(1));
}

TEST_F(WatchdogOnTheRealClock, AWatchdogWhoseTimerCannotBeHad_IsNotInitializedAndItsThreadEndsWithShutdown) {
    LogCapture const log;
    utl::ThreadWatchdog dog(4);
    manager();
    {
        HookScope const scope;
        hooks::timerCreate.failFrom(1, 1, -1, EAGAIN);
        EXPECT_FALSE(dog.initialize(1000));
        EXPECT_EQ(hooks::threadCreate.calls(), 1U);
    }
    EXPECT_TRUE(Access::thread(dog).isRunning());
    EXPECT_FALSE(dog.entry(NO_THREAD, 1, nullptr, "it"));
    EXPECT_FALSE(dog.start(NO_THREAD));
    int const id = Access::thread(dog).getId();
    EXPECT_TRUE(manager().isThreadExist(id));
    dog.shutdown();
    EXPECT_FALSE(Access::thread(dog).isRunning());
    EXPECT_FALSE(manager().isThreadExist(id));
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

using WatchdogMemory = WithManager;

// What a time-out's listener is shown is a copy. A pass that cannot have one leaves the time-out to the next.
TEST_F(WatchdogMemory, OfATimeOutsCopy_IsWantedAgainByTheNextPass) {
    struct Noting : utl::WatchdogTimerListener {
        void onTime(int, utl::WatchdogInfos const& infos) override { rows += infos.size(); }
        unsigned int rows = 0;
    } listener;
    utl::ThreadWatchdog& watchdog = restingWatchdog();
    ASSERT_TRUE(watchdog.entry(NO_THREAD, 1, &listener, "a silent one"));
    ASSERT_TRUE(watchdog.start(NO_THREAD));
    watchdog.findWatchdogInfo(NO_THREAD)->lastAliveTick = 0;
    for (unsigned int number = 1, failed = 1; failed != 0; ++number) {
        FailingAllocation const failing(number);
        utltest::ThreadWatchdogAccess::watchOnce(watchdog);
        failed = failing.hasHappened() ? 1 : 0;
        ASSERT_EQ(listener.rows, 1 - failed) << "allocation " << number;
    }
    EXPECT_EQ(watchdog.findWatchdogInfo(NO_THREAD)->timeoutCount, 1U);
    EXPECT_TRUE(watchdog.unregister(NO_THREAD));
}

}  // namespace

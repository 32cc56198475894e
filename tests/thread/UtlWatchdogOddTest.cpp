// Odd times, orders and failures of the watchdog's passes and of its thread.

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestThreads.h"
#include "TestWatchdog.h"
#include "UtlThreadManager.h"
#include "UtlThreadRawMsg.h"
#include "UtlThreadWatchdog.h"

namespace {

using namespace utltest;
using Access = utltest::ThreadWatchdogAccess;
using Ids = std::vector<int>;

constexpr int TIMER = 42;

/// A watchdog without a thread of its own, whose passes the test calls, on a clock that the test sets.
class WatchdogOdd : public WithoutWatchdogThread {
  protected:
    WatchdogOdd() {
        hooks::clockGetTime.replace(standingClock);
        gTick = 0;
        Access::setInitialized(dog, true);
        Access::setTimerId(dog, TIMER);
    }

    void passAt(unsigned int tick) {
        gTick = tick;
        utl::TimerMsg msg;
        msg.mTimerId = TIMER;
        receive(msg, 8);
    }

    void receive(utl::Msg const& msg, unsigned int size) {
        utl::ThreadRawMsg raw(size);
        msg.storeTo(&raw);
        dog.receiveMsg(1, raw);
    }

    void watch(int id, unsigned int aliveTime, utl::WatchdogTimerListener* told, char const* name = "it") {
        EXPECT_TRUE(dog.entry(id, aliveTime, told, name));
        EXPECT_TRUE(dog.start(id));
    }

    unsigned int timeouts(int id) { return Access::copyInfo(dog, id).timeoutCount; }

  private:
    HookScope const mHooks;

  protected:
    LogCapture log;
    utl::ThreadWatchdog dog{8};
    NotingListener listener;
};

// ---- when a thread is overdue

TEST_F(WatchdogOdd, AThread_IsOverdueFromItsTimeOnAndNeverBeforeItsLastTick) {
    struct Case {
        unsigned int last;
        unsigned int aliveTime;
        unsigned int now;
        bool isOverdue;
    };
    std::vector<Case> const cases = {
        {1000, 500, 1499, false},
        {1000, 500, 1500, true},
        {1000, 500, 1501, true},
        {0, 1, 0, false},
        {0, 1, 1, true},
        {0x7FFFFFFFU, 1, 0x80000000U, true},
        {0, 0x80000000U, 0x7FFFFFFFU, false},
        {0, 0x80000000U, 0x80000000U, true},
        {1, 0xFFFFFFFDU, 0xFFFFFFFDU, false},
        {1, 0xFFFFFFFDU, 0xFFFFFFFEU, true},
        {0, 0xFFFFFFFFU, 0xFFFFFFFEU, false},
        {0xFFFFFFF0U, 5, 0xFFFFFFF4U, false},
        {0xFFFFFFF0U, 5, 0xFFFFFFF5U, true},
        {0xFFFFFFF0U, 5, 0, false},  // the counter has wrapped
        {0xFFFFFFF0U, 5, 0x7FFFFFFFU, false},
        {0xFFFFFFF0U, 5, 0xFFFFFFEFU, false},
        {1000, 1, 999, false},
    };
    for (Case const& one : cases) {
        gTick = one.last;
        watch(7, one.aliveTime, &listener);
        passAt(one.now);
        EXPECT_EQ(timeouts(7), one.isOverdue ? 1U : 0U) << one.last << " " << one.aliveTime << " " << one.now;
        EXPECT_TRUE(dog.unregister(7));
    }
}

TEST_F(WatchdogOdd, TimeThatAListenerTakes_MakesNobodyOverdueInTheSamePass) {
    listener.then = [](int, utl::WatchdogInfos const&) { gTick = gTick + 1000; };
    watch(7, 100, &listener);
    watch(8, 200, &listener);
    passAt(150);
    EXPECT_EQ(listener.ids(), (Ids{7}));
    passAt(1150);
    EXPECT_EQ(listener.ids(), (Ids{7, 8}));
}

TEST_F(WatchdogOdd, AnOverdueEntryOfIdZero_EndsThePassForTheIdsBehindIt) {
    watch(7, 1, &listener);
    watch(0, 1, &listener);
    watch(-5, 1, &listener);
    passAt(10);
    passAt(20);
    EXPECT_EQ(listener.ids(), (Ids{-5}));
    EXPECT_TRUE(dog.unregister(0));
    passAt(30);
    EXPECT_EQ(listener.ids(), (Ids{-5, 7}));
}

// ---- what a listener does to the table

TEST_F(WatchdogOdd, WhatAListenerChanges_CountsInTheSamePass) {
    listener.then = [&](int id, utl::WatchdogInfos const&) {
        if (id == 7) {
            EXPECT_TRUE(dog.unregister(8));
            EXPECT_TRUE(dog.unregister(7));
            EXPECT_TRUE(dog.stop(9));
            EXPECT_TRUE(dog.setAliveTime(11, 1));  // its period begins anew
            gTick = 50;
            watch(3, 10, &listener);
            gTick = 100;
        }
    };
    for (int const id : {7, 8, 9, 10, 11}) {
        watch(id, 20, &listener);
    }
    passAt(100);
    EXPECT_EQ(listener.ids(), (Ids{7, 3, 10}));
    EXPECT_FALSE(dog.isRegistered(7));
    EXPECT_EQ(timeouts(9), 0U);
    passAt(101);
    EXPECT_EQ(listener.ids(), (Ids{7, 3, 10, 11}));
}

// ---- one report for each silence

TEST_F(WatchdogOdd, NothingButASignOfLife_BringsASecondReport) {
    int const id = kernelId();
    watch(id, 10, &listener, "me");
    passAt(10);
    EXPECT_TRUE(dog.stop(id));
    EXPECT_TRUE(dog.keepAlive(utl::StatementInfo("a", "b", 1, 2)));  // not watched: leaves no trace
    EXPECT_TRUE(dog.start(id));
    passAt(100);
    EXPECT_TRUE(dog.setAliveTime(id, 5));
    passAt(200);
    EXPECT_EQ(timeouts(id), 1U);
    log.clear();
    EXPECT_TRUE(dog.keepAlive(utl::StatementInfo("a", "b", 1, 2)));
    passAt(204);
    EXPECT_EQ(timeouts(id), 1U);
    passAt(205);
    passAt(300);
    EXPECT_EQ(timeouts(id), 2U);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"<UTIL> INF: ThreadWatchdog Timeout->Alive ID:" +
                                                         std::to_string(id) + " Name:me",
                                                     timeoutLine(id, "me")}));
    EXPECT_EQ(listener.ids(), (Ids{id, id}));
}

TEST_F(WatchdogOdd, ATimeoutWithoutAListener_PrintsTheTableOfThatMoment) {
    watch(7, 1, nullptr, "ああああああああああああ");  // 36 bytes, of which 30 are whole characters in 31
    watch(INT_MIN, 4294967295U, &listener, "");
    watch(8, 1, &listener, "the rest of this name is cut away");
    log.clear();
    passAt(10);
    std::string const info = "<UTIL> INF: ";
    EXPECT_EQ(
        log.lines(),
        (std::vector<std::string>{
            timeoutLine(7, "ああああああああああああ"), info + TITLE, info + COLUMNS,
            info + "-2147483648,                                 , 4294967295, WATCHING    , UNKNOWN     , "
                   "            0, (, :0:0)",
            info + "         7, ああああああああああ  ,          1, WATCHING    , TIMEOUT     , "
                   "            1, (, :0:0)",
            info + "         8, the rest of this name is cut aw ,          1, WATCHING    , UNKNOWN     , "
                   "            0, (, :0:0)",
            timeoutLine(8, "the rest of this name is cut away")}));
}

TEST_F(WatchdogOdd, MessagesThatAreNotOfItsTimer_BringNoPass) {
    watch(7, 1, &listener);
    gTick = 100;
    utl::TimerMsg msg;
    for (int const timer : {-1, 0, TIMER - 1, TIMER + 1, INT_MIN}) {
        msg.mTimerId = timer;
        receive(msg, 8);
    }
    receive(NumberMsg(TIMER, TIMER), 8);
    receive(NumberMsg(utl::MSG_ID_CTL_TIMEOUT, TIMER), 8);
    receive(NumberMsg(utl::MSG_ID_ANY, TIMER), 8);
    receive(utl::SimpleMsg(utl::MSG_ID_TIMER), 4);  // too short for a timer's id
    EXPECT_TRUE(listener.ids().empty());
    EXPECT_EQ(log.lines().size(), 1U);  // the registration
    passAt(100);
    EXPECT_EQ(listener.ids(), (Ids{7}));
}

// ---- the thread of its own

/// Waits until the listener was told of `count` time-outs; false after half a minute.
class CountingListener : public NotingListener {
  public:
    CountingListener() {
        then = [this](int id, utl::WatchdogInfos const& infos) {
            if (work) {
                work(id, infos);
            }
            std::lock_guard<std::mutex> const guard(mMutex);
            ++mCount;
            mChanged.notify_all();
        };
    }
    std::function<void(int, utl::WatchdogInfos const&)> work;
    bool waitFor(int count) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, std::chrono::seconds(30), [&] { return mCount >= count; });
    }

  private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    int mCount = 0;
};

class WatchdogThreadOdd : public WithManager {
  protected:
    static bool watchNobody(int id, CountingListener& listener) {
        return manager().entryWatchdog(1, &listener, id) && manager().startWatchdog(id);
    }
};

TEST_F(WatchdogThreadOdd, AListenerThatSetsTheInterval_IsServedByTheNewTimerAlone) {
    CountingListener listener;
    std::atomic<int> accepted{0};
    listener.work = [&](int id, utl::WatchdogInfos const&) {
        accepted += manager().setWatchdogWatchInterval(1) ? 1 : 0;
        if (id == NO_THREAD) {
            EXPECT_TRUE(watchNobody(NO_THREAD + 1, listener));
        }
    };
    EXPECT_TRUE(manager().setWatchdogWatchInterval(1));
    EXPECT_TRUE(watchNobody(NO_THREAD, listener));
    EXPECT_TRUE(listener.waitFor(2));
    EXPECT_EQ(accepted, 2);
    EXPECT_EQ(listener.threadId(), watchdogId());
    EXPECT_EQ(listener.ids(), (Ids{NO_THREAD, NO_THREAD + 1}));
    utl::MsgDrivenThread& thread = Access::thread(utltest::ThreadManagerAccess::watchdog());
    EXPECT_EQ(thread.remTimerIdCount(), utl::ThreadManager::DEFAULT_ENTRY_MAX - 1);  // one timer, not three
}

TEST_F(WatchdogThreadOdd, AnIntervalThatCannotBeHad_StopsTheLooksUntilAnotherCanBe) {
    CountingListener listener;
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

TEST_F(WatchdogThreadOdd, Destroy_WaitsForAListenerThatUsesTheManagerMeanwhile) {
    CountingListener listener;
    std::atomic<bool> returned{false};
    utl::MsgDrivenThread& thread = [&]() -> utl::MsgDrivenThread& {
        manager();
        return Access::thread(utltest::ThreadManagerAccess::watchdog());
    }();
    utl::ThreadManager* const before = &manager();
    listener.work = [&](int, utl::WatchdogInfos const&) {
        while (!thread.hasRequestedStop()) {
            std::this_thread::yield();
        }
        EXPECT_EQ(utl::ThreadManager::get(), before);
        EXPECT_TRUE(manager().isThreadActive(kernelId()));
        EXPECT_FALSE(manager().isThreadExist(NO_THREAD));
        static_cast<void>(manager().isWatchingWatchdog(NO_THREAD));
        returned = true;
    };
    EXPECT_TRUE(manager().setWatchdogWatchInterval(1));
    EXPECT_TRUE(watchNobody(NO_THREAD, listener));
    while (listener.ids().empty()) {
        std::this_thread::yield();
    }
    utl::ThreadManager::destroy();
    EXPECT_TRUE(returned);
    EXPECT_EQ(utl::ThreadManager::getIfCreated(), nullptr);
}

TEST_F(WatchdogThreadOdd, AWatchdogWhoseTimerCannotBeHad_IsNotInitializedAndItsThreadEndsWithShutdown) {
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

}  // namespace

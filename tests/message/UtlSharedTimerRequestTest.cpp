// What callers ask of shared timers: to add, erase, start, stop and restart them, and to wait.

#include "UtlSharedTimer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestThreads.h"
#include "TestTimers.h"
#include "UtlThreadManager.h"
#include "UtlTimeCounter.h"

using namespace utltest;

namespace {

class SharedTimer : public TimerTest {};

// While the thread arms a timer with its interval, nobody changes that.
TEST_F(SharedTimer, SetInterval_WaitsForAStepOfTheThreadThatUsesIt) {
    static Gate* inTheStep = nullptr;
    Gate gate;
    inTheStep = &gate;
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    hooks::timerSetTime.watch(
        [](timer_t, int, itimerspec const*, itimerspec*) { EXPECT_TRUE(inTheStep->hold()); });
    ASSERT_TRUE(timers->start(timer, 1));
    ASSERT_TRUE(gate.waitUntilHeld());
    auto set = std::async(std::launch::async, [&] { return timers->setInterval(timer, LONG + 1); });
    EXPECT_EQ(set.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    gate.open();
    EXPECT_TRUE(set.get());
    hooks::timerSetTime.watch(nullptr);
    EXPECT_EQ(timers->getInterval(timer), LONG + 1);
}

TEST_F(SharedTimer, AddTimer_MakesATimerThatDoesNotRun) {
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 15, 3, 0);
    EXPECT_EQ(timer, 1);
    EXPECT_FALSE(timers->isRunning(timer));
    EXPECT_EQ(timers->getInterval(timer), 15U);
    utl::TimerInfo const* const info = timers->findTimer(timer);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->mListener, &ticker);
    EXPECT_EQ(info->mRepeatCount, 3U);
    EXPECT_EQ(info->mAutoRepeat, 0);
    EXPECT_EQ(info->mSysTimerNum, -1);
    EXPECT_EQ(info->mSysParam[0], -1);
    EXPECT_EQ(info->mSysParam[1], 0);
    EXPECT_EQ(calls().create.calls(), 0U);
}

TEST_F(SharedTimer, ATimerCountAtItsMaximum_RefusesTheNext) {
    for (unsigned int const capacity : {0U, 1U, 3U}) {
        ScopedTimers timers(capacity);
        for (unsigned int i = 1; i <= capacity; ++i) {
            EXPECT_EQ(timers->addTimer(nullptr, 1), static_cast<int>(i));
        }
        EXPECT_EQ(timers->addTimer(nullptr, 1), -1);
        if (capacity != 0) {
            EXPECT_TRUE(timers->eraseTimer(1));
            EXPECT_EQ(timers->addTimer(nullptr, 1), static_cast<int>(capacity) + 1)
                << "ids are not used again";
        }
    }
}

TEST_F(SharedTimer, Ids_WrapToOneBehindTheLargestAndStepPastThoseInUse) {
    ScopedTimers timers;
    EXPECT_EQ(timers->addTimer(nullptr, 1), 1);
    EXPECT_EQ(timers->addTimer(nullptr, 1), 2);
    SharedTimerAccess::setNextTimerId(*timers, INT_MAX - 1);
    EXPECT_EQ(timers->addTimer(nullptr, 1), INT_MAX - 1);
    EXPECT_EQ(timers->addTimer(nullptr, 1), INT_MAX);
    EXPECT_EQ(timers->addTimer(nullptr, 1), 3);
    EXPECT_EQ(idsOf(*timers), (Ids{1, 2, 3, INT_MAX - 1, INT_MAX}));
}

TEST_F(SharedTimer, EraseTimer_OfARunningTimer_StopsItAndTakesItAway) {
    for (int const noWait : {0, 1}) {
        Ticker ticker;
        ScopedTimers timers;
        int const timer = timers->addTimer(&ticker, 1);
        ASSERT_TRUE(timers->start(timer));
        ASSERT_TRUE(ticker.waitFor(2));
        EXPECT_TRUE(timers->eraseTimer(timer, noWait));
        timers.settle();
        size_t const atErase = ticker.count();
        EXPECT_EQ(timers->findTimer(timer), nullptr);
        EXPECT_EQ(calls().aliveCount(), 0U);
        EXPECT_FALSE(timers->eraseTimer(timer, 0));
        utl::Thread::sleep(20);
        EXPECT_EQ(ticker.count(), atErase);
    }
}

TEST_F(SharedTimer, EraseTimer_WithoutWaiting_AsksForAnyId) {
    ScopedTimers timers;
    EXPECT_FALSE(timers->eraseTimer(UNKNOWN, 0));
    EXPECT_TRUE(timers->eraseTimer(UNKNOWN, 1));
    timers.settle();
    EXPECT_FALSE(hasLine("<UTIL> ERR: ", ""));
}

TEST_F(SharedTimer, EraseTimer_WithoutWaiting_LeavesTheTimerUntilTheThreadActs) {
    Blocker blocker;
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(timer));
    blocker.block(*timers);
    EXPECT_TRUE(timers->eraseTimer(timer, 1));
    EXPECT_TRUE(timers->isRunning(timer));
    blocker.letGo();
    timers.settle();
    EXPECT_EQ(timers->findTimer(timer), nullptr);
}

TEST_F(SharedTimer, EraseTimer_BehindAStartThatIsStillQueued_LeavesNothingOfBoth) {
    Blocker blocker;
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 1);
    blocker.block(*timers);
    EXPECT_TRUE(timers->start(timer, 1));
    EXPECT_TRUE(timers->eraseTimer(timer, 0));
    blocker.letGo();
    timers.settle();
    EXPECT_EQ(ticker.count(), 0U);
    EXPECT_FALSE(hasLine("<UTIL> ERR: ", ""));
}

TEST_F(SharedTimer, EraseTimer_WhoseTimerIsTakenAwayFirst_IsFalse) {
    Blocker blocker;
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(timer));
    blocker.block(*timers);
    EXPECT_TRUE(timers->eraseTimer(timer, 1));
    unsigned int const before = calls().requests;
    auto erased = std::async(std::launch::async, [&] { return timers->eraseTimer(timer, 0); });
    waitForRequestBehind(before);
    blocker.letGo();
    EXPECT_FALSE(erased.get());
}

TEST_F(SharedTimer, EraseTimer_AgainstStartsThatAreStillQueued_NeverLeavesASystemTimer) {
    for (int round = 0; round < 200; ++round) {
        Ticker ticker;
        ScopedTimers timers;
        int const timer = timers->addTimer(&ticker, 1);
        ASSERT_TRUE(timers->start(timer, 1));
        EXPECT_TRUE(timers->eraseTimer(timer, 0));
        timers.settle();
        EXPECT_EQ(calls().aliveCount(), 0U);
    }
}

TEST_F(SharedTimer, GetTimerIdSet_OfNull_IsZero) {
    ScopedTimers timers;
    EXPECT_EQ(timers->getTimerIdSet(nullptr), 0);
}

TEST_F(SharedTimer, GetTimerIdSet_WithoutTimers_GivesAnEmptyArray) {
    ScopedTimers timers;
    utl::Array<int> ids(5, 0);
    ASSERT_TRUE(ids.insertAt(0, 99));
    EXPECT_EQ(timers->getTimerIdSet(&ids), 1);
    EXPECT_EQ(ids.size(), 0U);
    EXPECT_EQ(ids.maxSize(), 0U);
}

TEST_F(SharedTimer, GetTimerIdSet_ReplacesContentAndCapacity_InTheOrderOfTheIds) {
    ScopedTimers timers;
    for (int i = 1; i <= 4; ++i) {
        ASSERT_EQ(timers->addTimer(nullptr, 1), i);
    }
    ASSERT_TRUE(timers->eraseTimer(2));
    for (unsigned int const capacity : {0U, 3U, 10U}) {
        utl::Array<int> ids(capacity, 0);
        EXPECT_EQ(timers->getTimerIdSet(&ids), 1);
        EXPECT_EQ(ids.maxSize(), 3U);
    }
    EXPECT_EQ(idsOf(*timers), (Ids{1, 3, 4}));
}

TEST_F(SharedTimer, AOneShot_FiresOnceAndStaysAsAStoppedTimer) {
    for (int const autoRepeat : {0, 1}) {
        Ticker ticker;
        ScopedTimers timers;
        int const timer = timers->addTimer(&ticker, 20, 1, autoRepeat);
        for (size_t run = 1; run <= 3; ++run) {
            utl::TimeCounter elapsed;
            elapsed.start();
            ASSERT_TRUE(timers->start(timer));
            ASSERT_TRUE(ticker.waitFor(run));
            EXPECT_GE(elapsed.watch(), 19U);
            EXPECT_EQ(timers->waitToStop(timer), 0);
            EXPECT_FALSE(timers->isRunning(timer));
            EXPECT_EQ(timers->findTimer(timer)->mFireCount, 1U) << "counted from 0 again";
            EXPECT_EQ(calls().aliveCount(), 0U);
        }
        EXPECT_EQ(ticker.ticks(), (Ids{timer, timer, timer}));
    }
}

TEST_F(SharedTimer, ARepeatCountOfThree_GivesThreeExpiriesForEachStart) {
    for (int const autoRepeat : {0, 1}) {
        Ticker ticker;
        ScopedTimers timers;
        int const timer = timers->addTimer(&ticker, 2, 3, autoRepeat);
        for (size_t run = 1; run <= 2; ++run) {
            ASSERT_TRUE(timers->start(timer));
            ASSERT_EQ(timers->waitToStop(timer), 0);
            utl::Thread::sleep(10);
            timers.settle();
            EXPECT_EQ(ticker.count(), 3 * run);
        }
    }
}

TEST_F(SharedTimer, WithoutARepeatCount_ItFiresUntilItIsStopped) {
    for (int const autoRepeat : {0, 1}) {
        Ticker ticker;
        ScopedTimers timers;
        int const timer = timers->addTimer(&ticker, 1, 0, autoRepeat);
        ASSERT_TRUE(timers->start(timer));
        ASSERT_TRUE(ticker.waitFor(20));
        EXPECT_TRUE(timers->stop(timer));
        size_t const atStop = ticker.count();
        EXPECT_FALSE(timers->isRunning(timer));
        utl::Thread::sleep(20);
        EXPECT_EQ(ticker.count(), atStop);
        ASSERT_TRUE(timers->start(timer));
        ASSERT_TRUE(ticker.waitFor(atStop + 3));
    }
}

TEST_F(SharedTimer, Start_OfARunningTimer_LeavesItAsItIs) {
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 1);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(ticker.waitFor(5));
    EXPECT_TRUE(timers->start(timer, 0));
    EXPECT_TRUE(timers->start(timer, 1));
    ASSERT_TRUE(ticker.waitForMore(1));
    ASSERT_TRUE(timers->stop(timer));
    EXPECT_GE(timers->findTimer(timer)->mFireCount, 5U);
    EXPECT_EQ(calls().create.calls(), 1U);
}

TEST_F(SharedTimer, TwoStartsInTheQueue_MakeOneSystemTimer) {
    Blocker blocker;
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    blocker.block(*timers);
    EXPECT_TRUE(timers->start(timer, 1));
    EXPECT_TRUE(timers->start(timer, 1));
    blocker.letGo();
    timers.settle();
    EXPECT_TRUE(timers->isRunning(timer));
    EXPECT_TRUE(timers->stop(timer));
    EXPECT_EQ(calls().aliveCount(), 0U);
    EXPECT_EQ(calls().create.calls(), 3U) << "the blocker's, the timer's and one to settle";
    EXPECT_FALSE(hasLine("<UTIL> ERR: ", ""));
}

TEST_F(SharedTimer, Stop_OfAStoppedTimer_HasNothingToDo) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, 1);
    unsigned int const before = calls().write.calls();
    EXPECT_TRUE(timers->stop(timer, 0));
    EXPECT_TRUE(timers->stop(timer, 1));
    EXPECT_EQ(calls().write.calls(), before);
}

TEST_F(SharedTimer, UnknownIds_AreRefused) {
    ScopedTimers timers;
    for (int const id : {UNKNOWN, 0, -1}) {
        for (int const noWait : {0, 1}) {
            EXPECT_FALSE(timers->start(id, noWait));
            EXPECT_FALSE(timers->stop(id, noWait));
            EXPECT_FALSE(timers->restart(id, noWait));
        }
        EXPECT_FALSE(timers->setInterval(id, 1));
        EXPECT_FALSE(timers->isRunning(id));
        EXPECT_EQ(timers->getInterval(id), NO_INTERVAL);
        EXPECT_EQ(timers->waitToStart(id), -1);
        EXPECT_EQ(timers->waitToStop(id), -1);
        EXPECT_EQ(timers->findTimer(id), nullptr);
        EXPECT_EQ(static_cast<utl::SharedTimer const&>(*timers).findTimer(id), nullptr);
        timers->onTime(id);
    }
}

TEST_F(SharedTimer, StartAndStop_WithoutWaiting_ReturnWhileTheThreadIsBusy) {
    Blocker blocker;
    Ticker ticker;
    ScopedTimers timers;
    int const one = timers->addTimer(&ticker, 1, 1);
    int const two = timers->addTimer(&ticker, LONG);
    ASSERT_TRUE(timers->start(two));
    blocker.block(*timers);
    EXPECT_TRUE(timers->start(one, 1));
    EXPECT_FALSE(timers->isRunning(one));
    EXPECT_TRUE(timers->stop(two, 1));
    EXPECT_TRUE(timers->isRunning(two));
    blocker.letGo();
    EXPECT_TRUE(ticker.waitFor(1));
    EXPECT_EQ(timers->waitToStop(two), 0);
}

TEST_F(SharedTimer, Restart_OfARunningTimer_CountsFromZeroWithANewSystemTimer) {
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 1, 1000000);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(ticker.waitFor(10));
    ASSERT_TRUE(timers->setInterval(timer, LONG));
    EXPECT_TRUE(timers->restart(timer, 0));
    EXPECT_TRUE(timers->isRunning(timer));
    EXPECT_EQ(timers->findTimer(timer)->mFireCount, 0U);
    EXPECT_EQ(calls().aliveCount(), 1U);
}

TEST_F(SharedTimer, Restart_OfAStoppedTimer_StartsIt) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    EXPECT_TRUE(timers->restart(timer, 0));
    EXPECT_TRUE(timers->isRunning(timer));
}

// The start finds the timer running still: only the stop is in the queue.
TEST_F(SharedTimer, Restart_WithoutWaiting_MayEndInAStop) {
    Blocker blocker;
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(timer));
    blocker.block(*timers);
    EXPECT_TRUE(timers->restart(timer, 1));
    blocker.letGo();
    timers.settle();
    EXPECT_FALSE(timers->isRunning(timer));
}

TEST_F(SharedTimer, StartAllStopAllAndRestartAll_ServeEveryTimer) {
    ScopedTimers timers;
    Ids ids;
    for (unsigned int i = 0; i < 3; ++i) {
        ids.push_back(timers->addTimer(nullptr, LONG + i));
    }
    auto const runningCount = [&] {
        return std::count_if(ids.begin(), ids.end(), [&](int id) { return timers->isRunning(id); });
    };
    timers->startAll(0);
    EXPECT_EQ(runningCount(), 3);
    timers->restartAll(0);
    EXPECT_EQ(runningCount(), 3);
    EXPECT_EQ(calls().armed(), (std::vector<long>{60000, 60001, 60002, 60000, 60001, 60002}));
    timers->stopAll(0);
    EXPECT_EQ(runningCount(), 0);
    timers->startAll(1);
    timers.settle();
    EXPECT_EQ(runningCount(), 3);
    timers->stopAll(1);
    timers.settle();
    EXPECT_EQ(runningCount(), 0);
}

TEST_F(SharedTimer, RestartAll_StopsAllTimersBeforeItStartsTheFirst) {
    ScopedTimers timers;
    ASSERT_GT(timers->addTimer(nullptr, LONG), 0);
    ASSERT_GT(timers->addTimer(nullptr, LONG), 0);
    timers->startAll();
    static std::vector<size_t> aliveAtCreation;
    aliveAtCreation.clear();
    hooks::timerCreate.replace(+[](clockid_t clock, sigevent* event, timer_t* timer) {
        if (event->sigev_signo == TimerCalls::signalNumber()) {
            aliveAtCreation.push_back(timerCalls().aliveCount());
        }
        return createTimerHook(clock, event, timer);
    });
    timers->restartAll();
    EXPECT_EQ(aliveAtCreation, (std::vector<size_t>{0, 1}));
}

TEST_F(SharedTimer, ATimerThatEndsBeforeItsStarterLooks_CountsAsStarted) {
    Ticker ticker;
    ScopedTimers timers;
    for (int i = 1; i <= 300; ++i) {
        int const timer = timers->addTimer(&ticker, 1, 1, i % 2);
        ASSERT_EQ(timer, i);
        ASSERT_TRUE(timers->start(timer, 0));
        ASSERT_TRUE(ticker.waitFor(static_cast<size_t>(i)));
        ASSERT_TRUE(timers->eraseTimer(timer, i % 3));
    }
}

TEST_F(SharedTimer, WaitToStartAndWaitToStop_ReleaseEverybody) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    EXPECT_EQ(timers->waitToStop(timer), 0);
    for (int round = 0; round < 20; ++round) {
        std::vector<std::future<int>> waiters;
        for (int i = 0; i < 3; ++i) {
            waiters.push_back(std::async(std::launch::async, [&] { return timers->waitToStart(timer); }));
        }
        ASSERT_TRUE(timers->start(timer, round % 2));
        for (std::future<int>& waiter : waiters) {
            EXPECT_EQ(waiter.get(), 0);
        }
        EXPECT_EQ(timers->waitToStart(timer), 0);
        std::vector<std::future<int>> others;
        for (int i = 0; i < 3; ++i) {
            others.push_back(std::async(std::launch::async, [&] { return timers->waitToStop(timer); }));
        }
        ASSERT_TRUE(timers->stop(timer, round % 2));
        for (std::future<int>& waiter : others) {
            EXPECT_EQ(waiter.get(), 0);
        }
    }
}

TEST_F(SharedTimer, WaitToStart_OfATimerThatIsTakenAway_IsMinusOne) {
    for (int const noWait : {0, 1}) {
        ScopedTimers timers;
        int const timer = timers->addTimer(nullptr, LONG);
        auto waiter = std::async(std::launch::async, [&] { return timers->waitToStart(timer); });
        EXPECT_TRUE(timers->eraseTimer(timer, noWait));
        EXPECT_EQ(waiter.get(), -1);
    }
}

TEST_F(SharedTimer, AnIntervalOf1500_IsOneSecondAndAHalfForValueAndPeriod) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, 1500);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_EQ(calls().specs.size(), 1U);
    EXPECT_EQ(calls().specs[0].it_value.tv_sec, 1);
    EXPECT_EQ(calls().specs[0].it_value.tv_nsec, 500000000);
    EXPECT_EQ(calls().specs[0].it_interval.tv_sec, 1);
    EXPECT_EQ(calls().specs[0].it_interval.tv_nsec, 500000000);
    int const longest = timers->addTimer(nullptr, UINT_MAX);
    ASSERT_TRUE(timers->start(longest));
    EXPECT_EQ(calls().specs[1].it_value.tv_sec, 4294967);
    EXPECT_EQ(calls().specs[1].it_value.tv_nsec, 295000000);
}

TEST_F(SharedTimer, AnIntervalOfZero_RunsAndNeverFires) {
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 0, 1);
    ASSERT_TRUE(timers->start(timer));
    utl::Thread::sleep(20);
    EXPECT_TRUE(timers->isRunning(timer));
    EXPECT_EQ(ticker.count(), 0U);
}

TEST_F(SharedTimer, SetInterval_OfAStoppedTimer_HoldsFromItsNextStart) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    EXPECT_TRUE(timers->setInterval(timer, LONG + 1));
    EXPECT_EQ(timers->getInterval(timer), LONG + 1);
    EXPECT_TRUE(timers->findTimer(timer)->mUpdating);
    ASSERT_TRUE(timers->start(timer));
    timers.settle();
    EXPECT_FALSE(timers->findTimer(timer)->mUpdating);
    EXPECT_EQ(calls().armed()[0], 60001);
}

TEST_F(SharedTimer, SetInterval_OfARunningTimer_HoldsFromItsNextExpiry) {
    for (int const autoRepeat : {0, 1}) {
        Ticker ticker;
        ScopedTimers timers;
        int const timer = timers->addTimer(&ticker, 100, 0, autoRepeat);
        ASSERT_TRUE(timers->start(timer));
        size_t const armedBefore = calls().armed().size();
        EXPECT_TRUE(timers->setInterval(timer, LONG));
        EXPECT_EQ(timers->getInterval(timer), LONG);
        // The expiry of the old period comes, and then that of the new one does not.
        ASSERT_TRUE(ticker.waitForMore(1));
        timers.settle();
        EXPECT_FALSE(timers->findTimer(timer)->mUpdating);
        std::vector<long> const armed = calls().armed();
        EXPECT_EQ(std::count(armed.begin() + static_cast<long>(armedBefore), armed.end(), 60000), 1);
        EXPECT_EQ(calls().aliveCount(), 1U);
    }
}

TEST_F(SharedTimer, SetInterval_FromTheListener_HoldsFromThisExpiry) {
    utl::SharedTimer* shared = nullptr;
    Ticker ticker([&](int timer) { EXPECT_TRUE(shared->setInterval(timer, LONG)); });
    ScopedTimers timers;
    shared = &*timers;
    int const timer = timers->addTimer(&ticker, 1);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(ticker.waitFor(1));
    timers.settle();
    EXPECT_EQ(calls().armed()[1], 60000);
    EXPECT_FALSE(timers->findTimer(timer)->mUpdating);
}

TEST_F(SharedTimer, SetInterval_InFrontOfAStartThatHasNoEffect_IsNotForgotten) {
    Blocker blocker;
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, LONG);
    blocker.block(*timers);
    ASSERT_TRUE(timers->start(timer, 1));
    ASSERT_TRUE(timers->start(timer, 1));
    blocker.letGo();
    ASSERT_EQ(timers->waitToStart(timer), 0);
    ASSERT_TRUE(timers->setInterval(timer, 1));
    timers.settle();
    // Whether the second start came before the new interval or after it, the mark stays.
    EXPECT_TRUE(timers->findTimer(timer)->mUpdating);
}

TEST_F(SharedTimerAtItsLimits, AFullQueue_RefusesOnlyWhatNeedsAPlace) {
    HeldTimers blocker(timers);
    int const running = timers->addTimer(nullptr, LONG);
    int const stopped = timers->addTimer(nullptr, LONG);
    int const filler = timers->addTimer(nullptr, 0);
    ASSERT_TRUE(timers->start(running));
    blocker.hold();
    log.clear();
    EXPECT_EQ(fill(*timers, filler), utl::SharedTimer::CTL_ENTRY_MAX);

    EXPECT_TRUE(timers->start(running, 0));
    EXPECT_TRUE(timers->restart(running, 1)) << "its start finds the timer running";
    EXPECT_TRUE(timers->stop(stopped, 0));
    EXPECT_TRUE(timers->setInterval(running, 5000));
    EXPECT_GT(timers->addTimer(nullptr, 1), 0);
    EXPECT_FALSE(timers->start(stopped, 1));
    EXPECT_FALSE(timers->start(stopped, 0)) << "nor does it wait";
    EXPECT_FALSE(timers->restart(stopped, 0));
    EXPECT_FALSE(timers->stop(running, 0));
    EXPECT_FALSE(timers->eraseTimer(running, 0));
    EXPECT_FALSE(timers->eraseTimer(stopped, 1));
    EXPECT_TRUE(timers->eraseTimer(stopped, 0)) << "the thread is not needed for it";
    EXPECT_TRUE(timers->isRunning(running));
    EXPECT_EQ(log.lines().size(), 0U);
    blocker.letGo();
}

TEST_F(SharedTimerAtItsLimits, Destroy_WithAFullQueue_EndsBehindTheListenerAndServesNothingMore) {
    HeldTimers blocker(timers);
    int const filler = timers->addTimer(nullptr, 0);
    blocker.hold();
    ASSERT_EQ(fill(*timers, filler), utl::SharedTimer::CTL_ENTRY_MAX);
    std::thread destroyer([&] { timers->destroy(); });
    EXPECT_TRUE(becomes([&] { return timers->hasRequestedStop(); }));
    blocker.letGo();
    destroyer.join();
    EXPECT_EQ(calls().create.calls(), 1U);
    EXPECT_EQ(idsOf(*timers), Ids());
    EXPECT_EQ(calls().aliveCount(), 0U);
}

TEST_F(SharedTimerAtItsLimits, Stop_WhileExpiriesWaitForDelivery_DropsThemAlsoForTheNextRun) {
    Listener ticker(timers);
    HeldTimers blocker(timers);
    int const timer = timers->addTimer(&ticker, LONG, 0, 1);
    ASSERT_TRUE(timers->start(timer));
    blocker.hold();
    expire(*timers, timer);
    expire(*timers, timer);
    ASSERT_TRUE(timers->stop(timer, 1));  // the timeouts are queued after it when the signals are read
    blocker.letGo();
    ASSERT_EQ(timers->waitToStop(timer), 0);
    ASSERT_TRUE(timers->start(timer));
    timers.settle();
    EXPECT_EQ(ticker.count(), 0U);
    EXPECT_EQ(timers->findTimer(timer)->mPendingCount, 0U);
    expire(*timers, timer);
    EXPECT_TRUE(ticker.waitFor(1));
    EXPECT_EQ(ticker.count(), 1U);
}

TEST_F(SharedTimerAtItsLimits, EraseWithoutWaiting_LeavesTheTimerInUseUntilTheThreadActs) {
    Listener ticker(timers);
    HeldTimers blocker(timers);
    int const running = timers->addTimer(&ticker, LONG);
    int const stopped = timers->addTimer(&ticker, LONG);
    ASSERT_TRUE(timers->start(running));
    blocker.hold();
    EXPECT_TRUE(timers->eraseTimer(running, 1));
    EXPECT_TRUE(timers->eraseTimer(running, 1)) << "a second time is queued just so";
    EXPECT_TRUE(timers->eraseTimer(stopped, 1));
    EXPECT_TRUE(timers->start(stopped, 1));
    EXPECT_TRUE(timers->stop(running, 1));
    EXPECT_TRUE(timers->isRunning(running));
    EXPECT_EQ(timers->getInterval(running), LONG);
    EXPECT_EQ(idsOf(*timers).size(), 3U);
    EXPECT_TRUE(timers->setInterval(stopped, 1));
    log.clear();
    blocker.letGo();
    timers.settle();
    EXPECT_EQ(timers->findTimer(running), nullptr);
    EXPECT_EQ(timers->getInterval(stopped), NO_INTERVAL);
    EXPECT_EQ(idsOf(*timers).size(), 1U);
    EXPECT_EQ(calls().aliveCount(), 0U);
    EXPECT_EQ(log.lines().size(), 0U) << "entries for a timer that has gone are no failures";
}

TEST_F(SharedTimerAtItsLimits, EraseWithoutWaiting_OfAnUnknownTimer_IsQueuedAndIgnored) {
    log.clear();
    for (int const id : {UNKNOWN, 0, -1, INT_MIN}) {
        EXPECT_TRUE(timers->eraseTimer(id, 1)) << id;
        EXPECT_FALSE(timers->eraseTimer(id, 0)) << id;
        EXPECT_FALSE(timers->stop(id, 1)) << id;
        EXPECT_FALSE(timers->restart(id, 1)) << id;
    }
    timers.settle();
    EXPECT_EQ(log.lines().size(), 0U);
}

TEST_F(SharedTimerAtItsLimits, RestartAllWithoutWaiting_OnABusyThread_LeavesAllStopped) {
    HeldTimers blocker(timers);
    int const first = timers->addTimer(nullptr, LONG);
    int const second = timers->addTimer(nullptr, LONG);
    int const stopped = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(first));
    ASSERT_TRUE(timers->start(second));
    blocker.hold();
    timers->restartAll(1);
    blocker.letGo();
    timers.settle();
    EXPECT_FALSE(timers->isRunning(first));
    EXPECT_FALSE(timers->isRunning(second));
    EXPECT_TRUE(timers->isRunning(stopped)) << "this one was not running, so it was started";
}

// What hooks without a capture note.
std::mutex gNotesMutex;
std::string gNotes;

void note(char what) {
    std::lock_guard<std::mutex> const guard(gNotesMutex);
    gNotes += what;
}

std::string takeNotes() {
    std::lock_guard<std::mutex> const guard(gNotesMutex);
    std::string result;
    result.swap(gNotes);
    return result;
}

TEST_F(SharedTimerAtItsLimits, RestartAll_StopsEveryTimerBeforeItStartsOne) {
    for (int i = 0; i < 3; ++i) {
        timers->addTimer(nullptr, LONG);
    }
    timers->startAll(0);
    int const stopped = timers->addTimer(nullptr, LONG);
    hooks::timerCreate.replace([](clockid_t clock, sigevent* event, timer_t* timer) {
        if (event->sigev_signo == TimerCalls::signalNumber()) {
            note('c');
        }
        return utltest::createTimerHook(clock, event, timer);
    });
    hooks::timerDelete.replace([](timer_t timer) {
        if (utltest::timerCalls().knows(timer)) {
            note('d');
        }
        return utltest::deleteTimerHook(timer);
    });
    takeNotes();
    timers->restartAll(0);
    EXPECT_EQ(takeNotes(), "dddcccc");
    EXPECT_TRUE(timers->isRunning(stopped));
}

TEST_F(SharedTimerAtItsLimits, AStartFromTheLastExpiry_HasNoEffectAndTheTimerStops) {
    bool running = false;
    bool started = false;
    Listener ticker(timers, [&](int id) {
        running = timers->isRunning(id);
        started = timers->start(id, 0) && timers->start(id, 1);
    });
    int const timer = timers->addTimer(&ticker, 1, 1, 1);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(ticker.waitFor(1));
    timers.settle();
    EXPECT_TRUE(running);
    EXPECT_TRUE(started);
    EXPECT_FALSE(timers->isRunning(timer));
    EXPECT_EQ(timers->findTimer(timer)->mFireCount, 1U);
    EXPECT_EQ(calls().aliveCount(), 0U);
}

TEST_F(SharedTimerAtItsLimits, ARestartWithoutWaitingFromTheListener_StopsTheTimer) {
    bool restarted = false;
    Listener ticker(timers, [&](int id) { restarted = timers->restart(id, 1); });
    int const timer = timers->addTimer(&ticker, LONG, 0, 1);
    ASSERT_TRUE(timers->start(timer));
    expire(*timers, timer);
    timers.settle();
    timers.settle();  // the listener's own request comes after the first
    EXPECT_TRUE(restarted);
    EXPECT_FALSE(timers->isRunning(timer));
    EXPECT_EQ(ticker.count(), 1U);
}

TEST_F(SharedTimerAtItsLimits, ACallThatWouldWaitForItself_IsRefusedAndChangesNothing) {
    int const other = timers->addTimer(nullptr, LONG);
    std::string results;
    Listener ticker(timers, [&](int id) {
        for (bool const result :
             {timers->stop(id, 0), timers->eraseTimer(id, 0), timers->start(other, 0),
              timers->waitToStop(id) == 0, timers->waitToStart(other) == 0, timers->waitToStop(other) == 0}) {
            results += result ? '1' : '0';
        }
    });
    int const timer = timers->addTimer(&ticker, LONG, 0, 1);
    ASSERT_TRUE(timers->start(timer));
    expire(*timers, timer);
    timers.settle();
    EXPECT_EQ(results.substr(0, 5), "00000");
    EXPECT_TRUE(timers->isRunning(timer));
    EXPECT_FALSE(timers->isRunning(other));
    expire(*timers, timer);
    timers.settle();
    EXPECT_EQ(ticker.count(), 2U);
}

TEST_F(SharedTimerAtItsLimits, TheSystemTimer_HasTheIntervalToTheMillisecondAcrossTheWholeRange) {
    for (unsigned int const interval :
         {1000U, 1001U, 59999U, 999999U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
        int const timer = timers->addTimer(nullptr, interval, 0, 1);
        ASSERT_TRUE(timers->start(timer));
        {
            std::lock_guard<std::mutex> const guard(calls().mutex);
            itimerspec const spec = calls().specs.back();
            EXPECT_EQ(static_cast<unsigned int>(spec.it_value.tv_sec), interval / 1000);
            EXPECT_EQ(spec.it_value.tv_nsec, static_cast<long>(interval % 1000) * 1000000);
            EXPECT_EQ(spec.it_interval.tv_sec, spec.it_value.tv_sec) << "it runs on by itself";
            EXPECT_EQ(spec.it_interval.tv_nsec, spec.it_value.tv_nsec);
        }
        EXPECT_TRUE(timers->isRunning(timer));
        ASSERT_TRUE(timers->eraseTimer(timer));
    }
}

TEST_F(SharedTimerAtItsLimits, ANewInterval_IsAppliedOnceAndAtTheVeryExpiryInWhichItIsSet) {
    std::atomic<unsigned int> next{0};
    Listener ticker(timers, [&](int id) {
        if (next != 0) {
            timers->setInterval(id, next);
        }
    });
    int const timer = timers->addTimer(&ticker, LONG, 0, 1);
    auto const expireOnce = [&] {
        expire(*timers, timer);
        timers.settle();
        return armed();
    };
    long const base = LONG;
    ASSERT_TRUE(timers->setInterval(timer, LONG + 1));
    ASSERT_TRUE(timers->start(timer));
    EXPECT_EQ(expireOnce(), std::vector<long>{base + 1}) << "a start has applied it";
    next = LONG + 2;
    EXPECT_EQ(expireOnce(), (std::vector<long>{base + 1, base + 2}));
    next = 0;
    EXPECT_EQ(expireOnce(), (std::vector<long>{base + 1, base + 2}));
    ASSERT_TRUE(timers->setInterval(timer, LONG + 3));
    ASSERT_TRUE(timers->setInterval(timer, LONG + 4));
    EXPECT_EQ(armed(), (std::vector<long>{base + 1, base + 2}));
    EXPECT_EQ(expireOnce(), (std::vector<long>{base + 1, base + 2, base + 4}));
    EXPECT_EQ(expireOnce(), (std::vector<long>{base + 1, base + 2, base + 4}));
    EXPECT_EQ(timers->findTimer(timer)->mFireCount, 5U);
}

TEST_F(SharedTimerAtItsLimits, AnIntervalOf0_KeepsTheTimerRunningSilently) {
    Listener ticker(timers);
    int const timer = timers->addTimer(&ticker, LONG, 0, 1);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(timers->setInterval(timer, 0));
    expire(*timers, timer);
    ASSERT_TRUE(ticker.waitFor(1));
    ASSERT_TRUE(becomes([&] { return calls().armed().size() == 2; }));
    EXPECT_EQ(calls().armed()[1], 0);
    EXPECT_TRUE(timers->isRunning(timer));
    ASSERT_TRUE(timers->setInterval(timer, 1));
    EXPECT_TRUE(timers->start(timer)) << "it runs";
    EXPECT_EQ(calls().armed().size(), 2U);
    ASSERT_TRUE(timers->restart(timer));
    EXPECT_TRUE(ticker.waitForMore(2));
}

TEST_F(SharedTimerAtItsLimits, AStopRequest_ReleasesWhoWaitsForAStartThatWillNotCome) {
    HeldTimers blocker(timers);
    int const timer = timers->addTimer(nullptr, LONG);
    blocker.hold();
    unsigned int const before = calls().requests;
    bool started = true;
    std::thread waiter([&] { started = timers->start(timer, 0); });
    waitForRequestBehind(before);
    int awaited = 0;
    std::thread secondWaiter([&] { awaited = timers->waitToStart(timer); });
    EXPECT_EQ(timers->utl::Thread::stop(0), 0);
    blocker.letGo();
    waiter.join();
    secondWaiter.join();
    EXPECT_FALSE(started);
    EXPECT_EQ(awaited, -1);
    EXPECT_EQ(timers->addTimer(nullptr, 1), -1);
}

TEST_F(SharedTimerAtItsLimits, RequestStopAlone_DoesNotEndTheThread) {
    Listener ticker(timers);
    int const timer = timers->addTimer(&ticker, 1, 3);
    log.clear();
    timers->requestStop();
    timers->requestStop();
    ASSERT_TRUE(timers->start(timer));
    EXPECT_TRUE(ticker.waitFor(3));
    EXPECT_FALSE(timers->hasRequestedStop());
    EXPECT_EQ(log.lines().size(), 0U);
}

TEST_F(SharedTimerAtItsLimits, WaitsForTheStateOfATimer_KeepNobodyOut) {
    Listener ticker(timers);
    int const timer = timers->addTimer(&ticker, LONG, 1);
    int const erased = timers->addTimer(&ticker, LONG, 1);
    int started = -2;
    int gone = -2;
    int stopped = -2;
    std::thread startWaiter([&] { started = timers->waitToStart(timer); });
    std::thread goneWaiter([&] { gone = timers->waitToStart(erased); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // most often they wait by then
    EXPECT_TRUE(timers->eraseTimer(erased, 0));
    EXPECT_TRUE(timers->start(timer, 0));
    startWaiter.join();
    goneWaiter.join();
    EXPECT_EQ(started, 0);
    EXPECT_EQ(gone, -1);
    std::thread stopWaiter([&] { stopped = timers->waitToStop(timer); });
    expire(*timers, timer);
    stopWaiter.join();
    EXPECT_EQ(stopped, 0);
    EXPECT_FALSE(timers->isRunning(timer));
}

TEST_F(SharedTimerAtItsLimits, AFullMap_UsesUpNoIdAndTakesTheNextTimerUnderANewOne) {
    ScopedTimers two(2, "two");
    ScopedTimers none(0, "none");
    EXPECT_EQ(none->addTimer(nullptr, 1), -1);
    EXPECT_EQ(two->addTimer(nullptr, 1), 1);
    EXPECT_EQ(two->addTimer(nullptr, 1), 2);
    EXPECT_EQ(two->addTimer(nullptr, 1), -1);
    EXPECT_EQ(two->addTimer(nullptr, 1), -1);
    ASSERT_TRUE(two->eraseTimer(1));
    EXPECT_EQ(two->addTimer(nullptr, 1), 3);
    EXPECT_EQ(idsOf(*two), (Ids{2, 3}));
    utl::Array<int, int const&> ids(10, 0);
    for (int i = 0; i < 10; ++i) {
        ids.insertAt(0, 7);
    }
    EXPECT_EQ(two->getTimerIdSet(&ids), 1);
    EXPECT_EQ(ids.size(), 2U);
    EXPECT_EQ(ids.maxSize(), 2U);
    EXPECT_EQ(none->getTimerIdSet(&ids), 1);
    EXPECT_EQ(ids.size(), 0U);
    EXPECT_EQ(ids.maxSize(), 0U);
    utl::Array<int, int const&> small(1, 0);
    EXPECT_EQ(two->getTimerIdSet(&small), 1);
    EXPECT_EQ(small.size(), 2U);
}

TEST_F(SharedTimerAtItsLimits, AListener_CanBeDeletedAsSoonAsItsTimerIsErased) {
    auto const work = [&](int seed) {
        for (int i = 0; i < 60; ++i) {
            auto ticker = std::make_unique<Ticker>();
            int const timer = timers->addTimer(ticker.get(), 1, 0, (i + seed) % 2);
            ASSERT_GT(timer, 0);
            ASSERT_TRUE(timers->start(timer, i % 3));
            if (i % 4 == 0) {
                ASSERT_TRUE(ticker->waitFor(1));
            }
            ASSERT_TRUE(timers->eraseTimer(timer, 0));
        }
    };
    std::thread first(work, 0);
    std::thread second(work, 1);
    first.join();
    second.join();
    EXPECT_EQ(idsOf(*timers), Ids());
    timers->destroy();
    EXPECT_EQ(calls().aliveCount(), 0U);
    EXPECT_EQ(textsOf("ERR"), 0U);
}

}  // namespace

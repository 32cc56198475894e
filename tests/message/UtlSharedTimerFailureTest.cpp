// What shared timers do when queue, pipe and system timers fail.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestThreads.h"
#include "TestTimers.h"
#include "UtlSharedTimer.h"
#include "UtlThreadManager.h"

using namespace utltest;

namespace {

class SharedTimerFailure : public TimerTest {};

// Returns when a stop has been requested, which the thread has not seen yet.
std::future<void> beginToDestroy(utl::SharedTimer& timers) {
    auto destroyed = std::async(std::launch::async, [&timers] { timers.destroy(); });
    while (!timers.hasRequestedStop()) {
        std::this_thread::yield();
    }
    return destroyed;
}

// The control queue and the pipe.

TEST_F(SharedTimerFailure, AFullControlQueue_RefusesRequestsWithoutALine) {
    Blocker blocker;
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    int const running = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(running));
    blocker.block(*timers);
    for (int i = 0; i < 255; ++i) {
        ASSERT_TRUE(timers->eraseTimer(UNKNOWN, 1));
    }
    log.clear();
    EXPECT_TRUE(timers->eraseTimer(UNKNOWN, 1)) << "the last place";
    EXPECT_FALSE(timers->eraseTimer(UNKNOWN, 1));
    for (int const noWait : {0, 1}) {
        EXPECT_FALSE(timers->start(timer, noWait));
        EXPECT_FALSE(timers->stop(running, noWait));
    }
    EXPECT_FALSE(timers->eraseTimer(running, 0));
    EXPECT_TRUE(log.lines().empty());
    blocker.letGo();
    while (!timers->start(timer, 1)) {
        std::this_thread::yield();
    }
    EXPECT_EQ(timers->waitToStart(timer), 0);
    EXPECT_TRUE(timers->isRunning(running));
}

TEST_F(SharedTimerFailure, AFullControlQueue_DoesNotKeepDestroyWaiting) {
    Blocker blocker;
    ScopedTimers timers;
    blocker.block(*timers);
    for (int i = 0; i < 256; ++i) {
        ASSERT_TRUE(timers->eraseTimer(UNKNOWN, 1));
    }
    auto const destroyed = beginToDestroy(*timers);
    blocker.letGo();
    destroyed.wait();
    EXPECT_TRUE(timers->hasDone(utl::Thread::FINISHED));
}

TEST_F(SharedTimerFailure, AWriteThatFails_IsLoggedAndLeavesTheEntryToTheNextToken) {
    calls().failingWriteId = utl::SharedTimer::TIMER_CTL_START;  // not the expiries of the blocker
    Blocker blocker;
    Ticker lost;
    Ticker ticker;
    ScopedTimers timers(8, "torn");
    int const first = timers->addTimer(&lost, 1, 1);
    int const second = timers->addTimer(&ticker, 1, 1);
    blocker.block(*timers);
    log.clear();
    calls().write.failFrom(1, 1, EIO);
    EXPECT_FALSE(timers->start(first, 1));
    EXPECT_EQ(
        log.lines(),
        (std::vector<std::string>{error("SharedTimerThread(torn) Error. write Ret:4294967295 errno:", EIO)}));
    EXPECT_EQ(timers->findTimer(first)->mFireCount, 0U);
    // The token of the second start takes the first entry. Nobody waits for the token that is missing.
    EXPECT_TRUE(timers->start(second, 1));
    blocker.letGo();
    EXPECT_TRUE(lost.waitFor(1));
    EXPECT_TRUE(ticker.waitFor(1));
}

TEST_F(SharedTimerFailure, AWriteThatFails_FailsAStartThatWaits) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    calls().write.failFrom(1, 1, EIO);
    EXPECT_FALSE(timers->start(timer, 0));
    timers.settle();
    EXPECT_TRUE(timers->isRunning(timer)) << "the entry was there";
}

TEST_F(SharedTimerFailure, ALostQuitToken_DoesNotKeepDestroyWaiting) {
    ScopedTimers timers;
    calls().write.failFrom(1, 1, EIO);
    timers->destroy();
    EXPECT_TRUE(timers->hasDone(utl::Thread::FINISHED));
    EXPECT_EQ(calls().write.calls(), 2U);
}

TEST_F(SharedTimerFailure, ALostTimeoutToken_IsMadeUpFor) {
    calls().failingWriteId = utl::SharedTimer::TIMER_CTL_TIMEOUT;
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 1, 3, 0);
    calls().write.failFrom(1, 1, EIO);
    ASSERT_TRUE(timers->start(timer));
    EXPECT_EQ(timers->waitToStop(timer), 0);
    EXPECT_EQ(ticker.count(), 3U);
}

TEST_F(SharedTimerFailure, AnyToken_TakesTheEntryAtTheHead) {
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 1);
    static std::atomic<int> written{0};
    hooks::write.replace(+[](int handle, void const* buffer, size_t bytes) -> ssize_t {
        int token[2] = {written, 4711};
        int id = 0;
        std::memcpy(&id, buffer, sizeof(id));
        bool const isSignal = id == utl::MSG_ID_TIMEOUT_SIGNAL;
        return hooks::write.real(handle, isSignal || handle != timerCalls().writeEnd ? buffer : token, bytes);
    });
    for (int const id : {utl::SharedTimer::TIMER_CTL_QUIT, utl::MSG_ID_NONE, 0, 12345, -1}) {
        written = id;
        EXPECT_TRUE(timers->start(timer));
        EXPECT_TRUE(ticker.waitForMore(1));
        EXPECT_TRUE(timers->stop(timer));
    }
}

TEST_F(SharedTimerFailure, RequestStop_WithoutAStop_EndsNothing) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    timers->requestStop();
    EXPECT_TRUE(timers->start(timer));
    EXPECT_TRUE(timers->stop(timer));
}

// A listener is at work, and the system has given so small a pipe that signals alone fill it.
TEST_F(SharedTimerFailure, AFullPipe_HangsNobody) {
    constexpr int TIMERS = 140;
    hooks::pipe.replace(+[](int* ends) {
        int const result = pipeHook(ends);
        fcntl(ends[1], F_SETPIPE_SZ, 8192);
        return result;
    });
    hooks::fcntl.replace(+[](int handle, int command, long argument) {
        if (command == F_SETPIPE_SZ) {
            errno = EPERM;
            return -1;
        }
        return hooks::fcntl.real(handle, command, argument);
    });
    Ticker ticker;
    Blocker blocker;
    ScopedTimers timers(TIMERS + 10);
    int const idle = timers->addTimer(nullptr, LONG);
    for (int i = 0; i < TIMERS; ++i) {
        int const timer = timers->addTimer(&ticker, 50);
        while (!timers->start(timer)) {  // the pipe may be full by now
            ASSERT_GT(timer, 0);
        }
    }
    blocker.block(*timers);
    int bytes = 0;
    while (bytes < 4096 + 8) {
        ASSERT_EQ(ioctl(calls().readEnd, FIONREAD, &bytes), 0);
    }
    log.clear();
    EXPECT_FALSE(timers->start(idle, 0));
    EXPECT_FALSE(timers->start(idle, 1));
    EXPECT_FALSE(timers->eraseTimer(idle, 1));
    int const fitting = (8192 - getpagesize()) / 8 + 1;
    EXPECT_EQ(log.lines(), std::vector<std::string>(
                               3, error("SharedTimerThread(shared) Overflow Pipe  MaxCount:", fitting)));
    auto const destroyed = beginToDestroy(*timers);
    blocker.letGo();
    destroyed.wait();
    EXPECT_TRUE(timers->hasDone(utl::Thread::FINISHED));
    EXPECT_EQ(calls().aliveCount(), 0U);
}

TEST_F(SharedTimerFailure, APipeOfOnePageOrOfUnknownSize_TakesATokenWheneverItIsEmpty) {
    hooks::pipe.replace(+[](int* ends) {
        int const result = pipeHook(ends);
        EXPECT_EQ(hooks::fcntl.real(ends[1], F_SETPIPE_SZ, getpagesize()), getpagesize());
        return result;
    });
    for (bool const isSizeKnown : {true, false}) {
        static int refused;
        refused = isSizeKnown ? F_SETPIPE_SZ : F_GETPIPE_SZ;
        hooks::fcntl.replace(+[](int handle, int command, long argument) {
            bool const isRefused = command == refused || command == F_SETPIPE_SZ;
            return isRefused ? -1 : hooks::fcntl.real(handle, command, argument);
        });
        Ticker ticker;
        utl::SharedTimer timers(0, 0, nullptr, 8, "tiny");
        int const timer = timers.addTimer(&ticker, 1, 0, 0);
        for (size_t run = 1; run <= 10; ++run) {
            while (!timers.start(timer, 0)) {
            }
            EXPECT_TRUE(ticker.waitForMore(1));
            while (!timers.stop(timer, 0)) {
            }
        }
        timers.destroy();
        EXPECT_TRUE(timers.hasDone(utl::Thread::FINISHED));
    }
}

TEST_F(SharedTimerFailure, AnInterruptedRead_IsLoggedAndRepeated) {
    ScopedTimers timers(8, "eintr");
    timers.settle();
    calls().read.failFrom(1, 3, EINTR);
    timers.settle();
    EXPECT_EQ(log.count("<UTIL> INF: SharedTimerThread(eintr) Error. read Ret:4294967295 errno:" +
                        std::to_string(EINTR) + "=EINTR Retry read"),
              3U);
}

TEST_F(SharedTimerFailure, AReadThatFails_EndsTheLoop) {
    ScopedTimers timers(8, "broken");
    int const timer = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(timer));
    calls().read.failFrom(1, 1, EIO);
    EXPECT_TRUE(timers->eraseTimer(UNKNOWN, 1));
    ASSERT_EQ(timers->waitTo(utl::Thread::FINISHED), 0);
    EXPECT_EQ(log.count(error("SharedTimerThread(broken) Error. read Ret:4294967295 errno:", EIO) +
                        " !!Break msg loop!!"),
              1U);
    unsigned int result = 0;
    EXPECT_TRUE(timers->getResult(&result));
    EXPECT_EQ(result, 0xFFFFFFFFU);
    EXPECT_EQ(calls().aliveCount(), 0U);
    EXPECT_EQ(timers->addTimer(nullptr, 1), -1);
    EXPECT_FALSE(timers->start(timer));
}

TEST_F(SharedTimerFailure, AShortRead_EndsTheLoop) {
    ScopedTimers timers(8, "short");
    timers.settle();
    hooks::read.replace(+[](int handle, void* buffer, size_t bytes) -> ssize_t {
        return handle == timerCalls().readEnd ? 3 : hooks::read.real(handle, buffer, bytes);
    });
    EXPECT_TRUE(timers->eraseTimer(UNKNOWN, 1));
    ASSERT_EQ(timers->waitTo(utl::Thread::FINISHED), 0);
    EXPECT_EQ(
        log.count(error("SharedTimerThread(short) Error. read Ret:3 errno:", 0) + " !!Break msg loop!!"), 1U);
}

TEST_F(SharedTimerFailure, CallersWhoWait_AreReleasedWhenTheLoopEndsFirst) {
    for (int round = 0; round < 10; ++round) {
        Blocker blocker;
        ScopedTimers timers;
        int const idle = timers->addTimer(nullptr, LONG);
        int const running = timers->addTimer(nullptr, LONG);
        ASSERT_TRUE(timers->start(running));
        blocker.block(*timers);
        auto started = std::async(std::launch::async, [&] { return timers->waitToStart(idle); });
        auto stopped = std::async(std::launch::async, [&] { return timers->waitToStop(running); });
        unsigned int const before = calls().requests;
        auto request = std::async(std::launch::async, [&] {
            return round % 2 == 0 ? timers->start(idle, 0) : timers->stop(running, 0);
        });
        waitForRequestBehind(before);
        calls().read.failFrom(1, 0, EIO);
        blocker.letGo();
        EXPECT_EQ(request.get(), round % 2 != 0) << "a timer that is gone has stopped and has not started";
        started.get();
        stopped.get();
        ASSERT_EQ(timers->waitTo(utl::Thread::FINISHED), 0);
        EXPECT_EQ(timers->waitToStart(idle), -1);
        calls().read.reset();
    }
}

// A waiting caller that has been answered and does not get the processor.
thread_local bool tIsSlowWaiter = false;

TEST_F(SharedTimerFailure, CallersWhoWait_DoNotTouchAnObjectThatGoesBehindDestroy) {
    static Gate gone;
    static std::atomic<bool> isWaiting{false};
    hooks::condWait.replace(+[](pthread_cond_t* condition, pthread_mutex_t* mutex) {
        isWaiting = isWaiting || tIsSlowWaiter;
        int const result = hooks::condWait.real(condition, mutex);
        if (tIsSlowWaiter) {
            gone.wait();
        }
        return result;
    });
    auto timers = std::make_unique<utl::SharedTimer>(0, 0, nullptr, 8, "going");
    int const timer = timers->addTimer(nullptr, LONG);
    auto started = std::async(std::launch::async, [&timers, timer] {
        tIsSlowWaiter = true;
        return timers->waitToStart(timer);
    });
    while (!isWaiting) {
        std::this_thread::yield();
    }
    timers->destroy();
    timers.reset();
    gone.open();
    EXPECT_EQ(started.get(), -1);
}

TEST_F(SharedTimerFailure, TheDestructor_LetsRequestsLeaveThatItHasEnded) {
    static std::atomic<bool> hasLeft{false};
    hooks::condWait.replace(+[](pthread_cond_t* condition, pthread_mutex_t* mutex) {
        int const result = hooks::condWait.real(condition, mutex);
        if (tIsSlowWaiter) {
            utl::Thread::sleep(30);
            hasLeft = true;
        }
        return result;
    });
    Blocker blocker;
    auto timers = std::make_unique<utl::SharedTimer>(0, 0, nullptr, 8, "going");
    int const timer = timers->addTimer(nullptr, LONG);
    blocker.block(*timers);
    unsigned int const before = calls().requests;
    auto started = std::async(std::launch::async, [&timers, timer] {
        tIsSlowWaiter = true;
        return timers->start(timer, 0);
    });
    waitForRequestBehind(before);
    calls().read.failFrom(1, 0, EIO);
    blocker.letGo();
    int const id = timers->getId();
    timers.reset();
    EXPECT_TRUE(hasLeft);
    EXPECT_FALSE(started.get());
    EXPECT_TRUE(utl::ThreadManager::get()->unregister(id));
}

TEST_F(SharedTimerFailure, AddTimer_WhileTheLoopEnds_NeverLeavesATimerThatNobodyServes) {
    for (int round = 0; round < 30; ++round) {
        ScopedTimers timers(1000);
        timers.settle();
        calls().read.failFrom(1, 0, EIO);
        ASSERT_TRUE(timers->eraseTimer(UNKNOWN, 1));
        int timer = 0;
        while ((timer = timers->addTimer(nullptr, LONG)) != -1 && timer < 900) {
            timers->start(timer, 0);
        }
        ASSERT_EQ(timers->waitTo(utl::Thread::FINISHED), 0);
        EXPECT_TRUE(idsOf(*timers).empty());
        EXPECT_EQ(calls().aliveCount(), 0U);
        calls().read.reset();
    }
}

// The handler is on another thread, which may have to wait for the processor.
TEST_F(SharedTimerFailure, AHandlerThatIsStillAtWork_IsWaitedForAsleep) {
    static Gate gate;
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(timer));
    hooks::write.replace(+[](int handle, void const* buffer, size_t bytes) -> ssize_t {
        int id = 0;
        std::memcpy(&id, buffer, sizeof(id));
        if (id == utl::MSG_ID_TIMEOUT_SIGNAL && handle == timerCalls().writeEnd) {
            EXPECT_TRUE(gate.hold());
        }
        return hooks::write.real(handle, buffer, bytes);
    });
    siginfo_t info = {};
    info.si_timerid = timers->findTimer(timer)->mSysTimerNum;
    info.si_value.sival_int = calls().writeEnd;
    std::thread handler([&info] { utl::SharedTimer::TimeoutSignalHandler(SIGRTMIN + 1, &info, nullptr); });
    ASSERT_TRUE(gate.waitUntilHeld());
    auto stopped = std::async(std::launch::async, [&] { return timers->stop(timer, 0); });
    while (hooks::nanoSleep.calls() < 3) {
        std::this_thread::yield();
    }
    EXPECT_NE(stopped.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    gate.open();
    handler.join();
    EXPECT_TRUE(stopped.get());
}

// With room for one token a post and a handler compete for it.
TEST_F(SharedTimerFailure, APipeAtItsLimit_GetsNoTokenThatCouldBlockItsWriter) {
    hooks::pipe.replace(+[](int* ends) {
        int const result = pipeHook(ends);
        EXPECT_EQ(hooks::fcntl.real(ends[1], F_SETPIPE_SZ, getpagesize()), getpagesize());
        return result;
    });
    hooks::fcntl.replace(+[](int handle, int command, long argument) {
        return command == F_SETPIPE_SZ ? -1 : hooks::fcntl.real(handle, command, argument);
    });
    for (int round = 0; round < 200; ++round) {
        Blocker blocker;
        utl::SharedTimer timers(0, 0, nullptr, 8, "tiny");
        int const timer = timers.addTimer(nullptr, LONG);
        ASSERT_TRUE(timers.start(timer));
        blocker.block(timers);
        siginfo_t info = {};
        info.si_timerid = timers.findTimer(timer)->mSysTimerNum;
        info.si_value.sival_int = calls().writeEnd;
        std::atomic<int> ready{0};
        auto const meet = [&ready] {
            for (++ready; ready < 2;) {
                std::this_thread::yield();
            }
        };
        std::thread handler([&] {
            meet();
            utl::SharedTimer::TimeoutSignalHandler(SIGRTMIN + 1, &info, nullptr);
        });
        meet();
        timers.eraseTimer(UNKNOWN, 1);
        handler.join();
        int bytes = 0;
        EXPECT_EQ(ioctl(calls().readEnd, FIONREAD, &bytes), 0);
        EXPECT_EQ(bytes, 8) << round;
        blocker.letGo();
        timers.destroy();
    }
}

// The steps of the loop, as a derived class reaches them.
class SteppedTimers : public utl::SharedTimer {
  public:
    explicit SteppedTimers(int watchdog = 0) : SharedTimer(watchdog, LONG, nullptr, 8, "stepped") {}
    ~SteppedTimers() override { destroy(); }

    using SharedTimer::executeTimeoutSignal;
    using SharedTimer::finishUpdate;
    using SharedTimer::startTimerByTimerInfo;
    using SharedTimer::stopTimerByTimerInfo;
    using SharedTimer::updateOnStart;
    using SharedTimer::updateOnStop;
    using SharedTimer::updateOnTimeout;
};

TEST_F(SharedTimerFailure, StepsOfAnUnknownTimer_DoNothing) {
    SteppedTimers timers;
    ASSERT_GT(timers.addTimer(nullptr, LONG), 0);
    unsigned int const before = calls().requests;
    log.clear();
    EXPECT_FALSE(timers.startTimerByTimerInfo(nullptr));
    EXPECT_FALSE(timers.stopTimerByTimerInfo(nullptr));
    for (int const id : {UNKNOWN, 0, -1}) {
        EXPECT_EQ(timers.updateOnStart(id), 0);
        EXPECT_EQ(timers.updateOnStop(id), 0);
        EXPECT_EQ(timers.updateOnTimeout(id), 0);
        timers.finishUpdate(id);
        timers.executeTimeoutSignal(id);
    }
    EXPECT_EQ(calls().create.calls(), 0U);
    EXPECT_EQ(calls().requests, before);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SharedTimerFailure, ATimerThatDoesNotRun_GetsNoTimeoutQueued) {
    SteppedTimers timers;
    int const timer = timers.addTimer(nullptr, LONG);
    unsigned int const before = calls().requests;
    timers.executeTimeoutSignal(timer);
    EXPECT_EQ(calls().requests, before);
    EXPECT_EQ(timers.findTimer(timer)->mPendingCount, 0U);
}

TEST_F(SharedTimerFailure, ExpiriesOfABusyThread_AreQueuedOnceOrTwice) {
    // The blocker's expiries get through: the lines of a handler must not interrupt another line of this
    // test.
    calls().failingWriteId = utl::SharedTimer::TIMER_CTL_TIMEOUT;
    for (int const autoRepeat : {0, 1}) {
        for (bool const isTokenLost : {false, true}) {
            Blocker blocker;
            Ticker ticker;
            SteppedTimers timers;
            int const timer = timers.addTimer(&ticker, LONG, 0, autoRepeat);
            ASSERT_TRUE(timers.start(timer));
            blocker.block(timers);
            unsigned int const expected = autoRepeat != 0 ? 2 : 1;
            unsigned int const before = calls().requests;
            calls().write.failFrom(isTokenLost ? 1 : 0, 0, EIO);
            for (int i = 0; i < 5; ++i) {
                timers.executeTimeoutSignal(timer);
            }
            calls().write.reset();
            EXPECT_EQ(calls().requests - before, expected);
            EXPECT_EQ(timers.findTimer(timer)->mPendingCount, expected);
            blocker.letGo();
            ASSERT_TRUE(ticker.waitFor(expected));
            EXPECT_TRUE(timers.stop(timer));
            EXPECT_EQ(ticker.count(), expected);
        }
    }
}

TEST_F(SharedTimerFailure, ExpiriesThatAreQueuedBehindAStop_GoWithIt) {
    Blocker blocker;
    Ticker ticker;
    SteppedTimers timers;
    int const timer = timers.addTimer(&ticker, LONG);
    int const other = timers.addTimer(&ticker, LONG);
    ASSERT_TRUE(timers.start(timer));
    ASSERT_TRUE(timers.start(other));
    blocker.block(timers);
    ASSERT_TRUE(timers.stop(timer, 1));
    timers.executeTimeoutSignal(timer);
    timers.executeTimeoutSignal(other);
    timers.executeTimeoutSignal(timer);
    ASSERT_EQ(timers.findTimer(timer)->mPendingCount, 2U);
    blocker.letGo();
    ASSERT_TRUE(ticker.waitFor(1));
    EXPECT_TRUE(timers.stop(other));
    EXPECT_EQ(ticker.ticks(), Ids{other}) << "of the other timer nothing was removed";
    EXPECT_EQ(timers.findTimer(timer)->mPendingCount, 0U);
}

// A running timer whose interval changed is armed anew after its expiry; one more expiry is queued by then.
TEST_F(SharedTimerFailure, TimerDelete_ThatFailsAtARearm_LeavesNoTimeoutThatIsNotCounted) {
    Blocker blocker;
    Ticker ticker;
    SteppedTimers timers;
    int const timer = timers.addTimer(&ticker, LONG);
    ASSERT_TRUE(timers.start(timer));
    blocker.block(timers);
    timers.executeTimeoutSignal(timer);
    timers.executeTimeoutSignal(timer);
    ASSERT_TRUE(timers.setInterval(timer, LONG + 1));
    calls().remove.failFrom(2, 1, EINVAL);  // the first is that of the blocker
    blocker.letGo();
    ASSERT_TRUE(ticker.waitFor(1));
    ASSERT_TRUE(timers.stop(timer));
    EXPECT_EQ(ticker.count(), 1U);
    EXPECT_EQ(calls().aliveCount(), 0U);
}

// System timers that fail.

TEST_F(SharedTimerFailure, TimerCreate_ThatFails_IsLoggedAndTheStartFails) {
    ScopedTimers timers(8, "create");
    int const timer = timers->addTimer(nullptr, LONG);
    calls().create.failFrom(1, 1, EAGAIN);
    EXPECT_FALSE(timers->start(timer, 0));
    std::string const line =
        error("SharedTimerThread(create) timer_create SysTimerId:0x00000000 errno:", EAGAIN);
    EXPECT_EQ(log.count(line), 1U);
    for (std::string const& text : log.console()) {
        if (text.find("timer_create") != std::string::npos) {
            EXPECT_EQ(text.substr(text.size() - 3), "\n\r\n") << "a line feed of its own";
        }
    }
    EXPECT_TRUE(log.waitFor(loopError("create", "0x80000004")));
    EXPECT_FALSE(timers->isRunning(timer));
    EXPECT_EQ(timers->waitToStop(timer), 0);
    EXPECT_TRUE(timers->start(timer, 0)) << "the timer is still there";
}

TEST_F(SharedTimerFailure, AStartThatFails_IsNotToldToWhoDoesNotWait) {
    ScopedTimers timers(8, "create");
    int const timer = timers->addTimer(nullptr, LONG);
    calls().create.failFrom(1, 1, EAGAIN);
    EXPECT_TRUE(timers->start(timer, 1));
    EXPECT_TRUE(log.waitFor(loopError("create", "0x80000004")));
    EXPECT_FALSE(timers->isRunning(timer));
}

TEST_F(SharedTimerFailure, AStartThatWaits_IsNotFailedByAnOlderOne) {
    Blocker blocker;
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    blocker.block(*timers);
    ASSERT_TRUE(timers->start(timer, 1));
    unsigned int const before = calls().requests;
    auto started = std::async(std::launch::async, [&] { return timers->start(timer, 0); });
    waitForRequestBehind(before);
    calls().create.failFrom(1, 1, EAGAIN);
    blocker.letGo();
    EXPECT_TRUE(started.get());
    EXPECT_TRUE(timers->isRunning(timer));
}

// Nothing is deleted after a fresh start that failed: the next start, or the timer's end, does that.
TEST_F(SharedTimerFailure, TimerSetTime_ThatFailsAtAFreshStart_IsLoggedAndLeavesTheSystemTimerForNow) {
    ScopedTimers timers(8, "settime");
    int const timer = timers->addTimer(nullptr, LONG);
    calls().setTime.failFrom(1, 1, EINVAL);
    EXPECT_FALSE(timers->start(timer, 0));
    EXPECT_TRUE(hasLine("<UTIL> ERR: SharedTimerThread(settime) timer_settime SysTimerId:0x",
                        " errno:" + std::to_string(EINVAL)));
    EXPECT_TRUE(log.waitFor(loopError("settime", "0x80000004")));
    EXPECT_EQ(calls().remove.calls(), 0U);
    EXPECT_EQ(calls().aliveCount(), 1U);
    EXPECT_FALSE(timers->isRunning(timer));
    EXPECT_TRUE(timers->stop(timer, 0));
    EXPECT_EQ(calls().aliveCount(), 1U);
    EXPECT_TRUE(timers->start(timer, 0));
    EXPECT_EQ(calls().aliveCount(), 1U);
    EXPECT_EQ(timers->toUserTimerId(timers->findTimer(timer)->mSysTimerNum), timer);
}

TEST_F(SharedTimerFailure, ASystemTimerThatAFailedStartLeft_GoesWithTheTimer) {
    for (int const noWait : {0, 1, 2}) {
        ScopedTimers timers;
        int const timer = timers->addTimer(nullptr, LONG);
        calls().setTime.failFrom(1, 1, EINVAL);
        EXPECT_FALSE(timers->start(timer, 0));
        EXPECT_EQ(calls().aliveCount(), 1U);
        if (noWait == 2) {
            timers->destroy();
        } else {
            EXPECT_TRUE(timers->eraseTimer(timer, noWait));
            timers.settle();
        }
        EXPECT_EQ(calls().aliveCount(), 0U);
    }
}

TEST_F(SharedTimerFailure, ARearmThatFails_IsLoggedAndTheTimerStandsStillAsRunning) {
    for (bool const failsAtCreate : {true, false}) {
        Ticker ticker;
        ScopedTimers timers(8, "rearm");
        int const timer = timers->addTimer(&ticker, 1, 0, 0);
        (failsAtCreate ? calls().create : calls().setTime).failFrom(2, 1, EAGAIN);
        log.clear();
        ASSERT_TRUE(timers->start(timer));
        ASSERT_TRUE(log.waitFor(loopError("rearm", "0x80000007")));
        EXPECT_EQ(log.count(loopError("rearm", "0x80000007")), 1U);
        EXPECT_EQ(ticker.count(), 1U);
        EXPECT_TRUE(timers->isRunning(timer));
        EXPECT_EQ(calls().aliveCount(), 0U);
        EXPECT_EQ(timers->findTimer(timer)->mSysTimerNum, -1);
        EXPECT_TRUE(timers->restart(timer));
        EXPECT_TRUE(ticker.waitFor(3));
    }
}

TEST_F(SharedTimerFailure, TimerDelete_ThatFails_IsLoggedAndTheTimerRunsOn) {
    Ticker ticker;
    ScopedTimers timers(8, "delete");
    int const timer = timers->addTimer(&ticker, 1);
    ASSERT_TRUE(timers->start(timer));
    calls().remove.failFrom(1, 1, EINVAL);
    EXPECT_FALSE(timers->stop(timer, 0));
    EXPECT_TRUE(hasLine("<UTIL> ERR: SharedTimerThread(delete) timer_delete SysTimerId:0x",
                        " errno:" + std::to_string(EINVAL)));
    EXPECT_TRUE(log.waitFor(loopError("delete", "0x80000005")));
    EXPECT_TRUE(timers->isRunning(timer));
    EXPECT_TRUE(ticker.waitForMore(2));
    EXPECT_TRUE(timers->stop(timer, 0));
    EXPECT_FALSE(timers->isRunning(timer));
}

TEST_F(SharedTimerFailure, AStopThatFails_LeavesTheMarkOfANewInterval) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(timers->setInterval(timer, 1));
    calls().remove.failFrom(1, 1, EINVAL);
    EXPECT_FALSE(timers->stop(timer, 0));
    timers.settle();
    EXPECT_TRUE(timers->findTimer(timer)->mUpdating);
}

TEST_F(SharedTimerFailure, EraseTimer_ThatCannotStopTheTimer_IsFalseAndTheTimerStays) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(timer));
    calls().remove.failFrom(1, 1, EINVAL);
    EXPECT_FALSE(timers->eraseTimer(timer, 0));
    EXPECT_TRUE(timers->isRunning(timer));
    EXPECT_TRUE(timers->eraseTimer(timer, 0));
}

TEST_F(SharedTimerFailure, AnErasureThatCannotStopTheTimer_TakesItAwayAllTheSame) {
    Ticker ticker;
    ScopedTimers timers(8, "erase");
    int const timer = timers->addTimer(&ticker, 1);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(ticker.waitFor(1));
    calls().remove.failFrom(1, 2, EINVAL);
    EXPECT_TRUE(timers->eraseTimer(timer, 1));
    EXPECT_TRUE(log.waitFor(loopError("erase", "0x80000006")));
    EXPECT_EQ(timers->findTimer(timer), nullptr);
    size_t const atErase = ticker.count();
    // The system timer stays alive, and nothing of it reaches the pipe any more.
    EXPECT_EQ(calls().aliveCount(), 1U);
    timers.settle();
    unsigned int const before = calls().write.calls();
    utl::Thread::sleep(20);
    EXPECT_EQ(calls().write.calls(), before);
    EXPECT_EQ(ticker.count(), atErase);
    ASSERT_EQ(calls().alive.size(), 1U);
    EXPECT_EQ(timer_delete(calls().alive[0]), 0);
}

TEST_F(SharedTimerFailure, TimerDelete_ThatFailsBehindTheLastExpiry_DoesNotAddOne) {
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 1, 2, 1);
    for (unsigned int run = 1; run <= 2; ++run) {
        calls().remove.failFrom(run, 1, EINVAL);  // the second start begins with what the first run has left
        ASSERT_TRUE(timers->start(timer));
        ASSERT_EQ(timers->waitToStop(timer), 0);
        EXPECT_EQ(timers->findTimer(timer)->mPendingCount, 0U);
        utl::Thread::sleep(10);
        timers.settle();
        EXPECT_EQ(ticker.count(), 2 * run);
        calls().remove.reset();
    }
    ASSERT_TRUE(timers->eraseTimer(timer));
    EXPECT_EQ(calls().aliveCount(), 0U);
}

TEST_F(SharedTimerFailure, TimerDelete_ThatFailsAtARearm_LosesNoSystemTimer) {
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 1, 0, 0);
    calls().remove.failFrom(1, 1, EINVAL);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(ticker.waitFor(4));
    ASSERT_TRUE(timers->stop(timer));
    EXPECT_EQ(calls().aliveCount(), 0U);
}

// The Nth call of each kind fails, until the whole gets through.
TEST_F(SharedTimerFailure, AnyOneSystemCallThatFails_LeavesNothingBehind) {
    for (PlannedCall* const call : {&calls().create, &calls().setTime, &calls().remove, &calls().write}) {
        bool hasFailed = true;
        for (unsigned int nth = 1; hasFailed; ++nth) {
            ASSERT_LT(nth, 200U);
            int const handlesBefore = dup(0);
            close(handlesBefore);
            {
                Ticker ticker;
                ScopedTimers timers;
                int const one = timers->addTimer(&ticker, LONG, 0, 0);
                int const two = timers->addTimer(&ticker, LONG, 0, 1);
                call->failFrom(nth, 1, EAGAIN);
                timers->startAll(0);
                timers->restartAll(0);
                timers->eraseTimer(one, 1);
                timers->stop(two, 0);
                timers->eraseTimer(two, 0);
                timers->destroy();
                hasFailed = call->calls() >= nth;
                call->reset();
            }
            EXPECT_EQ(calls().aliveCount(), 0U);
            int const handlesBehind = dup(0);
            close(handlesBehind);
            EXPECT_EQ(handlesBehind, handlesBefore);
        }
    }
}

// What hooks without a capture are told.
std::atomic<int> gBadReadEnd{-1};
std::atomic<bool> gShortWrite{false};

TEST_F(SharedTimerAtItsLimits, ARequestWhoseTokenWasCut_FailsButStaysAndIsServedAtTheLatestByTheNextToken) {
    int const first = timers->addTimer(nullptr, LONG);
    int const second = timers->addTimer(nullptr, LONG);
    int const third = timers->addTimer(nullptr, LONG);
    hooks::write.replace([](int handle, void const* buffer, size_t bytes) -> ssize_t {
        if (gShortWrite.exchange(false)) {
            errno = EAGAIN;
            return 4;
        }
        return utltest::writeHook(handle, buffer, bytes);
    });
    gShortWrite = true;
    EXPECT_FALSE(timers->start(first, 1));
    EXPECT_EQ(log.count(error("SharedTimerThread(odd) Error. write Ret:4 errno:", EAGAIN)), 1U);
    EXPECT_TRUE(timers->start(second, 1));
    EXPECT_EQ(timers->waitToStart(first), 0);
    EXPECT_TRUE(timers->start(third, 1));
    EXPECT_EQ(timers->waitToStart(second), 0);
}

TEST_F(SharedTimerAtItsLimits, Erase_WhoseStopGetsNoToken_LeavesTheTimer) {
    int const timer = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(timer));
    calls().write.failFrom(1, 1, EPIPE);
    EXPECT_FALSE(timers->eraseTimer(timer, 0));
    EXPECT_EQ(log.count(error("SharedTimerThread(odd) Error. write Ret:4294967295 errno:", EPIPE)), 1U);
    EXPECT_EQ(idsOf(*timers), Ids{timer});
    EXPECT_TRUE(timers->eraseTimer(timer, 0)) << "the way is free again";
    EXPECT_EQ(calls().aliveCount(), 0U);
}

TEST_F(SharedTimerAtItsLimits, TheSignalHandler_LogsATokenThatItCannotWriteAndKeepsErrno) {
    Listener ticker(timers);
    int const timer = timers->addTimer(&ticker, LONG, 0, 1);
    ASSERT_TRUE(timers->start(timer));
    calls().write.failFrom(1, 1, EPIPE);
    errno = 77;
    expire(*timers, timer);
    EXPECT_EQ(errno, 77);
    EXPECT_EQ(log.count(error("SharedTimerThread() Error. write Ret:4294967295 errno:", EPIPE)), 1U);
    calls().write.reset();
    expire(*timers, timer);
    timers.settle();
    EXPECT_EQ(ticker.count(), 1U) << "that expiry is lost and no other";
}

TEST_F(SharedTimerAtItsLimits, ATimerThatCouldNotBeRearmed_CountsAsRunningUntilItIsStopped) {
    Listener ticker(timers);
    int const timer = timers->addTimer(&ticker, LONG, 0, 0);
    ASSERT_TRUE(timers->start(timer));
    calls().create.failFrom(1, 1, EAGAIN);
    expire(*timers, timer);
    ASSERT_TRUE(log.waitFor("MsgId:0x80000007"));
    EXPECT_EQ(log.count(loopError("odd", "0x80000007")), 1U);
    EXPECT_TRUE(hasLine("<UTIL> ERR: SharedTimerThread(odd) timer_create SysTimerId:0x", " errno:11"));
    EXPECT_TRUE(timers->isRunning(timer));
    EXPECT_TRUE(timers->start(timer));
    EXPECT_EQ(calls().create.calls(), 1U) << "that start had no effect";
    EXPECT_EQ(calls().aliveCount(), 0U);
    ASSERT_TRUE(timers->restart(timer));
    expire(*timers, timer);
    timers.settle();
    EXPECT_EQ(ticker.count(), 2U);

    calls().setTime.failFrom(1, 1, EINVAL);
    expire(*timers, timer);
    ASSERT_TRUE(becomes([&] { return log.count(loopError("odd", "0x80000007")) == 2; }));
    EXPECT_TRUE(hasLine("<UTIL> ERR: SharedTimerThread(odd) timer_settime SysTimerId:0x", " errno:22"));
    EXPECT_EQ(textsOf(" errno:11\n\r\n"), 1U) << "these two lines end in an empty one";
    EXPECT_EQ(textsOf(" errno:22\n\r\n"), 1U);
    EXPECT_TRUE(timers->isRunning(timer));
    EXPECT_EQ(calls().aliveCount(), 0U) << "a timer that counts as running is deleted then";
    EXPECT_TRUE(timers->stop(timer));
}

TEST_F(SharedTimerAtItsLimits, TheLastExpiry_WhoseSystemTimerStays_StopsTheTimerAllTheSame) {
    Listener ticker(timers);
    int const timer = timers->addTimer(&ticker, LONG, 1, 1);
    ASSERT_TRUE(timers->start(timer));
    calls().remove.failFrom(1, 1, EINVAL);
    int const number = timers->findTimer(timer)->mSysTimerNum;
    expire(*timers, timer);
    timers.settle();
    EXPECT_TRUE(hasLine("<UTIL> ERR: SharedTimerThread(odd) timer_delete SysTimerId:0x", " errno:22"));
    EXPECT_EQ(textsOf("!!!!!!!!"), 0U);
    EXPECT_FALSE(timers->isRunning(timer));
    signal(number);  // it still expires
    timers.settle();
    EXPECT_EQ(ticker.count(), 1U);
    ASSERT_TRUE(timers->start(timer));
    expire(*timers, timer);
    timers.settle();
    EXPECT_EQ(ticker.count(), 2U);
    EXPECT_FALSE(timers->isRunning(timer));
}

TEST_F(SharedTimerAtItsLimits, EraseWithoutWaiting_WhoseSystemTimerStays_TakesTheTimerAwayAllTheSame) {
    Listener ticker(timers);
    int const timer = timers->addTimer(&ticker, LONG);
    ASSERT_TRUE(timers->start(timer));
    int const number = timers->findTimer(timer)->mSysTimerNum;
    calls().remove.failFrom(1, 1, EINVAL);
    EXPECT_TRUE(timers->eraseTimer(timer, 1));
    ASSERT_TRUE(log.waitFor("MsgId:0x80000006"));
    EXPECT_EQ(log.count(loopError("odd", "0x80000006")), 1U);
    EXPECT_TRUE(hasLine("<UTIL> ERR: SharedTimerThread(odd) timer_delete SysTimerId:0x", " errno:22"));
    EXPECT_EQ(idsOf(*timers), Ids());
    signal(number);
    timers.settle();
    EXPECT_EQ(ticker.count(), 0U);
}

TEST_F(SharedTimerAtItsLimits, AReadThatGivesLessThanAToken_EndsTheThreadAndAllItsTimers) {
    int const running = timers->addTimer(nullptr, LONG);
    int const last = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(running));
    hooks::read.replace([](int handle, void* buffer, size_t bytes) -> ssize_t {
        if (handle == gBadReadEnd) {
            errno = EIO;
            return 3;
        }
        return hooks::read.real(handle, buffer, bytes);
    });
    gBadReadEnd = calls().readEnd.load();
    timers->start(last, 1);
    ASSERT_EQ(timers->waitTo(utl::Thread::FINISHED), 0);
    gBadReadEnd = -1;
    EXPECT_EQ(log.count("<UTIL> ERR: SharedTimerThread(odd) Error. read Ret:3 errno:5 !!Break msg loop!!"),
              1U);
    unsigned int result = 0;
    EXPECT_TRUE(timers->getResult(&result));
    EXPECT_EQ(result, 0xFFFFFFFF);
    EXPECT_EQ(calls().aliveCount(), 0U);
    EXPECT_EQ(timers->addTimer(nullptr, 1), -1);
    EXPECT_FALSE(timers->start(running, 0));
    EXPECT_EQ(timers->waitToStop(running), -1);
    EXPECT_EQ(timers->getInterval(running), NO_INTERVAL);
    EXPECT_EQ(idsOf(*timers), Ids());
}

TEST_F(SharedTimerFailure, APipeThatCannotBeHad_IsLoggedAndTheLoopEndsAtOnce) {
    hooks::pipe.failFrom(1, 1, -1, EMFILE);
    hooks::close.reset();
    {
        ScopedTimers timers(4, "pipeless");
        EXPECT_EQ(log.count(error("SharedTimerThread(pipeless) pipe errno:", EMFILE)), 1U);
        ASSERT_EQ(timers->waitTo(utl::Thread::FINISHED), 0);
        EXPECT_EQ(log.count(error("SharedTimerThread(pipeless) Error. read Ret:4294967295 errno:", EBADF) +
                            " !!Break msg loop!!"),
                  1U);
        EXPECT_EQ(timers->addTimer(nullptr, 1), -1);
        EXPECT_FALSE(timers->eraseTimer(1, 1));
        EXPECT_EQ(log.count(error("SharedTimerThread(pipeless) Error. write Ret:4294967295 errno:", EBADF)),
                  1U);
    }
    EXPECT_EQ(hooks::close.calls(), 0U);
}

TEST_F(SharedTimerFailure, AThreadThatCannotBeHad_LeavesTimersThatNobodyCanWaitFor) {
    hooks::threadCreate.failFrom(1, 1, EAGAIN, 0);
    ScopedTimers timers(4, "threadless");
    EXPECT_EQ(timers->getId(), 0);
    int const timer = timers->addTimer(nullptr, 1);
    EXPECT_EQ(timer, 1);
    EXPECT_FALSE(timers->start(timer, 0));
    EXPECT_FALSE(timers->restart(timer, 0));
    EXPECT_TRUE(timers->start(timer, 1)) << "queued, as it was asked for";
    EXPECT_EQ(timers->waitToStart(timer), -1);
    EXPECT_EQ(timers->waitToStop(timer), 0);
    EXPECT_TRUE(timers->stop(timer, 0));
    ASSERT_EQ(timers->addTimer(nullptr, 1), 2);
    EXPECT_TRUE(timers->eraseTimer(timer, 0)) << "it stands still";
}

TEST_F(SharedTimerFailure, AThreadThatCannotBeRegistered_EndsAtOnce) {
    FullRegistry const full;
    ScopedTimers timers;
    EXPECT_EQ(timers->getId(), 0);
    EXPECT_TRUE(timers->hasDone(utl::Thread::FINISHED));
    EXPECT_EQ(timers->addTimer(nullptr, 1), -1);
}

TEST_F(SharedTimerFailure, SigAction_ThatFails_IsLoggedAndTheNextConstructorTriesAgain) {
    for (unsigned int const failing : {1U, 2U}) {
        log.clear();
        hooks::sigAction.failFrom(failing, 1, -1, EINVAL);
        ScopedTimers const timers;
        EXPECT_EQ(hooks::sigAction.calls(), failing);
        EXPECT_EQ(log.count(error("SharedTimer sigaction  errno:", EINVAL)), 1U);
    }
    log.clear();
    ScopedTimers const last;
    EXPECT_EQ(hooks::sigAction.calls(), 4U);
    EXPECT_EQ(log.count(error("SharedTimer sigaction  errno:", EINVAL)), 0U);
    EXPECT_EQ(log.count("<UTIL> DTL: SharedTimer sigaction  success:" + std::to_string(SIGRTMIN + 1)), 1U);
}

// Without the handler the first expiry would end the process.
TEST_F(SharedTimerFailure, Start_WithoutTheHandler_FailsAndTriesToInstallItAgain) {
    hooks::sigAction.failFrom(1, 2, -1, EINVAL);
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 1, 1);
    EXPECT_FALSE(timers->start(timer, 0));
    EXPECT_EQ(log.count(error("SharedTimer sigaction  errno:", EINVAL)), 2U);
    EXPECT_EQ(calls().create.calls(), 0U);
    EXPECT_TRUE(timers->start(timer, 0));
    EXPECT_TRUE(ticker.waitFor(1));
}

TEST_F(SharedTimerFailure, TheHandler_ReportsAShortWriteAndKeepsErrno) {
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, LONG);
    ASSERT_TRUE(timers->start(timer));
    siginfo_t info = {};
    info.si_timerid = timers->findTimer(timer)->mSysTimerNum;
    info.si_value.sival_int = calls().writeEnd;
    calls().write.failFrom(1, 1, EIO);
    log.clear();
    errno = ENOTTY;
    utl::SharedTimer::TimeoutSignalHandler(SIGRTMIN + 1, &info, nullptr);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(
        log.lines(),
        (std::vector<std::string>{error("SharedTimerThread() Error. write Ret:4294967295 errno:", EIO)}));
    // The token that did not get through does not count.
    utl::SharedTimer::TimeoutSignalHandler(SIGRTMIN + 1, &info, nullptr);
    EXPECT_TRUE(ticker.waitFor(1));
}

TEST_F(SharedTimerFailure, WaitToStart_GoesOnWaitingBehindAStartThatFailed) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    std::promise<int> result;
    auto const waiting = result.get_future();
    std::thread waiter([&] { result.set_value(timers->waitToStart(timer)); });
    calls().create.failFrom(1, 1, EAGAIN);
    EXPECT_FALSE(timers->start(timer));
    EXPECT_NE(waiting.wait_for(std::chrono::milliseconds(20)), std::future_status::ready);
    EXPECT_TRUE(timers->start(timer));
    waiter.join();
}

}  // namespace

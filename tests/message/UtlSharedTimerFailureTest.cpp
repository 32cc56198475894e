// What shared timers do when queue, pipe and system timers fail, and what they report to the watchdog.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "TestThreads.h"
#include "TestTimers.h"
#include "UtlSharedTimer.h"

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
    static Gate entered;
    static Gate go;
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(timer));
    hooks::write.replace(+[](int handle, void const* buffer, size_t bytes) -> ssize_t {
        int id = 0;
        std::memcpy(&id, buffer, sizeof(id));
        if (id == utl::MSG_ID_TIMEOUT_SIGNAL && handle == timerCalls().writeEnd) {
            entered.open();
            go.wait();
        }
        return hooks::write.real(handle, buffer, bytes);
    });
    siginfo_t info = {};
    info.si_timerid = timers->findTimer(timer)->mSysTimerNum;
    info.si_value.sival_int = calls().writeEnd;
    std::thread handler([&info] { utl::SharedTimer::TimeoutSignalHandler(SIGRTMIN + 1, &info, nullptr); });
    ASSERT_TRUE(entered.wait());
    auto stopped = std::async(std::launch::async, [&] { return timers->stop(timer, 0); });
    while (hooks::nanoSleep.calls() < 3) {
        std::this_thread::yield();
    }
    EXPECT_NE(stopped.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    go.open();
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

// A running timer whose interval changed is armed anew behind its expiry; one more expiry is queued by then.
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

// Nothing is deleted behind a fresh start that failed: the next start, or the timer's end, does that.
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
    // The system timer goes on, and nothing of it reaches the pipe any more.
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

// The watchdog.

class SharedTimerWatched : public TimerTest {
  protected:
    SharedTimerWatched() {
        utltest::ThreadWatchdogAccess::setInitialized(utltest::ThreadManagerAccess::watchdog(), true);
    }

    static utl::StatementInfo lastStatement(int thread) {
        utl::WatchdogInfo const* const info =
            utltest::ThreadManagerAccess::watchdog().findWatchdogInfo(thread);
        return info != nullptr ? info->lastStatement : utl::StatementInfo::INVALID;
    }

    /// The place in this source where the calling thread stands.
    static void noteStatement() {
        utl::StatementInfo const place = lastStatement(kernelId());
        if (std::string(place.file) == "source/UtlSharedTimer") {
            mPlaces.push_back(std::string(place.function) + " " + std::to_string(place.sub));
        }
    }

    static std::vector<std::string> mPlaces;
};

std::vector<std::string> SharedTimerWatched::mPlaces;

// Reports look at the clock and are seen from there, on the thread that makes them.
std::atomic<int> gReporter{0};
std::vector<std::string> gReports;
std::atomic<unsigned int> gReads{0};

int noteReport(clockid_t clock, timespec* now) {
    utl::ThreadWatchdog& watchdog = utltest::ThreadManagerAccess::watchdog();
    if (gReporter == kernelId() && utltest::ThreadWatchdogAccess::isInKeepAlive(watchdog)) {
        utl::StatementInfo const place =
            utltest::ThreadWatchdogAccess::copyInfo(watchdog, kernelId()).lastStatement;
        gReports.push_back(std::string(place.function) + " " + std::to_string(place.sub));
    }
    return hooks::clockGetTime.real(clock, now);
}

ssize_t noteRead(int handle, void* buffer, size_t bytes) {
    if (gReporter == kernelId()) {
        gReports.push_back("read");
    }
    gReads += handle == timerCalls().readEnd ? 1U : 0U;
    return readHook(handle, buffer, bytes);
}

void waitForReadBehind(unsigned int before) {
    while (gReads == before) {
        std::this_thread::yield();
    }
}

TEST_F(SharedTimerWatched, TheThread_IsWatchedWhileItWorksAndNotWhileItSleeps) {
    utl::ThreadManager* const manager = utl::ThreadManager::get();
    std::atomic<int> watched{-1};
    Ticker ticker([&](int) { watched = manager->isWatchingWatchdog(0) ? 1 : 0; });
    ScopedTimers timers(8, "watched", 1, LONG);
    EXPECT_TRUE(manager->isRegisteredWatchdog(timers->getId()));
    ASSERT_TRUE(timers->start(timers->addTimer(&ticker, 1, 1)));
    ASSERT_TRUE(ticker.waitFor(1));
    while (manager->isWatchingWatchdog(timers->getId())) {
        std::this_thread::yield();
    }
    EXPECT_EQ(watched, 1);
    EXPECT_EQ(std::string(lastStatement(timers->getId()).file), "source/UtlSharedTimer");
    EXPECT_EQ(std::string(lastStatement(timers->getId()).function), "execute");
    EXPECT_EQ(lastStatement(timers->getId()).sub, 0U);
}

TEST_F(SharedTimerWatched, AThreadWhoseReadFails_IsNotRegisteredAnyMore) {
    utl::ThreadManager* const manager = utl::ThreadManager::get();
    ScopedTimers timers(8, "watched", 1, LONG);
    ASSERT_TRUE(manager->isRegisteredWatchdog(timers->getId()));
    calls().read.failFrom(1, 0, EIO);
    EXPECT_TRUE(timers->eraseTimer(UNKNOWN, 1));
    ASSERT_EQ(timers->waitTo(utl::Thread::FINISHED), 0);
    EXPECT_FALSE(manager->isRegisteredWatchdog(timers->getId()));
}

TEST_F(SharedTimerWatched, AThreadWhoseObjectGoesWithoutDestroy_IsNotRegisteredAnyMore) {
    utl::ThreadManager* const manager = utl::ThreadManager::get();
    int id = 0;
    {
        utl::SharedTimer timers(1, LONG, nullptr, 8, "watched");
        id = timers.getId();
        ASSERT_TRUE(manager->isRegisteredWatchdog(id));
    }
    EXPECT_FALSE(manager->isRegisteredWatchdog(id));
    EXPECT_TRUE(manager->unregister(id));
}

TEST_F(SharedTimerWatched, TheForwarders_ReachTheThreadsEntry) {
    utl::ThreadManager* const manager = utl::ThreadManager::get();
    gReads = 0;
    hooks::read.replace(noteRead);
    ScopedTimers timers(8, "watched", 1, LONG);
    int const id = timers->getId();
    waitForReadBehind(0);
    EXPECT_TRUE(timers->startThreadWatchdog());
    EXPECT_TRUE(manager->isWatchingWatchdog(id));
    EXPECT_TRUE(timers->stopThreadWatchdog());
    EXPECT_FALSE(manager->isWatchingWatchdog(id));
    EXPECT_TRUE(timers->setThreadWatchdogAliveTime(LONG + 1));
    EXPECT_EQ(utltest::ThreadManagerAccess::watchdog().findWatchdogInfo(id)->aliveTime, LONG + 1);
    EXPECT_FALSE(timers->setThreadWatchdogAliveTime(0));
    ScopedTimers other;
    EXPECT_FALSE(other->startThreadWatchdog());
    EXPECT_FALSE(other->stopThreadWatchdog());
    EXPECT_FALSE(other->setThreadWatchdogAliveTime(1));
}

TEST_F(SharedTimerWatched, EachCallForASystemTimer_IsReportedInFrontOfIt) {
    mPlaces.clear();
    hooks::timerCreate.replace(+[](clockid_t clock, sigevent* event, timer_t* timer) {
        noteStatement();
        return createTimerHook(clock, event, timer);
    });
    hooks::timerSetTime.replace(+[](timer_t timer, int flags, itimerspec const* spec, itimerspec* old) {
        noteStatement();
        return setTimerHook(timer, flags, spec, old);
    });
    hooks::timerDelete.replace(+[](timer_t timer) {
        noteStatement();
        return deleteTimerHook(timer);
    });
    ScopedTimers timers(8, "watched", 1, LONG);
    int const timer = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(timers->stop(timer));
    EXPECT_EQ(mPlaces, (std::vector<std::string>{"startTimerByTimerInfo 1", "startTimerByTimerInfo 1",
                                                 "stopTimerByTimerInfo 1"}));
}

/// A watched thread whose reports are noted from its first sleep on until it has served what `requests` asks.
std::vector<std::string> reportsOf(std::function<void(utl::SharedTimer&)> const& requests) {
    gReports.clear();
    gReads = 0;
    hooks::read.replace(noteRead);
    hooks::clockGetTime.replace(noteReport);
    utl::SharedTimer timers(1, LONG, nullptr, 8, "watched");
    waitForReadBehind(0);
    gReporter = timers.getId();
    requests(timers);
    waitForReadBehind(1);
    timers.destroy();
    gReporter = 0;
    return gReports;
}

TEST_F(SharedTimerWatched, TheThread_ReportsBehindAReadBehindItsEntryAndInFrontOfTheNextRead) {
    EXPECT_EQ(reportsOf([](utl::SharedTimer& timers) { EXPECT_TRUE(timers.eraseTimer(UNKNOWN, 1)); }),
              (std::vector<std::string>{"execute 0", "execute 0", "execute 0", "read"}));
}

TEST_F(SharedTimerWatched, EachCallForASystemTimer_IsReportedInFrontOfItAndBehind) {
    std::vector<std::string> const all = reportsOf([](utl::SharedTimer& timers) {
        int const timer = timers.addTimer(nullptr, LONG);
        EXPECT_TRUE(timers.start(timer));
        EXPECT_TRUE(timers.stop(timer));
    });
    std::vector<std::string> reports;
    std::copy_if(all.begin(), all.end(), std::back_inserter(reports), [](std::string const& report) {
        return report != "read" && report.compare(0, 7, "execute") != 0;
    });
    EXPECT_EQ(reports, (std::vector<std::string>{"startTimerByTimerInfo 1", "startTimerByTimerInfo 2",
                                                 "startTimerByTimerInfo 1", "startTimerByTimerInfo 2",
                                                 "stopTimerByTimerInfo 1", "stopTimerByTimerInfo 2"}));
}

TEST_F(SharedTimerWatched, EachCallOfTheConstructor_IsReportedInFrontOfItAndBehind) {
    utl::ThreadManager* const manager = utl::ThreadManager::get();
    ASSERT_NE(manager->entryCaller(1, LONG, nullptr, "caller"), 0);
    ASSERT_TRUE(manager->startWatchdog(0));
    mPlaces.clear();
    // Every report of the caller asks for the time.
    static std::atomic<unsigned int> reports{0};
    static int const caller = kernelId();
    hooks::clockGetTime.replace(+[](clockid_t clock, timespec* now) {
        reports += kernelId() == caller ? 1U : 0U;
        return hooks::clockGetTime.real(clock, now);
    });
    static unsigned int reportsAtPipe = 0;
    static unsigned int reportsAtSigAction = 0;
    hooks::pipe.replace(+[](int* ends) {
        noteStatement();
        reportsAtPipe = reports;
        return pipeHook(ends);
    });
    hooks::sigAction.replace(+[](int number, struct sigaction const* action, struct sigaction* old) {
        noteStatement();
        reportsAtSigAction = reports;
        return hooks::sigAction.real(number, action, old);
    });
    ScopedTimers const timers;
    EXPECT_EQ(mPlaces, (std::vector<std::string>{"SharedTimer 1", "installTimeoutSignalHandler 1",
                                                 "installTimeoutSignalHandler 1"}));
    EXPECT_EQ(reportsAtSigAction - reportsAtPipe, 4U)
        << "behind the pipe, around the signal set, in front of the signal action";
    EXPECT_TRUE(manager->unregister(kernelId()));
}

}  // namespace

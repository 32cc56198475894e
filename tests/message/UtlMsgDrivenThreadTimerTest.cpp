// Timers of message threads.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <future>
#include <set>
#include <string>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "UtlThreadManager.h"
#include "UtlTimeCounter.h"
#include "internal/message/UtlSystemTimer.h"
#include "internal/message/UtlTimerSteps.h"

using namespace utltest;

namespace {

constexpr int FIRST = 100;

int timerSignal() {
    return SIGRTMIN + 2;
}

// Works on the message thread of `thread`, whose listener `collector` is.
template <typename WORK>
void runOn(ScopedMsgThread& thread, Collector& collector, WORK work) {
    collector.onMsg = [&](int id, int) {
        if (id == FIRST) {
            work();
        }
    };
    ASSERT_EQ(thread.sendMsgSync(FIRST), 1);
    ASSERT_EQ(thread.sendMsgSync(FIRST + 1), 1);
    collector.onMsg = MsgHandler::Function();
}

// A blocker's handler that does `work` before it blocks.
template <typename WORK>
void beforeBlocking(BlockedRoad& road, WORK work) {
    auto const block = road.collector.onMsg.get();
    road.collector.onMsg = [block, work](int id, int number) {
        if (id == BLOCKER) {
            work();
        }
        block(id, number);
    };
}

std::string stamped(std::string const& text, int error) {
    return "<UTIL> ERR: " + text + std::to_string(error);
}

using MsgTimer = WithoutWatchdogThread;

TEST_F(MsgTimer, SetTimer_AOneShot_FiresOnceAsATimerMsgAndIsGone) {
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    utl::TimeCounter elapsed;
    elapsed.start();
    int const timer = thread.setTimer(20, 0, 1, 0);
    EXPECT_EQ(timer, 1);
    ASSERT_TRUE(collector.waitFor(1));
    EXPECT_GE(elapsed.watch(), 19U);
    EXPECT_EQ(collector.received()[0], (Collector::Received{thread.getId(), utl::MSG_ID_TIMER, timer}));
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(thread.erasedTimers(), std::vector<int>{timer});
    EXPECT_EQ(thread.findTimer(timer), nullptr);
    EXPECT_FALSE(thread.startTimer(timer));
    EXPECT_FALSE(thread.killTimer(timer));
}

TEST_F(MsgTimer, SetTimer_WithARepeatCountOfThree_GivesThreeMessagesAndThenTheHook) {
    for (int const autoRepeat : {0, 1}) {
        Collector collector;
        ScopedMsgThread thread;
        size_t erasedAtLast = 99;
        collector.onMsg = [&](int, int) { erasedAtLast = thread.erasedTimers().size(); };
        ASSERT_EQ(thread.start(&collector), 0);
        int const timer = thread.setTimer(2, 0, 3, autoRepeat);
        ASSERT_GT(timer, 0);
        ASSERT_TRUE(collector.waitFor(3));
        EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
        EXPECT_EQ(collector.received().size(), 4U);
        EXPECT_EQ(thread.erasedTimers(), std::vector<int>{timer});
    }
}

TEST_F(MsgTimer, SetTimer_WithoutARepeatCount_FiresUntilItIsKilled) {
    for (int const autoRepeat : {0, 1}) {
        Collector collector;
        ScopedMsgThread thread;
        ASSERT_EQ(thread.start(&collector), 0);
        int const timer = thread.setTimer(1, 0, 0, autoRepeat);
        ASSERT_TRUE(collector.waitFor(20));
        EXPECT_TRUE(thread.killTimer(timer));
        size_t const atKill = collector.received().size();
        EXPECT_EQ(thread.erasedTimers(), std::vector<int>{timer});
        utl::Thread::sleep(20);
        EXPECT_EQ(collector.received().size(), atKill);
    }
}

TEST_F(MsgTimer, SetTimer_OnTheMessageThread_RunsAtOnce) {
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    int timer = 0;
    runOn(thread, collector, [&] {
        timer = thread.setTimer(1, 0, 2, 1);
        EXPECT_TRUE(thread.findTimer(timer)->mRunning->isOn());
    });
    ASSERT_GT(timer, 0);
    ASSERT_TRUE(collector.waitFor(4));
}

TEST_F(MsgTimer, SetTimer_WithoutWaiting_ReturnsWhileTheThreadIsBusy) {
    BlockedRoad road;
    road.startAndBlock();
    int const timer = road.thread.setTimer(1, 1, 1, 0);
    EXPECT_EQ(timer, 1);
    EXPECT_TRUE(road.thread.findTimer(timer)->mRunning->isOff());
    road.gate.open();
    ASSERT_TRUE(road.collector.waitFor(2));
}

TEST_F(MsgTimer, ATimerThatEndsBeforeItsStarterLooks_CountsAsStarted) {
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    for (int i = 1; i <= 200; ++i) {
        ASSERT_EQ(thread.setTimer(1, 0, 1, i % 2), i);
        ASSERT_TRUE(collector.waitFor(static_cast<size_t>(i)));
    }
}

TEST_F(MsgTimer, RegisterTimer_MakesATimerThatDoesNotRun) {
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    int const timer = thread.registerTimer(1, 1, 0);
    EXPECT_EQ(timer, 1);
    EXPECT_EQ(thread.findTimer(timer)->mSysTimerNum, -1);
    EXPECT_TRUE(thread.findTimer(timer)->mRunning->isOff());
    EXPECT_TRUE(thread.startTimer(timer));
    ASSERT_TRUE(collector.waitFor(1));
}

TEST_F(MsgTimer, RegisterTimer_BeforeTheStartAndAfterTheStop_IsRefused) {
    Collector collector;
    ScopedMsgThread thread;
    EXPECT_EQ(thread.registerTimer(1, 0, 0), -1);
    EXPECT_EQ(thread.setTimer(1, 0, 0, 0), -1);
    ASSERT_EQ(thread.start(&collector), 0);
    int const timer = thread.registerTimer(1, 0, 0);
    thread.stop(1, 0);
    EXPECT_EQ(thread.registerTimer(1, 0, 0), -1);
    EXPECT_EQ(thread.setTimer(1, 0, 0, 0), -1);
    EXPECT_FALSE(thread.startTimer(timer));
    EXPECT_FALSE(thread.killTimer(timer));
}

TEST_F(MsgTimer, ATimerCountAtItsMaximum_RefusesTheNext) {
    Collector collector;
    ScopedMsgThread thread(64, 16, "full", 3);
    ASSERT_EQ(thread.start(&collector), 0);
    for (unsigned int left = 3; left > 0; --left) {
        EXPECT_EQ(thread.remTimerIdCount(), left);
        EXPECT_GT(thread.registerTimer(1000, 0, 0), 0);
    }
    EXPECT_EQ(thread.remTimerIdCount(), 0U);
    EXPECT_EQ(thread.registerTimer(1000, 0, 0), -1);
    EXPECT_EQ(thread.setTimer(1000, 0, 0, 0), -1);
    runOn(thread, collector, [&] { EXPECT_EQ(thread.setTimer(1000, 0, 0, 0), -1); });
    EXPECT_TRUE(thread.killTimer(2));
    EXPECT_EQ(thread.setTimer(1000, 0, 0, 0), 4);
}

TEST_F(MsgTimer, AThreadWithoutRoomForTimers_HasNone) {
    Collector collector;
    ScopedMsgThread thread(64, 16, "none", 0);
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.remTimerIdCount(), 0U);
    EXPECT_EQ(thread.registerTimer(1, 0, 0), -1);
}

TEST_F(MsgTimer, StartTimer_OfARunningTimer_LeavesItAsItIs) {
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    int const timer = thread.setTimer(1, 0, 0, 1);
    ASSERT_TRUE(collector.waitFor(5));
    EXPECT_TRUE(thread.startTimer(timer, 0));
    runOn(thread, collector, [&] {
        unsigned int const fired = thread.findTimer(timer)->mFireCount;
        EXPECT_GE(fired, 4U);
        EXPECT_TRUE(thread.startTimer(timer, 0));
        EXPECT_EQ(thread.findTimer(timer)->mFireCount, fired);
        EXPECT_TRUE(thread.findTimer(timer)->mRunning->isOn());
    });
}

TEST_F(MsgTimer, StartTimer_OfAnUnknownId_IsFalseFromOutsideAndTrueOnTheMessageThread) {
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_FALSE(thread.startTimer(7, 0));
    EXPECT_FALSE(thread.startTimer(7, 1));
    runOn(thread, collector, [&] { EXPECT_TRUE(thread.startTimer(7, 0)); });
}

TEST_F(MsgTimer, KillTimer_OfAnUnknownId_IsFalse) {
    Collector collector;
    ScopedMsgThread thread;
    EXPECT_FALSE(thread.killTimer(1));
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_FALSE(thread.killTimer(1));
    EXPECT_FALSE(thread.killTimer(-1));
    runOn(thread, collector, [&] { EXPECT_FALSE(thread.killTimer(1)); });
    EXPECT_TRUE(thread.erasedTimers().empty());
}

TEST_F(MsgTimer, KillTimer_FromTheHandlerOfTheSameTimer_EndsIt) {
    Collector collector;
    ScopedMsgThread thread;
    std::atomic<int> kills{0};
    collector.onMsg = [&](int id, int timer) {
        if (id == utl::MSG_ID_TIMER) {
            kills += thread.killTimer(timer, 0) ? 1 : 0;
            EXPECT_EQ(thread.TimeoutPostHandling(timer), 1);
        }
    };
    ASSERT_EQ(thread.start(&collector), 0);
    int const timer = thread.setTimer(1, 0, 0, 1);
    ASSERT_TRUE(collector.waitFor(1));
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(kills, 1);
    EXPECT_EQ(thread.erasedTimers(), std::vector<int>{timer});
}

TEST_F(MsgTimer, KillTimer_FromOutsideWithTimeoutsQueued_DeliversNoneOfThem) {
    for (int const noWait : {0, 1}) {
        BlockedRoad road;
        ASSERT_EQ(road.thread.start(&road.collector), 0);
        int const timer = road.thread.setTimer(1, 0, 0, 1);
        ASSERT_TRUE(road.collector.waitFor(3));
        Gate entered;
        Gate go;
        road.onOther = [&](int, int) {
            entered.open();
            go.wait();
        };
        ASSERT_TRUE(entered.wait());
        auto killed = std::async(std::launch::async, [&] { return road.thread.killTimer(timer, noWait); });
        if (noWait != 0) {
            EXPECT_TRUE(killed.get());
        } else {
            while (road.thread.findTimer(timer) != nullptr) {
                std::this_thread::yield();
            }
        }
        size_t const before = road.collector.received().size();
        go.open();
        EXPECT_EQ(road.thread.sendMsgSync(BLOCKER + 1), 1);
        EXPECT_EQ(road.collector.received().size(), before + 1);
        if (noWait == 0) {
            EXPECT_TRUE(killed.get());
        }
    }
}

// While the handler of one timeout is busy, the timer expires many times.
TEST_F(MsgTimer, Expiries_WhileTheListenerIsBusy_AreCoalescedToOneOrTwo) {
    for (int const autoRepeat : {0, 1}) {
        Collector collector;
        Gate entered;
        Gate go;
        ScopedMsgThread thread;
        ASSERT_EQ(thread.start(&collector), 0);
        collector.onMsg = [&](int id, int) {
            if (id == FIRST) {
                entered.open();
                go.wait();
            }
        };
        ASSERT_EQ(thread.postMsg(FIRST), 1);
        ASSERT_TRUE(entered.wait());
        hooks::write.reset();
        int const timer = thread.setTimer(1, 1, 0, autoRepeat);
        ASSERT_GT(timer, 0);
        go.open();
        ASSERT_TRUE(collector.waitFor(2));
        unsigned int pending = 0;
        runOn(thread, collector, [&] {
            utl::Thread::sleep(30);
            pending = thread.findTimer(timer)->mPendingCount;
        });
        EXPECT_LE(pending, autoRepeat != 0 ? 2U : 1U);
        EXPECT_TRUE(thread.killTimer(timer));
    }
}

TEST_F(MsgTimer, WithoutAutoRepeat_TheSystemTimerIsMadeAnewBehindEachHandler) {
    HookScope const scope;
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    ASSERT_GT(thread.setTimer(1, 0, 4, 0), 0);
    ASSERT_TRUE(collector.waitFor(4));
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(hooks::timerCreate.calls(), 4U);
    EXPECT_EQ(hooks::timerDelete.calls(), 4U);
}

TEST_F(MsgTimer, WithAutoRepeat_TheSystemTimerRunsOn) {
    HookScope const scope;
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    ASSERT_GT(thread.setTimer(1, 0, 4, 1), 0);
    ASSERT_TRUE(collector.waitFor(4));
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(hooks::timerCreate.calls(), 1U);
    EXPECT_EQ(hooks::timerDelete.calls(), 1U);
}

std::atomic<long> gSeconds{-1};
std::atomic<long> gNanoseconds{-1};

TEST_F(MsgTimer, AnIntervalOf1500_IsOneSecondAndAHalfForValueAndPeriod) {
    HookScope const scope;
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    hooks::timerSetTime.replace(+[](timer_t timer, int flags, itimerspec const* spec, itimerspec* old) {
        bool const isPeriodic = flags == 0 && spec->it_value.tv_sec == spec->it_interval.tv_sec &&
                                spec->it_value.tv_nsec == spec->it_interval.tv_nsec;
        gSeconds = isPeriodic ? static_cast<long>(spec->it_value.tv_sec) : -2;
        gNanoseconds = spec->it_value.tv_nsec;
        return hooks::timerSetTime.real(timer, flags, spec, old);
    });
    ASSERT_GT(thread.setTimer(1500, 0, 0, 0), 0);
    EXPECT_EQ(gSeconds, 1);
    EXPECT_EQ(gNanoseconds, 500000000);
    ASSERT_GT(thread.setTimer(UINT_MAX, 0, 0, 0), 0);
    EXPECT_EQ(gSeconds, 4294967);
    EXPECT_EQ(gNanoseconds, 295000000);
}

TEST_F(MsgTimer, AnIntervalOfZero_RunsAndNeverFires) {
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    int const timer = thread.setTimer(0, 0, 1, 0);
    ASSERT_GT(timer, 0);
    utl::Thread::sleep(20);
    EXPECT_TRUE(thread.findTimer(timer)->mRunning->isOn());
    EXPECT_TRUE(collector.received().empty());
    EXPECT_TRUE(thread.killTimer(timer));
}

TEST_F(MsgTimer, TimerCreate_ThatFails_IsLoggedAndTheTimerIsNotThere) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread(64, 16, "create", 2);
    ASSERT_EQ(thread.start(&collector), 0);
    std::string const line =
        stamped("MsgDrivenThread(create) timer_create SysTimerId:0x00000000 errno:", EAGAIN);
    hooks::timerCreate.failFrom(1, 2, -1, EAGAIN);
    EXPECT_EQ(thread.setTimer(1, 0, 0, 0), -1);
    EXPECT_EQ(log.count(line), 1U);
    EXPECT_TRUE(log.waitFor("<UTIL> ERR: !!!!!!!! MsgDrivenThread(create) Error. MsgId:0x80000006 !!!!!!!!"));
    EXPECT_EQ(thread.remTimerIdCount(), 2U);
    runOn(thread, collector, [&] { EXPECT_EQ(thread.setTimer(1, 0, 0, 0), -1); });
    EXPECT_EQ(log.count(line), 2U);
    EXPECT_EQ(thread.remTimerIdCount(), 2U);
    EXPECT_EQ(thread.setTimer(1, 0, 1, 0), 2);
}

// The text ends in a line feed of its own; callers who read the log know it.
TEST_F(MsgTimer, TheLineOfAFailedTimerCreate_EndsInALineFeedOfItsOwn) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    hooks::timerCreate.failFrom(1, 1, -1, EAGAIN);
    EXPECT_EQ(thread.setTimer(1, 0, 0, 0), -1);
    std::string const line = log.console()[0];
    EXPECT_EQ(line.substr(line.size() - 3), "\n\r\n");
}

TEST_F(MsgTimer, TimerSetTime_ThatFails_IsLoggedAndTheSystemTimerIsDeleted) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread(64, 16, "settime", 2);
    ASSERT_EQ(thread.start(&collector), 0);
    int const timer = thread.registerTimer(1, 1, 0);
    hooks::timerSetTime.failFrom(1, 1, -1, EINVAL);
    EXPECT_FALSE(thread.startTimer(timer, 0));
    ASSERT_FALSE(log.lines().empty());
    EXPECT_EQ(log.lines()[0].rfind("<UTIL> ERR: MsgDrivenThread(settime) timer_settime SysTimerId:0x", 0),
              0U);
    EXPECT_NE(log.lines()[0].find(" errno:" + std::to_string(EINVAL)), std::string::npos);
    EXPECT_EQ(hooks::timerDelete.calls(), 1U);
    EXPECT_EQ(thread.findTimer(timer)->mSysTimerNum, -1);
    EXPECT_TRUE(thread.findTimer(timer)->mRunning->isOff());
    EXPECT_TRUE(thread.startTimer(timer, 0)) << "it is still registered";
    ASSERT_TRUE(collector.waitFor(1));
}

TEST_F(MsgTimer, TimerDelete_ThatFails_IsLoggedAndTheTimerStaysOnItsOwnThread) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread(64, 16, "delete", 2);
    ASSERT_EQ(thread.start(&collector), 0);
    int const timer = thread.setTimer(60000, 0, 0, 0);
    char number[16];
    snprintf(number, sizeof(number), "0x%08x",
             static_cast<unsigned int>(thread.findTimer(timer)->mSysTimerNum));
    std::string const line = stamped(
        std::string("MsgDrivenThread(delete) timer_delete SysTimerNum:") + number + " errno:", EINVAL);
    hooks::timerDelete.failFrom(1, 2, -1, EINVAL);
    runOn(thread, collector, [&] { EXPECT_FALSE(thread.killTimer(timer, 0)); });
    EXPECT_EQ(log.count(line), 1U);
    EXPECT_NE(thread.findTimer(timer), nullptr);
    // From outside the timer is given up all the same, and the loop says so.
    EXPECT_TRUE(thread.killTimer(timer, 0));
    EXPECT_EQ(log.count(line), 2U);
    EXPECT_TRUE(log.waitFor("MsgDrivenThread(delete) Error. MsgId:0x80000007"));
    EXPECT_EQ(thread.findTimer(timer), nullptr);
}

TEST_F(MsgTimer, ARestartThatFails_IsLoggedAndTheTimerStandsStill) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread(64, 16, "restart", 2);
    ASSERT_EQ(thread.start(&collector), 0);
    hooks::timerCreate.failFrom(2, 1, -1, EAGAIN);
    int const timer = thread.setTimer(1, 0, 0, 0);
    ASSERT_TRUE(log.waitFor("Error. MsgId:0x80000008"));
    EXPECT_EQ(log.count("<UTIL> ERR: !!!!!!!! MsgDrivenThread(restart) Error. MsgId:0x80000008 !!!!!!!!"),
              1U);
    EXPECT_EQ(collector.received().size(), 1U);
    EXPECT_TRUE(thread.findTimer(timer)->mRunning->isOn());
    EXPECT_EQ(thread.findTimer(timer)->mSysTimerNum, -1);
    EXPECT_TRUE(thread.killTimer(timer, 0));
}

TEST_F(MsgTimer, ATimeoutThatDoesNotFitAFrame_GivesTheErrorLine) {
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread(3, 16, "small", 2);
    ASSERT_EQ(thread.start(&collector), 0);
    ASSERT_GT(thread.setTimer(1, 0, 1, 1), 0);
    ASSERT_TRUE(log.waitFor("MsgDrivenThread(small) Error. MsgId:0x80000008"));
    EXPECT_TRUE(collector.received().empty());
}

// The process has had no message thread yet.
TEST(MsgTimerOfAFreshProcess, SigAction_ThatFails_IsLoggedAndTheNextConstructorTriesAgain) {
    HookScope const scope;
    LogCapture log;
    hooks::sigAction.failFrom(1, 1, -1, EINVAL);
    {
        ScopedMsgThread const thread;
        EXPECT_EQ(log.lines(),
                  (std::vector<std::string>{stamped("MsgDrivenThread sigaction  errno:", EINVAL)}));
    }
    ScopedMsgThread const second;
    EXPECT_EQ(hooks::sigAction.calls(), 3U) << "it asks for the handler of before, and sets its own";
    ScopedMsgThread const third;
    EXPECT_EQ(hooks::sigAction.calls(), 3U);
    struct sigaction action;
    ASSERT_EQ(hooks::sigAction.real(timerSignal(), nullptr, &action), 0);
    EXPECT_EQ(action.sa_sigaction, &utl::MsgDrivenThread::TimeoutSignalHandler);
    EXPECT_EQ(action.sa_flags & (SA_SIGINFO | SA_RESTART), SA_SIGINFO | SA_RESTART);
}

TEST_F(MsgTimer, SetTimer_ThatCannotBeAnnounced_LeavesNothingBehind) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    hooks::write.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(thread.setTimer(1, 0, 0, 0), -1);
    EXPECT_EQ(thread.remTimerIdCount(), 4U);
    EXPECT_TRUE(thread.eraseMsgFromCtlQueue(utl::MSG_ID_CTL_START_TIMER))
        << "the entry stays, as told by the line";
    EXPECT_EQ(thread.setTimer(1, 0, 1, 0), 1);
    ASSERT_TRUE(collector.waitFor(1));
}

TEST_F(MsgTimer, KillTimer_ThatCannotBeAnnounced_LeavesTheTimerRunning) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    int const timer = thread.setTimer(5, 0, 0, 1);
    ASSERT_GT(timer, 0);
    // The handler's tokens are written by the same call; the next kill of many meets the failing one.
    hooks::write.replace(+[](int handle, void const* token, size_t bytes) -> ssize_t {
        int id = 0;
        std::memcpy(&id, token, sizeof(id));
        if (id == utl::MSG_ID_CTL_STOP_TIMER) {
            errno = EIO;
            return -1;
        }
        return hooks::write.real(handle, token, bytes);
    });
    EXPECT_FALSE(thread.killTimer(timer, 0));
    EXPECT_TRUE(thread.erasedTimers().empty());
    EXPECT_EQ(thread.findTimerStopEntry(timer)->mSysParam, nullptr);
    EXPECT_EQ(thread.findTimerStopEntry(timer)->mSysTimerNum, -1);
    hooks::write.replace(nullptr);
    ASSERT_TRUE(thread.eraseMsgFromCtlQueue(utl::MSG_ID_CTL_STOP_TIMER));
    size_t const now = collector.received().size();
    ASSERT_TRUE(collector.waitFor(now + 3)) << "it still fires";
    EXPECT_TRUE(thread.killTimer(timer, 0));
    EXPECT_EQ(thread.findTimerStopEntry(timer), nullptr);
}

// Its entry stays, and counts: what waits for delivery is what limits the next expiries.
TEST_F(MsgTimer, AnExpiryWhoseTokenCannotBeWritten_IsLostAndDoesNotCount) {
    HookScope const scope;
    LogCapture const log;
    BlockedRoad road;
    unsigned int pending = 0;
    int timer = 0;
    road.onOther = [&](int id, int) {
        if (id == FIRST) {
            pending = road.thread.findTimer(timer)->mPendingCount;
        }
    };
    ASSERT_EQ(road.thread.start(&road.collector), 0);
    timer = road.thread.setTimer(60000, 0, 0, 1);
    ASSERT_EQ(road.thread.postMsg(BLOCKER), 1);
    ASSERT_TRUE(road.entered.wait());
    hooks::write.failFrom(2, 1, -1, EIO);
    expire(road.thread, timer);
    road.gate.open();
    ASSERT_TRUE(log.waitFor(
        stamped("MsgDrivenThread(road)::postThreadCtlMsg() Error. write Ret:4294967295 errno:", EIO)));
    EXPECT_EQ(road.thread.sendMsgInterrupt(FIRST), 1);
    EXPECT_EQ(pending, 0U);
    // The next expiry passes by what was left of it.
    expire(road.thread, timer);
    ASSERT_TRUE(road.collector.waitFor(3));
    EXPECT_EQ(road.collector.received().back().id, utl::MSG_ID_TIMER);
    EXPECT_EQ(road.thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(pending, 0U);
    EXPECT_EQ(road.collector.received().size(), 4U);
}

TEST_F(MsgTimer, AnExpiryThatFindsNoPlaceInTheQueue_DoesNotCount) {
    LogCapture const log;
    BlockedRoad road(64, 1);
    ASSERT_EQ(road.thread.start(&road.collector), 0);
    int const timer = road.thread.setTimer(60000, 0, 0, 0);
    ASSERT_EQ(road.thread.postMsg(BLOCKER), 1);
    ASSERT_TRUE(road.entered.wait());
    expire(road.thread, timer);
    while (road.thread.postThreadCtlMsg(utl::MSG_ID_CTL_WAKE, -1) == 1) {
    }
    road.gate.open();
    ASSERT_TRUE(log.waitFor(
        "<UTIL> ERR: MsgDrivenThread(road) Overflow ThreadCtlMsgQueue  MaxCount:257 MsgId:0x80000008"));
    road.thread.eraseMsgFromCtlQueue(utl::MSG_ID_CTL_WAKE);  // those that the loop has not come to yet
    ASSERT_EQ(road.thread.sendMsgSync(FIRST), 1);
    expire(road.thread, timer);
    ASSERT_TRUE(road.collector.waitFor(3));
    EXPECT_EQ(road.collector.received().back().id, utl::MSG_ID_TIMER);
}

TEST_F(MsgTimer, KillTimer_WhoseCopyIsRefused_EndsTheTimerAtOnce) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread(64, 16, "one", 1);
    ASSERT_EQ(thread.start(&collector), 0);
    // A kill that could not be announced leaves its copy, which takes the only place.
    int const first = thread.registerTimer(1, 1, 0);
    hooks::write.failFrom(1, 1, -1, EIO);
    EXPECT_FALSE(thread.killTimer(first, 0));
    ASSERT_TRUE(thread.eraseMsgFromCtlQueue(utl::MSG_ID_CTL_STOP_TIMER));
    ASSERT_TRUE(thread.startTimer(first, 0));
    ASSERT_TRUE(collector.waitFor(1));
    ASSERT_EQ(thread.sendMsgSync(FIRST), 1);
    int const second = thread.setTimer(60000, 0, 0, 1);
    ASSERT_EQ(second, 2);
    hooks::timerDelete.reset();
    EXPECT_TRUE(thread.killTimer(second, 0));
    EXPECT_EQ(hooks::timerDelete.calls(), 1U);
    EXPECT_EQ(thread.remTimerIdCount(), 1U);
    EXPECT_EQ(thread.erasedTimers(), (std::vector<int>{first, second}));
}

TEST_F(MsgTimer, TheEndOfTheLoop_TakesEveryTimerAway) {
    HookScope const scope;
    Collector collector;
    ScopedMsgThread thread(64, 16, "end", 4);
    ASSERT_EQ(thread.start(&collector), 0);
    ASSERT_EQ(thread.setTimer(60000, 0, 0, 1), 1);
    ASSERT_EQ(thread.registerTimer(1, 0, 1), 2);
    ASSERT_EQ(thread.setTimer(60000, 0, 0, 0), 3);
    thread.stop(1, 0);
    EXPECT_EQ(thread.erasedTimers(), (std::vector<int>{3, 2, 1}));
    EXPECT_EQ(thread.remTimerIdCount(), 4U);
    EXPECT_EQ(hooks::timerDelete.calls(), 2U);
}

TEST_F(MsgTimer, StartsAndKillsThatWait_WhoseLoopEndsFirst_AreReleased) {
    for (int round = 0; round < 20; ++round) {
        HookScope const scope;
        LogCapture const log;
        BlockedRoad road;
        road.startAndBlock();
        int const timer = road.thread.registerTimer(60000, 0, 0);
        hooks::write.reset();
        std::future<bool> other;
        std::future<int> set;
        if (round % 2 == 0) {
            set = std::async(std::launch::async, [&] { return road.thread.setTimer(1, 0, 0, 0); });
        } else {
            other = std::async(std::launch::async, [&] { return road.thread.startTimer(timer, 0); });
        }
        waitForTokens(1);
        hooks::read.failFrom(1, 0, -1, EIO);
        road.gate.open();
        if (round % 2 == 0) {
            EXPECT_EQ(set.get(), -1);
        } else {
            EXPECT_FALSE(other.get());
        }
        EXPECT_EQ(road.thread.waitTo(3, 0), 0);
    }
}

TEST_F(MsgTimer, TimerIds_RiseAndAreNotUsedAgain) {
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    for (int i = 1; i < 50; ++i) {
        ASSERT_EQ(thread.setTimer(60000, 0, 0, 0), i);
        ASSERT_TRUE(thread.killTimer(i, i % 2));
    }
}

TEST_F(MsgTimer, TheIdBehindTheLargest_IsOne) {
    EXPECT_EQ(utl::nextTimerId(1), 2);
    EXPECT_EQ(utl::nextTimerId(INT_MAX - 1), INT_MAX);
    EXPECT_EQ(utl::nextTimerId(INT_MAX), 1);
    EXPECT_EQ(utl::nextTimerId(-1), 1);
    EXPECT_EQ(utl::nextTimerId(0), 1);
}

TEST_F(MsgTimer, GetNextSysTimerNumber_StepsOn) {
    Collector collector;
    ScopedMsgThread thread;
    EXPECT_EQ(thread.getNextSysTimerNumber(), 2);
    EXPECT_EQ(thread.getNextSysTimerNumber(), 3);
}

TEST_F(MsgTimer, ToUserTimerId_OfNoNumber_IsMinusOne) {
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.toUserTimerId(-1), -1);
    EXPECT_EQ(thread.toUserTimerId(12345678), -1);
    int const timer = thread.setTimer(60000, 0, 0, 0);
    EXPECT_EQ(thread.toUserTimerId(thread.findTimer(timer)->mSysTimerNum), timer);
    ASSERT_EQ(thread.registerTimer(1, 0, 0), 2);
    EXPECT_EQ(thread.toUserTimerId(-1), -1) << "also while a timer without a number is there";
}

TEST_F(MsgTimer, ASignalOfATimerThatIsGone_IsDropped) {
    LogCapture const log;
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    hooks::write.reset();
    siginfo_t info = {};
    info.si_timerid = 4711;
    info.si_value.sival_int = 1;
    utl::MsgDrivenThread::TimeoutSignalHandler(timerSignal(), &info, nullptr);
    EXPECT_EQ(hooks::write.calls(), 0U);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(MsgTimer, TheHandler_ReportsAShortWriteAndKeepsErrno) {
    HookScope const scope;
    LogCapture const log;
    Collector collector;
    static std::atomic<int> pipeEnd{-1};
    hooks::pipe.replace(+[](int* ends) {
        int const result = hooks::pipe.real(ends);
        pipeEnd = ends[1];
        return result;
    });
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    int const timer = thread.setTimer(60000, 0, 0, 1);
    siginfo_t info = {};
    info.si_timerid = thread.findTimer(timer)->mSysTimerNum;
    info.si_value.sival_int = pipeEnd;
    hooks::write.failFrom(1, 1, -1, EIO);
    errno = ENOTTY;
    utl::MsgDrivenThread::TimeoutSignalHandler(timerSignal(), &info, nullptr);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  "<UTIL> ERR: MsgDrivenThread::TimeoutSignalHandler() Error. write Ret:4294967295 errno:" +
                  std::to_string(EIO) + " SysTimerNum=" + std::to_string(info.si_timerid) +
                  " PIPE=" + std::to_string(pipeEnd)}));
    // The token that did not get through does not count.
    utl::MsgDrivenThread::TimeoutSignalHandler(timerSignal(), &info, nullptr);
    ASSERT_TRUE(collector.waitFor(1));
    EXPECT_EQ(collector.received()[0].number, timer);
}

TEST_F(MsgTimer, TheKernelsNumber_IsTheOneOfTheSignal_AlsoZeroAndForManyTimersAtOnce) {
    Collector collector;
    ScopedMsgThread thread(64, 512, "numbers", 300);
    ASSERT_EQ(thread.start(&collector), 0);
    std::set<int> numbers;
    std::set<int> timers;
    for (int i = 0; i < 300; ++i) {
        int const timer = thread.setTimer(50, 0, 1, 1);
        ASSERT_GT(timer, 0);
        timers.insert(timer);
        utl::TimerInfo const* const info = thread.findTimer(timer);
        if (info != nullptr) {
            numbers.insert(info->mSysTimerNum);
        }
    }
    EXPECT_EQ(numbers.count(0), 1U) << "the process's first timer";
    ASSERT_TRUE(collector.waitFor(300));
    for (Collector::Received const& one : collector.received()) {
        EXPECT_EQ(timers.erase(one.number), 1U);
    }
    EXPECT_TRUE(timers.empty());
}

TEST_F(MsgTimer, ABusyListenerUnderAFastTimer_FillsNoPipeAndCatchesUp) {
    BlockedRoad road;
    road.startAndBlock();
    int const timer = road.thread.setTimer(1, 1, 0, 1);
    road.gate.open();
    ASSERT_TRUE(road.collector.waitFor(3));
    Gate entered;
    Gate go;
    road.onOther = [&](int, int) {
        entered.open();
        go.wait();
    };
    ASSERT_TRUE(entered.wait());
    hooks::write.reset();
    utl::Thread::sleep(100);
    EXPECT_LE(hooks::write.calls(), utl::TIMER_TOKENS_MAX);
    // Of an expiry during the handler at least one token waits, whoever wrote it before the count began.
    int waiting = 0;
    while (waiting == 0) {
        ASSERT_EQ(ioctl(ThreadAccess::readEnd(road.thread), FIONREAD, &waiting), 0);
    }
    EXPECT_EQ(waiting % 8, 0);
    size_t const before = road.collector.received().size();
    road.onOther = MsgHandler::Function();
    go.open();
    ASSERT_TRUE(road.collector.waitFor(before + 10));
    EXPECT_TRUE(road.thread.killTimer(timer));
}

TEST_F(MsgTimer, AnExpiryThatComesAfterItsThreadIsGone_ReachesNoForeignFile) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, timerSignal());
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &signals, nullptr), 0);
    static std::atomic<int> pipeEnd{-1};
    HookScope const scope;
    hooks::pipe.replace(+[](int* ends) {
        int const result = hooks::pipe.real(ends);
        pipeEnd = ends[1];
        return result;
    });
    siginfo_t info = {};
    {
        Collector collector;
        ScopedMsgThread thread;
        ASSERT_EQ(thread.start(&collector), 0);
        int const timer = thread.setTimer(1, 0, 0, 1);
        info.si_timerid = thread.findTimer(timer)->mSysTimerNum;
        sigset_t pending;
        do {
            sigpending(&pending);
        } while (sigismember(&pending, timerSignal()) == 0);
        EXPECT_TRUE(thread.killTimer(timer, 0));
    }
    char path[] = "UtlTimerTestXXXXXX";
    int const file = mkstemp(path);
    ASSERT_GE(file, 0);
    unlink(path);
    int const sameNumber = file == pipeEnd ? file : dup2(file, pipeEnd);
    ASSERT_EQ(sameNumber, pipeEnd);
    // A handler that is called for the old timer, whether or not the kernel still sends its signal.
    info.si_value.sival_int = pipeEnd;
    utl::MsgDrivenThread::TimeoutSignalHandler(timerSignal(), &info, nullptr);
    ASSERT_EQ(pthread_sigmask(SIG_UNBLOCK, &signals, nullptr), 0);
    EXPECT_EQ(lseek(pipeEnd, 0, SEEK_END), 0);
}

// Tokens of timers in a pipe that is nearly full.

TEST_F(MsgTimer, AHandlerThatSetsAndKillsTimersForLong_FillsNoPipe) {
    LogCapture const log;
    Collector collector;
    ScopedMsgThread thread(64, 16, "swarm", 8);
    int posted = -1;
    collector.onMsg = [&](int id, int) {
        for (int round = 0; id == FIRST && round < 300; ++round) {
            std::vector<int> timers;
            for (int i = 0; i < 8; ++i) {
                timers.push_back(thread.setTimer(1, 0, 0, 1));
                for (unsigned int expiry = 0; expiry < utl::TIMER_TOKENS_MAX; ++expiry) {
                    expire(thread, timers.back());
                }
            }
            for (int const timer : timers) {
                EXPECT_TRUE(thread.killTimer(timer));
            }
        }
        posted = id == FIRST ? thread.postMsg(FIRST + 1) : posted;
    };
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(posted, 0) << "9600 tokens of timers that are gone are more than fit";
    EXPECT_EQ(log.lines(), (std::vector<std::string>{utltest::pipeOverflow(thread, "0x00000065")}));
    while (thread.postMsg(FIRST + 2) == 0) {
        std::this_thread::yield();
    }
    ASSERT_TRUE(collector.waitFor(2));
    ASSERT_GT(thread.setTimer(1, 0, 1, 0), 0);
    ASSERT_TRUE(collector.waitFor(3));
}

// 7400 messages wait, and the front of the pipe is a page of which one token is left: the system would call
// such a pipe full although it is not.
TEST_F(MsgTimer, AnExpiryWhileManyMessagesWait_GetsItsTokenAtOnce) {
    constexpr int WAITING = 7400;
    int const inFront = getpagesize() / 8 - 1;
    ASSERT_LT(inFront, WAITING);
    BlockedRoad road(4, WAITING);
    int timer = -1;
    beforeBlocking(road, [&] { timer = road.thread.setTimer(60000, 0, 1, 0); });
    for (int i = 1; i < inFront; ++i) {
        ASSERT_EQ(road.thread.sendMsgAsync(NumberMsg(FIRST, i)), 1);
    }
    ASSERT_EQ(road.thread.sendMsgAsync(NumberMsg(BLOCKER)), 1);
    ASSERT_EQ(road.thread.sendMsgAsync(NumberMsg(FIRST, 0)), 1);
    ASSERT_EQ(road.thread.start(&road.collector), 0);
    ASSERT_TRUE(road.entered.wait());
    ASSERT_GT(timer, 0);
    for (int i = 1; i < WAITING; ++i) {
        ASSERT_EQ(road.thread.sendMsgAsync(NumberMsg(FIRST, i)), 1);
    }
    hooks::write.reset();
    expire(road.thread, timer);
    EXPECT_EQ(hooks::write.calls(), 1U);
    road.gate.open();
    ASSERT_TRUE(road.collector.waitFor(static_cast<size_t>(inFront + WAITING + 1)));
    EXPECT_EQ(road.collector.received().back().id, utl::MSG_ID_TIMER);
}

TEST_F(MsgTimer, ATimerThatCouldNotBeDeleted_WritesIntoNoForeignFileWhenItsThreadIsGone) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, timerSignal());
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &signals, nullptr), 0);
    HookScope const scope;
    LogCapture const log;
    timer_t sysTimer = timer_t();
    siginfo_t lastExpiry = {};
    {
        Collector collector;
        ScopedMsgThread thread;
        ASSERT_EQ(thread.start(&collector), 0);
        int const timer = thread.setTimer(1, 0, 0, 1);
        ASSERT_GT(timer, 0);
        sysTimer = thread.findTimer(timer)->mSysTimerId;
        lastExpiry.si_timerid = thread.findTimer(timer)->mSysTimerNum;
        lastExpiry.si_value.sival_int = ThreadAccess::writeEnd(thread);
        hooks::timerDelete.failFrom(1, 0, -1, EINVAL);
    }
    int const pipeEnd = lastExpiry.si_value.sival_int;
    char path[] = "UtlTimerTestXXXXXX";
    int file = mkstemp(path);
    ASSERT_GE(file, 0);
    std::vector<int> others;
    while (file != pipeEnd && file < pipeEnd) {
        others.push_back(file);
        file = open(path, O_RDWR);
    }
    unlink(path);
    ASSERT_EQ(file, pipeEnd);
    hooks::write.reset();
    for (int i = 0; i < 3; ++i) {
        sigset_t pending;
        do {
            sigpending(&pending);
        } while (sigismember(&pending, timerSignal()) == 0);
        ASSERT_EQ(pthread_sigmask(SIG_UNBLOCK, &signals, nullptr), 0);
        ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &signals, nullptr), 0);
        utl::MsgDrivenThread::TimeoutSignalHandler(timerSignal(), &lastExpiry, nullptr);
    }
    EXPECT_EQ(hooks::timerDelete.real(sysTimer), 0);
    ASSERT_EQ(pthread_sigmask(SIG_UNBLOCK, &signals, nullptr), 0);
    EXPECT_EQ(hooks::write.calls(), 0U);
    EXPECT_EQ(lseek(pipeEnd, 0, SEEK_END), 0);
    for (int const other : others) {
        close(other);
    }
    close(pipeEnd);
}

#ifndef __SANITIZE_THREAD__  // which ends a process that starts threads behind a fork of several threads
enum ChildResult { CHILD_FIRED, CHILD_COULD_NOT_START, CHILD_HAS_OTHER_NUMBERS, CHILD_HEARD_NOTHING };

// What a child does; it has none of its parent's threads.
ChildResult runTimersInChild(std::vector<int> const& parentNumbers) {
    Collector collector;
    ScopedMsgThread thread(64, 16, "child");
    if (thread.start(&collector) != 0) {
        return CHILD_COULD_NOT_START;
    }
    std::vector<int> numbers;
    for (size_t i = 0; i < parentNumbers.size(); ++i) {
        int const timer = thread.setTimer(50, 0, 0, 1);
        if (timer < 0) {
            return CHILD_COULD_NOT_START;
        }
        numbers.push_back(thread.findTimer(timer)->mSysTimerNum);
    }
    if (numbers != parentNumbers) {
        return CHILD_HAS_OTHER_NUMBERS;
    }
    std::set<int> heard;
    for (size_t count = 1; heard.size() < numbers.size(); ++count) {
        if (!collector.waitFor(count)) {
            return CHILD_HEARD_NOTHING;
        }
        heard.insert(collector.received()[count - 1].number);
    }
    return CHILD_FIRED;
}

TEST_F(MsgTimer, TimersOfAChildProcess_Fire_AlthoughItsParentHasTimersWithTheSameNumbers) {
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    std::vector<int> numbers;
    for (int i = 0; i < 3; ++i) {
        int const timer = thread.setTimer(60000, 0, 0, 1);
        ASSERT_GT(timer, 0);
        numbers.push_back(thread.findTimer(timer)->mSysTimerNum);
    }
    ASSERT_EQ(thread.sendMsgSync(FIRST), 1);
    pid_t const child = fork();
    if (child == 0) {
        _exit(runTimersInChild(numbers));
    }
    ASSERT_GT(child, 0);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), CHILD_FIRED);
    expire(thread, 1);
    EXPECT_TRUE(collector.waitFor(2)) << "the parent's go on";
}
#endif

TEST_F(MsgTimer, KillTimer_ThatCannotBeAnnounced_LeavesTheTimerOnAlsoWhenItsStopEntryIsAtTheHead) {
    HookScope const scope;
    LogCapture const log;
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    int const timer = thread.setTimer(60000, 0, 0, 1);
    ASSERT_GT(timer, 0);
    hooks::write.failFrom(1, 1, -1, EIO);
    EXPECT_FALSE(thread.killTimer(timer, 0));
    EXPECT_TRUE(thread.findTimer(timer)->isRunning());
    ASSERT_NE(thread.findTimerStopEntry(timer), nullptr);
    // The token of another entry of the kind does not make the loop serve the one that was left over.
    ASSERT_EQ(thread.postThreadCtlMsg(utl::MSG_ID_CTL_STOP_TIMER, 999), 1);
    ASSERT_EQ(thread.sendMsgSync(FIRST + 1), 1);
    EXPECT_FALSE(thread.eraseMsgFromCtlQueue(utl::MSG_ID_CTL_STOP_TIMER)) << "it is dropped";
    EXPECT_NE(thread.findTimerStopEntry(timer), nullptr);
    EXPECT_TRUE(thread.findTimer(timer)->isRunning());
    for (unsigned int count = 2; count <= 4; ++count) {
        expire(thread, timer);
        ASSERT_TRUE(collector.waitFor(count)) << "it still fires";
    }
    EXPECT_TRUE(thread.killTimer(timer, 0));
    EXPECT_EQ(thread.erasedTimers(), std::vector<int>{timer});
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
}

TEST_F(MsgTimer, AKillThatWaits_WhoseLoopEndsFirst_IsReleasedAndTheTimerIsGoneOnce) {
    for (int round = 0; round < 20; ++round) {
        HookScope const scope;
        LogCapture const log;
        BlockedRoad road;
        ASSERT_EQ(road.thread.start(&road.collector), 0);
        int const timer = road.thread.setTimer(60000, 0, 0, round % 2);
        ASSERT_GT(timer, 0);
        ASSERT_EQ(road.thread.postMsg(BLOCKER), 1);
        ASSERT_TRUE(road.entered.wait());
        hooks::write.reset();
        auto killed = std::async(std::launch::async, [&] { return road.thread.killTimer(timer, 0); });
        waitForTokens(1);
        EXPECT_EQ(killed.wait_for(std::chrono::milliseconds(1)), std::future_status::timeout);
        hooks::read.failFrom(1, 0, -1, EIO);
        road.gate.open();
        EXPECT_TRUE(killed.get());
        EXPECT_EQ(road.thread.waitTo(3, 0), 0);
        EXPECT_EQ(road.thread.erasedTimers(), std::vector<int>{timer});
        EXPECT_EQ(hooks::timerDelete.calls(), 1U);
        EXPECT_EQ(road.thread.findTimerStopEntry(timer), nullptr);
    }
}

TEST_F(MsgTimer, ExpiriesDuringOneLongHandler_GiveExactlyOneTimeoutOrTwo) {
    for (int const autoRepeat : {0, 1}) {
        Collector collector;
        ScopedMsgThread thread;
        ASSERT_EQ(thread.start(&collector), 0);
        int timer = -1;
        runOn(thread, collector, [&] {
            timer = thread.setTimer(60000, 0, 0, autoRepeat);
            for (int expiry = 0; expiry < 10; ++expiry) {
                expire(thread, timer);
            }
        });
        // Behind the last expiry's token; and then behind the timeouts.
        EXPECT_EQ(thread.sendMsgSync(FIRST + 2), 1);
        EXPECT_EQ(thread.sendMsgSync(FIRST + 3), 1);
        std::vector<int> const ids = collector.ids();
        EXPECT_EQ(std::count(ids.begin(), ids.end(), utl::MSG_ID_TIMER), autoRepeat != 0 ? 2 : 1);
        EXPECT_TRUE(thread.killTimer(timer));
    }
}

// The hook behind a timer that is gone.

TEST_F(MsgTimer, OnEraseTimer_OfAKillFromOutside_RunsOnTheKillersThread) {
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    for (int const noWait : {0, 1}) {
        ASSERT_TRUE(thread.killTimer(thread.setTimer(60000, 0, 0, 1), noWait));
    }
    EXPECT_EQ(thread.erasingThreads(), std::vector<int>(2, utl::ThreadManager::getCallerId()));
}

TEST_F(MsgTimer, OnEraseTimer_OfEveryOtherEnd_RunsOnTheMessageThread) {
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    int killed = 0;
    runOn(thread, collector, [&] {
        killed = thread.setTimer(60000, 0, 0, 1);
        EXPECT_TRUE(thread.killTimer(killed, 0));
    });
    int const expired = thread.setTimer(60000, 0, 1, 0);
    expire(thread, expired);
    EXPECT_EQ(thread.sendMsgSync(FIRST + 2), 1);
    EXPECT_EQ(thread.sendMsgSync(FIRST + 3), 1);
    int const left = thread.setTimer(60000, 0, 0, 0);
    EXPECT_EQ(thread.stop(1, 0), 0);
    EXPECT_EQ(thread.erasedTimers(), (std::vector<int>{killed, expired, left}));
    EXPECT_EQ(thread.erasingThreads(), std::vector<int>(3, thread.getId()));
}

TEST_F(MsgTimer, OnEraseTimer_OfAnErasedTimeout_RunsOnTheMessageThread) {
    BlockedRoad road;
    ASSERT_EQ(road.thread.start(&road.collector), 0);
    int timer = -1;
    // The blocker is read in front of the expiry's token, and so the question stands in front of the timeout.
    road.onOther = [&](int id, int) {
        if (id == FIRST) {
            timer = road.thread.setTimer(60000, 0, 1, 0);
            road.thread.postMsg(BLOCKER);
            expire(road.thread, timer);
        }
    };
    ASSERT_EQ(road.thread.sendMsgSync(FIRST), 1);
    ASSERT_TRUE(road.entered.wait());
    hooks::write.reset();
    auto erased = std::async(std::launch::async, [&] { return road.thread.eraseMsg(utl::MSG_ID_TIMER); });
    waitForTokens(1);
    road.gate.open();
    EXPECT_TRUE(erased.get());
    EXPECT_EQ(road.thread.sendMsgSync(FIRST + 1), 1);
    EXPECT_EQ(road.thread.erasedTimers(), std::vector<int>{timer});
    EXPECT_EQ(road.thread.erasingThreads(), std::vector<int>{road.thread.getId()});
    EXPECT_EQ(road.collector.ids(), (std::vector<int>{FIRST, BLOCKER, FIRST + 1})) << "and no timeout";
}

TEST_F(MsgTimer, OnEraseTimer_OfAKillThatDoesNotWait_ComesBeforeTheSystemTimerIsDeleted) {
    HookScope const scope;
    BlockedRoad road;
    ASSERT_EQ(road.thread.start(&road.collector), 0);
    int const timer = road.thread.setTimer(60000, 0, 0, 1);
    ASSERT_EQ(road.thread.postMsg(BLOCKER), 1);
    ASSERT_TRUE(road.entered.wait());
    unsigned int deletedInHook = 99;
    bool foundInHook = true;
    road.thread.onErase = [&](int, int erased) {
        deletedInHook = hooks::timerDelete.calls();
        foundInHook = road.thread.findTimer(erased) != nullptr;
    };
    EXPECT_TRUE(road.thread.killTimer(timer, 1));
    EXPECT_EQ(road.thread.erasedTimers(), std::vector<int>{timer});
    EXPECT_EQ(deletedInHook, 0U);
    EXPECT_FALSE(foundInHook);
    EXPECT_NE(road.thread.findTimerStopEntry(timer), nullptr);
    road.gate.open();
    EXPECT_EQ(road.thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(hooks::timerDelete.calls(), 1U);
    EXPECT_EQ(road.thread.findTimerStopEntry(timer), nullptr);
}

TEST_F(MsgTimer, KillTimer_WhileAStopIsRequested_WorksAsLongAsTheLoopRuns) {
    HookScope const scope;
    BlockedRoad road;
    int own = -1;
    ASSERT_EQ(road.thread.start(&road.collector), 0);
    int const timer = road.thread.setTimer(60000, 0, 0, 1);
    ASSERT_GT(timer, 0);
    bool ownKilled = false;
    bool refusedNew = false;
    road.collector.onMsg = [&](int id, int) {
        if (id == BLOCKER) {
            own = road.thread.setTimer(60000, 0, 0, 1);
            road.entered.open();
            road.gate.wait();
            refusedNew = road.thread.setTimer(1, 0, 0, 1) == -1 && road.thread.registerTimer(1, 0, 1) == -1;
            ownKilled = road.thread.killTimer(own, 0);
        }
    };
    ASSERT_EQ(road.thread.postMsg(BLOCKER), 1);
    ASSERT_TRUE(road.entered.wait());
    EXPECT_EQ(road.thread.stop(0, 0), 0);
    EXPECT_FALSE(road.thread.startTimer(timer, 0));
    EXPECT_TRUE(road.thread.killTimer(timer, 1));
    EXPECT_EQ(road.thread.findTimer(timer), nullptr);
    road.gate.open();
    EXPECT_EQ(road.thread.waitTo(3, 0), 0);
    EXPECT_TRUE(refusedNew);
    EXPECT_TRUE(ownKilled);
    EXPECT_EQ(road.thread.erasedTimers(), (std::vector<int>{timer, own}));
    EXPECT_EQ(hooks::timerDelete.calls(), 2U);
}

TEST_F(MsgTimer, TimerIds_WrapBehindTheLargestAndSkipThoseOfLiveTimers) {
    Collector collector;
    ScopedMsgThread thread(64, 16, "wrap", 8);
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.registerTimer(1, 0, 0), 1);
    EXPECT_EQ(thread.setTimer(60000, 0, 0, 0), 2);
    EXPECT_EQ(thread.registerTimer(1, 0, 0), 3);
    EXPECT_TRUE(thread.killTimer(2, 0));
    ThreadAccess::setNextTimerId(thread, INT_MAX - 1);
    EXPECT_EQ(thread.registerTimer(1, 0, 0), INT_MAX - 1);
    EXPECT_EQ(thread.setTimer(60000, 0, 0, 0), INT_MAX);
    runOn(thread, collector, [&] { EXPECT_EQ(thread.setTimer(60000, 0, 0, 0), 2); });
    EXPECT_EQ(thread.registerTimer(1, 0, 0), 4);
    EXPECT_TRUE(thread.killTimer(INT_MAX, 0));
}

TEST_F(MsgTimer, TimerIds_SkipThoseOfTimersThatAreBeingStopped) {
    BlockedRoad road;
    ASSERT_EQ(road.thread.start(&road.collector), 0);
    ASSERT_EQ(road.thread.setTimer(60000, 0, 0, 0), 1);
    ASSERT_EQ(road.thread.setTimer(60000, 0, 0, 0), 2);
    ASSERT_EQ(road.thread.postMsg(BLOCKER), 1);
    ASSERT_TRUE(road.entered.wait());
    ASSERT_TRUE(road.thread.killTimer(1, 1));
    ThreadAccess::setNextTimerId(road.thread, INT_MAX);
    EXPECT_EQ(road.thread.registerTimer(1, 0, 0), INT_MAX);
    EXPECT_EQ(road.thread.registerTimer(1, 0, 0), 3);
    road.gate.open();
    ASSERT_EQ(road.thread.sendMsgSync(FIRST), 1);
    ThreadAccess::setNextTimerId(road.thread, INT_MAX - 1);
    EXPECT_EQ(road.thread.registerTimer(1, 0, 0), INT_MAX - 1);
    EXPECT_TRUE(road.thread.killTimer(INT_MAX - 1, 0));
    EXPECT_EQ(road.thread.registerTimer(1, 0, 0), 1) << "it is free again";
}

TEST_F(MsgTimer, AStartThatIsNotWaitedForAndFails_IsLoggedAndTheTimerStaysRegistered) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread(64, 16, "unwaited", 2);
    ASSERT_EQ(thread.start(&collector), 0);
    std::vector<std::string> const lines = {
        stamped("MsgDrivenThread(unwaited) timer_create SysTimerId:0x00000000 errno:", EAGAIN),
        "<UTIL> ERR: !!!!!!!! MsgDrivenThread(unwaited) Error. MsgId:0x80000006 !!!!!!!!"};
    hooks::timerCreate.failFrom(1, 2, -1, EAGAIN);
    int const timer = thread.setTimer(1, 1, 1, 0);
    EXPECT_EQ(timer, 1);
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(log.lines(), lines);
    ASSERT_NE(thread.findTimer(timer), nullptr);
    EXPECT_FALSE(thread.findTimer(timer)->isRunning());
    EXPECT_EQ(thread.remTimerIdCount(), 1U);
    log.clear();
    EXPECT_TRUE(thread.startTimer(timer, 1));
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(log.lines(), lines);
    ASSERT_NE(thread.findTimer(timer), nullptr);
    EXPECT_FALSE(thread.findTimer(timer)->isRunning());
    EXPECT_TRUE(thread.startTimer(timer, 1));
    ASSERT_TRUE(collector.waitFor(3)) << "the third start succeeds";
    EXPECT_TRUE(thread.erasedTimers().empty() || thread.erasedTimers() == std::vector<int>{timer});
}

// Without the handler the first expiry would end the process.
TEST(MsgTimerOfAFreshProcess, SigAction_ThatKeepsFailing_RefusesTheStartOfATimer) {
    HookScope const scope;
    LogCapture log;
    std::string const line = stamped("MsgDrivenThread sigaction  errno:", EINVAL);
    hooks::sigAction.failFrom(1, 0, -1, EINVAL);
    EXPECT_FALSE(utl::ThreadManager::get()->entryWatchdog(1000, nullptr))
        << "the watchdog has no timer either";
    EXPECT_EQ(log.count(line), 2U);
    ASSERT_TRUE(log.waitFor("MsgDrivenThread(Watchdog Thread) Error. MsgId:0x80000006"));
    utl::ThreadManager::destroy();
    utltest::ThreadManagerAccess::createWithoutWatchdogThread(16);
    log.clear();
    Collector collector;
    ScopedMsgThread thread(64, 16, "handlerless");
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{line}));
    EXPECT_EQ(thread.setTimer(1, 0, 0, 1), -1);
    ASSERT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{line, line,
                                        "<UTIL> ERR: !!!!!!!! MsgDrivenThread(handlerless) Error. "
                                        "MsgId:0x80000006 !!!!!!!!"}));
    int const timer = thread.registerTimer(1, 1, 0);
    EXPECT_FALSE(thread.startTimer(timer, 0));
    EXPECT_EQ(log.count(line), 3U);
    EXPECT_EQ(hooks::timerCreate.calls(), 0U);
    hooks::sigAction.reset();
    EXPECT_TRUE(thread.startTimer(timer, 0));
    ASSERT_TRUE(collector.waitFor(2));
}

TEST_F(MsgTimer, EraseMsg_OfAPendingOneShot_EndsTheTimerAndCallsTheHook) {
    BlockedRoad road;
    bool erased = false;
    bool found = false;
    std::vector<int> gone;
    int timer = 0;
    road.onOther = [&](int id, int) {
        if (id != FIRST) {
            return;
        }
        // The expiry's token was read in front of this message, and its timeout stands behind it.
        found = road.thread.hasMsg(utl::MSG_ID_TIMER);
        utl::ThreadRawMsg raw(4);
        road.thread.peekMsg(utl::MSG_ID_TIMER, &raw);
        utl::TimerMsg msg;
        msg.restoreFrom(raw);
        EXPECT_EQ(msg.mTimerId, timer);
        erased = road.thread.eraseMsg(utl::MSG_ID_TIMER);
        gone = road.thread.erasedTimers();
    };
    road.startAndBlock();
    road.gate.open();
    hooks::write.reset();
    ASSERT_EQ(road.thread.sendMsgSync(BLOCKER + 1), 1);
    // A blocked handler lets the signal's token in; FIRST comes behind it.
    Gate entered;
    Gate go;
    auto const previous = road.onOther.get();
    road.onOther = [&](int id, int number) {
        if (id == BLOCKER + 2) {
            timer = road.thread.setTimer(1, 0, 1, 0);
            entered.open();
            go.wait();
        } else {
            previous(id, number);
        }
    };
    ASSERT_EQ(road.thread.postMsg(BLOCKER + 2), 1);
    ASSERT_TRUE(entered.wait());
    waitForTokens(3);
    ASSERT_EQ(road.thread.postMsg(FIRST), 1);
    go.open();
    EXPECT_EQ(road.thread.sendMsgSync(BLOCKER + 3), 1);
    EXPECT_TRUE(found);
    EXPECT_TRUE(erased);
    EXPECT_EQ(gone, std::vector<int>{timer});
    for (int const id : road.collector.ids()) {
        EXPECT_NE(id, utl::MSG_ID_TIMER);
    }
}

TEST(MsgTimerDeathTest, AProcessThatReturnsFromMainWithTimersRunning_EndsCleanly) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            auto* const collector = new Collector;
            auto* const thread = new utl::MsgDrivenThread(8, 64, "ticking", 8);
            thread->start(collector);
            for (int i = 0; i < 8; ++i) {
                thread->setTimer(1, 0, 0, i % 2);
            }
            collector->waitFor(50);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace

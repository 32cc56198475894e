// Timers of message threads.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <future>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestStage.h"
#include "UtlThreadManager.h"
#include "UtlTimeCounter.h"
#include "internal/message/UtlSystemTimer.h"
#include "internal/message/UtlTimerSteps.h"

using namespace utltest;

namespace {

constexpr int FIRST = 100;

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
    HeldMsgThread road;
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
        HeldMsgThread road;
        ASSERT_EQ(road.thread.start(&road.collector), 0);
        int const timer = road.thread.setTimer(1, 0, 0, 1);
        ASSERT_TRUE(road.collector.waitFor(3));
        Gate gate;
        road.onOther = [&](int, int) { EXPECT_TRUE(gate.hold()); };
        ASSERT_TRUE(gate.waitUntilHeld());
        auto killed = std::async(std::launch::async, [&] { return road.thread.killTimer(timer, noWait); });
        if (noWait != 0) {
            EXPECT_TRUE(killed.get());
        } else {
            while (road.thread.findTimer(timer) != nullptr) {
                std::this_thread::yield();
            }
        }
        size_t const before = road.collector.received().size();
        gate.open();
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
        Gate gate;
        ScopedMsgThread thread;
        ASSERT_EQ(thread.start(&collector), 0);
        collector.onMsg = [&](int id, int) {
            if (id == FIRST) {
                EXPECT_TRUE(gate.hold());
            }
        };
        ASSERT_EQ(thread.postMsg(FIRST), 1);
        ASSERT_TRUE(gate.waitUntilHeld());
        hooks::write.reset();
        int const timer = thread.setTimer(1, 1, 0, autoRepeat);
        ASSERT_GT(timer, 0);
        gate.open();
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

TEST_F(MsgTimer, ATimeoutThatDoesNotFitAFrame_GivesTheErrorLine) {
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread(3, 16, "small", 2);
    ASSERT_EQ(thread.start(&collector), 0);
    ASSERT_GT(thread.setTimer(1, 0, 1, 1), 0);
    ASSERT_TRUE(log.waitFor("MsgDrivenThread(small) Error. MsgId:0x80000008"));
    EXPECT_TRUE(collector.received().empty());
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

TEST_F(MsgTimer, AnExpiryThatFindsNoPlaceInTheQueue_DoesNotCount) {
    LogCapture const log;
    HeldMsgThread road(64, 1);
    ASSERT_EQ(road.thread.start(&road.collector), 0);
    int const timer = road.thread.setTimer(60000, 0, 0, 0);
    ASSERT_EQ(road.thread.postMsg(BLOCKER), 1);
    ASSERT_TRUE(road.gate.waitUntilHeld());
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
    HeldMsgThread road;
    road.startAndBlock();
    int const timer = road.thread.setTimer(1, 1, 0, 1);
    road.gate.open();
    ASSERT_TRUE(road.collector.waitFor(3));
    Gate gate;
    road.onOther = [&](int, int) { EXPECT_TRUE(gate.hold()); };
    ASSERT_TRUE(gate.waitUntilHeld());
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
    gate.open();
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
    HeldMsgThread road(4, WAITING);
    int timer = -1;
    beforeBlocking(road, [&] { timer = road.thread.setTimer(60000, 0, 1, 0); });
    for (int i = 1; i < inFront; ++i) {
        ASSERT_EQ(road.thread.sendMsgAsync(NumberMsg(FIRST, i)), 1);
    }
    ASSERT_EQ(road.thread.sendMsgAsync(NumberMsg(BLOCKER)), 1);
    ASSERT_EQ(road.thread.sendMsgAsync(NumberMsg(FIRST, 0)), 1);
    ASSERT_EQ(road.thread.start(&road.collector), 0);
    ASSERT_TRUE(road.gate.waitUntilHeld());
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

#ifndef __SANITIZE_THREAD__  // which ends a process that starts threads after a fork of several threads
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
        // After the last expiry's token; and then after the timeouts.
        EXPECT_EQ(thread.sendMsgSync(FIRST + 2), 1);
        EXPECT_EQ(thread.sendMsgSync(FIRST + 3), 1);
        std::vector<int> const ids = collector.ids();
        EXPECT_EQ(std::count(ids.begin(), ids.end(), utl::MSG_ID_TIMER), autoRepeat != 0 ? 2 : 1);
        EXPECT_TRUE(thread.killTimer(timer));
    }
}

// The hook after a timer is erased.

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
    HeldMsgThread road;
    ASSERT_EQ(road.thread.start(&road.collector), 0);
    int timer = -1;
    // The blocker is read before the expiry's token, and so the question stands before the timeout.
    road.onOther = [&](int id, int) {
        if (id == FIRST) {
            timer = road.thread.setTimer(60000, 0, 1, 0);
            road.thread.postMsg(BLOCKER);
            expire(road.thread, timer);
        }
    };
    ASSERT_EQ(road.thread.sendMsgSync(FIRST), 1);
    ASSERT_TRUE(road.gate.waitUntilHeld());
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
    HeldMsgThread road;
    ASSERT_EQ(road.thread.start(&road.collector), 0);
    int const timer = road.thread.setTimer(60000, 0, 0, 1);
    ASSERT_EQ(road.thread.postMsg(BLOCKER), 1);
    ASSERT_TRUE(road.gate.waitUntilHeld());
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
    HeldMsgThread road;
    int own = -1;
    ASSERT_EQ(road.thread.start(&road.collector), 0);
    int const timer = road.thread.setTimer(60000, 0, 0, 1);
    ASSERT_GT(timer, 0);
    bool ownKilled = false;
    bool refusedNew = false;
    road.collector.onMsg = [&](int id, int) {
        if (id == BLOCKER) {
            own = road.thread.setTimer(60000, 0, 0, 1);
            EXPECT_TRUE(road.gate.hold());
            refusedNew = road.thread.setTimer(1, 0, 0, 1) == -1 && road.thread.registerTimer(1, 0, 1) == -1;
            ownKilled = road.thread.killTimer(own, 0);
        }
    };
    ASSERT_EQ(road.thread.postMsg(BLOCKER), 1);
    ASSERT_TRUE(road.gate.waitUntilHeld());
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
    HeldMsgThread road;
    ASSERT_EQ(road.thread.start(&road.collector), 0);
    ASSERT_EQ(road.thread.setTimer(60000, 0, 0, 0), 1);
    ASSERT_EQ(road.thread.setTimer(60000, 0, 0, 0), 2);
    ASSERT_EQ(road.thread.postMsg(BLOCKER), 1);
    ASSERT_TRUE(road.gate.waitUntilHeld());
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

TEST_F(MsgTimer, EraseMsg_OfAPendingOneShot_EndsTheTimerAndCallsTheHook) {
    HeldMsgThread road;
    bool erased = false;
    bool found = false;
    std::vector<int> gone;
    int timer = 0;
    road.onOther = [&](int id, int) {
        if (id != FIRST) {
            return;
        }
        // The expiry's token was read before this message, and its timeout stands after it.
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
    // A blocked handler lets the signal's token in; FIRST comes after it.
    Gate gate;
    auto const previous = road.onOther.get();
    road.onOther = [&](int id, int number) {
        if (id == BLOCKER + 2) {
            timer = road.thread.setTimer(1, 0, 1, 0);
            EXPECT_TRUE(gate.hold());
        } else {
            previous(id, number);
        }
    };
    ASSERT_EQ(road.thread.postMsg(BLOCKER + 2), 1);
    ASSERT_TRUE(gate.waitUntilHeld());
    waitForTokens(3);
    ASSERT_EQ(road.thread.postMsg(FIRST), 1);
    gate.open();
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

// With a loop that the test holds.

std::atomic<std::intptr_t> gNextNumber{0};
std::atomic<std::intptr_t> gDeleted{-1};

int numberingCreate(clockid_t, sigevent*, timer_t* timer) {
    *timer = reinterpret_cast<timer_t>(gNextNumber++);  // NOLINT(performance-no-int-to-ptr): as the C library
    return 0;
}

int idleSetTime(timer_t, int, itimerspec const*, itimerspec*) {
    return 0;
}

int notingDelete(timer_t timer) {
    gDeleted = reinterpret_cast<std::intptr_t>(timer);
    return 0;
}

TEST_F(MsgThreadOnStage, TheTimerWithTheKernelsNumberZero_ExpiresAndIsDeletedAsAnyOther) {
    gNextNumber = 0;
    hooks::timerCreate.replace(numberingCreate);
    hooks::timerSetTime.replace(idleSetTime);
    hooks::timerDelete.replace(notingDelete);
    Stage stage;
    stage.start();
    int const resting = stage.thread.registerTimer(LONG);
    int const zero = stage.thread.setTimer(LONG);
    int const one = stage.thread.setTimer(LONG);
    EXPECT_EQ(stage.thread.toUserTimerId(0), zero);
    EXPECT_EQ(stage.thread.toUserTimerId(1), one);
    EXPECT_EQ(stage.thread.toUserTimerId(2), -1);
    EXPECT_EQ(stage.thread.toUserTimerId(-1), -1);  // and not the one that does not run
    expire(stage.thread, zero);
    ASSERT_TRUE(stage.collector.waitFor(1));
    EXPECT_EQ(stage.delivered(), (Delivered{{utl::MSG_ID_TIMER, zero}}));
    EXPECT_TRUE(stage.thread.killTimer(resting));
    EXPECT_EQ(hooks::timerDelete.calls(), 0U);
    EXPECT_TRUE(stage.thread.killTimer(zero));
    EXPECT_EQ(hooks::timerDelete.calls(), 1U);
    EXPECT_EQ(gDeleted, 0);
    EXPECT_EQ(stage.thread.toUserTimerId(0), -1);
}

TEST_F(MsgThreadOnStage, TheHookOfAFinishedTimer_FindsItsPlaceFree) {
    Stage stage(64, 16, 1);
    stage.start();
    int next = 0;
    stage.thread.onErase = [&](int, int) {
        if (next == 0) {
            next = stage.thread.setTimer(LONG, 0, 1, 0);
        }
    };
    stage.onThread([&] { stage.thread.executeTimeoutSignal(stage.thread.setTimer(LONG, 0, 1, 0)); });
    stage.settle();
    EXPECT_EQ(next, 2);
    EXPECT_EQ(stage.thread.remTimerIdCount(), 0U);
    stage.onThread([&] { stage.thread.executeTimeoutSignal(next); });
    stage.settle();
    EXPECT_EQ(stage.thread.erasedTimers(), (std::vector<int>{1, 2}));
    EXPECT_EQ(stage.delivered(), (Delivered{{utl::MSG_ID_TIMER, 1}, {utl::MSG_ID_TIMER, 2}}));
}

TEST_F(MsgThreadOnStage, SetTimerThatWaits_GivesTheIdOfATimerThatAHandlerKillsAtOnce) {
    for (int round = 0; round < 30; ++round) {
        Stage stage;
        stage.start();
        stage.onOther = [&](int id, int) {
            if (id == 5) {
                EXPECT_TRUE(stage.thread.killTimer(1));
            }
        };
        stage.hold();
        unsigned int const before = hooks::write.calls();
        JoinedThread setter([&] { EXPECT_EQ(stage.thread.setTimer(LONG, 0), 1); });
        waitForTokens(before + 1);
        EXPECT_EQ(stage.thread.sendMsgAsync(NumberMsg(5, 0)), 1);
        stage.release();
        setter.join();
        stage.settle();
        EXPECT_EQ(stage.thread.erasedTimers(), (std::vector<int>{1}));
    }
}

TEST_F(MsgThreadOnStage, TheHookOfATimerKilledFromOutside_HoldsNoLockAgainstOtherCallers) {
    Stage stage(64, 16, 1);
    stage.start();
    stage.thread.onErase = [&](int, int timer) {
        if (timer == 1) {
            JoinedThread([&] {
                EXPECT_EQ(stage.thread.setTimer(LONG, 0), 2);
                EXPECT_EQ(stage.thread.postMsg(NumberMsg(5, 55)), 1);
                EXPECT_TRUE(stage.thread.killTimer(2, 0));
            }).join();
        }
    };
    EXPECT_EQ(stage.thread.setTimer(LONG, 0), 1);
    EXPECT_TRUE(stage.thread.killTimer(1, 0));
    stage.settle();
    EXPECT_EQ(stage.thread.erasedTimers(), (std::vector<int>{1, 2}));
    EXPECT_EQ(stage.delivered(), (Delivered{{5, 55}}));
}

}  // namespace

// What the system refuses to the timers of message threads.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestStage.h"
#include "UtlThreadManager.h"
#include "internal/message/UtlSystemTimer.h"
#include "internal/message/UtlTimerSteps.h"

using namespace utltest;

namespace {

constexpr int FIRST = 100;

using MsgTimer = WithoutWatchdogThread;

TEST_F(MsgThreadOnStage, KillTimer_WhenARunningOneCannotBeKept_LeavesNoSystemTimerBehind) {
    Stage stage(64, 16, 1);
    stage.start();
    stage.hold(0, [&] { EXPECT_EQ(stage.thread.setTimer(LONG), 1); });
    EXPECT_TRUE(stage.thread.killTimer(1, 1));
    // The loop comes to the next holding point before it has stopped the first: an interrupt runs there.
    stage.onOther = [&](int id, int) {
        if (id == 50) {
            EXPECT_EQ(stage.thread.setTimer(LONG), 2);
            stage.thread.executeTimeoutSignal(2);
            JoinedThread([&] { EXPECT_TRUE(stage.thread.killTimer(2, 0)); }).join();
            EXPECT_EQ(hooks::timerDelete.calls(), 1U);
            EXPECT_FALSE(stage.thread.hasMsg(utl::MSG_ID_TIMER));
        }
    };
    stage.interruptHeldLoop();
    EXPECT_EQ(stage.delivered(), (Delivered{{50, 0}}));
    EXPECT_EQ(hooks::timerDelete.calls(), 2U);
    EXPECT_EQ(hooks::timerCreate.calls(), 2U);
    EXPECT_EQ(stage.thread.erasedTimers(), (std::vector<int>{1, 2}));
}

TEST_F(MsgThreadOnStage, KillTimer_AgainstAFullControlQueue_FailsAndTheTimerGoesOn) {
    Stage stage;
    stage.start();
    stage.hold(0, [&] { EXPECT_EQ(stage.thread.setTimer(LONG), 1); });
    stage.fillCtlQueue();
    EXPECT_FALSE(stage.thread.killTimer(1, 0));
    EXPECT_EQ(
        log.count(error("MsgDrivenThread(road) Overflow ThreadCtlMsgQueue  MaxCount:272 MsgId:0x80000007")),
        1U);
    EXPECT_TRUE(stage.thread.erasedTimers().empty());
    ASSERT_NE(stage.thread.findTimer(1), nullptr);
    EXPECT_TRUE(stage.thread.findTimer(1)->isRunning());
    stage.release();
    stage.drain();
    expire(stage.thread, 1);
    while (stage.delivered().empty()) {
        std::this_thread::yield();
    }
    EXPECT_EQ(stage.delivered(), (Delivered{{utl::MSG_ID_TIMER, 1}}));
    EXPECT_TRUE(stage.thread.killTimer(1, 0));
    EXPECT_FALSE(stage.thread.killTimer(1, 0));
    stage.settle();
    EXPECT_EQ(hooks::timerDelete.calls(), 1U);
    EXPECT_EQ(stage.thread.erasedTimers(), (std::vector<int>{1}));
}

TEST_F(MsgThreadOnStage, KillTimerThatWaits_IsFreedByALoopThatBreaksAndHookedOnce) {
    Stage stage;
    stage.start();
    stage.hold(0, [&] {
        EXPECT_EQ(stage.thread.setTimer(LONG), 1);
        EXPECT_EQ(stage.thread.setTimer(LONG), 2);
        EXPECT_EQ(stage.thread.setTimer(LONG), 3);
    });
    unsigned int const before = hooks::write.calls();
    std::atomic<int> killer{0};
    JoinedThread helper([&] {
        killer = utl::ThreadManager::getCallerId();
        stage.thread.killTimer(2, 0);
    });
    waitForTokens(before + 1);
    hooks::read.failFrom(1, 1, -1, EIO);
    stage.release();
    helper.join();
    EXPECT_EQ(stage.thread.waitTo(3, 0), 0);
    EXPECT_EQ(log.count(error("MsgDrivenThread(road) Error. read Ret:4294967295 errno:" +
                              std::to_string(EIO) + " !!Break msg loop!!")),
              1U);
    std::vector<int> const ids = stage.thread.erasedTimers();
    std::vector<int> const threads = stage.thread.erasingThreads();
    ASSERT_EQ(ids.size(), 3U);
    for (size_t i = 0; i < ids.size(); ++i) {
        EXPECT_EQ(threads[i], ids[i] == 2 ? killer.load() : stage.thread.getId()) << ids[i];
    }
    EXPECT_EQ(hooks::timerDelete.calls(), 3U);
    EXPECT_EQ(stage.thread.remTimerIdCount(), 4U);
    EXPECT_FALSE(stage.thread.killTimer(1));
    EXPECT_FALSE(stage.thread.startTimer(1));
    EXPECT_EQ(stage.thread.registerTimer(LONG), -1);
    EXPECT_EQ(stage.thread.setTimer(LONG), -1);
}

TEST_F(MsgThreadOnStage, SetTimerThatWaits_IsToldOfALoopThatBreaksFirst) {
    Stage stage;
    stage.start();
    stage.hold();
    EXPECT_EQ(stage.thread.registerTimer(LONG), 1);
    unsigned int const before = hooks::write.calls();
    JoinedThread setter([&] { EXPECT_EQ(stage.thread.setTimer(LONG, 0), -1); });
    waitForTokens(before + 1);
    hooks::read.failFrom(1, 1, -1, EIO);
    stage.release();
    setter.join();
    EXPECT_EQ(stage.thread.waitTo(3, 0), 0);
    EXPECT_FALSE(stage.thread.startTimer(1, 0));
    EXPECT_EQ(stage.thread.remTimerIdCount(), 4U);
    EXPECT_EQ(stage.thread.erasedTimers(), (std::vector<int>{2, 1}));
    EXPECT_EQ(hooks::timerCreate.calls(), 0U);
}

TEST_F(MsgThreadOnStage, AnErasureWhoseTimeoutCannotBeArmedAgain_GoesOnWithWhatStandsBehind) {
    Stage stage;
    stage.start();
    stage.onThread([&] {
        EXPECT_EQ(stage.thread.setTimer(LONG, 0, 0, 0), 1);
        EXPECT_EQ(stage.thread.setTimer(LONG, 0, 0, 1), 2);
        stage.thread.executeTimeoutSignal(1);
        stage.thread.postMsg(NumberMsg(5, 55));
        stage.thread.executeTimeoutSignal(2);
        hooks::timerCreate.failFrom(1, 1, -1, EAGAIN);
        EXPECT_TRUE(stage.thread.eraseMsg(utl::MSG_ID_TIMER));
        EXPECT_FALSE(stage.thread.hasMsg(utl::MSG_ID_TIMER));
    });
    stage.settle();
    EXPECT_EQ(stage.delivered(), (Delivered{{5, 55}}));
    EXPECT_EQ(log.lines().size(), 1U);
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

// Its entry stays, and counts: what waits for delivery is what limits the next expiries.
TEST_F(MsgTimer, AnExpiryWhoseTokenCannotBeWritten_IsLostAndDoesNotCount) {
    HookScope const scope;
    LogCapture const log;
    HeldMsgThread road;
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
    ASSERT_TRUE(road.gate.waitUntilHeld());
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

TEST_F(MsgTimer, StartsAndKillsThatWait_WhoseLoopEndsFirst_AreReleased) {
    for (int round = 0; round < 20; ++round) {
        HookScope const scope;
        LogCapture const log;
        HeldMsgThread road;
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
        HeldMsgThread road;
        ASSERT_EQ(road.thread.start(&road.collector), 0);
        int const timer = road.thread.setTimer(60000, 0, 0, round % 2);
        ASSERT_GT(timer, 0);
        ASSERT_EQ(road.thread.postMsg(BLOCKER), 1);
        ASSERT_TRUE(road.gate.waitUntilHeld());
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

}  // namespace

// The watchdog's looks at its table, called by the test, and the messages that cause them.

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestThreads.h"
#include "TestWatchdog.h"
#include "UtlThreadWatchdog.h"

namespace {

using utl::StatementInfo;
using utl::ThreadWatchdog;
using utl::WatchdogInfo;
using utl::WatchdogInfos;
using namespace utltest;
using Access = utltest::ThreadWatchdogAccess;
using Lines = std::vector<std::string>;

// A watchdog without a thread.

struct OpenedWatchdog : ThreadWatchdog {
    using ThreadWatchdog::executeWatchdogTimeout;
    using ThreadWatchdog::executeWatchThreads;
    using ThreadWatchdog::ThreadWatchdog;
};

class WatchdogPass : public ::testing::Test {
  protected:
    WatchdogPass() {
        Access::setInitialized(mWatchdog, true);
        hooks::clockGetTime.replace(standingClock);
        gTick = 1000;
    }

    /// Registers and watches thread `id`, whose last sign of life is at `gTick`.
    WatchdogInfo& watch(int id, unsigned int aliveTime = 500) {
        EXPECT_TRUE(mWatchdog.entry(id, aliveTime, &mListener, "thread"));
        EXPECT_TRUE(mWatchdog.start(id));
        mLog.clear();
        return *mWatchdog.findWatchdogInfo(id);
    }

    void lookAt(unsigned int tick) {
        gTick = tick;
        mWatchdog.executeWatchThreads();
    }

    HookScope const mHooks;
    LogCapture mLog;
    NotingListener mListener;
    OpenedWatchdog mWatchdog{8};
};

TEST_F(WatchdogPass, AThreadIsOverdue_FromItsAliveTimeOn) {
    WatchdogInfo const& info = watch(7, 500);
    lookAt(1499);
    EXPECT_EQ(info.aliveStatus, WatchdogInfo::UNKNOWN);
    EXPECT_TRUE(mLog.lines().empty());
    lookAt(1500);
    EXPECT_EQ(info.aliveStatus, WatchdogInfo::TIMED_OUT);
    EXPECT_EQ(info.timeoutCount, 1U);
    EXPECT_EQ(mLog.lines(), Lines{timeoutLine(7, "thread")});
    EXPECT_EQ(mListener.ids(), std::vector<int>{7});
}

TEST_F(WatchdogPass, ATimeOut_ChangesStatusAndCountAlone) {
    WatchdogInfo const& info = watch(kernelId(), 500);
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo("file", "function", 1, 2)));
    WatchdogInfo expected = info;
    expected.aliveStatus = WatchdogInfo::TIMED_OUT;
    expected.timeoutCount = 1;
    lookAt(1501);
    EXPECT_EQ(info, expected);
}

TEST_F(WatchdogPass, ASilentThread_IsReportedOnceHoweverLongItsSilenceLasts) {
    WatchdogInfo const& info = watch(7, 500);
    for (unsigned int tick : {1600U, 1601U, 2100U, 100000U, 0xFFFFFFFEU}) {
        lookAt(tick);
    }
    EXPECT_EQ(info.timeoutCount, 1U);
    EXPECT_EQ(mLog.lines(), Lines{timeoutLine(7, "thread")});
    EXPECT_EQ(mListener.ids(), std::vector<int>{7});
}

TEST_F(WatchdogPass, TheLongestAliveTime_NeverPasses) {
    gTick = 0;
    WatchdogInfo const& info = watch(7, 0xFFFFFFFFU);
    lookAt(0xFFFFFFFEU);
    EXPECT_EQ(info.timeoutCount, 0U);
}

TEST_F(WatchdogPass, AThreadThatIsRegisteredAndNotStarted_IsNotReported) {
    EXPECT_TRUE(mWatchdog.entry(7, 500, &mListener, "thread"));
    mLog.clear();
    lookAt(100000);
    EXPECT_TRUE(mLog.lines().empty());
    EXPECT_TRUE(mListener.ids().empty());
    EXPECT_EQ(*mWatchdog.findWatchdogInfo(7), WatchdogInfo(7, 500, &mListener, "thread", 1));
}

TEST_F(WatchdogPass, AThreadThatIsNotWatchedAnyMore_IsNotReported) {
    watch(7, 500);
    EXPECT_TRUE(mWatchdog.stop(7));
    lookAt(100000);
    EXPECT_TRUE(mListener.ids().empty());
}

TEST_F(WatchdogPass, AThreadWithoutATimeOfItsLastSignOfLife_IsNotReported) {
    WatchdogInfo& info = watch(7, 1);
    info.lastAliveTick = 0xFFFFFFFFU;
    for (unsigned int tick : {0U, 1U, 100000U, 0x80000000U, 0xFFFFFFFEU}) {
        lookAt(tick);
    }
    EXPECT_TRUE(mListener.ids().empty());
}

TEST_F(WatchdogPass, ATimeThatLiesAheadBecauseTheCounterWrapped_IsNotOverdue) {
    WatchdogInfo& info = watch(7, 16);
    info.lastAliveTick = 0xFFFFFFF0U;
    lookAt(0xFFFFFFFEU);
    for (unsigned int tick : {0U, 16U, 100000U, 0xFFFFFFEFU}) {
        lookAt(tick);
    }
    EXPECT_TRUE(mListener.ids().empty());
    info.lastAliveTick = 0xFFFFFFEEU;
    lookAt(0xFFFFFFFEU);
    EXPECT_EQ(mListener.ids(), std::vector<int>{7});
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

TEST_F(WatchdogPass, OverdueThreads_AreReportedInTheOrderOfTheirIds) {
    for (int id : {9, 3, 2147483647, 5, -4}) {
        watch(id);
    }
    lookAt(1500);
    EXPECT_EQ(mListener.ids(), (std::vector<int>{-4, 3, 5, 9, 2147483647}));
    EXPECT_EQ(mLog.lines(),
              (Lines{timeoutLine(-4, "thread"), timeoutLine(3, "thread"), timeoutLine(5, "thread"),
                     timeoutLine(9, "thread"), timeoutLine(2147483647, "thread")}));
}

TEST_F(WatchdogPass, TheOneWhoIsNotOverdue_IsPassedOver) {
    watch(3);
    gTick = 1400;
    watch(5);
    gTick = 1000;
    watch(9);
    lookAt(1500);
    EXPECT_EQ(mListener.ids(), (std::vector<int>{3, 9}));
    lookAt(1900);
    EXPECT_EQ(mListener.ids(), (std::vector<int>{3, 9, 5}));
}

// 0 is the answer where nobody is overdue.
TEST_F(WatchdogPass, AnOverdueId0_EndsThePass) {
    for (int id : {-1, 0, 5}) {
        watch(id);
    }
    lookAt(1500);
    EXPECT_EQ(mListener.ids(), std::vector<int>{-1});
    EXPECT_EQ(mWatchdog.findWatchdogInfo(0)->timeoutCount, 0U);
    EXPECT_EQ(mWatchdog.findWatchdogInfo(5)->timeoutCount, 0U);
}

TEST_F(WatchdogPass, OneLookAtTheClock_ServesTheWholePass) {
    watch(3, 500);
    watch(5, 10000);
    watch(9, 500);
    mListener.then = [](int, WatchdogInfos const&) { gTick = 50000; };
    hooks::clockGetTime.failFrom(0, 0, 0, 0);
    lookAt(1500);
    EXPECT_EQ(hooks::clockGetTime.calls(), 1U);
    EXPECT_EQ(mListener.ids(), (std::vector<int>{3, 9}));
    mWatchdog.executeWatchThreads();
    EXPECT_EQ(mListener.ids(), (std::vector<int>{3, 9, 5}));
}

TEST_F(WatchdogPass, AListenerThatChangesTheTable_ChangesTheRestOfThePass) {
    for (int id : {3, 5, 7, 9}) {
        watch(id);
    }
    mListener.then = [this](int id, WatchdogInfos const&) {
        if (id == 3) {
            EXPECT_TRUE(mWatchdog.unregister(5));
            EXPECT_TRUE(mWatchdog.stop(7));
        }
    };
    lookAt(1500);
    EXPECT_EQ(mListener.ids(), (std::vector<int>{3, 9}));
}

TEST_F(WatchdogPass, AListenerThatUnregistersTheThread_KeepsItsSnapshot) {
    watch(3);
    watch(5, 1000);
    mListener.then = [this](int id, WatchdogInfos const& infos) {
        EXPECT_TRUE(mWatchdog.unregister(id));
        EXPECT_TRUE(mWatchdog.unregister(5));
        ASSERT_EQ(infos.size(), 2U);
        EXPECT_EQ(infos.find(id)->aliveStatus, WatchdogInfo::TIMED_OUT);
        EXPECT_STREQ(infos.find(5)->name.buffer(), "thread");
    };
    lookAt(1500);
    EXPECT_EQ(mListener.ids(), std::vector<int>{3});
    EXPECT_EQ(Access::infos(mWatchdog).size(), 0U);
}

TEST_F(WatchdogPass, AListenerThatStopsAndStartsTheThread_HearsNoMoreOfThisSilence) {
    WatchdogInfo const& info = watch(3);
    mListener.then = [this](int id, WatchdogInfos const&) {
        EXPECT_TRUE(mWatchdog.start(id));
        EXPECT_TRUE(mWatchdog.setAliveTime(id, 1));
        EXPECT_TRUE(mWatchdog.stop(id));
        EXPECT_TRUE(mWatchdog.start(id));
    };
    lookAt(1500);
    lookAt(5000);
    EXPECT_EQ(mListener.ids(), std::vector<int>{3});
    EXPECT_EQ(info.aliveStatus, WatchdogInfo::TIMED_OUT);
    EXPECT_EQ(info.lastAliveTick, 1500U);
}

TEST_F(WatchdogPass, AListenerThatRegistersTheThreadAnew_HearsOfItsNextSilence) {
    watch(3);
    mListener.then = [this](int id, WatchdogInfos const&) {
        EXPECT_TRUE(mWatchdog.unregister(id));
        EXPECT_TRUE(mWatchdog.entry(id, 500, &mListener, "anew"));
        EXPECT_TRUE(mWatchdog.start(id));
    };
    lookAt(1500);
    EXPECT_EQ(mListener.ids(), std::vector<int>{3});
    lookAt(2000);
    EXPECT_EQ(mListener.ids(), (std::vector<int>{3, 3}));
}

TEST_F(WatchdogPass, TheSnapshot_IsTheWholeTable) {
    watch(3);
    EXPECT_TRUE(mWatchdog.entry(5, 700, nullptr, "other"));
    lookAt(1500);
    EXPECT_EQ(mListener.snapshot(),
              (std::vector<WatchdogInfo>{*mWatchdog.findWatchdogInfo(3), *mWatchdog.findWatchdogInfo(5)}));
}

TEST_F(WatchdogPass, WithoutAListener_PrintsTheTableAtLevel3) {
    EXPECT_TRUE(mWatchdog.entry(7, 500, nullptr, "seven"));
    EXPECT_TRUE(mWatchdog.entry(8, 600, nullptr, "eight"));
    EXPECT_TRUE(mWatchdog.start(7));
    mLog.clear();
    lookAt(1500);
    EXPECT_EQ(mLog.lines(),
              (Lines{timeoutLine(7, "seven"), std::string("<UTIL> INF: ") + TITLE,
                     std::string("<UTIL> INF: ") + COLUMNS,
                     "<UTIL> INF:          7, seven                           ,        500, WATCHING    , "
                     "TIMEOUT     ,             1, (, :0:0)",
                     "<UTIL> INF:          8, eight                           ,        600, NOT_WATCHING, "
                     "UNKNOWN     ,             0, (, :0:0)"}));
}

TEST_F(WatchdogPass, TheTimeOutOfOneThread_TellsAbsentUnwatchedAndTimedOutThreadsNothing) {
    EXPECT_TRUE(mWatchdog.entry(5, 500, &mListener, "not watched"));
    WatchdogInfo& info = watch(7);
    info.aliveStatus = WatchdogInfo::TIMED_OUT;
    for (int id : {4, 5, 7}) {
        mWatchdog.executeWatchdogTimeout(id);
    }
    EXPECT_TRUE(mListener.ids().empty());
    EXPECT_TRUE(mLog.lines().empty());
    EXPECT_EQ(info.timeoutCount, 0U);
}

// The messages of the timer.

utl::ThreadRawMsg flat(utl::Msg const& msg) {
    utl::ThreadRawMsg raw(8);
    EXPECT_EQ(msg.storeTo(&raw), 1);
    return raw;
}

utl::TimerMsg timerMsg(int timerId) {
    utl::TimerMsg msg;
    msg.mTimerId = timerId;
    return msg;
}

class WatchdogMsg : public WatchdogPass {
  protected:
    WatchdogMsg() {
        watch(7);
        gTick = 1500;
        Access::setTimerId(mWatchdog, 3);
    }

    void receive(utl::ThreadRawMsg raw) {
        static_cast<utl::ThreadMsgListener&>(mWatchdog).receiveMsg(0, raw);
    }
};

TEST_F(WatchdogMsg, OfItsOwnTimer_HasTheTableLookedAt) {
    receive(flat(timerMsg(3)));
    EXPECT_EQ(mListener.ids(), std::vector<int>{7});
}

TEST_F(WatchdogMsg, OfAnotherTimer_IsIgnoredInSilence) {
    for (int timerId : {2, 4, -1, 0}) {
        receive(flat(timerMsg(timerId)));
    }
    EXPECT_TRUE(mListener.ids().empty());
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(WatchdogMsg, OfAnyOtherId_IsIgnoredInSilence) {
    for (int id :
         {0, 3, utl::MSG_ID_NONE, utl::MSG_ID_ANY, utl::MSG_ID_CTL_TIMEOUT, utl::MSG_ID_CLIENT_FIRST}) {
        receive(flat(utltest::NumberMsg(id, 3)));
    }
    EXPECT_TRUE(mListener.ids().empty());
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(WatchdogMsg, WithoutATimerId_IsIgnoredInSilence) {
    Access::setTimerId(mWatchdog, -1);
    utl::ThreadRawMsg raw(4);
    EXPECT_EQ(utl::SimpleMsg(utl::MSG_ID_TIMER).storeTo(&raw), 1);
    receive(raw);
    EXPECT_TRUE(mListener.ids().empty());
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(WatchdogMsg, WhoseIdCannotBeRead_IsIgnoredInSilence) {
    struct Unreadable : utl::ThreadRawMsg {
        explicit Unreadable(utl::ThreadRawMsg const& readable) : ThreadRawMsg(readable) {}
        int getMsgId(int*) override { return 0; }
    } raw(flat(timerMsg(3)));
    mWatchdog.receiveMsg(0, raw);
    EXPECT_TRUE(mListener.ids().empty());
    EXPECT_TRUE(mLog.lines().empty());
}

}  // namespace

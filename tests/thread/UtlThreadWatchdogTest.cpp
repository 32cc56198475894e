#include "UtlThreadWatchdog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TestGate.h"
#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestThreads.h"
#include "TestWatchdog.h"
#include "UtlMemoryPool.h"
#include "UtlThread.h"
#include "UtlThreadManager.h"
#include "UtlThreadRawMsg.h"
#include "UtlTimeCounter.h"

namespace {

using namespace utltest;
using utl::StatementInfo;
using utl::ThreadManager;
using utl::ThreadWatchdog;
using utl::WatchdogInfo;
using utl::WatchdogInfos;
using utl::WatchdogTimerListener;
using Access = utltest::ThreadWatchdogAccess;
using Ids = std::vector<int>;
using Lines = std::vector<std::string>;

static_assert(WatchdogInfo::NO_WATCH_INTERVAL == 0);

static_assert(noexcept(StatementInfo("", "", 0, 0)));
static_assert(noexcept(StatementInfo::INVALID == StatementInfo::INVALID));
static_assert(noexcept(StatementInfo::INVALID != StatementInfo::INVALID));
static_assert(noexcept(WatchdogInfo::INVALID == WatchdogInfo::INVALID));
static_assert(noexcept(WatchdogInfo::INVALID != WatchdogInfo::INVALID));
static_assert(noexcept(std::declval<ThreadWatchdog&>().isRegistered(0)));
static_assert(noexcept(std::declval<ThreadWatchdog&>().isWatching(0)));
static_assert(noexcept(std::declval<ThreadWatchdog&>().findWatchdogInfo(0)));

// A place in the source.

TEST(StatementInfo, KeepsThePointersAndNumbersAsGiven) {
    char const file[] = "file";
    char const function[] = "function";
    StatementInfo const info(file, function, 3, 4);
    EXPECT_EQ(info.file, file);
    EXPECT_EQ(info.function, function);
    EXPECT_EQ(info.line, 3U);
    EXPECT_EQ(info.sub, 4U);
}

TEST(StatementInfo, ANullFunction_BecomesAnEmptyText) {
    StatementInfo const info(nullptr, nullptr, 0, 0);
    EXPECT_STREQ(info.function, "");
    EXPECT_EQ(info.file, nullptr);
}

TEST(StatementInfo, Invalid_IsNoPlace) {
    EXPECT_EQ(StatementInfo::INVALID, StatementInfo("", "", 0, 0));
    EXPECT_STREQ(StatementInfo::INVALID.file, "");
    EXPECT_STREQ(StatementInfo::INVALID.function, "");
}

TEST(StatementInfo, Equality_ComparesTheTextsInFullAndTheNumbers) {
    std::string const file("file");
    std::string const function("function");
    StatementInfo const info("file", "function", 3, 4);
    EXPECT_TRUE(info == StatementInfo(file.c_str(), function.c_str(), 3, 4));
    EXPECT_FALSE(info != StatementInfo(file.c_str(), function.c_str(), 3, 4));
    for (StatementInfo const& other :
         {StatementInfo("fil", "function", 3, 4), StatementInfo("file", "function ", 3, 4),
          StatementInfo("file", "function", 2, 4), StatementInfo("file", "function", 3, 5)}) {
        EXPECT_FALSE(info == other);
        EXPECT_TRUE(info != other);
    }
}

TEST(StatementInfo, Equality_TakesANullFileForAnEmptyOne) {
    EXPECT_TRUE(StatementInfo(nullptr, "f", 1, 1) == StatementInfo("", "f", 1, 1));
    EXPECT_TRUE(StatementInfo("", "f", 1, 1) == StatementInfo(nullptr, "f", 1, 1));
    EXPECT_FALSE(StatementInfo(nullptr, "f", 1, 1) == StatementInfo("x", "f", 1, 1));
}

TEST(StatementInfo, Copies_HaveTheFourFields) {
    StatementInfo const info("file", "function", 3, 4);
    StatementInfo copy(info);
    EXPECT_EQ(copy, info);
    copy = StatementInfo::INVALID;
    EXPECT_EQ(copy, StatementInfo("", "", 0, 0));
}

// The record of one thread.

struct CountingListener : WatchdogTimerListener {
    int calls = 0;
    void onTime(int, WatchdogInfos const&) override { ++calls; }
};

TEST(WatchdogInfo, Default_IsNoThreadAndNotWatched) {
    WatchdogInfo const info;
    EXPECT_EQ(info.id, 0);
    EXPECT_EQ(info.aliveTime, 0U);
    EXPECT_EQ(info.listener, nullptr);
    EXPECT_EQ(info.lastAliveTick, 0xFFFFFFFFU);
    EXPECT_EQ(info.watchStatus, 1);
    EXPECT_EQ(info.aliveStatus, 0);
    EXPECT_EQ(info.timeoutCount, 0U);
    EXPECT_EQ(info.lastStatement, StatementInfo::INVALID);
    EXPECT_STREQ(info.name.buffer(), "");
    EXPECT_EQ(WatchdogInfo::INVALID, info);
}

TEST(WatchdogInfo, Construction_SetsTheGivenFieldsAndNoOther) {
    CountingListener listener;
    WatchdogInfo const info(7, 500, &listener, "seven", 0);
    EXPECT_EQ(info.id, 7);
    EXPECT_EQ(info.aliveTime, 500U);
    EXPECT_EQ(info.listener, &listener);
    EXPECT_EQ(info.lastAliveTick, 0xFFFFFFFFU);
    EXPECT_EQ(info.watchStatus, 0);
    EXPECT_EQ(info.aliveStatus, 0);
    EXPECT_EQ(info.timeoutCount, 0U);
    EXPECT_EQ(info.lastStatement, StatementInfo::INVALID);
    EXPECT_STREQ(info.name.buffer(), "seven");
}

TEST(WatchdogInfo, TheDefaultWatchInterval_IsOneSecond) {
    EXPECT_EQ(WatchdogInfo::DEFAULT_WATCH_INTERVAL, 1000U);
}

template <typename CHANGE>
void expectFieldCounts(CHANGE change) {
    WatchdogInfo const original(7, 500, nullptr, "seven", 1);
    WatchdogInfo changed(original);
    EXPECT_TRUE(changed == original);
    EXPECT_FALSE(changed != original);
    change(changed);
    EXPECT_FALSE(changed == original);
    EXPECT_TRUE(changed != original);
    WatchdogInfo assigned;
    assigned = changed;
    EXPECT_TRUE(assigned == changed);
}

TEST(WatchdogInfo, EqualityAndAssignment_WorkOnEveryField) {
    static CountingListener listener;
    expectFieldCounts([](WatchdogInfo& info) { info.id = 8; });
    expectFieldCounts([](WatchdogInfo& info) { info.aliveTime = 501; });
    expectFieldCounts([](WatchdogInfo& info) { info.listener = &listener; });
    expectFieldCounts([](WatchdogInfo& info) { info.lastAliveTick = 0; });
    expectFieldCounts([](WatchdogInfo& info) { info.watchStatus = 0; });
    expectFieldCounts([](WatchdogInfo& info) { info.aliveStatus = 2; });
    expectFieldCounts([](WatchdogInfo& info) { info.timeoutCount = 1; });
    expectFieldCounts([](WatchdogInfo& info) { info.lastStatement.line = 1; });
    expectFieldCounts([](WatchdogInfo& info) { info.name = "eight"; });
}

// The table.

TEST_F(ThreadWatchdogTable, BeforeItIsInitialized_DoesNothing) {
    mWatchdog.entry(kernelId(), 500, nullptr, "caller");
    Access::setInitialized(mWatchdog, false);
    mLog.clear();
    EXPECT_FALSE(mWatchdog.entry(8, 500, nullptr, "eight"));
    EXPECT_FALSE(mWatchdog.isRegistered(kernelId()));
    EXPECT_FALSE(mWatchdog.isWatching(kernelId()));
    EXPECT_FALSE(mWatchdog.setAliveTime(kernelId(), 600));
    EXPECT_FALSE(mWatchdog.setAliveTime(kernelId(), 0));
    EXPECT_FALSE(mWatchdog.start(kernelId()));
    EXPECT_FALSE(mWatchdog.stop(kernelId()));
    EXPECT_FALSE(mWatchdog.keepAlive(StatementInfo::INVALID));
    EXPECT_FALSE(mWatchdog.unregister(kernelId()));
    mWatchdog.printWatchdogInfo(1);
    EXPECT_TRUE(mLog.lines().empty());
    EXPECT_EQ(*mWatchdog.findWatchdogInfo(kernelId()), WatchdogInfo(kernelId(), 500, nullptr, "caller", 1));
    EXPECT_EQ(Access::infos(mWatchdog).size(), 1U);
}

TEST_F(ThreadWatchdogTable, ANewWatchdog_IsNotInitialized) {
    ThreadWatchdog fresh(1);
    EXPECT_FALSE(fresh.entry(7, 500, nullptr, "seven"));
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(ThreadWatchdogTable, Entry_WithoutAnAliveTime_LogsEvenBeforeItIsInitialized) {
    for (bool initialized : {true, false}) {
        mLog.clear();
        Access::setInitialized(mWatchdog, initialized);
        EXPECT_FALSE(mWatchdog.entry(7, 0, nullptr, nullptr));
        EXPECT_EQ(mLog.lines(), Lines{"<UTIL> ERR: ThreadWatchdog Register AliveTime is 0 ID:7 "});
    }
}

TEST_F(ThreadWatchdogTable, Entry_WithoutAName_IsFalseInSilence) {
    EXPECT_FALSE(mWatchdog.entry(7, 500, nullptr, nullptr));
    EXPECT_FALSE(mWatchdog.isRegistered(7));
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(ThreadWatchdogTable, Entry_RegistersAThreadThatIsNotYetWatched) {
    CountingListener listener;
    EXPECT_TRUE(mWatchdog.entry(7, 500, &listener, "seven"));
    EXPECT_TRUE(mWatchdog.isRegistered(7));
    EXPECT_FALSE(mWatchdog.isWatching(7));
    EXPECT_EQ(*mWatchdog.findWatchdogInfo(7), WatchdogInfo(7, 500, &listener, "seven", 1));
    EXPECT_EQ(mLog.lines(), Lines{"<UTIL> DTL: ThreadWatchdog Register ID:7, AliveTime:500, Name:seven"});
}

TEST_F(ThreadWatchdogTable, Entry_WithTheLongestAliveTime_LogsItUnsigned) {
    EXPECT_TRUE(mWatchdog.entry(7, 0xFFFFFFFFU, nullptr, ""));
    EXPECT_EQ(mLog.lines(), Lines{"<UTIL> DTL: ThreadWatchdog Register ID:7, AliveTime:4294967295, Name:"});
}

TEST_F(ThreadWatchdogTable, Entry_OfARegisteredId_LogsAndKeepsTheFirst) {
    EXPECT_TRUE(mWatchdog.entry(7, 500, nullptr, "first"));
    mLog.clear();
    EXPECT_FALSE(mWatchdog.entry(7, 600, nullptr, "second"));
    EXPECT_EQ(mLog.lines(), Lines{"<UTIL> ERR: ThreadWatchdog Register EntryMap ID:7"});
    EXPECT_EQ(*mWatchdog.findWatchdogInfo(7), WatchdogInfo(7, 500, nullptr, "first", 1));
}

TEST_F(ThreadWatchdogTable, Entry_IntoAFullTable_Logs) {
    for (int id = 1; id <= static_cast<int>(ENTRY_MAX); ++id) {
        EXPECT_TRUE(mWatchdog.entry(id, 500, nullptr, "fits"));
    }
    mLog.clear();
    EXPECT_FALSE(mWatchdog.entry(7, 500, nullptr, "seven"));
    EXPECT_EQ(mLog.lines(), Lines{"<UTIL> ERR: ThreadWatchdog Register EntryMap ID:7"});
    EXPECT_TRUE(mWatchdog.unregister(1));
    EXPECT_TRUE(mWatchdog.entry(7, 500, nullptr, "seven"));
}

TEST_F(ThreadWatchdogTable, Unregister_RemovesTheThread) {
    EXPECT_TRUE(mWatchdog.entry(7, 500, nullptr, "seven"));
    EXPECT_TRUE(mWatchdog.unregister(7));
    EXPECT_FALSE(mWatchdog.isRegistered(7));
    EXPECT_EQ(mWatchdog.findWatchdogInfo(7), nullptr);
    EXPECT_FALSE(mWatchdog.unregister(7));
}

TEST_F(ThreadWatchdogTable, OperationsOnAnAbsentThread_AreFalse) {
    EXPECT_FALSE(mWatchdog.isRegistered(7));
    EXPECT_FALSE(mWatchdog.isWatching(7));
    EXPECT_FALSE(mWatchdog.setAliveTime(7, 500));
    EXPECT_FALSE(mWatchdog.start(7));
    EXPECT_FALSE(mWatchdog.stop(7));
    EXPECT_FALSE(mWatchdog.unregister(7));
    EXPECT_EQ(mWatchdog.findWatchdogInfo(7), nullptr);
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(ThreadWatchdogTable, SetAliveTime_To0_LogsAndKeepsTheOld) {
    EXPECT_TRUE(mWatchdog.entry(7, 500, nullptr, "seven"));
    mLog.clear();
    EXPECT_FALSE(mWatchdog.setAliveTime(7, 0));
    EXPECT_EQ(mLog.lines(), Lines{"<UTIL> ERR: ThreadWatchdog Register AliveTime is 0 ID:7 "});
    EXPECT_EQ(mWatchdog.findWatchdogInfo(7)->aliveTime, 500U);
}

TEST_F(ThreadWatchdogTable, SetAliveTime_OfAThreadThatIsNotWatched_LeavesItsTick) {
    EXPECT_TRUE(mWatchdog.entry(7, 500, nullptr, "seven"));
    EXPECT_TRUE(mWatchdog.setAliveTime(7, 600));
    EXPECT_EQ(*mWatchdog.findWatchdogInfo(7), WatchdogInfo(7, 600, nullptr, "seven", 1));
}

TEST_F(ThreadWatchdogTable, SetAliveTime_OfAWatchedThread_BeginsANewPeriod) {
    WatchdogInfo const& info = watchCaller();
    gTick = 1400;
    EXPECT_TRUE(mWatchdog.setAliveTime(kernelId(), 600));
    EXPECT_EQ(info.aliveTime, 600U);
    EXPECT_EQ(info.lastAliveTick, 1400U);
}

TEST_F(ThreadWatchdogTable, Start_OfAThreadWithoutASignOfLife_BeginsItsPeriod) {
    WatchdogInfo const& info = watchCaller();
    EXPECT_TRUE(mWatchdog.isWatching(kernelId()));
    EXPECT_EQ(info.watchStatus, 0);
    EXPECT_EQ(info.lastAliveTick, 1000U);
    EXPECT_EQ(info.aliveStatus, 0);
}

TEST_F(ThreadWatchdogTable, Start_DoesNotExcuseASilenceSinceAnEarlierSignOfLife) {
    WatchdogInfo const& info = watchCaller();
    gTick = 1100;
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo::INVALID));
    gTick = 5000;
    EXPECT_TRUE(mWatchdog.start(kernelId()));
    EXPECT_EQ(info.lastAliveTick, 1100U);
}

TEST_F(ThreadWatchdogTable, Stop_ForgetsTheLastSignOfLifeAndKeepsTheStatus) {
    WatchdogInfo const& info = watchCaller();
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo::INVALID));
    EXPECT_TRUE(mWatchdog.stop(kernelId()));
    EXPECT_FALSE(mWatchdog.isWatching(kernelId()));
    EXPECT_TRUE(mWatchdog.isRegistered(kernelId()));
    EXPECT_EQ(info.watchStatus, 1);
    EXPECT_EQ(info.lastAliveTick, 0xFFFFFFFFU);
    EXPECT_EQ(info.aliveStatus, 1);
}

TEST_F(ThreadWatchdogTable, StopAndStart_BeginANewPeriodWithTheStart) {
    WatchdogInfo const& info = watchCaller();
    gTick = 1200;
    EXPECT_TRUE(mWatchdog.stop(kernelId()));
    gTick = 1300;
    EXPECT_TRUE(mWatchdog.start(kernelId()));
    EXPECT_EQ(info.lastAliveTick, 1300U);
}

TEST_F(ThreadWatchdogTable, StartAndStop_OfATimedOutThread_KeepItTimedOut) {
    WatchdogInfo& info = watchCaller();
    info.aliveStatus = WatchdogInfo::TIMED_OUT;
    EXPECT_TRUE(mWatchdog.stop(kernelId()));
    EXPECT_EQ(info.aliveStatus, 2);
    EXPECT_TRUE(mWatchdog.start(kernelId()));
    EXPECT_EQ(info.aliveStatus, 2);
}

TEST_F(ThreadWatchdogTable, KeepAlive_OfAThreadThatIsNotRegistered_HasNoEffect) {
    EXPECT_TRUE(mWatchdog.entry(7, 500, nullptr, "somebody else"));
    EXPECT_TRUE(mWatchdog.start(7));
    WatchdogInfo const before = *mWatchdog.findWatchdogInfo(7);
    gTick = 1200;
    EXPECT_FALSE(mWatchdog.keepAlive(StatementInfo("file", "function", 1, 2)));
    EXPECT_EQ(*mWatchdog.findWatchdogInfo(7), before);
    EXPECT_FALSE(Access::isInKeepAlive(mWatchdog));
}

TEST_F(ThreadWatchdogTable, KeepAlive_OfAThreadThatIsNotWatched_LeavesNoTrace) {
    EXPECT_TRUE(mWatchdog.entry(kernelId(), 500, nullptr, "caller"));
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo("file", "function", 1, 2)));
    EXPECT_EQ(*mWatchdog.findWatchdogInfo(kernelId()), WatchdogInfo(kernelId(), 500, nullptr, "caller", 1));
    EXPECT_FALSE(Access::isInKeepAlive(mWatchdog));
}

TEST_F(ThreadWatchdogTable, KeepAlive_OfAWatchedThread_NotesPlaceAndTime) {
    WatchdogInfo const& info = watchCaller();
    mLog.clear();
    gTick = 1300;
    StatementInfo const place("file", "function", 1, 2);
    EXPECT_TRUE(mWatchdog.keepAlive(place));
    EXPECT_EQ(info.aliveStatus, 1);
    EXPECT_EQ(info.lastStatement, place);
    EXPECT_EQ(info.lastAliveTick, 1300U);
    EXPECT_EQ(info.timeoutCount, 0U);
    EXPECT_FALSE(Access::isInKeepAlive(mWatchdog));
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(ThreadWatchdogTable, KeepAlive_OfATimedOutThread_RevivesAndLogsIt) {
    WatchdogInfo& info = watchCaller();
    info.aliveStatus = WatchdogInfo::TIMED_OUT;
    info.timeoutCount = 3;
    mLog.clear();
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo::INVALID));
    EXPECT_EQ(info.aliveStatus, 1);
    EXPECT_EQ(info.timeoutCount, 3U);
    EXPECT_EQ(
        mLog.lines(),
        Lines{"<UTIL> INF: ThreadWatchdog Timeout->Alive ID:" + std::to_string(kernelId()) + " Name:caller"});
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo::INVALID));
    EXPECT_EQ(mLog.lines().size(), 1U);
}

TEST_F(ThreadWatchdogTable, KeepAlive_InsideAnother_HasNoEffect) {
    WatchdogInfo const& info = watchCaller();
    WatchdogInfo const before = info;
    Access::setInKeepAlive(mWatchdog, true);
    EXPECT_FALSE(mWatchdog.keepAlive(StatementInfo("file", "function", 1, 2)));
    EXPECT_EQ(info, before);
    EXPECT_TRUE(Access::isInKeepAlive(mWatchdog));
}

ThreadWatchdog* gWatchdog;
int gInnerCalls;

TEST_F(ThreadWatchdogTable, KeepAlive_FromTheLogLineOfAnother_HasNoEffect) {
    WatchdogInfo& info = watchCaller();
    info.aliveStatus = WatchdogInfo::TIMED_OUT;
    gWatchdog = &mWatchdog;
    gInnerCalls = 0;
    hooks::getTimeOfDay.replace([](timeval* out, void* zone) {
        ++gInnerCalls;
        EXPECT_FALSE(gWatchdog->keepAlive(StatementInfo("inner", "inner", 0, 0)));
        return hooks::getTimeOfDay.real(out, zone);
    });
    StatementInfo const outer("outer", "outer", 1, 1);
    EXPECT_TRUE(mWatchdog.keepAlive(outer));
    EXPECT_EQ(gInnerCalls, 1);
    EXPECT_EQ(info.lastStatement, outer);
    EXPECT_FALSE(Access::isInKeepAlive(mWatchdog));
}

TEST_F(ThreadWatchdogTable, EachReport_IsSeenByTheNextLook) {
    watchCaller();
    for (unsigned int line = 1; line <= 5; ++line) {
        gTick += 10;
        StatementInfo const place("file", "function", line, 2);
        EXPECT_TRUE(mWatchdog.keepAlive(place));
        EXPECT_TRUE(mWatchdog.keepAlive(place));
        WatchdogInfo const info = *mWatchdog.findWatchdogInfo(kernelId());
        EXPECT_EQ(info.lastStatement, place);
        EXPECT_EQ(info.lastAliveTick, gTick);
    }
}

TEST_F(ThreadWatchdogTable, AnOlderReport_DoesNotUndoStopStartOrANewAliveTime) {
    WatchdogInfo const& info = watchCaller();
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo::INVALID));
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo::INVALID));
    EXPECT_TRUE(mWatchdog.stop(kernelId()));
    EXPECT_TRUE(mWatchdog.findWatchdogInfo(kernelId()) == &info &&
                info.lastAliveTick == WatchdogInfo::NO_TICK);
    gTick = 2000;
    EXPECT_TRUE(mWatchdog.start(kernelId()));
    EXPECT_TRUE(mWatchdog.findWatchdogInfo(kernelId()) == &info && info.lastAliveTick == 2000);
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo::INVALID));
    gTick = 3000;
    EXPECT_TRUE(mWatchdog.setAliveTime(kernelId(), 700));
    EXPECT_TRUE(mWatchdog.findWatchdogInfo(kernelId()) == &info && info.lastAliveTick == 3000);
}

TEST_F(ThreadWatchdogTable, ALookFromInsideAReport_SeesItsPlace) {
    watchCaller();
    gWatchdog = &mWatchdog;
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo::INVALID));
    hooks::clockGetTime.replace([](clockid_t clock, timespec* out) {
        EXPECT_EQ(gWatchdog->findWatchdogInfo(kernelId())->lastStatement, StatementInfo("f", "inner", 3, 1));
        EXPECT_FALSE(gWatchdog->keepAlive(StatementInfo::INVALID)) << "one inside another has no effect";
        return standingClock(clock, out);
    });
    unsigned int const before = hooks::clockGetTime.calls();
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo("f", "inner", 3, 1)));
    EXPECT_EQ(hooks::clockGetTime.calls() - before, 1U);
}

TEST_F(ThreadWatchdogTable, ALookFromInsideAReportOnAClockThatFails_SeesTheTimeOfTheLastOne) {
    watchCaller();
    gWatchdog = &mWatchdog;
    for (gTick = 1100; gTick < 1400; gTick += 100) {
        EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo::INVALID));
    }
    hooks::clockGetTime.replace([](clockid_t, timespec*) {
        EXPECT_EQ(gWatchdog->findWatchdogInfo(kernelId())->lastAliveTick, 1300U);
        errno = EINVAL;
        return -1;
    });
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo("f", "inner", 3, 1)));
    hooks::clockGetTime.replace(standingClock);
    EXPECT_EQ(mWatchdog.findWatchdogInfo(kernelId())->lastAliveTick, WatchdogInfo::NO_TICK);
}

TEST_F(ThreadWatchdogTable, AReportInsideAnother_HasNoEffectThoughAThirdThreadLooks) {
    watchCaller();
    gWatchdog = &mWatchdog;
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo::INVALID));
    static int const caller = kernelId();
    hooks::clockGetTime.replace([](clockid_t clock, timespec* out) {
        static unsigned int calls = 0;
        if (++calls == 1) {
            std::thread([] { EXPECT_NE(gWatchdog->findWatchdogInfo(caller), nullptr); }).join();
            EXPECT_FALSE(gWatchdog->keepAlive(StatementInfo("f", "inner", 4, 1)));
        }
        return standingClock(clock, out);
    });
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo("f", "outer", 3, 1)));
    EXPECT_EQ(mWatchdog.findWatchdogInfo(caller)->lastStatement, StatementInfo("f", "outer", 3, 1));
}

TEST_F(ThreadWatchdogTable, WhatACallerWritesIntoItsRow_CountsForTheNextReport) {
    watchCaller();
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo::INVALID));
    mWatchdog.findWatchdogInfo(kernelId())->aliveStatus = WatchdogInfo::TIMED_OUT;
    mLog.clear();
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo::INVALID));
    EXPECT_EQ(mWatchdog.findWatchdogInfo(kernelId())->aliveStatus, WatchdogInfo::ALIVE);
    EXPECT_EQ(
        mLog.lines(),
        Lines{"<UTIL> INF: ThreadWatchdog Timeout->Alive ID:" + std::to_string(kernelId()) + " Name:caller"});
}

TEST_F(ThreadWatchdogTable, AStopFromInsideAReport_Counts) {
    WatchdogInfo const& info = watchCaller();
    gWatchdog = &mWatchdog;
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo::INVALID));
    hooks::clockGetTime.replace([](clockid_t clock, timespec* out) {
        EXPECT_TRUE(gWatchdog->stop(kernelId()));
        return standingClock(clock, out);
    });
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo("f", "inner", 3, 1)));
    EXPECT_EQ(mWatchdog.findWatchdogInfo(kernelId()), &info);
    EXPECT_EQ(info.lastAliveTick, WatchdogInfo::NO_TICK);
    EXPECT_EQ(info.watchStatus, WatchdogInfo::NOT_WATCHING);
}

TEST(ThreadWatchdogOfMany, TheCaller_ReportsHoweverManyOthersAreWatched) {
    LogCapture const log;
    ThreadWatchdog watchdog(600);
    Access::setInitialized(watchdog, true);
    for (int id = 1; id < 600; ++id) {
        ASSERT_TRUE(watchdog.entry(-id, 500, nullptr, "other"));
    }
    ASSERT_TRUE(watchdog.entry(kernelId(), 500, nullptr, "caller"));
    ASSERT_TRUE(watchdog.start(kernelId()));
    for (unsigned int line = 1; line <= 3; ++line) {
        StatementInfo const place("file", "function", line, 2);
        EXPECT_TRUE(watchdog.keepAlive(place));
        EXPECT_EQ(watchdog.findWatchdogInfo(kernelId())->lastStatement, place);
    }
}

TEST_F(ThreadWatchdogTable, TheStepBehindKeepAlive_TakesAnyThreadsId) {
    struct Opened : ThreadWatchdog {
        using ThreadWatchdog::executeKeepAlive;
        using ThreadWatchdog::ThreadWatchdog;
    } opened(1);
    Access::setInitialized(opened, true);
    EXPECT_TRUE(opened.entry(7, 500, nullptr, "seven"));
    EXPECT_TRUE(opened.start(7));
    EXPECT_TRUE(opened.executeKeepAlive(7, StatementInfo("file", "function", 1, 2)));
    EXPECT_FALSE(opened.executeKeepAlive(8, StatementInfo("file", "function", 1, 2)));
    EXPECT_EQ(opened.findWatchdogInfo(7)->aliveStatus, 1);
}

// The table in the log.

TEST_F(ThreadWatchdogTable, Print_OfAnEmptyTable_PrintsItsHead) {
    mWatchdog.printWatchdogInfo(2);
    EXPECT_EQ(mLog.lines(),
              (Lines{std::string("<UTIL> WRN: ") + TITLE, std::string("<UTIL> WRN: ") + COLUMNS}));
}

TEST_F(ThreadWatchdogTable, Print_PrintsARowForEachThreadInTheOrderOfTheIds) {
    EXPECT_TRUE(mWatchdog.entry(12, 500, nullptr, "alive"));
    EXPECT_TRUE(mWatchdog.entry(7, 4000000000U, nullptr, "timed out"));
    EXPECT_TRUE(mWatchdog.entry(-3, 1, nullptr, "unknown"));
    EXPECT_TRUE(mWatchdog.start(12));
    mWatchdog.findWatchdogInfo(12)->aliveStatus = WatchdogInfo::ALIVE;
    mWatchdog.findWatchdogInfo(12)->lastStatement = StatementInfo("source/UtlFile", "open", 123, 1);
    EXPECT_TRUE(mWatchdog.start(7));
    mWatchdog.findWatchdogInfo(7)->aliveStatus = WatchdogInfo::TIMED_OUT;
    mWatchdog.findWatchdogInfo(7)->timeoutCount = 4294967295U;
    mLog.clear();
    mWatchdog.printWatchdogInfo(4);
    EXPECT_EQ(mLog.lines(),
              (Lines{std::string("<UTIL> DTL: ") + TITLE, std::string("<UTIL> DTL: ") + COLUMNS,
                     "<UTIL> DTL:         -3, unknown                         ,          1, NOT_WATCHING, "
                     "UNKNOWN     ,             0, (, :0:0)",
                     "<UTIL> DTL:          7, timed out                       , 4000000000, WATCHING    , "
                     "TIMEOUT     ,    4294967295, (, :0:0)",
                     "<UTIL> DTL:         12, alive                           ,        500, WATCHING    , "
                     "ALIVE       ,             0, (source/UtlFile, open:123:1)"}));
}

TEST_F(ThreadWatchdogTable, Print_CutsANameTo31BytesOnACharacterBoundary) {
    std::string const bytes30(30, 'n');
    EXPECT_TRUE(mWatchdog.entry(1, 1, nullptr, (bytes30 + "xy").c_str()));
    EXPECT_TRUE(mWatchdog.entry(2, 1, nullptr, (bytes30 + "\xC3\xA9").c_str()));
    mLog.clear();
    mWatchdog.printWatchdogInfo(3);
    ASSERT_EQ(mLog.lines().size(), 4U);
    EXPECT_NE(mLog.lines()[2].find("1, " + bytes30 + "x ,"), std::string::npos);
    EXPECT_NE(mLog.lines()[3].find("2, " + bytes30 + "  ,"), std::string::npos);
}

TEST_F(ThreadWatchdogTable, Print_OfANullFile_PrintsAnEmptyText) {
    WatchdogInfo& info = watchCaller();
    info.lastStatement = StatementInfo(nullptr, "function", 1, 2);
    mLog.clear();
    mWatchdog.printWatchdogInfo(3);
    EXPECT_NE(mLog.lines().back().find("(, function:1:2)"), std::string::npos);
}

TEST_F(ThreadWatchdogTable, TheDefaultListener_PrintsTheSnapshotAtLevel3) {
    WatchdogInfos infos(1, 0);
    EXPECT_TRUE(infos.insert(7, WatchdogInfo(7, 500, nullptr, "seven", 0)));
    ThreadWatchdog::DefaultTimerListener listener;
    static_cast<WatchdogTimerListener&>(listener).onTime(7, infos);
    EXPECT_EQ(mLog.lines(),
              (Lines{std::string("<UTIL> INF: ") + TITLE, std::string("<UTIL> INF: ") + COLUMNS,
                     "<UTIL> INF:          7, seven                           ,        500, WATCHING    , "
                     "UNKNOWN     ,             0, (, :0:0)"}));
}

// A watchdog without a thread.

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

constexpr int TIMER = 42;

/// A watchdog without a thread of its own, whose passes the test calls, on a clock that the test sets.
class WatchdogPassByTimer : public WithoutWatchdogThread {
  protected:
    WatchdogPassByTimer() {
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

TEST_F(WatchdogPassByTimer, AThread_IsOverdueFromItsTimeOnAndNeverBeforeItsLastTick) {
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

TEST_F(WatchdogPassByTimer, TimeThatAListenerTakes_MakesNobodyOverdueInTheSamePass) {
    listener.then = [](int, utl::WatchdogInfos const&) { gTick = gTick + 1000; };
    watch(7, 100, &listener);
    watch(8, 200, &listener);
    passAt(150);
    EXPECT_EQ(listener.ids(), (Ids{7}));
    passAt(1150);
    EXPECT_EQ(listener.ids(), (Ids{7, 8}));
}

TEST_F(WatchdogPassByTimer, AnOverdueEntryOfIdZero_EndsThePassForTheIdsBehindIt) {
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

TEST_F(WatchdogPassByTimer, WhatAListenerChanges_CountsInTheSamePass) {
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

TEST_F(WatchdogPassByTimer, NothingButASignOfLife_BringsASecondReport) {
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

TEST_F(WatchdogPassByTimer, ATimeoutWithoutAListener_PrintsTheTableOfThatMoment) {
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

TEST_F(WatchdogPassByTimer, MessagesThatAreNotOfItsTimer_BringNoPass) {
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

// The thread of its own, on the real clock.

TEST_F(WatchdogOnTheRealClock, AListenerThatSetsTheInterval_IsServedByTheNewTimerAlone) {
    AwaitedListener listener;
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

TEST_F(WatchdogOnTheRealClock, Destroy_WaitsForAListenerThatUsesTheManagerMeanwhile) {
    AwaitedListener listener;
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
    Gate gate;
    watch(7);
    mListener.then = [&](int id, WatchdogInfos const&) {
        if (id == 7) {
            EXPECT_TRUE(gate.hold());
        }
    };
    gTick = 1500;
    ASSERT_TRUE(gate.waitUntilHeld());
    watch(8, 1);
    gTick = 2000;
    unsigned int const passes = gPasses;
    unsigned int const timers = hooks::timerCreate.calls();
    utl::Thread::sleep(20);
    EXPECT_EQ(gPasses, passes);
    EXPECT_EQ(hooks::timerCreate.calls(), timers) << "the next period begins behind the listener";
    EXPECT_EQ(mListener.ids(), std::vector<int>{7});
    gate.open();
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
    Gate gate;
    utltest::Collector collector;
    collector.onMsg = [&](int id, int) {
        if (id == utltest::BLOCKER) {
            EXPECT_TRUE(gate.hold());
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
    ASSERT_TRUE(gate.waitUntilHeld());
    gTick = 60000;
    waitForTimeOuts(1);
    gate.open();
    EXPECT_EQ(mListener.ids(), std::vector<int>{thread.getId()});
    ASSERT_EQ(mListener.snapshot().size(), 1U);
    EXPECT_STREQ(mListener.snapshot()[0].lastStatement.file, "source/UtlMsgDrivenThread");
    EXPECT_STREQ(mListener.snapshot()[0].lastStatement.function, "execute");
}

std::atomic<int> gHolderId;
Gate* gInTheLogLine;

// The thread that logs under the pool's lock stays there; the time of its line is asked for before the
// log's own locks.
int holdInTheLogLine(timeval* out, void* zone) {
    if (kernelId() == gHolderId) {
        EXPECT_TRUE(gInTheLogLine->hold());
    }
    return hooks::getTimeOfDay.real(out, zone);
}

TEST_F(WatchdogThread, TheReportOfAThreadThatWaitsForALock_NamesTheLocksPlace) {
    utl::MemoryPool pool(16, 2, "shared");
    void* const block = pool.create();
    pool.release(block);
    Gate gate;
    gInTheLogLine = &gate;
    gHolderId = 0;
    hooks::getTimeOfDay.replace(holdInTheLogLine);
    std::thread holder([&pool, block] {
        gHolderId = kernelId();
        pool.release(block);
    });
    ASSERT_TRUE(gate.waitUntilHeld());
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
    gate.open();
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

// The interval.

std::atomic<long> gSeconds;
std::atomic<long> gNanoseconds;

int noteInterval(timer_t timer, int flags, itimerspec const* setting, itimerspec* old) {
    gSeconds = static_cast<long>(setting->it_value.tv_sec);
    gNanoseconds = static_cast<long>(setting->it_value.tv_nsec);
    return hooks::timerSetTime.real(timer, flags, setting, old);
}

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

TEST_F(WatchdogLife, Destructor_DuringAPass_TakesNothingFromAnotherWatchdog) {
    manager();
    ThreadWatchdog other(4);
    Access::setInitialized(other, true);
    StatementInfo const place("f", "f", 1, 1);
    for (int round = 0; round < 20; ++round) {
        int id = 0;
        {
            ThreadWatchdog watchdog(4);
            EXPECT_TRUE(watchdog.initialize(1));
            id = Access::thread(watchdog).getId();
            EXPECT_TRUE(watchdog.entry(kernelId(), 60000, nullptr, "caller"));
            EXPECT_TRUE(watchdog.start(kernelId()));
            utl::Thread::sleep(2);
        }
        EXPECT_TRUE(other.entry(kernelId(), 60000, nullptr, "caller"));
        EXPECT_TRUE(other.keepAlive(place)) << "not watched";
        EXPECT_EQ(other.findWatchdogInfo(kernelId())->lastStatement, StatementInfo::INVALID);
        EXPECT_TRUE(other.unregister(kernelId()));
        EXPECT_TRUE(manager().unregister(id));
    }
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

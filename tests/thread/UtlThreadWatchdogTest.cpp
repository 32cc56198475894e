#include "UtlThreadWatchdog.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestThreads.h"
#include "TestWatchdog.h"

namespace {

using utl::StatementInfo;
using utl::ThreadWatchdog;
using utl::WatchdogInfo;
using utl::WatchdogInfos;
using utl::WatchdogTimerListener;
using utltest::COLUMNS;
using utltest::gTick;
using utltest::HookScope;
using utltest::kernelId;
using utltest::LogCapture;
using utltest::standingClock;
using utltest::TITLE;
using Access = utltest::ThreadWatchdogAccess;
using Lines = std::vector<std::string>;
namespace hooks = utltest::hooks;

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

class ThreadWatchdogTable : public ::testing::Test {
  protected:
    static constexpr unsigned int ENTRY_MAX = 3;

    ThreadWatchdogTable() {
        Access::setInitialized(mWatchdog, true);
        hooks::clockGetTime.replace(standingClock);
        gTick = 1000;
    }

    /// Registers and watches the calling thread; its record.
    WatchdogInfo& watchCaller() {
        EXPECT_TRUE(mWatchdog.entry(kernelId(), 500, nullptr, "caller"));
        EXPECT_TRUE(mWatchdog.start(kernelId()));
        return *mWatchdog.findWatchdogInfo(kernelId());
    }

    HookScope const mHooks;
    LogCapture mLog;
    ThreadWatchdog mWatchdog{ENTRY_MAX};
};

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

TEST_F(ThreadWatchdogTable, KeepAlive_OnAClockThatFails_LeavesTheThreadUntimed) {
    WatchdogInfo const& info = watchCaller();
    hooks::clockGetTime.failFrom(1, 1, -1, EINVAL);
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo::INVALID));
    EXPECT_EQ(info.lastAliveTick, 0xFFFFFFFFU);
    EXPECT_EQ(info.aliveStatus, 1);
    gTick = 1700;
    EXPECT_TRUE(mWatchdog.keepAlive(StatementInfo::INVALID));
    EXPECT_EQ(info.lastAliveTick, 1700U);
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

// Everything at once.

TEST(ThreadWatchdogStress, ManyThreadsAtOnce_CanDoEverything) {
    LogCapture const log;
    ThreadWatchdog watchdog(8);
    Access::setInitialized(watchdog, true);
    auto const work = [&watchdog] {
        for (unsigned int round = 1; round <= 200; ++round) {
            EXPECT_TRUE(watchdog.entry(kernelId(), round, nullptr, "busy"));
            EXPECT_TRUE(watchdog.start(kernelId()));
            EXPECT_TRUE(watchdog.keepAlive(StatementInfo("file", "function", round, 0)));
            EXPECT_TRUE(watchdog.setAliveTime(kernelId(), round + 1));
            EXPECT_TRUE(watchdog.isWatching(kernelId()));
            EXPECT_TRUE(watchdog.stop(kernelId()));
            if (round % 20 == 0) {
                watchdog.printWatchdogInfo(4);
            }
            EXPECT_TRUE(watchdog.unregister(kernelId()));
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(work);
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(Access::infos(watchdog).size(), 0U);
}

}  // namespace

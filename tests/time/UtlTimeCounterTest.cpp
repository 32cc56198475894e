#include "UtlTimeCounter.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "TestExit.h"
#include "TestHooks.h"
#include "TestLog.h"

namespace {

using utl::TimeCounter;
using utltest::hooks::clockGetTime;
using Lines = std::vector<std::string>;

constexpr unsigned int INVALID = 0xFFFFFFFFU;
constexpr char const* CAUTION = "<UTIL> ERR: [CAUTION!!!]clock_gettime() Failed. CLOCK_MONOTONIC. errno:[22]";

// The library's clock shows what a test sets, and no line leaves the process.
class TimeCounterTest : public testing::Test {
  protected:
    TimeCounterTest() {
        setNow(1000);
        clockGetTime.replace([](clockid_t clock, timespec* now) {
            if (clock != CLOCK_MONOTONIC) {
                return -1;
            }
            now->tv_sec = static_cast<time_t>(theNow / 1000);
            now->tv_nsec = static_cast<long>(theNow % 1000) * 1000000L + 999999L;
            return 0;
        });
    }

    static void setNow(unsigned long long milliseconds) { theNow = milliseconds; }
    static void failClock() { clockGetTime.failFrom(1, 0, -1, EINVAL); }
    static void mendClock() { clockGetTime.failFrom(0, 0, 0, 0); }

    utltest::LogCapture mLog;

  private:
    static std::atomic<unsigned long long> theNow;

    utltest::HookScope mHooks;
};

std::atomic<unsigned long long> TimeCounterTest::theNow{0};

using TickTime = TimeCounterTest;
using Counter = TimeCounterTest;
using CounterId = TimeCounterTest;

void startIds(unsigned int count) {
    for (unsigned int id = 0; id < count; ++id) {
        ASSERT_TRUE(TimeCounter::start(id)) << id;
    }
}

void stopIds(unsigned int count) {
    for (unsigned int id = 0; id < count; ++id) {
        TimeCounter::stop(id);
    }
}

TEST_F(TickTime, IsTheMonotonicClockInWholeMilliseconds) {
    setNow(12345);
    EXPECT_EQ(TimeCounter::getTickTime(), 12345U);
}

TEST_F(TickTime, Wraps_WhereTheMillisecondsNoLongerFit) {
    setNow(0xFFFFFFFEULL);
    EXPECT_EQ(TimeCounter::getTickTime(), 0xFFFFFFFEU);
    setNow(0x100000000ULL);
    EXPECT_EQ(TimeCounter::getTickTime(), 0U);
    setNow(5 * 0x100000000ULL + 77);
    EXPECT_EQ(TimeCounter::getTickTime(), 77U);
}

TEST_F(TickTime, OnAClockThatFails_LogsTheErrorAndIsInvalid) {
    failClock();
    EXPECT_EQ(TimeCounter::getTickTime(), INVALID);
    EXPECT_EQ(mLog.lines(), Lines{CAUTION});
}

TEST_F(TickTime, OfTheInvalidValueItself_LogsNoCaution) {
    setNow(0xFFFFFFFFULL);
    EXPECT_EQ(TimeCounter::getTickTime(), INVALID);
    EXPECT_EQ(mLog.lines(), Lines{});
}

TEST_F(Counter, Watch_GivesTheTimeSinceTheStartAndRunsOn) {
    TimeCounter counter;
    ASSERT_TRUE(counter.start());
    setNow(1005);
    EXPECT_EQ(counter.watch(), 5U);
    setNow(1012);
    EXPECT_EQ(counter.watch(), 12U);
    EXPECT_EQ(mLog.lines(), Lines{});
}

TEST_F(Counter, Start_OnARunningCounter_CountsAnew) {
    TimeCounter counter;
    counter.start();
    setNow(1100);
    EXPECT_TRUE(counter.start());
    setNow(1103);
    EXPECT_EQ(counter.watch(), 3U);
}

TEST_F(Counter, Watch_BeforeTheStart_LogsOffAndFails) {
    TimeCounter counter;
    EXPECT_EQ(counter.watch(), INVALID);
    EXPECT_EQ(mLog.lines(),
              Lines{"<UTIL> ERR: TimeCounter::watch()/stop() Failed. HasStarted:[Off], TickTime:[1000]"});
}

TEST_F(Counter, Watch_OnAClockThatFails_LogsOnAndRunsOn) {
    TimeCounter counter;
    counter.start();
    failClock();
    EXPECT_EQ(counter.watch(), INVALID);
    EXPECT_EQ(
        mLog.lines(),
        (Lines{CAUTION,
               "<UTIL> ERR: TimeCounter::watch()/stop() Failed. HasStarted:[On], TickTime:[4294967295]"}));
    mendClock();
    setNow(1002);
    EXPECT_EQ(counter.watch(), 2U);
}

TEST_F(Counter, Stop_ASecondTime_LogsAndFails) {
    TimeCounter counter;
    counter.start();
    setNow(1009);
    EXPECT_EQ(counter.stop(), 9U);
    EXPECT_EQ(mLog.lines(), Lines{});
    EXPECT_EQ(counter.stop(), INVALID);
    EXPECT_EQ(mLog.lines(),
              Lines{"<UTIL> ERR: TimeCounter::watch()/stop() Failed. HasStarted:[Off], TickTime:[1009]"});
}

TEST_F(Counter, Stop_OnAClockThatFails_StopsAllTheSame) {
    TimeCounter counter;
    counter.start();
    failClock();
    EXPECT_EQ(counter.stop(), INVALID);
    mendClock();
    mLog.clear();
    EXPECT_EQ(counter.watch(), INVALID);
    EXPECT_EQ(mLog.lines(),
              Lines{"<UTIL> ERR: TimeCounter::watch()/stop() Failed. HasStarted:[Off], TickTime:[1000]"});
}

TEST_F(Counter, Start_OnAClockThatFails_LogsAndLeavesAStoppedCounterStopped) {
    TimeCounter counter;
    failClock();
    EXPECT_FALSE(counter.start());
    EXPECT_EQ(mLog.lines(), (Lines{CAUTION, "<UTIL> ERR: TimeCounter::start() Failed."}));
    mendClock();
    EXPECT_EQ(counter.watch(), INVALID);
}

TEST_F(Counter, Start_OnAClockThatFails_LeavesARunningCounterRunningFromTheInvalidTick) {
    TimeCounter counter;
    counter.start();
    failClock();
    EXPECT_FALSE(counter.start());
    mendClock();
    setNow(1500);
    EXPECT_EQ(counter.watch(), 1500U - INVALID);
}

TEST_F(Counter, Start_AtTheTickOfTheInvalidValue_FailsWithoutTheCaution) {
    TimeCounter counter;
    setNow(0xFFFFFFFFULL);
    EXPECT_FALSE(counter.start());
    EXPECT_EQ(mLog.lines(), Lines{"<UTIL> ERR: TimeCounter::start() Failed."});
}

TEST_F(Counter, WatchAndStop_AtTheTickOfTheInvalidValue_FailWithoutTheCaution) {
    TimeCounter counter;
    counter.start();
    setNow(0xFFFFFFFFULL);
    std::string const line =
        "<UTIL> ERR: TimeCounter::watch()/stop() Failed. HasStarted:[On], TickTime:[4294967295]";
    EXPECT_EQ(counter.watch(), INVALID);
    EXPECT_EQ(counter.stop(), INVALID);
    EXPECT_EQ(mLog.lines(), (Lines{line, line}));
}

TEST_F(Counter, Stop_BeyondTheWrap_GivesTheTimeAcrossIt) {
    TimeCounter counter;
    setNow(0xFFFFFFF0ULL);
    counter.start();
    setNow(0x100000010ULL);
    EXPECT_EQ(counter.stop(), 32U);
}

TEST_F(CounterId, Watch_GivesTheTimeOfItsOwnIdAndRunsOn) {
    TimeCounter::start(7);
    setNow(1003);
    TimeCounter::start(6);
    setNow(1010);
    EXPECT_EQ(TimeCounter::watch(7), 10U);
    EXPECT_EQ(TimeCounter::watch(6), 7U);
    setNow(1011);
    EXPECT_EQ(TimeCounter::stop(7), 11U);
    EXPECT_EQ(TimeCounter::stop(6), 8U);
    EXPECT_EQ(mLog.lines(), Lines{});
}

TEST_F(CounterId, Start_ASecondTime_CountsFromThere) {
    TimeCounter::start(7);
    setNow(1100);
    EXPECT_TRUE(TimeCounter::start(7));
    setNow(1104);
    EXPECT_EQ(TimeCounter::stop(7), 4U);
}

TEST_F(CounterId, Watch_BeyondTheWrap_GivesTheTimeAcrossIt) {
    setNow(0xFFFFFFF0ULL);
    TimeCounter::start(7);
    setNow(0x100000010ULL);
    EXPECT_EQ(TimeCounter::stop(7), 32U);
}

TEST_F(CounterId, Watch_OfAnIdThatWasNeverStarted_LogsAndFails) {
    EXPECT_EQ(TimeCounter::watch(8), INVALID);
    EXPECT_EQ(mLog.lines(), Lines{"<UTIL> ERR: TimeCounter::Failed. Key Not Applicable. CounterId:[8]"});
}

TEST_F(CounterId, Watch_AfterTheStop_LogsAndFails) {
    TimeCounter::start(7);
    TimeCounter::stop(7);
    EXPECT_EQ(TimeCounter::watch(7), INVALID);
    EXPECT_EQ(mLog.lines(), Lines{"<UTIL> ERR: TimeCounter::Failed. Key Not Applicable. CounterId:[7]"});
}

TEST_F(CounterId, Stop_OfAnIdThatWasNeverStarted_LogsAndFails) {
    EXPECT_EQ(TimeCounter::stop(4000000000U), INVALID);
    EXPECT_EQ(mLog.lines(),
              Lines{"<UTIL> ERR: TimeCounter::Failed. Key Not Applicable. CounterId:[4000000000]"});
}

TEST_F(CounterId, Stop_LeavesTheOtherIdsRunning) {
    startIds(3);
    setNow(1020);
    EXPECT_EQ(TimeCounter::stop(1), 20U);
    EXPECT_EQ(TimeCounter::stop(0), 20U);
    EXPECT_EQ(TimeCounter::stop(2), 20U);
}

TEST_F(CounterId, Start_OfOneMoreThanFiftyIds_LogsAndFails) {
    startIds(50);
    EXPECT_EQ(mLog.lines(), Lines{});
    EXPECT_FALSE(TimeCounter::start(50));
    EXPECT_EQ(mLog.lines(),
              Lines{"<UTIL> ERR: TimeCounter::start(ID) Failed. InsertMap Error. CounterId:[50]"});
    stopIds(50);
}

TEST_F(CounterId, Start_OfARunningIdAmongFifty_Succeeds) {
    startIds(50);
    setNow(1030);
    EXPECT_TRUE(TimeCounter::start(49));
    setNow(1031);
    EXPECT_EQ(TimeCounter::watch(49), 1U);
    EXPECT_EQ(TimeCounter::watch(48), 31U);
    stopIds(50);
}

TEST_F(CounterId, Stop_AmongFifty_MakesRoomForOneMore) {
    startIds(50);
    TimeCounter::stop(20);
    EXPECT_TRUE(TimeCounter::start(50));
    EXPECT_FALSE(TimeCounter::start(51));
    stopIds(51);
}

TEST_F(CounterId, Start_ThatFindsNoRoom_DoesNotReadTheClock) {
    startIds(50);
    clockGetTime.failFrom(0, 0, 0, 0);
    EXPECT_FALSE(TimeCounter::start(50));
    EXPECT_EQ(clockGetTime.calls(), 0U);
    stopIds(50);
}

TEST_F(CounterId, Watch_ReadsTheClockBeforeItLooksForTheId) {
    failClock();
    EXPECT_EQ(TimeCounter::watch(8), INVALID);
    EXPECT_EQ(mLog.lines(),
              (Lines{CAUTION, "<UTIL> ERR: TimeCounter::Failed. Key Not Applicable. CounterId:[8]"}));
}

TEST_F(CounterId, Start_OnAClockThatFails_LogsAndTakesTheIdOutAgain) {
    startIds(49);
    failClock();
    EXPECT_FALSE(TimeCounter::start(60));
    EXPECT_EQ(mLog.lines(), (Lines{CAUTION,
                                   "<UTIL> ERR: TimeCounter::start(ID) Failed. TickTime is Invalid. "
                                   "CounterId:[60]"}));
    mendClock();
    EXPECT_EQ(TimeCounter::watch(60), INVALID);
    EXPECT_EQ(mLog.lines().back(), "<UTIL> ERR: TimeCounter::Failed. Key Not Applicable. CounterId:[60]");
    EXPECT_TRUE(TimeCounter::start(61));
    stopIds(62);
}

TEST_F(CounterId, Start_OfARunningIdOnAClockThatFails_TakesTheIdOut) {
    TimeCounter::start(7);
    failClock();
    EXPECT_FALSE(TimeCounter::start(7));
    mendClock();
    mLog.clear();
    TimeCounter::watch(7);
    EXPECT_EQ(mLog.lines(), Lines{"<UTIL> ERR: TimeCounter::Failed. Key Not Applicable. CounterId:[7]"});
}

TEST_F(CounterId, Watch_OnAClockThatFails_LogsBothTicksAndTheIdRunsOn) {
    TimeCounter::start(7);
    failClock();
    EXPECT_EQ(TimeCounter::watch(7), INVALID);
    EXPECT_EQ(mLog.lines(), (Lines{CAUTION,
                                   "<UTIL> ERR: TimeCounter::watch(ID)/stop(ID) Failed. StartTime:[1000], "
                                   "TickTime:[4294967295]"}));
    mendClock();
    EXPECT_EQ(TimeCounter::stop(7), 0U);
}

TEST_F(CounterId, Stop_OnAClockThatFails_TakesTheIdOutAllTheSame) {
    TimeCounter::start(7);
    failClock();
    EXPECT_EQ(TimeCounter::stop(7), INVALID);
    mendClock();
    mLog.clear();
    EXPECT_EQ(TimeCounter::watch(7), INVALID);
    EXPECT_EQ(mLog.lines(), Lines{"<UTIL> ERR: TimeCounter::Failed. Key Not Applicable. CounterId:[7]"});
}

TEST_F(CounterId, Start_AtTheTickOfTheInvalidValue_FailsWithoutTheCaution) {
    setNow(0xFFFFFFFFULL);
    EXPECT_FALSE(TimeCounter::start(7));
    EXPECT_EQ(mLog.lines(),
              Lines{"<UTIL> ERR: TimeCounter::start(ID) Failed. TickTime is Invalid. CounterId:[7]"});
}

TEST_F(CounterId, WatchAndStop_AtTheTickOfTheInvalidValue_FailWithoutTheCaution) {
    TimeCounter::start(7);
    setNow(0xFFFFFFFFULL);
    std::string const line =
        "<UTIL> ERR: TimeCounter::watch(ID)/stop(ID) Failed. StartTime:[1000], TickTime:[4294967295]";
    EXPECT_EQ(TimeCounter::watch(7), INVALID);
    EXPECT_EQ(TimeCounter::stop(7), INVALID);
    EXPECT_EQ(mLog.lines(), (Lines{line, line}));
}

// The first reading of the clock is that of a start, which holds the lock by then. It lasts until the clock
// is read a second time.
std::atomic<unsigned int> gReadings{0};

void awaitReadings(unsigned int count) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (gReadings < count && std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
    }
}

TEST_F(CounterId, Watch_ReadsTheClockBeforeItWaitsForTheLock) {
    TimeCounter::start(7);
    gReadings = 0;
    static std::atomic<unsigned int> readingsAtTheEndOfTheFirst;
    clockGetTime.replace([](clockid_t, timespec* now) {
        unsigned int const number = ++gReadings;
        *now = {number == 1 ? 9 : 3, 0};
        if (number == 1) {
            awaitReadings(2);
            readingsAtTheEndOfTheFirst = gReadings.load();
        }
        return 0;
    });
    std::thread holder([] { TimeCounter::start(6); });
    awaitReadings(1);
    EXPECT_EQ(TimeCounter::watch(7), 2000U);
    holder.join();
    EXPECT_EQ(readingsAtTheEndOfTheFirst, 2U);
    TimeCounter::stop(6);
    TimeCounter::stop(7);
}

TEST_F(CounterId, OperationsOnDifferentThreads_DoNotDisturbEachOther) {
    std::vector<std::thread> threads;
    std::atomic<unsigned int> failures{0};
    for (unsigned int id = 0; id < 4; ++id) {
        threads.emplace_back([id, &failures] {
            for (unsigned int i = 0; i < 500; ++i) {
                bool const good =
                    TimeCounter::start(id) && TimeCounter::watch(id) == 0 && TimeCounter::stop(id) == 0;
                failures += good ? 0U : 1U;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0U);
    EXPECT_EQ(mLog.lines(), Lines{});
}

// The beginning and the end of the process.

struct CountsBeforeMain {
    bool isStarted = TimeCounter::start(4711);
    unsigned int elapsed = TimeCounter::stop(4711);
} const gBeforeMain;

TEST(CounterIds, CanBeUsedBeforeMain) {
    EXPECT_TRUE(gBeforeMain.isStarted);
    EXPECT_NE(gBeforeMain.elapsed, INVALID);
}

bool canUseId(unsigned int id) {
    return TimeCounter::start(id) && TimeCounter::watch(id) != INVALID && TimeCounter::stop(id) != INVALID;
}

void useId(unsigned int id) {
    if (!canUseId(id)) {
        _exit(1);
    }
}

struct CountsAtItsEnd {
    ~CountsAtItsEnd() { useId(1); }
    std::string mText = "destroyed while the process ends";
};

TEST(CounterIds, CanBeUsedByAStaticObjectAndAnExitHandler) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            static CountsAtItsEnd const object;
            std::atexit([] { useId(2); });
            std::exit(3);
        },
        testing::ExitedWithCode(3), "");
}

TEST(CounterIds, AreNeverDestroyed) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(utltest::exitAndCheckLast([] { return canUseId(1); }), testing::ExitedWithCode(3), "");
}

TEST(CounterIds, CanBeUsedByThreadsWhileTheProcessEnds) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            static std::atomic<int> rounds{0};
            for (unsigned int id = 1; id <= 3; ++id) {
                std::thread([id] {
                    for (;;) {
                        useId(id);
                        ++rounds;
                    }
                }).detach();
            }
            while (rounds < 100) {
                std::this_thread::yield();
            }
            std::exit(3);
        },
        testing::ExitedWithCode(3), "");
}

TEST(TimeCounter, OnTheRealClock_CountsAtLeastTheTimeSlept) {
    TimeCounter counter;
    ASSERT_TRUE(counter.start());
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_GE(counter.stop(), 29U);  // both ticks are cut to whole milliseconds
}

}  // namespace

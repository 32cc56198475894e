// Starts no thread.

#include "BenchRatio.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>

namespace {

// A clock that only moves when the measured work says so.
double gNow = 0;
double fakeClock() {
    return gNow;
}

UTL_RATIO(
    "declared in this file", [] { gNow += 1000; }, [] { gNow += 4000; }, 0.25);

UTL_RATIO_CPU(
    "declared for processor time", [] { gNow += 2000; }, [] { gNow += 3000; }, 0.75);

utlbench::RatioFigure const& declared() {
    return utlbench::ratioFigures().at(0);
}

// The figure by the clock above.
utlbench::RatioFigure byFakeClock(utlbench::RatioFigure figure) {
    figure.clock = fakeClock;
    return figure;
}

TEST(BenchRatio, ADeclaration_IsKeptWithItsNameGoalAndClock) {
    ASSERT_EQ(utlbench::ratioFigures().size(), 2U);
    EXPECT_EQ(declared().name, "declared in this file");
    EXPECT_EQ(declared().goal, 0.25);
    EXPECT_EQ(declared().clock, utlbench::WALL_TIME);
    utlbench::RatioFigure const& second = utlbench::ratioFigures().at(1);
    EXPECT_EQ(second.name, "declared for processor time");
    EXPECT_EQ(second.goal, 0.75);
    EXPECT_EQ(second.clock, utlbench::THREAD_TIME);
}

TEST(BenchRatio, ThreadTime_StandsStillWhileTheThreadSleeps) {
    double const start = utlbench::THREAD_TIME();
    double const wallStart = utlbench::WALL_TIME();
    std::timespec const nap{0, 100000000};
    nanosleep(&nap, nullptr);
    EXPECT_GE(utlbench::WALL_TIME() - wallStart, 1e8);
    EXPECT_LT(utlbench::THREAD_TIME() - start, 1e8);
}

TEST(BenchRatio, ThreadTime_PassesWhileTheThreadWorks) {
    double const start = utlbench::THREAD_TIME();
    unsigned int looks = 0;
    while (utlbench::THREAD_TIME() - start < 1e6) {
        ++looks;
    }
    EXPECT_GT(looks, 0U);
}

TEST(BenchRatio, ADeclaredCallable_IsCalledAsOftenAsAskedFor) {
    gNow = 0;
    declared().subject(3);
    EXPECT_EQ(gNow, 3000);
    declared().baseline(2);
    EXPECT_EQ(gNow, 11000);
}

TEST(BenchRatio, Measure_GivesTheTimesOfOneCallAndTheirRatio) {
    utlbench::RatioResult const result = utlbench::measure(byFakeClock(declared()), 5);
    EXPECT_DOUBLE_EQ(result.subjectNanoseconds, 1000);
    EXPECT_DOUBLE_EQ(result.baselineNanoseconds, 4000);
    EXPECT_DOUBLE_EQ(result.ratio, 0.25);
}

TEST(BenchRatio, Measure_OfAMachineThatSlowsDownInSomeRounds_IsTheMedian) {
    static int gTurns = 0;
    gTurns = 0;
    // Calibration ends after one call of 4 ms each; of the turns that follow, every fifth takes ten times as
    // long.
    auto const work = [](double nanoseconds) {
        return [nanoseconds](std::size_t calls) {
            gNow += nanoseconds * static_cast<double>(calls) * (++gTurns % 5 == 0 ? 10 : 1);
        };
    };
    utlbench::RatioFigure const figure{"uneven", work(4e6), work(2e6), 2.0, fakeClock};
    utlbench::RatioResult const result = utlbench::measure(figure, 51);
    EXPECT_DOUBLE_EQ(result.subjectNanoseconds, 4e6);
    EXPECT_DOUBLE_EQ(result.baselineNanoseconds, 2e6);
    EXPECT_DOUBLE_EQ(result.ratio, 2.0);
}

// A clock that costs something itself would weigh on turns of a single call.
TEST(BenchRatio, Measure_OfAFirstCallThatTakesLong_StillFillsTheTurns) {
    static std::size_t gLargestTurn = 0;
    static bool gIsMade = false;
    gLargestTurn = 0;
    gIsMade = false;
    auto const work = [](std::size_t calls) {
        gNow += gIsMade ? 1000 * static_cast<double>(calls) : 1e9;
        gIsMade = true;
        gLargestTurn = calls > gLargestTurn ? calls : gLargestTurn;
    };
    utlbench::RatioResult const result = utlbench::measure({"made", work, work, 1.0, fakeClock}, 5);
    EXPECT_DOUBLE_EQ(result.subjectNanoseconds, 1000);
    EXPECT_EQ(gLargestTurn, 2048U);
}

TEST(BenchRatio, Measure_LetsEachSideGoFirstInSomeRounds) {
    static std::string gOrder;
    gOrder.clear();
    utlbench::RatioFigure const figure{"order",
                                       [](std::size_t) {
                                           gOrder += 's';
                                           gNow += 4e6;
                                       },
                                       [](std::size_t) {
                                           gOrder += 'b';
                                           gNow += 4e6;
                                       },
                                       1.0, fakeClock};
    utlbench::measure(figure, 20);
    ASSERT_EQ(gOrder.substr(0, 4), "ssbb");  // a first call that does not count, and the calibration
    ASSERT_EQ(gOrder.size(), 44U);
    std::string const turns = gOrder.substr(4);
    unsigned int subjectFirst = 0;
    for (std::size_t i = 0; i < turns.size(); i += 2) {
        EXPECT_NE(turns[i], turns[i + 1]);
        subjectFirst += turns[i] == 's' ? 1U : 0U;
    }
    EXPECT_GT(subjectFirst, 0U);
    EXPECT_LT(subjectFirst, 20U);
}

TEST(BenchRatio, Reached_IsTrueUpToTheGoal) {
    utlbench::RatioFigure const figure{"goal", nullptr, nullptr, 1.5, fakeClock};
    EXPECT_TRUE(utlbench::reached(figure, {1, 1, 1.4999}));
    EXPECT_TRUE(utlbench::reached(figure, {1, 1, 1.5}));
    EXPECT_FALSE(utlbench::reached(figure, {1, 1, 1.5001}));
}

TEST(BenchRatio, Median_OfAnEvenCount_IsTheMeanOfTheTwoInTheMiddle) {
    EXPECT_DOUBLE_EQ(utlbench::median({9, 1, 2, 4}), 3);
    EXPECT_DOUBLE_EQ(utlbench::median({9, 1, 2}), 2);
    EXPECT_DOUBLE_EQ(utlbench::median({7}), 7);
}

}  // namespace

#include "UtlTimepiece.h"

#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <ostream>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestStatements.h"
#include "TestThreads.h"

namespace utl {

// For the messages of failed tests.
static std::ostream& operator<<(std::ostream& out, Time const& time) {
    return out << time.year() << '-' << time.month() << '-' << time.day() << ' ' << time.hour() << ':'
               << time.minute() << ':' << time.second() << '.' << time.millisecond() << '.'
               << time.microsecond() << '.' << time.nanosecond();
}

}  // namespace utl

using utl::Time;
using utltest::HookScope;
namespace hooks = utltest::hooks;

namespace {

constexpr unsigned int FAILED = 0xFFFFFFFF;
constexpr unsigned int FIELD_COUNT = 9;

using Fields = std::array<unsigned short, FIELD_COUNT>;

static_assert(Time::INVALID_ELAPSED == 0xFFFFFFFFU);
static_assert(
    noexcept(Time().set(0, 1, 1, 0, 0, 0, 0, 0, 0)) && noexcept(Time().reset()) && noexcept(Time().isValid()) && noexcept(
        Time().getDays()) && noexcept(Time() <
                                      Time()) && noexcept(Time()
                                                              .getElapsedSeconds(
                                                                  Time())) && noexcept(Time()
                                                                                           .setHttpDate("")));

constexpr Fields LOWEST = {0, 1, 1, 0, 0, 0, 0, 0, 0};
constexpr Fields HIGHEST = {65534, 12, 31, 23, 59, 59, 999, 999, 999};
constexpr Fields INVALID = {65535, 13, 32, 24, 60, 60, 1000, 1000, 1000};
constexpr unsigned int SECOND_FIELD = 5;

Time make(Fields const& f) {
    return Time(f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8]);
}

bool set(Time& time, Fields const& f) {
    return time.set(f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8]);
}

Fields fieldsOf(Time const& time) {
    return {time.year(),   time.month(),       time.day(),         time.hour(),      time.minute(),
            time.second(), time.millisecond(), time.microsecond(), time.nanosecond()};
}

Time atDay(int year, int month, int day) {
    return Time(static_cast<unsigned short>(year), static_cast<unsigned short>(month),
                static_cast<unsigned short>(day), 0, 0, 0, 0, 0, 0);
}

Time atClock(int year, int month, int day, int hour, int minute, int second) {
    return Time(static_cast<unsigned short>(year), static_cast<unsigned short>(month),
                static_cast<unsigned short>(day), static_cast<unsigned short>(hour),
                static_cast<unsigned short>(minute), static_cast<unsigned short>(second), 0, 0, 0);
}

// Noon of a day of January 2024 and a fraction.
Time atFraction(int day, int millisecond, int microsecond, int nanosecond) {
    return Time(2024, 1, static_cast<unsigned short>(day), 12, 0, 0, static_cast<unsigned short>(millisecond),
                static_cast<unsigned short>(microsecond), static_cast<unsigned short>(nanosecond));
}

TEST(Time, DefaultConstruction_GivesTheInvalidState) {
    Time const time;
    EXPECT_FALSE(time.isValid());
    EXPECT_EQ(fieldsOf(time), INVALID);
}

TEST(Time, DefaultReferenceTime_IsTheFirstDayOfYearZero) {
    EXPECT_EQ(fieldsOf(Time::DEFAULT_REFERENCE_TIME), LOWEST);
    EXPECT_TRUE(Time::DEFAULT_REFERENCE_TIME.isValid());
    EXPECT_EQ(Time::DEFAULT_REFERENCE_TIME.getDays(), 0U);
}

TEST(Time, EachField_IsTakenUpToItsLimitsAndNotBeyond) {
    for (unsigned int i = 0; i < FIELD_COUNT; ++i) {
        for (int below = 0; below <= 1; ++below) {
            Fields fields = {2024, 6, 15, 1, 2, 3, 4, 5, 6};
            fields[i] = below != 0 ? LOWEST[i] : HIGHEST[i];
            EXPECT_EQ(fieldsOf(make(fields)), fields) << i;
            bool const isAtZero = below != 0 && LOWEST[i] == 0;
            if (isAtZero || i == SECOND_FIELD) {
                continue;
            }
            fields[i] = static_cast<unsigned short>(below != 0 ? fields[i] - 1 : fields[i] + 1);
            EXPECT_EQ(fieldsOf(make(fields)), INVALID) << i;
            Time time = make(LOWEST);
            EXPECT_FALSE(set(time, fields)) << i;
            EXPECT_EQ(fieldsOf(time), LOWEST) << i;
            fields[i] = 65535;
            EXPECT_EQ(fieldsOf(make(fields)), INVALID) << i;
        }
    }
}

TEST(Time, ASecondAbove59_Becomes59) {
    for (unsigned short const second : std::array<unsigned short, 4>{60, 61, 1000, 65535}) {
        Time time(2024, 6, 30, 23, 59, second, 1, 2, 3);
        EXPECT_EQ(fieldsOf(time), (Fields{2024, 6, 30, 23, 59, 59, 1, 2, 3}));
        time.reset();
        EXPECT_TRUE(time.set(2024, 6, 30, 23, 59, second, 1, 2, 3));
        EXPECT_EQ(time.second(), 59);
    }
}

TEST(Time, ValidityDoesNotKnowTheLengthOfAMonth) {
    EXPECT_TRUE(Time(2024, 2, 31, 0, 0, 0, 0, 0, 0).isValid());
    EXPECT_EQ(fieldsOf(Time(2024, 13, 1, 0, 0, 0, 0, 0, 0)), INVALID);
}

TEST(Time, Set_ToAMonthOfZero_IsFalseAndKeepsTheValue) {
    Time time(2024, 5, 6, 7, 8, 9, 10, 11, 12);
    EXPECT_FALSE(time.set(2024, 0, 6, 7, 8, 9, 10, 11, 12));
    EXPECT_EQ(fieldsOf(time), (Fields{2024, 5, 6, 7, 8, 9, 10, 11, 12}));
}

TEST(Time, Set_OnTheInvalidState_MakesItValid) {
    Time time;
    EXPECT_TRUE(set(time, HIGHEST));
    EXPECT_TRUE(time.isValid());
    EXPECT_EQ(fieldsOf(time), HIGHEST);
}

TEST(Time, Reset_GivesTheInvalidState) {
    Time time = make(HIGHEST);
    time.reset();
    EXPECT_EQ(fieldsOf(time), INVALID);
    EXPECT_FALSE(time.isValid());
}

TEST(Time, Get_CopiesEachField) {
    Fields out = {};
    Fields const fields = {2024, 1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_TRUE(
        make(fields).get(&out[0], &out[1], &out[2], &out[3], &out[4], &out[5], &out[6], &out[7], &out[8]));
    EXPECT_EQ(out, fields);
}

TEST(Time, Get_LeavesOutWhatIsNull) {
    Fields const fields = {2024, 1, 2, 3, 4, 5, 6, 7, 8};
    for (unsigned int i = 0; i < FIELD_COUNT; ++i) {
        unsigned short out = 0;
        std::array<unsigned short*, FIELD_COUNT> p = {};
        p[i] = &out;
        EXPECT_TRUE(make(fields).get(p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], p[8]));
        EXPECT_EQ(out, fields[i]);
    }
}

TEST(Time, Get_InTheInvalidState_IsFalseAndWritesNothing) {
    unsigned short year = 7;
    EXPECT_FALSE(Time().get(&year, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(year, 7);
}

TEST(Time, Comparison_GoesByTheFirstFieldThatDiffers) {
    for (unsigned int i = 0; i < FIELD_COUNT; ++i) {
        Fields less = {2024, 6, 15, 12, 30, 30, 500, 500, 500};
        Fields more = less;
        more[i] = static_cast<unsigned short>(more[i] + 1);
        for (unsigned int behind = i + 1; behind < FIELD_COUNT; ++behind) {
            less[behind] = HIGHEST[behind];
            more[behind] = LOWEST[behind];
        }
        Time const a = make(less);
        Time const b = make(more);
        EXPECT_TRUE(a < b && a <= b && a != b && b > a && b >= a && a.isPastTime(b));
        EXPECT_FALSE(a > b || a >= b || a == b || b < a || b <= a || b.isPastTime(a));
    }
}

TEST(Time, EqualValues_CompareAsEqual) {
    for (Time const& time : {Time(), make(LOWEST), make(HIGHEST)}) {
        Time const copy = time;
        EXPECT_TRUE(time == copy && time <= copy && time >= copy);
        EXPECT_FALSE(time != copy || time < copy || time > copy || time.isPastTime(copy));
    }
}

TEST(Time, TheInvalidState_ComparesByItsFieldsAndSoLiesBehindAll) {
    EXPECT_TRUE(make(HIGHEST) < Time());
    EXPECT_TRUE(make(HIGHEST).isPastTime(Time()));
    EXPECT_FALSE(Time() == make(HIGHEST));
}

bool isLeap(int year) {
    return year != 0 && year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

int monthLength(int year, int month) {
    static constexpr int LENGTHS[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return LENGTHS[month - 1] + (month == 2 && isLeap(year) ? 1 : 0);
}

// Calls `visit(year, month, day, number)` for every day of the years, numbered as one counts them on a wall
// calendar that begins on day 0.
template <typename VISIT>
void forEveryDay(int firstYear, int lastYear, VISIT visit) {
    unsigned int number = 0;
    for (int year = 0; year <= lastYear; ++year) {
        for (int month = 1; month <= 12; ++month) {
            for (int day = 1; day <= monthLength(year, month); ++day, ++number) {
                if (year >= firstYear) {
                    visit(year, month, day, number);
                }
            }
        }
    }
}

constexpr unsigned int DAYS_TO_1970 = 719527;

TEST(Time, GetDays_CountsEveryDayFromYear0To9999) {
    unsigned int wrong = 0;
    forEveryDay(0, 9999, [&wrong](int year, int month, int day, unsigned int number) {
        wrong += atDay(year, month, day).getDays() != number ? 1 : 0;
    });
    EXPECT_EQ(wrong, 0U);
}

TEST(Time, GetDays_AgreesWithTheSystemsCalendarFromYear1On) {
    unsigned int wrong = 0;
    for (unsigned int number = 365; number < 3652424; ++number) {
        time_t const seconds = (static_cast<time_t>(number) - DAYS_TO_1970) * 86400;
        tm parts{};
        ASSERT_NE(gmtime_r(&seconds, &parts), nullptr);
        Time const time = atDay(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday);
        wrong += time.getDays() != number ? 1 : 0;
    }
    EXPECT_EQ(wrong, 0U);
}

TEST(Time, GetDays_AtItsLandmarks) {
    EXPECT_EQ(atDay(0, 1, 1).getDays(), 0U);
    EXPECT_EQ(atDay(0, 3, 1).getDays(), 59U);
    EXPECT_EQ(atDay(1, 1, 1).getDays(), 365U);
    EXPECT_EQ(atDay(1970, 1, 1).getDays(), DAYS_TO_1970);
    EXPECT_EQ(atDay(2000, 3, 1).getDays() - atDay(2000, 1, 1).getDays(), 60U);
    EXPECT_EQ(atDay(1900, 3, 1).getDays() - atDay(1900, 1, 1).getDays(), 59U);
    EXPECT_EQ(atDay(2004, 3, 1).getDays() - atDay(2004, 1, 1).getDays(), 60U);
    EXPECT_EQ(atDay(65534, 12, 31).getDays(), 365U * 65535 + 16383 - 655 + 163 - 1);
}

TEST(Time, GetDays_NumbersDaysThatTheMonthDoesNotHave) {
    EXPECT_EQ(atDay(2023, 2, 31).getDays(), atDay(2023, 2, 28).getDays() + 3);
    EXPECT_EQ(atDay(2023, 2, 29).getDays(), atDay(2023, 3, 1).getDays());
}

TEST(Time, GetDays_IgnoresTheTimeOfDay) {
    EXPECT_EQ(Time(2024, 6, 15, 23, 59, 59, 999, 999, 999).getDays(), atDay(2024, 6, 15).getDays());
}

TEST(Time, GetDays_InTheInvalidState_ReadsNothingBesideItsTables) {
    EXPECT_EQ(Time().getDays(), 365U * 65534 + 16383 - 655 + 163 + 365 + 365 + 31);
}

TEST(Time, Elapsed_WithAnInvalidValue_Fails) {
    Time const time = atDay(2024, 1, 1);
    EXPECT_EQ(Time().getElapsedDays(time), FAILED);
    EXPECT_EQ(time.getElapsedDays(Time()), FAILED);
    EXPECT_EQ(Time().getElapsedDays(Time()), FAILED);
    EXPECT_EQ(Time().getElapsedSeconds(time), FAILED);
    EXPECT_EQ(time.getElapsedSeconds(Time()), FAILED);
    EXPECT_EQ(Time().getElapsedSeconds(Time()), FAILED);
}

TEST(Time, Elapsed_SinceALaterReference_Fails) {
    for (unsigned int i = 0; i < FIELD_COUNT; ++i) {
        Fields const earlier = {2024, 6, 15, 12, 30, 30, 500, 500, 500};
        Fields later = earlier;
        later[i] = static_cast<unsigned short>(later[i] + 1);
        EXPECT_EQ(make(earlier).getElapsedDays(make(later)), FAILED) << i;
        EXPECT_EQ(make(earlier).getElapsedSeconds(make(later)), FAILED) << i;
        EXPECT_EQ(make(earlier).getElapsedDays(make(earlier)), 0U);
        EXPECT_EQ(make(earlier).getElapsedSeconds(make(earlier)), 0U);
    }
}

TEST(Time, GetElapsedDays_CountsADayWhenItsTimeOfDayIsReached) {
    Time const reference = atClock(2024, 1, 1, 0, 0, 0);
    EXPECT_EQ(atClock(2024, 1, 2, 0, 0, 0).getElapsedDays(reference), 1U);
    EXPECT_EQ(atClock(2024, 1, 1, 23, 59, 59).getElapsedDays(reference), 0U);
    Time const noon = atClock(2023, 12, 31, 12, 0, 0);
    EXPECT_EQ(atClock(2024, 1, 2, 11, 59, 59).getElapsedDays(noon), 1U);
    EXPECT_EQ(atClock(2024, 1, 2, 12, 0, 0).getElapsedDays(noon), 2U);
    EXPECT_EQ(atClock(2024, 1, 2, 12, 0, 1).getElapsedDays(noon), 2U);
}

TEST(Time, GetElapsedDays_WithinOneDay_Is0WhateverTheFractions) {
    EXPECT_EQ(atFraction(1, 0, 0, 1).getElapsedDays(atFraction(1, 0, 0, 0)), 0U);
    EXPECT_EQ(atFraction(1, 999, 999, 999).getElapsedDays(atFraction(1, 0, 0, 0)), 0U);
}

TEST(Time, GetElapsedDays_AtTheSameSecond_IsADayLessOnlyForAShortfallOfAMillisecondAtMost) {
    Time const reference = atFraction(1, 5, 0, 0);
    EXPECT_EQ(atFraction(2, 5, 0, 0).getElapsedDays(reference), 1U);
    EXPECT_EQ(atFraction(2, 5, 0, 1).getElapsedDays(reference), 1U);
    EXPECT_EQ(atFraction(2, 999, 999, 999).getElapsedDays(reference), 1U);
    EXPECT_EQ(atFraction(2, 4, 999, 999).getElapsedDays(reference), 0U);
    EXPECT_EQ(atFraction(2, 4, 500, 0).getElapsedDays(reference), 0U);
    EXPECT_EQ(atFraction(2, 4, 0, 0).getElapsedDays(reference), 0U);
    EXPECT_EQ(atFraction(2, 3, 999, 999).getElapsedDays(reference), 1U);
    EXPECT_EQ(atFraction(2, 0, 0, 0).getElapsedDays(reference), 1U);
}

TEST(Time, GetElapsedDays_OverDaysThatTheMonthDoesNotHave_GoesByTheirNumbers) {
    EXPECT_EQ(atDay(2023, 3, 1).getElapsedDays(atDay(2023, 2, 29)), 0U);
    EXPECT_EQ(atDay(2023, 3, 1).getElapsedDays(atDay(2023, 2, 31)), 0xFFFFFFFEU);
    EXPECT_EQ(atClock(2023, 3, 2, 0, 0, 0).getElapsedDays(atClock(2023, 2, 31, 0, 0, 1)), 0xFFFFFFFEU);
    EXPECT_EQ(atDay(2023, 3, 1).getElapsedSeconds(atDay(2023, 2, 31)), FAILED);
}

TEST(Time, GetElapsedDays_FromTheReferenceTime_IsTheNumberOfTheDay) {
    unsigned int wrong = 0;
    forEveryDay(1, 3000, [&wrong](int year, int month, int day, unsigned int number) {
        Time const time = atClock(year, month, day, 12, 0, 0);
        wrong += time.getElapsedDays(Time::DEFAULT_REFERENCE_TIME) != number ? 1 : 0;
    });
    EXPECT_EQ(wrong, 0U);
}

TEST(Time, GetElapsedSeconds_CountsSecondsOverDaysAndClock) {
    Time const reference = atClock(2024, 2, 28, 10, 20, 30);
    EXPECT_EQ(atClock(2024, 2, 28, 10, 20, 31).getElapsedSeconds(reference), 1U);
    EXPECT_EQ(atClock(2024, 2, 28, 11, 21, 31).getElapsedSeconds(reference), 3661U);
    EXPECT_EQ(atClock(2024, 3, 1, 10, 20, 30).getElapsedSeconds(reference), 2U * 86400);
    EXPECT_EQ(atClock(2024, 3, 1, 10, 20, 31).getElapsedSeconds(reference), 2U * 86400 + 1);
}

TEST(Time, GetElapsedSeconds_ToAnEarlierTimeOfDay_IsADayShortAndWrapsOnTheFirst) {
    Time const evening = atClock(2024, 1, 1, 23, 0, 0);
    EXPECT_EQ(atClock(2024, 1, 2, 1, 0, 0).getElapsedSeconds(evening), 2U * 3600 - 86400);
    EXPECT_EQ(atClock(2024, 1, 3, 1, 0, 0).getElapsedSeconds(evening), 2U * 3600);
}

TEST(Time, GetElapsedSeconds_IsASecondLessOnlyForAShortfallOfAMillisecondAtMost) {
    Time const reference(2024, 1, 1, 12, 0, 0, 5, 0, 0);
    auto const elapsed = [&reference](unsigned short millisecond, unsigned short microsecond,
                                      unsigned short nanosecond) {
        return Time(2024, 1, 1, 12, 0, 10, millisecond, microsecond, nanosecond).getElapsedSeconds(reference);
    };
    EXPECT_EQ(elapsed(5, 0, 0), 10U);
    EXPECT_EQ(elapsed(5, 0, 1), 10U);
    EXPECT_EQ(elapsed(4, 999, 999), 9U);
    EXPECT_EQ(elapsed(4, 0, 0), 9U);
    EXPECT_EQ(elapsed(3, 999, 999), 10U);
    EXPECT_EQ(elapsed(0, 0, 0), 10U);
}

TEST(Time, GetElapsedSeconds_WithinOneSecond_Is0) {
    EXPECT_EQ(atFraction(1, 500, 0, 0).getElapsedSeconds(atFraction(1, 499, 999, 999)), 0U);
}

TEST(Time, GetElapsedSeconds_EndsWith32Bits) {
    Time const reference = atClock(1970, 1, 1, 0, 0, 0);
    // 49710 days after it; 23296 seconds later 32 bits are over.
    Time const last = atClock(2106, 2, 7, 0, 0, 0);
    ASSERT_EQ(last.getElapsedDays(reference), 49710U);
    EXPECT_EQ(last.getElapsedSeconds(reference), 49710U * 86400);
    EXPECT_EQ(atClock(2106, 2, 7, 6, 28, 14).getElapsedSeconds(reference), 0xFFFFFFFEU);
    EXPECT_EQ(atClock(2106, 2, 7, 6, 28, 15).getElapsedSeconds(reference), 49710U * 86400 + 23295);
    EXPECT_EQ(atClock(2106, 2, 7, 6, 28, 16).getElapsedSeconds(reference), FAILED);
    EXPECT_EQ(atClock(2106, 2, 7, 23, 59, 59).getElapsedSeconds(reference), FAILED);
    EXPECT_EQ(atClock(2106, 2, 8, 0, 0, 0).getElapsedSeconds(reference), FAILED);
    EXPECT_EQ(atClock(3000, 1, 1, 0, 0, 0).getElapsedSeconds(reference), FAILED);
}

TEST(Time, GetElapsedSeconds_AtTheLastSecondOf32Bits_StillSubtractsAShortFraction) {
    Time const reference(1970, 1, 1, 0, 0, 0, 0, 500, 0);
    EXPECT_EQ(atClock(2106, 2, 7, 6, 28, 15).getElapsedSeconds(reference), 0xFFFFFFFEU);
}

TEST(Time, GetElapsedSeconds_On49710DaysAndAnEarlierTimeOfDay_Fails) {
    Time const reference = atClock(1970, 1, 1, 12, 0, 0);
    Time const time = atClock(2106, 2, 8, 11, 0, 0);
    ASSERT_EQ(time.getElapsedDays(reference), 49710U);
    EXPECT_EQ(time.getElapsedSeconds(reference), FAILED);
}

std::string httpDate(Time const& time) {
    char buffer[64] = "untouched";
    return time.getHttpDate(buffer, sizeof buffer) ? buffer : "false, " + std::string(buffer);
}

TEST(Time, GetHttpDate_WordsTheDate) {
    EXPECT_EQ(httpDate(Time(1994, 11, 6, 8, 49, 37, 123, 456, 789)), "Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(httpDate(atClock(2000, 2, 29, 23, 59, 59)), "Tue, 29 Feb 2000 23:59:59 GMT");
    EXPECT_EQ(httpDate(atClock(65534, 1, 1, 0, 0, 0)), "Mon, 01 Jan 65534 00:00:00 GMT");
}

TEST(Time, GetHttpDate_BeginsToNameTheWeekdayOn15October1582) {
    EXPECT_EQ(httpDate(atDay(1582, 10, 15)), "Fri, 15 Oct 1582 00:00:00 GMT");
    EXPECT_EQ(httpDate(atDay(1582, 10, 14)), "14 Oct 1582 00:00:00 GMT");
    EXPECT_EQ(httpDate(atDay(1582, 9, 30)), "30 Sep 1582 00:00:00 GMT");
    EXPECT_EQ(httpDate(atDay(1582, 11, 1)), "Mon, 01 Nov 1582 00:00:00 GMT");
    EXPECT_EQ(httpDate(atDay(1583, 1, 1)), "Sat, 01 Jan 1583 00:00:00 GMT");
    EXPECT_EQ(httpDate(atDay(1581, 12, 31)), "31 Dec 1581 00:00:00 GMT");
}

TEST(Time, GetHttpDate_OfAYearBelow100_IsFalseAndWritesNothing) {
    EXPECT_EQ(httpDate(atDay(99, 12, 31)), "false, untouched");
    EXPECT_EQ(httpDate(atDay(0, 1, 1)), "false, untouched");
    EXPECT_EQ(httpDate(atDay(100, 1, 1)), "01 Jan 100 00:00:00 GMT");
}

TEST(Time, GetHttpDate_InTheInvalidState_IsFalseAndWritesNothing) {
    EXPECT_EQ(httpDate(Time()), "false, untouched");
}

TEST(Time, GetHttpDate_NeedsRoomForTheTextAndItsTerminator) {
    Time const time = atClock(1994, 11, 6, 8, 49, 37);
    char buffer[32] = {};
    EXPECT_FALSE(time.getHttpDate(buffer, 29));
    EXPECT_STREQ(buffer, "Sun, 06 Nov 1994 08:49:37 GM");
    EXPECT_TRUE(time.getHttpDate(buffer, 30));
    EXPECT_STREQ(buffer, "Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_FALSE(time.getHttpDate(buffer, 0));
    EXPECT_FALSE(time.getHttpDate(nullptr, 30));
}

TEST(Time, HttpDates_OfEveryDayFrom1582To9999_NameTheRightWeekdayAndAreReadBack) {
    static constexpr char const* NAMES[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    unsigned int wrong = 0;
    forEveryDay(1583, 9999, [&wrong](int year, int month, int day, unsigned int number) {
        // 1 January 1970 was a Thursday.
        char const* const name = NAMES[(number + 7 - DAYS_TO_1970 % 7 + 4) % 7];
        Time const time = atClock(year, month, day, day % 24, month, year % 60);
        char buffer[32] = {};
        Time back;
        bool const isRight = time.getHttpDate(buffer, sizeof buffer) && std::memcmp(buffer, name, 3) == 0 &&
                             back.setHttpDate(buffer) && back == time;
        wrong += isRight ? 0 : 1;
    });
    EXPECT_EQ(wrong, 0U);
}

Time parsed(char const* text) {
    Time time(2001, 1, 2, 3, 4, 5, 6, 7, 8);
    return time.setHttpDate(text) ? time : Time();
}

Time parsed(std::string const& text) {
    return parsed(text.c_str());
}

// The value stays, whatever it was.
void expectRefused(char const* text) {
    Fields const before = {2001, 1, 2, 3, 4, 5, 6, 7, 8};
    Time time = make(before);
    EXPECT_FALSE(time.setHttpDate(text)) << text;
    EXPECT_EQ(fieldsOf(time), before) << text;
    Time invalid;
    EXPECT_FALSE(invalid.setHttpDate(text)) << text;
    EXPECT_EQ(fieldsOf(invalid), INVALID);
}

Time const SIXTH_OF_NOVEMBER = Time(1994, 11, 6, 8, 49, 37, 0, 0, 0);

TEST(Time, SetHttpDate_ReadsTheThreeFormsOfHttp) {
    EXPECT_EQ(parsed("Sun, 06 Nov 1994 08:49:37 GMT"), SIXTH_OF_NOVEMBER);
    EXPECT_EQ(parsed("Sunday, 06-Nov-94 08:49:37 GMT"), SIXTH_OF_NOVEMBER);
    EXPECT_EQ(parsed("Sun Nov  6 08:49:37 1994"), SIXTH_OF_NOVEMBER);
}

TEST(Time, SetHttpDate_FindsThePartsInAnyOrder) {
    std::vector<std::string> parts = {"6", "Nov", "1994", "08:49:37"};
    std::sort(parts.begin(), parts.end());
    do {
        std::string const text = parts[0] + " " + parts[1] + " " + parts[2] + " " + parts[3];
        EXPECT_EQ(parsed(text), SIXTH_OF_NOVEMBER) << text;
    } while (std::next_permutation(parts.begin(), parts.end()));
}

TEST(Time, SetHttpDate_WithNullOrEmptyText_IsFalse) {
    Time time = SIXTH_OF_NOVEMBER;
    EXPECT_FALSE(time.setHttpDate(nullptr));
    EXPECT_FALSE(time.setHttpDate(""));
    EXPECT_EQ(time, SIXTH_OF_NOVEMBER);
}

TEST(Time, SetHttpDate_WithoutOneOfTheParts_IsFalseAndKeepsTheValue) {
    expectRefused("06 Nov 1994");
    expectRefused("06 Nov 08:49:37");
    expectRefused("06 1994 08:49:37");
    expectRefused("Nov 1994 08:49:37");
    expectRefused("Sun, GMT");
    expectRefused("   ");
}

TEST(Time, SetHttpDate_TakesEveryAsciiPunctuationButTheColonForADelimiter) {
    for (int c = 1; c < 256; ++c) {
        std::string text = "06#Nov#1994#08:49:37";
        for (char& place : text) {
            place = place == '#' ? static_cast<char>(c) : place;
        }
        bool const isDelimiter = c == '\t' || (c >= 0x20 && c < 0x7F && std::isalnum(c) == 0 && c != ':');
        EXPECT_EQ(parsed(text) == SIXTH_OF_NOVEMBER, isDelimiter) << c;
    }
}

TEST(Time, SetHttpDate_ReadsTimesOfOneOrTwoDigitsEach) {
    EXPECT_EQ(parsed("6 Nov 1994 8:9:7"), Time(1994, 11, 6, 8, 9, 7, 0, 0, 0));
    EXPECT_EQ(parsed("6 Nov 1994 23:59:59"), Time(1994, 11, 6, 23, 59, 59, 0, 0, 0));
    expectRefused("6 Nov 1994 08:49");
    expectRefused("6 Nov 1994 08:49:");
    expectRefused("6 Nov 1994 08::37");
    expectRefused("6 Nov 1994 :49:37");
    expectRefused("6 Nov 1994 08.49.37");
    expectRefused("6 Nov 1994 08:49:371");
    expectRefused("6 Nov 1994 08:490:37");
}

TEST(Time, SetHttpDate_WalksOnInsideAWordThatIsNoTime) {
    EXPECT_EQ(parsed("6 Nov 1994 008:49:37"), SIXTH_OF_NOVEMBER);
    EXPECT_EQ(parsed("6 Nov 1994 T08:49:37"), SIXTH_OF_NOVEMBER);
    EXPECT_EQ(parsed("6 Nov 1994 1:08:49:37"), Time(1994, 11, 6, 1, 8, 49, 0, 0, 0));
}

TEST(Time, SetHttpDate_SkipsWhatFollowsATimeUpToTheNextDelimiter) {
    EXPECT_EQ(parsed("08:49:37Z6 6 Nov 1994"), SIXTH_OF_NOVEMBER);
    EXPECT_EQ(parsed("08:49:37:12 6 Nov 1994"), SIXTH_OF_NOVEMBER);
    EXPECT_EQ(parsed("08:49:37.5 Nov 1994"), Time(1994, 11, 5, 8, 49, 37, 0, 0, 0));
}

TEST(Time, SetHttpDate_ReadsADayOfOneOrTwoDigits) {
    EXPECT_EQ(parsed("6 Nov 1994 08:49:37"), SIXTH_OF_NOVEMBER);
    EXPECT_EQ(parsed("6th Nov 1994 08:49:37"), SIXTH_OF_NOVEMBER);
    EXPECT_EQ(parsed("x6 Nov 1994 08:49:37"), SIXTH_OF_NOVEMBER);
    EXPECT_EQ(parsed("31 Nov 1994 08:49:37"), Time(1994, 11, 31, 8, 49, 37, 0, 0, 0));
    expectRefused("32 Nov 1994 08:49:37");
    expectRefused("0 Nov 1994 08:49:37");
    expectRefused("06Nov 1994 08:49:37");
}

TEST(Time, SetHttpDate_ANumberGoesToTheFirstFreePartThatCanTakeIt) {
    EXPECT_EQ(parsed("06 07 Nov 08:49:37"), Time(2007, 11, 6, 8, 49, 37, 0, 0, 0));
    EXPECT_EQ(parsed("94 06 Nov 08:49:37"), Time());
    EXPECT_EQ(parsed("1994 06 Nov 08:49:37"), SIXTH_OF_NOVEMBER);
    EXPECT_EQ(parsed("08:49:37 10:11:12 Nov 1994"), Time(1994, 11, 10, 8, 49, 37, 0, 0, 0));
    EXPECT_EQ(parsed("08:49:37 6 94:11 Nov"), SIXTH_OF_NOVEMBER);
}

TEST(Time, SetHttpDate_TakesADateOfDigitsAloneApartFromItsEnd) {
    // "12345" is walked through: no year has five digits, the four after the first are one.
    EXPECT_EQ(parsed("6 Nov 12345 08:49:37"), Time(2345, 11, 6, 8, 49, 37, 0, 0, 0));
    // Without a day so far, the last two digits are one.
    EXPECT_EQ(parsed("Nov 1994 12345 08:49:37"), Time(1994, 11, 45, 8, 49, 37, 0, 0, 0));
    EXPECT_EQ(parsed("Nov 1994 12306 08:49:37"), SIXTH_OF_NOVEMBER);
}

TEST(Time, SetHttpDate_KnowsAMonthByItsFirstThreeLettersInAnyCase) {
    static constexpr char const* NAMES[] = {"January", "february", "MARCH",     "aPRIL",   "mAY",      "jUnE",
                                            "JULius",  "Augustus", "septembre", "OCTOBER", "NOVember", "dec"};
    for (unsigned int i = 0; i < 12; ++i) {
        std::string const text = std::string("6 ") + NAMES[i] + " 1994 08:49:37";
        EXPECT_EQ(parsed(text), Time(1994, static_cast<unsigned short>(i + 1), 6, 8, 49, 37, 0, 0, 0));
        std::string const inside = std::string("6 x") + NAMES[i] + " 1994 08:49:37";
        EXPECT_EQ(parsed(inside).month(), i + 1) << inside;
    }
    expectRefused("6 No 1994 08:49:37");
    expectRefused("6 1994 08:49:37 No");
    expectRefused("6 1994 08:49:37 N");
    expectRefused("6 N\x4F\xD6 1994 08:49:37");
    expectRefused("6 \x0E\x0F\x16 1994 08:49:37");
}

TEST(Time, SetHttpDate_ReadsAYearOfTwoToFourDigits) {
    auto const yearOf = [](char const* year) {
        return parsed(std::string("06 Nov ") + year + " 00:00:00").year();
    };
    EXPECT_EQ(yearOf("69"), 2069);
    EXPECT_EQ(yearOf("70"), 1970);
    EXPECT_EQ(yearOf("99"), 1999);
    EXPECT_EQ(yearOf("00"), 2000);
    EXPECT_EQ(yearOf("000"), 2000);
    EXPECT_EQ(yearOf("069"), 2069);
    EXPECT_EQ(yearOf("0099"), 1999);
    EXPECT_EQ(yearOf("100"), 100);
    EXPECT_EQ(yearOf("0100"), 100);
    EXPECT_EQ(yearOf("9999"), 9999);
    EXPECT_EQ(yearOf("94AD"), 1994);
    EXPECT_EQ(yearOf("4"), Time().year());
    EXPECT_EQ(yearOf("94"), 1994);
}

TEST(Time, SetHttpDate_LooksAtTheRangesAlone) {
    EXPECT_EQ(parsed("31 Feb 2000 10:00:00"), Time(2000, 2, 31, 10, 0, 0, 0, 0, 0));
    expectRefused("1 Jan 2000 24:00:00");
    expectRefused("1 Jan 2000 23:60:00");
    expectRefused("1 Jan 2000 23:59:60");
    EXPECT_TRUE(parsed("1 Jan 2000 23:59:59").isValid());
}

TEST(Time, SetHttpDate_IgnoresTheZoneAndAllThatFollowsTheLastPart) {
    EXPECT_EQ(parsed("Sun, 06 Nov 1994 08:49:37 JST"), SIXTH_OF_NOVEMBER);
    EXPECT_EQ(parsed("Sun, 06 Nov 1994 08:49:37 +0900 (x) 10:11:12 7 Dec 95"), SIXTH_OF_NOVEMBER);
    EXPECT_EQ(parsed("Expires=Sun, 06 Nov 1994 08:49:37; Path=/"), SIXTH_OF_NOVEMBER);
}

TEST(Time, SetHttpDate_ReadsNothingBehindTheText) {
    std::string const whole = "Sun, 06 Nov 1994 08:49:37 GMT";
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        // A buffer of its own size each, so that a sanitizer sees a byte too much.
        std::vector<char> text(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        text.push_back('\0');
        EXPECT_EQ(parsed(text.data()).isValid(), length >= 24) << text.data();
    }
}

// What `setHttpDate` does, by patterns.
Time parsedByPatterns(std::string const& text) {
    static std::string const rest = R"((?![0-9])[^\t\x20-\x2F\x3B-\x40\x5B-\x60\x7B-\x7E]*)";
    static std::regex const delimiter(R"([\t\x20-\x2F\x3B-\x40\x5B-\x60\x7B-\x7E])");
    static std::regex const forms[] = {
        std::regex("([0-9]{1,2}):([0-9]{1,2}):([0-9]{1,2})" + rest), std::regex("([0-9]{1,2})" + rest),
        std::regex(
            R"((jan|feb|mar|apr|may|jun|jul|aug|sep|oct|nov|dec)[^\t\x20-\x2F\x3B-\x40\x5B-\x60\x7B-\x7E]*)",
            std::regex::icase),
        std::regex("([0-9]{2,4})" + rest)};
    std::vector<std::string> found[4];
    auto const continuous = std::regex_constants::match_continuous;
    for (auto place = text.begin(); place != text.end();) {
        std::smatch match;
        if (std::regex_search(place, text.end(), match, delimiter, continuous)) {
            ++place;
            continue;
        }
        int part = 0;
        while (part < 4 && !(found[part].empty() &&
                             std::regex_search(place, text.end(), match, forms[part], continuous))) {
            ++part;
        }
        if (part == 4) {
            ++place;
            continue;
        }
        found[part].assign(match.begin() + 1, match.end());
        place = match[0].second;
    }
    for (auto const& part : found) {
        if (part.empty()) {
            return Time();
        }
    }
    std::string month = found[2][0];
    std::transform(month.begin(), month.end(), month.begin(), [](char c) { return std::tolower(c); });
    auto const number = [](std::string const& digits) { return std::stoi(digits); };
    int const year = number(found[3][0]);
    if (number(found[0][2]) > 59) {
        return Time();
    }
    return atClock(year < 70    ? year + 2000
                   : year < 100 ? year + 1900
                                : year,
                   static_cast<int>(std::string("janfebmaraprmayjunjulaugsepoctnovdec").find(month)) / 3 + 1,
                   number(found[1][0]), number(found[0][0]), number(found[0][1]), number(found[0][2]));
}

TEST(Time, SetHttpDate_OnRandomText_DoesWhatThePatternsDo) {
    static constexpr char const* PIECES[] = {
        "1", "6", "06", "31", "94", "1994", "12345", "08:49:37", "8:9",          ":", "Nov", "jAn", "Sun",
        "x", " ", "-",  ", ", "\t", "GMT",  "Mayor", "7:8:9",    "\xE3\x81\x82", "_", "de"};
    std::mt19937 lots(7);
    unsigned int valid = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (auto pieces = 4 + lots() % 12; pieces > 0; --pieces) {
            text += PIECES[lots() % std::size(PIECES)];
            text += lots() % 2 == 0 ? " " : "";
        }
        Time const expected = parsedByPatterns(text);
        valid += expected.isValid() ? 1 : 0;
        EXPECT_EQ(parsed(text), expected) << text;
    }
    EXPECT_GT(valid, 50U);
}

class TimeOfSystem : public testing::Test {
  protected:
    TimeOfSystem() { setZone("UTC0"); }
    ~TimeOfSystem() override {
        unsetenv("TZ");
        tzset();
    }

    static void setZone(char const* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }

    static void setClock(time_t seconds) {
        sClock = seconds;
        hooks::time.replace([](time_t*) { return sClock; });
    }

    static Time system() { return taken(utl::getSystemTime); }
    static Time local() { return taken(utl::getLocalTime); }

    static Time const BEFORE;

  private:
    static Time taken(bool (*get)(Time*)) {
        Time time = BEFORE;
        bool const isTaken = get(&time);
        EXPECT_EQ(isTaken, time != BEFORE);
        return isTaken ? time : Time();
    }

    HookScope const mHooks;
    inline static time_t sClock = 0;
};

Time const TimeOfSystem::BEFORE = Time(1, 2, 3, 4, 5, 6, 7, 8, 9);

TEST_F(TimeOfSystem, WithNull_IsFalse) {
    EXPECT_FALSE(utl::getSystemTime(nullptr));
    EXPECT_FALSE(utl::getLocalTime(nullptr));
    EXPECT_EQ(hooks::time.calls(), 0U);
}

TEST_F(TimeOfSystem, LocalTime_FollowsAnotherZoneOnceTheProgramSaysSo) {
    setClock(0);
    Time const before = local();
    setenv("TZ", "HERE-5", 1);
    EXPECT_EQ(local(), before);
    tzset();
    EXPECT_EQ(local().hour(), before.hour() + 5);
}

TEST_F(TimeOfSystem, GivesTheSecondOfTheClock) {
    time_t const before = time(nullptr);
    Time const now = system();
    time_t const after = time(nullptr);
    ASSERT_TRUE(now.isValid());
    setClock(before);
    EXPECT_LE(system(), now);
    setClock(after);
    EXPECT_GE(system(), now);
}

TEST_F(TimeOfSystem, HasAFractionOf0) {
    setClock(784111777);
    EXPECT_EQ(system(), SIXTH_OF_NOVEMBER);
    EXPECT_EQ(local(), SIXTH_OF_NOVEMBER);
}

TEST_F(TimeOfSystem, LocalTime_IsThatOfTheZone) {
    setClock(784111777);
    setZone("JST-9");
    EXPECT_EQ(local(), Time(1994, 11, 6, 17, 49, 37, 0, 0, 0));
    EXPECT_EQ(system(), SIXTH_OF_NOVEMBER);
    setZone("PST8");
    EXPECT_EQ(local(), Time(1994, 11, 6, 0, 49, 37, 0, 0, 0));
}

TEST_F(TimeOfSystem, DoesNotEndIn2038) {
    setClock(2147483647);
    EXPECT_EQ(system(), atClock(2038, 1, 19, 3, 14, 7));
    setClock(2147483648LL);
    EXPECT_EQ(system(), atClock(2038, 1, 19, 3, 14, 8));
    setZone("JST-9");
    EXPECT_EQ(local(), atClock(2038, 1, 19, 12, 14, 8));
    setClock(4294967296LL);
    EXPECT_EQ(system(), atClock(2106, 2, 7, 6, 28, 16));
    setClock(253402300799LL);
    EXPECT_EQ(system(), atClock(9999, 12, 31, 23, 59, 59));
}

TEST_F(TimeOfSystem, AYearThatTheFieldCannotHold_IsFalse) {
    setClock(2005917609599LL);
    EXPECT_EQ(system(), atClock(65534, 12, 31, 23, 59, 59));
    setClock(2005917609600LL);
    EXPECT_EQ(system(), Time());
    setClock(2005917609600LL + 366LL * 86400 * 10);
    EXPECT_EQ(system(), Time());
    setClock(-62167219200LL);
    EXPECT_EQ(system(), atDay(0, 1, 1));
    setClock(-62167219201LL);
    EXPECT_EQ(system(), Time());
}

TEST_F(TimeOfSystem, TheExampleOfTheGuide_CountsTheDaysSinceADate) {
    setClock(784111777 + 3 * 86400);
    utl::Time modified;
    modified.setHttpDate("Sunday, 06-Nov-94 08:49:37 GMT");
    utl::Time now;
    ASSERT_TRUE(utl::getSystemTime(&now) && modified.isPastTime(now));
    EXPECT_EQ(now.getElapsedDays(modified), 3U);
}

TEST_F(TimeOfSystem, BeforeTheEpoch_Works) {
    setClock(-2);
    EXPECT_EQ(system(), atClock(1969, 12, 31, 23, 59, 58));
}

TEST_F(TimeOfSystem, AClockThatFails_IsFalse) {
    hooks::time.failFrom(1, 0, -1, EINVAL);
    EXPECT_EQ(system(), Time());
    EXPECT_EQ(local(), Time());
    EXPECT_EQ(hooks::gmtimeR.calls(), 0U);
    EXPECT_EQ(hooks::localtimeR.calls(), 0U);
}

TEST_F(TimeOfSystem, ATimeThatCannotBeBrokenDown_IsFalse) {
    hooks::gmtimeR.failFrom(1, 1, nullptr, EOVERFLOW);
    hooks::localtimeR.failFrom(1, 1, nullptr, EOVERFLOW);
    EXPECT_EQ(system(), Time());
    EXPECT_EQ(local(), Time());
    EXPECT_TRUE(system().isValid());
    EXPECT_TRUE(local().isValid());
}

TEST_F(TimeOfSystem, ALeapSecond_CountsAs59) {
    auto const leapSecond = [](time_t const*, tm* parts) {
        *parts = {};
        parts->tm_year = 116;
        parts->tm_mon = 11;
        parts->tm_mday = 31;
        parts->tm_hour = 23;
        parts->tm_min = 59;
        parts->tm_sec = 60;
        return parts;
    };
    hooks::gmtimeR.replace(leapSecond);
    hooks::localtimeR.replace(leapSecond);
    EXPECT_EQ(system(), atClock(2016, 12, 31, 23, 59, 59));
    EXPECT_EQ(local(), atClock(2016, 12, 31, 23, 59, 59));
}

TEST_F(TimeOfSystem, ABrokenDownTimeOutsideTheRanges_IsFalse) {
    hooks::gmtimeR.replace([](time_t const*, tm* parts) {
        *parts = {};
        parts->tm_year = 116;
        return parts;
    });
    EXPECT_EQ(system(), Time());
}

class TimeUnderWatchdog : public utltest::WithManager {
  protected:
    TimeUnderWatchdog() {
        restingWatchdog();
        EXPECT_TRUE(manager().entryWatchdog(60000, nullptr));
        EXPECT_TRUE(manager().startWatchdog());
        hooks::time.watch([](time_t*) { sSeen.push_back(last()); });
        hooks::gmtimeR.watch([](time_t const*, tm*) { sSeen.push_back(last()); });
        hooks::localtimeR.watch([](time_t const*, tm*) { sSeen.push_back(last()); });
    }
    ~TimeUnderWatchdog() override { sSeen.clear(); }

    static utl::StatementInfo last() {
        return utltest::ThreadManagerAccess::watchdog().findWatchdogInfo(utltest::kernelId())->lastStatement;
    }

    utltest::LogCapture mLog;
    HookScope const mHooks;
    inline static std::vector<utl::StatementInfo> sSeen;
};

TEST_F(TimeUnderWatchdog, SystemTime_ReportsItsTwoCalls) {
    char const* const file = "source/UtlTimepiece";
    Time time;
    EXPECT_TRUE(utl::getSystemTime(&time));
    EXPECT_EQ(sSeen, (std::vector<utl::StatementInfo>{{file, "getSystemTime", 31, 1},
                                                      {file, "getSystemTime", 39, 1}}));
    EXPECT_EQ(last(), utl::StatementInfo(file, "getSystemTime", 39, 2));
}

TEST_F(TimeUnderWatchdog, LocalTime_ReportsItsTwoCalls) {
    char const* const file = "source/UtlTimepiece";
    Time time;
    EXPECT_TRUE(utl::getLocalTime(&time));
    EXPECT_EQ(sSeen, (std::vector<utl::StatementInfo>{{file, "getLocalTime", 81, 1},
                                                      {file, "getLocalTime", 89, 1}}));
    EXPECT_EQ(last(), utl::StatementInfo(file, "getLocalTime", 89, 2));
}

TEST_F(TimeUnderWatchdog, AClockThatFails_IsReportedBeforeItsResultIsLookedAt) {
    hooks::time.failFrom(1, 0, -1, EINVAL);
    Time time;
    EXPECT_FALSE(utl::getSystemTime(&time));
    EXPECT_EQ(last(), utl::StatementInfo("source/UtlTimepiece", "getSystemTime", 31, 2));
}

// The broken-down time that the library is given in the next test.
tm gGiven;

tm* give(time_t const*, tm* out) {
    *out = gGiven;
    return out;
}

tm brokenDown(int year, int month, int second) {
    tm result = {};
    result.tm_year = year - 1900;
    result.tm_mon = month;
    result.tm_mday = 31;
    result.tm_sec = second;
    return result;
}

TEST(Time, SystemAndLocalTime_OfAYearOutsideTheField_FailAndTouchNothing) {
    HookScope const scope;
    hooks::gmtimeR.replace(give);
    hooks::localtimeR.replace(give);
    for (auto const get : {utl::getSystemTime, utl::getLocalTime}) {
        for (int const year :
             {-1, 65535, 65536, 65536 + 2000, -65536 + 2000, 0x7FFFFFFF, -0x7FFFFFFF + 1899}) {
            gGiven = brokenDown(year, 0, 0);
            Time time = make(HIGHEST);
            EXPECT_FALSE(get(&time)) << year;
            EXPECT_EQ(fieldsOf(time), HIGHEST);
        }
        for (int const year : {0, 65534}) {
            for (int const second : {59, 60, 61}) {
                gGiven = brokenDown(year, 11, second);
                Time time;
                EXPECT_TRUE(get(&time)) << year;
                EXPECT_EQ(fieldsOf(time),
                          (Fields{static_cast<unsigned short>(year), 12, 31, 0, 0, 59, 0, 0, 0}));
            }
        }
        EXPECT_FALSE(get(nullptr));
    }
}

TEST(Time, SystemAndLocalTime_WhoseCallsFail_StopThereAndReportTheirLines) {
    utltest::Statements statements;
    using Lines = std::vector<std::string>;
    Time time = make(HIGHEST);
    hooks::time.failFrom(1, 0, static_cast<time_t>(-1), EOVERFLOW);
    EXPECT_EQ(statements.of([&] { EXPECT_FALSE(utl::getSystemTime(&time)); }),
              (Lines{"source/UtlTimepiece getSystemTime 1", "source/UtlTimepiece getSystemTime 2"}));
    EXPECT_EQ(statements.of([&] { EXPECT_FALSE(utl::getLocalTime(&time)); }),
              (Lines{"source/UtlTimepiece getLocalTime 1", "source/UtlTimepiece getLocalTime 2"}));
    hooks::time.reset();
    hooks::gmtimeR.failFrom(1, 0, nullptr, EOVERFLOW);
    hooks::localtimeR.failFrom(1, 0, nullptr, EOVERFLOW);
    EXPECT_EQ(statements.of([&] { EXPECT_FALSE(utl::getSystemTime(&time)); }).size(), 4U);
    EXPECT_EQ(statements.of([&] { EXPECT_FALSE(utl::getLocalTime(&time)); }).size(), 4U);
    EXPECT_EQ(statements.of([&] { EXPECT_FALSE(utl::getLocalTime(nullptr)); }).size(), 0U);
    EXPECT_EQ(fieldsOf(time), HIGHEST);
}

}  // namespace

#include "UtlTimepiece.h"

#include <time.h>

#include <tuple>

#include "internal/base/UtlSetIfGiven.h"
#include "internal/thread/UtlKeepAlive.h"

namespace utl {

namespace {

constexpr unsigned int SECONDS_OF_DAY = 86400;

// The longest span of seconds that 32 bits hold.
constexpr unsigned int ELAPSED_DAYS_MAX = 49710;
constexpr unsigned int ELAPSED_REST_LIMIT = 23296;

constexpr unsigned int NANOSECONDS_OF_MILLISECOND = 1000000;
constexpr unsigned int YEAR_MAX = 65534;

// Days before each month; the invalid state has a month after the last one.
constexpr unsigned short DAYS_BEFORE_MONTH[][13] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366}};

bool isLeapYear(unsigned int year) {
    return year != 0 && year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

unsigned int daysBeforeYear(unsigned int year) {
    if (year == 0) {
        return 0;
    }
    unsigned int const past = year - 1;
    return 365 * past + past / 4 - past / 100 + past / 400 + 365;
}

// The function and the lines in the reports of one of the two functions.
struct Places {
    char const* function;
    unsigned int clockLine;
    unsigned int breakDownLine;
};

bool takeTime(Time* out, tm* (*breakDown)(time_t const*, tm*), Places const& places) {
    char const* const file = "source/UtlTimepiece";
    if (out == nullptr) {
        return false;
    }
    time_t const now = keepAliveAround(file, places.function, places.clockLine, [] { return time(nullptr); });
    if (now == -1) {
        return false;
    }
    tm parts{};
    if (keepAliveAround(file, places.function, places.breakDownLine,
                        [&] { return breakDown(&now, &parts); }) == nullptr) {
        return false;
    }
    long long const year = 1900LL + parts.tm_year;
    if (year < 0 || year > YEAR_MAX) {
        return false;
    }
    auto const field = [](int value) { return static_cast<unsigned short>(value); };
    return out->set(static_cast<unsigned short>(year), field(parts.tm_mon + 1), field(parts.tm_mday),
                    field(parts.tm_hour), field(parts.tm_min), field(parts.tm_sec), 0, 0, 0);
}

}  // namespace

Time const Time::DEFAULT_REFERENCE_TIME(0, 1, 1, 0, 0, 0, 0, 0, 0);

bool Time::set(unsigned short year, unsigned short month, unsigned short day, unsigned short hour,
               unsigned short minute, unsigned short second, unsigned short millisecond,
               unsigned short microsecond, unsigned short nanosecond) noexcept {
    Time const value(year, month, day, hour, minute, second, millisecond, microsecond, nanosecond);
    if (!value.isValid()) {
        return false;
    }
    *this = value;
    return true;
}

bool Time::get(unsigned short* year, unsigned short* month, unsigned short* day, unsigned short* hour,
               unsigned short* minute, unsigned short* second, unsigned short* millisecond,
               unsigned short* microsecond, unsigned short* nanosecond) const noexcept {
    if (!isValid()) {
        return false;
    }
    setIfGiven(year, mYear);
    setIfGiven(month, mMonth);
    setIfGiven(day, mDay);
    setIfGiven(hour, mHour);
    setIfGiven(minute, mMinute);
    setIfGiven(second, mSecond);
    setIfGiven(millisecond, mMillisecond);
    setIfGiven(microsecond, mMicrosecond);
    setIfGiven(nanosecond, mNanosecond);
    return true;
}

void Time::reset() noexcept {
    *this = Time();
}

unsigned int Time::getDays() const noexcept {
    return daysBeforeYear(mYear) + DAYS_BEFORE_MONTH[isLeapYear(mYear) ? 1 : 0][mMonth - 1] + mDay - 1;
}

bool Time::operator==(Time const& other) const noexcept {
    return !(*this < other) && !(other < *this);
}

bool Time::operator!=(Time const& other) const noexcept {
    return !(*this == other);
}

bool Time::operator<(Time const& other) const noexcept {
    auto const fields = [](Time const& time) {
        return std::tie(time.mYear, time.mMonth, time.mDay, time.mHour, time.mMinute, time.mSecond,
                        time.mMillisecond, time.mMicrosecond, time.mNanosecond);
    };
    return fields(*this) < fields(other);
}

bool Time::operator>(Time const& other) const noexcept {
    return other < *this;
}

bool Time::operator<=(Time const& other) const noexcept {
    return !(other < *this);
}

bool Time::operator>=(Time const& other) const noexcept {
    return !(*this < other);
}

bool Time::isPastTime(Time const& other) const noexcept {
    return *this < other;
}

unsigned int Time::getElapsedDays(Time const& reference) const noexcept {
    if (!isValid() || !reference.isValid() || *this < reference) {
        return INVALID_ELAPSED;
    }
    unsigned int const days = getDays() - reference.getDays();
    unsigned int const seconds = secondsOfDay();
    unsigned int const referenceSeconds = reference.secondsOfDay();
    if (days == 0 || seconds > referenceSeconds) {
        return days;
    }
    return seconds < referenceSeconds || lacksFractionOf(reference) ? days - 1 : days;
}

unsigned int Time::getElapsedSeconds(Time const& reference) const noexcept {
    unsigned int const days = getElapsedDays(reference);
    if (days > ELAPSED_DAYS_MAX) {
        return INVALID_ELAPSED;
    }
    unsigned int const rest = secondsOfDay() - reference.secondsOfDay();
    if (days == ELAPSED_DAYS_MAX && rest >= ELAPSED_REST_LIMIT) {
        return INVALID_ELAPSED;
    }
    unsigned int const seconds = SECONDS_OF_DAY * days + rest;
    return seconds != 0 && lacksFractionOf(reference) ? seconds - 1 : seconds;
}

unsigned int Time::secondsOfDay() const noexcept {
    return mHour * 3600U + mMinute * 60U + mSecond;
}

unsigned int Time::fraction() const noexcept {
    return mMillisecond * NANOSECONDS_OF_MILLISECOND + mMicrosecond * 1000U + mNanosecond;
}

// A fraction that is less than the reference's by more than a millisecond wraps, and does not count as less.
bool Time::lacksFractionOf(Time const& reference) const noexcept {
    return fraction() != reference.fraction() &&
           fraction() + NANOSECONDS_OF_MILLISECOND - reference.fraction() < NANOSECONDS_OF_MILLISECOND;
}

bool getSystemTime(Time* time) {
    return takeTime(time, gmtime_r, {"getSystemTime", 31, 39});
}

bool getLocalTime(Time* time) {
    return takeTime(time, localtime_r, {"getLocalTime", 81, 89});
}

}  // namespace utl

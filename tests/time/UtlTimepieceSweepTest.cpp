// The computed values beside the rules they follow, step by step, and texts that end where memory ends.

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "TestText.h"
#include "UtlTimepiece.h"

namespace {

using utl::Time;

constexpr unsigned int NONE = 0xFFFFFFFF;

Time timeOf(std::vector<unsigned int> const& fields) {
    auto const at = [&](std::size_t i) { return static_cast<unsigned short>(fields[i]); };
    return Time(at(0), at(1), at(2), at(3), at(4), at(5), at(6), at(7), at(8));
}

std::vector<unsigned int> fieldsOf(Time const& time) {
    return {time.year(),   time.month(),       time.day(),         time.hour(),      time.minute(),
            time.second(), time.millisecond(), time.microsecond(), time.nanosecond()};
}

std::vector<unsigned int> const INVALID = {65535, 13, 32, 24, 60, 60, 1000, 1000, 1000};
std::vector<unsigned int> const LAST = {65534, 12, 31, 23, 59, 59, 999, 999, 999};
std::vector<unsigned int> const FIRST = {0, 1, 1, 0, 0, 0, 0, 0, 0};

unsigned int secondsOf(Time const& time) {
    return time.hour() * 3600U + time.minute() * 60U + time.second();
}

unsigned int nanosecondsOf(Time const& time) {
    return time.millisecond() * 1000000U + time.microsecond() * 1000U + time.nanosecond();
}

unsigned int elapsedDays(Time const& time, Time const& reference) {
    if (!time.isValid() || !reference.isValid() || time < reference) {
        return NONE;
    }
    unsigned int const days = time.getDays() - reference.getDays();
    if (days == 0) {
        return 0;
    }
    if (secondsOf(time) != secondsOf(reference)) {
        return secondsOf(time) > secondsOf(reference) ? days : days - 1;
    }
    unsigned int const a = nanosecondsOf(time);
    unsigned int const b = nanosecondsOf(reference);
    return a != b && a + 1000000U - b <= 999999U ? days - 1 : days;
}

unsigned int elapsedSeconds(Time const& time, Time const& reference) {
    unsigned int const days = elapsedDays(time, reference);
    if (days == NONE || days > 49710) {
        return NONE;
    }
    unsigned int const gap = secondsOf(time) - secondsOf(reference);
    if (days == 49710 && gap != 0 && gap >= 23296) {
        return NONE;
    }
    unsigned int const seconds = 86400U * days + gap;
    unsigned int const a = nanosecondsOf(time);
    unsigned int const b = nanosecondsOf(reference);
    return seconds != 0 && a != b && a + 1000000U - b <= 999999U ? seconds - 1 : seconds;
}

// The day `days` after 1 January of 2001, with the given time of day.
Time behind2001(unsigned int days, unsigned int seconds, unsigned int nanoseconds) {
    unsigned int const base = Time(2001, 1, 1, 0, 0, 0, 0, 0, 0).getDays();
    unsigned int year = 2001 + days / 366;
    auto const daysOf = [&](unsigned int y, unsigned int m, unsigned int d) {
        return timeOf({y, m, d, 0, 0, 0, 0, 0, 0}).getDays() - base;
    };
    while (daysOf(year + 1, 1, 1) <= days) {
        ++year;
    }
    unsigned int month = 1;
    while (month < 12 && daysOf(year, month + 1, 1) <= days) {
        ++month;
    }
    return timeOf({year, month, days - daysOf(year, month, 1) + 1, seconds / 3600, seconds / 60 % 60,
                   seconds % 60, nanoseconds / 1000000, nanoseconds / 1000 % 1000, nanoseconds % 1000});
}

// The dates of HTTP once more, as a reader of characters and tokens.
class DateModel {
  public:
    explicit DateModel(std::string const& text) : mText(text) {
        while (mAt < mText.size()) {
            if (isDelimiter(mAt)) {
                ++mAt;
            } else if (!(takeTime() || takeDay() || takeMonth() || takeYear())) {
                if (mHasTime && mHasDay && mHasMonth && mHasYear) {
                    break;
                }
                ++mAt;
            }
        }
    }

    std::vector<unsigned int> fields() const {
        return {mYear, mMonth, mDay, mTime[0], mTime[1], mTime[2], 0, 0, 0};
    }

    bool isValid() const {
        return mYear <= 65534 && mMonth >= 1 && mMonth <= 12 && mDay >= 1 && mDay <= 31 && mTime[0] <= 23 &&
               mTime[1] <= 59 && mTime[2] <= 59;
    }

  private:
    bool isDelimiter(std::size_t at) const {
        unsigned int const c = at < mText.size() ? static_cast<unsigned char>(mText[at]) : 0;
        return c == 0 || c == 9 || (c >= 0x20 && c <= 0x2F) || (c >= 0x3B && c <= 0x40) ||
               (c >= 0x5B && c <= 0x60) || (c >= 0x7B && c <= 0x7E);
    }
    bool isDigit(std::size_t at) const { return at < mText.size() && mText[at] >= '0' && mText[at] <= '9'; }

    // The digits from `at` on, whose number must lie in a range; 0 if it does not.
    unsigned int digits(std::size_t at, unsigned int fewest, unsigned int most, unsigned int* value) const {
        unsigned int count = 0;
        for (*value = 0; isDigit(at + count) && count <= most; ++count) {
            *value = *value * 10 + static_cast<unsigned int>(mText[at + count] - '0');
        }
        return count >= fewest && count <= most ? count : 0;
    }

    void passToken(std::size_t at) {
        while (!isDelimiter(at)) {
            ++at;
        }
        mAt = at + 1;
    }

    bool takeTime() {
        std::size_t at = mAt;
        unsigned int values[3] = {};
        for (unsigned int i = 0; i < 3 && !mHasTime; ++i) {
            unsigned int const count = digits(at, 1, 2, &values[i]);
            at += count;
            if (count == 0 || (i < 2 && (at >= mText.size() || mText[at++] != ':'))) {
                return false;
            }
        }
        if (mHasTime) {
            return false;
        }
        std::copy(values, values + 3, mTime);
        mHasTime = true;
        passToken(at);
        return true;
    }

    bool takeDay() {
        unsigned int value = 0;
        unsigned int const count = mHasDay ? 0 : digits(mAt, 1, 2, &value);
        if (count == 0) {
            return false;
        }
        mDay = value;
        mHasDay = true;
        passToken(mAt + count);
        return true;
    }

    bool takeMonth() {
        static char const* const NAMES[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                            "jul", "aug", "sep", "oct", "nov", "dec"};
        for (unsigned int i = 0; i < 12 && !mHasMonth; ++i) {
            if (strncasecmp(mText.c_str() + mAt, NAMES[i], 3) == 0) {
                mMonth = i + 1;
                mHasMonth = true;
                passToken(mAt + 3);
                return true;
            }
        }
        return false;
    }

    bool takeYear() {
        unsigned int value = 0;
        unsigned int const count = mHasYear ? 0 : digits(mAt, 2, 4, &value);
        if (count == 0) {
            return false;
        }
        mYear = value <= 69 ? value + 2000 : value <= 99 ? value + 1900 : value;
        mHasYear = true;
        passToken(mAt + count);
        return true;
    }

    std::string const mText;
    std::size_t mAt = 0;
    bool mHasTime = false;
    bool mHasDay = false;
    bool mHasMonth = false;
    bool mHasYear = false;
    unsigned int mTime[3] = {24, 60, 60};
    unsigned int mDay = 32;
    unsigned int mMonth = 13;
    unsigned int mYear = 65535;
};

/// What `setHttpDate` makes of a text in a block of exactly its size, against the reader above.
void checkDate(std::string const& text) {
    std::vector<unsigned int> const old = {1234, 5, 6, 7, 8, 9, 10, 11, 12};
    Time time = timeOf(old);
    DateModel const model(text);
    std::vector<char> const exact = utltest::exactly(text);
    bool const expected = model.isValid() && !text.empty();
    ASSERT_EQ(time.setHttpDate(exact.data()), expected) << text;
    ASSERT_EQ(fieldsOf(time), expected ? model.fields() : old) << text;
}

std::string httpDate(Time const& time) {
    char text[64] = {};
    return time.getHttpDate(text, sizeof text) ? text : "(none)";
}

TEST(TimeSweep, EachField_OneAboveItsRange_IsInvalidForTheConstructorAndForSet) {
    for (std::size_t field = 0; field < 9; ++field) {
        for (unsigned int const value : {LAST[field] + 1, 65535U}) {
            std::vector<unsigned int> fields = LAST;
            fields[field] = value;
            Time time = timeOf(FIRST);
            bool const folds = field == 5;
            EXPECT_EQ(fieldsOf(timeOf(fields)), folds ? LAST : INVALID) << field;
            auto const at = [&](std::size_t i) { return static_cast<unsigned short>(fields[i]); };
            EXPECT_EQ(time.set(at(0), at(1), at(2), at(3), at(4), at(5), at(6), at(7), at(8)), folds);
            EXPECT_EQ(fieldsOf(time), folds ? LAST : FIRST) << field;
        }
    }
    EXPECT_EQ(fieldsOf(timeOf(LAST)), LAST);
    EXPECT_EQ(fieldsOf(timeOf(FIRST)), FIRST);
    EXPECT_EQ(fieldsOf(Time(2000, 0, 1, 0, 0, 0, 0, 0, 0)), INVALID);
    EXPECT_EQ(fieldsOf(Time(2000, 1, 0, 0, 0, 0, 0, 0, 0)), INVALID);
    EXPECT_EQ(fieldsOf(Time(2000, 13, 1, 0, 0, 61, 0, 0, 0)), INVALID);
}

TEST(TimeSweep, Get_WithOneNull_WritesAllOthers) {
    std::vector<unsigned int> const fields = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    for (std::size_t missing = 0; missing < 9; ++missing) {
        unsigned short out[9] = {};
        auto const at = [&](std::size_t i) { return i == missing ? nullptr : &out[i]; };
        ASSERT_TRUE(timeOf(fields).get(at(0), at(1), at(2), at(3), at(4), at(5), at(6), at(7), at(8)));
        for (std::size_t i = 0; i < 9; ++i) {
            EXPECT_EQ(out[i], i == missing ? 0U : fields[i]);
        }
    }
}

TEST(TimeSweep, GetDays_InTheInvalidState_CountsItsFieldsLikeAnyOthers) {
    // 65534 whole years, twelve months of a common year, 31 days.
    EXPECT_EQ(Time().getDays(), 365U * 65534 + 16383 - 655 + 163 + 365 + 365 + 31);
}

TEST(TimeSweep, GetDays_InTheYear0_KnowsNo29February) {
    EXPECT_EQ(Time(0, 3, 1, 0, 0, 0, 0, 0, 0).getDays(), 59U);
    EXPECT_EQ(Time(0, 12, 31, 0, 0, 0, 0, 0, 0).getDays(), 364U);
    EXPECT_EQ(Time(4, 3, 1, 0, 0, 0, 0, 0, 0).getDays(), 365U * 4 + 60);
    EXPECT_EQ(Time(100, 3, 1, 0, 0, 0, 0, 0, 0).getDays() - Time(100, 1, 1, 0, 0, 0, 0, 0, 0).getDays(), 59U);
    EXPECT_EQ(Time(400, 3, 1, 0, 0, 0, 0, 0, 0).getDays() - Time(400, 1, 1, 0, 0, 0, 0, 0, 0).getDays(), 60U);
    EXPECT_EQ(timeOf(LAST).getDays() + 1, 365U * 65533 + 16383 - 655 + 163 + 365 + 365);
}

TEST(TimeSweep, Elapsed_AroundEveryLimit_FollowsTheStepsToTheLetter) {
    unsigned int const days[] = {0, 1, 2, 3, 58, 59, 365, 366, 49709, 49710, 49711, 49712, 60000};
    unsigned int const seconds[] = {0, 1, 23294, 23295, 23296, 43200, 63104, 63105, 86399};
    unsigned int const fractions[] = {0,         1,         999999,    1000000,  1000001,
                                      999000000, 998999999, 999999999, 500000000};
    for (unsigned int const referenceSecond : seconds) {
        for (unsigned int const referenceFraction : fractions) {
            Time const reference = behind2001(0, referenceSecond, referenceFraction);
            for (unsigned int const day : days) {
                for (unsigned int const second : seconds) {
                    for (unsigned int const fraction : fractions) {
                        Time const time = behind2001(day, second, fraction);
                        ASSERT_EQ(time.getElapsedDays(reference), elapsedDays(time, reference))
                            << day << " " << second << " " << fraction;
                        ASSERT_EQ(time.getElapsedSeconds(reference), elapsedSeconds(time, reference))
                            << day << " " << second << " " << fraction;
                    }
                }
            }
        }
    }
}

TEST(TimeSweep, Elapsed_AShortfallOfExactlyAMillisecond_StillCountsAsNotComplete) {
    Time const reference(2020, 1, 1, 12, 0, 0, 2, 0, 0);
    EXPECT_EQ(Time(2020, 1, 2, 12, 0, 0, 1, 0, 0).getElapsedDays(reference), 0U);
    EXPECT_EQ(Time(2020, 1, 2, 12, 0, 0, 0, 999, 999).getElapsedDays(reference), 1U);
    EXPECT_EQ(Time(2020, 1, 1, 12, 0, 5, 1, 0, 0).getElapsedSeconds(reference), 4U);
    EXPECT_EQ(Time(2020, 1, 1, 12, 0, 5, 0, 999, 999).getElapsedSeconds(reference), 5U);
    // Where the day lacks, the second lacks as well.
    EXPECT_EQ(Time(2020, 1, 3, 12, 0, 0, 1, 999, 999).getElapsedSeconds(reference), 86399U);
}

TEST(TimeSweep, Elapsed_AtTheLastSecondThat32BitsHold_IsThatNumberAndNotAFailure) {
    Time const reference = behind2001(0, 0, 0);
    EXPECT_EQ(behind2001(49710, 23294, 0).getElapsedSeconds(reference), 4294967294U);
    EXPECT_EQ(behind2001(49710, 23295, 0).getElapsedSeconds(reference), 4294967295U);
    EXPECT_EQ(behind2001(49710, 23295, 0).getElapsedSeconds(behind2001(0, 0, 1)), 4294967294U);
    EXPECT_EQ(behind2001(49710, 23296, 0).getElapsedSeconds(reference), NONE);
}

TEST(TimeSweep, Elapsed_FromADayThatItsMonthLacks_WrapsBelow0) {
    Time const reference(2001, 2, 31, 12, 0, 0, 0, 0, 0);
    EXPECT_EQ(Time(2001, 3, 1, 12, 0, 0, 0, 0, 0).getElapsedDays(reference), 0xFFFFFFFEU);
    EXPECT_EQ(Time(2001, 3, 1, 11, 0, 0, 0, 0, 0).getElapsedDays(reference), 0xFFFFFFFDU);
    EXPECT_EQ(Time(2001, 3, 3, 11, 0, 0, 0, 0, 0).getElapsedDays(reference), 0U);
    EXPECT_EQ(Time(2001, 3, 1, 12, 0, 0, 0, 0, 0).getElapsedSeconds(reference), NONE);
    EXPECT_EQ(Time(2001, 3, 3, 11, 0, 0, 0, 0, 0).getElapsedSeconds(reference), 0U - 3600U);
}

TEST(TimeSweep, Compare_LooksAtEachFieldInOrderAndAtTheInvalidStateToo) {
    for (std::size_t field = 0; field < 9; ++field) {
        std::vector<unsigned int> low = {5, 5, 5, 5, 5, 5, 5, 5, 5};
        std::vector<unsigned int> high = low;
        --low[field];
        for (std::size_t behind = field + 1; behind < 9; ++behind) {
            ++low[behind];
        }
        Time const a = timeOf(low);
        Time const b = timeOf(high);
        EXPECT_TRUE(a < b && a <= b && b > a && b >= a && a != b && a.isPastTime(b)) << field;
        EXPECT_FALSE(a > b || a >= b || b < a || b <= a || a == b || b.isPastTime(a)) << field;
    }
    EXPECT_TRUE(Time() == Time() && Time() <= Time() && timeOf(LAST) < Time());
    EXPECT_FALSE(Time() != Time() || Time() < Time() || Time().isPastTime(Time()));
}

TEST(TimeSweep, GetHttpDate_WithEveryBufferSize_WritesInsideItAndSucceedsFrom30On) {
    Time const time(1994, 11, 6, 8, 49, 37, 1, 2, 3);
    std::string const full = "Sun, 06 Nov 1994 08:49:37 GMT";
    for (unsigned int size = 1; size <= 32; ++size) {
        auto const buffer = std::make_unique<char[]>(size);
        ASSERT_EQ(time.getHttpDate(buffer.get(), size), size >= 30) << size;
        EXPECT_EQ(std::string(buffer.get()), full.substr(0, size - 1));
    }
    char untouched = 'x';
    EXPECT_FALSE(time.getHttpDate(&untouched, 0));
    EXPECT_FALSE(time.getHttpDate(nullptr, 30));
    EXPECT_FALSE(Time().getHttpDate(&untouched, 1));
    EXPECT_EQ(untouched, 'x');
}

TEST(TimeSweep, GetHttpDate_AtTheEdgesOfItsYears_HasTheWeekdayFrom15October1582On) {
    EXPECT_EQ(httpDate(Time(99, 12, 31, 23, 59, 59, 0, 0, 0)), "(none)");
    EXPECT_EQ(httpDate(Time(100, 1, 2, 3, 4, 5, 0, 0, 0)), "02 Jan 100 03:04:05 GMT");
    EXPECT_EQ(httpDate(Time(1582, 10, 14, 23, 59, 59, 999, 999, 999)), "14 Oct 1582 23:59:59 GMT");
    EXPECT_EQ(httpDate(Time(1582, 9, 30, 0, 0, 0, 0, 0, 0)), "30 Sep 1582 00:00:00 GMT");
    EXPECT_EQ(httpDate(Time(1582, 10, 15, 0, 0, 0, 0, 0, 0)), "Fri, 15 Oct 1582 00:00:00 GMT");
    EXPECT_EQ(httpDate(Time(1582, 11, 1, 0, 0, 0, 0, 0, 0)), "Mon, 01 Nov 1582 00:00:00 GMT");
    EXPECT_EQ(httpDate(Time(1583, 1, 1, 0, 0, 0, 0, 0, 0)), "Sat, 01 Jan 1583 00:00:00 GMT");
    EXPECT_EQ(httpDate(Time(2001, 2, 31, 0, 0, 0, 0, 0, 0)), "Sat, 31 Feb 2001 00:00:00 GMT");
    EXPECT_EQ(httpDate(Time(65534, 12, 31, 0, 0, 0, 0, 0, 0)).substr(3), ", 31 Dec 65534 00:00:00 GMT");
}

TEST(TimeSweep, SetHttpDate_OfRandomTokens_ReadsThemAsOneCharacterAtATimeDoes) {
    static char const* const PIECES[] = {"Sun",      "Nov",    "nOVember",
                                         "Dec",      "ma",     "May",
                                         "06",       "6",      "0",
                                         "31",       "32",     "94",
                                         "1994",     "069",    "0069",
                                         "70",       "123",    "12345",
                                         "08:49:37", "8:9:7",  "23:59:60",
                                         "24:0:0",   "1:2:",   ":",
                                         "1:2:3:4",  "1:2:3x", "001:2:3",
                                         "1:2:345",  " ",      " ",
                                         " ",        ",",      "-",
                                         "\t",       "GMT",    "x",
                                         "\n",       "\x7f",   "\xe6\x9c\x88",
                                         "\xff",     "@",      "`",
                                         "{",        "~",      "1st",
                                         "9jan",     "jan9",   "T"};
    std::mt19937 random(7);
    for (int i = 0; i < 60000; ++i) {
        std::string text;
        for (unsigned int count = static_cast<unsigned int>(random() % 12); count > 0; --count) {
            text += PIECES[random() % (sizeof(PIECES) / sizeof(PIECES[0]))];
            text += random() % 3 == 0 ? " " : "";
        }
        checkDate(text);
        ASSERT_FALSE(HasFatalFailure());
    }
}

TEST(TimeSweep, SetHttpDate_WithEachByteOfADateReplaced_ReadsItAsOneCharacterAtATimeDoes) {
    for (std::string const text :
         {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994"}) {
        for (std::size_t at = 0; at < text.size(); ++at) {
            for (int byte = 0; byte < 256; ++byte) {
                std::string changed = text;
                changed[at] = static_cast<char>(byte);
                checkDate(changed.c_str());  // ends at the first null
                checkDate(text.substr(0, at));
                ASSERT_FALSE(HasFatalFailure());
            }
        }
    }
}

TEST(TimeSweep, SetHttpDate_WithAllFound_DoesNotMindWhatFollows) {
    Time time;
    EXPECT_TRUE(time.setHttpDate("1 jan 99 0:0:0 99 Feb 77 23:59:60"));
    EXPECT_EQ(fieldsOf(time), (std::vector<unsigned int>{1999, 1, 1, 0, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(time.setHttpDate("0:0:59:77 1994 \tjanuary;31"));
    EXPECT_EQ(fieldsOf(time), (std::vector<unsigned int>{1994, 1, 31, 0, 0, 59, 0, 0, 0}));
    EXPECT_TRUE(time.setHttpDate("31x7 2000x7 xfebx 7:7:7x7"));
    EXPECT_EQ(fieldsOf(time), (std::vector<unsigned int>{2000, 2, 31, 7, 7, 7, 0, 0, 0}));
    EXPECT_FALSE(time.setHttpDate("00 Jan 2000 0:0:0"));
    EXPECT_FALSE(time.setHttpDate(""));
    EXPECT_FALSE(time.setHttpDate(nullptr));
    EXPECT_EQ(time.year(), 2000);
}

}  // namespace

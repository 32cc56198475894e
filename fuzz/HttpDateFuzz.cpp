// Dates of HTTP, read and written, beside plain models; and the numbers of days and seconds between two
// moments.

#include <array>
#include <cctype>
#include <cstdio>
#include <string>

#include "Fuzz.h"
#include "UtlTimepiece.h"

namespace {

using fuzz::Input;

using Fields = std::array<unsigned short, 9>;

constexpr char const* MONTHS[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isDelimiter(char c) {
    return c == '\0' || c == '\t' ||
           (static_cast<unsigned char>(c) < 0x7F && std::ispunct(c) != 0 && c != ':') || c == ' ';
}

// Reads a date part by part; `mText` keeps its terminator.
class DateReader {
  public:
    explicit DateReader(std::string const& text) : mText(text + '\0') {}

    bool read(Fields* fields) {
        while (mAt + 1 < mText.size()) {
            bool const isPart = !isDelimiter(mText[mAt]) && (time() || day() || month() || year());
            if (!isPart && isComplete() && !isDelimiter(mText[mAt])) {
                break;
            }
            mAt += isPart ? 0 : 1;
        }
        *fields = {mYear, mMonth, mDay, mHour, mMinute, mSecond, 0, 0, 0};
        return isComplete() && mMonth <= 12 && mDay >= 1 && mDay <= 31 && mHour <= 23 && mMinute <= 59 &&
               mSecond <= 59;
    }

  private:
    bool isComplete() const { return mHasTime && mHasDay && mHasMonth && mHasYear; }

    // The digits at a place, if they are as many as allowed.
    bool digits(size_t at, size_t fewest, size_t most, unsigned short* value, size_t* next) const {
        *next = at;
        unsigned int number = 0;
        while (isDigit(mText[*next]) && *next - at <= most) {
            number = number * 10 + static_cast<unsigned int>(mText[*next] - '0');
            ++*next;
        }
        *value = static_cast<unsigned short>(number);
        return *next - at >= fewest && *next - at <= most;
    }

    bool taken(size_t next, bool* has) {
        while (!isDelimiter(mText[next])) {
            ++next;
        }
        mAt = next + 1;
        *has = true;
        return true;
    }

    bool time() {
        unsigned short hour = 0;
        unsigned short minute = 0;
        unsigned short second = 0;
        size_t at = mAt;
        if (mHasTime || !digits(at, 1, 2, &hour, &at) || mText[at] != ':' ||
            !digits(at + 1, 1, 2, &minute, &at) || mText[at] != ':' || !digits(at + 1, 1, 2, &second, &at)) {
            return false;
        }
        mHour = hour;
        mMinute = minute;
        mSecond = second;
        return taken(at, &mHasTime);
    }

    bool day() {
        unsigned short day = 0;
        size_t at = mAt;
        if (mHasDay || !digits(at, 1, 2, &day, &at)) {
            return false;
        }
        mDay = day;
        return taken(at, &mHasDay);
    }

    bool month() {
        if (mHasMonth) {
            return false;
        }
        for (unsigned short i = 0; i < 12; ++i) {
            if (strncasecmp(mText.c_str() + mAt, MONTHS[i], 3) == 0) {
                mMonth = static_cast<unsigned short>(i + 1);
                return taken(mAt + 3, &mHasMonth);
            }
        }
        return false;
    }

    bool year() {
        unsigned short year = 0;
        size_t at = mAt;
        if (mHasYear || !digits(at, 2, 4, &year, &at)) {
            return false;
        }
        mYear = static_cast<unsigned short>(year < 70 ? year + 2000 : year < 100 ? year + 1900 : year);
        return taken(at, &mHasYear);
    }

    std::string mText;
    size_t mAt = 0;
    bool mHasTime = false;
    bool mHasDay = false;
    bool mHasMonth = false;
    bool mHasYear = false;
    unsigned short mYear = 65535;
    unsigned short mMonth = 13;
    unsigned short mDay = 32;
    unsigned short mHour = 24;
    unsigned short mMinute = 60;
    unsigned short mSecond = 60;
};

Fields fieldsOf(utl::Time const& time) {
    return {time.year(),   time.month(),       time.day(),         time.hour(),      time.minute(),
            time.second(), time.millisecond(), time.microsecond(), time.nanosecond()};
}

void readDate(std::string const& text) {
    auto const exact = fuzz::exactly(text);
    Fields expected{};
    bool const isDate = DateReader(text).read(&expected);
    utl::Time const before(1999, 12, 31, 23, 59, 58, 1, 2, 3);
    utl::Time time = before;
    FUZZ_EXPECT(time.setHttpDate(exact.get()) == isDate);
    FUZZ_EXPECT(fieldsOf(time) == (isDate ? expected : fieldsOf(before)));
}

// Day 0 is 1 January of the year 0, which has 365 days. Each 400 years have 146097 days.
unsigned int daysOf(Fields const& fields) {
    static constexpr unsigned int BEFORE[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    unsigned int const year = fields[0];
    bool const isLeap = year != 0 && (year % 400 == 0 || (year % 4 == 0 && year % 100 != 0));
    unsigned int days = BEFORE[fields[1] - 1] + fields[2] - 1 + (isLeap && fields[1] > 2 ? 1 : 0);
    for (unsigned int y = year % 400; y > 0; --y) {
        unsigned int const past = y - 1;
        days += past % 400 == 0 || (past % 4 == 0 && past % 100 != 0) ? 366 : 365;
    }
    days += year / 400 * 146097;
    return days - (year != 0 ? 1 : 0);
}

std::string written(Fields const& fields) {
    static constexpr char const* DAYS[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    char text[64] = "";
    std::snprintf(text, sizeof(text), "%02u %s %02u %02u:%02u:%02u GMT", static_cast<unsigned int>(fields[2]),
                  MONTHS[fields[1] - 1], static_cast<unsigned int>(fields[0]),
                  static_cast<unsigned int>(fields[3]), static_cast<unsigned int>(fields[4]),
                  static_cast<unsigned int>(fields[5]));
    bool const hasDay =
        fields[0] > 1582 || (fields[0] == 1582 && (fields[1] > 10 || (fields[1] == 10 && fields[2] >= 15)));
    // 31 December of the year 0 was a Sunday.
    return hasDay ? std::string(DAYS[(daysOf(fields) - 364) % 7]) + ", " + text : text;
}

void writeDate(utl::Time const& time, unsigned int size) {
    auto const buffer = fuzz::blockOf<char>(size, '#');
    bool const isWritten = time.getHttpDate(buffer.get(), size);
    if (!time.isValid() || time.year() < 100) {
        FUZZ_EXPECT(!isWritten);
        return;
    }
    std::string const expected = written(fieldsOf(time));
    FUZZ_EXPECT(isWritten == (expected.size() < size));
    if (!isWritten) {
        FUZZ_EXPECT(size == 0 || expected.substr(0, size - 1) == buffer.get());
        return;
    }
    FUZZ_EXPECT(expected == buffer.get());
    utl::Time again;
    Fields fields = fieldsOf(time);
    fields[6] = fields[7] = fields[8] = 0;
    FUZZ_EXPECT(time.year() > 9999 || (again.setHttpDate(buffer.get()) && fieldsOf(again) == fields));
}

utl::Time timeFrom(Input* input) {
    auto const near = [input](unsigned int last) { return static_cast<unsigned short>(input->upTo(last)); };
    unsigned short const year = input->number<unsigned short>();
    return {year, near(13), near(32), near(24), near(60), near(60), near(1001), near(1001), near(1001)};
}

unsigned int secondsOf(utl::Time const& time) {
    return time.hour() * 3600U + time.minute() * 60U + time.second();
}

unsigned int fractionOf(utl::Time const& time) {
    return time.millisecond() * 1000000U + time.microsecond() * 1000U + time.nanosecond();
}

bool lacksFraction(utl::Time const& time, utl::Time const& reference) {
    unsigned int const a = fractionOf(time);
    unsigned int const b = fractionOf(reference);
    return a != b && a + 1000000U - b <= 999999U;
}

void measure(utl::Time const& time, utl::Time const& reference) {
    if (!time.isValid() || !reference.isValid() || fieldsOf(time) < fieldsOf(reference)) {
        FUZZ_EXPECT(time.getElapsedDays(reference) == utl::Time::INVALID_ELAPSED);
        FUZZ_EXPECT(time.getElapsedSeconds(reference) == utl::Time::INVALID_ELAPSED);
        return;
    }
    FUZZ_EXPECT(time.getDays() == daysOf(fieldsOf(time)));
    unsigned int days = time.getDays() - reference.getDays();
    bool const isShort = secondsOf(time) != secondsOf(reference) ? secondsOf(time) < secondsOf(reference)
                                                                 : lacksFraction(time, reference);
    days -= days != 0 && isShort ? 1 : 0;
    FUZZ_EXPECT(time.getElapsedDays(reference) == days);
    unsigned int const difference = secondsOf(time) - secondsOf(reference);
    unsigned int seconds = days * 86400U + difference;
    seconds -= seconds != 0 && lacksFraction(time, reference) ? 1 : 0;
    bool const isTooMuch = days > 49710 || (days == 49710 && difference >= 23296U);
    FUZZ_EXPECT(time.getElapsedSeconds(reference) == (isTooMuch ? utl::Time::INVALID_ELAPSED : seconds));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    Input input(data, size);
    if (input.flag()) {
        readDate(input.rest());
        return 0;
    }
    utl::Time const time = timeFrom(&input);
    utl::Time const other = timeFrom(&input);
    writeDate(time, input.upTo(40));
    measure(time, other);
    measure(other, time);
    return 0;
}

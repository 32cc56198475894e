#pragma once

#include "UtlPlatform.h"

namespace utl {

/// A moment of the Gregorian calendar, broken down to nanoseconds; *external lock needed* where one value is
/// shared, because it holds none. The calendar extends back to the year 0 without a break.
///
/// | Field                                      | Valid      | Invalid state |
/// |--------------------------------------------|------------|---------------|
/// | `year`                                     | 0 to 65534 | 65535         |
/// | `month`                                    | 1 to 12    | 13            |
/// | `day`                                      | 1 to 31    | 32            |
/// | `hour`                                     | 0 to 23    | 24            |
/// | `minute`, `second`                         | 0 to 59    | 60            |
/// | `millisecond`, `microsecond`, `nanosecond` | 0 to 999   | 1000          |
///
/// A value is either valid or in the invalid state. Each field has its range whatever the others are: 31
/// February is valid, and counts as the day after 30 February. The last three fields are the digits of one
/// fraction: each counts what the one before it leaves.
class UTL_API Time {
  public:
    /// 1 January of the year 0, 00:00:00: day 0 of `getDays`.
    static Time const DEFAULT_REFERENCE_TIME;

    /// What `getElapsedDays` and `getElapsedSeconds` return if there is no such number.
    static constexpr unsigned int INVALID_ELAPSED = 0xFFFFFFFFU;

    /// The invalid state.
    constexpr Time() = default;

    /// This moment, with a `second` above 59 as 59, so that leap seconds do no harm; the invalid state if
    /// another field is outside its range.
    constexpr Time(unsigned short year, unsigned short month, unsigned short day, unsigned short hour,
                   unsigned short minute, unsigned short second, unsigned short millisecond,
                   unsigned short microsecond, unsigned short nanosecond) noexcept
        : mYear(year),
          mMonth(month),
          mDay(day),
          mHour(hour),
          mMinute(minute),
          mSecond(second > 59 ? static_cast<unsigned short>(59) : second),
          mMillisecond(millisecond),
          mMicrosecond(microsecond),
          mNanosecond(nanosecond) {
        if (!isValid()) {
            *this = Time();
        }
    }

    /// As the constructor; but false, with the value unchanged, if the result would be the invalid state.
    bool set(unsigned short year, unsigned short month, unsigned short day, unsigned short hour,
             unsigned short minute, unsigned short second, unsigned short millisecond,
             unsigned short microsecond, unsigned short nanosecond) noexcept;

    /// Copies the fields to those places that are not null. False, with nothing copied, in the invalid state.
    bool get(unsigned short* year, unsigned short* month, unsigned short* day, unsigned short* hour,
             unsigned short* minute, unsigned short* second, unsigned short* millisecond,
             unsigned short* microsecond, unsigned short* nanosecond) const noexcept;

    /// Enters the invalid state.
    void reset() noexcept;

    /// False in the invalid state.
    [[nodiscard]] constexpr bool isValid() const noexcept {
        return mYear != 65535 && mMonth >= 1 && mMonth <= 12 && mDay >= 1 && mDay <= 31 && mHour <= 23 &&
               mMinute <= 59 && mSecond <= 59 && mMillisecond <= 999 && mMicrosecond <= 999 &&
               mNanosecond <= 999;
    }

    /// The fields as they are, in the invalid state too.
    ///@{
    [[nodiscard]] unsigned short year() const noexcept { return mYear; }
    [[nodiscard]] unsigned short month() const noexcept { return mMonth; }
    [[nodiscard]] unsigned short day() const noexcept { return mDay; }
    [[nodiscard]] unsigned short hour() const noexcept { return mHour; }
    [[nodiscard]] unsigned short minute() const noexcept { return mMinute; }
    [[nodiscard]] unsigned short second() const noexcept { return mSecond; }
    [[nodiscard]] unsigned short millisecond() const noexcept { return mMillisecond; }
    [[nodiscard]] unsigned short microsecond() const noexcept { return mMicrosecond; }
    [[nodiscard]] unsigned short nanosecond() const noexcept { return mNanosecond; }
    ///@}

    /// Days since 1 January of the year 0. That year has 365; all others follow the Gregorian rule. Of no
    /// use in the invalid state.
    [[nodiscard]] unsigned int getDays() const noexcept;

    /// Compare field by field from the year down, in the invalid state too.
    ///@{
    [[nodiscard]] bool operator==(Time const& other) const noexcept;
    [[nodiscard]] bool operator!=(Time const& other) const noexcept;
    [[nodiscard]] bool operator<(Time const& other) const noexcept;
    [[nodiscard]] bool operator>(Time const& other) const noexcept;
    [[nodiscard]] bool operator<=(Time const& other) const noexcept;
    [[nodiscard]] bool operator>=(Time const& other) const noexcept;
    ///@}

    /// True if this moment is before `other`.
    [[nodiscard]] bool isPastTime(Time const& other) const noexcept;

    /// Whole days from `reference` to this moment; `INVALID_ELAPSED` if either is invalid or this moment is
    /// the earlier one.
    ///
    /// An incomplete last day does not count. It is incomplete if this moment has the earlier time of day by
    /// seconds, or the same second and a fraction that is less by a millisecond at most. A fraction that is
    /// less by more does not make it incomplete; callers rely on values that were computed so. If 29 to 31
    /// February of a shorter month is in between, days are counted as `getDays` numbers them, and the
    /// difference may wrap.
    [[nodiscard]] unsigned int getElapsedDays(Time const& reference) const noexcept;

    /// Whole seconds from `reference` to this moment; `INVALID_ELAPSED` if either is invalid, if this moment
    /// is the earlier one, and if they are 0xFFFFFFFF seconds or more apart.
    ///
    /// They are 86400 for each day that `getElapsedDays` returns, and the difference of the times of day. If
    /// this moment has the earlier time of day, that difference is negative, so the result is a day short,
    /// and within the first day it wraps below 0: from 23:00 to 01:00 of the next day it is 2 hours less a
    /// day. A second whose fraction is incomplete by a millisecond at most does not count. Callers have
    /// values that were computed so, and rely on all of this.
    [[nodiscard]] unsigned int getElapsedSeconds(Time const& reference) const noexcept;

    /// Writes "Sun, 06 Nov 1994 08:49:37 GMT" to `buffer` of `size` bytes; 30 hold it for a year of four
    /// digits. A date before 15 October 1582 has no weekday. The value is not converted: it should be in
    /// Coordinated Universal Time, and the fraction is left out. False in the invalid state, for a year below
    /// 100, for null, and for too little room, where `buffer` then holds the beginning.
    bool getHttpDate(char* buffer, unsigned int size) const;

    /// Sets the moment from a date of HTTP, in any of its forms: "Sun, 06 Nov 1994 08:49:37 GMT",
    /// "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994". The fraction becomes 0. False, with the
    /// value unchanged, for null, and if time, day, month or year is missing or outside its range.
    ///
    /// A time, a day, a month and a year are looked for in any order, each of them once. The rest of the text
    /// does not matter, not even a time zone. At each place the parts that are still missing are tried in
    /// this order:
    ///
    /// | Part  | Form                                      | Value                                     |
    /// |-------|-------------------------------------------|-------------------------------------------|
    /// | time  | three numbers of 1 or 2 digits with ":"   | hour, minute, second; 60 is no second     |
    /// | day   | 1 or 2 digits                             |                                           |
    /// | month | the first three letters, in any case      | what comes after them does not matter     |
    /// | year  | 2 to 4 digits                             | 70 to 99 from 1970, 0 to 69 from 2000 on  |
    ///
    /// A part reaches to the next delimiter: a blank, a tab, or an ASCII punctuation mark but ":". Text that
    /// is no part is tried again from its next character on.
    bool setHttpDate(char const* text) noexcept;

  private:
    unsigned int secondsOfDay() const noexcept;
    unsigned int fraction() const noexcept;
    bool lacksFractionOf(Time const& reference) const noexcept;

    unsigned short mYear = 65535;
    unsigned short mMonth = 13;
    unsigned short mDay = 32;
    unsigned short mHour = 24;
    unsigned short mMinute = 60;
    unsigned short mSecond = 60;
    unsigned short mMillisecond = 1000;
    unsigned short mMicrosecond = 1000;
    unsigned short mNanosecond = 1000;
};

/// Sets `*time` to the present, in Coordinated Universal Time or in local time, with a resolution of a second
/// and a fraction of 0; a leap second counts as 59. False, with `*time` unchanged, for null, if the system
/// has no time, and for a year outside the range. Any thread may call them. Another time zone of the process
/// or the machine shows in local time after the program has called `tzset`.
///@{
UTL_API bool getSystemTime(Time* time);
UTL_API bool getLocalTime(Time* time);
///@}

}  // namespace utl

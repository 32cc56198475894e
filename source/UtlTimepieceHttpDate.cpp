#include "UtlBasicString.h"
#include "UtlString.h"
#include "UtlTimepiece.h"

namespace utl {

namespace {

constexpr unsigned int MONTH_COUNT = 12;
constexpr unsigned int MONTH_NAME_LENGTH = 3;
constexpr char const* MONTH_NAMES[MONTH_COUNT] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr char const* DAY_NAMES[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

Range<char> const DIGITS('0', '9');

// Including the terminator, so that the end of the text ends a word.
Range<char> const DELIMITERS[] = {{'\0', '\0'}, {'\t', '\t'}, {' ', '/'}, {';', '@'}, {'[', '`'}, {'{', '~'}};

// From the first day of the Gregorian calendar on dates have a weekday.
constexpr unsigned int FIRST_WEEKDAY_DATE = 15821015;
constexpr unsigned int HTTP_YEAR_MIN = 100;

bool isInRange(Range<char> const& range, char character) {
    return range.mLow <= character && character <= range.mHigh;
}

bool isDigit(char character) {
    return isInRange(DIGITS, character);
}

bool isDelimiter(char character) {
    for (Range<char> const& range : DELIMITERS) {
        if (isInRange(range, character)) {
            return true;
        }
    }
    return false;
}

char const* skipWord(char const* place) {
    while (!isDelimiter(*place)) {
        ++place;
    }
    return place;
}

char foldCase(char letter) {
    return static_cast<char>(letter | ('a' - 'A'));
}

// `name` is made of letters, and only a letter folds to one.
bool beginsWithName(char const* text, char const* name) {
    for (unsigned int i = 0; i < MONTH_NAME_LENGTH; ++i) {
        if (foldCase(text[i]) != foldCase(name[i])) {
            return false;
        }
    }
    return true;
}

// Reads all digits at `place`, `digitsMin` to `digitsMax`, as a number. Returns the place after it; null,
// with `*number` untouched, if there is none.
char const* takeNumber(char const* place, unsigned int digitsMin, unsigned int digitsMax,
                       unsigned short* number) {
    unsigned int value = 0;
    unsigned int digits = 0;
    for (; digits <= digitsMax && isDigit(place[digits]); ++digits) {
        value = value * 10 + static_cast<unsigned int>(place[digits] - '0');
    }
    if (digits < digitsMin || digits > digitsMax) {
        return nullptr;
    }
    *number = static_cast<unsigned short>(value);
    return place + digits;
}

unsigned short fullYear(unsigned short year) {
    return static_cast<unsigned short>(year < 70 ? year + 2000 : year < 100 ? year + 1900 : year);
}

// Collects the parts of a date. Each step that reads one returns the place after it, or null if it is none.
class HttpDateParser {
  public:
    // Reads to the end of the text, or to a place after the last part where nothing else can be read.
    void run(char const* place) {
        while (*place != '\0') {
            char const* const next = isDelimiter(*place) ? place + 1 : takePart(place);
            if (next == nullptr && hasAll()) {
                return;
            }
            place = next != nullptr ? next : place + 1;
        }
    }

    bool storeTo(Time* time) const {
        Time const found(mYear, mMonth, mDay, mClock[0], mClock[1], mClock[2], 0, 0, 0);
        if (!hasAll() || mClock[2] > 59 || !found.isValid()) {
            return false;
        }
        *time = found;
        return true;
    }

  private:
    bool hasAll() const { return mHasTime && mHasDay && mHasMonth && mHasYear; }

    char const* takePart(char const* place) {
        using Step = char const* (HttpDateParser::*)(char const*);
        struct Part {
            bool* isFound;
            Step take;
        };
        Part const parts[] = {{&mHasTime, &HttpDateParser::takeTime},
                              {&mHasDay, &HttpDateParser::takeDay},
                              {&mHasMonth, &HttpDateParser::takeMonth},
                              {&mHasYear, &HttpDateParser::takeYear}};
        for (Part const& part : parts) {
            char const* const end = *part.isFound ? nullptr : (this->*part.take)(place);
            if (end != nullptr) {
                *part.isFound = true;
                return skipWord(end);
            }
        }
        return nullptr;
    }

    char const* takeTime(char const* place) {
        unsigned short clock[3] = {};
        for (unsigned int i = 0; i < 3; ++i) {
            if (i != 0 && *place++ != ':') {
                return nullptr;
            }
            place = takeNumber(place, 1, 2, &clock[i]);
            if (place == nullptr) {
                return nullptr;
            }
        }
        mClock[0] = clock[0];
        mClock[1] = clock[1];
        mClock[2] = clock[2];
        return place;
    }

    char const* takeDay(char const* place) { return takeNumber(place, 1, 2, &mDay); }

    char const* takeMonth(char const* place) {
        for (unsigned int i = 0; i < MONTH_COUNT; ++i) {
            if (beginsWithName(place, MONTH_NAMES[i])) {
                mMonth = static_cast<unsigned short>(i + 1);
                return place + MONTH_NAME_LENGTH;
            }
        }
        return nullptr;
    }

    char const* takeYear(char const* place) {
        char const* const end = takeNumber(place, 2, 4, &mYear);
        mYear = end != nullptr ? fullYear(mYear) : mYear;
        return end;
    }

    unsigned short mClock[3] = {};
    unsigned short mDay = 0;
    unsigned short mMonth = 0;
    unsigned short mYear = 0;
    bool mHasTime = false;
    bool mHasDay = false;
    bool mHasMonth = false;
    bool mHasYear = false;
};

// January and February count as months 13 and 14 of the year before.
char const* dayName(unsigned int year, unsigned int month, unsigned int day) {
    unsigned int const y = month < 3 ? year - 1 : year;
    unsigned int const m = month < 3 ? month + 12 : month;
    return DAY_NAMES[(y + y / 4 - y / 100 + y / 400 + (13 * m + 8) / 5 + day) % 7];
}

}  // namespace

bool Time::getHttpDate(char* buffer, unsigned int size) const {
    if (!isValid() || mYear < HTTP_YEAR_MIN) {
        return false;
    }
    unsigned int const year = mYear;
    unsigned int const day = mDay;
    bool const hasWeekday = year * 10000 + mMonth * 100U + day >= FIRST_WEEKDAY_DATE;
    unsigned int const used = formatStr<char>(
        buffer, size, "%s%s%02u %s %02u %02u:%02u:%02u GMT", hasWeekday ? dayName(year, mMonth, day) : "",
        hasWeekday ? ", " : "", day, MONTH_NAMES[mMonth - 1], year, static_cast<unsigned int>(mHour),
        static_cast<unsigned int>(mMinute), static_cast<unsigned int>(mSecond));
    return used != INVALID_SIZE;
}

bool Time::setHttpDate(char const* text) noexcept {
    if (text == nullptr) {
        return false;
    }
    HttpDateParser parser;
    parser.run(text);
    return parser.storeTo(this);
}

}  // namespace utl

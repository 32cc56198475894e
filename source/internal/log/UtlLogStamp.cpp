#include "internal/log/UtlLogStamp.h"

#include <sys/time.h>
#include <time.h>

#include <algorithm>
#include <cstring>

#include "internal/log/UtlLogStampCache.h"

namespace utl {

namespace {

// The broken-down time holds all that the text of `ctime_r` shows, so equal keys have equal texts, even if
// the time zone changes in between. The key of a valid time is never all zeros.
struct StampKey {
    int year = 0;
    unsigned int rest = 0;

    bool operator==(StampKey const& other) const { return year == other.year && rest == other.rest; }
};

StampKey makeKey(tm const& local) {
    int rest = local.tm_wday;
    rest = rest << 4 | local.tm_mon;
    rest = rest << 5 | local.tm_mday;
    rest = rest << 5 | local.tm_hour;
    rest = rest << 6 | local.tm_min;
    rest = rest << 6 | local.tm_sec;
    return {local.tm_year, static_cast<unsigned int>(rest)};
}

// One text of `ctime_r`, which needs 26 bytes, and its key.
struct StampEntry {
    StampKey key;
    char text[28] = {};
};

LogStampCache<StampEntry> gLastEntry;

// Local time in the fixed form of `ctime_r`. If that fails, `text` holds what it left: nothing, or beyond the
// year 9999 a text whose end is cut off, which still makes a good stamp.
template <std::size_t SIZE>
void formatSecond(time_t seconds, char (&text)[SIZE]) {
    static_assert(SIZE >= sizeof(StampEntry::text));
    tm local{};
    StampEntry entry;
    bool const isKeyKnown = localtime_r(&seconds, &local) != nullptr;
    StampKey const key = isKeyKnown ? makeKey(local) : StampKey();
    if (isKeyKnown && gLastEntry.load(entry) && entry.key == key) {
        std::memcpy(text, entry.text, sizeof(entry.text));
        return;
    }
    bool const isFormatted = ctime_r(&seconds, text) != nullptr;
    if (isKeyKnown && isFormatted && std::strlen(text) < sizeof(entry.text)) {
        entry.key = key;
        std::memcpy(entry.text, text, sizeof(entry.text));
        gLastEntry.store(entry);
    }
}

// Writes ".123" over the text from `place` on, as much as fits before the terminator at `end`.
void putMilliseconds(char* place, char const* end, unsigned int milliseconds) {
    char const decimals[] = {'.', static_cast<char>('0' + milliseconds / 100 % 10),
                             static_cast<char>('0' + milliseconds / 10 % 10),
                             static_cast<char>('0' + milliseconds % 10), '\0'};
    std::size_t const room = static_cast<std::size_t>(end - place);
    std::memcpy(place, decimals, std::min(room, sizeof(decimals)));
}

}  // namespace

LogStamp::LogStamp() {
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0) {
        return;
    }
    formatSecond(now.tv_sec, mText);
    // The decimals replace the year and the line feed after it; the weekday is left out.
    char* const lastBlank = std::strrchr(mText, ' ');
    if (lastBlank == nullptr) {
        return;
    }
    putMilliseconds(lastBlank, mText + LENGTH_MAX, static_cast<unsigned int>(now.tv_usec / 1000));
    char const* const firstBlank = std::strchr(mText, ' ');
    mBegin = firstBlank != nullptr ? static_cast<std::size_t>(firstBlank + 1 - mText) : 0;
}

}  // namespace utl

#include "UtlLog.h"

#include <stdio.h>
#include <string.h>
#include <syslog.h>

#include "UtlSyncObject.h"
#include "internal/base/UtlProcessWide.h"
#include "internal/base/UtlSavedErrno.h"
#include "internal/log/UtlLogSink.h"
#include "internal/log/UtlLogStamp.h"
#include "internal/log/UtlLogTypes.h"

namespace utl {

namespace {

constexpr unsigned int LINE_SIZE = 256;
constexpr unsigned int NAME_SIZE = LogTypeData::NAME_SIZE;
constexpr unsigned int PREFIX_LENGTH = 5;
constexpr char PREFIXES[][PREFIX_LENGTH + 1] = {"NO : ", "ERR: ", "WRN: ", "INF: ", "DTL: ", "DBG: "};
constexpr int SYSTEM_PRIORITIES[] = {0, LOG_ERR, LOG_WARNING, LOG_INFO};
constexpr int BINARY_CHANNEL = 3;
constexpr char CUT_MARK[] = "...";
constexpr char LINE_END[] = "\r\n";

static_assert(LOG_LINE_LENGTH_MAX + sizeof(LINE_END) <= LINE_SIZE);
static_assert(LOG_RAW_LENGTH_MAX < LINE_SIZE);

// A level is compared as unsigned: a negative one counts as the highest.
int clampLevel(int level) {
    return static_cast<unsigned int>(level) > static_cast<unsigned int>(LOG_LEVEL_DEBUG) ? LOG_LEVEL_DEBUG
                                                                                         : level;
}

struct LogState {
    LogTypeTable types UTL_GUARDED_BY(tableLock);
    SyncObject tableLock;
    SyncObject outputLock;
    char tag[NAME_SIZE] UTL_GUARDED_BY(outputLock) = {};
};

inline LogState& logState() {
    static ProcessWide<LogState> theState;  // another file's static initialiser may log first
    return *theState;
}

// Constructed at load at the latest: a signal handler must never be the first to log.
[[maybe_unused]] LogState& gBuiltAtLoad = logState();

// Returns whether a line passes; only then `name` is set. It is a copy, because another thread may register
// the type again while this line is composed. Most lines get no further than this filter, so it is inline.
inline bool passesFilter(int type, int level, char (&name)[NAME_SIZE]) {
    LogState& state = logState();
    SyncGuard const guard(state.tableLock);
    LogTypeData const* entry = state.types.find(type);
    if (entry == nullptr) {
        entry = state.types.find(LOG_TYPE_DEFAULT);
    }
    if (entry == nullptr || level == LOG_LEVEL_NONE || entry->filterLevel < level) {
        return false;
    }
    memcpy(name, entry->name, NAME_SIZE);
    return true;
}

// The text as a format for a function that gets no arguments. What needs none, "%%" and "%m", keeps its
// meaning. Any other percent sign is doubled, so that it is written as it is and no argument is read.
class PlainFormat {
  public:
    explicit PlainFormat(char const* text) : mpFormat(text) {
        if (strchr(text, '%') != nullptr) {
            escape(text);
            mpFormat = mEscaped;
        }
    }
    PlainFormat(PlainFormat const&) = delete;
    PlainFormat& operator=(PlainFormat const&) = delete;

    char const* get() const { return mpFormat; }

  private:
    void escape(char const* text) {
        char* out = mEscaped;
        while (*text != '\0') {
            bool const isPercent = *text == '%';
            bool const isPair = isPercent && (text[1] == '%' || text[1] == 'm');
            *out++ = *text++;
            if (isPercent) {
                *out++ = isPair ? *text++ : '%';
            }
        }
        *out = '\0';
    }

    char const* mpFormat;
    char mEscaped[2 * LINE_SIZE];
};

// The texts are formats without arguments on purpose: `PlainFormat` has made them safe.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"

void writeSystemLog(int level, char const* text, SavedErrno const& callersErrno) {
    if (level > LOG_LEVEL_INFO) {
        return;
    }
    PlainFormat const format(text);
    SyncGuard const guard(logState().outputLock);
    callersErrno.restore();
    syslog(SYSTEM_PRIORITIES[level], format.get());
}

void writeStandardOutput(char const* text, SavedErrno const& callersErrno) {
    PlainFormat const format(text);
    SyncGuard const guard(logState().outputLock);
    callersErrno.restore();
    printf(format.get());
}

#pragma GCC diagnostic pop

void writeBinary(int level, char const* text) {
    if (level > LOG_LEVEL_INFO || *text == '\0') {
        return;
    }
    SyncGuard const guard(logState().outputLock);
    BinaryLogWrite(BINARY_CHANNEL, text, static_cast<unsigned int>(strlen(text)));
}

// The sinks after the system log.
void writeOtherSinks(int level, char const* text, LogSink* extraSink, SavedErrno const& callersErrno)
    UTL_EXCLUDES(logState().tableLock, logState().outputLock) {
    if (extraSink != nullptr) {
        extraSink->write(text);
    }
    writeStandardOutput(text, callersErrno);
    writeBinary(level, text);
}

// Writes the message after the first `begin` bytes of a zeroed line. A line that would be longer than
// `lengthMax` ends there in the cut mark; one whose message could not be formatted ends in it after what
// could be.
[[gnu::format(printf, 4, 0)]] void appendMessage(char (&line)[LINE_SIZE], size_t begin, size_t lengthMax,
                                                 char const* format, va_list arguments) {
    int const length = vsnprintf(line + begin, lengthMax + 1 - begin, format, arguments);
    if (length >= 0 && static_cast<size_t>(length) <= lengthMax - begin) {
        return;
    }
    size_t const latestMark = lengthMax + 1 - sizeof(CUT_MARK);
    size_t const end = strnlen(line, lengthMax);
    memcpy(line + (end < latestMark ? end : latestMark), CUT_MARK, sizeof(CUT_MARK));
}

char* append(char* out, char const* text, size_t length) {
    memcpy(out, text, length);
    return out + length;
}

// Writes stamp, blank, name and prefix; returns the length.
size_t beginLine(char (&line)[LINE_SIZE], LogStamp const& stamp, char const* name, int level) {
    static_assert(LogStamp::LENGTH_MAX + 1 + LOG_NAME_LENGTH_MAX + PREFIX_LENGTH < LOG_LINE_LENGTH_MAX);
    char* out = append(line, stamp.text(), strlen(stamp.text()));
    *out++ = ' ';
    out = append(out, name, strlen(name));
    out = append(out, PREFIXES[level], PREFIX_LENGTH);
    return static_cast<size_t>(out - line);
}

// Not inline, so that lines that are filtered out do not pay for the buffer.
[[gnu::noinline, gnu::format(printf, 4, 0)]] void emitLine(char const* name, int level, LogSink* extraSink,
                                                           char const* format, va_list arguments) {
    SavedErrno const callersErrno;
    char line[LINE_SIZE] = {};
    size_t const begin = beginLine(line, LogStamp(), name, level);
    callersErrno.restore();
    appendMessage(line, begin, LOG_LINE_LENGTH_MAX, format, arguments);
    writeSystemLog(level, line + begin - strlen(name) - PREFIX_LENGTH, callersErrno);
    append(line + strlen(line), LINE_END, sizeof(LINE_END));
    writeOtherSinks(level, line, extraSink, callersErrno);
}

[[gnu::noinline, gnu::format(printf, 3, 0)]] void emitText(int level, LogSink* extraSink, char const* format,
                                                           va_list arguments) {
    SavedErrno const callersErrno;
    char text[LINE_SIZE] = {};
    appendMessage(text, 0, LOG_RAW_LENGTH_MAX, format, arguments);
    writeSystemLog(level, text, callersErrno);
    writeOtherSinks(level, text, extraSink, callersErrno);
}

}  // namespace

void writeLog(int type, int level, LogSink* extraSink, char const* format, va_list arguments) {
    char name[NAME_SIZE];
    int const clamped = clampLevel(level);
    if (passesFilter(type, clamped, name) && format != nullptr) {
        emitLine(name, clamped, extraSink, format, arguments);
    }
}

void writeRawLog(int type, int level, LogSink* extraSink, char const* format, va_list arguments) {
    char name[NAME_SIZE];
    int const clamped = clampLevel(level);
    if (passesFilter(type, clamped, name) && format != nullptr) {
        emitText(clamped, extraSink, format, arguments);
    }
}

}  // namespace utl

void applog(int type, int level, char const* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    utl::writeLog(type, level, nullptr, format, arguments);
    va_end(arguments);
}

void rawlog(int type, int level, char const* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    utl::writeRawLog(type, level, nullptr, format, arguments);
    va_end(arguments);
}

int registerLogType(int type, char const* name, int filterLevel) {
    utl::LogTypeData data;
    if (!utl::LogTypeData::copyName(data.name, name)) {
        return 0;
    }
    data.filterLevel = utl::clampLevel(filterLevel);
    utl::LogState& state = utl::logState();
    utl::SyncGuard const guard(state.tableLock);
    return state.types.insert(type, data) ? 1 : 0;
}

void setAllFilterLevel(int level) {
    utl::LogState& state = utl::logState();
    utl::SyncGuard const guard(state.tableLock);
    state.types.setAllFilterLevel(utl::clampLevel(level));
}

void setFilterLevel(int type, int level) {
    utl::LogState& state = utl::logState();
    utl::SyncGuard const guard(state.tableLock);
    utl::LogTypeData* const entry = state.types.find(type);
    if (entry != nullptr) {
        entry->filterLevel = utl::clampLevel(level);
    }
}

int getFilterLevel(int type) {
    utl::LogState& state = utl::logState();
    utl::SyncGuard const guard(state.tableLock);
    utl::LogTypeData const* const entry = state.types.find(type);
    return entry != nullptr ? entry->filterLevel : utl::LOG_LEVEL_UNREGISTERED;
}

int setLogTag(char const* tag) {
    utl::LogState& state = utl::logState();
    utl::SyncGuard const guard(state.outputLock);
    return utl::LogTypeData::copyName(state.tag, tag) ? 1 : 0;
}

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
constexpr unsigned int NAME_SIZE = LOG_NAME_LENGTH_MAX + 1;
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

// Asked without a lock whether a line is filtered out; everything else is under `tableLock`.
UTL_CONSTINIT LogTypeTable gTypes;

struct LogState {
    LogState() { gTypes.insertBuiltIn(); }

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
// the type again while this line is composed.
bool copyNameIfPasses(int type, int level, char (&name)[NAME_SIZE]) {
    SyncGuard const guard(logState().tableLock);
    if (gTypes.drops(type, level)) {
        return false;
    }
    memcpy(name, gTypes.lineName(type), NAME_SIZE);
    return true;
}

// Copies a whole name. False, with `dst` untouched, if `src` is null or does not fit.
bool copyName(char (&dst)[NAME_SIZE], char const* src) {
    size_t const length = src != nullptr ? strnlen(src, NAME_SIZE) : NAME_SIZE;
    if (length == NAME_SIZE) {
        return false;
    }
    memcpy(dst, src, length + 1);
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

[[gnu::format(printf, 4, 0)]] void emitLine(char const* name, int level, LogSink* extraSink,
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

[[gnu::format(printf, 4, 0)]] void emitText(char const* /*name*/, int level, LogSink* extraSink,
                                            char const* format, va_list arguments) {
    SavedErrno const callersErrno;
    char text[LINE_SIZE] = {};
    appendMessage(text, 0, LOG_RAW_LENGTH_MAX, format, arguments);
    writeSystemLog(level, text, callersErrno);
    writeOtherSinks(level, text, extraSink, callersErrno);
}

using Emit = void(char const*, int, LogSink*, char const*, va_list);

template <Emit EMIT>
void emitIfPasses(int type, int level, LogSink* extraSink, char const* format, va_list arguments) {
    int const clamped = clampLevel(level);
    char name[NAME_SIZE];
    if (!gTypes.isFilteredOut(type, clamped) && copyNameIfPasses(type, clamped, name) && format != nullptr) {
        EMIT(name, clamped, extraSink, format, arguments);
    }
}

// Most lines get no further.
inline bool isFilteredOutAtOnce(int type, int level) {
    return __builtin_expect(static_cast<long>(gTypes.isFilteredOutAtOnce(type, clampLevel(level))), 1) != 0;
}

}  // namespace

// Not inline, so that lines that are filtered out do not pay for the buffers.
[[gnu::noinline]] void writeLog(int type, int level, LogSink* extraSink, char const* format,
                                va_list arguments) {
    emitIfPasses<emitLine>(type, level, extraSink, format, arguments);
}

[[gnu::noinline]] void writeRawLog(int type, int level, LogSink* extraSink, char const* format,
                                   va_list arguments) {
    emitIfPasses<emitText>(type, level, extraSink, format, arguments);
}

}  // namespace utl

void applog(int type, int level, char const* format, ...) {
    if (utl::isFilteredOutAtOnce(type, level)) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    utl::writeLog(type, level, nullptr, format, arguments);
    va_end(arguments);
}

void rawlog(int type, int level, char const* format, ...) {
    if (utl::isFilteredOutAtOnce(type, level)) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    utl::writeRawLog(type, level, nullptr, format, arguments);
    va_end(arguments);
}

int registerLogType(int type, char const* name, int filterLevel) {
    char copy[utl::NAME_SIZE];
    if (!utl::copyName(copy, name)) {
        return 0;
    }
    utl::SyncGuard const guard(utl::logState().tableLock);
    return utl::gTypes.insert(type, copy, utl::clampLevel(filterLevel)) ? 1 : 0;
}

void setAllFilterLevel(int level) {
    utl::SyncGuard const guard(utl::logState().tableLock);
    utl::gTypes.setAllFilterLevel(utl::clampLevel(level));
}

void setFilterLevel(int type, int level) {
    utl::SyncGuard const guard(utl::logState().tableLock);
    utl::gTypes.setFilterLevel(type, utl::clampLevel(level));
}

int getFilterLevel(int type) {
    utl::SyncGuard const guard(utl::logState().tableLock);
    return utl::gTypes.filterLevel(type);
}

int setLogTag(char const* tag) {
    utl::LogState& state = utl::logState();
    utl::SyncGuard const guard(state.outputLock);
    return utl::copyName(state.tag, tag) ? 1 : 0;
}

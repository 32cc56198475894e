#include "TestLog.h"

#include <stdio.h>
#include <syslog.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <mutex>
#include <new>

#include "TestHooks.h"
#include "UtlPlatform.h"

namespace utltest {

namespace {

struct Record {
    std::mutex mutex;
    std::condition_variable changed;
    bool active = false;
    std::vector<std::string> console;
    std::vector<LogCapture::SystemLine> systemLog;
    std::vector<std::string> binary;
    std::string sinkOrder;

    void clear() {
        console.clear();
        systemLog.clear();
        binary.clear();
        sinkOrder.clear();
    }
};

std::atomic<void (*)(char)> gVisit{nullptr};
std::atomic<bool> gIsSystemLogOpen{false};

void visitSink(char sink) {
    auto const visit = gVisit.load();
    if (visit != nullptr) {
        int const error = errno;
        visit(sink);
        errno = error;
    }
}

Record& record() {
    // Never destroyed: the library may log until the process ends. Without `new`, which a test may count.
    alignas(Record) static unsigned char place[sizeof(Record)];
    static auto* const theRecord = new (place) Record;
    return *theRecord;
}

std::string formatted(char const* format, va_list arguments) {
    char text[2048];
    vsnprintf(text, sizeof(text), format, arguments);
    return text;
}

// "Nov 20 23:25:41.123 ": three letters, a day of two places, the time with three decimals and a blank.
constexpr size_t STAMP_LENGTH = 20;

std::string withoutStampAndLineEnd(std::string const& line) {
    std::string text = line.size() >= STAMP_LENGTH ? line.substr(STAMP_LENGTH) : line;
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    return text;
}

}  // namespace

LogCapture::LogCapture() {
    Record& r = record();
    std::lock_guard<std::mutex> const guard(r.mutex);
    r.clear();
    r.active = true;
}

LogCapture::~LogCapture() {
    gVisit = nullptr;
    Record& r = record();
    std::lock_guard<std::mutex> const guard(r.mutex);
    r.active = false;
}

std::vector<std::string> LogCapture::console() const {
    std::lock_guard<std::mutex> const guard(record().mutex);
    return record().console;
}

std::vector<LogCapture::SystemLine> LogCapture::systemLog() const {
    std::lock_guard<std::mutex> const guard(record().mutex);
    return record().systemLog;
}

std::vector<std::string> LogCapture::binary() const {
    std::lock_guard<std::mutex> const guard(record().mutex);
    return record().binary;
}

std::string LogCapture::sinkOrder() const {
    std::lock_guard<std::mutex> const guard(record().mutex);
    return record().sinkOrder;
}

std::vector<std::string> LogCapture::lines() const {
    std::vector<std::string> result = console();
    for (std::string& line : result) {
        line = withoutStampAndLineEnd(line);
    }
    return result;
}

unsigned int LogCapture::count(std::string const& line) const {
    unsigned int found = 0;
    for (std::string const& one : lines()) {
        found += one == line ? 1U : 0U;
    }
    return found;
}

bool LogCapture::waitFor(std::string const& text) const {
    Record& r = record();
    std::unique_lock<std::mutex> lock(r.mutex);
    return r.changed.wait_for(lock, std::chrono::seconds(30), [&] {
        for (std::string const& line : r.console) {
            if (line.find(text) != std::string::npos) {
                return true;
            }
        }
        return false;
    });
}

void LogCapture::clear() {
    Record& r = record();
    std::lock_guard<std::mutex> const guard(r.mutex);
    r.clear();
}

void LogCapture::atEachSink(void (*visit)(char)) {
    gVisit = visit;
}

void captureBinaryLog(int channel, void const* text, unsigned int bytes) {
    visitSink('b');
    Record& r = record();
    std::lock_guard<std::mutex> const guard(r.mutex);
    if (r.active) {
        std::string line(static_cast<char const*>(text), bytes);
        r.sinkOrder += 'b';
        r.binary.push_back(channel == 3 ? line : "channel " + std::to_string(channel) + ": " + line);
    }
}

void openSystemLog(char const* name) {
    openlog(name, LOG_PERROR, LOG_USER);
    gIsSystemLogOpen = true;
}

}  // namespace utltest

using utltest::record;

namespace {

int capturePrintf(char const* format, va_list arguments) {
    utltest::visitSink('c');
    auto& r = record();
    std::unique_lock<std::mutex> lock(r.mutex);
    if (!r.active) {
        lock.unlock();
        return vprintf(format, arguments);
    }
    r.console.push_back(utltest::formatted(format, arguments));
    r.sinkOrder += 'c';
    r.changed.notify_all();
    return static_cast<int>(r.console.back().size());
}

// The system's log is written by no test that did not open it.
void captureSyslog(int priority, char const* format, va_list arguments) {
    utltest::visitSink('s');
    auto& r = record();
    {
        std::lock_guard<std::mutex> const guard(r.mutex);
        if (r.active) {
            r.systemLog.push_back({priority, utltest::formatted(format, arguments)});
            r.sinkOrder += 's';
        } else if (utltest::gIsSystemLogOpen) {
            vsyslog(priority, format, arguments);
        }
    }
    errno = EPIPE;  // as a real sink may
}

}  // namespace

// What the library writes comes here, under the plain names or those with checks.

extern "C" int __wrap_printf(char const* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    int const result = capturePrintf(format, arguments);
    va_end(arguments);
    return result;
}

extern "C" int __wrap___printf_chk(int, char const* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    int const result = capturePrintf(format, arguments);
    va_end(arguments);
    return result;
}

extern "C" void __wrap_syslog(int priority, char const* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    captureSyslog(priority, format, arguments);
    va_end(arguments);
}

extern "C" void __wrap___syslog_chk(int priority, int, char const* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    captureSyslog(priority, format, arguments);
    va_end(arguments);
}

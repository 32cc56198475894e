#pragma once

#include <string>
#include <vector>

namespace utltest {

/// Records what the library passes to each sink of its log while the object lives, in the order of the calls,
/// as the sink would show it (the text interpreted as a format once more, as `printf` and `syslog` do).
/// Nothing reaches the real sinks. Any thread may log meanwhile; one capture at a time.
class [[nodiscard]] LogCapture {
  public:
    struct SystemLine {
        int priority;
        std::string text;
    };

    LogCapture();
    ~LogCapture();
    LogCapture(LogCapture const&) = delete;
    LogCapture& operator=(LogCapture const&) = delete;

    std::vector<std::string> console() const;
    std::vector<SystemLine> systemLog() const;
    std::vector<std::string> binary() const;

    /// Which sink each text went to, in the order of all calls: 's' system log, 'c' console, 'b' binary.
    std::string sinkOrder() const;

    /// The console lines without their time stamp ("Nov 20 23:25:41.123 ") and line end: name, prefix,
    /// message.
    std::vector<std::string> lines() const;

    /// How many of `lines()` are exactly `line`.
    unsigned int count(std::string const& line) const;

    /// Waits until a console line contains `text`; false after half a minute.
    bool waitFor(std::string const& text) const;

    void clear();

    /// Calls `visit` with 's', 'c' or 'b' inside each sink, before the record and without the capture's own
    /// lock. Null and the end of the capture remove it.
    void atEachSink(void (*visit)(char sink));
};

/// While no capture lives, texts for `syslog` go to the system's own log, under `name`, and also to the
/// standard error. For a process that ends soon: this cannot be undone.
void openSystemLog(char const* name);

/// What reaches the third sink.
void captureBinaryLog(int channel, void const* text, unsigned int bytes);

}  // namespace utltest

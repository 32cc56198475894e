#pragma once

#include <cstdarg>

namespace utl {

/// An additional sink of one call; *one owner thread*, the one that logs. The log calls it between the system
/// log and standard output, with no lock held, for every line that passes the filter, at every level.
class LogSink {
  public:
    /// `text` is that of standard output before it is formatted once more. Valid during the call.
    virtual void write(char const* text) = 0;

  protected:
    ~LogSink() = default;
};

/// The body of `applog`: with a null `extraSink` the line goes to the common sinks only.
void writeLog(int type, int level, LogSink* extraSink, char const* format, va_list arguments)
    __attribute__((format(printf, 4, 0)));

/// The body of `rawlog`, likewise.
void writeRawLog(int type, int level, LogSink* extraSink, char const* format, va_list arguments)
    __attribute__((format(printf, 4, 0)));

}  // namespace utl

#include <cstdarg>

#include "UtlFile.h"
#include "UtlLog.h"
#include "internal/log/UtlLogSink.h"

namespace utl {

namespace {

/// A file as a sink; *one owner thread*, that of the file.
class FileSink final : public LogSink {
  public:
    explicit FileSink(File* file) : mpFile(file) {}

    /// As a sink, null if there is no file.
    LogSink* get() { return mpFile != nullptr ? this : nullptr; }

    void write(char const* text) override { mpFile->writeText(text, File::TEXT_BYTES_MAX, 0); }

  private:
    File* const mpFile;
};

}  // namespace

}  // namespace utl

void applog(int type, int level, utl::File* file, char const* format, ...) {
    utl::FileSink sink(file);
    va_list arguments;
    va_start(arguments, format);
    utl::writeLog(type, level, sink.get(), format, arguments);
    va_end(arguments);
}

void rawlog(int type, int level, utl::File* file, char const* format, ...) {
    utl::FileSink sink(file);
    va_list arguments;
    va_start(arguments, format);
    utl::writeRawLog(type, level, sink.get(), format, arguments);
    va_end(arguments);
}

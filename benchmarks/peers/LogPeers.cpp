// Lines that are filtered out, and lines that are written to a file in memory.

#include <fcntl.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>

#include "BenchFiles.h"
#include "Peers.h"
#include "UtlLog.h"

namespace utlpeers {
namespace {

constexpr int LOG_TYPE = 1;

utlbench::BenchFolder const& folder() {
    static utlbench::BenchFolder const theFolder;
    return theFolder;
}

// The end of a file, which is then made empty.
std::string takeEnd(std::string const& path) {
    int const file = open(path.c_str(), O_RDWR | O_CLOEXEC);
    off_t const size = lseek(file, 0, SEEK_END);
    char end[64] = {};
    ssize_t const count = pread(file, end, sizeof(end) - 1, size > 60 ? size - 60 : 0);
    prove(file >= 0 && count > 0 && ftruncate(file, 0) == 0, "no log file");
    close(file);
    return end;
}

void proveLine(std::string const& path, int number) {
    prove(takeEnd(path).find("value " + std::to_string(number) + " of name") != std::string::npos,
          "a line that is not in the file");
}

std::shared_ptr<spdlog::logger> spdlogTo(std::string const& path) {
    auto const logger = std::make_shared<spdlog::logger>(
        "name", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path, true));
    logger->set_pattern("%b %e %H:%M:%S.%e <UTIL> %l: %v\r");
    return logger;
}

// --- filtered

void proveEmpty(std::string const& path) {
    struct stat status = {};
    prove(stat(path.c_str(), &status) != 0 || status.st_size == 0, "a line that is not filtered out");
}

Side filteredByUs() {
    return {OURS, [path = folder().make("none") + "/log"](std::size_t times) {
                utlbench::OutputTo const output(path);
                for (std::size_t i = 0; i < times; ++i) {
                    applog(LOG_TYPE, utl::LOG_LEVEL_DEBUG, "value %d of %s", 5, "name");
                }
                std::fflush(stdout);
                proveEmpty(path);
            }};
}

// A function with the arguments of `applog` that compares one level.
std::atomic<int> gLevel{utl::LOG_LEVEL_DETAIL};
[[gnu::noipa, gnu::format(printf, 3, 4)]] void compareLevel(int type, int level, char const* format, ...) {
    if (level <= gLevel.load(std::memory_order_acquire)) {
        std::va_list arguments;
        va_start(arguments, format);
        std::vprintf(format, arguments);
        va_end(arguments);
    }
    utlbench::keep(type);
}

Side filteredBySpdlog() {
    std::string const path = folder().make("none-spdlog") + "/log";
    return {"spdlog", [path, logger = spdlogTo(path)](std::size_t times) {
                for (std::size_t i = 0; i < times; ++i) {
                    logger->debug("value {} of {}", 5, "name");
                }
                logger->flush();
                proveEmpty(path);
            }};
}

void registerType() {
    prove(registerLogType(LOG_TYPE, "<TEST> ", utl::LOG_LEVEL_DETAIL) == 1, "no type");
}

std::vector<Side> filteredSides(unsigned int) {
    registerType();
    return {filteredByUs(),
            each(BARE, [] { compareLevel(LOG_TYPE, utl::LOG_LEVEL_DEBUG, "value %d of %s", 5, "name"); }),
            filteredBySpdlog()};
}

// --- written

void writeByHand(int number) {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    tm local;
    localtime_r(&now.tv_sec, &local);
    char stamp[64];
    std::strftime(stamp, sizeof(stamp), "%b %e %H:%M:%S", &local);
    std::printf("%s.%03ld <TEST> DTL: value %d of %s\r\n", stamp, now.tv_nsec / 1000000, number, "name");
}

// Lines to standard output, all of which are there at the end of the turn.
template <typename WRITE>
Side toOutput(char const* name, WRITE write) {
    return {name, [path = folder().make(name) + "/log", write](std::size_t times) {
                {
                    utlbench::OutputTo const output(path);
                    for (std::size_t i = 0; i < times; ++i) {
                        write(static_cast<int>(i));
                    }
                }
                proveLine(path, static_cast<int>(times) - 1);
            }};
}

Side writtenBySpdlog() {
    std::string const path = folder().make("spdlog") + "/log";
    return {"spdlog", [path, logger = spdlogTo(path)](std::size_t times) {
                for (std::size_t i = 0; i < times; ++i) {
                    logger->info("value {} of {}", static_cast<int>(i), "name");
                }
                logger->flush();
                proveLine(path, static_cast<int>(times) - 1);
            }};
}

std::vector<Side> writtenSides(unsigned int) {
    registerType();
    return {toOutput(OURS,
                     [](int number) {
                         applog(LOG_TYPE, utl::LOG_LEVEL_DETAIL, "value %d of %s", number, "name");
                     }),
            toOutput("printf of the same", writeByHand), writtenBySpdlog()};
}

// --- the themes

Theme theme(char const* id, char const* title, std::vector<Side> (*sides)(unsigned int)) {
    return {id, title, "line", "", utlbench::THREAD_TIME, ONE_PROCESSOR, {1}, {1}, sides};
}

ThemeDeclaration const gFiltered(theme("log-filtered", "a log line that is filtered out", filteredSides));
ThemeDeclaration const gWritten(theme("log-written", "a log line that is written", writtenSides));

}  // namespace
}  // namespace utlpeers

#include "UtlLog.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "BenchFiles.h"
#include "BenchRatio.h"

namespace {

// The table is full: what a line costs must not depend on how many types there are.
struct FullTable {
    FullTable() {
        for (int type = 1; registerLogType(type, "type ", utl::LOG_LEVEL_DETAIL) == 1; ++type) {
        }
    }
} const gFullTable;

// A function with the arguments of `applog` that compares one level and drops the line.
std::atomic<int> gLevel{utl::LOG_LEVEL_DETAIL};
[[gnu::noipa, gnu::format(printf, 3, 4)]] void dropByHand(int type, int level, char const* format, ...) {
    if (level <= gLevel.load(std::memory_order_acquire)) {
        std::va_list arguments;
        va_start(arguments, format);
        std::vprintf(format, arguments);
        va_end(arguments);
    }
    utlbench::keep(type);
}

UTL_RATIO_CPU(
    "a line that is filtered out, to a call that compares one atomic level",
    [] { applog(utl::LOG_TYPE_LIBRARY, utl::LOG_LEVEL_DEBUG, "value %d of %s", 5, "name"); },
    [] { dropByHand(utl::LOG_TYPE_LIBRARY, utl::LOG_LEVEL_DEBUG, "value %d of %s", 5, "name"); }, 2.5);

int gNumber = 0;

void logByLibrary() {
    applog(utl::LOG_TYPE_LIBRARY, utl::LOG_LEVEL_DETAIL, "value %d of %s", ++gNumber, "name");
}

// The same line written with the C library alone.
void logByHand() {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    tm local;
    localtime_r(&now.tv_sec, &local);
    char stamp[64];
    std::strftime(stamp, sizeof(stamp), "%b %e %H:%M:%S", &local);
    std::printf("%s.%03ld <UTIL> DTL: value %d of %s\r\n", stamp, now.tv_nsec / 1000000, ++gNumber, "name");
}

template <void (*WORK)()>
void turn(std::size_t calls) {
    utlbench::OutputTo const nowhere("/dev/null");
    for (std::size_t i = 0; i < calls; ++i) {
        WORK();
    }
}

struct LineDeclaration {
    LineDeclaration() {
        std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);  // as for a file, whatever it is outside of the turns
        utlbench::ratioFigures().push_back(
            {"a line to standard output, to clock_gettime, localtime_r, strftime and printf of the same line",
             turn<logByLibrary>, turn<logByHand>, 1.3, utlbench::THREAD_TIME});
    }
} const gLineDeclaration;

}  // namespace

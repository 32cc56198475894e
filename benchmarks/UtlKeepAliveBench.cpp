#include <time.h>

#include "BenchRatio.h"
#include "UtlLog.h"
#include "UtlSyncObject.h"
#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"

// The library gives a sign of life around every call that may block. Finding the manager costs one lock, and
// the watchdog's table another one. The record of a watched thread is also given the time.

namespace {

using utl::ThreadManager;

constexpr unsigned int LONG_TIME = 3600000;  // milliseconds; nobody times out

// As many other threads as a large application has.
bool fillTheTable() {
    setFilterLevel(utl::LOG_TYPE_LIBRARY, utl::LOG_LEVEL_NONE);
    ThreadManager& manager = *ThreadManager::get();
    bool filled = true;
    for (int id = 1; id < 64; ++id) {
        filled = manager.entryWatchdog(LONG_TIME, nullptr, id) && manager.startWatchdog(id) && filled;
    }
    return filled;
}

bool watchCaller() {
    return ThreadManager::get()->entryWatchdog(LONG_TIME, nullptr) && ThreadManager::get()->startWatchdog();
}

void keepAlive() {
    ThreadManager::get()->keepAliveWatchdog(utl::StatementInfo("benchmarks/File", "function", 1, 1));
}

utl::SyncObject gFirst;
utl::SyncObject gSecond;

void lockTwiceAndReadTheClock() {
    { utl::SyncGuard const guard(gFirst); }
    utl::SyncGuard const guard(gSecond);
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    utlbench::keep(now.tv_nsec);
}

// The figures are taken in this order, one after the other.

UTL_RATIO_CPU(
    "sign of life while nobody is registered, to two locks and a clock read", [] { keepAlive(); },
    lockTwiceAndReadTheClock, 2.0);

UTL_RATIO_CPU(
    "sign of life of an unwatched thread, to two locks and a clock read",
    [] {
        static bool const filled = fillTheTable();
        utlbench::keep(filled);
        keepAlive();
    },
    lockTwiceAndReadTheClock, 2.0);

UTL_RATIO_CPU(
    "sign of life of a watched thread, to two locks and a clock read",
    [] {
        static bool const watched = watchCaller();
        utlbench::keep(watched);
        keepAlive();
    },
    lockTwiceAndReadTheClock, 2.0);

}  // namespace

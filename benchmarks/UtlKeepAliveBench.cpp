#include <pthread.h>
#include <time.h>

#include <memory>

#include "BenchRatio.h"
#include "BenchThreads.h"
#include "UtlLog.h"
#include "UtlSyncObject.h"
#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"

// The library gives a sign of life around every call that may block. That of a watched thread needs the time.

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

pthread_mutex_t gLock = PTHREAD_MUTEX_INITIALIZER;

void lockAndReadTheClock() {
    pthread_mutex_lock(&gLock);
    pthread_mutex_unlock(&gLock);
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    utlbench::keep(now.tv_nsec);
}

// The figures are taken in this order, one after the other.

UTL_RATIO_CPU(
    "sign of life while nobody is registered, against a plain lock and a clock read", [] { keepAlive(); },
    lockAndReadTheClock, 0.25);

UTL_RATIO_CPU(
    "sign of life of a thread that is not registered, against a plain lock and a clock read",
    [] {
        static bool const filled = fillTheTable();
        utlbench::keep(filled);
        keepAlive();
    },
    lockAndReadTheClock, 0.25);

UTL_RATIO_CPU(
    "sign of life of a watched thread, against a plain lock and a clock read",
    [] {
        static bool const watched = watchCaller();
        utlbench::keep(watched);
        keepAlive();
    },
    lockAndReadTheClock, 1.25);

// What a watched message thread does for each message.
UTL_RATIO_CPU(
    "stop and start of the watching among 64 rows, against two plain locks and a clock read",
    [] {
        ThreadManager::get()->stopWatchdog();
        ThreadManager::get()->startWatchdog();
    },
    [] {
        pthread_mutex_lock(&gLock);
        pthread_mutex_unlock(&gLock);
        lockAndReadTheClock();
    },
    2.0);

// Registers the calling thread as long as it stands.
class Watched {
  public:
    Watched() { utlbench::keep(watchCaller()); }
    ~Watched() { ThreadManager::get()->unregisterWatchdog(); }
    Watched(Watched const&) = delete;
    Watched& operator=(Watched const&) = delete;
};

auto watchedWork() {
    return [watched = std::make_shared<Watched>()] { keepAlive(); };
}

#define UTL_WATCHED_THREADS(COUNT)                                                                \
    utlbench::ThreadsDeclaration const gWatched##COUNT(                                           \
        "sign of life, " #COUNT " watched threads at a time, against one after the other", COUNT, \
        [] { return watchedWork(); }, utlbench::ONE_AFTER_ANOTHER, [] { return watchedWork(); }, 1.3)

UTL_WATCHED_THREADS(2);
UTL_WATCHED_THREADS(4);
UTL_WATCHED_THREADS(8);

}  // namespace

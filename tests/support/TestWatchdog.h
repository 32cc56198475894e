#pragma once

// What the tests of the watchdog share: its lines, a clock that the test sets, listeners and fixtures.

#include <gtest/gtest.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestTask.h"
#include "TestThreads.h"
#include "UtlThreadWatchdog.h"

namespace utltest {

/// The head of the watchdog's table in the log.
inline constexpr char const* TITLE = "ThreadWatchdog:: Watchdog info of threads in this process.";
inline constexpr char const* COLUMNS =
    "ID        , Name                            , AliveTime , WatchStatus , AliveStatus , TimeoutCount , "
    "LastAliveInfo(File, Function:Line:Sub) , ";

inline std::atomic<unsigned int> gTick{0};

/// A clock that stands at `gTick`.
inline int standingClock(clockid_t, timespec* out) {
    out->tv_sec = static_cast<time_t>(gTick / 1000);
    out->tv_nsec = static_cast<long>(gTick % 1000) * 1000000;
    return 0;
}

inline std::string timeoutLine(int id, std::string const& name) {
    return "<UTIL> ERR: !!!!!!!! ThreadWatchdog Timeout ID:" + std::to_string(id) + " Name:" + name +
           " !!!!!!!!";
}

/// Keeps what it is told, and runs `then` after each call.
class NotingListener : public utl::WatchdogTimerListener {
  public:
    std::function<void(int id, utl::WatchdogInfos const& infos)> then;

    void onTime(int id, utl::WatchdogInfos const& infos) override {
        std::function<void(int, utl::WatchdogInfos const&)> next;
        {
            std::lock_guard<std::mutex> const guard(mMutex);
            next = then;
            mIds.push_back(id);
            mThreadId = kernelId();
            mSnapshot.clear();
            for (unsigned int i = 0; i < infos.size(); ++i) {
                mSnapshot.push_back(infos.getAt(i)->mValue);
            }
        }
        if (next) {
            next(id, infos);
        }
    }

    void forgetThen() {
        std::lock_guard<std::mutex> const guard(mMutex);
        then = nullptr;
    }

    std::vector<int> ids() const {
        std::lock_guard<std::mutex> const guard(mMutex);
        return mIds;
    }
    std::vector<utl::WatchdogInfo> snapshot() const {
        std::lock_guard<std::mutex> const guard(mMutex);
        return mSnapshot;
    }
    int threadId() const {
        std::lock_guard<std::mutex> const guard(mMutex);
        return mThreadId;
    }

  private:
    mutable std::mutex mMutex;
    std::vector<int> mIds;
    std::vector<utl::WatchdogInfo> mSnapshot;
    int mThreadId = 0;
};

/// A watchdog without a thread, whose table the test fills.
class ThreadWatchdogTable : public ::testing::Test {
  protected:
    static constexpr unsigned int ENTRY_MAX = 3;

    ThreadWatchdogTable() {
        ThreadWatchdogAccess::setInitialized(mWatchdog, true);
        hooks::clockGetTime.replace(standingClock);
        gTick = 1000;
    }

    /// Registers and watches the calling thread; its record.
    utl::WatchdogInfo& watchCaller() {
        EXPECT_TRUE(mWatchdog.entry(kernelId(), 500, nullptr, "caller"));
        EXPECT_TRUE(mWatchdog.start(kernelId()));
        return *mWatchdog.findWatchdogInfo(kernelId());
    }

    HookScope const mHooks;
    LogCapture mLog;
    utl::ThreadWatchdog mWatchdog{ENTRY_MAX};
};

struct OpenedWatchdog : utl::ThreadWatchdog {
    using ThreadWatchdog::executeWatchdogTimeout;
    using ThreadWatchdog::executeWatchThreads;
    using ThreadWatchdog::ThreadWatchdog;
};

/// A watchdog without a thread, whose passes the test calls.
class WatchdogPass : public ::testing::Test {
  protected:
    WatchdogPass() {
        ThreadWatchdogAccess::setInitialized(mWatchdog, true);
        hooks::clockGetTime.replace(standingClock);
        gTick = 1000;
    }

    /// Registers and watches thread `id`, whose last sign of life is at `gTick`.
    utl::WatchdogInfo& watch(int id, unsigned int aliveTime = 500) {
        EXPECT_TRUE(mWatchdog.entry(id, aliveTime, &mListener, "thread"));
        EXPECT_TRUE(mWatchdog.start(id));
        mLog.clear();
        return *mWatchdog.findWatchdogInfo(id);
    }

    void lookAt(unsigned int tick) {
        gTick = tick;
        mWatchdog.executeWatchThreads();
    }

    HookScope const mHooks;
    LogCapture mLog;
    NotingListener mListener;
    OpenedWatchdog mWatchdog{8};
};

/// A listener whose time-outs a test can wait for; it runs `work` in each.
class AwaitedListener : public NotingListener {
  public:
    AwaitedListener() {
        then = [this](int id, utl::WatchdogInfos const& infos) {
            if (work) {
                work(id, infos);
            }
            std::lock_guard<std::mutex> const guard(mMutex);
            ++mCount;
            mChanged.notify_all();
        };
    }
    std::function<void(int, utl::WatchdogInfos const&)> work;
    /// Waits until there were `count` time-outs; false after half a minute.
    bool waitFor(int count) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, std::chrono::seconds(30), [&] { return mCount >= count; });
    }

  private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    int mCount = 0;
};

/// The process's watchdog with its own thread and clock.
class WatchdogOnTheRealClock : public WithManager {
  protected:
    static bool watchNobody(int id, AwaitedListener& listener) {
        return manager().entryWatchdog(1, &listener, id) && manager().startWatchdog(id);
    }
};

inline std::atomic<int> gWatchdogId;
inline std::atomic<unsigned int> gPasses;

/// Stands at `gTick` and counts the looks of the watchdog's thread, one for each pass.
inline int passCountingClock(clockid_t clock, timespec* out) {
    if (kernelId() == gWatchdogId) {
        ++gPasses;
    }
    return standingClock(clock, out);
}

/// The process's watchdog looks at its table every millisecond; its clock stands at `gTick`.
class WatchdogThread : public WithManager {
  protected:
    WatchdogThread() {
        hooks::clockGetTime.replace(passCountingClock);
        gTick = 1000;
        gWatchdogId = watchdogId();
        EXPECT_TRUE(manager().setWatchdogWatchInterval(1));
    }
    ~WatchdogThread() override {
        mListener.forgetThen();
        utl::ThreadManager::destroy();
    }

    static utl::ThreadWatchdog& watchdog() { return ThreadManagerAccess::watchdog(); }

    /// Of the next three looks at the clock the second begins a pass that was not there yet, and the third
    /// comes after it.
    static void waitForPass() {
        unsigned int const before = gPasses;
        while (gPasses - before < 3) {
            std::this_thread::yield();
        }
    }

    void waitForTimeOuts(size_t count) const {
        while (mListener.ids().size() < count) {
            std::this_thread::yield();
        }
    }

    void watch(int id, unsigned int aliveTime = 500, char const* name = "thread") {
        EXPECT_TRUE(watchdog().entry(id, aliveTime, &mListener, name));
        EXPECT_TRUE(watchdog().start(id));
        mLog.clear();
    }

    HookScope const mHooks;
    LogCapture mLog;
    NotingListener mListener;
};

/// Beginnings and ends of a watchdog, with what they ask the system for.
class WatchdogLife : public WithManager {
  protected:
    ~WatchdogLife() override { utl::ThreadManager::destroy(); }

    /// Timers of the library that are there.
    static unsigned int liveTimers() { return hooks::timerCreate.calls() - hooks::timerDelete.calls(); }

    HookScope const mHooks;
    LogCapture mLog;
};

}  // namespace utltest

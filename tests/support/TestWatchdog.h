#pragma once

// What the tests of the watchdog share: its lines, a clock that the test sets, and a listener that notes.

#include <time.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

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
        {
            std::lock_guard<std::mutex> const guard(mMutex);
            mIds.push_back(id);
            mThreadId = kernelId();
            mSnapshot.clear();
            for (unsigned int i = 0; i < infos.size(); ++i) {
                mSnapshot.push_back(infos.getAt(i)->mValue);
            }
        }
        if (then) {
            then(id, infos);
        }
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

}  // namespace utltest

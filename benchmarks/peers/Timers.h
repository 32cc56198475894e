#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

#include "Peers.h"

namespace utlpeers {

constexpr unsigned int PERIOD_MS = 10;

/// Counts the expiries of a run on the thread that gets them, until there have been enough.
class Expiries {
  public:
    Expiries(unsigned int timers, std::size_t wanted) : mCounts(timers), mMissing(wanted) {}

    void expire(unsigned int timer) {
        ++mCounts[timer];
        if (mMissing != 0 && --mMissing == 0) {
            std::lock_guard<std::mutex> const lock(mMutex);
            mIsComplete = true;
            mChanged.notify_all();
        }
    }

    /// Waits until there have been enough. Timers still expire then; stop them before `proveEach`.
    void await() {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [this] { return mIsComplete; });
    }

    /// Proves that every timer expired about as often as the others.
    void proveEach() const {
        auto const ends = std::minmax_element(mCounts.begin(), mCounts.end());
        prove(*ends.first != 0 && *ends.second <= 2 * *ends.first + 2, "a timer that hardly expires");
    }

  private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mIsComplete = false;

    std::vector<std::size_t> mCounts;
    std::size_t mMissing;
};

void runQtTimers(unsigned int timers, Expiries& expiries);

}  // namespace utlpeers

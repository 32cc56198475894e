#pragma once

// The one device by which a test holds a thread.

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace utltest {

/// Closed until it is opened, for all threads. A thread that a test holds stands in `hold` meanwhile, and the
/// test can wait until it does. Every wait fails after half a minute.
class Gate {
  public:
    void open() { set(&Gate::mOpen, true); }

    /// Makes the gate as new. Nobody may stand there meanwhile.
    void close() {
        set(&Gate::mOpen, false);
        set(&Gate::mReached, false);
    }

    /// Waits until the gate is open; false if nobody opened it.
    bool wait() { return waitFor(&Gate::mOpen); }

    /// As `wait`, and `waitUntilHeld` learns of it.
    bool hold() {
        reach();
        return wait();
    }

    /// Says that a thread is here, which does not wait.
    void reach() { set(&Gate::mReached, true); }

    /// Waits until a thread stands in `hold`, or has been there; false if none came.
    bool waitUntilHeld() { return waitFor(&Gate::mReached); }

  private:
    void set(bool Gate::*flag, bool value) {
        std::lock_guard<std::mutex> const guard(mMutex);
        this->*flag = value;
        mChanged.notify_all();
    }
    bool waitFor(bool Gate::*flag) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, std::chrono::seconds(30), [this, flag] { return this->*flag; });
    }

    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mOpen = false;
    bool mReached = false;
};

}  // namespace utltest

#pragma once

#include <pthread.h>

#include <atomic>

#include "UtlLockAnnotations.h"
#include "UtlPlatform.h"
#include "UtlSmartPointer.h"

namespace utl {

/// Two-state event, the hand-over between threads; *internally locked*, because one mutex guards every field.
///
/// The state stays until somebody sets the other one. A wait does not reset it, so a late wait does not
/// block. A two-way event can be awaited in both states, a one-way event only for being on. All time-outs
/// run on the monotonic clock.
///
/// | Call                 | while off       | while on        |
/// |----------------------|-----------------|-----------------|
/// | `setOn`              | on, wakes all   | on              |
/// | `setOff`             | off             | off, wakes all  |
/// | `waitToOn`           | blocks          | returns at once |
/// | `waitToOff`, two-way | returns at once | blocks          |
/// | `waitToOff`, one-way | fails at once   | fails at once   |
class UTL_API Event {
  public:
    /// Results of a wait.
    static constexpr int WAIT_DONE = 0;
    static constexpr int WAIT_FAILED = -1;
    static constexpr int WAIT_TIMEOUT = -2;

    /// The time-out of a wait without limit.
    static constexpr unsigned int NO_LIMIT = 0;

    /// Values of `initialOn`.
    enum InitialState { INITIALLY_OFF = 0, INITIALLY_ON = 1 };

    /// Values of `twoWay`.
    enum Kind { ONE_WAY = 0, TWO_WAY = 1 };

    /// Off for an `initialOn` of 0, on for any other value; two-way for a `twoWay` of exactly 1.
    Event(int initialOn, int twoWay) noexcept;

    /// No thread may be waiting; that is not checked.
    virtual ~Event();
    Event(Event const&) = delete;
    Event& operator=(Event const&) = delete;

    /// Changes the state and wakes all threads that wait for the new one.
    void setOn() noexcept;
    void setOff() noexcept;

    /// The state at the moment of the call.
    [[nodiscard]] bool isOn() const noexcept;
    [[nodiscard]] bool isOff() const noexcept;

    /// Blocks until the event is on, at most `timeoutMs` milliseconds; 0, which is `NO_LIMIT`, waits without
    /// limit. `WAIT_DONE` if it was on, `WAIT_TIMEOUT` if the time ran out, `WAIT_FAILED` for any other
    /// failure of the bounded wait. A time-out above 0x7FFFFFFF has run out at once.
    ///
    /// The wait without limit waits a single time: a wake-up without a cause ends it with `WAIT_DONE` while
    /// the event is still off. A caller that must know asks `isOn`. The bounded wait continues for the rest
    /// of its time.
    int waitToOn(unsigned int timeoutMs) const;

    /// As `waitToOn` for the other state; `WAIT_FAILED` at once if the event is one-way.
    int waitToOff(unsigned int timeoutMs) const;

  private:
    friend class Thread;
    friend class ThreadLife;
    struct Side;
    class MutexHold;

    using Mutex UTL_CAPABILITY = pthread_mutex_t;

    // The state without the mutex, as `isOn` finds it or is about to. The thread that sets it may still use
    // the event after that: no reason to destroy it.
    bool peekOn() const UTL_NO_THREAD_SAFETY_ANALYSIS { return mOn; }

    int wait(Side const& side, unsigned int timeoutMs) const UTL_REQUIRES(mMutex);
    int block(Side const& side, unsigned int timeoutMs) const UTL_REQUIRES(mMutex);

    std::atomic<bool> mOn UTL_GUARDED_BY(mMutex);
    std::atomic<bool> mOff UTL_GUARDED_BY(mMutex);
    mutable unsigned int mOnWaiters UTL_GUARDED_BY(mMutex);
    mutable unsigned int mOffWaiters UTL_GUARDED_BY(mMutex);
    mutable pthread_cond_t mOnCondition UTL_GUARDED_BY(mMutex);
    mutable pthread_cond_t mOffCondition UTL_GUARDED_BY(mMutex);
    mutable Mutex mMutex;
    int mTwoWay;
};

extern template class UTL_API_INSTANCE CountingPointer<Event, DestructPointer<Event>>;
extern template class UTL_API_INSTANCE SmartPointer<Event>;

}  // namespace utl

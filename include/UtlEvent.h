#pragma once

#include <pthread.h>

#include <atomic>

#include "UtlPlatform.h"
#include "UtlSmartPointer.h"

namespace utl {

/// Two-state event, the hand-over between threads; *internally locked*, because one mutex guards every field.
///
/// The state stays until somebody sets the other one; a wait takes nothing away, and who comes late does not
/// block. A two-way event can be awaited in both states, a one-way event only while it goes on. All time-outs
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

    /// Off for an `initialOn` of 0, on for any other; two-way for a `twoWay` of exactly 1.
    Event(int initialOn, int twoWay);

    /// Nobody may wait any more; that is not checked.
    virtual ~Event();
    Event(Event const&) = delete;
    Event& operator=(Event const&) = delete;

    /// Changes the state and wakes all threads that wait for the new one.
    void setOn();
    void setOff();

    /// The state at the moment of the call.
    bool isOn() const;
    bool isOff() const;

    /// Blocks until the event is on, at most `timeoutMs` milliseconds; 0 waits without limit. `WAIT_DONE` if
    /// it was on, `WAIT_TIMEOUT` if the time ran out, `WAIT_FAILED` for any other failure of the bounded
    /// wait. A time-out above 0x7FFFFFFF has run out at once.
    ///
    /// The wait without limit waits a single time: a wake-up without a cause ends it with `WAIT_DONE` while
    /// the event is still off. Who must know asks `isOn`. The bounded wait goes on for the rest of its time.
    int waitToOn(unsigned int timeoutMs) const;

    /// As `waitToOn` for the other state; `WAIT_FAILED` at once if the event is one-way.
    int waitToOff(unsigned int timeoutMs) const;

  private:
    friend class Thread;
    friend class ThreadLife;
    struct Side;

    // The state without the mutex, as `isOn` finds it or is about to. The thread that sets it may still be at
    // work on the event: for those who do not destroy it on the strength of the answer.
    bool peekOn() const { return mOn; }

    int wait(Side const& side, unsigned int timeoutMs) const;
    int block(Side const& side, unsigned int timeoutMs) const;

    std::atomic<bool> mOn;
    std::atomic<bool> mOff;
    mutable unsigned int mOnWaiters;
    mutable unsigned int mOffWaiters;
    mutable pthread_cond_t mOnCondition;
    mutable pthread_cond_t mOffCondition;
    mutable pthread_mutex_t mMutex;
    int mTwoWay;
};

extern template class UTL_API_INSTANCE CountingPointer<Event, DestructPointer<Event>>;
extern template class UTL_API_INSTANCE SmartPointer<Event>;

}  // namespace utl

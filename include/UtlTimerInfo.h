#pragma once

#include <time.h>

#include "UtlEvent.h"
#include "UtlMap.h"
#include "UtlPlatform.h"
#include "UtlSmartPointer.h"

namespace utl {

/// Is told of the expiries of a timer; *one owner thread*: the timer thread's calls come one at a time. The
/// object belongs to the application and must live as long as its timers.
class UTL_API TimerListener {
  public:
    TimerListener() = default;
    TimerListener(TimerListener const&) = default;
    TimerListener& operator=(TimerListener const&) = default;
    virtual ~TimerListener();

    /// Timer `timerId` has expired. No lock of the timer thread is held.
    ///
    /// An exception that leaves it ends the process. `pthread_exit` in it ends the thread with its requests
    /// unanswered: whoever waits for its timers waits for ever. What would wait for the thread is refused
    /// here; `destroy` ends the thread when this has returned.
    virtual void onTime(int timerId) = 0;
};

/// One timer of a message thread or of a shared timer; *external lock needed*: the thread that owns the timer
/// guards it with its queue lock. A copy shares the event and, until one of both gives it up, the parameter
/// block.
struct UTL_API TimerInfo {
    /// The kernel's number of no timer.
    static constexpr int NO_NUMBER = -1;

    /// No timer: a slot whose event is null is empty.
    TimerInfo() = default;

    /// A timer that does not run, with its event and its parameter block, which `freeSysParam` gives back.
    /// The second form is given the event.
    TimerInfo(TimerListener* listener, unsigned int interval, unsigned int repeatCount, int autoRepeat);
    TimerInfo(TimerListener* listener, unsigned int interval, unsigned int repeatCount, int autoRepeat,
              SmartPointer<Event> const& running);

    /// Sets the two numbers to -1 and 0, if there are any.
    void resetSysParam();

    /// Gives the two numbers back; a copy that shares them must not use them any more.
    void freeSysParam();

    /// Takes note that the system timer is gone.
    void forgetSysTimer();

    /// True when one more timeout may be queued: only while the timer runs, and not more than one, or two for
    /// a timer that repeats by itself. A slow handler loses expiries instead of filling the queue.
    bool acceptsTimeout() const;

    /// Counts one delivered timeout. True when it was not the last.
    bool countTimeout();

    /// False for an empty slot.
    bool isRunning() const { return mRunning.get() != nullptr && mRunning->isOn(); }

    TimerListener* mListener = nullptr;  ///< of a shared timer; null on a message thread
    timer_t mSysTimerId = timer_t();     ///< valid only while `mSysTimerNum` is not -1
    int mSysTimerNum = NO_NUMBER;        ///< the kernel's number, -1 without a system timer
    int* mSysParam = nullptr;            ///< two numbers on the heap; kept, read by nobody
    unsigned int mInterval = 0;          ///< milliseconds; 0 never expires
    unsigned int mRepeatCount = 0;       ///< expiries after which the timer ends; 0 for no end
    unsigned int mFireCount = 0;         ///< expiries since the start
    int mAutoRepeat = 0;                 ///< 0: the next period begins behind the handler
    SmartPointer<Event> mRunning;        ///< on while the timer runs; outlives the map entry
    unsigned int mPendingCount = 0;      ///< timeouts that are queued and not delivered
    bool mUpdating = false;              ///< of a shared timer: a new interval waits to be applied
    bool mStartAwaited = false;          ///< somebody waits to learn how the start went
};

extern template class Map<int, TimerInfo>;

}  // namespace utl

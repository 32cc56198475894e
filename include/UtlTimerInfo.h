#pragma once

#include <time.h>

#include "UtlEvent.h"
#include "UtlMap.h"
#include "UtlPlatform.h"
#include "UtlSmartPointer.h"

namespace utl {

/// Numbers that the timers of `MsgDrivenThread`, `SharedTimer` and `Timer` take and return.
///@{

/// No timer: what an operation returns that makes none or finds none. Ids are positive.
inline constexpr int NO_TIMER_ID = -1;

/// Values of `noWait`: wait without limit until the thread has done it, or only until the request is queued.
/// Any other value counts as `TIMER_NO_WAIT`.
enum TimerWait { TIMER_WAIT = 0, TIMER_NO_WAIT = 1 };

/// Values of `autoRepeat`: the next period begins when the listener has returned, or the timer runs on
/// meanwhile. Any other value counts as `TIMER_AUTO_REPEAT`.
enum TimerRepeat { TIMER_REPEAT_AFTER_LISTENER = 0, TIMER_AUTO_REPEAT = 1 };

/// A `repeatCount`: the timer does not end by itself.
inline constexpr unsigned int TIMER_NO_END = 0;

/// An `interval`: the timer never expires.
inline constexpr unsigned int TIMER_NEVER = 0;
///@}

/// Is called at the expiries of a timer; *one owner thread*: the timer thread's calls come one at a time. The
/// object belongs to the application and must live as long as its timers.
class UTL_API TimerListener {
  public:
    TimerListener() = default;
    TimerListener(TimerListener const&) = default;
    TimerListener& operator=(TimerListener const&) = default;
    virtual ~TimerListener();

    /// Timer `timerId` has expired. No lock of the timer thread is held.
    ///
    /// An exception that leaves it ends the process. `pthread_exit` in it ends the thread without an answer
    /// to its requests: whoever waits for its timers waits forever. A call that would wait for the thread is
    /// refused here; `destroy` ends the thread after this has returned.
    virtual void onTime(int timerId) = 0;
};

/// One timer of a message thread or of a shared timer; *external lock needed*: the thread that owns the timer
/// guards it with its queue lock. A copy shares the event and, until one of the two frees it, the parameter
/// block.
struct UTL_API TimerInfo {
    /// The kernel number where there is no system timer.
    static constexpr int NO_NUMBER = -1;

    /// An empty slot: its event is null.
    TimerInfo() = default;

    /// A timer that does not run, with its event and its parameter block, which `freeSysParam` frees. The
    /// second form takes the event from the caller.
    TimerInfo(TimerListener* listener, unsigned int interval, unsigned int repeatCount, int autoRepeat);
    TimerInfo(TimerListener* listener, unsigned int interval, unsigned int repeatCount, int autoRepeat,
              SmartPointer<Event> const& running);

    /// Sets the two numbers of the block to -1 and 0, if there is a block.
    void resetSysParam() noexcept;

    /// Frees the block; a copy that shares it must not use it any more.
    void freeSysParam() noexcept;

    /// Records that the system timer does not exist any more.
    void forgetSysTimer() noexcept;

    /// True if one more timeout may be queued: the timer runs, and none is queued, or at most one with
    /// `mAutoRepeat`. A slow handler loses expiries instead of filling the queue.
    [[nodiscard]] bool acceptsTimeout() const;

    /// Counts one delivered timeout. True if it was not the last.
    bool countTimeout() noexcept;

    /// False for an empty slot.
    [[nodiscard]] bool isRunning() const { return mRunning.get() != nullptr && mRunning->isOn(); }

    TimerListener* mListener = nullptr;  ///< of a shared timer; null on a message thread
    timer_t mSysTimerId = timer_t();     ///< valid only while `mSysTimerNum` is not -1
    int mSysTimerNum = NO_NUMBER;        ///< the kernel's number, -1 without a system timer
    int* mSysParam = nullptr;            ///< two numbers on the heap, which nobody reads
    unsigned int mInterval = 0;          ///< milliseconds; 0 never expires
    unsigned int mRepeatCount = 0;       ///< expiries after which the timer ends; 0 for no end
    unsigned int mFireCount = 0;         ///< expiries since the start
    int mAutoRepeat = 0;                 ///< 0: the next period begins after the handler
    SmartPointer<Event> mRunning;        ///< on while the timer runs; outlives the map entry
    unsigned int mPendingCount = 0;      ///< timeouts that are queued and not delivered
    bool mUpdating = false;              ///< of a shared timer: a new interval waits to be applied
    bool mStartAwaited = false;          ///< somebody waits for the result of the start
};

extern template class Map<int, TimerInfo>;

}  // namespace utl

#pragma once

#include <limits.h>
#include <signal.h>

#include <atomic>

#include "UtlArray.h"
#include "UtlMap.h"
#include "UtlMsg.h"
#include "UtlRingArray.h"
#include "UtlSyncObject.h"
#include "UtlThread.h"
#include "UtlTimerInfo.h"

namespace utl {

/// A thread that serves many timers and calls a listener at each expiry; *internally locked*, because any
/// thread may use the timers, and so may a listener from `onTime`.
///
/// | Timer | Entered by | `start` | Expires | Left by |
/// |---|---|---|---|---|
/// | stopped | `addTimer`, `stop`, its last expiry | runs, from a count of 0 | no | `start`, `eraseTimer` |
/// | running | `start` | no effect | yes | `stop`, its last expiry, `eraseTimer` |
/// | erased | `eraseTimer`, the end of the thread | refused | no | |
///
/// The thread runs from construction to `destroy`. Ids of timers are positive and are not reused for a long
/// time.
///
/// With `noWait` 0 a call waits without limit until the thread has done it, and the result says whether it
/// could. With any other value it waits only until the request is queued, and the result says only that.
/// While one call waits, the other operations from outside wait for their turn. On the timer thread itself,
/// that is in a listener, nothing can be waited for: there a call that would have to wait is refused, and
/// returns what its failure returns.
///
/// Expiries that come faster than the listeners work are dropped: at most one of a timer waits for delivery,
/// or two with `autoRepeat`. A slow listener delays the other timers of the thread.
///
/// Call `destroy` before the object is destroyed. A class that overrides `onTime` calls it in its own
/// destructor, or the expiry may meet an object that is half destroyed. Without that call the destructor
/// closes the pipe and waits until the loop has failed at its next read, which is logged; listeners may be
/// called until then.
class UTL_API SharedTimer : public Thread {
  public:
    /// A control entry: one element of the control queue, and what one token of the pipe carries.
    struct TimerCtlMsg {
        int mMsgId = MSG_ID_NONE;  ///< what to do
        int mParam = -1;           ///< -1 where there is none
    };

    /// Ids of control entries. They are unrelated to the messages of the same numbers. The parameter is the
    /// timer's id.
    ///@{
    static constexpr int TIMER_CTL_START = INT_MIN + 0x04;
    static constexpr int TIMER_CTL_STOP = INT_MIN + 0x05;
    static constexpr int TIMER_CTL_ERASE = INT_MIN + 0x06;
    static constexpr int TIMER_CTL_TIMEOUT = INT_MIN + 0x07;
    ///@}

    /// Wakes the loop, so that it sees the request to stop; without parameter.
    static constexpr int TIMER_CTL_QUIT = INT_MIN + 0x08;

    /// Token of the signal handler, which has no control entry. The parameter is the kernel's timer number.
    static constexpr int MSG_ID_TIMEOUT_SIGNAL = utl::MSG_ID_TIMEOUT_SIGNAL;

    /// How many control entries can wait. A request that finds no place is refused.
    static constexpr unsigned int CTL_ENTRY_MAX = 256;

    /// The interval of an unknown timer.
    static constexpr unsigned int NO_INTERVAL = 0xFFFFFFFF;

    /// Starts the thread, with priority NORMAL, and waits until it is ready. `watchdog`, `aliveTime` and
    /// `listener` are those of `Thread::start`. There can be `maxTimerCount` timers. A pipe that cannot be
    /// opened is logged, and the loop has ended then. Without a thread no call that waits can succeed.
    SharedTimer(int watchdog, unsigned int aliveTime, WatchdogTimerListener* listener,
                unsigned int maxTimerCount, char const* name);

    /// Waits for a loop that still runs, see above, and for callers whose waits it has ended.
    ~SharedTimer() override;
    SharedTimer(SharedTimer const&) = delete;
    SharedTimer& operator=(SharedTimer const&) = delete;

    /// Ends the thread and all its timers, and releases its place in the `ThreadManager`'s table. Waits until
    /// a listener that is at work has returned. If a listener calls it, the thread ends after that listener
    /// has returned, and somebody else has to call it again to release the place. A second call does nothing.
    void destroy();

    /// Makes a timer that does not run yet. Its id, or -1 if there are `maxTimerCount` timers, if the thread
    /// was asked to stop or if it has ended. `listener` stays the caller's, must live as long as the timer
    /// and may be null. `interval` is in milliseconds, and 0 never expires. After `repeatCount` expiries the
    /// timer stops; 0 means no end. With `autoRepeat` 0 the next period begins when the listener has
    /// returned, otherwise the timer runs on meanwhile.
    int addTimer(TimerListener* listener, unsigned int interval, unsigned int repeatCount = TIMER_NO_END,
                 int autoRepeat = TIMER_AUTO_REPEAT);

    /// Stops a timer and removes it permanently. With `noWait` 0 the listener is not called for it any more
    /// when this returns; false for an unknown id, if the timer could not be stopped, and if somebody else
    /// removed it meanwhile. Otherwise false only if the request could not be queued.
    bool eraseTimer(int timerId, int noWait = TIMER_WAIT);

    /// Starts a timer. One that runs continues unchanged, which counts as success. False for an unknown id,
    /// if the request could not be queued, or if the start was waited for and failed.
    bool start(int timerId, int noWait = TIMER_WAIT);

    /// Stops a timer. For one that does not run there is nothing to do, which counts as success. Expiries
    /// that wait for delivery are dropped. False as for `start`; a timer that could not be stopped runs on.
    bool stop(int timerId, int noWait = TIMER_WAIT);

    /// `stop`, if it runs, and `start`; returns what `start` returns. If `noWait` is not 0, the start may
    /// find the timer still running and have no effect: only a restart that waits is certain.
    bool restart(int timerId, int noWait = TIMER_WAIT);

    /// The same for all timers, in the order of their ids. `restartAll` stops them all first.
    ///@{
    void startAll(int noWait = TIMER_WAIT);
    void stopAll(int noWait = TIMER_WAIT);
    void restartAll(int noWait = TIMER_WAIT);
    ///@}

    /// Changes the interval. A stopped timer uses it from its next start, a running one from its next expiry.
    /// False for an unknown id.
    bool setInterval(int timerId, unsigned int interval);

    /// The interval last set; `NO_INTERVAL` for an unknown id.
    [[nodiscard]] unsigned int getInterval(int timerId) const;

    /// True while the timer runs; false for an unknown id.
    [[nodiscard]] bool isRunning(int timerId) const;

    /// Replaces the content of `*ids` by the ids of all timers, ascending, and its capacity by their number.
    /// 1, or 0 for null.
    int getTimerIdSet(Array<int, int const&>* ids) const;

    /// Waits without limit until the timer runs, or does not run. `Event::WAIT_DONE`, which is 0. Or
    /// `Event::WAIT_FAILED`, which is -1, for an unknown id, if the timer was removed before it ran, and if
    /// nothing can be waited for. A run that ended before the call is not seen.
    ///@{
    int waitToStart(int timerId);
    int waitToStop(int timerId);
    ///@}

    /// `setWatchdogAliveTime`, `startWatchdog` and `stopWatchdog` of the thread.
    ///@{
    bool setThreadWatchdogAliveTime(unsigned int aliveTime);
    bool startThreadWatchdog();
    bool stopThreadWatchdog();
    ///@}

    /// Wakes the loop, so that it sees a request to stop; `destroy` makes one. Returns at once.
    void requestStop() override;

    /// Calls the timer's listener, with no lock held. Does nothing for an unknown id and without a listener.
    virtual void onTime(int timerId) UTL_EXCLUDES(mQueueLock);

    /// The record of a timer; null for an unknown id. Valid while the caller knows that no timer is
    /// added or removed. The first form takes no lock, so its caller must also know that nobody uses the
    /// timers.
    [[nodiscard]] TimerInfo* findTimer(int timerId) const;
    [[nodiscard]] TimerInfo* findTimer(int timerId);

    /// The id of the timer with this kernel number, or -1.
    [[nodiscard]] int toUserTimerId(int sysTimerNum);

    /// The next positive number that is not the kernel number of a timer here. For programs that number
    /// timers themselves.
    int getNextSysTimerNumber();

    /// The handler of the timers' signal, which runs on any thread.
    static void TimeoutSignalHandler(int signalNumber, siginfo_t* info, void* context);

  protected:
    int execute() override;

    /// Queues a control entry and writes its token. False without a log line if there is no place for it in
    /// the queue; with a line if the pipe has no room, and after a failed write. Only after a failed write
    /// the entry stays.
    bool postTimerCtlMsg(int msgId, int param);

    /// Steps of the loop. The results of the updates are 0, also for an unknown id, and -1 for a failure,
    /// which is logged.
    ///@{
    int updateOnStart(int timerId);
    int updateOnStop(int timerId);
    int updateOnTimeout(int timerId);
    void finishUpdate(int timerId);
    void executeTimeoutSignal(int timerId);
    bool startTimerByTimerInfo(TimerInfo* info) UTL_REQUIRES(mQueueLock);
    bool stopTimerByTimerInfo(TimerInfo* info) UTL_REQUIRES(mQueueLock);
    void updateNextUserTimerIdValue();
    void eraseAllTimer();
    ///@}

  private:
    // The steps of the class, which its sources define.
    class ApiGuard;
    class RequestSteps;
    class LoopSteps;
    class TimerSteps;

    bool isOwnThread() const;
    TimerInfo* infoOf(int timerId) const UTL_REQUIRES(mQueueLock);

    Queue<TimerCtlMsg> mCtlQueue UTL_GUARDED_BY(mQueueLock);
    Map<int, TimerInfo> mTimers UTL_GUARDED_BY(mQueueLock);
    // -1 after the end of the loop: no timer can be added.
    int mNextUserTimerId UTL_GUARDED_BY(mQueueLock) = 1;
    int mNextSysTimerNumber UTL_GUARDED_BY(mQueueLock) = 1;
    std::atomic<int> mPipe[2];
    SyncObject mApiLock;
    SyncObject mQueueLock;
};

/// Calls `destroy` of a `SharedTimer` or a `Timer` at the end of a scope: no listener is called after that.
/// *One owner thread*: the one that leaves the scope, which must not be the timer thread.
///
/// `TIMER` is deduced. Declare it after the timer, and the timer after its listeners. A class that overrides
/// `onTime` calls `destroy` in its own destructor instead.
template <typename TIMER>
class [[nodiscard]] AutoDestroy {
  public:
    /// `timer` must live as long as this.
    explicit AutoDestroy(TIMER& timer) noexcept : mTimer(timer) {}
    ~AutoDestroy() { mTimer.destroy(); }
    AutoDestroy(AutoDestroy const&) = delete;
    AutoDestroy& operator=(AutoDestroy const&) = delete;

  private:
    TIMER& mTimer;
};

}  // namespace utl

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

/// A thread that serves many timers and tells a listener of each expiry; *internally locked*, because any
/// thread may use the timers, also a listener from `onTime`.
///
/// | Timer | Entered by | `start` | Expires | Left by |
/// |---|---|---|---|---|
/// | stopped | `addTimer`, `stop`, its last expiry | runs, from a count of 0 | no | `start`, `eraseTimer` |
/// | running | `start` | no effect | yes | `stop`, its last expiry, `eraseTimer` |
/// | gone | `eraseTimer`, the end of the thread | refused | no | |
///
/// The thread runs from construction to `destroy`. Ids of timers are positive and are not used again for a
/// long time.
///
/// `noWait` 0 waits without limit until the thread has done it, and the result tells whether it could; any
/// other value waits only until the request is queued, and then the result tells only that. While one call
/// waits, the other operations from outside wait for their turn. On the timer thread itself, that is in a
/// listener, nothing can be waited for: there a call that would have to wait is refused, and gives what its
/// failure gives.
///
/// Expiries that come faster than the listeners work are dropped: at most one of a timer waits for delivery,
/// or two with `autoRepeat`. A slow listener delays the other timers of the thread.
///
/// Call `destroy` before the object goes; a class that overrides `onTime` calls it in its own destructor, or
/// the expiry may meet an object that is half gone. Without it the destructor takes the pipe away, so that
/// the loop fails at its next read, which is logged, and waits for that; listeners may be called until then.
class UTL_API SharedTimer : public Thread {
  public:
    /// A control entry: what stands in the control queue, and what one token of the pipe carries.
    struct TimerCtlMsg {
        int mMsgId = MSG_ID_NONE;  ///< what to do
        int mParam = -1;           ///< -1 where there is none
    };

    /// Ids of control entries. They have nothing to do with the messages of the same numbers. The parameter
    /// is the timer's id.
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

    /// Control entries that can wait. A request that finds no place is refused.
    static constexpr unsigned int CTL_ENTRY_MAX = 256;

    /// Starts the thread, with priority NORMAL, and waits until it is ready. `watchdog`, `aliveTime` and
    /// `listener` are those of `Thread::start`. There can be `maxTimerCount` timers. A pipe that cannot be
    /// had is logged and leaves an object whose loop has ended. Without a thread no call that waits can
    /// succeed.
    SharedTimer(int watchdog, unsigned int aliveTime, WatchdogTimerListener* listener,
                unsigned int maxTimerCount, char const* name);

    /// Waits for a loop that still runs, see above, and for callers whose waits that has ended.
    ~SharedTimer() override;

    /// Ends the thread, all its timers with it, and gives its place in the `ThreadManager`'s table back.
    /// Waits until a listener that is at work has returned; a listener that calls it ends the thread behind
    /// itself, and somebody else has to call it again for the place. A second call does nothing.
    void destroy();

    /// Makes a timer that does not run yet. Its id, or -1 if there are `maxTimerCount` timers, if the thread
    /// was asked to stop or if it has ended. `listener` stays the caller's, must live as long as the timer
    /// and may be null. `interval` is in milliseconds, and 0 never expires. After `repeatCount` expiries the
    /// timer stops; 0 is for no end. With `autoRepeat` 0 the next period begins when the listener has
    /// returned, otherwise the timer runs on meanwhile.
    int addTimer(TimerListener* listener, unsigned int interval, unsigned int repeatCount = 0,
                 int autoRepeat = 1);

    /// Stops a timer and takes it away for good. With `noWait` 0 the listener is not called for it any more
    /// when this returns; false for an unknown id, if the timer could not be stopped, and if somebody else
    /// took it away meanwhile. Otherwise false only if the request could not be queued.
    bool eraseTimer(int timerId, int noWait = 0);

    /// Starts a timer; one that runs goes on as it was, which counts as success. False for an unknown id, if
    /// the request could not be queued, or if the start failed, as far as it was waited for.
    bool start(int timerId, int noWait = 0);

    /// Stops a timer; for one that does not run there is nothing to do, which counts as success. Expiries
    /// that wait for delivery are dropped. False as for `start`; a timer that could not be stopped runs on.
    bool stop(int timerId, int noWait = 0);

    /// `stop`, if it runs, and `start`; gives what `start` gives. If `noWait` is not 0 the start may find the
    /// timer running still, and have no effect: only a restart that waits is certain.
    bool restart(int timerId, int noWait = 0);

    /// The same for all timers, in the order of their ids. `restartAll` stops them all first.
    ///@{
    void startAll(int noWait = 0);
    void stopAll(int noWait = 0);
    void restartAll(int noWait = 0);
    ///@}

    /// Changes the interval: of a stopped timer for its next start, of a running one from the next expiry on.
    /// False for an unknown id.
    bool setInterval(int timerId, unsigned int interval);

    /// The interval last set; 0xFFFFFFFF for an unknown id.
    unsigned int getInterval(int timerId) const;

    /// True while the timer runs; false for an unknown id.
    bool isRunning(int timerId) const;

    /// Makes the content of `*ids` the ids of all timers, ascending, and its capacity their number. 1, or 0
    /// for null.
    int getTimerIdSet(Array<int, int const&>* ids) const;

    /// Waits without limit until the timer runs, or does not run. 0, or -1 for an unknown id, if the timer
    /// went before it ran, and where nothing can be waited for. A run that is over before the call is not
    /// seen.
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

    /// Tells the timer's listener of an expiry, with no lock held; nothing for an unknown id and without a
    /// listener.
    virtual void onTime(int timerId);

    /// The record of a timer; null for an unknown id. Valid while the caller knows that no timer comes or
    /// goes. The first form takes no lock, so its caller must also know that nobody uses the timers.
    TimerInfo* findTimer(int timerId) const;
    TimerInfo* findTimer(int timerId);

    /// The id of the timer with this kernel number, or -1.
    int toUserTimerId(int sysTimerNum);

    /// Steps through the positive numbers past those that are the kernel's for a timer here. Kept for those
    /// who number timers themselves.
    int getNextSysTimerNumber();

    /// What the signal of the timers runs, on whatever thread.
    static void TimeoutSignalHandler(int signalNumber, siginfo_t* info, void* context);

  protected:
    int execute() override;

    /// Queues a control entry and writes its token. False without a log line if there is no place for it in
    /// the queue; with a line if the pipe has no room, and after a failed write, in which case alone the
    /// entry stays.
    bool postTimerCtlMsg(int msgId, int param);

    /// Steps of the loop. The results of the updates are 0, also for an unknown id, and -1 for a failure,
    /// which is logged.
    ///@{
    int updateOnStart(int timerId);
    int updateOnStop(int timerId);
    int updateOnTimeout(int timerId);
    void finishUpdate(int timerId);
    void executeTimeoutSignal(int timerId);
    bool startTimerByTimerInfo(TimerInfo* info);
    bool stopTimerByTimerInfo(TimerInfo* info);
    void updateNextUserTimerIdValue();
    void eraseAllTimer();
    ///@}

  private:
    friend struct SharedTimerTestAccess;

    // The steps of the class, which its sources define.
    class ApiGuard;
    class RequestSteps;
    class LoopSteps;
    class TimerSteps;

    bool isOwnThread() const;

    Queue<TimerCtlMsg> mCtlQueue;
    Map<int, TimerInfo> mTimers;
    int mNextUserTimerId = 1;  // -1 once the loop has ended: no timer comes any more
    int mNextSysTimerNumber = 1;
    std::atomic<int> mPipe[2];
    SyncObject mApiLock;
    SyncObject mQueueLock;
};

}  // namespace utl

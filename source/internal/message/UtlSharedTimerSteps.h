#pragma once

#include "UtlSharedTimer.h"
#include "internal/base/UtlHidden.h"

namespace utl {

/// The loop of a shared timer. *One owner thread*: the timer thread.
class UTL_HIDDEN SharedTimer::LoopSteps {
  public:
    explicit LoopSteps(SharedTimer& thread) : mThread(thread) {}

    /// Reads tokens and serves entries until the stop: 0, or -1 if the pipe failed.
    int run();

    /// Refuses new timers from now on, erases all timers and answers whoever waits.
    void leave();

  private:
    bool hasEntryWithoutToken();
    void serveHead(StatementInfo const& place);
    bool popHead(TimerCtlMsg* head);
    int actOn(TimerCtlMsg const& entry);
    int startTimer(int timerId);
    int stopTimer(int timerId);
    int eraseTimer(int timerId);
    int deliverTimeout(int timerId);

    SharedTimer& mThread;
};

/// One timer of a shared timer and its system timer. *External lock needed*: the thread's `mQueueLock`.
class UTL_HIDDEN SharedTimer::TimerSteps {
  public:
    /// The class in log lines, and the source in reports to the watchdog.
    static constexpr char LOG_NAME[] = "SharedTimerThread";
    static constexpr char SOURCE[] = "source/UtlSharedTimer";

    /// The signal of the timers.
    static int const mSignal;

    /// False with a log line if the handler of the signal is not installed. Takes no lock of the thread.
    static bool installSignalHandler();

    /// Adds the timer under the next id: the id, or -1 with its block freed. Takes the lock itself.
    static int insert(SharedTimer& thread, TimerInfo info);

    /// Turns the timer's event on or off, and answers whoever waits for that.
    static void setRunning(SharedTimer& thread, TimerInfo& info, bool runs) UTL_REQUIRES(thread.mQueueLock);

    /// Answers the requests for an entry that failed, unless another entry of the kind is queued: the entry
    /// of a request is the last one.
    static void failRequests(SharedTimer& thread, int msgId, int timerId) UTL_REQUIRES(thread.mQueueLock);

    /// True if there is such a control entry. Takes the lock itself.
    static bool isQueued(SharedTimer const& thread, int msgId, int timerId);

    /// Stops a timer that leaves the map, releases all that it holds, and answers whoever waits.
    static void release(SharedTimer& thread, TimerInfo& info) UTL_REQUIRES(thread.mQueueLock);

    /// Removes the timeouts of a timer from the control queue.
    static void eraseTimeouts(SharedTimer& thread, TimerInfo& info, int timerId)
        UTL_REQUIRES(thread.mQueueLock);

    /// Deletes the system timer: 0 or `errno`.
    static int deleteSysTimer(TimerInfo& info);

    /// Deletes a system timer that a failure has left. One that cannot be deleted writes no token any more.
    static void releaseLeftSysTimer(TimerInfo& info);
};

}  // namespace utl

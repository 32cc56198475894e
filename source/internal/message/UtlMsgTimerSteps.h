#pragma once

#include "UtlMsgDrivenThread.h"
#include "internal/base/UtlHidden.h"

namespace utl {

/// Requests and steps of the timers of a message thread; *internally locked* where nothing else is said.
class UTL_HIDDEN MsgDrivenThread::TimerSteps {
  public:
    explicit TimerSteps(MsgDrivenThread& thread) : mThread(thread) {}

    /// The signal of the timers.
    static int const mSignal;

    /// False with a log line if the handler of the timers' signal is not installed.
    static bool installSignalHandler();

    /// As the operations of `MsgDrivenThread`, on the message thread or from outside.
    ///@{
    int setOwnTimer(TimerInfo const& info);
    int setTimerFromOutside(TimerInfo const& info, bool waits);
    bool startTimerFromOutside(int timerId, bool waits);
    bool killOwnTimer(int timerId);
    bool killTimerFromOutside(int timerId, bool waits);
    ///@}

    /// Registers the timer under the next id, to which the caller steps on once the timer stays. -1, with
    /// its block freed, if that fails.
    static int insert(MsgDrivenThread& thread, TimerInfo info) UTL_REQUIRES(thread.mQueueLock);

    /// Forgets the timer; whoever waits for its start learns that it has failed.
    static void drop(MsgDrivenThread& thread, int timerId) UTL_REQUIRES(thread.mQueueLock);

    /// Tells the waiter of a start how it went. The first call counts: a timer may have
    /// started and ended before the waiter looks.
    static void decideStart(MsgDrivenThread& thread, TimerInfo& info, bool started)
        UTL_REQUIRES(thread.mQueueLock);

    /// Deletes the system timer and frees the block of a timer that leaves its map.
    static void release(MsgDrivenThread& thread, TimerInfo& info) UTL_REQUIRES(thread.mQueueLock);

    /// Removes the timeouts of a timer from the control queue.
    void eraseTimeouts(int timerId);

    /// Removes the timer with the highest id: the id, or -1 if there is none.
    int eraseLast();

  private:
    bool postStart(int timerId, bool waits) UTL_REQUIRES(mThread.mQueueLock);
    bool awaitStart(int timerId, SmartPointer<Event> const& running) UTL_EXCLUDES(mThread.mQueueLock);
    void disownCopy(int timerId) UTL_REQUIRES(mThread.mQueueLock);

    MsgDrivenThread& mThread;
};

}  // namespace utl

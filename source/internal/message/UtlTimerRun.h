#pragma once

#include "UtlEvent.h"
#include "UtlTimerInfo.h"

namespace utl {

/// A caller that waits until a shared timer runs (`TIMER_CTL_START`) or does not run (`TIMER_CTL_STOP`);
/// *external lock needed*, the queue lock of the thread, until it is answered. It stands on the caller's
/// stack. Who answers it takes it off the list first and sets its event on last; behind that it is the
/// caller's alone.
struct TimerWaiter {
    TimerWaiter(int msgId, bool isRequest) : mMsgId(msgId), mIsRequest(isRequest) {}

    int const mMsgId;
    bool const mIsRequest;  ///< it has queued an entry of this id, and learns that it failed
    bool mSucceeded = false;
    Event mAnswered{0, 0};
    TimerWaiter* mNext = nullptr;
};

/// The `mRunning` of a shared timer, which knows besides who waits for it; the list is for callers who hold
/// the queue lock: *external lock needed*. Each waiter is answered when it happens what it waits for: a state
/// of one event could be over before everybody has looked.
class TimerRunEvent : public Event {
  public:
    TimerRunEvent() : Event(0, 1) {}

    /// The event of a timer that `SharedTimer::addTimer` has made.
    static TimerRunEvent& of(TimerInfo& info) { return static_cast<TimerRunEvent&>(*info.mRunning.get()); }

    void add(TimerWaiter& waiter) {
        waiter.mNext = mFirst;
        mFirst = &waiter;
    }

    /// Answers those for whom `isMeant(waiter)` is true.
    template <typename PREDICATE>
    void answer(bool succeeded, PREDICATE isMeant) {
        for (TimerWaiter** link = &mFirst; *link != nullptr;) {
            TimerWaiter& waiter = **link;
            if (!isMeant(waiter)) {
                link = &waiter.mNext;
                continue;
            }
            *link = waiter.mNext;
            waiter.mSucceeded = succeeded;
            waiter.mAnswered.setOn();
        }
    }

  private:
    TimerWaiter* mFirst = nullptr;
};

}  // namespace utl

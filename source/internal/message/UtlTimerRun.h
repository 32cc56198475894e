#pragma once

#include "UtlEvent.h"
#include "UtlTimerInfo.h"

namespace utl {

/// A caller that waits until a shared timer runs (`TIMER_CTL_START`) or does not run (`TIMER_CTL_STOP`);
/// *external lock needed*, the queue lock of the thread, until it is answered. It is on the caller's stack.
/// Whoever answers it removes it from the list first and sets its event on last. After that it belongs to the
/// caller only.
struct TimerWaiter {
    TimerWaiter(int msgId, bool isRequest) : mMsgId(msgId), mIsRequest(isRequest) {}

    int const mMsgId;
    bool const mIsRequest;  ///< it has queued an entry of this id, and is told if that fails
    bool mSucceeded = false;
    Event mAnswered{0, 0};
    TimerWaiter* mNext = nullptr;
};

/// The `mRunning` of a shared timer with the list of those who wait for it. *External lock needed* for the
/// list: the queue lock. Each waiter is answered at the moment that it waits for, because the state of an
/// event could be over before everybody has looked.
class TimerRunEvent : public Event {
  public:
    TimerRunEvent() : Event(0, 1) {}

    /// The event of a timer that `SharedTimer::addTimer` has added.
    static TimerRunEvent& of(TimerInfo& info) { return static_cast<TimerRunEvent&>(*info.mRunning.get()); }

    void add(TimerWaiter& waiter) {
        waiter.mNext = mFirst;
        mFirst = &waiter;
    }

    /// Answers those for whom `matches(waiter)` is true.
    template <typename PREDICATE>
    void answer(bool succeeded, PREDICATE matches) {
        for (TimerWaiter** link = &mFirst; *link != nullptr;) {
            TimerWaiter& waiter = **link;
            if (!matches(waiter)) {
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

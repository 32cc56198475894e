#pragma once

#include "UtlSharedTimer.h"

namespace utl {

/// One timer with a thread of its own, for a client that wants no more than that; *internally locked*,
/// because the `SharedTimer` that it forwards to is. Derive from it and override `onTime`, or give it a
/// listener.
///
/// The timer does not run before `start`; its thread runs from construction to `destroy`. `destroy` must be
/// called before a timer that may expire is destroyed. A class that overrides `onTime` calls it in its own
/// destructor, or the expiry may meet an object that is half destroyed. The listener must outlive the timer.
class UTL_API Timer : public TimerListener {
  public:
    /// A timer for a derived class. `watchdog`, `aliveTime`, `watchdogListener` and `name` are for the
    /// thread, as in `SharedTimer`; the others are those of `SharedTimer::addTimer`. If that fails, all
    /// operations fail as for an unknown id.
    Timer(unsigned int interval, int watchdog, unsigned int aliveTime,
          WatchdogTimerListener* watchdogListener, unsigned int repeatCount, int autoRepeat,
          char const* name);

    /// The same with a listener, which stays the caller's and may be null.
    Timer(TimerListener* listener, unsigned int interval, int watchdog, unsigned int aliveTime,
          WatchdogTimerListener* watchdogListener, unsigned int repeatCount, int autoRepeat,
          char const* name);
    ~Timer() override;
    Timer(Timer const&) = delete;
    Timer& operator=(Timer const&) = delete;

    /// The operations of `SharedTimer` on this timer.
    ///@{
    bool start(int noWait = TIMER_WAIT) { return mSharedTimer.start(mTimerId, noWait); }
    bool restart(int noWait = TIMER_WAIT) { return mSharedTimer.restart(mTimerId, noWait); }
    bool stop(int noWait = TIMER_WAIT) { return mSharedTimer.stop(mTimerId, noWait); }
    bool setInterval(unsigned int interval) { return mSharedTimer.setInterval(mTimerId, interval); }
    [[nodiscard]] unsigned int getInterval() const { return mSharedTimer.getInterval(mTimerId); }
    [[nodiscard]] bool isRunning() const { return mSharedTimer.isRunning(mTimerId); }
    void destroy() { mSharedTimer.destroy(); }
    ///@}

    /// Called on the timer's thread at each expiry: calls the listener, if there is one. It must not wait for
    /// the timer.
    void onTime(int timerId) override;

  private:
    SharedTimer mSharedTimer;
    TimerListener* mListener;
    int mTimerId;
};

}  // namespace utl

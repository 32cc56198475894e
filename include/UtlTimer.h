#pragma once

#include "UtlSharedTimer.h"

namespace utl {

/// One timer with a thread of its own, for a client that wants no more than that; *internally locked*,
/// because the `SharedTimer` that it forwards to is. Derive from it and override `onTime`, or give it a
/// listener.
///
/// The timer does not run before `start`; its thread runs from construction to `destroy`. A timer that may
/// expire must be destroyed by `destroy` before the object goes, in the destructor of the class that
/// overrides `onTime`: otherwise the expiry may meet an object that is half gone. The listener must outlive
/// the timer.
class UTL_API Timer : public TimerListener {
  public:
    /// A timer for a derived class. `watchdog`, `aliveTime`, `watchdogListener` and `name` are for the
    /// thread, as in `SharedTimer`; the others are those of `SharedTimer::addTimer`. If that fails all
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
    bool start(int noWait = 0) { return mSharedTimer.start(mTimerId, noWait); }
    bool restart(int noWait = 0) { return mSharedTimer.restart(mTimerId, noWait); }
    bool stop(int noWait = 0) { return mSharedTimer.stop(mTimerId, noWait); }
    bool setInterval(unsigned int interval) { return mSharedTimer.setInterval(mTimerId, interval); }
    unsigned int getInterval() const { return mSharedTimer.getInterval(mTimerId); }
    bool isRunning() const { return mSharedTimer.isRunning(mTimerId); }
    void destroy() { mSharedTimer.destroy(); }
    ///@}

    /// Called on the timer's thread at each expiry: tells the listener, if there is one. It must not wait for
    /// the timer.
    void onTime(int timerId) override;

  private:
    SharedTimer mSharedTimer;
    TimerListener* mListener;
    int mTimerId;
};

}  // namespace utl

#include "UtlTimer.h"

namespace utl {

namespace {

// The thread runs already: if there is no memory for the timer, it ends here and releases its place.
int addTimerOrDestroy(SharedTimer& timers, TimerListener* listener, unsigned int interval,
                      unsigned int repeatCount, int autoRepeat) {
    try {
        return timers.addTimer(listener, interval, repeatCount, autoRepeat);
    } catch (...) {
        timers.destroy();
        throw;
    }
}

}  // namespace

Timer::Timer(unsigned int interval, int watchdog, unsigned int aliveTime,
             WatchdogTimerListener* watchdogListener, unsigned int repeatCount, int autoRepeat,
             char const* name)
    : Timer(nullptr, interval, watchdog, aliveTime, watchdogListener, repeatCount, autoRepeat, name) {}

Timer::Timer(TimerListener* listener, unsigned int interval, int watchdog, unsigned int aliveTime,
             WatchdogTimerListener* watchdogListener, unsigned int repeatCount, int autoRepeat,
             char const* name)
    : mSharedTimer(watchdog, aliveTime, watchdogListener, 1, name),
      mListener(listener),
      mTimerId(addTimerOrDestroy(mSharedTimer, this, interval, repeatCount, autoRepeat)) {}

Timer::~Timer() = default;

void Timer::onTime(int timerId) {
    if (mListener != nullptr) {
        mListener->onTime(timerId);
    }
}

}  // namespace utl

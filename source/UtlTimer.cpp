#include "UtlTimer.h"

namespace utl {

Timer::Timer(unsigned int interval, int watchdog, unsigned int aliveTime,
             WatchdogTimerListener* watchdogListener, unsigned int repeatCount, int autoRepeat,
             char const* name)
    : Timer(nullptr, interval, watchdog, aliveTime, watchdogListener, repeatCount, autoRepeat, name) {}

Timer::Timer(TimerListener* listener, unsigned int interval, int watchdog, unsigned int aliveTime,
             WatchdogTimerListener* watchdogListener, unsigned int repeatCount, int autoRepeat,
             char const* name)
    : mSharedTimer(watchdog, aliveTime, watchdogListener, 1, name),
      mListener(listener),
      mTimerId(mSharedTimer.addTimer(this, interval, repeatCount, autoRepeat)) {}

Timer::~Timer() = default;

void Timer::onTime(int timerId) {
    if (mListener != nullptr) {
        mListener->onTime(timerId);
    }
}

}  // namespace utl

#include "UtlTimerInfo.h"

#include "internal/time/UtlAdopt.h"

namespace utl {

template class Map<int, TimerInfo>;

namespace {

// How many timeouts wait for delivery at most.
constexpr unsigned int PENDING_MAX = 1;
constexpr unsigned int PENDING_MAX_AUTO_REPEAT = 2;

}  // namespace

TimerListener::~TimerListener() = default;

TimerInfo::TimerInfo(TimerListener* listener, unsigned int interval, unsigned int repeatCount, int autoRepeat)
    : TimerInfo(listener, interval, repeatCount, autoRepeat, share(std::make_unique<Event>(0, 1))) {}

TimerInfo::TimerInfo(TimerListener* listener, unsigned int interval, unsigned int repeatCount, int autoRepeat,
                     SmartPointer<Event> const& running)
    : mListener(listener),
      mSysParam(new int[2]),
      mInterval(interval),
      mRepeatCount(repeatCount),
      mAutoRepeat(autoRepeat),
      mRunning(running) {
    resetSysParam();
}

void TimerInfo::resetSysParam() noexcept {
    if (mSysParam != nullptr) {
        mSysParam[0] = -1;
        mSysParam[1] = 0;
    }
}

void TimerInfo::freeSysParam() noexcept {
    delete[] mSysParam;
    mSysParam = nullptr;
}

void TimerInfo::forgetSysTimer() noexcept {
    mSysTimerId = timer_t();
    mPendingCount = 0;
    mSysTimerNum = NO_NUMBER;
}

bool TimerInfo::acceptsTimeout() const {
    return mPendingCount < (mAutoRepeat != 0 ? PENDING_MAX_AUTO_REPEAT : PENDING_MAX) && isRunning();
}

bool TimerInfo::countTimeout() noexcept {
    if (mPendingCount != 0) {
        --mPendingCount;
    }
    ++mFireCount;
    return mRepeatCount == 0 || mFireCount < mRepeatCount;
}

}  // namespace utl

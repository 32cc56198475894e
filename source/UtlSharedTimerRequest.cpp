// What other threads, and listeners, ask of a shared timer.

#include <optional>

#include "UtlSharedTimer.h"
#include "internal/message/UtlSharedTimerSteps.h"
#include "internal/message/UtlTimerRun.h"
#include "internal/time/UtlAdopt.h"
#include "internal/time/UtlEventWait.h"

namespace utl {

namespace {

// The answer. The shared timer may be destroyed by then: `destroy` answers, too.
bool await(TimerWaiter const& waiter) {
    waitUntilOn(waiter.mAnswered, 0);
    return waiter.mSucceeded;
}

}  // namespace

// Holds mApiLock for a caller from outside. A listener must not wait for it: its holder may wait for the
// thread that the listener runs on.
class [[nodiscard]] UTL_HIDDEN SharedTimer::ApiGuard {
  public:
    explicit ApiGuard(SharedTimer const& timer) {
        if (!timer.isOwnThread()) {
            mGuard.emplace(timer.mApiLock);
        }
    }

  private:
    std::optional<SyncGuard> mGuard;
};

// What other threads, and listeners, ask of the loop and wait for.
class UTL_HIDDEN SharedTimer::RequestSteps {
  public:
    explicit RequestSteps(SharedTimer& thread) : mThread(thread) {}

    bool canWait() const;
    bool request(int msgId, int timerId, int noWait) UTL_EXCLUDES(mThread.mQueueLock);
    void requestAll(int msgId, int noWait);
    int waitFor(int msgId, int timerId) UTL_EXCLUDES(mThread.mQueueLock);

  private:
    SharedTimer& mThread;
};

// The thread cannot wait for itself, and without a thread nobody would answer.
bool SharedTimer::RequestSteps::canWait() const {
    return mThread.hasDone(STARTED) && !mThread.isOwnThread();
}

// The loop sees entry and waiter together. mApiLock is held during the wait: one request at a time.
bool SharedTimer::RequestSteps::request(int msgId, int timerId, int noWait) {
    ApiGuard const guard(mThread);
    TimerWaiter waiter(msgId, true);
    {
        SyncGuard const queueGuard(mThread.mQueueLock);
        TimerInfo* const info = mThread.infoOf(timerId);
        if (info == nullptr) {
            return false;
        }
        if (info->isRunning() == (msgId == TIMER_CTL_START)) {
            return true;
        }
        if ((noWait == TIMER_WAIT && !canWait()) || !mThread.postTimerCtlMsg(msgId, timerId)) {
            return false;
        }
        if (noWait != TIMER_WAIT) {
            return true;
        }
        TimerRunEvent::of(*info).add(waiter);
    }
    return await(waiter);
}

void SharedTimer::RequestSteps::requestAll(int msgId, int noWait) {
    ApiGuard const guard(mThread);
    Array<int> ids(0, 0);
    mThread.getTimerIdSet(&ids);
    for (unsigned int i = 0; i < ids.size(); ++i) {
        request(msgId, *ids.getAt(i), noWait);
    }
}

int SharedTimer::RequestSteps::waitFor(int msgId, int timerId) {
    TimerWaiter waiter(msgId, false);
    {
        SyncGuard const guard(mThread.mQueueLock);
        TimerInfo* const info = mThread.infoOf(timerId);
        if (info == nullptr) {
            return Event::WAIT_FAILED;
        }
        if (info->isRunning() == (msgId == TIMER_CTL_START)) {
            return Event::WAIT_DONE;
        }
        if (!canWait()) {
            return Event::WAIT_FAILED;
        }
        TimerRunEvent::of(*info).add(waiter);
    }
    return await(waiter) ? Event::WAIT_DONE : Event::WAIT_FAILED;
}

// On the timer thread only the wait is left out: the loop ends after the listener that called has returned.
void SharedTimer::destroy() {
    ApiGuard const guard(*this);
    Thread::stop(isOwnThread() ? 0 : 1, 0);
    leaveManagement();
}

int SharedTimer::addTimer(TimerListener* listener, unsigned int interval, unsigned int repeatCount,
                          int autoRepeat) {
    ApiGuard const guard(*this);
    if (hasRequestedStop() || hasDone(FINISHED)) {
        return NO_TIMER_ID;
    }
    return TimerSteps::insert(*this, TimerInfo(listener, interval, repeatCount, autoRepeat,
                                               share(std::make_unique<TimerRunEvent>())));
}

// Only a timer that does not run is removed, because its listener is not at work then. An older request to
// start it may have been served since the stop.
bool SharedTimer::eraseTimer(int timerId, int noWait) {
    ApiGuard const guard(*this);
    if (noWait != TIMER_WAIT) {
        return postTimerCtlMsg(TIMER_CTL_ERASE, timerId);
    }
    while (stop(timerId, TIMER_WAIT)) {
        SyncGuard const queueGuard(mQueueLock);
        TimerInfo* const info = infoOf(timerId);
        if (info == nullptr) {
            return false;
        }
        if (!info->isRunning()) {
            TimerSteps::release(*this, *info);
            return mTimers.erase(timerId);
        }
    }
    return false;
}

bool SharedTimer::start(int timerId, int noWait) {
    return RequestSteps(*this).request(TIMER_CTL_START, timerId, noWait);
}

bool SharedTimer::stop(int timerId, int noWait) {
    return RequestSteps(*this).request(TIMER_CTL_STOP, timerId, noWait);
}

bool SharedTimer::restart(int timerId, int noWait) {
    ApiGuard const guard(*this);
    if (noWait == TIMER_WAIT && !RequestSteps(*this).canWait()) {
        return false;
    }
    if (isRunning(timerId)) {
        stop(timerId, noWait);
    }
    return start(timerId, noWait);
}

void SharedTimer::startAll(int noWait) {
    RequestSteps(*this).requestAll(TIMER_CTL_START, noWait);
}

void SharedTimer::stopAll(int noWait) {
    RequestSteps(*this).requestAll(TIMER_CTL_STOP, noWait);
}

void SharedTimer::restartAll(int noWait) {
    ApiGuard const guard(*this);
    stopAll(noWait);
    startAll(noWait);
}

bool SharedTimer::setInterval(int timerId, unsigned int interval) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = infoOf(timerId);
    if (info == nullptr) {
        return false;
    }
    info->mInterval = interval;
    info->mUpdating = true;
    return true;
}

unsigned int SharedTimer::getInterval(int timerId) const {
    SyncGuard const guard(mQueueLock);
    TimerInfo const* const info = infoOf(timerId);
    return info != nullptr ? info->mInterval : NO_INTERVAL;
}

bool SharedTimer::isRunning(int timerId) const {
    SyncGuard const guard(mQueueLock);
    TimerInfo const* const info = infoOf(timerId);
    return info != nullptr && info->isRunning();
}

int SharedTimer::getTimerIdSet(Array<int, int const&>* ids) const {
    if (ids == nullptr) {
        return 0;
    }
    SyncGuard const guard(mQueueLock);
    ids->clear();
    ids->resizeMax(mTimers.size());
    for (unsigned int i = 0; i < mTimers.size(); ++i) {
        ids->insertAt(i, mTimers.getAt(i)->mKey);
    }
    return 1;
}

int SharedTimer::waitToStart(int timerId) {
    return RequestSteps(*this).waitFor(TIMER_CTL_START, timerId);
}

int SharedTimer::waitToStop(int timerId) {
    return RequestSteps(*this).waitFor(TIMER_CTL_STOP, timerId);
}

bool SharedTimer::setThreadWatchdogAliveTime(unsigned int aliveTime) {
    return setWatchdogAliveTime(aliveTime);
}

bool SharedTimer::startThreadWatchdog() {
    return startWatchdog();
}

bool SharedTimer::stopThreadWatchdog() {
    return stopWatchdog();
}

}  // namespace utl

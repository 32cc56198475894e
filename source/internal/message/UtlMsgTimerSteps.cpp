#include "internal/message/UtlMsgTimerSteps.h"

#include "UtlLog.h"
#include "internal/base/UtlProcessWide.h"
#include "internal/message/UtlTimerSteps.h"
#include "internal/time/UtlEventWait.h"

namespace utl {

// The real-time signal after the one of the shared timers.
int const MsgDrivenThread::TimerSteps::mSignal = __libc_current_sigrtmin() + 2;

bool MsgDrivenThread::TimerSteps::installSignalHandler() {
    static ProcessWide<TimerHandlerInstallation> installation;
    int error = 0;
    auto const result = installation->once(
        &error, [] { return installSignalAction(mSignal, timerSignalAction(TimeoutSignalHandler)); });
    if (result != TimerHandlerInstallation::Result::FAILED) {
        return true;
    }
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "MsgDrivenThread sigaction  errno:%d", error);
    return false;
}

int MsgDrivenThread::TimerSteps::insert(MsgDrivenThread& thread, TimerInfo info) {
    if (thread.mLoopEnded || thread.mTimers.find(thread.mNextUserTimerId) != nullptr ||
        !thread.mTimers.insert(thread.mNextUserTimerId, info)) {
        info.freeSysParam();
        return NO_TIMER_ID;
    }
    return thread.mNextUserTimerId;
}

void MsgDrivenThread::TimerSteps::drop(MsgDrivenThread& thread, int timerId) {
    TimerInfo* const info = thread.findTimer(timerId);
    if (info == nullptr) {
        return;
    }
    info->freeSysParam();
    if (info->mStartAwaited) {
        decideStart(thread, *info, false);
    } else {
        info->mRunning->setOff();
    }
    thread.mTimers.erase(timerId);
}

int MsgDrivenThread::TimerSteps::setOwnTimer(TimerInfo const& info) {
    SyncGuard const guard(mThread.mQueueLock);
    int const timerId = insert(mThread, info);
    if (timerId == NO_TIMER_ID) {
        return NO_TIMER_ID;
    }
    if (mThread.executeStartTimer(timerId) == START_FAILED) {
        drop(mThread, timerId);
        return NO_TIMER_ID;
    }
    mThread.updateNextUserTimerIdValue();
    return timerId;
}

int MsgDrivenThread::TimerSteps::setTimerFromOutside(TimerInfo const& info, bool waits) {
    SyncGuard const guard(mThread.mLifecycleLock);
    int timerId = NO_TIMER_ID;
    {
        SyncGuard const queueGuard(mThread.mQueueLock);
        timerId = insert(mThread, info);
        if (timerId == NO_TIMER_ID) {
            return NO_TIMER_ID;
        }
        if (!postStart(timerId, waits)) {
            drop(mThread, timerId);
            return NO_TIMER_ID;
        }
        mThread.updateNextUserTimerIdValue();
    }
    if (!waits || awaitStart(timerId, info.mRunning)) {
        return timerId;
    }
    SyncGuard const queueGuard(mThread.mQueueLock);
    drop(mThread, timerId);
    return NO_TIMER_ID;
}

bool MsgDrivenThread::TimerSteps::startTimerFromOutside(int timerId, bool waits) {
    SyncGuard const guard(mThread.mLifecycleLock);
    SmartPointer<Event> running;
    {
        SyncGuard const queueGuard(mThread.mQueueLock);
        TimerInfo const* const info = mThread.findTimer(timerId);
        if (info == nullptr || mThread.mLoopEnded) {
            return false;
        }
        running = info->mRunning;
        waits = waits && !running->isOn();
        if (!postStart(timerId, waits)) {
            return false;
        }
    }
    return !waits || awaitStart(timerId, running);
}

bool MsgDrivenThread::TimerSteps::postStart(int timerId, bool waits) {
    TimerInfo* const info = mThread.findTimer(timerId);
    info->mStartAwaited = waits;
    if (mThread.postThreadCtlMsg(MSG_ID_CTL_START_TIMER, timerId) == 0) {
        info->mStartAwaited = false;
        return false;
    }
    return true;
}

// Waits for `decideStart`. From then on the timer's event stays on until this function returns, even if the
// timer has ended meanwhile, so that its end cannot be missed. mLifecycleLock keeps it to one waiter.
bool MsgDrivenThread::TimerSteps::awaitStart(int timerId, SmartPointer<Event> const& running) {
    waitUntilOn(*running, 0);
    SyncGuard const guard(mThread.mQueueLock);
    bool const started = mThread.mStartSucceeded;
    TimerInfo* const info = mThread.findTimer(timerId);
    if (info != nullptr) {
        info->mStartAwaited = false;
        if (!started) {
            running->setOff();
        }
    }
    return started;
}

void MsgDrivenThread::TimerSteps::decideStart(MsgDrivenThread& thread, TimerInfo& info, bool started) {
    if (info.mRunning->isOn()) {
        return;
    }
    thread.mStartSucceeded = started;
    info.mRunning->setOn();
}

bool MsgDrivenThread::TimerSteps::killOwnTimer(int timerId) {
    SyncGuard const guard(mThread.mQueueLock);
    TimerInfo* const info = mThread.findTimer(timerId);
    if (info == nullptr || !mThread.eraseTimerByTimerInfo(info)) {
        return false;
    }
    drop(mThread, timerId);
    return true;
}

bool MsgDrivenThread::TimerSteps::killTimerFromOutside(int timerId, bool waits) {
    SyncGuard const guard(mThread.mLifecycleLock);
    SmartPointer<Event> running;
    {
        SyncGuard const queueGuard(mThread.mQueueLock);
        TimerInfo* const info = mThread.findTimer(timerId);
        if (info == nullptr || mThread.mLoopEnded) {
            return false;
        }
        running = info->mRunning;
        bool const handedOver = mThread.mStopTimers.insert(timerId, *info);
        if (mThread.postThreadCtlMsg(MSG_ID_CTL_STOP_TIMER, timerId) == 0) {
            disownCopy(timerId);
            return false;
        }
        waits = waits && handedOver;
        if (!handedOver) {
            release(mThread, *info);
        }
        mThread.mTimers.erase(timerId);
        eraseTimeouts(timerId);
    }
    if (waits) {
        waitUntilOff(*running);
    }
    return true;
}

// The loop was not told. The timer stays as it is and keeps its block and its system timer.
void MsgDrivenThread::TimerSteps::disownCopy(int timerId) {
    TimerInfo* const copy = mThread.findTimerStopEntry(timerId);
    if (copy != nullptr) {
        copy->forgetSysTimer();
        copy->mSysParam = nullptr;
    }
}

void MsgDrivenThread::TimerSteps::release(MsgDrivenThread& thread, TimerInfo& info) {
    thread.eraseTimerByTimerInfo(&info);
    info.freeSysParam();
    info.mRunning->setOff();
}

void MsgDrivenThread::TimerSteps::eraseTimeouts(int timerId) {
    SyncGuard const guard(mThread.mQueueLock);
    eraseCtlEntriesOf(mThread.mCtlQueue, MSG_ID_CTL_TIMEOUT, timerId);
}

int MsgDrivenThread::TimerSteps::eraseLast() {
    SyncGuard const guard(mThread.mQueueLock);
    if (mThread.mTimers.size() == 0) {
        return NO_TIMER_ID;
    }
    Pair<int, TimerInfo>* const last = mThread.mTimers.getAt(mThread.mTimers.size() - 1);
    int const timerId = last->mKey;
    mThread.eraseTimerByTimerInfo(&last->mValue);
    drop(mThread, timerId);
    return timerId;
}

}  // namespace utl

// The timers of a message thread: from the request to the POSIX timer, and from its signal back to the
// listener.

#include "UtlLog.h"
#include "UtlMsgDrivenThread.h"
#include "internal/message/UtlMsgLoopSteps.h"
#include "internal/message/UtlMsgQueueSteps.h"
#include "internal/message/UtlMsgTimerSteps.h"
#include "internal/message/UtlSystemTimer.h"
#include "internal/message/UtlTimerSteps.h"

namespace utl {

void MsgDrivenThread::TimeoutSignalHandler(int signalNumber, siginfo_t* info, void* context) {
    TokenIo io = {};
    if (!serveTimerSignal(signalNumber, info, context, &io)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread::TimeoutSignalHandler() Error. write Ret:%u errno:%d SysTimerNum=%d PIPE=%d",
               io.mRet, io.mErrno, info->si_timerid, info->si_value.sival_int);
    }
}

void MsgDrivenThread::onEraseTimer(int /*userTimerId*/) {}

// Requests, from any thread.

int MsgDrivenThread::registerTimer(unsigned int interval, unsigned int repeatCount, int autoRepeat) {
    if (!acceptsMsg()) {
        return NO_TIMER_ID;
    }
    SyncGuard const guard(mQueueLock);
    int const timerId = TimerSteps::insert(*this, TimerInfo(nullptr, interval, repeatCount, autoRepeat));
    if (timerId != NO_TIMER_ID) {
        updateNextUserTimerIdValue();
    }
    return timerId;
}

int MsgDrivenThread::setTimer(unsigned int interval, int noWait, unsigned int repeatCount, int autoRepeat) {
    if (!acceptsMsg()) {
        return NO_TIMER_ID;
    }
    TimerInfo const info(nullptr, interval, repeatCount, autoRepeat);
    TimerSteps steps(*this);
    return isOwnThread() ? steps.setOwnTimer(info) : steps.setTimerFromOutside(info, noWait == TIMER_WAIT);
}

bool MsgDrivenThread::startTimer(int timerId, int noWait) {
    if (!acceptsMsg()) {
        return false;
    }
    if (isOwnThread()) {
        executeStartTimer(timerId);
        return true;
    }
    return TimerSteps(*this).startTimerFromOutside(timerId, noWait == TIMER_WAIT);
}

bool MsgDrivenThread::killTimer(int timerId, int noWait) {
    if (!isRunning()) {
        return false;
    }
    TimerSteps steps(*this);
    bool const killed = isOwnThread() ? steps.killOwnTimer(timerId)
                                      : steps.killTimerFromOutside(timerId, noWait == TIMER_WAIT);
    if (killed) {
        onEraseTimer(timerId);
    }
    return killed;
}

unsigned int MsgDrivenThread::remTimerIdCount() const {
    SyncGuard const guard(mQueueLock);
    return mTimers.maxSize() - mTimers.size();
}

TimerInfo* MsgDrivenThread::findTimer(int timerId) {
    SyncGuard const guard(mQueueLock);
    return liveTimer(mTimers.find(timerId));
}

TimerInfo* MsgDrivenThread::findTimerStopEntry(int timerId) {
    SyncGuard const guard(mQueueLock);
    return liveTimer(mStopTimers.find(timerId));
}

int MsgDrivenThread::toUserTimerId(int sysTimerNum) {
    if (sysTimerNum == TimerInfo::NO_NUMBER) {
        return NO_TIMER_ID;
    }
    SyncGuard const guard(mQueueLock);
    return timerIdOf(mTimers, sysTimerNum);
}

void MsgDrivenThread::updateNextUserTimerIdValue() {
    SyncGuard const guard(mQueueLock);
    mNextUserTimerId = nextFreeTimerId(mNextUserTimerId, {&mTimers, &mStopTimers});
}

int MsgDrivenThread::getNextSysTimerNumber() {
    SyncGuard const guard(mQueueLock);
    mNextSysTimerNumber = nextFreeSysTimerNumber(mTimers, mNextSysTimerNumber);
    return mNextSysTimerNumber;
}

// The system timer.

bool MsgDrivenThread::startTimerByTimerInfo(TimerInfo* info) {
    // Without the handler the first expiry would end the process.
    if (info == nullptr || !TimerSteps::installSignalHandler()) {
        return false;
    }
    auto const plainly = [](auto const& call) { return call(); };
    SysTimerStart const result = startSysTimer(*info, {"MsgDrivenThread", getName().buffer()},
                                               TimerSteps::mSignal, mPipe[1], plainly, plainly);
    if (result == SysTimerStart::NOT_ARMED) {
        eraseTimerByTimerInfo(info);
    }
    return result == SysTimerStart::ARMED;
}

bool MsgDrivenThread::eraseTimerByTimerInfo(TimerInfo* info) {
    if (info == nullptr) {
        return false;
    }
    if (info->mSysTimerNum == TimerInfo::NO_NUMBER) {
        return true;
    }
    int const error = deleteSystemTimer(info->mSysTimerId, info->mSysTimerNum);
    info->resetSysParam();
    if (error != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread(%s) timer_delete SysTimerNum:0x%08x errno:%d", getName().buffer(),
               static_cast<unsigned int>(info->mSysTimerNum), error);
        return false;
    }
    int const timerId = toUserTimerId(info->mSysTimerNum);
    if (timerId != NO_TIMER_ID) {
        TimerSteps(*this).eraseTimeouts(timerId);
    }
    info->forgetSysTimer();
    return true;
}

// Steps of the loop, on the message thread.

int MsgDrivenThread::executeStartTimer(int timerId) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = findTimer(timerId);
    if (info == nullptr) {
        return START_UNKNOWN;
    }
    if (info->mRunning->isOn()) {
        return START_RUNNING;
    }
    info->mFireCount = 0;
    bool const started = startTimerByTimerInfo(info);
    if (info->mStartAwaited) {
        TimerSteps::decideStart(*this, *info, started);
    } else if (started) {
        info->mRunning->setOn();
    }
    return started ? START_DONE : START_FAILED;
}

int MsgDrivenThread::executeStopTimer(int timerId) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = findTimerStopEntry(timerId);
    if (info == nullptr) {
        return 0;
    }
    int const result = eraseTimerByTimerInfo(info) ? 0 : -1;
    info->freeSysParam();
    SmartPointer<Event> const running = info->mRunning;
    mStopTimers.erase(timerId);
    TimerSteps(*this).eraseTimeouts(timerId);
    running->setOff();
    return result;
}

void MsgDrivenThread::executeTimeoutSignal(int timerId) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = findTimer(timerId);
    if (takesTimeout(info) && QueueSteps::postEntry(*this, MSG_ID_CTL_TIMEOUT, timerId)) {
        ++info->mPendingCount;
    }
}

int MsgDrivenThread::executeTimeout(int timerId) {
    {
        // A kill from outside may have removed the entry since it was looked at.
        SyncGuard const guard(mQueueLock);
        ThreadCtlMsg const* const head = mCtlQueue.elementAt(0);
        if (head == nullptr || head->mMsgId != MSG_ID_CTL_TIMEOUT || head->mParam != timerId) {
            return 0;
        }
        mCtlQueue.popFront();
    }
    TimerMsg msg;
    msg.mTimerId = timerId;
    if (msg.storeTo(&mReceiveMsg) == 0) {
        return -1;
    }
    LoopSteps(*this).deliver();
    int const handling = TimeoutPostHandling(timerId);
    if (handling == TIMEOUT_FINISHED) {
        onEraseTimer(timerId);
    }
    return handling == TIMEOUT_RESTART_FAILED ? -1 : 0;
}

// Runs after the handler, which may have killed the timer.
int MsgDrivenThread::TimeoutPostHandling(int timerId) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = findTimer(timerId);
    if (info == nullptr) {
        return TIMEOUT_GONE;
    }
    if (!info->countTimeout()) {
        eraseTimerByTimerInfo(info);
        TimerSteps::drop(*this, timerId);
        return TIMEOUT_FINISHED;
    }
    if (info->mAutoRepeat != 0) {
        return TIMEOUT_GOES_ON;
    }
    eraseTimerByTimerInfo(info);
    return startTimerByTimerInfo(info) ? TIMEOUT_GOES_ON : TIMEOUT_RESTART_FAILED;
}

void MsgDrivenThread::eraseAllTimer() {
    TimerSteps steps(*this);
    for (int timerId = steps.eraseLast(); timerId != NO_TIMER_ID; timerId = steps.eraseLast()) {
        onEraseTimer(timerId);
    }
    SyncGuard const guard(mQueueLock);
    for (unsigned int i = 0; i < mStopTimers.size(); ++i) {
        TimerSteps::release(*this, mStopTimers.getAt(i)->mValue);
    }
    mStopTimers.clear();
    eraseCtlEntries(mCtlQueue, [](ThreadCtlMsg const& entry) {
        return entry.mMsgId == MSG_ID_CTL_START_TIMER || entry.mMsgId == MSG_ID_CTL_STOP_TIMER ||
               entry.mMsgId == MSG_ID_CTL_TIMEOUT;
    });
}

}  // namespace utl

// The timers of a message thread: from the request to the POSIX timer, and from its signal back to the
// listener.

#include "UtlLog.h"
#include "UtlMsgDrivenThread.h"
#include "UtlThreadManager.h"
#include "internal/base/UtlProcessWide.h"
#include "internal/message/UtlSystemTimer.h"
#include "internal/message/UtlTimerSteps.h"
#include "internal/time/UtlEventWait.h"

namespace utl {

namespace {

// The real-time signal behind the one of the shared timers.
int const mTimerSignal = __libc_current_sigrtmin() + 2;

}  // namespace

bool MsgDrivenThread::installTimeoutSignalHandler() {
    static ProcessWide<TimerHandlerInstallation> installation;
    int error = 0;
    auto const result = installation->once(
        &error, [] { return installSignalAction(mTimerSignal, timerSignalAction(TimeoutSignalHandler)); });
    if (result != TimerHandlerInstallation::Result::FAILED) {
        return true;
    }
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "MsgDrivenThread sigaction  errno:%d", error);
    return false;
}

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
    int const timerId = insertTimer(TimerInfo(nullptr, interval, repeatCount, autoRepeat));
    if (timerId != NO_TIMER_ID) {
        updateNextUserTimerIdValue();
    }
    return timerId;
}

// Under mQueueLock. The caller steps to the next id once the timer is there to stay.
int MsgDrivenThread::insertTimer(TimerInfo info) {
    if (mLoopEnded || mTimers.find(mNextUserTimerId) != nullptr || !mTimers.insert(mNextUserTimerId, info)) {
        info.freeSysParam();
        return NO_TIMER_ID;
    }
    return mNextUserTimerId;
}

// Under mQueueLock. Whoever waits for the start learns that it will not come.
void MsgDrivenThread::dropTimer(int timerId) {
    TimerInfo* const info = findTimer(timerId);
    if (info == nullptr) {
        return;
    }
    info->freeSysParam();
    if (info->mStartAwaited) {
        decideStart(*info, false);
    } else {
        info->mRunning->setOff();
    }
    mTimers.erase(timerId);
}

int MsgDrivenThread::setTimer(unsigned int interval, int noWait, unsigned int repeatCount, int autoRepeat) {
    if (!acceptsMsg()) {
        return NO_TIMER_ID;
    }
    TimerInfo const info(nullptr, interval, repeatCount, autoRepeat);
    return isOwnThread() ? setOwnTimer(info) : setTimerFromOutside(info, noWait == 0);
}

int MsgDrivenThread::setOwnTimer(TimerInfo const& info) {
    SyncGuard const guard(mQueueLock);
    int const timerId = insertTimer(info);
    if (timerId == NO_TIMER_ID) {
        return NO_TIMER_ID;
    }
    if (executeStartTimer(timerId) == START_FAILED) {
        dropTimer(timerId);
        return NO_TIMER_ID;
    }
    updateNextUserTimerIdValue();
    return timerId;
}

int MsgDrivenThread::setTimerFromOutside(TimerInfo const& info, bool waits) {
    SyncGuard const guard(mLifecycleLock);
    int timerId = NO_TIMER_ID;
    {
        SyncGuard const queueGuard(mQueueLock);
        timerId = insertTimer(info);
        if (timerId == NO_TIMER_ID) {
            return NO_TIMER_ID;
        }
        if (!postStart(timerId, waits)) {
            dropTimer(timerId);
            return NO_TIMER_ID;
        }
        updateNextUserTimerIdValue();
    }
    if (!waits || awaitStart(timerId, info.mRunning)) {
        return timerId;
    }
    SyncGuard const queueGuard(mQueueLock);
    dropTimer(timerId);
    return NO_TIMER_ID;
}

bool MsgDrivenThread::startTimer(int timerId, int noWait) {
    if (!acceptsMsg()) {
        return false;
    }
    if (isOwnThread()) {
        executeStartTimer(timerId);
        return true;
    }
    SyncGuard const guard(mLifecycleLock);
    SmartPointer<Event> running;
    bool waits = noWait == 0;
    {
        SyncGuard const queueGuard(mQueueLock);
        TimerInfo const* const info = findTimer(timerId);
        if (info == nullptr || mLoopEnded) {
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

// Under mQueueLock.
bool MsgDrivenThread::postStart(int timerId, bool waits) {
    TimerInfo* const info = findTimer(timerId);
    info->mStartAwaited = waits;
    if (postThreadCtlMsg(MSG_ID_CTL_START_TIMER, timerId) == 0) {
        info->mStartAwaited = false;
        return false;
    }
    return true;
}

// Waits for `decideStart`. From there to here the timer's event stays on, also if the timer has ended
// meanwhile, so that its end cannot be missed; mLifecycleLock keeps it to one waiter.
bool MsgDrivenThread::awaitStart(int timerId, SmartPointer<Event> const& running) {
    waitUntilOn(*running, 0);
    SyncGuard const guard(mQueueLock);
    bool const started = mStartSucceeded;
    TimerInfo* const info = findTimer(timerId);
    if (info != nullptr) {
        info->mStartAwaited = false;
        if (!started) {
            running->setOff();
        }
    }
    return started;
}

// Under mQueueLock. What is known first counts: a timer may have started and ended before the waiter looks.
void MsgDrivenThread::decideStart(TimerInfo& info, bool started) {
    if (info.mRunning->isOn()) {
        return;
    }
    mStartSucceeded = started;
    info.mRunning->setOn();
}

bool MsgDrivenThread::killTimer(int timerId, int noWait) {
    if (!isRunning()) {
        return false;
    }
    bool const killed = isOwnThread() ? killOwnTimer(timerId) : killTimerFromOutside(timerId, noWait == 0);
    if (killed) {
        onEraseTimer(timerId);
    }
    return killed;
}

bool MsgDrivenThread::killOwnTimer(int timerId) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = findTimer(timerId);
    if (info == nullptr || !eraseTimerByTimerInfo(info)) {
        return false;
    }
    dropTimer(timerId);
    return true;
}

bool MsgDrivenThread::killTimerFromOutside(int timerId, bool waits) {
    SyncGuard const guard(mLifecycleLock);
    SmartPointer<Event> running;
    {
        SyncGuard const queueGuard(mQueueLock);
        TimerInfo* const info = findTimer(timerId);
        if (info == nullptr || mLoopEnded) {
            return false;
        }
        running = info->mRunning;
        bool const handedOver = mStopTimers.insert(timerId, *info);
        if (postThreadCtlMsg(MSG_ID_CTL_STOP_TIMER, timerId) == 0) {
            disownCopy(timerId);
            return false;
        }
        waits = waits && handedOver;
        if (!handedOver) {
            releaseSysTimer(*info);
        }
        mTimers.erase(timerId);
        eraseTimeouts(timerId);
    }
    if (waits) {
        waitUntilOff(*running);
    }
    return true;
}

// The loop was not told, so the timer stays as it is, with all that belongs to it.
void MsgDrivenThread::disownCopy(int timerId) {
    TimerInfo* const copy = findTimerStopEntry(timerId);
    if (copy != nullptr) {
        copy->forgetSysTimer();
        copy->mSysParam = nullptr;
    }
}

// Gives back all that a timer holds which is about to leave its map.
void MsgDrivenThread::releaseSysTimer(TimerInfo& info) {
    eraseTimerByTimerInfo(&info);
    info.freeSysParam();
    info.mRunning->setOff();
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
    do {
        mNextUserTimerId = nextTimerId(mNextUserTimerId);
    } while (mTimers.find(mNextUserTimerId) != nullptr || mStopTimers.find(mNextUserTimerId) != nullptr);
}

int MsgDrivenThread::getNextSysTimerNumber() {
    SyncGuard const guard(mQueueLock);
    mNextSysTimerNumber = nextFreeSysTimerNumber(mTimers, mNextSysTimerNumber);
    return mNextSysTimerNumber;
}

// The system timer.

bool MsgDrivenThread::startTimerByTimerInfo(TimerInfo* info) {
    // Without the handler the first expiry would end the process.
    if (info == nullptr || !installTimeoutSignalHandler()) {
        return false;
    }
    timer_t id = timer_t();
    int number = TimerInfo::NO_NUMBER;
    int const createError = createSystemTimer(mTimerSignal, mPipe[1], &id, &number);
    if (createError != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread(%s) timer_create SysTimerId:0x%08x errno:%d\n", getName().buffer(),
               printableTimerId(id), createError);
        return false;
    }
    info->mSysTimerId = id;
    info->mSysTimerNum = number;
    int const armError = armSystemTimer(id, info->mInterval);
    if (armError != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread(%s) timer_settime SysTimerId:0x%08x errno:%d\n", getName().buffer(),
               printableTimerId(id), armError);
        eraseTimerByTimerInfo(info);
        return false;
    }
    return true;
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
        eraseTimeouts(timerId);
    }
    info->forgetSysTimer();
    return true;
}

void MsgDrivenThread::eraseTimeouts(int timerId) {
    SyncGuard const guard(mQueueLock);
    eraseCtlEntries(mCtlQueue, [timerId](ThreadCtlMsg const& entry) {
        return entry.mMsgId == MSG_ID_CTL_TIMEOUT && entry.mParam == timerId;
    });
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
        decideStart(*info, started);
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
    eraseTimeouts(timerId);
    running->setOff();
    return result;
}

void MsgDrivenThread::executeTimeoutSignal(int timerId) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = findTimer(timerId);
    if (info == nullptr || !info->acceptsTimeout()) {
        return;
    }
    if (postThreadCtlMsg(MSG_ID_CTL_TIMEOUT, timerId) != 0) {
        ++info->mPendingCount;
    }
}

int MsgDrivenThread::executeTimeout(int timerId) {
    {
        // A kill from outside may have taken the entry away since it was looked at.
        SyncGuard const guard(mQueueLock);
        ThreadCtlMsg const* const head = mCtlQueue.elementAt(0);
        if (head == nullptr || head->mMsgId != MSG_ID_CTL_TIMEOUT || head->mParam != timerId) {
            return 0;
        }
        mCtlQueue.removeAt(0, 1);
    }
    TimerMsg msg;
    msg.mTimerId = timerId;
    if (msg.storeTo(&mReceiveMsg) == 0) {
        return -1;
    }
    handToListener();
    int const handling = TimeoutPostHandling(timerId);
    if (handling == TIMEOUT_FINISHED) {
        onEraseTimer(timerId);
    }
    return handling == TIMEOUT_RESTART_FAILED ? -1 : 0;
}

// Runs behind the handler, which may have killed the timer.
int MsgDrivenThread::TimeoutPostHandling(int timerId) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = findTimer(timerId);
    if (info == nullptr) {
        return TIMEOUT_GONE;
    }
    if (!info->countTimeout()) {
        eraseTimerByTimerInfo(info);
        dropTimer(timerId);
        return TIMEOUT_FINISHED;
    }
    if (info->mAutoRepeat != 0) {
        return TIMEOUT_GOES_ON;
    }
    eraseTimerByTimerInfo(info);
    return startTimerByTimerInfo(info) ? TIMEOUT_GOES_ON : TIMEOUT_RESTART_FAILED;
}

void MsgDrivenThread::eraseAllTimer() {
    for (int timerId = eraseLastTimer(); timerId != NO_TIMER_ID; timerId = eraseLastTimer()) {
        onEraseTimer(timerId);
    }
    SyncGuard const guard(mQueueLock);
    for (unsigned int i = 0; i < mStopTimers.size(); ++i) {
        releaseSysTimer(mStopTimers.getAt(i)->mValue);
    }
    mStopTimers.clear();
    eraseCtlEntries(mCtlQueue, [](ThreadCtlMsg const& entry) {
        return entry.mMsgId == MSG_ID_CTL_START_TIMER || entry.mMsgId == MSG_ID_CTL_STOP_TIMER ||
               entry.mMsgId == MSG_ID_CTL_TIMEOUT;
    });
}

int MsgDrivenThread::eraseLastTimer() {
    SyncGuard const guard(mQueueLock);
    if (mTimers.size() == 0) {
        return NO_TIMER_ID;
    }
    Pair<int, TimerInfo>* const last = mTimers.getAt(mTimers.size() - 1);
    int const timerId = last->mKey;
    eraseTimerByTimerInfo(&last->mValue);
    dropTimer(timerId);
    return timerId;
}

}  // namespace utl

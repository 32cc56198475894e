#include "UtlSharedTimer.h"

#include <algorithm>

#include "UtlLog.h"
#include "UtlThreadManager.h"
#include "internal/message/UtlSharedTimerSteps.h"
#include "internal/message/UtlSystemTimer.h"
#include "internal/message/UtlTimerSteps.h"
#include "internal/message/UtlTokenPipe.h"
#include "internal/thread/UtlKeepAlive.h"

namespace utl {

namespace {

unsigned int tokenCount(unsigned int maxTimerCount) {
    return static_cast<unsigned int>(std::min<unsigned long long>(
        UINT_MAX, SharedTimer::CTL_ENTRY_MAX + 1ULL * maxTimerCount * TIMER_TOKENS_MAX));
}

}  // namespace

SharedTimer::SharedTimer(int watchdog, unsigned int aliveTime, WatchdogTimerListener* listener,
                         unsigned int maxTimerCount, char const* name)
    : Thread(name, nullptr), mCtlQueue(CTL_ENTRY_MAX), mTimers(maxTimerCount, 0), mPipe{} {
    int const error = keepAliveAround(TimerSteps::SOURCE, "SharedTimer", __LINE__,
                                      [&] { return openTokenPipe(mPipe, tokenCount(maxTimerCount)); });
    if (error != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "SharedTimerThread(%s) pipe errno:%d", getName().buffer(),
               error);
    }
    TimerSteps::installSignalHandler();
    try {
        Thread::start(watchdog, aliveTime, listener, 1, 0, ThreadPriority(ThreadPriority::NORMAL), 0);
    } catch (...) {
        ClosingTokenPipe const pipe(mPipe);
        throw;
    }
    waitUntilExecuting();
    if (!hasDone(STARTED) || mPipe[0] == -1) {
        waitForEnd();  // without registration or pipe a thread ends at once
    }
}

SharedTimer::~SharedTimer() {
    ClosingTokenPipe const pipe(mPipe);
    if (hasDone(STARTED) && !isOwnThread()) {
        pipe.wakeReader();
        waitForEnd();
    }
    eraseAllTimer();
    SyncGuard const lastRequestHasLeft(mApiLock);
}

void SharedTimer::TimeoutSignalHandler(int signalNumber, siginfo_t* info, void* context) {
    TokenIo io = {};
    if (!serveTimerSignal(signalNumber, info, context, &io)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "SharedTimerThread() Error. write Ret:%u errno:%d", io.mRet,
               io.mErrno);
    }
}

bool SharedTimer::isOwnThread() const {
    return ThreadManager::getCallerId() == getId();
}

// Any token makes the loop look for the request. So if the entry found no place or its token was not written,
// a token without an entry does. A pipe without room has enough tokens, and must not be waited for: the loop
// may have ended.
void SharedTimer::requestStop() {
    int const writeEnd = mPipe[1];
    bool const isPosted = hasRoomForToken(writeEnd) && postTimerCtlMsg(TIMER_CTL_QUIT, -1);
    if (!isPosted && reserveToken(writeEnd)) {
        writeReservedToken(writeEnd, {TIMER_CTL_QUIT, -1});
    }
}

void SharedTimer::onTime(int timerId) {
    TimerListener* listener = nullptr;
    {
        SyncGuard const guard(mQueueLock);
        TimerInfo const* const info = infoOf(timerId);
        listener = info != nullptr ? info->mListener : nullptr;
    }
    if (listener != nullptr) {
        listener->onTime(timerId);
    }
}

TimerInfo* SharedTimer::infoOf(int timerId) const {
    return const_cast<TimerInfo*>(liveTimer(mTimers.find(timerId)));
}

// Not analysed, because it is the caller who keeps others away.
TimerInfo* SharedTimer::findTimer(int timerId) const UTL_NO_THREAD_SAFETY_ANALYSIS {
    return infoOf(timerId);
}

TimerInfo* SharedTimer::findTimer(int timerId) {
    SyncGuard const guard(mQueueLock);
    return infoOf(timerId);
}

int SharedTimer::toUserTimerId(int sysTimerNum) {
    if (sysTimerNum == TimerInfo::NO_NUMBER) {
        return NO_TIMER_ID;
    }
    SyncGuard const guard(mQueueLock);
    return timerIdOf(mTimers, sysTimerNum);
}

void SharedTimer::updateNextUserTimerIdValue() {
    SyncGuard const guard(mQueueLock);
    mNextUserTimerId = nextFreeTimerId(mNextUserTimerId, {&mTimers});
}

int SharedTimer::getNextSysTimerNumber() {
    SyncGuard const guard(mQueueLock);
    mNextSysTimerNumber = nextFreeSysTimerNumber(mTimers, mNextSysTimerNumber);
    return mNextSysTimerNumber;
}

// A write into a pipe without room would wait and hold the lock that its reader needs.
bool SharedTimer::postTimerCtlMsg(int msgId, int param) {
    SyncGuard const guard(mQueueLock);
    if (mCtlQueue.size() >= mCtlQueue.maxSize()) {
        return false;
    }
    int const writeEnd = mPipe[1];
    if (!reserveToken(writeEnd)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "SharedTimerThread(%s) Overflow Pipe  MaxCount:%d",
               getName().buffer(), static_cast<int>(tokenCapacity(writeEnd)));
        return false;
    }
    TimerCtlMsg entry;
    entry.mMsgId = msgId;
    entry.mParam = param;
    mCtlQueue.pushBack(entry);
    TokenIo const io = writeReservedToken(writeEnd, {msgId, param});
    if (!io.isWhole()) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "SharedTimerThread(%s) Error. write Ret:%u errno:%d",
               getName().buffer(), io.mRet, io.mErrno);
    }
    return io.isWhole();
}

// On the timer thread, from here to the end.

// The constructor waits for this, because that of a derived class runs next.
int SharedTimer::execute() {
    signalExecuting();
    // A thread that could not be registered has no id, and nobody could stop it.
    int const result = getId() != 0 ? LoopSteps(*this).run() : -1;
    leaveWatchdog();
    LoopSteps(*this).leave();
    return result;
}

int SharedTimer::updateOnStart(int timerId) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = infoOf(timerId);
    if (info == nullptr) {
        return 0;
    }
    info->mFireCount = 0;
    if (!startTimerByTimerInfo(info)) {
        return -1;
    }
    TimerSteps::setRunning(*this, *info, true);
    return 0;
}

int SharedTimer::updateOnStop(int timerId) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = infoOf(timerId);
    if (info == nullptr) {
        return 0;
    }
    if (!stopTimerByTimerInfo(info)) {
        return -1;
    }
    TimerSteps::setRunning(*this, *info, false);
    return 0;
}

// Runs after the listener, which may have changed the timer.
int SharedTimer::updateOnTimeout(int timerId) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = infoOf(timerId);
    if (info == nullptr) {
        return 0;
    }
    bool const goesOn = info->countTimeout();
    if (goesOn && info->mAutoRepeat != 0 && !info->mUpdating) {
        return 0;
    }
    if (!stopTimerByTimerInfo(info)) {
        TimerSteps::eraseTimeouts(*this, *info, timerId);
    }
    if (goesOn) {
        return startTimerByTimerInfo(info) ? 0 : -1;
    }
    TimerSteps::setRunning(*this, *info, false);
    return 0;
}

void SharedTimer::finishUpdate(int timerId) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = infoOf(timerId);
    if (info != nullptr) {
        info->mUpdating = false;
    }
}

// If only its token could not be written, the entry stays and counts.
void SharedTimer::executeTimeoutSignal(int timerId) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = infoOf(timerId);
    if (takesTimeout(info)) {
        unsigned int const entriesBefore = mCtlQueue.size();
        postTimerCtlMsg(TIMER_CTL_TIMEOUT, timerId);
        info->mPendingCount += mCtlQueue.size() - entriesBefore;
    }
}

void SharedTimer::eraseAllTimer() {
    SyncGuard const guard(mQueueLock);
    mCtlQueue.clear();
    for (unsigned int i = 0; i < mTimers.size(); ++i) {
        updateOnStop(mTimers.getAt(i)->mKey);
        TimerSteps::release(*this, mTimers.getAt(i)->mValue);
    }
    mTimers.clear();
}

bool SharedTimer::startTimerByTimerInfo(TimerInfo* info) {
    // Without the handler the first expiry would end the process.
    if (info == nullptr || !TimerSteps::installSignalHandler()) {
        return false;
    }
    TimerSteps::releaseLeftSysTimer(*info);
    auto const inBracket = [](unsigned int line) {
        return [line](auto const& call) {
            return keepAliveAround(TimerSteps::SOURCE, "startTimerByTimerInfo", line, call);
        };
    };
    SysTimerStart const result =
        startSysTimer(*info, {TimerSteps::LOG_NAME, getName().buffer()}, TimerSteps::mSignal, mPipe[1],
                      inBracket(__LINE__),   // timer_create
                      inBracket(__LINE__));  // timer_settime
    if (result == SysTimerStart::NOT_ARMED) {
        stopTimerByTimerInfo(info);
    }
    return result == SysTimerStart::ARMED;
}

// For a timer that does not run nothing is deleted: after a fresh start that failed, its system timer, which
// is not armed, stays until the next start or the timer's end.
bool SharedTimer::stopTimerByTimerInfo(TimerInfo* info) {
    if (info == nullptr) {
        return false;
    }
    if (info->mSysTimerNum == TimerInfo::NO_NUMBER || !info->isRunning()) {
        return true;
    }
    int const error = TimerSteps::deleteSysTimer(*info);
    if (error != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "SharedTimerThread(%s) timer_delete SysTimerId:0x%08x errno:%d", getName().buffer(),
               printableTimerId(info->mSysTimerId), error);
        return false;
    }
    TimerSteps::eraseTimeouts(*this, *info, toUserTimerId(info->mSysTimerNum));
    info->forgetSysTimer();
    return true;
}

}  // namespace utl

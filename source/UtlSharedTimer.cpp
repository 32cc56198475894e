#include "UtlSharedTimer.h"

#include <algorithm>

#include "UtlLog.h"
#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"
#include "internal/base/UtlProcessWide.h"
#include "internal/message/UtlSystemTimer.h"
#include "internal/message/UtlTimerRun.h"
#include "internal/message/UtlTimerSteps.h"
#include "internal/message/UtlTokenPipe.h"
#include "internal/thread/UtlKeepAlive.h"
#include "internal/time/UtlEventWait.h"

namespace utl {

namespace {

// In front of the one of the message threads.
int const mTimerSignal = __libc_current_sigrtmin() + 1;

// The class in log lines, and the source in reports to the watchdog.
char const LOG_NAME[] = "SharedTimerThread";
char const SOURCE[] = "source/UtlSharedTimer";

unsigned int tokenCount(unsigned int maxTimerCount) {
    return static_cast<unsigned int>(std::min<unsigned long long>(
        UINT_MAX, SharedTimer::CTL_ENTRY_MAX + 1ULL * maxTimerCount * TIMER_TOKENS_MAX));
}

}  // namespace

SharedTimer::SharedTimer(int watchdog, unsigned int aliveTime, WatchdogTimerListener* listener,
                         unsigned int maxTimerCount, char const* name)
    : Thread(name, nullptr), mCtlQueue(CTL_ENTRY_MAX), mTimers(maxTimerCount, 0), mPipe{} {
    int const error = keepAliveAround(SOURCE, "SharedTimer", __LINE__,
                                      [&] { return openTokenPipe(mPipe, tokenCount(maxTimerCount)); });
    if (error != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "SharedTimerThread(%s) pipe errno:%d", getName().buffer(),
               error);
    }
    installTimeoutSignalHandler();
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

bool SharedTimer::installTimeoutSignalHandler() {
    static ProcessWide<TimerHandlerInstallation> installation;
    int error = 0;
    auto const result = installation->once(&error, [] {
        struct sigaction const action = keepAliveAround(SOURCE, "installTimeoutSignalHandler", __LINE__, [] {
            return timerSignalAction(TimeoutSignalHandler);
        });
        return keepAliveAround(SOURCE, "installTimeoutSignalHandler", __LINE__,
                               [&action] { return installSignalAction(mTimerSignal, action); });
    });
    if (result == TimerHandlerInstallation::Result::DONE) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_DETAIL, "SharedTimer sigaction  success:%d", mTimerSignal);
    } else if (result == TimerHandlerInstallation::Result::FAILED) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "SharedTimer sigaction  errno:%d", error);
    }
    return result != TimerHandlerInstallation::Result::FAILED;
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

// Any token makes the loop look for the request, so where the entry found no place or its token got lost, a
// bare token does. A pipe without room has tokens enough, and must not be waited for: the loop may have
// ended.
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
        TimerInfo const* const info = findTimer(timerId);
        listener = info != nullptr ? info->mListener : nullptr;
    }
    if (listener != nullptr) {
        listener->onTime(timerId);
    }
}

TimerInfo* SharedTimer::findTimer(int timerId) const {
    return const_cast<TimerInfo*>(liveTimer(mTimers.find(timerId)));
}

TimerInfo* SharedTimer::findTimer(int timerId) {
    SyncGuard const guard(mQueueLock);
    return liveTimer(mTimers.find(timerId));
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
    do {
        mNextUserTimerId = nextTimerId(mNextUserTimerId);
    } while (mTimers.find(mNextUserTimerId) != nullptr);
}

int SharedTimer::getNextSysTimerNumber() {
    SyncGuard const guard(mQueueLock);
    mNextSysTimerNumber = nextFreeSysTimerNumber(mTimers, mNextSysTimerNumber);
    return mNextSysTimerNumber;
}

// A write into a pipe without room would wait, with the lock held that its reader needs.
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

// The loop, on the timer thread.

// The constructor of a derived class comes next: this one returns when the thread is inside.
int SharedTimer::execute() {
    signalExecuting();
    // A thread that could not be registered has no id, and nobody could stop it.
    int const result = getId() != 0 ? runLoop() : -1;
    leaveWatchdog();
    leaveLoop();
    return result;
}

// A signal ends the loop only if the entry that should do so has found no place.
int SharedTimer::runLoop() {
    StatementInfo const place(SOURCE, "execute", __LINE__, 0);
    for (;;) {
        PipeToken token;
        if (!hasEntryWithoutToken() && !readToken(LOG_NAME, getName().buffer(), place, mPipe[0], &token)) {
            return -1;
        }
        bool const isSignal = token.mId == MSG_ID_TIMEOUT_SIGNAL;
        if (isSignal) {
            acknowledgeTimerToken(token.mParam);
            executeTimeoutSignal(toUserTimerId(token.mParam));
        } else {
            serveHead(place);
        }
        if (hasRequestedStop() && !(isSignal && isQueued(TIMER_CTL_QUIT, -1))) {
            return 0;
        }
    }
}

// After a failed write there are more entries than tokens: the last ones would wait until somebody posts.
bool SharedTimer::hasEntryWithoutToken() {
    SyncGuard const guard(mQueueLock);
    return mCtlQueue.size() != 0 && isTokenPipeEmpty(mPipe[0]);
}

// Each token takes the entry at the head, whatever the token says.
void SharedTimer::serveHead(StatementInfo const& place) {
    TimerCtlMsg head;
    if (!popHead(&head)) {
        return;
    }
    int const result = actOn(head);
    reportIfRegistered(place);
    if (result != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "!!!!!!!! SharedTimerThread(%s) Error. MsgId:0x%08x !!!!!!!!", getName().buffer(),
               static_cast<unsigned int>(head.mMsgId));
    }
}

bool SharedTimer::popHead(TimerCtlMsg* head) {
    SyncGuard const guard(mQueueLock);
    if (mCtlQueue.size() == 0) {
        return false;
    }
    return mCtlQueue.popFrontInto(head, 1);
}

int SharedTimer::actOn(TimerCtlMsg const& entry) {
    switch (entry.mMsgId) {
        case TIMER_CTL_START:
            return startByEntry(entry.mParam);
        case TIMER_CTL_STOP:
            return stopByEntry(entry.mParam);
        case TIMER_CTL_ERASE:
            return eraseByEntry(entry.mParam);
        case TIMER_CTL_TIMEOUT:
            return deliverTimeout(entry.mParam);
        default:
            return 0;
    }
}

// A timer that runs by now needs no second system timer, and a new interval of it still waits for the expiry.
int SharedTimer::startByEntry(int timerId) {
    SyncGuard const guard(mQueueLock);
    if (isRunning(timerId)) {
        return 0;
    }
    int const result = updateOnStart(timerId);
    finishUpdate(timerId);
    if (result != 0) {
        failRequests(TIMER_CTL_START, timerId);
    }
    return result;
}

int SharedTimer::stopByEntry(int timerId) {
    SyncGuard const guard(mQueueLock);
    int const result = updateOnStop(timerId);
    if (result == 0) {
        finishUpdate(timerId);
    } else {
        failRequests(TIMER_CTL_STOP, timerId);
    }
    return result;
}

int SharedTimer::eraseByEntry(int timerId) {
    SyncGuard const guard(mQueueLock);
    int const result = updateOnStop(timerId);
    TimerInfo* const info = findTimer(timerId);
    if (info != nullptr) {
        releaseTimer(*info);
        mTimers.erase(timerId);
    }
    return result;
}

// A new interval that is set in front of the locked step is applied by it, one that is set behind it stays
// marked.
int SharedTimer::deliverTimeout(int timerId) {
    onTime(timerId);
    SyncGuard const guard(mQueueLock);
    int const result = updateOnTimeout(timerId);
    finishUpdate(timerId);
    return result;
}

// No timer comes any more, and who waits for one is answered.
void SharedTimer::leaveLoop() {
    SyncGuard const guard(mQueueLock);
    mNextUserTimerId = NO_TIMER_ID;
    eraseAllTimer();
}

int SharedTimer::updateOnStart(int timerId) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = findTimer(timerId);
    if (info == nullptr) {
        return 0;
    }
    info->mFireCount = 0;
    if (!startTimerByTimerInfo(info)) {
        return -1;
    }
    setRunning(*info, true);
    return 0;
}

int SharedTimer::updateOnStop(int timerId) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = findTimer(timerId);
    if (info == nullptr) {
        return 0;
    }
    if (!stopTimerByTimerInfo(info)) {
        return -1;
    }
    setRunning(*info, false);
    return 0;
}

// Runs behind the listener, which may have changed the timer.
int SharedTimer::updateOnTimeout(int timerId) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = findTimer(timerId);
    if (info == nullptr) {
        return 0;
    }
    bool const goesOn = info->countTimeout();
    if (goesOn && info->mAutoRepeat != 0 && !info->mUpdating) {
        return 0;
    }
    if (!stopTimerByTimerInfo(info)) {
        eraseTimeouts(info, timerId);
    }
    if (goesOn) {
        return startTimerByTimerInfo(info) ? 0 : -1;
    }
    setRunning(*info, false);
    return 0;
}

void SharedTimer::finishUpdate(int timerId) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = findTimer(timerId);
    if (info != nullptr) {
        info->mUpdating = false;
    }
}

void SharedTimer::executeTimeoutSignal(int timerId) {
    SyncGuard const guard(mQueueLock);
    TimerInfo* const info = findTimer(timerId);
    if (info == nullptr || !info->acceptsTimeout()) {
        return;
    }
    unsigned int const entriesBefore = mCtlQueue.size();
    postTimerCtlMsg(TIMER_CTL_TIMEOUT, timerId);
    // An entry stays where its token alone could not be written.
    info->mPendingCount += mCtlQueue.size() - entriesBefore;
}

void SharedTimer::eraseAllTimer() {
    SyncGuard const guard(mQueueLock);
    mCtlQueue.clear();
    for (unsigned int i = 0; i < mTimers.size(); ++i) {
        updateOnStop(mTimers.getAt(i)->mKey);
        releaseTimer(mTimers.getAt(i)->mValue);
    }
    mTimers.clear();
}

// Under mQueueLock, from here to the end: one timer and its system timer.

void SharedTimer::setRunning(TimerInfo& info, bool runs) {
    if (runs) {
        info.mRunning->setOn();
    } else {
        info.mRunning->setOff();
    }
    int const happened = runs ? TIMER_CTL_START : TIMER_CTL_STOP;
    TimerRunEvent::of(info).answer(
        true, [happened](TimerWaiter const& waiter) { return waiter.mMsgId == happened; });
}

// The entry of a request is the last of its kind: as long as there is another one it has not failed.
void SharedTimer::failRequests(int msgId, int timerId) {
    if (!isQueued(msgId, timerId)) {
        TimerRunEvent::of(*findTimer(timerId)).answer(false, [msgId](TimerWaiter const& waiter) {
            return waiter.mIsRequest && waiter.mMsgId == msgId;
        });
    }
}

bool SharedTimer::isQueued(int msgId, int timerId) const {
    SyncGuard const guard(mQueueLock);
    for (unsigned int i = 0; i < mCtlQueue.size(); ++i) {
        TimerCtlMsg const& entry = *mCtlQueue.elementAt(i);
        if (entry.mMsgId == msgId && entry.mParam == timerId) {
            return true;
        }
    }
    return false;
}

// Gives back all that a timer holds which is about to leave the map. It stands still for good.
void SharedTimer::releaseTimer(TimerInfo& info) {
    releaseLeftSysTimer(info);
    info.freeSysParam();
    setRunning(info, false);
    TimerRunEvent::of(info).answer(false, [](TimerWaiter const&) { return true; });
}

bool SharedTimer::startTimerByTimerInfo(TimerInfo* info) {
    // Without the handler the first expiry would end the process.
    if (info == nullptr || !installTimeoutSignalHandler()) {
        return false;
    }
    releaseLeftSysTimer(*info);
    timer_t id = timer_t();
    int number = TimerInfo::NO_NUMBER;
    int const createError = keepAliveAround(SOURCE, "startTimerByTimerInfo", __LINE__, [&] {
        return createSystemTimer(mTimerSignal, mPipe[1], &id, &number);
    });
    if (createError != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "SharedTimerThread(%s) timer_create SysTimerId:0x%08x errno:%d\n", getName().buffer(),
               printableTimerId(id), createError);
        return false;
    }
    info->mSysTimerId = id;
    info->mSysTimerNum = number;
    int const armError = keepAliveAround(SOURCE, "startTimerByTimerInfo", __LINE__,
                                         [&] { return armSystemTimer(id, info->mInterval); });
    if (armError != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "SharedTimerThread(%s) timer_settime SysTimerId:0x%08x errno:%d\n", getName().buffer(),
               printableTimerId(id), armError);
        stopTimerByTimerInfo(info);
        return false;
    }
    return true;
}

// Of a timer that does not run nothing is deleted: a fresh start that failed leaves its system timer, which
// is not armed, to the next start or to the timer's end.
bool SharedTimer::stopTimerByTimerInfo(TimerInfo* info) {
    if (info == nullptr) {
        return false;
    }
    if (info->mSysTimerNum == TimerInfo::NO_NUMBER || !info->isRunning()) {
        return true;
    }
    int const error = deleteSysTimer(*info);
    if (error != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "SharedTimerThread(%s) timer_delete SysTimerId:0x%08x errno:%d", getName().buffer(),
               printableTimerId(info->mSysTimerId), error);
        return false;
    }
    eraseTimeouts(info, toUserTimerId(info->mSysTimerNum));
    info->forgetSysTimer();
    return true;
}

void SharedTimer::eraseTimeouts(TimerInfo* info, int timerId) {
    eraseCtlEntries(mCtlQueue, [timerId](TimerCtlMsg const& entry) {
        return entry.mMsgId == TIMER_CTL_TIMEOUT && entry.mParam == timerId;
    });
    info->mPendingCount = 0;
}

int SharedTimer::deleteSysTimer(TimerInfo& info) {
    int const error = keepAliveAround(SOURCE, "stopTimerByTimerInfo", __LINE__, [&info] {
        return deleteSystemTimer(info.mSysTimerId, info.mSysTimerNum);
    });
    info.resetSysParam();
    return error;
}

// A system timer that a failure has left behind must not get lost, and at the least it must not write into
// the pipe any more.
void SharedTimer::releaseLeftSysTimer(TimerInfo& info) {
    if (info.mSysTimerNum == TimerInfo::NO_NUMBER) {
        return;
    }
    if (deleteSysTimer(info) != 0) {
        abandonSystemTimer(info.mSysTimerNum);
    }
    info.forgetSysTimer();
}

}  // namespace utl

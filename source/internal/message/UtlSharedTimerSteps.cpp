#include "internal/message/UtlSharedTimerSteps.h"

#include "UtlLog.h"
#include "UtlThreadWatchdog.h"
#include "internal/base/UtlProcessWide.h"
#include "internal/message/UtlSystemTimer.h"
#include "internal/message/UtlTimerRun.h"
#include "internal/message/UtlTimerSteps.h"
#include "internal/message/UtlTokenPipe.h"
#include "internal/thread/UtlKeepAlive.h"

namespace utl {

// A signal ends the loop only if the entry that should do so has found no place.
int SharedTimer::LoopSteps::run() {
    StatementInfo const place(TimerSteps::SOURCE, "execute", __LINE__, 0);
    for (;;) {
        PipeToken token;
        if (!hasEntryWithoutToken() &&
            !readToken(TimerSteps::LOG_NAME, mThread.getName().buffer(), place, mThread.mPipe[0], &token)) {
            return -1;
        }
        bool const isSignal = token.mId == MSG_ID_TIMEOUT_SIGNAL;
        if (isSignal) {
            acknowledgeTimerToken(token.mParam);
            mThread.executeTimeoutSignal(mThread.toUserTimerId(token.mParam));
        } else {
            serveHead(place);
        }
        if (mThread.hasRequestedStop() && !(isSignal && TimerSteps::isQueued(mThread, TIMER_CTL_QUIT, -1))) {
            return 0;
        }
    }
}

// After a failed write there are more entries than tokens: the last ones would wait until somebody posts.
bool SharedTimer::LoopSteps::hasEntryWithoutToken() {
    SyncGuard const guard(mThread.mQueueLock);
    return mThread.mCtlQueue.size() != 0 && isTokenPipeEmpty(mThread.mPipe[0]);
}

// Each token takes the entry at the head, whatever the token says.
void SharedTimer::LoopSteps::serveHead(StatementInfo const& place) {
    TimerCtlMsg head;
    if (!popHead(&head)) {
        return;
    }
    int const result = actOn(head);
    Thread::keepAliveWatchdog(place);
    if (result != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "!!!!!!!! SharedTimerThread(%s) Error. MsgId:0x%08x !!!!!!!!", mThread.getName().buffer(),
               static_cast<unsigned int>(head.mMsgId));
    }
}

bool SharedTimer::LoopSteps::popHead(TimerCtlMsg* head) {
    SyncGuard const guard(mThread.mQueueLock);
    if (mThread.mCtlQueue.size() == 0) {
        return false;
    }
    return mThread.mCtlQueue.popFrontInto(head, 1);
}

int SharedTimer::LoopSteps::actOn(TimerCtlMsg const& entry) {
    switch (entry.mMsgId) {
        case TIMER_CTL_START:
            return startTimer(entry.mParam);
        case TIMER_CTL_STOP:
            return stopTimer(entry.mParam);
        case TIMER_CTL_ERASE:
            return eraseTimer(entry.mParam);
        case TIMER_CTL_TIMEOUT:
            return deliverTimeout(entry.mParam);
        default:
            return 0;
    }
}

// A timer that runs by now needs no second system timer; a new interval still waits for its expiry.
int SharedTimer::LoopSteps::startTimer(int timerId) {
    SyncGuard const guard(mThread.mQueueLock);
    if (mThread.isRunning(timerId)) {
        return 0;
    }
    int const result = mThread.updateOnStart(timerId);
    mThread.finishUpdate(timerId);
    if (result != 0) {
        TimerSteps::failRequests(mThread, TIMER_CTL_START, timerId);
    }
    return result;
}

int SharedTimer::LoopSteps::stopTimer(int timerId) {
    SyncGuard const guard(mThread.mQueueLock);
    int const result = mThread.updateOnStop(timerId);
    if (result == 0) {
        mThread.finishUpdate(timerId);
    } else {
        TimerSteps::failRequests(mThread, TIMER_CTL_STOP, timerId);
    }
    return result;
}

int SharedTimer::LoopSteps::eraseTimer(int timerId) {
    SyncGuard const guard(mThread.mQueueLock);
    int const result = mThread.updateOnStop(timerId);
    TimerInfo* const info = mThread.infoOf(timerId);
    if (info != nullptr) {
        TimerSteps::release(mThread, *info);
        mThread.mTimers.erase(timerId);
    }
    return result;
}

// The locked step applies a new interval that was set before it. One that is set after it stays marked.
int SharedTimer::LoopSteps::deliverTimeout(int timerId) {
    mThread.onTime(timerId);
    SyncGuard const guard(mThread.mQueueLock);
    int const result = mThread.updateOnTimeout(timerId);
    mThread.finishUpdate(timerId);
    return result;
}

void SharedTimer::LoopSteps::leave() {
    SyncGuard const guard(mThread.mQueueLock);
    mThread.mNextUserTimerId = NO_TIMER_ID;
    mThread.eraseAllTimer();
}

// The real-time signal before the one of the message threads.
int const SharedTimer::TimerSteps::mSignal = __libc_current_sigrtmin() + 1;

bool SharedTimer::TimerSteps::installSignalHandler() {
    static ProcessWide<TimerHandlerInstallation> installation;
    int error = 0;
    auto const result = installation->once(&error, [] {
        struct sigaction const action = keepAliveAround(SOURCE, "installTimeoutSignalHandler", __LINE__, [] {
            return timerSignalAction(TimeoutSignalHandler);
        });
        return keepAliveAround(SOURCE, "installTimeoutSignalHandler", __LINE__,
                               [&action] { return installSignalAction(mSignal, action); });
    });
    if (result == TimerHandlerInstallation::Result::DONE) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_DETAIL, "SharedTimer sigaction  success:%d", mSignal);
    } else if (result == TimerHandlerInstallation::Result::FAILED) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "SharedTimer sigaction  errno:%d", error);
    }
    return result != TimerHandlerInstallation::Result::FAILED;
}

int SharedTimer::TimerSteps::insert(SharedTimer& thread, TimerInfo info) {
    SyncGuard const guard(thread.mQueueLock);
    int const timerId = thread.mNextUserTimerId;
    if (timerId == NO_TIMER_ID || thread.mTimers.find(timerId) != nullptr ||
        !thread.mTimers.insert(timerId, info)) {
        info.freeSysParam();
        return NO_TIMER_ID;
    }
    thread.updateNextUserTimerIdValue();
    return timerId;
}

void SharedTimer::TimerSteps::setRunning(SharedTimer& /*thread*/, TimerInfo& info, bool runs) {
    if (runs) {
        info.mRunning->setOn();
    } else {
        info.mRunning->setOff();
    }
    int const happened = runs ? TIMER_CTL_START : TIMER_CTL_STOP;
    TimerRunEvent::of(info).answer(
        true, [happened](TimerWaiter const& waiter) { return waiter.mMsgId == happened; });
}

void SharedTimer::TimerSteps::failRequests(SharedTimer& thread, int msgId, int timerId) {
    if (!isQueued(thread, msgId, timerId)) {
        TimerRunEvent::of(*thread.infoOf(timerId)).answer(false, [msgId](TimerWaiter const& waiter) {
            return waiter.mIsRequest && waiter.mMsgId == msgId;
        });
    }
}

bool SharedTimer::TimerSteps::isQueued(SharedTimer const& thread, int msgId, int timerId) {
    SyncGuard const guard(thread.mQueueLock);
    for (unsigned int i = 0; i < thread.mCtlQueue.size(); ++i) {
        TimerCtlMsg const& entry = *thread.mCtlQueue.elementAt(i);
        if (entry.mMsgId == msgId && entry.mParam == timerId) {
            return true;
        }
    }
    return false;
}

void SharedTimer::TimerSteps::release(SharedTimer& thread, TimerInfo& info) {
    releaseLeftSysTimer(info);
    info.freeSysParam();
    setRunning(thread, info, false);
    TimerRunEvent::of(info).answer(false, [](TimerWaiter const&) { return true; });
}

void SharedTimer::TimerSteps::eraseTimeouts(SharedTimer& thread, TimerInfo& info, int timerId) {
    eraseCtlEntriesOf(thread.mCtlQueue, TIMER_CTL_TIMEOUT, timerId);
    info.mPendingCount = 0;
}

int SharedTimer::TimerSteps::deleteSysTimer(TimerInfo& info) {
    int const error = keepAliveAround(SOURCE, "stopTimerByTimerInfo", __LINE__, [&info] {
        return deleteSystemTimer(info.mSysTimerId, info.mSysTimerNum);
    });
    info.resetSysParam();
    return error;
}

void SharedTimer::TimerSteps::releaseLeftSysTimer(TimerInfo& info) {
    if (info.mSysTimerNum == TimerInfo::NO_NUMBER) {
        return;
    }
    if (deleteSysTimer(info) != 0) {
        abandonSystemTimer(info.mSysTimerNum);
    }
    info.forgetSysTimer();
}

}  // namespace utl

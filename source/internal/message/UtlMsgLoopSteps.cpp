#include "internal/message/UtlMsgLoopSteps.h"

#include "UtlLog.h"
#include "UtlThreadWatchdog.h"
#include "internal/message/UtlMsgQueueSteps.h"
#include "internal/message/UtlMsgRequestSteps.h"
#include "internal/message/UtlSystemTimer.h"
#include "internal/message/UtlTokenPipe.h"
#include "internal/thread/UtlKeepAlive.h"

namespace utl {

int MsgDrivenThread::LoopSteps::run() {
    StatementInfo const place("source/UtlMsgDrivenThread", "execute", __LINE__, 0);
    PipeToken token;
    while (readToken("MsgDrivenThread", mThread.getName().buffer(), place, mThread.mPipe[0], &token)) {
        if (token.mId == MSG_ID_TIMEOUT_SIGNAL) {
            acknowledgeTimerToken(token.mParam);
            mThread.executeTimeoutSignal(mThread.toUserTimerId(token.mParam));
        }
        bool const isObeyed =
            token.mId != MSG_ID_TIMEOUT_SIGNAL && (serveToken(token, place) || token.mId == MSG_ID_CTL_STOP);
        if ((isObeyed || mThread.mStopsAtAnyToken) && mThread.hasRequestedStop()) {
            return 0;
        }
    }
    return -1;
}

// True if the entry at the head was acted upon. Only the control queue says what to do; a token that does
// not match the head belonged to an entry that has been removed.
bool MsgDrivenThread::LoopSteps::serveToken(PipeToken const& token, StatementInfo const& place) {
    ThreadCtlMsg head;
    bool isRequested = false;
    if (!peekHead(&head, &isRequested)) {
        return false;
    }
    if (isRequested && !serveRequests(&head)) {
        return false;
    }
    if (head.mMsgId == MSG_ID_CTL_WAKE || head.mMsgId != token.mId) {
        return false;
    }
    int const result = actOn(head);
    Thread::keepAliveWatchdog(place);
    if (result != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "!!!!!!!! MsgDrivenThread(%s) Error. MsgId:0x%08x !!!!!!!!",
               mThread.getName().buffer(), static_cast<unsigned int>(token.mId));
    }
    return true;
}

bool MsgDrivenThread::LoopSteps::peekHead(ThreadCtlMsg* head, bool* isRequested) {
    SyncGuard const guard(mThread.mQueueLock);
    mThread.mIsRequested = mThread.mIsRequested && RequestSteps::isPending(mThread);
    *isRequested = mThread.mIsRequested;
    return QueueSteps::peekHead(mThread, head);
}

// Requests are served before the entry at the head, which may be another one afterwards. False if there is
// none any more.
bool MsgDrivenThread::LoopSteps::serveRequests(ThreadCtlMsg* head) {
    RequestSteps requests(mThread);
    bool isRequested = false;
    return (!requests.serveInterrupt() || peekHead(head, &isRequested)) &&
           (!requests.serveErase() || peekHead(head, &isRequested)) &&
           (!requests.serveFind() || peekHead(head, &isRequested));
}

int MsgDrivenThread::LoopSteps::actOn(ThreadCtlMsg const& head) {
    switch (head.mMsgId) {
        case MSG_ID_CTL_SYNC:
            return deliverSync();
        case MSG_ID_CTL_START_TIMER:
            return startTimerOfHead(head.mParam);
        case MSG_ID_CTL_STOP_TIMER:
            return stopTimerOfHead(head.mParam);
        case MSG_ID_CTL_TIMEOUT:
            return mThread.executeTimeout(head.mParam);
        case MSG_ID_CTL_STOP:
            return removeHead();
        default:
            return deliverPosted(head.mMsgId);
    }
}

int MsgDrivenThread::LoopSteps::deliverSync() {
    int const result = receiveFrameOf(MSG_ID_CTL_SYNC, &mThread.mCtlQueue, &mThread.mDataQueue);
    if (result == 0) {
        mThread.mSyncResult = true;
    }
    mThread.mSyncEvent.setOff();
    mThread.mDataOverflowLogged = false;
    return result;
}

int MsgDrivenThread::LoopSteps::deliverPosted(int msgId) {
    int const result = receiveFrameOf(msgId, &mThread.mCtlQueue, &mThread.mDataQueue);
    mThread.mDataOverflowLogged = false;
    return result;
}

int MsgDrivenThread::LoopSteps::receiveFrameOf(int ctlId, Queue<ThreadCtlMsg>* entries,
                                               Queue<unsigned char>* frames) {
    {
        SyncGuard const guard(mThread.mQueueLock);
        if (!QueueSteps::popFrameOf(mThread, ctlId, *entries, *frames)) {
            return -1;
        }
    }
    deliver();
    return 0;
}

int MsgDrivenThread::LoopSteps::receiveFirst(Queue<unsigned char>* frames) {
    {
        SyncGuard const guard(mThread.mQueueLock);
        if (frames->size() == 0) {
            return -1;
        }
        QueueSteps::popFrame(mThread, *frames);
    }
    deliver();
    return 0;
}

void MsgDrivenThread::LoopSteps::deliver() {
    if (mThread.mListener != nullptr) {
        unsigned int const size = mThread.mReceiveMsg.maxSize();
        mThread.mListener->receiveMsg(mThread.getId(), mThread.mReceiveMsg);
        restoreSize(mThread.mReceiveMsg, size);
    }
}

int MsgDrivenThread::LoopSteps::removeHead() {
    SyncGuard const guard(mThread.mQueueLock);
    return mThread.mCtlQueue.removeAt(0, 1) ? 0 : -1;
}

int MsgDrivenThread::LoopSteps::startTimerOfHead(int timerId) {
    bool const started = mThread.executeStartTimer(timerId) != START_FAILED;
    return removeHead() == 0 && started ? 0 : -1;
}

int MsgDrivenThread::LoopSteps::stopTimerOfHead(int timerId) {
    int const result = mThread.executeStopTimer(timerId);
    return removeHead() == 0 ? result : -1;
}

// A sender tests the flag under the lock: it is refused, or it is released here.
void MsgDrivenThread::LoopSteps::leave() {
    {
        SyncGuard const guard(mThread.mQueueLock);
        mThread.mLoopEnded = true;
    }
    mThread.eraseAllTimer();
    RequestSteps(mThread).releaseAll();
}

}  // namespace utl

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
    Head head;
    if (!takeHead(token.mId, &head) || (head.isRequested && !serveRequests(&head.entry))) {
        return false;
    }
    if (head.entry.mMsgId == MSG_ID_CTL_WAKE || head.entry.mMsgId != token.mId) {
        return false;
    }
    int const result = bringsFrame(token.mId) ? deliverFrame(head) : actOn(head.entry);
    Thread::keepAliveWatchdog(place);
    if (result != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "!!!!!!!! MsgDrivenThread(%s) Error. MsgId:0x%08x !!!!!!!!",
               mThread.getName().buffer(), static_cast<unsigned int>(token.mId));
    }
    return true;
}

// True for an entry that is served with a frame: all but those listed, also ids that `isDataMsgId` leaves
// out.
bool MsgDrivenThread::LoopSteps::bringsFrame(int msgId) {
    switch (msgId) {
        case MSG_ID_CTL_WAKE:
        case MSG_ID_CTL_START_TIMER:
        case MSG_ID_CTL_STOP_TIMER:
        case MSG_ID_CTL_TIMEOUT:
        case MSG_ID_CTL_STOP:
            return false;
        default:
            return true;
    }
}

bool MsgDrivenThread::LoopSteps::peekHead(ThreadCtlMsg* head) {
    mThread.mIsRequested = mThread.mIsRequested && RequestSteps::isPending(mThread);
    return QueueSteps::peekHead(mThread, head);
}

// Most heads are messages that nothing is served before: one hold of the lock is enough for them.
bool MsgDrivenThread::LoopSteps::takeHead(int tokenId, Head* head) {
    SyncGuard const guard(mThread.mQueueLock);
    if (!peekHead(&head->entry)) {
        return false;
    }
    head->isRequested = mThread.mIsRequested;
    head->hasFrame = !head->isRequested && head->entry.mMsgId == tokenId && bringsFrame(tokenId) &&
                     QueueSteps::popFrameOf(mThread, tokenId, mThread.mCtlQueue, mThread.mDataQueue);
    return true;
}

bool MsgDrivenThread::LoopSteps::peekHeadAnew(ThreadCtlMsg* head) {
    SyncGuard const guard(mThread.mQueueLock);
    return peekHead(head);
}

// Requests are served before the entry at the head, which may be another one afterwards. False if there is
// none any more.
bool MsgDrivenThread::LoopSteps::serveRequests(ThreadCtlMsg* head) {
    RequestSteps requests(mThread);
    return (!requests.serveInterrupt() || peekHeadAnew(head)) &&
           (!requests.serveErase() || peekHeadAnew(head)) && (!requests.serveFind() || peekHeadAnew(head));
}

int MsgDrivenThread::LoopSteps::actOn(ThreadCtlMsg const& head) {
    switch (head.mMsgId) {
        case MSG_ID_CTL_START_TIMER:
            return startTimerOfHead(head.mParam);
        case MSG_ID_CTL_STOP_TIMER:
            return stopTimerOfHead(head.mParam);
        case MSG_ID_CTL_TIMEOUT:
            return mThread.executeTimeout(head.mParam);
        default:
            return removeHead();
    }
}

// The frame is still in its queue if requests have been served before it.
int MsgDrivenThread::LoopSteps::deliverFrame(Head const& head) {
    int const ctlId = head.entry.mMsgId;
    bool const isThere =
        head.isRequested ? takeFrameOf(ctlId, &mThread.mCtlQueue, &mThread.mDataQueue) : head.hasFrame;
    if (isThere) {
        deliver();
    }
    if (ctlId == MSG_ID_CTL_SYNC) {
        if (isThere) {
            mThread.mSyncResult = true;
        }
        mThread.mSyncEvent.setOff();
    }
    mThread.mDataOverflowLogged.store(false, std::memory_order_relaxed);
    return isThere ? 0 : -1;
}

bool MsgDrivenThread::LoopSteps::takeFrameOf(int ctlId, Queue<ThreadCtlMsg>* entries,
                                             Queue<unsigned char>* frames) {
    SyncGuard const guard(mThread.mQueueLock);
    return QueueSteps::popFrameOf(mThread, ctlId, *entries, *frames);
}

int MsgDrivenThread::LoopSteps::receiveFrameOf(int ctlId, Queue<ThreadCtlMsg>* entries,
                                               Queue<unsigned char>* frames) {
    if (!takeFrameOf(ctlId, entries, frames)) {
        return -1;
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
    bool const isThere = mThread.mCtlQueue.size() != 0;
    mThread.mCtlQueue.popFront();
    return isThere ? 0 : -1;
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

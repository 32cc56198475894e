#include "internal/message/UtlMsgRequestSteps.h"

#include "internal/message/UtlMsgLoopSteps.h"
#include "internal/message/UtlMsgQueueSteps.h"
#include "internal/time/UtlEventWait.h"

namespace utl {

int MsgDrivenThread::RequestSteps::sendSync(Msg const& msg) {
    return sendAndWait(msg, {mThread.mSyncLock, mThread.mSyncEvent, mThread.mSyncResult, mThread.mDataQueue,
                             MSG_ID_CTL_SYNC});
}

int MsgDrivenThread::RequestSteps::sendInterrupt(Msg const& msg) {
    return sendAndWait(msg, {mThread.mInterruptLock, mThread.mInterruptEvent, mThread.mInterruptResult,
                             mThread.mInterruptQueue, MSG_ID_CTL_WAKE});
}

int MsgDrivenThread::RequestSteps::sendAndWait(Msg const& msg, Send const& send) {
    if (!mThread.acceptsMsg() || mThread.isOwnThread()) {
        return 0;
    }
    SyncGuard const guard(send.mLock);
    send.mResult = false;
    if (!queueSend(msg, send)) {
        return 0;
    }
    waitUntilOff(send.mEvent);
    return send.mResult ? 1 : 0;
}

bool MsgDrivenThread::RequestSteps::queueSend(Msg const& msg, Send const& send) {
    SyncGuard const guard(mThread.mQueueLock);
    if (mThread.mLoopEnded || mThread.hasRequestedStop() || !QueueSteps::flatten(mThread, msg)) {
        return false;
    }
    bool const isSync = &send.mFrames == &mThread.mDataQueue;
    if (!isSync) {
        send.mFrames.clear();
    }
    if (!QueueSteps::pushFrame(mThread, send.mFrames, msg.getMsgId(), send.mCtlId)) {
        return false;
    }
    bool const isAnnounced = announce(send.mEvent, send.mCtlId);
    if (isSync && isAnnounced) {
        QueueSteps::discardUnannounced(mThread, mThread.mSendMsg.maxSize(), send.mCtlId);
    } else if (isSync) {
        QueueSteps::keepUnannounced(mThread);
    }
    return isAnnounced;
}

// The loop looks at the event under the same lock, so it sees event and entry together.
bool MsgDrivenThread::RequestSteps::announce(Event& event, int ctlId) {
    event.setOn();
    mThread.mIsRequested = mThread.mIsRequested || ctlId == MSG_ID_CTL_WAKE;
    if (!QueueSteps::postEntry(mThread, ctlId, -1)) {
        event.setOff();
        return false;
    }
    return true;
}

bool MsgDrivenThread::RequestSteps::askLoop(Event& event) {
    {
        SyncGuard const guard(mThread.mQueueLock);
        if (mThread.mLoopEnded || !announce(event, MSG_ID_CTL_WAKE)) {
            return false;
        }
    }
    waitUntilOff(event);
    return true;
}

bool MsgDrivenThread::RequestSteps::find(MsgJudgementInterface* judgement, ThreadRawMsg* out) {
    if (!mThread.isRunning() || judgement == nullptr) {
        return false;
    }
    if (mThread.isOwnThread()) {
        return mThread.executeFindMsg(judgement, out);
    }
    SyncGuard const guard(mThread.mFindLock);
    mThread.mFindJudgement = judgement;
    mThread.mPeekTarget = out;
    mThread.mFindResult = false;
    bool const found = askLoop(mThread.mFindEvent) && mThread.mFindResult;
    mThread.mFindJudgement = nullptr;
    mThread.mPeekTarget = nullptr;
    return found;
}

// If the loop ends before it serves the request, the caller gets the preset result: nothing will be delivered
// any more.
bool MsgDrivenThread::RequestSteps::erase(MsgJudgementInterface* judgement) {
    if (!mThread.isRunning() || judgement == nullptr) {
        return false;
    }
    if (mThread.isOwnThread()) {
        return mThread.executeEraseMsg(judgement);
    }
    SyncGuard const guard(mThread.mEraseLock);
    mThread.mEraseJudgement = judgement;
    mThread.mEraseResult = true;
    bool const completed = askLoop(mThread.mEraseEvent) && mThread.mEraseResult;
    mThread.mEraseJudgement = nullptr;
    return completed;
}

bool MsgDrivenThread::RequestSteps::isPending(MsgDrivenThread const& thread) {
    return thread.mInterruptEvent.isOn() || thread.mEraseEvent.isOn() || thread.mFindEvent.isOn();
}

// Event, frame and entry of a request appear under the lock, so none of them is seen without the others.
bool MsgDrivenThread::RequestSteps::isOn(Event const& request) const {
    SyncGuard const guard(mThread.mQueueLock);
    return request.isOn();
}

void MsgDrivenThread::RequestSteps::finish(Event& request) {
    mThread.eraseMsgFromCtlQueue(MSG_ID_CTL_WAKE);
    request.setOff();
}

bool MsgDrivenThread::RequestSteps::serveInterrupt() {
    if (!isOn(mThread.mInterruptEvent)) {
        return false;
    }
    if (LoopSteps(mThread).receiveFirst(&mThread.mInterruptQueue) == 0) {
        mThread.mInterruptResult = true;
    }
    finish(mThread.mInterruptEvent);
    return true;
}

bool MsgDrivenThread::RequestSteps::serveErase() {
    if (!isOn(mThread.mEraseEvent)) {
        return false;
    }
    mThread.mEraseResult = mThread.executeEraseMsg(mThread.mEraseJudgement);
    finish(mThread.mEraseEvent);
    return true;
}

bool MsgDrivenThread::RequestSteps::serveFind() {
    if (!isOn(mThread.mFindEvent)) {
        return false;
    }
    mThread.mFindResult = mThread.executeFindMsg(mThread.mFindJudgement, mThread.mPeekTarget);
    finish(mThread.mFindEvent);
    return true;
}

void MsgDrivenThread::RequestSteps::releaseAll() {
    mThread.mInterruptEvent.setOff();
    mThread.mSyncEvent.setOff();
    mThread.mEraseEvent.setOff();
    mThread.mFindEvent.setOff();
}

}  // namespace utl

// Finding messages in the queues of a message thread, and removing them before they are delivered.

#include "UtlMsgDrivenThread.h"
#include "internal/message/UtlMsgRequestSteps.h"
#include "internal/message/UtlMsgScanSteps.h"

namespace utl {

MsgDrivenThread::MsgJudgementInterface::~MsgJudgementInterface() = default;

bool MsgDrivenThread::JudgeMsgSpecifiedMsgId::operator()(ThreadRawMsg& msg) const {
    if (mMsgId == MSG_ID_ANY) {
        return true;
    }
    int id = MSG_ID_NONE;
    return msg.getMsgId(&id) != 0 && id == mMsgId;
}

bool MsgDrivenThread::hasMsg(int msgId) {
    JudgeMsgSpecifiedMsgId judge(msgId);
    MsgJudgement<JudgeMsgSpecifiedMsgId> judgement(&judge);
    return hasMsgInternal(&judgement);
}

bool MsgDrivenThread::peekMsg(int msgId, ThreadRawMsg* out) {
    JudgeMsgSpecifiedMsgId judge(msgId);
    MsgJudgement<JudgeMsgSpecifiedMsgId> judgement(&judge);
    return peekMsgInternal(&judgement, out);
}

bool MsgDrivenThread::eraseMsg(int msgId) {
    JudgeMsgSpecifiedMsgId judge(msgId);
    MsgJudgement<JudgeMsgSpecifiedMsgId> judgement(&judge);
    return eraseMsgInternal(&judgement);
}

int MsgDrivenThread::getFirstMsgId() {
    ThreadRawMsg msg(0);
    int id = MSG_ID_NONE;
    return peekMsg(MSG_ID_ANY, &msg) && msg.getMsgId(&id) != 0 ? id : MSG_ID_NONE;
}

bool MsgDrivenThread::hasMsgInternal(MsgJudgementInterface* judgement) {
    return RequestSteps(*this).find(judgement, nullptr);
}

bool MsgDrivenThread::peekMsgInternal(MsgJudgementInterface* judgement, ThreadRawMsg* out) {
    return out != nullptr && RequestSteps(*this).find(judgement, out);
}

bool MsgDrivenThread::eraseMsgInternal(MsgJudgementInterface* judgement) {
    return RequestSteps(*this).erase(judgement);
}

int MsgDrivenThread::QueueLock::lock() const {
    int const result = SyncObject::lock();
    if (Erasure::isAnyUnderWay()) {
        Erasure::closeAllUnder(*this);
    }
    return result;
}

bool MsgDrivenThread::executeFindMsg(MsgJudgementInterface* judgement, ThreadRawMsg* out) {
    SyncGuard const guard(mQueueLock);
    return judgement != nullptr && ScanSteps::find(*this, *judgement, out);
}

bool MsgDrivenThread::executeEraseMsg(MsgJudgementInterface* judgement) {
    if (judgement == nullptr) {
        return false;
    }
    Erasure::Step step = Erasure::Step::ENDED_TIMER;
    while (step == Erasure::Step::ENDED_TIMER) {
        int endedTimer = NO_TIMER_ID;
        {
            SyncGuard const guard(mQueueLock);
            step = Erasure::eraseMatches(*this, *judgement, &endedTimer);
        }
        if (endedTimer != NO_TIMER_ID) {
            onEraseTimer(endedTimer);
        }
    }
    return step == Erasure::Step::DONE;
}

bool MsgDrivenThread::eraseMsgFromCtlQueue(int msgId) {
    SyncGuard const guard(mQueueLock);
    for (unsigned int i = 0; i < mCtlQueue.size(); ++i) {
        if (mCtlQueue.elementAt(i)->mMsgId == msgId) {
            return mCtlQueue.removeAt(i, 1);
        }
    }
    return false;
}

// The spelling is the one that derived classes know.
bool MsgDrivenThread::earseMsgQueue(unsigned int ctlIndex, unsigned int dataOffset, unsigned int dataSize) {
    SyncGuard const guard(mQueueLock);
    if (dataOffset >= mDataQueue.size() || ctlIndex >= mCtlQueue.size()) {
        return false;
    }
    mCtlQueue.removeAt(ctlIndex, 1);
    if (dataSize != 0) {
        mDataQueue.removeAt(dataOffset, dataSize);
    }
    return true;
}

}  // namespace utl

// Looking into the queues of a message thread, and taking messages out of them before they are delivered.

#include <atomic>

#include "UtlLog.h"
#include "UtlMsgDrivenThread.h"
#include "internal/message/UtlQueueGap.h"
#include "internal/message/UtlTimerSteps.h"
#include "internal/time/UtlEventWait.h"

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
    return find(judgement, nullptr);
}

bool MsgDrivenThread::peekMsgInternal(MsgJudgementInterface* judgement, ThreadRawMsg* out) {
    return out != nullptr && find(judgement, out);
}

bool MsgDrivenThread::find(MsgJudgementInterface* judgement, ThreadRawMsg* out) {
    if (!isRunning() || judgement == nullptr) {
        return false;
    }
    if (isOwnThread()) {
        return executeFindMsg(judgement, out);
    }
    SyncGuard const guard(mFindLock);
    mFindJudgement = judgement;
    mPeekTarget = out;
    mFindResult = false;
    bool const found = askLoop(mFindEvent) && mFindResult;
    mFindJudgement = nullptr;
    mPeekTarget = nullptr;
    return found;
}

// The preset result is what a caller gets whose request the loop did not come to before its end: nothing will
// be delivered any more.
bool MsgDrivenThread::eraseMsgInternal(MsgJudgementInterface* judgement) {
    if (!isRunning() || judgement == nullptr) {
        return false;
    }
    if (isOwnThread()) {
        return executeEraseMsg(judgement);
    }
    SyncGuard const guard(mEraseLock);
    mEraseJudgement = judgement;
    mEraseResult = true;
    bool const completed = askLoop(mEraseEvent) && mEraseResult;
    mEraseJudgement = nullptr;
    return completed;
}

// Event and entry go up under the lock: the loop serves no half request, and no wake entry comes behind its
// request.
bool MsgDrivenThread::askLoop(Event& event) {
    {
        SyncGuard const guard(mQueueLock);
        if (mLoopEnded || !announceRequest(event, MSG_ID_CTL_WAKE)) {
            return false;
        }
    }
    waitUntilOff(event);
    return true;
}

// The walk over the queues, on the message thread and under mQueueLock.

bool MsgDrivenThread::hasFrame(ThreadCtlMsg const& entry) {
    return !isDead(entry) && (entry.mMsgId == MSG_ID_CTL_SYNC || isDataMsgId(entry.mMsgId));
}

// The part of the data queue that control entries account for.
unsigned int MsgDrivenThread::announcedBytes() const {
    unsigned int const strayBytes = mStrayFrames * mScanMsg.maxSize();
    return mDataQueue.size() > strayBytes ? mDataQueue.size() - strayBytes : 0;
}

// Brings the frame at `offset` of the data queue into mScanMsg, as much of it as is there.
bool MsgDrivenThread::scanFrame(unsigned int offset) {
    unsigned int const end = announcedBytes();
    if (offset >= end) {
        return false;
    }
    unsigned int const rest = end - offset;
    unsigned int const size = mScanMsg.maxSize();
    return mDataQueue.copyOut(offset, mScanMsg.buffer(), rest < size ? rest : size);
}

bool MsgDrivenThread::scanTimer(int timerId) {
    TimerMsg msg;
    msg.mTimerId = timerId;
    return msg.storeTo(&mScanMsg) != 0;
}

bool MsgDrivenThread::executeFindMsg(MsgJudgementInterface* judgement, ThreadRawMsg* out) {
    SyncGuard const guard(mQueueLock);
    if (judgement == nullptr) {
        return false;
    }
    unsigned int offset = 0;
    unsigned int const count = mCtlQueue.size();
    for (unsigned int i = 0; i < count; ++i) {
        ThreadCtlMsg const* const entry = mCtlQueue.elementAt(i);
        if (entry == nullptr) {
            break;
        }
        unsigned int const place = offset;
        offset += hasFrame(*entry) ? mScanMsg.maxSize() : 0;
        if (scanForFind(*entry, place) && judgement->judge(mScanMsg)) {
            if (out != nullptr) {
                *out = mScanMsg;
            }
            return true;
        }
    }
    return false;
}

bool MsgDrivenThread::scanForFind(ThreadCtlMsg const& entry, unsigned int offset) {
    if (isDead(entry)) {
        return false;
    }
    if (entry.mMsgId == MSG_ID_CTL_TIMEOUT) {
        if (scanTimer(entry.mParam)) {
            return true;
        }
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread::executeFindMsg(): Can't store message. Line=%d", __LINE__);
    } else if (hasFrame(entry)) {
        if (scanFrame(offset)) {
            return true;
        }
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread::executeFindMsg(): Peek Data Queue fail. Line=%d MsgId=%d", __LINE__,
               entry.mMsgId);
    }
    return false;
}

// A scan for erasure, under mQueueLock. What it takes out is a gap in both queues until somebody else looks
// at them. Whoever does so takes the lock first, and only the scan's own thread gets it: for a question or an
// erasure of a judgement, or for a step of a timer.
struct MsgDrivenThread::EraseWalk {
    explicit EraseWalk(MsgDrivenThread& thread)
        : mEntries(thread.mCtlQueue), mFrames(thread.mDataQueue), mLock(thread.mQueueLock) {
        tInnermost = this;
        mWalks.fetch_add(1, std::memory_order_relaxed);
    }
    ~EraseWalk() {
        mWalks.fetch_sub(1, std::memory_order_relaxed);
        tInnermost = mOuter;
    }
    EraseWalk(EraseWalk const&) = delete;
    EraseWalk& operator=(EraseWalk const&) = delete;

    void pass(unsigned int frameBytes) {
        mEntries.pass(1);
        mFrames.pass(frameBytes);
    }

    // False, with nothing changed, unless both places are in use.
    bool take(unsigned int frameBytes) {
        return mFrames.next() != nullptr && mEntries.take(1) && mFrames.take(frameBytes);
    }

    // In the whole process. Nearly always false, and cheaper to ask than whether this thread is in a walk.
    static bool isAnyUnderWay() { return mWalks.load(std::memory_order_relaxed) != 0; }

    // Those of this thread.
    static void closeAllUnder(SyncObject const& lock) {
        for (EraseWalk* walk = tInnermost; walk != nullptr; walk = walk->mOuter) {
            if (&walk->mLock == &lock) {
                walk->close();
            }
        }
    }

    QueueGap<ThreadCtlMsg> mEntries;
    QueueGap<unsigned char> mFrames;
    bool mFramesAreUnseen = false;  // nobody looks at more than the control entries
    int mEndedTimer = NO_TIMER_ID;

  private:
    void close() {
        mEntries.close();
        if (!mFramesAreUnseen) {
            mFrames.close();
        }
    }

    static thread_local EraseWalk* tInnermost;
    static std::atomic<unsigned int> mWalks;

    SyncObject const& mLock;
    EraseWalk* const mOuter = tInnermost;
};

thread_local MsgDrivenThread::EraseWalk* MsgDrivenThread::EraseWalk::tInnermost = nullptr;
std::atomic<unsigned int> MsgDrivenThread::EraseWalk::mWalks{0};

int MsgDrivenThread::QueueLock::lock() const {
    int const result = SyncObject::lock();
    if (EraseWalk::isAnyUnderWay()) {
        EraseWalk::closeAllUnder(*this);
    }
    return result;
}

bool MsgDrivenThread::executeEraseMsg(MsgJudgementInterface* judgement) {
    if (judgement == nullptr) {
        return false;
    }
    EraseStep step = EraseStep::ENDED_TIMER;
    while (step == EraseStep::ENDED_TIMER) {
        int endedTimer = NO_TIMER_ID;
        step = eraseMatches(*judgement, &endedTimer);
        if (endedTimer != NO_TIMER_ID) {
            onEraseTimer(endedTimer);
        }
    }
    return step == EraseStep::GOES_ON;
}

// The hook for a timer that ended runs without the lock, and may change the queues: the scan starts again
// then.
MsgDrivenThread::EraseStep MsgDrivenThread::eraseMatches(MsgJudgementInterface& judgement, int* endedTimer) {
    SyncGuard const guard(mQueueLock);
    EraseWalk walk(*this);
    EraseStep step = EraseStep::GOES_ON;
    for (unsigned int left = mCtlQueue.size(); left != 0 && step == EraseStep::GOES_ON; --left) {
        ThreadCtlMsg const* const entry = walk.mEntries.next();
        if (entry == nullptr) {
            break;
        }
        step = eraseIfMatching(*entry, judgement, walk);
    }
    *endedTimer = walk.mEndedTimer;
    return step;
}

MsgDrivenThread::EraseStep MsgDrivenThread::eraseIfMatching(ThreadCtlMsg entry,
                                                            MsgJudgementInterface& judgement,
                                                            EraseWalk& walk) {
    if (isDead(entry)) {
        walk.pass(0);
        return EraseStep::GOES_ON;
    }
    if (entry.mMsgId == MSG_ID_CTL_TIMEOUT) {
        return eraseTimeoutIfMatching(entry.mParam, judgement, walk);
    }
    if (entry.mMsgId == MSG_ID_CTL_SYNC) {
        return eraseSyncIfMatching(judgement, walk);
    }
    if (isDataMsgId(entry.mMsgId)) {
        return erasePostedIfMatching(entry.mMsgId, judgement, walk);
    }
    walk.pass(0);
    return EraseStep::GOES_ON;
}

// An erased timeout counts as one that fired. What happens then to its timer may take further entries out,
// but looks at no frame.
MsgDrivenThread::EraseStep MsgDrivenThread::eraseTimeoutIfMatching(int timerId,
                                                                   MsgJudgementInterface& judgement,
                                                                   EraseWalk& walk) {
    if (!scanTimer(timerId)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread::executeEraseMsg(): Can't store message. Line=%d", __LINE__);
        return EraseStep::FAILED;
    }
    if (!judgement.judge(mScanMsg)) {
        walk.pass(0);
        return EraseStep::GOES_ON;
    }
    if (!walk.mEntries.take(1)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread::executeEraseMsg(): Erase Ctl Queue fail. Line=%d", __LINE__);
        return EraseStep::FAILED;
    }
    walk.mFramesAreUnseen = true;
    int const handling = TimeoutPostHandling(timerId);
    walk.mFramesAreUnseen = false;
    if (handling == TIMEOUT_FINISHED) {
        walk.mEndedTimer = timerId;
        return EraseStep::ENDED_TIMER;
    }
    return EraseStep::GOES_ON;
}

MsgDrivenThread::EraseStep MsgDrivenThread::eraseSyncIfMatching(MsgJudgementInterface& judgement,
                                                                EraseWalk& walk) {
    unsigned int const size = mScanMsg.maxSize();
    if (!scanFrame(walk.mFrames.place())) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread::executeEraseMsg(): Peek Data Queue fail. Line=%d", __LINE__);
        return EraseStep::FAILED;
    }
    if (!judgement.judge(mScanMsg)) {
        walk.pass(size);
        return EraseStep::GOES_ON;
    }
    if (!walk.take(size)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread::executeEraseMsg(): Erase Queue fail. Line=%d", __LINE__);
        return EraseStep::FAILED;
    }
    mSyncEvent.setOff();
    return EraseStep::GOES_ON;
}

MsgDrivenThread::EraseStep MsgDrivenThread::erasePostedIfMatching(int msgId, MsgJudgementInterface& judgement,
                                                                  EraseWalk& walk) {
    unsigned int const size = mScanMsg.maxSize();
    if (!scanFrame(walk.mFrames.place())) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread::executeEraseMsg(): Peek Data Queue fail. Line=%d MsgId=%d", __LINE__, msgId);
        return EraseStep::FAILED;
    }
    int frameId = MSG_ID_NONE;
    mScanMsg.getMsgId(&frameId);
    if (frameId != msgId) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread::executeEraseMsg(): Data Queue is different from Ctl Queue . Line=%d "
               "MsgId(Ctl)=%d "
               "MsgId(Data)=%d ",
               __LINE__, msgId, frameId);
        return EraseStep::FAILED;
    }
    if (!judgement.judge(mScanMsg)) {
        walk.pass(size);
        return EraseStep::GOES_ON;
    }
    if (!walk.take(size)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread::executeEraseMsg(): erase Data Queue fail. Line=%d", __LINE__);
        return EraseStep::FAILED;
    }
    return EraseStep::GOES_ON;
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

#include "internal/message/UtlMsgQueueSteps.h"

#include <climits>

#include "UtlLog.h"
#include "internal/message/UtlTokenPipe.h"

namespace utl {

namespace {

// The parameter of a dead entry.
constexpr int DEAD_PARAM = INT_MIN;

}  // namespace

bool MsgDrivenThread::QueueSteps::isDead(ThreadCtlMsg const& entry) {
    return entry.mParam == DEAD_PARAM;
}

bool MsgDrivenThread::QueueSteps::hasFrame(ThreadCtlMsg const& entry) {
    return !isDead(entry) && (entry.mMsgId == MSG_ID_CTL_SYNC || isDataMsgId(entry.mMsgId));
}

bool MsgDrivenThread::QueueSteps::flatten(Msg const& msg) {
    if (msg.storeTo(&mThread.mSendMsg) != 0) {
        return true;
    }
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
           "MsgDrivenThread(%s) Overflow MsgSize  MaxSize(include MsgId):%d MsgId:0x%08x",
           mThread.getName().buffer(), static_cast<int>(mThread.mSendMsg.maxSize()),
           static_cast<unsigned int>(msg.getMsgId()));
    return false;
}

// The first message of a burst that is refused is an error; the others are details.
bool MsgDrivenThread::QueueSteps::pushFrame(Queue<unsigned char>& frames, int msgId, int ctlId) {
    if (frames.pushBack(mThread.mSendMsg.buffer(), mThread.mSendMsg.maxSize())) {
        return true;
    }
    if (&frames == &mThread.mDataQueue && mThread.mStrayFrames != 0 && hasRoomForEntry()) {
        discardUnannounced(0, ctlId);
        return pushFrame(frames, msgId, ctlId);
    }
    applog(LOG_TYPE_LIBRARY, mThread.mDataOverflowLogged.exchange(true) ? LOG_LEVEL_DETAIL : LOG_LEVEL_ERROR,
           "MsgDrivenThread(%s) Overflow MsgDataQueue  MaxCount:%d MsgId:0x%08x", mThread.getName().buffer(),
           static_cast<int>(mThread.mMaxMsgCount), static_cast<unsigned int>(msgId));
    return false;
}

bool MsgDrivenThread::QueueSteps::isCtlQueueFull() const {
    return mThread.mCtlQueue.size() >= mThread.mCtlQueue.maxSize();
}

bool MsgDrivenThread::QueueSteps::hasRoomForEntry() const {
    return !isCtlQueueFull() && hasRoomForToken(mThread.mPipe[1]);
}

bool MsgDrivenThread::QueueSteps::makeRoomForEntry(int msgId) {
    int const writeEnd = mThread.mPipe[1];
    while (isCtlQueueFull() && hasDeadHead()) {
        mThread.mCtlQueue.removeAt(0, 1);
    }
    if (isCtlQueueFull()) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread(%s) Overflow ThreadCtlMsgQueue  MaxCount:%d MsgId:0x%08x",
               mThread.getName().buffer(), static_cast<int>(mThread.mCtlQueue.maxSize()),
               static_cast<unsigned int>(msgId));
        return false;
    }
    if (!reserveToken(writeEnd)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread(%s) Overflow Pipe  MaxCount:%d MsgId:0x%08x", mThread.getName().buffer(),
               static_cast<int>(tokenCapacity(writeEnd)), static_cast<unsigned int>(msgId));
        return false;
    }
    return true;
}

bool MsgDrivenThread::QueueSteps::pushEntry(int msgId, int param) {
    ThreadCtlMsg entry;
    entry.mMsgId = msgId;
    entry.mParam = param;
    mThread.mCtlQueue.pushBack(entry);
    TokenIo const io = writeReservedToken(mThread.mPipe[1], {msgId, param});
    if (!io.isWhole()) {
        mThread.mCtlQueue.removeLast(1);
        entry.mParam = DEAD_PARAM;
        mThread.mCtlQueue.pushBack(entry);
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread(%s)::postThreadCtlMsg() Error. write Ret:%u errno:%d",
               mThread.getName().buffer(), io.mRet, io.mErrno);
    }
    return io.isWhole();
}

bool MsgDrivenThread::QueueSteps::hasDeadHead() const {
    ThreadCtlMsg const* const head = mThread.mCtlQueue.elementAt(0);
    return head != nullptr && isDead(*head);
}

// A wake entry whose request has been answered.
bool MsgDrivenThread::QueueSteps::hasAnsweredHead() const {
    ThreadCtlMsg const* const head = mThread.mCtlQueue.elementAt(0);
    return head != nullptr && head->mMsgId == MSG_ID_CTL_WAKE && !mThread.mIsRequested;
}

void MsgDrivenThread::QueueSteps::keepUnannounced() {
    if (mThread.mStrayFrames == UCHAR_MAX) {
        mThread.mDataQueue.removeLast(mThread.mSendMsg.maxSize());
    } else {
        ++mThread.mStrayFrames;
    }
}

void MsgDrivenThread::QueueSteps::discardUnannounced(unsigned int bytesAfter, int ctlId) {
    Queue<unsigned char>& frames = mThread.mDataQueue;
    unsigned int const size = mThread.mScanMsg.maxSize();
    for (; mThread.mStrayFrames != 0; --mThread.mStrayFrames) {
        unsigned int const offset = frames.size() - bytesAfter - mThread.mStrayFrames * size;
        if (frames.copyOut(offset, mThread.mScanMsg.buffer(), size)) {
            frames.removeAt(offset, size);
            reportDiscarded(mThread.mScanMsg, ctlId);
        }
    }
}

void MsgDrivenThread::QueueSteps::reportDiscarded(ThreadRawMsg& frame, int ctlId) {
    int frameId = -1;
    frame.getMsgId(&frameId);
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
           "!!!!!!!! MsgDrivenThread(%s) MismatchedMsg... DataQueueMsgId:0x%08x CtlMsgId:0x%08x Erased "
           "Data !!!!!!!!",
           mThread.getName().buffer(), static_cast<unsigned int>(frameId), static_cast<unsigned int>(ctlId));
}

// Entries that nobody waits for would stay at the head permanently.
bool MsgDrivenThread::QueueSteps::peekHead(ThreadCtlMsg* head) {
    while (hasDeadHead() || hasAnsweredHead()) {
        mThread.mCtlQueue.removeAt(0, 1);
    }
    ThreadCtlMsg const* const first = mThread.mCtlQueue.elementAt(0);
    if (first == nullptr) {
        return false;
    }
    *head = *first;
    return true;
}

bool MsgDrivenThread::QueueSteps::popFrame(Queue<unsigned char>& frames) {
    bool const isUnannounced = &frames == &mThread.mDataQueue && announcedBytes() == 0;
    frames.popFrontInto(mThread.mReceiveMsg.buffer(), mThread.mReceiveMsg.maxSize());
    if (isUnannounced) {
        --mThread.mStrayFrames;
    }
    return !isUnannounced;
}

bool MsgDrivenThread::QueueSteps::popFrameOf(int ctlId, Queue<ThreadCtlMsg>& entries,
                                             Queue<unsigned char>& frames) {
    while (entries.size() != 0 && frames.size() != 0) {
        bool const isAnnounced = popFrame(frames);
        int frameId = -1;
        mThread.mReceiveMsg.getMsgId(&frameId);
        if (isAnnounced && (ctlId == MSG_ID_CTL_SYNC || frameId == ctlId)) {
            entries.removeAt(0, 1);
            return true;
        }
        reportDiscarded(mThread.mReceiveMsg, ctlId);
    }
    return false;
}

unsigned int MsgDrivenThread::QueueSteps::announcedBytes() const {
    unsigned int const unannounced = mThread.mStrayFrames * mThread.mScanMsg.maxSize();
    return mThread.mDataQueue.size() > unannounced ? mThread.mDataQueue.size() - unannounced : 0;
}

}  // namespace utl

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

bool MsgDrivenThread::QueueSteps::flatten(MsgDrivenThread& thread, Msg const& msg) {
    if (msg.storeTo(&thread.mSendMsg) != 0) {
        return true;
    }
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
           "MsgDrivenThread(%s) Overflow MsgSize  MaxSize(include MsgId):%d MsgId:0x%08x",
           thread.getName().buffer(), static_cast<int>(thread.mSendMsg.maxSize()),
           static_cast<unsigned int>(msg.getMsgId()));
    return false;
}

// The first message of a burst that is refused is an error; the others are details.
bool MsgDrivenThread::QueueSteps::pushFrame(MsgDrivenThread& thread, Queue<unsigned char>& frames, int msgId,
                                            int ctlId) {
    if (frames.pushBack(thread.mSendMsg.buffer(), thread.mSendMsg.maxSize())) {
        return true;
    }
    if (&frames == &thread.mDataQueue && thread.mUnannouncedFrames != 0 && hasRoomForEntry(thread)) {
        discardUnannounced(thread, 0, ctlId);
        return pushFrame(thread, frames, msgId, ctlId);
    }
    applog(LOG_TYPE_LIBRARY, thread.mDataOverflowLogged.exchange(true) ? LOG_LEVEL_DETAIL : LOG_LEVEL_ERROR,
           "MsgDrivenThread(%s) Overflow MsgDataQueue  MaxCount:%d MsgId:0x%08x", thread.getName().buffer(),
           static_cast<int>(thread.mMaxMsgCount), static_cast<unsigned int>(msgId));
    return false;
}

bool MsgDrivenThread::QueueSteps::isCtlQueueFull(MsgDrivenThread const& thread) {
    return thread.mCtlQueue.size() >= thread.mCtlQueue.maxSize();
}

bool MsgDrivenThread::QueueSteps::hasRoomForEntry(MsgDrivenThread const& thread) {
    return !isCtlQueueFull(thread) && hasRoomForToken(thread.mPipe[1]);
}

bool MsgDrivenThread::QueueSteps::postEntry(MsgDrivenThread& thread, int msgId, int param) {
    return makeRoomForEntry(thread, msgId) && pushEntry(thread, msgId, param);
}

bool MsgDrivenThread::QueueSteps::makeRoomForEntry(MsgDrivenThread& thread, int msgId) {
    int const writeEnd = thread.mPipe[1];
    while (isCtlQueueFull(thread) && hasDeadHead(thread)) {
        thread.mCtlQueue.popFront();
    }
    if (isCtlQueueFull(thread)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread(%s) Overflow ThreadCtlMsgQueue  MaxCount:%d MsgId:0x%08x",
               thread.getName().buffer(), static_cast<int>(thread.mCtlQueue.maxSize()),
               static_cast<unsigned int>(msgId));
        return false;
    }
    if (!reserveToken(writeEnd)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread(%s) Overflow Pipe  MaxCount:%d MsgId:0x%08x", thread.getName().buffer(),
               static_cast<int>(tokenCapacity(writeEnd)), static_cast<unsigned int>(msgId));
        return false;
    }
    return true;
}

bool MsgDrivenThread::QueueSteps::pushEntry(MsgDrivenThread& thread, int msgId, int param) {
    ThreadCtlMsg entry;
    entry.mMsgId = msgId;
    entry.mParam = param;
    thread.mCtlQueue.pushBack(entry);
    TokenIo const io = writeReservedToken(thread.mPipe[1], {msgId, param});
    if (!io.isWhole()) {
        thread.mCtlQueue.removeLast(1);
        entry.mParam = DEAD_PARAM;
        thread.mCtlQueue.pushBack(entry);
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread(%s)::postThreadCtlMsg() Error. write Ret:%u errno:%d",
               thread.getName().buffer(), io.mRet, io.mErrno);
    }
    return io.isWhole();
}

bool MsgDrivenThread::QueueSteps::hasDeadHead(MsgDrivenThread const& thread) {
    ThreadCtlMsg const* const head = thread.mCtlQueue.elementAt(0);
    return head != nullptr && isDead(*head);
}

// A wake entry whose request has been answered.
bool MsgDrivenThread::QueueSteps::hasAnsweredHead(MsgDrivenThread const& thread) {
    ThreadCtlMsg const* const head = thread.mCtlQueue.elementAt(0);
    return head != nullptr && head->mMsgId == MSG_ID_CTL_WAKE && !thread.mIsRequested;
}

void MsgDrivenThread::QueueSteps::keepUnannounced(MsgDrivenThread& thread) {
    if (thread.mUnannouncedFrames == UCHAR_MAX) {
        thread.mDataQueue.removeLast(thread.mSendMsg.maxSize());
    } else {
        ++thread.mUnannouncedFrames;
    }
}

void MsgDrivenThread::QueueSteps::discardUnannounced(MsgDrivenThread& thread, unsigned int bytesAfter,
                                                     int ctlId) {
    Queue<unsigned char>& frames = thread.mDataQueue;
    unsigned int const size = thread.mScanMsg.maxSize();
    for (; thread.mUnannouncedFrames != 0; --thread.mUnannouncedFrames) {
        unsigned int const offset = frames.size() - bytesAfter - thread.mUnannouncedFrames * size;
        if (frames.copyOut(offset, thread.mScanMsg.buffer(), size)) {
            frames.removeAt(offset, size);
            reportDiscarded(thread, thread.mScanMsg, ctlId);
        }
    }
}

void MsgDrivenThread::QueueSteps::reportDiscarded(MsgDrivenThread const& thread, ThreadRawMsg& frame,
                                                  int ctlId) {
    int frameId = -1;
    frame.getMsgId(&frameId);
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
           "!!!!!!!! MsgDrivenThread(%s) MismatchedMsg... DataQueueMsgId:0x%08x CtlMsgId:0x%08x Erased "
           "Data !!!!!!!!",
           thread.getName().buffer(), static_cast<unsigned int>(frameId), static_cast<unsigned int>(ctlId));
}

// Entries that nobody waits for would stay at the head permanently.
bool MsgDrivenThread::QueueSteps::peekHead(MsgDrivenThread& thread, ThreadCtlMsg* head) {
    while (hasDeadHead(thread) || hasAnsweredHead(thread)) {
        thread.mCtlQueue.popFront();
    }
    ThreadCtlMsg const* const first = thread.mCtlQueue.elementAt(0);
    if (first == nullptr) {
        return false;
    }
    *head = *first;
    return true;
}

bool MsgDrivenThread::QueueSteps::popFrame(MsgDrivenThread& thread, Queue<unsigned char>& frames) {
    bool const isUnannounced = &frames == &thread.mDataQueue && announcedBytes(thread) == 0;
    frames.popFrontInto(thread.mReceiveMsg.buffer(), thread.mReceiveMsg.maxSize());
    if (isUnannounced) {
        --thread.mUnannouncedFrames;
    }
    return !isUnannounced;
}

bool MsgDrivenThread::QueueSteps::popFrameOf(MsgDrivenThread& thread, int ctlId, Queue<ThreadCtlMsg>& entries,
                                             Queue<unsigned char>& frames) {
    while (entries.size() != 0 && frames.size() != 0) {
        bool const isAnnounced = popFrame(thread, frames);
        int frameId = -1;
        thread.mReceiveMsg.getMsgId(&frameId);
        if (isAnnounced && (ctlId == MSG_ID_CTL_SYNC || frameId == ctlId)) {
            entries.popFront();
            return true;
        }
        reportDiscarded(thread, thread.mReceiveMsg, ctlId);
    }
    return false;
}

unsigned int MsgDrivenThread::QueueSteps::announcedBytes(MsgDrivenThread const& thread) {
    unsigned int const unannounced = thread.mUnannouncedFrames * thread.mScanMsg.maxSize();
    return thread.mDataQueue.size() > unannounced ? thread.mDataQueue.size() - unannounced : 0;
}

}  // namespace utl

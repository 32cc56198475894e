#include "UtlMsgDrivenThread.h"

#include <climits>
#include <new>

#include "UtlLog.h"
#include "UtlThreadManager.h"
#include "internal/message/UtlMsgLoopSteps.h"
#include "internal/message/UtlMsgQueueSteps.h"
#include "internal/message/UtlMsgRequestSteps.h"
#include "internal/message/UtlMsgTimerSteps.h"
#include "internal/message/UtlSystemTimer.h"
#include "internal/message/UtlTokenPipe.h"

namespace utl {

namespace {

// A count that does not fit becomes the largest there is.
unsigned int clippedSize(unsigned long long size) {
    return size < UINT_MAX ? static_cast<unsigned int>(size) : UINT_MAX;
}

// The bytes of a frame. A frame that is too large throws what the allocator throws.
unsigned int frameSize(unsigned int maxMsgSize) {
    if (maxMsgSize > UINT_MAX - ThreadRawMsg::ID_BYTES) {
        throw std::bad_alloc();
    }
    return maxMsgSize + ThreadRawMsg::ID_BYTES;
}

// The bytes of all frames, which throw in the same way if they are too many.
unsigned int frameBytes(unsigned int size, unsigned int count) {
    return size * detail::checkedRingCount(count, size);
}

}  // namespace

ThreadMsgListener::~ThreadMsgListener() = default;

MsgDrivenThread::MsgDrivenThread(unsigned int maxMsgSize, unsigned int maxMsgCount, char const* name,
                                 unsigned int maxTimerCount)
    : Thread(name, nullptr),
      mMaxMsgCount(maxMsgCount),
      mCtlQueue(clippedSize(1ULL * maxMsgCount + EXTRA_CTL_ENTRIES)),
      mDataQueue(frameBytes(frameSize(maxMsgSize), maxMsgCount)),
      mLoopEnded(false),
      mStartSucceeded(false),
      mIsRequested(false),
      mInterruptQueue(frameSize(maxMsgSize)),
      mSendMsg(frameSize(maxMsgSize)),
      mReceiveMsg(frameSize(maxMsgSize)),
      mScanMsg(frameSize(maxMsgSize)),
      mInterruptEvent(0, 1),
      mSyncEvent(0, 1),
      mEraseEvent(0, 1),
      mFindEvent(0, 1),
      mTimers(maxTimerCount, 0),
      mStopTimers(maxTimerCount, 0),
      mPipe{} {
    int const error =
        openTokenPipe(mPipe, clippedSize(mCtlQueue.maxSize() + 1ULL * maxTimerCount * TIMER_TOKENS_MAX));
    if (error != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "MsgDrivenThread(%s) pipe errno:%d", getName().buffer(),
               error);
    }
    TimerSteps::installSignalHandler();
}

MsgDrivenThread::~MsgDrivenThread() {
    abandonLoop();
}

// A second call finds no pipe and no loop.
void MsgDrivenThread::abandonLoop() {
    ClosingTokenPipe const pipe(mPipe);
    if (hasDone(STARTED) && !isOwnThread()) {
        pipe.wakeReader();
        waitForEnd();
        eraseAllTimer();  // of a loop that a handler left by pthread_exit
    }
}

bool MsgDrivenThread::isOwnThread() const {
    return ThreadManager::getCallerId() == getId();
}

int MsgDrivenThread::start(ThreadMsgListener* listener, int watchdog, unsigned int aliveTime,
                           WatchdogTimerListener* watchdogListener, int waitReady, unsigned int waitTimeout,
                           ThreadPriority const& priority, unsigned int reserved) {
    if (isOwnThread()) {
        return -1;
    }
    SyncGuard const guard(mLifecycleLock);
    if (listener == nullptr || mListener != nullptr) {
        return -1;
    }
    mListener = listener;
    int const result =
        Thread::start(watchdog, aliveTime, watchdogListener, waitReady, waitTimeout, priority, reserved);
    if (!hasDone(STARTED)) {
        waitForEnd();  // of an unregistered thread, which ends at once
    }
    return result;
}

int MsgDrivenThread::stop(int wait, unsigned int timeout) {
    if (isOwnThread()) {
        return -1;
    }
    SyncGuard const guard(mLifecycleLock);
    return Thread::stop(wait, timeout);
}

// The loop obeys the stop token even if it has no entry, for want of a place or after a failed write. A pipe
// without room has enough tokens: the next one ends the loop.
void MsgDrivenThread::requestStop() {
    SyncGuard const guard(mQueueLock);
    int const writeEnd = mPipe[1];
    if (hasRoomForToken(writeEnd) && postThreadCtlMsg(MSG_ID_CTL_STOP, -1) != 0) {
        return;
    }
    if (reserveToken(writeEnd)) {
        writeReservedToken(writeEnd, {MSG_ID_CTL_STOP, -1});
    } else {
        mStopsAtAnyToken = true;
    }
}

bool MsgDrivenThread::acceptsMsg() const {
    return isRunning() && !hasRequestedStop();
}

int MsgDrivenThread::postMsg(int msgId) {
    return postMsg(SimpleMsg(msgId));
}

// A `stop` that waits holds the same lock, so a post from outside comes before the stop or fails. The thread
// itself must not wait for the lock, because the stop waits for the thread.
int MsgDrivenThread::postMsg(Msg const& msg) {
    if (!acceptsMsg()) {
        return 0;
    }
    if (isOwnThread()) {
        return sendMsgAsync(msg);
    }
    SyncGuard const guard(mLifecycleLock);
    return acceptsMsg() ? sendMsgAsync(msg) : 0;
}

int MsgDrivenThread::sendMsgAsync(Msg const& msg) {
    SyncGuard const guard(mQueueLock);
    if (!QueueSteps::flatten(*this, msg) ||
        !QueueSteps::pushFrame(*this, mDataQueue, msg.getMsgId(), msg.getMsgId())) {
        return 0;
    }
    if (!QueueSteps::postEntry(*this, msg.getMsgId(), -1)) {
        mDataQueue.removeLast(mSendMsg.maxSize());
        return 0;
    }
    QueueSteps::discardUnannounced(*this, mSendMsg.maxSize(), msg.getMsgId());
    return 1;
}

int MsgDrivenThread::sendMsgSync(int msgId) {
    return sendMsgSync(SimpleMsg(msgId));
}

int MsgDrivenThread::sendMsgSync(Msg const& msg) {
    return RequestSteps(*this).sendSync(msg);
}

int MsgDrivenThread::sendMsgInterrupt(int msgId) {
    return sendMsgInterrupt(SimpleMsg(msgId));
}

int MsgDrivenThread::sendMsgInterrupt(Msg const& msg) {
    return RequestSteps(*this).sendInterrupt(msg);
}

int MsgDrivenThread::postThreadCtlMsg(int msgId, int param) {
    SyncGuard const guard(mQueueLock);
    return QueueSteps::postEntry(*this, msgId, param) ? 1 : 0;
}

bool MsgDrivenThread::isDataMsgId(int msgId) {
    switch (msgId) {
        case MSG_ID_NONE:
        case MSG_ID_ANY:
        case MSG_ID_CTL_WAKE:
        case MSG_ID_CTL_SYNC:
        case MSG_ID_CTL_START_TIMER:
        case MSG_ID_CTL_STOP_TIMER:
        case MSG_ID_CTL_TIMEOUT:
        case MSG_ID_CTL_STOP:
        case MSG_ID_TIMEOUT_SIGNAL:
            return false;
        default:
            return true;
    }
}

// On the message thread, from here to the end.

int MsgDrivenThread::execute() {
    LoopSteps loop(*this);
    // A thread that could not be registered has no id, and nobody could stop it.
    int const result = getId() != 0 ? loop.run() : -1;
    leaveWatchdog();
    loop.leave();
    return result;
}

void MsgDrivenThread::restoreSize(ThreadRawMsg& msg, unsigned int size) {
    if (msg.maxSize() != size) {
        msg = ThreadRawMsg(size);
    }
}

int MsgDrivenThread::executeReceiveMsg(Queue<ThreadCtlMsg>& ctl, Queue<unsigned char>& data) {
    return executeReceiveMsg(ctl, data, MSG_ID_CTL_SYNC);
}

int MsgDrivenThread::executeReceiveMsg(Queue<ThreadCtlMsg>& ctl, Queue<unsigned char>& data, int msgId) {
    return LoopSteps(*this).receiveFrameOf(msgId, &ctl, &data);
}

int MsgDrivenThread::executeReceiveMsg(Queue<unsigned char>& data) {
    return LoopSteps(*this).receiveFirst(&data);
}

}  // namespace utl

#include "UtlMsgDrivenThread.h"

#include <climits>
#include <new>

#include "UtlLog.h"
#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"
#include "internal/message/UtlSystemTimer.h"
#include "internal/message/UtlTokenPipe.h"
#include "internal/thread/UtlKeepAlive.h"
#include "internal/time/UtlEventWait.h"

namespace utl {

namespace {

// Places in the control queue beyond one for each frame, so that stop, timer and wake entries get through
// when the data queue is full.
constexpr unsigned int EXTRA_CTL_ENTRIES = 256;

constexpr unsigned int ID_BYTES = 4;

// The parameter of an entry whose token could not be written.
constexpr int DEAD_PARAM = INT_MIN;

// A count that does not fit becomes the largest there is.
unsigned int clippedSize(unsigned long long size) {
    return size < UINT_MAX ? static_cast<unsigned int>(size) : UINT_MAX;
}

// A frame, with what the allocator throws where it is too large.
unsigned int frameSize(unsigned int maxMsgSize) {
    if (maxMsgSize > UINT_MAX - ID_BYTES) {
        throw std::bad_alloc();
    }
    return maxMsgSize + ID_BYTES;
}

// All frames, with what the allocator throws where they are too many.
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
    installTimeoutSignalHandler();
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

// The loop obeys the stop token even where no entry stands behind it, for want of a place or after a failed
// write. A pipe without room has tokens enough: the next one will do.
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

// A `stop` that waits holds the same lock, so that a post from outside comes before the stop or fails. The
// thread itself must not wait for it: the stop waits for the thread.
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
    if (!flatten(msg) || !queueFrame(mDataQueue, msg.getMsgId(), msg.getMsgId())) {
        return 0;
    }
    if (postThreadCtlMsg(msg.getMsgId(), -1) == 0) {
        mDataQueue.removeLast(mSendMsg.maxSize());
        return 0;
    }
    discardStrays(mSendMsg.maxSize(), msg.getMsgId());
    return 1;
}

int MsgDrivenThread::sendMsgSync(int msgId) {
    return sendMsgSync(SimpleMsg(msgId));
}

int MsgDrivenThread::sendMsgSync(Msg const& msg) {
    return sendAndWait(msg, {mSyncLock, mSyncEvent, mSyncResult, mDataQueue, MSG_ID_CTL_SYNC});
}

int MsgDrivenThread::sendMsgInterrupt(int msgId) {
    return sendMsgInterrupt(SimpleMsg(msgId));
}

int MsgDrivenThread::sendMsgInterrupt(Msg const& msg) {
    return sendAndWait(msg,
                       {mInterruptLock, mInterruptEvent, mInterruptResult, mInterruptQueue, MSG_ID_CTL_WAKE});
}

int MsgDrivenThread::sendAndWait(Msg const& msg, WaitingSend const& send) {
    if (!acceptsMsg() || isOwnThread()) {
        return 0;
    }
    SyncGuard const guard(send.mLock);
    send.mResult = false;
    if (!queueRequest(msg, send)) {
        return 0;
    }
    waitUntilOff(send.mEvent);
    return send.mResult ? 1 : 0;
}

bool MsgDrivenThread::queueRequest(Msg const& msg, WaitingSend const& send) {
    SyncGuard const guard(mQueueLock);
    if (mLoopEnded || hasRequestedStop() || !flatten(msg)) {
        return false;
    }
    bool const isSync = &send.mFrames == &mDataQueue;
    if (!isSync) {
        mInterruptQueue.clear();
    }
    if (!queueFrame(send.mFrames, msg.getMsgId(), send.mCtlId)) {
        return false;
    }
    bool const isAnnounced = announceRequest(send.mEvent, send.mCtlId);
    if (isSync && isAnnounced) {
        discardStrays(mSendMsg.maxSize(), send.mCtlId);
    } else if (isSync) {
        leaveStray();
    }
    return isAnnounced;
}

// Under mQueueLock, for a synchronous sender who could not announce its frame. The frame stays, for the line
// that tells of it; beyond what is counted it goes.
void MsgDrivenThread::leaveStray() {
    if (mStrayFrames == UCHAR_MAX) {
        mDataQueue.removeLast(mSendMsg.maxSize());
    } else {
        ++mStrayFrames;
    }
}

// Under mQueueLock, when the frame of the last `bytesBehind` bytes has been queued. No entry accounts for the
// strays in front of it, so nobody must come to take them for messages.
void MsgDrivenThread::discardStrays(unsigned int bytesBehind, int ctlId) {
    unsigned int const size = mScanMsg.maxSize();
    for (; mStrayFrames != 0; --mStrayFrames) {
        unsigned int const offset = mDataQueue.size() - bytesBehind - mStrayFrames * size;
        if (mDataQueue.copyOut(offset, mScanMsg.buffer(), size)) {
            mDataQueue.removeAt(offset, size);
            reportDiscarded(mScanMsg, ctlId);
        }
    }
}

void MsgDrivenThread::reportDiscarded(ThreadRawMsg& frame, int ctlId) {
    int frameId = -1;
    frame.getMsgId(&frameId);
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
           "!!!!!!!! MsgDrivenThread(%s) MismatchedMsg... DataQueueMsgId:0x%08x CtlMsgId:0x%08x Erased "
           "Data !!!!!!!!",
           getName().buffer(), static_cast<unsigned int>(frameId), static_cast<unsigned int>(ctlId));
}

// Event and entry appear together for the loop, which looks at the event under the same lock.
bool MsgDrivenThread::announceRequest(Event& event, int ctlId) {
    event.setOn();
    mIsRequested = true;
    if (postThreadCtlMsg(ctlId, -1) == 0) {
        event.setOff();
        return false;
    }
    return true;
}

bool MsgDrivenThread::flatten(Msg const& msg) {
    if (msg.storeTo(&mSendMsg) != 0) {
        return true;
    }
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
           "MsgDrivenThread(%s) Overflow MsgSize  MaxSize(include MsgId):%d MsgId:0x%08x", getName().buffer(),
           static_cast<int>(mSendMsg.maxSize()), static_cast<unsigned int>(msg.getMsgId()));
    return false;
}

// Strays give way to a message that will find a place in the control queue. Of a burst of refused messages
// one is an error; the others are details.
bool MsgDrivenThread::queueFrame(Queue<unsigned char>& frames, int msgId, int ctlId) {
    if (frames.pushBack(mSendMsg.buffer(), mSendMsg.maxSize())) {
        return true;
    }
    if (&frames == &mDataQueue && mStrayFrames != 0 && hasRoomForEntry()) {
        discardStrays(0, ctlId);
        return queueFrame(frames, msgId, ctlId);
    }
    applog(LOG_TYPE_LIBRARY, mDataOverflowLogged.exchange(true) ? LOG_LEVEL_DETAIL : LOG_LEVEL_ERROR,
           "MsgDrivenThread(%s) Overflow MsgDataQueue  MaxCount:%d MsgId:0x%08x", getName().buffer(),
           static_cast<int>(mMaxMsgCount), static_cast<unsigned int>(msgId));
    return false;
}

bool MsgDrivenThread::hasRoomForEntry() const {
    return mCtlQueue.size() < mCtlQueue.maxSize() && hasRoomForToken(mPipe[1]);
}

int MsgDrivenThread::postThreadCtlMsg(int msgId, int param) {
    SyncGuard const guard(mQueueLock);
    return makeRoomForEntry(msgId) && queueEntry(msgId, param) ? 1 : 0;
}

// Under mQueueLock: a place in the control queue and room for one token.
bool MsgDrivenThread::makeRoomForEntry(int msgId) {
    int const writeEnd = mPipe[1];
    while (mCtlQueue.size() >= mCtlQueue.maxSize() && hasDeadHead()) {
        mCtlQueue.removeAt(0, 1);
    }
    if (mCtlQueue.size() >= mCtlQueue.maxSize()) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread(%s) Overflow ThreadCtlMsgQueue  MaxCount:%d MsgId:0x%08x", getName().buffer(),
               static_cast<int>(mCtlQueue.maxSize()), static_cast<unsigned int>(msgId));
        return false;
    }
    if (!reserveToken(writeEnd)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread(%s) Overflow Pipe  MaxCount:%d MsgId:0x%08x", getName().buffer(),
               static_cast<int>(tokenCapacity(writeEnd)), static_cast<unsigned int>(msgId));
        return false;
    }
    return true;
}

// Under mQueueLock, behind makeRoomForEntry. Without its token the entry means nothing.
bool MsgDrivenThread::queueEntry(int msgId, int param) {
    ThreadCtlMsg entry;
    entry.mMsgId = msgId;
    entry.mParam = param;
    mCtlQueue.pushBack(entry);
    TokenIo const io = writeReservedToken(mPipe[1], {msgId, param});
    if (!io.isWhole()) {
        mCtlQueue.removeLast(1);
        entry.mParam = DEAD_PARAM;
        mCtlQueue.pushBack(entry);
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread(%s)::postThreadCtlMsg() Error. write Ret:%u errno:%d", getName().buffer(),
               io.mRet, io.mErrno);
    }
    return io.isWhole();
}

bool MsgDrivenThread::isDead(ThreadCtlMsg const& entry) {
    return entry.mParam == DEAD_PARAM;
}

// Under mQueueLock.
bool MsgDrivenThread::hasDeadHead() const {
    ThreadCtlMsg const* const head = mCtlQueue.elementAt(0);
    return head != nullptr && isDead(*head);
}

// Under mQueueLock: a wake entry whose request is no longer there.
bool MsgDrivenThread::hasForgottenHead() const {
    ThreadCtlMsg const* const head = mCtlQueue.elementAt(0);
    return head != nullptr && head->mMsgId == MSG_ID_CTL_WAKE && !mIsRequested;
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

// The loop, from here to the end: everything runs on the message thread.

int MsgDrivenThread::execute() {
    // A thread that could not be registered has no id, and nobody could stop it.
    int const result = getId() != 0 ? runLoop() : -1;
    leaveWatchdog();
    leaveLoop();
    return result;
}

int MsgDrivenThread::runLoop() {
    StatementInfo const place("source/UtlMsgDrivenThread", "execute", __LINE__, 0);
    PipeToken token;
    while (readToken("MsgDrivenThread", getName().buffer(), place, mPipe[0], &token)) {
        if (token.mId == MSG_ID_TIMEOUT_SIGNAL) {
            acknowledgeTimerToken(token.mParam);
            executeTimeoutSignal(toUserTimerId(token.mParam));
        }
        bool const isObeyed =
            token.mId != MSG_ID_TIMEOUT_SIGNAL && (serveToken(token, place) || token.mId == MSG_ID_CTL_STOP);
        if ((isObeyed || mStopsAtAnyToken) && hasRequestedStop()) {
            return 0;
        }
    }
    return -1;
}

// True when the entry at the head was acted upon. The control queue is the truth; the token only says that
// something happened, and one that does not fit the head belonged to an entry that is gone.
bool MsgDrivenThread::serveToken(PipeToken const& token, StatementInfo const& place) {
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
    reportIfRegistered(place);
    if (result != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "!!!!!!!! MsgDrivenThread(%s) Error. MsgId:0x%08x !!!!!!!!",
               getName().buffer(), static_cast<unsigned int>(token.mId));
    }
    return true;
}

// What waits at the head for nobody would stand there for good.
bool MsgDrivenThread::peekHead(ThreadCtlMsg* head, bool* isRequested) {
    SyncGuard const guard(mQueueLock);
    mIsRequested = mIsRequested && (mInterruptEvent.isOn() || mEraseEvent.isOn() || mFindEvent.isOn());
    *isRequested = mIsRequested;
    while (hasDeadHead() || hasForgottenHead()) {
        mCtlQueue.removeAt(0, 1);
    }
    ThreadCtlMsg const* const first = mCtlQueue.elementAt(0);
    if (first == nullptr) {
        return false;
    }
    *head = *first;
    return true;
}

// What is asked of the thread itself comes in front of the entry at the head, which may be another one then;
// false when there is none any more.
bool MsgDrivenThread::serveRequests(ThreadCtlMsg* head) {
    bool isRequested = false;
    return (!serveInterrupt() || peekHead(head, &isRequested)) &&
           (!serveErase() || peekHead(head, &isRequested)) && (!serveFind() || peekHead(head, &isRequested));
}

// Event, frame and entry of a request are put up under the lock, so none of them is seen without the others.
bool MsgDrivenThread::isPending(Event const& request) const {
    SyncGuard const guard(mQueueLock);
    return request.isOn();
}

bool MsgDrivenThread::serveInterrupt() {
    if (!isPending(mInterruptEvent)) {
        return false;
    }
    if (executeReceiveMsg(mInterruptQueue) == 0) {
        mInterruptResult = true;
    }
    eraseMsgFromCtlQueue(MSG_ID_CTL_WAKE);
    mInterruptEvent.setOff();
    return true;
}

bool MsgDrivenThread::serveErase() {
    if (!isPending(mEraseEvent)) {
        return false;
    }
    mEraseResult = executeEraseMsg(mEraseJudgement);
    eraseMsgFromCtlQueue(MSG_ID_CTL_WAKE);
    mEraseEvent.setOff();
    return true;
}

bool MsgDrivenThread::serveFind() {
    if (!isPending(mFindEvent)) {
        return false;
    }
    mFindResult = executeFindMsg(mFindJudgement, mPeekTarget);
    eraseMsgFromCtlQueue(MSG_ID_CTL_WAKE);
    mFindEvent.setOff();
    return true;
}

int MsgDrivenThread::actOn(ThreadCtlMsg const& head) {
    switch (head.mMsgId) {
        case MSG_ID_CTL_SYNC:
            return deliverSync();
        case MSG_ID_CTL_START_TIMER:
            return startTimerOfHead(head.mParam);
        case MSG_ID_CTL_STOP_TIMER:
            return stopTimerOfHead(head.mParam);
        case MSG_ID_CTL_TIMEOUT:
            return executeTimeout(head.mParam);
        case MSG_ID_CTL_STOP:
            return removeHead();
        default:
            return deliverPosted(head.mMsgId);
    }
}

int MsgDrivenThread::deliverSync() {
    int const result = executeReceiveMsg(mCtlQueue, mDataQueue);
    if (result == 0) {
        mSyncResult = true;
    }
    mSyncEvent.setOff();
    mDataOverflowLogged = false;
    return result;
}

int MsgDrivenThread::deliverPosted(int msgId) {
    int const result = executeReceiveMsg(mCtlQueue, mDataQueue, msgId);
    mDataOverflowLogged = false;
    return result;
}

int MsgDrivenThread::removeHead() {
    SyncGuard const guard(mQueueLock);
    return mCtlQueue.removeAt(0, 1) ? 0 : -1;
}

int MsgDrivenThread::startTimerOfHead(int timerId) {
    bool const started = executeStartTimer(timerId) != START_FAILED;
    return removeHead() == 0 && started ? 0 : -1;
}

int MsgDrivenThread::stopTimerOfHead(int timerId) {
    int const result = executeStopTimer(timerId);
    return removeHead() == 0 ? result : -1;
}

// Requests that come later find the door closed; those that came before are released here. A sender tests the
// flag under the lock, so it cannot fall between.
void MsgDrivenThread::leaveLoop() {
    {
        SyncGuard const guard(mQueueLock);
        mLoopEnded = true;
    }
    eraseAllTimer();
    mInterruptEvent.setOff();
    mSyncEvent.setOff();
    mEraseEvent.setOff();
    mFindEvent.setOff();
}

// Under mQueueLock. False for a stray: there are no other frames any more.
bool MsgDrivenThread::takeFrame(Queue<unsigned char>& data) {
    bool const isStray = &data == &mDataQueue && announcedBytes() == 0;
    data.popFrontInto(mReceiveMsg.buffer(), mReceiveMsg.maxSize());
    if (isStray) {
        --mStrayFrames;
    }
    return !isStray;
}

int MsgDrivenThread::handToListener() {
    if (mListener != nullptr) {
        mListener->receiveMsg(getId(), mReceiveMsg);
        giveSizeBack(mReceiveMsg, mSendMsg);
    }
    return 0;
}

void MsgDrivenThread::giveSizeBack(ThreadRawMsg& msg, ThreadRawMsg const& like) {
    if (msg.maxSize() != like.maxSize()) {
        msg = ThreadRawMsg(like.maxSize());
    }
}

int MsgDrivenThread::executeReceiveMsg(Queue<ThreadCtlMsg>& ctl, Queue<unsigned char>& data) {
    {
        SyncGuard const guard(mQueueLock);
        if (!takeFrameOf(MSG_ID_CTL_SYNC, ctl, data)) {
            return -1;
        }
        ctl.removeAt(0, 1);
    }
    return handToListener();
}

int MsgDrivenThread::executeReceiveMsg(Queue<ThreadCtlMsg>& ctl, Queue<unsigned char>& data, int msgId) {
    {
        SyncGuard const guard(mQueueLock);
        if (!takeFrameOf(msgId, ctl, data)) {
            return -1;
        }
        ctl.removeAt(0, 1);
    }
    return handToListener();
}

int MsgDrivenThread::executeReceiveMsg(Queue<unsigned char>& data) {
    {
        SyncGuard const guard(mQueueLock);
        if (data.size() == 0) {
            return -1;
        }
        takeFrame(data);
    }
    return handToListener();
}

// A frame that the control queue does not account for is thrown away. A synchronous message's entry does not
// tell the id.
bool MsgDrivenThread::takeFrameOf(int ctlId, Queue<ThreadCtlMsg>& ctl, Queue<unsigned char>& data) {
    while (ctl.size() != 0 && data.size() != 0) {
        bool const isAnnounced = takeFrame(data);
        int frameId = -1;
        mReceiveMsg.getMsgId(&frameId);
        if (isAnnounced && (ctlId == MSG_ID_CTL_SYNC || frameId == ctlId)) {
            return true;
        }
        reportDiscarded(mReceiveMsg, ctlId);
    }
    return false;
}

}  // namespace utl

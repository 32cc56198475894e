#include "UtlMsgDrivenSharedThread.h"

#include <climits>

#include "UtlLog.h"
#include "internal/message/UtlMsgSharedSteps.h"
#include "internal/thread/UtlKeepAlive.h"

namespace utl {

template class Array<ThreadMsgListener*>;
template class Map<int, ThreadMsgListener*>;
template class MsgDrivenSharedThread::JudgeMsgBroadcast<MsgDrivenThread::JudgeMsgSpecifiedMsgId>;
template class MsgDrivenSharedThread::JudgeMsgSpecifiedListener<MsgDrivenThread::JudgeMsgSpecifiedMsgId>;

namespace {

constexpr unsigned int ID_BYTES = ThreadRawMsg::ID_BYTES;

// What an envelope adds to a message: the listener's address, and the message's own id.
constexpr unsigned int ENVELOPE_BYTES = sizeof(void*) + ID_BYTES;

// The value of the index while no broadcast is being forwarded.
constexpr int NO_BROADCAST = INT_MIN;

// The largest message of the thread itself, which is an envelope. A size that overflows becomes the largest
// number, which the thread refuses, as every size whose frame does not fit.
unsigned int sizeWithEnvelope(unsigned int maxMsgSize) {
    return maxMsgSize < UINT_MAX - ENVELOPE_BYTES ? maxMsgSize + ENVELOPE_BYTES : UINT_MAX;
}

int idIfFound(bool isFound, ThreadRawMsg& msg) {
    int id = MSG_ID_NONE;
    return isFound && msg.getMsgId(&id) != 0 ? id : MSG_ID_NONE;
}

}  // namespace

MsgDrivenSharedThread::MsgListenerMsg::~MsgListenerMsg() = default;

int MsgDrivenSharedThread::MsgListenerMsg::storeDataTo(MsgDataBroker* broker) const {
    return broker->set(static_cast<void*>(mListener));
}

int MsgDrivenSharedThread::MsgListenerMsg::restoreDataFrom(MsgDataBroker& broker) {
    void* address = nullptr;
    if (broker.get(&address) == 0) {
        return 0;
    }
    mListener = static_cast<ThreadMsgListener*>(address);
    return 1;
}

MsgDrivenSharedThread::SpecifiedMsgListenerMsg::~SpecifiedMsgListenerMsg() = default;

int MsgDrivenSharedThread::SpecifiedMsgListenerMsg::storeDataTo(MsgDataBroker* broker) const {
    MsgListenerMsg::storeDataTo(broker);
    return broker->set(mRawMsg.buffer(), mRawMsg.maxSize());
}

int MsgDrivenSharedThread::SpecifiedMsgListenerMsg::restoreDataFrom(MsgDataBroker& broker) {
    MsgListenerMsg::restoreDataFrom(broker);
    return broker.get(mRawMsg.buffer(), mRawMsg.maxSize());
}

// An envelope fills the thread's frame to the last byte.
MsgDrivenSharedThread::MsgDrivenSharedThread(unsigned int maxMsgSize, unsigned int maxMsgCount,
                                             unsigned int maxListenerCount, char const* name,
                                             unsigned int maxTimerCount)
    : MsgDrivenThread(sizeWithEnvelope(maxMsgSize), maxMsgCount, name, maxTimerCount),
      mListeners(0, 0),
      mForwardIndex(NO_BROADCAST),
      mPostMsg(maxMsgSize + ID_BYTES),
      mSyncMsg(maxMsgSize + ID_BYTES),
      mInterruptMsg(maxMsgSize + ID_BYTES),
      mReceivedMsg(maxMsgSize + ID_BYTES),
      mTimerListeners(maxTimerCount, 0) {
    if (maxListenerCount <= INT_MAX) {
        mListeners.resizeMax(maxListenerCount);
    }
}

// Before the fields that the loop uses are destroyed.
MsgDrivenSharedThread::~MsgDrivenSharedThread() {
    abandonLoop();
}

// On the thread itself they fail without the lock, because its holder may wait for the thread.

int MsgDrivenSharedThread::start(int watchdog, unsigned int aliveTime, WatchdogTimerListener* listener,
                                 int waitReady, unsigned int waitTimeout, ThreadPriority const& priority,
                                 unsigned int reserved) {
    if (isOwnThread()) {
        return -1;
    }
    CallGuard const guard(*this, mAttachLock, __func__, __LINE__);
    return CallBracket(*this).around(__func__, __LINE__, [&] {
        return MsgDrivenThread::start(this, watchdog, aliveTime, listener, waitReady, waitTimeout, priority,
                                      reserved);
    });
}

int MsgDrivenSharedThread::stop(int wait, unsigned int timeout) {
    if (isOwnThread()) {
        return -1;
    }
    CallGuard const guard(*this, mAttachLock, __func__, __LINE__);
    return CallBracket(*this).around(__func__, __LINE__,
                                     [&] { return MsgDrivenThread::stop(wait, timeout); });
}

// Broadcasts.

int MsgDrivenSharedThread::postMsg(Msg const& msg) {
    return CallBracket(*this).around(__func__, __LINE__, [&] { return MsgDrivenThread::postMsg(msg); });
}

int MsgDrivenSharedThread::postMsg(int msgId) {
    return postMsg(SimpleMsg(msgId));
}

int MsgDrivenSharedThread::sendMsgSync(Msg const& msg) {
    return CallBracket(*this).around(__func__, __LINE__, [&] { return MsgDrivenThread::sendMsgSync(msg); });
}

int MsgDrivenSharedThread::sendMsgSync(int msgId) {
    return sendMsgSync(SimpleMsg(msgId));
}

int MsgDrivenSharedThread::sendMsgInterrupt(Msg const& msg) {
    return CallBracket(*this).around(__func__, __LINE__,
                                     [&] { return MsgDrivenThread::sendMsgInterrupt(msg); });
}

int MsgDrivenSharedThread::sendMsgInterrupt(int msgId) {
    return sendMsgInterrupt(SimpleMsg(msgId));
}

// Messages to one listener.

// From outside, the lock that a post takes is taken before the envelope's. Its holder may be waiting for the
// message thread. If this thread waited for it while it holds the envelope's lock, a handler that posts to a
// listener would wait for the envelope, and none of the three would ever continue.
int MsgDrivenSharedThread::postMsg(ThreadMsgListener* listener, Msg const& msg) {
    SendSteps::Send const send = {mPostLock, mPostMsg, &MsgDrivenThread::sendMsgAsync, __func__};
    if (listener == nullptr || !acceptsMsg()) {
        return 0;
    }
    if (isOwnThread()) {
        return SendSteps(*this).send(listener, msg, send);
    }
    PostGuard const guard(*this, send, __LINE__);
    return acceptsMsg() ? SendSteps(*this).sendInEnvelope(listener, msg, send) : 0;
}

int MsgDrivenSharedThread::postMsg(ThreadMsgListener* listener, int msgId) {
    return postMsg(listener, SimpleMsg(msgId));
}

int MsgDrivenSharedThread::sendMsgSync(ThreadMsgListener* listener, Msg const& msg) {
    if (listener == nullptr || isOwnThread()) {
        return 0;
    }
    return SendSteps(*this).send(listener, msg,
                                 {mSyncSendLock, mSyncMsg, &MsgDrivenThread::sendMsgSync, __func__});
}

int MsgDrivenSharedThread::sendMsgSync(ThreadMsgListener* listener, int msgId) {
    return sendMsgSync(listener, SimpleMsg(msgId));
}

int MsgDrivenSharedThread::sendMsgInterrupt(ThreadMsgListener* listener, Msg const& msg) {
    if (listener == nullptr || isOwnThread()) {
        return 0;
    }
    return SendSteps(*this).send(
        listener, msg, {mInterruptSendLock, mInterruptMsg, &MsgDrivenThread::sendMsgInterrupt, __func__});
}

int MsgDrivenSharedThread::sendMsgInterrupt(ThreadMsgListener* listener, int msgId) {
    return sendMsgInterrupt(listener, SimpleMsg(msgId));
}

// Attaching and detaching. While there is a loop, only the loop touches the listeners; so they need no lock.

int MsgDrivenSharedThread::attachMsgListener(ThreadMsgListener* listener) {
    if (isOwnThread()) {
        return addMsgListener(listener);
    }
    CallGuard const guard(*this, mAttachLock, __func__, __LINE__);
    if (!AttachSteps::awaitLoop(*this, __func__)) {
        return addMsgListener(listener);
    }
    mAttachResult = 0;
    return AttachSteps::askLoop(*this, MSG_ID_LISTENER_ATTACH, listener, __func__) ? mAttachResult : 0;
}

int MsgDrivenSharedThread::detachMsgListener(ThreadMsgListener* listener) {
    if (isOwnThread()) {
        eraseMsgListener(listener);
        return 1;
    }
    CallGuard const guard(*this, mAttachLock, __func__, __LINE__);
    if (AttachSteps::awaitLoop(*this, __func__)) {
        return AttachSteps::askLoop(*this, MSG_ID_LISTENER_DETACH, listener, __func__) ? 1 : 0;
    }
    eraseMsgListener(listener);
    return 1;
}

int MsgDrivenSharedThread::addMsgListener(ThreadMsgListener* listener) {
    if (listener == nullptr) {
        return 0;
    }
    return indexOf(listener) != INVALID_SIZE || mListeners.insertAt(mListeners.size(), listener) ? 1 : 0;
}

// A broadcast in progress continues with the same next listener.
void MsgDrivenSharedThread::eraseMsgListener(ThreadMsgListener* listener) {
    unsigned int const index = indexOf(listener);
    if (index == INVALID_SIZE) {
        return;
    }
    mListeners.removeAt(index, 1);
    if (static_cast<int>(index) < mForwardIndex) {
        --mForwardIndex;
    }
}

unsigned int MsgDrivenSharedThread::indexOf(ThreadMsgListener const* listener) const {
    for (unsigned int i = 0; i < mListeners.size(); ++i) {
        if (*mListeners.getAt(i) == listener) {
            return i;
        }
    }
    return INVALID_SIZE;
}

// Forwarding, on the message thread.

void MsgDrivenSharedThread::receiveMsg(int threadId, ThreadRawMsg& msg) {
    int id = MSG_ID_NONE;
    if (msg.getMsgId(&id) == 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "Unknown MsgId Received (%s)", getName().buffer());
        return;
    }
    if (id != MSG_ID_TIMER && !isEnvelopeId(id)) {
        forwardMsg(threadId, msg);
        return;
    }
    KeepAliveBracket const bracket(CallBracket::SOURCE, __func__, __LINE__);
    switch (id) {
        case MSG_ID_TIMER:
            return onTimer(threadId, msg);
        case MSG_ID_LISTENER_ATTACH:
            return onAttachMsgListener(msg);
        case MSG_ID_LISTENER_DETACH:
            return onDetachMsgListener(msg);
        default:
            return onSpecifiedMsgListener(threadId, msg);
    }
}

// A handler may attach and detach. What it attaches comes after the index, and what it detaches moves the
// index. If a handler forwards a message itself, the outer broadcast continues where it was.
void MsgDrivenSharedThread::forwardMsg(int threadId, ThreadRawMsg& msg) {
    int const outerIndex = mForwardIndex;
    mForwardIndex = static_cast<int>(mListeners.size()) - 1;
    while (mForwardIndex >= 0) {
        ThreadMsgListener* const* const listener = mListeners.getAt(static_cast<unsigned int>(mForwardIndex));
        if (listener != nullptr && *listener != nullptr) {
            (*listener)->receiveMsg(threadId, msg);
        }
        --mForwardIndex;
    }
    mForwardIndex = outerIndex;
}

void MsgDrivenSharedThread::onAttachMsgListener(ThreadRawMsg& msg) {
    MsgListenerMsg request(MSG_ID_LISTENER_ATTACH);
    request.restoreFrom(msg);
    mAttachResult = addMsgListener(request.mListener);
}

void MsgDrivenSharedThread::onDetachMsgListener(ThreadRawMsg& msg) {
    MsgListenerMsg request(MSG_ID_LISTENER_DETACH);
    request.restoreFrom(msg);
    eraseMsgListener(request.mListener);
}

// The listener need not be attached: its owner ensures that it exists.
void MsgDrivenSharedThread::onSpecifiedMsgListener(int threadId, ThreadRawMsg& msg) {
    mReceivedMsg.restoreFrom(msg);
    if (mReceivedMsg.mListener != nullptr) {
        mReceivedMsg.mListener->receiveMsg(threadId, mReceivedMsg.mRawMsg);
        restoreSize(mReceivedMsg.mRawMsg, mPostMsg.mRawMsg.maxSize());
    }
}

void MsgDrivenSharedThread::onTimer(int threadId, ThreadRawMsg& msg) {
    ThreadMsgListener* owner = nullptr;
    if (!findTimerListener({mTimerListeners, mTimerMapLock}, msg, &owner)) {
        return;
    }
    if (owner == nullptr) {
        forwardMsg(threadId, msg);
    } else {
        owner->receiveMsg(threadId, msg);
    }
}

// Questions. The judgements run on the message thread, which holds mQueueLock then; so nobody who holds
// mTimerMapLock may wait for that lock.

bool MsgDrivenSharedThread::isEnvelopeId(int msgId) {
    return msgId >= MSG_ID_LISTENER_ATTACH && msgId <= MSG_ID_LISTENER_SPECIFIED;
}

// The listener that the expiry in `msg` is for. False if the timer is not known, or not any more.
bool MsgDrivenSharedThread::findTimerListener(TimerOwners const& owners, ThreadRawMsg& msg,
                                              ThreadMsgListener** listener) {
    TimerMsg timer;
    if (timer.restoreFrom(msg) == 0) {
        return false;
    }
    SyncGuard const guard(owners.mLock);
    ThreadMsgListener* const* const found = owners.mTimers.find(timer.mTimerId);
    if (found == nullptr) {
        return false;
    }
    *listener = *found;
    return true;
}

// A question about broadcasts, with everything that its judgement points to.
struct MsgDrivenSharedThread::BroadcastQuestion {
    BroadcastQuestion(MsgDrivenSharedThread const& thread, int msgId)
        : mJudgeId(msgId),
          mJudge(&mJudgeId, &thread.mTimerListeners, &thread.mTimerMapLock),
          mJudgement(&mJudge) {}

    using Judge = JudgeMsgBroadcast<JudgeMsgSpecifiedMsgId>;

    JudgeMsgSpecifiedMsgId mJudgeId;
    Judge mJudge;
    MsgJudgement<Judge> mJudgement;
};

// The same about what one listener is to receive.
struct MsgDrivenSharedThread::ListenerQuestion {
    ListenerQuestion(MsgDrivenSharedThread const& thread, ThreadMsgListener* listener, int msgId)
        : mJudgeId(msgId),
          mJudge(listener, &mJudgeId, &thread.mTimerListeners, &thread.mTimerMapLock,
                 thread.mPostMsg.mRawMsg.maxSize()),
          mJudgement(&mJudge) {}

    using Judge = JudgeMsgSpecifiedListener<JudgeMsgSpecifiedMsgId>;

    JudgeMsgSpecifiedMsgId mJudgeId;
    Judge mJudge;
    MsgJudgement<Judge> mJudgement;
};

bool MsgDrivenSharedThread::hasMsg(int msgId) {
    BroadcastQuestion question(*this, msgId);
    return CallBracket(*this).around(__func__, __LINE__,
                                     [&] { return hasMsgInternal(&question.mJudgement); });
}

bool MsgDrivenSharedThread::eraseMsg(int msgId) {
    BroadcastQuestion question(*this, msgId);
    return CallBracket(*this).around(__func__, __LINE__,
                                     [&] { return eraseMsgInternal(&question.mJudgement); });
}

bool MsgDrivenSharedThread::peekMsg(int msgId, ThreadRawMsg* out) {
    BroadcastQuestion question(*this, msgId);
    return CallBracket(*this).around(__func__, __LINE__,
                                     [&] { return peekMsgInternal(&question.mJudgement, out); });
}

int MsgDrivenSharedThread::getFirstMsgId() {
    ThreadRawMsg msg(ID_BYTES);
    return idIfFound(peekMsg(MSG_ID_ANY, &msg), msg);
}

bool MsgDrivenSharedThread::hasMsg(ThreadMsgListener* listener, int msgId) {
    ListenerQuestion question(*this, listener, msgId);
    return CallBracket(*this).around(__func__, __LINE__,
                                     [&] { return hasMsgInternal(&question.mJudgement); });
}

bool MsgDrivenSharedThread::eraseMsg(ThreadMsgListener* listener, int msgId) {
    ListenerQuestion question(*this, listener, msgId);
    return CallBracket(*this).around(__func__, __LINE__,
                                     [&] { return eraseMsgInternal(&question.mJudgement); });
}

bool MsgDrivenSharedThread::peekMsg(ThreadMsgListener* listener, int msgId, ThreadRawMsg* out) {
    if (listener == nullptr || out == nullptr) {
        return false;
    }
    ListenerQuestion question(*this, listener, msgId);
    ThreadRawMsg found(ID_BYTES);
    if (!CallBracket(*this).around(__func__, __LINE__,
                                   [&] { return peekMsgInternal(&question.mJudgement, &found); })) {
        return false;
    }
    if (question.mJudge.hasFoundTimer()) {
        *out = found;
        return true;
    }
    SpecifiedMsgListenerMsg envelope(mPostMsg.mRawMsg.maxSize());
    envelope.restoreFrom(found);
    *out = envelope.mRawMsg;
    return true;
}

int MsgDrivenSharedThread::getFirstMsgId(ThreadMsgListener* listener) {
    ThreadRawMsg msg(ID_BYTES);
    return idIfFound(peekMsg(listener, MSG_ID_ANY, &msg), msg);
}

int MsgDrivenSharedThread::abortMsg(ThreadMsgListener* listener) {
    if (listener == nullptr) {
        return 0;
    }
    int result = 1;
    TimerSteps steps(*this);
    for (int id = steps.forgetLastTimerOf(listener); id != NO_TIMER_ID;
         id = steps.forgetLastTimerOf(listener)) {
        if (!killTimer(id, TIMER_WAIT)) {
            result = 0;
        }
    }
    return eraseMsg(listener, MSG_ID_ANY) ? result : 0;
}

// Timers.

int MsgDrivenSharedThread::registerTimer(unsigned int interval, unsigned int repeatCount, int autoRepeat) {
    return TimerSteps(*this).registerTimer(nullptr, interval, repeatCount, autoRepeat);
}

int MsgDrivenSharedThread::registerTimer(ThreadMsgListener* listener, unsigned int interval,
                                         unsigned int repeatCount, int autoRepeat) {
    return listener == nullptr ? NO_TIMER_ID
                               : TimerSteps(*this).registerTimer(listener, interval, repeatCount, autoRepeat);
}

int MsgDrivenSharedThread::setTimer(unsigned int interval, int noWait, unsigned int repeatCount,
                                    int autoRepeat) {
    return TimerSteps(*this).startRegistered(registerTimer(interval, repeatCount, autoRepeat), noWait);
}

int MsgDrivenSharedThread::setTimer(ThreadMsgListener* listener, unsigned int interval, int noWait,
                                    unsigned int repeatCount, int autoRepeat) {
    return TimerSteps(*this).startRegistered(registerTimer(listener, interval, repeatCount, autoRepeat),
                                             noWait);
}

bool MsgDrivenSharedThread::startTimer(int timerId, int noWait) {
    return CallBracket(*this).around(__func__, __LINE__,
                                     [&] { return MsgDrivenThread::startTimer(timerId, noWait); });
}

bool MsgDrivenSharedThread::killTimer(int timerId, int noWait) {
    return CallBracket(*this).around(__func__, __LINE__,
                                     [&] { return MsgDrivenThread::killTimer(timerId, noWait); });
}

void MsgDrivenSharedThread::onEraseTimer(int userTimerId) {
    TimerSteps(*this).forgetTimer(userTimerId);
}

}  // namespace utl

#include "internal/message/UtlMsgSharedSteps.h"

#include "UtlLog.h"

namespace utl {

int MsgDrivenSharedThread::SendSteps::send(ThreadMsgListener* listener, Msg const& msg, Send const& send) {
    CallGuard const guard(mThread, send.mLock, send.mFunction, __LINE__);
    return sendInEnvelope(listener, msg, send);
}

int MsgDrivenSharedThread::SendSteps::sendInEnvelope(ThreadMsgListener* listener, Msg const& msg,
                                                     Send const& send) {
    SpecifiedMsgListenerMsg& envelope = send.mEnvelope;
    envelope.mListener = listener;
    if (msg.storeTo(&envelope.mRawMsg) == 0) {
        return 0;
    }
    return CallBracket(mThread).around(send.mFunction, __LINE__,
                                       [&] { return (mThread.*send.mSend)(envelope); });
}

bool MsgDrivenSharedThread::AttachSteps::awaitLoop(MsgDrivenSharedThread& thread, char const* function) {
    if (!thread.hasDone(STARTED)) {
        return false;
    }
    if (thread.hasDone(STOP_REQUESTED)) {
        CallBracket(thread).around(function, __LINE__, [&] { thread.waitForEnd(); });
        return false;
    }
    CallBracket(thread).around(function, __LINE__, [&] { thread.waitTo(READY, 0); });
    return true;
}

bool MsgDrivenSharedThread::AttachSteps::askLoop(MsgDrivenSharedThread& thread, int msgId,
                                                 ThreadMsgListener* listener, char const* function) {
    MsgListenerMsg msg(msgId);
    msg.mListener = listener;
    if (CallBracket(thread).around(function, __LINE__,
                                   [&] { return thread.MsgDrivenThread::sendMsgSync(msg); }) != 0) {
        return true;
    }
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "MsgDrivenSharedThread::%s(): Can't send thread", function);
    return false;
}

// A timer that is being killed may have left the base's map and still be in this one. Then there is no place
// here for the new one.
int MsgDrivenSharedThread::TimerSteps::registerTimer(ThreadMsgListener* listener, unsigned int interval,
                                                     unsigned int repeatCount, int autoRepeat) {
    int const timerId = CallBracket(mThread).around("registerTimer", __LINE__, [&] {
        return mThread.MsgDrivenThread::registerTimer(interval, repeatCount, autoRepeat);
    });
    if (timerId == NO_TIMER_ID) {
        return NO_TIMER_ID;
    }
    {
        CallGuard const guard(mThread, mThread.mTimerMapLock, "registerTimer", __LINE__);
        if (mThread.mTimerListeners.insert(timerId, listener)) {
            return timerId;
        }
    }
    mThread.killTimer(timerId, TIMER_NO_WAIT);
    return NO_TIMER_ID;
}

// A timer that does not start is not killed: the kill would fail or wait for the same reason. The end of the
// loop takes it away.
int MsgDrivenSharedThread::TimerSteps::startRegistered(int timerId, int noWait) {
    if (timerId == NO_TIMER_ID || mThread.startTimer(timerId, noWait)) {
        return timerId;
    }
    forgetTimer(timerId);
    return NO_TIMER_ID;
}

void MsgDrivenSharedThread::TimerSteps::forgetTimer(int timerId) {
    CallGuard const guard(mThread, mThread.mTimerMapLock, __func__, __LINE__);
    mThread.mTimerListeners.erase(timerId);
}

int MsgDrivenSharedThread::TimerSteps::forgetLastTimerOf(ThreadMsgListener* listener) {
    CallGuard const guard(mThread, mThread.mTimerMapLock, __func__, __LINE__);
    for (unsigned int i = mThread.mTimerListeners.size(); i-- > 0;) {
        Pair<int, ThreadMsgListener*> const* const entry = mThread.mTimerListeners.getAt(i);
        if (entry->mValue == listener) {
            int const timerId = entry->mKey;
            mThread.mTimerListeners.erase(timerId);
            return timerId;
        }
    }
    return NO_TIMER_ID;
}

}  // namespace utl

#pragma once

#include "UtlArray.h"
#include "UtlMap.h"
#include "UtlMsg.h"
#include "UtlMsgDrivenThread.h"
#include "UtlSyncObject.h"
#include "UtlThreadPriority.h"
#include "UtlThreadRawMsg.h"

namespace utl {

/// A message thread that several listeners share. *Internally locked*, because any thread may send, attach
/// and detach; only `start` and `stop` must come from another thread than itself.
///
/// | Sent | Reaches | Found and erased by |
/// |---|---|---|
/// | without a listener: a broadcast | every listener that is attached at its turn, the last attached first | the questions without a listener |
/// | to a listener | that one, attached or not | the questions with that listener |
///
/// Timers are divided in the same way: `registerTimer` and `setTimer` say to whom their expiries go. All
/// listeners of a broadcast see the same message, which each restores for itself. What is told for
/// `MsgDrivenThread` about order, queues and the end of the thread holds here, for all listeners together.
///
/// Nothing checks that the listener of a message or a timer still exists. Before a listener goes, its owner
/// calls `detachMsgListener` and then `abortMsg`, while the thread runs or behind its `stop`, and nobody
/// sends to it any more or is inside a call that does. On the message thread, `abortMsg` may come from
/// another listener's handler or its own.
///
/// A handler may do everything that is not forbidden here. It must not wait for another thread that is inside
/// a call which waits for this one.
///
/// From another thread than itself, every call here that may block gives the watchdog a sign of life before
/// and behind the place where it does.
class UTL_API MsgDrivenSharedThread : public MsgDrivenThread, public ThreadMsgListener {
  public:
    /// `maxMsgSize` is the largest message in bytes without its 4 bytes of id, `maxMsgCount` how many
    /// messages can wait, `maxListenerCount` how many listeners can be attached at a time, none for a value
    /// above 0x7FFFFFFF; `maxTimerCount` how many timers there can be. See `MsgDrivenThread` for the rest. In
    /// the queue every message takes the room of one with an address.
    MsgDrivenSharedThread(unsigned int maxMsgSize, unsigned int maxMsgCount, unsigned int maxListenerCount,
                          char const* name, unsigned int maxTimerCount = 0);

    /// Waits for a loop that still runs, which it takes the pipe away from; stop the thread before.
    ~MsgDrivenSharedThread() override;

    /// As those of `MsgDrivenThread`, with this object as the thread's own listener. The `preExecute` of a
    /// derived class must not attach or detach: `start` may wait for it. While a `stop` waits, so do
    /// attaching and detaching from outside; and both `start` and `stop`, whatever their arguments say about
    /// waiting, first wait without limit for an attach or a detach in progress. So a handler must not wait
    /// for the request to stop as long as somebody may be attaching.
    ///@{
    int start(int watchdog = 0, unsigned int aliveTime = 0, WatchdogTimerListener* listener = nullptr,
              int waitReady = 1, unsigned int waitTimeout = 0,
              ThreadPriority const& priority = ThreadPriority(), unsigned int reserved = 0);
    int stop(int wait = 1, unsigned int timeout = 0);
    ///@}

    /// Sends to all attached listeners, as `MsgDrivenThread` does to its only one. A message also counts as
    /// delivered when nobody is attached.
    ///@{
    int postMsg(Msg const& msg);
    int postMsg(int msgId);
    int sendMsgSync(Msg const& msg);
    int sendMsgSync(int msgId);
    int sendMsgInterrupt(Msg const& msg);
    int sendMsgInterrupt(int msgId);
    ///@}

    /// Sends to one listener. Results as for a broadcast; also 0 for a null listener, and 0 without a log
    /// line for a message that is too large. One sender of a kind at a time; the others wait for their turn.
    ///@{
    int postMsg(ThreadMsgListener* listener, Msg const& msg);
    int postMsg(ThreadMsgListener* listener, int msgId);
    int sendMsgSync(ThreadMsgListener* listener, Msg const& msg);
    int sendMsgSync(ThreadMsgListener* listener, int msgId);
    int sendMsgInterrupt(ThreadMsgListener* listener, Msg const& msg);
    int sendMsgInterrupt(ThreadMsgListener* listener, int msgId);
    ///@}

    /// Lets broadcasts reach the listener. 1, also when it is attached already, in which case nothing
    /// changes; 0 for null, when `maxListenerCount` are attached, and, with a log line, when the thread could
    /// not be asked. In a handler it is done at once, for the next broadcast. From outside, the call waits
    /// without limit: before the start for nothing; until the thread is ready and has come to it in the
    /// queue; after the request to stop until the thread has ended.
    int attachMsgListener(ThreadMsgListener* listener);

    /// Ends that; waits likewise. Behind it no broadcast reaches the listener, nor does the one in progress
    /// when a handler detaches one that has not had its turn. Its timers and the messages sent to it go on:
    /// `abortMsg`. 1 when the listener is not attached any more, also when it never was; 0, with a log line,
    /// when the thread could not be asked, and it may still be attached.
    int detachMsgListener(ThreadMsgListener* listener);

    /// Questions as those of `MsgDrivenThread`, about broadcasts alone. The expiry of a timer belongs to them
    /// if the timer does.
    ///@{
    bool hasMsg(int msgId);
    bool eraseMsg(int msgId);
    bool peekMsg(int msgId, ThreadRawMsg* out);
    int getFirstMsgId();
    ///@}

    /// The same about what one listener is to receive alone: messages sent to it and the expiries of its
    /// timers. `peekMsg` gives the message as it was sent. For a null listener false and `MSG_ID_NONE`,
    /// except for `eraseMsg`, which finds nothing to erase.
    ///@{
    bool hasMsg(ThreadMsgListener* listener, int msgId);
    bool eraseMsg(ThreadMsgListener* listener, int msgId);
    bool peekMsg(ThreadMsgListener* listener, int msgId, ThreadRawMsg* out);
    int getFirstMsgId(ThreadMsgListener* listener);
    ///@}

    /// Kills the listener's timers and erases what is queued for it alone. A message that it has at the
    /// moment is not affected; from outside, the call waits without limit until that is over. A
    /// `sendMsgInterrupt` to it is no queued message and is not erased: before the listener goes, its sender
    /// must have returned. 1, or 0 when a timer ended by itself meanwhile, when the thread could not be asked
    /// or does not run, or for null.
    int abortMsg(ThreadMsgListener* listener);

    /// Timers whose expiries are broadcast; arguments and results as for `MsgDrivenThread`. A timer whose
    /// `setTimer` registers it and fails to start it keeps its place until the thread ends; it never expires
    /// for anybody. `registerTimer` waits for no other caller, with one exception: from outside, when a
    /// timer that is being killed has still its place here, the new one is killed again, which waits as
    /// `killTimer` does for others.
    ///@{
    int registerTimer(unsigned int interval, unsigned int repeatCount = 0, int autoRepeat = 1);
    int setTimer(unsigned int interval, int noWait = 0, unsigned int repeatCount = 0, int autoRepeat = 1);
    ///@}

    /// Timers whose expiries go to one listener, attached or not; -1 also for a null listener. They wait as
    /// those above. Without default arguments, so that an interval of 0 is never taken for a listener.
    ///@{
    int registerTimer(ThreadMsgListener* listener, unsigned int interval, unsigned int repeatCount,
                      int autoRepeat);
    int setTimer(ThreadMsgListener* listener, unsigned int interval, int noWait, unsigned int repeatCount,
                 int autoRepeat);
    ///@}

    /// As those of `MsgDrivenThread`, for either kind of timer.
    ///@{
    bool startTimer(int timerId, int noWait = 0);
    bool killTimer(int timerId, int noWait = 0);
    ///@}

    /// Hands a message of the thread on. The loop alone calls it.
    void receiveMsg(int threadId, ThreadRawMsg& msg) override;

  protected:
    /// What tells the thread to attach or detach a listener; *one owner thread*, as every message.
    class UTL_API MsgListenerMsg : public Msg {
      public:
        /// Without a listener; `msgId` says what is asked.
        explicit MsgListenerMsg(int msgId) : Msg(msgId) {}
        MsgListenerMsg(MsgListenerMsg const&) = default;
        MsgListenerMsg& operator=(MsgListenerMsg const&) = default;
        ~MsgListenerMsg() override;

        /// Not owned.
        ThreadMsgListener* mListener = nullptr;

      protected:
        int storeDataTo(MsgDataBroker* broker) const override;
        int restoreDataFrom(MsgDataBroker& broker) override;
    };

    /// The envelope of a message for one listener: its address, then the message's whole frame; *one owner
    /// thread*, as every message.
    class UTL_API SpecifiedMsgListenerMsg : public MsgListenerMsg {
      public:
        /// For a message of `size` bytes, the id included.
        explicit SpecifiedMsgListenerMsg(unsigned int size)
            : MsgListenerMsg(MSG_ID_LISTENER_SPECIFIED), mRawMsg(size) {}
        SpecifiedMsgListenerMsg(SpecifiedMsgListenerMsg const&) = default;
        SpecifiedMsgListenerMsg& operator=(SpecifiedMsgListenerMsg const&) = default;
        ~SpecifiedMsgListenerMsg() override;

        /// The message, with its own id.
        ThreadRawMsg mRawMsg;

      protected:
        int storeDataTo(MsgDataBroker* broker) const override;
        int restoreDataFrom(MsgDataBroker& broker) override;
    };

    /// A timer's listener by the timer's id, null for all of them.
    using TimerListenerMap = Map<int, ThreadMsgListener*>;

    /// Means the broadcasts that `JUDGE` means, by their flat form; *one owner thread*, as every judgement.
    template <typename JUDGE>
    class JudgeMsgBroadcast {
      public:
        /// What is pointed to stays the caller's.
        JudgeMsgBroadcast(JUDGE* judge, TimerListenerMap const* timers, SyncObject const* lock)
            : mJudge(judge), mTimers(timers), mLock(lock) {}
        bool operator()(ThreadRawMsg& msg);

      private:
        JUDGE* mJudge;
        TimerListenerMap const* mTimers;
        SyncObject const* mLock;
    };

    /// Means what a listener is to receive alone and `JUDGE` means: expiries of its timers by their flat
    /// form, messages in envelopes by what is inside; *one owner thread*, as every judgement.
    template <typename JUDGE>
    class JudgeMsgSpecifiedListener {
      public:
        /// What is pointed to stays the caller's. `rawMsgSize` is the size of the message in an envelope.
        JudgeMsgSpecifiedListener(ThreadMsgListener* listener, JUDGE* judge, TimerListenerMap const* timers,
                                  SyncObject const* lock, unsigned int rawMsgSize)
            : mListener(listener), mJudge(judge), mTimers(timers), mLock(lock), mScratch(rawMsgSize) {}
        bool operator()(ThreadRawMsg& msg);

        /// True if the last message that was meant was an expiry, false if it was an envelope.
        bool hasFoundTimer() const { return mFoundTimer; }

      private:
        bool isTimerMeant(ThreadRawMsg& msg);
        bool isEnvelopeMeant(ThreadRawMsg& msg);

        ThreadMsgListener* mListener;
        JUDGE* mJudge;
        TimerListenerMap const* mTimers;
        SyncObject const* mLock;
        SpecifiedMsgListenerMsg mScratch;
        bool mFoundTimer = false;
    };

    /// Forgets whom the timer belonged to.
    void onEraseTimer(int userTimerId) override;

    /// Steps of `receiveMsg`, on the message thread.
    ///@{
    void forwardMsg(int threadId, ThreadRawMsg& msg);
    void onAttachMsgListener(ThreadRawMsg& msg);
    void onDetachMsgListener(ThreadRawMsg& msg);
    void onSpecifiedMsgListener(int threadId, ThreadRawMsg& msg);
    void onTimer(int threadId, ThreadRawMsg& msg);
    ///@}

    /// Steps of attaching and detaching: on the message thread, or while there is no loop.
    ///@{
    int addMsgListener(ThreadMsgListener* listener);
    void eraseMsgListener(ThreadMsgListener* listener);
    ///@}

  private:
    friend struct MsgDrivenSharedThreadTestAccess;

    // The steps of the class, which its sources define.
    class CallBracket;
    class SendSteps;
    class AttachSteps;
    class TimerSteps;
    struct BroadcastQuestion;
    struct ListenerQuestion;

    unsigned int indexOf(ThreadMsgListener const* listener) const;
    static bool isEnvelopeId(int msgId);
    static bool findTimerListener(TimerListenerMap const& timers, SyncObject const& lock, ThreadRawMsg& msg,
                                  ThreadMsgListener** listener);

    Array<ThreadMsgListener*> mListeners;
    int mAttachResult = 0;
    int mForwardIndex;
    SpecifiedMsgListenerMsg mPostMsg;
    SpecifiedMsgListenerMsg mSyncMsg;
    SpecifiedMsgListenerMsg mInterruptMsg;
    SpecifiedMsgListenerMsg mReceivedMsg;
    TimerListenerMap mTimerListeners;
    SyncObject mAttachLock;
    SyncObject mPostLock;
    SyncObject mSyncSendLock;
    SyncObject mInterruptSendLock;
    SyncObject mTimerMapLock;
};

template <typename JUDGE>
bool MsgDrivenSharedThread::JudgeMsgBroadcast<JUDGE>::operator()(ThreadRawMsg& msg) {
    int id = MSG_ID_NONE;
    if (msg.getMsgId(&id) == 0 || isEnvelopeId(id)) {
        return false;
    }
    if (id == MSG_ID_TIMER) {
        ThreadMsgListener* owner = nullptr;
        return findTimerListener(*mTimers, *mLock, msg, &owner) && owner == nullptr && (*mJudge)(msg);
    }
    return (*mJudge)(msg);
}

template <typename JUDGE>
bool MsgDrivenSharedThread::JudgeMsgSpecifiedListener<JUDGE>::operator()(ThreadRawMsg& msg) {
    int id = MSG_ID_NONE;
    if (mListener == nullptr || msg.getMsgId(&id) == 0) {
        return false;
    }
    switch (id) {
        case MSG_ID_TIMER:
            return isTimerMeant(msg);
        case MSG_ID_LISTENER_SPECIFIED:
            return isEnvelopeMeant(msg);
        default:
            return false;
    }
}

template <typename JUDGE>
bool MsgDrivenSharedThread::JudgeMsgSpecifiedListener<JUDGE>::isTimerMeant(ThreadRawMsg& msg) {
    ThreadMsgListener* owner = nullptr;
    if (!findTimerListener(*mTimers, *mLock, msg, &owner) || owner != mListener || !(*mJudge)(msg)) {
        return false;
    }
    mFoundTimer = true;
    return true;
}

template <typename JUDGE>
bool MsgDrivenSharedThread::JudgeMsgSpecifiedListener<JUDGE>::isEnvelopeMeant(ThreadRawMsg& msg) {
    if (mScratch.restoreFrom(msg) == 0 || mScratch.mListener != mListener || !(*mJudge)(mScratch.mRawMsg)) {
        return false;
    }
    mFoundTimer = false;
    return true;
}

extern template class Array<ThreadMsgListener*>;
extern template class Map<int, ThreadMsgListener*>;
extern template class UTL_API_INSTANCE
    MsgDrivenSharedThread::JudgeMsgBroadcast<MsgDrivenThread::JudgeMsgSpecifiedMsgId>;
extern template class UTL_API_INSTANCE
    MsgDrivenSharedThread::JudgeMsgSpecifiedListener<MsgDrivenThread::JudgeMsgSpecifiedMsgId>;

}  // namespace utl

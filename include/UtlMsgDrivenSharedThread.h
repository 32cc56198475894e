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
/// Timers are divided in the same way: `registerTimer` and `setTimer` determine who gets their expiries. All
/// listeners of a broadcast get the same message, and each restores it for itself. Order, queues and the end
/// of the thread are as in `MsgDrivenThread`, for all listeners together.
///
/// Nothing checks that the listener of a message or a timer still exists. Before a listener is destroyed, its
/// owner calls `detachMsgListener` and then `abortMsg`, while the thread runs or after its `stop`. From then
/// on nobody may send to it, or be inside a call that does. On the message thread, the handler of any
/// listener may call `abortMsg`, its own included.
///
/// A handler may do everything that is not forbidden here. It must not wait for another thread that is inside
/// a call which waits for this one.
///
/// From another thread than itself, every call here that may block reports to the watchdog before and after
/// the place where it does.
class UTL_API MsgDrivenSharedThread : public MsgDrivenThread, public ThreadMsgListener {
  public:
    /// What attaching, detaching and aborting return.
    enum ListenerResult { LISTENER_FAILED = 0, LISTENER_DONE = 1 };

    /// `maxMsgSize` is the largest message in bytes without its 4 bytes of id, `maxMsgCount` how many
    /// messages can wait, `maxListenerCount` how many listeners can be attached at a time, none for a value
    /// above 0x7FFFFFFF; `maxTimerCount` how many timers there can be. See `MsgDrivenThread` for the rest. In
    /// the queue every message takes the room of one with an address.
    MsgDrivenSharedThread(unsigned int maxMsgSize, unsigned int maxMsgCount, unsigned int maxListenerCount,
                          char const* name, unsigned int maxTimerCount = 0);

    /// Closes the pipe and waits for a loop that still runs; stop the thread before.
    ~MsgDrivenSharedThread() override;
    MsgDrivenSharedThread(MsgDrivenSharedThread const&) = delete;
    MsgDrivenSharedThread& operator=(MsgDrivenSharedThread const&) = delete;

    /// As those of `MsgDrivenThread`, with this object as the thread's own listener. The `preExecute` of a
    /// derived class must not attach or detach: `start` may wait for it. While a `stop` waits, attaching and
    /// detaching from outside wait, too. Whatever their arguments say about waiting, `start` and `stop` first
    /// wait without limit for an attach or a detach in progress. So a handler must not wait for the request
    /// to stop while another thread may be attaching.
    ///@{
    int start(int watchdog = 0, unsigned int aliveTime = 0, WatchdogTimerListener* listener = nullptr,
              int waitReady = 1, unsigned int waitTimeout = 0,
              ThreadPriority const& priority = ThreadPriority(), unsigned int reserved = 0);
    int stop(int wait = 1, unsigned int timeout = 0);
    ///@}

    /// Sends to all attached listeners, as `MsgDrivenThread` does to its only one. A message counts as
    /// delivered even if nobody is attached.
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

    /// Lets broadcasts reach the listener. 1, also if it is attached already, and then nothing changes. 0 for
    /// null, if `maxListenerCount` are attached, and, with a log line, if the thread could not be asked. In a
    /// handler it is done at once, for the next broadcast. From outside, the call does not wait before the
    /// start. After it, the call waits without limit: until the thread is ready and has reached the request
    /// in the queue, or, once a stop was requested, until the thread has ended.
    int attachMsgListener(ThreadMsgListener* listener);

    /// Ends that, and waits in the same way. After it no broadcast reaches the listener. If a handler
    /// detaches a listener that has not had its turn, the broadcast in progress does not reach that one
    /// either. Its timers and the messages sent to it are not affected: `abortMsg` removes them. 1 if the
    /// listener is not attached any more, also if it never was; 0, with a log line, if the thread could not
    /// be asked, and then the listener may still be attached.
    int detachMsgListener(ThreadMsgListener* listener);

    /// Questions as those of `MsgDrivenThread`, but only about broadcasts. The expiry of a timer belongs to
    /// them if the timer does.
    ///@{
    bool hasMsg(int msgId);
    bool eraseMsg(int msgId);
    bool peekMsg(int msgId, ThreadRawMsg* out);
    int getFirstMsgId();
    ///@}

    /// The same about what only one listener is to receive: messages sent to it and the expiries of its
    /// timers. `peekMsg` copies the message as it was sent. For a null listener false and `MSG_ID_NONE`,
    /// except for `eraseMsg`, which finds nothing to erase.
    ///@{
    bool hasMsg(ThreadMsgListener* listener, int msgId);
    bool eraseMsg(ThreadMsgListener* listener, int msgId);
    bool peekMsg(ThreadMsgListener* listener, int msgId, ThreadRawMsg* out);
    int getFirstMsgId(ThreadMsgListener* listener);
    ///@}

    /// Kills the listener's timers and erases what is queued only for it. A message that it has at the moment
    /// is not affected; from outside, the call waits without limit until that is over. A `sendMsgInterrupt`
    /// to it is not a queued message and is not erased: its sender must have returned before the listener is
    /// destroyed. 1, or 0 if a timer ended by itself meanwhile, if the thread could not be asked or does not
    /// run, or for null.
    int abortMsg(ThreadMsgListener* listener);

    /// Timers whose expiries are broadcast; arguments and results as for `MsgDrivenThread`. If `setTimer`
    /// registers a timer and cannot start it, the timer keeps its place until the thread ends and never
    /// expires. `registerTimer` waits for no other caller, with one exception from outside: if a timer that
    /// is being killed still has its place here, the new one is killed, which waits for others as `killTimer`
    /// does.
    ///@{
    [[nodiscard]] int registerTimer(unsigned int interval, unsigned int repeatCount = TIMER_NO_END,
                                    int autoRepeat = TIMER_AUTO_REPEAT);
    int setTimer(unsigned int interval, int noWait = TIMER_WAIT, unsigned int repeatCount = TIMER_NO_END,
                 int autoRepeat = TIMER_AUTO_REPEAT);
    ///@}

    /// Timers whose expiries go to one listener, attached or not; -1 also for a null listener. They wait as
    /// those above. They have no default arguments, so that an interval of 0 is never taken for a listener.
    ///@{
    [[nodiscard]] int registerTimer(ThreadMsgListener* listener, unsigned int interval,
                                    unsigned int repeatCount, int autoRepeat);
    int setTimer(ThreadMsgListener* listener, unsigned int interval, int noWait, unsigned int repeatCount,
                 int autoRepeat);
    ///@}

    /// As those of `MsgDrivenThread`, for either kind of timer.
    ///@{
    bool startTimer(int timerId, int noWait = TIMER_WAIT);
    bool killTimer(int timerId, int noWait = TIMER_WAIT);
    ///@}

    /// Forwards a message of the thread. Only the loop calls it.
    void receiveMsg(int threadId, ThreadRawMsg& msg) override;

  protected:
    /// The request to attach or detach a listener; *one owner thread*, as every message.
    class UTL_API MsgListenerMsg : public Msg {
      public:
        /// Without a listener; `msgId` is the request.
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

    /// Matches the broadcasts whose flat form `JUDGE` matches; *one owner thread*, as every judgement.
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

    /// Matches what only one listener is to receive and `JUDGE` matches: expiries of its timers by their flat
    /// form, messages in envelopes by their content; *one owner thread*, as every judgement.
    template <typename JUDGE>
    class JudgeMsgSpecifiedListener {
      public:
        /// What is pointed to stays the caller's. `rawMsgSize` is the size of the message in an envelope.
        JudgeMsgSpecifiedListener(ThreadMsgListener* listener, JUDGE* judge, TimerListenerMap const* timers,
                                  SyncObject const* lock, unsigned int rawMsgSize)
            : mListener(listener), mJudge(judge), mTimers(timers), mLock(lock), mScratch(rawMsgSize) {}
        bool operator()(ThreadRawMsg& msg);

        /// True if the last match was an expiry, false if it was an envelope.
        [[nodiscard]] bool hasFoundTimer() const noexcept { return mFoundTimer; }

      private:
        bool matchesTimer(ThreadRawMsg& msg);
        bool matchesEnvelope(ThreadRawMsg& msg);

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
    // The steps of the class, which its sources define.
    class CallBracket;
    class CallGuard;
    class PostGuard;
    class SendSteps;
    class AttachSteps;
    class TimerSteps;
    struct BroadcastQuestion;
    struct ListenerQuestion;

    struct TimerOwners {
        TimerListenerMap const& mTimers UTL_GUARDED_BY(mLock);
        SyncObject const& mLock;
    };

    unsigned int indexOf(ThreadMsgListener const* listener) const;
    static bool isEnvelopeId(int msgId);
    static bool findTimerListener(TimerOwners const& owners, ThreadRawMsg& msg, ThreadMsgListener** listener);

    Array<ThreadMsgListener*> mListeners;
    int mAttachResult = 0;
    int mForwardIndex;
    SpecifiedMsgListenerMsg mPostMsg;
    SpecifiedMsgListenerMsg mSyncMsg;
    SpecifiedMsgListenerMsg mInterruptMsg;
    SpecifiedMsgListenerMsg mReceivedMsg;
    TimerListenerMap mTimerListeners UTL_GUARDED_BY(mTimerMapLock);
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
        return findTimerListener({*mTimers, *mLock}, msg, &owner) && owner == nullptr && (*mJudge)(msg);
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
            return matchesTimer(msg);
        case MSG_ID_LISTENER_SPECIFIED:
            return matchesEnvelope(msg);
        default:
            return false;
    }
}

template <typename JUDGE>
bool MsgDrivenSharedThread::JudgeMsgSpecifiedListener<JUDGE>::matchesTimer(ThreadRawMsg& msg) {
    ThreadMsgListener* owner = nullptr;
    if (!findTimerListener({*mTimers, *mLock}, msg, &owner) || owner != mListener || !(*mJudge)(msg)) {
        return false;
    }
    mFoundTimer = true;
    return true;
}

template <typename JUDGE>
bool MsgDrivenSharedThread::JudgeMsgSpecifiedListener<JUDGE>::matchesEnvelope(ThreadRawMsg& msg) {
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

#pragma once

#include <signal.h>

#include <atomic>

#include "UtlEvent.h"
#include "UtlMsg.h"
#include "UtlRingArray.h"
#include "UtlSyncObject.h"
#include "UtlThread.h"
#include "UtlThreadRawMsg.h"
#include "UtlTimerInfo.h"

namespace utl {

/// Receives the messages of a message thread, on that thread and with none of its locks held. The object
/// belongs to the application and must live as long as messages can reach it. *One owner thread*: the message
/// thread's calls come one at a time.
class UTL_API ThreadMsgListener {
  public:
    ThreadMsgListener() = default;
    ThreadMsgListener(ThreadMsgListener const&) = default;
    ThreadMsgListener& operator=(ThreadMsgListener const&) = default;
    virtual ~ThreadMsgListener();

    /// `msg` is valid during the call. Read its id with `getMsgId`, then restore an object of the class that
    /// belongs to the id.
    ///
    /// An exception that leaves it ends the process. `pthread_exit` in it ends the thread without an answer
    /// to its requests: whoever waits for the thread, or for its timers, waits forever. The thread's own
    /// `start` and `stop` return -1 here, and its synchronous sends 0. `requestStop` of another thread, and
    /// posts, are allowed.
    virtual void receiveMsg(int threadId, ThreadRawMsg& msg) = 0;
};

/// A thread that waits for messages and hands each one to its listener. *Internally locked*, because any
/// thread may send; only `start` and `stop` must come from another thread than itself.
///
/// | State | Entered by | `postMsg` | `sendMsgAsync` |
/// |---|---|---|---|
/// | constructed | the constructor | refused | queued, delivered after `start` |
/// | running | `start`, once in its life | queued | queued |
/// | stopping | `stop` | refused | queued |
/// | ended | the loop, at the next token | refused | queued, never delivered |
///
/// A message is copied into a frame of `maxMsgSize` + 4 bytes in the data queue, and an entry in the control
/// queue announces it. No send allocates. Messages of all senders are delivered in the order in which they
/// were accepted; only `sendMsgInterrupt` overtakes. Messages still queued when the loop ends are not
/// delivered.
///
/// A timer of the thread reaches the listener as a `TimerMsg`, in the order of the queue. Its id is positive
/// and is not reused for a long time. Expiries that come faster than the listener works are dropped: at most
/// one timeout of a timer waits in the queue, or two with `autoRepeat`. A listener that needs their number
/// reads a clock.
///
/// | Timer | Entered by | `startTimer` | Expires | Left by |
/// |---|---|---|---|---|
/// | registered | `registerTimer` | runs | no | `startTimer`, `killTimer` |
/// | running | `setTimer`, `startTimer` | no effect | yes | `killTimer`, its last expiry, the end of the loop |
/// | removed | any of these | refused | no | |
///
/// Stop the thread before the object is destroyed; `AutoStop` does so at the end of a scope. The destructor
/// does not ask the thread to stop: it closes the pipe and waits until the loop has failed at its next read.
class UTL_API MsgDrivenThread : public Thread {
  public:
    /// Decides about one queued message; *one owner thread*, because only the message thread calls it. It is
    /// called under the queue lock: it must not wait for anything and must not change the queues. A question
    /// that it asks about them does not find what the erasure has removed so far.
    class UTL_API MsgJudgementInterface {
      public:
        MsgJudgementInterface() = default;
        MsgJudgementInterface(MsgJudgementInterface const&) = default;
        MsgJudgementInterface& operator=(MsgJudgementInterface const&) = default;
        virtual ~MsgJudgementInterface();

        /// True if `msg` matches.
        virtual bool judge(ThreadRawMsg& msg) = 0;
    };

    /// Matches the messages with one id, or all for `MSG_ID_ANY`; *immutable*.
    class UTL_API JudgeMsgSpecifiedMsgId {
      public:
        /// Any id is allowed.
        explicit JudgeMsgSpecifiedMsgId(int msgId) noexcept : mMsgId(msgId) {}

        /// True if `msg` matches.
        bool operator()(ThreadRawMsg& msg) const;

      private:
        int mMsgId;
    };

    /// Makes a judgement of a predicate, which stays the caller's; *one owner thread*, as every judgement.
    template <typename JUDGE>
    class MsgJudgement : public MsgJudgementInterface {
      public:
        /// `judge` must not be null and must outlive the judgement.
        explicit MsgJudgement(JUDGE* judge) noexcept : mJudge(judge) {}
        bool judge(ThreadRawMsg& msg) override { return (*mJudge)(msg); }

      private:
        JUDGE* mJudge;
    };

    /// What the operations that send return.
    enum SendResult { SEND_REFUSED = 0, SEND_DONE = 1 };

    /// Places of the control queue beyond one for each message: stop, timer and wake entries get through even
    /// if the data queue is full.
    static constexpr unsigned int EXTRA_CTL_ENTRIES = 256;

    /// A control entry: one element of the control queue, and what one token of the pipe carries.
    struct ThreadCtlMsg {
        int mMsgId = MSG_ID_NONE;  ///< a client's id, or one of `MSG_ID_CTL_...`
        int mParam = -1;           ///< the timer of a timer's entry, else -1
    };

    /// `maxMsgSize` is the largest message in bytes without its 4 bytes of id, `maxMsgCount` how many
    /// messages can wait, `maxTimerCount` how many timers there can be. A pipe that cannot be opened is
    /// logged, and the loop will end at once.
    ///
    /// The pipe is made large enough for `maxMsgCount` + 256 tokens of 8 bytes and those of the timers. If
    /// the system allows less (1 MiB by default for a process without privileges, that is about 130,000
    /// tokens), the queues hold as many messages as the pipe holds tokens, and the next one is refused with a
    /// log line.
    MsgDrivenThread(unsigned int maxMsgSize, unsigned int maxMsgCount, char const* name,
                    unsigned int maxTimerCount = 0);

    /// Waits for a loop that still runs; see above.
    ~MsgDrivenThread() override;
    MsgDrivenThread(MsgDrivenThread const&) = delete;
    MsgDrivenThread& operator=(MsgDrivenThread const&) = delete;

    /// Starts the loop. The arguments after `listener` are those of `Thread::start`. Returns what that
    /// returns, and -1 if `listener` is null, if there was a `start` before, even a failed one, or on the
    /// thread itself.
    int start(ThreadMsgListener* listener, int watchdog = 0, unsigned int aliveTime = 0,
              WatchdogTimerListener* watchdogListener = nullptr, int waitReady = 1,
              unsigned int waitTimeout = 0, ThreadPriority const& priority = ThreadPriority(),
              unsigned int reserved = 0);

    /// Ends the loop after the listener has returned; what is still queued is not delivered. Returns what
    /// `Thread::stop` returns, and -1 on the thread itself. While a `stop` waits, a `postMsg` from outside
    /// waits for its end, and fails. Whatever `wait` and `timeout` are, a `stop` first waits without limit
    /// for a timer call from outside that waits for the message thread. So a handler must not wait for the
    /// request to stop while another thread may be inside such a call.
    int stop(int wait = 1, unsigned int timeout = 0);

    /// Queues a copy of the message. 1, or 0 if the thread does not run, if it was asked to stop, or if the
    /// message is too large or the queue is full, which is logged. Does not wait for the delivery.
    int postMsg(Msg const& msg);
    int postMsg(int msgId);

    /// `postMsg` without the test whether the thread runs: for messages to a thread that is not yet started.
    int sendMsgAsync(Msg const& msg);

    /// Queues a copy of the message and waits without limit until the listener has returned. 1 if it was
    /// delivered; 0 if it was refused as by `postMsg`, on the thread itself, or if the loop ended or the
    /// message was erased first. One synchronous sender at a time; the others wait for their turn.
    ///
    /// If the message has a place for its frame and none in the control queue, the frame stays in the data
    /// queue, where nobody receives or finds it. It is discarded with a log line after the next message that
    /// is queued, or to make room for one.
    int sendMsgSync(Msg const& msg);
    int sendMsgSync(int msgId);

    /// `sendMsgSync` that overtakes every queued message: it is delivered as soon as the listener returns
    /// from the message that it has now.
    int sendMsgInterrupt(Msg const& msg);
    int sendMsgInterrupt(int msgId);

    /// Queues a control entry and writes its token. 1, or 0 with a log line. After a failed write the entry
    /// stays and has no effect: it is dropped when it comes to the head. So is an entry with a `param` of
    /// `INT_MIN`, which marks such entries.
    int postThreadCtlMsg(int msgId, int param);

    /// Wakes the loop, so that it sees a request to stop; `stop` makes one. Returns at once, also where the
    /// pipe has no room: then any token that the loop reads ends it.
    void requestStop() override;

    /// Called after a timer has been removed permanently, with no lock of the thread held, on the thread that
    /// removed it: the caller of `killTimer`, or the message thread.
    virtual void onEraseTimer(int userTimerId) UTL_EXCLUDES(mQueueLock);

    /// Questions about the messages that are queued and not yet delivered, oldest first. A queued timeout
    /// counts as a message with the id `MSG_ID_TIMER`. The message that the listener has now, and an
    /// interrupt, are not queued. `msgId` may be `MSG_ID_ANY`. From other threads they wait without limit
    /// until the listener returns and the message thread has answered; one question of a kind at a time.
    /// False if the message thread does not run.
    ///@{

    /// True if a message matches.
    bool hasMsg(int msgId);

    /// Copies the first message that matches to `*out`, which takes the size of a frame. False, with `*out`
    /// untouched, if there is none or `out` is null.
    bool peekMsg(int msgId, ThreadRawMsg* out);

    /// Removes all that match. True if the whole queue was searched, whether or not a message matched. For an
    /// erased message, its synchronous sender gets 0. An erased timeout counts as an expiry of its timer.
    /// Nobody can post meanwhile; the time grows with what is queued and not with how many match.
    bool eraseMsg(int msgId);

    /// The id of the oldest message, or `MSG_ID_NONE`.
    int getFirstMsgId();

    /// The same by a judgement, which stays the caller's; false for null.
    bool hasMsgInternal(MsgJudgementInterface* judgement);
    bool peekMsgInternal(MsgJudgementInterface* judgement, ThreadRawMsg* out);
    bool eraseMsgInternal(MsgJudgementInterface* judgement);
    ///@}

    /// Removes the first control entry with this id; false if there is none.
    bool eraseMsgFromCtlQueue(int msgId);

    /// Removes a control entry and `dataSize` bytes at `dataOffset` of the data queue. False, with nothing
    /// changed, unless both places are in use.
    bool earseMsgQueue(unsigned int ctlIndex, unsigned int dataOffset, unsigned int dataSize);

    /// Timers. `interval` is in milliseconds, and 0 never expires. `repeatCount` is the number of expiries
    /// after which the timer is removed, 0 for no end. With `autoRepeat` 0 the next period begins when the
    /// listener has returned from the timeout; otherwise the timer runs on meanwhile. From other threads,
    /// `noWait` 0 waits without limit until the message thread has done it; any other value waits only until
    /// the request is queued. Before that, `setTimer`, `startTimer` and `killTimer` from outside wait for
    /// each other and for a `start` or `stop` in progress, whatever `noWait` is: as long as one caller waits
    /// for the message thread with `noWait` 0, all of them wait.
    ///@{

    /// Adds a timer that does not run yet. Returns its id, or -1 if the thread does not run, was asked to
    /// stop, or has its `maxTimerCount` timers.
    [[nodiscard]] int registerTimer(unsigned int interval, unsigned int repeatCount = TIMER_NO_END,
                                    int autoRepeat = TIMER_AUTO_REPEAT);

    /// Adds a timer and starts it. Returns its id. Or -1, with nothing left, as `registerTimer`, or if it
    /// could not be started, which is logged and is known only with `noWait` 0 or on the message thread.
    int setTimer(unsigned int interval, int noWait = TIMER_WAIT, unsigned int repeatCount = TIMER_NO_END,
                 int autoRepeat = TIMER_AUTO_REPEAT);

    /// Starts a registered timer; one that runs continues unchanged. False if the thread does not run or was
    /// asked to stop, for an unknown id, or if the start was waited for and failed. On the message thread
    /// true for any id.
    bool startTimer(int timerId, int noWait = TIMER_WAIT);

    /// Removes a timer permanently, and its timeouts that are queued. False for an unknown id or a thread
    /// that does not run. With `noWait` 0, and on the message thread, the listener gets no timeout of it any
    /// more when this returns.
    bool killTimer(int timerId, int noWait = TIMER_WAIT);

    /// Removes all timers. The loop does so at its end; nobody else may call it while the loop runs.
    void eraseAllTimer() UTL_EXCLUDES(mQueueLock);

    /// How many more timers there can be.
    [[nodiscard]] unsigned int remTimerIdCount() const;

    /// The record of a timer, or of one that is being killed; null for an unknown id. Valid while the caller
    /// knows that no timer is added or removed.
    [[nodiscard]] TimerInfo* findTimer(int timerId);
    [[nodiscard]] TimerInfo* findTimerStopEntry(int timerId);

    /// The id of the timer with this kernel number, or -1.
    [[nodiscard]] int toUserTimerId(int sysTimerNum);

    /// The next positive number that is not the kernel number of a timer here. For programs that number
    /// timers themselves.
    int getNextSysTimerNumber();

    /// The handler of the timers' signal, which runs on any thread.
    static void TimeoutSignalHandler(int signalNumber, siginfo_t* info, void* context);
    ///@}

  protected:
    int execute() override;

    /// True on the message thread. False everywhere before the start.
    bool isOwnThread() const;

    /// True while the thread runs and was not asked to stop, so that it accepts a `postMsg`.
    bool acceptsMsg() const;

    /// What `start`, `stop`, and from outside `postMsg` and every timer operation hold, also while they wait
    /// for the message thread. It is the outermost of the thread's locks. The message thread must never wait
    /// for it.
    SyncObject const& lifecycleLock() const UTL_RETURN_CAPABILITY(mLifecycleLock) { return mLifecycleLock; }

    /// Closes the pipe and waits for the end of a loop that still runs. For the destructor of a class whose
    /// fields the loop uses, on another thread; the object cannot be used after it.
    void abandonLoop();

    /// True for the id of a control entry that has a frame in the data queue, `MSG_ID_CTL_SYNC` apart.
    static bool isDataMsgId(int msgId);

    /// Makes the room of `msg`, which a listener has had and may have assigned to, `size` bytes again.
    static void restoreSize(ThreadRawMsg& msg, unsigned int size);

    /// Steps of the loop: passes the oldest frame to the listener. With `ctl`, the oldest control entry is
    /// removed. With `msgId`, frames of other ids before it are discarded; with `ctl`, so is a frame that a
    /// synchronous sender could not announce, whatever its id. 0, or -1 if there was no such frame.
    int executeReceiveMsg(Queue<ThreadCtlMsg>& ctl, Queue<unsigned char>& data) UTL_EXCLUDES(mQueueLock);
    int executeReceiveMsg(Queue<ThreadCtlMsg>& ctl, Queue<unsigned char>& data, int msgId)
        UTL_EXCLUDES(mQueueLock);
    int executeReceiveMsg(Queue<unsigned char>& data) UTL_EXCLUDES(mQueueLock);

    /// What `peekMsgInternal` and `eraseMsgInternal` do on the message thread.
    bool executeFindMsg(MsgJudgementInterface* judgement, ThreadRawMsg* out);
    bool executeEraseMsg(MsgJudgementInterface* judgement);

    /// Results of `executeStartTimer`.
    enum StartResult { START_FAILED = 0, START_DONE = 1, START_UNKNOWN = 2, START_RUNNING = 3 };

    /// Results of `TimeoutPostHandling`.
    enum TimeoutResult {
        TIMEOUT_RESTART_FAILED = 0,
        TIMEOUT_GONE = 1,
        TIMEOUT_GOES_ON = 2,
        TIMEOUT_FINISHED = 3
    };

    /// Starts a registered timer: a `StartResult`.
    int executeStartTimer(int timerId);

    /// Deletes the system timer of a killed one. 0, or -1 if the system refused that.
    int executeStopTimer(int timerId);

    /// Delivers the timeout at the head of the control queue; 0 also if it is not there any more. -1 if the
    /// timer could not be started again.
    int executeTimeout(int timerId) UTL_EXCLUDES(mQueueLock);

    /// Queues a timeout if the timer accepts one.
    void executeTimeoutSignal(int timerId);

    /// Counts a delivered timeout, and ends or continues its timer: a `TimeoutResult`.
    int TimeoutPostHandling(int timerId);

    /// Creates and arms the system timer, or deletes it if there is one. False for null, and with a log line
    /// if the system refuses.
    bool startTimerByTimerInfo(TimerInfo* info);
    bool eraseTimerByTimerInfo(TimerInfo* info);

    /// Steps to the next id that no timer has.
    void updateNextUserTimerIdValue();

  private:
    // The steps of the class, which its sources define.
    class QueueSteps;
    class RequestSteps;
    class LoopSteps;
    class ScanSteps;
    class Erasure;
    class TimerSteps;

    // Makes both queues whole for whoever locks it, even during an erasure on the same thread.
    class QueueLock final : public SyncObject {
      public:
        int lock() const override UTL_ACQUIRE();
    };

    ThreadMsgListener* mListener = nullptr;
    unsigned int mMaxMsgCount;
    Queue<ThreadCtlMsg> mCtlQueue UTL_GUARDED_BY(mQueueLock);
    Queue<unsigned char> mDataQueue UTL_GUARDED_BY(mQueueLock);
    std::atomic<bool> mDataOverflowLogged{false};
    // No request may wait for the loop any more.
    bool mLoopEnded : 1 UTL_GUARDED_BY(mQueueLock);
    // The result of the start that somebody waits for.
    bool mStartSucceeded : 1 UTL_GUARDED_BY(mQueueLock);
    // One of the three events of a wake entry may be on.
    bool mIsRequested : 1 UTL_GUARDED_BY(mQueueLock);
    // Frames without an entry, the last in mDataQueue.
    unsigned char mUnannouncedFrames UTL_GUARDED_BY(mQueueLock) = 0;
    std::atomic<bool> mStopsAtAnyToken{false};  // a stop has found no room for its own
    Queue<unsigned char> mInterruptQueue UTL_GUARDED_BY(mQueueLock);
    ThreadRawMsg mSendMsg UTL_GUARDED_BY(mQueueLock);
    ThreadRawMsg mReceiveMsg;
    ThreadRawMsg mScanMsg UTL_GUARDED_BY(mQueueLock);
    ThreadRawMsg* mPeekTarget = nullptr;
    Event mInterruptEvent;
    Event mSyncEvent;
    Event mEraseEvent;
    Event mFindEvent;
    bool mSyncResult = false;
    bool mInterruptResult = false;
    bool mEraseResult = false;
    bool mFindResult = false;
    Map<int, TimerInfo> mTimers UTL_GUARDED_BY(mQueueLock);
    Map<int, TimerInfo> mStopTimers UTL_GUARDED_BY(mQueueLock);
    int mNextUserTimerId UTL_GUARDED_BY(mQueueLock) = 1;
    MsgJudgementInterface* mEraseJudgement = nullptr;
    MsgJudgementInterface* mFindJudgement = nullptr;
    int mNextSysTimerNumber UTL_GUARDED_BY(mQueueLock) = 1;
    std::atomic<int> mPipe[2];
    SyncObject mLifecycleLock;
    QueueLock mQueueLock;
    SyncObject mSyncLock;
    SyncObject mInterruptLock;
    SyncObject mEraseLock;
    SyncObject mFindLock;
};

/// Stops a message thread at the end of a scope, waits for its end and releases its place in the
/// `ThreadManager`'s table. *One owner thread*: the one that leaves the scope, which must not be the message
/// thread.
///
/// `THREAD` is `MsgDrivenThread`, `MsgDrivenSharedThread` or a class derived from them, and is deduced. The
/// scope calls `stop(1, 0)` and `leaveManagement()` of that class, whether or not the thread was started or
/// has ended. Declare it after the thread, and the thread after its listener.
template <typename THREAD>
class [[nodiscard]] AutoStop {
  public:
    /// `thread` must live as long as this.
    explicit AutoStop(THREAD& thread) noexcept : mThread(thread) {}
    ~AutoStop() {
        mThread.stop(1, 0);
        mThread.leaveManagement();
    }
    AutoStop(AutoStop const&) = delete;
    AutoStop& operator=(AutoStop const&) = delete;

  private:
    THREAD& mThread;
};

}  // namespace utl

#pragma once

#include <atomic>

#include "UtlEvent.h"
#include "UtlMsg.h"
#include "UtlRingArray.h"
#include "UtlSyncObject.h"
#include "UtlThread.h"
#include "UtlThreadRawMsg.h"

namespace utl {

struct PipeToken;

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
/// queue says that it is there. Nothing is allocated after construction. Messages are delivered in the order
/// in which they were accepted, from all senders together; `sendMsgInterrupt` alone overtakes. Messages still
/// queued when the loop ends are not delivered.
///
/// Stop the thread before the object goes. The destructor does not ask the thread to stop: it takes the pipe
/// away, so that the loop fails at its next read, and waits for that.
class UTL_API MsgDrivenThread : public Thread {
  public:
    /// A control entry: what stands in the control queue, and what one token of the pipe carries.
    struct ThreadCtlMsg {
        int mMsgId = MSG_ID_NONE;
        int mParam = -1;
    };

    /// `maxMsgSize` is the largest message in bytes without its 4 bytes of id, `maxMsgCount` how many
    /// messages can wait. A pipe that cannot be had is logged and leaves an object whose loop ends at once.
    ///
    /// The pipe is made large enough for `maxMsgCount` + 256 tokens of 8 bytes. Where the system allows less
    /// (1 MiB by default for a process without privileges, that is about 130,000 tokens), the queues hold as
    /// many messages as the pipe holds tokens, and the next one is refused as if the control queue were full.
    MsgDrivenThread(unsigned int maxMsgSize, unsigned int maxMsgCount, char const* name);

    /// Waits for a loop that still runs; see above.
    ~MsgDrivenThread() override;

    /// Starts the loop. The arguments behind `listener` are those of `Thread::start`. Gives what that gives,
    /// and -1 when `listener` is null, when there was a `start` before, also a failed one, or on the thread
    /// itself.
    int start(ThreadMsgListener* listener, int watchdog = 0, unsigned int aliveTime = 0,
              WatchdogTimerListener* watchdogListener = nullptr, int waitReady = 1,
              unsigned int waitTimeout = 0, ThreadPriority const& priority = ThreadPriority(),
              unsigned int reserved = 0);

    /// Ends the loop once the listener has returned; what is queued then stays undelivered. Gives what
    /// `Thread::stop` gives, and -1 on the thread itself. A `postMsg` from outside waits until a `stop` that
    /// waits is over, and fails.
    int stop(int wait = 1, unsigned int timeout = 0);

    /// Queues a copy of the message. 1, or 0 when the thread does not run, when it was asked to stop, or
    /// when the message is too large or the queue is full, which is logged. Does not wait for the delivery.
    int postMsg(Msg const& msg);
    int postMsg(int msgId);

    /// `postMsg` without the question whether the thread runs: messages for a thread that is yet to be
    /// started.
    int sendMsgAsync(Msg const& msg);

    /// Queues a copy of the message and waits without limit until the listener has returned. 1 when it was
    /// delivered; 0 when it was refused as by `postMsg`, on the thread itself, or when the loop ended or the
    /// message was erased first. One synchronous sender at a time; the others wait for their turn.
    int sendMsgSync(Msg const& msg);
    int sendMsgSync(int msgId);

    /// `sendMsgSync` that overtakes every queued message: it is delivered as soon as the listener returns
    /// from the message that it has now.
    int sendMsgInterrupt(Msg const& msg);
    int sendMsgInterrupt(int msgId);

    /// Queues a control entry and writes its token. 1, or 0 with a log line. After a failed write the entry
    /// stays.
    int postThreadCtlMsg(int msgId, int param);

  protected:
    int execute() override;
    void requestStop() override;

    /// True for the id of a control entry that has a frame in the data queue, `MSG_ID_CTL_SYNC` apart.
    static bool isDataMsgId(int msgId);

    int executeReceiveMsg(Queue<ThreadCtlMsg>& ctl, Queue<unsigned char>& data);
    int executeReceiveMsg(Queue<ThreadCtlMsg>& ctl, Queue<unsigned char>& data, int msgId);
    int executeReceiveMsg(Queue<unsigned char>& data);

    /// Removes the first control entry with this id; false if there is none.
    bool eraseMsgFromCtlQueue(int msgId);

  private:
    // What a synchronous send and an interrupt differ in.
    struct WaitingSend {
        SyncObject& mLock;
        Event& mEvent;
        bool& mResult;
        Queue<unsigned char>& mFrames;
        int mCtlId;
    };

    bool isOwnThread() const;
    bool acceptsMsg() const;

    bool flatten(Msg const& msg);
    bool queueFrame(Queue<unsigned char>& frames, int msgId);
    int sendAndWait(Msg const& msg, WaitingSend const& send);
    bool queueRequest(Msg const& msg, WaitingSend const& send);
    bool announceRequest(Event& event, int ctlId);

    int runLoop();
    void leaveLoop();
    bool serveToken(PipeToken const& token, StatementInfo const& place);
    bool peekHead(ThreadCtlMsg* head);
    bool isPending(Event const& request) const;
    bool serveInterrupt();
    int actOn(ThreadCtlMsg const& head);
    int deliverSync();
    int deliverPosted(int msgId);
    int removeHead();
    void takeFrame(Queue<unsigned char>& data);
    bool takeFrameOf(int msgId, Queue<ThreadCtlMsg>& ctl, Queue<unsigned char>& data);
    int handToListener();

    ThreadMsgListener* mListener = nullptr;
    unsigned int mMaxMsgCount;
    Queue<ThreadCtlMsg> mCtlQueue;
    Queue<unsigned char> mDataQueue;
    std::atomic<bool> mDataOverflowLogged{false};
    bool mLoopEnded = false;  // under mQueueLock: no request may wait for the loop any more
    Queue<unsigned char> mInterruptQueue;
    ThreadRawMsg mSendMsg;
    ThreadRawMsg mReceiveMsg;
    Event mInterruptEvent;
    Event mSyncEvent;
    bool mSyncResult = false;
    bool mInterruptResult = false;
    std::atomic<int> mPipe[2];
    SyncObject mLifecycleLock;
    SyncObject mQueueLock;
    SyncObject mSyncLock;
    SyncObject mInterruptLock;
};

}  // namespace utl

#pragma once

#include "UtlMsgDrivenThread.h"
#include "internal/base/UtlHidden.h"

namespace utl {

struct PipeToken;

/// The loop of a message thread. *One owner thread*: the message thread.
class UTL_HIDDEN MsgDrivenThread::LoopSteps {
  public:
    explicit LoopSteps(MsgDrivenThread& thread) : mThread(thread) {}

    /// Reads and serves tokens until the stop: 0, or -1 if the pipe failed.
    int run();

    /// Refuses new requests from now on, erases all timers and releases whoever waits.
    void leave();

    /// Passes `mReceiveMsg` to the listener.
    void deliver() UTL_EXCLUDES(mThread.mQueueLock);

    /// Moves the frame of a control entry, or the oldest frame, into `mReceiveMsg` and passes it to the
    /// listener: 0, or -1 if there is none. The queues, those of the thread perhaps, are used under the lock.
    ///@{
    int receiveFrameOf(int ctlId, Queue<ThreadCtlMsg>* entries, Queue<unsigned char>* frames)
        UTL_EXCLUDES(mThread.mQueueLock);
    int receiveFirst(Queue<unsigned char>* frames) UTL_EXCLUDES(mThread.mQueueLock);
    ///@}

  private:
    // The head of the control queue as a token finds it.
    struct Head {
        ThreadCtlMsg entry;
        bool isRequested = false;  // requests are served before it
        bool hasFrame = false;     // its frame is in `mReceiveMsg`, and it has left its queue
    };

    static bool bringsFrame(int msgId);

    bool serveToken(PipeToken const& token, StatementInfo const& place);
    bool serveRequests(ThreadCtlMsg* head);
    bool takeHead(int tokenId, Head* head);
    bool peekHead(ThreadCtlMsg* head) UTL_REQUIRES(mThread.mQueueLock);
    bool peekHeadAnew(ThreadCtlMsg* head);
    int actOn(ThreadCtlMsg const& head);
    int deliverFrame(Head const& head);
    bool takeFrameOf(int ctlId, Queue<ThreadCtlMsg>* entries, Queue<unsigned char>* frames);
    int removeHead();
    int startTimerOfHead(int timerId);
    int stopTimerOfHead(int timerId);

    MsgDrivenThread& mThread;
};

}  // namespace utl

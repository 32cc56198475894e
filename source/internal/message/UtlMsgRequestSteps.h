#pragma once

#include "UtlMsgDrivenThread.h"
#include "internal/base/UtlHidden.h"

namespace utl {

/// What other threads ask of the loop of a message thread and wait for. *Internally locked*: each kind of
/// request has its own lock, and its event is on while the loop has not answered.
class UTL_HIDDEN MsgDrivenThread::RequestSteps {
  public:
    explicit RequestSteps(MsgDrivenThread& thread) : mThread(thread) {}

    /// As the operations of `MsgDrivenThread`.
    ///@{
    int sendSync(Msg const& msg);
    int sendInterrupt(Msg const& msg);
    bool find(MsgJudgementInterface* judgement, ThreadRawMsg* out);
    bool erase(MsgJudgementInterface* judgement);
    ///@}

    /// The other side, on the message thread: each answers the requests of its kind. True if there was one.
    ///@{
    bool serveInterrupt();
    bool serveErase();
    bool serveFind();
    ///@}

    /// A request that a wake entry is for waits for its answer.
    static bool isPending(MsgDrivenThread const& thread) UTL_REQUIRES(thread.mQueueLock);

    /// Releases all that wait, at the end of the loop.
    void releaseAll();

  private:
    // What a synchronous send and an interrupt differ in.
    struct Send {
        SyncObject& mLock;
        Event& mEvent;
        bool& mResult UTL_GUARDED_BY(mLock);
        Queue<unsigned char>& mFrames;
        int mCtlId;
    };

    int sendAndWait(Msg const& msg, Send const& send) UTL_EXCLUDES(mThread.mQueueLock);
    bool queueSend(Msg const& msg, Send const& send);
    bool announce(Event& event, int ctlId) UTL_REQUIRES(mThread.mQueueLock);
    bool askLoop(Event& event) UTL_EXCLUDES(mThread.mQueueLock);
    bool isOn(Event const& request) const;
    void finish(Event& request);

    MsgDrivenThread& mThread;
};

}  // namespace utl

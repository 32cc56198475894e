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
    void deliver();

  private:
    bool serveToken(PipeToken const& token, StatementInfo const& place);
    bool serveRequests(ThreadCtlMsg* head);
    bool peekHead(ThreadCtlMsg* head, bool* isRequested);
    int actOn(ThreadCtlMsg const& head);
    int deliverSync();
    int deliverPosted(int msgId);
    int removeHead();
    int startTimerOfHead(int timerId);
    int stopTimerOfHead(int timerId);

    MsgDrivenThread& mThread;
};

}  // namespace utl

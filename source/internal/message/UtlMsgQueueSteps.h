#pragma once

#include "UtlMsgDrivenThread.h"
#include "internal/base/UtlHidden.h"

namespace utl {

/// The control entries and frames of a message thread. *External lock needed*: the caller holds the thread's
/// `mQueueLock`.
///
/// A synchronous sender who cannot queue a control entry leaves a frame that no entry announces. Such frames
/// are the last ones of the data queue.
class UTL_HIDDEN MsgDrivenThread::QueueSteps {
  public:
    explicit QueueSteps(MsgDrivenThread& thread) : mThread(thread) {}

    /// True for an entry whose token could not be written. It is dropped when it comes to the head.
    static bool isDead(ThreadCtlMsg const& entry);

    /// True for an entry that announces a frame in the data queue.
    static bool hasFrame(ThreadCtlMsg const& entry);

    /// Writes `msg` to `mSendMsg`. False with a log line if it is too large.
    bool flatten(Msg const& msg);

    /// Appends `mSendMsg` to `frames`. False with a log line if there is no room. In the data queue,
    /// unannounced frames make room for a message that will find a place in the control queue.
    bool pushFrame(Queue<unsigned char>& frames, int msgId, int ctlId);

    /// Makes a place in the control queue and reserves room for one token. False with a log line.
    bool makeRoomForEntry(int msgId);

    /// Queues an entry and writes its token, after `makeRoomForEntry`. False with a log line: the entry is
    /// dead.
    bool pushEntry(int msgId, int param);

    /// Counts the last frame of the data queue as unannounced, or removes it if it cannot be counted.
    void keepUnannounced();

    /// Discards the unannounced frames, which `bytesAfter` bytes follow, with a log line each.
    void discardUnannounced(unsigned int bytesAfter, int ctlId);

    /// Copies the oldest control entry, after dropping those at the head that nobody waits for. False if the
    /// queue is empty.
    bool peekHead(ThreadCtlMsg* head);

    /// Moves the oldest frame into `mReceiveMsg`. False if it was unannounced.
    bool popFrame(Queue<unsigned char>& frames);

    /// Moves the frame of a control entry into `mReceiveMsg` and removes the oldest entry. Frames of other
    /// ids are discarded with a log line each; the entry of a synchronous message does not tell the id. False
    /// if there is no such frame.
    bool popFrameOf(int ctlId, Queue<ThreadCtlMsg>& entries, Queue<unsigned char>& frames);

    /// Bytes of the data queue that control entries announce.
    unsigned int announcedBytes() const;

  private:
    bool isCtlQueueFull() const;
    bool hasRoomForEntry() const;
    bool hasDeadHead() const;
    bool hasAnsweredHead() const;
    void reportDiscarded(ThreadRawMsg& frame, int ctlId);

    MsgDrivenThread& mThread;
};

}  // namespace utl

#pragma once

#include "UtlMsgDrivenThread.h"
#include "internal/base/UtlHidden.h"

namespace utl {

/// The control entries and frames of a message thread. *External lock needed*: the thread's `mQueueLock`.
///
/// A synchronous sender who cannot queue a control entry leaves a frame that no entry announces. Such frames
/// are the last ones of the data queue.
class UTL_HIDDEN MsgDrivenThread::QueueSteps {
  public:
    /// True for an entry whose token could not be written. It is dropped when it comes to the head.
    static bool isDead(ThreadCtlMsg const& entry);

    /// True for an entry that announces a frame in the data queue.
    static bool hasFrame(ThreadCtlMsg const& entry);

    /// Writes `msg` to `mSendMsg`. False with a log line if it is too large.
    static bool flatten(MsgDrivenThread& thread, Msg const& msg) UTL_REQUIRES(thread.mQueueLock);

    /// Appends `mSendMsg` to `frames`. False with a log line if there is no room. In the data queue,
    /// unannounced frames make room for a message that will find a place in the control queue.
    static bool pushFrame(MsgDrivenThread& thread, Queue<unsigned char>& frames, int msgId, int ctlId)
        UTL_REQUIRES(thread.mQueueLock);

    /// Queues an entry and writes its token. False with a log line: there was no room for one of them, or the
    /// entry is dead.
    static bool postEntry(MsgDrivenThread& thread, int msgId, int param) UTL_REQUIRES(thread.mQueueLock);

    /// Counts the last frame of the data queue as unannounced, or removes it if it cannot be counted.
    static void keepUnannounced(MsgDrivenThread& thread) UTL_REQUIRES(thread.mQueueLock);

    /// Discards the unannounced frames, which `bytesAfter` bytes follow, with a log line each.
    static void discardUnannounced(MsgDrivenThread& thread, unsigned int bytesAfter, int ctlId)
        UTL_REQUIRES(thread.mQueueLock);

    /// Copies the oldest control entry, after dropping those at the head that nobody waits for. False if the
    /// queue is empty.
    static bool peekHead(MsgDrivenThread& thread, ThreadCtlMsg* head) UTL_REQUIRES(thread.mQueueLock);

    /// Moves the oldest frame into `mReceiveMsg`. False if it was unannounced.
    static bool popFrame(MsgDrivenThread& thread, Queue<unsigned char>& frames)
        UTL_REQUIRES(thread.mQueueLock);

    /// Moves the frame of a control entry into `mReceiveMsg` and removes the oldest entry. Frames of other
    /// ids are discarded with a log line each; the entry of a synchronous message does not tell the id. False
    /// if there is no such frame.
    static bool popFrameOf(MsgDrivenThread& thread, int ctlId, Queue<ThreadCtlMsg>& entries,
                           Queue<unsigned char>& frames) UTL_REQUIRES(thread.mQueueLock);

    /// Bytes of the data queue that control entries announce.
    static unsigned int announcedBytes(MsgDrivenThread const& thread) UTL_REQUIRES(thread.mQueueLock);

  private:
    // A place in the control queue and room for one token, or a log line.
    static bool makeRoomForEntry(MsgDrivenThread& thread, int msgId) UTL_REQUIRES(thread.mQueueLock);
    static bool pushEntry(MsgDrivenThread& thread, int msgId, int param) UTL_REQUIRES(thread.mQueueLock);
    static bool isCtlQueueFull(MsgDrivenThread const& thread) UTL_REQUIRES(thread.mQueueLock);
    static bool hasRoomForEntry(MsgDrivenThread const& thread) UTL_REQUIRES(thread.mQueueLock);
    static bool hasDeadHead(MsgDrivenThread const& thread) UTL_REQUIRES(thread.mQueueLock);
    static bool hasAnsweredHead(MsgDrivenThread const& thread) UTL_REQUIRES(thread.mQueueLock);
    static void reportDiscarded(MsgDrivenThread const& thread, ThreadRawMsg& frame, int ctlId);
};

}  // namespace utl

#pragma once

#include <atomic>

#include "UtlMsgDrivenThread.h"
#include "internal/base/UtlHidden.h"
#include "internal/message/UtlMsgQueueSteps.h"
#include "internal/message/UtlQueueGap.h"

namespace utl {

/// Looks through the queued messages of a message thread, oldest first. *External lock needed*: the thread's
/// `mQueueLock`. Each message is brought into `mScanMsg` before it is judged.
class UTL_HIDDEN MsgDrivenThread::ScanSteps {
  public:
    /// True if a message matches; the first one is copied to `*out` unless that is null.
    static bool find(MsgDrivenThread& thread, MsgJudgementInterface& judgement, ThreadRawMsg* out)
        UTL_REQUIRES(thread.mQueueLock);

    /// The frame at `offset` of the data queue, or as many of its bytes as are announced. False if there are
    /// none.
    static bool scanFrame(MsgDrivenThread& thread, unsigned int offset) UTL_REQUIRES(thread.mQueueLock);

    /// The timeout of a timer in the form of a message. False if a frame is too small for it.
    static bool scanTimeout(MsgDrivenThread& thread, int timerId) UTL_REQUIRES(thread.mQueueLock);

  private:
    static bool scan(MsgDrivenThread& thread, ThreadCtlMsg const& entry, unsigned int offset)
        UTL_REQUIRES(thread.mQueueLock);
};

/// An erasure from both queues of a message thread. *External lock needed*: the thread's `mQueueLock`.
///
/// What it has removed is a gap in both queues until somebody else looks at them. Whoever does so takes the
/// lock first, and only the erasure's own thread gets it: for a question or an erasure of a judgement, or for
/// a step of a timer.
class [[nodiscard]] UTL_HIDDEN MsgDrivenThread::Erasure {
  public:
    /// The outcome for an entry. After `ENDED_TIMER` the caller releases the lock for `onEraseTimer`; the
    /// queues may change meanwhile, so it starts again from the head.
    enum class Step { FAILED, DONE, ENDED_TIMER };

    ~Erasure() {
        mErasures.fetch_sub(1, std::memory_order_relaxed);
        tInnermost = mOuter;
    }
    Erasure(Erasure const&) = delete;
    Erasure& operator=(Erasure const&) = delete;

    /// Removes all that match. `*endedTimer` is the timer of `ENDED_TIMER`.
    static Step eraseMatches(MsgDrivenThread& thread, MsgJudgementInterface& judgement, int* endedTimer)
        UTL_REQUIRES(thread.mQueueLock);

    /// True while there is one anywhere in the process. Nearly always false, and faster to ask than whether
    /// this thread has one.
    static bool isAnyUnderWay() { return mErasures.load(std::memory_order_relaxed) != 0; }

    /// Makes the queues whole that this thread is erasing from under `lock`.
    static void closeAllUnder(SyncObject const& lock);

  private:
    explicit Erasure(MsgDrivenThread& thread) : mThread(thread) {
        tInnermost = this;
        mErasures.fetch_add(1, std::memory_order_relaxed);
    }

    Step eraseEachMatch(MsgJudgementInterface& judgement, int* endedTimer) UTL_REQUIRES(mThread.mQueueLock);
    Step eraseIfMatching(ThreadCtlMsg const& entry, MsgJudgementInterface& judgement)
        UTL_REQUIRES(mThread.mQueueLock);
    bool scan(ThreadCtlMsg const& entry) UTL_REQUIRES(mThread.mQueueLock);
    bool scanFrame(ThreadCtlMsg const& entry) UTL_REQUIRES(mThread.mQueueLock);
    bool take(ThreadCtlMsg const& entry, unsigned int frameBytes);
    Step finish(ThreadCtlMsg const& entry);
    void pass(unsigned int frameBytes);
    void close();

    static thread_local Erasure* tInnermost;
    static std::atomic<unsigned int> mErasures;

    MsgDrivenThread& mThread;
    QueueGap<ThreadCtlMsg> mEntries{mThread.mCtlQueue};
    QueueGap<unsigned char> mFrames{mThread.mDataQueue};
    bool mFramesAreUnseen = false;  // only the control entries are looked at
    Erasure* const mOuter = tInnermost;
};

}  // namespace utl

#include "internal/message/UtlMsgScanSteps.h"

#include "UtlLog.h"

namespace utl {

namespace {

void reportEraseFailure(char const* what, int line) {
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "MsgDrivenThread::executeEraseMsg(): %s Line=%d", what, line);
}

}  // namespace

bool MsgDrivenThread::ScanSteps::scanFrame(MsgDrivenThread& thread, unsigned int offset) {
    unsigned int const end = QueueSteps::announcedBytes(thread);
    if (offset >= end) {
        return false;
    }
    unsigned int const rest = end - offset;
    ThreadRawMsg& msg = thread.mScanMsg;
    return thread.mDataQueue.copyOut(offset, msg.buffer(), rest < msg.maxSize() ? rest : msg.maxSize());
}

bool MsgDrivenThread::ScanSteps::scanTimeout(MsgDrivenThread& thread, int timerId) {
    TimerMsg msg;
    msg.mTimerId = timerId;
    return msg.storeTo(&thread.mScanMsg) != 0;
}

bool MsgDrivenThread::ScanSteps::find(MsgDrivenThread& thread, MsgJudgementInterface& judgement,
                                      ThreadRawMsg* out) {
    unsigned int offset = 0;
    unsigned int const count = thread.mCtlQueue.size();
    for (unsigned int i = 0; i < count; ++i) {
        ThreadCtlMsg const* const entry = thread.mCtlQueue.elementAt(i);
        if (entry == nullptr) {
            break;
        }
        unsigned int const place = offset;
        offset += QueueSteps::hasFrame(*entry) ? thread.mScanMsg.maxSize() : 0;
        if (scan(thread, *entry, place) && judgement.judge(thread.mScanMsg)) {
            if (out != nullptr) {
                *out = thread.mScanMsg;
            }
            return true;
        }
    }
    return false;
}

bool MsgDrivenThread::ScanSteps::scan(MsgDrivenThread& thread, ThreadCtlMsg const& entry,
                                      unsigned int offset) {
    if (QueueSteps::isDead(entry)) {
        return false;
    }
    if (entry.mMsgId == MSG_ID_CTL_TIMEOUT) {
        if (scanTimeout(thread, entry.mParam)) {
            return true;
        }
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread::executeFindMsg(): Can't store message. Line=%d", __LINE__);
    } else if (QueueSteps::hasFrame(entry)) {
        if (scanFrame(thread, offset)) {
            return true;
        }
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread::executeFindMsg(): Peek Data Queue fail. Line=%d MsgId=%d", __LINE__,
               entry.mMsgId);
    }
    return false;
}

thread_local MsgDrivenThread::Erasure* MsgDrivenThread::Erasure::tInnermost = nullptr;
std::atomic<unsigned int> MsgDrivenThread::Erasure::mErasures{0};

void MsgDrivenThread::Erasure::closeAllUnder(SyncObject const& lock) {
    for (Erasure* erasure = tInnermost; erasure != nullptr; erasure = erasure->mOuter) {
        if (&erasure->mThread.mQueueLock == &lock) {
            erasure->close();
        }
    }
}

void MsgDrivenThread::Erasure::close() {
    mEntries.close();
    if (!mFramesAreUnseen) {
        mFrames.close();
    }
}

// Not analysed: it does not see that the erasure's thread is this one.
MsgDrivenThread::Erasure::Step MsgDrivenThread::Erasure::eraseMatches(
    MsgDrivenThread& thread, MsgJudgementInterface& judgement,
    int* endedTimer) UTL_NO_THREAD_SAFETY_ANALYSIS {
    return Erasure(thread).eraseEachMatch(judgement, endedTimer);
}

MsgDrivenThread::Erasure::Step MsgDrivenThread::Erasure::eraseEachMatch(MsgJudgementInterface& judgement,
                                                                        int* endedTimer) {
    Step step = Step::DONE;
    for (unsigned int left = mThread.mCtlQueue.size(); left != 0 && step == Step::DONE; --left) {
        ThreadCtlMsg const* const next = mEntries.next();
        if (next == nullptr) {
            break;
        }
        ThreadCtlMsg const entry = *next;  // a judgement may have the gap closed, which moves entries
        step = eraseIfMatching(entry, judgement);
        if (step == Step::ENDED_TIMER) {
            *endedTimer = entry.mParam;
        }
    }
    return step;
}

MsgDrivenThread::Erasure::Step MsgDrivenThread::Erasure::eraseIfMatching(ThreadCtlMsg const& entry,
                                                                         MsgJudgementInterface& judgement) {
    bool const isTimeout = !QueueSteps::isDead(entry) && entry.mMsgId == MSG_ID_CTL_TIMEOUT;
    unsigned int const frameBytes = QueueSteps::hasFrame(entry) ? mThread.mScanMsg.maxSize() : 0;
    if (!isTimeout && frameBytes == 0) {
        pass(0);
        return Step::DONE;
    }
    if (!scan(entry)) {
        return Step::FAILED;
    }
    if (!judgement.judge(mThread.mScanMsg)) {
        pass(frameBytes);
        return Step::DONE;
    }
    return take(entry, frameBytes) ? finish(entry) : Step::FAILED;
}

bool MsgDrivenThread::Erasure::scan(ThreadCtlMsg const& entry) {
    if (entry.mMsgId != MSG_ID_CTL_TIMEOUT) {
        return scanFrame(entry);
    }
    if (!ScanSteps::scanTimeout(mThread, entry.mParam)) {
        reportEraseFailure("Can't store message.", __LINE__);
        return false;
    }
    return true;
}

// The frame of a posted message has the id of its entry.
bool MsgDrivenThread::Erasure::scanFrame(ThreadCtlMsg const& entry) {
    bool const isSync = entry.mMsgId == MSG_ID_CTL_SYNC;
    if (!ScanSteps::scanFrame(mThread, mFrames.place())) {
        if (isSync) {
            reportEraseFailure("Peek Data Queue fail.", __LINE__);
        } else {
            applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
                   "MsgDrivenThread::executeEraseMsg(): Peek Data Queue fail. Line=%d MsgId=%d", __LINE__,
                   entry.mMsgId);
        }
        return false;
    }
    int frameId = MSG_ID_NONE;
    mThread.mScanMsg.getMsgId(&frameId);
    if (!isSync && frameId != entry.mMsgId) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "MsgDrivenThread::executeEraseMsg(): Data Queue is different from Ctl Queue . Line=%d "
               "MsgId(Ctl)=%d "
               "MsgId(Data)=%d ",
               __LINE__, entry.mMsgId, frameId);
        return false;
    }
    return true;
}

// False, with nothing changed, unless both places are in use.
bool MsgDrivenThread::Erasure::take(ThreadCtlMsg const& entry, unsigned int frameBytes) {
    bool const hasFrame = frameBytes != 0;
    if ((!hasFrame || mFrames.next() != nullptr) && mEntries.take(1) &&
        (!hasFrame || mFrames.take(frameBytes))) {
        return true;
    }
    reportEraseFailure(entry.mMsgId == MSG_ID_CTL_TIMEOUT ? "Erase Ctl Queue fail."
                       : entry.mMsgId == MSG_ID_CTL_SYNC  ? "Erase Queue fail."
                                                          : "erase Data Queue fail.",
                       __LINE__);
    return false;
}

// An erased timeout counts as an expiry. The step of its timer may remove further entries, but looks at no
// frame.
MsgDrivenThread::Erasure::Step MsgDrivenThread::Erasure::finish(ThreadCtlMsg const& entry) {
    if (entry.mMsgId == MSG_ID_CTL_SYNC) {
        mThread.mSyncEvent.setOff();
    }
    if (entry.mMsgId != MSG_ID_CTL_TIMEOUT) {
        return Step::DONE;
    }
    mFramesAreUnseen = true;
    int const handling = mThread.TimeoutPostHandling(entry.mParam);
    mFramesAreUnseen = false;
    return handling == TIMEOUT_FINISHED ? Step::ENDED_TIMER : Step::DONE;
}

void MsgDrivenThread::Erasure::pass(unsigned int frameBytes) {
    mEntries.pass(1);
    mFrames.pass(frameBytes);
}

}  // namespace utl

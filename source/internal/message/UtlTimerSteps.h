#pragma once

#include <climits>
#include <cstdint>

#include "UtlMap.h"
#include "UtlRingArray.h"
#include "UtlSyncObject.h"
#include "UtlTimerInfo.h"
#include "internal/message/UtlQueueGap.h"
#include "internal/message/UtlSystemTimer.h"

namespace utl {

// Steps that message threads and shared timers have in common.

/// The timers of a thread by their ids.
using TimerMap = Map<int, TimerInfo>;

/// The answer where there is no timer.
inline constexpr int NO_TIMER_ID = -1;

/// The id behind `id`. Ids are positive; behind the largest comes 1.
inline int nextTimerId(int id) {
    return id < 1 || id == INT_MAX ? 1 : id + 1;
}

/// The id of the timer whose system timer has this number, or `NO_TIMER_ID`.
int timerIdOf(TimerMap const& timers, int sysTimerNum);

/// The number behind `number`, past those of the system timers that are the kernel's for a timer here.
int nextFreeSysTimerNumber(TimerMap const& timers, int number);

/// The timer, or null for an empty slot or no slot. `INFO` may be `const`.
template <typename INFO>
INFO* liveTimer(INFO* info) {
    return info != nullptr && info->mRunning.get() != nullptr ? info : nullptr;
}

/// A system timer's id as the log shows it.
unsigned int printableTimerId(timer_t id);

/// Removes the entries of a control queue for which `isObsolete` is true. Their tokens stay in the pipe.
template <typename ENTRY, typename PREDICATE>
void eraseCtlEntries(Queue<ENTRY>& queue, PREDICATE isObsolete) {
    QueueGap<ENTRY> gap(queue);
    for (ENTRY const* entry = gap.next(); entry != nullptr; entry = gap.next()) {
        if (isObsolete(*entry)) {
            gap.take(1);
        } else {
            gap.pass(1);
        }
    }
}

/// Installs a signal's handler once for the process; *internally locked*. After a failure the next call tries
/// again.
class TimerHandlerInstallation {
  public:
    enum class Result { DONE, DONE_BEFORE, FAILED };

    /// `install` gives 0 or `errno`, which is stored in `*error`.
    template <typename INSTALL>
    Result once(int* error, INSTALL install) {
        SyncGuard const guard(mSyncObject);
        if (mIsInstalled) {
            return Result::DONE_BEFORE;
        }
        *error = install();
        mIsInstalled = *error == 0;
        return mIsInstalled ? Result::DONE : Result::FAILED;
    }

  private:
    SyncObject mSyncObject;
    bool mIsInstalled = false;
};

}  // namespace utl

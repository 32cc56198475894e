#pragma once

#include <climits>
#include <cstdint>
#include <initializer_list>

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

/// The thread that a timer belongs to, as its log lines begin: "class(name)".
struct TimerOwner {
    char const* mClass;
    char const* mName;
};

/// The id after `id`. Ids are positive; 1 comes after the largest.
inline int nextTimerId(int id) {
    return id < 1 || id == INT_MAX ? 1 : id + 1;
}

/// The next id after `id` that is in none of `maps`.
int nextFreeTimerId(int id, std::initializer_list<TimerMap const*> maps);

/// The id of the timer whose system timer has this number, or `NO_TIMER_ID`.
int timerIdOf(TimerMap const& timers, int sysTimerNum);

/// The next number after `number` that no system timer of `timers` has.
int nextFreeSysTimerNumber(TimerMap const& timers, int number);

/// The timer, or null for an empty slot or no slot. `INFO` may be `const`.
template <typename INFO>
INFO* liveTimer(INFO* info) {
    return info != nullptr && info->mRunning.get() != nullptr ? info : nullptr;
}

/// A system timer's id as the log shows it.
unsigned int printableTimerId(timer_t id);

/// How the start of a system timer went.
enum class SysTimerStart { NOT_CREATED, NOT_ARMED, ARMED };

/// Logs that `call` failed on a system timer.
void reportSysTimerFailure(TimerOwner const& owner, char const* call, timer_t id, int error);

/// Creates and arms the system timer of `info`, whose signal writes to `writeEnd`. A failure is logged; after
/// `NOT_ARMED` the system timer exists. The system calls are made by `aroundCreate(call)` and
/// `aroundArm(call)`, which return what `call()` returns.
template <typename CREATE, typename ARM>
SysTimerStart startSysTimer(TimerInfo& info, TimerOwner const& owner, int signalNumber, int writeEnd,
                            CREATE aroundCreate, ARM aroundArm) {
    timer_t id = timer_t();
    int number = TimerInfo::NO_NUMBER;
    int const createError =
        aroundCreate([&] { return createSystemTimer(signalNumber, writeEnd, &id, &number); });
    if (createError != 0) {
        reportSysTimerFailure(owner, "timer_create", id, createError);
        return SysTimerStart::NOT_CREATED;
    }
    info.mSysTimerId = id;
    info.mSysTimerNum = number;
    int const armError = aroundArm([&] { return armSystemTimer(id, info.mInterval); });
    if (armError != 0) {
        reportSysTimerFailure(owner, "timer_settime", id, armError);
        return SysTimerStart::NOT_ARMED;
    }
    return SysTimerStart::ARMED;
}

/// True for a timer, which may be null, that takes one more timeout into the control queue.
inline bool takesTimeout(TimerInfo const* info) {
    return info != nullptr && info->acceptsTimeout();
}

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

/// The same for the entries of one timer with one id.
template <typename ENTRY>
void eraseCtlEntriesOf(Queue<ENTRY>& queue, int msgId, int timerId) {
    eraseCtlEntries(queue, [msgId, timerId](ENTRY const& entry) {
        return entry.mMsgId == msgId && entry.mParam == timerId;
    });
}

/// Installs a signal's handler once for the process; *internally locked*. After a failure the next call tries
/// again.
class TimerHandlerInstallation {
  public:
    enum class Result { DONE, DONE_BEFORE, FAILED };

    /// `install` returns 0 or `errno`, which is stored in `*error`.
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
    bool mIsInstalled UTL_GUARDED_BY(mSyncObject) = false;
};

}  // namespace utl

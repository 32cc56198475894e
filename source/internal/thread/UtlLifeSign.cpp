#include "internal/thread/UtlLifeSign.h"

#include "UtlThreadManager.h"
#include "UtlTimeCounter.h"
#include "internal/base/UtlProcessWide.h"

namespace utl {

UTL_CONSTINIT LifeSign LifeSign::gAll[COUNT];

// The count is read before the owner: if the record goes to another thread behind the look at the owner, the
// count has changed, and this thread writes nothing. Whoever closes the record sees an odd count, or this
// thread sees the record closed, or both. The clock is read inside, because a line that it logs may report.
LifeSign::Outcome LifeSign::report(int id, StatementInfo const& place) {
    unsigned int count = mCount;
    unsigned int const state = mState;
    if (mOwner != id || state % MODES == CLOSED) {
        return ASK_THE_TABLE;
    }
    if (state % MODES == NOT_WATCHED) {
        return REPORTED;
    }
    if (isOdd(count)) {
        return IS_INSIDE_ANOTHER;
    }
    if (!mCount.compare_exchange_strong(count, count + 1)) {
        return ASK_THE_TABLE;
    }
    if (mState != state) {
        mCount = count;
        return ASK_THE_TABLE;
    }
    Report& next = mReports[placeOf(count + 2)];
    next = {state, next.tick, place.file, place.function, place.line, place.sub};
    next.tick = TimeCounter::getTickTime();
    mCount = count + 2;
    return mState == state ? REPORTED : ASK_THE_TABLE;
}

void LifeSign::lend(ThreadWatchdog const* watchdog, WatchdogInfo const& info) {
    for (LifeSign& sign : gAll) {
        ThreadWatchdog const* none = nullptr;
        if (sign.mWatchdog.compare_exchange_strong(none, watchdog)) {
            if (sign.isLentTo(info.id)) {
                sign.open(info);
                return;
            }
            sign.mWatchdog = nullptr;
        }
    }
}

// The count tells an earlier owner that the record is not its own any more. False if it is still writing.
bool LifeSign::isLentTo(int id) {
    unsigned int count = mCount;
    mOwner = id;
    if (!isOdd(count) && mCount.compare_exchange_strong(count, count + 2)) {
        return true;
    }
    mOwner = 0;
    return false;
}

LifeSign* LifeSign::find(ThreadWatchdog const* watchdog, int id) {
    for (LifeSign& sign : gAll) {
        if (sign.isOf(watchdog, id)) {
            return &sign;
        }
    }
    return nullptr;
}

void LifeSign::giveBack() {
    enter(CLOSED);
    mOpened = CLOSED;
    mOwner = 0;
    mWatchdog = nullptr;
}

// Inside a report of its own, from the clock or the log, a thread sees the place that it is reporting. It
// need not keep itself out.
void LifeSign::close(WatchdogInfo& info) {
    if (isInsideOwnReport()) {
        Report const& next = mReports[placeOf(mCount + 1)];
        takeOver(next, info, info.lastAliveTick);
        return;
    }
    enter(CLOSED);
    Report const& last = mReports[placeOf(mCount)];
    takeOver(last, info, last.tick);
    mOpened = CLOSED;
}

void LifeSign::takeOver(Report const& report, WatchdogInfo& info, unsigned int tick) const {
    if (mOpened != CLOSED && report.state == mOpened) {
        info.lastAliveTick = tick;
        info.lastStatement = StatementInfo(report.file, report.function, report.line, report.sub);
    }
}

// The first report of a thread, and the one behind a time-out, change its status, which stands in the table.
void LifeSign::open(WatchdogInfo const& info) {
    Mode const mode = info.watchStatus == WatchdogInfo::NOT_WATCHING ? NOT_WATCHED
                      : info.aliveStatus == WatchdogInfo::ALIVE      ? OPEN
                                                                     : CLOSED;
    if (mode == OPEN && mState == mOpened) {
        return;  // it was not closed
    }
    enter(mode);
    mOpened = mode == OPEN ? mState.load() : CLOSED;
}

bool LifeSign::isInsideOwnReport() const {
    return isBeingWritten() && mOwner == ThreadManager::getCallerId();
}

}  // namespace utl

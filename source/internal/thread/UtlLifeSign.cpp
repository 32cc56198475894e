#include "internal/thread/UtlLifeSign.h"

#include "UtlThreadManager.h"
#include "UtlTimeCounter.h"
#include "internal/base/UtlProcessWide.h"

namespace utl {

UTL_CONSTINIT LifeSign LifeSign::gAll[COUNT];

// Keeps the count odd in its scope, and leaves it as it was if the report did not come to its end.
class [[nodiscard]] LifeSign::Writing {
  public:
    Writing(std::atomic<unsigned int>& count, unsigned int before) : mCount(count), mAfter(before) {}
    ~Writing() { mCount = mAfter; }
    Writing(Writing const&) = delete;
    Writing& operator=(Writing const&) = delete;

    void complete() { mAfter += 2; }

  private:
    std::atomic<unsigned int>& mCount;
    unsigned int mAfter;
};

// The count is read before the owner: if the record goes to another thread behind the look at the owner, the
// count has changed, and this thread writes nothing. Whoever closes the record sees an odd count, or this
// thread sees the record closed, or both.
LifeSign::Outcome LifeSign::report(int id, StatementInfo const& place) {
    unsigned int count = mCount;
    if (mOwner != id) {
        return ASK_THE_TABLE;
    }
    if (isOdd(count)) {
        return IS_INSIDE_ANOTHER;
    }
    unsigned int const state = mState;
    if (state % MODES == NOT_WATCHED) {
        return REPORTED;
    }
    bool const isOpen = state % MODES == OPEN && mCount.compare_exchange_strong(count, count + 1);
    return isOpen && write(count, state, place) && mState == state ? REPORTED : ASK_THE_TABLE;
}

// False if the record is not open any more. The clock is read inside, because a line that it logs may report.
bool LifeSign::write(unsigned int count, unsigned int state, StatementInfo const& place) {
    Writing writing(mCount, count);
    if (mState != state) {
        return false;
    }
    Report& next = mReports[placeOf(count + 2)];
    next = {state, next.tick, place.file, place.function, place.line, place.sub};
    next.tick = TimeCounter::getTickTime();
    writing.complete();
    return true;
}

void LifeSign::lend(ThreadWatchdog const* watchdog, WatchdogInfo const& info) {
    for (LifeSign& sign : gAll) {
        ThreadWatchdog const* none = nullptr;
        if (sign.mWatchdog.compare_exchange_strong(none, watchdog)) {
            if (sign.becomes(info.id)) {
                sign.open(info);
                return;
            }
            sign.mWatchdog = nullptr;
        }
    }
}

// The count tells an earlier owner that the record is not its own any more. False if it is still writing.
bool LifeSign::becomes(int id) {
    unsigned int count = mCount;
    if (isOdd(count) || !mCount.compare_exchange_strong(count, count + 2)) {
        return false;
    }
    mOwner = id;
    return true;
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
    bool const isInside = isInsideOwnReport();
    if (!isInside) {
        enter(CLOSED);
    }
    Report const& last = mReports[placeOf(mCount)];
    takeOver(last, info, last.tick);
    if (isInside) {
        takeOver(mReports[placeOf(mCount + 1)], info, info.lastAliveTick);
    } else {
        mOpened = CLOSED;
    }
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

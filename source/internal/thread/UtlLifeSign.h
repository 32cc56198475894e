#pragma once

#include <atomic>

#include "UtlThreadWatchdog.h"

namespace utl {

/// The latest sign of life of a watched thread, which its owner, that thread, writes without a lock.
///
/// A watchdog lends a record to a thread that registers. Whoever reads or changes what reports change holds
/// the lock of the watchdog's table, and closes the records first, which brings their rows up to date. Then
/// they are opened again. A report that finds its record closed, or closed meanwhile, is made in the table,
/// under the lock. So a report that has returned is there for the next look, and one that overlaps with a
/// look waits for it.
///
/// Records are never freed: a thread may still hold one that has gone to another thread.
class alignas(64) LifeSign {
  public:
    constexpr LifeSign() = default;
    LifeSign(LifeSign const&) = delete;
    LifeSign& operator=(LifeSign const&) = delete;

    enum Outcome { REPORTED, IS_INSIDE_ANOTHER, ASK_THE_TABLE };

    /// Of the calling thread, whose id is `id`. A thread that is registered and not watched leaves no trace.
    Outcome report(int id, StatementInfo const& place);

    // The steps of the watchdog, each under the lock of its table.

    /// Lends and opens a record for the thread of a row; none if all are lent.
    static void lend(ThreadWatchdog const* watchdog, WatchdogInfo const& info);

    /// The record of thread `id`; null if it has none.
    static LifeSign* find(ThreadWatchdog const* watchdog, int id);

    /// Calls `step` with each record that `watchdog` has lent, and the id of its owner.
    template <typename STEP>
    static void forEachOf(ThreadWatchdog const* watchdog, STEP step);

    void giveBack();

    /// Stores in `info` what has been reported since the record was opened.
    void close(WatchdogInfo& info);
    void open(WatchdogInfo const& info);

  private:
    // Threads that report without a lock; those beyond report under the lock of the table.
    static constexpr unsigned int COUNT = 256;
    static LifeSign gAll[COUNT];

    enum Mode : unsigned int { CLOSED, NOT_WATCHED, OPEN, MODES = 4 };
    struct Report {
        unsigned int state;  // in which it was written
        unsigned int tick;
        char const* file;
        char const* function;
        unsigned int line;
        unsigned int sub;
    };

    [[nodiscard]] bool isBeingWritten() const { return isOdd(mCount); }
    class Writing;

    static bool isOdd(unsigned int count) { return count % 2 != 0; }
    static unsigned int placeOf(unsigned int count) { return count / 2 % 2; }

    void enter(Mode mode) { mState = (mState / MODES + 1) * MODES + mode; }
    bool isOf(ThreadWatchdog const* watchdog, int id) const { return mWatchdog == watchdog && mOwner == id; }
    bool becomes(int id);
    bool write(unsigned int count, unsigned int state, StatementInfo const& place);
    [[nodiscard]] bool isInsideOwnReport() const;
    void takeOver(Report const& report, WatchdogInfo& info, unsigned int tick) const;

    std::atomic<ThreadWatchdog const*> mWatchdog{nullptr};  // that has lent it; null for a free one
    std::atomic<int> mOwner{0};
    std::atomic<unsigned int> mState{CLOSED};  // a mode, and a number that rises with each change
    std::atomic<unsigned int> mCount{0};       // odd while the owner writes the next report
    unsigned int mOpened = CLOSED;             // the state of the last opening; `CLOSED` behind a closing
    Report mReports[2]{};                      // the last one, and the one that is being written
};

template <typename STEP>
void LifeSign::forEachOf(ThreadWatchdog const* watchdog, STEP step) {
    for (LifeSign& sign : gAll) {
        if (sign.mWatchdog == watchdog) {
            step(sign, sign.mOwner.load());
        }
    }
}

}  // namespace utl

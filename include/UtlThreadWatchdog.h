#pragma once

#include <atomic>

#include "UtlBasicString.h"
#include "UtlMap.h"
#include "UtlMsgDrivenThread.h"
#include "UtlPlatform.h"
#include "UtlSyncObject.h"

namespace utl {

/// A place in the source, given with a sign of life; *external lock needed*, because it is a plain value.
///
/// The texts are not copied: pass literals.
class UTL_API StatementInfo {
  public:
    /// The values of `sub` that the library passes.
    enum Sub { BEFORE_CALL = 1, AFTER_CALL = 2 };

    /// `subNumber` is a further position inside the statement: the library passes 1 before a call that may
    /// block and 2 after it. A null `functionName` becomes an empty text.
    constexpr StatementInfo(char const* fileName, char const* functionName, unsigned int lineNumber,
                            unsigned int subNumber) noexcept
        : file(fileName),
          function(functionName != nullptr ? functionName : ""),
          line(lineNumber),
          sub(subNumber) {}
    virtual ~StatementInfo() = default;
    StatementInfo(StatementInfo const&) = default;
    StatementInfo& operator=(StatementInfo const&) = default;

    char const* file;      ///< the source, as in "source/UtlThreadManager"; the library leaves its ending out
    char const* function;  ///< never null after the construction
    unsigned int line;     ///< counted from 1
    unsigned int sub;      ///< position inside the statement

    /// No place: empty texts, line 0 and sub 0. It exists before any code runs, and is never destroyed.
    static StatementInfo const INVALID;
};

/// Compares the texts, of which a null one counts as empty, and the numbers.
UTL_API bool operator==(StatementInfo const& left, StatementInfo const& right) noexcept;

inline bool operator!=(StatementInfo const& left, StatementInfo const& right) noexcept {
    return !(left == right);
}

class LifeSign;
class WatchdogTimerListener;

/// What the watchdog knows of one thread; *external lock needed*, because it is a plain record.
struct UTL_API WatchdogInfo {
    /// Values of `watchStatus`.
    enum WatchStatus { WATCHING = 0, NOT_WATCHING = 1 };

    /// Values of `aliveStatus`.
    enum AliveStatus { UNKNOWN = 0, ALIVE = 1, TIMED_OUT = 2 };

    /// The `lastAliveTick` of a thread that gave no sign of life yet.
    static constexpr unsigned int NO_TICK = ~0U;

    /// The default time between two looks at the watched threads, in milliseconds.
    static constexpr unsigned int DEFAULT_WATCH_INTERVAL = 1000;

    /// The interval of a watchdog that never looks at its threads.
    static constexpr unsigned int NO_WATCH_INTERVAL = 0;

    /// A thread without id that is not watched. It exists before any code runs, and is never destroyed.
    static WatchdogInfo const INVALID;

    WatchdogInfo();

    /// The same as a constant.
    explicit constexpr WatchdogInfo(ConstantTag tag) : name(tag) {}

    /// The named fields with the given values, where a null name counts as empty. The others as in a default
    /// record.
    WatchdogInfo(int threadId, unsigned int allowedTime, WatchdogTimerListener* timerListener,
                 char const* threadName, int initialStatus);
    virtual ~WatchdogInfo();
    WatchdogInfo(WatchdogInfo const&) = default;
    WatchdogInfo& operator=(WatchdogInfo const&) = default;

    /// Exchanges all fields with `other`; allocates nothing.
    void swap(WatchdogInfo& other) noexcept;

    int id = 0;                                 ///< kernel thread id
    unsigned int aliveTime = 0;                 ///< milliseconds allowed between two signs of life
    WatchdogTimerListener* listener = nullptr;  ///< called at a time-out; may be null; not owned
    unsigned int lastAliveTick = NO_TICK;       ///< tick of the last sign of life, `NO_TICK` for none
    int watchStatus = NOT_WATCHING;             ///< a `WatchStatus`
    int aliveStatus = UNKNOWN;                  ///< an `AliveStatus`
    unsigned int timeoutCount = 0;              ///< time-outs so far
    StatementInfo lastStatement{"", "", 0, 0};  ///< the place given with the last sign of life
    BasicString<char> name;                     ///< the thread's name
};

/// Compares all fields.
UTL_API bool operator==(WatchdogInfo const& left, WatchdogInfo const& right) noexcept;

inline bool operator!=(WatchdogInfo const& left, WatchdogInfo const& right) noexcept {
    return !(left == right);
}

/// The registered threads by their ids.
using WatchdogInfos = Map<int, WatchdogInfo>;

/// Is called when a thread has given no sign of life for too long; *one owner thread*, because only the
/// watchdog's thread calls it. It may still be called after the `unregister` of the thread, for a time-out
/// that was found before: it must live until the watchdog is shut down.
class UTL_API WatchdogTimerListener {
  public:
    WatchdogTimerListener() = default;
    WatchdogTimerListener(WatchdogTimerListener const&) = default;
    WatchdogTimerListener& operator=(WatchdogTimerListener const&) = default;
    virtual ~WatchdogTimerListener();

    /// Thread `id` has timed out. `infos` is a snapshot of all registered threads, valid during the call; no
    /// lock of the watchdog is held.
    virtual void onTime(int id, WatchdogInfos const& infos) = 0;
};

/// Table of threads that promise to give a sign of life every so many milliseconds; *internally locked*,
/// because any thread reports here while the table is looked through. Applications reach it through
/// `ThreadManager`. It reports and never acts on a thread.
///
/// | Watched, state | Event | Watched, state | Log line |
/// |---|---|---|---|
/// | absent | `entry` | no, unknown | "ThreadWatchdog Register ..." |
/// | no | `start` | yes, state kept | none |
/// | yes, unknown or alive | `keepAlive` | yes, alive | none |
/// | yes, timed out | `keepAlive` | yes, alive | "ThreadWatchdog Timeout->Alive ..." |
/// | yes | `stop` | no, state kept | none |
/// | yes, unknown or alive | silent for `aliveTime` | yes, timed out | "!!!!!!!! ThreadWatchdog Timeout ..." |
/// | any | `unregister` | absent | none |
///
/// A thread of the watchdog's own, "Watchdog Thread", looks at the table at every interval. It declares each
/// overdue thread timed out, once for each silence, and calls its listener outside the lock with a copy of
/// the table. A listener may call back. A slow one delays the next look and nothing else.
///
/// | State | Entered by | Operations |
/// |---|---|---|
/// | constructed | the constructor | false |
/// | initialized | `initialize` | as described |
/// | shut down | `shutdown` | false, permanently |
///
/// Until the watchdog is initialized its operations return false and do nothing, unless they say otherwise.
class UTL_API ThreadWatchdog : public ThreadMsgListener {
  public:
    /// The listener of threads that have none: prints the table at level 3.
    class UTL_API DefaultTimerListener : public WatchdogTimerListener {
      public:
        void onTime(int id, WatchdogInfos const& infos) override;
    };

    /// Room for `entryMax` threads, permanently.
    explicit ThreadWatchdog(unsigned int entryMax);
    ~ThreadWatchdog() override;
    ThreadWatchdog(ThreadWatchdog const&) = delete;
    ThreadWatchdog& operator=(ThreadWatchdog const&) = delete;

    /// Starts the watchdog's thread, which then looks at the table every `interval` milliseconds; never for
    /// 0. False if it was initialized before, even if it was shut down since, or if the thread or its timer
    /// cannot be created; a thread without a timer remains. `ThreadManager::get` tries again with another
    /// thread.
    bool initialize(unsigned int interval) UTL_EXCLUDES(mInfosSyncObject);

    /// Ends the watchdog's thread and waits until a listener that runs has returned and the thread has ended.
    /// Not on the watchdog's thread.
    void shutdown() UTL_EXCLUDES(mInfosSyncObject);

    /// From now on the thread looks at the table every `interval` milliseconds; never for 0. False while the
    /// watchdog is not initialized, and if the timer cannot be created: then nobody looks at the table until
    /// another call succeeds. One caller at a time, which may be a listener.
    bool setWatchInterval(unsigned int interval);

    /// Called on the watchdog's thread: looks at the table when the message is from its own timer. Ignores
    /// all other messages.
    void receiveMsg(int threadId, ThreadRawMsg& msg) override;

    /// Registers thread `id`, not yet watched. False, with a log line of level 1, for an `aliveTime` of 0,
    /// even before the watchdog is initialized, for an id that is registered and for a full table; the table
    /// stays as it is. False for a null `name`. `listener` may be null.
    bool entry(int id, unsigned int aliveTime, WatchdogTimerListener* listener, char const* name);

    /// Removes thread `id`; false if it is not registered.
    bool unregister(int id);

    /// True if thread `id` is registered, watched or not.
    [[nodiscard]] bool isRegistered(int id) noexcept;

    /// True if the thread is registered and watched.
    [[nodiscard]] bool isWatching(int id) noexcept;

    /// Changes the time allowed between signs of life. If the thread is watched, a new period begins now.
    /// False for a thread that is not registered, and, with a log line of level 1, for 0.
    bool setAliveTime(int id, unsigned int aliveTime);

    /// Begins to watch a registered thread. A sign of life that was given since the last `stop` still counts
    /// as the last one; otherwise the period begins now.
    bool start(int id);

    /// Ends the watching of a registered thread and forgets its last sign of life.
    bool stop(int id);

    /// A sign of life of the calling thread. True if it is registered; nothing is recorded unless it is
    /// watched.
    bool keepAlive(StatementInfo const& info);

    /// Writes the table to the log at `level`.
    void printWatchdogInfo(int level);

    /// The record of thread `id`, null if there is none, whether or not the watchdog is initialized. It shows
    /// what was reported before the call; ask again for later reports. Points into the table, which is locked
    /// only while it is searched: for callers that know that no thread is registered or unregistered
    /// meanwhile and, to read or write the fields, that none reports.
    [[nodiscard]] WatchdogInfo* findWatchdogInfo(int id) noexcept;

  protected:
    /// The steps of the operations of the same names; they take the lock.
    bool executeSetAliveTime(int id, unsigned int aliveTime);
    bool executeStart(int id);
    bool executeStop(int id);
    bool executeKeepAlive(int id, StatementInfo const& info);

    /// One look at the table, on the watchdog's thread: declares every overdue thread timed out.
    void executeWatchThreads() UTL_EXCLUDES(mInfosSyncObject);

    /// Declares thread `id` timed out, if it still is watched and not timed out, and calls its listener.
    void executeWatchdogTimeout(int id) UTL_EXCLUDES(mInfosSyncObject);

  private:
    friend class ThreadManager;

    // The most threads that have room.
    unsigned int entryMax();

    // Creates another thread for another try: a message thread starts once.
    void replaceThread() UTL_EXCLUDES(mInfosSyncObject);

    // `entry` with a record that is moved in.
    bool insert(WatchdogInfo& info);

    class TableLook;
    class RowLook;
    struct CallersPlace;
    struct TableSize;
    enum TimeoutResult { NOT_OVERDUE, TABLE_HAS_GROWN, DECLARED };

    CallersPlace const& callersPlace(int id) noexcept;
    LifeSign* signOf(int id) noexcept UTL_REQUIRES(mInfosSyncObject);

    // What `step` returns for the record of thread `id`, under the table's lock; false if there is none.
    template <typename STEP>
    bool withInfo(int id, STEP step);

    bool setTimer(unsigned int interval);
    int findOverdue(unsigned int now);
    TableSize tableSize();
    bool timeOut(int id, unsigned int now) UTL_EXCLUDES(mInfosSyncObject);
    TimeoutResult declareTimeout(int id, unsigned int now, TableSize const& allocated,
                                 WatchdogTimerListener** listener, WatchdogInfos* copy);

    MsgDrivenThread* mThread;
    std::atomic<int> mTimerId;
    std::atomic<bool> mInitialized;
    bool mInKeepAlive UTL_GUARDED_BY(mInfosSyncObject);
    SyncObject mInfosSyncObject;
    WatchdogInfos mInfos UTL_GUARDED_BY(mInfosSyncObject);
};

extern template class Map<int, WatchdogInfo>;

}  // namespace utl

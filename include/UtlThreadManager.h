#pragma once

#include <atomic>

#include "UtlBasicString.h"
#include "UtlEvent.h"
#include "UtlMap.h"
#include "UtlPlatform.h"
#include "UtlSmartPointer.h"
#include "UtlSyncObject.h"
#include "UtlThreadPriority.h"

namespace utl {

class StartHandshake;
struct StartRequest;
class StatementInfo;
class ThreadWatchdog;
class WatchdogTimerListener;

/// The process-wide registry of threads, and their creator; *internally locked*, because every thread of the
/// library uses it. A thread is known by its kernel thread id. Where an operation says so, an id of 0 stands
/// for the calling thread.
///
/// | Entry | Entered by | `isThreadExist` | `isThreadActive` | Left by |
/// |---|---|---|---|---|
/// | none | | false | false | `entry`, `entryCaller` |
/// | started, running | `entry` | true | true | the end of its function |
/// | started, ended | the end of its function | true | false | `unregister` |
/// | of a foreign thread | `entryCaller` | true | false | `unregister` |
///
/// Nothing removes an entry by itself, so a thread that has ended keeps its place, and its id, until it is
/// unregistered. Nobody joins a thread; it is detached when the last copy of its entry is released.
///
/// A process may end while threads run: the instance is then never deleted.
class UTL_API ThreadManager {
  public:
    /// Releases an ended or running thread: detaches it and deletes the cell that held its handle. A cell
    /// that holds 0 is left alone. *Immutable*, since it has no state.
    class UTL_API DetachThread {
      public:
        /// Called with each cell, by the last of the handles that share it.
        void operator()(unsigned long* handle) const;
    };

    /// What is kept of one thread; *external lock needed*, because it is a plain record. Copies share the
    /// event and the thread's handle.
    class UTL_API ThreadEntry {
      public:
        /// Values of `caller`; any other value counts as 1.
        enum Origin { STARTED_HERE = 0, FOREIGN = 1 };

        /// No thread: an empty name, NORMAL and no handles.
        ThreadEntry();

        /// With `caller` 0, the entry of a thread with the POSIX handle `handle` that is started here: it has
        /// an event for its end and detaches the thread with its last copy. Otherwise the entry of a foreign
        /// thread, which has neither. `name` is copied.
        ThreadEntry(int caller, unsigned long handle, char const* name, ThreadPriority const& priority);

        /// Records that the thread's function has returned.
        void toStop() noexcept;

        /// Waits for `toStop` as `Event::waitToOn` does; -1 for a foreign thread.
        int waitToStop(unsigned int timeout) const;

        /// True for a thread started here until `toStop`.
        [[nodiscard]] bool isActive() const noexcept;

        /// True for a thread started here.
        [[nodiscard]] bool isControllable() const noexcept;

        /// Releases this copy's share in the thread's handle.
        void detach();

        /// Exchanges all fields with `other`; allocates nothing.
        void swap(ThreadEntry& other) noexcept;

        BasicString<char> mName;                                     ///< the name it was registered with
        ThreadPriority mPriority;                                    ///< the priority last set
        SmartPointer<Event> mEndEvent;                               ///< on from the end; empty if foreign
        CountingPointer<unsigned long, DetachThread> mThreadHandle;  ///< empty if foreign
    };

    /// The names of threads by their ids.
    using Names = Map<int, BasicString<char>>;

    /// Threads that a manager has room for when nobody asked for another number.
    static constexpr unsigned int DEFAULT_ENTRY_MAX = 128;

    /// The id of no thread: what `entry` and `entryCaller` return when they fail.
    static constexpr int NO_ID = 0;

    /// The id that stands for the calling thread, where an operation says so.
    static constexpr int CALLER = 0;

    /// The instance, which the first call creates with room for `DEFAULT_ENTRY_MAX` threads. The first call
    /// also starts the watchdog, whose thread takes one of the places. If that fails, for want of a thread, a
    /// timer, a place or memory, a line of level 1 says so, the instance stays without supervision, and the
    /// next call tries again; an exception passes through.
    static ThreadManager* get() UTL_EXCLUDES(instantiationSyncObject());

    /// `get` for callers that must not fail, as in a destructor: null if there is no instance and none can be
    /// created. It does not repeat a start of the watchdog that has failed.
    static ThreadManager* getOrNull() noexcept UTL_EXCLUDES(instantiationSyncObject());

    /// The instance, null if there is none.
    [[nodiscard]] static ThreadManager* getIfCreated() noexcept;

    /// Creates the instance with room for `entryMax` threads, one of which is the watchdog's, which the first
    /// `get` starts. False, with nothing changed, if there is an instance: call it before any thread is
    /// started.
    static bool initializeEntryMax(unsigned int entryMax);

    /// Ends the watchdog's thread, waits for that, and deletes the instance. Not on the watchdog's thread,
    /// that is, not from a `WatchdogTimerListener`. Registered threads run on; what they call later goes to a
    /// new instance, which does not know them. No thread may be inside an operation of the old instance; one
    /// that waits for the end of another thread is. Threads that are just about to end do no harm.
    static void destroy() UTL_EXCLUDES(instantiationSyncObject());

    /// The calling thread's kernel id.
    [[nodiscard]] static int getCallerId() noexcept;

    ThreadManager(ThreadManager const&) = delete;
    ThreadManager& operator=(ThreadManager const&) = delete;

    /// Starts a thread that calls `function(argument)`, and registers it. Blocks until the thread exists;
    /// threads are started one at a time. `function` is called when all that is done, the registration with
    /// the watchdog included. `watchdog` 1 registers it with the watchdog too, not yet watched,
    /// with `aliveTime` in milliseconds and `listener`, which may be null. `reserved` has no effect.
    ///
    /// Returns the thread's id, or 0: without a log line for a null `function` or `name` and when the table
    /// is full, and with a line of level 1 when the system refuses the thread. Also 0, with a line of level
    /// 1, when the new thread cannot be entered into the table, because another one took the last place
    /// meanwhile or an ended thread of the same id was never unregistered: the thread runs all the same,
    /// unregistered.
    ///
    /// A priority that the system refuses is logged at level 1, and the thread keeps that of its creator. An
    /// allocation that fails throws before there is a thread, and leaves nothing behind.
    int entry(void (*function)(void*), void* argument, int watchdog, unsigned int aliveTime,
              WatchdogTimerListener* listener, char const* name,
              ThreadPriority const& priority = ThreadPriority(), unsigned int reserved = 0);

    /// Registers the calling thread, which was not started here, under `name`; a second call replaces the
    /// first. Arguments as for `entry`. Returns the thread's id, or 0: for a null `name`, and with a line of
    /// level 1 when the table is full or the id belongs to a thread that was started here.
    int entryCaller(int watchdog, unsigned int aliveTime, WatchdogTimerListener* listener, char const* name);

    /// Removes an entry. False for an unknown id and while the thread runs.
    bool unregister(int id);

    /// Waits until the thread has ended: 0 when it has, -2 when `timeout` milliseconds have passed, where 0
    /// means no limit, and -1 for an unknown id or a foreign thread. Holds no lock while it waits.
    int waitToStop(int id, unsigned int timeout) UTL_EXCLUDES(mEntriesSyncObject);

    /// True if the id is registered.
    [[nodiscard]] bool isThreadExist(int id) noexcept;

    /// True if the id is that of a thread started here that has not ended.
    [[nodiscard]] bool isThreadActive(int id) noexcept;

    /// `isThreadExist` and then `isThreadActive`.
    [[nodiscard]] bool isActive(int id) noexcept;

    /// The priority last set. False, with `priority` untouched, for a null pointer and for a thread that is
    /// unknown, foreign or has ended.
    bool getPriority(int id, ThreadPriority* priority) noexcept;

    /// Sets the priority of the calling thread, whose id must be passed. False for any other id, for a
    /// foreign thread, and with a line of level 1 for the invalid priority or when the system refuses.
    bool setPriority(int id, ThreadPriority const& priority);

    /// The registered name, an empty text for an unknown id; never null. Valid until the table changes: for
    /// callers who know that no thread is registered or unregistered meanwhile.
    [[nodiscard]] char const* findName(int id) noexcept;

    /// The same.
    [[nodiscard]] char const* getName(int id) noexcept;

    /// Adds id and name of the entries to what `names` holds, as many as it has room for. False for null.
    bool getNames(Names* names);

    /// From now on each registration is logged at level 3.
    void enableRegistrationLog() noexcept;

    /// Has no effect.
    void printThreadInfo(int level) noexcept;

    /// Writes the table to the log at `level`.
    void printThreadInfoReg(int level);

    /// Writes the watchdog's table to the log at `level`, and then the threads that are not in it.
    void printWatchdogInfo(int level);

    /// Operations of the `ThreadWatchdog` for thread `id`, where 0 stands for the calling thread. The name
    /// that the watchdog keeps is the registered one.
    ///@{
    bool entryWatchdog(unsigned int aliveTime, WatchdogTimerListener* listener, int id = CALLER);
    bool unregisterWatchdog(int id = CALLER);
    [[nodiscard]] bool isRegisteredWatchdog(int id = CALLER) noexcept;
    [[nodiscard]] bool isWatchingWatchdog(int id = CALLER) noexcept;
    bool startWatchdog(int id = CALLER);
    bool stopWatchdog(int id = CALLER);
    bool setWatchdogAliveTime(unsigned int aliveTime, int id = CALLER);
    ///@}

    /// From now on the watchdog looks at its threads every `interval` milliseconds; at first it is
    /// `WatchdogInfo::DEFAULT_WATCH_INTERVAL`. Results as of `ThreadWatchdog::setWatchInterval`.
    bool setWatchdogWatchInterval(unsigned int interval);

    /// A sign of life of the calling thread, given at the place `info`. Harmless at any time, also while the
    /// calling thread creates or deletes the manager. Does not lock the table.
    void keepAliveWatchdog(StatementInfo const& info);

  protected:
    virtual ~ThreadManager();

  private:
    friend class Thread;

    struct NewThread;
    struct StartParameter;

    explicit ThreadManager(unsigned int entryMax);

    static SyncObject const& instantiationSyncObject();
    static ThreadManager* getOrCreate(bool* isFirst);
    static ThreadManager* forbidWatchdog();
    static void* startThread(void* parameter);
    static void signalStarted(ThreadManager& manager);
    void initializeWatchdog() UTL_EXCLUDES(instantiationSyncObject(), mEntriesSyncObject);

    // Rises with each instance that is deleted, so it tells the instances apart.
    static unsigned int generation();

    // `entry` with a handshake of the caller's, which knows afterwards whether there is a thread. If there
    // is, it owns `request.argument`.
    int start(StartHandshake& handshake, StartRequest const& request);
    int startAndRegister(StartHandshake& handshake, StartParameter& parameter, NewThread& thread);
    bool registerStarted(int id, NewThread& thread) UTL_REQUIRES(mEntriesSyncObject);
    bool registerCaller(int id, char const* name);
    bool storePriority(int id, int osValue);
    bool hasEntry(int id, SmartPointer<Event> const& end);

    // What `step` returns for the entry of thread `id`, under the table's lock; false if there is none.
    template <typename STEP>
    bool withEntry(int id, STEP step);

    // Every change of the table's size goes through these two. A stored entry is moved out of `entry`.
    bool storeEntry(int id, ThreadEntry& entry) UTL_REQUIRES(mEntriesSyncObject);
    void eraseEntry(int id) UTL_REQUIRES(mEntriesSyncObject);

    static ThreadManager* mpTheObject UTL_GUARDED_BY(instantiationSyncObject());
    static bool mHasInitializedWatchdog UTL_GUARDED_BY(instantiationSyncObject());
    static std::atomic<unsigned int> mFreePlaces;  // of mEntries; read without its lock

    SyncObject mEntriesSyncObject;
    Map<int, ThreadEntry> mEntries UTL_GUARDED_BY(mEntriesSyncObject);
    Event mStartEvent;
    std::atomic<ThreadWatchdog*> mWatchdog;
    std::atomic<bool> mRegistrationLog;
};

extern template class Map<int, ThreadManager::ThreadEntry>;  // exported as the template is
extern template class Map<int, BasicString<char>>;

}  // namespace utl

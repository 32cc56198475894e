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
class StatementInfo;
class ThreadWatchdog;
class WatchdogTimerListener;

/// The process-wide registry of threads, and their creator; *internally locked*, because every thread of the
/// library comes here. A thread is known by its kernel thread id; where an operation says so, an id of 0
/// stands for the calling thread.
///
/// | Entry | Entered by | `isThreadExist` | `isThreadActive` | Left by |
/// |---|---|---|---|---|
/// | none | | false | false | `entry`, `entryCaller` |
/// | started, running | `entry` | true | true | the end of its function |
/// | started, ended | the end of its function | true | false | `unregister` |
/// | of a foreign thread | `entryCaller` | true | false | `unregister` |
///
/// Nothing removes an entry by itself, so a thread that has ended holds its place, and its id, until it is
/// unregistered. Nobody joins a thread; it is detached when the last copy of its entry is given up.
///
/// A process may end while threads run: the instance is then never deleted.
class UTL_API ThreadManager {
  public:
    /// Gives up the share in an ended or running thread: detaches it and deletes the cell that held its
    /// handle. A cell that holds 0 is left alone. *Immutable*, since it has no state.
    class UTL_API DetachThread {
      public:
        /// Called with each cell, by its last copy.
        void operator()(unsigned long* handle) const;
    };

    /// What is kept of one thread; *external lock needed*, because it is a plain record. Copies share the
    /// event and the thread's handle.
    class UTL_API ThreadEntry {
      public:
        /// No thread: an empty name, NORMAL and no handles.
        ThreadEntry();

        /// With `caller` 0, the entry of a thread with the POSIX handle `handle` that is started here: it has
        /// an event for its end and detaches the thread with its last copy. Otherwise the entry of a foreign
        /// thread, which has neither. `name` is copied.
        ThreadEntry(int caller, unsigned long handle, char const* name, ThreadPriority const& priority);

        /// The thread's function has returned.
        void toStop();

        /// Waits for `toStop` as `Event::waitToOn` does; -1 for a foreign thread.
        int waitToStop(unsigned int timeout) const;

        /// True for a thread started here until `toStop`.
        bool isActive() const;

        /// True for a thread started here.
        bool isControllable() const;

        /// Gives up this copy's share in the thread's handle.
        void detach();

        /// Exchanges all fields with `other`; allocates nothing.
        void swap(ThreadEntry& other) noexcept;

        BasicString<char> mName;                                     ///< the name it was registered with
        ThreadPriority mPriority;                                    ///< the one last set
        SmartPointer<Event> mEndEvent;                               ///< on from the end; empty if foreign
        CountingPointer<unsigned long, DetachThread> mThreadHandle;  ///< empty if foreign
    };

    /// The names of threads by their ids.
    using Names = Map<int, BasicString<char>>;

    /// Threads that a manager has room for when nobody asked for another number.
    static constexpr unsigned int DEFAULT_ENTRY_MAX = 128;

    /// The instance, which the first call creates with room for `DEFAULT_ENTRY_MAX` threads. The first call
    /// also starts the watchdog, whose thread takes one of the places. Where that fails, for want of a
    /// thread, a timer, a place or memory, a line of level 1 says so, the instance stays without supervision,
    /// and the next call tries again; an exception passes through.
    static ThreadManager* get();

    /// `get` for those who must not fail, as in a destructor: null where the instance cannot be had. A
    /// watchdog that could not be started is not tried again here.
    static ThreadManager* getOrNull() noexcept;

    /// The instance, null if there is none.
    static ThreadManager* getIfCreated();

    /// Creates the instance with room for `entryMax` threads, one of which is the watchdog's, which the first
    /// `get` starts. False, with nothing changed, if there is an instance: call it before any thread is
    /// started.
    static bool initializeEntryMax(unsigned int entryMax);

    /// Ends the watchdog's thread, waits for that, and deletes the instance. Not on the watchdog's thread,
    /// that is, not from a `WatchdogTimerListener`. Registered threads run on; what they call later goes to a
    /// new instance, which does not know them. No thread may be inside an operation of the old instance, and
    /// a thread that waits for the end of another one is. Threads that are just about to end do no harm.
    static void destroy();

    /// The calling thread's kernel id.
    static int getCallerId();

    ThreadManager(ThreadManager const&) = delete;
    ThreadManager& operator=(ThreadManager const&) = delete;

    /// Starts a thread that calls `function(argument)`, and registers it. Blocks until the thread exists;
    /// threads are started one at a time. `function` is called when all that is done, the registration with
    /// the watchdog included. `watchdog` 1 registers it with the watchdog too, not yet watched,
    /// with `aliveTime` in milliseconds and `listener`, which may be null. `reserved` has no effect.
    ///
    /// Gives the thread's id, or 0: without a log line for a null `function` or `name` and when the table is
    /// full, and with a line of level 1 when the system refuses the thread. Also 0, with a line of level 1,
    /// when the entry of the new thread cannot be made, because the last place went to another one meanwhile
    /// or an ended thread of the same id was never unregistered: the thread runs all the same, unregistered.
    ///
    /// A priority that the system refuses costs a line of level 1; the thread keeps that of its creator. An
    /// allocation that fails throws before there is a thread, and leaves nothing behind.
    int entry(void (*function)(void*), void* argument, int watchdog, unsigned int aliveTime,
              WatchdogTimerListener* listener, char const* name,
              ThreadPriority const& priority = ThreadPriority(), unsigned int reserved = 0);

    /// Registers the calling thread, which was not started here, under `name`; a second call replaces the
    /// first. Arguments as for `entry`. Gives the thread's id, or 0: for a null `name`, and with a line of
    /// level 1 when the table is full or the id belongs to a thread that was started here.
    int entryCaller(int watchdog, unsigned int aliveTime, WatchdogTimerListener* listener, char const* name);

    /// Removes an entry. False for an unknown id and while the thread runs.
    bool unregister(int id);

    /// Waits until the thread has ended: 0 when it has, -2 when `timeout` milliseconds have passed, of which
    /// 0 means no limit, and -1 for an unknown id or a foreign thread. Holds no lock while it waits.
    int waitToStop(int id, unsigned int timeout);

    /// True if the id is registered.
    bool isThreadExist(int id);

    /// True if the id is that of a thread started here that has not ended.
    bool isThreadActive(int id);

    /// `isThreadExist` and then `isThreadActive`.
    bool isActive(int id);

    /// The priority last set. False, with `priority` untouched, for a null pointer and for a thread that is
    /// unknown, foreign or has ended.
    bool getPriority(int id, ThreadPriority* priority);

    /// Sets the priority of the calling thread, whose id must be passed. False for any other id, for a
    /// foreign thread, and with a line of level 1 for the invalid priority or when the system refuses.
    bool setPriority(int id, ThreadPriority const& priority);

    /// The registered name, an empty text for an unknown id; never null. Valid until the table changes: for
    /// callers who know that no thread is registered or unregistered meanwhile.
    char const* findName(int id);

    /// The same.
    char const* getName(int id);

    /// Adds id and name of each entry to what `names` holds, as far as it has room. False for null.
    bool getNames(Names* names);

    /// Has each registration logged at level 3 from now on.
    void enableRegistrationLog();

    /// Has no effect.
    void printThreadInfo(int level);

    /// Writes the table to the log at `level`.
    void printThreadInfoReg(int level);

    /// Writes the watchdog's table to the log at `level`, and then the threads that it does not have.
    void printWatchdogInfo(int level);

    /// Operations of the `ThreadWatchdog` for thread `id`, where 0 stands for the calling thread. The name
    /// that the watchdog keeps is the registered one.
    ///@{
    bool entryWatchdog(unsigned int aliveTime, WatchdogTimerListener* listener, int id = 0);
    bool unregisterWatchdog(int id = 0);
    bool isRegisteredWatchdog(int id = 0);
    bool isWatchingWatchdog(int id = 0);
    bool startWatchdog(int id = 0);
    bool stopWatchdog(int id = 0);
    bool setWatchdogAliveTime(unsigned int aliveTime, int id = 0);
    ///@}

    /// Has the watchdog look at its threads every `interval` milliseconds from now on;
    /// `WatchdogInfo::DEFAULT_WATCH_INTERVAL` at first. Results as of `ThreadWatchdog::setWatchInterval`.
    bool setWatchdogWatchInterval(unsigned int interval);

    /// A sign of life of the calling thread, given at the place `info`. Harmless at any time, also while the
    /// manager is created or deleted by the calling thread. Does not lock the table.
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
    void initializeWatchdog();

    // Steps on with each instance that is deleted, so it tells the instances apart.
    static unsigned int managerNumber();

    /// `entry` with a handshake of the caller's, which knows afterwards whether there is a thread: if so,
    /// that owns `argument`.
    int start(StartHandshake& handshake, void (*function)(void*), void* argument, int watchdog,
              unsigned int aliveTime, WatchdogTimerListener* listener, char const* name,
              ThreadPriority const& priority);
    int startAndRegister(StartHandshake& handshake, StartParameter& parameter, NewThread& thread);
    bool registerStarted(int id, NewThread& thread);
    bool registerCaller(int id, char const* name);
    bool storePriority(int id, int osValue);
    bool hasEntry(int id, SmartPointer<Event> const& end);

    // Every change of the table's size goes through these two. A stored entry is moved out of `entry`.
    bool storeEntry(int id, ThreadEntry& entry);
    void eraseEntry(int id);

    static ThreadManager* mpTheObject;
    static std::atomic<bool> mHasInitializedWatchdog;
    static std::atomic<unsigned int> mFreePlaces;  // of mEntries; read without its lock

    SyncObject mEntriesSyncObject;
    Map<int, ThreadEntry> mEntries;
    Event mStartEvent;
    std::atomic<ThreadWatchdog*> mWatchdog;
    std::atomic<bool> mRegistrationLog;
};

extern template class Map<int, ThreadManager::ThreadEntry>;  // exported as the template is
extern template class Map<int, BasicString<char>>;

}  // namespace utl

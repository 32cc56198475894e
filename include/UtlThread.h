#pragma once

#include <atomic>

#include "UtlBasicString.h"
#include "UtlEvent.h"
#include "UtlPlatform.h"
#include "UtlSmartPointer.h"
#include "UtlSyncObject.h"
#include "UtlThreadPriority.h"

namespace utl {

class StatementInfo;
class WatchdogTimerListener;

/// What a `Thread` runs that does not override `execute`; *one owner thread*, because the thread that runs it
/// alone calls it.
class UTL_API Command {
  public:
    Command() = default;
    Command(Command const&) = default;
    Command& operator=(Command const&) = default;
    virtual ~Command();

    /// The result becomes the thread's. An exception that leaves it ends the process. `pthread_exit` in it
    /// ends the thread without a result and without milestone 3; `exit` ends the process, whose other threads
    /// run on meanwhile. It must not wait for its own thread's end, nor destroy the `Thread`.
    virtual int execute() = 0;
};

/// A named thread that runs once; *internally locked*, because its state may be asked for from everywhere.
///
/// | Milestone | Goes on | Means |
/// |---|---|---|
/// | 0 | when `start` has registered the thread | started |
/// | 1 | when `preExecute` has returned | ready, about to run `execute` |
/// | 2 | in `stop` | a stop was requested |
/// | 3 | when `postExecute` has returned and the result is stored | finished |
///
/// Milestones never go off again. After the end the thread keeps its place in the `ThreadManager`'s table
/// until `leaveManagement`; whoever starts threads again and again must give the places back, or the table
/// runs full.
///
/// A derived class stops its thread in its own destructor. In the destructor of this class its `requestStop`
/// and `execute` are gone already, and the wait for a thread that nobody asked to end never ends.
///
/// An exception that leaves `preExecute`, `execute` or `postExecute` ends the process. `pthread_exit` there
/// ends the thread: it is not running any more and can leave the management, but it reaches no further
/// milestone and has no result, and a `start` that waits for it to be ready waits for ever. `exit` ends the
/// process without waiting for any thread. In `execute` the thread's own `start` gives -1, and `stop(0)`
/// requests; a `stop` that waits for the end, and both of them in `preExecute`, wait for ever.
class UTL_API Thread {
  public:
    /// Numbers of the milestones.
    enum Milestone { STARTED = 0, READY = 1, STOP_REQUESTED = 2, FINISHED = 3 };

    /// `name` is copied; null gives an empty one. `command` stays the caller's and may be null.
    explicit Thread(char const* name, Command* command = nullptr);

    /// `stop(1, 0)`.
    virtual ~Thread();
    Thread(Thread const&) = delete;
    Thread& operator=(Thread const&) = delete;

    /// Starts the thread. `watchdog` 1 registers it with the watchdog, not yet watched, with `aliveTime` in
    /// milliseconds and `listener`, which may be null. `waitReady` 1 waits until the thread is ready, at most
    /// `waitTimeout` milliseconds, of which 0 means no limit; it then gives what `waitTo(1, waitTimeout)`
    /// gives, while the thread runs in any case. `reserved` has no effect.
    ///
    /// 0 on success; -1 if the thread was started before, or if it could not be started, which the
    /// `ThreadManager` logs. Where no thread could be made, `start` may be tried again. If the thread exists
    /// but could not be registered (`ThreadManager::entry`), it runs to its end all the same, without an id:
    /// the object must not be started again, and its destructor waits for that end.
    ///
    /// The thread runs nothing of the user's before it is registered: `preExecute` and what follows find the
    /// id, milestone 0, the name and the place with the watchdog. An allocation that fails throws before
    /// there is a thread, and leaves nothing behind.
    ///
    /// A watched thread that ends by itself, without a `stop`, calls `ThreadManager::unregisterWatchdog`
    /// first: else the watchdog reports it and keeps its place.
    ///
    /// A second caller, and `stop`, wait until a `start` has returned.
    int start(int watchdog = 0, unsigned int aliveTime = 0, WatchdogTimerListener* listener = nullptr,
              int waitReady = 1, unsigned int waitTimeout = 0,
              ThreadPriority const& priority = ThreadPriority(), unsigned int reserved = 0);

    /// Asks the thread to end: takes it from the watchdog, turns milestone 2 on and calls `requestStop`.
    /// `wait` 1 then waits for the end and gives what `waitTo(3, timeout)` gives. Otherwise 0 at once. -1,
    /// with nothing done, for a thread that was not started or has finished. Do not wait on the thread
    /// itself.
    int stop(int wait = 1, unsigned int timeout = 0);

    /// Waits for a milestone: 0 when it is reached, -2 when `timeout` milliseconds have passed, of which 0
    /// means no limit. -1 for an unknown number, for milestones 2 and 3 of a thread that was not started, and
    /// for milestone 3 of one that has left the management.
    int waitTo(int milestone, unsigned int timeout = 0);

    /// True if the milestone has been reached; for milestone 3 `isRunning` must also be false. False for an
    /// unknown number.
    bool hasDone(int milestone) const;

    /// `hasDone(2)`.
    bool hasRequestedStop() const;

    /// Stores what `execute` returned. False, with `result` untouched, before the thread has finished and for
    /// null.
    bool getResult(unsigned int* result) const;

    /// True from the start of a registered thread to its end, or to the end of the `ThreadManager` that
    /// started it. Takes no lock.
    bool isRunning() const;

    /// The kernel thread id; 0 before the thread is registered, and for ever if it could not be. The thread
    /// itself always finds it stored.
    int getId() const { return mId; }

    /// The name given to the constructor.
    BasicString<char> const& getName() const { return mName; }

    /// `ThreadManager::setPriority`: only the thread itself can.
    bool setPriority(ThreadPriority const& priority);

    /// `ThreadManager::getPriority`.
    bool getPriority(ThreadPriority* priority) const;

    /// Gives the thread's place in the `ThreadManager`'s table back. False while it runs, and when it has
    /// none.
    bool leaveManagement();

    /// Operations of the `ThreadWatchdog` on this thread. Before `start` has stored the id, they act on the
    /// calling thread.
    ///@{
    bool setWatchdogAliveTime(unsigned int aliveTime);
    bool startWatchdog();
    bool stopWatchdog();
    ///@}

    /// A sign of life of the calling thread.
    static void keepAliveWatchdog(StatementInfo const& info);

    /// Sleeps for `ms` milliseconds, taken as signed; a negative time does not sleep. Signals do not shorten
    /// it.
    static void sleep(unsigned int ms);

    /// What a new thread runs; `cell` holds a `Thread*` and is freed.
    static void startImpl(void* cell);

  protected:
    /// Called on the new thread before it is ready.
    virtual void preExecute() {}

    /// The thread's work. Runs the command and gives its result, -1 without a command.
    virtual int execute();

    /// Called on the thread when `execute` has returned, before the result can be seen.
    virtual void postExecute() {}

    /// Called by `stop`, on its caller, to make `execute` return.
    virtual void requestStop() {}

    /// Takes the calling thread, which is this one, from the watchdog, unless a `stop` has done so. For an
    /// `execute` that may end by itself.
    void leaveWatchdog() const;

    /// Waits without limit for the end of a thread that exists, also where the `ThreadManager` does not
    /// know it any more, and never for another thread that has got its kernel id. For destructors, on another
    /// thread.
    void waitForEnd() const;

    /// For a class whose constructor starts the thread: a derived class's constructor must not change what
    /// the thread is about to look up in the object. `execute` calls `enter` first, and the constructor waits
    /// for that; at once where there is no thread.
    void enter() const;
    void waitUntilInside() const;

  private:
    static constexpr unsigned int MILESTONE_COUNT = 4;

    Command* mCommand;
    std::atomic<int> mId;
    BasicString<char> mName;
    Event mMilestones[MILESTONE_COUNT];
    SyncObject mSyncObject;
    std::atomic<unsigned int> mResult;
    SmartPointer<Event> mEndEvent;  // the entry's; empty as long as no thread exists
};

}  // namespace utl

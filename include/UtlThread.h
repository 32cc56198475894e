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

/// What a `Thread` runs that does not override `execute`; *one owner thread*, because only the thread that
/// runs it calls it.
class UTL_API Command {
  public:
    Command() = default;
    Command(Command const&) = default;
    Command& operator=(Command const&) = default;
    virtual ~Command();

    /// Its result is the thread's. An exception that leaves it ends the process. `pthread_exit` in it ends
    /// the thread without a result and without milestone 3. `exit` ends the process, whose other threads run
    /// on meanwhile. It must not wait for its own thread's end, nor destroy the `Thread`.
    virtual int execute() = 0;
};

/// A named thread that runs once; *internally locked*, because any thread may ask for its state.
///
/// | Milestone | Goes on | Means |
/// |---|---|---|
/// | 0, `STARTED` | when `start` has registered the thread | started |
/// | 1, `READY` | when `preExecute` has returned | ready, about to run `execute` |
/// | 2, `STOP_REQUESTED` | in `stop` | a stop was requested |
/// | 3, `FINISHED` | when `postExecute` has returned and the result is stored | finished |
///
/// Milestones never go off again. After the end the thread keeps its place in the `ThreadManager`'s table
/// until `leaveManagement`. A program that starts threads again and again must release the places, or the
/// table runs full.
///
/// A derived class stops its thread in its own destructor. When the destructor of this class runs, the
/// derived `requestStop` and `execute` do not exist any more, and the wait for a thread that nobody asked to
/// end never ends.
///
/// An exception that leaves `preExecute`, `execute` or `postExecute` ends the process. `pthread_exit` there
/// ends the thread: it is not running any more and can leave the management, but it reaches no further
/// milestone and has no result, and a `start` that waits for it to be ready waits forever. `exit` ends the
/// process without waiting for any thread. In `execute` the thread's own `start` returns -1, and `stop(0)`
/// requests a stop; a `stop` that waits for the end waits forever. In `preExecute` both wait forever.
class UTL_API Thread {
  public:
    /// Numbers of the milestones.
    enum Milestone { STARTED = 0, READY = 1, STOP_REQUESTED = 2, FINISHED = 3 };

    /// Values of `watchdog` in a start; any other value counts as 0.
    enum WatchdogUse { WITHOUT_WATCHDOG = 0, WITH_WATCHDOG = 1 };

    /// Values of `waitReady` in a start; any other value counts as 0.
    enum StartWait { START_ONLY = 0, AWAIT_READY = 1 };

    /// Values of `wait` in a stop; any other value counts as 0.
    enum StopWait { REQUEST_ONLY = 0, AWAIT_END = 1 };

    /// `name` is copied; a null `name` counts as empty. `command` stays the caller's and may be null.
    explicit Thread(char const* name, Command* command = nullptr);

    /// `stop(1, 0)`.
    virtual ~Thread();
    Thread(Thread const&) = delete;
    Thread& operator=(Thread const&) = delete;

    /// Starts the thread. `watchdog` 1 registers it with the watchdog, not yet watched, with `aliveTime` in
    /// milliseconds and `listener`, which may be null. `waitReady` 1 waits until the thread is ready, at most
    /// `waitTimeout` milliseconds, where 0 means no limit. It then returns what `waitTo(1, waitTimeout)`
    /// returns, and the thread runs in any case. `reserved` has no effect.
    ///
    /// 0 on success; -1 if the thread was started before, or if it could not be started, which the
    /// `ThreadManager` logs. If no thread could be created, `start` may be tried again. If the thread exists
    /// but could not be registered (`ThreadManager::entry`), it runs to its end all the same, without an id:
    /// the object must not be started again, and its destructor waits for that end.
    ///
    /// The thread runs nothing of the user's before it is registered: `preExecute` and what follows find the
    /// id, milestone 0, the name and the place with the watchdog. An allocation that fails throws before
    /// there is a thread, and leaves nothing behind.
    ///
    /// A watched thread that ends by itself, without a `stop`, calls `ThreadManager::unregisterWatchdog`
    /// first. Otherwise the watchdog reports it and keeps its place.
    ///
    /// A second caller, and `stop`, wait until a `start` has returned.
    int start(int watchdog = WITHOUT_WATCHDOG, unsigned int aliveTime = 0,
              WatchdogTimerListener* listener = nullptr, int waitReady = AWAIT_READY,
              unsigned int waitTimeout = Event::NO_LIMIT, ThreadPriority const& priority = ThreadPriority(),
              unsigned int reserved = 0);

    /// Asks the thread to end: removes it from the watchdog, sets milestone 2 on and calls `requestStop`.
    /// `wait` 1 then waits for the end and returns what `waitTo(3, timeout)` returns. Otherwise 0 at once.
    /// -1, with nothing done, for a thread that was not started or has finished. Do not wait on the thread
    /// itself.
    int stop(int wait = AWAIT_END, unsigned int timeout = Event::NO_LIMIT);

    /// Waits for a milestone: 0 when it is reached, -2 when `timeout` milliseconds have passed, where 0 means
    /// no limit. -1 for an unknown number, for milestones 2 and 3 of a thread that was not started, and for
    /// milestone 3 of one that has left the management. The constants are `Event`'s: `WAIT_DONE`,
    /// `WAIT_TIMEOUT`, `WAIT_FAILED` and `NO_LIMIT`.
    int waitTo(int milestone, unsigned int timeout = Event::NO_LIMIT);

    /// True if the milestone has been reached; for milestone 3 `isRunning` must also be false. False for an
    /// unknown number.
    [[nodiscard]] bool hasDone(int milestone) const noexcept;

    /// `hasDone(2)`.
    [[nodiscard]] bool hasRequestedStop() const noexcept;

    /// Stores what `execute` returned. False, with `result` untouched, before the thread has finished and for
    /// null.
    bool getResult(unsigned int* result) const noexcept;

    /// True from the start of a registered thread to its end, or to the end of the `ThreadManager` that
    /// started it. Takes no lock.
    [[nodiscard]] bool isRunning() const noexcept;

    /// The kernel thread id; 0 before the thread is registered, and forever if it could not be. The thread
    /// itself always finds it stored.
    [[nodiscard]] int getId() const noexcept { return mId; }

    /// The name given to the constructor.
    [[nodiscard]] BasicString<char> const& getName() const noexcept { return mName; }

    /// `ThreadManager::setPriority`: only the thread itself can.
    bool setPriority(ThreadPriority const& priority);

    /// `ThreadManager::getPriority`.
    bool getPriority(ThreadPriority* priority) const;

    /// Releases the thread's place in the `ThreadManager`'s table. False while it runs, and when it has none.
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

    /// The thread's work. Runs the command and returns its result, -1 without a command.
    virtual int execute();

    /// Called on the thread when `execute` has returned, before the result can be seen.
    virtual void postExecute() {}

    /// Called by `stop`, on its caller's thread, to make `execute` return.
    virtual void requestStop() UTL_EXCLUDES(mSyncObject) {}

    /// Removes the calling thread, which is this one, from the watchdog, unless a `stop` has done so. For an
    /// `execute` that may end by itself.
    void leaveWatchdog() const;

    /// Waits without limit for the end of a thread that exists, even if the `ThreadManager` does not know it
    /// any more, and never for another thread that has got its kernel id. For destructors, on another thread.
    void waitForEnd() const UTL_EXCLUDES(mSyncObject);

    /// For a class whose constructor starts the thread: a derived class's constructor must not change what
    /// the thread is about to look up in the object. `execute` calls `signalExecuting` first, and the
    /// constructor calls `waitUntilExecuting`, which returns at once if there is no thread.
    void signalExecuting() const;
    void waitUntilExecuting() const;

  private:
    static constexpr unsigned int MILESTONE_COUNT = 4;

    Command* mCommand;
    std::atomic<int> mId;
    BasicString<char> mName;
    Event mMilestones[MILESTONE_COUNT];
    SyncObject mSyncObject;
    std::atomic<unsigned int> mResult;
    SmartPointer<Event> mEndEvent;  // shared with the entry; empty as long as no thread exists
};

}  // namespace utl

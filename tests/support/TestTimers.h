#pragma once

// Listeners and system calls for the tests of shared timers.

#include <signal.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TestGate.h"
#include "TestHooks.h"
#include "TestLayout.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestPrivate.h"
#include "TestThreads.h"
#include "UtlSharedTimer.h"
#include "UtlThreadManager.h"
#include "UtlTimer.h"

namespace utltest {

namespace in_timers {
UTLTEST_REVEAL(utl::SharedTimer, mQueueLock);
UTLTEST_REVEAL(utl::SharedTimer, mNextUserTimerId);
UTLTEST_REVEAL(utl::SharedTimer, mNextSysTimerNumber);
UTLTEST_REVEAL(utl::SharedTimer, mPipe);
UTLTEST_REVEAL(utl::SharedTimer, mCtlQueue);
UTLTEST_REVEAL(utl::SharedTimer, mTimers);
UTLTEST_REVEAL(utl::SharedTimer, mApiLock);
}  // namespace in_timers

/// A way to the state of shared timers that no operation shows.
struct SharedTimerAccess {
    static void setNextTimerId(utl::SharedTimer& timers, int id) {
        utl::SyncGuard const guard(timers.*in_timers::mQueueLock);
        timers.*in_timers::mNextUserTimerId = id;
    }
    static void setNextSysTimerNumber(utl::SharedTimer& timers, int number) {
        utl::SyncGuard const guard(timers.*in_timers::mQueueLock);
        timers.*in_timers::mNextSysTimerNumber = number;
    }
    static int writeEnd(utl::SharedTimer const& timers) { return (timers.*in_timers::mPipe)[1]; }

    /// Where the fields begin, in the order that they must have.
    static std::vector<std::size_t> fields(utl::SharedTimer const& t) {
        using namespace in_timers;
        return offsetsOf(t, mCtlQueue, mTimers, mNextUserTimerId, mNextSysTimerNumber, mPipe, mApiLock,
                         mQueueLock);
    }
};

namespace in_timer {
UTLTEST_REVEAL(utl::Timer, mTimerId);
UTLTEST_REVEAL(utl::Timer, mSharedTimer);
UTLTEST_REVEAL(utl::Timer, mListener);
}  // namespace in_timer

struct TimerAccess {
    static int timerId(utl::Timer const& timer) { return timer.*in_timer::mTimerId; }
    static std::vector<std::size_t> fields(utl::Timer const& t) {
        using namespace in_timer;
        return offsetsOf(t, mSharedTimer, mListener, mTimerId);
    }
};

constexpr unsigned int LONG = 60000;  // a period that does not end during a test
constexpr unsigned int NO_INTERVAL = utl::SharedTimer::NO_INTERVAL;
constexpr int UNKNOWN = 77;  // the id of no timer

using Ids = std::vector<int>;

inline Ids idsOf(utl::SharedTimer& timers) {
    utl::Array<int> ids(0, 0);
    EXPECT_EQ(timers.getTimerIdSet(&ids), 1);
    return ids.size() == 0 ? Ids() : Ids(ids.elements(), ids.elements() + ids.size());
}

/// Keeps the ids of the expiries that it receives, and runs `onTick` after each.
class Ticker : public utl::TimerListener {
  public:
    Ticker() = default;
    explicit Ticker(std::function<void(int)> function) : mOnTick(std::move(function)) {}
    Ticker(Ticker const&) = delete;
    Ticker& operator=(Ticker const&) = delete;

    void onTime(int timerId) override {
        {
            std::lock_guard<std::mutex> const guard(mMutex);
            mTicks.push_back(timerId);
            mChanged.notify_all();
        }
        if (mOnTick) {
            mOnTick(timerId);
        }
    }

    std::vector<int> ticks() const {
        std::lock_guard<std::mutex> const guard(mMutex);
        return mTicks;
    }
    size_t count() const { return ticks().size(); }

    /// Waits until there were `count` expiries; false after half a minute.
    bool waitFor(size_t count) const {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, std::chrono::seconds(30), [&] { return mTicks.size() >= count; });
    }

    /// Waits for `count` more.
    bool waitForMore(size_t count) const { return waitFor(ticks().size() + count); }

  private:
    std::function<void(int)> const mOnTick;
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    std::vector<int> mTicks;
};

/// Holds the timer thread at its first expiry until it is released, so that a test can fill the queue.
class Blocker : public Ticker {
  public:
    Blocker() : Ticker([this](int) { EXPECT_TRUE(mGate.hold()); }) {}
    ~Blocker() override { letGo(); }

    /// Adds a timer that blocks the thread, and waits until it does.
    void block(utl::SharedTimer& timers) {
        int const timer = timers.addTimer(this, 1, 1, 0);
        ASSERT_GT(timer, 0);
        ASSERT_TRUE(timers.start(timer, 0));
        ASSERT_TRUE(mGate.waitUntilHeld());
    }
    void letGo() { mGate.open(); }

  private:
    Gate mGate;
};

/// A shared timer that is destroyed by `destroy` at the end of the scope.
class ScopedTimers {
  public:
    explicit ScopedTimers(unsigned int maxTimerCount = 8, char const* name = "shared", int watchdog = 0,
                          unsigned int aliveTime = 0)
        : mTimers(watchdog, aliveTime, nullptr, maxTimerCount, name) {}
    utl::SharedTimer* operator->() { return &mTimers; }
    utl::SharedTimer& operator*() { return mTimers; }

    /// Returns when the thread has acted on all that was asked for before. Takes a free place.
    void settle() {
        int const fence = mTimers.addTimer(nullptr, 0);
        ASSERT_GT(fence, 0);
        ASSERT_TRUE(mTimers.start(fence, 0));
        ASSERT_TRUE(mTimers.eraseTimer(fence, 0));
    }

  private:
    utl::SharedTimer mTimers;
    utl::AutoDestroy<utl::SharedTimer> const mDestroying{mTimers};
};

/// The calls of one system function by shared timers; some of them can be made to fail.
class PlannedCall {
  public:
    /// Call `first`, counted from 1 from now on, and the `count` - 1 after it fail; a `count` of 0 means all
    /// that follow.
    void failFrom(unsigned int first, unsigned int count, int error) {
        mCalls = 0;
        mError = error;
        mFirst = first;
        mCount = count;
    }
    void reset() { failFrom(0, 0, 0); }
    unsigned int calls() const { return mCalls; }

    /// Counts a call. True, with `errno` set, if it is to fail.
    bool fails() {
        unsigned int const number = ++mCalls;
        unsigned int const first = mFirst;
        unsigned int const count = mCount;
        if (first == 0 || number < first || (count != 0 && number - first >= count)) {
            return false;
        }
        errno = mError;
        return true;
    }

  private:
    std::atomic<unsigned int> mCalls{0};
    std::atomic<unsigned int> mFirst{0};
    std::atomic<unsigned int> mCount{0};
    std::atomic<int> mError{0};
};

/// What shared timers ask the system for, apart from what other threads of the library do meanwhile.
struct TimerCalls {
    PlannedCall create;
    PlannedCall setTime;
    PlannedCall remove;
    PlannedCall read;
    PlannedCall write;

    std::atomic<int> readEnd{-1};  // of the pipe that was opened last
    std::atomic<int> writeEnd{-1};
    std::atomic<int> failingWriteId{0};     // if not 0, writes of other tokens are left alone
    std::atomic<unsigned int> requests{0};  // tokens that are not of signals

    std::mutex mutex;
    std::vector<timer_t> alive;
    std::vector<itimerspec> specs;

    static int signalNumber() { return SIGRTMIN + 1; }

    /// For a test that begins.
    void reset() {
        for (PlannedCall* const call : {&create, &setTime, &remove, &read, &write}) {
            call->reset();
        }
        readEnd = -1;
        writeEnd = -1;
        failingWriteId = 0;
        requests = 0;
        std::lock_guard<std::mutex> const guard(mutex);
        alive.clear();
        specs.clear();
    }

    bool knows(timer_t timer) {
        std::lock_guard<std::mutex> const guard(mutex);
        return std::find(alive.begin(), alive.end(), timer) != alive.end();
    }
    void add(timer_t timer) {
        std::lock_guard<std::mutex> const guard(mutex);
        alive.push_back(timer);
    }
    void forget(timer_t timer) {
        std::lock_guard<std::mutex> const guard(mutex);
        alive.erase(std::find(alive.begin(), alive.end(), timer));
    }

    /// System timers that exist.
    size_t aliveCount() {
        std::lock_guard<std::mutex> const guard(mutex);
        return alive.size();
    }

    /// The times that system timers were armed with, in milliseconds, oldest first.
    std::vector<long> armed() {
        std::lock_guard<std::mutex> const guard(mutex);
        std::vector<long> result;
        for (itimerspec const& spec : specs) {
            result.push_back(static_cast<long>(spec.it_value.tv_sec) * 1000 +
                             spec.it_value.tv_nsec / 1000000);
        }
        return result;
    }
};

inline TimerCalls& timerCalls() {
    static auto* const calls = new TimerCalls;
    return *calls;
}

inline int createTimerHook(clockid_t clock, sigevent* event, timer_t* timer) {
    if (event->sigev_signo != TimerCalls::signalNumber()) {
        return hooks::timerCreate.real(clock, event, timer);
    }
    if (timerCalls().create.fails()) {
        return -1;
    }
    int const result = hooks::timerCreate.real(clock, event, timer);
    if (result == 0) {
        timerCalls().add(*timer);
    }
    return result;
}

inline int setTimerHook(timer_t timer, int flags, itimerspec const* spec, itimerspec* old) {
    TimerCalls& calls = timerCalls();
    if (calls.knows(timer)) {
        if (calls.setTime.fails()) {
            return -1;
        }
        std::lock_guard<std::mutex> const guard(calls.mutex);
        calls.specs.push_back(*spec);
    }
    return hooks::timerSetTime.real(timer, flags, spec, old);
}

inline int deleteTimerHook(timer_t timer) {
    if (timerCalls().knows(timer)) {
        if (timerCalls().remove.fails()) {
            return -1;
        }
        timerCalls().forget(timer);
    }
    return hooks::timerDelete.real(timer);
}

inline ssize_t readHook(int handle, void* buffer, size_t bytes) {
    if (handle == timerCalls().readEnd && timerCalls().read.fails()) {
        return -1;
    }
    return hooks::read.real(handle, buffer, bytes);
}

inline ssize_t writeHook(int handle, void const* buffer, size_t bytes) {
    TimerCalls& calls = timerCalls();
    int id = 0;
    std::memcpy(&id, buffer, sizeof(id));
    calls.requests += handle == calls.writeEnd && id != utl::MSG_ID_TIMEOUT_SIGNAL ? 1U : 0U;
    if (handle == calls.writeEnd && (calls.failingWriteId == 0 || calls.failingWriteId == id) &&
        calls.write.fails()) {
        return -1;
    }
    return hooks::write.real(handle, buffer, bytes);
}

inline int pipeHook(int* ends) {
    int const result = hooks::pipe.real(ends);
    timerCalls().readEnd = ends[0];
    timerCalls().writeEnd = ends[1];
    return result;
}

/// Until the scope ends, other threads take all free places of the registry while the next thread is created,
/// which therefore cannot be registered.
class [[nodiscard]] FullRegistry {
  public:
    FullRegistry() {
        hooks::threadCreate.replace(
            +[](pthread_t* thread, pthread_attr_t const* attributes, void* (*entry)(void*), void* argument) {
                for (int i = 0; i < PLACES; ++i) {
                    utltest::ThreadManagerAccess::storeEntry(NO_THREAD + i, foreignEntry("filler"));
                }
                return hooks::threadCreate.real(thread, attributes, entry, argument);
            });
    }
    ~FullRegistry() {
        hooks::threadCreate.replace(nullptr);
        for (int i = 0; i < PLACES; ++i) {
            utltest::ThreadManagerAccess::eraseEntry(NO_THREAD + i);
        }
    }
    FullRegistry(FullRegistry const&) = delete;
    FullRegistry& operator=(FullRegistry const&) = delete;

  private:
    static constexpr int PLACES = utl::ThreadManager::DEFAULT_ENTRY_MAX;
};

/// The log and the system calls of shared timers are watched. The registry of threads exists already, so that
/// its own start is not counted.
class TimerTest : public ::testing::Test {
  protected:
    TimerTest() {
        calls().reset();
        hooks::timerCreate.replace(createTimerHook);
        hooks::timerSetTime.replace(setTimerHook);
        hooks::timerDelete.replace(deleteTimerHook);
        hooks::read.replace(readHook);
        hooks::write.replace(writeHook);
        hooks::pipe.replace(pipeHook);
    }

    static TimerCalls& calls() { return timerCalls(); }

    static std::string error(std::string const& text, int number) {
        return "<UTIL> ERR: " + text + std::to_string(number);
    }

    /// Waits until one more request was posted than `before`.
    static void waitForRequestBehind(unsigned int before) {
        while (calls().requests == before) {
            std::this_thread::yield();
        }
    }

    /// The line that the loop logs before it continues after an entry that failed.
    static std::string loopError(std::string const& name, char const* id) {
        return "<UTIL> ERR: !!!!!!!! SharedTimerThread(" + name + ") Error. MsgId:" + id + " !!!!!!!!";
    }

    /// True if a line begins and ends like this; between them is a system timer's id.
    bool hasLine(std::string const& begin, std::string const& end) const {
        for (std::string const& line : log.lines()) {
            if (line.size() >= begin.size() + end.size() && line.compare(0, begin.size(), begin) == 0 &&
                line.compare(line.size() - end.size(), end.size(), end) == 0) {
                return true;
            }
        }
        return false;
    }

  private:
    utl::ThreadManager* const mManager = utl::ThreadManager::get();
    HookScope const mHooks;

  protected:
    LogCapture log;
};

/// Waits for what nobody tells; false after half a minute.
template <typename CONDITION>
bool becomes(CONDITION condition) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

/// A `Ticker` that ends its timers first when its scope ends.
class Listener : public Ticker {
  public:
    explicit Listener(ScopedTimers& timers, std::function<void(int)> function = nullptr)
        : Ticker(std::move(function)), mTimers(timers) {}
    ~Listener() override { mTimers->destroy(); }

  private:
    ScopedTimers& mTimers;
};

/// A `Blocker` that lets go and ends its timers first when its scope ends. Must be the last of its listeners.
class HeldTimers : public Blocker {
  public:
    explicit HeldTimers(ScopedTimers& timers) : mTimers(timers) {}
    ~HeldTimers() override {
        letGo();
        mTimers->destroy();
    }
    void hold() { block(*mTimers); }

  private:
    ScopedTimers& mTimers;
};

/// A shared timer whose signals a test can send itself.
class SharedTimerAtItsLimits : public TimerTest {
  protected:
    /// The signal of the timer with this kernel number.
    static void signal(int number) {
        siginfo_t info = {};
        info.si_timerid = number;
        info.si_value.sival_int = calls().writeEnd;
        utl::SharedTimer::TimeoutSignalHandler(TimerCalls::signalNumber(), &info, nullptr);
    }

    /// What the system does when the timer expires. Nothing else may be going on.
    static void expire(utl::SharedTimer& timers, int timerId) {
        signal(timers.findTimer(timerId)->mSysTimerNum);
    }

    /// Posts starts of a stopped timer until no more is taken; returns how many were.
    static unsigned int fill(utl::SharedTimer& timers, int timerId) {
        unsigned int count = 0;
        while (timers.start(timerId, 1)) {
            ++count;
        }
        return count;
    }

    /// The intervals that system timers were armed with, those of `settle` left out.
    static std::vector<long> armed() {
        std::vector<long> result = calls().armed();
        result.erase(std::remove(result.begin(), result.end(), 0), result.end());
        return result;
    }

    /// How many lines contain `part`, their line ends included.
    unsigned int textsOf(std::string const& part) const {
        unsigned int count = 0;
        for (std::string const& text : log.console()) {
            count += text.find(part) != std::string::npos ? 1U : 0U;
        }
        return count;
    }

    ScopedTimers timers{16, "odd"};
};

}  // namespace utltest

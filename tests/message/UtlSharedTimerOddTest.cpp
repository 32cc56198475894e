#include "UtlSharedTimer.h"

#include <signal.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestTimers.h"
#include "UtlThreadManager.h"
#include "UtlTimer.h"

namespace {

using utl::SharedTimer;
using utl::Timer;
using utltest::Blocker;
using utltest::Gate;
using utltest::HookScope;
using utltest::Ids;
using utltest::idsOf;
using utltest::LONG;
using utltest::NO_INTERVAL;
using utltest::ScopedTimers;
using utltest::Ticker;
using utltest::TimerCalls;
using utltest::TimerTest;
using utltest::UNKNOWN;
namespace hooks = utltest::hooks;

// What hooks without a capture note or are told.
std::atomic<int> gBadReadEnd{-1};
std::atomic<bool> gShortWrite{false};
std::mutex gNotesMutex;
std::string gNotes;
std::atomic<int> gDeletedFakes{0};

void note(char what) {
    std::lock_guard<std::mutex> const guard(gNotesMutex);
    gNotes += what;
}

std::string takeNotes() {
    std::lock_guard<std::mutex> const guard(gNotesMutex);
    std::string result;
    result.swap(gNotes);
    return result;
}

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

/// A `Blocker` that lets go and ends its timers first when its scope ends. Stands behind other listeners.
class Holder : public Blocker {
  public:
    explicit Holder(ScopedTimers& timers) : mTimers(timers) {}
    ~Holder() override {
        letGo();
        mTimers->destroy();
    }
    void hold() { block(*mTimers); }

  private:
    ScopedTimers& mTimers;
};

class SharedTimerOdd : public TimerTest {
  protected:
    /// The signal of the timer with this kernel number.
    static void signal(int number) {
        siginfo_t info = {};
        info.si_timerid = number;
        info.si_value.sival_int = calls().writeEnd;
        SharedTimer::TimeoutSignalHandler(TimerCalls::signalNumber(), &info, nullptr);
    }

    /// What the system does when the timer expires. Nothing else may be going on.
    static void expire(SharedTimer& timers, int timerId) { signal(timers.findTimer(timerId)->mSysTimerNum); }

    /// Posts starts of a stopped timer until no more is taken; gives how many were.
    static unsigned int fill(SharedTimer& timers, int timerId) {
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

// The queue

TEST_F(SharedTimerOdd, AFullQueue_RefusesOnlyWhatNeedsAPlace) {
    Holder blocker(timers);
    int const running = timers->addTimer(nullptr, LONG);
    int const stopped = timers->addTimer(nullptr, LONG);
    int const filler = timers->addTimer(nullptr, 0);
    ASSERT_TRUE(timers->start(running));
    blocker.hold();
    log.clear();
    EXPECT_EQ(fill(*timers, filler), SharedTimer::CTL_ENTRY_MAX);

    EXPECT_TRUE(timers->start(running, 0));
    EXPECT_TRUE(timers->restart(running, 1)) << "its start finds the timer running";
    EXPECT_TRUE(timers->stop(stopped, 0));
    EXPECT_TRUE(timers->setInterval(running, 5000));
    EXPECT_GT(timers->addTimer(nullptr, 1), 0);
    EXPECT_FALSE(timers->start(stopped, 1));
    EXPECT_FALSE(timers->start(stopped, 0)) << "nor does it wait";
    EXPECT_FALSE(timers->restart(stopped, 0));
    EXPECT_FALSE(timers->stop(running, 0));
    EXPECT_FALSE(timers->eraseTimer(running, 0));
    EXPECT_FALSE(timers->eraseTimer(stopped, 1));
    EXPECT_TRUE(timers->eraseTimer(stopped, 0)) << "the thread is not needed for it";
    EXPECT_TRUE(timers->isRunning(running));
    EXPECT_EQ(log.lines().size(), 0U);
    blocker.letGo();
}

TEST_F(SharedTimerOdd, Destroy_WithAFullQueue_EndsBehindTheListenerAndServesNothingMore) {
    Holder blocker(timers);
    int const filler = timers->addTimer(nullptr, 0);
    blocker.hold();
    ASSERT_EQ(fill(*timers, filler), SharedTimer::CTL_ENTRY_MAX);
    std::thread destroyer([&] { timers->destroy(); });
    EXPECT_TRUE(becomes([&] { return timers->hasRequestedStop(); }));
    blocker.letGo();
    destroyer.join();
    EXPECT_EQ(calls().create.calls(), 1U);
    EXPECT_EQ(idsOf(*timers), Ids());
    EXPECT_EQ(calls().aliveCount(), 0U);
}

TEST_F(SharedTimerOdd, AnExpiry_ThatFindsTheQueueFull_IsTheOnlyOneThatIsLost) {
    for (int const autoRepeat : {0, 1}) {
        ScopedTimers fresh(16, "odd");
        Listener ticker(fresh);
        Holder blocker(fresh);
        int const timer = fresh->addTimer(&ticker, LONG, 0, autoRepeat);
        int const filler = fresh->addTimer(nullptr, 0);
        ASSERT_TRUE(fresh->start(timer));
        blocker.hold();
        expire(*fresh,
               timer);  // its token lies in front of the others, so the queue is full when it is read
        ASSERT_EQ(fill(*fresh, filler), SharedTimer::CTL_ENTRY_MAX);
        log.clear();
        blocker.letGo();
        ASSERT_EQ(fresh->waitToStart(filler), 0);
        ASSERT_TRUE(becomes([&] { return fresh->stop(filler, 0); }));
        EXPECT_EQ(ticker.count(), 0U);
        for (size_t ticks = 1; ticks <= 3; ++ticks) {
            expire(*fresh, timer);
            fresh.settle();
            EXPECT_EQ(ticker.count(), ticks) << autoRepeat;
        }
        EXPECT_EQ(log.lines().size(), 0U);
        ASSERT_TRUE(fresh->eraseTimer(timer));
    }
}

TEST_F(SharedTimerOdd, ExpiriesBehindABusyListener_CollapseToOneOrWithAutoRepeatToTwo) {
    for (int const autoRepeat : {0, 1, 2}) {
        for (unsigned int const expiries : {1U, 2U, 3U, 10U}) {
            ScopedTimers fresh(16, "odd");
            Listener ticker(fresh);
            Holder blocker(fresh);
            int const timer = fresh->addTimer(&ticker, LONG, 0, autoRepeat);
            ASSERT_TRUE(fresh->start(timer));
            blocker.hold();
            for (unsigned int i = 0; i < expiries; ++i) {
                expire(*fresh, timer);
            }
            blocker.letGo();
            fresh.settle();
            EXPECT_EQ(ticker.count(), std::min(expiries, autoRepeat != 0 ? 2U : 1U)) << autoRepeat;
            expire(*fresh, timer);
            fresh.settle();
            EXPECT_EQ(ticker.count(), std::min(expiries, autoRepeat != 0 ? 2U : 1U) + 1) << autoRepeat;
        }
    }
}

TEST_F(SharedTimerOdd, TheLastExpiry_DropsTheOneBehindItAndTheLeftTokenHarmsNobody) {
    Listener ticker(timers);
    Holder blocker(timers);
    int const timer = timers->addTimer(&ticker, LONG, 1, 1);
    int const other = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(timer));
    blocker.hold();
    expire(*timers, timer);
    expire(*timers, timer);
    blocker.letGo();
    timers.settle();
    EXPECT_EQ(ticker.count(), 1U);
    EXPECT_FALSE(timers->isRunning(timer));
    for (int round = 0; round < 5; ++round) {
        EXPECT_TRUE(timers->restart(other));
    }
    ASSERT_TRUE(timers->start(timer));
    expire(*timers, timer);
    EXPECT_TRUE(ticker.waitFor(2));  // a left token can bring it behind what is asked for later
}

TEST_F(SharedTimerOdd, Stop_WhileExpiriesWaitForDelivery_DropsThemAlsoForTheNextRun) {
    Listener ticker(timers);
    Holder blocker(timers);
    int const timer = timers->addTimer(&ticker, LONG, 0, 1);
    ASSERT_TRUE(timers->start(timer));
    blocker.hold();
    expire(*timers, timer);
    expire(*timers, timer);
    ASSERT_TRUE(timers->stop(timer, 1));  // the timeouts are queued behind it when the signals are read
    blocker.letGo();
    ASSERT_EQ(timers->waitToStop(timer), 0);
    ASSERT_TRUE(timers->start(timer));
    timers.settle();
    EXPECT_EQ(ticker.count(), 0U);
    EXPECT_EQ(timers->findTimer(timer)->mPendingCount, 0U);
    expire(*timers, timer);
    EXPECT_TRUE(ticker.waitFor(1));
    EXPECT_EQ(ticker.count(), 1U);
}

TEST_F(SharedTimerOdd, ARequestWhoseTokenWasCut_FailsButStaysAndIsServedAtTheLatestByTheNextToken) {
    int const first = timers->addTimer(nullptr, LONG);
    int const second = timers->addTimer(nullptr, LONG);
    int const third = timers->addTimer(nullptr, LONG);
    hooks::write.replace([](int handle, void const* buffer, size_t bytes) -> ssize_t {
        if (gShortWrite.exchange(false)) {
            errno = EAGAIN;
            return 4;
        }
        return utltest::writeHook(handle, buffer, bytes);
    });
    gShortWrite = true;
    EXPECT_FALSE(timers->start(first, 1));
    EXPECT_EQ(log.count(error("SharedTimerThread(odd) Error. write Ret:4 errno:", EAGAIN)), 1U);
    EXPECT_TRUE(timers->start(second, 1));
    EXPECT_EQ(timers->waitToStart(first), 0);
    EXPECT_TRUE(timers->start(third, 1));
    EXPECT_EQ(timers->waitToStart(second), 0);
}

TEST_F(SharedTimerOdd, Erase_WhoseStopGetsNoToken_LeavesTheTimer) {
    int const timer = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(timer));
    calls().write.failFrom(1, 1, EPIPE);
    EXPECT_FALSE(timers->eraseTimer(timer, 0));
    EXPECT_EQ(log.count(error("SharedTimerThread(odd) Error. write Ret:4294967295 errno:", EPIPE)), 1U);
    EXPECT_EQ(idsOf(*timers), Ids{timer});
    EXPECT_TRUE(timers->eraseTimer(timer, 0)) << "the way is free again";
    EXPECT_EQ(calls().aliveCount(), 0U);
}

// Without waiting

TEST_F(SharedTimerOdd, EraseWithoutWaiting_LeavesTheTimerInUseUntilTheThreadActs) {
    Listener ticker(timers);
    Holder blocker(timers);
    int const running = timers->addTimer(&ticker, LONG);
    int const stopped = timers->addTimer(&ticker, LONG);
    ASSERT_TRUE(timers->start(running));
    blocker.hold();
    EXPECT_TRUE(timers->eraseTimer(running, 1));
    EXPECT_TRUE(timers->eraseTimer(running, 1)) << "a second time is queued just so";
    EXPECT_TRUE(timers->eraseTimer(stopped, 1));
    EXPECT_TRUE(timers->start(stopped, 1));
    EXPECT_TRUE(timers->stop(running, 1));
    EXPECT_TRUE(timers->isRunning(running));
    EXPECT_EQ(timers->getInterval(running), LONG);
    EXPECT_EQ(idsOf(*timers).size(), 3U);
    EXPECT_TRUE(timers->setInterval(stopped, 1));
    log.clear();
    blocker.letGo();
    timers.settle();
    EXPECT_EQ(timers->findTimer(running), nullptr);
    EXPECT_EQ(timers->getInterval(stopped), NO_INTERVAL);
    EXPECT_EQ(idsOf(*timers).size(), 1U);
    EXPECT_EQ(calls().aliveCount(), 0U);
    EXPECT_EQ(log.lines().size(), 0U) << "entries for a timer that has gone are no failures";
}

TEST_F(SharedTimerOdd, EraseWithoutWaiting_OfAnUnknownTimer_IsQueuedAndIgnored) {
    log.clear();
    for (int const id : {UNKNOWN, 0, -1, INT_MIN}) {
        EXPECT_TRUE(timers->eraseTimer(id, 1)) << id;
        EXPECT_FALSE(timers->eraseTimer(id, 0)) << id;
        EXPECT_FALSE(timers->stop(id, 1)) << id;
        EXPECT_FALSE(timers->restart(id, 1)) << id;
    }
    timers.settle();
    EXPECT_EQ(log.lines().size(), 0U);
}

TEST_F(SharedTimerOdd, RestartAllWithoutWaiting_OnABusyThread_LeavesAllStopped) {
    Holder blocker(timers);
    int const first = timers->addTimer(nullptr, LONG);
    int const second = timers->addTimer(nullptr, LONG);
    int const stopped = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(first));
    ASSERT_TRUE(timers->start(second));
    blocker.hold();
    timers->restartAll(1);
    blocker.letGo();
    timers.settle();
    EXPECT_FALSE(timers->isRunning(first));
    EXPECT_FALSE(timers->isRunning(second));
    EXPECT_TRUE(timers->isRunning(stopped)) << "this one was not running, so it was started";
}

TEST_F(SharedTimerOdd, RestartAll_StopsEveryTimerBeforeItStartsOne) {
    for (int i = 0; i < 3; ++i) {
        timers->addTimer(nullptr, LONG);
    }
    timers->startAll(0);
    int const stopped = timers->addTimer(nullptr, LONG);
    hooks::timerCreate.replace([](clockid_t clock, sigevent* event, timer_t* timer) {
        if (event->sigev_signo == TimerCalls::signalNumber()) {
            note('c');
        }
        return utltest::createTimerHook(clock, event, timer);
    });
    hooks::timerDelete.replace([](timer_t timer) {
        if (utltest::timerCalls().knows(timer)) {
            note('d');
        }
        return utltest::deleteTimerHook(timer);
    });
    takeNotes();
    timers->restartAll(0);
    EXPECT_EQ(takeNotes(), "dddcccc");
    EXPECT_TRUE(timers->isRunning(stopped));
}

// Listeners that use the timers

TEST_F(SharedTimerOdd, AStartFromTheLastExpiry_HasNoEffectAndTheTimerStops) {
    bool running = false;
    bool started = false;
    Listener ticker(timers, [&](int id) {
        running = timers->isRunning(id);
        started = timers->start(id, 0) && timers->start(id, 1);
    });
    int const timer = timers->addTimer(&ticker, 1, 1, 1);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(ticker.waitFor(1));
    timers.settle();
    EXPECT_TRUE(running);
    EXPECT_TRUE(started);
    EXPECT_FALSE(timers->isRunning(timer));
    EXPECT_EQ(timers->findTimer(timer)->mFireCount, 1U);
    EXPECT_EQ(calls().aliveCount(), 0U);
}

TEST_F(SharedTimerOdd, ARestartWithoutWaitingFromTheListener_StopsTheTimer) {
    bool restarted = false;
    Listener ticker(timers, [&](int id) { restarted = timers->restart(id, 1); });
    int const timer = timers->addTimer(&ticker, LONG, 0, 1);
    ASSERT_TRUE(timers->start(timer));
    expire(*timers, timer);
    timers.settle();
    timers.settle();  // the listener's own request is behind the first
    EXPECT_TRUE(restarted);
    EXPECT_FALSE(timers->isRunning(timer));
    EXPECT_EQ(ticker.count(), 1U);
}

TEST_F(SharedTimerOdd, ACallThatWouldWaitForItself_IsRefusedAndChangesNothing) {
    int const other = timers->addTimer(nullptr, LONG);
    std::string results;
    Listener ticker(timers, [&](int id) {
        for (bool const result :
             {timers->stop(id, 0), timers->eraseTimer(id, 0), timers->start(other, 0),
              timers->waitToStop(id) == 0, timers->waitToStart(other) == 0, timers->waitToStop(other) == 0}) {
            results += result ? '1' : '0';
        }
    });
    int const timer = timers->addTimer(&ticker, LONG, 0, 1);
    ASSERT_TRUE(timers->start(timer));
    expire(*timers, timer);
    timers.settle();
    EXPECT_EQ(results.substr(0, 5), "00000");
    EXPECT_TRUE(timers->isRunning(timer));
    EXPECT_FALSE(timers->isRunning(other));
    expire(*timers, timer);
    timers.settle();
    EXPECT_EQ(ticker.count(), 2U);
}

TEST_F(SharedTimerOdd, AListener_CanUseTheTimersWhileAnotherThreadWaitsForOne) {
    Gate entered;
    Gate go;
    int const other = timers->addTimer(nullptr, LONG);
    int const awaited = timers->addTimer(nullptr, LONG);
    int added = 0;
    std::string results;
    Listener ticker(timers, [&](int id) {
        entered.open();
        go.wait();
        added = timers->addTimer(nullptr, LONG);
        for (bool const result : {timers->start(other, 1), timers->setInterval(id, 5), timers->stop(id, 1),
                                  timers->eraseTimer(id, 1), timers->isRunning(id)}) {
            results += result ? '1' : '0';
        }
        timers->startAll(1);
    });
    int const timer = timers->addTimer(&ticker, 1, 1, 0);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(entered.wait());
    unsigned int const before = calls().requests;
    bool started = false;
    std::thread waiter([&] { started = timers->start(awaited, 0); });
    waitForRequestBehind(before);
    go.open();
    waiter.join();
    timers.settle();
    EXPECT_TRUE(started);
    EXPECT_GT(added, 0);
    EXPECT_EQ(results, "11111");
    EXPECT_EQ(idsOf(*timers), (Ids{other, awaited, added}));
    EXPECT_TRUE(timers->isRunning(other));
    EXPECT_TRUE(timers->isRunning(added));
}

TEST_F(SharedTimerOdd, DestroyFromAListener_MakesThatExpiryTheLast) {
    Listener late(timers);
    Listener ticker(timers, [&](int) {
        timers->destroy();
        timers->destroy();
    });
    int const timer = timers->addTimer(&ticker, 1, 0, 1);
    int const other = timers->addTimer(&late, LONG, 0, 1);
    ASSERT_TRUE(timers->start(other));
    ASSERT_TRUE(timers->start(timer, 1));
    ASSERT_EQ(timers->waitTo(utl::Thread::FINISHED), 0);
    int const id = timers->getId();
    timers->destroy();
    EXPECT_FALSE(utl::ThreadManager::get()->isThreadExist(id));
    EXPECT_EQ(ticker.count(), 1U);
    EXPECT_EQ(idsOf(*timers), Ids());
    EXPECT_EQ(timers->addTimer(&late, 1), -1);
    EXPECT_EQ(calls().aliveCount(), 0U);
}

// Intervals and the system's timers

TEST_F(SharedTimerOdd, TheSystemTimer_HasTheIntervalToTheMillisecondAcrossTheWholeRange) {
    for (unsigned int const interval :
         {1000U, 1001U, 59999U, 999999U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
        int const timer = timers->addTimer(nullptr, interval, 0, 1);
        ASSERT_TRUE(timers->start(timer));
        {
            std::lock_guard<std::mutex> const guard(calls().mutex);
            itimerspec const spec = calls().specs.back();
            EXPECT_EQ(static_cast<unsigned int>(spec.it_value.tv_sec), interval / 1000);
            EXPECT_EQ(spec.it_value.tv_nsec, static_cast<long>(interval % 1000) * 1000000);
            EXPECT_EQ(spec.it_interval.tv_sec, spec.it_value.tv_sec) << "it runs on by itself";
            EXPECT_EQ(spec.it_interval.tv_nsec, spec.it_value.tv_nsec);
        }
        EXPECT_TRUE(timers->isRunning(timer));
        ASSERT_TRUE(timers->eraseTimer(timer));
    }
}

TEST_F(SharedTimerOdd, ANewInterval_IsAppliedOnceAndAtTheVeryExpiryInWhichItIsSet) {
    std::atomic<unsigned int> next{0};
    Listener ticker(timers, [&](int id) {
        if (next != 0) {
            timers->setInterval(id, next);
        }
    });
    int const timer = timers->addTimer(&ticker, LONG, 0, 1);
    auto const expireOnce = [&] {
        expire(*timers, timer);
        timers.settle();
        return armed();
    };
    long const base = LONG;
    ASSERT_TRUE(timers->setInterval(timer, LONG + 1));
    ASSERT_TRUE(timers->start(timer));
    EXPECT_EQ(expireOnce(), std::vector<long>{base + 1}) << "a start has applied it";
    next = LONG + 2;
    EXPECT_EQ(expireOnce(), (std::vector<long>{base + 1, base + 2}));
    next = 0;
    EXPECT_EQ(expireOnce(), (std::vector<long>{base + 1, base + 2}));
    ASSERT_TRUE(timers->setInterval(timer, LONG + 3));
    ASSERT_TRUE(timers->setInterval(timer, LONG + 4));
    EXPECT_EQ(armed(), (std::vector<long>{base + 1, base + 2}));
    EXPECT_EQ(expireOnce(), (std::vector<long>{base + 1, base + 2, base + 4}));
    EXPECT_EQ(expireOnce(), (std::vector<long>{base + 1, base + 2, base + 4}));
    EXPECT_EQ(timers->findTimer(timer)->mFireCount, 5U);
}

TEST_F(SharedTimerOdd, WithoutAutoRepeat_TheNextPeriodBeginsBehindTheListener) {
    std::vector<size_t> armedBefore;
    Listener ticker(timers, [&](int) { armedBefore.push_back(armed().size()); });
    int const timer = timers->addTimer(&ticker, LONG, 3, 0);
    ASSERT_TRUE(timers->start(timer));
    for (int i = 0; i < 3; ++i) {
        expire(*timers, timer);
        timers.settle();
    }
    EXPECT_EQ(armedBefore, (std::vector<size_t>{1, 2, 3}));
    EXPECT_EQ(armed().size(), 3U);
    EXPECT_FALSE(timers->isRunning(timer));
    EXPECT_EQ(calls().aliveCount(), 0U);
}

TEST_F(SharedTimerOdd, AnIntervalOf0_KeepsTheTimerRunningSilently) {
    Listener ticker(timers);
    int const timer = timers->addTimer(&ticker, LONG, 0, 1);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(timers->setInterval(timer, 0));
    expire(*timers, timer);
    ASSERT_TRUE(ticker.waitFor(1));
    ASSERT_TRUE(becomes([&] { return calls().armed().size() == 2; }));
    EXPECT_EQ(calls().armed()[1], 0);
    EXPECT_TRUE(timers->isRunning(timer));
    ASSERT_TRUE(timers->setInterval(timer, 1));
    EXPECT_TRUE(timers->start(timer)) << "it runs";
    EXPECT_EQ(calls().armed().size(), 2U);
    ASSERT_TRUE(timers->restart(timer));
    EXPECT_TRUE(ticker.waitForMore(2));
}

TEST_F(SharedTimerOdd, ASignalOfNoTimer_IsIgnoredAndSoIsOneThatIsReadBehindTheEnd) {
    Listener ticker(timers);
    Holder blocker(timers);
    int const stopped = timers->addTimer(&ticker, LONG);
    int const running = timers->addTimer(&ticker, LONG);
    int const erased = timers->addTimer(&ticker, LONG);
    ASSERT_TRUE(timers->start(running));
    ASSERT_TRUE(timers->start(erased));
    int const number = timers->findTimer(running)->mSysTimerNum;
    blocker.hold();
    log.clear();
    for (int const unknown : {-1, INT_MAX, INT_MIN, number + 1000}) {
        signal(unknown);
    }
    ASSERT_TRUE(timers->stop(running, 1));
    ASSERT_TRUE(timers->eraseTimer(erased, 1));
    expire(*timers, running);
    expire(*timers, erased);
    blocker.letGo();
    timers.settle();
    signal(number);
    timers.settle();
    EXPECT_EQ(ticker.count(), 0U);
    EXPECT_FALSE(timers->isRunning(stopped));
    EXPECT_FALSE(timers->isRunning(running));
    EXPECT_EQ(log.lines().size(), 0U);
}

TEST_F(SharedTimerOdd, TheSignalHandler_LogsATokenThatItCannotWriteAndKeepsErrno) {
    Listener ticker(timers);
    int const timer = timers->addTimer(&ticker, LONG, 0, 1);
    ASSERT_TRUE(timers->start(timer));
    calls().write.failFrom(1, 1, EPIPE);
    errno = 77;
    expire(*timers, timer);
    EXPECT_EQ(errno, 77);
    EXPECT_EQ(log.count(error("SharedTimerThread() Error. write Ret:4294967295 errno:", EPIPE)), 1U);
    calls().write.reset();
    expire(*timers, timer);
    timers.settle();
    EXPECT_EQ(ticker.count(), 1U) << "that expiry is lost and no other";
}

/// A kernel that gives every timer the number 0, which nobody else has, and lets none of them expire.
class SharedTimerNumber0 : public utltest::WithoutWatchdogThread {
  protected:
    SharedTimerNumber0() {
        gDeletedFakes = 0;
        hooks::pipe.replace(utltest::pipeHook);
        hooks::timerCreate.replace([](clockid_t, sigevent*, timer_t* timer) {
            *timer = timer_t();
            return 0;
        });
        hooks::timerSetTime.replace([](timer_t, int, itimerspec const*, itimerspec*) { return 0; });
        hooks::timerDelete.replace([](timer_t timer) {
            gDeletedFakes += timer == timer_t() ? 1 : 100;
            return 0;
        });
    }
    ~SharedTimerNumber0() override { utl::ThreadManager::destroy(); }

    static void signal() {
        siginfo_t info = {};
        info.si_value.sival_int = utltest::timerCalls().writeEnd;
        SharedTimer::TimeoutSignalHandler(TimerCalls::signalNumber(), &info, nullptr);
    }

  private:
    HookScope const mHooks;
};

TEST_F(SharedTimerNumber0, IsANumberLikeAnyOther) {
    utltest::LogCapture const log;
    ScopedTimers timers(4, "zero");
    Listener ticker(timers);
    timers->addTimer(nullptr, LONG);  // a stopped one, which has no number
    int const timer = timers->addTimer(&ticker, LONG, 0, 0);
    EXPECT_EQ(timers->toUserTimerId(0), -1);
    ASSERT_TRUE(timers->start(timer));
    EXPECT_EQ(timers->findTimer(timer)->mSysTimerNum, 0);
    EXPECT_EQ(timers->toUserTimerId(0), timer);
    signal();
    ASSERT_TRUE(ticker.waitFor(1));
    ASSERT_TRUE(becomes([] { return gDeletedFakes == 1; })) << "the next period has a timer of its own";
    ASSERT_TRUE(timers->stop(timer));
    EXPECT_EQ(gDeletedFakes, 2);
    EXPECT_EQ(timers->toUserTimerId(0), -1);
    signal();
    ASSERT_TRUE(timers->start(timer));
    EXPECT_EQ(ticker.count(), 1U);
    timers->destroy();
    EXPECT_EQ(gDeletedFakes, 3);
    for (std::string const& line : log.lines()) {
        EXPECT_EQ(line.find("ERR"), std::string::npos) << line;
    }
}

// Failures

TEST_F(SharedTimerOdd, ATimerThatCouldNotBeRearmed_CountsAsRunningUntilItIsStopped) {
    Listener ticker(timers);
    int const timer = timers->addTimer(&ticker, LONG, 0, 0);
    ASSERT_TRUE(timers->start(timer));
    calls().create.failFrom(1, 1, EAGAIN);
    expire(*timers, timer);
    ASSERT_TRUE(log.waitFor("MsgId:0x80000007"));
    EXPECT_EQ(log.count(loopError("odd", "0x80000007")), 1U);
    EXPECT_TRUE(hasLine("<UTIL> ERR: SharedTimerThread(odd) timer_create SysTimerId:0x", " errno:11"));
    EXPECT_TRUE(timers->isRunning(timer));
    EXPECT_TRUE(timers->start(timer));
    EXPECT_EQ(calls().create.calls(), 1U) << "that start had no effect";
    EXPECT_EQ(calls().aliveCount(), 0U);
    ASSERT_TRUE(timers->restart(timer));
    expire(*timers, timer);
    timers.settle();
    EXPECT_EQ(ticker.count(), 2U);

    calls().setTime.failFrom(1, 1, EINVAL);
    expire(*timers, timer);
    ASSERT_TRUE(becomes([&] { return log.count(loopError("odd", "0x80000007")) == 2; }));
    EXPECT_TRUE(hasLine("<UTIL> ERR: SharedTimerThread(odd) timer_settime SysTimerId:0x", " errno:22"));
    EXPECT_EQ(textsOf(" errno:11\n\r\n"), 1U) << "these two lines end in an empty one";
    EXPECT_EQ(textsOf(" errno:22\n\r\n"), 1U);
    EXPECT_TRUE(timers->isRunning(timer));
    EXPECT_EQ(calls().aliveCount(), 0U) << "a timer that counts as running is deleted then";
    EXPECT_TRUE(timers->stop(timer));
}

TEST_F(SharedTimerOdd, TheLastExpiry_WhoseSystemTimerStays_StopsTheTimerAllTheSame) {
    Listener ticker(timers);
    int const timer = timers->addTimer(&ticker, LONG, 1, 1);
    ASSERT_TRUE(timers->start(timer));
    calls().remove.failFrom(1, 1, EINVAL);
    int const number = timers->findTimer(timer)->mSysTimerNum;
    expire(*timers, timer);
    timers.settle();
    EXPECT_TRUE(hasLine("<UTIL> ERR: SharedTimerThread(odd) timer_delete SysTimerId:0x", " errno:22"));
    EXPECT_EQ(textsOf("!!!!!!!!"), 0U);
    EXPECT_FALSE(timers->isRunning(timer));
    signal(number);  // it still expires
    timers.settle();
    EXPECT_EQ(ticker.count(), 1U);
    ASSERT_TRUE(timers->start(timer));
    expire(*timers, timer);
    timers.settle();
    EXPECT_EQ(ticker.count(), 2U);
    EXPECT_FALSE(timers->isRunning(timer));
}

TEST_F(SharedTimerOdd, EraseWithoutWaiting_WhoseSystemTimerStays_TakesTheTimerAwayAllTheSame) {
    Listener ticker(timers);
    int const timer = timers->addTimer(&ticker, LONG);
    ASSERT_TRUE(timers->start(timer));
    int const number = timers->findTimer(timer)->mSysTimerNum;
    calls().remove.failFrom(1, 1, EINVAL);
    EXPECT_TRUE(timers->eraseTimer(timer, 1));
    ASSERT_TRUE(log.waitFor("MsgId:0x80000006"));
    EXPECT_EQ(log.count(loopError("odd", "0x80000006")), 1U);
    EXPECT_TRUE(hasLine("<UTIL> ERR: SharedTimerThread(odd) timer_delete SysTimerId:0x", " errno:22"));
    EXPECT_EQ(idsOf(*timers), Ids());
    signal(number);
    timers.settle();
    EXPECT_EQ(ticker.count(), 0U);
}

TEST_F(SharedTimerOdd, AReadThatGivesLessThanAToken_EndsTheThreadAndAllItsTimers) {
    int const running = timers->addTimer(nullptr, LONG);
    int const last = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(running));
    hooks::read.replace([](int handle, void* buffer, size_t bytes) -> ssize_t {
        if (handle == gBadReadEnd) {
            errno = EIO;
            return 3;
        }
        return hooks::read.real(handle, buffer, bytes);
    });
    gBadReadEnd = calls().readEnd.load();
    timers->start(last, 1);
    ASSERT_EQ(timers->waitTo(utl::Thread::FINISHED), 0);
    gBadReadEnd = -1;
    EXPECT_EQ(log.count("<UTIL> ERR: SharedTimerThread(odd) Error. read Ret:3 errno:5 !!Break msg loop!!"),
              1U);
    unsigned int result = 0;
    EXPECT_TRUE(timers->getResult(&result));
    EXPECT_EQ(result, 0xFFFFFFFF);
    EXPECT_EQ(calls().aliveCount(), 0U);
    EXPECT_EQ(timers->addTimer(nullptr, 1), -1);
    EXPECT_FALSE(timers->start(running, 0));
    EXPECT_EQ(timers->waitToStop(running), -1);
    EXPECT_EQ(timers->getInterval(running), NO_INTERVAL);
    EXPECT_EQ(idsOf(*timers), Ids());
}

TEST_F(SharedTimerOdd, AStopRequest_ReleasesWhoWaitsForAStartThatWillNotCome) {
    Holder blocker(timers);
    int const timer = timers->addTimer(nullptr, LONG);
    blocker.hold();
    unsigned int const before = calls().requests;
    bool started = true;
    std::thread waiter([&] { started = timers->start(timer, 0); });
    waitForRequestBehind(before);
    int awaited = 0;
    std::thread secondWaiter([&] { awaited = timers->waitToStart(timer); });
    EXPECT_EQ(timers->utl::Thread::stop(0), 0);
    blocker.letGo();
    waiter.join();
    secondWaiter.join();
    EXPECT_FALSE(started);
    EXPECT_EQ(awaited, -1);
    EXPECT_EQ(timers->addTimer(nullptr, 1), -1);
}

TEST_F(SharedTimerOdd, RequestStopAlone_DoesNotEndTheThread) {
    Listener ticker(timers);
    int const timer = timers->addTimer(&ticker, 1, 3);
    log.clear();
    timers->requestStop();
    timers->requestStop();
    ASSERT_TRUE(timers->start(timer));
    EXPECT_TRUE(ticker.waitFor(3));
    EXPECT_FALSE(timers->hasRequestedStop());
    EXPECT_EQ(log.lines().size(), 0U);
}

TEST_F(SharedTimerOdd, WaitsForTheStateOfATimer_KeepNobodyOut) {
    Listener ticker(timers);
    int const timer = timers->addTimer(&ticker, LONG, 1);
    int const erased = timers->addTimer(&ticker, LONG, 1);
    int started = -2;
    int gone = -2;
    int stopped = -2;
    std::thread startWaiter([&] { started = timers->waitToStart(timer); });
    std::thread goneWaiter([&] { gone = timers->waitToStart(erased); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // most often they wait by then
    EXPECT_TRUE(timers->eraseTimer(erased, 0));
    EXPECT_TRUE(timers->start(timer, 0));
    startWaiter.join();
    goneWaiter.join();
    EXPECT_EQ(started, 0);
    EXPECT_EQ(gone, -1);
    std::thread stopWaiter([&] { stopped = timers->waitToStop(timer); });
    expire(*timers, timer);
    stopWaiter.join();
    EXPECT_EQ(stopped, 0);
    EXPECT_FALSE(timers->isRunning(timer));
}

TEST_F(SharedTimerOdd, AFullMap_UsesUpNoIdAndTakesTheNextTimerUnderANewOne) {
    ScopedTimers two(2, "two");
    ScopedTimers none(0, "none");
    EXPECT_EQ(none->addTimer(nullptr, 1), -1);
    EXPECT_EQ(two->addTimer(nullptr, 1), 1);
    EXPECT_EQ(two->addTimer(nullptr, 1), 2);
    EXPECT_EQ(two->addTimer(nullptr, 1), -1);
    EXPECT_EQ(two->addTimer(nullptr, 1), -1);
    ASSERT_TRUE(two->eraseTimer(1));
    EXPECT_EQ(two->addTimer(nullptr, 1), 3);
    EXPECT_EQ(idsOf(*two), (Ids{2, 3}));
    utl::Array<int, int const&> ids(10, 0);
    for (int i = 0; i < 10; ++i) {
        ids.insertAt(0, 7);
    }
    EXPECT_EQ(two->getTimerIdSet(&ids), 1);
    EXPECT_EQ(ids.size(), 2U);
    EXPECT_EQ(ids.maxSize(), 2U);
    EXPECT_EQ(none->getTimerIdSet(&ids), 1);
    EXPECT_EQ(ids.size(), 0U);
    EXPECT_EQ(ids.maxSize(), 0U);
    utl::Array<int, int const&> small(1, 0);
    EXPECT_EQ(two->getTimerIdSet(&small), 1);
    EXPECT_EQ(small.size(), 2U);
}

TEST_F(SharedTimerOdd, AWatchedThread_IsWatchedInItsListenersAndNotWhileItIsIdle) {
    ScopedTimers watched(2, "watched", 1, LONG);
    utl::ThreadManager& manager = *utl::ThreadManager::get();
    int const thread = watched->getId();
    bool inListener = false;
    Listener ticker(watched, [&](int) { inListener = utl::ThreadManager::get()->isWatchingWatchdog(); });
    int const timer = watched->addTimer(&ticker, 1, 1);
    for (int round = 1; round <= 2; ++round) {
        ASSERT_TRUE(watched->restart(timer));
        ASSERT_EQ(watched->waitToStop(timer), 0);
        EXPECT_TRUE(inListener);
        EXPECT_TRUE(becomes([&] { return !manager.isWatchingWatchdog(thread); }));
        EXPECT_TRUE(watched->startThreadWatchdog());
    }
    EXPECT_TRUE(watched->setThreadWatchdogAliveTime(LONG + 1));
    EXPECT_FALSE(timers->startThreadWatchdog()) << "the other one is not registered";
    EXPECT_FALSE(timers->setThreadWatchdogAliveTime(LONG));
    watched->destroy();
    EXPECT_FALSE(manager.isRegisteredWatchdog(thread));
    EXPECT_FALSE(manager.isThreadExist(thread));
}

TEST_F(SharedTimerOdd, AListener_CanBeDeletedAsSoonAsItsTimerIsErased) {
    auto const work = [&](int seed) {
        for (int i = 0; i < 60; ++i) {
            auto ticker = std::make_unique<Ticker>();
            int const timer = timers->addTimer(ticker.get(), 1, 0, (i + seed) % 2);
            ASSERT_GT(timer, 0);
            ASSERT_TRUE(timers->start(timer, i % 3));
            if (i % 4 == 0) {
                ASSERT_TRUE(ticker->waitFor(1));
            }
            ASSERT_TRUE(timers->eraseTimer(timer, 0));
        }
    };
    std::thread first(work, 0);
    std::thread second(work, 1);
    first.join();
    second.join();
    EXPECT_EQ(idsOf(*timers), Ids());
    timers->destroy();
    EXPECT_EQ(calls().aliveCount(), 0U);
    EXPECT_EQ(textsOf("ERR"), 0U);
}

TEST_F(SharedTimerOdd, Destroy_FromManyThreadsWhileOthersUseTheTimers_LeavesNothingBehind) {
    Listener ticker(timers);
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        int const timer = timers->addTimer(&ticker, 1);
        threads.emplace_back([this, timer] {
            while (timers->restart(timer, 0)) {
            }
        });
    }
    ASSERT_TRUE(ticker.waitFor(1));
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([this] { timers->destroy(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(utl::ThreadManager::get()->isThreadExist(timers->getId()));
    EXPECT_EQ(calls().aliveCount(), 0U);
    EXPECT_EQ(idsOf(*timers), Ids());
}

// Timer

class TimerOdd : public TimerTest {};

TEST_F(TimerOdd, OnTime_OfADerivedTimer_HidesTheListenerThatItWasGiven) {
    class Derived : public Timer {
      public:
        explicit Derived(utl::TimerListener* listener) : Timer(listener, 1, 0, 0, nullptr, 1, 1, "derived") {}
        ~Derived() override { destroy(); }
        void onTime(int timerId) override { own.onTime(timerId); }
        Ticker own;
    };
    Ticker ticker;
    Derived timer(&ticker);
    ASSERT_TRUE(timer.start());
    EXPECT_TRUE(timer.own.waitFor(1));
    EXPECT_EQ(timer.own.ticks(), Ids{1});
    timer.Timer::onTime(4711);
    EXPECT_EQ(ticker.ticks(), Ids{4711}) << "whatever the id is";
}

TEST_F(TimerOdd, ATimerWhoseThreadCannotBeMade_FailsWithoutWaiting) {
    hooks::threadCreate.failFrom(1, 1, EAGAIN, 0);
    Timer timer(1, 0, 0, nullptr, 0, 1, "threadless");
    EXPECT_FALSE(timer.start(0));
    EXPECT_FALSE(timer.restart(0));
    EXPECT_FALSE(timer.isRunning());
    timer.destroy();
    timer.destroy();
    EXPECT_EQ(calls().create.calls(), 0U);
}

TEST_F(TimerOdd, ADestroyedTimer_IsAnUnknownOne) {
    Ticker ticker;
    Timer timer(&ticker, 1, 0, 0, nullptr, 0, 1, "one");
    ASSERT_TRUE(timer.start());
    ASSERT_TRUE(ticker.waitFor(2));
    timer.destroy();
    size_t const ticks = ticker.count();
    timer.destroy();
    for (int const noWait : {0, 1}) {
        EXPECT_FALSE(timer.start(noWait));
        EXPECT_FALSE(timer.stop(noWait));
        EXPECT_FALSE(timer.restart(noWait));
    }
    EXPECT_FALSE(timer.setInterval(1));
    EXPECT_EQ(timer.getInterval(), NO_INTERVAL);
    EXPECT_FALSE(timer.isRunning());
    EXPECT_EQ(ticker.count(), ticks);
    EXPECT_EQ(calls().aliveCount(), 0U);
}

TEST_F(TimerOdd, ATimerThatGoesWithoutDestroy_TakesItsThreadAndItsSystemTimerAlong) {
    for (bool const runs : {false, true}) {
        Timer timer(LONG, 0, 0, nullptr, 0, 1, "left");
        ASSERT_EQ(timer.start(runs ? 0 : 1), true);
    }
    EXPECT_EQ(calls().aliveCount(), 0U);
    utl::ThreadManager::destroy();  // nobody else gives the places of the threads back
}

}  // namespace

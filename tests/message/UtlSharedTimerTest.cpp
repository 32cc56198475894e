#include "UtlSharedTimer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestThreads.h"
#include "TestTimers.h"
#include "UtlThreadManager.h"
#include "internal/message/UtlSystemTimer.h"

using namespace utltest;

namespace {

class SharedTimer : public TimerTest {};

// The thread and its ids.

TEST_F(SharedTimer, TheIdsOfItsEntries_AreThoseThatTravelThroughThePipe) {
    EXPECT_EQ(static_cast<unsigned int>(utl::SharedTimer::TIMER_CTL_START), 0x80000004U);
    EXPECT_EQ(static_cast<unsigned int>(utl::SharedTimer::TIMER_CTL_STOP), 0x80000005U);
    EXPECT_EQ(static_cast<unsigned int>(utl::SharedTimer::TIMER_CTL_ERASE), 0x80000006U);
    EXPECT_EQ(static_cast<unsigned int>(utl::SharedTimer::TIMER_CTL_TIMEOUT), 0x80000007U);
    EXPECT_EQ(static_cast<unsigned int>(utl::SharedTimer::TIMER_CTL_QUIT), 0x80000008U);
    EXPECT_EQ(static_cast<unsigned int>(utl::SharedTimer::MSG_ID_TIMEOUT_SIGNAL), 0x80000013U);
    utl::SharedTimer::TimerCtlMsg const entry;
    EXPECT_EQ(static_cast<unsigned int>(entry.mMsgId), 0x80000000U);
    EXPECT_EQ(entry.mParam, -1);
}

static_assert(utl::NO_TIMER_ID == -1);
static_assert(utl::TIMER_WAIT == 0 && utl::TIMER_NO_WAIT == 1);
static_assert(utl::TIMER_REPEAT_AFTER_LISTENER == 0 && utl::TIMER_AUTO_REPEAT == 1);
static_assert(utl::TIMER_NO_END == 0 && utl::TIMER_NEVER == 0);
static_assert(utl::SharedTimer::NO_INTERVAL == 0xFFFFFFFF);
static_assert(!std::is_copy_constructible_v<utl::SharedTimer> &&
              !std::is_copy_assignable_v<utl::SharedTimer>);
static_assert(!std::is_copy_constructible_v<utl::AutoDestroy<utl::SharedTimer>> &&
              !std::is_copy_assignable_v<utl::AutoDestroy<utl::SharedTimer>>);
static_assert(std::is_nothrow_constructible_v<utl::AutoDestroy<utl::SharedTimer>, utl::SharedTimer&> &&
              std::is_nothrow_destructible_v<utl::AutoDestroy<utl::SharedTimer>>);
static_assert(noexcept(std::declval<utl::TimerInfo&>().resetSysParam()) && noexcept(
    std::declval<utl::TimerInfo&>()
        .freeSysParam()) && noexcept(std::declval<utl::TimerInfo&>()
                                         .forgetSysTimer()) && noexcept(std::declval<utl::TimerInfo&>()
                                                                            .countTimeout()));

static_assert(
    std::is_same_v<decltype(std::declval<utl::SharedTimer const&>().findTimer(1)), utl::TimerInfo*>);

TEST_F(SharedTimer, FindTimer_GivesARecordThatCanBeChangedAlsoOfAConstOne) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    utl::SharedTimer const& asConst = *timers;
    ASSERT_NE(asConst.findTimer(timer), nullptr);
    EXPECT_EQ(asConst.findTimer(timer), timers->findTimer(timer));
    EXPECT_EQ(asConst.findTimer(UNKNOWN), nullptr);
}

TEST_F(SharedTimer, TheObject_RunsWhenTheConstructorReturns) {
    ScopedTimers timers(4, "runner");
    EXPECT_TRUE(timers->hasDone(utl::Thread::READY));
    EXPECT_TRUE(utl::ThreadManager::get()->isActive(timers->getId()));
    EXPECT_STREQ(timers->getName().buffer(), "runner");
    utl::ThreadPriority priority(utl::ThreadPriority::INVALID);
    ASSERT_TRUE(timers->getPriority(&priority));
    EXPECT_EQ(priority.value(), utl::ThreadPriority::NORMAL);
    EXPECT_FALSE(utl::ThreadManager::get()->isRegisteredWatchdog(timers->getId()));
}

TEST_F(SharedTimer, Destroy_EndsTheThreadAndGivesItsPlaceBack) {
    utl::SharedTimer timers(0, 0, nullptr, 4, "ending");
    int const id = timers.getId();
    timers.destroy();
    EXPECT_TRUE(timers.hasDone(utl::Thread::FINISHED));
    unsigned int result = 7;
    EXPECT_TRUE(timers.getResult(&result));
    EXPECT_EQ(result, 0U);
    EXPECT_FALSE(utl::ThreadManager::get()->isThreadExist(id));
}

TEST_F(SharedTimer, AutoDestroy_AtTheEndOfItsScope_HasDestroyedTheSharedTimer) {
    utl::SharedTimer timers(0, 0, nullptr, 4, "scoped");
    {
        utl::AutoDestroy const destroying(timers);
        ASSERT_TRUE(timers.start(timers.addTimer(nullptr, LONG)));
    }
    EXPECT_TRUE(timers.hasDone(utl::Thread::FINISHED));
    EXPECT_FALSE(utl::ThreadManager::get()->isThreadExist(timers.getId()));
    EXPECT_EQ(calls().aliveCount(), 0U);
}

// The thread is held between its last milestone and its end, by the milestone's own broadcast.
TEST_F(SharedTimer, Destroy_OfAThreadInItsLastStep_LeavesNoPlaceBehind) {
    static std::atomic<utl::SharedTimer*> held{nullptr};
    static Gate* lastStep = nullptr;
    Gate gate;
    lastStep = &gate;
    utl::SharedTimer timers(0, 0, nullptr, 4, "ending");
    int const id = timers.getId();
    held = &timers;
    hooks::condBroadcast.replace([](pthread_cond_t* condition) {
        if (kernelId() == held.load()->getId()) {
            EXPECT_TRUE(lastStep->hold());
        }
        return hooks::condBroadcast.real(condition);
    });
    EXPECT_EQ(timers.Thread::stop(0, 0), 0);
    ASSERT_TRUE(gate.waitUntilHeld());
    auto destroyed = std::async(std::launch::async, [&timers] { timers.destroy(); });
    EXPECT_EQ(destroyed.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    gate.open();
    destroyed.get();
    hooks::condBroadcast.reset();
    EXPECT_FALSE(utl::ThreadManager::get()->isThreadExist(id));
}

TEST_F(SharedTimer, Destroy_Twice_DoesNothingTheSecondTime) {
    utl::SharedTimer timers(0, 0, nullptr, 4, "twice");
    auto other = std::async(std::launch::async, [&] { timers.destroy(); });
    timers.destroy();
    other.get();
    timers.destroy();
    EXPECT_TRUE(timers.hasDone(utl::Thread::FINISHED));
}

TEST_F(SharedTimer, Destroy_WithTimersRunning_TakesThemAllAway) {
    Ticker ticker;
    utl::SharedTimer timers(0, 0, nullptr, 4, "ending");
    int const fast = timers.addTimer(&ticker, 1);
    int const slow = timers.addTimer(&ticker, LONG);
    ASSERT_GT(timers.addTimer(&ticker, 1), slow);
    ASSERT_TRUE(timers.start(fast));
    ASSERT_TRUE(timers.start(slow));
    ASSERT_TRUE(ticker.waitFor(3));
    timers.destroy();
    size_t const atEnd = ticker.count();
    EXPECT_EQ(calls().aliveCount(), 0U);
    EXPECT_TRUE(idsOf(timers).empty());
    utl::Thread::sleep(20);
    EXPECT_EQ(ticker.count(), atEnd);
}

TEST_F(SharedTimer, BehindDestroy_EveryOperationFails) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, 1);
    ASSERT_TRUE(timers->start(timer));
    timers->destroy();
    EXPECT_EQ(timers->addTimer(nullptr, 1), -1);
    for (int const noWait : {0, 1}) {
        EXPECT_FALSE(timers->start(timer, noWait));
        EXPECT_FALSE(timers->stop(timer, noWait));
        EXPECT_FALSE(timers->restart(timer, noWait));
        timers->startAll(noWait);
        timers->stopAll(noWait);
        timers->restartAll(noWait);
    }
    EXPECT_FALSE(timers->eraseTimer(timer, 0));
    EXPECT_FALSE(timers->setInterval(timer, 1));
    EXPECT_FALSE(timers->isRunning(timer));
    EXPECT_EQ(timers->getInterval(timer), NO_INTERVAL);
    EXPECT_EQ(timers->waitToStart(timer), -1);
    EXPECT_EQ(timers->waitToStop(timer), -1);
}

TEST_F(SharedTimer, TheDestructor_WithoutDestroy_WaitsForTheLoopAndSaysHowItEnded) {
    int id = 0;
    {
        Ticker ticker;
        utl::SharedTimer timers(0, 0, nullptr, 4, "left");
        id = timers.getId();
        ASSERT_TRUE(timers.start(timers.addTimer(&ticker, 1)));
        ASSERT_TRUE(ticker.waitFor(3));
        // The ticker is destroyed after the timer.
    }
    EXPECT_EQ(log.count(error("SharedTimerThread(left) Error. read Ret:4294967295 errno:", EBADF) +
                        " !!Break msg loop!!"),
              1U);
    EXPECT_EQ(calls().aliveCount(), 0U);
    EXPECT_FALSE(utl::ThreadManager::get()->isThreadActive(id));
    EXPECT_TRUE(utl::ThreadManager::get()->unregister(id));
}

TEST_F(SharedTimer, TheDestructor_DuringAListenerCall_WaitsUntilItHasReturned) {
    std::atomic<bool> isInside{false};
    std::atomic<bool> hasReturned{false};
    Ticker ticker([&](int) {
        isInside = true;
        utl::Thread::sleep(30);
        hasReturned = true;
    });
    int id = 0;
    {
        utl::SharedTimer timers(0, 0, nullptr, 4, "busy");
        id = timers.getId();
        ASSERT_TRUE(timers.start(timers.addTimer(&ticker, 1, 1)));
        ASSERT_TRUE(ticker.waitFor(1));
        while (!isInside) {
            std::this_thread::yield();
        }
    }
    EXPECT_TRUE(hasReturned);
    EXPECT_TRUE(utl::ThreadManager::get()->unregister(id));
}

TEST_F(SharedTimer, ThePipe_HasRoomForTheQueueAndTheSignalsOfAllTimers) {
    constexpr unsigned int TIMERS = 8000;
    ScopedTimers timers(TIMERS);
    EXPECT_GE(fcntl(calls().writeEnd, F_GETPIPE_SZ),
              static_cast<int>((256 + TIMERS * utl::TIMER_TOKENS_MAX) * 8));
    EXPECT_EQ(utl::SharedTimer::CTL_ENTRY_MAX, 256U);
}

// Derived classes and their callers are compiled apart from the library.
TEST_F(SharedTimer, ItsFields_HaveTheirOrder) {
    ScopedTimers timers;
    std::vector<std::size_t> const fields = SharedTimerAccess::fields(*timers);
    using CtlQueue = utl::Queue<utl::SharedTimer::TimerCtlMsg>;
    EXPECT_EQ(fields.front(), (utltest::firstFieldBehind<CtlQueue, utl::Thread>()));
    EXPECT_TRUE(areRising(fields));
}

TEST_F(SharedTimer, ItsVirtualOperations_HaveTheirSlots) {
    struct Slots : utl::SharedTimer {
        static std::vector<std::size_t> ofAll() {
            return {slotOf(&Slots::preExecute), slotOf(&Slots::execute), slotOf(&Slots::postExecute),
                    slotOf(&Slots::requestStop), slotOf(&Slots::onTime)};
        }
    };
    EXPECT_EQ(Slots::ofAll(), (std::vector<std::size_t>{2, 3, 4, 5, 6}));
    EXPECT_EQ(slotOf(&utl::TimerListener::onTime), 2U);
}

TEST_F(SharedTimer, TheFieldsOfATimersRecord_HaveTheirOrder) {
    utl::TimerInfo const t;
    std::vector<std::size_t> const fields =
        offsetsIn(t, t.mListener, t.mSysTimerId, t.mSysTimerNum, t.mSysParam, t.mInterval, t.mRepeatCount,
                  t.mFireCount, t.mAutoRepeat, t.mRunning, t.mPendingCount, t.mUpdating);
    EXPECT_EQ(fields.front(), 0U);
    EXPECT_TRUE(areRising(fields));
}

using Tokens = std::vector<std::pair<unsigned int, int>>;

Tokens gTokens;  // of requests, which one thread writes

ssize_t noteToken(int handle, void const* buffer, size_t bytes) {
    int token[2] = {0, 0};
    if (handle == timerCalls().writeEnd) {
        EXPECT_EQ(bytes, sizeof(token));
        std::memcpy(token, buffer, sizeof(token));
        if (token[0] != utl::MSG_ID_TIMEOUT_SIGNAL) {
            gTokens.emplace_back(static_cast<unsigned int>(token[0]), token[1]);
        }
    }
    return writeHook(handle, buffer, bytes);
}

TEST_F(SharedTimer, EachRequest_IsATokenOfItsIdAndItsTimerInEightBytes) {
    hooks::write.replace(noteToken);
    ScopedTimers timers;
    ASSERT_EQ(timers->addTimer(nullptr, LONG), 1);
    ASSERT_EQ(timers->addTimer(nullptr, LONG), 2);
    EXPECT_TRUE(timers->start(2, 0));
    EXPECT_TRUE(timers->stop(2, 0));
    EXPECT_TRUE(timers->eraseTimer(2, 1));
    timers->destroy();
    EXPECT_EQ(gTokens, (Tokens{{0x80000004U, 2}, {0x80000005U, 2}, {0x80000006U, 2}, {0x80000008U, -1}}));
}

// The handler.

// It takes two calls: one asks for the handler of before, the other one sets the own.
TEST_F(SharedTimer, SigAction_OnSuccess_IsLoggedAndCalledOnlyOnce) {
    hooks::sigAction.reset();
    ScopedTimers const first;
    EXPECT_EQ(hooks::sigAction.calls(), 2U);
    std::string const line = "<UTIL> DTL: SharedTimer sigaction  success:" + std::to_string(SIGRTMIN + 1);
    EXPECT_EQ(log.count(line), 1U);
    ScopedTimers const second;
    EXPECT_EQ(hooks::sigAction.calls(), 2U);
    EXPECT_EQ(log.count(line), 1U);
    struct sigaction action;
    ASSERT_EQ(hooks::sigAction.real(SIGRTMIN + 1, nullptr, &action), 0);
    EXPECT_EQ(action.sa_sigaction, &utl::SharedTimer::TimeoutSignalHandler);
    EXPECT_EQ(action.sa_flags & (SA_SIGINFO | SA_RESTART), SA_SIGINFO | SA_RESTART);
    for (int number = 1; number < SIGRTMIN; ++number) {
        EXPECT_NE(sigismember(&action.sa_mask, number), 1);
    }
}

TEST_F(SharedTimer, ASignalOfATimerThatIsGone_IsDropped) {
    ScopedTimers const timers;
    unsigned int const before = calls().write.calls();
    log.clear();
    siginfo_t info = {};
    info.si_timerid = 4711;
    info.si_value.sival_int = calls().writeEnd;
    utl::SharedTimer::TimeoutSignalHandler(SIGRTMIN + 1, &info, nullptr);
    EXPECT_EQ(calls().write.calls(), before);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SharedTimer, AnExpiryThatComesAfterItsThreadIsGone_ReachesNoForeignFile) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGRTMIN + 1);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &signals, nullptr), 0);
    int number = -1;
    {
        ScopedTimers timers;
        int const timer = timers->addTimer(nullptr, 1);
        ASSERT_TRUE(timers->start(timer));
        number = timers->findTimer(timer)->mSysTimerNum;
        sigset_t pending;
        do {
            sigpending(&pending);
        } while (sigismember(&pending, SIGRTMIN + 1) == 0);
    }
    char path[] = "UtlSharedTimerTestXXXXXX";
    int const file = mkstemp(path);
    ASSERT_GE(file, 0);
    unlink(path);
    ASSERT_EQ(file == calls().writeEnd ? file : dup2(file, calls().writeEnd), calls().writeEnd);
    // A handler that is called for the old timer, whether or not the kernel still sends its signal.
    siginfo_t info = {};
    info.si_timerid = number;
    info.si_value.sival_int = calls().writeEnd;
    utl::SharedTimer::TimeoutSignalHandler(SIGRTMIN + 1, &info, nullptr);
    ASSERT_EQ(pthread_sigmask(SIG_UNBLOCK, &signals, nullptr), 0);
    EXPECT_EQ(lseek(calls().writeEnd, 0, SEEK_END), 0);
}

// Derived classes.

// Its own loop would end at once; the thread has entered that of the base by then.
class DerivedTimers : public utl::SharedTimer {
  public:
    explicit DerivedTimers(std::atomic<int>& strayLoops)
        : SharedTimer(0, 0, nullptr, 4, "derived"), mStrayLoops(strayLoops) {}
    ~DerivedTimers() override { destroy(); }

    void onTime(int timerId) override { ticker.onTime(timerId); }

    Ticker ticker;

  protected:
    int execute() override {
        ++mStrayLoops;
        return 7;
    }

  private:
    std::atomic<int>& mStrayLoops;
};

TEST_F(SharedTimer, OnTime_OfADerivedClass_ReceivesTheExpiries) {
    Ticker listener;
    std::atomic<int> strayLoops{0};
    DerivedTimers timers(strayLoops);
    int const timer = timers.addTimer(&listener, 1, 3);
    ASSERT_TRUE(timers.start(timer));
    EXPECT_EQ(timers.waitToStop(timer), 0);
    EXPECT_EQ(timers.ticker.ticks(), (Ids{timer, timer, timer}));
    EXPECT_EQ(listener.count(), 0U) << "the listener is told by the operation that was replaced";
}

TEST_F(SharedTimer, TheConstructor_ReturnsWhenTheThreadIsInsideItsLoop) {
    std::atomic<int> strayLoops{0};
    for (int round = 0; round < 200; ++round) {
        DerivedTimers timers(strayLoops);
        EXPECT_TRUE(static_cast<utl::Thread&>(timers).isRunning()) << round;
    }
    EXPECT_EQ(strayLoops, 0);
}

// Periods and expiries.

TEST_F(SharedTimer, WithoutAutoRepeat_TheSystemTimerIsMadeAnewBehindEachListenerCall) {
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 1, 4, 0);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_EQ(timers->waitToStop(timer), 0);
    EXPECT_EQ(calls().create.calls(), 4U);
    EXPECT_EQ(calls().remove.calls(), 4U);
    EXPECT_EQ(ticker.count(), 4U);
}

TEST_F(SharedTimer, WithAutoRepeat_TheSystemTimerRunsOn) {
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 1, 4, 1);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_EQ(timers->waitToStop(timer), 0);
    EXPECT_EQ(calls().create.calls(), 1U);
    EXPECT_EQ(calls().remove.calls(), 1U);
    EXPECT_EQ(ticker.count(), 4U);
}

TEST_F(SharedTimer, Expiries_WhileTheThreadIsBusy_AreCoalescedToOneOrTwo) {
    for (int const autoRepeat : {0, 1}) {
        Ticker ticker;
        Blocker blocker;
        ScopedTimers timers;
        int const timer = timers->addTimer(&ticker, 1, 0, autoRepeat);
        blocker.block(*timers);
        ASSERT_TRUE(timers->start(timer, 1));
        blocker.letGo();
        ASSERT_EQ(timers->waitToStart(timer), 0);
        ASSERT_TRUE(ticker.waitFor(1));
        Blocker second;
        second.block(*timers);
        unsigned int const before = calls().write.calls();
        utl::Thread::sleep(30);
        EXPECT_LE(calls().write.calls() - before, 2 * utl::TIMER_TOKENS_MAX) << "of two timers";
        EXPECT_LE(timers->findTimer(timer)->mPendingCount, autoRepeat != 0 ? 2U : 1U);
        second.letGo();
        ASSERT_TRUE(ticker.waitForMore(5)) << "and it catches up";
        ASSERT_TRUE(timers->stop(timer));
    }
}

TEST_F(SharedTimer, Stop_WithExpiriesQueued_DeliversNoneOfThem) {
    for (int const noWait : {0, 1}) {
        Ticker ticker;
        Blocker blocker;
        ScopedTimers timers;
        int const timer = timers->addTimer(&ticker, 1);
        ASSERT_TRUE(timers->start(timer));
        ASSERT_TRUE(ticker.waitFor(2));
        blocker.block(*timers);
        auto stopped = std::async(std::launch::async, [&] { return timers->stop(timer, noWait); });
        // Expiries of the time before the block may stand before the request.
        blocker.letGo();
        EXPECT_TRUE(stopped.get());
        EXPECT_EQ(timers->waitToStop(timer), 0);
        size_t const atStop = ticker.count();
        utl::Thread::sleep(10);
        timers.settle();
        EXPECT_EQ(ticker.count(), atStop);
        EXPECT_EQ(timers->findTimer(timer)->mPendingCount, 0U);
    }
}

TEST_F(SharedTimer, ManyTimersAtOnce_EachReachesItsListenerUnderItsId) {
    Ticker ticker;
    ScopedTimers timers(300);
    std::set<int> ids;
    for (int i = 0; i < 300; ++i) {
        ids.insert(timers->addTimer(&ticker, 20, 1, i % 2));
    }
    ASSERT_EQ(ids.size(), 300U);
    timers->startAll(0);
    ASSERT_TRUE(ticker.waitFor(300));
    for (int const id : ticker.ticks()) {
        EXPECT_EQ(ids.erase(id), 1U);
    }
    EXPECT_TRUE(ids.empty());
}

TEST_F(SharedTimer, ATimerWithoutAListener_RunsAndEndsAllTheSame) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, 1, 3, 0);
    ASSERT_TRUE(timers->start(timer));
    EXPECT_EQ(timers->waitToStop(timer), 0);
    EXPECT_EQ(timers->findTimer(timer)->mFireCount, 3U);
}

// Numbers.

TEST_F(SharedTimer, ToUserTimerId_FindsTheTimerByTheKernelsNumber) {
    ScopedTimers timers;
    EXPECT_EQ(timers->toUserTimerId(-1), -1);
    EXPECT_EQ(timers->toUserTimerId(12345678), -1);
    int const timer = timers->addTimer(nullptr, LONG);
    EXPECT_EQ(timers->toUserTimerId(-1), -1) << "also while a timer without a number is there";
    ASSERT_TRUE(timers->start(timer));
    EXPECT_EQ(timers->toUserTimerId(timers->findTimer(timer)->mSysTimerNum), timer);
}

TEST_F(SharedTimer, GetNextSysTimerNumber_StepsOn) {
    ScopedTimers timers;
    EXPECT_EQ(timers->getNextSysTimerNumber(), 2);
    EXPECT_EQ(timers->getNextSysTimerNumber(), 3);
}

TEST_F(SharedTimer, GetNextSysTimerNumber_WrapsToOneAndStepsPastNumbersInUse) {
    ScopedTimers timers;
    SharedTimerAccess::setNextSysTimerNumber(*timers, INT_MAX - 1);
    EXPECT_EQ(timers->getNextSysTimerNumber(), INT_MAX);
    EXPECT_EQ(timers->getNextSysTimerNumber(), 1);
    int const first = timers->addTimer(nullptr, LONG);
    int const second = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(first));
    ASSERT_TRUE(timers->start(second));
    int const number = timers->findTimer(first)->mSysTimerNum;
    bool const areNeighbours = timers->findTimer(second)->mSysTimerNum == number + 1;
    SharedTimerAccess::setNextSysTimerNumber(*timers, number - 1);
    EXPECT_EQ(timers->getNextSysTimerNumber(), number + (areNeighbours ? 2 : 1));
}

// Calls of listeners.

TEST_F(SharedTimer, AListener_MayUseTheTimersWithoutWaiting) {
    utl::SharedTimer* shared = nullptr;
    Ticker other;
    int added = 0;
    int stopped = 0;
    bool isLast = false;
    Ticker ticker([&](int timer) {
        added = shared->addTimer(&other, 1, 1);
        EXPECT_TRUE(shared->start(added, 1));
        EXPECT_TRUE(shared->stop(stopped, 1));
        EXPECT_TRUE(shared->start(timer, 0)) << "it runs: there is nothing to wait for";
        EXPECT_EQ(shared->waitToStart(timer), 0);
        EXPECT_TRUE(isLast);
        EXPECT_TRUE(shared->eraseTimer(timer, 1));
    });
    ScopedTimers timers;
    shared = &*timers;
    stopped = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(stopped));
    isLast = true;
    ASSERT_TRUE(timers->start(timers->addTimer(&ticker, 1, 0, 0)));
    ASSERT_TRUE(other.waitFor(1));
    EXPECT_EQ(timers->waitToStop(stopped), 0);
    timers.settle();
    EXPECT_EQ(idsOf(*timers), (Ids{stopped, added}));
    EXPECT_EQ(ticker.count(), 1U);
}

TEST_F(SharedTimer, AListenerThatWouldHaveToWaitForItself_IsRefused) {
    utl::SharedTimer* shared = nullptr;
    int idle = 0;
    Gate seen;
    Ticker ticker([&](int timer) {
        EXPECT_FALSE(shared->stop(timer, 0));
        EXPECT_FALSE(shared->restart(timer, 0));
        EXPECT_FALSE(shared->eraseTimer(timer, 0));
        EXPECT_EQ(shared->waitToStop(timer), -1);
        EXPECT_FALSE(shared->start(idle, 0));
        EXPECT_FALSE(shared->restart(idle, 0));
        EXPECT_EQ(shared->waitToStart(idle), -1);
        shared->startAll(0);
        shared->stopAll(0);
        shared->restartAll(0);
        seen.open();
    });
    ScopedTimers timers;
    shared = &*timers;
    idle = timers->addTimer(nullptr, LONG);
    int const timer = timers->addTimer(&ticker, 1, 0, 0);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(seen.wait());
    EXPECT_TRUE(timers->isRunning(timer));
    EXPECT_FALSE(timers->isRunning(idle));
}

TEST_F(SharedTimer, AListenerThatErasesAStoppedTimer_NeedNotWait) {
    utl::SharedTimer* shared = nullptr;
    int idle = 0;
    Gate seen;
    Ticker ticker([&](int) {
        EXPECT_TRUE(shared->eraseTimer(idle, 0));
        seen.open();
    });
    ScopedTimers timers;
    shared = &*timers;
    idle = timers->addTimer(nullptr, LONG);
    int const timer = timers->addTimer(&ticker, 1, 1);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(seen.wait());
    EXPECT_EQ(idsOf(*timers), Ids{timer});
}

// The waiting caller holds the lock of the operations, and waits for the thread that the listener runs on.
TEST_F(SharedTimer, AListenerThatUsesTheTimers_DoesNotMeetACallerWhoWaits) {
    utl::SharedTimer* shared = nullptr;
    int other = 0;
    Gate gate;
    Ticker ticker([&](int) {
        EXPECT_TRUE(gate.hold());
        EXPECT_TRUE(shared->setInterval(other, LONG + 1));
        EXPECT_GT(shared->addTimer(nullptr, 1), other);
        EXPECT_TRUE(shared->stop(other, 1));
    });
    ScopedTimers timers;
    shared = &*timers;
    int const timer = timers->addTimer(&ticker, 1, 1);
    other = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(other));
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(gate.waitUntilHeld());
    unsigned int const before = calls().requests;
    auto stopped = std::async(std::launch::async, [&] { return timers->stop(other, 0); });
    waitForRequestBehind(before);
    gate.open();
    EXPECT_TRUE(stopped.get());
}

TEST_F(SharedTimer, AListenerThatCallsDestroy_EndsTheThreadBehindItself) {
    utl::SharedTimer* shared = nullptr;
    int addedBehind = 0;
    Ticker ticker([&](int) {
        shared->destroy();
        addedBehind = shared->addTimer(nullptr, 1);
        shared->destroy();
    });
    ScopedTimers timers;
    shared = &*timers;
    ASSERT_TRUE(timers->start(timers->addTimer(&ticker, 1)));
    ASSERT_EQ(timers->waitTo(utl::Thread::FINISHED), 0);
    EXPECT_EQ(ticker.count(), 1U);
    EXPECT_EQ(addedBehind, -1) << "a stop has been requested";
    EXPECT_TRUE(utl::ThreadManager::get()->isThreadExist(timers->getId()));
    timers->destroy();
    EXPECT_FALSE(utl::ThreadManager::get()->isThreadExist(timers->getId()));
}

// The end of the process.

TEST(SharedTimerDeathTest, AProcessThatReturnsFromMainWithTimersRunning_EndsCleanly) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            auto* const ticker = new Ticker;
            auto* const timers = new utl::SharedTimer(0, 0, nullptr, 8, "ticking");
            for (int i = 0; i < 8; ++i) {
                timers->start(timers->addTimer(ticker, 1, 0, i % 2));
            }
            ticker->waitFor(50);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

std::atomic<int> gDeletedFakes{0};

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
        utl::SharedTimer::TimeoutSignalHandler(TimerCalls::signalNumber(), &info, nullptr);
    }

  private:
    HookScope const mHooks;
};

TEST_F(SharedTimerAtItsLimits, AnExpiry_ThatFindsTheQueueFull_IsTheOnlyOneThatIsLost) {
    for (int const autoRepeat : {0, 1}) {
        ScopedTimers fresh(16, "odd");
        Listener ticker(fresh);
        HeldTimers blocker(fresh);
        int const timer = fresh->addTimer(&ticker, LONG, 0, autoRepeat);
        int const filler = fresh->addTimer(nullptr, 0);
        ASSERT_TRUE(fresh->start(timer));
        blocker.hold();
        expire(*fresh,
               timer);  // its token lies before the others, so the queue is full when it is read
        ASSERT_EQ(fill(*fresh, filler), utl::SharedTimer::CTL_ENTRY_MAX);
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

TEST_F(SharedTimerAtItsLimits, ExpiriesBehindABusyListener_CollapseToOneOrWithAutoRepeatToTwo) {
    for (int const autoRepeat : {0, 1, 2}) {
        for (unsigned int const expiries : {1U, 2U, 3U, 10U}) {
            ScopedTimers fresh(16, "odd");
            Listener ticker(fresh);
            HeldTimers blocker(fresh);
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

TEST_F(SharedTimerAtItsLimits, TheLastExpiry_DropsTheOneBehindItAndTheLeftTokenHarmsNobody) {
    Listener ticker(timers);
    HeldTimers blocker(timers);
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
    EXPECT_TRUE(ticker.waitFor(2));  // a left token can deliver it after what is asked for later
}

TEST_F(SharedTimerAtItsLimits, AListener_CanUseTheTimersWhileAnotherThreadWaitsForOne) {
    Gate gate;
    int const other = timers->addTimer(nullptr, LONG);
    int const awaited = timers->addTimer(nullptr, LONG);
    int added = 0;
    std::string results;
    Listener ticker(timers, [&](int id) {
        EXPECT_TRUE(gate.hold());
        added = timers->addTimer(nullptr, LONG);
        for (bool const result : {timers->start(other, 1), timers->setInterval(id, 5), timers->stop(id, 1),
                                  timers->eraseTimer(id, 1), timers->isRunning(id)}) {
            results += result ? '1' : '0';
        }
        timers->startAll(1);
    });
    int const timer = timers->addTimer(&ticker, 1, 1, 0);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(gate.waitUntilHeld());
    unsigned int const before = calls().requests;
    bool started = false;
    std::thread waiter([&] { started = timers->start(awaited, 0); });
    waitForRequestBehind(before);
    gate.open();
    waiter.join();
    timers.settle();
    EXPECT_TRUE(started);
    EXPECT_GT(added, 0);
    EXPECT_EQ(results, "11111");
    EXPECT_EQ(idsOf(*timers), (Ids{other, awaited, added}));
    EXPECT_TRUE(timers->isRunning(other));
    EXPECT_TRUE(timers->isRunning(added));
}

TEST_F(SharedTimerAtItsLimits, DestroyFromAListener_MakesThatExpiryTheLast) {
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

TEST_F(SharedTimerAtItsLimits, WithoutAutoRepeat_TheNextPeriodBeginsBehindTheListener) {
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

TEST_F(SharedTimerAtItsLimits, ASignalOfNoTimer_IsIgnoredAndSoIsOneThatIsReadBehindTheEnd) {
    Listener ticker(timers);
    HeldTimers blocker(timers);
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

TEST_F(SharedTimerAtItsLimits, AWatchedThread_IsWatchedInItsListenersAndNotWhileItIsIdle) {
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

TEST_F(SharedTimerAtItsLimits, Destroy_FromManyThreadsWhileOthersUseTheTimers_LeavesNothingBehind) {
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

TEST_F(SharedTimer, TheConstructor_WithoutAPipe_ReturnsWhenTheThreadHasEnded) {
    std::atomic<int> strayLoops{0};
    for (int round = 0; round < 50; ++round) {
        hooks::pipe.failFrom(1, 1, -1, EMFILE);
        DerivedTimers timers(strayLoops);
        EXPECT_TRUE(timers.hasDone(utl::Thread::FINISHED));
    }
    EXPECT_EQ(strayLoops, 0);
}

// What is reported to the watchdog.

class SharedTimerWatched : public TimerTest {
  protected:
    SharedTimerWatched() {
        utltest::ThreadWatchdogAccess::setInitialized(utltest::ThreadManagerAccess::watchdog(), true);
    }

    static utl::StatementInfo lastStatement(int thread) {
        utl::WatchdogInfo const* const info =
            utltest::ThreadManagerAccess::watchdog().findWatchdogInfo(thread);
        return info != nullptr ? info->lastStatement : utl::StatementInfo::INVALID;
    }

    /// The place in this source where the calling thread stands.
    static void noteStatement() {
        utl::StatementInfo const place = lastStatement(kernelId());
        if (std::string(place.file) == "source/UtlSharedTimer") {
            mPlaces.push_back(std::string(place.function) + " " + std::to_string(place.sub));
            mLines.push_back(place.line);
        }
    }

    static std::vector<std::string> mPlaces;
    static std::vector<unsigned int> mLines;
};

std::vector<std::string> SharedTimerWatched::mPlaces;
std::vector<unsigned int> SharedTimerWatched::mLines;

// Reports look at the clock and are seen from there, on the thread that makes them.
std::atomic<int> gReporter{0};
std::vector<std::string> gReports;
std::atomic<unsigned int> gReads{0};

int noteReport(clockid_t clock, timespec* now) {
    if (gReporter == kernelId()) {
        utl::WatchdogInfo const info =
            utltest::ThreadWatchdogAccess::copyInfo(utltest::ThreadManagerAccess::watchdog(), kernelId());
        if (info.lastAliveTick != utl::WatchdogInfo::NO_TICK) {  // otherwise its watching begins
            gReports.push_back(std::string(info.lastStatement.function) + " " +
                               std::to_string(info.lastStatement.sub));
        }
    }
    return hooks::clockGetTime.real(clock, now);
}

ssize_t noteRead(int handle, void* buffer, size_t bytes) {
    if (gReporter == kernelId()) {
        gReports.push_back("read");
    }
    gReads += handle == timerCalls().readEnd ? 1U : 0U;
    return readHook(handle, buffer, bytes);
}

void waitForReadBehind(unsigned int before) {
    while (gReads == before) {
        std::this_thread::yield();
    }
}

TEST_F(SharedTimerWatched, TheThread_IsWatchedWhileItWorksAndNotWhileItSleeps) {
    utl::ThreadManager* const manager = utl::ThreadManager::get();
    std::atomic<int> watched{-1};
    Ticker ticker([&](int) { watched = manager->isWatchingWatchdog(0) ? 1 : 0; });
    ScopedTimers timers(8, "watched", 1, LONG);
    EXPECT_TRUE(manager->isRegisteredWatchdog(timers->getId()));
    ASSERT_TRUE(timers->start(timers->addTimer(&ticker, 1, 1)));
    ASSERT_TRUE(ticker.waitFor(1));
    while (manager->isWatchingWatchdog(timers->getId())) {
        std::this_thread::yield();
    }
    EXPECT_EQ(watched, 1);
    EXPECT_EQ(std::string(lastStatement(timers->getId()).file), "source/UtlSharedTimer");
    EXPECT_EQ(std::string(lastStatement(timers->getId()).function), "execute");
    EXPECT_EQ(lastStatement(timers->getId()).sub, 0U);
}

TEST_F(SharedTimerWatched, AThreadWhoseReadFails_IsNotRegisteredAnyMore) {
    utl::ThreadManager* const manager = utl::ThreadManager::get();
    ScopedTimers timers(8, "watched", 1, LONG);
    ASSERT_TRUE(manager->isRegisteredWatchdog(timers->getId()));
    calls().read.failFrom(1, 0, EIO);
    EXPECT_TRUE(timers->eraseTimer(UNKNOWN, 1));
    ASSERT_EQ(timers->waitTo(utl::Thread::FINISHED), 0);
    EXPECT_FALSE(manager->isRegisteredWatchdog(timers->getId()));
}

TEST_F(SharedTimerWatched, AThreadWhoseObjectGoesWithoutDestroy_IsNotRegisteredAnyMore) {
    utl::ThreadManager* const manager = utl::ThreadManager::get();
    int id = 0;
    {
        utl::SharedTimer timers(1, LONG, nullptr, 8, "watched");
        id = timers.getId();
        ASSERT_TRUE(manager->isRegisteredWatchdog(id));
    }
    EXPECT_FALSE(manager->isRegisteredWatchdog(id));
    EXPECT_TRUE(manager->unregister(id));
}

TEST_F(SharedTimerWatched, TheForwarders_ReachTheThreadsEntry) {
    utl::ThreadManager* const manager = utl::ThreadManager::get();
    gReads = 0;
    hooks::read.replace(noteRead);
    ScopedTimers timers(8, "watched", 1, LONG);
    int const id = timers->getId();
    waitForReadBehind(0);
    EXPECT_TRUE(timers->startThreadWatchdog());
    EXPECT_TRUE(manager->isWatchingWatchdog(id));
    EXPECT_TRUE(timers->stopThreadWatchdog());
    EXPECT_FALSE(manager->isWatchingWatchdog(id));
    EXPECT_TRUE(timers->setThreadWatchdogAliveTime(LONG + 1));
    EXPECT_EQ(utltest::ThreadManagerAccess::watchdog().findWatchdogInfo(id)->aliveTime, LONG + 1);
    EXPECT_FALSE(timers->setThreadWatchdogAliveTime(0));
    ScopedTimers other;
    EXPECT_FALSE(other->startThreadWatchdog());
    EXPECT_FALSE(other->stopThreadWatchdog());
    EXPECT_FALSE(other->setThreadWatchdogAliveTime(1));
}

TEST_F(SharedTimerWatched, EachCallForASystemTimer_IsReportedInFrontOfItWithALineOfItsOwn) {
    mPlaces.clear();
    mLines.clear();
    hooks::timerCreate.replace(+[](clockid_t clock, sigevent* event, timer_t* timer) {
        noteStatement();
        return createTimerHook(clock, event, timer);
    });
    hooks::timerSetTime.replace(+[](timer_t timer, int flags, itimerspec const* spec, itimerspec* old) {
        noteStatement();
        return setTimerHook(timer, flags, spec, old);
    });
    hooks::timerDelete.replace(+[](timer_t timer) {
        noteStatement();
        return deleteTimerHook(timer);
    });
    ScopedTimers timers(8, "watched", 1, LONG);
    int const timer = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(timers->stop(timer));
    EXPECT_EQ(mPlaces, (std::vector<std::string>{"startTimerByTimerInfo 1", "startTimerByTimerInfo 1",
                                                 "stopTimerByTimerInfo 1"}));
    ASSERT_EQ(mLines.size(), 3U);
    EXPECT_EQ((std::set<unsigned int>(mLines.begin(), mLines.end())).size(), 3U);
}

/// A watched thread whose reports are noted from its first sleep on until it has served what `requests` asks.
std::vector<std::string> reportsOf(std::function<void(utl::SharedTimer&)> const& requests) {
    gReports.clear();
    gReads = 0;
    hooks::read.replace(noteRead);
    hooks::clockGetTime.replace(noteReport);
    utl::SharedTimer timers(1, LONG, nullptr, 8, "watched");
    waitForReadBehind(0);
    gReporter = timers.getId();
    requests(timers);
    waitForReadBehind(1);
    timers.destroy();
    gReporter = 0;
    return gReports;
}

TEST_F(SharedTimerWatched, TheThread_ReportsBehindAReadBehindItsEntryAndInFrontOfTheNextRead) {
    EXPECT_EQ(reportsOf([](utl::SharedTimer& timers) { EXPECT_TRUE(timers.eraseTimer(UNKNOWN, 1)); }),
              (std::vector<std::string>{"execute 0", "execute 0", "execute 0", "read"}));
}

TEST_F(SharedTimerWatched, EachCallForASystemTimer_IsReportedInFrontOfItAndBehind) {
    std::vector<std::string> const all = reportsOf([](utl::SharedTimer& timers) {
        int const timer = timers.addTimer(nullptr, LONG);
        EXPECT_TRUE(timers.start(timer));
        EXPECT_TRUE(timers.stop(timer));
    });
    std::vector<std::string> reports;
    std::copy_if(all.begin(), all.end(), std::back_inserter(reports), [](std::string const& report) {
        return report != "read" && report.compare(0, 7, "execute") != 0;
    });
    EXPECT_EQ(reports, (std::vector<std::string>{"startTimerByTimerInfo 1", "startTimerByTimerInfo 2",
                                                 "startTimerByTimerInfo 1", "startTimerByTimerInfo 2",
                                                 "stopTimerByTimerInfo 1", "stopTimerByTimerInfo 2"}));
}

TEST_F(SharedTimerWatched, EachCallOfTheConstructor_IsReportedInFrontOfItAndBehind) {
    utl::ThreadManager* const manager = utl::ThreadManager::get();
    ASSERT_NE(manager->entryCaller(1, LONG, nullptr, "caller"), 0);
    ASSERT_TRUE(manager->startWatchdog(0));
    mPlaces.clear();
    // Every report of the caller asks for the time.
    static std::atomic<unsigned int> reports{0};
    static int const caller = kernelId();
    hooks::clockGetTime.replace(+[](clockid_t clock, timespec* now) {
        reports += kernelId() == caller ? 1U : 0U;
        return hooks::clockGetTime.real(clock, now);
    });
    static unsigned int reportsAtPipe = 0;
    static unsigned int reportsAtSigAction = 0;
    hooks::pipe.replace(+[](int* ends) {
        noteStatement();
        reportsAtPipe = reports;
        return pipeHook(ends);
    });
    hooks::sigAction.replace(+[](int number, struct sigaction const* action, struct sigaction* old) {
        noteStatement();
        reportsAtSigAction = reports;
        return hooks::sigAction.real(number, action, old);
    });
    ScopedTimers const timers;
    EXPECT_EQ(mPlaces, (std::vector<std::string>{"SharedTimer 1", "installTimeoutSignalHandler 1",
                                                 "installTimeoutSignalHandler 1"}));
    EXPECT_EQ(reportsAtSigAction - reportsAtPipe, 4U)
        << "behind the pipe, around the signal set, in front of the signal action";
    EXPECT_TRUE(manager->unregister(kernelId()));
}

}  // namespace

#include "UtlSharedTimer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <future>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "TestThreads.h"
#include "TestTimers.h"
#include "UtlTimeCounter.h"
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
    static Gate* last = nullptr;
    static Gate* go = nullptr;
    Gate lastStep;
    Gate letGo;
    last = &lastStep;
    go = &letGo;
    utl::SharedTimer timers(0, 0, nullptr, 4, "ending");
    int const id = timers.getId();
    held = &timers;
    hooks::condBroadcast.replace([](pthread_cond_t* condition) {
        if (kernelId() == held.load()->getId()) {
            last->open();
            go->wait();
        }
        return hooks::condBroadcast.real(condition);
    });
    EXPECT_EQ(timers.Thread::stop(0, 0), 0);
    ASSERT_TRUE(lastStep.wait());
    auto destroyed = std::async(std::launch::async, [&timers] { timers.destroy(); });
    EXPECT_EQ(destroyed.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    letGo.open();
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

// While the thread arms a timer with its interval, nobody changes that.
TEST_F(SharedTimer, SetInterval_WaitsForAStepOfTheThreadThatUsesIt) {
    static Gate* reached = nullptr;
    static Gate* go = nullptr;
    Gate inTheStep;
    Gate letGo;
    reached = &inTheStep;
    go = &letGo;
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    hooks::timerSetTime.watch([](timer_t, int, itimerspec const*, itimerspec*) {
        reached->open();
        go->wait();
    });
    ASSERT_TRUE(timers->start(timer, 1));
    ASSERT_TRUE(inTheStep.wait());
    auto set = std::async(std::launch::async, [&] { return timers->setInterval(timer, LONG + 1); });
    EXPECT_EQ(set.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    letGo.open();
    EXPECT_TRUE(set.get());
    hooks::timerSetTime.watch(nullptr);
    EXPECT_EQ(timers->getInterval(timer), LONG + 1);
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
        // The ticker goes behind the timer.
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

TEST_F(SharedTimer, APipeThatCannotBeHad_IsLoggedAndTheLoopEndsAtOnce) {
    hooks::pipe.failFrom(1, 1, -1, EMFILE);
    hooks::close.reset();
    {
        ScopedTimers timers(4, "pipeless");
        EXPECT_EQ(log.count(error("SharedTimerThread(pipeless) pipe errno:", EMFILE)), 1U);
        ASSERT_EQ(timers->waitTo(utl::Thread::FINISHED), 0);
        EXPECT_EQ(log.count(error("SharedTimerThread(pipeless) Error. read Ret:4294967295 errno:", EBADF) +
                            " !!Break msg loop!!"),
                  1U);
        EXPECT_EQ(timers->addTimer(nullptr, 1), -1);
        EXPECT_FALSE(timers->eraseTimer(1, 1));
        EXPECT_EQ(log.count(error("SharedTimerThread(pipeless) Error. write Ret:4294967295 errno:", EBADF)),
                  1U);
    }
    EXPECT_EQ(hooks::close.calls(), 0U);
}

TEST_F(SharedTimer, AThreadThatCannotBeHad_LeavesTimersThatNobodyCanWaitFor) {
    hooks::threadCreate.failFrom(1, 1, EAGAIN, 0);
    ScopedTimers timers(4, "threadless");
    EXPECT_EQ(timers->getId(), 0);
    int const timer = timers->addTimer(nullptr, 1);
    EXPECT_EQ(timer, 1);
    EXPECT_FALSE(timers->start(timer, 0));
    EXPECT_FALSE(timers->restart(timer, 0));
    EXPECT_TRUE(timers->start(timer, 1)) << "queued, as it was asked for";
    EXPECT_EQ(timers->waitToStart(timer), -1);
    EXPECT_EQ(timers->waitToStop(timer), 0);
    EXPECT_TRUE(timers->stop(timer, 0));
    ASSERT_EQ(timers->addTimer(nullptr, 1), 2);
    EXPECT_TRUE(timers->eraseTimer(timer, 0)) << "it stands still";
}

TEST_F(SharedTimer, AThreadThatCannotBeRegistered_EndsAtOnce) {
    FullRegistry const full;
    ScopedTimers timers;
    EXPECT_EQ(timers->getId(), 0);
    EXPECT_TRUE(timers->hasDone(utl::Thread::FINISHED));
    EXPECT_EQ(timers->addTimer(nullptr, 1), -1);
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

TEST_F(SharedTimer, SigAction_ThatFails_IsLoggedAndTheNextConstructorTriesAgain) {
    for (unsigned int const failing : {1U, 2U}) {
        log.clear();
        hooks::sigAction.failFrom(failing, 1, -1, EINVAL);
        ScopedTimers const timers;
        EXPECT_EQ(hooks::sigAction.calls(), failing);
        EXPECT_EQ(log.count(error("SharedTimer sigaction  errno:", EINVAL)), 1U);
    }
    log.clear();
    ScopedTimers const last;
    EXPECT_EQ(hooks::sigAction.calls(), 4U);
    EXPECT_EQ(log.count(error("SharedTimer sigaction  errno:", EINVAL)), 0U);
    EXPECT_EQ(log.count("<UTIL> DTL: SharedTimer sigaction  success:" + std::to_string(SIGRTMIN + 1)), 1U);
}

// Without the handler the first expiry would end the process.
TEST_F(SharedTimer, Start_WithoutTheHandler_FailsAndTriesToInstallItAgain) {
    hooks::sigAction.failFrom(1, 2, -1, EINVAL);
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 1, 1);
    EXPECT_FALSE(timers->start(timer, 0));
    EXPECT_EQ(log.count(error("SharedTimer sigaction  errno:", EINVAL)), 2U);
    EXPECT_EQ(calls().create.calls(), 0U);
    EXPECT_TRUE(timers->start(timer, 0));
    EXPECT_TRUE(ticker.waitFor(1));
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

TEST_F(SharedTimer, TheHandler_ReportsAShortWriteAndKeepsErrno) {
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, LONG);
    ASSERT_TRUE(timers->start(timer));
    siginfo_t info = {};
    info.si_timerid = timers->findTimer(timer)->mSysTimerNum;
    info.si_value.sival_int = calls().writeEnd;
    calls().write.failFrom(1, 1, EIO);
    log.clear();
    errno = ENOTTY;
    utl::SharedTimer::TimeoutSignalHandler(SIGRTMIN + 1, &info, nullptr);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(
        log.lines(),
        (std::vector<std::string>{error("SharedTimerThread() Error. write Ret:4294967295 errno:", EIO)}));
    // The token that did not get through does not count.
    utl::SharedTimer::TimeoutSignalHandler(SIGRTMIN + 1, &info, nullptr);
    EXPECT_TRUE(ticker.waitFor(1));
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

TEST_F(SharedTimer, TheConstructor_WithoutAPipe_ReturnsWhenTheThreadHasEnded) {
    std::atomic<int> strayLoops{0};
    for (int round = 0; round < 50; ++round) {
        hooks::pipe.failFrom(1, 1, -1, EMFILE);
        DerivedTimers timers(strayLoops);
        EXPECT_TRUE(timers.hasDone(utl::Thread::FINISHED));
    }
    EXPECT_EQ(strayLoops, 0);
}

// Adding and erasing.

TEST_F(SharedTimer, AddTimer_MakesATimerThatDoesNotRun) {
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 15, 3, 0);
    EXPECT_EQ(timer, 1);
    EXPECT_FALSE(timers->isRunning(timer));
    EXPECT_EQ(timers->getInterval(timer), 15U);
    utl::TimerInfo const* const info = timers->findTimer(timer);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->mListener, &ticker);
    EXPECT_EQ(info->mRepeatCount, 3U);
    EXPECT_EQ(info->mAutoRepeat, 0);
    EXPECT_EQ(info->mSysTimerNum, -1);
    EXPECT_EQ(info->mSysParam[0], -1);
    EXPECT_EQ(info->mSysParam[1], 0);
    EXPECT_EQ(calls().create.calls(), 0U);
}

TEST_F(SharedTimer, ATimerCountAtItsMaximum_RefusesTheNext) {
    for (unsigned int const capacity : {0U, 1U, 3U}) {
        ScopedTimers timers(capacity);
        for (unsigned int i = 1; i <= capacity; ++i) {
            EXPECT_EQ(timers->addTimer(nullptr, 1), static_cast<int>(i));
        }
        EXPECT_EQ(timers->addTimer(nullptr, 1), -1);
        if (capacity != 0) {
            EXPECT_TRUE(timers->eraseTimer(1));
            EXPECT_EQ(timers->addTimer(nullptr, 1), static_cast<int>(capacity) + 1)
                << "ids are not used again";
        }
    }
}

TEST_F(SharedTimer, Ids_WrapToOneBehindTheLargestAndStepPastThoseInUse) {
    ScopedTimers timers;
    EXPECT_EQ(timers->addTimer(nullptr, 1), 1);
    EXPECT_EQ(timers->addTimer(nullptr, 1), 2);
    SharedTimerAccess::setNextTimerId(*timers, INT_MAX - 1);
    EXPECT_EQ(timers->addTimer(nullptr, 1), INT_MAX - 1);
    EXPECT_EQ(timers->addTimer(nullptr, 1), INT_MAX);
    EXPECT_EQ(timers->addTimer(nullptr, 1), 3);
    EXPECT_EQ(idsOf(*timers), (Ids{1, 2, 3, INT_MAX - 1, INT_MAX}));
}

TEST_F(SharedTimer, EraseTimer_OfARunningTimer_StopsItAndTakesItAway) {
    for (int const noWait : {0, 1}) {
        Ticker ticker;
        ScopedTimers timers;
        int const timer = timers->addTimer(&ticker, 1);
        ASSERT_TRUE(timers->start(timer));
        ASSERT_TRUE(ticker.waitFor(2));
        EXPECT_TRUE(timers->eraseTimer(timer, noWait));
        timers.settle();
        size_t const atErase = ticker.count();
        EXPECT_EQ(timers->findTimer(timer), nullptr);
        EXPECT_EQ(calls().aliveCount(), 0U);
        EXPECT_FALSE(timers->eraseTimer(timer, 0));
        utl::Thread::sleep(20);
        EXPECT_EQ(ticker.count(), atErase);
    }
}

TEST_F(SharedTimer, EraseTimer_WithoutWaiting_AsksForAnyId) {
    ScopedTimers timers;
    EXPECT_FALSE(timers->eraseTimer(UNKNOWN, 0));
    EXPECT_TRUE(timers->eraseTimer(UNKNOWN, 1));
    timers.settle();
    EXPECT_FALSE(hasLine("<UTIL> ERR: ", ""));
}

TEST_F(SharedTimer, EraseTimer_WithoutWaiting_LeavesTheTimerUntilTheThreadActs) {
    Blocker blocker;
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(timer));
    blocker.block(*timers);
    EXPECT_TRUE(timers->eraseTimer(timer, 1));
    EXPECT_TRUE(timers->isRunning(timer));
    blocker.letGo();
    timers.settle();
    EXPECT_EQ(timers->findTimer(timer), nullptr);
}

TEST_F(SharedTimer, EraseTimer_BehindAStartThatIsStillQueued_LeavesNothingOfBoth) {
    Blocker blocker;
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 1);
    blocker.block(*timers);
    EXPECT_TRUE(timers->start(timer, 1));
    EXPECT_TRUE(timers->eraseTimer(timer, 0));
    blocker.letGo();
    timers.settle();
    EXPECT_EQ(ticker.count(), 0U);
    EXPECT_FALSE(hasLine("<UTIL> ERR: ", ""));
}

TEST_F(SharedTimer, EraseTimer_WhoseTimerIsTakenAwayFirst_IsFalse) {
    Blocker blocker;
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(timer));
    blocker.block(*timers);
    EXPECT_TRUE(timers->eraseTimer(timer, 1));
    unsigned int const before = calls().requests;
    auto erased = std::async(std::launch::async, [&] { return timers->eraseTimer(timer, 0); });
    waitForRequestBehind(before);
    blocker.letGo();
    EXPECT_FALSE(erased.get());
}

TEST_F(SharedTimer, EraseTimer_AgainstStartsThatAreStillQueued_NeverLeavesASystemTimer) {
    for (int round = 0; round < 200; ++round) {
        Ticker ticker;
        ScopedTimers timers;
        int const timer = timers->addTimer(&ticker, 1);
        ASSERT_TRUE(timers->start(timer, 1));
        EXPECT_TRUE(timers->eraseTimer(timer, 0));
        timers.settle();
        EXPECT_EQ(calls().aliveCount(), 0U);
    }
}

TEST_F(SharedTimer, GetTimerIdSet_OfNull_IsZero) {
    ScopedTimers timers;
    EXPECT_EQ(timers->getTimerIdSet(nullptr), 0);
}

TEST_F(SharedTimer, GetTimerIdSet_WithoutTimers_GivesAnEmptyArray) {
    ScopedTimers timers;
    utl::Array<int> ids(5, 0);
    ASSERT_TRUE(ids.insertAt(0, 99));
    EXPECT_EQ(timers->getTimerIdSet(&ids), 1);
    EXPECT_EQ(ids.size(), 0U);
    EXPECT_EQ(ids.maxSize(), 0U);
}

TEST_F(SharedTimer, GetTimerIdSet_ReplacesContentAndCapacity_InTheOrderOfTheIds) {
    ScopedTimers timers;
    for (int i = 1; i <= 4; ++i) {
        ASSERT_EQ(timers->addTimer(nullptr, 1), i);
    }
    ASSERT_TRUE(timers->eraseTimer(2));
    for (unsigned int const capacity : {0U, 3U, 10U}) {
        utl::Array<int> ids(capacity, 0);
        EXPECT_EQ(timers->getTimerIdSet(&ids), 1);
        EXPECT_EQ(ids.maxSize(), 3U);
    }
    EXPECT_EQ(idsOf(*timers), (Ids{1, 3, 4}));
}

// Starting and stopping.

TEST_F(SharedTimer, AOneShot_FiresOnceAndStaysAsAStoppedTimer) {
    for (int const autoRepeat : {0, 1}) {
        Ticker ticker;
        ScopedTimers timers;
        int const timer = timers->addTimer(&ticker, 20, 1, autoRepeat);
        for (size_t run = 1; run <= 3; ++run) {
            utl::TimeCounter elapsed;
            elapsed.start();
            ASSERT_TRUE(timers->start(timer));
            ASSERT_TRUE(ticker.waitFor(run));
            EXPECT_GE(elapsed.watch(), 19U);
            EXPECT_EQ(timers->waitToStop(timer), 0);
            EXPECT_FALSE(timers->isRunning(timer));
            EXPECT_EQ(timers->findTimer(timer)->mFireCount, 1U) << "counted from 0 again";
            EXPECT_EQ(calls().aliveCount(), 0U);
        }
        EXPECT_EQ(ticker.ticks(), (Ids{timer, timer, timer}));
    }
}

TEST_F(SharedTimer, ARepeatCountOfThree_GivesThreeExpiriesForEachStart) {
    for (int const autoRepeat : {0, 1}) {
        Ticker ticker;
        ScopedTimers timers;
        int const timer = timers->addTimer(&ticker, 2, 3, autoRepeat);
        for (size_t run = 1; run <= 2; ++run) {
            ASSERT_TRUE(timers->start(timer));
            ASSERT_EQ(timers->waitToStop(timer), 0);
            utl::Thread::sleep(10);
            timers.settle();
            EXPECT_EQ(ticker.count(), 3 * run);
        }
    }
}

TEST_F(SharedTimer, WithoutARepeatCount_ItFiresUntilItIsStopped) {
    for (int const autoRepeat : {0, 1}) {
        Ticker ticker;
        ScopedTimers timers;
        int const timer = timers->addTimer(&ticker, 1, 0, autoRepeat);
        ASSERT_TRUE(timers->start(timer));
        ASSERT_TRUE(ticker.waitFor(20));
        EXPECT_TRUE(timers->stop(timer));
        size_t const atStop = ticker.count();
        EXPECT_FALSE(timers->isRunning(timer));
        utl::Thread::sleep(20);
        EXPECT_EQ(ticker.count(), atStop);
        ASSERT_TRUE(timers->start(timer));
        ASSERT_TRUE(ticker.waitFor(atStop + 3));
    }
}

TEST_F(SharedTimer, Start_OfARunningTimer_LeavesItAsItIs) {
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 1);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(ticker.waitFor(5));
    EXPECT_TRUE(timers->start(timer, 0));
    EXPECT_TRUE(timers->start(timer, 1));
    ASSERT_TRUE(ticker.waitForMore(1));
    ASSERT_TRUE(timers->stop(timer));
    EXPECT_GE(timers->findTimer(timer)->mFireCount, 5U);
    EXPECT_EQ(calls().create.calls(), 1U);
}

TEST_F(SharedTimer, TwoStartsInTheQueue_MakeOneSystemTimer) {
    Blocker blocker;
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    blocker.block(*timers);
    EXPECT_TRUE(timers->start(timer, 1));
    EXPECT_TRUE(timers->start(timer, 1));
    blocker.letGo();
    timers.settle();
    EXPECT_TRUE(timers->isRunning(timer));
    EXPECT_TRUE(timers->stop(timer));
    EXPECT_EQ(calls().aliveCount(), 0U);
    EXPECT_EQ(calls().create.calls(), 3U) << "the blocker's, the timer's and one to settle";
    EXPECT_FALSE(hasLine("<UTIL> ERR: ", ""));
}

TEST_F(SharedTimer, Stop_OfAStoppedTimer_HasNothingToDo) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, 1);
    unsigned int const before = calls().write.calls();
    EXPECT_TRUE(timers->stop(timer, 0));
    EXPECT_TRUE(timers->stop(timer, 1));
    EXPECT_EQ(calls().write.calls(), before);
}

TEST_F(SharedTimer, UnknownIds_AreRefused) {
    ScopedTimers timers;
    for (int const id : {UNKNOWN, 0, -1}) {
        for (int const noWait : {0, 1}) {
            EXPECT_FALSE(timers->start(id, noWait));
            EXPECT_FALSE(timers->stop(id, noWait));
            EXPECT_FALSE(timers->restart(id, noWait));
        }
        EXPECT_FALSE(timers->setInterval(id, 1));
        EXPECT_FALSE(timers->isRunning(id));
        EXPECT_EQ(timers->getInterval(id), NO_INTERVAL);
        EXPECT_EQ(timers->waitToStart(id), -1);
        EXPECT_EQ(timers->waitToStop(id), -1);
        EXPECT_EQ(timers->findTimer(id), nullptr);
        EXPECT_EQ(static_cast<utl::SharedTimer const&>(*timers).findTimer(id), nullptr);
        timers->onTime(id);
    }
}

TEST_F(SharedTimer, StartAndStop_WithoutWaiting_ReturnWhileTheThreadIsBusy) {
    Blocker blocker;
    Ticker ticker;
    ScopedTimers timers;
    int const one = timers->addTimer(&ticker, 1, 1);
    int const two = timers->addTimer(&ticker, LONG);
    ASSERT_TRUE(timers->start(two));
    blocker.block(*timers);
    EXPECT_TRUE(timers->start(one, 1));
    EXPECT_FALSE(timers->isRunning(one));
    EXPECT_TRUE(timers->stop(two, 1));
    EXPECT_TRUE(timers->isRunning(two));
    blocker.letGo();
    EXPECT_TRUE(ticker.waitFor(1));
    EXPECT_EQ(timers->waitToStop(two), 0);
}

TEST_F(SharedTimer, Restart_OfARunningTimer_CountsFromZeroWithANewSystemTimer) {
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 1, 1000000);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(ticker.waitFor(10));
    ASSERT_TRUE(timers->setInterval(timer, LONG));
    EXPECT_TRUE(timers->restart(timer, 0));
    EXPECT_TRUE(timers->isRunning(timer));
    EXPECT_EQ(timers->findTimer(timer)->mFireCount, 0U);
    EXPECT_EQ(calls().aliveCount(), 1U);
}

TEST_F(SharedTimer, Restart_OfAStoppedTimer_StartsIt) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    EXPECT_TRUE(timers->restart(timer, 0));
    EXPECT_TRUE(timers->isRunning(timer));
}

// The start finds the timer running still: only the stop is in the queue.
TEST_F(SharedTimer, Restart_WithoutWaiting_MayEndInAStop) {
    Blocker blocker;
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    ASSERT_TRUE(timers->start(timer));
    blocker.block(*timers);
    EXPECT_TRUE(timers->restart(timer, 1));
    blocker.letGo();
    timers.settle();
    EXPECT_FALSE(timers->isRunning(timer));
}

TEST_F(SharedTimer, StartAllStopAllAndRestartAll_ServeEveryTimer) {
    ScopedTimers timers;
    Ids ids;
    for (unsigned int i = 0; i < 3; ++i) {
        ids.push_back(timers->addTimer(nullptr, LONG + i));
    }
    auto const runningCount = [&] {
        return std::count_if(ids.begin(), ids.end(), [&](int id) { return timers->isRunning(id); });
    };
    timers->startAll(0);
    EXPECT_EQ(runningCount(), 3);
    timers->restartAll(0);
    EXPECT_EQ(runningCount(), 3);
    EXPECT_EQ(calls().armed(), (std::vector<long>{60000, 60001, 60002, 60000, 60001, 60002}));
    timers->stopAll(0);
    EXPECT_EQ(runningCount(), 0);
    timers->startAll(1);
    timers.settle();
    EXPECT_EQ(runningCount(), 3);
    timers->stopAll(1);
    timers.settle();
    EXPECT_EQ(runningCount(), 0);
}

TEST_F(SharedTimer, RestartAll_StopsAllTimersBeforeItStartsTheFirst) {
    ScopedTimers timers;
    ASSERT_GT(timers->addTimer(nullptr, LONG), 0);
    ASSERT_GT(timers->addTimer(nullptr, LONG), 0);
    timers->startAll();
    static std::vector<size_t> aliveAtCreation;
    aliveAtCreation.clear();
    hooks::timerCreate.replace(+[](clockid_t clock, sigevent* event, timer_t* timer) {
        if (event->sigev_signo == TimerCalls::signalNumber()) {
            aliveAtCreation.push_back(timerCalls().aliveCount());
        }
        return createTimerHook(clock, event, timer);
    });
    timers->restartAll();
    EXPECT_EQ(aliveAtCreation, (std::vector<size_t>{0, 1}));
}

TEST_F(SharedTimer, ATimerThatEndsBeforeItsStarterLooks_CountsAsStarted) {
    Ticker ticker;
    ScopedTimers timers;
    for (int i = 1; i <= 300; ++i) {
        int const timer = timers->addTimer(&ticker, 1, 1, i % 2);
        ASSERT_EQ(timer, i);
        ASSERT_TRUE(timers->start(timer, 0));
        ASSERT_TRUE(ticker.waitFor(static_cast<size_t>(i)));
        ASSERT_TRUE(timers->eraseTimer(timer, i % 3));
    }
}

TEST_F(SharedTimer, WaitToStartAndWaitToStop_ReleaseEverybody) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    EXPECT_EQ(timers->waitToStop(timer), 0);
    for (int round = 0; round < 20; ++round) {
        std::vector<std::future<int>> waiters;
        for (int i = 0; i < 3; ++i) {
            waiters.push_back(std::async(std::launch::async, [&] { return timers->waitToStart(timer); }));
        }
        ASSERT_TRUE(timers->start(timer, round % 2));
        for (std::future<int>& waiter : waiters) {
            EXPECT_EQ(waiter.get(), 0);
        }
        EXPECT_EQ(timers->waitToStart(timer), 0);
        std::vector<std::future<int>> others;
        for (int i = 0; i < 3; ++i) {
            others.push_back(std::async(std::launch::async, [&] { return timers->waitToStop(timer); }));
        }
        ASSERT_TRUE(timers->stop(timer, round % 2));
        for (std::future<int>& waiter : others) {
            EXPECT_EQ(waiter.get(), 0);
        }
    }
}

TEST_F(SharedTimer, WaitToStart_OfATimerThatIsTakenAway_IsMinusOne) {
    for (int const noWait : {0, 1}) {
        ScopedTimers timers;
        int const timer = timers->addTimer(nullptr, LONG);
        auto waiter = std::async(std::launch::async, [&] { return timers->waitToStart(timer); });
        EXPECT_TRUE(timers->eraseTimer(timer, noWait));
        EXPECT_EQ(waiter.get(), -1);
    }
}

TEST_F(SharedTimer, WaitToStart_GoesOnWaitingBehindAStartThatFailed) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    std::promise<int> result;
    auto const waiting = result.get_future();
    std::thread waiter([&] { result.set_value(timers->waitToStart(timer)); });
    calls().create.failFrom(1, 1, EAGAIN);
    EXPECT_FALSE(timers->start(timer));
    EXPECT_NE(waiting.wait_for(std::chrono::milliseconds(20)), std::future_status::ready);
    EXPECT_TRUE(timers->start(timer));
    waiter.join();
}

// Intervals.

TEST_F(SharedTimer, AnIntervalOf1500_IsOneSecondAndAHalfForValueAndPeriod) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, 1500);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_EQ(calls().specs.size(), 1U);
    EXPECT_EQ(calls().specs[0].it_value.tv_sec, 1);
    EXPECT_EQ(calls().specs[0].it_value.tv_nsec, 500000000);
    EXPECT_EQ(calls().specs[0].it_interval.tv_sec, 1);
    EXPECT_EQ(calls().specs[0].it_interval.tv_nsec, 500000000);
    int const longest = timers->addTimer(nullptr, UINT_MAX);
    ASSERT_TRUE(timers->start(longest));
    EXPECT_EQ(calls().specs[1].it_value.tv_sec, 4294967);
    EXPECT_EQ(calls().specs[1].it_value.tv_nsec, 295000000);
}

TEST_F(SharedTimer, AnIntervalOfZero_RunsAndNeverFires) {
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, 0, 1);
    ASSERT_TRUE(timers->start(timer));
    utl::Thread::sleep(20);
    EXPECT_TRUE(timers->isRunning(timer));
    EXPECT_EQ(ticker.count(), 0U);
}

TEST_F(SharedTimer, SetInterval_OfAStoppedTimer_HoldsFromItsNextStart) {
    ScopedTimers timers;
    int const timer = timers->addTimer(nullptr, LONG);
    EXPECT_TRUE(timers->setInterval(timer, LONG + 1));
    EXPECT_EQ(timers->getInterval(timer), LONG + 1);
    EXPECT_TRUE(timers->findTimer(timer)->mUpdating);
    ASSERT_TRUE(timers->start(timer));
    timers.settle();
    EXPECT_FALSE(timers->findTimer(timer)->mUpdating);
    EXPECT_EQ(calls().armed()[0], 60001);
}

TEST_F(SharedTimer, SetInterval_OfARunningTimer_HoldsFromItsNextExpiry) {
    for (int const autoRepeat : {0, 1}) {
        Ticker ticker;
        ScopedTimers timers;
        int const timer = timers->addTimer(&ticker, 100, 0, autoRepeat);
        ASSERT_TRUE(timers->start(timer));
        size_t const armedBefore = calls().armed().size();
        EXPECT_TRUE(timers->setInterval(timer, LONG));
        EXPECT_EQ(timers->getInterval(timer), LONG);
        // The expiry of the old period comes, and then that of the new one does not.
        ASSERT_TRUE(ticker.waitForMore(1));
        timers.settle();
        EXPECT_FALSE(timers->findTimer(timer)->mUpdating);
        std::vector<long> const armed = calls().armed();
        EXPECT_EQ(std::count(armed.begin() + static_cast<long>(armedBefore), armed.end(), 60000), 1);
        EXPECT_EQ(calls().aliveCount(), 1U);
    }
}

TEST_F(SharedTimer, SetInterval_FromTheListener_HoldsFromThisExpiry) {
    utl::SharedTimer* shared = nullptr;
    Ticker ticker([&](int timer) { EXPECT_TRUE(shared->setInterval(timer, LONG)); });
    ScopedTimers timers;
    shared = &*timers;
    int const timer = timers->addTimer(&ticker, 1);
    ASSERT_TRUE(timers->start(timer));
    ASSERT_TRUE(ticker.waitFor(1));
    timers.settle();
    EXPECT_EQ(calls().armed()[1], 60000);
    EXPECT_FALSE(timers->findTimer(timer)->mUpdating);
}

TEST_F(SharedTimer, SetInterval_InFrontOfAStartThatHasNoEffect_IsNotForgotten) {
    Blocker blocker;
    Ticker ticker;
    ScopedTimers timers;
    int const timer = timers->addTimer(&ticker, LONG);
    blocker.block(*timers);
    ASSERT_TRUE(timers->start(timer, 1));
    ASSERT_TRUE(timers->start(timer, 1));
    blocker.letGo();
    ASSERT_EQ(timers->waitToStart(timer), 0);
    ASSERT_TRUE(timers->setInterval(timer, 1));
    timers.settle();
    // Whether the second start came in front of the new interval or behind it, the mark stays.
    EXPECT_TRUE(timers->findTimer(timer)->mUpdating);
}

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
        // Expiries of the time in front of the block may stand in front of the request.
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
    Gate entered;
    Gate go;
    Ticker ticker([&](int) {
        entered.open();
        go.wait();
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
    ASSERT_TRUE(entered.wait());
    unsigned int const before = calls().requests;
    auto stopped = std::async(std::launch::async, [&] { return timers->stop(other, 0); });
    waitForRequestBehind(before);
    go.open();
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

}  // namespace

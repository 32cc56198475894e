// Timer signals that are not the library's: the program had a handler of its own for the same signal, or
// holds a second copy of the library.

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <thread>

#include "TestHooks.h"
#include "TestTimers.h"

namespace {

namespace hooks = utltest::hooks;
using utltest::HookScope;
using utltest::LONG;

/// One timer of a `SharedTimer`. The first one of the process installs the handler.
class OfSharedTimer {
  public:
    static int signal() { return SIGRTMIN + 1; }
    static constexpr auto HANDLER = &utl::SharedTimer::TimeoutSignalHandler;

    void start() {
        mTimer = mTimers.addTimer(&mTicker, LONG, 0, 1);
        EXPECT_TRUE(mTimers.start(mTimer, 0));
    }
    void end() { EXPECT_TRUE(mTimers.eraseTimer(mTimer, 0)); }
    utl::TimerInfo const& info() { return *mTimers.findTimer(mTimer); }
    int writeEnd() const { return utltest::SharedTimerAccess::writeEnd(mTimers); }
    bool ticks() const { return mTicker.waitFor(1); }

  private:
    utltest::Ticker mTicker;
    utl::SharedTimer mTimers{0, 0, nullptr, 8, "shared"};
    utl::AutoDestroy<utl::SharedTimer> const mDestroying{mTimers};
    int mTimer = 0;
};

/// One timer of a message thread.
class OfMsgThread {
  public:
    static int signal() { return SIGRTMIN + 2; }
    static constexpr auto HANDLER = &utl::MsgDrivenThread::TimeoutSignalHandler;

    OfMsgThread() { EXPECT_EQ(mThread.start(&mCollector), 0); }

    void start() {
        mTimer = mThread.setTimer(LONG, 0, 0, 1);
        EXPECT_GT(mTimer, 0);
    }
    void end() { EXPECT_TRUE(mThread.killTimer(mTimer, 0)); }
    utl::TimerInfo const& info() { return *mThread.findTimer(mTimer); }
    int writeEnd() const { return utltest::ThreadAccess::writeEnd(mThread); }
    bool ticks() const { return mCollector.waitFor(1); }

  private:
    utltest::Collector mCollector;
    utltest::ScopedMsgThread mThread;
    int mTimer = 0;
};

// What reaches the program's handlers.
std::atomic<int> gPlainSignal{0};
std::atomic<int> gSignal{0};
std::atomic<int> gSignalValue{0};
std::atomic<int> gCalls{0};
std::atomic<siginfo_t*> gInfo{nullptr};
std::atomic<void*> gContext{nullptr};

void plainHandler(int signalNumber) {
    gPlainSignal = signalNumber;
    ++gCalls;
    errno = EDOM;
}

void handlerWithInfo(int signalNumber, siginfo_t* info, void* context) {
    gSignal = signalNumber;
    gSignalValue = info->si_value.sival_int;
    gInfo = info;
    gContext = context;
    ++gCalls;
    errno = EDOM;
}

struct sigaction actionOf(void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    return action;
}

struct sigaction actionOf(void (*handler)(int, siginfo_t*, void*)) {
    struct sigaction action = {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO;
    return action;
}

/// The signal of the live timer of `timers`.
template <typename TIMERS>
siginfo_t signalOf(TIMERS& timers) {
    siginfo_t info = {};
    info.si_timerid = timers.info().mSysTimerNum;
    info.si_value.sival_int = timers.writeEnd();
    return info;
}

/// The process is a fresh one: the library has not been used when a handler of the program's is put there.
template <typename TIMERS>
class TimerSignalOfAFreshProcess : public ::testing::Test {
  protected:
    static void putThereBefore(struct sigaction const& action) {
        ASSERT_EQ(sigaction(TIMERS::signal(), &action, nullptr), 0);
    }
    static bool isOursNow() {
        struct sigaction present = {};
        sigaction(TIMERS::signal(), nullptr, &present);
        return present.sa_sigaction == TIMERS::HANDLER;
    }

    /// What the system does when the timer expires.
    static void expire(siginfo_t& info) { TIMERS::HANDLER(TIMERS::signal(), &info, &info); }
};

using Kinds = ::testing::Types<OfSharedTimer, OfMsgThread>;
TYPED_TEST_SUITE(TimerSignalOfAFreshProcess, Kinds);

TYPED_TEST(TimerSignalOfAFreshProcess, OfATimerOfTheProgram_ReachesTheProgramsHandler) {
    this->putThereBefore(actionOf(handlerWithInfo));
    TypeParam timers;
    ASSERT_TRUE(this->isOursNow());
    sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = TypeParam::signal();
    event.sigev_value.sival_int = 4711;
    timer_t timer = timer_t();
    ASSERT_EQ(timer_create(CLOCK_MONOTONIC, &event, &timer), 0);
    itimerspec const often = {{0, 1000000}, {0, 1000000}};
    ASSERT_EQ(timer_settime(timer, 0, &often, nullptr), 0);
    while (gCalls < 3) {
        std::this_thread::yield();
    }
    EXPECT_EQ(timer_delete(timer), 0);
    EXPECT_EQ(gSignal, TypeParam::signal());
    EXPECT_EQ(gSignalValue, 4711);
}

TYPED_TEST(TimerSignalOfAFreshProcess, ThatIsForeign_IsHandedOnWholeAndKeepsErrno) {
    this->putThereBefore(actionOf(handlerWithInfo));
    TypeParam timers;
    siginfo_t info = {};
    errno = ENOTTY;
    this->expire(info);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(gInfo, &info);
    EXPECT_EQ(gContext, &info);
    EXPECT_EQ(gSignal, TypeParam::signal());
    EXPECT_EQ(gCalls, 1);
}

TYPED_TEST(TimerSignalOfAFreshProcess, ThatIsForeign_ReachesAHandlerOfTheOldForm) {
    this->putThereBefore(actionOf(plainHandler));
    TypeParam timers;
    siginfo_t info = {};
    errno = ENOTTY;
    this->expire(info);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(gPlainSignal, TypeParam::signal());
    EXPECT_EQ(gCalls, 1);
}

TYPED_TEST(TimerSignalOfAFreshProcess, ThatIsForeign_IsDroppedWhereNoFunctionStoodBefore) {
    this->putThereBefore(actionOf(SIG_IGN));
    TypeParam timers;
    siginfo_t info = {};
    this->expire(info);
    EXPECT_EQ(raise(TypeParam::signal()), 0);
    EXPECT_TRUE(this->isOursNow());
}

TYPED_TEST(TimerSignalOfAFreshProcess, ThatIsForeign_DoesNotEndTheProcess) {
    TypeParam timers;
    EXPECT_EQ(raise(TypeParam::signal()), 0);
    EXPECT_TRUE(this->isOursNow());
}

// As after a copy of the library that was unloaded and came to lie at the same place again.
TYPED_TEST(TimerSignalOfAFreshProcess, ThatIsForeign_IsNeverHandedToTheSameHandler) {
    this->putThereBefore(actionOf(TypeParam::HANDLER));
    TypeParam timers;
    siginfo_t info = {};
    this->expire(info);
    EXPECT_EQ(raise(TypeParam::signal()), 0);
    EXPECT_TRUE(this->isOursNow());
}

TYPED_TEST(TimerSignalOfAFreshProcess, OfOurOwn_IsNeverHandedOn) {
    this->putThereBefore(actionOf(handlerWithInfo));
    siginfo_t live;
    siginfo_t late;
    {
        TypeParam timers;
        timers.start();
        late = signalOf(timers);
        timers.end();
        this->expire(late);
        for (int i = 0; i < 100; ++i) {
            timers.start();
            timers.end();
        }
        this->expire(late);
        timers.start();
        live = signalOf(timers);
        this->expire(live);
        EXPECT_TRUE(timers.ticks());
    }
    this->expire(live);
    this->expire(late);
    EXPECT_EQ(gCalls, 0);
}

// The kernel may give a number again, to a timer of another copy.
TYPED_TEST(TimerSignalOfAFreshProcess, WithANumberOfOursAndAnotherPipe_IsHandedOn) {
    this->putThereBefore(actionOf(handlerWithInfo));
    TypeParam timers;
    timers.start();
    siginfo_t theirs = signalOf(timers);
    theirs.si_value.sival_int += 1000;
    this->expire(theirs);
    EXPECT_EQ(gCalls, 1);
    timers.end();
    this->expire(theirs);
    EXPECT_EQ(gCalls, 2);
}

// Such a timer runs on for as long as the process does, however many come after it.
TYPED_TEST(TimerSignalOfAFreshProcess, OfATimerThatCouldNotBeDeleted_IsNeverHandedOn) {
    this->putThereBefore(actionOf(handlerWithInfo));
    siginfo_t late;
    {
        HookScope const scope;
        utltest::LogCapture const log;
        TypeParam timers;
        timers.start();
        late = signalOf(timers);
        hooks::timerDelete.failFrom(1, 0, -1, EINVAL);
    }
    TypeParam others;
    for (int i = 0; i < 600; ++i) {
        others.start();
        others.end();
    }
    this->expire(late);
    EXPECT_EQ(gCalls, 0);
}

}  // namespace

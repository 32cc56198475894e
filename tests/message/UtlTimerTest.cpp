#include "UtlTimer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "TestThreads.h"
#include "TestTimers.h"
#include "UtlTimeCounter.h"

using namespace utltest;

namespace {

class Timer : public TimerTest {};

// A timer that counts its expiries itself.
class CountingTimer : public utl::Timer {
  public:
    explicit CountingTimer(unsigned int interval, unsigned int repeatCount = 0, int autoRepeat = 1)
        : Timer(interval, 0, 0, nullptr, repeatCount, autoRepeat, "counting") {}
    ~CountingTimer() override { destroy(); }

    void onTime(int timerId) override { mTicker.onTime(timerId); }
    Ticker const& ticker() const { return mTicker; }

  private:
    Ticker mTicker;
};

// A plain timer with a listener, destroyed at the end of the scope.
class ListenedTimer {
  public:
    ListenedTimer(utl::TimerListener* listener, unsigned int interval, unsigned int repeatCount = 0,
                  int autoRepeat = 1)
        : mTimer(listener, interval, 0, 0, nullptr, repeatCount, autoRepeat, "listened") {}
    utl::Timer* operator->() { return &mTimer; }

  private:
    utl::Timer mTimer;
    utl::AutoDestroy<utl::Timer> const mDestroying{mTimer};
};

int threadOf(char const* name) {
    utl::ThreadManager::Names names(200, 0);
    EXPECT_TRUE(utl::ThreadManager::get()->getNames(&names));
    for (unsigned int i = 0; i < names.size(); ++i) {
        if (std::string(names.getAt(i)->mValue.buffer()) == name) {
            return names.getAt(i)->mKey;
        }
    }
    return 0;
}

TEST_F(Timer, TheTimer_DoesNotRunBeforeStartButItsThreadDoes) {
    Ticker ticker;
    ListenedTimer timer(&ticker, 1);
    EXPECT_FALSE(timer->isRunning());
    EXPECT_TRUE(utl::ThreadManager::get()->isThreadActive(threadOf("listened")));
    EXPECT_EQ(calls().create.calls(), 0U);
    EXPECT_EQ(timer->getInterval(), 1U);
}

TEST_F(Timer, Expiries_ReachTheListenerOnTheTimersThread) {
    std::atomic<int> thread{0};
    Ticker ticker([&](int) { thread = kernelId(); });
    ListenedTimer timer(&ticker, 1);
    EXPECT_TRUE(timer->start());
    ASSERT_TRUE(ticker.waitFor(3));
    EXPECT_EQ(ticker.ticks()[0], 1);
    EXPECT_TRUE(timer->stop());
    EXPECT_EQ(thread, threadOf("listened"));
}

TEST_F(Timer, Expiries_ReachAnOverriddenOnTime) {
    CountingTimer timer(1);
    EXPECT_TRUE(timer.start());
    ASSERT_TRUE(timer.ticker().waitFor(3));
    EXPECT_TRUE(timer.stop());
    EXPECT_EQ(timer.ticker().ticks()[0], 1);
}

TEST_F(Timer, OnTime_WithoutAListener_DoesNothing) {
    utl::Timer timer(1, 0, 0, nullptr, 2, 0, "mute");
    timer.onTime(1);
    EXPECT_TRUE(timer.start());
    while (timer.isRunning()) {
        std::this_thread::yield();
    }
    timer.destroy();
    ListenedTimer other(nullptr, 1);
    other->onTime(7);
}

TEST_F(Timer, OnTime_WithAListener_PassesTheIdOn) {
    Ticker ticker;
    ListenedTimer timer(&ticker, LONG);
    timer->onTime(7);
    EXPECT_EQ(ticker.ticks(), std::vector<int>{7});
}

TEST_F(Timer, AOneShot_CanBeRunAgainByRestart) {
    for (int const autoRepeat : {0, 1}) {
        CountingTimer timer(1, 1, autoRepeat);
        ASSERT_TRUE(timer.start());
        for (size_t run = 1; run <= 3; ++run) {
            ASSERT_TRUE(timer.ticker().waitFor(run));
            while (timer.isRunning()) {
                std::this_thread::yield();
            }
            EXPECT_EQ(timer.ticker().count(), run);
            ASSERT_TRUE(timer.restart());
        }
    }
}

TEST_F(Timer, StartStopAndRestart_MayBeAskedForWithoutWaiting) {
    CountingTimer timer(1);
    EXPECT_TRUE(timer.start(1));
    ASSERT_TRUE(timer.ticker().waitFor(2));
    EXPECT_TRUE(timer.restart(1));
    EXPECT_TRUE(timer.stop(1));
    while (timer.isRunning()) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(timer.start(1));
    ASSERT_TRUE(timer.ticker().waitForMore(1));
}

TEST_F(Timer, Restart_BeginsAnew) {
    CountingTimer timer(LONG);
    ASSERT_TRUE(timer.start());
    ASSERT_TRUE(timer.setInterval(20));
    EXPECT_EQ(timer.getInterval(), 20U);
    utl::TimeCounter elapsed;
    elapsed.start();
    ASSERT_TRUE(timer.restart());
    ASSERT_TRUE(timer.ticker().waitFor(1));
    EXPECT_GE(elapsed.watch(), 19U);
    EXPECT_EQ(calls().armed(), (std::vector<long>{60000, 20}));
}

TEST_F(Timer, BehindDestroy_EveryOperationFails) {
    CountingTimer timer(1);
    ASSERT_TRUE(timer.start());
    timer.destroy();
    for (int const noWait : {0, 1}) {
        EXPECT_FALSE(timer.start(noWait));
        EXPECT_FALSE(timer.stop(noWait));
        EXPECT_FALSE(timer.restart(noWait));
    }
    EXPECT_FALSE(timer.setInterval(1));
    EXPECT_EQ(timer.getInterval(), 0xFFFFFFFFU);
    EXPECT_FALSE(timer.isRunning());
    EXPECT_EQ(threadOf("counting"), 0);
    size_t const atEnd = timer.ticker().count();
    utl::Thread::sleep(10);
    EXPECT_EQ(timer.ticker().count(), atEnd);
}

void expectFailures(utl::Timer& timer) {
    EXPECT_EQ(TimerAccess::timerId(timer), -1);
    for (int const noWait : {0, 1}) {
        EXPECT_FALSE(timer.start(noWait));
        EXPECT_FALSE(timer.stop(noWait));
        EXPECT_FALSE(timer.restart(noWait));
    }
    EXPECT_FALSE(timer.setInterval(5));
    EXPECT_EQ(timer.getInterval(), 0xFFFFFFFFU);
    EXPECT_FALSE(timer.isRunning());
}

TEST_F(Timer, ATimerWhoseThreadHasNoPipe_FailsAsForAnUnknownId) {
    hooks::pipe.failFrom(1, 1, -1, EMFILE);
    utl::Timer timer(1, 0, 0, nullptr, 0, 1, "dead");
    expectFailures(timer);
    timer.destroy();
}

TEST_F(Timer, ATimerWhoseThreadCannotBeRegistered_FailsAsForAnUnknownId) {
    FullRegistry const full;
    utl::Timer timer(1, 0, 0, nullptr, 0, 1, "dead");
    expectFailures(timer);
    timer.destroy();
}

// Derived classes and their callers are compiled apart from the library.
TEST_F(Timer, ItsFieldsAndItsVirtualOperation_HaveTheirPlaces) {
    CountingTimer const timer(LONG);
    std::vector<std::size_t> const fields = TimerAccess::fields(timer);
    EXPECT_EQ(fields.front(), (utltest::firstFieldBehind<utl::SharedTimer, utl::TimerListener>()));
    EXPECT_TRUE(areRising(fields));
    EXPECT_EQ(slotOf(&utl::Timer::onTime), 2U);
}

TEST_F(Timer, TheArgumentsForTheWatchdog_ReachTheThread) {
    utl::ThreadWatchdog& watchdog = utltest::ThreadManagerAccess::watchdog();
    utltest::ThreadWatchdogAccess::setInitialized(watchdog, true);
    utl::ThreadWatchdog::DefaultTimerListener listener;
    utl::Timer timer(1, 1, LONG, &listener, 0, 1, "watched");
    utl::WatchdogInfo const* const info = watchdog.findWatchdogInfo(threadOf("watched"));
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->aliveTime, LONG);
    EXPECT_EQ(info->listener, &listener);
    timer.destroy();
    EXPECT_EQ(threadOf("watched"), 0);
}

TEST_F(Timer, ManyTimers_EachHasItsOwnThread) {
    CountingTimer one(1);
    CountingTimer two(1);
    ASSERT_TRUE(one.start());
    ASSERT_TRUE(two.start());
    ASSERT_TRUE(one.ticker().waitFor(2));
    ASSERT_TRUE(two.ticker().waitFor(2));
    EXPECT_TRUE(one.stop());
    ASSERT_TRUE(two.ticker().waitForMore(2));
    EXPECT_FALSE(one.isRunning());
}

TEST_F(Timer, AutoDestroy_AtTheEndOfItsScope_HasDestroyedTheTimer) {
    utl::Timer timer(LONG, 0, 0, nullptr, utl::TIMER_NO_END, utl::TIMER_AUTO_REPEAT, "scoped");
    {
        utl::AutoDestroy const destroying(timer);
        ASSERT_NE(threadOf("scoped"), 0);
        ASSERT_TRUE(timer.start(utl::TIMER_WAIT));
    }
    EXPECT_EQ(threadOf("scoped"), 0);
    EXPECT_FALSE(timer.start(utl::TIMER_WAIT));
}

TEST_F(Timer, TheDestructor_OfATimerThatStandsStill_NeedsNoDestroy) {
    int id = 0;
    {
        utl::Timer timer(LONG, 0, 0, nullptr, 0, 1, "left");
        id = threadOf("left");
        ASSERT_TRUE(timer.start());
    }
    EXPECT_FALSE(utl::ThreadManager::get()->isThreadActive(id));
    EXPECT_EQ(calls().aliveCount(), 0U);
    EXPECT_TRUE(utl::ThreadManager::get()->unregister(id));
}

TEST_F(Timer, OnTime_OfADerivedTimer_HidesTheListenerThatItWasGiven) {
    class Derived : public utl::Timer {
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

TEST_F(Timer, ATimerWhoseThreadCannotBeMade_FailsWithoutWaiting) {
    hooks::threadCreate.failFrom(1, 1, EAGAIN, 0);
    utl::Timer timer(1, 0, 0, nullptr, 0, 1, "threadless");
    EXPECT_FALSE(timer.start(0));
    EXPECT_FALSE(timer.restart(0));
    EXPECT_FALSE(timer.isRunning());
    timer.destroy();
    timer.destroy();
    EXPECT_EQ(calls().create.calls(), 0U);
}

TEST_F(Timer, ADestroyedTimer_IsAnUnknownOne) {
    Ticker ticker;
    utl::Timer timer(&ticker, 1, 0, 0, nullptr, 0, 1, "one");
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

TEST_F(Timer, ATimerThatGoesWithoutDestroy_TakesItsThreadAndItsSystemTimerAlong) {
    for (bool const runs : {false, true}) {
        utl::Timer timer(LONG, 0, 0, nullptr, 0, 1, "left");
        ASSERT_EQ(timer.start(runs ? 0 : 1), true);
    }
    EXPECT_EQ(calls().aliveCount(), 0U);
    utl::ThreadManager::destroy();  // nobody else gives the places of the threads back
}

}  // namespace

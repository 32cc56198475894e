#include "UtlEvent.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TestHooks.h"
#include "TestLayout.h"
#include "TestLog.h"
#include "TestPrivate.h"

namespace utltest {

namespace in_event {
UTLTEST_REVEAL(utl::Event, mMutex);
UTLTEST_REVEAL(utl::Event, mOnWaiters);
UTLTEST_REVEAL(utl::Event, mOffWaiters);
UTLTEST_REVEAL(utl::Event, mOnCondition);
UTLTEST_REVEAL(utl::Event, mOffCondition);
UTLTEST_REVEAL(utl::Event, mOn);
UTLTEST_REVEAL(utl::Event, mOff);
UTLTEST_REVEAL(utl::Event, mTwoWay);
}  // namespace in_event

/// Reaches what no caller may: the mutex, the waiters and wake-ups that have no cause.
struct EventAccess {
    static pthread_mutex_t* mutex(utl::Event const& event) { return &of(event, in_event::mMutex); }
    static pthread_cond_t* onCondition(utl::Event const& event) { return &of(event, in_event::mOnCondition); }
    static pthread_cond_t* offCondition(utl::Event const& event) {
        return &of(event, in_event::mOffCondition);
    }

    static void lock(utl::Event const& event) { pthread_mutex_lock(mutex(event)); }
    static void unlock(utl::Event const& event) { pthread_mutex_unlock(mutex(event)); }

    static unsigned int onWaiters(utl::Event const& event) { return locked(event, in_event::mOnWaiters); }
    static unsigned int offWaiters(utl::Event const& event) { return locked(event, in_event::mOffWaiters); }

    static void wakeOnWaiters(utl::Event const& event) { wake(event, onCondition(event)); }
    static void wakeOffWaiters(utl::Event const& event) { wake(event, offCondition(event)); }

    /// Where the fields begin, in the order that they must have.
    static std::vector<std::size_t> fields(utl::Event const& event) {
        using namespace in_event;
        return offsetsOf(event, mOn, mOff, mOnWaiters, mOffWaiters, mOnCondition, mOffCondition, mMutex,
                         mTwoWay);
    }

  private:
    // A pointer to a member does not know of `mutable`.
    template <typename FIELD>
    static FIELD& of(utl::Event const& event, FIELD utl::Event::*field) {
        return const_cast<utl::Event&>(event).*field;
    }
    template <typename FIELD>
    static FIELD locked(utl::Event const& event, FIELD utl::Event::*field) {
        lock(event);
        FIELD const value = event.*field;
        unlock(event);
        return value;
    }
    static void wake(utl::Event const& event, pthread_cond_t* condition) {
        lock(event);
        pthread_cond_broadcast(condition);
        unlock(event);
    }
};

}  // namespace utltest

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using utl::Event;
using utltest::EventAccess;
using Lines = std::vector<std::string>;
namespace hooks = utltest::hooks;

void awaitOnWaiters(Event const& event, unsigned int count) {
    while (EventAccess::onWaiters(event) != count) {
        std::this_thread::yield();
    }
}

void awaitOffWaiters(Event const& event, unsigned int count) {
    while (EventAccess::offWaiters(event) != count) {
        std::this_thread::yield();
    }
}

/// Runs a wait on a thread of its own; `result` waits for its end.
class WaitingThread {
  public:
    template <typename WAIT>
    explicit WaitingThread(WAIT wait) : mThread([this, wait] { mResult = wait(); }) {}
    int result() {
        mThread.join();
        return mResult;
    }

  private:
    int mResult = 99;
    std::thread mThread;
};

// State.

static_assert(Event::INITIALLY_OFF == 0 && Event::INITIALLY_ON == 1);
static_assert(Event::ONE_WAY == 0 && Event::TWO_WAY == 1);
static_assert(Event::NO_LIMIT == 0);

static_assert(noexcept(Event(Event::INITIALLY_OFF, Event::ONE_WAY)));
static_assert(noexcept(std::declval<Event&>().setOn()) && noexcept(std::declval<Event&>().setOff()));
static_assert(noexcept(std::declval<Event&>().isOn()) && noexcept(std::declval<Event&>().isOff()));

TEST(Event, TheNamesOfItsStateAndKind_MakeWhatTheySay) {
    Event const off(Event::INITIALLY_OFF, Event::ONE_WAY);
    EXPECT_TRUE(off.isOff());
    EXPECT_EQ(off.waitToOff(1), Event::WAIT_FAILED);
    Event const on(Event::INITIALLY_ON, Event::TWO_WAY);
    EXPECT_TRUE(on.isOn());
    EXPECT_EQ(on.waitToOn(Event::NO_LIMIT), Event::WAIT_DONE);
    EXPECT_EQ(on.waitToOff(1), Event::WAIT_TIMEOUT);
}

TEST(Event, AnyInitialValueButZero_IsOn) {
    for (int initialOn : {1, 2, -1, 0x100}) {
        Event const event(initialOn, 0);
        EXPECT_TRUE(event.isOn()) << initialOn;
        EXPECT_FALSE(event.isOff()) << initialOn;
    }
    Event const off(0, 0);
    EXPECT_FALSE(off.isOn());
    EXPECT_TRUE(off.isOff());
}

TEST(Event, OnlyTheValueOne_MakesItTwoWay) {
    for (int twoWay : {0, 2, -1, 0x101}) {
        EXPECT_EQ(Event(0, twoWay).waitToOff(1), Event::WAIT_FAILED) << twoWay;
    }
    EXPECT_EQ(Event(0, 1).waitToOff(1), Event::WAIT_DONE);
}

TEST(Event, TwoAndTwo_IsOnAndOneWay) {
    Event const event(2, 2);
    EXPECT_TRUE(event.isOn());
    EXPECT_EQ(event.waitToOff(100), -1);
}

TEST(Event, SetOnAndSetOff_ChangeTheStateOfBothKinds) {
    for (int twoWay : {0, 1}) {
        Event event(0, twoWay);
        for (int i = 0; i < 2; ++i) {
            event.setOn();
            EXPECT_TRUE(event.isOn());
            EXPECT_FALSE(event.isOff());
            event.setOff();
            EXPECT_FALSE(event.isOn());
            EXPECT_TRUE(event.isOff());
        }
    }
}

TEST(Event, SettingASecondTime_ChangesNothing) {
    Event event(0, 1);
    event.setOn();
    event.setOn();
    EXPECT_EQ(event.waitToOn(0), 0);
    EXPECT_EQ(event.waitToOff(1), -2);
    event.setOff();
    event.setOff();
    EXPECT_EQ(event.waitToOff(0), 0);
    EXPECT_EQ(event.waitToOn(1), -2);
}

// Waits that need not block.

TEST(Event, WaitToOn_OnAnEventThatIsOn_IsDoneAtOnceAndTakesNothingAway) {
    Event const event(1, 0);
    EXPECT_EQ(event.waitToOn(0), 0);
    EXPECT_EQ(event.waitToOn(5), 0);
    EXPECT_EQ(event.waitToOn(0), 0);
    EXPECT_TRUE(event.isOn());
}

TEST(Event, WaitToOff_OnATwoWayEventThatIsOff_IsDoneAtOnce) {
    Event const event(0, 1);
    EXPECT_EQ(event.waitToOff(0), 0);
    EXPECT_EQ(event.waitToOff(100), 0);
}

TEST(Event, WaitToOff_OnAOneWayEvent_FailsAtOnce) {
    Event const event(0, 0);
    EXPECT_EQ(event.waitToOff(100), -1);
    EXPECT_EQ(event.waitToOff(0), -1);
    EXPECT_TRUE(event.isOff());
    EXPECT_EQ(EventAccess::offWaiters(event), 0U);
}

TEST(Event, Waits_LeaveNoWaiterBehind) {
    Event event(1, 1);
    event.waitToOn(0);
    event.waitToOff(1);
    event.setOff();
    event.waitToOff(0);
    event.waitToOn(1);
    EXPECT_EQ(EventAccess::onWaiters(event), 0U);
    EXPECT_EQ(EventAccess::offWaiters(event), 0U);
}

// Time-outs.

TEST(Event, WaitToOn_OnAnEventThatStaysOff_TakesTheWholeTime) {
    Event const event(0, 0);
    auto const start = steady_clock::now();
    EXPECT_EQ(event.waitToOn(60), -2);
    EXPECT_GE(steady_clock::now() - start, milliseconds(60));
}

TEST(Event, WaitToOff_AfterSetOn_TakesTheWholeTime) {
    Event event(0, 1);
    event.setOn();
    auto const start = steady_clock::now();
    EXPECT_EQ(event.waitToOff(60), -2);
    EXPECT_GE(steady_clock::now() - start, milliseconds(60));
}

TEST(Event, WaitToOn_LongerThanASecond_CarriesIntoTheSeconds) {
    Event const event(0, 0);
    auto const start = steady_clock::now();
    EXPECT_EQ(event.waitToOn(1100), -2);
    EXPECT_GE(steady_clock::now() - start, milliseconds(1100));
}

TEST(Event, ATimeOutAboveTheSignedRange_HasRunOutAtOnce) {
    Event const event(0, 1);
    for (unsigned int timeout : {0x80000000U, 0x80000001U, 0xFFFFFC18U, 0xFFFFFFFFU}) {
        EXPECT_EQ(event.waitToOn(timeout), -2) << timeout;
    }
}

TEST(Event, TheLongestTimeOut_StillWaits) {
    Event event(0, 0);
    WaitingThread waiter([&] { return event.waitToOn(0x7FFFFFFFU); });
    awaitOnWaiters(event, 1);
    event.setOn();
    EXPECT_EQ(waiter.result(), 0);
}

// Waking up.

TEST(Event, SetOn_EndsAWaitWithoutLimit) {
    Event event(0, 0);
    WaitingThread waiter([&] { return event.waitToOn(0); });
    awaitOnWaiters(event, 1);
    event.setOn();
    EXPECT_EQ(waiter.result(), 0);
}

TEST(Event, SetOff_EndsAWaitWithoutLimit) {
    Event event(1, 1);
    WaitingThread waiter([&] { return event.waitToOff(0); });
    awaitOffWaiters(event, 1);
    event.setOff();
    EXPECT_EQ(waiter.result(), 0);
}

TEST(Event, SetOff_EndsABoundedWait) {
    Event event(1, 1);
    WaitingThread waiter([&] { return event.waitToOff(600000); });
    awaitOffWaiters(event, 1);
    event.setOff();
    EXPECT_EQ(waiter.result(), 0);
}

TEST(Event, SetOff_WakesEveryWaiterOfBothKinds) {
    Event event(1, 1);
    WaitingThread first([&] { return event.waitToOff(0); });
    WaitingThread second([&] { return event.waitToOff(600000); });
    WaitingThread third([&] { return event.waitToOff(0); });
    awaitOffWaiters(event, 3);
    event.setOff();
    EXPECT_EQ(first.result(), 0);
    EXPECT_EQ(second.result(), 0);
    EXPECT_EQ(third.result(), 0);
}

TEST(Event, SetOn_WakesEveryWaiterOfBothKinds) {
    Event event(0, 0);
    WaitingThread first([&] { return event.waitToOn(0); });
    WaitingThread second([&] { return event.waitToOn(600000); });
    WaitingThread third([&] { return event.waitToOn(0); });
    awaitOnWaiters(event, 3);
    event.setOn();
    EXPECT_EQ(first.result(), 0);
    EXPECT_EQ(second.result(), 0);
    EXPECT_EQ(third.result(), 0);
}

TEST(Event, SetOn_DoesNotWakeAWaitForTheOtherState) {
    Event event(1, 1);
    utltest::LogCapture const log;
    WaitingThread waiter([&] { return event.waitToOff(600000); });
    awaitOffWaiters(event, 1);
    event.setOn();
    event.setOff();
    EXPECT_EQ(waiter.result(), 0);
    EXPECT_EQ(log.lines(), Lines{});
}

TEST(Event, TwoThreads_HandOverManyTimes) {
    constexpr int ROUNDS = 2000;
    Event event(0, 1);
    int shared = 0;
    std::thread partner([&] {
        for (int i = 0; i < ROUNDS; ++i) {
            while (event.waitToOn(600000) != 0) {
            }
            ++shared;
            event.setOff();
        }
    });
    for (int i = 0; i < ROUNDS; ++i) {
        ++shared;
        event.setOn();
        while (event.waitToOff(600000) != 0) {
        }
    }
    partner.join();
    EXPECT_EQ(shared, 2 * ROUNDS);
}

TEST(Event, ManyThreads_MaySetAndWaitAtTheSameTime) {
    Event event(0, 1);
    std::vector<std::thread> threads;
    std::atomic<unsigned int> strange{0};
    for (unsigned int number = 0; number < 4; ++number) {
        threads.emplace_back([&, number] {
            for (unsigned int i = 0; i < 500; ++i) {
                number % 2 == 0 ? event.setOn() : event.setOff();
                int const result = number < 2 ? event.waitToOn(1) : event.waitToOff(1);
                strange += result == 0 || result == -2 ? 0U : 1U;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(strange, 0U);
    EXPECT_EQ(EventAccess::onWaiters(event), 0U);
    EXPECT_EQ(EventAccess::offWaiters(event), 0U);
}

// Wake-ups without a cause.

TEST(Event, WaitWithoutLimit_WokenWithoutACause_IsDoneWhileTheEventIsStillOff) {
    Event event(0, 0);
    WaitingThread waiter([&] { return event.waitToOn(0); });
    awaitOnWaiters(event, 1);
    EventAccess::wakeOnWaiters(event);
    EXPECT_EQ(waiter.result(), 0);
    EXPECT_FALSE(event.isOn());
}

TEST(Event, WaitToOffWithoutLimit_WokenWithoutACause_IsDoneWhileTheEventIsStillOn) {
    Event event(1, 1);
    WaitingThread waiter([&] { return event.waitToOff(0); });
    awaitOffWaiters(event, 1);
    EventAccess::wakeOffWaiters(event);
    EXPECT_EQ(waiter.result(), 0);
    EXPECT_TRUE(event.isOn());
}

TEST(Event, BoundedWait_WokenWithoutACause_LogsOnceAndWaitsOn) {
    Event event(0, 0);
    utltest::LogCapture const log;
    WaitingThread waiter([&] { return event.waitToOn(600000); });
    awaitOnWaiters(event, 1);
    EventAccess::wakeOnWaiters(event);
    ASSERT_TRUE(log.waitFor("Wait OK, but Status(mOn)=false.  Timeout=600000msec Waited="));
    event.setOn();
    EXPECT_EQ(waiter.result(), 0);
    EXPECT_EQ(log.lines().size(), 1U);
}

// Waits on a clock and a condition that the test drives.

class EventOnATestClock : public testing::Test {
  protected:
    EventOnATestClock() {
        theNow = 1000000;
        theEnds.clear();
        theSteps.clear();
        theEvent = nullptr;
        hooks::clockGetTime.replace([](clockid_t clock, timespec* now) {
            if (clock != CLOCK_MONOTONIC) {
                return -1;
            }
            *now = {static_cast<time_t>(theNow / 1000), static_cast<long>(theNow % 1000 * 1000000)};
            return 0;
        });
        hooks::condTimedWait.replace([](pthread_cond_t*, pthread_mutex_t*, timespec const* end) {
            theEnds.push_back(*end);
            Step const step = theSteps.at(theEnds.size() - 1);
            theNow += step.elapsed;
            if (step.on) {
                theEvent->setOn();
            }
            return step.result;
        });
    }

    struct Step {
        unsigned int elapsed;
        int result;
        bool on;
    };

    static long long endInMs(std::size_t index) {
        return theEnds.at(index).tv_sec * 1000LL + theEnds.at(index).tv_nsec / 1000000;
    }

    static unsigned long long theNow;
    static std::vector<timespec> theEnds;
    static std::vector<Step> theSteps;
    static Event* theEvent;

    utltest::LogCapture mLog;

  private:
    utltest::HookScope mHooks;
};

unsigned long long EventOnATestClock::theNow = 0;
std::vector<timespec> EventOnATestClock::theEnds;
std::vector<EventOnATestClock::Step> EventOnATestClock::theSteps;
Event* EventOnATestClock::theEvent = nullptr;

TEST_F(EventOnATestClock, AWakeUpWithoutACause_IsLoggedWithTheTimesAndTheRestIsWaited) {
    theSteps = {{30, 0, false}, {70, ETIMEDOUT, false}};
    EXPECT_EQ(Event(0, 0).waitToOn(100), -2);
    EXPECT_EQ(mLog.lines(),
              Lines{"<UTIL> DTL: Wait OK, but Status(mOn)=false.  Timeout=100msec Waited=30msec "
                    "Retry wait 70msec after"});
    EXPECT_EQ(endInMs(0), 1000100);
    EXPECT_EQ(endInMs(1), 1000100);
}

TEST_F(EventOnATestClock, EachWakeUpWithoutACause_IsLoggedWithItsOwnWaitedTime) {
    theSteps = {{30, 0, false}, {20, 0, false}, {0, 0, false}, {50, ETIMEDOUT, false}};
    EXPECT_EQ(Event(0, 0).waitToOn(100), -2);
    EXPECT_EQ(mLog.lines(),
              (Lines{"<UTIL> DTL: Wait OK, but Status(mOn)=false.  Timeout=100msec Waited=30msec Retry wait "
                     "70msec after",
                     "<UTIL> DTL: Wait OK, but Status(mOn)=false.  Timeout=100msec Waited=20msec Retry wait "
                     "50msec after",
                     "<UTIL> DTL: Wait OK, but Status(mOn)=false.  Timeout=100msec Waited=0msec Retry wait "
                     "50msec after"}));
}

TEST_F(EventOnATestClock, WaitToOff_WokenWithoutACause_NamesTheOtherFlag) {
    theSteps = {{1, 0, false}, {99, ETIMEDOUT, false}};
    EXPECT_EQ(Event(1, 1).waitToOff(100), -2);
    EXPECT_EQ(mLog.lines(),
              Lines{"<UTIL> DTL: Wait OK, but Status(mOff)=false.  Timeout=100msec Waited=1msec "
                    "Retry wait 99msec after"});
}

TEST_F(EventOnATestClock, AWakeUpWithoutACauseAtOrBehindTheEnd_IsATimeOutWithoutALine) {
    for (unsigned int elapsed : {100U, 101U, 0x80000000U}) {
        theEnds.clear();
        theSteps = {{elapsed, 0, false}};
        EXPECT_EQ(Event(0, 0).waitToOn(100), -2) << elapsed;
    }
    EXPECT_EQ(mLog.lines(), Lines{});
}

TEST_F(EventOnATestClock, AWakeUpWithoutACauseOneMillisecondBeforeTheEnd_IsRetried) {
    theSteps = {{99, 0, false}, {1, ETIMEDOUT, false}};
    EXPECT_EQ(Event(0, 0).waitToOn(100), -2);
    EXPECT_EQ(mLog.lines().size(), 1U);
    EXPECT_EQ(theEnds.size(), 2U);
}

TEST_F(EventOnATestClock, AWakeUpBySetOn_IsDoneWithoutALine) {
    Event event(0, 0);
    theEvent = &event;
    theSteps = {{30, 0, true}};
    EXPECT_EQ(event.waitToOn(100), 0);
    EXPECT_EQ(mLog.lines(), Lines{});
}

TEST_F(EventOnATestClock, ATimeOutStandsEvenIfTheEventWentOnJustThen_AndTheConditionIsRenewed) {
    Event event(0, 0);
    theEvent = &event;
    theSteps = {{100, ETIMEDOUT, true}};
    hooks::condInit.failFrom(0, 0, 0, 0);
    EXPECT_EQ(event.waitToOn(100), -2);
    EXPECT_EQ(hooks::condInit.calls(), 1U);
}

TEST_F(EventOnATestClock, ABoundedWaitThatFails_IsAFailureAndNotATimeOut) {
    theSteps = {{0, EINVAL, false}};
    EXPECT_EQ(Event(0, 0).waitToOn(100), -1);
    theEnds.clear();
    theSteps = {{0, EPERM, false}};
    EXPECT_EQ(Event(1, 1).waitToOff(100), -1);
}

TEST_F(EventOnATestClock, AClockThatFails_FailsTheBoundedWait) {
    hooks::clockGetTime.failFrom(1, 0, -1, EINVAL);
    EXPECT_EQ(Event(0, 0).waitToOn(100), -1);
    EXPECT_EQ(theEnds.size(), 0U);
}

TEST_F(EventOnATestClock, AClockThatFailsBehindTheWait_MakesAWakeUpWithoutACauseATimeOut) {
    theSteps = {{1, 0, false}};
    hooks::clockGetTime.failFrom(3, 0, -1, EINVAL);  // the start, the end of the wait, the stop
    EXPECT_EQ(Event(0, 0).waitToOn(100), -2);
    EXPECT_EQ(theEnds.size(), 1U);
}

TEST_F(EventOnATestClock, TheEndOfAWait_CarriesNanosecondsExactlyWhereASecondIsFull) {
    struct {
        unsigned long long now;
        unsigned int timeout;
        time_t seconds;
        long nanoseconds;
    } const cases[] = {{5000, 1, 5, 1000000},
                       {5000, 999, 5, 999000000},
                       {5000, 1000, 6, 0},
                       {5999, 1, 6, 0},
                       {5998, 1, 5, 999000000},
                       {5500, 2499, 7, 999000000},
                       {5500, 2500, 8, 0},
                       {5999, 999, 6, 998000000},
                       {7000, 0x7FFFFFFFU, 2147490, 647000000},
                       {7000, 0x80000000U, -2147477, 352000000}};
    for (auto const& one : cases) {
        theNow = one.now;
        theEnds.clear();
        theSteps = {{0, ETIMEDOUT, false}};
        EXPECT_EQ(Event(0, 0).waitToOn(one.timeout), -2);
        EXPECT_EQ(theEnds.at(0).tv_sec, one.seconds) << one.now << " + " << one.timeout;
        EXPECT_EQ(theEnds.at(0).tv_nsec, one.nanoseconds) << one.now << " + " << one.timeout;
    }
}

// The conditions.

class EventConditions : public testing::Test {
  protected:
    EventConditions() { count(); }
    static void count() {
        hooks::condInit.failFrom(0, 0, 0, 0);
        hooks::condDestroy.failFrom(0, 0, 0, 0);
    }
    static unsigned int made() { return hooks::condInit.calls(); }
    static unsigned int destroyed() { return hooks::condDestroy.calls(); }

  private:
    utltest::HookScope mHooks;
};

TEST_F(EventConditions, ExistForEachStateThatCanBeAwaited) {
    for (int twoWay : {0, 1, 2}) {
        count();
        unsigned int const expected = twoWay == 1 ? 2 : 1;
        {
            Event const event(0, twoWay);
            EXPECT_EQ(made(), expected);
            EXPECT_EQ(destroyed(), 0U);
        }
        EXPECT_EQ(made(), expected);
        EXPECT_EQ(destroyed(), expected);
    }
}

TEST_F(EventConditions, RunOnTheMonotonicClock_TheRenewedOnesToo) {
    static std::atomic<unsigned int> others;
    others = 0;
    hooks::condInit.replace([](pthread_cond_t* condition, pthread_condattr_t const* attributes) {
        clockid_t clock = CLOCK_REALTIME;
        if (attributes != nullptr) {
            pthread_condattr_getclock(attributes, &clock);
        }
        others += clock == CLOCK_MONOTONIC ? 0U : 1U;
        return hooks::condInit.real(condition, attributes);
    });
    Event event(1, 1);
    event.waitToOn(0);
    event.setOff();
    event.waitToOff(0);
    EXPECT_EQ(made(), 4U);
    EXPECT_EQ(others, 0U);
}

TEST_F(EventConditions, AreRenewedByEveryWaitThatNeedNotBlock) {
    Event const event(1, 0);
    count();
    for (unsigned int i = 1; i <= 3; ++i) {
        event.waitToOn(0);
        EXPECT_EQ(made(), i);
        EXPECT_EQ(destroyed(), i);
    }
}

TEST_F(EventConditions, AreKeptByAWaitThatRanOut) {
    Event event(0, 1);
    count();
    EXPECT_EQ(event.waitToOn(1), -2);
    event.setOn();
    EXPECT_EQ(event.waitToOff(1), -2);
    EXPECT_EQ(made(), 0U);
}

TEST_F(EventConditions, AreKeptByAWaitForOffOnAOneWayEvent) {
    Event const event(0, 0);
    count();
    event.waitToOff(5);
    EXPECT_EQ(made(), 0U);
}

TEST_F(EventConditions, AreRenewedByTheLastOfTwoWaitersAlone) {
    Event event(0, 0);
    count();
    WaitingThread first([&] { return event.waitToOn(0); });
    WaitingThread second([&] { return event.waitToOn(0); });
    awaitOnWaiters(event, 2);
    event.setOn();
    EXPECT_EQ(first.result(), 0);
    EXPECT_EQ(second.result(), 0);
    EXPECT_EQ(made(), 1U);
    EXPECT_EQ(destroyed(), 1U);
}

TEST_F(EventConditions, AreKeptByAWaitThatNeedNotBlockWhileAnotherThreadIsStillInside) {
    Event event(0, 0);
    count();
    WaitingThread waiter([&] { return event.waitToOn(0); });
    awaitOnWaiters(event, 1);
    EventAccess::lock(event);
    event.setOn();
    EXPECT_EQ(event.waitToOn(5), 0);
    EXPECT_EQ(made(), 0U);
    EventAccess::unlock(event);
    EXPECT_EQ(waiter.result(), 0);
    EXPECT_EQ(made(), 1U);
}

TEST_F(EventConditions, AreRenewedForTheOffStateToo) {
    Event event(1, 1);
    count();
    WaitingThread waiter([&] { return event.waitToOff(600000); });
    awaitOffWaiters(event, 1);
    event.setOff();
    EXPECT_EQ(waiter.result(), 0);
    EXPECT_EQ(made(), 1U);
}

std::vector<void const*> gTouched;

TEST_F(EventConditions, AreDestroyedOnBeforeOff_AndTheMutexLast) {
    hooks::condDestroy.replace([](pthread_cond_t* condition) {
        gTouched.push_back(condition);
        return hooks::condDestroy.real(condition);
    });
    hooks::mutexDestroy.replace([](pthread_mutex_t* mutex) {
        gTouched.push_back(mutex);
        return hooks::mutexDestroy.real(mutex);
    });
    for (int twoWay : {0, 1}) {
        auto event = std::make_unique<Event>(0, twoWay);
        std::vector<void const*> expected{EventAccess::onCondition(*event)};
        if (twoWay == 1) {
            expected.push_back(EventAccess::offCondition(*event));
        }
        expected.push_back(EventAccess::mutex(*event));
        gTouched.clear();
        event.reset();
        EXPECT_EQ(gTouched, expected) << twoWay;
    }
}

TEST_F(EventConditions, AreBroadcastByEverySet_ButNeverByTheSetOffOfAOneWayEvent) {
    hooks::condBroadcast.replace([](pthread_cond_t* condition) {
        gTouched.push_back(condition);
        return hooks::condBroadcast.real(condition);
    });
    for (int twoWay : {0, 1, 2}) {
        Event event(1, twoWay);
        void const* const on = EventAccess::onCondition(event);
        void const* const off = EventAccess::offCondition(event);
        gTouched.clear();
        event.setOn();
        event.setOn();
        EXPECT_EQ(gTouched, (std::vector<void const*>{on, on})) << twoWay;
        gTouched.clear();
        event.setOff();
        event.setOff();
        std::vector<void const*> const expected(twoWay == 1 ? 2 : 0, off);
        EXPECT_EQ(gTouched, expected) << twoWay;
    }
}

// The layout.

TEST(Event, HasItsFieldsInTheOrderThatItsUsersWereBuiltWith) {
    Event const event(0, 0);
    std::vector<std::size_t> const fields = EventAccess::fields(event);
    EXPECT_GT(fields.front(), 0U);
    EXPECT_TRUE(utltest::areRising(fields));
}

// Shared events.

TEST(SharedEvent, OutlivesAllHandlesButTheLast) {
    utl::SmartPointer<Event> first(new Event(0, 0));
    utl::SmartPointer<Event> second(first);
    first->setOn();
    first.release();
    EXPECT_TRUE((*second).isOn());
    EXPECT_EQ(second->waitToOn(0), 0);
}

TEST(SharedEvent, IsDestroyedWithTheLastHandle) {
    utltest::HookScope const hooksScope;
    hooks::condDestroy.failFrom(0, 0, 0, 0);
    {
        utl::SmartPointer<Event> handle(new Event(0, 1));
        EXPECT_EQ(hooks::condDestroy.calls(), 0U);
    }
    EXPECT_EQ(hooks::condDestroy.calls(), 2U);
}

}  // namespace

#include "UtlThread.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TestGate.h"
#include "TestHooks.h"
#include "TestLog.h"
#include "TestThreads.h"
#include "UtlLog.h"

namespace {

using utl::StatementInfo;
using utl::Thread;
using utl::ThreadManager;
using utl::ThreadPriority;
using utl::ThreadWatchdog;
using utl::WatchdogInfo;
using utltest::Gate;
using utltest::HeldThread;
using utltest::HookScope;
using utltest::kernelId;
using utltest::LogCapture;
using Access = utltest::ThreadManagerAccess;
namespace hooks = utltest::hooks;

// A thread that notes what is called on it, and stays in `preExecute`, `execute` and `postExecute` as long as
// the test wants.
class NotingThread : public Thread {
  public:
    explicit NotingThread(char const* name = "noting", int result = 0) : Thread(name), mResult(result) {
        mPre.open();
        mPost.open();
    }
    ~NotingThread() override {
        letAllGo();
        stop(Thread::AWAIT_END);
        leaveManagement();
    }

    void letAllGo() {
        mPre.open();
        mExecute.open();
        mPost.open();
    }

    void letExecuteGo() { mExecute.open(); }
    void letPreExecuteGo() { mPre.open(); }
    void letPostExecuteGo() { mPost.open(); }

    void holdInPreExecute() { mPre.close(); }
    void holdInPostExecute() { mPost.close(); }

    void waitForPreExecute() { EXPECT_TRUE(mPre.waitUntilHeld()); }
    void waitForExecute() { EXPECT_TRUE(mExecute.waitUntilHeld()); }
    void waitForPostExecute() { EXPECT_TRUE(mPost.waitUntilHeld()); }

    /// Ends the thread and waits for that.
    void end() {
        letAllGo();
        EXPECT_EQ(waitTo(FINISHED), 0);
    }

    std::string calls() const {
        std::lock_guard<std::mutex> const guard(mMutex);
        return mCalls;
    }

    std::string seenInPreExecute() const {
        std::lock_guard<std::mutex> const guard(mMutex);
        return mSeen;
    }

    std::atomic<int> stopRequests{0};
    std::atomic<int> stopRequestedBy{0};
    std::atomic<int> idInPreExecute{-1};
    std::atomic<int> callerIdInPreExecute{-1};

  protected:
    void preExecute() override {
        note("pre ");
        idInPreExecute = getId();
        callerIdInPreExecute = ThreadManager::getCallerId();
        noteRegistration();
        EXPECT_TRUE(mPre.hold());
    }
    int execute() override {
        note("execute ");
        EXPECT_TRUE(mExecute.hold());
        return mResult;
    }
    void postExecute() override {
        note("post ");
        EXPECT_TRUE(mPost.hold());
    }
    void requestStop() override {
        stopRequestedBy = kernelId();
        ++stopRequests;
    }

  private:
    void noteRegistration() {
        ThreadManager& manager = *ThreadManager::get();
        std::string seen = hasDone(STARTED) ? "started " : "";
        seen += isRunning() && manager.isThreadActive(kernelId()) ? "running " : "";
        seen += std::string(manager.getName(kernelId())) + " ";
        seen += manager.isRegisteredWatchdog(0) ? "watched " : "";
        std::lock_guard<std::mutex> const guard(mMutex);
        mSeen = seen;
    }
    void note(char const* call) {
        std::lock_guard<std::mutex> const guard(mMutex);
        mCalls += call;
    }

    int const mResult;
    mutable std::mutex mMutex;
    std::string mCalls;
    std::string mSeen;
    Gate mPre;
    Gate mExecute;
    Gate mPost;
};

static_assert(Thread::WITHOUT_WATCHDOG == 0 && Thread::WITH_WATCHDOG == 1);
static_assert(Thread::START_ONLY == 0 && Thread::AWAIT_READY == 1);
static_assert(Thread::REQUEST_ONLY == 0 && Thread::AWAIT_END == 1);
static_assert(Thread::STARTED == 0 && Thread::READY == 1 && Thread::STOP_REQUESTED == 2 &&
              Thread::FINISHED == 3);

static_assert(noexcept(std::declval<Thread&>().hasDone(0)));
static_assert(noexcept(std::declval<Thread&>().hasRequestedStop()));
static_assert(noexcept(std::declval<Thread&>().isRunning()));
static_assert(noexcept(std::declval<Thread&>().getResult(nullptr)));
static_assert(noexcept(std::declval<Thread&>().getId()) && noexcept(std::declval<Thread&>().getName()));

using ThreadLife = utltest::WithManager;

TEST_F(ThreadLife, ANewThread_IsNotStarted) {
    NotingThread const thread("name");
    EXPECT_STREQ(thread.getName().buffer(), "name");
    EXPECT_EQ(thread.getId(), 0);
    EXPECT_FALSE(thread.isRunning());
    EXPECT_FALSE(thread.hasRequestedStop());
    for (int milestone : {0, 1, 2, 3}) {
        EXPECT_FALSE(thread.hasDone(milestone)) << milestone;
    }
}

TEST_F(ThreadLife, ANullName_IsAnEmptyOne) {
    Thread thread(nullptr);
    EXPECT_STREQ(thread.getName().buffer(), "");
    EXPECT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.waitTo(Thread::FINISHED), 0);
    EXPECT_TRUE(thread.leaveManagement());
}

TEST_F(ThreadLife, TheName_IsCopied) {
    std::string name("name");
    Thread const thread(name.c_str());
    name[0] = 'X';
    EXPECT_STREQ(thread.getName().buffer(), "name");
}

TEST_F(ThreadLife, Start_RunsTheStepsOnceAndInOrderOnANewThread) {
    NotingThread thread("name");
    EXPECT_EQ(thread.start(), 0);
    thread.end();
    EXPECT_EQ(thread.calls(), "pre execute post ");
    EXPECT_EQ(thread.callerIdInPreExecute, thread.getId());
    EXPECT_NE(thread.getId(), kernelId());
}

TEST_F(ThreadLife, Start_RegistersTheThread) {
    NotingThread thread("name");
    EXPECT_EQ(thread.start(0, 0, nullptr, 1, 0, ThreadPriority(ThreadPriority::LOW)), 0);
    EXPECT_STREQ(manager().getName(thread.getId()), "name");
    EXPECT_TRUE(thread.isRunning());
    ThreadPriority priority;
    EXPECT_TRUE(thread.getPriority(&priority));
    EXPECT_EQ(priority.value(), ThreadPriority::LOW);
}

TEST_F(ThreadLife, Start_ByDefault_IsNotWatchedNormalAndReady) {
    restingWatchdog();
    NotingThread thread;
    EXPECT_EQ(thread.start(), 0);
    EXPECT_TRUE(thread.hasDone(Thread::READY));
    EXPECT_FALSE(manager().isRegisteredWatchdog(thread.getId()));
    ThreadPriority priority;
    EXPECT_TRUE(thread.getPriority(&priority));
    EXPECT_EQ(priority.value(), ThreadPriority::NORMAL);
}

TEST_F(ThreadLife, Start_WithWatchdog1_RegistersTheThreadThere) {
    struct : utl::WatchdogTimerListener {
        void onTime(int, utl::WatchdogInfos const&) override {}
    } listener;
    ThreadWatchdog& watchdog = restingWatchdog();
    NotingThread thread("watched");
    EXPECT_EQ(thread.start(1, 321, &listener, 0, 0, ThreadPriority(), 99), 0);
    ASSERT_TRUE(watchdog.isRegistered(thread.getId()));
    EXPECT_EQ(*watchdog.findWatchdogInfo(thread.getId()),
              WatchdogInfo(thread.getId(), 321, &listener, "watched", 1));
}

TEST_F(ThreadLife, Start_WaitingForReady_ReturnsWhenPreExecuteHas) {
    NotingThread thread;
    thread.holdInPreExecute();
    std::atomic<bool> returned{false};
    std::thread starter([&] {
        EXPECT_EQ(thread.start(0, 0, nullptr, 1, 0, ThreadPriority(), 0), 0);
        EXPECT_TRUE(thread.hasDone(Thread::READY));
        returned = true;
    });
    thread.waitForPreExecute();
    EXPECT_FALSE(returned);
    EXPECT_FALSE(thread.hasDone(Thread::READY));
    thread.letPreExecuteGo();
    starter.join();
}

TEST_F(ThreadLife, Start_WaitingForReadyTooShort_TellsTheTimeOutAndTheThreadRuns) {
    NotingThread thread;
    thread.holdInPreExecute();
    EXPECT_EQ(thread.start(0, 0, nullptr, 1, 20), -2);
    EXPECT_TRUE(thread.hasDone(Thread::STARTED));
    EXPECT_TRUE(thread.isRunning());
    EXPECT_EQ(thread.start(), -1);
    thread.letPreExecuteGo();
    EXPECT_EQ(thread.waitTo(Thread::READY), 0);
}

TEST_F(ThreadLife, Start_NotWaitingForReady_ReturnsBeforePreExecuteHas) {
    for (int waitReady : {0, 2, -1}) {
        NotingThread thread;
        thread.holdInPreExecute();
        EXPECT_EQ(thread.start(0, 0, nullptr, waitReady, 1), 0);
        EXPECT_TRUE(thread.hasDone(Thread::STARTED));
        EXPECT_FALSE(thread.hasDone(Thread::READY));
    }
}

TEST_F(ThreadLife, Start_ASecondTime_FailsAndLeavesTheFirstThreadAlone) {
    NotingThread thread;
    EXPECT_EQ(thread.start(), 0);
    int const id = thread.getId();
    EXPECT_EQ(thread.start(), -1);
    EXPECT_EQ(thread.getId(), id);
    EXPECT_TRUE(thread.isRunning());
    EXPECT_FALSE(thread.hasRequestedStop());
}

TEST_F(ThreadLife, Start_OfAThreadThatHasFinished_Fails) {
    NotingThread thread;
    EXPECT_EQ(thread.start(), 0);
    thread.end();
    EXPECT_EQ(thread.start(), -1);
    EXPECT_TRUE(thread.leaveManagement());
    EXPECT_EQ(thread.start(), -1);
    EXPECT_EQ(thread.calls(), "pre execute post ");
}

TEST_F(ThreadLife, Start_RefusedByTheSystem_FailsAndMayBeTriedAgain) {
    manager();
    HookScope const scope;
    LogCapture const log;
    NotingThread thread("refused");
    hooks::threadCreate.failFrom(1, 1, EAGAIN, 0);
    EXPECT_EQ(thread.start(), -1);
    EXPECT_EQ(thread.getId(), 0);
    EXPECT_FALSE(thread.hasDone(Thread::STARTED));
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{"<UTIL> ERR: Thread Start Failed  Ret:11, PriOs:0, Name:refused"});
    EXPECT_EQ(thread.start(), 0);
    thread.end();
    EXPECT_EQ(thread.calls(), "pre execute post ");
}

TEST_F(ThreadLife, Start_InAFullTable_FailsAndMayBeTriedAgain) {
    fillTable(128, 0);
    NotingThread thread("late");
    EXPECT_EQ(thread.start(), -1);
    Access::eraseEntry(utltest::NO_THREAD);
    EXPECT_EQ(thread.start(), 0);
}

// The last place goes to another thread while this one is created.
int createWhileThePlaceGoes(pthread_t* thread, pthread_attr_t const* attributes, void* (*entry)(void*),
                            void* argument) {
    Access::storeEntry(utltest::NO_THREAD, utltest::foreignEntry("the faster one"));
    return hooks::threadCreate.real(thread, attributes, entry, argument);
}

TEST_F(ThreadLife, Start_WhoseRegistrationFails_LetsTheThreadRunToItsEnd) {
    EXPECT_TRUE(ThreadManager::initializeEntryMax(2));
    manager();
    HookScope const scope;
    LogCapture const log;
    NotingThread thread("late");
    thread.letAllGo();
    hooks::threadCreate.replace(createWhileThePlaceGoes);
    EXPECT_EQ(thread.start(), -1);
    EXPECT_EQ(thread.getId(), 0);
    EXPECT_FALSE(thread.hasDone(Thread::STARTED));
    EXPECT_EQ(log.lines().size(), 1U);
    while (!thread.hasDone(Thread::FINISHED)) {
        std::this_thread::yield();
    }
    EXPECT_EQ(thread.calls(), "pre execute post ");
}

// The id.

NotingThread* gStarted;

// The registration's line is written by the starter before `start` stores the id.
int lookAtTheStartedThread(timeval* out, void* zone) {
    for (int i = 0; i < 1000; ++i) {
        std::this_thread::yield();
    }
    EXPECT_EQ(gStarted->calls(), "");
    return hooks::getTimeOfDay.real(out, zone);
}

TEST_F(ThreadLife, PreExecute_RunsWhenTheRegistrationIsComplete) {
    HookScope const scope;
    LogCapture const log;
    manager().enableRegistrationLog();
    NotingThread thread;
    gStarted = &thread;
    hooks::getTimeOfDay.replace(lookAtTheStartedThread);
    EXPECT_EQ(thread.start(1, 1000), 0);
    EXPECT_EQ(thread.idInPreExecute, thread.getId());
    EXPECT_EQ(thread.callerIdInPreExecute, thread.getId());
    EXPECT_EQ(thread.seenInPreExecute(), "started running noting watched ");
}

// Milestones and waits.

using ThreadMilestone = utltest::WithManager;

TEST_F(ThreadMilestone, ANumberOutsideTheTable_IsNeverDoneAndCannotBeWaitedFor) {
    NotingThread thread;
    for (bool started : {false, true}) {
        if (started) {
            EXPECT_EQ(thread.start(), 0);
        }
        for (int number : {4, 7, -1, INT32_MAX, INT32_MIN}) {
            EXPECT_FALSE(thread.hasDone(number)) << number;
            EXPECT_EQ(thread.waitTo(number, 0), -1) << number;
        }
    }
}

TEST_F(ThreadMilestone, OfAThreadNotYetStarted_StopAndFinishCannotBeWaitedFor) {
    NotingThread thread;
    EXPECT_EQ(thread.waitTo(Thread::STOP_REQUESTED, 0), -1);
    EXPECT_EQ(thread.waitTo(Thread::FINISHED, 0), -1);
}

TEST_F(ThreadMilestone, OfAThreadNotYetStarted_StartAndReadyAreWaitedFor) {
    NotingThread thread;
    EXPECT_EQ(thread.waitTo(Thread::STARTED, 20), -2);
    EXPECT_EQ(thread.waitTo(Thread::READY, 20), -2);
    std::thread waiter([&thread] {
        EXPECT_EQ(thread.waitTo(Thread::STARTED, 0), 0);
        EXPECT_EQ(thread.waitTo(Thread::READY, 0), 0);
        EXPECT_TRUE(thread.hasDone(Thread::READY));
    });
    EXPECT_EQ(thread.start(), 0);
    waiter.join();
}

TEST_F(ThreadMilestone, ReachedMilestones_AreWaitedForInNoTime) {
    NotingThread thread;
    EXPECT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.stop(Thread::REQUEST_ONLY), 0);
    for (int milestone : {0, 1, 2}) {
        EXPECT_EQ(thread.waitTo(milestone, 0), 0) << milestone;
        EXPECT_EQ(thread.waitTo(milestone, 1), 0) << milestone;
    }
    thread.end();
    EXPECT_EQ(thread.waitTo(Thread::FINISHED, 1), 0);
    for (int milestone : {0, 1, 2, 3}) {
        EXPECT_TRUE(thread.hasDone(milestone)) << milestone;
    }
}

TEST_F(ThreadMilestone, OfARunningThread_StopAndFinishAreWaitedForAsLongAsTold) {
    NotingThread thread;
    EXPECT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.waitTo(Thread::STOP_REQUESTED, 20), -2);
    EXPECT_EQ(thread.waitTo(Thread::FINISHED, 20), -2);
}

TEST_F(ThreadMilestone, AWait_BelievesNoWakeUpThatHasNoCause) {
    HookScope const scope;
    NotingThread thread;
    hooks::condWait.failFrom(1, 5, 0, 0);
    std::thread waiter([&thread] {
        EXPECT_EQ(thread.waitTo(Thread::READY, 0), 0);
        EXPECT_TRUE(thread.hasDone(Thread::READY));
    });
    while (hooks::condWait.calls() < 6) {
        std::this_thread::yield();
    }
    hooks::condWait.reset();
    EXPECT_EQ(thread.start(), 0);
    waiter.join();
}

TEST_F(ThreadMilestone, InPostExecute_TheThreadHasNotFinishedAndHasNoResult) {
    NotingThread thread("slow", 5);
    thread.holdInPostExecute();
    EXPECT_EQ(thread.start(), 0);
    thread.letExecuteGo();
    thread.waitForPostExecute();
    unsigned int result = 1234;
    EXPECT_FALSE(thread.hasDone(Thread::FINISHED));
    EXPECT_FALSE(thread.getResult(&result));
    EXPECT_EQ(result, 1234U);
}

// Holds the thread between its last milestone and its end, which is the lock after the milestone's.
class HeldEnd {
  public:
    explicit HeldEnd(int threadId) {
        sThreadId = threadId;
        sLocks = 0;
        sGate.close();
        hooks::condBroadcast.replace([](pthread_cond_t* condition) {
            if (kernelId() == sThreadId && ++sLocks == 1) {
                EXPECT_TRUE(sGate.hold());
            }
            return hooks::condBroadcast.real(condition);
        });
    }
    ~HeldEnd() { letGo(); }
    static void waitUntilReached() { EXPECT_TRUE(sGate.waitUntilHeld()); }
    static void letGo() { sGate.open(); }

  private:
    static inline std::atomic<int> sThreadId{0};
    static inline std::atomic<int> sLocks{0};
    static inline Gate sGate;
};

TEST_F(ThreadMilestone, Finished_WaitsForTheEndAsWell) {
    HookScope const scope;
    NotingThread thread;
    thread.holdInPostExecute();
    EXPECT_EQ(thread.start(), 0);
    thread.letExecuteGo();
    thread.waitForPostExecute();
    HeldEnd end(thread.getId());
    thread.letPostExecuteGo();
    end.waitUntilReached();
    EXPECT_FALSE(thread.hasDone(Thread::FINISHED));
    EXPECT_TRUE(thread.isRunning());
    EXPECT_FALSE(thread.leaveManagement());
    end.letGo();
    EXPECT_EQ(thread.waitTo(Thread::FINISHED), 0);
    EXPECT_TRUE(thread.hasDone(Thread::FINISHED));
    EXPECT_TRUE(thread.leaveManagement());
}

// Results.

using ThreadResult = utltest::WithManager;

struct FixedCommand : utl::Command {
    explicit FixedCommand(int result) : mResult(result) {}
    int execute() override {
        mRanOn = kernelId();
        return mResult;
    }
    int const mResult;
    std::atomic<int> mRanOn{0};
};

unsigned int resultOf(Thread& thread) {
    EXPECT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.waitTo(Thread::FINISHED), 0);
    unsigned int result = 1234;
    EXPECT_TRUE(thread.getResult(&result));
    EXPECT_TRUE(thread.leaveManagement());
    return result;
}

TEST_F(ThreadResult, OfACommand_IsWhatItReturned) {
    FixedCommand command(77);
    Thread thread("command", &command);
    EXPECT_EQ(resultOf(thread), 77U);
    EXPECT_EQ(command.mRanOn, thread.getId());
}

TEST_F(ThreadResult, WithoutACommand_IsMinusOneUnsigned) {
    Thread thread("nothing to do");
    EXPECT_EQ(resultOf(thread), 0xFFFFFFFFU);
}

TEST_F(ThreadResult, OfAnOverriddenExecute_IsWhatItReturned) {
    NotingThread thread("overridden", -2);
    thread.letAllGo();
    EXPECT_EQ(resultOf(thread), 0xFFFFFFFEU);
}

TEST_F(ThreadResult, BeforeTheEndAndForNull_CannotBeHad) {
    NotingThread thread("running", 5);
    unsigned int result = 1234;
    EXPECT_FALSE(thread.getResult(&result));
    EXPECT_EQ(thread.start(), 0);
    EXPECT_FALSE(thread.getResult(&result));
    EXPECT_EQ(result, 1234U);
    thread.end();
    EXPECT_FALSE(thread.getResult(nullptr));
    EXPECT_TRUE(thread.getResult(&result));
    EXPECT_EQ(result, 5U);
}

// Stopping.

using ThreadStop = utltest::WithManager;

TEST_F(ThreadStop, OfAThreadThatWasNotStarted_FailsWithoutEffect) {
    NotingThread thread;
    EXPECT_EQ(thread.stop(Thread::AWAIT_END), -1);
    EXPECT_FALSE(thread.hasRequestedStop());
    EXPECT_EQ(thread.stopRequests, 0);
}

TEST_F(ThreadStop, OfAThreadThatHasFinished_FailsWithoutEffect) {
    NotingThread thread;
    EXPECT_EQ(thread.start(), 0);
    thread.end();
    EXPECT_EQ(thread.stop(Thread::AWAIT_END), -1);
    EXPECT_FALSE(thread.hasRequestedStop());
    EXPECT_EQ(thread.stopRequests, 0);
}

// Between its last milestone and its end a thread still runs, however long the system keeps it there.
TEST_F(ThreadStop, OfAThreadInItsLastStep_RequestsAndWaitsAsTold) {
    HookScope const scope;
    auto thread = std::make_unique<NotingThread>();
    thread->holdInPostExecute();
    EXPECT_EQ(thread->start(), 0);
    thread->letExecuteGo();
    thread->waitForPostExecute();
    HeldEnd end(thread->getId());
    thread->letPostExecuteGo();
    end.waitUntilReached();
    EXPECT_EQ(thread->stop(Thread::REQUEST_ONLY), 0);
    EXPECT_EQ(thread->stop(1, 300), -2);
    EXPECT_EQ(thread->stopRequests, 2);
    EXPECT_TRUE(thread->hasRequestedStop());
    EXPECT_FALSE(thread->leaveManagement());
    int const id = thread->getId();
    std::thread releaser([&end] { end.letGo(); });
    thread.reset();
    releaser.join();
    EXPECT_FALSE(manager().isThreadExist(id));
}

TEST_F(ThreadStop, OfThreadsThatEndByThemselves_LeavesNoPlaceBehind) {
    struct Short : Thread {
        Short() : Thread("short") {}
        ~Short() override {
            stop(Thread::AWAIT_END);
            EXPECT_TRUE(leaveManagement());
        }

      protected:
        int execute() override { return 0; }
    };
    for (int i = 0; i < 300; ++i) {
        Short thread;
        ASSERT_EQ(thread.start(0, 0, nullptr, i % 2), 0);
    }
}

// The advice to a watched thread that ends by itself, followed at once.
TEST_F(ThreadLife, AThreadThatLeavesTheWatchdogAtOnce_KeepsNoPlaceThere) {
    struct Leaving : utl::Command {
        int execute() override { return manager().unregisterWatchdog() ? 1 : 0; }
    } command;
    for (int i = 0; i < 300; ++i) {
        Thread thread("leaving", &command);
        ASSERT_EQ(thread.start(1, 1000, nullptr, 0), 0);
        ASSERT_EQ(thread.waitTo(Thread::FINISHED), 0);
        unsigned int left = 0;
        EXPECT_TRUE(thread.getResult(&left));
        EXPECT_EQ(left, 1U);
        EXPECT_FALSE(manager().isRegisteredWatchdog(thread.getId()));
        EXPECT_TRUE(thread.leaveManagement());
    }
}

TEST_F(ThreadStop, OfAThreadThatLeavesByPthreadExit_SeesItsEnd) {
    struct Leaving : utl::Command {
        int execute() override { pthread_exit(nullptr); }
    } command;
    Thread thread("leaving", &command);
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.waitTo(Thread::FINISHED), 0);
    EXPECT_FALSE(thread.isRunning());
    EXPECT_FALSE(thread.hasDone(Thread::FINISHED)) << "it has not finished";
    EXPECT_TRUE(thread.leaveManagement());
}

TEST_F(ThreadStop, WithoutWaiting_ReturnsWhileTheThreadRunsOn) {
    NotingThread thread;
    EXPECT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.stop(Thread::REQUEST_ONLY), 0);
    EXPECT_EQ(thread.stop(2, 0), 0);
    EXPECT_TRUE(thread.isRunning());
    EXPECT_TRUE(thread.hasRequestedStop());
    EXPECT_TRUE(thread.hasDone(Thread::STOP_REQUESTED));
    EXPECT_EQ(thread.stopRequests, 2);
    EXPECT_EQ(thread.stopRequestedBy, kernelId());
}

TEST_F(ThreadStop, Waiting_EndsWithTheTime) {
    NotingThread thread;
    EXPECT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.stop(1, 20), -2);
    EXPECT_TRUE(thread.hasRequestedStop());
}

TEST_F(ThreadStop, ByDefault_WaitsForTheEnd) {
    class Obedient : public Thread {
      public:
        Obedient() : Thread("obedient") {}
        ~Obedient() override {
            stop();
            leaveManagement();
        }

      protected:
        int execute() override {
            EXPECT_TRUE(mGate.hold());
            return 0;
        }
        void requestStop() override { mGate.open(); }

      private:
        Gate mGate;
    } thread;
    EXPECT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.stop(), 0);
    EXPECT_TRUE(thread.hasDone(Thread::FINISHED));
    EXPECT_FALSE(thread.isRunning());
}

TEST_F(ThreadStop, TakesTheThreadFromTheWatchdogAndReachesTheMilestoneBeforeItRequests) {
    class Asking : public NotingThread {
      public:
        ~Asking() override { end(); }
        std::atomic<bool> wasRegistered{true};
        std::atomic<bool> hadRequested{false};

      protected:
        void requestStop() override {
            wasRegistered = ThreadManager::get()->isRegisteredWatchdog(getId());
            hadRequested = hasRequestedStop();
        }
    } thread;
    restingWatchdog();
    EXPECT_EQ(thread.start(1, 1000, nullptr), 0);
    EXPECT_TRUE(manager().isRegisteredWatchdog(thread.getId()));
    EXPECT_EQ(thread.stop(Thread::REQUEST_ONLY), 0);
    EXPECT_FALSE(thread.wasRegistered);
    EXPECT_TRUE(thread.hadRequested);
}

TEST_F(ThreadStop, WaitsUntilAStartHasReturned) {
    NotingThread thread;
    thread.holdInPreExecute();
    std::thread starter([&thread] { EXPECT_EQ(thread.start(), 0); });
    thread.waitForPreExecute();
    std::thread stopper([&thread] { EXPECT_EQ(thread.stop(Thread::REQUEST_ONLY), 0); });
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(thread.stopRequests, 0);
        std::this_thread::yield();
    }
    thread.letPreExecuteGo();
    starter.join();
    stopper.join();
    EXPECT_EQ(thread.stopRequests, 1);
}

TEST_F(ThreadStop, WhileItWaits_OthersMayAskAndStop) {
    NotingThread thread;
    EXPECT_EQ(thread.start(), 0);
    std::thread stopper([&thread] { EXPECT_EQ(thread.stop(Thread::AWAIT_END), 0); });
    EXPECT_EQ(thread.waitTo(Thread::STOP_REQUESTED, 0), 0);
    EXPECT_FALSE(thread.hasDone(Thread::FINISHED));
    EXPECT_EQ(thread.stop(Thread::REQUEST_ONLY), 0);
    thread.letAllGo();
    stopper.join();
}

struct HeldCommand : utl::Command {
    int execute() override {
        EXPECT_TRUE(mGate.hold());
        mDone = true;
        return 0;
    }
    Gate mGate;
    std::atomic<bool> mDone{false};
};

TEST_F(ThreadStop, TheDestructor_WaitsForAThreadThatEndsByItself) {
    HeldCommand command;
    std::thread releaser;
    int id = 0;
    {
        Thread thread("ends by itself", &command);
        EXPECT_EQ(thread.start(), 0);
        id = thread.getId();
        releaser = std::thread([&thread, &command] {
            EXPECT_EQ(thread.waitTo(Thread::STOP_REQUESTED, 0), 0);  // the destructor has asked
            command.mGate.open();
        });
    }
    EXPECT_TRUE(command.mDone);
    releaser.join();
    EXPECT_TRUE(manager().unregister(id));
}

TEST_F(ThreadStop, TheDestructor_WaitsForAThreadThatTheManagerForgot) {
    HeldCommand command;
    auto thread = std::make_unique<Thread>("forgotten", &command);
    EXPECT_EQ(thread->start(), 0);
    ThreadManager::destroy();
    std::thread releaser([&command] { command.mGate.open(); });
    thread.reset();
    EXPECT_TRUE(command.mDone);
    releaser.join();
}

// The kernel gives the id of a thread that has ended to a new one.
TEST_F(ThreadStop, OfAThreadWhoseIdIsAnotherThreadsNow_DoesNotWaitForThat) {
    HeldThread const stranger("stranger");
    auto thread = std::make_unique<NotingThread>();
    EXPECT_EQ(thread->start(), 0);
    thread->end();
    EXPECT_TRUE(thread->leaveManagement());
    int const id = thread->getId();
    EXPECT_TRUE(Access::storeEntry(id, Access::copyEntry(stranger.id())));
    EXPECT_TRUE(manager().isThreadActive(id));
    EXPECT_EQ(thread->stop(Thread::AWAIT_END), -1);
    EXPECT_FALSE(thread->hasRequestedStop());
    thread.reset();
    EXPECT_TRUE(manager().isThreadActive(id));
    Access::eraseEntry(id);
}

// The place in the manager's table, and what is forwarded.

using ThreadForward = utltest::WithManager;

TEST_F(ThreadForward, LeaveManagement_IsRefusedUntilTheThreadHasEnded) {
    NotingThread thread;
    EXPECT_FALSE(thread.leaveManagement());
    EXPECT_EQ(thread.start(), 0);
    EXPECT_FALSE(thread.leaveManagement());
    thread.end();
    EXPECT_TRUE(manager().isThreadExist(thread.getId()));
    EXPECT_TRUE(thread.leaveManagement());
    EXPECT_FALSE(manager().isThreadExist(thread.getId()));
    EXPECT_FALSE(thread.leaveManagement());
}

TEST_F(ThreadForward, AThreadThatHasLeft_StillKnowsItsEnd) {
    NotingThread thread("left", 5);
    EXPECT_EQ(thread.start(), 0);
    thread.end();
    EXPECT_TRUE(thread.leaveManagement());
    EXPECT_TRUE(thread.hasDone(Thread::FINISHED));
    EXPECT_EQ(thread.waitTo(Thread::FINISHED, 0), -1);
    EXPECT_EQ(thread.stop(Thread::AWAIT_END), -1);
    unsigned int result = 0;
    EXPECT_TRUE(thread.getResult(&result));
    EXPECT_EQ(result, 5U);
    EXPECT_NE(thread.getId(), 0);
}

TEST_F(ThreadForward, SetPriority_IsTheThreadsOwnAffair) {
    class Changing : public Thread {
      public:
        Changing() : Thread("changing") {}
        ~Changing() override {
            stop();
            leaveManagement();
        }
        std::atomic<bool> set{false};
        std::atomic<int> seen{0};

      protected:
        int execute() override {
            set = setPriority(ThreadPriority(ThreadPriority::IDLE));
            ThreadPriority priority;
            getPriority(&priority);
            seen = priority.value();
            return 0;
        }
    } thread;
    HookScope const scope;
    hooks::setPriority.replace([](int, unsigned int, int) { return 0; });
    EXPECT_EQ(thread.start(), 0);
    EXPECT_FALSE(thread.setPriority(ThreadPriority(ThreadPriority::LOW)));
    EXPECT_EQ(thread.waitTo(Thread::FINISHED), 0);
    EXPECT_TRUE(thread.set);
    EXPECT_EQ(thread.seen, static_cast<int>(ThreadPriority::IDLE));
    ThreadPriority priority;
    EXPECT_FALSE(thread.getPriority(&priority));
}

TEST_F(ThreadForward, TheWatchdogsOperations_ActOnTheThread) {
    ThreadWatchdog& watchdog = restingWatchdog();
    NotingThread thread;
    EXPECT_EQ(thread.start(1, 1000, nullptr), 0);
    EXPECT_TRUE(thread.startWatchdog());
    EXPECT_TRUE(watchdog.isWatching(thread.getId()));
    EXPECT_TRUE(thread.setWatchdogAliveTime(2000));
    EXPECT_EQ(watchdog.findWatchdogInfo(thread.getId())->aliveTime, 2000U);
    EXPECT_TRUE(thread.stopWatchdog());
    EXPECT_FALSE(watchdog.isWatching(thread.getId()));
}

TEST_F(ThreadForward, TheWatchdogsOperations_BeforeTheStart_ActOnTheCaller) {
    ThreadWatchdog& watchdog = restingWatchdog();
    EXPECT_TRUE(manager().entryWatchdog(1000, nullptr));
    NotingThread thread;
    EXPECT_TRUE(thread.startWatchdog());
    EXPECT_TRUE(watchdog.isWatching(kernelId()));
    EXPECT_TRUE(thread.setWatchdogAliveTime(2000));
    EXPECT_EQ(watchdog.findWatchdogInfo(kernelId())->aliveTime, 2000U);
    EXPECT_TRUE(thread.stopWatchdog());
    EXPECT_FALSE(watchdog.isWatching(kernelId()));
}

TEST_F(ThreadForward, KeepAlive_IsTheCallingThreadsSignOfLife) {
    ThreadWatchdog& watchdog = restingWatchdog();
    EXPECT_TRUE(manager().entryWatchdog(1000, nullptr));
    EXPECT_TRUE(manager().startWatchdog());
    StatementInfo const place("file", "function", 1, 2);
    Thread::keepAliveWatchdog(place);
    EXPECT_EQ(watchdog.findWatchdogInfo(kernelId())->lastStatement, place);
}

TEST_F(ThreadForward, StartImpl_RunsTheStepsAndFreesTheCell) {
    NotingThread thread("here", 5);
    thread.letAllGo();
    Thread::startImpl(new Thread*(&thread));
    EXPECT_EQ(thread.calls(), "pre execute post ");
    EXPECT_TRUE(thread.hasDone(Thread::READY));
    EXPECT_TRUE(thread.hasDone(Thread::FINISHED));
    unsigned int result = 0;
    EXPECT_TRUE(thread.getResult(&result));
    EXPECT_EQ(result, 5U);
}

// Sleeping.

std::vector<std::pair<long long, long>> gSleeps;
int gInterruptions;

int noteSleep(timespec const* wanted, timespec* left) {
    gSleeps.emplace_back(wanted->tv_sec, wanted->tv_nsec);
    if (gInterruptions > 0) {
        --gInterruptions;
        left->tv_sec = gInterruptions;
        left->tv_nsec = 7;
        errno = EINTR;
        return -1;
    }
    return 0;
}

TEST(ThreadSleep, SplitsMillisecondsTakenAsSigned) {
    HookScope const scope;
    hooks::nanoSleep.replace(noteSleep);
    gInterruptions = 0;
    gSleeps.clear();
    for (unsigned int ms : {0U, 1U, 999U, 1000U, 1500U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        Thread::sleep(ms);
    }
    std::vector<std::pair<long long, long>> const expected{
        {0, 0},         {0, 1000000},         {0, 999000000},         {1, 0},
        {1, 500000000}, {2147483, 647000000}, {-2147483, -648000000}, {0, -1000000}};
    EXPECT_EQ(gSleeps, expected);
}

TEST(ThreadSleep, OfANegativeTime_ReturnsAtOnce) {
    Thread::sleep(0x80000000U);
    Thread::sleep(0xFFFFFFFFU);
}

TEST(ThreadSleep, InterruptedBySignals_SleepsForWhatIsLeft) {
    HookScope const scope;
    hooks::nanoSleep.replace(noteSleep);
    gInterruptions = 3;
    gSleeps.clear();
    Thread::sleep(5000);
    std::vector<std::pair<long long, long>> const expected{{5, 0}, {2, 7}, {1, 7}, {0, 7}};
    EXPECT_EQ(gSleeps, expected);
}

TEST(ThreadSleep, ThatFailsInAnyOtherWay_Returns) {
    HookScope const scope;
    hooks::nanoSleep.failFrom(1, 0, -1, EINVAL);
    Thread::sleep(5000);
    EXPECT_EQ(hooks::nanoSleep.calls(), 1U);
}

std::atomic<int> gSignals;

TEST(ThreadSleep, WithSignalsOnTheWay_IsNotShortened) {
    struct sigaction noting {};
    struct sigaction before {};
    noting.sa_handler = [](int) { ++gSignals; };
    ASSERT_EQ(sigaction(SIGUSR1, &noting, &before), 0);
    gSignals = 0;
    std::atomic<bool> asleep{true};
    pthread_t const sleeper = pthread_self();
    std::thread signaller([&asleep, sleeper] {
        while (asleep) {
            pthread_kill(sleeper, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
    while (gSignals == 0) {
        std::this_thread::yield();
    }
    auto const begin = std::chrono::steady_clock::now();
    Thread::sleep(150);
    auto const slept = std::chrono::steady_clock::now() - begin;
    asleep = false;
    signaller.join();
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_GE(slept, std::chrono::milliseconds(150));
}

// Everything at once, and the end of the process.

TEST_F(ThreadLife, ManyThreadsAtOnce_CanBeStartedStoppedAndLeft) {
    auto const work = [] {
        for (int round = 0; round < 40; ++round) {
            NotingThread thread("busy", round);
            EXPECT_EQ(thread.start(0, 0, nullptr, round % 2), 0);
            EXPECT_TRUE(thread.isRunning());
            EXPECT_EQ(thread.stop(Thread::REQUEST_ONLY), 0);
            thread.end();
            unsigned int result = 0;
            EXPECT_TRUE(thread.getResult(&result));
            EXPECT_EQ(result, static_cast<unsigned int>(round));
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(work);
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

TEST_F(ThreadLife, OneThread_CanBeUsedByManyAtOnce) {
    NotingThread thread("shared", 1);
    std::atomic<int> starts{0};
    auto const work = [&thread, &starts] {
        starts += thread.start() == 0 ? 1 : 0;
        EXPECT_EQ(thread.waitTo(Thread::READY), 0);
        EXPECT_EQ(thread.stop(Thread::REQUEST_ONLY), 0);
        EXPECT_NE(thread.getId(), 0);
        EXPECT_TRUE(thread.hasRequestedStop());
        EXPECT_TRUE(thread.isRunning());
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(work);
    }
    for (auto& one : threads) {
        one.join();
    }
    EXPECT_EQ(starts, 1);
}

class TirelessThread : public Thread {
  public:
    TirelessThread() : Thread("tireless") {}
    std::atomic<int> rounds{0};

  protected:
    int execute() override {
        for (;;) {
            ThreadManager& manager = *ThreadManager::get();
            manager.keepAliveWatchdog(StatementInfo("file", "function", 1, 1));
            manager.printThreadInfoReg(4);
            ThreadManager::Names names(4, 0);
            manager.getNames(&names);
            applog(utl::LOG_TYPE_LIBRARY, 4, "still here");
            ++rounds;
        }
    }
};

void exitWhileThreadsRun() {
    static auto* const log = new LogCapture;
    log->clear();
    Access::watchdog();
    utltest::ThreadWatchdogAccess::setInitialized(Access::watchdog(), true);
    static TirelessThread* threads[2];
    for (auto*& thread : threads) {
        thread = new TirelessThread;
        thread->start(1, 1000, nullptr);
        thread->startWatchdog();
    }
    for (auto* const thread : threads) {
        while (thread->rounds < 20) {
            std::this_thread::yield();
        }
    }
    std::exit(0);
}

TEST(ThreadAtExit, AProcessThatEndsWhileThreadsRun_EndsCleanly) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EXIT(exitWhileThreadsRun(), ::testing::ExitedWithCode(0), "");
    }
}

}  // namespace

#include "UtlThreadManager.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cerrno>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TestGate.h"
#include "TestHooks.h"
#include "TestLog.h"
#include "TestThreads.h"

namespace {

using utl::StatementInfo;
using utl::ThreadManager;
using utl::ThreadPriority;
using utl::ThreadWatchdog;
using utl::WatchdogInfo;
using utltest::foreignEntry;
using utltest::Gate;
using utltest::HeldThread;
using utltest::HookScope;
using utltest::kernelId;
using utltest::lives;
using utltest::LogCapture;
using utltest::NO_THREAD;
using utltest::runOnManagedThread;
using Access = utltest::ThreadManagerAccess;
using WatchdogAccess = utltest::ThreadWatchdogAccess;
using Entry = ThreadManager::ThreadEntry;
namespace hooks = utltest::hooks;

void doNothing(void*) {}

std::string lineOf(char const* prefix, char const* format, int id, int osValue, char const* name) {
    char text[256];
    snprintf(text, sizeof(text), format, id, osValue, name);
    return std::string("<UTIL> ") + prefix + text;
}

std::string numbered(char const* before, int id, std::string const& behind) {
    return before + std::to_string(id) + behind;
}

static_assert(Entry::STARTED_HERE == 0 && Entry::FOREIGN == 1);
static_assert(ThreadManager::NO_ID == 0 && ThreadManager::CALLER == 0);

static_assert(noexcept(ThreadManager::getIfCreated()) && noexcept(ThreadManager::getCallerId()));
static_assert(noexcept(std::declval<ThreadManager&>().isThreadExist(0)));
static_assert(noexcept(std::declval<ThreadManager&>().isThreadActive(0)));
static_assert(noexcept(std::declval<ThreadManager&>().isActive(0)));
static_assert(noexcept(std::declval<ThreadManager&>().getPriority(0, nullptr)));
static_assert(noexcept(std::declval<ThreadManager&>().findName(0)));
static_assert(noexcept(std::declval<ThreadManager&>().getName(0)));
static_assert(noexcept(std::declval<ThreadManager&>().enableRegistrationLog()));
static_assert(noexcept(std::declval<ThreadManager&>().printThreadInfo(0)));
static_assert(noexcept(std::declval<ThreadManager&>().isRegisteredWatchdog()));
static_assert(noexcept(std::declval<ThreadManager&>().isWatchingWatchdog()));
static_assert(noexcept(std::declval<Entry&>().toStop()) && noexcept(std::declval<Entry&>().isActive()));
static_assert(noexcept(std::declval<Entry&>().isControllable()));

// The instance.

using ThreadManagerInstance = utltest::WithManager;

TEST_F(ThreadManagerInstance, GetIfCreated_BeforeTheFirstGet_IsNullAndCreatesNothing) {
    EXPECT_EQ(ThreadManager::getIfCreated(), nullptr);
    EXPECT_EQ(ThreadManager::getIfCreated(), nullptr);
}

TEST_F(ThreadManagerInstance, Get_GivesOneInstance) {
    ThreadManager* const first = ThreadManager::get();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(ThreadManager::get(), first);
    EXPECT_EQ(ThreadManager::getIfCreated(), first);
}

TEST_F(ThreadManagerInstance, Get_FromManyThreadsAtOnce_GivesOneInstance) {
    std::vector<ThreadManager*> seen(8);
    std::vector<std::thread> threads;
    for (auto& one : seen) {
        threads.emplace_back([&one] { one = ThreadManager::get(); });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    for (auto* const one : seen) {
        EXPECT_EQ(one, ThreadManager::get());
    }
}

TEST_F(ThreadManagerInstance, InitializeEntryMax_BeforeTheFirstGet_SetsTheCapacity) {
    EXPECT_TRUE(ThreadManager::initializeEntryMax(16));
    fillTable(16, 1);
    EXPECT_TRUE(Access::storeEntry(NO_THREAD - 1, foreignEntry("the last")));
    EXPECT_FALSE(Access::storeEntry(NO_THREAD - 2, foreignEntry("one too many")));
}

TEST_F(ThreadManagerInstance, InitializeEntryMax_OnAnExistingInstance_ChangesNothing) {
    EXPECT_TRUE(ThreadManager::initializeEntryMax(16));
    ThreadManager* const instance = ThreadManager::get();
    EXPECT_FALSE(ThreadManager::initializeEntryMax(17));
    EXPECT_EQ(ThreadManager::get(), instance);
    fillTable(16, 0);
    EXPECT_FALSE(Access::storeEntry(NO_THREAD - 1, foreignEntry("one too many")));
}

TEST_F(ThreadManagerInstance, InitializeEntryMax_AfterTheFirstGet_IsFalse) {
    ThreadManager::get();
    EXPECT_FALSE(ThreadManager::initializeEntryMax(16));
}

TEST_F(ThreadManagerInstance, InitializeEntryMax_With0_LeavesNoRoomForAnyThread) {
    EXPECT_TRUE(ThreadManager::initializeEntryMax(0));
    EXPECT_EQ(manager().entry(doNothing, nullptr, 0, 0, nullptr, "none"), 0);
    LogCapture const log;
    EXPECT_EQ(manager().entryCaller(0, 0, nullptr, "none"), 0);
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(ThreadManagerInstance, TheDefaultCapacity_Is128) {
    EXPECT_EQ(ThreadManager::DEFAULT_ENTRY_MAX, 128U);
    fillTable(128, 0);
    EXPECT_FALSE(Access::storeEntry(NO_THREAD - 1, foreignEntry("one too many")));
}

TEST_F(ThreadManagerInstance, TheWatchdog_HasTheCapacityOfTheTable) {
    EXPECT_TRUE(ThreadManager::initializeEntryMax(2));
    ThreadWatchdog& watchdog = restingWatchdog();
    EXPECT_TRUE(watchdog.entry(1, 1, nullptr, "1"));
    EXPECT_TRUE(watchdog.entry(2, 1, nullptr, "2"));
    EXPECT_FALSE(watchdog.entry(3, 1, nullptr, "3"));
}

TEST_F(ThreadManagerInstance, Destroy_MakesRoomForANewInstanceThatKnowsNoThread) {
    EXPECT_TRUE(ThreadManager::initializeEntryMax(2));
    EXPECT_NE(manager().entryCaller(0, 0, nullptr, "main"), 0);
    ThreadManager::destroy();
    EXPECT_EQ(ThreadManager::getIfCreated(), nullptr);
    EXPECT_FALSE(manager().isThreadExist(kernelId()));
    EXPECT_TRUE(Access::storeEntry(NO_THREAD, foreignEntry("one")));
    EXPECT_TRUE(Access::storeEntry(NO_THREAD + 1, foreignEntry("another one")));
}

TEST_F(ThreadManagerInstance, Destroy_WithoutAnInstance_IsHarmless) {
    ThreadManager::destroy();
    ThreadManager::destroy();
    EXPECT_EQ(ThreadManager::getIfCreated(), nullptr);
}

TEST_F(ThreadManagerInstance, Destroy_DetachesTheThreadsThatAreStillRegistered) {
    HookScope const scope;
    int const id = manager().entry(doNothing, nullptr, 0, 0, nullptr, "left behind");
    EXPECT_EQ(manager().waitToStop(id, 0), 0);
    EXPECT_EQ(hooks::threadDetach.calls(), 0U);
    ThreadManager::destroy();
    EXPECT_EQ(hooks::threadDetach.calls(), 2U) << "the watchdog's own thread is the other one";
}

TEST_F(ThreadManagerInstance, Destroy_ByAWatchedThread_SurvivesTheSignsOfLifeOnTheWay) {
    int const id = manager().entry(doNothing, nullptr, 0, 0, nullptr, "left behind");
    EXPECT_EQ(manager().waitToStop(id, 0), 0);
    restingWatchdog();
    EXPECT_TRUE(manager().entryWatchdog(1000, nullptr));
    EXPECT_TRUE(manager().startWatchdog());
    ThreadManager::destroy();
    EXPECT_EQ(ThreadManager::getIfCreated(), nullptr);
}

TEST_F(ThreadManagerInstance, Destroy_LeavesThreadsRunningWhichEndIntoANewInstance) {
    Gate gate;
    static std::atomic<bool> returned;
    returned = false;
    auto const wait = [](void* argument) {
        EXPECT_TRUE(static_cast<Gate*>(argument)->hold());
        returned = true;
    };
    int const id = manager().entry(wait, &gate, 0, 0, nullptr, "survivor");
    EXPECT_NE(id, 0);
    ThreadManager::destroy();
    EXPECT_FALSE(returned);
    EXPECT_EQ(ThreadManager::getIfCreated(), nullptr);
    gate.open();
    while (lives(id)) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(returned);
    ASSERT_NE(ThreadManager::getIfCreated(), nullptr);
    ThreadManager::Names names(4, 0);
    EXPECT_TRUE(ThreadManager::getIfCreated()->getNames(&names));
    ASSERT_EQ(names.size(), 1U);
    EXPECT_STREQ(names.getAt(0)->mValue.buffer(), "Watchdog Thread");
}

// The ending thread creates the new instance and starts its watchdog while the instance is taken away again.
TEST_F(ThreadManagerInstance, Destroy_WhileAThreadEndsIntoANewInstance_IsHarmless) {
    for (int round = 0; round < 200; ++round) {
        Gate gate;
        auto const wait = [](void* argument) { EXPECT_TRUE(static_cast<Gate*>(argument)->hold()); };
        int const id = manager().entry(wait, &gate, 0, 0, nullptr, "survivor");
        ASSERT_NE(id, 0);
        ThreadManager::destroy();
        gate.open();
        if (round % 2 == 0) {
            while (ThreadManager::getIfCreated() == nullptr) {
                std::this_thread::yield();
            }
        }
        ThreadManager::destroy();
        while (lives(id)) {
            std::this_thread::yield();
        }
        ThreadManager::destroy();
        EXPECT_EQ(ThreadManager::getIfCreated(), nullptr);
    }
}

TEST_F(ThreadManagerInstance, Destroy_FromManyThreadsAtOnce_DestroysOnce) {
    for (int round = 0; round < 20; ++round) {
        HookScope const scope;
        manager();
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([] { ThreadManager::destroy(); });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(ThreadManager::getIfCreated(), nullptr);
        EXPECT_EQ(hooks::threadDetach.calls(), 1U);
    }
}

// Starting threads.

using ThreadManagerEntry = utltest::WithManager;

TEST_F(ThreadManagerEntry, WithoutAFunctionOrAName_Gives0InSilenceAndStartsNoThread) {
    manager();
    HookScope const scope;
    LogCapture const log;
    EXPECT_EQ(manager().entry(nullptr, nullptr, 0, 0, nullptr, "no function"), 0);
    EXPECT_EQ(manager().entry(doNothing, nullptr, 0, 0, nullptr, nullptr), 0);
    EXPECT_EQ(hooks::threadCreate.calls(), 0U);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ThreadManagerEntry, RunsTheFunctionOnANewThreadWhoseKernelIdItGives) {
    HeldThread const thread("new");
    EXPECT_NE(thread.id(), 0);
    EXPECT_NE(thread.id(), kernelId());
    EXPECT_EQ(thread.seenId(), thread.id());
}

TEST_F(ThreadManagerEntry, RegistersTheThreadUnderItsNameAndPriority) {
    HeldThread const thread("new", 0, 0, nullptr, ThreadPriority(ThreadPriority::LOW));
    EXPECT_STREQ(manager().getName(thread.id()), "new");
    ThreadPriority priority;
    EXPECT_TRUE(manager().getPriority(thread.id(), &priority));
    EXPECT_EQ(priority.OsValue(), 2);
}

std::atomic<pthread_attr_t const*> gAttributes;

TEST_F(ThreadManagerEntry, GivesTheKernelAsMuchOfTheNameAsItKeeps) {
    for (auto const& [name, kernelName] : {std::pair<char const*, char const*>("short", "short"),
                                           {"exactly 15 byte", "exactly 15 byte"},
                                           {"sixteen bytes it", "sixteen bytes i"},
                                           {"aスレッド名前", "aスレッド"},
                                           {"", ""}}) {
        std::string seen;
        auto const look = [](void* out) {
            char kept[16] = "?";
            pthread_getname_np(pthread_self(), kept, sizeof(kept));
            *static_cast<std::string*>(out) = kept;
        };
        int const id = manager().entry(look, &seen, 0, 0, nullptr, name);
        ASSERT_EQ(manager().waitToStop(id, 0), 0);
        EXPECT_EQ(seen, kernelName);
        EXPECT_TRUE(manager().unregister(id));
    }
}

TEST_F(ThreadManagerEntry, OfACaller_LeavesItTheKernelsName) {
    char before[16] = "";
    char after[16] = "?";
    pthread_getname_np(pthread_self(), before, sizeof(before));
    EXPECT_NE(manager().entryCaller(0, 0, nullptr, "another"), 0);
    pthread_getname_np(pthread_self(), after, sizeof(after));
    EXPECT_STREQ(after, before);
}

TEST_F(ThreadManagerEntry, CreatesTheThreadWithDefaultAttributesWhateverReservedSays) {
    manager();
    HookScope const scope;
    static pthread_attr_t other;
    gAttributes = &other;
    hooks::threadCreate.replace(
        [](pthread_t* thread, pthread_attr_t const* attributes, void* (*entry)(void*), void* argument) {
            gAttributes = attributes;
            return hooks::threadCreate.real(thread, attributes, entry, argument);
        });
    int const id = manager().entry(doNothing, nullptr, 0, 0, nullptr, "plain", ThreadPriority(), 64 * 1024);
    EXPECT_EQ(manager().waitToStop(id, 0), 0);
    EXPECT_TRUE(manager().unregister(id));
    EXPECT_EQ(gAttributes, nullptr);
}

TEST_F(ThreadManagerEntry, InAFullTable_Gives0InSilenceAndStartsNoThread) {
    fillTable(128, 0);
    HookScope const scope;
    LogCapture const log;
    EXPECT_EQ(manager().entry(doNothing, nullptr, 0, 0, nullptr, "number 129"), 0);
    EXPECT_EQ(hooks::threadCreate.calls(), 0U);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ThreadManagerEntry, WithOnePlaceLeft_StartsOneThread) {
    fillTable(128, 1);
    HeldThread const last("number 128");
    EXPECT_NE(last.id(), 0);
    EXPECT_EQ(manager().entry(doNothing, nullptr, 0, 0, nullptr, "number 129"), 0);
}

TEST_F(ThreadManagerEntry, APlaceThatWasGivenBack_CanBeTakenAgain) {
    EXPECT_TRUE(ThreadManager::initializeEntryMax(2));
    for (int round = 0; round < 3; ++round) {
        HeldThread const thread("again");
        EXPECT_NE(thread.id(), 0) << round;
    }
}

TEST_F(ThreadManagerEntry, RefusedByTheSystem_LogsAndGives0) {
    manager();
    HookScope const scope;
    LogCapture const log;
    hooks::threadCreate.failFrom(1, 1, EAGAIN, 0);
    EXPECT_EQ(
        manager().entry(doNothing, nullptr, 1, 0, nullptr, "refused", ThreadPriority(ThreadPriority::HIGH)),
        0);
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{"<UTIL> ERR: Thread Start Failed  Ret:11, PriOs:-2, Name:refused"});
    ThreadManager::Names names(4, 0);
    EXPECT_TRUE(manager().getNames(&names));
    ASSERT_EQ(names.size(), 1U);
    EXPECT_EQ(names.getAt(0)->mKey, watchdogId());
}

std::atomic<int> gCreatedId;

// Creates the thread and waits until it says its id, which its last system call before the hand-over tells.
int createAndLearnId(pthread_t* thread, pthread_attr_t const* attributes, void* (*entry)(void*),
                     void* argument) {
    gCreatedId = 0;
    hooks::setPriority.replace([](int, unsigned int, int) {
        gCreatedId = kernelId();
        return 0;
    });
    int const result = hooks::threadCreate.real(thread, attributes, entry, argument);
    while (gCreatedId == 0) {
        std::this_thread::yield();
    }
    return result;
}

TEST_F(ThreadManagerEntry, OfAnIdThatIsStillRegistered_LogsAndLeavesTheThreadRunningUnregistered) {
    manager();
    HookScope const scope;
    hooks::threadCreate.replace(
        [](pthread_t* thread, pthread_attr_t const* attributes, void* (*entry)(void*), void* argument) {
            int const result = createAndLearnId(thread, attributes, entry, argument);
            Access::storeEntry(gCreatedId, foreignEntry("an ended one"));
            return result;
        });
    static std::atomic<bool> ran;
    ran = false;
    LogCapture const log;
    auto const run = [](void*) { ran = true; };
    EXPECT_EQ(manager().entry(run, nullptr, 1, 0, nullptr, "twin", ThreadPriority(ThreadPriority::IDLE)), 0);
    EXPECT_EQ(log.lines(), std::vector<std::string>{lineOf(
                               "ERR: ", "entry() Error Thread Register           ID:%d, PriOs:%d, Name:%s",
                               gCreatedId, 3, "twin")});
    while (!ran) {
        std::this_thread::yield();
    }
    EXPECT_STREQ(manager().getName(gCreatedId), "an ended one");
    EXPECT_EQ(hooks::threadDetach.calls(), 1U);
}

TEST_F(ThreadManagerEntry, WhoseLastPlaceWentToAnotherThread_LogsAndLeavesTheThreadRunningUnregistered) {
    EXPECT_TRUE(ThreadManager::initializeEntryMax(2));
    manager();
    HookScope const scope;
    hooks::threadCreate.replace(
        [](pthread_t* thread, pthread_attr_t const* attributes, void* (*entry)(void*), void* argument) {
            Access::storeEntry(NO_THREAD, foreignEntry("the faster one"));
            return createAndLearnId(thread, attributes, entry, argument);
        });
    LogCapture const log;
    EXPECT_EQ(manager().entry(doNothing, nullptr, 0, 0, nullptr, "late"), 0);
    EXPECT_EQ(log.lines(), std::vector<std::string>{lineOf(
                               "ERR: ", "entry() Error Thread Register           ID:%d, PriOs:%d, Name:%s",
                               gCreatedId, 0, "late")});
    EXPECT_FALSE(manager().isThreadExist(gCreatedId));
    EXPECT_EQ(hooks::threadDetach.calls(), 1U);
}

struct PriorityCall {
    int which = -1;
    unsigned int who = 1;
    int osValue = 0;
    int threadId = 0;
};
PriorityCall gPriorityCall;

int recordPriority(int which, unsigned int who, int osValue) {
    gPriorityCall = {which, who, osValue, kernelId()};
    return 0;
}

TEST_F(ThreadManagerEntry, TheNewThreadSetsItsOwnPriority) {
    manager();
    HookScope const scope;
    hooks::setPriority.replace(recordPriority);
    HeldThread const thread("urgent", 0, 0, nullptr, ThreadPriority(ThreadPriority::TIME_CRITICAL));
    EXPECT_EQ(gPriorityCall.which, static_cast<int>(PRIO_PROCESS));
    EXPECT_EQ(gPriorityCall.who, 0U);
    EXPECT_EQ(gPriorityCall.osValue, -4);
    EXPECT_EQ(gPriorityCall.threadId, thread.id());
}

TEST_F(ThreadManagerEntry, TheNewThread_WhosePriorityIsRefused_LogsAndRunsAllTheSame) {
    manager();
    HookScope const scope;
    LogCapture const log;
    hooks::setPriority.failFrom(1, 1, -1, EACCES);
    HeldThread const thread("slow", 0, 0, nullptr, ThreadPriority(ThreadPriority::TIME_CRITICAL));
    EXPECT_EQ(thread.seenId(), thread.id());
    EXPECT_EQ(log.lines(), std::vector<std::string>{
                               "<UTIL> ERR: ThreadManager::startThread() Error setpriority() OsValue:-4"});
}

TEST_F(ThreadManagerEntry, BelievesNoWakeUpThatHasNoCause) {
    HookScope const scope;
    manager();
    hooks::condWait.failFrom(1, 3, 0, 0);
    HeldThread const thread("patient");
    EXPECT_NE(thread.id(), 0);
    EXPECT_EQ(thread.seenId(), thread.id());
}

TEST_F(ThreadManagerEntry, WithoutTheRegistrationLog_LogsNothing) {
    LogCapture const log;
    HeldThread const thread("quiet");
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ThreadManagerEntry, WithTheRegistrationLog_LogsTheStart) {
    manager().enableRegistrationLog();
    LogCapture const log;
    HeldThread const thread("noted", 0, 0, nullptr, ThreadPriority(ThreadPriority::LOW));
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{lineOf("INF: ", "Thread Start and Register ID:%d, PriOs:%d, Name:%s",
                                              thread.id(), 2, "noted")});
}

struct SilentListener : utl::WatchdogTimerListener {
    void onTime(int, utl::WatchdogInfos const&) override {}
};

TEST_F(ThreadManagerEntry, WithWatchdog1_RegistersTheThreadThereNotYetWatched) {
    ThreadWatchdog& watchdog = restingWatchdog();
    SilentListener listener;
    HeldThread const thread("watched", 1, 1234, &listener);
    EXPECT_TRUE(watchdog.isRegistered(thread.id()));
    EXPECT_FALSE(watchdog.isWatching(thread.id()));
    WatchdogInfo const* const info = watchdog.findWatchdogInfo(thread.id());
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(*info, WatchdogInfo(thread.id(), 1234, &listener, "watched", 1));
}

TEST_F(ThreadManagerEntry, AFunctionThatLeavesTheWatchdogAtOnce_KeepsNoPlaceThere) {
    for (int i = 0; i < 300; ++i) {
        std::atomic<bool> left{false};
        auto const leave = [](void* out) {
            *static_cast<std::atomic<bool>*>(out) = manager().unregisterWatchdog();
        };
        int const id = manager().entry(leave, &left, 1, 1000, nullptr, "leaving");
        ASSERT_NE(id, 0);
        ASSERT_EQ(manager().waitToStop(id, 0), 0);
        EXPECT_TRUE(left);
        EXPECT_FALSE(manager().isRegisteredWatchdog(id));
        EXPECT_TRUE(manager().unregister(id));
    }
}

TEST_F(ThreadManagerEntry, WithAnyOtherWatchdog_DoesNotRegisterTheThreadThere) {
    ThreadWatchdog& watchdog = restingWatchdog();
    for (int other : {0, 2, -1}) {
        HeldThread const thread("unwatched", other, 1000, nullptr);
        EXPECT_FALSE(watchdog.isRegistered(thread.id())) << other;
    }
}

TEST_F(ThreadManagerEntry, WithWatchdog1AndNoAliveTime_LogsAndStartsTheThreadAllTheSame) {
    LogCapture const log;
    HeldThread const thread("timeless", 1, 0, nullptr);
    EXPECT_NE(thread.id(), 0);
    EXPECT_EQ(log.lines(), std::vector<std::string>{numbered(
                               "<UTIL> ERR: ThreadWatchdog Register AliveTime is 0 ID:", thread.id(), " ")});
}

std::atomic<int> gStartsUnderWay;
std::atomic<int> gMostStartsUnderWay;

TEST_F(ThreadManagerEntry, FromManyThreadsAtOnce_StartsThemOneAtATime) {
    manager();
    HookScope const scope;
    gStartsUnderWay = 0;
    gMostStartsUnderWay = 0;
    hooks::threadCreate.replace(
        [](pthread_t* thread, pthread_attr_t const* attributes, void* (*entry)(void*), void* argument) {
            int const underWay = ++gStartsUnderWay;
            if (underWay > gMostStartsUnderWay) {
                gMostStartsUnderWay = underWay;
            }
            return hooks::threadCreate.real(thread, attributes, entry, argument);
        });
    hooks::setPriority.replace([](int, unsigned int, int) {
        std::this_thread::yield();
        --gStartsUnderWay;
        return 0;
    });
    std::vector<std::thread> starters;
    for (int i = 0; i < 6; ++i) {
        starters.emplace_back([] { HeldThread const thread("one of many"); });
    }
    for (auto& starter : starters) {
        starter.join();
    }
    EXPECT_EQ(gMostStartsUnderWay, 1);
}

// Registering the calling thread.

using ThreadManagerEntryCaller = utltest::WithManager;

TEST_F(ThreadManagerEntryCaller, WithoutAName_Gives0InSilence) {
    LogCapture const log;
    EXPECT_EQ(manager().entryCaller(0, 0, nullptr, nullptr), 0);
    EXPECT_FALSE(manager().isThreadExist(kernelId()));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ThreadManagerEntryCaller, RegistersTheCallerWhoseKernelIdItGives) {
    LogCapture const log;
    EXPECT_EQ(manager().entryCaller(0, 0, nullptr, "main"), kernelId());
    EXPECT_TRUE(manager().isThreadExist(kernelId()));
    EXPECT_STREQ(manager().getName(kernelId()), "main");
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ThreadManagerEntryCaller, MakesAForeignThreadThatIsNeverActive) {
    int const id = manager().entryCaller(0, 0, nullptr, "main");
    HookScope const scope;
    ThreadPriority priority(ThreadPriority::LOW);
    EXPECT_FALSE(manager().isThreadActive(id));
    EXPECT_FALSE(manager().isActive(id));
    EXPECT_EQ(manager().waitToStop(id, 0), -1);
    EXPECT_FALSE(manager().getPriority(id, &priority));
    EXPECT_EQ(priority.OsValue(), 2);
    EXPECT_FALSE(manager().setPriority(id, priority));
    EXPECT_EQ(hooks::setPriority.calls(), 0U);
}

TEST_F(ThreadManagerEntryCaller, ASecondTime_ReplacesTheFirstEntry) {
    EXPECT_TRUE(ThreadManager::initializeEntryMax(2));
    EXPECT_EQ(manager().entryCaller(0, 0, nullptr, "first"), kernelId());
    EXPECT_EQ(manager().entryCaller(0, 0, nullptr, "second"), kernelId());
    EXPECT_STREQ(manager().getName(kernelId()), "second");
    EXPECT_TRUE(manager().unregister(kernelId()));
    EXPECT_FALSE(manager().unregister(kernelId()));
}

TEST_F(ThreadManagerEntryCaller, OnAThreadStartedHere_LogsAndKeepsItsEntry) {
    LogCapture const log;
    int id = 0;
    runOnManagedThread([&id] {
        id = kernelId();
        EXPECT_EQ(manager().entryCaller(1, 0, nullptr, "impostor"), 0);
        EXPECT_STREQ(manager().getName(id), "worker");
        EXPECT_TRUE(manager().isThreadActive(id));
    });
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{numbered(
                  "<UTIL> ERR: entryCaller() Error Thread Register           ID:", id, ", Name:impostor")});
}

TEST_F(ThreadManagerEntryCaller, InAFullTable_LogsAndGives0) {
    fillTable(128, 0);
    LogCapture const log;
    EXPECT_EQ(manager().entryCaller(1, 0, nullptr, "main"), 0);
    EXPECT_EQ(log.lines(), std::vector<std::string>{numbered(
                               "<UTIL> ERR: entryCaller() Error Thread Register           ID:", kernelId(),
                               ", Name:main")});
}

TEST_F(ThreadManagerEntryCaller, WithTheRegistrationLog_LogsTheRegistration) {
    manager().enableRegistrationLog();
    LogCapture const log;
    manager().entryCaller(0, 0, nullptr, "main");
    EXPECT_EQ(log.lines(), std::vector<std::string>{numbered(
                               "<UTIL> INF: Thread Register           ID:", kernelId(), ", Name:main")});
}

TEST_F(ThreadManagerEntryCaller, WithWatchdog1_RegistersTheCallerThere) {
    ThreadWatchdog& watchdog = restingWatchdog();
    SilentListener listener;
    EXPECT_EQ(manager().entryCaller(1, 777, &listener, "main"), kernelId());
    WatchdogInfo const* const info = watchdog.findWatchdogInfo(kernelId());
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(*info, WatchdogInfo(kernelId(), 777, &listener, "main", 1));
}

TEST_F(ThreadManagerEntryCaller, WithAnyOtherWatchdog_DoesNotRegisterTheCallerThere) {
    ThreadWatchdog& watchdog = restingWatchdog();
    for (int other : {0, 2, -1}) {
        manager().entryCaller(other, 1000, nullptr, "main");
        EXPECT_FALSE(watchdog.isRegistered(kernelId())) << other;
    }
}

// The end of threads, and leaving the table.

using ThreadManagerEnd = utltest::WithManager;

TEST_F(ThreadManagerEnd, ARunningThread_ExistsAndIsActive) {
    HeldThread const thread("running");
    EXPECT_TRUE(manager().isThreadExist(thread.id()));
    EXPECT_TRUE(manager().isThreadActive(thread.id()));
    EXPECT_TRUE(manager().isActive(thread.id()));
}

TEST_F(ThreadManagerEnd, AnEndedThread_ExistsAndIsNotActive) {
    HeldThread thread("ended");
    thread.end();
    EXPECT_TRUE(manager().isThreadExist(thread.id()));
    EXPECT_FALSE(manager().isThreadActive(thread.id()));
    EXPECT_FALSE(manager().isActive(thread.id()));
}

TEST_F(ThreadManagerEnd, AnUnknownId_NeitherExistsNorIsActive) {
    EXPECT_FALSE(manager().isThreadExist(NO_THREAD));
    EXPECT_FALSE(manager().isThreadActive(NO_THREAD));
    EXPECT_FALSE(manager().isActive(NO_THREAD));
}

TEST_F(ThreadManagerEnd, WaitToStop_OfARunningThread_EndsWithTheTime) {
    HeldThread const thread("running");
    EXPECT_EQ(manager().waitToStop(thread.id(), 20), -2);
}

TEST_F(ThreadManagerEnd, WaitToStop_OfAnUnknownId_FailsAtOnce) {
    EXPECT_EQ(manager().waitToStop(NO_THREAD, 0), -1);
}

TEST_F(ThreadManagerEnd, WaitToStop_ReturnsWhenTheThreadHasEnded) {
    HeldThread thread("ending");
    std::thread waiter([&thread] {
        EXPECT_EQ(manager().waitToStop(thread.id(), 0), 0);
        EXPECT_FALSE(manager().isThreadActive(thread.id()));
    });
    thread.letGo();
    waiter.join();
    EXPECT_EQ(manager().waitToStop(thread.id(), 0), 0);
    EXPECT_EQ(manager().waitToStop(thread.id(), 1), 0);
}

TEST_F(ThreadManagerEnd, WaitToStop_BelievesNoWakeUpThatHasNoCause) {
    HookScope const scope;
    HeldThread thread("ending");
    thread.seenId();
    hooks::condWait.failFrom(1, 5, 0, 0);
    std::thread waiter([&thread] {
        EXPECT_EQ(manager().waitToStop(thread.id(), 0), 0);
        EXPECT_FALSE(manager().isThreadActive(thread.id()));
    });
    while (hooks::condWait.calls() < 6) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(manager().isThreadActive(thread.id()));
    thread.letGo();
    waiter.join();
}

TEST_F(ThreadManagerEnd, WaitToStop_HoldsNoLockWhileItWaits) {
    HookScope const scope;
    HeldThread thread("ending");
    thread.seenId();
    hooks::condWait.reset();
    std::thread waiter([&thread] { EXPECT_EQ(manager().waitToStop(thread.id(), 0), 0); });
    while (hooks::condWait.calls() == 0) {
        std::this_thread::yield();
    }
    HeldThread const other("started meanwhile");
    EXPECT_NE(other.id(), 0);
    thread.letGo();
    waiter.join();
}

TEST_F(ThreadManagerEnd, Unregister_OfARunningThread_IsRefused) {
    HeldThread const thread("running");
    EXPECT_FALSE(manager().unregister(thread.id()));
    EXPECT_TRUE(manager().isThreadExist(thread.id()));
}

TEST_F(ThreadManagerEnd, Unregister_OfAnEndedThread_RemovesTheEntry) {
    HeldThread thread("ended");
    thread.end();
    EXPECT_TRUE(manager().unregister(thread.id()));
    EXPECT_FALSE(manager().isThreadExist(thread.id()));
    EXPECT_EQ(manager().waitToStop(thread.id(), 0), -1);
    EXPECT_FALSE(manager().unregister(thread.id()));
}

TEST_F(ThreadManagerEnd, Unregister_OfAForeignThread_RemovesTheEntry) {
    HookScope const scope;
    manager().entryCaller(0, 0, nullptr, "main");
    EXPECT_TRUE(manager().unregister(kernelId()));
    EXPECT_FALSE(manager().isThreadExist(kernelId()));
    EXPECT_EQ(hooks::threadDetach.calls(), 0U);
}

TEST_F(ThreadManagerEnd, Unregister_OfId0_RemovesItEvenWhileItIsActive) {
    HookScope const scope;
    hooks::threadDetach.replace([](pthread_t) { return 0; });
    EXPECT_TRUE(Access::storeEntry(0, Entry(0, 1, "nobody", ThreadPriority())));
    EXPECT_TRUE(manager().isThreadActive(0));
    EXPECT_TRUE(manager().unregister(0));
    EXPECT_FALSE(manager().isThreadExist(0));
}

TEST_F(ThreadManagerEnd, Unregister_DetachesEachThreadWhenItsOwnEntryGoes) {
    HookScope const scope;
    std::vector<std::unique_ptr<HeldThread>> threads;
    for (int i = 0; i < 4; ++i) {
        threads.push_back(std::make_unique<HeldThread>("detached"));
        threads.back()->end();
    }
    unsigned int detached = 0;
    for (unsigned int i : {1U, 0U, 3U, 2U}) {
        EXPECT_EQ(hooks::threadDetach.calls(), detached);
        EXPECT_TRUE(manager().unregister(threads[i]->id()));
        EXPECT_EQ(hooks::threadDetach.calls(), ++detached);
    }
}

TEST_F(ThreadManagerEnd, AThreadIsDetached_WhenTheLastCopyOfItsEntryGoes) {
    HookScope const scope;
    hooks::threadDetach.replace([](pthread_t) { return 0; });
    {
        Entry copy;
        {
            Entry const original(0, 1, "original", ThreadPriority());
            copy = original;
        }
        EXPECT_EQ(hooks::threadDetach.calls(), 0U);
        copy.detach();
        EXPECT_EQ(hooks::threadDetach.calls(), 1U);
    }
    EXPECT_EQ(hooks::threadDetach.calls(), 1U);
}

TEST_F(ThreadManagerEnd, AThreadWhoseEntryIsGone_EndsAllTheSame) {
    HeldThread thread("forgotten");
    int const id = thread.seenId();
    Access::eraseEntry(id);
    thread.letGo();
    while (lives(id)) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(manager().isThreadExist(id));
}

// Priorities.

using ThreadManagerPriority = utltest::WithManager;

TEST_F(ThreadManagerPriority, GetPriority_OfARunningThread_GivesWhatWasSetLast) {
    HookScope const scope;
    hooks::setPriority.replace(recordPriority);
    ThreadPriority priority;
    HeldThread const thread("high", 0, 0, nullptr, ThreadPriority(ThreadPriority::HIGH));
    EXPECT_TRUE(manager().getPriority(thread.id(), &priority));
    EXPECT_EQ(priority.value(), ThreadPriority::HIGH);
}

TEST_F(ThreadManagerPriority, GetPriority_WithNull_IsFalse) {
    HeldThread const thread("running");
    EXPECT_FALSE(manager().getPriority(thread.id(), nullptr));
}

TEST_F(ThreadManagerPriority, GetPriority_OfAnUnknownOrEndedThread_IsFalseAndTouchesNothing) {
    ThreadPriority priority(ThreadPriority::IDLE);
    EXPECT_FALSE(manager().getPriority(NO_THREAD, &priority));
    HeldThread thread("ended");
    thread.end();
    EXPECT_FALSE(manager().getPriority(thread.id(), &priority));
    EXPECT_EQ(priority.OsValue(), 3);
}

TEST_F(ThreadManagerPriority, SetPriority_OnTheThreadItself_TellsTheSystemAndTheEntry) {
    runOnManagedThread([] {
        HookScope const scope;
        hooks::setPriority.replace(recordPriority);
        ThreadPriority priority;
        priority.OsValue(-3);
        EXPECT_TRUE(manager().setPriority(kernelId(), priority));
        EXPECT_EQ(gPriorityCall.which, static_cast<int>(PRIO_PROCESS));
        EXPECT_EQ(gPriorityCall.who, 0U);
        EXPECT_EQ(gPriorityCall.osValue, -3);
        EXPECT_EQ(gPriorityCall.threadId, kernelId());
        ThreadPriority stored;
        EXPECT_TRUE(manager().getPriority(kernelId(), &stored));
        EXPECT_EQ(stored.OsValue(), -3);
    });
}

TEST_F(ThreadManagerPriority, SetPriority_ForAnotherThreadOrAnUnknownId_IsFalseWithoutASystemCall) {
    HookScope const scope;
    HeldThread const thread("other");
    hooks::setPriority.reset();
    EXPECT_FALSE(manager().setPriority(thread.id(), ThreadPriority(ThreadPriority::IDLE)));
    EXPECT_FALSE(manager().setPriority(kernelId(), ThreadPriority(ThreadPriority::IDLE)));
    EXPECT_FALSE(manager().setPriority(NO_THREAD, ThreadPriority(ThreadPriority::IDLE)));
    EXPECT_EQ(hooks::setPriority.calls(), 0U);
    ThreadPriority stored;
    EXPECT_TRUE(manager().getPriority(thread.id(), &stored));
    EXPECT_EQ(stored.OsValue(), 0);
}

TEST_F(ThreadManagerPriority, SetPriority_WithTheInvalidPriority_LogsWithoutASystemCall) {
    LogCapture const log;
    int id = 0;
    runOnManagedThread([&id] {
        HookScope const scope;
        id = kernelId();
        EXPECT_FALSE(manager().setPriority(id, ThreadPriority(ThreadPriority::INVALID)));
        EXPECT_EQ(hooks::setPriority.calls(), 0U);
    });
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{numbered("<UTIL> ERR: ThreadManager::setPriority() Error ID:", id,
                                                ", invalidOsValue:100")});
}

TEST_F(ThreadManagerPriority, SetPriority_RefusedByTheSystem_LogsTheErrorAndKeepsTheOldOne) {
    LogCapture const log;
    int id = 0;
    runOnManagedThread([&id] {
        HookScope const scope;
        id = kernelId();
        hooks::setPriority.failFrom(1, 1, -1, EACCES);
        EXPECT_FALSE(manager().setPriority(id, ThreadPriority(ThreadPriority::TIME_CRITICAL)));
        ThreadPriority stored;
        EXPECT_TRUE(manager().getPriority(id, &stored));
        EXPECT_EQ(stored.OsValue(), 0);
    });
    EXPECT_EQ(log.lines(), std::vector<std::string>{numbered(
                               "<UTIL> ERR: ThreadManager::setPriority() Error setpriority() ID:", id,
                               ", OsValue:-4 er:13 erSt:Permission denied")});
}

TEST_F(ThreadManagerPriority, SetPriority_WhoseEntryVanishedMeanwhile_IsFalse) {
    LogCapture const log;
    runOnManagedThread([] {
        HookScope const scope;
        Entry const kept = Access::copyEntry(kernelId());
        hooks::setPriority.replace([](int, unsigned int, int) {
            Access::eraseEntry(kernelId());
            return 0;
        });
        EXPECT_FALSE(manager().setPriority(kernelId(), ThreadPriority(ThreadPriority::LOW)));
        EXPECT_TRUE(Access::storeEntry(kernelId(), kept));
    });
    EXPECT_TRUE(log.lines().empty());
}

// Names and tables.

using ThreadManagerNames = utltest::WithManager;

TEST_F(ThreadManagerNames, GetName_OfAnUnknownId_IsAnEmptyText) {
    EXPECT_STREQ(manager().getName(NO_THREAD), "");
    EXPECT_STREQ(manager().findName(NO_THREAD), "");
}

TEST_F(ThreadManagerNames, FindNameAndGetName_GiveTheWholeName) {
    std::string const longName(300, 'n');
    EXPECT_TRUE(Access::storeEntry(NO_THREAD, foreignEntry(longName.c_str())));
    EXPECT_EQ(manager().findName(NO_THREAD), longName);
    EXPECT_EQ(manager().getName(NO_THREAD), longName);
}

TEST_F(ThreadManagerNames, GetNames_WithNull_IsFalse) {
    EXPECT_FALSE(manager().getNames(nullptr));
}

TEST_F(ThreadManagerNames, GetNames_AddsEachEntryToWhatTheMapHolds) {
    fillTable(3, 0);
    ThreadManager::Names names(5, 0);
    EXPECT_TRUE(names.insert(1, "held"));
    EXPECT_TRUE(manager().getNames(&names));
    ASSERT_EQ(names.size(), 4U);
    EXPECT_STREQ(names.find(watchdogId())->buffer(), "Watchdog Thread");
    EXPECT_STREQ(names.find(1)->buffer(), "held");
    EXPECT_STREQ(names.find(NO_THREAD)->buffer(), "filler");
    EXPECT_STREQ(names.find(NO_THREAD + 1)->buffer(), "filler");
}

TEST_F(ThreadManagerNames, GetNames_IntoAMapThatIsTooSmall_AddsWhatFits) {
    fillTable(3, 0);
    ThreadManager::Names names(2, 0);
    EXPECT_TRUE(manager().getNames(&names));
    EXPECT_EQ(names.size(), 2U);
}

TEST_F(ThreadManagerNames, PrintThreadInfo_DoesNothing) {
    fillTable(3, 0);
    LogCapture const log;
    manager().printThreadInfo(1);
    EXPECT_TRUE(log.lines().empty());
}

char const* const REGISTERED = "ThreadManager:: Registered info of threads in this process.";
char const* const COLUMNS =
    "ID        , Name                            , Status      , Pri.Os    , Pri.Label       , ";

// A line of printThreadInfoReg, with the columns after the name as one text.
std::string rowOf(char const* prefix, int id, char const* name, char const* columns) {
    char text[256];
    snprintf(text, sizeof(text), "<UTIL> %s%10d, %-32s, %s", prefix, id, name, columns);
    return text;
}

std::string watchdogRow(char const* prefix, int id) {
    return rowOf(prefix, id, "Watchdog Thread", "ACTIVE      ,          0, NORMAL          , ");
}

TEST_F(ThreadManagerNames, PrintThreadInfoReg_PrintsARowForEachThreadInTheOrderOfTheIds) {
    HookScope const scope;
    hooks::setPriority.replace(recordPriority);
    HeldThread const running("running", 0, 0, nullptr, ThreadPriority(ThreadPriority::TIME_CRITICAL));
    EXPECT_TRUE(Access::storeEntry(NO_THREAD, foreignEntry("foreign")));
    EXPECT_TRUE(Access::storeEntry(-5, foreignEntry("")));
    LogCapture const log;
    manager().printThreadInfoReg(2);
    char const* const unknown = "UNKNOWN     ,        100, INVALID         , ";
    // The kernel may start again with small ids between the two threads.
    std::map<int, std::string> const rows = {
        {-5, rowOf("WRN: ", -5, "", unknown)},
        {watchdogId(), watchdogRow("WRN: ", watchdogId())},
        {running.id(),
         rowOf("WRN: ", running.id(), "running", "ACTIVE      ,         -4, TIME_CRITICAL   , ")},
        {NO_THREAD, rowOf("WRN: ", NO_THREAD, "foreign", unknown)}};
    std::vector<std::string> expected{std::string("<UTIL> WRN: ") + REGISTERED,
                                      std::string("<UTIL> WRN: ") + COLUMNS};
    for (auto const& row : rows) {
        expected.push_back(row.second);
    }
    EXPECT_EQ(log.lines(), expected);
    EXPECT_EQ(log.lines()[2],
              "<UTIL> WRN:         -5,                                 , UNKNOWN     ,        100, INVALID"
              "         , ");
    EXPECT_EQ(log.lines()[5],
              "<UTIL> WRN:   10000000, foreign                         , UNKNOWN     ,        100, INVALID"
              "         , ");
}

TEST_F(ThreadManagerNames, PrintThreadInfoReg_AtLevel4_GoesToLevel4) {
    LogCapture const log;
    manager().printThreadInfoReg(4);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{std::string("<UTIL> DTL: ") + REGISTERED,
                                                     std::string("<UTIL> DTL: ") + COLUMNS,
                                                     watchdogRow("DTL: ", watchdogId())}));
}

TEST_F(ThreadManagerNames, PrintThreadInfoReg_OfAnEndedThread_ShowsItAsUnknown) {
    HeldThread thread("ended", 0, 0, nullptr, ThreadPriority(ThreadPriority::LOW));
    thread.end();
    LogCapture const log;
    manager().printThreadInfoReg(3);
    char row[128];
    snprintf(row, sizeof(row),
             "%10d, ended                           , UNKNOWN     ,        100, INVALID         , ",
             thread.id());
    EXPECT_EQ(log.lines().back(), std::string("<UTIL> INF: ") + row);
}

TEST_F(ThreadManagerNames, PrintThreadInfoReg_OfId0_LogsAnErrorInPlaceOfTheRow) {
    EXPECT_TRUE(Access::storeEntry(0, foreignEntry("nobody")));
    LogCapture const log;
    manager().printThreadInfoReg(3);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  std::string("<UTIL> INF: ") + REGISTERED, std::string("<UTIL> INF: ") + COLUMNS,
                  "<UTIL> ERR: ThreadManager::printThreadInfoReg() : Thread id is NULL.",
                  watchdogRow("INF: ", watchdogId())}));
}

std::string printedName(char const* name) {
    utl::ThreadManager::destroy();
    EXPECT_TRUE(Access::storeEntry(NO_THREAD, foreignEntry(name)));
    LogCapture const log;
    ThreadManager::get()->printThreadInfoReg(3);
    std::string const row = log.lines().back();
    size_t const begin = row.find(", ") + 2;
    return row.substr(begin, row.find(" , UNKNOWN") - begin);
}

TEST_F(ThreadManagerNames, PrintThreadInfoReg_CutsANameTo31BytesOnACharacterBoundary) {
    std::string const bytes29(29, 'a');
    EXPECT_EQ(printedName((bytes29 + "bc").c_str()), bytes29 + "bc");
    EXPECT_EQ(printedName((bytes29 + "bcd").c_str()), bytes29 + "bc");
    EXPECT_EQ(printedName((bytes29 + "\xC3\xA9").c_str()), bytes29 + "\xC3\xA9");
    EXPECT_EQ(printedName((bytes29 + "\xE3\x81\x82").c_str()), bytes29 + "  ");
    EXPECT_EQ(printedName((bytes29 + "b\xC3\xA9").c_str()), bytes29 + "b ");
}

TEST_F(ThreadManagerNames, PrintThreadInfoReg_PrintsAMalformedNameByItsBytes) {
    EXPECT_EQ(printedName("\xFF\xFE"), "\xFF\xFE" + std::string(29, ' '));
    EXPECT_EQ(printedName(("\xFF" + std::string(40, 'x')).c_str()), "\xFF" + std::string(30, 'x'));
}

char const* const UNWATCHED =
    "ThreadManager:: Registered info of threads in this process.(But not registered watchdog)";
char const* const UNWATCHED_COLUMNS = "ID        , Name                            , ";

TEST_F(ThreadManagerNames, PrintWatchdogInfo_PrintsTheWatchdogsTableAndThenTheThreadsThatItDoesNotHave) {
    ThreadWatchdog& watchdog = restingWatchdog();
    EXPECT_TRUE(Access::storeEntry(NO_THREAD, foreignEntry("watched")));
    EXPECT_TRUE(Access::storeEntry(NO_THREAD + 1, foreignEntry("unwatched")));
    EXPECT_TRUE(watchdog.entry(NO_THREAD, 5, nullptr, "watched"));
    LogCapture const log;
    manager().printWatchdogInfo(3);
    ASSERT_EQ(log.lines().size(), 7U);
    EXPECT_EQ(log.lines()[0], "<UTIL> INF: ThreadWatchdog:: Watchdog info of threads in this process.");
    EXPECT_EQ(log.lines()[3], std::string("<UTIL> INF: ") + UNWATCHED);
    EXPECT_EQ(log.lines()[4], std::string("<UTIL> INF: ") + UNWATCHED_COLUMNS);
    EXPECT_EQ(log.lines()[5], rowOf("INF: ", watchdogId(), "Watchdog Thread", ""));
    EXPECT_EQ(log.lines()[6], "<UTIL> INF:   10000001, unwatched                       , ");
}

TEST_F(ThreadManagerNames, PrintWatchdogInfo_WithoutAnInitializedWatchdog_PrintsAllThreads) {
    EXPECT_TRUE(Access::storeEntry(NO_THREAD, foreignEntry("unwatched")));
    WatchdogAccess::setInitialized(Access::watchdog(), false);
    LogCapture const log;
    manager().printWatchdogInfo(2);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{std::string("<UTIL> WRN: ") + UNWATCHED,
                                        std::string("<UTIL> WRN: ") + UNWATCHED_COLUMNS,
                                        rowOf("WRN: ", watchdogId(), "Watchdog Thread", ""),
                                        "<UTIL> WRN:   10000000, unwatched                       , "}));
}

TEST_F(ThreadManagerNames, PrintWatchdogInfo_OfId0_LogsAnErrorInPlaceOfTheRow) {
    EXPECT_TRUE(Access::storeEntry(0, foreignEntry("nobody")));
    LogCapture const log;
    manager().printWatchdogInfo(3);
    ASSERT_EQ(log.lines().size(), 6U);
    EXPECT_EQ(log.lines()[3], std::string("<UTIL> INF: ") + UNWATCHED_COLUMNS);
    EXPECT_EQ(log.lines()[4], "<UTIL> ERR: ThreadManager::printWatchdogInfo() : Thread id is NULL.");
    EXPECT_EQ(log.lines()[5], rowOf("INF: ", watchdogId(), "Watchdog Thread", ""));
}

// The kernel id.

TEST(ThreadManagerCallerId, IsTheKernelIdOnEveryThread) {
    EXPECT_EQ(ThreadManager::getCallerId(), kernelId());
    EXPECT_EQ(ThreadManager::getCallerId(), kernelId());
    std::thread([] { EXPECT_EQ(ThreadManager::getCallerId(), kernelId()); }).join();
}

TEST(ThreadManagerCallerId, InTheChildOfAFork_IsTheChilds) {
    EXPECT_EQ(ThreadManager::getCallerId(), kernelId());
    pid_t const child = fork();
    if (child == 0) {
        _exit(ThreadManager::getCallerId() == kernelId() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(ThreadManager::getCallerId(), kernelId());
}

// The entry values.

TEST(ThreadEntry, Default_IsNoThread) {
    Entry entry;
    EXPECT_STREQ(entry.mName.buffer(), "");
    EXPECT_EQ(entry.mPriority.value(), ThreadPriority::NORMAL);
    EXPECT_EQ(entry.mEndEvent.get(), nullptr);
    EXPECT_EQ(entry.mThreadHandle.get(), nullptr);
    EXPECT_FALSE(entry.isActive());
    EXPECT_FALSE(entry.isControllable());
    EXPECT_EQ(entry.waitToStop(0), -1);
    entry.toStop();
    entry.detach();
    EXPECT_FALSE(entry.isActive());
}

TEST(ThreadEntry, OfAForeignThread_HasNeitherEventNorHandle) {
    for (int caller : {1, 2, -1}) {
        Entry const entry(caller, 77, "foreign", ThreadPriority(ThreadPriority::LOW));
        EXPECT_STREQ(entry.mName.buffer(), "foreign");
        EXPECT_EQ(entry.mPriority.OsValue(), 2);
        EXPECT_EQ(entry.mEndEvent.get(), nullptr);
        EXPECT_EQ(entry.mThreadHandle.get(), nullptr);
    }
}

TEST(ThreadEntry, OfAStartedThread_IsActiveUntilToStop) {
    HookScope const scope;
    hooks::threadDetach.replace([](pthread_t) { return 0; });
    Entry entry(0, 77, "started", ThreadPriority());
    ASSERT_NE(entry.mThreadHandle.get(), nullptr);
    EXPECT_EQ(*entry.mThreadHandle.get(), 77UL);
    EXPECT_TRUE(entry.isActive());
    EXPECT_TRUE(entry.isControllable());
    EXPECT_EQ(entry.waitToStop(1), -2);
    entry.toStop();
    EXPECT_FALSE(entry.isActive());
    EXPECT_EQ(entry.waitToStop(0), 0);
    EXPECT_TRUE(entry.isControllable());
}

TEST(ThreadEntry, Copies_ShareTheEndAndTheHandle) {
    HookScope const scope;
    hooks::threadDetach.replace([](pthread_t) { return 0; });
    Entry entry(0, 77, "started", ThreadPriority());
    Entry const copy(entry);
    EXPECT_EQ(copy.mThreadHandle.get(), entry.mThreadHandle.get());
    entry.toStop();
    EXPECT_FALSE(copy.isActive());
}

pthread_t gDetached;

TEST(ThreadEntry, Detach_GivesUpTheHandleAndKeepsTheEvent) {
    HookScope const scope;
    gDetached = 0;
    hooks::threadDetach.replace([](pthread_t thread) {
        gDetached = thread;
        return 0;
    });
    Entry entry(0, 77, "started", ThreadPriority());
    entry.detach();
    EXPECT_EQ(gDetached, 77UL);
    EXPECT_EQ(entry.mThreadHandle.get(), nullptr);
    EXPECT_TRUE(entry.isControllable());
    EXPECT_TRUE(entry.isActive());
}

TEST(ThreadEntry, DetachThread_OfACellWith0_DoesNothing) {
    HookScope const scope;
    unsigned long cell = 0;
    ThreadManager::DetachThread()(&cell);
    EXPECT_EQ(hooks::threadDetach.calls(), 0U);
}

// The watchdog's front.

using ThreadManagerWatchdog = utltest::WithManager;

TEST_F(ThreadManagerWatchdog, UntilItIsInitialized_EveryOperationIsFalse) {
    WatchdogAccess::setInitialized(Access::watchdog(), false);
    LogCapture const log;
    EXPECT_FALSE(manager().entryWatchdog(1000, nullptr));
    EXPECT_FALSE(manager().isRegisteredWatchdog());
    EXPECT_FALSE(manager().isWatchingWatchdog());
    EXPECT_FALSE(manager().startWatchdog());
    EXPECT_FALSE(manager().stopWatchdog());
    EXPECT_FALSE(manager().setWatchdogAliveTime(1000));
    EXPECT_FALSE(manager().unregisterWatchdog());
    manager().keepAliveWatchdog(StatementInfo::INVALID);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ThreadManagerWatchdog, Id0_StandsForTheCallingThread) {
    ThreadWatchdog& watchdog = restingWatchdog();
    EXPECT_TRUE(manager().entryWatchdog(1000, nullptr));
    EXPECT_TRUE(watchdog.isRegistered(kernelId()));
    EXPECT_TRUE(manager().isRegisteredWatchdog());
    EXPECT_FALSE(manager().isWatchingWatchdog());
    EXPECT_TRUE(manager().startWatchdog());
    EXPECT_TRUE(watchdog.isWatching(kernelId()));
    EXPECT_TRUE(manager().isWatchingWatchdog());
    EXPECT_TRUE(manager().setWatchdogAliveTime(2000));
    EXPECT_EQ(watchdog.findWatchdogInfo(kernelId())->aliveTime, 2000U);
    EXPECT_TRUE(manager().stopWatchdog());
    EXPECT_FALSE(watchdog.isWatching(kernelId()));
    EXPECT_TRUE(manager().unregisterWatchdog());
    EXPECT_FALSE(watchdog.isRegistered(kernelId()));
}

TEST_F(ThreadManagerWatchdog, AnyOtherId_IsThatThread) {
    ThreadWatchdog& watchdog = restingWatchdog();
    EXPECT_TRUE(manager().entryWatchdog(1000, nullptr, 42));
    EXPECT_TRUE(watchdog.isRegistered(42));
    EXPECT_TRUE(manager().isRegisteredWatchdog(42));
    EXPECT_TRUE(manager().startWatchdog(42));
    EXPECT_TRUE(manager().isWatchingWatchdog(42));
    EXPECT_TRUE(manager().setWatchdogAliveTime(2000, 42));
    EXPECT_EQ(watchdog.findWatchdogInfo(42)->aliveTime, 2000U);
    EXPECT_TRUE(manager().stopWatchdog(42));
    EXPECT_FALSE(watchdog.isWatching(42));
    EXPECT_TRUE(manager().unregisterWatchdog(42));
    EXPECT_FALSE(watchdog.isRegistered(42));
}

TEST_F(ThreadManagerWatchdog, EntryWatchdog_TakesTheRegisteredName) {
    ThreadWatchdog& watchdog = restingWatchdog();
    SilentListener listener;
    EXPECT_TRUE(Access::storeEntry(NO_THREAD, foreignEntry("registered")));
    EXPECT_TRUE(manager().entryWatchdog(7, &listener, NO_THREAD));
    EXPECT_EQ(*watchdog.findWatchdogInfo(NO_THREAD), WatchdogInfo(NO_THREAD, 7, &listener, "registered", 1));
}

TEST_F(ThreadManagerWatchdog, EntryWatchdog_OfAnUnknownId_TakesAnEmptyName) {
    ThreadWatchdog& watchdog = restingWatchdog();
    EXPECT_TRUE(manager().entryWatchdog(7, nullptr, NO_THREAD));
    EXPECT_EQ(*watchdog.findWatchdogInfo(NO_THREAD), WatchdogInfo(NO_THREAD, 7, nullptr, "", 1));
}

TEST_F(ThreadManagerWatchdog, EntryWatchdog_WithoutAnAliveTime_LogsTheCallersId) {
    LogCapture const log;
    EXPECT_FALSE(manager().entryWatchdog(0, nullptr));
    EXPECT_EQ(log.lines(), std::vector<std::string>{numbered(
                               "<UTIL> ERR: ThreadWatchdog Register AliveTime is 0 ID:", kernelId(), " ")});
}

TEST_F(ThreadManagerWatchdog, KeepAlive_IsTheCallingThreadsSignOfLife) {
    ThreadWatchdog& watchdog = restingWatchdog();
    EXPECT_TRUE(manager().entryWatchdog(1000, nullptr));
    EXPECT_TRUE(manager().startWatchdog());
    StatementInfo const place("file", "function", 3, 4);
    manager().keepAliveWatchdog(place);
    EXPECT_EQ(watchdog.findWatchdogInfo(kernelId())->lastStatement, place);
    EXPECT_EQ(watchdog.findWatchdogInfo(kernelId())->aliveStatus, WatchdogInfo::ALIVE);
}

TEST_F(ThreadManagerWatchdog, KeepAlive_WithoutAWatchdog_IsHarmless) {
    ThreadWatchdog* const watchdog = Access::exchangeWatchdog(nullptr);
    manager().keepAliveWatchdog(StatementInfo::INVALID);
    EXPECT_EQ(Access::exchangeWatchdog(watchdog), nullptr);
}

TEST_F(ThreadManagerWatchdog, KeepAlive_DoesNotWaitForTheTable) {
    HookScope const scope;
    restingWatchdog();
    // While a thread is created its starter holds the table's lock.
    hooks::threadCreate.replace(
        [](pthread_t* thread, pthread_attr_t const* attributes, void* (*entry)(void*), void* argument) {
            std::thread([] { ThreadManager::get()->keepAliveWatchdog(StatementInfo::INVALID); }).join();
            return hooks::threadCreate.real(thread, attributes, entry, argument);
        });
    HeldThread const thread("started");
    EXPECT_NE(thread.id(), 0);
}

// The signs of life around system calls.

StatementInfo gInside("", "", 0, 0);

void noteLastStatement() {
    WatchdogInfo const* const info = Access::watchdog().findWatchdogInfo(kernelId());
    gInside = info != nullptr ? info->lastStatement : StatementInfo::INVALID;
}

class ThreadManagerBracket : public utltest::WithManager {
  protected:
    ThreadManagerBracket() { gInside = StatementInfo::INVALID; }

    static void watchCaller() {
        restingWatchdog();
        EXPECT_TRUE(manager().entryWatchdog(60000, nullptr));
        EXPECT_TRUE(manager().startWatchdog());
    }

    /// The calling thread was at position 1 of the statement inside the call, and is at position 2 now.
    static void expectBracket(char const* function, unsigned int line) {
        EXPECT_EQ(gInside, StatementInfo("source/UtlThreadManager", function, line, 1));
        noteLastStatement();
        EXPECT_EQ(gInside, StatementInfo("source/UtlThreadManager", function, line, 2));
    }
};

TEST_F(ThreadManagerBracket, StandsAroundTheCreationOfAThread) {
    HookScope const scope;
    watchCaller();
    hooks::threadCreate.replace([](pthread_t*, pthread_attr_t const*, void* (*)(void*), void*) {
        noteLastStatement();
        return EAGAIN;
    });
    LogCapture const log;
    manager().entry(doNothing, nullptr, 0, 0, nullptr, "refused");
    expectBracket("entry", 490);
}

TEST_F(ThreadManagerBracket, StandsAroundTheDetachingOfAThread) {
    HookScope const scope;
    watchCaller();
    hooks::threadDetach.replace([](pthread_t) {
        noteLastStatement();
        return 0;
    });
    Entry(0, 77, "started", ThreadPriority()).detach();
    expectBracket("operator()", 150);
}

TEST_F(ThreadManagerBracket, StandsAroundTheCallersOwnHandle) {
    watchCaller();
    manager().entryCaller(0, 0, nullptr, "main");
    noteLastStatement();
    EXPECT_EQ(gInside, StatementInfo("source/UtlThreadManager", "entryCaller", 581, 2));
}

TEST_F(ThreadManagerBracket, StandsAroundTheChangeOfAPriority) {
    runOnManagedThread([] {
        HookScope const scope;
        watchCaller();
        hooks::setPriority.replace([](int, unsigned int, int) {
            noteLastStatement();
            return 0;
        });
        EXPECT_TRUE(manager().setPriority(kernelId(), ThreadPriority(ThreadPriority::LOW)));
        expectBracket("setPriority", 770);
    });
}

void* (*gRealStart)(void*);

// Runs before what the library has a new thread do. The table's lock is held by the starter.
void* watchAndStart(void* argument) {
    Access::watchdog().entry(kernelId(), 60000, nullptr, "new");
    Access::watchdog().start(kernelId());
    return gRealStart(argument);
}

TEST_F(ThreadManagerBracket, StandsAroundTheFirstPriorityOfANewThread) {
    HookScope const scope;
    restingWatchdog();
    hooks::threadCreate.replace(
        [](pthread_t* thread, pthread_attr_t const* attributes, void* (*entry)(void*), void* argument) {
            gRealStart = entry;
            return hooks::threadCreate.real(thread, attributes, watchAndStart, argument);
        });
    hooks::setPriority.replace([](int, unsigned int, int) {
        noteLastStatement();
        return 0;
    });
    runOnManagedThread([] { expectBracket("startThread", 1280); });
}

TEST_F(ThreadManagerBracket, LeavesErrnoAsTheCallSetIt) {
    LogCapture const log;
    runOnManagedThread([] {
        HookScope const scope;
        watchCaller();
        hooks::setPriority.failFrom(1, 1, -1, EPERM);
        hooks::clockGetTime.failFrom(2, 0, -1, EINVAL);
        EXPECT_FALSE(manager().setPriority(kernelId(), ThreadPriority(ThreadPriority::HIGH)));
    });
    EXPECT_NE(log.lines().back().find("er:1 erSt:Operation not permitted"), std::string::npos);
}

// Everything at once.

TEST_F(ThreadManagerInstance, ManyThreadsAtOnce_CanDoEverything) {
    LogCapture const log;
    ThreadWatchdog& watchdog = restingWatchdog();
    manager().enableRegistrationLog();
    auto const work = [&watchdog] {
        for (int round = 0; round < 30; ++round) {
            HeldThread thread("busy", 1, 60000, nullptr);
            EXPECT_NE(thread.id(), 0);
            EXPECT_TRUE(manager().startWatchdog(thread.id()));
            manager().entryCaller(round % 2, 60000, nullptr, "caller");
            manager().entryWatchdog(60000, nullptr);
            manager().startWatchdog();
            manager().keepAliveWatchdog(StatementInfo("file", "function", 1, 1));
            manager().printThreadInfoReg(4);
            manager().printWatchdogInfo(4);
            ThreadManager::Names names(128, 0);
            manager().getNames(&names);
            EXPECT_FALSE(manager().unregister(thread.id()));
            EXPECT_TRUE(manager().setWatchdogAliveTime(50000, thread.id()));
            EXPECT_TRUE(watchdog.unregister(thread.id()));
            thread.end();
            EXPECT_TRUE(manager().unregister(thread.id()));
            manager().unregisterWatchdog();
            manager().unregister(kernelId());
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(work);
    }
    for (auto& thread : threads) {
        thread.join();
    }
    ThreadManager::Names names(128, 0);
    EXPECT_TRUE(manager().getNames(&names));
    ASSERT_EQ(names.size(), 1U);
    EXPECT_EQ(names.getAt(0)->mKey, watchdogId());
    EXPECT_EQ(WatchdogAccess::infos(watchdog).size(), 0U);
}

}  // namespace

// Starts, constructors and destructors of threads and timers, each allocation of which fails once: it
// happened whole or not at all, and works in good weather.

#include <dirent.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <thread>

#include "TestAllocations.h"
#include "TestCommand.h"
#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestThreads.h"
#include "TestTimers.h"
#include "UtlFile.h"
#include "UtlMemory.h"
#include "UtlMsgDrivenSharedThread.h"
#include "UtlSharedTimer.h"
#include "UtlThread.h"
#include "UtlThreadManager.h"
#include "UtlTimer.h"

using namespace utltest;

namespace {

using utl::ThreadManager;

unsigned int entriesOf(char const* folder) {
    DIR* const listed = opendir(folder);
    unsigned int count = 0;
    while (listed != nullptr && readdir(listed) != nullptr) {
        ++count;
    }
    closedir(listed);
    return count;
}

// What a failed start must not leave behind.
struct Kept {
    Kept() {
        ThreadManager::Names names(ThreadManager::DEFAULT_ENTRY_MAX, 0);
        ThreadManager::get()->getNames(&names);
        places = names.size();
        watched = utltest::ThreadWatchdogAccess::infos(utltest::ThreadManagerAccess::watchdog()).size();
    }
    unsigned int const descriptors = entriesOf("/proc/self/fd");
    unsigned int places = 0;
    unsigned int watched = 0;
};

bool operator==(Kept const& left, Kept const& right) {
    return left.descriptors == right.descriptors && left.places == right.places &&
           left.watched == right.watched;
}

// The log is not captured: its capture allocates, too.
//
// Lets the first allocation of `work` fail, then the second, and so on, until it needs none that fails.
// `undo` undoes what has happened by then.
unsigned int failEachAllocation(std::function<void()> const& work, std::function<void()> const& undo) {
    ThreadManager::get();
    unsigned int const threads = entriesOf("/proc/self/task");
    Kept const before;
    for (unsigned int number = 1;; ++number) {
        bool failed = false;
        {
            FailingAllocation const failing(number);
            try {
                work();
            } catch (std::bad_alloc const&) {
                // What it leaves is looked at below.
            }
            failed = failing.hasHappened();
        }
        undo();
        while (entriesOf("/proc/self/task") > threads) {
            std::this_thread::yield();  // the system takes a thread away after its end
        }
        EXPECT_TRUE(before == Kept()) << "allocation " << number;
        if (!failed) {
            return number - 1;
        }
    }
}

using StartMemory = utltest::WithManager;

class Idle : public utl::Thread {
  public:
    Idle() : Thread("a name that is longer than any short text is") {}
    ~Idle() override { end(); }
    void end() {
        mGate.open();
        stop(utl::Thread::AWAIT_END);
        leaveManagement();
    }

  protected:
    int execute() override {
        EXPECT_TRUE(mGate.hold());
        leaveWatchdog();
        return 0;
    }

  private:
    Gate mGate;
};

TEST_F(StartMemory, OfAThread_IsHadBeforeThereIsAThread) {
    std::unique_ptr<Idle> thread;
    unsigned int const failures = failEachAllocation(
        [&] {
            if (thread == nullptr) {
                thread = std::make_unique<Idle>();
            }
            EXPECT_EQ(thread->start(1, 1000), 0);
        },
        [&] { thread.reset(); });
    EXPECT_GE(failures, 6U);
}

TEST_F(StartMemory, OfAThread_ThatFails_LeavesAThreadThatCanBeStarted) {
    Idle thread;
    ThreadManager::get();
    {
        FailingAllocation const failing(1);
        EXPECT_THROW(thread.start(), std::bad_alloc);
    }
    EXPECT_FALSE(thread.hasDone(utl::Thread::STARTED));
    EXPECT_FALSE(thread.isRunning());
    EXPECT_EQ(thread.start(), 0);
    EXPECT_TRUE(thread.isRunning());
}

TEST_F(StartMemory, OfAnEntry_IsHadBeforeThereIsAThread) {
    int id = 0;
    unsigned int const failures = failEachAllocation(
        [&id] {
            utl::Memory::destroy();  // a start makes it, for the thread's name
            id = ThreadManager::get()->entry([](void*) {}, nullptr, 1, 1000, nullptr,
                                             "a name that is longer than any short text is");
            EXPECT_NE(id, 0);
        },
        [&id] {
            if (id != 0) {
                EXPECT_EQ(ThreadManager::get()->waitToStop(id, 0), 0);
                EXPECT_TRUE(ThreadManager::get()->unregisterWatchdog(id));
                EXPECT_TRUE(ThreadManager::get()->unregister(id));
            }
            id = 0;
        });
    EXPECT_GE(failures, 6U);
}

TEST_F(StartMemory, OfAMessageThread_LeavesNothingBehind) {
    Collector collector;
    std::unique_ptr<ScopedMsgThread> thread;
    failEachAllocation(
        [&] {
            thread.reset();
            thread =
                std::make_unique<ScopedMsgThread>(8, 8, "a name that is longer than any short text is", 4);
            EXPECT_EQ(thread->start(&collector, 1, 1000), 0);
            EXPECT_GT(thread->setTimer(60000), 0);
            EXPECT_EQ(thread->sendMsgSync(1), 1);
        },
        [&] { thread.reset(); });
}

TEST_F(StartMemory, OfASharedThread_LeavesNothingBehind) {
    std::unique_ptr<utl::MsgDrivenSharedThread> thread;
    auto const end = [&thread] {
        if (thread != nullptr) {
            thread->stop();
            thread->leaveManagement();
            thread.reset();
        }
    };
    failEachAllocation(
        [&] {
            end();
            thread = std::make_unique<utl::MsgDrivenSharedThread>(8, 8, 4, "shared", 4);
            EXPECT_EQ(thread->start(1, 1000), 0);
        },
        end);
}

TEST_F(StartMemory, OfASharedTimer_LeavesNothingBehind) {
    std::unique_ptr<ScopedTimers> timers;
    failEachAllocation(
        [&timers] {
            timers.reset();
            timers = std::make_unique<ScopedTimers>(4, "shared", 1, 1000);
            int const timer = (*timers)->addTimer(nullptr, 60000);
            EXPECT_GT(timer, 0);
            EXPECT_TRUE((*timers)->start(timer));
        },
        [&timers] { timers.reset(); });
}

TEST_F(StartMemory, OfATimer_LeavesNeitherItsThreadNorItsPlaceBehind) {
    std::unique_ptr<utl::Timer> timer;
    auto const end = [&timer] {
        if (timer != nullptr) {
            timer->destroy();
            timer.reset();
        }
    };
    failEachAllocation(
        [&] {
            end();
            timer = std::make_unique<utl::Timer>(60000, 1, 1000, nullptr, 0, 1, "one");
            EXPECT_TRUE(timer->start());
        },
        end);
}

TEST_F(StartMemory, OfTheFirstGet_ThatFails_IsWantedAgainByTheNext) {
    for (unsigned int number = 1, failed = 1; failed != 0; ++number) {
        LogCapture const log;
        ThreadManager::destroy();
        {
            FailingAllocation const failing(number);
            try {
                ThreadManager::get();
                failed = 0;
            } catch (std::bad_alloc const&) {
                bool const isMade = ThreadManager::getIfCreated() != nullptr;
                EXPECT_EQ(log.count("<UTIL> ERR: ThreadManager::get() : Watchdog is not started."),
                          isMade ? 1U : 0U)
                    << "allocation " << number;
            }
        }
        ASSERT_NE(ThreadManager::get(), nullptr);
        EXPECT_TRUE(ThreadManager::get()->entryWatchdog(1000, nullptr)) << "allocation " << number;
    }
    EXPECT_TRUE(ThreadManager::get()->unregisterWatchdog());
}

TEST_F(StartMemory, OfAnEnd_IsNotNeeded) {
    Idle first;
    Idle second;
    ASSERT_EQ(first.start(1, 1000), 0);
    ASSERT_EQ(second.start(1, 1000), 0);
    NoMemoryScope const none;
    first.end();
    EXPECT_FALSE(first.isRunning());
    EXPECT_TRUE(second.isRunning());
}

TEST_F(StartMemory, OfAManagerThatIsGone_IsDoneWithoutInDestructors) {
    utl::File file("start_memory_test.tmp", 1);
    ASSERT_EQ(file.open(2, 1), 1);
    ThreadManager::destroy();
    {
        NoMemoryScope const none;
        EXPECT_EQ(ThreadManager::getOrNull(), nullptr);
        file.close();
    }
    EXPECT_EQ(ThreadManager::getIfCreated(), nullptr);
    unlink("start_memory_test.tmp");
}

}  // namespace

#pragma once

// What the tests of threads share: access to the private state that no operation reaches, and threads that
// run as long as the test wants.

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "TestGate.h"
#include "TestPrivate.h"
#include "TestTask.h"
#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"

namespace utltest {

namespace in_watchdog {
UTLTEST_REVEAL(utl::ThreadWatchdog, mInitialized);
UTLTEST_REVEAL(utl::ThreadWatchdog, mInfosSyncObject);
UTLTEST_REVEAL(utl::ThreadWatchdog, mInKeepAlive);
UTLTEST_REVEAL(utl::ThreadWatchdog, mInfos);
UTLTEST_REVEAL(utl::ThreadWatchdog, mThread);
UTLTEST_REVEAL(utl::ThreadWatchdog, mTimerId);
UTLTEST_REVEAL(utl::ThreadWatchdog, executeWatchThreads);
}  // namespace in_watchdog

struct ThreadWatchdogAccess {
    static void setInitialized(utl::ThreadWatchdog& watchdog, bool initialized) {
        watchdog.*in_watchdog::mInitialized = initialized;
    }
    static void setInKeepAlive(utl::ThreadWatchdog& watchdog, bool inKeepAlive) {
        utl::SyncGuard const guard(watchdog.*in_watchdog::mInfosSyncObject);
        watchdog.*in_watchdog::mInKeepAlive = inKeepAlive;
    }
    static bool isInKeepAlive(utl::ThreadWatchdog& watchdog) {
        utl::SyncGuard const guard(watchdog.*in_watchdog::mInfosSyncObject);
        return watchdog.*in_watchdog::mInKeepAlive;
    }
    static utl::WatchdogInfos& infos(utl::ThreadWatchdog& watchdog) { return watchdog.*in_watchdog::mInfos; }
    static utl::MsgDrivenThread& thread(utl::ThreadWatchdog& watchdog) {
        return *(watchdog.*in_watchdog::mThread);
    }
    /// A look at the table, on this thread instead of the watchdog's, which must rest.
    static void watchOnce(utl::ThreadWatchdog& watchdog) { (watchdog.*in_watchdog::executeWatchThreads)(); }
    static void setTimerId(utl::ThreadWatchdog& watchdog, int timerId) {
        watchdog.*in_watchdog::mTimerId = timerId;
    }

    /// A copy of the record of a registered thread, which the watchdog's thread may be about to change.
    static utl::WatchdogInfo copyInfo(utl::ThreadWatchdog& watchdog, int id) {
        utl::SyncGuard const guard(watchdog.*in_watchdog::mInfosSyncObject);
        utl::WatchdogInfo const* const info = watchdog.findWatchdogInfo(id);
        return info != nullptr ? *info : utl::WatchdogInfo();
    }
};

namespace in_manager {
UTLTEST_REVEAL(utl::ThreadManager, mWatchdog);
UTLTEST_REVEAL(utl::ThreadManager, mEntriesSyncObject);
UTLTEST_REVEAL(utl::ThreadManager, mEntries);
UTLTEST_REVEAL(utl::ThreadManager, initializeEntryMax);
UTLTEST_REVEAL(utl::ThreadManager, getOrCreate);
UTLTEST_REVEAL(utl::ThreadManager, storeEntry);
UTLTEST_REVEAL(utl::ThreadManager, eraseEntry);
}  // namespace in_manager

struct ThreadManagerAccess {
    /// Holds the lock of the manager's table for its scope.
    class HeldTable {
      public:
        HeldTable() : mGuard(utl::ThreadManager::get()->*in_manager::mEntriesSyncObject) {}

      private:
        utl::SyncGuard const mGuard;
    };

    /// Makes the instance as `get` does, but does not start the watchdog's thread.
    static void createWithoutWatchdogThread(unsigned int entryMax) {
        in_manager::initializeEntryMax(entryMax);
        bool isFirst = false;
        in_manager::getOrCreate(&isFirst);
    }
    static int watchdogThreadId(utl::ThreadManager& manager) {
        return ThreadWatchdogAccess::thread(*(manager.*in_manager::mWatchdog).load()).getId();
    }
    static utl::ThreadWatchdog& watchdog() {
        return *(utl::ThreadManager::get()->*in_manager::mWatchdog).load();
    }

    /// Takes the watchdog away, as it is while the manager is deleted; returns what was there.
    static utl::ThreadWatchdog* exchangeWatchdog(utl::ThreadWatchdog* watchdog) {
        return (utl::ThreadManager::get()->*in_manager::mWatchdog).exchange(watchdog);
    }
    static bool storeEntry(int id, utl::ThreadManager::ThreadEntry const& entry) {
        utl::ThreadManager& manager = *utl::ThreadManager::get();
        utl::SyncGuard const guard(manager.*in_manager::mEntriesSyncObject);
        utl::ThreadManager::ThreadEntry moved = entry;
        return (manager.*in_manager::storeEntry)(id, moved);
    }
    static utl::ThreadManager::ThreadEntry copyEntry(int id) {
        utl::ThreadManager& manager = *utl::ThreadManager::get();
        utl::SyncGuard const guard(manager.*in_manager::mEntriesSyncObject);
        return *(manager.*in_manager::mEntries).find(id);
    }
    static void eraseEntry(int id) {
        utl::ThreadManager& manager = *utl::ThreadManager::get();
        utl::SyncGuard const guard(manager.*in_manager::mEntriesSyncObject);
        (manager.*in_manager::eraseEntry)(id);
    }
};

/// True as long as the kernel knows a thread of this process by this id.
inline bool lives(int id) {
    return syscall(SYS_tgkill, getpid(), id, 0) == 0;
}

/// An id that the kernel assigns to no thread.
inline constexpr int NO_THREAD = 10000000;

/// An entry of a thread that was not started here.
inline utl::ThreadManager::ThreadEntry foreignEntry(char const* name) {
    return {1, 0, name, utl::ThreadPriority()};
}

/// A manager that is fresh for the test and destroyed after it.
class WithManager : public ::testing::Test {
  protected:
    WithManager() { utl::ThreadManager::destroy(); }
    ~WithManager() override { utl::ThreadManager::destroy(); }

    static utl::ThreadManager& manager() { return *utl::ThreadManager::get(); }

    /// The watchdog, which does not look at its table any more: what a test finds there it has done itself.
    static utl::ThreadWatchdog& restingWatchdog() {
        EXPECT_TRUE(manager().setWatchdogWatchInterval(0));
        return utltest::ThreadManagerAccess::watchdog();
    }

    /// The kernel id of the watchdog's own thread.
    static int watchdogId() {
        return utltest::ThreadWatchdogAccess::thread(utltest::ThreadManagerAccess::watchdog()).getId();
    }

    /// Fills a table of `entryMax` places, one of which the watchdog's thread has, with foreign threads until
    /// only `places` are free.
    static void fillTable(unsigned int entryMax, unsigned int places) {
        for (unsigned int i = 0; i + places + 1 < entryMax; ++i) {
            ASSERT_TRUE(utltest::ThreadManagerAccess::storeEntry(NO_THREAD + static_cast<int>(i),
                                                                 foreignEntry("filler")));
        }
    }
};

/// A thread started with `ThreadManager::entry` that stays in its function until it is released.
class HeldThread {
  public:
    explicit HeldThread(char const* name, int watchdog = 0, unsigned int aliveTime = 0,
                        utl::WatchdogTimerListener* listener = nullptr,
                        utl::ThreadPriority const& priority = utl::ThreadPriority())
        : mId(utl::ThreadManager::get()->entry(run, this, watchdog, aliveTime, listener, name, priority)) {}

    /// Releases the thread, waits for its end and unregisters it.
    ~HeldThread() {
        letGo();
        if (mId != 0) {
            utl::ThreadManager::get()->waitToStop(mId, 0);
            utl::ThreadManager::get()->unregister(mId);
        }
    }
    HeldThread(HeldThread const&) = delete;
    HeldThread& operator=(HeldThread const&) = delete;

    int id() const { return mId; }

    /// Lets the function return.
    void letGo() { mGate.open(); }

    /// As `letGo`; the thread has ended when this returns.
    void end() {
        letGo();
        EXPECT_EQ(utl::ThreadManager::get()->waitToStop(mId, 0), 0);
    }

    /// The kernel id as the function saw it; waits until it has.
    int seenId() const {
        EXPECT_TRUE(mGate.waitUntilHeld());
        return mSeenId;
    }

  private:
    static void run(void* argument) {
        auto* const self = static_cast<HeldThread*>(argument);
        self->mSeenId = kernelId();
        EXPECT_TRUE(self->mGate.hold());
    }

    mutable Gate mGate;
    std::atomic<int> mSeenId{0};
    int const mId;
};

/// Runs `work` on a thread of its own that `ThreadManager::entry` starts, to its end.
template <typename WORK>
void runOnManagedThread(WORK work) {
    auto const call = [](void* argument) { (*static_cast<WORK*>(argument))(); };
    int const id = utl::ThreadManager::get()->entry(call, &work, 0, 0, nullptr, "worker");
    ASSERT_NE(id, 0);
    ASSERT_EQ(utl::ThreadManager::get()->waitToStop(id, 0), 0);
    EXPECT_TRUE(utl::ThreadManager::get()->unregister(id));
}

}  // namespace utltest

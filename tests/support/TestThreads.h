#pragma once

// What the tests of threads share: access to the private state that no operation reaches, and threads that
// run as long as the test wants.

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "TestTask.h"
#include "UtlEvent.h"
#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"

namespace utl {

struct ThreadWatchdogTestAccess {
    static void setInitialized(ThreadWatchdog& watchdog, bool initialized) {
        watchdog.mInitialized = initialized;
    }
    static void setInKeepAlive(ThreadWatchdog& watchdog, bool inKeepAlive) {
        SyncGuard const guard(watchdog.mInfosSyncObject);
        watchdog.mInKeepAlive = inKeepAlive;
    }
    static bool isInKeepAlive(ThreadWatchdog& watchdog) {
        SyncGuard const guard(watchdog.mInfosSyncObject);
        return watchdog.mInKeepAlive;
    }
    static WatchdogInfos& infos(ThreadWatchdog& watchdog) { return watchdog.mInfos; }
    static MsgDrivenThread& thread(ThreadWatchdog& watchdog) { return *watchdog.mThread; }
    /// A look at the table, on this thread instead of the watchdog's, which must rest.
    static void watchOnce(ThreadWatchdog& watchdog) { watchdog.executeWatchThreads(); }
    static void setTimerId(ThreadWatchdog& watchdog, int timerId) { watchdog.mTimerId = timerId; }

    /// A copy of the record of a registered thread, which the watchdog's thread may be about to change.
    static WatchdogInfo copyInfo(ThreadWatchdog& watchdog, int id) {
        SyncGuard const guard(watchdog.mInfosSyncObject);
        WatchdogInfo const* const info = watchdog.mInfos.find(id);
        return info != nullptr ? *info : WatchdogInfo();
    }
};

struct ThreadManagerTestAccess {
    /// Holds the lock of the manager's table for its scope.
    class HeldTable {
      public:
        HeldTable() : mGuard(ThreadManager::get()->mEntriesSyncObject) {}

      private:
        SyncGuard const mGuard;
    };

    /// Makes the instance as `get` does, but does not start the watchdog's thread.
    static void createWithoutWatchdogThread(unsigned int entryMax) {
        ThreadManager::initializeEntryMax(entryMax);
        bool isFirst = false;
        ThreadManager::getOrCreate(&isFirst);
    }
    static int watchdogThreadId(ThreadManager& manager) {
        return ThreadWatchdogTestAccess::thread(*manager.mWatchdog.load()).getId();
    }
    static ThreadWatchdog& watchdog() { return *ThreadManager::get()->mWatchdog.load(); }

    /// Replaces the manager's watchdog and returns the former one; null is what it has while it is deleted.
    static ThreadWatchdog* exchangeWatchdog(ThreadWatchdog* watchdog) {
        return ThreadManager::get()->mWatchdog.exchange(watchdog);
    }
    static bool storeEntry(int id, ThreadManager::ThreadEntry const& entry) {
        ThreadManager& manager = *ThreadManager::get();
        SyncGuard const guard(manager.mEntriesSyncObject);
        ThreadManager::ThreadEntry moved = entry;
        return manager.storeEntry(id, moved);
    }
    static ThreadManager::ThreadEntry copyEntry(int id) {
        ThreadManager& manager = *ThreadManager::get();
        SyncGuard const guard(manager.mEntriesSyncObject);
        return *manager.mEntries.find(id);
    }
    static void eraseEntry(int id) {
        ThreadManager& manager = *ThreadManager::get();
        SyncGuard const guard(manager.mEntriesSyncObject);
        manager.eraseEntry(id);
    }
};

}  // namespace utl

namespace utltest {

/// True as long as the kernel knows a thread of this process by this id.
inline bool lives(int id) {
    return syscall(SYS_tgkill, getpid(), id, 0) == 0;
}

/// An id that the kernel assigns to no thread.
inline constexpr int NO_THREAD = 10000000;

/// Waits until the event is on, whatever wakes the thread meanwhile.
inline void waitSurely(utl::Event const& event) {
    while (event.isOff()) {
        event.waitToOn(0);
    }
}

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
        return utl::ThreadManagerTestAccess::watchdog();
    }

    /// The kernel id of the watchdog's own thread.
    static int watchdogId() {
        return utl::ThreadWatchdogTestAccess::thread(utl::ThreadManagerTestAccess::watchdog()).getId();
    }

    /// Fills a table of `entryMax` places, one of which the watchdog's thread has, with foreign threads until
    /// only `places` are free.
    static void fillTable(unsigned int entryMax, unsigned int places) {
        for (unsigned int i = 0; i + places + 1 < entryMax; ++i) {
            ASSERT_TRUE(utl::ThreadManagerTestAccess::storeEntry(NO_THREAD + static_cast<int>(i),
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
    void letGo() { mGo.setOn(); }

    /// As `letGo`; the thread has ended when this returns.
    void end() {
        letGo();
        EXPECT_EQ(utl::ThreadManager::get()->waitToStop(mId, 0), 0);
    }

    /// The kernel id as the function saw it; waits until it has.
    int seenId() const {
        waitSurely(mRunning);
        return mSeenId;
    }

  private:
    static void run(void* argument) {
        auto* const self = static_cast<HeldThread*>(argument);
        self->mSeenId = kernelId();
        self->mRunning.setOn();
        waitSurely(self->mGo);
    }

    utl::Event mGo{0, 0};
    utl::Event mRunning{0, 0};
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

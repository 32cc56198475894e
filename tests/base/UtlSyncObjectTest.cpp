#include "UtlSyncObject.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>

#include "TestHooks.h"
#include "TestLayout.h"

namespace {

bool tryLockOnOtherThread(utl::SyncObjectBase const& lock) {
    bool taken = false;
    std::thread([&] {
        taken = lock.tryLock();
        if (taken) {
            lock.unlock();
        }
    }).join();
    return taken;
}

TEST(SyncObject, TryLock_HeldByTheCallingThread_SucceedsAndIsBalancedByOneMoreUnlock) {
    utl::SyncObject lock;
    lock.lock();
    EXPECT_TRUE(lock.tryLock());
    lock.unlock();
    EXPECT_FALSE(tryLockOnOtherThread(lock));
    lock.unlock();
    EXPECT_TRUE(tryLockOnOtherThread(lock));
}

TEST(SyncObject, TryLock_HeldByAnotherThread_IsFalse) {
    utl::SyncObject lock;
    utl::SyncGuard const guard(lock);
    EXPECT_FALSE(tryLockOnOtherThread(lock));
}

TEST(SyncObject, LockAndUnlock_PassOnWhatPosixGave) {
    utl::SyncObject lock;
    EXPECT_EQ(lock.lock(), 0);
    EXPECT_EQ(lock.unlock(), 0);
#ifndef __SANITIZE_THREAD__  // which ends a program that gives back a lock it does not hold
    EXPECT_EQ(lock.unlock(), EPERM);
#endif
}

TEST(SyncObject, AtItsEnd_DestroysItsMutex) {
    utltest::HookScope const hooks;
    { utl::SyncObject const lock; }
    EXPECT_EQ(utltest::hooks::mutexDestroy.calls(), 1U);
}

TEST(SyncObject, ADerivedLock_IsTakenByAGuardAsItLocks) {
    struct Logged : utl::SyncObject {
        mutable std::string calls;
        int lock() const override { return calls += '+', utl::SyncObject::lock(); }
        int unlock() const override { return calls += '-', utl::SyncObject::unlock(); }
    } lock;
    {
        utl::SyncGuard const guard(lock);
        EXPECT_FALSE(tryLockOnOtherThread(lock));
    }
    EXPECT_EQ(lock.calls, "+-");
}

TEST(SyncObjectBase, HasItsOperationsBehindTheTwoSlotsOfItsDestructor) {
    using utl::SyncObjectBase;
    EXPECT_EQ(utltest::slotOf(&SyncObjectBase::lock), 2U);
    EXPECT_EQ(utltest::slotOf(&SyncObjectBase::tryLock), 3U);
    EXPECT_EQ(utltest::slotOf(&SyncObjectBase::unlock), 4U);
}

TEST(SyncGuard, HoldsTheLockForItsScopeThroughTheInterface) {
    struct Counting : utl::SyncObjectBase {
        mutable int locks = 0;
        mutable int unlocks = 0;
        int lock() const override { return ++locks; }
        bool tryLock() const override { return false; }
        int unlock() const override { return ++unlocks; }
    } lock;
    {
        utl::SyncGuard const guard(lock);
        EXPECT_EQ(lock.locks, 1);
        EXPECT_EQ(lock.unlocks, 0);
    }
    EXPECT_EQ(lock.unlocks, 1);
}

}  // namespace

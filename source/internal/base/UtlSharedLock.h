#pragma once

#include <shared_mutex>
#include <type_traits>

#include "UtlLockAnnotations.h"

namespace utl {

/// Lock that many threads share, or that one has alone; *internally locked*, since it is the lock. Unlike
/// `SyncObject` it is not recursive. It is never destroyed, because threads may outlive the exit handlers.
class UTL_CAPABILITY SharedLock {
  public:
    void lock() UTL_ACQUIRE() { mMutex.lock(); }
    void unlock() UTL_RELEASE() { mMutex.unlock(); }
    void lockShared() UTL_ACQUIRE_SHARED() { mMutex.lock_shared(); }
    void unlockShared() UTL_RELEASE_SHARED() { mMutex.unlock_shared(); }

  private:
    std::shared_mutex mMutex;
};
static_assert(std::is_trivially_destructible_v<SharedLock>);

/// Has a lock alone from its construction to the end of its scope; *one owner thread*.
class [[nodiscard]] UTL_SCOPED_CAPABILITY AloneGuard {
  public:
    explicit AloneGuard(SharedLock& lock) UTL_ACQUIRE(lock) : mLock(lock) { mLock.lock(); }
    ~AloneGuard() UTL_RELEASE() { mLock.unlock(); }
    AloneGuard(AloneGuard const&) = delete;
    AloneGuard& operator=(AloneGuard const&) = delete;

  private:
    SharedLock& mLock;
};

/// Shares a lock from its construction to the end of its scope; *one owner thread*.
class [[nodiscard]] UTL_SCOPED_CAPABILITY SharedGuard {
  public:
    explicit SharedGuard(SharedLock& lock) UTL_ACQUIRE_SHARED(lock) : mLock(lock) { mLock.lockShared(); }
    ~SharedGuard() UTL_RELEASE() { mLock.unlockShared(); }
    SharedGuard(SharedGuard const&) = delete;
    SharedGuard& operator=(SharedGuard const&) = delete;

  private:
    SharedLock& mLock;
};

}  // namespace utl

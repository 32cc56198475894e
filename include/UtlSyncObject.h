#pragma once

#include <pthread.h>

#include "UtlLockAnnotations.h"
#include "UtlPlatform.h"

namespace utl {

/// What `SyncGuard` needs of a lock. Locking does not change the object that the lock protects: `const`
/// objects can be locked as well.
class UTL_API UTL_CAPABILITY SyncObjectBase {
  public:
    SyncObjectBase() = default;
    SyncObjectBase(SyncObjectBase const&) = delete;
    SyncObjectBase& operator=(SyncObjectBase const&) = delete;
    virtual ~SyncObjectBase() = default;

    /// Blocks until the calling thread holds the lock; 0 for success.
    virtual int lock() const UTL_ACQUIRE() = 0;

    /// True if the calling thread now holds the lock; never blocks.
    [[nodiscard]] virtual bool tryLock() const UTL_TRY_ACQUIRE(true) = 0;

    /// Releases the lock; 0 for success.
    virtual int unlock() const UTL_RELEASE() = 0;
};

/// Recursive mutex; *internally locked*, since it is the lock. The thread that holds it may take it again,
/// and releases it as many times. Destroying a held lock is the caller's mistake; nothing reports it.
class UTL_API SyncObject : public SyncObjectBase {
  public:
    SyncObject();
    ~SyncObject() override;

    /// Blocks until the calling thread holds the lock. Returns the result of POSIX, 0 for success.
    int lock() const override UTL_ACQUIRE() { return pthread_mutex_lock(&mMutex); }

    /// True if the calling thread now holds the lock once more; never blocks.
    [[nodiscard]] bool tryLock() const override UTL_TRY_ACQUIRE(true) {
        return pthread_mutex_trylock(&mMutex) == 0;
    }

    /// Releases one hold of the calling thread. Returns the result of POSIX, 0 for success.
    int unlock() const override UTL_RELEASE() { return pthread_mutex_unlock(&mMutex); }

  private:
    mutable pthread_mutex_t mMutex;
};

/// Holds a lock from its construction to the end of its scope; *one owner thread*.
class [[nodiscard]] UTL_API UTL_SCOPED_CAPABILITY SyncGuard {
  public:
    /// Blocks until the calling thread holds the lock, which must outlive the guard.
    explicit SyncGuard(SyncObjectBase const& syncObject) UTL_ACQUIRE(syncObject) : mSyncObject(syncObject) {
        mSyncObject.lock();
    }
    virtual ~SyncGuard() UTL_RELEASE() { mSyncObject.unlock(); }
    SyncGuard(SyncGuard const&) = delete;
    SyncGuard& operator=(SyncGuard const&) = delete;

  private:
    SyncObjectBase const& mSyncObject;
};

}  // namespace utl

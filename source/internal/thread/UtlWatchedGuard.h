#pragma once

#include "UtlSyncObject.h"
#include "internal/thread/UtlKeepAlive.h"

namespace utl {

/// Holds a lock from its construction to the end of its scope; *one owner thread*. A thread that has to wait
/// for the lock shows in the watchdog's report.
class [[nodiscard]] WatchedGuard {
  public:
    /// Names the place as `KeepAliveBracket` does. The bracket ends as soon as the lock is held.
    WatchedGuard(SyncObjectBase const& lock, char const* file, char const* function, unsigned int line)
        : mLock(lock) {
        keepAliveAround(file, function, line, [&lock] { return lock.lock(); });
    }
    ~WatchedGuard() { mLock.unlock(); }
    WatchedGuard(WatchedGuard const&) = delete;
    WatchedGuard& operator=(WatchedGuard const&) = delete;

  private:
    SyncObjectBase const& mLock;
};

}  // namespace utl

#pragma once

#include <atomic>
#include <utility>

#include "UtlSyncObject.h"
#include "UtlThread.h"
#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"
#include "internal/base/UtlProcessWide.h"
#include "internal/base/UtlSavedErrno.h"

namespace utl {

/// Changes when a thread is registered with a watchdog or leaves it, and when a watchdog begins or goes.
UTL_CONSTINIT extern std::atomic<unsigned int> gWatchdogTableVersion;

/// Saves a thread the call for each look at a variable of its own. All libraries that a process loads later
/// have a little room together for such variables.
#define UTL_QUICK_TLS __attribute__((tls_model("initial-exec")))

/// The version at which the calling thread was not registered.
UTL_CONSTINIT extern thread_local unsigned int tUnregisteredAt UTL_QUICK_TLS;

/// True if a sign of life of the calling thread has no effect.
inline bool isKnownUnregistered() {
    return tUnregisteredAt == gWatchdogTableVersion.load(std::memory_order_acquire);
}

/// Makes all threads ask anew whether they are registered.
void changeWatchdogTableVersion() noexcept;

/// Reports that the calling thread is alive, before a call when the scope begins and after it when the scope
/// ends; *one owner thread*. The watchdog's report shows where a thread stands that blocks in between.
/// `errno` is left as it was, so that it can be looked at after the scope.
class [[nodiscard]] KeepAliveBracket {
  public:
    /// The texts must be literals. `file` is the name of the family's source without its ending, as in
    /// "source/UtlThreadManager", also for steps that stand in another file: readers of reports know it.
    KeepAliveBracket(char const* file, char const* function, unsigned int line)
        : mFile(file), mFunction(function), mLine(line) {
        report(StatementInfo::BEFORE_CALL);
    }
    ~KeepAliveBracket() { report(StatementInfo::AFTER_CALL); }
    KeepAliveBracket(KeepAliveBracket const&) = delete;
    KeepAliveBracket& operator=(KeepAliveBracket const&) = delete;

  private:
    void report(unsigned int sub) const {
        if (isKnownUnregistered()) {
            return;
        }
        SavedErrno const errnoOfTheCall;
        Thread::keepAliveWatchdog(StatementInfo(mFile, mFunction, mLine, sub));
    }

    char const* const mFile;
    char const* const mFunction;
    unsigned int const mLine;
};

/// Returns what `call()` returns, called inside a `KeepAliveBracket`.
template <typename CALL>
decltype(auto) keepAliveAround(char const* file, char const* function, unsigned int line, CALL&& call) {
    KeepAliveBracket const bracket(file, function, line);
    return std::forward<CALL>(call)();
}

/// Holds a lock from its construction to the end of its scope; *one owner thread*. The watchdog's report
/// shows a thread that has to wait for the lock.
class [[nodiscard]] UTL_SCOPED_CAPABILITY WatchedGuard {
  public:
    /// Names the place as `KeepAliveBracket` does. The bracket ends as soon as the lock is held.
    WatchedGuard(SyncObjectBase const& lock, char const* file, char const* function, unsigned int line)
        UTL_ACQUIRE(lock)
        : mLock(lock) {
        KeepAliveBracket const bracket(file, function, line);
        mLock.lock();
    }
    ~WatchedGuard() UTL_RELEASE() { mLock.unlock(); }
    WatchedGuard(WatchedGuard const&) = delete;
    WatchedGuard& operator=(WatchedGuard const&) = delete;

  private:
    SyncObjectBase const& mLock;
};

}  // namespace utl

#pragma once

#include <utility>

#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"
#include "internal/base/UtlSavedErrno.h"

namespace utl {

/// A sign of life of the calling thread, if it is registered with the watchdog.
inline void reportIfRegistered(StatementInfo const& place) {
    ThreadManager* const manager = ThreadManager::getOrNull();
    if (manager != nullptr && manager->isRegisteredWatchdog(0)) {
        manager->keepAliveWatchdog(place);
    }
}

/// Reports that the calling thread is alive, at position 1 of a statement when the scope begins and at
/// position 2 when it ends; *one owner thread*. A thread that blocks in between shows in the watchdog's
/// report where it stands. `errno` is left as it was, so that it can be looked at behind the scope.
class [[nodiscard]] KeepAliveBracket {
  public:
    /// The texts must be literals; `file` is the source's name without its ending, as in
    /// "source/UtlThreadManager".
    KeepAliveBracket(char const* file, char const* function, unsigned int line)
        : mFile(file), mFunction(function), mLine(line) {
        report(1);
    }
    ~KeepAliveBracket() { report(2); }
    KeepAliveBracket(KeepAliveBracket const&) = delete;
    KeepAliveBracket& operator=(KeepAliveBracket const&) = delete;

  private:
    void report(unsigned int sub) const {
        SavedErrno const errnoOfTheCall;
        ThreadManager* const manager = ThreadManager::getOrNull();
        if (manager != nullptr) {
            manager->keepAliveWatchdog(StatementInfo(mFile, mFunction, mLine, sub));
        }
    }

    char const* const mFile;
    char const* const mFunction;
    unsigned int const mLine;
};

/// Gives what `call()` gives, called inside a `KeepAliveBracket`.
template <typename CALL>
decltype(auto) keepAliveAround(char const* file, char const* function, unsigned int line, CALL&& call) {
    KeepAliveBracket const bracket(file, function, line);
    return std::forward<CALL>(call)();
}

}  // namespace utl

#pragma once

// System calls of the library, seen and replaced by the tests. The tests link the library's objects with
// calls that lead here; calls of the tests themselves go to the system.

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>

namespace utltest {

/// False for a thread that an `OwnHookScope` of another one leaves alone.
bool isHookedThread();

template <typename FUNCTION>
class Hook;

/// One hooked function. A test replaces it with `replace`, or lets calls of the library fail with `failFrom`.
template <typename RESULT, typename... ARGS>
class Hook<RESULT(ARGS...)> {
  public:
    using Function = RESULT (*)(ARGS...);

    /// `system` calls the function of the system.
    explicit constexpr Hook(Function system) : mSystem(system) {}

    /// Calls of the library go to `function` from now on; null returns them to the system.
    void replace(Function function) { mReplacement = function; }

    /// Of the library's calls from now on, number `first` (counted from 1) and the `count` - 1 after it
    /// return `result` with `error` in `errno`. A `count` of 0 means all that follow.
    void failFrom(unsigned int first, unsigned int count, RESULT result, int error) {
        mResult = result;
        mError = error;
        mCalls = 0;
        mFailCount = count;
        mFailFirst = first;
    }

    /// `watcher` sees the arguments of every call of the library before it runs, also of one that is replaced
    /// or made to fail; null for nobody.
    void watch(void (*watcher)(ARGS...)) { mWatcher = watcher; }

    /// Calls of the library since the last `failFrom` or `reset`.
    unsigned int calls() const { return mCalls; }

    void reset() {
        mReplacement = nullptr;
        mWatcher = nullptr;
        mFailFirst = 0;
        mCalls = 0;
    }

    /// A call of the library.
    RESULT call(ARGS... args) {
        if (!isHookedThread()) {
            return real(args...);
        }
        if (auto const watcher = mWatcher.load(std::memory_order_relaxed)) {
            watcher(args...);
        }
        unsigned int const number = mCalls.fetch_add(1, std::memory_order_relaxed) + 1;
        unsigned int const first = mFailFirst.load(std::memory_order_acquire);
        unsigned int const count = mFailCount.load(std::memory_order_relaxed);
        if (first != 0 && number >= first && (count == 0 || number - first < count)) {
            errno = mError;
            return mResult;
        }
        Function const replacement = mReplacement.load(std::memory_order_relaxed);
        return replacement != nullptr ? replacement(args...) : real(args...);
    }

    /// The system's own function.
    RESULT real(ARGS... args) { return mSystem(args...); }

  private:
    // The counts are relaxed: what a hook sees must not order the threads that pass it, or it would hide
    // races.
    Function const mSystem;
    std::atomic<Function> mReplacement{nullptr};
    std::atomic<void (*)(ARGS...)> mWatcher{nullptr};
    std::atomic<unsigned int> mCalls{0};
    std::atomic<unsigned int> mFailFirst{0};
    std::atomic<unsigned int> mFailCount{0};
    std::atomic<RESULT> mResult{};
    std::atomic<int> mError{0};
};

namespace hooks {
#define UTLTEST_CALL(hook, RESULT, function, PARAMETERS, ARGUMENTS) extern Hook<RESULT PARAMETERS> hook;
#include "HookedCalls.inc"
#undef UTLTEST_CALL
}  // namespace hooks

/// Begins with every hook as new, its calls counted from 0, and puts every hook back when the scope ends.
class [[nodiscard]] HookScope {
  public:
    HookScope();
    ~HookScope();
    HookScope(HookScope const&) = delete;
    HookScope& operator=(HookScope const&) = delete;
};

/// The same for the calls of the thread that makes the scope; those of other threads go to the system and do
/// not count. The watchdog's thread reads and writes when it likes, and would take the nth call away.
class [[nodiscard]] OwnHookScope : public HookScope {
  public:
    OwnHookScope();
};

}  // namespace utltest

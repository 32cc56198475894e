#pragma once

// System calls of the library, seen and replaced by the tests. The test program defines the functions, so the
// library calls them here; a call that does not come from the library always goes to the system.

#include <dirent.h>
#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>

namespace utltest {

/// True for an address inside libutl's code.
bool isLibraryCode(void const* address);

/// False for a thread that an `OwnHookScope` of another one leaves alone.
bool isHookedThread();

template <typename FUNCTION>
class Hook;

/// One hooked function. A test replaces it with `replace`, or lets calls of the library fail with `failFrom`.
template <typename RESULT, typename... ARGS>
class Hook<RESULT(ARGS...)> {
  public:
    using Function = RESULT (*)(ARGS...);

    explicit constexpr Hook(char const* name) : mName(name) {}

    /// Calls of the library go to `function` from now on; null gives them back to the system.
    void replace(Function function) { mReplacement = function; }

    /// Of the library's calls from now on, number `first` (counted from 1) and the `count` - 1 behind it give
    /// `result` with `error` in `errno`. A `count` of 0 means all that follow.
    void failFrom(unsigned int first, unsigned int count, RESULT result, int error) {
        mResult = result;
        mError = error;
        mCalls = 0;
        mFailCount = count;
        mFailFirst = first;
    }

    /// `watcher` sees the arguments of every call of the library in front of it, also of one that is replaced
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

    /// What the defined function does for a caller at `caller`.
    RESULT call(void const* caller, ARGS... args) {
        if (!isLibraryCode(caller) || !isHookedThread()) {
            return real(args...);
        }
        if (auto const watcher = mWatcher.load()) {
            watcher(args...);
        }
        unsigned int const number = ++mCalls;
        unsigned int const first = mFailFirst;
        unsigned int const count = mFailCount;
        if (first != 0 && number >= first && (count == 0 || number - first < count)) {
            errno = mError;
            return mResult;
        }
        Function const replacement = mReplacement;
        return replacement != nullptr ? replacement(args...) : real(args...);
    }

    /// The system's own function.
    RESULT real(ARGS... args) {
        Function function = mReal;
        if (function == nullptr) {
            function = reinterpret_cast<Function>(dlsym(RTLD_NEXT, mName));
            mReal = function;
        }
        return function(args...);
    }

  private:
    char const* const mName;
    std::atomic<Function> mReal{nullptr};
    std::atomic<Function> mReplacement{nullptr};
    std::atomic<void (*)(ARGS...)> mWatcher{nullptr};
    std::atomic<unsigned int> mCalls{0};
    std::atomic<unsigned int> mFailFirst{0};
    std::atomic<unsigned int> mFailCount{0};
    std::atomic<RESULT> mResult{};
    std::atomic<int> mError{0};
};

namespace hooks {
extern Hook<int(int*)> pipe;
extern Hook<ssize_t(int, void*, size_t)> read;
extern Hook<ssize_t(int, void const*, size_t)> write;
extern Hook<int(int)> close;
extern Hook<int(int)> fsync;
extern Hook<int(int, int, long)> fcntl;
extern Hook<int(clockid_t, timespec*)> clockGetTime;
extern Hook<int(timeval*, void*)> getTimeOfDay;
extern Hook<char*(time_t const*, char*)> ctimeR;
extern Hook<time_t(time_t*)> time;
extern Hook<tm*(time_t const*, tm*)> gmtimeR;
extern Hook<tm*(time_t const*, tm*)> localtimeR;
extern Hook<int(timespec const*, timespec*)> nanoSleep;
extern Hook<int(pthread_t*, pthread_attr_t const*, void* (*)(void*), void*)> threadCreate;
extern Hook<int(pthread_t)> threadDetach;
extern Hook<int(int, unsigned int, int)> setPriority;
extern Hook<int(pthread_cond_t*, pthread_condattr_t const*)> condInit;
extern Hook<int(pthread_cond_t*)> condDestroy;
extern Hook<int(pthread_cond_t*)> condBroadcast;
extern Hook<int(pthread_cond_t*, pthread_mutex_t*)> condWait;
extern Hook<int(pthread_cond_t*, pthread_mutex_t*, timespec const*)> condTimedWait;
extern Hook<int(pthread_mutex_t*)> mutexDestroy;
extern Hook<int(clockid_t, sigevent*, timer_t*)> timerCreate;
extern Hook<int(timer_t, int, itimerspec const*, itimerspec*)> timerSetTime;
extern Hook<int(timer_t)> timerDelete;
extern Hook<int(int, struct sigaction const*, struct sigaction*)> sigAction;
extern Hook<int(char const*, int, mode_t)> open;
extern Hook<off_t(int, off_t, int)> lseek;
extern Hook<int(int, off_t)> ftruncate;
extern Hook<int(int, int)> flock;
extern Hook<int(char const*, struct stat*)> stat;
extern Hook<int(int, struct stat*)> fstat;
extern Hook<int(char const*, mode_t)> chmod;
extern Hook<int(int, mode_t)> fchmod;
extern Hook<int(char const*, mode_t)> mkdir;
extern Hook<int(char const*)> rmdir;
extern Hook<int(char const*)> unlink;
extern Hook<int(char const*, char const*)> rename;
extern Hook<DIR*(char const*)> opendir;
extern Hook<dirent*(DIR*)> readdir;
extern Hook<int(DIR*)> closedir;
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

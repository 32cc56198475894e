#include "TestHooks.h"

namespace utltest {

namespace {

// A thread is known by the address of its mark.
thread_local char tMark;
std::atomic<char*> gOnlyThread{nullptr};

}  // namespace

bool isHookedThread() {
    char* const only = gOnlyThread.load(std::memory_order_relaxed);
    return only == nullptr || only == &tMark;
}

// The library may call while it is loaded, so the hooks are constants to begin with.
#define UTLTEST_CALL(hook, RESULT, function, PARAMETERS, ARGUMENTS) \
    Hook<RESULT PARAMETERS> hooks::hook([] PARAMETERS -> RESULT { return ::function ARGUMENTS; });
#include "HookedCalls.inc"
#undef UTLTEST_CALL

static void resetAllHooks() {
    gOnlyThread = nullptr;
#define UTLTEST_CALL(hook, RESULT, function, PARAMETERS, ARGUMENTS) hooks::hook.reset();
#include "HookedCalls.inc"
#undef UTLTEST_CALL
}

HookScope::HookScope() {
    resetAllHooks();
}

HookScope::~HookScope() {
    resetAllHooks();
}

OwnHookScope::OwnHookScope() {
    gOnlyThread = &tMark;
}

}  // namespace utltest

#define UTLTEST_WRAPPED extern "C" __attribute__((no_sanitize("address", "thread", "undefined")))

#define UTLTEST_CALL(hook, RESULT, function, PARAMETERS, ARGUMENTS) \
    UTLTEST_WRAPPED RESULT __wrap_##function PARAMETERS {           \
        return utltest::hooks::hook.call ARGUMENTS;                 \
    }
#include "HookedCalls.inc"
#undef UTLTEST_CALL

// The names that a function has with 64-bit offsets or 64-bit time, and with checked buffers, whose size
// comes after the other arguments.
#define UTLTEST_ALIAS(function, name) \
    extern "C" decltype(__wrap_##function) name __attribute__((alias("__wrap_" #function)));
UTLTEST_ALIAS(read, __wrap___read_chk)
UTLTEST_ALIAS(pread, __wrap_pread64)
UTLTEST_ALIAS(pread, __wrap___pread_chk)
UTLTEST_ALIAS(pread, __wrap___pread64_chk)
UTLTEST_ALIAS(fcntl, __wrap_fcntl64)
UTLTEST_ALIAS(fcntl, __wrap___fcntl_time64)
UTLTEST_ALIAS(open, __wrap_open64)
UTLTEST_ALIAS(lseek, __wrap_lseek64)
UTLTEST_ALIAS(ftruncate, __wrap_ftruncate64)
UTLTEST_ALIAS(stat, __wrap_stat64)
UTLTEST_ALIAS(stat, __wrap___stat64_time64)
UTLTEST_ALIAS(fstat, __wrap_fstat64)
UTLTEST_ALIAS(fstat, __wrap___fstat64_time64)
UTLTEST_ALIAS(readdir, __wrap_readdir64)
UTLTEST_ALIAS(clock_gettime, __wrap___clock_gettime64)
UTLTEST_ALIAS(gettimeofday, __wrap___gettimeofday64)
UTLTEST_ALIAS(ctime_r, __wrap___ctime64_r)
UTLTEST_ALIAS(time, __wrap___time64)
UTLTEST_ALIAS(gmtime_r, __wrap___gmtime64_r)
UTLTEST_ALIAS(localtime_r, __wrap___localtime64_r)
UTLTEST_ALIAS(nanosleep, __wrap___nanosleep64)
UTLTEST_ALIAS(pthread_cond_timedwait, __wrap___pthread_cond_timedwait64)
UTLTEST_ALIAS(timer_settime, __wrap___timer_settime64)

#include "TestHooks.h"

#include <fcntl.h>
#include <link.h>
#include <sys/file.h>
#include <sys/resource.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace utltest {

namespace {

struct CodeRange {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
};

int findLibrary(dl_phdr_info* info, size_t, void* out) {
    if (info->dlpi_name == nullptr || std::strstr(info->dlpi_name, "libutl.so") == nullptr) {
        return 0;
    }
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        ElfW(Phdr) const& header = info->dlpi_phdr[i];
        if (header.p_type == PT_LOAD && (header.p_flags & PF_X) != 0) {
            auto* range = static_cast<CodeRange*>(out);
            range->begin = static_cast<std::uintptr_t>(info->dlpi_addr + header.p_vaddr);
            range->end = range->begin + static_cast<std::uintptr_t>(header.p_memsz);
        }
    }
    return 1;
}

// Found once, before main and while the process has one thread; calls that come earlier are the loader's or
// the library's own start-up and go to the system.
CodeRange gLibrary;

struct LibraryFinder {
    LibraryFinder() { dl_iterate_phdr(findLibrary, &gLibrary); }
} const gFinder;

}  // namespace

bool isLibraryCode(void const* address) {
    auto const place = reinterpret_cast<std::uintptr_t>(address);
    return place >= gLibrary.begin && place < gLibrary.end;
}

namespace {

// A thread is known by the address of its mark.
thread_local char tMark;
std::atomic<char*> gOnlyThread{nullptr};

}  // namespace

bool isHookedThread() {
    char* const only = gOnlyThread;
    return only == nullptr || only == &tMark;
}

// With 64-bit time on a 32-bit machine the C library's functions have names of their own.
constexpr bool HAS_TIME64_NAMES = sizeof(void*) == 4 && sizeof(time_t) == 8;

constexpr char const* timeName(char const* plain, char const* wide) {
    return HAS_TIME64_NAMES ? wide : plain;
}

namespace hooks {
Hook<int(int*)> pipe("pipe");
Hook<ssize_t(int, void*, size_t)> read("read");
Hook<ssize_t(int, void const*, size_t)> write("write");
Hook<int(int)> close("close");
Hook<int(int)> fsync("fsync");
Hook<int(int, int, long)> fcntl(HAS_TIME64_NAMES ? "fcntl64" : "fcntl");
Hook<int(clockid_t, timespec*)> clockGetTime(timeName("clock_gettime", "__clock_gettime64"));
Hook<int(timeval*, void*)> getTimeOfDay(timeName("gettimeofday", "__gettimeofday64"));
Hook<char*(time_t const*, char*)> ctimeR(timeName("ctime_r", "__ctime64_r"));
Hook<time_t(time_t*)> time(timeName("time", "__time64"));
Hook<tm*(time_t const*, tm*)> gmtimeR(timeName("gmtime_r", "__gmtime64_r"));
Hook<tm*(time_t const*, tm*)> localtimeR(timeName("localtime_r", "__localtime64_r"));
Hook<int(timespec const*, timespec*)> nanoSleep(timeName("nanosleep", "__nanosleep64"));
Hook<int(pthread_t*, pthread_attr_t const*, void* (*)(void*), void*)> threadCreate("pthread_create");
Hook<int(pthread_t)> threadDetach("pthread_detach");
Hook<int(int, unsigned int, int)> setPriority("setpriority");
Hook<int(pthread_cond_t*, pthread_condattr_t const*)> condInit("pthread_cond_init");
Hook<int(pthread_cond_t*)> condDestroy("pthread_cond_destroy");
Hook<int(pthread_cond_t*)> condBroadcast("pthread_cond_broadcast");
Hook<int(pthread_cond_t*, pthread_mutex_t*)> condWait("pthread_cond_wait");
Hook<int(pthread_cond_t*, pthread_mutex_t*, timespec const*)> condTimedWait(
    timeName("pthread_cond_timedwait", "__pthread_cond_timedwait64"));
Hook<int(pthread_mutex_t*)> mutexDestroy("pthread_mutex_destroy");
Hook<int(clockid_t, sigevent*, timer_t*)> timerCreate("timer_create");
Hook<int(timer_t, int, itimerspec const*, itimerspec*)> timerSetTime(timeName("timer_settime",
                                                                              "__timer_settime64"));
Hook<int(timer_t)> timerDelete("timer_delete");
Hook<int(int, struct sigaction const*, struct sigaction*)> sigAction("sigaction");
Hook<int(char const*, int, mode_t)> open("open64");
Hook<off_t(int, off_t, int)> lseek("lseek64");
Hook<int(int, off_t)> ftruncate("ftruncate64");
Hook<int(int, int)> flock("flock");
Hook<int(char const*, struct stat*)> stat(timeName("stat64", "__stat64_time64"));
Hook<int(int, struct stat*)> fstat(timeName("fstat64", "__fstat64_time64"));
Hook<int(char const*, mode_t)> chmod("chmod");
Hook<int(int, mode_t)> fchmod("fchmod");
Hook<int(char const*, mode_t)> mkdir("mkdir");
Hook<int(char const*)> rmdir("rmdir");
Hook<int(char const*)> unlink("unlink");
Hook<int(char const*, char const*)> rename("rename");
Hook<DIR*(char const*)> opendir("opendir");
Hook<dirent*(DIR*)> readdir("readdir64");
Hook<int(DIR*)> closedir("closedir");
}  // namespace hooks

static void resetAllHooks() {
    gOnlyThread = nullptr;
    hooks::pipe.reset();
    hooks::read.reset();
    hooks::write.reset();
    hooks::close.reset();
    hooks::fsync.reset();
    hooks::fcntl.reset();
    hooks::clockGetTime.reset();
    hooks::getTimeOfDay.reset();
    hooks::ctimeR.reset();
    hooks::time.reset();
    hooks::gmtimeR.reset();
    hooks::localtimeR.reset();
    hooks::nanoSleep.reset();
    hooks::threadCreate.reset();
    hooks::threadDetach.reset();
    hooks::setPriority.reset();
    hooks::condInit.reset();
    hooks::condDestroy.reset();
    hooks::condBroadcast.reset();
    hooks::condWait.reset();
    hooks::condTimedWait.reset();
    hooks::mutexDestroy.reset();
    hooks::timerCreate.reset();
    hooks::timerSetTime.reset();
    hooks::timerDelete.reset();
    hooks::sigAction.reset();
    hooks::open.reset();
    hooks::lseek.reset();
    hooks::ftruncate.reset();
    hooks::flock.reset();
    hooks::stat.reset();
    hooks::fstat.reset();
    hooks::chmod.reset();
    hooks::fchmod.reset();
    hooks::mkdir.reset();
    hooks::rmdir.reset();
    hooks::unlink.reset();
    hooks::rename.reset();
    hooks::opendir.reset();
    hooks::readdir.reset();
    hooks::closedir.reset();
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

#define UTLTEST_HOOKED extern "C" __attribute__((no_sanitize("address", "thread", "undefined")))
#define UTLTEST_CALLER __builtin_return_address(0)

UTLTEST_HOOKED int pipe(int* ends) noexcept {
    return utltest::hooks::pipe.call(UTLTEST_CALLER, ends);
}

UTLTEST_HOOKED ssize_t read(int handle, void* out, size_t bytes) {
    return utltest::hooks::read.call(UTLTEST_CALLER, handle, out, bytes);
}

UTLTEST_HOOKED ssize_t write(int handle, void const* data, size_t bytes) {
    return utltest::hooks::write.call(UTLTEST_CALLER, handle, data, bytes);
}

UTLTEST_HOOKED int close(int handle) {
    return utltest::hooks::close.call(UTLTEST_CALLER, handle);
}

UTLTEST_HOOKED int fsync(int handle) {
    return utltest::hooks::fsync.call(UTLTEST_CALLER, handle);
}

UTLTEST_HOOKED int fcntl(int handle, int command, ...) {
    void const* const caller = UTLTEST_CALLER;
    va_list arguments;
    va_start(arguments, command);
    long const argument = va_arg(arguments, long);
    va_end(arguments);
    return utltest::hooks::fcntl.call(caller, handle, command, argument);
}

UTLTEST_HOOKED int clock_gettime(clockid_t clock, timespec* out) noexcept {
    return utltest::hooks::clockGetTime.call(UTLTEST_CALLER, clock, out);
}

UTLTEST_HOOKED int gettimeofday(timeval* out, void* zone) noexcept {
    return utltest::hooks::getTimeOfDay.call(UTLTEST_CALLER, out, zone);
}

UTLTEST_HOOKED char* ctime_r(time_t const* time, char* out) noexcept {
    return utltest::hooks::ctimeR.call(UTLTEST_CALLER, time, out);
}

UTLTEST_HOOKED time_t time(time_t* out) noexcept {
    return utltest::hooks::time.call(UTLTEST_CALLER, out);
}

UTLTEST_HOOKED tm* gmtime_r(time_t const* time, tm* out) noexcept {
    return utltest::hooks::gmtimeR.call(UTLTEST_CALLER, time, out);
}

UTLTEST_HOOKED tm* localtime_r(time_t const* time, tm* out) noexcept {
    return utltest::hooks::localtimeR.call(UTLTEST_CALLER, time, out);
}

UTLTEST_HOOKED int nanosleep(timespec const* wanted, timespec* left) {
    return utltest::hooks::nanoSleep.call(UTLTEST_CALLER, wanted, left);
}

UTLTEST_HOOKED int pthread_create(pthread_t* thread, pthread_attr_t const* attributes, void* (*entry)(void*),
                                  void* argument) noexcept {
    return utltest::hooks::threadCreate.call(UTLTEST_CALLER, thread, attributes, entry, argument);
}

UTLTEST_HOOKED int pthread_detach(pthread_t thread) noexcept {
    return utltest::hooks::threadDetach.call(UTLTEST_CALLER, thread);
}

UTLTEST_HOOKED int setpriority(__priority_which_t which, id_t who, int priority) noexcept {
    return utltest::hooks::setPriority.call(UTLTEST_CALLER, static_cast<int>(which), who, priority);
}

UTLTEST_HOOKED int pthread_cond_init(pthread_cond_t* condition,
                                     pthread_condattr_t const* attributes) noexcept {
    return utltest::hooks::condInit.call(UTLTEST_CALLER, condition, attributes);
}

UTLTEST_HOOKED int pthread_cond_destroy(pthread_cond_t* condition) noexcept {
    return utltest::hooks::condDestroy.call(UTLTEST_CALLER, condition);
}

UTLTEST_HOOKED int pthread_cond_broadcast(pthread_cond_t* condition) noexcept {
    return utltest::hooks::condBroadcast.call(UTLTEST_CALLER, condition);
}

UTLTEST_HOOKED int pthread_mutex_destroy(pthread_mutex_t* mutex) noexcept {
    return utltest::hooks::mutexDestroy.call(UTLTEST_CALLER, mutex);
}

UTLTEST_HOOKED int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    return utltest::hooks::condWait.call(UTLTEST_CALLER, condition, mutex);
}

UTLTEST_HOOKED int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                          timespec const* end) {
    return utltest::hooks::condTimedWait.call(UTLTEST_CALLER, condition, mutex, end);
}

UTLTEST_HOOKED int timer_create(clockid_t clock, sigevent* event, timer_t* out) noexcept {
    return utltest::hooks::timerCreate.call(UTLTEST_CALLER, clock, event, out);
}

UTLTEST_HOOKED int timer_settime(timer_t timer, int flags, itimerspec const* spec, itimerspec* old) noexcept {
    return utltest::hooks::timerSetTime.call(UTLTEST_CALLER, timer, flags, spec, old);
}

UTLTEST_HOOKED int timer_delete(timer_t timer) noexcept {
    return utltest::hooks::timerDelete.call(UTLTEST_CALLER, timer);
}

UTLTEST_HOOKED int sigaction(int number, struct sigaction const* action, struct sigaction* old) noexcept {
    return utltest::hooks::sigAction.call(UTLTEST_CALLER, number, action, old);
}

UTLTEST_HOOKED int open(char const* path, int flags, ...) {
    void const* const caller = UTLTEST_CALLER;
    va_list arguments;
    va_start(arguments, flags);
    // The library always gives a mode.
    bool const hasMode = (flags & O_CREAT) != 0 || utltest::isLibraryCode(caller);
    mode_t const mode = hasMode ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return utltest::hooks::open.call(caller, path, flags, mode);
}

UTLTEST_HOOKED off_t lseek(int handle, off_t offset, int whence) noexcept {
    return utltest::hooks::lseek.call(UTLTEST_CALLER, handle, offset, whence);
}

UTLTEST_HOOKED int ftruncate(int handle, off_t size) noexcept {
    return utltest::hooks::ftruncate.call(UTLTEST_CALLER, handle, size);
}

UTLTEST_HOOKED int flock(int handle, int operation) noexcept {
    return utltest::hooks::flock.call(UTLTEST_CALLER, handle, operation);
}

UTLTEST_HOOKED int stat(char const* path, struct stat* out) noexcept {
    return utltest::hooks::stat.call(UTLTEST_CALLER, path, out);
}

UTLTEST_HOOKED int fstat(int handle, struct stat* out) noexcept {
    return utltest::hooks::fstat.call(UTLTEST_CALLER, handle, out);
}

UTLTEST_HOOKED int chmod(char const* path, mode_t mode) noexcept {
    return utltest::hooks::chmod.call(UTLTEST_CALLER, path, mode);
}

UTLTEST_HOOKED int fchmod(int handle, mode_t mode) noexcept {
    return utltest::hooks::fchmod.call(UTLTEST_CALLER, handle, mode);
}

UTLTEST_HOOKED int mkdir(char const* path, mode_t mode) noexcept {
    return utltest::hooks::mkdir.call(UTLTEST_CALLER, path, mode);
}

UTLTEST_HOOKED int rmdir(char const* path) noexcept {
    return utltest::hooks::rmdir.call(UTLTEST_CALLER, path);
}

UTLTEST_HOOKED int unlink(char const* path) noexcept {
    return utltest::hooks::unlink.call(UTLTEST_CALLER, path);
}

UTLTEST_HOOKED int rename(char const* source, char const* destination) noexcept {
    return utltest::hooks::rename.call(UTLTEST_CALLER, source, destination);
}

UTLTEST_HOOKED DIR* opendir(char const* path) {
    return utltest::hooks::opendir.call(UTLTEST_CALLER, path);
}

UTLTEST_HOOKED dirent* readdir(DIR* folder) {
    return utltest::hooks::readdir.call(UTLTEST_CALLER, folder);
}

UTLTEST_HOOKED int closedir(DIR* folder) {
    return utltest::hooks::closedir.call(UTLTEST_CALLER, folder);
}

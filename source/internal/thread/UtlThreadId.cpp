#include "internal/thread/UtlThreadId.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace utl {

namespace {

thread_local int tThreadId = 0;  // 0: not asked for yet

void forgetThreadId() {
    tThreadId = 0;
}

// False before the library's static initialisers have run, so that nothing is remembered too early.
bool const gForkIsSeen = pthread_atfork(nullptr, nullptr, forgetThreadId) == 0;

int askForThreadId() {
    int const id = static_cast<int>(syscall(SYS_gettid));
    if (gForkIsSeen) {
        tThreadId = id;
    }
    return id;
}

}  // namespace

int callerThreadId() {
    int const id = tThreadId;
    return id != 0 ? id : askForThreadId();
}

}  // namespace utl

#include "internal/message/UtlTimerSteps.h"

namespace utl {

// Timers of one period expire in turn, so the search begins behind the one that the thread found last.
int timerIdOf(TimerMap const& timers, int sysTimerNum) {
    thread_local unsigned int tNext = 0;
    unsigned int const size = timers.size();
    unsigned int const first = tNext < size ? tNext : 0;
    for (unsigned int i = 0; i < size; ++i) {
        unsigned int const index = i < size - first ? first + i : i - (size - first);
        Pair<int, TimerInfo> const* const timer = timers.getAt(index);
        if (timer->mValue.mSysTimerNum == sysTimerNum) {
            tNext = index + 1;
            return timer->mKey;
        }
    }
    return NO_TIMER_ID;
}

int nextFreeSysTimerNumber(TimerMap const& timers, int number) {
    int next = number;
    do {
        next = nextTimerId(next);
    } while (timerIdOf(timers, next) != NO_TIMER_ID);
    return next;
}

unsigned int printableTimerId(timer_t id) {
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(id));
}

}  // namespace utl

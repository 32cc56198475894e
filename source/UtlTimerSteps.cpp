#include "UtlTimerSteps.h"

namespace utl {

int timerIdOf(TimerMap const& timers, int sysTimerNum) {
    for (unsigned int i = 0; i < timers.size(); ++i) {
        if (timers.getAt(i)->mValue.mSysTimerNum == sysTimerNum) {
            return timers.getAt(i)->mKey;
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

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

TimerInfo* liveTimer(TimerInfo* info) {
    return info != nullptr && info->mRunning.get() != nullptr ? info : nullptr;
}

unsigned int printableTimerId(timer_t id) {
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(id));
}

}  // namespace utl

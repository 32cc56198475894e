#include "internal/message/UtlTimerSteps.h"

#include <algorithm>

#include "UtlLog.h"

namespace utl {

int nextFreeTimerId(int id, std::initializer_list<TimerMap const*> maps) {
    int next = id;
    do {
        next = nextTimerId(next);
    } while (std::any_of(maps.begin(), maps.end(),
                         [next](TimerMap const* map) { return map->find(next) != nullptr; }));
    return next;
}

// Timers of one period expire in turn, so the search begins after the one that the thread found last.
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

void reportSysTimerFailure(TimerOwner const& owner, char const* call, timer_t id, int error) {
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "%s(%s) %s SysTimerId:0x%08x errno:%d\n", owner.mClass,
           owner.mName, call, printableTimerId(id), error);
}

}  // namespace utl

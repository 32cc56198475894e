#include "UtlTimeCounter.h"

#include <time.h>

#include <cerrno>

#include "UtlLog.h"
#include "UtlMap.h"
#include "UtlSyncObject.h"
#include "internal/base/UtlProcessWide.h"

namespace utl {

namespace {

struct CounterIds {
    // Id to start tick.
    Map<unsigned int, unsigned int> mCounterIdsMap UTL_GUARDED_BY(mAccessCounterIdsSyncObject){
        TimeCounter::COUNTER_ID_MAX, AUTO_RESIZE_OFF};
    SyncObject mAccessCounterIdsSyncObject;
};

CounterIds& counterIds() {
    static ProcessWide<CounterIds> theCounterIds;
    return *theCounterIds;
}

// Constructed at load, so that no caller pays for it or meets a failed allocation.
[[maybe_unused]] CounterIds& gBuiltAtLoad = counterIds();

}  // namespace

unsigned int TimeCounter::getTickTime() {
    timespec now{};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "[CAUTION!!!]clock_gettime() Failed. CLOCK_MONOTONIC. errno:[%d]", errno);
        return INVALID_TIME;
    }
    return static_cast<unsigned int>(now.tv_sec) * 1000U + static_cast<unsigned int>(now.tv_nsec / 1000000);
}

TimeCounter::~TimeCounter() = default;

bool TimeCounter::start() {
    mStartTime = getTickTime();
    if (mStartTime == INVALID_TIME) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "TimeCounter::start() Failed.");
        return false;
    }
    mHasStarted = true;
    return true;
}

unsigned int TimeCounter::watch() {
    unsigned int const tick = getTickTime();
    if (!mHasStarted || tick == INVALID_TIME) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "TimeCounter::watch()/stop() Failed. HasStarted:[%s], TickTime:[%u]",
               mHasStarted ? "On" : "Off", tick);
        return INVALID_TIME;
    }
    return tick - mStartTime;
}

unsigned int TimeCounter::stop() {
    unsigned int const elapsed = watch();
    mHasStarted = false;
    mStartTime = INVALID_TIME;
    return elapsed;
}

bool TimeCounter::start(unsigned int counterId) {
    CounterIds& ids = counterIds();
    SyncGuard const guard(ids.mAccessCounterIdsSyncObject);
    if (!ids.mCounterIdsMap.insert(counterId, 0)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "TimeCounter::start(ID) Failed. InsertMap Error. CounterId:[%u]", counterId);
        return false;
    }
    unsigned int* const startTime = ids.mCounterIdsMap.find(counterId);
    // Only if the map is damaged: the id was stored under the same lock. There is no entry to remove.
    if (startTime == nullptr) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "TimeCounter::start(ID) Failed. Specified Key's Position Notfound. CounterId:[%u]", counterId);
        return false;
    }
    // The tick is read last, so that the work on the map is not measured.
    *startTime = getTickTime();
    if (*startTime == INVALID_TIME) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "TimeCounter::start(ID) Failed. TickTime is Invalid. CounterId:[%u]", counterId);
        ids.mCounterIdsMap.erase(counterId);
        return false;
    }
    return true;
}

unsigned int TimeCounter::watch(unsigned int counterId) {
    // Before the lock: the wait for it must not count as elapsed time.
    unsigned int const tick = getTickTime();
    CounterIds& ids = counterIds();
    SyncGuard const guard(ids.mAccessCounterIdsSyncObject);
    unsigned int const* const startTime = ids.mCounterIdsMap.find(counterId);
    if (startTime == nullptr) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "TimeCounter::Failed. Key Not Applicable. CounterId:[%u]",
               counterId);
        return INVALID_TIME;
    }
    if (*startTime == INVALID_TIME || tick == INVALID_TIME) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "TimeCounter::watch(ID)/stop(ID) Failed. StartTime:[%u], TickTime:[%u]", *startTime, tick);
        return INVALID_TIME;
    }
    return tick - *startTime;
}

unsigned int TimeCounter::stop(unsigned int counterId) {
    unsigned int const elapsed = watch(counterId);
    CounterIds& ids = counterIds();
    SyncGuard const guard(ids.mAccessCounterIdsSyncObject);
    ids.mCounterIdsMap.erase(counterId);
    return elapsed;
}

}  // namespace utl

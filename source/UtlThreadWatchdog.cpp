#include "UtlThreadWatchdog.h"

#include <cstring>

#include "UtlLog.h"
#include "UtlLogText.h"
#include "UtlProcessWide.h"
#include "UtlThreadId.h"
#include "UtlTimeCounter.h"

namespace utl {

namespace {

ProcessWide<StatementInfo> gInvalidStatement("", "", 0U, 0U);
ProcessWide<WatchdogInfo> gInvalidInfo;

bool areEqualTexts(char const* left, char const* right) {
    return std::strcmp(orEmpty(left), orEmpty(right)) == 0;
}

char const* aliveStatusText(int aliveStatus) {
    switch (aliveStatus) {
        case WatchdogInfo::ALIVE:
            return "ALIVE";
        case WatchdogInfo::TIMED_OUT:
            return "TIMEOUT";
        default:
            return "UNKNOWN";
    }
}

void printRow(int level, WatchdogInfo const& info) {
    StatementInfo const& last = info.lastStatement;
    applog(LOG_TYPE_LIBRARY, level, "%10d, %-32s, %10u, %-12s, %-12s, %13u, (%s, %s:%u:%u)", info.id,
           NameColumn(info.name.buffer()).get(), info.aliveTime,
           info.watchStatus == WatchdogInfo::WATCHING ? "WATCHING" : "NOT_WATCHING",
           aliveStatusText(info.aliveStatus), info.timeoutCount, orEmpty(last.file), orEmpty(last.function),
           last.line, last.sub);
}

void print(int level, WatchdogInfos const& infos) {
    applog(LOG_TYPE_LIBRARY, level, "ThreadWatchdog:: Watchdog info of threads in this process.");
    applog(LOG_TYPE_LIBRARY, level,
           "ID        , Name                            , AliveTime , WatchStatus , AliveStatus , "
           "TimeoutCount , "
           "LastAliveInfo(File, Function:Line:Sub) , ");
    for (unsigned int i = 0; i < infos.size(); ++i) {
        printRow(level, infos.getAt(i)->mValue);
    }
}

bool refuseNoAliveTime(int id) {
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "ThreadWatchdog Register AliveTime is 0 ID:%d ", id);
    return false;
}

// The record of thread `id`, null if there is none. A thread that reports again finds its record where it was
// the last time, unless the table has changed.
WatchdogInfo* findReporter(WatchdogInfos& infos, int id) {
    thread_local unsigned int tIndex = 0;
    auto* const last = infos.getAt(tIndex);
    if (last != nullptr && last->mKey == id) {
        return &last->mValue;
    }
    tIndex = searchPosition(id, infos.getAt(0), infos.size(), CompareLessPairKey<int, WatchdogInfo>());
    auto* const found = infos.getAt(tIndex);
    return found != nullptr && found->mKey == id ? &found->mValue : nullptr;
}

/// Says that a sign of life is being processed as long as the scope lasts.
class [[nodiscard]] InKeepAlive {
  public:
    explicit InKeepAlive(bool& flag) : mFlag(flag) { mFlag = true; }
    ~InKeepAlive() { mFlag = false; }
    InKeepAlive(InKeepAlive const&) = delete;
    InKeepAlive& operator=(InKeepAlive const&) = delete;

  private:
    bool& mFlag;
};

}  // namespace

StatementInfo const& StatementInfo::INVALID = *gInvalidStatement;
WatchdogInfo const& WatchdogInfo::INVALID = *gInvalidInfo;

bool operator==(StatementInfo const& left, StatementInfo const& right) {
    return areEqualTexts(left.file, right.file) && areEqualTexts(left.function, right.function) &&
           left.line == right.line && left.sub == right.sub;
}

WatchdogInfo::WatchdogInfo() = default;

WatchdogInfo::WatchdogInfo(int threadId, unsigned int allowedTime, WatchdogTimerListener* timerListener,
                           char const* threadName, int initialStatus)
    : id(threadId),
      aliveTime(allowedTime),
      listener(timerListener),
      watchStatus(initialStatus),
      name(threadName, 0, 0) {}

WatchdogInfo::~WatchdogInfo() = default;

bool operator==(WatchdogInfo const& left, WatchdogInfo const& right) {
    return left.id == right.id && left.aliveTime == right.aliveTime && left.listener == right.listener &&
           left.lastAliveTick == right.lastAliveTick && left.watchStatus == right.watchStatus &&
           left.aliveStatus == right.aliveStatus && left.timeoutCount == right.timeoutCount &&
           left.lastStatement == right.lastStatement && left.name == right.name;
}

WatchdogTimerListener::~WatchdogTimerListener() = default;

void ThreadWatchdog::DefaultTimerListener::onTime(int, WatchdogInfos const& infos) {
    print(LOG_LEVEL_INFO, infos);
}

ThreadWatchdog::ThreadWatchdog(unsigned int entryMax)
    : mInitialized(false), mInKeepAlive(false), mInfos(entryMax, 0) {}

ThreadWatchdog::~ThreadWatchdog() = default;

bool ThreadWatchdog::entry(int id, unsigned int aliveTime, WatchdogTimerListener* listener,
                           char const* name) {
    if (aliveTime == 0) {
        return refuseNoAliveTime(id);
    }
    if (name == nullptr || !mInitialized) {
        return false;
    }
    SyncGuard const guard(mInfosSyncObject);
    WatchdogInfo const info(id, aliveTime, listener, name, WatchdogInfo::NOT_WATCHING);
    if (mInfos.find(id) != nullptr || !mInfos.insert(id, info)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "ThreadWatchdog Register EntryMap ID:%d", id);
        return false;
    }
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_DETAIL, "ThreadWatchdog Register ID:%d, AliveTime:%u, Name:%s", id,
           aliveTime, name);
    return true;
}

bool ThreadWatchdog::unregister(int id) {
    if (!mInitialized) {
        return false;
    }
    SyncGuard const guard(mInfosSyncObject);
    return mInfos.erase(id);
}

bool ThreadWatchdog::isRegistered(int id) {
    return mInitialized && findWatchdogInfo(id) != nullptr;
}

bool ThreadWatchdog::isWatching(int id) {
    if (!mInitialized) {
        return false;
    }
    SyncGuard const guard(mInfosSyncObject);
    WatchdogInfo const* const info = mInfos.find(id);
    return info != nullptr && info->watchStatus == WatchdogInfo::WATCHING;
}

bool ThreadWatchdog::setAliveTime(int id, unsigned int aliveTime) {
    if (!mInitialized) {
        return false;
    }
    return aliveTime != 0 ? executeSetAliveTime(id, aliveTime) : refuseNoAliveTime(id);
}

bool ThreadWatchdog::start(int id) {
    return mInitialized && executeStart(id);
}

bool ThreadWatchdog::stop(int id) {
    return mInitialized && executeStop(id);
}

bool ThreadWatchdog::keepAlive(StatementInfo const& info) {
    return mInitialized && executeKeepAlive(callerThreadId(), info);
}

void ThreadWatchdog::printWatchdogInfo(int level) {
    if (!mInitialized) {
        return;
    }
    SyncGuard const guard(mInfosSyncObject);
    print(level, mInfos);
}

WatchdogInfo* ThreadWatchdog::findWatchdogInfo(int id) {
    SyncGuard const guard(mInfosSyncObject);
    return mInfos.find(id);
}

bool ThreadWatchdog::executeSetAliveTime(int id, unsigned int aliveTime) {
    SyncGuard const guard(mInfosSyncObject);
    WatchdogInfo* const info = mInfos.find(id);
    if (info == nullptr) {
        return false;
    }
    info->aliveTime = aliveTime;
    if (info->watchStatus == WatchdogInfo::WATCHING) {
        info->lastAliveTick = TimeCounter::getTickTime();
    }
    return true;
}

bool ThreadWatchdog::executeStart(int id) {
    SyncGuard const guard(mInfosSyncObject);
    WatchdogInfo* const info = mInfos.find(id);
    if (info == nullptr) {
        return false;
    }
    info->watchStatus = WatchdogInfo::WATCHING;
    if (info->lastAliveTick == WatchdogInfo::NO_TICK) {
        info->lastAliveTick = TimeCounter::getTickTime();
    }
    return true;
}

bool ThreadWatchdog::executeStop(int id) {
    SyncGuard const guard(mInfosSyncObject);
    WatchdogInfo* const info = mInfos.find(id);
    if (info == nullptr) {
        return false;
    }
    info->watchStatus = WatchdogInfo::NOT_WATCHING;
    info->lastAliveTick = WatchdogInfo::NO_TICK;
    return true;
}

// The lock is recursive: what is called from here may itself report, and ends at the first test.
bool ThreadWatchdog::executeKeepAlive(int id, StatementInfo const& info) {
    SyncGuard const guard(mInfosSyncObject);
    if (mInKeepAlive) {
        return false;
    }
    InKeepAlive const inKeepAlive(mInKeepAlive);
    WatchdogInfo* const found = findReporter(mInfos, id);
    if (found == nullptr) {
        return false;
    }
    if (found->watchStatus == WatchdogInfo::NOT_WATCHING) {
        return true;
    }
    if (found->aliveStatus == WatchdogInfo::TIMED_OUT) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_INFO, "ThreadWatchdog Timeout->Alive ID:%d Name:%s", id,
               orEmpty(found->name.buffer()));
    }
    found->aliveStatus = WatchdogInfo::ALIVE;
    found->lastStatement = info;
    found->lastAliveTick = TimeCounter::getTickTime();
    return true;
}

}  // namespace utl

template class utl::Map<int, utl::WatchdogInfo>;

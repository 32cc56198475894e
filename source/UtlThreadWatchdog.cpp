#include "UtlThreadWatchdog.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "UtlLog.h"
#include "UtlThreadManager.h"
#include "UtlTimeCounter.h"
#include "internal/base/UtlProcessWide.h"
#include "internal/log/UtlLogText.h"
#include "internal/thread/UtlKeepAlive.h"
#include "internal/thread/UtlLifeSign.h"

namespace utl {

UTL_CONSTINIT std::atomic<unsigned int> gWatchdogTableVersion{1};
UTL_CONSTINIT thread_local unsigned int tUnregisteredAt = 0;

namespace {

// Of the watchdog's own thread, which receives only the messages of its timer.
constexpr unsigned int TIMER_MSG_BYTES = 4;
constexpr unsigned int MSG_COUNT = 64;
constexpr int NO_TIMER = -1;

MsgDrivenThread* newThread(unsigned int timers) {
    return new MsgDrivenThread(TIMER_MSG_BYTES, MSG_COUNT, "Watchdog Thread", timers);
}

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

bool canTimeOut(WatchdogInfo const& info) {
    return info.watchStatus == WatchdogInfo::WATCHING && info.aliveStatus != WatchdogInfo::TIMED_OUT;
}

// A tick in the future, as after the counter wrapped, is not overdue. Neither is a thread that gave no sign
// of life yet, because `NO_TICK` is the greatest of all ticks.
bool isOverdue(WatchdogInfo const& info, unsigned int now) {
    return now >= info.lastAliveTick && now - info.lastAliveTick >= info.aliveTime;
}

bool refuseZeroAliveTime(int id) {
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "ThreadWatchdog Register AliveTime is 0 ID:%d ", id);
    return false;
}

// Sets the flag that a sign of life is being processed, as long as the scope lasts.
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

// Never 0, which is what a thread knows that has not asked yet.
void changeWatchdogTableVersion() noexcept {
    gWatchdogTableVersion += 2;
}

// The constants of the two classes under their own linker names: a plain definition would register their
// destructors at the start of the process, and run them at its end.
UTL_API extern ProcessWideConstant<StatementInfo> const gInvalidStatement asm(
    "_ZN3utl13StatementInfo7INVALIDE");
UTL_CONSTINIT ProcessWideConstant<StatementInfo> const gInvalidStatement("", "", 0U, 0U);
UTL_API extern ProcessWideConstant<WatchdogInfo> const gInvalidInfo asm("_ZN3utl12WatchdogInfo7INVALIDE");
UTL_CONSTINIT ProcessWideConstant<WatchdogInfo> const gInvalidInfo{ConstantTag()};

// Holds the lock of the table, whose rows are up to date when it begins; *one owner thread*. Threads that
// report have to wait.
class [[nodiscard]] UTL_SCOPED_CAPABILITY ThreadWatchdog::TableLook {
  public:
    explicit TableLook(ThreadWatchdog& watchdog) UTL_ACQUIRE(watchdog.mInfosSyncObject)
        : mWatchdog(watchdog), mGuard(watchdog.mInfosSyncObject) {
        forEachRow(mWatchdog.mInfos, &LifeSign::close);
    }
    ~TableLook() UTL_RELEASE() { forEachRow(mWatchdog.mInfos, &LifeSign::open); }
    TableLook(TableLook const&) = delete;
    TableLook& operator=(TableLook const&) = delete;

  private:
    template <typename STEP>
    void forEachRow(WatchdogInfos& infos, STEP step) {
        LifeSign::forEachOf(&mWatchdog, [&infos, step](LifeSign& sign, int id) {
            WatchdogInfo* const info = infos.find(id);
            if (info != nullptr) {
                (sign.*step)(*info);
            }
        });
    }

    ThreadWatchdog& mWatchdog;
    SyncGuard const mGuard;
};

// The row of a thread, up to date, under the lock of the table; *one owner thread*. The thread has to wait if
// it reports meanwhile.
class [[nodiscard]] ThreadWatchdog::RowLook {
  public:
    RowLook(WatchdogInfo* info, LifeSign* sign) : mInfo(info), mSign(info != nullptr ? sign : nullptr) {
        if (mSign != nullptr) {
            mSign->close(*mInfo);
        }
    }
    ~RowLook() {
        if (mSign != nullptr) {
            mSign->open(*mInfo);
        }
    }
    RowLook(RowLook const&) = delete;
    RowLook& operator=(RowLook const&) = delete;

    /// Null if the thread is not registered.
    WatchdogInfo* info() const { return mInfo; }

    /// The row outlives the look: the thread's next report will be made in it.
    void leaveClosed() { mSign = nullptr; }

  private:
    WatchdogInfo* const mInfo;
    LifeSign* mSign;
};

// What a thread knows of itself.
struct ThreadWatchdog::CallersPlace {
    ThreadWatchdog const* watchdog;
    unsigned int version;  // of the table
    int id;
    bool isRegistered;
    LifeSign* sign;  // null for a thread that reports in the table
};

// What a copy of the table has to have room for.
struct ThreadWatchdog::TableSize {
    unsigned int rows = 0;
    unsigned int nameLength = 0;  // of the longest name

    // A table that can be assigned one of this size without an allocation; null if there is no memory for it.
    std::unique_ptr<WatchdogInfos> allocate() const {
        try {
            auto infos = std::make_unique<WatchdogInfos>(rows, 0);
            std::string const longest(nameLength, ' ');
            WatchdogInfo const row(ThreadManager::NO_ID, 0, nullptr, longest.c_str(),
                                   WatchdogInfo::NOT_WATCHING);
            for (unsigned int i = 0; i < rows; ++i) {
                infos->insert(static_cast<int>(i), row);
            }
            return infos;
        } catch (std::bad_alloc const&) {
            return nullptr;
        }
    }

    bool isWithin(TableSize const& limit) const {
        return rows <= limit.rows && nameLength <= limit.nameLength;
    }
};

bool operator==(StatementInfo const& left, StatementInfo const& right) noexcept {
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

void WatchdogInfo::swap(WatchdogInfo& other) noexcept {
    std::swap(id, other.id);
    std::swap(aliveTime, other.aliveTime);
    std::swap(listener, other.listener);
    std::swap(lastAliveTick, other.lastAliveTick);
    std::swap(watchStatus, other.watchStatus);
    std::swap(aliveStatus, other.aliveStatus);
    std::swap(timeoutCount, other.timeoutCount);
    std::swap(lastStatement, other.lastStatement);
    name.swap(other.name);
}

bool operator==(WatchdogInfo const& left, WatchdogInfo const& right) noexcept {
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
    : mThread(nullptr), mTimerId(NO_TIMER), mInitialized(false), mInKeepAlive(false), mInfos(entryMax, 0) {
    mThread = newThread(entryMax);
}

unsigned int ThreadWatchdog::entryMax() {
    SyncGuard const guard(mInfosSyncObject);
    return mInfos.maxSize();
}

void ThreadWatchdog::replaceThread() {
    MsgDrivenThread* const replacement = newThread(entryMax());
    mThread->stop(Thread::AWAIT_END, Event::NO_LIMIT);
    mThread->leaveManagement();
    delete mThread;
    mThread = replacement;
}

ThreadWatchdog::~ThreadWatchdog() {
    delete mThread;
    LifeSign::forEachOf(this, [](LifeSign& sign, int) { sign.giveBack(); });
    changeWatchdogTableVersion();
}

bool ThreadWatchdog::initialize(unsigned int interval) {
    if (mInitialized || mThread->start(this) != 0 || !setTimer(interval)) {
        return false;
    }
    mInitialized = true;
    changeWatchdogTableVersion();
    return true;
}

// The timer ends with the thread.
void ThreadWatchdog::shutdown() {
    mTimerId = NO_TIMER;
    mThread->stop(Thread::AWAIT_END, Event::NO_LIMIT);
    mThread->leaveManagement();
    mInitialized = false;
}

bool ThreadWatchdog::setWatchInterval(unsigned int interval) {
    if (!mInitialized) {
        return false;
    }
    mThread->killTimer(mTimerId, 0);
    return setTimer(interval);
}

// Without autoRepeat: the next period begins after a pass, so that none pile up while a listener is slow.
bool ThreadWatchdog::setTimer(unsigned int interval) {
    mTimerId = mThread->setTimer(interval, 0, 0, 0);
    return mTimerId != NO_TIMER;
}

void ThreadWatchdog::receiveMsg(int /*threadId*/, ThreadRawMsg& msg) {
    int id = MSG_ID_NONE;
    if (msg.getMsgId(&id) == 0 || id != MSG_ID_TIMER) {
        return;
    }
    TimerMsg timer;
    if (timer.restoreFrom(msg) != 0 && timer.mTimerId == mTimerId) {
        executeWatchThreads();
    }
}

// One look at the clock serves the whole pass. An entry that was handled does not qualify again, and the
// table may have changed while its listener ran, so each search starts from the beginning.
void ThreadWatchdog::executeWatchThreads() {
    unsigned int const now = TimeCounter::getTickTime();
    if (now == WatchdogInfo::NO_TICK) {
        return;  // no time to compare with
    }
    for (int id = findOverdue(now); id != ThreadManager::NO_ID && timeOut(id, now); id = findOverdue(now)) {
    }
}

// The id of the first overdue thread, `NO_ID` if there is none.
int ThreadWatchdog::findOverdue(unsigned int now) {
    TableLook const look(*this);
    for (unsigned int i = 0; i < mInfos.size(); ++i) {
        WatchdogInfo const& info = mInfos.getAt(i)->mValue;
        if (canTimeOut(info) && isOverdue(info, now)) {
            return info.id;
        }
    }
    return ThreadManager::NO_ID;
}

void ThreadWatchdog::executeWatchdogTimeout(int id) {
    timeOut(id, WatchdogInfo::NO_TICK);
}

// The copy is allocated before the lock is taken: the application's `operator new` may wait for a thread that
// reports here meanwhile. If the table has grown in between, it is tried again. False if there is no memory
// for the copy: nothing is declared, and the next pass tries again.
//
// A sign of life that came after the pass found the thread overdue counts. With `NO_TICK` for the time of the
// pass that is not asked.
bool ThreadWatchdog::timeOut(int id, unsigned int now) {
    TimeoutResult result = TABLE_HAS_GROWN;
    while (result == TABLE_HAS_GROWN) {
        TableSize const size = tableSize();
        auto const copy = size.allocate();
        if (copy == nullptr) {
            return false;
        }
        WatchdogTimerListener* listener = nullptr;
        result = declareTimeout(id, now, size, &listener, copy.get());
        if (result == DECLARED) {
            DefaultTimerListener defaultListener;
            (listener != nullptr ? listener : &defaultListener)->onTime(id, *copy);
        }
    }
    return true;
}

ThreadWatchdog::TableSize ThreadWatchdog::tableSize() {
    SyncGuard const guard(mInfosSyncObject);
    TableSize size;
    size.rows = mInfos.size();
    for (unsigned int i = 0; i < size.rows; ++i) {
        size.nameLength = std::max(size.nameLength, mInfos.getAt(i)->mValue.name.length());
    }
    return size;
}

ThreadWatchdog::TimeoutResult ThreadWatchdog::declareTimeout(int id, unsigned int now,
                                                             TableSize const& allocated,
                                                             WatchdogTimerListener** listener,
                                                             WatchdogInfos* copy) {
    TableLook const look(*this);
    WatchdogInfo* const info = mInfos.find(id);
    if (info == nullptr || !canTimeOut(*info) || (now != WatchdogInfo::NO_TICK && !isOverdue(*info, now))) {
        return NOT_OVERDUE;
    }
    if (!tableSize().isWithin(allocated)) {
        return TABLE_HAS_GROWN;
    }
    info->aliveStatus = WatchdogInfo::TIMED_OUT;
    ++info->timeoutCount;
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "!!!!!!!! ThreadWatchdog Timeout ID:%d Name:%s !!!!!!!!", id,
           orEmpty(info->name.buffer()));
    copy->copy(mInfos);
    *listener = info->listener;
    return DECLARED;
}

bool ThreadWatchdog::entry(int id, unsigned int aliveTime, WatchdogTimerListener* listener,
                           char const* name) {
    if (aliveTime == 0) {
        return refuseZeroAliveTime(id);
    }
    if (name == nullptr) {
        return false;
    }
    WatchdogInfo info(id, aliveTime, listener, name, WatchdogInfo::NOT_WATCHING);
    return insert(info);
}

bool ThreadWatchdog::insert(WatchdogInfo& info) {
    if (info.aliveTime == 0) {
        return refuseZeroAliveTime(info.id);
    }
    if (!mInitialized) {
        return false;
    }
    int const id = info.id;
    SyncGuard const guard(mInfosSyncObject);
    if (!mInfos.insertSwapped(id, info)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "ThreadWatchdog Register EntryMap ID:%d", id);
        return false;
    }
    WatchdogInfo const& inserted = *mInfos.find(id);
    LifeSign::lend(this, inserted);
    changeWatchdogTableVersion();
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_DETAIL, "ThreadWatchdog Register ID:%d, AliveTime:%u, Name:%s", id,
           inserted.aliveTime, orEmpty(inserted.name.buffer()));
    return true;
}

bool ThreadWatchdog::unregister(int id) {
    if (!mInitialized) {
        return false;
    }
    WatchdogInfo erased;  // freed after the lock is released, like all memory
    SyncGuard const guard(mInfosSyncObject);
    if (!mInfos.eraseSwapped(id, erased)) {
        return false;
    }
    changeWatchdogTableVersion();
    LifeSign* const sign = LifeSign::find(this, id);
    if (sign != nullptr) {
        sign->giveBack();
    }
    return true;
}

bool ThreadWatchdog::isRegistered(int id) noexcept {
    if (!mInitialized) {
        return false;
    }
    if (id == ThreadManager::getCallerId()) {
        return callersPlace(id).isRegistered;
    }
    SyncGuard const guard(mInfosSyncObject);
    return mInfos.find(id) != nullptr;
}

// Each thread asks for itself around each call that may block, so it keeps its last answer. The version is
// read before the table, so that an answer is not used again if the table changes in between.
ThreadWatchdog::CallersPlace const& ThreadWatchdog::callersPlace(int id) noexcept {
    thread_local CallersPlace tLast UTL_QUICK_TLS = {nullptr, 0, ThreadManager::NO_ID, false, nullptr};
    unsigned int const version = gWatchdogTableVersion;
    if (tLast.watchdog != this || tLast.version != version || tLast.id != id) {
        SyncGuard const guard(mInfosSyncObject);
        bool const isRegistered = mInfos.find(id) != nullptr;
        tLast = {this, version, id, isRegistered, isRegistered ? LifeSign::find(this, id) : nullptr};
    }
    return tLast;
}

LifeSign* ThreadWatchdog::signOf(int id) noexcept {
    return id == ThreadManager::getCallerId() ? callersPlace(id).sign : LifeSign::find(this, id);
}

template <typename STEP>
bool ThreadWatchdog::withInfo(int id, STEP step) {
    SyncGuard const guard(mInfosSyncObject);
    RowLook const look(mInfos.find(id), signOf(id));
    return look.info() != nullptr && step(*look.info());
}

bool ThreadWatchdog::isWatching(int id) noexcept {
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
    return aliveTime != 0 ? executeSetAliveTime(id, aliveTime) : refuseZeroAliveTime(id);
}

bool ThreadWatchdog::start(int id) {
    return mInitialized && executeStart(id);
}

bool ThreadWatchdog::stop(int id) {
    return mInitialized && executeStop(id);
}

bool ThreadWatchdog::keepAlive(StatementInfo const& info) {
    if (!mInitialized) {
        return false;
    }
    int const id = ThreadManager::getCallerId();
    CallersPlace const& place = callersPlace(id);
    if (!place.isRegistered) {
        return false;
    }
    LifeSign::Outcome const outcome =
        place.sign != nullptr ? place.sign->report(id, info) : LifeSign::ASK_THE_TABLE;
    return outcome == LifeSign::ASK_THE_TABLE ? executeKeepAlive(id, info) : outcome == LifeSign::REPORTED;
}

void ThreadWatchdog::printWatchdogInfo(int level) {
    if (!mInitialized) {
        return;
    }
    TableLook const look(*this);
    print(level, mInfos);
}

WatchdogInfo* ThreadWatchdog::findWatchdogInfo(int id) noexcept {
    SyncGuard const guard(mInfosSyncObject);
    RowLook look(mInfos.find(id), signOf(id));
    look.leaveClosed();
    return look.info();
}

bool ThreadWatchdog::executeSetAliveTime(int id, unsigned int aliveTime) {
    return withInfo(id, [aliveTime](WatchdogInfo& info) {
        info.aliveTime = aliveTime;
        if (info.watchStatus == WatchdogInfo::WATCHING) {
            info.lastAliveTick = TimeCounter::getTickTime();
        }
        return true;
    });
}

bool ThreadWatchdog::executeStart(int id) {
    return withInfo(id, [](WatchdogInfo& info) {
        info.watchStatus = WatchdogInfo::WATCHING;
        if (info.lastAliveTick == WatchdogInfo::NO_TICK) {
            info.lastAliveTick = TimeCounter::getTickTime();
        }
        return true;
    });
}

bool ThreadWatchdog::executeStop(int id) {
    return withInfo(id, [](WatchdogInfo& info) {
        info.watchStatus = WatchdogInfo::NOT_WATCHING;
        info.lastAliveTick = WatchdogInfo::NO_TICK;
        return true;
    });
}

// The lock is recursive: what is called from here may itself report, and ends at the first test.
bool ThreadWatchdog::executeKeepAlive(int id, StatementInfo const& info) {
    SyncGuard const guard(mInfosSyncObject);
    if (mInKeepAlive) {
        return false;
    }
    InKeepAlive const inKeepAlive(mInKeepAlive);
    RowLook const look(mInfos.find(id), signOf(id));
    WatchdogInfo* const found = look.info();
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

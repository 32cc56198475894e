#include "UtlThreadManager.h"

#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <memory>

#include "UtlLog.h"
#include "UtlThreadWatchdog.h"
#include "internal/base/UtlCallIfPresent.h"
#include "internal/base/UtlProcessWide.h"
#include "internal/base/UtlSharedLock.h"
#include "internal/log/UtlLogText.h"
#include "internal/memory/UtlMemoryThreadName.h"
#include "internal/thread/UtlKeepAlive.h"
#include "internal/thread/UtlThreadLife.h"
#include "internal/time/UtlAdopt.h"
#include "internal/time/UtlEventWait.h"

namespace utl {

namespace {

// The place that signs of life report for a system call. Readers of reports know the calls by these line
// numbers: they are fixed, wherever the calls stand in this file.
struct CallPlace {
    char const* function;
    unsigned int line;
};
constexpr CallPlace DETACH = {"operator()", 150};
constexpr CallPlace CREATE = {"entry", 490};
constexpr CallPlace GET_CALLERS_HANDLE = {"entryCaller", 581};
constexpr CallPlace CHANGE_PRIORITY = {"setPriority", 770};
constexpr CallPlace SET_FIRST_PRIORITY = {"startThread", 1280};

template <typename CALL>
auto callAt(CallPlace const& place, CALL call) {
    return keepAliveAround("source/UtlThreadManager", place.function, place.line, call);
}

// Held shared by a thread that reports its begin or end to the instance, and exclusively by whoever deletes
// the instance: nobody outside can wait for those moments. Outermost of all locks. It is shared because a
// thread that ends may have to wait for one that begins.
SharedLock gDeletionLock;

// Held for a whole `destroy`, the end of the watchdog's thread included: one deletion at a time.
SharedLock gDestroyLock;

// The instance, from the start of its watchdog until its end begins. It is found without a lock, because
// every sign of life looks for it.
std::atomic<ThreadManager*> gSupervisingInstance{nullptr};

// The instance has no watchdog because that could not be started.
std::atomic<bool> gWatchdogFailed{false};

std::atomic<unsigned int> gGeneration{0};

thread_local int tThreadId UTL_QUICK_TLS = 0;  // 0: the kernel has not been asked yet

void forgetThreadId() {
    tThreadId = 0;
    tUnregisteredAt = 0;
}

// False before the library's static initialisers have run. Until then no id is remembered, because the child
// of a `fork` would keep its parent's.
bool const gForgetsThreadIdAfterFork = pthread_atfork(nullptr, nullptr, forgetThreadId) == 0;

int askKernelForThreadId() {
    int const id = static_cast<int>(syscall(SYS_gettid));
    if (gForgetsThreadIdAfterFork) {
        tThreadId = id;
    }
    return id;
}

// As much of a name as the kernel keeps, for tools that show threads.
using KernelName = ColumnText<15>;

// Contrary to POSIX, it applies to the calling thread alone.
int setCallersPriority(CallPlace const& place, int osValue) {
    return callAt(place, [osValue] { return setpriority(PRIO_PROCESS, 0, osValue); });
}

void logPriorityError(int id, int osValue, int error) {
    char buffer[8192];
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
           "ThreadManager::setPriority() Error setpriority() ID:%d, OsValue:%d er:%d erSt:%s", id, osValue,
           error, strerror_r(error, buffer, sizeof(buffer)));
}

int idOrCallers(int id) {
    return id != ThreadManager::CALLER ? id : ThreadManager::getCallerId();
}

void printRow(int level, int id, ThreadManager::ThreadEntry const& entry) {
    bool const active = entry.isActive();
    ThreadPriority const priority = active ? entry.mPriority : ThreadPriority(ThreadPriority::INVALID);
    applog(LOG_TYPE_LIBRARY, level, "%10d, %-32s, %-12s, %10d, %-16s, ", id,
           NameColumn(entry.mName.buffer()).get(), active ? "ACTIVE" : "UNKNOWN", priority.OsValue(),
           priority.label());
}

// Calls `print` with the id and the entry of each thread.
template <typename PRINT>
void printEach(char const* operation, Map<int, ThreadManager::ThreadEntry> const& entries, PRINT print) {
    for (unsigned int i = 0; i < entries.size(); ++i) {
        auto const* const pair = entries.getAt(i);
        if (pair->mKey == ThreadManager::NO_ID) {
            applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "ThreadManager::%s() : Thread id is NULL.", operation);
        } else {
            print(pair->mKey, pair->mValue);
        }
    }
}

}  // namespace

void ThreadManager::DetachThread::operator()(unsigned long* handle) const {
    if (*handle == 0) {
        return;
    }
    callAt(DETACH, [handle] { return pthread_detach(*handle); });
    delete handle;
}

ThreadManager::ThreadEntry::ThreadEntry() = default;

ThreadManager::ThreadEntry::ThreadEntry(int caller, unsigned long handle, char const* name,
                                        ThreadPriority const& priority)
    : mName(name, 0, 0), mPriority(priority) {
    if (caller == STARTED_HERE) {
        mEndEvent = share(std::make_unique<Event>(Event::INITIALLY_OFF, Event::ONE_WAY));
        adopt(&mThreadHandle, std::make_unique<unsigned long>(handle));
    }
}

void ThreadManager::ThreadEntry::toStop() noexcept {
    if (mEndEvent.get() != nullptr) {
        mEndEvent->setOn();
    }
}

int ThreadManager::ThreadEntry::waitToStop(unsigned int timeout) const {
    return mEndEvent.get() != nullptr ? waitUntilOn(*mEndEvent, timeout) : -1;
}

bool ThreadManager::ThreadEntry::isActive() const noexcept {
    return mEndEvent.get() != nullptr && mEndEvent->isOff();
}

bool ThreadManager::ThreadEntry::isControllable() const noexcept {
    return mEndEvent.get() != nullptr || mThreadHandle.get() != nullptr;
}

void ThreadManager::ThreadEntry::detach() {
    mThreadHandle.release();
}

void ThreadManager::ThreadEntry::swap(ThreadEntry& other) noexcept {
    mName.swap(other.mName);
    std::swap(mPriority, other.mPriority);
    std::swap(mEndEvent, other.mEndEvent);
    std::swap(mThreadHandle, other.mThreadHandle);
}

// What `entry` hands to the new thread.
struct ThreadManager::StartParameter {
    StartParameter(ThreadManager& manager, SmartPointer<Event> const& end, StartRequest const& request)
        : mEvent(Event::INITIALLY_OFF, Event::ONE_WAY),
          mFunction(request.function),
          mId(NO_ID),
          mPriority(request.priority),
          mArgument(request.argument),
          mManager(manager),
          mEnd(end),
          mName(request.name) {}

    Event mEvent;  // part of the structure, though the hand-over goes through mStartEvent
    void (*mFunction)(void*);
    int mId;
    ThreadPriority mPriority;
    void* mArgument;
    ThreadManager& mManager;
    SmartPointer<Event> mEnd;
    char const* mName;
};

// All that is kept of a new thread. It is allocated before there is a thread, so that no lack of
// memory can fail it after that: the entry begins as that of a foreign thread and takes over end and handle.
struct ThreadManager::NewThread {
    NewThread(SmartPointer<Event> const& end, StartRequest const& request)
        : mHandle(std::make_unique<unsigned long>(0)),
          mEntry(ThreadEntry::FOREIGN, 0, request.name, request.priority),
          mName(request.name) {
        mEntry.mEndEvent = end;
        mEntry.mThreadHandle.set(mHandle.get());
        if (request.watchdog == Thread::WITH_WATCHDOG) {
            mWatchdogInfo = WatchdogInfo(NO_ID, request.aliveTime, request.listener, request.name,
                                         WatchdogInfo::NOT_WATCHING);
        }
    }

    // From now on the last copy of the entry frees the cell.
    void setHandle(unsigned long handle) {
        *mHandle = handle;
        static_cast<void>(mHandle.release());
    }

    std::unique_ptr<unsigned long> mHandle;
    ThreadEntry mEntry;
    char const* const mName;
    WatchdogInfo mWatchdogInfo;
};

StartHandshake::StartHandshake(unsigned int generation)
    : mEnd(share(std::make_unique<ThreadLife>(generation))) {}

// Sets the end of a thread on when the scope ends, also by `pthread_exit`. A thread that ends after its
// manager creates a new one, as every use of the library does then. The end comes even if that fails.
class [[nodiscard]] ThreadEnd {
  public:
    explicit ThreadEnd(SmartPointer<Event> const& end) : mEnd(end) {}
    ~ThreadEnd() {
        {
            SharedGuard const notDeleted(gDeletionLock);
            ThreadManager::getOrNull();
        }
        mEnd->setOn();
    }
    ThreadEnd(ThreadEnd const&) = delete;
    ThreadEnd& operator=(ThreadEnd const&) = delete;

    void waitForRelease() const { waitUntilOn(ThreadLife::of(mEnd).mReleased, Event::NO_LIMIT); }

  private:
    SmartPointer<Event> const mEnd;
};

ThreadManager* ThreadManager::mpTheObject = nullptr;
bool ThreadManager::mHasInitializedWatchdog = false;
std::atomic<unsigned int> ThreadManager::mFreePlaces{0};

SyncObject const& ThreadManager::instantiationSyncObject() {
    static ProcessWide<SyncObject> theSyncObject;
    return *theSyncObject;
}

// The watchdog starts after its flag is set: its thread comes back here while it starts.
ThreadManager* ThreadManager::get() {
    ThreadManager* const supervising = gSupervisingInstance;
    if (supervising != nullptr) {
        return supervising;
    }
    bool isFirst = false;
    ThreadManager* const manager = getOrCreate(&isFirst);
    if (isFirst) {
        manager->initializeWatchdog();
    }
    return manager;
}

// A failed start is logged, and the next `get` tries again.
void ThreadManager::initializeWatchdog() {
    struct [[nodiscard]] Attempt {
        ~Attempt() {
            gWatchdogFailed = !mIsDone;
            if (mIsDone) {
                return;
            }
            applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "ThreadManager::get() : Watchdog is not started.");
            SyncGuard const guard(instantiationSyncObject());
            gSupervisingInstance = nullptr;
            mHasInitializedWatchdog = false;
        }
        bool mIsDone = false;
    } attempt;
    ThreadWatchdog& watchdog = *mWatchdog.load();
    if (gWatchdogFailed) {
        watchdog.replaceThread();
    }
    // A table without places has no thread to watch.
    attempt.mIsDone = watchdog.entryMax() == 0 || watchdog.initialize(WatchdogInfo::DEFAULT_WATCH_INTERVAL);
}

// A sign of life creates the manager, as every use does. It never throws. It does not repeat a start of the
// watchdog that has failed in `get`, because it may come in the middle of a start.
ThreadManager* ThreadManager::getOrNull() noexcept {
    ThreadManager* const supervising = gSupervisingInstance;
    if (supervising != nullptr) {
        return supervising;
    }
    if (!gWatchdogFailed) {
        try {
            return get();
        } catch (std::bad_alloc const&) {
            // The caller does without.
        }
    }
    return getIfCreated();
}

unsigned int ThreadManager::generation() {
    return gGeneration;
}

// Instance and flag belong together: all who get a new instance find the flag cleared, and the first of them
// sets it.
ThreadManager* ThreadManager::getOrCreate(bool* isFirst) {
    SyncGuard const guard(instantiationSyncObject());
    if (mpTheObject == nullptr) {
        mpTheObject = new ThreadManager(DEFAULT_ENTRY_MAX);
    }
    *isFirst = !mHasInitializedWatchdog;
    if (*isFirst) {
        mHasInitializedWatchdog = true;
        gSupervisingInstance = mpTheObject;
    }
    return mpTheObject;
}

ThreadManager* ThreadManager::getIfCreated() noexcept {
    SyncGuard const guard(instantiationSyncObject());
    return mpTheObject;
}

bool ThreadManager::initializeEntryMax(unsigned int entryMax) {
    SyncGuard const guard(instantiationSyncObject());
    if (mpTheObject != nullptr) {
        return false;
    }
    mpTheObject = new ThreadManager(entryMax);
    return true;
}

// The watchdog's thread comes back into `get` while it ends, so no lock that `get` takes is held meanwhile.
// The instance can be found until its destructor has run, because parts of it report signs of life while
// they are destroyed.
void ThreadManager::destroy() {
    AloneGuard const onlyOne(gDestroyLock);
    ThreadManager* const ending = forbidWatchdog();
    if (ending != nullptr) {
        ending->mWatchdog.load()->shutdown();
    }
    AloneGuard const alone(gDeletionLock);
    ThreadManager* const manager = getIfCreated();
    if (manager != nullptr) {
        // Its thread's object asks the manager while it is destroyed: not under the lock below.
        delete manager->mWatchdog.exchange(nullptr);
    }
    SyncGuard const guard(instantiationSyncObject());
    ++gGeneration;
    delete mpTheObject;
    mpTheObject = nullptr;
    gWatchdogFailed = false;
    mHasInitializedWatchdog = false;
    changeWatchdogTableVersion();
}

// Nobody starts a watchdog any more until the flag is cleared. A thread whose end has created a new instance
// may have been about to start one: when this holds the lock, it has. Returns the instance, null if there is
// none.
ThreadManager* ThreadManager::forbidWatchdog() {
    AloneGuard const alone(gDeletionLock);
    SyncGuard const guard(instantiationSyncObject());
    gSupervisingInstance = nullptr;
    mHasInitializedWatchdog = true;
    return mpTheObject;
}

// Each thread asks the kernel once and remembers the answer, because every sign of life needs it.
int ThreadManager::getCallerId() noexcept {
    int const id = tThreadId;
    return id != 0 ? id : askKernelForThreadId();
}

ThreadManager::ThreadManager(unsigned int entryMax)
    : mEntries(entryMax, 0),
      mStartEvent(Event::INITIALLY_OFF, Event::ONE_WAY),
      mWatchdog(new ThreadWatchdog(entryMax)),
      mRegistrationLog(false) {
    mFreePlaces = entryMax;
}

// Detaching a thread reports to this instance, so it happens while the instance is still whole.
ThreadManager::~ThreadManager() {
    delete mWatchdog.exchange(nullptr);
    for (unsigned int i = 0; i < mEntries.size(); ++i) {
        mEntries.getAt(i)->mValue.detach();
    }
}

int ThreadManager::entry(void (*function)(void*), void* argument, int watchdog, unsigned int aliveTime,
                         WatchdogTimerListener* listener, char const* name, ThreadPriority const& priority,
                         unsigned int /*reserved*/) {
    StartHandshake handshake(generation());
    return start(handshake, {function, argument, watchdog, aliveTime, listener, name, priority});
}

int ThreadManager::start(StartHandshake& handshake, StartRequest const& request) {
    if (request.function == nullptr || request.name == nullptr || mFreePlaces == 0) {
        return NO_ID;
    }
    prepareThreadNamesInMemory();
    auto const parameter = std::make_unique<StartParameter>(*this, handshake.end(), request);
    NewThread thread(handshake.end(), request);
    int const id = startAndRegister(handshake, *parameter, thread);
    if (id != NO_ID) {
        registerThreadNameInMemory(id, request.name);
    }
    if (id != NO_ID && request.watchdog == Thread::WITH_WATCHDOG) {
        thread.mWatchdogInfo.id = id;
        mWatchdog.load()->insert(thread.mWatchdogInfo);
    }
    return id;
}

// The lock makes starts happen one at a time, so mStartEvent belongs to one of them. The new thread uses the
// parameter until it has set the event on, and does not take this lock before.
int ThreadManager::startAndRegister(StartHandshake& handshake, StartParameter& parameter, NewThread& thread) {
    SyncGuard const guard(mEntriesSyncObject);
    mStartEvent.setOff();
    pthread_t handle = 0;
    int const result = callAt(
        CREATE, [&handle, &parameter] { return pthread_create(&handle, nullptr, startThread, &parameter); });
    if (result != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "Thread Start Failed  Ret:%d, PriOs:%d, Name:%s", result,
               parameter.mPriority.OsValue(), thread.mName);
        return NO_ID;
    }
    handshake.setThreadExists();
    thread.setHandle(handle);
    waitUntilOn(mStartEvent, Event::NO_LIMIT);
    mStartEvent.setOff();
    return registerStarted(parameter.mId, thread) ? parameter.mId : NO_ID;
}

bool ThreadManager::registerStarted(int id, NewThread& thread) {
    int const osValue = thread.mEntry.mPriority.OsValue();
    if (mEntries.find(id) != nullptr || !storeEntry(id, thread.mEntry)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "entry() Error Thread Register           ID:%d, PriOs:%d, Name:%s", id, osValue, thread.mName);
        return false;
    }
    if (mRegistrationLog) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_INFO, "Thread Start and Register ID:%d, PriOs:%d, Name:%s", id,
               osValue, thread.mName);
    }
    return true;
}

void* ThreadManager::startThread(void* parameter) {
    auto* const start = static_cast<StartParameter*>(parameter);
    auto* const function = start->mFunction;
    void* const argument = start->mArgument;
    ThreadEnd const end(start->mEnd);
    pthread_setname_np(pthread_self(), KernelName(start->mName).get());
    int const osValue = start->mPriority.OsValue();
    if (setCallersPriority(SET_FIRST_PRIORITY, osValue) == -1) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "ThreadManager::startThread() Error setpriority() OsValue:%d", osValue);
    }
    start->mId = getCallerId();
    signalStarted(start->mManager);
    end.waitForRelease();
    function(argument);
    return nullptr;
}

void ThreadManager::signalStarted(ThreadManager& manager) {
    SharedGuard const notDeleted(gDeletionLock);
    manager.mStartEvent.setOn();
}

bool ThreadManager::storeEntry(int id, ThreadEntry& entry) {
    ThreadEntry* const known = mEntries.find(id);
    if (known != nullptr) {
        known->swap(entry);
        return true;
    }
    bool const stored = mEntries.insertSwapped(id, entry);
    mFreePlaces -= stored ? 1 : 0;
    return stored;
}

void ThreadManager::eraseEntry(int id) {
    ThreadEntry erased;
    mFreePlaces += mEntries.eraseSwapped(id, erased) ? 1 : 0;
}

int ThreadManager::entryCaller(int watchdog, unsigned int aliveTime, WatchdogTimerListener* listener,
                               char const* name) {
    int const id = getCallerId();
    if (name == nullptr || !registerCaller(id, name)) {
        return NO_ID;
    }
    registerThreadNameInMemory(id, name);
    if (watchdog == Thread::WITH_WATCHDOG) {
        mWatchdog.load()->entry(id, aliveTime, listener, name);
    }
    return id;
}

bool ThreadManager::registerCaller(int id, char const* name) {
    SyncGuard const guard(mEntriesSyncObject);
    unsigned long const handle = callAt(GET_CALLERS_HANDLE, pthread_self);
    ThreadEntry entry(ThreadEntry::FOREIGN, handle, name, ThreadPriority(ThreadPriority::INVALID));
    ThreadEntry const* const known = mEntries.find(id);
    if ((known != nullptr && known->isControllable()) || !storeEntry(id, entry)) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "entryCaller() Error Thread Register           ID:%d, Name:%s", id, name);
        return false;
    }
    if (mRegistrationLog) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_INFO, "Thread Register           ID:%d, Name:%s", id, name);
    }
    return true;
}

bool ThreadManager::unregister(int id) {
    SyncGuard const guard(mEntriesSyncObject);
    ThreadEntry* const entry = mEntries.find(id);
    if (entry == nullptr || (id != NO_ID && entry->isActive())) {
        return false;
    }
    entry->detach();
    eraseEntry(id);
    return true;
}

int ThreadManager::waitToStop(int id, unsigned int timeout) {
    ThreadEntry waited;
    {
        SyncGuard const guard(mEntriesSyncObject);
        ThreadEntry const* const entry = mEntries.find(id);
        if (entry != nullptr) {
            waited.mEndEvent = entry->mEndEvent;
        }
    }
    return waited.waitToStop(timeout);
}

template <typename STEP>
bool ThreadManager::withEntry(int id, STEP step) {
    SyncGuard const guard(mEntriesSyncObject);
    ThreadEntry* const entry = mEntries.find(id);
    return entry != nullptr && step(*entry);
}

// The id may be another thread's by now; the end is not.
bool ThreadManager::hasEntry(int id, SmartPointer<Event> const& end) {
    return withEntry(id, [&end](ThreadEntry const& entry) { return entry.mEndEvent.get() == end.get(); });
}

bool ThreadManager::isThreadExist(int id) noexcept {
    return withEntry(id, [](ThreadEntry const&) { return true; });
}

bool ThreadManager::isThreadActive(int id) noexcept {
    return withEntry(id, [](ThreadEntry const& entry) { return entry.isActive(); });
}

bool ThreadManager::isActive(int id) noexcept {
    return isThreadExist(id) && isThreadActive(id);
}

bool ThreadManager::getPriority(int id, ThreadPriority* priority) noexcept {
    SyncGuard const guard(mEntriesSyncObject);
    ThreadEntry const* const entry = mEntries.find(id);
    if (priority == nullptr || entry == nullptr || !entry->isActive()) {
        return false;
    }
    priority->OsValue(entry->mPriority.OsValue());
    return true;
}

bool ThreadManager::setPriority(int id, ThreadPriority const& priority) {
    if (!isActive(id) || id != getCallerId()) {
        return false;
    }
    int const osValue = priority.OsValue();
    if (osValue == ThreadPriority::INVALID_OS_VALUE) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
               "ThreadManager::setPriority() Error ID:%d, invalidOsValue:%d", id, osValue);
        return false;
    }
    if (setCallersPriority(CHANGE_PRIORITY, osValue) == -1) {
        logPriorityError(id, osValue, errno);
        return false;
    }
    return storePriority(id, osValue);
}

bool ThreadManager::storePriority(int id, int osValue) {
    return withEntry(id, [osValue](ThreadEntry& entry) {
        entry.mPriority.OsValue(osValue);
        return true;
    });
}

char const* ThreadManager::findName(int id) noexcept {
    SyncGuard const guard(mEntriesSyncObject);
    ThreadEntry const* const entry = mEntries.find(id);
    return entry != nullptr ? orEmpty(entry->mName.buffer()) : "";
}

char const* ThreadManager::getName(int id) noexcept {
    return findName(id);
}

bool ThreadManager::getNames(Names* names) {
    if (names == nullptr) {
        return false;
    }
    SyncGuard const guard(mEntriesSyncObject);
    for (unsigned int i = 0; i < mEntries.size(); ++i) {
        auto const* const pair = mEntries.getAt(i);
        names->insert(pair->mKey, pair->mValue.mName);
    }
    return true;
}

void ThreadManager::enableRegistrationLog() noexcept {
    mRegistrationLog = true;
}

void ThreadManager::printThreadInfo(int) noexcept {}

void ThreadManager::printThreadInfoReg(int level) {
    SyncGuard const guard(mEntriesSyncObject);
    applog(LOG_TYPE_LIBRARY, level, "ThreadManager:: Registered info of threads in this process.");
    applog(LOG_TYPE_LIBRARY, level,
           "ID        , Name                            , Status      , Pri.Os    , Pri.Label       , ");
    printEach("printThreadInfoReg", mEntries,
              [level](int id, ThreadEntry const& entry) { printRow(level, id, entry); });
}

void ThreadManager::printWatchdogInfo(int level) {
    ThreadWatchdog& watchdog = *mWatchdog.load();
    watchdog.printWatchdogInfo(level);
    SyncGuard const guard(mEntriesSyncObject);
    applog(LOG_TYPE_LIBRARY, level,
           "ThreadManager:: Registered info of threads in this process.(But not registered watchdog)");
    applog(LOG_TYPE_LIBRARY, level, "ID        , Name                            , ");
    printEach("printWatchdogInfo", mEntries, [level, &watchdog](int id, ThreadEntry const& entry) {
        if (watchdog.findWatchdogInfo(id) == nullptr) {
            applog(LOG_TYPE_LIBRARY, level, "%10d, %-32s, ", id, NameColumn(entry.mName.buffer()).get());
        }
    });
}

bool ThreadManager::entryWatchdog(unsigned int aliveTime, WatchdogTimerListener* listener, int id) {
    int const watched = idOrCallers(id);
    BasicString<char> name;
    // Copied, because the table may change before the watchdog has taken it.
    withEntry(watched, [&name](ThreadEntry const& entry) {
        name = entry.mName;
        return true;
    });
    return callIfPresent(mWatchdog.load(), &ThreadWatchdog::entry, watched, aliveTime, listener,
                         orEmpty(name.buffer()));
}

bool ThreadManager::unregisterWatchdog(int id) {
    return callIfPresent(mWatchdog.load(), &ThreadWatchdog::unregister, idOrCallers(id));
}

bool ThreadManager::isRegisteredWatchdog(int id) noexcept {
    return callIfPresent(mWatchdog.load(), &ThreadWatchdog::isRegistered, idOrCallers(id));
}

bool ThreadManager::isWatchingWatchdog(int id) noexcept {
    return callIfPresent(mWatchdog.load(), &ThreadWatchdog::isWatching, idOrCallers(id));
}

bool ThreadManager::startWatchdog(int id) {
    return callIfPresent(mWatchdog.load(), &ThreadWatchdog::start, idOrCallers(id));
}

bool ThreadManager::stopWatchdog(int id) {
    return callIfPresent(mWatchdog.load(), &ThreadWatchdog::stop, idOrCallers(id));
}

bool ThreadManager::setWatchdogAliveTime(unsigned int aliveTime, int id) {
    return callIfPresent(mWatchdog.load(), &ThreadWatchdog::setAliveTime, idOrCallers(id), aliveTime);
}

bool ThreadManager::setWatchdogWatchInterval(unsigned int interval) {
    return callIfPresent(mWatchdog.load(), &ThreadWatchdog::setWatchInterval, interval);
}

// What was found out about the thread holds as long as no table changes.
void ThreadManager::keepAliveWatchdog(StatementInfo const& info) {
    if (isKnownUnregistered()) {
        return;
    }
    unsigned int const version = gWatchdogTableVersion;
    if (!callIfPresent(mWatchdog.load(), &ThreadWatchdog::keepAlive, info) && !isRegisteredWatchdog(CALLER)) {
        tUnregisteredAt = version;
    }
}

template class Map<int, ThreadManager::ThreadEntry>;
template class Map<int, BasicString<char>>;

}  // namespace utl

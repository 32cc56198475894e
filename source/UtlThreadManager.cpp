#include "UtlThreadManager.h"

#include <pthread.h>
#include <sys/resource.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <type_traits>

#include "UtlLog.h"
#include "UtlThreadWatchdog.h"
#include "internal/base/UtlProcessWide.h"
#include "internal/log/UtlLogText.h"
#include "internal/memory/UtlMemoryThreadName.h"
#include "internal/thread/UtlKeepAlive.h"
#include "internal/thread/UtlThreadId.h"
#include "internal/thread/UtlThreadLife.h"
#include "internal/time/UtlAdopt.h"
#include "internal/time/UtlEventWait.h"

namespace utl {

namespace {

constexpr char SOURCE_FILE[] = "source/UtlThreadManager";

// Keeps the instance from being deleted under a thread that tells it about its begin or end, whose moment
// nobody outside can wait for. Outermost of all locks, and shared: a thread that ends may have to wait for
// one that begins.
std::shared_mutex gDeletion;
static_assert(std::is_trivially_destructible_v<std::shared_mutex>, "threads may outlive the exit handlers");

// Lets one deletion of the instance happen at a time, from the end of its watchdog's thread on.
std::mutex gDestruction;
static_assert(std::is_trivially_destructible_v<std::mutex>, "threads may outlive the exit handlers");

// The instance, from the start of its watchdog until its end begins: found without a lock, because every sign
// of life looks for it.
std::atomic<ThreadManager*> gWatching{nullptr};

// The instance has no watchdog because that could not be started.
std::atomic<bool> gWatchdogFailed{false};

std::atomic<unsigned int> gManagerNumber{0};

// As much of a name as the kernel keeps, for tools that show threads.
using KernelName = ColumnText<15>;

// Applies to the calling thread alone, other than POSIX has it.
int setCallersPriority(char const* function, unsigned int line, int osValue) {
    return keepAliveAround(SOURCE_FILE, function, line,
                           [osValue] { return setpriority(PRIO_PROCESS, 0, osValue); });
}

void logPriorityError(int id, int osValue, int error) {
    char buffer[8192];
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
           "ThreadManager::setPriority() Error setpriority() ID:%d, OsValue:%d er:%d erSt:%s", id, osValue,
           error, strerror_r(error, buffer, sizeof(buffer)));
}

int orCaller(int id) {
    return id != 0 ? id : callerThreadId();
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
        if (pair->mKey == 0) {
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
    keepAliveAround(SOURCE_FILE, "operator()", 150, [handle] { return pthread_detach(*handle); });
    delete handle;
}

ThreadManager::ThreadEntry::ThreadEntry() = default;

ThreadManager::ThreadEntry::ThreadEntry(int caller, unsigned long handle, char const* name,
                                        ThreadPriority const& priority)
    : mName(name, 0, 0), mPriority(priority) {
    if (caller == 0) {
        mEndEvent = share(std::make_unique<Event>(0, 0));
        adopt(&mThreadHandle, std::make_unique<unsigned long>(handle));
    }
}

void ThreadManager::ThreadEntry::toStop() {
    if (mEndEvent.get() != nullptr) {
        mEndEvent->setOn();
    }
}

int ThreadManager::ThreadEntry::waitToStop(unsigned int timeout) const {
    return mEndEvent.get() != nullptr ? waitUntilOn(*mEndEvent, timeout) : -1;
}

bool ThreadManager::ThreadEntry::isActive() const {
    return mEndEvent.get() != nullptr && mEndEvent->isOff();
}

bool ThreadManager::ThreadEntry::isControllable() const {
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
    StartParameter(ThreadManager& manager, SmartPointer<Event> const& end, void (*function)(void*),
                   void* argument, char const* name, ThreadPriority const& priority)
        : mEvent(0, 0),
          mFunction(function),
          mId(0),
          mPriority(priority),
          mArgument(argument),
          mManager(manager),
          mEnd(end),
          mName(name) {}

    Event mEvent;  // part of the structure, though the hand-over goes through mStartEvent
    void (*mFunction)(void*);
    int mId;
    ThreadPriority mPriority;
    void* mArgument;
    ThreadManager& mManager;
    SmartPointer<Event> mEnd;
    char const* mName;
};

// All that is kept of a new thread, had before there is one: behind that nothing must fail for want of
// memory.
struct ThreadManager::NewThread {
    NewThread(SmartPointer<Event> const& end, int watchdog, unsigned int aliveTime,
              WatchdogTimerListener* listener, char const* name, ThreadPriority const& priority)
        : mHandle(std::make_unique<unsigned long>(0)), mEntry(1, 0, name, priority), mName(name) {
        mEntry.mEndEvent = end;
        mEntry.mThreadHandle.set(mHandle.get());
        if (watchdog == 1) {
            mWatched = WatchdogInfo(0, aliveTime, listener, name, WatchdogInfo::NOT_WATCHING);
        }
    }

    // From now on the last copy of the entry gives the cell back.
    void setHandle(unsigned long handle) {
        *mHandle = handle;
        static_cast<void>(mHandle.release());
    }

    std::unique_ptr<unsigned long> mHandle;
    ThreadEntry mEntry;
    char const* const mName;
    WatchdogInfo mWatched;
};

StartHandshake::StartHandshake(unsigned int manager) : mEnd(share(std::make_unique<ThreadLife>(manager))) {}

// The end of a thread, told when the scope ends, also by `pthread_exit`. A thread that ends after its manager
// makes a new one, as whoever uses the library then; where that cannot be had the end comes all the same.
class [[nodiscard]] ThreadEnd {
  public:
    explicit ThreadEnd(SmartPointer<Event> const& end) : mEnd(end) {}
    ~ThreadEnd() {
        {
            std::shared_lock<std::shared_mutex> const notDeleted(gDeletion);
            ThreadManager::getOrNull();
        }
        mEnd->setOn();
    }
    ThreadEnd(ThreadEnd const&) = delete;
    ThreadEnd& operator=(ThreadEnd const&) = delete;

    void waitForRelease() const { waitUntilOn(ThreadLife::of(mEnd).mReleased, 0); }

  private:
    SmartPointer<Event> const mEnd;
};

ThreadManager* ThreadManager::mpTheObject = nullptr;
std::atomic<bool> ThreadManager::mHasInitializedWatchdog{false};
std::atomic<unsigned int> ThreadManager::mFreePlaces{0};

SyncObject const& ThreadManager::instantiationSyncObject() {
    static ProcessWide<SyncObject> mInstantiationSyncObject;
    return *mInstantiationSyncObject;
}

// The watchdog starts outside the lock, and behind its flag: its thread comes back here while it starts.
ThreadManager* ThreadManager::get() {
    ThreadManager* const watching = gWatching;
    if (watching != nullptr) {
        return watching;
    }
    bool isFirst = false;
    ThreadManager* const manager = getOrCreate(&isFirst);
    if (isFirst) {
        manager->initializeWatchdog();
    }
    return manager;
}

// Supervision that could not be had is told of, and wanted again by the next `get`.
void ThreadManager::initializeWatchdog() {
    struct [[nodiscard]] Try {
        ~Try() {
            gWatchdogFailed = !mIsDone;
            if (mIsDone) {
                return;
            }
            applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "ThreadManager::get() : Watchdog is not started.");
            SyncGuard const guard(instantiationSyncObject());
            gWatching = nullptr;
            mHasInitializedWatchdog = false;
        }
        bool mIsDone = false;
    } once;
    ThreadWatchdog& watchdog = *mWatchdog.load();
    if (gWatchdogFailed) {
        watchdog.renewThread();
    }
    // Without room for any thread there is none to watch.
    once.mIsDone = mEntries.maxSize() == 0 || watchdog.initialize(WatchdogInfo::DEFAULT_WATCH_INTERVAL);
}

// A sign of life makes the manager, as every use does. It never throws, and it does not try again what `get`
// has failed to start: it is given in the middle of other things, a start among them.
ThreadManager* ThreadManager::getOrNull() noexcept {
    ThreadManager* const watching = gWatching;
    if (watching != nullptr) {
        return watching;
    }
    if (!gWatchdogFailed) {
        try {
            return get();
        } catch (std::bad_alloc const&) {
            // It is done without.
        }
    }
    return getIfCreated();
}

unsigned int ThreadManager::managerNumber() {
    return gManagerNumber;
}

// Instance and flag belong together: whoever gets a new instance sees a cleared flag, and one of them sets
// it.
ThreadManager* ThreadManager::getOrCreate(bool* isFirst) {
    SyncGuard const guard(instantiationSyncObject());
    if (mpTheObject == nullptr) {
        mpTheObject = new ThreadManager(DEFAULT_ENTRY_MAX);
    }
    *isFirst = !mHasInitializedWatchdog;
    if (*isFirst) {
        mHasInitializedWatchdog = true;
        gWatching = mpTheObject;
    }
    return mpTheObject;
}

ThreadManager* ThreadManager::getIfCreated() {
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

// The watchdog's thread comes back into `get` while it ends, so it ends while no lock is held that `get`
// takes. The instance stands until it is gone, for the sake of what reports a sign of life while it is
// deleted.
void ThreadManager::destroy() {
    std::lock_guard<std::mutex> const onlyOne(gDestruction);
    ThreadManager* const ending = forbidWatchdog();
    if (ending != nullptr) {
        ending->mWatchdog.load()->shutdown();
    }
    std::unique_lock<std::shared_mutex> const alone(gDeletion);
    ThreadManager* const manager = getIfCreated();
    if (manager != nullptr) {
        // Its thread's object asks the manager while it goes: not under the lock below.
        delete manager->mWatchdog.exchange(nullptr);
    }
    SyncGuard const guard(instantiationSyncObject());
    ++gManagerNumber;
    delete mpTheObject;
    mpTheObject = nullptr;
    gWatchdogFailed = false;
    mHasInitializedWatchdog = false;
}

// Nobody starts a watchdog any more until the flag is cleared. A thread that ended into a new instance may
// have been about to: it has done so by now. Gives the instance, null if there is none.
ThreadManager* ThreadManager::forbidWatchdog() {
    std::unique_lock<std::shared_mutex> const alone(gDeletion);
    SyncGuard const guard(instantiationSyncObject());
    gWatching = nullptr;
    mHasInitializedWatchdog = true;
    return mpTheObject;
}

int ThreadManager::getCallerId() {
    return callerThreadId();
}

ThreadManager::ThreadManager(unsigned int entryMax)
    : mEntries(entryMax, 0),
      mStartEvent(0, 0),
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
    StartHandshake handshake(managerNumber());
    return start(handshake, function, argument, watchdog, aliveTime, listener, name, priority);
}

int ThreadManager::start(StartHandshake& handshake, void (*function)(void*), void* argument, int watchdog,
                         unsigned int aliveTime, WatchdogTimerListener* listener, char const* name,
                         ThreadPriority const& priority) {
    if (function == nullptr || name == nullptr || mFreePlaces == 0) {
        return 0;
    }
    prepareThreadNamesInMemory();
    auto const parameter =
        std::make_unique<StartParameter>(*this, handshake.end(), function, argument, name, priority);
    NewThread thread(handshake.end(), watchdog, aliveTime, listener, name, priority);
    int const id = startAndRegister(handshake, *parameter, thread);
    if (id != 0) {
        registerThreadNameInMemory(id, name);
    }
    if (id != 0 && watchdog == 1) {
        thread.mWatched.id = id;
        mWatchdog.load()->enter(thread.mWatched);
    }
    return id;
}

// The lock makes starts happen one at a time, so mStartEvent belongs to one of them. The new thread uses the
// parameter until it has set the event on, and takes no lock before.
int ThreadManager::startAndRegister(StartHandshake& handshake, StartParameter& parameter, NewThread& thread) {
    SyncGuard const guard(mEntriesSyncObject);
    mStartEvent.setOff();
    pthread_t handle = 0;
    int const result = keepAliveAround(SOURCE_FILE, "entry", 490, [&handle, &parameter] {
        return pthread_create(&handle, nullptr, startThread, &parameter);
    });
    if (result != 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "Thread Start Failed  Ret:%d, PriOs:%d, Name:%s", result,
               parameter.mPriority.OsValue(), thread.mName);
        return 0;
    }
    handshake.noteThread();
    thread.setHandle(handle);
    waitUntilOn(mStartEvent, 0);
    mStartEvent.setOff();
    return registerStarted(parameter.mId, thread) ? parameter.mId : 0;
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
    if (setCallersPriority("startThread", 1280, osValue) == -1) {
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
    std::shared_lock<std::shared_mutex> const notDeleted(gDeletion);
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
        return 0;
    }
    registerThreadNameInMemory(id, name);
    if (watchdog == 1) {
        mWatchdog.load()->entry(id, aliveTime, listener, name);
    }
    return id;
}

bool ThreadManager::registerCaller(int id, char const* name) {
    SyncGuard const guard(mEntriesSyncObject);
    unsigned long const handle = keepAliveAround(SOURCE_FILE, "entryCaller", 581, pthread_self);
    ThreadEntry entry(1, handle, name, ThreadPriority(ThreadPriority::INVALID));
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
    if (entry == nullptr || (id != 0 && isThreadActive(id))) {
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

// The id may be another thread's by now; the end is not.
bool ThreadManager::hasEntry(int id, SmartPointer<Event> const& end) {
    SyncGuard const guard(mEntriesSyncObject);
    ThreadEntry const* const entry = mEntries.find(id);
    return entry != nullptr && entry->mEndEvent.get() == end.get();
}

bool ThreadManager::isThreadExist(int id) {
    SyncGuard const guard(mEntriesSyncObject);
    return mEntries.find(id) != nullptr;
}

bool ThreadManager::isThreadActive(int id) {
    SyncGuard const guard(mEntriesSyncObject);
    ThreadEntry const* const entry = mEntries.find(id);
    return entry != nullptr && entry->isActive();
}

bool ThreadManager::isActive(int id) {
    return isThreadExist(id) && isThreadActive(id);
}

bool ThreadManager::getPriority(int id, ThreadPriority* priority) {
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
    if (setCallersPriority("setPriority", 770, osValue) == -1) {
        logPriorityError(id, osValue, errno);
        return false;
    }
    return storePriority(id, osValue);
}

bool ThreadManager::storePriority(int id, int osValue) {
    SyncGuard const guard(mEntriesSyncObject);
    ThreadEntry* const entry = mEntries.find(id);
    if (entry == nullptr) {
        return false;
    }
    entry->mPriority.OsValue(osValue);
    return true;
}

char const* ThreadManager::findName(int id) {
    SyncGuard const guard(mEntriesSyncObject);
    ThreadEntry const* const entry = mEntries.find(id);
    return entry != nullptr ? orEmpty(entry->mName.buffer()) : "";
}

char const* ThreadManager::getName(int id) {
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

void ThreadManager::enableRegistrationLog() {
    mRegistrationLog = true;
}

void ThreadManager::printThreadInfo(int) {}

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
    int const watched = orCaller(id);
    BasicString<char> name;
    {
        // Copied, because the table may change before the watchdog has taken it.
        SyncGuard const guard(mEntriesSyncObject);
        name = getName(watched);
    }
    ThreadWatchdog* const watchdog = mWatchdog;
    return watchdog != nullptr && watchdog->entry(watched, aliveTime, listener, orEmpty(name.buffer()));
}

bool ThreadManager::unregisterWatchdog(int id) {
    ThreadWatchdog* const watchdog = mWatchdog;
    return watchdog != nullptr && watchdog->unregister(orCaller(id));
}

bool ThreadManager::isRegisteredWatchdog(int id) {
    ThreadWatchdog* const watchdog = mWatchdog;
    return watchdog != nullptr && watchdog->isRegistered(orCaller(id));
}

bool ThreadManager::isWatchingWatchdog(int id) {
    ThreadWatchdog* const watchdog = mWatchdog;
    return watchdog != nullptr && watchdog->isWatching(orCaller(id));
}

bool ThreadManager::startWatchdog(int id) {
    ThreadWatchdog* const watchdog = mWatchdog;
    return watchdog != nullptr && watchdog->start(orCaller(id));
}

bool ThreadManager::stopWatchdog(int id) {
    ThreadWatchdog* const watchdog = mWatchdog;
    return watchdog != nullptr && watchdog->stop(orCaller(id));
}

bool ThreadManager::setWatchdogAliveTime(unsigned int aliveTime, int id) {
    ThreadWatchdog* const watchdog = mWatchdog;
    return watchdog != nullptr && watchdog->setAliveTime(orCaller(id), aliveTime);
}

bool ThreadManager::setWatchdogWatchInterval(unsigned int interval) {
    ThreadWatchdog* const watchdog = mWatchdog;
    return watchdog != nullptr && watchdog->setWatchInterval(interval);
}

void ThreadManager::keepAliveWatchdog(StatementInfo const& info) {
    ThreadWatchdog* const watchdog = mWatchdog;
    if (watchdog != nullptr) {
        watchdog->keepAlive(info);
    }
}

template class Map<int, ThreadManager::ThreadEntry>;
template class Map<int, BasicString<char>>;

}  // namespace utl

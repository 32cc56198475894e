#include "UtlThread.h"

#include <time.h>

#include <cerrno>

#include "UtlEventWait.h"
#include "UtlThreadManager.h"

namespace utl {

namespace {

// What is left to a thread behind its last milestone is to tell the manager. Who waits longer than so many
// milliseconds for that waits for another thread, which has got the kernel id of one that is gone.
constexpr unsigned int LAST_STEP_TIME = 200;

/// The cell that hands a `Thread` to its new thread: deleted with the scope, unless the thread exists by
/// then, which deletes it itself.
class [[nodiscard]] StartCell {
  public:
    explicit StartCell(Thread* thread) : mCell(new Thread*(thread)) {}
    ~StartCell() {
        if (!mTaken) {
            delete mCell;
        }
    }
    StartCell(StartCell const&) = delete;
    StartCell& operator=(StartCell const&) = delete;

    void* get() { return mCell; }
    bool* taken() { return &mTaken; }

  private:
    Thread** const mCell;
    bool mTaken = false;
};

}  // namespace

Command::~Command() = default;

Thread::Thread(char const* name, Command* command)
    : mCommand(command), mId(0), mName(name, 0, 0), mMilestones{{0, 0}, {0, 0}, {0, 0}, {0, 0}}, mResult(0) {}

Thread::~Thread() {
    stop(1, 0);
    if (hasDone(STARTED)) {
        waitForEnd();
    }
}

int Thread::start(int watchdog, unsigned int aliveTime, WatchdogTimerListener* listener, int waitReady,
                  unsigned int waitTimeout, ThreadPriority const& priority, unsigned int reserved) {
    bool created = false;
    return startTelling(&created, watchdog, aliveTime, listener, waitReady, waitTimeout, priority, reserved);
}

int Thread::startTelling(bool* created, int watchdog, unsigned int aliveTime, WatchdogTimerListener* listener,
                         int waitReady, unsigned int waitTimeout, ThreadPriority const& priority,
                         unsigned int /*reserved*/) {
    SyncGuard const guard(mSyncObject);
    if (hasDone(STARTED)) {
        return -1;
    }
    StartCell cell(this);
    mId = ThreadManager::get()->entryTelling(cell.taken(), startImpl, cell.get(), watchdog, aliveTime,
                                             listener, mName.buffer(), priority);
    *created = *cell.taken();
    if (mId == 0) {
        return -1;
    }
    mMilestones[STARTED].setOn();
    return waitReady == 1 ? waitTo(READY, waitTimeout) : 0;
}

// The result is stored behind postExecute and in front of the last milestone: who sees the thread finished
// sees both.
void Thread::startImpl(void* cell) {
    Thread* const thread = *static_cast<Thread**>(cell);
    delete static_cast<Thread**>(cell);
    thread->preExecute();
    thread->mMilestones[READY].setOn();
    int const result = thread->execute();
    thread->postExecute();
    thread->mResult = static_cast<unsigned int>(result);
    thread->mMilestones[FINISHED].setOn();
}

int Thread::execute() {
    return mCommand != nullptr ? mCommand->execute() : -1;
}

// The lock is given back before the wait, so that the thread, or anybody, can ask and stop meanwhile.
int Thread::stop(int wait, unsigned int timeout) {
    {
        SyncGuard const guard(mSyncObject);
        if (!hasDone(STARTED) || hasDone(FINISHED)) {
            return -1;
        }
    }
    if (mMilestones[FINISHED].isOn()) {
        waitForEnd();
        return -1;
    }
    ThreadManager::get()->unregisterWatchdog(getId());
    mMilestones[STOP_REQUESTED].setOn();
    requestStop();
    return wait == 1 ? waitTo(FINISHED, timeout) : 0;
}

int Thread::waitTo(int milestone, unsigned int timeout) {
    if (static_cast<unsigned int>(milestone) >= MILESTONE_COUNT) {
        return -1;
    }
    bool const started = hasDone(STARTED);
    if (!started && (milestone == STOP_REQUESTED || milestone == FINISHED)) {
        return -1;
    }
    if (started && milestone == FINISHED) {
        return ThreadManager::get()->waitToStop(mId, timeout);
    }
    return waitUntilOn(mMilestones[milestone], timeout);
}

bool Thread::hasDone(int milestone) const {
    if (static_cast<unsigned int>(milestone) >= MILESTONE_COUNT || mMilestones[milestone].isOff()) {
        return false;
    }
    return milestone != FINISHED || !isRunning();
}

bool Thread::hasRequestedStop() const {
    return hasDone(STOP_REQUESTED);
}

bool Thread::getResult(unsigned int* result) const {
    if (!hasDone(FINISHED) || result == nullptr) {
        return false;
    }
    *result = mResult;
    return true;
}

bool Thread::isRunning() const {
    return ThreadManager::get()->isActive(mId);
}

bool Thread::setPriority(ThreadPriority const& priority) {
    return ThreadManager::get()->setPriority(mId, priority);
}

bool Thread::getPriority(ThreadPriority* priority) const {
    return ThreadManager::get()->getPriority(mId, priority);
}

bool Thread::leaveManagement() {
    return ThreadManager::get()->unregister(mId);
}

bool Thread::setWatchdogAliveTime(unsigned int aliveTime) {
    return ThreadManager::get()->setWatchdogAliveTime(aliveTime, mId);
}

bool Thread::startWatchdog() {
    return ThreadManager::get()->startWatchdog(mId);
}

bool Thread::stopWatchdog() {
    return ThreadManager::get()->stopWatchdog(mId);
}

void Thread::keepAliveWatchdog(StatementInfo const& info) {
    ThreadManager::get()->keepAliveWatchdog(info);
}

void Thread::sleep(unsigned int ms) {
    int const count = static_cast<int>(ms);
    timespec left{};
    left.tv_sec = count / 1000;
    left.tv_nsec = count % 1000 * 1000000L;
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
}

// A manager that was created after the thread was started does not know it; the milestone does.
void Thread::waitForEnd() {
    if (hasDone(STARTED)) {
        waitTo(FINISHED, mMilestones[FINISHED].isOn() ? LAST_STEP_TIME : 0);
    }
    waitUntilOn(mMilestones[FINISHED], 0);
}

// A stop takes the thread out before it makes itself known.
void Thread::leaveWatchdog() const {
    if (!hasRequestedStop()) {
        ThreadManager::get()->unregisterWatchdog(0);
    }
}

void Thread::waitForStart() const {
    SyncGuard const guard(mSyncObject);
}

}  // namespace utl

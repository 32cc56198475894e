#include "UtlThread.h"

#include <time.h>

#include <cerrno>
#include <memory>

#include "UtlThreadManager.h"
#include "internal/thread/UtlThreadLife.h"
#include "internal/time/UtlEventWait.h"

namespace utl {

Command::~Command() = default;

Thread::Thread(char const* name, Command* command)
    : mCommand(command), mId(0), mName(name, 0, 0), mMilestones{{0, 0}, {0, 0}, {0, 0}, {0, 0}}, mResult(0) {}

Thread::~Thread() {
    stop(1, 0);
    waitForEnd();
}

// The thread goes on when the handshake is over: it finds here what is stored until then.
int Thread::start(int watchdog, unsigned int aliveTime, WatchdogTimerListener* listener, int waitReady,
                  unsigned int waitTimeout, ThreadPriority const& priority, unsigned int /*reserved*/) {
    SyncGuard const guard(mSyncObject);
    if (hasDone(STARTED)) {
        return -1;
    }
    ThreadManager* const manager = ThreadManager::get();
    StartHandshake handshake(ThreadManager::managerNumber());
    auto cell = std::make_unique<Thread*>(this);
    int const id = manager->start(handshake, startImpl, cell.get(), watchdog, aliveTime, listener,
                                  mName.buffer(), priority);
    if (handshake.hasThread()) {
        static_cast<void>(cell.release());  // the thread's
        mEndEvent = handshake.end();
    }
    if (id == 0) {
        return -1;
    }
    mId = id;
    mMilestones[STARTED].setOn();
    handshake.release();
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
    ThreadManager* const manager = ThreadManager::getIfCreated();
    if (manager != nullptr) {
        manager->unregisterWatchdog(getId());
    }
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
        ThreadManager* const manager = ThreadManager::getIfCreated();
        return manager != nullptr && manager->hasEntry(mId, mEndEvent) ? waitUntilOn(*mEndEvent, timeout)
                                                                       : -1;
    }
    return waitUntilOn(mMilestones[milestone], timeout);
}

bool Thread::hasDone(int milestone) const {
    if (static_cast<unsigned int>(milestone) >= MILESTONE_COUNT || !mMilestones[milestone].peekOn()) {
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

// What `ThreadManager::isActive` answers, without the lock of the table, which a start elsewhere may hold for
// long: a running thread cannot leave the table, except with the whole of it.
bool Thread::isRunning() const {
    if (mId == 0) {
        return false;
    }
    ThreadLife const& life = ThreadLife::of(mEndEvent);
    return !life.hasEnded() && life.manager() == ThreadManager::managerNumber();
}

// Without a manager no thread is known, and none is made for a question: ends and destructors come here, too.

bool Thread::setPriority(ThreadPriority const& priority) {
    ThreadManager* const manager = ThreadManager::getIfCreated();
    return manager != nullptr && manager->setPriority(mId, priority);
}

bool Thread::getPriority(ThreadPriority* priority) const {
    ThreadManager* const manager = ThreadManager::getIfCreated();
    return manager != nullptr && manager->getPriority(mId, priority);
}

bool Thread::leaveManagement() {
    ThreadManager* const manager = ThreadManager::getIfCreated();
    return manager != nullptr && manager->unregister(mId);
}

bool Thread::setWatchdogAliveTime(unsigned int aliveTime) {
    ThreadManager* const manager = ThreadManager::getIfCreated();
    return manager != nullptr && manager->setWatchdogAliveTime(aliveTime, mId);
}

bool Thread::startWatchdog() {
    ThreadManager* const manager = ThreadManager::getIfCreated();
    return manager != nullptr && manager->startWatchdog(mId);
}

bool Thread::stopWatchdog() {
    ThreadManager* const manager = ThreadManager::getIfCreated();
    return manager != nullptr && manager->stopWatchdog(mId);
}

void Thread::keepAliveWatchdog(StatementInfo const& info) {
    ThreadManager* const manager = ThreadManager::getOrNull();
    if (manager != nullptr) {
        manager->keepAliveWatchdog(info);
    }
}

void Thread::sleep(unsigned int ms) {
    int const count = static_cast<int>(ms);
    timespec left{};
    left.tv_sec = count / 1000;
    left.tv_nsec = count % 1000 * 1000000L;
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
}

void Thread::waitForEnd() const {
    if (mEndEvent.get() != nullptr) {
        waitUntilOn(*mEndEvent, 0);
    }
}

// A stop takes the thread out before it makes itself known.
void Thread::leaveWatchdog() const {
    ThreadManager* const manager = ThreadManager::getIfCreated();
    if (!hasRequestedStop() && manager != nullptr) {
        manager->unregisterWatchdog(0);
    }
}

void Thread::enter() const {
    ThreadLife::of(mEndEvent).mInside.setOn();
}

void Thread::waitUntilInside() const {
    if (mEndEvent.get() != nullptr) {
        waitUntilOn(ThreadLife::of(mEndEvent).mInside, 0);
    }
}

}  // namespace utl

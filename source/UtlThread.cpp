#include "UtlThread.h"

#include <time.h>

#include <cerrno>
#include <memory>

#include "UtlThreadManager.h"
#include "internal/base/UtlCallIfPresent.h"
#include "internal/thread/UtlKeepAlive.h"
#include "internal/thread/UtlThreadLife.h"
#include "internal/time/UtlEventWait.h"

namespace utl {

namespace {

// Without a manager the answer is false: a question creates none, because ends and destructors ask, too.
template <typename OPERATION, typename... ARGS>
bool askManager(OPERATION operation, ARGS const&... args) {
    return callIfPresent(ThreadManager::getIfCreated(), operation, args...);
}

}  // namespace

Command::~Command() = default;

Thread::Thread(char const* name, Command* command)
    : mCommand(command), mId(0), mName(name, 0, 0), mMilestones{{0, 0}, {0, 0}, {0, 0}, {0, 0}}, mResult(0) {}

Thread::~Thread() {
    stop(AWAIT_END, Event::NO_LIMIT);
    waitForEnd();
}

// The new thread waits until the handshake is over: it finds all that is stored here before.
int Thread::start(int watchdog, unsigned int aliveTime, WatchdogTimerListener* listener, int waitReady,
                  unsigned int waitTimeout, ThreadPriority const& priority, unsigned int /*reserved*/) {
    SyncGuard const guard(mSyncObject);
    if (hasDone(STARTED)) {
        return -1;
    }
    ThreadManager* const manager = ThreadManager::get();
    StartHandshake handshake(ThreadManager::generation());
    auto cell = std::make_unique<Thread*>(this);
    int const id = manager->start(
        handshake, {startImpl, cell.get(), watchdog, aliveTime, listener, mName.buffer(), priority});
    if (handshake.threadExists()) {
        static_cast<void>(cell.release());  // the thread frees it
        mEndEvent = handshake.end();
    }
    if (id == ThreadManager::NO_ID) {
        return -1;
    }
    mId = id;
    mMilestones[STARTED].setOn();
    handshake.release();
    return waitReady == AWAIT_READY ? waitTo(READY, waitTimeout) : 0;
}

// The result is stored after postExecute and before the last milestone: whoever sees the thread finished sees
// both.
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

// The lock is released before the wait, so that the thread, or anybody, can ask and stop meanwhile.
int Thread::stop(int wait, unsigned int timeout) {
    {
        SyncGuard const guard(mSyncObject);
        if (!hasDone(STARTED) || hasDone(FINISHED)) {
            return -1;
        }
    }
    askManager(&ThreadManager::unregisterWatchdog, mId);
    mMilestones[STOP_REQUESTED].setOn();
    requestStop();
    return wait == AWAIT_END ? waitTo(FINISHED, timeout) : 0;
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
        return askManager(&ThreadManager::hasEntry, mId, mEndEvent) ? waitUntilOn(*mEndEvent, timeout) : -1;
    }
    return waitUntilOn(mMilestones[milestone], timeout);
}

bool Thread::hasDone(int milestone) const noexcept {
    if (static_cast<unsigned int>(milestone) >= MILESTONE_COUNT || !mMilestones[milestone].peekOn()) {
        return false;
    }
    return milestone != FINISHED || !isRunning();
}

bool Thread::hasRequestedStop() const noexcept {
    return hasDone(STOP_REQUESTED);
}

bool Thread::getResult(unsigned int* result) const noexcept {
    if (!hasDone(FINISHED) || result == nullptr) {
        return false;
    }
    *result = mResult;
    return true;
}

// What `ThreadManager::isActive` answers, without the lock of the table, which a start elsewhere may hold for
// long. A running thread leaves the table only when the whole table is destroyed.
bool Thread::isRunning() const noexcept {
    if (mId == ThreadManager::NO_ID) {
        return false;
    }
    ThreadLife const& life = ThreadLife::of(mEndEvent);
    return !life.hasEnded() && life.generation() == ThreadManager::generation();
}

bool Thread::setPriority(ThreadPriority const& priority) {
    return askManager(&ThreadManager::setPriority, mId, priority);
}

bool Thread::getPriority(ThreadPriority* priority) const {
    return askManager(&ThreadManager::getPriority, mId, priority);
}

bool Thread::leaveManagement() {
    return askManager(&ThreadManager::unregister, mId);
}

bool Thread::setWatchdogAliveTime(unsigned int aliveTime) {
    return askManager(&ThreadManager::setWatchdogAliveTime, aliveTime, mId);
}

bool Thread::startWatchdog() {
    return askManager(&ThreadManager::startWatchdog, mId);
}

bool Thread::stopWatchdog() {
    return askManager(&ThreadManager::stopWatchdog, mId);
}

void Thread::keepAliveWatchdog(StatementInfo const& info) {
    ThreadManager* const manager = isKnownUnregistered() ? nullptr : ThreadManager::getOrNull();
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
        waitUntilOn(*mEndEvent, Event::NO_LIMIT);
    }
}

// A stop removes the thread before it sets its milestone on.
void Thread::leaveWatchdog() const {
    if (!hasRequestedStop()) {
        askManager(&ThreadManager::unregisterWatchdog, ThreadManager::CALLER);
    }
}

void Thread::signalExecuting() const {
    ThreadLife::of(mEndEvent).mExecuting.setOn();
}

void Thread::waitUntilExecuting() const {
    if (mEndEvent.get() != nullptr) {
        waitUntilOn(ThreadLife::of(mEndEvent).mExecuting, Event::NO_LIMIT);
    }
}

}  // namespace utl

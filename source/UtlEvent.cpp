#include "UtlEvent.h"

#include <cerrno>

#include "UtlLog.h"
#include "UtlTimeCounter.h"
#include "internal/base/UtlRecursiveMutex.h"
#include "internal/time/UtlMonotonicTime.h"

namespace utl {

template class CountingPointer<Event, DestructPointer<Event>>;
template class SmartPointer<Event>;

namespace {

void initializeCondition(pthread_cond_t& condition) {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&condition, &attributes);
    pthread_condattr_destroy(&attributes);
}

// No thread may be waiting on it.
void renewCondition(pthread_cond_t& condition) {
    pthread_cond_destroy(&condition);
    initializeCondition(condition);
}

int waitBounded(pthread_cond_t& condition, pthread_mutex_t& mutex, int milliseconds) {
    timespec end;
    if (!monotonicTimeAfter(milliseconds, end)) {
        return Event::WAIT_FAILED;
    }
    switch (pthread_cond_timedwait(&condition, &mutex, &end)) {
        case 0:
            return Event::WAIT_DONE;
        case ETIMEDOUT:
            return Event::WAIT_TIMEOUT;
        default:
            return Event::WAIT_FAILED;
    }
}

}  // namespace

class [[nodiscard]] UTL_SCOPED_CAPABILITY Event::MutexHold {
  public:
    explicit MutexHold(Mutex& mutex) UTL_ACQUIRE(mutex) : mMutex(mutex) { pthread_mutex_lock(&mMutex); }
    ~MutexHold() UTL_RELEASE() { pthread_mutex_unlock(&mMutex); }
    MutexHold(MutexHold const&) = delete;
    MutexHold& operator=(MutexHold const&) = delete;

  private:
    Mutex& mMutex;
};

// One of the two states that can be awaited.
struct Event::Side {
    std::atomic<bool> const& flag;
    unsigned int& waiters;
    pthread_cond_t& condition;
    char const* name;
};

Event::Event(int initialOn, int twoWay) noexcept
    : mOn(initialOn != 0), mOff(initialOn == 0), mOnWaiters(0), mOffWaiters(0), mTwoWay(twoWay) {
    initializeRecursiveMutex(mMutex);
    initializeCondition(mOnCondition);
    if (mTwoWay == TWO_WAY) {
        initializeCondition(mOffCondition);
    }
}

Event::~Event() {
    pthread_cond_destroy(&mOnCondition);
    if (mTwoWay == TWO_WAY) {
        pthread_cond_destroy(&mOffCondition);
    }
    pthread_mutex_destroy(&mMutex);
}

void Event::setOn() noexcept {
    MutexHold const hold(mMutex);
    mOn = true;
    if (mTwoWay == TWO_WAY) {
        mOff = false;
    }
    pthread_cond_broadcast(&mOnCondition);
}

void Event::setOff() noexcept {
    MutexHold const hold(mMutex);
    mOn = false;
    if (mTwoWay == TWO_WAY) {
        mOff = true;
        pthread_cond_broadcast(&mOffCondition);
    }
}

bool Event::isOn() const noexcept {
    MutexHold const hold(mMutex);
    return mOn;
}

bool Event::isOff() const noexcept {
    return !isOn();  // mOff is not kept up to date in a one-way event
}

int Event::waitToOn(unsigned int timeoutMs) const {
    MutexHold const hold(mMutex);
    return wait({mOn, mOnWaiters, mOnCondition, "mOn"}, timeoutMs);
}

int Event::waitToOff(unsigned int timeoutMs) const {
    if (mTwoWay != TWO_WAY) {
        return WAIT_FAILED;
    }
    MutexHold const hold(mMutex);
    return wait({mOff, mOffWaiters, mOffCondition, "mOff"}, timeoutMs);
}

int Event::wait(Side const& side, unsigned int timeoutMs) const {
    ++side.waiters;
    int const result = side.flag ? WAIT_DONE : block(side, timeoutMs);
    --side.waiters;
    // The last waiter leaves a fresh condition, whatever its result and even if it did not have to block.
    if (side.flag && side.waiters == 0) {
        renewCondition(side.condition);
    }
    return result;
}

int Event::block(Side const& side, unsigned int timeoutMs) const {
    if (timeoutMs == NO_LIMIT) {
        // Callers rely on a single wait: whatever wakes the thread, it returns.
        pthread_cond_wait(&side.condition, &mMutex);
        return WAIT_DONE;
    }
    unsigned int remaining = timeoutMs;
    for (;;) {
        TimeCounter counter;
        counter.start();
        int const result = waitBounded(side.condition, mMutex, static_cast<int>(remaining));
        if (result != WAIT_DONE || side.flag) {
            return result;
        }
        unsigned int const waited = counter.stop();
        if (remaining <= waited) {
            return WAIT_TIMEOUT;
        }
        remaining -= waited;
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_DETAIL,
               "Wait OK, but Status(%s)=false.  Timeout=%umsec Waited=%umsec Retry wait %umsec after",
               side.name, timeoutMs, waited, remaining);
    }
}

}  // namespace utl

#include "internal/message/UtlSystemTimer.h"

#include <pthread.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>

#include "UtlMsg.h"
#include "UtlSyncObject.h"
#include "internal/base/UtlProcessWide.h"
#include "internal/base/UtlSavedErrno.h"
#include "internal/thread/UtlBriefWait.h"

namespace utl {

namespace {

enum TimerState { DELETED, LIVE, ABANDONED };

// A timer, as the signal handler sees it. Slots are never freed, so that a handler may look at one at any
// time. The slot of a deleted timer serves the next one of its bucket; until then a late signal is recognised
// by it. Each has its own cache line: while the handler of one timer works, the reader counts the tokens of
// another.
struct alignas(64) TimerSlot {
    // Zero while it serves nobody, so that the table needs no space in the file.
    std::atomic<int> numberPlusOne{0};
    std::atomic<int> writeEnd{0};
    std::atomic<TimerState> state{DELETED};
    std::atomic<unsigned int> waiting{0};   // tokens in the pipe
    std::atomic<unsigned int> handlers{0};  // handlers that are using this slot
    std::atomic<TimerSlot*> next{nullptr};
};

// The kernel counts its numbers up, so the low bits spread them evenly.
constexpr unsigned int BUCKET_COUNT = 256;
TimerSlot gBuckets[BUCKET_COUNT];

TimerSlot& bucketOf(int number) {
    return gBuckets[static_cast<unsigned int>(number) % BUCKET_COUNT];
}

SyncObject& slotLock() {
    static ProcessWide<SyncObject> lock;
    return *lock;
}

// What a slot stores of the kernel's number, of which each `int` is a valid one; a zero slot is that of -1.
int numberKey(int number) {
    return static_cast<int>(static_cast<unsigned int>(number) + 1U);
}

TimerSlot* findSlot(int number) {
    for (TimerSlot* slot = &bucketOf(number); slot != nullptr; slot = slot->next) {
        if (slot->numberPlusOne == numberKey(number)) {
            return slot;
        }
    }
    return nullptr;
}

// A free slot of the bucket, or a new one if all are taken; null if there is no memory for it. A number that
// the kernel reuses keeps its slot, so that it never has two.
TimerSlot* slotFor(int number) UTL_REQUIRES(slotLock()) {
    TimerSlot* slot = findSlot(number);
    if (slot != nullptr) {
        return slot;
    }
    slot = &bucketOf(number);
    while (slot->state != DELETED) {
        TimerSlot* next = slot->next;
        if (next == nullptr) {
            next = new (std::nothrow) TimerSlot;
            slot->next = next;
        }
        if (next == nullptr) {
            return nullptr;
        }
        slot = next;
    }
    return slot;
}

bool addTimer(int number, int writeEnd) UTL_REQUIRES(slotLock()) {
    TimerSlot* const slot = slotFor(number);
    if (slot == nullptr) {
        return false;
    }
    slot->numberPlusOne = numberKey(number);
    slot->writeEnd = writeEnd;
    slot->waiting = 0;
    slot->state = LIVE;
    return true;
}

// A handler counts itself before it looks. So if the timer is not live and no handler is counted, nobody will
// write. A handler that writes never waits, so this ends.
void endTimer(int number, TimerState state) UTL_REQUIRES(slotLock()) {
    TimerSlot* const slot = findSlot(number);
    if (slot == nullptr) {
        return;
    }
    slot->state = state;
    waitBriefly([slot] { return slot->handlers == 0; });
}

// The slot may serve another timer by now, whose count has started anew.
void decrement(std::atomic<unsigned int>& count) {
    unsigned int before = count;
    while (before != 0 && !count.compare_exchange_weak(before, before - 1)) {
    }
}

// At most TIMER_TOKENS_MAX tokens of one timer wait at a time. The state is read first: if the slot is live,
// its number and its pipe are those of that moment or of a later one.
bool writeTokenOf(TimerSlot& slot, int number, int writeEnd, TokenIo* io) {
    if (slot.state != LIVE || slot.numberPlusOne != numberKey(number) || slot.writeEnd != writeEnd ||
        slot.waiting >= TIMER_TOKENS_MAX) {
        return true;
    }
    ++slot.waiting;
    bool written = false;
    bool const isDone = writeTokenFromHandler(writeEnd, {MSG_ID_TIMEOUT_SIGNAL, number}, io, &written);
    if (!written) {
        decrement(slot.waiting);
    }
    return isDone;
}

// The handler that was installed before the library's own, by a program or by another copy of the library.
class ReplacedHandler {
  public:
    /// None if `replaced` is not a function, or is the handler of `own`.
    void set(struct sigaction const& replaced, struct sigaction const& own) {
        bool const isFunction = replaced.sa_handler != SIG_DFL && replaced.sa_handler != SIG_IGN;
        bool const hasInfo = (replaced.sa_flags & SA_SIGINFO) != 0;
        bool const isOwn = hasInfo && replaced.sa_sigaction == own.sa_sigaction;
        mWithInfo = isFunction && hasInfo && !isOwn ? replaced.sa_sigaction : nullptr;
        mPlain = isFunction && !hasInfo ? replaced.sa_handler : nullptr;
    }

    void call(int signalNumber, siginfo_t* info, void* context) const {
        if (auto const withInfo = mWithInfo.load()) {
            withInfo(signalNumber, info, context);
        } else if (auto const plain = mPlain.load()) {
            plain(signalNumber);
        }
    }

  private:
    std::atomic<void (*)(int, siginfo_t*, void*)> mWithInfo{nullptr};
    std::atomic<void (*)(int)> mPlain{nullptr};
};

ReplacedHandler gReplacedHandlers[NSIG];

// A child process has none of its parent's timers, and its own begin with the same numbers.
void resetTimersInChild() {
    for (TimerSlot& bucket : gBuckets) {
        for (TimerSlot* slot = &bucket; slot != nullptr; slot = slot->next) {
            slot->numberPlusOne = 0;
            slot->state = DELETED;
            slot->handlers = 0;
        }
    }
    new (&slotLock()) SyncObject;
}

[[maybe_unused]] int const gAtForkRegistered = pthread_atfork(nullptr, nullptr, resetTimersInChild);

}  // namespace

int kernelTimerNumber(timer_t id) {
    return static_cast<int>(reinterpret_cast<std::intptr_t>(id));
}

int createSystemTimer(int signalNumber, int writeEnd, timer_t* id, int* number) {
    sigevent event;
    std::memset(&event, 0, sizeof(event));
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = signalNumber;
    event.sigev_value.sival_int = writeEnd;
    // The kernel may reuse the number of a timer that is just being deleted.
    SyncGuard const guard(slotLock());
    timer_t created = timer_t();
    if (timer_create(CLOCK_MONOTONIC, &event, &created) != 0) {
        return errno;
    }
    if (!addTimer(kernelTimerNumber(created), writeEnd)) {
        timer_delete(created);
        return ENOMEM;
    }
    *id = created;
    *number = kernelTimerNumber(created);
    return 0;
}

int armSystemTimer(timer_t id, unsigned int milliseconds) {
    itimerspec spec;
    spec.it_value.tv_sec = static_cast<time_t>(milliseconds / 1000);
    spec.it_value.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000;
    spec.it_interval = spec.it_value;
    itimerspec old;
    return timer_settime(id, 0, &spec, &old) == 0 ? 0 : errno;
}

int deleteSystemTimer(timer_t id, int number) {
    SyncGuard const guard(slotLock());
    if (timer_delete(id) != 0) {
        return errno;
    }
    endTimer(number, DELETED);
    return 0;
}

void abandonSystemTimer(int number) {
    SyncGuard const guard(slotLock());
    endTimer(number, ABANDONED);
}

void acknowledgeTimerToken(int number) {
    TimerSlot* const slot = findSlot(number);
    if (slot != nullptr) {
        decrement(slot->waiting);
    }
}

bool serveTimerSignal(int signalNumber, siginfo_t* info, void* context, TokenIo* io) {
    SavedErrno const errnoOfTheInterrupted;
    int const number = info->si_timerid;
    int const writeEnd = info->si_value.sival_int;
    TimerSlot* const slot = findSlot(number);
    if (slot == nullptr || slot->writeEnd != writeEnd) {
        gReplacedHandlers[signalNumber].call(signalNumber, info, context);
        return true;
    }
    ++slot->handlers;
    bool const isDone = writeTokenOf(*slot, number, writeEnd, io);
    --slot->handlers;
    return isDone;
}

struct sigaction timerSignalAction(void (*handler)(int, siginfo_t*, void*)) {
    struct sigaction action;
    std::memset(&action, 0, sizeof(action));
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigemptyset(&action.sa_mask);
    return action;
}

// The replaced handler is known before the first signal comes. It is asked for again, because another thread
// may have installed one in between.
int installSignalAction(int signalNumber, struct sigaction const& action) {
    struct sigaction replaced;
    for (struct sigaction const* const next : {static_cast<struct sigaction const*>(nullptr), &action}) {
        if (sigaction(signalNumber, next, &replaced) != 0) {
            return errno;
        }
        gReplacedHandlers[signalNumber].set(replaced, action);
    }
    return 0;
}

}  // namespace utl

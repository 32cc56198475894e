// Everything at once: eight threads that send, ask, erase and set timers at random, on two message threads
// and a shared one, whose handlers send on.

#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestSharedThread.h"
#include "TestStage.h"
#include "UtlThreadManager.h"

using namespace utltest;

namespace {

constexpr unsigned int WORKERS = 8;
constexpr unsigned int OPERATIONS = 1000;  // of one worker
constexpr auto TIME_LIMIT = std::chrono::seconds(20);
constexpr unsigned int MAX_MSG_SIZE = 8;
constexpr unsigned int MAX_MSG_COUNT = 12;
constexpr unsigned int MAX_TIMERS = 12;
constexpr int GUESTS = 3;  // listeners that come and go
constexpr int FIRST_THREAD = 0;
constexpr int SECOND_THREAD = 1;
constexpr int SHARED_THREAD = 2;
constexpr int THREADS = 3;

// Messages of the first kind are erased by judgements alone, which count.
constexpr int COUNTED = 100;
constexpr int ERASABLE = 101;
constexpr int FLUSH = 102;

using Random = std::minstd_rand;

enum Fate { NOT_SENT, REFUSED, POSTED, CAME_BACK_WITH_1, CAME_BACK_WITH_0 };

/// What becomes of one message; the message carries the entry's number.
struct LedgerEntry {
    std::atomic<int> fate{NOT_SENT};
    std::atomic<int> delivered{0};
    std::atomic<int> erased{0};
    int id = 0;
    bool isBroadcast = false;
};

class Ledger {
  public:
    LedgerEntry* open(int id, bool isBroadcast, int* number) {
        *number = mNext++;
        if (*number >= CAPACITY) {
            return nullptr;
        }
        LedgerEntry& entry = mEntries[static_cast<size_t>(*number)];
        entry.id = id;
        entry.isBroadcast = isBroadcast;
        return &entry;
    }
    LedgerEntry* find(int number) {
        return number >= 0 && number < CAPACITY ? &mEntries[static_cast<size_t>(number)] : nullptr;
    }

    /// Compares every entry with its fate. With `allServed` what was posted is delivered or erased by now.
    void check(bool allServed) {
        unsigned int delivered = 0;
        for (LedgerEntry const& entry : mEntries) {
            int const ends = entry.delivered + entry.erased;
            switch (entry.fate) {
                case POSTED:
                    EXPECT_LE(ends, 1);
                    EXPECT_TRUE(ends == 1 || entry.id == ERASABLE || !allServed) << "lost";
                    break;
                case CAME_BACK_WITH_1:
                    EXPECT_EQ(entry.delivered, 1);
                    EXPECT_EQ(entry.erased, 0);
                    break;
                default:
                    EXPECT_EQ(entry.delivered, 0) << "fate " << entry.fate;
                    break;
            }
            delivered += static_cast<unsigned int>(entry.delivered);
        }
        EXPECT_GT(delivered, 0U);
    }

  private:
    static constexpr int CAPACITY = static_cast<int>(WORKERS * OPERATIONS * 4);
    std::vector<LedgerEntry> mEntries = std::vector<LedgerEntry>(CAPACITY);
    std::atomic<int> mNext{0};
};

/// Timers by their ids: which have been killed, and a few that may still be there.
class TimerLedger {
  public:
    void add(int timerId, unsigned int place) {
        if (timerId > 0) {
            mRecent[place % RECENT] = timerId;
        }
    }
    int pick(unsigned int place) const { return mRecent[place % RECENT]; }

    void noteKilled(int timerId) { mKilled[static_cast<size_t>(timerId) % IDS] = true; }
    bool isKilled(int timerId) const { return mKilled[static_cast<size_t>(timerId) % IDS]; }

  private:
    static constexpr size_t IDS = 8 * WORKERS * OPERATIONS;  // more than there can be timers
    static constexpr unsigned int RECENT = 16;
    std::vector<std::atomic<bool>> mKilled = std::vector<std::atomic<bool>>(IDS);
    std::atomic<int> mRecent[RECENT] = {};
};

class Stress {
  public:
    Stress();
    ~Stress() = default;

    /// Lets the workers work until each has done its operations or the time is over.
    void startWorkers(unsigned int operations);
    void joinWorkers();

    /// Waits until that many operations are done, or the workers are at their end.
    void waitFor(unsigned int operations) const {
        while (mDone < operations && mWorking != 0) {
            std::this_thread::yield();
        }
    }
    void stopThreads();
    void serveRest();
    void check(bool allServed) { mLedger.check(allServed); }

  private:
    /// A listener of one of the threads.
    class Listener : public utl::ThreadMsgListener {
      public:
        Listener(Stress& stress, int thread, bool countsBroadcasts)
            : mStress(stress), mThread(thread), mCountsBroadcasts(countsBroadcasts) {}
        void receiveMsg(int, utl::ThreadRawMsg& raw) override {
            NumberMsg msg(0);
            EXPECT_EQ(msg.restoreFrom(raw), 1);
            if (msg.getMsgId() == utl::MSG_ID_TIMER) {
                EXPECT_FALSE(mStress.mTimers[mThread].isKilled(msg.mNumber)) << "an expiry behind the kill";
            } else if (msg.getMsgId() != FLUSH) {
                receive(msg);
            }
        }

        std::atomic<bool> mMayHearBroadcasts{true};

      private:
        void receive(NumberMsg const& msg) {
            LedgerEntry* const entry = mStress.mLedger.find(msg.mNumber);
            ASSERT_NE(entry, nullptr);
            EXPECT_EQ(entry->id, msg.getMsgId());
            if (entry->isBroadcast) {
                EXPECT_TRUE(mMayHearBroadcasts) << "a broadcast behind the detaching";
            }
            if (!entry->isBroadcast || mCountsBroadcasts) {
                ++entry->delivered;
                mStress.handle(mThread, msg.mNumber);
            }
        }

        Stress& mStress;
        int const mThread;
        bool const mCountsBroadcasts;
    };

    /// Erases messages of the counted kind and notes which.
    class CountingErasure : public utl::MsgDrivenThread::MsgJudgementInterface {
      public:
        CountingErasure(Ledger& ledger, int modulus)
            : mLedger(ledger), mModulus(modulus), mEnvelope(4 + MAX_MSG_SIZE) {}
        bool judge(utl::ThreadRawMsg& raw) override {
            NumberMsg msg(0);
            int id = 0;
            raw.getMsgId(&id);
            if (id == utl::MSG_ID_LISTENER_SPECIFIED) {
                mEnvelope.restoreFrom(raw);
                msg.restoreFrom(mEnvelope.mRawMsg);
            } else {
                msg.restoreFrom(raw);
            }
            LedgerEntry* const entry = mLedger.find(msg.mNumber);
            if (msg.getMsgId() != COUNTED || entry == nullptr || msg.mNumber % mModulus != 0) {
                return false;
            }
            ++entry->erased;
            return true;
        }

      private:
        Ledger& mLedger;
        int const mModulus;
        ScopedSharedThread::SpecifiedMsgListenerMsg mEnvelope;
    };

    using Operation = void (Stress::*)(Random& random);
    using Send = std::function<int(utl::Msg const&)>;

    void work(unsigned int worker, unsigned int operations, std::chrono::steady_clock::time_point end);
    void handle(int thread, int number);

    utl::MsgDrivenThread& threadAt(int index);
    utl::ThreadMsgListener* pickListener(Random& random);
    void sendAndNote(int id, bool isBroadcast, bool waits, Send const& send);
    template <typename PLAIN, typename BROADCAST, typename ADDRESSED>
    void sendSomewhere(Random& random, bool waits, PLAIN plain, BROADCAST broadcast, ADDRESSED addressed);

    void post(Random& random);
    void sendSync(Random& random);
    void sendInterrupt(Random& random);
    void setTimer(Random& random);
    void registerAndStart(Random& random);
    void restart(Random& random);
    void kill(Random& random);
    void look(Random& random);
    void peek(Random& random);
    void eraseCounting(Random& random);
    void erase(Random& random);
    void abort(Random& random);
    void comeOrGo(unsigned int guest, Random& random);

    Ledger mLedger;
    TimerLedger mTimers[THREADS];
    Listener mFirstListener{*this, FIRST_THREAD, false};
    Listener mSecondListener{*this, SECOND_THREAD, false};
    Listener mAlways{*this, SHARED_THREAD, true};
    std::vector<std::unique_ptr<Listener>> mGuests;
    Listener mApart{*this, SHARED_THREAD, false};
    Listener mAborted{*this, SHARED_THREAD, false};
    ScopedMsgThread mFirst{MAX_MSG_SIZE, MAX_MSG_COUNT, "first", MAX_TIMERS};
    ScopedMsgThread mSecond{MAX_MSG_SIZE, MAX_MSG_COUNT, "second", MAX_TIMERS};
    ScopedSharedThread mShared{MAX_MSG_SIZE, MAX_MSG_COUNT, 1 + GUESTS, "shared", MAX_TIMERS};
    std::vector<std::thread> mWorkers;
    std::atomic<unsigned int> mWorking{0};
    std::atomic<unsigned int> mDone{0};
};

Stress::Stress() {
    for (int i = 0; i < GUESTS; ++i) {
        mGuests.push_back(std::make_unique<Listener>(*this, SHARED_THREAD, false));
        mGuests.back()->mMayHearBroadcasts = false;
    }
    EXPECT_EQ(mShared.attachMsgListener(&mAlways), 1);
    EXPECT_EQ(mFirst.start(&mFirstListener), 0);
    EXPECT_EQ(mSecond.start(&mSecondListener), 0);
    EXPECT_EQ(mShared.start(), 0);
}

void Stress::startWorkers(unsigned int operations) {
    auto const end = std::chrono::steady_clock::now() + TIME_LIMIT;
    mWorking = WORKERS;
    for (unsigned int worker = 0; worker < WORKERS; ++worker) {
        mWorkers.emplace_back([=] { work(worker, operations, end); });
    }
}

void Stress::joinWorkers() {
    for (std::thread& worker : mWorkers) {
        worker.join();
    }
    mWorkers.clear();
}

void Stress::stopThreads() {
    EXPECT_EQ(mShared.stop(1, 0), 0);
    EXPECT_EQ(mFirst.stop(1, 0), 0);
    EXPECT_EQ(mSecond.stop(1, 0), 0);
}

// Ends the timers and lets everything arrive that is queued. Handlers send on in this order alone.
void Stress::serveRest() {
    for (int i = 0; i < THREADS; ++i) {
        utl::MsgDrivenThread& thread = threadAt(i);
        for (unsigned int timer = 1; thread.remTimerIdCount() != MAX_TIMERS; ++timer) {
            thread.killTimer(static_cast<int>(timer), 0);
        }
        while (thread.sendMsgSync(FLUSH) != 1 || thread.getFirstMsgId() != utl::MSG_ID_NONE) {
        }
    }
}

void Stress::work(unsigned int worker, unsigned int operations, std::chrono::steady_clock::time_point end) {
    static constexpr Operation OPERATION_TABLE[] = {
        &Stress::post,          &Stress::post,     &Stress::post,
        &Stress::post,          &Stress::sendSync, &Stress::sendSync,
        &Stress::sendInterrupt, &Stress::setTimer, &Stress::registerAndStart,
        &Stress::restart,       &Stress::kill,     &Stress::kill,
        &Stress::look,          &Stress::peek,     &Stress::eraseCounting,
        &Stress::erase,         &Stress::abort};
    constexpr size_t COUNT = sizeof(OPERATION_TABLE) / sizeof(OPERATION_TABLE[0]);
    Random random(worker + 1);
    for (unsigned int i = 0; i < operations && std::chrono::steady_clock::now() < end; ++i) {
        (this->*OPERATION_TABLE[random() / 16 % COUNT])(random);
        if (worker < GUESTS && i % 8 == 0) {
            comeOrGo(worker, random);
        }
        ++mDone;
    }
    --mWorking;
}

// On the message thread: sends on, erases, and kills timers of its own. A thread that waits for another one
// must not be waited for by that one, so messages go from the first to the second and from there to the
// shared.
void Stress::handle(int thread, int number) {
    int const choice = number % 5;
    if (choice == 0 && thread == FIRST_THREAD) {
        sendAndNote(COUNTED, false, false, [this](utl::Msg const& msg) { return mSecond.postMsg(msg); });
    } else if (choice == 0 && thread == SECOND_THREAD) {
        sendAndNote(COUNTED, true, false, [this](utl::Msg const& msg) { return mShared.postMsg(msg); });
    } else if (choice == 1 && thread != SECOND_THREAD) {
        sendAndNote(COUNTED, false, false,
                    [this](utl::Msg const& msg) { return mShared.postMsg(&mApart, msg); });
    } else if (choice == 2) {
        CountingErasure erasure(mLedger, 11);
        EXPECT_TRUE(threadAt(thread).eraseMsgInternal(&erasure));
    } else if (choice == 3 && thread != SHARED_THREAD) {
        int const timer = mTimers[thread].pick(static_cast<unsigned int>(number));
        if (threadAt(thread).killTimer(timer, 0)) {
            mTimers[thread].noteKilled(timer);
        }
    } else if (number % 25 == 4) {
        utl::Thread::sleep(1);  // the queue fills up meanwhile
    }
}

utl::MsgDrivenThread& Stress::threadAt(int index) {
    if (index == SHARED_THREAD) {
        return mShared;
    }
    return index == FIRST_THREAD ? mFirst : mSecond;
}

// Null for all of them.
utl::ThreadMsgListener* Stress::pickListener(Random& random) {
    switch (random() / 16 % 6) {
        case 0:
            return &mApart;
        case 1:
            return &mAborted;
        case 2:
            return mGuests[random() / 16 % GUESTS].get();
        default:
            return nullptr;
    }
}

void Stress::sendAndNote(int id, bool isBroadcast, bool waits, Send const& send) {
    int number = 0;
    LedgerEntry* const entry = mLedger.open(id, isBroadcast, &number);
    if (entry == nullptr) {
        return;
    }
    bool const sent = send(NumberMsg(id, number)) == 1;
    if (!waits) {
        entry->fate = sent ? POSTED : REFUSED;
        return;
    }
    entry->fate = sent ? CAME_BACK_WITH_1 : CAME_BACK_WITH_0;
    EXPECT_EQ(entry->delivered, sent ? 1 : 0);
}

template <typename PLAIN, typename BROADCAST, typename ADDRESSED>
void Stress::sendSomewhere(Random& random, bool waits, PLAIN plain, BROADCAST broadcast,
                           ADDRESSED addressed) {
    int const id = random() / 16 % 4 == 0 ? ERASABLE : COUNTED;
    auto const index = static_cast<int>(random() / 16 % THREADS);
    if (index != SHARED_THREAD) {
        sendAndNote(id, false, waits, [&](utl::Msg const& msg) { return plain(threadAt(index), msg); });
        return;
    }
    utl::ThreadMsgListener* const listener = pickListener(random);
    if (listener == nullptr) {
        sendAndNote(id, true, waits, broadcast);
    } else {
        sendAndNote(listener == &mAborted ? ERASABLE : id, false, waits,
                    [&](utl::Msg const& msg) { return addressed(listener, msg); });
    }
}

void Stress::post(Random& random) {
    sendSomewhere(
        random, false, [](utl::MsgDrivenThread& thread, utl::Msg const& msg) { return thread.postMsg(msg); },
        [this](utl::Msg const& msg) { return mShared.postMsg(msg); },
        [this](utl::ThreadMsgListener* listener, utl::Msg const& msg) {
            return mShared.postMsg(listener, msg);
        });
}

void Stress::sendSync(Random& random) {
    sendSomewhere(
        random, true,
        [](utl::MsgDrivenThread& thread, utl::Msg const& msg) { return thread.sendMsgSync(msg); },
        [this](utl::Msg const& msg) { return mShared.sendMsgSync(msg); },
        [this](utl::ThreadMsgListener* listener, utl::Msg const& msg) {
            return mShared.sendMsgSync(listener, msg);
        });
}

void Stress::sendInterrupt(Random& random) {
    sendSomewhere(
        random, true,
        [](utl::MsgDrivenThread& thread, utl::Msg const& msg) { return thread.sendMsgInterrupt(msg); },
        [this](utl::Msg const& msg) { return mShared.sendMsgInterrupt(msg); },
        [this](utl::ThreadMsgListener* listener, utl::Msg const& msg) {
            return mShared.sendMsgInterrupt(listener, msg);
        });
}

void Stress::setTimer(Random& random) {
    auto const index = static_cast<int>(random() / 16 % THREADS);
    auto const interval = static_cast<unsigned int>(1 + random() / 16 % 3);
    auto const noWait = static_cast<int>(random() / 16 % 2);
    auto const repeatCount = static_cast<unsigned int>(random() / 16 % 4);
    auto const autoRepeat = static_cast<int>(random() / 16 % 2);
    utl::ThreadMsgListener* const listener = pickListener(random);
    int timer = -1;
    if (index != SHARED_THREAD) {
        timer = threadAt(index).setTimer(interval, noWait, repeatCount, autoRepeat);
    } else if (listener == nullptr) {
        timer = mShared.setTimer(interval, noWait, repeatCount, autoRepeat);
    } else {
        timer = mShared.setTimer(listener, interval, noWait, repeatCount, autoRepeat);
    }
    mTimers[index].add(timer, static_cast<unsigned int>(random()));
}

void Stress::registerAndStart(Random& random) {
    auto const index = static_cast<int>(random() / 16 % THREADS);
    int const timer =
        index == SHARED_THREAD ? mShared.registerTimer(1, 2, 0) : threadAt(index).registerTimer(1, 2, 1);
    if (timer > 0) {
        mTimers[index].add(timer, static_cast<unsigned int>(random()));
        threadAt(index).startTimer(timer, static_cast<int>(random() / 16 % 2));
    }
}

void Stress::restart(Random& random) {
    auto const index = static_cast<int>(random() / 16 % THREADS);
    int const timer = mTimers[index].pick(static_cast<unsigned int>(random() / 16));
    threadAt(index).startTimer(timer, static_cast<int>(random() / 16 % 2));
}

void Stress::kill(Random& random) {
    auto const index = static_cast<int>(random() / 16 % THREADS);
    int const timer = mTimers[index].pick(static_cast<unsigned int>(random() / 16));
    auto const noWait = static_cast<int>(random() / 16 % 4 == 0);
    if (threadAt(index).killTimer(timer, noWait) && noWait == 0) {
        mTimers[index].noteKilled(timer);
    }
}

void Stress::look(Random& random) {
    auto const index = static_cast<int>(random() / 16 % THREADS);
    int const id = random() / 16 % 2 == 0 ? COUNTED : utl::MSG_ID_TIMER;
    if (index != SHARED_THREAD) {
        threadAt(index).hasMsg(id);
        threadAt(index).getFirstMsgId();
    } else {
        mShared.hasMsg(id);
        mShared.hasMsg(pickListener(random), id);
        mShared.getFirstMsgId(pickListener(random));
    }
}

void Stress::peek(Random& random) {
    auto const index = static_cast<int>(random() / 16 % THREADS);
    utl::ThreadMsgListener* const listener = pickListener(random);
    utl::ThreadRawMsg raw(4);
    NumberMsg msg(0);
    bool const found = index != SHARED_THREAD ? threadAt(index).peekMsg(COUNTED, &raw)
                       : listener == nullptr  ? mShared.peekMsg(COUNTED, &raw)
                                              : mShared.peekMsg(listener, COUNTED, &raw);
    if (found) {
        EXPECT_EQ(msg.restoreFrom(raw), 1);
        EXPECT_EQ(msg.getMsgId(), COUNTED);
        ASSERT_NE(mLedger.find(msg.mNumber), nullptr);
        EXPECT_EQ(mLedger.find(msg.mNumber)->id, COUNTED);
    }
}

void Stress::eraseCounting(Random& random) {
    CountingErasure erasure(mLedger, 3);
    threadAt(static_cast<int>(random() / 16 % THREADS)).eraseMsgInternal(&erasure);
}

void Stress::erase(Random& random) {
    auto const index = static_cast<int>(random() / 16 % THREADS);
    int const id = random() / 16 % 2 == 0 ? ERASABLE : utl::MSG_ID_TIMER;
    if (index != SHARED_THREAD) {
        threadAt(index).eraseMsg(id);
    } else if (random() / 16 % 2 == 0) {
        mShared.eraseMsg(id);
    } else {
        mShared.eraseMsg(pickListener(random), id);
    }
}

void Stress::abort(Random&) {
    mShared.abortMsg(&mAborted);
}

// Each guest is led by one worker alone.
void Stress::comeOrGo(unsigned int guest, Random& random) {
    Listener& listener = *mGuests[guest];
    if (random() / 16 % 2 == 0) {
        listener.mMayHearBroadcasts = true;
        mShared.attachMsgListener(&listener);
    } else if (mShared.detachMsgListener(&listener) == 1) {
        listener.mMayHearBroadcasts = false;
    }
}

// Full queues are a part of it; nothing else may be logged.
void expectOverflowsAlone(std::vector<std::string> const& lines) {
    for (std::string const& line : lines) {
        EXPECT_TRUE(line.find("Overflow MsgDataQueue") != std::string::npos ||
                    line.find("Can't send thread") != std::string::npos)
            << line;
    }
}

TEST(MessageStress, EveryAcceptedMessageIsDeliveredOrErased_EverySenderComesBack_NoKilledTimerFires) {
    LogCapture const log;
    Stress stress;
    stress.startWorkers(OPERATIONS);
    stress.joinWorkers();
    stress.serveRest();
    stress.check(true);
    expectOverflowsAlone(log.lines());
}

TEST(MessageStress, AStopInTheMiddle_LetsEverySenderComeBackAndDeliversNothingTwice) {
    LogCapture const log;
    for (unsigned int round = 1; round <= 8; ++round) {
        Stress stress;
        stress.startWorkers(OPERATIONS / 16);
        stress.waitFor(round * 30);
        stress.stopThreads();
        stress.joinWorkers();
        stress.check(false);
    }
    expectOverflowsAlone(log.lines());
}

TEST_F(MsgThreadOnStage, SynchronousSendersAndAnEraser_AgreeOnWhatWasDelivered) {
    Stage stage;
    stage.start();
    std::atomic<int> done{0};
    std::atomic<int> senders{2};
    auto const send = [&](int id) {
        for (int i = 0; i < 150; ++i) {
            done += stage.thread.sendMsgSync(NumberMsg(id, i));
        }
        --senders;
    };
    {
        JoinedThread one([&] { send(1); });
        JoinedThread two([&] { send(2); });
        JoinedThread eraser([&] {
            while (senders > 0) {
                EXPECT_TRUE(stage.thread.eraseMsg(1));
                stage.thread.hasMsg(2);
            }
        });
    }
    EXPECT_EQ(static_cast<int>(stage.delivered().size()), done.load());
    EXPECT_GE(done.load(), 150);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(MsgThreadOnStage, TimersSetKilledErasedAndFiredAtOnce_LeaveExactlyOnceEach) {
    Collector collector;
    OpenedMsgThread thread(8, 64, "road", 3);
    ASSERT_EQ(thread.start(&collector), 0);
    std::mutex mutex;
    std::vector<int> made;
    std::atomic<int> players{3};
    auto const play = [&] {
        for (int i = 0; i < 60; ++i) {
            int const timer = thread.setTimer(1, i % 2, static_cast<unsigned int>(1 + i % 3), i / 2 % 2);
            if (timer > 0) {
                std::lock_guard<std::mutex> const guard(mutex);
                made.push_back(timer);
            }
            if (timer > 0 && i % 3 == 0) {
                thread.killTimer(timer, i % 5 == 0 ? 1 : 0);
                EXPECT_FALSE(thread.killTimer(timer));
            }
        }
        --players;
    };
    {
        JoinedThread one(play);
        JoinedThread two(play);
        JoinedThread three(play);
        JoinedThread eraser([&] {
            while (players > 0) {
                EXPECT_TRUE(thread.eraseMsg(utl::MSG_ID_TIMER));
                EXPECT_LE(thread.remTimerIdCount(), 3U);
            }
        });
    }
    thread.finish();
    std::vector<int> gone = thread.erasedTimers();
    std::sort(gone.begin(), gone.end());
    std::sort(made.begin(), made.end());
    EXPECT_FALSE(made.empty());
    EXPECT_EQ(gone, made);
    EXPECT_EQ(thread.remTimerIdCount(), 3U);
    EXPECT_EQ(hooks::timerCreate.calls(), hooks::timerDelete.calls());
    EXPECT_TRUE(log.lines().empty());
}

}  // namespace

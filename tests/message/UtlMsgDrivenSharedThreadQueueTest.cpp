// Questions, erasure and timers of shared message threads.

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <future>
#include <thread>
#include <vector>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestSharedThread.h"
#include "UtlMsgDrivenSharedThread.h"
#include "internal/message/UtlSystemTimer.h"

using namespace utltest;

namespace {

constexpr int FIRST = 100;
constexpr int SECOND = 101;
constexpr int THIRD = 102;
constexpr unsigned int FRAME_BYTES = 64 + 4 + 4 + sizeof(void*);

using SharedThreadQueue = WithoutWatchdogThread;
using SharedThreadTimer = WithoutWatchdogThread;
using SharedThreadAbort = WithoutWatchdogThread;

using Predicate = utl::MsgDrivenThread::JudgeMsgSpecifiedMsgId;
using JudgeBroadcast = ScopedSharedThread::JudgeMsgBroadcast<Predicate>;
using JudgeListener = ScopedSharedThread::JudgeMsgSpecifiedListener<Predicate>;
using Envelope = ScopedSharedThread::SpecifiedMsgListenerMsg;

int numberIn(utl::ThreadRawMsg& raw) {
    NumberMsg msg(0);
    EXPECT_EQ(msg.restoreFrom(raw), 1);
    return msg.mNumber;
}

// The judgements, on messages that a test flattens.

class SharedThreadJudge : public ::testing::Test {
  protected:
    SharedThreadJudge() {
        mTimers.insert(1, nullptr);
        mTimers.insert(2, &mListener);
        mTimers.insert(3, &mOther);
    }

    utl::ThreadRawMsg& flat(utl::Msg const& msg) {
        EXPECT_EQ(msg.storeTo(&mRaw), 1);
        return mRaw;
    }
    utl::ThreadRawMsg& expiry(int timerId) {
        utl::TimerMsg msg;
        msg.mTimerId = timerId;
        return flat(msg);
    }
    utl::ThreadRawMsg& envelope(utl::ThreadMsgListener* listener, int id) {
        Envelope msg(68);
        msg.mListener = listener;
        EXPECT_EQ(utl::SimpleMsg(id).storeTo(&msg.mRawMsg), 1);
        return flat(msg);
    }

    bool isBroadcast(int msgId, utl::ThreadRawMsg& msg) {
        Predicate predicate(msgId);
        JudgeBroadcast judge(&predicate, &mTimers, &mLock);
        return utl::MsgDrivenThread::MsgJudgement<JudgeBroadcast>(&judge).judge(msg);
    }
    bool isForListener(int msgId, utl::ThreadRawMsg& msg, bool* foundTimer = nullptr) {
        Predicate predicate(msgId);
        JudgeListener judge(&mListener, &predicate, &mTimers, &mLock, 68);
        bool const result = utl::MsgDrivenThread::MsgJudgement<JudgeListener>(&judge).judge(msg);
        if (foundTimer != nullptr) {
            *foundTimer = judge.hasFoundTimer();
        }
        return result;
    }

    struct Unreadable : utl::ThreadRawMsg {
        Unreadable() : ThreadRawMsg(FRAME_BYTES) {}
        int getMsgId(int*) override { return 0; }
    };

    Collector mListener;
    Collector mOther;
    ScopedSharedThread::TimerListenerMap mTimers{4, 0};
    utl::SyncObject mLock;
    utl::ThreadRawMsg mRaw{FRAME_BYTES};
};

TEST_F(SharedThreadJudge, ABroadcast_IsMeantByItsId) {
    EXPECT_TRUE(isBroadcast(FIRST, flat(NumberMsg(FIRST))));
    EXPECT_TRUE(isBroadcast(utl::MSG_ID_ANY, flat(NumberMsg(FIRST))));
    EXPECT_FALSE(isBroadcast(SECOND, flat(NumberMsg(FIRST))));
    EXPECT_FALSE(isForListener(FIRST, flat(NumberMsg(FIRST))));
    EXPECT_FALSE(isForListener(utl::MSG_ID_ANY, flat(NumberMsg(FIRST))));
}

TEST_F(SharedThreadJudge, TheThreeEnvelopeIds_AreNoBroadcasts_AndTheirNeighboursAre) {
    for (int offset = 0x1F; offset <= 0x25; ++offset) {
        int const id = INT_MIN + offset;
        utl::ThreadRawMsg& msg = flat(utl::SimpleMsg(id));
        bool const isEnvelope = offset >= 0x21 && offset <= 0x23;
        EXPECT_EQ(isBroadcast(utl::MSG_ID_ANY, msg), !isEnvelope) << std::hex << offset;
        EXPECT_EQ(isBroadcast(id, msg), !isEnvelope) << std::hex << offset;
    }
}

TEST_F(SharedThreadJudge, ARequestToAttachOrDetach_IsForNoListener) {
    for (int const id : {utl::MSG_ID_LISTENER_ATTACH, utl::MSG_ID_LISTENER_DETACH}) {
        ScopedSharedThread::MsgListenerMsg request(id);
        request.mListener = &mListener;
        EXPECT_FALSE(isForListener(utl::MSG_ID_ANY, flat(request)));
        EXPECT_FALSE(isForListener(id, flat(request)));
    }
}

TEST_F(SharedThreadJudge, AnEnvelope_IsMeantByItsListenerAndTheIdInside) {
    bool foundTimer = true;
    EXPECT_TRUE(isForListener(FIRST, envelope(&mListener, FIRST), &foundTimer));
    EXPECT_FALSE(foundTimer);
    EXPECT_TRUE(isForListener(utl::MSG_ID_ANY, envelope(&mListener, FIRST)));
    EXPECT_FALSE(isForListener(SECOND, envelope(&mListener, FIRST)));
    EXPECT_FALSE(isForListener(utl::MSG_ID_LISTENER_SPECIFIED, envelope(&mListener, FIRST)));
    EXPECT_FALSE(isForListener(FIRST, envelope(&mOther, FIRST)));
    EXPECT_FALSE(isForListener(utl::MSG_ID_ANY, envelope(nullptr, FIRST)));
}

TEST_F(SharedThreadJudge, AnEnvelopeThatIsCutOff_IsMeantByNobody) {
    utl::ThreadRawMsg cut(FRAME_BYTES - 1);
    std::memcpy(cut.buffer(), envelope(&mListener, FIRST).buffer(), cut.maxSize());
    EXPECT_FALSE(isForListener(utl::MSG_ID_ANY, cut));
}

TEST_F(SharedThreadJudge, AnExpiry_IsMeantByTheTimersOwner) {
    bool foundTimer = false;
    EXPECT_TRUE(isBroadcast(utl::MSG_ID_TIMER, expiry(1)));
    EXPECT_TRUE(isBroadcast(utl::MSG_ID_ANY, expiry(1)));
    EXPECT_FALSE(isBroadcast(FIRST, expiry(1)));
    EXPECT_FALSE(isForListener(utl::MSG_ID_TIMER, expiry(1), &foundTimer));
    EXPECT_FALSE(foundTimer);
    EXPECT_FALSE(isBroadcast(utl::MSG_ID_TIMER, expiry(2)));
    EXPECT_TRUE(isForListener(utl::MSG_ID_TIMER, expiry(2), &foundTimer));
    EXPECT_TRUE(foundTimer);
    EXPECT_TRUE(isForListener(utl::MSG_ID_ANY, expiry(2)));
    EXPECT_FALSE(isForListener(FIRST, expiry(2)));
    EXPECT_FALSE(isForListener(utl::MSG_ID_TIMER, expiry(3)));
    EXPECT_FALSE(isBroadcast(utl::MSG_ID_TIMER, expiry(4))) << "a timer that nobody knows";
    EXPECT_FALSE(isForListener(utl::MSG_ID_TIMER, expiry(4)));
}

TEST_F(SharedThreadJudge, AnExpiryThatIsCutOff_IsMeantByNobody) {
    utl::ThreadRawMsg cut(7);
    std::memcpy(cut.buffer(), expiry(1).buffer(), cut.maxSize());
    EXPECT_FALSE(isBroadcast(utl::MSG_ID_ANY, cut));
    std::memcpy(cut.buffer(), expiry(2).buffer(), cut.maxSize());
    EXPECT_FALSE(isForListener(utl::MSG_ID_ANY, cut));
}

TEST_F(SharedThreadJudge, AMessageWithoutAReadableId_IsMeantByNobody) {
    Unreadable msg;
    EXPECT_FALSE(isBroadcast(utl::MSG_ID_ANY, msg));
    EXPECT_FALSE(isForListener(utl::MSG_ID_ANY, msg));
}

TEST_F(SharedThreadJudge, ANullListener_MeansNothing) {
    Predicate predicate(utl::MSG_ID_ANY);
    JudgeListener judge(nullptr, &predicate, &mTimers, &mLock, 68);
    EXPECT_FALSE(judge(envelope(nullptr, FIRST)));
    EXPECT_FALSE(judge(expiry(1)));
}

TEST_F(SharedThreadJudge, OneThatFindsBothKinds_SaysWhichWasTheLast) {
    Predicate predicate(utl::MSG_ID_ANY);
    JudgeListener judge(&mListener, &predicate, &mTimers, &mLock, 68);
    EXPECT_TRUE(judge(expiry(2)));
    EXPECT_TRUE(judge.hasFoundTimer());
    EXPECT_TRUE(judge(envelope(&mListener, FIRST)));
    EXPECT_FALSE(judge.hasFoundTimer());
}

// The questions. In the queue stand, put there by a handler: FIRST to all, FIRST to the listener, SECOND to
// all, THIRD to the listener, THIRD to another.

struct FilledQueue {
    Collector listener;
    Collector other;
    ScopedSharedThread thread;

    FilledQueue() {
        EXPECT_EQ(thread.attachMsgListener(&listener), 1);
        EXPECT_EQ(thread.start(), 0);
    }
    void fill() {
        EXPECT_EQ(thread.postMsg(NumberMsg(FIRST, 1)), 1);
        EXPECT_EQ(thread.postMsg(&listener, NumberMsg(FIRST, 2)), 1);
        EXPECT_EQ(thread.postMsg(NumberMsg(SECOND, 3)), 1);
        EXPECT_EQ(thread.postMsg(&listener, NumberMsg(THIRD, 4)), 1);
        EXPECT_EQ(thread.postMsg(&other, NumberMsg(THIRD, 5)), 1);
    }

    /// Fills the queue and asks on the message thread; then lets everything be delivered.
    template <typename QUESTION>
    void ask(QUESTION question) {
        workOn(thread, [&] {
            fill();
            question();
        });
        EXPECT_EQ(thread.sendMsgSync(BLOCKER), 1);
    }

    static std::vector<int> numbersOf(Collector const& collector) {
        std::vector<int> result;
        for (Collector::Received const& one : collector.received()) {
            if (one.id != BLOCKER) {
                result.push_back(one.number);
            }
        }
        return result;
    }
};

TEST_F(SharedThreadQueue, HasMsg_SeesBroadcastsOnlyWithoutAListenerAndOthersOnlyWithTheirs) {
    FilledQueue queue;
    ScopedSharedThread& thread = queue.thread;
    queue.ask([&] {
        EXPECT_TRUE(thread.hasMsg(FIRST));
        EXPECT_TRUE(thread.hasMsg(SECOND));
        EXPECT_FALSE(thread.hasMsg(THIRD));
        EXPECT_FALSE(thread.hasMsg(utl::MSG_ID_LISTENER_SPECIFIED));
        EXPECT_TRUE(thread.hasMsg(utl::MSG_ID_ANY));
        EXPECT_TRUE(thread.hasMsg(&queue.listener, FIRST));
        EXPECT_FALSE(thread.hasMsg(&queue.listener, SECOND));
        EXPECT_TRUE(thread.hasMsg(&queue.listener, THIRD));
        EXPECT_TRUE(thread.hasMsg(&queue.listener, utl::MSG_ID_ANY));
        EXPECT_FALSE(thread.hasMsg(&queue.other, FIRST));
        EXPECT_TRUE(thread.hasMsg(&queue.other, THIRD));
        EXPECT_FALSE(thread.hasMsg(nullptr, utl::MSG_ID_ANY));
    });
    EXPECT_EQ(FilledQueue::numbersOf(queue.listener), (std::vector<int>{1, 2, 3, 4}));
}

TEST_F(SharedThreadQueue, PeekMsg_GivesABroadcastInAFullFrame) {
    FilledQueue queue;
    ScopedSharedThread& thread = queue.thread;
    queue.ask([&] {
        utl::ThreadRawMsg raw(4);
        ASSERT_TRUE(thread.peekMsg(SECOND, &raw));
        EXPECT_EQ(raw.maxSize(), FRAME_BYTES);
        EXPECT_EQ(numberIn(raw), 3);
        ASSERT_TRUE(thread.peekMsg(utl::MSG_ID_ANY, &raw));
        EXPECT_EQ(numberIn(raw), 1);
        EXPECT_FALSE(thread.peekMsg(FIRST, nullptr));
        utl::ThreadRawMsg untouched(4);
        EXPECT_FALSE(thread.peekMsg(THIRD, &untouched));
        EXPECT_EQ(untouched.maxSize(), 4U);
    });
}

TEST_F(SharedThreadQueue, PeekMsg_OfAListener_GivesTheMessageAsItWasSent) {
    FilledQueue queue;
    ScopedSharedThread& thread = queue.thread;
    queue.ask([&] {
        utl::ThreadRawMsg raw(4);
        ASSERT_TRUE(thread.peekMsg(&queue.listener, THIRD, &raw));
        EXPECT_EQ(raw.maxSize(), 68U);
        EXPECT_EQ(numberIn(raw), 4);
        ASSERT_TRUE(thread.peekMsg(&queue.listener, utl::MSG_ID_ANY, &raw));
        EXPECT_EQ(numberIn(raw), 2);
        ASSERT_TRUE(thread.peekMsg(&queue.other, utl::MSG_ID_ANY, &raw));
        EXPECT_EQ(numberIn(raw), 5);
        utl::ThreadRawMsg untouched(4);
        EXPECT_FALSE(thread.peekMsg(&queue.listener, SECOND, &untouched));
        EXPECT_FALSE(thread.peekMsg(nullptr, utl::MSG_ID_ANY, &untouched));
        EXPECT_EQ(untouched.maxSize(), 4U);
        EXPECT_FALSE(thread.peekMsg(&queue.listener, THIRD, nullptr));
    });
}

TEST_F(SharedThreadQueue, GetFirstMsgId_GivesTheOldestOfItsKind) {
    FilledQueue queue;
    Collector nobody;
    ScopedSharedThread& thread = queue.thread;
    EXPECT_EQ(thread.getFirstMsgId(), utl::MSG_ID_NONE);
    EXPECT_EQ(thread.getFirstMsgId(&queue.listener), utl::MSG_ID_NONE);
    queue.ask([&] {
        EXPECT_EQ(thread.getFirstMsgId(), FIRST);
        EXPECT_EQ(thread.getFirstMsgId(&queue.listener), FIRST);
        EXPECT_EQ(thread.getFirstMsgId(&queue.other), THIRD);
        EXPECT_EQ(thread.getFirstMsgId(&nobody), utl::MSG_ID_NONE);
        EXPECT_EQ(thread.getFirstMsgId(nullptr), utl::MSG_ID_NONE);
        EXPECT_TRUE(thread.eraseMsg(FIRST));
        EXPECT_EQ(thread.getFirstMsgId(), SECOND);
        EXPECT_EQ(thread.getFirstMsgId(&queue.listener), FIRST);
    });
}

TEST_F(SharedThreadQueue, EraseMsg_ErasesBroadcastsAlone) {
    FilledQueue queue;
    queue.ask([&] {
        EXPECT_TRUE(queue.thread.eraseMsg(FIRST));
        EXPECT_TRUE(queue.thread.eraseMsg(THIRD)) << "nothing of the kind";
    });
    EXPECT_EQ(FilledQueue::numbersOf(queue.listener), (std::vector<int>{2, 3, 4}));
    EXPECT_EQ(FilledQueue::numbersOf(queue.other), std::vector<int>{5});
}

TEST_F(SharedThreadQueue, EraseMsg_OfAnyId_ErasesEveryBroadcastAndNothingElse) {
    FilledQueue queue;
    queue.ask([&] { EXPECT_TRUE(queue.thread.eraseMsg(utl::MSG_ID_ANY)); });
    EXPECT_EQ(FilledQueue::numbersOf(queue.listener), (std::vector<int>{2, 4}));
    EXPECT_EQ(FilledQueue::numbersOf(queue.other), std::vector<int>{5});
}

TEST_F(SharedThreadQueue, EraseMsg_OfAListener_ErasesItsOwnAlone) {
    FilledQueue queue;
    queue.ask([&] {
        EXPECT_TRUE(queue.thread.eraseMsg(&queue.listener, FIRST));
        EXPECT_TRUE(queue.thread.eraseMsg(&queue.listener, SECOND)) << "nothing of the kind";
        EXPECT_TRUE(queue.thread.eraseMsg(nullptr, utl::MSG_ID_ANY)) << "nobody's";
    });
    EXPECT_EQ(FilledQueue::numbersOf(queue.listener), (std::vector<int>{1, 3, 4}));
    EXPECT_EQ(FilledQueue::numbersOf(queue.other), std::vector<int>{5});
}

TEST_F(SharedThreadQueue, EraseMsg_OfABroadcastSentSynchronously_FreesItsSenderWithZero) {
    HookScope const scope;
    FilledQueue queue;
    Holder holder;
    holdIn(holder, queue.thread);
    hooks::write.reset();
    auto broadcast = std::async(std::launch::async, [&] { return queue.thread.sendMsgSync(SECOND); });
    waitForTokens(1);
    auto erased = std::async(std::launch::async, [&] { return queue.thread.eraseMsg(SECOND); });
    waitForTokens(2);
    holder.gate.open();
    EXPECT_TRUE(erased.get());
    EXPECT_EQ(broadcast.get(), 0);
    EXPECT_TRUE(queue.listener.received().empty());
}

TEST_F(SharedThreadQueue, AnAttachOnItsWay_IsNoBroadcastAndCannotBeErasedByAccident) {
    HookScope const scope;
    FilledQueue queue;
    Holder holder;
    holdIn(holder, queue.thread);
    hooks::write.reset();
    auto attached =
        std::async(std::launch::async, [&] { return queue.thread.attachMsgListener(&queue.other); });
    waitForTokens(1);
    auto erased = std::async(std::launch::async, [&] { return queue.thread.eraseMsg(utl::MSG_ID_ANY); });
    waitForTokens(2);
    holder.gate.open();
    EXPECT_TRUE(erased.get());
    EXPECT_EQ(attached.get(), 1);
    EXPECT_EQ(queue.thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(queue.other.ids(), std::vector<int>{FIRST});
}

// Asks from outside while a handler holds the thread: the answer comes before the queue continues.
template <typename QUESTION>
auto askFromOutside(QUESTION question) {
    HookScope const scope;
    FilledQueue queue;
    Holder holder;
    holdIn(holder, queue.thread);
    queue.fill();
    hooks::write.reset();
    auto answer = std::async(std::launch::async, [&] { return question(queue); });
    waitForTokens(1);
    holder.gate.open();
    return answer.get();
}

TEST_F(SharedThreadQueue, Questions_FromOutside_AreAnsweredBeforeTheQueueGoesOn) {
    using Queue = FilledQueue&;
    utl::ThreadRawMsg raw(4);
    EXPECT_TRUE(askFromOutside([](Queue queue) { return queue.thread.hasMsg(SECOND); }));
    EXPECT_FALSE(askFromOutside([](Queue queue) { return queue.thread.hasMsg(THIRD); }));
    EXPECT_TRUE(askFromOutside([](Queue queue) { return queue.thread.hasMsg(&queue.other, THIRD); }));
    EXPECT_TRUE(askFromOutside([&](Queue queue) { return queue.thread.peekMsg(SECOND, &raw); }));
    EXPECT_EQ(numberIn(raw), 3);
    EXPECT_TRUE(askFromOutside(
        [&](Queue queue) { return queue.thread.peekMsg(&queue.listener, utl::MSG_ID_ANY, &raw); }));
    EXPECT_EQ(numberIn(raw), 2);
    EXPECT_EQ(askFromOutside([](Queue queue) { return queue.thread.getFirstMsgId(); }), FIRST);
    EXPECT_EQ(askFromOutside([](Queue queue) { return queue.thread.getFirstMsgId(&queue.other); }), THIRD);
    EXPECT_TRUE(askFromOutside([](Queue queue) { return queue.thread.eraseMsg(FIRST); }));
    EXPECT_TRUE(askFromOutside([](Queue queue) { return queue.thread.eraseMsg(&queue.other, FIRST); }));
}

TEST_F(SharedThreadQueue, Questions_ToAThreadThatDoesNotRun_AreFalse) {
    Collector listener;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.sendMsgAsync(NumberMsg(FIRST)), 1);
    utl::ThreadRawMsg raw(4);
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(thread.hasMsg(FIRST));
        EXPECT_FALSE(thread.hasMsg(&listener, FIRST));
        EXPECT_FALSE(thread.eraseMsg(FIRST));
        EXPECT_FALSE(thread.eraseMsg(&listener, FIRST));
        EXPECT_FALSE(thread.peekMsg(FIRST, &raw));
        EXPECT_FALSE(thread.peekMsg(&listener, FIRST, &raw));
        EXPECT_EQ(thread.getFirstMsgId(), utl::MSG_ID_NONE);
        EXPECT_EQ(thread.getFirstMsgId(&listener), utl::MSG_ID_NONE);
        if (i == 0) {
            ASSERT_EQ(thread.start(), 0);
            thread.finish();
        }
    }
}

// Timers.

// Returns when a timer of somebody else, started now, has expired so many times.
void waitForExpiries(ScopedSharedThread& thread, unsigned int count) {
    Collector somebody;
    ASSERT_GT(thread.setTimer(&somebody, 2, 0, 0, 1), 0);
    ASSERT_TRUE(somebody.waitFor(count));
    ASSERT_EQ(thread.abortMsg(&somebody), 1);
}

TEST_F(SharedThreadTimer, ABroadcastTimer_ReachesEveryAttachedListener) {
    Collector listeners[3];
    Collector apart;
    ScopedSharedThread thread;
    for (Collector& listener : listeners) {
        ASSERT_EQ(thread.attachMsgListener(&listener), 1);
    }
    ASSERT_EQ(thread.start(), 0);
    int const timer = thread.setTimer(1, 0, 2, 1);
    ASSERT_GT(timer, 0);
    for (Collector& listener : listeners) {
        ASSERT_TRUE(listener.waitFor(2));
    }
    ASSERT_EQ(thread.sendMsgSync(FIRST), 1);
    for (Collector& listener : listeners) {
        EXPECT_EQ(listener.ids(), (std::vector<int>{utl::MSG_ID_TIMER, utl::MSG_ID_TIMER, FIRST}));
        EXPECT_EQ(listener.received()[0], (Collector::Received{thread.getId(), utl::MSG_ID_TIMER, timer}));
    }
    EXPECT_TRUE(apart.received().empty());
}

TEST_F(SharedThreadTimer, AListenerThatIsDetachedDuringABroadcastExpiry_IsNotCalledAndNoOtherIsLeftOut) {
    Collector first;
    Collector detached;
    Collector third;
    Collector last;
    ScopedSharedThread thread;
    for (Collector* const listener : {&first, &detached, &third, &last}) {
        ASSERT_EQ(thread.attachMsgListener(listener), 1);
    }
    last.onMsg = [&](int id, int) {
        if (id == utl::MSG_ID_TIMER) {
            EXPECT_EQ(thread.detachMsgListener(&last), 1);
            EXPECT_EQ(thread.detachMsgListener(&detached), 1);
        }
    };
    ASSERT_EQ(thread.start(), 0);
    ASSERT_GT(thread.setTimer(1, 0, 1, 0), 0);
    ASSERT_TRUE(first.waitFor(1));
    ASSERT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(first.ids(), (std::vector<int>{utl::MSG_ID_TIMER, FIRST}));
    EXPECT_TRUE(detached.received().empty());
    EXPECT_EQ(third.ids(), (std::vector<int>{utl::MSG_ID_TIMER, FIRST}));
    EXPECT_EQ(last.ids(), (std::vector<int>{utl::MSG_ID_TIMER}));
}

TEST_F(SharedThreadTimer, ATimerOfAListener_ReachesItAlone_AttachedOrNot) {
    Collector attached;
    Collector apart;
    Collector other;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.attachMsgListener(&attached), 1);
    ASSERT_EQ(thread.attachMsgListener(&other), 1);
    ASSERT_EQ(thread.start(), 0);
    int const first = thread.setTimer(&attached, 1, 0, 1, 1);
    ASSERT_TRUE(attached.waitFor(1));
    int const second = thread.registerTimer(&apart, 1, 1, 1);
    ASSERT_GT(second, 0);
    EXPECT_TRUE(thread.startTimer(second, 0));
    ASSERT_TRUE(apart.waitFor(1));
    EXPECT_EQ(attached.received(),
              (std::vector<Collector::Received>{{thread.getId(), utl::MSG_ID_TIMER, first}}));
    EXPECT_EQ(apart.received(),
              (std::vector<Collector::Received>{{thread.getId(), utl::MSG_ID_TIMER, second}}));
    EXPECT_TRUE(other.received().empty());
}

TEST_F(SharedThreadTimer, RegisterTimer_MakesATimerThatDoesNotRun) {
    Collector listener;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.registerTimer(1, 1, 0), 1);
    EXPECT_EQ(thread.registerTimer(&listener, 1, 1, 0), 2);
    EXPECT_TRUE(thread.findTimer(1)->mRunning->isOff());
    EXPECT_TRUE(thread.findTimer(2)->mRunning->isOff());
    EXPECT_EQ(thread.remTimerIdCount(), 2U);
}

TEST_F(SharedThreadTimer, ATimerOfNull_IsMinusOne) {
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.registerTimer(nullptr, 1, 1, 0), -1);
    EXPECT_EQ(thread.setTimer(nullptr, 1, 0, 1, 0), -1);
    EXPECT_EQ(thread.remTimerIdCount(), 4U);
}

TEST_F(SharedThreadTimer, Timers_BeforeTheStartAndAfterTheStop_AreRefused) {
    Collector listener;
    ScopedSharedThread thread;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(thread.registerTimer(1), -1);
        EXPECT_EQ(thread.setTimer(1), -1);
        EXPECT_EQ(thread.registerTimer(&listener, 1, 0, 0), -1);
        EXPECT_EQ(thread.setTimer(&listener, 1, 0, 0, 0), -1);
        EXPECT_FALSE(thread.startTimer(1));
        EXPECT_FALSE(thread.killTimer(1));
        if (i == 0) {
            ASSERT_EQ(thread.start(), 0);
            thread.stop(1, 0);
        }
    }
}

TEST_F(SharedThreadTimer, ATimerCountAtItsMaximum_RefusesTheNext) {
    Collector listener;
    ScopedSharedThread thread(64, 16, 4, "timers", 2);
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.registerTimer(60000), 1);
    EXPECT_EQ(thread.setTimer(&listener, 60000, 0, 0, 0), 2);
    EXPECT_EQ(thread.registerTimer(60000), -1);
    EXPECT_EQ(thread.setTimer(&listener, 60000, 0, 0, 0), -1);
    EXPECT_TRUE(thread.killTimer(2, 0));
    EXPECT_EQ(thread.registerTimer(60000), 3);
}

TEST_F(SharedThreadTimer, TimersThatEnd_GiveTheirPlacesBack) {
    Collector listener;
    Collector other;
    ScopedSharedThread thread(64, 16, 4, "again", 1);
    ASSERT_EQ(thread.attachMsgListener(&listener), 1);
    ASSERT_EQ(thread.start(), 0);
    for (int i = 1; i <= 20; ++i) {
        ASSERT_EQ(i % 2 == 0 ? thread.setTimer(1, 0, 1, 1) : thread.setTimer(&listener, 1, 0, 1, 1), i);
        ASSERT_TRUE(listener.waitFor(static_cast<size_t>(i)));
        ASSERT_EQ(thread.sendMsgSync(&other, FIRST), 1);
    }
}

TEST_F(SharedThreadTimer, KillTimer_EndsEitherKind) {
    HookScope const scope;
    Collector listener;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.attachMsgListener(&listener), 1);
    ASSERT_EQ(thread.start(), 0);
    for (int const noWait : {0, 1}) {
        int const all = thread.setTimer(1, 0, 0, 1);
        int const one = thread.setTimer(&listener, 1, 0, 0, 1);
        ASSERT_TRUE(listener.waitFor(listener.received().size() + 4));
        hooks::timerDelete.reset();
        EXPECT_TRUE(thread.killTimer(all, noWait));
        EXPECT_TRUE(thread.killTimer(one, noWait));
        EXPECT_FALSE(thread.killTimer(one, noWait));
        EXPECT_FALSE(thread.startTimer(all, noWait));
        ASSERT_EQ(thread.sendMsgSync(&listener, FIRST), 1);
        EXPECT_EQ(hooks::timerDelete.calls(), 2U);
        size_t const atKill = listener.received().size();
        waitForExpiries(thread, 5);
        EXPECT_EQ(listener.received().size(), atKill);
    }
}

TEST_F(SharedThreadTimer, ATimerThatIsKilledInsideItsOwnHandler_IsGone) {
    Collector listener;
    ScopedSharedThread thread;
    std::atomic<int> kills{0};
    listener.onMsg = [&](int id, int timer) {
        if (id == utl::MSG_ID_TIMER) {
            kills += thread.killTimer(timer, 0) ? 1 : 0;
        }
    };
    ASSERT_EQ(thread.start(), 0);
    ASSERT_GT(thread.setTimer(&listener, 1, 0, 0, 1), 0);
    ASSERT_TRUE(listener.waitFor(1));
    ASSERT_EQ(thread.sendMsgSync(&listener, FIRST), 1);
    EXPECT_EQ(kills, 1);
    EXPECT_EQ(thread.remTimerIdCount(), 4U);
}

TEST_F(SharedThreadTimer, ATimerOfTheThreadItself_ReachesNobody) {
    HookScope const scope;
    Collector listener;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.attachMsgListener(&listener), 1);
    ASSERT_EQ(thread.start(), 0);
    ASSERT_GT(thread.MsgDrivenThread::setTimer(1, 0, 3, 0), 0);
    while (thread.remTimerIdCount() != 4) {
        std::this_thread::yield();
    }
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(listener.ids(), std::vector<int>{FIRST});
}

class SharedThreadTimerPlaces : public utltest::WithManager {
  protected:
    SharedThreadTimerPlaces() { restingWatchdog(); }
};

// The thread is held, so that the killed timer has left the thread's map and not yet the listeners' map.
TEST_F(SharedThreadTimerPlaces, RegisterTimer_ThatFindsNoneAmongTheListeners_KillsTheTimerAgain) {
    HookScope const scope;
    Collector listener;
    Holder holder;
    ScopedSharedThread thread(64, 16, 4, "place", 1);
    ASSERT_EQ(thread.start(), 0);
    ASSERT_EQ(thread.setTimer(60000, 0, 0, 0), 1);
    holdIn(holder, thread);
    hooks::write.reset();
    {
        WatchedThread const killer([&] { EXPECT_TRUE(thread.killTimer(1, 0)); });
        waitForTokens(1);
        EXPECT_EQ(thread.remTimerIdCount(), 1U);
        WatchedThread const starter([&] { EXPECT_EQ(thread.setTimer(&listener, 1, 0, 0, 0), -1); });
        starter.waitUntilIn("killTimer");
        EXPECT_NE(thread.findTimer(2), nullptr);
        holder.gate.open();
    }
    EXPECT_EQ(thread.remTimerIdCount(), 1U);
    EXPECT_EQ(thread.setTimer(&listener, 60000, 0, 0, 0), 3);
}

// What is queued of the timers of a handler's thread: expiries pile up while it works.
struct QueuedExpiries {
    Collector listener;
    Collector other;
    ScopedSharedThread thread;
    int all = 0;
    int own = 0;
    int others = 0;

    /// Runs `work` on the message thread with one expiry of each timer queued.
    template <typename WORK>
    void with(WORK work) {
        EXPECT_EQ(thread.attachMsgListener(&listener), 1);
        EXPECT_EQ(thread.start(), 0);
        HookScope const scope;
        Holder holder;
        holdIn(holder, thread);
        EXPECT_GT(all = thread.setTimer(1, 1, 1, 1), 0);
        EXPECT_GT(own = thread.setTimer(&listener, 1, 1, 1, 1), 0);
        EXPECT_GT(others = thread.setTimer(&other, 1, 1, 1, 1), 0);
        // The starts stand in the queue. After them the thread is held until there are more expiries than
        // two of the timers can have waiting.
        Gate queued;
        Worker waiting([&] { queued.wait(); });
        Gate worked;
        Worker working([&] {
            work();
            worked.open();
        });
        EXPECT_EQ(thread.postMsg(&waiting, FIRST), 1);
        hooks::write.reset();
        holder.gate.open();
        waitForTokens(2 * utl::TIMER_TOKENS_MAX + 1);
        EXPECT_EQ(thread.postMsg(&working, SECOND), 1);
        queued.open();
        EXPECT_TRUE(worked.wait());
        EXPECT_EQ(thread.sendMsgSync(&waiting, THIRD), 1);
    }
};

TEST_F(SharedThreadTimer, HasMsg_OfAQueuedExpiry_GoesByTheTimersOwner) {
    QueuedExpiries expiries;
    Collector nobody;
    expiries.with([&] {
        EXPECT_TRUE(expiries.thread.hasMsg(utl::MSG_ID_TIMER));
        EXPECT_TRUE(expiries.thread.hasMsg(&expiries.listener, utl::MSG_ID_TIMER));
        EXPECT_TRUE(expiries.thread.hasMsg(&expiries.other, utl::MSG_ID_TIMER));
        EXPECT_FALSE(expiries.thread.hasMsg(&nobody, utl::MSG_ID_TIMER));
        EXPECT_EQ(expiries.thread.getFirstMsgId(), utl::MSG_ID_TIMER);
        EXPECT_EQ(expiries.thread.getFirstMsgId(&expiries.other), utl::MSG_ID_TIMER);
    });
}

TEST_F(SharedThreadTimer, PeekMsg_OfAQueuedExpiry_GivesTheTimerMsg) {
    QueuedExpiries expiries;
    expiries.with([&] {
        utl::ThreadRawMsg raw(4);
        utl::TimerMsg msg;
        ASSERT_TRUE(expiries.thread.peekMsg(utl::MSG_ID_TIMER, &raw));
        ASSERT_EQ(msg.restoreFrom(raw), 1);
        EXPECT_EQ(msg.mTimerId, expiries.all);
        ASSERT_TRUE(expiries.thread.peekMsg(&expiries.other, utl::MSG_ID_ANY, &raw));
        ASSERT_EQ(msg.restoreFrom(raw), 1);
        EXPECT_EQ(msg.getMsgId(), utl::MSG_ID_TIMER);
        EXPECT_EQ(msg.mTimerId, expiries.others);
    });
}

TEST_F(SharedThreadTimer, EraseMsg_OfAListenersExpiries_ErasesTheseAlone) {
    QueuedExpiries expiries;
    expiries.with([&] { EXPECT_TRUE(expiries.thread.eraseMsg(&expiries.listener, utl::MSG_ID_TIMER)); });
    EXPECT_EQ(expiries.listener.received(),
              (std::vector<Collector::Received>{{expiries.thread.getId(), utl::MSG_ID_TIMER, expiries.all}}));
    EXPECT_EQ(expiries.other.ids(), std::vector<int>{utl::MSG_ID_TIMER});
    EXPECT_EQ(expiries.thread.remTimerIdCount(), 4U) << "an erased expiry counts as one that fired";
}

TEST_F(SharedThreadTimer, EraseMsg_OfBroadcastExpiries_ErasesTheseAlone) {
    QueuedExpiries expiries;
    expiries.with([&] { EXPECT_TRUE(expiries.thread.eraseMsg(utl::MSG_ID_TIMER)); });
    EXPECT_EQ(expiries.listener.received(),
              (std::vector<Collector::Received>{{expiries.thread.getId(), utl::MSG_ID_TIMER, expiries.own}}));
    EXPECT_EQ(expiries.other.ids(), std::vector<int>{utl::MSG_ID_TIMER});
    EXPECT_EQ(expiries.thread.remTimerIdCount(), 4U);
}

// Abort.

TEST_F(SharedThreadAbort, OfNull_IsZero) {
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.abortMsg(nullptr), 0);
}

TEST_F(SharedThreadAbort, WithoutTimersAndMessages_IsOne) {
    Collector listener;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.abortMsg(&listener), 1);
    workOn(thread, [&] { EXPECT_EQ(thread.abortMsg(&listener), 1); });
}

TEST_F(SharedThreadAbort, OfAThreadThatDoesNotRun_IsZero) {
    Collector listener;
    ScopedSharedThread thread;
    EXPECT_EQ(thread.abortMsg(&listener), 0);
    ASSERT_EQ(thread.start(), 0);
    thread.finish();
    EXPECT_EQ(thread.abortMsg(&listener), 0);
}

TEST_F(SharedThreadAbort, TakesTheListenersMessagesAndLeavesTheOthers) {
    FilledQueue queue;
    queue.ask([&] { EXPECT_EQ(queue.thread.abortMsg(&queue.listener), 1); });
    EXPECT_EQ(FilledQueue::numbersOf(queue.listener), (std::vector<int>{1, 3}));
    EXPECT_EQ(FilledQueue::numbersOf(queue.other), std::vector<int>{5});
}

TEST_F(SharedThreadAbort, FromOutside_FreesTheListenersSynchronousSenderWithZero) {
    HookScope const scope;
    FilledQueue queue;
    Holder holder;
    holdIn(holder, queue.thread);
    hooks::write.reset();
    auto sync = std::async(std::launch::async, [&] { return queue.thread.sendMsgSync(&queue.other, FIRST); });
    waitForTokens(1);
    auto aborted = std::async(std::launch::async, [&] { return queue.thread.abortMsg(&queue.other); });
    waitForTokens(2);
    holder.gate.open();
    EXPECT_EQ(aborted.get(), 1);
    EXPECT_EQ(sync.get(), 0);
    EXPECT_TRUE(queue.other.received().empty());
}

TEST_F(SharedThreadAbort, WhoseErasureFindsNoPlaceInTheQueue_IsZeroAndErasesNothing) {
    LogCapture const log;
    Collector listener;
    Holder holder;
    ScopedSharedThread thread(64, 4, 4, "full");
    ASSERT_EQ(thread.start(), 0);
    holdIn(holder, thread);
    ASSERT_EQ(thread.postMsg(&listener, FIRST), 1);
    withFullCtlQueue(thread, [&] { EXPECT_EQ(thread.abortMsg(&listener), 0); });
    holder.gate.open();
    ASSERT_TRUE(listener.waitFor(1));
    EXPECT_EQ(thread.abortMsg(&listener), 1);
}

TEST_F(SharedThreadAbort, BehindAMessageThatWasRefused_FindsTheListenersOwn) {
    LogCapture const log;
    Collector gone;
    Collector other;
    Holder holder;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    holdIn(holder, thread);
    Worker asking([&] {
        EXPECT_TRUE(thread.hasMsg(&gone, THIRD));
        EXPECT_FALSE(thread.hasMsg(&gone, FIRST));
        EXPECT_EQ(thread.getFirstMsgId(&other), SECOND);
        EXPECT_EQ(thread.abortMsg(&gone), 1);
    });
    ASSERT_EQ(thread.postMsg(&asking, FIRST), 1);
    withFullCtlQueue(thread, [&] { EXPECT_EQ(thread.sendMsgSync(&gone, FIRST), 0); });
    ASSERT_EQ(thread.postMsg(&other, SECOND), 1);
    ASSERT_EQ(thread.postMsg(&gone, THIRD), 1);
    holder.gate.open();
    EXPECT_EQ(thread.sendMsgSync(&other, FIRST), 1);
    EXPECT_TRUE(gone.received().empty());
    EXPECT_EQ(other.ids(), (std::vector<int>{SECOND, FIRST}));
}

TEST_F(SharedThreadAbort, KillsTheListenersTimersAndLeavesTheOthers) {
    HookScope const scope;
    for (bool const isOnThread : {true, false}) {
        Collector listener;
        Collector other;
        ScopedSharedThread thread(64, 16, 4, "abort", 6);
        ASSERT_EQ(thread.start(), 0);
        ASSERT_EQ(thread.setTimer(&listener, 60000, 0, 0, 0), 1);
        ASSERT_EQ(thread.setTimer(60000, 0, 0, 0), 2);
        ASSERT_EQ(thread.registerTimer(&listener, 60000, 0, 0), 3);
        ASSERT_EQ(thread.setTimer(&other, 60000, 0, 0, 0), 4);
        ASSERT_EQ(thread.setTimer(&listener, 1, 0, 0, 1), 5);
        ASSERT_TRUE(listener.waitFor(3));
        hooks::timerDelete.reset();
        if (isOnThread) {
            workOn(thread, [&] { EXPECT_EQ(thread.abortMsg(&listener), 1); });
        } else {
            EXPECT_EQ(thread.abortMsg(&listener), 1);
        }
        size_t const before = listener.received().size();
        for (int const timer : {1, 3, 5}) {
            EXPECT_EQ(thread.findTimer(timer), nullptr);
        }
        EXPECT_NE(thread.findTimer(2), nullptr);
        EXPECT_NE(thread.findTimer(4), nullptr);
        EXPECT_EQ(hooks::timerDelete.calls(), 2U) << "the third did not run";
        waitForExpiries(thread, 5);
        EXPECT_EQ(listener.received().size(), before);
        EXPECT_EQ(thread.abortMsg(&listener), 1);
    }
}

TEST_F(SharedThreadAbort, WithQueuedExpiries_DeliversNoneOfThem) {
    QueuedExpiries expiries;
    expiries.with([&] { EXPECT_EQ(expiries.thread.abortMsg(&expiries.other), 1); });
    EXPECT_TRUE(expiries.other.received().empty());
    EXPECT_EQ(expiries.listener.received().size(), 2U);
}

TEST_F(SharedThreadAbort, WaitsForTheListenersHandler) {
    HookScope const scope;
    Holder holder;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    holdIn(holder, thread);
    std::atomic<bool> isOpen{false};
    hooks::write.reset();
    auto aborted = std::async(std::launch::async, [&] {
        int const result = thread.abortMsg(&holder);
        EXPECT_TRUE(isOpen);
        return result;
    });
    waitForTokens(1);
    isOpen = true;
    holder.gate.open();
    EXPECT_EQ(aborted.get(), 1);
}

TEST_F(SharedThreadAlone, Questions_SeeEachKindOfMessageForItsOwnersAlone) {
    OpenedSharedThread thread(8, 16);
    Collector one;
    Collector two;
    ASSERT_EQ(thread.start(), 0);
    workOn(thread, [&] {
        int const all = thread.setTimer(600000, 0, 0, 1);
        int const ones = thread.setTimer(&one, 600000, 0, 0, 1);
        int const twos = thread.setTimer(&two, 600000, 0, 0, 1);
        thread.postMsg(&one, NumberMsg(5, 51));
        thread.executeTimeoutSignal(ones);
        thread.executeTimeoutSignal(all);
        thread.postMsg(NumberMsg(5, 50));
        thread.postMsg(&two, NumberMsg(6, 62));
        thread.executeTimeoutSignal(twos);
        thread.postMsg(&one, NumberMsg(7, 71));
        EXPECT_EQ(thread.getFirstMsgId(), utl::MSG_ID_TIMER);
        EXPECT_EQ(thread.getFirstMsgId(&one), 5);
        EXPECT_EQ(thread.getFirstMsgId(&two), 6);
        EXPECT_EQ(thread.getFirstMsgId(nullptr), utl::MSG_ID_NONE);
        EXPECT_EQ(peekNumber(thread, nullptr, 5), 50);
        EXPECT_EQ(peekNumber(thread, &one, 5), 51);
        EXPECT_EQ(peekNumber(thread, nullptr, utl::MSG_ID_TIMER), all);
        EXPECT_EQ(peekNumber(thread, &one, utl::MSG_ID_TIMER), ones);
        EXPECT_EQ(peekNumber(thread, &two, utl::MSG_ID_TIMER), twos);
        EXPECT_EQ(peekNumber(thread, &one, 7), 71);  // after a timeout of the same listener
        EXPECT_EQ(peekNumber(thread, &two, utl::MSG_ID_ANY), 62);
        EXPECT_FALSE(thread.hasMsg(6));
        EXPECT_FALSE(thread.hasMsg(&one, 6));
        EXPECT_FALSE(thread.hasMsg(&two, 5));
        EXPECT_FALSE(thread.hasMsg(utl::MSG_ID_LISTENER_SPECIFIED));
        EXPECT_FALSE(thread.hasMsg(&one, utl::MSG_ID_LISTENER_SPECIFIED));
        EXPECT_TRUE(thread.eraseMsg(&one, utl::MSG_ID_TIMER));
        EXPECT_EQ(peekNumber(thread, &one, utl::MSG_ID_TIMER), -1);
        EXPECT_EQ(peekNumber(thread, &two, utl::MSG_ID_TIMER), twos);
        EXPECT_TRUE(thread.eraseMsg(utl::MSG_ID_ANY));
        EXPECT_EQ(thread.getFirstMsgId(), utl::MSG_ID_NONE);
        EXPECT_TRUE(thread.eraseMsg(&two, utl::MSG_ID_ANY));
        EXPECT_EQ(thread.getFirstMsgId(&two), utl::MSG_ID_NONE);
        EXPECT_EQ(peekNumber(thread, &one, utl::MSG_ID_ANY), 51);
    });
    settle(thread);
    EXPECT_EQ(one.ids(), (std::vector<int>{5, 7}));
    EXPECT_TRUE(two.ids().empty());
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SharedThreadAlone, ATimerMsgSentToAListener_IsNotTakenForATimeout) {
    OpenedSharedThread thread(16, 16);
    Collector one;
    ASSERT_EQ(thread.start(), 0);
    workOn(thread, [&] {
        utl::TimerMsg msg;
        msg.mTimerId = 12345;
        EXPECT_EQ(thread.postMsg(&one, msg), 1);
        utl::ThreadRawMsg raw(4);
        EXPECT_TRUE(thread.peekMsg(&one, utl::MSG_ID_TIMER, &raw));
        EXPECT_EQ(raw.maxSize(), 20U);  // the message as it was sent
        EXPECT_EQ(peekNumber(thread, &one, utl::MSG_ID_TIMER), 12345);
        EXPECT_FALSE(thread.hasMsg(utl::MSG_ID_TIMER));
        int const timer = thread.setTimer(&one, 600000, 0, 1, 1);
        EXPECT_TRUE(thread.eraseMsg(&one, utl::MSG_ID_TIMER));
        EXPECT_FALSE(thread.hasMsg(&one, utl::MSG_ID_ANY));
        EXPECT_NE(thread.findTimer(timer), nullptr);
    });
    settle(thread);
    EXPECT_TRUE(one.ids().empty());
    EXPECT_EQ(thread.abortMsg(&one), 1);
}

TEST_F(SharedThreadAlone, ErasingAllBroadcasts_LeavesARequestToAttachAloneAndErasingAllDoesNot) {
    for (bool const all : {false, true}) {
        OpenedSharedThread thread;
        Collector collector;
        Holder holder;
        ASSERT_EQ(thread.start(), 0);
        holdIn(holder, thread);
        unsigned int const before = hooks::write.calls();
        std::atomic<int> attached{-1};
        JoinedThread attacher([&] { attached = thread.attachMsgListener(&collector); });
        waitForTokens(before + 1);
        JoinedThread eraser([&] {
            EXPECT_TRUE(all ? thread.MsgDrivenThread::eraseMsg(utl::MSG_ID_ANY)
                            : thread.eraseMsg(utl::MSG_ID_ANY));
        });
        waitForTokens(before + 2);
        holder.gate.open();
        attacher.join();
        eraser.join();
        EXPECT_EQ(attached, all ? 0 : 1);
        EXPECT_EQ(thread.sendMsgSync(5), 1);
        EXPECT_EQ(collector.ids().size(), all ? 0U : 1U);
        EXPECT_EQ(log.lines().size(), all ? 1U : 0U);
    }
    EXPECT_EQ(log.count(error("MsgDrivenSharedThread::attachMsgListener(): Can't send thread")), 1U);
}

TEST_F(SharedThreadAlone, AbortMsg_FreesASynchronousSenderAndTakesTimersAndMessagesOfOneListenerAlone) {
    OpenedSharedThread thread;
    Collector one;
    Collector two;
    ASSERT_EQ(thread.start(), 0);
    workOn(thread, [&] {
        EXPECT_EQ(thread.setTimer(&one, 600000, 0, 0, 1), 1);
        EXPECT_EQ(thread.setTimer(&two, 600000, 0, 0, 1), 2);
        EXPECT_EQ(thread.registerTimer(&one, 600000, 0, 1), 3);
        EXPECT_EQ(thread.setTimer(&one, 600000, 0, 1, 0), 4);
    });
    Gate queued;
    Worker aborter([&] {
        EXPECT_TRUE(queued.wait());
        EXPECT_EQ(thread.abortMsg(&one), 1);
    });
    EXPECT_EQ(thread.postMsg(&aborter, 1), 1);
    unsigned int const before = hooks::write.calls();
    JoinedThread sender([&] { EXPECT_EQ(thread.sendMsgSync(&one, 5), 0); });
    waitForTokens(before + 1);
    EXPECT_EQ(thread.postMsg(&two, NumberMsg(6, 66)), 1);  // not held up by the one who waits
    EXPECT_EQ(thread.postMsg(&one, NumberMsg(7, 77)), 1);
    EXPECT_EQ(thread.postMsg(NumberMsg(8, 88)), 1);
    queued.open();
    sender.join();
    settle(thread);
    EXPECT_TRUE(one.ids().empty());
    EXPECT_EQ(two.ids(), (std::vector<int>{6}));
    EXPECT_EQ(thread.remTimerIdCount(), 3U);
    EXPECT_NE(thread.findTimer(2), nullptr);
    EXPECT_EQ(thread.abortMsg(&one), 1);
    EXPECT_EQ(thread.abortMsg(nullptr), 0);
    thread.finish();
    EXPECT_EQ(thread.abortMsg(&two), 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SharedThreadAlone, TimersThatEndByThemselves_GiveTheirPlacesBackForAnyNumberOfSuccessors) {
    OpenedSharedThread thread(8, 8, 2, "shared", 1);
    Collector one;
    Collector all;
    EXPECT_EQ(thread.attachMsgListener(&all), 1);
    ASSERT_EQ(thread.start(), 0);
    for (int round = 1; round <= 6; ++round) {
        workOn(thread, [&] {
            EXPECT_EQ(thread.registerTimer(nullptr, 600000, 1, 1), -1);
            EXPECT_EQ(thread.setTimer(nullptr, 600000, 0, 1, 1), -1);
            int const timer =
                round % 2 == 0 ? thread.setTimer(&one, 600000, 0, 1, 1) : thread.setTimer(600000, 0, 1, 1);
            EXPECT_EQ(timer, round);
            EXPECT_EQ(thread.setTimer(&one, 600000, 0, 1, 1), -1);
            EXPECT_EQ(thread.registerTimer(600000, 1, 1), -1);
            thread.executeTimeoutSignal(timer);
            if (round > 4) {
                EXPECT_TRUE(round % 2 == 0 ? thread.eraseMsg(&one, utl::MSG_ID_TIMER)
                                           : thread.eraseMsg(utl::MSG_ID_TIMER));
            }
        });
        settle(thread);
        EXPECT_EQ(thread.remTimerIdCount(), 1U);
    }
    EXPECT_EQ(one.ids().size(), 2U);
    EXPECT_EQ(all.ids().size(), 2U);
    EXPECT_EQ(thread.abortMsg(&one), 1);  // no ended timer is left to be killed
}

// The messages themselves.

constexpr unsigned int ADDRESS_BYTES = sizeof(void*);

using ListenerMsg = ScopedSharedThread::MsgListenerMsg;

template <typename T>
T valueAt(utl::ThreadRawMsg const& msg, unsigned int offset) {
    T value;
    std::memcpy(&value, msg.buffer() + offset, sizeof(value));
    return value;
}

TEST(SharedThreadMsg, AListenerMsg_CarriesItsListenerBehindTheId) {
    Collector listener;
    ListenerMsg msg(utl::MSG_ID_LISTENER_ATTACH);
    EXPECT_EQ(msg.mListener, nullptr);
    msg.mListener = &listener;
    utl::ThreadRawMsg raw(4 + ADDRESS_BYTES);
    EXPECT_EQ(msg.storeTo(&raw), 1);
    EXPECT_EQ(valueAt<int>(raw, 0), utl::MSG_ID_LISTENER_ATTACH);
    EXPECT_EQ(valueAt<void*>(raw, 4), static_cast<utl::ThreadMsgListener*>(&listener));
    ListenerMsg restored(0);
    EXPECT_EQ(restored.restoreFrom(raw), 1);
    EXPECT_EQ(restored.getMsgId(), utl::MSG_ID_LISTENER_ATTACH);
    EXPECT_EQ(restored.mListener, &listener);
}

TEST(SharedThreadMsg, AListenerMsg_ThatDoesNotFit_FailsAndKeepsItsListener) {
    Collector listener;
    ListenerMsg msg(utl::MSG_ID_LISTENER_DETACH);
    msg.mListener = &listener;
    utl::ThreadRawMsg raw(4 + ADDRESS_BYTES - 1);
    EXPECT_EQ(msg.storeTo(&raw), 0);
    EXPECT_EQ(msg.restoreFrom(raw), 0);
    EXPECT_EQ(msg.mListener, &listener);
}

TEST(SharedThreadMsg, AListenerMsg_CopiesIdAndListener) {
    Collector listener;
    ListenerMsg msg(utl::MSG_ID_LISTENER_DETACH);
    msg.mListener = &listener;
    ListenerMsg const copy(msg);
    EXPECT_EQ(copy.getMsgId(), utl::MSG_ID_LISTENER_DETACH);
    EXPECT_EQ(copy.mListener, &listener);
    ListenerMsg assigned(0);
    assigned = msg;
    EXPECT_EQ(assigned.getMsgId(), utl::MSG_ID_LISTENER_DETACH);
    EXPECT_EQ(assigned.mListener, &listener);
}

TEST(SharedThreadMsg, AnEnvelope_IsIdAddressAndTheWholeInnerFrame) {
    Collector listener;
    Envelope envelope(4 + 8);
    EXPECT_EQ(envelope.getMsgId(), utl::MSG_ID_LISTENER_SPECIFIED);
    EXPECT_EQ(envelope.mListener, nullptr);
    EXPECT_EQ(envelope.mRawMsg.maxSize(), 12U);
    envelope.mListener = &listener;
    ASSERT_EQ(NumberMsg(FIRST, 7).storeTo(&envelope.mRawMsg), 1);
    utl::ThreadRawMsg raw(4 + ADDRESS_BYTES + 12);
    EXPECT_EQ(envelope.storeTo(&raw), 1);
    EXPECT_EQ(valueAt<unsigned int>(raw, 0), 0x80000023U);
    EXPECT_EQ(valueAt<void*>(raw, 4), static_cast<utl::ThreadMsgListener*>(&listener));
    EXPECT_EQ(valueAt<int>(raw, 4 + ADDRESS_BYTES), FIRST);
    EXPECT_EQ(valueAt<int>(raw, 8 + ADDRESS_BYTES), 7);
    Envelope restored(12);
    EXPECT_EQ(restored.restoreFrom(raw), 1);
    EXPECT_EQ(restored.mListener, &listener);
    NumberMsg inner(0);
    EXPECT_EQ(inner.restoreFrom(restored.mRawMsg), 1);
    EXPECT_EQ(inner.getMsgId(), FIRST);
    EXPECT_EQ(inner.mNumber, 7);
}

TEST(SharedThreadMsg, AnEnvelope_NeedsRoomForAllOfIt) {
    Envelope envelope(12);
    utl::ThreadRawMsg raw(4 + ADDRESS_BYTES + 12 - 1);
    EXPECT_EQ(envelope.storeTo(&raw), 0);
    EXPECT_EQ(envelope.restoreFrom(raw), 0);
}

TEST(SharedThreadMsg, AnEnvelope_CopiesBothParts) {
    Collector listener;
    Envelope envelope(12);
    envelope.mListener = &listener;
    ASSERT_EQ(NumberMsg(FIRST, 7).storeTo(&envelope.mRawMsg), 1);
    Envelope const copy(envelope);
    Envelope assigned(4);
    assigned = envelope;
    for (Envelope const& one : {copy, assigned}) {
        EXPECT_EQ(one.getMsgId(), utl::MSG_ID_LISTENER_SPECIFIED);
        EXPECT_EQ(one.mListener, &listener);
        EXPECT_EQ(one.mRawMsg.maxSize(), 12U);
        EXPECT_EQ(valueAt<int>(one.mRawMsg, 0), FIRST);
        EXPECT_EQ(valueAt<int>(one.mRawMsg, 4), 7);
    }
}

}  // namespace

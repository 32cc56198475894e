// Odd orders, misuse and failures of a message thread that several listeners share.

#include "UtlMsgDrivenSharedThread.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestSharedThread.h"

namespace {

using namespace utltest;

constexpr unsigned int LONG = 600000;  // a period that does not end during a test
constexpr unsigned int ADDRESS = sizeof(void*);

class OddSharedThread : public ScopedSharedThread {
  public:
    using MsgDrivenSharedThread::executeTimeoutSignal;
    using ScopedSharedThread::ScopedSharedThread;
};

/// Waits until the kernel says that the thread sleeps; `id` is 0 before it is known.
void waitUntilAsleep(std::atomic<int> const& id) {
    while (id == 0 || !isAsleep(id)) {
        std::this_thread::yield();
    }
}

/// Adds its letter to a list that all share, then acts.
class Letter : public utl::ThreadMsgListener {
  public:
    Letter(char letter, std::string& all) : mLetter(letter), mAll(all) {}
    std::function<void()> then;
    void receiveMsg(int, utl::ThreadRawMsg&) override {
        mAll += mLetter;
        if (then) {
            then();
        }
    }

  private:
    char const mLetter;
    std::string& mAll;
};

class MsgDrivenSharedThreadOdd : public WithoutWatchdogThread {
  protected:
    static std::string error(std::string const& text) { return "<UTIL> ERR: " + text; }

    /// Returns when the thread has dealt with what was queued before.
    static void settle(utl::MsgDrivenSharedThread& thread) {
        workOn(thread, [] {});
    }

    static int peekNumber(OddSharedThread& thread, utl::ThreadMsgListener* listener, int id) {
        utl::ThreadRawMsg raw(4);
        bool const found =
            listener != nullptr ? thread.peekMsg(listener, id, &raw) : thread.peekMsg(id, &raw);
        NumberMsg msg(0, -1);
        if (found) {
            EXPECT_EQ(msg.restoreFrom(raw), 1);
        }
        return msg.mNumber;
    }

  private:
    HookScope const mHooks;

  protected:
    LogCapture const log;
};

// ---- sizes

/// Takes the bytes that it gets, as many as `expected` has.
class BytesListener : public utl::ThreadMsgListener {
  public:
    explicit BytesListener(unsigned int count) : mCount(count) {}
    std::atomic<int> good{0};
    void receiveMsg(int, utl::ThreadRawMsg& raw) override {
        BytesMsg msg(0, mCount);
        msg.mBytes.assign(mCount, 0);
        good += msg.restoreFrom(raw) == 1 && msg.mBytes == BytesMsg(0, mCount).mBytes ? 1 : 0;
    }

  private:
    unsigned int const mCount;
};

TEST_F(MsgDrivenSharedThreadOdd, AnAddressedMessage_MayBeAsLargeAsTheThreadSaysAndNotOneByteMore) {
    for (unsigned int const size : {1U, 33U}) {
        OddSharedThread thread(size, 2);
        BytesListener listener(size);
        ASSERT_EQ(thread.start(), 0);
        EXPECT_EQ(thread.postMsg(&listener, BytesMsg(5, size)), 1);
        EXPECT_EQ(thread.sendMsgSync(&listener, BytesMsg(5, size)), 1);
        EXPECT_EQ(thread.sendMsgInterrupt(&listener, BytesMsg(5, size)), 1);
        EXPECT_EQ(thread.postMsg(&listener, BytesMsg(5, size + 1)), 0);
        EXPECT_EQ(thread.sendMsgSync(&listener, BytesMsg(5, size + 1)), 0);
        EXPECT_EQ(thread.sendMsgInterrupt(&listener, BytesMsg(5, size + 1)), 0);
        settle(thread);
        EXPECT_EQ(listener.good, 3);
        EXPECT_TRUE(log.lines().empty());
    }
}

TEST_F(MsgDrivenSharedThreadOdd, AThreadForIdsAlone_DeliversThemTimeoutsAndNothingLarger) {
    OddSharedThread thread(0, 2);
    Collector collector;
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.sendMsgSync(&collector, 5), 1);
    EXPECT_EQ(thread.sendMsgInterrupt(&collector, 6), 1);
    EXPECT_EQ(thread.postMsg(&collector, BytesMsg(7, 1)), 0);
    workOn(thread, [&] { thread.executeTimeoutSignal(thread.setTimer(&collector, LONG, 0, 1, 0)); });
    settle(thread);
    EXPECT_EQ(collector.ids(), (std::vector<int>{5, 6, utl::MSG_ID_TIMER}));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(MsgDrivenSharedThreadOdd, ABroadcast_MayFillTheRoomOfTheEnvelopeAndNotOneByteMore) {
    unsigned int const room = 33 + 4 + ADDRESS;
    OddSharedThread thread(33, 2);
    BytesListener listener(room);
    EXPECT_EQ(thread.attachMsgListener(&listener), 1);
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.sendMsgSync(BytesMsg(5, room)), 1);
    EXPECT_EQ(listener.good, 1);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(thread.postMsg(BytesMsg(5, room + 1)), 0);
    EXPECT_EQ(
        log.lines(),
        (std::vector<std::string>{error("MsgDrivenThread(shared) Overflow MsgSize  MaxSize(include MsgId):" +
                                        std::to_string(room + 4) + " MsgId:0x00000005")}));
}

// ---- changes during a broadcast

TEST_F(MsgDrivenSharedThreadOdd, WhatAHandlerAttachesAndDetaches_NeitherSkipsNorRepeatsAListener) {
    struct Case {
        char const* acts;  // of C: a small letter detaches, a capital one attaches
        char const* first;
        char const* second;
    };
    // Attached are A, B, C, D; the last comes first.
    std::vector<Case> const cases = {
        {"", "DCBA", "DCBA"},     {"d", "DCBA", "CBA"},      {"c", "DCBA", "DBA"},   {"b", "DCA", "DCA"},
        {"a", "DCB", "DCB"},      {"dcba", "DC", ""},        {"abcd", "DC", ""},     {"E", "DCBA", "EDCBA"},
        {"dD", "DCBA", "DCBA"},   {"cC", "DCBA", "CDBA"},    {"bB", "DCA", "BDCA"},  {"aA", "DCB", "ADCB"},
        {"dE", "DCBA", "ECBA"},   {"abAB", "DC", "BADC"},    {"aaE", "DCB", "EDCB"}, {"cbaE", "DC", "ED"},
        {"DCBA", "DCBA", "DCBA"}, {"dcbaABCD", "DC", "DCBA"}};
    for (Case const& one : cases) {
        std::string seen;
        OddSharedThread thread(8, 4, 5);
        std::vector<std::unique_ptr<Letter>> letters;
        for (char const letter : std::string("ABCDE")) {
            letters.push_back(std::make_unique<Letter>(letter, seen));
        }
        std::string acts = one.acts;
        letters[2]->then = [&] {
            for (char const act : std::exchange(acts, "")) {
                if (act >= 'a') {
                    thread.detachMsgListener(letters[static_cast<size_t>(act - 'a')].get());
                } else {
                    EXPECT_EQ(thread.attachMsgListener(letters[static_cast<size_t>(act - 'A')].get()), 1);
                }
            }
        };
        for (size_t i = 0; i < 4; ++i) {
            EXPECT_EQ(thread.attachMsgListener(letters[i].get()), 1);
        }
        ASSERT_EQ(thread.start(), 0);
        EXPECT_EQ(thread.sendMsgSync(5), 1);
        EXPECT_EQ(seen, one.first) << "acts " << one.acts;
        seen.clear();
        EXPECT_EQ(thread.sendMsgSync(5), 1);
        EXPECT_EQ(seen, one.second) << "acts " << one.acts;
        thread.finish();
    }
}

TEST_F(MsgDrivenSharedThreadOdd, ABroadcastTimeout_ToleratesAHandlerThatDetachesAbortsAndDeletesItsListener) {
    std::string seen;
    OddSharedThread thread(8, 8, 3);
    Letter first('A', seen);
    auto middle = std::make_unique<Letter>('B', seen);
    Letter last('C', seen);
    last.then = [&] {
        if (middle != nullptr) {
            thread.detachMsgListener(middle.get());
            EXPECT_EQ(thread.abortMsg(middle.get()), 1);
            middle.reset();
        }
    };
    thread.attachMsgListener(&first);
    thread.attachMsgListener(middle.get());
    thread.attachMsgListener(&last);
    ASSERT_EQ(thread.start(), 0);
    workOn(thread, [&] {
        int const all = thread.setTimer(LONG, 0, 1, 1);
        int const one = thread.setTimer(middle.get(), LONG, 0, 0, 1);
        thread.executeTimeoutSignal(all);
        thread.postMsg(middle.get(), 5);
        thread.executeTimeoutSignal(one);
    });
    settle(thread);
    EXPECT_EQ(seen, "CA");
    EXPECT_EQ(thread.remTimerIdCount(), 4U);
    EXPECT_EQ(hooks::timerCreate.calls(), hooks::timerDelete.calls());
    EXPECT_TRUE(log.lines().empty());
}

// ---- questions

TEST_F(MsgDrivenSharedThreadOdd, Questions_SeeEachKindOfMessageForItsOwnersAlone) {
    OddSharedThread thread(8, 16);
    Collector one;
    Collector two;
    ASSERT_EQ(thread.start(), 0);
    workOn(thread, [&] {
        int const all = thread.setTimer(LONG, 0, 0, 1);
        int const ones = thread.setTimer(&one, LONG, 0, 0, 1);
        int const twos = thread.setTimer(&two, LONG, 0, 0, 1);
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
        EXPECT_EQ(peekNumber(thread, &one, 7), 71);  // behind a timeout of the same listener
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

TEST_F(MsgDrivenSharedThreadOdd, ATimerMsgSentToAListener_IsNotTakenForATimeout) {
    OddSharedThread thread(16, 16);
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
        int const timer = thread.setTimer(&one, LONG, 0, 1, 1);
        EXPECT_TRUE(thread.eraseMsg(&one, utl::MSG_ID_TIMER));
        EXPECT_FALSE(thread.hasMsg(&one, utl::MSG_ID_ANY));
        EXPECT_NE(thread.findTimer(timer), nullptr);
    });
    settle(thread);
    EXPECT_TRUE(one.ids().empty());
    EXPECT_EQ(thread.abortMsg(&one), 1);
}

TEST_F(MsgDrivenSharedThreadOdd, ErasingAllBroadcasts_LeavesARequestToAttachAloneAndErasingAllDoesNot) {
    for (bool const all : {false, true}) {
        OddSharedThread thread;
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

TEST_F(MsgDrivenSharedThreadOdd,
       AbortMsg_FreesASynchronousSenderAndTakesTimersAndMessagesOfOneListenerAlone) {
    OddSharedThread thread;
    Collector one;
    Collector two;
    ASSERT_EQ(thread.start(), 0);
    workOn(thread, [&] {
        EXPECT_EQ(thread.setTimer(&one, LONG, 0, 0, 1), 1);
        EXPECT_EQ(thread.setTimer(&two, LONG, 0, 0, 1), 2);
        EXPECT_EQ(thread.registerTimer(&one, LONG, 0, 1), 3);
        EXPECT_EQ(thread.setTimer(&one, LONG, 0, 1, 0), 4);
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

// ---- timers

TEST_F(MsgDrivenSharedThreadOdd, TimersThatEndByThemselves_GiveTheirPlacesBackForAnyNumberOfSuccessors) {
    OddSharedThread thread(8, 8, 2, "shared", 1);
    Collector one;
    Collector all;
    EXPECT_EQ(thread.attachMsgListener(&all), 1);
    ASSERT_EQ(thread.start(), 0);
    for (int round = 1; round <= 6; ++round) {
        workOn(thread, [&] {
            EXPECT_EQ(thread.registerTimer(nullptr, LONG, 1, 1), -1);
            EXPECT_EQ(thread.setTimer(nullptr, LONG, 0, 1, 1), -1);
            int const timer =
                round % 2 == 0 ? thread.setTimer(&one, LONG, 0, 1, 1) : thread.setTimer(LONG, 0, 1, 1);
            EXPECT_EQ(timer, round);
            EXPECT_EQ(thread.setTimer(&one, LONG, 0, 1, 1), -1);
            EXPECT_EQ(thread.registerTimer(LONG, 1, 1), -1);
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

// ---- attaching to a thread in an odd state

TEST_F(MsgDrivenSharedThreadOdd, AThreadThatHasEndedByItself_CannotBeAskedToAttachOrDetach) {
    OddSharedThread thread;
    Collector collector;
    Holder holder;
    ASSERT_EQ(thread.start(), 0);
    holdIn(holder, thread);
    hooks::read.failFrom(1, 1, -1, EIO);
    unsigned int const before = hooks::write.calls();
    JoinedThread waiting([&] { EXPECT_EQ(thread.attachMsgListener(&collector), 0); });
    waitForTokens(before + 1);
    holder.gate.open();
    waiting.join();
    EXPECT_EQ(thread.waitTo(3, 0), 0);
    EXPECT_EQ(thread.attachMsgListener(&collector), 0);
    EXPECT_EQ(thread.detachMsgListener(&collector), 0);
    EXPECT_EQ(log.count(error("MsgDrivenSharedThread::attachMsgListener(): Can't send thread")), 2U);
    EXPECT_EQ(log.count(error("MsgDrivenSharedThread::detachMsgListener(): Can't send thread")), 1U);
}

TEST_F(MsgDrivenSharedThreadOdd, AttachingAgainstAFullControlQueue_FailsWithItsLineAndChangesNothing) {
    OddSharedThread thread(8, 4, 2);
    Collector one;
    Collector two;
    Holder holder;
    EXPECT_EQ(thread.attachMsgListener(&one), 1);
    ASSERT_EQ(thread.start(), 0);
    holdIn(holder, thread);
    unsigned int count = 0;
    while (thread.postThreadCtlMsg(utl::MSG_ID_CTL_START_TIMER, 77) == 1) {
        ++count;
    }
    EXPECT_EQ(count, 4 + utl::MsgDrivenThread::EXTRA_CTL_ENTRIES);
    EXPECT_EQ(thread.attachMsgListener(&two), 0);
    EXPECT_EQ(thread.detachMsgListener(&one), 0);
    EXPECT_EQ(log.count(error("MsgDrivenSharedThread::attachMsgListener(): Can't send thread")), 1U);
    EXPECT_EQ(log.count(error("MsgDrivenSharedThread::detachMsgListener(): Can't send thread")), 1U);
    EXPECT_EQ(log.count(error("MsgDrivenThread(shared) Overflow ThreadCtlMsgQueue  MaxCount:260 "
                              "MsgId:0x80000005")),
              2U);
    holder.gate.open();
    // What the two requests left in the data queue must reach nobody once a posted message comes.
    while (thread.postMsg(NumberMsg(9, 99)) == 0) {
        std::this_thread::yield();
    }
    ASSERT_TRUE(one.waitFor(1));
    EXPECT_EQ(one.ids(), (std::vector<int>{9}));
    EXPECT_TRUE(two.ids().empty());
    EXPECT_EQ(log.count(error("!!!!!!!! MsgDrivenThread(shared) MismatchedMsg... DataQueueMsgId:0x80000021 "
                              "CtlMsgId:0x00000009 Erased Data !!!!!!!!")),
              1U);
    EXPECT_EQ(log.count(error("!!!!!!!! MsgDrivenThread(shared) MismatchedMsg... DataQueueMsgId:0x80000022 "
                              "CtlMsgId:0x00000009 Erased Data !!!!!!!!")),
              1U);
}

TEST_F(MsgDrivenSharedThreadOdd, AHandlerIsHeldUpByNobody_WhileOutsidersWaitInEveryCall) {
    OddSharedThread thread(16, 64, 4, "shared", 16);
    Collector outside;
    Collector inside;
    Gate entered;
    Gate go;
    std::atomic<int> timer{-1};
    std::atomic<bool> done{false};
    Worker handler([&] {
        timer = thread.setTimer(&inside, LONG, 0, 0, 1);
        entered.open();
        go.wait();
        EXPECT_EQ(thread.start(), -1);
        EXPECT_EQ(thread.stop(1, 0), -1);
        EXPECT_EQ(thread.attachMsgListener(&inside), 1);
        thread.detachMsgListener(&inside);
        EXPECT_EQ(thread.postMsg(&inside, 6), 1);
        EXPECT_EQ(thread.postMsg(6), 1);
        EXPECT_TRUE(thread.hasMsg(6));
        EXPECT_TRUE(thread.hasMsg(&inside, 6));
        EXPECT_TRUE(thread.eraseMsg(&inside, 6));
        EXPECT_EQ(thread.sendMsgSync(&inside, 6), 0);
        EXPECT_EQ(thread.sendMsgInterrupt(&inside, 6), 0);
        int const another = thread.setTimer(&inside, LONG, 0, 0, 1);
        EXPECT_GT(another, 0);
        EXPECT_TRUE(thread.killTimer(another));
        EXPECT_EQ(thread.abortMsg(&inside), 1);
        done = true;
    });
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.postMsg(&handler, 1), 1);
    ASSERT_TRUE(entered.wait());
    std::vector<std::function<void()>> const calls = {
        [&] { EXPECT_EQ(thread.sendMsgSync(&outside, 7), 1); },
        [&] { EXPECT_EQ(thread.sendMsgInterrupt(&outside, 8), 1); },
        [&] { EXPECT_EQ(thread.attachMsgListener(&outside), 1); },
        [&] { thread.hasMsg(&outside, 7); },
        [&] { EXPECT_TRUE(thread.eraseMsg(&outside, 9)); },
        [&] { EXPECT_GT(thread.setTimer(&outside, LONG, 0, 0, 1), 0); },
        [&] { EXPECT_EQ(thread.postMsg(&outside, 10), 1); },
        [&] { thread.killTimer(timer, 0); },
    };
    std::vector<std::unique_ptr<std::atomic<int>>> ids;
    std::vector<std::unique_ptr<JoinedThread>> outsiders;
    for (auto const& call : calls) {
        ids.push_back(std::make_unique<std::atomic<int>>(0));
        std::atomic<int>& id = *ids.back();
        outsiders.push_back(std::make_unique<JoinedThread>([&call, &id] {
            id = kernelId();
            call();
        }));
        waitUntilAsleep(id);
    }
    go.open();
    outsiders.clear();
    EXPECT_TRUE(done);
    settle(thread);
    std::vector<int> received = outside.ids();
    std::sort(received.begin(), received.end());
    received.erase(std::remove(received.begin(), received.end(), 6), received.end());  // the broadcast
    EXPECT_EQ(received, (std::vector<int>{7, 8, 10}));
}

TEST_F(MsgDrivenSharedThreadOdd, AListenerThatWasDetachedAndAborted_CanBeDeletedWhateverWasOnItsWay) {
    OddSharedThread thread(8, 64, 8, "shared", 12);
    ASSERT_EQ(thread.start(), 0);
    auto const play = [&] {
        for (int i = 0; i < 40; ++i) {
            auto const listener = std::make_unique<Collector>();
            EXPECT_EQ(thread.attachMsgListener(listener.get()), 1);
            EXPECT_GT(thread.setTimer(listener.get(), 1, i % 2, 0, i / 2 % 2), 0);
            EXPECT_GT(thread.setTimer(listener.get(), 1, 0, 1, 1), 0);
            EXPECT_EQ(thread.postMsg(listener.get(), 5), 1);
            EXPECT_EQ(thread.postMsg(6), 1);
            EXPECT_EQ(thread.postMsg(listener.get(), 7), 1);
            thread.detachMsgListener(listener.get());
            thread.abortMsg(listener.get());  // 0 where its second timer has ended meanwhile
        }
    };
    {
        JoinedThread one(play);
        JoinedThread two(play);
        JoinedThread three(play);
    }
    EXPECT_EQ(thread.remTimerIdCount(), 12U);
    EXPECT_EQ(hooks::timerCreate.calls(), hooks::timerDelete.calls());
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(MsgDrivenSharedThreadOdd, ListenersThatComeAndGoAmongBroadcasts_MissNoneWhileTheyAreAttached) {
    OddSharedThread thread(16, 64, 4);
    Collector constant;
    EXPECT_EQ(thread.attachMsgListener(&constant), 1);
    ASSERT_EQ(thread.start(), 0);
    constexpr int ROUNDS = 40;
    auto const visit = [&](int id) {
        for (int i = 0; i < ROUNDS; ++i) {
            Collector visitor;
            EXPECT_EQ(thread.attachMsgListener(&visitor), 1);
            EXPECT_EQ(thread.sendMsgSync(NumberMsg(id, i)), 1);
            EXPECT_EQ(thread.sendMsgSync(&visitor, NumberMsg(id + 10, i)), 1);
            int const timer = thread.setTimer(&visitor, LONG, 0, 0, 1);
            thread.detachMsgListener(&visitor);
            EXPECT_EQ(thread.abortMsg(&visitor), 1);
            EXPECT_TRUE(timer == -1 || !thread.killTimer(timer));
            auto const ids = visitor.ids();
            EXPECT_EQ(std::count(ids.begin(), ids.end(), id), 1);
            EXPECT_EQ(std::count(ids.begin(), ids.end(), id + 10), 1);
        }
    };
    {
        JoinedThread first([&] { visit(1); });
        JoinedThread second([&] { visit(2); });
        JoinedThread third([&] { visit(3); });
    }
    EXPECT_EQ(constant.ids().size(), 3U * ROUNDS);
    EXPECT_EQ(thread.remTimerIdCount(), 4U);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(MsgDrivenSharedThreadOdd, AHandlerThatPeeksIntoItsOwnMessage_SpoilsNoneBehindIt) {
    OddSharedThread thread(8, 8);
    std::vector<int> numbers;
    class Peeking : public utl::ThreadMsgListener {
      public:
        Peeking(OddSharedThread& owner, std::vector<int>& all) : mOwner(owner), mAll(all) {}
        void receiveMsg(int, utl::ThreadRawMsg& raw) override {
            NumberMsg msg(0, -1);
            msg.restoreFrom(raw);
            mAll.push_back(msg.mNumber);
            mOwner.peekMsg(9, &raw);
            mOwner.peekMsg(this, 5, &raw);
            mOwner.peekMsg(9, &raw);
        }

      private:
        OddSharedThread& mOwner;
        std::vector<int>& mAll;
    } listener(thread, numbers);
    ASSERT_EQ(thread.start(), 0);
    workOn(thread, [&] {
        for (int i = 1; i <= 3; ++i) {
            thread.postMsg(&listener, NumberMsg(5, i));
        }
        thread.postMsg(NumberMsg(9, 99));
        thread.postMsg(&listener, NumberMsg(5, 4));
    });
    settle(thread);
    EXPECT_EQ(thread.sendMsgSync(&listener, NumberMsg(5, 5)), 1);
    EXPECT_EQ(numbers, (std::vector<int>{1, 2, 3, 4, 5}));
    EXPECT_TRUE(log.lines().empty());
}

}  // namespace

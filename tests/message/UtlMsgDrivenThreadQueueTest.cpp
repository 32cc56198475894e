// Questions about queued messages, and their erasure.

#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TestErasure.h"
#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestStage.h"
#include "UtlThreadManager.h"

using namespace utltest;

namespace {

constexpr int FIRST = 100;
constexpr int SECOND = 101;
constexpr int THIRD = 102;

// What a handler on the message thread finds out, with messages FIRST, SECOND, FIRST, THIRD queued after it.
template <typename WORK>
void onMessageThread(WORK work) {
    HeldMsgThread road;
    road.onOther = [&](int id, int number) {
        if (id == FIRST && number == -1) {
            work(road.thread);
        }
    };
    road.startAndBlock();
    ASSERT_EQ(road.thread.postMsg(NumberMsg(FIRST, -1)), 1);
    ASSERT_EQ(road.thread.postMsg(NumberMsg(FIRST, 1)), 1);
    ASSERT_EQ(road.thread.postMsg(NumberMsg(SECOND, 2)), 1);
    ASSERT_EQ(road.thread.postMsg(NumberMsg(FIRST, 3)), 1);
    ASSERT_EQ(road.thread.postMsg(NumberMsg(THIRD, 4)), 1);
    road.gate.open();
    EXPECT_EQ(road.thread.sendMsgSync(BLOCKER), 1);
}

// Asks from outside: the question waits while the handler is blocked, and is answered before the queue
// continues.
template <typename QUESTION>
auto fromOutside(HeldMsgThread& road, QUESTION question) {
    hooks::write.reset();
    auto answer = std::async(std::launch::async, [&road, question] { return question(road.thread); });
    waitForTokens(1);
    road.gate.open();
    return answer.get();
}

using MsgQueue = WithoutWatchdogThread;

TEST_F(MsgQueue, HasMsg_OnTheMessageThread_FindsWhatIsQueuedAndNotWhatIsBeingDelivered) {
    onMessageThread([](ScopedMsgThread& thread) {
        EXPECT_TRUE(thread.hasMsg(FIRST));
        EXPECT_TRUE(thread.hasMsg(THIRD));
        EXPECT_TRUE(thread.hasMsg(utl::MSG_ID_ANY));
        EXPECT_FALSE(thread.hasMsg(BLOCKER + 1));
        EXPECT_EQ(thread.getFirstMsgId(), FIRST);
        EXPECT_TRUE(thread.eraseMsg(FIRST));
        EXPECT_FALSE(thread.hasMsg(FIRST));
        EXPECT_EQ(thread.getFirstMsgId(), SECOND);
    });
}

TEST_F(MsgQueue, PeekMsg_GivesTheFirstMatchInAFullFrameAndLeavesItQueued) {
    onMessageThread([](ScopedMsgThread& thread) {
        utl::ThreadRawMsg raw(4);
        NumberMsg msg(0);
        for (int i = 0; i < 2; ++i) {
            ASSERT_TRUE(thread.peekMsg(FIRST, &raw));
            EXPECT_EQ(raw.maxSize(), 68U);
            msg.restoreFrom(raw);
            EXPECT_EQ(msg.mNumber, 1);
        }
        ASSERT_TRUE(thread.peekMsg(utl::MSG_ID_ANY, &raw));
        msg.restoreFrom(raw);
        EXPECT_EQ(msg.getMsgId(), FIRST);
        utl::ThreadRawMsg untouched(4);
        EXPECT_FALSE(thread.peekMsg(BLOCKER + 1, &untouched));
        EXPECT_EQ(untouched.maxSize(), 4U);
        EXPECT_FALSE(thread.peekMsg(FIRST, nullptr));
    });
}

TEST_F(MsgQueue, EraseMsg_TakesEveryMatchOutAndKeepsTheOrderOfTheRest) {
    HeldMsgThread road;
    road.startAndBlock();
    for (int i = 0; i < 6; ++i) {
        ASSERT_EQ(road.thread.postMsg(NumberMsg(i % 2 == 0 ? FIRST : SECOND, i)), 1);
    }
    LogCapture const log;
    EXPECT_TRUE(fromOutside(road, [](ScopedMsgThread& thread) { return thread.eraseMsg(FIRST); }));
    EXPECT_EQ(road.thread.sendMsgSync(THIRD), 1);
    std::vector<Collector::Received> const received = road.collector.received();
    ASSERT_EQ(received.size(), 5U);
    EXPECT_EQ(received[1].number, 1);
    EXPECT_EQ(received[2].number, 3);
    EXPECT_EQ(received[3].number, 5);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(MsgQueue, EraseMsg_OfAnIdThatIsNotQueued_IsTrue) {
    HeldMsgThread road;
    road.startAndBlock();
    ASSERT_EQ(road.thread.postMsg(FIRST), 1);
    EXPECT_TRUE(fromOutside(road, [](ScopedMsgThread& thread) { return thread.eraseMsg(SECOND); }));
    EXPECT_EQ(road.thread.sendMsgSync(THIRD), 1);
    EXPECT_EQ(road.collector.ids(), (std::vector<int>{BLOCKER, FIRST, THIRD}));
    EXPECT_TRUE(road.thread.eraseMsg(utl::MSG_ID_ANY)) << "of an empty queue";
}

TEST_F(MsgQueue, EraseMsg_OfAnyId_EmptiesTheQueue) {
    HeldMsgThread road;
    road.startAndBlock();
    for (int i = 0; i < 16; ++i) {
        ASSERT_EQ(road.thread.postMsg(NumberMsg(FIRST + i, i)), 1);
    }
    EXPECT_TRUE(fromOutside(road, [](ScopedMsgThread& thread) { return thread.eraseMsg(utl::MSG_ID_ANY); }));
    EXPECT_EQ(road.thread.getFirstMsgId(), utl::MSG_ID_NONE);
    EXPECT_EQ(road.thread.sendMsgSync(THIRD), 1);
    EXPECT_EQ(road.collector.received().size(), 2U);
}

TEST_F(MsgQueue, Questions_FromOutside_AreAnsweredBeforeTheQueueGoesOn) {
    HeldMsgThread road;
    road.startAndBlock();
    ASSERT_EQ(road.thread.postMsg(FIRST), 1);
    ASSERT_EQ(road.thread.postMsg(NumberMsg(SECOND, 7)), 1);
    utl::ThreadRawMsg raw(4);
    EXPECT_TRUE(fromOutside(road, [&raw](ScopedMsgThread& thread) { return thread.peekMsg(SECOND, &raw); }));
    NumberMsg msg(0);
    msg.restoreFrom(raw);
    EXPECT_EQ(msg.mNumber, 7);
    ASSERT_TRUE(road.collector.waitFor(3));
}

TEST_F(MsgQueue, HasMsg_FromOutside_SeesAQueuedSynchronousMessage) {
    HeldMsgThread road;
    road.startAndBlock();
    hooks::write.reset();
    std::future<int> sync = std::async(std::launch::async, [&] { return road.thread.sendMsgSync(FIRST); });
    waitForTokens(1);
    EXPECT_TRUE(fromOutside(road, [](ScopedMsgThread& thread) { return thread.hasMsg(FIRST); }));
    EXPECT_EQ(sync.get(), 1);
}

TEST_F(MsgQueue, EraseMsg_OfAQueuedSynchronousMessage_FreesItsSenderWithZero) {
    HeldMsgThread road;
    road.startAndBlock();
    ASSERT_EQ(road.thread.postMsg(SECOND), 1);
    hooks::write.reset();
    std::future<int> sync = std::async(std::launch::async, [&] { return road.thread.sendMsgSync(FIRST); });
    waitForTokens(1);
    ASSERT_EQ(road.thread.sendMsgAsync(NumberMsg(THIRD)), 1);
    EXPECT_TRUE(fromOutside(road, [](ScopedMsgThread& thread) { return thread.eraseMsg(FIRST); }));
    EXPECT_EQ(sync.get(), 0);
    EXPECT_EQ(road.thread.sendMsgSync(BLOCKER + 1), 1);
    EXPECT_EQ(road.collector.ids(), (std::vector<int>{BLOCKER, SECOND, THIRD, BLOCKER + 1}));
}

TEST_F(MsgQueue, AnInterrupt_IsNoQueuedMessage) {
    HeldMsgThread road;
    bool found = true;
    road.onOther = [&](int id, int) {
        if (id == FIRST) {
            found = road.thread.hasMsg(utl::MSG_ID_ANY);
        }
    };
    road.startAndBlock();
    hooks::write.reset();
    std::future<int> interrupt =
        std::async(std::launch::async, [&] { return road.thread.sendMsgInterrupt(NumberMsg(FIRST)); });
    waitForTokens(1);
    road.gate.open();
    EXPECT_EQ(interrupt.get(), 1);
    EXPECT_FALSE(found);
}

TEST_F(MsgQueue, AMessageThatAnInterruptsHandlerErases_IsNotDeliveredAndNoMismatchIsLogged) {
    LogCapture const log;
    HeldMsgThread road;
    road.onOther = [&](int id, int) {
        if (id == THIRD) {
            EXPECT_TRUE(road.thread.eraseMsg(FIRST));
        }
    };
    road.startAndBlock();
    // FIRST stands at the head, and once more after a message that stays.
    ASSERT_EQ(road.thread.postMsg(NumberMsg(FIRST, 1)), 1);
    ASSERT_EQ(road.thread.postMsg(NumberMsg(SECOND, 2)), 1);
    ASSERT_EQ(road.thread.postMsg(NumberMsg(FIRST, 3)), 1);
    hooks::write.reset();
    std::future<int> interrupt =
        std::async(std::launch::async, [&] { return road.thread.sendMsgInterrupt(NumberMsg(THIRD)); });
    waitForTokens(1);
    road.gate.open();
    EXPECT_EQ(interrupt.get(), 1);
    EXPECT_EQ(road.thread.sendMsgSync(BLOCKER + 1), 1);
    EXPECT_EQ(road.collector.ids(), (std::vector<int>{BLOCKER, THIRD, SECOND, BLOCKER + 1}));
    EXPECT_TRUE(log.lines().empty());
}

// The handler erases the head while another message of the same id waits further back.
TEST_F(MsgQueue, AnInterruptsHandlerThatErasesOnlyTheHead_LosesNoOtherMessage) {
    struct JudgeNumber {
        int number;
        bool operator()(utl::ThreadRawMsg& raw) const {
            NumberMsg msg(0);
            return msg.restoreFrom(raw) != 0 && msg.mNumber == number;
        }
    };
    LogCapture const log;
    HeldMsgThread road;
    road.onOther = [&](int id, int) {
        if (id == THIRD) {
            JudgeNumber judge{1};
            utl::MsgDrivenThread::MsgJudgement<JudgeNumber> judgement(&judge);
            EXPECT_TRUE(road.thread.eraseMsgInternal(&judgement));
        }
    };
    road.startAndBlock();
    ASSERT_EQ(road.thread.postMsg(NumberMsg(FIRST, 1)), 1);
    ASSERT_EQ(road.thread.postMsg(NumberMsg(SECOND, 2)), 1);
    ASSERT_EQ(road.thread.postMsg(NumberMsg(FIRST, 3)), 1);
    hooks::write.reset();
    std::future<int> interrupt =
        std::async(std::launch::async, [&] { return road.thread.sendMsgInterrupt(NumberMsg(THIRD)); });
    waitForTokens(1);
    road.gate.open();
    EXPECT_EQ(interrupt.get(), 1);
    EXPECT_EQ(road.thread.sendMsgSync(BLOCKER + 1), 1);
    EXPECT_EQ(road.collector.ids(), (std::vector<int>{BLOCKER, THIRD, SECOND, FIRST, BLOCKER + 1}));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(MsgQueue, Questions_OnAThreadThatDoesNotRun_AreFalse) {
    ScopedMsgThread thread;
    utl::ThreadRawMsg raw(4);
    ASSERT_EQ(thread.sendMsgAsync(NumberMsg(FIRST)), 1);
    EXPECT_FALSE(thread.hasMsg(FIRST));
    EXPECT_FALSE(thread.peekMsg(FIRST, &raw));
    EXPECT_FALSE(thread.eraseMsg(FIRST));
    EXPECT_EQ(thread.getFirstMsgId(), utl::MSG_ID_NONE);
}

TEST_F(MsgQueue, Questions_WithANullJudgement_AreFalse) {
    onMessageThread([](ScopedMsgThread& thread) {
        utl::ThreadRawMsg raw(4);
        EXPECT_FALSE(thread.hasMsgInternal(nullptr));
        EXPECT_FALSE(thread.peekMsgInternal(nullptr, &raw));
        EXPECT_FALSE(thread.eraseMsgInternal(nullptr));
    });
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_FALSE(thread.hasMsgInternal(nullptr));
    EXPECT_FALSE(thread.eraseMsgInternal(nullptr));
}

TEST_F(MsgQueue, Questions_WhoseLoopEndsFirst_AreReleasedAndAnErasureCountsAsDone) {
    HeldMsgThread road;
    road.startAndBlock();
    ASSERT_EQ(road.thread.postMsg(FIRST), 1);
    hooks::write.reset();
    // The loop is made to fail at its next read, after the blocked handler.
    auto find = std::async(std::launch::async, [&] { return road.thread.hasMsg(FIRST); });
    auto erase = std::async(std::launch::async, [&] { return road.thread.eraseMsg(FIRST); });
    waitForTokens(2);
    LogCapture const log;
    HookScope const scope;
    hooks::read.failFrom(1, 0, -1, EIO);
    road.gate.open();
    EXPECT_FALSE(find.get());
    EXPECT_TRUE(erase.get());
    EXPECT_EQ(road.thread.waitTo(3, 0), 0);
}

TEST_F(MsgQueue, Questions_ThatCannotBeAnnounced_AreFalseAndLeaveNothingBehind) {
    HookScope const scope;
    LogCapture const log;
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    utl::ThreadRawMsg raw(4);
    hooks::write.failFrom(1, 3, -1, EIO);
    EXPECT_FALSE(thread.hasMsg(FIRST));
    EXPECT_FALSE(thread.peekMsg(FIRST, &raw));
    EXPECT_FALSE(thread.eraseMsg(FIRST));
    EXPECT_EQ(log.lines().size(), 3U);
    EXPECT_EQ(thread.sendMsgSync(SECOND), 1);
    EXPECT_TRUE(thread.eraseMsg(FIRST));
}

TEST_F(MsgQueue, ManyQuestionsOfAllKindsAtOnce_AllReturn) {
    LogCapture const log;
    Collector collector;
    ScopedMsgThread thread(64, 64);
    ASSERT_EQ(thread.start(&collector), 0);
    std::vector<std::future<void>> askers;
    for (int asker = 0; asker < 4; ++asker) {
        askers.push_back(std::async(std::launch::async, [&, asker] {
            utl::ThreadRawMsg raw(4);
            for (int i = 0; i < 200; ++i) {
                thread.postMsg(NumberMsg(asker, i));
                thread.hasMsg(asker);
                thread.peekMsg(utl::MSG_ID_ANY, &raw);
                thread.eraseMsg(asker);
                thread.sendMsgInterrupt(NumberMsg(FIRST, i));
                thread.sendMsgSync(NumberMsg(SECOND, i));
            }
        }));
    }
    for (auto& asker : askers) {
        asker.get();
    }
    EXPECT_EQ(thread.sendMsgSync(THIRD), 1);
    EXPECT_EQ(thread.getFirstMsgId(), utl::MSG_ID_NONE);
    for (std::string const& line : log.lines()) {
        EXPECT_EQ(line.find("Mismatch"), std::string::npos) << line;
        EXPECT_EQ(line.find("is different"), std::string::npos) << line;
    }
}

// Erased messages leave their tokens in the pipe until they are read.

TEST_F(MsgQueue, AHandlerThatPostsAndErasesForLong_IsRefusedWhenThePipeIsFullAndNeverBlocks) {
    LogCapture const log;
    Collector collector;
    ScopedMsgThread thread(64, 64, "spinner");
    std::vector<int> results;
    collector.onMsg = [&](int id, int) {
        for (int i = 0; id == FIRST && i < 9000; ++i) {
            results.push_back(thread.postMsg(SECOND));
            EXPECT_TRUE(thread.eraseMsg(SECOND));
        }
    };
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    auto const firstRefused = std::find(results.begin(), results.end(), 0);
    auto const refused = static_cast<unsigned int>(results.end() - firstRefused);
    EXPECT_EQ(results.size(), 9000U);
    EXPECT_GT(firstRefused - results.begin(), 320) << "more than the queue's own places";
    EXPECT_GT(refused, 0U);
    EXPECT_EQ(static_cast<unsigned int>(std::count(firstRefused, results.end(), 0)), refused);
    EXPECT_EQ(log.count(utltest::pipeOverflow(thread, "0x00000065")), refused);
    EXPECT_EQ(log.lines().size(), refused);
    while (thread.postMsg(THIRD) == 0) {
        std::this_thread::yield();
    }
    ASSERT_TRUE(collector.waitFor(2));
    EXPECT_EQ(thread.sendMsgSync(FIRST + 50), 1);
    EXPECT_EQ(collector.ids(), (std::vector<int>{FIRST, THIRD, FIRST + 50}));
    EXPECT_EQ(thread.stop(1, 0), 0);
}

std::atomic<int> gReadsAllowed{0};

ssize_t readWhenAllowed(int handle, void* out, size_t bytes) {
    while (gReadsAllowed == 0) {
        std::this_thread::yield();
    }
    --gReadsAllowed;
    return hooks::read.real(handle, out, bytes);
}

TEST_F(MsgQueue, ErasuresOfAFullQueueAgainAndAgainFromOutside_NeverBlock) {
    HookScope const scope;
    LogCapture const log;
    Collector collector;
    ScopedMsgThread thread(4, 7000, "eraser");
    hooks::read.replace(readWhenAllowed);
    ASSERT_EQ(thread.start(&collector), 0);
    unsigned int refused = 0;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 6900; ++i) {
            refused += thread.postMsg(SECOND) == 0 ? 1 : 0;
        }
        // The loop comes to the erasure with its next token, and to few of the tokens that it leaves.
        auto erased = std::async(std::launch::async, [&] { return thread.eraseMsg(SECOND); });
        while (erased.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
            gReadsAllowed = 1;
        }
        EXPECT_TRUE(erased.get() || refused != 0);
    }
    EXPECT_GT(refused, 0U);
    EXPECT_EQ(log.count(utltest::pipeOverflow(thread, "0x00000065")), refused);
    gReadsAllowed = INT_MAX;
    while (thread.postMsg(THIRD) == 0) {
        std::this_thread::yield();
    }
    while (thread.sendMsgSync(FIRST) == 0) {
        std::this_thread::yield();
    }
    std::vector<int> const ids = collector.ids();
    EXPECT_EQ(std::count(ids.begin(), ids.end(), THIRD), 1);
    EXPECT_EQ(thread.stop(1, 0), 0);
}

TEST_F(MsgQueue, AWakeEntryWhoseTokenWasLost_DoesNotStopThoseBehindIt) {
    HookScope const scope;
    LogCapture const log;
    HeldMsgThread road;
    road.startAndBlock();
    hooks::write.failFrom(1, 1, -1, EIO);
    EXPECT_FALSE(road.thread.hasMsg(FIRST));
    hooks::write.reset();
    ASSERT_EQ(road.thread.postMsg(5), 1);
    auto found = std::async(std::launch::async, [&] { return road.thread.hasMsg(9); });
    waitForTokens(2);
    road.gate.open();
    EXPECT_FALSE(found.get());
    EXPECT_EQ(road.thread.sendMsgSync(6), 1);
    EXPECT_EQ(road.collector.ids(), (std::vector<int>{BLOCKER, 5, 6}));
}

// In front of SECOND and THIRD stands what a synchronous sender of FIRST could not announce.
template <typename WORK>
void askBehindAStray(WORK work) {
    LogCapture const log;
    HeldMsgThread road;
    road.onOther = [&](int id, int number) {
        if (id == FIRST && number == -1) {
            work(road.thread);
        }
    };
    road.startAndBlock();
    ASSERT_EQ(road.thread.postMsg(NumberMsg(FIRST, -1)), 1);
    withFullCtlQueue(road.thread, [&] { EXPECT_EQ(road.thread.sendMsgSync(NumberMsg(FIRST, 1)), 0); });
    ASSERT_EQ(road.thread.postMsg(NumberMsg(SECOND, 2)), 1);
    ASSERT_EQ(road.thread.postMsg(NumberMsg(THIRD, 3)), 1);
    road.gate.open();
    EXPECT_EQ(road.thread.sendMsgSync(BLOCKER), 1);
    EXPECT_EQ(log.count(mismatchLine("road", "0x00000064", "0x00000065")), 1U);
}

TEST_F(MsgQueue, HasMsgAndPeekMsg_StepOverAFrameThatCouldNotBeAnnounced) {
    askBehindAStray([](ScopedMsgThread& thread) {
        EXPECT_FALSE(thread.hasMsg(FIRST));
        EXPECT_TRUE(thread.hasMsg(SECOND));
        EXPECT_TRUE(thread.hasMsg(THIRD));
        EXPECT_EQ(thread.getFirstMsgId(), SECOND);
        utl::ThreadRawMsg raw(4);
        NumberMsg msg(0);
        EXPECT_FALSE(thread.peekMsg(FIRST, &raw));
        ASSERT_TRUE(thread.peekMsg(THIRD, &raw));
        ASSERT_EQ(msg.restoreFrom(raw), 1);
        EXPECT_EQ(msg.mNumber, 3);
    });
}

TEST_F(MsgQueue, EraseMsg_StepsOverAFrameThatCouldNotBeAnnounced) {
    askBehindAStray([](ScopedMsgThread& thread) {
        EXPECT_TRUE(thread.eraseMsg(FIRST));
        EXPECT_TRUE(thread.eraseMsg(SECOND));
        EXPECT_FALSE(thread.hasMsg(SECOND));
        utl::ThreadRawMsg raw(4);
        NumberMsg msg(0);
        ASSERT_TRUE(thread.peekMsg(THIRD, &raw));
        ASSERT_EQ(msg.restoreFrom(raw), 1);
        EXPECT_EQ(msg.mNumber, 3);
    });
}

// Nothing was queued after it yet, so it is still there.
TEST_F(MsgQueue, Questions_NeverSeeAFrameThatCouldNotBeAnnounced) {
    LogCapture const log;
    Gate asked;
    HeldMsgThread road;
    road.onOther = [&](int id, int) {
        if (id == FIRST) {
            EXPECT_FALSE(road.thread.hasMsg(utl::MSG_ID_ANY));
            ASSERT_EQ(road.thread.postThreadCtlMsg(SECOND, -1), 1);
            EXPECT_FALSE(road.thread.hasMsg(utl::MSG_ID_ANY)) << "an entry without a frame gets none";
            EXPECT_TRUE(road.thread.eraseMsgFromCtlQueue(SECOND));
            EXPECT_TRUE(road.thread.eraseMsg(utl::MSG_ID_ANY));
            asked.open();
        }
    };
    road.startAndBlock();
    ASSERT_EQ(road.thread.postMsg(FIRST), 1);
    withFullCtlQueue(road.thread, [&] { EXPECT_EQ(road.thread.sendMsgSync(SECOND), 0); });
    road.gate.open();
    ASSERT_TRUE(asked.wait());
    EXPECT_EQ(road.thread.sendMsgSync(THIRD), 1);
    EXPECT_EQ(road.collector.ids(), (std::vector<int>{BLOCKER, FIRST, THIRD}));
    EXPECT_EQ(log.count(mismatchLine("road", "0x00000065", "0x80000005")), 1U);
}

TEST_F(MsgQueue, EarseMsgQueue_NeedsBothPlacesInUse) {
    ScopedMsgThread thread(8, 4);
    EXPECT_FALSE(thread.earseMsgQueue(0, 0, 12));
    ASSERT_EQ(thread.sendMsgAsync(NumberMsg(FIRST)), 1);
    ASSERT_EQ(thread.sendMsgAsync(NumberMsg(SECOND)), 1);
    EXPECT_FALSE(thread.earseMsgQueue(2, 0, 12));
    EXPECT_FALSE(thread.earseMsgQueue(0, 24, 12));
    EXPECT_TRUE(thread.earseMsgQueue(1, 23, 0)) << "the entry alone";
    EXPECT_FALSE(thread.earseMsgQueue(1, 0, 12));
    EXPECT_TRUE(thread.earseMsgQueue(0, 0, 12));
    EXPECT_FALSE(thread.earseMsgQueue(0, 0, 12));
}

TEST_F(MsgQueue, EraseMsgFromCtlQueue_RemovesTheFirstEntryWithTheId) {
    ScopedMsgThread thread;
    EXPECT_FALSE(thread.eraseMsgFromCtlQueue(FIRST));
    ASSERT_EQ(thread.postThreadCtlMsg(utl::MSG_ID_CTL_WAKE, -1), 1);
    EXPECT_FALSE(thread.eraseMsgFromCtlQueue(FIRST));
    EXPECT_TRUE(thread.eraseMsgFromCtlQueue(utl::MSG_ID_CTL_WAKE));
    EXPECT_FALSE(thread.eraseMsgFromCtlQueue(utl::MSG_ID_CTL_WAKE));
}

// Entries without frames and frames without entries: only a misuse of the control queue brings them about.

std::string linePrefix(char const* operation, char const* what) {
    return std::string("<UTIL> ERR: MsgDrivenThread::") + operation + "(): " + what + " Line=";
}

bool hasLine(LogCapture const& log, std::string const& prefix, std::string const& suffix) {
    for (std::string const& line : log.lines()) {
        if (line.compare(0, prefix.size(), prefix) == 0 && line.size() >= suffix.size() &&
            line.compare(line.size() - suffix.size(), suffix.size(), suffix) == 0) {
            return true;
        }
    }
    return false;
}

TEST_F(MsgQueue, HasMsg_MeetsAnEntryWithoutAFrame_LogsItAndGoesOn) {
    LogCapture const log;
    onMessageThread([&](ScopedMsgThread& thread) {
        ASSERT_EQ(thread.postThreadCtlMsg(THIRD + 5, -1), 1);
        EXPECT_FALSE(thread.hasMsg(THIRD + 5));
        EXPECT_TRUE(hasLine(log, linePrefix("executeFindMsg", "Peek Data Queue fail."), " MsgId=107"));
        EXPECT_TRUE(thread.eraseMsgFromCtlQueue(THIRD + 5));
    });
}

TEST_F(MsgQueue, EraseMsg_MeetsAnEntryWithoutAFrame_LogsItAndFails) {
    LogCapture const log;
    onMessageThread([&](ScopedMsgThread& thread) {
        ASSERT_EQ(thread.postThreadCtlMsg(THIRD + 5, -1), 1);
        // After the frames of FIRST, SECOND, FIRST, THIRD and the blocked synchronous message there is none.
        EXPECT_FALSE(thread.eraseMsg(BLOCKER + 1));
        EXPECT_TRUE(hasLine(log, linePrefix("executeEraseMsg", "Peek Data Queue fail."), " MsgId=107"));
        EXPECT_TRUE(thread.eraseMsgFromCtlQueue(THIRD + 5));
    });
}

TEST_F(MsgQueue, EraseMsg_MeetsASyncEntryWithoutAFrame_LogsItAndFails) {
    LogCapture const log;
    Collector collector;
    ScopedMsgThread thread(8, 4);
    collector.onMsg = [&](int id, int) {
        if (id == FIRST) {
            ASSERT_EQ(thread.postThreadCtlMsg(utl::MSG_ID_CTL_SYNC, -1), 1);
            EXPECT_FALSE(thread.eraseMsg(FIRST));
            EXPECT_TRUE(thread.eraseMsgFromCtlQueue(utl::MSG_ID_CTL_SYNC));
        }
    };
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].rfind(linePrefix("executeEraseMsg", "Peek Data Queue fail."), 0), 0U);
}

TEST_F(MsgQueue, EraseMsg_MeetsAFrameOfAnotherMessage_LogsBothIdsAndFails) {
    LogCapture const log;
    Collector collector;
    ScopedMsgThread thread(8, 4);
    collector.onMsg = [&](int id, int) {
        if (id == FIRST) {
            ASSERT_EQ(thread.postMsg(SECOND), 1);
            ASSERT_EQ(thread.postMsg(THIRD), 1);
            // The entry of SECOND is erased, its frame stays.
            EXPECT_TRUE(thread.eraseMsgFromCtlQueue(SECOND));
            EXPECT_FALSE(thread.eraseMsg(THIRD));
        }
    };
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_TRUE(hasLine(log, linePrefix("executeEraseMsg", "Data Queue is different from Ctl Queue ."),
                        " MsgId(Ctl)=102 MsgId(Data)=101 "));
    ASSERT_TRUE(collector.waitFor(2));
}

// A judgement must not change the queues; one that does is found out.
TEST_F(MsgQueue, EraseMsg_WhoseJudgementTookTheMessageAway_LogsItAndFails) {
    struct Judge {
        ScopedMsgThread* thread;
        int id;
        bool operator()(utl::ThreadRawMsg&) const {
            while (thread->earseMsgQueue(0, 0, 12)) {
            }
            while (thread->eraseMsgFromCtlQueue(id)) {
            }
            return true;
        }
    };
    LogCapture const log;
    Collector collector;
    ScopedMsgThread thread(8, 4);
    collector.onMsg = [&](int id, int) {
        if (id == FIRST) {
            ASSERT_EQ(thread.postMsg(SECOND), 1);
            Judge judge{&thread, SECOND};
            utl::MsgDrivenThread::MsgJudgement<Judge> judgement(&judge);
            EXPECT_FALSE(thread.eraseMsgInternal(&judgement));
            ASSERT_EQ(thread.sendMsgAsync(NumberMsg(SECOND)), 1);
            ASSERT_TRUE(thread.eraseMsgFromCtlQueue(SECOND));
            ASSERT_EQ(thread.postThreadCtlMsg(utl::MSG_ID_CTL_SYNC, -1), 1);
            judge.id = utl::MSG_ID_CTL_SYNC;
            EXPECT_FALSE(thread.eraseMsgInternal(&judgement));
            ASSERT_EQ(thread.postThreadCtlMsg(utl::MSG_ID_CTL_TIMEOUT, 77), 1);
            judge.id = utl::MSG_ID_CTL_TIMEOUT;
            EXPECT_FALSE(thread.eraseMsgInternal(&judgement));
        }
    };
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    ASSERT_EQ(log.lines().size(), 3U);
    EXPECT_EQ(log.lines()[0].rfind(linePrefix("executeEraseMsg", "erase Data Queue fail."), 0), 0U);
    EXPECT_EQ(log.lines()[1].rfind(linePrefix("executeEraseMsg", "Erase Queue fail."), 0), 0U);
    EXPECT_EQ(log.lines()[2].rfind(linePrefix("executeEraseMsg", "Erase Ctl Queue fail."), 0), 0U);
}

// A frame of 4 bytes has no room for a timer's id.
TEST_F(MsgQueue, AQueuedTimeoutThatDoesNotFitAFrame_IsLoggedByBothScans) {
    LogCapture const log;
    Collector collector;
    ScopedMsgThread thread(0, 4);
    collector.onMsg = [&](int id, int) {
        if (id == FIRST) {
            ASSERT_EQ(thread.postThreadCtlMsg(utl::MSG_ID_CTL_TIMEOUT, 77), 1);
            EXPECT_FALSE(thread.hasMsg(utl::MSG_ID_TIMER));
            EXPECT_FALSE(thread.eraseMsg(utl::MSG_ID_TIMER));
            EXPECT_TRUE(thread.eraseMsgFromCtlQueue(utl::MSG_ID_CTL_TIMEOUT));
        }
    };
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.lines()[0].rfind(linePrefix("executeFindMsg", "Can't store message."), 0), 0U);
    EXPECT_EQ(log.lines()[1].rfind(linePrefix("executeEraseMsg", "Can't store message."), 0), 0U);
}

// With a loop that the test holds.

/// Stays at the end of its life, after the loop, until it is let go.
class LingeringThread : public OpenedMsgThread {
  public:
    using OpenedMsgThread::OpenedMsgThread;
    ~LingeringThread() override {
        gate.open();
        finish();
    }
    Gate gate;

  protected:
    void postExecute() override { EXPECT_TRUE(gate.hold()); }
};

TEST_F(MsgThreadOnStage, EraseMsg_BehindAFrameThatLostItsEntry_FailsWithTheLine) {
    Stage stage;
    stage.start();
    stage.onThread([&] {
        stage.thread.postMsg(NumberMsg(5, 55));
        stage.thread.postMsg(NumberMsg(6, 66));
        EXPECT_TRUE(stage.thread.earseMsgQueue(0, 0, 0));
        EXPECT_FALSE(stage.thread.eraseMsg(6));
        EXPECT_FALSE(stage.thread.eraseMsg(7));
    });
    ASSERT_TRUE(stage.collector.waitFor(2));
    EXPECT_EQ(stage.delivered(), (Delivered{{6, 66}}));
    EXPECT_EQ(countLike(error("MsgDrivenThread::executeEraseMsg(): Data Queue is different from Ctl Queue . "
                              "Line="),
                        " MsgId(Ctl)=6 MsgId(Data)=5 "),
              2U);
    EXPECT_EQ(log.count(error("!!!!!!!! MsgDrivenThread(road) MismatchedMsg... DataQueueMsgId:0x00000005 "
                              "CtlMsgId:0x00000006 Erased Data !!!!!!!!")),
              1U);
    EXPECT_EQ(log.lines().size(), 3U);
}

TEST_F(MsgThreadOnStage, EraseMsg_BehindTheFrameOfARefusedSynchronousMessage_ErasesItsOwn) {
    Stage stage(64, 2);
    stage.start();
    stage.hold();
    EXPECT_EQ(stage.fillCtlQueue(), 2 + utl::MsgDrivenThread::EXTRA_CTL_ENTRIES);
    EXPECT_EQ(stage.thread.sendMsgSync(NumberMsg(5, 55)), 0);  // its frame stays
    EXPECT_TRUE(stage.thread.eraseMsgFromCtlQueue(utl::MSG_ID_CTL_START_TIMER));
    EXPECT_EQ(stage.thread.sendMsgAsync(NumberMsg(6, 66)), 1);
    EXPECT_TRUE(stage.thread.eraseMsgFromCtlQueue(utl::MSG_ID_CTL_START_TIMER));
    std::atomic<bool> erased{false};
    unsigned int const before = hooks::write.calls();
    JoinedThread eraser([&] { erased = stage.thread.eraseMsg(6); });
    waitForTokens(before + 1);
    stage.release();
    eraser.join();
    EXPECT_TRUE(erased);
    stage.settle();
    EXPECT_EQ(stage.delivered(), Delivered());
    EXPECT_EQ(log.count(error("!!!!!!!! MsgDrivenThread(road) MismatchedMsg... DataQueueMsgId:0x00000005 "
                              "CtlMsgId:0x00000006 Erased Data !!!!!!!!")),
              1U);
    EXPECT_EQ(countLike(error("MsgDrivenThread::executeEraseMsg()"), ""), 0U);
}

TEST_F(MsgThreadOnStage, AnEntryWithoutItsFrame_IsPassedOverByAQuestionAndFailsAnErasure) {
    Stage stage;
    stage.start();
    stage.onThread([&] {
        EXPECT_EQ(stage.thread.postThreadCtlMsg(5, -1), 1);
        stage.thread.executeTimeoutSignal(stage.thread.setTimer(LONG, 0, 0, 1));
        EXPECT_TRUE(stage.thread.hasMsg(utl::MSG_ID_TIMER));
        EXPECT_EQ(
            countLike(error("MsgDrivenThread::executeFindMsg(): Peek Data Queue fail. Line="), " MsgId=5"),
            1U);
        EXPECT_FALSE(stage.thread.eraseMsg(utl::MSG_ID_TIMER));
        EXPECT_EQ(
            countLike(error("MsgDrivenThread::executeEraseMsg(): Peek Data Queue fail. Line="), " MsgId=5"),
            1U);
        EXPECT_EQ(log.lines().size(), 2U);
        EXPECT_TRUE(stage.thread.eraseMsgFromCtlQueue(5));
        EXPECT_FALSE(stage.thread.eraseMsgFromCtlQueue(5));
        EXPECT_TRUE(stage.thread.hasMsg(utl::MSG_ID_TIMER));
    });
    stage.settle();
    EXPECT_EQ(stage.delivered(), (Delivered{{utl::MSG_ID_TIMER, 1}}));
    EXPECT_EQ(log.lines().size(), 2U);
}

TEST_F(MsgThreadOnStage, EarseMsgQueue_TakesOnlyPlacesThatAreInUse) {
    Stage stage(8);
    stage.start();
    stage.onThread([&] {
        EXPECT_FALSE(stage.thread.earseMsgQueue(0, 0, 0));
        stage.thread.postThreadCtlMsg(utl::MSG_ID_CTL_START_TIMER, NO_TIMER);
        EXPECT_FALSE(stage.thread.earseMsgQueue(0, 0, 0));  // the entry is there, and no data
        stage.thread.postMsg(1);
        stage.thread.postMsg(2);
        EXPECT_FALSE(stage.thread.earseMsgQueue(0, 24, 12));
        EXPECT_FALSE(stage.thread.earseMsgQueue(3, 0, 12));
        EXPECT_FALSE(stage.thread.earseMsgQueue(UINT_MAX, 0, 12));
        EXPECT_FALSE(stage.thread.earseMsgQueue(0, UINT_MAX, 12));
        EXPECT_TRUE(stage.thread.hasMsg(1));
        EXPECT_TRUE(stage.thread.hasMsg(2));
        EXPECT_TRUE(stage.thread.earseMsgQueue(2, 23, UINT_MAX));  // up to the end of the data
        EXPECT_FALSE(stage.thread.earseMsgQueue(0, 23, 1));
        EXPECT_TRUE(stage.thread.earseMsgQueue(1, 12, 11));
        EXPECT_TRUE(stage.thread.earseMsgQueue(0, 11, 0));  // an entry alone
        EXPECT_FALSE(stage.thread.earseMsgQueue(0, 0, 12));
        EXPECT_EQ(stage.thread.getFirstMsgId(), utl::MSG_ID_NONE);
        stage.thread.postMsg(NumberMsg(3, 33));
    });
    ASSERT_TRUE(stage.collector.waitFor(2));
    EXPECT_EQ(stage.delivered(), (Delivered{{3, 33}}));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{error(
                               "!!!!!!!! MsgDrivenThread(road) MismatchedMsg... DataQueueMsgId:0x00000001 "
                               "CtlMsgId:0x00000003 Erased Data !!!!!!!!")}));
}

TEST_F(MsgThreadOnStage, QuestionsAgainstAFullControlQueue_FailAndLeaveTheThreadWhole) {
    Stage stage;
    stage.start();
    stage.hold();
    EXPECT_EQ(stage.thread.postMsg(NumberMsg(5, 55)), 1);
    EXPECT_EQ(stage.fillCtlQueue(), 16 + utl::MsgDrivenThread::EXTRA_CTL_ENTRIES - 1);
    utl::ThreadRawMsg raw(4);
    EXPECT_FALSE(stage.thread.hasMsg(5));
    EXPECT_FALSE(stage.thread.peekMsg(5, &raw));
    EXPECT_FALSE(stage.thread.eraseMsg(5));
    EXPECT_EQ(stage.thread.getFirstMsgId(), utl::MSG_ID_NONE);
    EXPECT_EQ(stage.thread.sendMsgInterrupt(6), 0);
    EXPECT_EQ(raw.maxSize(), 4U);
    EXPECT_EQ(
        log.count(error("MsgDrivenThread(road) Overflow ThreadCtlMsgQueue  MaxCount:272 MsgId:0x80000004")),
        5U);
    EXPECT_EQ(
        log.count(error("MsgDrivenThread(road) Overflow ThreadCtlMsgQueue  MaxCount:272 MsgId:0x80000006")),
        1U);
    EXPECT_EQ(log.lines().size(), 6U);
    stage.release();
    ASSERT_TRUE(stage.collector.waitFor(2));
    stage.drain();
    EXPECT_EQ(stage.delivered(), (Delivered{{5, 55}}));
    EXPECT_FALSE(stage.thread.hasMsg(5));
}

TEST_F(MsgThreadOnStage, AFrameTooSmallForATimeout_IsLoggedAndHindersNoOtherMessage) {
    Stage stage(3);
    stage.start();
    stage.onThread([&] {
        int const timer = stage.thread.setTimer(LONG, 0, 0, 1);
        stage.thread.executeTimeoutSignal(timer);
        stage.thread.postMsg(5);
        EXPECT_TRUE(stage.thread.hasMsg(5));
        EXPECT_EQ(countWith("<UTIL> ERR: MsgDrivenThread::executeFindMsg(): Can't store message. Line="), 1U);
        EXPECT_FALSE(stage.thread.eraseMsg(5));
        EXPECT_EQ(countWith("<UTIL> ERR: MsgDrivenThread::executeEraseMsg(): Can't store message. Line="),
                  1U);
        EXPECT_EQ(log.lines().size(), 2U);
    });
    stage.settle();
    EXPECT_EQ(log.count(error("!!!!!!!! MsgDrivenThread(road) Error. MsgId:0x80000008 !!!!!!!!")), 1U);
    ASSERT_EQ(stage.delivered().size(), 1U);
    EXPECT_EQ(stage.delivered()[0].first, 5);
}

TEST_F(MsgThreadOnStage, AnInterruptThatKillsTheTimerAtTheHead_TakesNoOtherMessageWithIt) {
    Stage stage;
    stage.start();
    int timer = -1;
    stage.onOther = [&](int id, int) {
        if (id == 50) {
            EXPECT_TRUE(stage.thread.killTimer(timer));
        }
    };
    stage.hold(0, [&] {
        timer = stage.thread.setTimer(LONG, 0, 0, 1);
        stage.thread.executeTimeoutSignal(timer);
        stage.thread.postMsg(NumberMsg(6, 66));
        stage.thread.postMsg(NumberMsg(7, 77));
    });
    stage.interruptHeldLoop();
    EXPECT_EQ(stage.delivered(), (Delivered{{50, 0}, {6, 66}, {7, 77}}));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(MsgThreadOnStage, AnInterruptThatReplacesTheHeadByANewMessageOfItsId_LosesNoneBetween) {
    Stage stage;
    stage.start();
    stage.onOther = [&](int id, int) {
        if (id == 50) {
            EXPECT_TRUE(stage.thread.eraseMsg(5));
            EXPECT_EQ(stage.thread.postMsg(NumberMsg(5, 2)), 1);
        }
    };
    stage.hold(0, [&] {
        stage.thread.postMsg(NumberMsg(5, 1));
        stage.thread.postMsg(NumberMsg(6, 66));
    });
    stage.interruptHeldLoop();
    EXPECT_EQ(stage.delivered(), (Delivered{{50, 0}, {6, 66}, {5, 2}}));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(MsgThreadOnStage, AnInterruptThatErasesASynchronousHead_FreesItsSenderAndDeliversTheRestOnce) {
    Stage stage;
    stage.start();
    stage.onOther = [&](int id, int) {
        if (id == 50) {
            EXPECT_TRUE(stage.thread.eraseMsg(8));
        }
    };
    stage.hold();
    unsigned int const before = hooks::write.calls();
    JoinedThread syncSender([&] { EXPECT_EQ(stage.thread.sendMsgSync(NumberMsg(8, 88)), 0); });
    waitForTokens(before + 1);
    EXPECT_EQ(stage.thread.postMsg(NumberMsg(6, 66)), 1);
    JoinedThread sender([&] { EXPECT_EQ(stage.thread.sendMsgInterrupt(NumberMsg(50, 0)), 1); });
    waitForTokens(before + 3);
    stage.release();
    syncSender.join();
    sender.join();
    stage.settle();
    EXPECT_EQ(stage.delivered(), (Delivered{{50, 0}, {6, 66}}));
}

TEST_F(MsgThreadOnStage, RequestsOfAllKindsAtOnce_AreServedInterruptFirstThenErasureThenQuestion) {
    Stage stage;
    stage.start();
    stage.onOther = [&](int id, int) {
        if (id == 50) {
            EXPECT_EQ(stage.thread.postMsg(7), 1);
        }
    };
    stage.hold(0, [&] { stage.thread.postMsg(NumberMsg(5, 55)); });
    unsigned int const before = hooks::write.calls();
    JoinedThread finder([&] {
        NotingJudgement all(utl::MSG_ID_NONE);
        EXPECT_FALSE(stage.thread.hasMsgInternal(&all));
        EXPECT_EQ(all.ids, (std::vector<int>{5}));
    });
    waitForTokens(before + 1);
    JoinedThread eraser([&] { EXPECT_TRUE(stage.thread.eraseMsg(7)); });
    waitForTokens(before + 2);
    JoinedThread sender([&] { EXPECT_EQ(stage.thread.sendMsgInterrupt(NumberMsg(50, 0)), 1); });
    waitForTokens(before + 3);
    stage.release();
    finder.join();
    eraser.join();
    sender.join();
    stage.settle();
    EXPECT_EQ(stage.delivered(), (Delivered{{50, 0}, {5, 55}}));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(MsgThreadOnStage, WhoWaitsWhenTheLoopEnds_GetsFailureExceptForTheErasure) {
    Stage stage;
    stage.start();
    stage.hold(0, [&] { stage.thread.postMsg(5); });
    unsigned int before = hooks::write.calls();
    std::vector<std::function<void()>> const requests = {
        [&] { EXPECT_EQ(stage.thread.sendMsgSync(6), 0); },
        [&] { EXPECT_EQ(stage.thread.sendMsgInterrupt(7), 0); },
        [&] { EXPECT_TRUE(stage.thread.eraseMsg(5)); },
        [&] { EXPECT_FALSE(stage.thread.hasMsg(5)); },
    };
    std::vector<std::unique_ptr<JoinedThread>> helpers;
    for (auto const& request : requests) {
        helpers.push_back(std::make_unique<JoinedThread>(request));
        waitForTokens(++before);
    }
    EXPECT_EQ(stage.thread.stop(0, 0), 0);
    stage.release();
    helpers.clear();
    EXPECT_EQ(stage.thread.waitTo(3, 0), 0);
    EXPECT_TRUE(stage.delivered().empty());
    EXPECT_FALSE(stage.thread.hasMsg(5));
    EXPECT_FALSE(stage.thread.eraseMsg(5));
    EXPECT_EQ(stage.thread.getFirstMsgId(), utl::MSG_ID_NONE);
}

TEST_F(MsgThreadOnStage, TheHookOfAnErasedTimeout_MayAskEraseSetTimersAndWaitForSenders) {
    Stage stage(64, 16, 1);
    stage.start();
    int second = -1;
    stage.thread.onErase = [&](int, int timer) {
        if (timer != 1) {
            return;
        }
        EXPECT_TRUE(stage.thread.hasMsg(6));
        EXPECT_TRUE(stage.thread.eraseMsg(6));
        second = stage.thread.setTimer(LONG, 0, 1, 1);
        JoinedThread([&] { EXPECT_EQ(stage.thread.sendMsgAsync(NumberMsg(7, 77)), 1); }).join();
    };
    stage.hold(0, [&] {
        stage.thread.executeTimeoutSignal(stage.thread.setTimer(LONG, 0, 1, 1));
        stage.thread.postMsg(5);
        stage.thread.postMsg(6);
    });
    unsigned int const before = hooks::write.calls();
    JoinedThread eraser([&] { EXPECT_TRUE(stage.thread.eraseMsg(utl::MSG_ID_TIMER)); });
    waitForTokens(before + 1);
    stage.release();
    eraser.join();
    stage.settle();
    EXPECT_EQ(second, 2);
    ASSERT_EQ(stage.delivered().size(), 2U);
    EXPECT_EQ(stage.delivered()[0].first, 5);
    EXPECT_EQ(stage.delivered()[1], std::make_pair(7, 77));
    EXPECT_EQ(stage.thread.erasingThreads(), (std::vector<int>{stage.thread.getId()}));
    EXPECT_TRUE(stage.thread.killTimer(second));
}

TEST_F(MsgThreadOnStage, NobodyWaitsForALoopThatBroke_WhileItsThreadStillRuns) {
    Collector collector;
    LingeringThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.registerTimer(LONG), 1);
    hooks::read.failFrom(1, 1, -1, EIO);
    thread.postMsg(5);
    ASSERT_TRUE(thread.gate.waitUntilHeld());
    EXPECT_TRUE(thread.isRunning());
    EXPECT_FALSE(thread.hasRequestedStop());
    EXPECT_EQ(thread.sendMsgSync(6), 0);
    EXPECT_EQ(thread.sendMsgInterrupt(6), 0);
    EXPECT_FALSE(thread.hasMsg(5));
    EXPECT_EQ(thread.getFirstMsgId(), utl::MSG_ID_NONE);
    EXPECT_EQ(thread.setTimer(LONG, 0), -1);
    int const timer = thread.registerTimer(LONG);
    EXPECT_FALSE(thread.startTimer(timer, 0));
    thread.killTimer(timer, 0);
    thread.eraseMsg(5);
    thread.setTimer(LONG, 1);
    thread.gate.open();
    EXPECT_EQ(thread.waitTo(3, 0), 0);
    EXPECT_TRUE(thread.leaveManagement());
    EXPECT_EQ(hooks::timerCreate.calls(), hooks::timerDelete.calls());
}

TEST_F(MsgThreadOnStage, AHookThatWantsAnotherTimerWhileTheLoopBreaks_LeavesNothingBehind) {
    Stage stage;
    stage.start();
    stage.thread.onErase = [&](int, int) { stage.thread.setTimer(LONG); };
    stage.hold(0, [&] {
        EXPECT_EQ(stage.thread.setTimer(LONG), 1);
        EXPECT_EQ(stage.thread.setTimer(LONG), 2);
    });
    hooks::read.failFrom(1, 1, -1, EIO);
    stage.release();
    EXPECT_EQ(stage.thread.waitTo(3, 0), 0);
    EXPECT_EQ(stage.thread.erasedTimers(), (std::vector<int>{2, 1}));
    EXPECT_EQ(hooks::timerCreate.calls(), 2U);
    EXPECT_EQ(hooks::timerDelete.calls(), 2U);
    EXPECT_EQ(stage.thread.remTimerIdCount(), 4U);
}

// Erasures, while which judgements may look at any moment.

using MsgErasure = WithoutWatchdogThread;

TEST_F(MsgErasure, AQuestionOfAJudgement_FindsWhatIsLeftAtThatMoment) {
    HeldErasingThread road(6);
    std::vector<std::vector<int>> seen;
    road.run([&] {
        EXPECT_TRUE(eraseIf(road.thread, [&](utl::ThreadRawMsg& raw) {
            bool const isErased = numberOf(raw) % 2 == 0;
            seen.push_back(queuedNumbers(road.thread));
            return isErased;
        }));
        seen.push_back(queuedNumbers(road.thread));
    });
    EXPECT_EQ(seen, (std::vector<std::vector<int>>{{0, 1, 2, 3, 4, 5},
                                                   {1, 2, 3, 4, 5},
                                                   {1, 2, 3, 4, 5},
                                                   {1, 3, 4, 5},
                                                   {1, 3, 4, 5},
                                                   {1, 3, 5},
                                                   {1, 3, 5}}));
}

TEST_F(MsgErasure, APeekOfAJudgement_GivesTheFirstOfWhatIsLeft) {
    HeldErasingThread road(4);
    road.run([&] {
        EXPECT_TRUE(eraseIf(road.thread, [&](utl::ThreadRawMsg& raw) {
            int const number = numberOf(raw);
            utl::ThreadRawMsg first(4);
            EXPECT_TRUE(road.thread.peekMsg(FIRST, &first));
            EXPECT_EQ(numberOf(first), number) << "all those in front have been erased";
            EXPECT_EQ(road.thread.getFirstMsgId(), FIRST);
            return true;
        }));
        EXPECT_FALSE(road.thread.hasMsg(utl::MSG_ID_ANY));
    });
}

TEST_F(MsgErasure, AnErasureOfAJudgement_TakesItsOwnOutOfWhatIsLeft) {
    HeldErasingThread road(8);
    std::vector<int> judged;
    road.run([&] {
        EXPECT_TRUE(eraseIf(road.thread, [&](utl::ThreadRawMsg& raw) {
            int const number = numberOf(raw);
            judged.push_back(number);
            if (number == 3) {
                EXPECT_TRUE(
                    eraseIf(road.thread, [](utl::ThreadRawMsg& inner) { return numberOf(inner) >= 5; }));
                EXPECT_EQ(queuedNumbers(road.thread), (std::vector<int>{1, 3, 4}));
            }
            return number % 2 == 0;
        }));
        EXPECT_EQ(queuedNumbers(road.thread), (std::vector<int>{1, 3}));
    });
    EXPECT_EQ(judged, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST_F(MsgErasure, AJudgementThatThrows_LeavesBothQueuesWhole) {
    HeldErasingThread road(6);
    road.run([&] {
        EXPECT_THROW(eraseIf(road.thread,
                             [](utl::ThreadRawMsg& raw) {
                                 if (numberOf(raw) == 4) {
                                     throw std::runtime_error("judgement");
                                 }
                                 return numberOf(raw) % 2 == 0;
                             }),
                     std::runtime_error);
        EXPECT_EQ(queuedNumbers(road.thread), (std::vector<int>{1, 3, 4, 5}));
    });
    EXPECT_EQ(road.thread.sendMsgSync(SECOND), 1);
    std::vector<Collector::Received> const received = road.collector.received();
    ASSERT_EQ(received.size(), 6U);
    EXPECT_EQ(received[1].number, 1);
    EXPECT_EQ(received[4].number, 5);
}

TEST_F(MsgErasure, AnErasureThatFails_LeavesBothQueuesWhole) {
    LogCapture const log;
    HeldErasingThread road(5);
    road.run([&] {
        ASSERT_EQ(road.thread.postThreadCtlMsg(SECOND, -1), 1);
        EXPECT_FALSE(eraseIf(road.thread, [](utl::ThreadRawMsg& raw) { return numberOf(raw) % 2 == 0; }));
        EXPECT_TRUE(road.thread.eraseMsgFromCtlQueue(SECOND));
        EXPECT_EQ(queuedNumbers(road.thread), (std::vector<int>{1, 3}));
        EXPECT_EQ(ThreadAccess::queues(road.thread).frames.size(), 2 * FRAME);
    });
    EXPECT_EQ(log.lines().size(), 1U);
}

// It must not, but nothing is lost if it does; and the place of an erased message is free at once.
TEST_F(MsgErasure, AJudgementThatPosts_FindsThePlacesOfThoseErased) {
    LogCapture const log;
    HeldErasingThread road(16, 16);
    road.run([&] {
        EXPECT_TRUE(eraseIf(road.thread, [&](utl::ThreadRawMsg& raw) {
            int const number = numberOf(raw);
            EXPECT_EQ(road.thread.postMsg(NumberMsg(SECOND, 100 + number)), number == 0 ? 0 : 1);
            return true;
        }));
        std::vector<int> expected;
        for (int number = 1; number < 16; ++number) {
            expected.push_back(100 + number);
        }
        EXPECT_EQ(queuedNumbers(road.thread), expected) << "the scan is no longer than the queue was";
    });
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "<UTIL> ERR: MsgDrivenThread(eraser) Overflow MsgDataQueue  MaxCount:16 "
                               "MsgId:0x00000065"}));
}

TEST_F(MsgErasure, AJudgementThatKillsATimer_TakesItsTimeoutsOutAndNothingElse) {
    HeldErasingThread road(4);
    road.run([&] {
        int const timer = road.thread.setTimer(0);
        ASSERT_EQ(road.thread.postThreadCtlMsg(utl::MSG_ID_CTL_TIMEOUT, timer), 1);
        ASSERT_EQ(road.thread.postThreadCtlMsg(utl::MSG_ID_CTL_TIMEOUT, UNKNOWN_TIMER), 1);
        ASSERT_EQ(road.thread.postMsg(NumberMsg(SECOND, 4)), 1);
        EXPECT_TRUE(eraseIf(road.thread, [&](utl::ThreadRawMsg& raw) {
            int const number = numberOf(raw);
            if (number == 2 && idOf(raw) == FIRST) {
                EXPECT_TRUE(road.thread.killTimer(timer));
            }
            return number % 2 == 0;
        }));
        EXPECT_EQ(queuedNumbers(road.thread), (std::vector<int>{1, 3, UNKNOWN_TIMER}));
    });
}

TEST_F(MsgErasure, ErasedTimeoutsBetweenErasedMessages_LeaveTheOthersWithTheirFrames) {
    HeldErasingThread road(0, 64);
    road.run([&] {
        int const timer = road.thread.setTimer(0, 0, 0, 0);
        std::vector<int> kept;
        for (int i = 0; i < 20; ++i) {
            int const timeoutOf = i % 2 == 0 ? UNKNOWN_TIMER : timer;
            ASSERT_EQ(road.thread.postMsg(NumberMsg(i % 3 == 0 ? FIRST : SECOND, 1000 + i)), 1);
            ASSERT_EQ(road.thread.postThreadCtlMsg(utl::MSG_ID_CTL_TIMEOUT, timeoutOf), 1);
            if (i % 3 != 0) {
                kept.push_back(1000 + i);
            }
        }
        EXPECT_TRUE(eraseIf(road.thread, [&](utl::ThreadRawMsg& raw) { return idOf(raw) != SECOND; }));
        EXPECT_EQ(queuedNumbers(road.thread), kept);
        EXPECT_TRUE(road.thread.killTimer(timer));
    });
}

TEST_F(MsgErasure, TheHookOfATimerThatEnded_FindsBothQueuesWhole) {
    HeldErasingThread road(4);
    std::vector<int> queued;
    road.thread.onErase = [&](int, int) { queued = queuedNumbers(road.thread); };
    road.run([&] {
        int const timer = road.thread.setTimer(0, 0, 1);
        ASSERT_EQ(road.thread.postThreadCtlMsg(utl::MSG_ID_CTL_TIMEOUT, timer), 1);
        ASSERT_EQ(road.thread.postMsg(NumberMsg(SECOND, 4)), 1);
        EXPECT_TRUE(eraseIf(road.thread, [](utl::ThreadRawMsg& raw) {
            return idOf(raw) != FIRST || numberOf(raw) % 2 == 0;
        }));
        EXPECT_EQ(road.thread.erasedTimers(), std::vector<int>{timer});
        EXPECT_EQ(queuedNumbers(road.thread), (std::vector<int>{1, 3}));
    });
    EXPECT_EQ(queued, (std::vector<int>{1, 3, 4}));
}

TEST_F(MsgErasure, AShortFrameBehindErasedOnes_KeepsItsBytes) {
    HeldErasingThread road(4);
    road.run([&] {
        ASSERT_EQ(road.thread.postThreadCtlMsg(utl::MSG_ID_CTL_START_TIMER, UNKNOWN_TIMER), 1);
        ASSERT_TRUE(road.thread.earseMsgQueue(4, 4 * FRAME - 3, 3)) << "the end of the last frame";
        std::vector<unsigned char> const before = ThreadAccess::queues(road.thread).frames;
        std::vector<unsigned char> expected(before.begin() + FRAME, before.begin() + 2 * FRAME);
        expected.insert(expected.end(), before.begin() + 3 * FRAME, before.end());
        int judged = 0;
        EXPECT_TRUE(eraseIf(road.thread, [&](utl::ThreadRawMsg&) { return judged++ % 2 == 0; }));
        EXPECT_EQ(judged, 4);
        EXPECT_EQ(ThreadAccess::queues(road.thread).frames, expected);
        EXPECT_EQ(ThreadAccess::queues(road.thread).entries.size(), 2U);
    });
}

TEST_F(MsgErasure, AQuestionOfAJudgementToAnotherThread_LeavesTheErasureAlone) {
    Collector others;
    ScopedMsgThread other(4, 16, "other");
    ASSERT_EQ(other.start(&others), 0);
    HeldErasingThread road(6);
    road.run([&] {
        EXPECT_TRUE(eraseIf(road.thread, [&](utl::ThreadRawMsg& raw) {
            bool const isErased = numberOf(raw) % 2 == 0;
            EXPECT_FALSE(other.hasMsg(FIRST));
            EXPECT_TRUE(other.eraseMsg(FIRST));
            return isErased;
        }));
        EXPECT_EQ(queuedNumbers(road.thread), (std::vector<int>{1, 3, 5}));
    });
}

}  // namespace

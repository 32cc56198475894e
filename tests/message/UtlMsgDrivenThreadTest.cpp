#include "UtlMsgDrivenThread.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <future>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <type_traits>

#include "TestAllocations.h"
#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestThreads.h"
#include "UtlThreadManager.h"

using namespace utltest;

namespace {

constexpr int FIRST = 100;
constexpr int SECOND = 101;
constexpr int THIRD = 102;

using MsgDrivenThread = WithoutWatchdogThread;

static_assert(utl::MsgDrivenThread::SEND_REFUSED == 0 && utl::MsgDrivenThread::SEND_DONE == 1);
static_assert(utl::MsgDrivenThread::EXTRA_CTL_ENTRIES == 256);
static_assert(!std::is_copy_constructible_v<utl::MsgDrivenThread> &&
              !std::is_copy_assignable_v<utl::MsgDrivenThread>);
static_assert(!std::is_copy_constructible_v<utl::AutoStop<utl::MsgDrivenThread>> &&
              !std::is_copy_assignable_v<utl::AutoStop<utl::MsgDrivenThread>>);
static_assert(std::is_nothrow_constructible_v<utl::AutoStop<utl::MsgDrivenThread>, utl::MsgDrivenThread&> &&
              std::is_nothrow_destructible_v<utl::AutoStop<utl::MsgDrivenThread>>);

TEST_F(MsgDrivenThread, AutoStop_AtTheEndOfItsScope_HasEndedTheThreadAndReleasedItsPlace) {
    Collector collector;
    utl::MsgDrivenThread thread(64, 16, "scoped");
    {
        utl::AutoStop const stopping(thread);
        ASSERT_EQ(thread.start(&collector), 0);
        ASSERT_EQ(thread.sendMsgSync(FIRST), utl::MsgDrivenThread::SEND_DONE);
    }
    EXPECT_TRUE(thread.hasDone(utl::Thread::FINISHED));
    EXPECT_FALSE(utl::ThreadManager::get()->isThreadExist(thread.getId()));
    EXPECT_EQ(thread.postMsg(FIRST), utl::MsgDrivenThread::SEND_REFUSED);
}

TEST_F(MsgDrivenThread, AutoStop_OfAThreadThatWasNotStarted_LeavesItToBeStarted) {
    Collector collector;
    ScopedMsgThread thread;
    { utl::AutoStop const stopping(thread); }
    EXPECT_EQ(thread.start(&collector), 0);
}

TEST_F(MsgDrivenThread, PostMsg_IsDeliveredWithItsFieldsOnTheMessageThread) {
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    int handlerThread = 0;
    collector.onMsg = [&](int, int) { handlerThread = utl::ThreadManager::getCallerId(); };
    EXPECT_EQ(thread.sendMsgSync(NumberMsg(FIRST, -77)), 1);
    ASSERT_EQ(collector.received().size(), 1U);
    EXPECT_EQ(collector.received()[0], (Collector::Received{thread.getId(), FIRST, -77}));
    EXPECT_EQ(handlerThread, thread.getId());
    EXPECT_NE(handlerThread, utl::ThreadManager::getCallerId());
}

TEST_F(MsgDrivenThread, PostMsg_ManyMessages_ArriveInTheOrderOfTheirPosts) {
    HeldMsgThread road(64, 300);
    road.startAndBlock();
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(road.thread.postMsg(NumberMsg(FIRST, i)), 1);
    }
    road.gate.open();
    ASSERT_TRUE(road.collector.waitFor(301));
    std::vector<Collector::Received> const received = road.collector.received();
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(received[static_cast<size_t>(i) + 1].number, i);
    }
}

TEST_F(MsgDrivenThread, PostMsg_FromManyThreads_EachAcceptedMessageArrivesOnce) {
    LogCapture const log;
    Collector collector;
    ScopedMsgThread thread(64, 32);
    ASSERT_EQ(thread.start(&collector), 0);
    constexpr int PER_SENDER = 500;
    std::atomic<int> accepted{0};
    std::vector<std::thread> senders;
    for (int sender = 0; sender < 4; ++sender) {
        senders.emplace_back([&, sender] {
            for (int i = 0; i < PER_SENDER; ++i) {
                accepted += thread.postMsg(NumberMsg(sender, i));
            }
        });
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    ASSERT_TRUE(collector.waitFor(static_cast<size_t>(accepted)));
    EXPECT_EQ(thread.sendMsgSync(BLOCKER), 1);
    EXPECT_EQ(collector.received().size(), static_cast<size_t>(accepted) + 1);
    std::vector<int> next(4, -1);
    for (Collector::Received const& one : collector.received()) {
        if (one.id != BLOCKER) {
            EXPECT_GT(one.number, next[static_cast<size_t>(one.id)]);
            next[static_cast<size_t>(one.id)] = one.number;
        }
    }
}

TEST_F(MsgDrivenThread, PostMsg_ById_CarriesTheIdAlone) {
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.postMsg(-1), 1);
    EXPECT_EQ(thread.postMsg(INT_MAX), 1);
    EXPECT_EQ(thread.postMsg(utl::MSG_ID_CLIENT_FIRST), 1);
    ASSERT_TRUE(collector.waitFor(3));
    EXPECT_EQ(collector.ids(), (std::vector<int>{-1, INT_MAX, utl::MSG_ID_CLIENT_FIRST}));
}

TEST_F(MsgDrivenThread, PostMsg_BeforeTheStartAndAfterTheEnd_IsRefused) {
    Collector collector;
    ScopedMsgThread thread;
    EXPECT_EQ(thread.postMsg(FIRST), 0);
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.stop(1, 0), 0);
    EXPECT_EQ(thread.postMsg(FIRST), 0);
    EXPECT_EQ(thread.postMsg(NumberMsg(FIRST)), 0);
    EXPECT_TRUE(collector.received().empty());
}

TEST_F(MsgDrivenThread, SendMsgAsync_BeforeTheStart_WaitsForTheThread) {
    Collector collector;
    ScopedMsgThread thread;
    EXPECT_EQ(thread.sendMsgAsync(NumberMsg(FIRST, 1)), 1);
    EXPECT_EQ(thread.sendMsgAsync(NumberMsg(SECOND, 2)), 1);
    ASSERT_EQ(thread.start(&collector), 0);
    ASSERT_TRUE(collector.waitFor(2));
    EXPECT_EQ(collector.ids(), (std::vector<int>{FIRST, SECOND}));
}

TEST_F(MsgDrivenThread, TheFirstHandlerOfAThreadThatWasPostedToBeforeItsStart_KnowsItsId) {
    for (int round = 0; round < 50; ++round) {
        Collector collector;
        ScopedMsgThread thread;
        std::atomic<int> seenId{0};
        collector.onMsg = [&](int, int) { seenId = thread.getId(); };
        ASSERT_EQ(thread.sendMsgAsync(NumberMsg(FIRST)), 1);
        ASSERT_EQ(thread.start(&collector, 0, 0, nullptr, 0), 0);
        ASSERT_TRUE(collector.waitFor(1));
        thread.finish();
        EXPECT_EQ(seenId, thread.getId());
        EXPECT_EQ(collector.received()[0].threadId, thread.getId());
    }
}

TEST_F(MsgDrivenThread, Start_ASecondTime_ReturnsMinusOne) {
    Collector collector;
    ScopedMsgThread thread;
    EXPECT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.start(&collector), -1);
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    thread.stop(1, 0);
    EXPECT_EQ(thread.start(&collector), -1);
}

TEST_F(MsgDrivenThread, Start_WithANullListener_ReturnsMinusOneAndLeavesTheStartOpen) {
    Collector collector;
    ScopedMsgThread thread;
    EXPECT_EQ(thread.start(nullptr), -1);
    EXPECT_EQ(thread.start(&collector), 0);
}

TEST_F(MsgDrivenThread, Start_WhoseThreadCannotBeCreated_ReturnsMinusOneForGood) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread;
    utl::ThreadManager::get();
    hooks::threadCreate.failFrom(1, 1, EAGAIN, 0);
    EXPECT_EQ(thread.start(&collector), -1);
    EXPECT_EQ(thread.start(&collector), -1);
}

TEST_F(MsgDrivenThread, StartAndStop_OnTheThreadItself_ReturnMinusOne) {
    Collector collector;
    ScopedMsgThread thread;
    int startResult = 0;
    int stopResult = 0;
    collector.onMsg = [&](int, int) {
        startResult = thread.start(&collector);
        stopResult = thread.stop(0, 0);
    };
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(startResult, -1);
    EXPECT_EQ(stopResult, -1);
    EXPECT_FALSE(thread.hasRequestedStop());
}

TEST_F(MsgDrivenThread, Stop_BeforeTheStartAndASecondTime_ReturnsMinusOne) {
    Collector collector;
    ScopedMsgThread thread;
    EXPECT_EQ(thread.stop(1, 0), -1);
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.stop(1, 0), 0);
    EXPECT_EQ(thread.stop(1, 0), -1);
    unsigned int result = 1;
    EXPECT_TRUE(thread.getResult(&result));
    EXPECT_EQ(result, 0U);
}

TEST_F(MsgDrivenThread, Stop_LeavesQueuedMessagesUndelivered) {
    HeldMsgThread road;
    road.startAndBlock();
    ASSERT_EQ(road.thread.postMsg(FIRST), 1);
    ASSERT_EQ(road.thread.postMsg(SECOND), 1);
    EXPECT_EQ(road.thread.stop(0, 0), 0);
    road.gate.open();
    EXPECT_EQ(road.thread.waitTo(3, 0), 0);
    EXPECT_EQ(road.collector.ids(), (std::vector<int>{BLOCKER}));
}

TEST_F(MsgDrivenThread, AMessageOfExactlyTheMaximum_FitsAndOneByteMoreIsRefusedWithALine) {
    LogCapture log;
    HeldMsgThread road(8, 4, "sizes");
    road.startAndBlock();
    EXPECT_EQ(road.thread.postMsg(BytesMsg(FIRST, 7)), 1);
    EXPECT_EQ(road.thread.postMsg(BytesMsg(FIRST, 8)), 1);
    EXPECT_TRUE(log.lines().empty());
    std::string const line =
        "<UTIL> ERR: MsgDrivenThread(sizes) Overflow MsgSize  MaxSize(include MsgId):12 MsgId:0x00000064";
    EXPECT_EQ(road.thread.postMsg(BytesMsg(FIRST, 9)), 0);
    EXPECT_EQ(log.count(line), 1U);
    EXPECT_EQ(road.thread.sendMsgSync(BytesMsg(FIRST, 9)), 0);
    EXPECT_EQ(log.count(line), 2U);
    EXPECT_EQ(road.thread.sendMsgInterrupt(BytesMsg(FIRST, 9)), 0);
    EXPECT_EQ(log.count(line), 3U);
    EXPECT_EQ(log.lines().size(), 3U);
    road.gate.open();
    EXPECT_TRUE(road.collector.waitFor(3));
}

TEST_F(MsgDrivenThread, AFullDataQueue_IsAnErrorOnceAndADetailUntilAMessageWasDelivered) {
    LogCapture log;
    HeldMsgThread road(8, 3, "full");
    road.startAndBlock();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(road.thread.postMsg(NumberMsg(FIRST, i)), 1);
    }
    std::string const text = "MsgDrivenThread(full) Overflow MsgDataQueue  MaxCount:3 MsgId:0x00000065";
    EXPECT_EQ(road.thread.postMsg(SECOND), 0);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"<UTIL> ERR: " + text}));
    EXPECT_EQ(road.thread.postMsg(SECOND), 0);
    EXPECT_EQ(road.thread.sendMsgSync(SECOND), 0);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"<UTIL> ERR: " + text, "<UTIL> DTL: " + text,
                                                     "<UTIL> DTL: " + text}));

    // The handler blocks again after the next delivery, with one place free.
    Gate again;
    road.onOther = [&](int, int) { again.wait(); };
    road.gate.open();
    ASSERT_TRUE(road.collector.waitFor(2));
    log.clear();
    EXPECT_EQ(road.thread.postMsg(THIRD), 1);
    EXPECT_EQ(road.thread.postMsg(SECOND), 0);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"<UTIL> ERR: " + text}));
    again.open();
    ASSERT_TRUE(road.collector.waitFor(5));
}

TEST_F(MsgDrivenThread, AFullDataQueue_StillTakesAStopAndAnInterrupt) {
    HeldMsgThread road(8, 1);
    road.startAndBlock();
    ASSERT_EQ(road.thread.postMsg(FIRST), 1);
    LogCapture log;
    ASSERT_EQ(road.thread.postMsg(FIRST), 0);
    std::future<int> interrupt =
        std::async(std::launch::async, [&] { return road.thread.sendMsgInterrupt(NumberMsg(SECOND)); });
    road.gate.open();
    EXPECT_EQ(interrupt.get(), 1);
    EXPECT_EQ(road.thread.stop(1, 0), 0);
}

TEST_F(MsgDrivenThread, PostThreadCtlMsg_TheControlQueueHasTwoHundredFiftySixPlacesMoreThanFrames) {
    LogCapture log;
    ScopedMsgThread thread(8, 3, "ctl");
    for (int i = 0; i < 259; ++i) {
        ASSERT_EQ(thread.postThreadCtlMsg(utl::MSG_ID_CTL_WAKE, -1), 1);
    }
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(thread.postThreadCtlMsg(utl::MSG_ID_CTL_WAKE, -1), 0);
    EXPECT_EQ(thread.sendMsgAsync(NumberMsg(FIRST)), 0);
    EXPECT_EQ(
        log.lines(),
        (std::vector<std::string>{
            "<UTIL> ERR: MsgDrivenThread(ctl) Overflow ThreadCtlMsgQueue  MaxCount:259 MsgId:0x80000004",
            "<UTIL> ERR: MsgDrivenThread(ctl) Overflow ThreadCtlMsgQueue  MaxCount:259 MsgId:0x00000064"}));
}

TEST_F(MsgDrivenThread, PostThreadCtlMsg_AFailedWrite_IsLoggedAndTheFrameIsTakenBack) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread(8, 1, "lost");
    hooks::write.failFrom(1, 1, -1, EPIPE);
    EXPECT_EQ(thread.sendMsgAsync(NumberMsg(FIRST, 1)), 0);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  "<UTIL> ERR: MsgDrivenThread(lost)::postThreadCtlMsg() Error. write Ret:4294967295 errno:" +
                  std::to_string(EPIPE)}));
    // The one frame that fits is free again.
    EXPECT_EQ(thread.sendMsgAsync(NumberMsg(FIRST, 2)), 1);
    ASSERT_EQ(thread.start(&collector), 0);
    ASSERT_TRUE(collector.waitFor(1));
    EXPECT_EQ(collector.received()[0].number, 2);
}

TEST_F(MsgDrivenThread, PostThreadCtlMsg_AShortWrite_IsAFailure) {
    HookScope const scope;
    LogCapture log;
    ScopedMsgThread thread(8, 1, "short");
    hooks::write.failFrom(1, 1, 4, 0);
    EXPECT_EQ(thread.postThreadCtlMsg(FIRST, -1), 0);
    EXPECT_EQ(log.count("<UTIL> ERR: MsgDrivenThread(short)::postThreadCtlMsg() Error. write Ret:4 errno:0"),
              1U);
}

TEST_F(MsgDrivenThread, Pipe_ThatCannotBeHad_IsLoggedAndTheLoopEndsAtOnce) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    hooks::pipe.failFrom(1, 1, -1, EMFILE);
    ScopedMsgThread thread(8, 1, "nopipe");
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"<UTIL> ERR: MsgDrivenThread(nopipe) pipe errno:" +
                                                     std::to_string(EMFILE)}));
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.waitTo(3, 0), 0);
    EXPECT_EQ(log.count("<UTIL> ERR: MsgDrivenThread(nopipe) Error. read Ret:4294967295 errno:" +
                        std::to_string(EBADF) + " !!Break msg loop!!"),
              1U);
    unsigned int result = 0;
    EXPECT_TRUE(thread.getResult(&result));
    EXPECT_EQ(result, 0xFFFFFFFFU);
}

TEST_F(MsgDrivenThread, Read_Interrupted_IsLoggedAndRepeated) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread(8, 1, "again");
    hooks::read.failFrom(1, 3, -1, EINTR);
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(log.count("<UTIL> INF: MsgDrivenThread(again) Error. read Ret:4294967295 errno:" +
                        std::to_string(EINTR) + "=EINTR Retry read"),
              3U);
}

TEST_F(MsgDrivenThread, Read_ThatFails_IsLoggedAndEndsTheLoopWithMinusOne) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread(8, 4, "broken");
    ASSERT_EQ(thread.sendMsgAsync(NumberMsg(FIRST)), 1);
    hooks::read.failFrom(1, 0, -1, EIO);
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.waitTo(3, 0), 0);
    EXPECT_EQ(
        log.lines(),
        (std::vector<std::string>{"<UTIL> ERR: MsgDrivenThread(broken) Error. read Ret:4294967295 errno:" +
                                  std::to_string(EIO) + " !!Break msg loop!!"}));
    unsigned int result = 0;
    EXPECT_TRUE(thread.getResult(&result));
    EXPECT_EQ(result, 0xFFFFFFFFU);
    EXPECT_TRUE(collector.received().empty());
}

// A stale EINTR in errno must not turn a closed pipe into an endless retry.
TEST_F(MsgDrivenThread, Read_ThatGivesFewerBytes_EndsTheLoop) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread(8, 4, "few");
    hooks::read.replace(+[](int, void*, size_t) -> ssize_t { return 0; });
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.waitTo(3, 0), 0);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  "<UTIL> ERR: MsgDrivenThread(few) Error. read Ret:0 errno:0 !!Break msg loop!!"}));
}

TEST_F(MsgDrivenThread, SendMsgSync_ReturnsAfterTheListenerHasReturned) {
    HeldMsgThread road;
    std::atomic<bool> handled{false};
    road.onOther = [&](int, int) { handled = true; };
    road.startAndBlock();
    std::future<int> sent =
        std::async(std::launch::async, [&] { return road.thread.sendMsgSync(NumberMsg(FIRST, 5)); });
    road.gate.open();
    EXPECT_EQ(sent.get(), 1);
    EXPECT_TRUE(handled);
    EXPECT_EQ(road.collector.received().back().number, 5);
}

TEST_F(MsgDrivenThread, SendMsgSync_QueuesBehindEverythingSentBefore) {
    HeldMsgThread road;
    road.startAndBlock();
    ASSERT_EQ(road.thread.postMsg(FIRST), 1);
    ASSERT_EQ(road.thread.postMsg(SECOND), 1);
    std::future<int> sent = std::async(std::launch::async, [&] { return road.thread.sendMsgSync(THIRD); });
    road.gate.open();
    EXPECT_EQ(sent.get(), 1);
    EXPECT_EQ(road.collector.ids(), (std::vector<int>{BLOCKER, FIRST, SECOND, THIRD}));
}

TEST_F(MsgDrivenThread, WaitingSends_OnTheThreadItself_ReturnZeroAndQueueNothing) {
    Collector collector;
    ScopedMsgThread thread;
    int sync = 1;
    int interrupt = 1;
    collector.onMsg = [&](int id, int) {
        if (id == FIRST) {
            sync = thread.sendMsgSync(SECOND);
            interrupt = thread.sendMsgInterrupt(SECOND);
        }
    };
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(thread.sendMsgSync(THIRD), 1);
    EXPECT_EQ(sync, 0);
    EXPECT_EQ(interrupt, 0);
    EXPECT_EQ(collector.ids(), (std::vector<int>{FIRST, THIRD}));
}

TEST_F(MsgDrivenThread, WaitingSends_OnAThreadThatDoesNotRun_ReturnZero) {
    Collector collector;
    ScopedMsgThread thread;
    EXPECT_EQ(thread.sendMsgSync(FIRST), 0);
    EXPECT_EQ(thread.sendMsgInterrupt(FIRST), 0);
    ASSERT_EQ(thread.start(&collector), 0);
    thread.stop(1, 0);
    EXPECT_EQ(thread.sendMsgSync(FIRST), 0);
    EXPECT_EQ(thread.sendMsgInterrupt(NumberMsg(FIRST)), 0);
    EXPECT_TRUE(collector.received().empty());
}

TEST_F(MsgDrivenThread, WaitingSends_WhoseThreadStops_AreReleasedWithZero) {
    HeldMsgThread road;
    road.startAndBlock();
    // The blocked handler keeps the synchronous message queued until the stop has been requested.
    hooks::write.reset();
    std::future<int> sent = std::async(std::launch::async, [&] { return road.thread.sendMsgSync(FIRST); });
    waitForTokens(1);
    EXPECT_EQ(road.thread.stop(0, 0), 0);
    road.gate.open();
    EXPECT_EQ(sent.get(), 0);
    EXPECT_EQ(road.thread.waitTo(3, 0), 0);
    EXPECT_EQ(road.collector.ids(), (std::vector<int>{BLOCKER}));
}

TEST_F(MsgDrivenThread, WaitingSends_WhoseLoopBreaks_AreReleasedWithZeroAndLaterOnesDoNotWait) {
    for (int round = 0; round < 30; ++round) {
        HookScope const scope;
        LogCapture log;
        Collector collector;
        ScopedMsgThread thread(64, 64, "breaks");
        ASSERT_EQ(thread.start(&collector), 0);
        std::vector<std::future<int>> sends;
        for (int sender = 0; sender < 4; ++sender) {
            sends.push_back(std::async(std::launch::async, [&, sender] {
                int last = 1;
                while (last == 1) {
                    last = sender % 2 == 0 ? thread.sendMsgSync(FIRST) : thread.sendMsgInterrupt(SECOND);
                }
                return last;
            }));
        }
        ASSERT_TRUE(collector.waitFor(20));
        hooks::read.failFrom(1, 0, -1, EIO);
        for (std::future<int>& send : sends) {
            EXPECT_EQ(send.get(), 0);
        }
        EXPECT_EQ(thread.waitTo(3, 0), 0);
    }
}

TEST_F(MsgDrivenThread, SendMsgSync_ThatCouldNotBeAnnounced_LeavesItsFrameToBeDiscardedWithTheMismatchLine) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread(8, 4, "stale");
    ASSERT_EQ(thread.start(&collector), 0);
    // 260 entries fill the control queue while the handler holds the loop.
    Gate gate;
    collector.onMsg = [&](int id, int) {
        if (id == BLOCKER) {
            EXPECT_TRUE(gate.hold());
        }
    };
    ASSERT_EQ(thread.postMsg(BLOCKER), 1);
    ASSERT_TRUE(gate.waitUntilHeld());
    int wakes = 0;
    while (thread.postThreadCtlMsg(utl::MSG_ID_CTL_WAKE, -1) == 1) {
        ++wakes;
    }
    EXPECT_EQ(wakes, 260);
    EXPECT_EQ(thread.sendMsgSync(NumberMsg(SECOND)), 0);
    gate.open();
    // The wake entries, which no request backs, are taken out; then the stale frame is met.
    while (thread.postMsg(NumberMsg(FIRST, 6)) == 0) {
        std::this_thread::yield();
    }
    ASSERT_TRUE(collector.waitFor(2));
    EXPECT_EQ(
        log.count("<UTIL> ERR: !!!!!!!! MsgDrivenThread(stale) MismatchedMsg... DataQueueMsgId:0x00000065 "
                  "CtlMsgId:0x00000064 Erased Data !!!!!!!!"),
        1U);
    EXPECT_EQ(collector.received()[1].number, 6);
}

// A synchronous message FIRST with number 1 that cannot be announced, for either reason; the thread is held.
void leaveFirstBehind(ScopedMsgThread& thread, bool byFullQueue) {
    auto const fail = [&] { EXPECT_EQ(thread.sendMsgSync(NumberMsg(FIRST, 1)), 0); };
    if (byFullQueue) {
        withFullCtlQueue(thread, fail);
    } else {
        withoutTokens(fail);
    }
}

TEST_F(MsgDrivenThread, SendMsgSync_BehindOneThatCouldNotBeAnnounced_DeliversItsOwnMessage) {
    for (bool const byFullQueue : {true, false}) {
        HookScope const scope;
        LogCapture const log;
        HeldMsgThread road(8, 4, "stale");
        road.startAndBlock();
        leaveFirstBehind(road.thread, byFullQueue);
        hooks::write.reset();
        auto sent =
            std::async(std::launch::async, [&] { return road.thread.sendMsgSync(NumberMsg(FIRST, 2)); });
        waitForTokens(1);
        road.gate.open();
        EXPECT_EQ(sent.get(), 1);
        ASSERT_EQ(road.collector.ids(), (std::vector<int>{BLOCKER, FIRST}));
        EXPECT_EQ(road.collector.received()[1].number, 2);
        EXPECT_EQ(log.count(mismatchLine("stale", "0x00000064", "0x80000005")), 1U);
    }
}

TEST_F(MsgDrivenThread, PostMsg_WithTheIdOfASynchronousOneThatCouldNotBeAnnounced_IsDeliveredInItsPlace) {
    for (bool const byFullQueue : {true, false}) {
        HookScope const scope;
        LogCapture const log;
        HeldMsgThread road(8, 4, "stale");
        road.startAndBlock();
        leaveFirstBehind(road.thread, byFullQueue);
        ASSERT_EQ(road.thread.postMsg(NumberMsg(FIRST, 2)), 1);
        ASSERT_EQ(road.thread.postMsg(NumberMsg(FIRST, 3)), 1);
        road.gate.open();
        ASSERT_TRUE(road.collector.waitFor(3));
        EXPECT_EQ(road.collector.received()[1].number, 2);
        EXPECT_EQ(road.collector.received()[2].number, 3);
        EXPECT_EQ(log.count(mismatchLine("stale", "0x00000064", "0x00000064")), 1U);
    }
}

TEST_F(MsgDrivenThread, APostThatIsRefused_LeavesTheFramesThatCouldNotBeAnnouncedToTheNext) {
    LogCapture const log;
    HeldMsgThread road(8, 4, "stale");
    road.startAndBlock();
    withFullCtlQueue(road.thread, [&] {
        EXPECT_EQ(road.thread.sendMsgSync(NumberMsg(FIRST, 1)), 0);
        EXPECT_EQ(road.thread.sendMsgSync(NumberMsg(SECOND, 2)), 0);
        EXPECT_EQ(road.thread.postMsg(NumberMsg(THIRD, 3)), 0);
    });
    ASSERT_EQ(road.thread.postMsg(NumberMsg(FIRST, 4)), 1);
    road.gate.open();
    ASSERT_TRUE(road.collector.waitFor(2));
    EXPECT_EQ(road.collector.received()[1].number, 4);
    EXPECT_EQ(log.count(mismatchLine("stale", "0x00000064", "0x00000064")), 1U);
    EXPECT_EQ(log.count(mismatchLine("stale", "0x00000065", "0x00000064")), 1U);
    EXPECT_EQ(log.count(mismatchLine("stale", "0x00000066", "0x00000064")), 0U);
}

TEST_F(MsgDrivenThread, FramesThatCouldNotBeAnnounced_GiveWayToAMessageThatNeedsTheirRoom) {
    LogCapture const log;
    HeldMsgThread road(8, 2, "stale");
    road.startAndBlock();
    withFullCtlQueue(road.thread, [&] {
        EXPECT_EQ(road.thread.sendMsgSync(NumberMsg(FIRST, 1)), 0);
        EXPECT_EQ(road.thread.sendMsgSync(NumberMsg(FIRST, 2)), 0);
        EXPECT_EQ(road.thread.sendMsgSync(NumberMsg(FIRST, 3)), 0);
    });
    EXPECT_EQ(
        log.count("<UTIL> ERR: MsgDrivenThread(stale) Overflow MsgDataQueue  MaxCount:2 MsgId:0x00000064"),
        1U)
        << "of the third; there is no room for it anywhere";
    EXPECT_EQ(road.thread.postMsg(NumberMsg(SECOND, 4)), 1);
    EXPECT_EQ(road.thread.postMsg(NumberMsg(SECOND, 5)), 1);
    EXPECT_EQ(road.thread.postMsg(NumberMsg(SECOND, 6)), 0);
    EXPECT_EQ(log.count(mismatchLine("stale", "0x00000064", "0x00000065")), 2U);
    road.gate.open();
    ASSERT_TRUE(road.collector.waitFor(3));
    EXPECT_EQ(road.collector.received()[1].number, 4);
    EXPECT_EQ(road.collector.received()[2].number, 5);
}

TEST_F(MsgDrivenThread, OfVeryManyFramesThatCouldNotBeAnnounced_NoneIsDelivered) {
    for (int const count : {254, 255, 256, 300}) {
        LogCapture const log;
        HeldMsgThread road(8, 302, "stale");
        road.startAndBlock();
        withFullCtlQueue(road.thread, [&] {
            for (int i = 0; i < count; ++i) {
                ASSERT_EQ(road.thread.sendMsgSync(NumberMsg(FIRST, i)), 0);
            }
        });
        ASSERT_EQ(road.thread.postMsg(NumberMsg(FIRST, -1)), 1);
        ASSERT_EQ(road.thread.postMsg(NumberMsg(FIRST, -2)), 1);
        road.gate.open();
        ASSERT_TRUE(road.collector.waitFor(3));
        EXPECT_EQ(road.collector.received()[1].number, -1);
        EXPECT_EQ(road.collector.received()[2].number, -2);
        EXPECT_EQ(log.count(mismatchLine("stale", "0x00000064", "0x00000064")),
                  static_cast<size_t>(std::min(count, 255)));
    }
}

// An entry for which nobody queued a frame must not get the one of a message that was refused.
TEST_F(MsgDrivenThread, AnEntryWithoutAFrame_DiscardsTheOneThatCouldNotBeAnnounced) {
    for (int const ctlId : {FIRST, static_cast<int>(utl::MSG_ID_CTL_SYNC)}) {
        LogCapture const log;
        HeldMsgThread road(8, 4, "stale");
        road.startAndBlock();
        leaveFirstBehind(road.thread, true);
        ASSERT_EQ(road.thread.postThreadCtlMsg(ctlId, -1), 1);
        road.gate.open();
        char const* const hex = ctlId == FIRST ? "0x00000064" : "0x80000005";
        ASSERT_TRUE(log.waitFor(mismatchLine("stale", "0x00000064", hex)));
        ASSERT_TRUE(log.waitFor(std::string("<UTIL> ERR: !!!!!!!! MsgDrivenThread(stale) Error. MsgId:") +
                                hex + " !!!!!!!!"));
        EXPECT_EQ(road.thread.sendMsgInterrupt(SECOND), 1);
        EXPECT_EQ(road.collector.ids(), (std::vector<int>{BLOCKER, SECOND}));
    }
}

TEST_F(MsgDrivenThread, SendMsgInterrupt_OvertakesWhatIsQueued) {
    HeldMsgThread road;
    road.startAndBlock();
    ASSERT_EQ(road.thread.postMsg(FIRST), 1);
    ASSERT_EQ(road.thread.postMsg(SECOND), 1);
    hooks::write.reset();
    std::future<int> sent =
        std::async(std::launch::async, [&] { return road.thread.sendMsgInterrupt(NumberMsg(THIRD, 3)); });
    waitForTokens(1);
    road.gate.open();
    EXPECT_EQ(sent.get(), 1);
    ASSERT_TRUE(road.collector.waitFor(4));
    EXPECT_EQ(road.collector.ids(), (std::vector<int>{BLOCKER, THIRD, FIRST, SECOND}));
}

TEST_F(MsgDrivenThread, SendMsgInterrupt_OnAnIdleThread_IsDeliveredByItsOwnToken) {
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(thread.sendMsgInterrupt(NumberMsg(FIRST, i)), 1);
    }
    EXPECT_EQ(collector.received().size(), 100U);
    EXPECT_EQ(collector.received().back().number, 99);
}

TEST_F(MsgDrivenThread, SendMsgInterrupt_ThatCouldNotBeAnnounced_ReturnsZeroAndLaterMessagesGoOn) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread(8, 4, "wakeless");
    ASSERT_EQ(thread.start(&collector), 0);
    hooks::write.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(thread.sendMsgInterrupt(NumberMsg(FIRST)), 0);
    EXPECT_EQ(
        log.count(
            "<UTIL> ERR: MsgDrivenThread(wakeless)::postThreadCtlMsg() Error. write Ret:4294967295 errno:" +
            std::to_string(EIO)),
        1U);
    // The wake entry that was left stops nobody.
    EXPECT_EQ(thread.sendMsgSync(SECOND), 1);
    EXPECT_EQ(thread.sendMsgInterrupt(THIRD), 1);
    EXPECT_EQ(collector.ids(), (std::vector<int>{SECOND, THIRD}));
}

TEST_F(MsgDrivenThread, ATokenThatDoesNotMatchTheHead_IsDroppedWithoutALine) {
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(thread.postThreadCtlMsg(utl::MSG_ID_CTL_WAKE, -1), 1);
        EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    }
    EXPECT_EQ(collector.received().size(), 20U);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(MsgDrivenThread, AnEntryWithoutAFrame_GivesTheErrorLine_AndAStopIsObeyedAllTheSame) {
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread(8, 4, "empty");
    ASSERT_EQ(thread.start(&collector), 0);
    ASSERT_EQ(thread.postThreadCtlMsg(FIRST, -1), 1);
    ASSERT_TRUE(log.waitFor("MsgId:0x00000064"));
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  "<UTIL> ERR: !!!!!!!! MsgDrivenThread(empty) Error. MsgId:0x00000064 !!!!!!!!"}));
    EXPECT_EQ(thread.stop(1, 0), 0);
    unsigned int result = 1;
    EXPECT_TRUE(thread.getResult(&result));
    EXPECT_EQ(result, 0U);
}

TEST_F(MsgDrivenThread, Stop_WhoseTokenIsLost_StillEndsTheLoop) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    ScopedMsgThread thread(8, 4, "lost");
    ASSERT_EQ(thread.start(&collector), 0);
    ASSERT_EQ(thread.sendMsgSync(FIRST), 1);
    hooks::write.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(thread.stop(1, 0), 0);
}

TEST_F(MsgDrivenThread, Stop_WithAFullControlQueue_StillEndsTheLoop) {
    LogCapture log;
    HeldMsgThread road(8, 1, "full");
    road.startAndBlock();
    while (road.thread.postThreadCtlMsg(utl::MSG_ID_CTL_WAKE, -1) == 1) {
    }
    EXPECT_EQ(road.thread.stop(0, 0), 0);
    road.gate.open();
    EXPECT_EQ(road.thread.waitTo(3, 0), 0);
}

TEST_F(MsgDrivenThread, PostMsg_FromOutsideDuringAWaitingStop_WaitsAndThenFails) {
    HeldMsgThread road;
    road.startAndBlock();
    std::future<int> stopped = std::async(std::launch::async, [&] { return road.thread.stop(1, 0); });
    while (!road.thread.hasRequestedStop()) {
        std::this_thread::yield();
    }
    std::future<int> posted = std::async(std::launch::async, [&] { return road.thread.postMsg(FIRST); });
    road.gate.open();
    EXPECT_EQ(stopped.get(), 0);
    EXPECT_EQ(posted.get(), 0);
}

TEST_F(MsgDrivenThread, PostMsg_FromAHandlerDuringAWaitingStop_IsRefusedAndDoesNotDeadlock) {
    HeldMsgThread road;
    int result = -1;
    Collector& collector = road.collector;
    collector.onMsg = [&](int, int) {
        road.gate.reach();
        while (!road.thread.hasRequestedStop()) {
            std::this_thread::yield();
        }
        result = road.thread.postMsg(FIRST);
    };
    road.startAndBlock();
    EXPECT_EQ(road.thread.stop(1, 0), 0);
    EXPECT_EQ(result, 0);
}

TEST_F(MsgDrivenThread, PostMsg_FromAHandler_IsDeliveredAfterwards) {
    Collector collector;
    ScopedMsgThread thread;
    collector.onMsg = [&](int id, int number) {
        if (id == FIRST && number < 10) {
            EXPECT_EQ(thread.postMsg(NumberMsg(FIRST, number + 1)), 1);
        }
    };
    ASSERT_EQ(thread.start(&collector), 0);
    ASSERT_EQ(thread.postMsg(NumberMsg(FIRST, 0)), 1);
    ASSERT_TRUE(collector.waitFor(11));
    EXPECT_EQ(collector.received().back().number, 10);
}

TEST_F(MsgDrivenThread, IsDataMsgId_IsFalseForTheControlIdsAlone) {
    int const offsets[] = {0x00, 0x01, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x13};
    for (int offset = 0; offset <= 0x801; ++offset) {
        bool const isControl = std::find(std::begin(offsets), std::end(offsets), offset) != std::end(offsets);
        EXPECT_EQ(ScopedMsgThread::isDataMsgId(INT_MIN + offset), !isControl) << std::hex << offset;
    }
    EXPECT_TRUE(ScopedMsgThread::isDataMsgId(0));
    EXPECT_TRUE(ScopedMsgThread::isDataMsgId(-1));
    EXPECT_TRUE(ScopedMsgThread::isDataMsgId(INT_MAX));
}

TEST_F(MsgDrivenThread, ANameWithConversions_IsHarmlessInEveryLine) {
    LogCapture log;
    ScopedMsgThread thread(8, 1, "%n%s%%d");
    EXPECT_EQ(thread.sendMsgAsync(BytesMsg(FIRST, 9)), 0);
    EXPECT_EQ(log.lines().size(), 1U);
    EXPECT_NE(log.lines()[0].find("MsgDrivenThread(%n%s%d) Overflow"), std::string::npos);
}

TEST_F(MsgDrivenThread, SendPaths_AllocateNothingAfterConstruction) {
    Collector collector;
    ScopedMsgThread thread;
    std::atomic<int> handled{0};
    struct Counting : utl::ThreadMsgListener {
        std::atomic<int>& handled;
        explicit Counting(std::atomic<int>& count) : handled(count) {}
        void receiveMsg(int, utl::ThreadRawMsg&) override { ++handled; }
    } listener(handled);
    ASSERT_EQ(thread.start(&listener), 0);
    NumberMsg const msg(FIRST, 1);
    thread.sendMsgSync(msg);
    unsigned int const before = gAllocations;
    for (int i = 0; i < 100; ++i) {
        thread.postMsg(msg);
        thread.postMsg(FIRST);
        thread.sendMsgAsync(msg);
        thread.sendMsgSync(msg);
        thread.sendMsgSync(FIRST);
        thread.sendMsgInterrupt(msg);
        thread.sendMsgInterrupt(FIRST);
    }
    EXPECT_EQ(gAllocations, before);
    EXPECT_EQ(handled, 701);
}

TEST_F(MsgDrivenThread, AQueueLargerThanAPipe_FillsToTheLastPlaceWithoutBlocking) {
    Collector collector;
    constexpr unsigned int COUNT = 20000;
    ScopedMsgThread thread(4, COUNT, "large");
    for (unsigned int i = 0; i < COUNT; ++i) {
        ASSERT_EQ(thread.sendMsgAsync(NumberMsg(FIRST, static_cast<int>(i))), 1);
    }
    for (int i = 0; i < 256; ++i) {
        ASSERT_EQ(thread.postThreadCtlMsg(utl::MSG_ID_CTL_WAKE, -1), 1);
    }
    ASSERT_EQ(thread.start(&collector), 0);
    ASSERT_TRUE(collector.waitFor(COUNT));
    EXPECT_EQ(collector.received().back().number, static_cast<int>(COUNT) - 1);
}

TEST_F(MsgDrivenThread, AQueueBeyondTheSystemsPipeLimit_RefusesWhatThePipeDoesNotHold) {
    HookScope const scope;
    LogCapture log;
    Collector collector;
    constexpr unsigned int COUNT = 40000;
    // The test's system allows no larger pipe than the default.
    hooks::fcntl.replace(+[](int handle, int command, long argument) {
        return command == F_SETPIPE_SZ ? -1 : hooks::fcntl.real(handle, command, argument);
    });
    ScopedMsgThread thread(4, COUNT, "limit");
    unsigned int accepted = 0;
    while (accepted < COUNT && thread.sendMsgAsync(NumberMsg(FIRST, 1)) == 1) {
        ++accepted;
    }
    EXPECT_GE(accepted, 7000U);
    EXPECT_LE(accepted, 8192U);
    EXPECT_EQ(log.count(utltest::pipeOverflow(thread, "0x00000064")), 1U);
    ASSERT_EQ(thread.start(&collector), 0);
    ASSERT_TRUE(collector.waitFor(accepted));
    EXPECT_EQ(thread.sendMsgSync(SECOND), 1);
}

TEST_F(MsgDrivenThread, Destructor_OfAThreadThatWasNotStopped_WaitsForItsLoop) {
    LogCapture log;
    int id = 0;
    {
        Collector collector;
        utl::MsgDrivenThread thread(8, 4, "forgotten");
        ASSERT_EQ(thread.start(&collector), 0);
        ASSERT_EQ(thread.sendMsgSync(FIRST), 1);
        id = thread.getId();
    }
    EXPECT_FALSE(utl::ThreadManager::get()->isThreadActive(id));
    EXPECT_EQ(
        log.lines(),
        (std::vector<std::string>{"<UTIL> ERR: MsgDrivenThread(forgotten) Error. read Ret:4294967295 errno:" +
                                  std::to_string(EBADF) + " !!Break msg loop!!"}));
    EXPECT_TRUE(utl::ThreadManager::get()->unregister(id));
}

// Pipes of a system that grants little room.

int makeSmallPipe(int* ends) {
    int const result = hooks::pipe.real(ends);
    EXPECT_EQ(hooks::fcntl.real(ends[1], F_SETPIPE_SZ, 2L * getpagesize()), 2 * getpagesize());
    return result;
}

TEST_F(MsgDrivenThread, ASystemThatGivesSmallPipes_GetsMessagesRefusedBeyondWhatCertainlyFits) {
    HookScope const scope;
    LogCapture const log;
    Collector collector;
    hooks::pipe.replace(makeSmallPipe);
    hooks::fcntl.replace(+[](int handle, int command, long argument) {
        return command == F_SETPIPE_SZ ? -1 : hooks::fcntl.real(handle, command, argument);
    });
    ScopedMsgThread thread(4, 2000, "small");
    int const certain = getpagesize() / 8 + 1;
    for (int i = 0; i < certain; ++i) {
        ASSERT_EQ(thread.sendMsgAsync(NumberMsg(FIRST, i)), 1);
    }
    for (int i = certain; i < 2000; ++i) {
        ASSERT_EQ(thread.sendMsgAsync(NumberMsg(SECOND, i)), 0);
    }
    EXPECT_EQ(log.count("<UTIL> ERR: MsgDrivenThread(small) Overflow Pipe  MaxCount:" +
                        std::to_string(certain) + " MsgId:0x00000065"),
              2000U - static_cast<unsigned int>(certain));
    ASSERT_EQ(thread.start(&collector), 0);
    ASSERT_TRUE(collector.waitFor(static_cast<size_t>(certain)));
    EXPECT_EQ(collector.received().back().number, certain - 1);
    EXPECT_EQ(thread.sendMsgSync(SECOND), 1);
}

int makeOnePagePipe(int* ends) {
    int const result = hooks::pipe.real(ends);
    EXPECT_EQ(hooks::fcntl.real(ends[1], F_SETPIPE_SZ, getpagesize()), getpagesize());
    return result;
}

TEST_F(MsgDrivenThread, APipeOfOnePageOrOfUnknownSize_TakesATokenWheneverItIsEmpty) {
    for (bool const isSizeKnown : {true, false}) {
        HookScope const scope;
        LogCapture const log;
        Collector collector;
        hooks::pipe.replace(makeOnePagePipe);
        static int refused;
        refused = isSizeKnown ? F_SETPIPE_SZ : F_GETPIPE_SZ;
        hooks::fcntl.replace(+[](int handle, int command, long argument) {
            bool const isRefused = command == refused || command == F_SETPIPE_SZ;
            return isRefused ? -1 : hooks::fcntl.real(handle, command, argument);
        });
        ScopedMsgThread thread(4, 8, "tiny");
        EXPECT_EQ(thread.sendMsgAsync(NumberMsg(FIRST, 1)), 1);
        EXPECT_EQ(thread.sendMsgAsync(NumberMsg(FIRST, 2)), 0) << "the pipe is not empty";
        ASSERT_EQ(thread.start(&collector), 0);
        for (int i = 2; i < 1000; ++i) {
            while (thread.postMsg(NumberMsg(FIRST, i)) == 0) {
                std::this_thread::yield();
            }
        }
        ASSERT_TRUE(collector.waitFor(999));
        thread.finish();
        EXPECT_TRUE(thread.hasDone(utl::Thread::FINISHED));
    }
}

TEST_F(MsgDrivenThread, APipeThatMayNotBeAsLargeAsAsked_IsTheLargestThatIsAllowed) {
    HookScope const scope;
    LogCapture const log;
    static long allowed;
    allowed = 64L * getpagesize();
    hooks::fcntl.replace(+[](int handle, int command, long argument) {
        if (command == F_SETPIPE_SZ && argument > allowed) {
            errno = EPERM;
            return -1;
        }
        return hooks::fcntl.real(handle, command, argument);
    });
    unsigned int const certain = static_cast<unsigned int>(allowed - getpagesize()) / 8 + 1;
    for (unsigned int const asked : {certain + certain / 4, 2 * certain, 20 * certain}) {
        ScopedMsgThread thread(4, asked, "allowed");
        unsigned int accepted = 0;
        while (accepted < asked && thread.sendMsgAsync(NumberMsg(FIRST)) == 1) {
            ++accepted;
        }
        EXPECT_EQ(accepted, certain) << asked;
    }
}

// Starts whose thread exists and cannot be registered.

int createWhileThePlaceGoes(pthread_t* thread, pthread_attr_t const* attributes, void* (*entry)(void*),
                            void* argument) {
    utltest::ThreadManagerAccess::storeEntry(NO_THREAD, foreignEntry("the faster one"));
    return hooks::threadCreate.real(thread, attributes, entry, argument);
}

TEST_F(MsgDrivenThread, Start_WhoseRegistrationFails_LeavesNoThreadBehindThatUsesTheObject) {
    renewManager(1);
    for (int round = 0; round < 50; ++round) {
        HookScope const scope;
        LogCapture const log;
        Collector collector;
        hooks::threadCreate.replace(createWhileThePlaceGoes);
        {
            utl::MsgDrivenThread thread(8, 4, "late");
            ASSERT_EQ(thread.sendMsgAsync(NumberMsg(FIRST)), 1);
            EXPECT_EQ(thread.start(&collector), -1);
            EXPECT_EQ(hooks::threadCreate.calls(), 1U);
            EXPECT_TRUE(thread.hasDone(3)) << "it has run to its end";
            EXPECT_EQ(thread.getId(), 0);
            EXPECT_EQ(thread.start(&collector), -1);
        }
        EXPECT_TRUE(collector.received().empty());
        EXPECT_EQ(log.lines().size(), 1U);
        utltest::ThreadManagerAccess::eraseEntry(NO_THREAD);
    }
}

// Waits for one message without taking memory.
struct PlainListener : utl::ThreadMsgListener {
    Gate gate;
    std::atomic<int> handled{0};

    void receiveMsg(int, utl::ThreadRawMsg& raw) override {
        ++handled;
        int id = 0;
        raw.getMsgId(&id);
        if (id == BLOCKER) {
            EXPECT_TRUE(gate.hold());
        }
    }
};

TEST_F(MsgDrivenThread, SendPaths_ThatAreRefused_AllocateNothingEither) {
    PlainListener listener;
    ScopedMsgThread thread(8, 2, "refused");
    NumberMsg const msg(FIRST, 1);
    BytesMsg const tooLarge(FIRST, 9);
    int refused = 0;
    utl::ThreadManager::get();  // made once for the process
    unsigned int before = gAllocations;
    refused += thread.postMsg(msg) + thread.sendMsgSync(msg) + thread.sendMsgInterrupt(msg);
    EXPECT_EQ(gAllocations, before) << "not started";
    ASSERT_EQ(thread.start(&listener), 0);
    ASSERT_EQ(thread.postMsg(BLOCKER), 1);
    ASSERT_TRUE(listener.gate.waitUntilHeld());
    before = gAllocations;
    refused += thread.postMsg(tooLarge) + thread.sendMsgAsync(tooLarge) + thread.sendMsgSync(tooLarge) +
               thread.sendMsgInterrupt(tooLarge);
    EXPECT_EQ(gAllocations, before) << "too large";
    int const accepted = thread.postMsg(msg) + thread.postMsg(FIRST);
    for (int i = 0; i < 3; ++i) {
        refused += thread.postMsg(msg) + thread.postMsg(FIRST) + thread.sendMsgAsync(msg) +
                   thread.sendMsgSync(msg) + thread.sendMsgSync(FIRST);
    }
    EXPECT_EQ(gAllocations, before) << "no room for the data";
    int entries = 0;
    while (thread.postThreadCtlMsg(utl::MSG_ID_CTL_WAKE, -1) == 1) {
        ++entries;
    }
    refused += thread.sendMsgInterrupt(msg);
    EXPECT_EQ(gAllocations, before) << "control entries, to the last and beyond";
    EXPECT_EQ(accepted, 2);
    EXPECT_EQ(entries, 256);
    EXPECT_EQ(refused, 0);
    thread.stop(0, 0);
    before = gAllocations;
    refused += thread.postMsg(msg) + thread.sendMsgSync(msg) + thread.sendMsgInterrupt(msg);
    EXPECT_EQ(gAllocations, before) << "asked to stop";
    EXPECT_EQ(refused, 0);
    listener.gate.open();
    EXPECT_EQ(thread.waitTo(3, 0), 0);
}

TEST_F(MsgDrivenThread, Destructor_OfARunningThreadWhosePipeIsFull_WaitsForItsLoop) {
    LogCapture log;
    Gate full;
    Collector collector;
    auto thread = std::make_unique<utl::MsgDrivenThread>(8, 64, "crammed");
    utl::MsgDrivenThread* const road = thread.get();
    collector.onMsg = [&full, road](int id, int) {
        if (id != BLOCKER) {
            return;
        }
        while (road->postMsg(FIRST) == 1) {
            road->eraseMsg(FIRST);
        }
        full.open();
        while (ThreadAccess::writeEnd(*road) != -1) {
            std::this_thread::yield();
        }
    };
    ASSERT_EQ(thread->start(&collector), 0);
    int const id = thread->getId();
    ASSERT_EQ(thread->postMsg(BLOCKER), 1);
    ASSERT_TRUE(full.wait());
    std::string const overflow = utltest::pipeOverflow(*thread, "0x00000064");
    thread.reset();
    EXPECT_FALSE(utl::ThreadManager::get()->isThreadActive(id));
    EXPECT_EQ(collector.ids(), (std::vector<int>{BLOCKER}));
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  overflow, "<UTIL> ERR: MsgDrivenThread(crammed) Error. read Ret:4294967295 errno:" +
                                std::to_string(EBADF) + " !!Break msg loop!!"}));
    EXPECT_TRUE(utl::ThreadManager::get()->unregister(id));
}

// A stop that finds no room in the pipe.

// Its handler fills the pipe and then waits for the stopper.
class CrammedThread {
  public:
    CrammedThread() {
        mCollector.onMsg = [this](int id, int) {
            if (id != FIRST) {
                return;
            }
            while (thread.postMsg(SECOND) == 1) {
                thread.eraseMsg(SECOND);
            }
            EXPECT_TRUE(mGate.hold());
        };
        EXPECT_EQ(thread.start(&mCollector), 0);
        EXPECT_EQ(thread.postMsg(FIRST), 1);
        EXPECT_TRUE(mGate.waitUntilHeld());
    }
    ~CrammedThread() { letGo(); }
    void letGo() { mGate.open(); }

  private:
    Collector mCollector;
    Gate mGate;

  public:
    ScopedMsgThread thread{64, 64, "crammed"};
};

TEST_F(MsgDrivenThread, Stop_WithAFullPipe_ReturnsAtOnceWithoutALineAndEndsTheLoop) {
    CrammedThread crammed;
    LogCapture const log;
    EXPECT_EQ(crammed.thread.stop(0, 0), 0);
    EXPECT_EQ(crammed.thread.stop(1, 50), -2);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(crammed.thread.isRunning());
    crammed.letGo();
    EXPECT_EQ(crammed.thread.waitTo(3, 0), 0);
    EXPECT_TRUE(log.lines().empty());
}

// From outside, `requestStop` without a stop ends nothing.
TEST_F(MsgDrivenThread, RequestStop_WithoutAStop_EndsNothing) {
    Collector collector;
    ScopedMsgThread thread;
    utl::MsgDrivenThread& asUsersSeeIt = thread;
    ASSERT_EQ(thread.start(&collector), 0);
    asUsersSeeIt.requestStop();
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    utl::MsgDrivenThread plain(8, 1, "plain");
    plain.onEraseTimer(1);
}

// A stop waits for a timer call from outside that waits for the message thread.
TEST_F(MsgDrivenThread, Stop_WaitsForATimerCallInProgress) {
    HeldMsgThread road;
    road.startAndBlock();
    auto timer = std::async(std::launch::async, [&road] { return road.thread.setTimer(60000, 0); });
    while (road.thread.remTimerIdCount() == 4) {
        std::this_thread::yield();
    }
    auto stopped = std::async(std::launch::async, [&road] { return road.thread.stop(0, 0); });
    EXPECT_EQ(stopped.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    EXPECT_FALSE(road.thread.hasRequestedStop());
    road.gate.open();
    EXPECT_GT(timer.get(), 0);
    EXPECT_EQ(stopped.get(), 0);
}

// Tokens that cannot be written.

TEST_F(MsgDrivenThread, AnEntryWhoseTokenWasLost_IsDroppedWithoutALineOrAnEffect) {
    constexpr int KINDS[] = {FIRST,
                             utl::MSG_ID_CTL_SYNC,
                             utl::MSG_ID_CTL_START_TIMER,
                             utl::MSG_ID_CTL_STOP_TIMER,
                             utl::MSG_ID_CTL_TIMEOUT,
                             utl::MSG_ID_CTL_WAKE,
                             utl::MSG_ID_CTL_STOP,
                             0x44444444};
    for (int const kind : KINDS) {
        HookScope const scope;
        LogCapture log;
        Collector collector;
        ScopedMsgThread thread;
        ASSERT_EQ(thread.start(&collector), 0);
        hooks::write.failFrom(1, 1, -1, EIO);
        EXPECT_EQ(thread.postThreadCtlMsg(kind, 3), 0);
        log.clear();
        EXPECT_EQ(thread.sendMsgSync(NumberMsg(SECOND, 2)), 1);
        EXPECT_GT(thread.setTimer(60000, 0), 0);
        EXPECT_TRUE(thread.killTimer(1, 0));
        EXPECT_EQ(thread.postMsg(THIRD), 1);
        EXPECT_EQ(thread.sendMsgInterrupt(SECOND), 1);
        EXPECT_TRUE(collector.waitFor(3));
        EXPECT_FALSE(thread.eraseMsgFromCtlQueue(kind)) << "it is gone";
        EXPECT_TRUE(log.lines().empty()) << kind;
    }
}

TEST_F(MsgDrivenThread, AnEntryWhoseTokenWasLost_StaysUntilItComesToTheHead) {
    HookScope const scope;
    LogCapture const log;
    HeldMsgThread road;
    road.startAndBlock();
    ASSERT_EQ(road.thread.postMsg(FIRST), 1);
    hooks::write.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(road.thread.postMsg(NumberMsg(SECOND, 1)), 0);
    ASSERT_EQ(road.thread.postMsg(NumberMsg(THIRD, 3)), 1);
    EXPECT_TRUE(road.thread.eraseMsgFromCtlQueue(SECOND));
    hooks::write.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(road.thread.postMsg(NumberMsg(SECOND, 1)), 0);
    road.gate.open();
    ASSERT_TRUE(road.collector.waitFor(3));
    EXPECT_EQ(road.collector.received().back().number, 3) << "each message has its own frame";
    EXPECT_EQ(road.thread.sendMsgSync(FIRST), 1);
    EXPECT_FALSE(road.thread.eraseMsgFromCtlQueue(SECOND));
}

// Each write of a token fails once, in each call that waits: nobody waits for ever.
TEST_F(MsgDrivenThread, WaitingCalls_WhoseTokensGetLost_HangNobody) {
    LogCapture const log;
    Collector collector;
    ScopedMsgThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    for (unsigned int number = 1; number <= 12; ++number) {
        HookScope const scope;
        hooks::write.failFrom(number, 1, -1, EIO);
        thread.sendMsgSync(FIRST);
        thread.sendMsgInterrupt(FIRST);
        thread.hasMsg(FIRST);
        thread.eraseMsg(FIRST);
        int const timer = thread.setTimer(60000, 0);
        int const registered = thread.registerTimer(60000);
        thread.startTimer(registered, 0);
        thread.killTimer(timer, 0);
        thread.killTimer(registered, 0);
        hooks::write.reset();
        thread.killTimer(timer, 0);
        thread.killTimer(registered, 0);
        EXPECT_EQ(thread.remTimerIdCount(), 4U) << "write " << number;
        EXPECT_EQ(thread.sendMsgSync(SECOND), 1);
    }
}

TEST_F(MsgDrivenThread, AFullControlQueueOfLostEntries_TakesEntriesAgain) {
    HookScope const scope;
    LogCapture const log;
    Collector collector;
    ScopedMsgThread thread(8, 3, "lost");
    hooks::write.failFrom(1, 0, -1, EIO);
    for (int i = 0; i < 259; ++i) {
        ASSERT_EQ(thread.sendMsgAsync(NumberMsg(FIRST, i)), 0);
    }
    hooks::write.reset();
    EXPECT_EQ(thread.sendMsgAsync(NumberMsg(SECOND, 1)), 1);
    ASSERT_EQ(thread.start(&collector), 0);
    ASSERT_TRUE(collector.waitFor(1));
    EXPECT_EQ(collector.received()[0].number, 1);
}

// A message thread under the watchdog, whose table works without a thread of its own here. The reports look
// at the clock and are seen from there.

using WatchdogAccess = utltest::ThreadWatchdogAccess;

std::atomic<int> gWatched{0};
std::vector<std::string> gReports;  // of the watched thread, which alone writes it

utl::WatchdogInfo watchedInfo() {
    return WatchdogAccess::copyInfo(utltest::ThreadManagerAccess::watchdog(), gWatched);
}

// Changes `errno`, as a report may.
int clockThatNotesReports(clockid_t clock, timespec* out) {
    if (gWatched == kernelId()) {
        utl::WatchdogInfo const info = watchedInfo();
        if (info.lastAliveTick != utl::WatchdogInfo::NO_TICK) {
            gReports.push_back(std::string("alive ") + info.lastStatement.file + " " +
                               info.lastStatement.function + " " + std::to_string(info.lastStatement.sub));
        } else if (info.watchStatus == utl::WatchdogInfo::WATCHING) {
            gReports.push_back("start");
        }
    }
    int const result = hooks::clockGetTime.real(clock, out);
    errno = ENOTTY;
    return result;
}

ssize_t readThatIsNoted(int handle, void* out, size_t bytes) {
    gReports.push_back(watchedInfo().watchStatus == utl::WatchdogInfo::WATCHING ? "read, watched"
                                                                                : "read, stopped");
    return hooks::read.real(handle, out, bytes);
}

TEST_F(MsgDrivenThread, UnderTheWatchdog_ReportsBeforeAndBehindAReadDuringWhichItIsNotWatched) {
    HookScope const scope;
    WatchdogAccess::setInitialized(utltest::ThreadManagerAccess::watchdog(), true);
    Collector collector;
    ScopedMsgThread thread;
    std::vector<std::string> between;
    collector.onMsg = [&](int id, int) {
        if (id == FIRST) {
            gReports.clear();
        } else {
            between = gReports;
        }
    };
    ASSERT_EQ(thread.start(&collector, 1, 60000), 0);
    ASSERT_TRUE(utl::ThreadManager::get()->isRegisteredWatchdog(thread.getId()));
    gWatched = thread.getId();
    hooks::clockGetTime.replace(clockThatNotesReports);
    hooks::read.replace(readThatIsNoted);
    EXPECT_EQ(thread.sendMsgSync(FIRST - 1), 1);
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(thread.sendMsgSync(SECOND), 1);
    thread.finish();
    std::string const alive = "alive source/UtlMsgDrivenThread execute 0";
    EXPECT_EQ(between, (std::vector<std::string>{alive, alive, "read, stopped", "start", alive}))
        << "the first is that of the message before";
}

TEST_F(MsgDrivenThread, UnderTheWatchdog_ErrnoOfTheReadOutlivesTheReports) {
    HookScope const scope;
    LogCapture const log;
    WatchdogAccess::setInitialized(utltest::ThreadManagerAccess::watchdog(), true);
    Collector collector;
    ScopedMsgThread thread(8, 4, "watched");
    hooks::clockGetTime.replace(clockThatNotesReports);
    hooks::read.failFrom(1, 2, -1, EINTR);
    ASSERT_EQ(thread.start(&collector, 1, 60000), 0);
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(log.count("<UTIL> INF: MsgDrivenThread(watched) Error. read Ret:4294967295 errno:" +
                        std::to_string(EINTR) + "=EINTR Retry read"),
              2U);
    hooks::read.failFrom(1, 0, -1, EIO);
    EXPECT_EQ(thread.postMsg(SECOND), 1);
    EXPECT_EQ(thread.waitTo(3, 0), 0);
    EXPECT_EQ(log.count("<UTIL> ERR: MsgDrivenThread(watched) Error. read Ret:4294967295 errno:" +
                        std::to_string(EIO) + " !!Break msg loop!!"),
              1U);
}

TEST_F(MsgDrivenThread, UnderTheWatchdog_AThreadWhoseReadFails_IsNotRegisteredAnyMore) {
    HookScope const scope;
    LogCapture const log;
    WatchdogAccess::setInitialized(utltest::ThreadManagerAccess::watchdog(), true);
    Collector collector;
    ScopedMsgThread thread;
    hooks::read.failFrom(2, 0, -1, EIO);
    ASSERT_EQ(thread.start(&collector, 1, 60000), 0);
    ASSERT_TRUE(utl::ThreadManager::get()->isRegisteredWatchdog(thread.getId()));
    EXPECT_EQ(thread.postMsg(FIRST), 1);
    EXPECT_EQ(thread.waitTo(3, 0), 0);
    EXPECT_FALSE(utl::ThreadManager::get()->isRegisteredWatchdog(thread.getId()));
}

TEST_F(MsgDrivenThread, UnderTheWatchdog_AThreadWhoseObjectGoesWithoutAStop_IsNotRegisteredAnyMore) {
    LogCapture const log;
    WatchdogAccess::setInitialized(utltest::ThreadManagerAccess::watchdog(), true);
    int id = 0;
    {
        Collector collector;
        utl::MsgDrivenThread thread(8, 4, "forgotten");
        ASSERT_EQ(thread.start(&collector, 1, 60000), 0);
        id = thread.getId();
        ASSERT_TRUE(utl::ThreadManager::get()->isRegisteredWatchdog(id));
    }
    EXPECT_FALSE(utl::ThreadManager::get()->isRegisteredWatchdog(id));
    EXPECT_TRUE(utl::ThreadManager::get()->unregister(id));
}

TEST_F(MsgDrivenThread, FramesBeyondThirtyTwoBits_AreNotAllocatedOnAnyAbi) {
    auto const make = [](unsigned int size, unsigned int count) {
        utl::MsgDrivenThread(size, count, "huge");
    };
    EXPECT_THROW(make(0xFFFC, 0x10000), std::bad_alloc) << "2 to the 32 bytes";
    EXPECT_THROW(make(0x10000, 0x10000), std::bad_alloc) << "wraps to a small number";
    EXPECT_THROW(make(8, UINT_MAX), std::bad_alloc);
    EXPECT_THROW(make(UINT_MAX - 4, 2), std::bad_alloc);
    EXPECT_THROW(make(UINT_MAX - 3, 1), std::bad_alloc) << "one frame alone";
    EXPECT_THROW(make(UINT_MAX, 1), std::bad_alloc);
    EXPECT_THROW(make(UINT_MAX, 0), std::bad_alloc);
}

// Derived classes and their callers are compiled apart from the library.
TEST_F(MsgDrivenThread, ItsFields_HaveTheirOrder) {
    utl::MsgDrivenThread const thread(8, 4, "fields", 2);
    std::vector<std::size_t> const fields = ThreadAccess::fields(thread);
    EXPECT_EQ(fields.front(), (utltest::firstFieldBehind<utl::ThreadMsgListener*, utl::Thread>()));
    EXPECT_TRUE(areRising(fields));
}

TEST_F(MsgDrivenThread, ItsVirtualOperations_HaveTheirSlots) {
    struct Slots : utl::MsgDrivenThread {
        static std::vector<std::size_t> ofAll() {
            return {slotOf(&Slots::preExecute), slotOf(&Slots::execute), slotOf(&Slots::postExecute),
                    slotOf(&Slots::requestStop), slotOf(&Slots::onEraseTimer)};
        }
    };
    EXPECT_EQ(Slots::ofAll(), (std::vector<std::size_t>{2, 3, 4, 5, 6}));
    EXPECT_EQ(slotOf(&utl::ThreadMsgListener::receiveMsg), 2U);
    EXPECT_EQ(slotOf(&utl::MsgDrivenThread::MsgJudgementInterface::judge), 2U);
}

TEST_F(MsgDrivenThread, Descriptors_AreClosedWithTheObject) {
    auto const openHandles = [] {
        int count = 0;
        for (int handle = 0; handle < 256; ++handle) {
            count += fcntl(handle, F_GETFD) >= 0 ? 1 : 0;
        }
        return count;
    };
    int const before = openHandles();
    {
        ScopedMsgThread thread;
        EXPECT_EQ(openHandles(), before + 2);
    }
    EXPECT_EQ(openHandles(), before);
}

TEST(MsgDrivenThreadDeathTest, AProcessThatReturnsFromMainWithARunningThread_EndsCleanly) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            auto* const collector = new Collector;
            auto* const thread = new utl::MsgDrivenThread(8, 64, "busy");
            thread->start(collector);
            collector->onMsg = [thread](int, int) { thread->postMsg(FIRST); };
            thread->postMsg(FIRST);
            collector->waitFor(100);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

// Gives its raw message another size.
class ResizingListener : public utl::ThreadMsgListener {
  public:
    std::vector<int> numbers;
    void receiveMsg(int, utl::ThreadRawMsg& raw) override {
        NumberMsg msg(0, -1);
        EXPECT_EQ(msg.restoreFrom(raw), 1);
        numbers.push_back(msg.mNumber);
        utl::ThreadRawMsg other(numbers.size() % 2 == 0 ? 4 : 400);
        other.setMsgId(1);
        raw = other;
    }
};

TEST_F(MsgDrivenThread, AHandlerThatAssignsToItsMessage_SpoilsNoneBehindIt) {
    LogCapture const log;
    ResizingListener listener;
    ScopedMsgThread thread(8, 8);
    ASSERT_EQ(thread.start(&listener), 0);
    for (int i = 1; i <= 5; ++i) {
        EXPECT_EQ(thread.sendMsgSync(NumberMsg(5, i)), 1);
        EXPECT_EQ(thread.sendMsgInterrupt(NumberMsg(5, 10 * i)), 1);
    }
    thread.finish();
    EXPECT_EQ(listener.numbers, (std::vector<int>{1, 10, 2, 20, 3, 30, 4, 40, 5, 50}));
    EXPECT_TRUE(log.lines().empty());
}

}  // namespace

// Odd orders, misuse and failures in what is asked about queued messages, and in the timers of a message
// thread.

#include "UtlMsgDrivenThread.h"

#include <signal.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "UtlThreadManager.h"

namespace {

using namespace utltest;

constexpr int WORK = 901;              // its handler works for the test
constexpr int HOLD = 902;              // its handler waits until it is let go
constexpr int DRAINED = 903;           // what was queued in front of it has gone
constexpr int NO_TIMER = 77;           // the id of no timer
constexpr unsigned int LONG = 600000;  // a period that does not end during a test

using Delivered = std::vector<std::pair<int, int>>;

class OddThread : public ScopedMsgThread {
  public:
    using MsgDrivenThread::executeTimeoutSignal;
    using ScopedMsgThread::ScopedMsgThread;
};

/// A message thread on which a test can work, and which it can hold.
class Stage {
  public:
    explicit Stage(unsigned int maxMsgSize = 64, unsigned int maxMsgCount = 16,
                   unsigned int maxTimerCount = 4)
        : thread(maxMsgSize, maxMsgCount, "road", maxTimerCount) {
        collector.onMsg = [this](int id, int number) { act(id, number); };
    }
    ~Stage() {
        for (Gate& gate : mGates) {
            gate.open();
        }
    }

    void start() { ASSERT_EQ(thread.start(&collector), 0); }

    /// Works on the message thread, to the end.
    void onThread(std::function<void()> work) {
        mWork = std::move(work);
        ASSERT_EQ(thread.sendMsgSync(WORK), 1);
    }

    /// As `onThread`, and the loop does not go on until `release`.
    void hold(unsigned int index = 0, std::function<void()> work = nullptr) {
        mHeldWork = std::move(work);
        ASSERT_EQ(thread.postMsg(NumberMsg(HOLD, static_cast<int>(index))), 1);
        ASSERT_TRUE(mEntered[index].wait());
    }
    void release(unsigned int index = 0) { mGates[index].open(); }

    /// Sends the interrupt 50 to the loop that is held, and lets it go on until all is dealt with.
    void interruptHeldLoop() {
        unsigned int const before = hooks::write.calls();
        JoinedThread sender([&] { EXPECT_EQ(thread.sendMsgInterrupt(NumberMsg(50, 0)), 1); });
        waitForTokens(before + 1);
        release();
        sender.join();
        settle();
    }

    /// Returns when everything that was queued before has been dealt with.
    void settle() {
        onThread([] {});
    }

    /// As `settle`, where the control queue may be full.
    void drain() {
        while (thread.postMsg(DRAINED) == 0) {
            std::this_thread::yield();
        }
        ASSERT_TRUE(mDrained.wait());
    }

    /// What the test's own messages and timers brought, as id and number.
    Delivered delivered() const {
        Delivered result;
        for (Collector::Received const& one : collector.received()) {
            if (one.id != WORK && one.id != HOLD && one.id != DRAINED) {
                result.emplace_back(one.id, one.number);
            }
        }
        return result;
    }

    /// The number of the first queued message with that id; -1 if there is none.
    int peekNumber(int id) {
        utl::ThreadRawMsg raw(4);
        NumberMsg msg(0, -1);
        if (thread.peekMsg(id, &raw)) {
            EXPECT_EQ(msg.restoreFrom(raw), 1);
        }
        return msg.mNumber;
    }

    /// Fills the control queue with entries that do nothing; gives how many it took.
    unsigned int fillCtlQueue() {
        unsigned int count = 0;
        while (thread.postThreadCtlMsg(utl::MSG_ID_CTL_START_TIMER, NO_TIMER) == 1) {
            ++count;
        }
        return count;
    }

    Collector collector;
    MsgHandler onOther;

  private:
    void act(int id, int number) {
        if (id == WORK && mWork) {
            mWork();
        } else if (id == HOLD) {
            if (mHeldWork) {
                mHeldWork();
            }
            mEntered[static_cast<unsigned int>(number)].open();
            mGates[static_cast<unsigned int>(number)].wait();
        } else if (id == DRAINED) {
            mDrained.open();
        } else {
            onOther(id, number);
        }
    }

    std::function<void()> mWork;
    std::function<void()> mHeldWork;
    Gate mDrained;
    std::array<Gate, 3> mEntered;
    std::array<Gate, 3> mGates;

  public:
    OddThread thread;
};

class MsgDrivenThreadOdd : public WithoutWatchdogThread {
  protected:
    static std::string error(std::string const& text) { return "<UTIL> ERR: " + text; }

    /// Lines that begin and end like this and have more between.
    unsigned int countLike(std::string const& begin, std::string const& end) const {
        unsigned int count = 0;
        for (std::string const& line : log.lines()) {
            bool const fits = line.size() > begin.size() + end.size();
            if (fits && line.compare(0, begin.size(), begin) == 0 &&
                line.compare(line.size() - end.size(), end.size(), end) == 0) {
                ++count;
            }
        }
        return count;
    }

    unsigned int countWith(std::string const& text) const {
        unsigned int count = 0;
        for (std::string const& line : log.lines()) {
            count += line.find(text) != std::string::npos ? 1U : 0U;
        }
        return count;
    }

  private:
    HookScope const mHooks;

  protected:
    LogCapture const log;
};

/// Writes down what it is asked about and means the messages of one id.
class NotingJudgement : public utl::MsgDrivenThread::MsgJudgementInterface {
  public:
    explicit NotingJudgement(int wanted) : mWanted(wanted) {}
    bool judge(utl::ThreadRawMsg& msg) override {
        int id = utl::MSG_ID_NONE;
        EXPECT_EQ(msg.getMsgId(&id), 1);
        ids.push_back(id);
        sizes.push_back(msg.maxSize());
        threads.push_back(utl::ThreadManager::getCallerId());
        return id == mWanted;
    }
    std::vector<int> ids;
    std::vector<unsigned int> sizes;
    std::vector<int> threads;

  private:
    int const mWanted;
};

// ---- questions

TEST_F(MsgDrivenThreadOdd, EraseMsg_BehindAFrameThatLostItsEntry_FailsWithTheLine) {
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

TEST_F(MsgDrivenThreadOdd, EraseMsg_BehindTheFrameOfARefusedSynchronousMessage_ErasesItsOwn) {
    Stage stage(64, 2);
    stage.start();
    stage.hold();
    EXPECT_EQ(stage.fillCtlQueue(), 2 + utl::MsgDrivenThread::EXTRA_CTL_ENTRIES);
    EXPECT_EQ(stage.thread.sendMsgSync(NumberMsg(5, 55)), 0);  // its frame stays behind
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

TEST_F(MsgDrivenThreadOdd, AnEntryWithoutItsFrame_IsPassedOverByAQuestionAndFailsAnErasure) {
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

TEST_F(MsgDrivenThreadOdd, EarseMsgQueue_TakesOnlyPlacesThatAreInUse) {
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
        EXPECT_TRUE(stage.thread.earseMsgQueue(2, 23, UINT_MAX));  // as far as there is data
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

TEST_F(MsgDrivenThreadOdd, QuestionsAgainstAFullControlQueue_FailAndLeaveTheThreadWhole) {
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

TEST_F(MsgDrivenThreadOdd, AFrameTooSmallForATimeout_IsLoggedAndHindersNoOtherMessage) {
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

// ---- interrupts that change the queue

TEST_F(MsgDrivenThreadOdd, AnInterruptThatKillsTheTimerAtTheHead_TakesNoOtherMessageWithIt) {
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

TEST_F(MsgDrivenThreadOdd, AnInterruptThatReplacesTheHeadByANewMessageOfItsId_LosesNoneBetween) {
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

TEST_F(MsgDrivenThreadOdd, AnInterruptThatErasesASynchronousHead_FreesItsSenderAndDeliversTheRestOnce) {
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

TEST_F(MsgDrivenThreadOdd, RequestsOfAllKindsAtOnce_AreServedInterruptFirstThenErasureThenQuestion) {
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

TEST_F(MsgDrivenThreadOdd, WhoWaitsWhenTheLoopEnds_GetsFailureExceptForTheErasure) {
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

// ---- erased timeouts

TEST_F(MsgDrivenThreadOdd, TheHookOfAnErasedTimeout_MayAskEraseSetTimersAndWaitForSenders) {
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

// ---- timers

std::atomic<std::intptr_t> gNextNumber{0};
std::atomic<std::intptr_t> gDeleted{-1};

int numberingCreate(clockid_t, sigevent*, timer_t* timer) {
    *timer = reinterpret_cast<timer_t>(gNextNumber++);  // NOLINT(performance-no-int-to-ptr): as the C library
    return 0;
}

int idleSetTime(timer_t, int, itimerspec const*, itimerspec*) {
    return 0;
}

int notingDelete(timer_t timer) {
    gDeleted = reinterpret_cast<std::intptr_t>(timer);
    return 0;
}

TEST_F(MsgDrivenThreadOdd, TheTimerWithTheKernelsNumberZero_ExpiresAndIsDeletedAsAnyOther) {
    gNextNumber = 0;
    hooks::timerCreate.replace(numberingCreate);
    hooks::timerSetTime.replace(idleSetTime);
    hooks::timerDelete.replace(notingDelete);
    Stage stage;
    stage.start();
    int const resting = stage.thread.registerTimer(LONG);
    int const zero = stage.thread.setTimer(LONG);
    int const one = stage.thread.setTimer(LONG);
    EXPECT_EQ(stage.thread.toUserTimerId(0), zero);
    EXPECT_EQ(stage.thread.toUserTimerId(1), one);
    EXPECT_EQ(stage.thread.toUserTimerId(2), -1);
    EXPECT_EQ(stage.thread.toUserTimerId(-1), -1);  // and not the one that does not run
    expire(stage.thread, zero);
    ASSERT_TRUE(stage.collector.waitFor(1));
    EXPECT_EQ(stage.delivered(), (Delivered{{utl::MSG_ID_TIMER, zero}}));
    EXPECT_TRUE(stage.thread.killTimer(resting));
    EXPECT_EQ(hooks::timerDelete.calls(), 0U);
    EXPECT_TRUE(stage.thread.killTimer(zero));
    EXPECT_EQ(hooks::timerDelete.calls(), 1U);
    EXPECT_EQ(gDeleted, 0);
    EXPECT_EQ(stage.thread.toUserTimerId(0), -1);
}

TEST_F(MsgDrivenThreadOdd, KillTimer_WhenARunningOneCannotBeKept_LeavesNoSystemTimerBehind) {
    Stage stage(64, 16, 1);
    stage.start();
    stage.hold(0, [&] { EXPECT_EQ(stage.thread.setTimer(LONG), 1); });
    EXPECT_TRUE(stage.thread.killTimer(1, 1));
    // The loop comes to the next holding point before it has stopped the first: an interrupt runs there.
    stage.onOther = [&](int id, int) {
        if (id == 50) {
            EXPECT_EQ(stage.thread.setTimer(LONG), 2);
            stage.thread.executeTimeoutSignal(2);
            JoinedThread([&] { EXPECT_TRUE(stage.thread.killTimer(2, 0)); }).join();
            EXPECT_EQ(hooks::timerDelete.calls(), 1U);
            EXPECT_FALSE(stage.thread.hasMsg(utl::MSG_ID_TIMER));
        }
    };
    stage.interruptHeldLoop();
    EXPECT_EQ(stage.delivered(), (Delivered{{50, 0}}));
    EXPECT_EQ(hooks::timerDelete.calls(), 2U);
    EXPECT_EQ(hooks::timerCreate.calls(), 2U);
    EXPECT_EQ(stage.thread.erasedTimers(), (std::vector<int>{1, 2}));
}

TEST_F(MsgDrivenThreadOdd, KillTimer_AgainstAFullControlQueue_FailsAndTheTimerGoesOn) {
    Stage stage;
    stage.start();
    stage.hold(0, [&] { EXPECT_EQ(stage.thread.setTimer(LONG), 1); });
    stage.fillCtlQueue();
    EXPECT_FALSE(stage.thread.killTimer(1, 0));
    EXPECT_EQ(
        log.count(error("MsgDrivenThread(road) Overflow ThreadCtlMsgQueue  MaxCount:272 MsgId:0x80000007")),
        1U);
    EXPECT_TRUE(stage.thread.erasedTimers().empty());
    ASSERT_NE(stage.thread.findTimer(1), nullptr);
    EXPECT_TRUE(stage.thread.findTimer(1)->isRunning());
    stage.release();
    stage.drain();
    expire(stage.thread, 1);
    while (stage.delivered().empty()) {
        std::this_thread::yield();
    }
    EXPECT_EQ(stage.delivered(), (Delivered{{utl::MSG_ID_TIMER, 1}}));
    EXPECT_TRUE(stage.thread.killTimer(1, 0));
    EXPECT_FALSE(stage.thread.killTimer(1, 0));
    stage.settle();
    EXPECT_EQ(hooks::timerDelete.calls(), 1U);
    EXPECT_EQ(stage.thread.erasedTimers(), (std::vector<int>{1}));
}

TEST_F(MsgDrivenThreadOdd, TheHookOfAFinishedTimer_FindsItsPlaceFree) {
    Stage stage(64, 16, 1);
    stage.start();
    int next = 0;
    stage.thread.onErase = [&](int, int) {
        if (next == 0) {
            next = stage.thread.setTimer(LONG, 0, 1, 0);
        }
    };
    stage.onThread([&] { stage.thread.executeTimeoutSignal(stage.thread.setTimer(LONG, 0, 1, 0)); });
    stage.settle();
    EXPECT_EQ(next, 2);
    EXPECT_EQ(stage.thread.remTimerIdCount(), 0U);
    stage.onThread([&] { stage.thread.executeTimeoutSignal(next); });
    stage.settle();
    EXPECT_EQ(stage.thread.erasedTimers(), (std::vector<int>{1, 2}));
    EXPECT_EQ(stage.delivered(), (Delivered{{utl::MSG_ID_TIMER, 1}, {utl::MSG_ID_TIMER, 2}}));
}

TEST_F(MsgDrivenThreadOdd, KillTimerThatWaits_IsFreedByALoopThatBreaksAndHookedOnce) {
    Stage stage;
    stage.start();
    stage.hold(0, [&] {
        EXPECT_EQ(stage.thread.setTimer(LONG), 1);
        EXPECT_EQ(stage.thread.setTimer(LONG), 2);
        EXPECT_EQ(stage.thread.setTimer(LONG), 3);
    });
    unsigned int const before = hooks::write.calls();
    std::atomic<int> killer{0};
    JoinedThread helper([&] {
        killer = utl::ThreadManager::getCallerId();
        stage.thread.killTimer(2, 0);
    });
    waitForTokens(before + 1);
    hooks::read.failFrom(1, 1, -1, EIO);
    stage.release();
    helper.join();
    EXPECT_EQ(stage.thread.waitTo(3, 0), 0);
    EXPECT_EQ(log.count(error("MsgDrivenThread(road) Error. read Ret:4294967295 errno:" +
                              std::to_string(EIO) + " !!Break msg loop!!")),
              1U);
    std::vector<int> const ids = stage.thread.erasedTimers();
    std::vector<int> const threads = stage.thread.erasingThreads();
    ASSERT_EQ(ids.size(), 3U);
    for (size_t i = 0; i < ids.size(); ++i) {
        EXPECT_EQ(threads[i], ids[i] == 2 ? killer.load() : stage.thread.getId()) << ids[i];
    }
    EXPECT_EQ(hooks::timerDelete.calls(), 3U);
    EXPECT_EQ(stage.thread.remTimerIdCount(), 4U);
    EXPECT_FALSE(stage.thread.killTimer(1));
    EXPECT_FALSE(stage.thread.startTimer(1));
    EXPECT_EQ(stage.thread.registerTimer(LONG), -1);
    EXPECT_EQ(stage.thread.setTimer(LONG), -1);
}

// ---- waits that end in odd ways

TEST_F(MsgDrivenThreadOdd, SetTimerThatWaits_IsToldOfALoopThatBreaksFirst) {
    Stage stage;
    stage.start();
    stage.hold();
    EXPECT_EQ(stage.thread.registerTimer(LONG), 1);
    unsigned int const before = hooks::write.calls();
    JoinedThread setter([&] { EXPECT_EQ(stage.thread.setTimer(LONG, 0), -1); });
    waitForTokens(before + 1);
    hooks::read.failFrom(1, 1, -1, EIO);
    stage.release();
    setter.join();
    EXPECT_EQ(stage.thread.waitTo(3, 0), 0);
    EXPECT_FALSE(stage.thread.startTimer(1, 0));
    EXPECT_EQ(stage.thread.remTimerIdCount(), 4U);
    EXPECT_EQ(stage.thread.erasedTimers(), (std::vector<int>{2, 1}));
    EXPECT_EQ(hooks::timerCreate.calls(), 0U);
}

TEST_F(MsgDrivenThreadOdd, SetTimerThatWaits_GivesTheIdOfATimerThatAHandlerKillsAtOnce) {
    for (int round = 0; round < 30; ++round) {
        Stage stage;
        stage.start();
        stage.onOther = [&](int id, int) {
            if (id == 5) {
                EXPECT_TRUE(stage.thread.killTimer(1));
            }
        };
        stage.hold();
        unsigned int const before = hooks::write.calls();
        JoinedThread setter([&] { EXPECT_EQ(stage.thread.setTimer(LONG, 0), 1); });
        waitForTokens(before + 1);
        EXPECT_EQ(stage.thread.sendMsgAsync(NumberMsg(5, 0)), 1);
        stage.release();
        setter.join();
        stage.settle();
        EXPECT_EQ(stage.thread.erasedTimers(), (std::vector<int>{1}));
    }
}

TEST_F(MsgDrivenThreadOdd, TheHookOfATimerKilledFromOutside_HoldsNoLockAgainstOtherCallers) {
    Stage stage(64, 16, 1);
    stage.start();
    stage.thread.onErase = [&](int, int timer) {
        if (timer == 1) {
            JoinedThread([&] {
                EXPECT_EQ(stage.thread.setTimer(LONG, 0), 2);
                EXPECT_EQ(stage.thread.postMsg(NumberMsg(5, 55)), 1);
                EXPECT_TRUE(stage.thread.killTimer(2, 0));
            }).join();
        }
    };
    EXPECT_EQ(stage.thread.setTimer(LONG, 0), 1);
    EXPECT_TRUE(stage.thread.killTimer(1, 0));
    stage.settle();
    EXPECT_EQ(stage.thread.erasedTimers(), (std::vector<int>{1, 2}));
    EXPECT_EQ(stage.delivered(), (Delivered{{5, 55}}));
}

TEST_F(MsgDrivenThreadOdd, AnErasureWhoseTimeoutCannotBeArmedAgain_GoesOnWithWhatStandsBehind) {
    Stage stage;
    stage.start();
    stage.onThread([&] {
        EXPECT_EQ(stage.thread.setTimer(LONG, 0, 0, 0), 1);
        EXPECT_EQ(stage.thread.setTimer(LONG, 0, 0, 1), 2);
        stage.thread.executeTimeoutSignal(1);
        stage.thread.postMsg(NumberMsg(5, 55));
        stage.thread.executeTimeoutSignal(2);
        hooks::timerCreate.failFrom(1, 1, -1, EAGAIN);
        EXPECT_TRUE(stage.thread.eraseMsg(utl::MSG_ID_TIMER));
        EXPECT_FALSE(stage.thread.hasMsg(utl::MSG_ID_TIMER));
    });
    stage.settle();
    EXPECT_EQ(stage.delivered(), (Delivered{{5, 55}}));
    EXPECT_EQ(log.lines().size(), 1U);
}

/// Stays at the end of its life, behind the loop, until it is let go.
class LingeringThread : public OddThread {
  public:
    using OddThread::OddThread;
    ~LingeringThread() override {
        mGo.open();
        finish();
    }
    Gate lingers;
    void letGo() { mGo.open(); }

  protected:
    void postExecute() override {
        lingers.open();
        mGo.wait();
    }

  private:
    Gate mGo;
};

TEST_F(MsgDrivenThreadOdd, NobodyWaitsForALoopThatBroke_WhileItsThreadStillRuns) {
    Collector collector;
    LingeringThread thread;
    ASSERT_EQ(thread.start(&collector), 0);
    EXPECT_EQ(thread.registerTimer(LONG), 1);
    hooks::read.failFrom(1, 1, -1, EIO);
    thread.postMsg(5);
    ASSERT_TRUE(thread.lingers.wait());
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
    thread.letGo();
    EXPECT_EQ(thread.waitTo(3, 0), 0);
    EXPECT_TRUE(thread.leaveManagement());
    EXPECT_EQ(hooks::timerCreate.calls(), hooks::timerDelete.calls());
}

TEST_F(MsgDrivenThreadOdd, AHookThatWantsAnotherTimerWhileTheLoopBreaks_LeavesNothingBehind) {
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

// ---- against a model

/// What the queue of a message thread should hold.
class Model {
  public:
    static constexpr size_t FRAMES = 5;

    explicit Model(OddThread& thread) : mThread(thread) {}

    Delivered queued;

    void step(unsigned int choice, int number) {
        int const id = 1 + number % 3;
        switch (choice % 8) {
            case 0:
            case 1:
            case 2:
                post(id, number);
                break;
            case 3:
            case 4:
                expireTimer(1 + number % 2);
                break;
            case 5:
                erase(number % 5 == 0 ? utl::MSG_ID_TIMER : id);
                break;
            case 6:
                compare(number % 2 == 0 ? utl::MSG_ID_TIMER : id);
                break;
            default:
                compare(utl::MSG_ID_ANY);
                break;
        }
    }

  private:
    static bool means(int asked, int id) { return asked == utl::MSG_ID_ANY || asked == id; }

    size_t countOf(std::function<bool(std::pair<int, int> const&)> const& isMeant) const {
        return static_cast<size_t>(std::count_if(queued.begin(), queued.end(), isMeant));
    }

    void post(int id, int number) {
        bool const fits = countOf([](auto const& one) { return one.first != utl::MSG_ID_TIMER; }) < FRAMES;
        EXPECT_EQ(mThread.postMsg(NumberMsg(id, number)), fits ? 1 : 0);
        if (fits) {
            queued.emplace_back(id, number);
        }
    }

    void expireTimer(int timer) {
        std::pair<int, int> const entry(utl::MSG_ID_TIMER, timer);
        mThread.executeTimeoutSignal(timer);
        if (countOf([&](auto const& one) { return one == entry; }) < (timer == 1 ? 2U : 1U)) {
            queued.push_back(entry);
        }
    }

    void erase(int id) {
        EXPECT_TRUE(mThread.eraseMsg(id));
        queued.erase(std::remove_if(queued.begin(), queued.end(),
                                    [&](auto const& one) { return means(id, one.first); }),
                     queued.end());
    }

    void compare(int asked) {
        auto const found = std::find_if(queued.begin(), queued.end(),
                                        [&](auto const& one) { return means(asked, one.first); });
        bool const isThere = found != queued.end();
        EXPECT_EQ(mThread.hasMsg(asked), isThere);
        utl::ThreadRawMsg raw(4);
        ASSERT_EQ(mThread.peekMsg(asked, &raw), isThere);
        if (isThere) {
            NumberMsg msg(0);
            EXPECT_EQ(msg.restoreFrom(raw), 1);
            EXPECT_EQ(std::make_pair(msg.getMsgId(), msg.mNumber), *found);
        }
        EXPECT_EQ(mThread.getFirstMsgId(), queued.empty() ? utl::MSG_ID_NONE : queued.front().first);
    }

    OddThread& mThread;
};

TEST_F(MsgDrivenThreadOdd, AnyMixtureOfPostsExpiriesErasuresAndQuestions_AgreesWithAPlainList) {
    Stage stage(5, Model::FRAMES, 2);  // frames of 9 bytes, so that they lie across the end of the ring
    stage.start();
    Model model(stage.thread);
    Delivered expected;
    unsigned int random = 1;
    for (int round = 0; round < 60; ++round) {
        stage.onThread([&] {
            if (round == 0) {
                EXPECT_EQ(stage.thread.setTimer(LONG, 0, 0, 1), 1);
                EXPECT_EQ(stage.thread.setTimer(LONG, 0, 0, 0), 2);
            }
            for (int i = 0; i < 30; ++i) {
                random = random * 1664525U + 1013904223U;
                model.step(random >> 24, static_cast<int>(random >> 8 & 0xFFFF));
            }
        });
        expected.insert(expected.end(), model.queued.begin(), model.queued.end());
        model.queued.clear();
        while (stage.thread.getFirstMsgId() != utl::MSG_ID_NONE) {
            std::this_thread::yield();
        }
    }
    stage.settle();
    EXPECT_EQ(stage.delivered(), expected);
    EXPECT_GT(expected.size(), 60U);
    EXPECT_EQ(countWith("Mismatched"), 0U);
    EXPECT_EQ(countWith("executeEraseMsg"), 0U);
    EXPECT_EQ(countWith("Error. MsgId"), 0U);
}

// ---- many at once

TEST_F(MsgDrivenThreadOdd, SynchronousSendersAndAnEraser_AgreeOnWhatWasDelivered) {
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

TEST_F(MsgDrivenThreadOdd, TimersSetKilledErasedAndFiredAtOnce_LeaveExactlyOnceEach) {
    Collector collector;
    OddThread thread(8, 64, "road", 3);
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

TEST_F(MsgDrivenThreadOdd, AHandlerThatAssignsToItsMessage_SpoilsNoneBehindIt) {
    ResizingListener listener;
    OddThread thread(8, 8);
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

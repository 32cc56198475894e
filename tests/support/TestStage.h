#pragma once

// A message thread that a test holds, has work and questions it: what the tests of its queue and timers
// share.

#include <signal.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "TestGate.h"
#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "UtlThreadManager.h"

namespace utltest {

constexpr int RUN = 100;               // its handler works for `runOn`
constexpr int WORK = 901;              // its handler works for the test
constexpr int HOLD = 902;              // its handler waits until it is let go
constexpr int DRAINED = 903;           // what was queued before it has left the queue
constexpr int NO_TIMER = 77;           // the id of no timer
constexpr unsigned int LONG = 600000;  // a period that does not end during a test

using Delivered = std::vector<std::pair<int, int>>;

class OpenedMsgThread : public ScopedMsgThread {
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
        ASSERT_TRUE(mGates[index].waitUntilHeld());
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

    /// Fills the control queue with entries that do nothing; returns how many it took.
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
            EXPECT_TRUE(mGates[static_cast<unsigned int>(number)].hold());
        } else if (id == DRAINED) {
            mDrained.open();
        } else {
            onOther(id, number);
        }
    }

    std::function<void()> mWork;
    std::function<void()> mHeldWork;
    Gate mDrained;
    std::array<Gate, 3> mGates;

  public:
    OpenedMsgThread thread;
};

/// A message thread that is alone with the test, and its log.
class MsgThreadOnStage : public WithoutWatchdogThread {
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

/// Writes down what it is asked about and matches the messages of one id.
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

inline int timerSignal() {
    return SIGRTMIN + 2;
}

/// Works on the message thread of `thread`, whose listener `collector` is.
template <typename WORK>
void runOn(ScopedMsgThread& thread, Collector& collector, WORK work) {
    collector.onMsg = [&](int id, int) {
        if (id == RUN) {
            work();
        }
    };
    ASSERT_EQ(thread.sendMsgSync(RUN), 1);
    ASSERT_EQ(thread.sendMsgSync(RUN + 1), 1);
    collector.onMsg = MsgHandler::Function();
}

/// A blocker's handler that does `work` before it blocks.
template <typename WORK>
void beforeBlocking(HeldMsgThread& road, WORK work) {
    auto const block = road.collector.onMsg.get();
    road.collector.onMsg = [block, work](int id, int number) {
        if (id == BLOCKER) {
            work();
        }
        block(id, number);
    };
}

inline std::string stamped(std::string const& text, int error) {
    return "<UTIL> ERR: " + text + std::to_string(error);
}

}  // namespace utltest

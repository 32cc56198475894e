#pragma once

// A shared message thread and listeners for its tests.

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "TestGate.h"
#include "TestMessages.h"
#include "TestPrivate.h"
#include "TestTask.h"
#include "TestThreads.h"
#include "UtlMsgDrivenSharedThread.h"

namespace utltest {

namespace in_shared {
UTLTEST_REVEAL(utl::MsgDrivenSharedThread, mListeners);
UTLTEST_REVEAL(utl::MsgDrivenSharedThread, mAttachResult);
UTLTEST_REVEAL(utl::MsgDrivenSharedThread, mForwardIndex);
UTLTEST_REVEAL(utl::MsgDrivenSharedThread, mPostMsg);
UTLTEST_REVEAL(utl::MsgDrivenSharedThread, mSyncMsg);
UTLTEST_REVEAL(utl::MsgDrivenSharedThread, mInterruptMsg);
UTLTEST_REVEAL(utl::MsgDrivenSharedThread, mReceivedMsg);
UTLTEST_REVEAL(utl::MsgDrivenSharedThread, mTimerListeners);
UTLTEST_REVEAL(utl::MsgDrivenSharedThread, mAttachLock);
UTLTEST_REVEAL(utl::MsgDrivenSharedThread, mPostLock);
UTLTEST_REVEAL(utl::MsgDrivenSharedThread, mSyncSendLock);
UTLTEST_REVEAL(utl::MsgDrivenSharedThread, mInterruptSendLock);
UTLTEST_REVEAL(utl::MsgDrivenSharedThread, mTimerMapLock);
}  // namespace in_shared

/// A way to the fields of a shared message thread.
struct MsgDrivenSharedThreadAccess {
    /// Where they begin, in the order that they must have.
    static std::vector<std::size_t> fields(utl::MsgDrivenSharedThread const& t) {
        using namespace in_shared;
        return offsetsOf(t, mListeners, mAttachResult, mForwardIndex, mPostMsg, mSyncMsg, mInterruptMsg,
                         mReceivedMsg, mTimerListeners, mAttachLock, mPostLock, mSyncSendLock,
                         mInterruptSendLock, mTimerMapLock);
    }
};

/// A shared thread that is stopped and taken out of the registry at the end of the scope.
class ScopedSharedThread : public utl::MsgDrivenSharedThread {
  public:
    explicit ScopedSharedThread(unsigned int maxMsgSize = 64, unsigned int maxMsgCount = 16,
                                unsigned int maxListenerCount = 4, char const* name = "shared",
                                unsigned int maxTimerCount = 4)
        : MsgDrivenSharedThread(maxMsgSize, maxMsgCount, maxListenerCount, name, maxTimerCount) {}
    ~ScopedSharedThread() override { finish(); }

    void finish() {
        stop(1, 0);
        leaveManagement();
    }

    using MsgDrivenSharedThread::JudgeMsgBroadcast;
    using MsgDrivenSharedThread::JudgeMsgSpecifiedListener;
    using MsgDrivenSharedThread::MsgListenerMsg;
    using MsgDrivenSharedThread::SpecifiedMsgListenerMsg;
    using MsgDrivenSharedThread::TimerListenerMap;
};

/// Holds the thread in its first message until the gate opens.
class Holder : public utl::ThreadMsgListener {
  public:
    Gate gate;

    ~Holder() override { gate.open(); }
    void receiveMsg(int, utl::ThreadRawMsg&) override { EXPECT_TRUE(gate.hold()); }
};

/// Holds the thread from now on.
inline void holdIn(Holder& holder, utl::MsgDrivenSharedThread& thread) {
    ASSERT_EQ(thread.postMsg(&holder, BLOCKER), 1);
    ASSERT_TRUE(holder.gate.waitUntilHeld());
}

/// Runs a piece of work for each message.
class Worker : public utl::ThreadMsgListener {
  public:
    explicit Worker(std::function<void()> work) : mWork(std::move(work)) {}
    void receiveMsg(int, utl::ThreadRawMsg&) override { mWork(); }

  private:
    std::function<void()> const mWork;
};

/// Runs the work on the message thread, and waits until it is done.
template <typename WORK>
void workOn(utl::MsgDrivenSharedThread& thread, WORK work) {
    Worker worker(work);
    ASSERT_EQ(thread.sendMsgSync(&worker, 1), 1);
}

/// Where thread `id` reported last; no place for one that is not registered.
inline utl::StatementInfo lastStatementOf(int id) {
    return utltest::ThreadWatchdogAccess::copyInfo(utltest::ThreadManagerAccess::watchdog(), id)
        .lastStatement;
}

/// A thread that is watched, so that it shows where it waits. The watchdog must be initialized.
class WatchedThread {
  public:
    template <typename WORK>
    explicit WatchedThread(WORK work)
        : mThread([this, work] {
              utl::ThreadManager::get()->entryWatchdog(60000, nullptr);
              utl::ThreadManager::get()->startWatchdog();
              mId = kernelId();
              work();
              utl::ThreadManager::get()->unregisterWatchdog(kernelId());
          }) {}
    ~WatchedThread() { mThread.join(); }

    /// As `waitUntilIn`, and the thread sleeps.
    void waitUntilAsleepIn(std::string const& function) const {
        do {
            waitUntilIn(function);
        } while (!isAsleep(mId));
    }

    /// Waits until the thread is about to make a call in `function` that may block.
    void waitUntilIn(std::string const& function) const {
        auto const place = [this] { return lastStatementOf(mId); };
        while (place().function != function || place().sub != 1) {
            std::this_thread::yield();
        }
    }

  private:
    std::atomic<int> mId{0};
    std::thread mThread;
};

/// A shared thread whose timers a test can let expire.
class OpenedSharedThread : public ScopedSharedThread {
  public:
    using MsgDrivenSharedThread::executeTimeoutSignal;
    using ScopedSharedThread::ScopedSharedThread;
};

/// Waits until the kernel says that the thread sleeps; `id` is 0 before it is known.
inline void waitUntilAsleep(std::atomic<int> const& id) {
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

/// A shared thread that is alone with the test, and its log.
class SharedThreadAlone : public WithoutWatchdogThread {
  protected:
    static std::string error(std::string const& text) { return "<UTIL> ERR: " + text; }

    /// Returns when the thread has dealt with what was queued before.
    static void settle(utl::MsgDrivenSharedThread& thread) {
        workOn(thread, [] {});
    }

    static int peekNumber(OpenedSharedThread& thread, utl::ThreadMsgListener* listener, int id) {
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

}  // namespace utltest

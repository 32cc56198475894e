#pragma once

// Messages and listeners for the tests of message threads.

#include <fcntl.h>
#include <signal.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "TestGate.h"
#include "TestHooks.h"
#include "TestLayout.h"
#include "TestLog.h"
#include "TestPrivate.h"
#include "TestThreads.h"
#include "UtlMsgDrivenThread.h"
#include "UtlThreadManager.h"

namespace utltest {

namespace in_thread {
UTLTEST_REVEAL(utl::MsgDrivenThread, mQueueLock);
UTLTEST_REVEAL(utl::MsgDrivenThread, mNextUserTimerId);
UTLTEST_REVEAL(utl::MsgDrivenThread, mPipe);
UTLTEST_REVEAL(utl::MsgDrivenThread, mCtlQueue);
UTLTEST_REVEAL(utl::MsgDrivenThread, mDataQueue);
UTLTEST_REVEAL(utl::MsgDrivenThread, mUnannouncedFrames);
UTLTEST_REVEAL(utl::MsgDrivenThread, mListener);
UTLTEST_REVEAL(utl::MsgDrivenThread, mMaxMsgCount);
UTLTEST_REVEAL(utl::MsgDrivenThread, mDataOverflowLogged);
UTLTEST_REVEAL(utl::MsgDrivenThread, mInterruptQueue);
UTLTEST_REVEAL(utl::MsgDrivenThread, mSendMsg);
UTLTEST_REVEAL(utl::MsgDrivenThread, mReceiveMsg);
UTLTEST_REVEAL(utl::MsgDrivenThread, mScanMsg);
UTLTEST_REVEAL(utl::MsgDrivenThread, mPeekTarget);
UTLTEST_REVEAL(utl::MsgDrivenThread, mInterruptEvent);
UTLTEST_REVEAL(utl::MsgDrivenThread, mSyncEvent);
UTLTEST_REVEAL(utl::MsgDrivenThread, mEraseEvent);
UTLTEST_REVEAL(utl::MsgDrivenThread, mFindEvent);
UTLTEST_REVEAL(utl::MsgDrivenThread, mSyncResult);
UTLTEST_REVEAL(utl::MsgDrivenThread, mInterruptResult);
UTLTEST_REVEAL(utl::MsgDrivenThread, mEraseResult);
UTLTEST_REVEAL(utl::MsgDrivenThread, mFindResult);
UTLTEST_REVEAL(utl::MsgDrivenThread, mTimers);
UTLTEST_REVEAL(utl::MsgDrivenThread, mStopTimers);
UTLTEST_REVEAL(utl::MsgDrivenThread, mEraseJudgement);
UTLTEST_REVEAL(utl::MsgDrivenThread, mFindJudgement);
UTLTEST_REVEAL(utl::MsgDrivenThread, mNextSysTimerNumber);
UTLTEST_REVEAL(utl::MsgDrivenThread, mLifecycleLock);
UTLTEST_REVEAL(utl::MsgDrivenThread, mSyncLock);
UTLTEST_REVEAL(utl::MsgDrivenThread, mInterruptLock);
UTLTEST_REVEAL(utl::MsgDrivenThread, mEraseLock);
UTLTEST_REVEAL(utl::MsgDrivenThread, mFindLock);
}  // namespace in_thread

/// A way to the state of a message thread that no operation shows.
struct MsgDrivenThreadAccess {
    static void setNextTimerId(utl::MsgDrivenThread& thread, int id) {
        utl::SyncGuard const guard(thread.*in_thread::mQueueLock);
        thread.*in_thread::mNextUserTimerId = id;
    }
    static int readEnd(utl::MsgDrivenThread const& thread) { return (thread.*in_thread::mPipe)[0]; }
    static int writeEnd(utl::MsgDrivenThread const& thread) { return (thread.*in_thread::mPipe)[1]; }

    /// Both queues, as a thread that takes their lock finds them.
    struct Queues {
        std::vector<utl::MsgDrivenThread::ThreadCtlMsg> entries;
        std::vector<unsigned char> frames;
        unsigned int strayFrames;
    };
    static Queues queues(utl::MsgDrivenThread const& thread) {
        utl::SyncGuard const guard(thread.*in_thread::mQueueLock);
        Queues result;
        result.entries.resize((thread.*in_thread::mCtlQueue).size());
        result.frames.resize((thread.*in_thread::mDataQueue).size());
        (thread.*in_thread::mCtlQueue)
            .copyOut(0, result.entries.data(), (thread.*in_thread::mCtlQueue).size());
        (thread.*in_thread::mDataQueue)
            .copyOut(0, result.frames.data(), (thread.*in_thread::mDataQueue).size());
        result.strayFrames = thread.*in_thread::mUnannouncedFrames;
        return result;
    }

    /// Where the fields begin, in the order that they must have.
    static std::vector<std::size_t> fields(utl::MsgDrivenThread const& t) {
        using namespace in_thread;
        return offsetsOf(t, mListener, mMaxMsgCount, mCtlQueue, mDataQueue, mDataOverflowLogged,
                         mInterruptQueue, mSendMsg, mReceiveMsg, mScanMsg, mPeekTarget, mInterruptEvent,
                         mSyncEvent, mEraseEvent, mFindEvent, mSyncResult, mInterruptResult, mEraseResult,
                         mFindResult, mTimers, mStopTimers, mNextUserTimerId, mEraseJudgement, mFindJudgement,
                         mNextSysTimerNumber, mPipe, mLifecycleLock, mQueueLock, mSyncLock, mInterruptLock,
                         mEraseLock, mFindLock);
    }
};

using ThreadAccess = MsgDrivenThreadAccess;

/// The tokens that a pipe with this end certainly accepts.
inline int tokensThatFit(int pipeEnd) {
    return static_cast<int>(hooks::fcntl.real(pipeEnd, F_GETPIPE_SZ, 0) - getpagesize()) / 8 + 1;
}

/// The line of a message that the thread's pipe has no room for.
inline std::string pipeOverflow(utl::MsgDrivenThread const& thread, char const* hexId) {
    return std::string("<UTIL> ERR: MsgDrivenThread(") + thread.getName().buffer() +
           ") Overflow Pipe  MaxCount:" + std::to_string(tokensThatFit(ThreadAccess::writeEnd(thread))) +
           " MsgId:" + hexId;
}

/// The watchdog has no thread, so the calls of the library that a test counts or replaces are made by its own
/// threads only.
class WithoutWatchdogThread : public ::testing::Test {
  protected:
    WithoutWatchdogThread() { renewManager(utl::ThreadManager::DEFAULT_ENTRY_MAX); }

    static void renewManager(unsigned int entryMax) {
        utl::ThreadManager::destroy();
        utltest::ThreadManagerAccess::createWithoutWatchdogThread(entryMax);
    }
};

/// A message with one number.
class NumberMsg : public utl::Msg {
  public:
    explicit NumberMsg(int id, int number = 0) : Msg(id), mNumber(number) {}
    int mNumber;

  protected:
    int storeDataTo(utl::MsgDataBroker* broker) const override { return broker->set(mNumber); }
    int restoreDataFrom(utl::MsgDataBroker& broker) override { return broker.get(&mNumber); }
};

/// A message of the given number of bytes.
class BytesMsg : public utl::Msg {
  public:
    BytesMsg(int id, unsigned int count) : Msg(id), mBytes(count, static_cast<unsigned char>(0x5A)) {}
    std::vector<unsigned char> mBytes;

  protected:
    int storeDataTo(utl::MsgDataBroker* broker) const override {
        return broker->set(mBytes.data(), static_cast<unsigned int>(mBytes.size()));
    }
    int restoreDataFrom(utl::MsgDataBroker& broker) override {
        return broker.get(mBytes.data(), static_cast<unsigned int>(mBytes.size()));
    }
};

/// Calls a function for each message; the function may be exchanged while messages arrive.
class MsgHandler {
  public:
    using Function = std::function<void(int id, int number)>;

    MsgHandler& operator=(Function function) {
        std::lock_guard<std::mutex> const guard(mMutex);
        mFunction = std::move(function);
        return *this;
    }
    void operator()(int id, int number) const {
        Function const function = get();
        if (function) {
            function(id, number);
        }
    }
    Function get() const {
        std::lock_guard<std::mutex> const guard(mMutex);
        return mFunction;
    }

  private:
    mutable std::mutex mMutex;
    Function mFunction;
};

/// Keeps ids and numbers of what it receives, and runs `onMsg` after each.
class Collector : public utl::ThreadMsgListener {
  public:
    struct Received {
        int threadId;
        int id;
        int number;
        bool operator==(Received const& other) const {
            return threadId == other.threadId && id == other.id && number == other.number;
        }
    };

    MsgHandler onMsg;

    void receiveMsg(int threadId, utl::ThreadRawMsg& raw) override {
        NumberMsg msg(0);
        msg.restoreFrom(raw);
        {
            std::lock_guard<std::mutex> const guard(mMutex);
            mReceived.push_back({threadId, msg.getMsgId(), msg.mNumber});
            mChanged.notify_all();
        }
        onMsg(msg.getMsgId(), msg.mNumber);
    }

    std::vector<Received> received() const {
        std::lock_guard<std::mutex> const guard(mMutex);
        return mReceived;
    }

    std::vector<int> ids() const {
        std::vector<int> result;
        for (Received const& one : received()) {
            result.push_back(one.id);
        }
        return result;
    }

    /// Waits until `count` messages were received; false after half a minute.
    bool waitFor(size_t count) const {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, std::chrono::seconds(30), [&] { return mReceived.size() >= count; });
    }

  private:
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    std::vector<Received> mReceived;
};

/// A message thread that is stopped and unregistered at the end of the scope.
class ScopedMsgThread : public utl::MsgDrivenThread {
  public:
    explicit ScopedMsgThread(unsigned int maxMsgSize = 64, unsigned int maxMsgCount = 16,
                             char const* name = "road", unsigned int maxTimerCount = 4)
        : MsgDrivenThread(maxMsgSize, maxMsgCount, name, maxTimerCount) {}
    ~ScopedMsgThread() override { finish(); }

    void finish() {
        stop(1, 0);
        leaveManagement();
    }
    using MsgDrivenThread::isDataMsgId;
    using MsgDrivenThread::TimeoutPostHandling;

    /// The timers that were erased, in their order.
    std::vector<int> erasedTimers() const {
        std::lock_guard<std::mutex> const guard(mErasedMutex);
        return mErased;
    }

    /// The threads that the hook ran on, in the same order.
    std::vector<int> erasingThreads() const {
        std::lock_guard<std::mutex> const guard(mErasedMutex);
        return mErasingThreads;
    }

    /// Runs in the hook, with the timer's id as the number.
    MsgHandler onErase;

  protected:
    void onEraseTimer(int timerId) override {
        {
            std::lock_guard<std::mutex> const guard(mErasedMutex);
            mErased.push_back(timerId);
            mErasingThreads.push_back(utl::ThreadManager::getCallerId());
        }
        onErase(utl::MSG_ID_TIMER, timerId);
    }

  private:
    mutable std::mutex mErasedMutex;
    std::vector<int> mErased;
    std::vector<int> mErasingThreads;
};

/// A thread that is joined at the end of the scope or before.
class JoinedThread {
  public:
    explicit JoinedThread(std::function<void()> work) : mThread(std::move(work)) {}
    ~JoinedThread() { join(); }
    void join() {
        if (mThread.joinable()) {
            mThread.join();
        }
    }

  private:
    std::thread mThread;
};

constexpr int BLOCKER = 900;

/// A thread whose handler holds at message BLOCKER until the gate opens, so that a test can fill the queues.
struct HeldMsgThread {
    explicit HeldMsgThread(unsigned int maxMsgSize = 64, unsigned int maxMsgCount = 16,
                           char const* name = "road")
        : thread(maxMsgSize, maxMsgCount, name) {
        collector.onMsg = [this](int id, int number) {
            if (id == BLOCKER) {
                EXPECT_TRUE(gate.hold());
            } else {
                onOther(id, number);
            }
        };
    }
    ~HeldMsgThread() { gate.open(); }

    void startAndBlock() {
        ASSERT_EQ(thread.start(&collector), 0);
        ASSERT_EQ(thread.postMsg(BLOCKER), 1);
        ASSERT_TRUE(gate.waitUntilHeld());
    }

    Gate gate;
    MsgHandler onOther;
    Collector collector;
    ScopedMsgThread thread;
};

/// Does `work` while the control queue has no place left. The loop must be held meanwhile.
template <typename WORK>
void withFullCtlQueue(utl::MsgDrivenThread& thread, WORK work) {
    while (thread.postThreadCtlMsg(utl::MSG_ID_CTL_WAKE, -1) == 1) {
    }
    work();
    while (thread.eraseMsgFromCtlQueue(utl::MSG_ID_CTL_WAKE)) {
    }
}

/// Does `work` while no token can be written.
template <typename WORK>
void withoutTokens(WORK work) {
    hooks::write.failFrom(1, 0, -1, EIO);
    work();
    hooks::write.reset();
}

/// The line of a frame that its synchronous sender could not announce, met by an entry with `ctlId`.
inline std::string mismatchLine(char const* thread, char const* frameId, char const* ctlId) {
    return std::string("<UTIL> ERR: !!!!!!!! MsgDrivenThread(") + thread +
           ") MismatchedMsg... DataQueueMsgId:" + frameId + " CtlMsgId:" + ctlId + " Erased Data !!!!!!!!";
}

/// Waits until the library has written that many tokens since the hooks were reset.
inline void waitForTokens(unsigned int count) {
    while (hooks::write.calls() < count) {
        std::this_thread::yield();
    }
}

/// Calls the timer's handler, as the system does when the timer expires.
inline void expire(ScopedMsgThread& thread, int timerId) {
    siginfo_t info = {};
    info.si_timerid = thread.findTimer(timerId)->mSysTimerNum;
    info.si_value.sival_int = ThreadAccess::writeEnd(thread);
    utl::MsgDrivenThread::TimeoutSignalHandler(SIGRTMIN + 2, &info, nullptr);
}

}  // namespace utltest

#pragma once

#include <utility>

#include "UtlMsgDrivenSharedThread.h"
#include "internal/base/UtlHidden.h"
#include "internal/thread/UtlKeepAlive.h"

namespace utl {

/// The signs of life around what may block. They are due from every thread but the message thread itself.
class UTL_HIDDEN MsgDrivenSharedThread::CallBracket {
  public:
    /// The source in the reports.
    static constexpr char SOURCE[] = "source/UtlMsgDrivenSharedThread";

    explicit CallBracket(MsgDrivenSharedThread const& thread) : mThread(thread) {}

    /// Returns what `call()` returns.
    template <typename CALL>
    decltype(auto) around(char const* function, unsigned int line, CALL&& call) const {
        if (mThread.isOwnThread()) {
            return std::forward<CALL>(call)();
        }
        return keepAliveAround(SOURCE, function, line, std::forward<CALL>(call));
    }

  private:
    MsgDrivenSharedThread const& mThread;
};

/// Holds a lock until the end of the scope. A `CallBracket` is around the wait for it.
class [[nodiscard]] UTL_HIDDEN UTL_SCOPED_CAPABILITY MsgDrivenSharedThread::CallGuard {
  public:
    CallGuard(MsgDrivenSharedThread const& thread, SyncObject const& lock, char const* function,
              unsigned int line) UTL_ACQUIRE(lock)
        : mGuard(CallBracket(thread).around(function, line, [&lock] { return SyncGuard(lock); })) {}
    ~CallGuard() UTL_RELEASE() {}
    CallGuard(CallGuard const&) = delete;
    CallGuard& operator=(CallGuard const&) = delete;

  private:
    SyncGuard const mGuard;
};

/// Sends a message to one listener; *internally locked*: each way to send has an envelope with its own lock.
class UTL_HIDDEN MsgDrivenSharedThread::SendSteps {
  public:
    /// What the three ways to send differ in.
    struct Send {
        SyncObject const& mLock;
        SpecifiedMsgListenerMsg& mEnvelope UTL_GUARDED_BY(mLock);
        int (MsgDrivenThread::*mSend)(Msg const&);
        char const* mFunction;
    };

    explicit SendSteps(MsgDrivenSharedThread& thread) : mThread(thread) {}

    int send(ThreadMsgListener* listener, Msg const& msg, Send const& send);

    /// The same for a caller that holds the envelope's lock.
    int sendInEnvelope(ThreadMsgListener* listener, Msg const& msg, Send const& send)
        UTL_REQUIRES(send.mLock);

  private:
    MsgDrivenSharedThread& mThread;
};

/// Holds what a post from outside holds, from the construction to the end of the scope: no stop comes in
/// between, and the envelope is the caller's.
class [[nodiscard]] UTL_HIDDEN UTL_SCOPED_CAPABILITY MsgDrivenSharedThread::PostGuard {
  public:
    PostGuard(MsgDrivenSharedThread const& thread, SendSteps::Send const& send, unsigned int line)
        UTL_ACQUIRE(thread.lifecycleLock(), send.mLock)
        : mLocks(CallBracket(thread).around(send.mFunction, line, [&] {
              return Locks{SyncGuard(thread.lifecycleLock()), SyncGuard(send.mLock)};
          })) {}
    ~PostGuard() UTL_RELEASE() {}
    PostGuard(PostGuard const&) = delete;
    PostGuard& operator=(PostGuard const&) = delete;

  private:
    struct Locks {
        SyncGuard const mNoStop;
        SyncGuard const mEnvelope;
    };
    Locks const mLocks;
};

/// Attaching and detaching from outside; *external lock needed*: `mAttachLock`.
class UTL_HIDDEN MsgDrivenSharedThread::AttachSteps {
  public:
    /// True if the loop can be asked. False if it has not been started, or was stopped and has ended.
    static bool awaitLoop(MsgDrivenSharedThread& thread, char const* function)
        UTL_REQUIRES(thread.mAttachLock);

    /// Lets the loop attach or detach. False with a log line if it could not be asked.
    static bool askLoop(MsgDrivenSharedThread& thread, int msgId, ThreadMsgListener* listener,
                        char const* function) UTL_REQUIRES(thread.mAttachLock);
};

/// Which listener a timer belongs to; *internally locked*.
class UTL_HIDDEN MsgDrivenSharedThread::TimerSteps {
  public:
    explicit TimerSteps(MsgDrivenSharedThread& thread) : mThread(thread) {}

    /// Registers a timer of a listener, or of all of them for null.
    int registerTimer(ThreadMsgListener* listener, unsigned int interval, unsigned int repeatCount,
                      int autoRepeat);

    /// Starts a timer that `registerTimer` returned: its id, or -1.
    int startRegistered(int timerId, int noWait);

    /// Forgets whom the timer belongs to.
    void forgetTimer(int timerId);

    /// The same for the last timer of a listener: its id, or -1 if there is none.
    int forgetLastTimerOf(ThreadMsgListener* listener);

  private:
    MsgDrivenSharedThread& mThread;
};

}  // namespace utl

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

    SyncGuard hold(SyncObject const& lock, char const* function, unsigned int line) const {
        return around(function, line, [&lock] { return SyncGuard(lock); });
    }

  private:
    MsgDrivenSharedThread const& mThread;
};

/// Sends a message to one listener; *internally locked*: each way to send has an envelope with its own lock.
class UTL_HIDDEN MsgDrivenSharedThread::SendSteps {
  public:
    /// What the three ways to send differ in.
    struct Send {
        SyncObject const& mLock;
        SpecifiedMsgListenerMsg& mEnvelope;
        int (MsgDrivenThread::*mSend)(Msg const&);
        char const* mFunction;
    };

    explicit SendSteps(MsgDrivenSharedThread& thread) : mThread(thread) {}

    int send(ThreadMsgListener* listener, Msg const& msg, Send const& send);

    /// The same under the envelope's lock.
    int sendInEnvelope(ThreadMsgListener* listener, Msg const& msg, Send const& send);

  private:
    MsgDrivenSharedThread& mThread;
};

/// Attaching and detaching from outside; *external lock needed*: `mAttachLock`.
class UTL_HIDDEN MsgDrivenSharedThread::AttachSteps {
  public:
    explicit AttachSteps(MsgDrivenSharedThread& thread) : mThread(thread) {}

    /// True if the loop can be asked. False if it has not been started, or was stopped and has ended.
    bool awaitLoop(char const* function);

    /// Lets the loop attach or detach. False with a log line if it could not be asked.
    bool askLoop(int msgId, ThreadMsgListener* listener, char const* function);

  private:
    MsgDrivenSharedThread& mThread;
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

#pragma once

// Timers of both kinds at work. The program and the plug-in compile it for themselves, each against the copy
// of the library that it is linked with.

#include <atomic>

#include "UtlMsgDrivenThread.h"
#include "UtlSharedTimer.h"
#include "UtlThreadManager.h"

namespace utltest {

/// What the plug-in shows: a copy that ticks once it is started.
class Ticking {
  public:
    Ticking() = default;
    virtual ~Ticking() = default;
    Ticking(Ticking const&) = delete;
    Ticking& operator=(Ticking const&) = delete;

    /// False if a timer could not be had.
    virtual bool start() = 0;
    virtual void stop() = 0;

    /// Expiries of the shared timer, and of the message thread's.
    virtual unsigned int sharedTicks() const = 0;
    virtual unsigned int msgTicks() const = 0;

    /// The instance of the copy.
    virtual void const* manager() const = 0;
};

/// The name of the plug-in's one function, and its type.
inline constexpr char MAKE_TICKING[] = "makeTicking";
using MakeTicking = Ticking*();

namespace {

class TickingCopy : public Ticking, private utl::TimerListener, private utl::ThreadMsgListener {
  public:
    bool start() override {
        mThread.start(this);
        int const shared = mShared.addTimer(this, 1, 0, 1);
        return mShared.start(shared, 0) && mThread.setTimer(1, 0, 0, 1) > 0;
    }
    void stop() override {
        mShared.destroy();
        mThread.stop(1, 0);
        mThread.leaveManagement();
    }
    unsigned int sharedTicks() const override { return mSharedTicks; }
    unsigned int msgTicks() const override { return mMsgTicks; }
    void const* manager() const override { return utl::ThreadManager::get(); }

  private:
    void onTime(int /*timerId*/) override { ++mSharedTicks; }
    void receiveMsg(int /*threadId*/, utl::ThreadRawMsg& /*msg*/) override { ++mMsgTicks; }

    std::atomic<unsigned int> mSharedTicks{0};
    std::atomic<unsigned int> mMsgTicks{0};
    utl::SharedTimer mShared{0, 0, nullptr, 4, "ticking"};
    utl::MsgDrivenThread mThread{8, 16, "ticking", 4};
};

}  // namespace

}  // namespace utltest

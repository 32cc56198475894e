// What the system refuses to shared message threads.

#include "UtlMsgDrivenSharedThread.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestSharedThread.h"
#include "TestThreads.h"

using namespace utltest;

namespace {

constexpr int FIRST = 100;

using SharedThread = WithoutWatchdogThread;
using SharedThreadTimer = WithoutWatchdogThread;
using SharedThreadAbort = WithoutWatchdogThread;

TEST_F(SharedThread, AttachAndDetach_AfterTheLoopFailed_AreLoggedAndZero) {
    HookScope const scope;
    LogCapture log;
    Collector listener;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    hooks::read.failFrom(1, 0, -1, EIO);
    thread.postMsg(FIRST);
    ASSERT_EQ(thread.waitTo(3, 0), 0);
    log.clear();
    EXPECT_EQ(thread.attachMsgListener(&listener), 0);
    EXPECT_EQ(thread.detachMsgListener(&listener), 0);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "<UTIL> ERR: MsgDrivenSharedThread::attachMsgListener(): Can't send thread",
                               "<UTIL> ERR: MsgDrivenSharedThread::detachMsgListener(): Can't send thread"}));
}

TEST_F(SharedThreadTimer, SetTimer_WhoseStartFails_ForgetsTheListenerAndKeepsTheTimersPlace) {
    HookScope const scope;
    LogCapture const log;
    Collector listener;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    hooks::timerCreate.failFrom(1, 2, -1, EAGAIN);
    EXPECT_EQ(thread.setTimer(&listener, 1, 0, 0, 0), -1);
    EXPECT_EQ(thread.setTimer(1, 0, 0, 0), -1);
    EXPECT_EQ(thread.remTimerIdCount(), 2U);
    EXPECT_NE(thread.findTimer(1), nullptr);
    // The timer that is left can still be started, by its number, and expires for nobody.
    ASSERT_EQ(thread.attachMsgListener(&listener), 1);
    hooks::timerDelete.reset();
    EXPECT_TRUE(thread.startTimer(1, 0));
    EXPECT_TRUE(thread.startTimer(2, 0));
    while (hooks::timerDelete.calls() < 4) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(thread.killTimer(1, 0));
    EXPECT_TRUE(thread.killTimer(2, 0));
    EXPECT_EQ(thread.sendMsgSync(&listener, FIRST), 1);
    EXPECT_EQ(listener.ids(), std::vector<int>{FIRST});
    EXPECT_EQ(thread.abortMsg(&listener), 1);
}

TEST_F(SharedThreadAbort, WhoseTimerCannotBeKilled_IsZeroAndGoesOnWithTheRest) {
    HookScope const scope;
    LogCapture const log;
    Collector listener;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    ASSERT_EQ(thread.setTimer(&listener, 60000, 0, 0, 0), 1);
    ASSERT_EQ(thread.setTimer(&listener, 60000, 0, 0, 0), 2);
    workOn(thread, [&] {
        EXPECT_EQ(thread.postMsg(&listener, FIRST), 1);
        hooks::timerDelete.failFrom(1, 1, -1, EINVAL);
        EXPECT_EQ(thread.abortMsg(&listener), 0);
        EXPECT_FALSE(thread.hasMsg(&listener, FIRST));
    });
    EXPECT_NE(thread.findTimer(2), nullptr) << "the last is the first";
    EXPECT_EQ(thread.findTimer(1), nullptr);
    EXPECT_EQ(thread.abortMsg(&listener), 1) << "it is nobody's timer now";
    EXPECT_TRUE(thread.killTimer(2, 0));
}

TEST_F(SharedThreadAlone, AThreadThatHasEndedByItself_CannotBeAskedToAttachOrDetach) {
    OpenedSharedThread thread;
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

}  // namespace

// Messages, listeners and the life of shared message threads.

#include "UtlMsgDrivenSharedThread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <functional>
#include <future>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "TestAllocations.h"
#include "TestHooks.h"
#include "TestLog.h"
#include "TestMessages.h"
#include "TestSharedThread.h"
#include "TestThreads.h"
#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"

using namespace utltest;

namespace {

constexpr int FIRST = 100;
constexpr int SECOND = 101;
constexpr int THIRD = 102;
constexpr unsigned int ADDRESS_BYTES = sizeof(void*);

using Envelope = ScopedSharedThread::SpecifiedMsgListenerMsg;

using SharedThread = WithoutWatchdogThread;

static_assert(utl::MsgDrivenSharedThread::LISTENER_FAILED == 0 &&
              utl::MsgDrivenSharedThread::LISTENER_DONE == 1);
static_assert(!std::is_copy_constructible_v<utl::MsgDrivenSharedThread> &&
              !std::is_copy_assignable_v<utl::MsgDrivenSharedThread>);

// Its own `stop` first waits for an attach in progress; that of the base class would end the loop before it.
TEST_F(SharedThread, AutoStop_CallsTheStopOfTheSharedThread) {
    Holder holder;
    Collector other;
    utl::MsgDrivenSharedThread thread(64, 16, 4, "scoped");
    ASSERT_EQ(thread.start(), 0);
    ASSERT_NO_FATAL_FAILURE(holdIn(holder, thread));
    auto attached = std::async(std::launch::async, [&] { return thread.attachMsgListener(&other); });
    while (ThreadAccess::queues(thread).entries.empty()) {
        std::this_thread::yield();
    }
    auto stopped = std::async(std::launch::async, [&] { utl::AutoStop const stopping(thread); });
    EXPECT_EQ(stopped.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    EXPECT_FALSE(thread.hasRequestedStop());
    holder.gate.open();
    EXPECT_EQ(attached.get(), utl::MsgDrivenSharedThread::LISTENER_DONE);
    stopped.get();
    EXPECT_TRUE(thread.hasDone(utl::Thread::FINISHED));
    EXPECT_FALSE(utl::ThreadManager::get()->isThreadExist(thread.getId()));
}

// Attaching.

TEST_F(SharedThread, AttachMsgListener_BeforeTheStart_TakesEffectAtOnce) {
    Collector listener;
    ScopedSharedThread thread;
    EXPECT_EQ(thread.attachMsgListener(&listener), 1);
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.sendMsgSync(NumberMsg(FIRST, 7)), 1);
    EXPECT_EQ(listener.received(), (std::vector<Collector::Received>{{thread.getId(), FIRST, 7}}));
}

TEST_F(SharedThread, AttachMsgListener_Twice_IsOneAndGivesOneCopyOfEachBroadcast) {
    Collector early;
    Collector late;
    ScopedSharedThread thread(64, 16, 2);
    EXPECT_EQ(thread.attachMsgListener(&early), 1);
    EXPECT_EQ(thread.attachMsgListener(&early), 1);
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.attachMsgListener(&late), 1);
    EXPECT_EQ(thread.attachMsgListener(&late), 1);
    EXPECT_EQ(thread.attachMsgListener(&early), 1) << "also when there is no place left";
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(early.received().size(), 1U);
    EXPECT_EQ(late.received().size(), 1U);
}

TEST_F(SharedThread, AttachMsgListener_OfNull_IsZero) {
    ScopedSharedThread thread;
    EXPECT_EQ(thread.attachMsgListener(nullptr), 0);
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.attachMsgListener(nullptr), 0);
    workOn(thread, [&] { EXPECT_EQ(thread.attachMsgListener(nullptr), 0); });
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
}

TEST_F(SharedThread, AttachMsgListener_BeyondTheMaximum_IsZero) {
    for (unsigned int maximum = 0; maximum <= 3; ++maximum) {
        for (bool const isRunning : {false, true}) {
            Collector listeners[4];
            ScopedSharedThread thread(64, 16, maximum);
            if (isRunning) {
                ASSERT_EQ(thread.start(), 0);
            }
            for (unsigned int i = 0; i < 4; ++i) {
                EXPECT_EQ(thread.attachMsgListener(&listeners[i]), i < maximum ? 1 : 0);
            }
            EXPECT_EQ(thread.detachMsgListener(&listeners[0]), 1);
            EXPECT_EQ(thread.attachMsgListener(&listeners[3]), maximum != 0 ? 1 : 0);
        }
    }
}

TEST_F(SharedThread, AListenerCountThatIsNegativeAsSigned_LeavesNoPlace) {
    for (unsigned int const maximum : {0x80000000U, 0xFFFFFFFFU}) {
        Collector listener;
        ScopedSharedThread thread(64, 16, maximum);
        EXPECT_EQ(thread.attachMsgListener(&listener), 0);
        ASSERT_EQ(thread.start(), 0);
        EXPECT_EQ(thread.sendMsgSync(&listener, FIRST), 1) << "a listener that is not attached";
    }
}

TEST_F(SharedThread, AttachMsgListener_InAHandler_IsDoneAtOnceForTheNextBroadcast) {
    Collector listener;
    Collector second;
    ScopedSharedThread thread;
    listener.onMsg = [&](int, int) { EXPECT_EQ(thread.attachMsgListener(&second), 1); };
    ASSERT_EQ(thread.attachMsgListener(&listener), 1);
    ASSERT_EQ(thread.start(), 0);
    ASSERT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_TRUE(second.received().empty());
    ASSERT_EQ(thread.sendMsgSync(SECOND), 1);
    EXPECT_EQ(second.ids(), std::vector<int>{SECOND});
}

TEST_F(SharedThread, AttachMsgListener_WhileTheThreadIsBusy_ComesInTheOrderOfTheQueue) {
    HookScope const scope;
    Collector early;
    Collector late;
    Holder holder;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.attachMsgListener(&early), 1);
    ASSERT_EQ(thread.start(), 0);
    holdIn(holder, thread);
    ASSERT_EQ(thread.postMsg(FIRST), 1);
    hooks::write.reset();
    auto attached = std::async(std::launch::async, [&] { return thread.attachMsgListener(&late); });
    waitForTokens(1);
    ASSERT_EQ(thread.postMsg(SECOND), 1);
    holder.gate.open();
    EXPECT_EQ(attached.get(), 1);
    ASSERT_EQ(thread.sendMsgSync(THIRD), 1);
    EXPECT_EQ(early.ids(), (std::vector<int>{FIRST, SECOND, THIRD}));
    EXPECT_EQ(late.ids(), (std::vector<int>{SECOND, THIRD}));
}

TEST_F(SharedThread, AttachAndDetach_ThatFindNoPlaceInTheQueue_AreLoggedAndZero) {
    LogCapture log;
    Collector listener;
    Holder holder;
    ScopedSharedThread thread(64, 1, 4, "full");
    ASSERT_EQ(thread.attachMsgListener(&listener), 1);
    ASSERT_EQ(thread.start(), 0);
    holdIn(holder, thread);
    ASSERT_EQ(thread.postMsg(FIRST), 1);
    Collector other;
    EXPECT_EQ(thread.attachMsgListener(&other), 0);
    EXPECT_EQ(thread.detachMsgListener(&listener), 0);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  "<UTIL> ERR: MsgDrivenThread(full) Overflow MsgDataQueue  MaxCount:1 MsgId:0x80000021",
                  "<UTIL> ERR: MsgDrivenSharedThread::attachMsgListener(): Can't send thread",
                  "<UTIL> DTL: MsgDrivenThread(full) Overflow MsgDataQueue  MaxCount:1 MsgId:0x80000022",
                  "<UTIL> ERR: MsgDrivenSharedThread::detachMsgListener(): Can't send thread"}));
    holder.gate.open();
    ASSERT_TRUE(listener.waitFor(1));
    ASSERT_EQ(thread.sendMsgSync(SECOND), 1);
    EXPECT_EQ(listener.ids(), (std::vector<int>{FIRST, SECOND})) << "still attached";
    EXPECT_TRUE(other.received().empty());
}

TEST_F(SharedThread, DetachMsgListener_BehindAnAttachThatWasRefused_DetachesAndDoesNotAttach) {
    HookScope const scope;
    LogCapture const log;
    Collector attached;
    Collector refused;
    Holder holder;
    ScopedSharedThread thread(64, 4, 4, "stale");
    ASSERT_EQ(thread.attachMsgListener(&attached), 1);
    ASSERT_EQ(thread.start(), 0);
    holdIn(holder, thread);
    withFullCtlQueue(thread, [&] { EXPECT_EQ(thread.attachMsgListener(&refused), 0); });
    hooks::write.reset();
    auto detached = std::async(std::launch::async, [&] { return thread.detachMsgListener(&attached); });
    waitForTokens(1);
    holder.gate.open();
    EXPECT_EQ(detached.get(), 1);
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_TRUE(attached.received().empty());
    EXPECT_TRUE(refused.received().empty());
    EXPECT_EQ(log.count(mismatchLine("stale", "0x80000021", "0x80000005")), 1U);
}

TEST_F(SharedThread, AMessageToOneListener_BehindOneThatWasRefused_IsDeliveredInItsPlace) {
    LogCapture const log;
    Collector gone;
    Collector listener;
    Holder holder;
    ScopedSharedThread thread(64, 4, 4, "stale");
    ASSERT_EQ(thread.start(), 0);
    holdIn(holder, thread);
    withFullCtlQueue(thread, [&] { EXPECT_EQ(thread.sendMsgSync(&gone, FIRST), 0); });
    ASSERT_EQ(thread.postMsg(&listener, SECOND), 1);
    holder.gate.open();
    ASSERT_TRUE(listener.waitFor(1));
    EXPECT_EQ(thread.sendMsgSync(&listener, THIRD), 1);
    EXPECT_EQ(listener.ids(), (std::vector<int>{SECOND, THIRD}));
    EXPECT_TRUE(gone.received().empty());
    EXPECT_EQ(log.count(mismatchLine("stale", "0x80000023", "0x80000023")), 1U);
}

TEST_F(SharedThread, AttachAndDetach_AfterTheStop_AreDoneDirectly) {
    LogCapture const log;
    Collector listeners[2];
    ScopedSharedThread thread(64, 16, 1);
    ASSERT_EQ(thread.start(), 0);
    ASSERT_EQ(thread.stop(1, 0), 0);
    EXPECT_EQ(thread.attachMsgListener(&listeners[0]), 1);
    EXPECT_EQ(thread.attachMsgListener(&listeners[1]), 0);
    EXPECT_EQ(thread.detachMsgListener(&listeners[0]), 1);
    EXPECT_EQ(thread.attachMsgListener(&listeners[1]), 1);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SharedThread, AttachAndDetach_AfterTheThreadHasLeftTheManagement_AreDoneDirectly) {
    Collector listener;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    thread.finish();
    EXPECT_EQ(thread.attachMsgListener(&listener), 1);
    EXPECT_EQ(thread.detachMsgListener(&listener), 1);
}

// The kernel gives the id of a thread that has ended to a new one.
TEST_F(SharedThread, AttachAndDetach_WhenTheIdIsAnotherThreadsNow_DoNotWaitForThat) {
    using Access = utltest::ThreadManagerAccess;
    Collector listener;
    HeldThread const stranger("stranger");
    auto thread = std::make_unique<ScopedSharedThread>();
    ASSERT_EQ(thread->start(), 0);
    thread->finish();
    int const id = thread->getId();
    ASSERT_TRUE(Access::storeEntry(id, Access::copyEntry(stranger.id())));
    EXPECT_EQ(thread->attachMsgListener(&listener), 1);
    EXPECT_EQ(thread->detachMsgListener(&listener), 1);
    thread.reset();
    EXPECT_TRUE(utl::ThreadManager::get()->isThreadActive(id));
    Access::eraseEntry(id);
}

TEST_F(SharedThread, AttachMsgListener_AfterAStopThatDoesNotWait_WaitsForTheEnd) {
    for (bool const attaches : {true, false}) {
        Collector listener;
        Holder holder;
        ScopedSharedThread thread;
        ASSERT_EQ(thread.attachMsgListener(&listener), 1);
        ASSERT_EQ(thread.start(), 0);
        holdIn(holder, thread);
        ASSERT_EQ(thread.stop(0, 0), 0);
        auto changed = std::async(std::launch::async, [&] {
            int const result =
                attaches ? thread.attachMsgListener(&listener) : thread.detachMsgListener(&listener);
            EXPECT_TRUE(thread.hasDone(utl::Thread::FINISHED));
            return result;
        });
        holder.gate.open();
        EXPECT_EQ(changed.get(), 1);
    }
}

// Broadcasts.

TEST_F(SharedThread, ABroadcast_ReachesTheLastAttachedFirst_AndEachRestoresForItself) {
    Collector listeners[4];
    std::vector<int> order;
    ScopedSharedThread thread;
    for (int i = 0; i < 4; ++i) {
        listeners[i].onMsg = [&order, i](int, int) { order.push_back(i); };
        ASSERT_EQ(thread.attachMsgListener(&listeners[i]), 1);
    }
    ASSERT_EQ(thread.start(), 0);
    ASSERT_EQ(thread.sendMsgSync(NumberMsg(FIRST, 7)), 1);
    EXPECT_EQ(order, (std::vector<int>{3, 2, 1, 0}));
    for (Collector const& listener : listeners) {
        EXPECT_EQ(listener.received(), (std::vector<Collector::Received>{{thread.getId(), FIRST, 7}}));
    }
}

TEST_F(SharedThread, EveryWayToBroadcast_ReachesEveryListener) {
    Collector listeners[2];
    ScopedSharedThread thread;
    ASSERT_EQ(thread.attachMsgListener(&listeners[0]), 1);
    ASSERT_EQ(thread.attachMsgListener(&listeners[1]), 1);
    EXPECT_EQ(thread.postMsg(FIRST), 0) << "the thread does not run";
    EXPECT_EQ(thread.sendMsgSync(FIRST), 0);
    EXPECT_EQ(thread.sendMsgInterrupt(FIRST), 0);
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.postMsg(NumberMsg(1, 10)), 1);
    EXPECT_EQ(thread.sendMsgSync(NumberMsg(2, 20)), 1);
    EXPECT_EQ(thread.sendMsgInterrupt(NumberMsg(3, 30)), 1);
    EXPECT_EQ(thread.postMsg(4), 1);
    EXPECT_EQ(thread.sendMsgSync(5), 1);
    EXPECT_EQ(thread.sendMsgInterrupt(6), 1);
    for (Collector const& listener : listeners) {
        EXPECT_EQ(listener.ids(), (std::vector<int>{1, 2, 3, 4, 5, 6}));
        EXPECT_EQ(listener.received()[0].number, 10);
        EXPECT_EQ(listener.received()[1].number, 20);
        EXPECT_EQ(listener.received()[2].number, 30);
    }
}

TEST_F(SharedThread, ABroadcast_ThatNobodyListensTo_CountsAsDelivered) {
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(thread.sendMsgInterrupt(FIRST), 1);
}

// Five listeners, of which number `actor` detaches number `victim`: the order is 4, 3, 2, 1, 0.
TEST_F(SharedThread, DetachMsgListener_InAHandler_LeavesTheBroadcastIntact) {
    constexpr int COUNT = 5;
    for (int actor = 0; actor < COUNT; ++actor) {
        for (int victim = 0; victim < COUNT; ++victim) {
            Collector listeners[COUNT];
            std::vector<int> order;
            ScopedSharedThread thread(64, 16, COUNT);
            for (int i = 0; i < COUNT; ++i) {
                listeners[i].onMsg = [&, i](int, int) {
                    order.push_back(i);
                    if (i == actor) {
                        EXPECT_EQ(thread.detachMsgListener(&listeners[victim]), 1);
                    }
                };
                ASSERT_EQ(thread.attachMsgListener(&listeners[i]), 1);
            }
            ASSERT_EQ(thread.start(), 0);
            ASSERT_EQ(thread.sendMsgSync(FIRST), 1);
            std::vector<int> served;
            std::vector<int> left;
            for (int i = COUNT - 1; i >= 0; --i) {
                if (i != victim || victim >= actor) {
                    served.push_back(i);
                }
                if (i != victim) {
                    left.push_back(i);
                }
            }
            EXPECT_EQ(order, served) << actor << " detaches " << victim;
            order.clear();
            ASSERT_EQ(thread.sendMsgSync(SECOND), 1);
            EXPECT_EQ(order, left) << actor << " has detached " << victim;
        }
    }
}

TEST_F(SharedThread, AHandlerThatDetachesEverybody_EndsTheBroadcast) {
    Collector listeners[4];
    ScopedSharedThread thread;
    for (Collector& listener : listeners) {
        ASSERT_EQ(thread.attachMsgListener(&listener), 1);
    }
    listeners[2].onMsg = [&](int, int) {
        for (Collector& listener : listeners) {
            EXPECT_EQ(thread.detachMsgListener(&listener), 1);
        }
    };
    ASSERT_EQ(thread.start(), 0);
    ASSERT_EQ(thread.sendMsgSync(FIRST), 1);
    ASSERT_EQ(thread.sendMsgSync(SECOND), 1);
    EXPECT_TRUE(listeners[0].received().empty());
    EXPECT_TRUE(listeners[1].received().empty());
    EXPECT_EQ(listeners[2].received().size(), 1U);
    EXPECT_EQ(listeners[3].received().size(), 1U);
}

TEST_F(SharedThread, AHandlerThatDetachesAndAttachesAnother_MovesItBehindTheWalk) {
    Collector listeners[3];
    ScopedSharedThread thread;
    for (Collector& listener : listeners) {
        ASSERT_EQ(thread.attachMsgListener(&listener), 1);
    }
    listeners[2].onMsg = [&](int, int) {
        thread.detachMsgListener(&listeners[0]);
        EXPECT_EQ(thread.attachMsgListener(&listeners[0]), 1);
    };
    ASSERT_EQ(thread.start(), 0);
    ASSERT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_TRUE(listeners[0].received().empty());
    EXPECT_EQ(listeners[1].received().size(), 1U);
}

TEST_F(SharedThread, ReceiveMsg_InAHandler_LetsTheBroadcastGoOnWhereItWas) {
    Collector first;
    Collector last;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.attachMsgListener(&first), 1);
    Worker middle([&, nested = false]() mutable {
        if (!nested) {
            nested = true;
            utl::ThreadRawMsg raw(64);
            ASSERT_EQ(NumberMsg(SECOND).storeTo(&raw), 1);
            thread.receiveMsg(1, raw);
        }
    });
    ASSERT_EQ(thread.attachMsgListener(&middle), 1);
    ASSERT_EQ(thread.attachMsgListener(&last), 1);
    ASSERT_EQ(thread.start(), 0);
    ASSERT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(last.ids(), (std::vector<int>{FIRST, SECOND}));
    EXPECT_EQ(first.ids(), (std::vector<int>{SECOND, FIRST}));
    ASSERT_EQ(thread.sendMsgSync(THIRD), 1);
    EXPECT_EQ(first.ids(), (std::vector<int>{SECOND, FIRST, THIRD}));
}

TEST_F(SharedThread, DetachMsgListener_OfOneThatIsNotAttached_IsOneAndChangesNothing) {
    Collector attached;
    Collector other;
    ScopedSharedThread thread;
    EXPECT_EQ(thread.detachMsgListener(&other), 1) << "of an empty list";
    EXPECT_EQ(thread.attachMsgListener(&attached), 1);
    EXPECT_EQ(thread.detachMsgListener(&other), 1);
    EXPECT_EQ(thread.detachMsgListener(nullptr), 1);
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.detachMsgListener(&other), 1);
    EXPECT_EQ(thread.detachMsgListener(nullptr), 1);
    EXPECT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(attached.received().size(), 1U);
}

TEST_F(SharedThread, DetachMsgListener_FromOutside_EndsTheBroadcastsBehindIt) {
    Collector stays;
    Collector goes;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.attachMsgListener(&goes), 1);
    ASSERT_EQ(thread.attachMsgListener(&stays), 1);
    ASSERT_EQ(thread.start(), 0);
    ASSERT_EQ(thread.postMsg(FIRST), 1);
    EXPECT_EQ(thread.detachMsgListener(&goes), 1);
    ASSERT_EQ(thread.sendMsgSync(SECOND), 1);
    EXPECT_EQ(goes.ids(), std::vector<int>{FIRST});
    EXPECT_EQ(stays.ids(), (std::vector<int>{FIRST, SECOND}));
}

TEST_F(SharedThread, DetachMsgListener_KeepsTheListenersTimersAndMessages) {
    Collector listener;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    ASSERT_EQ(thread.attachMsgListener(&listener), 1);
    workOn(thread, [&] {
        EXPECT_EQ(thread.postMsg(&listener, FIRST), 1);
        EXPECT_GT(thread.setTimer(&listener, 1, 0, 1, 1), 0);
        EXPECT_EQ(thread.detachMsgListener(&listener), 1);
        EXPECT_TRUE(thread.hasMsg(&listener, FIRST));
    });
    ASSERT_TRUE(listener.waitFor(2));
    EXPECT_EQ(listener.ids(), (std::vector<int>{FIRST, utl::MSG_ID_TIMER}));
}

// Messages to one listener.

TEST_F(SharedThread, EveryWayToSendToOneListener_ReachesItAlone_AttachedOrNot) {
    for (bool const isAttached : {true, false}) {
        Collector listener;
        Collector other;
        ScopedSharedThread thread;
        ASSERT_EQ(thread.attachMsgListener(&other), 1);
        if (isAttached) {
            ASSERT_EQ(thread.attachMsgListener(&listener), 1);
        }
        EXPECT_EQ(thread.postMsg(&listener, FIRST), 0) << "the thread does not run";
        EXPECT_EQ(thread.sendMsgSync(&listener, FIRST), 0);
        EXPECT_EQ(thread.sendMsgInterrupt(&listener, FIRST), 0);
        ASSERT_EQ(thread.start(), 0);
        EXPECT_EQ(thread.postMsg(&listener, NumberMsg(1, 10)), 1);
        EXPECT_EQ(thread.sendMsgSync(&listener, NumberMsg(2, 20)), 1);
        EXPECT_EQ(thread.sendMsgInterrupt(&listener, NumberMsg(3, 30)), 1);
        EXPECT_EQ(thread.postMsg(&listener, 4), 1);
        EXPECT_EQ(thread.sendMsgSync(&listener, 5), 1);
        EXPECT_EQ(thread.sendMsgInterrupt(&listener, 6), 1);
        EXPECT_EQ(listener.ids(), (std::vector<int>{1, 2, 3, 4, 5, 6}));
        EXPECT_EQ(listener.received()[0], (Collector::Received{thread.getId(), 1, 10}));
        EXPECT_EQ(listener.received()[1], (Collector::Received{thread.getId(), 2, 20}));
        EXPECT_EQ(listener.received()[2], (Collector::Received{thread.getId(), 3, 30}));
        EXPECT_TRUE(other.received().empty());
    }
}

TEST_F(SharedThread, AMessageToOneListener_WithAControlId_ReachesItAllTheSame) {
    Collector listener;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    int const ids[] = {utl::MSG_ID_NONE, utl::MSG_ID_CTL_STOP, utl::MSG_ID_TIMER, INT_MAX, -1, 0};
    for (int const id : ids) {
        EXPECT_EQ(thread.sendMsgSync(&listener, id), 1);
    }
    EXPECT_EQ(listener.ids(), std::vector<int>(std::begin(ids), std::end(ids)));
}

TEST_F(SharedThread, SendingToNull_IsZeroAndQueuesNothing) {
    LogCapture const log;
    ScopedSharedThread thread(64, 1);
    ASSERT_EQ(thread.start(), 0);
    utl::ThreadMsgListener* const nobody = nullptr;
    EXPECT_EQ(thread.postMsg(nobody, FIRST), 0);
    EXPECT_EQ(thread.postMsg(nobody, NumberMsg(FIRST)), 0);
    EXPECT_EQ(thread.sendMsgSync(nobody, FIRST), 0);
    EXPECT_EQ(thread.sendMsgSync(nobody, NumberMsg(FIRST)), 0);
    EXPECT_EQ(thread.sendMsgInterrupt(nobody, FIRST), 0);
    EXPECT_EQ(thread.sendMsgInterrupt(nobody, NumberMsg(FIRST)), 0);
    EXPECT_EQ(thread.MsgDrivenThread::getFirstMsgId(), utl::MSG_ID_NONE);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SharedThread, OnTheThreadItself_PostsAreQueuedAndWaitingSendsAreRefused) {
    Collector listener;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.attachMsgListener(&listener), 1);
    ASSERT_EQ(thread.start(), 0);
    workOn(thread, [&] {
        EXPECT_EQ(thread.postMsg(FIRST), 1);
        EXPECT_EQ(thread.postMsg(&listener, NumberMsg(SECOND, 7)), 1);
        EXPECT_EQ(thread.sendMsgSync(THIRD), 0);
        EXPECT_EQ(thread.sendMsgSync(&listener, THIRD), 0);
        EXPECT_EQ(thread.sendMsgInterrupt(THIRD), 0);
        EXPECT_EQ(thread.sendMsgInterrupt(&listener, THIRD), 0);
    });
    ASSERT_EQ(thread.sendMsgSync(THIRD), 1);
    EXPECT_EQ(listener.ids(), (std::vector<int>{FIRST, SECOND, THIRD}));
    EXPECT_EQ(listener.received()[1].number, 7);
}

TEST_F(SharedThread, AMessageOfMaxMsgSize_FitsAnEnvelope_AndOneByteMoreIsRefusedWithoutALine) {
    for (unsigned int const maxMsgSize : {1U, 2U, 4U, 64U}) {
        LogCapture const log;
        Collector listener;
        ScopedSharedThread thread(maxMsgSize, 16);
        ASSERT_EQ(thread.start(), 0);
        unsigned int accepted = 0;
        for (unsigned int size = maxMsgSize > 1 ? maxMsgSize - 1 : 1; size <= maxMsgSize + 1; ++size) {
            int const expected = size <= maxMsgSize ? 1 : 0;
            accepted += expected == 1 ? 3 : 0;
            EXPECT_EQ(thread.postMsg(&listener, BytesMsg(FIRST, size)), expected) << size;
            EXPECT_EQ(thread.sendMsgSync(&listener, BytesMsg(FIRST, size)), expected) << size;
            EXPECT_EQ(thread.sendMsgInterrupt(&listener, BytesMsg(FIRST, size)), expected) << size;
        }
        EXPECT_EQ(listener.received().size(), accepted);
        EXPECT_TRUE(log.lines().empty());
    }
}

TEST_F(SharedThread, AThreadForMessagesWithoutFields_TakesTheirIdsAlone) {
    Collector listener;
    ScopedSharedThread thread(0);
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.sendMsgSync(&listener, FIRST), 1);
    EXPECT_EQ(thread.sendMsgSync(&listener, BytesMsg(FIRST, 1)), 0);
    EXPECT_EQ(listener.ids(), std::vector<int>{FIRST});
}

TEST_F(SharedThread, AMessageSizeWhoseEnvelopeDoesNotFit_IsRefusedAtConstruction) {
    unsigned int const largest = UINT_MAX - ADDRESS_BYTES - 8;  // a frame of 32 bits
    for (unsigned int const maxMsgSize : {largest + 1, largest + 4, largest + 8, UINT_MAX - 3, UINT_MAX}) {
        EXPECT_THROW(utl::MsgDrivenSharedThread(maxMsgSize, 1, 1, "large"), std::bad_alloc) << maxMsgSize;
    }
}

TEST_F(SharedThread, TheInnerMessage_HasTheSizeOfItsOwnFrame) {
    struct SizeListener : utl::ThreadMsgListener {
        std::atomic<unsigned int> size{0};
        void receiveMsg(int, utl::ThreadRawMsg& msg) override { size = msg.maxSize(); }
    } listener;
    ScopedSharedThread thread(64);
    ASSERT_EQ(thread.attachMsgListener(&listener), 1);
    ASSERT_EQ(thread.start(), 0);
    ASSERT_EQ(thread.sendMsgSync(&listener, FIRST), 1);
    EXPECT_EQ(listener.size, 68U);
    ASSERT_EQ(thread.sendMsgSync(FIRST), 1);
    EXPECT_EQ(listener.size, 68U + 4 + ADDRESS_BYTES);
}

TEST_F(SharedThread, ABroadcast_MayBeAsLargeAsAnEnvelope) {
    LogCapture const log;
    Collector listener;
    ScopedSharedThread thread(16, 16, 4, "large");
    ASSERT_EQ(thread.attachMsgListener(&listener), 1);
    ASSERT_EQ(thread.start(), 0);
    unsigned int const largest = 16 + 4 + ADDRESS_BYTES;
    EXPECT_EQ(thread.sendMsgSync(BytesMsg(FIRST, largest)), 1);
    EXPECT_EQ(thread.sendMsgSync(BytesMsg(FIRST, largest + 1)), 0);
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{
                  "<UTIL> ERR: MsgDrivenThread(large) Overflow MsgSize  MaxSize(include MsgId):" +
                  std::to_string(largest + 4) + " MsgId:0x00000064"});
}

TEST_F(SharedThread, MaxMsgCountMessagesFit_WithAndWithoutAddress) {
    LogCapture const log;
    Collector listener;
    Holder holder;
    ScopedSharedThread thread(8, 4, 4, "count");
    ASSERT_EQ(thread.attachMsgListener(&listener), 1);
    ASSERT_EQ(thread.start(), 0);
    holdIn(holder, thread);
    EXPECT_EQ(thread.postMsg(&listener, NumberMsg(1, 1)), 1);
    EXPECT_EQ(thread.postMsg(NumberMsg(2, 2)), 1);
    EXPECT_EQ(thread.postMsg(&listener, NumberMsg(3, 3)), 1);
    EXPECT_EQ(thread.postMsg(NumberMsg(4, 4)), 1);
    EXPECT_EQ(thread.postMsg(&listener, NumberMsg(5, 5)), 0);
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{"<UTIL> ERR: MsgDrivenThread(count) Overflow MsgDataQueue "
                                       " MaxCount:4 MsgId:0x80000023"});
    holder.gate.open();
    ASSERT_TRUE(listener.waitFor(4));
    EXPECT_EQ(listener.ids(), (std::vector<int>{1, 2, 3, 4}));
}

TEST_F(SharedThread, ASlowSynchronousSender_DoesNotHoldUpOthers) {
    HookScope const scope;
    Collector listener;
    Holder holder;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    hooks::write.reset();
    auto slow = std::async(std::launch::async, [&] { return thread.sendMsgSync(&holder, FIRST); });
    ASSERT_TRUE(holder.gate.waitUntilHeld());
    auto interrupt = std::async(std::launch::async,
                                [&] { return thread.sendMsgInterrupt(&listener, NumberMsg(SECOND, 2)); });
    waitForTokens(2);
    EXPECT_EQ(thread.postMsg(&listener, NumberMsg(FIRST, 1)), 1);
    EXPECT_EQ(thread.postMsg(NumberMsg(FIRST, 1)), 1);
    holder.gate.open();
    EXPECT_EQ(slow.get(), 1);
    EXPECT_EQ(interrupt.get(), 1);
    ASSERT_TRUE(listener.waitFor(2));
    EXPECT_EQ(listener.ids(), (std::vector<int>{SECOND, FIRST})) << "the interrupt overtakes";
}

TEST_F(SharedThread, ManySendersToManyListeners_MixNothingUp) {
    constexpr int SENDERS = 4;
    constexpr int MESSAGES = 200;
    Collector listeners[SENDERS];
    ScopedSharedThread thread(8, 64);
    ASSERT_EQ(thread.start(), 0);
    std::vector<std::thread> senders;
    for (int sender = 0; sender < SENDERS; ++sender) {
        senders.emplace_back([&, sender] {
            for (int i = 0; i < MESSAGES; ++i) {
                NumberMsg const msg(sender, i);
                EXPECT_EQ(i % 3 == 0   ? thread.postMsg(&listeners[sender], msg)
                          : i % 3 == 1 ? thread.sendMsgSync(&listeners[sender], msg)
                                       : thread.sendMsgInterrupt(&listeners[sender], msg),
                          1);
            }
        });
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    for (int sender = 0; sender < SENDERS; ++sender) {
        ASSERT_TRUE(listeners[sender].waitFor(MESSAGES));
        std::vector<Collector::Received> const received = listeners[sender].received();
        ASSERT_EQ(received.size(), static_cast<size_t>(MESSAGES));
        std::vector<bool> seen(MESSAGES, false);
        for (Collector::Received const& one : received) {
            EXPECT_EQ(one.id, sender);
            EXPECT_FALSE(seen[static_cast<size_t>(one.number)]);
            seen[static_cast<size_t>(one.number)] = true;
        }
    }
}

TEST_F(SharedThread, SendPaths_AllocateNothingAfterConstruction) {
    struct Silent : utl::ThreadMsgListener {
        std::atomic<int> handled{0};
        void receiveMsg(int, utl::ThreadRawMsg&) override { ++handled; }
    } listener;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.attachMsgListener(&listener), 1);
    ASSERT_EQ(thread.start(), 0);
    NumberMsg const msg(FIRST, 1);
    ASSERT_EQ(thread.sendMsgSync(&listener, msg), 1);
    unsigned int const before = allocations();
    for (int i = 0; i < 100; ++i) {
        thread.postMsg(msg);
        thread.postMsg(FIRST);
        thread.sendMsgSync(msg);
        thread.sendMsgSync(FIRST);
        thread.sendMsgInterrupt(msg);
        thread.sendMsgInterrupt(FIRST);
        thread.postMsg(&listener, msg);
        thread.postMsg(&listener, FIRST);
        thread.sendMsgSync(&listener, msg);
        thread.sendMsgSync(&listener, FIRST);
        thread.sendMsgInterrupt(&listener, msg);
        thread.sendMsgInterrupt(&listener, FIRST);
        thread.detachMsgListener(&listener);
        thread.attachMsgListener(&listener);
    }
    EXPECT_EQ(allocations(), before);
    EXPECT_EQ(listener.handled, 1201);
}

// What arrives.

TEST_F(SharedThread, AMessageWithoutAReadableId_IsLoggedAndReachesNobody) {
    struct Unreadable : utl::ThreadRawMsg {
        Unreadable() : ThreadRawMsg(64) {}
        int getMsgId(int*) override { return 0; }
    } msg;
    LogCapture const log;
    Collector listener;
    ScopedSharedThread thread(64, 16, 4, "unreadable");
    ASSERT_EQ(thread.attachMsgListener(&listener), 1);
    thread.receiveMsg(1, msg);
    static_cast<utl::ThreadMsgListener&>(thread).receiveMsg(1, msg);
    std::string const line = "<UTIL> ERR: Unknown MsgId Received (unreadable)";
    EXPECT_EQ(log.lines(), (std::vector<std::string>{line, line}));
    EXPECT_TRUE(listener.received().empty());
}

TEST_F(SharedThread, AnEnvelopeWithoutAListener_ReachesNobody) {
    Collector listener;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.attachMsgListener(&listener), 1);
    Envelope const envelope(68);
    utl::ThreadRawMsg raw(4 + ADDRESS_BYTES + 68);
    ASSERT_EQ(envelope.storeTo(&raw), 1);
    thread.receiveMsg(1, raw);
    EXPECT_TRUE(listener.received().empty());
}

// Derived classes and their callers are compiled apart from the library.
TEST_F(SharedThread, ItsFields_HaveTheirOrder) {
    utl::MsgDrivenSharedThread const thread(8, 4, 2, "fields", 2);
    std::vector<std::size_t> const fields = utltest::MsgDrivenSharedThreadAccess::fields(thread);
    EXPECT_EQ(offsetIn(thread, static_cast<utl::MsgDrivenThread const&>(thread)), 0U);
    EXPECT_EQ(offsetIn(thread, static_cast<utl::ThreadMsgListener const&>(thread)),
              (utltest::firstFieldBehind<void*, utl::MsgDrivenThread>()));
    using Listeners = utl::Array<utl::ThreadMsgListener*>;
    EXPECT_EQ(fields.front(),
              (utltest::firstFieldBehind<Listeners, utl::MsgDrivenThread, utl::ThreadMsgListener>()));
    EXPECT_TRUE(areRising(fields));
}

TEST_F(SharedThread, ItsVirtualOperations_HaveTheirSlots) {
    struct Slots : utl::MsgDrivenSharedThread {
        static std::vector<std::size_t> ofAll() {
            return {slotOf(&Slots::preExecute),  slotOf(&Slots::execute),      slotOf(&Slots::postExecute),
                    slotOf(&Slots::requestStop), slotOf(&Slots::onEraseTimer), slotOf(&Slots::receiveMsg)};
        }
    };
    EXPECT_EQ(Slots::ofAll(), (std::vector<std::size_t>{2, 3, 4, 5, 6, 7}));
}

// Start, stop, end.

TEST_F(SharedThread, Start_ASecondTime_IsMinusOne) {
    ScopedSharedThread thread;
    EXPECT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.start(), -1);
    EXPECT_EQ(thread.stop(1, 0), 0);
    EXPECT_EQ(thread.start(), -1);
    EXPECT_EQ(thread.stop(1, 0), -1);
}

TEST_F(SharedThread, Start_HandsItsArgumentsOn) {
    ScopedSharedThread thread;
    EXPECT_EQ(thread.start(0, 0, nullptr, 1, 0, utl::ThreadPriority(utl::ThreadPriority::IDLE), 0), 0);
    EXPECT_TRUE(thread.hasDone(utl::Thread::READY));
    utl::ThreadPriority priority;
    ASSERT_TRUE(thread.getPriority(&priority));
    EXPECT_STREQ(priority.label(), utl::ThreadPriority(utl::ThreadPriority::IDLE).label());
    EXPECT_STREQ(thread.getName().buffer(), "shared");
}

TEST_F(SharedThread, StartAndStop_OnTheThreadItself_AreMinusOneAtOnce) {
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    workOn(thread, [&] {
        EXPECT_EQ(thread.start(), -1);
        EXPECT_EQ(thread.stop(1, 0), -1);
        EXPECT_EQ(thread.stop(0, 0), -1);
    });
    EXPECT_FALSE(thread.hasRequestedStop());
}

TEST_F(SharedThread, Stop_InAHandlerWhileSomebodyAttaches_IsMinusOneAtOnce) {
    HookScope const scope;
    Collector listener;
    Gate attaching;
    ScopedSharedThread thread;
    Worker worker([&] {
        attaching.wait();
        EXPECT_EQ(thread.stop(1, 0), -1);
        EXPECT_EQ(thread.start(), -1);
    });
    ASSERT_EQ(thread.start(), 0);
    ASSERT_EQ(thread.postMsg(&worker, FIRST), 1);
    hooks::write.reset();
    auto attached = std::async(std::launch::async, [&] { return thread.attachMsgListener(&listener); });
    waitForTokens(1);
    attaching.open();
    EXPECT_EQ(attached.get(), 1);
}

TEST_F(SharedThread, Sends_AfterTheRequestToStop_AreRefused) {
    HookScope const scope;
    Collector listener;
    Holder holder;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    holdIn(holder, thread);
    ASSERT_EQ(thread.stop(0, 0), 0);
    EXPECT_EQ(thread.postMsg(&listener, FIRST), 0);
    EXPECT_EQ(thread.sendMsgSync(&listener, FIRST), 0);
    EXPECT_EQ(thread.sendMsgInterrupt(&listener, FIRST), 0);
    holder.gate.open();
    thread.finish();
    EXPECT_TRUE(listener.received().empty());
    EXPECT_EQ(thread.postMsg(&listener, FIRST), 0);
}

TEST_F(SharedThread, ASynchronousSendThatIsQueuedBehindAStop_ComesBackWithZero) {
    HookScope const scope;
    Collector listener;
    Holder holder;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    holdIn(holder, thread);
    hooks::write.reset();
    auto sync = std::async(std::launch::async, [&] { return thread.sendMsgSync(&listener, SECOND); });
    waitForTokens(1);
    ASSERT_EQ(thread.stop(0, 0), 0);
    holder.gate.open();
    EXPECT_EQ(sync.get(), 0);
    EXPECT_TRUE(listener.received().empty());
}

TEST_F(SharedThread, AnInterruptToOneListener_WhoseLoopEndsFirst_ComesBackWithZero) {
    HookScope const scope;
    Collector listener;
    Holder holder;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    holdIn(holder, thread);
    hooks::write.reset();
    auto interrupt =
        std::async(std::launch::async, [&] { return thread.sendMsgInterrupt(&listener, SECOND); });
    waitForTokens(1);
    ASSERT_EQ(thread.stop(0, 0), 0);
    holder.gate.open();
    EXPECT_EQ(interrupt.get(), 0);
    EXPECT_TRUE(listener.received().empty());
}

TEST_F(SharedThread, Destructor_OfAThreadThatWasNotStopped_WaitsForItsLoop) {
    for (int round = 0; round < 20; ++round) {
        LogCapture const log;
        Collector listener;
        int id = 0;
        {
            utl::MsgDrivenSharedThread thread(8, 4, 4, "forgotten", 4);
            ASSERT_EQ(thread.attachMsgListener(&listener), 1);
            ASSERT_EQ(thread.start(), 0);
            ASSERT_GT(thread.setTimer(1, 0, 0, 1), 0);
            ASSERT_GT(thread.setTimer(&listener, 60000, 0, 0, 1), 0);
            ASSERT_TRUE(listener.waitFor(1));
            ASSERT_EQ(thread.postMsg(FIRST), 1);
            id = thread.getId();
        }
        EXPECT_FALSE(utl::ThreadManager::get()->isThreadActive(id));
        ASSERT_FALSE(log.lines().empty());
        EXPECT_EQ(log.lines().back(),
                  "<UTIL> ERR: MsgDrivenThread(forgotten) Error. read Ret:4294967295 errno:" +
                      std::to_string(EBADF) + " !!Break msg loop!!");
        EXPECT_TRUE(utl::ThreadManager::get()->unregister(id));
    }
}

TEST(SharedThreadDeathTest, AProcessThatReturnsFromMainWithARunningThread_EndsCleanly) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            auto* const listener = new Collector;
            auto* const thread = new utl::MsgDrivenSharedThread(8, 64, 4, "busy", 4);
            listener->onMsg = [=](int id, int) {
                if (id == FIRST) {
                    thread->postMsg(listener, FIRST);
                }
            };
            thread->attachMsgListener(listener);
            thread->start();
            thread->setTimer(1, 0, 0, 1);
            thread->postMsg(FIRST);
            listener->waitFor(100);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

// Signs of life.

std::mutex gTrailMutex;
std::vector<utl::StatementInfo> gTrail;
std::atomic<int> gTrailThread{0};

// The clock is read for each sign of life, after the note of the place.
int noteAndReadClock(clockid_t clock, timespec* time) {
    if (kernelId() == gTrailThread) {
        utl::StatementInfo const place = lastStatementOf(gTrailThread);
        std::lock_guard<std::mutex> const guard(gTrailMutex);
        gTrail.push_back(place);
    }
    return hooks::clockGetTime.real(clock, time);
}

class SharedThreadKeepAlive : public utltest::WithManager {
  protected:
    SharedThreadKeepAlive() { restingWatchdog(); }
    ~SharedThreadKeepAlive() override { gTrailThread = 0; }

    /// The places of thread `id` that it reports inside `work`, as "function sub". Two that belong together
    /// stand in one line of the source.
    template <typename WORK>
    std::vector<std::string> trailOf(int id, WORK work) {
        hooks::clockGetTime.replace(noteAndReadClock);
        {
            std::lock_guard<std::mutex> const guard(gTrailMutex);
            gTrail.clear();
        }
        gTrailThread = id;
        work();
        gTrailThread = 0;
        std::vector<std::string> result;
        std::vector<unsigned int> open;
        std::lock_guard<std::mutex> const guard(gTrailMutex);
        for (utl::StatementInfo const& place : gTrail) {
            if (std::string(place.file) != "source/UtlMsgDrivenSharedThread") {
                continue;
            }
            result.push_back(std::string(place.function) + " " + std::to_string(place.sub));
            if (place.sub == 1) {
                open.push_back(place.line);
            } else if (!open.empty()) {
                EXPECT_EQ(open.back(), place.line);
                open.pop_back();
            }
        }
        EXPECT_TRUE(open.empty());
        return result;
    }

    template <typename WORK>
    std::vector<std::string> trail(WORK work) {
        return trailOf(kernelId(), work);
    }

    static void watchCaller() {
        EXPECT_TRUE(manager().entryWatchdog(60000, nullptr));
        EXPECT_TRUE(manager().startWatchdog());
    }

    static std::vector<std::string> pairs(std::vector<char const*> const& functions) {
        std::vector<std::string> result;
        for (char const* const function : functions) {
            result.push_back(std::string(function) + " 1");
            result.push_back(std::string(function) + " 2");
        }
        return result;
    }

    HookScope mScope;
};

TEST_F(SharedThreadKeepAlive, StandsAroundEveryLockWaitAndSend_FromOutside) {
    Collector listener;
    utl::ThreadRawMsg raw(4);
    ScopedSharedThread thread;
    watchCaller();
    EXPECT_EQ(trail([&] { thread.attachMsgListener(&listener); }), pairs({"attachMsgListener"}));
    EXPECT_EQ(trail([&] { thread.detachMsgListener(&listener); }), pairs({"detachMsgListener"}));
    EXPECT_EQ(trail([&] { thread.start(); }), pairs({"start", "start"}));
    EXPECT_EQ(trail([&] { thread.attachMsgListener(&listener); }),
              pairs({"attachMsgListener", "attachMsgListener", "attachMsgListener"}));
    EXPECT_EQ(trail([&] { thread.detachMsgListener(&listener); }),
              pairs({"detachMsgListener", "detachMsgListener", "detachMsgListener"}));
    EXPECT_EQ(trail([&] { thread.postMsg(FIRST); }), pairs({"postMsg"}));
    EXPECT_EQ(trail([&] { thread.sendMsgSync(FIRST); }), pairs({"sendMsgSync"}));
    EXPECT_EQ(trail([&] { thread.sendMsgInterrupt(FIRST); }), pairs({"sendMsgInterrupt"}));
    EXPECT_EQ(trail([&] { thread.postMsg(&listener, FIRST); }), pairs({"postMsg", "postMsg"}));
    EXPECT_EQ(trail([&] { thread.sendMsgSync(&listener, FIRST); }), pairs({"sendMsgSync", "sendMsgSync"}));
    EXPECT_EQ(trail([&] { thread.sendMsgInterrupt(&listener, FIRST); }),
              pairs({"sendMsgInterrupt", "sendMsgInterrupt"}));
    EXPECT_EQ(trail([&] { thread.hasMsg(FIRST); }), pairs({"hasMsg"}));
    EXPECT_EQ(trail([&] { thread.hasMsg(&listener, FIRST); }), pairs({"hasMsg"}));
    EXPECT_EQ(trail([&] { thread.eraseMsg(FIRST); }), pairs({"eraseMsg"}));
    EXPECT_EQ(trail([&] { thread.eraseMsg(&listener, FIRST); }), pairs({"eraseMsg"}));
    EXPECT_EQ(trail([&] { thread.peekMsg(FIRST, &raw); }), pairs({"peekMsg"}));
    EXPECT_EQ(trail([&] { thread.peekMsg(&listener, FIRST, &raw); }), pairs({"peekMsg"}));
    EXPECT_EQ(trail([&] { thread.getFirstMsgId(); }), pairs({"peekMsg"}));
    EXPECT_EQ(trail([&] { thread.getFirstMsgId(&listener); }), pairs({"peekMsg"}));
    EXPECT_EQ(trail([&] { thread.abortMsg(&listener); }), pairs({"forgetLastTimerOf", "eraseMsg"}));
    EXPECT_EQ(trail([&] { thread.stop(1, 0); }), pairs({"stop", "stop"}));
    EXPECT_EQ(trail([&] { thread.attachMsgListener(&listener); }),
              pairs({"attachMsgListener", "attachMsgListener"}));
}

TEST_F(SharedThreadKeepAlive, StandsAroundTheTimerOperations_FromOutside) {
    Collector listener;
    ScopedSharedThread thread;
    watchCaller();
    ASSERT_EQ(thread.start(), 0);
    int timer = 0;
    EXPECT_EQ(trail([&] { timer = thread.registerTimer(60000); }), pairs({"registerTimer", "registerTimer"}));
    EXPECT_EQ(trail([&] { thread.startTimer(timer); }), pairs({"startTimer"}));
    std::vector<std::string> const killing = {"killTimer 1", "forgetTimer 1", "forgetTimer 2", "killTimer 2"};
    EXPECT_EQ(trail([&] { thread.killTimer(timer); }), killing);
    EXPECT_EQ(trail([&] { timer = thread.setTimer(&listener, 60000, 0, 0, 0); }),
              pairs({"registerTimer", "registerTimer", "startTimer"}));
}

TEST_F(SharedThreadKeepAlive, ShowsWhereACallerWaits) {
    Collector listener;
    ScopedSharedThread thread;
    watchCaller();
    ASSERT_EQ(thread.start(), 0);
    int const caller = kernelId();
    utl::StatementInfo inside("", "", 0, 0);
    workOn(thread, [&] { inside = lastStatementOf(caller); });
    EXPECT_STREQ(inside.file, "source/UtlMsgDrivenSharedThread");
    EXPECT_STREQ(inside.function, "sendMsgSync");
    EXPECT_EQ(inside.sub, 1U);
}

TEST_F(SharedThreadKeepAlive, OnTheThreadItself_OnlyTheHandingOnOfFourKindsReports) {
    Collector listener;
    ScopedSharedThread thread;
    Worker worker([&] {
        thread.postMsg(FIRST);
        thread.postMsg(&listener, FIRST);
        thread.hasMsg(FIRST);
        thread.hasMsg(&listener, FIRST);
        thread.attachMsgListener(&listener);
        thread.detachMsgListener(&listener);
        thread.killTimer(thread.setTimer(60000));
        thread.abortMsg(&listener);
    });
    ASSERT_EQ(thread.start(1, 60000), 0);
    int const id = thread.getId();
    EXPECT_EQ(trailOf(id, [&] { thread.sendMsgSync(FIRST); }), std::vector<std::string>());
    EXPECT_EQ(trailOf(id, [&] { thread.attachMsgListener(&worker); }), pairs({"receiveMsg"}));
    EXPECT_EQ(trailOf(id, [&] { thread.sendMsgSync(SECOND); }), std::vector<std::string>()) << "a broadcast";
    EXPECT_EQ(trailOf(id, [&] { thread.detachMsgListener(&worker); }), pairs({"receiveMsg"}));
    EXPECT_EQ(trailOf(id, [&] { thread.sendMsgSync(&worker, FIRST); }), pairs({"receiveMsg"}));
    EXPECT_EQ(trailOf(id,
                      [&] {
                          EXPECT_GT(thread.setTimer(&listener, 1, 0, 1, 1), 0);
                          EXPECT_TRUE(listener.waitFor(1));
                          thread.sendMsgSync(FIRST);
                      }),
              pairs({"receiveMsg"}));
}

// Locks, seen through the signs of life of a thread that waits for them.

// Somebody outside starts a timer and waits for the thread, somebody else outside posts to a listener
// meanwhile, and the handler that all wait for posts to a listener, too.
TEST_F(SharedThreadKeepAlive, PostMsg_ToAListenerInAHandler_NeverWaitsForAPostFromOutside) {
    Collector listener;
    Gate go;
    ScopedSharedThread thread;
    Worker worker([&] {
        go.wait();
        EXPECT_EQ(thread.postMsg(&listener, NumberMsg(FIRST, 1)), 1);
    });
    ASSERT_EQ(thread.start(), 0);
    ASSERT_EQ(thread.postMsg(&worker, FIRST), 1);
    hooks::write.reset();
    {
        WatchedThread const starter([&] { EXPECT_GT(thread.setTimer(60000, 0, 0, 0), 0); });
        waitForTokens(1);
        WatchedThread const poster([&] { EXPECT_EQ(thread.postMsg(&listener, NumberMsg(FIRST, 2)), 1); });
        poster.waitUntilIn("postMsg");
        go.open();
    }
    ASSERT_TRUE(listener.waitFor(2));
}

TEST_F(SharedThreadKeepAlive, AttachMsgListener_DuringAStop_WaitsForIt) {
    Collector listener;
    Holder holder;
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    holdIn(holder, thread);
    WatchedThread const stopper([&] { EXPECT_EQ(thread.stop(1, 0), 0); });
    while (!thread.hasRequestedStop()) {
        std::this_thread::yield();
    }
    WatchedThread const attacher([&] {
        EXPECT_EQ(thread.attachMsgListener(&listener), 1);
        EXPECT_TRUE(thread.hasDone(utl::Thread::FINISHED));
    });
    attacher.waitUntilIn("attachMsgListener");
    holder.gate.open();
}

// The request to stop comes after the attach, whatever the stop is told about waiting.
TEST_F(SharedThreadKeepAlive, Stop_WithoutWaitingDuringAnAttach_WaitsForTheAttach) {
    Collector listener;
    Holder holder;
    std::atomic<bool> isOpen{false};
    ScopedSharedThread thread;
    ASSERT_EQ(thread.start(), 0);
    holdIn(holder, thread);
    hooks::write.reset();
    WatchedThread const attacher([&] { EXPECT_EQ(thread.attachMsgListener(&listener), 1); });
    waitForTokens(1);
    WatchedThread const stopper([&] {
        EXPECT_EQ(thread.stop(0, 0), 0);
        EXPECT_TRUE(isOpen);
    });
    stopper.waitUntilAsleepIn("stop");
    EXPECT_FALSE(thread.hasRequestedStop());
    isOpen = true;
    holder.gate.open();
}

// A shared thread whose preExecute waits for the gate.
class SlowSharedThread : public ScopedSharedThread {
  public:
    ~SlowSharedThread() override {
        gate.open();
        finish();
    }
    Gate gate;
    std::atomic<bool> isOpen{false};

    void open() {
        isOpen = true;
        gate.open();
    }

  protected:
    void preExecute() override { EXPECT_TRUE(gate.hold()); }
};

TEST_F(SharedThreadKeepAlive, AttachMsgListener_WhileAStartWaitsForPreExecute_WaitsForBoth) {
    Collector listener;
    SlowSharedThread thread;
    WatchedThread const starter([&] { EXPECT_EQ(thread.start(), 0); });
    ASSERT_TRUE(thread.gate.waitUntilHeld());
    WatchedThread const attacher([&] {
        EXPECT_EQ(thread.attachMsgListener(&listener), 1);
        EXPECT_TRUE(thread.isOpen);
    });
    attacher.waitUntilAsleepIn("attachMsgListener");
    thread.open();
}

// What is posted meanwhile stands before the request.
TEST_F(SharedThreadKeepAlive, AttachMsgListener_BehindAStartThatDidNotWait_WaitsUntilTheThreadIsReady) {
    Collector listener;
    {
        SlowSharedThread thread;
        ASSERT_EQ(thread.start(0, 0, nullptr, 0, 0), 0);
        ASSERT_TRUE(thread.gate.waitUntilHeld());
        hooks::write.reset();
        {
            WatchedThread const attacher([&] {
                EXPECT_EQ(thread.attachMsgListener(&listener), 1);
                EXPECT_TRUE(thread.isOpen);
            });
            attacher.waitUntilAsleepIn("attachMsgListener");
            EXPECT_EQ(hooks::write.calls(), 0U);
            EXPECT_EQ(thread.postMsg(FIRST), 1);
            thread.open();
        }
        EXPECT_EQ(thread.sendMsgSync(SECOND), 1);
    }
    EXPECT_EQ(listener.ids(), std::vector<int>{SECOND});
}

// Sizes, changes on the way and odd states.

/// Takes the bytes that it gets, as many as `expected` has.
class BytesListener : public utl::ThreadMsgListener {
  public:
    explicit BytesListener(unsigned int count) : mCount(count) {}
    std::atomic<int> good{0};
    void receiveMsg(int, utl::ThreadRawMsg& raw) override {
        BytesMsg msg(0, mCount);
        msg.mBytes.assign(mCount, 0);
        good += msg.restoreFrom(raw) == 1 && msg.mBytes == BytesMsg(0, mCount).mBytes ? 1 : 0;
    }

  private:
    unsigned int const mCount;
};

TEST_F(SharedThreadAlone, AnAddressedMessage_MayBeAsLargeAsTheThreadSaysAndNotOneByteMore) {
    for (unsigned int const size : {1U, 33U}) {
        OpenedSharedThread thread(size, 2);
        BytesListener listener(size);
        ASSERT_EQ(thread.start(), 0);
        EXPECT_EQ(thread.postMsg(&listener, BytesMsg(5, size)), 1);
        EXPECT_EQ(thread.sendMsgSync(&listener, BytesMsg(5, size)), 1);
        EXPECT_EQ(thread.sendMsgInterrupt(&listener, BytesMsg(5, size)), 1);
        EXPECT_EQ(thread.postMsg(&listener, BytesMsg(5, size + 1)), 0);
        EXPECT_EQ(thread.sendMsgSync(&listener, BytesMsg(5, size + 1)), 0);
        EXPECT_EQ(thread.sendMsgInterrupt(&listener, BytesMsg(5, size + 1)), 0);
        settle(thread);
        EXPECT_EQ(listener.good, 3);
        EXPECT_TRUE(log.lines().empty());
    }
}

TEST_F(SharedThreadAlone, AThreadForIdsAlone_DeliversThemTimeoutsAndNothingLarger) {
    OpenedSharedThread thread(0, 2);
    Collector collector;
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.sendMsgSync(&collector, 5), 1);
    EXPECT_EQ(thread.sendMsgInterrupt(&collector, 6), 1);
    EXPECT_EQ(thread.postMsg(&collector, BytesMsg(7, 1)), 0);
    workOn(thread, [&] { thread.executeTimeoutSignal(thread.setTimer(&collector, 600000, 0, 1, 0)); });
    settle(thread);
    EXPECT_EQ(collector.ids(), (std::vector<int>{5, 6, utl::MSG_ID_TIMER}));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SharedThreadAlone, ABroadcast_MayFillTheRoomOfTheEnvelopeAndNotOneByteMore) {
    unsigned int const room = 33 + 4 + ADDRESS_BYTES;
    OpenedSharedThread thread(33, 2);
    BytesListener listener(room);
    EXPECT_EQ(thread.attachMsgListener(&listener), 1);
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.sendMsgSync(BytesMsg(5, room)), 1);
    EXPECT_EQ(listener.good, 1);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(thread.postMsg(BytesMsg(5, room + 1)), 0);
    EXPECT_EQ(
        log.lines(),
        (std::vector<std::string>{error("MsgDrivenThread(shared) Overflow MsgSize  MaxSize(include MsgId):" +
                                        std::to_string(room + 4) + " MsgId:0x00000005")}));
}

TEST_F(SharedThreadAlone, WhatAHandlerAttachesAndDetaches_NeitherSkipsNorRepeatsAListener) {
    struct Case {
        char const* acts;  // of C: a small letter detaches, a capital one attaches
        char const* first;
        char const* second;
    };
    // Attached are A, B, C, D; the last comes first.
    std::vector<Case> const cases = {
        {"", "DCBA", "DCBA"},     {"d", "DCBA", "CBA"},      {"c", "DCBA", "DBA"},   {"b", "DCA", "DCA"},
        {"a", "DCB", "DCB"},      {"dcba", "DC", ""},        {"abcd", "DC", ""},     {"E", "DCBA", "EDCBA"},
        {"dD", "DCBA", "DCBA"},   {"cC", "DCBA", "CDBA"},    {"bB", "DCA", "BDCA"},  {"aA", "DCB", "ADCB"},
        {"dE", "DCBA", "ECBA"},   {"abAB", "DC", "BADC"},    {"aaE", "DCB", "EDCB"}, {"cbaE", "DC", "ED"},
        {"DCBA", "DCBA", "DCBA"}, {"dcbaABCD", "DC", "DCBA"}};
    for (Case const& one : cases) {
        std::string seen;
        OpenedSharedThread thread(8, 4, 5);
        std::vector<std::unique_ptr<Letter>> letters;
        for (char const letter : std::string("ABCDE")) {
            letters.push_back(std::make_unique<Letter>(letter, seen));
        }
        std::string acts = one.acts;
        letters[2]->then = [&] {
            for (char const act : std::exchange(acts, "")) {
                if (act >= 'a') {
                    thread.detachMsgListener(letters[static_cast<size_t>(act - 'a')].get());
                } else {
                    EXPECT_EQ(thread.attachMsgListener(letters[static_cast<size_t>(act - 'A')].get()), 1);
                }
            }
        };
        for (size_t i = 0; i < 4; ++i) {
            EXPECT_EQ(thread.attachMsgListener(letters[i].get()), 1);
        }
        ASSERT_EQ(thread.start(), 0);
        EXPECT_EQ(thread.sendMsgSync(5), 1);
        EXPECT_EQ(seen, one.first) << "acts " << one.acts;
        seen.clear();
        EXPECT_EQ(thread.sendMsgSync(5), 1);
        EXPECT_EQ(seen, one.second) << "acts " << one.acts;
        thread.finish();
    }
}

TEST_F(SharedThreadAlone, ABroadcastTimeout_ToleratesAHandlerThatDetachesAbortsAndDeletesItsListener) {
    std::string seen;
    OpenedSharedThread thread(8, 8, 3);
    Letter first('A', seen);
    auto middle = std::make_unique<Letter>('B', seen);
    Letter last('C', seen);
    last.then = [&] {
        if (middle != nullptr) {
            thread.detachMsgListener(middle.get());
            EXPECT_EQ(thread.abortMsg(middle.get()), 1);
            middle.reset();
        }
    };
    thread.attachMsgListener(&first);
    thread.attachMsgListener(middle.get());
    thread.attachMsgListener(&last);
    ASSERT_EQ(thread.start(), 0);
    workOn(thread, [&] {
        int const all = thread.setTimer(600000, 0, 1, 1);
        int const one = thread.setTimer(middle.get(), 600000, 0, 0, 1);
        thread.executeTimeoutSignal(all);
        thread.postMsg(middle.get(), 5);
        thread.executeTimeoutSignal(one);
    });
    settle(thread);
    EXPECT_EQ(seen, "CA");
    EXPECT_EQ(thread.remTimerIdCount(), 4U);
    EXPECT_EQ(hooks::timerCreate.calls(), hooks::timerDelete.calls());
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SharedThreadAlone, AttachingAgainstAFullControlQueue_FailsWithItsLineAndChangesNothing) {
    OpenedSharedThread thread(8, 4, 2);
    Collector one;
    Collector two;
    Holder holder;
    EXPECT_EQ(thread.attachMsgListener(&one), 1);
    ASSERT_EQ(thread.start(), 0);
    holdIn(holder, thread);
    unsigned int count = 0;
    while (thread.postThreadCtlMsg(utl::MSG_ID_CTL_START_TIMER, 77) == 1) {
        ++count;
    }
    EXPECT_EQ(count, 4 + utl::MsgDrivenThread::EXTRA_CTL_ENTRIES);
    EXPECT_EQ(thread.attachMsgListener(&two), 0);
    EXPECT_EQ(thread.detachMsgListener(&one), 0);
    EXPECT_EQ(log.count(error("MsgDrivenSharedThread::attachMsgListener(): Can't send thread")), 1U);
    EXPECT_EQ(log.count(error("MsgDrivenSharedThread::detachMsgListener(): Can't send thread")), 1U);
    EXPECT_EQ(log.count(error("MsgDrivenThread(shared) Overflow ThreadCtlMsgQueue  MaxCount:260 "
                              "MsgId:0x80000005")),
              2U);
    holder.gate.open();
    // What the two requests left in the data queue must reach nobody once a posted message comes.
    while (thread.postMsg(NumberMsg(9, 99)) == 0) {
        std::this_thread::yield();
    }
    ASSERT_TRUE(one.waitFor(1));
    EXPECT_EQ(one.ids(), (std::vector<int>{9}));
    EXPECT_TRUE(two.ids().empty());
    EXPECT_EQ(log.count(error("!!!!!!!! MsgDrivenThread(shared) MismatchedMsg... DataQueueMsgId:0x80000021 "
                              "CtlMsgId:0x00000009 Erased Data !!!!!!!!")),
              1U);
    EXPECT_EQ(log.count(error("!!!!!!!! MsgDrivenThread(shared) MismatchedMsg... DataQueueMsgId:0x80000022 "
                              "CtlMsgId:0x00000009 Erased Data !!!!!!!!")),
              1U);
}

TEST_F(SharedThreadAlone, AHandlerIsHeldUpByNobody_WhileOutsidersWaitInEveryCall) {
    OpenedSharedThread thread(16, 64, 4, "shared", 16);
    Collector outside;
    Collector inside;
    Gate gate;
    std::atomic<int> timer{-1};
    std::atomic<bool> done{false};
    Worker handler([&] {
        timer = thread.setTimer(&inside, 600000, 0, 0, 1);
        EXPECT_TRUE(gate.hold());
        EXPECT_EQ(thread.start(), -1);
        EXPECT_EQ(thread.stop(1, 0), -1);
        EXPECT_EQ(thread.attachMsgListener(&inside), 1);
        thread.detachMsgListener(&inside);
        EXPECT_EQ(thread.postMsg(&inside, 6), 1);
        EXPECT_EQ(thread.postMsg(6), 1);
        EXPECT_TRUE(thread.hasMsg(6));
        EXPECT_TRUE(thread.hasMsg(&inside, 6));
        EXPECT_TRUE(thread.eraseMsg(&inside, 6));
        EXPECT_EQ(thread.sendMsgSync(&inside, 6), 0);
        EXPECT_EQ(thread.sendMsgInterrupt(&inside, 6), 0);
        int const another = thread.setTimer(&inside, 600000, 0, 0, 1);
        EXPECT_GT(another, 0);
        EXPECT_TRUE(thread.killTimer(another));
        EXPECT_EQ(thread.abortMsg(&inside), 1);
        done = true;
    });
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.postMsg(&handler, 1), 1);
    ASSERT_TRUE(gate.waitUntilHeld());
    std::vector<std::function<void()>> const calls = {
        [&] { EXPECT_EQ(thread.sendMsgSync(&outside, 7), 1); },
        [&] { EXPECT_EQ(thread.sendMsgInterrupt(&outside, 8), 1); },
        [&] { EXPECT_EQ(thread.attachMsgListener(&outside), 1); },
        [&] { thread.hasMsg(&outside, 7); },
        [&] { EXPECT_TRUE(thread.eraseMsg(&outside, 9)); },
        [&] { EXPECT_GT(thread.setTimer(&outside, 600000, 0, 0, 1), 0); },
        [&] { EXPECT_EQ(thread.postMsg(&outside, 10), 1); },
        [&] { thread.killTimer(timer, 0); },
    };
    std::vector<std::unique_ptr<std::atomic<int>>> ids;
    std::vector<std::unique_ptr<JoinedThread>> outsiders;
    for (auto const& call : calls) {
        ids.push_back(std::make_unique<std::atomic<int>>(0));
        std::atomic<int>& id = *ids.back();
        outsiders.push_back(std::make_unique<JoinedThread>([&call, &id] {
            id = kernelId();
            call();
        }));
        waitUntilAsleep(id);
    }
    gate.open();
    outsiders.clear();
    EXPECT_TRUE(done);
    settle(thread);
    std::vector<int> received = outside.ids();
    std::sort(received.begin(), received.end());
    received.erase(std::remove(received.begin(), received.end(), 6), received.end());  // the broadcast
    EXPECT_EQ(received, (std::vector<int>{7, 8, 10}));
}

TEST_F(SharedThreadAlone, AListenerThatWasDetachedAndAborted_CanBeDeletedWhateverWasOnItsWay) {
    OpenedSharedThread thread(8, 64, 8, "shared", 12);
    ASSERT_EQ(thread.start(), 0);
    auto const play = [&] {
        for (int i = 0; i < 40; ++i) {
            auto const listener = std::make_unique<Collector>();
            EXPECT_EQ(thread.attachMsgListener(listener.get()), 1);
            EXPECT_GT(thread.setTimer(listener.get(), 1, i % 2, 0, i / 2 % 2), 0);
            EXPECT_GT(thread.setTimer(listener.get(), 1, 0, 1, 1), 0);
            EXPECT_EQ(thread.postMsg(listener.get(), 5), 1);
            EXPECT_EQ(thread.postMsg(6), 1);
            EXPECT_EQ(thread.postMsg(listener.get(), 7), 1);
            thread.detachMsgListener(listener.get());
            thread.abortMsg(listener.get());  // 0 where its second timer has ended meanwhile
        }
    };
    {
        JoinedThread one(play);
        JoinedThread two(play);
        JoinedThread three(play);
    }
    EXPECT_EQ(thread.remTimerIdCount(), 12U);
    EXPECT_EQ(hooks::timerCreate.calls(), hooks::timerDelete.calls());
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SharedThreadAlone, ListenersThatComeAndGoAmongBroadcasts_MissNoneWhileTheyAreAttached) {
    OpenedSharedThread thread(16, 64, 4);
    Collector constant;
    EXPECT_EQ(thread.attachMsgListener(&constant), 1);
    ASSERT_EQ(thread.start(), 0);
    constexpr int ROUNDS = 40;
    auto const visit = [&](int id) {
        for (int i = 0; i < ROUNDS; ++i) {
            Collector visitor;
            EXPECT_EQ(thread.attachMsgListener(&visitor), 1);
            EXPECT_EQ(thread.sendMsgSync(NumberMsg(id, i)), 1);
            EXPECT_EQ(thread.sendMsgSync(&visitor, NumberMsg(id + 10, i)), 1);
            int const timer = thread.setTimer(&visitor, 600000, 0, 0, 1);
            thread.detachMsgListener(&visitor);
            EXPECT_EQ(thread.abortMsg(&visitor), 1);
            EXPECT_TRUE(timer == -1 || !thread.killTimer(timer));
            auto const ids = visitor.ids();
            EXPECT_EQ(std::count(ids.begin(), ids.end(), id), 1);
            EXPECT_EQ(std::count(ids.begin(), ids.end(), id + 10), 1);
        }
    };
    {
        JoinedThread first([&] { visit(1); });
        JoinedThread second([&] { visit(2); });
        JoinedThread third([&] { visit(3); });
    }
    EXPECT_EQ(constant.ids().size(), 3U * ROUNDS);
    EXPECT_EQ(thread.remTimerIdCount(), 4U);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SharedThreadAlone, AHandlerThatPeeksIntoItsOwnMessage_SpoilsNoneBehindIt) {
    OpenedSharedThread thread(8, 8);
    std::vector<int> numbers;
    class Peeking : public utl::ThreadMsgListener {
      public:
        Peeking(OpenedSharedThread& owner, std::vector<int>& all) : mOwner(owner), mAll(all) {}
        void receiveMsg(int, utl::ThreadRawMsg& raw) override {
            NumberMsg msg(0, -1);
            msg.restoreFrom(raw);
            mAll.push_back(msg.mNumber);
            mOwner.peekMsg(9, &raw);
            mOwner.peekMsg(this, 5, &raw);
            mOwner.peekMsg(9, &raw);
        }

      private:
        OpenedSharedThread& mOwner;
        std::vector<int>& mAll;
    } listener(thread, numbers);
    ASSERT_EQ(thread.start(), 0);
    workOn(thread, [&] {
        for (int i = 1; i <= 3; ++i) {
            thread.postMsg(&listener, NumberMsg(5, i));
        }
        thread.postMsg(NumberMsg(9, 99));
        thread.postMsg(&listener, NumberMsg(5, 4));
    });
    settle(thread);
    EXPECT_EQ(thread.sendMsgSync(&listener, NumberMsg(5, 5)), 1);
    EXPECT_EQ(numbers, (std::vector<int>{1, 2, 3, 4, 5}));
    EXPECT_TRUE(log.lines().empty());
}

}  // namespace

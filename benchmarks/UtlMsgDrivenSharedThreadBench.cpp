// The cost of sharing a message thread: an address on a message, and broadcasts to many listeners.

#include "UtlMsgDrivenSharedThread.h"

#include <benchmark/benchmark.h>

#include "BenchBareRoad.h"
#include "BenchMessages.h"
#include "BenchRatio.h"
#include "UtlLog.h"

namespace {

using utlbench::BARE_BYTES;
using utlbench::bareRoad;
using utlbench::bareRun;
using utlbench::BlockMsg;
using utlbench::Counter;
using utlbench::MSG_BYTES;
using utlbench::QUEUE_PLACES;

// A full queue is a part of the measurement.
bool const gQuiet = (setFilterLevel(utl::LOG_TYPE_LIBRARY, utl::LOG_LEVEL_NONE), true);

// A thread with that many listeners, kept for the life of the process.
utl::MsgDrivenSharedThread& threadWith(unsigned int listeners) {
    auto* const thread = new utl::MsgDrivenSharedThread(MSG_BYTES, QUEUE_PLACES, listeners, "shared");
    for (unsigned int i = 0; i < listeners; ++i) {
        thread->attachMsgListener(new Counter);
    }
    thread->start();
    return *thread;
}

utl::MsgDrivenThread& plain() {
    static utl::MsgDrivenThread* const theThread = [] {
        auto* const thread = new utl::MsgDrivenThread(MSG_BYTES, QUEUE_PLACES, "plain");
        thread->start(new Counter);
        return thread;
    }();
    return *theThread;
}

utl::MsgDrivenSharedThread& shared() {
    static utl::MsgDrivenSharedThread& theThread = threadWith(1);
    return theThread;
}

Counter gListener;

void plainRun(unsigned int producers) {
    utlbench::postFromThreads(producers, [] { return plain().postMsg(BlockMsg(1)) != 0; });
    plain().sendMsgSync(2);
}

void addressedRun(unsigned int producers) {
    utlbench::postFromThreads(producers, [] { return shared().postMsg(&gListener, BlockMsg(1)) != 0; });
    shared().sendMsgSync(&gListener, 2);
}

UTL_RATIO(
    "post to one listener, 1 producer, to a MsgDrivenThread of its own", [] { addressedRun(1); },
    [] { plainRun(1); }, 1.5);
UTL_RATIO(
    "post to one listener, 4 producers, to a MsgDrivenThread of its own", [] { addressedRun(4); },
    [] { plainRun(4); }, 1.5);
UTL_RATIO(
    "sendMsgSync to one listener, to a MsgDrivenThread of its own",
    [] { shared().sendMsgSync(&gListener, BlockMsg(1)); }, [] { plain().sendMsgSync(BlockMsg(1)); }, 1.5);
// The bare road has no address on its messages, no envelope for it, and nobody who waits is watched.
UTL_RATIO(
    "post to one listener, 1 producer, to a pipe and a queue under 1 plain lock", [] { addressedRun(1); },
    [] { bareRun(1); }, 2.0);
UTL_RATIO(
    "post to one listener, 4 producers, to a pipe and a queue under 1 plain lock", [] { addressedRun(4); },
    [] { bareRun(4); }, 2.0);
UTL_RATIO(
    "sendMsgSync to one listener, to the same with a condition variable for the answer",
    [] { shared().sendMsgSync(&gListener, BlockMsg(1)); }, [] { bareRoad().sendSync(BARE_BYTES); }, 1.5);

// A broadcast to that many listeners, posted and delivered.
void broadcast(benchmark::State& state) {
    constexpr unsigned int BROADCASTS = 500;  // fit into the queue
    auto const listeners = static_cast<unsigned int>(state.range(0));
    utl::MsgDrivenSharedThread& thread = threadWith(listeners);
    for ([[maybe_unused]] auto const _ : state) {
        for (unsigned int i = 0; i < BROADCASTS; ++i) {
            thread.postMsg(BlockMsg(1));
        }
        thread.sendMsgSync(2);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * BROADCASTS);
    thread.stop();
    thread.leaveManagement();
}
BENCHMARK(broadcast)->Arg(1)->Arg(8)->Arg(64)->UseRealTime();

}  // namespace

// The path of a message, against the same system calls and copies under one plain lock, and the cost of a
// deep queue.

#include "UtlMsgDrivenThread.h"

#include "BenchBareRoad.h"
#include "BenchMessages.h"
#include "BenchRatio.h"
#include "UtlEvent.h"
#include "UtlLog.h"

namespace {

using utlbench::BARE_BYTES;
using utlbench::bareRoad;
using utlbench::bareRun;
using utlbench::BlockMsg;
using utlbench::Counter;
using utlbench::MSG_BYTES;
using utlbench::postFromThreads;
using utlbench::QUEUE_PLACES;

// A full queue is a part of the measurement.
bool const gQuiet = (setFilterLevel(utl::LOG_TYPE_LIBRARY, utl::LOG_LEVEL_NONE), true);

utl::MsgDrivenThread& road() {
    static utl::MsgDrivenThread* const theRoad = [] {
        auto* const thread = new utl::MsgDrivenThread(MSG_BYTES, QUEUE_PLACES, "road");
        thread->start(new Counter);
        return thread;
    }();
    return *theRoad;
}

void roadRun(unsigned int producers) {
    postFromThreads(producers, [] { return road().postMsg(BlockMsg(1)) != 0; });
    road().sendMsgSync(2);
}

UTL_RATIO(
    "post and deliver, 1 producer, to a pipe and a queue under 1 plain lock", [] { roadRun(1); },
    [] { bareRun(1); }, 1.25);
UTL_RATIO(
    "post and deliver, 4 producers, to a pipe and a queue under 1 plain lock", [] { roadRun(4); },
    [] { bareRun(4); }, 1.25);
UTL_RATIO(
    "sendMsgSync, to the same with a condition variable for the answer",
    [] { road().sendMsgSync(BlockMsg(1)); }, [] { bareRoad().sendSync(BARE_BYTES); }, 1.25);

// A queue that fills while its thread is held, and is then drained.
class DeepRoad {
  public:
    explicit DeepRoad(unsigned int depth) : mDepth(depth), mThread(MSG_BYTES, depth + 2, "deep") {
        mThread.start(&mHolder);
    }

    void fillAndDrain(unsigned int times) {
        for (unsigned int i = 0; i < times; ++i) {
            mHolder.mGate.setOff();
            mThread.postMsg(Holder::HOLD);
            for (unsigned int j = 0; j < mDepth; ++j) {
                mThread.postMsg(BlockMsg(1));
            }
            mHolder.mGate.setOn();
            mThread.sendMsgSync(2);
        }
    }

  private:
    class Holder : public Counter {
      public:
        static constexpr int HOLD = 3;

        void receiveMsg(int threadId, utl::ThreadRawMsg& raw) override {
            int id = 0;
            raw.getMsgId(&id);
            if (id == HOLD) {
                mGate.waitToOn(utl::Event::NO_LIMIT);
            } else {
                Counter::receiveMsg(threadId, raw);
            }
        }

        utl::Event mGate{utl::Event::INITIALLY_OFF, utl::Event::ONE_WAY};
    };

    unsigned int const mDepth;
    Holder mHolder;
    utl::MsgDrivenThread mThread;
};

constexpr unsigned int SHALLOW = 1024;
constexpr unsigned int DEEP = 16384;
constexpr unsigned int DEEPEST = 65536;

// Kept for the life of the process.
template <unsigned int DEPTH>
void deepRun(unsigned int messages) {
    static auto* const theRoad = new DeepRoad(DEPTH);
    theRoad->fillAndDrain(messages / DEPTH);
}

UTL_RATIO(
    "fill and drain a queue 16,384 deep, to 16 times 1,024", [] { deepRun<DEEP>(DEEP); },
    [] { deepRun<SHALLOW>(DEEP); }, 1.1);
UTL_RATIO(
    "fill and drain a queue 65,536 deep, to 64 times 1,024", [] { deepRun<DEEPEST>(DEEPEST); },
    [] { deepRun<SHALLOW>(DEEPEST); }, 1.1);

}  // namespace

// How the time of an erasure grows with the queue: every other message is erased, and the timeouts between
// them.

#include <benchmark/benchmark.h>

#include <memory>

#include "BenchMessages.h"
#include "BenchRatio.h"
#include "UtlMsgDrivenThread.h"

namespace {

constexpr unsigned int PAGE_BYTES = 4096;
constexpr unsigned int MESSAGES_FOR_A_TIMEOUT = 64;
constexpr int FILL_AND_ERASE = 1;
constexpr int ERASED = 2;
constexpr int KEPT = 3;
constexpr int GONE_TIMER = 1;

class PageMsg : public utl::Msg {
  public:
    explicit PageMsg(int id) : Msg(id) {}

  protected:
    int storeDataTo(utl::MsgDataBroker* broker) const override { return broker->set(BYTES, PAGE_BYTES); }
    int restoreDataFrom(utl::MsgDataBroker& /*broker*/) override { return 1; }

  private:
    static inline unsigned char const BYTES[PAGE_BYTES] = {};
};

struct JudgeNotKept {
    bool operator()(utl::ThreadRawMsg& raw) const {
        int id = utl::MSG_ID_NONE;
        return raw.getMsgId(&id) != 0 && id != KEPT;
    }
};

// A clock of the erasures alone: the figures do not include filling and emptying the queue.
double gErasing = 0;

double erasingTime() {
    return gErasing;
}

/// Fills the queue and erases half of it, on the message thread.
class Filler : public utl::ThreadMsgListener {
  public:
    Filler(utl::MsgDrivenThread& thread, unsigned int messages) : mThread(thread), mMessages(messages) {}

    void receiveMsg(int, utl::ThreadRawMsg& raw) override {
        int id = utl::MSG_ID_NONE;
        raw.getMsgId(&id);
        if (id == FILL_AND_ERASE) {
            fill();
            erase();
        }
    }

  private:
    void fill() {
        for (unsigned int i = 0; i < mMessages; ++i) {
            mThread.postMsg(PageMsg(i % 2 == 0 ? ERASED : KEPT));
            if (i % MESSAGES_FOR_A_TIMEOUT == 0) {
                mThread.postThreadCtlMsg(utl::MSG_ID_CTL_TIMEOUT, GONE_TIMER);
            }
        }
    }

    void erase() {
        JudgeNotKept judge;
        utl::MsgDrivenThread::MsgJudgement<JudgeNotKept> judgement(&judge);
        double const start = utlbench::THREAD_TIME();
        mThread.eraseMsgInternal(&judgement);
        gErasing += utlbench::THREAD_TIME() - start;
    }

    utl::MsgDrivenThread& mThread;
    unsigned int mMessages;
};

class ErasingThread {
  public:
    explicit ErasingThread(unsigned int messages)
        : mThread(PAGE_BYTES, messages + 1, "eraser"), mFiller(mThread, messages) {
        mThread.start(&mFiller);
    }
    ~ErasingThread() { mThread.stop(1, 0); }

    /// The nanoseconds of one erasure.
    double erase() {
        double const start = gErasing;
        mThread.sendMsgSync(FILL_AND_ERASE);
        return gErasing - start;
    }

  private:
    utl::MsgDrivenThread mThread;
    Filler mFiller;
};

void eraseHalfOf(benchmark::State& state) {
    ErasingThread thread(static_cast<unsigned int>(state.range(0)));
    thread.erase();  // the first one touches all of the queue's memory
    for (auto _ : state) {
        state.SetIterationTime(thread.erase() / 1e9);
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(eraseHalfOf)
    ->Arg(500)
    ->Arg(1000)
    ->Arg(2000)
    ->Arg(4000)
    ->Arg(8000)
    ->Arg(16000)
    ->Iterations(10)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// Constructed on first use: by then the threads of the single figures have released their memory.
template <unsigned int MESSAGES>
void erase() {
    static auto* const theThread = new ErasingThread(MESSAGES);
    theThread->erase();
}

utlbench::RatioDeclaration const gGrowth(
    erasingTime, "erase half of 16,000 messages of 4 KiB, to four times half of 4,000", erase<16000>,
    [] {
        for (int i = 0; i < 4; ++i) {
            erase<4000>();
        }
    },
    2);

}  // namespace

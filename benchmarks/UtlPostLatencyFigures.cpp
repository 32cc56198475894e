// How long a post takes an urgent thread (nice -10) while two threads are busy (nice 10) on one processor: by
// itself, and while a thread at nice 19 starts threads without a break. Needs the privilege to be urgent.

#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

#include "BenchRatio.h"
#include "BenchRows.h"
#include "UtlMsgDrivenThread.h"
#include "UtlThreadManager.h"

namespace {

constexpr unsigned int POSTS = 4000;
constexpr double GOAL = 3;
constexpr int MSG = 1;

struct Ignoring : utl::ThreadMsgListener {
    void receiveMsg(int, utl::ThreadRawMsg&) override {}
};

/// Works on a thread of its own at `nice` until the scope ends.
template <typename WORK>
class Background {
  public:
    Background(int nice, WORK work)
        : mThread([this, nice, work] {
              setpriority(PRIO_PROCESS, 0, nice);
              while (!mStop) {
                  work();
              }
          }) {}
    ~Background() {
        mStop = true;
        mThread.join();
    }
    Background(Background const&) = delete;
    Background& operator=(Background const&) = delete;

  private:
    std::atomic<bool> mStop{false};
    std::thread mThread;
};

void startOneThread() {
    auto* const manager = utl::ThreadManager::get();
    int const id = manager->entry([](void*) {}, nullptr, 0, 0, nullptr, "short");
    if (id != 0) {
        manager->waitToStop(id, 0);
        manager->unregister(id);
    }
}

struct Percentiles {
    double median;
    double high;
};

Percentiles postsOfAnUrgentThread(utl::MsgDrivenThread& thread) {
    std::vector<double> times;
    times.reserve(POSTS);
    std::thread poster([&] {
        setpriority(PRIO_PROCESS, 0, -10);
        for (unsigned int i = 0; i < POSTS; ++i) {
            double const begin = utlbench::WALL_TIME();
            thread.postMsg(MSG);
            times.push_back(utlbench::WALL_TIME() - begin);
            utl::Thread::sleep(1);
        }
    });
    poster.join();
    std::sort(times.begin(), times.end());
    return {times[POSTS / 2] / 1000, times[POSTS - 1 - POSTS / 1000] / 1000};
}

}  // namespace

int main(int argc, char** argv) {
    utlbench::RatioRows rows(argc, argv);
    Ignoring listener;
    utl::MsgDrivenThread thread(8, 1024, "receiver");
    if (thread.start(&listener) != 0) {
        return 1;
    }
    Percentiles alone{};
    Percentiles beside{};
    {
        auto const spin = [] { utlbench::WALL_TIME(); };
        Background const busy(10, spin);
        Background const busyToo(10, spin);
        alone = postsOfAnUrgentThread(thread);
        Background const starter(19, startOneThread);
        beside = postsOfAnUrgentThread(thread);
    }
    thread.stop();
    std::printf("one post in microseconds      median   99.9th percentile\n");
    std::printf("alone                       %8.1f %19.1f\n", alone.median, alone.high);
    std::printf("beside starts of threads    %8.1f %19.1f\n", beside.median, beside.high);
    rows.print("99.9th percentile of an urgent post (us), beside starts of threads, to alone", beside.high,
               alone.high, GOAL);
}

// 100 periodic timers of 10 ms on one message thread, against the same POSIX timers without a message thread,
// and against timerfd with epoll. The library is measured a second time with its timer signals blocked in all
// threads but that one. In the bare kind a handler writes 8 bytes. A thread reads them, queues a
// second token, and holds a plain lock once for each access to its queue and its timers.
//
// The receiver measures lateness from the time at which the expiry was due. Each kind starts its timers one
// after the other on the thread that receives their expiries, so that they are due as close together as
// possible. Each timer knows when it was started. The kinds run in turn; the figures are medians over the
// runs.

#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "BenchRatio.h"
#include "BenchRows.h"
#include "UtlMsgDrivenThread.h"
#include "UtlThreadManager.h"

namespace {

constexpr unsigned int TIMERS = 100;
constexpr unsigned int PERIOD_MS = 10;
constexpr unsigned int RUN_MS = 3000;
constexpr unsigned int RUNS = 7;

double processorNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// Sleeps to a point in time: the rest of an interrupted sleep would grow a little with each signal.
void sleepMilliseconds(unsigned int milliseconds) {
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    long const nanoseconds = end.tv_nsec + static_cast<long>(milliseconds % 1000) * 1000000;
    end.tv_sec += static_cast<time_t>(milliseconds / 1000) + nanoseconds / 1000000000;
    end.tv_nsec = nanoseconds % 1000000000;
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) != 0) {
    }
}

// Expiries as the receiver sees them.
class Arrivals {
  public:
    explicit Arrivals(size_t expected) { mLateness.reserve(2 * expected); }

    void start(unsigned int timer, double first) { mDue[timer] = first; }

    // Of the expiries that are due at the arrival the last one counts: the others were dropped.
    void arrive(unsigned int timer) {
        double const now = utlbench::WALL_TIME();
        double const period = PERIOD_MS * 1e6;
        while (mDue[timer] + period <= now) {
            mDue[timer] += period;
        }
        mLateness.push_back(now - mDue[timer]);
        mDue[timer] += period;
    }

    size_t count() const { return mLateness.size(); }

    double percentile(double share) {
        if (mLateness.empty()) {
            return 0;
        }
        auto const place =
            mLateness.begin() + static_cast<long>(share * static_cast<double>(mLateness.size() - 1));
        std::nth_element(mLateness.begin(), place, mLateness.end());
        return *place;
    }

  private:
    double mDue[TIMERS + 1] = {};
    std::vector<double> mLateness;
};

struct Figures {
    double processor;
    double median;
    double late;
    double delivered;
};

constexpr double EXPECTED = 1.0 * TIMERS * RUN_MS / PERIOD_MS;

void waitUntil(double time) {
    while (utlbench::WALL_TIME() < time) {
    }
}

// Calls `start` for each timer, at once or spread over a period, and notes when it was started.
template <typename START>
void startTimers(Arrivals& arrivals, bool spread, START start) {
    double const begin = utlbench::WALL_TIME();
    for (unsigned int i = 0; i < TIMERS; ++i) {
        waitUntil(begin + (spread ? 1e6 * PERIOD_MS * i / TIMERS : 0));
        start(i + 1);
        arrivals.start(i + 1, utlbench::WALL_TIME() + PERIOD_MS * 1e6);
    }
}

Figures figuresOf(double processor, Arrivals& arrivals) {
    return {processor / 1e6, arrivals.percentile(0.5) / 1e3, arrivals.percentile(0.99) / 1e3,
            static_cast<double>(arrivals.count()) / EXPECTED};
}

// The library.

constexpr int START_MSG = 1;

// Of the calling thread, and of threads that it starts.
void maskTimerSignals(int how) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGRTMIN + 1);
    sigaddset(&signals, SIGRTMIN + 2);
    pthread_sigmask(how, &signals, nullptr);
}

class Receiver : public utl::ThreadMsgListener {
  public:
    Receiver(utl::MsgDrivenThread& thread, bool spread) : mThread(thread), mSpread(spread) {}

    Arrivals arrivals{static_cast<size_t>(EXPECTED)};

    void receiveMsg(int, utl::ThreadRawMsg& raw) override {
        utl::TimerMsg msg;
        msg.restoreFrom(raw);
        if (msg.getMsgId() == utl::MSG_ID_TIMER) {
            arrivals.arrive(static_cast<unsigned int>(msg.mTimerId));
        } else {
            maskTimerSignals(SIG_UNBLOCK);
            startTimers(arrivals, mSpread, [this](unsigned int) { mThread.setTimer(PERIOD_MS, 1, 0, 1); });
        }
    }

  private:
    utl::MsgDrivenThread& mThread;
    bool const mSpread;
};

// The kernel wakes a thread for a signal if there is one that sleeps. With `BLOCKED` there is only the thread
// that serves the timers.
enum OtherThreads { OPEN, BLOCKED };

Figures runLibrary(bool spread, OtherThreads others) {
    maskTimerSignals(others == BLOCKED ? SIG_BLOCK : SIG_UNBLOCK);
    utl::MsgDrivenThread thread(16, 256, "timers", TIMERS);
    Receiver receiver(thread, spread);
    thread.start(&receiver);
    thread.sendMsgSync(START_MSG);
    double const before = processorNanoseconds();
    sleepMilliseconds(RUN_MS);
    double const after = processorNanoseconds();
    thread.stop();
    thread.leaveManagement();
    return figuresOf(after - before, receiver.arrivals);
}

// Bare.

int gBarePipe[2];

void bareHandler(int, siginfo_t* info, void*) {
    int const token[2] = {1, info->si_value.sival_int};
    ssize_t const written = write(gBarePipe[1], token, sizeof(token));
    utlbench::keep(written);
}

timer_t bareTimer(unsigned int number) {
    sigevent event;
    std::memset(&event, 0, sizeof(event));
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGRTMIN + 6;
    event.sigev_value.sival_int = static_cast<int>(number);
    timer_t timer;
    itimerspec spec = {};
    spec.it_value.tv_nsec = spec.it_interval.tv_nsec = PERIOD_MS * 1000000L;
    if (timer_create(CLOCK_MONOTONIC, &event, &timer) != 0 || timer_settime(timer, 0, &spec, nullptr) != 0) {
        std::abort();
    }
    return timer;
}

void writeBare(int id) {
    int const token[2] = {id, 0};
    ssize_t const written = write(gBarePipe[1], token, sizeof(token));
    utlbench::keep(written);
}

pthread_mutex_t gBareLock = PTHREAD_MUTEX_INITIALIZER;

// One hold of a plain lock for each access: to queue what has expired, to take it from the queue, and to see
// whether the timer goes on.
void readBare(Arrivals& arrivals) {
    int token[2];
    while (read(gBarePipe[0], token, sizeof(token)) == sizeof(token) && token[0] != 0) {
        pthread_mutex_lock(&gBareLock);
        if (token[0] == 1) {
            token[0] = 2;
            ssize_t const written = write(gBarePipe[1], token, sizeof(token));
            utlbench::keep(written);
            pthread_mutex_unlock(&gBareLock);
        } else {
            pthread_mutex_unlock(&gBareLock);
            arrivals.arrive(static_cast<unsigned int>(token[1]));
            pthread_mutex_lock(&gBareLock);
            utlbench::keep(token);
            pthread_mutex_unlock(&gBareLock);
        }
    }
}

Figures runBare(bool spread) {
    struct sigaction action = {};
    action.sa_sigaction = bareHandler;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    if (sigaction(SIGRTMIN + 6, &action, nullptr) != 0 || pipe(gBarePipe) != 0) {
        std::abort();
    }
    Arrivals arrivals(static_cast<size_t>(EXPECTED));
    std::vector<timer_t> timers;
    std::atomic<bool> isStarted{false};
    std::thread reader([&] {
        startTimers(arrivals, spread,
                    [&timers](unsigned int number) { timers.push_back(bareTimer(number)); });
        isStarted = true;
        readBare(arrivals);
    });
    while (!isStarted) {
        sleepMilliseconds(1);
    }
    double const before = processorNanoseconds();
    sleepMilliseconds(RUN_MS);
    double const after = processorNanoseconds();
    for (timer_t const timer : timers) {
        timer_delete(timer);
    }
    writeBare(0);
    reader.join();
    close(gBarePipe[0]);
    close(gBarePipe[1]);
    return figuresOf(after - before, arrivals);
}

// timerfd with epoll.

void readTimerFds(int epoll, Arrivals& arrivals, std::atomic<bool> const& ended) {
    epoll_event events[TIMERS];
    while (!ended) {
        int const count = epoll_wait(epoll, events, static_cast<int>(TIMERS), 50);
        for (int i = 0; i < count; ++i) {
            unsigned long long expiries = 0;
            auto const handle = static_cast<int>(events[i].data.u64 >> 32);
            if (read(handle, &expiries, sizeof(expiries)) == sizeof(expiries)) {
                arrivals.arrive(static_cast<unsigned int>(events[i].data.u64 & 0xFFFFFFFFU));
            }
        }
    }
}

int timerFd(int epoll, unsigned int number) {
    int const handle = timerfd_create(CLOCK_MONOTONIC, 0);
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.u64 = static_cast<unsigned long long>(handle) << 32 | number;
    itimerspec spec = {};
    spec.it_value.tv_nsec = spec.it_interval.tv_nsec = PERIOD_MS * 1000000L;
    if (epoll_ctl(epoll, EPOLL_CTL_ADD, handle, &event) != 0 ||
        timerfd_settime(handle, 0, &spec, nullptr) != 0) {
        std::abort();
    }
    return handle;
}

Figures runTimerFd(bool spread) {
    Arrivals arrivals(static_cast<size_t>(EXPECTED));
    int const epoll = epoll_create1(0);
    std::vector<int> handles;
    std::atomic<bool> isStarted{false};
    std::atomic<bool> ended{false};
    std::thread reader([&] {
        startTimers(arrivals, spread,
                    [&](unsigned int number) { handles.push_back(timerFd(epoll, number)); });
        isStarted = true;
        readTimerFds(epoll, arrivals, ended);
    });
    while (!isStarted) {
        sleepMilliseconds(1);
    }
    double const before = processorNanoseconds();
    sleepMilliseconds(RUN_MS);
    double const after = processorNanoseconds();
    ended = true;
    reader.join();
    for (int const handle : handles) {
        close(handle);
    }
    close(epoll);
    return figuresOf(after - before, arrivals);
}

// The table.

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

Figures medianOf(std::vector<Figures> const& runs) {
    auto const of = [&runs](double Figures::*field) {
        std::vector<double> values;
        for (Figures const& run : runs) {
            values.push_back(run.*field);
        }
        return median(values);
    };
    return {of(&Figures::processor), of(&Figures::median), of(&Figures::late), of(&Figures::delivered)};
}

void print(char const* name, Figures const& figures) {
    std::printf(
        "%-10s %8.2f ms processor, lateness %7.1f us median %7.1f us 99th percentile, %6.2f %% delivered\n",
        name, figures.processor, figures.median, figures.late, figures.delivered * 100);
}

void printRatio(utlbench::RatioRows& rows, char const* name, bool spread, double subject, double baseline) {
    constexpr double GOAL = 1.25;
    std::string const kind = spread ? "spread" : "due together";
    rows.print(("100 timers, " + kind + ": " + name).c_str(), subject, baseline, GOAL);
}

void compare(utlbench::RatioRows& rows, bool spread) {
    std::vector<Figures> library;
    std::vector<Figures> blocked;
    std::vector<Figures> bare;
    std::vector<Figures> timerFd;
    for (unsigned int i = 0; i < RUNS; ++i) {
        library.push_back(runLibrary(spread, OPEN));
        blocked.push_back(runLibrary(spread, BLOCKED));
        bare.push_back(runBare(spread));
        timerFd.push_back(runTimerFd(spread));
    }
    std::printf("100 timers of 10 ms, %s, for %u ms:\n", spread ? "spread" : "due together", RUN_MS);
    Figures const ours = medianOf(library);
    Figures const theirs = medianOf(bare);
    print("library", ours);
    print("blocked", medianOf(blocked));
    print("bare", theirs);
    print("timerfd", medianOf(timerFd));
    printRatio(rows, "processor time (ms)", spread, ours.processor, theirs.processor);
    printRatio(rows, "median lateness (us)", spread, ours.median, theirs.median);
    printRatio(rows, "99th percentile of lateness (us)", spread, ours.late, theirs.late);
}

}  // namespace

int main(int argc, char** argv) {
    utlbench::RatioRows rows(argc, argv);
    maskTimerSignals(SIG_BLOCK);  // for the watchdog's thread
    utl::ThreadManager::get();
    maskTimerSignals(SIG_UNBLOCK);
    compare(rows, false);
    compare(rows, true);
}

// Three workers under the watchdog. One falls silent on demand and recovers; a worker that is silent too long
// is reported.
//
//     heartbeat [SECONDS]    10 by default
//
// Enter, or the signal SIGUSR1, makes the worker "Slow" fall silent, and the next one makes it recover.
// Without a terminal the program does so by itself, after a third and after two thirds of its time.

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "Utl.h"

namespace {

constexpr int LOG_TYPE = 1;
constexpr unsigned int BEAT_MS = 100;
constexpr unsigned int STATUS_MS = 1000;
constexpr unsigned int DEFAULT_SECONDS = 10;

std::atomic<bool> gDemanded{false};

void demand(int /*signalNumber*/) {
    gDemanded = true;
}

// Reports that it is alive at each beat, until it is asked to stop.
class Worker : public utl::Thread {
  public:
    Worker(char const* name, unsigned int aliveTime) : Thread(name), mAliveTime(aliveTime) {}
    ~Worker() override { end(); }

    bool begin(utl::WatchdogTimerListener* listener) {
        return start(WITH_WATCHDOG, mAliveTime, listener) == 0 && startWatchdog();
    }

    void end() {
        stop();
        leaveManagement();
    }

    void toggleSilence() {
        mSilent = !mSilent;
        applog(LOG_TYPE, utl::LOG_LEVEL_INFO, "%s %s", getName().buffer(),
               mSilent ? "falls silent" : "recovers");
    }

  protected:
    int execute() override {
        while (!hasRequestedStop()) {
            if (!mSilent) {
                keepAliveWatchdog(utl::StatementInfo("examples/heartbeat", "execute", __LINE__, 0));
            }
            sleep(BEAT_MS);
        }
        return 0;
    }

  private:
    unsigned int const mAliveTime;
    std::atomic<bool> mSilent{false};
};

// Called on the watchdog's thread, once for each silence.
class TimeoutReporter : public utl::WatchdogTimerListener {
  public:
    void onTime(int id, utl::WatchdogInfos const& infos) override {
        utl::WatchdogInfo const* const info = infos.find(id);
        applog(LOG_TYPE, utl::LOG_LEVEL_WARNING, "%s has been silent for more than %u ms, last seen at %s:%u",
               info->name.buffer(), info->aliveTime, info->lastStatement.file, info->lastStatement.line);
    }
};

// Called on the shared timer's thread.
class StatusTable : public utl::TimerListener {
  public:
    void onTime(int /*timerId*/) override {
        utl::ThreadManager::get()->printWatchdogInfo(utl::LOG_LEVEL_INFO);
    }
};

// True when Enter was pressed within a beat.
bool isKeyPressed() {
    pollfd keyboard = {STDIN_FILENO, POLLIN, 0};
    char key = 0;
    return poll(&keyboard, 1, static_cast<int>(BEAT_MS)) == 1 && read(STDIN_FILENO, &key, 1) == 1 &&
           key == '\n';
}

void run(unsigned int milliseconds, Worker& worker) {
    bool const isAttended = isatty(STDIN_FILENO) == 1;
    unsigned int demands = 0;
    utl::TimeCounter elapsed;
    elapsed.start();
    while (elapsed.watch() < milliseconds) {
        if (isAttended) {
            gDemanded = isKeyPressed() || gDemanded;
        } else {
            utl::Thread::sleep(BEAT_MS);
            if (demands < 2 && elapsed.watch() >= milliseconds / 3 * (demands + 1)) {
                ++demands;
                raise(SIGUSR1);
            }
        }
        if (gDemanded.exchange(false)) {
            worker.toggleSilence();
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    long const seconds = argc > 1 ? std::strtol(argv[1], nullptr, 10) : static_cast<long>(DEFAULT_SECONDS);
    if (seconds < 1 || seconds > 3600) {
        std::fprintf(stderr, "usage: heartbeat [SECONDS], at most an hour\n");
        return EXIT_FAILURE;
    }
    signal(SIGUSR1, demand);
    registerLogType(LOG_TYPE, "<BEAT> ", utl::LOG_LEVEL_DETAIL);
    utl::ThreadManager::get()->setWatchdogWatchInterval(BEAT_MS);

    TimeoutReporter reporter;
    StatusTable table;
    utl::SharedTimer ticker(utl::Thread::WITHOUT_WATCHDOG, 0, nullptr, 1, "Ticker");
    utl::AutoDestroy const destroying(ticker);
    Worker quick("Quick", 300);
    Worker steady("Steady", 600);
    Worker slow("Slow", 900);
    int const status = ticker.addTimer(&table, STATUS_MS);
    if (!quick.begin(&reporter) || !steady.begin(&reporter) || !slow.begin(&reporter) ||
        !ticker.start(status)) {
        std::fprintf(stderr, "heartbeat: the threads cannot be started\n");
        return EXIT_FAILURE;
    }
    applog(LOG_TYPE, utl::LOG_LEVEL_INFO, "three workers are watched for %ld seconds", seconds);
    run(static_cast<unsigned int>(seconds) * 1000, slow);
    ticker.stop(status);
    slow.end();
    steady.end();
    quick.end();
    std::printf("all workers have ended\n");
    return EXIT_SUCCESS;
}

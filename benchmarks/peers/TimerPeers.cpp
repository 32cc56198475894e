// Periodic timers of 10 ms that are due together: the processor time of one expiry, with what starting and
// stopping the timers adds to it.

#include <glib.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>
#include <uv.h>

#include <atomic>
#include <boost/asio.hpp>
#include <cstring>
#include <memory>
#include <thread>

#include "BenchThreads.h"
#include "Peers.h"
#include "Timers.h"
#include "UtlMsgDrivenThread.h"

namespace utlpeers {
namespace {

// --- the library

constexpr int START_MSG = 1;

class Receiver : public utl::ThreadMsgListener {
  public:
    Receiver(utl::MsgDrivenThread& thread, unsigned int timers, Expiries& expiries)
        : mThread(thread), mTimers(timers), mExpiries(expiries) {}

    void receiveMsg(int, utl::ThreadRawMsg& raw) override {
        utl::TimerMsg msg;
        msg.restoreFrom(raw);
        if (msg.getMsgId() == utl::MSG_ID_TIMER) {
            mExpiries.expire(static_cast<unsigned int>(msg.mTimerId - mFirstId));
            return;
        }
        for (unsigned int i = 0; i < mTimers; ++i) {
            int const id = mThread.setTimer(PERIOD_MS, utl::TIMER_NO_WAIT);
            mFirstId = i == 0 ? id : mFirstId;
            prove(id == mFirstId + static_cast<int>(i), "no timer");
        }
    }

  private:
    utl::MsgDrivenThread& mThread;
    unsigned int mTimers;
    Expiries& mExpiries;
    int mFirstId = 0;
};

void runOurTimers(unsigned int timers, Expiries& expiries) {
    utl::MsgDrivenThread thread(16, 4 * timers + 16, "timers", timers);
    Receiver receiver(thread, timers, expiries);
    prove(thread.start(&receiver) == 0 && thread.sendMsgSync(START_MSG) != 0, "no message thread");
    expiries.await();
    thread.stop();
    thread.leaveManagement();
}

// --- a signal and two tokens through a pipe for each expiry, with one lock around the queue

int gPipe[2];

void writeToken(int id, int timer) {
    int const token[2] = {id, timer};
    ssize_t const written = write(gPipe[1], token, sizeof(token));
    utlbench::keep(written);
}

void bareHandler(int, siginfo_t* info, void*) {
    writeToken(1, info->si_value.sival_int);
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
    prove(timer_create(CLOCK_MONOTONIC, &event, &timer) == 0 && timer_settime(timer, 0, &spec, nullptr) == 0,
          "no timer of the system");
    return timer;
}

void readBare(Expiries& expiries) {
    std::mutex queueLock;
    int token[2];
    while (read(gPipe[0], token, sizeof(token)) == sizeof(token) && token[0] != 0) {
        std::unique_lock<std::mutex> lock(queueLock);
        if (token[0] == 1) {
            writeToken(2, token[1]);
        } else {
            lock.unlock();
            expiries.expire(static_cast<unsigned int>(token[1]));
        }
    }
}

void runBareTimers(unsigned int timers, Expiries& expiries) {
    constexpr int PIPE_BYTES = 1 << 18;
    struct sigaction action = {};
    action.sa_sigaction = bareHandler;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    prove(sigaction(SIGRTMIN + 6, &action, nullptr) == 0 && pipe(gPipe) == 0, "no pipe");
    prove(fcntl(gPipe[1], F_SETPIPE_SZ, PIPE_BYTES) >= 0, "no large pipe");
    std::vector<timer_t> running;
    std::thread reader([&] {
        for (unsigned int i = 0; i < timers; ++i) {
            running.push_back(bareTimer(i));
        }
        readBare(expiries);
    });
    expiries.await();
    for (timer_t const timer : running) {
        timer_delete(timer);
    }
    writeToken(0, 0);
    reader.join();
    close(gPipe[0]);
    close(gPipe[1]);
}

// --- loops of others

struct UvTimer {
    uv_timer_t timer;
    Expiries* expiries;
    unsigned int number;
};

void startUvTimers(uv_loop_t& loop, std::vector<UvTimer>& timers, Expiries& expiries) {
    for (UvTimer& timer : timers) {
        timer.expiries = &expiries;
        timer.number = static_cast<unsigned int>(&timer - timers.data());
        timer.timer.data = &timer;
        uv_timer_init(&loop, &timer.timer);
        uv_timer_start(
            &timer.timer,
            [](uv_timer_t* expired) {
                auto const* const its = static_cast<UvTimer*>(expired->data);
                its->expiries->expire(its->number);
            },
            PERIOD_MS, PERIOD_MS);
    }
}

void runUvTimers(unsigned int count, Expiries& expiries) {
    uv_loop_t loop;
    uv_async_t end;
    std::vector<UvTimer> timers(count);
    uv_loop_init(&loop);
    uv_async_init(&loop, &end, [](uv_async_t* async) { uv_stop(async->loop); });
    std::thread thread([&] {
        startUvTimers(loop, timers, expiries);
        uv_run(&loop, UV_RUN_DEFAULT);
        for (UvTimer& timer : timers) {
            uv_close(reinterpret_cast<uv_handle_t*>(&timer.timer), nullptr);
        }
        uv_close(reinterpret_cast<uv_handle_t*>(&end), nullptr);
        uv_run(&loop, UV_RUN_DEFAULT);
    });
    expiries.await();
    uv_async_send(&end);
    thread.join();
    prove(uv_loop_close(&loop) == 0, "libuv's loop is still in use");
}

class AsioTimer {
  public:
    AsioTimer(boost::asio::io_context& context, Expiries& expiries, unsigned int number)
        : mTimer(context, std::chrono::milliseconds(PERIOD_MS)), mExpiries(expiries), mNumber(number) {
        wait();
    }

  private:
    void wait() {
        mTimer.async_wait([this](boost::system::error_code const& error) {
            if (!error) {
                mExpiries.expire(mNumber);
                mTimer.expires_at(mTimer.expiry() + std::chrono::milliseconds(PERIOD_MS));
                wait();
            }
        });
    }

    boost::asio::steady_timer mTimer;
    Expiries& mExpiries;
    unsigned int mNumber;
};

void runAsioTimers(unsigned int count, Expiries& expiries) {
    boost::asio::io_context context;
    std::vector<std::unique_ptr<AsioTimer>> timers;
    std::thread thread([&] {
        for (unsigned int i = 0; i < count; ++i) {
            timers.push_back(std::make_unique<AsioTimer>(context, expiries, i));
        }
        context.run();
    });
    expiries.await();
    context.stop();
    thread.join();
}

struct GlibTimer {
    Expiries* expiries;
    unsigned int number;
};

gboolean expireGlibTimer(gpointer data) {
    auto const* const timer = static_cast<GlibTimer*>(data);
    timer->expiries->expire(timer->number);
    return G_SOURCE_CONTINUE;
}

void runGlibTimers(unsigned int count, Expiries& expiries) {
    GMainContext* const context = g_main_context_new();
    GMainLoop* const loop = g_main_loop_new(context, FALSE);
    std::vector<GlibTimer> timers(count);
    std::vector<GSource*> sources;
    std::thread thread([&] {
        for (unsigned int i = 0; i < count; ++i) {
            timers[i] = {&expiries, i};
            sources.push_back(g_timeout_source_new(PERIOD_MS));
            g_source_set_callback(sources.back(), expireGlibTimer, &timers[i], nullptr);
            g_source_attach(sources.back(), context);
        }
        g_main_loop_run(loop);
    });
    expiries.await();
    g_main_loop_quit(loop);
    thread.join();
    for (GSource* const source : sources) {
        g_source_destroy(source);
        g_source_unref(source);
    }
    g_main_loop_unref(loop);
    g_main_context_unref(context);
}

// --- the theme

Side side(char const* name, unsigned int timers, void (*run)(unsigned int, Expiries&)) {
    return {name, [timers, run](std::size_t times) {
                Expiries expiries(timers, times);
                run(timers, expiries);
                expiries.proveEach();
            }};
}

std::vector<Side> sides(unsigned int timers) {
    return {
        side(OURS, timers, runOurTimers),          side(BARE, timers, runBareTimers),
        side("Qt QTimer", timers, runQtTimers),    side("GLib timeouts", timers, runGlibTimers),
        side("libuv timers", timers, runUvTimers), side("Boost.Asio steady_timer", timers, runAsioTimers)};
}

Theme theme() {
    constexpr std::size_t PERIODS = 25;
    Theme result = {"timers",
                    "expiry of timers of 10 ms, due together",
                    "expiry",
                    "timers",
                    utlbench::PROCESS_TIME,
                    ONE_PROCESSOR,
                    {10, 30, 100, 300, 1000},
                    {100},
                    sides};
    result.pieces = [](unsigned int timers) { return PERIODS * timers; };
    return result;
}

ThemeDeclaration const gTimers(theme());

}  // namespace
}  // namespace utlpeers

// Runs the themes and writes a line for each figure:
//
//     UtlPeers [--rows=FILE] [--rounds=N] [--only=ID]
//
// A line has these fields, separated by tabs: theme, title, unit, name of the size, size, 1 if it is in the
// table, side, nanoseconds for each unit, and their ratio to the library's. Both are medians over the rounds.

#include <sched.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <thread>

#include "Peers.h"
#include "UtlLog.h"

namespace {

using utlpeers::Side;
using utlpeers::Theme;

struct Options {
    std::string rows;
    std::string only;
    unsigned int rounds = 7;
};

// The value of an option `--NAME=VALUE`, or null.
char const* valueOf(char const* argument, char const* option) {
    std::size_t const length = std::strlen(option);
    return std::strncmp(argument, option, length) == 0 ? argument + length : nullptr;
}

Options optionsOf(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        if (char const* const rows = valueOf(argv[i], "--rows=")) {
            options.rows = rows;
        } else if (char const* const only = valueOf(argv[i], "--only=")) {
            options.only = only;
        } else if (char const* const rounds = valueOf(argv[i], "--rounds=")) {
            options.rounds = static_cast<unsigned int>(std::strtoul(rounds, nullptr, 10));
        } else {
            utlbench::giveUp("usage: UtlPeers [--rows=FILE] [--rounds=N] [--only=ID]");
        }
    }
    utlpeers::prove(options.rounds != 0, "no rounds");
    return options;
}

// An application never has one thread alone, and much of the C library is faster as long as there is only
// one.
class SecondThread {
  public:
    SecondThread()
        : mThread([this] {
              std::unique_lock<std::mutex> lock(mMutex);
              mEnd.wait(lock, [this] { return mIsEnding; });
          }) {}
    ~SecondThread() {
        {
            std::lock_guard<std::mutex> const lock(mMutex);
            mIsEnding = true;
        }
        mEnd.notify_one();
        mThread.join();
    }
    SecondThread(SecondThread const&) = delete;
    SecondThread& operator=(SecondThread const&) = delete;

  private:
    std::mutex mMutex;
    std::condition_variable mEnd;
    bool mIsEnding = false;
    std::thread mThread;
};

// Binds this thread, and those that it starts from now on, to the last of its processors or to all of them.
class Affinity {
  public:
    Affinity() { sched_getaffinity(0, sizeof(mAll), &mAll); }

    void use(utlpeers::Processors processors) const {
        cpu_set_t set = mAll;
        if (processors == utlpeers::ONE_PROCESSOR) {
            CPU_ZERO(&set);
            CPU_SET(last(), &set);
        }
        utlpeers::prove(sched_setaffinity(0, sizeof(set), &set) == 0, "no processor");
    }

  private:
    int last() const {
        int found = 0;
        for (int i = 0; i < CPU_SETSIZE; ++i) {
            found = CPU_ISSET(i, &mAll) ? i : found;
        }
        return found;
    }

    cpu_set_t mAll{};
};

// A side at a size, with its nanoseconds for a unit in each round.
struct Case {
    Side side;
    unsigned int size;
    std::size_t pieces;
    double units;
    std::size_t ours;  ///< the index of the library's side at this size
    std::vector<double> times;
};

std::size_t piecesOf(Theme const& theme, unsigned int size, Side const& side) {
    if (std::size_t const fixed = theme.pieces(size)) {
        return fixed;
    }
    side.work(1);
    std::size_t pieces = 1;
    while (utlbench::elapsed(side.work, pieces, theme.clock) < theme.turn * 1e6) {
        pieces *= 2;
    }
    return pieces;
}

std::vector<Case> casesOf(Theme const& theme) {
    std::vector<Case> cases;
    for (unsigned int const size : theme.sizes) {
        double const units = theme.units(size);
        std::size_t const ours = cases.size();
        for (Side const& side : theme.sides(size)) {
            std::size_t const pieces = piecesOf(theme, size, side);
            cases.push_back({side, size, pieces, static_cast<double>(pieces) * units, ours, {}});
        }
    }
    return cases;
}

// All sides at all sizes take turns: a machine that is slow for a while bends no line of a chart.
void measure(Theme const& theme, std::vector<Case>& cases, unsigned int rounds) {
    std::vector<Case*> order;
    for (Case& each : cases) {
        order.push_back(&each);
    }
    std::minstd_rand lots;
    for (unsigned int round = 0; round < rounds; ++round) {
        std::shuffle(order.begin(), order.end(), lots);
        for (Case* const each : order) {
            each->times.push_back(utlbench::elapsed(each->side.work, each->pieces, theme.clock) /
                                  each->units);
        }
    }
}

double medianRatio(std::vector<double> const& times, std::vector<double> const& ours) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < times.size(); ++i) {
        ratios.push_back(times[i] / ours[i]);
    }
    return utlbench::median(ratios);
}

void report(Theme const& theme, Case const& figure, Case const& ours, std::FILE* rows) {
    double const time = utlbench::median(figure.times);
    double const ratio = medianRatio(figure.times, ours.times);
    bool const isShown = std::count(theme.shown.begin(), theme.shown.end(), figure.size) != 0;
    std::printf("%-14s %9u %-32s %12.2f ns for each %s, %8.3f of ours\n", theme.id.c_str(), figure.size,
                figure.side.name.c_str(), time, theme.unit.c_str(), ratio);
    if (rows != nullptr) {
        std::fprintf(rows, "%s\t%s\t%s\t%s\t%u\t%d\t%s\t%.3f\t%.4f\n", theme.id.c_str(), theme.title.c_str(),
                     theme.unit.c_str(), theme.size.c_str(), figure.size, isShown ? 1 : 0,
                     figure.side.name.c_str(), time, ratio);
    }
}

void run(Theme const& theme, unsigned int rounds, std::FILE* rows) {
    std::vector<Case> cases = casesOf(theme);
    measure(theme, cases, rounds);
    for (Case const& figure : cases) {
        report(theme, figure, cases[figure.ours], rows);
    }
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    Options const options = optionsOf(argc, argv);
    std::FILE* const rows = options.rows.empty() ? nullptr : std::fopen(options.rows.c_str(), "we");
    utlpeers::prove(options.rows.empty() || rows != nullptr, "cannot write the rows");
    setAllFilterLevel(utl::LOG_LEVEL_NONE);  // full queues are a part of the measurement
    SecondThread const second;
    Affinity const affinity;
    for (Theme const& theme : utlpeers::themes()) {
        if (!options.only.empty() && theme.id != options.only) {
            continue;
        }
        affinity.use(theme.processors);
        run(theme, options.rounds, rows);
    }
    return rows == nullptr || std::fclose(rows) == 0 ? 0 : 1;
}

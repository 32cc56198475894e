#pragma once

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

// Compares two ways to do the same. Both run in one process, in short turns in random order, and the figure
// is the median over all rounds: what slows the machine for a while slows both sides alike.
//
//     UTL_RATIO("lock and unlock, against the standard library",
//               [] { utl::SyncGuard const guard(gLock); },
//               [] { std::lock_guard<std::recursive_mutex> const guard(gStandardLock); },
//               1.1);
//
// says: one call of the first may take up to 1.1 times as long as one call of the second.
//
// UTL_RATIO_CPU compares processor time instead, of the calling thread alone: the figures do not show that a
// busy machine takes the processor away in the middle of a turn. Use it for work that this thread does by
// itself. If threads hand over to each other, only UTL_RATIO sees the cost.

namespace utlbench {

/// Makes the compiler treat `value` as used, so that it must be computed.
template <typename T>
inline void keep(T const& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

/// Nanoseconds on a clock that never steps back.
using Clock = double (*)();

template <clockid_t ID>
inline double nanosecondsOf() {
    std::timespec now{};
    clock_gettime(ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

/// The time that passes, whoever has the processor.
constexpr Clock WALL_TIME = nanosecondsOf<CLOCK_MONOTONIC>;

/// The time that the calling thread has the processor, in the program and in the kernel.
constexpr Clock THREAD_TIME = nanosecondsOf<CLOCK_THREAD_CPUTIME_ID>;

/// A comparison as a benchmark file declares it.
struct RatioFigure {
    std::string name;
    std::function<void(std::size_t)> subject;   ///< calls the subject that many times
    std::function<void(std::size_t)> baseline;  ///< calls the baseline that many times
    double goal;                                ///< the largest ratio that is good enough
    Clock clock;                                ///< what both are measured by
};

struct RatioResult {
    double subjectNanoseconds;   ///< of one call, median over the rounds
    double baselineNanoseconds;  ///< of one call, median over the rounds
    double ratio;                ///< subject to baseline, median over the rounds' own ratios
};

/// The comparisons of this program, in the order of their declaration.
inline std::vector<RatioFigure>& ratioFigures() {
    static std::vector<RatioFigure> theFigures;
    return theFigures;
}

/// Declares a comparison while it is constructed; `UTL_RATIO` and `UTL_RATIO_CPU` make one at namespace
/// scope.
class RatioDeclaration {
  public:
    /// `subject` and `baseline` are called without arguments, one operation for each call.
    template <typename SUBJECT, typename BASELINE>
    RatioDeclaration(Clock clock, char const* name, SUBJECT subject, BASELINE baseline, double goal) {
        ratioFigures().push_back(
            {name, repeated(std::move(subject)), repeated(std::move(baseline)), goal, clock});
    }

  private:
    // The loop is compiled together with the operation, so that calls do not outweigh a short one.
    template <typename WORK>
    static std::function<void(std::size_t)> repeated(WORK work) {
        return [work = std::move(work)](std::size_t calls) mutable {
            for (std::size_t i = 0; i < calls; ++i) {
                work();
            }
        };
    }
};

/// The middle value, or the mean of the two in the middle; `values` must not be empty.
inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    std::size_t const middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

constexpr unsigned int RATIO_ROUNDS = 51;
constexpr double TURN_NANOSECONDS = 2e6;

inline double elapsed(std::function<void(std::size_t)> const& work, std::size_t calls, Clock now) {
    double const start = now();
    work(calls);
    return now() - start;
}

/// How many calls fill a turn, at least 1. Also warms the caches. The very first call does not count, because
/// it may create what the others use.
inline std::size_t callsForOneTurn(std::function<void(std::size_t)> const& work, Clock now) {
    work(1);
    std::size_t calls = 1;
    while (elapsed(work, calls, now) < TURN_NANOSECONDS) {
        calls *= 2;
    }
    return calls;
}

inline RatioResult measure(RatioFigure const& figure, unsigned int rounds = RATIO_ROUNDS) {
    Clock const now = figure.clock;
    std::size_t const subjectCalls = callsForOneTurn(figure.subject, now);
    std::size_t const baselineCalls = callsForOneTurn(figure.baseline, now);
    auto const subjectTurn = [&] {
        return elapsed(figure.subject, subjectCalls, now) / static_cast<double>(subjectCalls);
    };
    auto const baselineTurn = [&] {
        return elapsed(figure.baseline, baselineCalls, now) / static_cast<double>(baselineCalls);
    };
    std::minstd_rand lots;
    std::vector<double> subjects;
    std::vector<double> baselines;
    std::vector<double> ratios;
    for (unsigned int round = 0; round < rounds; ++round) {
        bool const subjectFirst = (lots() & 0x100U) != 0;
        double const early = subjectFirst ? subjectTurn() : baselineTurn();
        double const late = subjectFirst ? baselineTurn() : subjectTurn();
        subjects.push_back(subjectFirst ? early : late);
        baselines.push_back(subjectFirst ? late : early);
        ratios.push_back(subjects.back() / baselines.back());
    }
    return {median(subjects), median(baselines), median(ratios)};
}

inline bool reached(RatioFigure const& figure, RatioResult const& result) {
    return result.ratio <= figure.goal;
}

}  // namespace utlbench

#define UTL_BENCH_JOINED(a, b) a##b
#define UTL_BENCH_NAME(a, b) UTL_BENCH_JOINED(a, b)

#define UTL_BENCH_DECLARATION \
    static utlbench::RatioDeclaration const UTL_BENCH_NAME(gRatioDeclaration, __COUNTER__)

/// UTL_RATIO(name, subject, baseline, goal): see the head of this file. Declares at namespace scope.
#define UTL_RATIO(...) UTL_BENCH_DECLARATION(utlbench::WALL_TIME, __VA_ARGS__)

/// The same, measured by the processor time of the calling thread.
#define UTL_RATIO_CPU(...) UTL_BENCH_DECLARATION(utlbench::THREAD_TIME, __VA_ARGS__)

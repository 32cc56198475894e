#pragma once

#include <sched.h>

#include <cstring>
#include <thread>
#include <vector>

#include "BenchRatio.h"

// The same work in several threads at a time.

namespace utlbench {

/// The time that all threads of the process have the processor.
constexpr Clock PROCESS_TIME = nanosecondsOf<CLOCK_PROCESS_CPUTIME_ID>;

/// Lets the calling thread run on all processors, which the program keeps from its main thread.
inline void allowAllProcessors() {
    cpu_set_t processors;
    std::memset(&processors, 0xFF, sizeof(processors));
    sched_setaffinity(0, sizeof(processors), &processors);
}

/// When the threads of a measurement run.
enum Order { AT_A_TIME, ONE_AFTER_ANOTHER };

/// `count` threads share `calls` calls. Each makes its work by `makeWork` first.
template <typename MAKE_WORK>
void inThreads(unsigned int count, std::size_t calls, MAKE_WORK makeWork, Order order = AT_A_TIME) {
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < count; ++i) {
        threads.emplace_back([=] {
            allowAllProcessors();
            auto work = makeWork();
            for (std::size_t call = 0; call * count < calls; ++call) {
                work();
            }
        });
        if (order == ONE_AFTER_ANOTHER) {
            threads.back().join();
        }
    }
    for (std::thread& thread : threads) {
        if (thread.joinable()) {
            thread.join();
        }
    }
}

/// Declares a comparison of the processor time of a call in `count` threads at a time. The threads of the
/// baseline run in the given order.
struct ThreadsDeclaration {
    template <typename MAKE_SUBJECT, typename MAKE_BASELINE>
    ThreadsDeclaration(char const* name, unsigned int count, MAKE_SUBJECT makeSubject, Order order,
                       MAKE_BASELINE makeBaseline, double goal) {
        ratioFigures().push_back({name, [=](std::size_t calls) { inThreads(count, calls, makeSubject); },
                                  [=](std::size_t calls) { inThreads(count, calls, makeBaseline, order); },
                                  goal, PROCESS_TIME});
    }
};

}  // namespace utlbench

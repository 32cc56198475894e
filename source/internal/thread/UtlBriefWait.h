#pragma once

#include <sched.h>
#include <time.h>

namespace utl {

/// Waits until `isOver()` is true, for something short that nobody can announce, such as the end of a signal
/// handler. It yields at first. After that it sleeps, because a caller of real-time priority may keep the
/// processor from what it waits for.
template <typename PREDICATE>
void waitBriefly(PREDICATE isOver) {
    constexpr unsigned int YIELDS = 100;
    constexpr timespec PAUSE = {0, 100000};
    for (unsigned int round = 0; !isOver(); ++round) {
        if (round < YIELDS) {
            sched_yield();
        } else {
            nanosleep(&PAUSE, nullptr);
        }
    }
}

}  // namespace utl

#pragma once

#include <time.h>

namespace utl {

/// The one place that computes an absolute time for a bounded wait: `milliseconds` from now on
/// `CLOCK_MONOTONIC`; a negative count is a time in the past. False, with `time` untouched, if the clock
/// cannot be read.
inline bool monotonicTimeAfter(int milliseconds, timespec& time) {
    constexpr long NANOSECONDS_PER_SECOND = 1000000000L;
    timespec now{};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        return false;
    }
    now.tv_sec += milliseconds / 1000;
    now.tv_nsec += milliseconds % 1000 * 1000000L;
    if (now.tv_nsec >= NANOSECONDS_PER_SECOND) {
        now.tv_sec += 1;
        now.tv_nsec -= NANOSECONDS_PER_SECOND;
    } else if (now.tv_nsec < 0) {
        now.tv_sec -= 1;
        now.tv_nsec += NANOSECONDS_PER_SECOND;
    }
    time = now;
    return true;
}

}  // namespace utl

#pragma once

#include "UtlPlatform.h"

namespace utl {

/// A stopwatch in milliseconds, independent of steps of the wall clock: as an object, or by an id if start
/// and stop have no object in common. An object has *one owner thread*, because its fields have no lock; what
/// is static is *internally locked*, because ids are shared by the whole process.
///
/// Elapsed times are differences modulo 2^32: right across a wrap of the tick, wrong from 49.7 days on. Every
/// failure returns `INVALID_TIME` or false and logs a line of level 1 about the operation. If the clock
/// cannot be read, a line about that comes before.
///
/// | State   | `start`                    | `watch`                       | `stop`           |
/// |---------|----------------------------|-------------------------------|------------------|
/// | stopped | running, unless it fails   | fails                         | fails            |
/// | running | runs on from the new start | the time so far, runs on      | as watch, stopped|
class UTL_API TimeCounter {
  public:
    /// The result of a failure, and no time. A tick that happens to have this value counts as a failure, too.
    static constexpr unsigned int INVALID_TIME = 0xFFFFFFFFU;

    /// How many ids can run at a time.
    static constexpr unsigned int COUNTER_ID_MAX = 50;

    /// Milliseconds on `CLOCK_MONOTONIC`, modulo 2^32; `INVALID_TIME` if the clock cannot be read.
    static unsigned int getTickTime();

    TimeCounter() = default;
    virtual ~TimeCounter();

    /// Starts, or restarts. False if the clock failed: a counter that ran still counts as running, but its
    /// next `watch` returns no meaningful time.
    bool start();

    /// Milliseconds since `start`; `INVALID_TIME` if it is stopped or the clock failed.
    unsigned int watch();

    /// As `watch`; stopped afterwards, whatever the result.
    unsigned int stop();

    /// Starts or restarts `counterId`. False if `COUNTER_ID_MAX` other ids run or the clock failed; the id
    /// does not run then.
    static bool start(unsigned int counterId);

    /// Milliseconds since the start of `counterId`; `INVALID_TIME` if it does not run or the clock failed.
    static unsigned int watch(unsigned int counterId);

    /// As `watch`; the id is free afterwards, whatever the result.
    static unsigned int stop(unsigned int counterId);

  private:
    bool mHasStarted = false;
    unsigned int mStartTime = INVALID_TIME;
};

}  // namespace utl

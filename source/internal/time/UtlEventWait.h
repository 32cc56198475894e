#pragma once

#include "UtlEvent.h"

namespace utl {

/// `event.waitToOn(timeout)` for an event that nobody sets off meanwhile: 0 only if it is on. Without a time
/// limit `Event` returns 0 for whatever wakes the thread, and a thread that hands over memory must not be
/// misled by a wake-up without a cause.
inline int waitUntilOn(Event const& event, unsigned int timeout) {
    int result = event.waitToOn(timeout);
    while (result == 0 && event.isOff()) {
        result = event.waitToOn(timeout);
    }
    return result;
}

/// The same for `event.waitToOff(0)` of a two-way event that nobody sets on meanwhile.
inline void waitUntilOff(Event const& event) {
    while (event.isOn()) {
        event.waitToOff(0);
    }
}

}  // namespace utl

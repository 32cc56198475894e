#pragma once

#include <atomic>
#include <thread>

#include "UtlWorkingBuffer.h"

namespace utltest {

/// Runs `function` on another thread while this one has a slot of the scratch store, and tells whether it
/// came through only after the slot was given back.
template <typename FUNCTION>
bool waitsForScratch(FUNCTION function) {
    std::atomic<bool> isStarted{false};
    std::atomic<bool> isReleased{false};
    bool waited = false;
    std::thread other;
    {
        utl::WorkingBuffer<char> const mine;
        other = std::thread([&] {
            isStarted = true;
            function();
            waited = isReleased;
        });
        while (!isStarted) {
            std::this_thread::yield();
        }
        for (int i = 0; i < 200; ++i) {
            std::this_thread::yield();
        }
        isReleased = true;
    }
    other.join();
    return waited;
}

}  // namespace utltest

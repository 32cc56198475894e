#pragma once

#include <atomic>
#include <thread>

#include "TestTask.h"
#include "UtlWorkingBuffer.h"

namespace utltest {

/// Runs `function` on another thread while this one holds a slot of the scratch store. This thread releases
/// the slot when the function sleeps or has returned. True if the function slept before it returned. It must
/// wait for nothing else.
template <typename FUNCTION>
bool waitsForScratch(FUNCTION function) {
    std::atomic<int> id{0};
    std::atomic<bool> hasReturned{false};
    std::thread other;
    bool waits = false;
    {
        utl::WorkingBuffer<char> const mine;
        other = std::thread([&] {
            id = kernelId();
            function();
            hasReturned = true;
        });
        while (!hasReturned && (id == 0 || !isAsleep(id))) {
            std::this_thread::yield();
        }
        waits = !hasReturned;
    }
    other.join();
    return waits;
}

}  // namespace utltest

// An application that feeds the heap accounting from its allocation operators. As many rows as it needs are
// built into its library.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>

#include "TestFolder.h"
#include "TestGate.h"
#include "TestMemory.h"
#include "TestThreads.h"

using utl::Memory;

namespace {

std::atomic<bool> gIsFed{false};
thread_local bool tIsInside = false;  // the accounting may allocate itself: not fed with that

utltest::Gate gStopGate;

// A thread that is stopped in one of its allocations until somebody holds the lock of the accounting. A
// constant at first, because allocations come before the constructors of this file.
struct Stop {
    std::atomic<int> thread{0};
    std::atomic<unsigned int> allocation{0};  // counted down, stopped at 0
    std::atomic<bool> isStopped{false};

    void pass() {
        if (thread != 0 && thread == utltest::kernelId() && --allocation == 0) {
            isStopped = true;
            EXPECT_TRUE(gStopGate.hold());
        }
    }
} gStop;

void note(int operation, void* block, std::size_t size) {
    if (!tIsInside) {
        tIsInside = true;
        utl::Memory::get()->updateManagement(operation, block, static_cast<unsigned int>(size), ~0U, 0);
        tIsInside = false;
    }
}

void noteIfFed(int operation, void* block, std::size_t size) {
    if (gIsFed) {
        note(operation, block, size);
    }
}

void* allocated(std::size_t size) {
    void* const block = std::malloc(size != 0 ? size : 1);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    gStop.pass();
    noteIfFed(utl::Memory::RECORD_ALLOCATION, block, size);
    return block;
}

void released(void* block) {
    noteIfFed(utl::Memory::RECORD_RELEASE, block, 0);
    std::free(block);
}

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    return allocated(size);
}
[[gnu::noinline]] void* operator new[](std::size_t size) {
    return allocated(size);
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
    released(block);
}
[[gnu::noinline]] void operator delete[](void* block) noexcept {
    released(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
    released(block);
}
[[gnu::noinline]] void operator delete[](void* block, std::size_t) noexcept {
    released(block);
}

namespace {

// Feeds the accounting while it lives. What was allocated before and is released meanwhile is unknown to it,
// and is said on descriptor 0, which is kept quiet.
class Fed {
  public:
    Fed() { gIsFed = true; }
    ~Fed() { gIsFed = false; }
    Fed(Fed const&) = delete;
    Fed& operator=(Fed const&) = delete;

  private:
    utltest::MessageCapture const mMessages;
};

Memory::ProcessHeapInfo totals() {
    Memory::ProcessHeapInfo info;
    EXPECT_TRUE(Memory::get()->getUsedHeapOfProcess(&info));
    return info;
}

class MemoryOfOperators : public utltest::InFolder {};

class SilentListener : public utl::WatchdogTimerListener {
  public:
    void onTime(int /*id*/, utl::WatchdogInfos const& infos) override {
        names.clear();
        for (unsigned int i = infos.size(); i-- > 0;) {
            names += std::string(infos.getAt(i)->mValue.name.buffer()) + ",";
        }
        ++calls;
    }

    std::string names;  // the last thread's first
    std::atomic<unsigned int> calls{0};
};

/// A new manager, whose watchdog looks at its table only when the test has it do so.
utl::ThreadManager& watched() {
    utl::ThreadManager::destroy();
    EXPECT_TRUE(utl::ThreadManager::get()->setWatchdogWatchInterval(0));
    return *utl::ThreadManager::get();
}

/// Looks at the watchdog's table until the listener was called so often. The allocation of that number is the
/// one to be stopped in.
void watchStopped(unsigned int allocation, SilentListener const& listener, unsigned int calls) {
    gStop.allocation = allocation;
    gStop.thread = utltest::kernelId();
    while (listener.calls < calls) {
        utltest::ThreadWatchdogAccess::watchOnce(utltest::ThreadManagerAccess::watchdog());
    }
    gStop.thread = 0;
}

TEST_F(MemoryOfOperators, CountsWhatLives) {
    Fed const fed;
    Memory::ProcessHeapInfo const before = totals();
    void* const block = ::operator new(1000);
    EXPECT_EQ(totals().mUseBytes, before.mUseBytes + 1000);
    EXPECT_EQ(totals().mUseCount, before.mUseCount + 1);
    ::operator delete(block);
    EXPECT_EQ(totals().mUseBytes, before.mUseBytes);
    EXPECT_EQ(totals().mUseCount, before.mUseCount);
}

TEST_F(MemoryOfOperators, ReportsWhatWasAllocatedSinceTheMark) {
    char* block = nullptr;
    {
        Fed const fed;
        Memory::get()->mark();
        block = new char[777];
        EXPECT_TRUE(Memory::get()->printMarkedHeapDetail(0, "marked.txt"));
    }
    EXPECT_NE(utltest::contentOf("marked.txt").find(utltest::shown(block) + ",        777,"),
              std::string::npos);
    delete[] block;
}

TEST_F(MemoryOfOperators, AReportTakesNothingFromTheHeapOnceTheManagerIsThere) {
    Fed const fed;
    unsigned long long const before = utltest::MemoryAccess::nextSerial();
    EXPECT_TRUE(Memory::get()->printUsedHeap(0, "folder/heap.txt"));
    EXPECT_TRUE(Memory::get()->printUsedHeapDetail(0, "folder/heap.txt"));
    EXPECT_EQ(utltest::MemoryAccess::nextSerial(), before);
}

TEST_F(MemoryOfOperators, AReportToAPathThatIsTooLong_TakesNothingFromTheHeapEither) {
    std::string const path(300, 'x');
    Fed const fed;
    unsigned long long const before = utltest::MemoryAccess::nextSerial();
    EXPECT_TRUE(Memory::get()->printUsedHeap(0, path.c_str()));
    EXPECT_EQ(utltest::MemoryAccess::nextSerial(), before);
}

// At each of its allocations for a time-out the watchdog waits for a report, which itself reports to the
// watchdog.
TEST_F(MemoryOfOperators, AThreadMayTimeOutWhileItWritesAReport) {
    utl::ThreadManager& manager = watched();
    utltest::HeldThread const other("Worker", 1, 60000);
    SilentListener listener;
    ASSERT_TRUE(manager.entryWatchdog(1, &listener));
    ASSERT_TRUE(manager.startWatchdog());
    Fed const fed;
    utltest::hooks::open.watch([](char const*, int, mode_t) { gStopGate.open(); });
    unsigned int rounds = 0;
    for (bool isOver = false; !isOver; ++rounds) {
        gStop.isStopped = false;
        gStopGate.close();
        manager.keepAliveWatchdog(utl::StatementInfo("test", "round", 0, 0));
        std::atomic<bool> isDone{false};
        std::thread watcher([&listener, &isDone, rounds] {
            watchStopped(rounds + 1, listener, rounds + 1);
            isDone = true;
        });
        while (!gStop.isStopped && !isDone) {
            std::this_thread::yield();
        }
        isOver = !gStop.isStopped;
        EXPECT_TRUE(Memory::get()->printUsedHeap(0, "heap.txt"));
        watcher.join();
    }
    EXPECT_GT(rounds, 1U);
    EXPECT_EQ(listener.names, "Worker,,");
    EXPECT_TRUE(manager.unregisterWatchdog());
}

TEST_F(MemoryOfOperators, AThreadThatComesWhileATimeOutIsPrepared_IsInItsCopyOfTheTable) {
    utl::ThreadManager& manager = watched();
    SilentListener listener;
    ASSERT_TRUE(manager.entryWatchdog(1, &listener));
    ASSERT_TRUE(manager.startWatchdog());
    gStop.isStopped = false;
    gStopGate.close();
    std::thread watcher([&listener] { watchStopped(1, listener, 1); });
    ASSERT_TRUE(gStopGate.waitUntilHeld());
    utltest::HeldThread const other("A name that takes more room", 1, 60000);
    gStopGate.open();
    watcher.join();
    EXPECT_EQ(listener.calls, 1U);
    EXPECT_EQ(listener.names, "A name that takes more room,,");
    EXPECT_TRUE(manager.unregisterWatchdog());
}

TEST_F(MemoryOfOperators, ThreadsMayBeginAndEndWhileReportsAreWritten) {
    Fed const fed;
    std::atomic<bool> done{false};
    std::thread reporter([&done] {
        while (!done) {
            EXPECT_TRUE(Memory::get()->printUsedHeapDetail(0, "heap.txt"));
        }
    });
    for (int i = 0; i < 30; ++i) {
        utltest::HeldThread thread("Worker", i % 2, 60000);  // each second one is watched
        EXPECT_NE(thread.id(), 0);
    }
    done = true;
    reporter.join();
}

}  // namespace

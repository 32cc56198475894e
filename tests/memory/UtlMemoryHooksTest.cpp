// An application that feeds the heap accounting from its allocation operators. As many rows as it needs are
// built into its library.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "TestFolder.h"
#include "TestMemory.h"
#include "ThreadTestSupport.h"

using utl::Memory;

namespace {

std::atomic<bool> gIsFed{false};
thread_local bool tIsInside = false;  // the accounting may allocate itself: not fed with that

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
    noteIfFed(0, block, size);
    return block;
}

void released(void* block) {
    noteIfFed(1, block, 0);
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

class MemoryWithHooks : public utltest::InFolder {};

TEST_F(MemoryWithHooks, CountsWhatLives) {
    Fed const fed;
    Memory::ProcessHeapInfo const before = totals();
    void* const block = ::operator new(1000);
    EXPECT_EQ(totals().mUseBytes, before.mUseBytes + 1000);
    EXPECT_EQ(totals().mUseCount, before.mUseCount + 1);
    ::operator delete(block);
    EXPECT_EQ(totals().mUseBytes, before.mUseBytes);
    EXPECT_EQ(totals().mUseCount, before.mUseCount);
}

TEST_F(MemoryWithHooks, ReportsWhatWasAllocatedSinceTheMark) {
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

TEST_F(MemoryWithHooks, AReportTakesNothingFromTheHeapOnceTheManagerIsThere) {
    Fed const fed;
    unsigned long long const before = utltest::MemoryAccess::nextSerial();
    EXPECT_TRUE(Memory::get()->printUsedHeap(0, "folder/heap.txt"));
    EXPECT_TRUE(Memory::get()->printUsedHeapDetail(0, "folder/heap.txt"));
    EXPECT_EQ(utltest::MemoryAccess::nextSerial(), before);
}

TEST_F(MemoryWithHooks, ThreadsMayBeginAndEndWhileReportsAreWritten) {
    Fed const fed;
    std::atomic<bool> done{false};
    std::thread reporter([&done] {
        while (!done) {
            EXPECT_TRUE(Memory::get()->printUsedHeapDetail(0, "heap.txt"));
        }
    });
    for (int i = 0; i < 30; ++i) {
        utltest::HeldThread thread("Worker");
        EXPECT_NE(thread.id(), 0);
    }
    done = true;
    reporter.join();
}

}  // namespace

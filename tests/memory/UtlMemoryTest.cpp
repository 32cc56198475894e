// The heap accounting of the library as it comes: without management, one row in each table.

#include "UtlMemory.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "TestFolder.h"
#include "TestLog.h"
#include "TestMemory.h"
#include "TestThreads.h"

using utl::Memory;
using utltest::allocate;
using utltest::MemoryAccess;
using utltest::MessageCapture;
using utltest::release;
using utltest::someAddress;

namespace {

// Each test begins with a new instance, also where they run in one process.
class UnmanagedMemory : public testing::Test {
  protected:
    UnmanagedMemory() { Memory::destroy(); }
};

TEST_F(UnmanagedMemory, IsNotEnabledAndHasOneRowInEachTable) {
    EXPECT_FALSE(Memory::get()->enabledHeapManagement());
    EXPECT_EQ(Memory::DETAIL_HEAP_INFO_MAX, 1U);
    EXPECT_EQ(Memory::FILE_NAME_INFO_MAX, 1U);
    EXPECT_EQ(Memory::THREAD_NAME_INFO_MAX, 1U);
}

TEST_F(UnmanagedMemory, Get_GivesOneInstanceUntilItIsDestroyed) {
    Memory* const memory = Memory::get();
    EXPECT_EQ(Memory::get(), memory);
    allocate(someAddress(0), 10);
    memory->mark();
    Memory::destroy();
    EXPECT_EQ(MemoryAccess::count(), 0U);
    EXPECT_EQ(MemoryAccess::nextSerial(), 1U);
    EXPECT_EQ(MemoryAccess::markedSerial(), 0U);
}

TEST_F(UnmanagedMemory, Destroy_WithoutAnInstance_DoesNothing) {
    Memory::destroy();
    Memory::destroy();
    EXPECT_NE(Memory::get(), nullptr);
}

TEST_F(UnmanagedMemory, Get_OnManyThreadsAtOnce_GivesAllTheSameInstance) {
    for (int round = 0; round < 20; ++round) {
        Memory::destroy();
        std::atomic<bool> go{false};
        std::vector<Memory*> seen(8);
        std::vector<std::thread> threads;
        for (Memory*& place : seen) {
            threads.emplace_back([&go, &place] {
                while (!go) {
                }
                place = Memory::get();
            });
        }
        go = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (Memory* const memory : seen) {
            EXPECT_EQ(memory, Memory::get());
        }
    }
}

class MemoryReportsWithoutManagement : public utltest::InFolder {
  protected:
    static bool nothingIsThere() { return std::filesystem::is_empty("."); }
};

TEST_F(MemoryReportsWithoutManagement, AreTrueAtOnceAndCreateNothing) {
    Memory& memory = *Memory::get();
    EXPECT_TRUE(memory.printUsedHeap(0, "a.txt"));
    EXPECT_TRUE(memory.printUsedHeapDetail(0, "folder/b.txt"));
    EXPECT_TRUE(memory.printMarkedHeapDetail(0, "c.txt"));
    memory.mark();
    EXPECT_TRUE(memory.printMarkedHeapDetail(0, "c.txt"));
    EXPECT_TRUE(memory.printUsedHeap(0, nullptr));
    memory.printGlobalMemoryStatus("d.txt");
    EXPECT_TRUE(nothingIsThere());
}

TEST_F(UnmanagedMemory, Queries_WithoutManagement_AreIdle) {
    Memory& memory = *Memory::get();
    EXPECT_EQ(memory.getFileId("source.cpp"), ~0U);
    EXPECT_EQ(memory.getFileId(nullptr), ~0U);
    EXPECT_STREQ(memory.getFileName(0), "");
    Memory::ProcessHeapInfo info;
    info.mUseBytes = 7;
    EXPECT_TRUE(memory.getUsedHeapOfProcess(&info));
    EXPECT_EQ(info.mUseBytes, 7U);
    EXPECT_TRUE(memory.getUsedHeapOfProcess(nullptr));
}

TEST_F(UnmanagedMemory, ResetUsedHeap_WithoutManagement_IsFalseAndEmptiesNothing) {
    allocate(someAddress(0), 10);
    EXPECT_FALSE(Memory::get()->resetUsedHeap());
    EXPECT_EQ(MemoryAccess::count(), 1U);
    EXPECT_EQ(MemoryAccess::totals().mUseBytes, 10U);
}

TEST_F(UnmanagedMemory, UpdateManagement_WithoutManagement_KeepsTotalsAndTable) {
    MessageCapture const messages;
    allocate(someAddress(0), 10, 3, 4);
    EXPECT_EQ(MemoryAccess::totals(), (Memory::ProcessHeapInfo{10, 1, 10, 1}));
    EXPECT_EQ(MemoryAccess::row(0),
              (Memory::DetailHeapInfo{1, someAddress(0), 10, utltest::kernelId(), 3, 4}));
    allocate(someAddress(1), 5, 3, 4);
    EXPECT_EQ(messages.text(),
              "!!!! DetailHeapInfo management over on allocation\n"
              "MaxCount:1, Address:" +
                  utltest::shown(someAddress(1)) + ", UseBytes:         5, ThreadId:" +
                  utltest::padded(utltest::kernelId(), 10) + ", Line:       4, File:, \n");
    EXPECT_EQ(MemoryAccess::totals(), (Memory::ProcessHeapInfo{10, 1, 10, 1}));
    release(someAddress(0));
    EXPECT_EQ(MemoryAccess::totals(), (Memory::ProcessHeapInfo{0, 0, 10, 1}));
}

TEST_F(UnmanagedMemory, InitializeManagementTable_WithoutManagement_EmptiesAllTables) {
    Memory& memory = *Memory::get();
    allocate(someAddress(0), 10);
    memory.registerThreadName(5, "five");
    memory.initializeManagementTable();
    EXPECT_EQ(MemoryAccess::count(), 0U);
    EXPECT_EQ(MemoryAccess::totals(), Memory::ProcessHeapInfo());
    EXPECT_STREQ(memory.getThreadName(5), "");
}

class MemoryOfThreads : public utltest::WithManager {
  protected:
    // The watchdog's own thread had the one row.
    MemoryOfThreads() {
        manager();
        Memory::get()->initializeManagementTable();
    }
};

TEST_F(MemoryOfThreads, KnowsTheThreadThatTheManagerStarted) {
    utltest::HeldThread thread("Worker");
    ASSERT_NE(thread.id(), 0);
    EXPECT_STREQ(Memory::get()->getThreadName(thread.id()), "Worker");
}

TEST_F(MemoryOfThreads, KnowsTheCallerThatWasRegistered) {
    ASSERT_EQ(manager().entryCaller(0, 0, nullptr, "Main"), utltest::kernelId());
    EXPECT_STREQ(Memory::get()->getThreadName(utltest::kernelId()), "Main");
}

TEST_F(MemoryOfThreads, DoesNotKnowAThreadThatCouldNotBeRegistered) {
    EXPECT_EQ(manager().entryCaller(0, 0, nullptr, nullptr), 0);
    EXPECT_EQ(MemoryAccess::threadNameCount(), 0U);
}

TEST_F(MemoryOfThreads, AThreadIsNamedBeforeItIsWatched) {
    utltest::LogCapture const log;
    restingWatchdog();
    class Listener : public utl::WatchdogTimerListener {
        void onTime(int, utl::WatchdogInfos const&) override {}
    } listener;
    // The watchdog refuses a time of 0 with a line that comes through the hooked output; by then the name is
    // there.
    utltest::HookScope const hooks;
    static std::string nameAtLog;
    nameAtLog.clear();
    utltest::hooks::getTimeOfDay.watch(
        [](timeval*, void*) { nameAtLog = Memory::get()->getThreadName(utltest::kernelId()); });
    EXPECT_NE(manager().entryCaller(1, 0, &listener, "Main"), 0);
    EXPECT_EQ(nameAtLog, "Main");
}

TEST_F(MemoryOfThreads, TheInstanceMayGoWhileThreadsBegin) {
    std::atomic<bool> done{false};
    std::thread destroyer([&done] {
        while (!done) {
            Memory::destroy();
        }
    });
    for (int i = 0; i < 50; ++i) {
        utltest::HeldThread thread("Worker");
        EXPECT_NE(thread.id(), 0);
    }
    done = true;
    destroyer.join();
}

TEST(MemoryNames, AreTheNumbersThatCallersPass) {
    static_assert(Memory::RECORD_ALLOCATION == 0 && Memory::RECORD_RELEASE == 1);
}

TEST(MemoryTraits, WhatOnlyTakesTheLockNeverThrows) {
    static_assert(noexcept(std::declval<Memory const&>().enabledHeapManagement()));
    static_assert(noexcept(std::declval<Memory&>().initializeManagementTable()));
    static_assert(noexcept(std::declval<Memory&>().resetUsedHeap()));
    static_assert(noexcept(std::declval<Memory&>().addDetailHeapInfo(Memory::INITIAL_DETAIL_HEAP_INFO)));
    static_assert(noexcept(std::declval<Memory&>().eraseDetailHeapInfo(nullptr)));
    static_assert(noexcept(std::declval<Memory&>().getFileName(0)));
    static_assert(noexcept(std::declval<Memory&>().getThreadName(0)));
    static_assert(noexcept(std::declval<Memory&>().getUsedHeapOfProcess(nullptr)));
    static_assert(noexcept(std::declval<Memory&>().mark()));
    static_assert(noexcept(std::declval<Memory&>().printGlobalMemoryStatus(nullptr)));
}

TEST(MemoryTraits, IsNotCopied) {
    static_assert(!std::is_copy_constructible_v<Memory> && !std::is_copy_assignable_v<Memory>);
}

}  // namespace

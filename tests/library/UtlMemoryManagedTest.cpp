// The heap accounting of a library that was built with management. What is tested holds for tables of any
// size; the program exists twice, for tables of one row and of several.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "TestFolder.h"
#include "TestLog.h"
#include "TestMemory.h"
#include "TestThreads.h"
#include "UtlMemory.h"

using utl::Memory;
using utltest::allocate;
using utltest::MemoryAccess;
using utltest::MessageCapture;
using utltest::padded;
using utltest::release;
using utltest::shown;
using utltest::someAddress;
namespace hooks = utltest::hooks;

namespace {

constexpr unsigned int ROWS = Memory::DETAIL_HEAP_INFO_MAX;
constexpr unsigned int FILES = Memory::FILE_NAME_INFO_MAX;
constexpr unsigned int THREADS = Memory::THREAD_NAME_INFO_MAX;

using Totals = Memory::ProcessHeapInfo;
using Row = Memory::DetailHeapInfo;

Memory& memory() {
    return *Memory::get();
}

// Fills the table with blocks of 10 bytes, of which the first has the number 0.
void fillTable() {
    for (unsigned int i = 0; i < ROWS; ++i) {
        allocate(someAddress(i), 10);
    }
}

std::string overText(void const* address, unsigned int size, int line, std::string const& file) {
    return "!!!! DetailHeapInfo management over on allocation\nMaxCount:" + std::to_string(ROWS) +
           ", Address:" + shown(address) + ", UseBytes:" + padded(size, 10) +
           ", ThreadId:" + padded(utltest::kernelId(), 10) + ", Line:" + padded(line, 8) + ", File:" + file +
           ", \n";
}

std::string unknownText(void const* address, int line, std::string const& file) {
    std::string const banner(67, '!');
    return banner +
           "\n!!!! DetailHeapInfo release address is not in under management\nAddress:" + shown(address) +
           ", ThreadId:" + padded(utltest::kernelId(), 10) + ", Line:" + padded(line, 8) + ", File:" + file +
           ", \n" + banner + "\n";
}

// Each test begins with a new instance, also where they run in one process.
class ManagedMemory : public testing::Test {
  protected:
    ManagedMemory() { Memory::destroy(); }
};

TEST_F(ManagedMemory, IsEnabled) {
    EXPECT_TRUE(memory().enabledHeapManagement());
}

TEST_F(ManagedMemory, Infos_AreZeroAtFirst) {
    EXPECT_EQ(Totals(), (Totals{0, 0, 0, 0}));
    Memory::FileNameInfo const file;
    EXPECT_EQ(std::count(std::begin(file.mName), std::end(file.mName), '\0'), 260);
    Memory::ThreadNameInfo const thread;
    EXPECT_EQ(thread.mThreadId, 0);
    EXPECT_EQ(std::count(std::begin(thread.mName), std::end(thread.mName), '\0'), 128);
}

TEST_F(ManagedMemory, TheEmptyRow_HasNoAddressAndNoFile) {
    EXPECT_EQ(Memory::INITIAL_DETAIL_HEAP_INFO,
              (Row{0, reinterpret_cast<void const*>(std::uintptr_t{0xFFFFFFFF}), 0, 0, 0xFFFFFFFF, 0}));
}

TEST_F(ManagedMemory, AtFirst_EveryRowIsEmpty) {
    EXPECT_EQ(MemoryAccess::count(), 0U);
    EXPECT_EQ(MemoryAccess::nextSerial(), 1U);
    EXPECT_EQ(MemoryAccess::markedSerial(), 0U);
    EXPECT_EQ(MemoryAccess::totals(), Totals());
    for (unsigned int i = 0; i < ROWS; ++i) {
        EXPECT_EQ(MemoryAccess::row(i), Memory::INITIAL_DETAIL_HEAP_INFO);
    }
}

TEST_F(ManagedMemory, AnAllocation_HasARowAndCounts) {
    allocate(someAddress(0), 10, 3, 4);
    EXPECT_EQ(MemoryAccess::count(), 1U);
    EXPECT_EQ(MemoryAccess::row(0), (Row{1, someAddress(0), 10, utltest::kernelId(), 3, 4}));
    EXPECT_EQ(MemoryAccess::nextSerial(), 2U);
    EXPECT_EQ(MemoryAccess::totals(), (Totals{10, 1, 10, 1}));
}

TEST_F(ManagedMemory, AnAllocationOnAnotherThread_NamesThatThread) {
    int id = 0;
    std::thread([&id] {
        id = utltest::kernelId();
        allocate(someAddress(0), 10);
    }).join();
    EXPECT_EQ(MemoryAccess::row(0).mThreadId, id);
    EXPECT_NE(id, utltest::kernelId());
}

TEST_F(ManagedMemory, ARelease_TakesTheRowAndTheSizeAndLeavesTheMaximum) {
    allocate(someAddress(0), 10);
    release(someAddress(0));
    EXPECT_EQ(MemoryAccess::count(), 0U);
    EXPECT_EQ(MemoryAccess::row(0), Memory::INITIAL_DETAIL_HEAP_INFO);
    EXPECT_EQ(MemoryAccess::totals(), (Totals{0, 0, 10, 1}));
    allocate(someAddress(0), 4);
    EXPECT_EQ(MemoryAccess::totals(), (Totals{4, 1, 10, 1}));
    EXPECT_EQ(MemoryAccess::row(0).mSerial, 2U);
}

TEST_F(ManagedMemory, EveryOperationButZero_IsARelease) {
    for (int const operation : {1, 2, -1, 0x7FFFFFFF}) {
        allocate(someAddress(0), 10);
        memory().updateManagement(operation, someAddress(0), 0, ~0U, 0);
        EXPECT_EQ(MemoryAccess::count(), 0U) << operation;
    }
}

TEST_F(ManagedMemory, TheReleaseOfNull_DoesNothing) {
    MessageCapture const messages;
    fillTable();
    release(nullptr);
    EXPECT_EQ(MemoryAccess::count(), ROWS);
    EXPECT_EQ(messages.text(), "");
}

TEST_F(ManagedMemory, AnAllocationAtNull_IsKeptLikeAnyOther) {
    allocate(nullptr, 10);
    EXPECT_EQ(MemoryAccess::row(0).mAddress, nullptr);
    EXPECT_EQ(MemoryAccess::totals().mUseBytes, 10U);
}

TEST_F(ManagedMemory, AnAllocationBeyondTheTable_PrintsItAndLeavesTheTotals) {
    MessageCapture const messages;
    fillTable();
    EXPECT_EQ(messages.text(), "");
    Totals const before = MemoryAccess::totals();
    EXPECT_EQ(before, (Totals{10 * ROWS, ROWS, 10 * ROWS, ROWS}));
    allocate(someAddress(ROWS), 77, memory().getFileId("main.cpp"), 12);
    EXPECT_EQ(messages.text(), overText(someAddress(ROWS), 77, 12, "main.cpp"));
    EXPECT_EQ(MemoryAccess::totals(), before);
    EXPECT_EQ(MemoryAccess::count(), ROWS);
    EXPECT_EQ(MemoryAccess::nextSerial(), ROWS + 1);
}

TEST_F(ManagedMemory, Messages_ShowLargeAndNegativeNumbersOf32Bits) {
    MessageCapture const messages;
    fillTable();
    allocate(someAddress(ROWS), 0xFFFFFFFF, ~0U, -5);
    EXPECT_EQ(messages.text(), overText(someAddress(ROWS), 0xFFFFFFFF, -5, ""));
}

TEST_F(ManagedMemory, TheReleaseOfAnUnknownAddress_PrintsItAndLeavesTheTotals) {
    fillTable();
    release(someAddress(0));
    allocate(someAddress(ROWS + 1), 10);
    for (unsigned int const number : {0U, ROWS, ROWS + 2}) {
        MessageCapture const messages;
        Totals const before = MemoryAccess::totals();
        release(someAddress(number), memory().getFileId("main.cpp"), 12);
        EXPECT_EQ(messages.text(), unknownText(someAddress(number), 12, "main.cpp"));
        EXPECT_EQ(MemoryAccess::totals(), before);
        EXPECT_EQ(MemoryAccess::count(), ROWS);
    }
}

TEST_F(ManagedMemory, AReleaseFromAnEmptyTable_IsUnknown) {
    MessageCapture const messages;
    release(someAddress(0));
    EXPECT_EQ(messages.text(), unknownText(someAddress(0), 0, ""));
    EXPECT_EQ(MemoryAccess::totals(), Totals());
}

TEST_F(ManagedMemory, TheSecondReleaseOfABlock_IsUnknown) {
    MessageCapture const messages;
    allocate(someAddress(0), 10);
    release(someAddress(0));
    EXPECT_EQ(messages.text(), "");
    release(someAddress(0));
    EXPECT_EQ(messages.text(), unknownText(someAddress(0), 0, ""));
}

TEST_F(ManagedMemory, UpdateManagement_LeavesErrnoAlone) {
    utltest::HookScope const scope;
    hooks::write.failFrom(1, 0, -1, EBADF);
    fillTable();
    errno = 7;
    allocate(someAddress(ROWS), 10);
    release(someAddress(ROWS));
    EXPECT_EQ(errno, 7);
    EXPECT_GT(hooks::write.calls(), 0U);
}

TEST_F(ManagedMemory, AnAllocationOf32BitsOfBytes_CountsAsOneTooManyThoughItHasARow) {
    MessageCapture const messages;
    allocate(someAddress(0), 0xFFFFFFFF);
    EXPECT_EQ(messages.text(), overText(someAddress(0), 0xFFFFFFFF, 0, ""));
    EXPECT_EQ(MemoryAccess::totals(), Totals());
    EXPECT_EQ(MemoryAccess::count(), 1U);
}

TEST_F(ManagedMemory, LargeBlocks_AreReleasedByTheirWholeSize) {
    allocate(someAddress(0), 0xFFFFFFFE);
    EXPECT_EQ(MemoryAccess::totals().mUseBytes, 0xFFFFFFFEU);
    release(someAddress(0));
    EXPECT_EQ(MemoryAccess::totals().mUseBytes, 0U);
}

TEST_F(ManagedMemory, Totals_StayAtZeroAndWrapOnlyFromAbove) {
    // A row without an allocation: its release finds totals of 0.
    EXPECT_EQ(memory().addDetailHeapInfo({1, someAddress(0), 10, 0, ~0U, 0}), 10U);
    EXPECT_EQ(MemoryAccess::totals(), Totals());
    release(someAddress(0));
    EXPECT_EQ(MemoryAccess::totals(), Totals());
    // A row that says more than was allocated.
    allocate(someAddress(0), 4);
    EXPECT_EQ(memory().eraseDetailHeapInfo(someAddress(0)), 4);
    EXPECT_EQ(memory().addDetailHeapInfo({1, someAddress(0), 10, 0, ~0U, 0}), 10U);
    release(someAddress(0));
    EXPECT_EQ(MemoryAccess::totals(), (Totals{4U - 10U, 0, 4, 1}));
}

TEST_F(ManagedMemory, AddDetailHeapInfo_KeepsTheRowsSortedWhateverTheOrder) {
    std::vector<unsigned int> numbers(ROWS);
    std::iota(numbers.begin(), numbers.end(), 0U);
    std::mt19937 lots(1);
    for (int round = 0; round < 20; ++round) {
        memory().initializeManagementTable();
        std::shuffle(numbers.begin(), numbers.end(), lots);
        for (unsigned int const number : numbers) {
            EXPECT_EQ(memory().addDetailHeapInfo({number, someAddress(number), number, 1, 2, 3}), number);
        }
        for (unsigned int i = 0; i < ROWS; ++i) {
            EXPECT_EQ(MemoryAccess::row(i), (Row{i, someAddress(i), i, 1, 2, 3}));
        }
        EXPECT_EQ(MemoryAccess::nextSerial(), ROWS + 1);
        EXPECT_EQ(memory().addDetailHeapInfo({0, someAddress(ROWS), 1, 1, 2, 3}), ~0U);
        EXPECT_EQ(MemoryAccess::nextSerial(), ROWS + 1);
        std::shuffle(numbers.begin(), numbers.end(), lots);
        for (unsigned int const number : numbers) {
            EXPECT_EQ(memory().eraseDetailHeapInfo(someAddress(number)), static_cast<int>(number));
            EXPECT_EQ(MemoryAccess::row(MemoryAccess::count()), Memory::INITIAL_DETAIL_HEAP_INFO);
            EXPECT_EQ(memory().eraseDetailHeapInfo(someAddress(number)), -1);
        }
        EXPECT_EQ(MemoryAccess::count(), 0U);
    }
}

TEST_F(ManagedMemory, Addresses_AreComparedWithoutASign) {
    void* const low = reinterpret_cast<void*>(std::uintptr_t{8});
    void* const high = reinterpret_cast<void*>(~std::uintptr_t{7});
    allocate(high, 2);
    if (ROWS > 1) {
        allocate(low, 1);
        EXPECT_EQ(MemoryAccess::row(0).mAddress, low);
        EXPECT_EQ(MemoryAccess::row(1).mAddress, high);
        release(low);
    }
    release(high);
    EXPECT_EQ(MemoryAccess::count(), 0U);
}

TEST_F(ManagedMemory, RowsOfOneAddress_AreReleasedTheNewestFirst) {
    for (unsigned int i = 0; i < ROWS; ++i) {
        allocate(someAddress(0), i);
    }
    for (unsigned int i = ROWS; i-- > 0;) {
        EXPECT_EQ(memory().eraseDetailHeapInfo(someAddress(0)), static_cast<int>(i));
    }
}

TEST_F(ManagedMemory, RandomAllocationsAndReleases_LeaveWhatAMapWouldHold) {
    MessageCapture const messages;
    std::map<unsigned int, unsigned int> live;
    Totals expected;
    std::mt19937 lots(2);
    for (int step = 0; step < 5000; ++step) {
        auto const number = static_cast<unsigned int>(lots() % (2 * ROWS));
        auto const known = live.find(number);
        if (known != live.end()) {
            expected.mUseBytes -= known->second;
            live.erase(known);
            release(someAddress(number));
        } else if (live.size() < ROWS) {
            auto const size = static_cast<unsigned int>(lots() % 1000);
            live[number] = size;
            expected.mUseBytes += size;
            allocate(someAddress(number), size);
        }
        expected.mUseCount = static_cast<unsigned int>(live.size());
        expected.mMaxBytes = std::max(expected.mMaxBytes, expected.mUseBytes);
        expected.mMaxCount = std::max(expected.mMaxCount, expected.mUseCount);
        ASSERT_EQ(MemoryAccess::totals(), expected);
        ASSERT_EQ(MemoryAccess::count(), expected.mUseCount);
    }
    EXPECT_EQ(messages.text(), "");
}

TEST_F(ManagedMemory, GetUsedHeapOfProcess_CopiesTheTotals) {
    allocate(someAddress(0), 10);
    Totals totals;
    EXPECT_TRUE(memory().getUsedHeapOfProcess(&totals));
    EXPECT_EQ(totals, (Totals{10, 1, 10, 1}));
    EXPECT_FALSE(memory().getUsedHeapOfProcess(nullptr));
}

TEST_F(ManagedMemory, ResetUsedHeap_EmptiesAllButTheMark) {
    fillTable();
    EXPECT_EQ(memory().getFileId("main.cpp"), 0U);
    memory().registerThreadName(5, "five");
    memory().mark();
    EXPECT_TRUE(memory().resetUsedHeap());
    EXPECT_EQ(MemoryAccess::count(), 0U);
    EXPECT_EQ(MemoryAccess::totals(), Totals());
    EXPECT_EQ(MemoryAccess::nextSerial(), 1U);
    EXPECT_EQ(MemoryAccess::markedSerial(), ROWS + 1);
    EXPECT_STREQ(memory().getFileName(0), "");
    EXPECT_STREQ(memory().getThreadName(5), "");
    for (unsigned int i = 0; i < ROWS; ++i) {
        EXPECT_EQ(MemoryAccess::row(i), Memory::INITIAL_DETAIL_HEAP_INFO);
    }
}

std::string fileNumber(unsigned int number) {
    return "source/File" + std::to_string(number) + ".cpp";
}

TEST_F(ManagedMemory, GetFileId_NumbersThePathsUntilTheTableIsFull) {
    for (int round = 0; round < 2; ++round) {
        for (unsigned int i = 0; i < FILES; ++i) {
            EXPECT_EQ(memory().getFileId(fileNumber(i).c_str()), i);
        }
    }
    EXPECT_EQ(memory().getFileId(fileNumber(FILES).c_str()), ~0U);
    for (unsigned int i = 0; i < FILES; ++i) {
        EXPECT_EQ(memory().getFileName(i), fileNumber(i));
    }
    EXPECT_STREQ(memory().getFileName(FILES), "");
    EXPECT_STREQ(memory().getFileName(~0U), "");
}

TEST_F(ManagedMemory, GetFileId_OfNull_IsAFailure) {
    EXPECT_EQ(memory().getFileId(nullptr), ~0U);
    EXPECT_STREQ(memory().getFileName(0), "");
}

TEST_F(ManagedMemory, GetFileName_OfAnEmptyTable_IsEmpty) {
    EXPECT_STREQ(memory().getFileName(0), "");
    EXPECT_STREQ(memory().getFileName(~0U), "");
}

TEST_F(ManagedMemory, FileNames_AreCutToTheRowBetweenTwoCharacters) {
    for (unsigned int const length : {258U, 259U, 260U, 261U, 1000U}) {
        memory().initializeManagementTable();
        std::string const path(length, 'p');
        EXPECT_EQ(memory().getFileId(path.c_str()), 0U);
        EXPECT_EQ(memory().getFileName(0), path.substr(0, 259));
        EXPECT_EQ(memory().getFileId(path.c_str()), 0U);
    }
    memory().initializeManagementTable();
    std::string const wide = std::string(258, 'p') + "\xE3\x81\x82";
    EXPECT_EQ(memory().getFileId(wide.c_str()), 0U);
    EXPECT_EQ(memory().getFileName(0), std::string(258, 'p'));
}

TEST_F(ManagedMemory, FileNamesThatAreNoUtf8_AreKeptAsTheyAre) {
    std::string const path = "\x83\x41\xFF" + std::string(300, 'p');
    EXPECT_EQ(memory().getFileId(path.c_str()), 0U);
    EXPECT_EQ(memory().getFileName(0), path.substr(0, 259));
    EXPECT_EQ(memory().getFileId(path.c_str()), 0U);
}

TEST_F(ManagedMemory, RegisterThreadName_TakesRowsUntilTheTableIsFull) {
    for (int round = 0; round < 2; ++round) {
        for (unsigned int i = 1; i <= THREADS; ++i) {
            memory().registerThreadName(static_cast<int>(i), ("Thread" + std::to_string(i)).c_str());
        }
    }
    memory().registerThreadName(1000, "one too many");
    EXPECT_EQ(MemoryAccess::threadNameCount(), THREADS);
    for (unsigned int i = 1; i <= THREADS; ++i) {
        EXPECT_EQ(memory().getThreadName(static_cast<int>(i)), "Thread" + std::to_string(i));
    }
    EXPECT_STREQ(memory().getThreadName(1000), "");
}

TEST_F(ManagedMemory, RegisterThreadName_IgnoresWhatIsNoThreadOrNoName) {
    memory().registerThreadName(0, "zero");
    memory().registerThreadName(1, nullptr);
    memory().registerThreadName(1, "");
    EXPECT_EQ(MemoryAccess::threadNameCount(), 0U);
    EXPECT_STREQ(memory().getThreadName(0), "");
    EXPECT_STREQ(memory().getThreadName(1), "");
}

TEST_F(ManagedMemory, AThreadIdThatComesAgain_HasItsLastName) {
    memory().registerThreadName(-5, "first");
    memory().registerThreadName(-5, "second");
    EXPECT_STREQ(memory().getThreadName(-5), THREADS > 1 ? "second" : "first");
    EXPECT_EQ(MemoryAccess::threadNameCount(), std::min(2U, THREADS));
}

TEST_F(ManagedMemory, ThreadNames_AreCutToTheRowBetweenTwoCharacters) {
    for (unsigned int const length : {126U, 127U, 128U, 129U, 1000U}) {
        memory().initializeManagementTable();
        std::string const name(length, 'n');
        memory().registerThreadName(5, name.c_str());
        memory().registerThreadName(5, name.c_str());
        EXPECT_EQ(memory().getThreadName(5), name.substr(0, 127));
        EXPECT_EQ(MemoryAccess::threadNameCount(), 1U);
    }
    memory().initializeManagementTable();
    memory().registerThreadName(5, (std::string(126, 'n') + "\xE3\x81\x82").c_str());
    EXPECT_EQ(memory().getThreadName(5), std::string(126, 'n'));
}

TEST_F(ManagedMemory, PrintMessage_DropsATextOf1024BytesWhole) {
    MessageCapture const messages;
    std::string const text(1023, 'x');
    memory().printMessage(0, 0, "%s", text.c_str());
    EXPECT_EQ(messages.text(), text);
    memory().printMessage(0, 0, "%s!", text.c_str());
    EXPECT_EQ(messages.text(), text);
    memory().printMessage(-7, 0, "%s", "");
    EXPECT_EQ(messages.text(), text);
}

TEST_F(ManagedMemory, PrintMessage_ToMinusOne_WritesNowhere) {
    utltest::HookScope const scope;
    memory().printMessage(0, -1, "text");
    EXPECT_EQ(hooks::write.calls(), 0U);
}

TEST_F(ManagedMemory, PrintMessage_MakesOneAttempt) {
    utltest::HookScope const scope;
    hooks::write.failFrom(1, 0, -1, EINTR);
    memory().printMessage(0, 1, "text");
    EXPECT_EQ(hooks::write.calls(), 1U);
}

constexpr char COLUMNS[] =
    "       No.,       Serial,    Address,   UseBytes,   ThreadId, ThreadName                        ,     "
    "Line, File, \n";

class ManagedMemoryReport : public utltest::InFolder {
  protected:
    ManagedMemoryReport() {
        Memory::destroy();
        umask(0022);
    }

    // A row of the two long reports.
    static std::string row(unsigned int number, Row const& info, std::string const& thread,
                           std::string const& file) {
        std::string const padding(34 - thread.size(), ' ');
        return padded(number, 10) + ", " + padded(static_cast<long long>(info.mSerial), 12) + ", " +
               shown(info.mAddress) + ", " + padded(info.mUseBytes, 10) + ", " + padded(info.mThreadId, 10) +
               ", " + thread + padding + ", " + padded(static_cast<unsigned int>(info.mLine), 8) + ", " +
               file + ", \n";
    }

    static std::string detail(std::string const& rows, std::string const& mark = "") {
        return "---- ProcessDetailHeap" + mark + " -----------------\n" + COLUMNS + rows +
               "---- ProcessDetailHeap" + mark + " [End of Log] ----\n";
    }
};

TEST_F(ManagedMemoryReport, OfTheTotals_HasThreeLines) {
    allocate(someAddress(0), 1234);
    release(someAddress(0));
    allocate(someAddress(0), 56);
    EXPECT_TRUE(memory().printUsedHeap(0, "heap.txt"));
    EXPECT_EQ(utltest::contentOf("heap.txt"),
              "---- ProcessHeap ----\n"
              "     UseBytes,      UseCount,      MaxBytes,      MaxCount, \n"
              "           56,             1,          1234,             1, \n");
}

TEST_F(ManagedMemoryReport, OfTheTotals_ShowsAll32Bits) {
    allocate(someAddress(0), 0xFFFFFFFE);
    EXPECT_TRUE(memory().printUsedHeap(0, "heap.txt"));
    std::string const content = utltest::contentOf("heap.txt");
    EXPECT_EQ(content.substr(content.find("MaxCount, \n") + 11),
              "   4294967294,             1,    4294967294,             1, \n");
}

TEST_F(ManagedMemoryReport, OfTheTable_HasARowForEachAllocationInTheOrderOfTheAddresses) {
    int const thread = utltest::kernelId();
    memory().registerThreadName(thread, "Main");
    std::string rows;
    for (unsigned int i = ROWS; i-- > 0;) {
        unsigned int const file = memory().getFileId(fileNumber(i).c_str());
        allocate(someAddress(i), i, file, static_cast<int>(i) - 1);
        Row const info{ROWS - i, someAddress(i), i, thread, file, static_cast<int>(i) - 1};
        rows.insert(0, row(i + 1, info, "Main", file != ~0U ? fileNumber(i) : ""));
    }
    EXPECT_TRUE(memory().printUsedHeapDetail(0, "detail.txt"));
    EXPECT_EQ(utltest::contentOf("detail.txt"), detail(rows));
}

TEST_F(ManagedMemoryReport, OfAnEmptyTable_HasItsHeadAndItsEnd) {
    EXPECT_TRUE(memory().printUsedHeapDetail(0, "detail.txt"));
    EXPECT_EQ(utltest::contentOf("detail.txt"), detail(""));
}

TEST_F(ManagedMemoryReport, SinceTheMark_BeforeAnyMark_IsFalseAndOpensNothing) {
    fillTable();
    EXPECT_FALSE(memory().printMarkedHeapDetail(0, "marked.txt"));
    EXPECT_FALSE(std::filesystem::exists("marked.txt"));
}

TEST_F(ManagedMemoryReport, SinceTheMark_HasTheAllocationsFromTheMarkOn) {
    fillTable();
    memory().mark();
    EXPECT_TRUE(memory().printMarkedHeapDetail(0, "marked.txt"));
    EXPECT_EQ(utltest::contentOf("marked.txt"), detail("", " (Marked)"));
    release(someAddress(ROWS - 1));
    allocate(someAddress(ROWS - 1), 99, ~0U, 7);
    EXPECT_TRUE(memory().printMarkedHeapDetail(0, "marked.txt"));
    Row const info{ROWS + 1, someAddress(ROWS - 1), 99, utltest::kernelId(), ~0U, 7};
    EXPECT_EQ(utltest::contentOf("marked.txt"), detail(row(1, info, "", ""), " (Marked)"));
}

TEST_F(ManagedMemoryReport, SinceTheMark_AfterAReset_IsEmptyUntilTheSerialNumbersComeAgain) {
    fillTable();
    release(someAddress(0));
    allocate(someAddress(0), 1);
    memory().mark();
    memory().resetUsedHeap();
    fillTable();
    EXPECT_TRUE(memory().printMarkedHeapDetail(0, "marked.txt"));
    EXPECT_EQ(utltest::contentOf("marked.txt"), detail("", " (Marked)"));
}

TEST_F(ManagedMemoryReport, ToNull_IsFormattedAndWrittenNowhere) {
    fillTable();
    memory().mark();
    utltest::HookScope const scope;
    EXPECT_TRUE(memory().printUsedHeap(0, nullptr));
    EXPECT_TRUE(memory().printUsedHeapDetail(0, nullptr));
    EXPECT_TRUE(memory().printMarkedHeapDetail(0, nullptr));
    EXPECT_EQ(hooks::write.calls(), 0U);
    EXPECT_EQ(hooks::open.calls(), 0U);
    EXPECT_EQ(hooks::close.calls(), 0U);
}

TEST_F(ManagedMemoryReport, MakesTheFoldersAndReplacesTheFile) {
    putFolder("old");
    utltest::putFile("old/heap.txt", std::string(5000, 'x'));
    EXPECT_TRUE(memory().printUsedHeap(0, "old/heap.txt"));
    EXPECT_LT(utltest::contentOf("old/heap.txt").size(), 200U);
    EXPECT_TRUE(memory().printUsedHeap(0, "new/folder/heap.txt"));
    EXPECT_EQ(utltest::contentOf("new/folder/heap.txt"), utltest::contentOf("old/heap.txt"));
}

TEST_F(ManagedMemoryReport, TakesABackslashForASeparator) {
    EXPECT_TRUE(memory().printUsedHeap(0, "new\\heap.txt"));
    EXPECT_NE(utltest::contentOf("new/heap.txt"), "");
}

TEST_F(ManagedMemoryReport, LeavesTheFolderOpenToAll) {
    putFolder("folder", 0700);
    EXPECT_TRUE(memory().printUsedHeap(0, "folder/heap.txt"));
    EXPECT_EQ(utltest::permissions("folder"), 0777);
}

TEST_F(ManagedMemoryReport, CreatesTheFileWithTheModeThatTheUmaskLeaves) {
    umask(0027);
    EXPECT_TRUE(memory().printUsedHeap(0, "heap.txt"));
    EXPECT_EQ(utltest::permissions("heap.txt"), 0750);
}

TEST_F(ManagedMemoryReport, ThatCannotBeOpened_IsTrueAllTheSame) {
    utltest::putFile("file", "x");
    memory().mark();
    for (std::string const& path : {std::string("file/heap.txt"), std::string("."),
                                    std::string("a//heap.txt"), std::string(260, 'p'), std::string("")}) {
        EXPECT_TRUE(memory().printUsedHeap(0, path.c_str())) << path;
        EXPECT_TRUE(memory().printUsedHeapDetail(0, path.c_str())) << path;
        EXPECT_TRUE(memory().printMarkedHeapDetail(0, path.c_str())) << path;
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("."), {}), 1);
}

TEST_F(ManagedMemoryReport, WhoseFileTheSystemRefuses_IsTrueAndClosesNothing) {
    utltest::HookScope const scope;
    hooks::open.failFrom(1, 0, -1, EACCES);
    EXPECT_TRUE(memory().printUsedHeap(0, "heap.txt"));
    EXPECT_EQ(hooks::open.calls(), 1U);
    EXPECT_EQ(hooks::write.calls(), 0U);
    EXPECT_EQ(hooks::close.calls(), 0U);
}

TEST_F(ManagedMemoryReport, OnAFullDisk_IsTrue) {
    utltest::HookScope const scope;
    hooks::write.failFrom(1, 0, -1, ENOSPC);
    EXPECT_TRUE(memory().printUsedHeap(0, "heap.txt"));
    EXPECT_EQ(hooks::write.calls(), 3U);
}

// Counts how often another thread could have had the lock of the instance.
std::atomic<unsigned int> gFreeLooks{0};

void lookAtLock() {
    std::thread([] {
        if (MemoryAccess::lock().tryLock()) {
            MemoryAccess::lock().unlock();
            ++gFreeLooks;
        }
    }).join();
}

TEST_F(ManagedMemoryReport, HoldsTheLockForAllOfItsWork) {
    fillTable();
    gFreeLooks = 0;
    utltest::HookScope const scope;
    hooks::open.watch([](char const*, int, mode_t) { lookAtLock(); });
    hooks::write.watch([](int, void const*, size_t) { lookAtLock(); });
    hooks::close.watch([](int) { lookAtLock(); });
    EXPECT_TRUE(memory().printUsedHeapDetail(0, "heap.txt"));
    EXPECT_EQ(gFreeLooks, 0U);
    lookAtLock();
    EXPECT_EQ(gFreeLooks, 1U);
}

TEST_F(ManagedMemoryReport, ThatIsTheFirstToUseTheManager_WaitsForItsThreadBeforeItTakesTheLock) {
    utl::ThreadManager::destroy();
    gFreeLooks = 0;
    utltest::HookScope const scope;
    hooks::threadCreate.watch(
        [](pthread_t*, pthread_attr_t const*, void* (*)(void*), void*) { lookAtLock(); });
    EXPECT_TRUE(memory().printUsedHeap(0, "heap.txt"));
    EXPECT_EQ(gFreeLooks, 1U);
    EXPECT_NE(utl::ThreadManager::getIfCreated(), nullptr);
}

TEST_F(ManagedMemoryReport, OpensAndClosesItsFileInSightOfTheWatchdog) {
    utltest::LogCapture const log;
    utl::ThreadManager& manager = *utl::ThreadManager::get();
    EXPECT_TRUE(manager.setWatchdogWatchInterval(0));
    EXPECT_TRUE(manager.entryWatchdog(60000, nullptr));
    EXPECT_TRUE(manager.startWatchdog());
    static std::vector<std::string> seen;
    seen.clear();
    static constexpr auto look = [] {
        utl::StatementInfo const last = utltest::ThreadWatchdogAccess::copyInfo(
                                            utltest::ThreadManagerAccess::watchdog(), utltest::kernelId())
                                            .lastStatement;
        seen.push_back(std::string(last.file) + " " + last.function + " " + std::to_string(last.sub));
    };
    {
        utltest::HookScope const scope;
        hooks::open.watch([](char const*, int, mode_t) { look(); });
        hooks::close.watch([](int) { look(); });
        EXPECT_TRUE(memory().printUsedHeap(0, "heap.txt"));
    }
    EXPECT_EQ(seen,
              (std::vector<std::string>{"source/UtlMemory openReport 1", "source/UtlMemory ~ReportScope 1"}));
    EXPECT_TRUE(manager.unregisterWatchdog());
}

TEST_F(ManagedMemoryReport, AllOperationsOnManyThreads_StayConsistent) {
    constexpr unsigned int STEPS = 300;
    memory().mark();
    std::vector<std::thread> threads;
    for (unsigned int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            std::string const name = "Thread" + std::to_string(t);
            for (unsigned int i = 0; i < STEPS; ++i) {
                // A foreign address is refused and never counted, whatever is in the table.
                memory().registerThreadName(utltest::kernelId(), name.c_str());
                EXPECT_STREQ(memory().getFileName(~0U), "");
                memory().getFileId(name.c_str());
                unsigned int const size = memory().addDetailHeapInfo(
                    {i, someAddress(t), t, utltest::kernelId(), ~0U, static_cast<int>(i)});
                if (size != ~0U) {
                    EXPECT_EQ(memory().eraseDetailHeapInfo(someAddress(t)), static_cast<int>(t));
                }
                Totals totals;
                EXPECT_TRUE(memory().getUsedHeapOfProcess(&totals));
                EXPECT_EQ(totals, Totals());
            }
        });
    }
    threads.emplace_back([] {
        for (unsigned int i = 0; i < 20; ++i) {
            EXPECT_TRUE(memory().printUsedHeapDetail(0, "detail.txt"));
            EXPECT_TRUE(memory().printUsedHeap(0, nullptr));
            EXPECT_TRUE(memory().printMarkedHeapDetail(0, "marked.txt"));
            memory().mark();
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(MemoryAccess::count(), 0U);
}

TEST_F(ManagedMemory, AllocationsOnManyThreads_AddUp) {
    MessageCapture const messages;
    constexpr unsigned int STEPS = 500;
    std::atomic<unsigned int> users{0};
    std::vector<std::thread> threads;
    for (unsigned int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &users] {
            for (unsigned int i = 0; i < STEPS; ++i) {
                while (users.fetch_add(1) >= ROWS) {
                    --users;
                    std::this_thread::yield();
                }
                allocate(someAddress(t), t + 1);
                release(someAddress(t));
                --users;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(messages.text(), "");
    EXPECT_EQ(MemoryAccess::nextSerial(), 4 * STEPS + 1);
    EXPECT_EQ(MemoryAccess::totals().mUseBytes, 0U);
    EXPECT_EQ(MemoryAccess::totals().mUseCount, 0U);
}

}  // namespace

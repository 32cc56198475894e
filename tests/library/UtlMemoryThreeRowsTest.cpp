// A library whose heap accounting has small tables: three allocations, two source files, two threads.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "TestFolder.h"
#include "TestHooks.h"
#include "TestMemory.h"
#include "TestThreads.h"
#include "UtlMemory.h"

namespace {

using utl::Memory;
using utltest::allocate;
using utltest::contentOf;
using utltest::HookScope;
using utltest::MemoryAccess;
using utltest::MessageCapture;
using utltest::padded;
using utltest::release;
using utltest::shown;
using utltest::someAddress;
namespace hooks = utltest::hooks;

static_assert(Memory::DETAIL_HEAP_INFO_MAX == 3 && Memory::FILE_NAME_INFO_MAX == 2 &&
              Memory::THREAD_NAME_INFO_MAX == 2);

std::string const COLUMNS =
    "       No.,       Serial,    Address,   UseBytes,   ThreadId, ThreadName                        ,     "
    "Line, File, \n";
std::string const BANNER = std::string(67, '!') + "\n";

std::string detail(std::string const& rows) {
    return "---- ProcessDetailHeap -----------------\n" + COLUMNS + rows +
           "---- ProcessDetailHeap [End of Log] ----\n";
}

std::string marked(std::string const& rows) {
    return "---- ProcessDetailHeap (Marked) -----------------\n" + COLUMNS + rows +
           "---- ProcessDetailHeap (Marked) [End of Log] ----\n";
}

std::string totals(std::string const& numbers) {
    return "---- ProcessHeap ----\n     UseBytes,      UseCount,      MaxBytes,      MaxCount, \n" + numbers +
           ", \n";
}

std::string row(unsigned int number, unsigned int serial, void* address, std::string const& rest) {
    return padded(number, 10) + ", " + padded(serial, 12) + ", " + shown(address) + ", " + rest + ", \n";
}

std::string fullTable(void* address, std::string const& bytes, int line, std::string const& file) {
    return "!!!! DetailHeapInfo management over on allocation\nMaxCount:3, Address:" + shown(address) +
           ", UseBytes:" + bytes + ", ThreadId:" + padded(utltest::kernelId(), 10) +
           ", Line:" + padded(line, 8) + ", File:" + file + ", \n";
}

std::string unknownAddress(void* address, int line, std::string const& file) {
    return BANNER +
           "!!!! DetailHeapInfo release address is not in under management\nAddress:" + shown(address) +
           ", ThreadId:" + padded(utltest::kernelId(), 10) + ", Line:" + padded(line, 8) + ", File:" + file +
           ", \n" + BANNER;
}

/// An instance with empty tables, in a folder of its own.
class MemoryOfThreeRows : public utltest::InFolder {
  protected:
    MemoryOfThreeRows() { Memory::destroy(); }
    ~MemoryOfThreeRows() override { Memory::destroy(); }

    static Memory& memory() { return *Memory::get(); }

    static std::string detailReport() {
        EXPECT_TRUE(memory().printUsedHeapDetail(0, "detail"));
        return contentOf("detail");
    }
    static std::string markedReport() {
        EXPECT_TRUE(memory().printMarkedHeapDetail(0, "marked"));
        return contentOf("marked");
    }

    static std::vector<void const*> addresses() {
        std::vector<void const*> result;
        for (unsigned int i = 0; i < MemoryAccess::count(); ++i) {
            result.push_back(MemoryAccess::row(i).mAddress);
        }
        return result;
    }
};

}  // namespace

TEST_F(MemoryOfThreeRows, AllocationsAndReleases_InAnyOrder_LeaveWhatAPlainListSays) {
    MessageCapture const capture;
    std::mt19937 random(5);
    std::vector<std::pair<char*, unsigned int>> live;
    Memory::ProcessHeapInfo expected;
    for (int i = 0; i < 5000; ++i) {
        auto* const address = static_cast<char*>(someAddress(static_cast<unsigned int>(random() % 8)));
        auto const found =
            std::find_if(live.begin(), live.end(), [&](auto const& a) { return a.first == address; });
        if (random() % 2 != 0) {
            if (found == live.end() && live.size() < 3) {
                auto const size = static_cast<unsigned int>(random() % 1000);
                live.emplace_back(address, size);
                expected.mUseBytes += size;
                expected.mMaxBytes = std::max(expected.mMaxBytes, expected.mUseBytes);
                expected.mMaxCount = std::max(expected.mMaxCount, ++expected.mUseCount);
                allocate(address, size);
            } else if (live.size() == 3) {
                allocate(address, 1000000);
            }
        } else {
            release(address);
            if (found != live.end()) {
                expected.mUseBytes -= found->second;
                --expected.mUseCount;
                live.erase(found);
            }
        }
        std::sort(live.begin(), live.end());
        ASSERT_EQ(MemoryAccess::count(), live.size());
        for (unsigned int at = 0; at < 3; ++at) {
            Memory::DetailHeapInfo const info = MemoryAccess::row(at);
            ASSERT_EQ(info.mAddress,
                      at < live.size() ? live[at].first : Memory::INITIAL_DETAIL_HEAP_INFO.mAddress);
            ASSERT_TRUE(at < live.size() || info == Memory::INITIAL_DETAIL_HEAP_INFO);
            ASSERT_TRUE(at >= live.size() || info.mUseBytes == live[at].second);
        }
        Memory::ProcessHeapInfo info;
        ASSERT_TRUE(memory().getUsedHeapOfProcess(&info));
        ASSERT_TRUE(info == expected);
    }
}

TEST_F(MemoryOfThreeRows, AnEmptyRow_HasTheToldValues) {
    Memory::DetailHeapInfo const empty = Memory::INITIAL_DETAIL_HEAP_INFO;
    EXPECT_EQ(empty.mSerial, 0U);
    EXPECT_EQ(reinterpret_cast<std::size_t>(empty.mAddress), 0xFFFFFFFFU);
    EXPECT_EQ(empty.mUseBytes, 0U);
    EXPECT_EQ(empty.mThreadId, 0);
    EXPECT_EQ(empty.mFileId, 0xFFFFFFFFU);
    EXPECT_EQ(empty.mLine, 0);
}

TEST_F(MemoryOfThreeRows, AddressesInTheUpperHalf_AreSortedAsUnsigned) {
    auto const at = [](std::size_t address) { return reinterpret_cast<void*>(address); };
    constexpr std::size_t TOP = ~(~static_cast<std::size_t>(0) >> 1);
    allocate(at(TOP + 16), 1);
    allocate(at(16), 2);
    allocate(at(TOP - 16), 3);
    EXPECT_EQ(addresses(), (std::vector<void const*>{at(16), at(TOP - 16), at(TOP + 16)}));
    MessageCapture const capture;
    release(at(TOP + 16));
    release(at(16));
    EXPECT_EQ(capture.text(), "");
    EXPECT_EQ(addresses(), std::vector<void const*>{at(TOP - 16)});
}

TEST_F(MemoryOfThreeRows, AFullTable_TellsTheAllocationAndKeepsTotalsAndSerial) {
    unsigned int const file = memory().getFileId("a%s%n.cpp");
    for (unsigned int i = 0; i < 3; ++i) {
        allocate(someAddress(i), 10);
    }
    MessageCapture const capture;
    errno = 4321;
    allocate(someAddress(9), 0xFFFFFFFE, file, -12);
    EXPECT_EQ(errno, 4321);
    EXPECT_EQ(capture.text(), fullTable(someAddress(9), "4294967294", -12, "a%s%n.cpp"));
    EXPECT_EQ(MemoryAccess::nextSerial(), 4U);
    EXPECT_TRUE(MemoryAccess::totals() == (Memory::ProcessHeapInfo{30, 3, 30, 3}));
}

TEST_F(MemoryOfThreeRows, AnUnknownRelease_TellsItForEveryOperationBut0) {
    allocate(someAddress(1), 10);
    Memory::ProcessHeapInfo const before = MemoryAccess::totals();
    for (int const operation : {1, 2, -1, 0x7FFFFFFF}) {
        MessageCapture const capture;
        memory().updateManagement(operation, someAddress(2), 77, 5, 2147483647);
        EXPECT_EQ(capture.text(), unknownAddress(someAddress(2), 2147483647, ""));
        memory().updateManagement(operation, nullptr, 77, 0, 1);
        EXPECT_EQ(capture.text(), unknownAddress(someAddress(2), 2147483647, ""));
    }
    EXPECT_TRUE(MemoryAccess::totals() == before);
    EXPECT_EQ(MemoryAccess::count(), 1U);
}

TEST_F(MemoryOfThreeRows, Totals_AreOnlyReducedWhereNot0AndMayWrap) {
    Memory::DetailHeapInfo info = Memory::INITIAL_DETAIL_HEAP_INFO;
    info.mAddress = someAddress(1);
    info.mUseBytes = 50;
    EXPECT_EQ(memory().addDetailHeapInfo(info), 50U);
    MessageCapture const capture;
    release(someAddress(1));  // the totals are 0 and stay
    EXPECT_TRUE(MemoryAccess::totals() == Memory::ProcessHeapInfo());
    allocate(someAddress(2), 0);
    EXPECT_EQ(memory().addDetailHeapInfo(info), 50U);
    release(someAddress(1));  // no bytes, but one in the count
    EXPECT_TRUE(MemoryAccess::totals() == (Memory::ProcessHeapInfo{0, 0, 0, 1}));
    allocate(someAddress(3), 20);
    EXPECT_EQ(memory().addDetailHeapInfo(info), 50U);
    release(someAddress(1));
    EXPECT_TRUE(MemoryAccess::totals() == (Memory::ProcessHeapInfo{0U - 30, 0, 20, 1}));
    EXPECT_EQ(capture.text(), "");
}

TEST_F(MemoryOfThreeRows, ABlockOf0xFFFFFFFFBytes_CountsAsAFailureOnBothWays) {
    MessageCapture const capture;
    allocate(someAddress(1), 0xFFFFFFFF, 0, 3);
    EXPECT_EQ(capture.text(), fullTable(someAddress(1), "4294967295", 3, ""));
    EXPECT_EQ(MemoryAccess::count(), 1U);
    release(someAddress(1), 0, 4);
    EXPECT_EQ(capture.text(),
              fullTable(someAddress(1), "4294967295", 3, "") + unknownAddress(someAddress(1), 4, ""));
    EXPECT_EQ(MemoryAccess::count(), 0U);
    EXPECT_TRUE(MemoryAccess::totals() == Memory::ProcessHeapInfo());
}

TEST_F(MemoryOfThreeRows, Reports_ShowEveryFieldAtItsLargest) {
    std::string const name = std::string(40, 'n') + "%d";
    memory().registerThreadName(-5, name.c_str());
    unsigned int const file = memory().getFileId("dir/some%n.cpp");
    memory().addDetailHeapInfo({18446744073709551615ULL, someAddress(2), 4294967294U, -5, file, -1});
    memory().addDetailHeapInfo({7, someAddress(1), 0, 2147483647, 1, 2147483647});
    EXPECT_EQ(detailReport(),
              detail(row(1, 7, someAddress(1),
                         "         0, 2147483647, " + std::string(34, ' ') + ", 2147483647, ") +
                     padded(2, 10) + ", 18446744073709551615, " + shown(someAddress(2)) +
                     ", 4294967294,         -5, " + name + ", 4294967295, dir/some%n.cpp, \n"));
    allocate(someAddress(3), 4000000000U);
    EXPECT_TRUE(memory().printUsedHeap(1, "totals"));
    EXPECT_EQ(contentOf("totals"), totals("   4000000000,             1,    4000000000,             1"));
}

TEST_F(MemoryOfThreeRows, AMarkedReport_CountsItsOwnRowsInAddressOrder) {
    EXPECT_FALSE(memory().printMarkedHeapDetail(0, "none"));
    EXPECT_FALSE(memory().printMarkedHeapDetail(0, nullptr));
    EXPECT_EQ(utltest::permissions("none"), -1);
    memory().mark();
    EXPECT_EQ(markedReport(), marked(""));
    std::string const rest =
        "         5, " + padded(utltest::kernelId(), 10) + ", " + std::string(34, ' ') + ",        9, ";
    allocate(someAddress(2), 5, ~0U, 9);
    EXPECT_EQ(markedReport(), marked(row(1, 1, someAddress(2), rest)));
    memory().mark();
    allocate(someAddress(3), 5, ~0U, 9);
    allocate(someAddress(1), 5, ~0U, 9);
    EXPECT_EQ(markedReport(), marked(row(1, 3, someAddress(1), rest) + row(2, 2, someAddress(3), rest)));
    // The mark outlives the tables, and serial numbers begin again below it.
    EXPECT_TRUE(memory().resetUsedHeap());
    allocate(someAddress(2), 5, ~0U, 9);
    EXPECT_EQ(markedReport(), marked(""));
    allocate(someAddress(1), 5, ~0U, 9);
    EXPECT_EQ(markedReport(), marked(row(1, 2, someAddress(1), rest)));
    Memory::destroy();
    EXPECT_FALSE(memory().printMarkedHeapDetail(0, "marked"));
}

TEST_F(MemoryOfThreeRows, AReport_OpensItsFileOnceWithTheToldFlagsAndReplacesIt) {
    HookScope const scope;
    static std::vector<std::string> sCalls;
    sCalls.clear();
    hooks::open.watch([](char const* path, int flags, mode_t mode) {
        if ((flags & O_DIRECTORY) != 0) {
            return;  // of a new folder's parent, to sync it
        }
        EXPECT_EQ(flags & ~O_LARGEFILE, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC);
        EXPECT_EQ(mode, 0777U);
        sCalls.push_back(path);
    });
    putFolder("made", 0700);
    utltest::putFile("made/report", std::string(5000, 'x'));
    EXPECT_TRUE(memory().printUsedHeapDetail(0, "made/report"));
    EXPECT_EQ(contentOf("made/report"), detail(""));
    EXPECT_EQ(utltest::permissions("made"), 0777);
    EXPECT_TRUE(memory().printUsedHeap(0, "new/deep/report"));
    EXPECT_EQ(utltest::permissions("new/deep"), 0777);
    EXPECT_EQ(sCalls, (std::vector<std::string>{"made/report", "new/deep/report"}));
}

TEST_F(MemoryOfThreeRows, AReport_WhoseFileCannotBeOpened_IsTrueAndWritesNowhere) {
    HookScope const scope;
    memory().mark();
    allocate(someAddress(1), 1);
    utltest::putFile("file", "kept");
    hooks::write.failFrom(1, 0, -1, EBADF);
    std::string const longName(260, 'x');
    for (char const* const path :
         {static_cast<char const*>(nullptr), "", "file/report", "/", longName.c_str(), "a//b", "made/"}) {
        EXPECT_TRUE(memory().printUsedHeap(0, path));
        EXPECT_TRUE(memory().printUsedHeapDetail(0, path));
        EXPECT_TRUE(memory().printMarkedHeapDetail(0, path));
    }
    hooks::open.failFrom(1, 1, -1, EACCES);
    EXPECT_TRUE(memory().printUsedHeap(0, "report"));
    hooks::mkdir.failFrom(1, 1, -1, EROFS);
    EXPECT_TRUE(memory().printUsedHeap(0, "folder/report"));
    EXPECT_EQ(hooks::open.calls(), 1U);
    EXPECT_EQ(hooks::write.calls(), 0U);
    EXPECT_EQ(contentOf("file"), "kept");
}

TEST_F(MemoryOfThreeRows, AReport_WhoseWritesFail_IsTrueAndClosesItsFile) {
    HookScope const scope;
    hooks::write.failFrom(2, 1, -1, ENOSPC);
    EXPECT_TRUE(memory().printUsedHeap(0, "report"));
    std::string const zero = padded(0, 13) + ", ";
    EXPECT_EQ(contentOf("report"), "---- ProcessHeap ----\n" + zero + zero + zero + zero + "\n");
}

TEST_F(MemoryOfThreeRows, PrintMessage_UpTo1023Bytes_IsWrittenInOneCall) {
    HookScope const scope;
    int const file = open("message", O_WRONLY | O_CREAT | O_TRUNC, 0600);
    for (unsigned int const length : {1022U, 1023U, 1024U, 3000U}) {
        hooks::write.failFrom(0, 0, 0, 0);
        memory().printMessage(1, file, "%s", std::string(length, 'm').c_str());
        EXPECT_EQ(hooks::write.calls(), length < 1024 ? 1U : 0U) << length;
    }
    memory().printMessage(1, file, "ab%cde", 0);
    memory().printMessage(1, -1, "nowhere");
    close(file);
    EXPECT_EQ(contentOf("message"), std::string(1022 + 1023, 'm') + "ab");
}

TEST_F(MemoryOfThreeRows, FileNames_AreCutBetweenCharactersAndFoundAgain) {
    std::string const kanji = "\xe6\x96\x87";
    std::string path = "ab";
    for (int i = 0; i < 90; ++i) {
        path += kanji;
    }
    EXPECT_EQ(memory().getFileId(path.c_str()), 0U);
    EXPECT_EQ(std::string(memory().getFileName(0)), path.substr(0, 257));
    EXPECT_EQ(memory().getFileId(path.c_str()), 0U);
    EXPECT_EQ(memory().getFileId(std::string(259, 'x').c_str()), 1U);
    EXPECT_EQ(std::string(memory().getFileName(1)), std::string(259, 'x'));
    EXPECT_EQ(memory().getFileId("third"), 0xFFFFFFFFU);
    EXPECT_EQ(memory().getFileId(nullptr), 0xFFFFFFFFU);
    EXPECT_EQ(memory().getFileId(std::string(259, 'x').c_str()), 1U);
    for (unsigned int const id : {2U, 3U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_STREQ(memory().getFileName(id), "");
    }
    memory().initializeManagementTable();
    EXPECT_STREQ(memory().getFileName(0), "");
}

TEST_F(MemoryOfThreeRows, ThreadNames_AreCutBetweenCharactersAndTakeNoRowTwice) {
    std::string name = "n";
    for (int i = 0; i < 43; ++i) {
        name += "\xe5\x90\x8d";
    }
    memory().registerThreadName(0, "zero");
    memory().registerThreadName(1, "");
    memory().registerThreadName(1, nullptr);
    EXPECT_EQ(MemoryAccess::threadNameCount(), 0U);
    for (int i = 0; i < 3; ++i) {
        memory().registerThreadName(-1, name.c_str());
    }
    EXPECT_EQ(MemoryAccess::threadNameCount(), 1U);
    EXPECT_EQ(std::string(memory().getThreadName(-1)), name.substr(0, 127));
    memory().registerThreadName(2, std::string(127, 'x').c_str());
    memory().registerThreadName(3, "third");
    EXPECT_EQ(std::string(memory().getThreadName(2)), std::string(127, 'x'));
    EXPECT_STREQ(memory().getThreadName(3), "");
    EXPECT_STREQ(memory().getThreadName(0), "");
}

TEST_F(MemoryOfThreeRows, WhileAReportIsWritten_AllocationsWait) {
    HookScope const scope;
    static std::atomic<bool> sDone;
    static std::thread sOther;
    sDone = false;
    memory().mark();
    hooks::open.watch([](char const*, int, mode_t) {
        sOther = std::thread([] {
            allocate(someAddress(1), 1);
            sDone = true;
        });
        for (int i = 0; i < 300; ++i) {
            std::this_thread::yield();
        }
        EXPECT_FALSE(sDone);
    });
    EXPECT_TRUE(memory().printMarkedHeapDetail(0, "report"));
    sOther.join();
    EXPECT_EQ(contentOf("report"), marked(""));
    EXPECT_EQ(MemoryAccess::count(), 1U);
}

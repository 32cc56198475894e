#include "UtlSubChunk.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "TestFileCalls.h"
#include "TestFolder.h"
#include "TestHooks.h"
#include "TestLayout.h"
#include "TestLog.h"
#include "TestRiff.h"
#include "TestStatements.h"
#include "UtlFile.h"
#include "UtlRiffFile.h"
#include "UtlWaveFile.h"

namespace {

using namespace utltest;
using utl::File;
using utl::INVALID_SIZE;
using utl::RiffFile;
using utl::SubChunk;
using utl::SubChunkInfo;
using HookScope = utltest::OwnHookScope;
namespace hooks = utltest::hooks;
using Names = std::vector<std::string>;

constexpr unsigned long long FIRST = 12;            // header of "abcd" in the file below
constexpr unsigned long long SECOND = 12 + 8 + 10;  // header of "ef"

std::string const CONTENT = riff("TEST", subChunk("abcd", "0123456789") + subChunk("ef  ", "ABC"));

class SubChunkInAFile : public utltest::InFolder {
  protected:
    SubChunkInAFile() { putFile("f", CONTENT); }

    void openFile(int access = File::ACCESS_READ_WRITE) { ASSERT_EQ(mFile.open(File::OPEN_KEEP, access), 1); }
    void openAt(unsigned long long position, int mode = SubChunk::AT_START,
                int access = File::ACCESS_READ_WRITE) {
        openFile(access);
        ASSERT_EQ(mSubChunk.open(&mFile, position, mode), 1);
    }

    std::string readText(unsigned int length) {
        std::string text(length, '?');
        int const count = mSubChunk.read(text.data(), length);
        return count < 0 ? std::to_string(count) : text.substr(0, static_cast<size_t>(count));
    }

    File mFile{"f", File::TEXT_UTF8};
    SubChunk mSubChunk;
};

TEST(SubChunkInfo, IsEmptyByDefault) {
    SubChunkInfo const info;
    EXPECT_EQ(info.mId, 0U);
    EXPECT_STREQ(info.mName.buffer(), "");
    EXPECT_EQ(info.mDataSize, 0U);
}

TEST(SubChunkInfo, HoldsWhatItIsGiven) {
    SubChunkInfo const info(7, "fmt", 16);
    EXPECT_EQ(info.mId, 7U);
    EXPECT_STREQ(info.mName.buffer(), "fmt");
    EXPECT_EQ(info.mDataSize, 16U);
    EXPECT_STREQ(SubChunkInfo(7, nullptr, 16).mName.buffer(), "");
}

TEST(SubChunkInfo, IsCopiedMemberByMember) {
    SubChunkInfo const info(7, "a longer name", 16);
    SubChunkInfo copy;
    copy = info;
    SubChunkInfo const another(info);
    for (SubChunkInfo const* const each : {static_cast<SubChunkInfo const*>(&copy), &another}) {
        EXPECT_EQ(each->mId, 7U);
        EXPECT_STREQ(each->mName.buffer(), "a longer name");
        EXPECT_NE(each->mName.buffer(), info.mName.buffer());
        EXPECT_EQ(each->mDataSize, 16U);
    }
}

TEST_F(SubChunkInAFile, IsClosedAtFirst) {
    EXPECT_EQ(mSubChunk.isOpened(), 0);
    EXPECT_EQ(mSubChunk.getSubChunkId(), nullptr);
    EXPECT_EQ(mSubChunk.getDataSize(), INVALID_SIZE);
    EXPECT_EQ(mSubChunk.position(), -1);
    EXPECT_EQ(mSubChunk.seek(File::FROM_START, 0), -1);
    EXPECT_EQ(readText(1), "-1");
    EXPECT_EQ(mSubChunk.write("x", 1), -1);
    EXPECT_EQ(mSubChunk.close(), 1);
}

TEST_F(SubChunkInAFile, ReadHeader_GivesIdAndSize_AndLeavesThePosition) {
    openFile(File::ACCESS_READ);
    mFile.seek(5, File::FROM_START);
    char id[5] = "????";
    unsigned int size = 0;
    EXPECT_EQ(SubChunk::readHeader(&mFile, FIRST, id, sizeof(id), &size), 0);
    EXPECT_STREQ(id, "abcd");
    EXPECT_EQ(size, 10U);
    EXPECT_EQ(SubChunk::readHeader(&mFile, SECOND, id, sizeof(id), &size), 0);
    EXPECT_STREQ(id, "ef");
    EXPECT_EQ(size, 3U);
    EXPECT_EQ(mFile.position(), 5);
}

TEST_F(SubChunkInAFile, ReadHeader_WantsNeitherIdNorSize) {
    openFile(File::ACCESS_READ);
    EXPECT_EQ(SubChunk::readHeader(&mFile, FIRST, nullptr, 0, nullptr), 0);
}

TEST_F(SubChunkInAFile, ReadHeader_IntoLessThan5Bytes_FailsWithNothingWritten) {
    openFile(File::ACCESS_READ);
    char id[4] = {'?', '?', '?', '?'};
    unsigned int size = 77;
    EXPECT_EQ(SubChunk::readHeader(&mFile, FIRST, id, sizeof(id), &size), -1);
    EXPECT_EQ(std::string(id, 4), "????");
    EXPECT_EQ(size, 77U);
}

TEST_F(SubChunkInAFile, ReadHeader_AtTheEndOfTheFile_GivesMinusThree) {
    openFile(File::ACCESS_READ);
    mFile.seek(5, File::FROM_START);
    char id[5] = "????";
    unsigned int size = 77;
    EXPECT_EQ(SubChunk::readHeader(&mFile, CONTENT.size(), id, sizeof(id), &size), File::END_OF_FILE);
    EXPECT_EQ(SubChunk::readHeader(&mFile, CONTENT.size() + 1000, id, sizeof(id), &size), File::END_OF_FILE);
    EXPECT_STREQ(id, "????");
    EXPECT_EQ(size, 77U);
    EXPECT_EQ(mFile.position(), 5);
}

// One byte, two, ... of a header that is cut off.
TEST_F(SubChunkInAFile, ReadHeader_OfAPartOfAHeader_Fails) {
    for (unsigned int there = 1; there < 8; ++there) {
        putFile("f", CONTENT.substr(0, FIRST + there));
        openFile(File::ACCESS_READ);
        mFile.seek(5, File::FROM_START);
        char id[5];
        EXPECT_EQ(SubChunk::readHeader(&mFile, FIRST, id, sizeof(id), nullptr), -1) << there;
        EXPECT_EQ(mFile.position(), 5);
        mFile.close();
    }
}

TEST_F(SubChunkInAFile, ReadHeader_OfNoOpenFile_Fails) {
    EXPECT_EQ(SubChunk::readHeader(nullptr, FIRST, nullptr, 0, nullptr), -1);
    EXPECT_EQ(SubChunk::readHeader(&mFile, FIRST, nullptr, 0, nullptr), -1);
}

TEST_F(SubChunkInAFile, ReadHeader_OfAnIdInNoUtf8_Fails) {
    putFile("f", riff("TEST", subChunk("ab\xFF\xFE", "data")));
    openFile(File::ACCESS_READ);
    char id[5] = "????";
    EXPECT_EQ(SubChunk::readHeader(&mFile, FIRST, id, sizeof(id), nullptr), -1);
}

TEST_F(SubChunkInAFile, ReadHeader_WhereASeekFails_Fails) {
    HookScope const scope;
    LogCapture const log;
    for (unsigned int nth = 1;; ++nth) {
        openFile(File::ACCESS_READ);
        hooks::lseek.failFrom(nth, 1, -1, EIO);
        int const result = SubChunk::readHeader(&mFile, FIRST, nullptr, 0, nullptr);
        bool const wasReached = hooks::lseek.calls() >= nth;
        hooks::lseek.reset();
        mFile.close();
        if (!wasReached) {
            EXPECT_EQ(result, 0);
            break;
        }
        EXPECT_EQ(result, -1) << nth;
    }
}

TEST_F(SubChunkInAFile, Add_WritesThePaddedId_AndHoldsItWithoutBlanks) {
    openFile();
    EXPECT_EQ(mSubChunk.add(&mFile, "fmt"), 1);
    EXPECT_EQ(contentOf("f"), CONTENT + "fmt " + littleEndian(0));
    EXPECT_STREQ(mSubChunk.getSubChunkId(), "fmt");
    EXPECT_EQ(mSubChunk.isOpened(), 1);
    EXPECT_EQ(mSubChunk.getDataSize(), 0U);
    EXPECT_EQ(mSubChunk.position(), 0);
}

TEST_F(SubChunkInAFile, Add_TakesIdsOf0To4Bytes) {
    openFile();
    std::string expected = CONTENT;
    for (char const* const id : {"", "a", "ab", "abc", "abcd"}) {
        EXPECT_EQ(mSubChunk.add(&mFile, id), 1) << id;
        EXPECT_STREQ(mSubChunk.getSubChunkId(), id);
        EXPECT_EQ(mSubChunk.close(), 1);
        expected += std::string(id) + std::string(4 - std::strlen(id), ' ') + littleEndian(0);
    }
    EXPECT_EQ(contentOf("f"), expected);
}

TEST_F(SubChunkInAFile, Add_OfA5ByteId_WritesNothing) {
    openFile();
    EXPECT_EQ(mSubChunk.add(&mFile, "abcde"), 0);
    EXPECT_EQ(contentOf("f"), CONTENT);
    EXPECT_EQ(mSubChunk.isOpened(), 0);
}

TEST_F(SubChunkInAFile, Add_WithoutAnOpenFileOrAnId_Fails) {
    EXPECT_EQ(mSubChunk.add(nullptr, "abcd"), 0);
    EXPECT_EQ(mSubChunk.add(&mFile, "abcd"), 0);
    openFile();
    EXPECT_EQ(mSubChunk.add(&mFile, nullptr), 0);
    EXPECT_EQ(contentOf("f"), CONTENT);
}

TEST_F(SubChunkInAFile, Add_WhileOpen_FailsAndChangesNothing) {
    openAt(FIRST);
    EXPECT_EQ(mSubChunk.add(&mFile, "more"), 0);
    EXPECT_EQ(mSubChunk.open(&mFile, SECOND, SubChunk::AT_START), 0);
    EXPECT_STREQ(mSubChunk.getSubChunkId(), "abcd");
    EXPECT_EQ(contentOf("f"), CONTENT);
}

TEST_F(SubChunkInAFile, Add_OfAnIdInNoUtf8_Fails) {
    openFile();
    EXPECT_EQ(mSubChunk.add(&mFile, "a\xFF"), 0);
    EXPECT_EQ(mSubChunk.isOpened(), 0);
}

TEST_F(SubChunkInAFile, Add_WhereTheFileCannotBeWritten_StaysClosed) {
    HookScope const scope;
    LogCapture const log;
    openFile();
    hooks::write.failFrom(1, 1, -1, ENOSPC);
    EXPECT_EQ(mSubChunk.add(&mFile, "abcd"), 0);
    hooks::write.failFrom(2, 1, -1, ENOSPC);
    EXPECT_EQ(mSubChunk.add(&mFile, "abcd"), 0);
    hooks::write.reset();
    hooks::lseek.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(mSubChunk.add(&mFile, "abcd"), 0);
    EXPECT_EQ(mSubChunk.isOpened(), 0);
}

TEST_F(SubChunkInAFile, Open_Mode0_StandsAtTheFirstByteOfData) {
    openAt(FIRST, SubChunk::AT_START);
    EXPECT_EQ(mSubChunk.isOpened(), 1);
    EXPECT_STREQ(mSubChunk.getSubChunkId(), "abcd");
    EXPECT_EQ(mSubChunk.getDataSize(), 10U);
    EXPECT_EQ(mSubChunk.position(), 0);
    EXPECT_EQ(mFile.position(), 20);
}

TEST_F(SubChunkInAFile, Open_Mode1_StandsBehindTheData) {
    openAt(FIRST, SubChunk::AT_END);
    EXPECT_EQ(mSubChunk.position(), 10);
}

TEST_F(SubChunkInAFile, Open_AnotherMode_Fails) {
    openFile();
    for (int const mode : {-1, 2, INT_MAX, INT_MIN}) {
        EXPECT_EQ(mSubChunk.open(&mFile, FIRST, mode), 0);
        EXPECT_EQ(mSubChunk.isOpened(), 0);
    }
}

TEST_F(SubChunkInAFile, Open_WithoutAWholeHeader_Fails) {
    openFile();
    EXPECT_EQ(mSubChunk.open(&mFile, CONTENT.size(), SubChunk::AT_START), 0);
    EXPECT_EQ(mSubChunk.open(&mFile, CONTENT.size() - 7, 0), 0);
    EXPECT_EQ(mSubChunk.open(&mFile, CONTENT.size() - 1, 0), 0);
    EXPECT_EQ(mSubChunk.open(nullptr, FIRST, 0), 0);
    mFile.close();
    EXPECT_EQ(mSubChunk.open(&mFile, FIRST, SubChunk::AT_START), 0);
}

TEST_F(SubChunkInAFile, Open_OfAnIdInNoUtf8_Fails) {
    putFile("f", riff("TEST", subChunk("ab\xFF\xFE", "data")));
    openFile();
    EXPECT_EQ(mSubChunk.open(&mFile, FIRST, SubChunk::AT_START), 0);
    EXPECT_EQ(mSubChunk.isOpened(), 0);
}

TEST_F(SubChunkInAFile, Read_StopsAtTheEndOfTheData) {
    openAt(FIRST);
    EXPECT_EQ(readText(4), "0123");
    EXPECT_EQ(readText(100), "456789");
    EXPECT_EQ(readText(1), "-4");
    EXPECT_EQ(mSubChunk.position(), 10);
}

TEST_F(SubChunkInAFile, Read_WithExactlyWhatRemains_GivesIt) {
    openAt(FIRST);
    EXPECT_EQ(readText(9), "012345678");
    EXPECT_EQ(readText(1), "9");
    EXPECT_EQ(readText(1), "-4");
}

TEST_F(SubChunkInAFile, Read_WhereTheFileEndsBeforeTheData_GivesMinusFour) {
    putFile("f", riff("TEST", utltest::liarChunk("abcd", 1000, "0123")));
    openAt(FIRST);
    EXPECT_EQ(readText(100), "0123");
    EXPECT_EQ(readText(100), "-4");
}

TEST_F(SubChunkInAFile, Read_OfNullOrANegativeLength_Fails) {
    openAt(FIRST);
    char buffer[1];
    EXPECT_EQ(mSubChunk.read(nullptr, 1), -1);
    EXPECT_EQ(mSubChunk.read(buffer, 0x80000000U), -1);
    EXPECT_EQ(mSubChunk.write(nullptr, 1), -1);
    EXPECT_EQ(mSubChunk.write(buffer, 0x80000000U), -1);
}

TEST_F(SubChunkInAFile, Read_OfNoBytes_FailsInsideAndEndsAtTheEnd) {
    openAt(FIRST);
    char buffer[1];
    EXPECT_EQ(mSubChunk.read(buffer, 0), -1);
    mSubChunk.seek(File::FROM_END, 0);
    EXPECT_EQ(mSubChunk.read(buffer, 0), SubChunk::END_OF_DATA);
}

TEST_F(SubChunkInAFile, Read_WhereTheSystemFails_Fails) {
    HookScope const scope;
    LogCapture const log;
    openAt(FIRST);
    hooks::pread.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(readText(1), "-1");
    ASSERT_EQ(mSubChunk.seek(File::FROM_START, 0), 0);
    hooks::lseek.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(readText(1), "-1") << "the position is the system's after a seek";
}

TEST_F(SubChunkInAFile, Write_BehindAdd_LeavesTheSizeInTheHeaderAfterClose) {
    openFile();
    ASSERT_EQ(mSubChunk.add(&mFile, "new"), 1);
    EXPECT_EQ(mSubChunk.write("0123456789", 10), 10);
    EXPECT_EQ(mSubChunk.getDataSize(), 10U);
    EXPECT_EQ(contentOf("f"), CONTENT + "new " + littleEndian(0) + "0123456789");
    EXPECT_EQ(mSubChunk.close(), 1);
    EXPECT_EQ(contentOf("f"), CONTENT + subChunk("new ", "0123456789"));
    EXPECT_EQ(mSubChunk.isOpened(), 0);
    EXPECT_EQ(mSubChunk.getDataSize(), INVALID_SIZE);
}

TEST_F(SubChunkInAFile, Write_InsideTheData_KeepsTheSize) {
    openAt(SECOND);
    EXPECT_EQ(mSubChunk.write("xyz", 3), 3);
    EXPECT_EQ(mSubChunk.getDataSize(), 3U);
    EXPECT_EQ(mSubChunk.write("!", 1), 1);
    EXPECT_EQ(mSubChunk.getDataSize(), 4U);
}

TEST_F(SubChunkInAFile, Open_Mode1AndWrite_MakesTheDataLonger) {
    openAt(SECOND, SubChunk::AT_END);
    EXPECT_EQ(mSubChunk.write("DE", 2), 2);
    EXPECT_EQ(mSubChunk.close(), 1);
    EXPECT_EQ(contentOf("f"), CONTENT.substr(0, SECOND) + subChunk("ef  ", "ABCDE"));
}

TEST_F(SubChunkInAFile, Write_WhereTheSystemFails_FailsAndKeepsTheSize) {
    HookScope const scope;
    LogCapture const log;
    openAt(SECOND, SubChunk::AT_END);
    hooks::write.failFrom(1, 1, -1, ENOSPC);
    EXPECT_EQ(mSubChunk.write("x", 1), -1);
    EXPECT_EQ(mSubChunk.getDataSize(), 3U);
    hooks::lseek.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(mSubChunk.write("x", 1), -1);
}

// The file has a hole of 4 GiB; on a 32-bit machine as well.
TEST_F(SubChunkInAFile, Write_BeyondWhat32BitsCanSay_Fails) {
    openAt(SECOND);
    long long const start = static_cast<long long>(SECOND) + 8;
    mFile.seek(start + 0xFFFFFFFFLL - 1, File::FROM_START);
    EXPECT_EQ(mSubChunk.write("x", 1), 1);
    EXPECT_EQ(mSubChunk.getDataSize(), 0xFFFFFFFFU);
    EXPECT_EQ(mSubChunk.write("x", 1), -1);
    EXPECT_EQ(mSubChunk.getDataSize(), 0xFFFFFFFFU);
}

TEST_F(SubChunkInAFile, Read_NearTheEndOf4GiB_Works) {
    putFile("f", riff("TEST", utltest::liarChunk("abcd", 0xFFFFFFFFU, "")));
    std::filesystem::resize_file("f", FIRST + 8 + 0xFFFFFFFFULL);
    openAt(FIRST, SubChunk::AT_END);
    EXPECT_EQ(mSubChunk.position(), 0xFFFFFFFFLL);
    EXPECT_EQ(mSubChunk.seek(File::FROM_END, -2), 0xFFFFFFFDLL);
    EXPECT_EQ(readText(5), std::string(2, '\0'));
    EXPECT_EQ(readText(5), "-4");
}

struct SeekRow {
    long long from;
    int origin;
    long long offset;
    long long reached;
};

// The data have 10 bytes.
SeekRow const SEEK_ROWS[] = {
    {3, 0, 0, 0},          {3, 0, 10, 10},        {3, 0, 11, -1},        {3, 0, -1, -1},   //
    {3, 1, 0, 10},         {3, 1, -10, 0},        {3, 1, -11, -1},       {3, 1, 1, -1},    //
    {3, 2, 0, 3},          {3, 2, -3, 0},         {3, 2, -4, -1},        {3, 2, 7, 10},    //
    {3, 2, 8, -1},         {3, 3, 0, -1},         {3, -1, 0, -1},        {12, 2, -1, -1},  //
    {12, 2, -2, 10},       {12, 2, 0, -1},        {-2, 2, 0, -1},        {-2, 2, 2, 0},    //
    {3, 0, LLONG_MAX, -1}, {3, 0, LLONG_MIN, -1}, {3, 1, LLONG_MIN, -1}, {3, 2, LLONG_MAX, -1},
    {3, 2, LLONG_MIN, -1},
};

TEST_F(SubChunkInAFile, Seek_StaysInsideTheData) {
    openAt(FIRST);
    for (SeekRow const& row : SEEK_ROWS) {
        mFile.seek(20 + row.from, File::FROM_START);
        EXPECT_EQ(mSubChunk.seek(row.origin, row.offset), row.reached)
            << row.from << ' ' << row.origin << ' ' << row.offset;
        EXPECT_EQ(mFile.position(), 20 + (row.reached == -1 ? row.from : row.reached));
    }
}

TEST_F(SubChunkInAFile, Seek_WhereTheSystemFails_Fails) {
    HookScope const scope;
    LogCapture const log;
    openAt(FIRST);
    hooks::lseek.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(mSubChunk.seek(File::FROM_START, 1), -1);
    hooks::lseek.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(mSubChunk.seek(File::FROM_POSITION, 1), -1);
    ASSERT_EQ(mSubChunk.seek(File::FROM_START, 0), 0);
    hooks::lseek.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(mSubChunk.position(), -1);
}

TEST_F(SubChunkInAFile, Position_InFrontOfTheDataFails_AndBehindThemIsTold) {
    openAt(FIRST);
    mFile.seek(19, File::FROM_START);
    EXPECT_EQ(mSubChunk.position(), -1);
    mFile.seek(20, File::FROM_START);
    EXPECT_EQ(mSubChunk.position(), 0);
    mFile.seek(31, File::FROM_START);
    EXPECT_EQ(mSubChunk.position(), 11);
}

TEST_F(SubChunkInAFile, Close_OfAnUnchangedSubChunk_WritesNothing) {
    HookScope const scope;
    openAt(FIRST);
    ASSERT_EQ(readText(4), "0123");
    EXPECT_EQ(mSubChunk.close(), 1);
    EXPECT_EQ(hooks::write.calls(), 0U);
    EXPECT_EQ(mFile.position(), static_cast<long long>(FIRST) + 8);
}

TEST_F(SubChunkInAFile, Close_WorksOnAFileThatIsOpenForReading) {
    openAt(FIRST, SubChunk::AT_START, File::ACCESS_READ);
    EXPECT_EQ(mSubChunk.close(), 1);
}

TEST_F(SubChunkInAFile, Close_OnFailure_StaysOpenAndCanBeTriedAgain) {
    HookScope const scope;
    LogCapture const log;
    openAt(SECOND, SubChunk::AT_END);
    ASSERT_EQ(mSubChunk.write("D", 1), 1);
    for (auto const& fail :
         {+[] { hooks::lseek.failFrom(1, 1, -1, EIO); }, +[] { hooks::pread.failFrom(1, 1, -1, EIO); },
          +[] { hooks::write.failFrom(1, 1, -1, EIO); }}) {
        fail();
        EXPECT_EQ(mSubChunk.close(), 0);
        EXPECT_EQ(mSubChunk.isOpened(), 1);
        EXPECT_EQ(mSubChunk.getDataSize(), 4U);
    }
    EXPECT_EQ(mSubChunk.close(), 1);
    EXPECT_EQ(contentOf("f"), CONTENT.substr(0, SECOND) + subChunk("ef  ", "ABCD"));
}

TEST_F(SubChunkInAFile, OfAClosedFile_CountsAsNotOpenUntilTheFileIsOpenAgain) {
    openAt(FIRST);
    mFile.close();
    EXPECT_EQ(mSubChunk.isOpened(), 1);
    EXPECT_EQ(mSubChunk.getSubChunkId(), nullptr);
    EXPECT_EQ(mSubChunk.getDataSize(), INVALID_SIZE);
    EXPECT_EQ(readText(1), "-1");
    EXPECT_EQ(mSubChunk.seek(File::FROM_START, 0), -1);
    EXPECT_EQ(mSubChunk.position(), -1);
    EXPECT_EQ(mSubChunk.close(), 0);
    openFile();
    EXPECT_EQ(mSubChunk.add(&mFile, "more"), 0);
    EXPECT_EQ(mSubChunk.seek(File::FROM_START, 3), 3);
    EXPECT_EQ(readText(2), "34");
    EXPECT_EQ(mSubChunk.close(), 1);
}

TEST_F(SubChunkInAFile, Destructor_Closes) {
    openFile();
    {
        SubChunk added;
        ASSERT_EQ(added.add(&mFile, "new"), 1);
        ASSERT_EQ(added.write("12", 2), 2);
    }
    EXPECT_EQ(contentOf("f"), CONTENT + subChunk("new ", "12"));
}

TEST_F(SubChunkInAFile, AutoClose_ClosesAtTheEndOfItsScope) {
    openAt(FIRST);
    { SubChunk::AutoClose const closing(mSubChunk); }
    EXPECT_EQ(mSubChunk.isOpened(), 0);
}

TEST_F(SubChunkInAFile, WriteSubChunKId_WritesAtThePosition) {
    openFile();
    mFile.seek(static_cast<long long>(FIRST), File::FROM_START);
    EXPECT_EQ(SubChunk::writeSubChunKId("xy", &mFile), 1);
    EXPECT_EQ(contentOf("f").substr(FIRST, 4), "xy  ");
    EXPECT_EQ(mFile.position(), static_cast<long long>(FIRST) + 4);
}

TEST_F(SubChunkInAFile, WriteSubChunKId_OfNullOrTooMuch_Fails) {
    openFile();
    EXPECT_EQ(SubChunk::writeSubChunKId(nullptr, &mFile), 0);
    EXPECT_EQ(SubChunk::writeSubChunKId("abcd", nullptr), 0);
    EXPECT_EQ(SubChunk::writeSubChunKId("abcde", &mFile), 0);
    EXPECT_EQ(contentOf("f"), CONTENT);
}

TEST_F(SubChunkInAFile, LogsNothingItself) {
    LogCapture const log;
    openAt(FIRST);
    mSubChunk.add(&mFile, "abcde");
    mSubChunk.seek(File::FROM_START, 99);
    mSubChunk.read(nullptr, 1);
    mSubChunk.close();
    EXPECT_TRUE(log.lines().empty());
}

TEST(SubChunkNames, AreTheNumbersThatCallersPassAndGet) {
    static_assert(SubChunk::AT_START == 0 && SubChunk::AT_END == 1);
    static_assert(SubChunk::END_OF_DATA == -4);
}

TEST(SubChunkTraits, WhatTakesNoLockNeverThrows) {
    static_assert(noexcept(std::declval<SubChunk const&>().isOpened()));
    static_assert(std::is_nothrow_constructible_v<SubChunk::AutoClose, SubChunk&>);
}

TEST(SubChunkTraits, NeitherASubChunkNorItsAutoClose_IsCopied) {
    static_assert(!std::is_copy_constructible_v<SubChunk> && !std::is_copy_assignable_v<SubChunk>);
    static_assert(!std::is_copy_constructible_v<SubChunk::AutoClose>);
    static_assert(!std::is_copy_assignable_v<SubChunk::AutoClose>);
}

// At the limits, in odd orders, and on files that fail or lie.

constexpr unsigned long long GIB4 = 0x100000000ULL;
Names const NONE;

using SubChunkAtItsLimits = InLoggedFolder;
using SubChunkStatements = WithStatements;

TEST_F(SubChunkAtItsLimits, FieldsStandInTheirOrder) {
    static_assert(sizeof(SubChunk) == sizeof(SubChunkFields));
    static_assert(std::has_virtual_destructor_v<SubChunk>);
    static_assert(std::has_virtual_destructor_v<SubChunk::AutoClose>);
    static_assert(!std::is_polymorphic_v<SubChunkInfo>);
    SubChunkInfo const info(1, "a", 2);
    EXPECT_TRUE(utltest::areRising(utltest::offsetsIn(info, info.mId, info.mName, info.mDataSize)));
    EXPECT_EQ(offsetIn(info, info.mId), 0U);

    SubChunkFields const fields{};
    putFile("f", "0123456" + liarChunk("ab  ", 0x11223344, "xyz"));
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE));
    SubChunk chunk;
    ASSERT_TRUE(chunk.open(&file, 7, SubChunk::AT_START));
    EXPECT_EQ(fieldAt<File*>(chunk, offsetIn(fields, fields.file)), &file);
    EXPECT_STREQ((fieldAt<std::array<char, 5>>(chunk, offsetIn(fields, fields.id)).data()), "ab");
    EXPECT_EQ(fieldAt<unsigned int>(chunk, offsetIn(fields, fields.dataSize)), 0x11223344U);
    EXPECT_EQ(fieldAt<unsigned long long>(chunk, offsetIn(fields, fields.position)), 7U);
    EXPECT_TRUE(fieldAt<bool>(chunk, offsetIn(fields, fields.opened)));
    ASSERT_TRUE(chunk.close());
    EXPECT_EQ(fieldAt<File*>(chunk, offsetIn(fields, fields.file)), nullptr);
    EXPECT_EQ((fieldAt<std::array<char, 5>>(chunk, offsetIn(fields, fields.id))), (std::array<char, 5>{}));
    EXPECT_EQ(fieldAt<unsigned int>(chunk, offsetIn(fields, fields.dataSize)), 0U);
    EXPECT_EQ(fieldAt<unsigned long long>(chunk, offsetIn(fields, fields.position)), 0U);
    EXPECT_FALSE(fieldAt<bool>(chunk, offsetIn(fields, fields.opened)));
}

TEST_F(SubChunkAtItsLimits, ReadHeader_AtEveryPlaceOfAFile_TellsEndFromPartAndPutsThePositionBack) {
    std::string const whole = "0123" + subChunk("ab  ", "xyz");
    putFile("f", whole);
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ));
    ASSERT_EQ(file.seek(3, File::FROM_START), 3);
    for (unsigned long long place : {0ULL, 7ULL, 8ULL, 11ULL, 14ULL, 15ULL, 16ULL, GIB4, GIB4 * 4}) {
        int const expected = place + 8 <= whole.size() ? 0 : place < whole.size() ? -1 : -3;
        EXPECT_EQ(SubChunk::readHeader(&file, place, nullptr, 0, nullptr), expected) << place;
        EXPECT_EQ(file.position(), 3) << place;
    }
    // Where no file can have a place.
    EXPECT_EQ(SubChunk::readHeader(&file, ~0ULL, nullptr, 0, nullptr), File::END_OF_FILE);
    EXPECT_EQ(file.position(), 3);
    char id[6] = "kept";
    unsigned int size = 77;
    EXPECT_EQ(SubChunk::readHeader(&file, 4, id, 4, &size), -1);
    EXPECT_STREQ(id, "kept");
    EXPECT_EQ(SubChunk::readHeader(&file, 15, id, 0, &size), File::END_OF_FILE)
        << "the end comes before the small buffer";
    EXPECT_EQ(SubChunk::readHeader(&file, 4, id, 5, nullptr), 0);
    EXPECT_STREQ(id, "ab");
    EXPECT_EQ(SubChunk::readHeader(&file, 4, nullptr, 0, &size), 0);
    EXPECT_EQ(size, 3U);
    EXPECT_EQ(file.position(), 3);
    ASSERT_TRUE(file.close());
    EXPECT_EQ(SubChunk::readHeader(&file, 4, nullptr, 0, nullptr), -1);
    EXPECT_EQ(SubChunk::readHeader(nullptr, 4, nullptr, 0, nullptr), -1);
}

TEST_F(SubChunkAtItsLimits, ReadHeader_WhereAnyCallFails_IsMinusOneAndPutsBackWhatItCan) {
    putFile("f", "0123" + subChunk("ab  ", "xyz"));
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ));
    for (unsigned int nth : {1U, 2U}) {
        ASSERT_EQ(file.seek(3, File::FROM_START), 3);
        HookScope const scope;
        hooks::pread.failFrom(nth, 1, -1, EIO);
        EXPECT_EQ(SubChunk::readHeader(&file, 4, nullptr, 0, nullptr), -1);
        EXPECT_EQ(file.position(), 3);
    }
    bool failed = true;
    unsigned int nth = 0;
    while (failed) {
        ASSERT_EQ(file.seek(3, File::FROM_START), 3);
        HookScope const scope;
        hooks::lseek.failFrom(++nth, 1, -1, EIO);
        int const result = SubChunk::readHeader(&file, 4, nullptr, 0, nullptr);
        failed = hooks::lseek.calls() >= nth;
        EXPECT_EQ(result, failed ? -1 : 0) << nth;
    }
    EXPECT_GT(nth, 3U);
}

TEST_F(SubChunkAtItsLimits, Ids_ThatAreMalformedHaveZerosOrJapanese_AreReadOrRefusedWhole) {
    struct Case {
        std::string bytes;
        bool opens;
        char const* text;
    };
    using namespace std::string_literals;
    for (Case const& each :
         {Case{"\xE3\x81\x82 "s, true, "\xE3\x81\x82"}, Case{"a\0b "s, true, "a"},
          Case{"\0\0\0\0"s, true, ""}, Case{"    "s, true, ""}, Case{" ab "s, true, " ab"},
          Case{"ab\t\n"s, true, "ab"}, Case{"\xFF\xFF\xFF\xFF"s, false, ""}, Case{"abc\xE3"s, false, ""}}) {
        putFile("f", riff("TEST", subChunk(each.bytes, "xyz")));
        File file("f", File::TEXT_UTF8);
        ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ));
        char id[5] = "kept";
        EXPECT_EQ(SubChunk::readHeader(&file, 12, id, 5, nullptr), each.opens ? 0 : -1) << each.bytes;
        SubChunk chunk;
        EXPECT_EQ(chunk.open(&file, 12, SubChunk::AT_START), each.opens) << each.bytes;
        EXPECT_EQ(chunk.isOpened(), each.opens);
        if (each.opens) {
            EXPECT_STREQ(id, each.text);
            EXPECT_STREQ(chunk.getSubChunkId(), each.text);
        } else {
            EXPECT_EQ(chunk.getSubChunkId(), nullptr);
        }
        EXPECT_TRUE(chunk.close());
        ASSERT_TRUE(file.close());
        RiffFile container("f", 1);
        EXPECT_EQ(container.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), each.opens ? 0 : 1)
            << each.bytes;
        EXPECT_EQ(container.isOpened(), each.opens);
        EXPECT_TRUE(container.close());
    }
}

TEST_F(SubChunkAtItsLimits, Add_FailsWithoutATraceWhereItIsRefused) {
    putFile("f", "0123456789");
    File file("f", File::TEXT_UTF8);
    SubChunk chunk;
    EXPECT_FALSE(chunk.add(&file, "fmt"));
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE));
    EXPECT_FALSE(chunk.add(nullptr, "fmt"));
    EXPECT_FALSE(chunk.add(&file, nullptr));
    EXPECT_FALSE(chunk.add(&file, "fmt12"));
    EXPECT_FALSE(chunk.isOpened());
    EXPECT_EQ(contentOf("f"), "0123456789");
    EXPECT_FALSE(SubChunk::writeSubChunKId("fmt12", &file));
    EXPECT_FALSE(SubChunk::writeSubChunKId(nullptr, &file));
    EXPECT_FALSE(SubChunk::writeSubChunKId("fmt", nullptr));
    EXPECT_EQ(contentOf("f"), "0123456789");
    ASSERT_TRUE(chunk.add(&file, ""));
    EXPECT_EQ(contentOf("f"), "0123456789" + subChunk("    ", ""));
    EXPECT_STREQ(chunk.getSubChunkId(), "");
    EXPECT_EQ(chunk.position(), 0);
    EXPECT_FALSE(chunk.add(&file, "more"));
    EXPECT_FALSE(chunk.open(&file, 10, SubChunk::AT_START));
    EXPECT_EQ(contentOf("f").size(), 18U);
    EXPECT_TRUE(chunk.close());
}

TEST_F(SubChunkAtItsLimits, Seek_ToTargetsNoNumberHolds_IsRefusedInPlace) {
    putFile("f", riff("TEST", subChunk("one ", "0123456789") + subChunk("two ", "xx")));
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ));
    SubChunk chunk;
    ASSERT_TRUE(chunk.open(&file, 12, SubChunk::AT_START));
    ASSERT_EQ(chunk.seek(File::FROM_START, 4), 4);
    struct Target {
        int origin;
        long long offset;
    };
    for (Target const& target : {Target{0, LLONG_MAX},
                                 {0, LLONG_MIN},
                                 {0, -1},
                                 {0, 11},
                                 {1, LLONG_MIN},
                                 {1, LLONG_MAX},
                                 {1, 1},
                                 {1, -11},
                                 {2, LLONG_MAX},
                                 {2, LLONG_MIN},
                                 {2, 7},
                                 {2, -5},
                                 {3, 0},
                                 {-1, 0}}) {
        EXPECT_EQ(chunk.seek(target.origin, target.offset), -1) << target.origin << " " << target.offset;
        EXPECT_EQ(chunk.position(), 4);
    }
    EXPECT_EQ(chunk.seek(File::FROM_POSITION, 6), 10);
    EXPECT_EQ(chunk.seek(File::FROM_POSITION, 0), 10);
    EXPECT_EQ(chunk.seek(File::FROM_POSITION, -10), 0);
    EXPECT_EQ(chunk.seek(File::FROM_END, -10), 0);
    EXPECT_EQ(chunk.seek(File::FROM_END, 0), 10);
    // From outside the data, before them and after them.
    for (long long outside : {3LL, 33LL}) {
        ASSERT_EQ(file.seek(outside, File::FROM_START), outside);
        EXPECT_EQ(chunk.seek(File::FROM_POSITION, 0), -1);
        EXPECT_EQ(file.position(), outside);
        EXPECT_EQ(chunk.position(), outside == 33 ? 13 : -1);
        EXPECT_EQ(chunk.seek(File::FROM_START, 0), 0);
    }
    EXPECT_TRUE(chunk.close());
    EXPECT_EQ(chunk.seek(File::FROM_START, 0), -1);
}

TEST_F(SubChunkAtItsLimits, Read_JudgesItsArgumentsThenTheEndThenTheLength) {
    putFile("f", liarChunk("one ", 9, "01234"));
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ));
    SubChunk chunk;
    char buffer[16] = {};
    EXPECT_EQ(chunk.read(buffer, 1), -1);
    ASSERT_TRUE(chunk.open(&file, 0, SubChunk::AT_START));
    EXPECT_EQ(chunk.read(nullptr, 1), -1);
    EXPECT_EQ(chunk.read(buffer, 0x80000000U), -1);
    EXPECT_EQ(chunk.read(buffer, 0), -1);
    EXPECT_EQ(chunk.read(buffer, 0x7FFFFFFF), 5);
    EXPECT_EQ(chunk.read(buffer, 1), SubChunk::END_OF_DATA) << "the file ends before the data do";
    EXPECT_EQ(chunk.seek(File::FROM_END, 0), 9);
    EXPECT_EQ(chunk.read(buffer, 0), SubChunk::END_OF_DATA);
    EXPECT_EQ(chunk.read(buffer, 0x80000000U), -1);
    EXPECT_EQ(chunk.read(nullptr, 1), -1);
    EXPECT_TRUE(chunk.close());
    EXPECT_EQ(contentOf("f"), liarChunk("one ", 9, "01234"));
}

TEST_F(SubChunkAtItsLimits, Write_OverTheEndAndShort_GrowsTheDataByWhatWentBeyond) {
    putFile("f", subChunk("one ", "0123456789"));
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE));
    SubChunk chunk;
    ASSERT_TRUE(chunk.open(&file, 0, SubChunk::AT_START));
    EXPECT_EQ(chunk.write("ab", 2), 2);
    EXPECT_EQ(chunk.getDataSize(), 10U);
    EXPECT_EQ(chunk.seek(File::FROM_END, -1), 9);
    EXPECT_EQ(chunk.write("xyz", 3), 3);
    EXPECT_EQ(chunk.getDataSize(), 12U);
    {
        HookScope const scope;
        hooks::write.replace([](int descriptor, void const* bytes, size_t length) {
            return hooks::write.real(descriptor, bytes, length / 2);
        });
        EXPECT_EQ(chunk.write("01234567", 8), 4);
    }
    EXPECT_EQ(chunk.getDataSize(), 16U);
    EXPECT_EQ(chunk.write(nullptr, 1), -1);
    EXPECT_EQ(chunk.write("x", 0), -1);
    EXPECT_EQ(chunk.write("x", 0x80000000U), -1);
    EXPECT_EQ(chunk.getDataSize(), 16U);
    EXPECT_EQ(contentOf("f").substr(4, 4), littleEndian(10)) << "before the close";
    EXPECT_TRUE(chunk.close());
    EXPECT_EQ(contentOf("f"), subChunk("one ", "ab2345678xyz0123"));
}

TEST_F(SubChunkAtItsLimits, Close_WhoseAnyCallFails_StaysOpenAndCanBeTriedAgain) {
    using Hooked = std::function<void(unsigned int)>;
    std::vector<Hooked> const faults{[](unsigned int nth) { hooks::lseek.failFrom(nth, 1, -1, EIO); },
                                     [](unsigned int nth) { hooks::pread.failFrom(nth, 1, -1, EIO); },
                                     [](unsigned int nth) { hooks::write.failFrom(nth, 1, -1, EIO); }};
    for (std::size_t fault = 0; fault < faults.size(); ++fault) {
        putFile("f", subChunk("one ", "0123"));
        File file("f", File::TEXT_UTF8);
        ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE));
        unsigned int failures = 0;
        for (bool failed = true; failed;) {
            SubChunk chunk;
            ASSERT_TRUE(chunk.open(&file, 0, SubChunk::AT_END));
            ASSERT_EQ(chunk.write("+", 1), 1);
            unsigned int const size = chunk.getDataSize();
            {
                HookScope const scope;
                faults[fault](failures + 1);
                failed = !chunk.close();
            }
            EXPECT_EQ(chunk.isOpened(), failed);
            failures += failed;
            if (failed) {
                EXPECT_EQ(chunk.getDataSize(), size);
                EXPECT_STREQ(chunk.getSubChunkId(), "one");
                EXPECT_TRUE(chunk.close());
            }
            EXPECT_EQ(contentOf("f").substr(4, 4), littleEndian(size));
        }
        EXPECT_GE(failures, 1U) << fault;
    }
}

TEST_F(SubChunkAtItsLimits, Close_ComparesWithTheFileAndWritesOnlyADifference) {
    putFile("f", subChunk("one ", "0123"));
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE));
    HookScope const scope;
    SubChunk chunk;
    ASSERT_TRUE(chunk.open(&file, 0, SubChunk::AT_START));
    ASSERT_EQ(chunk.write("abcd", 4), 4);
    hooks::write.reset();
    EXPECT_TRUE(chunk.close());
    EXPECT_EQ(hooks::write.calls(), 0U);
    // Another has changed the field meanwhile: it is the file's value that counts.
    ASSERT_TRUE(chunk.open(&file, 0, SubChunk::AT_START));
    ASSERT_EQ(file.seek(4, File::FROM_START), 4);
    ASSERT_EQ(file.write("\x63\0\0\0", 4), 4);
    EXPECT_TRUE(chunk.close());
    EXPECT_EQ(contentOf("f"), subChunk("one ", "abcd"));
    EXPECT_EQ(file.position(), 8);
    // The file is closed under it.
    ASSERT_TRUE(chunk.open(&file, 0, SubChunk::AT_START));
    ASSERT_TRUE(file.close());
    char buffer[1];
    EXPECT_FALSE(chunk.close());
    EXPECT_TRUE(chunk.isOpened());
    EXPECT_EQ(chunk.read(buffer, 1), -1);
    EXPECT_EQ(chunk.write(buffer, 1), -1);
    EXPECT_EQ(chunk.seek(File::FROM_START, 0), -1);
    EXPECT_EQ(chunk.position(), -1);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE));
    EXPECT_TRUE(chunk.close());
}

TEST_F(SubChunkAtItsLimits, DataOf4GiB_GrowToTheLastNumberAndNoFurther) {
    constexpr unsigned long long NEARLY = 0xFFFFFFF0ULL;
    putSparse("f", 12 + 8 + NEARLY, {{0, "RIFF    TESTbig " + littleEndian(0xFFFFFFF0U)}});
    RiffFile file("f", 4);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    SubChunkInfo info;
    ASSERT_TRUE(file.getSubChunkInfo(0, &info));
    EXPECT_EQ(info.mDataSize, 0xFFFFFFF0U);
    ASSERT_TRUE(file.openSubChunk(0, SubChunk::AT_END));
    EXPECT_EQ(file.position(), static_cast<long long>(NEARLY));
    EXPECT_EQ(file.write("0123456789ABCDE", 15), 15);
    EXPECT_EQ(file.position(), 0xFFFFFFFFLL);
    EXPECT_EQ(file.seek(File::FROM_START, 0xFFFFFFFFLL), 0xFFFFFFFFLL);
    EXPECT_EQ(file.seek(File::FROM_START, 0x100000000LL), -1);
    EXPECT_EQ(file.write("F", 1), -1);
    EXPECT_EQ(file.seek(File::FROM_END, 0), 0xFFFFFFFFLL);
    EXPECT_EQ(file.seek(File::FROM_END, -0xFFFFFFFFLL), 0);
    EXPECT_TRUE(file.closeSubChunk());
    EXPECT_EQ(partOf("f", 16, 4), littleEndian(0xFFFFFFFFU));
    // 12 bytes too long for the size at the front: nothing is closed.
    unsigned int const descriptors = openDescriptors();
    EXPECT_FALSE(file.close());
    EXPECT_TRUE(file.isOpened());
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(file.getSubChunkNumber(), 1U);
    EXPECT_TRUE(file.openSubChunk(0, SubChunk::AT_START));
    EXPECT_FALSE(file.close());
    EXPECT_TRUE(file.isOpenedSubChunk(0));
}

TEST_F(SubChunkAtItsLimits, ReadHeader_AtTheEndOfAFile_SeeksNothing) {
    putFile("f", three());
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ));
    HookScope const scope;
    for (unsigned long long const place : {0ULL, 1ULL, GIB4, ~0ULL}) {
        unsigned long long const end = three().size();
        EXPECT_EQ(SubChunk::readHeader(&file, std::max(end, end + place), nullptr, 0, nullptr),
                  File::END_OF_FILE);
    }
    EXPECT_EQ(hooks::lseek.calls(), 0U);
    hooks::fstat.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(SubChunk::readHeader(&file, 12, nullptr, 0, nullptr), -1);
    EXPECT_EQ(mLog.lines(), (Names{error("fstat Failed. errno[5]"), error("fileSize Failed. Path:f")}));
}

TEST_F(SubChunkStatements, EveryOperation_ReportsItsWaitForTheLock) {
    char const* const source = "UtlSubChunk";
    putFile("f", subChunk("one ", "0123"));
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE));
    SubChunk chunk;
    char byte = 'x';
    expectBracket(source, "open", [&] { EXPECT_TRUE(chunk.open(&file, 0, SubChunk::AT_START)); });
    expectBracket(source, "read", [&] { chunk.read(&byte, 1); });
    expectBracket(source, "write", [&] { chunk.write(&byte, 1); });
    expectBracket(source, "seek", [&] { chunk.seek(File::FROM_START, 0); });
    expectBracket(source, "position", [&] { return chunk.position(); });
    expectBracket(source, "getSubChunkId", [&] { return chunk.getSubChunkId(); });
    expectBracket(source, "getDataSize", [&] { return chunk.getDataSize(); });
    EXPECT_EQ(mStatements.of([&] { return chunk.isOpened(); }), NONE);
    expectBracket(source, "close", [&] { chunk.close(); });
    expectBracket(source, "close", [&] { chunk.close(); });
    expectBracket(source, "add", [&] { chunk.add(&file, "two"); });
    EXPECT_EQ(only(mStatements.of([&] { SubChunk::readHeader(&file, 0, nullptr, 0, nullptr); }), source),
              NONE);
    EXPECT_EQ(only(mStatements.of([&] { SubChunk::writeSubChunKId("abcde", &file); }), source), NONE);
    expectBracket(source, "close", [&] { SubChunk::AutoClose const closer(chunk); });
    EXPECT_FALSE(chunk.isOpened());
    auto owned = std::make_unique<SubChunk>();
    expectBracket(source, "close", [&] { owned.reset(); });
    // Judged before the lock.
    EXPECT_EQ(mStatements.of([&] { chunk.add(nullptr, "two"); }), NONE);
    EXPECT_EQ(mStatements.of([&] { chunk.add(&file, nullptr); }), NONE);
    EXPECT_EQ(mStatements.of([&] { chunk.open(nullptr, 0, 0); }), NONE);
    EXPECT_EQ(mStatements.of([&] { chunk.read(nullptr, 1); }), NONE);
    EXPECT_EQ(mStatements.of([&] { chunk.write(&byte, 0x80000000U); }), NONE);
}

}  // namespace

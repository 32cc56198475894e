#include "UtlRiffFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "TestFileCalls.h"
#include "TestFolder.h"
#include "TestGate.h"
#include "TestHooks.h"
#include "TestLayout.h"
#include "TestLog.h"
#include "TestRiff.h"
#include "TestStatements.h"
#include "UtlFile.h"
#include "UtlSubChunk.h"
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

constexpr int FAILURE = RiffFile::INVALID_SUB_CHUNK;

std::string const THREE =
    riff("TEST", subChunk("a   ", "123") + subChunk("b   ", "45678") + subChunk("a   ", "9"));

class RiffFileInFolder : public utltest::InFolder {
  protected:
    void putAndOpen(std::string const& content, int access = 1) {
        putFile("f", content);
        ASSERT_EQ(mRiff.open(0, access), 0);
    }

    void makeNew(char const* formType = "TEST") {
        ASSERT_EQ(mRiff.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
        ASSERT_EQ(mRiff.setFormType(formType), 1);
    }

    void add(char const* id, std::string const& data) {
        ASSERT_NE(mRiff.addSubChunk(id), FAILURE);
        ASSERT_EQ(mRiff.write(data.data(), static_cast<unsigned int>(data.size())),
                  static_cast<int>(data.size()));
        ASSERT_EQ(mRiff.closeSubChunk(), 1);
    }

    std::string readAll() {
        std::string all;
        char bytes[4];
        int count = 0;
        while ((count = mRiff.read(bytes, sizeof(bytes))) > 0) {
            all.append(bytes, static_cast<size_t>(count));
        }
        EXPECT_EQ(count, utl::SubChunk::END_OF_DATA);
        return all;
    }

    // "id=size" of every sub-chunk that is known.
    std::string known() {
        SubChunkInfo list[8];
        int const count = mRiff.getSubChunkInfoList(list, 8);
        std::string text = std::to_string(count) + ":";
        for (int i = 0; i < count; ++i) {
            EXPECT_EQ(list[i].mId, static_cast<unsigned int>(i));
            text += std::string(" ") + list[i].mName.buffer() + "=" + std::to_string(list[i].mDataSize);
        }
        return text;
    }

    RiffFile mRiff{"f", 8};
};

TEST_F(RiffFileInFolder, IsClosedAtFirst) {
    EXPECT_EQ(mRiff.isOpened(), 0);
    EXPECT_STREQ(mRiff.getFormType(), "");
    EXPECT_STREQ(mRiff.getPath(), "f");
    EXPECT_EQ(mRiff.close(), 1);
    EXPECT_EQ(mRiff.closeSubChunk(), 1);
    EXPECT_EQ(File::exists("f"), 0);
}

TEST_F(RiffFileInFolder, Closed_EveryOperationFails) {
    char byte = 0;
    SubChunkInfo info;
    EXPECT_EQ(mRiff.addSubChunk("a"), FAILURE);
    EXPECT_EQ(mRiff.openSubChunk(0, utl::SubChunk::AT_START), 0);
    EXPECT_EQ(mRiff.setFormType("TEST"), 0);
    EXPECT_EQ(mRiff.read(&byte, 1), -1);
    EXPECT_EQ(mRiff.write(&byte, 1), -1);
    EXPECT_EQ(mRiff.seek(File::FROM_START, 0), -1);
    EXPECT_EQ(mRiff.position(), -1);
    EXPECT_EQ(mRiff.getSubChunkNumber(), INVALID_SIZE);
    EXPECT_EQ(mRiff.getSubChunkNumber("a"), -1);
    EXPECT_EQ(mRiff.getSubChunkInfo(0, &info), 0);
    EXPECT_EQ(mRiff.getSubChunkInfoList(&info, 1), -1);
    EXPECT_EQ(mRiff.getSubChunkInfoList("a", &info, 1), -1);
}

TEST_F(RiffFileInFolder, Open_TakesOnly0And1) {
    for (int const wrong : {-1, 2, INT_MAX, INT_MIN}) {
        EXPECT_EQ(mRiff.open(wrong, 1), 1);
        EXPECT_EQ(mRiff.open(1, wrong), 1);
    }
    EXPECT_EQ(File::exists("f"), 0);
}

TEST_F(RiffFileInFolder, Open_OfANewFileToRead_GivesOne) {
    EXPECT_EQ(mRiff.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ), 1);
    EXPECT_EQ(mRiff.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 1);
    EXPECT_EQ(File::exists("f"), 0);
    putFile("f", THREE);
    EXPECT_EQ(mRiff.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ), 1);
    EXPECT_EQ(contentOf("f"), THREE);
}

TEST_F(RiffFileInFolder, Open_OfANewFile_Writes8Bytes) {
    for (int const disposition : {0, 1}) {
        File::erase("f", File::KEEP_READ_ONLY);
        ASSERT_EQ(mRiff.open(disposition, 1), 0);
        EXPECT_EQ(mRiff.isOpened(), 1);
        EXPECT_EQ(mRiff.size(), 8);
        EXPECT_EQ(mRiff.getSubChunkNumber(), 0U);
        EXPECT_EQ(mRiff.close(), 1);
        EXPECT_EQ(contentOf("f"), "RIFF" + littleEndian(0));
    }
}

TEST_F(RiffFileInFolder, Open_Disposition1_EmptiesTheFile) {
    putFile("f", THREE);
    ASSERT_EQ(mRiff.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(contentOf("f"), "RIFF" + littleEndian(0));
}

TEST_F(RiffFileInFolder, Open_KnowsTheSubChunksOfTheFile) {
    putAndOpen(THREE, 0);
    EXPECT_EQ(known(), "3: a=3 b=5 a=1");
    EXPECT_STREQ(mRiff.getFormType(), "TEST");
    EXPECT_EQ(mRiff.getSubChunkNumber(), 3U);
    EXPECT_EQ(mRiff.getSubChunkNumber("a"), 2);
    EXPECT_EQ(mRiff.getSubChunkNumber("c"), 0);
    EXPECT_EQ(mRiff.getSubChunkNumber(nullptr), -1);
}

TEST_F(RiffFileInFolder, Open_KeepsTheBlanksOfTheFormTypeInTheFile) {
    putAndOpen(riff("AB  ", ""), 0);
    EXPECT_STREQ(mRiff.getFormType(), "AB  ");
}

TEST_F(RiffFileInFolder, Open_NeverLooksAtTheSizeOfTheFile) {
    putAndOpen("RIFF" + littleEndian(1) + "TEST" + subChunk("a   ", "123"), 0);
    EXPECT_EQ(known(), "1: a=3");
}

TEST_F(RiffFileInFolder, Open_OfAnOpenObject_GivesOneAndKeepsItOpen) {
    putAndOpen(THREE);
    EXPECT_EQ(mRiff.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 1);
    EXPECT_EQ(mRiff.isOpened(), 1);
    EXPECT_EQ(known(), "3: a=3 b=5 a=1");
}

TEST_F(RiffFileInFolder, Open_OfAnotherKindOfFile_GivesTwoAndLeavesItUnchanged) {
    for (std::string const& content :
         {std::string(), std::string("RIF"), std::string("RIFX") + THREE.substr(4),
          std::string("a text of some length")}) {
        putFile("f", content);
        for (int const access : {0, 1}) {
            EXPECT_EQ(mRiff.open(0, access), 2) << content;
            EXPECT_EQ(mRiff.isOpened(), 0);
        }
        EXPECT_EQ(contentOf("f"), content);
    }
}

TEST_F(RiffFileInFolder, Open_Of8Bytes_HasAnEmptyFormTypeAndNoSubChunks) {
    putAndOpen("RIFF" + littleEndian(0));
    EXPECT_STREQ(mRiff.getFormType(), "");
    EXPECT_EQ(mRiff.getSubChunkNumber(), 0U);
}

// Cut before each byte of 200: each time one of the documented results, and the file stays as it was.
TEST_F(RiffFileInFolder, Open_OfACutFile_HasAToldResultAndChangesNothing) {
    std::string const whole =
        riff("TEST", subChunk("a   ", std::string(50, 'x')) + subChunk("b   ", std::string(61, 'y')) +
                         subChunk("c   ", std::string(60, 'z')));
    size_t const headers[] = {12, 12 + 58, 12 + 58 + 69};
    for (size_t length = 0; length <= 200; ++length) {
        putFile("f", whole.substr(0, length));
        int wanted = length < 4 ? 2 : 0;
        std::string knownThen;
        int count = 0;
        for (size_t const header : headers) {
            wanted = length > header && length < header + 8 ? 1 : wanted;
            count += length >= header + 8 ? 1 : 0;
        }
        // What is there of the form type takes part in the place of the first header, which is at the end
        // then.
        ASSERT_EQ(mRiff.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), wanted) << length;
        EXPECT_EQ(mRiff.isOpened(), wanted == 0 ? 1 : 0);
        if (wanted == 0) {
            EXPECT_EQ(mRiff.getSubChunkNumber(), static_cast<unsigned int>(count)) << length;
        }
        EXPECT_EQ(mRiff.close(), 1);
        EXPECT_EQ(contentOf("f"), whole.substr(0, length)) << length;
    }
}

TEST_F(RiffFileInFolder, Open_OfACutFile_ForgetsWhatItHadTakenDown) {
    putFile("f", THREE.substr(0, THREE.size() - 4));
    EXPECT_EQ(mRiff.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 1);
    putAndOpen(riff("TEST", subChunk("only", "")), 0);
    EXPECT_EQ(known(), "1: only=0");
    EXPECT_EQ(mRiff.openSubChunk(0, utl::SubChunk::AT_START), 1);
}

TEST_F(RiffFileInFolder, Open_OfSizesThatLie_EndsAtTheEndOfTheFile) {
    for (unsigned int const size : {4U, 1000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        putAndOpen(riff("TEST", liarChunk("a   ", size, "123")), 0);
        EXPECT_EQ(known(), "1: a=" + std::to_string(size));
        ASSERT_EQ(mRiff.openSubChunk(0, utl::SubChunk::AT_START), 1);
        EXPECT_EQ(readAll(), "123");
        EXPECT_EQ(mRiff.close(), 1);
    }
}

TEST_F(RiffFileInFolder, Open_OfASizeThatIsTooSmall_TakesDataForAHeader) {
    putAndOpen(riff("TEST", liarChunk("a   ", 0, "DATA" + littleEndian(2) + "xy")), 0);
    EXPECT_EQ(known(), "2: a=0 DATA=2");
}

TEST_F(RiffFileInFolder, Open_Of3SubChunksWithRoomFor2_KnowsTheFirst2) {
    putFile("f", THREE);
    RiffFile small("f", 2);
    ASSERT_EQ(small.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(small.getSubChunkNumber(), 2U);
    EXPECT_EQ(small.openSubChunk(2, utl::SubChunk::AT_START), 0);
    small.close();
    RiffFile none("f", 0);
    ASSERT_EQ(none.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(none.getSubChunkNumber(), 0U);
    EXPECT_EQ(none.addSubChunk("x"), FAILURE);
    EXPECT_EQ(none.closeSubChunk(), 1);
    EXPECT_EQ(none.close(), 1);
}

// The second sub-chunk begins after 4 GiB less one byte, on a 32-bit machine as well.
TEST_F(RiffFileInFolder, Open_OfASparseFileNear4GiB_FindsWhatStandsBehind) {
    putFile("f", riff("TEST", liarChunk("big ", 0xFFFFFFFFU, "")));
    {
        File file("f", File::TEXT_UTF8);
        ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE), 1);
        ASSERT_EQ(file.seek(20 + 0xFFFFFFFFLL, File::FROM_START), 20 + 0xFFFFFFFFLL);
        std::string const behind = subChunk("tail", "end");
        ASSERT_EQ(file.write(behind.data(), static_cast<unsigned int>(behind.size())), 11);
    }
    ASSERT_EQ(mRiff.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(known(), "2: big=4294967295 tail=3");
    ASSERT_EQ(mRiff.openSubChunk(1, utl::SubChunk::AT_START), 1);
    EXPECT_EQ(readAll(), "end");
    EXPECT_EQ(mRiff.close(), 1);
}

// What stands after the size of a container must be said with 32 bits: with a first sub-chunk of this many
// bytes it is that much.
constexpr unsigned int REST_OF_32_BITS = 0xFFFFFFFFU - 12;

TEST_F(RiffFileInFolder, Close_OfAFileThatGrewTo32Bits_SaysSo) {
    putFile("f", riff("TEST", liarChunk("big ", REST_OF_32_BITS - 1, "")));
    std::filesystem::resize_file("f", 20ULL + REST_OF_32_BITS - 1);
    ASSERT_EQ(mRiff.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_EQ(mRiff.openSubChunk(0, utl::SubChunk::AT_END), 1);
    ASSERT_EQ(mRiff.write("x", 1), 1);
    EXPECT_EQ(mRiff.close(), 1);
    File file("f", File::TEXT_UTF8);
    ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    char header[20] = {};
    ASSERT_EQ(file.read(header, sizeof(header)), 20);
    EXPECT_EQ(std::string(header + 4, 4), littleEndian(0xFFFFFFFFU));
    EXPECT_EQ(std::string(header + 16, 4), littleEndian(REST_OF_32_BITS));
}

TEST_F(RiffFileInFolder, Close_OfAFileThatGrewBeyond32Bits_FailsAndStaysOpen) {
    putFile("f", riff("TEST", liarChunk("big ", REST_OF_32_BITS, "")));
    std::filesystem::resize_file("f", 20ULL + REST_OF_32_BITS);
    ASSERT_EQ(mRiff.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_EQ(mRiff.openSubChunk(0, utl::SubChunk::AT_END), 1);
    ASSERT_EQ(mRiff.write("x", 1), 1);
    EXPECT_EQ(mRiff.close(), 0);
    EXPECT_EQ(mRiff.isOpened(), 1);
    EXPECT_EQ(mRiff.isOpenedSubChunk(0), 1);
}

TEST_F(RiffFileInFolder, AFileThatIsWritten_HasAllSizesAfterClose) {
    makeNew();
    add("a", "123");
    add("b", "45678");
    add("a", "9");
    EXPECT_EQ(mRiff.close(), 1);
    EXPECT_EQ(contentOf("f"), THREE);
}

TEST_F(RiffFileInFolder, ASubChunkOfOddSize_IsFollowedByTheNextAtOnce) {
    makeNew();
    add("odd", "1");
    add("more", "2");
    mRiff.close();
    EXPECT_EQ(contentOf("f"), riff("TEST", subChunk("odd ", "1") + subChunk("more", "2")));
    ASSERT_EQ(mRiff.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(known(), "2: odd=1 more=1");
}

TEST_F(RiffFileInFolder, AddSubChunk_CountsFrom0AndBehindThoseOfTheFile) {
    putAndOpen(THREE);
    EXPECT_EQ(mRiff.addSubChunk("new"), 3);
    EXPECT_EQ(mRiff.closeSubChunk(), 1);
    EXPECT_EQ(mRiff.close(), 1);
    ASSERT_EQ(mRiff.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(mRiff.addSubChunk("new"), 0);
}

TEST_F(RiffFileInFolder, AddSubChunk_WhileOneIsOpen_Fails) {
    makeNew();
    EXPECT_EQ(mRiff.addSubChunk("a"), 0);
    EXPECT_EQ(mRiff.addSubChunk("b"), FAILURE);
    EXPECT_EQ(mRiff.isOpenedSubChunk(0), 1);
    EXPECT_EQ(mRiff.getSubChunkNumber(), 1U);
}

TEST_F(RiffFileInFolder, AddSubChunk_OfNullOrALongId_Fails) {
    makeNew();
    EXPECT_EQ(mRiff.addSubChunk(nullptr), FAILURE);
    EXPECT_EQ(mRiff.addSubChunk("abcde"), FAILURE);
    EXPECT_EQ(mRiff.size(), 12);
}

TEST_F(RiffFileInFolder, AddSubChunk_WithoutRoom_FailsWithTheSubChunkOpen) {
    RiffFile small("f", 1);
    ASSERT_EQ(small.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_EQ(small.setFormType("TEST"), 1);
    ASSERT_EQ(small.addSubChunk("a"), 0);
    ASSERT_EQ(small.closeSubChunk(), 1);
    EXPECT_EQ(small.addSubChunk("b"), FAILURE);
    EXPECT_EQ(small.position(), 0);
    EXPECT_EQ(small.getSubChunkNumber(), 1U);
    EXPECT_EQ(small.write("x", 1), -1);
    EXPECT_EQ(small.openSubChunk(0, utl::SubChunk::AT_START), 0);
    EXPECT_EQ(small.closeSubChunk(), 1);
    EXPECT_EQ(small.openSubChunk(0, utl::SubChunk::AT_START), 1);
    EXPECT_EQ(small.close(), 1);
    EXPECT_EQ(contentOf("f"), riff("TEST", subChunk("a   ", "") + subChunk("b   ", "")));
}

TEST_F(RiffFileInFolder, AddSubChunk_BeforeTheFormType_LandsInItsPlace) {
    ASSERT_EQ(mRiff.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(mRiff.addSubChunk("abcd"), 0);
    EXPECT_EQ(mRiff.setFormType("TEST"), 1);
    EXPECT_EQ(contentOf("f"), "RIFF" + littleEndian(0) + "TEST" + littleEndian(0));
}

TEST_F(RiffFileInFolder, GetSubChunkInfo_OfOneThatWasAdded_HasTheSize0) {
    makeNew();
    add("a", "123");
    SubChunkInfo info;
    EXPECT_EQ(mRiff.getSubChunkInfo(0, &info), 1);
    EXPECT_STREQ(info.mName.buffer(), "a");
    EXPECT_EQ(info.mDataSize, 0U);
    EXPECT_EQ(mRiff.getSubChunkInfo(1, &info), 0);
    EXPECT_EQ(mRiff.getSubChunkInfo(0, nullptr), 0);
}

TEST_F(RiffFileInFolder, GetSubChunkInfoList_CopiesTheFirst) {
    putAndOpen(THREE, 0);
    SubChunkInfo list[3];
    EXPECT_EQ(mRiff.getSubChunkInfoList(list, 0), 0);
    EXPECT_EQ(mRiff.getSubChunkInfoList(list, 2), 2);
    EXPECT_STREQ(list[1].mName.buffer(), "b");
    EXPECT_STREQ(list[2].mName.buffer(), "");
    EXPECT_EQ(mRiff.getSubChunkInfoList(list, 4), 3);
    EXPECT_EQ(mRiff.getSubChunkInfoList(nullptr, 3), -1);
}

TEST_F(RiffFileInFolder, GetSubChunkInfoList_OfAnId_LooksAtTheFirstCount) {
    putAndOpen(THREE, 0);
    SubChunkInfo list[3];
    EXPECT_EQ(mRiff.getSubChunkInfoList("a", list, 2), 1);
    EXPECT_EQ(mRiff.getSubChunkInfoList("a", list, 3), 2);
    EXPECT_EQ(list[1].mId, 2U);
    EXPECT_EQ(mRiff.getSubChunkInfoList("A", list, 3), 0);
    EXPECT_EQ(mRiff.getSubChunkInfoList("a ", list, 3), 0);
    EXPECT_EQ(mRiff.getSubChunkInfoList(nullptr, list, 3), -1);
    EXPECT_EQ(mRiff.getSubChunkInfoList("a", nullptr, 3), -1);
}

TEST_F(RiffFileInFolder, OpenSubChunk_StandsAtTheStartOrTheEnd) {
    putAndOpen(THREE);
    ASSERT_EQ(mRiff.openSubChunk(1, utl::SubChunk::AT_START), 1);
    EXPECT_EQ(mRiff.isOpenedSubChunk(1), 1);
    EXPECT_EQ(mRiff.isOpenedSubChunk(0), 0);
    EXPECT_EQ(readAll(), "45678");
    EXPECT_EQ(mRiff.seek(File::FROM_START, 2), 2);
    EXPECT_EQ(mRiff.position(), 2);
    EXPECT_EQ(mRiff.closeSubChunk(), 1);
    EXPECT_EQ(mRiff.isOpenedSubChunk(1), 0);
    EXPECT_EQ(mRiff.isOpenedSubChunk(-1), 1);
    ASSERT_EQ(mRiff.openSubChunk(1, utl::SubChunk::AT_END), 1);
    EXPECT_EQ(mRiff.position(), 5);
}

TEST_F(RiffFileInFolder, OpenSubChunk_OfAnotherModeOrNumber_OrWhileOneIsOpen_Fails) {
    putAndOpen(THREE);
    EXPECT_EQ(mRiff.openSubChunk(0, 2), 0);
    EXPECT_EQ(mRiff.openSubChunk(0, -1), 0);
    EXPECT_EQ(mRiff.openSubChunk(3, utl::SubChunk::AT_START), 0);
    EXPECT_EQ(mRiff.openSubChunk(0xFFFFFFFFU, utl::SubChunk::AT_START), 0);
    EXPECT_EQ(mRiff.openSubChunk(0, utl::SubChunk::AT_START), 1);
    EXPECT_EQ(mRiff.openSubChunk(1, utl::SubChunk::AT_START), 0);
    EXPECT_EQ(mRiff.isOpenedSubChunk(0), 1);
}

TEST_F(RiffFileInFolder, Write_OfAnyButTheLast_FailsAndChangesNothing) {
    putAndOpen(THREE);
    for (unsigned int const id : {0U, 1U}) {
        ASSERT_EQ(mRiff.openSubChunk(id, utl::SubChunk::AT_START), 1);
        EXPECT_EQ(mRiff.write("x", 1), -1);
        EXPECT_EQ(mRiff.closeSubChunk(), 1);
    }
    EXPECT_EQ(contentOf("f"), THREE);
    ASSERT_EQ(mRiff.openSubChunk(2, utl::SubChunk::AT_END), 1);
    EXPECT_EQ(mRiff.write("!", 1), 1);
    EXPECT_EQ(mRiff.close(), 1);
    EXPECT_EQ(contentOf("f"),
              riff("TEST", subChunk("a   ", "123") + subChunk("b   ", "45678") + subChunk("a   ", "9!")));
}

// The last is that of those taken down: writing it runs over what comes next, which this object never saw.
TEST_F(RiffFileInFolder, Write_OfTheLastThatIsKnown_IsAllowed) {
    putFile("f", THREE);
    RiffFile small("f", 2);
    ASSERT_EQ(small.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_EQ(small.openSubChunk(1, utl::SubChunk::AT_START), 1);
    EXPECT_EQ(small.write("x", 1), 1);
    EXPECT_EQ(small.close(), 1);
}

TEST_F(RiffFileInFolder, SetFormType_PadsInTheFileAndTrimsInMemory) {
    ASSERT_EQ(mRiff.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    for (char const* const type : {"WAVE", "ABC", "AB", "A", ""}) {
        EXPECT_EQ(mRiff.setFormType(type), 1) << type;
        EXPECT_STREQ(mRiff.getFormType(), type);
        EXPECT_EQ(contentOf("f").substr(8), std::string(type) + std::string(4 - std::strlen(type), ' '));
    }
    EXPECT_EQ(mRiff.setFormType("XY "), 1);
    EXPECT_STREQ(mRiff.getFormType(), "XY");
}

TEST_F(RiffFileInFolder, SetFormType_OfNullOrTooMuch_ChangesNothing) {
    makeNew("AB");
    EXPECT_EQ(mRiff.setFormType("ABCDE"), 0);
    EXPECT_EQ(mRiff.setFormType(nullptr), 0);
    EXPECT_STREQ(mRiff.getFormType(), "AB");
    EXPECT_EQ(contentOf("f").substr(8), "AB  ");
}

TEST_F(RiffFileInFolder, SetFormType_InNoUtf8_IsWrittenButFailsAndLeavesNoFormType) {
    makeNew("AB");
    EXPECT_EQ(mRiff.setFormType("\xFF\xFE"), 0);
    EXPECT_STREQ(mRiff.getFormType(), "");
    EXPECT_EQ(contentOf("f").substr(8), "\xFF\xFE  ");
}

TEST_F(RiffFileInFolder, SetFormType_KeepsThePosition) {
    makeNew();
    ASSERT_EQ(mRiff.addSubChunk("a"), 0);
    ASSERT_EQ(mRiff.write("123", 3), 3);
    ASSERT_EQ(mRiff.seek(File::FROM_START, 1), 1);
    EXPECT_EQ(mRiff.setFormType("NEXT"), 1);
    EXPECT_EQ(mRiff.position(), 1);
}

TEST_F(RiffFileInFolder, SetFormType_WhereTheSystemFails_KeepsTheFormTypeInMemory) {
    HookScope const scope;
    LogCapture const log;
    makeNew("OLD");
    hooks::write.failFrom(1, 1, -1, ENOSPC);
    EXPECT_EQ(mRiff.setFormType("NEW"), 0);
    hooks::write.reset();
    for (unsigned int nth = 1; nth <= 3; ++nth) {
        hooks::lseek.failFrom(nth, 1, -1, EIO);
        EXPECT_EQ(mRiff.setFormType("NEW"), 0) << nth;
    }
    EXPECT_STREQ(mRiff.getFormType(), "OLD");
}

TEST_F(RiffFileInFolder, Close_ForgetsSubChunksButNotTheFormType) {
    putAndOpen(THREE);
    ASSERT_EQ(mRiff.openSubChunk(2, utl::SubChunk::AT_START), 1);
    EXPECT_EQ(mRiff.close(), 1);
    EXPECT_EQ(mRiff.isOpened(), 0);
    EXPECT_EQ(mRiff.isOpenedSubChunk(-1), 1);
    EXPECT_STREQ(mRiff.getFormType(), "TEST");
    EXPECT_EQ(mRiff.openSubChunk(2, utl::SubChunk::AT_START), 0);
}

TEST_F(RiffFileInFolder, Close_WhereTheSizeCannotBeWritten_FailsAndCanBeTriedAgain) {
    HookScope const scope;
    LogCapture const log;
    makeNew();
    add("a", "123");
    hooks::write.failFrom(1, 1, -1, ENOSPC);
    EXPECT_EQ(mRiff.close(), 0);
    hooks::write.reset();
    hooks::lseek.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(mRiff.close(), 0);
    hooks::fstat.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(mRiff.close(), 0);
    EXPECT_EQ(mRiff.isOpened(), 1);
    EXPECT_EQ(mRiff.close(), 1);
    EXPECT_EQ(contentOf("f"), riff("TEST", subChunk("a   ", "123")));
}

TEST_F(RiffFileInFolder, Close_WhereTheSubChunkCannotBeClosed_FailsButClosesTheFile) {
    HookScope const scope;
    LogCapture const log;
    putAndOpen(THREE);
    ASSERT_EQ(mRiff.openSubChunk(2, utl::SubChunk::AT_START), 1);
    hooks::pread.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(mRiff.close(), 0);
    EXPECT_EQ(mRiff.isOpened(), 0);
    EXPECT_EQ(mRiff.close(), 1);
}

TEST_F(RiffFileInFolder, Close_OfAnUnchangedFile_WritesNothing) {
    HookScope const scope;
    putAndOpen("RIFF" + littleEndian(99) + "TEST" + subChunk("a   ", "123"));
    ASSERT_EQ(mRiff.openSubChunk(0, utl::SubChunk::AT_START), 1);
    EXPECT_EQ(mRiff.close(), 1);
    EXPECT_EQ(hooks::write.calls(), 0U);
}

TEST_F(RiffFileInFolder, Open_WhereTheHeaderCannotBeWritten_LeavesNoFile) {
    HookScope const scope;
    LogCapture const log;
    for (unsigned int nth = 1; nth <= 2; ++nth) {
        hooks::write.failFrom(nth, 1, -1, ENOSPC);
        EXPECT_EQ(mRiff.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 1);
        EXPECT_EQ(mRiff.isOpened(), 0);
        EXPECT_EQ(File::exists("f"), 0);
    }
}

// Fails the first, the second, ... call of a kind, until `open` gets through.
TEST_F(RiffFileInFolder, Open_WhereTheFileCannotBeRead_FailsAndIsClosed) {
    HookScope const scope;
    LogCapture const log;
    putFile("f", THREE);
    for (unsigned int nth = 1;; ++nth) {
        hooks::pread.failFrom(nth, 1, -1, EIO);
        int const result = mRiff.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ);
        if (result == 0) {
            EXPECT_EQ(nth, 2U + 2 * 3 + 1);
            EXPECT_EQ(known(), "3: a=3 b=5 a=1");
            break;
        }
        EXPECT_EQ(result, nth == 1 ? 2 : 1) << nth;
        EXPECT_EQ(mRiff.isOpened(), 0);
    }
}

TEST_F(RiffFileInFolder, Destructor_LeavesTheSizesAsTheyAre) {
    {
        RiffFile left("f", 1);
        ASSERT_EQ(left.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
        ASSERT_EQ(left.setFormType("TEST"), 1);
        ASSERT_EQ(left.addSubChunk("a"), 0);
        ASSERT_EQ(left.write("123", 3), 3);
    }
    EXPECT_EQ(contentOf("f"), "RIFF" + littleEndian(0) + "TEST" + "a   " + littleEndian(0) + "123");
}

TEST_F(RiffFileInFolder, AutoClose_ClosesAtTheEndOfItsScope) {
    makeNew();
    { RiffFile::AutoClose const closing(mRiff); }
    EXPECT_EQ(mRiff.isOpened(), 0);
    EXPECT_EQ(contentOf("f"), riff("TEST", ""));
}

TEST(RiffFileNames, AreTheNumbersThatCallersPassAndGet) {
    static_assert(RiffFile::OPEN_KEEP == 0 && RiffFile::OPEN_NEW == 1);
    static_assert(RiffFile::ACCESS_READ == 0 && RiffFile::ACCESS_READ_WRITE == 1);
    static_assert(RiffFile::OPENED == 0 && RiffFile::OPEN_FAILED == 1 && RiffFile::NO_RIFF_FILE == 2);
    static_assert(RiffFile::NO_SUB_CHUNK == -1);
}

TEST(RiffFileTraits, WhatTakesNoLockNeverThrows) {
    static_assert(noexcept(std::declval<RiffFile const&>().isOpenedSubChunk(0)));
    static_assert(std::is_nothrow_constructible_v<RiffFile::AutoClose, RiffFile&>);
}

TEST(RiffFileTraits, NeitherARiffFileNorItsAutoClose_IsCopied) {
    static_assert(!std::is_copy_constructible_v<RiffFile> && !std::is_copy_assignable_v<RiffFile>);
    static_assert(!std::is_copy_constructible_v<RiffFile::AutoClose>);
    static_assert(!std::is_copy_assignable_v<RiffFile::AutoClose>);
}

// At the limits, in odd orders, and on files that fail or lie.

constexpr int INVALID = RiffFile::INVALID_SUB_CHUNK;
constexpr unsigned long long GIB4 = 0x100000000ULL;
Names const NONE;

using RiffFileAtItsLimits = InLoggedFolder;
using RiffStatements = WithStatements;

/// Writes a container, each operation up to the end, and returns the name of the first that failed.
std::string writeAll(RiffFile& file) {
    std::string failed;
    auto const check = [&failed](bool ok, char const* name) {
        if (!ok && failed.empty()) {
            failed = name;
        }
    };
    check(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE) == 0, "open");
    check(file.setFormType("TEST"), "setFormType");
    check(file.addSubChunk("one") == 0, "addSubChunk");
    check(file.write("0123456789", 10) == 10, "write");
    check(file.closeSubChunk(), "closeSubChunk");
    check(file.close(), "close");
    return failed;
}

Gate gInFstat;

// Keeps its caller, and the locks that this one holds, until it may go.
int heldFstat(int descriptor, struct stat* status) {
    EXPECT_TRUE(gInFstat.hold());
    return hooks::fstat.real(descriptor, status);
}

utl::StatementInfo lastStatementOf(int thread) {
    return utltest::ThreadWatchdogAccess::copyInfo(utltest::ThreadManagerAccess::watchdog(), thread)
        .lastStatement;
}

TEST_F(RiffFileAtItsLimits, FieldsStandInTheirOrder) {
    static_assert(sizeof(RiffFile) == sizeof(RiffFields));
    static_assert(std::has_virtual_destructor_v<RiffFile>);
    static_assert(std::has_virtual_destructor_v<RiffFile::AutoClose>);
    RiffFields const fields{};
    putFile("f", three());
    RiffFile file("f", 9);
    EXPECT_EQ(fieldAt<int>(file, offsetIn(fields, fields.lastSubChunkId)), -1);
    EXPECT_EQ(fieldAt<int>(file, offsetIn(fields, fields.openedSubChunkId)), -1);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(file.openSubChunk(1, SubChunk::AT_START));
    EXPECT_EQ(fieldAt<int>(file, offsetIn(fields, fields.lastSubChunkId)), 2);
    EXPECT_STREQ((fieldAt<std::array<char, 5>>(file, offsetIn(fields, fields.formType)).data()), "TEST");
    EXPECT_EQ(fieldAt<unsigned long long>(file, offsetIn(fields, fields.riffSize)), three().size() - 8);
    EXPECT_EQ(fieldAt<int>(file, offsetIn(fields, fields.openedSubChunkId)), 1);
    ASSERT_TRUE(file.close());
    EXPECT_EQ(fieldAt<int>(file, offsetIn(fields, fields.lastSubChunkId)), -1);
    EXPECT_EQ(fieldAt<unsigned long long>(file, offsetIn(fields, fields.riffSize)), 0U);
    EXPECT_EQ(fieldAt<int>(file, offsetIn(fields, fields.openedSubChunkId)), -1);
}

TEST_F(RiffFileAtItsLimits, Close_PatchesSizesToTheLastNumberThatFits) {
    for (unsigned long long size : {GIB4 + 6, GIB4 + 7, GIB4 + 8}) {
        putSparse("f", size - 8,
                  {{0, "RIFF    TESTbig " + littleEndian(static_cast<unsigned int>(size - 28))}});
        RiffFile file("f", 4);
        ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
        ASSERT_EQ(file.addSubChunk("end"), 1);
        bool const fits = size - 8 < GIB4;
        EXPECT_EQ(file.close(), fits) << size;
        EXPECT_EQ(file.isOpened(), !fits);
        EXPECT_EQ(partOf("f", 4, 4), fits ? littleEndian(static_cast<unsigned int>(size - 8)) : "    ");
    }
}

TEST_F(RiffFileAtItsLimits, Open_WalksOverSizesBeyond32Bits) {
    unsigned long long const second = 12 + 8 + 0xFFFFFFFFULL;
    putSparse("f", second + 11,
              {{0, "RIFF    TESTbig " + littleEndian(0xFFFFFFFFU)}, {second, subChunk("two ", "xyz")}});
    RiffFile file("f", 9);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(file.getSubChunkNumber(), 2U);
    ASSERT_TRUE(file.openSubChunk(1, SubChunk::AT_START));
    char buffer[8] = {};
    EXPECT_EQ(file.read(buffer, 8), 3);
    EXPECT_STREQ(buffer, "xyz");
    EXPECT_EQ(file.read(buffer, 8), SubChunk::END_OF_DATA);
    EXPECT_EQ(file.size(), static_cast<long long>(second + 11));
    EXPECT_TRUE(file.closeSubChunk());
    EXPECT_TRUE(file.close()) << "nothing changed, so nothing has to fit";
}

TEST_F(RiffFileAtItsLimits, ASubChunkThatIsAppendedBehindALyingSize_IsNotFoundByTheNextOpen) {
    putFile("f", riff("TEST", liarChunk("one ", 1000, "0123")));
    RiffFile file("f", 8);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(file.addSubChunk("two"), 1);
    EXPECT_EQ(file.write("data", 4), 4);
    EXPECT_TRUE(file.close());
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(file.getSubChunkNumber(), 1U);
    ASSERT_TRUE(file.openSubChunk(0, SubChunk::AT_START));
    char buffer[32] = {};
    EXPECT_EQ(file.read(buffer, 32), 16) << "the other sub-chunk is data of the first";
    EXPECT_TRUE(file.close());
}

TEST_F(RiffFileAtItsLimits, Open_OfAFileCutAtEveryByte_GivesTheToldResultAndLeavesIt) {
    std::string const whole = three();
    std::vector<std::size_t> const ends{12, 24, 37};
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        std::string const content = whole.substr(0, length);
        putFile("f", content);
        RiffFile file("f", 8);
        // In front of the first header nothing can be wrong but the magic.
        unsigned int known = 0;
        bool isPart = false;
        for (std::size_t end : ends) {
            known += length >= end + 8;
            isPart = isPart || (length > end && length < end + 8);
        }
        int const expected = length < 4 ? 2 : isPart ? 1 : 0;
        for (int access : {0, 1}) {
            EXPECT_EQ(file.open(0, access), expected) << length;
            EXPECT_EQ(file.isOpened(), expected == 0) << length;
            EXPECT_EQ(file.getSubChunkNumber(), expected == 0 ? known : ~0U) << length;
            if (expected == 0) {
                EXPECT_EQ(file.getFormType(), length < 8 ? "" : content.substr(8, 4)) << length;
            }
            EXPECT_TRUE(file.close());
            EXPECT_EQ(contentOf("f"), content);
        }
    }
}

TEST_F(RiffFileAtItsLimits, Open_WhoseAnyCallFails_IsClosedForgetsAllAndCanBeTriedAgain) {
    putFile("f", three());
    using Hooked = std::function<unsigned int(unsigned int)>;
    std::vector<std::pair<char const*, Hooked>> const faults{
        {"read", [](unsigned int n) { return hooks::pread.failFrom(n, 1, -1, EIO), 0U; }},
        {"lseek", [](unsigned int n) { return hooks::lseek.failFrom(n, 1, -1, EIO), 0U; }},
        {"flock", [](unsigned int n) { return hooks::flock.failFrom(n, 1, -1, EWOULDBLOCK), 0U; }},
        {"open", [](unsigned int n) { return hooks::open.failFrom(n, 1, -1, EMFILE), 0U; }}};
    for (auto const& [name, fault] : faults) {
        RiffFile file("f", 8);
        unsigned int nth = 0;
        for (int result = 1; result != 0;) {
            unsigned int const descriptors = openDescriptors();
            {
                HookScope const scope;
                fault(++nth);
                result = file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ);
            }
            ASSERT_LE(nth, 100U);
            if (result != 0) {
                bool const isFirstRead = std::string(name) == "read" && nth == 1;
                EXPECT_TRUE(result == (isFirstRead ? 2 : 1) || std::string(name) == "lseek") << name << nth;
                EXPECT_FALSE(file.isOpened());
                EXPECT_EQ(openDescriptors(), descriptors);
                EXPECT_EQ(file.getSubChunkNumber(), ~0U);
                ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0) << name << nth;
            }
            EXPECT_EQ(file.getSubChunkNumber(), 3U);
            SubChunkInfo info;
            EXPECT_TRUE(file.getSubChunkInfo(2, &info));
            EXPECT_FALSE(file.getSubChunkInfo(3, &info));
            EXPECT_TRUE(file.close());
        }
        EXPECT_GT(nth, 1U) << name;
        EXPECT_EQ(contentOf("f"), three());
    }
}

TEST_F(RiffFileAtItsLimits, AWriterWhoseNthWriteComesShort_SaysSoInTheOperationThatMadeIt) {
    Names writers;
    for (unsigned int nth = 1; writers.empty() || !writers.back().empty(); ++nth) {
        ASSERT_LT(nth, 20U);
        RiffFile file("f", 4);
        HookScope const scope;
        writeShort(nth);
        writers.push_back(writeAll(file));
        hooks::write.reset();
        file.closeSubChunk();
        file.close();
    }
    EXPECT_EQ(writers, (Names{"open", "open", "setFormType", "addSubChunk", "addSubChunk", "write",
                              "closeSubChunk", "close", ""}));
    EXPECT_EQ(mLog.lines(), Names());
}

TEST_F(RiffFileAtItsLimits, AWriterWhoseNthCallFails_SaysSoInTheOperationThatMadeIt) {
    Names const order{"open", "setFormType", "addSubChunk", "write", "closeSubChunk", "close"};
    Names writers;
    for (unsigned int nth = 1;; ++nth) {
        RiffFile file("f", 4);
        HookScope const scope;
        hooks::write.failFrom(nth, 1, -1, ENOSPC);
        std::string const failed = writeAll(file);
        if (failed.empty()) {
            break;
        }
        if (writers.empty() || writers.back() != failed) {
            writers.push_back(failed);
        }
        if (failed == "open") {
            EXPECT_FALSE(File::exists("f")) << "erased again";
        }
        hooks::write.reset();
        EXPECT_TRUE(file.closeSubChunk());
        EXPECT_TRUE(file.close());
    }
    EXPECT_EQ(writers, order);
    EXPECT_EQ(contentOf("f"), riff("TEST", subChunk("one ", "0123456789")));

    std::size_t last = 0;
    for (unsigned int nth = 1;; ++nth) {
        RiffFile file("f", 4);
        HookScope const scope;
        hooks::lseek.failFrom(nth, 1, -1, EIO);
        std::string const failed = writeAll(file);
        if (hooks::lseek.calls() < nth) {
            EXPECT_EQ(failed, "");
            break;
        }
        auto const at =
            static_cast<std::size_t>(std::find(order.begin(), order.end(), failed) - order.begin());
        EXPECT_GE(at, last) << nth << failed;
        EXPECT_LT(at, order.size()) << nth;
        last = at;
        hooks::lseek.reset();
        file.close();
    }
}

TEST_F(RiffFileAtItsLimits, Close_WhoseSubChunkDoesNotClose_ClosesTheFileAndKeepsTheSubChunk) {
    putFile("f", riff("TEST", subChunk("one ", "0123")));
    RiffFile file("f", 4);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(file.openSubChunk(0, SubChunk::AT_END));
    ASSERT_EQ(file.write("tail\0\0\0\0", 8), 8);
    {
        HookScope const scope;
        hooks::pread.failFrom(1, 1, -1, EIO);
        EXPECT_FALSE(file.close());
    }
    EXPECT_FALSE(file.isOpened());
    EXPECT_EQ(file.getSubChunkNumber(), ~0U);
    EXPECT_FALSE(file.isOpenedSubChunk(0));
    EXPECT_TRUE(file.close());
    EXPECT_EQ(contentOf("f").substr(4, 4), littleEndian(24)) << "patched before";
    EXPECT_EQ(contentOf("f").substr(16, 4), littleEndian(4)) << "not patched";
    // It is still there until it can be closed.
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(file.getSubChunkNumber(), 2U) << "what was added is taken for a header";
    EXPECT_EQ(file.addSubChunk("two"), INVALID);
    EXPECT_FALSE(file.openSubChunk(0, SubChunk::AT_START));
    EXPECT_TRUE(file.closeSubChunk());
    EXPECT_EQ(contentOf("f").substr(16, 4), littleEndian(12));
    EXPECT_TRUE(file.openSubChunk(0, SubChunk::AT_START));
    EXPECT_TRUE(file.close());
}

TEST_F(RiffFileAtItsLimits, ADestructorWithoutClose_TouchesNoSizeAndNoFile) {
    {
        RiffFile file("f", 4);
        ASSERT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
        ASSERT_TRUE(file.setFormType("TEST"));
        ASSERT_EQ(file.addSubChunk("one"), 0);
        ASSERT_EQ(file.write("0123", 4), 4);
    }
    EXPECT_EQ(contentOf("f"), "RIFF" + littleEndian(0) + "TEST" + liarChunk("one ", 0, "0123"));
    {
        RiffFile file("f", 4);
        ASSERT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
        ASSERT_TRUE(file.setFormType("TEST"));
        RiffFile::AutoClose const closer(file);
        ASSERT_EQ(file.addSubChunk("one"), 0);
        ASSERT_EQ(file.write("0123", 4), 4);
    }
    EXPECT_EQ(contentOf("f"), riff("TEST", subChunk("one ", "0123")));
}

TEST_F(RiffFileAtItsLimits, TwoObjectsOnOneFile_ExcludeEachOtherAsFilesDo) {
    putFile("f", three());
    RiffFile first("f", 4);
    RiffFile second("f", 4);
    ASSERT_EQ(first.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(second.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_TRUE(first.openSubChunk(0, SubChunk::AT_START));
    EXPECT_TRUE(second.openSubChunk(2, SubChunk::AT_START));
    char a[8] = {};
    char b[8] = {};
    EXPECT_EQ(first.read(a, 2), 2);
    EXPECT_EQ(second.read(b, 8), 6);
    EXPECT_EQ(first.read(a + 2, 6), 2);
    EXPECT_STREQ(a, "1234");
    EXPECT_STREQ(b, "123456");
    EXPECT_TRUE(second.close());
    EXPECT_EQ(second.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 1);
    EXPECT_FALSE(second.isOpened());
    EXPECT_TRUE(first.close());
    ASSERT_EQ(second.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(first.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 1);
    EXPECT_TRUE(second.close());
    EXPECT_EQ(contentOf("f"), three());
    // A new file is emptied before its lock is asked for, but what another holds is never erased.
    ASSERT_EQ(first.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(second.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 1);
    EXPECT_TRUE(File::exists("f"));
    EXPECT_FALSE(first.openSubChunk(0, SubChunk::AT_START));
    EXPECT_FALSE(first.close()) << "8 less than nothing does not fit";
    EXPECT_TRUE(first.isOpened());
}

TEST_F(RiffFileAtItsLimits, ASecondOpen_IsRefusedAndChangesNothing) {
    putFile("f", three());
    RiffFile file("f", 4);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(file.openSubChunk(1, SubChunk::AT_START));
    for (int disposition : {0, 1, 2, -1}) {
        for (int access : {0, 1, 2, -1}) {
            EXPECT_EQ(file.open(disposition, access), 1);
        }
    }
    EXPECT_TRUE(file.isOpened());
    EXPECT_TRUE(file.isOpenedSubChunk(1));
    EXPECT_EQ(file.getSubChunkNumber(), 3U);
    EXPECT_EQ(file.position(), 0);
    EXPECT_TRUE(file.close());
    EXPECT_EQ(contentOf("f"), three());
}

TEST_F(RiffFileAtItsLimits, ACapacityOfNothing_KnowsNothingButCanStillBeWritten) {
    RiffFile file("f", 0);
    ASSERT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(file.setFormType("TEST"));
    EXPECT_EQ(file.addSubChunk("one"), INVALID);
    EXPECT_EQ(file.getSubChunkNumber(), 0U);
    EXPECT_TRUE(file.isOpenedSubChunk(-1));
    // No number is the last one, and no number is open.
    EXPECT_EQ(file.write("xyz", 3), 3);
    EXPECT_EQ(file.addSubChunk("two"), INVALID);
    EXPECT_TRUE(file.closeSubChunk());
    EXPECT_TRUE(file.close());
    EXPECT_EQ(contentOf("f"), riff("TEST", subChunk("one ", "xyz")));
    EXPECT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(file.getSubChunkNumber(), 0U);
    EXPECT_TRUE(file.close());
}

TEST_F(RiffFileAtItsLimits, ASubChunkThatWasNotTakenDown_IsOverwrittenByTheLastThatWas) {
    RiffFile file("f", 1);
    ASSERT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(file.setFormType("TEST"));
    ASSERT_EQ(file.addSubChunk("one"), 0);
    ASSERT_TRUE(file.closeSubChunk());
    EXPECT_EQ(file.addSubChunk("two"), INVALID);
    EXPECT_FALSE(file.isOpenedSubChunk(0));
    EXPECT_EQ(file.write("x", 1), -1);
    EXPECT_FALSE(file.openSubChunk(0, SubChunk::AT_START)) << "one is open still";
    EXPECT_TRUE(file.closeSubChunk());
    EXPECT_EQ(file.getSubChunkNumber(), 1U);
    ASSERT_TRUE(file.openSubChunk(0, SubChunk::AT_END));
    EXPECT_EQ(file.write("ABCDEFGH", 8), 8);
    EXPECT_TRUE(file.close());
    EXPECT_EQ(contentOf("f"), riff("TEST", subChunk("one ", "ABCDEFGH")));
}

TEST_F(RiffFileAtItsLimits, Numbers_StartAgainBehindTheLastAndARepeatedOneFails) {
    RiffFields const fields{};
    std::size_t const last = offsetIn(fields, fields.lastSubChunkId);
    RiffFile file("f", 8);
    ASSERT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(file.setFormType("TEST"));
    pokeAt(file, last, 0x7FFFFFFD);
    EXPECT_EQ(file.addSubChunk("a"), 0x7FFFFFFE);
    ASSERT_TRUE(file.closeSubChunk());
    EXPECT_EQ(file.addSubChunk("b"), 0);
    EXPECT_EQ(file.write("b", 1), 1) << "the last in the file, though not the largest number";
    ASSERT_TRUE(file.closeSubChunk());
    ASSERT_TRUE(file.openSubChunk(0x7FFFFFFE, SubChunk::AT_END));
    EXPECT_EQ(file.write("a", 1), -1);
    ASSERT_TRUE(file.closeSubChunk());
    pokeAt(file, last, 0x7FFFFFFE);
    EXPECT_EQ(file.addSubChunk("c"), INVALID);
    EXPECT_EQ(file.addSubChunk("d"), INVALID);
    EXPECT_TRUE(file.close());
    EXPECT_EQ(contentOf("f"),
              riff("TEST", subChunk("a   ", "") + subChunk("b   ", "b") + subChunk("c   ", "")));
}

TEST_F(RiffFileAtItsLimits, SetFormType_StandsAsideOfTheOpenSubChunkAndKeepsTheOldTextOnFailure) {
    RiffFile file("f", 4);
    EXPECT_FALSE(file.setFormType("TEST"));
    ASSERT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(file.setFormType("AB  "));
    EXPECT_STREQ(file.getFormType(), "AB");
    ASSERT_EQ(file.addSubChunk("one"), 0);
    EXPECT_EQ(file.write("01", 2), 2);
    EXPECT_TRUE(file.setFormType("\xE3\x81\x82"));
    EXPECT_EQ(file.write("23", 2), 2);
    for (unsigned int nth : {1U, 2U, 3U}) {
        HookScope const scope;
        hooks::lseek.failFrom(nth, 1, -1, EIO);
        EXPECT_FALSE(file.setFormType("CD"));
        EXPECT_STREQ(file.getFormType(), "\xE3\x81\x82");
    }
    EXPECT_EQ(file.seek(File::FROM_END, 0), 4);
    {
        HookScope const scope;
        hooks::write.failFrom(1, 1, -1, ENOSPC);
        EXPECT_FALSE(file.setFormType("CD"));
    }
    EXPECT_STREQ(file.getFormType(), "\xE3\x81\x82");
    EXPECT_EQ(file.position(), 4);
    EXPECT_FALSE(file.setFormType("\xFF"));
    EXPECT_STREQ(file.getFormType(), "");
    EXPECT_FALSE(file.setFormType(nullptr));
    EXPECT_FALSE(file.setFormType("ABCDE"));
    EXPECT_TRUE(file.setFormType(""));
    EXPECT_EQ(file.position(), 4);
    EXPECT_TRUE(file.close());
    EXPECT_EQ(contentOf("f"), riff("    ", subChunk("one ", "0123")));
    // Read back it keeps its blanks, and stays when the object closes, until a file says otherwise.
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_STREQ(file.getFormType(), "    ");
    EXPECT_FALSE(file.setFormType("NEW"));
    EXPECT_STREQ(file.getFormType(), "    ");
    EXPECT_TRUE(file.close());
    EXPECT_STREQ(file.getFormType(), "    ");
    ASSERT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_STREQ(file.getFormType(), "    ") << "the new file has none yet";
    EXPECT_TRUE(file.close());
    EXPECT_EQ(contentOf("f"), "RIFF" + littleEndian(0));
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_STREQ(file.getFormType(), "");
    EXPECT_TRUE(file.close());
}

TEST_F(RiffFileAtItsLimits, Lists_LookAtTheFirstOnesOnlyAndAtWholeIds) {
    putFile("f", three());
    RiffFile file("f", 8);
    std::array<SubChunkInfo, 4> list;
    EXPECT_EQ(file.getSubChunkInfoList(list.data(), 4), -1);
    EXPECT_EQ(file.getSubChunkNumber("one"), -1);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    for (unsigned int count : {0U, 1U, 2U, 3U, 4U}) {
        EXPECT_EQ(file.getSubChunkInfoList(list.data(), count), static_cast<int>(std::min(count, 3U)));
        EXPECT_EQ(file.getSubChunkInfoList("one", list.data(), count), count < 1 ? 0 : count < 3 ? 1 : 2);
    }
    EXPECT_EQ(list[1].mId, 2U);
    EXPECT_EQ(list[1].mDataSize, 6U);
    EXPECT_EQ(file.getSubChunkInfoList("two", list.data(), 1), 0);
    for (char const* id : {"one ", "on", "ONE", ""}) {
        EXPECT_EQ(file.getSubChunkNumber(id), 0) << id;
        EXPECT_EQ(file.getSubChunkInfoList(id, list.data(), 4), 0) << id;
    }
    EXPECT_EQ(file.getSubChunkNumber("one"), 2);
    EXPECT_EQ(file.getSubChunkNumber(nullptr), -1);
    EXPECT_EQ(file.getSubChunkInfoList(nullptr, list.data(), 4), -1);
    EXPECT_EQ(file.getSubChunkInfoList("one", nullptr, 4), -1);
    EXPECT_EQ(file.getSubChunkInfoList(nullptr, 4), -1);
    EXPECT_FALSE(file.getSubChunkInfo(0, nullptr));
    EXPECT_FALSE(file.getSubChunkInfo(3, list.data()));
    EXPECT_FALSE(file.getSubChunkInfo(~0U, list.data()));
    EXPECT_TRUE(file.close());
    EXPECT_FALSE(file.getSubChunkInfo(0, list.data()));
}

TEST_F(RiffFileAtItsLimits, AnIdOfBlanks_IsFoundAsTheEmptyText) {
    putFile("f", riff("TEST", subChunk("    ", "1") + subChunk("one ", "2") + subChunk("    ", "3")));
    RiffFile file("f", 8);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    std::array<SubChunkInfo, 4> list;
    EXPECT_EQ(file.getSubChunkNumber(""), 2);
    EXPECT_EQ(file.getSubChunkInfoList("", list.data(), 4), 2);
    EXPECT_EQ(list[1].mId, 2U);
    EXPECT_TRUE(list[1].mName == "");
    EXPECT_TRUE(SubChunkInfo(1, nullptr, 2).mName == "");
    EXPECT_TRUE(file.close());
}

TEST_F(RiffFileAtItsLimits, DataWithoutTheirSize_AreTakenForHeaders) {
    std::string const front = subChunk("one ", "1234");
    struct Case {
        std::string data;
        int result;
        unsigned int known;
    };
    // Silence is a row of empty headers; the end of the data can be a part of one; bytes that are no text, or
    // look like a size, end the walk.
    for (Case const& each : {Case{"", 0, 2},
                             {std::string(16, '\0'), 0, 4},
                             {std::string(17, '\0'), 1, 0},
                             {std::string(16, '\xFF'), 1, 0},
                             {"datadata", 0, 3},
                             {std::string(4000, '\0'), 0, 64}}) {
        std::string const content = riff("TEST", front + liarChunk("two ", 0, each.data));
        putFile("f", content);
        RiffFile file("f", 64);
        EXPECT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), each.result)
            << each.data.size();
        EXPECT_EQ(file.getSubChunkNumber(), each.result == 0 ? each.known : ~0U) << each.data.size();
        EXPECT_TRUE(file.close());
        EXPECT_EQ(contentOf("f"), content);
    }
}

TEST_F(RiffFileAtItsLimits, OnAClosedObject_EverythingHasItsFailureResult) {
    RiffFile file(nullptr, 4);
    char buffer[4] = {};
    EXPECT_STREQ(file.getPath(), "");
    EXPECT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 1);
    EXPECT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 1);
    EXPECT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ), 1);
    EXPECT_EQ(file.addSubChunk("one"), INVALID);
    EXPECT_FALSE(file.openSubChunk(0, SubChunk::AT_START));
    EXPECT_TRUE(file.closeSubChunk());
    EXPECT_EQ(file.read(buffer, 4), -1);
    EXPECT_EQ(file.write(buffer, 4), -1);
    EXPECT_EQ(file.seek(File::FROM_START, 0), -1);
    EXPECT_EQ(file.position(), -1);
    EXPECT_EQ(file.size(), -1);
    EXPECT_STREQ(file.getFormType(), "");
    EXPECT_FALSE(file.isOpened());
    EXPECT_TRUE(file.close());
    putFile("f", "0123");
    RiffFile other("f", 4);
    EXPECT_EQ(other.size(), 4) << "the file's, open or not";
    EXPECT_EQ(other.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ), 1);
    EXPECT_EQ(contentOf("f"), "0123");
}

TEST_F(RiffFileAtItsLimits, ManyThreadsOnOneObject_SeeWholeOperations) {
    RiffFile file("f", 200);
    ASSERT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(file.setFormType("TEST"));
    std::atomic<unsigned int> added{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 40; ++round) {
                if (file.addSubChunk("one") != INVALID) {
                    ++added;
                    file.write("0123", 4);
                    file.closeSubChunk();
                }
                static_cast<void>(file.isOpenedSubChunk(round));
                file.seek(File::FROM_START, 0);
                static_cast<void>(file.position());
                SubChunkInfo info;
                file.getSubChunkInfo(file.getSubChunkNumber() - 1, &info);
                file.setFormType("TEST");
                EXPECT_GE(file.size(), 12);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(file.getSubChunkNumber(), added.load());
    EXPECT_EQ(file.getSubChunkNumber("one"), static_cast<int>(added.load()));
    EXPECT_TRUE(file.close());
    EXPECT_EQ(contentOf("f").substr(4, 4),
              littleEndian(static_cast<unsigned int>(contentOf("f").size() - 8)));
}

TEST_F(RiffStatements, EveryOperation_ReportsItsWaitForTheLock) {
    char const* const source = "UtlRiffFile";
    putFile("f", three());
    RiffFile file("f", 4);
    char byte = 'x';
    std::array<SubChunkInfo, 4> list;
    expectBracket(source, "isOpened", [&] { return file.isOpened(); });
    expectBracket(source, "open",
                  [&] { EXPECT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0); });
    expectBracket(source, "openSubChunk", [&] { EXPECT_TRUE(file.openSubChunk(2, SubChunk::AT_START)); });
    expectBracket(source, "read", [&] { file.read(&byte, 1); });
    expectBracket(source, "write", [&] { file.write(&byte, 1); });
    expectBracket(source, "seek", [&] { file.seek(File::FROM_START, 0); });
    expectBracket(source, "position", [&] { return file.position(); });
    expectBracket(source, "size", [&] { return file.size(); });
    expectBracket(source, "getPath", [&] { return file.getPath(); });
    expectBracket(source, "setFormType", [&] { file.setFormType("TEST"); });
    expectBracket(source, "getFormType", [&] { return file.getFormType(); });
    expectBracket(source, "getSubChunkNumber", [&] { return file.getSubChunkNumber(); });
    expectBracket(source, "getSubChunkNumber", [&] { return file.getSubChunkNumber("one"); });
    expectBracket(source, "getSubChunkInfo", [&] { file.getSubChunkInfo(0, list.data()); });
    expectBracket(source, "getSubChunkInfoList", [&] { file.getSubChunkInfoList(list.data(), 4); });
    expectBracket(source, "getSubChunkInfoList", [&] { file.getSubChunkInfoList("one", list.data(), 4); });
    expectBracket(source, "closeSubChunk", [&] { file.closeSubChunk(); });
    expectBracket(source, "addSubChunk", [&] { file.addSubChunk("two"); });
    expectBracket(source, "close", [&] { RiffFile::AutoClose const closer(file); });
    EXPECT_FALSE(file.isOpened());
    EXPECT_EQ(mStatements.of([&] { return file.isOpenedSubChunk(0); }), NONE);
    EXPECT_EQ(mStatements.of([&] { EXPECT_EQ(file.open(2, 0), 1); }), NONE);
    EXPECT_EQ(mStatements.of([&] { EXPECT_FALSE(file.setFormType(nullptr)); }), NONE);
}

TEST_F(RiffStatements, TheNumberOfSubChunks_AsksWhetherTheFileIsOpenWhileItHoldsTheLock) {
    RiffFile file("f", 4);
    EXPECT_EQ(only(mStatements.of([&] { return file.getSubChunkNumber(); }), "UtlRiffFile"),
              (Names{"getSubChunkNumber 1", "getSubChunkNumber 2", "isOpened 1", "isOpened 2"}));
}

TEST_F(RiffFileAtItsLimits, AThreadThatWaitsForTheLock_StandsInFrontOfIt) {
    putFile("f", three());
    RiffFile file("f", 4);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    utltest::HookScope const scope;
    hooks::fstat.replace(heldFstat);
    std::thread holder([&] { EXPECT_EQ(file.size(), static_cast<long long>(three().size())); });
    ASSERT_TRUE(gInFstat.waitUntilHeld());
    EXPECT_FALSE(file.isOpenedSubChunk(0)) << "waits for nobody";
    std::atomic<int> id{0};
    std::thread waiter([&] {
        EXPECT_TRUE(utl::ThreadManager::get()->entryWatchdog(60000, nullptr));
        EXPECT_TRUE(utl::ThreadManager::get()->startWatchdog());
        id = utltest::kernelId();
        EXPECT_TRUE(file.isOpened());
        EXPECT_EQ(lastStatementOf(id).sub, 2U);
        EXPECT_TRUE(utl::ThreadManager::get()->unregisterWatchdog());
    });
    while (id == 0 || lastStatementOf(id).sub != 1U) {
        std::this_thread::yield();
    }
    utl::StatementInfo const waiting = lastStatementOf(id);
    EXPECT_STREQ(waiting.file, "source/UtlRiffFile");
    EXPECT_STREQ(waiting.function, "isOpened");
    gInFstat.open();
    waiter.join();
    holder.join();
    EXPECT_TRUE(file.close());
}

}  // namespace

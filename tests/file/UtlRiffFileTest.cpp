#include "UtlRiffFile.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

#include "TestFolder.h"
#include "TestHooks.h"
#include "TestLog.h"
#include "TestRiff.h"
#include "UtlFile.h"

namespace {

using utl::File;
using utl::INVALID_SIZE;
using utl::RiffFile;
using utl::SubChunkInfo;
using utltest::contentOf;
using HookScope = utltest::OwnHookScope;
using utltest::liarChunk;
using utltest::littleEndian;
using utltest::LogCapture;
using utltest::putFile;
using utltest::riff;
using utltest::subChunk;
namespace hooks = utltest::hooks;

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

// Cut in front of each byte of 200: each time one of the told results, and the file stays as it was.
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

// The second sub-chunk begins behind 4 GiB less one byte, on a 32-bit machine as well.
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

// What stands behind the size of a container must be said with 32 bits: with a first sub-chunk of this many
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

// The last is that of those taken down: writing it runs over what stands behind, which this object never saw.
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

}  // namespace

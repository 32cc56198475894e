#include "UtlWaveFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "TestCommand.h"
#include "TestFileCalls.h"
#include "TestFolder.h"
#include "TestHooks.h"
#include "TestLayout.h"
#include "TestLog.h"
#include "TestRiff.h"
#include "TestStatements.h"
#include "UtlFile.h"
#include "UtlRiffFile.h"
#include "UtlSubChunk.h"

namespace {

using namespace utltest;
using utl::File;
using utl::RiffFile;
using utl::SubChunk;
using utl::WaveFile;
using HookScope = utltest::OwnHookScope;
namespace hooks = utltest::hooks;
using Names = std::vector<std::string>;

// The data of "fmt", by the library's own rule for bytes per second and block align unless they are given.
std::string format(unsigned int rate, unsigned int channels, unsigned int bits, unsigned int id,
                   unsigned int bytesPerSecond, unsigned int blockAlign) {
    return littleEndian(id, 2) + littleEndian(channels, 2) + littleEndian(rate) +
           littleEndian(bytesPerSecond) + littleEndian(blockAlign, 2) + littleEndian(bits, 2);
}
std::string format(unsigned int rate, unsigned int channels, unsigned int bits, unsigned int id) {
    return format(rate, channels, bits, id, rate * channels * bits, channels * bits);
}

std::string wave(std::string const& fmt, std::string const& data) {
    return riff("WAVE", subChunk("fmt ", fmt) + subChunk("data", data));
}

std::string const MONO = wave(format(8000, 1, 16, 1), "123456");

class WaveFileInFolder : public utltest::InFolder {
  protected:
    void makeNew() {
        ASSERT_EQ(mWave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
        ASSERT_EQ(mWave.setFmtChunkData(8000, 1, 16, 1), 1);
    }

    static int writeText(WaveFile& file, std::string const& text) {
        return file.write(text.data(), static_cast<unsigned int>(text.size()));
    }

    static std::string readAll(WaveFile& file) {
        std::string all;
        char bytes[4096];
        int count = 0;
        while ((count = file.read(bytes, sizeof(bytes))) > 0) {
            all.append(bytes, static_cast<size_t>(count));
        }
        EXPECT_EQ(count, utl::SubChunk::END_OF_DATA);
        return all;
    }

    // The samples of a file on disk as this library reads them.
    static std::string samplesOf(char const* path) {
        WaveFile file(path);
        EXPECT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0) << path;
        EXPECT_EQ(file.openSubChunk(utl::SubChunk::AT_START, WaveFile::CHUNK_DATA), 1);
        std::string const samples = readAll(file);
        EXPECT_EQ(file.close(), 1);
        return samples;
    }

    void expectFormat(unsigned int rate, unsigned int channels, unsigned int bits, unsigned int id) {
        EXPECT_EQ(mWave.getSamplingRate(), rate);
        EXPECT_EQ(mWave.getChannel(), channels);
        EXPECT_EQ(mWave.getBitsWidth(), bits);
        EXPECT_EQ(mWave.getFormatId(), id);
        EXPECT_EQ(mWave.getBytePerSec(), rate * channels * bits);
        EXPECT_EQ(mWave.getBlockAlign(), (channels * bits) & 0xFFFFU);
    }

    WaveFile mWave{"f.wav"};
};

TEST_F(WaveFileInFolder, IsClosedAtFirst) {
    char byte = 0;
    EXPECT_EQ(mWave.isOpened(), 0);
    EXPECT_STREQ(mWave.getPath(), "f.wav");
    expectFormat(0, 0, 0, 0);
    EXPECT_EQ(mWave.setFmtChunkData(8000, 1, 16, 1), 0);
    expectFormat(0, 0, 0, 0);
    for (int const kind : {WaveFile::CHUNK_FMT, WaveFile::CHUNK_DATA}) {
        EXPECT_EQ(mWave.openSubChunk(utl::SubChunk::AT_START, kind), 0);
        EXPECT_EQ(mWave.isOpenedSubChunk(kind), 0);
        EXPECT_EQ(mWave.getChunkDataSize(kind), -1);
    }
    EXPECT_EQ(mWave.read(&byte, 1), -1);
    EXPECT_EQ(mWave.write(&byte, 1), -1);
    EXPECT_EQ(mWave.seek(utl::File::FROM_START, 0), -1);
    EXPECT_EQ(mWave.position(), -1);
    EXPECT_EQ(mWave.closeSubChunk(), 1);
    EXPECT_EQ(mWave.close(), 1);
}

TEST_F(WaveFileInFolder, Open_TakesOnly0And1) {
    for (int const wrong : {-1, 2, INT_MAX, INT_MIN}) {
        EXPECT_EQ(mWave.open(wrong, 0), 1);
        EXPECT_EQ(mWave.open(1, wrong), 1);
    }
    EXPECT_EQ(contentOf("f.wav"), "");
}

TEST_F(WaveFileInFolder, Open_OfANewFile_SetsTheFormType) {
    for (int const disposition : {0, 1}) {
        ::unlink("f.wav");
        WaveFile file("f.wav");
        ASSERT_EQ(file.open(disposition, 1), 0);
        EXPECT_EQ(file.close(), 1);
        EXPECT_EQ(contentOf("f.wav"), riff("WAVE", ""));
    }
}

TEST_F(WaveFileInFolder, Open_OfAMissingFileToRead_GivesOne) {
    EXPECT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 1);
    EXPECT_EQ(mWave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ), 1);
    EXPECT_EQ(mWave.isOpened(), 0);
}

TEST_F(WaveFileInFolder, Open_LoadsTheFormat) {
    putFile("f.wav", wave(format(44100, 2, 24, 3), "x"));
    for (int const access : {0, 1}) {
        ASSERT_EQ(mWave.open(0, access), 0);
        expectFormat(44100, 2, 24, 3);
        EXPECT_EQ(mWave.getChunkDataSize(WaveFile::CHUNK_FMT), 16);
        EXPECT_EQ(mWave.getChunkDataSize(WaveFile::CHUNK_DATA), 1);
        EXPECT_EQ(mWave.close(), 1);
    }
}

TEST_F(WaveFileInFolder, Open_OfAForeignFile_DropsItsBytesPerSecondAndBlockAlign) {
    putFile("f.wav", wave(format(8000, 1, 16, 1, 16000, 2), "x"));
    ASSERT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(mWave.getBytePerSec(), 128000U);
    EXPECT_EQ(mWave.getBlockAlign(), 16U);
}

TEST_F(WaveFileInFolder, Open_OfALongerFormat_ReadsTheFirst16Bytes) {
    putFile("f.wav", wave(format(8000, 1, 16, 1) + std::string(24, '?'), "x"));
    ASSERT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    expectFormat(8000, 1, 16, 1);
}

TEST_F(WaveFileInFolder, Open_OfAShorterFormat_GivesOneAndStaysOpen) {
    std::string const whole = format(8000, 1, 16, 1);
    for (size_t length = 0; length < whole.size(); ++length) {
        std::string const content = wave(whole.substr(0, length), "x");
        putFile("f.wav", content);
        WaveFile file("f.wav");
        EXPECT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 1) << length;
        EXPECT_EQ(file.isOpened(), 1);
        EXPECT_EQ(file.isOpenedSubChunk(WaveFile::CHUNK_FMT), 1);
        EXPECT_EQ(file.getSamplingRate(), 0U);
        EXPECT_EQ(file.close(), 1);
        EXPECT_EQ(contentOf("f.wav"), content);
    }
}

TEST_F(WaveFileInFolder, Open_OfAnotherFormType_GivesTwoAndIsClosed) {
    for (std::string const& content : {riff("AVI ", ""), riff("wave", ""),
                                       std::string("RIFF") + littleEndian(0), std::string("no RIFF file")}) {
        putFile("f.wav", content);
        EXPECT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 2) << content;
        EXPECT_EQ(mWave.isOpened(), 0);
        EXPECT_EQ(contentOf("f.wav"), content);
    }
}

TEST_F(WaveFileInFolder, Open_WithoutFmt_GivesThreeAndStaysOpen) {
    putFile("f.wav", riff("WAVE", subChunk("data", "x")));
    EXPECT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 3);
    EXPECT_EQ(mWave.isOpened(), 1);
    EXPECT_EQ(mWave.close(), 1);
}

TEST_F(WaveFileInFolder, Open_WithoutData_GivesFourAndStaysOpen) {
    putFile("f.wav", riff("WAVE", subChunk("fmt ", format(8000, 1, 16, 1))));
    EXPECT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 4);
    EXPECT_EQ(mWave.isOpened(), 1);
    EXPECT_EQ(mWave.getSamplingRate(), 0U);
    EXPECT_EQ(mWave.close(), 1);
}

TEST_F(WaveFileInFolder, Open_WithoutData_KnowsNoFmtEither_SoThatASecondOneIsAppended) {
    std::string const first = subChunk("fmt ", format(8000, 1, 16, 1));
    putFile("f.wav", riff("WAVE", first));
    ASSERT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 4);
    EXPECT_EQ(mWave.setFmtChunkData(48000, 2, 16, 1), 1);
    EXPECT_EQ(mWave.close(), 1);
    EXPECT_EQ(contentOf("f.wav").size(), riff("WAVE", first + first).size());
    EXPECT_EQ(contentOf("f.wav").substr(0, 4), "RIFF");
    EXPECT_EQ(contentOf("f.wav").substr(12, first.size()), first);
    EXPECT_EQ(contentOf("f.wav").substr(12 + first.size(), 4), "fmt ");
}

TEST_F(WaveFileInFolder, WriteBehindDataOfALyingSize_MakesAFileWithAHoleOfThatSize) {
    std::string const content = riff(
        "WAVE", subChunk("fmt ", format(8000, 1, 16, 1)) + liarChunk("data", 0xFFFFFF00U, "0123456789ab"));
    ASSERT_EQ(content.size(), 56U);
    putFile("f.wav", content);
    ASSERT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_EQ(mWave.openSubChunk(utl::SubChunk::AT_END, WaveFile::CHUNK_DATA), 1);
    EXPECT_EQ(mWave.write("x", 1), 1);
    EXPECT_EQ(mWave.size(), 44 + 0xFFFFFF00LL + 1);
    EXPECT_EQ(mWave.close(), 1);
}

TEST_F(WaveFileInFolder, Open_WithDataBehind64SubChunks_GivesFour) {
    std::string chunks = subChunk("fmt ", format(8000, 1, 16, 1));
    for (int i = 1; i < 63; ++i) {
        chunks += subChunk("more", "1");
    }
    putFile("f.wav", riff("WAVE", chunks + subChunk("data", "x")));
    EXPECT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(mWave.close(), 1);
    putFile("f.wav", riff("WAVE", chunks + subChunk("more", "1") + subChunk("data", "x")));
    EXPECT_EQ(WaveFile("f.wav").open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 4);
}

TEST_F(WaveFileInFolder, Open_OfAnOpenObject_GivesOneAndClosesIt) {
    putFile("f.wav", MONO);
    ASSERT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(mWave.open(2, 0), 1);
    EXPECT_EQ(mWave.isOpened(), 1);
    EXPECT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 1);
    EXPECT_EQ(mWave.isOpened(), 0);
}

TEST_F(WaveFileInFolder, Open_TakesTheFirstOfSeveral) {
    putFile("f.wav", riff("WAVE", subChunk("LIST", "x") + subChunk("fmt ", format(8000, 1, 16, 1)) +
                                      subChunk("data", "first") + subChunk("fmt ", format(1, 2, 3, 4)) +
                                      subChunk("data", "second")));
    ASSERT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    expectFormat(8000, 1, 16, 1);
    ASSERT_EQ(mWave.openSubChunk(utl::SubChunk::AT_START, WaveFile::CHUNK_DATA), 1);
    EXPECT_EQ(readAll(mWave), "first");
}

// Cut before each byte: a documented result, no hang, and the file stays as it was.
TEST_F(WaveFileInFolder, Open_OfACutFile_HasAToldResultAndChangesNothing) {
    std::string const whole = wave(format(8000, 1, 16, 1), std::string(170, 's'));
    for (size_t length = 0; length <= 200; ++length) {
        std::string const cut = whole.substr(0, length);
        putFile("f.wav", cut);
        WaveFile file("f.wav");
        int const wanted = length < 12    ? 2
                           : length == 12 ? 3
                           : length < 20  ? 1
                           : length <= 36 ? 4
                           : length < 44  ? 1
                                          : 0;
        EXPECT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), wanted) << length;
        if (wanted == 0) {
            EXPECT_EQ(file.openSubChunk(utl::SubChunk::AT_START, WaveFile::CHUNK_DATA), 1);
            EXPECT_EQ(readAll(file), std::string(length - 44, 's'));
        }
        EXPECT_EQ(file.close(), 1);
        EXPECT_EQ(contentOf("f.wav"), cut) << length;
    }
}

TEST_F(WaveFileInFolder, AFileThatIsWritten_HasAllSizesAfterClose) {
    makeNew();
    ASSERT_EQ(mWave.openSubChunk(utl::SubChunk::AT_START, WaveFile::CHUNK_DATA), 1);
    EXPECT_EQ(mWave.isOpenedSubChunk(WaveFile::CHUNK_DATA), 1);
    EXPECT_EQ(mWave.isOpenedSubChunk(WaveFile::CHUNK_FMT), 0);
    EXPECT_EQ(writeText(mWave, "123"), 3);
    EXPECT_EQ(writeText(mWave, "456"), 3);
    EXPECT_EQ(mWave.position(), 6);
    EXPECT_EQ(mWave.size(), 50);
    EXPECT_EQ(mWave.closeSubChunk(), 1);
    EXPECT_EQ(mWave.getChunkDataSize(WaveFile::CHUNK_DATA), 0);
    EXPECT_EQ(mWave.close(), 1);
    EXPECT_EQ(contentOf("f.wav"), MONO);
    EXPECT_EQ(samplesOf("f.wav"), "123456");
}

// The lines of the guide.
TEST_F(WaveFileInFolder, AutoClose_OfAFileThatIsWritten_LeavesAWholeFile) {
    char const samples[] = "123456";
    unsigned int const bytes = 6;
    {
        utl::WaveFile wave("memo.wav");
        utl::WaveFile::AutoClose const closing(wave);
        if (wave.open(utl::RiffFile::OPEN_NEW, utl::RiffFile::ACCESS_READ_WRITE) == utl::WaveFile::OPENED &&
            wave.setFmtChunkData(8000, 1, 16, 1) != 0 &&
            wave.openSubChunk(utl::SubChunk::AT_START, utl::WaveFile::CHUNK_DATA) != 0) {
            wave.write(samples, bytes);
        }
    }
    EXPECT_EQ(contentOf("memo.wav"), MONO);
}

TEST_F(WaveFileInFolder, SetFmtChunkData_WritesTheToldValues) {
    ASSERT_EQ(mWave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(mWave.setFmtChunkData(8000, 1, 16, 1), 1);
    expectFormat(8000, 1, 16, 1);
    std::string const data = contentOf("f.wav").substr(20);
    EXPECT_EQ(data.substr(8, 4), littleEndian(128000));
    EXPECT_EQ(data.substr(12, 2), littleEndian(16, 2));
}

TEST_F(WaveFileInFolder, SetFmtChunkData_OfLargeValues_WrapsAround) {
    ASSERT_EQ(mWave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(mWave.setFmtChunkData(0xFFFFFFFFU, 0xFFFF, 0xFFFE, 0xFFFD), 1);
    expectFormat(0xFFFFFFFFU, 0xFFFF, 0xFFFE, 0xFFFD);
    EXPECT_EQ(contentOf("f.wav").substr(20), format(0xFFFFFFFFU, 0xFFFF, 0xFFFE, 0xFFFD));
}

TEST_F(WaveFileInFolder, SetFmtChunkData_BeforeData_CanBeRepeated) {
    makeNew();
    EXPECT_EQ(mWave.setFmtChunkData(48000, 2, 24, 3), 1);
    expectFormat(48000, 2, 24, 3);
    EXPECT_EQ(mWave.close(), 1);
    EXPECT_EQ(contentOf("f.wav"), riff("WAVE", subChunk("fmt ", format(48000, 2, 24, 3))));
}

TEST_F(WaveFileInFolder, SetFmtChunkData_OnceDataIsThere_FailsAndKeepsTheValues) {
    putFile("f.wav", MONO);
    ASSERT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(mWave.setFmtChunkData(48000, 2, 24, 3), 0);
    expectFormat(8000, 1, 16, 1);
    EXPECT_EQ(mWave.isOpenedSubChunk(WaveFile::CHUNK_FMT), 0);
    EXPECT_EQ(mWave.close(), 1);
    EXPECT_EQ(contentOf("f.wav"), MONO);
}

TEST_F(WaveFileInFolder, SetFmtChunkData_WhileASubChunkIsOpen_Fails) {
    makeNew();
    ASSERT_EQ(mWave.openSubChunk(utl::SubChunk::AT_START, WaveFile::CHUNK_FMT), 1);
    EXPECT_EQ(mWave.setFmtChunkData(48000, 2, 24, 3), 0);
    expectFormat(8000, 1, 16, 1);
}

TEST_F(WaveFileInFolder, SetFmtChunkData_WhereTheSystemFails_FailsAndKeepsTheValues) {
    HookScope const scope;
    LogCapture const log;
    makeNew();
    hooks::write.failFrom(1, 1, -1, ENOSPC);
    EXPECT_EQ(mWave.setFmtChunkData(48000, 2, 24, 3), 0);
    EXPECT_EQ(mWave.isOpenedSubChunk(WaveFile::CHUNK_FMT), 0);
    hooks::write.reset();
    hooks::lseek.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(mWave.setFmtChunkData(48000, 2, 24, 3), 0);
    expectFormat(8000, 1, 16, 1);
}

TEST_F(WaveFileInFolder, OpenSubChunk_OfDataWithoutFmt_Fails) {
    ASSERT_EQ(mWave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(mWave.openSubChunk(utl::SubChunk::AT_START, WaveFile::CHUNK_DATA), 0);
    EXPECT_EQ(mWave.openSubChunk(utl::SubChunk::AT_END, WaveFile::CHUNK_DATA), 0);
    EXPECT_EQ(mWave.size(), 12);
}

TEST_F(WaveFileInFolder, OpenSubChunk_OfFmtThatIsNotThere_AddsItAndLeavesItOpen) {
    ASSERT_EQ(mWave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(mWave.openSubChunk(utl::SubChunk::AT_END, WaveFile::CHUNK_FMT), 1);
    EXPECT_EQ(mWave.isOpenedSubChunk(WaveFile::CHUNK_FMT), 1);
    EXPECT_EQ(mWave.getChunkDataSize(WaveFile::CHUNK_FMT), 0);
    EXPECT_EQ(writeText(mWave, "12"), 2);
}

TEST_F(WaveFileInFolder, OpenSubChunk_OfAnotherModeOrKind_Fails) {
    makeNew();
    EXPECT_EQ(mWave.openSubChunk(2, WaveFile::CHUNK_DATA), 0);
    EXPECT_EQ(mWave.openSubChunk(-1, WaveFile::CHUNK_FMT), 0);
    for (int const kind : {-1, 2, INT_MAX}) {
        EXPECT_EQ(mWave.openSubChunk(utl::SubChunk::AT_START, kind), 0);
        EXPECT_EQ(mWave.isOpenedSubChunk(kind), 0);
        EXPECT_EQ(mWave.getChunkDataSize(kind), -1);
    }
}

TEST_F(WaveFileInFolder, OpenSubChunk_Mode1_AppendsSamples) {
    putFile("f.wav", MONO);
    ASSERT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_EQ(mWave.openSubChunk(utl::SubChunk::AT_END, WaveFile::CHUNK_DATA), 1);
    EXPECT_EQ(writeText(mWave, "78"), 2);
    EXPECT_EQ(mWave.close(), 1);
    EXPECT_EQ(contentOf("f.wav"), wave(format(8000, 1, 16, 1), "12345678"));
}

TEST_F(WaveFileInFolder, Write_BeforeThereIsAFmt_Fails) {
    ASSERT_EQ(mWave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(writeText(mWave, "12"), -1);
    EXPECT_EQ(mWave.size(), 12);
}

TEST_F(WaveFileInFolder, Seek_MovesInsideTheData) {
    putFile("f.wav", MONO);
    ASSERT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    ASSERT_EQ(mWave.openSubChunk(utl::SubChunk::AT_START, WaveFile::CHUNK_DATA), 1);
    EXPECT_EQ(mWave.seek(utl::File::FROM_END, -2), 4);
    EXPECT_EQ(readAll(mWave), "56");
    EXPECT_EQ(mWave.seek(utl::File::FROM_START, 7), -1);
}

// The numbers of the sub-chunks stay, which the new file does not have.
TEST_F(WaveFileInFolder, Close_KeepsFormatAndNumbers) {
    makeNew();
    ASSERT_EQ(mWave.openSubChunk(utl::SubChunk::AT_START, WaveFile::CHUNK_DATA), 1);
    ASSERT_EQ(mWave.close(), 1);
    expectFormat(8000, 1, 16, 1);
    ASSERT_EQ(mWave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(mWave.openSubChunk(utl::SubChunk::AT_START, WaveFile::CHUNK_FMT), 0);
    EXPECT_EQ(mWave.openSubChunk(utl::SubChunk::AT_START, WaveFile::CHUNK_DATA), 0);
    EXPECT_EQ(mWave.setFmtChunkData(8000, 1, 16, 1), 0);
}

TEST_F(WaveFileInFolder, AutoClose_ClosesAtTheEndOfItsScope) {
    makeNew();
    { WaveFile::AutoClose const closing(mWave); }
    EXPECT_EQ(mWave.isOpened(), 0);
    EXPECT_EQ(contentOf("f.wav"), riff("WAVE", subChunk("fmt ", format(8000, 1, 16, 1))));
}

TEST_F(WaveFileInFolder, Open_WhereTheFormTypeCannotBeWritten_GivesOneAndIsClosed) {
    HookScope const scope;
    LogCapture const log;
    hooks::write.failFrom(3, 1, -1, ENOSPC);
    EXPECT_EQ(mWave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 1);
    EXPECT_EQ(mWave.isOpened(), 0);
}

TEST_F(WaveFileInFolder, ReadsWhatSoxWrote_SampleBySample) {
    for (char const* const kind :
         {"-c 1 -r 8000 -b 16", "-c 2 -r 44100 -b 16", "-c 1 -r 22000 -b 8 -e unsigned",
          "-c 2 -r 48000 -b 24", "-c 1 -r 16000 -e floating-point -b 32"}) {
        outputOf(std::string("sox -D -n ") + kind + " s.wav synth 0.5 sine 440 sine 660");
        std::string const decoded = outputOf("sox -D s.wav -t raw -");
        EXPECT_FALSE(decoded.empty());
        EXPECT_TRUE(samplesOf("s.wav") == decoded) << kind;
    }
}

// Sox fills up data of an odd size, which is no rule here.
TEST_F(WaveFileInFolder, Open_OfAForeignFileWithAnOddNumberOfBytes_Fails) {
    outputOf("sox -D -n -c 1 -r 8000 -b 8 -e unsigned f.wav synth 101s sine 440");
    EXPECT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 1);
}

TEST_F(WaveFileInFolder, ReadsTheFormatThatSoxSees) {
    outputOf("sox -D -n -c 2 -r 44100 -b 16 f.wav synth 0.1 sine 440");
    ASSERT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(std::to_string(mWave.getSamplingRate()) + "\n", outputOf("soxi -r f.wav"));
    EXPECT_EQ(std::to_string(mWave.getChannel()) + "\n", outputOf("soxi -c f.wav"));
    EXPECT_EQ(std::to_string(mWave.getBitsWidth()) + "\n", outputOf("soxi -b f.wav"));
    EXPECT_EQ(mWave.getFormatId(), 1U);
}

TEST_F(WaveFileInFolder, ReadsASpokenSentence_SampleBySample) {
    outputOf("espeak-ng -v ja -w spoken.wav 'こんにちは'");
    std::string const decoded = outputOf("sox -D spoken.wav -t raw -");
    EXPECT_GT(decoded.size(), 1000U);
    EXPECT_TRUE(samplesOf("spoken.wav") == decoded);
}

// Sox computes bytes per second and block align anew, with a warning.
TEST_F(WaveFileInFolder, WritesWhatSoxReads_SampleBySample) {
    std::string samples;
    std::mt19937 random(1);
    for (int i = 0; i < 20000; ++i) {
        samples += static_cast<char>(random() & 0xFFU);
    }
    makeNew();
    ASSERT_EQ(mWave.openSubChunk(utl::SubChunk::AT_START, WaveFile::CHUNK_DATA), 1);
    ASSERT_EQ(writeText(mWave, samples), 20000);
    ASSERT_EQ(mWave.close(), 1);
    EXPECT_EQ(outputOf("soxi -s f.wav 2>&1 | tail -n 1"), "10000\n");
    EXPECT_TRUE(outputOf("sox -D f.wav -t raw - 2>/dev/null") == samples);
}

TEST_F(WaveFileInFolder, TwoThreads_ReadEverySampleOnce) {
    std::string const samples(20000, 's');
    putFile("f.wav", wave(format(8000, 1, 16, 1), samples));
    ASSERT_EQ(mWave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    ASSERT_EQ(mWave.openSubChunk(utl::SubChunk::AT_START, WaveFile::CHUNK_DATA), 1);
    auto const countAll = [this](size_t* sum) {
        char bytes[64];
        for (int count = 0; (count = mWave.read(bytes, sizeof(bytes))) > 0;) {
            *sum += static_cast<size_t>(count);
            EXPECT_EQ(mWave.getSamplingRate(), 8000U);
        }
    };
    size_t here = 0;
    size_t there = 0;
    std::thread other([&] { countAll(&there); });
    countAll(&here);
    other.join();
    EXPECT_EQ(here + there, samples.size());
}

// The child is killed wherever it is; the file is then in a documented state.
TEST_F(WaveFileInFolder, AWriterThatIsKilled_LeavesAFileThatOpensWithAToldResult) {
    utl::ThreadManager::get()->setWatchdogWatchInterval(0);  // holds no lock while the process forks
    std::mt19937 random(2);
    for (int i = 0; i < 50; ++i) {
        ::unlink("f.wav");
        pid_t const child = fork();
        if (child == 0) {
            for (;;) {
                WaveFile file("f.wav");
                file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE);
                file.setFmtChunkData(8000, 1, 16, 1);
                file.openSubChunk(utl::SubChunk::AT_START, WaveFile::CHUNK_DATA);
                for (int piece = 0; piece < 20; ++piece) {
                    writeText(file, "0123456789");
                }
                file.closeSubChunk();
                file.close();
            }
        }
        ASSERT_GT(child, 0);
        while (contentOf("f.wav").empty()) {
            usleep(100);
        }
        usleep(static_cast<useconds_t>(random() % 3000));
        kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        std::string const content = contentOf("f.wav");
        WaveFile left("f.wav");
        int const result = left.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ);
        if (content.size() < 12) {
            EXPECT_EQ(result, 2) << content.size();
        } else {
            EXPECT_TRUE(result == 0 || result == 1 || result == 3 || result == 4) << result;
        }
        if (result == 0) {
            ASSERT_EQ(left.openSubChunk(utl::SubChunk::AT_START, WaveFile::CHUNK_DATA), 1);
            std::string const samples = readAll(left);
            EXPECT_EQ(samples.find_first_not_of("0123456789"), std::string::npos);
        }
        left.close();
        EXPECT_EQ(contentOf("f.wav"), content);
    }
}

TEST(WaveFileNames, AreTheNumbersThatCallersPassAndGet) {
    static_assert(WaveFile::CHUNK_FMT == 0 && WaveFile::CHUNK_DATA == 1);
    static_assert(WaveFile::OPENED == 0 && WaveFile::OPEN_FAILED == 1 && WaveFile::NO_WAVE_FILE == 2);
    static_assert(WaveFile::NO_FMT_CHUNK == 3 && WaveFile::NO_DATA_CHUNK == 4);
}

TEST(WaveFileTraits, WhatTakesNoLockNeverThrows) {
    static_assert(noexcept(std::declval<WaveFile&>().getSamplingRate()));
    static_assert(noexcept(std::declval<WaveFile&>().getChannel()));
    static_assert(noexcept(std::declval<WaveFile&>().getBitsWidth()));
    static_assert(noexcept(std::declval<WaveFile&>().getFormatId()));
    static_assert(noexcept(std::declval<WaveFile&>().getBytePerSec()));
    static_assert(noexcept(std::declval<WaveFile&>().getBlockAlign()));
    static_assert(std::is_nothrow_constructible_v<WaveFile::AutoClose, WaveFile&>);
}

TEST(WaveFileTraits, NeitherAWaveFileNorItsAutoClose_IsCopied) {
    static_assert(!std::is_copy_constructible_v<WaveFile> && !std::is_copy_assignable_v<WaveFile>);
    static_assert(!std::is_copy_constructible_v<WaveFile::AutoClose>);
    static_assert(!std::is_copy_assignable_v<WaveFile::AutoClose>);
}

// At the limits, in odd orders, and on files that fail or lie.

constexpr unsigned long long GIB4 = 0x100000000ULL;
Names const NONE;

using WaveFileAtItsLimits = InLoggedFolder;
using WaveStatements = WithStatements;

std::string waveOf(unsigned int before) {
    std::string chunks = subChunk("fmt ", formatOf(8000, 1, 16));
    for (unsigned int i = 1; i < before; ++i) {
        chunks += subChunk("junk", "j");
    }
    return riff("WAVE", chunks + subChunk("data", "0123456789"));
}

TEST_F(WaveFileAtItsLimits, FieldsStandInTheirOrder) {
    static_assert(sizeof(WaveFile) == sizeof(WaveFields));
    static_assert(std::has_virtual_destructor_v<WaveFile>);
    static_assert(std::has_virtual_destructor_v<WaveFile::AutoClose>);
    WaveFields const fields{};
    putFile("f", riff("WAVE", subChunk("junk", "") + subChunk("fmt ", formatOf(0x12345678, 2, 8, 0x3456)) +
                                  subChunk("data", "12")));
    WaveFile wave("f");
    EXPECT_EQ(fieldAt<int>(wave, offsetIn(fields, fields.fmtChunkId)), -1);
    EXPECT_EQ(fieldAt<int>(wave, offsetIn(fields, fields.dataChunkId)), -1);
    ASSERT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(fieldAt<int>(wave, offsetIn(fields, fields.fmtChunkId)), 1);
    EXPECT_EQ(fieldAt<int>(wave, offsetIn(fields, fields.dataChunkId)), 2);
    EXPECT_EQ(fieldAt<unsigned int>(wave, offsetIn(fields, fields.samplingRate)), 0x12345678U);
    EXPECT_EQ(fieldAt<unsigned short>(wave, offsetIn(fields, fields.channel)), 2U);
    EXPECT_EQ(fieldAt<unsigned short>(wave, offsetIn(fields, fields.bitsWidth)), 8U);
    EXPECT_EQ(fieldAt<unsigned short>(wave, offsetIn(fields, fields.formatId)), 0x3456U);
    EXPECT_TRUE(wave.close());
}

// Seeks of a file system whose files end at 4 GiB.
off_t seekBelow4GiB(int descriptor, off_t offset, int whence) {
    if (whence == SEEK_SET && offset >= static_cast<off_t>(GIB4)) {
        errno = EINVAL;
        return -1;
    }
    return hooks::lseek.real(descriptor, offset, whence);
}

TEST_F(WaveFileAtItsLimits, AStreamedFile_WhoseDataSizeIsNotKnown_OpensWhereNoFileCanBeThatLong) {
    putFile("f",
            riff("WAVE", subChunk("fmt ", formatOf(8000, 1, 16)) + liarChunk("data", 0xFFFFFFFFU, "0123")));
    for (int const access : {0, 1}) {
        WaveFile wave("f");
        HookScope const scope;
        hooks::lseek.replace(seekBelow4GiB);
        ASSERT_EQ(wave.open(0, access), 0);
        EXPECT_EQ(wave.getSamplingRate(), 8000U);
        EXPECT_EQ(wave.getChunkDataSize(WaveFile::CHUNK_DATA), 0xFFFFFFFFLL);
        ASSERT_TRUE(wave.openSubChunk(SubChunk::AT_START, WaveFile::CHUNK_DATA));
        char buffer[8] = {};
        EXPECT_EQ(wave.read(buffer, 8), 4);
        EXPECT_STREQ(buffer, "0123");
        EXPECT_EQ(wave.read(buffer, 8), SubChunk::END_OF_DATA);
        EXPECT_TRUE(wave.close());
    }
    EXPECT_EQ(mLog.lines(), Names());
}

TEST_F(WaveFileAtItsLimits, DataBehind64SubChunks_AreNotFound) {
    for (unsigned int before : {62U, 63U, 64U, 65U}) {
        putFile("f", waveOf(before));
        WaveFile wave("f");
        EXPECT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), before < 64 ? 0 : 4) << before;
        EXPECT_TRUE(wave.isOpened());
        EXPECT_EQ(wave.getChunkDataSize(WaveFile::CHUNK_DATA), before < 64 ? 10 : -1);
        EXPECT_EQ(wave.openSubChunk(SubChunk::AT_START, WaveFile::CHUNK_DATA), before < 64);
        EXPECT_TRUE(wave.close());
        EXPECT_EQ(contentOf("f"), waveOf(before));
    }
}

TEST_F(WaveFileAtItsLimits, AFormatOfEveryLength_LoadsFrom16BytesOn) {
    for (unsigned int length = 0; length <= 18; ++length) {
        std::string const data = (formatOf(44100, 2, 16) + "xx").substr(0, length);
        putFile("f", riff("WAVE", subChunk("fmt ", data) + subChunk("data", "0123")));
        WaveFile wave("f");
        EXPECT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), length < 16 ? 1 : 0) << length;
        EXPECT_TRUE(wave.isOpened());
        EXPECT_EQ(wave.isOpenedSubChunk(WaveFile::CHUNK_FMT), length < 16) << length;
        EXPECT_EQ(wave.getSamplingRate(), length < 16 ? 0U : 44100U);
        EXPECT_EQ(wave.getChannel(), length < 16 ? 0U : 2U);
        EXPECT_EQ(wave.getChunkDataSize(WaveFile::CHUNK_FMT), static_cast<long long>(length));
        EXPECT_TRUE(wave.close());
    }
}

TEST_F(WaveFileAtItsLimits, TheLargestFormatValues_WrapInTheirWidths) {
    {
        WaveFile wave("f");
        ASSERT_EQ(wave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
        ASSERT_TRUE(wave.setFmtChunkData(~0U, 0xFFFF, 0xFFFF, 0xFFFF));
        EXPECT_EQ(wave.getBlockAlign(), 1U);
        EXPECT_EQ(wave.getBytePerSec(), 0x0001FFFFU);
        EXPECT_TRUE(wave.close());
    }
    EXPECT_EQ(contentOf("f").substr(20), "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF" + littleEndian(0x0001FFFFU) +
                                             littleEndian(1, 2) + "\xFF\xFF");
}

TEST_F(WaveFileAtItsLimits, AFormatOfWhichOnlyAPartWasWritten_IsAFailureThatKeepsTheOldValues) {
    WaveFile wave("f");
    ASSERT_EQ(wave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(wave.setFmtChunkData(8000, 1, 16, 1));
    HookScope const scope;
    writeShort(1);
    EXPECT_FALSE(wave.setFmtChunkData(48000, 2, 24, 1));
    EXPECT_EQ(hooks::write.calls(), 1U);
    EXPECT_EQ(wave.getSamplingRate(), 8000U);
    EXPECT_TRUE(wave.setFmtChunkData(48000, 2, 24, 1));
    EXPECT_EQ(wave.getSamplingRate(), 48000U);
    EXPECT_TRUE(wave.close());
}

TEST_F(WaveFileAtItsLimits, AWriterWhoseNthWriteFails_KeepsOldValuesAndCanGoOn) {
    for (unsigned int nth = 1;; ++nth) {
        WaveFile wave("f");
        HookScope const scope;
        hooks::write.failFrom(nth, 1, -1, ENOSPC);
        if (wave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE) != 0) {
            EXPECT_FALSE(wave.isOpened()) << nth;
            continue;
        }
        if (wave.setFmtChunkData(8000, 1, 16, 1)) {
            EXPECT_LT(hooks::write.calls(), nth);
            hooks::write.reset();
            EXPECT_TRUE(wave.close());
            break;
        }
        hooks::write.reset();
        EXPECT_EQ(wave.getSamplingRate(), 0U);
        EXPECT_EQ(wave.getFormatId(), 0U);
        // The format's sub-chunk is not left open, whatever was written of it, except where its size was
        // what failed.
        wave.closeSubChunk();
        EXPECT_TRUE(wave.setFmtChunkData(8000, 1, 16, 1)) << nth;
        EXPECT_EQ(wave.getSamplingRate(), 8000U);
        EXPECT_TRUE(wave.close());
    }
}

TEST_F(WaveFileAtItsLimits, FormatData_AreReplacedUntilDataStandBehindThem) {
    WaveFile wave("f");
    ASSERT_EQ(wave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(wave.write("x", 1), -1);
    EXPECT_FALSE(wave.openSubChunk(SubChunk::AT_START, WaveFile::CHUNK_DATA));
    ASSERT_TRUE(wave.setFmtChunkData(8000, 1, 16, 1));
    ASSERT_TRUE(wave.setFmtChunkData(16000, 2, 8, 2));
    EXPECT_EQ(wave.getChunkDataSize(WaveFile::CHUNK_FMT), 0) << "as it was added";
    EXPECT_EQ(wave.getChunkDataSize(WaveFile::CHUNK_DATA), -1);
    ASSERT_TRUE(wave.openSubChunk(SubChunk::AT_END, WaveFile::CHUNK_DATA));
    EXPECT_TRUE(wave.isOpenedSubChunk(WaveFile::CHUNK_DATA));
    EXPECT_FALSE(wave.isOpenedSubChunk(WaveFile::CHUNK_FMT));
    EXPECT_FALSE(wave.isOpenedSubChunk(2));
    EXPECT_FALSE(wave.setFmtChunkData(1, 1, 1, 1)) << "while data are open";
    EXPECT_EQ(wave.write("0123", 4), 4);
    ASSERT_TRUE(wave.closeSubChunk());
    EXPECT_FALSE(wave.setFmtChunkData(1, 1, 1, 1));
    EXPECT_FALSE(wave.isOpenedSubChunk(WaveFile::CHUNK_FMT));
    EXPECT_EQ(wave.getSamplingRate(), 16000U);
    EXPECT_FALSE(wave.openSubChunk(2, WaveFile::CHUNK_DATA));
    EXPECT_FALSE(wave.openSubChunk(SubChunk::AT_START, 2));
    ASSERT_TRUE(wave.openSubChunk(SubChunk::AT_END, WaveFile::CHUNK_DATA));
    EXPECT_EQ(wave.position(), 4);
    EXPECT_EQ(wave.write("45", 2), 2);
    EXPECT_TRUE(wave.close());
    std::string const bytes = contentOf("f");
    EXPECT_EQ(bytes.substr(36), subChunk("data", "012345"));
    EXPECT_EQ(bytes.substr(4, 4), littleEndian(static_cast<unsigned int>(bytes.size() - 8)));
    EXPECT_EQ(bytes.substr(12, 8), "fmt " + littleEndian(16));
}

TEST_F(WaveFileAtItsLimits, OneObjectForManyFiles_KeepsItsNumbersAsTold) {
    putFile("f", waveOf(5));
    WaveFile wave("f");
    ASSERT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 1) << "and closed";
    EXPECT_FALSE(wave.isOpened());
    ASSERT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(wave.open(0, 2), 1);
    EXPECT_TRUE(wave.isOpened()) << "wrong arguments touch nothing";
    EXPECT_TRUE(wave.close());
    EXPECT_TRUE(wave.close());
    EXPECT_EQ(wave.getSamplingRate(), 8000U);
    EXPECT_EQ(wave.getChunkDataSize(WaveFile::CHUNK_DATA), -1);
    EXPECT_FALSE(wave.openSubChunk(SubChunk::AT_START, WaveFile::CHUNK_DATA));
    // A new file does not have the number that "data" had.
    ASSERT_EQ(wave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_FALSE(wave.setFmtChunkData(8000, 1, 16, 1));
    EXPECT_FALSE(wave.openSubChunk(SubChunk::AT_START, WaveFile::CHUNK_FMT));
    EXPECT_FALSE(wave.openSubChunk(SubChunk::AT_START, WaveFile::CHUNK_DATA));
    EXPECT_TRUE(wave.close());
    EXPECT_EQ(contentOf("f"), riff("WAVE", ""));
    EXPECT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 3);
    EXPECT_TRUE(wave.isOpened());
    EXPECT_TRUE(wave.close());
    putFile("f", riff("WAVe", ""));
    EXPECT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 2);
    EXPECT_FALSE(wave.isOpened());
    putFile("f", "RIFF" + littleEndian(0));
    EXPECT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 2) << "there, and so not new";
    EXPECT_FALSE(wave.isOpened());
    EXPECT_EQ(contentOf("f"), "RIFF" + littleEndian(0));
}

TEST_F(WaveFileAtItsLimits, ValuesAreReadWhileAnotherThreadSetsThem) {
    WaveFile wave("f");
    ASSERT_EQ(wave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done) {
            unsigned int const rate = wave.getSamplingRate();
            EXPECT_TRUE(rate == 0 || rate == 1000 || rate == 2000);
            static_cast<void>(wave.getBytePerSec());
            static_cast<void>(wave.getBlockAlign());
            static_cast<void>(wave.getChannel());
            static_cast<void>(wave.getBitsWidth());
            static_cast<void>(wave.getFormatId());
            static_cast<void>(wave.isOpenedSubChunk(WaveFile::CHUNK_FMT));
            static_cast<void>(wave.getChunkDataSize(WaveFile::CHUNK_FMT));
        }
    });
    for (unsigned int i = 0; i < 50; ++i) {
        EXPECT_TRUE(wave.setFmtChunkData(1000 + i % 2 * 1000, 1, 16, 1));
    }
    done = true;
    reader.join();
    EXPECT_TRUE(wave.close());
}

TEST_F(WaveStatements, EveryOperation_ReportsItsWaitForTheLock) {
    char const* const source = "UtlWaveFile";
    putFile("f", riff("WAVE", subChunk("fmt ", formatOf(8000, 1, 16)) + subChunk("data", "0123")));
    WaveFile wave("f");
    char byte = 'x';
    expectBracket(source, "open",
                  [&] { EXPECT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0); });
    expectBracket(source, "isOpened", [&] { return wave.isOpened(); });
    expectBracket(source, "openSubChunk",
                  [&] { EXPECT_TRUE(wave.openSubChunk(SubChunk::AT_START, WaveFile::CHUNK_DATA)); });
    expectBracket(source, "isOpenedSubChunk", [&] { return wave.isOpenedSubChunk(WaveFile::CHUNK_FMT); });
    expectBracket(source, "getChunkDataSize", [&] { return wave.getChunkDataSize(WaveFile::CHUNK_FMT); });
    expectBracket(source, "read", [&] { wave.read(&byte, 1); });
    expectBracket(source, "write", [&] { wave.write(&byte, 1); });
    expectBracket(source, "seek", [&] { wave.seek(File::FROM_START, 0); });
    expectBracket(source, "position", [&] { return wave.position(); });
    expectBracket(source, "size", [&] { return wave.size(); });
    expectBracket(source, "getPath", [&] { return wave.getPath(); });
    expectBracket(source, "closeSubChunk", [&] { wave.closeSubChunk(); });
    expectBracket(source, "setFmtChunkData", [&] { wave.setFmtChunkData(1, 1, 1, 1); });
    EXPECT_EQ(mStatements.of([&] {
        static_cast<void>(wave.getSamplingRate());
        static_cast<void>(wave.getChannel());
        static_cast<void>(wave.getBitsWidth());
        static_cast<void>(wave.getFormatId());
        static_cast<void>(wave.getBytePerSec());
        static_cast<void>(wave.getBlockAlign());
    }),
              NONE);
    EXPECT_EQ(mStatements.of([&] { EXPECT_FALSE(wave.openSubChunk(2, WaveFile::CHUNK_FMT)); }), NONE);
    EXPECT_EQ(mStatements.of([&] { EXPECT_EQ(wave.open(2, 0), 1); }), NONE);
    expectBracket(source, "close", [&] { WaveFile::AutoClose const closer(wave); });
    EXPECT_FALSE(wave.isOpened());
}

TEST_F(WaveStatements, ARead_TakesTheLocksFromTheOutsideIn) {
    putFile("f", riff("WAVE", subChunk("fmt ", formatOf(8000, 1, 16)) + subChunk("data", "0123")));
    WaveFile wave("f");
    ASSERT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    ASSERT_TRUE(wave.openSubChunk(SubChunk::AT_START, WaveFile::CHUNK_DATA));
    char byte = 'x';
    Names found = mStatements.of([&] { wave.read(&byte, 1); });
    ASSERT_GE(found.size(), 6U);
    found.resize(6);
    EXPECT_EQ(found,
              (Names{"source/UtlWaveFile read 1", "source/UtlWaveFile read 2", "source/UtlRiffFile read 1",
                     "source/UtlRiffFile read 2", "source/UtlSubChunk read 1", "source/UtlSubChunk read 2"}));
    EXPECT_TRUE(wave.close());
}

}  // namespace

// The log into a file, as one more sink.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "TestHooks.h"
#include "TestTextFile.h"

namespace {

using utl::File;
using utltest::contentOf;
using utltest::encoded;
using utltest::HookScope;
using utltest::TYPES_OF_UNITS;
namespace hooks = utltest::hooks;
using namespace std::string_literals;
using Lines = std::vector<std::string>;

constexpr int TYPE = 7;
constexpr File* NO_FILE = nullptr;
std::size_t const STAMP_LENGTH = std::strlen("Nov 20 23:25:41.123 ");

class LogFile : public utltest::TextInFolder {
  protected:
    LogFile() { registerLogType(TYPE, "<TEST> ", utl::LOG_LEVEL_DEBUG); }

    /// What was written, without the stamp of its first line.
    std::string writtenBehindTheStamp() { return written().substr(STAMP_LENGTH); }
};

TEST_F(LogFile, Applog_GivesTheFileWhatStandardOutputGets) {
    File& file = writing("", File::TEXT_UTF8);
    applog(TYPE, 3, &file, "value %d of %s", 5, "name");
    EXPECT_EQ(written(), mLog.console().at(0));
    EXPECT_EQ(mLog.lines(), (Lines{"<TEST> INF: value 5 of name"}));
    EXPECT_EQ(contentOf("text").substr(STAMP_LENGTH), "<TEST> INF: value 5 of name\r\n");
    EXPECT_EQ(mLog.systemLog().at(0).text, "<TEST> INF: value 5 of name");
    EXPECT_EQ(mLog.binary(), mLog.console());
}

TEST_F(LogFile, Rawlog_GivesTheFileTheTextAlone) {
    File& file = writing("", File::TEXT_UTF8);
    rawlog(TYPE, 3, &file, "value %d of %s", 5, "name");
    EXPECT_EQ(written(), "value 5 of name");
    EXPECT_EQ(mLog.console(), (Lines{"value 5 of name"}));
    EXPECT_EQ(mLog.binary(), mLog.console());
}

TEST_F(LogFile, GetsEveryLevelThatPasses) {
    File& file = writing("", File::TEXT_UTF8);
    for (int level = 0; level <= 7; ++level) {
        rawlog(TYPE, level, &file, "%d.", level);
    }
    rawlog(TYPE, -1, &file, "-1.");
    EXPECT_EQ(written(), "1.2.3.4.5.6.7.-1.");
    EXPECT_EQ(mLog.systemLog().size(), 3U);
    EXPECT_EQ(mLog.binary().size(), 3U);
}

TEST_F(LogFile, GetsNothingThatIsFilteredOut) {
    File& file = writing("", File::TEXT_UTF8);
    setFilterLevel(TYPE, 3);
    applog(TYPE, 4, &file, "x");
    rawlog(TYPE, 4, &file, "x");
    rawlog(TYPE, 3, &file, "passes");
    EXPECT_EQ(written(), "passes");
}

TEST_F(LogFile, OfAnUnregisteredType_PassesByTheDefaultEntry) {
    File& file = writing("", File::TEXT_UTF8);
    applog(12345, 4, &file, "x");
    applog(12345, 5, &file, "y");
    EXPECT_EQ(writtenBehindTheStamp(), "DTL: x\r\n");
}

TEST_F(LogFile, WithANullFormat_GetsNothing) {
    File& file = writing("", File::TEXT_UTF8);
    char const* const none = nullptr;
    applog(TYPE, 1, &file, none);
    rawlog(TYPE, 1, &file, none);
    EXPECT_EQ(written(), "");
    EXPECT_EQ(mLog.sinkOrder(), "");
}

TEST_F(LogFile, WithANullFile_GoesToTheOtherSinksAlone) {
    applog(TYPE, 1, NO_FILE, "value %d", 5);
    rawlog(TYPE, 1, NO_FILE, "raw %d", 6);
    EXPECT_EQ(mLog.sinkOrder(), "scbscb");
    EXPECT_EQ(mLog.lines().at(0), "<TEST> ERR: value 5");
    EXPECT_EQ(mLog.console().at(1), "raw 6");
}

TEST_F(LogFile, WithAPlainNull_IsStillTheFormWithAFile) {
    applog(TYPE, 1, nullptr, "value %d", 5);
    rawlog(TYPE, 1, nullptr, "raw %d", 6);
    EXPECT_EQ(mLog.lines().at(0), "<TEST> ERR: value 5");
    EXPECT_EQ(mLog.console().at(1), "raw 6");
}

TEST_F(LogFile, GetsItsTextBetweenTheSystemLogAndStandardOutput) {
    static File* file = nullptr;
    static std::string sizes;
    sizes.clear();
    file = &writing("", File::TEXT_UTF8);
    mLog.atEachSink([](char sink) { sizes += sink + std::to_string(file->size()) + " "; });
    rawlog(TYPE, 1, file, "four");
    mLog.atEachSink(nullptr);
    EXPECT_EQ(sizes, "s0 c4 b4 ");
}

TEST_F(LogFile, GetsItsTextInOneWriteAndAppendsAtThePosition) {
    File& file = writing("0123456789", File::TEXT_UTF8);
    HookScope const hookScope;
    rawlog(TYPE, 1, &file, "ab");
    EXPECT_EQ(hooks::write.calls(), 1U);
    rawlog(TYPE, 1, &file, "cd");
    EXPECT_EQ(written(), "abcd456789");
}

TEST_F(LogFile, GetsThePercentSignsAsTheFirstFormattingLeftThem) {
    File& file = writing("", File::TEXT_UTF8);
    errno = 0;
    rawlog(TYPE, 4, &file, "%s", "100%% %d %m");
    EXPECT_EQ(written(), "100%% %d %m");
    EXPECT_EQ(mLog.console().at(0).substr(0, 9), "100% %d S") << "of 'Success'";
}

TEST_F(LogFile, GetsALineCutAt253BytesAndARawTextAt255) {
    std::string const text(300, 'x');
    applog(TYPE, 4, &writing("", File::TEXT_UTF8), "%s", text.c_str());
    std::string const line = written();
    EXPECT_EQ(line.size(), 255U);
    EXPECT_EQ(line.substr(250), "...\r\n");
    rawlog(TYPE, 4, &writing("", File::TEXT_UTF8), "%s", text.c_str());
    EXPECT_EQ(written(), std::string(252, 'x') + "...");
}

TEST_F(LogFile, OfUtf16_GetsTheWholeLineWithItsEnd) {
    for (int const type : {File::TEXT_UTF16_BIG, File::TEXT_UTF16_LITTLE}) {
        mLog.clear();
        applog(TYPE, 2, &writing("", type), "value %d", 5);
        EXPECT_EQ(written(), encoded(mLog.console().at(0), type));
    }
}

TEST_F(LogFile, OfUtf16_GetsJapaneseInItsOwnEncoding) {
    rawlog(TYPE, 4, &writing("", File::TEXT_UTF16_BIG), "%s", "\xE6\xBC\xA2\xE5\xAD\x97");
    EXPECT_EQ(written(), "\x6F\x22\x5B\x57");
}

TEST_F(LogFile, OfUtf16_GetsNoRawTextOfOneCharacter) {
    File& file = writing("", File::TEXT_UTF16_BIG);
    rawlog(TYPE, 4, &file, "x");
    EXPECT_EQ(written(), "");
    EXPECT_EQ(mLog.console(), (Lines{"x"}));
}

TEST_F(LogFile, OfUtf16_GetsALineThatIsCutInsideACharacterUpToThere) {
    std::string text = "x";
    for (int i = 0; i < 100; ++i) {
        text += "\xE3\x81\x82";
    }
    rawlog(TYPE, 4, &writing("", File::TEXT_UTF16_BIG), "%s", text.c_str());
    EXPECT_EQ(written().size(), 2U + 83 * 2) << "the dots behind the broken character are lost";
}

TEST_F(LogFile, OfShiftJis_GetsNothingAndSaysNothing) {
    File& file = writing("", File::TEXT_SJIS);
    applog(TYPE, 1, &file, "x");
    EXPECT_EQ(written(), "");
    EXPECT_EQ(mLog.lines(), (Lines{"<TEST> ERR: x"}));
}

TEST_F(LogFile, OfAWrongType_GetsNothingAndSaysNothing) {
    File& file = writing("", 9);
    applog(TYPE, 1, &file, "x");
    EXPECT_EQ(written(), "");
    EXPECT_EQ(mLog.lines(), (Lines{"<TEST> ERR: x"}));
}

TEST_F(LogFile, ThatIsClosed_GetsNothingAndSaysNothing) {
    for (int const type : {File::TEXT_SJIS, File::TEXT_UTF8, File::TEXT_UTF16_BIG, File::TEXT_UTF16_LITTLE}) {
        mLog.clear();
        File file("text", type);
        applog(TYPE, 1, &file, "x");
        rawlog(TYPE, 1, &file, "yz");
        EXPECT_EQ(mLog.sinkOrder(), "scbscb");
        EXPECT_EQ(File::exists("text"), 0);
    }
}

TEST_F(LogFile, ThatIsOpenToRead_LetsTheLinesAboutThatComeFirst) {
    for (int const type : {File::TEXT_UTF8, File::TEXT_UTF16_BIG, File::TEXT_UTF16_LITTLE}) {
        mLog.clear();
        File& file = reading("abc", type);
        applog(TYPE, 1, &file, "x");
        EXPECT_EQ(mLog.lines(), (Lines{error("WriteFile Failed. errno[9]"),
                                       error("writeFile Failed. Path:text"), "<TEST> ERR: x"}));
        EXPECT_EQ(mLog.sinkOrder(), "sscbscbcb") << "the line itself, both of the file, and the line again";
        EXPECT_EQ(written(), "abc");
    }
}

TEST_F(LogFile, ThatIsFull_LetsTheProgramGoOnAndTheOtherSinksGetTheLine) {
    File& file = writing("", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::write.failFrom(1, 2, -1, ENOSPC);
    rawlog(TYPE, 4, &file, "lost");
    rawlog(TYPE, 4, &file, "lost too");
    rawlog(TYPE, 4, &file, "there again");
    EXPECT_EQ(mLog.count(error("WriteFile Failed. errno[28]")), 2U);
    EXPECT_EQ(mLog.console().at(2), "lost");
    EXPECT_EQ(mLog.console().at(5), "lost too");
    EXPECT_EQ(written(), "there again");
}

TEST_F(LogFile, OfAnEmptyRawText_GetsNothingAndOnlyUtf16SaysSo) {
    rawlog(TYPE, 4, &writing("", File::TEXT_UTF8), "%s", "");
    EXPECT_EQ(mLog.console(), (Lines{""}));
    mLog.clear();
    rawlog(TYPE, 4, &writing("", File::TEXT_UTF16_BIG), "%s", "");
    EXPECT_EQ(mLog.lines().at(0), error("writeFile Failed. Path:text"));
    EXPECT_EQ(written(), "");
}

TEST_F(LogFile, KeepsTheCallersErrnoAndShowsIt) {
    File& file = reading("", File::TEXT_UTF8);
    errno = ENOENT;
    rawlog(TYPE, 4, &file, "%s", "why: %m");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(mLog.console().back(), "why: No such file or directory");
}

TEST_F(LogFile, OfTheLibrarysOwnType_MayBeLoggedToAsWell) {
    File& file = writing("", File::TEXT_UTF8);
    applog(utl::LOG_TYPE_LIBRARY, 3, &file, "x");
    EXPECT_EQ(writtenBehindTheStamp(), "<UTIL> INF: x\r\n");
}

TEST_F(LogFile, OfEachThread_GetsTheLinesOfThatThread) {
    Lines const names = {"first", "second", "third"};
    std::vector<std::thread> threads;
    for (std::string const& name : names) {
        threads.emplace_back([&name] {
            File file(name.c_str(), File::TEXT_UTF8);
            EXPECT_EQ(file.open(2, 1), 1);
            for (int i = 0; i < 50; ++i) {
                rawlog(TYPE, 4, &file, "%s %d\n", name.c_str(), i);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::string const& name : names) {
        std::string expected;
        for (int i = 0; i < 50; ++i) {
            expected += name + " " + std::to_string(i) + "\n";
        }
        EXPECT_EQ(contentOf(name), expected);
    }
}

// Another thread gets its line out, and into the tables, while this one is inside the write; with a lock held
// it would wait for ever.
TEST_F(LogFile, IsWrittenWithNoLockOfTheLogHeld) {
    File& file = writing("", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::write.replace([](int descriptor, void const* bytes, size_t size) {
        std::thread other([] {
            applog(TYPE, 1, "another line");
            setLogTag("tag");
            setFilterLevel(TYPE, utl::LOG_LEVEL_DEBUG);
        });
        other.join();
        return hooks::write.real(descriptor, bytes, size);
    });
    applog(TYPE, 1, &file, "line");
    rawlog(TYPE, 1, &file, "text");
    EXPECT_EQ(mLog.lines(),
              (Lines{"<TEST> ERR: another line", "<TEST> ERR: line", "<TEST> ERR: another line", "text"}));
    EXPECT_EQ(writtenBehindTheStamp(), "<TEST> ERR: line\r\ntext");
}

TEST_F(LogFile, ALogLine_ReachesAFileBeforeItIsTakenForAFormatOnceMore) {
    utl::File& file = writing("", utl::File::TEXT_UTF8);
    rawlog(utl::LOG_TYPE_DEFAULT, utl::LOG_LEVEL_ERROR, &file, "%s", "50%% of %d %n\n");
    EXPECT_EQ(mLog.console().back(), "50% of %d %n\n");
    EXPECT_EQ(written(), "50%% of %d %n\n");
}

TEST_F(LogFile, ALogLine_WhoseFileIsFull_StandsBehindTheLinesAboutThatAndKeepsErrno) {
    HookScope const scope;
    utl::File& file = writing("", utl::File::TEXT_UTF8);
    hooks::write.failFrom(1, 0, -1, ENOSPC);
    errno = ENOTTY;
    applog(utl::LOG_TYPE_LIBRARY, utl::LOG_LEVEL_ERROR, &file, "full: %m");
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(mLog.lines(), (std::vector<std::string>{error("WriteFile Failed. errno[28]"),
                                                      error("writeFile Failed. Path:text"),
                                                      error("full: Inappropriate ioctl for device")}));
    EXPECT_EQ(mLog.systemLog().size(), 3U);
    EXPECT_EQ(mLog.systemLog().front().text.find("<UTIL> ERR: full: "), 0U);
    EXPECT_EQ(written(), "");
}

TEST_F(LogFile, ALogLine_GoesToAFileWholeInItsEncoding_ItsLineEndToo) {
    for (int const textType : TYPES_OF_UNITS) {
        utl::File& file = writing("", textType);
        applog(utl::LOG_TYPE_LIBRARY, utl::LOG_LEVEL_DEBUG, &file, "%s", std::string(400, 'w').c_str());
        std::string const line = mLog.console().back();
        EXPECT_EQ(line.size(), 255U);
        EXPECT_EQ(line.substr(250), "...\r\n");
        EXPECT_EQ(written(), encoded(line, textType));
    }
    // One character is not written in UTF-16, and Shift-JIS is for reading.
    rawlog(utl::LOG_TYPE_LIBRARY, utl::LOG_LEVEL_ERROR, &writing("", utl::File::TEXT_UTF16_BIG), "\n");
    EXPECT_EQ(written(), "");
    rawlog(utl::LOG_TYPE_LIBRARY, utl::LOG_LEVEL_ERROR, &writing("", utl::File::TEXT_SJIS), "two");
    EXPECT_EQ(mLog.console().back(), "two");
    EXPECT_EQ(written(), "");
}

}  // namespace

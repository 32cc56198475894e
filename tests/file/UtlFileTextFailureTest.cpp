// What the system refuses to operations on text.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "TestFileCalls.h"
#include "TestHooks.h"
#include "TestTextFile.h"

namespace {

using namespace utltest;
using utl::File;
using HookScope = utltest::OwnHookScope;
namespace hooks = utltest::hooks;
using namespace std::string_literals;
using Lines = std::vector<std::string>;
using FileText = utltest::TextInFolder;

TEST_F(FileText, ReadText_WithoutAPosition_IsMinusOneAndSaysSo) {
    File& file = reading("abc", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::lseek.failFrom(1, 1, -1, EOVERFLOW);
    EXPECT_EQ(file.readText(Buffer(9).get(), 9, 3, 0, nullptr), -1);
    EXPECT_EQ(mLog.lines(), (Lines{error("lseek64 Failed. errno[75]")}));
    EXPECT_EQ(hooks::fstat.calls(), 0U);
}

TEST_F(FileText, ReadText_WithoutASize_IsMinusOneAndSaysSo) {
    File& file = reading("abc", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::fstat.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(file.readText(Buffer(9).get(), 9, 3, 0, nullptr), -1);
    EXPECT_EQ(mLog.lines(), (Lines{error("fstat Failed. errno[5]"), error("fileSize Failed. Path:text")}));
    EXPECT_EQ(hooks::pread.calls(), 0U);
}

TEST_F(FileText, ReadText_ThatTheSystemRefuses_SaysSo) {
    File& file = reading("abc", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::pread.failFrom(1, 1, -1, EIO);
    unsigned int length = UNTOUCHED;
    EXPECT_EQ(file.readText(Buffer(9).get(), 9, 3, 0, &length), -1);
    EXPECT_EQ(length, UNTOUCHED);
    EXPECT_EQ(mLog.lines(),
              (Lines{error("ReadFile Failed. errno[5]"), error("in read func readFile Failed. Path:text")}));
    EXPECT_EQ(readText(file, 3), (TextRead{3, "abc", 4, 3}));
}

TEST_F(FileText, WriteText_ThatTheSystemRefuses_SaysSo) {
    File& file = writing("", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::write.failFrom(1, 1, -1, ENOSPC);
    EXPECT_EQ(file.writeText("abc", 3, 0), -1);
    EXPECT_EQ(mLog.lines(),
              (Lines{error("WriteFile Failed. errno[28]"), error("writeFile Failed. Path:text")}));
    EXPECT_EQ(file.writeText("abc", 3, 0), 3);
}

TEST_F(FileText, WriteLine_WhoseTextFails_WritesNoLineEnd) {
    File& file = writing("", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::write.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(file.writeLine("abc"), -1);
    EXPECT_EQ(hooks::write.calls(), 1U);
    EXPECT_EQ(written(), "");
}

TEST_F(FileText, WriteLine_WhoseLineEndFails_IsMinusOneAndLeavesTheText) {
    File& file = writing("", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::write.failFrom(2, 1, -1, EIO);
    EXPECT_EQ(file.writeLine("abc"), -1);
    EXPECT_EQ(mLog.lines(),
              (Lines{error("WriteFile Failed. errno[5]"), error("writeFile Failed. Path:text")}));
    EXPECT_EQ(written(), "abc");
}

TEST_F(FileLine, ReadLine_WithoutAPosition_IsMinusOneAndSaysSo) {
    File& file = reading("ab\ncd\n", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::lseek.failFrom(1, 1, -1, EOVERFLOW);
    EXPECT_EQ(readLine(file), (TextRead{-1, "~", UNTOUCHED, 0}));
    EXPECT_EQ(mLog.lines(), (Lines{error("lseek64 Failed. errno[75]")}));
}

TEST_F(FileLine, ReadLine_WithoutASize_IsMinusOneAndSaysSo) {
    File& file = reading("ab\ncd\n", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::fstat.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(readLine(file), (TextRead{-1, "~", UNTOUCHED, 0}));
    EXPECT_EQ(mLog.lines(), (Lines{error("fstat Failed. errno[5]"), error("fileSize Failed. Path:text")}));
}

TEST_F(FileLine, ReadLine_ThatTheSystemRefuses_SaysSo) {
    for (int const type : ALL_TYPES) {
        File& file = reading(encoded("ab\ncd\n", type), type);
        HookScope const hookScope;
        mLog.clear();
        hooks::pread.failFrom(1, 1, -1, EIO);
        EXPECT_EQ(readLine(file), (TextRead{-1, "~", UNTOUCHED, 0}));
        EXPECT_EQ(mLog.lines(),
                  (Lines{error("ReadFile Failed. errno[5]"), error("in read func readFile Failed. Path:text"),
                         error("in findNextLineSize func file read error "s +
                               (type >= File::TEXT_UTF16_BIG ? "2byte" : "6byte"))}));
        EXPECT_EQ(readLine(file).text, "ab");
    }
}

// Every call fails once, and once permanently. A failure never comes with a line, and what was open still is.
TEST_F(FileLine, ReadLine_WithAnyCallFailing_IsMinusOne) {
    for (std::string const& line : {std::string("abc"), std::string(2000, 'x')}) {
        for (unsigned int const count : {1U, 0U}) {
            for (unsigned int nth = 1; nth < 20; ++nth) {
                File& file = reading(line + "\n", File::TEXT_UTF8);
                HookScope const hookScope;
                hooks::lseek.failFrom(nth, count, -1, EIO);
                unsigned int length = UNTOUCHED;
                int const result = file.readLine(Buffer(5119).get(), 5119, &length);
                bool const failed = hooks::lseek.calls() >= nth;
                EXPECT_EQ(result, failed ? -1 : static_cast<int>(line.size())) << nth;
                EXPECT_EQ(length == UNTOUCHED, failed);
                EXPECT_EQ(mLog.count(error("lseek64 Failed. errno[5]")) != 0, failed);
                mLog.clear();
                EXPECT_EQ(file.isOpened(), 1);
            }
        }
    }
}

TEST_F(FileLine, ReadLine_WithAnyReadOfALongLineFailing_IsMinusOne) {
    std::string const line(5000, 'x');
    unsigned int nth = 0;
    for (int result = -1; result == -1;) {
        File& file = reading(line + std::string(12000, '\r') + "\n", File::TEXT_UTF8);
        HookScope const hookScope;
        hooks::pread.failFrom(++nth, 1, -1, EIO);
        result = readLine(file).result;
        EXPECT_EQ(result, hooks::pread.calls() < nth ? 5000 : -1);
        EXPECT_EQ(file.isOpened(), 1);
    }
    EXPECT_GT(nth, 3U);
}

TEST_F(FileLine, FindNextLineSize_ThatTheSystemRefusesToRead_SaysSo) {
    for (int const type : ALL_TYPES) {
        File& file = reading(encoded("abc\n", type), type);
        HookScope const hookScope;
        mLog.clear();
        hooks::pread.failFrom(1, 1, -1, EIO);
        EXPECT_EQ(file.findNextLineSize(0, nullptr, nullptr), -1);
        EXPECT_EQ(mLog.lines(),
                  (Lines{error("ReadFile Failed. errno[5]"), error("in read func readFile Failed. Path:text"),
                         error("in findNextLineSize func file read error "s +
                               (type >= File::TEXT_UTF16_BIG ? "2byte" : "6byte"))}));
    }
}

TEST_F(FileLine, FindNextLineSize_WithoutASizeOrAPosition_SaysSo) {
    File& file = reading("abc\n", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::fstat.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(file.findNextLineSize(0, nullptr, nullptr), -1);
    EXPECT_EQ(mLog.lines(), (Lines{error("fstat Failed. errno[5]"), error("fileSize Failed. Path:text"),
                                   error("in read func now size func error"),
                                   error("in findNextLineSize func file read error 6byte")}));
    mLog.clear();
    hooks::lseek.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(file.findNextLineSize(0, nullptr, nullptr), -1);
    EXPECT_EQ(mLog.lines(),
              (Lines{error("lseek64 Failed. errno[5]"), error("in read func now seekFile func error"),
                     error("in findNextLineSize func file read error 6byte")}));
}

TEST_F(FileLine, FindNextLineSize_IsDirectlyBehindTheLineEnd_AlsoWhereTheSystemMovesNoPosition) {
    for (int const type : ALL_TYPES) {
        unsigned int const unit = type >= File::TEXT_UTF16_BIG ? 2 : 1;
        File& file = reading(encoded("abc\nde", type), type);
        HookScope const hookScope;
        hooks::lseek.failFrom(2, 0, -1, EIO);
        EXPECT_EQ(findLineEnd(file),
                  (LineEnd{static_cast<int>(4 * unit), 3 * unit, unit, static_cast<long long>(4 * unit)}));
        EXPECT_EQ(mLog.lines(), Lines());
    }
}

TEST_F(FileText, ReadLine_WhoseNthSystemCallFails_GivesMinusOneWithALineAndTheNextOneReadsTheLine) {
    for (int const textType : ALL_TYPES) {
        utl::File& file = reading(encoded("first line\r\nsecond", textType), textType);
        TextRead const line = readLine(file);
        for (int kind = 0; kind < 3; ++kind) {
            bool isThrough = false;
            for (unsigned int n = 1; !isThrough && n < 200; ++n) {
                file.seek(0, utl::File::FROM_START);
                mLog.clear();
                unsigned int outputLength = UNTOUCHED;
                Buffer const buffer(100);
                int const result =
                    withNthFailing(kind, n, [&] { return file.readLine(buffer.get(), 100, &outputLength); });
                isThrough = result != -1;
                EXPECT_EQ(mLog.lines().empty(), isThrough) << kind << ", " << n;
                EXPECT_EQ(outputLength, isThrough ? line.length : UNTOUCHED);
                file.seek(0, utl::File::FROM_START);
                EXPECT_EQ(readLine(file), line);
            }
            EXPECT_TRUE(isThrough);
        }
    }
}

}  // namespace

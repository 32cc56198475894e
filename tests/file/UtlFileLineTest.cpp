// Text of a file by its lines: readLine, findNextLineSize and nextEOLSize.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "TestFileCalls.h"
#include "TestHooks.h"
#include "TestTextFile.h"
#include "UtlCharSet.h"
#include "UtlString.h"

namespace {

using utl::BasicString;
using utl::File;
using utltest::Buffer;
using utltest::encoded;
using utltest::FileCalls;
using HookScope = utltest::OwnHookScope;
using utltest::TextRead;
using utltest::UNTOUCHED;
namespace hooks = utltest::hooks;
using namespace std::string_literals;
using Lines = std::vector<std::string>;

constexpr int ALL_TYPES[] = {File::TEXT_SJIS, File::TEXT_UTF8, File::TEXT_UTF16_BIG, File::TEXT_UTF16_LITTLE};
constexpr char MARK[] = "\xEF\xBB\xBF";

/// What a search for the line end gave, and where the position is then.
struct LineEnd {
    int result;
    unsigned int lineSize;
    unsigned int eolSize;
    long long position;

    bool operator==(LineEnd const& other) const {
        return result == other.result && lineSize == other.lineSize && eolSize == other.eolSize &&
               position == other.position;
    }
    friend std::ostream& operator<<(std::ostream& out, LineEnd const& end) {
        return out << end.result << ": " << end.lineSize << " + " << end.eolSize << ", at " << end.position;
    }
};

class FileLine : public utltest::TextInFolder {
  protected:
    static LineEnd findLineEnd(File& file) {
        unsigned int lineSize = UNTOUCHED;
        unsigned int eolSize = UNTOUCHED;
        int const result = file.findNextLineSize(0, &lineSize, &eolSize);
        return {result, lineSize, eolSize, file.position()};
    }

    LineEnd lineEndIn(std::string const& content, int textType) {
        return findLineEnd(reading(content, textType));
    }
};

// --- reading lines

TEST_F(FileLine, ReadLine_GivesALineWithoutItsEndAndMovesToTheNextOne) {
    for (int const type : ALL_TYPES) {
        int const unit = type >= File::TEXT_UTF16_BIG ? 2 : 1;
        File& file = reading(encoded("ab\r\ncd", type), type);
        EXPECT_EQ(readLine(file), (TextRead{2 * unit, "ab", 3, 4 * unit}));
        EXPECT_EQ(readLine(file), (TextRead{2 * unit, "cd", 3, 6 * unit}));
        EXPECT_EQ(readLine(file), (TextRead{File::END_OF_FILE, "~", UNTOUCHED, 6 * unit}));
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileLine, ReadLine_TakesACarriageReturnAloneForText) {
    for (int const type : ALL_TYPES) {
        int const unit = type >= File::TEXT_UTF16_BIG ? 2 : 1;
        EXPECT_EQ(readLine(reading(encoded("ab\rcd\n", type), type)),
                  (TextRead{5 * unit, "ab\rcd", 6, 6 * unit}));
    }
}

TEST_F(FileLine, ReadLine_TakesAllCarriageReturnsInFrontOfTheLineFeedForTheLineEnd) {
    for (int const type : ALL_TYPES) {
        int const unit = type >= File::TEXT_UTF16_BIG ? 2 : 1;
        EXPECT_EQ(readLine(reading(encoded("ab\r\r\nx", type), type)),
                  (TextRead{2 * unit, "ab", 3, 5 * unit}));
        EXPECT_EQ(readLine(reading(encoded("a\rb\r\r\r\nx", type), type)),
                  (TextRead{3 * unit, "a\rb", 4, 7 * unit}));
    }
}

TEST_F(FileLine, ReadLine_TakesCarriageReturnsAtTheEndOfTheFileForALineEnd) {
    for (int const type : ALL_TYPES) {
        int const unit = type >= File::TEXT_UTF16_BIG ? 2 : 1;
        EXPECT_EQ(readLine(reading(encoded("ab\r\r", type), type)), (TextRead{2 * unit, "ab", 3, 4 * unit}));
    }
}

TEST_F(FileLine, ReadLine_OfAnEmptyLine_IsZeroAndEmptyAndMovesOn) {
    for (int const type : ALL_TYPES) {
        int const unit = type >= File::TEXT_UTF16_BIG ? 2 : 1;
        File& file = reading(encoded("\n\r\n\r\r\nx", type), type);
        EXPECT_EQ(readLine(file), (TextRead{0, "", 0, 1 * unit}));
        EXPECT_EQ(readLine(file), (TextRead{0, "", 0, 3 * unit}));
        EXPECT_EQ(readLine(file), (TextRead{0, "", 0, 6 * unit}));
        EXPECT_EQ(readLine(file), (TextRead{1 * unit, "x", 2, 7 * unit}));
    }
}

TEST_F(FileLine, ReadLine_OfAnEmptyLine_NeedsRoomForTheTerminatorAlone) {
    EXPECT_EQ(readLine(reading("\n", File::TEXT_UTF8), 1), (TextRead{0, "", 0, 1}));
    EXPECT_EQ(readLine(reading("\0\n"s, File::TEXT_UTF16_BIG), 1), (TextRead{0, "", 0, 2}));
}

TEST_F(FileLine, ReadLine_WithASizeOfZero_GivesTheSizeAndStays) {
    for (int const type : ALL_TYPES) {
        for (unsigned int const size : {2U, 600U, 2000U}) {
            std::string const line(size, 'x');
            File& file = reading(encoded(line + "\r\nabc", type), type);
            Buffer const buffer(1);
            unsigned int length = UNTOUCHED;
            EXPECT_EQ(file.readLine(buffer.get(), 0, &length), static_cast<int>(encoded(line, type).size()));
            EXPECT_EQ(length, size + 1);
            EXPECT_EQ(buffer.text(), "~");
            EXPECT_EQ(file.position(), 0);
        }
    }
}

TEST_F(FileLine, ReadLine_OfAnEmptyLineWithASizeOfZero_StoresNothingAndStays) {
    File& file = reading("\nab", File::TEXT_UTF8);
    Buffer const buffer(1);
    unsigned int length = UNTOUCHED;
    EXPECT_EQ(file.readLine(buffer.get(), 0, &length), 0);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(buffer.text(), "~");
    EXPECT_EQ(file.position(), 0);
}

TEST_F(FileLine, ReadLine_AsksForASizeThatTheNextCallNeeds) {
    File& file = reading("\x8A\xBF\x8E\x9A\n", File::TEXT_SJIS);
    unsigned int length = 0;
    EXPECT_EQ(file.readLine(static_cast<char*>(nullptr), 0, &length), 4);
    EXPECT_EQ(readLine(file, length), (TextRead{4, "\xE6\xBC\xA2\xE5\xAD\x97", 7, 5}));
}

TEST_F(FileLine, ReadLine_MayBeToldNoPlaceForTheLength) {
    Buffer const buffer(10);
    EXPECT_EQ(reading("ab\n", File::TEXT_UTF8).readLine(buffer.get(), 10, nullptr), 2);
    EXPECT_EQ(buffer.text(), "ab");
    EXPECT_EQ(reading("\n", File::TEXT_UTF8).readLine(buffer.get(), 10, nullptr), 0);
}

TEST_F(FileLine, ReadLine_AsksTheSystemOnlyForWhatWasNotReadAhead) {
    File& file = reading("abc\ndef\ng", File::TEXT_UTF8);
    FileCalls calls;
    ASSERT_EQ(file.readLine(Buffer(10).get(), 10, nullptr), 3);
    EXPECT_EQ(calls.take(), (Lines{"seekFile: lseek 0 1", "fileSize: fstat", "-: pread 0"}));
    ASSERT_EQ(file.readLine(Buffer(10).get(), 10, nullptr), 3);
    EXPECT_EQ(calls.take(), Lines());
    ASSERT_EQ(file.readLine(Buffer(10).get(), 10, nullptr), 1);
    EXPECT_EQ(calls.take(), (Lines{"fileSize: fstat", "-: pread 8"})) << "its end may have come meanwhile";
    ASSERT_EQ(file.readLine(Buffer(10).get(), 10, nullptr), File::END_OF_FILE);
    EXPECT_EQ(calls.take(), (Lines{"fileSize: fstat"}));
}

TEST_F(FileLine, ReadLine_RefusesWrongArgumentsWithoutALineAndStays) {
    for (int const type : ALL_TYPES) {
        File& file = reading(encoded("ab\n", type), type);
        unsigned int length = UNTOUCHED;
        EXPECT_EQ(file.readLine(static_cast<char*>(nullptr), 10, &length), -1);
        EXPECT_EQ(length, UNTOUCHED);
        EXPECT_EQ(file.position(), 0);
    }
    File file("text", File::TEXT_UTF8);
    EXPECT_EQ(file.readLine(Buffer(10).get(), 10, nullptr), -1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileLine, ReadLine_TakesABufferOfUpTo5119Bytes) {
    EXPECT_EQ(readLine(reading("ab\n", File::TEXT_UTF8), 5118).result, 2);
    EXPECT_EQ(readLine(reading("ab\n", File::TEXT_UTF8), 5119).result, 2);
    EXPECT_EQ(readLine(reading("ab\n", File::TEXT_UTF8), 5120), (TextRead{-1, "~", UNTOUCHED, 0}));
    EXPECT_EQ(readLine(reading("", File::TEXT_UTF8), 5120).result, -1) << "even at the end";
}

TEST_F(FileLine, ReadLine_WithTooSmallABuffer_IsMinusOneAndStays) {
    for (int const type : ALL_TYPES) {
        for (unsigned int const size : {3U, 600U}) {
            unsigned int const unit = type >= File::TEXT_UTF16_BIG ? 2 : 1;
            std::string const line(size, 'x');
            File& file = reading(encoded(line + "\n", type), type);
            unsigned int const needed = unit * size + unit;
            EXPECT_EQ(readLine(file, needed - 1), (TextRead{-1, "~", UNTOUCHED, 0}));
            EXPECT_EQ(readLine(file, needed), (TextRead{static_cast<int>(unit * size), line, size + 1,
                                                        static_cast<long long>(unit * (size + 1))}));
        }
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileLine, ReadLine_WhoseTextDoesNotFit_IsMinusOneAndIsInFrontOfTheLineEnd) {
    EXPECT_EQ(readLine(reading("\xB1\xB2\xB3\n", File::TEXT_SJIS), 9), (TextRead{-1, "~", UNTOUCHED, 3}));
    std::string const kana(600, '\xB1');
    EXPECT_EQ(readLine(reading(kana + "\n", File::TEXT_SJIS), 1800), (TextRead{-1, "~", UNTOUCHED, 600}));
    EXPECT_EQ(readLine(reading(kana + "\n", File::TEXT_SJIS), 1801).result, 600);
}

TEST_F(FileLine, ReadLine_ThatIsNoText_IsMinusOneAndIsInFrontOfTheLineEnd) {
    EXPECT_EQ(readLine(reading("a\xE3\x81\nb", File::TEXT_UTF8)), (TextRead{-1, "~", UNTOUCHED, 3}));
    EXPECT_EQ(readLine(reading("a\x80\r\nb", File::TEXT_SJIS)), (TextRead{-1, "~", UNTOUCHED, 2}));
    std::string const filling(700, 'x');
    EXPECT_EQ(readLine(reading(filling + "\xFF\nb", File::TEXT_UTF8)), (TextRead{-1, "~", UNTOUCHED, 701}));
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileLine, ReadLine_LeavesOutTheMarkOfUtf8ButCountsItsBytes) {
    EXPECT_EQ(readLine(reading(MARK + "ab\n"s, File::TEXT_UTF8)), (TextRead{5, "ab", 3, 6}));
    EXPECT_EQ(readLine(reading(MARK + "\nab"s, File::TEXT_UTF8)), (TextRead{3, "", 1, 4}));
}

TEST_F(FileLine, ReadLine_OfUtf16WithAMark_IsMinusOneForThatLineAlone) {
    File& file = reading(
        "\xFF\xFE"
        "a\0\n\0b\0\n\0"s,
        File::TEXT_UTF16_LITTLE);
    EXPECT_EQ(readLine(file), (TextRead{-1, "~", UNTOUCHED, 4}));
    file.seek(6, File::FROM_START);
    EXPECT_EQ(readLine(file), (TextRead{2, "b", 2, 10}));
}

TEST_F(FileLine, ReadLine_TakesALineOf5119BytesAndStaysInFrontOfOneOf5120) {
    for (int const type : {File::TEXT_SJIS, File::TEXT_UTF8}) {
        File& file = reading(std::string(5118, 'x') + "\n" + std::string(5120, 'y') + "\nz", type);
        EXPECT_EQ(readLine(file), (TextRead{5118, std::string(5118, 'x'), 5119, 5119}));
        EXPECT_EQ(readLine(file), (TextRead{-1, "~", UNTOUCHED, 5119}));
        EXPECT_EQ(readLine(file), (TextRead{-1, "~", UNTOUCHED, 5119})) << "again and again";
    }
    unsigned int length = UNTOUCHED;
    EXPECT_EQ(reading(std::string(5119, 'x') + "\n", File::TEXT_UTF8)
                  .readLine(static_cast<char*>(nullptr), 0, &length),
              5119);
    EXPECT_EQ(length, 5120U) << "which no buffer may have, so that only the size can be had";
    EXPECT_EQ(readLine(reading(std::string(5119, 'x') + "\n", File::TEXT_UTF8)).result, -1);
    EXPECT_EQ(reading(std::string(5120, 'x') + "\n", File::TEXT_UTF8)
                  .readLine(static_cast<char*>(nullptr), 0, nullptr),
              -1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileLine, ReadLine_OfUtf16_TakesALineOf5116Bytes) {
    File& file =
        reading(encoded(std::string(2558, 'x') + "\n" + std::string(2560, 'y') + "\n", File::TEXT_UTF16_BIG),
                File::TEXT_UTF16_BIG);
    EXPECT_EQ(readLine(file), (TextRead{5116, std::string(2558, 'x'), 2559, 5118}));
    EXPECT_EQ(readLine(file), (TextRead{-1, "~", UNTOUCHED, 5118}));
}

TEST_F(FileLine, ReadLine_CountsTheLineEndNotInTheSizeOfALine) {
    std::string const end = std::string(6000, '\r') + "\n";
    for (int const type : ALL_TYPES) {
        std::string const content = encoded("abc" + end + end, type);
        long long const unit = type >= File::TEXT_UTF16_BIG ? 2 : 1;
        File& file = reading(content, type);
        EXPECT_EQ(readLine(file), (TextRead{static_cast<int>(3 * unit), "abc", 4, 6004 * unit}));
        EXPECT_EQ(readLine(file), (TextRead{0, "", 0, 12005 * unit}));
        EXPECT_EQ(readLine(file).result, File::END_OF_FILE);
    }
}

// Around the first block, in which most lines are found.
TEST_F(FileLine, ReadLine_OfAnyLength_GivesTheLineAndThenTheNextOne) {
    for (int const type : ALL_TYPES) {
        std::string content;
        for (unsigned int size = 250; size <= 520; ++size) {
            content += encoded(std::string(size, 'x') + "\r\n", type);
        }
        File& file = reading(content, type);
        int const unit = type >= File::TEXT_UTF16_BIG ? 2 : 1;
        long long next = 0;
        for (unsigned int size = 250; size <= 520; ++size) {
            int const bytes = static_cast<int>(size) * unit;
            next += bytes + 2 * unit;
            ASSERT_EQ(readLine(file), (TextRead{bytes, std::string(size, 'x'), size + 1, next}));
        }
        ASSERT_EQ(readLine(file).result, File::END_OF_FILE);
    }
}

TEST_F(FileLine, ReadLine_OfShiftJisWhoseSecondBytesLookLikeOthers_IsNotMisled) {
    std::string const line = "\x83\x5C\x83\x41\x95\x5C";  // so, a, omote
    EXPECT_EQ(readLine(reading(line + "\r\nx", File::TEXT_SJIS)).result, 6);
    EXPECT_EQ(readLine(reading(line + "\r\nx", File::TEXT_SJIS)).position, 8);
}

TEST_F(FileLine, ReadLine_OfALeadByteOfShiftJisInFrontOfTheLineFeed_EndsThere) {
    EXPECT_EQ(readLine(reading("ab\x81\ncd", File::TEXT_SJIS)), (TextRead{3, "ab", 4, 4}));
    EXPECT_EQ(readLine(reading("ab\x81", File::TEXT_SJIS)), (TextRead{3, "ab", 4, 3}));
}

TEST_F(FileLine, ReadLine_OfUtf16WithAnOddByteAtItsEnd_TakesThatByteForReadAndEnds) {
    for (unsigned int const size : {1U, 300U}) {
        std::string const line(size, 'x');
        int const bytes = static_cast<int>(size) * 2;
        File& file = reading(encoded("y\n" + line, File::TEXT_UTF16_LITTLE) + "z", File::TEXT_UTF16_LITTLE);
        EXPECT_EQ(readLine(file).text, "y");
        EXPECT_EQ(readLine(file), (TextRead{bytes, line, size + 1, bytes + 5}));
        EXPECT_EQ(readLine(file).result, File::END_OF_FILE);
    }
    File& file = reading("\0a\0\nz"s, File::TEXT_UTF16_BIG);
    EXPECT_EQ(readLine(file).text, "a");
    EXPECT_EQ(readLine(file), (TextRead{0, "", 0, 5}));
    EXPECT_EQ(readLine(file).result, File::END_OF_FILE);
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

TEST_F(FileLine, ReadLine_OfAFileOpenedToWrite_IsRefusedByTheSystem) {
    utltest::putFile("text", "ab\n");
    File file("text", File::TEXT_UTF8);
    ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    EXPECT_EQ(readLine(file).result, -1);
    EXPECT_EQ(mLog.lines(),
              (Lines{error("ReadFile Failed. errno[9]"), error("in read func readFile Failed. Path:text"),
                     error("in findNextLineSize func file read error 6byte")}));
}

// Every call fails once, and once for good; a line is never given with a failure, and what was open still is.
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

// It looks at the size before the search, for each block that is not read ahead, and before the text.
TEST_F(FileLine, ReadLine_OfALongLineInAFileThatIsCutMeanwhile_IsMinusThreeAndStays) {
    static unsigned int cutAt = 0;
    constexpr int RESULTS[] = {-3, -3, -3, 2000};
    std::string const line = std::string(2000, 'x') + std::string(12000, '\r') + "\n";
    for (cutAt = 1; cutAt <= std::size(RESULTS); ++cutAt) {
        int const expected = RESULTS[cutAt - 1];
        File& file = reading(line, File::TEXT_UTF8);
        HookScope const hookScope;
        hooks::fstat.replace([](int descriptor, struct stat* status) {
            int const result = hooks::fstat.real(descriptor, status);
            status->st_size = hooks::fstat.calls() < cutAt ? status->st_size : 0;
            return result;
        });
        unsigned int length = UNTOUCHED;
        EXPECT_EQ(file.readLine(Buffer(5119).get(), 5119, &length), expected) << cutAt;
        EXPECT_EQ(length, expected == -3 ? UNTOUCHED : 2001U);
        EXPECT_EQ(file.position(), expected == 2000 ? 14001 : 0);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

// A file of the system, whose size is that of a page whatever stands in it.
void promiseAPage() {
    hooks::fstat.replace([](int descriptor, struct stat* status) {
        int const result = hooks::fstat.real(descriptor, status);
        status->st_size = 4096;
        return result;
    });
}

TEST_F(FileLine, TextOfAFileThatPromisesMoreThanItGives_EndsWhereNothingMoreCame) {
    for (int const type : ALL_TYPES) {
        for (char const* const end : {"", "\n"}) {
            std::string const last = encoded("cd", type);
            File& file = reading(encoded("ab\n", type) + last + encoded(end, type), type);
            HookScope const hookScope;
            promiseAPage();
            EXPECT_EQ(readLine(file).text, "ab");
            TextRead const read = readLine(file);
            EXPECT_EQ(read.text, "cd");
            EXPECT_EQ(read.result, static_cast<int>(last.size()));
            long long const position = file.position();
            for (int i = 0; i < 2; ++i) {
                EXPECT_EQ(readLine(file), (TextRead{File::END_OF_FILE, "~", UNTOUCHED, position}));
                EXPECT_EQ(readText(file, 100), (TextRead{File::END_OF_FILE, "~", UNTOUCHED, position}));
                EXPECT_EQ(file.readLine(nullptr, 0, nullptr), File::END_OF_FILE);
                EXPECT_EQ(file.nextEOLSize(), 0);
                EXPECT_EQ(file.findNextLineSize(0, nullptr, nullptr), 0);
                EXPECT_EQ(file.seekKey("a", File::KEY_FROM_POSITION, 100, File::AT_KEY), File::KEY_NOT_FOUND);
            }
        }
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileLine, AFileToWhichTheSystemGivesNoSize_IsAtItsEndAtOnce) {
    File file("/proc/self/status", File::TEXT_UTF8);
    ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    char byte = 0;
    EXPECT_EQ(file.size(), 0);
    EXPECT_EQ(file.read(&byte, 1), File::END_OF_FILE);
    EXPECT_EQ(readLine(file).result, File::END_OF_FILE);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileLine, TextOfAnEmptyFileThatPromisesMore_IsAtItsEndAtOnce) {
    File& file = reading("", File::TEXT_UTF8);
    HookScope const hookScope;
    promiseAPage();
    EXPECT_EQ(readLine(file), (TextRead{File::END_OF_FILE, "~", UNTOUCHED, 0}));
    EXPECT_EQ(readText(file, 100), (TextRead{File::END_OF_FILE, "~", UNTOUCHED, 0}));
}

TEST_F(FileLine, ReadLine_OfReadsThatComeShort_GivesTheSame) {
    static size_t most = 0;
    for (most = 1; most <= 7; ++most) {
        for (int const type : ALL_TYPES) {
            File& file = reading(encoded("abcdefg\r\nhi\n", type), type);
            HookScope const hookScope;
            unsigned int length = UNTOUCHED;
            hooks::pread.replace([](int descriptor, void* buffer, size_t size, off_t offset) {
                bool const isSearch = size > 100;
                return hooks::pread.real(descriptor, buffer, isSearch ? std::min(size, most) : size, offset);
            });
            Buffer const buffer(100);
            EXPECT_EQ(file.readLine(buffer.get(), 100, &length), type >= File::TEXT_UTF16_BIG ? 14 : 7);
            EXPECT_EQ(buffer.text(), "abcdefg");
            EXPECT_EQ(readLine(file, 100).text, "hi");
        }
    }
}

TEST_F(FileLine, ReadLine_ReadsAFileThatGrowsFromWhereItWas) {
    File& file = reading("ab\ncd", File::TEXT_UTF8);
    EXPECT_EQ(readLine(file).text, "ab");
    EXPECT_EQ(readLine(file).text, "cd");
    EXPECT_EQ(readLine(file).result, File::END_OF_FILE);
    int const descriptor = open("text", O_WRONLY | O_APPEND | O_CLOEXEC);
    ASSERT_EQ(write(descriptor, "ef\ngh", 5), 5);
    close(descriptor);
    EXPECT_EQ(readLine(file).text, "ef");
    EXPECT_EQ(readLine(file).text, "gh");
    EXPECT_EQ(readLine(file).result, File::END_OF_FILE);
}

TEST_F(FileLine, ReadLine_InALoop_EndsWithMinusThreeIfAllCouldBeRead) {
    for (bool const isGood : {true, false}) {
        utltest::putFile("notes.txt", isGood ? "\x82\xA0\nb\n\nc" : "\x82\xA0\nb\n\x80\nc");
        Lines lines;
        bool wasComplete = !isGood;
        auto const use = [&lines](char const* line) { lines.push_back(line); };
        utl::File file("notes.txt", utl::File::TEXT_SJIS);
        char line[utl::File::TEXT_BYTES_MAX];
        if (file.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ) != 0) {
            int result = 0;
            while ((result = file.readLine(line, sizeof(line), nullptr)) >= 0) {
                use(line);
            }
            // Anything else is a line that cannot be read.
            bool const isComplete = result == utl::File::END_OF_FILE;
            wasComplete = isComplete;
        }
        EXPECT_EQ(wasComplete, isGood);
        EXPECT_EQ(lines, isGood ? (Lines{"\xE3\x81\x82", "b", "", "c"}) : (Lines{"\xE3\x81\x82", "b"}));
    }
}

// --- reading lines into a string

TEST_F(FileLine, ReadLineIntoAString_UsesItsCapacityAndNeverEnlargesIt) {
    File& file = reading("abcd\nefg\n", File::TEXT_UTF8);
    BasicString<char> text(5, 1);
    unsigned int length = UNTOUCHED;
    EXPECT_EQ(file.readLine(&text, &length), 4);
    EXPECT_STREQ(text.buffer(), "abcd");
    EXPECT_EQ(length, 5U);
    BasicString<char> small("old", 0, 1);
    file.seek(0, File::FROM_START);
    EXPECT_EQ(file.readLine(&small, &length), -1);
    EXPECT_STREQ(small.buffer(), "old");
    EXPECT_EQ(file.position(), 0);
}

TEST_F(FileLine, ReadLineIntoAString_OfAnEmptyLine_MakesItEmpty) {
    BasicString<char> text("old");
    unsigned int length = UNTOUCHED;
    EXPECT_EQ(reading("\n", File::TEXT_UTF8).readLine(&text, &length), 0);
    EXPECT_STREQ(text.buffer(), "");
    EXPECT_EQ(length, 0U);
}

TEST_F(FileLine, ReadLineIntoAStringThatSharesTheEmptyText_TakesEmptyLinesAndWritesNothing) {
    File& file = reading("\nab\n", File::TEXT_UTF8);
    BasicString<char> text;
    ASSERT_EQ(static_cast<void const*>(text.buffer()), &BasicString<char>::mEmptyChar);
    // A terminator written there would put the mark out.
    BasicString<char>::mEmptyChar = 'm';
    int const result = file.readLine(&text, nullptr);
    char const found = BasicString<char>::mEmptyChar;
    BasicString<char>::mEmptyChar = '\0';
    EXPECT_EQ(result, 0);
    EXPECT_EQ(found, 'm');
    EXPECT_EQ(file.position(), 1);
    EXPECT_EQ(file.readLine(&text, nullptr), -1);
    EXPECT_EQ(file.position(), 1);
}

TEST_F(FileLine, ReadLineIntoNoString_AsksForTheSize) {
    File& file = reading("abc\n", File::TEXT_UTF8);
    unsigned int length = UNTOUCHED;
    EXPECT_EQ(file.readLine(static_cast<BasicString<char>*>(nullptr), &length), 3);
    EXPECT_EQ(length, 4U);
    EXPECT_EQ(file.position(), 0);
}

// --- the size of a line

TEST_F(FileLine, FindNextLineSize_GivesTheSizesAndIsDirectlyBehindTheLineEnd) {
    for (int const type : ALL_TYPES) {
        unsigned int const unit = type >= File::TEXT_UTF16_BIG ? 2 : 1;
        EXPECT_EQ(lineEndIn(encoded("ab\r\ncd\n", type), type),
                  (LineEnd{static_cast<int>(4 * unit), 2 * unit, 2 * unit, 4 * unit}));
        EXPECT_EQ(lineEndIn(encoded("\nab", type), type),
                  (LineEnd{static_cast<int>(unit), 0, unit, static_cast<long long>(unit)}));
    }
}

TEST_F(FileLine, FindNextLineSize_AtTheEndOfTheFile_IsZeroAndCountsCarriageReturnsAsLineEnd) {
    for (int const type : ALL_TYPES) {
        unsigned int const unit = type >= File::TEXT_UTF16_BIG ? 2 : 1;
        EXPECT_EQ(lineEndIn(encoded("ab\r\r", type), type), (LineEnd{0, 2 * unit, 2 * unit, 4 * unit}));
        EXPECT_EQ(lineEndIn(encoded("ab", type), type), (LineEnd{0, 2 * unit, 0, 2 * unit}));
        EXPECT_EQ(lineEndIn("", type), (LineEnd{0, 0, 0, 0}));
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileLine, FindNextLineSize_DoesNotLookAtItsLimit) {
    for (unsigned int const limit : {0U, 1U, 5120U, ~0U}) {
        unsigned int lineSize = UNTOUCHED;
        EXPECT_EQ(reading("abc\n", File::TEXT_UTF8).findNextLineSize(limit, &lineSize, nullptr), 4);
        EXPECT_EQ(lineSize, 3U);
    }
}

TEST_F(FileLine, FindNextLineSize_MayBeToldNoPlaces) {
    File& file = reading("abc\nd", File::TEXT_UTF8);
    EXPECT_EQ(file.findNextLineSize(0, nullptr, nullptr), 4);
    EXPECT_EQ(file.findNextLineSize(0, nullptr, nullptr), 0);
}

TEST_F(FileLine, FindNextLineSize_OfALongLine_GoesThroughAllOfIt) {
    for (int const type : ALL_TYPES) {
        for (unsigned int const size : {4095U, 4096U, 4097U, 100001U}) {
            unsigned int const unit = type >= File::TEXT_UTF16_BIG ? 2 : 1;
            unsigned int const bytes = size * unit;
            EXPECT_EQ(lineEndIn(encoded(std::string(size, 'x') + "\r\nabc", type), type),
                      (LineEnd{static_cast<int>(bytes + 2 * unit), bytes, 2 * unit, bytes + 2 * unit}));
        }
    }
}

TEST_F(FileLine, FindNextLineSize_StepsOverMalformedUtf8ByteByByteAndFindsTheLineEnd) {
    EXPECT_EQ(lineEndIn("\xE3\n", File::TEXT_UTF8), (LineEnd{2, 1, 1, 2}));
    EXPECT_EQ(lineEndIn("\xE3\x81\n", File::TEXT_UTF8), (LineEnd{3, 2, 1, 3}));
    EXPECT_EQ(lineEndIn("\xFF\xFE\x80\n\x80", File::TEXT_UTF8), (LineEnd{4, 3, 1, 4}));
    EXPECT_EQ(lineEndIn("a\xF0\x9F\x98\r\n", File::TEXT_UTF8), (LineEnd{6, 4, 2, 6}));
}

TEST_F(FileLine, FindNextLineSize_TakesWhatIsNoCharacterForNothingBetweenCarriageReturnAndLineFeed) {
    EXPECT_EQ(lineEndIn("a\r\xFF\n", File::TEXT_UTF8), (LineEnd{4, 2, 2, 4}));
    EXPECT_EQ(lineEndIn("a\r\0\n"s, File::TEXT_UTF8), (LineEnd{4, 2, 2, 4}));
    EXPECT_EQ(lineEndIn("a\r"s + MARK + "\n", File::TEXT_UTF8), (LineEnd{6, 4, 2, 6}));
    EXPECT_EQ(lineEndIn("a\r\xE3\x81\n", File::TEXT_UTF8), (LineEnd{5, 3, 2, 5}));
    EXPECT_EQ(lineEndIn("a\r\xE3\x81\x82\n", File::TEXT_UTF8), (LineEnd{6, 5, 1, 6}))
        << "a character is text";
    EXPECT_EQ(lineEndIn("\0a\0\r\xFE\xFF\0\n"s, File::TEXT_UTF16_BIG), (LineEnd{8, 4, 4, 8}));
    EXPECT_EQ(lineEndIn("\0a\0\r\xFF\xFE\0\n"s, File::TEXT_UTF16_BIG), (LineEnd{8, 4, 4, 8}));
    EXPECT_EQ(lineEndIn("\0a\0\r\0\0\0\n"s, File::TEXT_UTF16_BIG), (LineEnd{8, 6, 2, 8}));
    EXPECT_EQ(lineEndIn("a\r\0\n"s, File::TEXT_SJIS), (LineEnd{4, 3, 1, 4})) << "a zero is a character there";
    EXPECT_EQ(lineEndIn("a\r\x85\x41\n", File::TEXT_SJIS), (LineEnd{5, 4, 1, 5}))
        << "and so is one without a form";
}

TEST_F(FileLine, FindNextLineSize_OfShiftJis_IsNotMisledBySecondBytes) {
    EXPECT_EQ(lineEndIn("\x81\r\n", File::TEXT_SJIS), (LineEnd{3, 2, 1, 3}))
        << "a carriage return as a second byte";
    EXPECT_EQ(lineEndIn("\x81\n", File::TEXT_SJIS), (LineEnd{2, 1, 1, 2})) << "but never a line feed";
    EXPECT_EQ(lineEndIn("\x83\x83\r\n", File::TEXT_SJIS), (LineEnd{4, 2, 2, 4}));
    EXPECT_EQ(lineEndIn("a\x83\x83\r\n", File::TEXT_SJIS), (LineEnd{5, 3, 2, 5}));
    EXPECT_EQ(lineEndIn("\x80\r\n", File::TEXT_SJIS), (LineEnd{3, 1, 2, 3}));
    EXPECT_EQ(lineEndIn("\xB1\r\n", File::TEXT_SJIS), (LineEnd{3, 1, 2, 3}));
    EXPECT_EQ(lineEndIn("ab\x81", File::TEXT_SJIS), (LineEnd{0, 3, 0, 3}));
}

TEST_F(FileLine, FindNextLineSize_OfUtf16_SeesNoLineEndAcrossUnits) {
    EXPECT_EQ(lineEndIn("\x0A\x0D\x0D\x0A\0\n"s, File::TEXT_UTF16_BIG), (LineEnd{6, 4, 2, 6}));
    EXPECT_EQ(lineEndIn("\0a\n\0\0\n"s, File::TEXT_UTF16_BIG), (LineEnd{6, 4, 2, 6}));
}

TEST_F(FileLine, FindNextLineSize_OfUtf16WithAnOddByteAtTheEnd_LeavesItOutAndPassesIt) {
    EXPECT_EQ(lineEndIn("a\0b\0c"s, File::TEXT_UTF16_LITTLE), (LineEnd{0, 4, 0, 5}));
    EXPECT_EQ(lineEndIn("c", File::TEXT_UTF16_LITTLE), (LineEnd{0, 0, 0, 1}));
    EXPECT_EQ(lineEndIn("\n", File::TEXT_UTF16_LITTLE), (LineEnd{0, 0, 0, 1}));
}

TEST_F(FileLine, FindNextLineSize_OfAClosedFile_SaysSo) {
    for (int const type : ALL_TYPES) {
        mLog.clear();
        File file("text", type);
        unsigned int lineSize = UNTOUCHED;
        unsigned int eolSize = UNTOUCHED;
        EXPECT_EQ(file.findNextLineSize(0, &lineSize, &eolSize), -1);
        EXPECT_EQ(lineSize, UNTOUCHED);
        EXPECT_EQ(eolSize, UNTOUCHED);
        EXPECT_EQ(mLog.lines(), (Lines{error("in read func file is not opened"),
                                       error("in findNextLineSize func file read error "s +
                                             (type >= File::TEXT_UTF16_BIG ? "2byte" : "6byte"))}));
    }
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

TEST_F(FileLine, FindNextLineSize_OfALineBeyondItsResult_IsMinusOneWithoutALine) {
    constexpr long long LARGEST = 0x7FFFFFFF;
    utltest::putFile("text", "");
    ASSERT_EQ(truncate("text", LARGEST - 1), 0);
    File file("text", File::TEXT_SJIS);
    ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE), 1);
    file.seek(0, File::FROM_END);
    ASSERT_EQ(file.write("\n", 1), 1);
    file.seek(0, File::FROM_START);
    EXPECT_EQ(file.setTextType(File::TEXT_UTF8), 1);
    EXPECT_EQ(findLineEnd(file), (LineEnd{0x7FFFFFFF, 0x7FFFFFFE, 1, LARGEST}));
    file.seek(LARGEST - 1, File::FROM_START);
    ASSERT_EQ(file.write("x\n", 2), 2);
    file.seek(0, File::FROM_START);
    EXPECT_EQ(file.findNextLineSize(0, nullptr, nullptr), -1);
    EXPECT_EQ(mLog.lines(), Lines());
}

// --- the next line end

TEST_F(FileLine, NextEOLSize_LooksAtTheNextTwoBytesWhateverTheType) {
    for (int const type : ALL_TYPES) {
        auto const sizeIn = [&](std::string const& content) {
            File& file = reading(content, type);
            int const result = file.nextEOLSize();
            EXPECT_EQ(file.position(), 0);
            return result;
        };
        EXPECT_EQ(sizeIn("\r\nx"), 2);
        EXPECT_EQ(sizeIn("\r\n"), 2);
        EXPECT_EQ(sizeIn("\rx"), 1);
        EXPECT_EQ(sizeIn("\nx"), 1);
        EXPECT_EQ(sizeIn("\n\r"), 1);
        EXPECT_EQ(sizeIn("\r\r\n"), 1);
        EXPECT_EQ(sizeIn("\r"), 1);
        EXPECT_EQ(sizeIn("\n"), 1);
        EXPECT_EQ(sizeIn(""), 0);
        EXPECT_EQ(sizeIn("x\n"), -1);
        EXPECT_EQ(sizeIn("x"), -1);
        EXPECT_EQ(sizeIn("\0\n"s), -1);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileLine, NextEOLSize_LooksAtThePositionAndStaysThere) {
    File& file = reading("ab\r\ncd", File::TEXT_UTF8);
    file.seek(2, File::FROM_START);
    EXPECT_EQ(file.nextEOLSize(), 2);
    EXPECT_EQ(file.position(), 2);
    file.seek(6, File::FROM_START);
    EXPECT_EQ(file.nextEOLSize(), 0);
    EXPECT_EQ(file.position(), 6);
}

TEST_F(FileLine, NextEOLSize_OfAClosedFile_IsZeroWithoutALine) {
    EXPECT_EQ(File("text", File::TEXT_UTF8).nextEOLSize(), 0);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileLine, NextEOLSize_WithoutAPosition_IsZeroAndSaysSo) {
    File& file = reading("\n", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::lseek.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(file.nextEOLSize(), 0);
    EXPECT_EQ(mLog.lines(), (Lines{error("lseek64 Failed. errno[5]")}));
}

TEST_F(FileLine, NextEOLSize_ThatTheSystemRefusesToRead_IsMinusOneAndSaysSo) {
    File& file = reading("\n", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::pread.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(file.nextEOLSize(), -1);
    EXPECT_EQ(mLog.lines(),
              (Lines{error("ReadFile Failed. errno[5]"), error("in read func readFile Failed. Path:text")}));
    EXPECT_EQ(file.position(), 0);
}

// --- any bytes, against the same search written plainly, a character at a time

class PlainSearch {
  public:
    PlainSearch(std::string const& content, int type, std::size_t start)
        : mContent(content), mType(type), mAt(start) {}

    LineEnd run() {
        while (!mIsFound &&
               (mType >= File::TEXT_UTF16_BIG ? mAt + 2 <= mContent.size() : mAt < mContent.size())) {
            mType == File::TEXT_SJIS ? sjis() : mType == File::TEXT_UTF8 ? utf8() : utf16();
        }
        return {mIsFound ? static_cast<int>(mTotal) : 0, mTotal - mPending, mPending,
                static_cast<long long>(mIsFound ? mAt : mContent.size())};
    }

  private:
    void sjis() {
        std::string const six = mContent.substr(mAt, 6);
        char form[8] = {};
        unsigned int consumed = 0;
        utl::convertCharFromSjisToUtf8(form, sizeof(form), six.c_str(), &consumed);
        if (consumed == 2 && six[1] == '\n') {
            consumed = 1;
        }
        character(form, consumed);
    }

    void utf8() {
        std::string const six = mContent.substr(mAt, 6);
        bool isMark = false;
        unsigned int const bytes = utl::strCharBytesBase<char>(six.c_str(), &isMark);
        if (isMark) {
            pass(3);
        } else if (bytes == 0 || bytes == utl::INVALID_SIZE) {
            pass(1);
        } else {
            character(six.substr(0, bytes), bytes);
        }
    }

    void utf16() {
        auto const first = static_cast<unsigned char>(mContent[mAt]);
        auto const second = static_cast<unsigned char>(mContent[mAt + 1]);
        int const unit = mType == File::TEXT_UTF16_BIG ? first * 256 + second : second * 256 + first;
        char form[4] = {};
        if (utl::convertCharFromUtf16ToUtf8(form, sizeof(form), static_cast<unsigned short>(unit), nullptr) ==
            0) {
            pass(2);
        } else {
            character(form, 2);
        }
    }

    void pass(unsigned int bytes) {
        mAt += bytes;
        mTotal += bytes;
    }

    void character(std::string const& form, unsigned int bytes) {
        mIsFound = form == "\n";
        mPending = mIsFound || form == "\r" ? mPending + bytes : 0;
        pass(bytes);
    }

    std::string const& mContent;
    int const mType;
    std::size_t mAt;
    unsigned int mTotal = 0;
    unsigned int mPending = 0;
    bool mIsFound = false;
};

// Bytes that matter, and now and then a run that is longer than a block.
std::string anyBytes(std::minstd_rand& lots) {
    static std::string const pieces[] = {"\r",           "\n",
                                         "\0"s,          "a",
                                         "\x81",         "\xE3\x81\x82",
                                         "\xE3",         "\x82\xA0",
                                         "\xEF\xBB\xBF", "\xF0\x9F\x98\x80",
                                         "\xFE",         "\xFF",
                                         "\xFE\xFF",     "\xFF\xFE",
                                         "\0\r"s,        "\0\n"s,
                                         "\r\0"s,        "\n\0"s,
                                         "\xB1",         "\x40",
                                         "\xC2"};
    std::string bytes;
    for (unsigned int count = 0; count < 2000; ++count) {
        std::string const& piece = pieces[lots() % std::size(pieces)];
        bool const isRun = lots() % 200 == 0;
        for (auto i = isRun ? lots() % 3000 : 1; i > 0; --i) {
            bytes += piece;
        }
    }
    return bytes;
}

// Calls `check(start, line)` for every line of files with such bytes.
template <typename CHECK>
void forAnyLines(File& file, std::string const& content, CHECK check) {
    for (int const type : ALL_TYPES) {
        ASSERT_EQ(file.setTextType(type), 1);
        for (long long start = 0; start < static_cast<long long>(content.size());) {
            SCOPED_TRACE(testing::PrintToString(content.substr(static_cast<std::size_t>(start), 100)));
            SCOPED_TRACE(type);
            LineEnd const line = PlainSearch(content, type, static_cast<std::size_t>(start)).run();
            file.seek(start, File::FROM_START);
            check(start, line);
            if (testing::Test::HasFailure()) {
                return;
            }
            start = line.position;
        }
    }
}

TEST_F(FileLine, FindNextLineSize_OfAnyBytes_GivesWhatACharacterAtATimeGives) {
    std::minstd_rand lots(1);
    for (unsigned int round = 0; round < 10; ++round) {
        std::string const content = anyBytes(lots);
        File& file = reading(content, File::TEXT_UTF8);
        forAnyLines(file, content,
                    [&](long long, LineEnd const& line) { EXPECT_EQ(findLineEnd(file), line); });
    }
}

TEST_F(FileLine, ReadLine_OfAnyBytes_GivesWhatSearchAndReadTextGive) {
    std::minstd_rand lots(2);
    for (unsigned int round = 0; round < 10; ++round) {
        std::string const content = anyBytes(lots);
        File& file = reading(content, File::TEXT_UTF8);
        forAnyLines(file, content, [&](long long start, LineEnd const& line) {
            auto const size = static_cast<unsigned int>(1 + lots() % 5119);
            TextRead expected =
                line.lineSize != 0 ? readText(file, line.lineSize, size) : TextRead{0, "", 0, start};
            expected.position = expected.result >= 0 ? line.position : expected.position;
            file.seek(start, File::FROM_START);
            EXPECT_EQ(readLine(file, size), expected);
        });
    }
}

}  // namespace

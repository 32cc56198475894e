// Text of a file by its length: readText, writeText, writeLine and the text type.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
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
using utltest::contentOf;
using utltest::encoded;
using utltest::FileCalls;
using HookScope = utltest::OwnHookScope;
using utltest::LogCapture;
using utltest::putFile;
using utltest::TextRead;
using utltest::UNTOUCHED;
namespace hooks = utltest::hooks;
using namespace std::string_literals;
using Lines = std::vector<std::string>;

constexpr int ALL_TYPES[] = {File::TEXT_SJIS, File::TEXT_UTF8, File::TEXT_UTF16_BIG, File::TEXT_UTF16_LITTLE};
constexpr int WRONG_TYPES[] = {-1, 4, 5, 256, INT32_MIN, INT32_MAX};

constexpr char KANJI_SJIS[] = "\x8A\xBF\x8E\x9A";
constexpr char KANJI_UTF8[] = "\xE6\xBC\xA2\xE5\xAD\x97";
std::string const KANJI_BIG = "\x6F\x22\x5B\x57";
std::string const KANJI_LITTLE = "\x22\x6F\x57\x5B";
constexpr char MARK[] = "\xEF\xBB\xBF";

class FileText : public utltest::TextInFolder {};

// --- text type

TEST_F(FileText, SetTextType_TakesTheFourTypesAndNoOther) {
    File& file = reading(encoded("AB", File::TEXT_UTF16_BIG), File::TEXT_UTF8);
    EXPECT_EQ(file.setTextType(File::TEXT_UTF16_BIG), 1);
    for (int const type : WRONG_TYPES) {
        EXPECT_EQ(file.setTextType(type), 0) << type;
    }
    EXPECT_EQ(readText(file, 4), (TextRead{4, "AB", 3, 4}));
    for (int const type : ALL_TYPES) {
        EXPECT_EQ(file.setTextType(type), 1) << type;
    }
}

TEST_F(FileText, OfAWrongTypeFromTheConstructor_IsMinusOneInEveryOperationOnTextWithoutALine) {
    for (int const type : WRONG_TYPES) {
        File& file = writing("ab\ncd", type);
        EXPECT_EQ(readText(file, 2), (TextRead{-1, "~", UNTOUCHED, 0}));
        EXPECT_EQ(readLine(file), (TextRead{-1, "~", UNTOUCHED, 0}));
        EXPECT_EQ(file.findNextLineSize(0, nullptr, nullptr), -1);
        EXPECT_EQ(file.writeText("x", 1, 0), -1);
        EXPECT_EQ(file.writeLine("x"), -1);
        EXPECT_EQ(file.position(), 0);
        file.seek(0, File::FROM_END);
        EXPECT_EQ(readText(file, 2).result, -1);
        EXPECT_EQ(readLine(file).result, File::END_OF_FILE) << "at the end, which it sees first";
        EXPECT_EQ(written(), "ab\ncd");
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileText, OfAWrongType_BecomesReadableByARightOne) {
    File& file = reading("ab", 77);
    EXPECT_EQ(readText(file, 2).result, -1);
    EXPECT_EQ(file.setTextType(File::TEXT_UTF8), 1);
    EXPECT_EQ(readText(file, 2), (TextRead{2, "ab", 3, 2}));
}

// --- reading

TEST_F(FileText, ReadText_ConvertsEveryTypeToUtf8) {
    EXPECT_EQ(readText(reading(KANJI_SJIS, File::TEXT_SJIS), 4), (TextRead{4, KANJI_UTF8, 7, 4}));
    EXPECT_EQ(readText(reading(KANJI_UTF8, File::TEXT_UTF8), 6), (TextRead{6, KANJI_UTF8, 7, 6}));
    EXPECT_EQ(readText(reading(KANJI_BIG, File::TEXT_UTF16_BIG), 4), (TextRead{4, KANJI_UTF8, 7, 4}));
    EXPECT_EQ(readText(reading(KANJI_LITTLE, File::TEXT_UTF16_LITTLE), 4), (TextRead{4, KANJI_UTF8, 7, 4}));
}

TEST_F(FileText, ReadText_AsksTheSystemOnlyForWhatWasNotReadAhead) {
    File& file = reading("abcdef", File::TEXT_UTF8);
    FileCalls calls;
    ASSERT_EQ(file.readText(Buffer(10).get(), 10, 3, 0, nullptr), 3);
    EXPECT_EQ(calls.take(), (Lines{"seekFile: lseek 0 1", "fileSize: fstat", "-: pread 0"}));
    ASSERT_EQ(file.readText(Buffer(10).get(), 10, 3, 0, nullptr), 3);
    EXPECT_EQ(calls.take(), Lines());
    EXPECT_EQ(file.readText(Buffer(10).get(), 10, 3, 0, nullptr), File::END_OF_FILE);
    EXPECT_EQ(calls.take(), (Lines{"fileSize: fstat"})) << "at the end of what was read ahead";
}

TEST_F(FileText, ReadText_GoesOnWhereItStopped) {
    File& file = reading("abcde", File::TEXT_UTF8);
    EXPECT_EQ(readText(file, 2), (TextRead{2, "ab", 3, 2}));
    EXPECT_EQ(readText(file, 9), (TextRead{3, "cde", 4, 5}));
    EXPECT_EQ(readText(file, 9), (TextRead{File::END_OF_FILE, "~", UNTOUCHED, 5}));
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileText, ReadText_BeyondTheEnd_IsMinusThree) {
    File& file = reading("abc", File::TEXT_UTF8);
    file.seek(100, File::FROM_START);
    EXPECT_EQ(readText(file, 1), (TextRead{File::END_OF_FILE, "~", UNTOUCHED, 100}));
    EXPECT_EQ(readText(reading("", File::TEXT_UTF16_BIG), 2),
              (TextRead{File::END_OF_FILE, "~", UNTOUCHED, 0}));
}

TEST_F(FileText, ReadText_OfUpTo5119Bytes_IsAccepted) {
    std::string const text(5200, 'x');
    EXPECT_EQ(readText(reading(text, File::TEXT_UTF8), 5118).result, 5118);
    EXPECT_EQ(readText(reading(text, File::TEXT_UTF8), 5119),
              (TextRead{5119, text.substr(0, 5119), 5120, 5119}));
    EXPECT_EQ(readText(reading(text, File::TEXT_UTF8), 5120), (TextRead{-1, "~", UNTOUCHED, 0}));
    EXPECT_EQ(readText(reading(text, File::TEXT_UTF8), ~0U), (TextRead{-1, "~", UNTOUCHED, 0}));
    EXPECT_EQ(readText(reading("x", File::TEXT_UTF8), 5120).result, -1) << "though the file has only one";
}

TEST_F(FileText, ReadText_OfUtf16_CountsTheLengthInWholeUnits) {
    std::string const text = encoded(std::string(2600, 'x'), File::TEXT_UTF16_LITTLE);
    EXPECT_EQ(readText(reading(text, File::TEXT_UTF16_LITTLE), 0).result, -1);
    EXPECT_EQ(readText(reading(text, File::TEXT_UTF16_LITTLE), 1), (TextRead{-1, "~", UNTOUCHED, 0}));
    EXPECT_EQ(readText(reading(text, File::TEXT_UTF16_LITTLE), 2), (TextRead{2, "x", 2, 2}));
    EXPECT_EQ(readText(reading(text, File::TEXT_UTF16_LITTLE), 3), (TextRead{2, "x", 2, 2}));
    EXPECT_EQ(readText(reading(text, File::TEXT_UTF16_LITTLE), 5118).result, 5118);
    EXPECT_EQ(readText(reading(text, File::TEXT_UTF16_LITTLE), 5119).result, 5118);
    EXPECT_EQ(readText(reading(text, File::TEXT_UTF16_LITTLE), 5120).result, -1);
    EXPECT_EQ(readText(reading(text, File::TEXT_UTF16_LITTLE), 5121).result, -1);
}

TEST_F(FileText, ReadText_OfUtf16WithAnOddByteAtItsEnd_CountsItAndShowsItNowhere) {
    EXPECT_EQ(readText(reading("A\0B\0C"s, File::TEXT_UTF16_LITTLE), 100), (TextRead{5, "AB", 3, 5}));
    EXPECT_EQ(readText(reading("\0A\0B\x30"s, File::TEXT_UTF16_BIG), 100), (TextRead{5, "AB", 3, 5}));
    EXPECT_EQ(readText(reading("C", File::TEXT_UTF16_LITTLE), 2), (TextRead{1, "", 1, 1}));
}

TEST_F(FileText, ReadText_RefusesWrongArgumentsWithoutMoving) {
    for (int const type : ALL_TYPES) {
        File& file = reading("abcd", type);
        unsigned int length = UNTOUCHED;
        EXPECT_EQ(file.readText(nullptr, 10, 2, 0, &length), -1);
        EXPECT_EQ(file.readText(Buffer(10).get(), 10, 0, 0, &length), -1);
        EXPECT_EQ(length, UNTOUCHED);
        EXPECT_EQ(file.position(), 0);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileText, ReadText_OfAClosedFile_IsMinusOneWithoutALine) {
    File file("text", File::TEXT_UTF8);
    unsigned int length = UNTOUCHED;
    EXPECT_EQ(file.readText(Buffer(10).get(), 10, 2, 0, &length), -1);
    EXPECT_EQ(length, UNTOUCHED);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileText, ReadText_NeedsRoomForTheBytesOfTheFileAndATerminatorOfItsWidth) {
    for (int const type : ALL_TYPES) {
        unsigned int const unit = type >= File::TEXT_UTF16_BIG ? 2 : 1;
        std::string const text = encoded("abc", type);
        auto const bytes = static_cast<unsigned int>(text.size());
        EXPECT_EQ(readText(reading(text, type), bytes, bytes + unit - 1), (TextRead{-1, "~", UNTOUCHED, 0}));
        EXPECT_EQ(readText(reading(text, type), bytes, bytes + unit),
                  (TextRead{static_cast<int>(bytes), "abc", 4, bytes}));
    }
}

TEST_F(FileText, ReadText_LooksAtTheBytesThatTheFileHas_NotAtThoseAskedFor) {
    EXPECT_EQ(readText(reading("abc", File::TEXT_UTF8), 5119, 4), (TextRead{3, "abc", 4, 3}));
    EXPECT_EQ(readText(reading("abc", File::TEXT_UTF8), 5119, 3), (TextRead{-1, "~", UNTOUCHED, 0}));
}

TEST_F(FileText, ReadText_WhoseTextGrowsBeyondTheBuffer_IsMinusOneAndHasMoved) {
    std::string const kana = "\xB1\xB2\xB3";  // 3 bytes each in UTF-8
    EXPECT_EQ(readText(reading(kana, File::TEXT_SJIS), 3, 9), (TextRead{-1, "~", UNTOUCHED, 3}));
    EXPECT_EQ(readText(reading(kana, File::TEXT_SJIS), 3, 10).result, 3);
    EXPECT_EQ(readText(reading(KANJI_BIG, File::TEXT_UTF16_BIG), 4, 6), (TextRead{-1, "~", UNTOUCHED, 4}));
    EXPECT_EQ(readText(reading(KANJI_BIG, File::TEXT_UTF16_BIG), 4, 7).result, 4);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileText, ReadText_WithAnOffset_WritesBehindWhatIsThere) {
    char buffer[16] = "name: ";
    unsigned int length = UNTOUCHED;
    EXPECT_EQ(reading(KANJI_SJIS, File::TEXT_SJIS).readText(buffer, 13, 4, 6, &length), 4);
    EXPECT_STREQ(buffer, ("name: "s + KANJI_UTF8).c_str());
    EXPECT_EQ(length, 7U);
}

TEST_F(FileText, ReadText_WithAnOffset_NeedsThatMuchMoreRoom) {
    for (unsigned int const size : {9U, 10U}) {
        Buffer const buffer(size);
        std::memset(buffer.get(), 'o', 5);
        bool const fits = size == 10;
        EXPECT_EQ(reading("abcd", File::TEXT_UTF8).readText(buffer.get(), size, 4, 5, nullptr),
                  fits ? 4 : -1);
        EXPECT_EQ(buffer.text().substr(0, 9), fits ? "oooooabcd" : "ooooo~~~~");
    }
    Buffer const buffer(11);
    EXPECT_EQ(reading("\xB1\xB2", File::TEXT_SJIS).readText(buffer.get(), 11, 2, 5, nullptr), -1);
    EXPECT_EQ(buffer.text(), "~");
}

TEST_F(FileText, ReadText_WithAnOffsetThatWouldWrapTheSum_IsMinusOne) {
    for (unsigned int const offset : {~0U, ~0U - 1, ~0U - 2, ~0U - 3, ~0U - 4, 10U, 11U}) {
        Buffer const buffer(10);
        EXPECT_EQ(reading("abc", File::TEXT_UTF8).readText(buffer.get(), 10, 3, offset, nullptr), -1)
            << offset;
        EXPECT_EQ(buffer.text(), "~");
    }
}

TEST_F(FileText, ReadText_WithASizeOfZero_GivesTheSizeAndMoves) {
    for (int const type : ALL_TYPES) {
        std::string const text = encoded("abc", type);
        Buffer const buffer(1);
        unsigned int length = UNTOUCHED;
        File& file = reading(text, type);
        EXPECT_EQ(file.readText(buffer.get(), 0, 100, 7, &length), static_cast<int>(text.size()));
        EXPECT_EQ(length, 4U);
        EXPECT_EQ(buffer.text(), "~");
        EXPECT_EQ(file.position(), static_cast<long long>(text.size()));
        EXPECT_EQ(reading(text, type).readText(static_cast<char*>(nullptr), 0, 100, 0, nullptr),
                  static_cast<int>(text.size()));
    }
}

TEST_F(FileText, ReadText_LeavesOutAByteOrderMarkInFrontOfUtf8ButCountsItsBytes) {
    EXPECT_EQ(readText(reading(MARK + "abc"s, File::TEXT_UTF8), 6), (TextRead{6, "abc", 4, 6}));
    EXPECT_EQ(readText(reading(MARK, File::TEXT_UTF8), 3), (TextRead{3, "", 1, 3}));
    EXPECT_EQ(readText(reading(MARK + "a"s, File::TEXT_UTF8), 6, 4).result, -1)
        << "room is counted with the mark";
}

TEST_F(FileText, ReadText_LeavesOutAMarkWhereverReadingBegins) {
    File& file = reading("ab"s + MARK + "cd", File::TEXT_UTF8);
    EXPECT_EQ(readText(file, 2).text, "ab");
    EXPECT_EQ(readText(file, 5), (TextRead{5, "cd", 3, 7}));
}

TEST_F(FileText, ReadText_KeepsAMarkInTheMiddleAndASecondOne) {
    EXPECT_EQ(readText(reading("ab"s + MARK + "cd", File::TEXT_UTF8), 7).text, "ab"s + MARK + "cd");
    EXPECT_EQ(readText(reading(MARK + ""s + MARK, File::TEXT_UTF8), 6), (TextRead{6, MARK, 4, 6}));
}

TEST_F(FileText, ReadText_OfPartOfAMark_IsMinusOne) {
    EXPECT_EQ(readText(reading(MARK, File::TEXT_UTF8), 2), (TextRead{-1, "~", UNTOUCHED, 2}));
}

TEST_F(FileText, ReadText_OfUtf16WithAByteOrderMarkAnywhere_IsMinusOneAndHasMoved) {
    EXPECT_EQ(readText(reading("\xFE\xFF\0A"s, File::TEXT_UTF16_BIG), 4), (TextRead{-1, "~", UNTOUCHED, 4}));
    EXPECT_EQ(readText(reading("\xFF\xFE"
                               "A\0"s,
                               File::TEXT_UTF16_LITTLE),
                       4),
              (TextRead{-1, "~", UNTOUCHED, 4}));
    EXPECT_EQ(readText(reading("A\0\xFE\xFF"s, File::TEXT_UTF16_LITTLE), 4),
              (TextRead{-1, "~", UNTOUCHED, 4}));
    EXPECT_EQ(readText(reading("\xFF\xFE\0A"s, File::TEXT_UTF16_BIG), 4).result, -1);
}

TEST_F(FileText, ReadText_OfUtf16Surrogates_MakesACharacterOfEach) {
    EXPECT_EQ(readText(reading("\xD8\x3D\xDE\x00"s, File::TEXT_UTF16_BIG), 4),
              (TextRead{4, "\xED\xA0\xBD\xED\xB8\x80", 7, 4}));
}

TEST_F(FileText, ReadText_CutInsideACharacter_IsMinusOneAndHasMoved) {
    for (unsigned int const length : {1U, 2U, 4U, 5U}) {
        EXPECT_EQ(readText(reading(KANJI_UTF8, File::TEXT_UTF8), length),
                  (TextRead{-1, "~", UNTOUCHED, length}));
    }
    EXPECT_EQ(readText(reading(KANJI_UTF8, File::TEXT_UTF8), 3), (TextRead{3, "\xE6\xBC\xA2", 4, 3}));
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileText, ReadText_OfMalformedUtf8_IsMinusOneWhereverItIs) {
    for (char const* const text : {"\x80"
                                   "abc",
                                   "ab\xFF"
                                   "c",
                                   "abc\xE3", "\xC0\x80", "a\xE0\x81\x81"}) {
        EXPECT_EQ(readText(reading(text, File::TEXT_UTF8), 100).result, -1) << text;
    }
}

TEST_F(FileText, ReadText_AsksNotWhetherUtf8IsWellFormedForItsSize) {
    unsigned int length = UNTOUCHED;
    EXPECT_EQ(reading("ab\xFF", File::TEXT_UTF8).readText(static_cast<char*>(nullptr), 0, 100, 0, &length),
              3);
    EXPECT_EQ(length, 4U);
}

TEST_F(FileText, ReadText_OfALeadByteOfShiftJisAtTheEnd_IsOneCharacterWithoutAForm) {
    EXPECT_EQ(readText(reading("ab\x81", File::TEXT_SJIS), 100), (TextRead{3, "ab", 4, 3}));
}

TEST_F(FileText, ReadText_OfShiftJisWithoutAForm_EndsTheTextThereAndCountsOn) {
    EXPECT_EQ(readText(reading("a\x85\x41"
                               "b",
                               File::TEXT_SJIS),
                       100),
              (TextRead{4, "a", 4, 4}));
}

TEST_F(FileText, ReadText_OfShiftJisBytesThatAreNoUtf8_IsMinusOneAndHasMoved) {
    for (char const* const text : {"a\x80",
                                   "\xA0"
                                   "b",
                                   "a\xFD", "a\xF0\x40"}) {
        EXPECT_EQ(readText(reading(text, File::TEXT_SJIS), 100).result, -1);
    }
    for (char const lead : {'\xF0', '\xF4', '\xF9', '\xFD', '\xFF'}) {
        for (char digit = '0'; digit <= '9'; ++digit) {
            EXPECT_EQ(readText(reading({lead, digit}, File::TEXT_SJIS), 100).result, -1);
            EXPECT_EQ(readText(reading({'a', lead, digit, 'b'}, File::TEXT_SJIS), 100).result, -1);
        }
    }
    unsigned int length = UNTOUCHED;
    EXPECT_EQ(reading("a\x80", File::TEXT_SJIS).readText(static_cast<char*>(nullptr), 0, 100, 0, &length), 2);
    EXPECT_EQ(length, 3U) << "which the question for the size does not see";
}

TEST_F(FileText, ReadText_EndsAtAZeroInTheFileAndTakesAllBytes) {
    EXPECT_EQ(readText(reading("ab\0cd"s, File::TEXT_UTF8), 100), (TextRead{5, "ab", 3, 5}));
    EXPECT_EQ(readText(reading("ab\0cd"s, File::TEXT_SJIS), 100), (TextRead{5, "ab", 3, 5}));
    EXPECT_EQ(readText(reading("a\0\0\0b\0"s, File::TEXT_UTF16_LITTLE), 100), (TextRead{6, "a", 2, 6}));
    EXPECT_EQ(readText(reading("\0ab"s, File::TEXT_UTF8), 100), (TextRead{3, "", 1, 3}));
}

TEST_F(FileText, ReadText_OfTheLongestShiftJis_HasRoomForThreeBytesOfEach) {
    std::string const kana(5119, '\xB1');
    EXPECT_EQ(readText(reading(kana, File::TEXT_SJIS), 5119, 3 * 5119 + 1).length, 3U * 5119 + 1);
    EXPECT_EQ(readText(reading(kana, File::TEXT_SJIS), 5119, 3 * 5119), (TextRead{-1, "~", UNTOUCHED, 5119}));
}

TEST_F(FileText, ReadText_ThatComesShort_ConvertsWhatCame) {
    File& file = reading("A\0B\0C\0"s, File::TEXT_UTF16_LITTLE);
    HookScope const hookScope;
    hooks::pread.replace([](int descriptor, void* buffer, size_t, off_t offset) {
        return hooks::pread.real(descriptor, buffer, 3, offset);
    });
    EXPECT_EQ(readText(file, 6), (TextRead{3, "A", 2, 3}));
}

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

TEST_F(FileText, ReadText_OfAFileThatIsCutMeanwhile_IsAtTheEndOfFile) {
    File& file = reading("abc", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::pread.replace([](int descriptor, void* buffer, size_t length, off_t offset) {
        EXPECT_EQ(truncate("text", 0), 0);
        return hooks::pread.real(descriptor, buffer, length, offset);
    });
    EXPECT_EQ(file.readText(Buffer(9).get(), 9, 3, 0, nullptr), File::END_OF_FILE);
    EXPECT_EQ(file.position(), 0);
}

// Bytes of all kinds, many lengths around that of a conversion which needs no heap.
TEST_F(FileText, ReadText_OfAnyShiftJis_GivesWhatConvertingAndCopyingGive) {
    static char const* const pieces[] = {"\x81\x40", "\x82\xA0", "\xB1",     "a",
                                         "7",        "\x83\xBF", "\x88\x9F", "\x84\x40"};
    static char const* const rarePieces[] = {"\x80",     "\xA0",     "\xF1", "\xFD", "\xF1\x80\x80\x80",
                                             "\xF1\x80", "\x85\x41", "\x81"};
    std::minstd_rand lots(1);
    std::string content;
    std::vector<std::string> texts;
    for (unsigned int round = 0; round < 4000; ++round) {
        std::string text;
        bool const hasRare = lots() % 2 == 0;
        for (auto length = 1 + lots() % (round % 2 == 0 ? 12 : 300); text.size() < length;) {
            bool const isRare = hasRare && lots() % length == 0;
            text += isRare ? rarePieces[lots() % std::size(rarePieces)] : pieces[lots() % std::size(pieces)];
        }
        texts.push_back(text);
        content += text;
    }
    File& file = reading(content, File::TEXT_SJIS);
    for (std::string const& text : texts) {
        std::vector<char> converted(3 * text.size() + 1);
        unsigned int const room = static_cast<unsigned int>(converted.size());
        unsigned int const size = utl::convertStrFromSjisToUtf8(converted.data(), room, text.c_str());
        bool const isText = utl::copyStrBase<char>(Buffer(room).get(), room, converted.data(),
                                                   utl::INVALID_SIZE, 1) != utl::INVALID_SIZE;
        auto const bytes = static_cast<unsigned int>(text.size());
        TextRead const read = readText(file, bytes);
        EXPECT_EQ(read.result, isText ? static_cast<int>(bytes) : -1) << testing::PrintToString(text);
        EXPECT_EQ(read.text, isText ? std::string(converted.data()) : "~");
        EXPECT_EQ(read.length, isText ? size : UNTOUCHED);
    }
}

// --- reading into a string

TEST_F(FileText, ReadTextIntoAString_UsesItsCapacity) {
    BasicString<char> text(5, 0);
    unsigned int length = UNTOUCHED;
    EXPECT_EQ(reading("abcd", File::TEXT_UTF8).readText(&text, 4, 0, &length), 4);
    EXPECT_STREQ(text.buffer(), "abcd");
    EXPECT_EQ(length, 5U);
}

TEST_F(FileText, ReadTextIntoAString_NeverEnlargesIt) {
    BasicString<char> text("old", 4, 1);
    EXPECT_EQ(reading("abcd", File::TEXT_UTF8).readText(&text, 4, 0, nullptr), -1);
    EXPECT_STREQ(text.buffer(), "old");
    EXPECT_EQ(text.maxSize(), 4U);
}

TEST_F(FileText, ReadTextIntoAString_WithAnOffset_Appends) {
    BasicString<char> text("ab", 10, 0);
    EXPECT_EQ(reading("cd", File::TEXT_UTF8).readText(&text, 2, 2, nullptr), 2);
    EXPECT_STREQ(text.buffer(), "abcd");
}

TEST_F(FileText, ReadTextIntoNoString_AsksForTheSize) {
    unsigned int length = UNTOUCHED;
    EXPECT_EQ(reading(KANJI_SJIS, File::TEXT_SJIS)
                  .readText(static_cast<BasicString<char>*>(nullptr), 4, 0, &length),
              4);
    EXPECT_EQ(length, 7U);
}

TEST_F(FileText, ReadTextIntoAStringThatSharesTheEmptyText_IsMinusOneWithoutMoving) {
    BasicString<char> text;
    File& file = reading("abcd", File::TEXT_UTF8);
    EXPECT_EQ(file.readText(&text, 1, 0, nullptr), -1);
    EXPECT_EQ(file.position(), 0);
}

// --- writing

TEST_F(FileText, WriteText_PutsTheTextIntoTheFilesEncoding) {
    EXPECT_EQ(writing("", File::TEXT_UTF8).writeText(KANJI_UTF8, 5119, 0), 6);
    EXPECT_EQ(written(), KANJI_UTF8);
    EXPECT_EQ(writing("", File::TEXT_UTF16_BIG).writeText(KANJI_UTF8, 5119, 0), 4);
    EXPECT_EQ(written(), KANJI_BIG);
    EXPECT_EQ(writing("", File::TEXT_UTF16_LITTLE).writeText(KANJI_UTF8, 5119, 0), 4);
    EXPECT_EQ(written(), KANJI_LITTLE);
}

TEST_F(FileText, WriteText_IsOneWriteWithTheFolderWidenedAroundIt) {
    putFolder("folder");
    File file("folder/f", File::TEXT_UTF16_BIG);
    ASSERT_EQ(file.open(File::OPEN_EMPTY, File::ACCESS_WRITE), 1);
    FileCalls calls;
    EXPECT_EQ(file.writeText("abc", 100, 0), 6);
    EXPECT_EQ(calls.take(),
              (Lines{"changeParentAccessMode: stat folder", "changeParentAccessMode: chmod folder 777",
                     "writeFile: write", "changeParentAccessMode: stat folder",
                     "changeParentAccessMode: chmod folder 755"}));
}

TEST_F(FileText, WriteText_ToShiftJis_IsRefusedWithoutALine) {
    File& file = writing("abc", File::TEXT_SJIS);
    EXPECT_EQ(file.writeText("xyz", 3, 0), -1);
    EXPECT_EQ(file.writeLine("xyz"), -1);
    EXPECT_EQ(mLog.lines(), Lines());
    EXPECT_EQ(written(), "abc");
}

TEST_F(FileText, WriteText_RefusesWrongArgumentsWithoutALine) {
    for (int const type : {File::TEXT_UTF8, File::TEXT_UTF16_BIG, File::TEXT_UTF16_LITTLE}) {
        File& file = writing("", type);
        EXPECT_EQ(file.writeText(nullptr, 3, 0), -1);
        EXPECT_EQ(file.writeText("abc", 5120, 0), -1);
        EXPECT_EQ(file.writeText("abc", ~0U, 0), -1);
        EXPECT_EQ(written(), "");
    }
    File file("text", File::TEXT_UTF8);
    EXPECT_EQ(file.writeText("abc", 3, 0), -1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileText, WriteText_WritesTheSmallerOfTextAndLength) {
    EXPECT_EQ(writing("", File::TEXT_UTF8).writeText("abc", 2, 0), 2);
    EXPECT_EQ(written(), "ab");
    EXPECT_EQ(writing("", File::TEXT_UTF8).writeText("abc", 3, 0), 3);
    EXPECT_EQ(writing("", File::TEXT_UTF8).writeText("abc", 4, 0), 3);
    EXPECT_EQ(written(), "abc");
    EXPECT_EQ(writing("", File::TEXT_UTF16_BIG).writeText("abc", 3, 0), 3) << "in bytes, also inside a unit";
    EXPECT_EQ(written(), "\0a\0"s);
}

TEST_F(FileText, WriteText_WritesUpTo5119Bytes) {
    std::string const text(6000, 'x');
    EXPECT_EQ(writing("", File::TEXT_UTF8).writeText(text.c_str(), 5119, 0), 5119);
    EXPECT_EQ(written(), text.substr(0, 5119));
    EXPECT_EQ(writing("", File::TEXT_UTF16_BIG).writeText(text.c_str(), 5119, 0), 5119);
    EXPECT_EQ(written().size(), 5119U);
}

TEST_F(FileText, WriteText_OfLengthZero_FailsAsTheWriteDoes) {
    for (int const type : {File::TEXT_UTF8, File::TEXT_UTF16_BIG, File::TEXT_UTF16_LITTLE}) {
        mLog.clear();
        EXPECT_EQ(writing("", type).writeText("abc", 0, 0), -1);
        EXPECT_EQ(mLog.lines(), (Lines{error("writeFile Failed. Path:text")}));
    }
}

TEST_F(FileText, WriteText_BeginsAtTheOffset) {
    EXPECT_EQ(writing("", File::TEXT_UTF8).writeText("abcd", 5119, 2), 2);
    EXPECT_EQ(written(), "cd");
    EXPECT_EQ(writing("", File::TEXT_UTF8).writeText("abcd", 5119, 3), 1);
    EXPECT_EQ(written(), "d");
    EXPECT_EQ(writing("", File::TEXT_UTF16_LITTLE).writeText("abcd", 5119, 2), 4);
    EXPECT_EQ(written(), "c\0d\0"s);
}

// What is left behind the offset, in characters, against the offset.
TEST_F(FileText, WriteTextOfUtf8_GivesZeroForAnEmptyTextAndMinusOneForAnEmptyRest) {
    EXPECT_EQ(writing("", File::TEXT_UTF8).writeText("", 10, 0), 0);
    EXPECT_EQ(writing("", File::TEXT_UTF8).writeText("a", 10, 0), 1);
    EXPECT_EQ(writing("", File::TEXT_UTF8).writeText("a", 10, 1), -1);
    EXPECT_EQ(writing("", File::TEXT_UTF8).writeText("abc", 10, 3), -1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileText, WriteTextOfUtf16_OfOneCharacter_WritesNothingAndGivesZero) {
    for (int const type : {File::TEXT_UTF16_BIG, File::TEXT_UTF16_LITTLE}) {
        EXPECT_EQ(writing("", type).writeText("A", 10, 0), 0);
        EXPECT_EQ(writing("", type).writeText("\xE6\xBC\xA2", 10, 0), 0);
        EXPECT_EQ(written(), "");
        EXPECT_EQ(writing("", type).writeText("AB", 10, 0), 4);
        EXPECT_EQ(written(), encoded("AB", type));
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileText, WriteTextOfUtf16_OfOneCharacterBehindAnOffset_IsMinusOneWithoutALine) {
    EXPECT_EQ(writing("", File::TEXT_UTF16_BIG).writeText("AB", 10, 1), -1);
    EXPECT_EQ(writing("", File::TEXT_UTF16_BIG).writeText("ABC", 10, 2), -1);
    EXPECT_EQ(writing("", File::TEXT_UTF16_BIG).writeText("ABC", 10, 1), 4);
    EXPECT_EQ(written(), "\0B\0C"s);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileText, WriteTextOfUtf16_OfAnEmptyRest_DependsOnTheOffset) {
    EXPECT_EQ(writing("", File::TEXT_UTF16_BIG).writeText("A", 10, 1), 0);
    EXPECT_EQ(writing("", File::TEXT_UTF16_BIG).writeText("AB", 10, 2), -1);
    EXPECT_EQ(mLog.lines(), Lines());
    EXPECT_EQ(writing("", File::TEXT_UTF16_BIG).writeText("", 10, 0), -1);
    EXPECT_EQ(mLog.lines(), (Lines{error("writeFile Failed. Path:text")}));
}

TEST_F(FileText, WriteText_WithAnOffsetBehindTheText_IsAsAtItsEndAndReadsNothingThere) {
    std::vector<char> const text(2, '\0');
    for (unsigned int const offset : {2U, 3U, 100U, 0x7FFFFFFFU, ~0U - 1, ~0U}) {
        EXPECT_EQ(writing("", File::TEXT_UTF8).writeText(text.data(), 10, offset), -1) << offset;
        EXPECT_EQ(writing("", File::TEXT_UTF16_BIG).writeText(text.data(), 10, offset), -1) << offset;
        EXPECT_EQ(written(), "");
    }
}

TEST_F(FileText, WriteTextOfUtf8_WritesTheBytesAsGiven) {
    std::string const text = MARK + "a\xFF\xE3\x81"s;
    EXPECT_EQ(writing("", File::TEXT_UTF8).writeText(text.c_str(), 5119, 0), 7);
    EXPECT_EQ(written(), text);
    EXPECT_EQ(writing("", File::TEXT_UTF8).writeText(KANJI_UTF8, 4, 0), 4) << "also inside a character";
    EXPECT_EQ(written(), std::string(KANJI_UTF8, 4));
}

TEST_F(FileText, WriteTextOfUtf16_TurnsWhatHasNoUnitIntoAReferenceMark) {
    EXPECT_EQ(writing("", File::TEXT_UTF16_BIG).writeText("a\xF0\x9F\x98\x80", 5119, 0), 4);
    EXPECT_EQ(written(), "\0a\x20\x3B"s);
}

TEST_F(FileText, WriteTextOfUtf16_OfMalformedText_EndsAtABrokenCharacterAndFailsAtAStrayByte) {
    EXPECT_EQ(writing("", File::TEXT_UTF16_BIG)
                  .writeText("ab\xE3\x81"
                             "c",
                             5119, 0),
              4);
    EXPECT_EQ(written(), "\0a\0b"s);
    EXPECT_EQ(writing("", File::TEXT_UTF16_BIG).writeText("abc\x80", 5119, 0), -1);
    EXPECT_EQ(written(), "");
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileText, WriteTextOfUtf16_KeepsAMarkOfTheText) {
    EXPECT_EQ(writing("", File::TEXT_UTF16_BIG).writeText((MARK + "a"s).c_str(), 5119, 0), 4);
    EXPECT_EQ(written(), "\xFE\xFF\0a"s);
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

TEST_F(FileText, WriteText_ThatGoesShort_GivesWhatWentIn) {
    File& file = writing("", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::write.replace(
        [](int descriptor, void const* buffer, size_t) { return hooks::write.real(descriptor, buffer, 2); });
    EXPECT_EQ(file.writeText("abc", 3, 0), 2);
    EXPECT_EQ(written(), "ab");
}

TEST_F(FileText, WriteText_OverwritesAtThePosition) {
    File& file = writing("0123456789", File::TEXT_UTF8);
    file.seek(3, File::FROM_START);
    EXPECT_EQ(file.writeText("abc", 3, 0), 3);
    EXPECT_EQ(file.position(), 6);
    EXPECT_EQ(written(), "012abc6789");
}

TEST_F(FileText, WriteLine_WritesTheTextAndALineFeed) {
    File& file = writing("", File::TEXT_UTF8);
    EXPECT_EQ(file.writeLine(KANJI_UTF8), 7);
    EXPECT_EQ(file.writeLine(""), 1);
    EXPECT_EQ(file.writeLine("a\n"), 3);
    EXPECT_EQ(written(), KANJI_UTF8 + "\n\na\n\n"s);
}

TEST_F(FileText, WriteLine_ToUtf16_WritesNoLineEnd) {
    for (int const type : {File::TEXT_UTF16_BIG, File::TEXT_UTF16_LITTLE}) {
        File& file = writing("", type);
        EXPECT_EQ(file.writeLine("ab"), 4);
        EXPECT_EQ(file.writeLine("c"), 0);
        EXPECT_EQ(file.writeLine(""), -1);
        EXPECT_EQ(file.writeText("d\r\n", 5119, 0), 6);
        EXPECT_EQ(written(), encoded("abd\r\n", type));
    }
}

TEST_F(FileText, WriteLine_OfALongText_WritesTheFirst5119BytesAndALineFeed) {
    std::string const text(6000, 'x');
    EXPECT_EQ(writing("", File::TEXT_UTF8).writeLine(text.c_str()), 5120);
    EXPECT_EQ(written(), text.substr(0, 5119) + "\n");
}

TEST_F(FileText, WriteLine_OfAClosedFileOrOfNull_IsMinusOneWithoutALine) {
    File file("text", File::TEXT_UTF8);
    EXPECT_EQ(file.writeLine("abc"), -1);
    EXPECT_EQ(writing("", File::TEXT_UTF8).writeLine(nullptr), -1);
    EXPECT_EQ(written(), "");
    EXPECT_EQ(mLog.lines(), Lines());
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

TEST_F(FileText, WhatWasWritten_IsReadBackTheSame) {
    std::string const text = KANJI_UTF8 + " \xEF\xBD\xB1 \xC3\xA9 abc"s;
    for (int const type : {File::TEXT_UTF8, File::TEXT_UTF16_BIG, File::TEXT_UTF16_LITTLE}) {
        File& file = writing("", type);
        int const bytes = file.writeText(text.c_str(), 5119, 0);
        ASSERT_GT(bytes, 0);
        file.seek(0, File::FROM_START);
        EXPECT_EQ(readText(file, 5119),
                  (TextRead{bytes, text, static_cast<unsigned int>(text.size()) + 1, bytes}));
    }
}

}  // namespace

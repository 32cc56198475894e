// Text of a file by its length and by its lines.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

using namespace utltest;
using utl::BasicString;
using utl::File;
using HookScope = utltest::OwnHookScope;
namespace hooks = utltest::hooks;
using namespace std::string_literals;
using Lines = std::vector<std::string>;

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

// What is left after the offset, in characters, against the offset.
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

// Rests of texts.

/// What `writeText` of ASCII returns, and which bytes it writes.
struct Written {
    int result;
    std::string bytes;
};

Written writtenOf(std::string const& text, unsigned int length, unsigned int offset, int textType) {
    unsigned int const unit = textType == utl::File::TEXT_UTF8 ? 1 : 2;
    std::string const rest = text.substr(offset);
    unsigned int const limit = static_cast<unsigned int>(rest.size()) + 1 + offset - unit;
    if (limit == 0) {
        return {0, ""};
    }
    std::string const bytes = offset >= limit ? "" : encoded(rest, textType).substr(0, length);
    return bytes.empty() ? Written{-1, ""} : Written{static_cast<int>(bytes.size()), bytes};
}

TEST_F(FileText, WriteText_CountsTheRestOfAShortTextAsEver) {
    for (int const textType :
         {utl::File::TEXT_UTF8, utl::File::TEXT_UTF16_BIG, utl::File::TEXT_UTF16_LITTLE}) {
        for (unsigned int size = 0; size <= 5; ++size) {
            std::string const text = std::string("abcde").substr(0, size);
            for (unsigned int offset = 0; offset <= size; ++offset) {
                for (unsigned int length = 0; length <= 11; ++length) {
                    utl::File& file = writing("", textType);
                    Written const expected = writtenOf(text, length, offset, textType);
                    EXPECT_EQ(file.writeText(text.c_str(), length, offset), expected.result)
                        << size << ", " << length << ", " << offset << " as " << textType;
                    EXPECT_EQ(written(), expected.bytes);
                }
            }
        }
    }
}

TEST_F(FileText, WriteText_OfALongText_WritesTheFirst5119BytesAlsoWhereTheyEndInsideACharacter) {
    std::string text;
    for (int i = 0; i < 7000; ++i) {
        text += "\xE3\x81\x82";
    }
    EXPECT_EQ(writing("", utl::File::TEXT_UTF8).writeText(text.c_str(), 5120, 0), -1);
    EXPECT_EQ(writing("", utl::File::TEXT_UTF8).writeText(text.c_str(), 5119, 2), 5119);
    EXPECT_EQ(written(), text.substr(2, 5119));
    EXPECT_EQ(writing("", utl::File::TEXT_UTF16_LITTLE).writeText(text.c_str(), 5119, 3), 5119);
    std::string const bytes = written();
    EXPECT_EQ(bytes.size(), 5119U);
    EXPECT_EQ(bytes.substr(5114), "\x42\x30\x42\x30\x42");
}

TEST_F(FileText, WriteText_InUtf16_WritesAMarkOfItsTextAndAReferenceMarkForWhatHasNoUnit) {
    std::string const text = std::string(MARK) +
                             "\xF0\x9F\x8D\xA3"
                             "a\xE3\x81";
    EXPECT_EQ(writing("", utl::File::TEXT_UTF16_BIG).writeText(text.c_str(), 5119, 0), 6);
    EXPECT_EQ(written(), std::string("\xFE\xFF\x20\x3B\0a", 6));
    // One character, be it a mark, is not written.
    EXPECT_EQ(writing("", utl::File::TEXT_UTF16_BIG).writeText(MARK, 5119, 0), 0);
    EXPECT_EQ(written(), "");
}

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

TEST_F(FileLine, ReadLine_OfAFileOpenedToWrite_IsRefusedByTheSystem) {
    utltest::putFile("text", "ab\n");
    File file("text", File::TEXT_UTF8);
    ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_WRITE), 1);
    EXPECT_EQ(readLine(file).result, -1);
    EXPECT_EQ(mLog.lines(),
              (Lines{error("ReadFile Failed. errno[9]"), error("in read func readFile Failed. Path:text"),
                     error("in findNextLineSize func file read error 6byte")}));
}

// It looks at the size before the search, for each block of it, before the text, and as it reads that.
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

TEST_F(FileText, WriteText_ThatHasNoFormInUtf16_WritesNothingWithoutALineOrAChangedFolder) {
    HookScope const scope;
    for (int const textType : TYPES_OF_UNITS) {
        for (char const* const text : {"\x82", "ab\xFFz", "\xFE"}) {
            utl::File& file = writing("old", textType);
            hooks::write.failFrom(1, 0, -1, EIO);
            hooks::chmod.failFrom(1, 0, -1, EIO);
            EXPECT_EQ(file.writeText(text, 100, 0), -1);
            EXPECT_EQ(hooks::write.calls(), 0U);
            EXPECT_EQ(hooks::chmod.calls(), 0U);
        }
    }
    EXPECT_EQ(mLog.lines(), std::vector<std::string>());
    EXPECT_EQ(contentOf("text"), "old");
}

}  // namespace

// Text at any place, at any border and in any state, beside plain accounts of it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "TestCommand.h"
#include "TestHooks.h"
#include "TestTextFile.h"
#include "UtlCharSet.h"
#include "UtlFile.h"
#include "UtlLog.h"
#include "UtlString.h"

namespace {

using namespace utltest;
using HookScope = utltest::OwnHookScope;
namespace hooks = utltest::hooks;
using namespace std::string_literals;
using utl::File;
using Lines = std::vector<std::string>;

using FileText = utltest::FileLine;

constexpr unsigned long long ANYWHERE = 0xFFFFFFFFFFFFFFFFULL;

char const BOM[] = "\xEF\xBB\xBF";

/// Pieces of text that meet badly: line ends, marks, characters, halves of them, and a zero byte.
std::vector<std::string> piecesOf(int textType) {
    if (textType == utl::File::TEXT_UTF8) {
        return {"\r",           "\n",       "\r\n",         "a",
                "ab",           BOM,        "\xE3\x81\x82", "\xE3\x81",
                "\xE3",         "\x82",     "\xC2\xA0",     "\xF0\x9F\x8D\xA3",
                "\xF0\x9F\x8D", "\xC0\x8A", "\xFF",         std::string(1, '\0'),
                "\xEF\xBB"};
    }
    if (textType == utl::File::TEXT_SJIS) {
        return {"\r",   "\n",   "\r\n", "a",    "ab",       "\x82\xA0",           "\x83\x5C", "\x95\x5C",
                "\xB1", "\x80", "\xA0", "\xFD", "\xEF\xFC", std::string(1, '\0'), "\x82"};
    }
    // The bytes of a carriage return and of a line feed inside of units, and units in the other order.
    std::vector<std::string> pieces;
    for (unsigned int const code : {0x000DU, 0x000AU, 0x0061U, 0xFEFFU, 0xFFFEU, 0x0A0DU, 0x0D0AU, 0x0A00U,
                                    0x0D00U, 0x010AU, 0x0000U, 0xD83CU, 0xFFFFU, 0x3042U}) {
        char const high = static_cast<char>(code >> 8);
        char const low = static_cast<char>(code & 0xFF);
        pieces.push_back(textType == utl::File::TEXT_UTF16_BIG ? std::string{high, low}
                                                               : std::string{low, high});
    }
    return pieces;
}

TEST_F(FileText, FindNextLineSize_AgreesWithAWalkFromCharacterToCharacter_ForAnyMixOfBytes) {
    std::mt19937 random(20251120);
    for (int const textType : ALL_TYPES) {
        std::vector<std::string> const pieces = piecesOf(textType);
        for (int round = 0; round < 400; ++round) {
            std::string content;
            for (auto i = random() % 12; i > 0; --i) {
                content += pieces[random() % pieces.size()];
            }
            content += random() % 4 == 0 ? "\r" : "";
            utl::File& file = reading(content, textType);
            unsigned int const from = random() % 3 == 0 ? static_cast<unsigned int>(random() % 3) : 0;
            file.seek(from, utl::File::FROM_START);
            EXPECT_EQ(findLineEnd(file), walked(content, from, textType))
                << testing::PrintToString(content) << " from " << from << " as " << textType;
        }
    }
    EXPECT_EQ(mLog.lines(), std::vector<std::string>());
}

TEST_F(FileText, FindNextLineSize_AgreesWithAWalkFromCharacterToCharacter_AroundEveryPowerOfTwo) {
    for (int const textType : ALL_TYPES) {
        unsigned int const unit = textType >= utl::File::TEXT_UTF16_BIG ? 2 : 1;
        std::string const filler = encoded(std::string(8192, 'x'), textType);
        for (std::string const& piece : piecesOf(textType)) {
            std::string const tail = encoded("\r", textType) + piece + encoded("\r\r\n", textType) + "z";
            LineEnd const inTail = walked(tail, 0, textType);
            for (unsigned int border = 64; border <= 8192; border *= 2) {
                for (unsigned int at = border - 8; at <= border; at += unit) {
                    LineEnd const expected = {static_cast<int>(at) + inTail.result, at + inTail.lineSize,
                                              inTail.eolSize, at + inTail.position};
                    ASSERT_EQ(findLineEnd(reading(filler.substr(0, at) + tail, textType)), expected)
                        << testing::PrintToString(piece) << " at " << at << " as " << textType;
                }
            }
        }
    }
}

/// Characters in all three forms, among them such whose bytes look like line ends and separators.
struct Character {
    char const* sjis;
    char const* utf8;
    unsigned int utf16;
};
constexpr Character CHARACTERS[] = {{"a", "a", 'a'},
                                    {"\r", "\r", '\r'},
                                    {"\x82\xA0", "\xE3\x81\x82", 0x3042},
                                    {"\x95\x5C", "\xE8\xA1\xA8", 0x8868},
                                    {"\x83\x5C", "\xE3\x82\xBD", 0x30BD},
                                    {"\xB1", "\xEF\xBD\xB1", 0xFF71}};

std::string inType(Character const& character, int textType) {
    char const high = static_cast<char>(character.utf16 >> 8);
    char const low = static_cast<char>(character.utf16 & 0xFF);
    return textType == utl::File::TEXT_SJIS        ? character.sjis
           : textType == utl::File::TEXT_UTF8      ? character.utf8
           : textType == utl::File::TEXT_UTF16_BIG ? std::string{high, low}
                                                   : std::string{low, high};
}

TEST_F(FileText, ReadLine_GivesTheSameLinesInEveryEncoding) {
    for (int const textType : ALL_TYPES) {
        std::mt19937 random(7);
        std::string content;
        std::vector<std::string> lines;
        std::vector<std::size_t> sizes;
        for (int line = 0; line < 120; ++line) {
            std::size_t const start = content.size();
            lines.emplace_back();
            for (auto i = random() % 90; i > 0; --i) {
                Character const& character = CHARACTERS[random() % std::size(CHARACTERS)];
                content += inType(character, textType);
                lines.back() += character.utf8;
            }
            content += encoded("z", textType);
            lines.back() += "z";
            sizes.push_back(content.size() - start);
            content += encoded(random() % 2 == 0 ? "\n" : "\r\r\n", textType);
        }
        utl::File& file = reading(content, textType);
        for (std::size_t line = 0; line < lines.size(); ++line) {
            TextRead const read = readLine(file);
            ASSERT_EQ(read.result, static_cast<int>(sizes[line])) << line << " as " << textType;
            ASSERT_EQ(read.text, lines[line]) << line << " as " << textType;
            ASSERT_EQ(read.length, lines[line].size() + 1);
        }
        EXPECT_EQ(readLine(file).result, utl::File::END_OF_FILE);
    }
}

TEST_F(FileText, ReadLine_TakesALineThatFitsTheBufferWithTheTerminatorOfTheFileAndNoLongerOne) {
    for (int const textType : ALL_TYPES) {
        unsigned int const unit = textType >= utl::File::TEXT_UTF16_BIG ? 2 : 1;
        for (unsigned int size = 5112; size <= 5124; size += unit) {
            utl::File& file = reading(encoded(std::string(size / unit, 'l') + "\nnext", textType), textType);
            bool const isText = size <= 5119;
            unsigned int outputLength = UNTOUCHED;
            EXPECT_EQ(file.readLine(static_cast<char*>(nullptr), 0, &outputLength),
                      isText ? static_cast<int>(size) : -1);
            EXPECT_EQ(outputLength, isText ? size / unit + 1 : UNTOUCHED);
            EXPECT_EQ(file.position(), 0);
            bool const fits = size + unit <= 5119;
            EXPECT_EQ(readLine(file), (fits ? TextRead{static_cast<int>(size), std::string(size / unit, 'l'),
                                                       size / unit + 1, size + unit}
                                            : TextRead{-1, "~", UNTOUCHED, 0}))
                << size << " as " << textType;
            EXPECT_EQ(readLine(file, 5120), (TextRead{-1, "~", UNTOUCHED, fits ? size + unit : 0}));
        }
    }
    EXPECT_EQ(mLog.lines(), std::vector<std::string>());
}

TEST_F(FileText, ReadText_RefusesFromExactlyTheLengthAndTheBufferSizeThatAreTooMuchAndTooLittle) {
    for (int const textType : ALL_TYPES) {
        unsigned int const unit = textType >= utl::File::TEXT_UTF16_BIG ? 2 : 1;
        utl::File& file = reading(encoded(std::string(6000, 't'), textType), textType);
        for (unsigned int const length : {1U, 2U, 5117U, 5118U, 5119U, 5120U, 5121U, 0x80000001U, ~0U}) {
            unsigned int const count = length - length % unit;
            bool const isRead = count != 0 && count < 5120;
            TextRead const refused = {-1, "~", UNTOUCHED, 0};
            TextRead const all = {static_cast<int>(count), std::string(count % 8192 / unit, 't'),
                                  count / unit + 1, count};
            file.seek(0, utl::File::FROM_START);
            EXPECT_EQ(readText(file, length, count % 8192 + unit - 1), refused)
                << length << " as " << textType;
            EXPECT_EQ(readText(file, length, count % 8192 + unit), isRead ? all : refused)
                << length << " as " << textType;
        }
    }
}

TEST_F(FileText, ReadText_LeavesTheBytesInFrontOfTheOffsetAlone_WhateverTheyAre) {
    for (std::string const prefix : {"ok", "\xFF\xFE", "\xE3\x81", "\xF0\x9F"}) {
        utl::File& file = reading(
            "\xE3\x81\x82"
            "b",
            utl::File::TEXT_UTF8);
        Buffer const buffer(2 + 4 + 1);
        std::memcpy(buffer.get(), prefix.data(), 2);
        unsigned int outputLength = UNTOUCHED;
        EXPECT_EQ(file.readText(buffer.get(), buffer.size(), 4, 2, &outputLength), 4);
        EXPECT_EQ(outputLength, 5U);
        EXPECT_EQ(std::string(buffer.get(), 7), prefix +
                                                    "\xE3\x81\x82"
                                                    "b" +
                                                    '\0');
    }
}

TEST_F(FileText, ReadText_LeavesOutOneMarkAtTheFrontOfEachReadAndNoOther) {
    std::string const mark = BOM;
    utl::File& file = reading(mark + mark + "ab" + mark + "c", utl::File::TEXT_UTF8);
    EXPECT_EQ(readText(file, 6), (TextRead{6, mark, 4, 6}));
    EXPECT_EQ(readText(file, 2), (TextRead{2, "ab", 3, 8}));
    EXPECT_EQ(readText(file, 3), (TextRead{3, "", 1, 11}));
    file.seek(7, utl::File::FROM_START);
    EXPECT_EQ(readText(file, 5), (TextRead{5, "b" + mark + "c", 6, 12}));
    // Less than the whole mark is no mark, but half a character.
    file.seek(0, utl::File::FROM_START);
    EXPECT_EQ(readText(file, 2), (TextRead{-1, "~", UNTOUCHED, 2}));
    EXPECT_EQ(readText(file, 1), (TextRead{-1, "~", UNTOUCHED, 3}));
}

TEST_F(FileText, ReadLine_OfAnEmptyLineThatAsksForTheSize_WritesNothingAndStays) {
    for (int const textType : ALL_TYPES) {
        utl::File& file = reading(encoded("\r\nx", textType), textType);
        Buffer const buffer(1);
        unsigned int outputLength = UNTOUCHED;
        EXPECT_EQ(file.readLine(buffer.get(), 0, &outputLength), 0);
        EXPECT_EQ(outputLength, 0U);
        EXPECT_EQ(buffer.text(), "~");
        EXPECT_EQ(file.position(), 0);
    }
}

/// Runs `work`, which may use the system alone, in a process of its own and waits for its end.
template <typename WORK>
void inAnotherProcess(WORK work) {
    pid_t const child = fork();
    if (child == 0) {
        _exit(work() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
}

TEST_F(FileText, ReadLine_GivesWhatTheFileHoldsNow_BehindWhatWasReadAheadAndAfterASeek) {
    utl::File& file = reading("one\ntwo\nthree\n", utl::File::TEXT_UTF8);
    EXPECT_EQ(readLine(file).text, "one");
    inAnotherProcess([] {
        int const other = open("text", O_WRONLY);
        return pwrite(other, "T\r\nO", 4, 4) == 4 && ftruncate(other, 8) == 0;
    });
    file.seek(0, utl::File::FROM_POSITION);
    EXPECT_EQ(readLine(file), (TextRead{1, "T", 2, 7}));
    EXPECT_EQ(readLine(file), (TextRead{1, "O", 2, 8}));
    EXPECT_EQ(readLine(file), (TextRead{utl::File::END_OF_FILE, "~", UNTOUCHED, 8}));
    inAnotherProcess([] { return write(open("text", O_WRONLY | O_APPEND), "more", 4) == 4; });
    EXPECT_EQ(readLine(file), (TextRead{4, "more", 5, 12}));
    inAnotherProcess([] { return truncate("text", 2) == 0; });
    EXPECT_EQ(readLine(file), (TextRead{utl::File::END_OF_FILE, "~", UNTOUCHED, 12}));
    EXPECT_EQ(file.nextEOLSize(), 0);
    EXPECT_EQ(file.seekKey("e", 0, ANYWHERE, utl::File::AT_KEY), utl::File::KEY_NOT_FOUND);
}

ssize_t readTwoAtMost(int descriptor, void* buffer, size_t length, off_t offset) {
    return pread(descriptor, buffer, std::min<size_t>(length, 2), offset);
}

TEST_F(FileText, SearchesFindWhatIsThere_AlsoWhenTheSystemGivesTwoBytesAtATime) {
    HookScope const scope;
    for (int const textType : ALL_TYPES) {
        utl::File& file = reading(encoded("a line of text\r\n", textType) + "key", textType);
        hooks::pread.replace(readTwoAtMost);
        int const unit = textType >= utl::File::TEXT_UTF16_BIG ? 2 : 1;
        EXPECT_EQ(findLineEnd(file), (LineEnd{16 * unit, static_cast<unsigned int>(14 * unit),
                                              static_cast<unsigned int>(2 * unit), 16 * unit}));
        EXPECT_EQ(file.seekKey("key", 0, ANYWHERE, utl::File::AFTER_KEY), 16 * unit + 3);
        hooks::pread.reset();
    }
}

TEST_F(FileText, LinesAndKeysAreFoundAcrossFourGibibytes) {
    for (long long const border : {0x80000000LL, 0x100000000LL}) {
        utl::File& file = writing("", utl::File::TEXT_UTF8);
        ASSERT_EQ(file.seek(border - 4, utl::File::FROM_START), border - 4);
        std::string const text = "\nab\r\n\xE3\x81\x82\nkey";
        ASSERT_EQ(file.write(text.data(), static_cast<unsigned int>(text.size())),
                  static_cast<int>(text.size()));
        file.seek(border - 3, utl::File::FROM_START);
        EXPECT_EQ(file.nextEOLSize(), -1);
        EXPECT_EQ(readLine(file), (TextRead{2, "ab", 3, border + 1}));
        EXPECT_EQ(readLine(file), (TextRead{3, "\xE3\x81\x82", 4, border + 5}));
        EXPECT_EQ(file.seekKey("b\r\n", static_cast<unsigned long long>(border - 4), 5, utl::File::AT_KEY),
                  border - 2);
        EXPECT_EQ(file.seekKey("key", static_cast<unsigned long long>(border - 4), 0x100000000ULL + 6,
                               utl::File::AFTER_KEY),
                  border + 8);
        EXPECT_EQ(file.seekKey("key", static_cast<unsigned long long>(border - 4), 11, utl::File::AFTER_KEY),
                  utl::File::KEY_NOT_FOUND);
        EXPECT_EQ(readText(file, 9), (TextRead{utl::File::END_OF_FILE, "~", UNTOUCHED, border + 8}));
    }
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

// Text files as other programs see them: what they make is read, and what is written is what they expect. The
// text is that of Japanese manual pages; the converter runs as a program, since that of a 32-bit C library
// may lack its tables.

struct Encoding {
    int type;
    char const* iconvName;
    char const* fileName;  ///< null for what `file` does not know
};

constexpr Encoding ENCODINGS[] = {{File::TEXT_SJIS, "CP932", nullptr},
                                  {File::TEXT_UTF8, "UTF-8", "utf-8"},
                                  {File::TEXT_UTF16_BIG, "UTF-16BE", "utf-16be"},
                                  {File::TEXT_UTF16_LITTLE, "UTF-16LE", "utf-16le"}};

Lines linesOf(std::string const& text) {
    std::istringstream stream(text);
    Lines lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

class FileTextTools : public utltest::TextInFolder {
  protected:
    FileTextTools() {
        // What code page 932 lacks is left out once, so that all encodings hold the same.
        outputOf(
            "gzip -cd /usr/share/man/ja/man1/[a-d]*.gz | iconv -c -f UTF-8 -t CP932 | iconv -f CP932 -t "
            "UTF-8 "
            ">pages");
        mPages = linesOf(utltest::contentOf("pages"));
        EXPECT_GT(mPages.size(), 10000U);
    }

    static void makeFile(Encoding const& encoding, std::string const& filter = "cat") {
        outputOf("<pages " + filter + " | iconv -f UTF-8 -t " + encoding.iconvName + " >made");
    }

    static std::string read(File& file) {
        std::string const position = std::to_string(file.position());
        TextRead const line = readLine(file);
        return line.result >= 0 ? line.text : "result " + std::to_string(line.result) + " at " + position;
    }

    void expectThePages(int type) {
        File file("made", type);
        ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
        for (std::string const& expected : mPages) {
            ASSERT_EQ(read(file), expected);
        }
        EXPECT_EQ(readLine(file).result, File::END_OF_FILE);
    }

    Lines mPages;
};

TEST_F(FileTextTools, LinesOfTheirFiles_AreTheSameInEveryEncoding) {
    for (Encoding const& encoding : ENCODINGS) {
        SCOPED_TRACE(encoding.iconvName);
        makeFile(encoding);
        expectThePages(encoding.type);
    }
}

TEST_F(FileTextTools, LinesOfTheirFilesWithCarriageReturns_AreTheSameInEveryEncoding) {
    for (Encoding const& encoding : ENCODINGS) {
        SCOPED_TRACE(encoding.iconvName);
        makeFile(encoding, "sed 's/$/\r/'");
        expectThePages(encoding.type);
    }
}

TEST_F(FileTextTools, LinesOfTheirFilesWithoutALastLineEnd_AreTheSameInEveryEncoding) {
    for (Encoding const& encoding : ENCODINGS) {
        SCOPED_TRACE(encoding.iconvName);
        makeFile(encoding, "head -c -1");
        expectThePages(encoding.type);
    }
}

TEST_F(FileTextTools, LinesWrittenInUtf8_AreThePages) {
    File& file = writing("", File::TEXT_UTF8);
    for (std::string const& line : mPages) {
        ASSERT_EQ(file.writeLine(line.c_str()), static_cast<int>(line.size()) + 1);
    }
    written();
    EXPECT_EQ(outputOf("cmp text pages 2>&1"), "");
    EXPECT_EQ(outputOf("iconv -f UTF-8 -t UTF-8 text | cmp - pages 2>&1"), "");
    EXPECT_EQ(outputOf("head -c 100000 text | iconv -c -f UTF-8 -t UTF-8 | file -b --mime-encoding -"),
              "utf-8\n");
}

TEST_F(FileTextTools, TextWrittenInUtf16WithItsLineEnds_IsThePages) {
    for (Encoding const& encoding : {ENCODINGS[File::TEXT_UTF16_BIG], ENCODINGS[File::TEXT_UTF16_LITTLE]}) {
        File& file = writing("", encoding.type);
        for (std::string const& line : mPages) {
            ASSERT_GT(file.writeText((line + "\r\n").c_str(), 5119, 0), 0);
        }
        written();
        EXPECT_EQ(outputOf("iconv -f " + std::string(encoding.iconvName) +
                           " -t UTF-8 text | tr -d '\r' | cmp - pages 2>&1"),
                  "");
    }
}

TEST_F(FileTextTools, TextWrittenInUtf16WithAMarkOfItsOwn_IsKnownByIt) {
    for (Encoding const& encoding : {ENCODINGS[File::TEXT_UTF16_BIG], ENCODINGS[File::TEXT_UTF16_LITTLE]}) {
        File& file = writing("", encoding.type);
        ASSERT_EQ(file.writeText("\xEF\xBB\xBF\xE6\xBC\xA2\xE5\xAD\x97\r\nabc\r\n", 5119, 0), 20);
        written();
        EXPECT_EQ(outputOf("file -b --mime-encoding text"), std::string(encoding.fileName) + "\n");
        EXPECT_EQ(outputOf("iconv -f UTF-16 -t UTF-8 text"), "\xE6\xBC\xA2\xE5\xAD\x97\r\nabc\r\n");
    }
}

}  // namespace

// Text in files where it is easy to get wrong: pieces of it at any place, at any border and in any state.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "TestHooks.h"
#include "TestTextFile.h"
#include "UtlCharSet.h"
#include "UtlFile.h"
#include "UtlLog.h"
#include "UtlString.h"

namespace {

using utltest::Buffer;
using utltest::contentOf;
using utltest::encoded;
using HookScope = utltest::OwnHookScope;
using utltest::TextRead;
using utltest::UNTOUCHED;
namespace hooks = utltest::hooks;

using FileText = utltest::TextInFolder;

constexpr int TYPES[] = {utl::File::TEXT_SJIS, utl::File::TEXT_UTF8, utl::File::TEXT_UTF16_BIG,
                         utl::File::TEXT_UTF16_LITTLE};
constexpr int TYPES_OF_UNITS[] = {utl::File::TEXT_UTF16_BIG, utl::File::TEXT_UTF16_LITTLE};
constexpr unsigned long long ANYWHERE = 0xFFFFFFFFFFFFFFFFULL;

char const BOM[] = "\xEF\xBB\xBF";

/// What the search for the end of a line gave.
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
        return out << end.result << " (" << end.lineSize << " + " << end.eolSize << ") at " << end.position;
    }
};

LineEnd foundIn(utl::File& file) {
    LineEnd end = {0, UNTOUCHED, UNTOUCHED, 0};
    end.result = file.findNextLineSize(0, &end.lineSize, &end.eolSize);
    end.position = file.position();
    return end;
}

/// One step of a walk: how many bytes it goes, and what the character is. Marks and broken bytes are none.
struct Step {
    unsigned int bytes;
    enum { CHARACTER, NONE, CARRIAGE_RETURN, LINE_FEED } what;
};

Step stepOf(unsigned int bytes, unsigned int code) {
    return {bytes, code == '\r' ? Step::CARRIAGE_RETURN : code == '\n' ? Step::LINE_FEED : Step::CHARACTER};
}

Step stepInUtf16(std::string const& rest, int textType) {
    unsigned int const first = static_cast<unsigned char>(rest[0]);
    unsigned int const second = static_cast<unsigned char>(rest[1]);
    unsigned int const code =
        textType == utl::File::TEXT_UTF16_BIG ? first << 8 | second : second << 8 | first;
    return code == 0xFEFF || code == 0xFFFE ? Step{2, Step::NONE} : stepOf(2, code);
}

Step stepInUtf8(std::string const& rest) {
    bool isBom = false;
    unsigned int const bytes = utl::strCharBytesBase(rest.substr(0, 6).c_str(), &isBom);
    if (bytes == 0 || bytes == utl::INVALID_SIZE) {
        return {1, Step::NONE};
    }
    return isBom ? Step{bytes, Step::NONE}
                 : stepOf(bytes, bytes == 1 ? static_cast<unsigned char>(rest[0]) : 0);
}

// No code covers a line feed behind its first byte; a carriage return there is its second one.
Step stepInSjis(std::string const& rest) {
    std::string const character = rest.substr(0, rest.find('\n', 1)).substr(0, 6);
    unsigned int bytes = 1;
    utl::convertCharFromSjisToUtf8(std::array<char, 8>().data(), 8, character.c_str(), &bytes);
    return stepOf(bytes, bytes == 1 ? static_cast<unsigned char>(rest[0]) : 0);
}

/// The end of the line by a walk from one character to the next.
LineEnd walked(std::string const& content, unsigned int from, int textType) {
    unsigned int const unit = textType >= utl::File::TEXT_UTF16_BIG ? 2 : 1;
    unsigned int total = 0;
    unsigned int pending = 0;
    while (from + total + unit <= content.size()) {
        std::string const rest = content.substr(from + total, 6);
        Step const step = textType >= utl::File::TEXT_UTF16_BIG ? stepInUtf16(rest, textType)
                          : textType == utl::File::TEXT_UTF8    ? stepInUtf8(rest)
                                                                : stepInSjis(rest);
        total += step.bytes;
        if (step.what == Step::LINE_FEED) {
            pending += step.bytes;
            return {static_cast<int>(total), total - pending, pending, static_cast<long long>(from + total)};
        }
        pending = step.what == Step::CARRIAGE_RETURN ? pending + step.bytes
                  : step.what == Step::NONE          ? pending
                                                     : 0;
    }
    return {0, total - pending, pending, static_cast<long long>(std::max<std::size_t>(from, content.size()))};
}

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
    for (int const textType : TYPES) {
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
            EXPECT_EQ(foundIn(file), walked(content, from, textType))
                << testing::PrintToString(content) << " from " << from << " as " << textType;
        }
    }
    EXPECT_EQ(mLog.lines(), std::vector<std::string>());
}

TEST_F(FileText, FindNextLineSize_AgreesWithAWalkFromCharacterToCharacter_AroundEveryPowerOfTwo) {
    for (int const textType : TYPES) {
        unsigned int const unit = textType >= utl::File::TEXT_UTF16_BIG ? 2 : 1;
        std::string const filler = encoded(std::string(8192, 'x'), textType);
        for (std::string const& piece : piecesOf(textType)) {
            std::string const tail = encoded("\r", textType) + piece + encoded("\r\r\n", textType) + "z";
            LineEnd const inTail = walked(tail, 0, textType);
            for (unsigned int border = 64; border <= 8192; border *= 2) {
                for (unsigned int at = border - 8; at <= border; at += unit) {
                    LineEnd const expected = {static_cast<int>(at) + inTail.result, at + inTail.lineSize,
                                              inTail.eolSize, at + inTail.position};
                    ASSERT_EQ(foundIn(reading(filler.substr(0, at) + tail, textType)), expected)
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
    for (int const textType : TYPES) {
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
    for (int const textType : TYPES) {
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
    for (int const textType : TYPES) {
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
    for (int const textType : TYPES) {
        utl::File& file = reading(encoded("\r\nx", textType), textType);
        Buffer const buffer(1);
        unsigned int outputLength = UNTOUCHED;
        EXPECT_EQ(file.readLine(buffer.get(), 0, &outputLength), 0);
        EXPECT_EQ(outputLength, 0U);
        EXPECT_EQ(buffer.text(), "~");
        EXPECT_EQ(file.position(), 0);
    }
}

/// What `call` gives while number `n` of its calls of one kind fails.
template <typename CALL>
auto withNthFailing(int kind, unsigned int n, CALL call) {
    HookScope const scope;
    if (kind == 0) {
        hooks::pread.failFrom(n, 1, -1, EIO);
    } else if (kind == 1) {
        hooks::lseek.failFrom(n, 1, -1, EIO);
    } else {
        hooks::fstat.failFrom(n, 1, -1, EIO);
    }
    return call();
}

TEST_F(FileText, ReadLine_WhoseNthSystemCallFails_GivesMinusOneWithALineAndTheNextOneReadsTheLine) {
    for (int const textType : TYPES) {
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
    for (int const textType : TYPES) {
        utl::File& file = reading(encoded("a line of text\r\n", textType) + "key", textType);
        hooks::pread.replace(readTwoAtMost);
        int const unit = textType >= utl::File::TEXT_UTF16_BIG ? 2 : 1;
        EXPECT_EQ(foundIn(file), (LineEnd{16 * unit, static_cast<unsigned int>(14 * unit),
                                          static_cast<unsigned int>(2 * unit), 16 * unit}));
        EXPECT_EQ(file.seekKey("key", 0, ANYWHERE, utl::File::AFTER_KEY), 16 * unit + 3);
        hooks::pread.reset();
    }
}

TEST_F(FileText, NextEOLSize_IsRightForEveryPairOfBytesAndStays) {
    std::string const bytes = {'\r', '\n', 'a', '\0', '\x85', ' '};
    auto const isEnd = [](char byte) { return byte == '\r' || byte == '\n'; };
    for (int const textType : {0, 1, 2, 3, 9}) {
        for (char const first : bytes) {
            utl::File& last = reading(std::string("xyz") + first, textType);
            last.seek(3, utl::File::FROM_START);
            EXPECT_EQ(last.nextEOLSize(), isEnd(first) ? 1 : -1);
            EXPECT_EQ(last.position(), 3);
            for (char const second : bytes) {
                utl::File& file = reading(std::string("x") + first + second + "\n", textType);
                file.seek(1, utl::File::FROM_START);
                EXPECT_EQ(file.nextEOLSize(), first == '\r' && second == '\n' ? 2 : isEnd(first) ? 1 : -1);
                EXPECT_EQ(file.position(), 1);
            }
        }
    }
    EXPECT_EQ(mLog.lines(), std::vector<std::string>());
}

/// The search by one byte after the other, which begins anew behind a byte that does not match.
long long searched(std::string const& content, std::string const& key, std::size_t start, std::size_t range,
                   int mode) {
    std::size_t match = 0;
    for (std::size_t i = start; i < content.size() && i - start < range; ++i) {
        match = content[i] == key[match] ? match + 1 : 0;
        if (match == key.size()) {
            return static_cast<long long>(mode == 1 ? i + 1 : i + 1 - key.size());
        }
    }
    return -2;
}

TEST_F(FileText, SeekKey_AgreesWithASearchByteByByteThatNeverGoesBack) {
    std::mt19937 random(3);
    for (int round = 0; round < 1500; ++round) {
        std::string content;
        for (auto i = random() % 24; i > 0; --i) {
            content += "ab\0"[random() % (round % 2 == 0 ? 2 : 3)];
        }
        std::string key;
        for (auto i = 1 + random() % 4; i > 0; --i) {
            key += "ab\0"[random() % 3];
        }
        unsigned int const position = static_cast<unsigned int>(random() % 30);
        bool const isHere = random() % 2 == 0;
        unsigned int const start = isHere ? position : static_cast<unsigned int>(random() % 30);
        unsigned int const range = static_cast<unsigned int>(random() % 26);
        int const mode = static_cast<int>(random() % 4) - 1;
        utl::File& file = reading(content, round % 4);
        file.seek(position, utl::File::FROM_START);
        std::vector<unsigned char> const bytes(key.begin(), key.end());
        long long const result = file.seekKey(bytes.data(), static_cast<unsigned int>(key.size()),
                                              isHere ? utl::File::KEY_FROM_POSITION : start, range, mode);
        EXPECT_EQ(result, searched(content, key, start, range, mode))
            << testing::PrintToString(key) << " in " << testing::PrintToString(content) << " from " << start
            << " for " << range;
        EXPECT_EQ(file.position(), result == -2 ? position : result);
    }
    EXPECT_EQ(mLog.lines(), std::vector<std::string>());
}

TEST_F(FileText, SeekKey_FindsAKeyAcrossEveryBorder_InARangeThatEndsWithItAndInNoSmallerOne) {
    for (unsigned int border = 64; border <= 16384; border *= 2) {
        for (unsigned int lead = 0; lead <= 6; ++lead) {
            unsigned int const at = border - lead;
            // Begins of the key right in front of it and at its end.
            std::string const content = std::string(at - 2, '-') + "--keykez" + "key";
            utl::File& file = reading(content, utl::File::TEXT_UTF8);
            file.seek(5, utl::File::FROM_START);
            EXPECT_EQ(file.seekKey("kez", 5, at + 6 - 5 - 1, utl::File::AT_KEY), utl::File::KEY_NOT_FOUND);
            EXPECT_EQ(file.position(), 5);
            EXPECT_EQ(file.seekKey("kez", 5, at + 6 - 5, utl::File::AT_KEY), at + 3);
            file.seek(5, utl::File::FROM_START);
            EXPECT_EQ(file.seekKey("kez", utl::File::KEY_FROM_POSITION, at + 6 - 5 - 1, utl::File::AFTER_KEY),
                      utl::File::KEY_NOT_FOUND);
            EXPECT_EQ(file.seekKey("kez", utl::File::KEY_FROM_POSITION, at + 6 - 5, utl::File::AFTER_KEY),
                      at + 6);
            EXPECT_EQ(file.seekKey("key", utl::File::KEY_FROM_POSITION, 3, utl::File::AFTER_KEY), at + 9);
            EXPECT_EQ(file.seekKey("ykey", 0, ANYWHERE, utl::File::AT_KEY), utl::File::KEY_NOT_FOUND);
            EXPECT_EQ(file.position(), at + 9);
        }
    }
}

TEST_F(FileText, SeekKey_OfAKeyThatIsLongerThanAnyBlock_FindsItAtItsFirstByte) {
    std::string key(20000, 'k');
    key.back() = 'e';
    utl::File& file = reading("--" + key + "kk", utl::File::TEXT_UTF8);
    EXPECT_EQ(file.seekKey(key.c_str(), 0, ANYWHERE, utl::File::AT_KEY), 2);
    EXPECT_EQ(file.seekKey(key.c_str(), 2, 20000, utl::File::AFTER_KEY), 20002);
    EXPECT_EQ(file.seekKey(key.c_str(), 2, 19999, utl::File::AFTER_KEY), utl::File::KEY_NOT_FOUND);
    EXPECT_EQ(file.seekKey((key + "kkk").c_str(), 2, ANYWHERE, utl::File::AFTER_KEY),
              utl::File::KEY_NOT_FOUND);
    EXPECT_EQ(file.position(), 20002);
}

TEST_F(FileText, SeekKey_FromAStartThatIsNoPosition_FailsOrFindsNothingAndStays) {
    utl::File& file = reading("key", utl::File::TEXT_UTF8);
    file.seek(1, utl::File::FROM_START);
    for (unsigned long long const start : {3ULL, 4ULL, 0x100000000ULL, 0x100000001ULL}) {
        EXPECT_EQ(file.seekKey("k", start, ANYWHERE, utl::File::AFTER_KEY), utl::File::KEY_NOT_FOUND)
            << start;
        EXPECT_EQ(file.position(), 1);
    }
    EXPECT_EQ(mLog.lines(), std::vector<std::string>());
    for (unsigned long long const start :
         {0x8000000000000000ULL, utl::File::KEY_FROM_POSITION - 1, ANYWHERE}) {
        EXPECT_EQ(file.seekKey("k", start, 3, utl::File::AFTER_KEY), -1) << start;
        EXPECT_EQ(file.position(), 1);
        EXPECT_EQ(mLog.count(error("lseek64 Failed. errno[22]")), 1U);
        mLog.clear();
    }
    EXPECT_EQ(file.seekKey("y", utl::File::KEY_FROM_POSITION, 2, utl::File::AT_KEY), 2);
}

TEST_F(FileText, SeekKey_WhoseNthSystemCallFails_GivesMinusOneWithALineAndStays) {
    utl::File& file = reading(std::string(30, '-') + "key", utl::File::TEXT_UTF8);
    for (int kind = 0; kind < 3; ++kind) {
        bool isThrough = false;
        for (unsigned int n = 1; !isThrough && n < 200; ++n) {
            file.seek(3, utl::File::FROM_START);
            mLog.clear();
            long long const result = withNthFailing(
                kind, n, [&] { return file.seekKey("key", 1, ANYWHERE, utl::File::AFTER_KEY); });
            isThrough = result == 33;
            EXPECT_EQ(result, isThrough ? 33 : -1);
            EXPECT_EQ(mLog.lines().empty(), isThrough) << kind << ", " << n;
            // The `lseek` that fails may be the one to the place that was found.
            EXPECT_TRUE(file.position() == (isThrough ? 33 : 3) || kind == 1) << kind << ", " << n;
        }
        EXPECT_TRUE(isThrough);
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

/// What `writeText` of ASCII gives, and which bytes it writes.
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

TEST_F(FileText, WriteText_InUtf16_WritesAMarkOfItsTextAndAReferenceMarkForWhatHasNoUnit) {
    std::string const text = std::string(BOM) +
                             "\xF0\x9F\x8D\xA3"
                             "a\xE3\x81";
    EXPECT_EQ(writing("", utl::File::TEXT_UTF16_BIG).writeText(text.c_str(), 5119, 0), 6);
    EXPECT_EQ(written(), std::string("\xFE\xFF\x20\x3B\0a", 6));
    // One character, be it a mark, is not written.
    EXPECT_EQ(writing("", utl::File::TEXT_UTF16_BIG).writeText(BOM, 5119, 0), 0);
    EXPECT_EQ(written(), "");
}

TEST_F(FileText, ALogLine_ReachesAFileBeforeItIsTakenForAFormatOnceMore) {
    utl::File& file = writing("", utl::File::TEXT_UTF8);
    rawlog(utl::LOG_TYPE_DEFAULT, utl::LOG_LEVEL_ERROR, &file, "%s", "50%% of %d %n\n");
    EXPECT_EQ(mLog.console().back(), "50% of %d %n\n");
    EXPECT_EQ(written(), "50%% of %d %n\n");
}

TEST_F(FileText, ALogLine_WhoseFileIsFull_StandsBehindTheLinesAboutThatAndKeepsErrno) {
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

TEST_F(FileText, ALogLine_GoesToAFileWholeInItsEncoding_ItsLineEndToo) {
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

TEST_F(FileText, SeekKey_FromAStart_WhoseSystemCallForAPositionFails_GivesMinusOneAndStays) {
    utl::File& file = reading(std::string(30, '-') + "key", utl::File::TEXT_UTF8);
    for (unsigned int n = 1; n <= 2; ++n) {
        file.seek(3, utl::File::FROM_START);
        EXPECT_EQ(
            withNthFailing(1, n, [&] { return file.seekKey("key", 1, ANYWHERE, utl::File::AFTER_KEY); }), -1)
            << n;
        EXPECT_EQ(file.position(), 3) << n;
    }
}

}  // namespace

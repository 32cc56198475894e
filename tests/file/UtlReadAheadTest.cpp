// What a file reads ahead never shows: every operation on text, place and content against the same operation
// of an object that has read nothing ahead, in any order; and the promises that reading ahead makes itself.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "TestAllocations.h"
#include "TestFileCalls.h"
#include "TestHooks.h"
#include "TestTextFile.h"
#include "UtlFile.h"

namespace {

using utl::File;
using utltest::Buffer;
using utltest::contentOf;
using utltest::encoded;
using utltest::TextRead;
using utltest::UNTOUCHED;
namespace hooks = utltest::hooks;
using namespace std::string_literals;
using Lines = std::vector<std::string>;

constexpr int ALL_TYPES[] = {File::TEXT_SJIS, File::TEXT_UTF8, File::TEXT_UTF16_BIG, File::TEXT_UTF16_LITTLE};
constexpr unsigned int BLOCK_BYTES = 8192;

/// Everything that a caller sees of one operation. The path of the file is left out of the lines.
struct Seen {
    long long result = 0;
    unsigned long long more = 0;
    std::string text;
    long long position = 0;
    long long size = 0;
    Lines lines;

    bool operator==(Seen const& other) const {
        return result == other.result && more == other.more && text == other.text &&
               position == other.position && size == other.size && lines == other.lines;
    }
    friend std::ostream& operator<<(std::ostream& out, Seen const& seen) {
        return out << seen.result << ", " << seen.more << ", "
                   << testing::PrintToString(seen.text.substr(0, 60)) << " (" << seen.text.size() << "), at "
                   << seen.position << " of " << seen.size << ", " << testing::PrintToString(seen.lines);
    }
};

/// One operation with its arguments; it can be repeated on another object.
struct Step {
    enum Kind {
        READ_LINE,
        READ_TEXT,
        FIND_LINE,
        NEXT_EOL,
        SEEK_KEY,
        READ,
        SEEK,
        AVAILABLE,
        WRITE,
        WRITE_TEXT,
        RESIZE_HERE,
        RESIZE,
        KINDS
    };

    Kind kind;
    unsigned int size;
    unsigned int length;
    long long place;
    int mode;
    std::string bytes;

    bool readsText() const { return kind <= SEEK_KEY && kind != NEXT_EOL; }
};

constexpr char const* NAMES[] = {"readLine", "readText", "findNextLineSize", "nextEOLSize", "seekKey",
                                 "read",     "seek",     "availableSize",    "write",       "writeText",
                                 "resize()", "resize"};

Seen taken(File& file, Step const& step, bool hasMemory) {
    Seen seen;
    unsigned int length = UNTOUCHED;
    unsigned int other = UNTOUCHED;
    Buffer const buffer(std::max(step.size, 1U));
    auto failing = std::make_unique<utltest::FailingAllocation>(hasMemory ? 0 : 1);
    switch (step.kind) {
        case Step::READ_LINE:
            seen.result = file.readLine(buffer.get(), step.size, &length);
            break;
        case Step::READ_TEXT:
            seen.result = file.readText(buffer.get(), step.size, step.length, 0, &length);
            break;
        case Step::FIND_LINE:
            seen.result = file.findNextLineSize(0, &length, &other);
            break;
        case Step::NEXT_EOL:
            seen.result = file.nextEOLSize();
            break;
        case Step::SEEK_KEY:
            seen.result = file.seekKey(
                step.bytes.c_str(),
                step.place < 0 ? File::KEY_FROM_POSITION : static_cast<unsigned long long>(step.place),
                step.length, step.mode % 2);
            break;
        case Step::READ:
            seen.result = file.read(buffer.get(), step.size);
            break;
        case Step::SEEK:
            seen.result = file.seek(step.place, step.mode);
            break;
        case Step::AVAILABLE:
            seen.result = file.availableSize();
            break;
        case Step::WRITE:
            seen.result = file.write(step.bytes.data(), static_cast<unsigned int>(step.bytes.size()));
            break;
        case Step::WRITE_TEXT:
            seen.result = file.writeText(step.bytes.c_str(), 100, 0);
            break;
        case Step::RESIZE_HERE:
            seen.result = file.resize();
            break;
        default:
            seen.result = file.resize(static_cast<unsigned long long>(std::max(step.place, 0LL)));
            break;
    }
    failing.reset();
    seen.more = length * 0x100000000ULL + other;
    seen.text = std::string(buffer.get(), buffer.size());
    seen.position = file.position();
    seen.size = file.size();
    return seen;
}

// Bytes from here on cannot be read, as on a damaged medium; and this much at most comes at a time.
long long damagedFrom = 0;
std::minstd_rand* shortness = nullptr;

ssize_t readDamaged(int descriptor, void* buffer, size_t length, off_t offset) {
    if (offset >= damagedFrom) {
        errno = EIO;
        return -1;
    }
    size_t most = std::min(length, static_cast<size_t>(damagedFrom - offset));
    if (shortness != nullptr && (*shortness)() % 2 == 0) {
        most = std::min<size_t>(most, 1 + (*shortness)() % 700);
    }
    return hooks::pread.real(descriptor, buffer, most, offset);
}

class ReadAhead : public utltest::TextInFolder {
  protected:
    static constexpr long long UNDAMAGED = 0x7FFFFFFFFFFFFFFF;

    ReadAhead() {
        damagedFrom = UNDAMAGED;
        shortness = nullptr;
    }

    /// Text whose lines end before, at and after the ends of blocks, among pieces that meet badly.
    static std::string anyText(std::minstd_rand& random, int type) {
        static std::string const pieces[] = {"\n",       "\r\n",         "\r",           "a",     "key",
                                             "kekey",    "\x81",         "\xE3\x81\x82", "\xE3",  "\xC2",
                                             "\x82\xA0", "\xEF\xBB\xBF", "\0"s,          "\0\n"s, "\n\0"s};
        bool const isUtf16 = type >= File::TEXT_UTF16_BIG;
        std::string text;
        while (text.size() < 5 * BLOCK_BYTES) {
            auto const kind = random() % 40;
            if (kind == 0) {
                std::size_t const border = (text.size() / BLOCK_BYTES + 1) * BLOCK_BYTES + random() % 9 - 4;
                text += std::string(border > text.size() ? border - text.size() : 0, 'x');
            } else if (kind < 4) {
                text += encoded(std::string(random() % 700, 'y') + "\n", type);
            } else if (kind < 6) {
                text += encoded(std::string(5100 + random() % 30, 'z') + "\r\n", type);
            } else if (kind < 30) {
                text += encoded("line " + std::to_string(random()) + (kind % 2 == 0 ? "\r\n" : "\n"), type);
            } else {
                text += isUtf16 && kind < 37 ? encoded("\r", type) : pieces[random() % std::size(pieces)];
            }
        }
        return text;
    }

    static Step anyStep(std::minstd_rand& random, long long size, bool mayCountBytes) {
        static constexpr unsigned int SIZES[] = {5119, 5119, 5119, 5118, 5120, 600, 100, 30, 2, 1, 0};
        static std::string const keys[] = {"key", "\n", "ekey", "zz\r", "line 1", "none of this"};
        // Mostly reading of lines, so that there is something to spoil.
        static constexpr Step::Kind COMMON[] = {Step::READ_LINE, Step::READ_LINE, Step::READ_LINE,
                                                Step::READ_TEXT, Step::FIND_LINE, Step::SEEK_KEY};
        Step step{};
        step.kind = random() % 3 != 0 ? COMMON[random() % std::size(COMMON)]
                                      : static_cast<Step::Kind>(random() % Step::KINDS);
        if (!mayCountBytes &&
            (step.kind == Step::READ_TEXT || step.kind == Step::READ || step.kind == Step::NEXT_EOL)) {
            step.kind = Step::READ_LINE;
        }
        step.size = SIZES[random() % std::size(SIZES)];
        step.length = random() % 2 == 0 ? 1 + static_cast<unsigned int>(random() % 200)
                                        : static_cast<unsigned int>(random() % 20000);
        step.mode = static_cast<int>(random() % 3);
        step.bytes = keys[random() % std::size(keys)];
        auto const near = static_cast<long long>(random() % 20000) - 10000;
        bool const isAbsolute = step.kind != Step::SEEK || step.mode == File::FROM_START;
        step.place =
            isAbsolute ? static_cast<long long>(random() % static_cast<unsigned long>(size + 10)) : near;
        step.place = random() % 2 == 0 && step.kind == Step::SEEK_KEY ? -1 : step.place;
        return step;
    }

    /// Takes the step with an object that has read nothing ahead and gets no memory to do so.
    Seen takenAnew(Step const& step, long long position, int type) {
        File file("twin", type);
        EXPECT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE), 1);
        EXPECT_EQ(file.seek(position, File::FROM_START), position);
        return withLines(file, step, !step.readsText());
    }

    Seen withLines(File& file, Step const& step, bool hasMemory = true) {
        mLog.clear();
        Seen seen = taken(file, step, hasMemory);
        for (std::string line : mLog.lines()) {
            seen.lines.push_back(line.substr(0, line.find("Path:")));
        }
        return seen;
    }

    /// Both files get the same bytes at their end, from somebody else.
    static void grow(std::string const& bytes) {
        for (char const* const path : {"text", "twin"}) {
            int const descriptor = open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
            ASSERT_EQ(write(descriptor, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
            close(descriptor);
        }
    }

    void walk(unsigned int seed, int type, bool mayCountBytes) {
        std::minstd_rand random(seed);
        std::string const content = anyText(random, type);
        utltest::putFile("twin", content);
        File& file = writing(content, type);
        for (unsigned int i = 0; i < 150; ++i) {
            if (random() % 10 == 0) {
                grow(encoded(random() % 2 == 0 ? "grown" : "gro\nwn\n", type));
            }
            long long const before = file.position();
            Step const step = anyStep(random, file.size(), mayCountBytes);
            SCOPED_TRACE(NAMES[step.kind] + (" in step " + std::to_string(i)) + " of seed " +
                         std::to_string(seed) + " at " + std::to_string(before) + " as " +
                         std::to_string(type));
            Seen const seen = withLines(file, step);
            auto* const shortReads = std::exchange(shortness, nullptr);
            Seen expected = takenAnew(step, before, type);
            shortness = shortReads;
            if (seen.result == -1 && damagedFrom != UNDAMAGED) {
                // Anywhere in the line.
                expected.position = seen.position;
                EXPECT_GE(seen.position, std::min(before, damagedFrom));
            }
            if (step.kind == Step::READ_LINE || step.kind == Step::READ_TEXT || step.kind == Step::READ) {
                ASSERT_EQ(seen, expected);
            } else {
                Seen withoutBuffer = seen;
                withoutBuffer.text = expected.text;
                ASSERT_EQ(withoutBuffer, expected);
            }
        }
        EXPECT_TRUE(written() == contentOf("twin")) << "seed " << seed;
    }
};

TEST_F(ReadAhead, AnyOperationsInAnyOrder_GiveWhatTheyGiveWithNothingReadAhead) {
    utltest::OwnHookScope const scope;
    hooks::fsync.replace([](int) { return 0; });
    for (int const type : ALL_TYPES) {
        for (unsigned int seed = 1; seed <= 25 && !HasFailure(); ++seed) {
            walk(seed, type, true);
        }
    }
}

TEST_F(ReadAhead, AnyOperationsOnADamagedFile_FailWhereTheyFailWithNothingReadAheadAndWithTheSameLines) {
    utltest::OwnHookScope const scope;
    hooks::fsync.replace([](int) { return 0; });
    hooks::pread.replace(readDamaged);
    for (int const type : ALL_TYPES) {
        for (unsigned int seed = 1; seed <= 15 && !HasFailure(); ++seed) {
            damagedFrom = 7000 + seed * 400;
            walk(100 + seed, type, true);
        }
    }
}

TEST_F(ReadAhead, AnyOperationsWhoseReadsComeShort_GiveTheSame) {
    utltest::OwnHookScope const scope;
    hooks::fsync.replace([](int) { return 0; });
    hooks::pread.replace(readDamaged);
    std::minstd_rand random(5);
    shortness = &random;
    for (int const type : ALL_TYPES) {
        for (unsigned int seed = 1; seed <= 15 && !HasFailure(); ++seed) {
            walk(200 + seed, type, false);
        }
    }
}

TEST_F(ReadAhead, ReadLine_ThatASignalInterrupts_SaysSoOnceAndThenReadsTheSameLine) {
    for (int const type : ALL_TYPES) {
        std::minstd_rand random(9);
        std::string content;
        Lines lines;
        while (content.size() < 6 * BLOCK_BYTES) {
            lines.push_back(std::string(random() % 900, 'l'));
            content += encoded(lines.back() + "\r\n", type);
        }
        File& file = reading(content, type);
        unsigned int interrupted = 0;
        for (std::string const& line : lines) {
            utltest::OwnHookScope const scope;
            mLog.clear();
            hooks::pread.failFrom(1, 1, -1, EINTR);
            long long const before = file.position();
            TextRead read = readLine(file);
            if (hooks::pread.calls() != 0) {
                ++interrupted;
                EXPECT_EQ(read, (TextRead{-1, "~", UNTOUCHED, before}));
                EXPECT_EQ(mLog.lines().size(), 3U);
                EXPECT_EQ(mLog.lines().front(), error("ReadFile Failed. errno[4]"));
                read = readLine(file);
            }
            ASSERT_EQ(read.text, line);
        }
        EXPECT_GE(interrupted, 6U);
        EXPECT_LT(interrupted, 20U);
    }
}

TEST_F(ReadAhead, WhatTheObjectWrites_IsAtItsPositionAndIsReadBackAtOnce) {
    File& file = writing("one\ntwo\nsix\nten\n", File::TEXT_UTF8);
    EXPECT_EQ(readLine(file).text, "one");
    EXPECT_EQ(file.write("TWO", 3), 3);
    EXPECT_EQ(file.position(), 7);
    EXPECT_EQ(file.seek(-3, File::FROM_POSITION), 4);
    EXPECT_EQ(readLine(file), (TextRead{3, "TWO", 4, 8}));
    EXPECT_EQ(file.resize(), 1);
    EXPECT_EQ(readLine(file).result, File::END_OF_FILE);
    EXPECT_EQ(file.resize(12), 1);
    EXPECT_EQ(readText(file, 4), (TextRead{4, "", 1, 12})) << "zeros, not what stood there";
    EXPECT_EQ(file.writeLine("end"), 4);
    EXPECT_EQ(written(), "one\nTWO\n\0\0\0\0end\n"s);
}

TEST_F(ReadAhead, AWrite_WhosePositionTheSystemRefuses_IsMinusOneAndWritesNothing) {
    File& file = writing("one\ntwo\n", File::TEXT_UTF8);
    EXPECT_EQ(readLine(file).text, "one");
    {
        utltest::OwnHookScope const scope;
        hooks::lseek.failFrom(1, 0, -1, EIO);
        EXPECT_EQ(file.write("x", 1), -1);
        EXPECT_EQ(mLog.lines(),
                  (Lines{error("lseek64 Failed. errno[5]"), error("writeFile Failed. Path:text")}));
        EXPECT_EQ(file.resize(), 0);
        EXPECT_EQ(file.seek(1, File::FROM_POSITION), -1);
        EXPECT_EQ(file.seek(1, File::FROM_START), -1);
    }
    EXPECT_EQ(readLine(file), (TextRead{3, "two", 4, 8}));
    EXPECT_EQ(written(), "one\ntwo\n");
}

TEST_F(ReadAhead, AfterAClose_TheNextOpeningReadsAnew) {
    File& file = reading("one\ntwo\n", File::TEXT_UTF8);
    EXPECT_EQ(readLine(file).text, "one");
    EXPECT_EQ(file.close(), 1);
    EXPECT_EQ(file.position(), -1);
    utltest::putFile("text", "ONE\nTWO\n");
    ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
    EXPECT_EQ(readLine(file), (TextRead{3, "ONE", 4, 4}));
}

// What the child sees comes as its exit code.
TEST_F(ReadAhead, AfterAFork_BothGoOnFromTheParentsPlaceAndNeitherMovesTheOther) {
    for (bool const readsPlainly : {false, true}) {
        std::string content;
        for (unsigned int i = 0; i < 3000; ++i) {
            content += std::to_string(10000 + i) + "\n";
        }
        File& file = reading(content, File::TEXT_UTF8);
        for (unsigned int i = 0; i < 5; ++i) {
            readLine(file);
        }
        char bytes[6] = {};
        if (readsPlainly) {
            ASSERT_EQ(file.read(bytes, 6), 6);
        }
        unsigned int const next = readsPlainly ? 10006 : 10005;
        pid_t const child = fork();
        if (child == 0) {
            bool isRight = file.position() == (next - 10000) * 6;
            for (unsigned int i = next; i < 13000; ++i) {
                if (i % 3 == 0) {
                    isRight =
                        isRight && file.read(bytes, 6) == 6 && std::string(bytes, 5) == std::to_string(i);
                } else {
                    isRight = isRight && readLine(file).text == std::to_string(i);
                }
            }
            _exit(isRight && readLine(file).result == File::END_OF_FILE ? 0 : 1);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(file.position(), (next - 10000) * 6);
        for (unsigned int i = next; i < 13000; ++i) {
            ASSERT_EQ(readLine(file).text, std::to_string(i));
        }
    }
}

// Of a parent that has not read yet, whose position is that of the system.
TEST_F(ReadAhead, AfterAFork_NothingThatReadsTextMovesAProcessThatHasNotRead) {
    std::string const content = "one\ntwo\n" + std::string(9000, 'x') + "\nkey\n";
    for (int what = 0; what < 3; ++what) {
        File& file = reading(content, File::TEXT_UTF8);
        ASSERT_EQ(file.seek(4, File::FROM_START), 4);
        pid_t const child = fork();
        if (child == 0) {
            bool isRight = true;
            if (what == 0) {
                isRight = readLine(file).text == "two" && readLine(file).result == -1;
            } else {
                char const* const key = what == 1 ? "key" : "no such key";
                isRight = file.seekKey(key, 0, content.size(), File::AT_KEY) ==
                          (what == 1 ? 9009 : File::KEY_NOT_FOUND);
            }
            _exit(isRight ? 0 : 1);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << what;
        EXPECT_EQ(file.position(), 4) << what;
        EXPECT_EQ(readLine(file).text, "two") << what;
    }
}

TEST_F(ReadAhead, EachCall_GivesASignOfLife_AlsoWithoutASystemCall) {
    std::string content;
    for (unsigned int i = 0; i < 50; ++i) {
        content += "line\n";
    }
    File& file = reading(content, File::TEXT_UTF8);
    readLine(file);
    utltest::FileCalls calls;
    auto const isReported = [](auto call) {
        utl::Thread::keepAliveWatchdog(utl::StatementInfo("test", "before", 1, 2));
        call();
        utl::StatementInfo const last = utltest::ThreadWatchdogAccess::copyInfo(
                                            utltest::ThreadManagerAccess::watchdog(), utltest::kernelId())
                                            .lastStatement;
        return std::string(last.file) == "source/UtlFile";
    };
    Buffer const buffer(100);
    EXPECT_TRUE(isReported([&] { EXPECT_EQ(file.readLine(buffer.get(), 100, nullptr), 4); }));
    EXPECT_TRUE(isReported([&] { EXPECT_EQ(file.readText(buffer.get(), 100, 5, 0, nullptr), 5); }));
    EXPECT_TRUE(isReported([&] { EXPECT_EQ(file.findNextLineSize(0, nullptr, nullptr), 5); }));
    EXPECT_TRUE(isReported([&] { EXPECT_EQ(file.position(), 20); }));
    EXPECT_EQ(calls.take(), Lines()) << "all from memory";
    EXPECT_TRUE(isReported([&] { EXPECT_EQ(file.seekKey("ne", File::KEY_FROM_POSITION, 9, 0), 22); }));
    EXPECT_TRUE(isReported([&] { EXPECT_EQ(file.nextEOLSize(), -1); }));
}

TEST_F(ReadAhead, WithoutMemory_LinesAreReadAsEver) {
    for (int const type : {File::TEXT_SJIS, File::TEXT_UTF8}) {
        File& file = reading(std::string(160, 'x') + "\r\n" + "two\n" + "three\nfour", type);
        Buffer const buffer(600);
        unsigned int length = 0;
        int results[4] = {};
        long long found = 0;
        {
            utltest::NoMemoryScope const noMemory;
            results[0] = file.readLine(buffer.get(), 600, &length);
            results[1] = file.readText(buffer.get(), 600, 4, 0, &length);
            results[2] = file.findNextLineSize(0, nullptr, nullptr);
            found = file.seekKey("ur", 0, 1000, File::AT_KEY);
            results[3] = file.readLine(buffer.get(), 600, &length);
        }
        EXPECT_EQ(results[0], 160);
        EXPECT_EQ(results[1], 4);
        EXPECT_EQ(results[2], 6);
        EXPECT_EQ(found, 174);
        EXPECT_EQ(results[3], 2);
        EXPECT_EQ(buffer.text(), "ur");
        EXPECT_EQ(file.position(), 176);
    }
    EXPECT_EQ(mLog.lines(), Lines());
}

}  // namespace

// Bytes of a file by their content.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <random>
#include <string>
#include <vector>

#include "TestHooks.h"
#include "TestTextFile.h"

namespace {

using namespace utltest;
using utl::File;
using HookScope = utltest::OwnHookScope;
namespace hooks = utltest::hooks;
using namespace std::string_literals;
using Lines = std::vector<std::string>;

constexpr unsigned long long ALL = ~0ULL;

class FileSearch : public utltest::TextInFolder {
  protected:
    // The result, which must be the position if the key was found; else that must be the old one.
    static long long found(File& file, std::string const& key, unsigned long long start,
                           unsigned long long range, int mode = File::AT_KEY) {
        long long const oldPosition = file.position();
        auto const* const bytes = reinterpret_cast<unsigned char const*>(key.data());
        long long const result =
            file.seekKey(bytes, static_cast<unsigned int>(key.size()), start, range, mode);
        EXPECT_EQ(file.position(), result >= 0 ? result : oldPosition);
        return result;
    }
};

TEST_F(FileSearch, SeekKey_MovesToTheStartOfTheKey) {
    EXPECT_EQ(found(reading("0123key789", File::TEXT_UTF8), "key", 0, ALL), 4);
    EXPECT_EQ(found(reading("key", File::TEXT_UTF8), "key", 0, ALL), 0);
    EXPECT_EQ(found(reading("xk", File::TEXT_UTF8), "k", 0, ALL), 1);
}

TEST_F(FileSearch, SeekKey_WithMode1_MovesBehindTheKey) {
    EXPECT_EQ(found(reading("0123key789", File::TEXT_UTF8), "key", 0, ALL, File::AFTER_KEY), 7);
    for (int const mode : {0, 2, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(found(reading("0123key789", File::TEXT_UTF8), "key", 0, ALL, mode), 4);
    }
}

TEST_F(FileSearch, SeekKey_BeginsAtTheStartThatItIsTold) {
    File& file = reading("key.key.key", File::TEXT_UTF8);
    EXPECT_EQ(found(file, "key", 0, ALL), 0);
    EXPECT_EQ(found(file, "key", 1, ALL), 4);
    EXPECT_EQ(found(file, "key", 8, ALL), 8);
    EXPECT_EQ(found(file, "key", 9, ALL), File::KEY_NOT_FOUND);
    EXPECT_EQ(found(file, "key", 11, ALL), File::KEY_NOT_FOUND);
    EXPECT_EQ(found(file, "key", 1000, ALL), File::KEY_NOT_FOUND);
}

TEST_F(FileSearch, SeekKey_MayBeginAtThePosition) {
    File& file = reading("key.key.key", File::TEXT_UTF8);
    std::vector<long long> places;
    while (found(file, "key", File::KEY_FROM_POSITION, ALL, File::AFTER_KEY) >= 0) {
        places.push_back(file.position());
    }
    EXPECT_EQ(places, (std::vector<long long>{3, 7, 11}));
}

TEST_F(FileSearch, SeekKey_LooksAtNoMoreBytesThanTheRange) {
    File& file = reading("0123key789", File::TEXT_UTF8);
    file.seek(2, File::FROM_START);
    EXPECT_EQ(found(file, "key", 0, 6), File::KEY_NOT_FOUND);
    EXPECT_EQ(found(file, "key", 0, 0), File::KEY_NOT_FOUND);
    EXPECT_EQ(found(file, "key", File::KEY_FROM_POSITION, 4), File::KEY_NOT_FOUND);
    EXPECT_EQ(found(file, "key", 0, 7), 4);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSearch, SeekKey_OfAnEmptyFile_IsMinusTwo) {
    EXPECT_EQ(found(reading("", File::TEXT_UTF8), "key", 0, ALL), File::KEY_NOT_FOUND);
}

TEST_F(FileSearch, SeekKey_OfNullOrAnEmptyKey_IsMinusOneWithoutALine) {
    File& file = reading("0123", File::TEXT_UTF8);
    file.seek(2, File::FROM_START);
    EXPECT_EQ(file.seekKey(nullptr, 3, 0, ALL, File::AT_KEY), -1);
    EXPECT_EQ(found(file, "", 0, ALL), -1);
    EXPECT_EQ(file.seekKey(static_cast<char const*>(nullptr), 0, ALL, File::AT_KEY), -1);
    EXPECT_EQ(file.seekKey("", 0, ALL, File::AT_KEY), -1);
    EXPECT_EQ(file.position(), 2);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSearch, SeekKey_OfAClosedFile_IsMinusOneWithoutALine) {
    EXPECT_EQ(File("text", File::TEXT_UTF8).seekKey("key", 0, ALL, File::AT_KEY), -1);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSearch, SeekKey_OfAText_TakesItWithoutItsTerminator) {
    EXPECT_EQ(reading("ab\0key"s, File::TEXT_UTF8).seekKey("key", 0, ALL, File::AT_KEY), 3);
    EXPECT_EQ(reading("abkey", File::TEXT_UTF8).seekKey("key", 0, ALL, File::AFTER_KEY), 5);
}

TEST_F(FileSearch, SeekKey_OfBytes_TakesZerosLikeAnyOther) {
    EXPECT_EQ(found(reading("a\0b\0c"s, File::TEXT_UTF8), "\0c"s, 0, ALL), 3);
    EXPECT_EQ(found(reading("a\xFF\0"s, File::TEXT_UTF8), "\xFF\0"s, 0, ALL), 1);
}

TEST_F(FileSearch, SeekKey_NeverGoesBackToAByteThatEndedAPartialMatch) {
    EXPECT_EQ(found(reading("aaab", File::TEXT_UTF8), "aab", 0, ALL), File::KEY_NOT_FOUND);
    EXPECT_EQ(found(reading("aaaab", File::TEXT_UTF8), "aab", 0, ALL), File::KEY_NOT_FOUND);
    EXPECT_EQ(found(reading("aaaaab", File::TEXT_UTF8), "aab", 0, ALL), 3)
        << "as the third byte ended a match";
    EXPECT_EQ(found(reading("kkey", File::TEXT_UTF8), "key", 0, ALL), File::KEY_NOT_FOUND);
    EXPECT_EQ(found(reading("kkkey", File::TEXT_UTF8), "key", 0, ALL), 2);
}

TEST_F(FileSearch, SeekKey_WithAStartBeyondAllPositions_IsMinusOneAndSaysSo) {
    File& file = reading("0123", File::TEXT_UTF8);
    file.seek(2, File::FROM_START);
    for (unsigned long long const start : {ALL, ALL - 2, 1ULL << 63}) {
        mLog.clear();
        EXPECT_EQ(found(file, "2", start, ALL), -1);
        EXPECT_EQ(mLog.lines(), (Lines{error("lseek64 Failed. errno[22]")}));
    }
}

TEST_F(FileSearch, SeekKey_FindsAKeyThatIsLongerThanABlock) {
    std::string const key = std::string(20000, 'x') + "y";
    EXPECT_EQ(found(reading("abc" + key + "z", File::TEXT_UTF8), key, 0, ALL), 3);
}

// In blocks whose seams are looked for: the key stands before, over and after each.
TEST_F(FileSearch, SeekKey_FindsAKeyAtAnyPlace) {
    std::string content(70000, '.');
    for (std::size_t place = 1000; place < 69990; place += 997) {
        content.replace(place, 5, "<key>");
    }
    for (std::size_t seam = 4096; seam < 69990; seam += 4096) {
        content.replace(seam - 10, 20, "..-key-...-key-...-k");
    }
    File& file = reading(content, File::TEXT_UTF8);
    for (char const* const key : {"<key>", "-key-", "-k"}) {
        std::size_t expected = content.find(key);
        for (unsigned long long start = 0; expected != std::string::npos;
             start = expected + 1, expected = content.find(key, expected + 1)) {
            ASSERT_EQ(found(file, key, start, ALL), static_cast<long long>(expected));
        }
    }
}

// The same search written plainly, a byte at a time; returns the offset of the key.
long long plainSearch(std::string const& bytes, std::string const& key) {
    std::size_t matched = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        matched = bytes[i] == key[matched] ? matched + 1 : 0;
        if (matched == key.size()) {
            return static_cast<long long>(i + 1 - matched);
        }
    }
    return File::KEY_NOT_FOUND;
}

TEST_F(FileSearch, SeekKey_OfAnyBytes_GivesWhatAByteAtATimeGives) {
    std::minstd_rand lots(1);
    auto const anyText = [&lots](std::size_t size) {
        std::string text(size, 'a');
        for (char& byte : text) {
            byte = static_cast<char>('a' + lots() % 2);
        }
        return text;
    };
    std::string const content = anyText(40000);
    File& file = reading(content, File::TEXT_UTF8);
    for (unsigned int round = 0; round < 2000; ++round) {
        std::string const key = anyText(1 + lots() % 12);
        std::size_t const start = lots() % content.size();
        std::size_t const range = lots() % 40000;
        long long const offset = plainSearch(content.substr(start, range), key);
        long long const expected =
            offset == File::KEY_NOT_FOUND ? offset : static_cast<long long>(start) + offset;
        ASSERT_EQ(found(file, key, start, range), expected) << key << " from " << start << " in " << range;
    }
}

TEST_F(FileSearch, SeekKey_OfReadsThatComeShort_GivesTheSame) {
    File& file = reading("0123key789", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::pread.replace([](int descriptor, void* buffer, size_t, off_t offset) {
        return hooks::pread.real(descriptor, buffer, 1, offset);
    });
    EXPECT_EQ(found(file, "key", 0, ALL), 4);
    EXPECT_EQ(found(file, "9x", 0, ALL), File::KEY_NOT_FOUND);
    EXPECT_EQ(found(file, "key", 0, 6), File::KEY_NOT_FOUND);
}

TEST_F(FileSearch, SeekKey_Beyond4GiB_IsExact) {
    constexpr long long FAR = 0x100000000LL + 123;
    File& file = writing("key", File::TEXT_UTF8);
    ASSERT_EQ(file.seek(FAR, File::FROM_START), FAR);
    ASSERT_EQ(file.write("...key...", 9), 9);
    EXPECT_EQ(found(file, "key", FAR, ALL), FAR + 3);
    EXPECT_EQ(found(file, "key", FAR, ALL, File::AFTER_KEY), FAR + 6);
    EXPECT_EQ(found(file, "key", FAR - 50000, 50005), File::KEY_NOT_FOUND);
    EXPECT_EQ(found(file, "key", FAR - 50000, 50006), FAR + 3);
    file.seek(FAR + 4, File::FROM_START);
    EXPECT_EQ(found(file, "key", File::KEY_FROM_POSITION, ALL), File::KEY_NOT_FOUND);
    EXPECT_EQ(found(file, "key", 0, 0x100000000ULL), 0);
    EXPECT_EQ(found(file, "...", FAR - 1, 0x100000003ULL), FAR);
}

TEST_F(FileSearch, SeekKey_WithoutAPosition_IsMinusOneAndSaysSo) {
    File& file = reading("key", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::lseek.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(file.seekKey("key", 0, ALL, File::AT_KEY), -1);
    EXPECT_EQ(mLog.lines(), (Lines{error("lseek64 Failed. errno[5]")}));
    EXPECT_EQ(hooks::pread.calls(), 0U);
}

TEST_F(FileSearch, SeekKey_WhoseStartCannotBeSought_IsMinusOneAndSaysSo) {
    File& file = reading("..key", File::TEXT_UTF8);
    file.seek(1, File::FROM_START);
    EXPECT_EQ(file.seekKey("key", 1ULL << 63U, ALL, File::AT_KEY), -1);
    EXPECT_EQ(mLog.lines(), (Lines{error("lseek64 Failed. errno[22]")}));
    EXPECT_EQ(file.position(), 1);
}

TEST_F(FileSearch, SeekKey_WithoutASize_IsMinusOneAndPutsThePositionBack) {
    File& file = reading("..key", File::TEXT_UTF8);
    file.seek(1, File::FROM_START);
    HookScope const hookScope;
    hooks::fstat.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(found(file, "key", 0, ALL), -1);
    EXPECT_EQ(mLog.lines(), (Lines{error("fstat Failed. errno[5]"), error("fileSize Failed. Path:text")}));
}

TEST_F(FileSearch, SeekKey_ThatTheSystemRefusesToRead_IsMinusOneAndPutsThePositionBack) {
    for (unsigned int const nth : {1U, 2U, 3U}) {
        File& file = reading(std::string(60000, '.') + "key", File::TEXT_UTF8);
        file.seek(100, File::FROM_START);
        HookScope const hookScope;
        mLog.clear();
        hooks::pread.failFrom(nth, 1, -1, EIO);
        EXPECT_EQ(found(file, "key", 0, ALL), -1);
        EXPECT_EQ(mLog.lines(), (Lines{error("ReadFile Failed. errno[5]"),
                                       error("in read func readFile Failed. Path:text")}));
        EXPECT_EQ(found(file, "key", 0, ALL), 60000);
    }
}

TEST_F(FileSearch, SeekKey_FromAStart_AsksTheSystemForTheOldPositionAlone) {
    File& file = reading("..key", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::lseek.failFrom(2, 0, -1, EIO);
    EXPECT_EQ(file.seekKey("key", 1, ALL, File::AT_KEY), 2);
    EXPECT_EQ(file.seekKey("key", 0, ALL, File::AT_KEY), 2);
    EXPECT_EQ(file.position(), 2);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSearch, SeekKey_OfAFileThatIsCutMeanwhile_FindsNothing) {
    File& file = reading("..key", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::pread.replace([](int, void*, size_t, off_t) -> ssize_t { return 0; });
    EXPECT_EQ(found(file, "key", 0, ALL), File::KEY_NOT_FOUND);
}

// Beside a plain search, and at every border.

/// The search by one byte after the other, which begins anew after a byte that does not match.
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

TEST_F(FileSearch, NextEOLSize_IsRightForEveryPairOfBytesAndStays) {
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

TEST_F(FileSearch, SeekKey_AgreesWithASearchByteByByteThatNeverGoesBack) {
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

TEST_F(FileSearch, SeekKey_FindsAKeyAcrossEveryBorder_InARangeThatEndsWithItAndInNoSmallerOne) {
    for (unsigned int border = 64; border <= 16384; border *= 2) {
        for (unsigned int lead = 0; lead <= 6; ++lead) {
            unsigned int const at = border - lead;
            // Beginnings of the key right before it and at its end.
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
            EXPECT_EQ(file.seekKey("ykey", 0, ALL, utl::File::AT_KEY), utl::File::KEY_NOT_FOUND);
            EXPECT_EQ(file.position(), at + 9);
        }
    }
}

TEST_F(FileSearch, SeekKey_OfAKeyThatIsLongerThanAnyBlock_FindsItAtItsFirstByte) {
    std::string key(20000, 'k');
    key.back() = 'e';
    utl::File& file = reading("--" + key + "kk", utl::File::TEXT_UTF8);
    EXPECT_EQ(file.seekKey(key.c_str(), 0, ALL, utl::File::AT_KEY), 2);
    EXPECT_EQ(file.seekKey(key.c_str(), 2, 20000, utl::File::AFTER_KEY), 20002);
    EXPECT_EQ(file.seekKey(key.c_str(), 2, 19999, utl::File::AFTER_KEY), utl::File::KEY_NOT_FOUND);
    EXPECT_EQ(file.seekKey((key + "kkk").c_str(), 2, ALL, utl::File::AFTER_KEY), utl::File::KEY_NOT_FOUND);
    EXPECT_EQ(file.position(), 20002);
}

TEST_F(FileSearch, SeekKey_FromAStartThatIsNoPosition_FailsOrFindsNothingAndStays) {
    utl::File& file = reading("key", utl::File::TEXT_UTF8);
    file.seek(1, utl::File::FROM_START);
    for (unsigned long long const start : {3ULL, 4ULL, 0x100000000ULL, 0x100000001ULL}) {
        EXPECT_EQ(file.seekKey("k", start, ALL, utl::File::AFTER_KEY), utl::File::KEY_NOT_FOUND) << start;
        EXPECT_EQ(file.position(), 1);
    }
    EXPECT_EQ(mLog.lines(), std::vector<std::string>());
    for (unsigned long long const start : {0x8000000000000000ULL, utl::File::KEY_FROM_POSITION - 1, ALL}) {
        EXPECT_EQ(file.seekKey("k", start, 3, utl::File::AFTER_KEY), -1) << start;
        EXPECT_EQ(file.position(), 1);
        EXPECT_EQ(mLog.count(error("lseek64 Failed. errno[22]")), 1U);
        mLog.clear();
    }
    EXPECT_EQ(file.seekKey("y", utl::File::KEY_FROM_POSITION, 2, utl::File::AT_KEY), 2);
}

TEST_F(FileSearch, SeekKey_WhoseNthSystemCallFails_GivesMinusOneWithALineAndStays) {
    utl::File& file = reading(std::string(30, '-') + "key", utl::File::TEXT_UTF8);
    for (int kind = 0; kind < 3; ++kind) {
        bool isThrough = false;
        for (unsigned int n = 1; !isThrough && n < 200; ++n) {
            file.seek(3, utl::File::FROM_START);
            mLog.clear();
            long long const result =
                withNthFailing(kind, n, [&] { return file.seekKey("key", 1, ALL, utl::File::AFTER_KEY); });
            isThrough = result == 33;
            EXPECT_EQ(result, isThrough ? 33 : -1);
            EXPECT_EQ(mLog.lines().empty(), isThrough) << kind << ", " << n;
            // The `lseek` that fails may be the one to the place that was found.
            EXPECT_TRUE(file.position() == (isThrough ? 33 : 3) || kind == 1) << kind << ", " << n;
        }
        EXPECT_TRUE(isThrough);
    }
}

TEST_F(FileSearch, SeekKey_FromAStart_WhoseSystemCallForAPositionFails_GivesMinusOneAndStays) {
    utl::File& file = reading(std::string(30, '-') + "key", utl::File::TEXT_UTF8);
    file.seek(3, utl::File::FROM_START);
    EXPECT_EQ(withNthFailing(1, 1, [&] { return file.seekKey("key", 1, ALL, utl::File::AFTER_KEY); }), -1);
    EXPECT_EQ(file.position(), 3);
}

TEST_F(FileSearch, NextEOLSize_LooksAtTheNextTwoBytesWhateverTheType) {
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

TEST_F(FileSearch, NextEOLSize_LooksAtThePositionAndStaysThere) {
    File& file = reading("ab\r\ncd", File::TEXT_UTF8);
    file.seek(2, File::FROM_START);
    EXPECT_EQ(file.nextEOLSize(), 2);
    EXPECT_EQ(file.position(), 2);
    file.seek(6, File::FROM_START);
    EXPECT_EQ(file.nextEOLSize(), 0);
    EXPECT_EQ(file.position(), 6);
}

TEST_F(FileSearch, NextEOLSize_OfAClosedFile_IsZeroWithoutALine) {
    EXPECT_EQ(File("text", File::TEXT_UTF8).nextEOLSize(), 0);
    EXPECT_EQ(mLog.lines(), Lines());
}

TEST_F(FileSearch, NextEOLSize_WithoutAPosition_IsZeroAndSaysSo) {
    File& file = reading("\n", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::lseek.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(file.nextEOLSize(), 0);
    EXPECT_EQ(mLog.lines(), (Lines{error("lseek64 Failed. errno[5]")}));
}

TEST_F(FileSearch, NextEOLSize_ThatTheSystemRefusesToRead_IsMinusOneAndSaysSo) {
    File& file = reading("\n", File::TEXT_UTF8);
    HookScope const hookScope;
    hooks::pread.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(file.nextEOLSize(), -1);
    EXPECT_EQ(mLog.lines(),
              (Lines{error("ReadFile Failed. errno[5]"), error("in read func readFile Failed. Path:text")}));
    EXPECT_EQ(file.position(), 0);
}

}  // namespace

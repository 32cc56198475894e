#include "UtlLog.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "TestExit.h"
#include "TestHooks.h"
#include "TestLog.h"
#include "TestPrivate.h"
#include "internal/log/UtlLogTypes.h"

namespace {

std::atomic<unsigned int> gAllocations{0};

}  // namespace

// Counts what the library takes from the heap as well.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++gAllocations;
    void* const memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

using Lines = std::vector<std::string>;
namespace hooks = utltest::hooks;

constexpr int LIBRARY = -2;
constexpr char const* STAMP = "Nov 20 23:25:41.123 ";
constexpr char const* PREFIXES[] = {"NO : ", "ERR: ", "WRN: ", "INF: ", "DTL: ", "DBG: "};

// Formats that no compiler checks.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"

void logUnchecked(int type, int level, char const* format) {
    applog(type, level, format);
}

void logRawUnchecked(int type, int level, char const* format) {
    rawlog(type, level, format);
}

#pragma GCC diagnostic pop

/// Every test starts with the built-in filter levels, at a second of its own that is stamped as `STAMP`.
class LogTest : public testing::Test {
  protected:
    LogTest() {
        setAllFilterLevel(4);
        theMicroseconds = 123456;
        theWords = "Thu Nov 20 23:25:41 2025\n";
        ++theSeconds;
        hooks::getTimeOfDay.replace([](timeval* now, void*) {
            *now = {static_cast<time_t>(theSeconds), static_cast<suseconds_t>(theMicroseconds)};
            return 0;
        });
        hooks::ctimeR.replace([](time_t const* time, char* out) {
            return *time == static_cast<time_t>(theSeconds) ? std::strcpy(out, theWords) : nullptr;
        });
    }

    static void setMicroseconds(int microseconds) { theMicroseconds = microseconds; }
    static void setWords(char const* words) { theWords = words; }
    static void nextSecond() { ++theSeconds; }

    /// The end of a capture opens the way to the real sinks.
    static void openRealSinks() { utltest::LogCapture const shortest; }

    static std::string line(std::string const& text) { return STAMP + text + "\r\n"; }

    utltest::LogCapture mLog;

  private:
    static int theSeconds;
    static int theMicroseconds;
    static char const* theWords;

    utltest::HookScope mHooks;
};

int LogTest::theSeconds = 1000000000;
int LogTest::theMicroseconds = 0;
char const* LogTest::theWords = "";

using LogLine = LogTest;
using LogFilter = LogTest;
using LogStampTest = LogTest;
using LogCut = LogTest;
using LogSecondPass = LogTest;
using RawLog = LogTest;
using LogTypes = LogTest;

struct LoggedBeforeMain {
    LoggedBeforeMain() {
        isRegistered = registerLogType(4711, "EARLY ", 5) == 1;
        level = getFilterLevel(LIBRARY);
        applog(4711, 5, "logged before main");
    }
    bool isRegistered = false;
    int level = 99;
} const gBeforeMain;

// The line.

TEST_F(LogLine, OfLevelOneToThree_GoesToAllSinksInTheirOrder) {
    int const priorities[] = {0, LOG_ERR, LOG_WARNING, LOG_INFO};
    for (int level = 1; level <= 3; ++level) {
        mLog.clear();
        applog(LIBRARY, level, "value %d of %s", 5, "name");
        std::string const text = std::string("<UTIL> ") + PREFIXES[level] + "value 5 of name";
        EXPECT_EQ(mLog.console(), Lines{line(text)});
        EXPECT_EQ(mLog.binary(), Lines{line(text)});
        ASSERT_EQ(mLog.systemLog().size(), 1U);
        EXPECT_EQ(mLog.systemLog()[0].priority, priorities[level]);
        EXPECT_EQ(mLog.systemLog()[0].text, text);
        EXPECT_EQ(mLog.sinkOrder(), "scb");
    }
}

TEST_F(LogLine, OfLevelFourAndFive_GoesToStandardOutputAlone) {
    setAllFilterLevel(5);
    for (int level = 4; level <= 5; ++level) {
        mLog.clear();
        applog(LIBRARY, level, "text");
        EXPECT_EQ(mLog.console(), Lines{line(std::string("<UTIL> ") + PREFIXES[level] + "text")});
        EXPECT_EQ(mLog.sinkOrder(), "c");
    }
}

TEST_F(LogLine, OfAnUnregisteredType_HasOneBlankInFrontOfThePrefix) {
    applog(12345, 3, "x");
    EXPECT_EQ(mLog.console(), Lines{"Nov 20 23:25:41.123 INF: x\r\n"});
    ASSERT_EQ(mLog.systemLog().size(), 1U);
    EXPECT_EQ(mLog.systemLog()[0].text, "INF: x");
}

TEST_F(LogLine, OfTheDefaultTypeItself_IsThatOfAnUnregisteredType) {
    applog(utl::LOG_TYPE_DEFAULT, 3, "x");
    EXPECT_EQ(mLog.console(), Lines{"Nov 20 23:25:41.123 INF: x\r\n"});
}

TEST_F(LogLine, ShowsTheNameExactlyAsItWasStored) {
    registerLogType(21, "[ no blank]", 4);
    applog(21, 2, "x");
    EXPECT_EQ(mLog.console(), Lines{"Nov 20 23:25:41.123 [ no blank]WRN: x\r\n"});
    ASSERT_EQ(mLog.systemLog().size(), 1U);
    EXPECT_EQ(mLog.systemLog()[0].text, "[ no blank]WRN: x");
}

TEST_F(LogLine, OfAnEmptyMessage_StillGoesToEverySink) {
    applog(LIBRARY, 1, "%s", "");
    EXPECT_EQ(mLog.console(), Lines{line("<UTIL> ERR: ")});
    EXPECT_EQ(mLog.sinkOrder(), "scb");
}

TEST_F(LogLine, EndsAtANulInTheMessage) {
    applog(LIBRARY, 1, "ab%ccd", '\0');
    EXPECT_EQ(mLog.console(), Lines{line("<UTIL> ERR: ab")});
    EXPECT_EQ(mLog.binary(), Lines{line("<UTIL> ERR: ab")});
    EXPECT_EQ(mLog.systemLog()[0].text, "<UTIL> ERR: ab");
}

TEST_F(LogLine, ReachesTheRealStandardOutputWithCarriageReturnAndLineFeed) {
    std::FILE* const file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    std::fflush(stdout);
    int const kept = dup(STDOUT_FILENO);
    openRealSinks();
    dup2(fileno(file), STDOUT_FILENO);
    applog(LIBRARY, 4, "real %s %%s", "%n");
    rawlog(LIBRARY, 4, "raw");
    std::fflush(stdout);
    dup2(kept, STDOUT_FILENO);
    close(kept);
    char text[200] = {};
    std::rewind(file);
    std::size_t const length = std::fread(text, 1, sizeof(text), file);
    std::fclose(file);
    EXPECT_EQ(std::string(text, length), line("<UTIL> DTL: real %n %s") + "raw");
}

TEST_F(LogLine, TakesNothingFromTheHeap) {
    openRealSinks();
    unsigned int const before = gAllocations;
    applog(LIBRARY, 1, "value %d of %s", 5, "name");
    applog(12345, 4, "%s", "%s%n%%");
    rawlog(LIBRARY, 1, "raw %d\n", 5);
    applog(LIBRARY, 5, "dropped");
    EXPECT_EQ(gAllocations, before);
}

TEST_F(LogLine, KeepsTheCallersErrno) {
    hooks::getTimeOfDay.failFrom(1, 0, -1, EFAULT);
    errno = ENOENT;
    applog(LIBRARY, 1, "%ls", L"\x110000");
    EXPECT_EQ(errno, ENOENT);
    rawlog(LIBRARY, 1, "%ls", L"\x110000");
    EXPECT_EQ(errno, ENOENT);
    applog(LIBRARY, 5, "x");
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(LogLine, LogsTheCallersErrnoOfTheFirstPass) {
    hooks::getTimeOfDay.failFrom(1, 0, -1, EFAULT);
    errno = ENOENT;
    applog(LIBRARY, 1, "open: %m");
    rawlog(LIBRARY, 1, "open: %m");
    EXPECT_EQ(mLog.console(),
              (Lines{" <UTIL> ERR: open: No such file or directory\r\n", "open: No such file or directory"}));
}

TEST_F(LogLine, OfManyThreads_ReachesEachSinkWholeAndOnce) {
    constexpr int THREADS = 4;
    constexpr int LINES = 200;
    std::vector<std::thread> threads;
    for (int number = 0; number < THREADS; ++number) {
        threads.emplace_back([number] {
            for (int i = 0; i < LINES; ++i) {
                applog(LIBRARY, 1, "thread %d line %d", number, i);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::multiset<std::string> expected;
    for (int number = 0; number < THREADS; ++number) {
        for (int i = 0; i < LINES; ++i) {
            expected.insert(
                line("<UTIL> ERR: thread " + std::to_string(number) + " line " + std::to_string(i)));
        }
    }
    Lines const console = mLog.console();
    Lines const binary = mLog.binary();
    EXPECT_EQ(std::multiset<std::string>(console.begin(), console.end()), expected);
    EXPECT_EQ(std::multiset<std::string>(binary.begin(), binary.end()), expected);
    EXPECT_EQ(mLog.systemLog().size(), expected.size());
}

// The filter.

TEST_F(LogFilter, PassesWhatIsAtOrBelowTheLevelOfTheType_AndNeverLevelZero) {
    for (int filter = 0; filter <= 5; ++filter) {
        setFilterLevel(LIBRARY, filter);
        for (int level = 0; level <= 5; ++level) {
            mLog.clear();
            applog(LIBRARY, level, "x");
            rawlog(LIBRARY, level, "x");
            std::size_t const expected = level >= 1 && level <= filter ? 2 : 0;
            EXPECT_EQ(mLog.console().size(), expected) << filter << " " << level;
        }
    }
}

TEST_F(LogFilter, ALevelOutsideTheTable_CountsAsFive) {
    for (int level : {6, 16, 0x7FFFFFFF, -1, -2147483647 - 1}) {
        mLog.clear();
        setAllFilterLevel(4);
        applog(LIBRARY, level, "x");
        rawlog(LIBRARY, level, "x");
        EXPECT_EQ(mLog.sinkOrder(), "") << level;
        setAllFilterLevel(5);
        applog(LIBRARY, level, "x");
        EXPECT_EQ(mLog.console(), Lines{line("<UTIL> DBG: x")}) << level;
        EXPECT_EQ(mLog.sinkOrder(), "c") << level;
    }
}

TEST_F(LogFilter, OfAnUnregisteredType_IsThatOfTheDefaultEntry) {
    setFilterLevel(utl::LOG_TYPE_DEFAULT, 2);
    applog(12345, 3, "dropped");
    applog(12345, 2, "passed");
    applog(LIBRARY, 3, "passed as well");
    EXPECT_EQ(mLog.console(), (Lines{line("WRN: passed"), line("<UTIL> INF: passed as well")}));
}

TEST_F(LogFilter, ADroppedLine_IsNotBuilt) {
    hooks::getTimeOfDay.failFrom(0, 0, 0, 0);
    applog(LIBRARY, 5, "x");
    applog(LIBRARY, 0, "x");
    EXPECT_EQ(hooks::getTimeOfDay.calls(), 0U);
    EXPECT_EQ(mLog.sinkOrder(), "");
}

TEST_F(LogFilter, ANullFormat_DropsTheLine) {
    logUnchecked(LIBRARY, 1, nullptr);
    logRawUnchecked(LIBRARY, 1, nullptr);
    EXPECT_EQ(mLog.sinkOrder(), "");
}

TEST_F(LogFilter, MayBeChangedWhileOthersLog) {
    std::atomic<bool> isOver{false};
    std::thread changer([&] {
        for (int i = 0; i < 500; ++i) {
            setFilterLevel(LIBRARY, i % 6);
            registerLogType(22, i % 2 == 0 ? "even " : "odd ", 4);
            setAllFilterLevel(i % 6);
            setLogTag(i % 2 == 0 ? "even" : "odd");
        }
        isOver = true;
    });
    do {
        applog(22, 1, "x");
        int const level = getFilterLevel(22);
        EXPECT_TRUE(level >= 0 && level <= 6) << level;
        setLogTag("logging");
    } while (!isOver);
    changer.join();
    for (std::string const& text : mLog.lines()) {
        EXPECT_TRUE(text == "even ERR: x" || text == "odd ERR: x" || text == "ERR: x") << text;
    }
}

// Lets two threads take turns.
class Turns {
  public:
    void waitFor(int turn) {
        std::unique_lock<std::mutex> lock(mMutex);
        mHasPassed.wait(lock, [&] { return mTurn == turn; });
    }
    void passTo(int turn) {
        std::lock_guard<std::mutex> const lock(mMutex);
        mTurn = turn;
        mHasPassed.notify_all();
    }

  private:
    std::mutex mMutex;
    std::condition_variable mHasPassed;
    int mTurn = 0;
};

TEST_F(LogFilter, OnceItIsSet_DecidesAboutTheLinesThatAnotherThreadBeginsAfterwards) {
    constexpr int ROUNDS = 200;
    Turns turns;
    std::thread setter([&] {
        for (int round = 0; round < ROUNDS; ++round) {
            turns.waitFor(2 * round);
            setFilterLevel(LIBRARY, round % 2 == 0 ? 0 : 5);
            turns.passTo(2 * round + 1);
        }
    });
    for (int round = 0; round < ROUNDS; ++round) {
        turns.waitFor(2 * round + 1);
        applog(LIBRARY, 5, "%d", round);
        turns.passTo(2 * round + 2);
    }
    setter.join();
    Lines expected;
    for (int round = 1; round < ROUNDS; round += 2) {
        expected.push_back("<UTIL> DBG: " + std::to_string(round));
    }
    EXPECT_EQ(mLog.lines(), expected);
}

UTLTEST_REVEAL(utl::LogTypeTable, mVersion);

TEST(LogTypeTable, DuringAChange_LeavesEveryAnswerToTheHolderOfTheLock) {
    utl::LogTypeTable table;
    table.insertBuiltIn();
    for (int const type : {LIBRARY, 12345}) {
        EXPECT_TRUE(table.isFilteredOut(type, 5));
        (table.*mVersion)++;
        EXPECT_FALSE(table.isFilteredOut(type, 5));
        EXPECT_FALSE(table.isFilteredOutAtOnce(type, 5));
        EXPECT_TRUE(table.drops(type, 5));
        (table.*mVersion)++;
        EXPECT_TRUE(table.isFilteredOut(type, 5));
    }
    EXPECT_TRUE(table.isFilteredOutAtOnce(LIBRARY, 5));
}

TEST(LogTypeTable, CountsEveryChangeTwice) {
    utl::LogTypeTable table;
    ASSERT_TRUE(table.insert(1, "", 4));
    EXPECT_EQ(table.*mVersion, 2U);
    table.setFilterLevel(1, 3);
    EXPECT_EQ(table.*mVersion, 4U);
    table.setAllFilterLevel(2);
    EXPECT_EQ(table.*mVersion, 6U);
    table.setFilterLevel(2, 3);
    EXPECT_EQ(table.*mVersion, 6U);
}

// The stamp.

TEST_F(LogStampTest, ShowsMillisecondsInThreeDigits_CutNotRounded) {
    struct {
        int microseconds;
        char const* decimals;
    } const cases[] = {{0, "000"},     {999, "000"},    {1000, "001"},
                       {45999, "045"}, {100000, "100"}, {999999, "999"}};
    for (auto const& one : cases) {
        mLog.clear();
        setMicroseconds(one.microseconds);
        applog(12345, 4, "x");
        EXPECT_EQ(mLog.console(), Lines{"Nov 20 23:25:41." + std::string(one.decimals) + " DTL: x\r\n"});
    }
}

TEST_F(LogStampTest, KeepsTheBlankInFrontOfADayOfOneDigit) {
    setWords("Sat Nov  1 01:02:03 2025\n");
    applog(12345, 4, "x");
    EXPECT_EQ(mLog.console(), Lines{"Nov  1 01:02:03.123 DTL: x\r\n"});
}

TEST_F(LogStampTest, OfATextWithoutABlank_IsThatText) {
    setWords("never");
    applog(12345, 4, "x");
    EXPECT_EQ(mLog.console(), Lines{"never DTL: x\r\n"});
}

TEST_F(LogStampTest, OfATextWithOneBlank_StartsAtItsStart) {
    setWords("Thu never\n");
    applog(12345, 4, "x");
    EXPECT_EQ(mLog.console(), Lines{"Thu.123 DTL: x\r\n"});
}

TEST_F(LogStampTest, OfATextThatBeginsWithItsOnlyTwoBlanks_LosesThemBoth) {
    setWords(" a b");
    applog(12345, 4, "x");
    EXPECT_EQ(mLog.console(), Lines{"a.123 DTL: x\r\n"});
}

TEST_F(LogStampTest, OfTimeThatCannotBeWorded_IsEmpty) {
    hooks::ctimeR.failFrom(1, 0, nullptr, EOVERFLOW);
    applog(LIBRARY, 1, "x");
    EXPECT_EQ(mLog.console(), Lines{" <UTIL> ERR: x\r\n"});
    EXPECT_EQ(mLog.systemLog()[0].text, "<UTIL> ERR: x");
}

TEST_F(LogStampTest, OfTimeThatCannotBeHad_IsEmpty) {
    hooks::getTimeOfDay.failFrom(1, 0, -1, EFAULT);
    applog(LIBRARY, 1, "x");
    EXPECT_EQ(mLog.console(), Lines{" <UTIL> ERR: x\r\n"});
    EXPECT_EQ(mLog.systemLog()[0].text, "<UTIL> ERR: x");
}

TEST_F(LogStampTest, OfWordsThatWereCutOffByAFailure_IsStillThatOfTheTime) {
    hooks::ctimeR.replace([](time_t const*, char* out) -> char* {
        std::strcpy(out,
                    "Fri Nov 20 23:25:41 12025");  // a year of five digits leaves no room for the line feed
        return nullptr;
    });
    applog(12345, 4, "x");
    applog(12345, 4, "x");
    EXPECT_EQ(mLog.console(), (Lines{"Nov 20 23:25:41.123 DTL: x\r\n", "Nov 20 23:25:41.123 DTL: x\r\n"}));
}

TEST_F(LogStampTest, OfWordsThatLeaveNoRoomForTheMilliseconds_HasAsManyOfThemAsFit) {
    constexpr std::size_t LONGEST = 63;
    for (std::size_t blank = 57; blank < LONGEST; ++blank) {
        nextSecond();
        mLog.clear();
        std::string const time(blank - 4, 't');
        std::string const words = "Thu " + time + " " + std::string(LONGEST - blank - 1, 'y');
        setWords(words.c_str());
        applog(12345, 4, "x");
        std::string const decimals = std::string(".123").substr(0, LONGEST - blank);
        EXPECT_EQ(mLog.console(), Lines{time + decimals + " DTL: x\r\n"}) << blank;
    }
}

TEST_F(LogStampTest, OfOneSecond_IsWordedOnce) {
    hooks::ctimeR.failFrom(0, 0, nullptr, 0);
    applog(12345, 4, "x");
    setMicroseconds(999999);
    applog(12345, 4, "x");
    EXPECT_EQ(hooks::ctimeR.calls(), 1U);
    EXPECT_EQ(mLog.console(), (Lines{"Nov 20 23:25:41.123 DTL: x\r\n", "Nov 20 23:25:41.999 DTL: x\r\n"}));
    nextSecond();
    setWords("Thu Nov 20 23:25:42 2025\n");
    applog(12345, 4, "x");
    EXPECT_EQ(mLog.console().back(), "Nov 20 23:25:42.999 DTL: x\r\n");
    EXPECT_EQ(hooks::ctimeR.calls(), 2U);
}

TEST_F(LogStampTest, AFailedWording_IsNotRemembered) {
    hooks::ctimeR.failFrom(1, 1, nullptr, EOVERFLOW);
    applog(12345, 4, "x");
    applog(12345, 4, "x");
    EXPECT_EQ(mLog.console(), (Lines{" DTL: x\r\n", "Nov 20 23:25:41.123 DTL: x\r\n"}));
}

TEST_F(LogStampTest, WordsThatDoNotFitTheMemory_AreShownAllTheSame) {
    setWords("Thu Nov 20 23:25:41 123456789012345\n");
    applog(12345, 4, "x");
    applog(12345, 4, "x");
    EXPECT_EQ(mLog.console(), (Lines{"Nov 20 23:25:41.123 DTL: x\r\n", "Nov 20 23:25:41.123 DTL: x\r\n"}));
}

// With the real wording of the time.
class LogLocalTime : public LogTest {
  protected:
    LogLocalTime() {
        hooks::ctimeR.reset();
        hooks::getTimeOfDay.replace([](timeval* now, void*) {
            *now = {1763677541, 5000};  // 20 November 2025, 22:25:41 UTC
            return 0;
        });
    }
    ~LogLocalTime() override {
        unsetenv("TZ");
        tzset();
    }
    static void setZone(char const* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
};

TEST_F(LogLocalTime, IsShownInTheZoneOfTheMoment_EvenIfThatChangesWithinASecond) {
    setZone("UTC0");
    applog(12345, 4, "x");
    setZone("JST-9");
    applog(12345, 4, "x");
    setZone("UTC0");
    applog(12345, 4, "x");
    EXPECT_EQ(mLog.console(), (Lines{"Nov 20 22:25:41.005 DTL: x\r\n", "Nov 21 07:25:41.005 DTL: x\r\n",
                                     "Nov 20 22:25:41.005 DTL: x\r\n"}));
}

TEST_F(LogLocalTime, ATimeThatHasNoLocalForm_LeavesTheStampEmpty) {
    hooks::getTimeOfDay.replace([](timeval* now, void*) {
        *now = {static_cast<time_t>(0x7FFFFFFFFFFFFFFFLL), 0};
        return 0;
    });
    applog(12345, 4, "x");
    EXPECT_EQ(mLog.console(), Lines{" DTL: x\r\n"});
}

TEST_F(LogLocalTime, OnManyThreads_IsThatOfTheOwnLine) {
    setZone("UTC0");
    hooks::getTimeOfDay.replace([](timeval* now, void*) {
        static thread_local int calls = 0;
        int const second = ++calls * 7919 % 5;
        *now = {1763677540 + second, second * 1000};
        return 0;
    });
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([] {
            for (int i = 0; i < 500; ++i) {
                applog(12345, 4, "x");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::string const& text : mLog.console()) {
        std::string const digit = text.substr(14, 1);
        EXPECT_EQ(text, "Nov 20 22:25:4" + digit + ".00" + digit + " DTL: x\r\n");
    }
    EXPECT_EQ(mLog.console().size(), 2000U);
}

// As a signal handler would, when it comes while the time is worded.
TEST_F(LogLocalTime, AnotherLineOfTheSameThread_MayComeInTheMiddleOfALine) {
    setZone("UTC0");
    hooks::getTimeOfDay.replace([](timeval* now, void*) {
        static int calls = 0;
        int const second = ++calls % 10;
        *now = {1763677540 + second, second * 1000};
        return 0;
    });
    hooks::ctimeR.replace([](time_t const* time, char* out) {
        static bool isInside = false;
        if (!isInside) {
            isInside = true;
            applog(12345, 4, "handler");
            isInside = false;
        }
        return hooks::ctimeR.real(time, out);
    });
    applog(12345, 4, "line");
    applog(12345, 4, "line");
    EXPECT_EQ(mLog.console(),
              (Lines{"Nov 20 22:25:42.002 DTL: handler\r\n", "Nov 20 22:25:41.001 DTL: line\r\n",
                     "Nov 20 22:25:44.004 DTL: handler\r\n", "Nov 20 22:25:43.003 DTL: line\r\n"}));
}

// The cut.

constexpr std::size_t HEADER = 32;  // stamp, blank, "<UTIL> ", prefix

TEST_F(LogCut, ALineOfUpTo253Bytes_IsWhole) {
    for (std::size_t length : {0U, 1U, 219U, 220U, 221U}) {
        mLog.clear();
        std::string const message(length, 'm');
        applog(LIBRARY, 1, "%s", message.c_str());
        EXPECT_EQ(mLog.console(), Lines{line("<UTIL> ERR: " + message)}) << length;
        EXPECT_EQ(mLog.console()[0].size(), HEADER + length + 2);
        EXPECT_EQ(mLog.systemLog()[0].text, "<UTIL> ERR: " + message);
    }
}

TEST_F(LogCut, ALineOfMoreThan253Bytes_EndsThereInThreeDots) {
    for (std::size_t length : {222U, 223U, 224U, 225U, 300U, 5000U}) {
        mLog.clear();
        std::string const message(length, 'm');
        applog(LIBRARY, 1, "%s", message.c_str());
        std::string const text = "<UTIL> ERR: " + std::string(218, 'm') + "...";
        EXPECT_EQ(mLog.console(), Lines{line(text)}) << length;
        EXPECT_EQ(mLog.console()[0].size(), 255U);
        EXPECT_EQ(mLog.binary(), Lines{line(text)});
        EXPECT_EQ(mLog.systemLog()[0].text, text);
    }
}

TEST_F(LogCut, ALongName_LeavesThatMuchLessForTheMessage) {
    registerLogType(23, "1234567890123456789012345678901", 4);
    applog(23, 4, "%s", std::string(197, 'm').c_str());
    applog(23, 4, "%s", std::string(198, 'm').c_str());
    std::string const begin = "1234567890123456789012345678901DTL: ";
    EXPECT_EQ(mLog.console(),
              (Lines{line(begin + std::string(197, 'm')), line(begin + std::string(194, 'm') + "...")}));
}

TEST_F(LogCut, InsideACharacterOfManyBytes_FallsBetweenItsBytes) {
    std::string const message = std::string(217, 'm') + "\xE3\x81\x82\xE3\x81\x84";  // two kana
    applog(LIBRARY, 1, "%s", message.c_str());
    EXPECT_EQ(mLog.console(), Lines{line("<UTIL> ERR: " + std::string(217, 'm') + "\xE3...")});
}

TEST_F(LogCut, AMessageThatCannotBeFormatted_EndsInThreeDotsAfterWhatCould) {
    applog(LIBRARY, 1, "%ls", L"\x110000");
    EXPECT_EQ(mLog.console(), Lines{line("<UTIL> ERR: ...")});
    EXPECT_EQ(mLog.binary(), Lines{line("<UTIL> ERR: ...")});
    EXPECT_EQ(mLog.systemLog()[0].text, "<UTIL> ERR: ...");
}

TEST_F(LogCut, AMessageThatFailsBehindItsBeginning_KeepsTheBeginning) {
    applog(LIBRARY, 1, "begin %ls end", L"\x110000");
    EXPECT_EQ(mLog.console(), Lines{line("<UTIL> ERR: begin ...")});
}

// The second pass: the finished text is a format once more.

struct SecondPass {
    char const* text;   // after the first pass
    char const* shown;  // after the second
};

constexpr SecondPass SECOND_PASSES[] = {
    {"%%", "%"},
    {"100%%.", "100%."},
    {"%%%%", "%%"},
    {"%%s", "%s"},
    {"%%m", "%m"},
    {"%m", "No such file or directory"},
    {"<%m>", "<No such file or directory>"},
    {"%", "%"},
    {"%%%", "%%"},
    {"ends in %", "ends in %"},
    {"% ", "% "},
    {"100% sure", "100% sure"},
    {"%s", "%s"},
    {"%n", "%n"},
    {"%hhn%ln", "%hhn%ln"},
    {"%d%i%u%x%X%o%c%p", "%d%i%u%x%X%o%c%p"},
    {"%f%g%e%a%Lf", "%f%g%e%a%Lf"},
    {"%5d", "%5d"},
    {"%-08.3ld", "%-08.3ld"},
    {"%1$s", "%1$s"},
    {"%1$m", "%1$m"},
    {"%*d", "%*d"},
    {"%.*s", "%.*s"},
    {"%*m", "%*m"},
    {"%+ #0'I", "%+ #0'I"},
    {"%5", "%5"},
    {"%l", "%l"},
    {"%5%%", "%5%"},
    {"%!%y", "%!%y"},
    {"/tmp/%n/%s/%%/%", "/tmp/%n/%s/%/%"},
};

TEST_F(LogSecondPass, OfALine_KeepsWhatNeedsNoArgumentAndShowsTheRestAsItStands) {
    for (SecondPass const& one : SECOND_PASSES) {
        mLog.clear();
        errno = ENOENT;
        applog(LIBRARY, 1, "%s", one.text);
        std::string const begin = "<UTIL> ERR: ";
        EXPECT_EQ(mLog.systemLog()[0].text, begin + one.shown) << one.text;
        EXPECT_EQ(mLog.console(), Lines{line(begin + one.shown)}) << one.text;
        EXPECT_EQ(mLog.binary(), Lines{line(begin + one.text)}) << one.text;
    }
}

TEST_F(LogSecondPass, OfARawText_KeepsWhatNeedsNoArgumentAndShowsTheRestAsItStands) {
    for (SecondPass const& one : SECOND_PASSES) {
        mLog.clear();
        errno = ENOENT;
        rawlog(LIBRARY, 1, "%s", one.text);
        EXPECT_EQ(mLog.systemLog()[0].text, one.shown) << one.text;
        EXPECT_EQ(mLog.console(), Lines{one.shown}) << one.text;
        EXPECT_EQ(mLog.binary(), Lines{one.text}) << one.text;
    }
}

TEST_F(LogSecondPass, OfANameWithPercentSigns_IsAsHarmless) {
    registerLogType(24, "%n%s%% ", 4);
    applog(24, 1, "x");
    EXPECT_EQ(mLog.systemLog()[0].text, "%n%s% ERR: x");
    EXPECT_EQ(mLog.console(), Lines{line("%n%s% ERR: x")});
    EXPECT_EQ(mLog.binary(), Lines{line("%n%s%% ERR: x")});
}

TEST_F(LogSecondPass, OfANameThatEndsInAPercentSign_DoesNotMakeAFormatWithThePrefix) {
    struct {
        char const* name;
        char const* shown;
    } const cases[] = {{"50%", "50%ERR: x"}, {"50%%", "50%ERR: x"}, {"50%%%", "50%%ERR: x"}};
    for (auto const& one : cases) {
        mLog.clear();
        registerLogType(24, one.name, 4);
        applog(24, 1, "x");
        EXPECT_EQ(mLog.systemLog()[0].text, one.shown);
        EXPECT_EQ(mLog.console(), Lines{line(one.shown)});
        EXPECT_EQ(mLog.binary(), Lines{line(std::string(one.name) + "ERR: x")});
    }
}

TEST_F(LogSecondPass, OfATextWhoseCutSplitsAPairOfPercentSigns_ShowsTheOneThatIsLeft) {
    std::string const begin(251, 'r');
    rawlog(LIBRARY, 1, "%s", (begin + "%%r%%").c_str());
    EXPECT_EQ(mLog.systemLog()[0].text, begin + "%...");
    EXPECT_EQ(mLog.console(), Lines{begin + "%..."});
    EXPECT_EQ(mLog.binary(), Lines{begin + "%..."});
}

TEST_F(LogSecondPass, OfALineWhoseCutSplitsAPairOfPercentSigns_ShowsTheOneThatIsLeft) {
    std::string const begin = "<UTIL> ERR: " + std::string(217, 'm');
    applog(LIBRARY, 1, "%s", (std::string(217, 'm') + "%%mmm").c_str());
    EXPECT_EQ(mLog.systemLog()[0].text, begin + "%...");
    EXPECT_EQ(mLog.console(), Lines{line(begin + "%...")});
}

TEST_F(LogSecondPass, OfTheRealSystemLog_ShowsTheSame) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            openRealSinks();
            utltest::openSystemLog("utl-test");
            errno = ENOENT;
            applog(LIBRARY, 1, "%s", "100% sure, %n%s%d %% <%m> %");
            std::exit(3);
        },
        testing::ExitedWithCode(3),
        "utl-test: <UTIL> ERR: 100% sure, %n%s%d % <No such file or directory> %\n");
}

TEST_F(LogSecondPass, OfTheLongestTexts_HasRoomForEveryPercentSign) {
    std::string text;
    while (text.size() < 254) {
        text += "%s";
    }
    text += '%';
    rawlog(LIBRARY, 1, "%s", text.c_str());
    EXPECT_EQ(mLog.console(), Lines{text});
    EXPECT_EQ(mLog.systemLog()[0].text, text);
    EXPECT_EQ(mLog.binary(), Lines{text});
    std::string const halves(255, '%');
    rawlog(LIBRARY, 1, "%s", halves.c_str());
    EXPECT_EQ(mLog.console().back(), std::string(128, '%'));
}

TEST_F(LogSecondPass, ShowsTheErrnoOfTheCall_WhateverHappenedSince) {
    hooks::getTimeOfDay.failFrom(1, 0, -1, EFAULT);
    errno = ENOENT;
    applog(LIBRARY, 1, "%%m");
    EXPECT_EQ(mLog.systemLog()[0].text, "<UTIL> ERR: No such file or directory");
    EXPECT_EQ(mLog.console(), Lines{" <UTIL> ERR: No such file or directory\r\n"});
    EXPECT_EQ(mLog.binary(), Lines{" <UTIL> ERR: %m\r\n"});
}

TEST_F(LogSecondPass, ShowsTheErrnoOfTheCall_EvenIfTheFirstPassFailed) {
    errno = ENOENT;
    applog(LIBRARY, 1, "%%m%ls", L"\x110000");
    rawlog(LIBRARY, 1, "%%m%ls", L"\x110000");
    EXPECT_EQ(mLog.systemLog()[0].text, "<UTIL> ERR: No such file or directory...");
    EXPECT_EQ(mLog.systemLog()[1].text, "No such file or directory...");
    EXPECT_EQ(mLog.console(),
              (Lines{line("<UTIL> ERR: No such file or directory..."), "No such file or directory..."}));
}

// Raw texts.

TEST_F(RawLog, HandsTheSameBareTextToEverySink) {
    rawlog(LIBRARY, 2, "text %d", 7);
    EXPECT_EQ(mLog.systemLog()[0].priority, LOG_WARNING);
    EXPECT_EQ(mLog.systemLog()[0].text, "text 7");
    EXPECT_EQ(mLog.console(), Lines{"text 7"});
    EXPECT_EQ(mLog.binary(), Lines{"text 7"});
    EXPECT_EQ(mLog.sinkOrder(), "scb");
}

TEST_F(RawLog, OfLevelFour_GoesToStandardOutputAlone) {
    rawlog(LIBRARY, 4, "x");
    EXPECT_EQ(mLog.sinkOrder(), "c");
}

TEST_F(RawLog, OfAnEmptyText_LeavesOutTheBinarySinkAlone) {
    rawlog(LIBRARY, 1, "%s", "");
    EXPECT_EQ(mLog.sinkOrder(), "sc");
    EXPECT_EQ(mLog.console(), Lines{""});
    EXPECT_EQ(mLog.systemLog()[0].text, "");
}

TEST_F(RawLog, OfUpTo255Bytes_IsWhole) {
    for (std::size_t length : {1U, 252U, 253U, 254U, 255U}) {
        mLog.clear();
        std::string const text(length, 'r');
        rawlog(LIBRARY, 1, "%s", text.c_str());
        EXPECT_EQ(mLog.console(), Lines{text}) << length;
        EXPECT_EQ(mLog.binary(), Lines{text}) << length;
    }
}

TEST_F(RawLog, OfMoreThan255Bytes_Is252OfThemAndThreeDots) {
    for (std::size_t length : {256U, 257U, 300U, 5000U}) {
        mLog.clear();
        rawlog(LIBRARY, 1, "%s", std::string(length, 'r').c_str());
        std::string const text = std::string(252, 'r') + "...";
        EXPECT_EQ(mLog.console(), Lines{text}) << length;
        EXPECT_EQ(mLog.binary(), Lines{text}) << length;
        EXPECT_EQ(mLog.systemLog()[0].text, text) << length;
    }
}

TEST_F(RawLog, ThatCannotBeFormatted_EndsInThreeDotsAfterWhatCould) {
    rawlog(LIBRARY, 1, "%ls", L"\x110000");
    EXPECT_EQ(mLog.console(), Lines{"..."});
    EXPECT_EQ(mLog.binary(), Lines{"..."});
}

TEST_F(RawLog, DoesNotAskForTheTime) {
    hooks::getTimeOfDay.failFrom(0, 0, 0, 0);
    rawlog(LIBRARY, 1, "x");
    EXPECT_EQ(hooks::getTimeOfDay.calls(), 0U);
}

// Types and levels.

TEST_F(LogTypes, BuiltIn_AreMinusOneAndMinusTwoAtLevelFour) {
    EXPECT_EQ(utl::LOG_TYPE_LIBRARY, -2);
    EXPECT_EQ(utl::LOG_TYPE_DEFAULT, -1);
    EXPECT_EQ(getFilterLevel(-2), 4);
    EXPECT_EQ(getFilterLevel(-1), 4);
}

TEST_F(LogTypes, Unregistered_HaveTheLevelSixAndDoNotFallBack) {
    setFilterLevel(-1, 2);
    EXPECT_EQ(getFilterLevel(12345), 6);
    EXPECT_EQ(getFilterLevel(-1), 2);
}

TEST_F(LogTypes, SetFilterLevel_OfAnUnregisteredType_ChangesNothing) {
    setFilterLevel(7, 3);
    EXPECT_EQ(getFilterLevel(7), 6);
    EXPECT_EQ(getFilterLevel(-1), 4);
    EXPECT_EQ(getFilterLevel(-2), 4);
}

TEST_F(LogTypes, Levels_OutsideZeroToFour_AreStoredAsFive) {
    struct {
        int given;
        int stored;
    } const cases[] = {
        {0, 0}, {1, 1}, {4, 4}, {5, 5}, {6, 5}, {9, 5}, {0x7FFFFFFF, 5}, {-1, 5}, {-2147483647 - 1, 5}};
    for (auto const& one : cases) {
        registerLogType(25, "x", one.given);
        EXPECT_EQ(getFilterLevel(25), one.stored) << one.given;
        setFilterLevel(LIBRARY, one.given);
        EXPECT_EQ(getFilterLevel(LIBRARY), one.stored) << one.given;
        setAllFilterLevel(one.given);
        EXPECT_EQ(getFilterLevel(-1), one.stored) << one.given;
    }
}

TEST_F(LogTypes, SetAllFilterLevel_ReachesEveryEntry) {
    registerLogType(26, "x", 1);
    registerLogType(-26, "x", 2);
    setAllFilterLevel(3);
    for (int type : {26, -26, -1, -2}) {
        EXPECT_EQ(getFilterLevel(type), 3) << type;
    }
}

TEST_F(LogTypes, SetFilterLevel_KeepsTheName) {
    registerLogType(27, "kept ", 1);
    setFilterLevel(27, 4);
    applog(27, 4, "x");
    EXPECT_EQ(mLog.console(), Lines{line("kept DTL: x")});
}

TEST_F(LogTypes, RegisteringASecondTime_ReplacesNameAndLevel) {
    EXPECT_EQ(registerLogType(28, "x ", 9), 1);
    EXPECT_EQ(getFilterLevel(28), 5);
    EXPECT_EQ(registerLogType(28, "y ", 1), 1);
    EXPECT_EQ(getFilterLevel(28), 1);
    applog(28, 1, "z");
    EXPECT_EQ(mLog.console(), Lines{line("y ERR: z")});
}

TEST_F(LogTypes, ANameOfUpTo31Bytes_IsAcceptedAndALongerOneIsNot) {
    EXPECT_EQ(registerLogType(29, "", 4), 1);
    EXPECT_EQ(registerLogType(29, std::string(30, 'a').c_str(), 4), 1);
    EXPECT_EQ(registerLogType(29, std::string(31, 'b').c_str(), 3), 1);
    EXPECT_EQ(registerLogType(29, std::string(32, 'c').c_str(), 2), 0);
    EXPECT_EQ(registerLogType(29, std::string(1000, 'd').c_str(), 2), 0);
    EXPECT_EQ(registerLogType(29, nullptr, 2), 0);
    EXPECT_EQ(getFilterLevel(29), 3);
    applog(29, 1, "x");
    EXPECT_EQ(mLog.console(), Lines{line(std::string(31, 'b') + "ERR: x")});
}

TEST_F(LogTypes, ARefusedName_RegistersNothing) {
    EXPECT_EQ(registerLogType(30, nullptr, 2), 0);
    EXPECT_EQ(registerLogType(30, std::string(32, 'c').c_str(), 2), 0);
    EXPECT_EQ(getFilterLevel(30), 6);
}

TEST_F(LogTypes, ANewNameIsThatOfTheNextLine_WithoutRestsOfTheOld) {
    registerLogType(29, std::string(31, 'b').c_str(), 4);
    registerLogType(29, "", 4);
    applog(29, 1, "x");
    EXPECT_EQ(mLog.console(), Lines{line("ERR: x")});
}

TEST_F(LogTypes, ATagOfUpTo31Bytes_IsAcceptedAndShownNowhere) {
    EXPECT_EQ(setLogTag(""), 1);
    EXPECT_EQ(setLogTag(std::string(32, 'T').c_str()), 0);
    EXPECT_EQ(setLogTag(nullptr), 0);
    EXPECT_EQ(setLogTag(std::string(31, 'T').c_str()), 1);
    applog(LIBRARY, 1, "x");
    rawlog(LIBRARY, 1, "y");
    EXPECT_EQ(mLog.console(), (Lines{line("<UTIL> ERR: x"), "y"}));
    EXPECT_EQ(mLog.systemLog()[0].text, "<UTIL> ERR: x");
}

TEST_F(LogTypes, BeforeMain_CanBeRegisteredAndLoggedTo) {
    EXPECT_TRUE(gBeforeMain.isRegistered);
    EXPECT_EQ(gBeforeMain.level, 4);
    applog(4711, 1, "x");
    EXPECT_EQ(mLog.console(), Lines{line("EARLY ERR: x")});
}

// The last of the types: it leaves the table full.
TEST_F(LogTypes, BeyondSixtyFourEntries_NewOnesAreRefusedAndRegisteredOnesStillReplaced) {
    int type = 1000;
    while (registerLogType(type, "full ", 4) == 1) {
        ++type;
        ASSERT_LE(type, 1062);
    }
    EXPECT_EQ(getFilterLevel(type), 6);
    EXPECT_EQ(registerLogType(-1000, "x", 4), 0);
    EXPECT_EQ(registerLogType(1000, "again ", 3), 1);
    EXPECT_EQ(registerLogType(-1, "", 4), 1);
    EXPECT_EQ(registerLogType(-2, "<UTIL> ", 4), 1);
    applog(1000, 1, "x");
    applog(type, 1, "y");
    EXPECT_EQ(mLog.console(), (Lines{line("again ERR: x"), line("ERR: y")}));
}

TEST_F(LogTypes, InATableOfItsOwn_SixtyTwoFitBesideTheBuiltInOnes) {
    // Counts what is there: this test may run after the others or alone.
    int entries = 0;
    for (int type = -1000; type < 6000; ++type) {
        entries += getFilterLevel(type) != 6 ? 1 : 0;
    }
    for (int type = 2000; registerLogType(type, "x", 4) == 1; ++type) {
        ++entries;
    }
    EXPECT_EQ(entries, 64);
}

// The end of the process.

void silenceStandardOutput() {
    if (std::freopen("/dev/null", "w", stdout) == nullptr) {
        std::abort();
    }
}

struct LogsAtItsEnd {
    ~LogsAtItsEnd() { applog(LIBRARY, 1, "%s", mText.c_str()); }
    std::string mText = "the end";
};

TEST(LogAtExit, AStaticObjectAndAnExitHandler_MayStillLog) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            silenceStandardOutput();
            static LogsAtItsEnd const object;
            std::atexit([] { applog(LIBRARY, 1, "exit handler"); });
            std::exit(3);
        },
        testing::ExitedWithCode(3), "");
}

TEST(LogAtExit, ItsTableAndLocksAreNeverDestroyed) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            silenceStandardOutput();
            utltest::exitAndCheckLast([] {
                applog(LIBRARY, 1, "the very last");
                return registerLogType(32, "late ", 3) == 1 && getFilterLevel(32) == 3;
            });
        },
        testing::ExitedWithCode(3), "");
}

TEST(LogAtExit, ThreadsMayLogWhileTheProcessEnds) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            silenceStandardOutput();
            static std::atomic<int> running{0};
            for (int i = 0; i < 3; ++i) {
                std::thread([] {
                    for (;;) {
                        applog(LIBRARY, 1, "line");
                        ++running;
                    }
                }).detach();
            }
            while (running < 100) {
                std::this_thread::yield();
            }
            std::exit(3);
        },
        testing::ExitedWithCode(3), "");
}

// The two locks: which call takes which of them, and for how long.

/// What the library does on the calling thread while the object lives: "+1" and "-1" for taking and giving
/// back the first mutex that it touched, "+2" and "-2" for the next one, a letter for each sink, 't' for the
/// clock.
class LockTrace {
  public:
    LockTrace() { tCurrent = this; }
    ~LockTrace() { tCurrent = nullptr; }
    LockTrace(LockTrace const&) = delete;
    LockTrace& operator=(LockTrace const&) = delete;

    std::string const& text() const { return mText; }

    static void note(char letter) {
        if (tCurrent != nullptr) {
            tCurrent->mText += letter;
        }
    }

    static void noteLock(pthread_mutex_t* mutex) {
        if (tCurrent != nullptr) {
            if (!tCurrent->takenBefore(mutex)) {
                tCurrent->mMutexes.push_back(mutex);
            }
            tCurrent->add('+', mutex);
        }
    }

    static void noteUnlock(pthread_mutex_t* mutex) {
        if (tCurrent != nullptr) {
            tCurrent->add('-', mutex);
        }
    }

  private:
    bool takenBefore(void const* mutex) const {
        return std::find(mMutexes.begin(), mMutexes.end(), mutex) != mMutexes.end();
    }

    void add(char sign, void const* mutex) {
        auto const place = std::find(mMutexes.begin(), mMutexes.end(), mutex);
        mText += sign + std::to_string(place - mMutexes.begin() + 1);
    }

    static thread_local LockTrace* tCurrent;

    std::string mText;
    std::vector<void const*> mMutexes;
};

thread_local LockTrace* LockTrace::tCurrent = nullptr;

class LogLocks : public testing::Test {
  protected:
    LogLocks() {
        mLog.atEachSink(LockTrace::note);
        utltest::hooks::mutexLock.watch(LockTrace::noteLock);
        utltest::hooks::mutexUnlock.watch(LockTrace::noteUnlock);
        utltest::hooks::getTimeOfDay.replace([](timeval* now, void* zone) {
            LockTrace::note('t');
            return utltest::hooks::getTimeOfDay.real(now, zone);
        });
    }

    /// The trace of `work`, in which 1 is the lock of the table and 2 that of the output.
    template <typename WORK>
    static std::string traceOf(WORK work) {
        LockTrace const trace;
        applog(LIBRARY, 4, "first");
        std::string const first = "+1-1t+2c-2";
        EXPECT_EQ(trace.text(), first);
        work();
        return trace.text().substr(first.size());
    }

    utltest::LogCapture mLog;

  private:
    utltest::HookScope mHooks;
};

TEST_F(LogLocks, OfALine_AreTakenOneByOne_ThatOfTheOutputForEachSinkAnew) {
    EXPECT_EQ(traceOf([] { applog(LIBRARY, 1, "x"); }), "+1-1t+2s-2+2c-2+2b-2");
    EXPECT_EQ(traceOf([] { rawlog(LIBRARY, 1, "x"); }), "+1-1+2s-2+2c-2+2b-2");
}

TEST_F(LogLocks, OfALineThatIsFilteredOut_AreNotTaken) {
    EXPECT_EQ(traceOf([] { applog(LIBRARY, 5, "x"); }), "");
    EXPECT_EQ(traceOf([] { rawlog(LIBRARY, 5, "x"); }), "");
    EXPECT_EQ(traceOf([] { applog(12345, 5, "x"); }), "");
}

TEST_F(LogLocks, OfALineThatIsFilteredOut_AreNotTakenForAnyTypeOfAFullTable) {
    for (int type = 1000; registerLogType(type, "x", 4) == 1; ++type) {
    }
    EXPECT_EQ(traceOf([] {
                  for (int type = 900; type < 1100; ++type) {
                      applog(type, 5, "x");
                  }
              }),
              "");
}

TEST_F(LogLocks, OfEveryCallOnTypes_AreThatOfTheTable) {
    EXPECT_EQ(traceOf([] { registerLogType(31, "x", 4); }), "+1-1");
    EXPECT_EQ(traceOf([] { setFilterLevel(31, 4); }), "+1-1");
    EXPECT_EQ(traceOf([] { setAllFilterLevel(4); }), "+1-1");
    EXPECT_EQ(traceOf([] { getFilterLevel(31); }), "+1-1");
}

TEST_F(LogLocks, OfTheTag_IsThatOfTheOutput) {
    EXPECT_EQ(traceOf([] { setLogTag("tag"); }), "+2-2");
}

// How many threads are inside a sink at the moment, and how often one met another there.
std::atomic<unsigned int> gInside{0};
std::atomic<unsigned int> gMeetings{0};

TEST_F(LogLocks, LetOneThreadIntoTheSinksAtATime) {
    mLog.atEachSink([](char) {
        gMeetings += ++gInside > 1 ? 1U : 0U;
        std::this_thread::yield();  // which may take long where others want the processor
        --gInside;
    });
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([] {
            for (int i = 0; i < 20; ++i) {
                applog(LIBRARY, 1, "x");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(gMeetings, 0U);
}

TEST_F(LogLocks, LetASinkLogItself) {
    struct {
        char sink;
        char const* order;
    } const cases[] = {{'s', "scbscb"}, {'c', "sscbcb"}, {'b', "scscbb"}};
    for (auto const& one : cases) {
        static char theSink;
        theSink = one.sink;
        mLog.clear();
        mLog.atEachSink([](char sink) {
            if (sink == theSink) {
                theSink = '\0';
                applog(LIBRARY, 1, "inside");
            }
        });
        applog(LIBRARY, 1, "outside");
        EXPECT_EQ(mLog.sinkOrder(), one.order);
    }
}

}  // namespace

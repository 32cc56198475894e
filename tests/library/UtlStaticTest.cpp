// A program that links the static form of the library and brings two of the three platform functions. The
// third is the built-in one: that both may be had from one archive is what the weak definitions are for.

#include <gtest/gtest.h>

#include <string>

#include "UtlAttribConvert.h"
#include "UtlCharAttrib.h"
#include "UtlCharSet.h"
#include "UtlLog.h"
#include "UtlPlatform.h"
#include "UtlThreadWatchdog.h"

namespace {

std::string gWritten;
int gChannel = 0;

}  // namespace

void BinaryLogWrite(int channel, void const* text, unsigned int bytes) {
    gChannel = channel;
    gWritten.append(static_cast<char const*>(text), bytes);
}

int jk_mbtowc(wchar_t*, unsigned int, char const*, unsigned int, EN_KCP) {
    return 4711;
}

// The tests' lines are none of the system's business.
extern "C" void syslog(int, char const*, ...) {}

namespace {

TEST(StaticLibrary, CallsTheFunctionThatTheProgramDefines) {
    applog(utl::LOG_TYPE_LIBRARY, utl::LOG_LEVEL_ERROR, "hello %d", 1);
    EXPECT_EQ(gChannel, 3);
    EXPECT_NE(gWritten.find("hello 1"), std::string::npos) << gWritten;
}

TEST(StaticLibrary, HasNoSecondDefinitionInTheProgramsWay) {
    EXPECT_EQ(jk_mbtowc(nullptr, 0, nullptr, 0, EN_KCP_UTF8), 4711);
}

TEST(StaticLibrary, KeepsTheBuiltInFunctionThatTheProgramLeavesOut) {
    char text[4] = "";
    EXPECT_EQ(jk_wctomb(text, 3, L"\x3042", 1, EN_KCP_UTF8), 3);
    EXPECT_STREQ(text, "\xE3\x81\x82");
}

// Uses tables and constants while the program is being initialised, before all initialisers that
// come from the library: those of a shared library have run by then in any case.
struct EarlyUser {
    EarlyUser()
        : digit(utl::ZEN_DIGIT_TBL[9].mNarrow),
          digitSize(utl::attribBlockSize(digit, utl::ATTRIB_ZEN_DIGIT)),
          kanaSize(utl::convertAttrib(kana, sizeof(kana), "ｶﾞ", utl::HANKAKU_ZENKAKU_PAIR, 0, 0)),
          sjisSize(utl::convertStrFromUtf8ToSjis(sjis, sizeof(sjis), "あｱz亜")),
          utf8Size(utl::convertStrFromSjisToUtf8(utf8, sizeof(utf8), "\x82\xA0\xB1z\x88\x9F")),
          isNoPlaceThere(utl::StatementInfo::INVALID == utl::StatementInfo("", "", 0, 0)),
          isNoThreadThere(utl::WatchdogInfo::INVALID == utl::WatchdogInfo()),
          nameOfNoThread(utl::WatchdogInfo::INVALID.name.buffer()) {}

    char const* digit;
    unsigned int digitSize;
    char kana[8]{};
    unsigned int kanaSize;
    char sjis[16]{};
    unsigned int sjisSize;
    char utf8[16]{};
    unsigned int utf8Size;
    bool isNoPlaceThere;
    bool isNoThreadThere;
    char const* nameOfNoThread;
};

[[gnu::init_priority(101)]] EarlyUser gEarlyUser;

TEST(StaticLibrary, HasItsCodeTablesFilledBeforeAnyInitialiserRuns) {
    EXPECT_STREQ(gEarlyUser.digit, "９");
    EXPECT_EQ(gEarlyUser.digitSize, 3U);
}

TEST(StaticLibrary, HasItsPairTablesFilledBeforeAnyInitialiserRuns) {
    EXPECT_STREQ(gEarlyUser.kana, "ガ");
    EXPECT_EQ(gEarlyUser.kanaSize, 4U);
}

TEST(StaticLibrary, HasItsTablesOfCharacterSetsFilledBeforeAnyInitialiserRuns) {
    EXPECT_EQ(gEarlyUser.sjisSize, 7U);
    EXPECT_STREQ(gEarlyUser.sjis, "\x82\xA0\xB1z\x88\x9F");
    EXPECT_EQ(gEarlyUser.utf8Size, 11U);
    EXPECT_STREQ(gEarlyUser.utf8, "あｱz亜");
}

TEST(StaticLibrary, HasItsInvalidStatementAndRecordBeforeAnyInitialiserRuns) {
    EXPECT_TRUE(gEarlyUser.isNoPlaceThere);
    EXPECT_TRUE(gEarlyUser.isNoThreadThere);
    EXPECT_STREQ(gEarlyUser.nameOfNoThread, "");
}

}  // namespace

// Starts no thread.

// A program that brings platform functions of its own. (Every test program brings a `BinaryLogWrite`.)

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "TestLog.h"
#include "UtlCharSet.h"
#include "UtlLog.h"
#include "UtlPlatform.h"

namespace {

// What the program's converters were asked, and what they answer. They write what they are told to.
struct Asked {
    void const* dst;
    unsigned int room;
    void const* src;
    long long length;
    int codePage;
};

Asked gAsked;
int gAnswer;

}  // namespace

int jk_mbtowc(wchar_t* dst, unsigned int dstCount, char const* src, unsigned int srcBytes, EN_KCP codePage) {
    gAsked = {dst, dstCount, src, srcBytes, codePage};
    for (int i = 0; i < gAnswer; ++i) {
        dst[i] = L'w';
    }
    return gAnswer;
}

int jk_wctomb(char* dst, unsigned int dstBytes, wchar_t const* src, int srcCount, EN_KCP codePage) {
    gAsked = {dst, dstBytes, src, srcCount, codePage};
    for (int i = 0; i < gAnswer; ++i) {
        dst[i] = 'c';
    }
    return gAnswer;
}

namespace {

// What a call from any library of the process finds, and what the library itself defines.
template <typename FUNCTION>
void expectReplaced(char const* name, FUNCTION* own) {
    void* const library = dlopen("libutl.so.0", RTLD_LAZY);
    ASSERT_NE(library, nullptr);
    auto const found = reinterpret_cast<FUNCTION*>(dlsym(RTLD_DEFAULT, name));
    auto const builtIn = reinterpret_cast<FUNCTION*>(dlsym(library, name));
    EXPECT_EQ(found, own) << name;
    ASSERT_NE(builtIn, nullptr) << name;
    EXPECT_NE(builtIn, own) << name;
    dlclose(library);
}

TEST(Platform, FunctionsThatAProgramDefines_StandInForTheBuiltInOnes) {
    expectReplaced("jk_mbtowc", &jk_mbtowc);
    expectReplaced("jk_wctomb", &jk_wctomb);
    expectReplaced("BinaryLogWrite", &BinaryLogWrite);
}

TEST(Platform, TheLibrary_CallsWhatTheProgramDefines) {
    utltest::LogCapture const log;
    applog(-2, 1, "%s", "hello");
    ASSERT_EQ(log.binary().size(), 1U);
    EXPECT_NE(log.binary()[0].find("hello"), std::string::npos);
}

void expectAsked(void const* dst, unsigned int room, void const* src, long long length) {
    EXPECT_EQ(gAsked.dst, dst);
    EXPECT_EQ(gAsked.room, room);
    EXPECT_EQ(gAsked.src, src);
    EXPECT_EQ(gAsked.length, length);
    EXPECT_EQ(gAsked.codePage, 32);
}

TEST(Platform, TheProgramsConverter_IsAskedForCodePage32AndTheWholeTextWithoutItsTerminator) {
    wchar_t wide[4] = {7, 7, 7, 7};
    char const* const bytes = "a\xFFz";
    gAnswer = 2;
    EXPECT_EQ(utl::convertStrFromTcharToWchar(wide, 4, bytes), 3U);
    expectAsked(wide, 4, bytes, 3);
    EXPECT_EQ(std::wstring(wide, 4), std::wstring({L'w', L'w', L'\0', 7}));

    char narrow[9] = "~~~~~~~~";
    wchar_t const* const characters = L"ab";
    gAnswer = 5;
    EXPECT_EQ(utl::convertStrFromWcharToTchar(narrow, 8, characters), 6U);
    expectAsked(narrow, 8, characters, 2);
    EXPECT_EQ(std::string(narrow, 8), std::string("ccccc\0~~", 8));
}

TEST(Platform, AResultBelow1OfTheProgramsConverter_IsAFailure) {
    wchar_t wide[2] = {7, 7};
    char narrow[2] = {'~', '~'};
    for (int answer : {0, -1, INT_MIN}) {
        gAnswer = answer;
        EXPECT_EQ(utl::convertStrFromTcharToWchar(wide, 2, "a"), utl::INVALID_SIZE);
        EXPECT_EQ(utl::convertStrFromWcharToTchar(narrow, 2, L"a"), utl::INVALID_SIZE);
    }
    EXPECT_EQ(wide[0], 7);
    EXPECT_EQ(narrow[0], '~');
}

TEST(Platform, AResultThatLeavesNoPlaceForTheTerminator_IsAFailure) {
    wchar_t wide[2] = {7, 7};
    char narrow[2] = {'~', '~'};
    gAnswer = 2;
    EXPECT_EQ(utl::convertStrFromTcharToWchar(wide, 2, "abc"), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromWcharToTchar(narrow, 2, L"abc"), utl::INVALID_SIZE);
    gAnswer = 1;
    EXPECT_EQ(utl::convertStrFromTcharToWchar(wide, 2, "abc"), 2U);
    EXPECT_EQ(utl::convertStrFromWcharToTchar(narrow, 2, L"abc"), 2U);
}

TEST(Platform, EmptyTextAndTheQuestionForASize_NeverReachTheProgramsConverter) {
    wchar_t wide = 7;
    char narrow = '~';
    gAsked = {};
    gAnswer = 1;
    EXPECT_EQ(utl::convertStrFromTcharToWchar(&wide, 1, ""), 1U);
    EXPECT_EQ(utl::convertStrFromTcharToWchar(nullptr, 0, "abc"), 4U);
    EXPECT_EQ(utl::convertStrFromTcharToWchar(nullptr, 9, "abc"), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromWcharToTchar(&narrow, 1, L""), 1U);
    EXPECT_EQ(utl::convertStrFromWcharToTchar(nullptr, 0, L"abc"), 19U);
    EXPECT_EQ(utl::convertStrFromWcharToTchar(nullptr, 9, L"abc"), utl::INVALID_SIZE);
    EXPECT_EQ(gAsked.codePage, 0);
}

}  // namespace

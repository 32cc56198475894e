// A program that brings platform functions of its own. (Every test program brings a `BinaryLogWrite`.)

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "TestLog.h"
#include "UtlLog.h"
#include "UtlPlatform.h"

int jk_mbtowc(wchar_t*, unsigned int, char const*, unsigned int, EN_KCP) {
    return 4711;
}

int jk_wctomb(char*, unsigned int, wchar_t const*, int, EN_KCP) {
    return 4712;
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
    EXPECT_EQ(jk_mbtowc(nullptr, 0, nullptr, 0, EN_KCP_UTF8), 4711);
    EXPECT_EQ(jk_wctomb(nullptr, 0, nullptr, 0, EN_KCP_UTF8), 4712);
}

TEST(Platform, TheLibrary_CallsWhatTheProgramDefines) {
    utltest::LogCapture const log;
    applog(-2, 1, "%s", "hello");
    ASSERT_EQ(log.binary().size(), 1U);
    EXPECT_NE(log.binary()[0].find("hello"), std::string::npos);
}

}  // namespace

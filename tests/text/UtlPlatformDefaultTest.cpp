// Starts no thread.

#include "UtlPlatform.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

// The built-in platform functions. The tests link a `BinaryLogWrite` of their own, so the built-in one is
// asked for at the library itself.

namespace {

static_assert(std::is_same_v<utl::tchar, char>);

// Marks a place that must not be written to.
constexpr wchar_t UNTOUCHED_WIDE = 0x7EADBEEF;
constexpr char UNTOUCHED = '#';

// A copy without a byte to spare, so that a step beyond it is seen.
template <typename T>
std::unique_ptr<T[]> exactly(std::basic_string<T> const& text) {
    auto copy = std::make_unique<T[]>(text.size());
    std::copy(text.begin(), text.end(), copy.get());
    return copy;
}

// Converts into exactly the room given. A result that leaves room must be terminated, and nothing may be
// written after that; a failure writes nothing at all.
template <typename TO, typename CONVERT>
int converted(unsigned int room, TO untouched, std::basic_string<TO>* result, CONVERT convert) {
    auto const dst = exactly(std::basic_string<TO>(room, untouched));
    int const count = convert(dst.get());
    unsigned int const written = static_cast<unsigned int>(std::max(count, 0));
    EXPECT_LE(written, room);
    result->assign(dst.get(), std::min(written, room));
    bool const isTerminated = count > 0 && written < room;
    if (isTerminated) {
        EXPECT_EQ(dst[written], TO());
    }
    for (unsigned int i = written + (isTerminated ? 1 : 0); i < room; ++i) {
        EXPECT_EQ(dst[i], untouched) << i;
    }
    return count;
}

int toWide(std::string const& text, unsigned int room, std::wstring* result) {
    auto const src = exactly(text);
    auto const bytes = static_cast<unsigned int>(text.size());
    return converted(room, UNTOUCHED_WIDE, result,
                     [&](wchar_t* dst) { return jk_mbtowc(dst, room, src.get(), bytes, EN_KCP_UTF8); });
}

int toBytes(std::wstring const& text, unsigned int room, std::string* result) {
    auto const src = exactly(text);
    auto const count = static_cast<int>(text.size());
    return converted(room, UNTOUCHED, result,
                     [&](char* dst) { return jk_wctomb(dst, room, src.get(), count, EN_KCP_UTF8); });
}

struct Sample {
    std::wstring wide;
    std::string bytes;
};

std::wstring wide(unsigned int code) {
    return std::wstring(1, static_cast<wchar_t>(code));
}

// The first and the last character of each length, and both neighbours of the surrogates.
std::vector<Sample> const SAMPLES{
    {wide(0), std::string(1, '\0')},
    {wide(1), "\x01"},
    {wide(0x7F), "\x7F"},
    {wide(0x80), "\xC2\x80"},
    {wide(0x7FF), "\xDF\xBF"},
    {wide(0x800), "\xE0\xA0\x80"},
    {wide(0xD7FF), "\xED\x9F\xBF"},
    {wide(0xE000), "\xEE\x80\x80"},
    {wide(0xFEFF), "\xEF\xBB\xBF"},
    {wide(0xFFFF), "\xEF\xBF\xBF"},
    {wide(0x10000), "\xF0\x90\x80\x80"},
    {wide(0x10FFFF), "\xF4\x8F\xBF\xBF"},
    {L"a\u3042\u6F22\U00020B9Fz", "a\xE3\x81\x82\xE6\xBC\xA2\xF0\xA0\xAE\x9Fz"},
};

TEST(DefaultConverter, Samples_AreConvertedBothWaysIntoExactlyTheRoomNeeded) {
    for (Sample const& sample : SAMPLES) {
        std::wstring wideResult;
        std::string byteResult;
        EXPECT_EQ(toWide(sample.bytes, static_cast<unsigned int>(sample.wide.size()), &wideResult),
                  static_cast<int>(sample.wide.size()));
        EXPECT_EQ(wideResult, sample.wide);
        EXPECT_EQ(toBytes(sample.wide, static_cast<unsigned int>(sample.bytes.size()), &byteResult),
                  static_cast<int>(sample.bytes.size()));
        EXPECT_EQ(byteResult, sample.bytes);
    }
}

TEST(DefaultConverter, WithRoomLeft_WritesATerminatorThatDoesNotCount) {
    for (Sample const& sample : SAMPLES) {
        for (unsigned int left : {1U, 2U, 7U}) {
            std::wstring wideResult;
            std::string byteResult;
            EXPECT_EQ(toWide(sample.bytes, static_cast<unsigned int>(sample.wide.size()) + left, &wideResult),
                      static_cast<int>(sample.wide.size()));
            EXPECT_EQ(wideResult, sample.wide);
            EXPECT_EQ(
                toBytes(sample.wide, static_cast<unsigned int>(sample.bytes.size()) + left, &byteResult),
                static_cast<int>(sample.bytes.size()));
            EXPECT_EQ(byteResult, sample.bytes);
        }
    }
}

TEST(DefaultConverter, TheTerminator_StandsDirectlyBehindTheText) {
    wchar_t wideDst[] = {UNTOUCHED_WIDE, UNTOUCHED_WIDE, UNTOUCHED_WIDE, UNTOUCHED_WIDE};
    char dst[] = {UNTOUCHED, UNTOUCHED, UNTOUCHED, UNTOUCHED};
    EXPECT_EQ(jk_mbtowc(wideDst, 2, "ab", 2, EN_KCP_UTF8), 2);
    EXPECT_EQ(jk_wctomb(dst, 2, L"ab", 2, EN_KCP_UTF8), 2);
    EXPECT_EQ(wideDst[2], UNTOUCHED_WIDE);
    EXPECT_EQ(dst[2], UNTOUCHED);
    EXPECT_EQ(jk_mbtowc(wideDst, 3, "ab", 2, EN_KCP_UTF8), 2);
    EXPECT_EQ(jk_wctomb(dst, 3, L"ab", 2, EN_KCP_UTF8), 2);
    EXPECT_EQ(std::wstring(wideDst, 4), (std::wstring{L'a', L'b', L'\0', UNTOUCHED_WIDE}));
    EXPECT_EQ(std::string(dst, 4), (std::string{'a', 'b', '\0', UNTOUCHED}));
}

TEST(DefaultConverter, WithTooLittleRoom_FailsAndWritesNothing) {
    for (Sample const& sample : SAMPLES) {
        std::wstring wideResult;
        std::string byteResult;
        for (unsigned int room = 0; room < sample.wide.size(); ++room) {
            EXPECT_EQ(toWide(sample.bytes, room, &wideResult), 0);
        }
        for (unsigned int room = 0; room < sample.bytes.size(); ++room) {
            EXPECT_EQ(toBytes(sample.wide, room, &byteResult), 0);
        }
    }
}

TEST(DefaultConverter, EveryCharacter_SurvivesTheWayThereAndBack) {
    for (unsigned int code = 0; code <= 0x10FFFF; ++code) {
        if (code == 0xD800) {
            code = 0xE000;
        }
        wchar_t const there = static_cast<wchar_t>(code);
        char bytes[4];
        int const length = jk_wctomb(bytes, sizeof(bytes), &there, 1, EN_KCP_UTF8);
        ASSERT_GE(length, 1);
        wchar_t back = UNTOUCHED_WIDE;
        ASSERT_EQ(jk_mbtowc(&back, 1, bytes, static_cast<unsigned int>(length), EN_KCP_UTF8), 1);
        ASSERT_EQ(back, there);
    }
}

TEST(DefaultConverter, MalformedText_FailsWhereverItStands) {
    std::vector<std::string> const malformed{
        "\x80",              // a continuation without a start
        "\xBF",              //
        "\xC0\x80",          // longer than needed
        "\xC1\xBF",          //
        "\xE0\x80\x80",      //
        "\xE0\x9F\xBF",      //
        "\xF0\x80\x80\x80",  //
        "\xF0\x8F\xBF\xBF",  //
        "\xED\xA0\x80",      // surrogates
        "\xED\xBF\xBF",      //
        "\xF4\x90\x80\x80",  // beyond the last character
        "\xF7\xBF\xBF\xBF",  //
        "\xF8\x88\x80\x80\x80",
        "\xFC\x84\x80\x80\x80\x80",
        "\xFE",
        "\xFF",
        "\xC3",  // incomplete
        "\xE3\x81",
        "\xE3",
        "\xF0\xA0\xAE",
        "\xC3\xC3\xA9",  // a start where a continuation should be
        "\xC3\x41",
        "\xE3\x81\x41",
        "\xE3\x41\x82",
        "\xF0\xA0\xAE\x41",
    };
    for (std::string const& bytes : malformed) {
        for (std::string const& text : {bytes, "a" + bytes, bytes + "a", "\xE3\x81\x82" + bytes}) {
            std::wstring result;
            EXPECT_EQ(toWide(text, 16, &result), 0) << testing::PrintToString(text);
        }
    }
}

TEST(DefaultConverter, WhatIsNoCharacter_Fails) {
    for (unsigned int code :
         {0xD800U, 0xDBFFU, 0xDC00U, 0xDFFFU, 0x110000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        std::string result;
        EXPECT_EQ(toBytes(wide(code), 16, &result), 0) << code;
        EXPECT_EQ(toBytes(L"a" + wide(code), 16, &result), 0) << code;
        EXPECT_EQ(toBytes(wide(code) + L"a", 16, &result), 0) << code;
    }
}

TEST(DefaultConverter, EmptyText_Fails) {
    std::wstring wideResult;
    std::string byteResult;
    EXPECT_EQ(toWide("", 4, &wideResult), 0);
    EXPECT_EQ(toBytes(L"", 4, &byteResult), 0);
    char dst = UNTOUCHED;
    for (int count : {-1, INT_MIN}) {
        EXPECT_EQ(jk_wctomb(&dst, 1, L"a", count, EN_KCP_UTF8), 0);
    }
    EXPECT_EQ(dst, UNTOUCHED);
}

TEST(DefaultConverter, NullPointers_Fail) {
    wchar_t wideDst = UNTOUCHED_WIDE;
    char dst = UNTOUCHED;
    EXPECT_EQ(jk_mbtowc(nullptr, 1, "a", 1, EN_KCP_UTF8), 0);
    EXPECT_EQ(jk_mbtowc(&wideDst, 1, nullptr, 1, EN_KCP_UTF8), 0);
    EXPECT_EQ(jk_wctomb(nullptr, 1, L"a", 1, EN_KCP_UTF8), 0);
    EXPECT_EQ(jk_wctomb(&dst, 1, nullptr, 1, EN_KCP_UTF8), 0);
    EXPECT_EQ(wideDst, UNTOUCHED_WIDE);
    EXPECT_EQ(dst, UNTOUCHED);
}

TEST(DefaultConverter, AnotherCodePage_Fails) {
    static_assert(EN_KCP_UTF8 == 32);
    wchar_t wideDst = UNTOUCHED_WIDE;
    char dst = UNTOUCHED;
    for (int page : {0, 31, 33, 63}) {
        EXPECT_EQ(jk_mbtowc(&wideDst, 1, "a", 1, static_cast<EN_KCP>(page)), 0);
        EXPECT_EQ(jk_wctomb(&dst, 1, L"a", 1, static_cast<EN_KCP>(page)), 0);
    }
    EXPECT_EQ(wideDst, UNTOUCHED_WIDE);
    EXPECT_EQ(dst, UNTOUCHED);
}

TEST(DefaultConverter, RoomBeyondTheSignedRange_IsRoom) {
    wchar_t wideDst[] = {UNTOUCHED_WIDE, UNTOUCHED_WIDE, UNTOUCHED_WIDE};
    char dst[] = {UNTOUCHED, UNTOUCHED, UNTOUCHED};
    EXPECT_EQ(jk_mbtowc(wideDst, UINT_MAX, "a", 1, EN_KCP_UTF8), 1);
    EXPECT_EQ(jk_wctomb(dst, UINT_MAX, L"a", 1, EN_KCP_UTF8), 1);
    EXPECT_EQ(std::wstring(wideDst, 3), (std::wstring{L'a', L'\0', UNTOUCHED_WIDE}));
    EXPECT_EQ(std::string(dst, 3), (std::string{'a', '\0', UNTOUCHED}));
}

TEST(DefaultLogSink, DropsTheText) {
    void* const library = dlopen("libutl.so.0", RTLD_LAZY);
    ASSERT_NE(library, nullptr);
    auto const sink = reinterpret_cast<decltype(&BinaryLogWrite)>(dlsym(library, "BinaryLogWrite"));
    ASSERT_NE(sink, nullptr);
    ASSERT_NE(sink, &BinaryLogWrite);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    sink(3, "text", 4);
    sink(3, nullptr, 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    dlclose(library);
}

}  // namespace

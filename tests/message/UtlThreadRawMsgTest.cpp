// Starts no thread.

#include "UtlThreadRawMsg.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <cwchar>
#include <string>
#include <utility>
#include <vector>

namespace {

using utl::ThreadRawMsg;

constexpr unsigned int ID_BYTES = ThreadRawMsg::ID_BYTES;
static_assert(ID_BYTES == 4);

static_assert(noexcept(std::declval<ThreadRawMsg&>().buffer()));
static_assert(noexcept(std::declval<ThreadRawMsg const&>().maxSize()));

// One value of each type of fixed size, set and got with and without room.
template <typename T>
void expectFixedSize(T value, unsigned int bytes) {
    SCOPED_TRACE(testing::Message() << "type of " << sizeof(T) << " bytes");
    ThreadRawMsg exact(ID_BYTES + bytes);
    exact.beginInput();
    EXPECT_EQ(exact.set(value), 1);
    EXPECT_EQ(std::memcmp(exact.buffer() + ID_BYTES, &value, bytes), 0);
    EXPECT_EQ(exact.set(value), 0);
    EXPECT_EQ(exact.getResult(), -1);

    T out{};
    exact.beginOutput();
    EXPECT_EQ(exact.get(&out), 1);
    EXPECT_EQ(out, value);
    T untouched = value;
    EXPECT_EQ(exact.get(&untouched), 0);
    EXPECT_EQ(exact.getResult(), -1);
    EXPECT_EQ(untouched, value);
}

template <typename T>
void expectNullOutFails() {
    ThreadRawMsg raw(64);
    raw.beginOutput();
    EXPECT_EQ(raw.get(static_cast<T*>(nullptr)), 0);
    EXPECT_EQ(raw.getResult(), -1);
}

TEST(ThreadRawMsg, ASizeBelowFour_GivesABufferThatHoldsAnIdAndNoData) {
    for (unsigned int size = 0; size <= ID_BYTES; ++size) {
        ThreadRawMsg raw(size);
        EXPECT_EQ(raw.maxSize(), ID_BYTES);
        EXPECT_EQ(raw.setMsgId(-5), 1);
        int id = 0;
        EXPECT_EQ(raw.getMsgId(&id), 1);
        EXPECT_EQ(id, -5);
        raw.beginInput();
        EXPECT_EQ(raw.set(true), 0);
    }
    EXPECT_EQ(ThreadRawMsg(5).maxSize(), 5U);
}

TEST(ThreadRawMsg, EveryTypeOfFixedSize_FitsExactlyAndFailsOneBelow) {
    int target = 0;
    expectFixedSize<bool>(true, 1);
    expectFixedSize<unsigned char>(0xA5, 1);
    expectFixedSize<signed char>(-3, 1);
    expectFixedSize<unsigned short>(0xABCD, 2);
    expectFixedSize<short>(-1234, 2);
    expectFixedSize<unsigned int>(0xDEADBEEFU, 4);
    expectFixedSize<int>(INT_MIN, 4);
    expectFixedSize<float>(1.5F, 4);
    expectFixedSize<unsigned long long>(0x0123456789ABCDEFULL, 8);
    expectFixedSize<long long>(LLONG_MIN, 8);
    expectFixedSize<double>(-2.25, 8);
    expectFixedSize<void*>(&target, sizeof(void*));
}

TEST(ThreadRawMsg, ANullOut_FailsForEveryTypeButBool) {
    expectNullOutFails<unsigned char>();
    expectNullOutFails<signed char>();
    expectNullOutFails<unsigned short>();
    expectNullOutFails<short>();
    expectNullOutFails<unsigned int>();
    expectNullOutFails<int>();
    expectNullOutFails<float>();
    expectNullOutFails<unsigned long long>();
    expectNullOutFails<long long>();
    expectNullOutFails<double>();
    expectNullOutFails<void*>();
}

TEST(ThreadRawMsg, ValuesArePackedInCallOrderBehindTheId) {
    ThreadRawMsg raw(ID_BYTES + 7);
    raw.setMsgId(0x01020304);
    raw.beginInput();
    raw.set(static_cast<unsigned char>(0x11));
    raw.set(0x22222222);
    raw.set(static_cast<short>(0x3333));
    unsigned char const expected[] = {4, 3, 2, 1, 0x11, 0x22, 0x22, 0x22, 0x22, 0x33, 0x33};
    EXPECT_EQ(std::memcmp(raw.buffer(), expected, sizeof(expected)), 0);
}

TEST(ThreadRawMsg, AnUnalignedValue_IsReadAsItWasWritten) {
    ThreadRawMsg raw(64);
    raw.beginInput();
    raw.set(true);
    raw.set(0x1122334455667788LL);
    raw.set(L"\u65e5");
    raw.beginOutput();
    bool flag = false;
    long long number = 0;
    wchar_t text[4];
    EXPECT_EQ(raw.get(&flag), 1);
    EXPECT_EQ(raw.get(&number), 1);
    EXPECT_EQ(raw.get(text, 4), 1);
    EXPECT_EQ(number, 0x1122334455667788LL);
    EXPECT_STREQ(text, L"\u65e5");
}

TEST(ThreadRawMsg, ExactlyTheCapacityFits_AndOneByteMoreFailsAndLeavesThePosition) {
    ThreadRawMsg raw(ID_BYTES + 10);
    raw.beginInput();
    std::vector<unsigned char> const bytes(11, 7);
    EXPECT_EQ(raw.set(bytes.data(), 10), 1);
    raw.beginInput();
    EXPECT_EQ(raw.set(bytes.data(), 11), 0);
    EXPECT_EQ(raw.getResult(), -1);
    raw.beginInput();
    EXPECT_EQ(raw.set(bytes.data(), 9), 1);
    EXPECT_EQ(raw.set(static_cast<short>(1)), 0);
    ThreadRawMsg copy(4);
    copy = raw;
    EXPECT_EQ(copy.getResult(), -1);
    copy.beginInput();
    EXPECT_EQ(copy.set(bytes.data(), 10), 1);
}

TEST(ThreadRawMsg, AfterOneFailure_EverySetAndGetFailsUntilTheNextBegin) {
    ThreadRawMsg raw(ID_BYTES + 4);
    raw.beginInput();
    EXPECT_EQ(raw.set(1LL), 0);
    EXPECT_EQ(raw.set(true), 0);
    EXPECT_EQ(raw.set("x"), 0);
    EXPECT_EQ(raw.set(L"x"), 0);
    unsigned char const byte = 1;
    EXPECT_EQ(raw.set(&byte, 1), 0);
    int out = 77;
    EXPECT_EQ(raw.get(&out), 0);
    bool flag = true;
    EXPECT_EQ(raw.get(&flag), 0);
    EXPECT_EQ(out, 77);
    EXPECT_EQ(raw.beginInput(), 1);
    EXPECT_EQ(raw.getResult(), 0);
    EXPECT_EQ(raw.set(1), 1);
    EXPECT_EQ(raw.set(true), 0);
    EXPECT_EQ(raw.beginOutput(), 1);
    EXPECT_EQ(raw.get(&out), 1);
    EXPECT_EQ(out, 1);
}

TEST(ThreadRawMsg, EndInputAndEndOutput_ReportSuccessAlsoAfterAFailure) {
    ThreadRawMsg raw(4);
    raw.beginInput();
    raw.set(1);
    EXPECT_EQ(raw.endInput(), 1);
    EXPECT_EQ(raw.endOutput(), 1);
    EXPECT_EQ(raw.getResult(), -1);
}

TEST(ThreadRawMsg, TheId_IsWrittenAndReadWhateverFailedAndLeavesThePositions) {
    ThreadRawMsg raw(ID_BYTES + 4);
    raw.beginInput();
    raw.set(1LL);
    EXPECT_EQ(raw.setMsgId(42), 1);
    int id = 0;
    EXPECT_EQ(raw.getMsgId(&id), 1);
    EXPECT_EQ(id, 42);
    EXPECT_EQ(raw.getResult(), -1);
    raw.beginInput();
    raw.setMsgId(43);
    EXPECT_EQ(raw.set(9), 1);
    raw.beginOutput();
    EXPECT_EQ(raw.get(&id), 1);
    EXPECT_EQ(id, 9);
}

TEST(ThreadRawMsg, GetMsgId_ANullOut_GivesZeroAndIsNoFailure) {
    ThreadRawMsg raw(4);
    EXPECT_EQ(raw.getMsgId(nullptr), 0);
    EXPECT_EQ(raw.getResult(), 0);
}

TEST(ThreadRawMsg, Fresh_ASetBeforeBeginInputOverwritesTheId) {
    ThreadRawMsg raw(8);
    raw.setMsgId(1);
    EXPECT_EQ(raw.set(2), 1);
    int id = 0;
    raw.getMsgId(&id);
    EXPECT_EQ(id, 2);
}

TEST(ThreadRawMsg, GetBool_StoresTrueForAnyByteButZero) {
    ThreadRawMsg raw(8);
    unsigned char const bytes[] = {0, 1, 2, 0xFF};
    raw.beginInput();
    raw.set(bytes, 4);
    raw.beginOutput();
    for (unsigned char const byte : bytes) {
        bool out = byte == 0;
        EXPECT_EQ(raw.get(&out), 1);
        EXPECT_EQ(out, byte != 0);
    }
}

TEST(ThreadRawMsg, AGetIsLimitedByTheCapacityAlone_AndDeliversStaleBytes) {
    ThreadRawMsg raw(12);
    raw.beginInput();
    raw.set(0x55);
    raw.set(0x66);
    raw.beginInput();
    raw.set(0x77);
    raw.beginOutput();
    int first = 0;
    int second = 0;
    EXPECT_EQ(raw.get(&first), 1);
    EXPECT_EQ(raw.get(&second), 1);
    EXPECT_EQ(first, 0x77);
    EXPECT_EQ(second, 0x66);
}

TEST(ThreadRawMsg, SetText_StoresTheTerminator) {
    ThreadRawMsg raw(8);
    raw.beginInput();
    EXPECT_EQ(raw.set("abc"), 1);
    EXPECT_EQ(std::memcmp(raw.buffer() + ID_BYTES, "abc", 4), 0);
    EXPECT_EQ(raw.set(""), 0);
    raw.beginInput();
    EXPECT_EQ(raw.set("abcd"), 0);
}

TEST(ThreadRawMsg, SetWideText_StoresFourBytesACharacterAndTheTerminator) {
    ThreadRawMsg raw(ID_BYTES + 12);
    raw.beginInput();
    EXPECT_EQ(raw.set(L"ab"), 1);
    EXPECT_EQ(std::memcmp(raw.buffer() + ID_BYTES, L"ab", 12), 0);
    raw.beginInput();
    EXPECT_EQ(raw.set(L"abc"), 0);
    EXPECT_EQ(raw.getResult(), -1);
}

TEST(ThreadRawMsg, SetANullTextOrNullBytes_FailsLikeAnOverflow) {
    ThreadRawMsg raw(64);
    raw.beginInput();
    EXPECT_EQ(raw.set(static_cast<char const*>(nullptr)), 0);
    EXPECT_EQ(raw.getResult(), -1);
    EXPECT_EQ(raw.set(static_cast<char const*>(nullptr)), 0);
    raw.beginInput();
    EXPECT_EQ(raw.set(static_cast<unsigned char const*>(nullptr), 0), 0);
    EXPECT_EQ(raw.getResult(), -1);
    raw.beginOutput();
    EXPECT_EQ(raw.get(static_cast<unsigned char*>(nullptr), 0), 0);
    EXPECT_EQ(raw.getResult(), -1);
}

TEST(ThreadRawMsg, Bytes_AreStoredWithoutTheirCount) {
    ThreadRawMsg raw(16);
    unsigned char const bytes[] = {1, 2, 3};
    raw.beginInput();
    EXPECT_EQ(raw.set(bytes, 3), 1);
    EXPECT_EQ(raw.set(bytes, 0), 1);
    EXPECT_EQ(raw.set(static_cast<unsigned char>(9)), 1);
    unsigned char out[4] = {};
    raw.beginOutput();
    EXPECT_EQ(raw.get(out, 4), 1);
    EXPECT_EQ(out[2], 3);
    EXPECT_EQ(out[3], 9);
}

TEST(ThreadRawMsg, AHugeCount_FailsWithoutWrapping) {
    ThreadRawMsg raw(16);
    unsigned char byte = 0;
    raw.beginInput();
    EXPECT_EQ(raw.set(&byte, UINT_MAX), 0);
    raw.beginOutput();
    EXPECT_EQ(raw.get(&byte, UINT_MAX), 0);
}

TEST(ThreadRawMsg, GetText_ExactlyMaxLenWithItsTerminatorFits) {
    ThreadRawMsg raw(16);
    raw.beginInput();
    raw.set("abc");
    char out[5] = "????";
    raw.beginOutput();
    EXPECT_EQ(raw.get(out, 3), 0);
    EXPECT_EQ(raw.getResult(), 0);
    EXPECT_STREQ(out, "????");
    EXPECT_EQ(raw.get(out, 4), 1);
    EXPECT_STREQ(out, "abc");
}

TEST(ThreadRawMsg, GetText_TooLong_IsNoFailureAndTheNextGetStartsAtTheSamePlace) {
    ThreadRawMsg raw(16);
    raw.beginInput();
    raw.set("abc");
    raw.set(5);
    raw.beginOutput();
    char out[8];
    for (unsigned int maxLen = 0; maxLen < 4; ++maxLen) {
        EXPECT_EQ(raw.get(out, maxLen), 0);
    }
    EXPECT_EQ(raw.get(out, 8), 1);
    int number = 0;
    EXPECT_EQ(raw.get(&number), 1);
    EXPECT_EQ(number, 5);
}

TEST(ThreadRawMsg, GetText_WithoutATerminatorInTheBuffer_IsNoFailure) {
    ThreadRawMsg raw(ID_BYTES + 3);
    unsigned char const bytes[] = {'a', 'b', 'c'};
    raw.beginInput();
    raw.set(bytes, 3);
    raw.beginOutput();
    char out[16];
    EXPECT_EQ(raw.get(out, 16), 0);
    EXPECT_EQ(raw.get(out, UINT_MAX), 0);
    EXPECT_EQ(raw.getResult(), 0);
}

TEST(ThreadRawMsg, GetText_ANullOut_FailsOnceThereIsAText) {
    ThreadRawMsg raw(16);
    raw.beginInput();
    raw.set("a");
    raw.beginOutput();
    EXPECT_EQ(raw.get(static_cast<char*>(nullptr), 0), 0);
    EXPECT_EQ(raw.getResult(), 0);
    EXPECT_EQ(raw.get(static_cast<char*>(nullptr), 8), 0);
    EXPECT_EQ(raw.getResult(), -1);
}

TEST(ThreadRawMsg, GetText_AfterAFailure_GivesZero) {
    ThreadRawMsg raw(16);
    raw.beginInput();
    raw.set("a");
    raw.beginOutput();
    unsigned char bytes[64];
    raw.get(bytes, 64);
    char out[8] = "?";
    EXPECT_EQ(raw.get(out, 8), 0);
    EXPECT_STREQ(out, "?");
}

TEST(ThreadRawMsg, GetText_AtTheEndOfTheBuffer_IsNoFailure) {
    ThreadRawMsg raw(ID_BYTES);
    raw.beginOutput();
    char out[2];
    wchar_t wide[2];
    EXPECT_EQ(raw.get(out, 2), 0);
    EXPECT_EQ(raw.get(wide, 2), 0);
    EXPECT_EQ(raw.getResult(), 0);
}

TEST(ThreadRawMsg, GetWideText_CountsCharacters) {
    ThreadRawMsg raw(32);
    raw.beginInput();
    raw.set(L"\u3042b");
    wchar_t out[4] = L"???";
    raw.beginOutput();
    EXPECT_EQ(raw.get(out, 0), 0);
    EXPECT_EQ(raw.get(out, 2), 0);
    EXPECT_EQ(raw.getResult(), 0);
    EXPECT_STREQ(out, L"???");
    EXPECT_EQ(raw.get(out, 3), 1);
    EXPECT_STREQ(out, L"\u3042b");
}

TEST(ThreadRawMsg, GetWideText_AnIncompleteLastCharacterEndsNothing) {
    ThreadRawMsg raw(ID_BYTES + 7);
    unsigned char const bytes[] = {'a', 0, 0, 0, 0, 0, 0};
    raw.beginInput();
    raw.set(bytes, 7);
    raw.beginOutput();
    wchar_t out[4];
    EXPECT_EQ(raw.get(out, 4), 0);
    EXPECT_EQ(raw.getResult(), 0);
}

TEST(ThreadRawMsg, GetWideText_ACharacterWithOneZeroByteIsNoTerminator) {
    ThreadRawMsg raw(32);
    raw.beginInput();
    raw.set(L"\u0100\U00010000");
    wchar_t out[3];
    raw.beginOutput();
    EXPECT_EQ(raw.get(out, 3), 1);
    EXPECT_EQ(out[0], L'\u0100');
    EXPECT_EQ(out[1], L'\U00010000');
}

TEST(ThreadRawMsg, ACopyMadeByConstruction_HasTheBytesAndMustBeBegun) {
    ThreadRawMsg raw(12);
    raw.setMsgId(3);
    raw.beginInput();
    raw.set(0x44);
    raw.set(0x55);
    raw.set(1LL);
    ASSERT_EQ(raw.getResult(), -1);
    ThreadRawMsg copy(raw);
    EXPECT_EQ(copy.maxSize(), 12U);
    EXPECT_NE(copy.buffer(), raw.buffer());
    EXPECT_EQ(std::memcmp(copy.buffer(), raw.buffer(), 12), 0);
    EXPECT_EQ(copy.getResult(), 0);
    int out = 0;
    EXPECT_EQ(copy.get(&out), 1);
    EXPECT_EQ(out, 3) << "the position of a copy is 0, at the id";
    copy.beginOutput();
    copy.get(&out);
    EXPECT_EQ(out, 0x44);
}

TEST(ThreadRawMsg, ACopyMadeByAssignment_KeepsItsReadPositionAndItsResult) {
    ThreadRawMsg raw(12);
    raw.beginInput();
    raw.set(0x44);
    raw.set(0x55);
    int out = 0;
    raw.beginOutput();
    raw.get(&out);
    ThreadRawMsg copy(12);
    copy = raw;
    EXPECT_EQ(copy.get(&out), 1);
    EXPECT_EQ(out, 0x55);
    copy.get(&out);
    raw = copy;
    EXPECT_EQ(raw.getResult(), -1);
}

TEST(ThreadRawMsg, Assignment_TakesTheSourcesSizeUpAndDown) {
    ThreadRawMsg small(4);
    ThreadRawMsg large(100);
    large.setMsgId(8);
    small = large;
    EXPECT_EQ(small.maxSize(), 100U);
    int id = 0;
    small.getMsgId(&id);
    EXPECT_EQ(id, 8);
    ThreadRawMsg tiny(4);
    tiny.setMsgId(9);
    large = tiny;
    EXPECT_EQ(large.maxSize(), 4U);
    large.getMsgId(&id);
    EXPECT_EQ(id, 9);
}

TEST(ThreadRawMsg, SelfAssignment_DoesNothing) {
    ThreadRawMsg raw(12);
    raw.setMsgId(8);
    raw.beginInput();
    unsigned char const* const buffer = raw.buffer();
    ThreadRawMsg& same = raw;
    raw = same;
    EXPECT_EQ(raw.buffer(), buffer);
    EXPECT_EQ(raw.set(1LL), 1);
}

}  // namespace

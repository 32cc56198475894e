#include "UtlCharSet.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestCharSet.h"
#include "TestTables.h"
#include "TestText.h"

namespace {

using utltest::converted;
using utltest::exactly;
using utltest::textOf;
using utltest::Units;
using utltest::utf8Of;
using namespace std::string_literals;

constexpr unsigned int UNTOUCHED = 77;

/// What a character function gave: its result, the bytes it covered, and what it wrote into room of exactly
/// `size`.
struct Step {
    unsigned int result;
    unsigned int consumed;
    std::string written;

    friend bool operator==(Step const& left, Step const& right) {
        return left.result == right.result && left.consumed == right.consumed &&
               left.written == right.written;
    }
    friend std::ostream& operator<<(std::ostream& out, Step const& step) {
        return out << step.result << '/' << step.consumed << '/' << testing::PrintToString(step.written);
    }
};

using CharFunction = unsigned int (*)(char*, unsigned int, char const*, unsigned int*);

Step stepInto(unsigned int size, CharFunction convert, std::string const& src) {
    std::vector<char> dst(size, '#');
    Step step{0, UNTOUCHED, {}};
    step.result = convert(dst.data(), size, exactly(src).data(), &step.consumed);
    step.written = std::string(dst.begin(), dst.end());
    return step;
}

/// The step with just the room it asks for. Without a buffer it must ask for the same and cover the same.
Step stepOf(CharFunction convert, std::string const& src) {
    unsigned int consumed = UNTOUCHED;
    unsigned int const needed = convert(nullptr, 0, exactly(src).data(), &consumed);
    Step const step = stepInto(needed, convert, src);
    EXPECT_EQ(step.result, needed);
    EXPECT_EQ(step.consumed, consumed);
    return step;
}

Step toSjis(std::string const& src) {
    return stepOf(utl::convertCharFromUtf8ToSjis, src);
}

Step toUtf8(std::string const& src) {
    return stepOf(utl::convertCharFromSjisToUtf8, src);
}

std::string byteOf(unsigned int value) {
    return {static_cast<char>(value)};
}

std::string bytesOf(unsigned int code) {
    return code < 0x100 ? byteOf(code) : byteOf(code >> 8) + byteOf(code & 0xFF);
}

/// The unit of one Shift-JIS character, checked against the result and the bytes that were covered.
unsigned int unitOf(std::string const& src, unsigned int expectedResult, unsigned int expectedConsumed) {
    unsigned short unit = 0xBEEF;
    unsigned int consumed = UNTOUCHED;
    EXPECT_EQ(utl::convertCharFromSjisToUtf16(&unit, exactly(src).data(), &consumed), expectedResult);
    EXPECT_EQ(consumed, expectedConsumed);
    return unit;
}

bool isLead(unsigned int byte) {
    return (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xEF) || (byte >= 0xFA && byte <= 0xFC);
}

bool isKana(unsigned int byte) {
    return byte >= 0xA1 && byte <= 0xDF;
}

}  // namespace

TEST(CharSet, SjisToAny_OfEveryFirstByte_CoversWhatItsClassSays) {
    for (unsigned int byte = 1; byte < 0x100; ++byte) {
        std::string const src = byteOf(byte) + "\x40y"s;
        unsigned int const covered = isLead(byte) ? 2 : 1;
        EXPECT_EQ(toUtf8(src).consumed, covered) << byte;
        bool const isLiteral = !isLead(byte) && !isKana(byte);
        unsigned int const unit = unitOf(src, isLiteral ? 2 : 1, covered);
        if (isLiteral) {
            EXPECT_EQ(toUtf8(src).written, byteOf(byte)) << byte;
            EXPECT_EQ(unit, byte);
        }
        if (isKana(byte)) {
            EXPECT_EQ(unit, 0xFF61 + byte - 0xA1);
            EXPECT_EQ(toUtf8(src).written, utf8Of(unit));
        }
    }
    EXPECT_EQ(toUtf8(""), (Step{1, 1, "\0"s}));
    EXPECT_EQ(unitOf("", 2, 1), 0U);
}

TEST(CharSet, Utf8ToSjis_OfEveryFirstByte_CoversWhatItsClassSays) {
    for (unsigned int byte = 1; byte < 0x100; ++byte) {
        bool const isTwo = byte >= 0xC2 && byte <= 0xD1;
        bool const isThree = (byte >= 0xE2 && byte <= 0xE9) || byte == 0xEF;
        unsigned int const covered = isThree ? 3 : isTwo ? 2 : 1;
        Step const step = toSjis(byteOf(byte) + "abc");
        EXPECT_EQ(step, (Step{1, covered, covered == 1 ? byteOf(byte) : "\0"s})) << byte;
    }
    EXPECT_EQ(textOf(converted(utl::convertStrFromUtf8ToSjis, "\xEA\xB0\x80\xF0\x9F\x98\x80\xDF\xBF"s)),
              "\xEA\xB0\x80\xF0\x9F\x98\x80\xDF\xBF");
    EXPECT_EQ(toSjis(""), (Step{1, 1, "\0"s}));
}

TEST(CharSet, AnyConversion_OfALeadByteInFrontOfTheTerminator_CoversWhatIsThere) {
    for (std::string const cut : {"\xC2", "\xD1", "\xE3", "\xE3\x81", "\xEF\xBD", "\xE3x", "\xE3\xE3"}) {
        EXPECT_EQ(toSjis(cut), (Step{1, static_cast<unsigned int>(cut.size()), "\0"s})) << cut;
        EXPECT_EQ(textOf(converted(utl::convertStrFromUtf8ToSjis, "a" + cut)), "a\0"s) << cut;
    }
    for (unsigned int lead = 0x81; lead < 0x100; ++lead) {
        if (isLead(lead)) {
            EXPECT_EQ(toUtf8(byteOf(lead)), (Step{1, 1, "\0"s})) << lead;
            EXPECT_EQ(unitOf(byteOf(lead), 1, 1), 0U) << lead;
            EXPECT_EQ(textOf(converted(utl::convertStrFromSjisToUtf8, "a" + byteOf(lead))), "a\0"s);
            EXPECT_EQ(textOf(converted(utl::convertStrFromSjisToUtf16, "a" + byteOf(lead))),
                      (Units{'a', 0x203B}));
        }
    }
}

TEST(CharSet, Tables_ThereAndBack_HaveAllTheirCharactersAndNoOthers) {
    unsigned int characters = 0;
    for (unsigned int code = 0x80; code < 0x10000; ++code) {
        std::string const utf8 = utf8Of(code);
        Step const step = toSjis(utf8);
        if (step.consumed == utf8.size() && step.written != "\0"s) {
            ++characters;
            EXPECT_EQ(toUtf8(step.written),
                      (Step{static_cast<unsigned int>(utf8.size()), step.result, utf8}));
            EXPECT_EQ(unitOf(step.written, 1, step.result), code);
        }
    }
    EXPECT_EQ(characters, 7389U);
    unsigned int codes = 0;
    for (unsigned int code = 0xA1; code < 0x10000; ++code) {
        unsigned int const first = code < 0x100 ? code : code >> 8;
        bool const isCode = code < 0x100 ? isKana(first) : isLead(first) && (code & 0xFF) != 0;
        if (isCode && toUtf8(bytesOf(code)).written != "\0"s) {
            ++codes;
            EXPECT_EQ(utf8Of(unitOf(bytesOf(code), 1, code < 0x100 ? 1 : 2)), toUtf8(bytesOf(code)).written);
        }
    }
    EXPECT_EQ(codes, 7787U);
}

TEST(CharSet, Utf8ToSjis_OfACharacterWithSeveralCodes_WritesTheOneThatOthersWrite) {
    struct {
        unsigned int unicode;
        unsigned int sjis;
    } const rows[] = {{0x2252, 0x81E0}, {0x2235, 0x81E6}, {0x222A, 0x81BE}, {0xFFE2, 0x81CA},
                      {0x2160, 0x8754}, {0x3231, 0x878A}, {0x2116, 0x8782}, {0x2121, 0x8784},
                      {0x2170, 0xFA40}, {0xFFE4, 0xFA55}, {0x7E8A, 0xFA5C}, {0x9ED1, 0xFC4B},
                      {0xFF5E, 0x8160}, {0x2225, 0x8161}, {0xFF0D, 0x817C}};
    for (auto const& row : rows) {
        EXPECT_EQ(toSjis(utf8Of(row.unicode)).written, bytesOf(row.sjis)) << std::hex << row.unicode;
    }
    for (unsigned int const other : {0x8790U, 0xFA54U, 0xEEF9U, 0xFA4AU, 0xED40U, 0xEEEFU, 0xFA5BU}) {
        EXPECT_NE(toSjis(toUtf8(bytesOf(other)).written).written, bytesOf(other)) << std::hex << other;
    }
}

TEST(CharSet, AnyCharacterFunction_WithTooLittleRoom_TouchesTheCountAlone) {
    EXPECT_EQ(stepInto(1, utl::convertCharFromUtf8ToSjis, "あ"), (Step{utl::INVALID_SIZE, 3, "#"}));
    EXPECT_EQ(stepInto(1, utl::convertCharFromSjisToUtf8, "\xB1"), (Step{utl::INVALID_SIZE, 1, "#"}));
    EXPECT_EQ(stepInto(1, utl::convertCharFromSjisToUtf8, "\x81\x98"), (Step{utl::INVALID_SIZE, 2, "#"}));
    EXPECT_EQ(stepInto(2, utl::convertCharFromSjisToUtf8, "\x82\xA0"), (Step{utl::INVALID_SIZE, 2, "##"}));
}

TEST(CharSet, AnyCharacterFunction_ThatSeesNoCharacter_TouchesNeitherTheTextNorTheCount) {
    unsigned int consumed = UNTOUCHED;
    unsigned short unit = 0xBEEF;
    EXPECT_EQ(utl::convertCharFromUtf8ToSjis(nullptr, 9, nullptr, &consumed), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertCharFromSjisToUtf8(nullptr, 9, nullptr, &consumed), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertCharFromSjisToUtf16(nullptr, "a", &consumed), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertCharFromUtf8ToUtf16(nullptr, "a", &consumed), utl::INVALID_SIZE);
    for (char const* const text : {"", "\x80", "\xC3", "\xC3x", "\xC0\x80", "\xE3\x81", "\xF0\x9F\x98"}) {
        EXPECT_EQ(utl::convertCharFromUtf8ToUtf16(&unit, exactly(text).data(), &consumed), utl::INVALID_SIZE);
    }
    EXPECT_EQ(utl::convertCharFromUtf8ToUtf16(&unit, nullptr, &consumed), utl::INVALID_SIZE);
    EXPECT_EQ(consumed, UNTOUCHED);
    EXPECT_EQ(unit, 0xBEEF);
}

TEST(CharSet, AnyCharacterFunction_OfALiteralByte_NeedsNoBuffer) {
    char dst = '#';
    unsigned int consumed = UNTOUCHED;
    EXPECT_EQ(utl::convertCharFromUtf8ToSjis(nullptr, 9, "a", &consumed), 1U);
    EXPECT_EQ(consumed, 1U);
    EXPECT_EQ(utl::convertCharFromSjisToUtf8(nullptr, 9, "\xFF", nullptr), 1U);
    EXPECT_EQ(utl::convertCharFromUtf8ToSjis(&dst, 0, "a", nullptr), 1U);
    EXPECT_EQ(utl::convertCharFromSjisToUtf8(&dst, 0, "a", nullptr), 1U);
    EXPECT_EQ(utl::convertCharFromSjisToUtf8(&dst, 0, "\xB1", nullptr), 3U);
    EXPECT_EQ(dst, '#');
}

TEST(CharSet, AnyStringFunction_OfUnmappedCharacters_WritesWhatItsDirectionHas) {
    EXPECT_EQ(textOf(converted(utl::convertStrFromUtf8ToSjis, "a\xE2\x82\xAC\xC2\xA5あ"s)), "a\0\0\x82\xA0"s);
    EXPECT_EQ(textOf(converted(utl::convertStrFromSjisToUtf8,
                               "\x81\xAD"
                               "b\x85\x40\x82\xA0"s)),
              "\0b\0あ"s);
    EXPECT_EQ(textOf(converted(utl::convertStrFromSjisToUtf16,
                               "\x81\xAD"
                               "b\x81\n\xFF"s)),
              (Units{0x203B, 'b', 0x203B, 0xFF}));
    EXPECT_EQ(textOf(converted(utl::convertStrFromUtf8ToUtf16, "\xF4\x90\x80\x80\xEF\xBB\xBF\xED\xA0\x80"s)),
              (Units{0x203B, 0xFEFF, 0xD800}));
}

TEST(CharSet, AnyStringFunction_WithTooLittleRoom_KeepsWhatItWroteAndNothingMore) {
    auto const written = [](auto convert, auto const& src, unsigned int size) {
        return utltest::convertInto(size, convert, utltest::terminated(src).get()).written.size();
    };
    using Text = std::string;
    EXPECT_EQ(written(utl::convertStrFromUtf8ToSjis, Text("aあ"), 3), 1U);
    EXPECT_EQ(written(utl::convertStrFromSjisToUtf8, Text("ab\xB1"), 5), 2U);
    EXPECT_EQ(written(utl::convertStrFromSjisToUtf16, Text("\xB1\x82\xA0"), 2), 1U);
    EXPECT_EQ(written(utl::convertStrFromUtf8ToUtf16, Text("あい"), 2), 1U);
    EXPECT_EQ(written(utl::convertStrFromUtf8ToUtf16, Text("あ\x80"), 9), 1U);
    EXPECT_EQ(written(utl::convertStrFromUtf16ToUtf8, Units{'a', 0xFFFE, 'b'}, 9), 1U);
    EXPECT_EQ(utl::convertStrFromUtf8ToSjis(nullptr, 1, ""), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromSjisToUtf8(nullptr, 1, ""), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromSjisToUtf16(nullptr, 1, ""), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromUtf8ToUtf16(nullptr, 1, ""), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromUtf16ToUtf8(nullptr, 1, Units{0}.data()), utl::INVALID_SIZE);
}

TEST(CharSet, Utf16ToUtf8_AtTheLimitsOfItsForms_TakesOneToThreeBytes) {
    for (unsigned int const code : {0U, 1U, 0x7FU, 0x80U, 0x7FFU, 0x800U, 0xD7FFU, 0xD800U, 0xDFFFU, 0xFEFEU,
                                    0xFF00U, 0xFFFDU, 0xFFFFU}) {
        std::string const expected = utf8Of(code);
        auto const unit = static_cast<unsigned short>(code);
        auto const size = static_cast<unsigned int>(expected.size());
        std::vector<char> dst(size, '#');
        int bomKind = 9;
        EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(nullptr, 0, unit, &bomKind), size) << code;
        EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(nullptr, size, unit, &bomKind), utl::INVALID_SIZE) << code;
        if (size > 1) {
            EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(dst.data(), size - 1, unit, &bomKind),
                      utl::INVALID_SIZE);
            EXPECT_EQ(dst[0], '#');
        }
        EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(dst.data(), size, unit, &bomKind), size) << code;
        EXPECT_EQ(std::string(dst.begin(), dst.end()), expected) << code;
        EXPECT_EQ(bomKind, 9);
    }
    char dst = '#';
    int bomKind = 9;
    EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(nullptr, 1, 0xFEFF, &bomKind), 0U);
    EXPECT_EQ(bomKind, 1);
    EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(&dst, 1, 0xFFFE, &bomKind), 0U);
    EXPECT_EQ(bomKind, 2);
    EXPECT_EQ(utl::convertCharFromUtf16ToUtf8(&dst, 1, 0xFEFF, nullptr), 0U);
    EXPECT_EQ(dst, '#');
}

TEST(CharSet, Utf8ToUtf16_OfMalformedText_EndsItBehindALeadByteAndFailsElsewhere) {
    for (std::string const broken : {"\xC3", "\xC3x", "\xE3\x81", "\xE3\x81x", "\xC0\x80", "\xE0\x80\x80",
                                     "\xF0\x80\x80\x80", "\xEF\xBB"}) {
        EXPECT_EQ(textOf(converted(utl::convertStrFromUtf8ToUtf16, "あ" + broken)), (Units{0x3042}))
            << broken;
        EXPECT_EQ(textOf(converted(utl::convertStrFromUtf8ToUtf16, broken)), Units()) << broken;
    }
    for (std::string const broken : {"\x80", "\xBFx", "\xF8\x80\x80\x80", "\xFF"}) {
        EXPECT_EQ(converted(utl::convertStrFromUtf8ToUtf16, "あ" + broken).result, utl::INVALID_SIZE)
            << broken;
    }
}

TEST(CharSet, TcharAndWchar_ThatFillTheBufferToTheLastPlace_Fail) {
    std::string const text = "aあ\xF0\x9F\x98\x80";
    std::wstring const wide = L"aあ\U0001F600";
    EXPECT_EQ(utl::convertStrFromTcharToWchar(nullptr, 0, text.c_str()), 9U);
    EXPECT_EQ(utl::convertStrFromWcharToTchar(nullptr, 0, wide.c_str()), 19U);
    std::vector<wchar_t> wideDst(4, L'#');
    EXPECT_EQ(utl::convertStrFromTcharToWchar(wideDst.data(), 4, exactly(text).data()), 4U);
    EXPECT_EQ(wideDst.data(), wide);
    std::vector<char> dst(9, '#');
    EXPECT_EQ(utl::convertStrFromWcharToTchar(dst.data(), 9, utltest::terminated(wide).get()), 9U);
    EXPECT_EQ(dst.data(), text);
    for (unsigned int size = 1; size < 9; ++size) {
        std::vector<char> small(size, '#');
        EXPECT_EQ(utl::convertStrFromWcharToTchar(small.data(), size, wide.c_str()), utl::INVALID_SIZE)
            << size;
        std::vector<wchar_t> smallWide(std::min(size, 3U), L'#');
        EXPECT_EQ(utl::convertStrFromTcharToWchar(smallWide.data(), std::min(size, 3U), text.c_str()),
                  utl::INVALID_SIZE);
    }
    EXPECT_EQ(utl::convertStrFromTcharToWchar(nullptr, 4, ""), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertStrFromTcharToWchar(nullptr, 0, ""), 1U);
    EXPECT_EQ(utl::convertStrFromWcharToTchar(dst.data(), 1, L""), 1U);
    EXPECT_EQ(dst[0], '\0');
}

TEST(CharSet, UnitsAndBytes_WithoutTerminators_StayInsideTheirArrays) {
    Units const units = {0x1234, 0xFF00, 0, 0x5678};
    std::vector<unsigned char> bytes(4, '#');
    using Bytes = std::vector<unsigned char>;
    EXPECT_EQ(utl::convertStrFromDcharToUint8(bytes.data(), 4, units.data(), ~0U, 1), 4U);
    EXPECT_EQ(bytes, (Bytes{0x12, 0x34, 0xFF, 0x00}));
    EXPECT_EQ(utl::convertStrFromDcharToUint8(bytes.data(), 3, units.data(), 4, 0), utl::INVALID_SIZE);
    EXPECT_EQ(bytes, (Bytes{0x12, 0x34, 0xFF, 0x00}));
    EXPECT_EQ(utl::convertStrFromDcharToUint8(bytes.data(), 4, units.data(), 1, 2), 2U);
    EXPECT_EQ(bytes, (Bytes{0x34, 0x12, 0xFF, 0x00}));
    EXPECT_EQ(utl::convertStrFromDcharToUint8(bytes.data(), 4, units.data() + 4, 0, 1), 0U);
    EXPECT_EQ(utl::convertStrFromDcharToUint8(nullptr, 0, Units(2, 7).data(), 2, 1), 4U);
    EXPECT_EQ(utl::convertStrFromDcharToUint8(nullptr, 4, units.data(), 1, 1), utl::INVALID_SIZE);

    Bytes const source = {9, 0x12, 0x34, 0, 0, 0xFF, 0x80};
    Units dst(3, 7);
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(dst.data(), 3, source.data() + 1, 6, 1), 3U);
    EXPECT_EQ(dst, (Units{0x1234, 0, 0xFF80}));
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(dst.data(), 2, source.data() + 1, 6, 0), utl::INVALID_SIZE);
    EXPECT_EQ(dst, (Units{0x1234, 0, 0xFF80}));
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(dst.data(), 3, source.data() + 1, 6, -1), 3U);
    EXPECT_EQ(dst, (Units{0x3412, 0, 0x80FF}));
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(nullptr, 0, source.data(), 0xFFFFFFFEU, 1), 0x7FFFFFFFU);
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(nullptr, 0, source.data(), 7, 1), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(nullptr, 0, source.data(), ~0U, 1), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(nullptr, 3, source.data(), 6, 1), utl::INVALID_SIZE);
    EXPECT_EQ(utl::convertBinFromUint8ToDchar(dst.data(), 3, nullptr, 0, 1), utl::INVALID_SIZE);
}

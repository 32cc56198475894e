// All conversions between character sets, out of and into blocks of exactly their size. What becomes of each
// character comes from the C library, less the characters that it writes as ones they only look like, and
// those of users' own.

#include <map>
#include <string>
#include <vector>

#include "Fuzz.h"
#include "TestIconv.h"
#include "TestStringModel.h"
#include "UtlCharSet.h"

namespace {

using fuzz::Input;
using utl::INVALID_SIZE;
using utltest::Iconv;
namespace model = utltest::model;

using Units = std::vector<unsigned short>;

constexpr unsigned short REFERENCE_MARK = 0x203B;

unsigned int at(std::string const& text, size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
}

std::string utf8Of(unsigned int unit) {
    auto const byte = [](unsigned int value) { return static_cast<char>(value); };
    return unit < 0x80    ? std::string{byte(unit)}
           : unit < 0x800 ? std::string{byte(0xC0 | unit >> 6), byte(0x80 | (unit & 0x3F))}
                          : std::string{byte(0xE0 | unit >> 12), byte(0x80 | (unit >> 6 & 0x3F)),
                                        byte(0x80 | (unit & 0x3F))};
}

unsigned short unitOf(std::string const& bytes) {
    return static_cast<unsigned short>(at(bytes, 0) | at(bytes, 1) << 8);
}

bool isDouble(unsigned int first) {
    return (first >= 0x81 && first <= 0x9F) || (first >= 0xE0 && first <= 0xEF) ||
           (first >= 0xFA && first <= 0xFC);
}

bool isKana(unsigned int first) {
    return first >= 0xA1 && first <= 0xDF;
}

// The code page in both directions, as the C library knows it.
class CodePage {
  public:
    static CodePage const& get() {
        static CodePage const thePage;
        return thePage;
    }

    /// 0 for a code that has no character.
    unsigned short unitAt(std::string const& code) const {
        auto const found = mUnits.find(code);
        return found != mUnits.end() ? found->second : 0;
    }

    /// A zero byte for a character that has no code.
    std::string codeOf(std::string const& character) const {
        auto const found = mCodes.find(character);
        return found != mCodes.end() ? found->second : std::string(1, '\0');
    }

  private:
    CodePage() {
        Iconv const toUnit("UTF-16LE", "CP932");
        for (unsigned int code = 0x80; code <= 0xFFFF; ++code) {
            std::string const bytes =
                code < 0x100 ? std::string(1, static_cast<char>(code))
                             : std::string{static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)};
            if (code < 0x100 ? isKana(code) : isDouble(code >> 8)) {
                std::string const unit = toUnit.convert(bytes);
                if (unit.size() == 2) {
                    mUnits[bytes] = unitOf(unit);
                }
            }
        }
        Iconv const toCode("CP932", "UTF-8");
        for (auto const& [code, unit] : mUnits) {
            mCodes[utf8Of(unit)] = toCode.convert(utf8Of(unit));
        }
    }

    std::map<std::string, unsigned short> mUnits;
    std::map<std::string, std::string> mCodes;
};

// --- what becomes of each character; `*used` are the bytes of it

std::string sjisOf(std::string const& rest, size_t* used) {
    unsigned int const first = at(rest, 0);
    size_t const bytes = first >= 0xC2 && first <= 0xD1                      ? 2
                         : (first >= 0xE2 && first <= 0xE9) || first == 0xEF ? 3
                                                                             : 1;
    *used = std::min(bytes, rest.size());
    return bytes == 1 ? rest.substr(0, 1) : CodePage::get().codeOf(rest.substr(0, bytes));
}

std::string sjisText(std::string const& text) {
    std::string result;
    size_t used = 0;
    for (size_t i = 0; i < text.size(); i += used) {
        result += sjisOf(text.substr(i), &used);
    }
    return result;
}

unsigned short unitOfSjis(std::string const& rest, size_t* used) {
    unsigned int const first = at(rest, 0);
    *used = isDouble(first) ? std::min<size_t>(2, rest.size()) : 1;
    return isDouble(first) || isKana(first) ? CodePage::get().unitAt(rest.substr(0, *used))
                                            : static_cast<unsigned short>(first);
}

bool passesInSjis(unsigned int first) {
    return !isDouble(first) && !isKana(first);
}

std::string utf8OfSjisText(std::string const& text) {
    std::string result;
    size_t used = 0;
    for (size_t i = 0; i < text.size(); i += used) {
        unsigned short const unit = unitOfSjis(text.substr(i), &used);
        unsigned int const first = at(text, i);
        result += passesInSjis(first)          ? text.substr(i, 1)
                  : unit == 0 && isKana(first) ? "*"
                  : unit == 0                  ? std::string(1, '\0')
                                               : utf8Of(unit);
    }
    return result;
}

Units unitsOfSjisText(std::string const& text) {
    Units result;
    size_t used = 0;
    for (size_t i = 0; i < text.size(); i += used) {
        unsigned short const unit = unitOfSjis(text.substr(i), &used);
        result.push_back(unit != 0 ? unit : isKana(at(text, i)) ? '*' : REFERENCE_MARK);
    }
    return result;
}

// What a character of up to three bytes says.
unsigned short decoded(std::string const& one) {
    unsigned int const first = at(one, 0);
    return static_cast<unsigned short>(one.size() == 1   ? first
                                       : one.size() == 2 ? (first & 0x1F) << 6 | (at(one, 1) & 0x3F)
                                                         : (first & 0x0F) << 12 | (at(one, 1) & 0x3F) << 6 |
                                                               (at(one, 2) & 0x3F));
}

// False for text with a byte that starts no character. What is cut off or broken ends the text.
bool unitsOfUtf8Text(std::string const& text, Units* units) {
    for (size_t i = 0; i < text.size();) {
        unsigned int const bytes = model::charLengthOrZero(text.substr(i));
        if (bytes == 0 || bytes == INVALID_SIZE) {
            return bytes == 0;
        }
        units->push_back(bytes == 4 ? REFERENCE_MARK : decoded(text.substr(i, bytes)));
        i += bytes;
    }
    return true;
}

// --- the comparison

template <typename TO, typename FROM, typename TEXT>
void expectInto(unsigned int size, unsigned int (*convert)(TO*, unsigned int, FROM const*), FROM const* src,
                TEXT const& expected) {
    auto const dst = fuzz::blockOf<TO>(size);
    unsigned int const needed = static_cast<unsigned int>(expected.size()) + 1;
    FUZZ_EXPECT(convert(dst.get(), size, src) == (size < needed ? INVALID_SIZE : needed));
    if (size >= needed) {
        FUZZ_EXPECT(std::equal(expected.begin(), expected.end(), dst.get()));
        FUZZ_EXPECT(dst[needed - 1] == TO());
    }
}

// With the size that the text needs, one less, and one more.
template <typename TO, typename FROM, typename TEXT>
void expect(unsigned int (*convert)(TO*, unsigned int, FROM const*), FROM const* src, TEXT const& expected) {
    unsigned int const needed = static_cast<unsigned int>(expected.size()) + 1;
    FUZZ_EXPECT(convert(nullptr, 0, src) == needed);
    expectInto(needed, convert, src, expected);
    expectInto(needed + 1, convert, src, expected);
    if (needed > 1) {
        expectInto(needed - 1, convert, src, expected);
    }
}

void fromUtf8(Input* input) {
    std::string const text = fuzz::anyText(input, 64);
    auto const src = fuzz::exactly(text);
    expect<char, char>(utl::convertStrFromUtf8ToSjis, src.get(), sjisText(text));
    expect<char, char>(utl::convertStrFromTcharToChar, src.get(), text);
    expect<char, char>(utl::convertStrFromCharToTchar, src.get(), text);
    Units units;
    if (unitsOfUtf8Text(text, &units)) {
        expect<unsigned short, char>(utl::convertStrFromUtf8ToUtf16, src.get(), units);
    } else {
        auto const dst = fuzz::blockOf<unsigned short>(text.size() + 1);
        FUZZ_EXPECT(utl::convertStrFromUtf8ToUtf16(nullptr, 0, src.get()) == INVALID_SIZE);
        FUZZ_EXPECT(utl::convertStrFromUtf8ToUtf16(dst.get(), static_cast<unsigned int>(text.size()) + 1,
                                                   src.get()) == INVALID_SIZE);
    }
}

void fromSjis(Input* input) {
    std::string const text = input->text(64);
    auto const src = fuzz::exactly(text);
    expect<char, char>(utl::convertStrFromSjisToUtf8, src.get(), utf8OfSjisText(text));
    expect<unsigned short, char>(utl::convertStrFromSjisToUtf16, src.get(), unitsOfSjisText(text));
}

void oneCharacter(Input* input) {
    std::string const text = fuzz::anyText(input, 4);
    auto const src = fuzz::exactly(text);
    size_t used = 1;
    unsigned int consumed = ~0U;
    unsigned int const room = input->upTo(4);
    auto const dst = fuzz::blockOf<char>(room);
    std::string const code = text.empty() ? std::string(1, '\0') : sjisOf(text, &used);
    unsigned int const written = utl::convertCharFromUtf8ToSjis(dst.get(), room, src.get(), &consumed);
    FUZZ_EXPECT(written == (room == 0 || room >= code.size() ? code.size() : INVALID_SIZE));
    FUZZ_EXPECT(consumed == used);
    FUZZ_EXPECT(room == 0 || written == INVALID_SIZE || code == std::string(dst.get(), written));

    unsigned short unit = 0xABCD;
    used = 1;
    unsigned short const expected = text.empty() ? 0 : unitOfSjis(text, &used);
    FUZZ_EXPECT(utl::convertCharFromSjisToUtf16(&unit, src.get(), &consumed) ==
                (passesInSjis(at(text, 0)) ? 2 : 1));
    FUZZ_EXPECT(unit == expected && consumed == used);
    std::string const bytes = passesInSjis(at(text, 0)) ? std::string(1, text.c_str()[0]) : utf8Of(expected);
    unsigned int const count = utl::convertCharFromSjisToUtf8(dst.get(), room, src.get(), &consumed);
    FUZZ_EXPECT(count == (room == 0 || room >= bytes.size() ? bytes.size() : INVALID_SIZE));
    FUZZ_EXPECT(consumed == used);
    FUZZ_EXPECT(room == 0 || count == INVALID_SIZE || bytes == std::string(dst.get(), count));

    unsigned int const length = model::charLengthOrZero(text);
    bool const hasUnit = length >= 1 && length <= 3;
    unit = 0xABCD;
    FUZZ_EXPECT(utl::convertCharFromUtf8ToUtf16(&unit, src.get(), &consumed) == (hasUnit ? 1 : INVALID_SIZE));
    FUZZ_EXPECT(!hasUnit || (unit == decoded(text.substr(0, length)) && consumed == length));
}

void fromUtf16(Input* input) {
    Units units(input->upTo(32));
    for (unsigned short& unit : units) {
        unit = input->number<unsigned short>();
        unit = unit != 0 ? unit : 1;
    }
    auto const src = fuzz::blockOf<unsigned short>(units.size() + 1);
    std::copy(units.begin(), units.end(), src.get());
    std::string text;
    bool hasMark = false;
    for (unsigned short const unit : units) {
        hasMark = hasMark || unit == 0xFEFF || unit == 0xFFFE;
        text += utf8Of(unit);
        char bytes[3];
        int kind = 0;
        unsigned int const written = utl::convertCharFromUtf16ToUtf8(bytes, 3, unit, &kind);
        bool const isMark = unit == 0xFEFF || unit == 0xFFFE;
        FUZZ_EXPECT(isMark ? written == 0 : utf8Of(unit) == std::string(bytes, written));
        FUZZ_EXPECT(kind == (unit == 0xFEFF ? 1 : unit == 0xFFFE ? 2 : 0));
    }
    if (!hasMark) {
        expect<char, unsigned short>(utl::convertStrFromUtf16ToUtf8, src.get(), text);
    } else {
        FUZZ_EXPECT(utl::convertStrFromUtf16ToUtf8(nullptr, 0, src.get()) == INVALID_SIZE);
    }
}

void orderOfBytes(Input* input) {
    std::string const bytes = input->bytes(65);
    auto const size = static_cast<unsigned int>(bytes.size());
    auto const src = fuzz::blockOf<unsigned char>(size);
    std::copy(bytes.begin(), bytes.end(), src.get());
    int const order = static_cast<int>(input->upTo(2));
    unsigned int const room = input->upTo(34);
    auto const units = fuzz::blockOf<unsigned short>(room);
    unsigned int const made = utl::convertBinFromUint8ToDchar(units.get(), room, src.get(), size, order);
    bool const fits = size % 2 == 0 && (room == 0 || size / 2 <= room);
    FUZZ_EXPECT(made == (fits ? size / 2 : INVALID_SIZE));
    if (!fits || room == 0) {
        return;
    }
    for (unsigned int i = 0; i < made; ++i) {
        unsigned int const first = at(bytes, 2 * i);
        unsigned int const second = at(bytes, 2 * i + 1);
        FUZZ_EXPECT(units[i] == (order == 1 ? first << 8 | second : second << 8 | first));
    }
    unsigned int const length =
        static_cast<unsigned int>(std::find(units.get(), units.get() + made, 0) - units.get());
    auto const back = fuzz::blockOf<unsigned char>(2 * length);
    FUZZ_EXPECT(utl::convertStrFromDcharToUint8(back.get(), 2 * length, units.get(), made, order) ==
                2 * length);
    FUZZ_EXPECT(std::equal(back.get(), back.get() + 2 * length, src.get()));
}

// Strict UTF-8, which has neither surrogates nor more than 0x10FFFF characters.
bool isStrict(std::string const& text) {
    for (std::string const& one : model::characters(text)) {
        unsigned int const second = at(one, 1);
        if ((at(one, 0) == 0xED && second >= 0xA0) || at(one, 0) > 0xF4 ||
            (at(one, 0) == 0xF4 && second >= 0x90)) {
            return false;
        }
    }
    return true;
}

void wideText(Input* input) {
    static Iconv const toWide("UTF-32LE", "UTF-8");
    std::string const text = fuzz::anyText(input, 32);
    auto const src = fuzz::exactly(text);
    FUZZ_EXPECT(utl::convertStrFromTcharToWchar(nullptr, 0, src.get()) == text.size() + 1);
    unsigned int const room = input->upTo(34);
    auto const wide = fuzz::blockOf<wchar_t>(room);
    unsigned int const made =
        room == 0 ? INVALID_SIZE : utl::convertStrFromTcharToWchar(wide.get(), room, src.get());
    bool const isText = model::isWellFormed(text) && isStrict(text);
    if (made == INVALID_SIZE) {
        FUZZ_EXPECT(!isText || room < model::characters(text).size() + 1 || room == 0 ||
                    room == model::characters(text).size());
        return;
    }
    FUZZ_EXPECT(isText && made == model::characters(text).size() + 1);
    std::string const codes(reinterpret_cast<char const*>(wide.get()), (made - 1) * sizeof(wchar_t));
    FUZZ_EXPECT(codes == toWide.convert(text));
    auto const back = fuzz::blockOf<char>(text.size() + 1);
    unsigned int const size = static_cast<unsigned int>(text.size()) + 1;
    FUZZ_EXPECT(utl::convertStrFromWcharToTchar(back.get(), size, wide.get()) == size);
    FUZZ_EXPECT(text == back.get());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    Input input(data, size);
    static constexpr void (*STEPS[])(Input*) = {fromUtf8,  fromSjis,     oneCharacter,
                                                fromUtf16, orderOfBytes, wideText};
    while (!input.isAtEnd()) {
        STEPS[input.upTo(std::size(STEPS) - 1)](&input);
    }
    return 0;
}

// Classification and conversion of Japanese text, comparison without case and numbers, beside models that
// walk through the tables.

#include <cstring>
#include <limits>
#include <string>

#include "Fuzz.h"
#include "TestAttribModel.h"
#include "TestConvertModel.h"
#include "UtlAttribConvert.h"
#include "UtlCharAttrib.h"

namespace {

using fuzz::exactly;
using fuzz::Input;
namespace model = utltest::model;

constexpr unsigned int MOST = 24;

void classify(Input* input) {
    auto const mask = input->number<unsigned int>();
    auto const attribute = static_cast<int>(mask);
    std::string const text = fuzz::anyText(input, MOST);
    auto const exact = exactly(text);
    model::SizedText const sized(text);
    FUZZ_EXPECT(utl::attribBlockSize<char>(exact.get(), attribute) ==
                model::blockSize(sized.text.c_str(), sized.sizes[0], mask));
    FUZZ_EXPECT(utl::isStrAttribBase<char>(exact.get(), attribute) == model::isStrAttrib(sized, mask));
    bool const expected = model::mayHaveCharAttrib(text) &&
                          model::isStrAttrib(model::SizedText(model::firstCharacter(text)), mask);
    FUZZ_EXPECT(utl::isCharAttribBase<char>(exact.get(), attribute) == expected);
}

// Converts into a block of its own, or in place with room for what it becomes.
void convert(Input* input) {
    unsigned int const chosen =
        input->upTo(std::size(model::ENDING_WAYS) + std::size(model::FILLING_WAYS) - 1);
    bool const isEnding = chosen < std::size(model::ENDING_WAYS);
    model::Way const& way =
        isEnding ? model::ENDING_WAYS[chosen] : model::FILLING_WAYS[chosen - std::size(model::ENDING_WAYS)];
    int const truncate = isEnding ? static_cast<int>(input->upTo(1)) : 0;
    bool const isInPlace = input->flag();
    unsigned int const drawn = input->upTo(3 * MOST);
    std::string const text = fuzz::anyText(input, MOST);
    auto const length = static_cast<unsigned int>(text.size()) + 1;
    unsigned int const room = isInPlace ? std::max(drawn, length) : drawn;
    unsigned int const size = isEnding ? room : std::max(room, 1U);
    auto const src = exactly(text);
    auto const dst = fuzz::blockOf<char>(size, '#');
    if (isInPlace) {
        std::copy(src.get(), src.get() + length, dst.get());
    }
    unsigned int const result = utl::convertAttrib<char>(dst.get(), size, isInPlace ? dst.get() : src.get(),
                                                         way.table, way.direction, truncate);
    model::Outcome const expected = model::Conversion(way, size, truncate).convert(text.c_str());
    FUZZ_EXPECT(result == expected.size);
    if (result != utl::INVALID_SIZE && size != 0) {
        FUZZ_EXPECT(expected.held == std::string(dst.get(), expected.held.size()));
    }
}

std::string lowered(std::string const& text) {
    std::string const held = model::Conversion(model::ENDING_WAYS[1], 10240, 0).convert(text.c_str()).held;
    return held.c_str();
}

void compare(Input* input) {
    unsigned int const length = input->sizeAround(MOST);
    std::string const left = fuzz::anyText(input, MOST);
    std::string const right = input->flag() ? left + input->text(2) : fuzz::anyText(input, MOST);
    int const expected = std::strncmp(lowered(left).c_str(), lowered(right).c_str(), length);
    int const result = utl::compareStrNoCase<char>(exactly(left).get(), exactly(right).get(), length);
    FUZZ_EXPECT((result < 0) == (expected < 0) && (result > 0) == (expected > 0));
}

unsigned int digitOf(char c) {
    return c >= '0' && c <= '9'   ? static_cast<unsigned int>(c - '0')
           : c >= 'a' && c <= 'z' ? static_cast<unsigned int>(c - 'a') + 10
           : c >= 'A' && c <= 'Z' ? static_cast<unsigned int>(c - 'A') + 10
                                  : 99;
}

bool numberIn(std::string text, unsigned int base, unsigned long long* value) {
    text = text.compare(0, 1, "+") == 0 ? text.substr(1) : text;
    if (base == 0) {
        base = text.compare(0, 2, "0x") == 0 ? 16 : text.compare(0, 1, "0") == 0 ? 8 : 10;
        text = text.substr(base == 16 ? 2 : base == 8 ? 1 : 0);
    }
    *value = 0;
    size_t digits = 0;
    for (; digits < text.size() && digitOf(text[digits]) < base; ++digits) {
        *value = *value * base + digitOf(text[digits]);
        if (*value > std::numeric_limits<unsigned short>::max()) {
            return false;
        }
    }
    return digits != 0;
}

void readNumber(Input* input) {
    unsigned int const base = input->upTo(38);
    std::string const text = fuzz::anyText(input, MOST);
    std::string const held = model::Conversion(model::ENDING_WAYS[3], 10240, 0).convert(text.c_str()).held;
    unsigned long long expected = 0;
    bool const isNumber = (base == 0 || (base >= 2 && base <= 36)) && numberIn(held.c_str(), base, &expected);
    unsigned short value = 0xABCD;
    FUZZ_EXPECT((utl::strToInt<unsigned short, char>(&value, exactly(text).get(), static_cast<int>(base))) ==
                isNumber);
    FUZZ_EXPECT(value == (isNumber ? expected : 0xABCD));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    Input input(data, size);
    static constexpr void (*STEPS[])(Input*) = {classify, convert, compare, readNumber};
    while (!input.isAtEnd()) {
        STEPS[input.upTo(std::size(STEPS) - 1)](&input);
    }
    return 0;
}

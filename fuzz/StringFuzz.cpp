// The string primitives beside plain models of them, on texts and in destinations of exactly their size.

#include <string>
#include <vector>

#include "Fuzz.h"
#include "TestStringModel.h"
#include "UtlString.h"

namespace {

using fuzz::exactly;
using fuzz::Input;
using utl::INVALID_SIZE;
using utltest::model::Bytes;
namespace model = utltest::model;

constexpr unsigned int MOST = 40;
constexpr char UNUSED = '#';

// Calls both with a destination of `size` bytes and compares what they return and what they wrote.
template <typename SUBJECT, typename MODEL>
void compare(unsigned int size, SUBJECT subject, MODEL modelled) {
    Bytes expected(size, UNUSED);
    auto const dst = fuzz::blockOf<char>(size, UNUSED);
    unsigned int const result = subject(dst.get());
    FUZZ_EXPECT(result == modelled(&expected));
    FUZZ_EXPECT(std::equal(expected.begin(), expected.end(), dst.get()));
}

void inspect(Input* input) {
    std::string const text = fuzz::anyText(input, MOST);
    auto const exact = exactly(text);
    bool isBom = false;
    FUZZ_EXPECT(utl::t_charlen(exact.get(), &isBom) == model::charLength(text));
    FUZZ_EXPECT(isBom == (text.compare(0, 3, "\xEF\xBB\xBF") == 0));
    FUZZ_EXPECT(utl::strCharBytesBase(exact.get()) == model::charLengthOrZero(text));
    unsigned int const index = input->sizeAround(MOST);
    FUZZ_EXPECT(utl::getNearCharIndex(exact.get(), index, utl::CHAR_START) ==
                model::nearIndex(text, index, true));
    FUZZ_EXPECT(utl::getNearCharIndex(exact.get(), index, utl::CHAR_END) ==
                model::nearIndex(text, index, false));
}

void copy(Input* input) {
    std::string const text = fuzz::anyText(input, MOST);
    unsigned int const size = input->upTo(MOST);
    unsigned int const wanted = input->sizeAround(MOST);
    unsigned int const from = input->upTo(MOST);
    unsigned int const to = input->upTo(MOST);
    int const truncate = static_cast<int>(input->upTo(2));
    auto const src = exactly(text);
    compare(
        size, [&](char* dst) { return utl::copyStrBase(dst, size, src.get(), wanted, truncate); },
        [&](Bytes* dst) { return model::copyStr(dst, size, text, wanted, truncate); });
    compare(
        size, [&](char* dst) { return utl::t_strncpy(dst, size, src.get(), wanted); },
        [&](Bytes* dst) { return model::strNCpy(dst, size, text, wanted); });
    compare(
        size, [&](char* dst) { return utl::copyGeneral(dst, size, to, src.get(), from, wanted, truncate); },
        [&](Bytes* dst) { return model::general(dst, size, to, text, from, wanted, truncate); });
}

// A copy inside one block, which must be as one out of a copy of the source.
void copyOverlapping(Input* input) {
    std::string const text = fuzz::anyText(input, MOST);
    unsigned int const length = model::length(text);
    unsigned int const from = length == 0 ? 0 : input->upTo(length);
    unsigned int const to = length == 0 ? 0 : input->upTo(length);
    unsigned int const wanted = input->sizeAround(MOST);
    unsigned int const kind = input->upTo(2);
    int const truncate = static_cast<int>(input->upTo(1));
    unsigned int const size = length + 1 - to;
    auto const block = exactly(text);
    Bytes expected(text.c_str(), text.c_str() + length + 1);
    Bytes part(fuzz::placeIn(expected, to), expected.end());
    std::string const src = text.substr(from);
    unsigned int const modelled = kind == 0   ? model::copyStr(&part, size, src, wanted, truncate)
                                  : kind == 1 ? model::strNCpy(&part, size, src, wanted)
                                              : model::general(&part, size, 0, src, 0, wanted, truncate);
    std::copy(part.begin(), part.end(), fuzz::placeIn(expected, to));
    char* const dst = block.get() + to;
    char const* const begin = block.get() + from;
    FUZZ_EXPECT(modelled == (kind == 0   ? utl::copyStrBase<char>(dst, size, begin, wanted, truncate)
                             : kind == 1 ? utl::t_strncpy<char>(dst, size, begin, wanted)
                                         : utl::copyGeneral<char>(dst, size, 0, begin, 0, wanted, truncate)));
    FUZZ_EXPECT(std::equal(expected.begin(), expected.end(), block.get()));
}

void find(Input* input) {
    std::string const text = fuzz::anyText(input, MOST);
    std::string const sub = input->flag() && !text.empty()
                                ? text.substr(input->upTo(model::length(text) - 1), input->upTo(6))
                                : fuzz::anyText(input, 4);
    unsigned int const start = input->sizeAround(MOST);
    auto const exact = exactly(text);
    auto const exactSub = exactly(sub);
    FUZZ_EXPECT(utl::t_strstr(exact.get(), exactSub.get()) == model::find(text, sub));
    FUZZ_EXPECT(utl::t_strspn(exact.get(), exactSub.get()) == model::span(text, sub));
    FUZZ_EXPECT(utl::t_strcspn(exact.get(), exactSub.get()) == model::complementSpan(text, sub));
    unsigned int next = 0;
    unsigned int const found = utl::findReverseStr(exact.get(), exactSub.get(), start, &next);
    if (!sub.empty() && model::isWellFormed(text) && model::isWellFormed(sub)) {
        unsigned int const expected = model::findReverse(text, sub, start);
        FUZZ_EXPECT(found == expected);
        FUZZ_EXPECT(next == (expected == INVALID_SIZE ? INVALID_SIZE : expected - model::length(sub)));
    }
    FUZZ_EXPECT(sub.empty() || found == INVALID_SIZE || found < text.size());
    unsigned int const one = utl::findReverseChar(exact.get(), exactSub.get(), start, &next);
    FUZZ_EXPECT(one == INVALID_SIZE || one <= text.size());
}

void change(Input* input) {
    std::string const text = fuzz::anyText(input, MOST);
    unsigned int const length = model::length(text);
    unsigned int const at = input->sizeAround(MOST);
    unsigned int const count = input->sizeAround(MOST);
    auto const erased = exactly(text);
    Bytes expected(text.c_str(), text.c_str() + length + 1);
    FUZZ_EXPECT(utl::eraseStrSpan(erased.get(), at, count) == model::erase(&expected, text, at, count));
    FUZZ_EXPECT(std::equal(expected.begin(), expected.end(), erased.get()));

    auto const cut = exactly(text);
    unsigned int const kept = std::min(at, length);
    unsigned int const boundary = kept == 0 ? 0 : model::nearIndex(text, kept, true);
    FUZZ_EXPECT(utl::truncateStr(cut.get(), at) == (boundary == INVALID_SIZE ? boundary : boundary + 1));
    FUZZ_EXPECT(boundary == INVALID_SIZE ? text == cut.get() : text.substr(0, boundary) == cut.get());

    std::string const set = fuzz::anyText(input, 6);
    auto const trimmed = exactly(text);
    unsigned int const result = utl::trimStrRight(trimmed.get(), exactly(set).get());
    if (!model::isWellFormed(text)) {
        FUZZ_EXPECT(result == INVALID_SIZE && text == trimmed.get());
    } else if (!set.empty()) {
        FUZZ_EXPECT(result == model::trimmedLength(text, set) + 1);
        FUZZ_EXPECT(text.substr(0, result - 1) == trimmed.get());
    }
}

void insert(Input* input) {
    std::string const text = fuzz::anyText(input, MOST);
    std::string const added = fuzz::anyText(input, 8);
    unsigned int const size = input->flag() ? 0 : model::length(text) + 1 + input->upTo(MOST);
    unsigned int const at = input->sizeAround(MOST);
    unsigned int const wanted = input->sizeAround(MOST);
    int const truncate = static_cast<int>(input->upTo(2));
    // A size of 0 asks for the size alone, of the text that is there.
    unsigned int const room = size == 0 ? model::length(text) + 1 : size;
    auto const dst = fuzz::blockOf<char>(room, UNUSED);
    std::copy(text.c_str(), text.c_str() + text.size() + 1, dst.get());
    Bytes expected(dst.get(), dst.get() + room);
    unsigned int const modelled = model::insert(&expected, size, text, at, added, wanted, truncate);
    FUZZ_EXPECT(utl::insertStr(dst.get(), size, at, exactly(added).get(), wanted, truncate) == modelled);
    FUZZ_EXPECT(std::equal(expected.begin(), expected.end(), dst.get()));
}

void replace(Input* input) {
    std::string const text = fuzz::anyText(input, MOST);
    std::string const from = fuzz::anyText(input, 3);
    std::string const to = fuzz::anyText(input, 4);
    unsigned int const size = input->upTo(2 * MOST);
    int const truncate = static_cast<int>(input->upTo(2));
    auto const exactText = exactly(text);
    auto const exactFrom = exactly(from);
    auto const exactTo = exactly(to);
    auto const subject = [&](char* dst) {
        return utl::replaceStr(dst, size, exactText.get(), exactFrom.get(), exactTo.get(), truncate);
    };
    if (!from.empty() && !to.empty()) {
        compare(size, subject,
                [&](Bytes* dst) { return model::replaceIn(dst, size, text, from, to, truncate); });
    } else {
        auto const dst = fuzz::blockOf<char>(size, UNUSED);
        unsigned int const result = subject(dst.get());
        FUZZ_EXPECT(result == INVALID_SIZE || size == 0 || result <= size);
    }
}

void reverse(Input* input) {
    std::string const text = fuzz::anyText(input, MOST);
    unsigned int const size = input->upTo(MOST);
    int const truncate = static_cast<int>(input->upTo(2));
    auto const dst = fuzz::blockOf<char>(size, UNUSED);
    Bytes expected(size, UNUSED);
    unsigned int const result = utl::t_strrev(dst.get(), size, exactly(text).get(), truncate);
    FUZZ_EXPECT(result == model::reverse(&expected, text, truncate));
    // Malformed bytes may be found after a part was written.
    FUZZ_EXPECT(result == INVALID_SIZE || std::equal(expected.begin(), expected.end(), dst.get()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    Input input(data, size);
    static constexpr void (*STEPS[])(Input*) = {inspect, copy,   copyOverlapping, find,
                                                change,  insert, replace,         reverse};
    while (!input.isAtEnd()) {
        STEPS[input.upTo(std::size(STEPS) - 1)](&input);
    }
    return 0;
}

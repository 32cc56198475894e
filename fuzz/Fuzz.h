#pragma once

// What the targets share: the input taken apart, blocks of exactly their size, and the end of a run that
// found something.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace fuzz {

[[noreturn]] inline void report(char const* condition, char const* file, int line) {
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
    std::abort();
}

/// Ends the run if the condition does not hold.
#define FUZZ_EXPECT(condition) ((condition) ? void() : fuzz::report(#condition, __FILE__, __LINE__))

/// The input from its start to its end; behind the end everything is 0 or empty.
class Input {
  public:
    Input(uint8_t const* data, size_t size) : mpNext(data), mLeft(size) {}

    bool isAtEnd() const { return mLeft == 0; }

    unsigned char byte() {
        if (isAtEnd()) {
            return 0;
        }
        --mLeft;
        return *mpNext++;
    }

    template <typename T>
    T number() {
        unsigned long long value = 0;
        for (size_t i = 0; i < sizeof(T); ++i) {
            value |= static_cast<unsigned long long>(byte()) << 8 * i;
        }
        return static_cast<T>(value);
    }

    /// 0 to `last`.
    unsigned int upTo(unsigned int last) {
        unsigned int const drawn = last < 0x100 ? byte() : number<unsigned short>();
        return last == 0xFFFFFFFFU ? drawn : drawn % (last + 1);
    }

    bool flag() { return (byte() & 1U) != 0; }

    /// Mostly 0 to `last`, sometimes all bits set, sometimes any number.
    unsigned int sizeAround(unsigned int last) {
        unsigned int const kind = byte();
        return kind == 0xFF ? ~0U : kind == 0xFE ? number<unsigned int>() : upTo(last);
    }

    std::string bytes(size_t most) {
        size_t const count = std::min(std::min<size_t>(upTo(static_cast<unsigned int>(most)), mLeft), most);
        std::string const taken(reinterpret_cast<char const*>(mpNext), count);
        mpNext += count;
        mLeft -= count;
        return taken;
    }

    /// Bytes up to the first zero.
    std::string text(size_t most) { return bytes(most).c_str(); }

    /// All that is left, as text.
    std::string rest() {
        std::string const taken(reinterpret_cast<char const*>(mpNext), mLeft);
        mLeft = 0;
        return taken.c_str();
    }

  private:
    uint8_t const* mpNext;
    size_t mLeft;
};

/// A heap block of exactly `count` elements, so that AddressSanitizer sees every access outside.
template <typename T>
std::unique_ptr<T[]> blockOf(size_t count, T filled = T()) {
    std::unique_ptr<T[]> block(new T[count]);
    std::fill_n(block.get(), count, filled);
    return block;
}

/// The place of an index in a container.
template <typename CONTAINER>
auto placeIn(CONTAINER& container, size_t index) {
    return container.begin() + static_cast<std::ptrdiff_t>(index);
}

/// A copy of the text with its terminator and no byte more.
inline std::unique_ptr<char[]> exactly(std::string const& text) {
    auto copy = blockOf<char>(text.size() + 1);
    std::copy(text.begin(), text.end(), copy.get());
    return copy;
}

/// Text of Japanese and other characters, whole and broken. Each byte of the input below 0x80 is itself, all
/// others choose a piece.
inline std::string japanese(std::string const& chosen) {
    static char const* const PIECES[] = {"あ",
                                         "が",
                                         "ぱ",
                                         "っ",
                                         "ゝ",
                                         "。",
                                         "ー",
                                         "ア",
                                         "ガ",
                                         "パ",
                                         "ッ",
                                         "ヮ",
                                         "ヴ",
                                         "ヽ",
                                         "ヾ",
                                         "゛",
                                         "゜",
                                         "ｱ",
                                         "ｶ",
                                         "ﾊ",
                                         "ﾞ",
                                         "ﾟ",
                                         "ｬ",
                                         "ｰ",
                                         "０",
                                         "９",
                                         "＋",
                                         "－",
                                         "ｘ",
                                         "ｈ",
                                         "Ｆ",
                                         "ａ",
                                         "ｚ",
                                         "Ｚ",
                                         "　",
                                         "！",
                                         "￥",
                                         "～",
                                         "漢",
                                         "表",
                                         "é",
                                         "¢",
                                         "—",
                                         "😀",
                                         "ば",
                                         "う",
                                         "ウ",
                                         "\xEF\xBB\xBF",
                                         "ﾞﾞ",
                                         "0x",
                                         "\r",
                                         "\n",
                                         "\t",
                                         "\xEF\xBB",
                                         "\xE3",
                                         "\xE3\x81",
                                         "\x80",
                                         "\xFF",
                                         "\xC0\x80",
                                         "\xED\xA0\x80",
                                         "\xF7\xBF\xBF\xBF",
                                         "\xF0\x9F\x98",
                                         "\xE0\x9F\xBF",
                                         "\xC3"};
    std::string text;
    for (char const byte : chosen) {
        auto const number = static_cast<unsigned char>(byte);
        text += number < 0x80 ? std::string(1, byte) : PIECES[(number - 0x80) % std::size(PIECES)];
    }
    return text;
}

/// Raw bytes or pieces, as the input chooses.
inline std::string anyText(Input* input, size_t most) {
    bool const isRaw = input->flag();
    std::string const chosen = input->text(most);
    return isRaw ? chosen : japanese(chosen);
}

}  // namespace fuzz

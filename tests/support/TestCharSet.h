#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "UtlPlatform.h"

// Conversions between character sets, from and into heap blocks of exactly the given size.

namespace utltest {

/// UTF-16 text without its terminator.
using Units = std::vector<unsigned short>;

/// A copy of a text with its terminator and no byte more.
template <typename TEXT>
auto terminated(TEXT const& text) {
    using Unit = typename TEXT::value_type;
    auto copy = std::make_unique<Unit[]>(text.size() + 1);
    std::copy(text.begin(), text.end(), copy.get());
    return copy;
}

/// What a call returned, and what its buffer held: the text without the terminator on success, else what was
/// written.
template <typename TO>
struct Outcome {
    unsigned int result;
    std::vector<TO> written;
};

/// Converts into two buffers of exactly `size`, filled with different values before: what is the same in both
/// was written. That must be in one piece, and a result must count all of it.
template <typename TO, typename FROM>
Outcome<TO> convertInto(unsigned int size, unsigned int (*convert)(TO*, unsigned int, FROM const*),
                        FROM const* src) {
    auto const dst = std::make_unique<TO[]>(size);
    auto const other = std::make_unique<TO[]>(size);
    std::fill_n(dst.get(), size, static_cast<TO>(1));
    std::fill_n(other.get(), size, static_cast<TO>(2));
    unsigned int const result = convert(dst.get(), size, src);
    EXPECT_EQ(convert(other.get(), size, src), result);
    TO* const end = std::mismatch(dst.get(), dst.get() + size, other.get()).first;
    EXPECT_EQ(std::count(end, dst.get() + size, static_cast<TO>(1)), dst.get() + size - end);
    if (result == utl::INVALID_SIZE) {
        return {result, std::vector<TO>(dst.get(), end)};
    }
    EXPECT_EQ(static_cast<unsigned int>(end - dst.get()), result);
    EXPECT_EQ(dst[result - 1], TO());
    return {result, std::vector<TO>(dst.get(), end - 1)};
}

/// The result of a string function. The size that it asks for must be the one that it uses, and one less must
/// be refused, with a part of the same text written. A failure must occur with and without a buffer, and
/// returns no text.
template <typename TO, typename FROM>
Outcome<TO> convertedFrom(unsigned int (*convert)(TO*, unsigned int, FROM const*), FROM const* src) {
    unsigned int const needed = convert(nullptr, 0, src);
    if (needed == utl::INVALID_SIZE) {
        EXPECT_EQ(convertInto(64, convert, src).result, needed);
        return {needed, {}};
    }
    Outcome<TO> const whole = convertInto(needed, convert, src);
    EXPECT_EQ(whole.result, needed);
    EXPECT_EQ(convertInto(needed + 1, convert, src).result, needed);
    if (needed > 1) {
        Outcome<TO> const part = convertInto(needed - 1, convert, src);
        EXPECT_EQ(part.result, utl::INVALID_SIZE);
        EXPECT_LT(part.written.size(), needed - 1);
        EXPECT_TRUE(std::equal(part.written.begin(), part.written.end(), whole.written.begin()));
    }
    return whole;
}

template <typename TO, typename TEXT>
Outcome<TO> converted(unsigned int (*convert)(TO*, unsigned int, typename TEXT::value_type const*),
                      TEXT const& text) {
    return convertedFrom(convert, static_cast<typename TEXT::value_type const*>(terminated(text).get()));
}

/// The text of a result that must be one.
template <typename TO>
auto textOf(Outcome<TO> const& outcome) {
    EXPECT_NE(outcome.result, utl::INVALID_SIZE);
    if constexpr (sizeof(TO) == 1) {
        return std::string(outcome.written.begin(), outcome.written.end());
    } else {
        return outcome.written;
    }
}

}  // namespace utltest

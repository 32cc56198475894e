#pragma once

#include <cstddef>
#include <set>
#include <vector>

namespace utltest {

/// All texts that up to `count` of the pieces form, one after the other, and all that remain of these when
/// they are cut at any byte. The empty text is among them.
template <typename TEXT>
std::vector<TEXT> textsOf(unsigned int count, std::vector<TEXT> const& pieces) {
    std::set<TEXT> texts;
    std::vector<TEXT> whole{TEXT()};
    for (unsigned int i = 0; i < count; ++i) {
        std::vector<TEXT> longer;
        for (TEXT const& text : whole) {
            for (TEXT const& piece : pieces) {
                longer.push_back(text);
                longer.back().insert(longer.back().end(), piece.begin(), piece.end());
                for (auto end = longer.back().begin(); end != longer.back().end(); ++end) {
                    texts.emplace(longer.back().begin(), end);
                }
                texts.insert(longer.back());
            }
        }
        whole = longer;
    }
    return {texts.begin(), texts.end()};
}

}  // namespace utltest

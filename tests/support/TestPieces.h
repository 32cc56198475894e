#pragma once

#include <cstddef>
#include <set>
#include <vector>

namespace utltest {

/// Everything that up to `count` of the pieces make, one behind the other, and all that is left of it when it
/// is cut somewhere. The empty text is among it.
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

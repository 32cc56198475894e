#pragma once

// Texts of Japanese manual pages by the kinds of their characters.

#include <cstddef>
#include <string>
#include <vector>

#include "BenchRatio.h"
#include "BenchText.h"
#include "UtlAttribConvert.h"
#include "UtlCharAttrib.h"
#include "UtlString.h"

namespace utlbench {

constexpr std::size_t SOURCE_BYTES = 4U << 20U;

constexpr int ALL_KANA = utl::ATTRIB_NODAKU_HAN_KATA | utl::ATTRIB_NODAKU_ZEN_KATA |
                         utl::ATTRIB_DAKU_HAN_KATA | utl::ATTRIB_DAKU_ZEN_KATA |
                         utl::ATTRIB_HANDAKU_HAN_KATA | utl::ATTRIB_HANDAKU_ZEN_KATA |
                         utl::ATTRIB_NODAKU_HIRA | utl::ATTRIB_DAKU_HIRA | utl::ATTRIB_HANDAKU_HIRA;

using IsWanted = bool (*)(char const*);

/// The first `bytes` bytes, or a few less, of those characters of the manual pages that are wanted.
inline std::string textOf(unsigned int bytes, IsWanted isWanted) {
    static std::string const pages = manualPages(SOURCE_BYTES);
    std::string text;
    for (std::size_t i = 0; text.size() < bytes && i < pages.size();) {
        unsigned int const length = utl::t_charlen(pages.c_str() + i);
        if (length == 0 || length == utl::INVALID_SIZE) {
            ++i;
            continue;
        }
        std::string const character = pages.substr(i, length);
        text += isWanted(character.c_str()) ? character : "";
        i += length;
    }
    text.resize(utl::getNearCharIndex(text.c_str(), bytes, 1));
    if (text.size() + 4 < bytes) {
        giveUp("too little text of a kind");
    }
    return text;
}

inline bool isAnything(char const*) {
    return true;
}

/// Most of a manual page in Japanese is in other alphabets; this is its Japanese part.
inline bool isJapanese(char const* character) {
    return utl::t_charlen(character) == 3;
}

inline bool isKana(char const* character) {
    return utl::isStrAttribBase(character, ALL_KANA);
}

inline std::string halfWidth(unsigned int bytes, IsWanted isWanted) {
    std::string const text = textOf(bytes, isWanted);
    std::vector<char> half(4 * text.size());
    utl::convertAttrib(half.data(), static_cast<unsigned int>(half.size()), text.c_str(),
                       utl::HANKAKU_ZENKAKU_PAIR, 1, 0);
    std::string converted = half.data();
    converted.resize(utl::getNearCharIndex(converted.c_str(), bytes, 1));
    return converted;
}

/// `convertAttrib` to the right, of a text that does not change.
inline auto convert(std::string const& text, utl::PairAttrib const* table) {
    return [text, table, dst = std::vector<char>(4 * text.size())]() mutable {
        keep(
            utl::convertAttrib(dst.data(), static_cast<unsigned int>(dst.size()), text.c_str(), table, 0, 0));
    };
}

template <typename SUBJECT, typename BASELINE>
RatioDeclaration compared(char const* name, SUBJECT subject, BASELINE baseline, double goal) {
    return {THREAD_TIME, name, subject, baseline, goal};
}

}  // namespace utlbench

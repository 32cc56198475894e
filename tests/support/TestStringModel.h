#pragma once

// Plain, slow models of the string primitives, on texts that know their size.

#include <algorithm>
#include <string>
#include <vector>

namespace utltest {
namespace model {

using Bytes = std::vector<char>;

constexpr unsigned int BAD = ~0U;

inline unsigned int byteAt(std::string const& text, std::size_t i) {
    return static_cast<unsigned char>(text[i]);
}

inline unsigned int length(std::string const& text) {
    return static_cast<unsigned int>(text.size());
}

inline bool startsCharacter(unsigned int byte) {
    return byte < 0x80 || (byte >= 0xC0 && byte < 0xF8);
}

inline unsigned int charLength(std::string const& text) {
    if (text.empty()) {
        return 0;
    }
    unsigned int const first = byteAt(text, 0);
    if (first < 0x80) {
        return 1;
    }
    unsigned int const bytes = first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF8 ? 4 : 0;
    if (bytes == 0 || text.size() < bytes) {
        return BAD;
    }
    for (std::size_t i = 1; i < bytes; ++i) {
        if (byteAt(text, i) < 0x80 || byteAt(text, i) > 0xBF) {
            return BAD;
        }
    }
    unsigned int const second = byteAt(text, 1);
    return (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90) ? BAD : bytes;
}

inline unsigned int charLengthOrZero(std::string const& text) {
    unsigned int const bytes = charLength(text);
    return bytes == BAD && startsCharacter(byteAt(text, 0)) ? 0 : bytes;
}

// The characters before the first malformed byte.
inline std::vector<std::string> characters(std::string const& text) {
    std::vector<std::string> result;
    std::size_t offset = 0;
    for (;;) {
        unsigned int const bytes = charLength(text.substr(offset));
        if (bytes == 0 || bytes == BAD) {
            return result;
        }
        result.push_back(text.substr(offset, bytes));
        offset += bytes;
    }
}

inline std::string joined(std::vector<std::string> const& characters) {
    std::string text;
    for (std::string const& one : characters) {
        text += one;
    }
    return text;
}

inline bool isWellFormed(std::string const& text) {
    return joined(characters(text)) == text;
}

inline unsigned int nearIndex(std::string const& text, unsigned int index, bool isDown) {
    std::vector<unsigned int> boundaries{0};
    for (std::string const& one : characters(text)) {
        boundaries.push_back(boundaries.back() + length(one));
    }
    if (index > boundaries.back()) {
        return isWellFormed(text) ? length(text) : BAD;
    }
    auto const above = std::lower_bound(boundaries.begin(), boundaries.end(), index);
    return *above == index || !isDown ? *above : *(above - 1);
}

// Writes `count` bytes of `src` and a terminator, moved back to a character start.
inline unsigned int place(Bytes* dst, unsigned int dstPos, std::string const& src, unsigned int count) {
    if (count < src.size()) {
        while (!startsCharacter(byteAt(src, count))) {
            if (count == 0) {
                return dstPos - 1;
            }
            --count;
        }
    }
    std::copy_n(src.begin(), count, dst->data() + dstPos);
    (*dst)[dstPos + count] = '\0';
    return dstPos + count + 1;
}

inline unsigned int copyStr(Bytes* dst, unsigned int dstSize, std::string const& src, unsigned int wanted,
                            int truncate) {
    if (wanted == 0) {
        return 0;
    }
    unsigned int count = std::min(wanted, length(src));
    if (dstSize == 0) {
        return count + 1;
    }
    if (dstSize == 1) {
        if (!src.empty() && truncate != 1) {
            return BAD;
        }
        (*dst)[0] = '\0';
        return 1;
    }
    if (truncate != 1 && dstSize < count + 1) {
        return BAD;
    }
    if (truncate == 1) {
        count = nearIndex(src, std::min(count, dstSize - 1), true);
    }
    return count == BAD ? BAD : place(dst, 0, src, count);
}

inline unsigned int strNCpy(Bytes* dst, unsigned int dstSize, std::string const& src, unsigned int wanted) {
    unsigned int const count = std::min(wanted, length(src));
    return dstSize <= count ? BAD : place(dst, 0, src, count);
}

inline unsigned int general(Bytes* dst, unsigned int dstSize, unsigned int dstPos, std::string const& src,
                            unsigned int srcPos, unsigned int wanted, int truncate) {
    if (wanted == 0) {
        return dstPos;
    }
    if (srcPos > src.size()) {
        return BAD;
    }
    std::string const from = src.substr(srcPos);
    unsigned int count = std::min(wanted, length(from));
    if (dstSize == 0) {
        return dstPos + 1 + count;
    }
    if (dstPos >= dstSize) {
        return BAD;
    }
    if (dstPos == dstSize - 1) {
        if (count != 0 && truncate != 1) {
            return BAD;
        }
        (*dst)[dstPos] = '\0';
        return dstPos + 1;
    }
    unsigned int const space = dstSize - dstPos;
    if (truncate == 1) {
        count = nearIndex(from, std::min(count, space - 1), true);
    } else if (space < count + 1) {
        return BAD;
    }
    return count == BAD ? BAD : place(dst, dstPos, from, count);
}

// Offsets at which a search may hit: the starts of the well-formed characters.
inline std::vector<unsigned int> searchPlaces(std::string const& text) {
    std::vector<unsigned int> places;
    for (std::size_t offset = 0; offset < text.size();) {
        unsigned int const bytes = charLength(text.substr(offset));
        if (bytes != BAD) {
            places.push_back(static_cast<unsigned int>(offset));
        }
        offset += bytes == BAD ? 1 : bytes;
    }
    return places;
}

inline unsigned int find(std::string const& text, std::string const& sub) {
    if (sub.empty()) {
        return length(text);
    }
    for (unsigned int offset : searchPlaces(text)) {
        if (text.compare(offset, sub.size(), sub) == 0) {
            return offset;
        }
    }
    return BAD;
}

// Both texts well-formed, `sub` not empty: the last match that ends at `start` or before.
inline unsigned int findReverse(std::string const& text, std::string const& sub, unsigned int start) {
    unsigned int found = BAD;
    for (unsigned int offset : searchPlaces(text)) {
        unsigned int const last = offset + length(sub) - 1;
        if (last <= start && text.compare(offset, sub.size(), sub) == 0) {
            found = last;
        }
    }
    return found;
}

inline unsigned int span(std::string const& text, std::string const& set) {
    std::vector<std::string> const members = characters(set);
    unsigned int result = 0;
    for (std::string const& one : characters(text)) {
        if (std::find(members.begin(), members.end(), one) == members.end()) {
            break;
        }
        result += length(one);
    }
    return result;
}

// Each character of the set is copied out by `strNCpy` and searched for on its own.
inline unsigned int complementSpan(std::string const& text, std::string const& set) {
    unsigned int result = length(text);
    std::size_t offset = 0;
    for (std::string const& one : characters(set)) {
        Bytes copied(7, '\0');
        strNCpy(&copied, 7, set.substr(offset), length(one));
        result = std::min(result, find(text, copied.data()));
        offset += one.size();
    }
    return result;
}

// The reversed text up to the last character that fits.
inline unsigned int reverse(Bytes* dst, std::string const& src, int truncate) {
    unsigned int const dstSize = static_cast<unsigned int>(dst->size());
    if (dstSize == 0 || (truncate == 0 && src.size() + 1 > dstSize) || !isWellFormed(src)) {
        return BAD;
    }
    std::vector<std::string> backwards = characters(src);
    std::reverse(backwards.begin(), backwards.end());
    while (joined(backwards).size() > dstSize - 1) {
        backwards.pop_back();
    }
    return place(dst, 0, joined(backwards), length(joined(backwards)));
}

inline unsigned int erase(Bytes* text, std::string const& old, unsigned int pos, unsigned int count) {
    if (pos > old.size()) {
        return BAD;
    }
    unsigned int const size = length(old) + 1;
    unsigned int used = 0;
    if (pos != 0) {
        unsigned int const result = general(text, size, 0, old, 0, pos, 0);
        if (result == BAD) {
            return BAD;
        }
        used = result - 1;
    }
    unsigned long long const end = 0ULL + pos + count;
    unsigned int const tail = end < old.size() ? static_cast<unsigned int>(end) : length(old);
    return general(text, size, used, old, tail, BAD, 0);
}

inline unsigned int insert(Bytes* dst, unsigned int dstSize, std::string const& old, unsigned int pos,
                           std::string const& src, unsigned int wanted, int truncate) {
    if (pos > old.size()) {
        return BAD;
    }
    unsigned int used = 0;
    if (pos != 0) {
        unsigned int const result = general(dst, dstSize, 0, old, 0, pos, truncate);
        if (result == BAD) {
            return BAD;
        }
        used = result - 1;
    }
    unsigned int const count = std::min(wanted, length(src));
    if (count != 0) {
        unsigned int const result = general(dst, dstSize, used, src, 0, count, truncate);
        if (result == BAD) {
            return BAD;
        }
        used = result - 1;
    }
    return general(dst, dstSize, used, old, pos, BAD, truncate);
}

inline unsigned int firstCharacterStart(std::string const& text) {
    unsigned int start = 0;
    while (start < text.size() && !startsCharacter(byteAt(text, start))) {
        ++start;
    }
    return start;
}

// The text as a whole, for a destination that has room enough; `from` and `to` are not empty.
inline std::string replaced(std::string const& text, std::string const& from, std::string const& to) {
    std::string result;
    std::string rest = text;
    for (;;) {
        unsigned int const start = firstCharacterStart(rest);
        unsigned int const match = find(rest.substr(start), from);
        if (match == BAD) {
            return result + rest;
        }
        result += rest.substr(0, start + match) + to;
        rest = rest.substr(start + match + from.size());
    }
}

// The same piece by piece, while the destination has room.
inline unsigned int replaceIn(Bytes* dst, unsigned int dstSize, std::string const& text,
                              std::string const& from, std::string const& to, int truncate) {
    std::string rest = text;
    unsigned int used = 0;
    for (;;) {
        unsigned int const start = firstCharacterStart(rest);
        unsigned int const match = find(rest.substr(start), from);
        if (match == BAD) {
            return general(dst, dstSize, used, rest, 0, BAD, truncate);
        }
        for (std::string const& piece : {rest.substr(0, start + match), to}) {
            unsigned int const result =
                piece.empty() ? used + 1 : general(dst, dstSize, used, piece, 0, BAD, truncate);
            if (result == BAD) {
                return BAD;
            }
            used = result - 1;
        }
        rest = rest.substr(start + match + from.size());
    }
}

inline unsigned int trimmedLength(std::string const& text, std::string const& set) {
    std::vector<std::string> kept = characters(text);
    std::vector<std::string> const members = characters(set);
    while (!kept.empty() && std::find(members.begin(), members.end(), kept.back()) != members.end()) {
        kept.pop_back();
    }
    return length(joined(kept));
}

}  // namespace model
}  // namespace utltest

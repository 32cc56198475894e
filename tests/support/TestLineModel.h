#pragma once

// Where a line of a file ends: what a search returned, and a plain, slow model that walks from character to
// character.

#include <algorithm>
#include <array>
#include <ostream>
#include <string>

#include "UtlCharSet.h"
#include "UtlFile.h"
#include "UtlString.h"

namespace utltest {

/// What a search for the line end returned, and where the position is then.
struct LineEnd {
    int result;
    unsigned int lineSize;
    unsigned int eolSize;
    long long position;

    bool operator==(LineEnd const& other) const {
        return result == other.result && lineSize == other.lineSize && eolSize == other.eolSize &&
               position == other.position;
    }
    friend std::ostream& operator<<(std::ostream& out, LineEnd const& end) {
        return out << end.result << ": " << end.lineSize << " + " << end.eolSize << ", at " << end.position;
    }
};

/// One step of a walk: how many bytes it moves, and what the character is. Marks and broken bytes are none.
struct Step {
    unsigned int bytes;
    enum { CHARACTER, NONE, CARRIAGE_RETURN, LINE_FEED } what;
};

inline Step stepOf(unsigned int bytes, unsigned int code) {
    return {bytes, code == '\r' ? Step::CARRIAGE_RETURN : code == '\n' ? Step::LINE_FEED : Step::CHARACTER};
}

inline Step stepInUtf16(std::string const& rest, int textType) {
    unsigned int const first = static_cast<unsigned char>(rest[0]);
    unsigned int const second = static_cast<unsigned char>(rest[1]);
    unsigned int const code =
        textType == utl::File::TEXT_UTF16_BIG ? first << 8 | second : second << 8 | first;
    return code == 0xFEFF || code == 0xFFFE ? Step{2, Step::NONE} : stepOf(2, code);
}

inline Step stepInUtf8(std::string const& rest) {
    bool isBom = false;
    unsigned int const bytes = utl::strCharBytesBase(rest.substr(0, 6).c_str(), &isBom);
    if (bytes == 0 || bytes == utl::INVALID_SIZE) {
        return {1, Step::NONE};
    }
    return isBom ? Step{bytes, Step::NONE}
                 : stepOf(bytes, bytes == 1 ? static_cast<unsigned char>(rest[0]) : 0);
}

// No code covers a line feed after its first byte; a carriage return there is its second one.
inline Step stepInSjis(std::string const& rest) {
    std::string const character = rest.substr(0, rest.find('\n', 1)).substr(0, 6);
    unsigned int bytes = 1;
    utl::convertCharFromSjisToUtf8(std::array<char, 8>().data(), 8, character.c_str(), &bytes);
    return stepOf(bytes, bytes == 1 ? static_cast<unsigned char>(rest[0]) : 0);
}

/// The end of the line by a walk from one character to the next.
inline LineEnd walked(std::string const& content, unsigned int from, int textType) {
    unsigned int const unit = textType >= utl::File::TEXT_UTF16_BIG ? 2 : 1;
    unsigned int total = 0;
    unsigned int pending = 0;
    while (from + total + unit <= content.size()) {
        std::string const rest = content.substr(from + total, 6);
        Step const step = textType >= utl::File::TEXT_UTF16_BIG ? stepInUtf16(rest, textType)
                          : textType == utl::File::TEXT_UTF8    ? stepInUtf8(rest)
                                                                : stepInSjis(rest);
        total += step.bytes;
        if (step.what == Step::LINE_FEED) {
            pending += step.bytes;
            return {static_cast<int>(total), total - pending, pending, static_cast<long long>(from + total)};
        }
        pending = step.what == Step::CARRIAGE_RETURN ? pending + step.bytes
                  : step.what == Step::NONE          ? pending
                                                     : 0;
    }
    return {0, total - pending, pending, static_cast<long long>(std::max<std::size_t>(from, content.size()))};
}

}  // namespace utltest

#pragma once

// Large files of Japanese lines.

#include <cstddef>
#include <fstream>
#include <string>

#include "BenchCharSets.h"
#include "BenchFiles.h"
#include "BenchText.h"
#include "UtlCharSet.h"
#include "UtlFile.h"
#include "UtlString.h"

namespace utlbench {

constexpr std::size_t FILE_BYTES = 20'000'000;
constexpr unsigned int LINE_BYTES = 80;

inline BenchFolder const& linesFolder() {
    static BenchFolder const theFolder;
    return theFolder;
}

/// Japanese text without line ends, up to about half of `FILE_BYTES`.
inline std::string const& plainText() {
    static std::string const theText = [] {
        std::string const pages = manualPages(FILE_BYTES / 2);
        std::string text;
        for (char const* rest = pages.c_str(); *rest != '\0';) {
            unsigned int const bytes = utl::strCharBytesBase<char>(rest, nullptr);
            bool const isCharacter = bytes != 0 && bytes != utl::INVALID_SIZE;
            text.append(rest, isCharacter && *rest != '\n' ? bytes : 0);
            rest += isCharacter ? bytes : 1;
        }
        return text;
    }();
    return theText;
}

/// The same in Shift-JIS, without the characters that it lacks.
inline std::string sjisText() {
    return convertedBy(Iconv("CP932//IGNORE", "UTF-8"), plainText());
}

inline unsigned int charBytes(char const* text, int textType) {
    unsigned int bytes = 0;
    if (textType == utl::File::TEXT_UTF8) {
        return utl::strCharBytesBase<char>(text, nullptr);
    }
    char form[4];
    utl::convertCharFromSjisToUtf8(form, sizeof(form), text, &bytes);
    return bytes;
}

/// A file of lines whose length is as near to `LINE_BYTES` as whole characters allow. Returns its path.
inline std::string makeLines(std::string const& name, int textType) {
    std::string const text = textType == utl::File::TEXT_UTF8 ? plainText() : sjisText();
    std::string const path = linesFolder().make(name) + "/lines";
    std::string lines;
    std::size_t start = 0;
    while (lines.size() < FILE_BYTES) {
        unsigned int length = 0;
        while (start + length < text.size() && length < LINE_BYTES) {
            length += charBytes(text.c_str() + start + length, textType);
        }
        lines += text.substr(start, length) + '\n';
        start = start + length < text.size() ? start + length : 0;
    }
    std::ofstream(path, std::ios::binary) << lines;
    return path;
}

template <int TYPE>
std::string const& pathOfLines() {
    static std::string const thePath = makeLines(TYPE == utl::File::TEXT_UTF8 ? "utf8" : "sjis", TYPE);
    return thePath;
}

}  // namespace utlbench

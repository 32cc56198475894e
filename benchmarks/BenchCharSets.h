#pragma once

// Japanese manual pages in several character sets, and what the measurements of conversions share. The texts
// contain only characters of code page 932, so that everybody does the same work without errors.

#include <iconv.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "BenchRatio.h"
#include "BenchText.h"
#include "UtlCharSet.h"

namespace utlbench {

constexpr std::size_t KILOBYTE = 1024;
constexpr std::size_t MEGABYTE = 1024 * KILOBYTE;

/// A converter of the C library.
class Iconv {
  public:
    Iconv(char const* to, char const* from) : mConverter(iconv_open(to, from)) {
        if (mConverter == reinterpret_cast<iconv_t>(-1)) {
            giveUp("the C library lacks a converter");
        }
    }

    // Returns the bytes written.
    template <typename TO>
    std::size_t convert(std::string const& text, TO* dst) const {
        char* from = const_cast<char*>(text.data());
        char* to = reinterpret_cast<char*>(dst->data());
        std::size_t left = text.size();
        std::size_t const size = dst->size() * sizeof(typename TO::value_type);
        std::size_t room = size;
        iconv(mConverter, nullptr, nullptr, nullptr, nullptr);
        iconv(mConverter, &from, &left, &to, &room);
        return size - room;
    }

  private:
    iconv_t mConverter;
};

inline std::string convertedBy(Iconv const& converter, std::string const& text) {
    std::string dst(4 * text.size(), '\0');
    dst.resize(converter.convert(text, &dst));
    return dst;
}

using Units = std::vector<unsigned short>;

/// One text in all its forms, and room for each.
struct Texts {
    explicit Texts(std::string const& text) : utf8(text) {
        sjis = convertedBy(Iconv("CP932", "UTF-8"), utf8);
        utf16Bytes = convertedBy(Iconv("UTF-16LE", "UTF-8"), utf8);
        utf16.resize(utf16Bytes.size() / 2 + 1);
        std::memcpy(utf16.data(), utf16Bytes.data(), utf16Bytes.size());
        for (unsigned short const unit : utf16) {
            wideText += static_cast<wchar_t>(unit);
        }
        wideText.pop_back();
        bytes.resize(2 * utf8.size() + 1);
        units.resize(utf16.size());
        wide.resize(utf16.size());
    }

    std::string utf8;
    std::string sjis;
    std::string utf16Bytes;
    Units utf16;  // with a terminator
    std::wstring wideText;
    std::string bytes;
    Units units;
    std::vector<wchar_t> wide;
};

/// All characters of the manual pages that the code page has.
inline std::string const& pageText() {
    static std::string const text = convertedBy(
        Iconv("UTF-8", "CP932"), convertedBy(Iconv("CP932//IGNORE", "UTF-8"), manualPages(4 * MEGABYTE)));
    return text;
}

/// `bytes` bytes of UTF-8, or up to two more.
inline Texts textOf(std::size_t bytes) {
    while ((pageText()[bytes] & 0xC0) == 0x80) {
        ++bytes;
    }
    return Texts(pageText().substr(0, bytes));
}

// --- the library's ways. Each returns what it wrote, in units of the target, without a terminator.

template <typename TEXT>
unsigned int roomOf(TEXT const& text) {
    return static_cast<unsigned int>(text.size());
}

inline std::size_t sjisToUtf8(Texts& t) {
    return utl::convertStrFromSjisToUtf8(t.bytes.data(), roomOf(t.bytes), t.sjis.c_str()) - 1;
}

inline std::size_t utf8ToSjis(Texts& t) {
    return utl::convertStrFromUtf8ToSjis(t.bytes.data(), roomOf(t.bytes), t.utf8.c_str()) - 1;
}

inline std::size_t utf8ToUtf16(Texts& t) {
    return utl::convertStrFromUtf8ToUtf16(t.units.data(), roomOf(t.units), t.utf8.c_str()) - 1;
}

inline std::size_t utf16ToUtf8(Texts& t) {
    return utl::convertStrFromUtf16ToUtf8(t.bytes.data(), roomOf(t.bytes), t.utf16.data()) - 1;
}

// --- the same by the C library

inline std::size_t sjisToUtf8ByIconv(Texts& t) {
    static Iconv const converter("UTF-8", "CP932");
    return converter.convert(t.sjis, &t.bytes);
}

inline std::size_t utf8ToSjisByIconv(Texts& t) {
    static Iconv const converter("CP932", "UTF-8");
    return converter.convert(t.utf8, &t.bytes);
}

inline std::size_t utf8ToUtf16ByIconv(Texts& t) {
    static Iconv const converter("UTF-16LE", "UTF-8");
    return converter.convert(t.utf8, &t.units) / 2;
}

inline std::size_t utf16ToUtf8ByIconv(Texts& t) {
    static Iconv const converter("UTF-8", "UTF-16LE");
    return converter.convert(t.utf16Bytes, &t.bytes);
}

// --- figures

using Way = std::size_t (*)(Texts&);

inline auto on(std::size_t bytes, Way way) {
    return [texts = textOf(bytes), way]() mutable { keep(way(texts)); };
}

/// The result of one way, to be compared with that of another.
inline std::string resultOf(Way way, Texts texts) {
    std::size_t const written = way(texts);
    Units const units(texts.units.begin(), texts.units.begin() + static_cast<std::ptrdiff_t>(
                                                                     std::min(written, texts.units.size())));
    return texts.bytes.substr(0, written) + "|" +
           std::string(reinterpret_cast<char const*>(units.data()), 2 * units.size());
}

/// Compares only ways that do the same work.
inline RatioDeclaration compared(char const* name, std::size_t bytes, Way way, Way other, double goal) {
    if (resultOf(way, textOf(bytes)) != resultOf(other, textOf(bytes))) {
        giveUp(name);
    }
    return {THREAD_TIME, name, on(bytes, way), on(bytes, other), goal};
}

}  // namespace utlbench

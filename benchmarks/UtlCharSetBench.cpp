// Conversions between character sets, on Japanese manual pages, against the C library's iconv.

#include "UtlCharSet.h"

#include <cstddef>
#include <string>

#include "BenchCharSets.h"
#include "BenchRatio.h"

namespace {

using namespace utlbench;  // the texts and the library's ways

std::size_t sjisToUtf16(Texts& t) {
    return utl::convertStrFromSjisToUtf16(t.units.data(), roomOf(t.units), t.sjis.c_str()) - 1;
}

// Functions that are compared with themselves alone.

std::size_t tcharToWchar(Texts& t) {
    return utl::convertStrFromTcharToWchar(t.wide.data(), roomOf(t.wide), t.utf8.c_str());
}

std::size_t wcharToTchar(Texts& t) {
    return utl::convertStrFromWcharToTchar(t.bytes.data(), roomOf(t.bytes), t.wideText.c_str());
}

std::size_t tcharToChar(Texts& t) {
    return utl::convertStrFromTcharToChar(t.bytes.data(), roomOf(t.bytes), t.utf8.c_str());
}

std::size_t dcharToUint8(Texts& t) {
    return utl::convertStrFromDcharToUint8(reinterpret_cast<unsigned char*>(t.bytes.data()), roomOf(t.bytes),
                                           t.utf16.data(), utl::INVALID_SIZE, 1);
}

std::size_t uint8ToDchar(Texts& t) {
    return utl::convertBinFromUint8ToDchar(t.units.data(), roomOf(t.units),
                                           reinterpret_cast<unsigned char const*>(t.utf16Bytes.data()),
                                           roomOf(t.utf16Bytes), 1);
}

// --- the figures

// The same text once and twice, so that both have the same mixture. The goal leaves room for fixed costs and
// caches.
utlbench::RatioDeclaration doubled(char const* name, Way way) {
    std::string const once = textOf(128 * KILOBYTE).utf8;
    auto const over = [way](std::string const& text) {
        return [texts = Texts(text), way]() mutable { utlbench::keep(way(texts)); };
    };
    return {utlbench::THREAD_TIME, name, over(once + once), over(once), 2.3};
}

constexpr double THIRD = 1.0 / 3;
constexpr double AHEAD = 0.99;

utlbench::RatioDeclaration const FIGURES[] = {
    compared("Shift-JIS to UTF-8, 1 KB, to iconv", KILOBYTE, sjisToUtf8, sjisToUtf8ByIconv, THIRD),
    compared("Shift-JIS to UTF-8, 1 MB, to iconv", MEGABYTE, sjisToUtf8, sjisToUtf8ByIconv, THIRD),
    compared("UTF-8 to Shift-JIS, 1 KB, to iconv", KILOBYTE, utf8ToSjis, utf8ToSjisByIconv, THIRD),
    compared("UTF-8 to Shift-JIS, 1 MB, to iconv", MEGABYTE, utf8ToSjis, utf8ToSjisByIconv, THIRD),
    compared("UTF-8 to UTF-16, 1 KB, to iconv", KILOBYTE, utf8ToUtf16, utf8ToUtf16ByIconv, AHEAD),
    compared("UTF-8 to UTF-16, 1 MB, to iconv", MEGABYTE, utf8ToUtf16, utf8ToUtf16ByIconv, AHEAD),
    compared("UTF-16 to UTF-8, 1 KB, to iconv", KILOBYTE, utf16ToUtf8, utf16ToUtf8ByIconv, AHEAD),
    compared("UTF-16 to UTF-8, 1 MB, to iconv", MEGABYTE, utf16ToUtf8, utf16ToUtf8ByIconv, AHEAD),
    doubled("convertStrFromSjisToUtf8, twice the bytes to once", sjisToUtf8),
    doubled("convertStrFromUtf8ToSjis, twice the bytes to once", utf8ToSjis),
    doubled("convertStrFromSjisToUtf16, twice the bytes to once", sjisToUtf16),
    doubled("convertStrFromUtf8ToUtf16, twice the bytes to once", utf8ToUtf16),
    doubled("convertStrFromUtf16ToUtf8, twice the bytes to once", utf16ToUtf8),
    doubled("convertStrFromTcharToWchar, twice the bytes to once", tcharToWchar),
    doubled("convertStrFromWcharToTchar, twice the bytes to once", wcharToTchar),
    doubled("convertStrFromTcharToChar, twice the bytes to once", tcharToChar),
    doubled("convertStrFromDcharToUint8, twice the bytes to once", dcharToUint8),
    doubled("convertBinFromUint8ToDchar, twice the bytes to once", uint8ToDchar),
};

}  // namespace

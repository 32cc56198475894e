// Conversions between character sets, on Japanese manual pages, against the C library's iconv and ICU. The
// texts contain only characters of code page 932, so that all three do the same work without errors.

#include "UtlCharSet.h"

#include <iconv.h>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "BenchRatio.h"
#include "BenchText.h"

namespace {

constexpr std::size_t KILOBYTE = 1024;
constexpr std::size_t MEGABYTE = 1024 * KILOBYTE;

// A converter of the C library.
class Iconv {
  public:
    Iconv(char const* to, char const* from) : mConverter(iconv_open(to, from)) {
        if (mConverter == reinterpret_cast<iconv_t>(-1)) {
            utlbench::giveUp("the C library lacks a converter");
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

std::string convertedBy(Iconv const& converter, std::string const& text) {
    std::string dst(4 * text.size(), '\0');
    dst.resize(converter.convert(text, &dst));
    return dst;
}

// Two converters of ICU, from one character set into another by way of UTF-16.
class IcuConverter {
  public:
    IcuConverter(char const* to, char const* from) : mpTo(opened(to)), mpFrom(opened(from)) {}

    std::size_t convert(std::string const& text, std::string* dst) const {
        char const* src = text.data();
        char* to = dst->data();
        UErrorCode error = U_ZERO_ERROR;
        ucnv_convertEx(mpTo, mpFrom, &to, to + dst->size(), &src, src + text.size(), nullptr, nullptr,
                       nullptr, nullptr, 1, 1, &error);
        return U_SUCCESS(error) ? static_cast<std::size_t>(to - dst->data()) : 0;
    }

  private:
    static UConverter* opened(char const* name) {
        UErrorCode error = U_ZERO_ERROR;
        UConverter* const converter = ucnv_open(name, &error);
        if (U_FAILURE(error)) {
            utlbench::giveUp("ICU lacks a converter");
        }
        return converter;
    }

    UConverter* mpTo;
    UConverter* mpFrom;
};

using Units = std::vector<unsigned short>;

// One text in all its forms, and room for each.
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

// All characters of the manual pages that the code page has.
std::string const& pageText() {
    static std::string const text =
        convertedBy(Iconv("UTF-8", "CP932"),
                    convertedBy(Iconv("CP932//IGNORE", "UTF-8"), utlbench::manualPages(4 * MEGABYTE)));
    return text;
}

// `bytes` bytes of UTF-8, or up to two more.
Texts textOf(std::size_t bytes) {
    while ((pageText()[bytes] & 0xC0) == 0x80) {
        ++bytes;
    }
    return Texts(pageText().substr(0, bytes));
}

// --- the library's ways and the others'. Each returns what it wrote, in units of the target, without a
// terminator.

template <typename TEXT>
unsigned int roomOf(TEXT const& text) {
    return static_cast<unsigned int>(text.size());
}

std::size_t sjisToUtf8(Texts& t) {
    return utl::convertStrFromSjisToUtf8(t.bytes.data(), roomOf(t.bytes), t.sjis.c_str()) - 1;
}

std::size_t sjisToUtf8ByIconv(Texts& t) {
    static Iconv const converter("UTF-8", "CP932");
    return converter.convert(t.sjis, &t.bytes);
}

std::size_t sjisToUtf8ByIcu(Texts& t) {
    static IcuConverter const converter("UTF-8", "windows-932");
    return converter.convert(t.sjis, &t.bytes);
}

std::size_t utf8ToSjis(Texts& t) {
    return utl::convertStrFromUtf8ToSjis(t.bytes.data(), roomOf(t.bytes), t.utf8.c_str()) - 1;
}

std::size_t utf8ToSjisByIconv(Texts& t) {
    static Iconv const converter("CP932", "UTF-8");
    return converter.convert(t.utf8, &t.bytes);
}

std::size_t utf8ToSjisByIcu(Texts& t) {
    static IcuConverter const converter("windows-932", "UTF-8");
    return converter.convert(t.utf8, &t.bytes);
}

std::size_t sjisToUtf16(Texts& t) {
    return utl::convertStrFromSjisToUtf16(t.units.data(), roomOf(t.units), t.sjis.c_str()) - 1;
}

std::size_t utf8ToUtf16(Texts& t) {
    return utl::convertStrFromUtf8ToUtf16(t.units.data(), roomOf(t.units), t.utf8.c_str()) - 1;
}

std::size_t utf8ToUtf16ByIconv(Texts& t) {
    static Iconv const converter("UTF-16LE", "UTF-8");
    return converter.convert(t.utf8, &t.units) / 2;
}

std::size_t utf8ToUtf16ByIcu(Texts& t) {
    int32_t length = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strFromUTF8(reinterpret_cast<UChar*>(t.units.data()), static_cast<int32_t>(t.units.size()), &length,
                  t.utf8.data(), static_cast<int32_t>(t.utf8.size()), &error);
    return U_SUCCESS(error) ? static_cast<std::size_t>(length) : 0;
}

std::size_t utf16ToUtf8(Texts& t) {
    return utl::convertStrFromUtf16ToUtf8(t.bytes.data(), roomOf(t.bytes), t.utf16.data()) - 1;
}

std::size_t utf16ToUtf8ByIconv(Texts& t) {
    static Iconv const converter("UTF-8", "UTF-16LE");
    return converter.convert(t.utf16Bytes, &t.bytes);
}

std::size_t utf16ToUtf8ByIcu(Texts& t) {
    int32_t length = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strToUTF8(t.bytes.data(), static_cast<int32_t>(t.bytes.size()), &length,
                reinterpret_cast<UChar const*>(t.utf16.data()), static_cast<int32_t>(t.utf16.size() - 1),
                &error);
    return U_SUCCESS(error) ? static_cast<std::size_t>(length) : 0;
}

// The rest of the library's string functions.

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

using Way = std::size_t (*)(Texts&);

auto on(std::size_t bytes, Way way) {
    return [texts = textOf(bytes), way]() mutable { utlbench::keep(way(texts)); };
}

// The result of one way, to be compared with that of another.
std::string resultOf(Way way, Texts texts) {
    std::size_t const written = way(texts);
    Units const units(texts.units.begin(), texts.units.begin() + static_cast<std::ptrdiff_t>(
                                                                     std::min(written, texts.units.size())));
    return texts.bytes.substr(0, written) + "|" +
           std::string(reinterpret_cast<char const*>(units.data()), 2 * units.size());
}

// Compares only ways that do the same work.
utlbench::RatioDeclaration compared(char const* name, std::size_t bytes, Way way, Way other, double goal) {
    if (resultOf(way, textOf(bytes)) != resultOf(other, textOf(bytes))) {
        utlbench::giveUp(name);
    }
    return {utlbench::THREAD_TIME, name, on(bytes, way), on(bytes, other), goal};
}

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
    compared("Shift-JIS to UTF-8, 1 KB, to ICU", KILOBYTE, sjisToUtf8, sjisToUtf8ByIcu, AHEAD),
    compared("Shift-JIS to UTF-8, 1 MB, to ICU", MEGABYTE, sjisToUtf8, sjisToUtf8ByIcu, AHEAD),
    compared("UTF-8 to Shift-JIS, 1 KB, to iconv", KILOBYTE, utf8ToSjis, utf8ToSjisByIconv, THIRD),
    compared("UTF-8 to Shift-JIS, 1 MB, to iconv", MEGABYTE, utf8ToSjis, utf8ToSjisByIconv, THIRD),
    compared("UTF-8 to Shift-JIS, 1 KB, to ICU", KILOBYTE, utf8ToSjis, utf8ToSjisByIcu, AHEAD),
    compared("UTF-8 to Shift-JIS, 1 MB, to ICU", MEGABYTE, utf8ToSjis, utf8ToSjisByIcu, AHEAD),
    compared("UTF-8 to UTF-16, 1 KB, to iconv", KILOBYTE, utf8ToUtf16, utf8ToUtf16ByIconv, AHEAD),
    compared("UTF-8 to UTF-16, 1 MB, to iconv", MEGABYTE, utf8ToUtf16, utf8ToUtf16ByIconv, AHEAD),
    compared("UTF-8 to UTF-16, 1 KB, to ICU", KILOBYTE, utf8ToUtf16, utf8ToUtf16ByIcu, AHEAD),
    compared("UTF-8 to UTF-16, 1 MB, to ICU", MEGABYTE, utf8ToUtf16, utf8ToUtf16ByIcu, AHEAD),
    compared("UTF-16 to UTF-8, 1 KB, to iconv", KILOBYTE, utf16ToUtf8, utf16ToUtf8ByIconv, AHEAD),
    compared("UTF-16 to UTF-8, 1 MB, to iconv", MEGABYTE, utf16ToUtf8, utf16ToUtf8ByIconv, AHEAD),
    compared("UTF-16 to UTF-8, 1 KB, to ICU", KILOBYTE, utf16ToUtf8, utf16ToUtf8ByIcu, AHEAD),
    compared("UTF-16 to UTF-8, 1 MB, to ICU", MEGABYTE, utf16ToUtf8, utf16ToUtf8ByIcu, AHEAD),
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

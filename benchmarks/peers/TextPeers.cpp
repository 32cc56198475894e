// Conversions of Japanese text: character sets, kana, upper case.

#include <unicode/ucasemap.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "BenchCharSets.h"
#include "BenchIcu.h"
#include "BenchKana.h"
#include "Peers.h"

namespace utlpeers {
namespace {

using utlbench::Texts;

// --- character sets

using Conversion = std::size_t (*)(Texts&);

// Text of the pages in pieces of that many bytes, about as much for all sizes, so that each meets the same
// mixture of characters and no cache knows a short text by heart.
std::vector<Texts> piecesOf(unsigned int bytes) {
    constexpr std::size_t WHOLE = 1000000;
    std::string pages = utlbench::pageText();
    while (pages.size() <= bytes) {
        pages += utlbench::pageText();
    }
    std::vector<Texts> pieces;
    for (std::size_t begin = 0; begin == 0 || begin + bytes <= WHOLE;) {
        std::size_t end = begin + bytes;
        while ((pages[end] & 0xC0) == 0x80) {
            ++end;
        }
        pieces.emplace_back(pages.substr(begin, end - begin));
        begin = end;
    }
    return pieces;
}

// The pieces close together in memory, with their UTF-8 and Shift-JIS alone.
std::vector<Texts> compact(std::vector<Texts> const& pieces) {
    std::vector<Texts> result(pieces.size(), Texts(std::string()));
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        result[i].utf8 = pieces[i].utf8;
        result[i].sjis = pieces[i].sjis;
    }
    return result;
}

// All pieces are converted into the same room, as an application has one.
std::string roomFor(std::vector<Texts> const& pieces) {
    std::size_t most = 0;
    for (Texts const& piece : pieces) {
        most = std::max(most, 2 * piece.utf8.size() + 1);
    }
    return std::string(most, '\0');
}

Side conversion(char const* name, std::shared_ptr<std::vector<Texts>> const& pieces, Conversion convert,
                std::size_t expected) {
    return each(name, [pieces, convert, expected, room = roomFor(*pieces)]() mutable {
        std::size_t length = 0;
        for (Texts& piece : *pieces) {
            piece.bytes.swap(room);
            length += convert(piece);
            piece.bytes.swap(room);
        }
        prove(length == expected, "a text of another length");
    });
}

// Three ways that write the same.
std::vector<Side> conversions(unsigned int bytes, Conversion ours, Conversion byIconv, Conversion byIcu) {
    std::vector<Texts> texts = piecesOf(bytes);
    std::size_t length = 0;
    for (Texts& piece : texts) {
        std::string const result = utlbench::resultOf(ours, piece);
        prove(result == utlbench::resultOf(byIconv, piece) && result == utlbench::resultOf(byIcu, piece),
              "converters that differ");
        length += ours(piece);
    }
    auto const pieces = std::make_shared<std::vector<Texts>>(compact(texts));
    return {conversion(OURS, pieces, ours, length), conversion("iconv", pieces, byIconv, length),
            conversion("ICU", pieces, byIcu, length)};
}

std::vector<Side> toSjis(unsigned int bytes) {
    return conversions(bytes, utlbench::utf8ToSjis, utlbench::utf8ToSjisByIconv, utlbench::utf8ToSjisByIcu);
}

std::vector<Side> toUtf8(unsigned int bytes) {
    return conversions(bytes, utlbench::sjisToUtf8, utlbench::sjisToUtf8ByIconv, utlbench::sjisToUtf8ByIcu);
}

// --- forms of characters

Side ourForms(std::string const& text, utl::PairAttrib const* table, int direction, std::string* result) {
    auto dst = std::make_shared<std::vector<char>>(4 * text.size() + 1);
    auto const convert = [text, table, direction, dst] {
        utlbench::keep(utl::convertAttrib(dst->data(), static_cast<unsigned int>(dst->size()), text.c_str(),
                                          table, direction, 0));
    };
    convert();
    *result = dst->data();
    return each(OURS, convert);
}

std::string utf8Of(std::u16string const& text) {
    std::string bytes(3 * text.size() + 1, '\0');
    int32_t length = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strToUTF8(bytes.data(), static_cast<int32_t>(bytes.size()), &length, text.data(),
                static_cast<int32_t>(text.size()), &error);
    bytes.resize(static_cast<std::size_t>(length));
    return bytes;
}

Side icuForms(std::string const& text, char16_t const* name, std::string const& expected) {
    utlbench::IcuTransliteration convert(text, name);
    prove(utf8Of(convert()) == expected, "kana that differ");
    return each("ICU, on its UTF-16", utlbench::transliterate(text, name));
}

Side icuUpperCase(std::string const& text, std::string const& expected) {
    UErrorCode status = U_ZERO_ERROR;
    UCaseMap* const map = ucasemap_open("ja", 0, &status);
    prove(U_SUCCESS(status), "ICU lacks a map of cases");
    auto dst = std::make_shared<std::string>(4 * text.size(), '\0');
    auto const convert = [map, text, dst] {
        UErrorCode error = U_ZERO_ERROR;
        return ucasemap_utf8ToUpper(map, dst->data(), static_cast<int32_t>(dst->size()), text.data(),
                                    static_cast<int32_t>(text.size()), &error);
    };
    prove(dst->substr(0, static_cast<std::size_t>(convert())) == expected, "upper case that differs");
    return each("ICU", [convert] { utlbench::keep(convert()); });
}

std::vector<Side> toHalfWidth(unsigned int bytes) {
    std::string const text = utlbench::textOf(bytes, utlbench::isKana);
    std::string result;
    Side const ours = ourForms(text, utl::HANKAKU_ZENKAKU_PAIR, 1, &result);
    return {ours, icuForms(text, u"Fullwidth-Halfwidth", result)};
}

// ICU makes a vowel of the mark for a long one, and full width of half width.
bool isFullWidthLetter(char const* character) {
    constexpr int LETTERS = utl::ATTRIB_NODAKU_ZEN_KATA | utl::ATTRIB_DAKU_ZEN_KATA |
                            utl::ATTRIB_HANDAKU_ZEN_KATA | utl::ATTRIB_NODAKU_HIRA | utl::ATTRIB_DAKU_HIRA |
                            utl::ATTRIB_HANDAKU_HIRA;
    return utl::isStrAttribBase(character, LETTERS) && std::strcmp(character, "\xE3\x83\xBC") != 0;
}

std::vector<Side> toHiragana(unsigned int bytes) {
    std::string const text = utlbench::textOf(bytes, isFullWidthLetter);
    std::string result;
    Side const ours = ourForms(text, utl::ZENKATA_HIRAGANA_PAIR, 0, &result);
    return {ours, icuForms(text, u"Katakana-Hiragana", result)};
}

std::vector<Side> toUpperCase(unsigned int bytes) {
    std::string const text = utlbench::textOf(bytes, utlbench::isAnything);
    std::string result;
    Side const ours = ourForms(text, utl::LOWER_UPPER_PAIR, 0, &result);
    return {ours, icuUpperCase(text, result)};
}

// --- the themes

double oneText(unsigned int bytes) {
    return bytes;
}

double allPieces(unsigned int bytes) {
    double sum = 0;
    for (Texts const& piece : piecesOf(bytes)) {
        sum += static_cast<double>(piece.utf8.size());
    }
    return sum;
}

Theme theme(char const* id, char const* title, std::vector<unsigned int> const& sizes,
            std::vector<unsigned int> const& shown, std::vector<Side> (*sides)(unsigned int),
            double (*units)(unsigned int)) {
    Theme result = {id, title, "byte", "bytes", utlbench::THREAD_TIME, ONE_PROCESSOR, sizes, shown, sides};
    result.units = units;
    return result;
}

std::vector<unsigned int> const BYTES = {10, 100, 1000, 10000, 100000, 1000000, 10000000};
std::vector<unsigned int> const SHOWN = {1000, 1000000};

ThemeDeclaration const gToSjis(theme("text", "UTF-8 to Shift-JIS", BYTES, SHOWN, toSjis, allPieces));
ThemeDeclaration const gToUtf8(theme("text-back", "Shift-JIS to UTF-8", BYTES, SHOWN, toUtf8, allPieces));
ThemeDeclaration const gHalf(theme("half-width", "kana to half width", {9000}, {9000}, toHalfWidth, oneText));
ThemeDeclaration const gHiragana(theme("hiragana", "katakana to hiragana", {9000}, {9000}, toHiragana,
                                       oneText));
ThemeDeclaration const gUpper(theme("upper-case", "text to upper case", {9000}, {9000}, toUpperCase,
                                    oneText));

}  // namespace
}  // namespace utlpeers

// Kinds and forms of Japanese text, on manual pages, against ICU. It works on its own UTF-16, so its figures
// include no conversion.

#include <unicode/uscript.h>
#include <unicode/utf8.h>

#include <string>

#include "BenchIcu.h"
#include "BenchKana.h"
#include "BenchRatio.h"

namespace {

using namespace utlbench;  // the texts and both ways

constexpr unsigned int BYTES = 10000;

// Whether a text is in kana: looks up the script of each character.
auto isInKanaByIcu(std::string const& text) {
    return [text] {
        auto const* const bytes = reinterpret_cast<unsigned char const*>(text.c_str());
        auto const size = static_cast<int32_t>(text.size());
        bool isInKana = true;
        for (int32_t i = 0; i < size && isInKana;) {
            UChar32 character = 0;
            U8_NEXT(bytes, i, size, character);
            UErrorCode error = U_ZERO_ERROR;
            UScriptCode const script = uscript_getScript(character, &error);
            // The marks and the punctuation of kana text belong to no script of their own.
            isInKana = script == USCRIPT_KATAKANA || script == USCRIPT_HIRAGANA || script == USCRIPT_COMMON;
        }
        keep(isInKana);
    };
}

auto isInKana(std::string const& text) {
    return [text] { keep(utl::isStrAttribBase(text.c_str(), ALL_KANA)); };
}

RatioDeclaration toFullWidth(char const* name, IsWanted isWanted) {
    std::string const text = halfWidth(BYTES, isWanted);
    return compared(name, convert(text, utl::HANKAKU_ZENKAKU_PAIR),
                    transliterate(text, u"Halfwidth-Fullwidth"), 0.2);
}

RatioDeclaration toHiragana(char const* name, IsWanted isWanted) {
    std::string const text = textOf(BYTES, isWanted);
    return compared(name, convert(text, utl::ZENKATA_HIRAGANA_PAIR),
                    transliterate(text, u"Katakana-Hiragana"), 0.2);
}

RatioDeclaration const COMPARED[] = {
    compared("isStrAttribBase with all kana bits, 10,000 bytes, to ICU's scripts",
             isInKana(textOf(BYTES, isKana)), isInKanaByIcu(textOf(BYTES, isKana)), 1.0),
    toFullWidth("convertAttrib to full width, 10,000 bytes, to ICU's transliterator", isAnything),
    toFullWidth("convertAttrib to full width of Japanese characters alone, the same", isJapanese),
    toHiragana("convertAttrib to hiragana, 10,000 bytes, to ICU's transliterator", isAnything),
    toHiragana("convertAttrib to hiragana of Japanese characters alone, the same", isJapanese),
};

}  // namespace

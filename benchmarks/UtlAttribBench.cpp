// Kinds and forms of Japanese text, on manual pages: against ICU, and twice the bytes against once. ICU works
// on its own UTF-16, so its figures include no conversion.

#include "UtlAttribConvert.h"

#include <unicode/uscript.h>
#include <unicode/ustring.h>
#include <unicode/utf8.h>
#include <unicode/utrans.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "BenchRatio.h"
#include "BenchText.h"
#include "UtlCharAttrib.h"
#include "UtlString.h"

namespace {

constexpr unsigned int BYTES = 10000;
constexpr std::size_t SOURCE_BYTES = 4U << 20U;

constexpr int ALL_KANA = utl::ATTRIB_NODAKU_HAN_KATA | utl::ATTRIB_NODAKU_ZEN_KATA |
                         utl::ATTRIB_DAKU_HAN_KATA | utl::ATTRIB_DAKU_ZEN_KATA |
                         utl::ATTRIB_HANDAKU_HAN_KATA | utl::ATTRIB_HANDAKU_ZEN_KATA |
                         utl::ATTRIB_NODAKU_HIRA | utl::ATTRIB_DAKU_HIRA | utl::ATTRIB_HANDAKU_HIRA;
constexpr int ALL = -1;

// --- the texts

using IsWanted = bool (*)(char const*);

// The first `bytes` bytes, or a few less, of those characters of the manual pages that are wanted.
std::string textOf(unsigned int bytes, IsWanted isWanted) {
    static std::string const pages = utlbench::manualPages(SOURCE_BYTES);
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
        utlbench::giveUp("too little text of a kind");
    }
    return text;
}

bool isAnything(char const*) {
    return true;
}

// Most of a manual page in Japanese is in other alphabets; this is its Japanese part.
bool isJapanese(char const* character) {
    return utl::t_charlen(character) == 3;
}

bool isKana(char const* character) {
    return utl::isStrAttribBase(character, ALL_KANA);
}

std::string halfWidth(unsigned int bytes, IsWanted isWanted) {
    std::string const text = textOf(bytes, isWanted);
    std::vector<char> half(4 * text.size());
    utl::convertAttrib(half.data(), static_cast<unsigned int>(half.size()), text.c_str(),
                       utl::HANKAKU_ZENKAKU_PAIR, 1, 0);
    std::string converted = half.data();
    converted.resize(utl::getNearCharIndex(converted.c_str(), bytes, 1));
    return converted;
}

// --- against ICU

// `convertAttrib` to the right, of a text that does not change.
auto convert(std::string const& text, utl::PairAttrib const* table) {
    return [text, table, dst = std::vector<char>(4 * text.size())]() mutable {
        utlbench::keep(
            utl::convertAttrib(dst.data(), static_cast<unsigned int>(dst.size()), text.c_str(), table, 0, 0));
    };
}

std::u16string utf16Of(std::string const& text) {
    std::u16string units(text.size(), u'\0');
    UErrorCode error = U_ZERO_ERROR;
    int32_t length = 0;
    u_strFromUTF8(units.data(), static_cast<int32_t>(units.size()), &length, text.data(),
                  static_cast<int32_t>(text.size()), &error);
    if (U_FAILURE(error)) {
        utlbench::giveUp("the text is no UTF-8");
    }
    units.resize(static_cast<std::size_t>(length));
    return units;
}

// ICU's transliterator of this name, which works in place.
auto transliterate(std::string const& text, char16_t const* name) {
    UErrorCode error = U_ZERO_ERROR;
    UTransliterator* const transliterator =
        utrans_openU(name, -1, UTRANS_FORWARD, nullptr, 0, nullptr, &error);
    if (U_FAILURE(error)) {
        utlbench::giveUp("ICU lacks a transliterator");
    }
    return [transliterator, units = utf16Of(text), dst = std::u16string()]() mutable {
        dst = units;
        dst.resize(4 * units.size());
        UErrorCode status = U_ZERO_ERROR;
        auto length = static_cast<int32_t>(units.size());
        int32_t limit = length;
        utrans_transUChars(transliterator, dst.data(), &length, static_cast<int32_t>(dst.size()), 0, &limit,
                           &status);
        utlbench::keep(limit);
    };
}

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
        utlbench::keep(isInKana);
    };
}

auto isInKana(std::string const& text) {
    return [text] { utlbench::keep(utl::isStrAttribBase(text.c_str(), ALL_KANA)); };
}

template <typename SUBJECT, typename BASELINE>
utlbench::RatioDeclaration compared(char const* name, SUBJECT subject, BASELINE baseline, double goal) {
    return {utlbench::THREAD_TIME, name, subject, baseline, goal};
}

utlbench::RatioDeclaration toFullWidth(char const* name, IsWanted isWanted) {
    std::string const text = halfWidth(BYTES, isWanted);
    return compared(name, convert(text, utl::HANKAKU_ZENKAKU_PAIR),
                    transliterate(text, u"Halfwidth-Fullwidth"), 0.2);
}

utlbench::RatioDeclaration toHiragana(char const* name, IsWanted isWanted) {
    std::string const text = textOf(BYTES, isWanted);
    return compared(name, convert(text, utl::ZENKATA_HIRAGANA_PAIR),
                    transliterate(text, u"Katakana-Hiragana"), 0.2);
}

utlbench::RatioDeclaration const COMPARED[] = {
    compared("isStrAttribBase with all kana bits, 10,000 bytes, to ICU's scripts",
             isInKana(textOf(BYTES, isKana)), isInKanaByIcu(textOf(BYTES, isKana)), 1.0),
    toFullWidth("convertAttrib to full width, 10,000 bytes, to ICU's transliterator", isAnything),
    toFullWidth("convertAttrib to full width of Japanese characters alone, the same", isJapanese),
    toHiragana("convertAttrib to hiragana, 10,000 bytes, to ICU's transliterator", isAnything),
    toHiragana("convertAttrib to hiragana of Japanese characters alone, the same", isJapanese),
};

// --- against a direct table

// Replaces characters of one or three bytes by a table of all of them, with a check of its bounds and of the
// bytes of a character, but with no lock and no copy of the text. A form of two characters is not found.
class DirectTable {
  public:
    DirectTable(utl::PairAttrib const* table, bool isToLeft) : mForms(0x10000) {
        for (unsigned int code = 1; code < mForms.size(); ++code) {
            put(code, code < 0x80 ? std::string(1, static_cast<char>(code)) : bytesOf(code));
        }
        for (; table->mFirst.mNarrow != nullptr; ++table) {
            std::string const first = table->mFirst.mNarrow;
            std::string const second = table->mSecond.mNarrow;
            std::string const form = isToLeft ? second : first;
            if (form.size() == 1 || form.size() == 3) {
                put(codeAt(form.c_str()), isToLeft ? first : second);
            }
        }
    }

    unsigned int convert(char* dst, std::size_t dstSize, char const* text) const {
        char* end = dst;
        char const* const endMax = dst + dstSize - sizeof(Form::bytes);
        while (*text != '\0' && end < endMax && isWellFormed(text)) {
            Form const& form = mForms[codeAt(text)];
            text += static_cast<unsigned char>(*text) < 0x80 ? 1 : 3;
            std::memcpy(end, form.bytes, sizeof(form.bytes));
            end += form.length;
        }
        *end = '\0';
        return static_cast<unsigned int>(end - dst);
    }

  private:
    struct Form {
        char bytes[7];
        unsigned char length;
    };

    static std::string bytesOf(unsigned int code) {
        return {static_cast<char>(0xE0 | code >> 12), static_cast<char>(0x80 | (code >> 6 & 0x3F)),
                static_cast<char>(0x80 | (code & 0x3F))};
    }
    static bool isWellFormed(char const* text) {
        auto const first = static_cast<unsigned char>(text[0]);
        return first < 0x80 || (first >> 4 == 0xE && static_cast<unsigned char>(text[1]) >> 6 == 2 &&
                                static_cast<unsigned char>(text[2]) >> 6 == 2);
    }
    static unsigned int codeAt(char const* text) {
        auto const first = static_cast<unsigned char>(text[0]);
        return first < 0x80 ? first
                            : (first & 0xFU) << 12 | (static_cast<unsigned char>(text[1]) & 0x3FU) << 6 |
                                  (static_cast<unsigned char>(text[2]) & 0x3FU);
    }
    void put(unsigned int code, std::string const& form) {
        form.copy(mForms[code].bytes, sizeof(mForms[code].bytes));
        mForms[code].length = static_cast<unsigned char>(form.size());
    }

    std::vector<Form> mForms;
};

constexpr unsigned int KANA_BYTES = 9000;

utlbench::RatioDeclaration direct(char const* name, utl::PairAttrib const* table, int direction,
                                  std::string const& text) {
    auto const subject = [table, direction, text, dst = std::vector<char>(4 * text.size())]() mutable {
        utlbench::keep(utl::convertAttrib(dst.data(), static_cast<unsigned int>(dst.size()), text.c_str(),
                                          table, direction, 0));
    };
    auto const baseline = [forms = DirectTable(table, direction != 0), text,
                           dst = std::vector<char>(4 * text.size())]() mutable {
        utlbench::keep(forms.convert(dst.data(), dst.size(), text.c_str()));
    };
    return compared(name, subject, baseline, 2.2);
}

bool isAsciiOrJapanese(char const* character) {
    return utl::t_charlen(character) != 2 && utl::t_charlen(character) != 4;
}

utlbench::RatioDeclaration const DIRECT[] = {
    direct("convertAttrib of kana to half width, to a direct table", utl::HANKAKU_ZENKAKU_PAIR, 1,
           textOf(KANA_BYTES, isKana)),
    direct("convertAttrib of kana to katakana, the same", utl::ZENKATA_HIRAGANA_PAIR, 1,
           textOf(KANA_BYTES, isKana)),
    direct("convertAttrib of anything to upper case, the same", utl::LOWER_UPPER_PAIR, 0,
           textOf(KANA_BYTES, isAsciiOrJapanese)),
};

// --- twice the bytes against once: two times as long, and not four times

constexpr double TWICE = 2.3;

struct Texts {
    Texts(std::string const& itsText) : text(itsText), dst(8 * text.size() + 1) {}

    unsigned int dstSize() const { return static_cast<unsigned int>(dst.size()); }

    std::string text;
    std::vector<char> dst;
};

template <typename CALL>
auto on(std::string const& text, CALL call) {
    return [texts = Texts(text), call]() mutable { utlbench::keep(call(texts)); };
}

// The same text twice, so that both sides see the same mixture of characters.
template <typename MAKE, typename CALL>
utlbench::RatioDeclaration doubled(char const* name, MAKE make, CALL call) {
    std::string const text = make(BYTES / 2);
    return {utlbench::THREAD_TIME, name, on(text + text, call), on(text, call), TWICE};
}

std::string anyText(unsigned int bytes) {
    return textOf(bytes, isAnything);
}

std::string kanaText(unsigned int bytes) {
    return textOf(bytes, isKana);
}

std::string zeros(unsigned int bytes) {
    return std::string(bytes, '0');
}

// Walks from character to character, and adds up what `look` returns for each place.
template <typename LOOK>
unsigned int walk(std::string const& text, LOOK look) {
    unsigned int sum = 0;
    for (unsigned int i = 0; text[i] != '\0'; i += utl::t_charlen(text.c_str() + i)) {
        sum += look(text.c_str() + i);
    }
    return sum;
}

auto convertTo(utl::PairAttrib const* table, int direction) {
    return [table, direction](Texts& t) {
        return utl::convertAttrib(t.dst.data(), t.dstSize(), t.text.c_str(), table, direction, 0);
    };
}

utlbench::RatioDeclaration const DOUBLED[] = {
    doubled("findCodeTable from character to character, twice the bytes to once", anyText,
            [](Texts& t) {
                return walk(t.text, [](char const* place) {
                    unsigned int position = 0;
                    return utl::findCodeTable(place, utl::NODAKU_HIRA_TBL, &position) != nullptr ? 1U : 0U;
                });
            }),
    doubled("attribBlockSize from character to character, twice the bytes to once", anyText,
            [](Texts& t) {
                return walk(t.text, [](char const* place) { return utl::attribBlockSize(place, ALL); });
            }),
    doubled("isCharAttribBase from character to character, twice the bytes to once", anyText,
            [](Texts& t) {
                return walk(t.text, [](char const* place) {
                    return utl::isCharAttribBase(place, utl::ATTRIB_HAN_DIGIT) ? 1U : 0U;
                });
            }),
    doubled("isStrAttribBase of kana, twice the bytes to once", kanaText,
            [](Texts& t) { return utl::isStrAttribBase(t.text.c_str(), ALL_KANA); }),
    doubled("isStrAttribBase of anything, twice the bytes to once", anyText,
            [](Texts& t) { return utl::isStrAttribBase(t.text.c_str(), ALL); }),
    doubled("isStrAttribBase of digits or other characters, twice the bytes to once", zeros,
            [](Texts& t) {
                return utl::isStrAttribBase(t.text.c_str(), utl::ATTRIB_HAN_DIGIT | utl::ATTRIB_OTHER);
            }),
    doubled("convertAttrib to upper case, twice the bytes to once", anyText,
            convertTo(utl::LOWER_UPPER_PAIR, 0)),
    doubled("convertAttrib to full width, twice the bytes to once", anyText,
            convertTo(utl::HANKAKU_ZENKAKU_PAIR, 0)),
    doubled("convertAttrib to half width, twice the bytes to once", anyText,
            convertTo(utl::HANKAKU_ZENKAKU_PAIR, 1)),
    doubled("convertAttrib to hiragana, twice the bytes to once", anyText,
            convertTo(utl::ZENKATA_HIRAGANA_PAIR, 0)),
    doubled("convertAttrib to unvoiced kana, twice the bytes to once", kanaText,
            convertTo(utl::NODAKUON_DAKUON_PAIR, 1)),
    doubled("convertCharSet, twice the bytes to once", anyText,
            [](Texts& t) { return utl::convertCharSet(t.dst.data(), t.dstSize(), t.text.c_str()); }),
    doubled(
        "compareStrNoCase, twice the bytes to once", anyText,
        [](Texts& t) { return utl::compareStrNoCase(t.text.c_str(), t.text.c_str(), utl::INVALID_SIZE); }),
    doubled("strToInt, twice the bytes to once", zeros,
            [](Texts& t) {
                unsigned short value = 0;
                return utl::strToInt(&value, t.text.c_str(), 10);
            }),
};

}  // namespace

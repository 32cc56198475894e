// Kinds and forms of Japanese text, on manual pages: against a direct table, and twice the bytes against
// once.

#include "UtlAttribConvert.h"

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "BenchKana.h"
#include "BenchRatio.h"
#include "UtlCharAttrib.h"
#include "UtlString.h"

namespace {

using namespace utlbench;  // the texts

constexpr unsigned int BYTES = 10000;
constexpr int ALL = -1;

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
    return compared(name, subject, baseline, 1.5);
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

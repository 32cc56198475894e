#pragma once

// ICU, which the text conversions are measured against.

#include <unicode/ucnv.h>
#include <unicode/ustring.h>
#include <unicode/utrans.h>

#include <cstddef>
#include <string>

#include "BenchCharSets.h"
#include "BenchRatio.h"
#include "BenchText.h"

namespace utlbench {

/// Two converters of ICU, from one character set into another by way of UTF-16.
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
            giveUp("ICU lacks a converter");
        }
        return converter;
    }

    UConverter* mpTo;
    UConverter* mpFrom;
};

inline std::size_t sjisToUtf8ByIcu(Texts& t) {
    static IcuConverter const converter("UTF-8", "windows-932");
    return converter.convert(t.sjis, &t.bytes);
}

inline std::size_t utf8ToSjisByIcu(Texts& t) {
    static IcuConverter const converter("windows-932", "UTF-8");
    return converter.convert(t.utf8, &t.bytes);
}

inline std::size_t utf8ToUtf16ByIcu(Texts& t) {
    int32_t length = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strFromUTF8(reinterpret_cast<UChar*>(t.units.data()), static_cast<int32_t>(t.units.size()), &length,
                  t.utf8.data(), static_cast<int32_t>(t.utf8.size()), &error);
    return U_SUCCESS(error) ? static_cast<std::size_t>(length) : 0;
}

inline std::size_t utf16ToUtf8ByIcu(Texts& t) {
    int32_t length = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strToUTF8(t.bytes.data(), static_cast<int32_t>(t.bytes.size()), &length,
                reinterpret_cast<UChar const*>(t.utf16.data()), static_cast<int32_t>(t.utf16.size() - 1),
                &error);
    return U_SUCCESS(error) ? static_cast<std::size_t>(length) : 0;
}

inline std::u16string utf16Of(std::string const& text) {
    std::u16string units(text.size(), u'\0');
    UErrorCode error = U_ZERO_ERROR;
    int32_t length = 0;
    u_strFromUTF8(units.data(), static_cast<int32_t>(units.size()), &length, text.data(),
                  static_cast<int32_t>(text.size()), &error);
    if (U_FAILURE(error)) {
        giveUp("the text is no UTF-8");
    }
    units.resize(static_cast<std::size_t>(length));
    return units;
}

/// ICU's transliterator of a name, which works in place, with a text.
class IcuTransliteration {
  public:
    IcuTransliteration(std::string const& text, char16_t const* name) : mUnits(utf16Of(text)) {
        UErrorCode error = U_ZERO_ERROR;
        mpTransliterator = utrans_openU(name, -1, UTRANS_FORWARD, nullptr, 0, nullptr, &error);
        if (U_FAILURE(error)) {
            giveUp("ICU lacks a transliterator");
        }
    }

    /// The text's other form, valid until the next call.
    std::u16string const& operator()() {
        mDst = mUnits;
        mDst.resize(4 * mUnits.size());
        UErrorCode status = U_ZERO_ERROR;
        auto length = static_cast<int32_t>(mUnits.size());
        int32_t limit = length;
        utrans_transUChars(mpTransliterator, mDst.data(), &length, static_cast<int32_t>(mDst.size()), 0,
                           &limit, &status);
        mDst.resize(static_cast<std::size_t>(length));
        return mDst;
    }

  private:
    UTransliterator* mpTransliterator = nullptr;
    std::u16string mUnits;
    std::u16string mDst;
};

inline auto transliterate(std::string const& text, char16_t const* name) {
    return [form = IcuTransliteration(text, name)]() mutable { keep(form().size()); };
}

}  // namespace utlbench

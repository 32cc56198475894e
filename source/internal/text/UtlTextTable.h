#pragma once

#include <cstddef>
#include <type_traits>

#include "UtlAttribConvert.h"
#include "internal/text/UtlDualTypeImage.h"

namespace utl {

// A table of characters is written in the source as a list for people to read. A blank separates two rows. If
// a row has two forms, its last "=" separates them: "a=A b=B". The compiler makes the table from the list, so
// that it exists before any code runs.

/// Where the row that begins at `start` ends. A row has at least one character, so that it may be or begin
/// with a blank.
template <typename T>
constexpr std::size_t rowEnd(T const* list, std::size_t start) {
    std::size_t end = start + 1;
    while (list[end] != T(' ') && list[end] != T(0)) {
        ++end;
    }
    return end;
}

/// The texts of a list one after the other, each with its terminator: a row of one form is one text, a row of
/// two forms is two.
template <typename T, std::size_t SIZE>
struct ListTexts {
    T units[SIZE]{};
};

template <typename T, std::size_t SIZE>
constexpr ListTexts<T, SIZE> listTexts(T const (&list)[SIZE], bool hasTwoForms) {
    ListTexts<T, SIZE> texts;
    for (std::size_t start = 0; start + 1 < SIZE;) {
        std::size_t const end = rowEnd(list, start);
        std::size_t separator = end;
        while (hasTwoForms && list[separator] != T('=')) {
            --separator;
        }
        for (; start < end; ++start) {
            texts.units[start] = start != separator ? list[start] : T(0);
        }
        ++start;
    }
    return texts;
}

template <typename T, std::size_t SIZE>
constexpr std::size_t rowCount(T const (&list)[SIZE]) {
    std::size_t count = 0;
    for (std::size_t start = 0; start + 1 < SIZE; start = rowEnd(list, start) + 1) {
        ++count;
    }
    return count;
}

/// The virtual table of `PairAttrib`.
UTL_API extern DestructorTable PAIR_ATTRIB_TABLE asm("_ZTVN3utl10PairAttribE");

/// What a `PairAttrib` is in memory.
struct PairAttribImage {
    void const* const* table = PAIR_ATTRIB_TABLE + DESTRUCTOR_ENTRIES;
    DualTypeImage first;
    DualTypeImage second;
};

static_assert(sizeof(PairAttribImage) == sizeof(PairAttrib));

/// The text at `*place`, which moves on to the next.
template <typename T>
constexpr T const* takeText(T const** place) {
    T const* const text = *place;
    while (**place != T(0)) {
        ++*place;
    }
    ++*place;
    return text;
}

/// Reads the texts of a list in both widths.
class ListReader {
  public:
    constexpr ListReader(char const* narrow, wchar_t const* wide) : mpNarrow(narrow), mpWide(wide) {}

    constexpr void read(DualTypeImage* row) {
        row->narrow = takeText(&mpNarrow);
        row->wide = takeText(&mpWide);
    }

    constexpr void read(PairAttribImage* row) {
        read(&row->first);
        read(&row->second);
    }

  private:
    char const* mpNarrow;
    wchar_t const* mpWide;
};

/// `COUNT` rows and the empty one that ends a table.
template <typename ROW, std::size_t COUNT>
struct TableImage {
    constexpr explicit TableImage(ListReader reader) {
        for (std::size_t i = 0; i < COUNT; ++i) {
            reader.read(&rows[i]);
        }
    }

    ROW rows[COUNT + 1]{};
};

/// Defines `NAME`, an array that its header declares, by the list of its rows: it is an alias of
/// `NAME_IMAGE`.
#define UTL_TEXT_TABLE(ROW, NAME, LIST)                                                              \
    constexpr auto NAME##_NARROW = listTexts(u8##LIST, std::is_same_v<ROW, PairAttribImage>);        \
    constexpr auto NAME##_WIDE = listTexts(L##LIST, std::is_same_v<ROW, PairAttribImage>);           \
    [[maybe_unused]] constexpr TableImage<ROW, rowCount(u8##LIST)> NAME##_IMAGE asm(#NAME "_IMAGE")( \
        ListReader(NAME##_NARROW.units, NAME##_WIDE.units));                                         \
    static_assert(sizeof(NAME) == sizeof(NAME##_IMAGE));                                             \
    /* NOLINTNEXTLINE(bugprone-macro-parentheses): a name that is declared */                        \
    extern decltype(NAME) NAME __attribute__((alias(#NAME "_IMAGE")))

}  // namespace utl

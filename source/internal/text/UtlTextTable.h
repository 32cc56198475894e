#pragma once

#include <cstddef>

#include "UtlAttribConvert.h"
#include "internal/text/UtlDualTypeImage.h"

namespace utl {

// Tables of characters that stand in the source as a person would write them, in one list: a blank parts two
// rows, and where a row has two forms, the last "=" in it parts these: "a=A b=B". The compiler takes the list
// apart, so that the rows are there before any code runs.

/// Where the row that begins at `start` ends. It has one character at least, so that it may be or begin with
/// a blank.
template <typename T, std::size_t SIZE>
constexpr std::size_t rowEnd(T const (&list)[SIZE], std::size_t start) {
    std::size_t end = start + 1;
    while (list[end] != T(' ') && list[end] != T(0)) {
        ++end;
    }
    return end;
}

/// Where the first form of a row ends: at its last "=".
template <typename T, std::size_t SIZE>
constexpr std::size_t formEnd(T const (&list)[SIZE], std::size_t start) {
    std::size_t end = rowEnd(list, start) - 1;
    while (list[end] != T('=')) {
        --end;
    }
    return end;
}

template <typename T, std::size_t SIZE>
constexpr unsigned int rowCount(T const (&list)[SIZE]) {
    unsigned int count = 0;
    for (std::size_t start = 0; start + 1 < SIZE; start = rowEnd(list, start) + 1) {
        ++count;
    }
    return count;
}

/// How many forms a row has.
enum class RowForms { ONE, TWO };

/// A list with terminators in place of what parts it.
template <typename T, std::size_t SIZE>
struct CutList {
    T text[SIZE]{};
};

template <RowForms FORMS, typename T, std::size_t SIZE>
constexpr CutList<T, SIZE> cutList(T const (&list)[SIZE]) {
    CutList<T, SIZE> cut;
    for (std::size_t start = 0; start + 1 < SIZE;) {
        std::size_t const end = rowEnd(list, start);
        std::size_t const parting = FORMS == RowForms::TWO ? formEnd(list, start) : end;
        for (; start < end; ++start) {
            cut.text[start] = start != parting ? list[start] : T(0);
        }
        ++start;
    }
    return cut;
}

/// The forms of each row.
template <typename T, unsigned int COUNT>
struct RowTexts {
    static constexpr unsigned int ROWS = COUNT;

    T const* first[COUNT]{};
    T const* second[COUNT]{};
};

/// Finds the rows in a cut list.
template <RowForms FORMS, unsigned int COUNT, typename T, std::size_t SIZE>
constexpr RowTexts<T, COUNT> rowTexts(T const (&list)[SIZE], CutList<T, SIZE> const& cut) {
    RowTexts<T, COUNT> rows;
    std::size_t start = 0;
    for (unsigned int row = 0; row < COUNT; ++row) {
        rows.first[row] = cut.text + start;
        if (FORMS == RowForms::TWO) {
            rows.second[row] = cut.text + formEnd(list, start) + 1;
        }
        start = rowEnd(list, start) + 1;
    }
    return rows;
}

/// Declares `NAME_NARROW` and `NAME_WIDE`, the rows of a list as UTF-8 and as wide text.
#define UTL_ROW_TEXTS(NAME, FORMS, LIST)                                                             \
    constexpr auto NAME##_NARROW_CUT = cutList<FORMS>(u8##LIST);                                     \
    constexpr auto NAME##_WIDE_CUT = cutList<FORMS>(L##LIST);                                        \
    constexpr auto NAME##_NARROW = rowTexts<FORMS, rowCount(u8##LIST)>(u8##LIST, NAME##_NARROW_CUT); \
    constexpr auto NAME##_WIDE = rowTexts<FORMS, rowCount(L##LIST)>(L##LIST, NAME##_WIDE_CUT)

/// The virtual table of `PairAttrib`.
UTL_API extern DestructorTable PAIR_ATTRIB_TABLE asm("_ZTVN3utl10PairAttribE");

/// What a `PairAttrib` is in memory.
struct PairAttribImage {
    void const* const* table = PAIR_ATTRIB_TABLE + DESTRUCTOR_ENTRIES;
    DualTypeImage first;
    DualTypeImage second;
};

static_assert(sizeof(PairAttribImage) == sizeof(PairAttrib));

/// The rows of a table and the one that ends it.
template <typename IMAGE, unsigned int COUNT>
struct TableImage {
    IMAGE rows[COUNT + 1]{};
};

template <unsigned int COUNT>
constexpr TableImage<DualTypeImage, COUNT> codeTableImage(RowTexts<char, COUNT> const& narrow,
                                                          RowTexts<wchar_t, COUNT> const& wide) {
    TableImage<DualTypeImage, COUNT> image;
    for (unsigned int row = 0; row < COUNT; ++row) {
        image.rows[row].narrow = narrow.first[row];
        image.rows[row].wide = wide.first[row];
    }
    return image;
}

template <unsigned int COUNT>
constexpr TableImage<PairAttribImage, COUNT> pairTableImage(RowTexts<char, COUNT> const& narrow,
                                                            RowTexts<wchar_t, COUNT> const& wide) {
    TableImage<PairAttribImage, COUNT> image;
    for (unsigned int row = 0; row < COUNT; ++row) {
        image.rows[row].first.narrow = narrow.first[row];
        image.rows[row].first.wide = wide.first[row];
        image.rows[row].second.narrow = narrow.second[row];
        image.rows[row].second.wide = wide.second[row];
    }
    return image;
}

/// Defines the array of `ROW` that users know as an alias of its image.
#define UTL_TABLE(ROW, NAME, MAKE_IMAGE)                               \
    [[maybe_unused]] constexpr auto NAME##_IMAGE asm(#NAME "_IMAGE") = \
        MAKE_IMAGE(NAME##_NARROW, NAME##_WIDE);                        \
    extern ROW const NAME[NAME##_NARROW.ROWS + 1] __attribute__((alias(#NAME "_IMAGE")))

}  // namespace utl

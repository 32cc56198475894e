#pragma once

#include <cstddef>
#include <utility>

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

/// Rows and an empty one behind them, destroyed by nobody, as the member of a union is not: threads may read
/// them while the process runs its exit handlers.
template <typename ROW, std::size_t COUNT>
union LastingRows {
    ROW rows[COUNT + 1];
    ~LastingRows() {}
};

/// A table as it is given to users.
template <typename ROW, std::size_t COUNT>
using TableOf = ROW const (&)[COUNT + 1];

/// The tables of these texts as UTF-8 and as wide text, one `ROW` for each of the `INDICES`; only the one
/// that is used comes into being. They are aggregates, since g++ would let code fill an array that a
/// constructor has to initialise.
template <typename ROW, auto const& NARROW, auto const& WIDE,
          typename INDICES = std::make_index_sequence<NARROW.ROWS>>
struct RowTable;

template <typename ROW, auto const& NARROW, auto const& WIDE, std::size_t... I>
struct RowTable<ROW, NARROW, WIDE, std::index_sequence<I...>> {
    static LastingRows<ROW, NARROW.ROWS> const OF_ONE_FORM;
    static LastingRows<ROW, NARROW.ROWS> const OF_TWO_FORMS;
};

template <typename ROW, auto const& NARROW, auto const& WIDE, std::size_t... I>
LastingRows<ROW, NARROW.ROWS> const RowTable<ROW, NARROW, WIDE, std::index_sequence<I...>>::OF_ONE_FORM = {
    {ROW(NARROW.first[I], WIDE.first[I])..., ROW()}};

template <typename ROW, auto const& NARROW, auto const& WIDE, std::size_t... I>
LastingRows<ROW, NARROW.ROWS> const RowTable<ROW, NARROW, WIDE, std::index_sequence<I...>>::OF_TWO_FORMS = {
    {ROW(NARROW.first[I], WIDE.first[I], NARROW.second[I], WIDE.second[I])..., ROW()}};

}  // namespace utl

#pragma once

#include "UtlAttribConvert.h"
#include "internal/text/UtlCharSlot.h"

namespace utl {

/// Leads from a character to the rows of a pair table that may be there. For each slot the rows whose
/// looked-for form begins with a character of that slot or is empty stand in a chain, in the order of the
/// table.
struct PairIndex {
    static constexpr unsigned int MAX_ROWS = 184;
    static constexpr unsigned char NO_ROW = 0xFF;

    /// What a form of the library's tables has at most: two characters.
    static constexpr unsigned int MAX_BYTES = 6;

    unsigned char firstRow[SLOT_COUNT];  ///< the first row of the slot's chain
    unsigned char nextRow[MAX_ROWS];  ///< the one behind a row in its chain; nothing is behind an empty form
};

/// The index of one of the library's tables for one direction; null for tables of callers.
PairIndex const* findPairIndex(PairAttrib const* table, bool isToLeft);

}  // namespace utl

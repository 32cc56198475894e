#pragma once

#include "UtlAttribConvert.h"
#include "internal/text/UtlCharSlot.h"

namespace utl {

/// Leads from a character to the rows of a pair table that may match it. The rows whose form begins with a
/// character of a slot, or is empty, are the chain of that slot, in the order of the table.
struct PairIndex {
    static constexpr unsigned int MAX_ROWS = 184;
    static constexpr unsigned char NO_ROW = 0xFF;

    /// The most bytes of a form in the library's tables: two characters.
    static constexpr unsigned int MAX_BYTES = 6;

    /// What a character becomes if nothing after it matters.
    struct Direct {
        char bytes[3];
        unsigned char kind;
    };

    /// Kinds: the character is in no row, and another one must begin after it; it becomes one byte, or three.
    /// Of all others only the rows can tell.
    static constexpr unsigned char IN_NO_ROW = 1;
    static constexpr unsigned char ONE_BYTE = 2;
    static constexpr unsigned char THREE_BYTES = 4;

    Direct direct[SLOT_COUNT];
    unsigned char firstRow[SLOT_COUNT];  ///< the first row of the slot's chain
    unsigned char nextRow[MAX_ROWS];     ///< the one after a row in its chain; an empty form ends a chain
};

/// The index of one of the library's tables for one direction; null for tables of callers.
PairIndex const* findPairIndex(PairAttrib const* table, bool isToLeft);

}  // namespace utl

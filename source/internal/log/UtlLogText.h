#pragma once

#include <cstring>

#include "UtlString.h"

// Helpers for texts in log lines.

namespace utl {

inline char const* orEmpty(char const* text) {
    return text != nullptr ? text : "";
}

/// A text cut to `WIDTH` bytes on a character boundary, for a column of a table. Malformed text has no
/// boundaries and is cut anywhere; null counts as empty.
template <unsigned int WIDTH>
class ColumnText {
  public:
    explicit ColumnText(char const* text) : mText() {
        if (copyStrBase(mText, WIDTH + 1, orEmpty(text), INVALID_SIZE, TRUNCATE_ON) == INVALID_SIZE) {
            std::strncpy(mText, orEmpty(text), WIDTH);
        }
    }

    char const* get() const { return mText; }

  private:
    char mText[WIDTH + 1];
};

/// The column of a thread's name.
using NameColumn = ColumnText<31>;

}  // namespace utl

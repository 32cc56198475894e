#pragma once

#include "UtlCharAttrib.h"
#include "UtlPlatform.h"

namespace utl {

/// One row of a pair table: two forms of the same characters, each as UTF-8 and as wide text; *immutable*,
/// because a table is filled before any thread starts and only read after that. The texts stay their owner's.
/// A form may be a character, several, or the empty text.
class UTL_API PairAttrib {
  public:
    /// Both forms are null, which ends a table.
    constexpr PairAttrib() = default;

    /// The two forms as given.
    constexpr PairAttrib(char const* firstNarrow, wchar_t const* firstWide, char const* secondNarrow,
                         wchar_t const* secondWide)
        : mFirst(firstNarrow, firstWide), mSecond(secondNarrow, secondWide) {}
    PairAttrib(CodeTableRow const& first, CodeTableRow const& second) : mFirst(first), mSecond(second) {}

    virtual ~PairAttrib();
    PairAttrib(PairAttrib const&) = default;
    PairAttrib& operator=(PairAttrib const&) = default;

    CodeTableRow mFirst;   ///< the left form
    CodeTableRow mSecond;  ///< the right form
};

// The pair tables. Each is a constant array with one row more than it has pairs: a row whose left narrow form
// is null ends it. They are initialised before any code of the program runs, and never change. Callers rely
// on the order of the rows, since the first match wins.

/// Left and right: lower and upper case in both widths; half-width and full-width characters of every kind;
/// full-width katakana and hiragana; half-width katakana and hiragana.
UTL_API extern PairAttrib const LOWER_UPPER_PAIR[52 + 1];
UTL_API extern PairAttrib const HANKAKU_ZENKAKU_PAIR[184 + 1];
UTL_API extern PairAttrib const ZENKATA_HIRAGANA_PAIR[86 + 1];
UTL_API extern PairAttrib const HANKATA_HIRAGANA_PAIR[88 + 1];

/// Left and right: unvoiced and voiced, and unvoiced and half-voiced kana of every kind. A mark alone is
/// paired with the empty text, so that the conversion to the left deletes it. That left form matches
/// everywhere: the conversion to the right is only for texts of the kana before that row. `convertAttrib`
/// says what happens to other texts.
UTL_API extern PairAttrib const NODAKUON_DAKUON_PAIR[66 + 1];
UTL_API extern PairAttrib const NODAKUON_HANDAKUON_PAIR[17 + 1];

/// The direction of `convertAttrib`. Any other value is as `CONVERT_TO_LEFT`.
inline constexpr int CONVERT_TO_RIGHT = 0;  ///< left forms become right ones
inline constexpr int CONVERT_TO_LEFT = 1;   ///< right forms become left ones

// The functions below work in a `WorkingBuffer`: they wait for each other across the process, and texts of
// more than 10239 bytes are too long for them. Nothing is logged, and nothing is allocated. A caller that has
// loans of its own must leave free the slots that they need: it may hold two in `convertAttrib`, one in
// `strToInt`, and none in `compareStrNoCase`. With more the results are wrong, and nothing reports it.

/// Copies `src` to `dst` and replaces every left form of the table by its right one with `CONVERT_TO_RIGHT`,
/// every right form by its left one with any other `direction`. At each place the first row whose form is
/// there decides; what is in no row stays as it is. `dst` may be `src`.
///
/// Returns the bytes used, terminator included; with a `dstSize` of 0, where `dst` may be null, those that
/// the whole result takes. With `TRUNCATE_ON` text that does not fit is cut off after the last character that
/// does; with any other `truncate` it is refused with `INVALID_SIZE`, and `dst` holds what came before.
/// `INVALID_SIZE` also for null `src` and for `src` that is too long, which leave `dst` untouched. The same
/// holds for a null table, unless `src` is empty: then `dst` becomes empty whatever the table.
///
/// A malformed byte ends the text without a failure: the rest is dropped. If the byte can start no character,
/// a character right before it that is in no row is dropped, too; the size that would be needed counts that
/// character. If nothing is left, `dst` is empty.
///
/// An empty form that is looked for is found at every place where no earlier row matches, and does not
/// advance the conversion: it writes its partner until `dst` is full and the call fails. With `TRUNCATE_ON`
/// or a `dstSize` of 0 the call does not return. No caller of the library does that.
template <typename T>
UTL_API unsigned int convertAttrib(T* dst, unsigned int dstSize, T const* src, PairAttrib const* table,
                                   int direction, int truncate);

/// Copies `src` by the rules of `copyStrBase`, whole or not at all: text inside and outside of the library is
/// in the same character set. Waits for nobody, and takes texts of any length.
UTL_API unsigned int convertCharSet(char* dst, unsigned int dstSize, char const* src) noexcept;

/// Compares at most `length` bytes as `strncmp` does, after `LOWER_UPPER_PAIR` has converted both texts to
/// lower case, full-width letters included. Null and texts that are too long count as empty, and malformed
/// bytes end a text as in `convertAttrib`.
template <typename T>
UTL_API int compareStrNoCase(T const* left, T const* right, unsigned int length);

/// Reads the unsigned number at the start of `text` in a base from 2 to 36, with letters of either case and
/// characters of either width. A "+" may come first. With `base` 0 a number is hexadecimal after "0x", octal
/// after "0", and decimal otherwise; no other base has a prefix. The number ends at the first character that
/// is no digit of the base.
///
/// False, with `*value` unchanged, if there is no digit, if the number is too large, for a leading "-", null,
/// another base, and text that is too long in its half-width form. With `base` 0 that includes a lone "0",
/// which is a prefix without a number: callers rely on that.
template <typename I, typename T>
UTL_API bool strToInt(I* value, T const* text, int base);

}  // namespace utl

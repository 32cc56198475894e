#include "UtlAttribConvert.h"

#include <cstring>
#include <functional>
#include <limits>

#include "UtlString.h"
#include "UtlWorkingBuffer.h"
#include "internal/text/UtlCharDecoder.h"
#include "internal/text/UtlCharKind.h"
#include "internal/text/UtlPairIndex.h"

namespace utl {

namespace {

/// Reads a pair table in one direction.
class PairReader {
  public:
    PairReader(PairAttrib const* table, bool isToLeft)
        : mTable(table), mIndex(findPairIndex(table, isToLeft)), mIsToLeft(isToLeft) {}

    /// True for a table of the library, whose forms are well-formed and of up to `PairIndex::MAX_BYTES`.
    bool isBuiltIn() const { return mIndex != nullptr; }

    /// The first row whose looked-for form `text` begins with, and the length of that form; null if there is
    /// none.
    PairAttrib const* find(char const* text, unsigned int* bytes) const {
        return isBuiltIn() ? findByIndex(text, bytes) : findInTurn(text, bytes);
    }

    /// What becomes of the characters at `text`; for tables of the library.
    PairIndex::Direct const& direct(char const* text) const { return mIndex->direct[charSlot(text)]; }

    /// What replaces the form that was found.
    char const* replacement(PairAttrib const& row) const {
        return mIsToLeft ? row.mFirst.mNarrow : row.mSecond.mNarrow;
    }

    /// Bytes of the character at `text`, which has no row, and of those after it that surely have none
    /// either; 0 if it is malformed.
    unsigned int bytesWithoutRow(char const* text) const {
        unsigned int run = 0;
        for (unsigned int bytes = charBytes(text); isCharacter(bytes); bytes = charBytes(text + run)) {
            run += bytes;
            if (!isBuiltIn() || mIndex->firstRow[charSlot(text + run)] != PairIndex::NO_ROW) {
                break;
            }
        }
        return run;
    }

  private:
    bool matches(PairAttrib const& row, char const* text, unsigned int* bytes) const {
        char const* const form = mIsToLeft ? row.mSecond.mNarrow : row.mFirst.mNarrow;
        *bytes = matchedBytes(text, form != nullptr ? form : "");
        return *bytes != INVALID_SIZE;
    }

    PairAttrib const* findByIndex(char const* text, unsigned int* bytes) const {
        unsigned int row = mIndex->firstRow[charSlot(text)];
        while (row != PairIndex::NO_ROW && !matches(mTable[row], text, bytes)) {
            row = mIndex->nextRow[row];
        }
        return row != PairIndex::NO_ROW ? &mTable[row] : nullptr;
    }

    PairAttrib const* findInTurn(char const* text, unsigned int* bytes) const {
        PairAttrib const* row = mTable;
        while (row->mFirst.mNarrow != nullptr && !matches(*row, text, bytes)) {
            ++row;
        }
        return row->mFirst.mNarrow != nullptr ? row : nullptr;
    }

    PairAttrib const* const mTable;
    PairIndex const* const mIndex;
    bool const mIsToLeft;
};

/// Composes a text from pieces, each added by the rules of `copyGeneral`. After a piece that was cut nothing
/// is written, so that the text has no gaps.
class PieceWriter {
  public:
    PieceWriter(char* dst, unsigned int dstSize, int truncate)
        : mDst(dst),
          mDstSize(dstSize),
          mTruncate(truncate),
          mLastPlain(dst != nullptr && dstSize > PairIndex::MAX_BYTES ? dstSize - PairIndex::MAX_BYTES : 0) {}

    /// Adds a form of a pair table; false if that fails.
    bool addForm(char const* form, bool isBuiltIn) {
        if (!isBuiltIn || mUsed > mLastPlain) {
            return add(form, INVALID_SIZE);
        }
        char* end = mDst + mUsed - 1;
        while ((*end = *form++) != '\0') {
            ++end;
        }
        mUsed = static_cast<unsigned int>(end - mDst) + 1;
        return true;
    }

    /// Adds what becomes of each character of `text` by a table of the library, up to one that only the rows
    /// can tell of, or to the end of the room for any form. Returns where it ended.
    char const* addDirect(char const* text, PairReader const& pairs) {
        if (mUsed > mLastPlain) {
            return text;
        }
        char* end = mDst + mUsed - 1;
        char const* const endMax = mDst + mLastPlain - 1;
        while (end <= endMax) {
            PairIndex::Direct const& direct = pairs.direct(text);
            char const* const next = text + (static_cast<unsigned char>(*text) < ASCII_SLOTS ? 1 : 3);
            bool const isInRow = (direct.kind & PairIndex::IN_NO_ROW) == 0;
            if (direct.kind == 0 || !(isInRow || isCharStart(*next))) {
                break;
            }
            if ((direct.kind & PairIndex::ONE_BYTE) != 0) {
                *end++ = direct.bytes[0];
            } else {
                std::memcpy(end, &direct, sizeof(direct));  // the byte too many is overwritten
                end += sizeof(direct.bytes);
            }
            text = next;
        }
        *end = '\0';
        mUsed = static_cast<unsigned int>(end - mDst) + 1;
        return text;
    }

    /// Adds those characters of a text that fit; false if not all do.
    bool addCharacters(char const* text, unsigned int bytes) {
        if (fits(bytes)) {
            return add(text, bytes);
        }
        for (unsigned int added = 0; added < bytes;) {
            unsigned int const one = charBytes(text + added);
            if (!add(text + added, one)) {
                return false;
            }
            added += one;
        }
        return true;
    }

    /// The bytes used. Terminates a text to which nothing was added.
    unsigned int finish() {
        if (mUsed == 1 && mDst != nullptr && mDstSize != 0) {
            *mDst = '\0';
        }
        return mUsed;
    }

  private:
    bool fits(unsigned int bytes) const { return mDstSize == 0 || bytes <= mDstSize - mUsed; }

    bool add(char const* piece, unsigned int length) {
        if (mIsCut) {
            return piece != nullptr;
        }
        unsigned int const result = copyGeneral(mDst, mDstSize, mUsed - 1, piece, 0, length, mTruncate);
        if (result == INVALID_SIZE) {
            return false;
        }
        if (!fits(boundedLength(piece, length))) {
            mIsCut = true;
            mLastPlain = 0;
        }
        mUsed = result;
        return true;
    }

    char* const mDst;
    unsigned int const mDstSize;
    int const mTruncate;
    unsigned int mLastPlain;  // up to here there is room for any form of the library's tables
    unsigned int mUsed = 1;
    bool mIsCut = false;
};

/// `convertAttrib` of a text. `isApart` tells that it does not overlap the destination. It does where the
/// caller has more loans than it may have, and then each piece ends the text that is still to be read.
unsigned int convertText(PieceWriter& writer, char const* text, PairReader const& pairs, bool isApart) {
    bool const isDirect = isApart && pairs.isBuiltIn();
    while (true) {
        text = isDirect ? writer.addDirect(text, pairs) : text;
        if (*text == '\0') {
            break;
        }
        unsigned int bytes = 0;
        bool isAdded = false;
        PairAttrib const* const row = pairs.find(text, &bytes);
        if (row != nullptr) {
            isAdded = writer.addForm(pairs.replacement(*row), pairs.isBuiltIn());
        } else {
            bytes = pairs.bytesWithoutRow(text);
            if (bytes == 0) {
                break;
            }
            isAdded = writer.addCharacters(text, bytes);
        }
        if (!isAdded) {
            return INVALID_SIZE;
        }
        text += bytes;
    }
    return writer.finish();
}

/// The lower-case form of a text; empty for null and for text that is too long.
void lowerCase(WorkingBuffer<char> const& slot, char const* text) {
    *slot.get() = '\0';
    convertAttrib(slot.get(), slot.size(), text != nullptr ? text : "", LOWER_UPPER_PAIR, CONVERT_TO_LEFT,
                  TRUNCATE_OFF);
}

constexpr unsigned int OCTAL = 8;
constexpr unsigned int DECIMAL = 10;
constexpr unsigned int HEXADECIMAL = 16;
constexpr unsigned int MAX_BASE = 36;
constexpr unsigned int NO_DIGIT = MAX_BASE;

/// The base by the prefix of a number; advances over the prefix.
unsigned int takePrefix(char const** number) {
    if (**number != '0') {
        return DECIMAL;
    }
    bool const isHexadecimal = (*number)[1] == 'x';
    *number += isHexadecimal ? 2 : 1;
    return isHexadecimal ? HEXADECIMAL : OCTAL;
}

/// The value of a digit or letter; `NO_DIGIT` for all else.
unsigned int digitValue(char const* digit) {
    constexpr unsigned int LOWER = ATTRIB_LOWER_HAN_HEX | ATTRIB_LOWER_HAN_NOHEX;
    constexpr unsigned int UPPER = ATTRIB_UPPER_HAN_HEX | ATTRIB_UPPER_HAN_NOHEX;
    auto const code = static_cast<unsigned char>(*digit);
    unsigned int const attributes = charKind(digit).rows;
    if ((attributes & ATTRIB_HAN_DIGIT) != 0) {
        return code - '0';
    }
    if ((attributes & (LOWER | UPPER)) != 0) {
        return code - ((attributes & LOWER) != 0 ? 'a' : 'A') + DECIMAL;
    }
    return NO_DIGIT;
}

/// Reads digits up to the first character that is none; false if there is no digit, or if their value is
/// above `max`.
bool readDigits(unsigned int* value, char const* digits, unsigned int base, unsigned int max) {
    *value = 0;
    char const* rest = digits;
    for (unsigned int digit = digitValue(rest); digit < base; digit = digitValue(++rest)) {
        if (*value > max / base || (*value == max / base && digit > max % base)) {
            return false;
        }
        *value = *value * base + digit;
    }
    return rest != digits;
}

}  // namespace

template <typename T>
unsigned int convertAttrib(T* dst, unsigned int dstSize, T const* src, PairAttrib const* table, int direction,
                           int truncate) {
    if (src == nullptr) {
        return INVALID_SIZE;
    }
    if (*src == '\0') {
        return copyStrBase(dst, dstSize, src, INVALID_SIZE, TRUNCATE_OFF);
    }
    WorkingBuffer<T> const text;
    if (table == nullptr ||
        copyStrBase<T>(text.get(), text.size(), src, INVALID_SIZE, TRUNCATE_OFF) == INVALID_SIZE) {
        return INVALID_SIZE;
    }
    PieceWriter writer(dst, dstSize, truncate);
    std::less<T const*> const isBefore;
    bool const isApart = isBefore(dst, text.get()) || !isBefore(dst, text.get() + text.size());
    return convertText(writer, text.get(), PairReader(table, direction != CONVERT_TO_RIGHT), isApart);
}

unsigned int convertCharSet(char* dst, unsigned int dstSize, char const* src) noexcept {
    return copyStrBase(dst, dstSize, src, INVALID_SIZE, TRUNCATE_OFF);
}

template <typename T>
int compareStrNoCase(T const* left, T const* right, unsigned int length) {
    WorkingBuffer<T> const lowerLeft;
    WorkingBuffer<T> const lowerRight;
    lowerCase(lowerLeft, left);
    lowerCase(lowerRight, right);
    return std::strncmp(lowerLeft.get(), lowerRight.get(), length);
}

template <typename I, typename T>
bool strToInt(I* value, T const* text, int base) {
    bool const isBase = base == 0 || (base >= 2 && base <= static_cast<int>(MAX_BASE));
    if (value == nullptr || text == nullptr || !isBase) {
        return false;
    }
    WorkingBuffer<T> const halfWidth;
    if (convertAttrib(halfWidth.get(), halfWidth.size(), text, HANKAKU_ZENKAKU_PAIR, CONVERT_TO_LEFT,
                      TRUNCATE_OFF) == INVALID_SIZE) {
        return false;
    }
    char const* number = halfWidth.get();
    number += *number == '+' ? 1 : 0;
    unsigned int const numberBase = base == 0 ? takePrefix(&number) : static_cast<unsigned int>(base);
    unsigned int read = 0;
    if (!readDigits(&read, number, numberBase, std::numeric_limits<I>::max())) {
        return false;
    }
    *value = static_cast<I>(read);
    return true;
}

template unsigned int convertAttrib<char>(char*, unsigned int, char const*, PairAttrib const*, int, int);
template int compareStrNoCase<char>(char const*, char const*, unsigned int);
template bool strToInt<unsigned short, char>(unsigned short*, char const*, int);

}  // namespace utl

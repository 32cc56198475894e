#include "UtlCharAttrib.h"

#include "UtlString.h"
#include "UtlWorkingBuffer.h"
#include "internal/text/UtlCharDecoder.h"
#include "internal/text/UtlCharKind.h"

namespace utl {

namespace {

/// Every attribute but `ATTRIB_OTHER`.
constexpr unsigned int NAMED_ATTRIBUTES = 0x7FFFFFFF;

/// Length of the leading part of `text` whose characters have one of the bits in this member.
unsigned int runBytes(char const* text, unsigned int CharKind::*member, unsigned int bits) {
    unsigned int bytes = 0;
    for (CharKind const* kind = &charKind(text); (kind->*member & bits) != 0;
         kind = &charKind(text + bytes)) {
        bytes += kind->bytes;
    }
    return bytes;
}

/// The size of a number that begins with a sign of `signBytes` bytes; digits must follow.
unsigned int signedSize(char const* text, unsigned int signBytes, unsigned int digitAttribute) {
    unsigned int const digits = runBytes(text + signBytes, &CharKind::rows, digitAttribute);
    return digits != 0 ? signBytes + digits : INVALID_SIZE;
}

/// The size of hexadecimal digits and letters with a prefix or a suffix, but not both.
unsigned int hexSize(char const* text, CodeTableRow const* prefixes, unsigned int digitAttribute,
                     unsigned int suffixPart) {
    unsigned int size = 0;
    bool const hasPrefix = findCodeTable(text, prefixes, &size) != nullptr;
    unsigned int const digits = runBytes(text + size, &CharKind::rows, digitAttribute);
    size += digits;
    CharKind const& next = charKind(text + size);
    bool const hasSuffix = (next.parts & suffixPart) != 0;
    if (digits == 0 || (hasPrefix && hasSuffix)) {
        return INVALID_SIZE;
    }
    return hasSuffix ? size + next.bytes : size;
}

/// The size of a kana that is voiced, by itself or by the mark after it, and of the small kana after that.
/// Two characters that are one row of the table are such a kana and its mark.
unsigned int voicedSize(char const* text, CharKind const& kana, unsigned int attribute, unsigned int markPart,
                        unsigned int smallPart) {
    unsigned int size = kana.bytes;
    if ((kana.rows & attribute) == 0) {
        CharKind const& next = charKind(text + size);
        if ((next.parts & markPart) == 0) {
            return INVALID_SIZE;
        }
        size += next.bytes;
    }
    return size + runBytes(text + size, &CharKind::parts, smallPart);
}

/// The size of the unit of one attribute that may begin with the character at `text`, which is of this kind.
unsigned int unitSize(char const* text, CharKind const& kind, unsigned int attribute) {
    switch (attribute) {
        case ATTRIB_HAN_SIGNED:
            return signedSize(text, kind.bytes, ATTRIB_HAN_DIGIT);
        case ATTRIB_ZEN_SIGNED:
            return signedSize(text, kind.bytes, ATTRIB_ZEN_DIGIT);
        case ATTRIB_HAN_HEX:
            return hexSize(text, HAN_HEX_PREFIX_TBL, attribute, PART_HAN_HEX_SUFFIX);
        case ATTRIB_ZEN_HEX:
            return hexSize(text, ZEN_HEX_PREFIX_TBL, attribute, PART_ZEN_HEX_SUFFIX);
        case ATTRIB_DAKU_HAN_KATA:
            return voicedSize(text, kind, attribute, PART_HAN_DAKUTEN, PART_HAN_KATA_YOUSOKU);
        case ATTRIB_DAKU_ZEN_KATA:
            return voicedSize(text, kind, attribute, PART_ZEN_DAKUTEN, PART_ZEN_KATA_YOUSOKU);
        case ATTRIB_HANDAKU_HAN_KATA:
            return voicedSize(text, kind, attribute, PART_HAN_HANDAKUTEN, PART_HAN_KATA_YOUSOKU);
        case ATTRIB_HANDAKU_ZEN_KATA:
            return voicedSize(text, kind, attribute, PART_ZEN_HANDAKUTEN, PART_ZEN_KATA_YOUSOKU);
        case ATTRIB_DAKU_HIRA:
            return voicedSize(text, kind, attribute, PART_ZEN_DAKUTEN, PART_HIRA_YOUSOKU);
        case ATTRIB_HANDAKU_HIRA:
            return voicedSize(text, kind, attribute, PART_ZEN_HANDAKUTEN, PART_HIRA_YOUSOKU);
        default:
            return kind.bytes;
    }
}

/// The highest bit of a mask that is not 0.
unsigned int highestBit(unsigned int mask) {
    return 0x80000000U >> static_cast<unsigned int>(__builtin_clz(mask));
}

/// The size of the unit of the highest of these attributes that has one.
unsigned int highestUnitSize(char const* text, CharKind const& kind, unsigned int attributes) {
    unsigned int bit = 0;
    for (unsigned int left = kind.starts & attributes; left != 0; left ^= bit) {
        bit = highestBit(left);
        unsigned int const size = unitSize(text, kind, bit);
        if (size != INVALID_SIZE) {
            return size;
        }
    }
    return INVALID_SIZE;
}

unsigned int blockSize(char const* text, unsigned int attributes) {
    CharKind const& kind = charKind(text);
    unsigned int const size = highestUnitSize(text, kind, attributes);
    bool const isOtherWanted = (attributes & ~NAMED_ATTRIBUTES) != 0;
    if (size != INVALID_SIZE || !isOtherWanted ||
        highestUnitSize(text, kind, NAMED_ATTRIBUTES) != INVALID_SIZE) {
        return size;
    }
    unsigned int const bytes = charBytes(text);
    return isCharacter(bytes) ? bytes : INVALID_SIZE;
}

constexpr unsigned int NUMBER_ATTRIBUTES =
    ATTRIB_HAN_SIGNED | ATTRIB_ZEN_SIGNED | ATTRIB_HAN_HEX | ATTRIB_ZEN_HEX;
constexpr unsigned int VOICED_ATTRIBUTES = ATTRIB_DAKU_HAN_KATA | ATTRIB_DAKU_ZEN_KATA |
                                           ATTRIB_HANDAKU_HAN_KATA | ATTRIB_HANDAKU_ZEN_KATA |
                                           ATTRIB_DAKU_HIRA | ATTRIB_HANDAKU_HIRA;
constexpr unsigned int MARK_PARTS =
    PART_HAN_DAKUTEN | PART_ZEN_DAKUTEN | PART_HAN_HANDAKUTEN | PART_ZEN_HANDAKUTEN;
constexpr unsigned int SMALL_PARTS = PART_HAN_KATA_YOUSOKU | PART_ZEN_KATA_YOUSOKU | PART_HIRA_YOUSOKU;

/// Skips the character at `*text`, which is of kind `**kind` and of `BYTES` bytes if it is in a table, if it
/// surely is a unit by itself: no number, and followed by no part of it.
template <unsigned int BYTES>
bool skipLoneUnit(char const** text, CharKind const** kind, unsigned int attributes) {
    unsigned int const candidates = (*kind)->starts & attributes;
    unsigned int const alone = (*kind)->rows & candidates;
    if (alone == 0 || (candidates & NUMBER_ATTRIBUTES) != 0) {
        return false;
    }
    CharKind const& next = charKind(*text + BYTES);
    unsigned int const parts = (alone & VOICED_ATTRIBUTES) != 0 ? MARK_PARTS | SMALL_PARTS : MARK_PARTS;
    if ((next.parts & parts) != 0) {
        return false;
    }
    *text += BYTES;
    *kind = &next;
    return true;
}

/// `isStrAttribBase` of a text that is not empty.
bool isMadeOf(char const* text, unsigned int attributes) {
    CharKind const* kind = &charKind(text);
    while (*text != '\0') {
        // The length comes from a branch and not from the table, so that the processor can begin with the
        // next character before it is done with this one.
        bool const isAscii = static_cast<unsigned char>(*text) < ASCII_SLOTS;
        if (isAscii ? skipLoneUnit<1>(&text, &kind, attributes) : skipLoneUnit<3>(&text, &kind, attributes)) {
            continue;
        }
        unsigned int const size = blockSize(text, attributes);
        if (size == INVALID_SIZE) {
            return false;
        }
        text += size;
        kind = &charKind(text);
    }
    return true;
}

}  // namespace

template <typename T>
T* findCodeTable(T const* text, CodeTableRow const* table, unsigned int* position) noexcept {
    if (text == nullptr || table == nullptr || position == nullptr) {
        return nullptr;
    }
    for (CodeTableRow const* row = table; row->mNarrow != nullptr || row->mWide != nullptr; ++row) {
        unsigned int const bytes =
            row->mNarrow != nullptr ? matchedBytes(text + *position, row->mNarrow) : INVALID_SIZE;
        if (bytes != INVALID_SIZE) {
            *position += bytes;
            return const_cast<T*>(row->mNarrow);
        }
    }
    return nullptr;
}

template <typename T>
unsigned int attribBlockSize(T const* text, int attribute) noexcept {
    return text != nullptr ? blockSize(text, static_cast<unsigned int>(attribute)) : INVALID_SIZE;
}

template <typename T>
bool isStrAttribBase(T const* text, int attribute) noexcept {
    auto const attributes = static_cast<unsigned int>(attribute);
    bool const isEmpty = text == nullptr || *text == '\0';
    return isEmpty ? (attributes & ATTRIB_NUL) != 0 : isMadeOf(text, attributes);
}

template <typename T>
bool isCharAttribBase(T const* text, int attribute) {
    WorkingBuffer<T> const character;
    if (text == nullptr || *text == '\0') {
        return isStrAttribBase("", attribute);
    }
    bool isBom = false;
    unsigned int const bytes = t_charlen(text, &isBom);
    if (isBom || bytes == INVALID_SIZE) {
        return false;
    }
    return copyStrBase<T>(character.get(), character.size(), text, bytes, TRUNCATE_OFF) != INVALID_SIZE &&
           isStrAttribBase<T>(character.get(), attribute);
}

template char* findCodeTable<char>(char const*, CodeTableRow const*, unsigned int*);
template unsigned int attribBlockSize<char>(char const*, int);
template bool isStrAttribBase<char>(char const*, int);
template bool isCharAttribBase<char>(char const*, int);

}  // namespace utl

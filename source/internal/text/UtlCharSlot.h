#pragma once

namespace utl {

// A slot for every character in the tables of Japanese text: ASCII, the pages of 64 characters that hold
// kana, full-width forms and quotation marks, and one slot for all others. So what the tables say about a
// character is found by its code, without a search.

constexpr unsigned int ASCII_SLOTS = 0x80;
constexpr unsigned int PAGE_SLOTS = 0x40;
constexpr unsigned int KANA_PAGES = 4;        // E3 80 to E3 83, U+3000 to U+30FF
constexpr unsigned int FULL_WIDTH_PAGES = 4;  // EF BC to EF BF, U+FF00 to U+FFFF
constexpr unsigned int QUOTE_PAGES = 1;       // E2 80, U+2000 to U+203F
constexpr unsigned int OTHER_SLOT = ASCII_SLOTS + PAGE_SLOTS * (KANA_PAGES + FULL_WIDTH_PAGES + QUOTE_PAGES);
constexpr unsigned int SLOT_COUNT = OTHER_SLOT + 1;

/// Bytes of a character with this slot; 0 for the slot of all others.
constexpr unsigned int slotBytes(unsigned int slot) {
    return slot < ASCII_SLOTS ? 1U : slot < OTHER_SLOT ? 3U : 0U;
}

/// The slot of three bytes of which the second is one of the `pages` bytes from `firstSecond` on. Looks at no
/// byte after one that does not fit; a terminator never fits.
constexpr unsigned int pagedSlot(char const* text, unsigned int firstSecond, unsigned int pages,
                                 unsigned int pagesBefore) {
    unsigned int const page = static_cast<unsigned char>(text[1]) - firstSecond;
    if (page >= pages) {
        return OTHER_SLOT;
    }
    unsigned int const place = static_cast<unsigned char>(text[2]) - 0x80U;
    return place < PAGE_SLOTS ? ASCII_SLOTS + (pagesBefore + page) * PAGE_SLOTS + place : OTHER_SLOT;
}

/// The slot of the character at `text`; the end of the text is the character 0. Malformed bytes have the slot
/// of all others.
constexpr unsigned int charSlot(char const* text) {
    auto const first = static_cast<unsigned char>(*text);
    if (first < ASCII_SLOTS) {
        return first;
    }
    switch (first) {
        case 0xE3:
            return pagedSlot(text, 0x80, KANA_PAGES, 0);
        case 0xEF:
            return pagedSlot(text, 0xBC, FULL_WIDTH_PAGES, KANA_PAGES);
        case 0xE2:
            return pagedSlot(text, 0x80, QUOTE_PAGES, KANA_PAGES + FULL_WIDTH_PAGES);
        default:
            return OTHER_SLOT;
    }
}

}  // namespace utl

#include "internal/text/UtlSjisTable.h"

#include "internal/text/UtlSjisTableData.h"

namespace utl {

namespace {

constexpr void indexSjisLeads(SjisIndex* index) {
    unsigned int used = 0;
    for (unsigned int first = 0; first < 256; ++first) {
        if (sjisKind(static_cast<unsigned char>(first)) == SjisKind::DOUBLE) {
            ++used;
            index->mSjisLeads[first] = static_cast<unsigned short>(used * SJIS_TRAIL_COUNT);
        }
    }
}

constexpr void indexSjisRows(SjisIndex* index) {
    for (unsigned int row = SJIS_KANA_COUNT; row < SJIS_COUNT; ++row) {
        unsigned int const code = SJIS_TABLE_DATA.SjisTable[row].mSjis;
        unsigned int const column = (code & 0xFFU) - SJIS_TRAIL_MIN;
        index->mSjisRows[index->mSjisLeads[code >> 8U] + column] = static_cast<unsigned short>(row + 1);
    }
}

constexpr void indexUtf8Leads(SjisIndex* index) {
    unsigned int place = 1;
    for (unsigned int first = 0; first < 256; ++first) {
        unsigned int const bytes = utf8KeyBytes(static_cast<unsigned char>(first));
        if (bytes != 1) {
            index->mUtf8Leads[first] = static_cast<unsigned short>(place);
            place += bytes == 2 ? 1 : UTF8_BLOCK_SIZE;
        }
    }
}

constexpr unsigned int blockOf(SjisIndex const& index, unsigned int utf8) {
    return utf8 > 0xFFFF ? index.mUtf8Leads[utf8 >> 16U] + (utf8 >> 8U & 0x3FU)
                         : index.mUtf8Leads[utf8 >> 8U];
}

// Returns the number of blocks with a character. The rows are sorted, so those of a block are adjacent.
constexpr unsigned int indexUtf8Rows(SjisIndex* index) {
    unsigned int used = 0;
    unsigned int current = 0;
    for (unsigned int row = 0; row < UTF8_TO_SJIS_COUNT; ++row) {
        unsigned int const utf8 = SJIS_TABLE_DATA.Utf8ToSjisTable[row].mUtf8;
        unsigned int const block = blockOf(*index, utf8);
        if (block != current) {
            current = block;
            ++used;
            index->mUtf8Blocks[block] = static_cast<unsigned short>(used * UTF8_BLOCK_SIZE);
        }
        index->mUtf8Rows[used * UTF8_BLOCK_SIZE + (utf8 & 0x3FU)] = static_cast<unsigned short>(row + 1);
    }
    return used;
}

constexpr SjisIndex makeIndex() {
    SjisIndex index{};
    indexSjisLeads(&index);
    indexSjisRows(&index);
    indexUtf8Leads(&index);
    indexUtf8Rows(&index);
    return index;
}

constexpr unsigned int usedBlocks() {
    SjisIndex index{};
    indexUtf8Leads(&index);
    return indexUtf8Rows(&index);
}

static_assert(usedBlocks() == UTF8_USED_BLOCKS);

// The kana come first, without a gap: they need no index.
constexpr bool kanaAreFirst() {
    for (unsigned int i = 0; i < SJIS_KANA_COUNT; ++i) {
        if (SJIS_TABLE_DATA.SjisTable[i].mSjis != SJIS_KANA_MIN + i) {
            return false;
        }
    }
    return true;
}

static_assert(kanaAreFirst());

}  // namespace

constexpr SjisTables SJIS_TABLES = SJIS_TABLE_DATA;
constexpr SjisIndex SJIS_INDEX = makeIndex();

}  // namespace utl

#include "UtlSjisTable.h"

#include "UtlSjisTableData.h"

namespace utl {

namespace {

constexpr unsigned int blockOf(Utf8ToSjisRecord const& record) {
    unsigned int const utf8 = record.mUtf8;
    return utf8 > 0xFFFF ? utf8Block(utf8 >> 16U, utf8 >> 8U & 0xFFU) : utf8Block(utf8 >> 8U);
}

constexpr void indexSjis(SjisIndex* index) {
    for (unsigned int row = 0; row < SJIS_COUNT; ++row) {
        unsigned int const code = SJIS_TABLE_DATA.SjisTable[row].mSjis;
        if (code > 0xFF) {
            unsigned int const column = (code & 0xFFU) - SJIS_TRAIL_MIN;
            index->mSjisRows[sjisLeadNumber(code >> 8U) * SJIS_TRAIL_COUNT + column] =
                static_cast<unsigned short>(row + 1);
        }
    }
}

// The rows are sorted, so those of a block follow each other.
constexpr unsigned int indexUtf8(SjisIndex* index) {
    unsigned int used = 0;
    unsigned int block = UTF8_BLOCK_COUNT;
    for (unsigned int row = 0; row < UTF8_TO_SJIS_COUNT; ++row) {
        Utf8ToSjisRecord const& record = SJIS_TABLE_DATA.Utf8ToSjisTable[row];
        if (blockOf(record) != block) {
            block = blockOf(record);
            ++used;
            index->mUtf8Blocks[block] = static_cast<unsigned short>(used * UTF8_BLOCK_SIZE);
        }
        index->mUtf8Rows[used * UTF8_BLOCK_SIZE + (record.mUtf8 & 0x3FU)] =
            static_cast<unsigned short>(row + 1);
    }
    return used;
}

constexpr SjisIndex makeIndex() {
    SjisIndex index{};
    indexSjis(&index);
    indexUtf8(&index);
    return index;
}

constexpr unsigned int usedBlocks() {
    SjisIndex index{};
    return indexUtf8(&index);
}

static_assert(usedBlocks() == UTF8_USED_BLOCKS);

// The kana stand first, without a gap: no index is needed for them.
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

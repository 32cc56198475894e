// The pair tables, and an index of each for both directions.

#include "UtlAttribConvert.h"
#include "internal/text/UtlPairIndex.h"
#include "internal/text/UtlTextTable.h"

namespace utl {

PairAttrib::~PairAttrib() = default;

#define UTL_PAIR_TABLE(NAME, LIST) UTL_TEXT_TABLE(PairAttribImage, NAME, LIST)

UTL_PAIR_TABLE(LOWER_UPPER_PAIR,
               "a=A b=B c=C d=D e=E f=F g=G h=H i=I j=J k=K l=L m=M n=N o=O p=P q=Q r=R s=S t=T u=U v=V w=W "
               "x=X y=Y z=Z "
               "ａ=Ａ ｂ=Ｂ ｃ=Ｃ ｄ=Ｄ ｅ=Ｅ ｆ=Ｆ ｇ=Ｇ ｈ=Ｈ ｉ=Ｉ ｊ=Ｊ ｋ=Ｋ ｌ=Ｌ ｍ=Ｍ ｎ=Ｎ ｏ=Ｏ "
               "ｐ=Ｐ ｑ=Ｑ ｒ=Ｒ ｓ=Ｓ ｔ=Ｔ ｕ=Ｕ ｖ=Ｖ ｗ=Ｗ ｘ=Ｘ ｙ=Ｙ ｚ=Ｚ");

UTL_PAIR_TABLE(HANKAKU_ZENKAKU_PAIR,
               " =　 !=！ \"=” #=＃ $=＄ %=％ &=＆ '=’ (=（ )=） *=＊ +=＋ ,=， -=－ .=． /=／ :=： ;=； "
               "<=＜ ==＝ >=＞ ?=？ @=＠ [=［ \\=￥ ]=］ ^=＾ _=＿ `=｀ {=｛ |=｜ }=｝ ~=～ "
               "0=０ 1=１ 2=２ 3=３ 4=４ 5=５ 6=６ 7=７ 8=８ 9=９ "
               "a=ａ b=ｂ c=ｃ d=ｄ e=ｅ f=ｆ g=ｇ h=ｈ i=ｉ j=ｊ k=ｋ l=ｌ m=ｍ n=ｎ o=ｏ p=ｐ q=ｑ r=ｒ "
               "s=ｓ t=ｔ u=ｕ v=ｖ w=ｗ x=ｘ y=ｙ z=ｚ "
               "A=Ａ B=Ｂ C=Ｃ D=Ｄ E=Ｅ F=Ｆ G=Ｇ H=Ｈ I=Ｉ J=Ｊ K=Ｋ L=Ｌ M=Ｍ N=Ｎ O=Ｏ P=Ｐ Q=Ｑ R=Ｒ "
               "S=Ｓ T=Ｔ U=Ｕ V=Ｖ W=Ｗ X=Ｘ Y=Ｙ Z=Ｚ ｶﾞ=ガ ｷﾞ=ギ ｸﾞ=グ ｹﾞ=ゲ ｺﾞ=ゴ "
               "ｻﾞ=ザ ｼﾞ=ジ ｽﾞ=ズ ｾﾞ=ゼ ｿﾞ=ゾ ﾀﾞ=ダ ﾁﾞ=ヂ ﾂﾞ=ヅ ﾃﾞ=デ ﾄﾞ=ド "
               "ﾊﾞ=バ ﾋﾞ=ビ ﾌﾞ=ブ ﾍﾞ=ベ ﾎﾞ=ボ ｳﾞ=ヴ ﾞ=゛ ﾊﾟ=パ ﾋﾟ=ピ ﾌﾟ=プ ﾍﾟ=ペ ﾎﾟ=ポ ﾟ=゜ "
               "ｧ=ァ ｱ=ア ｨ=ィ ｲ=イ ｩ=ゥ ｳ=ウ ｪ=ェ ｴ=エ ｫ=ォ ｵ=オ ｶ=カ ｷ=キ ｸ=ク ｹ=ケ ｺ=コ "
               "ｻ=サ ｼ=シ ｽ=ス ｾ=セ ｿ=ソ ﾀ=タ ﾁ=チ ｯ=ッ ﾂ=ツ ﾃ=テ ﾄ=ト ﾅ=ナ ﾆ=ニ ﾇ=ヌ ﾈ=ネ ﾉ=ノ "
               "ﾊ=ハ ﾋ=ヒ ﾌ=フ ﾍ=ヘ ﾎ=ホ ﾏ=マ ﾐ=ミ ﾑ=ム ﾒ=メ ﾓ=モ ｬ=ャ ﾔ=ヤ ｭ=ュ ﾕ=ユ ｮ=ョ ﾖ=ヨ "
               "ﾗ=ラ ﾘ=リ ﾙ=ル ﾚ=レ ﾛ=ロ ﾜ=ワ ｦ=ヲ ﾝ=ン ｡=。 ｢=「 ｣=」 ､=、 ･=・ ｰ=ー");

UTL_PAIR_TABLE(ZENKATA_HIRAGANA_PAIR,
               "ァ=ぁ ア=あ ィ=ぃ イ=い ゥ=ぅ ウ=う ェ=ぇ エ=え ォ=ぉ オ=お カ=か キ=き ク=く ケ=け コ=こ "
               "サ=さ シ=し ス=す セ=せ ソ=そ タ=た チ=ち ッ=っ ツ=つ テ=て ト=と "
               "ナ=な ニ=に ヌ=ぬ ネ=ね ノ=の ハ=は ヒ=ひ フ=ふ ヘ=へ ホ=ほ マ=ま ミ=み ム=む メ=め モ=も "
               "ャ=ゃ ヤ=や ュ=ゅ ユ=ゆ ョ=ょ ヨ=よ ラ=ら リ=り ル=る レ=れ ロ=ろ ワ=わ ヲ=を ン=ん "
               "ガ=が ギ=ぎ グ=ぐ ゲ=げ ゴ=ご ザ=ざ ジ=じ ズ=ず ゼ=ぜ ゾ=ぞ ダ=だ ヂ=ぢ ヅ=づ デ=で ド=ど "
               "バ=ば ビ=び ブ=ぶ ベ=べ ボ=ぼ "
               "パ=ぱ ピ=ぴ プ=ぷ ペ=ぺ ポ=ぽ ヮ=ゎ ヴ=う゛ ヰ=ゐ ヱ=ゑ ヽ=ゝ ヾ=ゞ");

UTL_PAIR_TABLE(HANKATA_HIRAGANA_PAIR,
               "ｶﾞ=が ｷﾞ=ぎ ｸﾞ=ぐ ｹﾞ=げ ｺﾞ=ご ｻﾞ=ざ ｼﾞ=じ ｽﾞ=ず ｾﾞ=ぜ ｿﾞ=ぞ ﾀﾞ=だ ﾁﾞ=ぢ ﾂﾞ=づ ﾃﾞ=で ﾄﾞ=ど "
               "ﾊﾞ=ば ﾋﾞ=び ﾌﾞ=ぶ ﾍﾞ=べ ﾎﾞ=ぼ ﾞ=゛ ﾊﾟ=ぱ ﾋﾟ=ぴ ﾌﾟ=ぷ ﾍﾟ=ぺ ﾎﾟ=ぽ ﾟ=゜ "
               "ｧ=ぁ ｱ=あ ｨ=ぃ ｲ=い ｩ=ぅ ｳ=う ｪ=ぇ ｴ=え ｫ=ぉ ｵ=お ｶ=か ｷ=き ｸ=く ｹ=け ｺ=こ "
               "ｻ=さ ｼ=し ｽ=す ｾ=せ ｿ=そ ﾀ=た ﾁ=ち ｯ=っ ﾂ=つ ﾃ=て ﾄ=と ﾅ=な ﾆ=に ﾇ=ぬ ﾈ=ね ﾉ=の "
               "ﾊ=は ﾋ=ひ ﾌ=ふ ﾍ=へ ﾎ=ほ ﾏ=ま ﾐ=み ﾑ=む ﾒ=め ﾓ=も ｬ=ゃ ﾔ=や ｭ=ゅ ﾕ=ゆ ｮ=ょ ﾖ=よ "
               "ﾗ=ら ﾘ=り ﾙ=る ﾚ=れ ﾛ=ろ ﾜ=わ ｦ=を ﾝ=ん ｡=。 ｢=「 ｣=」 ､=、 ･=・ ｰ=ー");

UTL_PAIR_TABLE(NODAKUON_DAKUON_PAIR,
               "ｶ=ｶﾞ ｷ=ｷﾞ ｸ=ｸﾞ ｹ=ｹﾞ ｺ=ｺﾞ ｻ=ｻﾞ ｼ=ｼﾞ ｽ=ｽﾞ ｾ=ｾﾞ ｿ=ｿﾞ ﾀ=ﾀﾞ ﾁ=ﾁﾞ ﾂ=ﾂﾞ ﾃ=ﾃﾞ ﾄ=ﾄﾞ "
               "ﾊ=ﾊﾞ ﾋ=ﾋﾞ ﾌ=ﾌﾞ ﾍ=ﾍﾞ ﾎ=ﾎﾞ ｳ=ｳﾞ =ﾞ カ=ガ キ=ギ ク=グ ケ=ゲ コ=ゴ "
               "サ=ザ シ=ジ ス=ズ セ=ゼ ソ=ゾ タ=ダ チ=ヂ ツ=ヅ テ=デ ト=ド "
               "ハ=バ ヒ=ビ フ=ブ ヘ=ベ ホ=ボ ウ=ヴ ヽ=ヾ か=が き=ぎ く=ぐ け=げ こ=ご "
               "さ=ざ し=じ す=ず せ=ぜ そ=ぞ た=だ ち=ぢ つ=づ て=で と=ど "
               "は=ば ひ=び ふ=ぶ へ=べ ほ=ぼ ゝ=ゞ =゛");

UTL_PAIR_TABLE(NODAKUON_HANDAKUON_PAIR,
               "ﾊ=ﾊﾟ ﾋ=ﾋﾟ ﾌ=ﾌﾟ ﾍ=ﾍﾟ ﾎ=ﾎﾟ =ﾟ ハ=パ ヒ=ピ フ=プ ヘ=ペ ホ=ポ は=ぱ ひ=ぴ ふ=ぷ へ=ぺ ほ=ぽ =゜");

namespace {

constexpr unsigned int lengthOf(char const* text) {
    unsigned int length = 0;
    while (text[length] != '\0') {
        ++length;
    }
    return length;
}

/// The character of a slot, in its bytes.
constexpr PairIndex::Direct slotCharacter(unsigned int slot) {
    if (slotBytes(slot) == 1) {
        return {{static_cast<char>(slot)}, PairIndex::ONE_BYTE | PairIndex::IN_NO_ROW};
    }
    unsigned int const page = (slot - ASCII_SLOTS) / PAGE_SLOTS;
    bool const isKana = page < KANA_PAGES;
    bool const isFullWidth = !isKana && page < KANA_PAGES + FULL_WIDTH_PAGES;
    unsigned int const first = isKana ? 0xE3 : isFullWidth ? 0xEF : 0xE2;
    unsigned int const second = isKana ? 0x80 + page : isFullWidth ? 0xBC + page - KANA_PAGES : 0x80;
    unsigned int const third = 0x80 + (slot - ASCII_SLOTS) % PAGE_SLOTS;
    return {{static_cast<char>(first), static_cast<char>(second), static_cast<char>(third)},
            PairIndex::THREE_BYTES | PairIndex::IN_NO_ROW};
}

/// What the first row of its chain makes of the character of a slot, if that decides.
constexpr PairIndex::Direct directForm(char const* form, char const* replacement, unsigned int slot) {
    PairIndex::Direct direct{};
    unsigned int const length = lengthOf(replacement);
    if (lengthOf(form) == slotBytes(slot) && (length == 1 || length == 3)) {
        for (unsigned int i = 0; i < length; ++i) {
            direct.bytes[i] = replacement[i];
        }
        direct.kind = length == 1 ? PairIndex::ONE_BYTE : PairIndex::THREE_BYTES;
    }
    return direct;
}

/// The index of the `COUNT` rows of a table and the one that ends it. Chains are made from their ends.
template <std::size_t COUNT>
constexpr PairIndex makePairIndex(PairAttribImage const (&rows)[COUNT], DualTypeImage PairAttribImage::*form,
                                  DualTypeImage PairAttribImage::*replacement) {
    static_assert(COUNT - 1 <= PairIndex::MAX_ROWS);
    PairIndex index{};
    for (unsigned char& row : index.firstRow) {
        row = PairIndex::NO_ROW;
    }
    for (std::size_t row = COUNT - 1; row-- > 0;) {
        char const* const text = (rows[row].*form).narrow;
        auto const number = static_cast<unsigned char>(row);
        if (*text == '\0') {
            for (unsigned char& first : index.firstRow) {
                first = number;
            }
            index.nextRow[row] = PairIndex::NO_ROW;
        } else {
            unsigned char& first = index.firstRow[charSlot(text)];
            index.nextRow[row] = first;
            first = number;
        }
    }
    for (unsigned int slot = 1; slot < OTHER_SLOT; ++slot) {
        unsigned char const row = index.firstRow[slot];
        index.direct[slot] = row == PairIndex::NO_ROW ? slotCharacter(slot)
                                                      : directForm((rows[row].*form).narrow,
                                                                   (rows[row].*replacement).narrow, slot);
    }
    return index;
}

struct IndexedTable {
    PairAttrib const* table;
    PairIndex const* toRight;
    PairIndex const* toLeft;
};

// Apart from the addresses of the tables, so that the loader need not touch the indexes.
template <auto const& IMAGE>
constexpr PairIndex TO_RIGHT = makePairIndex(IMAGE.rows, &PairAttribImage::first, &PairAttribImage::second);
template <auto const& IMAGE>
constexpr PairIndex TO_LEFT = makePairIndex(IMAGE.rows, &PairAttribImage::second, &PairAttribImage::first);

#define UTL_INDEXED(NAME) \
    { NAME, &TO_RIGHT<NAME##_IMAGE>, &TO_LEFT<NAME##_IMAGE> }

constexpr IndexedTable INDEXED_TABLES[] = {
    UTL_INDEXED(LOWER_UPPER_PAIR),      UTL_INDEXED(HANKAKU_ZENKAKU_PAIR),
    UTL_INDEXED(ZENKATA_HIRAGANA_PAIR), UTL_INDEXED(HANKATA_HIRAGANA_PAIR),
    UTL_INDEXED(NODAKUON_DAKUON_PAIR),  UTL_INDEXED(NODAKUON_HANDAKUON_PAIR),
};

}  // namespace

PairIndex const* findPairIndex(PairAttrib const* table, bool isToLeft) {
    for (IndexedTable const& indexed : INDEXED_TABLES) {
        if (indexed.table == table) {
            return isToLeft ? indexed.toLeft : indexed.toRight;
        }
    }
    return nullptr;
}

}  // namespace utl

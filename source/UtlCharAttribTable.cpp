// The code tables of Japanese text, and what they say about each character.

#include "UtlCharAttrib.h"
#include "internal/text/UtlCharKind.h"
#include "internal/text/UtlTextTable.h"

namespace utl {

#define UTL_CODE_TABLE(NAME, LIST) UTL_TEXT_TABLE(DualTypeImage, NAME, LIST)

// --- ASCII and what replaces it in full width

UTL_CODE_TABLE(KAIGYO_TBL, "\r \n");
UTL_CODE_TABLE(TAB_FF_TBL, "\t \v \f");
UTL_CODE_TABLE(CTL_OTHER_TBL,
               "\x01 \x02 \x03 \x04 \x05 \x06 \x07 \x08 \x0E \x0F \x10 \x11 \x12 \x13 \x14 \x15 \x16 \x17 "
               "\x18 \x19 \x1A \x1B \x1C \x1D \x1E \x1F \x7F");
UTL_CODE_TABLE(HAN_SPACE_TBL, " ");
UTL_CODE_TABLE(ZEN_SPACE_TBL, "　");
UTL_CODE_TABLE(HAN_MARK_TBL, "! \" # $ % & ' ( ) * + , - . / : ; < = > ? @ [ \\ ] ^ _ ` { | } ~");
UTL_CODE_TABLE(HAN_DIGIT_TBL, "0 1 2 3 4 5 6 7 8 9");
UTL_CODE_TABLE(HAN_SIGN_TBL, "+ -");
UTL_CODE_TABLE(ZEN_MARK_TBL,
               "！ ” ＃ ＄ ％ ＆ ’ （ ） ＊ ＋ ， － ． ／ ： ； ＜ ＝ ＞ ？ ＠ ［ ￥ ］ ＾ ＿ ｀ ｛ ｜ "
               "｝ ￣");
UTL_CODE_TABLE(ZEN_DIGIT_TBL, "０ １ ２ ３ ４ ５ ６ ７ ８ ９");
UTL_CODE_TABLE(ZEN_SIGN_TBL, "＋ －");
UTL_CODE_TABLE(HAN_HEX_PREFIX_TBL, "0x");
UTL_CODE_TABLE(ZEN_HEX_PREFIX_TBL, "０ｘ");
UTL_CODE_TABLE(HAN_HEX_SUFFIX_TBL, "h H");
UTL_CODE_TABLE(ZEN_HEX_SUFFIX_TBL, "ｈ Ｈ");
UTL_CODE_TABLE(LOWER_HAN_HEX_ALPHA_TBL, "a b c d e f");
UTL_CODE_TABLE(LOWER_ZEN_HEX_ALPHA_TBL, "ａ ｂ ｃ ｄ ｅ ｆ");
UTL_CODE_TABLE(UPPER_HAN_HEX_ALPHA_TBL, "A B C D E F");
UTL_CODE_TABLE(UPPER_ZEN_HEX_ALPHA_TBL, "Ａ Ｂ Ｃ Ｄ Ｅ Ｆ");
UTL_CODE_TABLE(LOWER_HAN_NOHEX_ALPHA_TBL, "g h i j k l m n o p q r s t u v w x y z");
UTL_CODE_TABLE(LOWER_ZEN_NOHEX_ALPHA_TBL, "ｇ ｈ ｉ ｊ ｋ ｌ ｍ ｎ ｏ ｐ ｑ ｒ ｓ ｔ ｕ ｖ ｗ ｘ ｙ ｚ");
UTL_CODE_TABLE(UPPER_HAN_NOHEX_ALPHA_TBL, "G H I J K L M N O P Q R S T U V W X Y Z");
UTL_CODE_TABLE(UPPER_ZEN_NOHEX_ALPHA_TBL, "Ｇ Ｈ Ｉ Ｊ Ｋ Ｌ Ｍ Ｎ Ｏ Ｐ Ｑ Ｒ Ｓ Ｔ Ｕ Ｖ Ｗ Ｘ Ｙ Ｚ");

// --- katakana

UTL_CODE_TABLE(NODAKU_HAN_KATA_TBL,
               "ｧ ｱ ｨ ｲ ｩ ｳ ｪ ｴ ｫ ｵ ｶ ｷ ｸ ｹ ｺ ｻ ｼ ｽ ｾ ｿ ﾀ ﾁ ｯ ﾂ ﾃ ﾄ ﾅ ﾆ ﾇ ﾈ ﾉ ﾊ ﾋ ﾌ ﾍ ﾎ ﾏ ﾐ ﾑ ﾒ ﾓ "
               "ｬ ﾔ ｭ ﾕ ｮ ﾖ ﾗ ﾘ ﾙ ﾚ ﾛ ﾜ ｦ ﾝ ｡ ｢ ｣ ､ ･ ｰ");
UTL_CODE_TABLE(NODAKU_ZEN_KATA_TBL,
               "ァ ア ィ イ ゥ ウ ェ エ ォ オ カ キ ク ケ コ サ シ ス セ ソ タ チ ッ ツ テ ト "
               "ナ ニ ヌ ネ ノ ハ ヒ フ ヘ ホ マ ミ ム メ モ ャ ヤ ュ ユ ョ ヨ ラ リ ル レ ロ "
               "ワ ヲ ン ヮ ヰ ヱ ヵ ヶ ヽ 。 「 」 、 ・ ー");
UTL_CODE_TABLE(DAKU_HAN_KATA_TBL, "ｶﾞ ｷﾞ ｸﾞ ｹﾞ ｺﾞ ｻﾞ ｼﾞ ｽﾞ ｾﾞ ｿﾞ ﾀﾞ ﾁﾞ ﾂﾞ ﾃﾞ ﾄﾞ ﾊﾞ ﾋﾞ ﾌﾞ ﾍﾞ ﾎﾞ ｳﾞ ﾞ");
UTL_CODE_TABLE(DAKU_ZEN_KATA_TBL, "ガ ギ グ ゲ ゴ ザ ジ ズ ゼ ゾ ダ ヂ ヅ デ ド バ ビ ブ ベ ボ ヴ ヾ ゛");
UTL_CODE_TABLE(HANDAKU_HAN_KATA_TBL, "ﾊﾟ ﾋﾟ ﾌﾟ ﾍﾟ ﾎﾟ ﾟ");
UTL_CODE_TABLE(HANDAKU_ZEN_KATA_TBL, "パ ピ プ ペ ポ ゜");
UTL_CODE_TABLE(HAN_KATA_YOUSOKU_TBL, "ｧ ｨ ｩ ｪ ｫ ｬ ｭ ｮ ｯ");
UTL_CODE_TABLE(ZEN_KATA_YOUSOKU_TBL, "ァ ィ ゥ ェ ォ ャ ュ ョ ッ ヮ");

// --- hiragana

UTL_CODE_TABLE(NODAKU_HIRA_TBL,
               "ぁ あ ぃ い ぅ う ぇ え ぉ お か き く け こ さ し す せ そ た ち っ つ て と "
               "な に ぬ ね の は ひ ふ へ ほ ま み む め も ゃ や ゅ ゆ ょ よ ら り る れ ろ "
               "わ を ん ゎ ゐ ゑ ゝ 。 「 」 、 ・ ー");
UTL_CODE_TABLE(DAKU_HIRA_TBL,
               "が ぎ ぐ げ ご ざ じ ず ぜ ぞ だ ぢ づ で ど ば び ぶ べ ぼ ゞ 。 「 」 、 ・ ゛");
UTL_CODE_TABLE(HANDAKU_HIRA_TBL, "ぱ ぴ ぷ ぺ ぽ 。 「 」 、 ・ ゜");
UTL_CODE_TABLE(HIRA_YOUSOKU_TBL, "ぁ ぃ ぅ ぇ ぉ ゃ ゅ ょ っ ゎ");

// --- marks

UTL_CODE_TABLE(HAN_DAKUTEN_TBL, "ﾞ");
UTL_CODE_TABLE(ZEN_DAKUTEN_TBL, "゛");
UTL_CODE_TABLE(HAN_HANDAKUTEN_TBL, "ﾟ");
UTL_CODE_TABLE(ZEN_HANDAKUTEN_TBL, "゜");

// --- what the tables say about each character

namespace {

using SlotMember = unsigned int CharKind::*;

/// Sets `bit` in the member for every character that is a row of the table; a row of several characters is
/// left out, since it says nothing about its first one alone.
constexpr void mark(CharKinds* kinds, DualTypeImage const* table, SlotMember member, unsigned int bit) {
    for (DualTypeImage const* row = table; row->narrow != nullptr; ++row) {
        unsigned int const slot = charSlot(row->narrow);
        if (row->narrow[slotBytes(slot)] == '\0') {
            kinds->bySlot[slot].*member |= bit;
        }
    }
}

constexpr void markRows(CharKinds* kinds, DualTypeImage const* table, int attribute) {
    mark(kinds, table, &CharKind::rows, static_cast<unsigned int>(attribute));
    mark(kinds, table, &CharKind::starts, static_cast<unsigned int>(attribute));
}

constexpr void markParts(CharKinds* kinds, DualTypeImage const* table, unsigned int part) {
    mark(kinds, table, &CharKind::parts, part);
}

/// A unit of these attributes may begin with an unvoiced kana, if a mark follows.
constexpr void markUnvoiced(CharKinds* kinds, DualTypeImage const* table, int attributes) {
    mark(kinds, table, &CharKind::starts, static_cast<unsigned int>(attributes));
}

constexpr void markCommonText(CharKinds* kinds) {
    markRows(kinds, KAIGYO_TBL_IMAGE.rows, ATTRIB_KAIGYO);
    markRows(kinds, TAB_FF_TBL_IMAGE.rows, ATTRIB_TAB_FF);
    markRows(kinds, CTL_OTHER_TBL_IMAGE.rows, ATTRIB_CTL_OTHER);
    markRows(kinds, HAN_SPACE_TBL_IMAGE.rows, ATTRIB_HAN_SPACE);
    markRows(kinds, ZEN_SPACE_TBL_IMAGE.rows, ATTRIB_ZEN_SPACE);
    markRows(kinds, HAN_MARK_TBL_IMAGE.rows, ATTRIB_HAN_MARK);
    markRows(kinds, ZEN_MARK_TBL_IMAGE.rows, ATTRIB_ZEN_MARK);
    markRows(kinds, LOWER_HAN_HEX_ALPHA_TBL_IMAGE.rows, ATTRIB_LOWER_HAN_HEX);
    markRows(kinds, LOWER_ZEN_HEX_ALPHA_TBL_IMAGE.rows, ATTRIB_LOWER_ZEN_HEX);
    markRows(kinds, LOWER_HAN_NOHEX_ALPHA_TBL_IMAGE.rows, ATTRIB_LOWER_HAN_NOHEX);
    markRows(kinds, LOWER_ZEN_NOHEX_ALPHA_TBL_IMAGE.rows, ATTRIB_LOWER_ZEN_NOHEX);
    markRows(kinds, UPPER_HAN_HEX_ALPHA_TBL_IMAGE.rows, ATTRIB_UPPER_HAN_HEX);
    markRows(kinds, UPPER_ZEN_HEX_ALPHA_TBL_IMAGE.rows, ATTRIB_UPPER_ZEN_HEX);
    markRows(kinds, UPPER_HAN_NOHEX_ALPHA_TBL_IMAGE.rows, ATTRIB_UPPER_HAN_NOHEX);
    markRows(kinds, UPPER_ZEN_NOHEX_ALPHA_TBL_IMAGE.rows, ATTRIB_UPPER_ZEN_NOHEX);
}

constexpr void markNumbers(CharKinds* kinds) {
    markRows(kinds, HAN_DIGIT_TBL_IMAGE.rows, ATTRIB_HAN_DIGIT);
    markRows(kinds, ZEN_DIGIT_TBL_IMAGE.rows, ATTRIB_ZEN_DIGIT);
    markRows(kinds, HAN_SIGN_TBL_IMAGE.rows, ATTRIB_HAN_SIGNED);
    markRows(kinds, ZEN_SIGN_TBL_IMAGE.rows, ATTRIB_ZEN_SIGNED);
    markRows(kinds, HAN_DIGIT_TBL_IMAGE.rows, ATTRIB_HAN_HEX);
    markRows(kinds, LOWER_HAN_HEX_ALPHA_TBL_IMAGE.rows, ATTRIB_HAN_HEX);
    markRows(kinds, UPPER_HAN_HEX_ALPHA_TBL_IMAGE.rows, ATTRIB_HAN_HEX);
    markRows(kinds, ZEN_DIGIT_TBL_IMAGE.rows, ATTRIB_ZEN_HEX);
    markRows(kinds, LOWER_ZEN_HEX_ALPHA_TBL_IMAGE.rows, ATTRIB_ZEN_HEX);
    markRows(kinds, UPPER_ZEN_HEX_ALPHA_TBL_IMAGE.rows, ATTRIB_ZEN_HEX);
    markParts(kinds, HAN_HEX_SUFFIX_TBL_IMAGE.rows, PART_HAN_HEX_SUFFIX);
    markParts(kinds, ZEN_HEX_SUFFIX_TBL_IMAGE.rows, PART_ZEN_HEX_SUFFIX);
}

constexpr void markKana(CharKinds* kinds) {
    markRows(kinds, NODAKU_HAN_KATA_TBL_IMAGE.rows, ATTRIB_NODAKU_HAN_KATA);
    markRows(kinds, NODAKU_ZEN_KATA_TBL_IMAGE.rows, ATTRIB_NODAKU_ZEN_KATA);
    markRows(kinds, DAKU_HAN_KATA_TBL_IMAGE.rows, ATTRIB_DAKU_HAN_KATA);
    markRows(kinds, DAKU_ZEN_KATA_TBL_IMAGE.rows, ATTRIB_DAKU_ZEN_KATA);
    markRows(kinds, HANDAKU_HAN_KATA_TBL_IMAGE.rows, ATTRIB_HANDAKU_HAN_KATA);
    markRows(kinds, HANDAKU_ZEN_KATA_TBL_IMAGE.rows, ATTRIB_HANDAKU_ZEN_KATA);
    markRows(kinds, NODAKU_HIRA_TBL_IMAGE.rows, ATTRIB_NODAKU_HIRA);
    markRows(kinds, DAKU_HIRA_TBL_IMAGE.rows, ATTRIB_DAKU_HIRA);
    markRows(kinds, HANDAKU_HIRA_TBL_IMAGE.rows, ATTRIB_HANDAKU_HIRA);
    markUnvoiced(kinds, NODAKU_HAN_KATA_TBL_IMAGE.rows, ATTRIB_DAKU_HAN_KATA | ATTRIB_HANDAKU_HAN_KATA);
    markUnvoiced(kinds, NODAKU_ZEN_KATA_TBL_IMAGE.rows, ATTRIB_DAKU_ZEN_KATA | ATTRIB_HANDAKU_ZEN_KATA);
    markUnvoiced(kinds, NODAKU_HIRA_TBL_IMAGE.rows, ATTRIB_DAKU_HIRA | ATTRIB_HANDAKU_HIRA);
    markParts(kinds, HAN_DAKUTEN_TBL_IMAGE.rows, PART_HAN_DAKUTEN);
    markParts(kinds, ZEN_DAKUTEN_TBL_IMAGE.rows, PART_ZEN_DAKUTEN);
    markParts(kinds, HAN_HANDAKUTEN_TBL_IMAGE.rows, PART_HAN_HANDAKUTEN);
    markParts(kinds, ZEN_HANDAKUTEN_TBL_IMAGE.rows, PART_ZEN_HANDAKUTEN);
    markParts(kinds, HAN_KATA_YOUSOKU_TBL_IMAGE.rows, PART_HAN_KATA_YOUSOKU);
    markParts(kinds, ZEN_KATA_YOUSOKU_TBL_IMAGE.rows, PART_ZEN_KATA_YOUSOKU);
    markParts(kinds, HIRA_YOUSOKU_TBL_IMAGE.rows, PART_HIRA_YOUSOKU);
}

constexpr CharKinds makeCharKinds() {
    CharKinds kinds{};
    for (unsigned int slot = 0; slot < SLOT_COUNT; ++slot) {
        kinds.bySlot[slot].bytes = slotBytes(slot);
    }
    kinds.bySlot[0].rows = ATTRIB_NUL;
    kinds.bySlot[0].starts = ATTRIB_NUL;
    markCommonText(&kinds);
    markNumbers(&kinds);
    markKana(&kinds);
    return kinds;
}

}  // namespace

constexpr CharKinds CHAR_KINDS = makeCharKinds();

}  // namespace utl

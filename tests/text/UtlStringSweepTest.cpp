// Starts no thread.

// The string primitives against plain models of them, over every short text that can be put together from
// whole, broken and stray sequences, cut at every byte, with every size, position and length around it. Texts
// and destinations stand in heap blocks of exactly their size.

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "TestPieces.h"
#include "TestStringModel.h"
#include "TestText.h"
#include "UtlPlatform.h"
#include "UtlString.h"

namespace {

using utl::INVALID_SIZE;
using utltest::exactly;
using Bytes = std::vector<char>;
namespace model = utltest::model;

constexpr char UNUSED = '#';

// --- the texts

std::vector<std::string> const& pieces() {
    static std::vector<std::string> const thePieces{"a",
                                                    "b",
                                                    "\xC3\xA9",
                                                    "\xE3\x81\x82",
                                                    "\xF0\x9F\x98\x80",
                                                    "\xEF\xBB\xBF",
                                                    "\xED\xA0\x80",
                                                    "\xF7\xBF\xBF\xBF",
                                                    "\x80",
                                                    "\xC0\x80",
                                                    "\xE0\x9F\xBF",
                                                    "\xF0\x8F\xBF\xBF",
                                                    "\xFF"};
    return thePieces;
}

// For sweeps over many arguments: one piece of each kind.
std::vector<std::string> const& fewPieces() {
    static std::vector<std::string> const thePieces{"a", "\xC3\xA9", "\xE3\x81\x82", "\x80"};
    return thePieces;
}

// As `utltest::textsOf`, of all pieces.
std::vector<std::string> textsOf(unsigned int count) {
    return utltest::textsOf(count, pieces());
}

std::vector<std::string> together(std::vector<std::string> const& texts,
                                  std::vector<std::string> const& more) {
    std::set<std::string> all(texts.begin(), texts.end());
    all.insert(more.begin(), more.end());
    return {all.begin(), all.end()};
}

// Every piece next to every other, and longer ones of few.
std::vector<std::string> longTexts() {
    return together(textsOf(2), utltest::textsOf(3, fewPieces()));
}

// Every piece alone, and longer ones of few.
std::vector<std::string> shortTexts() {
    return together(textsOf(1), utltest::textsOf(2, fewPieces()));
}

std::vector<unsigned int> upTo(std::size_t last) {
    std::vector<unsigned int> numbers;
    for (unsigned int i = 0; i <= last; ++i) {
        numbers.push_back(i);
    }
    return numbers;
}

std::vector<unsigned int> upToAndAll(std::size_t last) {
    std::vector<unsigned int> numbers = upTo(last);
    numbers.push_back(INVALID_SIZE);
    return numbers;
}

std::string shown(std::string const& text) {
    std::ostringstream out;
    for (char c : text) {
        out << std::hex << (static_cast<unsigned int>(c) & 0xFFU) << ' ';
    }
    return out.str();
}

// --- the sweeps; each stops at its first difference

TEST(Sweep, CharacterLengths_OfAllLeadingByteValues) {
    constexpr unsigned char THIRD[] = {0x00, 0x80, 0xBF, 0xC3};
    constexpr unsigned char FOURTH[] = {0x00, 0x80};
    for (unsigned int first = 0; first < 0x100; ++first) {
        for (unsigned int second = 0; second < 0x100; ++second) {
            for (unsigned char third : THIRD) {
                for (unsigned char fourth : FOURTH) {
                    std::string const bytes{static_cast<char>(first), static_cast<char>(second),
                                            static_cast<char>(third), static_cast<char>(fourth)};
                    std::string const text = bytes.c_str();
                    Bytes const exact = exactly(text);
                    bool isBom = false;
                    ASSERT_EQ(utl::t_charlen(exact.data(), &isBom), model::charLength(text)) << shown(text);
                    ASSERT_EQ(isBom, text.compare(0, 3, "\xEF\xBB\xBF") == 0) << shown(text);
                    ASSERT_EQ(utl::strCharBytesBase(exact.data(), &isBom), model::charLengthOrZero(text))
                        << shown(text);
                    ASSERT_EQ(isBom, text.compare(0, 3, "\xEF\xBB\xBF") == 0) << shown(text);
                }
            }
        }
    }
}

TEST(Sweep, GetNearCharIndex_OfAllTextsAndIndices) {
    for (std::string const& text : textsOf(3)) {
        Bytes const exact = exactly(text);
        for (unsigned int index : upToAndAll(text.size() + 2)) {
            ASSERT_EQ(utl::getNearCharIndex(exact.data(), index, 1), model::nearIndex(text, index, true))
                << shown(text) << index;
            ASSERT_EQ(utl::getNearCharIndex(exact.data(), index, 0), model::nearIndex(text, index, false))
                << shown(text) << index;
        }
    }
}

TEST(Sweep, CopyStrBase_OfAllTextsSizesAndLengths) {
    for (std::string const& text : longTexts()) {
        Bytes const src = exactly(text);
        for (unsigned int dstSize : upTo(text.size() + 2)) {
            for (unsigned int length : upToAndAll(text.size() + 1)) {
                for (int truncate : {0, 1, 2}) {
                    Bytes dst(dstSize, UNUSED);
                    Bytes expected = dst;
                    ASSERT_EQ(utl::copyStrBase(dst.data(), dstSize, src.data(), length, truncate),
                              model::copyStr(&expected, dstSize, text, length, truncate))
                        << shown(text) << dstSize << ' ' << length << ' ' << truncate;
                    ASSERT_EQ(dst, expected) << shown(text) << dstSize << ' ' << length << ' ' << truncate;
                }
            }
        }
    }
}

TEST(Sweep, StrNCpy_OfAllTextsSizesAndLengths) {
    for (std::string const& text : longTexts()) {
        Bytes const src = exactly(text);
        for (unsigned int dstSize : upTo(text.size() + 2)) {
            for (unsigned int length : upToAndAll(text.size() + 1)) {
                Bytes dst(dstSize, UNUSED);
                Bytes expected = dst;
                ASSERT_EQ(utl::t_strncpy(dst.data(), dstSize, src.data(), length),
                          model::strNCpy(&expected, dstSize, text, length))
                    << shown(text) << dstSize << ' ' << length;
                ASSERT_EQ(dst, expected) << shown(text) << dstSize << ' ' << length;
            }
        }
    }
}

void compareCopyGeneral(std::string const& text, unsigned int dstSize, unsigned int dstPos) {
    Bytes const src = exactly(text);
    for (unsigned int srcPos : upToAndAll(text.size() + 1)) {
        for (unsigned int length : upToAndAll(text.size() + 1)) {
            for (int truncate : {0, 1, 2}) {
                Bytes dst(dstSize, UNUSED);
                Bytes expected = dst;
                ASSERT_EQ(utl::copyGeneral(dst.data(), dstSize, dstPos, src.data(), srcPos, length, truncate),
                          model::general(&expected, dstSize, dstPos, text, srcPos, length, truncate))
                    << shown(text) << dstSize << ' ' << dstPos << ' ' << srcPos << ' ' << length << ' '
                    << truncate;
                ASSERT_EQ(dst, expected) << shown(text) << dstSize << ' ' << dstPos << ' ' << srcPos << ' '
                                         << length << ' ' << truncate;
            }
        }
    }
}

TEST(Sweep, CopyGeneral_OfAllTextsSizesPositionsAndLengths) {
    for (std::string const& text : shortTexts()) {
        for (unsigned int dstSize : upTo(text.size() + 3)) {
            for (unsigned int dstPos : upToAndAll(3)) {
                ASSERT_NO_FATAL_FAILURE(compareCopyGeneral(text, dstSize, dstPos));
            }
        }
    }
}

TEST(Sweep, StrStr_OfAllTextsInAllTexts) {
    std::vector<std::string> const subs = textsOf(2);
    for (std::string const& text : textsOf(2)) {
        Bytes const exactText = exactly("ab" + text + "ba");
        for (std::string const& sub : subs) {
            Bytes const exactSub = exactly(sub);
            ASSERT_EQ(utl::t_strstr(exactText.data(), exactSub.data()), model::find("ab" + text + "ba", sub))
                << shown(text) << "/ " << shown(sub);
        }
    }
}

void compareReverseFind(std::string const& text, std::string const& sub) {
    Bytes const exactText = exactly(text);
    Bytes const exactSub = exactly(sub);
    for (unsigned int start : upToAndAll(text.size() + 1)) {
        unsigned int next = 77;
        unsigned int const found = utl::findReverseStr(exactText.data(), exactSub.data(), start, &next);
        if (!model::isWellFormed(text) || !model::isWellFormed(sub)) {
            ASSERT_EQ(found, INVALID_SIZE) << shown(text) << "/ " << shown(sub) << start;
            ASSERT_EQ(next, 77U) << shown(text) << "/ " << shown(sub) << start;
            continue;
        }
        unsigned int const expected = model::findReverse(text, sub, start);
        ASSERT_EQ(found, expected) << shown(text) << "/ " << shown(sub) << start;
        ASSERT_EQ(next, expected == INVALID_SIZE ? INVALID_SIZE : expected - model::length(sub))
            << shown(text) << "/ " << shown(sub) << start;
    }
}

TEST(Sweep, FindReverseStr_OfAllTextsInAllTextsFromAllStarts) {
    std::vector<std::string> const subs = textsOf(1);
    for (std::string const& text : utltest::textsOf(3, fewPieces())) {
        for (std::string const& sub : subs) {
            if (!sub.empty()) {
                ASSERT_NO_FATAL_FAILURE(compareReverseFind(text, sub));
            }
        }
    }
}

TEST(Sweep, Spans_OfAllTextsAndSets) {
    std::vector<std::string> const sets = textsOf(2);
    for (std::string const& text : textsOf(2)) {
        Bytes const exactText = exactly(text);
        for (std::string const& set : sets) {
            Bytes const exactSet = exactly(set);
            ASSERT_EQ(utl::t_strspn(exactText.data(), exactSet.data()), model::span(text, set))
                << shown(text) << "/ " << shown(set);
            ASSERT_EQ(utl::t_strcspn(exactText.data(), exactSet.data()), model::complementSpan(text, set))
                << shown(text) << "/ " << shown(set);
        }
    }
}

TEST(Sweep, StrRev_OfAllTextsAndSizes) {
    for (std::string const& text : textsOf(3)) {
        Bytes const src = exactly(text);
        for (unsigned int dstSize : upTo(text.size() + 2)) {
            for (int truncate : {0, 1, 2}) {
                Bytes dst(dstSize, UNUSED);
                Bytes expected = dst;
                unsigned int const result = model::reverse(&expected, text, truncate);
                ASSERT_EQ(utl::t_strrev(dst.data(), dstSize, src.data(), truncate), result)
                    << shown(text) << dstSize << ' ' << truncate;
                if (result != INVALID_SIZE) {
                    dst.resize(result);
                    expected.resize(result);
                    ASSERT_EQ(dst, expected) << shown(text) << dstSize << ' ' << truncate;
                }
            }
        }
    }
}

TEST(Sweep, TruncateStr_OfAllTextsAndLengths) {
    for (std::string const& text : textsOf(3)) {
        for (unsigned int length : upToAndAll(text.size() + 1)) {
            Bytes exact = exactly(text);
            Bytes expected = exact;
            unsigned int const kept = model::nearIndex(text, std::min(length, model::length(text)), true);
            if (kept != INVALID_SIZE) {
                expected[kept] = '\0';
            }
            ASSERT_EQ(utl::truncateStr(exact.data(), length), kept == INVALID_SIZE ? kept : kept + 1)
                << shown(text) << length;
            ASSERT_EQ(exact, expected) << shown(text) << length;
        }
    }
}

TEST(Sweep, EraseStrSpan_OfAllTextsPositionsAndLengths) {
    for (std::string const& text : longTexts()) {
        for (unsigned int pos : upToAndAll(text.size() + 1)) {
            for (unsigned int length : upToAndAll(text.size() + 1)) {
                Bytes exact = exactly(text);
                Bytes expected = exact;
                ASSERT_EQ(utl::eraseStrSpan(exact.data(), pos, length),
                          model::erase(&expected, text, pos, length))
                    << shown(text) << pos << ' ' << length;
                ASSERT_EQ(exact, expected) << shown(text) << pos << ' ' << length;
            }
        }
    }
}

void compareInsert(std::string const& text, std::string const& src, unsigned int dstSize) {
    Bytes const exactSrc = exactly(src);
    Bytes start = exactly(text);
    start.resize(std::max<std::size_t>(dstSize, start.size()), UNUSED);
    for (unsigned int pos : upTo(text.size() + 1)) {
        for (unsigned int length : upToAndAll(src.size())) {
            for (int truncate : {0, 1, 2}) {
                Bytes dst(start);
                Bytes expected = start;
                ASSERT_EQ(utl::insertStr(dst.data(), dstSize, pos, exactSrc.data(), length, truncate),
                          model::insert(&expected, dstSize, text, pos, src, length, truncate))
                    << shown(text) << "/ " << shown(src) << dstSize << ' ' << pos << ' ' << length << ' '
                    << truncate;
                ASSERT_EQ(dst, expected) << shown(text) << "/ " << shown(src) << dstSize << ' ' << pos << ' '
                                         << length << ' ' << truncate;
            }
        }
    }
}

TEST(Sweep, InsertStr_OfAllTextsSizesPositionsAndLengths) {
    std::vector<std::string> const sources = utltest::textsOf(1, fewPieces());
    for (std::string const& text : shortTexts()) {
        for (std::string const& src : sources) {
            for (unsigned int dstSize : upTo(text.size() + src.size() + 2)) {
                ASSERT_NO_FATAL_FAILURE(compareInsert(text, src, dstSize));
            }
        }
    }
}

void compareReplace(std::string const& text, std::string const& from, std::string const& to) {
    Bytes const exactText = exactly(text);
    Bytes const exactFrom = exactly(from);
    Bytes const exactTo = exactly(to);
    std::string const whole = model::replaced(text, from, to);
    unsigned int const needed = model::length(whole) + 1;
    for (unsigned int dstSize : upTo(needed + 1)) {
        for (int truncate : {0, 1, 2}) {
            Bytes dst(dstSize, UNUSED);
            Bytes expected = dst;
            unsigned int const result = utl::replaceStr(dst.data(), dstSize, exactText.data(),
                                                        exactFrom.data(), exactTo.data(), truncate);
            ASSERT_EQ(result, model::replaceIn(&expected, dstSize, text, from, to, truncate))
                << shown(text) << "/ " << shown(from) << "/ " << shown(to) << dstSize << ' ' << truncate;
            ASSERT_EQ(dst, expected) << shown(text) << "/ " << shown(from) << "/ " << shown(to) << dstSize
                                     << ' ' << truncate;
            if (truncate != 1) {
                ASSERT_EQ(result, dstSize == 0 || dstSize >= needed ? needed : INVALID_SIZE);
                ASSERT_TRUE(dstSize < needed || dst.data() == whole) << shown(dst.data());
            }
        }
    }
}

TEST(Sweep, ReplaceStr_OfAllTextsAndSizes) {
    std::vector<std::string> const froms = textsOf(1);
    for (std::string const& text : utltest::textsOf(3, fewPieces())) {
        for (std::string const& from : froms) {
            if (!from.empty()) {
                ASSERT_NO_FATAL_FAILURE(compareReplace(text, from, "x\xC3\xA9"));
            }
        }
    }
}

TEST(Sweep, TrimStrRight_OfAllTextsAndSets) {
    std::vector<std::string> const sets = textsOf(1);
    for (std::string const& text : longTexts()) {
        for (std::string const& set : sets) {
            if (set.empty()) {
                continue;
            }
            Bytes exact = exactly(text);
            Bytes const exactSet = exactly(set);
            Bytes expected = exact;
            bool const isWellFormed = model::isWellFormed(text);
            unsigned int const kept = model::trimmedLength(text, set);
            expected[isWellFormed ? kept : text.size()] = '\0';
            ASSERT_EQ(utl::trimStrRight(exact.data(), exactSet.data()),
                      isWellFormed ? kept + 1 : INVALID_SIZE)
                << shown(text) << "/ " << shown(set);
            ASSERT_EQ(exact, expected) << shown(text) << "/ " << shown(set);
        }
    }
}

}  // namespace

// The primitives walk a text once: twice the bytes take twice the time, and not four times as long. A walk
// that measured the rest of the text at each character would show here.

#include "UtlString.h"

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "BenchRatio.h"
#include "UtlBasicString.h"
#include "UtlPlatform.h"

namespace {

using utl::INVALID_SIZE;

// Fits into a scratch slot twice; the goal leaves room for fixed costs and caches.
constexpr unsigned int BYTES = 4800;
constexpr double TWICE = 2.3;

// Hiragana and Latin letters in turn, with a "|" every 48 bytes.
std::string mixedText(unsigned int bytes) {
    std::string text;
    while (text.size() < bytes) {
        for (int i = 0; i < 11; ++i) {
            text += "\xE3\x81\x82z";
        }
        text += "\xE3\x81\x82|";
    }
    return text;
}

struct Texts {
    explicit Texts(unsigned int bytes) : text(mixedText(bytes)), dst(4 * text.size() + 1) {}

    unsigned int dstSize() const { return static_cast<unsigned int>(dst.size()); }

    std::string text;
    std::vector<char> dst;
};

template <typename CALL>
auto on(unsigned int bytes, CALL call) {
    return [texts = Texts(bytes), call]() mutable { utlbench::keep(call(texts)); };
}

template <typename CALL>
utlbench::RatioDeclaration doubled(char const* name, CALL call) {
    return {utlbench::THREAD_TIME, name, on(2 * BYTES, call), on(BYTES, call), TWICE};
}

utlbench::RatioDeclaration const FIGURES[] = {
    doubled("t_charlen over a text, twice the bytes to once",
            [](Texts& t) {
                unsigned int offset = 0;
                while (t.text[offset] != '\0') {
                    offset += utl::t_charlen(t.text.c_str() + offset);
                }
                return offset;
            }),
    doubled("getNearCharIndex to the end, twice the bytes to once",
            [](Texts& t) { return utl::getNearCharIndex(t.text.c_str(), INVALID_SIZE, 1); }),
    doubled("copyStrBase with a cut, twice the bytes to once",
            [](Texts& t) {
                return utl::copyStrBase(t.dst.data(), t.dstSize() / 4, t.text.c_str(), INVALID_SIZE, 1);
            }),
    doubled("copyGeneral character by character, twice the bytes to once",
            [](Texts& t) {
                unsigned int used = 0;
                char const* rest = t.text.c_str();
                for (unsigned int bytes = utl::t_charlen(rest); bytes != 0; bytes = utl::t_charlen(rest)) {
                    used = utl::copyGeneral(t.dst.data(), t.dstSize(), used, rest, 0, bytes, 0) - 1;
                    rest += bytes;
                }
                return used;
            }),
    doubled("t_strstr without a match, twice the bytes to once",
            [](Texts& t) { return utl::t_strstr(t.text.c_str(), "zz"); }),
    doubled("findReverseStr without a match, twice the bytes to once",
            [](Texts& t) { return utl::findReverseStr(t.text.c_str(), "zz", INVALID_SIZE); }),
    doubled("t_strspn over all of it, twice the bytes to once",
            [](Texts& t) { return utl::t_strspn(t.text.c_str(), "|z\xE3\x81\x82"); }),
    doubled("t_strcspn over all of it, twice the bytes to once",
            [](Texts& t) { return utl::t_strcspn(t.text.c_str(), "/\\"); }),
    doubled("t_strcspn from component to component, twice the bytes to once",
            [](Texts& t) {
                unsigned int components = 0;
                char const* rest = t.text.c_str();
                while (*rest != '\0') {
                    rest += utl::t_strcspn(rest, "/|");
                    rest += utl::t_strspn(rest, "/|");
                    ++components;
                }
                return components;
            }),
    doubled("t_strrev, twice the bytes to once",
            [](Texts& t) { return utl::t_strrev(t.dst.data(), t.dstSize(), t.text.c_str(), 0); }),
    doubled(
        "replaceStr with many matches, twice the bytes to once",
        [](Texts& t) { return utl::replaceStr(t.dst.data(), t.dstSize(), t.text.c_str(), "z", "xy", 0); }),
    doubled("insertStr in the middle, twice the bytes to once",
            [](Texts& t) {
                std::memcpy(t.dst.data(), t.text.c_str(), t.text.size() + 1);
                return utl::insertStr(t.dst.data(), t.dstSize(), BYTES / 2, "xy", INVALID_SIZE, 1);
            }),
    doubled("eraseStrSpan in the middle, twice the bytes to once",
            [](Texts& t) {
                std::memcpy(t.dst.data(), t.text.c_str(), t.text.size() + 1);
                return utl::eraseStrSpan(t.dst.data(), BYTES / 2, 4);
            }),
    doubled("trimStrRight of a blank, twice the bytes to once",
            [](Texts& t) {
                std::memcpy(t.dst.data(), t.text.c_str(), t.text.size() + 1);
                t.dst[t.text.size() - 1] = ' ';
                return utl::trimStrRight<char>(t.dst.data(), nullptr);
            }),
    doubled("BasicString::replace with many matches, twice the bytes to once",
            [](Texts& t) {
                utl::BasicString<char> text(t.text.c_str(), 0, 1);
                text.replace("z", "xy", 0);
                return text.maxSize();
            }),
};

}  // namespace

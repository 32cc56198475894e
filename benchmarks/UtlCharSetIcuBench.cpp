// Conversions between character sets, on Japanese manual pages, against ICU.

#include "BenchCharSets.h"
#include "BenchIcu.h"
#include "BenchRatio.h"

namespace {

using namespace utlbench;  // the texts and both ways

constexpr double AHEAD = 0.99;

RatioDeclaration const FIGURES[] = {
    compared("Shift-JIS to UTF-8, 1 KB, to ICU", KILOBYTE, sjisToUtf8, sjisToUtf8ByIcu, AHEAD),
    compared("Shift-JIS to UTF-8, 1 MB, to ICU", MEGABYTE, sjisToUtf8, sjisToUtf8ByIcu, AHEAD),
    compared("UTF-8 to Shift-JIS, 1 KB, to ICU", KILOBYTE, utf8ToSjis, utf8ToSjisByIcu, AHEAD),
    compared("UTF-8 to Shift-JIS, 1 MB, to ICU", MEGABYTE, utf8ToSjis, utf8ToSjisByIcu, AHEAD),
    compared("UTF-8 to UTF-16, 1 KB, to ICU", KILOBYTE, utf8ToUtf16, utf8ToUtf16ByIcu, AHEAD),
    compared("UTF-8 to UTF-16, 1 MB, to ICU", MEGABYTE, utf8ToUtf16, utf8ToUtf16ByIcu, AHEAD),
    compared("UTF-16 to UTF-8, 1 KB, to ICU", KILOBYTE, utf16ToUtf8, utf16ToUtf8ByIcu, AHEAD),
    compared("UTF-16 to UTF-8, 1 MB, to ICU", MEGABYTE, utf16ToUtf8, utf16ToUtf8ByIcu, AHEAD),
};

}  // namespace

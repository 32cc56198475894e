// Reading the three forms of an HTTP date, against the C library's reader, which is told the form.

#include "UtlTimepiece.h"

#include <time.h>

#include "BenchRatio.h"

namespace {

constexpr double GOAL = 2.0;

auto library(char const* text) {
    return [text] {
        utl::Time time;
        utlbench::keep(time.setHttpDate(text));
        utlbench::keep(time);
    };
}

auto system(char const* text, char const* format) {
    return [text, format] {
        tm parts{};
        utlbench::keep(strptime(text, format, &parts));
        utlbench::keep(parts);
    };
}

UTL_RATIO_CPU("setHttpDate of the form with a comma, to strptime", library("Sun, 06 Nov 1994 08:49:37 GMT"),
              system("Sun, 06 Nov 1994 08:49:37 GMT", "%a, %d %b %Y %H:%M:%S GMT"), GOAL);
UTL_RATIO_CPU("setHttpDate of the form with hyphens, to strptime", library("Sunday, 06-Nov-94 08:49:37 GMT"),
              system("Sunday, 06-Nov-94 08:49:37 GMT", "%A, %d-%b-%y %H:%M:%S GMT"), GOAL);
UTL_RATIO_CPU("setHttpDate of the form without a zone, to strptime", library("Sun Nov  6 08:49:37 1994"),
              system("Sun Nov  6 08:49:37 1994", "%a %b %e %H:%M:%S %Y"), GOAL);

}  // namespace

// Runs what a benchmark program declares: first the single figures, then the ratios with their goals.
// Takes the options of Google Benchmark, and `--ratio_rows=FILE`: appends one line for each ratio to that
// file, with fields separated by tabs, for a table over several programs. Built with
// `UTL_BENCH_RATIOS_ALONE`, for an ABI for which there is no Google Benchmark, it takes its options and runs
// no single figures.

#ifndef UTL_BENCH_RATIOS_ALONE
#include <benchmark/benchmark.h>
#endif

#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>

#include "BenchRatio.h"

namespace {

constexpr char const* ROWS_OPTION = "--ratio_rows=";

// Removes the option from the arguments; empty if it is not among them.
std::string takeRowsFile(int& argc, char** argv) {
    std::string file;
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], ROWS_OPTION, std::strlen(ROWS_OPTION)) == 0) {
            file = argv[i] + std::strlen(ROWS_OPTION);
        } else {
            argv[kept++] = argv[i];
        }
    }
    argc = kept;
    return file;
}

#ifdef UTL_BENCH_RATIOS_ALONE

bool runSingleFigures(int, char**) {
    return !utlbench::ratioFigures().empty();
}

#else

// False if there is nothing to measure. A program may have ratios alone, which Google Benchmark would report
// as an error.
bool runSingleFigures(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return false;
    }
    std::ostringstream errors;
    benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_Tabular);
    reporter.SetOutputStream(&std::cout);
    reporter.SetErrorStream(&errors);
    std::size_t const figures = benchmark::RunSpecifiedBenchmarks(&reporter);
    if (figures != 0 || utlbench::ratioFigures().empty()) {
        std::cerr << errors.str();
    }
    return figures != 0 || !utlbench::ratioFigures().empty();
}

#endif

bool runRatios(std::string const& rowsFile) {
    std::FILE* const rows = rowsFile.empty() ? nullptr : std::fopen(rowsFile.c_str(), "ae");
    if (rows == nullptr && !rowsFile.empty()) {
        std::perror(rowsFile.c_str());
        return false;
    }
    for (utlbench::RatioFigure const& figure : utlbench::ratioFigures()) {
        utlbench::RatioResult const result = utlbench::measure(figure);
        char const* const answer = utlbench::reached(figure, result) ? "yes" : "no";
        std::printf("ratio %.3f, goal %.3f, reached %s: %s (%.1f ns to %.1f ns)\n", result.ratio, figure.goal,
                    answer, figure.name.c_str(), result.subjectNanoseconds, result.baselineNanoseconds);
        std::fflush(stdout);
        if (rows != nullptr) {
            std::fprintf(rows, "%s\t%.1f\t%.1f\t%.3f\t%.3f\t%s\n", figure.name.c_str(),
                         result.subjectNanoseconds, result.baselineNanoseconds, result.ratio, figure.goal,
                         answer);
        }
    }
    return rows == nullptr || std::fclose(rows) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string const rowsFile = takeRowsFile(argc, argv);
    return runSingleFigures(argc, argv) && runRatios(rowsFile) ? 0 : 1;
}

#pragma once

#include <cstdio>
#include <cstring>

namespace utlbench {

/// The ratios of a program that measures by itself: printed, and added as rows to the file that the option
/// `--ratio_rows=FILE` names.
class RatioRows {
  public:
    RatioRows(int argc, char** argv) {
        constexpr char OPTION[] = "--ratio_rows=";
        for (int i = 1; i < argc; ++i) {
            if (std::strncmp(argv[i], OPTION, sizeof(OPTION) - 1) == 0) {
                mRows = std::fopen(argv[i] + sizeof(OPTION) - 1, "ae");
            }
        }
    }
    ~RatioRows() {
        if (mRows != nullptr) {
            std::fclose(mRows);
        }
    }
    RatioRows(RatioRows const&) = delete;
    RatioRows& operator=(RatioRows const&) = delete;

    void print(char const* name, double subject, double baseline, double goal) {
        double const ratio = subject / baseline;
        char const* const answer = ratio <= goal ? "yes" : "no";
        std::printf("ratio %.3f, goal %.3f, reached %s: %s\n", ratio, goal, answer, name);
        if (mRows != nullptr) {
            std::fprintf(mRows, "%s\t%.1f\t%.1f\t%.3f\t%.3f\t%s\n", name, subject, baseline, ratio, goal,
                         answer);
        }
    }

  private:
    std::FILE* mRows = nullptr;
};

}  // namespace utlbench

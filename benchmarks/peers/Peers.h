#pragma once

// Compares the library with what people use in its place. A theme is one thing to do, and several sides do it
// in turns in one process. Each proves its work, or the program ends.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "BenchRatio.h"
#include "BenchText.h"

namespace utlpeers {

/// Name of the side that makes the system calls of the library's design, takes one plain lock for each access
/// to what threads share, and does nothing else.
constexpr char const* BARE = "bare";

/// Name of the library's own side.
constexpr char const* OURS = "utl";

struct Side {
    std::string name;

    /// Does the work that many times, or a few more.
    std::function<void(std::size_t)> work;
};

/// Whether the threads of a theme share one processor, as those of `./run bench`, or have all of them.
enum Processors { ONE_PROCESSOR, ALL_PROCESSORS };

struct Theme {
    std::string id;     ///< the name of its chart
    std::string title;  ///< what is done
    std::string unit;   ///< what the time of a figure is that of, as "message"
    std::string size;   ///< what grows, as "producers"
    utlbench::Clock clock;
    Processors processors;
    std::vector<unsigned int> sizes;
    std::vector<unsigned int> shown;  ///< the sizes that are in the table

    /// Makes the sides for one size, the library's first. What they need lives as long as they do.
    std::function<std::vector<Side>(unsigned int)> sides;

    /// Milliseconds of one turn; what starts threads has long ones.
    double turn = 10;

    /// How many units one piece of work is, by the size.
    std::function<double(unsigned int)> units = [](unsigned int) { return 1.0; };

    /// How many pieces of work a turn is; 0 for as many as fill it.
    std::function<std::size_t(unsigned int)> pieces = [](unsigned int) { return std::size_t{0}; };
};

/// The themes of this program by their declarations.
inline std::vector<Theme>& themes() {
    static std::vector<Theme> theThemes;
    return theThemes;
}

/// Declares a theme while it is constructed.
struct ThemeDeclaration {
    explicit ThemeDeclaration(Theme theme) { themes().push_back(std::move(theme)); }
};

/// Ends the program if a side has not done its work.
inline void prove(bool isDone, char const* what) {
    if (!isDone) {
        utlbench::giveUp(what);
    }
}

/// A side whose work is one call.
template <typename CALL>
Side each(char const* name, CALL call) {
    return {name, [call](std::size_t times) mutable {
                for (std::size_t i = 0; i < times; ++i) {
                    call();
                }
            }};
}

}  // namespace utlpeers

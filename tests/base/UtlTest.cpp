// Starts no thread.

// The header for everything, after macros that other libraries bring into a program. Only what these macros
// would break themselves, the headers of the system, stands before it.

#include <gtest/gtest.h>
#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <sys/sysmacros.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#if !defined(major) || !defined(minor) || !defined(makedev) || !defined(errno)
#error "the headers of the system no longer bring what this test is about"
#endif

// Wherever a header uses one of these as a name, it does not compile. With the empty macros that Qt has for
// some of them a declaration would still do.
#define slots "no name"
#define signals "no name"
#define emit "no name"
#define foreach "no name"
#define forever "no name"
#define None "no name"
#define Bool "no name"
#define Status "no name"
#define Success "no name"
#define Always "no name"
#define min(a, b) ((a) < (b) ? (a) : (b))
#define max(a, b) ((a) > (b) ? (a) : (b))

#include "Utl.h"

namespace {

template <typename RING>
int sumOf(RING const& ring) {
    int items[3]{};
    EXPECT_TRUE(ring.copyOut(0, items, ring.size()));
    return items[0] + items[1] + items[2];
}

TEST(Headers, BehindTheMacrosOfOtherLibraries_MakeContainersThatWork) {
    int const items[] = {1, 2, 4};
    utl::RingArray<int> ring(3);
    EXPECT_TRUE(ring.pushBack(items, 3));
    EXPECT_EQ(sumOf(ring), 7);
    EXPECT_TRUE(ring.removeAt(1, 1));
    ring.removeLast(1);
    EXPECT_EQ(sumOf(ring), 1);
    int popped = 0;
    EXPECT_TRUE(ring.popFrontInto(&popped, 1));
    EXPECT_EQ(popped, 1);

    utl::Map<int, int> map(1, 1);
    EXPECT_TRUE(map.insert(2, 20));
    EXPECT_TRUE(map.insert(1, 10));
    EXPECT_TRUE(map.erase(2));
    EXPECT_EQ(map.getAt(0)->mValue, 10);
}

std::vector<std::string> includedNames(std::filesystem::path const& header) {
    std::ifstream in(header);
    std::vector<std::string> names;
    std::string const start = "#include \"";
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, start.size(), start) == 0) {
            names.push_back(line.substr(start.size(), line.rfind('"') - start.size()));
        }
    }
    return names;
}

std::set<std::string> headersBesides(std::filesystem::path const& header) {
    std::set<std::string> names;
    for (auto const& entry : std::filesystem::directory_iterator(header.parent_path())) {
        if (entry.path().filename() != header.filename()) {
            names.insert(entry.path().filename().string());
        }
    }
    return names;
}

TEST(Utl, TheHeaderForEverything_IncludesEveryPublicHeaderOnce) {
    std::filesystem::path const header = std::filesystem::path(UTL_INCLUDE_FOLDER) / "Utl.h";
    std::vector<std::string> const included = includedNames(header);
    std::set<std::string> const includedOnce(included.begin(), included.end());
    EXPECT_EQ(includedOnce.size(), included.size());
    EXPECT_EQ(includedOnce, headersBesides(header));
    EXPECT_GE(included.size(), 3U);
}

}  // namespace
